// The seven steps of a property setter, the limits, and the equal-value rule.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/ChangeNotifyLock.h"

namespace {

struct Recorder {
    std::vector<std::string> Steps;
    int Cookie = 0;
    const void* Field = nullptr;
    explicit Recorder(const void* field) : Field(field) {
        Cookie = GPropertyChangeNotify().Subscribe([this](const void* f, bool changed) {
            if (f == Field) Steps.push_back(changed ? "changed" : "changing");
        });
    }
    ~Recorder() { GPropertyChangeNotify().Unsubscribe(Cookie); }
};

TEST(PropertySetter, StepsRunInOrderAroundTheStore) {
    int32_t field = 1;
    Recorder rec(&field);
    auto lock = MwNew<TBasicLockChangeNotifyLock>(
        [&] { rec.Steps.push_back("lock closure:" + std::to_string(field)); });
    int32_t seenWhenChanging = -1;
    GPropertyChangeNotify().Subscribe([&](const void* f, bool changed) {
        if (f == &field && !changed) seenWhenChanging = field;
    });
    lock->Setter(field, 7, [&] {
        EXPECT_TRUE(lock->IsHeldByCurrentThread());
        rec.Steps.push_back("closure:" + std::to_string(field));
    });
    EXPECT_EQ(field, 7);
    EXPECT_EQ(seenWhenChanging, 1) << "the change is announced before the value is stored";
    EXPECT_EQ(rec.Steps,
              (std::vector<std::string>{"changing", "closure:7", "changed", "lock closure:7"}));
    EXPECT_FALSE(lock->IsHeldByCurrentThread()) << "the setter lets go of the lock";
}

TEST(PropertySetter, EqualValueDoesNothing) {
    std::string field = "same";
    Recorder rec(&field);
    int lockCalls = 0, closureCalls = 0;
    auto lock = MwNew<TBasicLockChangeNotifyLock>([&] { ++lockCalls; });
    lock->Setter(field, std::string("same"), [&] { ++closureCalls; });
    EXPECT_EQ(closureCalls, 0);
    EXPECT_EQ(lockCalls, 0);
    EXPECT_TRUE(rec.Steps.empty());
}

TEST(PropertySetter, FlagTakesTheLockExclusively) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    bool exclusive = false;
    int32_t field = 0;
    lock->Setter(
        field, 1, [&] { exclusive = lock->IsWrittenByCurrentThread(); }, true);
    EXPECT_TRUE(exclusive);
    lock->Setter(
        field, 2, [&] { exclusive = lock->IsWrittenByCurrentThread(); }, false);
    EXPECT_FALSE(exclusive);
}

TEST(PropertySetter, LimitsClampBeforeTheComparison) {
    auto lock = MwNew<TBasicLockChangeNotifyLock>();
    int calls = 0;
    auto count = [&] { ++calls; };

    int32_t i = 10;
    lock->SetterMin(i, -5, 0, count);
    EXPECT_EQ(i, 0);
    lock->SetterMin(i, -9, 0, count);  // clamps to the present value: nothing happens
    EXPECT_EQ(calls, 1);

    uint32_t u = 1;
    lock->SetterMax(u, 5000u, 1000u, count);
    EXPECT_EQ(u, 1000u);
    lock->SetterMax(u, 999u, 1000u, count);
    EXPECT_EQ(u, 999u);
    EXPECT_EQ(calls, 3);

    float f = 0.5f;
    lock->SetterMinMax(f, 2.0f, 0.0f, 1.0f, count);
    EXPECT_EQ(f, 1.0f);
    lock->SetterMinMax(f, -3.0f, 0.0f, 1.0f, count);
    EXPECT_EQ(f, 0.0f);
    lock->SetterMinMax(f, -1.0f, 0.0f, 1.0f, count);
    EXPECT_EQ(calls, 5);
}

}  // namespace
