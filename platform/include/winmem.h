// Win32 basics of the process: the global heap (GlobalAlloc and its family), the process id,
// and the loading of the platform's libraries by name.
//
// Global memory: every block lives in a process-wide table, so handles are validated and a
// bad or freed handle fails (NULL, FALSE or the handle back, as the platform answers) instead
// of crashing. Any thread may allocate, lock and free, also from device callbacks and other
// threads than the allocating one. A GMEM_FIXED block's handle is its address; a GMEM_MOVEABLE
// block's handle is an opaque value and GlobalLock gives its address.
//
// Libraries: Linux has none of the platform's DLLs (wmvcore.dll, msacm32.dll, ...). The services
// that stand in for them register their entry points with mw::RegisterLibraryExport; a load of
// a registered library name answers a handle whose GetProcAddress finds those entry points.
// Names match without case, with or without a directory and the ".dll" extension. Unknown
// names fail as on the platform: NULL with ERROR_MOD_NOT_FOUND (GetProcAddress:
// ERROR_PROC_NOT_FOUND; a bad handle: ERROR_INVALID_HANDLE).
#pragma once

#include "windef.h"

constexpr UINT GMEM_FIXED = 0x0000;
constexpr UINT GMEM_MOVEABLE = 0x0002;
constexpr UINT GMEM_NOCOMPACT = 0x0010;
constexpr UINT GMEM_NODISCARD = 0x0020;
constexpr UINT GMEM_ZEROINIT = 0x0040;
constexpr UINT GMEM_MODIFY = 0x0080;
constexpr UINT GMEM_DISCARDABLE = 0x0100;
constexpr UINT GMEM_SHARE = 0x2000;
constexpr UINT GMEM_DDESHARE = 0x2000;
constexpr UINT GMEM_INVALID_HANDLE = 0x8000;
constexpr UINT GMEM_LOCKCOUNT = 0x00FF;
constexpr UINT GHND = GMEM_MOVEABLE | GMEM_ZEROINIT;
constexpr UINT GPTR = GMEM_FIXED | GMEM_ZEROINIT;

// NULL on failure (out of memory, unknown flags). A size of 0 gives a valid empty block.
HGLOBAL WINAPI GlobalAlloc(UINT uFlags, SIZE_T dwBytes);
// Resizes a block; contents are kept up to the smaller size, GMEM_ZEROINIT clears what grows.
// A fixed block moves only with GMEM_MOVEABLE (its handle, its address, changes); a moveable
// block keeps its handle but fails while locked. NULL on failure, the block left as it was.
HGLOBAL WINAPI GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags);
// The address of the block (lock count + 1 for moveable blocks); NULL for a bad handle.
LPVOID WINAPI GlobalLock(HGLOBAL hMem);
// TRUE while a moveable block stays locked; FALSE when the count reaches 0 (GetLastError 0),
// for a fixed block, or for a bad handle (ERROR_INVALID_HANDLE) or an unlocked block
// (ERROR_NOT_LOCKED).
BOOL WINAPI GlobalUnlock(HGLOBAL hMem);
// NULL on success; the handle itself for a bad handle. A locked block is freed all the same.
HGLOBAL WINAPI GlobalFree(HGLOBAL hMem);
// The block's size in bytes; 0 for a bad handle.
SIZE_T WINAPI GlobalSize(HGLOBAL hMem);
// The lock count in the low byte; GMEM_INVALID_HANDLE for a bad handle.
UINT WINAPI GlobalFlags(HGLOBAL hMem);
// The handle of a block given its address; NULL when the address starts no block.
HGLOBAL WINAPI GlobalHandle(LPCVOID pMem);

DWORD WINAPI GetCurrentProcessId();
// The pseudo handle of the current process ((HANDLE)-1), as the platform answers.
HANDLE WINAPI GetCurrentProcess();

typedef HMODULE HLIB;
constexpr UINT SEM_FAILCRITICALERRORS = 0x0001;
constexpr UINT SEM_NOGPFAULTERRORBOX = 0x0002;
constexpr UINT SEM_NOALIGNMENTFAULTEXCEPT = 0x0004;
constexpr UINT SEM_NOOPENFILEERRORBOX = 0x8000;

HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName);
HMODULE WINAPI LoadLibraryA(LPCSTR lpLibFileName);
inline HMODULE LoadLibrary(LPCWSTR lpLibFileName) {
    return LoadLibraryW(lpLibFileName);
}
// Counted: each successful load is balanced by a FreeLibrary; the in-process libraries stay
// mapped (their handles remain valid) when the count reaches 0.
BOOL WINAPI FreeLibrary(HMODULE hLibModule);
FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName);
// The handle of a library loaded before, without counting; NULL if it is not loaded.
HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName);
// Error modes are recorded per process and answered back; no dialog exists on Linux anyway.
UINT WINAPI SetErrorMode(UINT uMode);
UINT WINAPI GetErrorMode();

// The run-time library's loader (SysUtils.SafeLoadLibrary): sets the error mode (by default
// SEM_NOOPENFILEERRORBOX), loads the library and restores the error mode. 0 on failure.
HMODULE SafeLoadLibrary(LPCWSTR filename, UINT errorMode = SEM_NOOPENFILEERRORBOX);
HMODULE SafeLoadLibrary(LPCSTR filename, UINT errorMode = SEM_NOOPENFILEERRORBOX);

namespace mw {
// Makes `library` (for example u"wmvcore.dll") loadable and adds one entry point to it.
// Registering the same name again replaces the entry point. Thread-safe.
void RegisterLibraryExport(const char16_t* library, const char* procName, FARPROC proc);
// Makes a library loadable with no entry points yet.
void RegisterLibrary(const char16_t* library);
// Casts between a function and the platform's FARPROC (through void(*)(), which converts to
// and from every function type without a -Wcast-function-type warning).
template <class F>
FARPROC AsFarProc(F* f) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(f));
}
template <class F>
F* FromFarProc(FARPROC p) {
    return reinterpret_cast<F*>(reinterpret_cast<void (*)()>(p));
}
}  // namespace mw
