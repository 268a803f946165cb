// Locks, waitable objects and threads of the component frame.
//
// TCriticalSection, TEvent and TSemaphore are reference-counted wrappers of the platform's
// critical section, event and semaphore; TEvent and TSemaphore expose their HANDLE so that
// platform code (a clock's advise, a device) can signal them. All of them may be used from any
// thread.
//
// TThread is the class library's thread: Execute runs on a thread of its own once started;
// Terminate only asks it to stop; WaitFor waits until Execute has returned. TBasicThread adds
// the IThread interface, an owner, a name and a loop: Execute calls IntExecute, which calls
// ExecuteLoop until terminated. A TBasicThread starts when the first reference to it is taken
// (after its constructors have all run, as with MwNew) unless it was created suspended; when the
// last reference goes it terminates, waits for its thread and is deleted, so that nothing of it
// runs after its last Release returns. TProcessingThread runs a closure once per WakeUp.
//
// An exception escaping Execute ends the thread; it is kept (FatalException) and handed to the
// thread exception handler, which by default writes it to stderr.
#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "frame/Interfaced.h"
#include "winbase.h"

class TComponent;
class TLockAccess;
class TBasicThread;
class TThread;

// Results of the waits of TEvent and TSemaphore, as the class library numbers them.
enum TWaitResult { wrSignaled, wrTimeout, wrAbandoned, wrError, wrIOCompletion };

// The platform's thread priorities. A priority is kept as given and applied as nearly as the
// process may (lower ones always; higher ones only with the right to raise priorities).
enum TThreadPriority {
    tpIdle = 0,
    tpLowest = 1,
    tpLower = 2,
    tpNormal = 3,
    tpHigher = 4,
    tpHighest = 5,
    tpTimeCritical = 6,
};

enum class TEventResetMode { Auto, Manual };

// {3DB755D7-92A9-4476-A29B-B22EBA30E4DC}
DEFINE_GUID(IID_ICriticalSection, 0x3DB755D7, 0x92A9, 0x4476, 0xA2, 0x9B, 0xB2, 0x2E, 0xBA, 0x30,
            0xE4, 0xDC);
// {C7FBDA1D-A1DF-4E20-86F1-7F93ECCFBFE0}
DEFINE_GUID(IID_IEvent, 0xC7FBDA1D, 0xA1DF, 0x4E20, 0x86, 0xF1, 0x7F, 0x93, 0xEC, 0xCF, 0xBF, 0xE0);
// {5EE9BE14-2726-446D-A1D3-743A018A5042}
DEFINE_GUID(IID_ISemaphore, 0x5EE9BE14, 0x2726, 0x446D, 0xA1, 0xD3, 0x74, 0x3A, 0x01, 0x8A, 0x50,
            0x42);
// {DD7A3BC6-139B-46B1-83D7-E0F87B0E79BB}
DEFINE_GUID(IID_IThread, 0xDD7A3BC6, 0x139B, 0x46B1, 0x83, 0xD7, 0xE0, 0xF8, 0x7B, 0x0E, 0x79,
            0xBB);
// {2E686599-AF0B-4C84-A83A-4813B612C193}
DEFINE_GUID(IID_IProcessingThread, 0x2E686599, 0xAF0B, 0x4C84, 0xA8, 0x3A, 0x48, 0x13, 0xB6, 0x12,
            0xC1, 0x93);

// A recursive lock. Enter and Leave pair up on one thread.
struct ICriticalSection : IUnknown {
    virtual void Enter() = 0;
    virtual void Leave() = 0;
    virtual TLockAccess Access() = 0;
};
MW_DECLARE_IID(ICriticalSection, IID_ICriticalSection);

// Runs closures inside a critical section: enters, runs, leaves, also when the closure throws.
// Holds a reference to the section.
class TLockAccess {
public:
    explicit TLockAccess(ICriticalSection* section) : FSection(section) {}

    template <class F>
    decltype(auto) Execute(F&& closure) const {
        FSection->Enter();
        struct Leaver {
            ICriticalSection* section;
            ~Leaver() { section->Leave(); }
        } leaver{FSection.Get()};
        return std::forward<F>(closure)();
    }

private:
    ComPtr<ICriticalSection> FSection;
};

struct IEvent : IUnknown {
    virtual HANDLE Handle() = 0;
    virtual void SetEvent() = 0;
    virtual void ResetEvent() = 0;
    virtual void Reserved0() = 0;  // a slot kept free; does nothing
    // timeoutMs may be INFINITE.
    virtual TWaitResult WaitFor(DWORD timeoutMs) = 0;
};
MW_DECLARE_IID(IEvent, IID_IEvent);

struct ISemaphore : IUnknown {
    virtual HANDLE Handle() = 0;
    // Adds count (>= 1); false, and no change, when that would pass the maximum count.
    virtual bool ReleaseCount(LONG count = 1) = 0;
    virtual TWaitResult WaitFor(DWORD timeoutMs) = 0;
};
MW_DECLARE_IID(ISemaphore, IID_ISemaphore);

// An interface that extends IThread inherits it virtually (`struct IMyThread : virtual
// IThread`), so that a class derived from TBasicThread and implementing it has one IThread,
// implemented by TBasicThread.
struct IThread : IUnknown {
    virtual void Reserved0() = 0;  // two slots kept free; they do nothing
    virtual void Reserved1() = 0;
    virtual TBasicThread* GetInstance() = 0;
    // Waits until the thread's work has ended; answers its return value.
    virtual DWORD WaitFor() = 0;
    virtual TThreadPriority GetPriority() = 0;
    virtual void SetPriority(TThreadPriority priority) = 0;
};
MW_DECLARE_IID(IThread, IID_IThread);

struct IProcessingThread : virtual IThread {
    // Any thread, returns at once: the closure runs once more on the worker after this call.
    // Wake-ups that arrive before the worker starts that run are served by the one run.
    virtual void WakeUp() = 0;
};
MW_DECLARE_IID(IProcessingThread, IID_IProcessingThread);
MW_INTERFACE_BASE(IProcessingThread, IThread);

class TCriticalSection : public TInterfacedObject<ICriticalSection> {
    MW_CLASS(TCriticalSection, TInterfacedObject<ICriticalSection>)
public:
    TCriticalSection();
    ~TCriticalSection() override;
    void Enter() override;
    void Leave() override;
    bool TryEnter();
    TLockAccess Access() override { return TLockAccess(this); }

private:
    CRITICAL_SECTION FSection;
};

class TEvent : public TInterfacedObject<IEvent> {
    MW_CLASS(TEvent, TInterfacedObject<IEvent>)
public:
    explicit TEvent(TEventResetMode resetMode = TEventResetMode::Auto, bool initialState = false);
    ~TEvent() override;
    HANDLE Handle() override { return FHandle; }
    void SetEvent() override;
    void ResetEvent() override;
    void Reserved0() override {}
    TWaitResult WaitFor(DWORD timeoutMs) override;

private:
    HANDLE FHandle;
};

class TSemaphore : public TInterfacedObject<ISemaphore> {
    MW_CLASS(TSemaphore, TInterfacedObject<ISemaphore>)
public:
    TSemaphore(LONG initialCount, LONG maximumCount);
    ~TSemaphore() override;
    HANDLE Handle() override { return FHandle; }
    bool ReleaseCount(LONG count = 1) override;
    TWaitResult WaitFor(DWORD timeoutMs) override;

private:
    HANDLE FHandle;
};

namespace mw {
// Receives exceptions that ended a thread, on that thread, after FatalException is set.
// Null restores the default, which writes the exception to stderr.
using ThreadExceptionHandler = std::function<void(TThread& thread, std::exception_ptr e)>;
void SetThreadExceptionHandler(ThreadExceptionHandler handler);
}  // namespace mw

class TThread : public TObject {
    MW_CLASS(TThread, TObject)
public:
    TThread();
    // Only a thread that is not running, or has been terminated and waited for, may be deleted:
    // deleting it waits for Execute to return, but a subclass is gone by then.
    ~TThread() override;

    // Runs Execute on a new thread; further calls do nothing.
    void Start();
    bool Started() const { return FStarted.load(); }
    // Asks the thread to stop: Terminated() becomes true. Execute decides when to return.
    virtual void Terminate();
    bool Terminated() const { return FTerminated.load(); }
    // Blocks until Execute has returned and answers ReturnValue. Returns at once for a thread
    // never started or when called on the thread itself. On the main thread it goes on running
    // the main-thread queue meanwhile, so that a worker waiting for the main thread can finish.
    virtual DWORD WaitFor();
    bool Finished() const;

    TThreadPriority Priority() const { return static_cast<TThreadPriority>(FPriority.load()); }
    // Values outside the enumeration are clamped to it.
    virtual void SetPriority(TThreadPriority priority);
    // The kernel's id of the thread once it runs, else 0.
    DWORD ThreadID() const { return FThreadID.load(); }
    const std::string& ThreadName() const { return FName; }
    // The exception that ended Execute, if any; read it after WaitFor.
    std::exception_ptr FatalException() const;

protected:
    virtual void Execute() = 0;
    // Before Start: the OS thread name (the first 15 characters).
    void SetThreadName(std::string name) { FName = std::move(name); }
    // Set by Execute; WaitFor answers it.
    std::atomic<DWORD> ReturnValue{0};
    // Set when the last reference is dropped on the thread itself: the thread deletes its
    // object after Execute has returned.
    void FreeWhenFinished() { FFreeWhenFinished = true; }
    bool IsCurrentThread() const;

private:
    void ThreadProc();
    void ApplyPriority();

    std::thread FThread;
    std::string FName;
    std::atomic<bool> FStarted{false};
    std::atomic<bool> FTerminated{false};
    std::atomic<int> FPriority{tpNormal};
    std::atomic<DWORD> FThreadID{0};
    bool FFreeWhenFinished = false;  // touched by the thread itself only

    mutable std::mutex FStateLock;
    std::condition_variable FFinishedChanged;
    bool FFinished = false;
    std::exception_ptr FFatalException;
};

class TBasicThread : public TThread, public virtual IThread {
    MW_CLASS(TBasicThread, TThread)
public:
    // owner: the component the thread works for (kept, not used for lifetime). name: the
    // thread's name, by custom the class name of the subclass. Not suspended: the thread starts
    // with the first reference taken to it.
    TBasicThread(TComponent* owner, std::string name, bool createSuspended = false);
    ~TBasicThread() override;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    void Reserved0() override {}
    void Reserved1() override {}
    TBasicThread* GetInstance() override { return this; }
    DWORD WaitFor() override { return TThread::WaitFor(); }
    TThreadPriority GetPriority() override { return Priority(); }
    void SetPriority(TThreadPriority priority) override { TThread::SetPriority(priority); }

    // Sets Terminated and the terminate event. A subclass that blocks on something else wakes
    // itself here (calling the inherited Terminate too).
    void Terminate() override;
    virtual bool IsTerminated();
    TComponent* Owner() const { return FOwner; }
    // Manual-reset event set by Terminate; loops may wait on it beside their own handles.
    HANDLE TerminateEvent() const { return FTerminateEvent; }

protected:
    void Execute() override;
    // The thread's body; the inherited one calls ExecuteLoop until terminated.
    virtual void IntExecute();
    // One pass of work; the inherited one waits until the thread is terminated.
    virtual void ExecuteLoop();
    // Further interfaces answered by a subclass; fill *ppv without adding a reference.
    virtual bool QueryOther(REFIID riid, void** ppv);

private:
    TComponent* FOwner;
    HANDLE FTerminateEvent;
    const bool FCreateSuspended;
    std::atomic<ULONG> FRefCount{0};
};

class TProcessingThread : public TBasicThread, public IProcessingThread {
    MW_CLASS(TProcessingThread, TBasicThread)
public:
    using TProcessClosure = std::function<void(IProcessingThread* thread)>;
    // The closure runs on the worker, once per wake-up (see IProcessingThread::WakeUp).
    TProcessingThread(TComponent* owner, TProcessClosure closure);
    ~TProcessingThread() override;

    void WakeUp() override;
    void Terminate() override;

protected:
    void ExecuteLoop() override;
    bool QueryOther(REFIID riid, void** ppv) override;

private:
    TProcessClosure FClosure;
    ComPtr<IEvent> FWakeEvent;
};
