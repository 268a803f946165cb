// TProcessingThread: one run of its closure per wake-up, on the worker.
#include <gtest/gtest.h>

#include <atomic>

#include "frame/Threads.h"
#include "tests/support/Wait.h"

using mw::test::WaitUntil;

TEST(ProcessingThread, RunsTheClosureOnTheWorkerOncePerWakeUp) {
    std::atomic<int> runs{0};
    std::atomic<DWORD> ranOn{0};
    std::atomic<IProcessingThread*> passed{nullptr};
    ComPtr<IProcessingThread> thread =
        MwNew<TProcessingThread>(nullptr, [&](IProcessingThread* self) {
            passed = self;
            ranOn = GetCurrentThreadId();
            ++runs;
        });
    thread->WakeUp();
    EXPECT_TRUE(WaitUntil([&] { return runs >= 1; }));
    EXPECT_EQ(runs, 1);
    thread->WakeUp();
    EXPECT_TRUE(WaitUntil([&] { return runs >= 2; }));
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(passed.load(), thread.Get());
    EXPECT_NE(ranOn, GetCurrentThreadId());
    EXPECT_EQ(ranOn, thread->GetInstance()->ThreadID());
}

TEST(ProcessingThread, AWakeUpDuringARunCausesAnotherRun) {
    ComPtr<IEvent> gate = MwNew<TEvent>(TEventResetMode::Manual, false);
    std::atomic<int> started{0}, finished{0};
    ComPtr<IProcessingThread> thread = MwNew<TProcessingThread>(nullptr, [&](IProcessingThread*) {
        ++started;
        gate->WaitFor(INFINITE);
        ++finished;
    });
    thread->WakeUp();
    ASSERT_TRUE(WaitUntil([&] { return started == 1; }));
    thread->WakeUp();  // arrives while the first run is blocked
    thread->WakeUp();
    gate->SetEvent();
    EXPECT_TRUE(WaitUntil([&] { return finished >= 2; }));
    EXPECT_EQ(started, finished.load());
}

TEST(ProcessingThread, StopsWhenTheLastReferenceGoesAndRunsNothingAfter) {
    std::atomic<int> runs{0};
    ComPtr<IProcessingThread> thread =
        MwNew<TProcessingThread>(nullptr, [&](IProcessingThread*) { ++runs; });
    TBasicThread* instance = thread->GetInstance();
    ASSERT_TRUE(WaitUntil([&] { return instance->ThreadID() != 0; }));
    thread = nullptr;  // terminates and waits for the worker
    EXPECT_EQ(runs, 0);
}

TEST(ProcessingThread, TerminateEndsTheWorkerWithoutARun) {
    std::atomic<int> runs{0};
    ComPtr<IProcessingThread> thread =
        MwNew<TProcessingThread>(nullptr, [&](IProcessingThread*) { ++runs; });
    thread->GetInstance()->Terminate();
    thread->WaitFor();
    EXPECT_TRUE(thread->GetInstance()->Finished());
    thread->WakeUp();
    EXPECT_EQ(runs, 0);
}

TEST(ProcessingThread, IsFoundAsAnIThreadAndBack) {
    ComPtr<IProcessingThread> thread = MwNew<TProcessingThread>(nullptr, [](IProcessingThread*) {});
    ComPtr<IThread> asThread = thread.As<IThread>();
    ASSERT_TRUE(asThread);
    ComPtr<IProcessingThread> back = asThread.As<IProcessingThread>();
    EXPECT_EQ(back.Get(), thread.Get());
    asThread->SetPriority(tpHigher);
    EXPECT_EQ(thread->GetPriority(), tpHigher);
}
