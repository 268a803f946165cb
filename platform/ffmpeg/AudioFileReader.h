// Reading the audio of a media file with FFmpeg: open, learn the source format, decode to
// interleaved PCM frames with exact positions, seek, reach the end. The file players and the
// platform's own filters share it, so it knows nothing of components or pins.
//
// One reader is used by one thread at a time (the caller serialises); readers are independent
// of each other. After Close (or destruction) every FFmpeg context is freed; Open may follow.
// FFmpeg's own log is silenced at the first Open unless SetFFmpegLogging(true) asked for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace mw::media {

// Interleaved sample types the reader hands out.
enum class PcmSample {
    UInt8,   // unsigned 8-bit
    Int16,   // signed 16-bit little endian
    Int24,   // signed 24-bit little endian, packed in 3 bytes
    Int32,   // signed 32-bit little endian
    Float32  // IEEE float, nominal range -1..1
};

// What a caller wants out of the decoder.
enum class OutputChoice {
    Source,   // the source's sample type where it is plain integer PCM or float, else float
    Int16,    // always 16-bit integers
    Float32,  // always float
};

struct PcmFormat {
    PcmSample Sample = PcmSample::Int16;
    unsigned Rate = 0;
    unsigned Channels = 0;
    // Speaker positions in the bit order of a wave channel mask; 0 when the file names none.
    uint32_t ChannelMask = 0;

    unsigned BytesPerSample() const;
    unsigned BitsPerSample() const { return BytesPerSample() * 8; }
    unsigned BytesPerFrame() const { return BytesPerSample() * Channels; }
    bool IsFloat() const { return Sample == PcmSample::Float32; }
};

// What the file holds.
struct SourceInfo {
    std::string Container;  // short demuxer name ("wav", "flac", "mp3", "asf", ...)
    std::string Codec;      // short decoder name
    unsigned Rate = 0;
    unsigned Channels = 0;
    // Significant bits of integer samples (24 for 24-bit PCM in 32-bit words); 0 when unknown
    // or not integer.
    unsigned BitsPerSample = 0;
    bool IntegerPcm = false;  // the decoder hands out integer samples
    bool Float = false;       // the decoder hands out float or double samples
    // In 100 ns units; 0 when the file doesn't tell.
    int64_t Duration = 0;
};

enum class ReadError {
    None,
    NotFound,       // no such file (or a path component is missing)
    CannotRead,     // exists but can't be read: permissions, a directory, an I/O error
    NotDecodable,   // FFmpeg recognises no media in it (also an empty file)
    NoAudioStream,  // a media file without audio
    NoDecoder,      // audio of a codec this FFmpeg can't decode
    DecodeFailed,   // the decoder or resampler failed while reading
};

class AudioFileReader {
public:
    AudioFileReader();
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    // Opens the file and prepares its first audio stream for decoding to the chosen output.
    // False with Error()/ErrorText() set on failure; the reader is then closed.
    bool Open(const std::string& path, OutputChoice output = OutputChoice::Source);
    void Close();
    bool IsOpen() const;

    const SourceInfo& Source() const { return FSource; }
    const PcmFormat& Format() const { return FFormat; }
    // In 100 ns units: the file's duration, or once the end was reached, the exact length
    // read. 0 when unknown.
    int64_t Duration() const;

    // Decodes up to maxFrames whole frames of Format() into dst (maxFrames * BytesPerFrame()
    // bytes). Returns the number of frames written; 0 at the end of the stream or on an error
    // (Error() tells which). Frames follow each other without gap: the first frame written
    // is frame Position() as it was before the call.
    size_t Read(void* dst, size_t maxFrames);
    // Frames handed out so far, counted from the start of the stream (after a seek: from the
    // start, as the seek target).
    int64_t Position() const { return FPosition; }
    // Position() in 100 ns units, exact to the 100 ns below.
    int64_t PositionTime() const;
    // Time of a frame number, in 100 ns units (truncating).
    int64_t FrameTime(int64_t frame) const;
    bool AtEnd() const { return FAtEnd; }

    // Moves to the frame at time (100 ns units, clamped to 0). The next Read starts exactly
    // there when the file can be seeked. False (and the reader unchanged) when it can't.
    bool Seek(int64_t time);

    ReadError Error() const { return FError; }
    // The error in words, e.g. "No such file or directory" or "not an audio file FFmpeg can
    // decode"; empty without error.
    const std::string& ErrorText() const { return FErrorText; }
    // Packets the decoder rejected and that were skipped while reading.
    uint64_t SkippedPackets() const { return FSkippedPackets; }

private:
    struct Impl;
    bool Fail(ReadError error, std::string text);
    // Decodes until frames are pending or the stream ends; false on the end or an error.
    bool Refill();

    std::unique_ptr<Impl> FImpl;
    SourceInfo FSource;
    PcmFormat FFormat;
    int64_t FPosition = 0;
    int64_t FSkipFrames = 0;  // frames still to drop after a seek
    bool FAtEnd = false;
    ReadError FError = ReadError::None;
    std::string FErrorText;
    uint64_t FSkippedPackets = 0;
};

// Turns FFmpeg's log on (to stderr, at its warning level) or off. Off by default.
void SetFFmpegLogging(bool on);

// The short text of a ReadError kind, as the reader uses it in ErrorText().
const char* ReadErrorName(ReadError error);

}  // namespace mw::media
