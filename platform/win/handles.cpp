// The handle table, the thread's last error, CloseHandle, Sleep, thread ids and critical
// sections.
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <unordered_map>

#include "handle_table.h"
#include "winbase.h"

namespace mw::win {
namespace {

constexpr uintptr_t kFirstHandle = 4;
constexpr uintptr_t kLastHandle = 0x7FFFFFFC;

struct HandleTable {
    std::mutex lock;
    uintptr_t next = kFirstHandle;
    std::unordered_map<uintptr_t, std::shared_ptr<KernelObject>> objects;
};

// Never destroyed: handles may be used by threads still running during process exit.
HandleTable& Table() {
    static HandleTable* table = new HandleTable;
    return *table;
}

struct NameTable {
    std::mutex lock;
    std::unordered_map<std::u16string, std::weak_ptr<KernelObject>> objects;
};

NameTable& Names() {
    static NameTable* names = new NameTable;
    return *names;
}

}  // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object) {
    HandleTable& t = Table();
    std::lock_guard<std::mutex> lock(t.lock);
    if (t.next > kLastHandle) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    uintptr_t value = t.next;
    t.next += 4;
    t.objects.emplace(value, std::move(object));
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE h) {
    HandleTable& t = Table();
    std::lock_guard<std::mutex> lock(t.lock);
    auto it = t.objects.find(reinterpret_cast<uintptr_t>(h));
    return it == t.objects.end() ? nullptr : it->second;
}

bool RemoveHandle(HANDLE h) {
    std::shared_ptr<KernelObject> object;  // dropped after the table's lock
    HandleTable& t = Table();
    std::lock_guard<std::mutex> lock(t.lock);
    auto it = t.objects.find(reinterpret_cast<uintptr_t>(h));
    if (it == t.objects.end()) return false;
    object = std::move(it->second);
    t.objects.erase(it);
    return true;
}

std::mutex& NamesLock() {
    return Names().lock;
}

std::shared_ptr<KernelObject> FindNamed(const std::u16string& name) {
    auto& objects = Names().objects;
    auto it = objects.find(name);
    if (it == objects.end()) return nullptr;
    std::shared_ptr<KernelObject> object = it->second.lock();
    if (!object) objects.erase(it);
    return object;
}

void RegisterNamed(const std::u16string& name, const std::shared_ptr<KernelObject>& object) {
    Names().objects[name] = object;
}

std::mutex& KernelLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}

}  // namespace mw::win

namespace {
thread_local DWORD tLastError = ERROR_SUCCESS;

struct CriticalSectionImpl {
    std::recursive_mutex mutex;
};
}  // namespace

DWORD WINAPI GetLastError() {
    return tLastError;
}
void WINAPI SetLastError(DWORD error) {
    tLastError = error;
}

BOOL WINAPI CloseHandle(HANDLE h) {
    if (!mw::win::RemoveHandle(h)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}

void WINAPI Sleep(DWORD milliseconds) {
    if (milliseconds == 0)
        std::this_thread::yield();
    else if (milliseconds == INFINITE)
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(24));
    else
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

DWORD WINAPI GetCurrentThreadId() {
    thread_local const DWORD id = static_cast<DWORD>(::syscall(SYS_gettid));
    return id;
}

void WINAPI InitializeCriticalSection(LPCRITICAL_SECTION cs) {
    cs->Impl = new CriticalSectionImpl;
}

BOOL WINAPI InitializeCriticalSectionAndSpinCount(LPCRITICAL_SECTION cs, DWORD) {
    InitializeCriticalSection(cs);
    return TRUE;
}

void WINAPI EnterCriticalSection(LPCRITICAL_SECTION cs) {
    static_cast<CriticalSectionImpl*>(cs->Impl)->mutex.lock();
}

BOOL WINAPI TryEnterCriticalSection(LPCRITICAL_SECTION cs) {
    return static_cast<CriticalSectionImpl*>(cs->Impl)->mutex.try_lock() ? TRUE : FALSE;
}

void WINAPI LeaveCriticalSection(LPCRITICAL_SECTION cs) {
    static_cast<CriticalSectionImpl*>(cs->Impl)->mutex.unlock();
}

void WINAPI DeleteCriticalSection(LPCRITICAL_SECTION cs) {
    delete static_cast<CriticalSectionImpl*>(cs->Impl);
    cs->Impl = nullptr;
}
