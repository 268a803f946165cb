// Parameters of the effects: descriptions and texts, values and their limits, time formats and
// envelopes applied to the frame in stream time.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;
using mw::test::Effect;

constexpr uint32_t kRate = 48000;

std::vector<std::string> TextBlock(IMediaParamInfo* info, DWORD index) {
    WCHAR* block = nullptr;
    EXPECT_EQ(info->GetParamText(index, &block), S_OK);
    // Label and unit (either may be empty), then the enum texts up to an empty one.
    std::vector<std::string> texts;
    const WCHAR* p = block;
    for (int i = 0; i < 2; ++i, p += mw::U16Len(p) + 1)
        texts.push_back(mw::Utf16ToUtf8(p));
    for (; *p; p += mw::U16Len(p) + 1)
        texts.push_back(mw::Utf16ToUtf8(p));
    CoTaskMemFree(block);
    return texts;
}

TEST(DmoParams, DescriptionsAreConsistentForEveryEffect) {
    ComScope com;
    for (const char* name : {"Gain", "Echo", "Chorus", "Flanger", "Compressor", "ParamEq",
                             "Distortion", "Gargle", "Reverb"}) {
        Effect fx(name);
        DWORD count = 0;
        ASSERT_EQ(fx.Info->GetParamCount(&count), S_OK);
        EXPECT_GE(count, 2u) << name;
        for (DWORD i = 0; i < count; ++i) {
            MP_PARAMINFO info;
            ASSERT_EQ(fx.Info->GetParamInfo(i, &info), S_OK);
            EXPECT_LE(info.mpdMinValue, info.mpdNeutralValue) << name << i;
            EXPECT_LE(info.mpdNeutralValue, info.mpdMaxValue) << name << i;
            EXPECT_NE(info.szLabel[0], 0) << name << i;
            EXPECT_EQ(fx.Get(i), info.mpdNeutralValue) << name << i;
            const auto texts = TextBlock(fx.Info.Get(), i);
            ASSERT_GE(texts.size(), 1u);
            EXPECT_EQ(texts[0], mw::Utf16ToUtf8(info.szLabel));
            if (info.mpType == MPT_ENUM) {
                EXPECT_EQ(texts.size(), 2 + size_t(info.mpdMaxValue - info.mpdMinValue + 1))
                    << name << i;
            }
            EXPECT_EQ(info.mopCaps & MP_CAPS_CURVE_JUMP, MP_CAPS_CURVE_JUMP);
        }
        MP_PARAMINFO info;
        EXPECT_EQ(fx.Info->GetParamInfo(count, &info), E_INVALIDARG);
        WCHAR* block = nullptr;
        EXPECT_EQ(fx.Info->GetParamText(count, &block), E_INVALIDARG);
        EXPECT_EQ(block, nullptr);
        float v;
        EXPECT_EQ(fx.Params->GetParam(count, &v), E_INVALIDARG);
        EXPECT_EQ(fx.Params->SetParam(count, 1), E_INVALIDARG);
    }
}

TEST(DmoParams, EnumAndUnitTexts) {
    ComScope com;
    Effect chorus("Chorus");
    EXPECT_EQ(TextBlock(chorus.Info.Get(), 4),
              (std::vector<std::string>{"Waveform", "", "Triangle", "Sine"}));
    EXPECT_EQ(TextBlock(chorus.Info.Get(), 6),
              (std::vector<std::string>{"Phase", "", "-180", "-90", "0", "90", "180"}));
    EXPECT_EQ(TextBlock(chorus.Info.Get(), 5), (std::vector<std::string>{"Delay", "ms"}));
    MP_PARAMINFO info;
    ASSERT_EQ(chorus.Info->GetParamInfo(4, &info), S_OK);
    EXPECT_EQ(info.mpType, MPT_ENUM);
    EXPECT_EQ(info.mopCaps, MP_CAPS_CURVE_JUMP);
    Effect gargle("Gargle");
    ASSERT_EQ(gargle.Info->GetParamInfo(0, &info), S_OK);
    EXPECT_EQ(info.mpType, MPT_INT);
    Effect echo("Echo");
    ASSERT_EQ(echo.Info->GetParamInfo(4, &info), S_OK);
    EXPECT_EQ(info.mpType, MPT_BOOL);
}

TEST(DmoParams, ValuesAreClampedAndMadeWhole) {
    ComScope com;
    Effect echo("Echo");
    echo.Set(2, 5000);
    EXPECT_EQ(echo.Get(2), 2000.0f);
    echo.Set(2, -3);
    EXPECT_EQ(echo.Get(2), 1.0f);
    echo.Set(4, 0.7f);
    EXPECT_EQ(echo.Get(4), 1.0f);
    echo.Set(4, 0.2f);
    EXPECT_EQ(echo.Get(4), 0.0f);
    echo.Set(0, NAN);
    EXPECT_EQ(echo.Get(0), 50.0f);  // the neutral value
    Effect gargle("Gargle");
    gargle.Set(0, 33.6f);
    EXPECT_EQ(gargle.Get(0), 34.0f);
    gargle.Set(1, 7);
    EXPECT_EQ(gargle.Get(1), 1.0f);
}

TEST(DmoParams, TimeFormats) {
    ComScope com;
    Effect gain("Gain");
    DWORD n = 0;
    ASSERT_EQ(gain.Info->GetNumTimeFormats(&n), S_OK);
    ASSERT_EQ(n, 2u);
    GUID g;
    ASSERT_EQ(gain.Info->GetSupportedTimeFormat(1, &g), S_OK);
    EXPECT_EQ(g, GUID_TIME_SAMPLES);
    EXPECT_EQ(gain.Info->GetSupportedTimeFormat(2, &g), E_INVALIDARG);
    EXPECT_EQ(gain.Params->SetTimeFormat(GUID_TIME_MUSIC, 768), E_INVALIDARG);
    MP_TIMEDATA data = 1;
    ASSERT_EQ(gain.Info->GetCurrentTimeFormat(&g, &data), S_OK);
    EXPECT_EQ(g, GUID_TIME_REFERENCE);
    EXPECT_EQ(data, 0u);
    ASSERT_EQ(gain.Params->SetTimeFormat(GUID_TIME_SAMPLES, 44100), S_OK);
    ASSERT_EQ(gain.Info->GetCurrentTimeFormat(&g, &data), S_OK);
    EXPECT_EQ(g, GUID_TIME_SAMPLES);
    EXPECT_EQ(data, 44100u);
}

TEST(DmoParams, BadEnvelopesAreRefusedWhole) {
    ComScope com;
    Effect echo("Echo");
    MP_ENVELOPE_SEGMENT good{0, 10, 10, 20, MP_CURVE_LINEAR, 0};
    MP_ENVELOPE_SEGMENT segs[2] = {good, good};
    segs[1].rtEnd = -1;  // ends before it starts
    EXPECT_EQ(echo.Params->AddEnvelope(0, 2, segs), E_INVALIDARG);
    segs[1] = good;
    segs[1].iCurve = MP_CURVE_TYPE(MP_CURVE_LINEAR | MP_CURVE_SINE);
    EXPECT_EQ(echo.Params->AddEnvelope(0, 2, segs), E_INVALIDARG);
    segs[1] = good;
    segs[1].flags = 7;
    EXPECT_EQ(echo.Params->AddEnvelope(0, 2, segs), E_INVALIDARG);
    // A bool parameter has no in-between values to draw a curve through.
    EXPECT_EQ(echo.Params->AddEnvelope(4, 1, &good), E_INVALIDARG);
    EXPECT_EQ(echo.Params->AddEnvelope(5, 1, &good), E_INVALIDARG);
    EXPECT_EQ(echo.Params->AddEnvelope(0, 1, nullptr), E_POINTER);
    EXPECT_EQ(echo.Params->AddEnvelope(0, 0, nullptr), S_OK);
    EXPECT_EQ(echo.Params->FlushEnvelope(0, 10, 5), E_INVALIDARG);
    // Nothing of the refused calls was taken: the value stays put through time.
    std::vector<float> s(2 * 480, 0.0f);
    echo.Run(s);
    EXPECT_EQ(echo.Get(0), 50.0f);
}

// Gain of a constant 1.0 input, frame by frame, as the envelope moves the Gain parameter.
std::vector<float> GainCurve(Effect& gain, size_t frames, size_t bufferFrames) {
    std::vector<float> s(frames * 2, 1.0f);
    gain.RunInBuffers(s, bufferFrames);
    std::vector<float> left(frames);
    for (size_t f = 0; f < frames; ++f)
        left[f] = s[f * 2];
    return left;
}

float DbAt(const std::vector<float>& curve, size_t frame) {
    return static_cast<float>(20 * std::log10(curve[frame]));
}

TEST(DmoEnvelopes, JumpTakesTheEndValueAtTheFrameOfItsEnd) {
    ComScope com;
    Effect gain("Gain");
    // 1000 frames = 208333.33 units at 48 kHz; the change lands on frame 1000 exactly.
    MP_ENVELOPE_SEGMENT seg{62500, 208334, -6, -20, MP_CURVE_JUMP, 0};
    ASSERT_EQ(gain.Params->AddEnvelope(0, 1, &seg), S_OK);
    const auto curve = GainCurve(gain, 2000, 128);
    EXPECT_EQ(curve[299], 1.0f);
    EXPECT_NEAR(DbAt(curve, 300), -6, 1e-4);  // 62500 units = 300 frames
    EXPECT_NEAR(DbAt(curve, 1000), -6, 1e-4);
    EXPECT_NEAR(DbAt(curve, 1001), -20, 1e-4);
    EXPECT_NEAR(DbAt(curve, 1999), -20, 1e-4);
    EXPECT_EQ(gain.Get(0), -20.0f);  // a passed segment leaves its end value
}

TEST(DmoEnvelopes, CurvesFollowTheirShapeSampleBySample) {
    ComScope com;
    struct Shape {
        MP_CURVE_TYPE Curve;
        double (*F)(double);
    };
    const Shape shapes[] = {
        {MP_CURVE_LINEAR, [](double x) { return x; }},
        {MP_CURVE_SQUARE, [](double x) { return x * x; }},
        {MP_CURVE_INVSQUARE, [](double x) { return std::sqrt(x); }},
        {MP_CURVE_SINE, [](double x) { return (1 - std::cos(std::numbers::pi * x)) / 2; }},
    };
    for (const Shape& shape : shapes) {
        Effect gain("Gain");
        ASSERT_EQ(gain.Params->SetTimeFormat(GUID_TIME_SAMPLES, 0), S_OK);
        MP_ENVELOPE_SEGMENT seg{1000, 3000, 0, -40, shape.Curve, 0};
        ASSERT_EQ(gain.Params->AddEnvelope(0, 1, &seg), S_OK);
        const auto curve = GainCurve(gain, 4000, 333);
        EXPECT_EQ(curve[999], 1.0f);
        for (size_t f : {1000u, 1500u, 2000u, 2999u})
            EXPECT_NEAR(DbAt(curve, f), -40 * shape.F((f - 1000) / 2000.0), 1e-3)
                << shape.Curve << " frame " << f;
        EXPECT_NEAR(DbAt(curve, 3000), -40, 1e-3);
    }
}

TEST(DmoEnvelopes, StartModesAndTheCurrentValue) {
    ComScope com;
    Effect gain("Gain");
    gain.Set(0, -10);
    ASSERT_EQ(gain.Params->SetTimeFormat(GUID_TIME_SAMPLES, 0), S_OK);
    MP_ENVELOPE_SEGMENT segs[2] = {
        {100, 200, 5, -20, MP_CURVE_LINEAR, MPF_ENVLP_BEGIN_CURRENTVAL},
        {300, 400, 5, -20, MP_CURVE_LINEAR, MPF_ENVLP_BEGIN_NEUTRALVAL},
    };
    ASSERT_EQ(gain.Params->AddEnvelope(0, 2, segs), S_OK);
    const auto curve = GainCurve(gain, 500, 64);
    EXPECT_NEAR(DbAt(curve, 50), -10, 1e-4);
    EXPECT_NEAR(DbAt(curve, 100), -10, 1e-4);  // from the value it had, not 5
    EXPECT_NEAR(DbAt(curve, 150), -15, 1e-3);
    EXPECT_NEAR(DbAt(curve, 250), -20, 1e-4);
    EXPECT_NEAR(DbAt(curve, 300), 0, 1e-4);  // from the neutral value
    EXPECT_NEAR(DbAt(curve, 350), -10, 1e-3);
}

TEST(DmoEnvelopes, TheSameResultWhateverTheBufferSize) {
    ComScope com;
    auto render = [](size_t bufferFrames) {
        Effect echo("Echo");
        echo.Set(0, 100);
        MP_ENVELOPE_SEGMENT segs[2] = {{0, 5'000'000, 1, 300, MP_CURVE_SINE, 0},
                                       {5'000'000, 10'000'000, 300, 20, MP_CURVE_JUMP, 0}};
        EXPECT_EQ(echo.Params->AddEnvelope(2, 2, segs), S_OK);
        auto s = mw::test::Noise(0.5, 2, kRate);
        echo.RunInBuffers(s, bufferFrames);
        return s;
    };
    const auto whole = render(kRate);
    EXPECT_EQ(render(480), whole);
    EXPECT_EQ(render(1), std::vector<float>(whole.begin(), whole.end()));
}

TEST(DmoEnvelopes, FlushRemovesTheSegmentsOfASpan) {
    ComScope com;
    Effect gain("Gain");
    ASSERT_EQ(gain.Params->SetTimeFormat(GUID_TIME_SAMPLES, 0), S_OK);
    MP_ENVELOPE_SEGMENT segs[2] = {{100, 200, -6, -6, MP_CURVE_JUMP, 0},
                                   {300, 400, -12, -12, MP_CURVE_JUMP, 0}};
    ASSERT_EQ(gain.Params->AddEnvelope(0, 2, segs), S_OK);
    ASSERT_EQ(gain.Params->FlushEnvelope(0, 100, 200), S_OK);
    auto curve = GainCurve(gain, 500, 500);
    EXPECT_EQ(curve[150], 1.0f);
    EXPECT_NEAR(DbAt(curve, 350), -12, 1e-4);
    // Every parameter at once.
    MP_ENVELOPE_SEGMENT ramp{1000, 1100, 0, 1, MP_CURVE_LINEAR, 0};
    ASSERT_EQ(gain.Params->AddEnvelope(DWORD_ALLPARAMS, 1, &ramp), E_INVALIDARG);  // bool Invert
    MP_ENVELOPE_SEGMENT jump{1000, 1100, 0, 1, MP_CURVE_JUMP, 0};
    ASSERT_EQ(gain.Params->AddEnvelope(DWORD_ALLPARAMS, 1, &jump), S_OK);
    ASSERT_EQ(gain.Params->FlushEnvelope(DWORD_ALLPARAMS, 0, 2000), S_OK);
    std::vector<float> s(2 * 2000, 1.0f);
    gain.Run(s, 0);
    EXPECT_NEAR(gain.Get(0), -12, 1e-6);  // still the value the last passed segment left
    EXPECT_EQ(gain.Get(1), 0.0f);
}

TEST(DmoEnvelopes, ValuesSetWhileAnotherThreadProcesses) {
    ComScope com;
    Effect eq("ParamEq");
    std::atomic<bool> done{false};
    std::thread setter([&] {
        for (int i = 0; i < 2000 && !done; ++i) {
            eq.Params->SetParam(2, static_cast<float>(i % 31 - 15));
            MP_ENVELOPE_SEGMENT seg{i * 1000, i * 1000 + 500, 100, 200, MP_CURVE_LINEAR, 0};
            eq.Params->AddEnvelope(0, 1, &seg);
        }
    });
    auto s = mw::test::Noise(0.5, 2, kRate);
    eq.RunInBuffers(s, 64);
    done = true;
    setter.join();
    for (float v : s)
        ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
