// PCM through each codec and back: lossless conversions bit-exact, lossy codecs within their
// usual error (the signal-to-noise ratio of a sine is printed), and A-law, mu-law and IMA
// ADPCM byte for byte what FFmpeg's own encoders write for the same input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

std::vector<uint8_t> RoundTrip(const WAVEFORMATEX* pcm, const WAVEFORMATEX* codec,
                               const std::vector<uint8_t>& input, bool end = false) {
    const Converted enc = ConvertAll(pcm, codec, input, 0, end);
    EXPECT_EQ(enc.result, MMSYSERR_NOERROR);
    const Converted dec = ConvertAll(codec, pcm, enc.bytes, 0, end);
    EXPECT_EQ(dec.result, MMSYSERR_NOERROR);
    return dec.bytes;
}

TEST(AcmRoundTrip, PcmSampleSizesAreLossless) {
    const WAVEFORMATEX pcm16 = Pcm(2, 44100, 16);
    const auto input = Bytes(Sine16(2, 44100, 4410));
    for (const int bits : {24, 32}) {
        const WAVEFORMATEX wide = Pcm(2, 44100, bits);
        EXPECT_EQ(RoundTrip(&pcm16, &wide, input), input) << bits << " bits";
    }
    WAVEFORMATEX flt = Pcm(2, 44100, 32);
    flt.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    EXPECT_EQ(RoundTrip(&pcm16, &flt, input), input) << "float";
    WAVEFORMATEX dbl = Pcm(2, 44100, 64);
    dbl.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    EXPECT_EQ(RoundTrip(&pcm16, &dbl, input), input) << "double";

    // 8-bit samples survive 16 bits and back.
    const WAVEFORMATEX pcm8 = Pcm(1, 8000, 8);
    std::vector<uint8_t> eight(800);
    for (size_t i = 0; i < eight.size(); ++i)
        eight[i] = uint8_t(128 + 100 * std::sin(i * 0.3));
    const WAVEFORMATEX to16 = Pcm(1, 8000, 16);
    EXPECT_EQ(RoundTrip(&pcm8, &to16, eight), eight);
}

TEST(AcmRoundTrip, PcmChannelsAndRates) {
    // Mono spreads to both channels unchanged; the stereo mean of two equal channels is the
    // channel itself.
    const WAVEFORMATEX mono = Pcm(1, 22050, 16);
    const WAVEFORMATEX stereo = Pcm(2, 22050, 16);
    const auto input = Bytes(Sine16(1, 22050, 2205));
    const auto up = Samples16(ConvertAll(&mono, &stereo, input).bytes);
    ASSERT_EQ(up.size(), 2 * 2205u);
    for (size_t i = 0; i < 2205; ++i) {
        ASSERT_EQ(up[2 * i], Samples16(input)[i]);
        ASSERT_EQ(up[2 * i + 1], Samples16(input)[i]);
    }
    EXPECT_EQ(RoundTrip(&mono, &stereo, input), input);

    // Rate conversion down and up again keeps a sine well below the new Nyquist.
    const WAVEFORMATEX hi = Pcm(1, 44100, 16);
    const WAVEFORMATEX lo = Pcm(1, 22050, 16);
    const auto sine = Sine16(1, 44100, 44100, 500);
    const Converted down = ConvertAll(&hi, &lo, Bytes(sine), 4096, true);
    ASSERT_EQ(down.result, MMSYSERR_NOERROR);
    EXPECT_NEAR(double(down.bytes.size()) / 2, 22050, 64);
    const Converted back = ConvertAll(&lo, &hi, down.bytes, 4096, true);
    const double snr = BestSnr(sine, Samples16(back.bytes), 1, 64, 2048);
    std::printf("[ SNR      ] PCM 44100 -> 22050 -> 44100 Hz: %.1f dB\n", snr);
    EXPECT_GT(snr, 40.0);
}

struct LossyCase {
    const char* name;
    WORD tag;
    int channels;
    int rate;
    double minSnr;
    long maxLag;  // frames of codec delay to search
};

class AcmLossy : public ::testing::TestWithParam<LossyCase> {};

TEST_P(AcmLossy, RoundTripIsWithinTheCodecsError) {
    const LossyCase& c = GetParam();
    MMRESULT r;
    const auto block = Suggest(c.tag, c.channels, c.rate, &r);
    ASSERT_EQ(r, MMSYSERR_NOERROR);
    const WAVEFORMATEX pcm = Pcm(c.channels, c.rate, 16);
    const auto sine = Sine16(c.channels, c.rate, size_t(c.rate), 440);
    // Fed in uneven pieces, as a stream arrives.
    const Converted enc = ConvertAll(&pcm, Wfx(block), Bytes(sine), 3001 * 2 * c.channels, true);
    ASSERT_EQ(enc.result, MMSYSERR_NOERROR);
    ASSERT_FALSE(enc.bytes.empty());
    const Converted dec = ConvertAll(Wfx(block), &pcm, enc.bytes, 777, true);
    ASSERT_EQ(dec.result, MMSYSERR_NOERROR);
    const auto got = Samples16(dec.bytes);
    long lag = 0;
    const double snr =
        BestSnr(sine, got, c.channels, c.maxLag, size_t(c.rate / 10) * c.channels, &lag);
    std::printf("[ SNR      ] %s %d ch %d Hz: %.1f dB (delay %ld frames), %zu -> %zu bytes\n",
                c.name, c.channels, c.rate, snr, lag, sine.size() * 2, enc.bytes.size());
    EXPECT_GT(snr, c.minSnr);
    EXPECT_GE(got.size() + size_t(c.maxLag) * c.channels, sine.size() * 9 / 10);
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, AcmLossy,
    ::testing::Values(LossyCase{"ImaAdpcm", WAVE_FORMAT_IMA_ADPCM, 2, 44100, 25, 0},
                      LossyCase{"MsAdpcm", WAVE_FORMAT_ADPCM, 2, 22050, 25, 0},
                      LossyCase{"Gsm610", WAVE_FORMAT_GSM610, 1, 8000, 5, 0},
                      LossyCase{"ALaw", WAVE_FORMAT_ALAW, 2, 8000, 30, 0},
                      LossyCase{"MuLaw", WAVE_FORMAT_MULAW, 1, 11025, 30, 0},
                      LossyCase{"Mp3", WAVE_FORMAT_MPEGLAYER3, 2, 44100, 15, 2400},
                      LossyCase{"WmaV2", WAVE_FORMAT_WMAUDIO2, 2, 44100, 10, 4096},
                      LossyCase{"WmaV1", WAVE_FORMAT_MSAUDIO1, 1, 22050, 10, 4096}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- FFmpeg's own encoders

// Encodes interleaved 16-bit PCM with the named FFmpeg encoder in frames of its frame size,
// the way FFmpeg's tools drive it.
std::vector<uint8_t> EncodeWithFFmpeg(const char* name, int channels, int rate, int blockSize,
                                      const std::vector<int16_t>& samples) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    EXPECT_NE(codec, nullptr);
    if (!codec) return {};
    AVCodecContext* ctx = avcodec_alloc_context3(codec);
    ctx->sample_rate = rate;
    av_channel_layout_default(&ctx->ch_layout, channels);
    ctx->sample_fmt = codec->sample_fmts[0];
    AVDictionary* opts = nullptr;
    if (blockSize) av_dict_set_int(&opts, "block_size", blockSize, 0);
    EXPECT_GE(avcodec_open2(ctx, codec, &opts), 0);
    av_dict_free(&opts);
    const size_t frames = samples.size() / channels;
    const size_t step = ctx->frame_size > 0 ? size_t(ctx->frame_size) : 1024;
    std::vector<uint8_t> out;
    AVFrame* f = av_frame_alloc();
    AVPacket* p = av_packet_alloc();
    auto drain = [&] {
        while (avcodec_receive_packet(ctx, p) >= 0) {
            out.insert(out.end(), p->data, p->data + p->size);
            av_packet_unref(p);
        }
    };
    const bool variable = ctx->frame_size == 0;
    for (size_t at = 0; at + (variable ? 1 : step) <= frames; at += step) {
        const size_t n = std::min(step, frames - at);
        f->nb_samples = int(n);
        f->format = ctx->sample_fmt;
        av_channel_layout_copy(&f->ch_layout, &ctx->ch_layout);
        av_frame_get_buffer(f, 0);
        const bool planar = av_sample_fmt_is_planar(ctx->sample_fmt);
        for (size_t i = 0; i < n; ++i)
            for (int c = 0; c < channels; ++c) {
                const int16_t v = samples[(at + i) * channels + c];
                if (planar)
                    reinterpret_cast<int16_t*>(f->data[c])[i] = v;
                else
                    reinterpret_cast<int16_t*>(f->data[0])[i * channels + c] = v;
            }
        avcodec_send_frame(ctx, f);
        av_frame_unref(f);
        drain();
    }
    avcodec_send_frame(ctx, nullptr);
    drain();
    av_packet_free(&p);
    av_frame_free(&f);
    avcodec_free_context(&ctx);
    return out;
}

struct IdentityCase {
    const char* name;
    WORD tag;
    const char* encoder;
    int channels;
    int rate;
};

class AcmLikeFFmpeg : public ::testing::TestWithParam<IdentityCase> {};

TEST_P(AcmLikeFFmpeg, OutputIsByteIdenticalToFFmpegsEncoder) {
    const IdentityCase& c = GetParam();
    const auto block = Suggest(c.tag, c.channels, c.rate);
    ASSERT_FALSE(block.empty());
    const WAVEFORMATEX* codec = Wfx(block);
    // A whole number of codec blocks of a signal with some noise in it.
    const int spb = c.tag == WAVE_FORMAT_IMA_ADPCM
                        ? reinterpret_cast<const IMAADPCMWAVEFORMAT*>(codec)->wSamplesPerBlock
                        : 1;
    auto samples = Sine16(c.channels, c.rate, size_t(spb) * (c.rate / spb), 997);
    uint32_t seed = 1;
    for (int16_t& s : samples) {
        seed = seed * 1664525 + 1013904223;
        s = int16_t(s + int16_t(seed >> 22) - 512);
    }
    const WAVEFORMATEX pcm = Pcm(c.channels, c.rate, 16);
    const Converted ours = ConvertAll(&pcm, codec, Bytes(samples), 10000 * c.channels);
    ASSERT_EQ(ours.result, MMSYSERR_NOERROR);
    const auto theirs =
        EncodeWithFFmpeg(c.encoder, c.channels, c.rate,
                         c.tag == WAVE_FORMAT_IMA_ADPCM ? codec->nBlockAlign : 0, samples);
    ASSERT_EQ(ours.bytes.size(), theirs.size());
    EXPECT_TRUE(ours.bytes == theirs);
}

INSTANTIATE_TEST_SUITE_P(
    Encoders, AcmLikeFFmpeg,
    ::testing::Values(
        IdentityCase{"ALaw", WAVE_FORMAT_ALAW, "pcm_alaw", 2, 44100},
        IdentityCase{"MuLaw", WAVE_FORMAT_MULAW, "pcm_mulaw", 1, 8000},
        IdentityCase{"ImaAdpcmStereo", WAVE_FORMAT_IMA_ADPCM, "adpcm_ima_wav", 2, 44100},
        IdentityCase{"ImaAdpcmMono", WAVE_FORMAT_IMA_ADPCM, "adpcm_ima_wav", 1, 22050}),
    [](const auto& info) { return std::string(info.param.name); });

// The same against the ffmpeg program, where it is installed: the data it writes into a WAV
// file for the same samples.
TEST(AcmLikeFFmpegTool, ImaAdpcmAndMuLawMatchTheFFmpegProgram) {
    if (system("ffmpeg -hide_banner -version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "the ffmpeg program is not installed";
    const std::string dir = ::testing::TempDir() + "mw_acm_" + std::to_string(getpid());
    const std::string raw = dir + "_in.raw", out = dir + "_out.bin";
    const auto samples = Sine16(2, 44100, 2041 * 20, 1234);
    {
        std::ofstream f(raw, std::ios::binary);
        f.write(reinterpret_cast<const char*>(samples.data()), std::streamsize(samples.size() * 2));
    }
    const WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    for (const auto& [tag, args] :
         {std::pair<WORD, std::string>{WAVE_FORMAT_IMA_ADPCM,
                                       "-c:a adpcm_ima_wav -block_size 2048"},
          {WAVE_FORMAT_MULAW, "-c:a pcm_mulaw"}}) {
        const std::string cmd =
            "ffmpeg -hide_banner -loglevel error -y -f s16le -ar 44100 -ac 2 -i " + raw +
            " -map 0:a " + args + " -f data " + out;
        ASSERT_EQ(system(cmd.c_str()), 0) << cmd;
        std::ifstream in(out, std::ios::binary);
        const std::vector<uint8_t> theirs(std::istreambuf_iterator<char>(in), {});
        const auto block = Suggest(tag, 2, 44100);
        const Converted ours = ConvertAll(&pcm, Wfx(block), Bytes(samples));
        ASSERT_EQ(ours.result, MMSYSERR_NOERROR);
        EXPECT_EQ(ours.bytes.size(), theirs.size()) << args;
        EXPECT_TRUE(ours.bytes == theirs) << args;
    }
    std::remove(raw.c_str());
    std::remove(out.c_str());
}

}  // namespace
}  // namespace mw::test::acm
