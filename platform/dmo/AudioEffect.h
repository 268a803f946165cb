// The base of the built-in audio effect objects: one input and one output stream of the same
// 16-bit integer PCM or 32-bit float audio, processed in place, with typed parameters and
// envelopes of parameter values over stream time.
//
// An effect answers IMediaObject (types, ProcessInput/ProcessOutput, Flush, Discontinuity),
// IMediaObjectInPlace (Process, Clone, GetLatency), IMediaParamInfo and IMediaParams. A
// subclass supplies the parameter table and the DSP on interleaved float frames; the base
// converts samples, keeps the stream time and applies envelopes to the frame: a segment takes
// effect at the first frame whose time lies at or after its start, and a curved segment moves
// its parameter on every frame.
//
// Envelopes. Segments are kept in order of their start. While a segment runs, its curve goes
// from the start value (valStart, the value the parameter had when the segment began for
// MPF_ENVLP_BEGIN_CURRENTVAL, or the neutral value for MPF_ENVLP_BEGIN_NEUTRALVAL) to valEnd:
// jump holds the start value and takes the end value at the end, linear, square (x^2), inverse
// square (sqrt x) and sine ((1 - cos pi x) / 2) move in between. A segment that has passed
// leaves its end value as the parameter's value and is dropped. Times are reference time
// (100 ns) by default, or sample frames with GUID_TIME_SAMPLES (units: the rate the frames
// are counted at, 0 for the stream's rate); music time is not supported. Changing the time
// format drops all envelopes, whose times meant something else.
//
// Threads: every method may be called from any thread; one mutex serialises the processing
// with the parameter and type calls, so a value set while a buffer is processed takes effect
// from the next buffer.
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "comptr.h"
#include "dmo.h"
#include "medparam.h"

namespace mw::dmo {

// One parameter of an effect, as IMediaParamInfo describes it.
struct ParamDef {
    MP_TYPE Type = MPT_FLOAT;
    float Min = 0;
    float Max = 1;
    float Neutral = 0;
    std::u16string Label;
    std::u16string Unit;
    std::vector<std::u16string> EnumTexts;  // MPT_ENUM: the text of each value from Min
};

// Curves an envelope of a parameter of this type may use: all for numbers, jump for bool and
// enum parameters, whose values have no in-between.
MP_CAPS CurveCapsOf(MP_TYPE type);

class AudioEffect : public IMediaObject,
                    public IMediaObjectInPlace,
                    public IMediaParamInfo,
                    public IMediaParams {
public:
    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IMediaObject
    STDMETHODIMP GetStreamCount(DWORD* pcInputStreams, DWORD* pcOutputStreams) override;
    STDMETHODIMP GetInputStreamInfo(DWORD index, DWORD* pdwFlags) override;
    STDMETHODIMP GetOutputStreamInfo(DWORD index, DWORD* pdwFlags) override;
    STDMETHODIMP GetInputType(DWORD index, DWORD typeIndex, DMO_MEDIA_TYPE* pmt) override;
    STDMETHODIMP GetOutputType(DWORD index, DWORD typeIndex, DMO_MEDIA_TYPE* pmt) override;
    STDMETHODIMP SetInputType(DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags) override;
    STDMETHODIMP SetOutputType(DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags) override;
    STDMETHODIMP GetInputCurrentType(DWORD index, DMO_MEDIA_TYPE* pmt) override;
    STDMETHODIMP GetOutputCurrentType(DWORD index, DMO_MEDIA_TYPE* pmt) override;
    STDMETHODIMP GetInputSizeInfo(DWORD index, DWORD* pcbSize, DWORD* pcbMaxLookahead,
                                  DWORD* pcbAlignment) override;
    STDMETHODIMP GetOutputSizeInfo(DWORD index, DWORD* pcbSize, DWORD* pcbAlignment) override;
    STDMETHODIMP GetInputMaxLatency(DWORD index, REFERENCE_TIME* prtMaxLatency) override;
    STDMETHODIMP SetInputMaxLatency(DWORD index, REFERENCE_TIME rtMaxLatency) override;
    STDMETHODIMP Flush() override;
    STDMETHODIMP Discontinuity(DWORD index) override;
    STDMETHODIMP AllocateStreamingResources() override;
    STDMETHODIMP FreeStreamingResources() override;
    STDMETHODIMP GetInputStatus(DWORD index, DWORD* dwFlags) override;
    STDMETHODIMP ProcessInput(DWORD index, IMediaBuffer* pBuffer, DWORD dwFlags,
                              REFERENCE_TIME rtTimestamp, REFERENCE_TIME rtTimelength) override;
    STDMETHODIMP ProcessOutput(DWORD dwFlags, DWORD cOutputBufferCount,
                               DMO_OUTPUT_DATA_BUFFER* pOutputBuffers, DWORD* pdwStatus) override;
    STDMETHODIMP Lock(LONG bLock) override;

    // IMediaObjectInPlace
    STDMETHODIMP Process(ULONG ulSize, BYTE* pData, REFERENCE_TIME refTimeStart,
                         DWORD dwFlags) override;
    STDMETHODIMP Clone(IMediaObjectInPlace** ppMediaObject) override;
    STDMETHODIMP GetLatency(REFERENCE_TIME* pLatencyTime) override;

    // IMediaParamInfo
    STDMETHODIMP GetParamCount(DWORD* pdwParams) override;
    STDMETHODIMP GetParamInfo(DWORD dwParamIndex, MP_PARAMINFO* pInfo) override;
    STDMETHODIMP GetParamText(DWORD dwParamIndex, WCHAR** ppwchText) override;
    STDMETHODIMP GetNumTimeFormats(DWORD* pdwNumTimeFormats) override;
    STDMETHODIMP GetSupportedTimeFormat(DWORD dwFormatIndex, GUID* pguidTimeFormat) override;
    STDMETHODIMP GetCurrentTimeFormat(GUID* pguidTimeFormat, MP_TIMEDATA* pTimeData) override;

    // IMediaParams
    STDMETHODIMP AddEnvelope(DWORD dwParamIndex, DWORD cPoints,
                             MP_ENVELOPE_SEGMENT* pEnvelope) override;
    STDMETHODIMP FlushEnvelope(DWORD dwParamIndex, REFERENCE_TIME refTimeStart,
                               REFERENCE_TIME refTimeEnd) override;
    STDMETHODIMP GetParam(DWORD dwParamIndex, MP_DATA* pValue) override;
    STDMETHODIMP SetParam(DWORD dwParamIndex, MP_DATA value) override;
    STDMETHODIMP SetTimeFormat(GUID guidTimeFormat, MP_TIMEDATA mpTimeData) override;

protected:
    explicit AudioEffect(std::vector<ParamDef> params);
    virtual ~AudioEffect();

    // The value of a parameter now (clamped, whole for integer, bool and enum parameters).
    float Param(int index) const { return FValues[index]; }
    uint32_t Rate() const { return FRate; }
    int Channels() const { return FChannels; }

    // The stream's rate and channels are known (a new type): size the state and clear it.
    virtual void Configure() = 0;
    // Clears the state (delay lines, filters, detectors): the stream starts anew.
    virtual void Reset() = 0;
    // One or more parameter values changed: derive what the DSP uses from them.
    virtual void Update() = 0;
    // Processes interleaved frames in place, with the parameters as they are now.
    virtual void Run(float* data, uint32_t frames) = 0;
    // Latency the effect adds, in 100 ns units; known before the stream has a type.
    virtual REFERENCE_TIME Latency() const { return 0; }
    // A new effect of the same class, with the default values.
    virtual AudioEffect* NewInstance() const = 0;

private:
    struct Segment {
        MP_ENVELOPE_SEGMENT S;
        bool Started = false;
        float From = 0;
    };
    enum class SampleKind { None, Int16, Float32 };

    HRESULT CheckType(const DMO_MEDIA_TYPE* pmt, SampleKind* kind, WORD* channels,
                      DWORD* rate) const;
    HRESULT SetType(bool input, DWORD index, const DMO_MEDIA_TYPE* pmt, DWORD flags);
    bool TypesSet() const { return FKind != SampleKind::None; }
    float Typed(int index, float value) const;
    // Processes whole frames of the stream's sample type in place from stream time `start`.
    void ProcessBytes(BYTE* data, uint32_t frames, REFERENCE_TIME start);
    void RunWithEnvelopes(float* data, uint32_t frames, double firstTime, double perFrame);
    // Applies the envelopes at time t; true when a value changed.
    bool ApplyEnvelopes(double t);
    // Frames from `pos` on during which no envelope changes a value (at least 1).
    uint32_t SteadyFrames(uint32_t pos, uint32_t frames, double firstTime, double perFrame) const;
    void ClearInput();

    std::atomic<ULONG> FRefs{1};
    mutable std::mutex FMutex;
    std::vector<ParamDef> FDefs;
    std::vector<float> FValues;
    std::vector<std::deque<Segment>> FEnvelopes;
    GUID FTimeFormat = GUID_TIME_REFERENCE;
    MP_TIMEDATA FTimeData = 0;

    // The type: one for both streams, since the effect works in place.
    DMO_MEDIA_TYPE FInputType{};
    DMO_MEDIA_TYPE FOutputType{};
    bool FInputSet = false;
    bool FOutputSet = false;
    SampleKind FKind = SampleKind::None;
    uint32_t FRate = 0;
    int FChannels = 0;
    uint32_t FBlockAlign = 0;
    std::vector<float> FScratch;

    // The stream: where the next frame lies in time, and the input held for ProcessOutput.
    REFERENCE_TIME FNextTime = 0;
    double FNextExact = 0;  // FNextTime before it was cut to whole units
    bool FHasNext = false;
    ComPtr<IMediaBuffer> FInput;
    uint32_t FInputOffset = 0;
    uint32_t FInputLength = 0;
    REFERENCE_TIME FInputTime = 0;
};

// Sample helpers shared by the effects.
inline float DbToGain(double db) {
    return static_cast<float>(std::pow(10.0, db / 20.0));
}
// Values too small to matter become 0, so that a decaying feedback loop never runs on
// denormal numbers.
inline float Undenormal(float v) {
    return (v > -1e-15f && v < 1e-15f) ? 0.0f : v;
}
inline double Undenormal(double v) {
    return (v > -1e-15 && v < 1e-15) ? 0.0 : v;
}

}  // namespace mw::dmo
