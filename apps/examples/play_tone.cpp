// Plays one second of a 440 Hz tone through a wave output on "Virtual Output" (or on the device
// named on the command line), then prints what the device played.
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>
#include <vector>

#include "audio_out/QAAudioOut.h"
#include "frame/LockComponents.h"
#include "frame/MainThread.h"
#include "frame/QSData.h"
#include "frame/WirePins.h"

class TToneSource : public TLockComponent {
    MW_CLASS(TToneSource, TLockComponent)
public:
    explicit TToneSource(TComponent* owner)
        : TLockComponent(owner), Output(this, ComponentLock(), nullptr, {}) {}
    TQAQWAudioSourcePin Output;
};

int main(int argc, char** argv) {
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* tone = TComponent::New<TToneSource>(form.get());
    auto* out = TComponent::New<TQAAudioOut>(form.get());
    out->Device()->SetDeviceName(argc > 1 ? argv[1] : "Virtual Output");
    std::atomic<bool> played{false};
    out->SetOnQueueEmpty([&](TObject*) { played = true; });  // on the main thread
    QWConnect(tone->Output, *out->InputPin());

    const uint32_t rate = 48000;
    tone->Output.Notify(MwNew<TQWStartWaveOperation>(mw::MakePcmWaveFormat(rate, 16, 2)));
    for (uint32_t block = 0; block < 100; ++block) {  // 100 buffers of 10 ms
        std::vector<int16_t> samples(2 * rate / 100);
        for (size_t i = 0; i < samples.size() / 2; ++i) {
            const double t = double(block * rate / 100 + i) / rate;
            samples[2 * i] = samples[2 * i + 1] = int16_t(8000 * std::sin(2 * M_PI * 440 * t));
        }
        tone->Output.SubmitBuffer(
            MwNew<TQSBlockBuffer>(samples.data(), uint32_t(samples.size() * 2)));
    }
    tone->Output.Notify(MwNew<TQWStopOperation>());  // the output plays out what it holds

    // Events of the output come through the main-thread queue: keep draining it.
    while (!played) {
        Application::ProcessMessages();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::printf("played %llu buffers\n", (unsigned long long)out->Stats().BuffersPlayed);
    return out->Stats().BuffersPlayed == 100 ? 0 : 1;
}
