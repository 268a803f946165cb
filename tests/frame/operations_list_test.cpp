// The operation queue of sinks: order of Insert and Add, Pop on an empty list, Clear, and
// operations crossing threads exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "frame/OperationList.h"

namespace {

// An operation that knows its number, to follow the order.
class TNumberedTestOperation : public TQWNotifyOperation {
    MW_CLASS(TNumberedTestOperation, TQWNotifyOperation)
public:
    explicit TNumberedTestOperation(int n) : Number(n) {}
    int Number;
};

ComPtr<IQWNotifyOperation> Op(int n) {
    return MwNew<TNumberedTestOperation>(n);
}

std::vector<int> Drain(IQSOperationList* list) {
    std::vector<int> order;
    ComPtr<IQWNotifyOperation> op;
    while (list->Pop(op))
        order.push_back(op->InstanceAs<TNumberedTestOperation>()->Number);
    return order;
}

}  // namespace

TEST(OperationList, AddAppendsAndInsertPutsAtTheHead) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    list->Add(Op(1).Get(), false);
    list->Add(Op(2).Get(), false);
    list->Insert(Op(0).Get());
    list->Add(Op(3).Get(), false);
    list->Insert(Op(-1).Get());
    EXPECT_EQ(list->Count(), 5u);
    EXPECT_EQ(Drain(list.Get()), (std::vector<int>{-1, 0, 1, 2, 3}));
    EXPECT_EQ(list->Count(), 0u);
}

TEST(OperationList, PopOnEmptyAnswersFalseAndGivesNothing) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    ComPtr<IQWNotifyOperation> op = Op(7);
    EXPECT_FALSE(list->Pop(op));
    EXPECT_EQ(op, nullptr);
    EXPECT_FALSE(list->Peek(op.ReleaseAndGetAddressOf()));
    EXPECT_EQ(list->Count(), 0u);
}

TEST(OperationList, RequeuedHeadIsPoppedBeforeTheRest) {
    // What a sink does when it can't process the head on this thread.
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    for (int i = 1; i <= 3; ++i)
        list->Add(Op(i).Get(), false);
    ComPtr<IQWNotifyOperation> head;
    ASSERT_TRUE(list->Pop(head));
    list->Insert(head.Get());
    EXPECT_EQ(Drain(list.Get()), (std::vector<int>{1, 2, 3}));
}

TEST(OperationList, ClearDropsEveryReference) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    auto kept = MwNew<TNumberedTestOperation>(1);
    list->Add(kept.Get(), false);
    list->Insert(kept.Get());
    EXPECT_EQ(kept->RefCount(), 3u);
    list->Clear();
    EXPECT_EQ(list->Count(), 0u);
    EXPECT_EQ(kept->RefCount(), 1u);
    ComPtr<IQWNotifyOperation> op;
    EXPECT_FALSE(list->Pop(op));
}

TEST(OperationList, UniqueAddSkipsAnOperationAlreadyQueued) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    auto op = Op(1);
    list->Add(op.Get(), true);
    list->Add(op.Get(), true);
    list->Add(Op(2).Get(), true);
    EXPECT_EQ(list->Count(), 2u);
    list->Add(op.Get(), false);
    EXPECT_EQ(list->Count(), 3u);
}

TEST(OperationList, RemoveAndPeekLeaveTheOthersInOrder) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    auto middle = Op(2);
    list->Add(Op(1).Get(), false);
    list->Add(middle.Get(), false);
    list->Add(Op(3).Get(), false);
    EXPECT_TRUE(list->Remove(middle.Get()));
    EXPECT_FALSE(list->Remove(middle.Get()));
    ComPtr<IQWNotifyOperation> head;
    ASSERT_TRUE(list->Peek(head.ReleaseAndGetAddressOf()));
    EXPECT_EQ(head->InstanceAs<TNumberedTestOperation>()->Number, 1);
    EXPECT_EQ(list->Count(), 2u);
    EXPECT_EQ(Drain(list.Get()), (std::vector<int>{1, 3}));
}

TEST(OperationList, NullOperationIsNotQueued) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    list->Add(nullptr, false);
    list->Insert(nullptr);
    EXPECT_EQ(list->Count(), 0u);
}

TEST(OperationList, ConcurrentProducersAndConsumersSeeEachOperationOnce) {
    constexpr int kProducers = 3;
    constexpr int kConsumers = 2;
    constexpr int kPerProducer = 4000;
    constexpr int kTotal = kProducers * kPerProducer;
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    std::vector<std::atomic<int>> seen(kTotal);
    std::vector<std::vector<int>> orderPerConsumer(kConsumers);

    std::atomic<bool> producersDone{false};
    std::vector<std::thread> producers, consumers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                auto op = Op(p * kPerProducer + i);
                // Now and then a producer puts one at the head, as a re-queue does.
                if (i % 97 == 0)
                    list->Insert(op.Get());
                else
                    list->Add(op.Get(), false);
            }
        });
    }
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&, c] {
            ComPtr<IQWNotifyOperation> op;
            for (;;) {
                // Read the flag before popping: an empty list after the producers ended
                // means that everything has been taken.
                const bool done = producersDone.load();
                if (!list->Pop(op)) {
                    if (done) return;
                    std::this_thread::yield();
                    continue;
                }
                const int n = op->InstanceAs<TNumberedTestOperation>()->Number;
                seen[n].fetch_add(1);
                orderPerConsumer[c].push_back(n);
            }
        });
    }
    for (auto& t : producers)
        t.join();
    producersDone = true;
    for (auto& t : consumers)
        t.join();

    EXPECT_EQ(list->Count(), 0u);
    int missing = 0, doubled = 0;
    for (auto& s : seen) {
        missing += s.load() == 0;
        doubled += s.load() > 1;
    }
    EXPECT_EQ(missing, 0);
    EXPECT_EQ(doubled, 0);
    // Appended operations of one producer leave in the order they came, for each consumer.
    for (const auto& order : orderPerConsumer) {
        std::vector<int> last(kProducers, -1);
        for (int n : order) {
            const int p = n / kPerProducer, i = n % kPerProducer;
            if (i % 97 == 0) continue;
            EXPECT_GT(i, last[p]);
            last[p] = i;
        }
    }
}
