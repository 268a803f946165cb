#include "ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace mw::test {

namespace {

using Clock = std::chrono::steady_clock;

void AppendFrom(int& fd, std::string& to) {
    char buf[4096];
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n > 0) {
        to.append(buf, static_cast<size_t>(n));
    } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        ::close(fd);
        fd = -1;
    }
}

}  // namespace

std::string ToolPath() {
    return MW_TOOL_PATH;
}

ToolProcess::ToolProcess(const std::vector<std::string>& args) {
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // The tool starts as from a shell: default signal actions, nothing blocked.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&defaults, s);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> argv0 = {ToolPath()};
    argv0.insert(argv0.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argv0)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const int r = posix_spawn(&FPid, argv[0], &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    ::close(out[1]);
    ::close(err[1]);
    FOut = out[0];
    FErr = err[0];
    if (r != 0) {
        FPid = -1;
        throw std::runtime_error(std::string("cannot start the tool: ") + std::strerror(r));
    }
}

ToolProcess::~ToolProcess() {
    if (FPid > 0) {
        ::kill(FPid, SIGKILL);
        ::waitpid(FPid, nullptr, 0);
    }
    if (FOut >= 0) ::close(FOut);
    if (FErr >= 0) ::close(FErr);
}

bool ToolProcess::Pump(std::chrono::milliseconds timeout) {
    pollfd fds[2];
    nfds_t n = 0;
    if (FOut >= 0) fds[n++] = {FOut, POLLIN, 0};
    if (FErr >= 0) fds[n++] = {FErr, POLLIN, 0};
    if (n == 0) return false;
    if (::poll(fds, n, static_cast<int>(timeout.count())) <= 0) return true;
    for (nfds_t i = 0; i < n; ++i) {
        if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
        if (fds[i].fd == FOut)
            AppendFrom(FOut, FResult.Out);
        else
            AppendFrom(FErr, FResult.Err);
    }
    return true;
}

bool ToolProcess::WaitForOutput(const std::string& text, std::chrono::milliseconds ceiling) {
    const auto end = Clock::now() + ceiling;
    while (FResult.Out.find(text) == std::string::npos) {
        if (Clock::now() >= end || FOut < 0) return false;
        Pump(std::chrono::milliseconds(100));
    }
    return true;
}

void ToolProcess::Signal(int signal) {
    if (FPid > 0) ::kill(FPid, signal);
}

ToolResult ToolProcess::Finish(std::chrono::milliseconds ceiling) {
    const auto end = Clock::now() + ceiling;
    while (Clock::now() < end && Pump(std::chrono::milliseconds(100))) {
    }
    if (FPid <= 0) return FResult;
    int status = 0;
    pid_t r = 0;
    while (Clock::now() < end && (r = ::waitpid(FPid, &status, WNOHANG)) == 0)
        ::poll(nullptr, 0, 10);
    if (r != FPid) {
        ::kill(FPid, SIGKILL);
        ::waitpid(FPid, &status, 0);
        FResult.Err += "\n[the tool was still running at the ceiling and was killed]";
        FPid = -1;
        return FResult;
    }
    FPid = -1;
    if (WIFEXITED(status)) FResult.ExitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) FResult.Signal = WTERMSIG(status);
    return FResult;
}

ToolResult RunTool(const std::vector<std::string>& args) {
    ToolProcess tool(args);
    return tool.Finish();
}

}  // namespace mw::test
