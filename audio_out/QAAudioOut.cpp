// The wave audio output component, its device choice and its palette entry.
#include "audio_out/QAAudioOut.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <thread>

#include "frame/MainThread.h"
#include "frame/Persistence.h"
#include "frame/Registration.h"
#include "mwstring.h"
#include "mwwave.h"
#include "winuser.h"

namespace {

constexpr const char* kCantOpen = "Can't open audio device.";
constexpr const char* kCantPause = "Can't pause audio device.";
constexpr const char* kCantRestart = "Can't restart audio device.";
constexpr const char* kCantGetCaps = "Can't get device capabilities.";
constexpr const char* kCantWrite = "Can't write to audio device.";

// Device names come from the platform as UTF-16, at most maxLen characters with no terminator
// required at the end.
std::string Utf16ToUtf8(const WCHAR* s, size_t maxLen) {
    size_t n = 0;
    while (n < maxLen && s[n])
        ++n;
    return mw::Utf16ToUtf8(std::u16string_view(s, n));
}

std::string UpperCase(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

// The names of the devices in order; `failed` gets the result of a device that could not be
// read, where the walk ends.
std::vector<std::string> WalkDevices(MMRESULT& failed) {
    std::vector<std::string> names;
    failed = MMSYSERR_NOERROR;
    const UINT count = waveOutGetNumDevs();
    for (UINT i = 0; i < count; ++i) {
        WAVEOUTCAPSW caps{};
        MMRESULT r = waveOutGetDevCapsW(i, &caps, sizeof caps);
        if (r != MMSYSERR_NOERROR) {
            failed = r;
            break;
        }
        names.push_back(Utf16ToUtf8(caps.szPname, MAXPNAMELEN));
    }
    return names;
}

std::mutex& SelectHandlerMutex() {
    static std::mutex m;
    return m;
}
TQAAudioOutDevice::TDeviceSelectHandler& SelectHandler() {
    static TQAAudioOutDevice::TDeviceSelectHandler h;
    return h;
}

// The output whose queued start the calling thread processes, if it is such a worker.
thread_local const TQAAudioOut* tStartWorkerOf = nullptr;

}  // namespace

// ---- TQAAudioOutDeviceItem

std::string TQAAudioOutDeviceItem::DeviceName() const {
    TLockGuard g = Lock()->AcquireRead();
    return FDeviceName;
}

// ---- TQAAudioOutDeviceItems

int TQAAudioOutDeviceItems::GetCountChannelsOfDevice(const std::string& name) const {
    int n = 0;
    for (TQAAudioOutDeviceItem* item : Query())
        n += item->DeviceName() == name;
    return n;
}

std::string TQAAudioOutDeviceItems::GetNewDevice() const {
    std::vector<std::string> devices;
    if (TQAAudioOutDevice* owner = GetOwnerProperty()) devices = owner->GetDeviceList();
    int best = 22000;
    std::string result = "Default";
    for (const std::string& name : devices) {
        if (name.empty()) continue;
        int count = GetCountChannelsOfDevice(name);
        if (count < best) {
            best = count;
            result = name;
        }
    }
    return result;
}

void TQAAudioOutDeviceItems::NewItemCreated(TCollectionItem* item) {
    if (auto* device = dynamic_cast<TQAAudioOutDeviceItem*>(item))
        device->SetDeviceName(GetNewDevice());
    TQAAudioOutDeviceItemsBase::NewItemCreated(item);
}

// ---- TQAAudioOutDevice

TQAAudioOutDevice::TQAAudioOutDevice(TQAAudioOut* component)
    : TLockPersistent(component, component ? component->ComponentLock() : nullptr,
                      [component] {
                          if (component) component->NotifyProp();
                      }),
      FComponent(component),
      FAlternativeDevices(new TQAAudioOutDeviceItems(this, Lock())) {}

TQAAudioOutDevice::~TQAAudioOutDevice() = default;

std::string TQAAudioOutDevice::DeviceName() const {
    TLockGuard g = Lock()->AcquireRead();
    return FDeviceName;
}

UINT TQAAudioOutDevice::GetDeviceID() const {
    if (UpperCase(DeviceName()) == "DEFAULT") return WAVE_MAPPER;
    UINT result = GetDeviceIDFromName(DeviceName());
    if (result < WAVE_MAPPER) return result;
    for (TQAAudioOutDeviceItem* item : FAlternativeDevices->Query()) {
        const std::string name = item->DeviceName();
        if (UpperCase(name) == "DEFAULT") return WAVE_MAPPER;
        result = GetDeviceIDFromName(name);
        if (result < WAVE_MAPPER) return result;
    }
    return result;
}

UINT TQAAudioOutDevice::GetDeviceIDFromName(const std::string& name) const {
    const UINT count = waveOutGetNumDevs();
    for (UINT i = 0; i < count; ++i) {
        WAVEOUTCAPSW caps{};
        MMRESULT r = waveOutGetDevCapsW(i, &caps, sizeof caps);
        if (r != MMSYSERR_NOERROR) {
            if (FComponent) FComponent->Warning(kCantGetCaps, r);
            return 0;  // the first device, on purpose not the answer for "not found"
        }
        if (Utf16ToUtf8(caps.szPname, MAXPNAMELEN) == name) return i;
    }
    return WAVE_MAPPER;
}

std::vector<std::string> TQAAudioOutDevice::GetDeviceList() const {
    MMRESULT failed;
    std::vector<std::string> names = WalkDevices(failed);
    if (failed != MMSYSERR_NOERROR && FComponent) FComponent->Warning(kCantGetCaps, failed);
    return names;
}

void TQAAudioOutDevice::GetDeviceList(IStringArrayList* list) const {
    if (!list) return;
    for (const std::string& name : GetDeviceList())
        list->Add(name);
}

bool TQAAudioOutDevice::ShowDeviceSelctDialog() {
    TDeviceSelectHandler handler;
    {
        std::lock_guard lock(SelectHandlerMutex());
        handler = SelectHandler();
    }
    if (!handler) return false;
    std::string selected = DeviceName();
    if (!handler(GetDeviceList(), selected)) return false;
    SetDeviceName(selected);
    return true;
}

void TQAAudioOutDevice::SetDeviceSelectHandler(TDeviceSelectHandler handler) {
    std::lock_guard lock(SelectHandlerMutex());
    SelectHandler() = std::move(handler);
}

void TQAAudioOutDevice::Publish(TPropertyList& p) {
    p.AddObject<TQAAudioOutDevice>(
        "AlternativeDevices", [](const TQAAudioOutDevice& d) { return d.AlternativeDevices(); });
    p.Add<TQAAudioOutDevice>("DeviceName", &TQAAudioOutDevice::DeviceName,
                             &TQAAudioOutDevice::SetDeviceName, std::string("Default"));
}

// ---- TQAAudioOut

TQAAudioOut::TQAAudioOut(TComponent* owner)
    : TQABasicAudioOut(owner),
      FParams(MwNew<TQAAudioParams>()),
      FDevice(new TQAAudioOutDevice(this)),
      FBufferQueue(MwNew<TQSOperationList>()),
      FOnQueueEmptySection(MwNew<TCriticalSection>()) {}

TQAAudioOut::~TQAAudioOut() {
    mw::CancelMainThreadCalls(this);
    // Stop joined it already, unless the worker itself stopped the output.
    if (FStartWorker.joinable()) FStartWorker.join();
}

void TQAAudioOut::StopWork() {
    // Nothing more arrives from the sources while the output stops.
    QWCloseComponentPins(this);
    {
        TLockGuard g = ComponentLock()->AcquireWrite();
        try {
            Stop(true);
        } catch (const EQSException&) {
            // Already told to OnError; a component that goes can't do more about it.
        }
    }
    FBufferQueue->Clear();
    TQABasicAudioOut::StopWork();
}

void TQAAudioOut::Publish(TPropertyList& p) {
    p.Add<TQAAudioOut>("PrefillInterval", &TQAAudioOut::PrefillInterval,
                       &TQAAudioOut::SetPrefillInterval, 300u);
    p.AddObject<TQAAudioOut>("Device", [](const TQAAudioOut& c) { return c.Device(); });
}

void TQAAudioOut::SetPrefillInterval(uint32_t value) {
    Setters().Setter(FPrefillInterval, value, [this] {
        FPrefillNow = FPrefillInterval;
        NotifyProp();
    });
}

TQSErrorEvent TQAAudioOut::OnError() const {
    std::lock_guard lock(FEventsMutex);
    return FOnError;
}
void TQAAudioOut::SetOnError(TQSErrorEvent handler) {
    std::lock_guard lock(FEventsMutex);
    FOnError = std::move(handler);
}
TQSWarningEvent TQAAudioOut::OnWarning() const {
    std::lock_guard lock(FEventsMutex);
    return FOnWarning;
}
void TQAAudioOut::SetOnWarning(TQSWarningEvent handler) {
    std::lock_guard lock(FEventsMutex);
    FOnWarning = std::move(handler);
}
std::function<void(TObject*)> TQAAudioOut::OnQueueEmpty() const {
    return FOnQueueEmptySection->Access().Execute([this] { return FOnQueueEmpty; });
}
void TQAAudioOut::SetOnQueueEmpty(std::function<void(TObject*)> handler) {
    FOnQueueEmptySection->Access().Execute([&] { FOnQueueEmpty = std::move(handler); });
}

void TQAAudioOut::Error(const std::string& text, uint32_t code) {
    mw::ReportError(this, OnError(), IsDesigning(), text, code);
}

void TQAAudioOut::Warning(const std::string& text, uint32_t code) {
    mw::ReportWarning(this, OnWarning(), text, code);
}

bool TQAAudioOut::IsOpen() const {
    FParams->Lock();
    bool open = FParams->GetIsOpen();
    FParams->Unlock();
    return open;
}

int TQAAudioOut::BuffersInFlight() const {
    FParams->Lock();
    int n = static_cast<int>(FParams->GetList().size());
    FParams->Unlock();
    return n;
}

TQAAudioOutStats TQAAudioOut::Stats() const {
    TQAAudioOutStats stats;
    stats.BuffersPlayed = FBuffersPlayed;
    FParams->Lock();
    mw::wave::OutputStats device;
    if (HWAVEOUT h = HOut; h && mw::wave::GetOutputStats(h, &device) == MMSYSERR_NOERROR) {
        stats.DeviceOpen = true;
        stats.FramesPlayed = device.framesPlayed;
        stats.Underruns = device.underruns;
    }
    FParams->Unlock();
    return stats;
}

DWORD TQAAudioOut::OpenFlags(UINT deviceId) const {
    DWORD flags = CALLBACK_FUNCTION | WAVE_ALLOWSYNC;
    if (deviceId != WAVE_MAPPER) flags |= WAVE_MAPPED;
    return flags;
}

// -- Arrival and queueing

void TQAAudioOut::SinkDispatch(IQWNotifyOperation* operation) {
    if (operation->IsType<TQWQSResumeOperation>()) {
        IntResume();
    } else if (operation->IsType<TQWFlushStreamOperation>()) {
        Flush();
    } else if (Enabled() && !IsDesigning()) {
        if (operation->IsType<TQWStopOperation>()) {
            ++FStopping;
            // A stream shorter than the prefill is heard: its stop ends the prefill.
            EndPrefill();
        } else if (operation->IsType<TQWStartWaveOperation>()) {
            ++FStopping;
        } else if (operation->IsType<TQWSuppliedBufferOperation>()) {
            std::lock_guard lock(FSkipMutex);
            ++FQueuedBuffers;
        }
        FBufferQueue->Add(operation, false);
    } else {
        if (auto* start = operation->InstanceAs<TQWStartWaveOperation>())
            SetAudioFormat(start->Format);
        else if (operation->IsType<TQWStopOperation>())
            ClearAudioFormat();
        return;
    }
    if (!FResumed || !FStartResumed) ProcessQueue();
    FParams->Lock();
    const bool deviceBusy = FStopping < 1 && FParams->GetList().size() > 1;
    FParams->Unlock();
    // With buffers in the device and no start or stop waiting, WOMDone drains the queue.
    if (deviceBusy) return;
    ProcessQueue();
}

bool TQAAudioOut::ProcessQueue() {
    for (bool drained = false;; drained = true) {
        // One thread drains at a time. A thread that finds another draining leaves its
        // request behind, and the drainer goes over the queue once more for it.
        FDrainRequested = true;
        if (FDraining.exchange(true)) return drained;
        {
            struct Release {
                TQAAudioOut* out;
                ~Release() {
                    out->FDraining = false;
                    out->NotifyPlayedOut();  // a start worker may wait for its turn
                }
            } release{this};
            while (FDrainRequested.exchange(false)) {
                TLockGuard g = ComponentLock()->AcquireRead();
                ComPtr<IQWNotifyOperation> operation;
                while (FBufferQueue->Pop(operation)) {
                    if (!IntDispatch(operation.Get())) break;
                }
            }
        }
        if (!FDrainRequested) return true;
    }
}

bool TQAAudioOut::IntDispatch(IQWNotifyOperation* operation) {
    TLockGuard g = ComponentLock()->AcquireRead();

    if (auto* start = operation->InstanceAs<TQWStartWaveOperation>()) {
        // A stop on another thread is closing the device (and drops what is queued when it
        // is done): the start must not open a device behind its back.
        if (FStopsRunning > 0) {
            FBufferQueue->Insert(operation);
            return false;
        }
        // A stopped stream whose device still plays is heard to its end before the device
        // is reset for the next one: the start waits at the head of the queue, and the last
        // finished buffer drains the queue again. Nobody waits for it.
        if (StoppedStreamPlays()) {
            FBufferQueue->Insert(operation);
            return false;
        }
        const bool open = IsOpen();
        const bool onWorker = tStartWorkerOf == this;
        if (!onWorker && (FStartWorkerRunning || (open && FStopped))) {
            // Reopening the device waits for its wave thread, so it is never done there nor
            // on a sender (a pulled source may hold what that thread needs), and the main
            // thread is not needed for it: a start worker does it.
            FBufferQueue->Insert(operation);
            RequestStartWorker();
            return false;
        }
        --FStopping;
        {
            std::lock_guard lock(FStateMutex);
            FStartResumed = false;
            FStartInterval = 0;
            FPaused = true;
            if (open && !FStopped) return false;  // the stream goes on with the open device
            FResumed = false;
        }
        AudioStreamStart(start->Format);
        FStopped = false;
    } else if (operation->IsType<TQWStartPumpOperation>()) {
        FParams->Lock();
        const bool isPump = FParams->GetIsPump();
        FParams->Unlock();
        if (isPump && Pump()->Enabled()) {
            InputPin()->MasterPump(this);
            if (PrefillInterval() != 0) InputPin()->MasterPump(this);
        }
    } else if (operation->IsType<TQWStopOperation>()) {
        --FStopping;
        FStopped = true;  // the device stays open for what still plays
        // A start processed after the stop arrived (one that went through the main thread)
        // began a new prefill, which no further buffer ends: the stop ends it.
        EndPrefill();
    } else if (operation->IsType<TQWQSPauseOperation>()) {
        IntPause();
    } else if (auto* request = operation->InstanceAs<TQWPumpRequestOperation>()) {
        if (!Pump()->Enabled()) return true;
        if (request->Kind == TQWPumpRequestOperation::KindClaimed &&
            request->Priority >= Pump()->Priority())
            return true;  // an earlier sink won
        // Only an output that can open its device drives the pump.
        const UINT id = FDevice->GetDeviceID();
        HWAVEOUT probe = nullptr;
        MMRESULT r = waveOutOpen(&probe, id, &mw::kProbeWaveFormat,
                                 reinterpret_cast<DWORD_PTR>(&WaveCallback), 0, OpenFlags(id));
        FParams->Lock();
        if (r != MMSYSERR_NOERROR) {
            FParams->SetIsPump(false);
        } else {
            request->Master = this;
            request->Priority = Pump()->Priority();
            request->Kind = TQWPumpRequestOperation::KindClaimed;
            FParams->SetIsPump(true);
        }
        FParams->Unlock();
        if (r == MMSYSERR_NOERROR) waveOutClose(probe);
    } else if (auto* supplied = operation->InstanceAs<TQWSuppliedBufferOperation>()) {
        {
            std::lock_guard lock(FSkipMutex);
            --FQueuedBuffers;
            if (FSkipBuffers > 0) {
                --FSkipBuffers;  // queued before a flush: dropped by it
                return true;
            }
        }
        // A barrier against a stop in progress.
        FParams->Lock();
        FParams->Unlock();
        ComPtr<IQAAudioBuffer> buffer = MwNew<TQAAudioBuffer>(supplied->Data);
        // A buffer without samples is dropped uncounted; the pump still runs so that a
        // pulled source is asked again.
        if (buffer->ByteSize() > 0) Play(buffer);
        if (Pump()->Enabled() && !FStartResumed) InputPin()->MasterPump(this);
    }
    return true;
}

// -- The device

void TQAAudioOut::AudioStreamStart(const TQAWaveFormatExtensible& format) {
    if (!Enabled()) return;
    if (IsOpen()) IntStop(false);
    const UINT id = FDevice->GetDeviceID();  // takes the component lock: before FParams
    FParams->Lock();
    FParams->SetIsOpen(true);
    ComPtr<TQAWaveThread> thread =
        MwNew<TQAWaveThread>(this, [this](uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) {
            ProcessMessage(uMsg, hwo, header);
        });
    FWaveThread = thread;
    HWAVEOUT h = nullptr;
    MMRESULT r = waveOutOpen(&h, id, &format, reinterpret_cast<DWORD_PTR>(&WaveCallback),
                             thread->Instance(), OpenFlags(id));
    HOut = r == MMSYSERR_NOERROR ? h : nullptr;
    SetAudioFormat(format);
    if (r != MMSYSERR_NOERROR) {
        FParams->Unlock();
        Error(kCantOpen, r);
        return;
    }
    r = waveOutPause(h);
    FParams->Unlock();
    {
        // The new device is paused whatever a stop on another thread did to the flags
        // meanwhile; that stop is still queued and ends this prefill in its turn.
        std::lock_guard lock(FStateMutex);
        FPaused = true;
        FStartResumed = false;
    }
    if (r != MMSYSERR_NOERROR) Error(kCantPause, r);
}

bool TQAAudioOut::Open() {
    TQAWaveFormatExtensible format;
    if (IsOpen() || !CurrentFormat(format)) return false;
    const UINT id = FDevice->GetDeviceID();
    FParams->Lock();
    if (FParams->GetIsOpen()) {
        FParams->Unlock();
        return false;
    }
    FParams->SetIsOpen(true);
    ComPtr<TQAWaveThread> thread =
        MwNew<TQAWaveThread>(this, [this](uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) {
            ProcessMessage(uMsg, hwo, header);
        });
    FWaveThread = thread;
    HWAVEOUT h = nullptr;
    MMRESULT r = waveOutOpen(&h, id, &format, reinterpret_cast<DWORD_PTR>(&WaveCallback),
                             thread->Instance(), OpenFlags(id));
    HOut = r == MMSYSERR_NOERROR ? h : nullptr;
    FParams->Unlock();
    if (r != MMSYSERR_NOERROR) {
        Close();
        return false;
    }
    ProcessQueue();
    return true;
}

void TQAAudioOut::Close() {
    Stop(true);
}

void TQAAudioOut::Stop(bool clearPump) {
    TLockGuard g = ComponentLock()->AcquireWrite();
    ++FStopsRunning;
    std::thread worker;
    {
        std::lock_guard lock(FStartWorkerMutex);
        ++FStartWorkerBlocks;
        if (tStartWorkerOf != this) worker = std::move(FStartWorker);
    }
    struct Done {
        TQAAudioOut* out;
        ~Done() {
            // Still under the write lock: no thread drains between the drop and the end.
            out->DropQueue();
            --out->FStopsRunning;
            std::lock_guard lock(out->FStartWorkerMutex);
            --out->FStartWorkerBlocks;
        }
    } done{this};
    // The start worker gives up its start (it finds the stop running) and ends; it may need
    // the component meanwhile.
    NotifyPlayedOut();
    if (worker.joinable()) ComponentLock()->ExecuteUnlocked([&] { worker.join(); });
    IntStop(clearPump);
}

void TQAAudioOut::RequestStartWorker() {
    std::lock_guard lock(FStartWorkerMutex);
    if (FStartWorkerBlocks > 0) return;  // a stop drops the start anyway
    FStartWorkerWanted = true;
    if (FStartWorkerRunning) return;  // it goes over the queue once more
    // The previous worker has ended, or is about to.
    if (FStartWorker.joinable()) FStartWorker.join();
    FStartWorkerRunning = true;
    FStartWorker = std::thread([this] { RunStartWorker(); });
}

void TQAAudioOut::RunStartWorker() {
    tStartWorkerOf = this;
    std::unique_lock lock(FStartWorkerMutex);
    while (FStartWorkerWanted && FStartWorkerBlocks == 0) {
        FStartWorkerWanted = false;
        lock.unlock();
        // Whoever drains now stops at the start and leaves it to this thread: wait for our
        // turn to drain.
        for (;;) {
            {
                std::unique_lock wait(FPlayedOutMutex);
                FPlayedOutChanged.wait(wait, [this] { return !FDraining || FStartWorkerBlocks; });
            }
            if (FStartWorkerBlocks > 0 || ProcessQueue()) break;
        }
        lock.lock();
    }
    FStartWorkerRunning = false;
}

void TQAAudioOut::DropQueue() {
    ComPtr<IQWNotifyOperation> operation;
    while (FBufferQueue->Pop(operation)) {
        if (operation->IsType<TQWStartWaveOperation>() || operation->IsType<TQWStopOperation>())
            --FStopping;
        else if (operation->IsType<TQWSuppliedBufferOperation>()) {
            std::lock_guard lock(FSkipMutex);
            --FQueuedBuffers;
        }
    }
    std::lock_guard lock(FSkipMutex);
    FSkipBuffers = 0;
}

void TQAAudioOut::IntStop(bool clearPump) {
    TLockGuard g = ComponentLock()->AcquireWrite();
    ++FStopsRunning;
    struct Done {
        std::atomic<int>& count;
        ~Done() { --count; }
    } done{FStopsRunning};
    FParams->Lock();
    if (!FParams->GetIsOpen()) {
        FParams->Unlock();
        return;
    }
    if (FWaveThread) {
        FWaveThread->Lock();
        FWaveThread->ClearRecords();
    }
    if (clearPump) FParams->SetIsPump(false);
    if (FWaveThread) FWaveThread->Unlock();
    FParams->SetIsOpen(false);
    const HWAVEOUT h = HOut;
    FParams->Unlock();

    // A failed open left no device: there is nothing to reset or close.
    if (h) {
        MMRESULT r = waveOutReset(h);
        if (r != MMSYSERR_NOERROR) {
            Error(kCantRestart, r);
            return;
        }
    }

    FParams->Lock();
    ComPtr<IQAWaveThread> thread = std::move(FWaveThread);
    if (HOut == h) HOut = nullptr;
    FParams->Unlock();
    // Waits for the wave thread, which may itself wait for the component lock meanwhile.
    ComponentLock()->ExecuteUnlocked([&] { thread = nullptr; });

    FParams->Lock();
    std::vector<TQAWaveBuffer*>& list = FParams->GetList();
    for (auto it = list.begin(); it != list.end();) {
        TQAWaveBuffer* buffer = *it;
        if (buffer->HOut != h) {
            ++it;  // a device opened while this one stopped
            continue;
        }
        waveOutUnprepareHeader(h, &buffer->WaveHdr, sizeof(WAVEHDR));
        delete buffer;
        it = list.erase(it);
    }
    const MMRESULT closed = h ? waveOutClose(h) : MMSYSERR_NOERROR;
    FParams->Unlock();
    if (closed != MMSYSERR_NOERROR) Error(kCantWrite, closed);
}

void TQAAudioOut::Flush() {
    {
        // The buffers queued now are dropped as they come up; starts and stops keep their turn.
        std::lock_guard lock(FSkipMutex);
        FSkipBuffers = FQueuedBuffers;
    }
    {
        std::lock_guard lock(FStateMutex);
        FParams->Lock();
        if (FParams->GetIsOpen()) {
            FStartResumed = false;
            FStartInterval = 0;
            FPaused = true;
            if (HWAVEOUT h = HOut) {
                waveOutReset(h);
                waveOutPause(h);
            }
        }
        FParams->Unlock();
    }
    NotifyPlayedOut();
}

bool TQAAudioOut::StoppedStreamPlays() const {
    return FStopped && !FPaused && IsOpen() && BuffersInFlight() > 0;
}

void TQAAudioOut::NotifyPlayedOut() {
    std::lock_guard lock(FPlayedOutMutex);
    FPlayedOutChanged.notify_all();
}

void TQAAudioOut::EnableChanged() {
    TQABasicAudioOut::EnableChanged();
    if (!Enabled() || IsDesigning()) return;
    TQAWaveFormatExtensible format;
    const bool hasFormat = CurrentFormat(format);
    {
        std::lock_guard lock(FStateMutex);
        FStartResumed = false;
        FStartInterval = 0;
        FPaused = true;
        if (hasFormat) FResumed = false;
    }
    if (hasFormat) {
        AudioStreamStart(format);
        FStopped = false;
    } else {
        IntPause();
    }
    // A start that came while the device was reset here waits at the head of the queue.
    NotifyPlayedOut();
    ProcessQueue();
}

void TQAAudioOut::Play(const ComPtr<IQAAudioBuffer>& buffer) {
    if (!Enabled()) return;
    FParams->Lock();
    const HWAVEOUT h = HOut;
    if (!FParams->GetIsOpen() || !h) {
        FParams->Unlock();  // no device: the buffer is not played
        return;
    }
    auto* waveBuffer = new TQAWaveBuffer;
    waveBuffer->Data = buffer;
    buffer->FlattenInterleaved(true);
    waveBuffer->WaveHdr.lpData =
        reinterpret_cast<LPSTR>(const_cast<BYTE*>(buffer->InterleavedPointer()));
    waveBuffer->WaveHdr.dwBufferLength = buffer->ByteSize();
    waveBuffer->HOut = h;
    // The full address: the buffer is found again by it, in the list, never by trust.
    waveBuffer->WaveHdr.dwUser = reinterpret_cast<DWORD_PTR>(waveBuffer);
    waveOutPrepareHeader(h, &waveBuffer->WaveHdr, sizeof(WAVEHDR));
    FParams->GetList().push_back(waveBuffer);
    FParams->Unlock();
    if (MMRESULT r = waveOutWrite(h, &waveBuffer->WaveHdr, sizeof(WAVEHDR));
        r != MMSYSERR_NOERROR) {
        // The device refused it (it failed): no message will give it back, so it goes now.
        FParams->Lock();
        std::vector<TQAWaveBuffer*>& list = FParams->GetList();
        if (auto it = std::find(list.begin(), list.end(), waveBuffer); it != list.end()) {
            list.erase(it);
            waveOutUnprepareHeader(h, &waveBuffer->WaveHdr, sizeof(WAVEHDR));
            delete waveBuffer;
        }
        FParams->Unlock();
        Error(kCantWrite, r);
        return;
    }

    if (FStartResumed) return;
    uint32_t rate = buffer->SampleRate();
    int64_t samples = buffer->SampleCount();
    TQAWaveFormatExtensible format;
    if (rate == 0 && CurrentFormat(format)) {  // a block that carries no format of its own
        rate = format.nSamplesPerSec;
        samples = format.nBlockAlign ? buffer->ByteSize() / format.nBlockAlign : 0;
    }
    bool resumed = false;
    {
        std::lock_guard lock(FStateMutex);
        FStartInterval += mw::SamplesToMilliseconds(samples, rate);
        if (FStartInterval > static_cast<int64_t>(PrefillInterval())) {
            if (FPaused) resumed = ResumeDevice();
            FStartResumed = true;
        }
    }
    if (resumed) PayMissedPumps();
}

void TQAAudioOut::EndPrefill() {
    bool resumed = false;
    {
        std::lock_guard lock(FStateMutex);
        if (!FStartResumed && FPaused) {
            resumed = ResumeDevice();
            FStartResumed = true;
        }
    }
    if (resumed) PayMissedPumps();
}

void TQAAudioOut::IntPause() {
    {
        std::lock_guard lock(FStateMutex);
        FPaused = true;
        if (HWAVEOUT h = HOut) waveOutPause(h);
    }
    NotifyPlayedOut();
}

void TQAAudioOut::IntResume() {
    bool resumed;
    {
        std::lock_guard lock(FStateMutex);
        resumed = ResumeDevice();
    }
    if (resumed) PayMissedPumps();
}

bool TQAAudioOut::ResumeDevice() {
    if (!Enabled() || !FPaused) return false;
    FResumed = true;
    FPaused = false;
    if (HWAVEOUT h = HOut) {
        MMRESULT r = waveOutRestart(h);
        if (r != MMSYSERR_NOERROR) Error(kCantRestart, r);
    }
    return true;
}

void TQAAudioOut::PayMissedPumps() {
    for (int32_t n = FMissedPumps; n >= 1; n = FMissedPumps) {
        if (FMissedPumps.compare_exchange_weak(n, n - 1)) InputPin()->MasterPump(this);
    }
}

// -- The wave thread

void TQAAudioOut::ProcessMessage(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) {
    try {
        switch (uMsg) {
            case WOM_OPEN:
                WOMOpen();
                break;
            case WOM_CLOSE:
                WOMClose();
                break;
            case WOM_DONE:
                WOMDone(hwo, header);
                break;
            default:
                break;
        }
    } catch (...) {
        // The wave thread must go on giving buffers back: the failure goes to the
        // application's handler on the main thread instead.
        MainThreadExecute(
            this, false, [e = std::current_exception()] { std::rethrow_exception(e); }, false);
    }
}

void TQAAudioOut::WOMDone(HWAVEOUT, WAVEHDR* header) {
    FParams->Lock();
    std::vector<TQAWaveBuffer*>& list = FParams->GetList();
    auto found = std::find_if(list.begin(), list.end(),
                              [header](TQAWaveBuffer* b) { return &b->WaveHdr == header; });
    if (!FParams->GetIsOpen() || found == list.end()) {
        FParams->Unlock();
        return;
    }
    if (FParams->GetIsPump() || ClockOutputPin()->IsConnected()) {
        const bool isPump = FParams->GetIsPump();
        FParams->Unlock();
        // Unlocked: the source may deliver the next buffer within these calls.
        if (FPaused) ++FMissedPumps;
        TQAWaveFormatExtensible format{};
        CurrentFormat(format);
        ClockOutputPin()->Clock(
            format.nBlockAlign ? static_cast<int>(header->dwBufferLength / format.nBlockAlign) : 0);
        if (isPump) InputPin()->MasterPump(this);
        FParams->Lock();
    }
    // The list may have changed meanwhile; the buffer is still in it, since only this thread
    // frees buffers while the device is open and a stop waits for this thread.
    std::vector<TQAWaveBuffer*>& after = FParams->GetList();
    auto it = std::find_if(after.begin(), after.end(),
                           [header](TQAWaveBuffer* b) { return &b->WaveHdr == header; });
    if (it != after.end()) {
        TQAWaveBuffer* buffer = *it;
        waveOutUnprepareHeader(buffer->HOut, &buffer->WaveHdr, sizeof(WAVEHDR));
        after.erase(it);
        delete buffer;
        ++FBuffersPlayed;
    }
    if (after.empty()) {
        FOnQueueEmptySection->Enter();
        if (FOnQueueEmpty)
            MainThreadExecute(
                this, false, [this] { FireQueueEmpty(); }, false);
        FOnQueueEmptySection->Leave();
    }
    FParams->Unlock();
    NotifyPlayedOut();
    ProcessQueue();
}

void TQAAudioOut::FireQueueEmpty() {
    std::function<void(TObject*)> handler = OnQueueEmpty();
    if (handler) handler(this);
}

// ---- Registration

namespace QAAudioOut {
void RegisterPkg() {
    AddCategoryAttribute(TQAAudioOut::StaticClass(), TQuatoneOutputToolbarCategory());
    RegisterComponents("Quatone", {TQAAudioOut::StaticClass()});
}
}  // namespace QAAudioOut
