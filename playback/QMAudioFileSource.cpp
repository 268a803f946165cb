#include "playback/QMAudioFileSource.h"

#include "frame/Persistence.h"

#include <algorithm>

#include "frame/MainThread.h"
#include "frame/QSData.h"

using mw::media::AudioFileReader;
using mw::media::OutputChoice;
using mw::media::PcmSample;
using mw::media::ReadError;

namespace {

TQAWaveFormatExtensible WaveFormatOf(const mw::media::PcmFormat& f) {
    // Mono and stereo get the usual mask; more channels keep the positions the file names.
    const DWORD mask =
        f.Channels > 2 && f.ChannelMask != 0 ? f.ChannelMask : mw::ChannelMaskFor(f.Channels);
    auto w = mw::MakePcmWaveFormat(f.Rate, static_cast<WORD>(f.BitsPerSample()),
                                   static_cast<WORD>(f.Channels), mask);
    if (f.IsFloat()) w.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return w;
}

}  // namespace

// The pushing worker: one buffer per pass, as the lead allows.
class TQMAudioFileSource::TPushThread : public TBasicThread {
public:
    explicit TPushThread(TQMAudioFileSource* source)
        : TBasicThread(source, "TQMAudioFileSource"), FSource(source) {}
    void Terminate() override {
        TBasicThread::Terminate();
        FSource->WakePusher();
    }

protected:
    void IntExecute() override { FSource->PushLoop(*this); }

private:
    TQMAudioFileSource* FSource;
};

TQMAudioFileSource::TQMAudioFileSource(TComponent* owner)
    : TLockComponent(owner),
      FOutputPin(this, ComponentLock(), nullptr, {}),
      FProgressPin(this, ComponentLock()),
      FClockPin(
          this, ComponentLock(),
          [this](TQWClockMultiSinkPin*, TQWBasicPin*, int count) { OnClock(count); },
          [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op, TQWNotifyState) {
              return ClockDispatch(op);
          }) {
    FOutputPin.SetName("OutputPin");
    FProgressPin.SetName("ProgressPin");
    FClockPin.SetName("ClockPin");
    FOutputPin.SetOnMasterPump([this](TQSQWClockableSourcePin* pin, TObject* master, uint32_t n) {
        OnMasterPump(pin, master, n);
    });
}

TQMAudioFileSource::~TQMAudioFileSource() {
    IntStop();
}

void TQMAudioFileSource::StopWork() {
    IntStop();
    TLockComponent::StopWork();
}

void TQMAudioFileSource::Loaded() {
    TLockComponent::Loaded();
    if (Active() && !IsDesigning()) IntStart();
}

void TQMAudioFileSource::Publish(TPropertyList& p) {
    p.Add<TQMAudioFileSource>("FileName", &TQMAudioFileSource::FileName,
                              &TQMAudioFileSource::SetFileName, std::string());
    p.AddEnum<TQMAudioFileSource>("SampleFormat", &TQMAudioFileSource::SampleFormat,
                                  &TQMAudioFileSource::SetSampleFormat, TQMSampleFormat::Source,
                                  {"sfSource", "sfInt16", "sfFloat"});
    p.Add<TQMAudioFileSource>("BufferInterval", &TQMAudioFileSource::BufferInterval,
                              &TQMAudioFileSource::SetBufferInterval, 40u);
    p.Add<TQMAudioFileSource>("PushLead", &TQMAudioFileSource::PushLead,
                              &TQMAudioFileSource::SetPushLead, 1000u);
    p.Add<TQMAudioFileSource>("Active", &TQMAudioFileSource::Active, &TQMAudioFileSource::SetActive,
                              false);
}

// ---- properties

std::string TQMAudioFileSource::FileName() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FFileName;
}

void TQMAudioFileSource::SetFileName(const std::string& value) {
    bool changed = false;
    Setters().Setter(FFileName, value, [&] { changed = true; });
    if (changed && Active() && !IsDesigning() && !IsLoading()) {
        IntStop();
        IntStart();
    }
}

bool TQMAudioFileSource::Active() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FActive;
}

void TQMAudioFileSource::SetActive(bool value) {
    bool changed = false;
    Setters().Setter(FActive, value, [&] { changed = true; });
    if (!changed || IsDesigning() || IsLoading()) return;
    if (value)
        IntStart();
    else
        IntStop();
}

TQMSampleFormat TQMAudioFileSource::SampleFormat() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FSampleFormat;
}

void TQMAudioFileSource::SetSampleFormat(TQMSampleFormat value) {
    Setters().Setter(FSampleFormat, value);
}

uint32_t TQMAudioFileSource::BufferInterval() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FBufferInterval;
}

void TQMAudioFileSource::SetBufferInterval(uint32_t value) {
    Setters().SetterMin(FBufferInterval, value, 1u);
}

uint32_t TQMAudioFileSource::PushLead() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FPushLead;
}

void TQMAudioFileSource::SetPushLead(uint32_t value) {
    Setters().SetterMin(FPushLead, value, 1u);
}

void TQMAudioFileSource::SetOnError(TQSErrorEvent e) {
    std::lock_guard g(FEventMutex);
    FOnError = std::move(e);
}

void TQMAudioFileSource::SetOnWarning(TQSWarningEvent e) {
    std::lock_guard g(FEventMutex);
    FOnWarning = std::move(e);
}

void TQMAudioFileSource::SetOnProgress(TQPProgressEvent e) {
    std::lock_guard g(FEventMutex);
    FOnProgress = std::move(e);
}

void TQMAudioFileSource::SetOnStop(TNotifyEvent e) {
    std::lock_guard g(FEventMutex);
    FOnStop = std::move(e);
}

void TQMAudioFileSource::Error(const std::string& text, uint32_t code) {
    TQSErrorEvent handler;
    {
        std::lock_guard g(FEventMutex);
        handler = FOnError;
    }
    mw::ReportError(this, handler, IsDesigning(), text, code);
}

void TQMAudioFileSource::Warning(const std::string& text, uint32_t code) {
    TQSWarningEvent handler;
    {
        std::lock_guard g(FEventMutex);
        handler = FOnWarning;
    }
    mw::ReportWarning(this, handler, text, code);
}

// ---- state

int64_t TQMAudioFileSource::SentPosition() const {
    return mw::SamplesToDuration100ns(FSentFrames.load(), FRate.load());
}

TQAWaveFormatExtensible TQMAudioFileSource::GetWaveFormat() const {
    std::lock_guard g(FSendMutex);
    return FStarted ? FWaveFormat : TQAWaveFormatExtensible{};
}

mw::media::SourceInfo TQMAudioFileSource::GetSourceInfo() const {
    std::lock_guard g(FSendMutex);
    return FReader.Source();
}

ReadError TQMAudioFileSource::LastError() const {
    std::lock_guard g(FSendMutex);
    return FLastError;
}

std::string TQMAudioFileSource::LastErrorText() const {
    std::lock_guard g(FSendMutex);
    return FLastErrorText;
}

// ---- the stream

void TQMAudioFileSource::IntStart() {
    IntStop();
    std::string fileName;
    OutputChoice choice = OutputChoice::Source;
    uint32_t interval, lead;
    {
        TLockGuard g = ComponentLock()->AcquireRead();
        fileName = FFileName;
        choice = FSampleFormat == TQMSampleFormat::Int16   ? OutputChoice::Int16
                 : FSampleFormat == TQMSampleFormat::Float ? OutputChoice::Float32
                                                           : OutputChoice::Source;
        interval = FBufferInterval;
        lead = FPushLead;
    }

    bool opened;
    std::string reason;
    {
        std::lock_guard g(FSendMutex);
        FStreamFileName = fileName;
        opened = FReader.Open(fileName, choice);
        FLastError = FReader.Error();
        FLastErrorText = FReader.ErrorText();
        reason = FLastErrorText;
        if (opened) {
            const mw::media::PcmFormat& format = FReader.Format();
            FWaveFormat = WaveFormatOf(format);
            FFramesPerBuffer = std::max<uint32_t>(
                1, static_cast<uint32_t>(uint64_t(format.Rate) * interval / 1000));
            FRate = format.Rate;
            FLeadFrames =
                std::max<uint32_t>(1, static_cast<uint32_t>(uint64_t(format.Rate) * lead / 1000));
            FDuration = FReader.Duration();
        }
    }
    if (!opened) {
        Setters().Setter(FActive, false);
        Error("Can't open media file '" + fileName + "': " + reason + ".",
              static_cast<uint32_t>(LastError()));
        return;
    }

    FSentFrames = 0;
    FPlayedFrames = 0;
    FPosition = 0;
    FPumpsPending = 0;
    FEnded = false;
    FReachedEnd = false;
    {
        std::lock_guard g(FPaceMutex);
        FPaceStart = std::chrono::steady_clock::now();
    }
    FRunning = true;
    PublishProgress();

    TObject* master = FPump.Request(FOutputPin);
    {
        std::lock_guard g(FSendMutex);
        FStarted = true;
        FOutputPin.Notify(MwNew<TQWStartWaveOperation>(FWaveFormat));
    }
    FClockPin.SetClockNeeded(true);
    if (master) {
        FPumped = true;
        // The sink may pull its prefill from inside this call.
        FPump.StartPump(FOutputPin);
    } else {
        FPumped = false;
        FThread = MwNew<TPushThread>(this);
    }
}

void TQMAudioFileSource::IntStop() {
    FRunning = false;
    if (FThread) {
        ComPtr<IThread> thread = std::move(FThread);
        thread->GetInstance()->Terminate();
        thread = nullptr;  // the last reference: waits for the worker
    }
    bool wasStarted;
    {
        std::lock_guard g(FSendMutex);
        wasStarted = FStarted;
        if (FStarted && !FEnded.exchange(true)) FOutputPin.Notify(MwNew<TQWStopOperation>());
        FStarted = false;
        FReader.Close();
    }
    FPump.Reset();
    FPumped = false;
    if (wasStarted) FClockPin.SetClockNeeded(false);
}

bool TQMAudioFileSource::ServeOne() {
    std::lock_guard g(FSendMutex);
    if (!FRunning.load() || FEnded.load() || !FStarted) return false;

    ComPtr<TQAAudioBuffer> buffer = MwNew<TQAAudioBuffer>(FWaveFormat, FFramesPerBuffer);
    const int64_t first = FReader.Position();
    const size_t frames = FReader.Read(buffer->InterleavedWritePointer(), FFramesPerBuffer);
    if (frames == 0) {
        if (FReader.Error() != ReadError::None)
            Warning(
                "Decoding of '" + FStreamFileName + "' ended early: " + FReader.ErrorText() + ".",
                static_cast<uint32_t>(FReader.Error()));
        if (FReader.SkippedPackets() > 0)
            Warning("Skipped undecodable packets.",
                    static_cast<uint32_t>(FReader.SkippedPackets()));
        FDuration = FReader.Duration();
        FEnded = true;
        FReachedEnd = true;
        FOutputPin.Notify(MwNew<TQWStopOperation>());
        PublishProgress();
        TNotifyEvent onStop;
        {
            std::lock_guard l(FEventMutex);
            onStop = FOnStop;
        }
        if (onStop)
            MainThreadExecute(
                this, false, [this, onStop] { onStop(this); }, false);
        return false;
    }
    if (frames < FFramesPerBuffer)
        buffer->Resize(static_cast<uint32_t>(frames * FWaveFormat.nBlockAlign), false);
    ComPtr<IQMTimeStamp> stamp = buffer->TimeStamp();
    stamp->SetHasTimes(true);
    stamp->SetStartTime(FReader.FrameTime(first));
    stamp->SetEndTime(FReader.FrameTime(first + static_cast<int64_t>(frames)));
    FSentFrames += static_cast<int64_t>(frames);
    FOutputPin.SubmitBuffer(ComPtr<IQSData>(buffer));
    PublishProgress();
    return true;
}

void TQMAudioFileSource::OnMasterPump(TQSQWClockableSourcePin* pin, TObject* master,
                                      uint32_t operation) {
    if (!FPump.Accept(pin, master, operation)) return;
    FPumpsPending.fetch_add(1);
    // One thread serves at a time; a pump that arrives meanwhile (also from inside one of our
    // own deliveries) is counted and served by that thread, so pumps never nest.
    for (;;) {
        bool idle = false;
        if (!FServing.compare_exchange_strong(idle, true)) return;
        while (FPumpsPending.load() > 0) {
            FPumpsPending.fetch_sub(1);
            if (!ServeOne()) FPumpsPending = 0;
        }
        FServing = false;
        if (FPumpsPending.load() == 0) return;
    }
}

int TQMAudioFileSource::ClockDispatch(IQWNotifyOperation* operation) {
    if (!operation->IsType<TQWClockOperation>()) FClockPin.SetClockNeeded(Running());
    return 0;
}

void TQMAudioFileSource::OnClock(int count) {
    if (count <= 0) return;
    {
        std::lock_guard g(FPaceMutex);
        FPlayedFrames += count;
    }
    FPaceChanged.notify_all();
    PublishProgress();
}

void TQMAudioFileSource::WakePusher() {
    { std::lock_guard g(FPaceMutex); }
    FPaceChanged.notify_all();
}

bool TQMAudioFileSource::WaitForRoom(TBasicThread& thread) {
    std::unique_lock l(FPaceMutex);
    for (;;) {
        if (thread.IsTerminated()) return false;
        const int64_t sent = FSentFrames.load();
        const int64_t lead = FLeadFrames.load();
        if (FClockPin.IsConnected()) {
            if (sent < FPlayedFrames.load() + lead) return true;
            // A sink that goes away stops ticking: look again now and then.
            FPaceChanged.wait_for(l, std::chrono::milliseconds(100));
        } else {
            const auto ahead = std::chrono::nanoseconds(
                mw::SamplesToDuration100ns(sent - lead, FRate.load()) * 100);
            const auto due = FPaceStart + ahead;
            if (sent < lead || std::chrono::steady_clock::now() >= due) return true;
            FPaceChanged.wait_until(l, due);
        }
    }
}

void TQMAudioFileSource::PushLoop(TBasicThread& thread) {
    while (WaitForRoom(thread) && ServeOne()) {
    }
}

void TQMAudioFileSource::PublishProgress() {
    // Serialised, so that the worker and the sink's ticks never publish out of order.
    std::lock_guard g(FProgressMutex);
    const uint32_t rate = FRate.load();
    const int64_t sent = FSentFrames.load();
    // The heard position when a sink reports what it played; what was sent otherwise.
    const int64_t frames = FClockPin.IsConnected() ? std::min(FPlayedFrames.load(), sent) : sent;
    const int64_t position = mw::SamplesToDuration100ns(frames, rate);
    const int64_t duration = std::max(FDuration.load(), position);
    FPosition = position;
    FProgressPin.SubmitValueRange(position, 0, duration, position, position);
    // One call waits on the main thread at most; it reads the latest values when it runs.
    if (!FProgressQueued.exchange(true)) {
        const bool queued = MainThreadExecute(
            this, false,
            [this] {
                FProgressQueued = false;
                TQPProgressEvent handler;
                {
                    std::lock_guard g(FEventMutex);
                    handler = FOnProgress;
                }
                if (handler)
                    handler(this, 0, std::max(FDuration.load(), FPosition.load()),
                            FPosition.load());
            },
            false);
        if (!queued) FProgressQueued = false;
    }
}

namespace QMAudioFileSource {
void RegisterPkg() {
    RegisterClass(TQMAudioFileSource::StaticClass());
}
}  // namespace QMAudioFileSource
