// The one record that describes audio everywhere in the system, TQAWaveFormatExtensible, and
// the rules around it: the formats the system fills by itself, the conversion of a graph's
// wave format block, speaker sets, format comparison and buffer durations.
//
// Everything here is plain data and pure functions: callable from any thread (sender threads,
// the wave thread, a graph's streaming thread) without a lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

#include "mmreg.h"

// KSDATAFORMAT_SUBTYPE_PCM and tWAVEFORMATEX (the 18-byte prefix) come from mmreg.h, which
// this header includes, so that audio code needs only this include.

// The platform's extensible wave format, 40 bytes, copied by value. It extends the 18-byte
// tWAVEFORMATEX, so a pointer to it is accepted wherever the platform takes a WAVEFORMATEX.
// A record whose nSamplesPerSec is 0 means that no format is set.
struct TQAWaveFormatExtensible : tWAVEFORMATEX {
    WORD wValidBitsPerSample;
    DWORD dwChannelMask;
    GUID SubFormat;
};
using PQAWaveFormatExtensible = TQAWaveFormatExtensible*;

// The layout must stay byte for byte that of WAVEFORMATEXTENSIBLE: records are copied from
// and handed to the platform as raw bytes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(sizeof(TQAWaveFormatExtensible) == 40);
static_assert(sizeof(TQAWaveFormatExtensible) == sizeof(WAVEFORMATEXTENSIBLE));
static_assert(offsetof(TQAWaveFormatExtensible, wFormatTag) == 0);
static_assert(offsetof(TQAWaveFormatExtensible, nChannels) == 2);
static_assert(offsetof(TQAWaveFormatExtensible, nSamplesPerSec) == 4);
static_assert(offsetof(TQAWaveFormatExtensible, nAvgBytesPerSec) == 8);
static_assert(offsetof(TQAWaveFormatExtensible, nBlockAlign) == 12);
static_assert(offsetof(TQAWaveFormatExtensible, wBitsPerSample) == 14);
static_assert(offsetof(TQAWaveFormatExtensible, cbSize) == 16);
static_assert(offsetof(TQAWaveFormatExtensible, wValidBitsPerSample) == 18);
static_assert(offsetof(TQAWaveFormatExtensible, dwChannelMask) == 20);
static_assert(offsetof(TQAWaveFormatExtensible, SubFormat) == 24);
#pragma GCC diagnostic pop
static_assert(std::is_trivially_copyable_v<TQAWaveFormatExtensible>);

// Speaker positions, numbered in the bit order of dwChannelMask.
enum class TQASpeaker : uint8_t {
    FrontLeft,
    FrontRight,
    FrontCenter,
    LowFrequency,
    BackLeft,
    BackRight,
    FrontLeftOfCenter,
    FrontRightOfCenter,
    BackCenter,
    SideLeft,
    SideRight,
    TopCenter,
    TopFrontLeft,
    TopFrontCenter,
    TopFrontRight,
    TopBackLeft,
    TopBackCenter,
    TopBackRight,
};
constexpr int kQASpeakerCount = 18;

// A set of speakers with the bits of dwChannelMask: TQASpeakers(mask) and DWORD(speakers) are
// plain casts. Bits above the 18 speakers (such as SPEAKER_ALL) are kept as they stand, so a
// mask survives the round trip unchanged.
class TQASpeakers {
public:
    constexpr TQASpeakers() = default;
    constexpr explicit TQASpeakers(DWORD mask) : FMask(mask) {}
    constexpr TQASpeakers(std::initializer_list<TQASpeaker> speakers) {
        for (TQASpeaker s : speakers)
            Include(s);
    }
    constexpr explicit operator DWORD() const { return FMask; }
    constexpr DWORD Mask() const { return FMask; }

    constexpr bool Contains(TQASpeaker s) const { return (FMask & Bit(s)) != 0; }
    constexpr TQASpeakers& Include(TQASpeaker s) {
        FMask |= Bit(s);
        return *this;
    }
    constexpr TQASpeakers& Exclude(TQASpeaker s) {
        FMask &= ~Bit(s);
        return *this;
    }
    constexpr bool Empty() const { return FMask == 0; }
    // Number of the 18 speakers in the set.
    constexpr int Count() const {
        int n = 0;
        for (int i = 0; i < kQASpeakerCount; ++i)
            n += (FMask >> i) & 1;
        return n;
    }
    friend constexpr bool operator==(TQASpeakers a, TQASpeakers b) { return a.FMask == b.FMask; }
    friend constexpr TQASpeakers operator|(TQASpeakers a, TQASpeakers b) {
        return TQASpeakers(a.FMask | b.FMask);
    }
    friend constexpr TQASpeakers operator&(TQASpeakers a, TQASpeakers b) {
        return TQASpeakers(a.FMask & b.FMask);
    }

private:
    static constexpr DWORD Bit(TQASpeaker s) { return DWORD(1) << static_cast<unsigned>(s); }
    DWORD FMask = 0;
};

// True when a and b describe the same format. For the extensible tag the meaning fields count
// (channels, rate, bytes per second, block, container and valid bits, mask, sub format) and
// cbSize does not; for other tags the 18-byte prefix and the extra bytes that cbSize announces
// (as far as the 40-byte record holds them) must agree.
bool QAIsEqualAudioFormat(const TQAWaveFormatExtensible& a, const TQAWaveFormatExtensible& b);
// The same for the simple record. For integer PCM cbSize is ignored, as the platform ignores it.
bool QAIsEqualAudioFormatStd(const tWAVEFORMATEX& a, const tWAVEFORMATEX& b);
// True when the simple wave format expresses the format without loss: integer PCM (tag 1, or
// the extensible tag with the PCM sub format), 1 or 2 channels, 8 or 16 bits, a block of
// channels * bits / 8, a rate above 0, and for the extensible tag valid bits equal to the
// container bits and a channel mask that is 0 or the usual one (front left, plus right).
bool QAIsStandardFormat(const TQAWaveFormatExtensible& format);

namespace mw {

constexpr WORD kExtensibleCbSize = 22;

// dwChannelMask for a channel count: (1 << (channels mod 32)) - 1, so 32 channels give 0.
constexpr DWORD ChannelMaskFor(unsigned channels) {
    return (DWORD(1) << (channels & 31u)) - 1u;
}

// The extensible integer PCM record the system builds itself: tag 65534, cbSize 22, valid
// bits = bits, the sub format PCM. The container is bits rounded up to whole bytes; the block
// is channels times the container bytes. The mask is ChannelMaskFor(channels) unless given.
constexpr TQAWaveFormatExtensible MakePcmWaveFormat(DWORD samplesPerSec, WORD bits, WORD channels,
                                                    DWORD channelMask) {
    const WORD containerBytes = static_cast<WORD>((bits + 7u) / 8u);
    const WORD blockAlign = static_cast<WORD>(containerBytes * channels);
    TQAWaveFormatExtensible f{};
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.nChannels = channels;
    f.nSamplesPerSec = samplesPerSec;
    f.nAvgBytesPerSec = samplesPerSec * blockAlign;
    f.nBlockAlign = blockAlign;
    f.wBitsPerSample = static_cast<WORD>(containerBytes * 8u);
    f.cbSize = kExtensibleCbSize;
    f.wValidBitsPerSample = bits;
    f.dwChannelMask = channelMask;
    f.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
    return f;
}
constexpr TQAWaveFormatExtensible MakePcmWaveFormat(DWORD samplesPerSec, WORD bits, WORD channels) {
    return MakePcmWaveFormat(samplesPerSec, bits, channels, ChannelMaskFor(channels));
}

// The format with which a wave output probes whether it can open its device: 11025 Hz,
// 16 bits, mono.
inline constexpr TQAWaveFormatExtensible kProbeWaveFormat = MakePcmWaveFormat(11025, 16, 1);
// The format a graph output uses when its stream brought none: 11025 Hz, 16 bits, stereo.
inline constexpr TQAWaveFormatExtensible kGraphOutputDefaultWaveFormat =
    MakePcmWaveFormat(11025, 16, 2);

// Whether a record carries a format at all.
constexpr bool HasWaveFormat(const TQAWaveFormatExtensible& f) {
    return f.nSamplesPerSec != 0;
}

// Turns a graph's wave format block (a WAVEFORMATEX, possibly followed by more bytes) into the
// record. Tags 1 (integer PCM) and 3 (IEEE float) become extensible PCM of the same channels,
// rate, bytes per second, block and bits, with cbSize 22, valid bits = bits and the channel
// mask by ChannelMaskFor; isFloat tells that the samples are float all the same and must go
// through FloatToInt32Samples. Any other tag copies the block's first 40 bytes as they stand
// (a shorter block is padded with zeros). False, with out and isFloat untouched, when the
// block is null or too short to hold the fields (16 bytes).
bool WaveFormatFromGraphFormat(const void* block, size_t size, TQAWaveFormatExtensible& out,
                               bool& isFloat);

// One float sample as a 32-bit integer: value * 2147483647.0, rounded to nearest (ties to
// even), clamped to the int32 range; NaN gives 0.
int32_t FloatToInt32Sample(float value);
// Converts count 32-bit float samples at src into int32 samples at dst. src and dst may be the
// same memory (conversion in place) and need not be aligned.
void FloatToInt32Samples(const void* src, void* dst, size_t count);

// Duration of a number of samples per channel, truncating: in 100 ns units and in
// milliseconds. 0 when the rate is 0 (no format).
constexpr int64_t SamplesToDuration100ns(int64_t samples, uint32_t samplesPerSec) {
    return samplesPerSec == 0 ? 0 : samples * 10'000'000 / samplesPerSec;
}
constexpr int64_t SamplesToMilliseconds(int64_t samples, uint32_t samplesPerSec) {
    return samplesPerSec == 0 ? 0 : samples * 1000 / samplesPerSec;
}

}  // namespace mw
