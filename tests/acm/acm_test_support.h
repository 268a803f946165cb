// Test signals, signal-to-noise figures and a whole-buffer conversion through an ACM stream,
// for the compression manager's tests and the compressor's.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "msacm.h"
#include "mwacm.h"

namespace mw::test::acm {

inline WAVEFORMATEX Pcm(int channels, int rate, int bits) {
    WAVEFORMATEX f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = WORD(channels);
    f.nSamplesPerSec = DWORD(rate);
    f.nBlockAlign = WORD(channels * bits / 8);
    f.nAvgBytesPerSec = DWORD(rate) * f.nBlockAlign;
    f.wBitsPerSample = WORD(bits);
    return f;
}

// 16-bit interleaved sines: channel c at freq * (c + 1) Hz, amplitude 0.5 of full scale.
inline std::vector<int16_t> Sine16(int channels, int rate, size_t frames, double freq = 440.0) {
    std::vector<int16_t> s(frames * channels);
    for (size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            s[i * channels + c] = int16_t(
                std::lround(16383.0 * std::sin(2 * M_PI * freq * (c + 1) * double(i) / rate)));
    return s;
}

inline std::vector<uint8_t> Bytes(const std::vector<int16_t>& s) {
    std::vector<uint8_t> b(s.size() * 2);
    std::memcpy(b.data(), s.data(), b.size());
    return b;
}
inline std::vector<int16_t> Samples16(const std::vector<uint8_t>& b) {
    std::vector<int16_t> s(b.size() / 2);
    std::memcpy(s.data(), b.data(), s.size() * 2);
    return s;
}

// Signal-to-noise ratio in dB of `got` against `want`, with got shifted by `lag` samples
// (interleaved), over the overlap after skipping `skip` samples.
inline double Snr(const std::vector<int16_t>& want, const std::vector<int16_t>& got, long lag = 0,
                  size_t skip = 0) {
    double sig = 0, noise = 0;
    for (size_t i = skip; i < want.size(); ++i) {
        const long j = long(i) + lag;
        if (j < 0 || size_t(j) >= got.size()) continue;
        const double d = double(want[i]) - got[size_t(j)];
        sig += double(want[i]) * want[i];
        noise += d * d;
    }
    return noise == 0 ? 200.0 : 10 * std::log10(sig / noise);
}

// The best SNR over lags of whole frames from 0 to maxLagFrames (codecs with a delay).
inline double BestSnr(const std::vector<int16_t>& want, const std::vector<int16_t>& got,
                      int channels, long maxLagFrames, size_t skip, long* lagOut = nullptr) {
    double best = -1000;
    for (long lag = 0; lag <= maxLagFrames; ++lag) {
        const double s = Snr(want, got, lag * channels, skip);
        if (s > best) {
            best = s;
            if (lagOut) *lagOut = lag;
        }
    }
    return best;
}

struct Converted {
    MMRESULT result = MMSYSERR_NOERROR;
    std::vector<uint8_t> bytes;
    DWORD srcUsed = 0;
};

// Converts `input` in pieces of `piece` bytes (0: at once) through one stream, START with
// BLOCKALIGN on the first piece and BLOCKALIGN after, as a streaming caller does; the
// unconsumed tail of a piece goes ahead of the next one. `end` drains the codec at the end.
inline Converted ConvertAll(const WAVEFORMATEX* src, const WAVEFORMATEX* dst,
                            const std::vector<uint8_t>& input, size_t piece = 0, bool end = false) {
    Converted out;
    HACMSTREAM has = nullptr;
    out.result =
        acmStreamOpen(&has, nullptr, const_cast<WAVEFORMATEX*>(src), const_cast<WAVEFORMATEX*>(dst),
                      nullptr, 0, 0, ACM_STREAMOPENF_NONREALTIME);
    if (out.result) return out;
    if (piece == 0) piece = input.size();
    std::vector<uint8_t> pending;
    size_t at = 0;
    bool first = true;
    while (at < input.size() || end) {
        const size_t n = std::min(piece, input.size() - at);
        pending.insert(pending.end(), input.begin() + long(at), input.begin() + long(at + n));
        at += n;
        const bool last = at >= input.size();
        DWORD flags = ACM_STREAMCONVERTF_BLOCKALIGN | (first ? ACM_STREAMCONVERTF_START : 0);
        if (last && end) flags = (flags & ~ACM_STREAMCONVERTF_BLOCKALIGN) | ACM_STREAMCONVERTF_END;
        DWORD size = 0;
        MMRESULT r = acmStreamSize(has, DWORD(pending.size()), &size, ACM_STREAMSIZEF_SOURCE);
        if (r == ACMERR_NOTPOSSIBLE && !(flags & ACM_STREAMCONVERTF_END)) {
            if (last) break;
            continue;
        }
        if (r == ACMERR_NOTPOSSIBLE)
            size = 1 << 20;
        else if (r) {
            out.result = r;
            break;
        }
        std::vector<uint8_t> dstBuf(size);
        ACMSTREAMHEADER h{};
        h.cbStruct = sizeof h;
        h.pbSrc = pending.data();
        h.cbSrcLength = DWORD(pending.size());
        h.pbDst = dstBuf.data();
        h.cbDstLength = size;
        if ((r = acmStreamPrepareHeader(has, &h, 0)) || (r = acmStreamConvert(has, &h, flags)) ||
            (r = acmStreamUnprepareHeader(has, &h, 0))) {
            out.result = r;
            break;
        }
        first = false;
        out.srcUsed += h.cbSrcLengthUsed;
        out.bytes.insert(out.bytes.end(), dstBuf.begin(), dstBuf.begin() + h.cbDstLengthUsed);
        pending.erase(pending.begin(), pending.begin() + h.cbSrcLengthUsed);
        if (last) break;
    }
    acmStreamClose(has, 0);
    return out;
}

// A format block for a codec tag, as the manager suggests it for PCM of channels and rate.
inline std::vector<uint8_t> Suggest(WORD tag, int channels, int rate, MMRESULT* result = nullptr) {
    DWORD max = 0;
    acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &max);
    std::vector<uint8_t> block(max);
    WAVEFORMATEX pcm = Pcm(channels, rate, 16);
    auto* dst = reinterpret_cast<WAVEFORMATEX*>(block.data());
    dst->wFormatTag = tag;
    const MMRESULT r = acmFormatSuggest(nullptr, &pcm, dst, max, ACM_FORMATSUGGESTF_WFORMATTAG);
    if (result) *result = r;
    if (r) return {};
    block.resize(mw::acm::FormatBlockSize(dst));
    return block;
}

inline std::vector<uint8_t> BlockOfWfx(const WAVEFORMATEX& f) {
    const auto* p = reinterpret_cast<const uint8_t*>(&f);
    return std::vector<uint8_t>(p, p + mw::acm::FormatBlockSize(&f));
}

inline const WAVEFORMATEX* Wfx(const std::vector<uint8_t>& block) {
    return reinterpret_cast<const WAVEFORMATEX*>(block.data());
}

}  // namespace mw::test::acm
