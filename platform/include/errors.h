// Texts of the filter graph service's result codes.
#pragma once

#include "windef.h"

constexpr DWORD MAX_ERROR_TEXT_LEN = 160;

// Writes the text of a result code (the platform's message where known, else the code's name,
// else "Unknown error 0x%08X"), truncated to MAX_ERROR_TEXT_LEN; answers the characters written
// without the null, 0 when the buffer is null or empty.
DWORD WINAPI AMGetErrorTextA(HRESULT hr, LPSTR pbuffer, DWORD MaxLen);
DWORD WINAPI AMGetErrorTextW(HRESULT hr, LPWSTR pbuffer, DWORD MaxLen);
