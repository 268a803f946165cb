// Renderer base and the null renderer.
#include "platform/filters/Renderers.h"

#include "evcode.h"
#include "qedit.h"
#include "uuids.h"

namespace mw::filters {

namespace {
class AnyInputPin final : public PlatformInputPin {
public:
    using PlatformInputPin::PlatformInputPin;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE&) override { return S_OK; }
};
}  // namespace

RendererFilter::RendererFilter(const CLSID& clsid) : PlatformFilter(clsid) {}

void RendererFilter::SetInput(PlatformInputPin* pin) {
    FInput = pin;
    AddPin(pin);
    FSeeking = std::make_unique<SeekingPassThrough>(static_cast<IBaseFilter*>(this), pin);
}

STDMETHODIMP RendererFilter::QueryInterface(REFIID iid, void** object) {
    if (object && IsEqualIID(iid, IID_IAMFilterMiscFlags)) {
        *object = static_cast<IAMFilterMiscFlags*>(this);
        AddRef();
        return S_OK;
    }
    if (object && FSeeking && IsEqualIID(iid, IID_IMediaSeeking)) {
        *object = static_cast<IMediaSeeking*>(FSeeking.get());
        AddRef();
        return S_OK;
    }
    return PlatformFilter::QueryInterface(iid, object);
}

HRESULT RendererFilter::EndOfStream(PlatformInputPin*) {
    {
        std::lock_guard lock(FEosMutex);
        FEos = true;
    }
    CheckComplete(State() == State_Running);
    return S_OK;
}

HRESULT RendererFilter::EndFlush(PlatformInputPin*) {
    std::lock_guard lock(FEosMutex);
    FEos = false;
    FCompleted = false;
    return S_OK;
}

HRESULT RendererFilter::OnStop() {
    std::lock_guard lock(FEosMutex);
    FEos = false;
    FCompleted = false;
    return S_OK;
}

HRESULT RendererFilter::OnRun(REFERENCE_TIME) {
    CheckComplete(true);
    return S_OK;
}

void RendererFilter::CheckComplete(bool running) {
    {
        std::lock_guard lock(FEosMutex);
        if (!FEos || FCompleted || !running || !Drained()) return;
        FCompleted = true;
    }
    NotifyEvent(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
}

NullRenderer::NullRenderer() : RendererFilter(CLSID_NullRenderer) {
    SetInput(new AnyInputPin(this, u"In"));
}

HRESULT NullRenderer::Receive(PlatformInputPin*, IMediaSample*) {
    FSamples.fetch_add(1);
    return S_OK;
}

}  // namespace mw::filters
