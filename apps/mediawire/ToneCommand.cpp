// mediawire tone FILE [SECONDS]: writes the test tone as a WAV file.
#include <memory>

#include "Tone.h"
#include "Tool.h"

namespace mw::tool {
namespace {

struct ToneOptions {
    std::string File;
    double Seconds = 1.0;
};

CommandRun Define(CLI::App& command) {
    auto o = std::make_shared<ToneOptions>();
    command.add_option("FILE", o->File, "The WAV file to write")->required();
    command.add_option("SECONDS", o->Seconds, "Length of the tone (default 1)")
        ->check(CLI::Range(0.001, kMaxToneSeconds));
    return [o] {
        WriteToneFile(o->File, o->Seconds);
        return Interrupted() ? ExitInterrupted() : kExitOk;
    };
}

const CommandRegistration kTone{"tone", "Write a 440 Hz test tone as a WAV file", Define};

}  // namespace
}  // namespace mw::tool
