// The gain filter: PCM or float audio in, the same audio out with IBasicAudio's volume and
// balance applied in place; the catalogue's example of a filter with an input and an output
// that processes audio.
#include "control.h"
#include "platform/filters/AudioGain.h"
#include "platform/filters/PlatformFilters.h"
#include "platform/filters/Renderers.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {
namespace {

class GainInput final : public PlatformInputPin {
public:
    using PlatformInputPin::PlatformInputPin;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override {
        return IsPcmAudio(type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
};

class GainOutput final : public PlatformOutputPin {
public:
    GainOutput(PlatformFilter* filter, PlatformInputPin* input)
        : PlatformOutputPin(filter, u"Output"), FInput(input) {}
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

class GainFilter final : public PlatformFilter, public IBasicAudio {
public:
    GainFilter() : PlatformFilter(CLSID_MwGain) {
        FIn = new GainInput(this, u"Input");
        FOut = new GainOutput(this, FIn);
        AddPin(FIn);
        AddPin(FOut);
    }
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (object && (IsEqualIID(iid, IID_IBasicAudio) || IsEqualIID(iid, IID_IDispatch))) {
            *object = static_cast<IBasicAudio*>(this);
            AddRef();
            return S_OK;
        }
        return PlatformFilter::QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return PlatformFilter::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return PlatformFilter::Release(); }

    STDMETHODIMP GetTypeInfoCount(UINT* n) override {
        if (!n) return E_POINTER;
        *n = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP put_Volume(LONG volume) override {
        if (volume < -10000 || volume > 0) return E_INVALIDARG;
        FVolume = volume;
        return S_OK;
    }
    STDMETHODIMP get_Volume(LONG* volume) override {
        if (!volume) return E_POINTER;
        *volume = FVolume;
        return S_OK;
    }
    STDMETHODIMP put_Balance(LONG balance) override {
        if (balance < -10000 || balance > 10000) return E_INVALIDARG;
        FBalance = balance;
        return S_OK;
    }
    STDMETHODIMP get_Balance(LONG* balance) override {
        if (!balance) return E_POINTER;
        *balance = FBalance;
        return S_OK;
    }

    HRESULT Receive(PlatformInputPin*, IMediaSample* sample) override {
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const LONG n = sample->GetActualDataLength();
        if (n > 0) ApplyVolume(data, static_cast<size_t>(n), FFormat, FVolume, FBalance);
        return FOut->Deliver(sample);
    }
    HRESULT EndOfStream(PlatformInputPin*) override { return FOut->DeliverEndOfStream(); }
    HRESULT BeginFlush(PlatformInputPin*) override { return FOut->DeliverBeginFlush(); }
    HRESULT EndFlush(PlatformInputPin*) override { return FOut->DeliverEndFlush(); }
    HRESULT NewSegment(PlatformInputPin*, REFERENCE_TIME start, REFERENCE_TIME stop,
                       double rate) override {
        return FOut->DeliverNewSegment(start, stop, rate);
    }
    bool ReceiveCanBlock() override { return true; }

protected:
    HRESULT OnPause() override {
        if (State() == State_Stopped && FIn->IsConnected()) {
            const graph::MediaType t = FIn->ConnectedType();
            FFormat.assign(t->pbFormat, t->pbFormat + t->cbFormat);
        }
        return S_OK;
    }

private:
    GainInput* FIn;
    GainOutput* FOut;
    std::vector<BYTE> FFormat;  // set while stopped, read by the streaming thread
    std::atomic<LONG> FVolume{0};
    std::atomic<LONG> FBalance{0};
};

}  // namespace

HRESULT CreateGainFilter(IUnknown* outer, REFIID iid, void** object) {
    return CreateFilter<GainFilter>(outer, iid, object);
}

}  // namespace mw::filters
