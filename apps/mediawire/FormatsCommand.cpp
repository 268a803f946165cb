// mediawire formats: the audio formats convert writes, with the compression manager's name of
// each format tag and whether it can be written here or only read.
#include <cstdio>

#include "AudioFormats.h"
#include "Tool.h"

namespace mw::tool {
namespace {

int ListFormats() {
    Say("NAME        TAG     FORMAT TAG NAME              WRITE");
    for (const NamedAudioFormat& f : NamedAudioFormats()) {
        ACMFORMATTAGDETAILSA d{};
        d.cbStruct = sizeof d;
        d.dwFormatTag = f.Tag;
        acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG);
        std::string write = "yes";
        try {
            const bool gsm = f.Tag == WAVE_FORMAT_GSM610;
            MakeAudioFormat(f, gsm ? 1 : 2, gsm ? 8000 : 44100);
            if (gsm) write = "8000 Hz mono";
        } catch (const Failure&) {
            write = "read only";
        }
        char line[160];
        std::snprintf(line, sizeof line, "%-11s 0x%04X  %-28s %s", f.Name, unsigned(f.Tag),
                      d.szFormatTag, write.c_str());
        Say(line);
    }
    return kExitOk;
}

const CommandRegistration kFormats{"formats", "List the audio formats that convert writes",
                                   [](CLI::App&) -> CommandRun { return ListFormats; }};

}  // namespace
}  // namespace mw::tool
