// Property frames: this platform layer has no windowing system for property pages.
#include "olectl.h"

HRESULT WINAPI OleCreatePropertyFrame(HWND, UINT, UINT, LPCOLESTR, ULONG, LPUNKNOWN*, ULONG,
                                      LPCLSID, LCID, DWORD, LPVOID) {
    return E_NOTIMPL;
}
