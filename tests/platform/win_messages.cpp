// Message windows and the main thread's queue of platform/win.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Wait.h"
#include "winbase.h"
#include "winuser.h"

using mw::MainLoop;
using mw::test::WaitUntil;

namespace {

struct Received {
    UINT msg;
    WPARAM wParam;
    LPARAM lParam;
    bool onMainThread;
};

// What a window procedure saw; shared with worker threads, so locked.
struct Log {
    std::mutex lock;
    std::vector<Received> items;
    void Add(UINT msg, WPARAM w, LPARAM l) {
        std::lock_guard<std::mutex> g(lock);
        items.push_back({msg, w, l, MainLoop::IsMainThread()});
    }
    size_t Size() {
        std::lock_guard<std::mutex> g(lock);
        return items.size();
    }
};

LRESULT CALLBACK LoggingProc(HWND hwnd, UINT msg, WPARAM w, LPARAM l) {
    reinterpret_cast<Log*>(GetWindowLongPtr(hwnd, GWLP_USERDATA))->Add(msg, w, l);
    return static_cast<LRESULT>(w + 1000);
}

LRESULT CALLBACK OtherProc(HWND, UINT, WPARAM, LPARAM) {
    return 7;
}

// Waits, without draining, until the empty queue gets an item: for tests that must see work
// queued by another thread before they drain.
bool WaitForQueued() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (MainLoop::PendingCount() == 0 && std::chrono::steady_clock::now() < deadline)
        MainLoop::WaitForWork(100);
    return MainLoop::PendingCount() != 0;
}

}  // namespace

TEST(WinMessages, PostedMessagesFromSeveralThreadsArriveInOrderPerSenderOnTheMainThread) {
    Log log;
    HWND hwnd = mw::CreateMessageWindow(LoggingProc, &log);
    ASSERT_TRUE(IsWindow(hwnd));
    constexpr int kSenders = 4, kEach = 250;
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s)
        senders.emplace_back([=] {
            for (int i = 0; i < kEach; ++i)
                PostMessage(hwnd, WM_USER + 1, s, i);
        });
    EXPECT_TRUE(WaitUntil([&] { return log.Size() == kSenders * kEach; }));
    for (auto& t : senders)
        t.join();

    std::vector<LPARAM> last(kSenders, -1);
    for (const Received& r : log.items) {
        EXPECT_TRUE(r.onMainThread);
        EXPECT_EQ(r.msg, WM_USER + 1);
        EXPECT_EQ(r.lParam, last[r.wParam] + 1) << "sender " << r.wParam;
        last[r.wParam] = r.lParam;
    }
    DestroyWindow(hwnd);
}

TEST(WinMessages, ClosuresAndMessagesRunInTheOrderTheyWereQueuedOnlyWhenDrained) {
    Log log;
    HWND hwnd = mw::CreateMessageWindow(LoggingProc, &log);
    MainLoop::Post([&] { log.Add(1, 0, 0); });
    PostMessage(hwnd, 2, 0, 0);
    MainLoop::Post([&] { log.Add(3, 0, 0); });
    EXPECT_EQ(log.Size(), 0u);
    EXPECT_EQ(MainLoop::ProcessPending(), 3u);
    ASSERT_EQ(log.Size(), 3u);
    for (UINT i = 0; i < 3; ++i)
        EXPECT_EQ(log.items[i].msg, i + 1);
    DestroyWindow(hwnd);
}

TEST(WinMessages, DrainingLeavesWorkQueuedMeanwhileForTheNextDrain) {
    int runs = 0;
    MainLoop::Post([&] {
        ++runs;
        MainLoop::Post([&] { ++runs; });
    });
    EXPECT_EQ(MainLoop::ProcessPending(), 1u);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(MainLoop::ProcessPending(), 1u);
    EXPECT_EQ(runs, 2);

    // Other threads cannot drain the main thread's queue.
    MainLoop::Post([&] { ++runs; });
    size_t ranThere = 99;
    std::thread([&] { ranThere = MainLoop::ProcessPending(); }).join();
    EXPECT_EQ(ranThere, 0u);
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(MainLoop::ProcessPending(), 1u);
}

TEST(WinMessages, SendMessageFromAWorkerWaitsForTheMainThreadsAnswer) {
    Log log;
    HWND hwnd = mw::CreateMessageWindow(LoggingProc, &log);
    std::atomic<LRESULT> answer{0};
    std::atomic<bool> done{false};
    std::thread worker([&] {
        answer = SendMessage(hwnd, WM_USER, 42, 0);
        done = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    worker.join();
    EXPECT_EQ(answer, 1042);
    ASSERT_EQ(log.Size(), 1u);
    EXPECT_TRUE(log.items[0].onMainThread);
    DestroyWindow(hwnd);
}

TEST(WinMessages, MessagesForADestroyedWindowAreDropped) {
    Log log;
    HWND hwnd = mw::CreateMessageWindow(LoggingProc, &log);
    MainLoop::ProcessPending();  // WaitForQueued below must see the sent message
    LRESULT sentAnswer = -1;
    std::thread sender([&] { sentAnswer = SendMessage(hwnd, WM_USER, 2, 0); });
    ASSERT_TRUE(WaitForQueued());
    PostMessage(hwnd, WM_USER, 1, 0);

    ASSERT_TRUE(DestroyWindow(hwnd));
    sender.join();  // released by the destruction, unanswered
    EXPECT_EQ(sentAnswer, 0);
    MainLoop::ProcessPending();
    ASSERT_EQ(log.Size(), 1u);
    EXPECT_EQ(log.items[0].msg, WM_DESTROY);

    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_FALSE(PostMessage(hwnd, WM_USER, 3, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(SendMessage(hwnd, WM_USER, 3, 0), 0);
    EXPECT_FALSE(DestroyWindow(hwnd));
}

TEST(WinMessages, TheProcedureAndUserDataCanBeReplaced) {
    Log log;
    HWND hwnd = mw::CreateMessageWindow(nullptr, nullptr);
    EXPECT_EQ(SendMessage(hwnd, WM_USER, 1, 0), 0);  // DefWindowProc
    EXPECT_EQ(SetWindowLongPtr(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&log)), 0);
    EXPECT_EQ(GetWindowLongPtr(hwnd, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&log));
    SetWindowLongPtr(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&LoggingProc));
    EXPECT_EQ(SendMessage(hwnd, WM_USER, 1, 0), 1001);
    LONG_PTR old = SetWindowLongPtr(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&OtherProc));
    EXPECT_EQ(old, reinterpret_cast<LONG_PTR>(&LoggingProc));

    // A message posted before the change meets the new procedure.
    PostMessage(hwnd, WM_USER, 2, 0);
    SetWindowLongPtr(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&LoggingProc));
    MainLoop::ProcessPending();
    ASSERT_EQ(log.Size(), 2u);
    EXPECT_EQ(log.items[1].wParam, 2u);

    EXPECT_EQ(GetWindowLongPtr(hwnd, 12345), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    DestroyWindow(hwnd);
    EXPECT_EQ(GetWindowLongPtr(hwnd, GWLP_USERDATA), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_WINDOW_HANDLE);
}

TEST(WinMessages, OnlyTheMainThreadDestroysWindows) {
    HWND hwnd = mw::CreateMessageWindow(nullptr);
    BOOL destroyed = TRUE;
    DWORD error = 0;
    std::thread([&] {
        destroyed = DestroyWindow(hwnd);
        error = GetLastError();
    }).join();
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(error, ERROR_ACCESS_DENIED);
    EXPECT_TRUE(IsWindow(hwnd));
    EXPECT_TRUE(DestroyWindow(hwnd));
}

TEST(WinMainLoop, CancelAndBlockDropOnlyTheItemsOfTheirOwner) {
    int a = 0, b = 0;
    int ownerA = 0, ownerB = 0;
    MainLoop::Post([&] { ++a; }, &ownerA);
    MainLoop::Post([&] { ++b; }, &ownerB);
    MainLoop::Post([&] { ++a; }, &ownerA);
    EXPECT_EQ(MainLoop::Cancel(&ownerA), 2u);
    MainLoop::ProcessPending();
    EXPECT_EQ(a, 0);
    EXPECT_EQ(b, 1);

    MainLoop::BlockOwner(&ownerA);
    MainLoop::BlockOwner(&ownerA);
    EXPECT_FALSE(MainLoop::Post([&] { ++a; }, &ownerA));
    MainLoop::UnblockOwner(&ownerA);
    EXPECT_FALSE(MainLoop::Post([&] { ++a; }, &ownerA));  // blocks nest
    MainLoop::UnblockOwner(&ownerA);
    EXPECT_TRUE(MainLoop::Post([&] { ++a; }, &ownerA));
    MainLoop::ProcessPending();
    EXPECT_EQ(a, 1);
}

TEST(WinMainLoop, AnExceptionFromAnItemGoesToTheHandlerAndDrainingGoesOn) {
    std::string caught;
    MainLoop::SetExceptionHandler([&](std::exception_ptr e) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& x) {
            caught = x.what();
        }
    });
    bool after = false;
    MainLoop::Post([] { throw std::runtime_error("boom"); });
    MainLoop::Post([&] { after = true; });
    MainLoop::ProcessPending();
    MainLoop::SetExceptionHandler(nullptr);
    EXPECT_EQ(caught, "boom");
    EXPECT_TRUE(after);
}

TEST(WinMainLoop, WaitForWorkReturnsWhenAnotherThreadQueuesSomething) {
    MainLoop::ProcessPending();
    std::thread poster([] { MainLoop::Post([] {}); });
    EXPECT_TRUE(WaitForQueued());
    poster.join();
    EXPECT_EQ(MainLoop::ProcessPending(), 1u);
    EXPECT_FALSE(MainLoop::WaitForWork(0));
}
