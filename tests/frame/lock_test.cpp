// The component lock: shared and exclusive holds, re-entry, temporary release.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "frame/ChangeNotifyLock.h"
#include "tests/support/Wait.h"

using mw::test::WaitUntil;

namespace {

TEST(ComponentLock, ExclusiveHoldKeepsOtherThreadsOut) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    std::atomic<bool> trying{false}, got{false};
    TLockGuard w = lock->AcquireWrite();
    std::thread t([&] {
        trying = true;
        TLockGuard r = lock->AcquireRead();
        got = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return trying.load(); }));
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
        ASSERT_FALSE(got.load()) << "a reader got in past the writer";
    }
    w.Release();
    t.join();
    EXPECT_TRUE(got.load());
}

TEST(ComponentLock, SameThreadNestsReadsAndWritesInAnyOrder) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    {
        TLockGuard w = lock->AcquireWrite();
        TLockGuard r = lock->AcquireRead();
        TLockGuard w2 = lock->AcquireWrite();
        EXPECT_TRUE(lock->IsWrittenByCurrentThread());
    }
    {
        TLockGuard r = lock->AcquireRead();  // sole reader may take the write hold
        TLockGuard w = lock->AcquireWrite();
        EXPECT_TRUE(lock->IsWrittenByCurrentThread());
    }
    EXPECT_FALSE(lock->IsHeldByCurrentThread());
}

TEST(ComponentLock, ReaderReentersWhileAWriterWaits) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    TLockGuard r = lock->AcquireRead();
    std::atomic<bool> wrote{false};
    std::thread writer([&] {
        TLockGuard w = lock->AcquireWrite();
        wrote = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return lock->WaitingWriters() == 1; }));
    {
        TLockGuard again = lock->AcquireRead();  // would deadlock if waiting writers went first
        EXPECT_FALSE(wrote.load());
    }
    r.Release();
    writer.join();
    EXPECT_TRUE(wrote.load());
}

TEST(ComponentLock, ExecuteUnlockedLetsAnotherThreadTakeTheLock) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    TLockGuard w = lock->AcquireWrite();
    TLockGuard r = lock->AcquireRead();
    std::atomic<bool> otherHadIt{false};
    std::thread other;
    lock->ExecuteUnlocked([&] {
        EXPECT_FALSE(lock->IsHeldByCurrentThread());
        other = std::thread([&] {
            TLockGuard g = lock->AcquireWrite();
            otherHadIt = true;
        });
        // A blocking call here must not keep the other thread from the lock.
        ASSERT_TRUE(WaitUntil([&] { return otherHadIt.load(); }));
        other.join();
    });
    EXPECT_TRUE(otherHadIt.load());
    EXPECT_TRUE(lock->IsWrittenByCurrentThread()) << "the holds come back after the closure";
    r.Release();
    EXPECT_TRUE(lock->IsWrittenByCurrentThread()) << "both holds came back, not just one";
    w.Release();
    EXPECT_FALSE(lock->IsHeldByCurrentThread());
}

TEST(ComponentLock, ExecuteUnlockedRestoresHoldsWhenTheClosureThrows) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    TLockGuard w = lock->AcquireWrite();
    EXPECT_THROW(lock->ExecuteUnlocked([] { throw std::runtime_error("boom"); }),
                 std::runtime_error);
    EXPECT_TRUE(lock->IsWrittenByCurrentThread());
}

TEST(ComponentLock, ReleaseTemporarilyLastsForTheGuard) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    TLockGuard r = lock->AcquireRead();
    {
        TLockGuard away = lock->ReleaseTemporarily();
        EXPECT_FALSE(lock->IsHeldByCurrentThread());
        std::thread([&] { TLockGuard w = lock->AcquireWrite(); }).join();
    }
    EXPECT_TRUE(lock->IsHeldByCurrentThread());
}

TEST(ComponentLock, ManyThreadsCountUnderTheWriteLock) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    int counter = 0;  // guarded by the lock only: TSan checks the exclusion
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                TLockGuard w = lock->AcquireWrite();
                TLockGuard nested = lock->AcquireRead();
                ++counter;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(counter, 8000);
}

TEST(ComponentLock, TwoReadersAskingToWriteDoNotHangTheSecondIsRefused) {
    // Leaked on purpose: if the two threads hung, they would outlive the test.
    auto* lock = new ComPtr<TBasicLockChangeNotifyLock>(MwNew<TBasicLockChangeNotifyLock>());
    TBasicLockChangeNotifyLock* l = lock->Get();
    std::atomic<int> reading{0};
    std::atomic<bool> firstWrote{false}, secondRefused{false}, secondDone{false};
    std::thread first([&] {
        TLockGuard r = l->AcquireRead();
        ++reading;
        while (reading.load() < 2)
            std::this_thread::yield();
        TLockGuard w = l->AcquireWrite();
        firstWrote = true;
    });
    std::thread second([&] {
        TLockGuard r = l->AcquireRead();
        ++reading;
        // Upgrade only once the first thread waits to upgrade.
        while (l->WaitingWriters() == 0)
            std::this_thread::yield();
        try {
            TLockGuard w = l->AcquireWrite();
        } catch (const ELockError& e) {
            secondRefused = std::string(e.what()).find("Assertion failure") == 0;
        }
        secondDone = true;
    });
    if (!WaitUntil([&] { return secondDone.load() && firstWrote.load(); },
                   std::chrono::seconds(10))) {
        first.detach();
        second.detach();
        FAIL() << "the two upgrading threads hang";
    }
    first.join();
    second.join();
    EXPECT_TRUE(secondRefused.load());
    delete lock;
}

}  // namespace
