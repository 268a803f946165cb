// The tool's test tone: 440 Hz, 16-bit stereo at 44.1 kHz, with 10 ms fades so that it starts
// and ends without a click, as a WAV stream. Generated piece by piece, never held whole, so a
// tone of an hour costs no more memory than one of a second.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace mw::tool {

// Longest tone the commands accept, in seconds.
constexpr double kMaxToneSeconds = 3600;

class ToneWave {
public:
    explicit ToneWave(double seconds);
    uint32_t Frames() const { return FFrames; }
    // The RIFF header of the whole stream (44 bytes).
    std::string Header() const;
    // Appends frames [first, first + count) to out.
    void AppendFrames(uint32_t first, uint32_t count, std::string& out) const;

private:
    uint32_t FFrames;
};

// Writes the tone to a file. Stops when the tool is interrupted; then, and on a write error,
// the partial file is removed. Failure on a write error.
void WriteToneFile(const std::string& path, double seconds);

// Feeds the tone into a pipe from a thread of its own; the reading end has a path that any
// file reader opens. Nothing lands on disk. The destructor stops the thread and closes both
// ends, whether or not the reader read everything.
class TonePipe {
public:
    explicit TonePipe(double seconds);
    ~TonePipe();
    TonePipe(const TonePipe&) = delete;
    TonePipe& operator=(const TonePipe&) = delete;

    // "/proc/self/fd/N" of the reading end.
    std::string Path() const;
    // In 100 ns units.
    int64_t Duration() const { return FDuration; }

private:
    void Feed(ToneWave tone);

    int64_t FDuration = 0;
    int FRead = -1;
    int FWrite = -1;
    std::atomic<bool> FStop{false};
    std::thread FThread;
};

}  // namespace mw::tool
