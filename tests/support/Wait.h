// The one way tests wait: poll a condition, draining the main-thread queue meanwhile,
// with a generous ceiling. Never sleep a fixed time to let things happen.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace mw::test {

// Returns true as soon as cond() holds; false when the ceiling passes first.
// While waiting it runs main-thread work posted by other threads (MainThreadExecute,
// posted window messages), since the test thread is the main thread.
bool WaitUntil(const std::function<bool()>& cond,
               std::chrono::milliseconds ceiling = std::chrono::seconds(20));

// True while the thread (a kernel thread id, as GetCurrentThreadId gives) sleeps in the kernel,
// as a thread blocked in a wait does. Wait for it before waking a waiter, so that the test
// covers the wake-up rather than a call that never had to wait.
bool ThreadIsBlocked(uint32_t tid);

}  // namespace mw::test
