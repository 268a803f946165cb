// "WAV File Output": writes what it plays to the WAV file chosen by SetWaveFileOutputPath, as
// fast as it is fed (a header is done once its frames are in the file). The RIFF sizes are
// filled in when the handle closes. A failed write or a file at the RIFF limit fails the
// device (see mwwave.h); the file then ends with the last frames surely written.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include "mwwave.h"
#include "platform/wave/WaveDevice.h"

namespace mw::wave {

namespace {

std::mutex g_pathMutex;
std::string g_path;
std::atomic<uint64_t> g_limit{UINT64_MAX};

void PutU32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}

class WaveFileOutput final : public Sink {
public:
    explicit WaveFileOutput(uint64_t limit) : limit_(limit) {}
    ~WaveFileOutput() override { Close(); }

    MMRESULT Open(const std::string& path, const PcmFormat& format) {
        blockAlign_ = format.blockAlign;
        // Plain PCM keeps the 16-byte record; the other forms carry cbSize and their extra bytes.
        fmtBytes_ = format.Wfx().wFormatTag == WAVE_FORMAT_PCM ? 16 : format.record.size();
        // The RIFF size counts "WAVE", both chunk heads, the format, the data and its pad byte.
        const uint64_t riffLimit = UINT32_MAX - (4 + 8 + fmtBytes_ + 8) - 1;
        maxFrames_ = std::min(limit_, riffLimit) / blockAlign_;
        file_ = std::fopen(path.c_str(), "wb");
        if (!file_) return MMSYSERR_NOTENABLED;
        uint8_t head[12 + 8] = {'R', 'I', 'F', 'F', 0,   0,   0, 0, 'W', 'A',
                                'V', 'E', 'f', 'm', 't', ' ', 0, 0, 0,   0};
        PutU32(head + 16, static_cast<uint32_t>(fmtBytes_));
        uint8_t dataHead[8] = {'d', 'a', 't', 'a', 0, 0, 0, 0};
        if (std::fwrite(head, 1, sizeof head, file_) != sizeof head ||
            std::fwrite(format.record.data(), 1, fmtBytes_, file_) != fmtBytes_ ||
            std::fwrite(dataHead, 1, sizeof dataHead, file_) != sizeof dataHead) {
            std::fclose(file_);
            file_ = nullptr;
            return MMSYSERR_NOTENABLED;
        }
        return MMSYSERR_NOERROR;
    }

    uint64_t Avail() override { return UINT64_MAX / 2; }
    // Takes every frame, as a device does, also after a failure; what can't be stored is lost
    // and the failure stays.
    uint64_t Write(const uint8_t* data, uint64_t frames) override {
        taken_ += frames;
        if (error_ != MMSYSERR_NOERROR) return frames;
        const uint64_t keep = std::min(frames, maxFrames_ - written_);
        const size_t bytes = static_cast<size_t>(keep) * blockAlign_;
        // Flushed at once: written_ counts only what reached the file, never what stdio holds.
        if (keep > 0 && (std::fwrite(data, 1, bytes, file_) != bytes || std::fflush(file_) != 0)) {
            // How much of it reached the file is not known: none of it counts.
            Fail();
            return frames;
        }
        written_ += keep;
        if (keep < frames) Fail();  // the file is full
        return frames;
    }
    void EndOfData() override {
        if (file_ && std::fflush(file_) != 0) Fail();
    }
    uint64_t Written() override { return taken_; }
    uint64_t Played() override { return taken_; }
    Clock::time_point WakeFor(uint64_t) override { return Clock::now(); }
    void Pause() override {}
    void Resume() override {}
    void Drop() override {}
    MMRESULT Error() const override { return error_; }

    // Fills in the RIFF sizes; a data chunk of odd length gets its pad byte.
    MMRESULT Close() override {
        if (!file_) return error_;
        std::FILE* file = std::exchange(file_, nullptr);
        // After a failed write the bytes in the file may end anywhere: the sizes describe
        // what is surely there, and the file ends with it.
        const uint64_t dataBytes = written_ * blockAlign_;
        const long dataAt = static_cast<long>(20 + fmtBytes_ + 8);
        bool ok = std::fflush(file) == 0;
        if (error_ != MMSYSERR_NOERROR)
            ok = ftruncate(fileno(file), static_cast<off_t>(dataAt + dataBytes)) == 0 && ok;
        ok = std::fseek(file, 0, SEEK_END) == 0 && ok;
        if (dataBytes & 1) ok = std::fputc(0, file) != EOF && ok;
        uint8_t size[4];
        PutU32(size, static_cast<uint32_t>(4 + 8 + fmtBytes_ + 8 + dataBytes + (dataBytes & 1)));
        ok = std::fseek(file, 4, SEEK_SET) == 0 && std::fwrite(size, 1, 4, file) == 4 && ok;
        PutU32(size, static_cast<uint32_t>(dataBytes));
        ok =
            std::fseek(file, dataAt - 4, SEEK_SET) == 0 && std::fwrite(size, 1, 4, file) == 4 && ok;
        ok = std::fclose(file) == 0 && ok;
        if (!ok) Fail();
        return error_;
    }

private:
    void Fail() { error_ = MMSYSERR_ERROR; }

    std::FILE* file_ = nullptr;
    uint64_t limit_;
    size_t fmtBytes_ = 16;
    unsigned blockAlign_ = 1;
    uint64_t maxFrames_ = 0;
    uint64_t written_ = 0;  // frames surely in the file
    uint64_t taken_ = 0;    // frames given to the device
    MMRESULT error_ = MMSYSERR_NOERROR;
};

class WaveFileOutputDevice final : public OutputDevice {
public:
    std::string Name() const override { return "WAV File Output"; }
    WORD MaxChannels() const override { return 32; }

    MMRESULT CheckFormat(const PcmFormat&, bool) override {
        std::lock_guard lock(g_pathMutex);
        return g_path.empty() ? MMSYSERR_NOTENABLED : MMSYSERR_NOERROR;
    }

    MMRESULT Open(const PcmFormat& format, bool, std::unique_ptr<Sink>* sink) override {
        std::string path;
        {
            std::lock_guard lock(g_pathMutex);
            path = g_path;
        }
        if (path.empty()) return MMSYSERR_NOTENABLED;
        auto out = std::make_unique<WaveFileOutput>(g_limit.load());
        MMRESULT result = out->Open(path, format);
        if (result == MMSYSERR_NOERROR) *sink = std::move(out);
        return result;
    }
};

}  // namespace

std::unique_ptr<OutputDevice> MakeWaveFileOutputDevice() {
    return std::make_unique<WaveFileOutputDevice>();
}

void SetWaveFileOutputLimit(uint64_t bytes) {
    g_limit = bytes == 0 ? UINT64_MAX : bytes;
}

void SetWaveFileOutputPath(const std::string& path) {
    std::lock_guard lock(g_pathMutex);
    g_path = path;
}

}  // namespace mw::wave
