#include "frame/MainThread.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "winbase.h"
#include "winuser.h"

namespace {

// A call a worker waits for. Finished exactly once: after the closure ran or threw on the main
// thread, or unrun when the queue drops it.
struct SyncCall {
    std::mutex lock;
    std::condition_variable done;
    bool finished = false;
    bool ran = false;
    std::exception_ptr error;

    void Finish(bool hasRun, std::exception_ptr e) {
        std::lock_guard<std::mutex> g(lock);
        if (finished) return;
        finished = true;
        ran = hasRun;
        error = std::move(e);
        done.notify_all();
    }
};

// Travels inside the queued closure; if the closure is destroyed unrun, the caller is released.
struct SyncTicket {
    std::shared_ptr<SyncCall> call;
    ~SyncTicket() {
        if (call) call->Finish(false, nullptr);
    }
};

std::atomic<bool> gTerminated{false};

}  // namespace

bool MainThreadExecute(TObject* owner, bool wait, std::function<void()> closure, bool defer) {
    const void* tag = owner;
    if (mw::MainLoop::IsMainThread()) {
        if (defer && !wait) return mw::MainLoop::Post(std::move(closure), tag);
        if (owner && mw::MainLoop::IsOwnerBlocked(tag)) return false;
        if (wait) {
            closure();
            return true;
        }
        try {
            closure();
        } catch (...) {
            mw::MainLoop::ReportException(std::current_exception());
        }
        return true;
    }
    if (!wait) return mw::MainLoop::Post(std::move(closure), tag);

    auto call = std::make_shared<SyncCall>();
    auto ticket = std::make_shared<SyncTicket>();
    ticket->call = call;
    bool queued = mw::MainLoop::Post(
        [ticket = std::move(ticket), closure = std::move(closure)] {
            // The exception leaves this thread for good: no reference to it stays here once
            // the caller is released.
            std::exception_ptr error;
            try {
                closure();
            } catch (...) {
                error = std::current_exception();
            }
            ticket->call->Finish(true, std::move(error));
        },
        tag);
    if (!queued) return false;
    std::exception_ptr error;
    bool ran;
    {
        std::unique_lock<std::mutex> lock(call->lock);
        call->done.wait(lock, [&] { return call->finished; });
        error = std::move(call->error);
        ran = call->ran;
    }
    if (error) std::rethrow_exception(std::move(error));
    return ran;
}

namespace mw {

void CancelMainThreadCalls(const TObject* owner) {
    MainLoop::Cancel(owner);
}

MainThreadCallBlock::MainThreadCallBlock(const TObject* owner) : FOwner(owner) {
    MainLoop::BlockOwner(FOwner);
}

MainThreadCallBlock::~MainThreadCallBlock() {
    MainLoop::UnblockOwner(FOwner);
}

bool IsMainThread() {
    return MainLoop::IsMainThread();
}

}  // namespace mw

void Application::ProcessMessages() {
    mw::MainLoop::ProcessPending();
}

void Application::HandleMessage() {
    if (!mw::MainLoop::IsMainThread()) return;
    if (mw::MainLoop::ProcessOne()) return;
    while (!gTerminated.load()) {
        mw::MainLoop::WaitForWork(INFINITE);
        if (mw::MainLoop::ProcessOne()) return;
    }
}

void Application::Run() {
    if (!mw::MainLoop::IsMainThread()) return;
    while (!gTerminated.load())
        HandleMessage();
    gTerminated = false;
}

void Application::Terminate() {
    gTerminated = true;
    mw::MainLoop::Wake();
}

bool Application::Terminated() {
    return gTerminated.load();
}

void Application::SetOnException(std::function<void(std::exception_ptr)> handler) {
    mw::MainLoop::SetExceptionHandler(std::move(handler));
}
