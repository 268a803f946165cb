// The system clock: time in 100 ns units, one-shot and periodic advice, unadvise.
#include "tests/graph_service/GraphTestSupport.h"
#include "winbase.h"

using namespace mw::test;

namespace {

using ClockTest = GraphTest;

TEST_F(ClockTest, TimeRunsInHundredsOfNanoseconds) {
    auto clock = Create<IReferenceClock>(CLSID_SystemClock);
    ASSERT_TRUE(clock);
    REFERENCE_TIME a = 0, b = 0;
    ASSERT_EQ(clock->GetTime(&a), S_OK);
    const DWORD t0 = timeGetTime();
    ASSERT_TRUE(WaitUntil([&] { return timeGetTime() - t0 >= 50; }));
    ASSERT_EQ(clock->GetTime(&b), S_OK);
    // 50 ms of wall time are at least 500000 units and, generously, less than ten times that.
    EXPECT_GE(b - a, 490000);
    EXPECT_LT(b - a, 5000000 * 4);
    EXPECT_EQ(clock->GetTime(nullptr), E_POINTER);
}

TEST_F(ClockTest, AdviseTimeSignalsTheEventOnceDue) {
    auto clock = Create<IReferenceClock>(CLSID_SystemClock);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    REFERENCE_TIME now = 0;
    clock->GetTime(&now);
    DWORD_PTR cookie = 0;
    ASSERT_EQ(clock->AdviseTime(now, 200000, reinterpret_cast<HEVENT>(event), &cookie), S_OK);
    EXPECT_NE(cookie, 0u);
    ASSERT_EQ(WaitForSingleObject(event, 20000), WAIT_OBJECT_0);
    REFERENCE_TIME fired = 0;
    clock->GetTime(&fired);
    EXPECT_GE(fired, now + 200000);
    // A one-shot advice is gone once it fired.
    EXPECT_EQ(clock->Unadvise(cookie), S_FALSE);
    EXPECT_EQ(clock->AdviseTime(now, 0, 0, &cookie), E_INVALIDARG);
    EXPECT_EQ(clock->AdviseTime(now, 0, reinterpret_cast<HEVENT>(event), nullptr), E_POINTER);
    CloseHandle(event);
}

TEST_F(ClockTest, PeriodicAdviceReleasesOncePerPeriodUntilUnadvised) {
    auto clock = Create<IReferenceClock>(CLSID_SystemClock);
    HANDLE sem = CreateSemaphoreW(nullptr, 0, 1000, nullptr);
    REFERENCE_TIME now = 0;
    clock->GetTime(&now);
    constexpr REFERENCE_TIME period = 100000;  // 10 ms
    DWORD_PTR cookie = 0;
    ASSERT_EQ(
        clock->AdvisePeriodic(now + period, period, reinterpret_cast<HSEMAPHORE>(sem), &cookie),
        S_OK);
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(WaitForSingleObject(sem, 20000), WAIT_OBJECT_0);
    REFERENCE_TIME after = 0;
    clock->GetTime(&after);
    // Ten releases cannot come before ten periods have passed.
    EXPECT_GE(after - now, 10 * period);
    ASSERT_EQ(clock->Unadvise(cookie), S_OK);
    // Drain what was released before the unadvise; nothing follows it.
    while (WaitForSingleObject(sem, 0) == WAIT_OBJECT_0) {
    }
    EXPECT_EQ(WaitForSingleObject(sem, 100), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(clock->Unadvise(cookie), S_FALSE);
    EXPECT_EQ(clock->AdvisePeriodic(now, 0, reinterpret_cast<HSEMAPHORE>(sem), &cookie),
              E_INVALIDARG);
    CloseHandle(sem);
}

TEST_F(ClockTest, ReleasingTheClockWithPendingAdviceIsClean) {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    {
        auto clock = Create<IReferenceClock>(CLSID_SystemClock);
        REFERENCE_TIME now = 0;
        clock->GetTime(&now);
        DWORD_PTR cookie = 0;
        ASSERT_EQ(clock->AdviseTime(now, 600000000, reinterpret_cast<HEVENT>(event), &cookie),
                  S_OK);
        ASSERT_EQ(clock->AdvisePeriodic(now, 10000, reinterpret_cast<HSEMAPHORE>(event), &cookie),
                  S_OK);
    }
    CloseHandle(event);
}

}  // namespace
