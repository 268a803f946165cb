// The system's own class library for filters and pins of a filter graph: the media type
// helpers, the filter core with its enumerators, the pin connection handshake, output and input
// pins that move samples through a negotiated allocator, and the three source filters through
// which a component pushes audio, text or binary data into a graph.
//
// Threads: the graph manager calls the IBaseFilter/IPin faces on its own thread; Receive and
// the Deliver family run on the streaming thread (for the source filters that is the caller of
// SendData, on its own thread, with no lock held). State changes (Stop/Pause/Run) may come in
// while SendData runs: it leans on the allocator, which fails while decommitted and blocks
// while its one buffer is out.
// After Stop every connected pin is inactive and its allocator decommitted: a SendData in
// progress keeps retrying (the audio pin gives up after 1001 requests) until the filter runs
// again. Nothing here raises on purpose; programming errors raise EAssertionFailed with
// "Assertion failure" (or the message given). The methods that the platform calls (the IPin,
// IMemInputPin, IBaseFilter and enumerator faces) never let one out: they report it on stderr
// and answer E_UNEXPECTED, as an exception has no one to catch it on a streaming thread.
//
// Lock order: a filter lock, then the lock of a peer filter (connector before receiver), then an
// allocator's own lock. A pin's connection lock and its send registry are taken last and held
// over no call out. SendData takes no filter lock; a disconnect waits for the sends in flight
// with the filter lock released, so that a downstream Receive may call back into the filter.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "comptr.h"
#include "dshow.h"
#include "frame/Interfaced.h"
#include "frame/Object.h"
#include "frame/QAAudioFormat.h"
#include "frame/Threads.h"

// Raised by a failed assertion: a programming error, never a run-time condition.
class EAssertionFailed : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

namespace mw {
// Raises EAssertionFailed with the message when the condition does not hold.
void DSAssert(bool condition, const char* message = "Assertion failure");
// For destructors, which cannot raise: writes the message to stderr instead.
void DSAssertInDestructor(bool condition, const char* message = "Assertion failure");
// Writes the text of an exception that a platform-facing method caught to stderr.
void DSReportException(const char* what);

// Runs the body of a platform-facing method: an exception is reported and becomes E_UNEXPECTED.
template <class F>
HRESULT DSGuarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        DSReportException(e.what());
    } catch (...) {
        DSReportException("unknown exception");
    }
    return E_UNEXPECTED;
}

// Holds a critical section for the length of a scope.
class DSLockGuard {
public:
    explicit DSLockGuard(ICriticalSection* section) : FSection(section) { FSection->Enter(); }
    ~DSLockGuard() { FSection->Leave(); }
    DSLockGuard(const DSLockGuard&) = delete;
    DSLockGuard& operator=(const DSLockGuard&) = delete;

private:
    ICriticalSection* FSection;
};
}  // namespace mw

// ---- Media types ---------------------------------------------------------------------------

// The kind of stream a major type stands for. The last prefix is spelled as it stands.
enum TDSStreamDataType {
    sdtUnknown = 0,
    sdtAudio = 1,
    sdtVideo = 2,
    sdtMidi = 3,
    sdtText = 4,
    stdTimeCode = 5
};

// Takes a pointer to the major type GUID (a pointer to a media type record serves as well).
TDSStreamDataType DSGetMediaStreamDataType(const GUID* mediaType);
// Major, sub and format types, cbFormat and the format bytes; the sample fields are ignored.
bool DSIsEqualMediaType(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b);
// Bitwise copy with a fresh format block and one more reference on pUnk. A failed block
// allocation leaves the destination with cbFormat 0 and reports nothing.
void DSCopyMediaType(AM_MEDIA_TYPE* destination, const AM_MEDIA_TYPE* source);
// Frees the format block, zeroes cbFormat/pbFormat and releases pUnk.
void DSClearMediaType(AM_MEDIA_TYPE* mediaType);
// Frees the format block of the record and nothing else: the caller's record keeps its old
// cbFormat, a dangling pbFormat and its pUnk. Callers stop using the record at once.
void QPDSFreeMediaType(const AM_MEDIA_TYPE& mediaType);
// For records from IEnumMediaTypes: DSClearMediaType, then CoTaskMemFree of the record. Null
// does nothing.
void QPDSDeleteMediaType(AM_MEDIA_TYPE* mediaType);
// "RGB", "RLE8", "RLE4", "BITFIELDS" for 0..3, otherwise the four bytes, lowest first.
std::string DSGetFOURCC(uint32_t value);
// A FourCC subtype of a compressed stream (the uncompressed YUV and RGB subtypes excluded).
bool QPDSIsFourCC(const GUID& subtype);
// The FourCC of the nearest compressed stream upstream of the filter's first input pin, with
// the filter name, filter and pin where it was found; 0 when none. A filter named skipName
// does not count.
uint32_t QPGetPinFourCC(IBaseFilter* filter, std::u16string& filterName,
                        ComPtr<IBaseFilter>& foundFilter, ComPtr<IPin>& foundPin,
                        const std::u16string& skipName);
// Whether a candidate type matches a partly specified type. A partial type that carries a
// format block matches only candidates whose block differs from it.
bool DSMatchPartialMediaType(const AM_MEDIA_TYPE& candidate, const AM_MEDIA_TYPE& partial);
// The PCM audio type that all audio sources share: 18 bytes with tag 1 for up to 2 channels of
// up to 16 bits, otherwise the format as it stands with its tail. setFormat is not looked at.
// E_OUTOFMEMORY when the block cannot be had.
HRESULT CreateAudioMediaType(const tWAVEFORMATEX* format, AM_MEDIA_TYPE* type, BOOL setFormat);
// The audio type with the tag's own subtype; the block only when setFormat is non-zero.
// E_UNEXPECTED for a null record, E_OUTOFMEMORY when the block cannot be had.
HRESULT CreateBasicAudioMediaType(const tWAVEFORMATEX* format, AM_MEDIA_TYPE* type, BOOL setFormat);

// ---- Filter core ---------------------------------------------------------------------------

class TDSBasePin;

// An object with a delegating face (QueryInterface/AddRef/Release of every interface it
// answers, forwarded to the owner when aggregated) and a non-delegating one.
class TDSDualUnknown : public TObject {
    MW_CLASS(TDSDualUnknown, TObject)
public:
    TDSDualUnknown(const std::string& name, IUnknown* owner);

    virtual HRESULT NonDelegatingQueryInterface(REFIID iid, void** object);
    virtual ULONG NonDelegatingAddRef();
    virtual ULONG NonDelegatingRelease();
    IUnknown* GetOwner() const { return FOwner; }
    const std::string& ObjectName() const { return FObjectName; }

protected:
    HRESULT DualQueryInterface(REFIID iid, void** object);
    ULONG DualAddRef();
    ULONG DualRelease();
    // The class's interface table: points *object at the face answering iid (IID_IUnknown
    // included), without adding a reference; false when the class does not answer it.
    virtual bool GetInterface(REFIID iid, void** object);

    std::atomic<LONG> FRefCount{0};

private:
    IUnknown* FOwner;  // not counted
    std::string FObjectName;
};

// Each class that adds an interface face routes its IUnknown methods to the delegating face.
#define MW_DS_DECLARE_IUNKNOWN                                        \
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override { \
        return DualQueryInterface(iid, object);                       \
    }                                                                 \
    STDMETHODIMP_(ULONG) AddRef() override {                          \
        return DualAddRef();                                          \
    }                                                                 \
    STDMETHODIMP_(ULONG) Release() override {                         \
        return DualRelease();                                         \
    }

// A filter over a set of pins that a subclass supplies. It owns its lock, which its pins share.
class TDSBaseFilter : public TDSDualUnknown, public IBaseFilter {
    MW_CLASS(TDSBaseFilter, TDSDualUnknown)
public:
    TDSBaseFilter(const std::string& name, IUnknown* owner, const CLSID& classId);
    // result must be given and is never written.
    TDSBaseFilter(const std::string& name, IUnknown* owner, const CLSID& classId, HRESULT* result);
    ~TDSBaseFilter() override;

    MW_DS_DECLARE_IUNKNOWN

    STDMETHODIMP GetClassID(CLSID* classId) override;
    // Inactive on each connected pin; the first failure is returned, the state becomes stopped.
    STDMETHODIMP Stop() override;
    // From stopped, Active on each connected pin; the first failure returns with the state
    // unchanged.
    STDMETHODIMP Pause() override;
    // Takes no lock. Stores start, pauses from stopped, then Run on each connected pin.
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;
    STDMETHODIMP EnumPins(IEnumPins** enumerator) override;
    // VFW_E_NOT_FOUND when no pin has the name.
    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
    // Keeps no event sink: a filter in a graph delivers no events.
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* vendorInfo) override;

    // VFW_E_NO_CLOCK without a clock; otherwise the clock's time minus start.
    virtual HRESULT StreamTime(REFERENCE_TIME* time);
    virtual LONG GetPinVersion();
    virtual int GetPinCount() = 0;
    // The pin at index, no reference added; null beyond the last.
    virtual TDSBasePin* GetPin(int index) = 0;

    HRESULT NotifyEvent(LONG code, LONG_PTR param1, LONG_PTR param2);
    HRESULT ReconnectPin(IPin* pin, const AM_MEDIA_TYPE* type);
    bool IsActive() const { return FState.load() != State_Stopped; }
    bool IsStopped() const { return FState.load() == State_Stopped; }
    void FilterLock() { FLock->Enter(); }
    void FilterUnlock() { FLock->Leave(); }
    IFilterGraph* GetFilterGraph() const { return FGraph; }
    void IncrementPinVersion() { FPinVersion.fetch_add(1); }
    ICriticalSection* GetLock() const { return FLock.Get(); }
    IBaseFilter* AsBaseFilter() { return this; }

protected:
    bool GetInterface(REFIID iid, void** object) override;

    std::atomic<FILTER_STATE> FState{State_Stopped};
    ComPtr<IReferenceClock> FClock;
    std::atomic<REFERENCE_TIME> FStart{0};
    CLSID FClassId;
    ComPtr<ICriticalSection> FLock;
    std::u16string FFilterName;
    IFilterGraph* FGraph = nullptr;  // not counted
    ComPtr<IMediaEventSink> FEventSink;
    std::atomic<LONG> FPinVersion{1};

private:
    void CreateLock();
};

// Enumerates a filter's pins; keeps the filter alive. Pins it has handed out are remembered, so
// that after the set of pins changes it hands out only the new ones.
class TDSEnumPins : public TInterfacedObject<IEnumPins> {
public:
    // With source, a copy of its position, count, version and cache.
    TDSEnumPins(TDSBaseFilter* filter, const TDSEnumPins* source);

    STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumPins** enumerator) override;

    bool AreWeOutOfSync();
    void Refresh();

private:
    LONG FPosition = 0;
    LONG FPinCount = 0;
    TDSBaseFilter* FFilter;
    ComPtr<IBaseFilter> FFilterReference;
    LONG FVersion = 0;
    std::vector<TDSBasePin*> FPinCache;
};

// Enumerates the media types of a pin through its GetMediaType; keeps the pin alive.
class TDSEnumMediaTypes : public TInterfacedObject<IEnumMediaTypes> {
public:
    TDSEnumMediaTypes(TDSBasePin* pin, const TDSEnumMediaTypes* source);

    // Records come from CoTaskMemAlloc; free them with QPDSDeleteMediaType.
    STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumMediaTypes** enumerator) override;

    bool AreWeOutOfSync();

private:
    LONG FPosition = 0;
    TDSBasePin* FPin;
    ComPtr<IPin> FPinReference;
    LONG FVersion = 0;
};

// ---- Pins ----------------------------------------------------------------------------------

// The base of every pin: the connection handshake. A pin's reference count forwards to its
// filter, so a pin handed out keeps its filter alive; the filter frees its pins.
class TDSBasePin : public TDSDualUnknown, public IPin, public IQualityControl {
    MW_CLASS(TDSBasePin, TDSDualUnknown)
public:
    TDSBasePin(const std::string& objectName, TDSBaseFilter* filter, ICriticalSection* lock,
               HRESULT* result, const std::u16string& pinName, PIN_DIRECTION direction);
    ~TDSBasePin() override;

    MW_DS_DECLARE_IUNKNOWN
    ULONG NonDelegatingAddRef() override;
    ULONG NonDelegatingRelease() override;

    // VFW_E_ALREADY_CONNECTED, VFW_E_NOT_STOPPED, or the failure of the type agreement.
    STDMETHODIMP Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
    // VFW_E_NOT_STOPPED unless the filter is stopped; S_FALSE when not connected.
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
    STDMETHODIMP QueryId(LPWSTR* id) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** enumerator) override;
    STDMETHODIMP QueryInternalConnections(IPin** pins, ULONG* count) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;
    STDMETHODIMP Notify(IBaseFilter* self, Quality quality) override;
    STDMETHODIMP SetSink(IQualityControl* sink) override;

    virtual HRESULT AgreeMediaType(IPin* receiver, const AM_MEDIA_TYPE* type);
    virtual LONG GetMediaTypeVersion();
    virtual HRESULT Active();
    virtual HRESULT Inactive();
    virtual HRESULT Run(REFERENCE_TIME start);
    virtual HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) = 0;
    virtual HRESULT SetMediaType(const AM_MEDIA_TYPE* type);
    virtual HRESULT CheckConnect(IPin* pin);
    virtual HRESULT BreakConnect();
    virtual HRESULT CompleteConnect(IPin* receiver);
    virtual HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type);

    HRESULT DisconnectInternal();
    // Any thread. True from the moment the handshake stores the peer; a pin that streams asks
    // IsConnectionReady, which holds only once the whole handshake has succeeded.
    bool IsConnected() const { return FIsConnected.load(); }
    bool IsConnectionReady() const { return FConnectionReady.load(); }
    bool IsStopped() const { return FFilter->IsStopped(); }
    AM_MEDIA_TYPE GetCurrentMediaType() const { return FConnectionType; }
    const AM_MEDIA_TYPE* GetAMMediaType() const { return &FConnectionType; }
    void IncrementTypeVersion() { FTypeVersion.fetch_add(1); }
    const std::u16string& PinName() const { return FPinName; }
    // The peer, no reference added: for the pin's own thread while the connection cannot change.
    IPin* GetConnected() const { return FConnected.Get(); }
    // The peer with a reference, safe on any thread; null when not connected.
    ComPtr<IPin> ConnectedPin() const;
    TDSBaseFilter* Filter() const { return FFilter; }
    IPin* AsPin() { return this; }
    LONG PinReferenceCount() const { return FPinRefCount.load(); }
    void SetTryMyTypesFirst(bool value) { FTryMyTypesFirst = value; }

protected:
    bool GetInterface(REFIID iid, void** object) override;
    HRESULT AttemptConnection(IPin* receiver, const AM_MEDIA_TYPE* type);
    HRESULT AcceptConnection(IPin* connector, const AM_MEDIA_TYPE* type);
    HRESULT TryMediaTypes(IPin* receiver, const AM_MEDIA_TYPE* partial,
                          IEnumMediaTypes* enumerator);
    // Hooks for tracing a connection; they do nothing here.
    virtual void DisplayPinInfo(IPin* receiver);
    virtual void DisplayTypeInfo(IPin* receiver, const AM_MEDIA_TYPE* type);
    // Stores the peer (null to clear it) under the connection lock.
    void SetConnected(IPin* pin);

    std::u16string FPinName;
    ComPtr<IPin> FConnected;  // written under the filter lock and the connection lock
    mutable std::mutex FConnectionLock;
    std::atomic<bool> FIsConnected{false};
    // Set when a handshake has fully succeeded, cleared before the connection is broken.
    std::atomic<bool> FConnectionReady{false};
    PIN_DIRECTION FDirection;
    ComPtr<ICriticalSection> FLock;
    std::atomic<bool> FRunTimeError{false};
    bool FCanReconnectWhenActive = false;
    TDSBaseFilter* FFilter;  // not counted: the filter owns the pin
    ComPtr<IQualityControl> FQualitySink;
    std::atomic<LONG> FTypeVersion{1};
    AM_MEDIA_TYPE FConnectionType{};
    REFERENCE_TIME FSegmentStart = 0;
    REFERENCE_TIME FSegmentStop = MAX_TIME;
    double FSegmentRate = 1.0;
    std::atomic<LONG> FPinRefCount{0};
    bool FTryMyTypesFirst = false;
};

// An output pin: chooses the allocator (the peer's first, then its own), commits it while
// active and delivers samples over the peer's IMemInputPin.
class TDSBaseOutputPin : public TDSBasePin {
    MW_CLASS(TDSBaseOutputPin, TDSBasePin)
public:
    TDSBaseOutputPin(const std::string& objectName, TDSBaseFilter* filter, ICriticalSection* lock,
                     HRESULT* result, const std::u16string& pinName);

    // An output pin receives none of these: E_UNEXPECTED.
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;

    // Waits, without the filter lock, for the sends in flight before it breaks the connection.
    STDMETHODIMP Disconnect() override;

    // VFW_E_NO_ALLOCATOR without an allocator; otherwise Commit / Decommit.
    HRESULT Active() override;
    HRESULT Inactive() override;
    HRESULT CheckConnect(IPin* pin) override;
    // Waits until no send uses the connection any more, then breaks it.
    HRESULT BreakConnect() override;
    HRESULT CompleteConnect(IPin* receiver) override;

    // A thread that delivers outside the filter lock (SendData on its owner's thread) enters
    // before it touches the allocator and the peer and leaves when done, so that a disconnect
    // on another thread does not take them away under it. EnterSend registers first and then
    // tests the connection: false when it is not ready or being broken. Breaking tells a send
    // in a retry loop to give up. GetDeliveryBuffer and Deliver enter for their own length.
    bool EnterSend();
    void LeaveSend();
    bool Breaking() const { return FBreaking.load() != 0 || !FConnectionReady.load(); }

    // Holds a send registration for a scope. Scopes nest on one thread at the cost of a
    // thread-local test: only the outermost registers.
    class SendScope {
    public:
        explicit SendScope(TDSBaseOutputPin* pin);
        ~SendScope();
        SendScope(const SendScope&) = delete;
        SendScope& operator=(const SendScope&) = delete;
        explicit operator bool() const { return FEntered; }

    private:
        TDSBaseOutputPin* FPin;
        TDSBaseOutputPin* FOuter = nullptr;
        bool FEntered = false;
        bool FOwner = false;
    };

    virtual HRESULT DecideAllocator(IMemInputPin* pin, IMemAllocator** allocator);
    virtual HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties);
    // Streaming thread. E_NOINTERFACE without a ready connection; else the allocator's GetBuffer,
    // which blocks while all buffers are out and fails while decommitted.
    virtual HRESULT GetDeliveryBuffer(IMediaSample** sample, REFERENCE_TIME* start,
                                      REFERENCE_TIME* stop, DWORD flags);
    // Streaming thread. VFW_E_NOT_CONNECTED, or the peer's Receive.
    virtual HRESULT Deliver(IMediaSample* sample);
    virtual HRESULT InitAllocator(IMemAllocator** allocator);
    virtual HRESULT DeliverEndOfStream();
    virtual HRESULT DeliverBeginFlush();
    virtual HRESULT DeliverEndFlush();
    virtual HRESULT DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate);

    IMemAllocator* Allocator() const { return FAllocator.Get(); }

protected:
    void WaitForSenders();

    ComPtr<IMemAllocator> FAllocator;
    ComPtr<IMemInputPin> FInputPin;

private:
    std::atomic<int> FSenders{0};
    std::atomic<int> FBreaking{0};  // breaks in progress (two Disconnects may overlap)
    std::mutex FSendersLock;
    std::condition_variable FSendersGone;
};

// An input pin: offers an allocator, checks that it may stream and reads sample properties.
class TDSBaseInputPin : public TDSBasePin, public IMemInputPin {
    MW_CLASS(TDSBaseInputPin, TDSBasePin)
public:
    TDSBaseInputPin(const std::string& objectName, TDSBaseFilter* filter, ICriticalSection* lock,
                    HRESULT* result, const std::u16string& pinName);
    ~TDSBaseInputPin() override;

    MW_DS_DECLARE_IUNKNOWN

    STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
    STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* properties) override;
    // Streaming thread, no lock. VFW_E_WRONG_STATE when stopped, S_FALSE while flushing,
    // VFW_E_RUNTIME_ERROR after an error, VFW_E_INVALIDMEDIATYPE for a refused type change.
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) override;
    STDMETHODIMP ReceiveCanBlock() override;

    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP Notify(IBaseFilter* self, Quality quality) override;
    HRESULT Inactive() override;
    HRESULT BreakConnect() override;

    virtual HRESULT CheckStreaming();
    HRESULT PassNotify(Quality quality);
    // The properties of the sample in Receive; valid on the streaming thread during that call.
    const AM_SAMPLE2_PROPERTIES& SampleProps() const;
    bool IsFlushing() const { return FFlushing.load(); }
    bool IsReadOnly() const { return FReadOnly; }
    IMemAllocator* Allocator() const { return FAllocator.Get(); }

protected:
    bool GetInterface(REFIID iid, void** object) override;
    // The work of Receive: checks the pin may stream and reads the sample's properties.
    HRESULT ReadSample(IMediaSample* sample);

    ComPtr<IMemAllocator> FAllocator;
    bool FReadOnly = false;
    std::atomic<bool> FFlushing{false};
    AM_SAMPLE2_PROPERTIES FSampleProps{};

private:
    AM_MEDIA_TYPE* FSampleType = nullptr;  // a type change read from a sample without IMediaSample2
};

// ---- Source filters ------------------------------------------------------------------------

class TDSSourceStreamPin;

// A filter whose pins are stream pins that add and remove themselves. The pin list has a lock
// of its own, apart from the filter lock.
class TDSBaseSourceFilter : public TDSBaseFilter {
    MW_CLASS(TDSBaseSourceFilter, TDSBaseFilter)
public:
    TDSBaseSourceFilter(const std::string& name, IUnknown* owner, const CLSID& classId);
    ~TDSBaseSourceFilter() override;

    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    int GetPinCount() override;
    TDSBasePin* GetPin(int index) override;
    // Neither changes the pin version. Duplicates are ignored.
    HRESULT AddPin(TDSSourceStreamPin* pin);
    HRESULT RemovePin(TDSSourceStreamPin* pin);

private:
    std::recursive_mutex FPinsLock;
    std::vector<TDSSourceStreamPin*> FPins;  // owned
};

// An output pin of a source filter: its type and buffer size are decided under the filter lock.
class TDSSourceStreamPin : public TDSBaseOutputPin {
    MW_CLASS(TDSSourceStreamPin, TDSBaseOutputPin)
public:
    TDSSourceStreamPin(const std::string& objectName, TDSBaseSourceFilter* filter,
                       ICriticalSection* lock, HRESULT* result, const std::u16string& pinName);

    HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) override;
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) override;

protected:
    virtual HRESULT IntDecideBufferSize(IMemAllocator* allocator,
                                        ALLOCATOR_PROPERTIES* properties) = 0;
    // One type at position 0; E_INVALIDARG below, VFW_S_NO_MORE_ITEMS above.
    virtual HRESULT IntGetMediaType(int position, AM_MEDIA_TYPE* type) = 0;
    // cBuffers 1 of cbBuffer bytes; E_FAIL when the allocator gives less.
    HRESULT SetOneBuffer(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties, LONG cbBuffer);

    TDSBaseSourceFilter* FSourceFilter;  // not counted
};

// Audio in the stored wave format, one buffer of bufferMilliseconds (+2) of the agreed format.
class TDSAudioSourceStreamPin : public TDSSourceStreamPin {
    MW_CLASS(TDSAudioSourceStreamPin, TDSSourceStreamPin)
public:
    TDSAudioSourceStreamPin(const std::string& objectName, TDSBaseSourceFilter* filter,
                            ICriticalSection* lock, HRESULT* result, const std::u16string& pinName);
    ~TDSAudioSourceStreamPin() override;

    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override;
    // Before connection only: takes no lock and does not change the type version.
    void SetFormat(const TQAWaveFormatExtensible& format, bool basic, int bufferMilliseconds);
    // Caller's thread, no lock. Copies, stamps (by chunk) and delivers; false when unconnected,
    // after 1001 buffer requests, or when the last delivery failed.
    bool SendData(const void* buffer, int size, REFERENCE_TIME start, REFERENCE_TIME stop,
                  bool syncPoint);
    HRESULT CheckMediaTypeBasic(const AM_MEDIA_TYPE* type);
    HRESULT CheckMediaTypeExtended(const AM_MEDIA_TYPE* type);
    HRESULT IntDecideBufferSizeBasic(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties);
    HRESULT IntDecideBufferSizeExtended(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties);
    const TQAWaveFormatExtensible& Format() const { return FFormat; }

protected:
    HRESULT IntDecideBufferSize(IMemAllocator* allocator,
                                ALLOCATOR_PROPERTIES* properties) override;
    HRESULT IntGetMediaType(int position, AM_MEDIA_TYPE* type) override;

private:
    LONG AgreedBufferSize() const;

    TQAWaveFormatExtensible FFormat{};
    bool FBasicFormat = false;
    int FBufferMilliseconds = 0;
};

// Text of MEDIATYPE_Text in buffers of a size the owner gives (SetBufferSize).
class TDSTextSourceStreamPin : public TDSSourceStreamPin {
    MW_CLASS(TDSTextSourceStreamPin, TDSSourceStreamPin)
public:
    TDSTextSourceStreamPin(const std::string& objectName, TDSBaseSourceFilter* filter,
                           ICriticalSection* lock, HRESULT* result, const std::u16string& pinName);
    ~TDSTextSourceStreamPin() override;

    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override;
    // Caller's thread, no lock. Stamps by the whole size; retries for a buffer without limit.
    bool SendData(const void* buffer, int size, REFERENCE_TIME start, REFERENCE_TIME stop,
                  bool syncPoint);
    // The pin has no size of its own; with 0 a SendData never ends. Set before connection.
    void SetBufferSize(int size) { FBufferSize = size; }

protected:
    HRESULT IntDecideBufferSize(IMemAllocator* allocator,
                                ALLOCATOR_PROPERTIES* properties) override;
    HRESULT IntGetMediaType(int position, AM_MEDIA_TYPE* type) override;

    int FBufferSize = 0;
};

// Binary data of a type the owner sets before connecting; until then Connect is a no-op.
class TDSBinarySourceStreamPin : public TDSSourceStreamPin {
    MW_CLASS(TDSBinarySourceStreamPin, TDSSourceStreamPin)
public:
    TDSBinarySourceStreamPin(const std::string& objectName, TDSBaseSourceFilter* filter,
                             ICriticalSection* lock, HRESULT* result,
                             const std::u16string& pinName);
    ~TDSBinarySourceStreamPin() override;

    HRESULT AgreeMediaType(IPin* receiver, const AM_MEDIA_TYPE* type) override;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override;
    void SetTheMediaType(const AM_MEDIA_TYPE* type);
    // The largest chunk one sample carries.
    void SetFormat(int size) { FBufferSize = size; }
    // Caller's thread, no lock. No times; retries for a buffer without limit.
    bool SendData(const void* buffer, int size);

protected:
    HRESULT IntDecideBufferSize(IMemAllocator* allocator,
                                ALLOCATOR_PROPERTIES* properties) override;
    HRESULT IntGetMediaType(int position, AM_MEDIA_TYPE* type) override;

private:
    int FBufferSize = 0;
    AM_MEDIA_TYPE FMediaType{};
    bool FSkipAgreement = true;
};

// The filter through which audio components feed a graph: create, SetFormat, add to the graph,
// connect, then SendData per buffer, DeliverEndOfStream at the end, Flush to drop what is queued
// downstream.
class TDSAudioSourceFilter : public TDSBaseSourceFilter {
    MW_CLASS(TDSAudioSourceFilter, TDSBaseSourceFilter)
public:
    explicit TDSAudioSourceFilter(const CLSID& classId);

    void SetFormat(const TQAWaveFormatExtensible& format, bool basic, int bufferMilliseconds);
    bool SendData(const void* buffer, int size, REFERENCE_TIME start, REFERENCE_TIME stop,
                  bool syncPoint);
    HRESULT DeliverEndOfStream();
    void Flush();
    TDSAudioSourceStreamPin* Pin() const { return FPin; }

private:
    TDSAudioSourceStreamPin* FPin;  // freed with the pin list
};

class TDSTextSourceFilter : public TDSBaseSourceFilter {
    MW_CLASS(TDSTextSourceFilter, TDSBaseSourceFilter)
public:
    TDSTextSourceFilter(const std::string& name, const CLSID& classId);

    bool SendData(const void* buffer, int size, REFERENCE_TIME start, REFERENCE_TIME stop,
                  bool syncPoint);
    TDSTextSourceStreamPin* Pin() const { return FPin; }

private:
    TDSTextSourceStreamPin* FPin;
};

// Create, SetMediaType, SetFormat, add, connect, SendData.
class TDSBinarySourceFilter : public TDSBaseSourceFilter {
    MW_CLASS(TDSBinarySourceFilter, TDSBaseSourceFilter)
public:
    TDSBinarySourceFilter(const std::string& name, const CLSID& classId);

    void SetMediaType(const AM_MEDIA_TYPE* type);
    void SetFormat(int size);
    bool SendData(const void* buffer, int size);
    HRESULT DeliverEndOfStream();
    TDSBinarySourceStreamPin* Pin() const { return FPin; }

private:
    TDSBinarySourceStreamPin* FPin;
};
