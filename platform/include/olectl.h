// Property frames of OLE controls.
#pragma once

#include "ocidl.h"

// Shows the property pages of the objects in a modal frame. This platform layer has no windowing
// system for property pages: the call answers E_NOTIMPL and shows nothing, which the callers
// treat as "no dialog".
HRESULT WINAPI OleCreatePropertyFrame(HWND hwndOwner, UINT x, UINT y, LPCOLESTR lpszCaption,
                                      ULONG cObjects, LPUNKNOWN* ppUnk, ULONG cPages,
                                      LPCLSID pPageClsID, LCID lcid, DWORD dwReserved,
                                      LPVOID pvReserved);
