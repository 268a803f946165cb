// Runs the built mediawire tool as a user runs it: a child process with its own stdout and
// stderr, signals sent to it, its exit code read back. Every wait has a ceiling; a tool still
// running at the ceiling is killed and reported as such.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace mw::test {

struct ToolResult {
    int ExitCode = -1;  // -1 when the tool hung until the ceiling or died by a signal
    int Signal = 0;     // the signal that ended it, if one did
    std::string Out;
    std::string Err;
    std::string All() const { return Out + Err; }
};

class ToolProcess {
public:
    explicit ToolProcess(const std::vector<std::string>& args);
    ~ToolProcess();
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    pid_t Pid() const { return FPid; }
    // Reads the output until stdout holds text; false at the ceiling or when the tool ended.
    bool WaitForOutput(const std::string& text,
                       std::chrono::milliseconds ceiling = std::chrono::seconds(60));
    void Signal(int signal);
    // Reads the output to its end and reaps the tool.
    ToolResult Finish(std::chrono::milliseconds ceiling = std::chrono::seconds(120));

private:
    // Reads what is there, waiting up to timeout; false once both pipes are closed.
    bool Pump(std::chrono::milliseconds timeout);

    pid_t FPid = -1;
    int FOut = -1;
    int FErr = -1;
    ToolResult FResult;
};

// Runs the tool to its end.
ToolResult RunTool(const std::vector<std::string>& args);

// The path of the built tool.
std::string ToolPath();

}  // namespace mw::test
