// The wave output devices as the commands name them: the list, a user's name resolved to the
// device (case does not matter), and the platform's text for a wave error code.
#pragma once

#include <string>
#include <vector>

#include "mmsystem.h"

namespace mw::tool {

// The name "WAV File Output" carries in the device list.
extern const char* const kWavFileOutput;

std::vector<std::string> OutputDeviceNames();

// The listed name of the device a user typed (any case); "default" (any case) gives "Default",
// the name of the default device on the output component. Failure for a name not listed.
std::string ResolveOutputDevice(const std::string& typed);

// The platform's text for a wave error code, e.g. "the device is not enabled"; the number when
// the platform has no text for it.
std::string WaveErrorText(MMRESULT code);

}  // namespace mw::tool
