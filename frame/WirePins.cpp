#include "frame/WirePins.h"

#include <algorithm>
#include <unordered_map>

#include "frame/Persistence.h"

namespace mw::wire {
namespace {
// Anchors this thread is delivering into, so that a pin freed from its own handler
// doesn't wait for itself.
thread_local std::vector<const PinAnchor*> tlsDelivering;

int OwnDeliveries(const PinAnchor* a) {
    return static_cast<int>(std::count(tlsDelivering.begin(), tlsDelivering.end(), a));
}

// Making and breaking connections: a check and the change of both pins' lists are one step,
// so that two threads connecting one pair make one connection. Never held while an event or
// an operation runs.
std::mutex& ConnectionMutex() {
    static std::mutex m;
    return m;
}

// The pins of each component, for finding pins by name and saving connections.
struct PinRegistry {
    std::mutex Mutex;
    std::unordered_map<const TComponent*, std::vector<TQWPin*>> Pins;
};
PinRegistry& Registry() {
    static PinRegistry r;
    return r;
}

// Enters a peer for one delivery and leaves it however the delivery ends.
class Delivery {
public:
    explicit Delivery(PinAnchor& a) : FAnchor(a), FPin(a.Enter()) {
        if (FPin) tlsDelivering.push_back(&FAnchor);
    }
    ~Delivery() {
        if (!FPin) return;
        tlsDelivering.pop_back();
        FAnchor.Leave();
    }
    TQWPin* Pin() const { return FPin; }

private:
    PinAnchor& FAnchor;
    TQWPin* FPin;
};
}  // namespace

TQWPin* PinAnchor::Enter() {
    Active.fetch_add(1, std::memory_order_acq_rel);
    TQWPin* p = Pin.load(std::memory_order_acquire);
    if (!p) Leave();
    return p;
}

void PinAnchor::Leave() {
    if (Active.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        std::lock_guard lk(Mutex);
        Idle.notify_all();
    }
}

void PinAnchor::Close() {
    Pin.store(nullptr, std::memory_order_release);
    const int own = OwnDeliveries(this);
    std::unique_lock lk(Mutex);
    Idle.wait(lk, [&] { return Active.load(std::memory_order_acquire) <= own; });
}
}  // namespace mw::wire

using mw::wire::PinAnchor;

// ---- TQWBasicPin

TQWBasicPin::TQWBasicPin(TComponent* owner, IBasicLock* lock) : FOwner(owner), FLock(lock) {}

TQWBasicPin::~TQWBasicPin() = default;

// ---- TQWPin

TQWPin::TQWPin(TComponent* owner, IBasicLock* lock, TQWBasicPinNotificationEvent dispatch,
               TQWPinEvent onConnect, TQWPinEvent onDisconnect)
    : TQWBasicPin(owner, lock),
      FAnchor(std::make_shared<PinAnchor>(this)),
      FPeers(std::make_shared<const PeerList>()),
      FDispatch(dispatch ? std::make_shared<const TQWBasicPinNotificationEvent>(std::move(dispatch))
                         : nullptr),
      FOnConnect(std::move(onConnect)),
      FOnDisconnect(std::move(onDisconnect)) {
    auto& r = mw::wire::Registry();
    std::lock_guard lk(r.Mutex);
    r.Pins[owner].push_back(this);
}

TQWPin::~TQWPin() {
    {
        auto& r = mw::wire::Registry();
        std::lock_guard lk(r.Mutex);
        auto it = r.Pins.find(Owner());
        if (it != r.Pins.end()) {
            std::erase(it->second, this);
            if (it->second.empty()) r.Pins.erase(it);
        }
    }
    Close();
}

void TQWPin::Close() {
    if (IsClosed()) return;
    DisconnectAll();
    FAnchor->Close();
    // A delivery that raced with the disconnection has now ended too; drop what's left.
    DisconnectAll();
}

bool TQWPin::CanConnectTo(const TQWPin& other) const {
    if (&other == this) return false;
    if (Direction() == TQWPinDirection::Source)
        return other.Direction() == TQWPinDirection::Sink && other.CanConnectTo(*this);
    return false;
}

bool TQWSinkPin::CanConnectTo(const TQWPin& other) const {
    return &other != this && other.Direction() == TQWPinDirection::Source &&
           Accepts(other.DataType());
}

bool TQWPin::Connect(TQWPin& other) {
    {
        std::lock_guard lk(mw::wire::ConnectionMutex());
        if (IsClosed() || other.IsClosed() || !CanConnectTo(other) || IsConnectedTo(other))
            return false;
        AddPeer(other.FAnchor);
        other.AddPeer(FAnchor);
    }
    Connected(other);
    other.Connected(*this);
    if (TQWPinEvent e = OnConnect()) e(this);
    if (TQWPinEvent e = other.OnConnect()) e(&other);
    return true;
}

bool TQWPin::Disconnect(TQWPin& other) {
    {
        std::lock_guard lk(mw::wire::ConnectionMutex());
        if (!RemovePeer(&other)) return false;
        other.RemovePeer(this);
    }
    Disconnected(other);
    other.Disconnected(*this);
    if (TQWPinEvent e = OnDisconnect()) e(this);
    if (TQWPinEvent e = other.OnDisconnect()) e(&other);
    return true;
}

void TQWPin::DisconnectAll() {
    for (;;) {
        auto peers = Peers();
        if (peers->empty()) return;
        mw::wire::Delivery d(*peers->front());
        if (d.Pin())
            Disconnect(*d.Pin());
        else
            RemovePeer(nullptr);  // the peer went away on its own; drop the stale entry
    }
}

bool TQWPin::IsConnectedTo(const TQWPin& other) const {
    auto peers = Peers();
    return std::any_of(peers->begin(), peers->end(),
                       [&](const mw::wire::PinAnchorRef& a) { return a->Pin.load() == &other; });
}

int TQWPin::ConnectionCount() const {
    return static_cast<int>(Peers()->size());
}

std::vector<TQWPin*> TQWPin::Connections() const {
    std::vector<TQWPin*> r;
    for (auto& a : *Peers())
        if (TQWPin* p = a->Pin.load()) r.push_back(p);
    return r;
}

std::shared_ptr<const TQWPin::PeerList> TQWPin::Peers() const {
    std::lock_guard lk(FPeersMutex);
    return FPeers;
}

void TQWPin::AddPeer(const mw::wire::PinAnchorRef& peer) {
    std::lock_guard lk(FPeersMutex);
    auto next = std::make_shared<PeerList>(*FPeers);
    next->push_back(peer);
    FPeers = std::move(next);
}

bool TQWPin::RemovePeer(const TQWPin* peer) {
    std::lock_guard lk(FPeersMutex);
    auto next = std::make_shared<PeerList>(*FPeers);
    auto it = std::find_if(next->begin(), next->end(),
                           [&](const mw::wire::PinAnchorRef& a) { return a->Pin.load() == peer; });
    if (it == next->end()) return false;
    next->erase(it);
    FPeers = std::move(next);
    return true;
}

void TQWPin::ForEachPeer(const std::function<void(TQWPin&)>& f) const {
    auto peers = Peers();
    for (const auto& anchor : *peers) {
        mw::wire::Delivery d(*anchor);
        if (d.Pin()) f(*d.Pin());
    }
}

void TQWPin::Notify(IQWNotifyOperation* operation) {
    if (!operation) return;
    auto peers = Peers();
    const TQWNotifyState state = Direction() == TQWPinDirection::Sink ? nsUpstream : 0;
    for (const auto& anchor : *peers) {
        mw::wire::Delivery d(*anchor);
        if (d.Pin()) d.Pin()->Receive(this, operation, state);
    }
}

void TQWPin::Receive(TQWPin* sender, IQWNotifyOperation* operation, TQWNotifyState state) {
    std::shared_ptr<const TQWBasicPinNotificationEvent> dispatch;
    {
        std::lock_guard lk(FSettingsMutex);
        dispatch = FDispatch;
    }
    if (!dispatch) return;
    // The data type of a connection is the one its source produces.
    const GUID* type = Direction() == TQWPinDirection::Sink ? &sender->DataType() : &DataType();
    (*dispatch)(this, sender, type, operation, state);
}

void TQWPin::SetDispatch(TQWBasicPinNotificationEvent dispatch) {
    auto next = dispatch ? std::make_shared<const TQWBasicPinNotificationEvent>(std::move(dispatch))
                         : nullptr;
    std::lock_guard lk(FSettingsMutex);
    FDispatch = std::move(next);
}

void TQWPin::SetOnConnect(TQWPinEvent e) {
    std::lock_guard lk(FSettingsMutex);
    FOnConnect = std::move(e);
}

void TQWPin::SetOnDisconnect(TQWPinEvent e) {
    std::lock_guard lk(FSettingsMutex);
    FOnDisconnect = std::move(e);
}

TQWPinEvent TQWPin::OnConnect() const {
    std::lock_guard lk(FSettingsMutex);
    return FOnConnect;
}

TQWPinEvent TQWPin::OnDisconnect() const {
    std::lock_guard lk(FSettingsMutex);
    return FOnDisconnect;
}

void TQWPin::AddLinkedPin(TQWPin* pin) {
    std::lock_guard lk(FSettingsMutex);
    if (pin && std::find(FLinked.begin(), FLinked.end(), pin) == FLinked.end())
        FLinked.push_back(pin);
}

void TQWPin::RemoveLinkedPin(TQWPin* pin) {
    std::lock_guard lk(FSettingsMutex);
    std::erase(FLinked, pin);
}

std::vector<TQWPin*> TQWPin::LinkedPins() const {
    std::lock_guard lk(FSettingsMutex);
    return FLinked;
}

// ---- signal sinks and sources

TQSQWSinkPin::TQSQWSinkPin(TComponent* owner, IBasicLock* lock,
                           TQWBasicPinNotificationEvent dispatch, TQWPinEvent onConnect,
                           TQWPinEvent onDisconnect)
    : TQWSinkPin(owner, lock, std::move(dispatch), std::move(onConnect), std::move(onDisconnect)) {}

void TQSQWSinkPin::MasterPump(TObject* master) {
    MasterPump(master, FPumpNumber.fetch_add(1, std::memory_order_relaxed) + 1);
}

void TQSQWSinkPin::MasterPump(TObject* master, uint32_t operationNumber) {
    ForEachPeer([&](TQWPin& peer) {
        if (auto* source = dynamic_cast<TQSQWClockableSourcePin*>(&peer))
            source->MasterPumpFromSink(master, operationNumber);
    });
}

TQSQWClockableSourcePin::TQSQWClockableSourcePin(TComponent* owner, IBasicLock* lock, IBasicLock*,
                                                 TQWBasicPinNotificationEvent dispatch,
                                                 TQWPinEvent onConnect, TQWPinEvent onDisconnect)
    : TQWSourcePin(owner, lock, std::move(dispatch), std::move(onConnect),
                   std::move(onDisconnect)) {}

void TQSQWClockableSourcePin::SubmitBuffer(IQSData* data) {
    if (!IsConnected()) return;
    ComPtr<IQWNotifyOperation> op = MwNew<TQWSuppliedBufferOperation>(ComPtr<IQSData>(data));
    Notify(op.Get());
}

void TQSQWClockableSourcePin::SetOnMasterPump(TQWMasterPumpEvent e) {
    auto next = e ? std::make_shared<const TQWMasterPumpEvent>(std::move(e)) : nullptr;
    std::lock_guard lk(FPumpMutex);
    FOnMasterPump = std::move(next);
}

void TQSQWClockableSourcePin::MasterPumpFromSink(TObject* master, uint32_t operationNumber) {
    std::shared_ptr<const TQWMasterPumpEvent> handler;
    {
        std::lock_guard lk(FPumpMutex);
        handler = FOnMasterPump;
    }
    if (handler) (*handler)(this, master, operationNumber);
}

TQWQMGraphSourcePin::TQWQMGraphSourcePin(TComponent* owner, IBasicLock* lock, IBasicLock*, int,
                                         TQWBasicPinNotificationEvent dispatch)
    : TQWSourcePin(owner, lock, std::move(dispatch)) {}

// ---- clock

TQWClockSourcePin::TQWClockSourcePin(TComponent* owner, IBasicLock* lock,
                                     TQWBasicPinNotificationEvent dispatch, TQWPinEvent onConnect,
                                     TQWPinEvent onDisconnect)
    : TQWSourcePin(owner, lock, std::move(dispatch), std::move(onConnect),
                   std::move(onDisconnect)) {}

void TQWClockSourcePin::Clock(int count) {
    ForEachPeer([&](TQWPin& peer) {
        auto* sink = dynamic_cast<TQWClockMultiSinkPin*>(&peer);
        if (!sink) return;
        {
            std::lock_guard lk(FNeedsMutex);
            if (std::find(FNotNeeding.begin(), FNotNeeding.end(), sink) != FNotNeeding.end())
                return;
        }
        sink->Tick(this, count);
    });
}

bool TQWClockSourcePin::IsClockNeeded() const {
    std::lock_guard lk(FNeedsMutex);
    for (TQWPin* p : Connections())
        if (std::find(FNotNeeding.begin(), FNotNeeding.end(), p) == FNotNeeding.end()) return true;
    return false;
}

void TQWClockSourcePin::Receive(TQWPin* sender, IQWNotifyOperation* operation,
                                TQWNotifyState state) {
    if (auto* needed = operation->InstanceAs<TQWClockNeededOperation>()) {
        std::lock_guard lk(FNeedsMutex);
        std::erase(FNotNeeding, sender);
        if (!needed->Needed) FNotNeeding.push_back(sender);
    }
    TQWSourcePin::Receive(sender, operation, state);
}

void TQWClockSourcePin::Disconnected(TQWPin& peer) {
    std::lock_guard lk(FNeedsMutex);
    std::erase(FNotNeeding, &peer);
}

TQWClockMultiSinkPin::TQWClockMultiSinkPin(TComponent* owner, IBasicLock* lock,
                                           TQWClockEvent onClock,
                                           TQWBasicPinNotificationEvent dispatch)
    : TQWSinkPin(owner, lock, std::move(dispatch)), FOnClock(std::move(onClock)) {}

void TQWClockMultiSinkPin::SetClockNeeded(bool needed) {
    Notify(MwNew<TQWClockNeededOperation>(needed));
}

void TQWClockMultiSinkPin::Tick(TQWClockSourcePin* sender, int count) {
    if (FOnClock) FOnClock(this, sender, count);
}

// ---- state pin

TQWInt64TimeRangedStatePin::TQWInt64TimeRangedStatePin(
    TComponent* owner, IBasicLock* lock, TQWInt64DateTimeValueRangeChangeEvent onValueRange,
    TQWInt64DateTimeRangeChangeEvent onRange, TQWPinEvent onConnect, TQWPinDispatchEvent dispatch)
    : TQWPin(owner, lock, std::move(dispatch), std::move(onConnect)),
      FOnValueRange(std::move(onValueRange)),
      FOnRange(std::move(onRange)) {}

bool TQWInt64TimeRangedStatePin::CanConnectTo(const TQWPin& other) const {
    return &other != this && other.Direction() == TQWPinDirection::State &&
           other.DataType() == DataType();
}

void TQWInt64TimeRangedStatePin::SubmitValueRange(int64_t value, int64_t min, int64_t max,
                                                  int64_t start, int64_t stop) {
    const TValueRange v{value, min, max, start, stop};
    {
        std::lock_guard lk(FValueMutex);
        FLast = v;
        FHasValue = true;
    }
    ForEachPeer([&](TQWPin& peer) {
        if (auto* state = dynamic_cast<TQWInt64TimeRangedStatePin*>(&peer))
            state->ReceiveValueRange(v);
    });
}

TQWInt64TimeRangedStatePin::TValueRange TQWInt64TimeRangedStatePin::Last() const {
    std::lock_guard lk(FValueMutex);
    return FLast;
}

void TQWInt64TimeRangedStatePin::ReceiveValueRange(const TValueRange& v) {
    bool rangeChanged;
    {
        std::lock_guard lk(FValueMutex);
        rangeChanged = !FHasValue || FLast.Min != v.Min || FLast.Max != v.Max;
        FLast = v;
        FHasValue = true;
    }
    if (rangeChanged && FOnRange) FOnRange(this, v.Min, v.Max);
    if (FOnValueRange) FOnValueRange(this, v.Value, v.Min, v.Max, v.Start, v.Stop);
}

// ---- pin lists

int TQWPinList::IndexOf(const TQWPin* pin) const {
    auto it = std::find(FPins.begin(), FPins.end(), pin);
    return it == FPins.end() ? -1 : static_cast<int>(it - FPins.begin());
}

bool TQWPinList::Remove(const TQWPin* pin) {
    auto it = std::find(FPins.begin(), FPins.end(), pin);
    if (it == FPins.end()) return false;
    FPins.erase(it);
    return true;
}

TQWPinListOwner::TQWPinListOwner(IBasicLock* lock, int initialCount, TQWPinCategories categories,
                                 int minCount, int maxCount, TQWPinCreateFunction create,
                                 TQWPinDestroyFunction destroy, TQWPinEvent onChange)
    : FLock(lock),
      FCategories(categories),
      FMin(minCount),
      FMax(maxCount),
      FCreate(std::move(create)),
      FDestroy(std::move(destroy)),
      FOnChange(std::move(onChange)) {
    for (int i = 0; i < std::max(initialCount, minCount); ++i)
        Add();
}

TQWPinListOwner::~TQWPinListOwner() {
    while (FPins.Count() > 0) {
        TQWPin* p = FPins[FPins.Count() - 1];
        FPins.Remove(p);
        if (FDestroy) FDestroy(p);
    }
}

TQWPin* TQWPinListOwner::Add() {
    if (!FCreate || (FMax > 0 && FPins.Count() >= FMax)) return nullptr;
    TQWPin* pin = FCreate(FPins.Count());
    if (!pin) return nullptr;
    FPins.Add(pin);
    if (FOnChange) FOnChange(pin);
    return pin;
}

void TQWPinListOwner::Remove(TQWPin* pin) {
    if (!FPins.Remove(pin)) return;
    if (FOnChange) FOnChange(pin);
    if (FDestroy) FDestroy(pin);
}

void TQWPinListOwner::Update() {
    auto unconnected = [this] {
        std::vector<TQWPin*> r;
        for (TQWPin* p : FPins)
            if (!p->IsConnected()) r.push_back(p);
        return r;
    };
    if ((FCategories & pcAutoGrow) && unconnected().empty()) Add();
    if (FCategories & pcAutoShrink) {
        // Keep one free pin for the next connection; drop the other free ones beyond the minimum.
        auto free = unconnected();
        while (free.size() > 1 && FPins.Count() > FMin) {
            Remove(free.back());
            free.pop_back();
        }
    }
}

// ---- pump handshake

bool QWClaimPump(TQWPumpRequestOperation& request, TObject* sink, uint32_t priority) {
    if (request.Kind == TQWPumpRequestOperation::KindClaimed && request.Priority >= priority)
        return false;
    request.Master = sink;
    request.Priority = priority;
    request.Kind = TQWPumpRequestOperation::KindClaimed;
    return true;
}

TObject* TQWPumpSourceState::Request(TQSQWClockableSourcePin& pin) {
    auto op = MwNew<TQWPumpRequestOperation>();
    pin.Notify(op);
    std::lock_guard lk(FMutex);
    if (op->Kind == TQWPumpRequestOperation::KindClaimed && op->Master) {
        FPin = &pin;
        FMaster = op->Master;
    } else {
        FPin = nullptr;
        FMaster = nullptr;
    }
    return FMaster;
}

void TQWPumpSourceState::StartPump(TQSQWClockableSourcePin& pin) {
    {
        std::lock_guard lk(FMutex);
        FFirstAfterStart = true;
    }
    pin.Notify(MwNew<TQWStartPumpOperation>());
}

bool TQWPumpSourceState::Accept(const TQSQWClockableSourcePin* pin, const TObject* master,
                                uint32_t operationNumber) {
    std::lock_guard lk(FMutex);
    if (!FMaster || pin != FPin || master != FMaster) return false;
    if (!FFirstAfterStart && operationNumber == FLastNumber) return false;
    FFirstAfterStart = false;
    FLastNumber = operationNumber;
    return true;
}

TObject* TQWPumpSourceState::Master() const {
    std::lock_guard lk(FMutex);
    return FMaster;
}

void TQWPumpSourceState::Reset() {
    std::lock_guard lk(FMutex);
    FPin = nullptr;
    FMaster = nullptr;
    FLastNumber = 0;
    FFirstAfterStart = false;
}

// ---- free functions

bool QWConnect(TQWPin& a, TQWPin& b) {
    return a.Connect(b);
}

bool QWDisconnect(TQWPin& a, TQWPin& b) {
    return a.Disconnect(b);
}

std::vector<TQWPin*> QWComponentPins(const TComponent* owner) {
    auto& r = mw::wire::Registry();
    std::lock_guard lk(r.Mutex);
    auto it = r.Pins.find(owner);
    return it == r.Pins.end() ? std::vector<TQWPin*>() : it->second;
}

TQWPin* QWFindPin(const TComponent* owner, const std::string& name) {
    for (TQWPin* p : QWComponentPins(owner))
        if (p->Name() == name) return p;
    return nullptr;
}

namespace {
bool IsWithin(const TComponent* c, const TComponent* root) {
    for (; c; c = c->Owner())
        if (c == root) return true;
    return false;
}

// The pairs (own pin, peer) that this component writes, so that each connection inside the
// written tree is written once and a connection to a component outside it (beside the form)
// by the side inside: toward a peer inside, the source side writes, and of two state pins the
// one with the lower path. `root` is the root being written, or null when unknown (then the
// question is only whether there is anything to write).
std::vector<std::pair<TQWPin*, TQWPin*>> SavedConnections(const TComponent& component,
                                                          const TWriter* writer) {
    std::vector<std::pair<TQWPin*, TQWPin*>> r;
    for (TQWPin* pin : QWComponentPins(&component)) {
        if (pin->Name().empty()) continue;
        for (TQWPin* peer : pin->Connections()) {
            if (peer->Name().empty() || !peer->Owner() || peer->Owner()->Name().empty()) continue;
            const bool peerInside = !writer || IsWithin(peer->Owner(), &writer->Root());
            if (peerInside) {
                if (pin->Direction() == TQWPinDirection::Sink) continue;
                if (pin->Direction() == TQWPinDirection::State && writer &&
                    std::make_pair(writer->ComponentPath(component), pin->Name()) >
                        std::make_pair(writer->ComponentPath(*peer->Owner()), peer->Name()))
                    continue;
            }
            r.emplace_back(pin, peer);
        }
    }
    return r;
}
}  // namespace

void QWDefineConnections(TFiler& filer, TComponent& component) {
    const bool hasData = !SavedConnections(component, dynamic_cast<const TWriter*>(&filer)).empty();
    filer.DefineProperty(
        "Connections",
        [&component](TReader& reader) {
            reader.ReadListBegin();
            while (!reader.EndOfList()) {
                const int line = reader.Line();
                std::string pinName = reader.ReadString();
                std::string peerPath = reader.ReadString();
                const size_t dot = peerPath.rfind('.');
                if (dot == std::string::npos || dot == 0 || dot + 1 == peerPath.size())
                    throw EReadError(line, "Connection \"" + peerPath + "\" is not Component.Pin");
                TComponent* self = reader.CurrentComponent();
                if (!self) self = &component;
                std::string peerPin = peerPath.substr(dot + 1);
                reader.AddFixup(peerPath.substr(0, dot), [&reader, self, pinName, peerPin, peerPath,
                                                          line](TComponent* peerOwner) {
                    TQWPin* pin = QWFindPin(self, pinName);
                    TQWPin* peer = peerOwner ? QWFindPin(peerOwner, peerPin) : nullptr;
                    if (!pin)
                        throw EReadError(line, std::string(self->ClassName()) + " has no pin \"" +
                                                   pinName + "\"");
                    if (!peer) throw EReadError(line, "No pin \"" + peerPath + "\"");
                    if (pin->IsConnectedTo(*peer)) return;
                    if (!pin->CanConnectTo(*peer))
                        throw EReadError(line, "Pin \"" + pinName + "\" cannot be connected to \"" +
                                                   peerPath + "\"");
                    // A component beside the file hears of the connection only once the whole
                    // load has succeeded.
                    if (!reader.IsInFile(peerOwner)) {
                        reader.DeferUntilDone([pin, peer] { pin->Connect(*peer); });
                        return;
                    }
                    if (!pin->Connect(*peer))
                        throw EReadError(line, "Pin \"" + pinName + "\" cannot be connected to \"" +
                                                   peerPath + "\"");
                    reader.AddUndo([pin, peer] { pin->Disconnect(*peer); });
                });
            }
            reader.ReadListEnd();
        },
        [&component](TWriter& writer) {
            writer.WriteListBegin();
            for (auto [pin, peer] : SavedConnections(component, &writer)) {
                writer.WriteString(pin->Name());
                writer.WriteString(writer.ComponentPath(*peer->Owner()) + "." + peer->Name());
            }
            writer.WriteListEnd();
        },
        hasData);
}

void QWCloseComponentPins(const TComponent* owner) {
    for (TQWPin* p : QWComponentPins(owner))
        p->Close();
}

void QWProcessQueue(IQSOperationList& queue,
                    const std::function<bool(IQWNotifyOperation*)>& intDispatch) {
    for (;;) {
        ComPtr<IQWNotifyOperation> op;
        if (!queue.Pop(op.ReleaseAndGetAddressOf())) return;
        if (!intDispatch(op.Get())) return;
    }
}
