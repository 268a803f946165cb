// Small helpers for the COM objects of this folder: an atomic reference count that starts at 1
// (the creator's reference) and deletes the object at 0, and QueryInterface over a list of
// (IID, interface pointer) pairs. Internal to platform/com.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "comptr.h"
#include "objidl.h"
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
#define MW_COM_REFCOUNT                                              \
public:                                                              \
    STDMETHODIMP_(ULONG) AddRef() override {                         \
        return refs_.fetch_add(1, std::memory_order_relaxed) + 1;    \
    }                                                                \
    STDMETHODIMP_(ULONG) Release() override {                        \
        ULONG n = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1; \
        if (n == 0) delete this;                                     \
        return n;                                                    \
    }                                                                \
                                                                     \
private:                                                             \
    std::atomic<ULONG> refs_{1};

namespace mw::com {

// An IEnumXxx over a snapshot of items shared by its clones, each with its own position.
// `Copy(item, out)` fills one out element (adding a reference or duplicating memory as the
// interface's caller expects); `kBadPointer` is what a null out argument answers. Any thread.
template <class IEnum, class Item, class Out, void (*Copy)(const Item&, Out*),
          HRESULT kBadPointer = E_INVALIDARG>
class SnapshotEnumerator final : public IEnum {
    MW_COM_REFCOUNT
public:
    using Items = std::shared_ptr<const std::vector<Item>>;
    SnapshotEnumerator(Items items, size_t pos) : items_(std::move(items)), pos_(pos) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&MwIid<IEnum>(), this}});
    }
    STDMETHODIMP Next(ULONG celt, Out* rgelt, ULONG* pceltFetched) override {
        if (!rgelt || (celt > 1 && !pceltFetched)) return kBadPointer;
        std::lock_guard lock(mutex_);
        ULONG n = 0;
        while (n < celt && pos_ < items_->size())
            Copy((*items_)[pos_++], &rgelt[n++]);
        if (pceltFetched) *pceltFetched = n;
        return n == celt ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG celt) override {
        std::lock_guard lock(mutex_);
        const size_t left = items_->size() - pos_;
        pos_ += std::min<size_t>(celt, left);
        return celt <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override {
        std::lock_guard lock(mutex_);
        pos_ = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IEnum** ppenum) override {
        if (!ppenum) return kBadPointer == E_INVALIDARG ? E_POINTER : kBadPointer;
        std::lock_guard lock(mutex_);
        *ppenum = new SnapshotEnumerator(items_, pos_);
        return S_OK;
    }

private:
    std::mutex mutex_;
    Items items_;
    size_t pos_;
};

// The seek of the platform's in-memory streams: moves pos from the start, the current position
// or the end (size) and reports the new position. A position before the start is refused.
inline HRESULT SeekStream(uint64_t& pos, uint64_t size, LARGE_INTEGER move, DWORD origin,
                          ULARGE_INTEGER* newPosition) {
    int64_t base;
    switch (origin) {
        case STREAM_SEEK_SET:
            base = 0;
            break;
        case STREAM_SEEK_CUR:
            base = static_cast<int64_t>(pos);
            break;
        case STREAM_SEEK_END:
            base = static_cast<int64_t>(size);
            break;
        default:
            return STG_E_INVALIDFUNCTION;
    }
    const int64_t target = base + move.QuadPart;
    if (target < 0) return STG_E_INVALIDFUNCTION;
    pos = static_cast<uint64_t>(target);
    if (newPosition) newPosition->QuadPart = pos;
    return S_OK;
}

}  // namespace mw::com
