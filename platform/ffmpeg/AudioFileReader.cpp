#include "platform/ffmpeg/AudioFileReader.h"

#include <sys/stat.h>

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace mw::media {

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;  // 100 ns units
// The 18 speaker positions; FFmpeg's native layout bits are in the same order.
constexpr uint64_t kSpeakerBits = 0x3FFFF;

std::atomic<bool> gLogging{false};
std::once_flag gLogOnce;

void ApplyLogLevel() {
    av_log_set_level(gLogging.load() ? AV_LOG_WARNING : AV_LOG_QUIET);
}

struct FormatCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct SwrFreer {
    void operator()(SwrContext* c) const { swr_free(&c); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct AvioFreer {
    void operator()(AVIOContext* c) const {
        av_freep(&c->buffer);
        avio_context_free(&c);
    }
};

// A descriptor the reader opened itself and hands to FFmpeg through its own I/O context.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : FFd(fd) {}
    ~FileDescriptor() {
        if (FFd >= 0) ::close(FFd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int Get() const { return FFd; }

private:
    int FFd;
};

// Reads a stream that can be opened only once (a FIFO, a pipe, a character device). A read
// interrupted by a signal ends the stream: with restarting handlers the kernel never reports
// one, so it comes from a program that asked to be woken up (Ctrl-C while a writer is silent).
int ReadDescriptor(void* opaque, uint8_t* buf, int size) {
    const ssize_t n = ::read(static_cast<FileDescriptor*>(opaque)->Get(), buf, size);
    if (n > 0) return static_cast<int>(n);
    if (n == 0) return AVERROR_EOF;
    return AVERROR(errno);
}

constexpr int kAvioBufferSize = 64 * 1024;

AVSampleFormat AvFormatOf(PcmSample s) {
    switch (s) {
        case PcmSample::UInt8:
            return AV_SAMPLE_FMT_U8;
        case PcmSample::Int16:
            return AV_SAMPLE_FMT_S16;
        case PcmSample::Int24:  // decoded into 32-bit words, then packed
        case PcmSample::Int32:
            return AV_SAMPLE_FMT_S32;
        case PcmSample::Float32:
            return AV_SAMPLE_FMT_FLT;
    }
    return AV_SAMPLE_FMT_S16;
}

// Packs the upper 24 bits of little-endian 32-bit samples into 3 bytes each.
void PackInt24(const uint8_t* src, size_t samples, uint8_t* dst) {
    for (size_t i = 0; i < samples; ++i) {
        dst[0] = src[1];
        dst[1] = src[2];
        dst[2] = src[3];
        src += 4;
        dst += 3;
    }
}

}  // namespace

void SetFFmpegLogging(bool on) {
    gLogging = on;
    ApplyLogLevel();
}

const char* ReadErrorName(ReadError error) {
    switch (error) {
        case ReadError::None:
            return "";
        case ReadError::NotFound:
            return "No such file or directory";
        case ReadError::CannotRead:
            return "cannot read the file";
        case ReadError::NotDecodable:
            return "not an audio file FFmpeg can decode";
        case ReadError::NoAudioStream:
            return "the file holds no audio stream";
        case ReadError::NoDecoder:
            return "no decoder for the file's audio codec";
        case ReadError::DecodeFailed:
            return "decoding failed";
    }
    return "";
}

unsigned PcmFormat::BytesPerSample() const {
    switch (Sample) {
        case PcmSample::UInt8:
            return 1;
        case PcmSample::Int16:
            return 2;
        case PcmSample::Int24:
            return 3;
        case PcmSample::Int32:
        case PcmSample::Float32:
            return 4;
    }
    return 2;
}

struct AudioFileReader::Impl {
    // In this order, so that the format context goes before the I/O context and the descriptor
    // it reads.
    std::unique_ptr<FileDescriptor> Stream;
    std::unique_ptr<AVIOContext, AvioFreer> Avio;
    std::unique_ptr<AVFormatContext, FormatCloser> Format;
    std::unique_ptr<AVCodecContext, CodecFreer> Codec;
    std::unique_ptr<SwrContext, SwrFreer> Swr;
    std::unique_ptr<AVPacket, PacketFreer> Packet{av_packet_alloc()};
    std::unique_ptr<AVFrame, FrameFreer> Frame{av_frame_alloc()};
    int StreamIndex = -1;
    AVRational TimeBase{1, 1};
    int64_t StartPts = 0;
    AVSampleFormat OutAvFormat = AV_SAMPLE_FMT_S16;
    int SwrInputFormat = -1;  // the input format the resampler was built for
    bool Draining = false;
    bool AlignAfterSeek = false;  // the next decoded frame tells where the seek landed
    int64_t SeekTarget = 0;       // frame number wanted by the last seek
    int64_t EndPosition = -1;     // frames in the stream, once the end was reached from the start
    // Converted frames not yet handed out.
    std::vector<uint8_t> Pending;
    size_t PendingOffset = 0;
    std::vector<uint8_t> Scratch;  // 32-bit samples before 24-bit packing

    size_t PendingBytes() const { return Pending.size() - PendingOffset; }
};

AudioFileReader::AudioFileReader() = default;
AudioFileReader::~AudioFileReader() = default;

bool AudioFileReader::IsOpen() const {
    return FImpl && FImpl->Codec;
}

bool AudioFileReader::Fail(ReadError error, std::string text) {
    Close();
    FError = error;
    FErrorText = std::move(text);
    return false;
}

void AudioFileReader::Close() {
    FImpl.reset();
    FSource = {};
    FFormat = {};
    FPosition = 0;
    FSkipFrames = 0;
    FAtEnd = false;
    FError = ReadError::None;
    FErrorText.clear();
    FSkippedPackets = 0;
}

bool AudioFileReader::Open(const std::string& path, OutputChoice output) {
    std::call_once(gLogOnce, ApplyLogLevel);
    Close();

    auto impl = std::make_unique<Impl>();
    if (!impl->Packet || !impl->Frame) return Fail(ReadError::DecodeFailed, "out of memory");

    // FFmpeg's own errors don't tell a missing file from one it can't read, so local paths
    // are looked at first; URLs go to FFmpeg as they are. A FIFO (or any other file that is
    // not a regular file) is opened here once and read through the descriptor: a second open
    // would wait for a writer again, and a writer would lose what it wrote in between.
    AVFormatContext* fc = nullptr;
    if (path.find("://") == std::string::npos) {
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0) {
            const int e = errno;
            return Fail(e == ENOENT || e == ENOTDIR ? ReadError::NotFound : ReadError::CannotRead,
                        std::strerror(e));
        }
        if (S_ISDIR(st.st_mode)) return Fail(ReadError::CannotRead, std::strerror(EISDIR));
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return Fail(ReadError::CannotRead, std::strerror(errno));
        if (S_ISREG(st.st_mode)) {
            ::close(fd);
        } else {
            impl->Stream = std::make_unique<FileDescriptor>(fd);
            auto* buffer = static_cast<uint8_t*>(av_malloc(kAvioBufferSize));
            if (buffer)
                impl->Avio.reset(avio_alloc_context(buffer, kAvioBufferSize, 0, impl->Stream.get(),
                                                    ReadDescriptor, nullptr, nullptr));
            if (!impl->Avio) {
                av_free(buffer);
                return Fail(ReadError::DecodeFailed, "out of memory");
            }
            fc = avformat_alloc_context();
            if (!fc) return Fail(ReadError::DecodeFailed, "out of memory");
            fc->pb = impl->Avio.get();
        }
    }

    // Frees fc on failure.
    if (avformat_open_input(&fc, path.c_str(), nullptr, nullptr) < 0)
        return Fail(ReadError::NotDecodable, ReadErrorName(ReadError::NotDecodable));
    impl->Format.reset(fc);
    if (avformat_find_stream_info(fc, nullptr) < 0)
        return Fail(ReadError::NotDecodable, ReadErrorName(ReadError::NotDecodable));

    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(fc, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
    if (index == AVERROR_STREAM_NOT_FOUND)
        return Fail(ReadError::NoAudioStream, ReadErrorName(ReadError::NoAudioStream));
    if (index < 0 || !decoder) {
        std::string text = ReadErrorName(ReadError::NoDecoder);
        if (index >= 0)
            text +=
                std::string(" (") + avcodec_get_name(fc->streams[index]->codecpar->codec_id) + ")";
        return Fail(ReadError::NoDecoder, text);
    }
    AVStream* stream = fc->streams[index];
    for (unsigned i = 0; i < fc->nb_streams; ++i)
        fc->streams[i]->discard = static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;

    impl->Codec.reset(avcodec_alloc_context3(decoder));
    if (!impl->Codec || avcodec_parameters_to_context(impl->Codec.get(), stream->codecpar) < 0)
        return Fail(ReadError::DecodeFailed, "cannot set up the decoder");
    impl->Codec->pkt_timebase = stream->time_base;
    if (avcodec_open2(impl->Codec.get(), decoder, nullptr) < 0)
        return Fail(ReadError::NoDecoder,
                    std::string(ReadErrorName(ReadError::NoDecoder)) + " (" + decoder->name + ")");
    AVCodecContext* cc = impl->Codec.get();
    if (cc->sample_rate <= 0 || cc->ch_layout.nb_channels <= 0)
        return Fail(ReadError::NotDecodable, ReadErrorName(ReadError::NotDecodable));

    impl->StreamIndex = index;
    impl->TimeBase = stream->time_base;
    impl->StartPts = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;

    FSource.Container = fc->iformat->name;
    FSource.Codec = decoder->name;
    FSource.Rate = static_cast<unsigned>(cc->sample_rate);
    FSource.Channels = static_cast<unsigned>(cc->ch_layout.nb_channels);
    const AVSampleFormat packed = av_get_packed_sample_fmt(cc->sample_fmt);
    FSource.Float = packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
    FSource.IntegerPcm =
        packed == AV_SAMPLE_FMT_U8 || packed == AV_SAMPLE_FMT_S16 || packed == AV_SAMPLE_FMT_S32;
    if (FSource.IntegerPcm) {
        const int bytes = av_get_bytes_per_sample(packed);
        const int raw = cc->bits_per_raw_sample;
        FSource.BitsPerSample =
            static_cast<unsigned>(raw > 0 && raw <= bytes * 8 ? raw : bytes * 8);
    }
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0)
        FSource.Duration =
            av_rescale_q(stream->duration, stream->time_base, AVRational{1, kTicksPerSecond});
    else if (fc->duration != AV_NOPTS_VALUE && fc->duration > 0)
        FSource.Duration = av_rescale(fc->duration, kTicksPerSecond, AV_TIME_BASE);

    PcmSample sample = PcmSample::Float32;
    switch (output) {
        case OutputChoice::Int16:
            sample = PcmSample::Int16;
            break;
        case OutputChoice::Float32:
            sample = PcmSample::Float32;
            break;
        case OutputChoice::Source:
            if (packed == AV_SAMPLE_FMT_U8)
                sample = PcmSample::UInt8;
            else if (packed == AV_SAMPLE_FMT_S16)
                sample = PcmSample::Int16;
            else if (packed == AV_SAMPLE_FMT_S32)
                sample = FSource.BitsPerSample > 16 && FSource.BitsPerSample <= 24
                             ? PcmSample::Int24
                             : PcmSample::Int32;
            else
                sample = PcmSample::Float32;
            break;
    }
    FFormat.Sample = sample;
    FFormat.Rate = FSource.Rate;
    FFormat.Channels = FSource.Channels;
    if (cc->ch_layout.order == AV_CHANNEL_ORDER_NATIVE &&
        std::popcount(cc->ch_layout.u.mask & kSpeakerBits) == cc->ch_layout.nb_channels)
        FFormat.ChannelMask = static_cast<uint32_t>(cc->ch_layout.u.mask & kSpeakerBits);
    impl->OutAvFormat = AvFormatOf(sample);

    FImpl = std::move(impl);
    return true;
}

int64_t AudioFileReader::Duration() const {
    if (FImpl && FImpl->EndPosition >= 0) return FrameTime(FImpl->EndPosition);
    return FSource.Duration;
}

int64_t AudioFileReader::FrameTime(int64_t frame) const {
    if (FFormat.Rate == 0) return 0;
    // Split to stay exact without overflow for long streams.
    const int64_t rate = FFormat.Rate;
    return frame / rate * kTicksPerSecond + frame % rate * kTicksPerSecond / rate;
}

int64_t AudioFileReader::PositionTime() const {
    return FrameTime(FPosition);
}

bool AudioFileReader::Refill() {
    Impl& m = *FImpl;
    AVCodecContext* cc = m.Codec.get();
    AVFrame* frame = m.Frame.get();
    for (;;) {
        int r = avcodec_receive_frame(cc, frame);
        if (r == 0) {
            const int n = frame->nb_samples;
            const int channels = frame->ch_layout.nb_channels;
            if (n <= 0 || channels != static_cast<int>(FFormat.Channels) ||
                frame->sample_rate != cc->sample_rate) {
                // A change of layout or rate in mid-stream can't be carried on one format.
                av_frame_unref(frame);
                if (n <= 0) continue;
                FError = ReadError::DecodeFailed;
                FErrorText = "the stream changes its channels or rate";
                FAtEnd = true;
                return false;
            }
            int64_t dropFrames = 0;
            if (m.AlignAfterSeek) {
                m.AlignAfterSeek = false;
                int64_t landed = m.SeekTarget;
                const int64_t pts = frame->best_effort_timestamp;
                if (pts != AV_NOPTS_VALUE)
                    landed = av_rescale_q(pts - m.StartPts, m.TimeBase,
                                          AVRational{1, static_cast<int>(FFormat.Rate)});
                if (landed < m.SeekTarget) {
                    FSkipFrames = m.SeekTarget - landed;
                    FPosition = m.SeekTarget;
                } else {
                    FPosition = landed;
                }
            }
            if (FSkipFrames > 0) {
                dropFrames = std::min<int64_t>(FSkipFrames, n);
                FSkipFrames -= dropFrames;
            }

            const size_t frameBytes = FFormat.BytesPerFrame();
            const size_t start = m.Pending.size();
            const auto inFormat = static_cast<AVSampleFormat>(frame->format);
            const bool int24 = FFormat.Sample == PcmSample::Int24;
            if (inFormat == m.OutAvFormat && !av_sample_fmt_is_planar(inFormat)) {
                const uint8_t* src = frame->extended_data[0];
                if (int24) {
                    m.Pending.resize(start + size_t(n) * frameBytes);
                    PackInt24(src, size_t(n) * channels, m.Pending.data() + start);
                } else {
                    m.Pending.insert(m.Pending.end(), src, src + size_t(n) * frameBytes);
                }
            } else {
                if (!m.Swr || m.SwrInputFormat != frame->format) {
                    AVChannelLayout layout{};
                    if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
                        av_channel_layout_default(&layout, channels);
                    else
                        av_channel_layout_copy(&layout, &frame->ch_layout);
                    SwrContext* swr = nullptr;
                    const int rate = frame->sample_rate;
                    r = swr_alloc_set_opts2(&swr, &layout, m.OutAvFormat, rate, &layout, inFormat,
                                            rate, 0, nullptr);
                    av_channel_layout_uninit(&layout);
                    m.Swr.reset(swr);
                    if (r < 0 || swr_init(swr) < 0) {
                        av_frame_unref(frame);
                        m.Swr.reset();
                        FError = ReadError::DecodeFailed;
                        FErrorText = "cannot convert the decoded samples";
                        FAtEnd = true;
                        return false;
                    }
                    m.SwrInputFormat = frame->format;
                }
                const int wordBytes = av_get_bytes_per_sample(m.OutAvFormat);
                const int room = swr_get_out_samples(m.Swr.get(), n);
                std::vector<uint8_t>& target = int24 ? m.Scratch : m.Pending;
                const size_t targetStart = int24 ? 0 : start;
                target.resize(targetStart + size_t(room) * wordBytes * channels);
                uint8_t* out = target.data() + targetStart;
                const int done = swr_convert(m.Swr.get(), &out, room,
                                             const_cast<const uint8_t**>(frame->extended_data), n);
                if (done < 0) {
                    av_frame_unref(frame);
                    m.Pending.resize(start);
                    FError = ReadError::DecodeFailed;
                    FErrorText = "cannot convert the decoded samples";
                    FAtEnd = true;
                    return false;
                }
                target.resize(targetStart + size_t(done) * wordBytes * channels);
                if (int24) {
                    m.Pending.resize(start + size_t(done) * frameBytes);
                    PackInt24(m.Scratch.data(), size_t(done) * channels, m.Pending.data() + start);
                }
            }
            av_frame_unref(frame);
            if (dropFrames > 0) {
                const size_t drop =
                    std::min(m.Pending.size() - start, size_t(dropFrames) * frameBytes);
                m.Pending.erase(m.Pending.begin() + static_cast<ptrdiff_t>(start),
                                m.Pending.begin() + static_cast<ptrdiff_t>(start + drop));
            }
            if (m.PendingBytes() >= frameBytes) return true;
            continue;
        }
        if (r == AVERROR_EOF) {
            FAtEnd = true;
            return false;
        }
        if (r != AVERROR(EAGAIN)) {
            // A frame the decoder could not make: skip it and go on with the next packets.
            ++FSkippedPackets;
            if (m.Draining) {
                FAtEnd = true;
                return false;
            }
            continue;
        }
        if (m.Draining) {
            FAtEnd = true;
            return false;
        }
        AVPacket* packet = m.Packet.get();
        r = av_read_frame(m.Format.get(), packet);
        if (r < 0) {
            // The end of the file, or a read error that ends it: let the decoder give out
            // what it still holds.
            m.Draining = true;
            avcodec_send_packet(cc, nullptr);
            continue;
        }
        if (packet->stream_index == m.StreamIndex) {
            r = avcodec_send_packet(cc, packet);
            if (r < 0 && r != AVERROR(EAGAIN)) ++FSkippedPackets;
        }
        av_packet_unref(packet);
    }
}

size_t AudioFileReader::Read(void* dst, size_t maxFrames) {
    if (!IsOpen() || maxFrames == 0) return 0;
    Impl& m = *FImpl;
    const size_t frameBytes = FFormat.BytesPerFrame();
    auto* out = static_cast<uint8_t*>(dst);
    size_t frames = 0;
    while (frames < maxFrames) {
        if (m.PendingBytes() < frameBytes) {
            m.Pending.clear();
            m.PendingOffset = 0;
            if (FAtEnd || !Refill()) break;
        }
        const size_t take = std::min(maxFrames - frames, m.PendingBytes() / frameBytes);
        std::memcpy(out + frames * frameBytes, m.Pending.data() + m.PendingOffset,
                    take * frameBytes);
        m.PendingOffset += take * frameBytes;
        frames += take;
    }
    FPosition += static_cast<int64_t>(frames);
    if (frames == 0 && FAtEnd && m.EndPosition < 0 && FError == ReadError::None &&
        !m.AlignAfterSeek)
        m.EndPosition = FPosition;
    return frames;
}

bool AudioFileReader::Seek(int64_t time) {
    if (!IsOpen()) return false;
    Impl& m = *FImpl;
    time = std::max<int64_t>(time, 0);
    const int64_t target = av_rescale(time, FFormat.Rate, kTicksPerSecond);
    const int64_t ts = m.StartPts + av_rescale_q(time, AVRational{1, kTicksPerSecond}, m.TimeBase);
    if (avformat_seek_file(m.Format.get(), m.StreamIndex, INT64_MIN, ts, ts, 0) < 0) return false;
    avcodec_flush_buffers(m.Codec.get());
    m.Pending.clear();
    m.PendingOffset = 0;
    m.Draining = false;
    m.AlignAfterSeek = true;
    m.SeekTarget = target;
    FSkipFrames = 0;
    FPosition = target;
    FAtEnd = false;
    if (FError == ReadError::DecodeFailed) {
        FError = ReadError::None;
        FErrorText.clear();
    }
    return true;
}

}  // namespace mw::media
