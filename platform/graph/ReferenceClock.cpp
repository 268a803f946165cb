// The reference clock base with its advise thread, and the system clock.
#include "platform/graph/ReferenceClock.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "mwcom.h"
#include "uuids.h"
#include "winbase.h"

namespace mw::graph {

REFERENCE_TIME SteadyNow() {
    using namespace std::chrono;
    return duration_cast<duration<int64_t, std::ratio<1, 10000000>>>(
               steady_clock::now().time_since_epoch())
        .count();
}

ReferenceClockBase::ReferenceClockBase(IUnknown* outer) : FOuter(outer) {
    FThread = std::thread([this] { Loop(); });
}

ReferenceClockBase::~ReferenceClockBase() {
    Shutdown();
}

void ReferenceClockBase::Shutdown() {
    {
        std::lock_guard lock(FMutex);
        FStopping = true;
    }
    FWake.notify_all();
    if (FThread.joinable()) FThread.join();
}

STDMETHODIMP ReferenceClockBase::QueryInterface(REFIID iid, void** object) {
    if (!object) return E_POINTER;
    if (IsEqualIID(iid, IID_IReferenceClock) || (!FOuter && IsEqualIID(iid, IID_IUnknown))) {
        *object = static_cast<IReferenceClock*>(this);
        AddRef();
        return S_OK;
    }
    if (FOuter) return FOuter->QueryInterface(iid, object);
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ReferenceClockBase::AddRef() {
    if (FOuter) return FOuter->AddRef();
    return FRefCount.fetch_add(1) + 1;
}

STDMETHODIMP_(ULONG) ReferenceClockBase::Release() {
    if (FOuter) return FOuter->Release();
    const ULONG n = FRefCount.fetch_sub(1) - 1;
    if (n == 0) delete this;
    return n;
}

REFERENCE_TIME ReferenceClockBase::Now() {
    const REFERENCE_TIME t = ReadTime();
    std::lock_guard lock(FTimeMutex);
    FLast = std::max(FLast, t);
    return FLast;
}

STDMETHODIMP ReferenceClockBase::GetTime(REFERENCE_TIME* time) {
    if (!time) return E_POINTER;
    *time = Now();
    return S_OK;
}

STDMETHODIMP ReferenceClockBase::AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime,
                                            HEVENT event, DWORD_PTR* cookie) {
    if (!cookie) return E_POINTER;
    *cookie = 0;
    if (!event || baseTime < 0 || streamTime < 0) return E_INVALIDARG;
    {
        std::lock_guard lock(FMutex);
        *cookie = FNextCookie++;
        FAdvises.push_back({*cookie, baseTime + streamTime, 0,
                            reinterpret_cast<HANDLE>(static_cast<uintptr_t>(event))});
        FChanged = true;
    }
    FWake.notify_all();
    return S_OK;
}

STDMETHODIMP ReferenceClockBase::AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                                HSEMAPHORE semaphore, DWORD_PTR* cookie) {
    if (!cookie) return E_POINTER;
    *cookie = 0;
    if (!semaphore || startTime < 0 || periodTime <= 0) return E_INVALIDARG;
    {
        std::lock_guard lock(FMutex);
        *cookie = FNextCookie++;
        FAdvises.push_back({*cookie, startTime, periodTime,
                            reinterpret_cast<HANDLE>(static_cast<uintptr_t>(semaphore))});
        FChanged = true;
    }
    FWake.notify_all();
    return S_OK;
}

STDMETHODIMP ReferenceClockBase::Unadvise(DWORD_PTR cookie) {
    std::lock_guard lock(FMutex);
    auto it = std::find_if(FAdvises.begin(), FAdvises.end(),
                           [&](const Advise& a) { return a.cookie == cookie; });
    if (it == FAdvises.end()) return S_FALSE;
    FAdvises.erase(it);
    return S_OK;
}

size_t ReferenceClockBase::PendingAdvises() {
    std::lock_guard lock(FMutex);
    return FAdvises.size();
}

void ReferenceClockBase::TimeChanged() {
    {
        std::lock_guard lock(FMutex);
        FChanged = true;
    }
    FWake.notify_all();
}

// Fires what is due, then sleeps until the next advise is due by the steady clock. A clock whose
// time runs at another rate than the steady clock wakes early or late by the difference over
// one wait; waits are capped so that the drift stays small.
void ReferenceClockBase::Loop() {
    constexpr REFERENCE_TIME kMaxWait = 50 * 10000;  // 50 ms
    std::unique_lock lock(FMutex);
    while (!FStopping) {
        FChanged = false;
        if (FAdvises.empty()) {
            FWake.wait(lock, [&] { return FStopping || FChanged; });
            continue;
        }
        lock.unlock();
        const REFERENCE_TIME now = Now();
        lock.lock();
        REFERENCE_TIME next = INT64_MAX;
        for (size_t i = 0; i < FAdvises.size();) {
            Advise& a = FAdvises[i];
            if (a.due <= now) {
                if (a.period == 0) {
                    SetEvent(a.handle);
                    FAdvises.erase(FAdvises.begin() + static_cast<ptrdiff_t>(i));
                    continue;
                }
                const int64_t missed = (now - a.due) / a.period + 1;
                ReleaseSemaphore(a.handle, static_cast<LONG>(std::min<int64_t>(missed, 1000)),
                                 nullptr);
                a.due += missed * a.period;
            }
            next = std::min(next, a.due);
            ++i;
        }
        if (next == INT64_MAX || FChanged) continue;
        const REFERENCE_TIME wait = std::min(next - now, kMaxWait);
        FWake.wait_for(lock, std::chrono::nanoseconds(wait * 100),
                       [&] { return FStopping || FChanged; });
    }
}

namespace {

class SystemClock final : public ReferenceClockBase {
public:
    ~SystemClock() override { Shutdown(); }

protected:
    REFERENCE_TIME ReadTime() override { return SteadyNow(); }
};

}  // namespace

HRESULT CreateSystemClock(IUnknown* outer, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* clock = new (std::nothrow) SystemClock();
    if (!clock) return E_OUTOFMEMORY;
    const HRESULT hr = clock->QueryInterface(iid, object);
    clock->Release();
    return hr;
}

}  // namespace mw::graph
