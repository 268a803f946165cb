// Running work on the main thread, and the application's loop that does it.
//
// MainThreadExecute hands a closure to the main thread from any thread. The closures, and the
// messages of the platform's message windows, wait in one queue and run in the order they were
// queued when the main thread drains it through Application (ProcessMessages, HandleMessage,
// Run) or while it waits for a thread (TThread::WaitFor). On the main thread itself a call runs
// at once, so the main thread never waits for itself.
//
// A component whose closures may still be queued drops them before it goes: TLockComponent
// refuses and drops the calls of a component from the start of its BeforeDestruction on (with
// a mw::MainThreadCallBlock), so that a worker stopped there cannot queue (or wait for) a call
// to a component that is being freed. Other owners use mw::CancelMainThreadCalls and
// mw::MainThreadCallBlock themselves.
#pragma once

#include <exception>
#include <functional>

class TObject;

// Runs closure on the main thread.
//   owner: the object the closure works for, or null. Its queued calls can be dropped with
//          mw::CancelMainThreadCalls and refused with mw::MainThreadCallBlock.
//   wait:  true: the caller blocks until the closure has run (or was dropped); an exception
//          thrown by the closure is thrown again in the caller. false: the caller doesn't wait
//          for the closure (on another thread it is queued and the call returns at once), and
//          an exception goes to Application's exception handler, on whatever thread the call
//          was made, so that it never reaches code that only asked for the closure to run.
//   defer: on the main thread, queue the closure (to run at the next draining) instead of
//          running it at once. Ignored with wait, and on other threads.
// Returns true when the closure ran (wait) or was queued; false when it was dropped.
bool MainThreadExecute(TObject* owner, bool wait, std::function<void()> closure, bool defer);

namespace mw {

// Any thread: drops the queued calls of owner; callers waiting for them return false.
// A call already running goes on.
void CancelMainThreadCalls(const TObject* owner);

// While it lives, calls for owner are refused (MainThreadExecute returns false at once);
// when made, it drops what is queued for owner. Blocks of one owner may nest.
class MainThreadCallBlock {
public:
    explicit MainThreadCallBlock(const TObject* owner);
    ~MainThreadCallBlock();
    MainThreadCallBlock(const MainThreadCallBlock&) = delete;
    MainThreadCallBlock& operator=(const MainThreadCallBlock&) = delete;

private:
    const TObject* FOwner;
};

bool IsMainThread();

}  // namespace mw

// The application's side of the main thread, as the class library's global Application object
// offers it. All of it is for the main thread; elsewhere the calls do nothing.
class Application final {
public:
    Application() = delete;

    // Runs what is queued now (closures and window messages, in order) and returns.
    static void ProcessMessages();
    // Waits until something is queued (or Terminate is called), then runs one item.
    static void HandleMessage();
    // Runs queued work until Terminate is called (from any thread), then clears that request
    // so that a later Run runs again.
    static void Run();
    // Any thread.
    static void Terminate();
    static bool Terminated();

    // Receives exceptions from queued closures and messages; null restores the default, which
    // writes them to stderr.
    static void SetOnException(std::function<void(std::exception_ptr)> handler);
};
