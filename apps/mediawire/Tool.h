// The frame every command of the mediawire tool runs in.
//
// A command is one source file that registers itself with a CommandRegistration: its name, a
// one-line summary and a function that declares its arguments on a CLI11 subcommand and
// returns what runs once they are parsed. main() parses the command line, runs the chosen
// command and turns what it returns or throws into the exit code:
//   0 success, 1 a failure (Failure, message on stderr), 2 a usage error (CLI11's parse errors
//   and UsageError), 128 + the signal number when stopped by SIGINT (130), SIGTERM or SIGHUP.
//
// Messages go through the functions below and nowhere else, so that a progress line on a
// terminal is ended before a warning or an error is printed. They may be called from any thread.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace mw::tool {

enum ExitCode : int {
    kExitOk = 0,
    kExitFailure = 1,
    kExitUsage = 2,
};

// A failure of the command: "mediawire: <what>" on stderr, exit code 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Arguments that parse but don't go together: "mediawire: <what>" and a pointer to --help,
// exit code 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Runs the command once its arguments are parsed; returns the exit code.
using CommandRun = std::function<int()>;
// Declares the command's options and positionals on its subcommand.
using CommandDefine = std::function<CommandRun(CLI::App& command)>;

struct CommandInfo {
    std::string Name;
    std::string Summary;
    CommandDefine Define;
};

// One static object per command file adds the command to the tool.
class CommandRegistration {
public:
    CommandRegistration(std::string name, std::string summary, CommandDefine define);
};

// Every registered command, sorted by name.
std::vector<CommandInfo> Commands();

// "mediawire <version>".
std::string VersionLine();

// ---- interruption

// Installs the handlers of SIGINT, SIGTERM and SIGHUP. The first signal only sets a flag that
// long commands poll, so they stop cleanly and release what they hold; a second one ends the
// process at once.
void InstallSignalHandlers();
// The signal that asked the tool to stop, or 0.
int InterruptSignal();
bool Interrupted();
// The exit code of an interrupted command; prints "mediawire: interrupted".
int ExitInterrupted();

// ---- messages

// A line on stdout.
void Say(const std::string& line);
// "mediawire: warning: <text>" on stderr.
void Warn(const std::string& text);
// "mediawire: <text>" on stderr, the way main reports a Failure.
void Complain(const std::string& text);

// A progress line: rewritten in place on a terminal, one line per change on a pipe or file.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    // Shows text unless it is what is shown already.
    void Show(const std::string& text);
    // Ends the line on a terminal; further messages start on a line of their own.
    void Finish();

private:
    std::string FShown;
};

}  // namespace mw::tool
