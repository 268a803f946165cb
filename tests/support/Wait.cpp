#include "tests/support/Wait.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "frame/MainThread.h"
#include "winuser.h"

namespace mw::test {

namespace {
// Longest idle wait between two polls: short enough that a condition changed by a worker
// without posting anything is seen promptly.
constexpr std::chrono::milliseconds kPollStep{2};
}  // namespace

bool WaitUntil(const std::function<bool()>& cond, std::chrono::milliseconds ceiling) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + ceiling;
    const bool onMainThread = mw::IsMainThread();
    for (;;) {
        if (onMainThread) Application::ProcessMessages();
        if (cond()) return true;
        const Clock::time_point now = Clock::now();
        if (now >= deadline) return false;
        const auto step = std::min<Clock::duration>(kPollStep, deadline - now);
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(step);
        if (onMainThread)
            MainLoop::WaitForWork(static_cast<DWORD>(ms.count()));
        else
            std::this_thread::sleep_for(ms);
    }
}

bool ThreadIsBlocked(uint32_t tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] == 'S';
}

}  // namespace mw::test
