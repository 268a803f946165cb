// Filter and pin classes of the platform's own filters.
#include "platform/filters/PlatformFilter.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "mwcom.h"
#include "objbase.h"
#include "platform/com/ComObject.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {

using graph::MediaType;

bool IsPcmAudio(const AM_MEDIA_TYPE& type) {
    if (!IsEqualGUID(type.majortype, MEDIATYPE_Audio) ||
        !IsEqualGUID(type.formattype, FORMAT_WaveFormatEx) || !type.pbFormat || type.cbFormat < 16)
        return false;
    const auto* wf = reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    if (wf->nChannels == 0 || wf->nSamplesPerSec == 0 || wf->nBlockAlign == 0) return false;
    GUID sub = type.subtype;
    WORD tag = wf->wFormatTag;
    if (tag == WAVE_FORMAT_EXTENSIBLE) {
        if (type.cbFormat < sizeof(WAVEFORMATEXTENSIBLE) || wf->cbSize < 22) return false;
        sub = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wf)->SubFormat;
        if (IsEqualGUID(sub, KSDATAFORMAT_SUBTYPE_PCM))
            tag = WAVE_FORMAT_PCM;
        else if (IsEqualGUID(sub, MEDIASUBTYPE_IEEE_FLOAT))
            tag = WAVE_FORMAT_IEEE_FLOAT;
        else
            return false;
    }
    if (tag == WAVE_FORMAT_PCM)
        return wf->wBitsPerSample >= 8 && wf->wBitsPerSample <= 32 && wf->wBitsPerSample % 8 == 0 &&
               wf->nBlockAlign == wf->nChannels * wf->wBitsPerSample / 8;
    if (tag == WAVE_FORMAT_IEEE_FLOAT)
        return wf->wBitsPerSample == 32 && wf->nBlockAlign == wf->nChannels * 4;
    return false;
}

// ---------------------------------------------------------------- pin

PlatformPin::PlatformPin(PlatformFilter* filter, std::u16string name, PIN_DIRECTION dir)
    : FFilter(filter), FName(std::move(name)), FDir(dir) {}

STDMETHODIMP PlatformPin::QueryInterface(REFIID iid, void** object) {
    return mw::com::QueryTable(iid, object, {{&IID_IUnknown, this}, {&IID_IPin, this}});
}
STDMETHODIMP_(ULONG) PlatformPin::AddRef() {
    return FFilter->AddRef();
}
STDMETHODIMP_(ULONG) PlatformPin::Release() {
    return FFilter->Release();
}

bool PlatformPin::IsConnected() {
    std::lock_guard lock(FFilter->FilterLock());
    return FPeer != nullptr;
}
ComPtr<IPin> PlatformPin::ConnectedPin() {
    std::lock_guard lock(FFilter->FilterLock());
    return FPeer;
}
MediaType PlatformPin::ConnectedType() {
    std::lock_guard lock(FFilter->FilterLock());
    return FType;
}

void PlatformPin::SetConnection(IPin* peer, const AM_MEDIA_TYPE* type) {
    FPeer = ComPtr<IPin>(peer);
    if (type)
        FType = MediaType(*type);
    else
        FType = MediaType();
}

STDMETHODIMP PlatformPin::Disconnect() {
    std::lock_guard lock(FFilter->FilterLock());
    if (FFilter->State() != State_Stopped) return VFW_E_NOT_STOPPED;
    if (!FPeer) return S_FALSE;
    BreakConnect();
    SetConnection(nullptr, nullptr);
    FFilter->PinDisconnected(this);
    return S_OK;
}

STDMETHODIMP PlatformPin::ConnectedTo(IPin** pin) {
    if (!pin) return E_POINTER;
    std::lock_guard lock(FFilter->FilterLock());
    *pin = FPeer.Get();
    if (!*pin) return VFW_E_NOT_CONNECTED;
    (*pin)->AddRef();
    return S_OK;
}

STDMETHODIMP PlatformPin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    std::lock_guard lock(FFilter->FilterLock());
    if (!FPeer) {
        *type = AM_MEDIA_TYPE{};
        return VFW_E_NOT_CONNECTED;
    }
    return graph::CopyMediaType(type, FType.Get());
}

STDMETHODIMP PlatformPin::QueryPinInfo(PIN_INFO* info) {
    if (!info) return E_POINTER;
    info->pFilter = FFilter;
    FFilter->AddRef();
    info->dir = FDir;
    const size_t n = std::min<size_t>(FName.size(), 127);
    std::memcpy(info->achName, FName.data(), n * sizeof(WCHAR));
    info->achName[n] = 0;
    return S_OK;
}

STDMETHODIMP PlatformPin::QueryDirection(PIN_DIRECTION* dir) {
    if (!dir) return E_POINTER;
    *dir = FDir;
    return S_OK;
}

STDMETHODIMP PlatformPin::QueryId(LPWSTR* id) {
    if (!id) return E_POINTER;
    *id = CoTaskMemDup(FName);
    return *id ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP PlatformPin::QueryAccept(const AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    return CheckMediaType(*type) == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP PlatformPin::EnumMediaTypes(IEnumMediaTypes** types) {
    if (!types) return E_POINTER;
    return graph::CreateMediaTypeEnumerator(MediaTypes(), types);
}

// ---------------------------------------------------------------- input pin

PlatformInputPin::PlatformInputPin(PlatformFilter* filter, std::u16string name)
    : PlatformPin(filter, std::move(name), PINDIR_INPUT) {}

STDMETHODIMP PlatformInputPin::QueryInterface(REFIID iid, void** object) {
    return mw::com::QueryTable(iid, object,
                               {{&IID_IUnknown, static_cast<IPin*>(this)},
                                {&IID_IPin, static_cast<IPin*>(this)},
                                {&IID_IMemInputPin, static_cast<IMemInputPin*>(this)}});
}

STDMETHODIMP PlatformInputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
    if (!connector || !type) return E_POINTER;
    std::lock_guard lock(FFilter->FilterLock());
    if (FFilter->State() != State_Stopped) return VFW_E_NOT_STOPPED;
    if (FPeer) return VFW_E_ALREADY_CONNECTED;
    PIN_DIRECTION dir;
    if (FAILED(connector->QueryDirection(&dir)) || dir != PINDIR_OUTPUT)
        return VFW_E_INVALID_DIRECTION;
    if (CheckMediaType(*type) != S_OK) return VFW_E_TYPE_NOT_ACCEPTED;
    SetConnection(connector, type);
    const HRESULT hr = CompleteConnect(connector);
    if (FAILED(hr)) {
        SetConnection(nullptr, nullptr);
        return hr;
    }
    FFilter->PinConnected(this);
    return S_OK;
}

STDMETHODIMP PlatformInputPin::EndOfStream() {
    if (FFlushing) return S_FALSE;
    if (FFilter->State() == State_Stopped) return VFW_E_WRONG_STATE;
    FEndOfStream = true;
    return FFilter->EndOfStream(this);
}

STDMETHODIMP PlatformInputPin::BeginFlush() {
    FFlushing = true;
    return FFilter->BeginFlush(this);
}

STDMETHODIMP PlatformInputPin::EndFlush() {
    const HRESULT hr = FFilter->EndFlush(this);
    FEndOfStream = false;
    FFlushing = false;
    return hr;
}

STDMETHODIMP PlatformInputPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
    return FFilter->NewSegment(this, start, stop, rate);
}

STDMETHODIMP PlatformInputPin::GetAllocator(IMemAllocator** allocator) {
    if (!allocator) return E_POINTER;
    *allocator = nullptr;
    std::lock_guard lock(FFilter->FilterLock());
    if (!FAllocator) {
        const HRESULT hr = CoCreateInstance(
            CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
            reinterpret_cast<void**>(FAllocator.ReleaseAndGetAddressOf()));
        if (FAILED(hr)) return hr;
    }
    *allocator = FAllocator.Get();
    (*allocator)->AddRef();
    return S_OK;
}

STDMETHODIMP PlatformInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL) {
    if (!allocator) return E_POINTER;
    std::lock_guard lock(FFilter->FilterLock());
    FAllocator = ComPtr<IMemAllocator>(allocator);
    return S_OK;
}

STDMETHODIMP PlatformInputPin::Receive(IMediaSample* sample) {
    if (!sample) return E_POINTER;
    if (FFlushing) return S_FALSE;
    if (FFilter->State() == State_Stopped) return VFW_E_WRONG_STATE;
    if (FEndOfStream) return VFW_E_SAMPLE_REJECTED_EOS;
    return FFilter->Receive(this, sample);
}

STDMETHODIMP PlatformInputPin::ReceiveMultiple(IMediaSample** samples, LONG count,
                                               LONG* processed) {
    if (!samples || !processed) return E_POINTER;
    *processed = 0;
    HRESULT hr = S_OK;
    while (*processed < count) {
        hr = Receive(samples[*processed]);
        if (hr != S_OK) break;
        ++*processed;
    }
    return hr;
}

STDMETHODIMP PlatformInputPin::ReceiveCanBlock() {
    return FFilter->ReceiveCanBlock() ? S_OK : S_FALSE;
}

// ---------------------------------------------------------------- output pin

PlatformOutputPin::PlatformOutputPin(PlatformFilter* filter, std::u16string name)
    : PlatformPin(filter, std::move(name), PINDIR_OUTPUT) {}

namespace {
// Whether a partly given type (GUID_NULL parts) admits the candidate.
bool Admits(const AM_MEDIA_TYPE* partial, const AM_MEDIA_TYPE& t) {
    if (!partial) return true;
    auto ok = [](const GUID& want, const GUID& have) {
        return IsEqualGUID(want, GUID_NULL) || IsEqualGUID(want, have);
    };
    return ok(partial->majortype, t.majortype) && ok(partial->subtype, t.subtype) &&
           ok(partial->formattype, t.formattype);
}
bool Complete(const AM_MEDIA_TYPE* t) {
    return t && !IsEqualGUID(t->majortype, GUID_NULL) && !IsEqualGUID(t->subtype, GUID_NULL) &&
           !IsEqualGUID(t->formattype, GUID_NULL);
}
}  // namespace

HRESULT PlatformOutputPin::TryType(IPin* receiver, const AM_MEDIA_TYPE& type) {
    if (CheckMediaType(type) != S_OK) return VFW_E_TYPE_NOT_ACCEPTED;
    SetConnection(receiver, &type);
    HRESULT hr = receiver->ReceiveConnection(this, &type);
    if (SUCCEEDED(hr)) {
        hr = CompleteConnect(receiver);
        if (SUCCEEDED(hr)) return S_OK;
        receiver->Disconnect();
    }
    SetConnection(nullptr, nullptr);
    return hr;
}

STDMETHODIMP PlatformOutputPin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
    if (!receiver) return E_POINTER;
    std::lock_guard lock(FFilter->FilterLock());
    if (FFilter->State() != State_Stopped) return VFW_E_NOT_STOPPED;
    if (FPeer) return VFW_E_ALREADY_CONNECTED;
    PIN_DIRECTION dir;
    if (FAILED(receiver->QueryDirection(&dir)) || dir != PINDIR_INPUT)
        return VFW_E_INVALID_DIRECTION;
    HRESULT hr = VFW_E_NO_ACCEPTABLE_TYPES;
    if (Complete(type)) {
        hr = TryType(receiver, *type);
    } else {
        // The receiver's types first, then ours.
        std::vector<MediaType> candidates;
        ComPtr<IEnumMediaTypes> e;
        if (SUCCEEDED(receiver->EnumMediaTypes(e.ReleaseAndGetAddressOf())) && e) {
            for (;;) {
                AM_MEDIA_TYPE* mt = nullptr;
                ULONG got = 0;
                if (e->Next(1, &mt, &got) != S_OK || got != 1 || !mt) break;
                candidates.emplace_back(*mt);
                graph::DeleteMediaType(mt);
            }
        }
        for (auto& t : MediaTypes())
            candidates.push_back(t);
        for (const MediaType& t : candidates) {
            if (!Admits(type, *t)) continue;
            hr = TryType(receiver, *t);
            if (SUCCEEDED(hr)) break;
        }
        if (FAILED(hr) && hr != VFW_E_NO_ACCEPTABLE_TYPES) hr = VFW_E_NO_ACCEPTABLE_TYPES;
    }
    if (SUCCEEDED(hr)) FFilter->PinConnected(this);
    return hr;
}

HRESULT PlatformOutputPin::CompleteConnect(IPin* peer) {
    ComPtr<IMemInputPin> input;
    if (FAILED(peer->QueryInterface(IID_IMemInputPin,
                                    reinterpret_cast<void**>(input.ReleaseAndGetAddressOf()))))
        return VFW_E_NO_TRANSPORT;
    ALLOCATOR_PROPERTIES props{};
    input->GetAllocatorRequirements(&props);
    if (props.cbAlign == 0) props.cbAlign = 1;
    DecideBufferSize(props);
    ComPtr<IMemAllocator> allocator;
    auto settle = [&](IMemAllocator* a) {
        ALLOCATOR_PROPERTIES actual{};
        if (FAILED(a->SetProperties(&props, &actual)) || actual.cbBuffer < props.cbBuffer)
            return false;
        return SUCCEEDED(input->NotifyAllocator(a, FALSE));
    };
    if (SUCCEEDED(input->GetAllocator(allocator.ReleaseAndGetAddressOf())) && allocator &&
        settle(allocator.Get())) {
    } else {
        allocator = nullptr;
        if (FAILED(CoCreateInstance(
                CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                reinterpret_cast<void**>(allocator.ReleaseAndGetAddressOf()))) ||
            !settle(allocator.Get()))
            return VFW_E_NO_ALLOCATOR;
    }
    std::lock_guard lock(FStreamRefs);
    FInput = input;
    FAllocator = allocator;
    return S_OK;
}

void PlatformOutputPin::BreakConnect() {
    ComPtr<IMemAllocator> allocator;
    {
        std::lock_guard lock(FStreamRefs);
        allocator = std::move(FAllocator);
        FInput = nullptr;
    }
    if (allocator) allocator->Decommit();
}

void PlatformOutputPin::Active() {
    std::lock_guard lock(FStreamRefs);
    if (FAllocator) FAllocator->Commit();
}

void PlatformOutputPin::Inactive() {
    ComPtr<IMemAllocator> allocator;
    {
        std::lock_guard lock(FStreamRefs);
        allocator = FAllocator;
    }
    if (allocator) allocator->Decommit();
}

HRESULT PlatformOutputPin::GetDeliveryBuffer(IMediaSample** sample) {
    ComPtr<IMemAllocator> allocator;
    {
        std::lock_guard lock(FStreamRefs);
        allocator = FAllocator;
    }
    if (!allocator) return VFW_E_NOT_CONNECTED;
    return allocator->GetBuffer(sample, nullptr, nullptr, 0);
}

HRESULT PlatformOutputPin::Deliver(IMediaSample* sample) {
    ComPtr<IMemInputPin> input;
    {
        std::lock_guard lock(FStreamRefs);
        input = FInput;
    }
    if (!input) return VFW_E_NOT_CONNECTED;
    return input->Receive(sample);
}

namespace {
template <class F>
HRESULT ToPeer(PlatformPin* pin, F call) {
    ComPtr<IPin> peer = pin->ConnectedPin();
    if (!peer) return VFW_E_NOT_CONNECTED;
    return call(peer.Get());
}
}  // namespace

HRESULT PlatformOutputPin::DeliverEndOfStream() {
    return ToPeer(this, [](IPin* p) { return p->EndOfStream(); });
}
HRESULT PlatformOutputPin::DeliverBeginFlush() {
    return ToPeer(this, [](IPin* p) { return p->BeginFlush(); });
}
HRESULT PlatformOutputPin::DeliverEndFlush() {
    return ToPeer(this, [](IPin* p) { return p->EndFlush(); });
}
HRESULT PlatformOutputPin::DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop,
                                             double rate) {
    return ToPeer(this, [&](IPin* p) { return p->NewSegment(start, stop, rate); });
}

// ---------------------------------------------------------------- filter

namespace {
void CopyPin(const ComPtr<IPin>& item, IPin** out) {
    *out = item.Get();
    (*out)->AddRef();
}
using PinEnumerator =
    mw::com::SnapshotEnumerator<IEnumPins, ComPtr<IPin>, IPin*, &CopyPin, E_POINTER>;
}  // namespace

PlatformFilter::PlatformFilter(const CLSID& clsid) : FClassId(clsid) {}

PlatformFilter::~PlatformFilter() {
    for (PlatformPin* p : FPins)
        delete p;
    for (PlatformPin* p : FRemoved)
        delete p;
}

void PlatformFilter::AddPin(PlatformPin* pin) {
    std::lock_guard lock(FLock);
    FPins.push_back(pin);
}

void PlatformFilter::RemovePin(PlatformPin* pin) {
    std::lock_guard lock(FLock);
    auto it = std::find(FPins.begin(), FPins.end(), pin);
    if (it == FPins.end()) return;
    FPins.erase(it);
    FRemoved.push_back(pin);  // someone may still hold the pin; it shares our lifetime
}

std::vector<PlatformPin*> PlatformFilter::PinList() {
    std::lock_guard lock(FLock);
    return FPins;
}

STDMETHODIMP PlatformFilter::QueryInterface(REFIID iid, void** object) {
    return mw::com::QueryTable(iid, object,
                               {{&IID_IUnknown, this},
                                {&IID_IPersist, this},
                                {&IID_IMediaFilter, this},
                                {&IID_IBaseFilter, this}});
}

STDMETHODIMP PlatformFilter::GetClassID(CLSID* id) {
    if (!id) return E_POINTER;
    *id = FClassId;
    return S_OK;
}

STDMETHODIMP PlatformFilter::Stop() {
    std::lock_guard lock(FLock);
    if (FState == State_Stopped) return S_OK;
    for (PlatformPin* p : FPins)
        if (auto* out = dynamic_cast<PlatformOutputPin*>(p)) out->Inactive();
    FState = State_Stopped;
    const HRESULT hr = OnStop();
    for (PlatformPin* p : FPins)
        if (auto* in = dynamic_cast<PlatformInputPin*>(p)) in->ResetStream();
    return hr;
}

STDMETHODIMP PlatformFilter::Pause() {
    std::lock_guard lock(FLock);
    if (FState == State_Paused) return S_OK;
    if (FState == State_Stopped)
        for (PlatformPin* p : FPins)
            if (auto* out = dynamic_cast<PlatformOutputPin*>(p)) out->Active();
    const HRESULT hr = OnPause();
    if (FAILED(hr)) return hr;
    FState = State_Paused;
    return hr;
}

STDMETHODIMP PlatformFilter::Run(REFERENCE_TIME start) {
    std::lock_guard lock(FLock);
    if (FState == State_Stopped) {
        const HRESULT hr = Pause();
        if (FAILED(hr)) return hr;
    }
    FStart = start;
    const HRESULT hr = OnRun(start);
    if (FAILED(hr)) return hr;
    FState = State_Running;
    return hr;
}

STDMETHODIMP PlatformFilter::GetState(DWORD, FILTER_STATE* state) {
    if (!state) return E_POINTER;
    *state = FState;
    return S_OK;
}

STDMETHODIMP PlatformFilter::SetSyncSource(IReferenceClock* clock) {
    std::lock_guard lock(FRefsMutex);
    FClock = ComPtr<IReferenceClock>(clock);
    return S_OK;
}

STDMETHODIMP PlatformFilter::GetSyncSource(IReferenceClock** clock) {
    if (!clock) return E_POINTER;
    std::lock_guard lock(FRefsMutex);
    *clock = FClock.Get();
    if (*clock) (*clock)->AddRef();
    return S_OK;
}

ComPtr<IReferenceClock> PlatformFilter::Clock() {
    std::lock_guard lock(FRefsMutex);
    return FClock;
}

STDMETHODIMP PlatformFilter::EnumPins(IEnumPins** pins) {
    if (!pins) return E_POINTER;
    auto items = std::make_shared<std::vector<ComPtr<IPin>>>();
    for (PlatformPin* p : PinList())
        items->emplace_back(static_cast<IPin*>(p));
    *pins = new PinEnumerator(std::move(items), 0);
    return S_OK;
}

STDMETHODIMP PlatformFilter::FindPin(LPCWSTR id, IPin** pin) {
    if (!id || !pin) return E_POINTER;
    *pin = nullptr;
    for (PlatformPin* p : PinList()) {
        if (p->Name() == id) {
            *pin = p;
            p->AddRef();
            return S_OK;
        }
    }
    return VFW_E_NOT_FOUND;
}

STDMETHODIMP PlatformFilter::QueryFilterInfo(FILTER_INFO* info) {
    if (!info) return E_POINTER;
    std::lock_guard lock(FLock);
    const size_t n = std::min<size_t>(FName.size(), 127);
    std::memcpy(info->achName, FName.data(), n * sizeof(WCHAR));
    info->achName[n] = 0;
    info->pGraph = FGraph;
    if (FGraph) FGraph->AddRef();
    return S_OK;
}

STDMETHODIMP PlatformFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    std::lock_guard lock(FLock);
    std::lock_guard refs(FRefsMutex);
    FGraph = graph;
    FName = name ? name : u"";
    FSink = nullptr;
    if (graph) {
        IMediaEventSink* sink = nullptr;
        if (SUCCEEDED(
                graph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink)))) {
            FSink = sink;
            sink->Release();  // the graph outlives its membership
        }
    }
    return S_OK;
}

void PlatformFilter::NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2) {
    IMediaEventSink* sink;
    {
        std::lock_guard lock(FRefsMutex);
        sink = FSink;
    }
    if (sink) sink->Notify(code, param1, param2);
}

}  // namespace mw::filters
