// Device monikers: display names, parsing (including the default form), property bags and
// binding; bind contexts.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "comptr.h"
#include "mwdevices.h"
#include "oleauto.h"
#include "strmif.h"
#include "uuids.h"

namespace {

// {6D77C0A2-2222-4A6B-9C00-000000000002}: a category of this test only.
constexpr GUID kCategory = {0x6d77c0a2, 0x2222, 0x4a6b, {0x9c, 0, 0, 0, 0, 0, 0, 2}};
constexpr CLSID kFilterClass = {0x6d77c0a3, 0x3333, 0x4a6b, {0x9c, 0, 0, 0, 0, 0, 0, 3}};
constexpr char16_t kCategoryText[] = u"{6D77C0A2-2222-4A6B-9C00-000000000002}";

class Obj final : public IPersist {
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
        *id = kFilterClass;
        return S_OK;
    }
    std::atomic<ULONG> refs{1};
};

HRESULT CreateObj(IUnknown*, REFIID riid, void** ppv) {
    auto* o = new Obj;
    HRESULT hr = o->QueryInterface(riid, ppv);
    o->Release();
    return hr;
}

std::u16string DisplayName(IMoniker* m) {
    LPOLESTR s = nullptr;
    EXPECT_EQ(m->GetDisplayName(nullptr, nullptr, &s), S_OK);
    std::u16string out = s ? s : u"";
    CoTaskMemFree(s);
    return out;
}

std::u16string ReadString(IPropertyBag* bag, const char16_t* name, HRESULT* hr = nullptr) {
    VARIANT v;
    VariantInit(&v);
    HRESULT r = bag->Read(name, &v, nullptr);
    if (hr) *hr = r;
    std::u16string out = (SUCCEEDED(r) && v.vt == VT_BSTR) ? v.bstrVal : u"";
    VariantClear(&v);
    return out;
}

class DeviceMonikers : public ::testing::Test {
protected:
    void SetUp() override {
        CoInitialize(nullptr);
        mw::DeviceDescription a;
        a.category = kCategory;
        a.kind = u"cm";
        a.instance = u"Loopback";
        a.friendlyName = u"Loopback";
        a.clsid = kFilterClass;
        a.properties.emplace_back(u"WaveInID", int32_t{3});
        a.properties.emplace_back(u"FilterData", std::vector<uint8_t>{1, 2, 3});
        a.create = CreateObj;
        cookies_.push_back(mw::RegisterDevice(a));
        mw::DeviceDescription b = a;
        b.instance = u"Virtual Output";
        b.friendlyName = u"Virtual Output";
        b.isDefault = true;
        b.create = nullptr;  // BindToObject goes through CoCreateInstance(kFilterClass)
        cookies_.push_back(mw::RegisterDevice(b));
    }
    void TearDown() override {
        for (DWORD c : cookies_)
            mw::RevokeDevice(c);
        CoUninitialize();
    }
    ComPtr<IMoniker> Parse(const std::u16string& name, HRESULT* hr, ULONG* eaten = nullptr) {
        ComPtr<IBindCtx> ctx;
        EXPECT_EQ(CreateBindCtx(0, ctx.ReleaseAndGetAddressOf()), S_OK);
        ComPtr<IMoniker> m;
        ULONG e = 12345;
        *hr = MkParseDisplayName(ctx.Get(), name.c_str(), &e, m.ReleaseAndGetAddressOf());
        if (eaten) *eaten = e;
        return m;
    }
    std::vector<DWORD> cookies_;
};

TEST_F(DeviceMonikers, DisplayNamesHaveThePlatformsForm) {
    std::vector<ComPtr<IMoniker>> list;
    ASSERT_EQ(mw::EnumDeviceMonikers(kCategory, &list), S_OK);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(DisplayName(list[0].Get()),
              std::u16string(u"@device:cm:") + kCategoryText + u"\\Loopback");
    CLSID id{};
    EXPECT_EQ(list[0]->GetClassID(&id), S_OK);
    EXPECT_TRUE(IsEqualCLSID(id, CLSID_CDeviceMoniker));
    mw::DeviceDescription dmo;
    dmo.kind = u"dmo";
    dmo.category = kCategory;
    dmo.clsid = kFilterClass;
    EXPECT_EQ(
        mw::DeviceDisplayName(dmo),
        std::u16string(u"@device:dmo:{6D77C0A3-3333-4A6B-9C00-000000000003}") + kCategoryText);
}

TEST_F(DeviceMonikers, ParsedDisplayNameRoundTripsAndBindsToItsPropertyBag) {
    const std::u16string name = std::u16string(u"@device:cm:") + kCategoryText + u"\\Loopback";
    HRESULT hr;
    ULONG eaten = 0;
    ComPtr<IMoniker> m = Parse(name, &hr, &eaten);
    ASSERT_EQ(hr, S_OK);
    ASSERT_TRUE(m);
    EXPECT_EQ(eaten, name.size());
    EXPECT_EQ(DisplayName(m.Get()), name);

    ComPtr<IPropertyBag> bag;
    ASSERT_EQ(m->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.ReleaseAndGetVoidAddress()),
              S_OK);
    ASSERT_TRUE(bag);
    EXPECT_EQ(ReadString(bag.Get(), u"FriendlyName"), u"Loopback");
    EXPECT_EQ(ReadString(bag.Get(), u"CLSID"), u"{6D77C0A3-3333-4A6B-9C00-000000000003}");
    VARIANT v;
    VariantInit(&v);
    EXPECT_EQ(bag->Read(u"WaveInID", &v, nullptr), S_OK);
    EXPECT_EQ(v.vt, VT_I4);
    EXPECT_EQ(v.lVal, 3);
    VariantClear(&v);
    EXPECT_EQ(bag->Read(u"FilterData", &v, nullptr), S_OK);
    EXPECT_EQ(v.vt, VT_ARRAY | VT_UI1);
    VariantClear(&v);
    // A typed read converts. Only the type of the caller's variant is read: what else it
    // holds is left alone.
    v.vt = VT_BSTR;
    v.bstrVal = reinterpret_cast<BSTR>(uintptr_t{0x10});
    EXPECT_EQ(bag->Read(u"WaveInID", &v, nullptr), S_OK);
    EXPECT_EQ(std::u16string(v.bstrVal), u"3");
    VariantClear(&v);
    HRESULT missing;
    ReadString(bag.Get(), u"NoSuchValue", &missing);
    EXPECT_EQ(missing, E_INVALIDARG);

    // The name is matched without case, as the platform's names are.
    ComPtr<IMoniker> again =
        Parse(u"@DEVICE:cm:{6d77c0a2-2222-4a6b-9c00-000000000002}\\loopback", &hr);
    ASSERT_EQ(hr, S_OK);
    EXPECT_EQ(m->IsEqual(again.Get()), S_OK);
    DWORD h1 = 0, h2 = 0;
    m->Hash(&h1);
    again->Hash(&h2);
    EXPECT_EQ(h1, h2);
}

TEST_F(DeviceMonikers, DefaultFormNamesTheCategorysDefaultDevice) {
    HRESULT hr;
    ULONG eaten = 0;
    ComPtr<IMoniker> m = Parse(std::u16string(u"@device:*:") + kCategoryText, &hr, &eaten);
    ASSERT_EQ(hr, S_OK);
    EXPECT_EQ(eaten, 10u + 38u);
    EXPECT_EQ(DisplayName(m.Get()),
              std::u16string(u"@device:cm:") + kCategoryText + u"\\Virtual Output");
    ComPtr<IPropertyBag> bag;
    ASSERT_EQ(m->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.ReleaseAndGetVoidAddress()),
              S_OK);
    EXPECT_EQ(ReadString(bag.Get(), u"FriendlyName"), u"Virtual Output");
}

TEST_F(DeviceMonikers, BadNamesGiveThePlatformsFailures) {
    HRESULT hr;
    ULONG eaten = 99;
    EXPECT_FALSE(Parse(std::u16string(u"@device:cm:") + kCategoryText + u"\\Nothing", &hr, &eaten));
    EXPECT_EQ(hr, MK_E_NOOBJECT);
    EXPECT_EQ(eaten, 0u);
    EXPECT_FALSE(Parse(u"@device:*:{00000000-0000-0000-0000-0000000000AA}", &hr));
    EXPECT_EQ(hr, MK_E_NOOBJECT);
    EXPECT_FALSE(Parse(u"@device:*:not-a-guid", &hr));
    EXPECT_EQ(hr, MK_E_SYNTAX);
    EXPECT_FALSE(Parse(u"@device:", &hr));
    EXPECT_EQ(hr, MK_E_SYNTAX);
    EXPECT_FALSE(Parse(u"FilterGraph", &hr));
    EXPECT_EQ(hr, MK_E_SYNTAX);
    ComPtr<IMoniker> m;
    ULONG e = 0;
    EXPECT_EQ(MkParseDisplayName(nullptr, u"@device:*:{6D77C0A2-2222-4A6B-9C00-000000000002}", &e,
                                 m.ReleaseAndGetAddressOf()),
              E_INVALIDARG);
    std::vector<ComPtr<IMoniker>> none;
    EXPECT_EQ(mw::EnumDeviceMonikers(GUID_NULL, &none), S_FALSE);
    EXPECT_TRUE(none.empty());
}

TEST_F(DeviceMonikers, BindToObjectCreatesTheDevicesFilter) {
    std::vector<ComPtr<IMoniker>> list;
    ASSERT_EQ(mw::EnumDeviceMonikers(kCategory, &list), S_OK);
    ComPtr<IPersist> obj;
    ASSERT_EQ(list[0]->BindToObject(nullptr, nullptr, IID_IPersist, obj.ReleaseAndGetVoidAddress()),
              S_OK);
    EXPECT_TRUE(obj);
    ComPtr<IPin> wrong;
    EXPECT_EQ(list[0]->BindToObject(nullptr, nullptr, IID_IPin, wrong.ReleaseAndGetVoidAddress()),
              E_NOINTERFACE);
    // The second device has no creator: its class goes through CoCreateInstance.
    EXPECT_EQ(list[1]->BindToObject(nullptr, nullptr, IID_IPersist, obj.ReleaseAndGetVoidAddress()),
              REGDB_E_CLASSNOTREG);
    DWORD cls = mw::RegisterComClass(kFilterClass, CreateObj);
    EXPECT_EQ(list[1]->BindToObject(nullptr, nullptr, IID_IPersist, obj.ReleaseAndGetVoidAddress()),
              S_OK);
    mw::RevokeComClass(cls);
}

TEST_F(DeviceMonikers, MonikerOutlivesItsRevokedDevice) {
    std::vector<ComPtr<IMoniker>> list;
    ASSERT_EQ(mw::EnumDeviceMonikers(kCategory, &list), S_OK);
    for (DWORD c : cookies_)
        mw::RevokeDevice(c);
    cookies_.clear();
    ComPtr<IPropertyBag> bag;
    ASSERT_EQ(
        list[0]->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.ReleaseAndGetVoidAddress()),
        S_OK);
    EXPECT_EQ(ReadString(bag.Get(), u"FriendlyName"), u"Loopback");
    HRESULT hr;
    EXPECT_FALSE(Parse(std::u16string(u"@device:cm:") + kCategoryText + u"\\Loopback", &hr));
    EXPECT_EQ(hr, MK_E_NOOBJECT);
}

TEST_F(DeviceMonikers, EnumeratorHandsOutMonikersOneByOne) {
    std::vector<ComPtr<IMoniker>> list;
    ASSERT_EQ(mw::EnumDeviceMonikers(kCategory, &list), S_OK);
    ComPtr<IEnumMoniker> e;
    ASSERT_EQ(mw::CreateMonikerEnumerator(list, e.ReleaseAndGetAddressOf()), S_OK);
    IMoniker* m = nullptr;
    ULONG fetched = 0;
    int n = 0;
    while (e->Next(1, &m, &fetched) == S_OK) {
        EXPECT_EQ(fetched, 1u);
        m->Release();
        ++n;
    }
    EXPECT_EQ(n, 2);
    IMoniker* two[2];
    EXPECT_EQ(e->Next(2, two, nullptr), E_INVALIDARG);
    EXPECT_EQ(e->Reset(), S_OK);
    EXPECT_EQ(e->Skip(3), S_FALSE);
}

TEST_F(DeviceMonikers, ManyThreadsParseAndReadBags) {
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                ComPtr<IBindCtx> ctx;
                CreateBindCtx(0, ctx.ReleaseAndGetAddressOf());
                ComPtr<IMoniker> m;
                ULONG eaten;
                if (MkParseDisplayName(ctx.Get(),
                                       (std::u16string(u"@device:*:") + kCategoryText).c_str(),
                                       &eaten, m.ReleaseAndGetAddressOf()) != S_OK)
                    continue;
                ComPtr<IPropertyBag> bag;
                if (m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                     bag.ReleaseAndGetVoidAddress()) != S_OK)
                    continue;
                VARIANT v;
                VariantInit(&v);
                v.vt = VT_I4;
                bag->Write(u"Counter", &v);
                if (ReadString(bag.Get(), u"FriendlyName") == u"Virtual Output") ++ok;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(ok.load(), 400);
}

TEST(BindContext, KeepsParametersAndBoundObjects) {
    ComPtr<IBindCtx> ctx;
    EXPECT_EQ(CreateBindCtx(1, ctx.ReleaseAndGetAddressOf()), E_INVALIDARG);
    ASSERT_EQ(CreateBindCtx(0, ctx.ReleaseAndGetAddressOf()), S_OK);
    auto* o = new Obj;
    EXPECT_EQ(ctx->RegisterObjectParam(const_cast<LPOLESTR>(u"key"), o), S_OK);
    ComPtr<IUnknown> back;
    EXPECT_EQ(ctx->GetObjectParam(const_cast<LPOLESTR>(u"key"), back.ReleaseAndGetAddressOf()),
              S_OK);
    EXPECT_EQ(back.Get(), static_cast<IUnknown*>(o));
    EXPECT_EQ(ctx->GetObjectParam(const_cast<LPOLESTR>(u"other"), back.ReleaseAndGetAddressOf()),
              E_FAIL);
    EXPECT_EQ(ctx->RegisterObjectBound(o), S_OK);
    EXPECT_EQ(ctx->RevokeObjectBound(o), S_OK);
    EXPECT_EQ(ctx->RevokeObjectBound(o), MK_E_NOTBOUND);
    BIND_OPTS opts{sizeof(BIND_OPTS), 0, 0, 0};
    EXPECT_EQ(ctx->GetBindOptions(&opts), S_OK);
    ComPtr<IRunningObjectTable> rot;
    EXPECT_EQ(ctx->GetRunningObjectTable(rot.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_TRUE(rot);
    EXPECT_EQ(ctx->RevokeObjectParam(const_cast<LPOLESTR>(u"key")), S_OK);
    back.Reset();
    ctx.Reset();
    EXPECT_EQ(o->refs.load(), 1u);
    o->Release();
}

}  // namespace
