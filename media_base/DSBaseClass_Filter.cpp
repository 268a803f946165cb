// The filter core: the dual-faced object, the base filter with its state changes, and the pin
// and media type enumerators.
#include <algorithm>
#include <new>

#include "media_base/DSBaseClass.h"

using mw::DSAssert;
using mw::DSLockGuard;

namespace {

// Copies a name into a fixed array of 128 characters with its terminator. Longer names are cut
// so that nothing is written past the array.
void CopyName(WCHAR (&target)[128], const std::u16string& name) {
    const size_t n = std::min<size_t>(name.size(), 127);
    std::copy_n(name.data(), n, target);
    target[n] = 0;
}

}  // namespace

// ---- TDSDualUnknown ------------------------------------------------------------------------

TDSDualUnknown::TDSDualUnknown(const std::string& name, IUnknown* owner)
    : FOwner(owner), FObjectName(name) {}

bool TDSDualUnknown::GetInterface(REFIID, void**) {
    return false;
}

HRESULT TDSDualUnknown::NonDelegatingQueryInterface(REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (!GetInterface(iid, object) || !*object) {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    static_cast<IUnknown*>(*object)->AddRef();
    return S_OK;
}

ULONG TDSDualUnknown::NonDelegatingAddRef() {
    return static_cast<ULONG>(FRefCount.fetch_add(1) + 1);
}

ULONG TDSDualUnknown::NonDelegatingRelease() {
    const LONG n = FRefCount.fetch_sub(1) - 1;
    if (n == 0) delete this;
    return static_cast<ULONG>(n);
}

HRESULT TDSDualUnknown::DualQueryInterface(REFIID iid, void** object) {
    if (FOwner) return FOwner->QueryInterface(iid, object);
    return NonDelegatingQueryInterface(iid, object);
}

ULONG TDSDualUnknown::DualAddRef() {
    return FOwner ? FOwner->AddRef() : NonDelegatingAddRef();
}

ULONG TDSDualUnknown::DualRelease() {
    return FOwner ? FOwner->Release() : NonDelegatingRelease();
}

// ---- TDSBaseFilter -------------------------------------------------------------------------

TDSBaseFilter::TDSBaseFilter(const std::string& name, IUnknown* owner, const CLSID& classId)
    : TDSDualUnknown(name, owner), FClassId(classId) {
    CreateLock();
}

TDSBaseFilter::TDSBaseFilter(const std::string& name, IUnknown* owner, const CLSID& classId,
                             HRESULT* result)
    : TDSDualUnknown(name, owner), FClassId(classId) {
    DSAssert(result != nullptr, "Unreferenced parameter: hr");
    CreateLock();
}

TDSBaseFilter::~TDSBaseFilter() = default;

void TDSBaseFilter::CreateLock() {
    FLock = MwNew<TCriticalSection>();
    DSAssert(FLock != nullptr, "Lock = nil !");
}

bool TDSBaseFilter::GetInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IBaseFilter) ||
        IsEqualIID(iid, IID_IMediaFilter) || IsEqualIID(iid, IID_IPersist)) {
        *object = static_cast<IBaseFilter*>(this);
        return true;
    }
    return false;
}

STDMETHODIMP TDSBaseFilter::GetClassID(CLSID* classId) {
    if (!classId) return E_POINTER;
    *classId = FClassId;
    return S_OK;
}

STDMETHODIMP TDSBaseFilter::Stop() {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        HRESULT result = S_OK;
        if (FState.load() != State_Stopped) {
            const int count = GetPinCount();
            for (int i = 0; i < count; ++i) {
                TDSBasePin* pin = GetPin(i);
                if (!pin || !pin->IsConnected()) continue;
                const HRESULT hr = pin->Inactive();
                if (FAILED(hr) && SUCCEEDED(result)) result = hr;
            }
        }
        FState = State_Stopped;
        return result;
    });
}

STDMETHODIMP TDSBaseFilter::Pause() {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        if (FState.load() == State_Stopped) {
            const int count = GetPinCount();
            for (int i = 0; i < count; ++i) {
                TDSBasePin* pin = GetPin(i);
                if (!pin || !pin->IsConnected()) continue;
                const HRESULT hr = pin->Active();
                if (FAILED(hr)) return hr;
            }
        }
        FState = State_Paused;
        return S_OK;
    });
}

STDMETHODIMP TDSBaseFilter::Run(REFERENCE_TIME start) {
    return mw::DSGuarded([&]() -> HRESULT {
        // No lock here, unlike Stop and Pause: the graph calls Run on its own thread in order.
        FStart = start;
        if (FState.load() == State_Stopped) {
            const HRESULT hr = Pause();
            if (FAILED(hr)) return hr;
        }
        if (FState.load() != State_Running) {
            const int count = GetPinCount();
            for (int i = 0; i < count; ++i) {
                TDSBasePin* pin = GetPin(i);
                if (!pin || !pin->IsConnected()) continue;
                const HRESULT hr = pin->Run(start);
                if (FAILED(hr)) return hr;
            }
        }
        FState = State_Running;
        return S_OK;
    });
}

STDMETHODIMP TDSBaseFilter::GetState(DWORD, FILTER_STATE* state) {
    if (!state) return E_POINTER;
    *state = FState.load();
    return S_OK;
}

STDMETHODIMP TDSBaseFilter::SetSyncSource(IReferenceClock* clock) {
    DSLockGuard guard(FLock.Get());
    FClock = clock;
    return S_OK;
}

STDMETHODIMP TDSBaseFilter::GetSyncSource(IReferenceClock** clock) {
    if (!clock) return E_POINTER;
    DSLockGuard guard(FLock.Get());
    return FClock.CopyTo(clock);
}

HRESULT TDSBaseFilter::StreamTime(REFERENCE_TIME* time) {
    if (!time) return E_POINTER;
    ComPtr<IReferenceClock> clock;
    {
        DSLockGuard guard(FLock.Get());
        clock = FClock;
    }
    if (!clock) return VFW_E_NO_CLOCK;
    REFERENCE_TIME now = 0;
    const HRESULT hr = clock->GetTime(&now);
    if (FAILED(hr)) return hr;
    *time = now - FStart.load();
    return hr;
}

LONG TDSBaseFilter::GetPinVersion() {
    return FPinVersion.load();
}

STDMETHODIMP TDSBaseFilter::EnumPins(IEnumPins** enumerator) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!enumerator) return E_POINTER;
        ComPtr<IEnumPins> e(new (std::nothrow) TDSEnumPins(this, nullptr));
        *enumerator = e.Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

STDMETHODIMP TDSBaseFilter::FindPin(LPCWSTR id, IPin** pin) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!pin) return E_POINTER;
        DSLockGuard guard(FLock.Get());
        *pin = nullptr;
        if (!id) return E_POINTER;
        const std::u16string wanted(id);
        const int count = GetPinCount();
        for (int i = 0; i < count; ++i) {
            TDSBasePin* candidate = GetPin(i);
            DSAssert(candidate != nullptr);
            if (candidate->PinName() == wanted) {
                *pin = candidate->AsPin();
                (*pin)->AddRef();
                return S_OK;
            }
        }
        return VFW_E_NOT_FOUND;
    });
}

STDMETHODIMP TDSBaseFilter::QueryFilterInfo(FILTER_INFO* info) {
    if (!info) return E_POINTER;
    DSLockGuard guard(FLock.Get());
    CopyName(info->achName, FFilterName);
    info->pGraph = FGraph;
    if (FGraph) FGraph->AddRef();
    return S_OK;
}

STDMETHODIMP TDSBaseFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    return mw::DSGuarded([&]() -> HRESULT {
        DSLockGuard guard(FLock.Get());
        FGraph = graph;
        if (graph) {
            if (SUCCEEDED(graph->QueryInterface(IID_IMediaEventSink,
                                                FEventSink.ReleaseAndGetVoidAddress())))
                FEventSink = nullptr;  // the filter deliberately keeps no event sink
            else
                DSAssert(FEventSink == nullptr);
        } else {
            FEventSink.Detach();  // set to nothing without a release
        }
        FFilterName.clear();
        if (name) FFilterName = name;
        return S_OK;
    });
}

STDMETHODIMP TDSBaseFilter::QueryVendorInfo(LPWSTR*) {
    return E_NOTIMPL;
}

HRESULT TDSBaseFilter::NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2) {
    ComPtr<IMediaEventSink> sink = FEventSink;
    if (!sink) return S_OK;
    if (code == EC_COMPLETE)
        param2 = static_cast<LONG_PTR>(
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(AsBaseFilter())));
    return sink->Notify(code, param1, param2);
}

HRESULT TDSBaseFilter::ReconnectPin(IPin* pin, const AM_MEDIA_TYPE* type) {
    if (!FGraph) return E_NOINTERFACE;
    ComPtr<IFilterGraph2> graph2;
    if (SUCCEEDED(FGraph->QueryInterface(IID_IFilterGraph2, graph2.ReleaseAndGetVoidAddress())) &&
        graph2)
        return graph2->ReconnectEx(pin, type);
    return FGraph->Reconnect(pin);
}

// ---- TDSEnumPins ---------------------------------------------------------------------------

TDSEnumPins::TDSEnumPins(TDSBaseFilter* filter, const TDSEnumPins* source) : FFilter(filter) {
    DSAssert(filter != nullptr);
    FFilterReference = filter->AsBaseFilter();
    if (source) {
        FPosition = source->FPosition;
        FPinCount = source->FPinCount;
        FVersion = source->FVersion;
        FPinCache = source->FPinCache;
        DSAssert(FPosition <= FPinCount);
    } else {
        FVersion = filter->GetPinVersion();
        FPinCount = filter->GetPinCount();
    }
}

bool TDSEnumPins::AreWeOutOfSync() {
    return FFilter->GetPinVersion() != FVersion;
}

void TDSEnumPins::Refresh() {
    FVersion = FFilter->GetPinVersion();
    FPinCount = FFilter->GetPinCount();
    FPosition = 0;
}

STDMETHODIMP TDSEnumPins::Next(ULONG count, IPin** pins, ULONG* fetched) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!pins) return E_POINTER;
        pins[0] = nullptr;
        if (fetched)
            *fetched = 0;
        else if (count > 1)
            return E_INVALIDARG;
        if (AreWeOutOfSync()) Refresh();
        LONG wanted =
            std::min<LONG>(std::max<LONG>(FPinCount - FPosition, 0), static_cast<LONG>(count));
        if (wanted == 0) return S_FALSE;
        ULONG got = 0;
        while (wanted > 0) {
            ++FPosition;
            TDSBasePin* pin = FFilter->GetPin(FPosition - 1);
            if (!pin) {
                // The set of pins changed under the walk. Pins handed out in this call are taken
                // back, so the caller holds nothing on a failure.
                if (got != 0) {
                    mw::DSReportException("Assertion failure");
                    for (ULONG i = 0; i < got; ++i) {
                        pins[i]->Release();
                        pins[i] = nullptr;
                    }
                    FPinCache.resize(FPinCache.size() - got);
                }
                return VFW_E_ENUM_OUT_OF_SYNC;
            }
            if (std::find(FPinCache.begin(), FPinCache.end(), pin) == FPinCache.end()) {
                pins[got] = pin->AsPin();
                pins[got]->AddRef();
                ++got;
                FPinCache.push_back(pin);
                --wanted;
            }
        }
        if (fetched) *fetched = got;
        return got == count ? S_OK : S_FALSE;
    });
}

STDMETHODIMP TDSEnumPins::Skip(ULONG count) {
    if (AreWeOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
    const LONG left = FPinCount - FPosition;
    if (left < static_cast<LONG>(count)) return S_FALSE;
    FPosition += static_cast<LONG>(count);
    return S_OK;
}

STDMETHODIMP TDSEnumPins::Reset() {
    FVersion = FFilter->GetPinVersion();
    FPinCount = FFilter->GetPinCount();
    FPosition = 0;
    FPinCache.clear();
    return S_OK;
}

STDMETHODIMP TDSEnumPins::Clone(IEnumPins** enumerator) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!enumerator) return E_POINTER;
        *enumerator = nullptr;
        if (AreWeOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
        ComPtr<IEnumPins> e(new (std::nothrow) TDSEnumPins(FFilter, this));
        *enumerator = e.Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}

// ---- TDSEnumMediaTypes ---------------------------------------------------------------------

TDSEnumMediaTypes::TDSEnumMediaTypes(TDSBasePin* pin, const TDSEnumMediaTypes* source) : FPin(pin) {
    DSAssert(pin != nullptr);
    FPinReference = pin->AsPin();
    if (source) {
        FPosition = source->FPosition;
        FVersion = source->FVersion;
    } else {
        FVersion = pin->GetMediaTypeVersion();
    }
}

bool TDSEnumMediaTypes::AreWeOutOfSync() {
    return FPin->GetMediaTypeVersion() != FVersion;
}

STDMETHODIMP TDSEnumMediaTypes::Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!types) return E_POINTER;
        if (AreWeOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
        if (fetched)
            *fetched = 0;
        else if (count > 1)
            return E_INVALIDARG;
        ULONG got = 0;
        while (got < count) {
            AM_MEDIA_TYPE local{};
            ++FPosition;
            if (FPin->GetMediaType(FPosition - 1, &local) != S_OK) {
                DSClearMediaType(&local);
                break;
            }
            auto* record = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
            if (!record) {
                DSClearMediaType(&local);
                break;
            }
            *record = local;  // the block and pUnk pass to the caller's record
            local.pUnk = nullptr;
            local.cbFormat = 0;
            local.pbFormat = nullptr;
            types[got++] = record;
        }
        if (fetched) *fetched = got;
        return got < count ? S_FALSE : S_OK;
    });
}

STDMETHODIMP TDSEnumMediaTypes::Skip(ULONG count) {
    if (count == 0) return S_OK;
    if (AreWeOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
    FPosition += static_cast<LONG>(count);
    AM_MEDIA_TYPE local{};
    const HRESULT hr = FPin->GetMediaType(FPosition - 1, &local);
    DSClearMediaType(&local);
    return hr == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP TDSEnumMediaTypes::Reset() {
    FPosition = 0;
    FVersion = FPin->GetMediaTypeVersion();
    return S_OK;
}

STDMETHODIMP TDSEnumMediaTypes::Clone(IEnumMediaTypes** enumerator) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!enumerator) return E_POINTER;
        *enumerator = nullptr;
        if (AreWeOutOfSync()) return VFW_E_ENUM_OUT_OF_SYNC;
        ComPtr<IEnumMediaTypes> e(new (std::nothrow) TDSEnumMediaTypes(FPin, this));
        *enumerator = e.Detach();
        return *enumerator ? S_OK : E_OUTOFMEMORY;
    });
}
