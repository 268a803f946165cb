// mediawire classes: runs the registration of every unit that has one, as a designer does when
// it loads the package, and prints the palette: class, page, category and bitmap names.
#include <cstdio>

#include "Tool.h"
#include "audio_out/QAAudioOut.h"
#include "frame/Registration.h"
#include "playback/QMAudioFileSource.h"

namespace mw::tool {
namespace {

int ListClasses() {
    QAAudioOut::RegisterPkg();
    QMAudioFileSource::RegisterPkg();
    char line[256];
    std::snprintf(line, sizeof line, "%-24s %-10s %-32s %s", "class", "page", "category",
                  "bitmaps");
    Say(line);
    for (const TPaletteEntry& e : PaletteEntries()) {
        std::snprintf(line, sizeof line, "%-24s %-10s %-32s %s %s %s",
                      e.ComponentClass->ClassName(), e.Page.c_str(),
                      e.Category.empty() ? "-" : e.Category.c_str(), e.Bitmap.c_str(),
                      e.Bitmap16.c_str(), e.Bitmap32.c_str());
        Say(line);
    }
    return kExitOk;
}

const CommandRegistration kClasses{
    "classes", "List the components on the palette: class, page, category, bitmaps",
    [](CLI::App&) -> CommandRun { return ListClasses; }};

}  // namespace
}  // namespace mw::tool
