#include "frame/QAAudioFormat.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

bool SamePrefix(const tWAVEFORMATEX& a, const tWAVEFORMATEX& b) {
    return a.wFormatTag == b.wFormatTag && a.nChannels == b.nChannels &&
           a.nSamplesPerSec == b.nSamplesPerSec && a.nAvgBytesPerSec == b.nAvgBytesPerSec &&
           a.nBlockAlign == b.nBlockAlign && a.wBitsPerSample == b.wBitsPerSample;
}

// The bytes behind the 18-byte prefix, as many as the record holds.
const BYTE* ExtraBytes(const TQAWaveFormatExtensible& f) {
    return reinterpret_cast<const BYTE*>(&f) + sizeof(tWAVEFORMATEX);
}
constexpr size_t kExtraCapacity = sizeof(TQAWaveFormatExtensible) - sizeof(tWAVEFORMATEX);

}  // namespace

bool QAIsEqualAudioFormat(const TQAWaveFormatExtensible& a, const TQAWaveFormatExtensible& b) {
    if (!SamePrefix(a, b)) return false;
    if (a.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        return a.wValidBitsPerSample == b.wValidBitsPerSample &&
               a.dwChannelMask == b.dwChannelMask && IsEqualGUID(a.SubFormat, b.SubFormat);
    }
    if (a.cbSize != b.cbSize) return false;
    const size_t extra = a.cbSize < kExtraCapacity ? a.cbSize : kExtraCapacity;
    return std::memcmp(ExtraBytes(a), ExtraBytes(b), extra) == 0;
}

bool QAIsEqualAudioFormatStd(const tWAVEFORMATEX& a, const tWAVEFORMATEX& b) {
    if (!SamePrefix(a, b)) return false;
    return a.wFormatTag == WAVE_FORMAT_PCM || a.cbSize == b.cbSize;
}

bool QAIsStandardFormat(const TQAWaveFormatExtensible& f) {
    if (f.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        if (!IsEqualGUID(f.SubFormat, KSDATAFORMAT_SUBTYPE_PCM)) return false;
        if (f.wValidBitsPerSample != f.wBitsPerSample) return false;
        if (f.dwChannelMask != 0 && f.dwChannelMask != mw::ChannelMaskFor(f.nChannels))
            return false;
    } else if (f.wFormatTag != WAVE_FORMAT_PCM) {
        return false;
    }
    if (f.nChannels != 1 && f.nChannels != 2) return false;
    if (f.wBitsPerSample != 8 && f.wBitsPerSample != 16) return false;
    return f.nSamplesPerSec != 0 && f.nBlockAlign == f.nChannels * f.wBitsPerSample / 8;
}

namespace mw {

bool WaveFormatFromGraphFormat(const void* block, size_t size, TQAWaveFormatExtensible& out,
                               bool& isFloat) {
    // A PCM block may be the 16-byte PCMWAVEFORMAT without cbSize; nothing behind it is read.
    constexpr size_t kMinimum = offsetof(tWAVEFORMATEX, cbSize);
    if (!block || size < kMinimum) return false;

    tWAVEFORMATEX in{};
    std::memcpy(&in, block, size < sizeof(in) ? size : sizeof(in));
    if (in.wFormatTag == WAVE_FORMAT_PCM || in.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        TQAWaveFormatExtensible f{};
        f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
        f.nChannels = in.nChannels;
        f.nSamplesPerSec = in.nSamplesPerSec;
        f.nAvgBytesPerSec = in.nAvgBytesPerSec;
        f.nBlockAlign = in.nBlockAlign;
        f.wBitsPerSample = in.wBitsPerSample;
        f.cbSize = kExtensibleCbSize;
        f.wValidBitsPerSample = in.wBitsPerSample;
        f.dwChannelMask = ChannelMaskFor(in.nChannels);
        f.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
        out = f;
        isFloat = in.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
        return true;
    }
    TQAWaveFormatExtensible f{};
    std::memcpy(&f, block, size < sizeof(f) ? size : sizeof(f));
    out = f;
    isFloat = false;
    return true;
}

int32_t FloatToInt32Sample(float value) {
    if (std::isnan(value)) return 0;
    const double scaled = std::nearbyint(static_cast<double>(value) * 2147483647.0);
    // Clamped before the cast: converting an out-of-range double to int32 is undefined.
    if (scaled >= 2147483647.0) return std::numeric_limits<int32_t>::max();
    if (scaled <= -2147483648.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(scaled);
}

void FloatToInt32Samples(const void* src, void* dst, size_t count) {
    // Element by element through memcpy: the same bytes may be read as float and written as
    // int32 without breaking type rules, and any alignment is fine.
    const BYTE* s = static_cast<const BYTE*>(src);
    BYTE* d = static_cast<BYTE*>(dst);
    for (size_t i = 0; i < count; ++i) {
        float v;
        std::memcpy(&v, s + i * 4, 4);
        const int32_t r = FloatToInt32Sample(v);
        std::memcpy(d + i * 4, &r, 4);
    }
}

}  // namespace mw
