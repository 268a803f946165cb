// Volume and balance on samples.
#include "platform/filters/AudioGain.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "uuids.h"

namespace mw::filters {

void ApplyVolume(BYTE* data, size_t size, const std::vector<BYTE>& format, LONG volume,
                 LONG balance) {
    if ((volume == 0 && balance == 0) || format.size() < 16) return;
    const double master = volume <= -10000 ? 0.0 : std::pow(10.0, volume / 2000.0);
    const double left = balance > 0 ? std::pow(10.0, -balance / 2000.0) : 1.0;
    const double right = balance < 0 ? std::pow(10.0, balance / 2000.0) : 1.0;
    const auto& wf = *reinterpret_cast<const WAVEFORMATEX*>(format.data());
    const int channels = wf.nChannels;
    const int bytes = wf.wBitsPerSample / 8;
    if (wf.nBlockAlign == 0 || bytes == 0) return;
    bool isFloat = wf.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    if (wf.wFormatTag == WAVE_FORMAT_EXTENSIBLE && format.size() >= 40)
        isFloat =
            IsEqualGUID(reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format.data())->SubFormat,
                        MEDIASUBTYPE_IEEE_FLOAT);
    const size_t frames = size / wf.nBlockAlign;
    for (size_t f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            const double g = master * (c == 0 && channels > 1 ? left : c == 1 ? right : 1.0);
            BYTE* p = data + f * wf.nBlockAlign + c * bytes;
            if (isFloat) {
                float v;
                std::memcpy(&v, p, 4);
                v = static_cast<float>(v * g);
                std::memcpy(p, &v, 4);
            } else if (bytes == 1) {
                const int v = static_cast<int>(*p) - 128;
                *p = static_cast<BYTE>(std::lround(v * g) + 128);
            } else {
                // The sample in the top bytes of a 32-bit word keeps its sign.
                int32_t v = 0;
                std::memcpy(reinterpret_cast<char*>(&v) + (4 - bytes), p, bytes);
                v = static_cast<int32_t>(std::lround(v * g));
                std::memcpy(p, reinterpret_cast<char*>(&v) + (4 - bytes), bytes);
            }
        }
    }
}

}  // namespace mw::filters
