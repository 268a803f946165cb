// Operation classes as handlers see them: IsType follows inheritance and nothing else, the
// instance carries the constructor's fields, and handlers can write the pump request.
#include <gtest/gtest.h>

#include "frame/QSData.h"
#include "frame/WireOperations.h"

namespace {

// A handler in the way components write them: by IsType, most derived class first.
const char* Classify(IQWNotifyOperation* op) {
    if (op->IsType(TQWStartSampleRateOperation::StaticClass())) return "sample rate start";
    if (op->IsType(TQWStartRateOperation::StaticClass())) return "rate start";
    if (op->IsType(TQWStartWaveOperation::StaticClass())) return "wave start";
    if (op->IsType(TQSInternalStopOperation::StaticClass())) return "internal stop";
    if (op->IsType(TQWStopOperation::StaticClass())) return "stop";
    if (op->IsType(TQWSuppliedBufferOperation::StaticClass())) return "buffer";
    return "ignored";
}

// An operation class a handler has never heard of.
class TUnknownTestOperation : public TQWNotifyOperation {
    MW_CLASS(TUnknownTestOperation, TQWNotifyOperation)
};

}  // namespace

TEST(OperationIsType, TrueForTheOwnClassAndEveryBase) {
    ComPtr<IQWNotifyOperation> op = MwNew<TQWStartSampleRateOperation>(44100.0);
    EXPECT_TRUE(op->IsType(TQWStartSampleRateOperation::StaticClass()));
    EXPECT_TRUE(op->IsType(TQWStartRateOperation::StaticClass()));
    EXPECT_TRUE(op->IsType(TQWNotifyOperation::StaticClass()));
    EXPECT_TRUE(op->IsType(TObject::StaticClass()));
}

TEST(OperationIsType, FalseForDerivedAndSiblingClasses) {
    ComPtr<IQWNotifyOperation> rate = MwNew<TQWStartRateOperation>(8000.0);
    EXPECT_FALSE(rate->IsType(TQWStartSampleRateOperation::StaticClass()));
    EXPECT_FALSE(rate->IsType(TQWStartWaveOperation::StaticClass()));

    ComPtr<IQWNotifyOperation> stop = MwNew<TQWStopOperation>();
    EXPECT_FALSE(stop->IsType(TQSInternalStopOperation::StaticClass()));
    ComPtr<IQWNotifyOperation> internalStop = MwNew<TQSInternalStopOperation>();
    EXPECT_FALSE(internalStop->IsType(TQWStopOperation::StaticClass()));

    ComPtr<IQWNotifyOperation> pause = MwNew<TQWQSPauseOperation>();
    EXPECT_FALSE(pause->IsType(TQWQSResumeOperation::StaticClass()));
    ComPtr<IQWNotifyOperation> clock = MwNew<TQWClockOperation>();
    EXPECT_FALSE(clock->IsType(TQWClockNeededOperation::StaticClass()));
    ComPtr<IQWNotifyOperation> query = MwNew<TQWQueryStreamOperation>();
    EXPECT_FALSE(query->IsType(TQWIgnoreStreamOperation::StaticClass()));
    ComPtr<IQWNotifyOperation> pump = MwNew<TQWStartPumpOperation>();
    EXPECT_FALSE(pump->IsType(TQWPumpRequestOperation::StaticClass()));
    ComPtr<IQWNotifyOperation> graph = MwNew<TQWQMGraphOperation>(nullptr);
    EXPECT_FALSE(graph->IsType(TQWQMGraphChangeOperation::StaticClass()));
}

TEST(OperationIsType, HandlersBranchByClassAndIgnoreUnknownOnes) {
    EXPECT_STREQ(Classify(MwNew<TQWStartSampleRateOperation>(1.0).Get()), "sample rate start");
    EXPECT_STREQ(Classify(MwNew<TQWStartRateOperation>(1.0).Get()), "rate start");
    EXPECT_STREQ(Classify(MwNew<TQWStartWaveOperation>().Get()), "wave start");
    EXPECT_STREQ(Classify(MwNew<TQSInternalStopOperation>().Get()), "internal stop");
    EXPECT_STREQ(Classify(MwNew<TQWStopOperation>().Get()), "stop");
    EXPECT_STREQ(Classify(MwNew<TQWFlushStreamOperation>().Get()), "ignored");
    EXPECT_STREQ(Classify(MwNew<TUnknownTestOperation>().Get()), "ignored");
}

TEST(OperationIsType, RequeuedBufferIsStillASuppliedBuffer) {
    auto data = MwNew<TQSBlockBuffer>(4u);
    ComPtr<IQWNotifyOperation> op = MwNew<TQWInternalBufferOperation>(true, data);
    EXPECT_STREQ(Classify(op.Get()), "buffer");
    auto* buffer = op->InstanceAs<TQWSuppliedBufferOperation>();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->Data.Get(), static_cast<IQSData*>(data.Get()));
    auto* internal = op->InstanceAs<TQWInternalBufferOperation>();
    ASSERT_NE(internal, nullptr);
    EXPECT_TRUE(internal->Requeued);
    EXPECT_EQ(op->InstanceAs<TQWStopOperation>(), nullptr);
}

TEST(OperationIsType, GraphChangeIsAlsoAGraphOperation) {
    TObject graph;
    ComPtr<IQWNotifyOperation> op = MwNew<TQWQMGraphChangeOperation>(&graph);
    auto* g = op->InstanceAs<TQWQMGraphOperation>();
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->Graph, &graph);
}

TEST(OperationFields, InstanceCarriesWhatTheConstructorGot) {
    const auto format = mw::MakePcmWaveFormat(32000, 16, 2);
    ComPtr<IQWNotifyOperation> wave = MwNew<TQWStartWaveOperation>(format);
    EXPECT_TRUE(QAIsEqualAudioFormat(wave->InstanceAs<TQWStartWaveOperation>()->Format, format));

    ComPtr<IQWNotifyOperation> rate = MwNew<TQWStartSampleRateOperation>(44100.0);
    EXPECT_EQ(rate->InstanceAs<TQWStartRateOperation>()->Rate, 44100.0);

    ComPtr<IQWNotifyOperation> need = MwNew<TQWClockNeededOperation>(true);
    EXPECT_TRUE(need->InstanceAs<TQWClockNeededOperation>()->Needed);

    ComPtr<IQWNotifyOperation> text = MwNew<TQWQSTimeSuppliedStringOperation>("Grüße", 10, 20);
    auto* t = text->InstanceAs<TQWQSTimeSuppliedStringOperation>();
    EXPECT_EQ(t->Text, "Grüße");
    EXPECT_EQ(t->StartTime, 10);
    EXPECT_EQ(t->EndTime, 20);

    ComPtr<IQWNotifyOperation> buffer = MwNew<TQWSuppliedBufferOperation>(nullptr);
    EXPECT_EQ(buffer->GetInstance()->ClassType(), TQWSuppliedBufferOperation::StaticClass());
}

TEST(OperationFields, PumpRequestStartsUnclaimedAndTakesTheSinksAnswer) {
    ComPtr<IQWNotifyOperation> op = MwNew<TQWPumpRequestOperation>();
    auto* request = op->InstanceAs<TQWPumpRequestOperation>();
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->Master, nullptr);
    EXPECT_EQ(request->Kind, 0);
    EXPECT_EQ(request->Priority, 0u);

    // A sink answers through the fields of the very object the source holds.
    TObject sink;
    op->InstanceAs<TQWPumpRequestOperation>()->Master = &sink;
    op->InstanceAs<TQWPumpRequestOperation>()->Kind = TQWPumpRequestOperation::KindClaimed;
    EXPECT_EQ(request->Master, &sink);
    EXPECT_EQ(request->Kind, 3);
}

TEST(OperationLifetime, BufferIsHeldUntilTheOperationGoes) {
    auto data = MwNew<TQAAudioBuffer>(8000u, uint16_t(16), uint16_t(1), 10u);
    ComPtr<IQWNotifyOperation> op = MwNew<TQWSuppliedBufferOperation>(data);
    EXPECT_EQ(data->RefCount(), 2u);
    ComPtr<IQWNotifyOperation> viaQuery;
    ASSERT_EQ(op.As(&viaQuery), S_OK);
    EXPECT_EQ(viaQuery.Get(), op.Get());
    op = nullptr;
    viaQuery = nullptr;
    EXPECT_EQ(data->RefCount(), 1u);
}

namespace {
// An object implementing two interfaces answers both, and IUnknown, with one count.
struct ITwoA : IUnknown {
    virtual int A() = 0;
};
struct ITwoB : IUnknown {
    virtual int B() = 0;
};
DEFINE_GUID(IID_ITwoA, 0x1b0e9a10, 0x5f3c, 0x4a7e, 0x9d, 0x02, 0x6a, 0x11, 0x23, 0x45, 0x67, 0x89);
DEFINE_GUID(IID_ITwoB, 0x1b0e9a10, 0x5f3c, 0x4a7e, 0x9d, 0x02, 0x6a, 0x11, 0x23, 0x45, 0x67, 0x8a);
}  // namespace
MW_DECLARE_IID(ITwoA, IID_ITwoA);
MW_DECLARE_IID(ITwoB, IID_ITwoB);
namespace {
class TTwo : public TInterfacedObject<ITwoA, ITwoB> {
public:
    int A() override { return 1; }
    int B() override { return 2; }
};

TEST(Interfaced, ObjectWithTwoInterfacesAnswersBothWithOneCount) {
    ComPtr<ITwoA> a = MwNew<TTwo>();
    ComPtr<ITwoB> b = a.As<ITwoB>();
    ASSERT_TRUE(b);
    EXPECT_EQ(b->B(), 2);
    ComPtr<IUnknown> u = b.As<IUnknown>();
    EXPECT_EQ(u.Get(), a.As<IUnknown>().Get()) << "one identity";
    EXPECT_EQ(static_cast<TTwo*>(a.Get())->RefCount(), 3u) << "a, b and u";
}
}  // namespace
