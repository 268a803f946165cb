#include "Tone.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "Tool.h"

namespace mw::tool {

namespace {

constexpr uint32_t kRate = 44100;
constexpr uint32_t kBytesPerFrame = 4;
constexpr uint32_t kChunkFrames = 4410;  // 100 ms per write

void Put(std::string& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

}  // namespace

ToneWave::ToneWave(double seconds)
    : FFrames(
          static_cast<uint32_t>(std::lround(std::clamp(seconds, 0.0, kMaxToneSeconds) * kRate))) {}

std::string ToneWave::Header() const {
    const uint32_t dataBytes = FFrames * kBytesPerFrame;
    std::string out = "RIFF";
    Put(out, 36 + dataBytes, 4);
    out += "WAVEfmt ";
    Put(out, 16, 4);
    Put(out, 1, 2);  // integer PCM
    Put(out, 2, 2);
    Put(out, kRate, 4);
    Put(out, kRate * kBytesPerFrame, 4);
    Put(out, kBytesPerFrame, 2);
    Put(out, 16, 2);
    out += "data";
    Put(out, dataBytes, 4);
    return out;
}

void ToneWave::AppendFrames(uint32_t first, uint32_t count, std::string& out) const {
    const double fade = 0.01 * kRate;
    const uint32_t end = std::min(FFrames, first + count);
    for (uint32_t f = first; f < end; ++f) {
        const double gain = std::min({1.0, f / fade, (FFrames - f) / fade});
        const auto v = static_cast<int16_t>(
            std::lround(0.3 * 32767 * gain * std::sin(2 * M_PI * 440.0 * f / kRate)));
        Put(out, static_cast<uint16_t>(v), 2);
        Put(out, static_cast<uint16_t>(v), 2);
    }
}

void WriteToneFile(const std::string& path, double seconds) {
    const ToneWave tone(seconds);
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) throw Failure("cannot write '" + path + "': " + std::strerror(errno));
    std::string chunk = tone.Header();
    bool ok = true;
    for (uint32_t f = 0; ok && !Interrupted(); f += kChunkFrames) {
        tone.AppendFrames(f, kChunkFrames, chunk);
        ok = std::fwrite(chunk.data(), 1, chunk.size(), file) == chunk.size();
        chunk.clear();
        if (f + kChunkFrames >= tone.Frames()) break;
    }
    const int writeError = ok ? 0 : errno;
    const bool closed = std::fclose(file) == 0;
    if (ok && closed && !Interrupted()) return;
    std::remove(path.c_str());
    if (Interrupted()) return;
    throw Failure("cannot write '" + path + "': " + std::strerror(writeError ? writeError : EIO));
}

TonePipe::TonePipe(double seconds) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
    FRead = fds[0];
    FWrite = fds[1];
    // Non-blocking, so that the feeding thread waits in poll where it can see the stop.
    fcntl(FWrite, F_SETFL, fcntl(FWrite, F_GETFL) | O_NONBLOCK);
    const ToneWave tone(seconds);
    FDuration = int64_t(tone.Frames()) * 10'000'000 / kRate;
    FThread = std::thread(&TonePipe::Feed, this, tone);
}

TonePipe::~TonePipe() {
    FStop = true;
    FThread.join();
    ::close(FRead);
}

std::string TonePipe::Path() const {
    return "/proc/self/fd/" + std::to_string(FRead);
}

void TonePipe::Feed(ToneWave tone) {
    // A reader that closed early makes the write fail with EPIPE; the signal that comes with it
    // stays on this thread, blocked, and goes with it.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);

    std::string chunk = tone.Header();
    size_t offset = 0;
    uint32_t next = 0;
    while (!FStop) {
        if (offset == chunk.size()) {
            if (next >= tone.Frames()) break;
            chunk.clear();
            offset = 0;
            tone.AppendFrames(next, kChunkFrames, chunk);
            next += kChunkFrames;
        }
        const ssize_t n = ::write(FWrite, chunk.data() + offset, chunk.size() - offset);
        if (n > 0) {
            offset += static_cast<size_t>(n);
        } else if (n < 0 && errno == EAGAIN) {
            pollfd p{FWrite, POLLOUT, 0};
            ::poll(&p, 1, 50);
        } else if (n < 0 && errno != EINTR) {
            break;  // the reader is gone
        }
    }
    // The end of the stream for the reader.
    ::close(FWrite);
}

}  // namespace mw::tool
