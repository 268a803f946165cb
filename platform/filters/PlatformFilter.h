// The filter and pin classes the platform's own filters are made of.
//
// A PlatformFilter owns its pins; they share its reference count. The filter lock (FilterLock)
// guards state, pins and connections and is taken by control calls only. Streaming calls
// (Receive, EndOfStream, flushing) never take it: each filter guards its streaming data with
// its own lock, so that Stop can wake a streaming thread that waits in Receive.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "comptr.h"
#include "platform/graph/MediaTypes.h"
#include "strmif.h"

namespace mw::filters {

class PlatformFilter;

class PlatformPin : public IPin {
public:
    PlatformPin(PlatformFilter* filter, std::u16string name, PIN_DIRECTION dir);
    virtual ~PlatformPin() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* dir) override;
    STDMETHODIMP QueryId(LPWSTR* id) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** types) override;
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }

    bool IsConnected();
    ComPtr<IPin> ConnectedPin();
    graph::MediaType ConnectedType();
    const std::u16string& Name() const { return FName; }
    PlatformFilter* Filter() const { return FFilter; }

    // What the pin takes: S_OK or a failure (VFW_E_TYPE_NOT_ACCEPTED).
    virtual HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) = 0;
    // The types the pin proposes, preferred first (none by default).
    virtual std::vector<graph::MediaType> MediaTypes() { return {}; }

protected:
    // A connection is made (the peer and type are set) or taken down.
    virtual HRESULT CompleteConnect(IPin*) { return S_OK; }
    virtual void BreakConnect() {}
    void SetConnection(IPin* peer, const AM_MEDIA_TYPE* type);

    PlatformFilter* FFilter;
    std::u16string FName;
    PIN_DIRECTION FDir;
    ComPtr<IPin> FPeer;  // under the filter lock
    graph::MediaType FType;
};

class PlatformInputPin : public PlatformPin, public IMemInputPin {
public:
    PlatformInputPin(PlatformFilter* filter, std::u16string name);

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return PlatformPin::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return PlatformPin::Release(); }

    STDMETHODIMP Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
    STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) override;
    STDMETHODIMP ReceiveCanBlock() override;

    bool Flushing() const { return FFlushing.load(); }
    bool AtEndOfStream() const { return FEndOfStream.load(); }
    // Back to a fresh stream (at Stop): no flush, no end of stream.
    void ResetStream() {
        FFlushing = false;
        FEndOfStream = false;
    }

private:
    ComPtr<IMemAllocator> FAllocator;
    std::atomic<bool> FFlushing{false};
    std::atomic<bool> FEndOfStream{false};
};

class PlatformOutputPin : public PlatformPin {
public:
    PlatformOutputPin(PlatformFilter* filter, std::u16string name);

    STDMETHODIMP Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    STDMETHODIMP EndOfStream() override { return E_UNEXPECTED; }
    STDMETHODIMP BeginFlush() override { return E_UNEXPECTED; }
    STDMETHODIMP EndFlush() override { return E_UNEXPECTED; }
    STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }

    // The buffers this pin needs: count and size in props (called while connecting).
    virtual void DecideBufferSize(ALLOCATOR_PROPERTIES& props) {
        if (props.cBuffers < 1) props.cBuffers = 1;
        if (props.cbBuffer < 1) props.cbBuffer = 1;
    }

    // Streaming: what goes downstream. Each answers VFW_E_NOT_CONNECTED without a peer.
    HRESULT GetDeliveryBuffer(IMediaSample** sample);
    HRESULT Deliver(IMediaSample* sample);
    HRESULT DeliverEndOfStream();
    HRESULT DeliverBeginFlush();
    HRESULT DeliverEndFlush();
    HRESULT DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate);

    // Commit and decommit the allocator with the filter's state.
    void Active();
    void Inactive();

protected:
    HRESULT CompleteConnect(IPin* peer) override;
    void BreakConnect() override;

private:
    HRESULT TryType(IPin* receiver, const AM_MEDIA_TYPE& type);
    ComPtr<IMemInputPin> FInput;
    ComPtr<IMemAllocator> FAllocator;
    std::mutex FStreamRefs;  // the streaming thread's copy of FInput
};

class PlatformFilter : public IBaseFilter {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return FRefCount.fetch_add(1) + 1; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG n = FRefCount.fetch_sub(1) - 1;
        if (n == 0) delete this;
        return n;
    }

    STDMETHODIMP GetClassID(CLSID* id) override;
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    STDMETHODIMP GetState(DWORD timeout, FILTER_STATE* state) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;
    STDMETHODIMP EnumPins(IEnumPins** pins) override;
    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }

    std::recursive_mutex& FilterLock() { return FLock; }
    FILTER_STATE State() const { return FState.load(); }
    REFERENCE_TIME StartTime() const { return FStart.load(); }
    ComPtr<IReferenceClock> Clock();
    // Sends an event to the graph; nothing happens outside a graph.
    void NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2);

    // Streaming calls of the input pins (called without the filter lock).
    virtual HRESULT Receive(PlatformInputPin* pin, IMediaSample* sample) = 0;
    virtual HRESULT EndOfStream(PlatformInputPin*) { return S_OK; }
    virtual HRESULT BeginFlush(PlatformInputPin*) { return S_OK; }
    virtual HRESULT EndFlush(PlatformInputPin*) { return S_OK; }
    virtual HRESULT NewSegment(PlatformInputPin*, REFERENCE_TIME, REFERENCE_TIME, double) {
        return S_OK;
    }
    virtual bool ReceiveCanBlock() { return false; }
    // A pin connected or disconnected (under the filter lock).
    virtual void PinConnected(PlatformPin*) {}
    virtual void PinDisconnected(PlatformPin*) {}

protected:
    explicit PlatformFilter(const CLSID& clsid);
    virtual ~PlatformFilter();
    void AddPin(PlatformPin* pin);  // the filter deletes its pins
    void RemovePin(PlatformPin* pin);
    std::vector<PlatformPin*> PinList();

    // State hooks, under the filter lock, before the state is set. The stop hook must wake
    // everything that waits in a streaming call.
    virtual HRESULT OnStop() { return S_OK; }
    virtual HRESULT OnPause() { return S_OK; }
    virtual HRESULT OnRun(REFERENCE_TIME) { return S_OK; }

private:
    std::atomic<ULONG> FRefCount{1};
    std::recursive_mutex FLock;
    CLSID FClassId;
    std::atomic<FILTER_STATE> FState{State_Stopped};
    std::atomic<REFERENCE_TIME> FStart{0};
    std::mutex FRefsMutex;  // the clock and the event sink, read by streaming threads
    ComPtr<IReferenceClock> FClock;
    IFilterGraph* FGraph = nullptr;  // not counted: the graph holds the filter
    IMediaEventSink* FSink = nullptr;
    std::u16string FName;
    std::vector<PlatformPin*> FPins;
    std::vector<PlatformPin*> FRemoved;  // pins taken away, deleted with the filter
};

// Creates a filter of class T and answers iid.
template <class T>
HRESULT CreateFilter(IUnknown* outer, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    T* filter = new (std::nothrow) T();
    if (!filter) return E_OUTOFMEMORY;
    const HRESULT hr = filter->QueryInterface(iid, object);
    filter->Release();
    return hr;
}

// Whether a media type is audio in a wave format block (PCM or float, plain or extensible).
bool IsPcmAudio(const AM_MEDIA_TYPE& type);

}  // namespace mw::filters
