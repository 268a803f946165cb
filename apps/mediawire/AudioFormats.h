// The audio formats the tool writes, by the short names of --format, and the format blocks
// the compression manager makes for them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "msacm.h"

namespace mw::tool {

struct NamedAudioFormat {
    const char* Name;  // "ima-adpcm", "pcm16", ...
    WORD Tag;
    int Bits;  // PCM and float: the sample size; codecs: 0
};

const std::vector<NamedAudioFormat>& NamedAudioFormats();
// Null for a name that isn't one of them (any case).
const NamedAudioFormat* FindNamedAudioFormat(const std::string& name);
// The format block for channels and rate; throws Failure when the codec can't take them.
std::vector<uint8_t> MakeAudioFormat(const NamedAudioFormat& f, int channels, int rate);

}  // namespace mw::tool
