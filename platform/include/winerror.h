// Result codes of the platform (HRESULT values) and their tests.
#pragma once

#include "windef.h"

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_CODE(hr) ((hr) & 0xFFFF)
#define HRESULT_FACILITY(hr) (((hr) >> 16) & 0x1fff)
#define MAKE_HRESULT(sev, fac, code) \
    static_cast<HRESULT>((static_cast<uint32_t>(sev) << 31) | (static_cast<uint32_t>(fac) << 16) | static_cast<uint32_t>(code))
#define MW_HR(x) static_cast<HRESULT>(static_cast<uint32_t>(x))

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT NOERROR = 0;

constexpr HRESULT E_NOTIMPL = MW_HR(0x80004001);
constexpr HRESULT E_NOINTERFACE = MW_HR(0x80004002);
constexpr HRESULT E_POINTER = MW_HR(0x80004003);
constexpr HRESULT E_ABORT = MW_HR(0x80004004);
constexpr HRESULT E_FAIL = MW_HR(0x80004005);
constexpr HRESULT E_UNEXPECTED = MW_HR(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = MW_HR(0x80070005);
constexpr HRESULT E_HANDLE = MW_HR(0x80070006);
constexpr HRESULT E_OUTOFMEMORY = MW_HR(0x8007000E);
constexpr HRESULT E_INVALIDARG = MW_HR(0x80070057);

constexpr HRESULT CLASS_E_NOAGGREGATION = MW_HR(0x80040110);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MW_HR(0x80040111);
constexpr HRESULT REGDB_E_CLASSNOTREG = MW_HR(0x80040154);
constexpr HRESULT CO_E_NOTINITIALIZED = MW_HR(0x800401F0);

// Win32 error codes and their HRESULT form.
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
constexpr DWORD ERROR_TIMEOUT = 1460;

constexpr HRESULT HRESULT_FROM_WIN32(DWORD x) {
    return static_cast<HRESULT>(x) <= 0 ? static_cast<HRESULT>(x)
                                        : static_cast<HRESULT>((x & 0x0000FFFF) | (7u << 16) | 0x80000000u);
}
