// Conversion rate of the compression manager: 600 s of 44.1 kHz stereo 16-bit PCM encoded to
// IMA ADPCM and to mu-law through one ACM stream, in blocks of about a second, as a
// compressor feeds it. Printed in multiples of real time, beside the ffmpeg program doing the
// same conversion in the same run (when it is installed) and the ratio of the two.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "msacm.h"
#include "mwacm.h"

namespace {

constexpr int kRate = 44100, kChannels = 2, kSeconds = 600;

std::vector<uint8_t> Suggest(WORD tag) {
    DWORD max = 0;
    acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &max);
    std::vector<uint8_t> block(max);
    WAVEFORMATEX pcm{WAVE_FORMAT_PCM, kChannels, kRate, kRate * 4, 4, 16, 0};
    reinterpret_cast<WAVEFORMATEX*>(block.data())->wFormatTag = tag;
    if (acmFormatSuggest(nullptr, &pcm, reinterpret_cast<WAVEFORMATEX*>(block.data()), max,
                         ACM_FORMATSUGGESTF_WFORMATTAG))
        std::abort();
    return block;
}

// Seconds taken to encode all of pcm; the output size in *outBytes.
double Encode(const std::vector<int16_t>& pcm, WORD tag, size_t* outBytes) {
    auto fmt = Suggest(tag);
    WAVEFORMATEX src{WAVE_FORMAT_PCM, kChannels, kRate, kRate * 4, 4, 16, 0};
    auto* dstFmt = reinterpret_cast<WAVEFORMATEX*>(fmt.data());
    HACMSTREAM has = nullptr;
    if (acmStreamOpen(&has, nullptr, &src, dstFmt, nullptr, 0, 0, ACM_STREAMOPENF_NONREALTIME))
        std::abort();
    const size_t frameBytes = 4;
    // About a second per call, in whole codec blocks where the codec has blocks.
    const size_t spb = tag == WAVE_FORMAT_IMA_ADPCM
                           ? reinterpret_cast<IMAADPCMWAVEFORMAT*>(fmt.data())->wSamplesPerBlock
                           : 1;
    const size_t chunk = (kRate / spb) * spb * frameBytes;
    const auto* bytes = reinterpret_cast<const uint8_t*>(pcm.data());
    const size_t total = pcm.size() * 2;
    std::vector<uint8_t> out;
    *outBytes = 0;
    const auto t0 = std::chrono::steady_clock::now();
    bool first = true;
    for (size_t at = 0; at < total;) {
        const size_t n = std::min(chunk, total - at);
        DWORD size = 0;
        if (acmStreamSize(has, DWORD(n), &size, 0)) break;
        if (out.size() < size) out.resize(size);
        ACMSTREAMHEADER h{};
        h.cbStruct = sizeof h;
        h.pbSrc = const_cast<uint8_t*>(bytes + at);
        h.cbSrcLength = DWORD(n);
        h.pbDst = out.data();
        h.cbDstLength = DWORD(out.size());
        acmStreamPrepareHeader(has, &h, 0);
        if (acmStreamConvert(has, &h,
                             ACM_STREAMCONVERTF_BLOCKALIGN | (first ? ACM_STREAMCONVERTF_START : 0)))
            std::abort();
        acmStreamUnprepareHeader(has, &h, 0);
        first = false;
        *outBytes += h.cbDstLengthUsed;
        if (h.cbSrcLengthUsed == 0) break;
        at += h.cbSrcLengthUsed;
    }
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    acmStreamClose(has, 0);
    return secs;
}

double RunTool(const std::string& cmd) {
    const auto t0 = std::chrono::steady_clock::now();
    if (std::system(cmd.c_str()) != 0) return -1;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

int main() {
    std::vector<int16_t> pcm(size_t(kRate) * kSeconds * kChannels);
    uint32_t seed = 7;
    for (size_t i = 0; i < pcm.size(); ++i) {
        seed = seed * 1664525 + 1013904223;
        pcm[i] = int16_t(12000 * std::sin(double(i / 2) * 0.0627 * (1 + i % 2)) +
                         int(seed >> 24) - 128);
    }
    const bool haveTool = std::system("ffmpeg -hide_banner -version >/dev/null 2>&1") == 0;
    const std::string raw = "/tmp/mw_bench_acm_" + std::to_string(getpid()) + ".raw";
    if (haveTool) {
        FILE* f = std::fopen(raw.c_str(), "wb");
        std::fwrite(pcm.data(), 2, pcm.size(), f);
        std::fclose(f);
    }
    std::printf("600 s of 44.1 kHz stereo 16-bit PCM, encoded through one ACM stream\n");
    const struct {
        const char* name;
        WORD tag;
        const char* ffmpegArgs;
    } cases[] = {{"IMA ADPCM", WAVE_FORMAT_IMA_ADPCM, "-c:a adpcm_ima_wav -block_size 2048"},
                 {"mu-law", WAVE_FORMAT_MULAW, "-c:a pcm_mulaw"}};
    for (const auto& c : cases) {
        size_t outBytes = 0;
        const double ours = Encode(pcm, c.tag, &outBytes);
        std::printf("%-10s acm:    %7.1fx real time (%.2f s, %zu bytes out)\n", c.name,
                    kSeconds / ours, ours, outBytes);
        if (!haveTool) {
            std::printf("%-10s ffmpeg: not installed (apt-get install ffmpeg)\n", c.name);
            continue;
        }
        const std::string cmd = std::string("ffmpeg -hide_banner -loglevel error -y -f s16le ") +
                                "-ar 44100 -ac 2 -i " + raw + " -map 0:a " + c.ffmpegArgs +
                                " -f wav /dev/null";
        const double theirs = RunTool(cmd);
        std::printf("%-10s ffmpeg: %7.1fx real time (%.2f s)  [%s]\n", c.name, kSeconds / theirs,
                    theirs, cmd.c_str());
        std::printf("%-10s acm rate / ffmpeg rate: %.2f\n", c.name, theirs / ours);
    }
    if (haveTool) std::remove(raw.c_str());
    return 0;
}
