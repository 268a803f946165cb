// Small helpers for the COM objects of this folder: an atomic reference count that starts at 1
// (the creator's reference) and deletes the object at 0, and QueryInterface over a list of
// (IID, interface pointer) pairs. Internal to platform/com.
#pragma once

#include <atomic>
#include <initializer_list>
#include <utility>

#include "comptr.h"
#include "unknwn.h"

namespace mw::com {

struct QiEntry {
    const IID* iid;
    IUnknown* itf;
};

// Answers the entry for riid with a reference added, E_NOINTERFACE otherwise. The first entry
// must be the object's IUnknown identity (asked for IID_IUnknown).
inline HRESULT QueryTable(REFIID riid, void** ppv, std::initializer_list<QiEntry> entries) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown)) {
        IUnknown* u = entries.begin()->itf;
        u->AddRef();
        *ppv = u;
        return S_OK;
    }
    for (const QiEntry& e : entries) {
        if (IsEqualIID(riid, *e.iid)) {
            e.itf->AddRef();
            *ppv = e.itf;
            return S_OK;
        }
    }
    return E_NOINTERFACE;
}

}  // namespace mw::com

// AddRef and Release of a heap object counted from 1.
#define MW_COM_REFCOUNT                                                                  \
public:                                                                                  \
    STDMETHODIMP_(ULONG) AddRef() override { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; } \
    STDMETHODIMP_(ULONG) Release() override {                                            \
        ULONG n = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;                     \
        if (n == 0) delete this;                                                         \
        return n;                                                                        \
    }                                                                                    \
                                                                                         \
private:                                                                                 \
    std::atomic<ULONG> refs_{1};
