// Functions of OLE automation: BSTR strings, VARIANT records and SAFEARRAYs. Implemented by
// platform/com; safe to call from any thread. BSTRs use their own allocator (free them with
// SysFreeString, never CoTaskMemFree).
#pragma once

#include "oaidl.h"

BSTR WINAPI SysAllocString(const OLECHAR* psz);
BSTR WINAPI SysAllocStringLen(const OLECHAR* strIn, UINT ui);
// A BSTR holding `len` bytes copied from psz (may be null: uninitialised bytes).
BSTR WINAPI SysAllocStringByteLen(LPCSTR psz, UINT len);
INT WINAPI SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
INT WINAPI SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
void WINAPI SysFreeString(BSTR bstrString);
UINT WINAPI SysStringLen(BSTR pbstr);
UINT WINAPI SysStringByteLen(BSTR bstr);

void WINAPI VariantInit(VARIANTARG* pvarg);
// Frees what the variant owns (BSTR, interface reference, array) and leaves it VT_EMPTY.
HRESULT WINAPI VariantClear(VARIANTARG* pvarg);
HRESULT WINAPI VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
// Conversions between the numeric types, VT_BOOL and VT_BSTR (decimal text, "True"/"False");
// DISP_E_TYPEMISMATCH for anything else, DISP_E_OVERFLOW when the value does not fit.
HRESULT WINAPI VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                                 VARTYPE vt);
constexpr USHORT VARIANT_NOVALUEPROP = 0x1;
constexpr USHORT VARIANT_ALPHABOOL = 0x2;

// One-dimensional and general arrays of VT_UI1, VT_I2, VT_I4, VT_R4, VT_R8, VT_BSTR,
// VT_UNKNOWN, VT_DISPATCH and VT_VARIANT elements.
SAFEARRAY* WINAPI SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound);
SAFEARRAY* WINAPI SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
HRESULT WINAPI SafeArrayDestroy(SAFEARRAY* psa);
HRESULT WINAPI SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
HRESULT WINAPI SafeArrayUnaccessData(SAFEARRAY* psa);
HRESULT WINAPI SafeArrayLock(SAFEARRAY* psa);
HRESULT WINAPI SafeArrayUnlock(SAFEARRAY* psa);
HRESULT WINAPI SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
HRESULT WINAPI SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
UINT WINAPI SafeArrayGetDim(SAFEARRAY* psa);
UINT WINAPI SafeArrayGetElemsize(SAFEARRAY* psa);
HRESULT WINAPI SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);
HRESULT WINAPI SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut);
