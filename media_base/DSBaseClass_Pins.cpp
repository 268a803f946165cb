// Pins: the connection handshake of the base pin, allocator choice and delivery of the output
// pin, and the streaming checks of the input pin.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>

#include "media_base/DSBaseClass.h"

using mw::DSAssert;
using mw::DSLockGuard;

namespace {

// Codes that say nothing about why a connection failed; any other failure is worth reporting.
bool IsUninformative(HRESULT hr) {
    return hr == E_FAIL || hr == E_INVALIDARG || hr == VFW_E_TYPE_NOT_ACCEPTED;
}

bool IsPartialType(const AM_MEDIA_TYPE& type) {
    return IsEqualGUID(type.majortype, GUID_NULL) || IsEqualGUID(type.formattype, GUID_NULL);
}

}  // namespace

// ---- TDSBasePin ----------------------------------------------------------------------------

TDSBasePin::TDSBasePin(const std::string& objectName, TDSBaseFilter* filter, ICriticalSection* lock,
                       HRESULT*, const std::u16string& pinName, PIN_DIRECTION direction)
    : TDSDualUnknown(objectName, nullptr),
      FPinName(pinName),
      FDirection(direction),
      FLock(lock),
      FFilter(filter) {
    DSAssert(filter != nullptr);
    DSAssert(lock != nullptr);
    FConnectionType = AM_MEDIA_TYPE{};
}

TDSBasePin::~TDSBasePin() {
    mw::DSAssertInDestructor(FConnected == nullptr);
    mw::DSAssertInDestructor(FPinRefCount.load() == 0);
    DSClearMediaType(&FConnectionType);
}

bool TDSBasePin::GetInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IPin)) {
        *object = static_cast<IPin*>(this);
        return true;
    }
    if (IsEqualIID(iid, IID_IQualityControl)) {
        *object = static_cast<IQualityControl*>(this);
        return true;
    }
    return false;
}

ULONG TDSBasePin::NonDelegatingAddRef() {
    const LONG n = FPinRefCount.fetch_add(1) + 1;
    mw::DSAssertInDestructor(n >= 1);  // reported only: AddRef has no failure to return
    FFilter->AddRef();
    return static_cast<ULONG>(n);
}

ULONG TDSBasePin::NonDelegatingRelease() {
    const LONG n = FPinRefCount.fetch_sub(1) - 1;
    mw::DSAssertInDestructor(n >= 0);
    // The filter may go with this release, and the pin with it: nothing of the pin is touched
    // after it.
    FFilter->Release();
    return static_cast<ULONG>(n);
}

STDMETHODIMP TDSBasePin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
    return mw::DSGuarded([&]() -> HRESULT {
        // A null receiver is caught by AgreeMediaType's assertion.
        DSLockGuard guard(FLock.Get());
        DisplayPinInfo(receiver);
        if (FConnected) return VFW_E_ALREADY_CONNECTED;
        if (!IsStopped() && !FCanReconnectWhenActive) return VFW_E_NOT_STOPPED;
        const HRESULT hr = AgreeMediaType(receiver, type);
        if (SUCCEEDED(hr)) return S_OK;
        DSAssert(SUCCEEDED(BreakConnect()));
        return hr;
    });
}

HRESULT TDSBasePin::AgreeMediaType(IPin* receiver, const AM_MEDIA_TYPE* type) {
    DSAssert(receiver != nullptr);
    if (type && !IsPartialType(*type)) return AttemptConnection(receiver, type);
    HRESULT failure = VFW_E_NO_ACCEPTABLE_TYPES;
    for (int pass = 0; pass < 2; ++pass) {
        ComPtr<IEnumMediaTypes> enumerator;
        HRESULT hr;
        if (pass == static_cast<int>(FTryMyTypesFirst))
            hr = receiver->EnumMediaTypes(enumerator.ReleaseAndGetAddressOf());
        else
            hr = EnumMediaTypes(enumerator.ReleaseAndGetAddressOf());
        if (FAILED(hr)) continue;
        DSAssert(enumerator != nullptr);
        hr = TryMediaTypes(receiver, type, enumerator.Get());
        if (SUCCEEDED(hr)) return S_OK;
        if (!IsUninformative(hr)) failure = hr;
    }
    return failure;
}

HRESULT TDSBasePin::TryMediaTypes(IPin* receiver, const AM_MEDIA_TYPE* partial,
                                  IEnumMediaTypes* enumerator) {
    HRESULT hr = enumerator->Reset();
    if (FAILED(hr)) return hr;
    HRESULT failure = S_OK;
    for (;;) {
        AM_MEDIA_TYPE* candidate = nullptr;
        ULONG fetched = 0;
        if (enumerator->Next(1, &candidate, &fetched) != S_OK) break;
        DSAssert(fetched == 1 && candidate != nullptr);
        if (partial && !DSMatchPartialMediaType(*candidate, *partial)) {
            hr = VFW_E_NO_ACCEPTABLE_TYPES;
            QPDSDeleteMediaType(candidate);
            continue;
        }
        hr = AttemptConnection(receiver, candidate);
        if (FAILED(hr) && failure >= 0 && !IsUninformative(hr)) failure = hr;
        QPDSDeleteMediaType(candidate);
        if (hr == S_OK) return S_OK;
    }
    return failure == S_OK ? VFW_E_NO_ACCEPTABLE_TYPES : failure;
}

HRESULT TDSBasePin::AttemptConnection(IPin* receiver, const AM_MEDIA_TYPE* type) {
    HRESULT hr = CheckConnect(receiver);
    if (FAILED(hr)) {
        DSAssert(SUCCEEDED(BreakConnect()));
        return hr;
    }
    DisplayTypeInfo(receiver, type);
    hr = CheckMediaType(type);
    if (hr != S_OK) {
        if (SUCCEEDED(hr) || hr == E_FAIL || hr == E_INVALIDARG) hr = VFW_E_TYPE_NOT_ACCEPTED;
    } else {
        SetConnected(receiver);
        hr = SetMediaType(type);
        if (SUCCEEDED(hr)) {
            hr = receiver->ReceiveConnection(AsPin(), type);
            if (SUCCEEDED(hr)) {
                hr = CompleteConnect(receiver);
                if (SUCCEEDED(hr)) {
                    // Only now, with the allocator chosen, may a sender use the connection.
                    FConnectionReady.store(true);
                    return hr;
                }
                receiver->Disconnect();
            }
        }
    }
    SetConnected(nullptr);
    DSAssert(SUCCEEDED(BreakConnect()));
    return hr;
}

STDMETHODIMP TDSBasePin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
    return mw::DSGuarded([&]() -> HRESULT { return AcceptConnection(connector, type); });
}

HRESULT TDSBasePin::AcceptConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
    if (!connector || !type) return E_POINTER;
    DSLockGuard guard(FLock.Get());
    if (FConnected) return VFW_E_ALREADY_CONNECTED;
    if (!IsStopped() && !FCanReconnectWhenActive) return VFW_E_NOT_STOPPED;
    HRESULT hr = CheckConnect(connector);
    if (FAILED(hr)) {
        DSAssert(SUCCEEDED(BreakConnect()));
        return hr;
    }
    hr = CheckMediaType(type);
    if (hr != S_OK) {
        DSAssert(SUCCEEDED(BreakConnect()));
        if (SUCCEEDED(hr) || hr == E_FAIL || hr == E_INVALIDARG) hr = VFW_E_TYPE_NOT_ACCEPTED;
        return hr;
    }
    SetConnected(connector);
    hr = SetMediaType(type);
    if (SUCCEEDED(hr)) {
        hr = CompleteConnect(connector);
        if (SUCCEEDED(hr)) {
            FConnectionReady.store(true);
            return S_OK;
        }
    }
    SetConnected(nullptr);
    DSAssert(SUCCEEDED(BreakConnect()));
    return hr;
}

HRESULT TDSBasePin::CheckConnect(IPin* pin) {
    PIN_DIRECTION theirs;
    const HRESULT hr = pin->QueryDirection(&theirs);
    if (FAILED(hr)) return hr;
    DSAssert((theirs == PINDIR_INPUT || theirs == PINDIR_OUTPUT) &&
             (FDirection == PINDIR_INPUT || FDirection == PINDIR_OUTPUT));
    return theirs == FDirection ? VFW_E_INVALID_DIRECTION : S_OK;
}

STDMETHODIMP TDSBasePin::Disconnect() {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        if (!IsStopped()) return VFW_E_NOT_STOPPED;
        return DisconnectInternal();
    });
}

HRESULT TDSBasePin::DisconnectInternal() {
    if (!FConnected) return S_FALSE;
    FConnectionReady.store(false);
    const HRESULT hr = BreakConnect();
    if (FAILED(hr)) {
        FConnectionReady.store(true);
        return hr;
    }
    SetConnected(nullptr);
    return S_OK;
}

void TDSBasePin::SetConnected(IPin* pin) {
    ComPtr<IPin> previous;  // released after the lock
    std::lock_guard<std::mutex> guard(FConnectionLock);
    previous = std::move(FConnected);
    FConnected = pin;
    FIsConnected.store(pin != nullptr);
}

ComPtr<IPin> TDSBasePin::ConnectedPin() const {
    std::lock_guard<std::mutex> guard(FConnectionLock);
    return FConnected;
}

STDMETHODIMP TDSBasePin::ConnectedTo(IPin** pin) {
    if (!pin) return E_POINTER;
    *pin = ConnectedPin().Detach();
    return *pin ? S_OK : VFW_E_NOT_CONNECTED;
}

STDMETHODIMP TDSBasePin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    DSLockGuard guard(FLock.Get());
    if (FConnected) {
        DSCopyMediaType(type, &FConnectionType);
        return S_OK;
    }
    *type = AM_MEDIA_TYPE{};
    type->bFixedSizeSamples = -1;
    type->lSampleSize = 1;
    return VFW_E_NOT_CONNECTED;
}

STDMETHODIMP TDSBasePin::QueryPinInfo(PIN_INFO* info) {
    if (!info) return E_POINTER;
    info->pFilter = FFilter ? FFilter->AsBaseFilter() : nullptr;
    if (info->pFilter) info->pFilter->AddRef();
    info->dir = FDirection;
    // The name and its terminator; what stands behind the terminator is left as it was. Names
    // are cut to the array.
    const size_t n = std::min<size_t>(FPinName.size(), 127);
    std::copy_n(FPinName.data(), n, info->achName);
    info->achName[n] = 0;
    return S_OK;
}

STDMETHODIMP TDSBasePin::QueryDirection(PIN_DIRECTION* direction) {
    if (!direction) return E_POINTER;
    *direction = FDirection;
    return S_OK;
}

STDMETHODIMP TDSBasePin::QueryId(LPWSTR* id) {
    if (!id) return E_POINTER;
    *id = nullptr;
    if (FPinName.empty()) return S_OK;
    const size_t bytes = (FPinName.size() + 1) * sizeof(WCHAR);
    auto* text = static_cast<WCHAR*>(CoTaskMemAlloc(bytes));
    if (!text) return E_OUTOFMEMORY;
    std::memcpy(text, FPinName.c_str(), bytes);
    *id = text;
    return S_OK;
}

STDMETHODIMP TDSBasePin::QueryAccept(const AM_MEDIA_TYPE* type) {
    return mw::DSGuarded([&]() -> HRESULT {
        const HRESULT hr = CheckMediaType(type);
        return FAILED(hr) ? S_FALSE : hr;
    });
}

STDMETHODIMP TDSBasePin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!enumerator) return E_POINTER;
        ComPtr<IEnumMediaTypes> e(new (std::nothrow) TDSEnumMediaTypes(this, nullptr));
        *enumerator = e.Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

STDMETHODIMP TDSBasePin::QueryInternalConnections(IPin**, ULONG*) {
    return E_NOTIMPL;
}

STDMETHODIMP TDSBasePin::EndOfStream() {
    return S_OK;
}

STDMETHODIMP TDSBasePin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
    FSegmentStart = start;
    FSegmentStop = stop;
    FSegmentRate = rate;
    return S_OK;
}

STDMETHODIMP TDSBasePin::Notify(IBaseFilter*, Quality) {
    return E_NOTIMPL;
}

STDMETHODIMP TDSBasePin::SetSink(IQualityControl* sink) {
    DSLockGuard guard(FLock.Get());
    FQualitySink = sink;
    return S_OK;
}

LONG TDSBasePin::GetMediaTypeVersion() {
    return FTypeVersion.load();
}

HRESULT TDSBasePin::Active() {
    return S_OK;
}

HRESULT TDSBasePin::Inactive() {
    FRunTimeError = false;
    return S_OK;
}

HRESULT TDSBasePin::Run(REFERENCE_TIME) {
    return S_OK;
}

HRESULT TDSBasePin::SetMediaType(const AM_MEDIA_TYPE* type) {
    DSClearMediaType(&FConnectionType);
    DSCopyMediaType(&FConnectionType, type);
    return S_OK;
}

HRESULT TDSBasePin::BreakConnect() {
    return S_OK;
}

HRESULT TDSBasePin::CompleteConnect(IPin*) {
    return S_OK;
}

HRESULT TDSBasePin::GetMediaType(int, AM_MEDIA_TYPE*) {
    return E_UNEXPECTED;
}

void TDSBasePin::DisplayPinInfo(IPin*) {}

void TDSBasePin::DisplayTypeInfo(IPin*, const AM_MEDIA_TYPE*) {}

// ---- TDSBaseOutputPin ----------------------------------------------------------------------

TDSBaseOutputPin::TDSBaseOutputPin(const std::string& objectName, TDSBaseFilter* filter,
                                   ICriticalSection* lock, HRESULT* result,
                                   const std::u16string& pinName)
    : TDSBasePin(objectName, filter, lock, result, pinName, PINDIR_OUTPUT) {
    DSAssert(filter != nullptr);
}

STDMETHODIMP TDSBaseOutputPin::EndOfStream() {
    return E_UNEXPECTED;
}
STDMETHODIMP TDSBaseOutputPin::BeginFlush() {
    return E_UNEXPECTED;
}
STDMETHODIMP TDSBaseOutputPin::EndFlush() {
    return E_UNEXPECTED;
}

HRESULT TDSBaseOutputPin::Active() {
    if (!FAllocator) return VFW_E_NO_ALLOCATOR;
    return FAllocator->Commit();
}

HRESULT TDSBaseOutputPin::Inactive() {
    FRunTimeError = false;
    if (!FAllocator) return VFW_E_NO_ALLOCATOR;
    return FAllocator->Decommit();
}

HRESULT TDSBaseOutputPin::CheckConnect(IPin* pin) {
    HRESULT hr = TDSBasePin::CheckConnect(pin);
    if (FAILED(hr)) return hr;
    hr = pin->QueryInterface(IID_IMemInputPin, FInputPin.ReleaseAndGetVoidAddress());
    return FAILED(hr) ? hr : S_OK;
}

HRESULT TDSBaseOutputPin::CompleteConnect(IPin*) {
    FAllocator = nullptr;
    return DecideAllocator(FInputPin.Get(), FAllocator.ReleaseAndGetAddressOf());
}

namespace {
// Counts one break in progress for its scope, also when the break ends by an exception.
class BreakingScope {
public:
    explicit BreakingScope(std::atomic<int>& breaks) : FBreaks(breaks) { FBreaks.fetch_add(1); }
    ~BreakingScope() { FBreaks.fetch_sub(1); }
    BreakingScope(const BreakingScope&) = delete;
    BreakingScope& operator=(const BreakingScope&) = delete;

private:
    std::atomic<int>& FBreaks;
};
}  // namespace

bool TDSBaseOutputPin::EnterSend() {
    // Registered first, tested after: a break that begins after the test waits for this send,
    // and one that began before is seen by the test.
    FSenders.fetch_add(1);
    if (FBreaking.load() == 0 && FConnectionReady.load()) return true;
    LeaveSend();
    return false;
}

void TDSBaseOutputPin::LeaveSend() {
    if (FSenders.fetch_sub(1) == 1 && FBreaking.load() != 0) {
        std::lock_guard<std::mutex> guard(FSendersLock);
        FSendersGone.notify_all();
    }
}

void TDSBaseOutputPin::WaitForSenders() {
    std::unique_lock<std::mutex> guard(FSendersLock);
    FSendersGone.wait(guard, [this] { return FSenders.load() == 0; });
}

STDMETHODIMP TDSBaseOutputPin::Disconnect() {
    return mw::DSGuarded([&]() -> HRESULT {
        std::optional<BreakingScope> breaking;
        {
            DSLockGuard guard(FLock.Get());
            if (!IsStopped()) return VFW_E_NOT_STOPPED;
            if (!FConnected) return S_FALSE;
            breaking.emplace(FBreaking);
            // A send blocked for a sample is woken by the decommit, one retrying sees the flag.
            // Decommitted under the lock, so that a Run in between commits after it, not before.
            if (FAllocator) FAllocator->Decommit();
        }
        // The filter lock is not held while waiting: a downstream Receive may call back into
        // the filter.
        WaitForSenders();
        DSLockGuard guard(FLock.Get());
        return IsStopped() ? DisconnectInternal() : VFW_E_NOT_STOPPED;
    });
}

HRESULT TDSBaseOutputPin::BreakConnect() {
    // Called under the filter lock; a Disconnect has waited for the senders already, so this
    // wait is only for a send that registered and is about to find the connection not ready.
    {
        const BreakingScope breaking(FBreaking);
        if (FAllocator) FAllocator->Decommit();
        WaitForSenders();
    }
    if (FAllocator) {
        const HRESULT hr = FAllocator->Decommit();
        if (FAILED(hr)) return hr;
        FAllocator = nullptr;
    }
    FInputPin = nullptr;
    return S_OK;
}

HRESULT TDSBaseOutputPin::DecideAllocator(IMemInputPin* pin, IMemAllocator** allocator) {
    *allocator = nullptr;
    ALLOCATOR_PROPERTIES properties{};
    pin->GetAllocatorRequirements(&properties);  // a peer without requirements leaves zeros
    if (properties.cbAlign == 0) properties.cbAlign = 1;

    // The peer's allocator first, then one of this pin's own.
    ComPtr<IMemAllocator> chosen;
    HRESULT hr = pin->GetAllocator(chosen.ReleaseAndGetAddressOf());
    if (SUCCEEDED(hr)) {
        hr = DecideBufferSize(chosen.Get(), &properties);
        if (SUCCEEDED(hr)) {
            hr = pin->NotifyAllocator(chosen.Get(), FALSE);
            if (SUCCEEDED(hr)) {
                *allocator = chosen.Detach();
                return S_OK;
            }
        }
    }
    chosen = nullptr;

    hr = InitAllocator(chosen.ReleaseAndGetAddressOf());
    if (SUCCEEDED(hr)) {
        hr = DecideBufferSize(chosen.Get(), &properties);
        if (SUCCEEDED(hr)) {
            hr = pin->NotifyAllocator(chosen.Get(), FALSE);
            if (SUCCEEDED(hr)) {
                *allocator = chosen.Detach();
                return S_OK;
            }
        }
    }
    return hr;
}

HRESULT TDSBaseOutputPin::DecideBufferSize(IMemAllocator*, ALLOCATOR_PROPERTIES*) {
    return S_OK;
}

HRESULT TDSBaseOutputPin::InitAllocator(IMemAllocator** allocator) {
    return CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                            reinterpret_cast<void**>(allocator));
}

namespace {
// The pin this thread holds a send registration of, if any.
thread_local TDSBaseOutputPin* tSendingPin = nullptr;
}  // namespace

TDSBaseOutputPin::SendScope::SendScope(TDSBaseOutputPin* pin) : FPin(pin) {
    if (tSendingPin == pin) {
        FEntered = true;  // an outer scope of this thread holds the registration
        return;
    }
    FEntered = FOwner = pin->EnterSend();
    if (FOwner) {
        FOuter = tSendingPin;
        tSendingPin = pin;
    }
}

TDSBaseOutputPin::SendScope::~SendScope() {
    if (!FOwner) return;
    tSendingPin = FOuter;
    FPin->LeaveSend();
}

HRESULT TDSBaseOutputPin::GetDeliveryBuffer(IMediaSample** sample, REFERENCE_TIME* start,
                                            REFERENCE_TIME* stop, DWORD flags) {
    SendScope scope(this);
    if (!scope) return E_NOINTERFACE;
    return FAllocator->GetBuffer(sample, start, stop, flags);
}

HRESULT TDSBaseOutputPin::Deliver(IMediaSample* sample) {
    SendScope scope(this);
    if (!scope) return VFW_E_NOT_CONNECTED;
    return FInputPin->Receive(sample);
}

HRESULT TDSBaseOutputPin::DeliverEndOfStream() {
    const SendScope scope(this);  // a disconnect waits for it, as for a sample
    const ComPtr<IPin> connected = scope ? ConnectedPin() : nullptr;
    if (!connected) return VFW_E_NOT_CONNECTED;
    return connected->EndOfStream();
}

HRESULT TDSBaseOutputPin::DeliverBeginFlush() {
    const SendScope scope(this);  // a disconnect waits for it, as for a sample
    const ComPtr<IPin> connected = scope ? ConnectedPin() : nullptr;
    if (!connected) return VFW_E_NOT_CONNECTED;
    return connected->BeginFlush();
}

HRESULT TDSBaseOutputPin::DeliverEndFlush() {
    const SendScope scope(this);  // a disconnect waits for it, as for a sample
    const ComPtr<IPin> connected = scope ? ConnectedPin() : nullptr;
    if (!connected) return VFW_E_NOT_CONNECTED;
    return connected->EndFlush();
}

HRESULT TDSBaseOutputPin::DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop,
                                            double rate) {
    const SendScope scope(this);
    const ComPtr<IPin> connected = scope ? ConnectedPin() : nullptr;
    if (!connected) return VFW_E_NOT_CONNECTED;
    return connected->NewSegment(start, stop, rate);
}

// ---- TDSBaseInputPin -----------------------------------------------------------------------

TDSBaseInputPin::TDSBaseInputPin(const std::string& objectName, TDSBaseFilter* filter,
                                 ICriticalSection* lock, HRESULT* result,
                                 const std::u16string& pinName)
    : TDSBasePin(objectName, filter, lock, result, pinName, PINDIR_INPUT) {}

TDSBaseInputPin::~TDSBaseInputPin() {
    QPDSDeleteMediaType(FSampleType);
}

bool TDSBaseInputPin::GetInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IMemInputPin)) {
        *object = static_cast<IMemInputPin*>(this);
        return true;
    }
    return TDSBasePin::GetInterface(iid, object);
}

STDMETHODIMP TDSBaseInputPin::GetAllocator(IMemAllocator** allocator) {
    if (!allocator) return E_POINTER;
    DSLockGuard guard(FLock.Get());
    *allocator = nullptr;
    if (!FAllocator) {
        const HRESULT hr =
            CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IMemAllocator, FAllocator.ReleaseAndGetVoidAddress());
        if (FAILED(hr)) return hr;
    }
    return FAllocator.CopyTo(allocator);
}

STDMETHODIMP TDSBaseInputPin::NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) {
    DSLockGuard guard(FLock.Get());
    FAllocator = allocator;
    FReadOnly = readOnly != 0;
    return S_OK;
}

STDMETHODIMP TDSBaseInputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) {
    return E_NOTIMPL;
}

HRESULT TDSBaseInputPin::BreakConnect() {
    if (FAllocator) {
        const HRESULT hr = FAllocator->Decommit();
        if (FAILED(hr)) return hr;
        FAllocator = nullptr;
    }
    return S_OK;
}

HRESULT TDSBaseInputPin::Inactive() {
    FRunTimeError = false;
    if (!FAllocator) return VFW_E_NO_ALLOCATOR;
    FFlushing = false;
    return FAllocator->Decommit();
}

STDMETHODIMP TDSBaseInputPin::BeginFlush() {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        DSAssert(!FFlushing.load());
        FFlushing = true;
        return S_OK;
    });
}

STDMETHODIMP TDSBaseInputPin::EndFlush() {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        DSAssert(FFlushing.load());
        FFlushing = false;
        FRunTimeError = false;
        return S_OK;
    });
}

HRESULT TDSBaseInputPin::CheckStreaming() {
    DSAssert(IsConnected());
    if (IsStopped()) return VFW_E_WRONG_STATE;
    if (FFlushing.load()) return S_FALSE;
    if (FRunTimeError.load()) return VFW_E_RUNTIME_ERROR;
    return S_OK;
}

STDMETHODIMP TDSBaseInputPin::Receive(IMediaSample* sample) {
    return mw::DSGuarded([&]() -> HRESULT { return ReadSample(sample); });
}

HRESULT TDSBaseInputPin::ReadSample(IMediaSample* sample) {
    DSAssert(sample != nullptr);
    HRESULT hr = CheckStreaming();
    if (hr != S_OK) return hr;

    ComPtr<IMediaSample2> sample2;
    if (SUCCEEDED(sample->QueryInterface(IID_IMediaSample2, sample2.ReleaseAndGetVoidAddress())) &&
        sample2) {
        hr = sample2->GetProperties(sizeof(FSampleProps), reinterpret_cast<BYTE*>(&FSampleProps));
        if (FAILED(hr)) return hr;
    } else {
        QPDSDeleteMediaType(FSampleType);
        FSampleType = nullptr;
        FSampleProps = AM_SAMPLE2_PROPERTIES{};
        FSampleProps.cbData = sizeof(FSampleProps);
        if (sample->IsDiscontinuity() == S_OK)
            FSampleProps.dwSampleFlags |= AM_SAMPLE_DATADISCONTINUITY;
        if (sample->IsPreroll() == S_OK) FSampleProps.dwSampleFlags |= AM_SAMPLE_PREROLL;
        if (sample->IsSyncPoint() == S_OK) FSampleProps.dwSampleFlags |= AM_SAMPLE_SPLICEPOINT;
        if (SUCCEEDED(sample->GetTime(&FSampleProps.tStart, &FSampleProps.tStop)))
            FSampleProps.dwSampleFlags |= AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID;
        if (sample->GetMediaType(&FSampleType) == S_OK) {
            FSampleProps.pMediaType = FSampleType;
            FSampleProps.dwSampleFlags |= AM_SAMPLE_TYPECHANGED;
        }
        sample->GetPointer(&FSampleProps.pbBuffer);
        FSampleProps.lActual = sample->GetActualDataLength();
        FSampleProps.cbBuffer = sample->GetSize();
    }

    if (!(FSampleProps.dwSampleFlags & AM_SAMPLE_TYPECHANGED)) return S_OK;
    if (CheckMediaType(FSampleProps.pMediaType) == S_OK) return S_OK;
    FRunTimeError = true;
    EndOfStream();
    FFilter->NotifyEvent(EC_ERRORABORT, VFW_E_TYPE_NOT_ACCEPTED, 0);
    return VFW_E_INVALIDMEDIATYPE;
}

STDMETHODIMP TDSBaseInputPin::ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) {
    if (!processed || (count > 0 && !samples)) return E_POINTER;
    *processed = 0;
    HRESULT hr = S_OK;
    for (LONG i = 0; i < count; ++i) {
        hr = Receive(samples[i]);
        if (hr != S_OK) break;
        ++*processed;
    }
    return hr;
}

STDMETHODIMP TDSBaseInputPin::ReceiveCanBlock() {
    int outputs = 0;
    const int count = FFilter->GetPinCount();
    for (int i = 0; i < count; ++i) {
        TDSBasePin* pin = FFilter->GetPin(i);
        if (!pin) continue;
        PIN_DIRECTION direction;
        const HRESULT hr = pin->QueryDirection(&direction);
        if (FAILED(hr)) return hr;
        if (direction == PINDIR_INPUT) continue;
        ComPtr<IPin> connected;
        if (FAILED(pin->ConnectedTo(connected.ReleaseAndGetAddressOf())) || !connected) continue;
        ++outputs;
        ComPtr<IMemInputPin> input;
        if (FAILED(connected->QueryInterface(IID_IMemInputPin, input.ReleaseAndGetVoidAddress())) ||
            !input)
            return S_OK;
        if (input->ReceiveCanBlock() != S_FALSE) return S_OK;
    }
    return outputs != 0 ? S_FALSE : S_OK;
}

STDMETHODIMP TDSBaseInputPin::Notify(IBaseFilter*, Quality) {
    return S_OK;
}

HRESULT TDSBaseInputPin::PassNotify(Quality quality) {
    if (FQualitySink) return FQualitySink->Notify(FFilter->AsBaseFilter(), quality);
    HRESULT hr = VFW_E_NOT_FOUND;
    if (ComPtr<IPin> connected = ConnectedPin()) {
        ComPtr<IQualityControl> control;
        if (SUCCEEDED(connected->QueryInterface(IID_IQualityControl,
                                                control.ReleaseAndGetVoidAddress())) &&
            control)
            hr = control->Notify(FFilter->AsBaseFilter(), quality);
    }
    return hr;
}

const AM_SAMPLE2_PROPERTIES& TDSBaseInputPin::SampleProps() const {
    DSAssert(FSampleProps.cbData != 0);
    return FSampleProps;
}
