// The platform's renderers: the base they share (end of stream turns into EC_COMPLETE while
// running), the null renderer and the audio renderer of a wave output device.
#pragma once

#include <condition_variable>
#include <memory>
#include <string>

#include "platform/filters/PlatformFilter.h"
#include "platform/filters/Seeking.h"

namespace mw::filters {

class RendererFilter : public PlatformFilter, public IAMFilterMiscFlags {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return PlatformFilter::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return PlatformFilter::Release(); }
    STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

    HRESULT EndOfStream(PlatformInputPin* pin) override;
    HRESULT EndFlush(PlatformInputPin* pin) override;
    PlatformInputPin* Input() const { return FInput; }

protected:
    explicit RendererFilter(const CLSID& clsid);
    void SetInput(PlatformInputPin* pin);  // once, from the constructor
    HRESULT OnStop() override;
    HRESULT OnRun(REFERENCE_TIME start) override;
    // Whether everything received has been rendered (the end of stream may then complete).
    virtual bool Drained() { return true; }
    // Sends EC_COMPLETE once when the stream ended, everything is rendered and the filter runs.
    void CheckComplete(bool running);

private:
    PlatformInputPin* FInput = nullptr;
    std::unique_ptr<SeekingPassThrough> FSeeking;
    std::mutex FEosMutex;
    bool FEos = false;
    bool FCompleted = false;
};

// Takes any media type and drops the samples as they come.
class NullRenderer final : public RendererFilter {
public:
    NullRenderer();
    HRESULT Receive(PlatformInputPin* pin, IMediaSample* sample) override;
    uint64_t SamplesReceived() const { return FSamples.load(); }

private:
    std::atomic<uint64_t> FSamples{0};
};

HRESULT CreateAudioConverter(IUnknown* outer, REFIID iid, void** object);
HRESULT CreateGainFilter(IUnknown* outer, REFIID iid, void** object);
HRESULT CreateFileSource(IUnknown* outer, REFIID iid, void** object);
HRESULT CreateSampleGrabber(IUnknown* outer, REFIID iid, void** object);

// Creates the audio renderer of a wave output device (WAVE_MAPPER: the default device) with
// the given class id.
HRESULT CreateAudioRenderer(UINT device, const CLSID& clsid, REFIID iid, void** object);

}  // namespace mw::filters
