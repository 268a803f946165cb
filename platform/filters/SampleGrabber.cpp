// The sample grabber: an in-place filter that hands every sample to the application (a callback
// on the streaming thread, or a copy of the last buffer) and passes it on when its output is
// connected; with nothing behind it, it is the renderer of its stream.
#include <cstring>
#include <vector>

#include "evcode.h"
#include "platform/filters/PlatformFilters.h"
#include "platform/filters/Renderers.h"
#include "qedit.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {
namespace {

class SampleGrabber;

class GrabberInput final : public PlatformInputPin {
public:
    GrabberInput(PlatformFilter* filter, SampleGrabber* owner)
        : PlatformInputPin(filter, u"Input"), FOwner(owner) {}
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override;
    std::vector<graph::MediaType> MediaTypes() override;

private:
    SampleGrabber* FOwner;
};

class GrabberOutput final : public PlatformOutputPin {
public:
    GrabberOutput(PlatformFilter* filter, PlatformInputPin* input)
        : PlatformOutputPin(filter, u"Output"), FInput(input) {}
    // Only the input's type, once the input is connected.
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override {
        if (!FInput->IsConnected()) return VFW_E_NOT_CONNECTED;
        return graph::MediaTypesEqual(*FInput->ConnectedType(), type) ? S_OK
                                                                      : VFW_E_TYPE_NOT_ACCEPTED;
    }
    std::vector<graph::MediaType> MediaTypes() override {
        if (!FInput->IsConnected()) return {};
        return {FInput->ConnectedType()};
    }

private:
    PlatformInputPin* FInput;
};

class SampleGrabber final : public RendererFilter, public ISampleGrabber {
public:
    SampleGrabber() : RendererFilter(CLSID_SampleGrabber) {
        auto* in = new GrabberInput(this, this);
        SetInput(in);
        FOutput = new GrabberOutput(this, in);
        AddPin(FOutput);
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (object && IsEqualIID(iid, IID_ISampleGrabber)) {
            *object = static_cast<ISampleGrabber*>(this);
            AddRef();
            return S_OK;
        }
        return RendererFilter::QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return RendererFilter::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return RendererFilter::Release(); }
    // A renderer only while nothing is connected behind it.
    STDMETHODIMP_(ULONG) GetMiscFlags() override {
        return FOutput->IsConnected() ? 0 : AM_FILTER_MISC_FLAGS_IS_RENDERER;
    }

    STDMETHODIMP SetOneShot(BOOL oneShot) override {
        std::lock_guard lock(FMutex);
        FOneShot = oneShot != FALSE;
        return S_OK;
    }
    STDMETHODIMP SetMediaType(const AM_MEDIA_TYPE* type) override {
        std::lock_guard lock(FMutex);
        if (type)
            FWanted = graph::MediaType(*type);
        else
            FWanted = graph::MediaType();
        FHasWanted = type != nullptr;
        return S_OK;
    }
    STDMETHODIMP GetConnectedMediaType(AM_MEDIA_TYPE* type) override {
        if (!type) return E_POINTER;
        return Input()->ConnectionMediaType(type);
    }
    STDMETHODIMP SetBufferSamples(BOOL buffer) override {
        std::lock_guard lock(FMutex);
        FBufferSamples = buffer != FALSE;
        return S_OK;
    }
    // With a null buffer, the size needed; else the copy of the last sample.
    STDMETHODIMP GetCurrentBuffer(LONG* size, LONG* buffer) override {
        if (!size) return E_POINTER;
        std::lock_guard lock(FMutex);
        if (!FBufferSamples) return E_INVALIDARG;
        if (!FHaveBuffer) return VFW_E_WRONG_STATE;
        if (!buffer) {
            *size = static_cast<LONG>(FBuffer.size());
            return S_OK;
        }
        if (*size < static_cast<LONG>(FBuffer.size())) return E_OUTOFMEMORY;
        std::memcpy(buffer, FBuffer.data(), FBuffer.size());
        *size = static_cast<LONG>(FBuffer.size());
        return S_OK;
    }
    STDMETHODIMP GetCurrentSample(IMediaSample**) override { return E_NOTIMPL; }
    STDMETHODIMP SetCallback(ISampleGrabberCB* callback, LONG which) override {
        if (which != 0 && which != 1) return E_INVALIDARG;
        std::lock_guard lock(FMutex);
        FCallback = ComPtr<ISampleGrabberCB>(callback);
        FWhich = which;
        return S_OK;
    }

    // The type set by the application, when it is complete enough to connect with.
    std::vector<graph::MediaType> Wanted() {
        std::lock_guard lock(FMutex);
        if (!FHasWanted || FWanted->cbFormat == 0) return {};
        return {FWanted};
    }

    bool Accepts(const AM_MEDIA_TYPE& type) {
        std::lock_guard lock(FMutex);
        if (!FHasWanted) return true;
        auto ok = [](const GUID& want, const GUID& have) {
            return IsEqualGUID(want, GUID_NULL) || IsEqualGUID(want, have);
        };
        if (!ok(FWanted->majortype, type.majortype) || !ok(FWanted->subtype, type.subtype) ||
            !ok(FWanted->formattype, type.formattype))
            return false;
        // A format block given with the type must be the one connected.
        return FWanted->cbFormat == 0 ||
               (FWanted->cbFormat == type.cbFormat &&
                std::memcmp(FWanted->pbFormat, type.pbFormat, type.cbFormat) == 0);
    }

    HRESULT Receive(PlatformInputPin*, IMediaSample* sample) override {
        ComPtr<ISampleGrabberCB> callback;
        LONG which;
        {
            std::lock_guard lock(FMutex);
            if (FOneShot && FShotTaken) return S_FALSE;
            callback = FCallback;
            which = FWhich;
            if (FBufferSamples) {
                BYTE* p = nullptr;
                sample->GetPointer(&p);
                const LONG n = sample->GetActualDataLength();
                FBuffer.assign(p, p + (n > 0 ? n : 0));
                FHaveBuffer = true;
            }
        }
        REFERENCE_TIME start = 0, stop = 0;
        const double time = SUCCEEDED(sample->GetTime(&start, &stop)) ? start / 1e7 : 0.0;
        if (callback) {
            if (which == 0) {
                callback->SampleCB(time, sample);
            } else {
                BYTE* p = nullptr;
                sample->GetPointer(&p);
                callback->BufferCB(time, p, sample->GetActualDataLength());
            }
        }
        HRESULT hr = S_OK;
        if (FOutput->IsConnected()) hr = FOutput->Deliver(sample);
        bool shot = false;
        {
            std::lock_guard lock(FMutex);
            if (FOneShot && !FShotTaken) shot = FShotTaken = true;
        }
        if (shot) {
            NotifyEvent(EC_COMPLETE, S_OK,
                        reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
            return S_FALSE;
        }
        return hr;
    }

    HRESULT EndOfStream(PlatformInputPin* pin) override {
        if (FOutput->IsConnected()) return FOutput->DeliverEndOfStream();
        return RendererFilter::EndOfStream(pin);
    }
    HRESULT BeginFlush(PlatformInputPin*) override {
        if (FOutput->IsConnected()) return FOutput->DeliverBeginFlush();
        return S_OK;
    }
    HRESULT EndFlush(PlatformInputPin* pin) override {
        RendererFilter::EndFlush(pin);
        if (FOutput->IsConnected()) return FOutput->DeliverEndFlush();
        return S_OK;
    }
    HRESULT NewSegment(PlatformInputPin*, REFERENCE_TIME start, REFERENCE_TIME stop,
                       double rate) override {
        if (FOutput->IsConnected()) return FOutput->DeliverNewSegment(start, stop, rate);
        return S_OK;
    }
    bool ReceiveCanBlock() override { return FOutput->IsConnected(); }

protected:
    HRESULT OnStop() override {
        {
            std::lock_guard lock(FMutex);
            FShotTaken = false;
        }
        return RendererFilter::OnStop();
    }

private:
    GrabberOutput* FOutput;
    std::mutex FMutex;
    graph::MediaType FWanted;
    bool FHasWanted = false;
    bool FOneShot = false;
    bool FShotTaken = false;
    bool FBufferSamples = false;
    bool FHaveBuffer = false;
    std::vector<BYTE> FBuffer;
    ComPtr<ISampleGrabberCB> FCallback;
    LONG FWhich = 0;
};

std::vector<graph::MediaType> GrabberInput::MediaTypes() {
    return FOwner->Wanted();
}

HRESULT GrabberInput::CheckMediaType(const AM_MEDIA_TYPE& type) {
    return FOwner->Accepts(type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
}

}  // namespace

HRESULT CreateSampleGrabber(IUnknown* outer, REFIID iid, void** object) {
    return CreateFilter<SampleGrabber>(outer, iid, object);
}

}  // namespace mw::filters
