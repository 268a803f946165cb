// Events, semaphores and the waits on them. All state lives under the kernel lock; a waiting
// thread parks on a condition variable of its own that it hangs on every object it waits for.
#include <algorithm>
#include <chrono>

#include "handle_table.h"
#include "winbase.h"

using mw::win::KernelLock;
using mw::win::Waitable;

namespace {

class Event final : public Waitable {
public:
    Event(bool manualReset, bool signaled) : FManualReset(manualReset), FSignaled(signaled) {}
    bool IsSignaled() const override { return FSignaled; }
    void Consume() override {
        if (!FManualReset) FSignaled = false;
    }
    void Set() {
        FSignaled = true;
        NotifyWaiters();
    }
    void Reset() { FSignaled = false; }

private:
    const bool FManualReset;
    bool FSignaled;
};

class Semaphore final : public Waitable {
public:
    Semaphore(LONG count, LONG maximum) : FCount(count), FMaximum(maximum) {}
    bool IsSignaled() const override { return FCount > 0; }
    void Consume() override { --FCount; }
    // False when the release would pass the maximum; then nothing changes.
    bool Release(LONG n, LONG* previous) {
        if (n > FMaximum - FCount) return false;
        if (previous) *previous = FCount;
        FCount += n;
        NotifyWaiters();
        return true;
    }

private:
    LONG FCount;
    const LONG FMaximum;
};

std::u16string WidenName(LPCSTR name) {
    std::u16string r;
    for (const char* p = name; *p; ++p)
        r.push_back(static_cast<unsigned char>(*p));
    return r;
}

// Makes a handle to an object of kind T, sharing a named one that already exists.
template <class T, class Make>
HANDLE CreateKernelObject(const char16_t* name, Make make) {
    std::shared_ptr<T> object;
    bool existed = false;
    if (name && *name) {
        object = mw::win::OpenOrCreateNamed<T>(name, make, existed);
        if (!object) {  // the name belongs to an object of another kind
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
    } else {
        object = make();
    }
    HANDLE h = mw::win::InsertHandle(std::move(object));
    if (h) SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return h;
}

HANDLE NewEvent(BOOL manualReset, BOOL initialState, const char16_t* name) {
    return CreateKernelObject<Event>(
        name, [&] { return std::make_shared<Event>(manualReset != FALSE, initialState != FALSE); });
}

HANDLE NewSemaphore(LONG initialCount, LONG maximumCount, const char16_t* name) {
    if (maximumCount <= 0 || initialCount < 0 || initialCount > maximumCount) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return CreateKernelObject<Semaphore>(
        name, [&] { return std::make_shared<Semaphore>(initialCount, maximumCount); });
}

template <class T>
std::shared_ptr<T> Lookup(HANDLE h) {
    std::shared_ptr<T> object = mw::win::LookupHandleAs<T>(h);
    if (!object) SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

}  // namespace

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState,
                           LPCWSTR name) {
    return NewEvent(manualReset, initialState, name);
}

HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState,
                           LPCSTR name) {
    if (!name) return NewEvent(manualReset, initialState, nullptr);
    std::u16string wide = WidenName(name);
    return NewEvent(manualReset, initialState, wide.c_str());
}

BOOL WINAPI SetEvent(HANDLE h) {
    std::shared_ptr<Event> event = Lookup<Event>(h);
    if (!event) return FALSE;
    std::lock_guard<std::mutex> lock(KernelLock());
    event->Set();
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE h) {
    std::shared_ptr<Event> event = Lookup<Event>(h);
    if (!event) return FALSE;
    std::lock_guard<std::mutex> lock(KernelLock());
    event->Reset();
    return TRUE;
}

HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount,
                               LPCWSTR name) {
    return NewSemaphore(initialCount, maximumCount, name);
}

HANDLE WINAPI CreateSemaphoreA(LPSECURITY_ATTRIBUTES, LONG initialCount, LONG maximumCount,
                               LPCSTR name) {
    if (!name) return NewSemaphore(initialCount, maximumCount, nullptr);
    std::u16string wide = WidenName(name);
    return NewSemaphore(initialCount, maximumCount, wide.c_str());
}

BOOL WINAPI ReleaseSemaphore(HANDLE h, LONG releaseCount, LONG* previousCount) {
    std::shared_ptr<Semaphore> semaphore = Lookup<Semaphore>(h);
    if (!semaphore) return FALSE;
    if (releaseCount < 1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::lock_guard<std::mutex> lock(KernelLock());
    if (!semaphore->Release(releaseCount, previousCount)) {
        SetLastError(ERROR_TOO_MANY_POSTS);
        return FALSE;
    }
    return TRUE;
}

DWORD WINAPI WaitForSingleObject(HANDLE h, DWORD milliseconds) {
    return WaitForMultipleObjects(1, &h, FALSE, milliseconds);
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                    DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }
    // The references keep every object alive while this thread waits, even when a handle is
    // closed meanwhile.
    std::vector<std::shared_ptr<Waitable>> objects;
    objects.reserve(count);
    for (DWORD i = 0; i < count; ++i) {
        std::shared_ptr<Waitable> object = Lookup<Waitable>(handles[i]);
        if (!object) return WAIT_FAILED;
        if (waitAll && std::find(objects.begin(), objects.end(), object) != objects.end()) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return WAIT_FAILED;
        }
        objects.push_back(std::move(object));
    }

    using Clock = std::chrono::steady_clock;
    const bool forever = milliseconds == INFINITE;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);

    std::unique_lock<std::mutex> lock(KernelLock());
    std::condition_variable wake;
    bool registered = false;
    DWORD result = WAIT_TIMEOUT;
    for (;;) {
        if (waitAll) {
            if (std::all_of(objects.begin(), objects.end(),
                            [](const auto& o) { return o->IsSignaled(); })) {
                for (auto& o : objects)
                    o->Consume();
                result = WAIT_OBJECT_0;
                break;
            }
        } else {
            auto it = std::find_if(objects.begin(), objects.end(),
                                   [](const auto& o) { return o->IsSignaled(); });
            if (it != objects.end()) {
                (*it)->Consume();
                result = WAIT_OBJECT_0 + static_cast<DWORD>(it - objects.begin());
                break;
            }
        }
        if (!forever && Clock::now() >= deadline) break;
        if (!registered) {
            for (auto& o : objects)
                o->AddWaiter(&wake);
            registered = true;
        }
        if (forever)
            wake.wait(lock);
        else
            wake.wait_until(lock, deadline);
    }
    if (registered)
        for (auto& o : objects)
            o->RemoveWaiter(&wake);
    return result;
}
