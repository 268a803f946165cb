// The operations that travel between components over wire pins: start, buffers, pause,
// resume, flush, stop, the pump handshake, clock ticks and graph announcements.
//
// Each operation is a reference-counted TQWNotifyOperation reached through IQWNotifyOperation.
// A handler tells them apart only by IsType (class or a class derived from it) and reaches the
// fields through GetInstance. Operations are created per buffer on the sender's thread and
// handed on synchronously; after delivery they are not changed, except the fields of
// TQWPumpRequestOperation, which the sinks write one after another on the delivering thread.
#pragma once

#include <cstdint>
#include <string>

#include "comptr.h"
#include "frame/Interfaced.h"
#include "frame/QAAudioFormat.h"
#include "frame/QSData.h"

class TQWNotifyOperation;

DEFINE_GUID(IID_IQWNotifyOperation, 0x0a533fa5, 0xe629, 0x4d06, 0x95, 0x9c, 0x9b, 0x17, 0x4e, 0x07,
            0xd9, 0xa1);
struct IQWNotifyOperation : IUnknown {
    // The operation object, to read and write its fields.
    STDMETHOD_(TQWNotifyOperation*, GetInstance)() PURE;
    // True when the operation is of class cls or of a class derived from it.
    STDMETHOD_(bool, IsType)(TClass cls) PURE;

    template <class T>
    bool IsType() {
        return IsType(T::StaticClass());
    }
    // The operation as T when IsType<T>(), otherwise null.
    template <class T>
    T* InstanceAs() {
        return IsType(T::StaticClass()) ? static_cast<T*>(GetInstance()) : nullptr;
    }
};
MW_DECLARE_IID(IQWNotifyOperation, IID_IQWNotifyOperation);

// The root of all operations.
class TQWNotifyOperation : public TInterfacedObject<IQWNotifyOperation> {
    MW_CLASS(TQWNotifyOperation, TInterfacedObject<IQWNotifyOperation>)
public:
    TQWNotifyOperation() = default;

    STDMETHODIMP_(TQWNotifyOperation*) GetInstance() override { return this; }
    STDMETHODIMP_(bool) IsType(TClass cls) override;
    using IQWNotifyOperation::IsType;
};

// A stream with a sample rate starts; binary sinks read Rate.
class TQWStartRateOperation : public TQWNotifyOperation {
    MW_CLASS(TQWStartRateOperation, TQWNotifyOperation)
public:
    TQWStartRateOperation() = default;
    explicit TQWStartRateOperation(double rate) : Rate(rate) {}
    double Rate = 0;  // samples per second
};

// A stream that announces only its sample rate starts.
class TQWStartSampleRateOperation : public TQWStartRateOperation {
    MW_CLASS(TQWStartSampleRateOperation, TQWStartRateOperation)
public:
    explicit TQWStartSampleRateOperation(double rate) : TQWStartRateOperation(rate) {}
};

// An audio stream starts; Format holds for every buffer until the next start or stop.
class TQWStartWaveOperation : public TQWNotifyOperation {
    MW_CLASS(TQWStartWaveOperation, TQWNotifyOperation)
public:
    TQWStartWaveOperation() = default;
    explicit TQWStartWaveOperation(const TQAWaveFormatExtensible& format) : Format(format) {}
    TQAWaveFormatExtensible Format{};
};

// The stream ends normally; what is queued before it is still played.
class TQWStopOperation : public TQWNotifyOperation {
    MW_CLASS(TQWStopOperation, TQWNotifyOperation)
};

// The source stopped internally: a receiver ends at once, without waiting for its queues.
// Deliberately not a TQWStopOperation, since receivers treat the two differently.
class TQSInternalStopOperation : public TQWNotifyOperation {
    MW_CLASS(TQSInternalStopOperation, TQWNotifyOperation)
};

// Drop what is queued; the stream goes on.
class TQWFlushStreamOperation : public TQWNotifyOperation {
    MW_CLASS(TQWFlushStreamOperation, TQWNotifyOperation)
};

// One buffer supplied by the sender.
class TQWSuppliedBufferOperation : public TQWNotifyOperation {
    MW_CLASS(TQWSuppliedBufferOperation, TQWNotifyOperation)
public:
    explicit TQWSuppliedBufferOperation(ComPtr<IQSData> data) : Data(std::move(data)) {}
    ComPtr<IQSData> Data;
};

// A buffer put back into a component's own queue. It is a supplied buffer too, so the handler
// that re-queued it processes it by the same branch when the queue is drained again.
class TQWInternalBufferOperation : public TQWSuppliedBufferOperation {
    MW_CLASS(TQWInternalBufferOperation, TQWSuppliedBufferOperation)
public:
    TQWInternalBufferOperation(bool requeued, ComPtr<IQSData> data)
        : TQWSuppliedBufferOperation(std::move(data)), Requeued(requeued) {}
    bool Requeued;  // true on every re-queue
};

class TQWQSPauseOperation : public TQWNotifyOperation {
    MW_CLASS(TQWQSPauseOperation, TQWNotifyOperation)
};

class TQWQSResumeOperation : public TQWNotifyOperation {
    MW_CLASS(TQWQSResumeOperation, TQWNotifyOperation)
};

// A source asks its sinks who will pull the data. A sink willing to drive the pump takes it
// over unless Kind is already KindClaimed with a Priority at least its own (the earlier sink
// wins ties), by writing Master, Priority and Kind.
class TQWPumpRequestOperation : public TQWNotifyOperation {
    MW_CLASS(TQWPumpRequestOperation, TQWNotifyOperation)
public:
    static constexpr uint8_t KindClaimed = 3;  // the only kind the system writes
    TObject* Master = nullptr;
    uint8_t Kind = 0;
    uint32_t Priority = 0;
};

// The source is ready to be pumped by the master of the pump request.
class TQWStartPumpOperation : public TQWNotifyOperation {
    MW_CLASS(TQWStartPumpOperation, TQWNotifyOperation)
};

// One tick over a clock connection.
class TQWClockOperation : public TQWNotifyOperation {
    MW_CLASS(TQWClockOperation, TQWNotifyOperation)
};

// A clock sink tells its clock sources whether it wants ticks.
class TQWClockNeededOperation : public TQWNotifyOperation {
    MW_CLASS(TQWClockNeededOperation, TQWNotifyOperation)
public:
    explicit TQWClockNeededOperation(bool needed) : Needed(needed) {}
    bool Needed;
};

// Sent over each pin of a component to have the sources report their streams.
class TQWQueryStreamOperation : public TQWNotifyOperation {
    MW_CLASS(TQWQueryStreamOperation, TQWNotifyOperation)
};

// The sender's stream is to be ignored by the receiver.
class TQWIgnoreStreamOperation : public TQWNotifyOperation {
    MW_CLASS(TQWIgnoreStreamOperation, TQWNotifyOperation)
};

// One text item (UTF-8) with its times in 100 ns units.
class TQWQSTimeSuppliedStringOperation : public TQWNotifyOperation {
    MW_CLASS(TQWQSTimeSuppliedStringOperation, TQWNotifyOperation)
public:
    TQWQSTimeSuppliedStringOperation(std::string text, int64_t startTime, int64_t endTime)
        : Text(std::move(text)), StartTime(startTime), EndTime(endTime) {}
    std::string Text;
    int64_t StartTime;
    int64_t EndTime;
};

// A graph was built. Graph is the graph object (a TDSGraph); the operation does not own it.
class TQWQMGraphOperation : public TQWNotifyOperation {
    MW_CLASS(TQWQMGraphOperation, TQWNotifyOperation)
public:
    explicit TQWQMGraphOperation(TObject* graph) : Graph(graph) {}
    TObject* Graph;
};

// A graph changed (built, rebuilt or destroyed). A consumer that handles TQWQMGraphOperation
// sees the change too and reads the same field.
class TQWQMGraphChangeOperation : public TQWQMGraphOperation {
    MW_CLASS(TQWQMGraphChangeOperation, TQWQMGraphOperation)
public:
    explicit TQWQMGraphChangeOperation(TObject* graph) : TQWQMGraphOperation(graph) {}
};
