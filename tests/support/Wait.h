// The one way tests wait: poll a condition, draining the main-thread queue meanwhile,
// with a generous ceiling. Never sleep a fixed time to let things happen.
#pragma once

#include <chrono>
#include <functional>

namespace mw::test {

// Returns true as soon as cond() holds; false when the ceiling passes first.
// While waiting it runs main-thread work posted by other threads (MainThreadExecute,
// posted window messages), since the test thread is the main thread.
bool WaitUntil(const std::function<bool()>& cond,
               std::chrono::milliseconds ceiling = std::chrono::seconds(20));

}  // namespace mw::test
