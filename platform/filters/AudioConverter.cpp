// The audio format converter: sample type, channel count and rate, on libswresample. Registered
// so that intelligent connect puts it between an audio output and an input that wants another
// PCM or float format; its output takes any such format the input downstream enumerates, and
// proposes 16-bit PCM and float of the input's rate and channels.
extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstring>

#include "platform/filters/PlatformFilters.h"
#include "platform/filters/Renderers.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {
namespace {

constexpr int kOutputFrames = 8192;

struct Layout {
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int rate = 0;
    int channels = 0;
    int blockAlign = 0;
};

Layout LayoutOf(const AM_MEDIA_TYPE& type) {
    Layout l;
    const auto* wf = reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    bool isFloat = wf->wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    if (wf->wFormatTag == WAVE_FORMAT_EXTENSIBLE)
        isFloat = IsEqualGUID(reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wf)->SubFormat,
                              MEDIASUBTYPE_IEEE_FLOAT);
    l.rate = static_cast<int>(wf->nSamplesPerSec);
    l.channels = wf->nChannels;
    l.blockAlign = wf->nBlockAlign;
    switch (wf->wBitsPerSample) {
        case 8:
            l.format = AV_SAMPLE_FMT_U8;
            break;
        case 16:
            l.format = AV_SAMPLE_FMT_S16;
            break;
        case 32:
            l.format = isFloat ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S32;
            break;
        default:
            l.format = AV_SAMPLE_FMT_NONE;  // 24-bit packed: not a libswresample sample type
    }
    return l;
}

bool Convertible(const AM_MEDIA_TYPE& type) {
    return IsPcmAudio(type) && LayoutOf(type).format != AV_SAMPLE_FMT_NONE;
}

WAVEFORMATEX Plain(WORD tag, const WAVEFORMATEX& like, WORD bits) {
    WAVEFORMATEX f{};
    f.wFormatTag = tag;
    f.nChannels = like.nChannels;
    f.nSamplesPerSec = like.nSamplesPerSec;
    f.wBitsPerSample = bits;
    f.nBlockAlign = static_cast<WORD>(like.nChannels * bits / 8);
    f.nAvgBytesPerSec = f.nSamplesPerSec * f.nBlockAlign;
    return f;
}

class AudioConverter;

class ConverterInput final : public PlatformInputPin {
public:
    using PlatformInputPin::PlatformInputPin;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override {
        return Convertible(type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
};

class ConverterOutput final : public PlatformOutputPin {
public:
    ConverterOutput(PlatformFilter* filter, PlatformInputPin* input)
        : PlatformOutputPin(filter, u"Output"), FInput(input) {}
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override {
        if (!FInput->IsConnected()) return VFW_E_NOT_CONNECTED;
        return Convertible(type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
    std::vector<graph::MediaType> MediaTypes() override {
        if (!FInput->IsConnected()) return {};
        const graph::MediaType type = FInput->ConnectedType();
        const auto* in = type.Wave();
        if (!in) return {};
        return {graph::AudioMediaType(Plain(WAVE_FORMAT_PCM, *in, 16)),
                graph::AudioMediaType(Plain(WAVE_FORMAT_IEEE_FLOAT, *in, 32))};
    }
    void DecideBufferSize(ALLOCATOR_PROPERTIES& props) override {
        const graph::MediaType type = ConnectedType();
        const auto* out = type.Wave();
        props.cBuffers = std::max<LONG>(props.cBuffers, 4);
        props.cbBuffer =
            std::max<LONG>(props.cbBuffer, kOutputFrames * (out ? out->nBlockAlign : 8));
    }

private:
    PlatformInputPin* FInput;
};

class AudioConverter final : public PlatformFilter {
public:
    AudioConverter() : PlatformFilter(CLSID_MwAudioConverter) {
        FIn = new ConverterInput(this, u"Input");
        FOut = new ConverterOutput(this, FIn);
        AddPin(FIn);
        AddPin(FOut);
    }
    ~AudioConverter() override { swr_free(&FSwr); }

    HRESULT Receive(PlatformInputPin*, IMediaSample* sample) override {
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const int frames = sample->GetActualDataLength() / std::max(FInLayout.blockAlign, 1);
        std::lock_guard lock(FStreamMutex);
        if (!FSwr) return VFW_E_WRONG_STATE;
        const uint8_t* in[1] = {data};
        return Convert(in, frames);
    }
    HRESULT EndOfStream(PlatformInputPin*) override {
        {
            std::lock_guard lock(FStreamMutex);
            if (FSwr) Convert(nullptr, 0);  // what the resampler still holds
        }
        return FOut->DeliverEndOfStream();
    }
    HRESULT BeginFlush(PlatformInputPin*) override { return FOut->DeliverBeginFlush(); }
    HRESULT EndFlush(PlatformInputPin*) override {
        {
            std::lock_guard lock(FStreamMutex);
            if (FSwr) swr_init(FSwr);  // drops what it held
        }
        return FOut->DeliverEndFlush();
    }
    HRESULT NewSegment(PlatformInputPin*, REFERENCE_TIME start, REFERENCE_TIME stop,
                       double rate) override {
        {
            std::lock_guard lock(FStreamMutex);
            FFramesOut = 0;
        }
        return FOut->DeliverNewSegment(start, stop, rate);
    }
    bool ReceiveCanBlock() override { return true; }

protected:
    HRESULT OnPause() override {
        if (State() != State_Stopped) return S_OK;
        if (!FIn->IsConnected() || !FOut->IsConnected()) return S_OK;
        std::lock_guard lock(FStreamMutex);
        FInLayout = LayoutOf(*FIn->ConnectedType());
        FOutLayout = LayoutOf(*FOut->ConnectedType());
        AVChannelLayout inCh, outCh;
        av_channel_layout_default(&inCh, FInLayout.channels);
        av_channel_layout_default(&outCh, FOutLayout.channels);
        swr_free(&FSwr);
        const int rc = swr_alloc_set_opts2(&FSwr, &outCh, FOutLayout.format, FOutLayout.rate, &inCh,
                                           FInLayout.format, FInLayout.rate, 0, nullptr);
        av_channel_layout_uninit(&inCh);
        av_channel_layout_uninit(&outCh);
        if (rc < 0 || swr_init(FSwr) < 0) {
            swr_free(&FSwr);
            return E_FAIL;
        }
        FFramesOut = 0;
        return S_OK;
    }
    HRESULT OnStop() override {
        std::lock_guard lock(FStreamMutex);
        swr_free(&FSwr);
        return S_OK;
    }

private:
    // Converts (input null: drains) into as many output samples as it takes.
    HRESULT Convert(const uint8_t** in, int frames) {
        for (;;) {
            ComPtr<IMediaSample> out;
            HRESULT hr = FOut->GetDeliveryBuffer(out.ReleaseAndGetAddressOf());
            if (FAILED(hr)) return hr;
            BYTE* dst = nullptr;
            out->GetPointer(&dst);
            const int capacity = out->GetSize() / FOutLayout.blockAlign;
            uint8_t* outPlanes[1] = {dst};
            const int got = swr_convert(FSwr, outPlanes, capacity, in, frames);
            if (got < 0) return E_FAIL;
            in = nullptr;
            frames = 0;
            if (got == 0) return S_OK;
            REFERENCE_TIME start = FFramesOut * 10000000LL / FOutLayout.rate;
            FFramesOut += got;
            REFERENCE_TIME stop = FFramesOut * 10000000LL / FOutLayout.rate;
            out->SetActualDataLength(got * FOutLayout.blockAlign);
            out->SetTime(&start, &stop);
            hr = FOut->Deliver(out.Get());
            if (hr != S_OK) return hr;
            if (got < capacity) return S_OK;
        }
    }

    ConverterInput* FIn;
    ConverterOutput* FOut;
    std::mutex FStreamMutex;
    SwrContext* FSwr = nullptr;
    Layout FInLayout, FOutLayout;
    int64_t FFramesOut = 0;
};

}  // namespace

HRESULT CreateAudioConverter(IUnknown* outer, REFIID iid, void** object) {
    return CreateFilter<AudioConverter>(outer, iid, object);
}

}  // namespace mw::filters
