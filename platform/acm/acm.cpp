// The compression manager's functions over the converters of AcmStreams.
//
// Stream handles are numbers from a table, never reused, so a closed or made-up handle is
// told apart from a live one (MMSYSERR_INVALHANDLE). Every function is thread-safe; calls on
// one stream are serialised by the stream's lock, and a close while another thread converts
// lets that conversion finish.
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "mwacm.h"
#include "platform/acm/AcmFormats.h"
#include "platform/acm/AcmStreams.h"

using namespace mw::acm;

namespace {

struct Stream {
    std::mutex Lock;
    std::unique_ptr<Converter> Conv;
};

class StreamTable {
public:
    HACMSTREAM Add(std::shared_ptr<Stream> s) {
        std::lock_guard g(FLock);
        const uintptr_t id = FNext++;
        FStreams.emplace(id, std::move(s));
        return reinterpret_cast<HACMSTREAM>(id);
    }
    std::shared_ptr<Stream> Find(HACMSTREAM h) {
        std::lock_guard g(FLock);
        const auto it = FStreams.find(reinterpret_cast<uintptr_t>(h));
        return it == FStreams.end() ? nullptr : it->second;
    }
    bool Remove(HACMSTREAM h) {
        std::lock_guard g(FLock);
        return FStreams.erase(reinterpret_cast<uintptr_t>(h)) > 0;
    }

private:
    std::mutex FLock;
    std::unordered_map<uintptr_t, std::shared_ptr<Stream>> FStreams;
    uintptr_t FNext = 0x5ac30000;
};

StreamTable& Streams() {
    static StreamTable t;
    return t;
}

std::mutex gChooserLock;
FormatChooser gChooser;
std::mutex gObserverLock;
StreamCallObserver gObserver;

MMRESULT Observed(StreamCall call) {
    StreamCallObserver observer;
    {
        std::lock_guard g(gObserverLock);
        observer = gObserver;
    }
    if (observer) observer(call);
    return call.result;
}

// What a prepared header remembers, in the driver's reserved words: the stream and the
// lengths it was prepared with.
constexpr int kResStream = 0, kResSrcLength = 1, kResDstLength = 2;

bool HeaderOk(const ACMSTREAMHEADER* h) {
    return h && h->cbStruct >= sizeof(ACMSTREAMHEADER);
}

void CopyName(char* dst, size_t size, const char* src) {
    std::snprintf(dst, size, "%s", src);
}

void FillTagDetails(const TagInfo& t, DWORD index, ACMFORMATTAGDETAILSA& d) {
    d.dwFormatTagIndex = index;
    d.dwFormatTag = t.tag;
    d.cbFormatSize = t.formatSize;
    d.fdwSupport = t.kind == TagKind::Codec ? ACMDRIVERDETAILS_SUPPORTF_CODEC
                                            : ACMDRIVERDETAILS_SUPPORTF_CONVERTER;
    // The formats a chooser offers: 8, 11.025, 22.05 and 44.1 kHz, mono and stereo (and for
    // PCM each of the four sample sizes).
    d.cStandardFormats = t.kind == TagKind::Pcm        ? 32
                         : t.kind == TagKind::Float    ? 8
                         : t.tag == WAVE_FORMAT_GSM610 ? 4
                                                       : 8;
    CopyName(d.szFormatTag, sizeof d.szFormatTag, t.name);
}

}  // namespace

namespace mw::acm {
void SetFormatChooser(FormatChooser chooser) {
    std::lock_guard g(gChooserLock);
    gChooser = std::move(chooser);
}
void SetStreamCallObserver(StreamCallObserver observer) {
    std::lock_guard g(gObserverLock);
    gObserver = std::move(observer);
}
}  // namespace mw::acm

DWORD WINAPI acmGetVersion() {
    return 0x04000000;
}

MMRESULT WINAPI acmMetrics(HACMOBJ, UINT uMetric, LPVOID pMetric) {
    if (!pMetric) return MMSYSERR_INVALPARAM;
    DWORD value;
    switch (uMetric) {
        case ACM_METRIC_MAX_SIZE_FORMAT:
            value = MaxFormatSize();
            break;
        case ACM_METRIC_COUNT_DRIVERS:
        case ACM_METRIC_COUNT_LOCAL_DRIVERS:
            value = 1;
            break;
        case ACM_METRIC_COUNT_CODECS:
        case ACM_METRIC_COUNT_CONVERTERS:
            value = 1;
            break;
        case ACM_METRIC_COUNT_FILTERS:
        case ACM_METRIC_COUNT_DISABLED:
        case ACM_METRIC_COUNT_HARDWARE:
        case ACM_METRIC_MAX_SIZE_FILTER:
            value = 0;
            break;
        default:
            return MMSYSERR_NOTSUPPORTED;
    }
    std::memcpy(pMetric, &value, sizeof value);
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI acmFormatTagDetailsA(HACMDRIVER, LPACMFORMATTAGDETAILSA paftd, DWORD fdwDetails) {
    if (!paftd || paftd->cbStruct < sizeof(ACMFORMATTAGDETAILSA)) return MMSYSERR_INVALPARAM;
    const auto tags = Tags();
    switch (fdwDetails & ACM_FORMATTAGDETAILSF_QUERYMASK) {
        case ACM_FORMATTAGDETAILSF_INDEX:
            if (paftd->dwFormatTagIndex >= tags.size()) return MMSYSERR_INVALPARAM;
            FillTagDetails(tags[paftd->dwFormatTagIndex], paftd->dwFormatTagIndex, *paftd);
            return MMSYSERR_NOERROR;
        case ACM_FORMATTAGDETAILSF_FORMATTAG:
        case ACM_FORMATTAGDETAILSF_LARGESTSIZE: {
            const bool largest =
                (fdwDetails & ACM_FORMATTAGDETAILSF_QUERYMASK) == ACM_FORMATTAGDETAILSF_LARGESTSIZE;
            size_t found = tags.size();
            for (size_t i = 0; i < tags.size(); ++i) {
                if (largest && paftd->dwFormatTag == WAVE_FORMAT_UNKNOWN) {
                    if (found == tags.size() || tags[i].formatSize > tags[found].formatSize)
                        found = i;
                } else if (tags[i].tag == paftd->dwFormatTag) {
                    found = i;
                }
            }
            if (found == tags.size()) return ACMERR_NOTPOSSIBLE;
            FillTagDetails(tags[found], DWORD(found), *paftd);
            return MMSYSERR_NOERROR;
        }
        default:
            return MMSYSERR_INVALFLAG;
    }
}

MMRESULT WINAPI acmFormatTagEnumA(HACMDRIVER, LPACMFORMATTAGDETAILSA paftd,
                                  ACMFORMATTAGENUMCBA fnCallback, DWORD_PTR dwInstance, DWORD) {
    if (!paftd || !fnCallback || paftd->cbStruct < sizeof(ACMFORMATTAGDETAILSA))
        return MMSYSERR_INVALPARAM;
    const auto tags = Tags();
    for (size_t i = 0; i < tags.size(); ++i) {
        FillTagDetails(tags[i], DWORD(i), *paftd);
        if (!fnCallback(nullptr, paftd, dwInstance, paftd->fdwSupport)) break;
    }
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI acmFormatSuggest(HACMDRIVER, LPWAVEFORMATEX pwfxSrc, LPWAVEFORMATEX pwfxDst,
                                 DWORD cbwfxDst, DWORD fdwSuggest) {
    if (!pwfxSrc || !pwfxDst) return MMSYSERR_INVALPARAM;
    if (fdwSuggest & ~ACM_FORMATSUGGESTF_TYPEMASK) return MMSYSERR_INVALFLAG;
    if (cbwfxDst < sizeof(WAVEFORMATEX)) return MMSYSERR_INVALPARAM;
    Format src;
    if (const MMRESULT r = ReadFormat(pwfxSrc, src)) return r;

    const bool byTag = fdwSuggest & ACM_FORMATSUGGESTF_WFORMATTAG;
    const bool byChannels = fdwSuggest & ACM_FORMATSUGGESTF_NCHANNELS;
    const bool byRate = fdwSuggest & ACM_FORMATSUGGESTF_NSAMPLESPERSEC;
    const bool byBits = fdwSuggest & ACM_FORMATSUGGESTF_WBITSPERSAMPLE;
    const WORD tag = byTag ? pwfxDst->wFormatTag : WORD(WAVE_FORMAT_PCM);
    const int channels = byChannels ? pwfxDst->nChannels : src.channels;
    const int rate = byRate ? int(pwfxDst->nSamplesPerSec) : src.rate;
    const TagInfo* info = FindTag(tag);
    if (!info || channels < 1 || channels > 8 || rate < 1) return ACMERR_NOTPOSSIBLE;

    if (info->kind == TagKind::Codec) {
        // PCM encodes to a codec of its own rate and channels; codecs don't convert into
        // each other.
        if (!src.IsPcm() || channels != src.channels || rate != src.rate) return ACMERR_NOTPOSSIBLE;
        std::vector<uint8_t> block;
        if (const MMRESULT r = BuildCodecFormat(*info, channels, rate, block)) return r;
        if (byBits && pwfxDst->wBitsPerSample !=
                          reinterpret_cast<const WAVEFORMATEX*>(block.data())->wBitsPerSample)
            return ACMERR_NOTPOSSIBLE;
        if (block.size() > cbwfxDst) return MMSYSERR_INVALPARAM;
        std::memcpy(pwfxDst, block.data(), block.size());
        return MMSYSERR_NOERROR;
    }

    // PCM or float: a codec decodes to 16-bit PCM of its rate and channels; PCM keeps its
    // sample size, and float stands as 32-bit integers.
    if (!src.IsPcm() && (channels != src.channels || rate != src.rate)) return ACMERR_NOTPOSSIBLE;
    int bits = info->kind == TagKind::Float ? 32 : !src.IsPcm() ? 16 : src.bits;
    if (src.info->kind == TagKind::Float && info->kind == TagKind::Pcm) bits = 32;
    if (byBits) bits = pwfxDst->wBitsPerSample;
    if (info->kind == TagKind::Pcm && bits != 8 && bits != 16 && bits != 24 && bits != 32)
        return ACMERR_NOTPOSSIBLE;
    if (info->kind == TagKind::Float && bits != 32 && bits != 64) return ACMERR_NOTPOSSIBLE;
    WAVEFORMATEX out = MakePcm(channels, rate, bits);
    out.wFormatTag = info->tag;
    std::memcpy(pwfxDst, &out, sizeof out);
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI acmFormatChooseA(LPACMFORMATCHOOSEA pafmtc) {
    if (!pafmtc || pafmtc->cbStruct < sizeof(ACMFORMATCHOOSEA) || !pafmtc->pwfx ||
        pafmtc->cbwfx < sizeof(WAVEFORMATEX))
        return MMSYSERR_INVALPARAM;
    FormatChooser chooser;
    {
        std::lock_guard g(gChooserLock);
        chooser = gChooser;
    }
    if (!chooser) return ACMERR_CANCELED;
    if (const MMRESULT r = chooser(*pafmtc)) return r;
    // The size first: a choice whose cbSize runs past the block is not read at all.
    Format chosen;
    if (sizeof(WAVEFORMATEX) + pafmtc->pwfx->cbSize > pafmtc->cbwfx ||
        ReadFormat(pafmtc->pwfx, chosen) != MMSYSERR_NOERROR)
        return MMSYSERR_INVALPARAM;
    CopyName(pafmtc->szFormatTag, sizeof pafmtc->szFormatTag, chosen.info->name);
    char text[ACMFORMATDETAILS_FORMAT_CHARS];
    std::snprintf(text, sizeof text, "%d.%03d kHz, %s", chosen.rate / 1000, chosen.rate % 1000,
                  chosen.channels == 1   ? "Mono"
                  : chosen.channels == 2 ? "Stereo"
                                         : "Multichannel");
    CopyName(pafmtc->szFormat, sizeof pafmtc->szFormat, text);
    return MMSYSERR_NOERROR;
}

namespace {
MMRESULT OpenStream(LPHACMSTREAM phas, LPWAVEFORMATEX pwfxSrc, LPWAVEFORMATEX pwfxDst,
                    LPWAVEFILTER pwfltr, DWORD fdwOpen) {
    const bool query = fdwOpen & ACM_STREAMOPENF_QUERY;
    if (phas) *phas = nullptr;
    if ((!phas && !query) || !pwfxSrc || !pwfxDst) return MMSYSERR_INVALPARAM;
    if (fdwOpen & ~(ACM_STREAMOPENF_QUERY | ACM_STREAMOPENF_ASYNC | ACM_STREAMOPENF_NONREALTIME |
                    CALLBACK_TYPEMASK))
        return MMSYSERR_INVALFLAG;
    // No filters, and every conversion here is synchronous.
    if (pwfltr || (fdwOpen & ACM_STREAMOPENF_ASYNC)) return ACMERR_NOTPOSSIBLE;
    Format src, dst;
    if (const MMRESULT r = ReadFormat(pwfxSrc, src)) return r;
    if (const MMRESULT r = ReadFormat(pwfxDst, dst)) return r;
    auto stream = std::make_shared<Stream>();
    if (const MMRESULT r = CreateConverter(src, dst, stream->Conv)) return r;
    if (query) return MMSYSERR_NOERROR;
    *phas = Streams().Add(std::move(stream));
    return MMSYSERR_NOERROR;
}
}  // namespace

MMRESULT WINAPI acmStreamOpen(LPHACMSTREAM phas, HACMDRIVER, LPWAVEFORMATEX pwfxSrc,
                              LPWAVEFORMATEX pwfxDst, LPWAVEFILTER pwfltr, DWORD_PTR, DWORD_PTR,
                              DWORD fdwOpen) {
    const MMRESULT r = OpenStream(phas, pwfxSrc, pwfxDst, pwfltr, fdwOpen);
    return Observed({StreamCall::Open, phas ? *phas : nullptr, fdwOpen, r,
                     WORD(pwfxSrc ? pwfxSrc->wFormatTag : 0),
                     WORD(pwfxDst ? pwfxDst->wFormatTag : 0)});
}

MMRESULT WINAPI acmStreamClose(HACMSTREAM has, DWORD fdwClose) {
    const MMRESULT r = fdwClose                ? MMSYSERR_INVALFLAG
                       : Streams().Remove(has) ? MMSYSERR_NOERROR
                                               : MMSYSERR_INVALHANDLE;
    return Observed({StreamCall::Close, has, fdwClose, r, 0, 0});
}

MMRESULT WINAPI acmStreamSize(HACMSTREAM has, DWORD cbInput, LPDWORD pdwOutputBytes,
                              DWORD fdwSize) {
    const auto s = Streams().Find(has);
    if (!s) return MMSYSERR_INVALHANDLE;
    if (!pdwOutputBytes) return MMSYSERR_INVALPARAM;
    if ((fdwSize & ACM_STREAMSIZEF_QUERYMASK) != ACM_STREAMSIZEF_SOURCE)
        return fdwSize & ~ACM_STREAMSIZEF_QUERYMASK ? MMSYSERR_INVALFLAG : MMSYSERR_NOTSUPPORTED;
    std::lock_guard g(s->Lock);
    return s->Conv->Size(cbInput, *pdwOutputBytes);
}

MMRESULT WINAPI acmStreamReset(HACMSTREAM has, DWORD fdwReset) {
    if (fdwReset) return MMSYSERR_INVALFLAG;
    return Streams().Find(has) ? MMSYSERR_NOERROR : MMSYSERR_INVALHANDLE;
}

MMRESULT WINAPI acmStreamPrepareHeader(HACMSTREAM has, LPACMSTREAMHEADER pash, DWORD fdwPrepare) {
    if (!Streams().Find(has)) return MMSYSERR_INVALHANDLE;
    if (!HeaderOk(pash) || fdwPrepare) return MMSYSERR_INVALPARAM;
    if ((!pash->pbSrc && pash->cbSrcLength) || (!pash->pbDst && pash->cbDstLength))
        return MMSYSERR_INVALPARAM;
    pash->fdwStatus = ACMSTREAMHEADER_STATUSF_PREPARED;
    pash->dwReservedDriver[kResStream] = DWORD(reinterpret_cast<uintptr_t>(has));
    pash->dwReservedDriver[kResSrcLength] = pash->cbSrcLength;
    pash->dwReservedDriver[kResDstLength] = pash->cbDstLength;
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI acmStreamUnprepareHeader(HACMSTREAM has, LPACMSTREAMHEADER pash,
                                         DWORD fdwUnprepare) {
    if (!Streams().Find(has)) return MMSYSERR_INVALHANDLE;
    if (!HeaderOk(pash) || fdwUnprepare) return MMSYSERR_INVALPARAM;
    if (!(pash->fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED)) return ACMERR_UNPREPARED;
    if (pash->dwReservedDriver[kResStream] != DWORD(reinterpret_cast<uintptr_t>(has)))
        return MMSYSERR_INVALPARAM;
    pash->fdwStatus &= ~ACMSTREAMHEADER_STATUSF_PREPARED;
    return MMSYSERR_NOERROR;
}

namespace {
MMRESULT ConvertStream(HACMSTREAM has, LPACMSTREAMHEADER pash, DWORD fdwConvert) {
    const auto s = Streams().Find(has);
    if (!s) return MMSYSERR_INVALHANDLE;
    if (!HeaderOk(pash)) return MMSYSERR_INVALPARAM;
    if (fdwConvert &
        ~(ACM_STREAMCONVERTF_BLOCKALIGN | ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_END))
        return MMSYSERR_INVALFLAG;
    if (!(pash->fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED) ||
        pash->dwReservedDriver[kResStream] != DWORD(reinterpret_cast<uintptr_t>(has)))
        return ACMERR_UNPREPARED;
    if (pash->cbSrcLength > pash->dwReservedDriver[kResSrcLength] ||
        pash->cbDstLength > pash->dwReservedDriver[kResDstLength])
        return MMSYSERR_INVALPARAM;
    std::lock_guard g(s->Lock);
    pash->fdwStatus &= ~ACMSTREAMHEADER_STATUSF_DONE;
    const MMRESULT r =
        s->Conv->Convert(pash->pbSrc, pash->cbSrcLength, pash->pbDst, pash->cbDstLength, fdwConvert,
                         pash->cbSrcLengthUsed, pash->cbDstLengthUsed);
    pash->fdwStatus |= ACMSTREAMHEADER_STATUSF_DONE;
    return r;
}
}  // namespace

MMRESULT WINAPI acmStreamConvert(HACMSTREAM has, LPACMSTREAMHEADER pash, DWORD fdwConvert) {
    return Observed(
        {StreamCall::Convert, has, fdwConvert, ConvertStream(has, pash, fdwConvert), 0, 0});
}
