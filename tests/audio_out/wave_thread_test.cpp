// The wave device thread: what the device's callback queues, and what reaches the owner.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "audio_out/QAWaveThread.h"
#include "tests/support/Wait.h"

namespace {

using mw::test::WaitUntil;

struct Delivered {
    std::mutex Mutex;
    std::vector<WAVEHDR*> Headers;
    std::vector<uint32_t> Messages;
    size_t Count() {
        std::lock_guard lock(Mutex);
        return Headers.size();
    }
};

ComPtr<TQAWaveThread> MakeThread(Delivered& d, std::function<void()> inside = {}) {
    return MwNew<TQAWaveThread>(nullptr, [&d, inside](uint32_t uMsg, HWAVEOUT, WAVEHDR* header) {
        {
            std::lock_guard lock(d.Mutex);
            d.Headers.push_back(header);
            d.Messages.push_back(uMsg);
        }
        if (inside) inside();
    });
}

TEST(WaveThread, DeliversRecordsInOrderAtHighestPriority) {
    Delivered d;
    ComPtr<TQAWaveThread> thread = MakeThread(d);
    EXPECT_EQ(thread->GetPriority(), tpHighest);
    WAVEHDR h[3]{};
    WaveCallback(nullptr, WOM_OPEN, thread->Instance(), 0, 0);
    for (WAVEHDR& hdr : h)
        WaveCallback(nullptr, WOM_DONE, thread->Instance(), reinterpret_cast<DWORD_PTR>(&hdr), 0);
    ASSERT_TRUE(WaitUntil([&] { return d.Count() == 4; }));
    std::lock_guard lock(d.Mutex);
    EXPECT_EQ(d.Messages, (std::vector<uint32_t>{WOM_OPEN, WOM_DONE, WOM_DONE, WOM_DONE}));
    EXPECT_EQ(d.Headers, (std::vector<WAVEHDR*>{nullptr, &h[0], &h[1], &h[2]}));
}

TEST(WaveThread, ZeroOrStaleInstanceRecordsNothing) {
    Delivered d;
    ComPtr<TQAWaveThread> thread = MakeThread(d);
    WAVEHDR probe{}, stale{}, marker{};
    WaveCallback(nullptr, WOM_DONE, 0, reinterpret_cast<DWORD_PTR>(&probe), 0);
    DWORD_PTR goneInstance;
    {
        Delivered other;
        ComPtr<TQAWaveThread> gone = MakeThread(other);
        goneInstance = gone->Instance();
    }
    WaveCallback(nullptr, WOM_DONE, goneInstance, reinterpret_cast<DWORD_PTR>(&stale), 0);
    WaveCallback(nullptr, WOM_DONE, thread->Instance(), reinterpret_cast<DWORD_PTR>(&marker), 0);
    // Records arrive in order: once the marker is here, the others would have been too.
    ASSERT_TRUE(WaitUntil([&] { return d.Count() >= 1; }));
    std::lock_guard lock(d.Mutex);
    EXPECT_EQ(d.Headers, std::vector<WAVEHDR*>{&marker});
}

TEST(WaveThread, RecordPushedAfterTerminationIsNotQueued) {
    Delivered d;
    ComPtr<TQAWaveThread> thread = MakeThread(d);
    thread->Terminate();
    WAVEHDR h{};
    thread->PushRecord(WOM_DONE, nullptr, &h);
    WaveCallback(nullptr, WOM_DONE, thread->Instance(), reinterpret_cast<DWORD_PTR>(&h), 0);
    uint32_t msg;
    HWAVEOUT hwo;
    WAVEHDR* header;
    EXPECT_FALSE(thread->PopRecord(msg, hwo, header));
    EXPECT_EQ(d.Count(), 0u);
}

TEST(WaveThread, ClearedRecordsWakeTheThreadButAreNeverDelivered) {
    Delivered d;
    ComPtr<TQAWaveThread> thread = MakeThread(d);
    WAVEHDR cleared[3]{}, marker{};
    thread->Lock();  // the thread can't pop while the section is held
    for (WAVEHDR& h : cleared)
        thread->PushRecord(WOM_DONE, nullptr, &h);
    thread->ClearRecords();
    thread->Unlock();
    thread->PushRecord(WOM_DONE, nullptr, &marker);
    ASSERT_TRUE(WaitUntil([&] { return d.Count() >= 1; }));
    std::lock_guard lock(d.Mutex);
    EXPECT_EQ(d.Headers, std::vector<WAVEHDR*>{&marker});
}

TEST(WaveThread, RecordsQueuedAtTerminationAreFreedUndelivered) {
    std::atomic<bool> release{false};
    std::atomic<bool> inside{false};
    Delivered d;
    ComPtr<TQAWaveThread> thread = MakeThread(d, [&] {
        inside = true;
        while (!release)
            std::this_thread::yield();
    });
    WAVEHDR h[3]{};
    thread->PushRecord(WOM_DONE, nullptr, &h[0]);
    ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));
    thread->PushRecord(WOM_DONE, nullptr, &h[1]);
    thread->PushRecord(WOM_DONE, nullptr, &h[2]);
    std::thread terminator([&] { thread->Terminate(); });
    ASSERT_TRUE(WaitUntil([&] { return thread->IsTerminated(); }));
    release = true;
    terminator.join();
    EXPECT_TRUE(thread->Finished());
    std::lock_guard lock(d.Mutex);
    EXPECT_EQ(d.Headers, std::vector<WAVEHDR*>{&h[0]});
}

}  // namespace
