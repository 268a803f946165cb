// TQAAudioOut playing streams on "Virtual Output": what is heard, when prefill ends, how
// starts and stops reopen the device, the pump and the clock pin.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/audio_out/audio_out_test_support.h"

namespace {

using namespace mw::test::audio;
using mw::test::WaitUntil;
using std::chrono::seconds;

const TQAWaveFormatExtensible kStereo48 = mw::MakePcmWaveFormat(48000, 16, 2);
const TQAWaveFormatExtensible kStereo44 = mw::MakePcmWaveFormat(44100, 16, 2);

void Append(std::vector<uint8_t>& to, const ComPtr<IQSData>& data) {
    to.insert(to.end(), data->ReadPointer(), data->ReadPointer() + data->ByteSize());
}

// Sends count buffers of ms milliseconds each and appends their bytes to `sent`.
void SubmitBuffers(TTestSource& source, const TQAWaveFormatExtensible& f, int count, uint32_t ms,
                   std::vector<uint8_t>& sent, uint32_t seed = 1) {
    for (int i = 0; i < count; ++i) {
        ComPtr<IQSData> b = MakeBuffer(f, Frames(f, ms), seed + i);
        Append(sent, b);
        source.Submit(b);
    }
}

// Claims the pump for the output and starts it.
void StartPump(Rig& rig) {
    ComPtr<TQWPumpRequestOperation> request = MwNew<TQWPumpRequestOperation>();
    rig.Source->Send(ComPtr<IQWNotifyOperation>(request.Get()));
    ASSERT_EQ(request->Master, rig.Out.get());
    rig.Source->Send<TQWStartPumpOperation>();
}

// A component with a clock sink that adds up the sample counts of the ticks.
class TClockCounter : public TLockComponent {
    MW_CLASS(TClockCounter, TLockComponent)
public:
    explicit TClockCounter(TComponent* owner) : TLockComponent(owner) {
        In = std::make_unique<TQWClockMultiSinkPin>(
            this, ComponentLock(), [this](TQWClockMultiSinkPin*, TQWBasicPin*, int count) {
                Samples += count;
                ++Ticks;
            });
        In->SetName("In");
    }
    std::unique_ptr<TQWClockMultiSinkPin> In;
    std::atomic<int64_t> Samples{0};
    std::atomic<int> Ticks{0};
};

TEST(WaveOut, PlaysEverySampleFormatBitExactly) {
    TQAWaveFormatExtensible flt = mw::MakePcmWaveFormat(48000, 32, 2);
    flt.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    const struct {
        const char* Name;
        TQAWaveFormatExtensible Format;
    } cases[] = {
        {"8-bit", mw::MakePcmWaveFormat(22050, 8, 2)},
        {"16-bit", kStereo48},
        {"24-bit", mw::MakePcmWaveFormat(48000, 24, 2)},
        {"32-bit", mw::MakePcmWaveFormat(96000, 32, 2)},
        {"float", flt},
        {"6-channel", mw::MakePcmWaveFormat(48000, 16, 6)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        TapRecorder tap;
        Rig rig(/*paced=*/false);
        std::vector<uint8_t> sent;
        rig.Source->Start(c.Format);
        SubmitBuffers(*rig.Source, c.Format, 8, 70, sent);
        rig.Source->Stop();
        ASSERT_TRUE(WaitUntil(
            [&] { return tap.Size() >= sent.size() && rig.Out->BuffersInFlight() == 0; }));
        EXPECT_EQ(tap.Bytes(), sent);
        EXPECT_EQ(tap.Rates(), std::vector<uint32_t>{c.Format.nSamplesPerSec});
        EXPECT_EQ(rig.Out->Stats().BuffersPlayed, 8u);
        EXPECT_TRUE(rig.ErrorList().empty());
    }
}

TEST(WaveOut, StreamShorterThanPrefillStartsOnStop) {
    TapRecorder tap;
    Rig rig;
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 2, 50, sent);
    // 100 ms of a 300 ms prefill: the device holds the buffers, paused.
    EXPECT_TRUE(rig.Out->IsOpen());
    EXPECT_EQ(rig.Out->BuffersInFlight(), 2);
    EXPECT_EQ(tap.Size(), 0u);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == sent.size() && rig.QueueEmpty > 0; }));
    EXPECT_EQ(tap.Bytes(), sent);
}

TEST(WaveOut, PrefillZeroStartsAfterTheFirstBuffer) {
    TapRecorder tap;
    Rig rig;
    rig.Out->SetPrefillInterval(0);
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 1, 20, sent);
    // No stop: only the end of the prefill lets the device run.
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == sent.size(); }));
}

TEST(WaveOutPump, PrefillEndsOnlyWhenExceeded) {
    TapRecorder tap;
    Rig rig;
    rig.Out->SetPrefillInterval(1000);
    StartPump(rig);
    EXPECT_EQ(rig.Source->Pumps, 2);  // two pulls at the start of a pump with prefill
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 1, 1000, sent);
    // Exactly the prefill written: still prefilling, so the output pulls at once.
    EXPECT_EQ(rig.Source->Pumps, 3);
    EXPECT_EQ(tap.Size(), 0u);
    SubmitBuffers(*rig.Source, kStereo48, 1, 10, sent, 7);
    // Past the prefill the device runs and finished buffers set the pace.
    EXPECT_EQ(rig.Source->Pumps, 3);
    ASSERT_TRUE(
        WaitUntil([&] { return tap.Size() == sent.size() && rig.Out->BuffersInFlight() == 0; }));
    EXPECT_EQ(rig.Source->Pumps, 5);
}

TEST(WaveOutPump, PumpWithoutPrefillPullsOnceAtStart) {
    Rig rig;
    rig.Out->SetPrefillInterval(0);
    StartPump(rig);
    EXPECT_EQ(rig.Source->Pumps, 1);
}

TEST(WaveOutPump, ClaimsThePumpByKindAndPriority) {
    Rig rig;
    TObject earlier;
    auto request = [&](uint8_t kind, uint32_t priority) {
        ComPtr<TQWPumpRequestOperation> r = MwNew<TQWPumpRequestOperation>();
        r->Master = &earlier;
        r->Kind = kind;
        r->Priority = priority;
        rig.Source->Send(ComPtr<IQWNotifyOperation>(r.Get()));
        return r;
    };
    rig.Out->Pump()->SetPriority(4);
    EXPECT_EQ(request(3, 4)->Master, &earlier);  // a tie keeps the earlier sink
    EXPECT_EQ(request(3, 9)->Master, &earlier);
    auto higher = request(3, 3);
    EXPECT_EQ(higher->Master, rig.Out.get());
    EXPECT_EQ(higher->Priority, 4u);
    EXPECT_EQ(request(1, 99)->Master, rig.Out.get());  // another kind is always taken over

    rig.Out->Pump()->SetEnabled(false);
    EXPECT_EQ(request(0, 0)->Master, &earlier);

    // An output whose device can't be opened doesn't drive the pump.
    rig.Out->Pump()->SetEnabled(true);
    rig.Out->Device()->SetDeviceName("WAV File Output");  // no file set: it can't open
    EXPECT_EQ(request(0, 0)->Master, &earlier);
    rig.Source->Send<TQWStartPumpOperation>();
    EXPECT_EQ(rig.Source->Pumps, 0);
}

TEST(WaveOutPump, BufferDoneDuringPauseIsAMissedPumpPaidBackOnResume) {
    Rig rig;
    rig.Out->SetPrefillInterval(10000);  // the device stays paused
    StartPump(rig);
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 3, 50, sent);
    EXPECT_EQ(rig.Source->Pumps, 5);
    // The flush gives the three buffers back while the output is paused: each pulls once
    // and counts one missed pump.
    rig.Source->Send<TQWFlushStreamOperation>();
    ASSERT_TRUE(
        WaitUntil([&] { return rig.Out->BuffersInFlight() == 0 && rig.Source->Pumps == 8; }));
    rig.Source->Send<TQWQSResumeOperation>();
    EXPECT_EQ(rig.Source->Pumps, 11);
    rig.Source->Send<TQWQSResumeOperation>();  // nothing owed any more
    EXPECT_EQ(rig.Source->Pumps, 11);
}

TEST(WaveOut, StartDuringARunningStreamIsDropped) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 4, 100, sent);
    rig.Source->Start(kStereo44);
    SubmitBuffers(*rig.Source, kStereo48, 2, 100, sent, 11);
    rig.Source->Stop();
    ASSERT_TRUE(
        WaitUntil([&] { return tap.Size() == sent.size() && rig.Out->BuffersInFlight() == 0; }));
    EXPECT_EQ(tap.Bytes(), sent);
    EXPECT_EQ(tap.Rates(), std::vector<uint32_t>{48000});
    TQAWaveFormatExtensible current;
    ASSERT_TRUE(rig.Out->CurrentFormat(current));
    EXPECT_EQ(current.nSamplesPerSec, 48000u);
    EXPECT_TRUE(rig.Out->IsOpen());
}

TEST(WaveOut, StartAfterStopReopensForTheNewFormatOnceTheStreamPlayedOut) {
    TapRecorder tap;
    Rig rig;
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 4, 100, sent);
    rig.Source->Stop();
    // The next stream comes at once: the stopped one still plays, and is heard to its end.
    rig.Source->Start(kStereo44);
    SubmitBuffers(*rig.Source, kStereo44, 4, 100, sent, 21);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == sent.size(); }));
    EXPECT_EQ(tap.Bytes(), sent);
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{48000, 44100}));
    EXPECT_TRUE(rig.Out->IsOpen());  // kept open after the stop
    TQAWaveFormatExtensible current;
    ASSERT_TRUE(rig.Out->CurrentFormat(current));
    EXPECT_EQ(current.nSamplesPerSec, 44100u);
}

// A pulled source that, from its pulls, plays stream A (6 x 100 ms), stops it, and at the
// next pull (on the wave thread) starts stream B of formatB with 3 x 100 ms and stops it.
struct TwoStreamsFromPulls {
    std::recursive_mutex M;  // a pull may come inside a pull
    std::vector<uint8_t> Sent;
    int SentA = 0;
    bool StoppedA = false, StartedB = false;
    std::atomic<bool> BFromWaveThread{false};
    std::atomic<uint32_t> RateWhenBWasSent{0};

    void Run(Rig& rig, const TQAWaveFormatExtensible& formatB) {
        rig.Source->SetOnPump([this, &rig, formatB] {
            std::lock_guard lock(M);
            if (SentA == 0) rig.Source->Start(kStereo48);
            if (SentA < 6) {
                SubmitBuffers(*rig.Source, kStereo48, 1, 100, Sent, 100 + SentA++);
            } else if (!StoppedA) {
                StoppedA = true;
                rig.Source->Stop();
            } else if (!StartedB) {
                StartedB = true;
                BFromWaveThread = TQAWaveThread::Current() != nullptr;
                rig.Source->Start(formatB);
                TQAWaveFormatExtensible f{};
                rig.Out->CurrentFormat(f);
                RateWhenBWasSent = f.nSamplesPerSec;
                SubmitBuffers(*rig.Source, kStereo44, 3, 100, Sent, 200);
                rig.Source->Stop();
            }
        });
        StartPump(rig);  // the source starts its stream at the first pull
    }
    bool BSent() {
        std::lock_guard lock(M);
        return StartedB;
    }
};

TEST(WaveOut, StartAfterStopFromTheWaveThreadReopensOnAStartWorker) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    TwoStreamsFromPulls streams;
    streams.Run(rig, kStereo44);
    ASSERT_TRUE(WaitUntil([&] {
        std::lock_guard lock(streams.M);
        return streams.StartedB && tap.Size() == streams.Sent.size();
    }));
    EXPECT_TRUE(streams.BFromWaveThread);
    // The wave thread did not reopen the device: it left the start to a start worker.
    EXPECT_EQ(streams.RateWhenBWasSent, 48000u);
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{48000, 44100}));
    std::lock_guard lock(streams.M);
    EXPECT_EQ(tap.Bytes(), streams.Sent);
    EXPECT_TRUE(rig.ErrorList().empty());
}

TEST(WaveOut, DeviceForAStartFromTheWaveThreadIsOpenedNeitherThereNorOnTheMainThread) {
    Rig rig(/*paced=*/false);
    std::atomic<int> onMain{0}, onWave{0}, elsewhere{0};
    rig.Out->SetOnError([&](TObject*, const std::string& text, uint32_t, bool& handled) {
        EXPECT_EQ(text, "Can't open audio device.");
        ++(mw::IsMainThread() ? onMain : TQAWaveThread::Current() != nullptr ? onWave : elsewhere);
        handled = true;
    });
    TQAWaveFormatExtensible odd = kStereo44;
    odd.wBitsPerSample = 12;  // the open fails, and tells on which thread it was tried
    TwoStreamsFromPulls streams;
    streams.Run(rig, odd);
    ASSERT_TRUE(WaitUntil([&] { return streams.BSent() && onMain + onWave + elsewhere > 0; }));
    EXPECT_TRUE(streams.BFromWaveThread);
    EXPECT_EQ(elsewhere, 1);
    EXPECT_EQ(onMain, 0);
    EXPECT_EQ(onWave, 0);
}

// A Close that comes while the start worker is busy with the start (held in the error of its
// failed open) waits for the worker: afterwards nothing is open and nothing runs.
TEST(WaveOut, CloseWhileTheStartWorkerRunsLeavesNothingOpen) {
    Rig rig(/*paced=*/false);
    std::mutex m;
    std::condition_variable changed;
    bool held = false, released = false;
    std::atomic<int> errors{0};
    rig.Out->SetOnError([&](TObject*, const std::string&, uint32_t, bool& handled) {
        handled = true;
        if (++errors != 1) return;
        std::unique_lock lock(m);
        held = true;
        changed.notify_all();
        changed.wait(lock, [&] { return released; });
    });
    TQAWaveFormatExtensible odd = kStereo44;
    odd.wBitsPerSample = 12;  // the open fails on the start worker
    TwoStreamsFromPulls streams;
    streams.Run(rig, odd);
    {
        std::unique_lock lock(m);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return held; }));
    }
    std::atomic<bool> closed{false};
    std::thread closer([&] {
        rig.Out->Close();
        closed = true;
    });
    {
        std::lock_guard lock(m);
        released = true;
        changed.notify_all();
    }
    closer.join();
    EXPECT_TRUE(closed);
    EXPECT_FALSE(rig.Out->IsOpen());
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    EXPECT_FALSE(rig.Out->Stats().DeviceOpen);
    EXPECT_EQ(errors, 1);
}

TEST(WaveOut, ClockPinTicksTheSamplesOfEveryFinishedBuffer) {
    Rig rig(/*paced=*/false);
    TOwned<TClockCounter> clock(TComponent::New<TClockCounter>(nullptr));
    ASSERT_TRUE(QWConnect(*rig.Out->ClockOutputPin(), *clock->In));
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 5, 10, sent);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return clock->Ticks == 5; }));
    EXPECT_EQ(clock->Samples, 5 * 480);
}

TEST(WaveOut, QueueEmptyIsRaisedOnTheMainThread) {
    Rig rig(/*paced=*/false);
    std::atomic<int> onMain{0};
    rig.Out->SetOnQueueEmpty([&](TObject* sender) {
        EXPECT_EQ(sender, rig.Out.get());
        if (mw::IsMainThread()) ++onMain;
        ++rig.QueueEmpty;
    });
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 2, 10, sent);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return rig.QueueEmpty > 0; }));
    EXPECT_EQ(onMain, rig.QueueEmpty);
}

TEST(WaveOut, FreedWhilePlayingLetsGoOfEverything) {
    TapRecorder tap;
    Rig rig;
    rig.Out->SetPrefillInterval(0);
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 10, 100, sent);
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() > 0; }));
    rig.Out.reset();  // buffers in flight, the device playing
    EXPECT_FALSE(rig.Source->Out->IsConnected());
    rig.Source->Submit(MakeBuffer(kStereo48, 480));  // nobody listens any more
}

TEST(WaveOut, FlushDropsWhatTheDeviceHoldsAndPrefillStartsOver) {
    TapRecorder tap;
    Rig rig;
    std::vector<uint8_t> dropped;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 2, 100, dropped);
    rig.Source->Send<TQWFlushStreamOperation>();
    ASSERT_TRUE(WaitUntil([&] { return rig.Out->BuffersInFlight() == 0; }));
    std::vector<uint8_t> sent;
    SubmitBuffers(*rig.Source, kStereo48, 2, 100, sent, 5);
    EXPECT_EQ(tap.Size(), 0u);  // 200 ms of a new 300 ms prefill
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == sent.size(); }));
    EXPECT_EQ(tap.Bytes(), sent);
}

}  // namespace
