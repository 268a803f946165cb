// The lock of a component and the setters of persisted properties.
//
// Every component owns one IChangeNotifyLock and hands it to all its sub-objects. It is a
// shared/exclusive lock that a thread may take again while it holds it (a setter called
// from a dispatch handler, a read inside a write), so that nesting never deadlocks on one
// thread. A thread that holds it shared and then asks for it exclusively waits until the
// other readers are gone; two threads doing that at once would wait for each other forever,
// so the second one gets ELockError instead (a programming error: don't upgrade).
//
// Setters follow the same seven steps for every persisted property: take the lock (shared,
// or exclusive when the flag says so), compare, announce the change to GPropertyChangeNotify,
// store, call the setter's change closure, announce that the change happened, then call the
// lock object's own change closure. An equal value does nothing at all.
//
// All operations are safe from any thread. ExecuteUnlocked and ReleaseTemporarily let go of
// every hold the calling thread has on the lock, so a blocking platform call made there
// never keeps another thread from the lock.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "frame/Interfaced.h"

using TChangeClosure = std::function<void()>;

class TBasicLockChangeNotifyLock;

// Raised by a misuse of a lock that would otherwise hang: a programming error.
class ELockError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

namespace mw {
// A shared/exclusive lock that one thread may take again in either mode while it holds it.
// Shared holds of a thread that already reads are granted at once, even with a writer
// waiting; otherwise waiting writers go first.
class ReentrantSharedMutex {
public:
    void LockShared();
    void UnlockShared();
    void Lock();
    void Unlock();

    // What the calling thread holds, to be let go of and taken back later.
    struct Holds {
        int Reads = 0;
        int Writes = 0;
    };
    Holds ReleaseAll();
    void Restore(const Holds& h);

    bool IsHeldByCurrentThread() const;
    bool IsWrittenByCurrentThread() const;
    // Writers waiting for the lock now; for tests and diagnostics.
    int WaitingWriters() const;

private:
    int& OwnReads();  // this thread's shared holds on this lock
    mutable std::mutex FMutex;
    std::condition_variable FCond;
    std::thread::id FWriter;
    int FWriteDepth = 0;
    int FReaders = 0;  // shared holds of all threads
    int FWaitingWriters = 0;
    int FUpgrading = 0;  // waiting writers that hold the lock shared
};
}  // namespace mw

// A held lock: releases its hold when it dies (or on Release()). Move-only.
class TLockGuard {
public:
    enum class Kind { None, Read, Write, Temporary };
    TLockGuard() = default;
    TLockGuard(mw::ReentrantSharedMutex* m, Kind k) : FMutex(m), FKind(k) {}
    TLockGuard(mw::ReentrantSharedMutex* m, mw::ReentrantSharedMutex::Holds released)
        : FMutex(m), FKind(Kind::Temporary), FReleased(released) {}
    TLockGuard(TLockGuard&& o) noexcept
        : FMutex(std::exchange(o.FMutex, nullptr)),
          FKind(std::exchange(o.FKind, Kind::None)),
          FReleased(o.FReleased) {}
    TLockGuard& operator=(TLockGuard&& o) noexcept {
        if (this != &o) {
            Release();
            FMutex = std::exchange(o.FMutex, nullptr);
            FKind = std::exchange(o.FKind, Kind::None);
            FReleased = o.FReleased;
        }
        return *this;
    }
    TLockGuard(const TLockGuard&) = delete;
    TLockGuard& operator=(const TLockGuard&) = delete;
    ~TLockGuard() { Release(); }

    // Lets go of the hold now (a temporary release takes the lock back).
    void Release();
    bool Holds() const { return FMutex != nullptr; }

private:
    mw::ReentrantSharedMutex* FMutex = nullptr;
    Kind FKind = Kind::None;
    mw::ReentrantSharedMutex::Holds FReleased;
};

struct IChangeNotifyLock : IUnknown {
    // A shared hold for the scope of the guard: dispatch and most setters.
    [[nodiscard]] virtual TLockGuard AcquireRead() = 0;
    // An exclusive hold: stop, close, destroy, the release of graphs.
    [[nodiscard]] virtual TLockGuard AcquireWrite() = 0;
    // Lets go of the caller's holds until the guard dies, then takes them back.
    [[nodiscard]] virtual TLockGuard ReleaseTemporarily() = 0;
    // Runs a closure that may block inside the platform without holding the lock; it has
    // finished when this returns. Exceptions pass through, with the holds taken back.
    virtual void ExecuteUnlocked(const std::function<void()>& closure) = 0;
    virtual TBasicLockChangeNotifyLock* GetLock() = 0;
};
DEFINE_GUID(IID_IChangeNotifyLock, 0x5d0c1f7a, 0x3b1e, 0x4c52, 0x9a, 0x61, 0x2f, 0x8e, 0x47, 0x0b,
            0xd3, 0x11);
MW_DECLARE_IID(IChangeNotifyLock, IID_IChangeNotifyLock);

// The global list of listeners told before and after a persisted property changes.
class TPropertyChangeNotify {
public:
    using TListener = std::function<void(const void* field, bool changed)>;
    // Returns a cookie for Unsubscribe.
    int Subscribe(TListener listener);
    void Unsubscribe(int cookie);
    void Changing(const void* field) { Tell(field, false); }
    void Changed(const void* field) { Tell(field, true); }

private:
    void Tell(const void* field, bool changed);
    std::mutex FMutex;
    std::vector<std::pair<int, TListener>> FListeners;
    int FNext = 1;
    std::atomic<int> FCount{0};
};
TPropertyChangeNotify& GPropertyChangeNotify();

class TBasicLockChangeNotifyLock : public TInterfacedObject<IChangeNotifyLock> {
    MW_CLASS(TBasicLockChangeNotifyLock, TInterfacedObject<IChangeNotifyLock>)
public:
    // `onChange` is the lock object's own change closure, called last by every setter.
    explicit TBasicLockChangeNotifyLock(TChangeClosure onChange = {})
        : FOnChange(std::move(onChange)) {}

    TLockGuard AcquireRead() override {
        FMutex.LockShared();
        return TLockGuard(&FMutex, TLockGuard::Kind::Read);
    }
    TLockGuard AcquireWrite() override {
        FMutex.Lock();
        return TLockGuard(&FMutex, TLockGuard::Kind::Write);
    }
    TLockGuard ReleaseTemporarily() override { return TLockGuard(&FMutex, FMutex.ReleaseAll()); }
    void ExecuteUnlocked(const std::function<void()>& closure) override {
        TLockGuard released = ReleaseTemporarily();
        closure();
    }
    TBasicLockChangeNotifyLock* GetLock() override { return this; }

    // Runs the closure under the exclusive lock.
    void Execute(const std::function<void()>& closure) {
        TLockGuard g = AcquireWrite();
        closure();
    }
    void SetOnChange(TChangeClosure onChange) { FOnChange = std::move(onChange); }
    bool IsHeldByCurrentThread() const { return FMutex.IsHeldByCurrentThread(); }
    bool IsWrittenByCurrentThread() const { return FMutex.IsWrittenByCurrentThread(); }
    int WaitingWriters() const { return FMutex.WaitingWriters(); }

    // A plain setter of any type compared with ==.
    template <class T, class U>
    void Setter(T& field, const U& value, const TChangeClosure& change = {},
                bool exclusive = false) {
        SetValue(field, static_cast<T>(value), change, exclusive);
    }
    // Integers: a value below the minimum is raised to it.
    template <class T>
    void SetterMin(T& field, T value, T minimum, const TChangeClosure& change = {},
                   bool exclusive = false) {
        static_assert(std::is_same_v<T, int32_t> || std::is_same_v<T, uint32_t>);
        SetValue(field, std::max(value, minimum), change, exclusive);
    }
    // Unsigned integers: a value above the maximum is lowered to it.
    void SetterMax(uint32_t& field, uint32_t value, uint32_t maximum,
                   const TChangeClosure& change = {}, bool exclusive = false) {
        SetValue(field, std::min(value, maximum), change, exclusive);
    }
    // Floats: clamped to [minimum, maximum].
    void SetterMinMax(float& field, float value, float minimum, float maximum,
                      const TChangeClosure& change = {}, bool exclusive = false) {
        SetValue(field, std::clamp(value, minimum, maximum), change, exclusive);
    }

private:
    template <class T>
    void SetValue(T& field, T value, const TChangeClosure& change, bool exclusive) {
        TLockGuard guard = exclusive ? AcquireWrite() : AcquireRead();
        if (field == value) return;
        GPropertyChangeNotify().Changing(&field);
        field = std::move(value);
        if (change) change();
        GPropertyChangeNotify().Changed(&field);
        if (FOnChange) FOnChange();
    }

    mw::ReentrantSharedMutex FMutex;
    TChangeClosure FOnChange;
};
