// Wave format records of the platform and the format tags and sub formats that name them.
#pragma once

#include "guiddef.h"

#pragma pack(push, 1)
// 18 bytes, packed as the platform lays it out.
typedef struct tWAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
} WAVEFORMATEX, *PWAVEFORMATEX, *LPWAVEFORMATEX;
typedef const WAVEFORMATEX* LPCWAVEFORMATEX;

// The extensible form: 40 bytes.
typedef struct {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
} WAVEFORMATEXTENSIBLE, *PWAVEFORMATEXTENSIBLE;

typedef struct waveformat_tag {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
} WAVEFORMAT, *PWAVEFORMAT;

typedef struct pcmwaveformat_tag {
    WAVEFORMAT wf;
    WORD wBitsPerSample;
} PCMWAVEFORMAT, *PPCMWAVEFORMAT;
#pragma pack(pop)

static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, dwChannelMask) == 20);
static_assert(offsetof(WAVEFORMATEXTENSIBLE, SubFormat) == 24);

constexpr WORD WAVE_FORMAT_UNKNOWN = 0x0000;
constexpr WORD WAVE_FORMAT_PCM = 0x0001;
constexpr WORD WAVE_FORMAT_ADPCM = 0x0002;
constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 0x0003;
constexpr WORD WAVE_FORMAT_ALAW = 0x0006;
constexpr WORD WAVE_FORMAT_MULAW = 0x0007;
constexpr WORD WAVE_FORMAT_DVI_ADPCM = 0x0011;
constexpr WORD WAVE_FORMAT_IMA_ADPCM = 0x0011;
constexpr WORD WAVE_FORMAT_GSM610 = 0x0031;
constexpr WORD WAVE_FORMAT_MPEGLAYER3 = 0x0055;
constexpr WORD WAVE_FORMAT_WMAUDIO2 = 0x0161;
constexpr WORD WAVE_FORMAT_WMAUDIO3 = 0x0162;
constexpr WORD WAVE_FORMAT_WMAUDIO_LOSSLESS = 0x0163;
constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// Speaker positions of dwChannelMask.
constexpr DWORD SPEAKER_FRONT_LEFT = 0x1;
constexpr DWORD SPEAKER_FRONT_RIGHT = 0x2;
constexpr DWORD SPEAKER_FRONT_CENTER = 0x4;
constexpr DWORD SPEAKER_LOW_FREQUENCY = 0x8;
constexpr DWORD SPEAKER_BACK_LEFT = 0x10;
constexpr DWORD SPEAKER_BACK_RIGHT = 0x20;
constexpr DWORD SPEAKER_FRONT_LEFT_OF_CENTER = 0x40;
constexpr DWORD SPEAKER_FRONT_RIGHT_OF_CENTER = 0x80;
constexpr DWORD SPEAKER_BACK_CENTER = 0x100;
constexpr DWORD SPEAKER_SIDE_LEFT = 0x200;
constexpr DWORD SPEAKER_SIDE_RIGHT = 0x400;
constexpr DWORD SPEAKER_TOP_CENTER = 0x800;
constexpr DWORD SPEAKER_TOP_FRONT_LEFT = 0x1000;
constexpr DWORD SPEAKER_TOP_FRONT_CENTER = 0x2000;
constexpr DWORD SPEAKER_TOP_FRONT_RIGHT = 0x4000;
constexpr DWORD SPEAKER_TOP_BACK_LEFT = 0x8000;
constexpr DWORD SPEAKER_TOP_BACK_CENTER = 0x10000;
constexpr DWORD SPEAKER_TOP_BACK_RIGHT = 0x20000;
constexpr DWORD SPEAKER_ALL = 0x80000000;

// Sub formats of the extensible form: {tag}-0000-0010-8000-00AA00389B71.
DEFINE_GUID(KSDATAFORMAT_SUBTYPE_PCM, 0x00000001, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71);
DEFINE_GUID(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 0x00000003, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71);
DEFINE_GUID(KSDATAFORMAT_SUBTYPE_ALAW, 0x00000006, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71);
DEFINE_GUID(KSDATAFORMAT_SUBTYPE_MULAW, 0x00000007, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71);
