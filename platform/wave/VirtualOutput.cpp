// "Virtual Output": a device without hardware. Its clock plays frames in real time from the
// moment audio is there and the device runs; played frames go to the tap and are dropped. When
// the written audio has all played, the clock waits for more (an underrun has no cost here).
// Unpaced, everything written plays at once.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>

#include "mwwave.h"
#include "platform/wave/WaveDevice.h"

namespace mw::wave {

namespace {

std::mutex g_tapMutex;
std::shared_ptr<const TapFunction> g_tap;
std::atomic<bool> g_paced{true};

std::shared_ptr<const TapFunction> CurrentTap() {
    std::lock_guard lock(g_tapMutex);
    return g_tap;
}

class VirtualOutput final : public Sink {
public:
    VirtualOutput(const PcmFormat& format, bool paced) : format_(format), paced_(paced) {}

    uint64_t Avail() override { return UINT64_MAX / 2; }

    uint64_t Write(const uint8_t* data, uint64_t frames) override {
        if (frames == 0) return 0;
        auto now = Clock::now();
        Advance(now);
        if (played_ == written_) {
            anchorTime_ = now;
            anchorPlayed_ = played_;
        }
        chunks_.emplace_back(data, data + frames * format_.blockAlign);
        written_ += frames;
        if (!paced_) PlayUpTo(written_);
        return frames;
    }

    void EndOfData() override {}
    uint64_t Written() override { return written_; }

    uint64_t Played() override {
        Advance(Clock::now());
        return played_;
    }

    Clock::time_point WakeFor(uint64_t frame) override {
        if (!paced_ || frame <= played_) return Clock::now();
        if (paused_ || frame > written_) return Clock::time_point::max();
        // The first instant at which Advance counts `frame` as played.
        unsigned __int128 ns =
            (static_cast<unsigned __int128>(frame - anchorPlayed_) * 1000000000u + format_.rate -
             1) /
            format_.rate;
        return anchorTime_ + std::chrono::nanoseconds(static_cast<int64_t>(ns));
    }

    void Pause() override {
        Advance(Clock::now());
        paused_ = true;
    }

    void Resume() override {
        if (!paused_) return;
        paused_ = false;
        anchorTime_ = Clock::now();
        anchorPlayed_ = played_;
    }

    void Drop() override {
        Advance(Clock::now());
        chunks_.clear();
        frontOffset_ = 0;
        written_ = played_;
    }

private:
    void Advance(Clock::time_point now) {
        if (!paced_ || paused_ || played_ == written_) return;
        auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - anchorTime_);
        if (elapsed.count() <= 0) return;
        unsigned __int128 frames =
            static_cast<unsigned __int128>(elapsed.count()) * format_.rate / 1000000000u;
        uint64_t target = written_;
        if (frames < written_ - anchorPlayed_)
            target = anchorPlayed_ + static_cast<uint64_t>(frames);
        if (target > played_) PlayUpTo(target);
    }

    // Hands frames [played_, target) to the tap and lets them go.
    void PlayUpTo(uint64_t target) {
        std::shared_ptr<const TapFunction> tap = CurrentTap();
        size_t bytes = static_cast<size_t>(target - played_) * format_.blockAlign;
        while (bytes > 0 && !chunks_.empty()) {
            std::vector<uint8_t>& chunk = chunks_.front();
            size_t n = std::min(bytes, chunk.size() - frontOffset_);
            if (tap && *tap) (*tap)(format_.Wfx(), chunk.data() + frontOffset_, n);
            frontOffset_ += n;
            bytes -= n;
            if (frontOffset_ == chunk.size()) {
                chunks_.pop_front();
                frontOffset_ = 0;
            }
        }
        played_ = target;
    }

    PcmFormat format_;
    bool paced_;
    bool paused_ = false;
    uint64_t written_ = 0;
    uint64_t played_ = 0;
    Clock::time_point anchorTime_{};
    uint64_t anchorPlayed_ = 0;
    std::deque<std::vector<uint8_t>> chunks_;
    size_t frontOffset_ = 0;
};

class VirtualOutputDevice final : public OutputDevice {
public:
    std::string Name() const override { return "Virtual Output"; }
    WORD MaxChannels() const override { return 32; }

    MMRESULT CheckFormat(const PcmFormat&, bool) override { return MMSYSERR_NOERROR; }

    MMRESULT Open(const PcmFormat& format, bool, std::unique_ptr<Sink>* sink) override {
        *sink = std::make_unique<VirtualOutput>(format, g_paced.load());
        return MMSYSERR_NOERROR;
    }
};

}  // namespace

std::unique_ptr<OutputDevice> MakeVirtualOutputDevice() {
    return std::make_unique<VirtualOutputDevice>();
}

void SetVirtualOutputTap(TapFunction tap) {
    auto shared = tap ? std::make_shared<const TapFunction>(std::move(tap)) : nullptr;
    std::lock_guard lock(g_tapMutex);
    g_tap = std::move(shared);
}

void SetVirtualOutputPaced(bool paced) {
    g_paced.store(paced);
}

}  // namespace mw::wave
