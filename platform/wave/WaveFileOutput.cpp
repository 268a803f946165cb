// "WAV File Output": writes what it plays to the WAV file chosen by SetWaveFileOutputPath, as
// fast as it is fed (a header is done once its frames are in the file). The RIFF sizes are
// filled in when the handle closes.
#include <cstdio>
#include <cstring>
#include <mutex>

#include "mwwave.h"
#include "platform/wave/WaveDevice.h"

namespace mw::wave {

namespace {

std::mutex g_pathMutex;
std::string g_path;

void PutU32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}

class WaveFileOutput final : public Sink {
public:
    ~WaveFileOutput() override {
        if (!file_) return;
        // RIFF size and data size; a data chunk of odd length gets its pad byte.
        uint64_t dataBytes = written_ * blockAlign_;
        if (dataBytes & 1) std::fputc(0, file_);
        uint8_t size[4];
        PutU32(size, static_cast<uint32_t>(4 + 8 + fmtBytes_ + 8 + dataBytes + (dataBytes & 1)));
        std::fseek(file_, 4, SEEK_SET);
        std::fwrite(size, 1, 4, file_);
        PutU32(size, static_cast<uint32_t>(dataBytes));
        std::fseek(file_, static_cast<long>(20 + fmtBytes_ + 4), SEEK_SET);
        std::fwrite(size, 1, 4, file_);
        std::fclose(file_);
    }

    MMRESULT Open(const std::string& path, const PcmFormat& format) {
        blockAlign_ = format.blockAlign;
        // Plain PCM keeps the 16-byte record; the other forms carry cbSize and their extra bytes.
        fmtBytes_ = format.Wfx().wFormatTag == WAVE_FORMAT_PCM ? 16 : format.record.size();
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
    uint64_t Write(const uint8_t* data, uint64_t frames) override {
        size_t bytes = static_cast<size_t>(frames) * blockAlign_;
        // A full disk loses audio but the queue still moves on, as a device would.
        std::fwrite(data, 1, bytes, file_);
        written_ += frames;
        return frames;
    }
    void EndOfData() override { std::fflush(file_); }
    uint64_t Written() override { return written_; }
    uint64_t Played() override { return written_; }
    Clock::time_point WakeFor(uint64_t) override { return Clock::now(); }
    void Pause() override {}
    void Resume() override {}
    void Drop() override {}

private:
    std::FILE* file_ = nullptr;
    size_t fmtBytes_ = 16;
    unsigned blockAlign_ = 1;
    uint64_t written_ = 0;
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
        auto out = std::make_unique<WaveFileOutput>();
        MMRESULT result = out->Open(path, format);
        if (result == MMSYSERR_NOERROR) *sink = std::move(out);
        return result;
    }
};

}  // namespace

std::unique_ptr<OutputDevice> MakeWaveFileOutputDevice() {
    return std::make_unique<WaveFileOutputDevice>();
}

void SetWaveFileOutputPath(const std::string& path) {
    std::lock_guard lock(g_pathMutex);
    g_path = path;
}

}  // namespace mw::wave
