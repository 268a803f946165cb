// The running object table of the process.
#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

#include "ComObject.h"
#include "mwdevices.h"
#include "mwstring.h"

namespace {

using mw::com::QueryTable;

FILETIME Now() {
    // 100 ns units since 1601-01-01.
    const auto since1970 =
        std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, 10000000>>>(
            std::chrono::system_clock::now().time_since_epoch())
            .count();
    const uint64_t t = static_cast<uint64_t>(since1970) + 116444736000000000ull;
    return FILETIME{static_cast<DWORD>(t), static_cast<DWORD>(t >> 32)};
}

std::u16string NameOf(IMoniker* mk) {
    LPOLESTR s = nullptr;
    if (FAILED(mk->GetDisplayName(nullptr, nullptr, &s)) || !s) return {};
    std::u16string out(s);
    CoTaskMemFree(s);
    return out;
}

struct Entry {
    DWORD cookie;
    ComPtr<IUnknown> object;
    ComPtr<IMoniker> moniker;
    std::u16string name;  // the moniker's display name, compared without case
    FILETIME changed;
};

// One table per process; it is never destroyed, so registrations made by objects that live
// until exit stay valid. Calls into registered objects and monikers happen outside the lock.
class RunningObjectTable final : public IRunningObjectTable {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IRunningObjectTable, this}});
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP Register(DWORD grfFlags, IUnknown* punkObject, IMoniker* pmkObjectName,
                          DWORD* pdwRegister) override {
        if (pdwRegister) *pdwRegister = 0;
        if (!punkObject || !pmkObjectName || !pdwRegister) return E_INVALIDARG;
        if (grfFlags & ~(ROTFLAGS_REGISTRATIONKEEPSALIVE | ROTFLAGS_ALLOWANYCLIENT))
            return E_INVALIDARG;
        std::u16string name = NameOf(pmkObjectName);
        if (name.empty()) return E_INVALIDARG;
        Entry e{0, ComPtr<IUnknown>(punkObject), ComPtr<IMoniker>(pmkObjectName), std::move(name),
                Now()};
        std::lock_guard lock(mutex_);
        const bool duplicate = std::any_of(entries_.begin(), entries_.end(), [&](const Entry& x) {
            return mw::U16EqualNoCase(x.name, e.name);
        });
        e.cookie = nextCookie_++;
        *pdwRegister = e.cookie;
        entries_.push_back(std::move(e));
        return duplicate ? MK_S_MONIKERALREADYREGISTERED : S_OK;
    }

    STDMETHODIMP Revoke(DWORD dwRegister) override {
        Entry dropped;
        {
            std::lock_guard lock(mutex_);
            auto it = std::find_if(entries_.begin(), entries_.end(),
                                   [&](const Entry& x) { return x.cookie == dwRegister; });
            if (it == entries_.end()) return E_INVALIDARG;
            dropped = std::move(*it);
            entries_.erase(it);
        }
        return S_OK;  // the references go when `dropped` leaves, outside the lock
    }

    STDMETHODIMP IsRunning(IMoniker* pmkObjectName) override {
        if (!pmkObjectName) return E_INVALIDARG;
        std::u16string name = NameOf(pmkObjectName);
        std::lock_guard lock(mutex_);
        return Find(name) ? S_OK : S_FALSE;
    }

    STDMETHODIMP GetObject(IMoniker* pmkObjectName, IUnknown** ppunkObject) override {
        if (!ppunkObject) return E_POINTER;
        *ppunkObject = nullptr;
        if (!pmkObjectName) return E_INVALIDARG;
        std::u16string name = NameOf(pmkObjectName);
        std::lock_guard lock(mutex_);
        const Entry* e = Find(name);
        if (!e) return MK_E_UNAVAILABLE;
        return e->object.CopyTo(ppunkObject);
    }

    STDMETHODIMP NoteChangeTime(DWORD dwRegister, FILETIME* pfiletime) override {
        if (!pfiletime) return E_INVALIDARG;
        std::lock_guard lock(mutex_);
        for (auto& e : entries_) {
            if (e.cookie == dwRegister) {
                e.changed = *pfiletime;
                return S_OK;
            }
        }
        return E_INVALIDARG;
    }

    STDMETHODIMP GetTimeOfLastChange(IMoniker* pmkObjectName, FILETIME* pfiletime) override {
        if (!pmkObjectName || !pfiletime) return E_INVALIDARG;
        std::u16string name = NameOf(pmkObjectName);
        std::lock_guard lock(mutex_);
        const Entry* e = Find(name);
        if (!e) return MK_E_UNAVAILABLE;
        *pfiletime = e->changed;
        return S_OK;
    }

    STDMETHODIMP EnumRunning(IEnumMoniker** ppenumMoniker) override {
        if (!ppenumMoniker) return E_INVALIDARG;
        std::vector<ComPtr<IMoniker>> monikers;
        {
            std::lock_guard lock(mutex_);
            for (const auto& e : entries_)
                monikers.push_back(e.moniker);
        }
        return mw::CreateMonikerEnumerator(std::move(monikers), ppenumMoniker);
    }

private:
    const Entry* Find(const std::u16string& name) const {
        for (const auto& e : entries_)
            if (mw::U16EqualNoCase(e.name, name)) return &e;
        return nullptr;
    }

    std::mutex mutex_;
    std::vector<Entry> entries_;
    DWORD nextCookie_ = 1;
};

}  // namespace

HRESULT WINAPI GetRunningObjectTable(DWORD reserved, LPRUNNINGOBJECTTABLE* pprot) {
    if (!pprot) return E_INVALIDARG;
    *pprot = nullptr;
    if (reserved != 0) return E_INVALIDARG;
    static RunningObjectTable* table = new RunningObjectTable;
    *pprot = table;
    return S_OK;
}
