// TQMAudioFileSource: decodes an audio file with FFmpeg and sends it as one audio stream on
// its OutputPin: pump request, start wave, buffers with exact times, stop at the end.
//
// Pace. When a sink takes the pump, the source is pulled: each accepted master-pump call is
// served with one buffer, on the sink's thread (the wave thread of an output). Otherwise a
// worker thread pushes, with back-pressure: it never runs more than PushLead milliseconds
// ahead of the sink. "Ahead" is measured against the samples the sink reports as played
// through ClockPin when that pin is connected (an output's clock source), else against a
// monotonic clock started with the stream. A sink that prefills must prefill less than
// PushLead, or the clock-paced source waits for a sink that waits for it.
//
// Threads: Start/Stop and the setters on any thread (normally the main one); the master-pump
// callback and the clock ticks on the sink's threads; OnProgress and OnStop on the main
// thread. After Stop returns no buffer is sent any more, the stop operation was sent if the
// stream had started, the worker has ended and the file is closed. No worker at design time.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "frame/LockComponents.h"
#include "frame/QSErrors.h"
#include "frame/Threads.h"
#include "frame/WirePins.h"
#include "platform/ffmpeg/AudioFileReader.h"

// The sample type of the stream the source sends.
enum class TQMSampleFormat : uint8_t {
    Source,  // the file's own integer PCM (8, 16, 24, 32 bits) or float; else float
    Int16,   // 16-bit integers
    Float,   // 32-bit float
};

// (sender, minimum, maximum, position), times in 100 ns units.
using TQPProgressEvent =
    std::function<void(TObject* sender, int64_t minimum, int64_t maximum, int64_t position)>;
using TNotifyEvent = std::function<void(TObject* sender)>;

class TQMAudioFileSource : public TLockComponent {
    MW_CLASS(TQMAudioFileSource, TLockComponent)
public:
    explicit TQMAudioFileSource(TComponent* owner);
    ~TQMAudioFileSource() override;
    void Loaded() override;

    TQAQWAudioSourcePin& OutputPin() { return FOutputPin; }
    // Position and duration of the stream: (position, 0, duration, position, position).
    TQWInt64TimeRangedStatePin& ProgressPin() { return FProgressPin; }
    // Ticks of the samples a sink has played: paces pushing and gives the heard position.
    TQWClockMultiSinkPin& ClockPin() { return FClockPin; }

    std::string FileName() const;
    // A new file while active restarts the stream on it.
    void SetFileName(const std::string& value);
    bool Active() const;
    // True starts the stream (Start), false stops it (Stop). A failed start reports through
    // Error and leaves Active false.
    void SetActive(bool value);
    TQMSampleFormat SampleFormat() const;
    void SetSampleFormat(TQMSampleFormat value);
    // Milliseconds of audio per buffer (at least 1).
    uint32_t BufferInterval() const;
    void SetBufferInterval(uint32_t value);
    // How far a pushing source may run ahead of its sink, in milliseconds (at least 1).
    uint32_t PushLead() const;
    void SetPushLead(uint32_t value);

    void SetOnError(TQSErrorEvent e);
    void SetOnWarning(TQSWarningEvent e);
    void SetOnProgress(TQPProgressEvent e);
    // The stream reached the end of the file and its stop operation was sent.
    void SetOnStop(TNotifyEvent e);

    void Start() { SetActive(true); }
    void Stop() { SetActive(false); }

    // Running: started and not yet stopped by Stop or by the end of the file.
    bool Running() const { return FRunning.load() && !FEnded.load(); }
    // The whole file was sent (the stop operation included).
    bool ReachedEnd() const { return FReachedEnd.load(); }
    // True while a sink pulls the stream through the pump.
    bool IsPumped() const { return FPumped.load(); }
    // The heard position when ClockPin is fed, else the position sent; 100 ns units.
    int64_t Position() const { return FPosition.load(); }
    // 100 ns units; 0 when the file doesn't tell. Exact once the end was reached.
    int64_t Duration() const { return FDuration.load(); }
    // The sent position, 100 ns units.
    int64_t SentPosition() const;
    // The format of the running stream (nSamplesPerSec 0 when none).
    TQAWaveFormatExtensible GetWaveFormat() const;
    // What the file of the running stream holds.
    mw::media::SourceInfo GetSourceInfo() const;
    // Why the last start failed (None after a good one), with its text.
    mw::media::ReadError LastError() const;
    std::string LastErrorText() const;

    void Error(const std::string& text, uint32_t code);
    void Warning(const std::string& text, uint32_t code);

    static void Publish(TPropertyList& p);

protected:
    void StopWork() override;

private:
    class TPushThread;

    void IntStart();
    void IntStop();
    // Decodes and sends one buffer; at the end sends the stop operation. False when nothing
    // more will be sent. Any thread; serialised by FSendMutex.
    bool ServeOne();
    void OnMasterPump(TQSQWClockableSourcePin* pin, TObject* master, uint32_t operation);
    void OnClock(int count);
    int ClockDispatch(IQWNotifyOperation* operation);
    // Worker: waits until the lead allows one more buffer; false when terminated.
    bool WaitForRoom(TBasicThread& thread);
    void PushLoop(TBasicThread& thread);
    void WakePusher();
    void PublishProgress();

    TQAQWAudioSourcePin FOutputPin;
    TQWInt64TimeRangedStatePin FProgressPin;
    TQWClockMultiSinkPin FClockPin;

    // Persisted, under the component lock. The events have a mutex of their own, since the
    // sink's threads read them while the component lock may be held for a long time.
    std::string FFileName;
    bool FActive = false;
    TQMSampleFormat FSampleFormat = TQMSampleFormat::Source;
    uint32_t FBufferInterval = 40;
    uint32_t FPushLead = 1000;
    TQSErrorEvent FOnError;
    TQSWarningEvent FOnWarning;
    TQPProgressEvent FOnProgress;
    TNotifyEvent FOnStop;
    std::mutex FEventMutex;

    // The stream: the reader and what is sent, under FSendMutex. It is recursive because a
    // sink may pump again from inside a delivery of this source.
    mutable std::recursive_mutex FSendMutex;
    mw::media::AudioFileReader FReader;
    std::string FStreamFileName;
    TQAWaveFormatExtensible FWaveFormat{};
    mw::media::ReadError FLastError = mw::media::ReadError::None;
    std::string FLastErrorText;
    bool FStarted = false;  // the start operation went out and no stop since
    uint32_t FFramesPerBuffer = 0;

    TQWPumpSourceState FPump;
    std::atomic<bool> FRunning{false};
    std::atomic<bool> FEnded{false};
    std::atomic<bool> FReachedEnd{false};
    std::atomic<bool> FPumped{false};
    // Pump calls accepted and not yet served, and whether a thread serves them now.
    std::atomic<int> FPumpsPending{0};
    std::atomic<bool> FServing{false};

    // Pace and progress. Frames are counted from the start of the stream.
    std::mutex FPaceMutex;
    std::condition_variable FPaceChanged;
    std::atomic<int64_t> FSentFrames{0};
    std::atomic<int64_t> FPlayedFrames{0};
    std::atomic<uint32_t> FRate{0};
    std::atomic<uint32_t> FLeadFrames{0};
    std::chrono::steady_clock::time_point FPaceStart;
    std::atomic<int64_t> FPosition{0};
    std::atomic<int64_t> FDuration{0};
    std::mutex FProgressMutex;
    std::atomic<bool> FProgressQueued{false};
    ComPtr<IThread> FThread;
};

// Makes TQMAudioFileSource known to form files. It is not a palette component.
namespace QMAudioFileSource {
void RegisterPkg();
}
