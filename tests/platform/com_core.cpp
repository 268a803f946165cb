// Apartments, the class registry, task memory, GUID text and OLE automation types.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "comptr.h"
#include "mwcom.h"
#include "oleauto.h"
#include "strmif.h"
#include "uuids.h"

namespace {

// {6D77C0A1-1111-4A6B-9C00-000000000001}: a class of this test only.
constexpr CLSID kTestClass = {0x6d77c0a1, 0x1111, 0x4a6b, {0x9c, 0, 0, 0, 0, 0, 0, 1}};

class Counted final : public IPersist {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IPersist)) {
            *ppv = static_cast<IPersist*>(this);
            AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override {
        ULONG n = --refs;
        if (n == 0) delete this;
        return n;
    }
    STDMETHODIMP GetClassID(CLSID* id) override {
        *id = kTestClass;
        return S_OK;
    }
    std::atomic<ULONG> refs{1};
};

struct ComScope {
    ComScope() { EXPECT_TRUE(SUCCEEDED(CoInitialize(nullptr))); }
    ~ComScope() { CoUninitialize(); }
};

TEST(ComApartment, CountsPerThreadAndBalances) {
    EXPECT_EQ(mw::CoInitializeCount(), 0);
    EXPECT_EQ(CoInitialize(nullptr), S_OK);
    EXPECT_EQ(CoInitialize(nullptr), S_FALSE);
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
    EXPECT_EQ(mw::CoInitializeCount(), 2);
    std::thread([] {
        EXPECT_EQ(mw::CoInitializeCount(), 0);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        CoUninitialize();
    }).join();
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(mw::CoInitializeCount(), 0);
    CoUninitialize();  // an unbalanced call does nothing
    EXPECT_EQ(mw::CoInitializeCount(), 0);
}

TEST(ComCreate, UnknownClassAndUninitialisedThreadFail) {
    ComPtr<IUnknown> obj;
    EXPECT_EQ(CoCreateInstance(kTestClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                               obj.ReleaseAndGetVoidAddress()),
              CO_E_NOTINITIALIZED);
    ComScope com;
    EXPECT_EQ(CoCreateInstance(kTestClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                               obj.ReleaseAndGetVoidAddress()),
              REGDB_E_CLASSNOTREG);
    EXPECT_FALSE(obj);
    EXPECT_EQ(CoCreateInstance(kTestClass, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, nullptr),
              E_POINTER);
}

TEST(ComCreate, RegisteredClassIsCreatedWithTheAskedInterface) {
    ComScope com;
    DWORD cookie =
        mw::RegisterComClass(kTestClass, [](IUnknown* outer, REFIID riid, void** ppv) -> HRESULT {
            if (outer) return CLASS_E_NOAGGREGATION;
            auto* o = new Counted;
            HRESULT hr = o->QueryInterface(riid, ppv);
            o->Release();
            return hr;
        });
    ASSERT_NE(cookie, 0u);
    EXPECT_TRUE(mw::IsComClassRegistered(kTestClass));
    ComPtr<IPersist> persist;
    ASSERT_EQ(
        CoCreateInstance(kTestClass, nullptr, 3, IID_IPersist, persist.ReleaseAndGetVoidAddress()),
        S_OK);
    CLSID id{};
    EXPECT_EQ(persist->GetClassID(&id), S_OK);
    EXPECT_TRUE(IsEqualCLSID(id, kTestClass));
    ComPtr<IPin> pin;
    EXPECT_EQ(CoCreateInstance(kTestClass, nullptr, 3, IID_IPin, pin.ReleaseAndGetVoidAddress()),
              E_NOINTERFACE);
    EXPECT_FALSE(pin);
    EXPECT_EQ(CoCreateInstance(kTestClass, nullptr, CLSCTX_LOCAL_SERVER, IID_IPersist,
                               persist.ReleaseAndGetVoidAddress()),
              REGDB_E_CLASSNOTREG);
    mw::RevokeComClass(cookie);
    EXPECT_EQ(
        CoCreateInstance(kTestClass, nullptr, 3, IID_IPersist, persist.ReleaseAndGetVoidAddress()),
        REGDB_E_CLASSNOTREG);
}

TEST(ComCreate, ClassesCanBeCreatedFromManyThreads) {
    DWORD cookie =
        mw::RegisterComClass(kTestClass, [](IUnknown*, REFIID riid, void** ppv) -> HRESULT {
            auto* o = new Counted;
            HRESULT hr = o->QueryInterface(riid, ppv);
            o->Release();
            return hr;
        });
    std::vector<std::thread> threads;
    std::atomic<int> created{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int i = 0; i < 200; ++i) {
                ComPtr<IPersist> p;
                if (CoCreateInstance(kTestClass, nullptr, 3, IID_IPersist,
                                     p.ReleaseAndGetVoidAddress()) == S_OK)
                    ++created;
            }
            CoUninitialize();
        });
    }
    for (auto& t : threads)
        t.join();
    mw::RevokeComClass(cookie);
    EXPECT_EQ(created.load(), 800);
}

TEST(ComTaskMemory, BlocksAreFreedOnAnyThread) {
    void* p = CoTaskMemAlloc(100);
    ASSERT_NE(p, nullptr);
    p = CoTaskMemRealloc(p, 1000);
    ASSERT_NE(p, nullptr);
    std::thread([p] { CoTaskMemFree(p); }).join();
    // A size of zero frees the block.
    EXPECT_EQ(CoTaskMemRealloc(CoTaskMemAlloc(16), 0), nullptr);
    CoTaskMemFree(nullptr);
    LPOLESTR s = mw::CoTaskMemDup(u"FilterGraph");
    EXPECT_EQ(std::u16string(s), u"FilterGraph");
    CoTaskMemFree(s);
}

TEST(ComGuidText, RoundTripsInThePlatformsForm) {
    WCHAR buf[39];
    EXPECT_EQ(StringFromGUID2(IID_IPin, buf, 39), 39);
    EXPECT_EQ(std::u16string(buf), u"{56A86891-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(StringFromGUID2(IID_IPin, buf, 38), 0);
    CLSID back{};
    EXPECT_EQ(CLSIDFromString(buf, &back), S_OK);
    EXPECT_TRUE(IsEqualGUID(back, IID_IPin));
    EXPECT_EQ(CLSIDFromString(u"{56A86891-0AD4-11CE-B03A-0020AF0BA77}", &back), CO_E_CLASSSTRING);
    EXPECT_EQ(CLSIDFromString(u"56A86891-0AD4-11CE-B03A-0020AF0BA770", &back), CO_E_CLASSSTRING);
    LPOLESTR text = nullptr;
    EXPECT_EQ(StringFromCLSID(CLSID_FilterGraph, &text), S_OK);
    EXPECT_EQ(std::u16string(text), u"{E436EBB3-524F-11CE-9F53-0020AF0BA770}");
    CoTaskMemFree(text);
    GUID a{}, b{};
    EXPECT_EQ(CoCreateGuid(&a), S_OK);
    EXPECT_EQ(CoCreateGuid(&b), S_OK);
    EXPECT_FALSE(IsEqualGUID(a, b));
}

TEST(OleAutomation, BstrKeepsItsLengthAndText) {
    BSTR s = SysAllocString(u"FriendlyName");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(SysStringLen(s), 12u);
    EXPECT_EQ(SysStringByteLen(s), 24u);
    EXPECT_EQ(std::u16string(s), u"FriendlyName");
    EXPECT_EQ(SysReAllocString(&s, u"x"), TRUE);
    EXPECT_EQ(SysStringLen(s), 1u);
    SysFreeString(s);
    SysFreeString(nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    BSTR withNul = SysAllocStringLen(u"a\0b", 3);
    EXPECT_EQ(SysStringLen(withNul), 3u);
    SysFreeString(withNul);
}

TEST(OleAutomation, VariantsCopyClearAndConvert) {
    VARIANT a, b;
    VariantInit(&a);
    VariantInit(&b);
    a.vt = VT_BSTR;
    a.bstrVal = SysAllocString(u"{33D9A762-90C8-11D0-BD43-00A0C911CE86}");
    EXPECT_EQ(VariantCopy(&b, &a), S_OK);
    EXPECT_NE(a.bstrVal, b.bstrVal);
    EXPECT_EQ(std::u16string(b.bstrVal), std::u16string(a.bstrVal));
    EXPECT_EQ(VariantClear(&a), S_OK);
    EXPECT_EQ(a.vt, VT_EMPTY);

    VARIANT n;
    VariantInit(&n);
    n.vt = VT_I4;
    n.lVal = -42;
    EXPECT_EQ(VariantChangeType(&b, &n, 0, VT_BSTR), S_OK);
    EXPECT_EQ(std::u16string(b.bstrVal), u"-42");
    EXPECT_EQ(VariantChangeType(&n, &b, 0, VT_UI1), DISP_E_OVERFLOW);
    SysReAllocString(&b.bstrVal, u"42");
    EXPECT_EQ(VariantChangeType(&n, &b, 0, VT_UI1), S_OK);
    EXPECT_EQ(n.vt, VT_UI1);
    EXPECT_EQ(n.bVal, 42);
    VariantClear(&b);
    b.vt = VT_BSTR;
    b.bstrVal = SysAllocString(u"abc");
    EXPECT_EQ(VariantChangeType(&n, &b, 0, VT_I4), DISP_E_TYPEMISMATCH);
    VariantClear(&b);

    auto* obj = new Counted;
    VARIANT u;
    VariantInit(&u);
    u.vt = VT_UNKNOWN;
    u.punkVal = obj;  // takes the creator's reference
    EXPECT_EQ(VariantCopy(&b, &u), S_OK);
    EXPECT_EQ(obj->refs.load(), 2u);
    VariantClear(&b);
    VariantClear(&u);  // releases the last reference
}

TEST(OleAutomation, SafeArraysOfBytesHoldBinaryProperties) {
    SAFEARRAY* sa = SafeArrayCreateVector(VT_UI1, 0, 5);
    ASSERT_NE(sa, nullptr);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(sa, &data), S_OK);
    std::memcpy(data, "\x01\x02\x03\x04\x05", 5);
    EXPECT_EQ(SafeArrayDestroy(sa), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayUnaccessData(sa), S_OK);
    LONG lo = -1, hi = -1;
    EXPECT_EQ(SafeArrayGetLBound(sa, 1, &lo), S_OK);
    EXPECT_EQ(SafeArrayGetUBound(sa, 1, &hi), S_OK);
    EXPECT_EQ(lo, 0);
    EXPECT_EQ(hi, 4);
    EXPECT_EQ(SafeArrayGetUBound(sa, 2, &hi), DISP_E_BADINDEX);
    VARIANT v, w;
    VariantInit(&v);
    VariantInit(&w);
    v.vt = VT_ARRAY | VT_UI1;
    v.parray = sa;
    EXPECT_EQ(VariantCopy(&w, &v), S_OK);
    EXPECT_NE(w.parray, v.parray);
    EXPECT_EQ(std::memcmp(w.parray->pvData, "\x01\x02\x03\x04\x05", 5), 0);
    VariantClear(&v);
    VariantClear(&w);
    SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, 2);
    static_cast<BSTR*>(strings->pvData)[0] = SysAllocString(u"a");
    SAFEARRAY* copy = nullptr;
    EXPECT_EQ(SafeArrayCopy(strings, &copy), S_OK);
    EXPECT_EQ(std::u16string(static_cast<BSTR*>(copy->pvData)[0]), u"a");
    SafeArrayDestroy(strings);
    SafeArrayDestroy(copy);
}

}  // namespace
