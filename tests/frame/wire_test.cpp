// Wire pins: connections, delivery of a stream to several sinks, the pump handshake,
// clock needs, state pins and pins going away while others send.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/Persistence.h"
#include "frame/QSData.h"
#include "frame/WirePins.h"
#include "tests/support/Wait.h"
#include "winbase.h"

using mw::test::WaitUntil;

namespace {

// A source of audio: pushes what the test tells it to and serves pumps it accepts.
class TToneSource : public TLockComponent {
    MW_CLASS(TToneSource, TLockComponent)
public:
    explicit TToneSource(TComponent* owner)
        : TLockComponent(owner), Output(this, ComponentLock(), nullptr, {}) {
        Output.SetName("Output");
        Output.SetOnMasterPump([this](TQSQWClockableSourcePin* pin, TObject* master, uint32_t n) {
            if (Pump.Accept(pin, master, n)) ++Served;
        });
    }
    void Start(const TQAWaveFormatExtensible& f) { Output.Notify(MwNew<TQWStartWaveOperation>(f)); }
    void Send(const std::vector<uint8_t>& bytes) {
        Output.SubmitBuffer(
            MwNew<TQSBlockBuffer>(bytes.data(), static_cast<uint32_t>(bytes.size())));
    }
    template <class Op>
    void Say() {
        Output.Notify(MwNew<Op>());
    }

    TQAQWAudioSourcePin Output;
    TQWPumpSourceState Pump;
    std::atomic<int> Served{0};
};

// A sink that records what reaches it, under its component lock, as a real sink does.
class TRecorder : public TLockComponent {
    MW_CLASS(TRecorder, TLockComponent)
public:
    explicit TRecorder(TComponent* owner, bool willPump = false, uint32_t priority = 0)
        : TLockComponent(owner),
          Input(
              this, ComponentLock(),
              [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                     TQWNotifyState) { return Dispatch(op); },
              [this](TQWPin*) { ++Connects; }, [this](TQWPin*) { ++Disconnects; }),
          FWillPump(willPump),
          FPriority(priority) {
        Input.SetName("Input");
    }

    int Dispatch(IQWNotifyOperation* op) {
        TLockGuard g = ComponentLock()->AcquireRead();
        if (auto* start = op->InstanceAs<TQWStartWaveOperation>()) {
            Log.push_back("start");
            Format = start->Format;
        } else if (auto* buf = op->InstanceAs<TQWSuppliedBufferOperation>()) {
            Log.push_back("buffer");
            const BYTE* p = buf->Data->ReadPointer();
            Bytes.insert(Bytes.end(), p, p + buf->Data->ByteSize());
        } else if (op->IsType<TQWQSPauseOperation>()) {
            Log.push_back("pause");
        } else if (op->IsType<TQWQSResumeOperation>()) {
            Log.push_back("resume");
        } else if (op->IsType<TQWFlushStreamOperation>()) {
            Log.push_back("flush");
        } else if (op->IsType<TQWStopOperation>()) {
            Log.push_back("stop");
        } else if (auto* req = op->InstanceAs<TQWPumpRequestOperation>()) {
            if (FWillPump) IsPump = QWClaimPump(*req, this, FPriority);
        } else if (op->IsType<TQWStartPumpOperation>()) {
            Log.push_back("start pump");
        }
        return 0;  // anything else is ignored
    }

    TQAQWAudioSinkPin Input;
    std::vector<std::string> Log;
    std::vector<uint8_t> Bytes;
    TQAWaveFormatExtensible Format{};
    bool IsPump = false;
    int Connects = 0, Disconnects = 0;

private:
    bool FWillPump;
    uint32_t FPriority;
};

class Wire : public ::testing::Test {
protected:
    TOwned<TComponent> Form{TComponent::New<TComponent>(nullptr)};
    template <class T, class... A>
    T* Make(A... a) {
        return TComponent::New<T>(Form.get(), a...);
    }
};

TEST_F(Wire, OneStreamReachesTwoSinksIntactAndInOrder) {
    auto* src = Make<TToneSource>();
    auto* a = Make<TRecorder>();
    auto* b = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->Output, a->Input));
    ASSERT_TRUE(QWConnect(b->Input, src->Output)) << "either end may start the connection";

    const auto fmt = mw::MakePcmWaveFormat(48000, 16, 2);
    std::vector<uint8_t> sent;
    // Sent from a worker thread, as a decoder would.
    std::thread worker([&] {
        src->Start(fmt);
        for (int i = 0; i < 50; ++i) {
            std::vector<uint8_t> chunk(4096 + i);
            for (size_t k = 0; k < chunk.size(); ++k)
                chunk[k] = static_cast<uint8_t>(k * 7 + i);
            sent.insert(sent.end(), chunk.begin(), chunk.end());
            src->Send(chunk);
            if (i == 10) src->Say<TQWQSPauseOperation>();
            if (i == 11) src->Say<TQWQSResumeOperation>();
            if (i == 30) src->Say<TQWFlushStreamOperation>();
        }
        src->Say<TQWStopOperation>();
    });
    worker.join();

    for (TRecorder* r : {a, b}) {
        EXPECT_TRUE(QAIsEqualAudioFormat(r->Format, fmt));
        ASSERT_EQ(r->Log.size(), 55u);
        EXPECT_EQ(r->Log.front(), "start");
        EXPECT_EQ(r->Log[12], "pause");
        EXPECT_EQ(r->Log[14], "resume");
        EXPECT_EQ(r->Log.back(), "stop");
        EXPECT_EQ(r->Bytes, sent);
    }
}

TEST_F(Wire, UnconnectedPinsAcceptEverythingAndDoNothing) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    TQWClockSourcePin clock(src, src->ComponentLock());
    src->Send({1, 2, 3});
    src->Say<TQWStopOperation>();
    clock.Clock(512);
    r->Input.MasterPump(r);
    r->Input.Notify(MwNew<TQWStopOperation>());
    EXPECT_TRUE(r->Log.empty());
    EXPECT_FALSE(clock.IsClockNeeded());
}

TEST_F(Wire, UnknownOperationsAreIgnored) {
    class TSomethingNew : public TQWNotifyOperation {
        MW_CLASS(TSomethingNew, TQWNotifyOperation)
    };
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    QWConnect(src->Output, r->Input);
    src->Say<TSomethingNew>();
    src->Say<TQWQueryStreamOperation>();
    src->Say<TQWStopOperation>();
    EXPECT_EQ(r->Log, std::vector<std::string>{"stop"});
}

TEST_F(Wire, ConnectionsOnlyJoinASourceToASinkOfItsType) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    TQSQWBinarySinkPin binarySink(r, r->ComponentLock(), {});
    TQSQWSinkPin signalSink(r, r->ComponentLock(), {});
    TQAQWAudioSourcePin otherSource(src, src->ComponentLock(), nullptr, {});
    EXPECT_FALSE(QWConnect(src->Output, binarySink)) << "audio into a binary sink";
    EXPECT_FALSE(QWConnect(src->Output, otherSource)) << "source to source";
    EXPECT_TRUE(QWConnect(src->Output, signalSink)) << "a signal sink takes audio";
    EXPECT_TRUE(QWConnect(src->Output, r->Input));
    EXPECT_FALSE(QWConnect(src->Output, r->Input)) << "twice";
    EXPECT_EQ(r->Connects, 1);
    EXPECT_EQ(src->Output.ConnectionCount(), 2);
    EXPECT_TRUE(QWDisconnect(r->Input, src->Output));
    EXPECT_EQ(r->Disconnects, 1);
    EXPECT_FALSE(r->Input.IsConnected());
    EXPECT_EQ(QWFindPin(src, "Output"), &src->Output);
}

TEST_F(Wire, PumpTieKeepsTheEarlierSink) {
    auto* src = Make<TToneSource>();
    auto* first = Make<TRecorder>(true, 5);
    auto* second = Make<TRecorder>(true, 5);
    QWConnect(src->Output, first->Input);
    QWConnect(src->Output, second->Input);
    EXPECT_EQ(src->Pump.Request(src->Output), first);
    EXPECT_TRUE(first->IsPump);
    EXPECT_FALSE(second->IsPump);
}

TEST_F(Wire, HigherPriorityTakesThePumpOver) {
    auto* src = Make<TToneSource>();
    auto* low = Make<TRecorder>(true, 1);
    auto* high = Make<TRecorder>(true, 9);
    auto* unwilling = Make<TRecorder>(false);
    QWConnect(src->Output, low->Input);
    QWConnect(src->Output, high->Input);
    QWConnect(src->Output, unwilling->Input);
    EXPECT_EQ(src->Pump.Request(src->Output), high);
}

TEST(PumpClaim, KindOtherThanThreeIsTakenOverWhateverThePriority) {
    TOwned<TComponent> sink(TComponent::New<TComponent>(nullptr));
    TQWPumpRequestOperation req;
    req.Kind = 2;
    req.Priority = 1000;
    EXPECT_TRUE(QWClaimPump(req, sink.get(), 1));
    EXPECT_EQ(req.Kind, 3);
    EXPECT_EQ(req.Priority, 1u);
    EXPECT_EQ(req.Master, sink.get());
    TQWPumpRequestOperation claimed;
    claimed.Kind = 3;
    claimed.Priority = 4;
    EXPECT_FALSE(QWClaimPump(claimed, sink.get(), 4));
    EXPECT_TRUE(QWClaimPump(claimed, sink.get(), 5));
}

TEST_F(Wire, MasterPumpIsServedOncePerOperationNumberExceptAfterStart) {
    auto* src = Make<TToneSource>();
    auto* pump = Make<TRecorder>(true, 1);
    auto* other = Make<TRecorder>(true, 0);
    QWConnect(src->Output, pump->Input);
    QWConnect(src->Output, other->Input);
    ASSERT_EQ(src->Pump.Request(src->Output), pump);
    src->Pump.StartPump(src->Output);
    EXPECT_EQ(pump->Log.back(), "start pump");

    pump->Input.MasterPump(pump, 7);  // first after the start: served
    EXPECT_EQ(src->Served, 1);
    pump->Input.MasterPump(pump, 7);  // same number again: dropped
    EXPECT_EQ(src->Served, 1);
    pump->Input.MasterPump(pump, 8);
    EXPECT_EQ(src->Served, 2);
    other->Input.MasterPump(other, 9);  // not the winning master
    pump->Input.MasterPump(other, 10);
    EXPECT_EQ(src->Served, 2);

    src->Pump.StartPump(src->Output);
    pump->Input.MasterPump(pump,
                           8);  // the first request after a new start is served whatever its number
    EXPECT_EQ(src->Served, 3);
    pump->Input.MasterPump(pump);  // the plain form numbers calls itself
    pump->Input.MasterPump(pump);
    EXPECT_EQ(src->Served, 5);
}

TEST_F(Wire, ClockTicksReachOnlySinksThatNeedThem) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    TQWClockSourcePin clock(src, src->ComponentLock());
    std::vector<int> ticksA, ticksB;
    TQWClockMultiSinkPin a(r, r->ComponentLock(), [&](TQWClockMultiSinkPin*, TQWBasicPin*, int n) {
        ticksA.push_back(n);
    });
    TQWClockMultiSinkPin b(r, r->ComponentLock(), [&](TQWClockMultiSinkPin*, TQWBasicPin*, int n) {
        ticksB.push_back(n);
    });
    QWConnect(clock, a);
    QWConnect(clock, b);
    clock.Clock(441);
    b.SetClockNeeded(false);
    clock.Clock(882);
    EXPECT_TRUE(clock.IsClockNeeded());
    a.SetClockNeeded(false);
    EXPECT_FALSE(clock.IsClockNeeded());
    clock.Clock(100);
    b.SetClockNeeded(true);
    clock.Clock(5);
    EXPECT_EQ(ticksA, (std::vector<int>{441, 882}));
    EXPECT_EQ(ticksB, (std::vector<int>{441, 5}));
}

TEST_F(Wire, StatePinPublishesValueAndRangeToItsPeers) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    TQWInt64TimeRangedStatePin out(src, src->ComponentLock());
    int rangeEvents = 0;
    std::vector<int64_t> values;
    TQWInt64TimeRangedStatePin in(
        r, r->ComponentLock(),
        [&](TQWInt64TimeRangedStatePin*, int64_t v, int64_t, int64_t, int64_t, int64_t) {
            values.push_back(v);
        },
        [&](TQWInt64TimeRangedStatePin*, int64_t, int64_t) { ++rangeEvents; });
    ASSERT_TRUE(QWConnect(out, in));
    out.SubmitValueRange(10, 0, 100, 1, 2);
    out.SubmitValueRange(20, 0, 100, 3, 4);
    out.SubmitValueRange(30, 0, 200, 5, 6);
    EXPECT_EQ(values, (std::vector<int64_t>{10, 20, 30}));
    EXPECT_EQ(rangeEvents, 2) << "only a new range is announced as such";
    EXPECT_EQ(in.Last().Stop, 6);
}

TEST_F(Wire, LinkedPinsAreKeptInBothOrders) {
    auto* r = Make<TRecorder>();
    TQAQWAudioSourcePin out(r, r->ComponentLock(), nullptr, {});
    out.AddLinkedPin(&r->Input);
    r->Input.AddLinkedPin(&out);
    out.AddLinkedPin(&r->Input);
    EXPECT_EQ(out.LinkedPins(), std::vector<TQWPin*>{&r->Input});
    EXPECT_EQ(r->Input.LinkedPins(), std::vector<TQWPin*>{&out});
}

TEST_F(Wire, PinListGrowsWhenEveryPinIsConnected) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    std::vector<std::unique_ptr<TQAQWAudioSinkPin>> made;
    TQWPinListOwner list(
        r->ComponentLock(), 1, pcAutoGrow | pcAutoShrink, 1, 3,
        [&](int) {
            made.push_back(std::make_unique<TQAQWAudioSinkPin>(r, r->ComponentLock(),
                                                               TQWBasicPinNotificationEvent{}));
            return made.back().get();
        },
        [&](TQWPin* p) { std::erase_if(made, [p](auto& u) { return u.get() == p; }); });
    ASSERT_EQ(list.Count(), 1);
    QWConnect(src->Output, *list.Pins()[0]);
    list.Update();
    EXPECT_EQ(list.Count(), 2);
    QWConnect(src->Output, *list.Pins()[1]);
    list.Update();
    list.Update();
    EXPECT_EQ(list.Count(), 3) << "never past the maximum";
    QWDisconnect(src->Output, *list.Pins()[0]);
    QWDisconnect(src->Output, *list.Pins()[1]);
    list.Update();
    EXPECT_EQ(list.Count(), 1) << "one free pin stays, the others go";
    EXPECT_EQ(made.size(), 1u) << "the destroy function disposed of them";
    EXPECT_FALSE(list.Pins()[0]->IsConnected());
}

TEST_F(Wire, SinkMayBeFreedWhileAnotherThreadSends) {
    auto* src = Make<TToneSource>();
    for (int round = 0; round < 20; ++round) {
        auto* r = Make<TRecorder>();
        QWConnect(src->Output, r->Input);
        std::atomic<bool> stop{false};
        std::atomic<int> sent{0};
        std::thread sender([&] {
            std::vector<uint8_t> bytes(256, 1);
            while (!stop) {
                src->Send(bytes);
                ++sent;
            }
        });
        ASSERT_TRUE(WaitUntil([&] { return sent.load() > 10; }));
        r->Free();  // closes its pin, waits for the delivery in progress
        EXPECT_FALSE(src->Output.IsConnected());
        stop = true;
        sender.join();
    }
}

// A sink whose connection check can be held, to line two connecting threads up.
class THeldSink : public TQAQWAudioSinkPin {
    MW_CLASS(THeldSink, TQAQWAudioSinkPin)
public:
    using TQAQWAudioSinkPin::TQAQWAudioSinkPin;
    std::function<void()> OnCheck;
    bool CanConnectTo(const TQWPin& other) const override {
        if (OnCheck) OnCheck();
        return TQAQWAudioSinkPin::CanConnectTo(other);
    }
};

TEST_F(Wire, TwoThreadsConnectingOnePairMakeOneConnection) {
    auto* src = Make<TToneSource>();
    auto* owner = Make<TRecorder>();
    std::atomic<int> connects{0};
    THeldSink sink(owner, owner->ComponentLock(), {}, [&](TQWPin*) { ++connects; });
    std::atomic<int> checks{0};
    std::atomic<bool> release{false};
    sink.OnCheck = [&] {
        if (++checks == 1)
            while (!release.load())
                std::this_thread::yield();
    };
    std::atomic<bool> firstResult{false}, secondResult{false};
    std::thread first([&] { firstResult = src->Output.Connect(sink); });
    ASSERT_TRUE(WaitUntil([&] { return checks.load() == 1; }));
    std::atomic<uint32_t> secondTid{0};
    std::thread second([&] {
        secondTid = GetCurrentThreadId();
        secondResult = sink.Connect(src->Output);
    });
    // The second thread either waits for the first to finish connecting or checks the pair
    // while the first is between its check and its change: the fault.
    ASSERT_TRUE(WaitUntil([&] {
        return checks.load() >= 2 ||
               (secondTid.load() != 0 && mw::test::ThreadIsBlocked(secondTid.load()));
    }));
    release = true;
    first.join();
    second.join();
    EXPECT_EQ(src->Output.ConnectionCount(), 1);
    EXPECT_EQ(sink.ConnectionCount(), 1);
    EXPECT_EQ(connects.load(), 1);
    EXPECT_NE(firstResult.load(), secondResult.load());
    sink.Close();
}

TEST_F(Wire, HandlersAndLinkedPinsMayChangeWhileOperationsArrive) {
    auto* src = Make<TToneSource>();
    auto* r = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->Output, r->Input));
    constexpr int kSends = 2000;
    std::atomic<int> viaFirst{0}, viaSecond{0};
    auto counting = [](std::atomic<int>& n) {
        return [&n](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation*, TQWNotifyState) {
            ++n;
            return 0;
        };
    };
    r->Input.SetDispatch(counting(viaSecond));
    std::atomic<bool> sending{true};
    std::thread sender([&] {
        for (int i = 0; i < kSends; ++i)
            src->Say<TQWQSPauseOperation>();
        sending = false;
    });
    for (int i = 0; sending.load(); ++i) {
        r->Input.SetDispatch(counting(i % 2 ? viaFirst : viaSecond));
        r->Input.SetOnConnect([](TQWPin*) {});
        src->Output.AddLinkedPin(&r->Input);
        EXPECT_LE(src->Output.LinkedPins().size(), 1u);
        src->Output.RemoveLinkedPin(&r->Input);
    }
    sender.join();
    EXPECT_EQ(viaFirst.load() + viaSecond.load(), kSends);
}

class TWiredForm : public TLockComponent {
    MW_CLASS(TWiredForm, TLockComponent)
public:
    using TLockComponent::TLockComponent;
};

TEST(WireForm, ConnectionsAreSavedByComponentAndPinNameAndComeBack) {
    RegisterClasses(
        {TWiredForm::StaticClass(), TToneSource::StaticClass(), TRecorder::StaticClass()});
    TOwned<TWiredForm> form(TComponent::New<TWiredForm>(nullptr));
    form->SetName("Form1");
    auto* src = TComponent::New<TToneSource>(form.get());
    src->SetName("Tone");
    auto* a = TComponent::New<TRecorder>(form.get());
    a->SetName("Left");
    auto* b = TComponent::New<TRecorder>(form.get());
    b->SetName("Right");
    auto* spare = TComponent::New<TRecorder>(form.get());
    spare->SetName("Spare");
    QWConnect(src->Output, a->Input);
    QWConnect(b->Input, src->Output);

    const std::string text = mw::WriteComponentToText(*form);
    EXPECT_NE(text.find("'Output'"), std::string::npos) << text;
    EXPECT_NE(text.find("'Right.Input'"), std::string::npos) << text;
    EXPECT_EQ(text.find("Spare.Input"), std::string::npos) << "unconnected pins write nothing";

    TOwned<TComponent> copy(mw::ReadComponentFromText(text, nullptr));
    auto* tone = dynamic_cast<TToneSource*>(copy->FindComponent("Tone"));
    auto* left = dynamic_cast<TRecorder*>(copy->FindComponent("Left"));
    auto* right = dynamic_cast<TRecorder*>(copy->FindComponent("Right"));
    ASSERT_TRUE(tone && left && right);
    EXPECT_EQ(tone->Output.Connections(), (std::vector<TQWPin*>{&left->Input, &right->Input}));
    EXPECT_EQ(left->Connects, 1);
    tone->Send({9, 8, 7});
    EXPECT_EQ(right->Bytes, (std::vector<uint8_t>{9, 8, 7}));
    EXPECT_EQ(mw::WriteComponentToText(*copy), text) << "written again, the same text";
}

TEST(WireForm, AConnectionToAnUnknownPinFailsTheWholeLoad) {
    RegisterClasses(
        {TWiredForm::StaticClass(), TToneSource::StaticClass(), TRecorder::StaticClass()});
    const std::string text =
        "object Form1: TWiredForm\n"
        "  object Tone: TToneSource\n"
        "    Connections = (\n"
        "      'Output'\n"
        "      'Left.Nowhere')\n"
        "  end\n"
        "  object Left: TRecorder\n"
        "  end\n"
        "end\n";
    try {
        mw::ReadComponentFromText(text, nullptr);
        FAIL() << "loaded";
    } catch (const EReadError& e) {
        EXPECT_NE(std::string(e.what()).find("Left.Nowhere"), std::string::npos) << e.what();
    }
}

// A component with a state pin that counts what it hears.
class TProgressPart : public TLockComponent {
    MW_CLASS(TProgressPart, TLockComponent)
public:
    explicit TProgressPart(TComponent* owner)
        : TLockComponent(owner),
          Progress(this, ComponentLock(), {}, {}, [this](TQWPin*) { ++Connects; }) {
        Progress.SetName("Progress");
        Progress.SetOnDisconnect([this](TQWPin*) { ++Disconnects; });
    }
    TQWInt64TimeRangedStatePin Progress;
    int Connects = 0, Disconnects = 0;
};

void RegisterWireClasses() {
    RegisterClasses({TWiredForm::StaticClass(), TToneSource::StaticClass(),
                     TRecorder::StaticClass(), TProgressPart::StaticClass()});
}

TEST(WireForm, ConnectionsToComponentsBesideTheFormAreSaved) {
    RegisterWireClasses();
    // "Beside" sorts before "Frame": the frame's state pin and its sink are the side that
    // must write the connections, since the file holds nothing of Beside.
    TOwned<TWiredForm> form(TComponent::New<TWiredForm>(nullptr));
    form->SetName("Form1");
    auto* besideState = TComponent::New<TProgressPart>(form.get());
    besideState->SetName("ABeside");
    auto* besideTone = TComponent::New<TToneSource>(form.get());
    besideTone->SetName("ATone");
    auto* frame = TComponent::New<TWiredForm>(form.get());
    frame->SetName("Frame");
    auto* bar = TComponent::New<TProgressPart>(frame);
    bar->SetName("Bar");
    auto* ear = TComponent::New<TRecorder>(frame);
    ear->SetName("Ear");
    ASSERT_TRUE(QWConnect(besideState->Progress, bar->Progress));
    ASSERT_TRUE(QWConnect(besideTone->Output, ear->Input));

    const std::string text = mw::WriteComponentToText(*frame);
    EXPECT_NE(text.find("'ABeside.Progress'"), std::string::npos) << text;
    EXPECT_NE(text.find("'ATone.Output'"), std::string::npos) << text;

    frame->Free();
    ASSERT_FALSE(besideState->Progress.IsConnected());
    auto* back = dynamic_cast<TWiredForm*>(mw::ReadComponentFromText(text, form.get()));
    ASSERT_TRUE(back);
    auto* bar2 = dynamic_cast<TProgressPart*>(back->FindComponent("Bar"));
    auto* ear2 = dynamic_cast<TRecorder*>(back->FindComponent("Ear"));
    ASSERT_TRUE(bar2 && ear2);
    EXPECT_TRUE(bar2->Progress.IsConnectedTo(besideState->Progress));
    EXPECT_TRUE(ear2->Input.IsConnectedTo(besideTone->Output));
    besideTone->Send({1, 2});
    EXPECT_EQ(ear2->Bytes, (std::vector<uint8_t>{1, 2}));
    EXPECT_EQ(mw::WriteComponentToText(*back), text);

    // Inside one file a state connection is written once.
    TOwned<TWiredForm> whole(TComponent::New<TWiredForm>(nullptr));
    whole->SetName("Whole");
    auto* p1 = TComponent::New<TProgressPart>(whole.get());
    p1->SetName("P1");
    auto* p2 = TComponent::New<TProgressPart>(whole.get());
    p2->SetName("P2");
    QWConnect(p2->Progress, p1->Progress);
    const std::string wholeText = mw::WriteComponentToText(*whole);
    EXPECT_EQ(wholeText.find("'P1.Progress'"), std::string::npos) << wholeText;
    const size_t once = wholeText.find("'P2.Progress'");
    EXPECT_NE(once, std::string::npos) << wholeText;
    EXPECT_EQ(wholeText.find("'P2.Progress'", once + 1), std::string::npos) << wholeText;
}

TEST(WireForm, AFailedLoadLeavesComponentsBesideTheFormUntouched) {
    RegisterWireClasses();
    TOwned<TWiredForm> form(TComponent::New<TWiredForm>(nullptr));
    form->SetName("Form1");
    auto* beside = TComponent::New<TProgressPart>(form.get());
    beside->SetName("Beside");
    // The connection to Beside is read, then a later reference fails the load.
    const std::string text =
        "object Frame: TWiredForm\n"
        "  object Bar: TProgressPart\n"
        "    Connections = (\n"
        "      'Progress'\n"
        "      'Beside.Progress')\n"
        "  end\n"
        "  object Late: TRecorder\n"
        "    Connections = (\n"
        "      'Input'\n"
        "      'Nobody.Output')\n"
        "  end\n"
        "end\n";
    try {
        mw::ReadComponentFromText(text, form.get());
        ADD_FAILURE() << "loaded";
    } catch (const EReadError& e) {
        EXPECT_EQ(e.Line(), 10) << e.what();
    }
    EXPECT_EQ(beside->Connects, 0);
    EXPECT_EQ(beside->Disconnects, 0);
    EXPECT_EQ(form->ComponentCount(), 1);

    // Loaded into an existing frame, the same: and the frame's own connections made by the
    // failed load are taken back.
    auto* frame = TComponent::New<TWiredForm>(form.get());
    frame->SetName("Frame");
    auto* tone = TComponent::New<TToneSource>(frame);
    tone->SetName("Tone");
    auto* ear = TComponent::New<TRecorder>(frame);
    ear->SetName("Ear");
    auto* bar = TComponent::New<TProgressPart>(frame);
    bar->SetName("Bar");
    const std::string before = mw::WriteComponentToText(*frame);
    const std::string intoExisting =
        "object Frame: TWiredForm\n"
        "  object Tone: TToneSource\n"
        "    Connections = ('Output' 'Ear.Input')\n"
        "  end\n"
        "  object Bar: TProgressPart\n"
        "    Connections = ('Progress' 'Beside.Progress')\n"
        "  end\n"
        "  object Late: TRecorder\n"
        "    Connections = ('Input' 'Nobody.Output')\n"
        "  end\n"
        "end\n";
    EXPECT_THROW(mw::ReadComponentPropertiesFromText(intoExisting, *frame), EReadError);
    EXPECT_FALSE(tone->Output.IsConnected());
    EXPECT_EQ(ear->Connects, 1);
    EXPECT_EQ(ear->Disconnects, 1);
    EXPECT_EQ(beside->Connects, 0);
    EXPECT_EQ(mw::WriteComponentToText(*frame), before);

    // Without the faulty component it loads whole, the connection beside included.
    std::string good = intoExisting;
    good.erase(good.find("  object Late"), good.find("end\nend") + 4 - good.find("  object Late"));
    mw::ReadComponentPropertiesFromText(good, *frame);
    EXPECT_TRUE(tone->Output.IsConnectedTo(ear->Input));
    EXPECT_TRUE(bar->Progress.IsConnectedTo(beside->Progress));
    EXPECT_EQ(beside->Connects, 1);
}

}  // namespace
