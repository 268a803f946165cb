// TQMDMOAudioEffect: runs one audio effect object on the stream that passes from its InputPin
// to its OutputPin.
//
// The effect is chosen and set through Effect, a TQMDMOFilter of the audio effect category,
// whose parameters, envelopes and time format are persisted with the component. At each start
// the object is given the stream's format and all values and envelopes again; every buffer is
// copied (the sender's buffer is left as it was), processed in place and sent on with the
// sender's times. Envelope times are stream times: the buffer's start time when it has times,
// else the time of the frames sent since the start. 16-bit integer and float streams are
// processed; any other format, and any stream while Enabled is false, passes unchanged (a
// format the effect can't take is reported once per start through OnWarning). Start, stop,
// pause, resume and flush pass through; a flush, and a new start, also drop the effect's tail.
// Pump requests go upstream, so a pulling sink pulls through the effect.
//
// Threads: the dispatch runs on the sender's thread; values and envelopes may be set from any
// thread meanwhile and take effect from the next buffer. A change of effect while streaming
// takes effect from the next buffer too. Creating an effect object needs an initialised
// apartment (CoInitialize) on the thread that chooses it.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "frame/LockComponents.h"
#include "frame/QSErrors.h"
#include "frame/WirePins.h"
#include "media_objects/QMDMOSupport.h"

class TQMDMOAudioEffect : public TLockComponent {
    MW_CLASS(TQMDMOAudioEffect, TLockComponent)
public:
    explicit TQMDMOAudioEffect(TComponent* owner);
    ~TQMDMOAudioEffect() override;

    TQAQWAudioSinkPin& InputPin() { return FInputPin; }
    TQAQWAudioSourcePin& OutputPin() { return FOutputPin; }
    TQMDMOFilter* Effect() const { return FEffect.get(); }

    // False passes the stream through untouched.
    bool Enabled() const;
    void SetEnabled(bool value);

    // Sets values from "name=value,name=value" (names of the effect's parameters in any case,
    // values as the parameter reads text: numbers, True/False, enum texts). False, with the
    // reason in `error` and the values before the bad one set, when a name is unknown or a
    // value is not one the parameter takes.
    bool ApplySettings(const std::string& settings, std::string& error);

    // Buffers processed by the effect since the component was created.
    uint64_t ProcessedBuffers() const { return FProcessed.load(); }

    void SetOnWarning(TQSWarningEvent e);
    void Warning(const std::string& text, uint32_t code);

    static void Publish(TPropertyList& p);

private:
    int Dispatch(IQWNotifyOperation* operation);
    void StartStream(const TQAWaveFormatExtensible& format);
    void ProcessBuffer(IQSData* data);
    // Gives the current object the stream's type and all values; false when it can't take it.
    bool PrepareObject(const ComPtr<IMediaObject>& object);

    TQAQWAudioSinkPin FInputPin;
    TQAQWAudioSourcePin FOutputPin;
    TOwned<TQMDMOFilter> FEffect;
    bool FEnabled = true;

    // The stream, under FStreamMutex (the sender's thread and a change of effect).
    std::mutex FStreamMutex;
    TQAWaveFormatExtensible FFormat{};
    bool FStarted = false;
    bool FFormatSupported = false;
    bool FWarned = false;
    IMediaObject* FPreparedObject = nullptr;  // compared only: the object typed last
    ComPtr<IMediaObject> FPreparedHold;
    int64_t FFramesSent = 0;
    std::atomic<uint64_t> FProcessed{0};

    std::mutex FEventMutex;
    TQSWarningEvent FOnWarning;
};

namespace QMDMOAudioEffect {
// Makes TQMDMOAudioEffect known to form files.
void RegisterPkg();
}  // namespace QMDMOAudioEffect
