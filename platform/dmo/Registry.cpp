// The registry of media objects: one process-wide list of classes with their category, name and
// stream types, kept in registration order, which is the order DMOEnum lists them in. The
// built-in effects are registered at start-up of any program that links this unit.
#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "dmoreg.h"
#include "mwcom.h"
#include "mwstring.h"
#include "platform/com/ComObject.h"
#include "platform/dmo/Effects.h"

namespace {

struct DmoEntry {
    CLSID ClassId;
    GUID Category;
    std::u16string Name;
    DWORD Flags;
    std::vector<DMO_PARTIAL_MEDIATYPE> InTypes;
    std::vector<DMO_PARTIAL_MEDIATYPE> OutTypes;
};

struct DmoRegistry {
    std::mutex Mutex;
    std::vector<DmoEntry> Entries;
};

DmoRegistry& TheRegistry() {
    static DmoRegistry* r = new DmoRegistry;  // outlives static destructors of other units
    return *r;
}

// A wanted partial type matches a registered one; GUID_NULL in the wanted type matches any.
bool Matches(const DMO_PARTIAL_MEDIATYPE& want, const DMO_PARTIAL_MEDIATYPE& have) {
    return (IsEqualGUID(want.type, GUID_NULL) || IsEqualGUID(want.type, have.type)) &&
           (IsEqualGUID(want.subtype, GUID_NULL) || IsEqualGUID(want.subtype, have.subtype));
}

bool AnyMatches(DWORD count, const DMO_PARTIAL_MEDIATYPE* wanted,
                const std::vector<DMO_PARTIAL_MEDIATYPE>& have) {
    if (count == 0) return true;
    for (DWORD i = 0; i < count; ++i)
        for (const DMO_PARTIAL_MEDIATYPE& h : have)
            if (Matches(wanted[i], h)) return true;
    return false;
}

struct Found {
    CLSID ClassId;
    std::u16string Name;
};

// IEnumDMO over a snapshot of the matching entries; clones share the snapshot.
class DmoEnumerator final : public IEnumDMO {
    MW_COM_REFCOUNT
public:
    using Items = std::shared_ptr<const std::vector<Found>>;
    DmoEnumerator(Items items, size_t pos) : FItems(std::move(items)), FPos(pos) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return mw::com::QueryTable(riid, ppv, {{&IID_IEnumDMO, this}});
    }
    STDMETHODIMP Next(DWORD cItemsToFetch, CLSID* pCLSID, WCHAR** Names,
                      DWORD* pcItemsFetched) override {
        if (!pCLSID || (cItemsToFetch > 1 && !pcItemsFetched)) return E_POINTER;
        std::lock_guard lock(FMutex);
        DWORD n = 0;
        while (n < cItemsToFetch && FPos < FItems->size()) {
            const Found& f = (*FItems)[FPos];
            if (Names) {
                Names[n] = mw::CoTaskMemDup(f.Name);
                if (!Names[n]) {
                    for (DWORD k = 0; k < n; ++k)
                        CoTaskMemFree(Names[k]);
                    return E_OUTOFMEMORY;
                }
            }
            pCLSID[n] = f.ClassId;
            ++n;
            ++FPos;
        }
        if (pcItemsFetched) *pcItemsFetched = n;
        return n == cItemsToFetch ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(DWORD cItemsToSkip) override {
        std::lock_guard lock(FMutex);
        const size_t left = FItems->size() - FPos;
        FPos += std::min<size_t>(cItemsToSkip, left);
        return cItemsToSkip <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override {
        std::lock_guard lock(FMutex);
        FPos = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IEnumDMO** ppEnum) override {
        if (!ppEnum) return E_POINTER;
        std::lock_guard lock(FMutex);
        *ppEnum = new DmoEnumerator(FItems, FPos);
        return S_OK;
    }

private:
    std::mutex FMutex;
    Items FItems;
    size_t FPos;
};

}  // namespace

HRESULT WINAPI DMORegister(LPCWSTR szName, REFCLSID clsidDMO, REFGUID guidCategory, DWORD dwFlags,
                           DWORD cInTypes, const DMO_PARTIAL_MEDIATYPE* pInTypes, DWORD cOutTypes,
                           const DMO_PARTIAL_MEDIATYPE* pOutTypes) {
    if (!szName || (cInTypes && !pInTypes) || (cOutTypes && !pOutTypes)) return E_POINTER;
    DmoEntry e{clsidDMO,
               guidCategory,
               std::u16string(szName, mw::U16Len(szName)),
               dwFlags,
               {pInTypes, pInTypes + cInTypes},
               {pOutTypes, pOutTypes + cOutTypes}};
    DmoRegistry& r = TheRegistry();
    std::lock_guard lock(r.Mutex);
    // A class registered again in its category takes the new description, in its old place.
    for (DmoEntry& old : r.Entries)
        if (IsEqualCLSID(old.ClassId, clsidDMO) && IsEqualGUID(old.Category, guidCategory)) {
            old = std::move(e);
            return S_OK;
        }
    r.Entries.push_back(std::move(e));
    return S_OK;
}

HRESULT WINAPI DMOUnregister(REFCLSID clsidDMO, REFGUID guidCategory) {
    DmoRegistry& r = TheRegistry();
    std::lock_guard lock(r.Mutex);
    const size_t before = r.Entries.size();
    std::erase_if(r.Entries, [&](const DmoEntry& e) {
        return IsEqualCLSID(e.ClassId, clsidDMO) &&
               (IsEqualGUID(guidCategory, GUID_NULL) || IsEqualGUID(e.Category, guidCategory));
    });
    return r.Entries.size() < before ? S_OK : S_FALSE;
}

HRESULT WINAPI DMOEnum(REFGUID guidCategory, DWORD dwFlags, DWORD cInTypes,
                       const DMO_PARTIAL_MEDIATYPE* pInTypes, DWORD cOutTypes,
                       const DMO_PARTIAL_MEDIATYPE* pOutTypes, IEnumDMO** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    if ((cInTypes && !pInTypes) || (cOutTypes && !pOutTypes)) return E_POINTER;
    auto items = std::make_shared<std::vector<Found>>();
    {
        DmoRegistry& r = TheRegistry();
        std::lock_guard lock(r.Mutex);
        for (const DmoEntry& e : r.Entries) {
            if (!IsEqualGUID(guidCategory, GUID_NULL) && !IsEqualGUID(e.Category, guidCategory))
                continue;
            if ((e.Flags & DMO_REGISTERF_IS_KEYED) && !(dwFlags & DMO_ENUMF_INCLUDE_KEYED))
                continue;
            if (!AnyMatches(cInTypes, pInTypes, e.InTypes) ||
                !AnyMatches(cOutTypes, pOutTypes, e.OutTypes))
                continue;
            // A class listed in several categories appears once when all are asked for.
            if (std::any_of(items->begin(), items->end(),
                            [&](const Found& f) { return IsEqualCLSID(f.ClassId, e.ClassId); }))
                continue;
            items->push_back({e.ClassId, e.Name});
        }
    }
    *ppEnum = new DmoEnumerator(std::move(items), 0);
    return S_OK;
}

HRESULT WINAPI DMOGetTypes(REFCLSID clsidDMO, ULONG ulInputTypesRequested,
                           ULONG* pulInputTypesSupplied, DMO_PARTIAL_MEDIATYPE* pInputTypes,
                           ULONG ulOutputTypesRequested, ULONG* pulOutputTypesSupplied,
                           DMO_PARTIAL_MEDIATYPE* pOutputTypes) {
    if (!pulInputTypesSupplied || !pulOutputTypesSupplied) return E_POINTER;
    if ((ulInputTypesRequested && !pInputTypes) || (ulOutputTypesRequested && !pOutputTypes))
        return E_POINTER;
    DmoRegistry& r = TheRegistry();
    std::lock_guard lock(r.Mutex);
    for (const DmoEntry& e : r.Entries) {
        if (!IsEqualCLSID(e.ClassId, clsidDMO)) continue;
        const ULONG nIn = std::min<ULONG>(ulInputTypesRequested, ULONG(e.InTypes.size()));
        const ULONG nOut = std::min<ULONG>(ulOutputTypesRequested, ULONG(e.OutTypes.size()));
        std::copy_n(e.InTypes.begin(), nIn, pInputTypes);
        std::copy_n(e.OutTypes.begin(), nOut, pOutputTypes);
        *pulInputTypesSupplied = nIn;
        *pulOutputTypesSupplied = nOut;
        // S_FALSE: there were more types than the caller had room for.
        return nIn < e.InTypes.size() || nOut < e.OutTypes.size() ? S_FALSE : S_OK;
    }
    *pulInputTypesSupplied = *pulOutputTypesSupplied = 0;
    return REGDB_E_CLASSNOTREG;
}

HRESULT WINAPI DMOGetName(REFCLSID clsidDMO, WCHAR szName[80]) {
    if (!szName) return E_POINTER;
    DmoRegistry& r = TheRegistry();
    std::lock_guard lock(r.Mutex);
    for (const DmoEntry& e : r.Entries) {
        if (!IsEqualCLSID(e.ClassId, clsidDMO)) continue;
        const size_t n = std::min<size_t>(e.Name.size(), 79);
        std::copy_n(e.Name.data(), n, szName);
        szName[n] = 0;
        return S_OK;
    }
    return REGDB_E_CLASSNOTREG;
}

namespace {
// Linking the registry in is enough for the built-in effects to be listed and creatable.
[[maybe_unused]] const HRESULT kBuiltInsRegistered = mw::dmo::RegisterBuiltInEffects();
}  // namespace
