// TCriticalSection, TLockAccess, TEvent and TSemaphore.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "frame/Threads.h"
#include "tests/support/Wait.h"

using mw::test::WaitUntil;

namespace {
bool OtherThreadCanEnter(TCriticalSection& cs) {
    bool entered = false;
    std::thread([&] {
        entered = cs.TryEnter();
        if (entered) cs.Leave();
    }).join();
    return entered;
}
}  // namespace

TEST(CriticalSection, LockAccessLeavesTheSectionAlsoWhenTheClosureThrows) {
    ComPtr<TCriticalSection> cs = MwNew<TCriticalSection>();
    ComPtr<ICriticalSection> section = cs;
    EXPECT_EQ(section->Access().Execute([&] { return OtherThreadCanEnter(*cs) ? 1 : 2; }), 2);
    EXPECT_THROW(section->Access().Execute([] { throw std::runtime_error("x"); }),
                 std::runtime_error);
    EXPECT_TRUE(OtherThreadCanEnter(*cs));
}

TEST(CriticalSection, IsRecursiveForItsOwner) {
    ComPtr<TCriticalSection> cs = MwNew<TCriticalSection>();
    cs->Enter();
    cs->Access().Execute([&] { EXPECT_FALSE(OtherThreadCanEnter(*cs)); });
    EXPECT_FALSE(OtherThreadCanEnter(*cs));
    cs->Leave();
    EXPECT_TRUE(OtherThreadCanEnter(*cs));
}

TEST(Semaphore, ReleasesPastTheMaximumAreRefusedAndChangeNothing) {
    ComPtr<ISemaphore> sem = MwNew<TSemaphore>(1, 3);
    EXPECT_FALSE(sem->ReleaseCount(3));
    EXPECT_TRUE(sem->ReleaseCount(2));
    EXPECT_FALSE(sem->ReleaseCount(1));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(sem->WaitFor(0), wrSignaled) << i;
    EXPECT_EQ(sem->WaitFor(0), wrTimeout);
    EXPECT_EQ(sem->WaitFor(10), wrTimeout);
}

TEST(Semaphore, PlatformCodeSignalsItThroughItsHandle) {
    ComPtr<ISemaphore> sem = MwNew<TSemaphore>(0, 10);
    std::atomic<int> taken{0};
    std::thread waiter([&] {
        for (int i = 0; i < 5; ++i)
            if (sem->WaitFor(INFINITE) == wrSignaled) ++taken;
    });
    LONG previous = -1;
    ASSERT_TRUE(ReleaseSemaphore(sem->Handle(), 5, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_TRUE(WaitUntil([&] { return taken == 5; }));
    waiter.join();
}

TEST(Semaphore, ImpossibleCountsGiveASemaphoreThatFails) {
    ComPtr<ISemaphore> sem = MwNew<TSemaphore>(5, 2);
    EXPECT_EQ(sem->Handle(), nullptr);
    EXPECT_FALSE(sem->ReleaseCount(1));
    EXPECT_EQ(sem->WaitFor(0), wrError);
}

TEST(Event, ManualResetStaysSetAndAutoResetIsTakenByOneWait) {
    ComPtr<IEvent> manual = MwNew<TEvent>(TEventResetMode::Manual, true);
    EXPECT_EQ(manual->WaitFor(0), wrSignaled);
    EXPECT_EQ(manual->WaitFor(0), wrSignaled);
    manual->ResetEvent();
    EXPECT_EQ(manual->WaitFor(0), wrTimeout);

    ComPtr<IEvent> automatic = MwNew<TEvent>();
    EXPECT_EQ(automatic->WaitFor(0), wrTimeout);
    automatic->SetEvent();
    EXPECT_EQ(automatic->WaitFor(0), wrSignaled);
    EXPECT_EQ(automatic->WaitFor(0), wrTimeout);
}

TEST(Event, AWaiterWakesWhenThePlatformSetsTheHandle) {
    ComPtr<IEvent> event = MwNew<TEvent>(TEventResetMode::Auto, false);
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = event->WaitFor(INFINITE); });
    ASSERT_TRUE(SetEvent(event->Handle()));
    EXPECT_TRUE(WaitUntil([&] { return result != -1; }));
    EXPECT_EQ(result, wrSignaled);
    waiter.join();
}

TEST(Event, HandlesCloseWithTheirObject) {
    HANDLE h;
    {
        ComPtr<IEvent> event = MwNew<TEvent>();
        h = event->Handle();
        EXPECT_TRUE(SetEvent(h));
    }
    EXPECT_FALSE(SetEvent(h));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}
