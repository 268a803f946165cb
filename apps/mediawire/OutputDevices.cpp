#include "OutputDevices.h"

#include <strings.h>

#include "Tool.h"
#include "audio_out/QAAudioOut.h"

namespace mw::tool {

const char* const kWavFileOutput = "WAV File Output";

std::vector<std::string> OutputDeviceNames() {
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    return TComponent::New<TQAAudioOut>(form.get())->GetDeviceList();
}

std::string ResolveOutputDevice(const std::string& typed) {
    if (strcasecmp(typed.c_str(), "default") == 0) return "Default";
    const auto names = OutputDeviceNames();
    // An exact match first, should two names differ only in case.
    for (const std::string& name : names)
        if (name == typed) return name;
    for (const std::string& name : names)
        if (strcasecmp(name.c_str(), typed.c_str()) == 0) return name;
    throw Failure("unknown device '" + typed + "' (see mediawire devices)");
}

std::string WaveErrorText(MMRESULT code) {
    char text[MAXERRORLENGTH] = {};
    if (waveOutGetErrorTextA(code, text, sizeof text) == MMSYSERR_NOERROR && text[0]) return text;
    return "error " + std::to_string(code);
}

}  // namespace mw::tool
