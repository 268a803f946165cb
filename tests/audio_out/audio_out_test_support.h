// Helpers of the wave output tests: a source component with an audio pin that counts the
// pulls it receives, a recorder of what "Virtual Output" played, and sample patterns.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "audio_out/QAAudioOut.h"
#include "frame/LockComponents.h"
#include "frame/MainThread.h"
#include "frame/WirePins.h"
#include "mwwave.h"
#include "tests/support/Wait.h"

namespace mw::test::audio {

// A source: sends operations on its audio pin and counts master-pump calls. OnPump, when set,
// runs inside the pull (on the puller's thread).
class TTestSource : public TLockComponent {
    MW_CLASS(TTestSource, TLockComponent)
public:
    explicit TTestSource(TComponent* owner) : TLockComponent(owner) {
        Out = std::make_unique<TQAQWAudioSourcePin>(this, ComponentLock(), nullptr, nullptr);
        Out->SetName("Out");
        Out->SetOnMasterPump([this](TQSQWClockableSourcePin*, TObject*, uint32_t) {
            ++Pumps;
            std::function<void()> f;
            {
                std::lock_guard lock(Mutex);
                f = OnPump;
            }
            if (f) f();
        });
    }
    void Send(const ComPtr<IQWNotifyOperation>& op) { Out->Notify(op.Get()); }
    template <class T, class... A>
    void Send(A&&... args) {
        Send(ComPtr<IQWNotifyOperation>(MwNew<T>(std::forward<A>(args)...)));
    }
    void Start(const TQAWaveFormatExtensible& f) { Send<TQWStartWaveOperation>(f); }
    void Stop() { Send<TQWStopOperation>(); }
    void Submit(const ComPtr<IQSData>& data) { Out->SubmitBuffer(data); }
    void SetOnPump(std::function<void()> f) {
        std::lock_guard lock(Mutex);
        OnPump = std::move(f);
    }

    std::unique_ptr<TQAQWAudioSourcePin> Out;
    std::atomic<int> Pumps{0};

private:
    std::mutex Mutex;
    std::function<void()> OnPump;
};

// Everything "Virtual Output" plays while it lives.
class TapRecorder {
public:
    TapRecorder() {
        mw::wave::SetVirtualOutputTap(
            [this](const WAVEFORMATEX& format, const void* data, size_t bytes) {
                std::lock_guard lock(mutex_);
                if (rates_.empty() || rates_.back() != format.nSamplesPerSec)
                    rates_.push_back(format.nSamplesPerSec);
                const auto* p = static_cast<const uint8_t*>(data);
                bytes_.insert(bytes_.end(), p, p + bytes);
            });
    }
    ~TapRecorder() { mw::wave::SetVirtualOutputTap(nullptr); }
    size_t Size() const {
        std::lock_guard lock(mutex_);
        return bytes_.size();
    }
    std::vector<uint8_t> Bytes() const {
        std::lock_guard lock(mutex_);
        return bytes_;
    }
    // The sample rates of the played audio, each change once, in play order.
    std::vector<uint32_t> Rates() const {
        std::lock_guard lock(mutex_);
        return rates_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<uint8_t> bytes_;
    std::vector<uint32_t> rates_;
};

// frames frames of pseudo-random samples of the format, the block's format set.
inline ComPtr<IQSData> MakeBuffer(const TQAWaveFormatExtensible& format, uint32_t frames,
                                  uint32_t seed = 1) {
    ComPtr<TQAAudioBuffer> b = MwNew<TQAAudioBuffer>(format, frames);
    std::mt19937 rng(seed);
    BYTE* p = b->InterleavedWritePointer();
    for (uint32_t i = 0; i < b->ByteSize(); ++i)
        p[i] = static_cast<BYTE>(rng());
    return ComPtr<IQSData>(b.Get());
}

// Milliseconds of audio of the format as a frame count.
inline uint32_t Frames(const TQAWaveFormatExtensible& format, uint32_t ms) {
    return format.nSamplesPerSec * ms / 1000;
}

// An output on "Virtual Output" connected to a test source, with errors recorded (handled).
struct Rig {
    TOwned<TTestSource> Source{TComponent::New<TTestSource>(nullptr)};
    TOwned<TQAAudioOut> Out{TComponent::New<TQAAudioOut>(nullptr)};
    std::mutex Mutex;
    std::vector<std::string> Errors;
    std::atomic<int> QueueEmpty{0};

    explicit Rig(bool paced = true) {
        mw::wave::SetVirtualOutputPaced(paced);
        Out->Device()->SetDeviceName("Virtual Output");
        Out->SetOnError([this](TObject*, const std::string& text, uint32_t, bool& handled) {
            std::lock_guard lock(Mutex);
            Errors.push_back(text);
            handled = true;
        });
        Out->SetOnQueueEmpty([this](TObject*) { ++QueueEmpty; });
        EXPECT_TRUE(QWConnect(*Source->Out, *Out->InputPin()));
    }
    ~Rig() {
        Out.reset();
        Source.reset();
        mw::wave::SetVirtualOutputPaced(true);
    }
    std::vector<std::string> ErrorList() {
        std::lock_guard lock(Mutex);
        return Errors;
    }
};

}  // namespace mw::test::audio
