// Helpers of the media object tests: creating an effect by its name, giving it a stream type,
// test signals and their measurement.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

#include "comptr.h"
#include "dmo.h"
#include "dmort.h"
#include "medparam.h"
#include "mmreg.h"
#include "mwstring.h"
#include "objbase.h"
#include "uuids.h"

namespace mw::test {

// One apartment for the test's thread.
struct ComScope {
    ComScope() { EXPECT_TRUE(SUCCEEDED(CoInitialize(nullptr))); }
    ~ComScope() { CoUninitialize(); }
};

inline CLSID EffectClass(const std::string& name) {
    ComPtr<IEnumDMO> e;
    EXPECT_EQ(DMOEnum(DMOCATEGORY_AUDIO_EFFECT, DMO_ENUMF_INCLUDE_KEYED, 0, nullptr, 0, nullptr,
                      e.ReleaseAndGetAddressOf()),
              S_OK);
    CLSID id;
    WCHAR* text = nullptr;
    DWORD fetched = 0;
    while (e && e->Next(1, &id, &text, &fetched) == S_OK) {
        const std::string n = Utf16ToUtf8(text);
        CoTaskMemFree(text);
        if (n == name) return id;
    }
    ADD_FAILURE() << "no effect " << name;
    return GUID_NULL;
}

// A wave format media type of 16-bit PCM (bits 16) or float (bits 32).
struct WaveType {
    DMO_MEDIA_TYPE Mt{};
    WaveType(uint32_t rate, uint16_t channels, uint16_t bits, bool extensible = false) {
        MoInitMediaType(&Mt, extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX));
        Mt.majortype = MEDIATYPE_Audio;
        Mt.subtype = bits == 32 ? MEDIASUBTYPE_IEEE_FLOAT : MEDIASUBTYPE_PCM;
        Mt.formattype = FORMAT_WaveFormatEx;
        WAVEFORMATEXTENSIBLE w{};
        w.Format.wFormatTag = bits == 32 ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
        w.Format.nChannels = channels;
        w.Format.nSamplesPerSec = rate;
        w.Format.wBitsPerSample = bits;
        w.Format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
        w.Format.nAvgBytesPerSec = rate * w.Format.nBlockAlign;
        if (extensible) {
            w.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
            w.Format.cbSize = 22;
            w.Samples.wValidBitsPerSample = bits;
            w.dwChannelMask = (1u << channels) - 1;
            w.SubFormat = bits == 32 ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
        }
        std::memcpy(Mt.pbFormat, &w, Mt.cbFormat);
    }
    ~WaveType() { MoFreeMediaType(&Mt); }
    WAVEFORMATEX* Format() { return reinterpret_cast<WAVEFORMATEX*>(Mt.pbFormat); }
};

// An effect with its interfaces, typed for one stream.
struct Effect {
    ComPtr<IMediaObject> Object;
    ComPtr<IMediaObjectInPlace> InPlace;
    ComPtr<IMediaParams> Params;
    ComPtr<IMediaParamInfo> Info;
    uint32_t Rate = 48000;
    uint16_t Channels = 2;

    explicit Effect(const std::string& name, uint32_t rate = 48000, uint16_t channels = 2,
                    uint16_t bits = 32)
        : Rate(rate), Channels(channels) {
        const CLSID id = EffectClass(name);
        EXPECT_EQ(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IMediaObject,
                                   Object.ReleaseAndGetVoidAddress()),
                  S_OK);
        if (!Object) return;
        InPlace = Object.As<IMediaObjectInPlace>();
        Params = Object.As<IMediaParams>();
        Info = Object.As<IMediaParamInfo>();
        WaveType t(rate, channels, bits);
        EXPECT_EQ(Object->SetInputType(0, &t.Mt, 0), S_OK);
        EXPECT_EQ(Object->SetOutputType(0, &t.Mt, 0), S_OK);
    }
    void Set(DWORD index, float value) { EXPECT_EQ(Params->SetParam(index, value), S_OK); }
    float Get(DWORD index) {
        float v = NAN;
        EXPECT_EQ(Params->GetParam(index, &v), S_OK);
        return v;
    }
    // Processes interleaved float frames in place from stream time `start`.
    void Run(std::vector<float>& samples, REFERENCE_TIME start = 0) {
        ASSERT_EQ(InPlace->Process(static_cast<ULONG>(samples.size() * sizeof(float)),
                                   reinterpret_cast<BYTE*>(samples.data()), start, 0),
                  S_OK);
    }
    // Processes in buffers of `frames` frames with consecutive times.
    void RunInBuffers(std::vector<float>& samples, size_t frames) {
        for (size_t first = 0; first < samples.size() / Channels; first += frames) {
            const size_t n = std::min(frames, samples.size() / Channels - first);
            const REFERENCE_TIME t = static_cast<REFERENCE_TIME>(first * 10'000'000.0 / Rate);
            ASSERT_EQ(InPlace->Process(static_cast<ULONG>(n * Channels * sizeof(float)),
                                       reinterpret_cast<BYTE*>(&samples[first * Channels]), t, 0),
                      S_OK);
        }
    }
};

// A sine of `frequency` Hz at `amplitude` on every channel.
inline std::vector<float> Sine(double frequency, double amplitude, uint32_t rate, int channels,
                               size_t frames) {
    std::vector<float> s(frames * channels);
    for (size_t f = 0; f < frames; ++f)
        for (int c = 0; c < channels; ++c)
            s[f * channels + c] = static_cast<float>(
                amplitude * std::sin(2 * std::numbers::pi * frequency * f / rate));
    return s;
}

// Deterministic white noise in -amplitude..amplitude.
inline std::vector<float> Noise(double amplitude, int channels, size_t frames, uint32_t seed = 1) {
    std::vector<float> s(frames * channels);
    for (float& v : s) {
        seed = seed * 1664525u + 1013904223u;
        v = static_cast<float>(amplitude * ((seed >> 8) / double(1 << 24) * 2 - 1));
    }
    return s;
}

// The amplitude of `frequency` in one channel over frames [from, to), by correlation.
inline double ToneAmplitude(const std::vector<float>& s, int channels, int channel,
                            double frequency, uint32_t rate, size_t from, size_t to) {
    double re = 0, im = 0;
    for (size_t f = from; f < to; ++f) {
        const double w = 2 * std::numbers::pi * frequency * f / rate;
        re += s[f * channels + channel] * std::cos(w);
        im += s[f * channels + channel] * std::sin(w);
    }
    return 2 * std::hypot(re, im) / double(to - from);
}

inline double Rms(const std::vector<float>& s, size_t from = 0, size_t to = SIZE_MAX) {
    to = std::min(to, s.size());
    double sum = 0;
    for (size_t i = from; i < to; ++i)
        sum += double(s[i]) * s[i];
    return to > from ? std::sqrt(sum / double(to - from)) : 0;
}

inline double ToDb(double ratio) {
    return 20 * std::log10(ratio);
}

}  // namespace mw::test
