// A pulled source feeding TQAAudioOut on "Virtual Output", shared by the audio output
// benchmarks: each pull submits the next buffer of a fixed set, until the stream's length.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "audio_out/QAAudioOut.h"
#include "frame/MainThread.h"

namespace mw::bench {

class TPulledSource : public TLockComponent {
public:
    TPulledSource(TComponent* owner, const TQAWaveFormatExtensible& format,
                  uint32_t framesPerBuffer, uint64_t buffers)
        : TLockComponent(owner), FFormat(format), FTotal(buffers) {
        Out = std::make_unique<TQAQWAudioSourcePin>(this, ComponentLock(), nullptr, nullptr);
        for (int i = 0; i < 4; ++i) {
            ComPtr<TQAAudioBuffer> b = MwNew<TQAAudioBuffer>(format, framesPerBuffer);
            for (uint32_t j = 0; j < b->ByteSize(); ++j)
                b->InterleavedWritePointer()[j] = static_cast<BYTE>(j * 7 + i);
            FBuffers.emplace_back(b.Get());
        }
        Out->SetOnMasterPump([this](TQSQWClockableSourcePin*, TObject*, uint32_t) { Pull(); });
    }

    // Claims the pump for the sink and starts it; the stream begins at the first pull.
    bool Run() {
        ComPtr<TQWPumpRequestOperation> request = MwNew<TQWPumpRequestOperation>();
        Out->Notify(request.Get());
        if (!request->Master) return false;
        Out->Notify(ComPtr<IQWNotifyOperation>(MwNew<TQWStartPumpOperation>()).Get());
        return true;
    }
    bool Finished() const { return FStopped; }

    std::unique_ptr<TQAQWAudioSourcePin> Out;

private:
    void Pull() {
        uint64_t n = FSent.fetch_add(1);
        if (n == 0)
            Out->Notify(ComPtr<IQWNotifyOperation>(MwNew<TQWStartWaveOperation>(FFormat)).Get());
        if (n < FTotal) {
            Out->SubmitBuffer(FBuffers[n % FBuffers.size()]);
        } else if (n == FTotal) {
            Out->Notify(ComPtr<IQWNotifyOperation>(MwNew<TQWStopOperation>()).Get());
            FStopped = true;
        }
    }

    TQAWaveFormatExtensible FFormat;
    uint64_t FTotal;
    std::vector<ComPtr<IQSData>> FBuffers;
    std::atomic<uint64_t> FSent{0};
    std::atomic<bool> FStopped{false};
};

// Runs the main-thread queue until done() holds, looking every `poll`.
template <class F>
void RunUntil(F done, std::chrono::microseconds poll = std::chrono::microseconds(200)) {
    while (!done()) {
        Application::ProcessMessages();
        std::this_thread::sleep_for(poll);
    }
}

}  // namespace mw::bench
