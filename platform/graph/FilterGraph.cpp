// The graph manager: the filters of a graph, their connections, state changes in stream order,
// the graph clock, the event queue and seeking passed to the renderers.
//
// Locks: FLock (recursive) serialises the control calls (add, remove, connect, state changes,
// seeking). Filters call back into the graph on their streaming threads (IMediaEventSink::Notify)
// while a control call may be waiting for such a thread to end; the event queue therefore has its
// own lock, FEventMutex, which is never held while calling a filter.
#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "comptr.h"
#include "control.h"
#include "evcode.h"
#include "mwcom.h"
#include "oleauto.h"
#include "platform/com/ComObject.h"
#include "platform/graph/Catalogue.h"
#include "platform/graph/GraphBuilder.h"
#include "platform/graph/GraphService.h"
#include "platform/graph/MediaTypes.h"
#include "platform/graph/MemAllocator.h"
#include "platform/graph/ReferenceClock.h"
#include "uuids.h"
#include "vfwmsgs.h"
#include "winbase.h"
#include "winuser.h"

namespace mw::graph {
namespace {

// Time between the Run call and the stream time 0 of the filters: room for the filters to
// reach the running state before the first sample is due.
constexpr REFERENCE_TIME kRunDelay = 10 * 10000;

void CopyFilter(const ComPtr<IBaseFilter>& item, IBaseFilter** out) {
    *out = item.Get();
    (*out)->AddRef();
}
using FilterEnumerator = mw::com::SnapshotEnumerator<IEnumFilters, ComPtr<IBaseFilter>,
                                                     IBaseFilter*, &CopyFilter, E_POINTER>;

struct Event {
    LONG code;
    LONG_PTR param1;
    LONG_PTR param2;
};

std::vector<ComPtr<IPin>> Pins(IBaseFilter* filter) {
    std::vector<ComPtr<IPin>> pins;
    ComPtr<IEnumPins> e;
    if (FAILED(filter->EnumPins(e.ReleaseAndGetAddressOf())) || !e) return pins;
    for (;;) {
        ComPtr<IPin> pin;
        ULONG got = 0;
        if (e->Next(1, pin.ReleaseAndGetAddressOf(), &got) != S_OK || got != 1) break;
        pins.push_back(pin);
    }
    return pins;
}

PIN_DIRECTION Direction(IPin* pin) {
    PIN_DIRECTION d = PINDIR_INPUT;
    pin->QueryDirection(&d);
    return d;
}

ComPtr<IBaseFilter> OwnerOf(IPin* pin) {
    PIN_INFO info{};
    ComPtr<IBaseFilter> filter;
    if (SUCCEEDED(pin->QueryPinInfo(&info)) && info.pFilter) filter.Attach(info.pFilter);
    return filter;
}

ComPtr<IPin> Peer(IPin* pin) {
    ComPtr<IPin> peer;
    if (FAILED(pin->ConnectedTo(peer.ReleaseAndGetAddressOf()))) return nullptr;
    return peer;
}

class FilterGraph final : public IFilterGraph2,
                          public IMediaControl,
                          public IMediaEventEx,
                          public IMediaEventSink,
                          public IMediaFilter,
                          public IMediaSeeking,
                          public IMediaPosition,
                          public IPersistStream {
public:
    FilterGraph() { FEventHandle = CreateEventW(nullptr, TRUE, FALSE, nullptr); }
    ~FilterGraph() {
        Stop();
        std::vector<ComPtr<IBaseFilter>> filters;
        {
            std::lock_guard lock(FLock);
            for (auto& e : FFilters)
                filters.push_back(e.filter);
        }
        for (auto& f : filters)
            RemoveFilterLocked(f.Get());
        std::lock_guard lock(FEventMutex);
        for (const Event& e : FEvents)
            FreeEventParams(e.code, e.param1, e.param2);
        CloseHandle(FEventHandle);
    }

    // ------------------------------------------------------------------ IUnknown
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        return mw::com::QueryTable(iid, object,
                                   {{&IID_IUnknown, static_cast<IFilterGraph2*>(this)},
                                    {&IID_IFilterGraph, static_cast<IFilterGraph2*>(this)},
                                    {&IID_IGraphBuilder, static_cast<IFilterGraph2*>(this)},
                                    {&IID_IFilterGraph2, static_cast<IFilterGraph2*>(this)},
                                    {&IID_IMediaControl, static_cast<IMediaControl*>(this)},
                                    {&IID_IMediaEvent, static_cast<IMediaEventEx*>(this)},
                                    {&IID_IMediaEventEx, static_cast<IMediaEventEx*>(this)},
                                    {&IID_IMediaEventSink, static_cast<IMediaEventSink*>(this)},
                                    {&IID_IMediaFilter, static_cast<IMediaFilter*>(this)},
                                    {&IID_IMediaSeeking, static_cast<IMediaSeeking*>(this)},
                                    {&IID_IMediaPosition, static_cast<IMediaPosition*>(this)},
                                    {&IID_IPersistStream, static_cast<IPersistStream*>(this)},
                                    {&IID_IPersist, static_cast<IPersistStream*>(this)}});
    }
    STDMETHODIMP_(ULONG) AddRef() override { return FRefCount.fetch_add(1) + 1; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG n = FRefCount.fetch_sub(1) - 1;
        if (n == 0) delete this;
        return n;
    }

    // ------------------------------------------------------------------ IDispatch
    // No type information: the graph's automation interfaces are called through their vtables.
    STDMETHODIMP GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
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

    // ------------------------------------------------------------------ IFilterGraph
    STDMETHODIMP AddFilter(IBaseFilter* filter, LPCWSTR name) override {
        if (!filter) return E_POINTER;
        std::lock_guard lock(FLock);
        for (const auto& e : FFilters)
            if (e.filter.Get() == filter) return VFW_E_DUPLICATE_NAME;
        std::u16string wanted = name && *name ? std::u16string(name) : std::u16string(u"Filter");
        std::u16string unique = wanted;
        for (int i = 1; FindByName(unique); ++i) {
            char16_t suffix[16];
            const std::string digits = std::to_string(10000 + i).substr(1);
            size_t k = 0;
            suffix[k++] = u' ';
            for (char c : digits)
                suffix[k++] = static_cast<char16_t>(c);
            unique = wanted + std::u16string(suffix, k);
            if (i > 9999) return VFW_E_DUPLICATE_NAME;
        }
        FFilters.push_back({ComPtr<IBaseFilter>(filter), unique});
        const HRESULT hr =
            filter->JoinFilterGraph(static_cast<IFilterGraph2*>(this), unique.c_str());
        if (FAILED(hr)) {
            FFilters.pop_back();
            return hr;
        }
        if (FClock) filter->SetSyncSource(FClock.Get());
        ++FVersion;
        return unique == wanted ? S_OK : VFW_S_DUPLICATE_NAME;
    }

    STDMETHODIMP RemoveFilter(IBaseFilter* filter) override {
        if (!filter) return E_POINTER;
        std::lock_guard lock(FLock);
        if (FState != State_Stopped) return VFW_E_NOT_STOPPED;
        return RemoveFilterLocked(filter);
    }

    STDMETHODIMP EnumFilters(IEnumFilters** out) override {
        if (!out) return E_POINTER;
        std::lock_guard lock(FLock);
        auto items = std::make_shared<std::vector<ComPtr<IBaseFilter>>>();
        for (const auto& e : FFilters)
            items->push_back(e.filter);
        *out = new FilterEnumerator(std::move(items), 0);
        return S_OK;
    }

    STDMETHODIMP FindFilterByName(LPCWSTR name, IBaseFilter** out) override {
        if (!name || !out) return E_POINTER;
        *out = nullptr;
        std::lock_guard lock(FLock);
        IBaseFilter* f = FindByName(name);
        if (!f) return VFW_E_NOT_FOUND;
        f->AddRef();
        *out = f;
        return S_OK;
    }

    STDMETHODIMP ConnectDirect(IPin* out, IPin* in, const AM_MEDIA_TYPE* type) override {
        if (!out || !in) return E_POINTER;
        std::lock_guard lock(FLock);
        const HRESULT hr = CheckPair(out, in);
        if (FAILED(hr)) return hr;
        const HRESULT connected = out->Connect(in, type);
        if (SUCCEEDED(connected)) ++FVersion;
        return connected;
    }

    STDMETHODIMP Reconnect(IPin* pin) override { return ReconnectEx(pin, nullptr); }

    STDMETHODIMP Disconnect(IPin* pin) override {
        if (!pin) return E_POINTER;
        std::lock_guard lock(FLock);
        if (FState != State_Stopped) return VFW_E_NOT_STOPPED;
        ++FVersion;
        return pin->Disconnect();
    }

    STDMETHODIMP SetDefaultSyncSource() override {
        std::lock_guard lock(FLock);
        FClockSetByApp = false;
        ChooseClock();
        return S_OK;
    }

    // ------------------------------------------------------------------ IGraphBuilder
    STDMETHODIMP Connect(IPin* out, IPin* in) override {
        if (!out || !in) return E_POINTER;
        std::lock_guard lock(FLock);
        HRESULT hr = CheckPair(out, in);
        if (FAILED(hr)) return hr;
        hr = out->Connect(in, nullptr);
        if (FAILED(hr)) hr = Builder().ConnectThroughFilters(out, in);
        if (SUCCEEDED(hr)) ++FVersion;
        return hr;
    }
    STDMETHODIMP Render(IPin* out) override {
        if (!out) return E_POINTER;
        std::lock_guard lock(FLock);
        if (!InGraph(OwnerOf(out).Get())) return VFW_E_NOT_IN_GRAPH;
        if (Direction(out) != PINDIR_OUTPUT) return VFW_E_INVALID_DIRECTION;
        if (Peer(out)) return VFW_E_ALREADY_CONNECTED;
        ++FVersion;
        return Builder().Render(out);
    }
    STDMETHODIMP RenderFile(LPCWSTR file, LPCWSTR) override {
        if (!file) return E_POINTER;
        std::lock_guard lock(FLock);
        ++FVersion;
        return Builder().RenderFile(file);
    }
    STDMETHODIMP AddSourceFilter(LPCWSTR file, LPCWSTR name, IBaseFilter** out) override {
        if (!file || !out) return E_POINTER;
        std::lock_guard lock(FLock);
        return Builder().AddSourceFilter(file, name, out);
    }
    STDMETHODIMP SetLogFile(DWORD_PTR) override { return S_OK; }
    STDMETHODIMP Abort() override {
        FAbort = true;
        return S_OK;
    }
    STDMETHODIMP ShouldOperationContinue() override { return FAbort ? S_FALSE : S_OK; }

    // ------------------------------------------------------------------ IFilterGraph2
    STDMETHODIMP AddSourceFilterForMoniker(IMoniker* moniker, IBindCtx* ctx, LPCWSTR name,
                                           IBaseFilter** out) override {
        if (!moniker || !out) return E_POINTER;
        *out = nullptr;
        ComPtr<IBaseFilter> filter;
        HRESULT hr =
            moniker->BindToObject(ctx, nullptr, IID_IBaseFilter,
                                  reinterpret_cast<void**>(filter.ReleaseAndGetAddressOf()));
        if (FAILED(hr)) return hr;
        hr = AddFilter(filter.Get(), name);
        if (FAILED(hr)) return hr;
        *out = filter.Detach();
        return hr;
    }
    STDMETHODIMP ReconnectEx(IPin* pin, const AM_MEDIA_TYPE* type) override {
        if (!pin) return E_POINTER;
        std::lock_guard lock(FLock);
        if (FState != State_Stopped) return VFW_E_NOT_STOPPED;
        ComPtr<IPin> peer = Peer(pin);
        if (!peer) return VFW_E_NOT_CONNECTED;
        ComPtr<IPin> out(pin), in(peer);
        if (Direction(pin) == PINDIR_INPUT) std::swap(out, in);
        MediaType old;
        out->ConnectionMediaType(old.Put());
        out->Disconnect();
        in->Disconnect();
        ++FVersion;
        HRESULT hr = out->Connect(in.Get(), type ? type : old.Get());
        if (FAILED(hr) && type) out->Connect(in.Get(), old.Get());  // keep the old connection
        return hr;
    }
    STDMETHODIMP RenderEx(IPin* out, DWORD flags, DWORD*) override {
        if (!out) return E_POINTER;
        if (flags & ~AM_RENDEREX_RENDERTOEXISTINGRENDERERS) return E_INVALIDARG;
        std::lock_guard lock(FLock);
        ++FVersion;
        return Builder().Render(out, (flags & AM_RENDEREX_RENDERTOEXISTINGRENDERERS) != 0);
    }

    // ------------------------------------------------------------------ IMediaControl
    STDMETHODIMP Run() override {
        std::lock_guard lock(FLock);
        if (FState == State_Running) return S_OK;
        if (FState == State_Stopped) {
            const HRESULT hr = PauseLocked();
            if (FAILED(hr)) return hr;
        }
        REFERENCE_TIME now = 0;
        if (FClock) FClock->GetTime(&now);
        // Stream time goes on from where the pause left it.
        FStart = now + kRunDelay - FPausedStreamTime;
        StartCompletion();
        HRESULT result = S_OK;
        for (IBaseFilter* f : Sorted()) {
            const HRESULT hr = f->Run(FStart);
            if (FAILED(hr)) {
                StopLocked();
                return hr;
            }
            if (hr != S_OK) result = S_FALSE;
        }
        FState = State_Running;
        return result;
    }

    STDMETHODIMP Pause() override {
        std::lock_guard lock(FLock);
        if (FState == State_Paused) return S_OK;
        return PauseLocked();
    }

    STDMETHODIMP Stop() override {
        std::lock_guard lock(FLock);
        return StopLocked();
    }

    STDMETHODIMP GetState(LONG timeout, OAFilterState* state) override {
        if (!state) return E_POINTER;
        std::vector<ComPtr<IBaseFilter>> filters;
        {
            std::lock_guard lock(FLock);
            *state = FState;
            for (auto& e : FFilters)
                filters.push_back(e.filter);
        }
        HRESULT result = S_OK;
        for (auto& f : filters) {
            FILTER_STATE fs;
            const HRESULT hr = f->GetState(static_cast<DWORD>(timeout), &fs);
            if (hr == VFW_S_STATE_INTERMEDIATE)
                result = hr;
            else if (FAILED(hr) && SUCCEEDED(result))
                result = hr;
        }
        return result;
    }
    STDMETHODIMP RenderFile(BSTR file) override { return RenderFile(file, nullptr); }
    STDMETHODIMP AddSourceFilter(BSTR file, IDispatch** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        ComPtr<IBaseFilter> filter;
        const HRESULT hr = AddSourceFilter(file, file, filter.ReleaseAndGetAddressOf());
        return FAILED(hr) ? hr : E_NOTIMPL;  // no filter info objects
    }
    STDMETHODIMP get_FilterCollection(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP get_RegFilterCollection(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP StopWhenReady() override {
        std::lock_guard lock(FLock);
        if (FState == State_Stopped) {
            const HRESULT hr = PauseLocked();
            if (FAILED(hr)) return hr;
        }
        return StopLocked();
    }

    // ------------------------------------------------------------------ IMediaFilter
    STDMETHODIMP GetClassID(CLSID* id) override {
        if (!id) return E_POINTER;
        *id = CLSID_FilterGraph;
        return S_OK;
    }
    STDMETHODIMP Run(REFERENCE_TIME) override { return Run(); }
    STDMETHODIMP GetState(DWORD timeout, FILTER_STATE* state) override {
        if (!state) return E_POINTER;
        OAFilterState s;
        const HRESULT hr = GetState(static_cast<LONG>(timeout), &s);
        *state = static_cast<FILTER_STATE>(s);
        return hr;
    }
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override {
        std::lock_guard lock(FLock);
        FClockSetByApp = true;
        DistributeClock(clock);
        return S_OK;
    }
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override {
        if (!clock) return E_POINTER;
        std::lock_guard lock(FLock);
        *clock = FClock.Get();
        if (*clock) (*clock)->AddRef();
        return S_OK;
    }

    // ------------------------------------------------------------------ IMediaEvent(Ex)
    STDMETHODIMP GetEventHandle(OAEVENT* event) override {
        if (!event) return E_POINTER;
        *event = reinterpret_cast<OAEVENT>(FEventHandle);
        return S_OK;
    }
    STDMETHODIMP GetEvent(LONG* code, LONG_PTR* param1, LONG_PTR* param2, LONG timeout) override {
        if (!code || !param1 || !param2) return E_POINTER;
        std::unique_lock lock(FEventMutex);
        auto ready = [&] { return !FEvents.empty(); };
        if (timeout < 0)
            FEventQueued.wait(lock, ready);
        else if (!FEventQueued.wait_for(lock, std::chrono::milliseconds(timeout), ready)) {
            *code = 0;
            *param1 = *param2 = 0;
            return E_ABORT;
        }
        const Event e = FEvents.front();
        FEvents.pop_front();
        if (FEvents.empty()) ResetEvent(FEventHandle);
        *code = e.code;
        *param1 = e.param1;
        *param2 = e.param2;
        return S_OK;
    }
    STDMETHODIMP WaitForCompletion(LONG timeout, LONG* code) override {
        if (!code) return E_POINTER;
        *code = 0;
        {
            std::lock_guard state(FLock);
            if (FState != State_Running) return VFW_E_WRONG_STATE;
        }
        std::unique_lock lock(FEventMutex);
        auto done = [&] { return FCompletionCode != 0; };
        if (timeout < 0)
            FEventQueued.wait(lock, done);
        else if (!FEventQueued.wait_for(lock, std::chrono::milliseconds(timeout), done))
            return E_ABORT;
        *code = FCompletionCode;
        return S_OK;
    }
    STDMETHODIMP CancelDefaultHandling(LONG code) override {
        std::lock_guard lock(FEventMutex);
        if (code != EC_COMPLETE && code != EC_REPAINT && code != EC_ACTIVATE &&
            code != EC_CLOCK_CHANGED && code != EC_STATE_CHANGE)
            return E_INVALIDARG;
        FNoDefault.insert(code);
        return S_OK;
    }
    STDMETHODIMP RestoreDefaultHandling(LONG code) override {
        std::lock_guard lock(FEventMutex);
        return FNoDefault.erase(code) ? S_OK : S_FALSE;
    }
    STDMETHODIMP FreeEventParams(LONG code, LONG_PTR param1, LONG_PTR param2) override {
        // Events whose parameters carry a task-memory string.
        if (code == EC_OLE_EVENT) {
            SysFreeString(reinterpret_cast<BSTR>(param1));
            SysFreeString(reinterpret_cast<BSTR>(param2));
        }
        return S_OK;
    }
    STDMETHODIMP SetNotifyWindow(OAHWND hwnd, LONG message, LONG_PTR instance) override {
        std::lock_guard lock(FEventMutex);
        FNotifyWindow = reinterpret_cast<HWND>(hwnd);
        FNotifyMessage = static_cast<UINT>(message);
        FNotifyInstance = instance;
        // Events already waiting are announced at once.
        if (FNotifyWindow && FNotifyFlags == 0)
            for (size_t i = 0; i < FEvents.size(); ++i)
                PostMessageW(FNotifyWindow, FNotifyMessage, 0, FNotifyInstance);
        return S_OK;
    }
    STDMETHODIMP SetNotifyFlags(LONG flags) override {
        if (flags & ~AM_MEDIAEVENT_NONOTIFY) return E_INVALIDARG;
        std::lock_guard lock(FEventMutex);
        FNotifyFlags = flags;
        return S_OK;
    }
    STDMETHODIMP GetNotifyFlags(LONG* flags) override {
        if (!flags) return E_POINTER;
        std::lock_guard lock(FEventMutex);
        *flags = FNotifyFlags;
        return S_OK;
    }

    // ------------------------------------------------------------------ IMediaEventSink
    STDMETHODIMP Notify(LONG code, LONG_PTR param1, LONG_PTR param2) override {
        std::lock_guard lock(FEventMutex);
        if (code == EC_COMPLETE && !FNoDefault.count(EC_COMPLETE)) {
            // One EC_COMPLETE for the graph, once every renderer of the running graph had its
            // end of stream.
            if (!FCompletionArmed) return S_OK;
            auto* renderer = reinterpret_cast<IBaseFilter*>(param2);
            if (renderer && !FRenderers.count(renderer)) return S_OK;
            if (renderer)
                FRenderersDone.insert(renderer);
            else
                ++FAnonymousDone;
            if (FRenderersDone.size() + FAnonymousDone < FRenderers.size()) return S_OK;
            FCompletionArmed = false;
            FCompletionCode = EC_COMPLETE;
            QueueLocked({EC_COMPLETE, param1, 0});
            return S_OK;
        }
        if ((code == EC_ERRORABORT || code == EC_USERABORT || code == EC_DEVICE_LOST) &&
            FCompletionCode == 0)
            FCompletionCode = code;
        if (code == EC_CLOCK_CHANGED && !FNoDefault.count(EC_CLOCK_CHANGED)) return S_OK;
        QueueLocked({code, param1, param2});
        return S_OK;
    }

    // ------------------------------------------------------------------ IMediaSeeking
    // Passed to every renderer that can seek (a renderer passes it upstream to its source); the
    // answers of the first one are the graph's, a change goes to all of them.
    STDMETHODIMP GetCapabilities(DWORD* caps) override {
        if (!caps) return E_POINTER;
        auto seekers = Seekers();
        if (seekers.empty()) return E_NOTIMPL;
        DWORD all = ~DWORD(0);
        for (auto& s : seekers) {
            DWORD c = 0;
            if (SUCCEEDED(s->GetCapabilities(&c)))
                all &= c;
            else
                all = 0;
        }
        *caps = all | AM_SEEKING_CanGetCurrentPos;
        return S_OK;
    }
    STDMETHODIMP CheckCapabilities(DWORD* caps) override {
        if (!caps) return E_POINTER;
        DWORD have = 0;
        const HRESULT hr = GetCapabilities(&have);
        if (FAILED(hr)) return hr;
        const DWORD wanted = *caps;
        *caps &= have;
        return *caps == wanted ? S_OK : (*caps ? S_FALSE : E_FAIL);
    }
    STDMETHODIMP IsFormatSupported(const GUID* format) override {
        if (!format) return E_POINTER;
        return IsEqualGUID(*format, TIME_FORMAT_MEDIA_TIME) ? S_OK : S_FALSE;
    }
    STDMETHODIMP QueryPreferredFormat(GUID* format) override { return GetTimeFormat(format); }
    STDMETHODIMP GetTimeFormat(GUID* format) override {
        if (!format) return E_POINTER;
        *format = TIME_FORMAT_MEDIA_TIME;
        return S_OK;
    }
    STDMETHODIMP IsUsingTimeFormat(const GUID* format) override {
        return IsFormatSupported(format);
    }
    STDMETHODIMP SetTimeFormat(const GUID* format) override {
        if (!format) return E_POINTER;
        return IsEqualGUID(*format, TIME_FORMAT_MEDIA_TIME) ? S_OK : E_INVALIDARG;
    }
    STDMETHODIMP GetDuration(LONGLONG* duration) override {
        if (!duration) return E_POINTER;
        return FirstSeeker([&](IMediaSeeking* s) { return s->GetDuration(duration); });
    }
    STDMETHODIMP GetStopPosition(LONGLONG* stop) override {
        if (!stop) return E_POINTER;
        return FirstSeeker([&](IMediaSeeking* s) { return s->GetStopPosition(stop); });
    }
    STDMETHODIMP GetCurrentPosition(LONGLONG* current) override {
        if (!current) return E_POINTER;
        std::lock_guard lock(FLock);
        *current = FPositionBase + static_cast<LONGLONG>(StreamTime() * FRate);
        LONGLONG stop = 0;
        if (SUCCEEDED(FirstSeeker([&](IMediaSeeking* s) { return s->GetStopPosition(&stop); })) &&
            stop > 0)
            *current = std::min(*current, stop);
        return S_OK;
    }
    STDMETHODIMP ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                                   const GUID* sourceFormat) override {
        if (!target) return E_POINTER;
        auto media = [](const GUID* f) { return !f || IsEqualGUID(*f, TIME_FORMAT_MEDIA_TIME); };
        if (!media(targetFormat) || !media(sourceFormat)) return E_INVALIDARG;
        *target = source;
        return S_OK;
    }
    STDMETHODIMP SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop,
                              DWORD stopFlags) override {
        std::lock_guard lock(FLock);
        auto seekers = Seekers();
        if (seekers.empty()) return E_NOTIMPL;
        const FILTER_STATE was = FState;
        const bool moves = (currentFlags & AM_SEEKING_PositioningBitsMask) != 0;
        // A running graph pauses for the seek and runs again from the new position.
        if (moves && was == State_Running) PauseLocked();
        HRESULT result = S_OK;
        for (auto& s : seekers) {
            const HRESULT hr = s->SetPositions(current, currentFlags, stop, stopFlags);
            if (FAILED(hr)) result = hr;
        }
        if (moves && current && SUCCEEDED(result)) {
            LONGLONG now = *current;
            if ((currentFlags & AM_SEEKING_PositioningBitsMask) == AM_SEEKING_RelativePositioning)
                now += FPositionBase + static_cast<LONGLONG>(StreamTime() * FRate);
            FPositionBase = now;
            FPausedStreamTime = 0;
        }
        if (moves && was == State_Running) Run();
        return result;
    }
    STDMETHODIMP GetPositions(LONGLONG* current, LONGLONG* stop) override {
        if (current) GetCurrentPosition(current);
        if (stop) return GetStopPosition(stop);
        return S_OK;
    }
    STDMETHODIMP GetAvailable(LONGLONG* earliest, LONGLONG* latest) override {
        if (earliest) *earliest = 0;
        if (latest) return GetDuration(latest);
        return S_OK;
    }
    STDMETHODIMP SetRate(double rate) override {
        if (rate == 0) return E_INVALIDARG;
        std::lock_guard lock(FLock);
        auto seekers = Seekers();
        if (seekers.empty()) return E_NOTIMPL;
        for (auto& s : seekers) {
            const HRESULT hr = s->SetRate(rate);
            if (FAILED(hr)) return hr;
        }
        FRate = rate;
        return S_OK;
    }
    STDMETHODIMP GetRate(double* rate) override {
        if (!rate) return E_POINTER;
        std::lock_guard lock(FLock);
        *rate = FRate;
        return S_OK;
    }
    STDMETHODIMP GetPreroll(LONGLONG* preroll) override {
        if (!preroll) return E_POINTER;
        std::lock_guard lock(FLock);
        *preroll = FPreroll;
        return S_OK;
    }

    // ------------------------------------------------------------------ IMediaPosition
    // The same positions in seconds.
    STDMETHODIMP get_Duration(REFTIME* length) override {
        return Seconds(length, [&](LONGLONG* t) { return GetDuration(t); });
    }
    STDMETHODIMP put_CurrentPosition(REFTIME time) override {
        LONGLONG t = static_cast<LONGLONG>(time * 1e7 + 0.5);
        return SetPositions(&t, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning);
    }
    STDMETHODIMP get_CurrentPosition(REFTIME* time) override {
        return Seconds(time, [&](LONGLONG* t) { return GetCurrentPosition(t); });
    }
    STDMETHODIMP get_StopTime(REFTIME* time) override {
        return Seconds(time, [&](LONGLONG* t) { return GetStopPosition(t); });
    }
    STDMETHODIMP put_StopTime(REFTIME time) override {
        LONGLONG t = static_cast<LONGLONG>(time * 1e7 + 0.5);
        return SetPositions(nullptr, AM_SEEKING_NoPositioning, &t, AM_SEEKING_AbsolutePositioning);
    }
    STDMETHODIMP get_PrerollTime(REFTIME* time) override {
        return Seconds(time, [&](LONGLONG* t) { return GetPreroll(t); });
    }
    STDMETHODIMP put_PrerollTime(REFTIME time) override {
        if (time < 0) return E_INVALIDARG;
        std::lock_guard lock(FLock);
        FPreroll = static_cast<LONGLONG>(time * 1e7 + 0.5);
        return S_OK;
    }
    STDMETHODIMP put_Rate(double rate) override { return SetRate(rate); }
    STDMETHODIMP get_Rate(double* rate) override { return GetRate(rate); }
    STDMETHODIMP CanSeekForward(LONG* can) override { return Can(can, AM_SEEKING_CanSeekForwards); }
    STDMETHODIMP CanSeekBackward(LONG* can) override {
        return Can(can, AM_SEEKING_CanSeekBackwards);
    }

    // ------------------------------------------------------------------ IPersistStream
    STDMETHODIMP IsDirty() override {
        std::lock_guard lock(FLock);
        return FVersion != FSavedVersion ? S_OK : S_FALSE;
    }
    STDMETHODIMP Load(IStream* stream) override {
        if (!stream) return E_POINTER;
        std::lock_guard lock(FLock);
        if (FState != State_Stopped) return VFW_E_NOT_STOPPED;
        const HRESULT hr = LoadGraph(stream, static_cast<IFilterGraph2*>(this));
        FSavedVersion = ++FVersion;
        return hr;
    }
    STDMETHODIMP Save(IStream* stream, BOOL clearDirty) override {
        if (!stream) return E_POINTER;
        std::lock_guard lock(FLock);
        std::vector<SavedFilter> filters;
        for (auto& e : FFilters)
            filters.push_back({e.filter, e.name});
        const HRESULT hr = SaveGraph(stream, filters);
        if (SUCCEEDED(hr) && clearDirty) FSavedVersion = FVersion;
        return hr;
    }
    STDMETHODIMP GetSizeMax(ULARGE_INTEGER* size) override {
        if (!size) return E_POINTER;
        size->QuadPart = 0;
        return E_NOTIMPL;  // the description's size is known only by writing it
    }

private:
    struct Entry {
        ComPtr<IBaseFilter> filter;
        std::u16string name;
    };

    GraphBuilder Builder() { return GraphBuilder(static_cast<IFilterGraph2*>(this)); }

    IBaseFilter* FindByName(std::u16string_view name) {
        for (const auto& e : FFilters)
            if (e.name == name) return e.filter.Get();
        return nullptr;
    }
    bool InGraph(IBaseFilter* filter) {
        if (!filter) return false;
        for (const auto& e : FFilters)
            if (e.filter.Get() == filter) return true;
        return false;
    }

    HRESULT CheckPair(IPin* out, IPin* in) {
        if (!InGraph(OwnerOf(out).Get()) || !InGraph(OwnerOf(in).Get())) return VFW_E_NOT_IN_GRAPH;
        if (Direction(out) != PINDIR_OUTPUT || Direction(in) != PINDIR_INPUT)
            return VFW_E_INVALID_DIRECTION;
        if (Peer(out) || Peer(in)) return VFW_E_ALREADY_CONNECTED;
        if (FState != State_Stopped) return VFW_E_NOT_STOPPED;
        return S_OK;
    }

    HRESULT RemoveFilterLocked(IBaseFilter* filter) {
        auto it = std::find_if(FFilters.begin(), FFilters.end(),
                               [&](const Entry& e) { return e.filter.Get() == filter; });
        if (it == FFilters.end()) return VFW_E_NOT_FOUND;
        ComPtr<IBaseFilter> keep = it->filter;
        for (auto& pin : Pins(filter)) {
            if (ComPtr<IPin> peer = Peer(pin.Get())) {
                // The output side first, as a connection is made from it.
                if (Direction(pin.Get()) == PINDIR_OUTPUT) {
                    pin->Disconnect();
                    peer->Disconnect();
                } else {
                    peer->Disconnect();
                    pin->Disconnect();
                }
            }
        }
        FFilters.erase(it);
        keep->SetSyncSource(nullptr);
        keep->JoinFilterGraph(nullptr, nullptr);
        ++FVersion;
        return S_OK;
    }

    // The filters with every filter before those upstream of it: renderers first, sources last.
    std::vector<IBaseFilter*> Sorted() {
        std::vector<IBaseFilter*> order;
        std::set<IBaseFilter*> seen;
        std::function<void(IBaseFilter*)> visit = [&](IBaseFilter* f) {
            seen.insert(f);
            for (auto& pin : Pins(f)) {
                if (Direction(pin.Get()) != PINDIR_OUTPUT) continue;
                ComPtr<IPin> peer = Peer(pin.Get());
                if (!peer) continue;
                ComPtr<IBaseFilter> down = OwnerOf(peer.Get());
                if (down && InGraph(down.Get()) && !seen.count(down.Get())) visit(down.Get());
            }
            order.push_back(f);
        };
        for (auto& e : FFilters)
            if (!seen.count(e.filter.Get())) visit(e.filter.Get());
        return order;
    }

    // A renderer: a filter with a connected input pin and no connected output pin, or one that
    // says it renders.
    bool IsRenderer(IBaseFilter* f) {
        ComPtr<IAMFilterMiscFlags> flags;
        if (SUCCEEDED(
                f->QueryInterface(IID_IAMFilterMiscFlags,
                                  reinterpret_cast<void**>(flags.ReleaseAndGetAddressOf()))) &&
            (flags->GetMiscFlags() & AM_FILTER_MISC_FLAGS_IS_RENDERER))
            return true;
        bool input = false;
        for (auto& pin : Pins(f)) {
            if (!Peer(pin.Get())) continue;
            if (Direction(pin.Get()) == PINDIR_OUTPUT) return false;
            input = true;
        }
        return input;
    }

    std::vector<ComPtr<IMediaSeeking>> Seekers() {
        std::lock_guard lock(FLock);
        std::vector<ComPtr<IMediaSeeking>> seekers;
        for (auto& e : FFilters) {
            if (!IsRenderer(e.filter.Get())) continue;
            ComPtr<IMediaSeeking> s;
            if (SUCCEEDED(e.filter->QueryInterface(
                    IID_IMediaSeeking, reinterpret_cast<void**>(s.ReleaseAndGetAddressOf()))))
                seekers.push_back(s);
        }
        return seekers;
    }
    HRESULT FirstSeeker(const std::function<HRESULT(IMediaSeeking*)>& ask) {
        HRESULT result = E_NOTIMPL;
        for (auto& s : Seekers()) {
            result = ask(s.Get());
            if (SUCCEEDED(result)) return result;
        }
        return result;
    }
    HRESULT Seconds(REFTIME* out, const std::function<HRESULT(LONGLONG*)>& get) {
        if (!out) return E_POINTER;
        LONGLONG t = 0;
        const HRESULT hr = get(&t);
        *out = SUCCEEDED(hr) ? static_cast<double>(t) / 1e7 : 0;
        return hr;
    }
    HRESULT Can(LONG* can, DWORD cap) {
        if (!can) return E_POINTER;
        DWORD caps = 0;
        const HRESULT hr = GetCapabilities(&caps);
        *can = SUCCEEDED(hr) && (caps & cap) ? -1 : 0;
        return hr;
    }

    // Stream time of the graph now (0 while stopped).
    REFERENCE_TIME StreamTime() {
        if (FState == State_Stopped) return 0;
        if (FState == State_Paused || !FClock) return FPausedStreamTime;
        REFERENCE_TIME now = 0;
        FClock->GetTime(&now);
        return std::max<REFERENCE_TIME>(0, now - FStart);
    }

    HRESULT PauseLocked() {
        if (FState == State_Stopped) {
            if (!FClockSetByApp) ChooseClock();
            FPausedStreamTime = 0;
        } else if (FState == State_Running) {
            FPausedStreamTime = StreamTime();
        }
        HRESULT result = S_OK;
        for (IBaseFilter* f : Sorted()) {
            const HRESULT hr = f->Pause();
            if (FAILED(hr)) {
                StopLocked();
                return hr;
            }
            if (hr != S_OK) result = S_FALSE;
        }
        FState = State_Paused;
        return result;
    }

    HRESULT StopLocked() {
        HRESULT result = S_OK;
        for (IBaseFilter* f : Sorted()) {
            const HRESULT hr = f->Stop();
            if (FAILED(hr) && SUCCEEDED(result)) result = hr;
        }
        FState = State_Stopped;
        FPausedStreamTime = 0;
        {
            std::lock_guard lock(FEventMutex);
            FCompletionArmed = false;
        }
        return result;
    }

    // Counts the renderers that must report end of stream before the graph completes; a graph
    // without one completes at once.
    void StartCompletion() {
        std::set<IBaseFilter*> renderers;
        for (auto& e : FFilters)
            if (IsRenderer(e.filter.Get())) renderers.insert(e.filter.Get());
        std::lock_guard lock(FEventMutex);
        if (FCompletionArmed) return;  // resumed from a pause: the count goes on
        FRenderers = std::move(renderers);
        FRenderersDone.clear();
        FAnonymousDone = 0;
        FCompletionCode = 0;
        FCompletionArmed = true;
        if (FRenderers.empty() && !FNoDefault.count(EC_COMPLETE)) {
            FCompletionArmed = false;
            FCompletionCode = EC_COMPLETE;
            QueueLocked({EC_COMPLETE, S_OK, 0});
        }
    }

    // The graph's own choice: a clock offered by a filter, renderers first, else the system clock.
    void ChooseClock() {
        ComPtr<IReferenceClock> chosen;
        for (IBaseFilter* f : Sorted()) {
            if (SUCCEEDED(
                    f->QueryInterface(IID_IReferenceClock,
                                      reinterpret_cast<void**>(chosen.ReleaseAndGetAddressOf()))))
                break;
        }
        if (!chosen) {
            if (!FSystemClock)
                CreateSystemClock(nullptr, IID_IReferenceClock,
                                  reinterpret_cast<void**>(FSystemClock.ReleaseAndGetAddressOf()));
            chosen = FSystemClock;
        }
        DistributeClock(chosen.Get());
    }

    void DistributeClock(IReferenceClock* clock) {
        const bool changed = FClock.Get() != clock;
        FClock = ComPtr<IReferenceClock>(clock);
        for (auto& e : FFilters)
            e.filter->SetSyncSource(clock);
        if (changed) Notify(EC_CLOCK_CHANGED, 0, 0);
    }

    void QueueLocked(const Event& e) {
        FEvents.push_back(e);
        SetEvent(FEventHandle);
        FEventQueued.notify_all();
        if (FNotifyWindow && FNotifyFlags == 0)
            PostMessageW(FNotifyWindow, FNotifyMessage, 0, FNotifyInstance);
    }

    std::atomic<ULONG> FRefCount{1};
    std::recursive_mutex FLock;
    std::vector<Entry> FFilters;
    FILTER_STATE FState = State_Stopped;
    ComPtr<IReferenceClock> FClock;
    ComPtr<IReferenceClock> FSystemClock;
    bool FClockSetByApp = false;
    REFERENCE_TIME FStart = 0;
    REFERENCE_TIME FPausedStreamTime = 0;
    LONGLONG FPositionBase = 0;
    LONGLONG FPreroll = 0;
    double FRate = 1.0;
    uint64_t FVersion = 0;
    uint64_t FSavedVersion = 0;
    std::atomic<bool> FAbort{false};

    std::mutex FEventMutex;
    std::condition_variable FEventQueued;
    std::deque<Event> FEvents;
    HANDLE FEventHandle = nullptr;
    HWND FNotifyWindow = nullptr;
    UINT FNotifyMessage = 0;
    LONG_PTR FNotifyInstance = 0;
    LONG FNotifyFlags = 0;
    std::set<LONG> FNoDefault;
    std::set<IBaseFilter*> FRenderers;
    std::set<IBaseFilter*> FRenderersDone;
    size_t FAnonymousDone = 0;
    bool FCompletionArmed = false;
    LONG FCompletionCode = 0;
};

}  // namespace

HRESULT CreateFilterGraph(IUnknown* outer, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* graph = new (std::nothrow) FilterGraph();
    if (!graph) return E_OUTOFMEMORY;
    const HRESULT hr = graph->QueryInterface(iid, object);
    graph->Release();
    return hr;
}

HRESULT RegisterGraphService() {
    static const bool done = [] {
        RegisterMemoryAllocator();
        RegisterComClass(CLSID_FilterGraph, &CreateFilterGraph);
        RegisterComClass(CLSID_FilterGraphNoThread, &CreateFilterGraph);
        RegisterComClass(CLSID_SystemClock, &CreateSystemClock);
        RegisterCatalogue();
        return true;
    }();
    return done ? S_OK : E_FAIL;
}

}  // namespace mw::graph
