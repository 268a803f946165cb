// The format tags the compression manager knows, and the reading, checking and building of
// their format blocks (the records other programs write into WAV files, byte for byte).
// Pure functions over plain data: any thread.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "msacm.h"

namespace mw::acm {

enum class TagKind { Pcm, Float, Codec };

struct TagInfo {
    WORD tag;
    const char* name;  // the tag text of acmFormatTagDetailsA
    TagKind kind;
    int codecId;              // AVCodecID of the codec; 0 for PCM and float
    int encoderId;            // AVCodecID to encode with (0: decode only)
    const char* encoderName;  // a named encoder where the codec id has several, else null
    DWORD formatSize;         // the largest block of the tag
};

// Every tag, in the order acmFormatTagEnumA lists them.
std::span<const TagInfo> Tags();
const TagInfo* FindTag(WORD tag);
// The largest format block of any tag (acmMetrics, ACM_METRIC_MAX_SIZE_FORMAT).
DWORD MaxFormatSize();

// A format block read and checked.
struct Format {
    const TagInfo* info = nullptr;
    int channels = 0;
    int rate = 0;
    int blockAlign = 0;
    int bits = 0;             // container bits of PCM and float
    int samplesPerBlock = 1;  // frames one block decodes to (PCM, A-law and mu-law: 1)
    DWORD avgBytesPerSec = 0;
    std::vector<uint8_t> extra;  // the bytes behind the 18-byte record (cbSize of them)
    bool IsPcm() const { return info->kind != TagKind::Codec; }
    // Bytes of one PCM frame (PCM and float only).
    int FrameBytes() const { return channels * bits / 8; }
};

// Reads a format block: tags 1 and 3, the extensible form with the PCM or float sub format,
// and the codec tags. MMSYSERR_INVALPARAM for null or a block whose fields contradict each
// other or its tag's record (zero channels or rate, a block align that its samples don't
// fill, cbSize too short for the record, coefficients beyond cbSize); ACMERR_NOTPOSSIBLE for a
// tag not handled here.
MMRESULT ReadFormat(const WAVEFORMATEX* wfx, Format& out);

// The 18-byte integer PCM record.
WAVEFORMATEX MakePcm(int channels, int rate, int bits);

// The block of a codec format for PCM of channels and rate, as the platform's codecs suggest
// it: IMA and Microsoft ADPCM with 256 bytes per channel per 11025 Hz, GSM 6.10 in blocks of 65
// bytes, MPEG layer 3 and WMA at a usual bit rate (read back from the encoder), A-law and
// mu-law 8 bits. ACMERR_NOTPOSSIBLE when the codec has no encoder here or can't take that
// PCM.
MMRESULT BuildCodecFormat(const TagInfo& info, int channels, int rate, std::vector<uint8_t>& block);

// The standard coefficient pairs of Microsoft ADPCM.
extern const ADPCMCOEFSET kMsAdpcmCoefficients[7];

}  // namespace mw::acm
