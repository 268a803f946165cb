// Small media files made by the tests themselves: WAV written byte by byte, and FLAC, MP3 and
// WMA encoded through FFmpeg's libraries, so that nothing beyond the build's own dependencies
// is needed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace mw::test {

// A fresh directory under the system's temporary directory, removed with its contents.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string File(const std::string& name) const { return (FPath / name).string(); }

private:
    std::filesystem::path FPath;
};

// Interleaved sample bytes of a pattern that reaches every byte value: `frames` frames of
// `channels` samples of `bytesPerSample` bytes (float: 4 bytes of values in -1..1).
std::vector<uint8_t> PatternSamples(unsigned frames, unsigned channels, unsigned bytesPerSample,
                                    bool isFloat);

// Writes a WAV file (tag 1 integer PCM, or tag 3 float) holding exactly `samples`.
void WriteWav(const std::string& path, unsigned rate, unsigned channels, unsigned bits,
              bool isFloat, const std::vector<uint8_t>& samples);

// A 16-bit sine tone, interleaved.
std::vector<int16_t> ToneSamples(unsigned rate, unsigned channels, unsigned frames,
                                 double hz = 440.0);

// Encodes 16-bit interleaved samples with the named FFmpeg encoder ("flac", "libmp3lame",
// "wmav2") into a file whose container follows the extension. False when this FFmpeg has no
// such encoder or encoding failed.
bool EncodeAudio(const std::string& path, const char* encoder, unsigned rate, unsigned channels,
                 const std::vector<int16_t>& samples);

// Writes bytes to a file as they are.
void WriteBytes(const std::string& path, const std::string& bytes);

}  // namespace mw::test
