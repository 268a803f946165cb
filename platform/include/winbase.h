// Waitable handles and the other Win32 basics of kernel objects: events, semaphores, waits,
// critical sections, the thread's last error, Sleep and thread ids.
//
// Every function may be called from any thread. A HANDLE is a small number from a process-wide
// table, never an address, and its value fits in 31 bits (callers may carry it as a 32-bit
// value). Numbers are not reused, so an invalid or closed handle is always recognised: the call
// fails with ERROR_INVALID_HANDLE (FALSE, NULL or WAIT_FAILED) and nothing else happens. A
// thread waiting on a handle that another thread closes keeps the object alive until its wait
// returns. Named objects are shared within the process only.
#pragma once

#include "windef.h"
#include "winerror.h"

constexpr DWORD WAIT_OBJECT_0 = 0x00000000;
constexpr DWORD WAIT_ABANDONED = 0x00000080;
constexpr DWORD WAIT_ABANDONED_0 = WAIT_ABANDONED;
constexpr DWORD WAIT_TIMEOUT = 0x00000102;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// The last error of the calling thread.
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);

// Closes any handle of the table. The object lives on while other handles or waiters hold it.
BOOL WINAPI CloseHandle(HANDLE h);

// Events. An auto-reset event releases one waiter and resets itself; a manual-reset event stays
// signalled until ResetEvent. With a name already in use the existing event is opened and
// GetLastError() answers ERROR_ALREADY_EXISTS.
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES sa, BOOL manualReset, BOOL initialState,
                           LPCWSTR name);
HANDLE WINAPI CreateEventA(LPSECURITY_ATTRIBUTES sa, BOOL manualReset, BOOL initialState,
                           LPCSTR name);
inline HANDLE CreateEvent(LPSECURITY_ATTRIBUTES sa, BOOL manualReset, BOOL initialState,
                          LPCWSTR name) {
    return CreateEventW(sa, manualReset, initialState, name);
}
BOOL WINAPI SetEvent(HANDLE h);
BOOL WINAPI ResetEvent(HANDLE h);

// Semaphores. The count stays within 0..maximum: a release past the maximum fails with
// ERROR_TOO_MANY_POSTS and leaves the count as it was. Creation fails with
// ERROR_INVALID_PARAMETER unless 0 <= initial <= maximum and maximum > 0.
HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount,
                               LPCWSTR name);
HANDLE WINAPI CreateSemaphoreA(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount,
                               LPCSTR name);
inline HANDLE CreateSemaphore(LPSECURITY_ATTRIBUTES sa, LONG initialCount, LONG maximumCount,
                              LPCWSTR name) {
    return CreateSemaphoreW(sa, initialCount, maximumCount, name);
}
// previousCount may be null; a count below 1 fails with ERROR_INVALID_PARAMETER.
BOOL WINAPI ReleaseSemaphore(HANDLE h, LONG releaseCount, LONG* previousCount);

// Waits. A satisfied wait consumes what it waited for (one semaphore count, the signal of an
// auto-reset event). milliseconds may be INFINITE; 0 tests without blocking.
DWORD WINAPI WaitForSingleObject(HANDLE h, DWORD milliseconds);
// Any: WAIT_OBJECT_0 + the lowest index of a signalled object. All: WAIT_OBJECT_0 once every
// object is signalled at the same moment; only then is anything consumed. count must be
// 1..MAXIMUM_WAIT_OBJECTS, and with waitAll a handle may appear only once
// (ERROR_INVALID_PARAMETER otherwise).
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll,
                                    DWORD milliseconds);

// Sleep(0) gives up the rest of the time slice.
void WINAPI Sleep(DWORD milliseconds);
// The kernel's id of the calling thread (as shown by ps and debuggers).
DWORD WINAPI GetCurrentThreadId();

// Critical sections: recursive locks owned by a thread. Initialize before use and Delete after
// the last use; the record must not be copied or moved in between.
typedef struct _RTL_CRITICAL_SECTION {
    void* Impl;  // the lock itself, made by Initialize and freed by Delete
} CRITICAL_SECTION, *LPCRITICAL_SECTION, *PCRITICAL_SECTION;

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION cs);
BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION cs, DWORD spinCount);
void WINAPI EnterCriticalSection(LPCRITICAL_SECTION cs);
BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION cs);
void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION cs);
void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION cs);
