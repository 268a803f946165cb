// The base of the audio outputs: an audio input pin whose operations go to SinkDispatch, a
// clock output pin that ticks by the samples that left the device, the Enabled switch, the
// pump settings and the format of the stream in progress.
//
// SinkDispatch runs on the sender's thread. CurrentFormat may be read from any thread (it is
// copied under a section of its own). After ClearAudioFormat there is no current format until
// the next stream starts.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "frame/LockComponents.h"
#include "frame/QAAudioFormat.h"
#include "frame/WirePins.h"

// Whether the output pulls its source (the pump) and with which priority it claims it.
class TQAPumpSettings : public TLockPersistent {
    MW_CLASS(TQAPumpSettings, TLockPersistent)
public:
    using TLockPersistent::TLockPersistent;

    // Read from any thread; the setters mirror the persisted fields into atomics.
    bool Enabled() const { return FEnabledNow; }
    void SetEnabled(bool value) {
        Setters().Setter(FEnabled, value, [this] {
            FEnabledNow = FEnabled;
            NotifyProp();
        });
    }
    uint32_t Priority() const { return FPriorityNow; }
    void SetPriority(uint32_t value) {
        Setters().Setter(FPriority, value, [this] {
            FPriorityNow = FPriority;
            NotifyProp();
        });
    }

    static void Publish(TPropertyList& p) {
        p.Add<TQAPumpSettings>("Enabled", &TQAPumpSettings::Enabled, &TQAPumpSettings::SetEnabled,
                               true);
        p.Add<TQAPumpSettings>("Priority", &TQAPumpSettings::Priority,
                               &TQAPumpSettings::SetPriority, 0u);
    }

private:
    bool FEnabled = true;
    uint32_t FPriority = 0;
    std::atomic<bool> FEnabledNow{true};
    std::atomic<uint32_t> FPriorityNow{0};
};

class TQABasicAudioOut : public TLockComponent {
    MW_CLASS(TQABasicAudioOut, TLockComponent)
public:
    explicit TQABasicAudioOut(TComponent* owner);
    ~TQABasicAudioOut() override;

    // "Input": the stream to play.
    TQAQWAudioSinkPin* InputPin() const { return FInputPin.get(); }
    // "Clock": one tick per finished buffer, carrying its sample count.
    TQWClockSourcePin* ClockOutputPin() const { return FClockOutputPin.get(); }

    bool Enabled() const { return FEnabledNow; }
    // Calls EnableChanged when the value changed.
    void SetEnabled(bool value);
    TQAPumpSettings* Pump() const { return FPump.get(); }
    void SetPump(const TQAPumpSettings& value) { FPump->Assign(value); }

    // The format of the stream in progress; false when there is none.
    bool CurrentFormat(TQAWaveFormatExtensible& format) const;
    bool HasCurrentFormat() const;
    void SetAudioFormat(const TQAWaveFormatExtensible& format);
    void ClearAudioFormat();

    static void Publish(TPropertyList& p);

protected:
    // Enabled changed; the base has nothing to do.
    virtual void EnableChanged() {}
    // An operation arrived on the input pin, on the sender's thread.
    virtual void SinkDispatch(IQWNotifyOperation* operation) = 0;

private:
    std::unique_ptr<TQAQWAudioSinkPin> FInputPin;
    std::unique_ptr<TQWClockSourcePin> FClockOutputPin;
    bool FEnabled = true;
    std::atomic<bool> FEnabledNow{true};
    TOwned<TQAPumpSettings> FPump;
    mutable std::mutex FFormatMutex;
    TQAWaveFormatExtensible FCurrentFormat{};
    bool FHasFormat = false;
};
