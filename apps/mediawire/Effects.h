// The audio effects of the tool: choosing one by name with its settings, and describing the
// parameters of each for `mediawire effects`. Creating effects needs the calling thread's
// apartment, which an EffectScope opens.
#pragma once

#include <string>
#include <vector>

#include "media_objects/QMDMOAudioEffect.h"

namespace mw::tool {

// CoInitialize for the life of the scope.
class EffectScope {
public:
    EffectScope();
    ~EffectScope();
    EffectScope(const EffectScope&) = delete;
    EffectScope& operator=(const EffectScope&) = delete;
};

// The effect of "NAME[:param=value,...]" (the name as `mediawire effects` lists it, any case),
// owned by `owner`. Throws Failure for an unknown effect, parameter or value.
TQMDMOAudioEffect* CreateEffect(TComponent* owner, const std::string& text);

// The names of the effects, in the platform's order.
std::vector<std::string> EffectNames();

// One line per parameter of the effect chosen in `effect`: name, kind, range and unit, and its
// value now (the default for a new effect); enum values are listed.
std::vector<std::string> DescribeParameters(TQMDMOAudioEffect& effect);

}  // namespace mw::tool
