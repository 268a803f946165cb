#include "frame/Threads.h"

#include <pthread.h>
#include <sys/resource.h>

#include <cstdio>

#include "winuser.h"

// ---- locks and waitable objects

TCriticalSection::TCriticalSection() {
    InitializeCriticalSection(&FSection);
}
TCriticalSection::~TCriticalSection() {
    DeleteCriticalSection(&FSection);
}
void TCriticalSection::Enter() {
    EnterCriticalSection(&FSection);
}
void TCriticalSection::Leave() {
    LeaveCriticalSection(&FSection);
}
bool TCriticalSection::TryEnter() {
    return TryEnterCriticalSection(&FSection) != FALSE;
}

namespace {
TWaitResult ToWaitResult(DWORD result) {
    switch (result) {
        case WAIT_OBJECT_0:
            return wrSignaled;
        case WAIT_TIMEOUT:
            return wrTimeout;
        case WAIT_ABANDONED:
            return wrAbandoned;
        default:
            return wrError;
    }
}
}  // namespace

TEvent::TEvent(TEventResetMode resetMode, bool initialState)
    : FHandle(CreateEventW(nullptr, resetMode == TEventResetMode::Manual, initialState, nullptr)) {}
TEvent::~TEvent() {
    CloseHandle(FHandle);
}
void TEvent::SetEvent() {
    ::SetEvent(FHandle);
}
void TEvent::ResetEvent() {
    ::ResetEvent(FHandle);
}
TWaitResult TEvent::WaitFor(DWORD timeoutMs) {
    return ToWaitResult(WaitForSingleObject(FHandle, timeoutMs));
}

// A semaphore with impossible counts has no handle; its operations then fail (false, wrError).
TSemaphore::TSemaphore(LONG initialCount, LONG maximumCount)
    : FHandle(CreateSemaphoreW(nullptr, initialCount, maximumCount, nullptr)) {}
TSemaphore::~TSemaphore() {
    if (FHandle) CloseHandle(FHandle);
}
bool TSemaphore::ReleaseCount(LONG count) {
    return ReleaseSemaphore(FHandle, count, nullptr) != FALSE;
}
TWaitResult TSemaphore::WaitFor(DWORD timeoutMs) {
    return ToWaitResult(WaitForSingleObject(FHandle, timeoutMs));
}

// ---- thread exceptions

namespace {
std::mutex& HandlerLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}
mw::ThreadExceptionHandler& Handler() {
    static mw::ThreadExceptionHandler* handler = new mw::ThreadExceptionHandler;
    return *handler;
}

void ReportThreadException(TThread& thread, std::exception_ptr e) {
    mw::ThreadExceptionHandler handler;
    {
        std::lock_guard<std::mutex> lock(HandlerLock());
        handler = Handler();
    }
    if (handler) {
        handler(thread, e);
        return;
    }
    const char* name =
        thread.ThreadName().empty() ? thread.ClassName() : thread.ThreadName().c_str();
    try {
        std::rethrow_exception(e);
    } catch (const std::exception& x) {
        std::fprintf(stderr, "mediawire: thread %s ended by an exception: %s\n", name, x.what());
    } catch (...) {
        std::fprintf(stderr, "mediawire: thread %s ended by an unknown exception\n", name);
    }
}

// Nice values for the priorities: what a thread may set for itself on Linux. Lowering always
// works; raising needs the right to (CAP_SYS_NICE or RLIMIT_NICE) and is skipped without it.
constexpr int kNiceOf[] = {19, 10, 5, 0, -5, -10, -15};
}  // namespace

namespace mw {
void SetThreadExceptionHandler(ThreadExceptionHandler handler) {
    std::lock_guard<std::mutex> lock(HandlerLock());
    Handler() = std::move(handler);
}
}  // namespace mw

// ---- TThread

TThread::TThread() = default;

TThread::~TThread() {
    if (!FThread.joinable()) return;
    if (FThread.get_id() == std::this_thread::get_id()) {
        FThread.detach();  // deleting itself after Execute returned
    } else {
        FTerminated = true;
        FThread.join();
    }
}

void TThread::Start() {
    if (FStarted.exchange(true)) return;
    std::lock_guard<std::mutex> lock(FStateLock);  // ThreadProc waits for FThread to be set
    FThread = std::thread([this] { ThreadProc(); });
}

void TThread::Terminate() {
    FTerminated = true;
}

bool TThread::Finished() const {
    std::lock_guard<std::mutex> lock(FStateLock);
    return FFinished;
}

bool TThread::IsCurrentThread() const {
    return FThreadID.load() == GetCurrentThreadId();
}

DWORD TThread::WaitFor() {
    if (!FStarted.load() || IsCurrentThread()) return ReturnValue;
    if (mw::MainLoop::IsMainThread()) {
        // The worker may be waiting for a synchronous main-thread call: keep serving them.
        while (!Finished()) {
            mw::MainLoop::ProcessPending();
            if (Finished()) break;
            mw::MainLoop::WaitForWork(20);
        }
    } else {
        std::unique_lock<std::mutex> lock(FStateLock);
        FFinishedChanged.wait(lock, [this] { return FFinished; });
    }
    return ReturnValue;
}

void TThread::SetPriority(TThreadPriority priority) {
    int p = static_cast<int>(priority);
    p = p < tpIdle ? tpIdle : p > tpTimeCritical ? tpTimeCritical : p;
    FPriority = p;
    ApplyPriority();
}

void TThread::ApplyPriority() {
    DWORD tid = FThreadID.load();
    if (tid == 0 || Finished()) return;  // applied when the thread starts; never to a stale id
    // Best effort by design: without the right to raise it the thread keeps its present nice.
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(tid), kNiceOf[FPriority.load()]);
}

std::exception_ptr TThread::FatalException() const {
    std::lock_guard<std::mutex> lock(FStateLock);
    return FFatalException;
}

void TThread::ThreadProc() {
    { std::lock_guard<std::mutex> lock(FStateLock); }  // Start has stored FThread
    FThreadID = GetCurrentThreadId();
    if (!FName.empty()) pthread_setname_np(pthread_self(), FName.substr(0, 15).c_str());
    if (FPriority.load() != tpNormal) ApplyPriority();

    std::exception_ptr fatal;
    try {
        if (!Terminated()) Execute();
    } catch (...) {
        fatal = std::current_exception();
    }
    if (fatal) {
        {
            std::lock_guard<std::mutex> lock(FStateLock);
            FFatalException = fatal;
        }
        ReportThreadException(*this, fatal);
    }
    const bool freeSelf = FFreeWhenFinished;
    {
        std::lock_guard<std::mutex> lock(FStateLock);
        FFinished = true;
        FFinishedChanged.notify_all();
    }
    // From here on a waiter may delete this object; its destructor joins this thread.
    mw::MainLoop::Wake();
    if (freeSelf) delete this;
}

// ---- TBasicThread

TBasicThread::TBasicThread(TComponent* owner, std::string name, bool createSuspended)
    : FOwner(owner),
      FTerminateEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      FCreateSuspended(createSuspended) {
    SetThreadName(std::move(name));
}

TBasicThread::~TBasicThread() {
    // Deleted directly instead of through Release: stop the loop while this part still stands.
    if (Started() && !Finished() && !IsCurrentThread()) {
        TBasicThread::Terminate();
        TThread::WaitFor();
    }
    CloseHandle(FTerminateEvent);
}

STDMETHODIMP TBasicThread::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (IsEqualIID(riid, IID_IUnknown))
        *ppv = static_cast<IUnknown*>(static_cast<IThread*>(this));
    else if (IsEqualIID(riid, IID_IThread))
        *ppv = static_cast<IThread*>(this);
    else if (!QueryOther(riid, ppv))
        return E_NOINTERFACE;
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) TBasicThread::AddRef() {
    ULONG n = FRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
    // The first reference is taken once the constructors have run: the thread may start.
    if (n == 1 && !FCreateSuspended) Start();
    return n;
}

STDMETHODIMP_(ULONG) TBasicThread::Release() {
    ULONG n = FRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (n != 0) return n;
    Terminate();
    if (IsCurrentThread()) {
        FreeWhenFinished();  // the loop returns and the thread deletes the object
    } else {
        TThread::WaitFor();
        delete this;
    }
    return 0;
}

bool TBasicThread::QueryOther(REFIID, void**) {
    return false;
}

void TBasicThread::Terminate() {
    TThread::Terminate();
    ::SetEvent(FTerminateEvent);
}

bool TBasicThread::IsTerminated() {
    return Terminated();
}

void TBasicThread::Execute() {
    IntExecute();
}

void TBasicThread::IntExecute() {
    while (!IsTerminated())
        ExecuteLoop();
}

void TBasicThread::ExecuteLoop() {
    WaitForSingleObject(FTerminateEvent, INFINITE);
}

// ---- TProcessingThread

TProcessingThread::TProcessingThread(TComponent* owner, TProcessClosure closure)
    : TBasicThread(owner, "TProcessingThread"),
      FClosure(std::move(closure)),
      FWakeEvent(MwNew<TEvent>(TEventResetMode::Auto, false)) {}

TProcessingThread::~TProcessingThread() {
    if (Started() && !Finished() && !IsCurrentThread()) {
        TProcessingThread::Terminate();
        TThread::WaitFor();
    }
}

void TProcessingThread::WakeUp() {
    FWakeEvent->SetEvent();
}

void TProcessingThread::Terminate() {
    TBasicThread::Terminate();
    FWakeEvent->SetEvent();
}

void TProcessingThread::ExecuteLoop() {
    FWakeEvent->WaitFor(INFINITE);
    if (IsTerminated()) return;
    FClosure(this);
}

bool TProcessingThread::QueryOther(REFIID riid, void** ppv) {
    if (IsEqualIID(riid, IID_IProcessingThread)) {
        *ppv = static_cast<IProcessingThread*>(this);
        return true;
    }
    return TBasicThread::QueryOther(riid, ppv);
}
