// The streaming side of the effects: types offered and taken, input and output buffers with
// their times, flush, discontinuity and clones.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;
using mw::test::Effect;
using mw::test::WaveType;

// A plain media buffer over its own bytes; isolates the effect from the system's buffers.
class TestBuffer final : public IMediaBuffer {
public:
    explicit TestBuffer(DWORD max) : FBytes(max) {}
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMediaBuffer)) {
            *ppv = this;
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++FRefs; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG n = --FRefs;
        if (n == 0) delete this;
        return n;
    }
    STDMETHODIMP SetLength(DWORD n) override {
        if (n > FBytes.size()) return E_INVALIDARG;
        FLength = n;
        return S_OK;
    }
    STDMETHODIMP GetMaxLength(DWORD* n) override {
        *n = DWORD(FBytes.size());
        return S_OK;
    }
    STDMETHODIMP GetBufferAndLength(BYTE** p, DWORD* n) override {
        if (p) *p = FBytes.data();
        if (n) *n = FLength;
        return S_OK;
    }
    float* Floats() { return reinterpret_cast<float*>(FBytes.data()); }
    ULONG Refs() const { return FRefs; }

private:
    std::atomic<ULONG> FRefs{1};
    std::vector<BYTE> FBytes;
    DWORD FLength = 0;
};

ComPtr<IMediaObject> NewEffect(const char* name) {
    ComPtr<IMediaObject> o;
    EXPECT_EQ(CoCreateInstance(mw::test::EffectClass(name), nullptr, 3, IID_IMediaObject,
                               o.ReleaseAndGetVoidAddress()),
              S_OK);
    return o;
}

TEST(DmoStreaming, OffersFloatAndPcmAndTakesOnlyWhatItProcesses) {
    ComScope com;
    auto fx = NewEffect("Echo");
    DWORD in = 0, out = 0;
    ASSERT_EQ(fx->GetStreamCount(&in, &out), S_OK);
    EXPECT_EQ(in + out, 2u);
    DMO_MEDIA_TYPE mt;
    ASSERT_EQ(fx->GetInputType(0, 0, &mt), S_OK);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_IEEE_FLOAT);
    MoFreeMediaType(&mt);
    ASSERT_EQ(fx->GetInputType(0, 1, &mt), S_OK);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_PCM);
    MoFreeMediaType(&mt);
    EXPECT_EQ(fx->GetInputType(0, 2, &mt), DMO_E_NO_MORE_ITEMS);
    EXPECT_EQ(fx->GetInputType(1, 0, &mt), DMO_E_INVALIDSTREAMINDEX);

    // Formats it can't take.
    WaveType pcm24(48000, 2, 24), pcm8(48000, 1, 8);
    EXPECT_EQ(fx->SetInputType(0, &pcm24.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    EXPECT_EQ(fx->SetInputType(0, &pcm8.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    WaveType badAlign(48000, 2, 16);
    badAlign.Format()->nBlockAlign = 3;
    EXPECT_EQ(fx->SetInputType(0, &badAlign.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    WaveType video(48000, 2, 16);
    video.Mt.majortype = MEDIATYPE_Video;
    EXPECT_EQ(fx->SetInputType(0, &video.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    WaveType mismatched(48000, 2, 32);
    mismatched.Mt.subtype = MEDIASUBTYPE_PCM;
    EXPECT_EQ(fx->SetInputType(0, &mismatched.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    EXPECT_EQ(fx->SetInputType(0, nullptr, 0), E_POINTER);
    EXPECT_EQ(fx->GetInputCurrentType(0, &mt), DMO_E_TYPE_NOT_SET);

    // Test only leaves it unset; extensible records are taken as well.
    WaveType ext(44100, 2, 16, true);
    EXPECT_EQ(fx->SetInputType(0, &ext.Mt, DMO_SET_TYPEF_TEST_ONLY), S_OK);
    EXPECT_EQ(fx->GetInputCurrentType(0, &mt), DMO_E_TYPE_NOT_SET);
    ASSERT_EQ(fx->SetInputType(0, &ext.Mt, 0), S_OK);
    // The output can only be the same.
    ASSERT_EQ(fx->GetOutputType(0, 0, &mt), S_OK);
    EXPECT_EQ(mt.cbFormat, ext.Mt.cbFormat);
    MoFreeMediaType(&mt);
    EXPECT_EQ(fx->GetOutputType(0, 1, &mt), DMO_E_NO_MORE_ITEMS);
    WaveType other(48000, 2, 16, true);
    EXPECT_EQ(fx->SetOutputType(0, &other.Mt, 0), DMO_E_TYPE_NOT_ACCEPTED);
    // Not streaming before both types are set.
    BYTE bytes[16] = {};
    auto inPlace = fx.As<IMediaObjectInPlace>();
    EXPECT_EQ(inPlace->Process(16, bytes, 0, 0), DMO_E_TYPE_NOT_SET);
    ASSERT_EQ(fx->SetOutputType(0, &ext.Mt, 0), S_OK);
    EXPECT_EQ(inPlace->Process(16, bytes, 0, 0), S_OK);
    DWORD size = 0, look = 1, align = 0;
    ASSERT_EQ(fx->GetInputSizeInfo(0, &size, &look, &align), S_OK);
    EXPECT_EQ(size, 4u);
    // Clearing the type stops the stream again.
    ASSERT_EQ(fx->SetInputType(0, nullptr, DMO_SET_TYPEF_CLEAR), S_OK);
    EXPECT_EQ(inPlace->Process(16, bytes, 0, 0), DMO_E_TYPE_NOT_SET);
}

TEST(DmoStreaming, InputAndOutputBuffersGiveWhatProcessInPlaceGives) {
    ComScope com;
    Effect a("Chorus"), b("Chorus");
    auto signal = mw::test::Noise(0.5, 2, 3000);
    auto expected = signal;
    a.Run(expected, 1'000'000);

    auto* in = new TestBuffer(DWORD(signal.size() * 4));
    std::memcpy(in->Floats(), signal.data(), signal.size() * 4);
    in->SetLength(DWORD(signal.size() * 4));
    ComPtr<IMediaBuffer> inRef = MwAdopt<IMediaBuffer>(in);
    ASSERT_EQ(b.Object->ProcessInput(0, in, DMO_INPUT_DATA_BUFFERF_TIME, 1'000'000, 0), S_OK);
    EXPECT_GT(in->Refs(), 1u);  // held until given out
    DWORD status = 0;
    ASSERT_EQ(b.Object->GetInputStatus(0, &status), S_OK);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(b.Object->ProcessInput(0, in, 0, 0, 0), DMO_E_NOTACCEPTING);

    // An output buffer of 1000 frames at a time: three rounds, the first two incomplete.
    std::vector<float> got;
    REFERENCE_TIME firstStamp = -1;
    for (int round = 0; round < 3; ++round) {
        auto* out = new TestBuffer(1000 * 8);
        ComPtr<IMediaBuffer> outRef = MwAdopt<IMediaBuffer>(out);
        DMO_OUTPUT_DATA_BUFFER db{out, 0, 0, 0};
        ASSERT_EQ(b.Object->ProcessOutput(0, 1, &db, &status), S_OK);
        EXPECT_EQ(bool(db.dwStatus & DMO_OUTPUT_DATA_BUFFERF_INCOMPLETE), round < 2);
        EXPECT_TRUE(db.dwStatus & DMO_OUTPUT_DATA_BUFFERF_TIME);
        if (round == 0) firstStamp = db.rtTimestamp;
        if (round == 1) {
            EXPECT_EQ(db.rtTimestamp, 1'000'000 + 1000 * 10'000'000LL / 48000);
        }
        EXPECT_EQ(db.rtTimelength, 1000 * 10'000'000LL / 48000);
        BYTE* p;
        DWORD n;
        out->GetBufferAndLength(&p, &n);
        ASSERT_EQ(n, 8000u);
        got.insert(got.end(), out->Floats(), out->Floats() + 2000);
    }
    EXPECT_EQ(firstStamp, 1'000'000);
    EXPECT_EQ(got, expected);
    EXPECT_EQ(in->Refs(), 1u);  // let go of once all was given out
    DMO_OUTPUT_DATA_BUFFER db{nullptr, 0, 0, 0};
    EXPECT_EQ(b.Object->ProcessOutput(0, 1, &db, &status), S_FALSE);
    ASSERT_EQ(b.Object->GetInputStatus(0, &status), S_OK);
    EXPECT_EQ(status, DWORD(DMO_INPUT_STATUSF_ACCEPT_DATA));
}

TEST(DmoStreaming, DiscardedOutputStillMovesTheState) {
    ComScope com;
    Effect fx("Echo");
    fx.Set(0, 100);
    fx.Set(2, 1);  // 48 frames
    auto* in = new TestBuffer(8 * 10);
    ComPtr<IMediaBuffer> inRef = MwAdopt<IMediaBuffer>(in);
    in->Floats()[0] = 1.0f;
    in->SetLength(80);
    ASSERT_EQ(fx.Object->ProcessInput(0, in, 0, 0, 0), S_OK);
    DMO_OUTPUT_DATA_BUFFER db{nullptr, 0, 0, 0};
    DWORD status;
    EXPECT_EQ(fx.Object->ProcessOutput(0, 1, &db, &status), E_POINTER);
    ASSERT_EQ(fx.Object->ProcessOutput(DMO_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER, 1, &db, &status),
              S_OK);
    std::vector<float> next(2 * 100, 0.0f);
    fx.Run(next, 10 * 10'000'000LL / 48000);
    EXPECT_EQ(next[38 * 2], 1.0f);  // the echo of the discarded impulse
}

TEST(DmoStreaming, FlushAndDiscontinuityForgetTheTail) {
    ComScope com;
    for (bool flush : {true, false}) {
        Effect fx("Echo");
        fx.Set(0, 100);
        fx.Set(2, 1);
        std::vector<float> s(2 * 10, 0.0f);
        s[0] = 1.0f;
        fx.Run(s);
        ASSERT_EQ(flush ? fx.Object->Flush() : fx.Object->Discontinuity(0), S_OK);
        std::vector<float> after(2 * 100, 0.0f);
        fx.Run(after);
        for (float v : after)
            ASSERT_EQ(v, 0.0f);
    }
    auto untyped = NewEffect("Gain");
    EXPECT_EQ(untyped->Discontinuity(0), DMO_E_TYPE_NOT_SET);
    EXPECT_EQ(untyped->Flush(), S_OK);
}

TEST(DmoStreaming, ZeroFlagRendersTheTail) {
    ComScope com;
    Effect fx("Echo");
    fx.Set(0, 100);
    fx.Set(2, 1);
    std::vector<float> s(2 * 10, 0.0f);
    s[0] = 1.0f;
    fx.Run(s);
    std::vector<float> garbage(2 * 100, 7.0f);
    ASSERT_EQ(fx.InPlace->Process(ULONG(garbage.size() * 4),
                                  reinterpret_cast<BYTE*>(garbage.data()), 0, DMO_INPLACE_ZERO),
              S_OK);
    EXPECT_EQ(garbage[38 * 2], 1.0f);
    EXPECT_EQ(garbage[37 * 2], 0.0f);
}

TEST(DmoStreaming, CloneCarriesTypesAndValues) {
    ComScope com;
    Effect fx("ParamEq");
    fx.Set(0, 1234);
    fx.Set(2, -9);
    ComPtr<IMediaObjectInPlace> copy;
    ASSERT_EQ(fx.InPlace->Clone(copy.ReleaseAndGetAddressOf()), S_OK);
    auto params = copy.As<IMediaParams>();
    float v = 0;
    ASSERT_EQ(params->GetParam(0, &v), S_OK);
    EXPECT_EQ(v, 1234.0f);
    auto a = mw::test::Noise(0.5, 2, 4800), b = a;
    fx.Run(a);
    ASSERT_EQ(copy->Process(ULONG(b.size() * 4), reinterpret_cast<BYTE*>(b.data()), 0, 0), S_OK);
    EXPECT_EQ(a, b);
}

TEST(DmoStreaming, PcmSamplesAreClippedNotWrapped) {
    ComScope com;
    Effect fx("Gain", 48000, 1, 16);
    fx.Set(0, 20);
    int16_t pcm[4] = {20000, -20000, 100, -100};
    ASSERT_EQ(fx.InPlace->Process(8, reinterpret_cast<BYTE*>(pcm), 0, 0), S_OK);
    EXPECT_EQ(pcm[0], 32767);
    EXPECT_EQ(pcm[1], -32768);
    EXPECT_EQ(pcm[2], 1000);
    EXPECT_EQ(pcm[3], -1000);
}

}  // namespace
