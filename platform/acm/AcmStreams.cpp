#include "platform/acm/AcmStreams.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace mw::acm {

namespace {

struct CodecCtxFree {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct SwrFree {
    void operator()(SwrContext* s) const { swr_free(&s); }
};
struct FrameFree {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketFree {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct ParserFree {
    void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
};
using CodecCtx = std::unique_ptr<AVCodecContext, CodecCtxFree>;
using Swr = std::unique_ptr<SwrContext, SwrFree>;
using Frame = std::unique_ptr<AVFrame, FrameFree>;
using Packet = std::unique_ptr<AVPacket, PacketFree>;
using Parser = std::unique_ptr<AVCodecParserContext, ParserFree>;

bool IsAdpcm(WORD tag) {
    return tag == WAVE_FORMAT_IMA_ADPCM || tag == WAVE_FORMAT_ADPCM;
}
bool IsWma(WORD tag) {
    return tag == WAVE_FORMAT_MSAUDIO1 || tag == WAVE_FORMAT_WMAUDIO2;
}

// The sample format libswresample reads or writes for a PCM format; 24-bit samples travel as
// 32-bit integers with the 24 bits on top.
AVSampleFormat PcmSampleFormat(const Format& f) {
    if (f.info->kind == TagKind::Float) return f.bits == 64 ? AV_SAMPLE_FMT_DBL : AV_SAMPLE_FMT_FLT;
    switch (f.bits) {
        case 8:
            return AV_SAMPLE_FMT_U8;
        case 16:
            return AV_SAMPLE_FMT_S16;
        default:
            return AV_SAMPLE_FMT_S32;
    }
}
bool IsPacked24(const Format& f) {
    return f.info->kind == TagKind::Pcm && f.bits == 24;
}

void Unpack24(const BYTE* src, int32_t* dst, size_t samples) {
    for (size_t i = 0; i < samples; ++i, src += 3)
        dst[i] = static_cast<int32_t>(uint32_t(src[0]) << 8 | uint32_t(src[1]) << 16 |
                                      uint32_t(src[2]) << 24);
}
void Pack24(const int32_t* src, BYTE* dst, size_t samples) {
    for (size_t i = 0; i < samples; ++i, dst += 3) {
        const auto v = static_cast<uint32_t>(src[i]);
        dst[0] = BYTE(v >> 8);
        dst[1] = BYTE(v >> 16);
        dst[2] = BYTE(v >> 24);
    }
}

// A resampler between two layouts. Mono spreads to every channel at full level and several
// channels fold to mono as their mean, as the platform's PCM converter does.
Swr MakeSwr(int inCh, AVSampleFormat inFmt, int inRate, int outCh, AVSampleFormat outFmt,
            int outRate) {
    AVChannelLayout in{}, out{};
    av_channel_layout_default(&in, inCh);
    av_channel_layout_default(&out, outCh);
    SwrContext* s = nullptr;
    const int r = swr_alloc_set_opts2(&s, &out, outFmt, outRate, &in, inFmt, inRate, 0, nullptr);
    av_channel_layout_uninit(&in);
    av_channel_layout_uninit(&out);
    if (r < 0) return {};
    Swr swr(s);
    if (inCh != outCh && (inCh == 1 || outCh == 1)) {
        std::vector<double> matrix(size_t(outCh) * inCh, inCh == 1 ? 1.0 : 1.0 / inCh);
        if (swr_set_matrix(s, matrix.data(), inCh) < 0) return {};
    }
    if (swr_init(s) < 0) return {};
    return swr;
}

// Runs n frames through the resampler (null input drains it) and appends them to out in the
// destination's PCM layout.
MMRESULT SwrAppend(SwrContext* swr, const uint8_t** in, int n, const Format& dst,
                   std::vector<uint8_t>& out, std::vector<int32_t>& scratch) {
    const int most = swr_get_out_samples(swr, n);
    if (most < 0) return MMSYSERR_ERROR;
    if (most == 0) return MMSYSERR_NOERROR;
    const size_t frameBytes = dst.FrameBytes();
    const size_t at = out.size();
    int got;
    if (IsPacked24(dst)) {
        scratch.resize(size_t(most) * dst.channels);
        auto* o = reinterpret_cast<uint8_t*>(scratch.data());
        got = swr_convert(swr, &o, most, in, n);
        if (got < 0) return MMSYSERR_ERROR;
        out.resize(at + got * frameBytes);
        Pack24(scratch.data(), out.data() + at, size_t(got) * dst.channels);
    } else {
        out.resize(at + most * frameBytes);
        uint8_t* o = out.data() + at;
        got = swr_convert(swr, &o, most, in, n);
        if (got < 0) {
            out.resize(at);
            return MMSYSERR_ERROR;
        }
        out.resize(at + got * frameBytes);
    }
    return MMSYSERR_NOERROR;
}

// ---- PCM to PCM

class PcmConverter final : public Converter {
public:
    PcmConverter(const Format& src, const Format& dst)
        : Converter(src.FrameBytes()), FSrc(src), FDst(dst) {
        FCopy = src.channels == dst.channels && src.rate == dst.rate && src.bits == dst.bits &&
                src.info->kind == dst.info->kind;
    }

protected:
    MMRESULT Start() override {
        if (FCopy) return MMSYSERR_NOERROR;
        FSwr = MakeSwr(FSrc.channels, PcmSampleFormat(FSrc), FSrc.rate, FDst.channels,
                       PcmSampleFormat(FDst), FDst.rate);
        return FSwr ? MMSYSERR_NOERROR : ACMERR_NOTPOSSIBLE;
    }
    MMRESULT Process(const BYTE* src, size_t units) override {
        if (FCopy) {
            Append(src, units * FUnit);
            return MMSYSERR_NOERROR;
        }
        const uint8_t* in = src;
        if (IsPacked24(FSrc)) {
            FScratchIn.resize(units * FSrc.channels);
            Unpack24(src, FScratchIn.data(), FScratchIn.size());
            in = reinterpret_cast<const uint8_t*>(FScratchIn.data());
        }
        return SwrAppend(FSwr.get(), &in, int(units), FDst, FOut, FScratchOut);
    }
    MMRESULT Finish() override {
        // A partial frame has no meaning in PCM: it is dropped.
        FIn.clear();
        if (FCopy) return MMSYSERR_NOERROR;
        return SwrAppend(FSwr.get(), nullptr, 0, FDst, FOut, FScratchOut);
    }
    size_t Estimate(size_t units) const override {
        if (FCopy) return units * FDst.FrameBytes();
        // Resampling keeps up to a filter's length back and gives it out later.
        const uint64_t frames = (uint64_t(units) * FDst.rate + FSrc.rate - 1) / FSrc.rate + 256;
        return frames * FDst.FrameBytes();
    }

private:
    Format FSrc, FDst;
    bool FCopy;
    Swr FSwr;
    std::vector<int32_t> FScratchIn, FScratchOut;
};

// ---- Encoders

const AVCodec* FindEncoder(const TagInfo& info) {
    if (!info.encoderId) return nullptr;
    if (info.encoderName) return avcodec_find_encoder_by_name(info.encoderName);
    return avcodec_find_encoder(static_cast<AVCodecID>(info.encoderId));
}

AVSampleFormat PickEncoderFormat(const AVCodec* codec) {
    if (!codec->sample_fmts) return AV_SAMPLE_FMT_S16;
    for (const AVSampleFormat want : {AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S16P})
        for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f)
            if (*f == want) return want;
    return codec->sample_fmts[0];
}

// Opens the encoder for a codec format. With `check` the encoder must produce exactly the
// format's blocks (block align, samples per block, the codec's extra bytes).
MMRESULT OpenEncoder(const Format& target, bool check, CodecCtx& out) {
    const AVCodec* codec = FindEncoder(*target.info);
    if (!codec) return ACMERR_NOTPOSSIBLE;
    CodecCtx ctx(avcodec_alloc_context3(codec));
    if (!ctx) return MMSYSERR_NOMEM;
    ctx->sample_rate = target.rate;
    av_channel_layout_default(&ctx->ch_layout, target.channels);
    ctx->sample_fmt = PickEncoderFormat(codec);
    ctx->time_base = AVRational{1, target.rate};
    const WORD tag = target.info->tag;
    if (tag == WAVE_FORMAT_MPEGLAYER3 || IsWma(tag))
        ctx->bit_rate = int64_t(target.avgBytesPerSec) * 8;
    AVDictionary* opts = nullptr;
    if (IsAdpcm(tag)) av_dict_set_int(&opts, "block_size", target.blockAlign, 0);
    const int r = avcodec_open2(ctx.get(), codec, &opts);
    av_dict_free(&opts);
    if (r < 0) return ACMERR_NOTPOSSIBLE;
    if (check) {
        if (IsAdpcm(tag) || tag == WAVE_FORMAT_GSM610) {
            if (ctx->block_align != target.blockAlign || ctx->frame_size != target.samplesPerBlock)
                return ACMERR_NOTPOSSIBLE;
        }
        if (tag == WAVE_FORMAT_ADPCM) {
            // Only the standard coefficients are encoded with.
            if (target.extra.size() < 4 + sizeof kMsAdpcmCoefficients ||
                std::memcmp(target.extra.data() + 4, kMsAdpcmCoefficients,
                            sizeof kMsAdpcmCoefficients) != 0)
                return ACMERR_NOTPOSSIBLE;
        }
        if (IsWma(tag)) {
            if (ctx->block_align != target.blockAlign ||
                target.extra.size() < size_t(ctx->extradata_size) ||
                std::memcmp(target.extra.data(), ctx->extradata, ctx->extradata_size) != 0)
                return ACMERR_NOTPOSSIBLE;
        }
    }
    out = std::move(ctx);
    return MMSYSERR_NOERROR;
}

class EncodeConverter final : public Converter {
public:
    EncodeConverter(const Format& src, const Format& dst)
        : Converter(src.FrameBytes()), FSrc(src), FDst(dst) {}

protected:
    MMRESULT Start() override {
        FCtx.reset();
        if (const MMRESULT r = OpenEncoder(FDst, true, FCtx)) return r;
        FFrameSize = FCtx->frame_size;
        FUnit = std::max(FFrameSize, 1) * FSrc.FrameBytes();
        FSwr = MakeSwr(FSrc.channels, PcmSampleFormat(FSrc), FSrc.rate, FDst.channels,
                       FCtx->sample_fmt, FDst.rate);
        if (!FSwr) return ACMERR_NOTPOSSIBLE;
        if (!FFrame) FFrame.reset(av_frame_alloc());
        if (!FPacket) FPacket.reset(av_packet_alloc());
        if (!FFrame || !FPacket) return MMSYSERR_NOMEM;
        av_frame_unref(FFrame.get());
        FPts = 0;
        return MMSYSERR_NOERROR;
    }
    MMRESULT Process(const BYTE* src, size_t units) override {
        const size_t frameBytes = FSrc.FrameBytes();
        size_t frames = units * (FUnit / frameBytes);
        const size_t chunk = FFrameSize > 0 ? size_t(FFrameSize) : 4096;
        while (frames > 0) {
            const size_t n = std::min(frames, chunk);
            if (const MMRESULT r = EncodeChunk(src, int(n))) return r;
            src += n * frameBytes;
            frames -= n;
        }
        return MMSYSERR_NOERROR;
    }
    MMRESULT Finish() override {
        if (!FIn.empty()) {
            FIn.resize(FUnit, FSrc.bits == 8 && FSrc.info->kind == TagKind::Pcm ? 0x80 : 0);
            const MMRESULT r = Process(FIn.data(), 1);
            FIn.clear();
            if (r) return r;
        }
        if (avcodec_send_frame(FCtx.get(), nullptr) < 0) return MMSYSERR_ERROR;
        return ReceivePackets();
    }
    size_t Estimate(size_t units) const override {
        const size_t frames = units * (FUnit / FSrc.FrameBytes());
        const WORD tag = FDst.info->tag;
        if (tag == WAVE_FORMAT_ALAW || tag == WAVE_FORMAT_MULAW) return frames * FDst.channels;
        if (tag == WAVE_FORMAT_MPEGLAYER3) {
            // Packets of up to 320 kbit/s, and the frames the encoder still holds.
            const size_t perFrame = 144 * 320000 / size_t(FDst.rate) + 16;
            return (frames / 576 + 8) * perFrame;
        }
        return (units + 2) * size_t(FDst.blockAlign);
    }

private:
    MMRESULT EncodeChunk(const BYTE* src, int n) {
        AVFrame* f = FFrame.get();
        if (f->nb_samples != n || !f->data[0]) {
            av_frame_unref(f);
            f->nb_samples = n;
            f->format = FCtx->sample_fmt;
            f->sample_rate = FDst.rate;
            if (av_channel_layout_copy(&f->ch_layout, &FCtx->ch_layout) < 0 ||
                av_frame_get_buffer(f, 0) < 0)
                return MMSYSERR_NOMEM;
        } else if (av_frame_make_writable(f) < 0) {
            return MMSYSERR_NOMEM;
        }
        const uint8_t* in = src;
        if (IsPacked24(FSrc)) {
            FScratch.resize(size_t(n) * FSrc.channels);
            Unpack24(src, FScratch.data(), FScratch.size());
            in = reinterpret_cast<const uint8_t*>(FScratch.data());
        }
        if (swr_convert(FSwr.get(), f->extended_data, n, &in, n) != n) return MMSYSERR_ERROR;
        f->pts = FPts;
        FPts += n;
        if (avcodec_send_frame(FCtx.get(), f) < 0) return MMSYSERR_ERROR;
        return ReceivePackets();
    }
    MMRESULT ReceivePackets() {
        for (;;) {
            const int r = avcodec_receive_packet(FCtx.get(), FPacket.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return MMSYSERR_NOERROR;
            if (r < 0) return MMSYSERR_ERROR;
            Append(FPacket->data, size_t(FPacket->size));
            av_packet_unref(FPacket.get());
        }
    }

    Format FSrc, FDst;
    CodecCtx FCtx;
    Swr FSwr;
    Frame FFrame;
    Packet FPacket;
    int FFrameSize = 0;
    int64_t FPts = 0;
    std::vector<int32_t> FScratch;
};

// ---- Decoders

class DecodeConverter final : public Converter {
public:
    DecodeConverter(const Format& src, const Format& dst)
        : Converter(src.info->tag == WAVE_FORMAT_MPEGLAYER3 ? 1 : src.blockAlign),
          FSrc(src),
          FDst(dst) {}

protected:
    MMRESULT Start() override {
        const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(FSrc.info->codecId));
        if (!codec) return ACMERR_NOTPOSSIBLE;
        CodecCtx ctx(avcodec_alloc_context3(codec));
        if (!ctx) return MMSYSERR_NOMEM;
        ctx->sample_rate = FSrc.rate;
        av_channel_layout_default(&ctx->ch_layout, FSrc.channels);
        ctx->block_align = FSrc.blockAlign;
        ctx->bit_rate = int64_t(FSrc.avgBytesPerSec) * 8;
        ctx->bits_per_coded_sample = FSrc.info->tag == WAVE_FORMAT_GSM610 ? 0 : FSrc.bits;
        if (!FSrc.extra.empty() && FSrc.info->tag != WAVE_FORMAT_MPEGLAYER3) {
            ctx->extradata =
                static_cast<uint8_t*>(av_mallocz(FSrc.extra.size() + AV_INPUT_BUFFER_PADDING_SIZE));
            if (!ctx->extradata) return MMSYSERR_NOMEM;
            std::memcpy(ctx->extradata, FSrc.extra.data(), FSrc.extra.size());
            ctx->extradata_size = int(FSrc.extra.size());
        }
        if (avcodec_open2(ctx.get(), codec, nullptr) < 0) return ACMERR_NOTPOSSIBLE;
        FCtx = std::move(ctx);
        FParser.reset();
        if (FSrc.info->tag == WAVE_FORMAT_MPEGLAYER3) {
            FParser.reset(av_parser_init(AV_CODEC_ID_MP3));
            if (!FParser) return ACMERR_NOTPOSSIBLE;
        }
        FSwr.reset();
        FSwrFormat = -1;
        if (!FFrame) FFrame.reset(av_frame_alloc());
        if (!FPacket) FPacket.reset(av_packet_alloc());
        return FFrame && FPacket ? MMSYSERR_NOERROR : MMSYSERR_NOMEM;
    }
    MMRESULT Process(const BYTE* src, size_t units) override {
        if (FParser) return Parse(src, units);
        for (size_t i = 0; i < units; ++i, src += FUnit) {
            if (DecodePacket(src, int(FUnit)) != MMSYSERR_NOERROR) {
                // A damaged block still takes its time: it plays as silence.
                avcodec_flush_buffers(FCtx.get());
                AppendSilence(FSrc.samplesPerBlock);
            }
        }
        return MMSYSERR_NOERROR;
    }
    MMRESULT Finish() override {
        FIn.clear();  // a partial block can't be decoded
        if (FParser) Parse(nullptr, 0);
        avcodec_send_packet(FCtx.get(), nullptr);
        return ReceiveFrames();
    }
    size_t Estimate(size_t units) const override {
        const size_t frameBytes = FDst.FrameBytes();
        const WORD tag = FSrc.info->tag;
        if (tag == WAVE_FORMAT_MPEGLAYER3 || IsWma(tag)) {
            // By the bit rate, twice over for variable rates, and at least two frames more.
            const uint64_t bytesPerSec = std::max<DWORD>(FSrc.avgBytesPerSec, 1000);
            const uint64_t frames = uint64_t(units) * FUnit * FSrc.rate * 2 / bytesPerSec + 4096;
            return frames * frameBytes;
        }
        return units * size_t(FSrc.samplesPerBlock) * frameBytes;
    }

private:
    MMRESULT Parse(const BYTE* src, size_t size) {
        const bool drain = src == nullptr;
        do {
            uint8_t* data = nullptr;
            int dataSize = 0;
            const int used = av_parser_parse2(FParser.get(), FCtx.get(), &data, &dataSize, src,
                                              int(size), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
            if (used < 0) return MMSYSERR_ERROR;
            src += used;
            size -= size_t(used);
            if (dataSize > 0) DecodePacket(data, dataSize);
            if (drain && dataSize == 0) break;
        } while (size > 0 || drain);
        return MMSYSERR_NOERROR;
    }
    MMRESULT DecodePacket(const uint8_t* data, int size) {
        FPacket->data = const_cast<uint8_t*>(data);
        FPacket->size = size;
        const int r = avcodec_send_packet(FCtx.get(), FPacket.get());
        FPacket->data = nullptr;
        FPacket->size = 0;
        if (r < 0) return MMSYSERR_ERROR;
        return ReceiveFrames();
    }
    MMRESULT ReceiveFrames() {
        for (;;) {
            const int r = avcodec_receive_frame(FCtx.get(), FFrame.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return MMSYSERR_NOERROR;
            if (r < 0) return MMSYSERR_ERROR;
            const MMRESULT a = AppendFrame(FFrame.get());
            av_frame_unref(FFrame.get());
            if (a) return a;
        }
    }
    MMRESULT AppendFrame(AVFrame* f) {
        if (f->ch_layout.nb_channels != FDst.channels) return MMSYSERR_ERROR;
        const auto fmt = static_cast<AVSampleFormat>(f->format);
        if (fmt == PcmSampleFormat(FDst) && !IsPacked24(FDst)) {
            Append(f->data[0], size_t(f->nb_samples) * FDst.FrameBytes());
            return MMSYSERR_NOERROR;
        }
        if (!FSwr || FSwrFormat != f->format) {
            FSwr = MakeSwr(FDst.channels, fmt, FDst.rate, FDst.channels, PcmSampleFormat(FDst),
                           FDst.rate);
            if (!FSwr) return MMSYSERR_ERROR;
            FSwrFormat = f->format;
        }
        return SwrAppend(FSwr.get(), const_cast<const uint8_t**>(f->extended_data), f->nb_samples,
                         FDst, FOut, FScratch);
    }
    void AppendSilence(int frames) {
        const uint8_t fill = FDst.info->kind == TagKind::Pcm && FDst.bits == 8 ? 0x80 : 0;
        FOut.insert(FOut.end(), size_t(frames) * FDst.FrameBytes(), fill);
    }

    Format FSrc, FDst;
    CodecCtx FCtx;
    Parser FParser;
    Swr FSwr;
    int FSwrFormat = -1;
    Frame FFrame;
    Packet FPacket;
    std::vector<int32_t> FScratch;
};

}  // namespace

// ---- Converter

void Converter::Append(const void* bytes, size_t n) {
    const auto* p = static_cast<const uint8_t*>(bytes);
    FOut.insert(FOut.end(), p, p + n);
}

MMRESULT Converter::Open() {
    const MMRESULT r = Start();
    FFresh = r == MMSYSERR_NOERROR;
    return r;
}

MMRESULT Converter::Size(DWORD cbInput, DWORD& cbOutput) const {
    const size_t units = (FIn.size() + cbInput) / FUnit;
    if (units == 0) return ACMERR_NOTPOSSIBLE;
    const uint64_t bytes = uint64_t(Estimate(units)) + (FOut.size() - FOutPos);
    if (bytes > 0xffffffffu) return ACMERR_NOTPOSSIBLE;
    cbOutput = static_cast<DWORD>(bytes);
    return MMSYSERR_NOERROR;
}

MMRESULT Converter::Convert(const BYTE* src, DWORD srcLength, BYTE* dst, DWORD dstLength,
                            DWORD flags, DWORD& srcUsed, DWORD& dstUsed) {
    srcUsed = dstUsed = 0;
    if ((flags & ACM_STREAMCONVERTF_START) && !FFresh) {
        FIn.clear();
        FOut.clear();
        FOutPos = 0;
        if (const MMRESULT r = Start()) return r;
    }
    FFresh = false;

    size_t take = srcLength;
    if (flags & ACM_STREAMCONVERTF_BLOCKALIGN) {
        const size_t whole = (FIn.size() + srcLength) / FUnit * FUnit;
        take = whole > FIn.size() ? whole - FIn.size() : 0;
    }
    const BYTE* p = src;
    size_t rest = take;
    MMRESULT r = MMSYSERR_NOERROR;
    if (!FIn.empty() && rest > 0) {
        const size_t n = std::min<size_t>(FUnit - FIn.size(), rest);
        FIn.insert(FIn.end(), p, p + n);
        p += n;
        rest -= n;
        if (FIn.size() == FUnit) {
            r = Process(FIn.data(), 1);
            FIn.clear();
        }
    }
    if (r == MMSYSERR_NOERROR && rest >= FUnit) {
        const size_t units = rest / FUnit;
        r = Process(p, units);
        p += units * FUnit;
        rest -= units * FUnit;
    }
    if (r == MMSYSERR_NOERROR) FIn.insert(FIn.end(), p, p + rest);
    if (r == MMSYSERR_NOERROR && (flags & ACM_STREAMCONVERTF_END)) {
        r = Finish();
        // The codec is drained: the next conversion starts afresh.
        if (r == MMSYSERR_NOERROR) r = Start();
        FFresh = true;
    }
    if (r != MMSYSERR_NOERROR) return r;
    srcUsed = static_cast<DWORD>(take);

    const size_t n = std::min<size_t>(dstLength, FOut.size() - FOutPos);
    if (n) std::memcpy(dst, FOut.data() + FOutPos, n);
    FOutPos += n;
    if (FOutPos == FOut.size()) {
        FOut.clear();
        FOutPos = 0;
    }
    dstUsed = static_cast<DWORD>(n);
    return MMSYSERR_NOERROR;
}

MMRESULT CreateConverter(const Format& src, const Format& dst, std::unique_ptr<Converter>& out) {
    std::unique_ptr<Converter> c;
    if (src.IsPcm() && dst.IsPcm()) {
        c = std::make_unique<PcmConverter>(src, dst);
    } else if (src.IsPcm() != dst.IsPcm()) {
        // A codec decodes to, and encodes from, PCM of its own rate and channels.
        if (src.channels != dst.channels || src.rate != dst.rate) return ACMERR_NOTPOSSIBLE;
        if (src.IsPcm())
            c = std::make_unique<EncodeConverter>(src, dst);
        else
            c = std::make_unique<DecodeConverter>(src, dst);
    } else {
        return ACMERR_NOTPOSSIBLE;
    }
    if (const MMRESULT r = c->Open()) return r;
    out = std::move(c);
    return MMSYSERR_NOERROR;
}

// ---- Suggested codec formats

MMRESULT BuildCodecFormat(const TagInfo& info, int channels, int rate,
                          std::vector<uint8_t>& block) {
    if (info.kind != TagKind::Codec || channels < 1 || channels > 8 || rate < 1)
        return ACMERR_NOTPOSSIBLE;
    WAVEFORMATEX wfx{};
    wfx.wFormatTag = info.tag;
    wfx.nChannels = WORD(channels);
    wfx.nSamplesPerSec = DWORD(rate);
    std::vector<uint8_t> extra;
    auto putWord = [&](WORD w) {
        extra.push_back(BYTE(w));
        extra.push_back(BYTE(w >> 8));
    };
    const int adpcmBlock = 256 * channels * std::max(1, rate / 11025);
    Format target;
    target.info = &info;
    target.channels = channels;
    target.rate = rate;
    switch (info.tag) {
        case WAVE_FORMAT_ALAW:
        case WAVE_FORMAT_MULAW:
            wfx.nBlockAlign = WORD(channels);
            wfx.wBitsPerSample = 8;
            wfx.nAvgBytesPerSec = DWORD(rate) * channels;
            break;
        case WAVE_FORMAT_IMA_ADPCM: {
            const int spb = (adpcmBlock - 4 * channels) * 2 / channels + 1;
            wfx.nBlockAlign = WORD(adpcmBlock);
            wfx.wBitsPerSample = 4;
            wfx.nAvgBytesPerSec = DWORD(int64_t(rate) * adpcmBlock / spb);
            putWord(WORD(spb));
            target.samplesPerBlock = spb;
            break;
        }
        case WAVE_FORMAT_ADPCM: {
            const int spb = (adpcmBlock - 7 * channels) * 2 / channels + 2;
            wfx.nBlockAlign = WORD(adpcmBlock);
            wfx.wBitsPerSample = 4;
            wfx.nAvgBytesPerSec = DWORD(int64_t(rate) * adpcmBlock / spb);
            putWord(WORD(spb));
            putWord(7);
            for (const ADPCMCOEFSET& c : kMsAdpcmCoefficients) {
                putWord(WORD(c.iCoef1));
                putWord(WORD(c.iCoef2));
            }
            target.samplesPerBlock = spb;
            break;
        }
        case WAVE_FORMAT_GSM610:
            if (channels != 1) return ACMERR_NOTPOSSIBLE;
            wfx.nBlockAlign = 65;
            wfx.nAvgBytesPerSec = DWORD(int64_t(rate) * 65 / 320);
            putWord(320);
            target.samplesPerBlock = 320;
            break;
        case WAVE_FORMAT_MPEGLAYER3: {
            if (channels > 2) return ACMERR_NOTPOSSIBLE;
            const int kbps = (rate >= 32000 ? 64 : rate >= 16000 ? 32 : 16) * channels;
            wfx.nBlockAlign = 1;
            wfx.nAvgBytesPerSec = DWORD(kbps * 1000 / 8);
            break;
        }
        case WAVE_FORMAT_MSAUDIO1:
        case WAVE_FORMAT_WMAUDIO2:
            if (channels > 2) return ACMERR_NOTPOSSIBLE;
            wfx.wBitsPerSample = 16;
            break;
        default:
            return ACMERR_NOTPOSSIBLE;
    }
    target.blockAlign = wfx.nBlockAlign;
    target.avgBytesPerSec = wfx.nAvgBytesPerSec;
    target.extra = extra;

    CodecCtx ctx;
    if (IsWma(info.tag)) {
        // The highest usual rate the encoder takes for this PCM.
        MMRESULT r = ACMERR_NOTPOSSIBLE;
        for (const int kbps : {64, 48, 32, 24, 16, 12}) {
            target.avgBytesPerSec = DWORD(kbps * channels * 1000 / 8);
            if ((r = OpenEncoder(target, false, ctx)) == MMSYSERR_NOERROR) break;
        }
        if (r) return r;
        wfx.nAvgBytesPerSec = target.avgBytesPerSec;
        wfx.nBlockAlign = WORD(ctx->block_align);
        extra.assign(ctx->extradata, ctx->extradata + ctx->extradata_size);
    } else if (const MMRESULT r = OpenEncoder(target, true, ctx)) {
        return r;
    }
    if (info.tag == WAVE_FORMAT_MPEGLAYER3) {
        MPEGLAYER3WAVEFORMAT mp3{};
        const int bitrate = int(wfx.nAvgBytesPerSec) * 8;
        mp3.wID = MPEGLAYER3_ID_MPEG;
        mp3.fdwFlags = MPEGLAYER3_FLAG_PADDING_ISO;
        mp3.nBlockSize = WORD((rate >= 32000 ? 144 : 72) * bitrate / rate);
        mp3.nFramesPerBlock = 1;
        mp3.nCodecDelay = WORD(std::max(0, ctx->initial_padding));
        const auto* p = reinterpret_cast<const uint8_t*>(&mp3) + sizeof(WAVEFORMATEX);
        extra.assign(p, p + MPEGLAYER3_WFX_EXTRA_BYTES);
    }
    wfx.cbSize = WORD(extra.size());
    block.resize(sizeof wfx + extra.size());
    std::memcpy(block.data(), &wfx, sizeof wfx);
    if (!extra.empty()) std::memcpy(block.data() + sizeof wfx, extra.data(), extra.size());
    return MMSYSERR_NOERROR;
}

}  // namespace mw::acm
