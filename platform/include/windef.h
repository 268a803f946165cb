// Basic types of the platform, with the platform's names and widths.
// On Linux the platform's 32-bit integers stay 32-bit; pointer-sized types follow the host.
#pragma once

#include <cstddef>
#include <cstdint>

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef int32_t BOOL;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef char CHAR;
typedef char16_t WCHAR;  // the platform's strings are UTF-16
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint64_t QWORD;
typedef float FLOAT;
typedef double DOUBLE;
typedef void VOID;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* LPBYTE;
typedef BYTE* PBYTE;
typedef DWORD* LPDWORD;
typedef LONG* LPLONG;
typedef WORD* LPWORD;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* LPOLESTR;
typedef const WCHAR* LPCOLESTR;
typedef WCHAR OLECHAR;

typedef uintptr_t UINT_PTR;
typedef intptr_t INT_PTR;
typedef uintptr_t ULONG_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef size_t SIZE_T;

typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;

typedef int32_t HRESULT;
typedef int64_t REFERENCE_TIME;
typedef REFERENCE_TIME* LPREFERENCE_TIME;

typedef void* HANDLE;
typedef HANDLE* LPHANDLE;
typedef struct HWND__* HWND;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef HANDLE HGLOBAL;
typedef struct HDC__* HDC;
typedef struct HICON__* HICON;
typedef LONG_PTR (*FARPROC)();

typedef struct tagRECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
} RECT, *LPRECT;

typedef struct tagPOINT {
    LONG x;
    LONG y;
} POINT, *LPPOINT;

typedef struct tagSIZE {
    LONG cx;
    LONG cy;
} SIZE, *LPSIZE;

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)))

#define MAKEWORD(lo, hi) \
    (static_cast<WORD>((static_cast<BYTE>(lo)) | (static_cast<WORD>(static_cast<BYTE>(hi)) << 8)))
#define MAKELONG(lo, hi) \
    (static_cast<LONG>((static_cast<WORD>(lo)) | (static_cast<DWORD>(static_cast<WORD>(hi)) << 16)))
#define LOWORD(l) (static_cast<WORD>(static_cast<DWORD_PTR>(l) & 0xffff))
#define HIWORD(l) (static_cast<WORD>((static_cast<DWORD_PTR>(l) >> 16) & 0xffff))

#define STDMETHODCALLTYPE
#define WINAPI
#define CALLBACK
#define STDMETHOD(name) virtual HRESULT STDMETHODCALLTYPE name
#define STDMETHOD_(type, name) virtual type STDMETHODCALLTYPE name
#define STDMETHODIMP HRESULT STDMETHODCALLTYPE
#define STDMETHODIMP_(type) type STDMETHODCALLTYPE
#define PURE = 0

// ---- Added for the COM core (issue 3): 64-bit halves, file times, locale ids ----
typedef union _LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    };
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    };
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

// 100 ns intervals since 1601-01-01 (UTC).
typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef DWORD LCID;
typedef WORD LANGID;
typedef LONG SCODE;
typedef BYTE BOOLEAN;
typedef const RECT* LPCRECT;
typedef DWORD* PDWORD;
typedef ULONG* PULONG;
typedef ULONGLONG DWORDLONG;

static_assert(sizeof(LARGE_INTEGER) == 8 && sizeof(ULARGE_INTEGER) == 8 && sizeof(FILETIME) == 8);
