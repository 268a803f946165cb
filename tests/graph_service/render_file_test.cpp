// RenderFile through the decoding file source: WAV bit-exact through "Virtual Output", FLAC, MP3
// and WMA played to EC_COMPLETE with the notify message, seeking, bad files, and a graph with
// its connections saved into a compound file and loaded back.
#include <atomic>
#include <cstdio>
#include <cstring>

#include "mwstring.h"
#include "oleauto.h"
#include "tests/graph_service/GraphTestSupport.h"
#include "tests/playback/MediaFiles.h"
#include "winuser.h"

using namespace mw::test;

namespace {

class RenderFile : public GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        mw::wave::SetVirtualOutputPaced(false);
        graph = Create<IGraphBuilder>(CLSID_FilterGraph);
        control = As<IMediaControl>(graph.Get());
        events = As<IMediaEventEx>(graph.Get());
        // A renderer already in the graph is where RenderFile ends.
        renderer = AudioRendererFor(u"Virtual Output");
        ASSERT_TRUE(renderer);
        ASSERT_EQ(graph->AddFilter(renderer.Get(), u"Audio Render"), S_OK);
    }
    void TearDown() override {
        if (control) control->Stop();
        control = nullptr;
        events = nullptr;
        renderer = nullptr;
        graph = nullptr;
        GraphTest::TearDown();
    }
    bool RunToCompletion() {
        if (control->Run() != S_OK) return false;
        std::vector<LONG> seen;
        return WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); },
                         std::chrono::seconds(60));
    }

    TempDir dir;
    ComPtr<IGraphBuilder> graph;
    ComPtr<IMediaControl> control;
    ComPtr<IMediaEventEx> events;
    ComPtr<IBaseFilter> renderer;
};

TEST_F(RenderFile, WavPlaysBitExactToTheEnd) {
    TapCapture tap;
    const auto samples = PatternSamples(44100, 2, 2, false);
    const std::string path = dir.File("a.wav");
    WriteWav(path, 44100, 2, 16, false, samples);
    ASSERT_EQ(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr), S_OK);
    ASSERT_TRUE(RunToCompletion());
    EXPECT_EQ(tap.Bytes(), samples);
}

TEST_F(RenderFile, CompressedFilesPlayToTheEndAndPostTheNotifyMessage) {
    static std::atomic<int> posted{0};
    HWND window = mw::CreateMessageWindow([](HWND, UINT msg, WPARAM, LPARAM) -> LRESULT {
        if (msg == 32769) ++posted;
        return 0;
    });
    ASSERT_EQ(events->SetNotifyWindow(reinterpret_cast<OAHWND>(window), 32769, 0), S_OK);
    const auto tone = ToneSamples(44100, 2, 44100 / 2);
    int played = 0;
    for (const auto& [name, encoder] : std::vector<std::pair<std::string, const char*>>{
             {"t.flac", "flac"}, {"t.mp3", "libmp3lame"}, {"t.wma", "wmav2"}}) {
        SCOPED_TRACE(name);
        const std::string path = dir.File(name);
        if (!EncodeAudio(path, encoder, 44100, 2, tone)) continue;  // encoder not in this build
        TapCapture tap;
        ASSERT_EQ(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr), S_OK);
        posted = 0;
        ASSERT_TRUE(RunToCompletion());
        EXPECT_TRUE(WaitUntil([&] { return posted.load() > 0; }));
        // Lossy codecs add a little at the edges; the length is the tone's within 100 ms.
        EXPECT_NEAR(static_cast<double>(tap.Frames()), tone.size() / 2.0, 44100 * 0.1);
        ASSERT_EQ(control->Stop(), S_OK);
        // Take the source out again so the renderer is free for the next file.
        ComPtr<IBaseFilter> source;
        ASSERT_EQ(
            graph->FindFilterByName(mw::Utf8ToUtf16(path).c_str(), source.ReleaseAndGetAddressOf()),
            S_OK);
        ASSERT_EQ(graph->RemoveFilter(source.Get()), S_OK);
        ++played;
    }
    EXPECT_GE(played, 1);
    events->SetNotifyWindow(0, 0, 0);
    DestroyWindow(window);
}

TEST_F(RenderFile, SeekingStartsPlayFromThePosition) {
    const auto samples = PatternSamples(44100 * 2, 2, 2, false);
    const std::string path = dir.File("s.wav");
    WriteWav(path, 44100, 2, 16, false, samples);
    ASSERT_EQ(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr), S_OK);
    auto seeking = As<IMediaSeeking>(graph.Get());
    ASSERT_TRUE(seeking);
    LONGLONG duration = 0;
    ASSERT_EQ(seeking->GetDuration(&duration), S_OK);
    EXPECT_EQ(duration, 20000000);
    auto position = As<IMediaPosition>(graph.Get());
    double seconds = 0;
    ASSERT_EQ(position->get_Duration(&seconds), S_OK);
    EXPECT_DOUBLE_EQ(seconds, 2.0);

    TapCapture tap;
    LONGLONG at = 15000000;  // 1.5 s
    ASSERT_EQ(seeking->SetPositions(&at, AM_SEEKING_AbsolutePositioning, nullptr,
                                    AM_SEEKING_NoPositioning),
              S_OK);
    ASSERT_TRUE(RunToCompletion());
    const std::vector<BYTE> tail(samples.begin() + 44100 * 4 * 3 / 2, samples.end());
    EXPECT_EQ(tap.Bytes(), tail);
}

TEST_F(RenderFile, SeekingWhileRunningFlushesAndGoesOn) {
    mw::wave::SetVirtualOutputPaced(true);
    const auto samples = PatternSamples(44100 * 4, 2, 2, false);
    const std::string path = dir.File("r.wav");
    WriteWav(path, 44100, 2, 16, false, samples);
    ASSERT_EQ(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr), S_OK);
    TapCapture tap;
    ASSERT_EQ(control->Run(), S_OK);
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() > 0; }));
    auto seeking = As<IMediaSeeking>(graph.Get());
    LONGLONG at = 39000000;  // 3.9 s: 0.1 s are left
    ASSERT_EQ(seeking->SetPositions(&at, AM_SEEKING_AbsolutePositioning, nullptr,
                                    AM_SEEKING_NoPositioning),
              S_OK);
    std::vector<LONG> seen;
    ASSERT_TRUE(WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); }));
    // What played ends with the file's last tenth of a second.
    const auto bytes = tap.Bytes();
    const size_t last = 44100 * 4 / 10;
    ASSERT_GE(bytes.size(), last);
    EXPECT_TRUE(std::equal(bytes.end() - last, bytes.end(), samples.end() - last));
    EXPECT_LT(bytes.size(), samples.size());
}

TEST_F(RenderFile, BadFilesAreRefusedAndLeaveNothingBehind) {
    const std::string junk = dir.File("junk.wav");
    WriteBytes(junk, "this is no media file at all");
    EXPECT_EQ(graph->RenderFile(mw::Utf8ToUtf16(junk).c_str(), nullptr), VFW_E_UNSUPPORTED_STREAM);
    EXPECT_EQ(graph->RenderFile(mw::Utf8ToUtf16(dir.File("none.flac")).c_str(), nullptr),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    ComPtr<IEnumFilters> e;
    ASSERT_EQ(graph->EnumFilters(e.ReleaseAndGetAddressOf()), S_OK);
    int count = 0;
    ComPtr<IBaseFilter> f;
    while (e->Next(1, f.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        ++count;
    EXPECT_EQ(count, 1);  // only the renderer
}

TEST_F(RenderFile, SavedGraphLoadsBackWithItsConnections) {
    const auto samples = PatternSamples(4410, 1, 2, false);
    const std::string path = dir.File("p.wav");
    WriteWav(path, 44100, 1, 16, false, samples);
    ASSERT_EQ(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr), S_OK);
    const std::u16string file = mw::Utf8ToUtf16(dir.File("graph.grf"));
    {
        ComPtr<IStorage> storage;
        ASSERT_EQ(StgCreateDocfile(file.c_str(), 0x11012, 0, storage.ReleaseAndGetAddressOf()),
                  S_OK);
        ComPtr<IStream> stream;
        ASSERT_EQ(storage->CreateStream(u"ActiveMovieGraph", 0x1011, 0, 0,
                                        stream.ReleaseAndGetAddressOf()),
                  S_OK);
        ASSERT_EQ(As<IPersistStream>(graph.Get())->Save(stream.Get(), TRUE), S_OK);
        stream = nullptr;
        ASSERT_EQ(storage->Commit(0), S_OK);
    }
    ComPtr<IStorage> storage;
    ASSERT_EQ(StgOpenStorage(file.c_str(), nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, nullptr, 0,
                             storage.ReleaseAndGetAddressOf()),
              S_OK);
    ComPtr<IStream> stream;
    ASSERT_EQ(storage->OpenStream(u"ActiveMovieGraph", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0,
                                  stream.ReleaseAndGetAddressOf()),
              S_OK);
    auto loaded = Create<IGraphBuilder>(CLSID_FilterGraph);
    ASSERT_EQ(As<IPersistStream>(loaded.Get())->Load(stream.Get()), S_OK);
    ComPtr<IBaseFilter> source, render;
    ASSERT_EQ(
        loaded->FindFilterByName(mw::Utf8ToUtf16(path).c_str(), source.ReleaseAndGetAddressOf()),
        S_OK);
    ASSERT_EQ(loaded->FindFilterByName(u"Audio Render", render.ReleaseAndGetAddressOf()), S_OK);
    ComPtr<IPin> peer;
    ASSERT_EQ(PinOf(source.Get(), PINDIR_OUTPUT)->ConnectedTo(peer.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(peer.Get(), PinOf(render.Get(), PINDIR_INPUT).Get());
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(peer->ConnectionMediaType(&mt), S_OK);
    EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(mt.pbFormat)->nChannels, 1);
    CoTaskMemFree(mt.pbFormat);
}

}  // namespace

namespace {

TEST_F(RenderFile, ConnectInsertsTheConverterBetweenPinsThatDisagree) {
    // Float at 48 kHz from the file, 16-bit at 44.1 kHz wanted by the grabber.
    const unsigned frames = 48000;
    const auto samples = PatternSamples(frames, 2, 4, true);
    const std::string path = dir.File("f.wav");
    WriteWav(path, 48000, 2, 32, true, samples);
    ComPtr<IBaseFilter> source;
    ASSERT_EQ(graph->AddSourceFilter(mw::Utf8ToUtf16(path).c_str(), u"Source",
                                     source.ReleaseAndGetAddressOf()),
              S_OK);
    auto grabberFilter = Create<IBaseFilter>(CLSID_SampleGrabber);
    auto grabber = As<ISampleGrabber>(grabberFilter.Get());
    WAVEFORMATEX wanted{WAVE_FORMAT_PCM, 2, 44100, 44100 * 4, 4, 16, 0};
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Audio;
    mt.subtype = MEDIASUBTYPE_PCM;
    mt.formattype = FORMAT_WaveFormatEx;
    mt.bFixedSizeSamples = TRUE;
    mt.lSampleSize = 4;
    mt.cbFormat = sizeof wanted;
    mt.pbFormat = reinterpret_cast<BYTE*>(&wanted);
    ASSERT_EQ(grabber->SetMediaType(&mt), S_OK);
    ASSERT_EQ(graph->AddFilter(grabberFilter.Get(), u"Sample Grabber"), S_OK);
    auto out = PinOf(source.Get(), PINDIR_OUTPUT);
    auto in = PinOf(grabberFilter.Get(), PINDIR_INPUT);
    EXPECT_EQ(graph->ConnectDirect(out.Get(), in.Get(), nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    ASSERT_EQ(graph->Connect(out.Get(), in.Get()), S_OK);
    // Something stands between the two now.
    ComPtr<IPin> peer;
    ASSERT_EQ(out->ConnectedTo(peer.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_NE(peer.Get(), in.Get());
    AM_MEDIA_TYPE got{};
    ASSERT_EQ(grabber->GetConnectedMediaType(&got), S_OK);
    EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(got.pbFormat)->nSamplesPerSec, 44100u);
    EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(got.pbFormat)->wBitsPerSample, 16);
    CoTaskMemFree(got.pbFormat);

    ASSERT_EQ(graph->RemoveFilter(renderer.Get()), S_OK);
    ASSERT_EQ(grabber->SetBufferSamples(TRUE), S_OK);
    ASSERT_TRUE(RunToCompletion());
    LONG size = 0;
    ASSERT_EQ(grabber->GetCurrentBuffer(&size, nullptr), S_OK);
    EXPECT_GT(size, 0);
    EXPECT_EQ(size % 4, 0);

    // A pair that no filter can join.
    auto null = Create<IBaseFilter>(CLSID_NullRenderer);
    ASSERT_EQ(control->Stop(), S_OK);
    ASSERT_EQ(graph->AddFilter(null.Get(), u"Null"), S_OK);
    auto grabber2 = Create<IBaseFilter>(CLSID_SampleGrabber);
    AM_MEDIA_TYPE video{};
    video.majortype = MEDIATYPE_Video;
    As<ISampleGrabber>(grabber2.Get())->SetMediaType(&video);
    ASSERT_EQ(graph->AddFilter(grabber2.Get(), u"Video Grabber"), S_OK);
    ComPtr<IBaseFilter> source2;
    ASSERT_EQ(graph->AddSourceFilter(mw::Utf8ToUtf16(path).c_str(), u"Source 2",
                                     source2.ReleaseAndGetAddressOf()),
              S_OK);
    EXPECT_EQ(graph->Connect(PinOf(source2.Get(), PINDIR_OUTPUT).Get(),
                             PinOf(grabber2.Get(), PINDIR_INPUT).Get()),
              VFW_E_CANNOT_CONNECT);
    ComPtr<IEnumFilters> e;
    graph->EnumFilters(e.ReleaseAndGetAddressOf());
    int count = 0;
    ComPtr<IBaseFilter> f;
    while (e->Next(1, f.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        ++count;
    EXPECT_EQ(count, 6);  // source, converter, grabber, null, video grabber, source 2
}

}  // namespace

namespace {

TEST_F(RenderFile, GainFilterFromTheCatalogueProcessesTheAudio) {
    std::vector<uint8_t> samples(4410 * 4);
    for (size_t i = 0; i < samples.size(); i += 2) {
        const int16_t v = 16000;
        std::memcpy(&samples[i], &v, 2);
    }
    const std::string path = dir.File("g.wav");
    WriteWav(path, 44100, 2, 16, false, samples);
    // Found by its friendly name in the general list, as a host finds a filter.
    auto mapper = Create<IFilterMapper2>(CLSID_FilterMapper2);
    ComPtr<IEnumMoniker> e;
    ASSERT_EQ(mapper->EnumMatchingFilters(e.ReleaseAndGetAddressOf(), 0, FALSE, 0x200000, FALSE, 0,
                                          nullptr, nullptr, nullptr, FALSE, FALSE, 0, nullptr,
                                          nullptr, nullptr),
              S_OK);
    ComPtr<IBaseFilter> gain;
    ComPtr<IMoniker> m;
    while (!gain && e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        ComPtr<IPropertyBag> bag;
        m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                         reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()));
        VARIANT v;
        VariantInit(&v);
        if (SUCCEEDED(bag->Read(u"FriendlyName", &v, nullptr)) &&
            std::u16string(v.bstrVal) == u"Audio Gain")
            m->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                            reinterpret_cast<void**>(gain.ReleaseAndGetAddressOf()));
        VariantClear(&v);
    }
    ASSERT_TRUE(gain);
    ASSERT_EQ(As<IBasicAudio>(gain.Get())->put_Volume(-600), S_OK);
    ASSERT_EQ(graph->AddFilter(gain.Get(), u"Process Filter"), S_OK);
    ComPtr<IBaseFilter> source;
    ASSERT_EQ(graph->AddSourceFilter(mw::Utf8ToUtf16(path).c_str(), u"Source",
                                     source.ReleaseAndGetAddressOf()),
              S_OK);
    ASSERT_EQ(graph->Connect(PinOf(source.Get(), PINDIR_OUTPUT).Get(),
                             PinOf(gain.Get(), PINDIR_INPUT).Get()),
              S_OK);
    ASSERT_EQ(graph->Render(PinOf(gain.Get(), PINDIR_OUTPUT).Get()), S_OK);
    TapCapture tap;
    ASSERT_TRUE(RunToCompletion());
    const auto bytes = tap.Bytes();
    ASSERT_EQ(bytes.size(), samples.size());
    int16_t first;
    std::memcpy(&first, bytes.data(), 2);
    EXPECT_NEAR(first, 16000 * 0.501, 20);
}

}  // namespace
