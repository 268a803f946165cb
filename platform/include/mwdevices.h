// The catalogue of devices behind device monikers: services register each device (an audio
// renderer per wave device, a capture filter per input, a compressor per encoder, ...) under a
// category; monikers, their property bags and MkParseDisplayName are made from these entries.
// The system device enumerator (ICreateDevEnum, platform/graph) lists them by category.
//
// Display names have the platform's form "@device:<kind>:{CATEGORY}\<instance>" ("cm", "sw",
// "pnp", ... as kind), or "@device:dmo:{CLSID}{CATEGORY}" for media objects, with GUIDs in upper
// case; "@device:*:{CATEGORY}" names the category's default device. Everything here is
// thread-safe. A moniker keeps its device's record alive, so it stays usable after the device is
// revoked (but is no longer found by name).
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "comptr.h"
#include "mwcom.h"
#include "objbase.h"

namespace mw {

// A value of a device's property bag: text (VT_BSTR), a 32-bit integer (VT_I4) or bytes
// (VT_ARRAY | VT_UI1).
using DevicePropertyValue = std::variant<std::u16string, int32_t, std::vector<uint8_t>>;

struct DeviceDescription {
    GUID category = GUID_NULL;
    std::u16string kind = u"sw";  // between the first two colons of the display name
    std::u16string instance;      // behind the backslash; unique within kind and category
    std::u16string friendlyName;  // the bag's "FriendlyName"
    CLSID clsid = GUID_NULL;      // the bag's "CLSID" (as "{...}" text); the class to create
    std::vector<std::pair<std::u16string, DevicePropertyValue>> properties;  // further values
    // Creates the device's object for IMoniker::BindToObject; when empty, BindToObject is
    // CoCreateInstance(clsid, null, CLSCTX_INPROC_SERVER, riid).
    ClassCreator create;
    // The device "@device:*:{category}" names; without one, the first registered device.
    bool isDefault = false;
};

// Registers a device; answers a cookie for RevokeDevice (never 0). A device whose display name
// is already registered replaces the older entry for lookups by name.
DWORD RegisterDevice(const DeviceDescription& device);
void RevokeDevice(DWORD cookie);

// The display name a description gets.
std::u16string DeviceDisplayName(const DeviceDescription& device);

// Monikers of the devices of a category in registration order. S_OK with at least one moniker,
// S_FALSE with none (the platform's answer for an empty category).
HRESULT EnumDeviceMonikers(REFGUID category, std::vector<ComPtr<IMoniker>>* monikers);
// The categories that have devices, in order of their first registration.
std::vector<GUID> DeviceCategories();

// An IEnumMoniker over a fixed list (each Next hands out added references).
HRESULT CreateMonikerEnumerator(std::vector<ComPtr<IMoniker>> monikers, IEnumMoniker** ppEnum);

}  // namespace mw
