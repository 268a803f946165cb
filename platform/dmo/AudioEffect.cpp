#include "platform/dmo/AudioEffect.h"

#include <algorithm>
#include <cstring>
#include <numbers>

#include "dmort.h"
#include "mmreg.h"
#include "mwcom.h"
#include "platform/com/ComObject.h"
#include "uuids.h"

namespace mw::dmo {

namespace {

constexpr double kReferenceRate = 10'000'000.0;  // reference time units per second
constexpr uint32_t kChunkFrames = 1024;          // frames converted to float at a time
constexpr MP_CAPS kAllCurves = MP_CAPS_CURVE_JUMP | MP_CAPS_CURVE_LINEAR | MP_CAPS_CURVE_SQUARE |
                               MP_CAPS_CURVE_INVSQUARE | MP_CAPS_CURVE_SINE;

bool IsSingleCurve(MP_CURVE_TYPE c) {
    const DWORD v = static_cast<DWORD>(c);
    return v != 0 && (v & (v - 1)) == 0 && (v & ~kAllCurves) == 0;
}

// Where along a segment's curve the value lies at fraction x of its length.
double CurveShape(MP_CURVE_TYPE curve, double x) {
    switch (curve) {
        case MP_CURVE_LINEAR:
            return x;
        case MP_CURVE_SQUARE:
            return x * x;
        case MP_CURVE_INVSQUARE:
            return std::sqrt(x);
        case MP_CURVE_SINE:
            return (1.0 - std::cos(std::numbers::pi * x)) / 2.0;
        case MP_CURVE_JUMP:
        default:
            return 0.0;
    }
}

// The partial types the effect offers on both streams, in order of preference.
const GUID* const kSubtypes[] = {&MEDIASUBTYPE_IEEE_FLOAT, &MEDIASUBTYPE_PCM};

}  // namespace

MP_CAPS CurveCapsOf(MP_TYPE type) {
    return type == MPT_BOOL || type == MPT_ENUM ? MP_CAPS_CURVE_JUMP : kAllCurves;
}

AudioEffect::AudioEffect(std::vector<ParamDef> params)
    : FDefs(std::move(params)), FEnvelopes(FDefs.size()) {
    for (const ParamDef& d : FDefs)
        FValues.push_back(d.Neutral);
}

AudioEffect::~AudioEffect() {
    if (FInputSet) MoFreeMediaType(&FInputType);
    if (FOutputSet) MoFreeMediaType(&FOutputType);
}

// ---- IUnknown

STDMETHODIMP AudioEffect::QueryInterface(REFIID riid, void** ppv) {
    return mw::com::QueryTable(riid, ppv,
                               {{&IID_IMediaObject, static_cast<IMediaObject*>(this)},
                                {&IID_IMediaObjectInPlace, static_cast<IMediaObjectInPlace*>(this)},
                                {&IID_IMediaParamInfo, static_cast<IMediaParamInfo*>(this)},
                                {&IID_IMediaParams, static_cast<IMediaParams*>(this)}});
}

STDMETHODIMP_(ULONG) AudioEffect::AddRef() {
    return FRefs.fetch_add(1, std::memory_order_relaxed) + 1;
}

STDMETHODIMP_(ULONG) AudioEffect::Release() {
    const ULONG n = FRefs.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (n == 0) delete this;
    return n;
}

// ---- types

STDMETHODIMP AudioEffect::GetStreamCount(DWORD* pcInputStreams, DWORD* pcOutputStreams) {
    if (!pcInputStreams || !pcOutputStreams) return E_POINTER;
    *pcInputStreams = 1;
    *pcOutputStreams = 1;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetInputStreamInfo(DWORD index, DWORD* pdwFlags) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pdwFlags) return E_POINTER;
    *pdwFlags = DMO_INPUT_STREAMF_WHOLE_SAMPLES | DMO_INPUT_STREAMF_FIXED_SAMPLE_SIZE;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetOutputStreamInfo(DWORD index, DWORD* pdwFlags) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pdwFlags) return E_POINTER;
    *pdwFlags = DMO_OUTPUT_STREAMF_WHOLE_SAMPLES | DMO_OUTPUT_STREAMF_FIXED_SAMPLE_SIZE;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetInputType(DWORD index, DWORD typeIndex, DMO_MEDIA_TYPE* pmt) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (typeIndex >= std::size(kSubtypes)) return DMO_E_NO_MORE_ITEMS;
    if (!pmt) return S_OK;  // a caller may only count the types
    HRESULT hr = MoInitMediaType(pmt, 0);
    if (FAILED(hr)) return hr;
    pmt->majortype = MEDIATYPE_Audio;
    pmt->subtype = *kSubtypes[typeIndex];
    return S_OK;
}

STDMETHODIMP AudioEffect::GetOutputType(DWORD index, DWORD typeIndex, DMO_MEDIA_TYPE* pmt) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    std::lock_guard g(FMutex);
    // Once the input has a type, the output can only have the same.
    if (FInputSet) {
        if (typeIndex > 0) return DMO_E_NO_MORE_ITEMS;
        return pmt ? MoCopyMediaType(pmt, &FInputType) : S_OK;
    }
    if (typeIndex >= std::size(kSubtypes)) return DMO_E_NO_MORE_ITEMS;
    if (!pmt) return S_OK;
    HRESULT hr = MoInitMediaType(pmt, 0);
    if (FAILED(hr)) return hr;
    pmt->majortype = MEDIATYPE_Audio;
    pmt->subtype = *kSubtypes[typeIndex];
    return S_OK;
}

HRESULT AudioEffect::CheckType(const DMO_MEDIA_TYPE* pmt, SampleKind* kind, WORD* channels,
                               DWORD* rate) const {
    if (!IsEqualGUID(pmt->majortype, MEDIATYPE_Audio) ||
        !IsEqualGUID(pmt->formattype, FORMAT_WaveFormatEx) || !pmt->pbFormat || pmt->cbFormat < 16)
        return DMO_E_TYPE_NOT_ACCEPTED;
    WAVEFORMATEXTENSIBLE w{};
    std::memcpy(&w, pmt->pbFormat, std::min<size_t>(pmt->cbFormat, sizeof w));
    const WAVEFORMATEX& f = w.Format;
    SampleKind k = SampleKind::None;
    GUID sub = GUID_NULL;
    if (f.wFormatTag == WAVE_FORMAT_PCM) {
        sub = KSDATAFORMAT_SUBTYPE_PCM;
    } else if (f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        sub = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    } else if (f.wFormatTag == WAVE_FORMAT_EXTENSIBLE && pmt->cbFormat >= sizeof w &&
               f.cbSize >= 22) {
        if (w.Samples.wValidBitsPerSample != f.wBitsPerSample) return DMO_E_TYPE_NOT_ACCEPTED;
        sub = w.SubFormat;
    }
    if (IsEqualGUID(sub, KSDATAFORMAT_SUBTYPE_PCM) && f.wBitsPerSample == 16)
        k = SampleKind::Int16;
    else if (IsEqualGUID(sub, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) && f.wBitsPerSample == 32)
        k = SampleKind::Float32;
    if (k == SampleKind::None) return DMO_E_TYPE_NOT_ACCEPTED;
    // The subtype, when given, must agree with the samples.
    const GUID& wantSub = k == SampleKind::Int16 ? MEDIASUBTYPE_PCM : MEDIASUBTYPE_IEEE_FLOAT;
    if (!IsEqualGUID(pmt->subtype, GUID_NULL) && !IsEqualGUID(pmt->subtype, wantSub))
        return DMO_E_TYPE_NOT_ACCEPTED;
    if (f.nChannels < 1 || f.nChannels > 32 || f.nSamplesPerSec < 1000 ||
        f.nSamplesPerSec > 768000 || f.nBlockAlign != f.nChannels * f.wBitsPerSample / 8 ||
        f.nAvgBytesPerSec != f.nSamplesPerSec * f.nBlockAlign)
        return DMO_E_TYPE_NOT_ACCEPTED;
    *kind = k;
    *channels = f.nChannels;
    *rate = f.nSamplesPerSec;
    return S_OK;
}

HRESULT AudioEffect::SetType(bool input, DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    std::lock_guard g(FMutex);
    DMO_MEDIA_TYPE& mine = input ? FInputType : FOutputType;
    bool& mineSet = input ? FInputSet : FOutputSet;
    const DMO_MEDIA_TYPE& other = input ? FOutputType : FInputType;
    const bool otherSet = input ? FOutputSet : FInputSet;
    if (flags & DMO_SET_TYPEF_CLEAR) {
        if (flags & DMO_SET_TYPEF_TEST_ONLY) return S_OK;
        if (mineSet) MoFreeMediaType(&mine);
        mineSet = false;
        FKind = SampleKind::None;
        ClearInput();
        return S_OK;
    }
    if (!pmt) return E_POINTER;
    SampleKind kind;
    WORD channels;
    DWORD rate;
    HRESULT hr = CheckType(pmt, &kind, &channels, &rate);
    if (FAILED(hr)) return hr;
    // The effect works in place: both streams carry the same format.
    if (otherSet &&
        (other.cbFormat != pmt->cbFormat ||
         std::memcmp(other.pbFormat, pmt->pbFormat, std::min<DWORD>(pmt->cbFormat, 18)) != 0))
        return DMO_E_TYPE_NOT_ACCEPTED;
    if (flags & DMO_SET_TYPEF_TEST_ONLY) return S_OK;
    DMO_MEDIA_TYPE copy;
    hr = MoCopyMediaType(&copy, pmt);
    if (FAILED(hr)) return hr;
    if (mineSet) MoFreeMediaType(&mine);
    mine = copy;
    mineSet = true;
    ClearInput();
    if (FInputSet && FOutputSet) {
        FKind = kind;
        FRate = rate;
        FChannels = channels;
        FBlockAlign = channels * (kind == SampleKind::Int16 ? 2u : 4u);
        FScratch.assign(size_t(kChunkFrames) * channels, 0.0f);
        FNextTime = 0;
        FHasNext = false;
        Configure();
        Update();
    }
    return S_OK;
}

STDMETHODIMP AudioEffect::SetInputType(DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags) {
    return SetType(true, index, pmt, flags);
}

STDMETHODIMP AudioEffect::SetOutputType(DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags) {
    return SetType(false, index, pmt, flags);
}

STDMETHODIMP AudioEffect::GetInputCurrentType(DWORD index, DMO_MEDIA_TYPE* pmt) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pmt) return E_POINTER;
    std::lock_guard g(FMutex);
    if (!FInputSet) return DMO_E_TYPE_NOT_SET;
    return MoCopyMediaType(pmt, &FInputType);
}

STDMETHODIMP AudioEffect::GetOutputCurrentType(DWORD index, DMO_MEDIA_TYPE* pmt) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pmt) return E_POINTER;
    std::lock_guard g(FMutex);
    if (!FOutputSet) return DMO_E_TYPE_NOT_SET;
    return MoCopyMediaType(pmt, &FOutputType);
}

STDMETHODIMP AudioEffect::GetInputSizeInfo(DWORD index, DWORD* pcbSize, DWORD* pcbMaxLookahead,
                                           DWORD* pcbAlignment) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pcbSize || !pcbMaxLookahead || !pcbAlignment) return E_POINTER;
    std::lock_guard g(FMutex);
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    *pcbSize = FBlockAlign;
    *pcbMaxLookahead = 0;
    *pcbAlignment = 1;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetOutputSizeInfo(DWORD index, DWORD* pcbSize, DWORD* pcbAlignment) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pcbSize || !pcbAlignment) return E_POINTER;
    std::lock_guard g(FMutex);
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    *pcbSize = FBlockAlign;
    *pcbAlignment = 1;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetInputMaxLatency(DWORD, REFERENCE_TIME*) {
    return E_NOTIMPL;
}

STDMETHODIMP AudioEffect::SetInputMaxLatency(DWORD, REFERENCE_TIME) {
    return E_NOTIMPL;
}

// ---- streaming

void AudioEffect::ClearInput() {
    FInput = nullptr;
    FInputOffset = FInputLength = 0;
}

STDMETHODIMP AudioEffect::Flush() {
    std::lock_guard g(FMutex);
    ClearInput();
    FHasNext = false;
    if (TypesSet()) Reset();
    return S_OK;
}

STDMETHODIMP AudioEffect::Discontinuity(DWORD index) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    std::lock_guard g(FMutex);
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    // The tail of the old stream is not played out: what follows is unrelated audio.
    Reset();
    FHasNext = false;
    return S_OK;
}

STDMETHODIMP AudioEffect::AllocateStreamingResources() {
    return S_OK;
}

STDMETHODIMP AudioEffect::FreeStreamingResources() {
    return S_OK;
}

STDMETHODIMP AudioEffect::GetInputStatus(DWORD index, DWORD* dwFlags) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!dwFlags) return E_POINTER;
    std::lock_guard g(FMutex);
    *dwFlags = FInput ? 0 : DMO_INPUT_STATUSF_ACCEPT_DATA;
    return S_OK;
}

STDMETHODIMP AudioEffect::ProcessInput(DWORD index, IMediaBuffer* pBuffer, DWORD dwFlags,
                                       REFERENCE_TIME rtTimestamp, REFERENCE_TIME) {
    if (index != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (!pBuffer) return E_POINTER;
    std::lock_guard g(FMutex);
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    if (FInput) return DMO_E_NOTACCEPTING;
    BYTE* bytes = nullptr;
    DWORD length = 0;
    HRESULT hr = pBuffer->GetBufferAndLength(&bytes, &length);
    if (FAILED(hr)) return hr;
    if (dwFlags & DMO_INPUT_DATA_BUFFERF_TIME) FNextTime = rtTimestamp;
    const uint32_t whole = length / FBlockAlign * FBlockAlign;
    if (whole == 0) return S_FALSE;  // nothing to give out
    FInput = pBuffer;
    FInputOffset = 0;
    FInputLength = whole;
    FInputTime = FNextTime;
    return S_OK;
}

STDMETHODIMP AudioEffect::ProcessOutput(DWORD dwFlags, DWORD cOutputBufferCount,
                                        DMO_OUTPUT_DATA_BUFFER* pOutputBuffers, DWORD* pdwStatus) {
    if (cOutputBufferCount != 1) return E_INVALIDARG;
    if (!pOutputBuffers) return E_POINTER;
    if (pdwStatus) *pdwStatus = 0;
    std::lock_guard g(FMutex);
    DMO_OUTPUT_DATA_BUFFER& out = pOutputBuffers[0];
    out.dwStatus = 0;
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    if (!FInput) return S_FALSE;
    BYTE* in = nullptr;
    DWORD inLength = 0;
    HRESULT hr = FInput->GetBufferAndLength(&in, &inLength);
    if (FAILED(hr)) return hr;
    const uint32_t left = FInputLength - FInputOffset;
    uint32_t frames = left / FBlockAlign;
    std::vector<BYTE> discard;
    BYTE* dst = nullptr;
    DWORD outLength = 0;
    if (out.pBuffer) {
        DWORD maxLength = 0;
        BYTE* outBytes = nullptr;
        hr = out.pBuffer->GetMaxLength(&maxLength);
        if (SUCCEEDED(hr)) hr = out.pBuffer->GetBufferAndLength(&outBytes, &outLength);
        if (FAILED(hr)) return hr;
        frames =
            std::min(frames, (maxLength > outLength ? maxLength - outLength : 0) / FBlockAlign);
        dst = outBytes + outLength;
    } else if (dwFlags & DMO_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER) {
        // The caller does not want this output, but the effect's state still moves on.
        discard.resize(left);
        dst = discard.data();
    } else {
        return E_POINTER;
    }
    const REFERENCE_TIME start = FInputTime;
    if (frames > 0) {
        std::memmove(dst, in + FInputOffset, size_t(frames) * FBlockAlign);
        ProcessBytes(dst, frames, start);
        if (out.pBuffer) out.pBuffer->SetLength(outLength + frames * FBlockAlign);
        FInputOffset += frames * FBlockAlign;
        FInputTime = FNextTime;
    }
    out.rtTimestamp = start;
    out.rtTimelength = FNextTime - start;
    out.dwStatus = DMO_OUTPUT_DATA_BUFFERF_SYNCPOINT | DMO_OUTPUT_DATA_BUFFERF_TIME |
                   DMO_OUTPUT_DATA_BUFFERF_TIMELENGTH;
    if (FInputOffset < FInputLength)
        out.dwStatus |= DMO_OUTPUT_DATA_BUFFERF_INCOMPLETE;
    else
        ClearInput();
    return frames > 0 ? S_OK : S_FALSE;
}

STDMETHODIMP AudioEffect::Lock(LONG) {
    return S_OK;
}

STDMETHODIMP AudioEffect::Process(ULONG ulSize, BYTE* pData, REFERENCE_TIME refTimeStart,
                                  DWORD dwFlags) {
    std::lock_guard g(FMutex);
    if (!TypesSet()) return DMO_E_TYPE_NOT_SET;
    if (!pData && ulSize) return E_POINTER;
    const uint32_t frames = ulSize / FBlockAlign;
    if (dwFlags & DMO_INPLACE_ZERO) std::memset(pData, 0, size_t(frames) * FBlockAlign);
    if (frames) ProcessBytes(pData, frames, refTimeStart);
    return S_OK;
}

STDMETHODIMP AudioEffect::Clone(IMediaObjectInPlace** ppMediaObject) {
    if (!ppMediaObject) return E_POINTER;
    *ppMediaObject = nullptr;
    AudioEffect* copy = NewInstance();
    if (!copy) return E_OUTOFMEMORY;
    ComPtr<IMediaObject> owner = MwAdopt<IMediaObject>(copy);
    std::lock_guard g(FMutex);
    copy->FValues = FValues;
    copy->FTimeFormat = FTimeFormat;
    copy->FTimeData = FTimeData;
    HRESULT hr = S_OK;
    if (FInputSet) hr = copy->SetInputType(0, &FInputType, 0);
    if (SUCCEEDED(hr) && FOutputSet) hr = copy->SetOutputType(0, &FOutputType, 0);
    if (FAILED(hr)) return hr;
    *ppMediaObject = copy;
    copy->AddRef();
    return S_OK;
}

STDMETHODIMP AudioEffect::GetLatency(REFERENCE_TIME* pLatencyTime) {
    if (!pLatencyTime) return E_POINTER;
    std::lock_guard g(FMutex);
    *pLatencyTime = Latency();
    return S_OK;
}

void AudioEffect::ProcessBytes(BYTE* data, uint32_t frames, REFERENCE_TIME start) {
    // Times stamped in whole 100 ns units fall a fraction of a unit off the frames; a buffer
    // that follows the last one goes on from its exact end, so that the frames of a stream
    // lie where they lie whatever the buffer sizes.
    const double exactStart =
        FHasNext && std::fabs(start - FNextExact) < 1.0 ? FNextExact : static_cast<double>(start);
    // Envelope times in the chosen format: reference time, or frames at the format's rate. A
    // frame counts as reached a hair early, so that rounding never moves a segment that starts
    // on a frame to the frame after.
    constexpr double kSlack = 1e-6;
    double firstTime = exactStart + kSlack;
    double perFrame = kReferenceRate / FRate;
    if (IsEqualGUID(FTimeFormat, GUID_TIME_SAMPLES)) {
        const double unitsRate = FTimeData ? FTimeData : FRate;
        firstTime = exactStart * unitsRate / kReferenceRate + kSlack;
        perFrame = unitsRate / FRate;
    }
    const uint32_t channels = static_cast<uint32_t>(FChannels);
    uint32_t done = 0;
    while (done < frames) {
        const uint32_t n = std::min(kChunkFrames, frames - done);
        const size_t samples = size_t(n) * channels;
        BYTE* bytes = data + size_t(done) * FBlockAlign;
        float* f = FScratch.data();
        if (FKind == SampleKind::Float32) {
            std::memcpy(f, bytes, samples * sizeof(float));
        } else {
            for (size_t i = 0; i < samples; ++i) {
                int16_t s;
                std::memcpy(&s, bytes + 2 * i, 2);
                f[i] = s * (1.0f / 32768.0f);
            }
        }
        RunWithEnvelopes(f, n, firstTime + done * perFrame, perFrame);
        if (FKind == SampleKind::Float32) {
            std::memcpy(bytes, f, samples * sizeof(float));
        } else {
            for (size_t i = 0; i < samples; ++i) {
                const float v = std::clamp(f[i] * 32768.0f, -32768.0f, 32767.0f);
                const int16_t s = static_cast<int16_t>(std::lrint(v));
                std::memcpy(bytes + 2 * i, &s, 2);
            }
        }
        done += n;
    }
    FNextExact = exactStart + frames * kReferenceRate / FRate;
    FHasNext = true;
    FNextTime = static_cast<REFERENCE_TIME>(std::floor(FNextExact));
}

void AudioEffect::RunWithEnvelopes(float* data, uint32_t frames, double firstTime,
                                   double perFrame) {
    uint32_t pos = 0;
    while (pos < frames) {
        if (ApplyEnvelopes(firstTime + pos * perFrame)) Update();
        const uint32_t run = SteadyFrames(pos, frames, firstTime, perFrame);
        Run(data + size_t(pos) * FChannels, run);
        pos += run;
    }
}

float AudioEffect::Typed(int index, float value) const {
    const ParamDef& d = FDefs[index];
    if (std::isnan(value)) value = d.Neutral;
    value = std::clamp(value, d.Min, d.Max);
    switch (d.Type) {
        case MPT_BOOL:
            return value >= 0.5f ? 1.0f : 0.0f;
        case MPT_INT:
        case MPT_ENUM:
            return std::clamp(std::round(value), d.Min, d.Max);
        default:
            return value;
    }
}

bool AudioEffect::ApplyEnvelopes(double t) {
    bool changed = false;
    for (size_t i = 0; i < FEnvelopes.size(); ++i) {
        std::deque<Segment>& env = FEnvelopes[i];
        const float before = FValues[i];
        // Segments that have passed leave their end value.
        while (!env.empty() && static_cast<double>(env.front().S.rtEnd) <= t) {
            FValues[i] = Typed(int(i), env.front().S.valEnd);
            env.pop_front();
        }
        if (!env.empty() && static_cast<double>(env.front().S.rtStart) <= t) {
            Segment& s = env.front();
            if (!s.Started) {
                s.Started = true;
                s.From = (s.S.flags & MPF_ENVLP_BEGIN_CURRENTVAL)   ? FValues[i]
                         : (s.S.flags & MPF_ENVLP_BEGIN_NEUTRALVAL) ? FDefs[i].Neutral
                                                                    : s.S.valStart;
            }
            const double length = static_cast<double>(s.S.rtEnd - s.S.rtStart);
            const double x = length > 0 ? (t - s.S.rtStart) / length : 1.0;
            const double v = s.From + (s.S.valEnd - s.From) * CurveShape(s.S.iCurve, x);
            FValues[i] = Typed(int(i), static_cast<float>(v));
        }
        changed = changed || FValues[i] != before;
    }
    return changed;
}

uint32_t AudioEffect::SteadyFrames(uint32_t pos, uint32_t frames, double firstTime,
                                   double perFrame) const {
    const double t = firstTime + pos * perFrame;
    uint32_t end = frames;
    // The first frame at or after time `when`.
    auto frameAt = [&](double when) -> uint32_t {
        double k = std::ceil((when - firstTime) / perFrame);
        if (k < pos + 1) return pos + 1;
        if (k >= frames) return frames;
        uint32_t f = static_cast<uint32_t>(k);
        while (f > pos + 1 && firstTime + (f - 1) * perFrame >= when)
            --f;
        while (f < frames && firstTime + f * perFrame < when)
            ++f;
        return f;
    };
    for (const std::deque<Segment>& env : FEnvelopes) {
        if (env.empty()) continue;
        const MP_ENVELOPE_SEGMENT& s = env.front().S;
        if (static_cast<double>(s.rtStart) > t)
            end = std::min(end, frameAt(static_cast<double>(s.rtStart)));
        else if (s.iCurve == MP_CURVE_JUMP)
            end = std::min(end, frameAt(static_cast<double>(s.rtEnd)));
        else
            return 1;  // a curve moves its value on every frame
    }
    return std::max<uint32_t>(1, end - pos);
}

// ---- parameters

STDMETHODIMP AudioEffect::GetParamCount(DWORD* pdwParams) {
    if (!pdwParams) return E_POINTER;
    *pdwParams = static_cast<DWORD>(FDefs.size());
    return S_OK;
}

STDMETHODIMP AudioEffect::GetParamInfo(DWORD dwParamIndex, MP_PARAMINFO* pInfo) {
    if (dwParamIndex >= FDefs.size()) return E_INVALIDARG;
    if (!pInfo) return E_POINTER;
    const ParamDef& d = FDefs[dwParamIndex];
    std::memset(pInfo, 0, sizeof *pInfo);
    pInfo->mpType = d.Type;
    pInfo->mopCaps = CurveCapsOf(d.Type);
    pInfo->mpdMinValue = d.Min;
    pInfo->mpdMaxValue = d.Max;
    pInfo->mpdNeutralValue = d.Neutral;
    const size_t unit = std::min<size_t>(d.Unit.size(), std::size(pInfo->szUnitText) - 1);
    std::copy_n(d.Unit.data(), unit, pInfo->szUnitText);
    const size_t label = std::min<size_t>(d.Label.size(), std::size(pInfo->szLabel) - 1);
    std::copy_n(d.Label.data(), label, pInfo->szLabel);
    return S_OK;
}

STDMETHODIMP AudioEffect::GetParamText(DWORD dwParamIndex, WCHAR** ppwchText) {
    if (!ppwchText) return E_POINTER;
    *ppwchText = nullptr;
    if (dwParamIndex >= FDefs.size()) return E_INVALIDARG;
    const ParamDef& d = FDefs[dwParamIndex];
    // Label, unit, then the text of each enum value, each ended by a null; a second null ends
    // the block.
    std::u16string block = d.Label + u'\0' + d.Unit + u'\0';
    for (const std::u16string& t : d.EnumTexts)
        block += t + u'\0';
    block += u'\0';
    auto* p = static_cast<WCHAR*>(CoTaskMemAlloc(block.size() * sizeof(WCHAR)));
    if (!p) return E_OUTOFMEMORY;
    std::copy(block.begin(), block.end(), p);
    *ppwchText = p;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetNumTimeFormats(DWORD* pdwNumTimeFormats) {
    if (!pdwNumTimeFormats) return E_POINTER;
    *pdwNumTimeFormats = 2;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetSupportedTimeFormat(DWORD dwFormatIndex, GUID* pguidTimeFormat) {
    if (!pguidTimeFormat) return E_POINTER;
    if (dwFormatIndex == 0)
        *pguidTimeFormat = GUID_TIME_REFERENCE;
    else if (dwFormatIndex == 1)
        *pguidTimeFormat = GUID_TIME_SAMPLES;
    else
        return E_INVALIDARG;
    return S_OK;
}

STDMETHODIMP AudioEffect::GetCurrentTimeFormat(GUID* pguidTimeFormat, MP_TIMEDATA* pTimeData) {
    if (!pguidTimeFormat || !pTimeData) return E_POINTER;
    std::lock_guard g(FMutex);
    *pguidTimeFormat = FTimeFormat;
    *pTimeData = FTimeData;
    return S_OK;
}

STDMETHODIMP AudioEffect::AddEnvelope(DWORD dwParamIndex, DWORD cPoints,
                                      MP_ENVELOPE_SEGMENT* pEnvelope) {
    if (dwParamIndex >= FDefs.size() && dwParamIndex != DWORD_ALLPARAMS) return E_INVALIDARG;
    if (cPoints > 0 && !pEnvelope) return E_POINTER;
    const size_t first = dwParamIndex == DWORD_ALLPARAMS ? 0 : dwParamIndex;
    const size_t last = dwParamIndex == DWORD_ALLPARAMS ? FDefs.size() : dwParamIndex + 1;
    // All segments are checked before any is taken.
    for (DWORD k = 0; k < cPoints; ++k) {
        const MP_ENVELOPE_SEGMENT& s = pEnvelope[k];
        if (s.rtEnd < s.rtStart || !IsSingleCurve(s.iCurve) ||
            (s.flags & ~(MPF_ENVLP_BEGIN_CURRENTVAL | MPF_ENVLP_BEGIN_NEUTRALVAL)) ||
            s.flags == (MPF_ENVLP_BEGIN_CURRENTVAL | MPF_ENVLP_BEGIN_NEUTRALVAL) ||
            std::isnan(s.valStart) || std::isnan(s.valEnd))
            return E_INVALIDARG;
        for (size_t i = first; i < last; ++i)
            if (!(CurveCapsOf(FDefs[i].Type) & s.iCurve)) return E_INVALIDARG;
    }
    std::lock_guard g(FMutex);
    for (size_t i = first; i < last; ++i) {
        std::deque<Segment>& env = FEnvelopes[i];
        for (DWORD k = 0; k < cPoints; ++k) {
            Segment seg{pEnvelope[k]};
            auto at = std::upper_bound(
                env.begin(), env.end(), seg.S.rtStart,
                [](REFERENCE_TIME t, const Segment& e) { return t < e.S.rtStart; });
            env.insert(at, seg);
        }
    }
    return S_OK;
}

STDMETHODIMP AudioEffect::FlushEnvelope(DWORD dwParamIndex, REFERENCE_TIME refTimeStart,
                                        REFERENCE_TIME refTimeEnd) {
    if (dwParamIndex >= FDefs.size() && dwParamIndex != DWORD_ALLPARAMS) return E_INVALIDARG;
    if (refTimeEnd < refTimeStart) return E_INVALIDARG;
    const size_t first = dwParamIndex == DWORD_ALLPARAMS ? 0 : dwParamIndex;
    const size_t last = dwParamIndex == DWORD_ALLPARAMS ? FDefs.size() : dwParamIndex + 1;
    std::lock_guard g(FMutex);
    for (size_t i = first; i < last; ++i)
        std::erase_if(FEnvelopes[i], [&](const Segment& s) {
            return s.S.rtStart <= refTimeEnd && s.S.rtEnd >= refTimeStart;
        });
    return S_OK;
}

STDMETHODIMP AudioEffect::GetParam(DWORD dwParamIndex, MP_DATA* pValue) {
    if (dwParamIndex >= FDefs.size()) return E_INVALIDARG;
    if (!pValue) return E_POINTER;
    std::lock_guard g(FMutex);
    *pValue = FValues[dwParamIndex];
    return S_OK;
}

STDMETHODIMP AudioEffect::SetParam(DWORD dwParamIndex, MP_DATA value) {
    if (dwParamIndex >= FDefs.size()) return E_INVALIDARG;
    std::lock_guard g(FMutex);
    const float v = Typed(int(dwParamIndex), value);
    if (v == FValues[dwParamIndex]) return S_OK;
    FValues[dwParamIndex] = v;
    if (TypesSet()) Update();
    return S_OK;
}

STDMETHODIMP AudioEffect::SetTimeFormat(GUID guidTimeFormat, MP_TIMEDATA mpTimeData) {
    if (!IsEqualGUID(guidTimeFormat, GUID_TIME_REFERENCE) &&
        !IsEqualGUID(guidTimeFormat, GUID_TIME_SAMPLES))
        return E_INVALIDARG;
    std::lock_guard g(FMutex);
    if (!IsEqualGUID(guidTimeFormat, FTimeFormat) || mpTimeData != FTimeData)
        for (std::deque<Segment>& env : FEnvelopes)
            env.clear();
    FTimeFormat = guidTimeFormat;
    FTimeData = mpTimeData;
    return S_OK;
}

}  // namespace mw::dmo
