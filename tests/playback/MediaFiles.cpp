#include "tests/playback/MediaFiles.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace mw::test {

TempDir::TempDir() {
    std::random_device rd;
    FPath = std::filesystem::temp_directory_path() /
            ("mw-playback-" + std::to_string(rd()) + std::to_string(rd()));
    std::filesystem::create_directories(FPath);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(FPath, ec);
}

std::vector<uint8_t> PatternSamples(unsigned frames, unsigned channels, unsigned bytesPerSample,
                                    bool isFloat) {
    std::vector<uint8_t> out(size_t(frames) * channels * bytesPerSample);
    std::mt19937 gen(frames * 31 + channels * 7 + bytesPerSample);
    if (isFloat) {
        std::uniform_real_distribution<float> d(-1.0f, 1.0f);
        for (size_t i = 0; i < out.size() / 4; ++i) {
            const float v = d(gen);
            std::memcpy(&out[i * 4], &v, 4);
        }
    } else {
        for (auto& b : out)
            b = static_cast<uint8_t>(gen());
    }
    return out;
}

namespace {
void Put16(std::string& s, uint16_t v) {
    s.push_back(char(v & 0xFF));
    s.push_back(char(v >> 8));
}
void Put32(std::string& s, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        s.push_back(char((v >> (8 * i)) & 0xFF));
}
}  // namespace

void WriteWav(const std::string& path, unsigned rate, unsigned channels, unsigned bits,
              bool isFloat, const std::vector<uint8_t>& samples) {
    const unsigned block = channels * bits / 8;
    std::string h = "RIFF";
    Put32(h, static_cast<uint32_t>(36 + samples.size()));
    h += "WAVEfmt ";
    Put32(h, 16);
    Put16(h, isFloat ? 3 : 1);
    Put16(h, static_cast<uint16_t>(channels));
    Put32(h, rate);
    Put32(h, rate * block);
    Put16(h, static_cast<uint16_t>(block));
    Put16(h, static_cast<uint16_t>(bits));
    h += "data";
    Put32(h, static_cast<uint32_t>(samples.size()));
    h.append(reinterpret_cast<const char*>(samples.data()), samples.size());
    WriteBytes(path, h);
}

std::vector<int16_t> ToneSamples(unsigned rate, unsigned channels, unsigned frames, double hz) {
    std::vector<int16_t> out(size_t(frames) * channels);
    for (unsigned f = 0; f < frames; ++f)
        for (unsigned c = 0; c < channels; ++c)
            out[size_t(f) * channels + c] =
                static_cast<int16_t>(12000.0 * std::sin(2.0 * M_PI * hz * (c + 1) * f / rate));
    return out;
}

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!f) throw std::runtime_error("cannot write " + path);
}

namespace {
struct Encoder {
    AVFormatContext* Out = nullptr;
    AVCodecContext* Codec = nullptr;
    SwrContext* Swr = nullptr;
    AVFrame* Frame = av_frame_alloc();
    AVPacket* Packet = av_packet_alloc();
    AVStream* Stream = nullptr;
    ~Encoder() {
        if (Out && Out->pb) avio_closep(&Out->pb);
        avformat_free_context(Out);
        avcodec_free_context(&Codec);
        swr_free(&Swr);
        av_frame_free(&Frame);
        av_packet_free(&Packet);
    }
    bool Drain() {
        for (;;) {
            const int r = avcodec_receive_packet(Codec, Packet);
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return true;
            if (r < 0) return false;
            av_packet_rescale_ts(Packet, Codec->time_base, Stream->time_base);
            Packet->stream_index = Stream->index;
            if (av_interleaved_write_frame(Out, Packet) < 0) return false;
        }
    }
};
}  // namespace

bool EncodeAudio(const std::string& path, const char* encoderName, unsigned rate, unsigned channels,
                 const std::vector<int16_t>& samples) {
    const AVCodec* codec = avcodec_find_encoder_by_name(encoderName);
    if (!codec) return false;
    Encoder e;
    if (avformat_alloc_output_context2(&e.Out, nullptr, nullptr, path.c_str()) < 0) return false;
    e.Stream = avformat_new_stream(e.Out, nullptr);
    e.Codec = avcodec_alloc_context3(codec);
    if (!e.Stream || !e.Codec) return false;
    e.Codec->sample_rate = static_cast<int>(rate);
    av_channel_layout_default(&e.Codec->ch_layout, static_cast<int>(channels));
    e.Codec->sample_fmt = codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_S16;
    e.Codec->bit_rate = 128000;
    e.Codec->time_base = AVRational{1, static_cast<int>(rate)};
    if (e.Out->oformat->flags & AVFMT_GLOBALHEADER) e.Codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(e.Codec, codec, nullptr) < 0) return false;
    if (avcodec_parameters_from_context(e.Stream->codecpar, e.Codec) < 0) return false;
    e.Stream->time_base = e.Codec->time_base;
    if (avio_open(&e.Out->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) return false;
    if (avformat_write_header(e.Out, nullptr) < 0) return false;
    if (swr_alloc_set_opts2(&e.Swr, &e.Codec->ch_layout, e.Codec->sample_fmt, e.Codec->sample_rate,
                            &e.Codec->ch_layout, AV_SAMPLE_FMT_S16, e.Codec->sample_rate, 0,
                            nullptr) < 0 ||
        swr_init(e.Swr) < 0)
        return false;

    const int frameSize = e.Codec->frame_size > 0 ? e.Codec->frame_size : 1024;
    const size_t total = samples.size() / channels;
    for (size_t pos = 0; pos < total; pos += static_cast<size_t>(frameSize)) {
        const int n = static_cast<int>(std::min<size_t>(frameSize, total - pos));
        av_frame_unref(e.Frame);
        e.Frame->nb_samples = n;
        e.Frame->format = e.Codec->sample_fmt;
        e.Frame->sample_rate = e.Codec->sample_rate;
        av_channel_layout_copy(&e.Frame->ch_layout, &e.Codec->ch_layout);
        if (av_frame_get_buffer(e.Frame, 0) < 0) return false;
        const uint8_t* in = reinterpret_cast<const uint8_t*>(samples.data() + pos * channels);
        if (swr_convert(e.Swr, e.Frame->data, n, &in, n) != n) return false;
        e.Frame->pts = static_cast<int64_t>(pos);
        if (avcodec_send_frame(e.Codec, e.Frame) < 0 || !e.Drain()) return false;
    }
    if (avcodec_send_frame(e.Codec, nullptr) < 0 || !e.Drain()) return false;
    return av_write_trailer(e.Out) >= 0;
}

}  // namespace mw::test
