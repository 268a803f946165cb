// Device monikers and their property bags, item monikers, bind contexts, display-name parsing,
// and enumerators of monikers and strings.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "ComObject.h"
#include "mwdevices.h"
#include "mwstring.h"
#include "oleauto.h"
#include "uuids.h"

namespace {

using mw::com::QueryTable;
using mw::com::SnapshotEnumerator;

std::u16string GuidText(const GUID& g) {
    return mw::Utf8ToUtf16(mw::GuidToString(g));
}

std::u16string Upper(std::u16string s) {
    for (auto& c : s)
        if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    return s;
}

// ---------------------------------------------------------------- device registry

struct DeviceRecord {
    DWORD cookie = 0;
    mw::DeviceDescription desc;
    std::u16string displayName;
    std::mutex mutex;  // guards desc.properties written through the bag
};

struct DeviceRegistry {
    std::shared_mutex mutex;
    std::vector<std::shared_ptr<DeviceRecord>> devices;  // registration order
    DWORD nextCookie = 1;
};

DeviceRegistry& Devices() {
    static DeviceRegistry* r = new DeviceRegistry;
    return *r;
}

std::shared_ptr<DeviceRecord> FindDeviceByName(std::u16string_view name) {
    DeviceRegistry& r = Devices();
    std::shared_lock lock(r.mutex);
    for (auto it = r.devices.rbegin(); it != r.devices.rend(); ++it)
        if (mw::U16EqualNoCase((*it)->displayName, name)) return *it;
    return nullptr;
}

std::shared_ptr<DeviceRecord> FindDefaultDevice(const GUID& category) {
    DeviceRegistry& r = Devices();
    std::shared_lock lock(r.mutex);
    std::shared_ptr<DeviceRecord> first;
    for (const auto& d : r.devices) {
        if (!IsEqualGUID(d->desc.category, category)) continue;
        if (d->desc.isDefault) return d;
        if (!first) first = d;
    }
    return first;
}

// ---------------------------------------------------------------- property bag

HRESULT ValueToVariant(const mw::DevicePropertyValue& value, VARIANT* out) {
    VariantInit(out);
    if (auto* s = std::get_if<std::u16string>(&value)) {
        out->bstrVal = SysAllocStringLen(s->data(), static_cast<UINT>(s->size()));
        if (!out->bstrVal) return E_OUTOFMEMORY;
        out->vt = VT_BSTR;
    } else if (auto* i = std::get_if<int32_t>(&value)) {
        out->vt = VT_I4;
        out->lVal = *i;
    } else {
        const auto& bytes = std::get<std::vector<uint8_t>>(value);
        SAFEARRAY* sa = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
        if (!sa) return E_OUTOFMEMORY;
        if (!bytes.empty()) std::memcpy(sa->pvData, bytes.data(), bytes.size());
        out->vt = VT_ARRAY | VT_UI1;
        out->parray = sa;
    }
    return S_OK;
}

HRESULT VariantToValue(const VARIANT* v, mw::DevicePropertyValue* out) {
    if (v->vt == VT_BSTR) {
        *out = std::u16string(v->bstrVal ? v->bstrVal : u"", SysStringLen(v->bstrVal));
        return S_OK;
    }
    if (v->vt == (VT_ARRAY | VT_UI1) && v->parray) {
        const auto* p = static_cast<const uint8_t*>(v->parray->pvData);
        *out = std::vector<uint8_t>(p, p + v->parray->rgsabound[0].cElements);
        return S_OK;
    }
    VARIANT i4;
    VariantInit(&i4);
    HRESULT hr = VariantChangeType(&i4, v, 0, VT_I4);
    if (FAILED(hr)) return hr;
    *out = static_cast<int32_t>(i4.lVal);
    return S_OK;
}

class DevicePropertyBag final : public IPropertyBag {
    MW_COM_REFCOUNT
public:
    explicit DevicePropertyBag(std::shared_ptr<DeviceRecord> record) : record_(std::move(record)) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IPropertyBag, this}});
    }

    STDMETHODIMP Read(LPCOLESTR pszPropName, VARIANT* pVar, IErrorLog* pErrorLog) override {
        if (!pszPropName || !pVar) return E_POINTER;
        mw::DevicePropertyValue value;
        if (!Lookup(pszPropName, &value)) {
            if (pErrorLog) {
                EXCEPINFO info{};
                info.scode = E_INVALIDARG;
                pErrorLog->AddError(pszPropName, &info);
            }
            return E_INVALIDARG;
        }
        const VARTYPE wanted = pVar->vt;
        VARIANT v;
        HRESULT hr = ValueToVariant(value, &v);
        if (FAILED(hr)) return hr;
        if (wanted != VT_EMPTY && wanted != v.vt) {
            VARIANT converted;
            VariantInit(&converted);
            hr = VariantChangeType(&converted, &v, 0, wanted);
            VariantClear(&v);
            if (FAILED(hr)) return hr;
            v = converted;
        }
        // The caller's variant only says which type it wants; what else it holds is not ours
        // to free.
        *pVar = v;
        return S_OK;
    }

    STDMETHODIMP Write(LPCOLESTR pszPropName, VARIANT* pVar) override {
        if (!pszPropName || !pVar) return E_POINTER;
        mw::DevicePropertyValue value;
        HRESULT hr = VariantToValue(pVar, &value);
        if (FAILED(hr)) return hr;
        std::u16string name(pszPropName);
        std::lock_guard lock(record_->mutex);
        auto& d = record_->desc;
        if (name == u"FriendlyName" && std::holds_alternative<std::u16string>(value)) {
            d.friendlyName = std::get<std::u16string>(value);
            return S_OK;
        }
        for (auto& [n, v] : d.properties) {
            if (n == name) {
                v = value;
                return S_OK;
            }
        }
        d.properties.emplace_back(name, value);
        return S_OK;
    }

private:
    bool Lookup(std::u16string_view name, mw::DevicePropertyValue* out) {
        std::lock_guard lock(record_->mutex);
        const auto& d = record_->desc;
        if (name == u"FriendlyName") {
            *out = d.friendlyName;
            return true;
        }
        for (const auto& [n, v] : d.properties) {
            if (n == name) {
                *out = v;
                return true;
            }
        }
        if (name == u"CLSID" && !IsEqualGUID(d.clsid, GUID_NULL)) {
            *out = GuidText(d.clsid);
            return true;
        }
        return false;
    }

    std::shared_ptr<DeviceRecord> record_;
};

// ---------------------------------------------------------------- common moniker parts

void WriteU16(IStream* stm, const std::u16string& s, HRESULT& hr) {
    if (FAILED(hr)) return;
    uint32_t n = static_cast<uint32_t>(s.size());
    hr = stm->Write(&n, 4, nullptr);
    if (SUCCEEDED(hr) && n) hr = stm->Write(s.data(), n * 2, nullptr);
}

bool ReadU16(IStream* stm, std::u16string* s) {
    uint32_t n = 0;
    ULONG got = 0;
    if (FAILED(stm->Read(&n, 4, &got)) || got != 4 || n > (1u << 20)) return false;
    s->assign(n, u'\0');
    if (n && (FAILED(stm->Read(s->data(), n * 2, &got)) || got != n * 2)) return false;
    return true;
}

// The parts of IMoniker that the two moniker kinds answer alike.
template <class Derived>
class MonikerBase : public IMoniker {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(
            riid, ppv, {{&IID_IMoniker, this}, {&IID_IPersistStream, this}, {&IID_IPersist, this}});
    }
    STDMETHODIMP IsDirty() override { return S_FALSE; }
    STDMETHODIMP GetSizeMax(ULARGE_INTEGER* pcbSize) override {
        if (!pcbSize) return E_POINTER;
        pcbSize->QuadPart = 8 + 2 * static_cast<Derived*>(this)->Text().size() + 1024;
        return S_OK;
    }
    STDMETHODIMP Reduce(IBindCtx*, DWORD, IMoniker**, IMoniker** ppmkReduced) override {
        if (!ppmkReduced) return E_POINTER;
        AddRef();
        *ppmkReduced = this;
        return MK_S_REDUCED_TO_SELF;
    }
    STDMETHODIMP ComposeWith(IMoniker*, BOOL fOnlyIfNotGeneric, IMoniker** ppmkComposite) override {
        if (!ppmkComposite) return E_POINTER;
        *ppmkComposite = nullptr;
        return fOnlyIfNotGeneric ? MK_E_NEEDGENERIC : E_NOTIMPL;
    }
    STDMETHODIMP Enum(BOOL, IEnumMoniker** ppenumMoniker) override {
        if (!ppenumMoniker) return E_POINTER;
        *ppenumMoniker = nullptr;  // a simple moniker has no parts
        return S_OK;
    }
    STDMETHODIMP IsEqual(IMoniker* pmkOtherMoniker) override {
        if (!pmkOtherMoniker) return E_INVALIDARG;
        DWORD sys = 0;
        pmkOtherMoniker->IsSystemMoniker(&sys);
        DWORD mine = 0;
        IsSystemMoniker(&mine);
        if (sys != mine) return S_FALSE;
        LPOLESTR other = nullptr;
        if (FAILED(pmkOtherMoniker->GetDisplayName(nullptr, nullptr, &other)) || !other)
            return S_FALSE;
        bool same = mw::U16EqualNoCase(other, static_cast<Derived*>(this)->Text());
        CoTaskMemFree(other);
        if (!same) return S_FALSE;
        CLSID a{}, b{};
        if (SUCCEEDED(GetClassID(&a)) && SUCCEEDED(pmkOtherMoniker->GetClassID(&b)) &&
            !IsEqualGUID(a, b))
            return S_FALSE;
        return S_OK;
    }
    STDMETHODIMP Hash(DWORD* pdwHash) override {
        if (!pdwHash) return E_POINTER;
        DWORD h = 0;
        for (char16_t c : Upper(static_cast<Derived*>(this)->Text()))
            h = h * 31 + c;
        *pdwHash = h;
        return S_OK;
    }
    STDMETHODIMP GetTimeOfLastChange(IBindCtx* pbc, IMoniker*, FILETIME* pFileTime) override {
        if (!pFileTime) return E_POINTER;
        ComPtr<IRunningObjectTable> rot;
        if (pbc && SUCCEEDED(pbc->GetRunningObjectTable(rot.ReleaseAndGetAddressOf())) && rot)
            return rot->GetTimeOfLastChange(this, pFileTime);
        return MK_E_UNAVAILABLE;
    }
    STDMETHODIMP Inverse(IMoniker** ppmk) override {
        if (!ppmk) return E_POINTER;
        *ppmk = nullptr;
        return MK_E_NOINVERSE;
    }
    STDMETHODIMP CommonPrefixWith(IMoniker* pmkOther, IMoniker** ppmkPrefix) override {
        if (!ppmkPrefix) return E_POINTER;
        *ppmkPrefix = nullptr;
        if (pmkOther && IsEqual(pmkOther) == S_OK) {
            AddRef();
            *ppmkPrefix = this;
            return MK_S_US;
        }
        return MK_E_NOPREFIX;
    }
    STDMETHODIMP RelativePathTo(IMoniker*, IMoniker** ppmkRelPath) override {
        if (!ppmkRelPath) return E_POINTER;
        *ppmkRelPath = nullptr;
        return E_NOTIMPL;
    }
    STDMETHODIMP GetDisplayName(IBindCtx*, IMoniker*, LPOLESTR* ppszDisplayName) override {
        if (!ppszDisplayName) return E_POINTER;
        *ppszDisplayName = mw::CoTaskMemDup(static_cast<Derived*>(this)->Text());
        return *ppszDisplayName ? S_OK : E_OUTOFMEMORY;
    }
    STDMETHODIMP ParseDisplayName(IBindCtx*, IMoniker*, LPOLESTR, ULONG* pchEaten,
                                  IMoniker** ppmkOut) override {
        if (pchEaten) *pchEaten = 0;
        if (ppmkOut) *ppmkOut = nullptr;
        return MK_E_SYNTAX;
    }
};

// ---------------------------------------------------------------- device moniker

class DeviceMoniker final : public MonikerBase<DeviceMoniker> {
    MW_COM_REFCOUNT
public:
    explicit DeviceMoniker(std::shared_ptr<DeviceRecord> record) : record_(std::move(record)) {}

    const std::u16string& Text() const { return record_->displayName; }

    STDMETHODIMP GetClassID(CLSID* pClassID) override {
        if (!pClassID) return E_POINTER;
        *pClassID = CLSID_CDeviceMoniker;
        return S_OK;
    }
    STDMETHODIMP Load(IStream* pStm) override {
        if (!pStm) return E_POINTER;
        std::u16string name;
        if (!ReadU16(pStm, &name)) return STG_E_READFAULT;
        auto record = FindDeviceByName(name);
        if (!record) return MK_E_NOOBJECT;
        record_ = std::move(record);
        return S_OK;
    }
    STDMETHODIMP Save(IStream* pStm, BOOL) override {
        if (!pStm) return E_POINTER;
        HRESULT hr = S_OK;
        WriteU16(pStm, record_->displayName, hr);
        return hr;
    }
    STDMETHODIMP BindToObject(IBindCtx*, IMoniker*, REFIID riidResult, void** ppvResult) override {
        if (!ppvResult) return E_POINTER;
        *ppvResult = nullptr;
        mw::ClassCreator create;
        CLSID clsid;
        {
            std::lock_guard lock(record_->mutex);
            create = record_->desc.create;
            clsid = record_->desc.clsid;
        }
        HRESULT hr;
        if (create) {
            try {
                hr = create(nullptr, riidResult, ppvResult);
            } catch (...) {
                hr = E_UNEXPECTED;
            }
        } else {
            hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, riidResult, ppvResult);
        }
        if (FAILED(hr)) *ppvResult = nullptr;
        return hr;
    }
    STDMETHODIMP BindToStorage(IBindCtx*, IMoniker*, REFIID riid, void** ppvObj) override {
        if (!ppvObj) return E_POINTER;
        *ppvObj = nullptr;
        if (!IsEqualIID(riid, IID_IPropertyBag) && !IsEqualIID(riid, IID_IUnknown))
            return E_NOINTERFACE;
        *ppvObj = static_cast<IPropertyBag*>(new DevicePropertyBag(record_));
        return S_OK;
    }
    STDMETHODIMP IsRunning(IBindCtx*, IMoniker*, IMoniker*) override { return S_FALSE; }
    STDMETHODIMP IsSystemMoniker(DWORD* pdwMksys) override {
        if (!pdwMksys) return E_POINTER;
        *pdwMksys = MKSYS_NONE;
        return S_FALSE;
    }

private:
    std::shared_ptr<DeviceRecord> record_;
};

// ---------------------------------------------------------------- item moniker

class ItemMoniker final : public MonikerBase<ItemMoniker> {
    MW_COM_REFCOUNT
public:
    ItemMoniker(std::u16string delimiter, std::u16string item)
        : delimiter_(std::move(delimiter)), item_(std::move(item)), text_(delimiter_ + item_) {}

    const std::u16string& Text() const { return text_; }

    STDMETHODIMP GetClassID(CLSID* pClassID) override {
        if (!pClassID) return E_POINTER;
        *pClassID = CLSID_ItemMoniker;
        return S_OK;
    }
    STDMETHODIMP Load(IStream* pStm) override {
        if (!pStm) return E_POINTER;
        std::u16string d, i;
        if (!ReadU16(pStm, &d) || !ReadU16(pStm, &i)) return STG_E_READFAULT;
        delimiter_ = d;
        item_ = i;
        text_ = d + i;
        return S_OK;
    }
    STDMETHODIMP Save(IStream* pStm, BOOL) override {
        if (!pStm) return E_POINTER;
        HRESULT hr = S_OK;
        WriteU16(pStm, delimiter_, hr);
        WriteU16(pStm, item_, hr);
        return hr;
    }
    // Without a container on the left, an item names an object of the running object table.
    STDMETHODIMP BindToObject(IBindCtx* pbc, IMoniker*, REFIID riidResult,
                              void** ppvResult) override {
        if (!ppvResult) return E_POINTER;
        *ppvResult = nullptr;
        if (!pbc) return E_INVALIDARG;
        ComPtr<IRunningObjectTable> rot;
        HRESULT hr = pbc->GetRunningObjectTable(rot.ReleaseAndGetAddressOf());
        if (FAILED(hr)) return hr;
        ComPtr<IUnknown> obj;
        if (rot->GetObject(this, obj.ReleaseAndGetAddressOf()) != S_OK) return MK_E_NOOBJECT;
        return obj->QueryInterface(riidResult, ppvResult);
    }
    STDMETHODIMP BindToStorage(IBindCtx* pbc, IMoniker* pmkToLeft, REFIID riid,
                               void** ppvObj) override {
        return BindToObject(pbc, pmkToLeft, riid, ppvObj);
    }
    STDMETHODIMP IsRunning(IBindCtx* pbc, IMoniker*, IMoniker* pmkNewlyRunning) override {
        if (pmkNewlyRunning && IsEqual(pmkNewlyRunning) == S_OK) return S_OK;
        ComPtr<IRunningObjectTable> rot;
        if (FAILED(GetRunningObjectTable(0, rot.ReleaseAndGetAddressOf()))) return S_FALSE;
        (void)pbc;
        return rot->IsRunning(this);
    }
    STDMETHODIMP IsSystemMoniker(DWORD* pdwMksys) override {
        if (!pdwMksys) return E_POINTER;
        *pdwMksys = MKSYS_ITEMMONIKER;
        return S_OK;
    }

private:
    std::u16string delimiter_;
    std::u16string item_;
    std::u16string text_;
};

// ---------------------------------------------------------------- enumerators

void CopyMoniker(const ComPtr<IMoniker>& item, IMoniker** out) {
    item.CopyTo(out);
}
void CopyString(const std::u16string& item, LPOLESTR* out) {
    *out = mw::CoTaskMemDup(item);
}
using MonikerEnumerator =
    SnapshotEnumerator<IEnumMoniker, ComPtr<IMoniker>, IMoniker*, CopyMoniker>;
using StringEnumerator = SnapshotEnumerator<IEnumString, std::u16string, LPOLESTR, CopyString>;

// ---------------------------------------------------------------- bind context

class BindCtx final : public IBindCtx {
    MW_COM_REFCOUNT
public:
    BindCtx() { opts_.cbStruct = sizeof(BIND_OPTS); }
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IBindCtx, this}});
    }
    STDMETHODIMP RegisterObjectBound(IUnknown* punk) override {
        if (!punk) return E_INVALIDARG;
        std::lock_guard lock(mutex_);
        bound_.emplace_back(punk);
        return S_OK;
    }
    STDMETHODIMP RevokeObjectBound(IUnknown* punk) override {
        ComPtr<IUnknown> drop;
        std::lock_guard lock(mutex_);
        auto it = std::find_if(bound_.begin(), bound_.end(),
                               [&](const ComPtr<IUnknown>& p) { return p.Get() == punk; });
        if (it == bound_.end()) return MK_E_NOTBOUND;
        drop = std::move(*it);
        bound_.erase(it);
        return S_OK;
    }
    STDMETHODIMP ReleaseBoundObjects() override {
        std::vector<ComPtr<IUnknown>> drop;
        {
            std::lock_guard lock(mutex_);
            drop.swap(bound_);
        }
        return S_OK;
    }
    STDMETHODIMP SetBindOptions(BIND_OPTS* pbindopts) override {
        if (!pbindopts || pbindopts->cbStruct < sizeof(BIND_OPTS)) return E_INVALIDARG;
        std::lock_guard lock(mutex_);
        opts_ = *pbindopts;
        opts_.cbStruct = sizeof(BIND_OPTS);
        return S_OK;
    }
    STDMETHODIMP GetBindOptions(BIND_OPTS* pbindopts) override {
        if (!pbindopts || pbindopts->cbStruct < sizeof(BIND_OPTS)) return E_INVALIDARG;
        std::lock_guard lock(mutex_);
        DWORD cb = pbindopts->cbStruct;
        *pbindopts = opts_;
        pbindopts->cbStruct = cb < sizeof(BIND_OPTS) ? cb : static_cast<DWORD>(sizeof(BIND_OPTS));
        return S_OK;
    }
    STDMETHODIMP GetRunningObjectTable(IRunningObjectTable** pprot) override {
        if (!pprot) return E_INVALIDARG;
        return ::GetRunningObjectTable(0, pprot);
    }
    STDMETHODIMP RegisterObjectParam(LPOLESTR pszKey, IUnknown* punk) override {
        if (!pszKey || !punk) return E_INVALIDARG;
        ComPtr<IUnknown> old;
        std::lock_guard lock(mutex_);
        auto& slot = params_[pszKey];
        old = std::move(slot);
        slot = punk;
        return S_OK;
    }
    STDMETHODIMP GetObjectParam(LPOLESTR pszKey, IUnknown** ppunk) override {
        if (!ppunk) return E_POINTER;
        *ppunk = nullptr;
        if (!pszKey) return E_INVALIDARG;
        std::lock_guard lock(mutex_);
        auto it = params_.find(pszKey);
        if (it == params_.end()) return E_FAIL;
        return it->second.CopyTo(ppunk);
    }
    STDMETHODIMP EnumObjectParam(IEnumString** ppenum) override {
        if (!ppenum) return E_POINTER;
        auto keys = std::make_shared<std::vector<std::u16string>>();
        {
            std::lock_guard lock(mutex_);
            for (const auto& [k, v] : params_)
                keys->push_back(k);
        }
        *ppenum = new StringEnumerator(std::move(keys), 0);
        return S_OK;
    }
    STDMETHODIMP RevokeObjectParam(LPOLESTR pszKey) override {
        if (!pszKey) return E_INVALIDARG;
        ComPtr<IUnknown> old;
        std::lock_guard lock(mutex_);
        auto it = params_.find(pszKey);
        if (it == params_.end()) return E_FAIL;
        old = std::move(it->second);
        params_.erase(it);
        return S_OK;
    }

private:
    std::mutex mutex_;
    std::vector<ComPtr<IUnknown>> bound_;
    std::map<std::u16string, ComPtr<IUnknown>> params_;
    BIND_OPTS opts_{};
};

}  // namespace

// ---------------------------------------------------------------- registry API

std::u16string mw::DeviceDisplayName(const DeviceDescription& d) {
    if (d.kind == u"dmo") return u"@device:dmo:" + GuidText(d.clsid) + GuidText(d.category);
    return u"@device:" + d.kind + u":" + GuidText(d.category) + u"\\" + d.instance;
}

DWORD mw::RegisterDevice(const DeviceDescription& device) {
    auto record = std::make_shared<DeviceRecord>();
    record->desc = device;
    record->displayName = DeviceDisplayName(device);
    DeviceRegistry& r = Devices();
    std::unique_lock lock(r.mutex);
    record->cookie = r.nextCookie++;
    r.devices.push_back(record);
    return record->cookie;
}

void mw::RevokeDevice(DWORD cookie) {
    std::shared_ptr<DeviceRecord> drop;
    DeviceRegistry& r = Devices();
    std::unique_lock lock(r.mutex);
    auto it = std::find_if(r.devices.begin(), r.devices.end(),
                           [&](const auto& d) { return d->cookie == cookie; });
    if (it == r.devices.end()) return;
    drop = *it;
    r.devices.erase(it);
}

HRESULT mw::EnumDeviceMonikers(REFGUID category, std::vector<ComPtr<IMoniker>>* monikers) {
    if (!monikers) return E_POINTER;
    monikers->clear();
    std::vector<std::shared_ptr<DeviceRecord>> records;
    {
        DeviceRegistry& r = Devices();
        std::shared_lock lock(r.mutex);
        for (const auto& d : r.devices)
            if (IsEqualGUID(d->desc.category, category)) records.push_back(d);
    }
    for (auto& rec : records)
        monikers->push_back(MwAdopt<IMoniker>(new DeviceMoniker(rec)));
    return monikers->empty() ? S_FALSE : S_OK;
}

std::vector<GUID> mw::DeviceCategories() {
    std::vector<GUID> out;
    DeviceRegistry& r = Devices();
    std::shared_lock lock(r.mutex);
    for (const auto& d : r.devices)
        if (std::none_of(out.begin(), out.end(),
                         [&](const GUID& g) { return IsEqualGUID(g, d->desc.category); }))
            out.push_back(d->desc.category);
    return out;
}

HRESULT mw::CreateMonikerEnumerator(std::vector<ComPtr<IMoniker>> monikers, IEnumMoniker** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = new MonikerEnumerator(
        std::make_shared<const std::vector<ComPtr<IMoniker>>>(std::move(monikers)), 0);
    return S_OK;
}

// ---------------------------------------------------------------- platform functions

HRESULT WINAPI CreateBindCtx(DWORD reserved, LPBC* ppbc) {
    if (!ppbc) return E_INVALIDARG;
    *ppbc = nullptr;
    if (reserved != 0) return E_INVALIDARG;
    *ppbc = new BindCtx;
    return S_OK;
}

HRESULT WINAPI CreateItemMoniker(LPCOLESTR lpszDelim, LPCOLESTR lpszItem, LPMONIKER* ppmk) {
    if (!ppmk) return E_INVALIDARG;
    *ppmk = nullptr;
    if (!lpszItem) return E_INVALIDARG;
    *ppmk = new ItemMoniker(lpszDelim ? lpszDelim : u"", lpszItem);
    return S_OK;
}

HRESULT WINAPI MkParseDisplayName(LPBC pbc, LPCOLESTR szUserName, ULONG* pchEaten,
                                  LPMONIKER* ppmk) {
    if (ppmk) *ppmk = nullptr;
    if (pchEaten) *pchEaten = 0;
    if (!pbc || !szUserName || !pchEaten || !ppmk) return E_INVALIDARG;
    const std::u16string name(szUserName);
    constexpr std::u16string_view kPrefix = u"@device:";
    if (name.size() <= kPrefix.size() ||
        !mw::U16EqualNoCase(std::u16string_view(name).substr(0, kPrefix.size()), kPrefix))
        return MK_E_SYNTAX;
    const size_t colon = name.find(u':', kPrefix.size());
    if (colon == std::u16string::npos || colon == kPrefix.size() || colon + 1 >= name.size())
        return MK_E_SYNTAX;
    const std::u16string kind = name.substr(kPrefix.size(), colon - kPrefix.size());
    const std::u16string rest = name.substr(colon + 1);
    std::shared_ptr<DeviceRecord> record;
    if (kind == u"*") {
        GUID category;
        if (rest.size() != 38 || !mw::GuidFromString(mw::Utf16ToUtf8(rest), category))
            return MK_E_SYNTAX;
        record = FindDefaultDevice(category);
    } else {
        record = FindDeviceByName(name);
    }
    if (!record) return MK_E_NOOBJECT;
    *ppmk = new DeviceMoniker(std::move(record));
    *pchEaten = static_cast<ULONG>(name.size());
    return S_OK;
}

HRESULT WINAPI BindMoniker(LPMONIKER pmk, DWORD grfOpt, REFIID iidResult, LPVOID* ppvResult) {
    if (!ppvResult) return E_INVALIDARG;
    *ppvResult = nullptr;
    if (!pmk || grfOpt != 0) return E_INVALIDARG;
    ComPtr<IBindCtx> ctx;
    HRESULT hr = CreateBindCtx(0, ctx.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    return pmk->BindToObject(ctx.Get(), nullptr, iidResult, ppvResult);
}
