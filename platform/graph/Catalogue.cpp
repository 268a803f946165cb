// The system device enumerator and the filter mapper.
#include "platform/graph/Catalogue.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>

#include "mwdevices.h"
#include "mwstring.h"
#include "platform/com/ComObject.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::graph {
namespace {

struct MapperEntry {
    RegisteredFilter filter;
    GUID category;
    std::u16string instance;
    DWORD cookie;  // of the device registry
};

struct Mapper {
    std::mutex mutex;
    std::vector<MapperEntry> entries;
    std::map<GUID, std::pair<DWORD, std::u16string>, bool (*)(const GUID&, const GUID&)> categories{
        [](const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof a) < 0; }};
    CLSID fileSource = GUID_NULL;
};

Mapper& TheMapper() {
    static Mapper* m = new Mapper;
    return *m;
}

// The names the categories of the platform go by.
std::u16string CategoryName(const GUID& category) {
    struct Known {
        const GUID* id;
        const char16_t* name;
    };
    static const Known known[] = {
        {&CLSID_LegacyAmFilterCategory, u"DirectShow Filters"},
        {&CLSID_AudioRendererCategory, u"Audio Renderers"},
        {&CLSID_AudioInputDeviceCategory, u"Audio Capture Sources"},
        {&CLSID_AudioCompressorCategory, u"Audio Compressors"},
    };
    for (const Known& k : known)
        if (IsEqualGUID(*k.id, category)) return k.name;
    Mapper& m = TheMapper();
    std::lock_guard lock(m.mutex);
    auto it = m.categories.find(category);
    if (it != m.categories.end() && !it->second.second.empty()) return it->second.second;
    return Utf8ToUtf16(GuidToString(category));
}

RegisteredFilter::PinTypes ReadPin(const REGFILTERPINS& p) {
    RegisteredFilter::PinTypes pin;
    pin.output = p.bOutput;
    pin.rendered = p.bRendered;
    for (UINT i = 0; i < p.nMediaTypes; ++i)
        pin.types.emplace_back(
            p.lpMediaType[i].clsMajorType ? *p.lpMediaType[i].clsMajorType : GUID_NULL,
            p.lpMediaType[i].clsMinorType ? *p.lpMediaType[i].clsMinorType : GUID_NULL);
    return pin;
}

RegisteredFilter::PinTypes ReadPin(const REGFILTERPINS2& p) {
    RegisteredFilter::PinTypes pin;
    pin.output = (p.dwFlags & REG_PINFLAG_B_OUTPUT) != 0;
    pin.rendered = (p.dwFlags & REG_PINFLAG_B_RENDERER) != 0;
    for (UINT i = 0; i < p.nMediaTypes; ++i)
        pin.types.emplace_back(
            p.lpMediaType[i].clsMajorType ? *p.lpMediaType[i].clsMajorType : GUID_NULL,
            p.lpMediaType[i].clsMinorType ? *p.lpMediaType[i].clsMinorType : GUID_NULL);
    return pin;
}

bool Matches(const GUID& registered, const GUID& asked) {
    return IsEqualGUID(registered, GUID_NULL) || IsEqualGUID(asked, GUID_NULL) ||
           IsEqualGUID(registered, asked);
}

// Whether one pin of the given direction takes one of the asked (major, minor) pairs.
bool PinTakes(const RegisteredFilter& f, bool output, DWORD count, const GUID* types) {
    for (const auto& pin : f.pins) {
        if (pin.output != output) continue;
        if (count == 0) return true;
        for (DWORD i = 0; i < count; ++i)
            for (const auto& [major, minor] : pin.types)
                if (Matches(major, types[2 * i]) && Matches(minor, types[2 * i + 1])) return true;
    }
    return false;
}

class FilterMapper final : public IFilterMapper3 {
    MW_COM_REFCOUNT
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return mw::com::QueryTable(
            iid, object,
            {{&IID_IUnknown, this}, {&IID_IFilterMapper2, this}, {&IID_IFilterMapper3, this}});
    }
    STDMETHODIMP CreateCategory(REFCLSID category, DWORD merit, LPCWSTR description) override {
        Mapper& m = TheMapper();
        std::lock_guard lock(m.mutex);
        m.categories[category] = {merit, description ? description : u""};
        return S_OK;
    }
    STDMETHODIMP UnregisterFilter(const CLSID* category, LPCOLESTR instance,
                                  REFCLSID clsid) override {
        const GUID cat = category ? *category : CLSID_LegacyAmFilterCategory;
        Mapper& m = TheMapper();
        std::vector<DWORD> cookies;
        {
            std::lock_guard lock(m.mutex);
            auto it = std::remove_if(m.entries.begin(), m.entries.end(), [&](const MapperEntry& e) {
                const bool hit = IsEqualGUID(e.category, cat) &&
                                 IsEqualGUID(e.filter.clsid, clsid) &&
                                 (!instance || e.instance == instance);
                if (hit) cookies.push_back(e.cookie);
                return hit;
            });
            m.entries.erase(it, m.entries.end());
        }
        for (DWORD c : cookies)
            RevokeDevice(c);
        return cookies.empty() ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : S_OK;
    }
    STDMETHODIMP RegisterFilter(REFCLSID clsid, LPCWSTR name, IMoniker** moniker,
                                const CLSID* category, LPCOLESTR instance,
                                const REGFILTER2* data) override {
        if (!data || !name) return E_POINTER;
        const HRESULT hr = RegisterFilterInCatalogue(clsid, name, category, instance, *data);
        if (moniker) {
            *moniker = nullptr;
            std::vector<ComPtr<IMoniker>> all;
            EnumDeviceMonikers(category ? *category : CLSID_LegacyAmFilterCategory, &all);
            if (!all.empty()) *moniker = all.back().Detach();
        }
        return hr;
    }
    STDMETHODIMP EnumMatchingFilters(IEnumMoniker** out, DWORD, BOOL exact, DWORD merit,
                                     BOOL inputNeeded, DWORD inputCount, const GUID* inputTypes,
                                     const REGPINMEDIUM*, const CLSID*, BOOL render,
                                     BOOL outputNeeded, DWORD outputCount, const GUID* outputTypes,
                                     const REGPINMEDIUM*, const CLSID*) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if ((inputCount && !inputTypes) || (outputCount && !outputTypes)) return E_POINTER;
        (void)exact;
        std::vector<std::pair<DWORD, std::u16string>> chosen;  // merit, instance
        {
            Mapper& m = TheMapper();
            std::lock_guard lock(m.mutex);
            for (const MapperEntry& e : m.entries) {
                if (!IsEqualGUID(e.category, CLSID_LegacyAmFilterCategory)) continue;
                const RegisteredFilter& f = e.filter;
                if (f.merit < merit) continue;
                if ((inputNeeded || inputCount) && !PinTakes(f, false, inputCount, inputTypes))
                    continue;
                if ((outputNeeded || outputCount) && !PinTakes(f, true, outputCount, outputTypes))
                    continue;
                if (render && std::none_of(f.pins.begin(), f.pins.end(),
                                           [](const auto& p) { return !p.output && p.rendered; }))
                    continue;
                chosen.emplace_back(f.merit, e.instance);
            }
        }
        std::stable_sort(chosen.begin(), chosen.end(),
                         [](const auto& a, const auto& b) { return a.first > b.first; });
        std::vector<ComPtr<IMoniker>> all, result;
        EnumDeviceMonikers(CLSID_LegacyAmFilterCategory, &all);
        for (const auto& [merit_, instance] : chosen) {
            const std::u16string wanted = u"\\" + instance;
            for (auto& mk : all) {
                LPOLESTR text = nullptr;
                if (FAILED(mk->GetDisplayName(nullptr, nullptr, &text)) || !text) continue;
                const std::u16string name(text);
                CoTaskMemFree(text);
                if (name.size() >= wanted.size() &&
                    name.compare(name.size() - wanted.size(), wanted.size(), wanted) == 0) {
                    result.push_back(mk);
                    break;
                }
            }
        }
        return CreateMonikerEnumerator(std::move(result), out);
    }
    STDMETHODIMP GetICreateDevEnum(ICreateDevEnum** out) override;
};

// The categories with entries as monikers of CLSID_ActiveMovieCategories.
void RefreshCategoryList() {
    static std::mutex mutex;
    static std::map<std::u16string, DWORD> listed;
    std::lock_guard lock(mutex);
    for (const GUID& category : DeviceCategories()) {
        if (IsEqualGUID(category, CLSID_ActiveMovieCategories)) continue;
        const std::u16string text = Utf8ToUtf16(GuidToString(category));
        if (listed.count(text)) continue;
        DeviceDescription d;
        d.category = CLSID_ActiveMovieCategories;
        d.instance = text;
        d.friendlyName = CategoryName(category);
        d.clsid = category;
        listed[text] = RegisterDevice(d);
    }
}

class DeviceEnumerator final : public ICreateDevEnum {
    MW_COM_REFCOUNT
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return mw::com::QueryTable(iid, object,
                                   {{&IID_IUnknown, this}, {&IID_ICreateDevEnum, this}});
    }
    // S_FALSE and no enumerator for a category without entries, as the platform answers.
    STDMETHODIMP CreateClassEnumerator(REFCLSID category, IEnumMoniker** out,
                                       DWORD flags) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (IsEqualGUID(category, CLSID_ActiveMovieCategories)) RefreshCategoryList();
        std::vector<ComPtr<IMoniker>> monikers;
        EnumDeviceMonikers(category, &monikers);
        if (flags & CDEF_MERIT_ABOVE_DO_NOT_USE) {
            const auto filters = RegisteredFilters(0);
            std::erase_if(monikers, [&](const ComPtr<IMoniker>& mk) {
                CLSID clsid{};
                mk->GetClassID(&clsid);
                for (const auto& f : filters)
                    if (IsEqualGUID(f.clsid, clsid)) return f.merit <= MERIT_DO_NOT_USE;
                return false;
            });
        }
        if (monikers.empty()) return S_FALSE;
        return CreateMonikerEnumerator(std::move(monikers), out);
    }
};

STDMETHODIMP FilterMapper::GetICreateDevEnum(ICreateDevEnum** out) {
    if (!out) return E_POINTER;
    *out = new DeviceEnumerator;
    return S_OK;
}

template <class T>
HRESULT Create(IUnknown* outer, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* o = new (std::nothrow) T;
    if (!o) return E_OUTOFMEMORY;
    const HRESULT hr = o->QueryInterface(iid, object);
    o->Release();
    return hr;
}

}  // namespace

HRESULT RegisterFilterInCatalogue(REFCLSID clsid, LPCWSTR name, const CLSID* category,
                                  LPCOLESTR instance, const REGFILTER2& data) {
    if (!name) return E_POINTER;
    if (data.dwVersion != 1 && data.dwVersion != 2) return E_INVALIDARG;
    MapperEntry e;
    e.filter.clsid = clsid;
    e.filter.name = name;
    e.filter.merit = data.dwMerit;
    if (data.dwVersion == 1) {
        for (ULONG i = 0; i < data.cPins; ++i)
            e.filter.pins.push_back(ReadPin(data.rgPins[i]));
    } else {
        for (ULONG i = 0; i < data.cPins2; ++i)
            e.filter.pins.push_back(ReadPin(data.rgPins2[i]));
    }
    e.category = category ? *category : CLSID_LegacyAmFilterCategory;
    e.instance = instance ? std::u16string(instance) : Utf8ToUtf16(GuidToString(clsid));
    DeviceDescription d;
    d.category = e.category;
    d.instance = e.instance;
    d.friendlyName = name;
    d.clsid = clsid;
    d.properties.emplace_back(u"Merit", static_cast<int32_t>(data.dwMerit));
    Mapper& m = TheMapper();
    DWORD old = 0;
    {
        std::lock_guard lock(m.mutex);
        auto it = std::find_if(m.entries.begin(), m.entries.end(), [&](const MapperEntry& x) {
            return IsEqualGUID(x.category, e.category) && x.instance == e.instance;
        });
        e.cookie = RegisterDevice(d);
        if (it != m.entries.end()) {
            old = it->cookie;
            *it = e;
        } else {
            m.entries.push_back(e);
        }
    }
    if (old) RevokeDevice(old);
    return S_OK;
}

std::vector<RegisteredFilter> RegisteredFilters(DWORD minimumMerit) {
    std::vector<RegisteredFilter> filters;
    {
        Mapper& m = TheMapper();
        std::lock_guard lock(m.mutex);
        for (const MapperEntry& e : m.entries)
            if (IsEqualGUID(e.category, CLSID_LegacyAmFilterCategory) &&
                e.filter.merit >= minimumMerit)
                filters.push_back(e.filter);
    }
    std::stable_sort(filters.begin(), filters.end(),
                     [](const auto& a, const auto& b) { return a.merit > b.merit; });
    return filters;
}

bool TakesType(const RegisteredFilter& filter, const GUID& major, const GUID& minor) {
    const GUID pair[2] = {major, minor};
    return PinTakes(filter, false, 1, pair);
}

void SetFileSourceClass(REFCLSID clsid) {
    Mapper& m = TheMapper();
    std::lock_guard lock(m.mutex);
    m.fileSource = clsid;
}

CLSID FileSourceClass() {
    Mapper& m = TheMapper();
    std::lock_guard lock(m.mutex);
    return m.fileSource;
}

void RegisterCatalogue() {
    static const bool done = [] {
        RegisterComClass(CLSID_SystemDeviceEnum, &Create<DeviceEnumerator>);
        RegisterComClass(CLSID_FilterMapper2, &Create<FilterMapper>);
        return true;
    }();
    (void)done;
}

}  // namespace mw::graph
