// Events, semaphores, waits, invalid handles and critical sections of platform/win.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Wait.h"
#include "winbase.h"

using mw::test::ThreadIsBlocked;
using mw::test::WaitUntil;

namespace {

// A wait that a test expects to end long before: a regression fails the test, not hangs it.
constexpr DWORD kCeilingMs = 20000;

struct Handle {
    HANDLE h;
    explicit Handle(HANDLE value) : h(value) {}
    ~Handle() {
        if (h) CloseHandle(h);
    }
};

}  // namespace

TEST(WinEvent, ManualResetReleasesEveryWaiterAndStaysSetUntilReset) {
    Handle event(CreateEvent(nullptr, TRUE, FALSE, nullptr));
    ASSERT_NE(event.h, nullptr);
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_TIMEOUT);

    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            if (WaitForSingleObject(event.h, INFINITE) == WAIT_OBJECT_0) ++released;
        });
    ASSERT_TRUE(SetEvent(event.h));
    EXPECT_TRUE(WaitUntil([&] { return released == 3; }));
    for (auto& t : waiters)
        t.join();

    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_OBJECT_0);
    ASSERT_TRUE(ResetEvent(event.h));
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_TIMEOUT);
}

TEST(WinEvent, AutoResetReleasesOneWaiterPerSet) {
    Handle event(CreateEventW(nullptr, FALSE, TRUE, nullptr));
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_TIMEOUT);

    std::atomic<int> released{0};
    std::thread a([&] { released += WaitForSingleObject(event.h, INFINITE) == WAIT_OBJECT_0; });
    std::thread b([&] { released += WaitForSingleObject(event.h, INFINITE) == WAIT_OBJECT_0; });
    SetEvent(event.h);
    EXPECT_TRUE(WaitUntil([&] { return released >= 1; }));
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_TIMEOUT);  // the one set was taken
    EXPECT_EQ(released, 1);
    SetEvent(event.h);
    EXPECT_TRUE(WaitUntil([&] { return released == 2; }));
    a.join();
    b.join();
}

TEST(WinEvent, WaitTimesOutWithoutSignalAndWakesWhenSetFromAnotherThread) {
    Handle event(CreateEvent(nullptr, FALSE, FALSE, nullptr));
    EXPECT_EQ(WaitForSingleObject(event.h, 30), WAIT_TIMEOUT);

    std::atomic<DWORD> result{WAIT_FAILED};
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        result = WaitForSingleObject(event.h, 20000);
        done = true;
    });
    SetEvent(event.h);
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    EXPECT_EQ(result, WAIT_OBJECT_0);
    waiter.join();
}

TEST(WinSemaphore, CountStaysWithinItsMaximum) {
    Handle sem(CreateSemaphore(nullptr, 0, 2, nullptr));
    ASSERT_NE(sem.h, nullptr);
    LONG previous = -1;
    EXPECT_FALSE(ReleaseSemaphore(sem.h, 3, &previous));
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_TIMEOUT);  // the failed release added nothing

    ASSERT_TRUE(ReleaseSemaphore(sem.h, 2, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_FALSE(ReleaseSemaphore(sem.h, 1, &previous));
    EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_OBJECT_0);
    ASSERT_TRUE(ReleaseSemaphore(sem.h, 1, &previous));
    EXPECT_EQ(previous, 1);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_TIMEOUT);
}

TEST(WinSemaphore, ImpossibleCountsAreRefused) {
    EXPECT_EQ(CreateSemaphore(nullptr, 3, 2, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CreateSemaphore(nullptr, 0, 0, nullptr), nullptr);
    Handle sem(CreateSemaphoreA(nullptr, 1, 1, nullptr));
    EXPECT_FALSE(ReleaseSemaphore(sem.h, 0, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(WinWaitMultiple, AnyAnswersTheLowestSignalledIndexAndConsumesOnlyThatOne) {
    Handle e0(CreateEvent(nullptr, FALSE, FALSE, nullptr));
    Handle s1(CreateSemaphore(nullptr, 1, 5, nullptr));
    Handle e2(CreateEvent(nullptr, FALSE, TRUE, nullptr));
    HANDLE all[] = {e0.h, s1.h, e2.h};
    EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, 0), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, 0), WAIT_OBJECT_0 + 2);
    EXPECT_EQ(WaitForMultipleObjects(3, all, FALSE, 0), WAIT_TIMEOUT);

    std::atomic<DWORD> result{WAIT_FAILED};
    std::atomic<DWORD> tid{0};
    std::thread waiter([&] {
        tid = GetCurrentThreadId();
        result = WaitForMultipleObjects(3, all, FALSE, kCeilingMs);
    });
    EXPECT_TRUE(WaitUntil([&] { return tid != 0 && ThreadIsBlocked(tid); }));
    SetEvent(e0.h);
    EXPECT_TRUE(WaitUntil([&] { return result != WAIT_FAILED; }));
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST(WinWaitMultiple, AllConsumesNothingUntilEveryObjectIsSignalled) {
    Handle sem(CreateSemaphore(nullptr, 1, 1, nullptr));
    Handle event(CreateEvent(nullptr, FALSE, FALSE, nullptr));
    HANDLE both[] = {sem.h, event.h};
    EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, 20), WAIT_TIMEOUT);

    std::atomic<DWORD> result{WAIT_FAILED};
    std::atomic<DWORD> tid{0};
    std::thread waiter([&] {
        tid = GetCurrentThreadId();
        result = WaitForMultipleObjects(2, both, TRUE, kCeilingMs);
    });
    EXPECT_TRUE(WaitUntil([&] { return tid != 0 && ThreadIsBlocked(tid); }));
    SetEvent(event.h);
    EXPECT_TRUE(WaitUntil([&] { return result != WAIT_FAILED; }));
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(sem.h, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(event.h, 0), WAIT_TIMEOUT);

    HANDLE twice[] = {sem.h, sem.h};
    EXPECT_EQ(WaitForMultipleObjects(2, twice, TRUE, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(WinHandles, InvalidAndClosedHandlesFailWithoutHarm) {
    HANDLE event = CreateEvent(nullptr, TRUE, TRUE, nullptr);
    EXPECT_LT(reinterpret_cast<uintptr_t>(event), uintptr_t{0x80000000});
    ASSERT_TRUE(CloseHandle(event));

    HANDLE bogus = reinterpret_cast<HANDLE>(uintptr_t{0x12345678});
    for (HANDLE h : {HANDLE{nullptr}, event, bogus, INVALID_HANDLE_VALUE}) {
        SetLastError(0);
        EXPECT_EQ(WaitForSingleObject(h, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        SetLastError(0);
        EXPECT_FALSE(SetEvent(h));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_FALSE(ResetEvent(h));
        EXPECT_FALSE(ReleaseSemaphore(h, 1, nullptr));
        EXPECT_FALSE(CloseHandle(h));
    }
    // A handle of the wrong kind is invalid for the call.
    Handle sem(CreateSemaphore(nullptr, 0, 1, nullptr));
    Handle live(CreateEvent(nullptr, TRUE, FALSE, nullptr));
    EXPECT_FALSE(SetEvent(sem.h));
    EXPECT_FALSE(ReleaseSemaphore(live.h, 1, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    HANDLE mixed[] = {live.h, event};
    EXPECT_EQ(WaitForMultipleObjects(2, mixed, FALSE, 0), WAIT_FAILED);
}

TEST(WinHandles, ClosingAHandleWhileAnotherThreadWaitsKeepsTheObjectForTheWaiter) {
    const char16_t* name = u"mw-test-close-while-waiting";
    HANDLE first = CreateEvent(nullptr, FALSE, FALSE, name);
    ASSERT_NE(first, nullptr);
    std::atomic<DWORD> tid{0};
    std::atomic<DWORD> result{WAIT_FAILED};
    std::thread waiter([&] {
        tid = GetCurrentThreadId();
        result = WaitForSingleObject(first, INFINITE);
    });
    // Seen blocked on several polls in a row: parked in the wait, not in a passing lock.
    int blockedPolls = 0;
    ASSERT_TRUE(WaitUntil([&] {
        blockedPolls = tid != 0 && ThreadIsBlocked(tid) ? blockedPolls + 1 : 0;
        return blockedPolls >= 3;
    }));
    ASSERT_TRUE(CloseHandle(first));

    // The waiter still holds the object, so the name opens the same event.
    HANDLE second = CreateEvent(nullptr, FALSE, FALSE, name);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    SetEvent(second);
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
    CloseHandle(second);

    // Once every handle and waiter is gone, the name makes a new event.
    Handle third(CreateEvent(nullptr, FALSE, FALSE, name));
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(WinThreadState, LastErrorBelongsToEachThread) {
    SetLastError(ERROR_ACCESS_DENIED);
    DWORD seenThere = 1;
    DWORD idThere = 0;
    std::thread other([&] {
        seenThere = GetLastError();
        SetLastError(ERROR_TIMEOUT);
        idThere = GetCurrentThreadId();
    });
    other.join();
    EXPECT_EQ(seenThere, ERROR_SUCCESS);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_NE(idThere, GetCurrentThreadId());
    EXPECT_NE(idThere, 0u);
}

TEST(WinCriticalSection, IsRecursiveAndExcludesOtherThreads) {
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    EnterCriticalSection(&cs);
    EXPECT_TRUE(TryEnterCriticalSection(&cs));  // again on the owning thread
    bool otherGot = true;
    std::thread([&] { otherGot = TryEnterCriticalSection(&cs); }).join();
    EXPECT_FALSE(otherGot);
    LeaveCriticalSection(&cs);
    LeaveCriticalSection(&cs);
    std::thread([&] {
        otherGot = TryEnterCriticalSection(&cs);
        if (otherGot) LeaveCriticalSection(&cs);
    }).join();
    EXPECT_TRUE(otherGot);

    // Plain data guarded by the section: the sanitizer run checks the exclusion.
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 10000; ++i) {
            EnterCriticalSection(&cs);
            ++counter;
            LeaveCriticalSection(&cs);
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 20000);
    DeleteCriticalSection(&cs);
}
