// The catalogue (categories, monikers, bags, the mapper) and the sample grabber, and the graph
// description saved into a compound file and loaded back.
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <string>

#include "media_base/DSBaseClass.h"
#include "mwstring.h"
#include "tests/graph_service/GraphTestSupport.h"

using namespace mw::test;

namespace {

const CLSID kSourceClsid = {
    0x6d1a0c56, 0x3b1e, 0x4c1f, {0x9a, 0x51, 0x11, 0x22, 0x33, 0x44, 0x55, 0x67}};

std::u16string BagText(IMoniker* m, const char16_t* name) {
    ComPtr<IPropertyBag> bag;
    if (FAILED(m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()))))
        return {};
    VARIANT v;
    VariantInit(&v);
    std::u16string s;
    if (SUCCEEDED(bag->Read(name, &v, nullptr)) && v.vt == VT_BSTR) s = v.bstrVal;
    VariantClear(&v);
    return s;
}

std::vector<ComPtr<IMoniker>> Category(REFCLSID category, HRESULT* result = nullptr) {
    auto devEnum = GraphTest::Create<ICreateDevEnum>(CLSID_SystemDeviceEnum);
    std::vector<ComPtr<IMoniker>> all;
    ComPtr<IEnumMoniker> e;
    const HRESULT hr = devEnum->CreateClassEnumerator(category, e.ReleaseAndGetAddressOf(), 0);
    if (result) *result = hr;
    if (hr != S_OK) return all;
    ComPtr<IMoniker> m;
    while (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        all.push_back(m);
    return all;
}

using Catalogue = GraphTest;

TEST_F(Catalogue, AudioRenderersOnePerWaveDeviceWithBagsAndWorkingFilters) {
    const auto monikers = Category(CLSID_AudioRendererCategory);
    // The default device and every wave output device.
    ASSERT_EQ(monikers.size(), waveOutGetNumDevs() + 1);
    bool virtualOutput = false;
    for (const auto& m : monikers) {
        EXPECT_FALSE(BagText(m.Get(), u"FriendlyName").empty());
        const std::u16string clsid = BagText(m.Get(), u"CLSID");
        EXPECT_TRUE(clsid == u"{E30629D1-27E5-11CE-875D-00608CB78066}" ||
                    clsid == u"{79376820-07D0-11CF-A24D-0020AFD79767}");
        LPOLESTR name = nullptr;
        ASSERT_EQ(m->GetDisplayName(nullptr, nullptr, &name), S_OK);
        EXPECT_EQ(
            std::u16string(name).rfind(u"@device:cm:{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}\\", 0),
            0u);
        CoTaskMemFree(name);
        virtualOutput = virtualOutput || BagText(m.Get(), u"FriendlyName") == u"Virtual Output";
        ComPtr<IBaseFilter> f;
        ASSERT_EQ(m->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                  reinterpret_cast<void**>(f.ReleaseAndGetAddressOf())),
                  S_OK);
        CLSID id{};
        f->GetClassID(&id);
        EXPECT_TRUE(IsEqualGUID(id, CLSID_AudioRender) || IsEqualGUID(id, CLSID_DSoundRender));
    }
    EXPECT_TRUE(virtualOutput);

    // The default form of the display name names the default device.
    ComPtr<IBindCtx> ctx;
    ASSERT_EQ(CreateBindCtx(0, ctx.ReleaseAndGetAddressOf()), S_OK);
    ULONG eaten = 0;
    ComPtr<IMoniker> def;
    ASSERT_EQ(MkParseDisplayName(ctx.Get(), u"@device:*:{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}",
                                 &eaten, def.ReleaseAndGetAddressOf()),
              S_OK);
    EXPECT_EQ(BagText(def.Get(), u"FriendlyName"), u"Default Audio Device");
}

TEST_F(Catalogue, EmptyCategoryAnswersSFalseAndCategoriesAreListed) {
    const GUID unused = {0x1234, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    HRESULT hr = S_OK;
    EXPECT_TRUE(Category(unused, &hr).empty());
    EXPECT_EQ(hr, S_FALSE);
    bool renderers = false;
    for (const auto& m : Category(CLSID_ActiveMovieCategories))
        renderers =
            renderers || BagText(m.Get(), u"CLSID") == u"{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}";
    EXPECT_TRUE(renderers);
}

TEST_F(Catalogue, MapperEnumeratesByMeritAndType) {
    auto mapper = Create<IFilterMapper2>(CLSID_FilterMapper2);
    ComPtr<IEnumMoniker> e;
    ASSERT_EQ(mapper->EnumMatchingFilters(e.ReleaseAndGetAddressOf(), 0, FALSE, 0x200000, FALSE, 0,
                                          nullptr, nullptr, nullptr, FALSE, FALSE, 0, nullptr,
                                          nullptr, nullptr),
              S_OK);
    std::vector<std::u16string> names;
    ComPtr<IMoniker> m;
    while (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        names.push_back(BagText(m.Get(), u"FriendlyName"));
    ASSERT_GE(names.size(), 3u);
    EXPECT_EQ(names.front(), u"Default Audio Device");  // the highest merit comes first
    EXPECT_NE(std::find(names.begin(), names.end(), u"Null Renderer"), names.end());

    // Above "do not use", audio: only the renderer.
    const GUID audio[2] = {MEDIATYPE_Audio, MEDIASUBTYPE_PCM};
    ASSERT_EQ(
        mapper->EnumMatchingFilters(e.ReleaseAndGetAddressOf(), 0, FALSE, 0x200001, TRUE, 1, audio,
                                    nullptr, nullptr, TRUE, FALSE, 0, nullptr, nullptr, nullptr),
        S_OK);
    names.clear();
    while (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        names.push_back(BagText(m.Get(), u"FriendlyName"));
    EXPECT_EQ(names, std::vector<std::u16string>{u"Default Audio Device"});
}

class Counter final : public ISampleGrabberCB {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** p) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_ISampleGrabberCB)) {
            *p = this;
            return S_OK;
        }
        *p = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP SampleCB(double, IMediaSample* s) override {
        bytes += s->GetActualDataLength();
        ++samples;
        return S_OK;
    }
    STDMETHODIMP BufferCB(double, BYTE*, LONG) override { return S_OK; }
    std::atomic<long> bytes{0}, samples{0};
};

TEST_F(Catalogue, GrabberSeesEverySampleAndPassesThemToTheRenderer) {
    auto graph = Create<IGraphBuilder>(CLSID_FilterGraph);
    auto* source = new TDSAudioSourceFilter(kSourceClsid);
    ComPtr<IBaseFilter> sourceRef = source->AsBaseFilter();
    TQAWaveFormatExtensible f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = 2;
    f.nSamplesPerSec = 44100;
    f.wBitsPerSample = 16;
    f.nBlockAlign = 4;
    f.nAvgBytesPerSec = 44100 * 4;
    source->SetFormat(f, true, 20);
    auto grabberFilter = Create<IBaseFilter>(CLSID_SampleGrabber);
    auto grabber = As<ISampleGrabber>(grabberFilter.Get());
    ASSERT_TRUE(grabber);
    AM_MEDIA_TYPE video{};
    video.majortype = MEDIATYPE_Video;
    ASSERT_EQ(grabber->SetMediaType(&video), S_OK);
    auto null = Create<IBaseFilter>(CLSID_NullRenderer);
    ASSERT_EQ(graph->AddFilter(sourceRef.Get(), u"AudioSource"), S_OK);
    ASSERT_EQ(graph->AddFilter(grabberFilter.Get(), u"Sample Grabber [0]"), S_OK);
    ASSERT_EQ(graph->AddFilter(null.Get(), u"Null"), S_OK);
    auto out = PinOf(sourceRef.Get(), PINDIR_OUTPUT);
    auto in = PinOf(grabberFilter.Get(), PINDIR_INPUT);
    // A grabber narrowed to video takes no audio.
    EXPECT_TRUE(FAILED(graph->ConnectDirect(out.Get(), in.Get(), nullptr)));
    AM_MEDIA_TYPE audio{};
    audio.majortype = MEDIATYPE_Audio;
    ASSERT_EQ(grabber->SetMediaType(&audio), S_OK);
    ASSERT_EQ(graph->ConnectDirect(out.Get(), in.Get(), nullptr), S_OK);
    ASSERT_EQ(graph->Connect(PinOf(grabberFilter.Get(), PINDIR_OUTPUT).Get(),
                             PinOf(null.Get(), PINDIR_INPUT).Get()),
              S_OK);
    AM_MEDIA_TYPE connected{};
    ASSERT_EQ(grabber->GetConnectedMediaType(&connected), S_OK);
    EXPECT_TRUE(IsEqualGUID(connected.formattype, FORMAT_WaveFormatEx));
    EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(connected.pbFormat)->nSamplesPerSec, 44100u);
    CoTaskMemFree(connected.pbFormat);

    Counter cb;
    ASSERT_EQ(grabber->SetBufferSamples(TRUE), S_OK);
    ASSERT_EQ(grabber->SetCallback(&cb, 0), S_OK);
    auto control = As<IMediaControl>(graph.Get());
    auto events = As<IMediaEventEx>(graph.Get());
    ASSERT_EQ(control->Run(), S_OK);
    std::vector<BYTE> data(3000);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<BYTE>(i);
    for (int i = 0; i < 10; ++i)
        ASSERT_TRUE(source->SendData(data.data(), 3000, 0, 0, false));
    ASSERT_EQ(source->DeliverEndOfStream(), S_OK);
    std::vector<LONG> seen;
    ASSERT_TRUE(WaitUntil([&] { return Saw(events.Get(), EC_COMPLETE, &seen); }));
    EXPECT_EQ(cb.bytes.load(), 30000);
    LONG size = 0;
    ASSERT_EQ(grabber->GetCurrentBuffer(&size, nullptr), S_OK);
    EXPECT_GT(size, 0);
    ASSERT_EQ(grabber->SetCallback(nullptr, 0), S_OK);
    control->Stop();
}

TEST_F(Catalogue, SavedGraphLoadsBackWithTheSameFiltersAndConnections) {
    char path[] = "/tmp/mw_graph_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    const std::u16string file = mw::Utf8ToUtf16(path);
    {
        auto graph = Create<IGraphBuilder>(CLSID_FilterGraph);
        auto grabber = Create<IBaseFilter>(CLSID_SampleGrabber);
        auto null = Create<IBaseFilter>(CLSID_NullRenderer);
        ASSERT_EQ(graph->AddFilter(grabber.Get(), u"Grabber"), S_OK);
        ASSERT_EQ(graph->AddFilter(null.Get(), u"Null"), S_OK);
        auto renderer = AudioRendererFor(u"Virtual Output");
        ASSERT_EQ(graph->AddFilter(renderer.Get(), u"Audio Render"), S_OK);
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
    auto graph = Create<IGraphBuilder>(CLSID_FilterGraph);
    ASSERT_EQ(As<IPersistStream>(graph.Get())->Load(stream.Get()), S_OK);
    ComPtr<IBaseFilter> f;
    ASSERT_EQ(graph->FindFilterByName(u"Grabber", f.ReleaseAndGetAddressOf()), S_OK);
    CLSID id{};
    f->GetClassID(&id);
    EXPECT_TRUE(IsEqualGUID(id, CLSID_SampleGrabber));
    ASSERT_EQ(graph->FindFilterByName(u"Null", f.ReleaseAndGetAddressOf()), S_OK);
    ASSERT_EQ(graph->FindFilterByName(u"Audio Render", f.ReleaseAndGetAddressOf()), S_OK);
    f->GetClassID(&id);
    EXPECT_TRUE(IsEqualGUID(id, CLSID_AudioRender));
    std::remove(path);
}

}  // namespace
