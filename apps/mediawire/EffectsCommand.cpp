// mediawire effects: lists the audio effects with their parameters (kind, range and unit,
// default), or those of the effects named.
#include <cstdio>
#include <memory>

#include "Effects.h"
#include "Tool.h"

namespace mw::tool {
namespace {

int ListEffects(const std::vector<std::string>& wanted) {
    EffectScope com;
    // Unknown names fail before anything is printed.
    std::vector<TOwned<TQMDMOAudioEffect>> effects;
    for (const std::string& name : wanted.empty() ? EffectNames() : wanted)
        effects.emplace_back(CreateEffect(nullptr, name));
    char head[256];
    std::snprintf(head, sizeof head, "  %-22s %-8s %-34s %s", "parameter", "kind", "range",
                  "default");
    for (const auto& effect : effects) {
        Say(effect->Effect()->DmoName());
        Say(head);
        for (const std::string& line : DescribeParameters(*effect))
            Say(line);
    }
    Say("Use one with: mediawire play FILE --effect NAME[:parameter=value,...]");
    return kExitOk;
}

CommandRun Define(CLI::App& command) {
    auto names = std::make_shared<std::vector<std::string>>();
    command.add_option("NAME", *names, "Effects to describe (default: all)");
    return [names] { return ListEffects(*names); };
}

const CommandRegistration kEffects{"effects", "List the audio effects and their parameters",
                                   Define};

}  // namespace
}  // namespace mw::tool
