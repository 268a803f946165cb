#include "Effects.h"

#include <cctype>
#include <cstdio>

#include "Tool.h"
#include "objbase.h"

namespace mw::tool {

namespace {

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string Number(float v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", static_cast<double>(v));
    return buf;
}

}  // namespace

EffectScope::EffectScope() {
    CoInitialize(nullptr);
}

EffectScope::~EffectScope() {
    CoUninitialize();
}

std::vector<std::string> EffectNames() {
    TOwned<TQMDMOAudioEffect> probe(TComponent::New<TQMDMOAudioEffect>(nullptr));
    return probe->Effect()->GetDmoNames();
}

TQMDMOAudioEffect* CreateEffect(TComponent* owner, const std::string& text) {
    const size_t colon = text.find(':');
    const std::string wanted = text.substr(0, colon);
    const std::string settings = colon == std::string::npos ? "" : text.substr(colon + 1);
    std::string name;
    for (const std::string& n : EffectNames())
        if (Lower(n) == Lower(wanted)) name = n;
    if (name.empty()) throw Failure("unknown effect '" + wanted + "' (see mediawire effects)");
    auto* effect = TComponent::New<TQMDMOAudioEffect>(owner);
    effect->Effect()->SetDmoName(name);
    if (!effect->Effect()->Open()) throw Failure("cannot create the effect '" + name + "'");
    std::string error;
    if (!effect->ApplySettings(settings, error))
        throw Failure("effect '" + name + "': " + error + " (see mediawire effects " + name + ")");
    return effect;
}

std::vector<std::string> DescribeParameters(TQMDMOAudioEffect& effect) {
    std::vector<std::string> lines;
    TQMDMOParameters& ps = *effect.Effect()->Parameters();
    for (int i = 0; i < ps.GetCount(); ++i) {
        TQMDMOParameter* p = ps.GetItem(i);
        std::string kind, range;
        if (auto* e = dynamic_cast<TQMDMOEnumParameter*>(p)) {
            kind = "enum";
            for (const std::string& v : e->EnumValues())
                range += (range.empty() ? "" : " | ") + v;
        } else if (p->Is<TQMDMOBoolParameter>()) {
            kind = "bool";
            range = "True | False";
        } else {
            kind = p->Is<TQMDMOIntegerParameter>() ? "integer" : "float";
            range = Number(p->Min()) + " .. " + Number(p->Max());
            if (!p->ValueUnit().empty()) range += " " + p->ValueUnit();
        }
        char line[256];
        std::snprintf(line, sizeof line, "  %-22s %-8s %-34s %s", p->Name().c_str(), kind.c_str(),
                      range.c_str(), p->GetDisplayValue().c_str());
        lines.push_back(line);
    }
    return lines;
}

}  // namespace mw::tool
