// The main thread's queue and the message windows whose messages go through it.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "winbase.h"
#include "winuser.h"

namespace {

struct Item {
    uint64_t seq;
    const void* owner;
    std::function<void()> fn;
};

struct LoopState {
    std::mutex lock;
    std::condition_variable work;
    std::deque<Item> items;
    uint64_t nextSeq = 1;
    bool woken = false;
    std::unordered_map<const void*, int> blocked;
    mw::MainLoop::ExceptionHandler handler;
    std::atomic<DWORD> mainThread{0};  // 0: the process's initial thread
};

// Never destroyed: worker threads may still post while the process exits.
LoopState& Loop() {
    static LoopState* state = new LoopState;
    return *state;
}

void ReportException(std::exception_ptr e) {
    mw::MainLoop::ExceptionHandler handler;
    {
        std::lock_guard<std::mutex> lock(Loop().lock);
        handler = Loop().handler;
    }
    if (handler) {
        handler(e);
        return;
    }
    try {
        std::rethrow_exception(e);
    } catch (const std::exception& x) {
        std::fprintf(stderr, "mediawire: exception on the main thread: %s\n", x.what());
    } catch (...) {
        std::fprintf(stderr, "mediawire: unknown exception on the main thread\n");
    }
}

// Takes the first item if it was queued up to lastSeq.
bool PopItem(uint64_t lastSeq, Item& out) {
    LoopState& s = Loop();
    std::lock_guard<std::mutex> lock(s.lock);
    if (s.items.empty() || s.items.front().seq > lastSeq) return false;
    out = std::move(s.items.front());
    s.items.pop_front();
    return true;
}

void RunItem(Item& item) {
    try {
        item.fn();
    } catch (...) {
        ReportException(std::current_exception());
    }
}

// ---- message windows

struct Window {
    HWND hwnd;
    std::atomic<WNDPROC> proc;
    std::atomic<LONG_PTR> userData;
    std::atomic<LONG_PTR> id{0};
    std::atomic<bool> alive{true};
    std::atomic<bool> destroying{false};
    Window(HWND h, WNDPROC p, void* data)
        : hwnd(h), proc(p), userData(reinterpret_cast<LONG_PTR>(data)) {}
};

struct WindowTable {
    std::mutex lock;
    uintptr_t next = 0x20000;
    std::unordered_map<uintptr_t, std::shared_ptr<Window>> windows;
};

WindowTable& Windows() {
    static WindowTable* table = new WindowTable;
    return *table;
}

std::shared_ptr<Window> FindWindow(HWND hwnd) {
    WindowTable& t = Windows();
    std::lock_guard<std::mutex> lock(t.lock);
    auto it = t.windows.find(reinterpret_cast<uintptr_t>(hwnd));
    if (it == t.windows.end()) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return nullptr;
    }
    return it->second;
}

LRESULT CallProcedure(const Window& w, UINT msg, WPARAM wParam, LPARAM lParam) {
    WNDPROC proc = w.proc.load();
    return proc ? proc(w.hwnd, msg, wParam, lParam) : DefWindowProcW(w.hwnd, msg, wParam, lParam);
}

// The answer of a message sent from another thread. Set exactly once: by the main thread after
// the procedure ran, or with 0 when the queued message is dropped unrun.
struct SentMessage {
    std::mutex lock;
    std::condition_variable done;
    bool finished = false;
    LRESULT result = 0;
    void Finish(LRESULT r) {
        std::lock_guard<std::mutex> g(lock);
        if (finished) return;
        finished = true;
        result = r;
        done.notify_all();
    }
};

// Lives inside the queued closure: when the closure is destroyed unrun, the sender is released.
struct SentMessageTicket {
    std::shared_ptr<SentMessage> message;
    ~SentMessageTicket() {
        if (message) message->Finish(0);
    }
};

}  // namespace

namespace mw {

void MainLoop::SetMainThread() {
    Loop().mainThread.store(GetCurrentThreadId());
}

bool MainLoop::IsMainThread() {
    DWORD main = Loop().mainThread.load();
    if (main == 0) main = static_cast<DWORD>(::getpid());
    return GetCurrentThreadId() == main;
}

bool MainLoop::Post(std::function<void()> fn, const void* owner) {
    LoopState& s = Loop();
    {
        std::lock_guard<std::mutex> lock(s.lock);
        if (!owner || s.blocked.find(owner) == s.blocked.end()) {
            s.items.push_back(Item{s.nextSeq++, owner, std::move(fn)});
            s.work.notify_all();
            return true;
        }
    }
    fn = nullptr;  // refused: destroyed here, outside the lock
    return false;
}

size_t MainLoop::ProcessPending() {
    if (!IsMainThread()) return 0;
    uint64_t lastSeq;
    {
        std::lock_guard<std::mutex> lock(Loop().lock);
        lastSeq = Loop().nextSeq - 1;
    }
    size_t ran = 0;
    for (;;) {
        Item item;
        if (!PopItem(lastSeq, item)) break;
        RunItem(item);
        ++ran;
    }
    return ran;
}

bool MainLoop::ProcessOne() {
    if (!IsMainThread()) return false;
    Item item;
    if (!PopItem(UINT64_MAX, item)) return false;
    RunItem(item);
    return true;
}

bool MainLoop::WaitForWork(DWORD milliseconds) {
    LoopState& s = Loop();
    std::unique_lock<std::mutex> lock(s.lock);
    auto ready = [&] { return !s.items.empty() || s.woken; };
    if (milliseconds == INFINITE)
        s.work.wait(lock, ready);
    else
        s.work.wait_for(lock, std::chrono::milliseconds(milliseconds), ready);
    s.woken = false;
    return !s.items.empty();
}

void MainLoop::Wake() {
    LoopState& s = Loop();
    std::lock_guard<std::mutex> lock(s.lock);
    s.woken = true;
    s.work.notify_all();
}

size_t MainLoop::PendingCount() {
    std::lock_guard<std::mutex> lock(Loop().lock);
    return Loop().items.size();
}

size_t MainLoop::Cancel(const void* owner) {
    if (!owner) return 0;
    std::vector<Item> dropped;
    {
        LoopState& s = Loop();
        std::lock_guard<std::mutex> lock(s.lock);
        std::deque<Item> kept;
        for (Item& item : s.items) {
            if (item.owner == owner)
                dropped.push_back(std::move(item));
            else
                kept.push_back(std::move(item));
        }
        s.items.swap(kept);
    }
    return dropped.size();  // the dropped closures die here, unlocked
}

void MainLoop::BlockOwner(const void* owner) {
    if (!owner) return;
    {
        std::lock_guard<std::mutex> lock(Loop().lock);
        ++Loop().blocked[owner];
    }
    Cancel(owner);
}

void MainLoop::UnblockOwner(const void* owner) {
    std::lock_guard<std::mutex> lock(Loop().lock);
    auto it = Loop().blocked.find(owner);
    if (it != Loop().blocked.end() && --it->second <= 0) Loop().blocked.erase(it);
}

bool MainLoop::IsOwnerBlocked(const void* owner) {
    std::lock_guard<std::mutex> lock(Loop().lock);
    return Loop().blocked.count(owner) != 0;
}

void MainLoop::ReportException(std::exception_ptr e) {
    ::ReportException(std::move(e));
}

void MainLoop::SetExceptionHandler(ExceptionHandler handler) {
    std::lock_guard<std::mutex> lock(Loop().lock);
    Loop().handler = std::move(handler);
}

HWND CreateMessageWindow(WNDPROC proc, void* userData) {
    WindowTable& t = Windows();
    std::lock_guard<std::mutex> lock(t.lock);
    uintptr_t value = t.next;
    t.next += 4;
    HWND hwnd = reinterpret_cast<HWND>(value);
    t.windows.emplace(value, std::make_shared<Window>(hwnd, proc, userData));
    return hwnd;
}

}  // namespace mw

LONG_PTR WINAPI SetWindowLongPtrW(HWND hwnd, int index, LONG_PTR value) {
    std::shared_ptr<Window> w = FindWindow(hwnd);
    if (!w) return 0;
    switch (index) {
        case GWLP_WNDPROC:
            return reinterpret_cast<LONG_PTR>(w->proc.exchange(reinterpret_cast<WNDPROC>(value)));
        case GWLP_USERDATA:
            return w->userData.exchange(value);
        case GWLP_ID:
            return w->id.exchange(value);
        default:
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
    }
}

LONG_PTR WINAPI GetWindowLongPtrW(HWND hwnd, int index) {
    std::shared_ptr<Window> w = FindWindow(hwnd);
    if (!w) return 0;
    switch (index) {
        case GWLP_WNDPROC:
            return reinterpret_cast<LONG_PTR>(w->proc.load());
        case GWLP_USERDATA:
            return w->userData.load();
        case GWLP_ID:
            return w->id.load();
        default:
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
    }
}

BOOL WINAPI DestroyWindow(HWND hwnd) {
    std::shared_ptr<Window> w = FindWindow(hwnd);
    if (!w) return FALSE;
    if (!mw::MainLoop::IsMainThread()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (w->destroying.exchange(true)) return TRUE;  // called again from its WM_DESTROY
    CallProcedure(*w, WM_DESTROY, 0, 0);
    w->alive = false;
    {
        WindowTable& t = Windows();
        std::lock_guard<std::mutex> lock(t.lock);
        t.windows.erase(reinterpret_cast<uintptr_t>(hwnd));
    }
    mw::MainLoop::Cancel(w.get());
    return TRUE;
}

BOOL WINAPI IsWindow(HWND hwnd) {
    WindowTable& t = Windows();
    std::lock_guard<std::mutex> lock(t.lock);
    return t.windows.count(reinterpret_cast<uintptr_t>(hwnd)) ? TRUE : FALSE;
}

LRESULT WINAPI DefWindowProcW(HWND, UINT, WPARAM, LPARAM) {
    return 0;
}

BOOL WINAPI PostMessageW(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    std::shared_ptr<Window> w = FindWindow(hwnd);
    if (!w) return FALSE;
    Window* owner = w.get();
    mw::MainLoop::Post(
        [w = std::move(w), msg, wParam, lParam] {
            if (w->alive) CallProcedure(*w, msg, wParam, lParam);
        },
        owner);
    return TRUE;
}

LRESULT WINAPI SendMessageW(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    std::shared_ptr<Window> w = FindWindow(hwnd);
    if (!w) return 0;
    if (mw::MainLoop::IsMainThread()) return CallProcedure(*w, msg, wParam, lParam);

    auto sent = std::make_shared<SentMessage>();
    auto ticket = std::make_shared<SentMessageTicket>();
    ticket->message = sent;
    Window* owner = w.get();
    mw::MainLoop::Post(
        [w = std::move(w), ticket = std::move(ticket), msg, wParam, lParam] {
            if (w->alive) ticket->message->Finish(CallProcedure(*w, msg, wParam, lParam));
        },
        owner);
    std::unique_lock<std::mutex> lock(sent->lock);
    sent->done.wait(lock, [&] { return sent->finished; });
    return sent->result;
}
