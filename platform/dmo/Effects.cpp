// The DSP of the built-in effects. Every effect keeps its state per channel and derives its
// coefficients in Update, which the base calls whenever a value changes (on every frame while
// an envelope curve runs).
#include "platform/dmo/Effects.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

#include "dmoreg.h"
#include "mwcom.h"
#include "platform/dmo/AudioEffect.h"
#include "uuids.h"

namespace mw::dmo {

namespace {

constexpr double kPi = std::numbers::pi;

ParamDef Float(const char16_t* label, const char16_t* unit, float min, float max, float neutral) {
    return {MPT_FLOAT, min, max, neutral, label, unit, {}};
}
ParamDef Bool(const char16_t* label, bool neutral) {
    return {MPT_BOOL, 0, 1, neutral ? 1.0f : 0.0f, label, u"", {}};
}
ParamDef Int(const char16_t* label, const char16_t* unit, float min, float max, float neutral) {
    return {MPT_INT, min, max, neutral, label, unit, {}};
}
ParamDef Enum(const char16_t* label, std::vector<std::u16string> texts, float neutral) {
    const float max = static_cast<float>(texts.size() - 1);
    return {MPT_ENUM, 0, max, neutral, label, u"", std::move(texts)};
}

// A ring of past samples of one channel, read at whole or fractional delays.
class DelayLine {
public:
    void Resize(size_t maxDelay) {
        size_t n = 1;
        while (n < maxDelay + 2)
            n <<= 1;
        FData.assign(n, 0.0f);
        FMask = n - 1;
        FPos = 0;
    }
    void Clear() { std::fill(FData.begin(), FData.end(), 0.0f); }
    void Write(float v) {
        FPos = (FPos + 1) & FMask;
        FData[FPos] = Undenormal(v);
    }
    // The sample written `delay` writes ago (1: the last one).
    float Read(size_t delay) const { return FData[(FPos + FMask + 2 - delay) & FMask]; }
    // A fractional delay of at least 1, interpolated linearly.
    float ReadFrac(double delay) const {
        const size_t whole = static_cast<size_t>(delay);
        const float frac = static_cast<float>(delay - whole);
        const float a = Read(whole);
        const float b = Read(whole + 1);
        return a + (b - a) * frac;
    }

private:
    std::vector<float> FData{0.0f, 0.0f};
    size_t FMask = 1;
    size_t FPos = 0;
};

// A second-order section with coefficients normalised by a0, run in transposed direct form II
// in double precision.
struct Biquad {
    double B0 = 1, B1 = 0, B2 = 0, A1 = 0, A2 = 0;

    void Set(double b0, double b1, double b2, double a0, double a1, double a2) {
        B0 = b0 / a0;
        B1 = b1 / a0;
        B2 = b2 / a0;
        A1 = a1 / a0;
        A2 = a2 / a0;
    }
    // Peaking filter of `gainDb` at f0 with a bandwidth in octaves.
    void Peaking(double rate, double f0, double octaves, double gainDb) {
        const double a = std::pow(10.0, gainDb / 40.0);
        const double w0 = 2 * kPi * f0 / rate;
        const double alpha =
            std::sin(w0) * std::sinh(std::log(2.0) / 2 * octaves * w0 / std::sin(w0));
        const double c = std::cos(w0);
        Set(1 + alpha * a, -2 * c, 1 - alpha * a, 1 + alpha / a, -2 * c, 1 - alpha / a);
    }
    void LowPass(double rate, double f0, double q) {
        const double w0 = 2 * kPi * f0 / rate;
        const double alpha = std::sin(w0) / (2 * q);
        const double c = std::cos(w0);
        Set((1 - c) / 2, 1 - c, (1 - c) / 2, 1 + alpha, -2 * c, 1 - alpha);
    }
    // Band-pass with 0 dB at its centre.
    void BandPass(double rate, double f0, double q) {
        const double w0 = 2 * kPi * f0 / rate;
        const double alpha = std::sin(w0) / (2 * q);
        const double c = std::cos(w0);
        Set(alpha, 0, -alpha, 1 + alpha, -2 * c, 1 - alpha);
    }
};

struct BiquadState {
    double Z1 = 0, Z2 = 0;
    float Run(const Biquad& f, float x) {
        const double y = f.B0 * x + Z1;
        Z1 = Undenormal(f.B1 * x - f.A1 * y + Z2);
        Z2 = Undenormal(f.B2 * x - f.A2 * y);
        return static_cast<float>(y);
    }
};

double Nyquistish(double f, uint32_t rate) {
    return std::min(f, 0.45 * rate);
}

template <class T>
AudioEffect* Make() {
    return new (std::nothrow) T();
}

// ---- Gain

class GainEffect final : public AudioEffect {
public:
    GainEffect() : AudioEffect({Float(u"Gain", u"dB", -60, 20, 0), Bool(u"Invert", false)}) {}

protected:
    void Configure() override {}
    void Reset() override {}
    void Update() override {
        FGain = DbToGain(Param(0));
        if (Param(1) != 0) FGain = -FGain;
    }
    void Run(float* data, uint32_t frames) override {
        if (FGain == 1.0f) return;
        const size_t n = size_t(frames) * Channels();
        for (size_t i = 0; i < n; ++i)
            data[i] *= FGain;
    }
    AudioEffect* NewInstance() const override { return Make<GainEffect>(); }

private:
    float FGain = 1;
};

// ---- Echo

class EchoEffect final : public AudioEffect {
public:
    EchoEffect()
        : AudioEffect({Float(u"WetDryMix", u"%", 0, 100, 50), Float(u"Feedback", u"%", 0, 100, 50),
                       Float(u"LeftDelay", u"ms", 1, 2000, 500),
                       Float(u"RightDelay", u"ms", 1, 2000, 500), Bool(u"PanDelay", false)}) {}

protected:
    void Configure() override {
        FLines.assign(Channels(), DelayLine());
        for (DelayLine& l : FLines)
            l.Resize(size_t(2.0 * Rate()) + 2);
        FEcho.assign(Channels(), 0.0f);
    }
    void Reset() override {
        for (DelayLine& l : FLines)
            l.Clear();
    }
    void Update() override {
        FMix = Param(0) / 100.0f;
        FFeedback = Param(1) / 100.0f;
        FDelay[0] = std::max<size_t>(1, std::lround(Param(2) * Rate() / 1000.0));
        FDelay[1] = std::max<size_t>(1, std::lround(Param(3) * Rate() / 1000.0));
        FPan = Param(4) != 0;
    }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f) {
            float* frame = data + size_t(f) * channels;
            for (int c = 0; c < channels; ++c)
                FEcho[c] = FLines[c].Read(FDelay[c & 1]);
            for (int c = 0; c < channels; ++c) {
                // With PanDelay each repeat is fed into the partner channel of the pair.
                const int from = FPan && channels > 1 ? (c ^ 1) % channels : c;
                const float x = frame[c];
                FLines[c].Write(x + FFeedback * FEcho[from]);
                frame[c] = x + FMix * (FEcho[c] - x);
            }
        }
    }
    AudioEffect* NewInstance() const override { return Make<EchoEffect>(); }

private:
    std::vector<DelayLine> FLines;
    std::vector<float> FEcho;
    float FMix = 0.5f, FFeedback = 0.5f;
    size_t FDelay[2] = {1, 1};
    bool FPan = false;
};

// ---- Chorus and flanger: a delay swept by a low-frequency oscillator

class ModulatedDelay : public AudioEffect {
public:
    ModulatedDelay(float depth, float feedback, float frequency, float delay, float maxDelay,
                   float phase)
        : AudioEffect({Float(u"WetDryMix", u"%", 0, 100, 50), Float(u"Depth", u"%", 0, 100, depth),
                       Float(u"Feedback", u"%", -99, 99, feedback),
                       Float(u"Frequency", u"Hz", 0, 10, frequency),
                       Enum(u"Waveform", {u"Triangle", u"Sine"}, 1),
                       Float(u"Delay", u"ms", 0, maxDelay, delay),
                       Enum(u"Phase", {u"-180", u"-90", u"0", u"90", u"180"}, phase)}),
          FMaxDelay(maxDelay) {}

protected:
    void Configure() override {
        FLines.assign(Channels(), DelayLine());
        for (DelayLine& l : FLines)
            l.Resize(size_t(2.0 * FMaxDelay * Rate() / 1000.0) + 4);
        Reset();
    }
    void Reset() override {
        for (DelayLine& l : FLines)
            l.Clear();
        FPhase = 0;
    }
    void Update() override {
        FMix = Param(0) / 100.0f;
        FDepth = Param(1) / 100.0;
        FFeedback = Param(2) / 100.0f;
        FStep = Param(3) / Rate();
        FSine = Param(4) != 0;
        FDelayFrames = Param(5) * Rate() / 1000.0;
        FOffset = (Param(6) - 2) / 4.0;  // -180..180 degrees as a fraction of a turn
    }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f) {
            float* frame = data + size_t(f) * channels;
            for (int c = 0; c < channels; ++c) {
                // Odd channels run the oscillator shifted by Phase.
                const double lfo = Oscillator(c & 1 ? FPhase + FOffset : FPhase);
                const double delay = std::max(1.0, FDelayFrames * (1.0 + FDepth * lfo));
                const float wet = FLines[c].ReadFrac(delay);
                const float x = frame[c];
                FLines[c].Write(x + FFeedback * wet);
                frame[c] = x + FMix * (wet - x);
            }
            FPhase += FStep;
            FPhase -= std::floor(FPhase);
        }
    }

private:
    // -1..1 over one turn.
    double Oscillator(double phase) const {
        phase -= std::floor(phase);
        if (FSine) return std::sin(2 * kPi * phase);
        return phase < 0.5 ? 4 * phase - 1 : 3 - 4 * phase;
    }

    float FMaxDelay;
    std::vector<DelayLine> FLines;
    double FPhase = 0, FStep = 0, FDepth = 0, FDelayFrames = 0, FOffset = 0;
    float FMix = 0.5f, FFeedback = 0;
    bool FSine = true;
};

class ChorusEffect final : public ModulatedDelay {
public:
    ChorusEffect() : ModulatedDelay(10, 25, 1.1f, 16, 20, 3) {}

protected:
    AudioEffect* NewInstance() const override { return Make<ChorusEffect>(); }
};

class FlangerEffect final : public ModulatedDelay {
public:
    FlangerEffect() : ModulatedDelay(100, -50, 0.25f, 2, 4, 2) {}

protected:
    AudioEffect* NewInstance() const override { return Make<FlangerEffect>(); }
};

// ---- Compressor: a peak detector on all channels, with look-ahead

class CompressorEffect final : public AudioEffect {
public:
    CompressorEffect()
        : AudioEffect({Float(u"Gain", u"dB", -60, 60, 0), Float(u"Attack", u"ms", 0.01f, 500, 10),
                       Float(u"Release", u"ms", 50, 3000, 200),
                       Float(u"Threshold", u"dB", -60, 0, -20), Float(u"Ratio", u"", 1, 100, 3),
                       Float(u"Predelay", u"ms", 0, 4, 4)}) {}

protected:
    void Configure() override {
        FLines.assign(Channels(), DelayLine());
        for (DelayLine& l : FLines)
            l.Resize(size_t(0.004 * Rate()) + 2);
        Reset();
    }
    void Reset() override {
        for (DelayLine& l : FLines)
            l.Clear();
        FEnvelope = 0;
    }
    void Update() override {
        FMakeup = Param(0);
        FAttack = std::exp(-1.0 / (Param(1) * Rate() / 1000.0));
        FRelease = std::exp(-1.0 / (Param(2) * Rate() / 1000.0));
        FThreshold = Param(3);
        FSlope = 1.0 - 1.0 / Param(4);
        FLookAhead = static_cast<size_t>(std::lround(Param(5) * Rate() / 1000.0));
    }
    REFERENCE_TIME Latency() const override { return std::llround(Param(5) * 10000.0); }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f) {
            float* frame = data + size_t(f) * channels;
            double peak = 0;
            for (int c = 0; c < channels; ++c)
                peak = std::max(peak, double(std::fabs(frame[c])));
            const double coeff = peak > FEnvelope ? FAttack : FRelease;
            FEnvelope = Undenormal(coeff * FEnvelope + (1 - coeff) * peak);
            double gainDb = FMakeup;
            if (FSlope > 0 && FEnvelope > 0) {
                const double over = 20 * std::log10(FEnvelope) - FThreshold;
                if (over > 0) gainDb -= over * FSlope;
            }
            const float gain = gainDb == 0 ? 1.0f : DbToGain(gainDb);
            for (int c = 0; c < channels; ++c) {
                float x = frame[c];
                if (FLookAhead > 0) {
                    FLines[c].Write(x);
                    x = FLines[c].Read(FLookAhead + 1);
                }
                frame[c] = x * gain;
            }
        }
    }
    AudioEffect* NewInstance() const override { return Make<CompressorEffect>(); }

private:
    std::vector<DelayLine> FLines;
    double FEnvelope = 0, FMakeup = 0, FAttack = 0, FRelease = 0, FThreshold = 0, FSlope = 0;
    size_t FLookAhead = 0;
};

// ---- Parametric equaliser: one peaking band

class ParamEqEffect final : public AudioEffect {
public:
    ParamEqEffect()
        : AudioEffect({Float(u"Center", u"Hz", 80, 16000, 8000),
                       Float(u"Bandwidth", u"semitones", 1, 36, 12),
                       Float(u"Gain", u"dB", -15, 15, 0)}) {}

protected:
    void Configure() override { Reset(); }
    void Reset() override { FState.assign(Channels(), BiquadState()); }
    void Update() override {
        FFilter.Peaking(Rate(), Nyquistish(Param(0), Rate()), Param(1) / 12.0, Param(2));
        FBypass = Param(2) == 0;
    }
    void Run(float* data, uint32_t frames) override {
        if (FBypass) return;
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f)
            for (int c = 0; c < channels; ++c) {
                float& s = data[size_t(f) * channels + c];
                s = FState[c].Run(FFilter, s);
            }
    }
    AudioEffect* NewInstance() const override { return Make<ParamEqEffect>(); }

private:
    Biquad FFilter;
    std::vector<BiquadState> FState;
    bool FBypass = true;
};

// ---- Distortion: low-pass, soft clipping, band-pass, level

class DistortionEffect final : public AudioEffect {
public:
    DistortionEffect()
        : AudioEffect({Float(u"Gain", u"dB", -60, 0, -18), Float(u"Edge", u"%", 0, 100, 15),
                       Float(u"PostEQCenterFrequency", u"Hz", 100, 8000, 2400),
                       Float(u"PostEQBandwidth", u"Hz", 100, 8000, 2400),
                       Float(u"PreLowpassCutoff", u"Hz", 100, 8000, 8000)}) {}

protected:
    void Configure() override { Reset(); }
    void Reset() override {
        FPre.assign(Channels(), BiquadState());
        FPost.assign(Channels(), BiquadState());
    }
    void Update() override {
        FGain = DbToGain(Param(0));
        FDrive = 1.0f + Param(1) / 100.0f * 40.0f;
        FNorm = 1.0f / std::tanh(FDrive);
        const double center = Nyquistish(Param(2), Rate());
        FPostFilter.BandPass(Rate(), center, center / Param(3));
        FPreFilter.LowPass(Rate(), Nyquistish(Param(4), Rate()), std::numbers::sqrt2 / 2);
    }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f)
            for (int c = 0; c < channels; ++c) {
                float& s = data[size_t(f) * channels + c];
                const float shaped = std::tanh(FDrive * FPre[c].Run(FPreFilter, s)) * FNorm;
                s = FPost[c].Run(FPostFilter, shaped) * FGain;
            }
    }
    AudioEffect* NewInstance() const override { return Make<DistortionEffect>(); }

private:
    Biquad FPreFilter, FPostFilter;
    std::vector<BiquadState> FPre, FPost;
    float FGain = 1, FDrive = 1, FNorm = 1;
};

// ---- Gargle: amplitude modulation

class GargleEffect final : public AudioEffect {
public:
    GargleEffect()
        : AudioEffect({Int(u"Rate", u"Hz", 1, 1000, 20),
                       Enum(u"WaveShape", {u"Triangle", u"Square"}, 0)}) {}

protected:
    void Configure() override { Reset(); }
    void Reset() override { FPhase = 0; }
    void Update() override {
        FStep = Param(0) / Rate();
        FSquare = Param(1) != 0;
    }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f) {
            const double m =
                FSquare ? (FPhase < 0.5 ? 1.0 : 0.0) : (FPhase < 0.5 ? 2 * FPhase : 2 - 2 * FPhase);
            for (int c = 0; c < channels; ++c)
                data[size_t(f) * channels + c] *= static_cast<float>(m);
            FPhase += FStep;
            FPhase -= std::floor(FPhase);
        }
    }
    AudioEffect* NewInstance() const override { return Make<GargleEffect>(); }

private:
    double FPhase = 0, FStep = 0;
    bool FSquare = false;
};

// ---- Reverb: four damped combs in parallel, then two all-passes, per channel

class ReverbEffect final : public AudioEffect {
public:
    ReverbEffect()
        : AudioEffect({Float(u"InGain", u"dB", -96, 0, 0), Float(u"ReverbMix", u"dB", -96, 0, 0),
                       Float(u"ReverbTime", u"ms", 1, 3000, 1000),
                       Float(u"HighFreqRTRatio", u"", 0.001f, 0.999f, 0.001f)}) {}

protected:
    static constexpr int kCombs = 4;
    static constexpr int kAllPasses = 2;
    static constexpr double kCombMs[kCombs] = {29.7, 37.1, 41.1, 43.7};
    static constexpr double kAllPassMs[kAllPasses] = {5.0, 1.7};
    static constexpr double kSpreadMs = 0.52;  // odd channels: slightly longer loops

    struct Channel {
        DelayLine Comb[kCombs];
        float Damp[kCombs] = {};
        size_t CombDelay[kCombs] = {};
        DelayLine AllPass[kAllPasses];
        size_t AllPassDelay[kAllPasses] = {};
    };

    void Configure() override {
        FState.assign(Channels(), Channel());
        for (int c = 0; c < Channels(); ++c) {
            Channel& ch = FState[c];
            const double spread = (c & 1) ? kSpreadMs : 0.0;
            for (int k = 0; k < kCombs; ++k) {
                ch.CombDelay[k] = std::max<size_t>(1, Frames(kCombMs[k] + spread));
                ch.Comb[k].Resize(ch.CombDelay[k]);
            }
            for (int k = 0; k < kAllPasses; ++k) {
                ch.AllPassDelay[k] = std::max<size_t>(1, Frames(kAllPassMs[k] + spread / 4));
                ch.AllPass[k].Resize(ch.AllPassDelay[k]);
            }
        }
    }
    void Reset() override {
        for (Channel& ch : FState) {
            for (DelayLine& l : ch.Comb)
                l.Clear();
            for (DelayLine& l : ch.AllPass)
                l.Clear();
            std::fill(std::begin(ch.Damp), std::end(ch.Damp), 0.0f);
        }
    }
    void Update() override {
        FInGain = DbToGain(Param(0));
        FMix = DbToGain(Param(1));
        const double rt = Param(2);
        const double ratio = Param(3);
        for (int k = 0; k < kCombs; ++k) {
            // Loop gain for a 60 dB decay in ReverbTime; at high frequencies the loop's
            // low-pass lowers it to the gain of a ReverbTime * HighFreqRTRatio decay.
            const double g = std::pow(10.0, -3.0 * kCombMs[k] / rt);
            const double r = std::pow(g, 1.0 / ratio - 1.0);
            FFeedback[k] = static_cast<float>(g);
            FDamping[k] = static_cast<float>((1 - r) / (1 + r));
        }
    }
    void Run(float* data, uint32_t frames) override {
        const int channels = Channels();
        for (uint32_t f = 0; f < frames; ++f)
            for (int c = 0; c < channels; ++c) {
                float& s = data[size_t(f) * channels + c];
                Channel& ch = FState[c];
                const float in = s * FInGain;
                float wet = 0;
                for (int k = 0; k < kCombs; ++k) {
                    const float y = ch.Comb[k].Read(ch.CombDelay[k]);
                    ch.Damp[k] = Undenormal(y + FDamping[k] * (ch.Damp[k] - y));
                    ch.Comb[k].Write(in + FFeedback[k] * ch.Damp[k]);
                    wet += y;
                }
                wet *= 1.0f / kCombs;
                for (int k = 0; k < kAllPasses; ++k) {
                    const float delayed = ch.AllPass[k].Read(ch.AllPassDelay[k]);
                    const float v = wet + 0.5f * delayed;
                    ch.AllPass[k].Write(v);
                    wet = delayed - 0.5f * v;
                }
                s = in + FMix * wet;
            }
    }
    AudioEffect* NewInstance() const override { return Make<ReverbEffect>(); }

private:
    size_t Frames(double ms) const { return static_cast<size_t>(std::lround(ms * Rate() / 1000)); }

    std::vector<Channel> FState;
    float FFeedback[kCombs] = {};
    float FDamping[kCombs] = {};
    float FInGain = 1, FMix = 1;
};

struct EffectClass {
    const CLSID* ClassId;
    const char16_t* Name;
    AudioEffect* (*Create)();
};

const EffectClass kEffects[] = {
    {&CLSID_MwGainEffect, u"Gain", &Make<GainEffect>},
    {&GUID_DSFX_STANDARD_ECHO, u"Echo", &Make<EchoEffect>},
    {&GUID_DSFX_STANDARD_CHORUS, u"Chorus", &Make<ChorusEffect>},
    {&GUID_DSFX_STANDARD_FLANGER, u"Flanger", &Make<FlangerEffect>},
    {&GUID_DSFX_STANDARD_COMPRESSOR, u"Compressor", &Make<CompressorEffect>},
    {&GUID_DSFX_STANDARD_PARAMEQ, u"ParamEq", &Make<ParamEqEffect>},
    {&GUID_DSFX_STANDARD_DISTORTION, u"Distortion", &Make<DistortionEffect>},
    {&GUID_DSFX_STANDARD_GARGLE, u"Gargle", &Make<GargleEffect>},
    {&GUID_DSFX_WAVES_REVERB, u"Reverb", &Make<ReverbEffect>},
};

HRESULT CreateEffect(AudioEffect* (*create)(), IUnknown* outer, REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    AudioEffect* effect = create();
    if (!effect) return E_OUTOFMEMORY;
    ComPtr<IMediaObject> held = MwAdopt<IMediaObject>(effect);
    return held->QueryInterface(riid, ppv);
}

}  // namespace

HRESULT RegisterBuiltInEffects() {
    static const HRESULT result = [] {
        const DMO_PARTIAL_MEDIATYPE types[] = {{MEDIATYPE_Audio, MEDIASUBTYPE_IEEE_FLOAT},
                                               {MEDIATYPE_Audio, MEDIASUBTYPE_PCM}};
        for (const EffectClass& e : kEffects) {
            auto create = e.Create;
            mw::RegisterComClass(*e.ClassId, [create](IUnknown* outer, REFIID riid, void** ppv) {
                return CreateEffect(create, outer, riid, ppv);
            });
            const HRESULT hr =
                DMORegister(e.Name, *e.ClassId, DMOCATEGORY_AUDIO_EFFECT, 0, 2, types, 2, types);
            if (FAILED(hr)) return hr;
        }
        return S_OK;
    }();
    return result;
}

}  // namespace mw::dmo
