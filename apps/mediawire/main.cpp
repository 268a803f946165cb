// mediawire: the command-line tool of the library. Each command lives in its own file and
// registers itself (see Tool.h); `mediawire --help` lists them, `mediawire COMMAND --help`
// tells one.
#include <cstdio>
#include <exception>
#include <set>
#include <string>

#include "Tool.h"

using namespace mw::tool;

int main(int argc, char** argv) {
    // Before anything slow, so that Ctrl-C is heard from the start.
    InstallSignalHandlers();

    CLI::App app{"mediawire: media streaming components on Linux", "mediawire"};
    app.set_version_flag("--version", VersionLine());
    app.require_subcommand(1);
    app.fallthrough(false);

    CommandRun chosen;
    std::set<std::string> known;
    std::string commandNames;
    for (const CommandInfo& info : Commands()) {
        CLI::App* command = app.add_subcommand(info.Name, info.Summary);
        command->callback([&chosen, run = info.Define(*command)] { chosen = run; });
        known.insert(info.Name);
        commandNames += (commandNames.empty() ? "" : ", ") + info.Name;
    }
    // Set after the commands were added, which would inherit it.
    app.footer(
        "Run 'mediawire COMMAND --help' for the options of a command.\n"
        "Exit codes: 0 done, 1 failure, 2 usage error, 128 + signal when stopped by a\n"
        "signal (130 for Ctrl-C).");

    // The first word that is not an option names the command.
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word[0] == '-') continue;
        if (!known.count(word)) {
            Complain("unknown command '" + word + "' (commands: " + commandNames + ")");
            Complain("run 'mediawire --help' for the usage");
            return kExitUsage;
        }
        break;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help and --version are "errors" with exit code 0.
        if (e.get_exit_code() == 0) return app.exit(e);
        Complain(e.what());
        const auto parsed = app.get_subcommands();
        Complain("run 'mediawire " +
                 (parsed.empty() ? std::string() : parsed[0]->get_name() + " ") +
                 "--help' for the usage");
        return kExitUsage;
    }

    try {
        if (!chosen) return kExitUsage;
        return chosen();
    } catch (const UsageError& e) {
        Complain(e.what());
        Complain("run 'mediawire " + app.get_subcommands()[0]->get_name() +
                 " --help' for the usage");
        return kExitUsage;
    } catch (const Failure& e) {
        Complain(e.what());
        return kExitFailure;
    } catch (const std::exception& e) {
        Complain(std::string("unexpected failure: ") + e.what());
        return kExitFailure;
    }
}
