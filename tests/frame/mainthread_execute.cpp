// MainThreadExecute, dropping calls of an owner, and the Application loop.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "frame/MainThread.h"
#include "frame/Threads.h"
#include "tests/support/Wait.h"
#include "winuser.h"

using mw::test::WaitUntil;

namespace {

class TOwner : public TObject {};

// Waits, without draining, until another thread has queued main-thread work.
bool WaitForQueued() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (mw::MainLoop::PendingCount() == 0 && std::chrono::steady_clock::now() < deadline)
        mw::MainLoop::WaitForWork(100);
    return mw::MainLoop::PendingCount() != 0;
}

}  // namespace

TEST(MainThreadExecute, FromAWorkerRunsOnTheMainThreadInOrder) {
    std::vector<int> order;  // touched on the main thread only
    std::atomic<int> offMain{0};
    std::thread worker([&] {
        for (int i = 0; i < 100; ++i)
            EXPECT_TRUE(MainThreadExecute(
                nullptr, false,
                [&, i] {
                    if (!mw::IsMainThread()) ++offMain;
                    order.push_back(i);
                },
                false));
    });
    EXPECT_TRUE(WaitUntil([&] { return order.size() == 100; }));
    worker.join();
    EXPECT_EQ(offMain, 0);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[i], i);
}

TEST(MainThreadExecute, OnTheMainThreadRunsAtOnceUnlessDeferred) {
    int runs = 0;
    EXPECT_TRUE(MainThreadExecute(
        nullptr, true, [&] { ++runs; }, false));
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(MainThreadExecute(
        nullptr, false, [&] { ++runs; }, false));
    EXPECT_EQ(runs, 2);
    EXPECT_TRUE(MainThreadExecute(
        nullptr, true, [&] { ++runs; }, true));  // waiting wins
    EXPECT_EQ(runs, 3);

    EXPECT_TRUE(MainThreadExecute(
        nullptr, false, [&] { ++runs; }, true));
    EXPECT_EQ(runs, 3);
    Application::ProcessMessages();
    EXPECT_EQ(runs, 4);
}

TEST(MainThreadExecute, ASynchronousCallFromAWorkerReturnsAfterTheClosureRan) {
    std::atomic<int> value{0};
    std::atomic<int> seenAfterReturn{-1};
    std::atomic<bool> ran{false};
    std::thread worker([&] {
        ran = MainThreadExecute(
            nullptr, true, [&] { value = mw::IsMainThread() ? 7 : 1; }, false);
        seenAfterReturn = value.load();
    });
    EXPECT_TRUE(WaitUntil([&] { return seenAfterReturn != -1; }));
    worker.join();
    EXPECT_TRUE(ran);
    EXPECT_EQ(seenAfterReturn, 7);
}

TEST(MainThreadExecute, AnExceptionOfASynchronousCallReachesTheCaller) {
    std::string caught;
    std::atomic<bool> done{false};
    std::thread worker([&] {
        try {
            MainThreadExecute(
                nullptr, true, [] { throw std::runtime_error("main failed"); }, false);
        } catch (const std::runtime_error& e) {
            caught = e.what();
        }
        done = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    worker.join();
    EXPECT_EQ(caught, "main failed");
}

TEST(MainThreadExecute, CancellingAnOwnersCallsReleasesItsWaitingCaller) {
    Application::ProcessMessages();  // WaitForQueued below must see the worker's call
    TOwner owner, other;
    std::atomic<bool> ownerRan{false}, otherRan{false};
    std::atomic<int> answer{-1};
    std::thread worker([&] {
        answer = MainThreadExecute(
                     &owner, true, [&] { ownerRan = true; }, false)
                     ? 1
                     : 0;
    });
    ASSERT_TRUE(WaitForQueued());
    MainThreadExecute(
        &other, false, [&] { otherRan = true; }, true);

    mw::CancelMainThreadCalls(&owner);
    worker.join();
    EXPECT_EQ(answer, 0);
    Application::ProcessMessages();
    EXPECT_FALSE(ownerRan);
    EXPECT_TRUE(otherRan);
}

TEST(MainThreadExecute, ABlockedOwnerHasItsCallsRefusedAtOnce) {
    TOwner owner;
    int runs = 0;
    {
        mw::MainThreadCallBlock block(&owner);
        bool answer = true;
        std::thread([&] {
            answer = MainThreadExecute(
                &owner, true, [&] { ++runs; }, false);
        }).join();
        EXPECT_FALSE(answer);
        EXPECT_FALSE(MainThreadExecute(
            &owner, false, [&] { ++runs; }, false));
        EXPECT_TRUE(MainThreadExecute(
            nullptr, false, [&] { ++runs; }, false));
    }
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(MainThreadExecute(
        &owner, false, [&] { ++runs; }, false));
    EXPECT_EQ(runs, 2);
}

// The main thread waits for a worker that is itself waiting for the main thread.
TEST(MainThreadExecute, WaitingForAThreadOnTheMainThreadServesItsSynchronousCalls) {
    class TCallingThread : public TBasicThread {
    public:
        TCallingThread() : TBasicThread(nullptr, "TCallingThread") {}
        std::atomic<int> Calls{0};

    protected:
        void ExecuteLoop() override {
            MainThreadExecute(
                this, true, [this] { ++Calls; }, false);
            if (Calls == 3) Terminate();
        }
    };
    ComPtr<TCallingThread> thread = MwNew<TCallingThread>();
    thread->WaitFor();
    EXPECT_EQ(thread->Calls, 3);
}

TEST(Application, RunServesQueuedWorkUntilTerminated) {
    std::atomic<int> runs{0};
    std::thread worker([&] {
        for (int i = 0; i < 10; ++i)
            MainThreadExecute(
                nullptr, false, [&] { ++runs; }, false);
        MainThreadExecute(
            nullptr, false, [] { Application::Terminate(); }, false);
    });
    Application::Run();
    worker.join();
    EXPECT_EQ(runs, 10);
    EXPECT_FALSE(Application::Terminated());  // the request was taken by Run
}

TEST(Application, TerminateFromAnotherThreadEndsRun) {
    std::thread worker([] { Application::Terminate(); });
    Application::Run();
    worker.join();
}

TEST(Application, HandleMessageWaitsForOneItemAndRunsIt) {
    Application::ProcessMessages();
    int runs = 0;
    std::thread worker([&] {
        MainThreadExecute(
            nullptr, false, [&] { ++runs; }, false);
    });
    Application::HandleMessage();
    EXPECT_EQ(runs, 1);
    worker.join();
}

TEST(Application, ExceptionsOfQueuedClosuresGoToItsHandler) {
    std::string caught;
    Application::SetOnException([&](std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& x) {
            caught = x.what();
        }
    });
    std::thread([] {
        MainThreadExecute(
            nullptr, false, [] { throw std::runtime_error("queued failed"); }, false);
    }).join();
    Application::ProcessMessages();
    Application::SetOnException(nullptr);
    EXPECT_EQ(caught, "queued failed");
}

TEST(Application, ExceptionsOfNonWaitingCallsOnTheMainThreadGoToItsHandlerToo) {
    std::vector<std::string> caught;
    Application::SetOnException([&](std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& x) {
            caught.push_back(x.what());
        }
    });
    bool ran = false;
    EXPECT_NO_THROW(MainThreadExecute(
        nullptr, false,
        [&] {
            ran = true;
            throw std::runtime_error("at once failed");
        },
        false));
    EXPECT_TRUE(ran) << "run at once on the main thread";
    // A waiting call still hands its exception to the caller.
    EXPECT_THROW(MainThreadExecute(
                     nullptr, true, [] { throw std::runtime_error("waited failed"); }, false),
                 std::runtime_error);
    Application::SetOnException(nullptr);
    EXPECT_EQ(caught, (std::vector<std::string>{"at once failed"}));
}
