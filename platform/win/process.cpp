// The process id and the process pseudo handle.
#include <unistd.h>

#include "winmem.h"

DWORD WINAPI GetCurrentProcessId() {
    return static_cast<DWORD>(::getpid());
}

HANDLE WINAPI GetCurrentProcess() {
    return INVALID_HANDLE_VALUE;
}
