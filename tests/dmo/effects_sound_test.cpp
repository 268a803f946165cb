// What each effect does to the sound: measured against its parameters, neutral settings that
// leave audio alone, and stable, finite output that decays to true silence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;
using mw::test::Effect;
using mw::test::Noise;
using mw::test::Rms;
using mw::test::Sine;
using mw::test::ToDb;
using mw::test::ToneAmplitude;

constexpr uint32_t kRate = 48000;

TEST(DmoEffectSound, GainChangesTheLevelByItsDecibels) {
    ComScope com;
    for (float db : {-6.0f, -23.5f, 12.0f, -60.0f}) {
        Effect gain("Gain");
        gain.Set(0, db);
        auto s = Sine(1000, 0.2, kRate, 2, 9600);
        gain.Run(s);
        for (int c = 0; c < 2; ++c)
            EXPECT_NEAR(ToDb(ToneAmplitude(s, 2, c, 1000, kRate, 0, 9600) / 0.2), db, 0.01) << db;
    }
    // On 16-bit samples too, where a full-scale tone keeps the rounding small.
    Effect gain16("Gain", kRate, 1, 16);
    gain16.Set(0, -6);
    std::vector<int16_t> pcm(9600);
    for (size_t i = 0; i < pcm.size(); ++i)
        pcm[i] = static_cast<int16_t>(
            std::lround(30000 * std::sin(2 * std::numbers::pi * 1000 * i / kRate)));
    ASSERT_EQ(
        gain16.InPlace->Process(ULONG(pcm.size() * 2), reinterpret_cast<BYTE*>(pcm.data()), 0, 0),
        S_OK);
    std::vector<float> f(pcm.begin(), pcm.end());
    EXPECT_NEAR(ToDb(ToneAmplitude(f, 1, 0, 1000, kRate, 0, 9600) / 30000), -6.0, 0.01);
}

TEST(DmoEffectSound, GainInvertFlipsThePolarity) {
    ComScope com;
    Effect gain("Gain");
    gain.Set(1, 1);
    auto s = Noise(0.5, 2, 1000);
    auto original = s;
    gain.Run(s);
    for (size_t i = 0; i < s.size(); ++i)
        ASSERT_EQ(s[i], -original[i]);
}

TEST(DmoEffectSound, EchoRepeatsTheInputAfterItsDelayToTheSample) {
    ComScope com;
    Effect echo("Echo");
    echo.Set(0, 100);  // wet only
    echo.Set(1, 50);
    echo.Set(2, 250);    // left: 12000 frames
    echo.Set(3, 10.5f);  // right: 504 frames
    std::vector<float> s(2 * 30000, 0.0f);
    s[100 * 2] = 1.0f;
    s[100 * 2 + 1] = 1.0f;
    echo.Run(s);
    for (size_t f = 0; f < 30000; ++f) {
        const float left = s[f * 2], right = s[f * 2 + 1];
        const float wantLeft = f == 12100 ? 1.0f : f == 24100 ? 0.5f : 0.0f;
        ASSERT_EQ(left, wantLeft) << "frame " << f;
        if (f == 604) {
            EXPECT_EQ(right, 1.0f);
        }
        if (f == 1108) {
            EXPECT_EQ(right, 0.5f);
        }
    }
}

TEST(DmoEffectSound, EchoPanDelayCrossesTheRepeats) {
    ComScope com;
    Effect echo("Echo");
    echo.Set(0, 100);
    echo.Set(1, 100);
    echo.Set(2, 1);  // 48 frames
    echo.Set(3, 1);
    echo.Set(4, 1);
    std::vector<float> s(2 * 200, 0.0f);
    s[0] = 1.0f;  // left only
    echo.Run(s);
    EXPECT_EQ(s[48 * 2], 1.0f);      // first repeat on the left
    EXPECT_EQ(s[96 * 2 + 1], 1.0f);  // the second crossed to the right
    EXPECT_EQ(s[96 * 2], 0.0f);
}

TEST(DmoEffectSound, ParamEqGainAtTheCentreFrequency) {
    ComScope com;
    for (float gainDb : {9.0f, -12.0f, 15.0f}) {
        for (float center : {1000.0f, 8000.0f}) {
            Effect eq("ParamEq");
            eq.Set(0, center);
            eq.Set(1, 12);
            eq.Set(2, gainDb);
            auto s = Sine(center, 0.1, kRate, 2, 48000);
            eq.Run(s);
            // After the filter has settled.
            const double got = ToDb(ToneAmplitude(s, 2, 1, center, kRate, 24000, 48000) / 0.1);
            EXPECT_NEAR(got, gainDb, 0.5) << center << " Hz";
            // Far from the band the level stays.
            Effect far("ParamEq");
            far.Set(0, center);
            far.Set(1, 2);
            far.Set(2, gainDb);
            auto low = Sine(center / 8, 0.1, kRate, 2, 48000);
            far.Run(low);
            EXPECT_NEAR(ToDb(ToneAmplitude(low, 2, 0, center / 8, kRate, 24000, 48000) / 0.1), 0,
                        0.5);
        }
    }
}

TEST(DmoEffectSound, CompressorLowersLoudPassagesAndKeepsQuietOnes) {
    ComScope com;
    Effect comp("Compressor");
    comp.Set(3, -20);                             // threshold
    comp.Set(4, 4);                               // ratio
    comp.Set(5, 0);                               // no look-ahead
    auto loud = Sine(440, 1.0, kRate, 2, 48000);  // 0 dBFS peaks: 20 dB over
    comp.Run(loud);
    const double loudDb = ToDb(ToneAmplitude(loud, 2, 0, 440, kRate, 24000, 48000));
    EXPECT_NEAR(loudDb, -15.0, 1.5);  // 20 dB over at 4:1 leaves 5 dB over
    Effect quiet("Compressor");
    quiet.Set(5, 0);
    auto soft = Sine(440, 0.01, kRate, 2, 48000);  // -40 dBFS
    quiet.Run(soft);
    EXPECT_NEAR(ToDb(ToneAmplitude(soft, 2, 0, 440, kRate, 24000, 48000) / 0.01), 0, 0.05);
}

TEST(DmoEffectSound, CompressorLookAheadIsItsLatency) {
    ComScope com;
    Effect comp("Compressor");
    REFERENCE_TIME latency = -1;
    ASSERT_EQ(comp.InPlace->GetLatency(&latency), S_OK);
    EXPECT_EQ(latency, 40000);  // 4 ms
    comp.Set(4, 1);             // no compression: the delay alone shows
    std::vector<float> s(2 * 1000, 0.0f);
    s[10 * 2] = 0.001f;
    comp.Run(s);
    EXPECT_EQ(s[(10 + 192) * 2], 0.001f);
    comp.Set(5, 0);
    ASSERT_EQ(comp.InPlace->GetLatency(&latency), S_OK);
    EXPECT_EQ(latency, 0);
}

TEST(DmoEffectSound, GargleModulatesTheAmplitudeAtItsRate) {
    ComScope com;
    Effect gargle("Gargle");
    gargle.Set(0, 100);
    gargle.Set(1, 1);  // square: on for half of each 480-frame period
    std::vector<float> s(2 * 4800, 0.5f);
    gargle.Run(s);
    for (size_t f = 0; f < 4800; ++f)
        ASSERT_EQ(s[f * 2], (f % 480) < 240 ? 0.5f : 0.0f) << f;
}

TEST(DmoEffectSound, ChorusAndFlangerMixInAModulatedCopy) {
    ComScope com;
    for (const char* name : {"Chorus", "Flanger"}) {
        Effect fx(name);
        auto s = Sine(440, 0.5, kRate, 2, 48000);
        auto original = s;
        fx.Run(s);
        double diff = 0;
        for (size_t i = 0; i < s.size(); ++i)
            diff += std::fabs(s[i] - original[i]);
        EXPECT_GT(diff / s.size(), 0.01) << name;
        // The left and right oscillators differ by Phase unless it is 0 degrees.
        Effect fx2(name);
        fx2.Set(6, 0);  // -180 degrees
        auto t = Sine(440, 0.5, kRate, 2, 48000);
        fx2.Run(t);
        double lr = 0;
        for (size_t f = 0; f < 48000; ++f)
            lr += std::fabs(t[f * 2] - t[f * 2 + 1]);
        EXPECT_GT(lr / 48000, 0.001) << name;
    }
}

TEST(DmoEffectSound, DistortionAddsHarmonicsGrowingWithEdge) {
    ComScope com;
    auto third = [](float edge) {
        Effect d("Distortion");
        d.Set(0, 0);
        d.Set(1, edge);
        d.Set(2, 1500);
        d.Set(3, 8000);
        auto s = Sine(500, 0.8, kRate, 1 + 1, 48000);
        d.Run(s);
        return ToneAmplitude(s, 2, 0, 1500, kRate, 24000, 48000) /
               ToneAmplitude(s, 2, 0, 500, kRate, 24000, 48000);
    };
    const double soft = third(0), hard = third(100);
    EXPECT_GT(hard, soft * 3);
    EXPECT_GT(hard, 0.1);
}

TEST(DmoEffectSound, ReverbTailFollowsTheReverbTime) {
    ComScope com;
    auto tail = [](float ms) {
        Effect r("Reverb");
        r.Set(2, ms);
        r.Set(3, 0.5f);
        std::vector<float> s(2 * kRate * 2, 0.0f);
        s[0] = s[1] = 1.0f;
        r.Run(s);
        return std::pair(Rms(s, 2 * 4800, 2 * 24000), Rms(s, 2 * 48000, 2 * 72000));
    };
    const auto [shortEarly, shortLate] = tail(300);
    const auto [longEarly, longLate] = tail(3000);
    EXPECT_GT(shortEarly, 0);
    EXPECT_LT(shortLate, shortEarly * 1e-3);  // 300 ms: 60 dB gone well before 1 s
    EXPECT_GT(longLate, longEarly * 0.05);    // 3 s: still ringing after 1 s
}

TEST(DmoEffectSound, NeutralSettingsPassAudioUnchanged) {
    ComScope com;
    struct Case {
        const char* Name;
        std::vector<std::pair<DWORD, float>> Values;
    };
    const Case cases[] = {
        {"Gain", {}},
        {"Echo", {{0, 0}}},
        {"Chorus", {{0, 0}}},
        {"Flanger", {{0, 0}}},
        {"Compressor", {{4, 1}, {5, 0}}},
        {"ParamEq", {}},
        {"Gargle", {{0, 1}, {1, 1}}},  // square at 1 Hz: the first half second untouched
    };
    for (const Case& c : cases) {
        for (uint16_t bits : {uint16_t(32), uint16_t(16)}) {
            Effect fx(c.Name, kRate, 2, bits);
            for (auto [i, v] : c.Values)
                fx.Set(i, v);
            if (bits == 32) {
                auto s = Noise(0.9, 2, 20000);
                auto original = s;
                fx.Run(s);
                ASSERT_EQ(s, original) << c.Name;
            } else {
                std::vector<int16_t> pcm(2 * 20000);
                for (size_t i = 0; i < pcm.size(); ++i)
                    pcm[i] = static_cast<int16_t>((i * 7919) % 65536 - 32768);
                auto original = pcm;
                ASSERT_EQ(fx.InPlace->Process(ULONG(pcm.size() * 2),
                                              reinterpret_cast<BYTE*>(pcm.data()), 0, 0),
                          S_OK);
                ASSERT_EQ(pcm, original) << c.Name << " 16-bit";
            }
        }
    }
}

TEST(DmoEffectSound, EveryEffectStaysFiniteAndDecaysToTrueSilence) {
    ComScope com;
    for (const char* name : {"Gain", "Echo", "Chorus", "Flanger", "Compressor", "ParamEq",
                             "Distortion", "Gargle", "Reverb"}) {
        Effect fx(name);
        if (std::string(name) == "Echo") fx.Set(1, 100);  // the longest tail: feedback 100 %
        if (std::string(name) == "Reverb") fx.Set(2, 3000);
        auto s = Noise(1.0, 2, kRate);
        fx.RunInBuffers(s, 480);
        EXPECT_GT(Rms(s), 0.01) << name;
        for (float v : s)
            ASSERT_TRUE(std::isfinite(v) && std::fabs(v) < 8) << name << " " << v;
        // Silence afterwards: the tail fades and never lingers in denormal numbers.
        std::vector<float> silence(2 * kRate * 4, 0.0f);
        fx.InPlace->Process(ULONG(silence.size() * sizeof(float)),
                            reinterpret_cast<BYTE*>(silence.data()), 10'000'000, 0);
        for (float v : silence)
            ASSERT_NE(std::fpclassify(v), FP_SUBNORMAL) << name;
        if (std::string(name) != "Echo") {
            const size_t lastSecond = silence.size() - 2 * kRate;
            EXPECT_LT(Rms(silence, lastSecond), 1e-6) << name;
        }
    }
}

}  // namespace
