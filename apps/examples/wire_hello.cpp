// The README's example: a source pushes a short audio stream to a sink that prints it.
#include <cstdio>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/QSData.h"
#include "frame/WirePins.h"

class TBeeper : public TLockComponent {
    MW_CLASS(TBeeper, TLockComponent)
public:
    explicit TBeeper(TComponent* owner)
        : TLockComponent(owner), Output(this, ComponentLock(), nullptr, {}) {}
    TQAQWAudioSourcePin Output;
};

class TPrinter : public TLockComponent {
    MW_CLASS(TPrinter, TLockComponent)
public:
    explicit TPrinter(TComponent* owner)
        : TLockComponent(owner),
          Input(this, ComponentLock(),
                [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                       TQWNotifyState) {
                    TLockGuard lock = ComponentLock()->AcquireRead();
                    if (auto* buffer = op->InstanceAs<TQWSuppliedBufferOperation>())
                        std::printf("%u bytes\n", buffer->Data->ByteSize());
                    else if (op->IsType<TQWStopOperation>())
                        std::printf("stopped\n");
                    return 0;  // operations it doesn't know are ignored
                }) {}
    TQAQWAudioSinkPin Input;
};

int main() {
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* beeper = TComponent::New<TBeeper>(form.get());
    auto* printer = TComponent::New<TPrinter>(form.get());
    QWConnect(beeper->Output, printer->Input);

    beeper->Output.Notify(MwNew<TQWStartWaveOperation>(mw::MakePcmWaveFormat(48000, 16, 2)));
    std::vector<uint8_t> samples(4 * 480);  // 10 ms of silence
    beeper->Output.SubmitBuffer(MwNew<TQSBlockBuffer>(samples.data(), uint32_t(samples.size())));
    beeper->Output.Notify(MwNew<TQWStopOperation>());
}
