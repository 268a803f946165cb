// The cost of waking a thread and of reaching the main thread: a semaphore release taken by a
// waiting worker (the wave thread's wake-up), an event ping-pong between two threads, and a
// closure queued and drained on the main thread.
#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

#include "frame/MainThread.h"
#include "frame/Threads.h"
#include "winuser.h"

namespace {

void BM_SemaphoreReleaseAndTakeOneThread(benchmark::State& state) {
    ComPtr<ISemaphore> sem = MwNew<TSemaphore>(0, 2000);
    for (auto _ : state) {
        sem->ReleaseCount(1);
        benchmark::DoNotOptimize(sem->WaitFor(0));
    }
}
BENCHMARK(BM_SemaphoreReleaseAndTakeOneThread);

// One round trip: this thread sets ping, the worker waits for it and sets pong.
void BM_EventPingPongBetweenThreads(benchmark::State& state) {
    ComPtr<IEvent> ping = MwNew<TEvent>(), pong = MwNew<TEvent>();
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        for (;;) {
            ping->WaitFor(INFINITE);
            if (stop) return;
            pong->SetEvent();
        }
    });
    for (auto _ : state) {
        ping->SetEvent();
        pong->WaitFor(INFINITE);
    }
    stop = true;
    ping->SetEvent();
    worker.join();
}
BENCHMARK(BM_EventPingPongBetweenThreads)->UseRealTime();

void BM_MainThreadQueueAndDrain(benchmark::State& state) {
    mw::MainLoop::SetMainThread();
    int runs = 0;
    for (auto _ : state) {
        MainThreadExecute(
            nullptr, false, [&] { ++runs; }, true);
        Application::ProcessMessages();
    }
    benchmark::DoNotOptimize(runs);
}
BENCHMARK(BM_MainThreadQueueAndDrain);

}  // namespace
