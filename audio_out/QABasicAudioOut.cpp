// The base of the audio outputs.
#include "audio_out/QABasicAudioOut.h"

TQABasicAudioOut::TQABasicAudioOut(TComponent* owner)
    : TLockComponent(owner), FPump(new TQAPumpSettings(this, ComponentLock(), Notifier())) {
    FInputPin = std::make_unique<TQAQWAudioSinkPin>(
        this, ComponentLock(),
        [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op, TQWNotifyState) {
            SinkDispatch(op);
            return 0;
        });
    FInputPin->SetName("Input");
    FClockOutputPin = std::make_unique<TQWClockSourcePin>(this, ComponentLock());
    FClockOutputPin->SetName("Clock");
}

TQABasicAudioOut::~TQABasicAudioOut() = default;

void TQABasicAudioOut::SetEnabled(bool value) {
    bool changed = false;
    Setters().Setter(FEnabled, value, [this, &changed] {
        FEnabledNow = FEnabled;
        changed = true;
        NotifyProp();
    });
    // Outside of the setter's lock: enabling may open a device, which may stop another.
    if (changed) EnableChanged();
}

bool TQABasicAudioOut::CurrentFormat(TQAWaveFormatExtensible& format) const {
    std::lock_guard lock(FFormatMutex);
    if (FHasFormat) format = FCurrentFormat;
    return FHasFormat;
}

bool TQABasicAudioOut::HasCurrentFormat() const {
    std::lock_guard lock(FFormatMutex);
    return FHasFormat;
}

void TQABasicAudioOut::SetAudioFormat(const TQAWaveFormatExtensible& format) {
    std::lock_guard lock(FFormatMutex);
    FCurrentFormat = format;
    FHasFormat = true;
}

void TQABasicAudioOut::ClearAudioFormat() {
    std::lock_guard lock(FFormatMutex);
    FCurrentFormat = {};
    FHasFormat = false;
}

void TQABasicAudioOut::Publish(TPropertyList& p) {
    p.Add<TQABasicAudioOut>("Enabled", &TQABasicAudioOut::Enabled, &TQABasicAudioOut::SetEnabled,
                            true);
    p.AddObject<TQABasicAudioOut>("Pump", [](const TQABasicAudioOut& c) { return c.Pump(); });
}
