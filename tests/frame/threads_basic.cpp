// TBasicThread: its loop, termination, lifetime, priorities, name and fatal exceptions.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>

#include "frame/Threads.h"
#include "tests/support/Wait.h"

using mw::test::WaitUntil;

namespace {

// A loop driven by a semaphore, as the system's device threads are.
class TCountingThread : public TBasicThread {
    MW_CLASS(TCountingThread, TBasicThread)
public:
    explicit TCountingThread(std::atomic<bool>* destroyed = nullptr, bool suspended = false)
        : TBasicThread(nullptr, "TCountingThread", suspended), FDestroyed(destroyed) {}
    ~TCountingThread() override {
        if (FDestroyed) *FDestroyed = true;
    }
    void Terminate() override {
        TBasicThread::Terminate();
        FSemaphore->ReleaseCount(1);
    }
    ComPtr<ISemaphore> FSemaphore = MwNew<TSemaphore>(0, 1000);
    std::atomic<int> Passes{0};
    std::atomic<bool> LoopEnded{false};

protected:
    void IntExecute() override {
        TBasicThread::IntExecute();
        LoopEnded = true;
    }
    void ExecuteLoop() override {
        FSemaphore->WaitFor(INFINITE);
        if (IsTerminated()) return;
        ++Passes;
    }

private:
    std::atomic<bool>* FDestroyed;
};

class TFailingThread : public TBasicThread {
    MW_CLASS(TFailingThread, TBasicThread)
public:
    TFailingThread() : TBasicThread(nullptr, "TFailingThread") {}

protected:
    void ExecuteLoop() override { throw std::runtime_error("loop failed"); }
};

// A thread that drops the last reference to itself from its own loop.
class TSelfReleasingThread : public TBasicThread {
    MW_CLASS(TSelfReleasingThread, TBasicThread)
public:
    explicit TSelfReleasingThread(std::atomic<bool>* destroyed)
        : TBasicThread(nullptr, "TSelfReleasing", true), FDestroyed(destroyed) {}
    ~TSelfReleasingThread() override { *FDestroyed = true; }
    ComPtr<IThread> Self;

protected:
    void ExecuteLoop() override { Self = nullptr; }

private:
    std::atomic<bool>* FDestroyed;
};

std::string ProcFile(DWORD tid, const char* name) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/" + name);
    std::string text;
    std::getline(in, text);
    return text;
}

}  // namespace

TEST(BasicThread, LoopRunsOncePerPassUntilTerminated) {
    ComPtr<TCountingThread> thread = MwNew<TCountingThread>();
    EXPECT_TRUE(thread->Started());
    thread->FSemaphore->ReleaseCount(3);
    EXPECT_TRUE(WaitUntil([&] { return thread->Passes == 3; }));
    EXPECT_FALSE(thread->IsTerminated());

    thread->Terminate();
    thread->WaitFor();
    EXPECT_TRUE(thread->IsTerminated());
    EXPECT_TRUE(thread->LoopEnded);
    EXPECT_TRUE(thread->Finished());
    EXPECT_EQ(thread->Passes, 3);
}

TEST(BasicThread, DroppingTheLastReferenceStopsTheThreadBeforeItReturns) {
    std::atomic<bool> destroyed{false};
    ComPtr<IThread> thread = MwNew<TCountingThread>(&destroyed);
    TCountingThread* raw = static_cast<TCountingThread*>(thread->GetInstance());
    EXPECT_TRUE(WaitUntil([&] { return raw->ThreadID() != 0; }));
    thread = nullptr;
    EXPECT_TRUE(destroyed);
}

TEST(BasicThread, ASuspendedThreadRunsOnlyOnceStarted) {
    ComPtr<TCountingThread> thread = MwNew<TCountingThread>(nullptr, true);
    thread->FSemaphore->ReleaseCount(1);
    EXPECT_FALSE(thread->Started());
    EXPECT_EQ(thread->Passes, 0);
    thread->Start();
    EXPECT_TRUE(WaitUntil([&] { return thread->Passes == 1; }));
}

TEST(BasicThread, TheLastReferenceMayBeDroppedOnTheThreadItself) {
    std::atomic<bool> destroyed{false};
    auto* thread = new TSelfReleasingThread(&destroyed);
    thread->Self = thread;
    thread->Start();
    EXPECT_TRUE(WaitUntil([&] { return destroyed.load(); }));
}

TEST(BasicThread, AnswersItsInterfacesAndItsInstance) {
    ComPtr<TCountingThread> thread = MwNew<TCountingThread>();
    ComPtr<IThread> asThread = thread.As<IThread>();
    ASSERT_TRUE(asThread);
    EXPECT_EQ(asThread->GetInstance(), thread.Get());
    ComPtr<IUnknown> unknown = thread.As<IUnknown>();
    EXPECT_TRUE(unknown);
    EXPECT_FALSE(thread.As<IProcessingThread>());
    EXPECT_TRUE(thread->Is<TBasicThread>());
    EXPECT_STREQ(thread->ClassName(), "TCountingThread");
}

TEST(BasicThread, PrioritiesAreKeptAndLowerOnesApplied) {
    ComPtr<TCountingThread> thread = MwNew<TCountingThread>();
    EXPECT_EQ(thread->GetPriority(), tpNormal);
    thread->SetPriority(tpHighest);  // without the right to raise, it is only kept
    EXPECT_EQ(thread->GetPriority(), tpHighest);
    thread->SetPriority(tpTimeCritical);
    EXPECT_EQ(thread->GetPriority(), tpTimeCritical);
    thread->SetPriority(static_cast<TThreadPriority>(42));
    EXPECT_EQ(thread->GetPriority(), tpTimeCritical);

    ASSERT_TRUE(WaitUntil([&] { return thread->ThreadID() != 0; }));
    thread->SetPriority(tpLowest);
    EXPECT_EQ(thread->GetPriority(), tpLowest);
    errno = 0;
    int processNice = getpriority(PRIO_PROCESS, 0);
    if (processNice <= 10) {
        EXPECT_EQ(getpriority(PRIO_PROCESS, thread->ThreadID()), 10);
    }
    thread->SetPriority(tpIdle);
    EXPECT_EQ(thread->GetPriority(), tpIdle);
    EXPECT_EQ(getpriority(PRIO_PROCESS, thread->ThreadID()), 19);
}

TEST(BasicThread, TheNameBecomesTheSystemThreadNameCutTo15Characters) {
    ComPtr<TCountingThread> thread = MwNew<TCountingThread>();
    ASSERT_TRUE(WaitUntil([&] { return thread->ThreadID() != 0; }));
    EXPECT_TRUE(
        WaitUntil([&] { return ProcFile(thread->ThreadID(), "comm") == "TCountingThread"; }));

    ComPtr<TBasicThread> longName = MwNew<TBasicThread>(nullptr, "TQAWaveThreadWithALongName");
    ASSERT_TRUE(WaitUntil([&] { return longName->ThreadID() != 0; }));
    EXPECT_TRUE(
        WaitUntil([&] { return ProcFile(longName->ThreadID(), "comm") == "TQAWaveThreadWi"; }));
}

TEST(BasicThread, AnExceptionEndsTheThreadAndIsKeptAndReported) {
    std::string reported;
    std::atomic<bool> handled{false};
    mw::SetThreadExceptionHandler([&](TThread& t, std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& x) {
            reported = t.ThreadName() + ": " + x.what();
        }
        handled = true;
    });
    ComPtr<TFailingThread> thread = MwNew<TFailingThread>();
    thread->WaitFor();
    mw::SetThreadExceptionHandler(nullptr);
    EXPECT_TRUE(handled);
    EXPECT_EQ(reported, "TFailingThread: loop failed");
    ASSERT_TRUE(thread->FatalException());
    EXPECT_THROW(std::rethrow_exception(thread->FatalException()), std::runtime_error);
}

TEST(BasicThread, WaitForOnTheThreadItselfReturnsAtOnce) {
    class TSelfWaitingThread : public TBasicThread {
    public:
        TSelfWaitingThread() : TBasicThread(nullptr, "TSelfWaiting") {}
        std::atomic<bool> Returned{false};

    protected:
        void ExecuteLoop() override {
            WaitFor();
            Returned = true;
            Terminate();
        }
    };
    ComPtr<TSelfWaitingThread> thread = MwNew<TSelfWaitingThread>();
    thread->WaitFor();
    EXPECT_TRUE(thread->Returned);
}
