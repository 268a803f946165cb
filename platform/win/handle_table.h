// The process-wide table of kernel-object handles, shared by the units of platform/win.
//
// A HANDLE is a number (a multiple of 4 below 2^31) that maps to a shared kernel object;
// numbers are never reused. Waitable objects keep their state under one kernel lock, so that a
// wait on several objects can test and consume them all at one moment. Any thread.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "windef.h"

namespace mw::win {

class KernelObject {
public:
    virtual ~KernelObject() = default;
};

// Null (with ERROR_NOT_ENOUGH_MEMORY) once all numbers are used up.
HANDLE InsertHandle(std::shared_ptr<KernelObject> object);
// Null for anything that is not an open handle.
std::shared_ptr<KernelObject> LookupHandle(HANDLE h);
template <class T>
std::shared_ptr<T> LookupHandleAs(HANDLE h) {
    return std::dynamic_pointer_cast<T>(LookupHandle(h));
}
bool RemoveHandle(HANDLE h);

// Named objects of one kind. Returns the live object of that name, or makes one with make() and
// registers it; existed tells which. Null when the name belongs to an object of another kind.
template <class T, class Make>
std::shared_ptr<T> OpenOrCreateNamed(const std::u16string& name, Make make, bool& existed);
std::shared_ptr<KernelObject> FindNamed(const std::u16string& name);
void RegisterNamed(const std::u16string& name, const std::shared_ptr<KernelObject>& object);
std::mutex& NamesLock();

// An object one can wait for. State changes and waits happen under KernelLock().
class Waitable : public KernelObject {
public:
    // Both with KernelLock() held.
    virtual bool IsSignaled() const = 0;
    // Takes what a satisfied wait takes (a count, an auto-reset signal).
    virtual void Consume() = 0;

    // Wakes the threads waiting on this object; with KernelLock() held.
    void NotifyWaiters() {
        for (std::condition_variable* cv : FWaiters)
            cv->notify_one();
    }
    void AddWaiter(std::condition_variable* cv) { FWaiters.push_back(cv); }
    void RemoveWaiter(std::condition_variable* cv) {
        for (size_t i = 0; i < FWaiters.size(); ++i)
            if (FWaiters[i] == cv) {
                FWaiters[i] = FWaiters.back();
                FWaiters.pop_back();
                return;
            }
    }

private:
    std::vector<std::condition_variable*> FWaiters;
};

std::mutex& KernelLock();

template <class T, class Make>
std::shared_ptr<T> OpenOrCreateNamed(const std::u16string& name, Make make, bool& existed) {
    std::lock_guard<std::mutex> lock(NamesLock());
    if (std::shared_ptr<KernelObject> found = FindNamed(name)) {
        existed = true;
        return std::dynamic_pointer_cast<T>(found);
    }
    existed = false;
    std::shared_ptr<T> object = make();
    if (object) RegisterNamed(name, object);
    return object;
}

}  // namespace mw::win
