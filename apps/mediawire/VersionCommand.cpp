// mediawire version: the same as mediawire --version.
#include "Tool.h"

namespace mw::tool {
namespace {

const CommandRegistration kVersion{"version", "Print the version", [](CLI::App&) -> CommandRun {
                                       return [] {
                                           Say(VersionLine());
                                           return kExitOk;
                                       };
                                   }};

}  // namespace
}  // namespace mw::tool
