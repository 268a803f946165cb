#include "frame/ChangeNotifyLock.h"

namespace mw {
namespace {
// Shared holds per lock of the current thread; a handful at most, so a flat list.
thread_local std::vector<std::pair<const ReentrantSharedMutex*, int>> tlsReads;
}  // namespace

int& ReentrantSharedMutex::OwnReads() {
    for (auto& e : tlsReads)
        if (e.first == this) return e.second;
    // Entries at zero are kept so that the next read of the same lock finds its slot; they
    // are dropped only when the table grows, so a lock that is gone is soon forgotten.
    if (tlsReads.size() >= 16) std::erase_if(tlsReads, [](auto& e) { return e.second == 0; });
    tlsReads.emplace_back(this, 0);
    return tlsReads.back().second;
}

void ReentrantSharedMutex::LockShared() {
    int& own = OwnReads();
    std::unique_lock lk(FMutex);
    const auto me = std::this_thread::get_id();
    if (own == 0 && FWriter != me)
        FCond.wait(lk, [&] { return FWriter == std::thread::id() && FWaitingWriters == 0; });
    ++FReaders;
    ++own;
}

void ReentrantSharedMutex::UnlockShared() {
    int& own = OwnReads();
    std::unique_lock lk(FMutex);
    --FReaders;
    --own;
    // Someone can only be waiting when a writer is, or waits to, get in.
    const bool wake = FWaitingWriters > 0 || (own == 0 && FReaders == 0);
    lk.unlock();
    if (wake) FCond.notify_all();
}

void ReentrantSharedMutex::Lock() {
    int own = OwnReads();
    std::unique_lock lk(FMutex);
    const auto me = std::this_thread::get_id();
    if (FWriter == me) {
        ++FWriteDepth;
        return;
    }
    if (own > 0) {
        // Each upgrading thread waits for the other's shared hold to go: neither ever would.
        if (FUpgrading > 0)
            throw ELockError(
                "Assertion failure: two threads that hold a lock shared both wait for it "
                "exclusively");
        ++FUpgrading;
    }
    ++FWaitingWriters;
    FCond.wait(lk, [&] { return FWriter == std::thread::id() && FReaders == own; });
    --FWaitingWriters;
    if (own > 0) --FUpgrading;
    FWriter = me;
    FWriteDepth = 1;
}

void ReentrantSharedMutex::Unlock() {
    {
        std::lock_guard lk(FMutex);
        if (--FWriteDepth > 0) return;
        FWriter = std::thread::id();
    }
    FCond.notify_all();
}

ReentrantSharedMutex::Holds ReentrantSharedMutex::ReleaseAll() {
    Holds h;
    int& own = OwnReads();
    {
        std::lock_guard lk(FMutex);
        h.Reads = own;
        FReaders -= own;
        own = 0;
        if (FWriter == std::this_thread::get_id()) {
            h.Writes = FWriteDepth;
            FWriteDepth = 0;
            FWriter = std::thread::id();
        }
    }
    FCond.notify_all();
    return h;
}

void ReentrantSharedMutex::Restore(const Holds& h) {
    if (h.Writes > 0) {
        Lock();
        std::lock_guard lk(FMutex);
        FWriteDepth = h.Writes;
    }
    if (h.Reads > 0) {
        int& own = OwnReads();
        std::unique_lock lk(FMutex);
        if (FWriter != std::this_thread::get_id())
            FCond.wait(lk, [&] { return FWriter == std::thread::id() && FWaitingWriters == 0; });
        FReaders += h.Reads;
        own += h.Reads;
    }
}

bool ReentrantSharedMutex::IsHeldByCurrentThread() const {
    for (auto& e : tlsReads)
        if (e.first == this && e.second > 0) return true;
    return IsWrittenByCurrentThread();
}

int ReentrantSharedMutex::WaitingWriters() const {
    std::lock_guard lk(FMutex);
    return FWaitingWriters;
}

bool ReentrantSharedMutex::IsWrittenByCurrentThread() const {
    std::lock_guard lk(FMutex);
    return FWriter == std::this_thread::get_id();
}
}  // namespace mw

void TLockGuard::Release() {
    mw::ReentrantSharedMutex* m = std::exchange(FMutex, nullptr);
    if (!m) return;
    switch (std::exchange(FKind, Kind::None)) {
        case Kind::Read:
            m->UnlockShared();
            break;
        case Kind::Write:
            m->Unlock();
            break;
        case Kind::Temporary:
            m->Restore(FReleased);
            break;
        case Kind::None:
            break;
    }
}

int TPropertyChangeNotify::Subscribe(TListener listener) {
    std::lock_guard lk(FMutex);
    FListeners.emplace_back(FNext, std::move(listener));
    FCount.store(static_cast<int>(FListeners.size()), std::memory_order_release);
    return FNext++;
}

void TPropertyChangeNotify::Unsubscribe(int cookie) {
    std::lock_guard lk(FMutex);
    std::erase_if(FListeners, [cookie](auto& e) { return e.first == cookie; });
    FCount.store(static_cast<int>(FListeners.size()), std::memory_order_release);
}

void TPropertyChangeNotify::Tell(const void* field, bool changed) {
    if (FCount.load(std::memory_order_acquire) == 0) return;  // the common case: nobody listens
    std::vector<TListener> copy;
    {
        std::lock_guard lk(FMutex);
        for (auto& e : FListeners)
            copy.push_back(e.second);
    }
    for (auto& l : copy)
        l(field, changed);
}

TPropertyChangeNotify& GPropertyChangeNotify() {
    static TPropertyChangeNotify instance;
    return instance;
}
