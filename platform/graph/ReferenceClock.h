// The reference clocks of the graph service: the system clock (CLSID_SystemClock) and the base
// that every clock of the platform's filters builds on.
//
// A clock answers GetTime in 100 ns units, never going back. AdviseTime signals an event once,
// at base + stream time; AdvisePeriodic releases a semaphore by one at the start time and once per
// period after it until Unadvise. A period missed (the process stalled) is still released, so
// that the count of releases follows real time. Advises are served by one thread per clock;
// advise and unadvise may come from any thread, also while the clock fires.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "strmif.h"

namespace mw::graph {

// The steady time of the process in 100 ns units.
REFERENCE_TIME SteadyNow();

class ReferenceClockBase : public IReferenceClock {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetTime(REFERENCE_TIME* time) override;
    STDMETHODIMP AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT event,
                            DWORD_PTR* cookie) override;
    STDMETHODIMP AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                HSEMAPHORE semaphore, DWORD_PTR* cookie) override;
    STDMETHODIMP Unadvise(DWORD_PTR cookie) override;

    // Number of advises pending (for tests).
    size_t PendingAdvises();

protected:
    // outer: the unknown that owns the clock's lifetime when it is part of another object (an
    // audio renderer); null for a clock of its own.
    explicit ReferenceClockBase(IUnknown* outer = nullptr);
    virtual ~ReferenceClockBase();

    // The clock's own time source, in 100 ns units; need not be monotonic (GetTime makes it so).
    virtual REFERENCE_TIME ReadTime() = 0;
    // Wakes the advise thread to look at the time again (when the time source jumped or moved
    // at a new rate).
    void TimeChanged();
    // Stops the advise thread; the owner's destructor calls it before its time source goes.
    void Shutdown();

private:
    struct Advise {
        DWORD_PTR cookie;
        REFERENCE_TIME due;
        REFERENCE_TIME period;  // 0: one-shot
        HANDLE handle;
    };
    REFERENCE_TIME Now();
    void Loop();

    IUnknown* FOuter;
    std::atomic<ULONG> FRefCount{1};
    std::mutex FTimeMutex;
    REFERENCE_TIME FLast = 0;
    std::mutex FMutex;
    std::condition_variable FWake;
    std::vector<Advise> FAdvises;
    DWORD_PTR FNextCookie = 1;
    bool FStopping = false;
    bool FChanged = false;
    std::thread FThread;
};

// Creates the system clock (IUnknown, IReferenceClock).
HRESULT CreateSystemClock(IUnknown* outer, REFIID iid, void** object);

}  // namespace mw::graph
