// Linux-side extras of the wave output device (mmsystem.h): what a test, a benchmark or the
// command-line tool needs to see or steer that the platform's API has no word for.
//
// The device list: real ALSA playback devices (one per card and PCM device, found once at the
// first use), then "Virtual Output" (always present, paced by its own clock, audio discarded
// after the tap), then "WAV File Output" (writes a WAV file, as fast as it is fed), then the
// ALSA devices added with AddAlsaDevice, in the order of the calls. WAVE_MAPPER opens the ALSA
// "default" PCM when it opens, else "Virtual Output".
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "mmsystem.h"

namespace mw::wave {

// Receives every frame that "Virtual Output" plays, in play order, when it has played: the
// format record of the open handle (the whole extensible record when the stream has one),
// and whole frames. Runs on the thread that advances the device (its device thread, or a
// thread in a waveOut call on that handle), with the handle's lock held: it must not call
// waveOut functions. An empty function removes the tap. Frames dropped by
// waveOutReset before they played never reach it.
using TapFunction = std::function<void(const WAVEFORMATEX& format, const void* data, size_t bytes)>;
void SetVirtualOutputTap(TapFunction tap);

// Paced (the default): "Virtual Output" plays in real time, and a header is done when its last
// frame has played by the device's clock. Unpaced: everything written plays at once, for
// benchmarks and fast tests. Applies to handles opened afterwards.
void SetVirtualOutputPaced(bool paced);

// Counters of an open handle.
struct OutputStats {
    uint64_t buffersPlayed = 0;  // headers done by playing (not by reset)
    uint64_t framesPlayed = 0;   // since open, across resets
    uint64_t underruns = 0;      // times the device ran dry while written audio waited to reach it
    MMRESULT error = MMSYSERR_NOERROR;  // the device's first failure (see "WAV File Output")
};
// MMSYSERR_INVALHANDLE for a handle that is not open, MMSYSERR_INVALPARAM for a null record.
MMRESULT GetOutputStats(HWAVEOUT hwo, OutputStats* stats);

// Adds an ALSA PCM as a device at the end of the list, named displayName (at most 31 characters
// are shown). pcmName is opened from the system's ALSA configuration extended by configText
// (ALSA configuration syntax; may be empty), e.g. pcmName "tap" with
//   pcm.tap { type file slave.pcm "null" file "/tmp/x.raw" format "raw" }
// The device is the same ALSA device class as the cards'. Adding a name again replaces that
// device's definition under the same number. Returns MMSYSERR_INVALPARAM when the text does not
// parse, MMSYSERR_ALLOCATED when a built-in device has the name; *deviceId (may be null) gets
// the device number.
MMRESULT AddAlsaDevice(const std::string& displayName, const std::string& pcmName,
                       const std::string& configText, UINT* deviceId);

// The file that "WAV File Output" writes at its next open (truncated then, completed at close).
// Until a path is set, opening that device gives MMSYSERR_NOTENABLED.
// When a write fails (a full disk), or the audio would outgrow what a WAV file can hold (the
// RIFF sizes are 32-bit: about 4 GiB), the file keeps what was written before, completed as a
// valid WAV file at close, and the device fails: waveOutWrite refuses further headers with
// MMSYSERR_ERROR, GetOutputStats reports that error, and waveOutClose, which closes the handle
// all the same, answers it.
void SetWaveFileOutputPath(const std::string& path);
// The most data bytes a file of "WAV File Output" takes: the RIFF limit by default, less for
// trying the limit without writing gigabytes. 0 restores the default. Applies at the next open.
void SetWaveFileOutputLimit(uint64_t bytes);

// The device number of the device of that name, or WAVE_MAPPER when there is none.
UINT FindOutputDevice(const std::string& name);

// The name of the device that WAVE_MAPPER opens at present.
std::string DefaultOutputName();

}  // namespace mw::wave
