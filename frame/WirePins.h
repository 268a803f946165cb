// Wire pins: the only data path between components.
//
// A source pin holds connections to sink pins. Notify(op) on any pin hands the operation to
// every connected peer, synchronously on the caller's thread; a sink turns an arriving
// operation into one call of its owner's dispatch handler, which tells operations apart by
// IsType. Handlers run on the sender's thread (a source's worker, the wave thread, the main
// thread...), so they take their component's lock before touching state.
//
// Going the other way, a sink pin asks its source for data with MasterPump (the source's
// master-pump callback), a clock sink tells its clock sources whether it needs ticks, and
// a state pin publishes a value with its range.
//
// Connections are made and broken on any thread (normally the main thread) with
// QWConnect/QWDisconnect or the pin methods; both pins' connect/disconnect events fire, once
// per connection made or broken, however many threads try at once.
// A pin being destroyed disconnects itself and waits until no other thread is still
// delivering into it, so a component may be freed while its peers keep sending. Pins have
// names (unique within their component) by which connections are saved in form files.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "frame/ChangeNotifyLock.h"
#include "frame/Classes.h"
#include "frame/OperationList.h"
#include "frame/WireOperations.h"

// The lock a pin is given by its component: the component lock.
using IBasicLock = IChangeNotifyLock;

class TQWBasicPin;
class TQWPin;
class TQSQWClockableSourcePin;
class TQWClockMultiSinkPin;
class TQWInt64TimeRangedStatePin;

// The two flags of the state set handed to dispatch handlers.
enum TQWNotifyStateFlag : uint8_t {
    nsQueued = 1,    // the operation comes out of a queue, not straight from the sender
    nsUpstream = 2,  // it travels from a sink back to its source
};
using TQWNotifyState = uint8_t;

// (pin the operation arrived on, pin that sent it, data type of the connection, operation,
// state set) -> result. No caller reads the result; handlers answer through the operation.
using TQWBasicPinNotificationEvent =
    std::function<int(TQWBasicPin* pin, TQWBasicPin* sender, const GUID* dataType,
                      IQWNotifyOperation* operation, TQWNotifyState state)>;
using TQWPinDispatchEvent = TQWBasicPinNotificationEvent;
using TQWPinEvent = std::function<void(TQWPin* pin)>;
// (source pin the request came through, master, operation number)
using TQWMasterPumpEvent =
    std::function<void(TQSQWClockableSourcePin* pin, TObject* master, uint32_t operation)>;
// (clock sink pin, clock source pin, sample count) once per tick.
using TQWClockEvent =
    std::function<void(TQWClockMultiSinkPin* pin, TQWBasicPin* sender, int count)>;
// (pin, value, min, max, start time, stop time)
using TQWInt64DateTimeValueRangeChangeEvent =
    std::function<void(TQWInt64TimeRangedStatePin* pin, int64_t value, int64_t min, int64_t max,
                       int64_t start, int64_t stop)>;
// (pin, min, max)
using TQWInt64DateTimeRangeChangeEvent =
    std::function<void(TQWInt64TimeRangedStatePin* pin, int64_t min, int64_t max)>;

// The data types of connections; a source connects to a sink of a type it can feed.
DEFINE_GUID(QWDT_Audio, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e, 0x01);
DEFINE_GUID(QWDT_Binary, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e,
            0x02);
DEFINE_GUID(QWDT_Text, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e, 0x03);
DEFINE_GUID(QWDT_Clock, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e, 0x04);
DEFINE_GUID(QWDT_Graph, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e, 0x05);
DEFINE_GUID(QWDT_Int64State, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e,
            0x06);
// Any signal: a generic signal sink takes audio, binary and text.
DEFINE_GUID(QWDT_Signal, 0x6f1e0b52, 0x9a7c, 0x4f0e, 0x8b, 0x21, 0x3c, 0x55, 0x90, 0x1a, 0x7e,
            0x07);

namespace mw::wire {
// Lives as long as any connection refers to its pin; counts the deliveries into the pin in
// progress, so that the pin's destructor can wait for them.
struct PinAnchor {
    std::atomic<TQWPin*> Pin;
    std::atomic<int> Active{0};
    std::mutex Mutex;
    std::condition_variable Idle;
    explicit PinAnchor(TQWPin* pin) : Pin(pin) {}
    TQWPin* Enter();  // null when the pin is gone
    void Leave();
    void Close();  // marks the pin gone and waits for deliveries in progress
};
using PinAnchorRef = std::shared_ptr<PinAnchor>;
}  // namespace mw::wire

class TQWBasicPin : public TObject {
    MW_CLASS(TQWBasicPin, TObject)
public:
    TQWBasicPin(TComponent* owner, IBasicLock* lock);
    ~TQWBasicPin() override;

    TComponent* Owner() const { return FOwner; }
    IBasicLock* Lock() const { return FLock.Get(); }
    const std::string& Name() const { return FName; }
    void SetName(const std::string& name) { FName = name; }
    virtual const GUID& DataType() const = 0;

private:
    TComponent* FOwner;
    ComPtr<IBasicLock> FLock;
    std::string FName;
};

enum class TQWPinDirection { Source, Sink, State };

class TQWPin : public TQWBasicPin {
    MW_CLASS(TQWPin, TQWBasicPin)
public:
    TQWPin(TComponent* owner, IBasicLock* lock, TQWBasicPinNotificationEvent dispatch = {},
           TQWPinEvent onConnect = {}, TQWPinEvent onDisconnect = {});
    ~TQWPin() override;

    virtual TQWPinDirection Direction() const = 0;
    // True when this pin and `other` may be connected (directions and data types match).
    virtual bool CanConnectTo(const TQWPin& other) const;

    // Connects the two pins; false (and nothing changed) when they can't be connected or
    // already are.
    bool Connect(TQWPin& other);
    bool Disconnect(TQWPin& other);
    void DisconnectAll();
    bool IsConnected() const { return ConnectionCount() > 0; }
    // Disconnects the pin for good and waits until no other thread delivers into it; run
    // before the pin's owner starts to go (TLockComponent does it for all its pins).
    // Nothing arrives on a closed pin, and it can't be connected again.
    void Close();
    bool IsClosed() const { return FAnchor->Pin.load() == nullptr; }
    bool IsConnectedTo(const TQWPin& other) const;
    int ConnectionCount() const;
    std::vector<TQWPin*> Connections() const;

    // Delivers the operation to every connected peer, on the caller's thread, in the order
    // the connections were made. A pin without connections does nothing.
    void Notify(IQWNotifyOperation* operation);
    template <class T>
    void Notify(const ComPtr<T>& operation) {
        Notify(static_cast<IQWNotifyOperation*>(operation.Get()));
    }

    // Pins of the same component that this one depends on or feeds (outputs depend on all
    // inputs); kept and given out, nothing more.
    void AddLinkedPin(TQWPin* pin);
    void RemoveLinkedPin(TQWPin* pin);
    std::vector<TQWPin*> LinkedPins() const;

    // Any thread, also while operations arrive: a delivery in progress finishes with the
    // handler it started with.
    void SetDispatch(TQWBasicPinNotificationEvent dispatch);
    void SetOnConnect(TQWPinEvent e);
    void SetOnDisconnect(TQWPinEvent e);

protected:
    // An operation from `sender` arrived; the default calls the dispatch handler.
    virtual void Receive(TQWPin* sender, IQWNotifyOperation* operation, TQWNotifyState state);
    // Calls `f` for each connected peer that still stands, guarding it against destruction.
    void ForEachPeer(const std::function<void(TQWPin&)>& f) const;
    virtual void Connected(TQWPin&) {}
    virtual void Disconnected(TQWPin&) {}

private:
    friend struct mw::wire::PinAnchor;
    using PeerList = std::vector<mw::wire::PinAnchorRef>;
    void AddPeer(const mw::wire::PinAnchorRef& peer);
    bool RemovePeer(const TQWPin* peer);
    std::shared_ptr<const PeerList> Peers() const;
    TQWPinEvent OnConnect() const;
    TQWPinEvent OnDisconnect() const;

    mw::wire::PinAnchorRef FAnchor;
    mutable std::mutex FPeersMutex;
    std::shared_ptr<const PeerList> FPeers;
    // The linked pins and the handlers, which may be set while operations arrive.
    mutable std::mutex FSettingsMutex;
    std::vector<TQWPin*> FLinked;
    std::shared_ptr<const TQWBasicPinNotificationEvent> FDispatch;
    TQWPinEvent FOnConnect;
    TQWPinEvent FOnDisconnect;
};

class TQWSourcePin : public TQWPin {
    MW_CLASS(TQWSourcePin, TQWPin)
public:
    using TQWPin::TQWPin;
    TQWPinDirection Direction() const override { return TQWPinDirection::Source; }
};

class TQWSinkPin : public TQWPin {
    MW_CLASS(TQWSinkPin, TQWPin)
public:
    using TQWPin::TQWPin;
    TQWPinDirection Direction() const override { return TQWPinDirection::Sink; }
    // Data types this sink takes; a generic signal sink takes audio, binary and text.
    virtual bool Accepts(const GUID& sourceType) const { return sourceType == DataType(); }
    bool CanConnectTo(const TQWPin& other) const override;
};

// Sink for signal data, able to pump its source.
class TQSQWSinkPin : public TQWSinkPin {
    MW_CLASS(TQSQWSinkPin, TQWSinkPin)
public:
    TQSQWSinkPin(TComponent* owner, IBasicLock* lock, TQWBasicPinNotificationEvent dispatch,
                 TQWPinEvent onConnect = {}, TQWPinEvent onDisconnect = {});
    const GUID& DataType() const override { return QWDT_Signal; }
    bool Accepts(const GUID& t) const override {
        return t == QWDT_Audio || t == QWDT_Binary || t == QWDT_Text;
    }

    // Asks the source feeding this pin for its next buffer on behalf of `master`. Each call
    // carries a new operation number; the explicit form repeats a number on purpose.
    void MasterPump(TObject* master);
    void MasterPump(TObject* master, uint32_t operationNumber);

private:
    std::atomic<uint32_t> FPumpNumber{0};
};

class TQSQWBinarySinkPin : public TQSQWSinkPin {
    MW_CLASS(TQSQWBinarySinkPin, TQSQWSinkPin)
public:
    using TQSQWSinkPin::TQSQWSinkPin;
    const GUID& DataType() const override { return QWDT_Binary; }
    bool Accepts(const GUID& t) const override { return t == QWDT_Binary; }
};

class TQAQWAudioSinkPin : public TQSQWSinkPin {
    MW_CLASS(TQAQWAudioSinkPin, TQSQWSinkPin)
public:
    using TQSQWSinkPin::TQSQWSinkPin;
    const GUID& DataType() const override { return QWDT_Audio; }
    bool Accepts(const GUID& t) const override { return t == QWDT_Audio; }
};

// Source with a pump and a clock; carries SubmitBuffer. Sinks call back through the
// master-pump callback (on the sink's thread).
class TQSQWClockableSourcePin : public TQWSourcePin {
    MW_CLASS(TQSQWClockableSourcePin, TQWSourcePin)
public:
    TQSQWClockableSourcePin(TComponent* owner, IBasicLock* lock, IBasicLock* lock2,
                            TQWBasicPinNotificationEvent dispatch, TQWPinEvent onConnect = {},
                            TQWPinEvent onDisconnect = {});
    // Wraps the buffer in a TQWSuppliedBufferOperation and delivers it.
    void SubmitBuffer(IQSData* data);
    void SubmitBuffer(const ComPtr<IQSData>& data) { SubmitBuffer(data.Get()); }
    // Any thread.
    void SetOnMasterPump(TQWMasterPumpEvent e);

private:
    friend class TQSQWSinkPin;
    void MasterPumpFromSink(TObject* master, uint32_t operationNumber);
    mutable std::mutex FPumpMutex;
    std::shared_ptr<const TQWMasterPumpEvent> FOnMasterPump;
};

class TQAQWAudioSourcePin : public TQSQWClockableSourcePin {
    MW_CLASS(TQAQWAudioSourcePin, TQSQWClockableSourcePin)
public:
    using TQSQWClockableSourcePin::TQSQWClockableSourcePin;
    const GUID& DataType() const override { return QWDT_Audio; }
};

class TQSQWBinarySourcePin : public TQSQWClockableSourcePin {
    MW_CLASS(TQSQWBinarySourcePin, TQSQWClockableSourcePin)
public:
    using TQSQWClockableSourcePin::TQSQWClockableSourcePin;
    const GUID& DataType() const override { return QWDT_Binary; }
};

class TQSQWStringSourcePin : public TQSQWClockableSourcePin {
    MW_CLASS(TQSQWStringSourcePin, TQSQWClockableSourcePin)
public:
    using TQSQWClockableSourcePin::TQSQWClockableSourcePin;
    const GUID& DataType() const override { return QWDT_Text; }
};

// Announces a graph object to graph consumers.
class TQWQMGraphSourcePin : public TQWSourcePin {
    MW_CLASS(TQWQMGraphSourcePin, TQWSourcePin)
public:
    TQWQMGraphSourcePin(TComponent* owner, IBasicLock* lock, IBasicLock* lock2, int tag,
                        TQWBasicPinNotificationEvent dispatch);
    const GUID& DataType() const override { return QWDT_Graph; }
};

class TQWQMGraphSinkPin : public TQWSinkPin {
    MW_CLASS(TQWQMGraphSinkPin, TQWSinkPin)
public:
    using TQWSinkPin::TQWSinkPin;
    const GUID& DataType() const override { return QWDT_Graph; }
};

// Sends clock ticks. Ticks go only to sinks that need them: a connected sink needs ticks
// until it says otherwise with TQWClockNeededOperation.
class TQWClockSourcePin : public TQWSourcePin {
    MW_CLASS(TQWClockSourcePin, TQWSourcePin)
public:
    TQWClockSourcePin(TComponent* owner, IBasicLock* lock,
                      TQWBasicPinNotificationEvent dispatch = {}, TQWPinEvent onConnect = {},
                      TQWPinEvent onDisconnect = {});
    const GUID& DataType() const override { return QWDT_Clock; }
    // One tick carrying a sample count.
    void Clock(int count);
    // True when a connected sink wants ticks.
    bool IsClockNeeded() const;

protected:
    void Receive(TQWPin* sender, IQWNotifyOperation* operation, TQWNotifyState state) override;
    void Disconnected(TQWPin& peer) override;

private:
    mutable std::mutex FNeedsMutex;
    std::vector<const TQWPin*> FNotNeeding;  // sinks that said they need no ticks
};

// Takes ticks from any number of clock sources. The clock event runs once per tick on the
// ticking thread; other operations go to the dispatch handler.
class TQWClockMultiSinkPin : public TQWSinkPin {
    MW_CLASS(TQWClockMultiSinkPin, TQWSinkPin)
public:
    TQWClockMultiSinkPin(TComponent* owner, IBasicLock* lock, TQWClockEvent onClock,
                         TQWBasicPinNotificationEvent dispatch = {});
    const GUID& DataType() const override { return QWDT_Clock; }
    // Tells every clock source whether this sink wants ticks.
    void SetClockNeeded(bool needed);

private:
    friend class TQWClockSourcePin;
    void Tick(TQWClockSourcePin* sender, int count);
    TQWClockEvent FOnClock;
};

// Publishes a 64-bit value with its range and two time stamps to connected state pins.
class TQWInt64TimeRangedStatePin : public TQWPin {
    MW_CLASS(TQWInt64TimeRangedStatePin, TQWPin)
public:
    TQWInt64TimeRangedStatePin(TComponent* owner, IBasicLock* lock,
                               TQWInt64DateTimeValueRangeChangeEvent onValueRange = {},
                               TQWInt64DateTimeRangeChangeEvent onRange = {},
                               TQWPinEvent onConnect = {}, TQWPinDispatchEvent dispatch = {});
    TQWPinDirection Direction() const override { return TQWPinDirection::State; }
    const GUID& DataType() const override { return QWDT_Int64State; }
    bool CanConnectTo(const TQWPin& other) const override;

    // Publishes progress to the peers; their events run on the caller's thread.
    void SubmitValueRange(int64_t value, int64_t min, int64_t max, int64_t start, int64_t stop);
    struct TValueRange {
        int64_t Value = 0, Min = 0, Max = 0, Start = 0, Stop = 0;
    };
    // The last value published on this pin or received from a peer.
    TValueRange Last() const;

private:
    void ReceiveValueRange(const TValueRange& v);
    TQWInt64DateTimeValueRangeChangeEvent FOnValueRange;
    TQWInt64DateTimeRangeChangeEvent FOnRange;
    mutable std::mutex FValueMutex;
    TValueRange FLast;
    bool FHasValue = false;
};

class TQWPinList {
public:
    int Count() const { return static_cast<int>(FPins.size()); }
    TQWPin* operator[](int i) const { return FPins.at(i); }
    int IndexOf(const TQWPin* pin) const;
    bool Remove(const TQWPin* pin);
    void Add(TQWPin* pin) { FPins.push_back(pin); }
    auto begin() const { return FPins.begin(); }
    auto end() const { return FPins.end(); }

private:
    std::vector<TQWPin*> FPins;
};

enum TQWPinCategory : uint8_t {
    pcAutoGrow = 1,    // a new pin is made when every pin is connected
    pcAutoShrink = 2,  // surplus unconnected pins beyond the minimum go
    pcNumbered = 4,    // pins are named base name + number
};
using TQWPinCategories = uint8_t;
using TQWPinCreateFunction = std::function<TQWPin*(int index)>;
using TQWPinDestroyFunction = std::function<void(TQWPin* pin)>;

// A growable list of pins of one component: the create function makes a pin when one is
// wanted, the destroy function disposes of a removed one, the event tells of changes.
class TQWPinListOwner {
public:
    TQWPinListOwner(IBasicLock* lock, int initialCount, TQWPinCategories categories, int minCount,
                    int maxCount, TQWPinCreateFunction create, TQWPinDestroyFunction destroy,
                    TQWPinEvent onChange = {});
    ~TQWPinListOwner();
    const TQWPinList& Pins() const { return FPins; }
    int Count() const { return FPins.Count(); }
    TQWPin* Add();
    void Remove(TQWPin* pin);
    // Grows or shrinks by the categories after a connection changed.
    void Update();

private:
    ComPtr<IBasicLock> FLock;
    TQWPinCategories FCategories;
    int FMin, FMax;
    TQWPinCreateFunction FCreate;
    TQWPinDestroyFunction FDestroy;
    TQWPinEvent FOnChange;
    TQWPinList FPins;
};

// The pump handshake. A source sends TQWPumpRequestOperation; every sink willing to drive
// the pump calls QWClaimPump on it with its own priority; the source remembers the winner,
// sends TQWStartPumpOperation, and then serves the winner's MasterPump calls.

// The sink's step: takes the pump unless an earlier sink already claimed it with a priority
// at least `priority` (the earlier sink wins ties). True when `sink` is now the master.
bool QWClaimPump(TQWPumpRequestOperation& request, TObject* sink, uint32_t priority);

// The source's side: who won, and which master-pump calls to serve. Thread-safe.
class TQWPumpSourceState {
public:
    // Asks the sinks of `pin` who will pull; returns the master, or null when nobody will.
    TObject* Request(TQSQWClockableSourcePin& pin);
    // Tells the sinks that the source is ready to be pumped; serves the first request again.
    void StartPump(TQSQWClockableSourcePin& pin);
    // Step 5: accepts a master-pump call only through the winning pin from the winning
    // master, with an operation number other than the last one served, or the first
    // request after the start whatever its number.
    bool Accept(const TQSQWClockableSourcePin* pin, const TObject* master,
                uint32_t operationNumber);
    TObject* Master() const;
    void Reset();

private:
    mutable std::mutex FMutex;
    const TQSQWClockableSourcePin* FPin = nullptr;
    TObject* FMaster = nullptr;
    uint32_t FLastNumber = 0;
    bool FFirstAfterStart = false;
};

// Connects a source (or state) pin to a sink pin; false when they can't be connected.
bool QWConnect(TQWPin& a, TQWPin& b);
bool QWDisconnect(TQWPin& a, TQWPin& b);
// The named pins of a component, in creation order.
std::vector<TQWPin*> QWComponentPins(const TComponent* owner);
TQWPin* QWFindPin(const TComponent* owner, const std::string& name);

// Saves the component's wire connections as the defined property "Connections": a list of
// pairs, the name of one of its pins and "Component.Pin" of the peer. A connection inside the
// written form is written once, by the source side (of two state pins, by the one with the
// lower path); a connection to a component outside the form is written by the side inside.
// Reading connects the pins once every component of the file exists, and a pin outside the
// file only once the whole load has succeeded; an unknown pin is an error of the file.
// TLockComponent calls it from DefineProperties.
void QWDefineConnections(TFiler& filer, TComponent& component);

// Closes every pin of the component.
void QWCloseComponentPins(const TComponent* owner);

// Drains a component's operation queue: pops one operation at a time and calls
// `intDispatch` with it, until the queue is empty or intDispatch returns false.
void QWProcessQueue(IQSOperationList& queue,
                    const std::function<bool(IQWNotifyOperation*)>& intDispatch);
