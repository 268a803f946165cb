#include "platform/acm/AcmFormats.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavcodec/codec_id.h>
}

#include "mwacm.h"

namespace mw::acm {

const ADPCMCOEFSET kMsAdpcmCoefficients[7] = {{256, 0}, {512, -256}, {0, 0},     {192, 64},
                                              {240, 0}, {460, -208}, {392, -232}};

namespace {

constexpr DWORD kWfx = sizeof(WAVEFORMATEX);

const TagInfo kTags[] = {
    {WAVE_FORMAT_PCM, "PCM", TagKind::Pcm, 0, 0, nullptr, kWfx},
    {WAVE_FORMAT_ADPCM, "Microsoft ADPCM", TagKind::Codec, AV_CODEC_ID_ADPCM_MS,
     AV_CODEC_ID_ADPCM_MS, nullptr, kWfx + 4 + 7 * 4},
    {WAVE_FORMAT_IEEE_FLOAT, "IEEE Float", TagKind::Float, 0, 0, nullptr, kWfx},
    {WAVE_FORMAT_ALAW, "CCITT A-Law", TagKind::Codec, AV_CODEC_ID_PCM_ALAW, AV_CODEC_ID_PCM_ALAW,
     nullptr, kWfx},
    {WAVE_FORMAT_MULAW, "CCITT u-Law", TagKind::Codec, AV_CODEC_ID_PCM_MULAW, AV_CODEC_ID_PCM_MULAW,
     nullptr, kWfx},
    {WAVE_FORMAT_IMA_ADPCM, "IMA ADPCM", TagKind::Codec, AV_CODEC_ID_ADPCM_IMA_WAV,
     AV_CODEC_ID_ADPCM_IMA_WAV, nullptr, sizeof(IMAADPCMWAVEFORMAT)},
    {WAVE_FORMAT_GSM610, "GSM 6.10", TagKind::Codec, AV_CODEC_ID_GSM_MS, AV_CODEC_ID_GSM_MS,
     "libgsm_ms", sizeof(GSM610WAVEFORMAT)},
    {WAVE_FORMAT_MPEGLAYER3, "MPEG Layer-3", TagKind::Codec, AV_CODEC_ID_MP3, AV_CODEC_ID_MP3,
     "libmp3lame", sizeof(MPEGLAYER3WAVEFORMAT)},
    {WAVE_FORMAT_MSAUDIO1, "Windows Media Audio V1", TagKind::Codec, AV_CODEC_ID_WMAV1,
     AV_CODEC_ID_WMAV1, nullptr, kWfx + 4},
    {WAVE_FORMAT_WMAUDIO2, "Windows Media Audio V2", TagKind::Codec, AV_CODEC_ID_WMAV2,
     AV_CODEC_ID_WMAV2, nullptr, kWfx + 10},
};

// {00000001-0000-0010-8000-00aa00389b71} and the float one differ in the first field only.
bool IsBaseSubFormat(const GUID& g, DWORD tag) {
    GUID base = KSDATAFORMAT_SUBTYPE_PCM;
    base.Data1 = tag;
    return g == base;
}

}  // namespace

std::span<const TagInfo> Tags() {
    return kTags;
}

const TagInfo* FindTag(WORD tag) {
    for (const TagInfo& t : kTags)
        if (t.tag == tag) return &t;
    return nullptr;
}

DWORD MaxFormatSize() {
    DWORD m = sizeof(WAVEFORMATEXTENSIBLE);
    for (const TagInfo& t : kTags)
        m = std::max(m, t.formatSize);
    return m;
}

DWORD FormatBlockSize(const WAVEFORMATEX* format) {
    if (!format) return 0;
    if (format->wFormatTag == WAVE_FORMAT_PCM) return kWfx;
    return kWfx + format->cbSize;
}

WAVEFORMATEX MakePcm(int channels, int rate, int bits) {
    WAVEFORMATEX f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = static_cast<WORD>(channels);
    f.nSamplesPerSec = static_cast<DWORD>(rate);
    f.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    f.nAvgBytesPerSec = f.nSamplesPerSec * f.nBlockAlign;
    f.wBitsPerSample = static_cast<WORD>(bits);
    return f;
}

MMRESULT ReadFormat(const WAVEFORMATEX* wfx, Format& out) {
    if (!wfx) return MMSYSERR_INVALPARAM;
    out = Format{};
    WORD tag = wfx->wFormatTag;
    out.channels = wfx->nChannels;
    out.rate = static_cast<int>(std::min<DWORD>(wfx->nSamplesPerSec, 0x7fffffff));
    out.blockAlign = wfx->nBlockAlign;
    out.avgBytesPerSec = wfx->nAvgBytesPerSec;
    out.bits = wfx->wBitsPerSample;
    if (tag == WAVE_FORMAT_EXTENSIBLE) {
        if (wfx->cbSize < 22) return MMSYSERR_INVALPARAM;
        const auto* ext = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wfx);
        if (IsBaseSubFormat(ext->SubFormat, WAVE_FORMAT_PCM))
            tag = WAVE_FORMAT_PCM;
        else if (IsBaseSubFormat(ext->SubFormat, WAVE_FORMAT_IEEE_FLOAT))
            tag = WAVE_FORMAT_IEEE_FLOAT;
        else
            return ACMERR_NOTPOSSIBLE;
    }
    out.info = FindTag(tag);
    if (!out.info) return ACMERR_NOTPOSSIBLE;
    if (out.channels < 1 || out.channels > 8 || out.rate < 1 || out.rate > 768000 ||
        out.blockAlign < 1)
        return MMSYSERR_INVALPARAM;
    // A plain PCM record may carry no cbSize at all (16 bytes), so its extra bytes are never
    // read; every other tag's record includes cbSize.
    const DWORD cb =
        tag == WAVE_FORMAT_PCM || wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? 0 : wfx->cbSize;
    const auto* extra = reinterpret_cast<const uint8_t*>(wfx) + kWfx;
    out.extra.assign(extra, extra + cb);
    auto word = [&](size_t at) {
        WORD w;
        std::memcpy(&w, out.extra.data() + at, 2);
        return int(w);
    };

    switch (tag) {
        case WAVE_FORMAT_PCM:
            if (out.bits != 8 && out.bits != 16 && out.bits != 24 && out.bits != 32)
                return out.bits % 8 == 0 && out.bits > 0 ? ACMERR_NOTPOSSIBLE : MMSYSERR_INVALPARAM;
            if (out.blockAlign != out.FrameBytes()) return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        case WAVE_FORMAT_IEEE_FLOAT:
            if (out.bits != 32 && out.bits != 64) return MMSYSERR_INVALPARAM;
            if (out.blockAlign != out.FrameBytes()) return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        case WAVE_FORMAT_ALAW:
        case WAVE_FORMAT_MULAW:
            if (out.bits != 8 || out.blockAlign != out.channels) return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        case WAVE_FORMAT_IMA_ADPCM: {
            if (cb < 2 || out.bits != 4) return MMSYSERR_INVALPARAM;
            const int header = 4 * out.channels;
            if (out.blockAlign <= header || (out.blockAlign - header) % header != 0)
                return MMSYSERR_INVALPARAM;
            out.samplesPerBlock = word(0);
            if (out.samplesPerBlock != (out.blockAlign - header) * 2 / out.channels + 1)
                return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        }
        case WAVE_FORMAT_ADPCM: {
            if (cb < 4 || out.bits != 4) return MMSYSERR_INVALPARAM;
            const int numCoef = word(2);
            if (numCoef < 7 || numCoef > 256 || cb < DWORD(4 + 4 * numCoef))
                return MMSYSERR_INVALPARAM;
            const int header = 7 * out.channels;
            if (out.blockAlign <= header) return MMSYSERR_INVALPARAM;
            out.samplesPerBlock = word(0);
            if (out.samplesPerBlock != (out.blockAlign - header) * 2 / out.channels + 2)
                return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        }
        case WAVE_FORMAT_GSM610:
            if (cb < 2 || out.channels != 1 || out.blockAlign != 65) return MMSYSERR_INVALPARAM;
            out.samplesPerBlock = word(0);
            if (out.samplesPerBlock != 320) return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
        case WAVE_FORMAT_MPEGLAYER3:
            if (out.channels > 2) return MMSYSERR_INVALPARAM;
            out.samplesPerBlock = 1152;
            return MMSYSERR_NOERROR;
        case WAVE_FORMAT_MSAUDIO1:
        case WAVE_FORMAT_WMAUDIO2:
            if (cb < (tag == WAVE_FORMAT_MSAUDIO1 ? 4u : 10u) || out.channels > 2)
                return MMSYSERR_INVALPARAM;
            return MMSYSERR_NOERROR;
    }
    return ACMERR_NOTPOSSIBLE;
}

}  // namespace mw::acm
