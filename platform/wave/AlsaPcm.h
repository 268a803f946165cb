// ALSA playback devices of the device list: the PCM devices of the sound cards, the system's
// "default" PCM (for WAVE_MAPPER) and PCMs defined by configuration text (AddAlsaDevice). All
// are the same class, AlsaOutputDevice; its sink, AlsaPcm, writes without blocking from the
// handle's device thread and recovers from underruns with snd_pcm_recover.
#pragma once

#include <alsa/asoundlib.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/wave/WaveDevice.h"

namespace mw::wave {

// The ALSA sample format of a wave format: 8 bits unsigned U8, 16 S16_LE, 24 packed in 3
// bytes S24_3LE, 32 S32_LE (also when fewer bits are valid: they sit at the top), float
// FLOAT_LE, 64-bit float FLOAT64_LE. SND_PCM_FORMAT_UNKNOWN for anything else.
snd_pcm_format_t AlsaFormatFor(const PcmFormat& format);

// Routes alsa-lib's diagnostics to nowhere: a machine without a card must stay quiet.
void SilenceAlsaErrors();

struct AlsaTarget {
    std::string displayName;
    std::string pcmName;        // opened when the device may convert
    std::string directPcmName;  // opened with WAVE_FORMAT_DIRECT; empty: same as pcmName
    std::string configText;     // added to the system configuration; empty: none
    WORD maxChannels = 2;
};

std::unique_ptr<OutputDevice> MakeAlsaOutputDevice(AlsaTarget target);

// One device per playback PCM device of every card, named "<card>: <pcm>" (cut to 31).
std::vector<std::unique_ptr<OutputDevice>> EnumerateAlsaCards();

// Whether the system's "default" PCM opens for playback (asked once, then remembered).
bool AlsaDefaultOpens();

// MMSYSERR_INVALPARAM when the text is not ALSA configuration syntax.
MMRESULT CheckAlsaConfigText(const std::string& text);

}  // namespace mw::wave
