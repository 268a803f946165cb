// TQAAudioOut plays the audio stream of its input pin through a wave device.
//
// A start opens the device for the stream's format, paused until PrefillInterval milliseconds
// are written (or the stop arrives); each buffer is one wave header. Finished buffers come back
// on the wave thread (TQAWaveThread), which ticks the clock pin, pulls the next buffer when the
// output drives the pump, frees the buffer and drains the queue. Operations arrive on the
// sender's thread, which never waits for the device to play. A start after a stop is heard
// after the stopped stream has played out: while the device still plays it, the start waits
// at the head of the queue (with what follows it) and the sender returns; the last finished
// buffer drains the queue again. A start that reopens the device (after a stop) is always
// processed, with what follows it, by a short-lived start worker thread: not by the sender,
// the wave thread or the main thread, so a program that never drains its main-thread queue
// still hears the next stream.
// A flush drops the queued buffers and what the device holds, never a queued start or stop.
// OnError/OnWarning run on the thread that failed, OnQueueEmpty on the main thread. Stop and
// Close end the start worker and drop what was queued: afterwards no device, wave thread,
// worker or buffer is held. After destruction no event is called.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "audio_out/QABasicAudioOut.h"
#include "audio_out/QAWaveThread.h"
#include "frame/Containers.h"
#include "frame/OperationList.h"
#include "frame/QSData.h"
#include "frame/QSErrors.h"

class TQAAudioOut;
class TQAAudioOutDevice;

// One buffer in flight: the header the device holds and the samples it reads.
class TQAWaveBuffer {
public:
    HWAVEOUT HOut = nullptr;
    WAVEHDR WaveHdr{};
    ComPtr<IQAAudioBuffer> Data;  // keeps the samples alive while the device reads them
};

// One alternative device, by name.
class TQAAudioOutDeviceItem : public TLockCollectionItem {
    MW_CLASS(TQAAudioOutDeviceItem, TLockCollectionItem)
public:
    explicit TQAAudioOutDeviceItem(TCollection* collection) : TLockCollectionItem(collection) {}

    std::string DeviceName() const;
    void SetDeviceName(const std::string& value) {
        Setters().Setter(FDeviceName, value, Notifier());
    }
    std::string GetDisplayName() const override { return DeviceName(); }

    static void Publish(TPropertyList& p) {
        p.AddNoDefault<TQAAudioOutDeviceItem>("DeviceName", &TQAAudioOutDeviceItem::DeviceName,
                                              &TQAAudioOutDeviceItem::SetDeviceName);
    }

private:
    std::string FDeviceName;
};

// The devices tried in order when the chosen one is not there. A new item names the device
// that the fewest items name so far.
using TQAAudioOutDeviceItemsBase =
    TTypedOwnerPropertyCollection<TQAAudioOutDevice, TQAAudioOutDeviceItem>;
class TQAAudioOutDeviceItems : public TQAAudioOutDeviceItemsBase {
    MW_CLASS(TQAAudioOutDeviceItems, TQAAudioOutDeviceItemsBase)
public:
    using TTypedOwnerPropertyCollection::TTypedOwnerPropertyCollection;

    // The number of items naming exactly this device.
    int GetCountChannelsOfDevice(const std::string& name) const;
    // The device least named so far (ties to the earlier device), or "Default".
    std::string GetNewDevice() const;
    void NewItemCreated(TCollectionItem* item) override;
};

// The choice of the device: a name ("Default" for the default device, in any case) and the
// alternatives tried when no device has that name.
class TQAAudioOutDevice : public TLockPersistent {
    MW_CLASS(TQAAudioOutDevice, TLockPersistent)
public:
    explicit TQAAudioOutDevice(TQAAudioOut* component);
    ~TQAAudioOutDevice() override;

    TQAAudioOutDeviceItems* AlternativeDevices() const { return FAlternativeDevices.get(); }
    std::string DeviceName() const;
    void SetDeviceName(const std::string& value) {
        Setters().Setter(FDeviceName, value, Notifier());
    }

    // The device number to open: WAVE_MAPPER for the default device, else the first device
    // found by DeviceName and then by the alternatives in order; WAVE_MAPPER when none is.
    UINT GetDeviceID() const;
    // The number of the first device whose name is exactly `name` (case included);
    // WAVE_MAPPER when there is none. When a device's capabilities can't be read it warns and
    // answers 0, the first device.
    UINT GetDeviceIDFromName(const std::string& name) const;
    // The names of all output devices in order; warns and stops at a device it can't read.
    std::vector<std::string> GetDeviceList() const;
    void GetDeviceList(IStringArrayList* list) const;

    // There is no dialog on this platform: the device is chosen by the handler installed with
    // SetDeviceSelectHandler (a text menu of a command-line tool, a test), which gets the
    // device list and the current name. True when the handler chose a device, which then
    // becomes DeviceName; false, and nothing changed, without a handler or when it declined.
    bool ShowDeviceSelctDialog();
    using TDeviceSelectHandler =
        std::function<bool(const std::vector<std::string>& devices, std::string& selected)>;
    static void SetDeviceSelectHandler(TDeviceSelectHandler handler);

    TQAAudioOut* Component() const { return FComponent; }

    static void Publish(TPropertyList& p);

private:
    TQAAudioOut* FComponent;
    TOwned<TQAAudioOutDeviceItems> FAlternativeDevices;
    std::string FDeviceName = "Default";
};

// Counters of an output.
struct TQAAudioOutStats {
    uint64_t BuffersPlayed = 0;  // buffers the device gave back since the output was created
    bool DeviceOpen = false;     // the rest describes the open device
    uint64_t FramesPlayed = 0;
    uint64_t Underruns = 0;
};

class TQAAudioOut : public TQABasicAudioOut {
    MW_CLASS(TQAAudioOut, TQABasicAudioOut)
public:
    explicit TQAAudioOut(TComponent* owner);
    ~TQAAudioOut() override;

    // Opens the device for CurrentFormat when none is open, without pausing it; true when it
    // did. A failed open closes again.
    bool Open();
    // Stop(true).
    void Close();
    // Ends playing, closes the device and drops the queued operations; with clearPump the
    // output no longer drives the pump. Any thread but the wave thread.
    void Stop(bool clearPump);
    // Drops the queued buffers and what the device holds; prefill starts over. Queued starts,
    // stops and pauses stay.
    void Flush();
    // OnError, then EQSException unless handled or at design time.
    void Error(const std::string& text, uint32_t code);
    void Warning(const std::string& text, uint32_t code);

    uint32_t PrefillInterval() const { return FPrefillNow; }
    void SetPrefillInterval(uint32_t value);
    TQAAudioOutDevice* Device() const { return FDevice.get(); }
    void SetDevice(const TQAAudioOutDevice& value) { FDevice->Assign(value); }

    TQSErrorEvent OnError() const;
    void SetOnError(TQSErrorEvent handler);
    TQSWarningEvent OnWarning() const;
    void SetOnWarning(TQSWarningEvent handler);
    std::function<void(TObject* sender)> OnQueueEmpty() const;
    void SetOnQueueEmpty(std::function<void(TObject* sender)> handler);

    // The names of the output devices, in the order of their numbers.
    std::vector<std::string> GetDeviceList() const { return FDevice->GetDeviceList(); }
    bool IsOpen() const;
    // Buffers given to the device and not yet given back.
    int BuffersInFlight() const;
    TQAAudioOutStats Stats() const;
    // Stops running now, on any thread (a test learns that a Stop has begun).
    int StopsRunning() const { return FStopsRunning; }

    static void Publish(TPropertyList& p);

protected:
    void SinkDispatch(IQWNotifyOperation* operation) override;
    void EnableChanged() override;
    void StopWork() override;
    // On the wave thread: one message of the device.
    void ProcessMessage(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header);

private:
    // True when this thread drained the queue (false: another thread was draining it).
    bool ProcessQueue();
    bool IntDispatch(IQWNotifyOperation* operation);
    // Has the queued start processed on the start worker, a short-lived thread of its own.
    void RequestStartWorker();
    void RunStartWorker();
    bool StoppedStreamPlays() const;
    void NotifyPlayedOut();
    // The device part of Stop, also used by a start that reopens the device.
    void IntStop(bool clearPump);
    // Drops every queued operation, keeping the counts of queued starts, stops and buffers.
    void DropQueue();
    void AudioStreamStart(const TQAWaveFormatExtensible& format);
    void Play(const ComPtr<IQAAudioBuffer>& buffer);
    void IntPause();
    void IntResume();
    // Under FStateMutex: restarts a paused device; true when it was paused.
    bool ResumeDevice();
    void PayMissedPumps();
    // Ends a prefill that is still running (a stop arrived or was processed).
    void EndPrefill();
    // On the wave thread.
    void WOMOpen() {}
    void WOMClose() {}
    void WOMDone(HWAVEOUT hwo, WAVEHDR* header);
    void FireQueueEmpty();
    DWORD OpenFlags(UINT deviceId) const;

    std::atomic<HWAVEOUT> HOut{nullptr};
    uint32_t FPrefillInterval = 300;
    std::atomic<uint32_t> FPrefillNow{300};
    ComPtr<IQAAudioParams> FParams;
    std::atomic<bool> FStopped{false};
    TOwned<TQAAudioOutDevice> FDevice;
    ComPtr<IQAWaveThread> FWaveThread;  // under FParams
    std::atomic<bool> FResumed{false};
    std::atomic<bool> FPaused{false};
    std::atomic<int32_t> FMissedPumps{0};
    ComPtr<IQSOperationList> FBufferQueue;
    std::atomic<bool> FStartResumed{false};
    std::atomic<int32_t> FStopping{0};
    std::atomic<int64_t> FStartInterval{0};
    ComPtr<ICriticalSection> FOnQueueEmptySection;
    mutable std::mutex FEventsMutex;  // guards FOnError and FOnWarning
    TQSErrorEvent FOnError;
    TQSWarningEvent FOnWarning;
    std::function<void(TObject*)> FOnQueueEmpty;
    // One thread drains the queue at a time; the others leave it to that one.
    std::atomic<bool> FDraining{false};
    std::atomic<bool> FDrainRequested{false};
    std::atomic<uint64_t> FBuffersPlayed{0};
    // The pause, prefill and run state (FPaused, FResumed, FStartResumed, FStartInterval) is
    // written only under this lock, together with the device call that matches it (pause,
    // restart, the reset of a flush), so the flags and the device can't disagree. Order: the
    // component lock, then this, then FParams.
    std::recursive_mutex FStateMutex;
    // Stops running now; a start is not processed while one runs (it would reopen the device
    // that the stop is closing).
    std::atomic<int> FStopsRunning{0};
    // Buffer operations queued, and how many of the first of them a flush dropped.
    std::mutex FSkipMutex;
    int64_t FQueuedBuffers = 0;  // under FSkipMutex
    int64_t FSkipBuffers = 0;    // under FSkipMutex
    // Signalled when a stopped stream may have played out (a buffer came back, a stop, a flush
    // or a pause) and when a drain ends.
    std::mutex FPlayedOutMutex;
    std::condition_variable FPlayedOutChanged;
    // The start worker: reopens the device for a start that waited for the stopped stream,
    // off the wave thread and off the main thread. A public stop joins it and keeps a new one
    // from starting while it runs (FStartWorkerBlocks).
    std::mutex FStartWorkerMutex;
    std::thread FStartWorker;                      // under FStartWorkerMutex
    std::atomic<bool> FStartWorkerRunning{false};  // written under FStartWorkerMutex
    bool FStartWorkerWanted = false;               // under FStartWorkerMutex
    std::atomic<int> FStartWorkerBlocks{0};        // written under FStartWorkerMutex
};

// The palette entry of this unit: TQAAudioOut, category TQuatoneOutputToolbarCategory, bitmaps
// named after the class. Also makes it known to form files.
namespace QAAudioOut {
void RegisterPkg();
}
