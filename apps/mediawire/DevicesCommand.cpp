// mediawire devices: the wave output devices, numbered as the platform numbers them, with the
// one the default opens marked.
#include <cstdio>

#include "OutputDevices.h"
#include "Tool.h"
#include "mwwave.h"

namespace mw::tool {
namespace {

int ListDevices() {
    const std::string def = mw::wave::DefaultOutputName();
    const auto names = OutputDeviceNames();
    for (size_t i = 0; i < names.size(); ++i) {
        char line[160];
        std::snprintf(line, sizeof line, "%zu  %s%s", i, names[i].c_str(),
                      names[i] == def ? "  (default)" : "");
        Say(line);
    }
    return kExitOk;
}

const CommandRegistration kDevices{
    "devices", "List the output devices: ALSA cards, \"Virtual Output\", \"WAV File Output\"",
    [](CLI::App&) -> CommandRun { return ListDevices; }};

}  // namespace
}  // namespace mw::tool
