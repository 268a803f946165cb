// Apartments, the class registry, task memory and GUID text.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <vector>

#include "mwcom.h"
#include "mwstring.h"

namespace {

// Per-thread apartment state: how many successful CoInitialize calls are open and which model
// the first one chose.
struct Apartment {
    int count = 0;
    DWORD model = 0;
};
thread_local Apartment tApartment;

struct ClassEntry {
    DWORD cookie;
    CLSID clsid;
    mw::ClassCreator create;
    IClassFactory* factory;  // CoRegisterClassObject entries hold a reference
    DWORD context;
};

struct Registry {
    std::mutex mutex;
    std::vector<ClassEntry> entries;  // newest last
    DWORD nextCookie = 1;
};

Registry& TheRegistry() {
    static Registry* r = new Registry;  // outlives static destructors of other units
    return *r;
}

bool FindClass(REFCLSID clsid, DWORD context, mw::ClassCreator* create, IClassFactory** factory) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    for (auto it = r.entries.rbegin(); it != r.entries.rend(); ++it) {
        if (!IsEqualCLSID(it->clsid, clsid) || !(it->context & context)) continue;
        if (it->factory) {
            *factory = it->factory;
            it->factory->AddRef();
        } else {
            *create = it->create;
        }
        return true;
    }
    return false;
}

}  // namespace

HRESULT WINAPI CoInitializeEx(LPVOID, DWORD dwCoInit) {
    const DWORD model = dwCoInit & COINIT_APARTMENTTHREADED;
    Apartment& a = tApartment;
    if (a.count > 0) {
        if (a.model != model) return RPC_E_CHANGED_MODE;
        ++a.count;
        return S_FALSE;
    }
    a.count = 1;
    a.model = model;
    return S_OK;
}

HRESULT WINAPI CoInitialize(LPVOID pvReserved) {
    return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED);
}

void WINAPI CoUninitialize() {
    Apartment& a = tApartment;
    if (a.count > 0) --a.count;
}

int mw::CoInitializeCount() {
    return tApartment.count;
}

DWORD mw::RegisterComClass(REFCLSID clsid, ClassCreator create) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    DWORD cookie = r.nextCookie++;
    r.entries.push_back(
        {cookie, clsid, std::move(create), nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER});
    return cookie;
}

void mw::RevokeComClass(DWORD cookie) {
    CoRevokeClassObject(cookie);
}

bool mw::IsComClassRegistered(REFCLSID clsid) {
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    for (const auto& e : r.entries)
        if (IsEqualCLSID(e.clsid, clsid)) return true;
    return false;
}

HRESULT WINAPI CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext, DWORD,
                                     LPDWORD lpdwRegister) {
    if (!pUnk || !lpdwRegister) return E_INVALIDARG;
    IClassFactory* factory = nullptr;
    HRESULT hr = pUnk->QueryInterface(IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr)) return hr;
    Registry& r = TheRegistry();
    std::lock_guard lock(r.mutex);
    DWORD cookie = r.nextCookie++;
    r.entries.push_back({cookie, rclsid, nullptr, factory,
                         dwClsContext ? dwClsContext : static_cast<DWORD>(CLSCTX_INPROC_SERVER)});
    *lpdwRegister = cookie;
    return S_OK;
}

HRESULT WINAPI CoRevokeClassObject(DWORD dwRegister) {
    IClassFactory* factory = nullptr;
    {
        Registry& r = TheRegistry();
        std::lock_guard lock(r.mutex);
        auto it = std::find_if(r.entries.begin(), r.entries.end(),
                               [&](const ClassEntry& e) { return e.cookie == dwRegister; });
        if (it == r.entries.end()) return E_INVALIDARG;
        factory = it->factory;
        r.entries.erase(it);
    }
    if (factory) factory->Release();
    return S_OK;
}

HRESULT WINAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID, REFIID riid,
                                LPVOID* ppv) {
    if (!ppv) return E_INVALIDARG;
    *ppv = nullptr;
    mw::ClassCreator create;
    IClassFactory* factory = nullptr;
    if (!FindClass(rclsid, dwClsContext, &create, &factory)) return REGDB_E_CLASSNOTREG;
    if (factory) {
        HRESULT hr = factory->QueryInterface(riid, ppv);
        factory->Release();
        return hr;
    }
    return CLASS_E_CLASSNOTAVAILABLE;  // registered by creator function only: no class object
}

HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext,
                                REFIID riid, LPVOID* ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (tApartment.count == 0) return CO_E_NOTINITIALIZED;
    // An aggregating caller must ask for IUnknown.
    if (pUnkOuter && !IsEqualIID(riid, IID_IUnknown)) return E_INVALIDARG;
    mw::ClassCreator create;
    IClassFactory* factory = nullptr;
    if (!(dwClsContext & CLSCTX_INPROC) ||
        !FindClass(rclsid, dwClsContext & CLSCTX_INPROC, &create, &factory))
        return REGDB_E_CLASSNOTREG;
    HRESULT hr;
    if (factory) {
        hr = factory->CreateInstance(pUnkOuter, riid, ppv);
        factory->Release();
    } else {
        try {
            hr = create(pUnkOuter, riid, ppv);
        } catch (...) {
            hr = E_UNEXPECTED;  // nothing is thrown across the interface
        }
    }
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

// Task memory is the C heap: any thread may free what any other allocated.
LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb) {
    return std::malloc(cb ? cb : 1);
}
LPVOID WINAPI CoTaskMemRealloc(LPVOID pv, SIZE_T cb) {
    // A size of zero frees the block, as the platform's allocator does.
    if (cb == 0) {
        std::free(pv);
        return nullptr;
    }
    return std::realloc(pv, cb);
}
void WINAPI CoTaskMemFree(LPVOID pv) {
    std::free(pv);
}

LPOLESTR mw::CoTaskMemDup(std::u16string_view text) {
    auto* p = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(OLECHAR)));
    if (!p) return nullptr;
    if (!text.empty()) std::memcpy(p, text.data(), text.size() * sizeof(OLECHAR));
    p[text.size()] = 0;
    return p;
}

HRESULT WINAPI CoCreateGuid(GUID* pguid) {
    if (!pguid) return E_INVALIDARG;
    static std::mutex m;
    static std::random_device rd;
    static std::mt19937_64 gen(rd());
    uint64_t a, b;
    {
        std::lock_guard lock(m);
        a = gen();
        b = gen();
    }
    std::memcpy(pguid, &a, 8);
    std::memcpy(reinterpret_cast<char*>(pguid) + 8, &b, 8);
    pguid->Data3 = static_cast<uint16_t>((pguid->Data3 & 0x0FFF) | 0x4000);   // version 4
    pguid->Data4[0] = static_cast<uint8_t>((pguid->Data4[0] & 0x3F) | 0x80);  // RFC 4122 variant
    return S_OK;
}

int WINAPI StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax) {
    std::string s = mw::GuidToString(rguid);
    if (!lpsz || cchMax < static_cast<int>(s.size()) + 1) return 0;
    for (size_t i = 0; i < s.size(); ++i)
        lpsz[i] = static_cast<OLECHAR>(s[i]);
    lpsz[s.size()] = 0;
    return static_cast<int>(s.size()) + 1;
}

HRESULT WINAPI StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz) {
    if (!lplpsz) return E_INVALIDARG;
    *lplpsz = mw::CoTaskMemDup(mw::Utf8ToUtf16(mw::GuidToString(rclsid)));
    return *lplpsz ? S_OK : E_OUTOFMEMORY;
}

HRESULT WINAPI StringFromIID(REFIID rclsid, LPOLESTR* lplpsz) {
    return StringFromCLSID(rclsid, lplpsz);
}

namespace {
// The platform reads only the braced form for class and interface ids.
bool ParseBracedGuid(LPCOLESTR s, GUID* out) {
    if (!s) return false;
    std::string text = mw::Utf16ToUtf8(s);
    if (text.size() != 38 || text.front() != '{' || text.back() != '}') return false;
    return mw::GuidFromString(text, *out);
}
}  // namespace

HRESULT WINAPI CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid) {
    if (!pclsid) return E_INVALIDARG;
    if (!lpsz || !*lpsz) {
        *pclsid = GUID_NULL;
        return S_OK;
    }
    if (!ParseBracedGuid(lpsz, pclsid)) {
        *pclsid = GUID_NULL;
        return CO_E_CLASSSTRING;
    }
    return S_OK;
}

HRESULT WINAPI IIDFromString(LPCOLESTR lpsz, LPIID lpiid) {
    if (!lpiid) return E_INVALIDARG;
    if (!lpsz) {
        *lpiid = GUID_NULL;
        return S_OK;
    }
    return ParseBracedGuid(lpsz, lpiid) ? S_OK : E_INVALIDARG;
}
