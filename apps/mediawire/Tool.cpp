#include "Tool.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>

#ifndef MW_VERSION
#define MW_VERSION "0.0.0"
#endif

namespace mw::tool {

namespace {

std::vector<CommandInfo>& Registry() {
    static std::vector<CommandInfo> commands;
    return commands;
}

std::atomic<int> gSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);
pid_t gMainThreadId = 0;
pthread_t gMainThread;

void OnSignal(int signal) {
    // The main thread may be blocked in a call that only a signal ends (opening a FIFO that has
    // no writer yet): a signal that landed on another thread is passed on to it.
    if (gettid() != gMainThreadId) {
        pthread_kill(gMainThread, signal);
        return;
    }
    int none = 0;
    if (!gSignal.compare_exchange_strong(none, signal)) _exit(128 + signal);
}

// Serialises the messages and knows whether a progress line waits for its end on a terminal.
std::mutex gConsoleMutex;
bool gLineOpen = false;
const bool gStdoutIsTerminal = isatty(STDOUT_FILENO) != 0;

void EndOpenLine() {
    if (!gLineOpen) return;
    std::fputc('\n', stdout);
    std::fflush(stdout);
    gLineOpen = false;
}

}  // namespace

CommandRegistration::CommandRegistration(std::string name, std::string summary,
                                         CommandDefine define) {
    Registry().push_back({std::move(name), std::move(summary), std::move(define)});
}

std::vector<CommandInfo> Commands() {
    std::vector<CommandInfo> commands = Registry();
    std::sort(commands.begin(), commands.end(),
              [](const CommandInfo& a, const CommandInfo& b) { return a.Name < b.Name; });
    return commands;
}

void InstallSignalHandlers() {
    gMainThreadId = gettid();
    gMainThread = pthread_self();
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    // No SA_RESTART: a blocking open or read (a FIFO without a writer) returns EINTR.
    sa.sa_flags = 0;
    for (int s : {SIGINT, SIGTERM, SIGHUP})
        sigaction(s, &sa, nullptr);
}

int InterruptSignal() {
    return gSignal.load();
}

bool Interrupted() {
    return gSignal.load() != 0;
}

std::string VersionLine() {
    return "mediawire " MW_VERSION;
}

int ExitInterrupted() {
    Complain("interrupted");
    const int s = gSignal.load();
    return 128 + (s ? s : SIGINT);
}

void Say(const std::string& line) {
    std::lock_guard g(gConsoleMutex);
    EndOpenLine();
    std::fprintf(stdout, "%s\n", line.c_str());
    std::fflush(stdout);
}

void Warn(const std::string& text) {
    std::lock_guard g(gConsoleMutex);
    EndOpenLine();
    std::fprintf(stderr, "mediawire: warning: %s\n", text.c_str());
}

void Complain(const std::string& text) {
    std::lock_guard g(gConsoleMutex);
    EndOpenLine();
    std::fprintf(stderr, "mediawire: %s\n", text.c_str());
}

ProgressLine::ProgressLine() = default;

ProgressLine::~ProgressLine() {
    Finish();
}

void ProgressLine::Show(const std::string& text) {
    if (text == FShown) return;
    FShown = text;
    std::lock_guard g(gConsoleMutex);
    if (gStdoutIsTerminal) {
        std::fprintf(stdout, "\r%s\033[K", text.c_str());
        gLineOpen = true;
    } else {
        std::fprintf(stdout, "%s\n", text.c_str());
    }
    std::fflush(stdout);
}

void ProgressLine::Finish() {
    std::lock_guard g(gConsoleMutex);
    EndOpenLine();
}

}  // namespace mw::tool
