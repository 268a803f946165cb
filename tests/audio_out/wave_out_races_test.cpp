// TQAAudioOut where operations meet: a close while a start waits for the stopped stream, a
// flush while a start waits, the pause and prefill state under concurrent pauses and flushes,
// and a second stream when nobody drains the main thread.
#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

#include "tests/audio_out/audio_out_test_support.h"
#include "winbase.h"

namespace {

using namespace mw::test::audio;
using mw::test::WaitUntil;

const TQAWaveFormatExtensible kStereo48 = mw::MakePcmWaveFormat(48000, 16, 2);
const TQAWaveFormatExtensible kStereo44 = mw::MakePcmWaveFormat(44100, 16, 2);

void Append(std::vector<uint8_t>& to, const ComPtr<IQSData>& data) {
    to.insert(to.end(), data->ReadPointer(), data->ReadPointer() + data->ByteSize());
}

void SubmitBuffers(TTestSource& source, const TQAWaveFormatExtensible& f, int count, uint32_t ms,
                   std::vector<uint8_t>& sent, uint32_t seed = 1) {
    for (int i = 0; i < count; ++i) {
        ComPtr<IQSData> b = MakeBuffer(f, Frames(f, ms), seed + i);
        Append(sent, b);
        source.Submit(b);
    }
}

// Polls without running the main thread's queue: the program under test never drains it.
bool WaitWithoutDraining(const std::function<bool()>& cond) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// A thread that runs one job and tells whether it is done.
class Worker {
public:
    explicit Worker(std::function<void()> job)
        : FThread([this, job = std::move(job)] {
              job();
              FDone = true;
          }) {}
    ~Worker() {
        if (FThread.joinable()) FThread.join();
    }
    bool Done() const { return FDone; }
    void Join() { FThread.join(); }

private:
    std::atomic<bool> FDone{false};
    std::thread FThread;
};

// A clock sink that holds the wave thread inside the tick of buffer number HoldAt until Release.
class TTickGate : public TLockComponent {
    MW_CLASS(TTickGate, TLockComponent)
public:
    explicit TTickGate(TComponent* owner) : TLockComponent(owner) {
        In = std::make_unique<TQWClockMultiSinkPin>(
            this, ComponentLock(), [this](TQWClockMultiSinkPin*, TQWBasicPin*, int) {
                std::unique_lock lock(FMutex);
                if (++FTicks != HoldAt) return;
                FHeld = true;
                FChanged.notify_all();
                FChanged.wait(lock, [this] { return FReleased; });
            });
        In->SetName("In");
    }
    bool Held() {
        std::lock_guard lock(FMutex);
        return FHeld;
    }
    void Release() {
        std::lock_guard lock(FMutex);
        FReleased = true;
        FChanged.notify_all();
    }
    std::unique_ptr<TQWClockMultiSinkPin> In;
    int HoldAt = 0;

private:
    std::mutex FMutex;
    std::condition_variable FChanged;
    int FTicks = 0;
    bool FHeld = false;
    bool FReleased = false;
};

TEST(WaveOutRaces, CloseWhileAStartWaitsForTheStoppedStreamLeavesNothingOpen) {
    Rig rig;
    rig.Out->SetPrefillInterval(0);
    TOwned<TTickGate> gate(TComponent::New<TTickGate>(nullptr));
    gate->HoldAt = 2;
    ASSERT_TRUE(QWConnect(*rig.Out->ClockOutputPin(), *gate->In));
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 2, 20, sent);
    rig.Source->Stop();
    // The wave thread is inside the last buffer of the stopped stream: the device still holds it.
    ASSERT_TRUE(WaitUntil([&] { return gate->Held(); }));
    ASSERT_EQ(rig.Out->BuffersInFlight(), 1);

    // The next stream's start waits in the queue for the stopped one to play out; its sender
    // goes on at once...
    Worker sender([&] {
        std::vector<uint8_t> next;
        rig.Source->Start(kStereo44);
        SubmitBuffers(*rig.Source, kStereo44, 1, 20, next, 9);
        rig.Source->Stop();
    });
    ASSERT_TRUE(WaitUntil([&] { return sender.Done(); }));
    EXPECT_EQ(rig.Out->BuffersInFlight(), 1);
    // ...when the application closes the output, which waits for the wave thread.
    Worker closer([&] { rig.Out->Close(); });
    ASSERT_TRUE(WaitUntil([&] { return rig.Out->StopsRunning() > 0; }));
    gate->Release();
    ASSERT_TRUE(WaitUntil([&] { return closer.Done(); }));
    EXPECT_FALSE(rig.Out->IsOpen());
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    EXPECT_FALSE(rig.Out->Stats().DeviceOpen);
    // Nothing reopens it later either, from a start worker or through the main thread.
    Application::ProcessMessages();
    EXPECT_FALSE(rig.Out->IsOpen());
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    EXPECT_TRUE(rig.ErrorList().empty());
}

// A pulled source: stream A (6 x 200 ms at 48 kHz) and its stop from the pulls, then, at the
// next pull (on the wave thread, while A still plays), the start of B at 44.1 kHz with two
// buffers.
struct StreamThenWaitingStart {
    std::recursive_mutex M;
    std::vector<uint8_t> SentA, SentBBeforeFlush;
    int BuffersA = 0;
    bool StoppedA = false, StartedB = false;

    void Run(Rig& rig) {
        rig.Source->SetOnPump([this, &rig] {
            std::lock_guard lock(M);
            if (BuffersA == 0) rig.Source->Start(kStereo48);
            if (BuffersA < 6) {
                SubmitBuffers(*rig.Source, kStereo48, 1, 200, SentA, 100 + BuffersA++);
            } else if (!StoppedA) {
                StoppedA = true;
                rig.Source->Stop();
            } else if (!StartedB) {
                StartedB = true;
                rig.Source->Start(kStereo44);
                SubmitBuffers(*rig.Source, kStereo44, 2, 50, SentBBeforeFlush, 200);
            }
        });
        ComPtr<TQWPumpRequestOperation> request = MwNew<TQWPumpRequestOperation>();
        rig.Source->Send(ComPtr<IQWNotifyOperation>(request.Get()));
        ASSERT_EQ(request->Master, rig.Out.get());
        rig.Source->Send<TQWStartPumpOperation>();
    }
    bool BStarted() {
        std::lock_guard lock(M);
        return StartedB;
    }
};

TEST(WaveOutRaces, FlushKeepsAStartThatWaitsForTheStoppedStream) {
    TapRecorder tap;
    Rig rig;
    StreamThenWaitingStart streams;
    streams.Run(rig);
    ASSERT_TRUE(WaitUntil([&] { return streams.BStarted(); }));
    rig.Source->Send<TQWFlushStreamOperation>();
    std::vector<uint8_t> after;
    SubmitBuffers(*rig.Source, kStereo44, 3, 50, after, 300);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] {
        const std::vector<uint8_t> bytes = tap.Bytes();
        return bytes.size() >= after.size() &&
               std::equal(after.begin(), after.end(), bytes.end() - after.size());
    }));
    ASSERT_TRUE(WaitUntil([&] { return rig.Out->BuffersInFlight() == 0; }));
    // The new stream played in its own format, on its own device.
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{48000, 44100}));
    TQAWaveFormatExtensible current;
    ASSERT_TRUE(rig.Out->CurrentFormat(current));
    EXPECT_EQ(current.nSamplesPerSec, 44100u);
    // Before the new buffers only A was heard (what of it had played): the buffers queued
    // before the flush were dropped.
    std::lock_guard lock(streams.M);
    const std::vector<uint8_t> bytes = tap.Bytes();
    const size_t before = bytes.size() - after.size();
    ASSERT_LE(before, streams.SentA.size());
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + before, streams.SentA.begin()));
    EXPECT_TRUE(rig.ErrorList().empty());
}

// Flushes and resumes on one thread while buffers cross the prefill on another: whatever the
// order, a resume and a buffer afterwards are heard, because the output's belief about the
// device (paused or running) matches the device. A stress test: an interleaving that breaks
// this is rare on each round.
TEST(WaveOutRaces, FlushAndPrefillEndAgreeWithTheDevice) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    rig.Out->SetPrefillInterval(10);
    for (int round = 0; round < 40; ++round) {
        std::vector<uint8_t> ignored;
        rig.Source->Start(kStereo48);
        Worker other([&] {
            for (int i = 0; i < 20; ++i) {
                rig.Source->Send<TQWFlushStreamOperation>();
                rig.Source->Send<TQWQSResumeOperation>();
            }
        });
        for (int i = 0; i < 20; ++i)
            SubmitBuffers(*rig.Source, kStereo48, 1, 5, ignored, i);
        other.Join();
        // Settled: a resume and a buffer past the prefill must play.
        rig.Source->Send<TQWQSResumeOperation>();
        const size_t heard = tap.Size();
        std::vector<uint8_t> sent;
        SubmitBuffers(*rig.Source, kStereo48, 1, 20, sent, 1000 + round);
        ASSERT_TRUE(WaitUntil([&] { return tap.Size() >= heard + sent.size(); }))
            << "round " << round;
        rig.Source->Stop();
        ASSERT_TRUE(WaitUntil([&] { return rig.Out->BuffersInFlight() == 0; }));
    }
}

// The application sends two streams one after the other from its main thread and then only
// waits, without draining the main thread's queue.
TEST(WaveOutRaces, SecondStreamPlaysWithoutTheMainThreadBeingDrained) {
    TapRecorder tap;
    Rig rig;
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    SubmitBuffers(*rig.Source, kStereo48, 3, 50, sent);
    rig.Source->Stop();
    rig.Source->Start(kStereo44);
    SubmitBuffers(*rig.Source, kStereo44, 3, 50, sent, 11);
    rig.Source->Stop();
    ASSERT_TRUE(WaitWithoutDraining([&] { return tap.Size() == sent.size(); }));
    EXPECT_EQ(tap.Bytes(), sent);
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{48000, 44100}));
}

TEST(WaveOutRaces, SecondStreamFromAWorkerThreadPlaysWithoutTheMainThread) {
    TapRecorder tap;
    Rig rig;
    std::vector<uint8_t> sent;
    Worker sender([&] {
        rig.Source->Start(kStereo48);
        SubmitBuffers(*rig.Source, kStereo48, 3, 50, sent);
        rig.Source->Stop();
        rig.Source->Start(kStereo44);
        SubmitBuffers(*rig.Source, kStereo44, 3, 50, sent, 11);
        rig.Source->Stop();
    });
    ASSERT_TRUE(WaitWithoutDraining([&] { return sender.Done(); }));
    ASSERT_TRUE(WaitWithoutDraining([&] { return tap.Size() == sent.size(); }));
    EXPECT_EQ(tap.Bytes(), sent);
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{48000, 44100}));
}

}  // namespace
