// The running object table with the graph's registration: an item moniker with the delimiter
// "!" and the name "FilterGraph %8.8p pid %8.8x".
#include <gtest/gtest.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <thread>
#include <vector>

#include "comptr.h"
#include "mwstring.h"
#include "objbase.h"
#include "winmem.h"

namespace {

class Graph final : public IPersist {
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
        *id = GUID_NULL;
        return S_OK;
    }
    std::atomic<ULONG> refs{1};
};

// The name as the run-time library's Format gives it: %p is the pointer in upper-case hex
// (at least 8 digits), %8.8x the process id in 8 digits.
std::u16string GraphName(const void* graph) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "FilterGraph %08" PRIXPTR " pid %08x",
                  reinterpret_cast<uintptr_t>(graph), GetCurrentProcessId());
    return mw::Utf8ToUtf16(buf);
}

TEST(RunningObjectTable, RegistersAndRevokesTheGraphUnderAnItemMoniker) {
    auto* graph = new Graph;
    ComPtr<IRunningObjectTable> rot;
    ASSERT_EQ(GetRunningObjectTable(0, rot.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(GetRunningObjectTable(1, rot.ReleaseAndGetAddressOf()), E_INVALIDARG);
    ASSERT_EQ(GetRunningObjectTable(0, rot.ReleaseAndGetAddressOf()), S_OK);

    const std::u16string name = GraphName(graph);
    ComPtr<IMoniker> moniker;
    ASSERT_EQ(CreateItemMoniker(u"!", name.c_str(), moniker.ReleaseAndGetAddressOf()), S_OK);
    LPOLESTR display = nullptr;
    ASSERT_EQ(moniker->GetDisplayName(nullptr, nullptr, &display), S_OK);
    EXPECT_EQ(std::u16string(display), u"!" + name);
    CoTaskMemFree(display);
    DWORD sys = 0;
    EXPECT_EQ(moniker->IsSystemMoniker(&sys), S_OK);
    EXPECT_EQ(sys, static_cast<DWORD>(MKSYS_ITEMMONIKER));
    CLSID cls{};
    EXPECT_EQ(moniker->GetClassID(&cls), S_OK);
    EXPECT_EQ(cls, CLSID_ItemMoniker);

    DWORD cookie = 0;
    ASSERT_EQ(rot->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, graph, moniker.Get(), &cookie), S_OK);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(graph->refs.load(), 2u) << "the table holds a reference while registered";
    EXPECT_EQ(rot->IsRunning(moniker.Get()), S_OK);

    // Another moniker with the same name finds the same object (identity of the reference).
    ComPtr<IMoniker> same;
    CreateItemMoniker(u"!", name.c_str(), same.ReleaseAndGetAddressOf());
    ComPtr<IUnknown> found;
    ASSERT_EQ(rot->GetObject(same.Get(), found.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(found.Get(), static_cast<IUnknown*>(graph));
    found.Reset();

    // The item binds through the table.
    ComPtr<IBindCtx> ctx;
    CreateBindCtx(0, ctx.ReleaseAndGetAddressOf());
    ComPtr<IPersist> bound;
    EXPECT_EQ(
        same->BindToObject(ctx.Get(), nullptr, IID_IPersist, bound.ReleaseAndGetVoidAddress()),
        S_OK);
    bound.Reset();

    // Enumeration lists the entry by its display name.
    ComPtr<IEnumMoniker> running;
    ASSERT_EQ(rot->EnumRunning(running.ReleaseAndGetAddressOf()), S_OK);
    bool listed = false;
    IMoniker* m = nullptr;
    while (running->Next(1, &m, nullptr) == S_OK) {
        LPOLESTR text = nullptr;
        m->GetDisplayName(nullptr, nullptr, &text);
        listed |= std::u16string(text) == u"!" + name;
        CoTaskMemFree(text);
        m->Release();
    }
    EXPECT_TRUE(listed);
    running.Reset();

    EXPECT_EQ(rot->Revoke(cookie), S_OK);
    EXPECT_EQ(rot->IsRunning(moniker.Get()), S_FALSE);
    EXPECT_EQ(rot->GetObject(moniker.Get(), found.ReleaseAndGetAddressOf()), MK_E_UNAVAILABLE);
    EXPECT_EQ(rot->Revoke(cookie), E_INVALIDARG);
    EXPECT_EQ(graph->refs.load(), 1u);
    graph->Release();
}

TEST(RunningObjectTable, RejectsBadArgumentsAndNotesDuplicates) {
    ComPtr<IRunningObjectTable> rot;
    ASSERT_EQ(GetRunningObjectTable(0, rot.ReleaseAndGetAddressOf()), S_OK);
    auto* graph = new Graph;
    ComPtr<IMoniker> moniker;
    CreateItemMoniker(u"!", u"FilterGraph duplicate", moniker.ReleaseAndGetAddressOf());
    DWORD a = 0, b = 0;
    EXPECT_EQ(rot->Register(0, nullptr, moniker.Get(), &a), E_INVALIDARG);
    EXPECT_EQ(rot->Register(0, graph, nullptr, &a), E_INVALIDARG);
    EXPECT_EQ(rot->Register(0x100, graph, moniker.Get(), &a), E_INVALIDARG);
    EXPECT_EQ(rot->Register(0, graph, moniker.Get(), &a), S_OK);
    EXPECT_EQ(rot->Register(0, graph, moniker.Get(), &b), MK_S_MONIKERALREADYREGISTERED);
    EXPECT_NE(a, b);
    FILETIME t{1, 2};
    EXPECT_EQ(rot->NoteChangeTime(a, &t), S_OK);
    FILETIME back{};
    EXPECT_EQ(rot->GetTimeOfLastChange(moniker.Get(), &back), S_OK);
    EXPECT_EQ(rot->Revoke(a), S_OK);
    EXPECT_EQ(rot->Revoke(b), S_OK);
    EXPECT_EQ(rot->Revoke(0xFFFFFF), E_INVALIDARG);
    EXPECT_EQ(graph->refs.load(), 1u);
    graph->Release();
}

TEST(RunningObjectTable, ThreadsRegisterAndRevokeConcurrently) {
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            ComPtr<IRunningObjectTable> rot;
            GetRunningObjectTable(0, rot.ReleaseAndGetAddressOf());
            for (int i = 0; i < 100; ++i) {
                auto* graph = new Graph;
                ComPtr<IMoniker> m;
                CreateItemMoniker(u"!", GraphName(graph).c_str(), m.ReleaseAndGetAddressOf());
                DWORD cookie = 0;
                if (rot->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, graph, m.Get(), &cookie) ==
                        S_OK &&
                    rot->IsRunning(m.Get()) == S_OK && rot->Revoke(cookie) == S_OK)
                    ++ok;
                graph->Release();
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(ok.load(), 400);
}

}  // namespace
