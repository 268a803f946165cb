// The wave device thread and the state that the wave output shares between its threads.
//
// The wave device reports finished buffers through WaveCallback on a thread of the platform,
// where no component code may run: the callback only queues the message and wakes a
// TQAWaveThread, which calls its owner's closure on its own thread at the highest priority.
// The owner creates one thread before it opens a device and drops it after the device was
// reset; once the last reference is gone no message reaches the closure any more, and records
// still queued are freed undelivered. TQAAudioParams holds the open and pump flags and the list
// of buffers in flight; its accessors don't lock, callers hold Lock().
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "frame/Threads.h"
#include "mmsystem.h"

class TComponent;
class TQAWaveBuffer;

// (message, device handle, header) on the wave thread.
using TQAWaveProcessMessage = std::function<void(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header)>;

// One queued message of the device.
struct TQAWaveItemNode {
    TQAWaveItemNode* Next = nullptr;
    HGLOBAL HMem = nullptr;  // the global block the node lives in
    HWAVEOUT hwo = nullptr;
    uint32_t uMsg = 0;
    WAVEHDR* WaveHdr = nullptr;
};
using PQAWaveItemNode = TQAWaveItemNode*;

// {6C1B9D0E-2F4A-4E77-9B1C-5A8E3D2F7C41}
DEFINE_GUID(IID_IQAWaveThread, 0x6c1b9d0e, 0x2f4a, 0x4e77, 0x9b, 0x1c, 0x5a, 0x8e, 0x3d, 0x2f, 0x7c,
            0x41);
struct IQAWaveThread : virtual IThread {
    // Any thread, the device's callback included: queues one message and wakes the thread.
    // Does nothing once the thread is terminated.
    virtual void PushRecord(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) = 0;
    // Drops every queued message. The thread may wake for them later and then finds nothing.
    virtual void ClearRecords() = 0;
    // The section of the queue: held around ClearRecords by a stop, so that no message is
    // between being popped and being delivered while the queue is cleared.
    virtual void Lock() = 0;
    virtual void Unlock() = 0;
    // The value to pass as the instance of waveOutOpen together with WaveCallback. It is a
    // number of a table of live threads, not an address: a message for a thread that is gone
    // finds no entry and vanishes.
    virtual DWORD_PTR Instance() = 0;
};
MW_DECLARE_IID(IQAWaveThread, IID_IQAWaveThread);
MW_INTERFACE_BASE(IQAWaveThread, IThread);

// The callback given to waveOutOpen, on a thread of the platform: pushes the message to the
// thread that dwInstance names, with dwParam1 as the header. A zero instance (a device opened
// only to probe it) or a thread that is gone records nothing.
void CALLBACK WaveCallback(HWAVEOUT hwo, UINT uMsg, DWORD_PTR dwInstance, DWORD_PTR dwParam1,
                           DWORD_PTR dwParam2);

class TQAWaveThread : public TBasicThread, public IQAWaveThread {
    MW_CLASS(TQAWaveThread, TBasicThread)
public:
    // Runs at the highest priority; the thread starts with the first reference taken.
    TQAWaveThread(TComponent* owner, TQAWaveProcessMessage onProcess);
    ~TQAWaveThread() override;

    void PushRecord(uint32_t uMsg, HWAVEOUT hwo, WAVEHDR* header) override;
    void ClearRecords() override;
    void Lock() override { FSection->Enter(); }
    void Unlock() override { FSection->Leave(); }
    DWORD_PTR Instance() override { return FInstance; }
    // Takes the head of the queue; false when it is empty.
    bool PopRecord(uint32_t& uMsg, HWAVEOUT& hwo, WAVEHDR*& header);

    // Stops the loop, wakes it and waits for it (at once when called on the thread itself).
    void Terminate() override;

    // The wave thread running the calling code, or null on any other thread.
    static TQAWaveThread* Current();

protected:
    void IntExecute() override;
    bool QueryOther(REFIID riid, void** ppv) override;

private:
    void Unregister();
    static void FreeNodes(PQAWaveItemNode node);
    TQAWaveProcessMessage FOnProcess;
    ComPtr<ISemaphore> FSemaphore;
    PQAWaveItemNode FFirstNode = nullptr;
    PQAWaveItemNode FLastNode = nullptr;
    PQAWaveItemNode FFreeNodes = nullptr;  // delivered nodes kept for the next records
    ComPtr<ICriticalSection> FSection;
    DWORD_PTR FInstance = 0;
};

// The state of a wave output shared by the sender's thread, the wave thread and the main
// thread: whether a device is open, whether the component drives the pump, and the buffers
// the device holds.
// {0E5F3A27-8B6C-4D1E-A2F9-7C4B1D8E3A65}
DEFINE_GUID(IID_IQAAudioParams, 0x0e5f3a27, 0x8b6c, 0x4d1e, 0xa2, 0xf9, 0x7c, 0x4b, 0x1d, 0x8e,
            0x3a, 0x65);
struct IQAAudioParams : IUnknown {
    virtual bool GetIsOpen() = 0;
    virtual void SetIsOpen(bool value) = 0;
    virtual bool GetIsPump() = 0;
    virtual void SetIsPump(bool value) = 0;
    virtual std::vector<TQAWaveBuffer*>& GetList() = 0;
    virtual void Lock() = 0;
    virtual void Unlock() = 0;
};
MW_DECLARE_IID(IQAAudioParams, IID_IQAAudioParams);

class TQAAudioParams : public TInterfacedObject<IQAAudioParams> {
    MW_CLASS(TQAAudioParams, TInterfacedObject<IQAAudioParams>)
public:
    TQAAudioParams();
    bool GetIsOpen() override { return FIsOpen; }
    void SetIsOpen(bool value) override { FIsOpen = value; }
    bool GetIsPump() override { return FIsPump; }
    void SetIsPump(bool value) override { FIsPump = value; }
    // The buffers in flight; the list does not own them.
    std::vector<TQAWaveBuffer*>& GetList() override { return FBufferList; }
    void Lock() override { FSection->Enter(); }
    void Unlock() override { FSection->Leave(); }

private:
    bool FIsOpen = false;
    bool FIsPump = false;
    std::vector<TQAWaveBuffer*> FBufferList;
    ComPtr<ICriticalSection> FSection;
};
