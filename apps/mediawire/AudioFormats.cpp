#include "AudioFormats.h"

#include <strings.h>

#include "Tool.h"
#include "mwacm.h"

namespace mw::tool {

const std::vector<NamedAudioFormat>& NamedAudioFormats() {
    static const std::vector<NamedAudioFormat> formats = {
        {"pcm8", WAVE_FORMAT_PCM, 8},          {"pcm16", WAVE_FORMAT_PCM, 16},
        {"pcm24", WAVE_FORMAT_PCM, 24},        {"pcm32", WAVE_FORMAT_PCM, 32},
        {"float", WAVE_FORMAT_IEEE_FLOAT, 32}, {"alaw", WAVE_FORMAT_ALAW, 0},
        {"mulaw", WAVE_FORMAT_MULAW, 0},       {"ima-adpcm", WAVE_FORMAT_IMA_ADPCM, 0},
        {"ms-adpcm", WAVE_FORMAT_ADPCM, 0},    {"gsm", WAVE_FORMAT_GSM610, 0},
        {"mp3", WAVE_FORMAT_MPEGLAYER3, 0},    {"wma1", WAVE_FORMAT_MSAUDIO1, 0},
        {"wma2", WAVE_FORMAT_WMAUDIO2, 0},
    };
    return formats;
}

const NamedAudioFormat* FindNamedAudioFormat(const std::string& name) {
    for (const NamedAudioFormat& f : NamedAudioFormats())
        if (strcasecmp(f.Name, name.c_str()) == 0) return &f;
    return nullptr;
}

std::vector<uint8_t> MakeAudioFormat(const NamedAudioFormat& f, int channels, int rate) {
    DWORD max = 0;
    acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &max);
    std::vector<uint8_t> block(max);
    WAVEFORMATEX pcm{};
    pcm.wFormatTag = WAVE_FORMAT_PCM;
    pcm.nChannels = WORD(channels);
    pcm.nSamplesPerSec = DWORD(rate);
    pcm.nBlockAlign = WORD(channels * 2);
    pcm.nAvgBytesPerSec = pcm.nSamplesPerSec * pcm.nBlockAlign;
    pcm.wBitsPerSample = 16;
    auto* dst = reinterpret_cast<WAVEFORMATEX*>(block.data());
    dst->wFormatTag = f.Tag;
    dst->wBitsPerSample = WORD(f.Bits);
    const DWORD flags =
        ACM_FORMATSUGGESTF_WFORMATTAG | (f.Bits ? ACM_FORMATSUGGESTF_WBITSPERSAMPLE : 0);
    const MMRESULT r = acmFormatSuggest(nullptr, &pcm, dst, max, flags);
    if (r != MMSYSERR_NOERROR)
        throw Failure(std::string("the format ") + f.Name + " can't be made for " +
                      std::to_string(channels) + " channel(s) at " + std::to_string(rate) + " Hz" +
                      (f.Tag == WAVE_FORMAT_GSM610 ? " (gsm takes 8000 Hz mono)" : ""));
    block.resize(mw::acm::FormatBlockSize(dst));
    return block;
}

}  // namespace mw::tool
