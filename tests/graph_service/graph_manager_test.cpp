// The graph manager with the system's audio source filter pushing into the platform's renderers:
// names, connections, state changes, the graph clock, events and the notify window, bit-exact
// audio through "Virtual Output", and Stop while the source waits in SendData.
#include <atomic>
#include <thread>

#include "media_base/DSBaseClass.h"
#include "tests/graph_service/GraphTestSupport.h"
#include "winuser.h"

using namespace mw::test;

namespace {

const CLSID kSourceClsid = {
    0x6d1a0c55, 0x3b1e, 0x4c1f, {0x9a, 0x51, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66}};

TQAWaveFormatExtensible Pcm(DWORD rate, WORD channels, WORD bits) {
    TQAWaveFormatExtensible f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = channels;
    f.nSamplesPerSec = rate;
    f.wBitsPerSample = bits;
    f.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    return f;
}

std::vector<BYTE> Pattern(size_t n) {
    std::vector<BYTE> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<BYTE>(i * 13 + (i >> 8));
    return v;
}

class GraphManager : public GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        graph = Create<IGraphBuilder>(CLSID_FilterGraph);
        ASSERT_TRUE(graph);
        control = As<IMediaControl>(graph.Get());
        events = As<IMediaEventEx>(graph.Get());
        ASSERT_TRUE(control && events);
    }
    void TearDown() override {
        if (control) control->Stop();
        source = nullptr;
        sourceRef = nullptr;
        renderer = nullptr;
        events = nullptr;
        control = nullptr;
        graph = nullptr;
        GraphTest::TearDown();
    }

    // The system's audio source and the renderer of "Virtual Output", connected.
    void BuildSourceToVirtualOutput(const TQAWaveFormatExtensible& format, int ms) {
        source = new TDSAudioSourceFilter(kSourceClsid);
        sourceRef = source->AsBaseFilter();
        source->SetFormat(format, format.wFormatTag == WAVE_FORMAT_PCM, ms);
        ASSERT_EQ(graph->AddFilter(sourceRef.Get(), u"AudioSource"), S_OK);
        renderer = AudioRendererFor(u"Virtual Output");
        ASSERT_TRUE(renderer);
        ASSERT_EQ(graph->AddFilter(renderer.Get(), u"Audio Render"), S_OK);
        auto out = PinOf(sourceRef.Get(), PINDIR_OUTPUT);
        auto in = PinOf(renderer.Get(), PINDIR_INPUT);
        ASSERT_EQ(graph->Connect(out.Get(), in.Get()), S_OK);
    }

    ComPtr<IGraphBuilder> graph;
    ComPtr<IMediaControl> control;
    ComPtr<IMediaEventEx> events;
    TDSAudioSourceFilter* source = nullptr;
    ComPtr<IBaseFilter> sourceRef;
    ComPtr<IBaseFilter> renderer;
};

TEST_F(GraphManager, NamesAreUniqueAndFiltersAreFoundAndRemoved) {
    auto a = Create<IBaseFilter>(CLSID_NullRenderer);
    auto b = Create<IBaseFilter>(CLSID_NullRenderer);
    ASSERT_EQ(graph->AddFilter(a.Get(), u"Null"), S_OK);
    EXPECT_EQ(graph->AddFilter(b.Get(), u"Null"), VFW_S_DUPLICATE_NAME);
    FILTER_INFO info{};
    ASSERT_EQ(b->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::u16string(info.achName), u"Null 0001");
    EXPECT_TRUE(info.pGraph != nullptr);
    if (info.pGraph) info.pGraph->Release();

    ComPtr<IBaseFilter> found;
    EXPECT_EQ(graph->FindFilterByName(u"Null 0001", found.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(found.Get(), b.Get());
    EXPECT_EQ(graph->FindFilterByName(u"None", found.ReleaseAndGetAddressOf()), VFW_E_NOT_FOUND);

    ComPtr<IEnumFilters> e;
    ASSERT_EQ(graph->EnumFilters(e.ReleaseAndGetAddressOf()), S_OK);
    int count = 0;
    ComPtr<IBaseFilter> f;
    while (e->Next(1, f.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        ++count;
    EXPECT_EQ(count, 2);

    ASSERT_EQ(graph->RemoveFilter(a.Get()), S_OK);
    EXPECT_EQ(graph->FindFilterByName(u"Null", found.ReleaseAndGetAddressOf()), VFW_E_NOT_FOUND);
    ASSERT_EQ(a->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.pGraph, nullptr);
    EXPECT_EQ(graph->RemoveFilter(a.Get()), VFW_E_NOT_FOUND);
}

TEST_F(GraphManager, BadConnectionsAreRefusedAndLeaveNothingConnected) {
    BuildSourceToVirtualOutput(Pcm(44100, 2, 16), 20);
    auto out = PinOf(sourceRef.Get(), PINDIR_OUTPUT);
    auto in = PinOf(renderer.Get(), PINDIR_INPUT);
    EXPECT_EQ(graph->ConnectDirect(out.Get(), in.Get(), nullptr), VFW_E_ALREADY_CONNECTED);
    auto other = Create<IBaseFilter>(CLSID_NullRenderer);
    ASSERT_EQ(graph->AddFilter(other.Get(), u"Other"), S_OK);
    auto otherIn = PinOf(other.Get(), PINDIR_INPUT);
    EXPECT_EQ(graph->ConnectDirect(in.Get(), otherIn.Get(), nullptr), VFW_E_INVALID_DIRECTION);
    auto outside = Create<IBaseFilter>(CLSID_NullRenderer);
    EXPECT_EQ(graph->ConnectDirect(out.Get(), PinOf(outside.Get(), PINDIR_INPUT).Get(), nullptr),
              VFW_E_NOT_IN_GRAPH);
    ComPtr<IPin> peer;
    EXPECT_EQ(otherIn->ConnectedTo(peer.ReleaseAndGetAddressOf()), VFW_E_NOT_CONNECTED);

    ASSERT_EQ(control->Run(), S_OK);
    EXPECT_EQ(graph->RemoveFilter(renderer.Get()), VFW_E_NOT_STOPPED);
    EXPECT_EQ(graph->Disconnect(in.Get()), VFW_E_NOT_STOPPED);
    ASSERT_EQ(control->Stop(), S_OK);
    // Removing a connected filter takes both ends of its connections down.
    ASSERT_EQ(graph->RemoveFilter(renderer.Get()), S_OK);
    EXPECT_EQ(out->ConnectedTo(peer.ReleaseAndGetAddressOf()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(in->ConnectedTo(peer.ReleaseAndGetAddressOf()), VFW_E_NOT_CONNECTED);
}

TEST_F(GraphManager, SentAudioPlaysBitExactAndCompletes) {
    mw::wave::SetVirtualOutputPaced(false);
    TapCapture tap;
    const auto format = Pcm(44100, 2, 16);
    BuildSourceToVirtualOutput(format, 20);
    ComPtr<IReferenceClock> clock;
    ASSERT_EQ(control->Run(), S_OK);
    // The renderer's clock is the graph's.
    ASSERT_EQ(As<IMediaFilter>(graph.Get())->GetSyncSource(clock.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(As<IReferenceClock>(renderer.Get()).Get(), clock.Get());

    const auto data = Pattern(44100 * 4 / 2);  // half a second
    size_t sent = 0;
    while (sent < data.size()) {
        const int n = static_cast<int>(std::min<size_t>(4000, data.size() - sent));
        ASSERT_TRUE(source->SendData(data.data() + sent, n, 0, 0, false));
        sent += n;
    }
    ASSERT_EQ(source->DeliverEndOfStream(), S_OK);
    std::vector<LONG> seen;
    ASSERT_TRUE(WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); }));
    EXPECT_EQ(tap.Bytes(), data);
    LONG code = 0;
    EXPECT_EQ(events->WaitForCompletion(0, &code), S_OK);
    EXPECT_EQ(code, EC_COMPLETE);
}

TEST_F(GraphManager, VolumeAndBalanceChangeTheSamples) {
    mw::wave::SetVirtualOutputPaced(false);
    TapCapture tap;
    BuildSourceToVirtualOutput(Pcm(48000, 2, 16), 20);
    auto audio = As<IBasicAudio>(renderer.Get());
    ASSERT_TRUE(audio);
    ASSERT_EQ(audio->put_Volume(-600), S_OK);     // about half the amplitude
    ASSERT_EQ(audio->put_Balance(-10000), S_OK);  // right channel silent
    EXPECT_EQ(audio->put_Volume(1), E_INVALIDARG);
    std::vector<int16_t> frames(2 * 4800);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = 20000;
    ASSERT_EQ(control->Run(), S_OK);
    ASSERT_TRUE(source->SendData(frames.data(), static_cast<int>(frames.size() * 2), 0, 0, false));
    ASSERT_EQ(source->DeliverEndOfStream(), S_OK);
    std::vector<LONG> seen;
    ASSERT_TRUE(WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); }));
    const auto bytes = tap.Bytes();
    ASSERT_EQ(bytes.size(), frames.size() * 2);
    const auto* played = reinterpret_cast<const int16_t*>(bytes.data());
    EXPECT_NEAR(played[0], 20000 * 0.501, 30);
    EXPECT_EQ(played[1], 0);
}

TEST_F(GraphManager, CompletionPostsTheNotifyMessage) {
    mw::wave::SetVirtualOutputPaced(false);
    static std::atomic<int> posted{0};
    static std::atomic<LPARAM> instance{0};
    posted = 0;
    HWND window = mw::CreateMessageWindow([](HWND, UINT msg, WPARAM, LPARAM l) -> LRESULT {
        if (msg == 32769) {
            ++posted;
            instance = l;
        }
        return 0;
    });
    BuildSourceToVirtualOutput(Pcm(22050, 1, 16), 20);
    ASSERT_EQ(events->SetNotifyWindow(reinterpret_cast<OAHWND>(window), 32769, 77), S_OK);
    ASSERT_EQ(events->SetNotifyFlags(0), S_OK);
    ASSERT_EQ(control->Run(), S_OK);
    const auto data = Pattern(2205 * 2);
    ASSERT_TRUE(source->SendData(data.data(), static_cast<int>(data.size()), 0, 0, false));
    ASSERT_EQ(source->DeliverEndOfStream(), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return posted.load() > 0; }));
    EXPECT_EQ(instance.load(), 77);
    std::vector<LONG> seen;
    EXPECT_TRUE(Saw(events.Get(), EC_COMPLETE, &seen));
    events->SetNotifyWindow(0, 0, 0);
    DestroyWindow(window);
}

TEST_F(GraphManager, StopEndsASendDataBlockedInTheRenderer) {
    BuildSourceToVirtualOutput(Pcm(8000, 1, 16), 100);
    // Paused: the renderer takes a little and then holds the sender.
    ASSERT_EQ(control->Pause(), S_OK);
    std::atomic<bool> returned{false};
    std::atomic<bool> result{true};
    std::atomic<uint32_t> tid{0};
    std::thread sender([&] {
        tid = GetCurrentThreadId();
        const auto data = Pattern(1600);
        bool ok = true;
        for (int i = 0; i < 50 && ok; ++i)
            ok = source->SendData(data.data(), static_cast<int>(data.size()), 0, 0, false);
        result = ok;
        returned = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return tid.load() != 0 && ThreadIsBlocked(tid.load()); }));
    EXPECT_FALSE(returned.load());
    ASSERT_EQ(control->Stop(), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return returned.load(); }));
    sender.join();
    EXPECT_FALSE(result.load());
}

TEST_F(GraphManager, RunWithoutRendererCompletesAtOnce) {
    source = new TDSAudioSourceFilter(kSourceClsid);
    sourceRef = source->AsBaseFilter();
    ASSERT_EQ(graph->AddFilter(sourceRef.Get(), u"AudioSource"), S_OK);
    ASSERT_EQ(control->Run(), S_OK);
    OAFilterState state;
    EXPECT_EQ(control->GetState(1000, &state), S_OK);
    EXPECT_EQ(state, State_Running);
    std::vector<LONG> seen;
    EXPECT_TRUE(WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); }));
}

TEST_F(GraphManager, AnApplicationClockIsKeptAndGivenToTheFilters) {
    BuildSourceToVirtualOutput(Pcm(44100, 2, 16), 20);
    auto clock = Create<IReferenceClock>(CLSID_SystemClock);
    auto mf = As<IMediaFilter>(graph.Get());
    ASSERT_EQ(mf->SetSyncSource(clock.Get()), S_OK);
    ASSERT_EQ(control->Run(), S_OK);
    ComPtr<IReferenceClock> got;
    ASSERT_EQ(mf->GetSyncSource(got.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(got.Get(), clock.Get());
    ASSERT_EQ(renderer->GetSyncSource(got.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(got.Get(), clock.Get());
    ASSERT_EQ(control->Stop(), S_OK);
    // Back to the graph's own choice: the renderer's clock.
    ASSERT_EQ(graph->SetDefaultSyncSource(), S_OK);
    ASSERT_EQ(mf->GetSyncSource(got.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(got.Get(), As<IReferenceClock>(renderer.Get()).Get());
}

TEST_F(GraphManager, RendererClockFollowsThePlayedAudio) {
    BuildSourceToVirtualOutput(Pcm(8000, 1, 16), 20);
    ASSERT_EQ(control->Run(), S_OK);
    auto clock = As<IReferenceClock>(renderer.Get());
    HANDLE sem = CreateSemaphoreW(nullptr, 0, 1000, nullptr);
    REFERENCE_TIME now = 0;
    clock->GetTime(&now);
    DWORD_PTR cookie = 0;
    ASSERT_EQ(clock->AdvisePeriodic(now, 200000, reinterpret_cast<HSEMAPHORE>(sem), &cookie), S_OK);
    std::atomic<bool> stop{false};
    std::thread feeder([&] {
        const auto data = Pattern(320);
        while (!stop && source->SendData(data.data(), 320, 0, 0, false)) {
        }
    });
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(WaitForSingleObject(sem, 20000), WAIT_OBJECT_0);
    REFERENCE_TIME later = 0;
    clock->GetTime(&later);
    EXPECT_GE(later - now, 4 * 200000);
    clock->Unadvise(cookie);
    stop = true;
    control->Stop();
    feeder.join();
    CloseHandle(sem);
}

}  // namespace

namespace mw::test {
ComPtr<IBaseFilter> AudioRendererFor(const char16_t* friendlyName) {
    auto devEnum = GraphTest::Create<ICreateDevEnum>(CLSID_SystemDeviceEnum);
    ComPtr<IEnumMoniker> e;
    if (devEnum->CreateClassEnumerator(CLSID_AudioRendererCategory, e.ReleaseAndGetAddressOf(),
                                       0) != S_OK)
        return nullptr;
    for (;;) {
        ComPtr<IMoniker> m;
        if (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) != S_OK) return nullptr;
        ComPtr<IPropertyBag> bag;
        if (FAILED(m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                    reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()))))
            continue;
        VARIANT v;
        VariantInit(&v);
        if (SUCCEEDED(bag->Read(u"FriendlyName", &v, nullptr)) && v.vt == VT_BSTR &&
            std::u16string(v.bstrVal) == friendlyName) {
            VariantClear(&v);
            ComPtr<IBaseFilter> f;
            m->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                            reinterpret_cast<void**>(f.ReleaseAndGetAddressOf()));
            return f;
        }
        VariantClear(&v);
    }
}
}  // namespace mw::test
