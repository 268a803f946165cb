// Volume and balance applied to interleaved PCM or float samples, as IBasicAudio expresses them.
#pragma once

#include <cstddef>
#include <vector>

#include "mmreg.h"

namespace mw::filters {

// volume in 1/100 dB (-10000 silent .. 0), balance -10000 (right silent) .. 10000 (left silent).
// format: the wave format record (plain or extensible). Unity gain leaves the samples as they
// are, bit for bit.
void ApplyVolume(BYTE* data, size_t bytes, const std::vector<BYTE>& format, LONG volume,
                 LONG balance);

}  // namespace mw::filters
