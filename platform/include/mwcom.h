// The Linux side of the COM core: the in-process class registry behind CoCreateInstance and
// small helpers for objects of the platform layer. Services register their classes here (at
// start-up, from any thread); CoCreateInstance then creates them.
#pragma once

#include <functional>
#include <string_view>

#include "objbase.h"

namespace mw {

// Creates an object of the class answering riid into *ppv (null on failure). outer is the
// controlling unknown when the caller aggregates; creators that do not support aggregation
// answer CLASS_E_NOAGGREGATION for a non-null outer.
using ClassCreator = std::function<HRESULT(IUnknown* outer, REFIID riid, void** ppv)>;

// Registers a creatable class; a later registration of the same class id takes precedence
// until it is revoked. Answers a cookie for RevokeComClass (never 0).
DWORD RegisterComClass(REFCLSID clsid, ClassCreator create);
void RevokeComClass(DWORD cookie);
// Whether CoCreateInstance knows the class.
bool IsComClassRegistered(REFCLSID clsid);

// A copy of text in task memory (CoTaskMemFree frees it), null-terminated; null when out of
// memory.
LPOLESTR CoTaskMemDup(std::u16string_view text);

// The apartment count of the calling thread (0: not initialised); for tests and assertions.
int CoInitializeCount();

}  // namespace mw
