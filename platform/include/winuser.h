// Message windows and the main thread's message queue.
//
// There is one queue, drained on the main thread. Closures posted with mw::MainLoop::Post and
// window messages posted with PostMessage (or sent with SendMessage from another thread) go into
// it and run on the main thread in the order they were queued, when the application drains it
// (the frame's Application::ProcessMessages / Run). Nothing runs while the queue is not drained.
//
// A message window is a handle with a replaceable window procedure; it lives until
// DestroyWindow, which only the main thread may call. Every window belongs to the main thread:
// its procedure is called there and nowhere else. A message for a window destroyed in the
// meantime is dropped (a waiting SendMessage then returns 0). HWND values are never reused.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>

#include "windef.h"
#include "winerror.h"

typedef LRESULT(CALLBACK* WNDPROC)(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);

constexpr UINT WM_NULL = 0x0000;
constexpr UINT WM_CREATE = 0x0001;
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_CLOSE = 0x0010;
constexpr UINT WM_QUIT = 0x0012;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_USER = 0x0400;
constexpr UINT WM_APP = 0x8000;

constexpr int GWLP_WNDPROC = -4;
constexpr int GWLP_ID = -12;
constexpr int GWLP_USERDATA = -21;

// The parent that makes a window message-only.
#define HWND_MESSAGE (reinterpret_cast<HWND>(static_cast<intptr_t>(-3)))

// A queued message as the platform describes it.
typedef struct tagMSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
} MSG, *PMSG, *LPMSG;

// Any thread. A non-window index fails with ERROR_INVALID_PARAMETER (result 0).
LONG_PTR WINAPI SetWindowLongPtrW(HWND hwnd, int index, LONG_PTR value);
LONG_PTR WINAPI GetWindowLongPtrW(HWND hwnd, int index);
inline LONG_PTR SetWindowLongPtr(HWND hwnd, int index, LONG_PTR value) {
    return SetWindowLongPtrW(hwnd, index, value);
}
inline LONG_PTR GetWindowLongPtr(HWND hwnd, int index) {
    return GetWindowLongPtrW(hwnd, index);
}

// Main thread only (ERROR_ACCESS_DENIED elsewhere). Sends WM_DESTROY to the procedure, then the
// window is gone: pending messages for it are dropped.
BOOL WINAPI DestroyWindow(HWND hwnd);
BOOL WINAPI IsWindow(HWND hwnd);
// The default procedure: answers 0 to everything.
LRESULT WINAPI DefWindowProcW(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
inline LRESULT DefWindowProc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(hwnd, msg, wParam, lParam);
}

// Any thread: queues the message for the window's procedure on the main thread and returns.
BOOL WINAPI PostMessageW(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
inline BOOL PostMessage(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    return PostMessageW(hwnd, msg, wParam, lParam);
}
// On the main thread the procedure is called at once. From another thread the message is queued
// like a posted one and the caller waits for the procedure's result; that needs the main thread
// to drain the queue. 0 for an invalid window or when it is destroyed before the message runs.
LRESULT WINAPI SendMessageW(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam);
inline LRESULT SendMessage(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    return SendMessageW(hwnd, msg, wParam, lParam);
}

namespace mw {

// Creates a message-only window with the given procedure (null means DefWindowProc) and user
// data (GWLP_USERDATA). Any thread; the procedure is called on the main thread only, and is not
// called during creation.
HWND CreateMessageWindow(WNDPROC proc, void* userData = nullptr);

// The main thread's queue. Owner tags let a component drop what it has queued.
class MainLoop {
public:
    // Makes the calling thread the main thread. Without this call the main thread is the
    // process's initial thread.
    static void SetMainThread();
    static bool IsMainThread();

    // Any thread: queues fn for the main thread. Returns false, and destroys fn without running
    // it, when the owner is blocked (see BlockOwner).
    static bool Post(std::function<void()> fn, const void* owner = nullptr);

    // Main thread: runs the items that were queued when the call began, in order, and then
    // returns; items queued meanwhile wait for the next call. May be called from inside an
    // item. An exception from an item is passed to the exception handler (see below) and the
    // draining goes on. Returns the number of items run. Elsewhere: does nothing, returns 0.
    static size_t ProcessPending();
    // Main thread: runs at most one queued item; true when one ran.
    static bool ProcessOne();

    // Blocks until the queue holds an item, Wake is called or the time passes (INFINITE allowed);
    // true when an item is there. Any thread, but meant for the main thread's idle wait.
    static bool WaitForWork(DWORD milliseconds);
    // Ends the present or next WaitForWork early.
    static void Wake();
    // Number of items queued now.
    static size_t PendingCount();

    // Any thread: drops the queued items of owner, destroying them unrun (outside the queue's
    // lock). Returns how many were dropped. An item already running is not affected.
    static size_t Cancel(const void* owner);
    // While an owner is blocked (counted: each Block needs one Unblock), Post refuses its items.
    // Blocking also cancels what is queued for it.
    static void BlockOwner(const void* owner);
    static void UnblockOwner(const void* owner);
    static bool IsOwnerBlocked(const void* owner);

    // Where exceptions from queued items go, on the main thread. The default writes the
    // exception's text to stderr.
    using ExceptionHandler = std::function<void(std::exception_ptr)>;
    static void SetExceptionHandler(ExceptionHandler handler);
    // Hands an exception to that handler, as for a queued item; for work run on the main
    // thread on the queue's behalf.
    static void ReportException(std::exception_ptr e);
};

}  // namespace mw
