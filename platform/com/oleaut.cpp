// BSTR strings, VARIANT records and SAFEARRAYs.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "mwstring.h"
#include "oleauto.h"

// A BSTR is preceded by its byte length (32 bits); the block starts 4 bytes earlier. The
// block is allocated with 8 bytes in front so that the characters stay 4-byte aligned.
namespace {
constexpr size_t kPrefix = 8;

BSTR AllocBstrBytes(const void* src, UINT bytes) {
    char* block = static_cast<char*>(std::malloc(kPrefix + bytes + sizeof(OLECHAR)));
    if (!block) return nullptr;
    uint32_t len = bytes;
    std::memcpy(block + kPrefix - 4, &len, 4);
    if (src)
        std::memcpy(block + kPrefix, src, bytes);
    else
        std::memset(block + kPrefix, 0, bytes);
    std::memset(block + kPrefix + bytes, 0, sizeof(OLECHAR));
    if (bytes % 2) block[kPrefix + bytes + 1] = 0;
    return reinterpret_cast<BSTR>(block + kPrefix);
}
}  // namespace

BSTR WINAPI SysAllocStringLen(const OLECHAR* strIn, UINT ui) {
    return AllocBstrBytes(strIn, ui * sizeof(OLECHAR));
}

BSTR WINAPI SysAllocString(const OLECHAR* psz) {
    if (!psz) return nullptr;
    return SysAllocStringLen(psz, static_cast<UINT>(mw::U16Len(psz)));
}

BSTR WINAPI SysAllocStringByteLen(LPCSTR psz, UINT len) {
    return AllocBstrBytes(psz, len);
}

void WINAPI SysFreeString(BSTR bstrString) {
    if (bstrString) std::free(reinterpret_cast<char*>(bstrString) - kPrefix);
}

UINT WINAPI SysStringByteLen(BSTR bstr) {
    if (!bstr) return 0;
    uint32_t len;
    std::memcpy(&len, reinterpret_cast<char*>(bstr) - 4, 4);
    return len;
}

UINT WINAPI SysStringLen(BSTR pbstr) {
    return SysStringByteLen(pbstr) / sizeof(OLECHAR);
}

INT WINAPI SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
    if (!pbstr) return FALSE;
    BSTR n = SysAllocStringLen(psz, len);
    if (!n) return FALSE;
    SysFreeString(*pbstr);
    *pbstr = n;
    return TRUE;
}

INT WINAPI SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
    return SysReAllocStringLen(pbstr, psz, static_cast<UINT>(mw::U16Len(psz)));
}

// ---- SAFEARRAY ----
namespace {
ULONG ElementSize(VARTYPE vt) {
    switch (vt) {
        case VT_I1:
        case VT_UI1:
            return 1;
        case VT_I2:
        case VT_UI2:
        case VT_BOOL:
            return 2;
        case VT_I4:
        case VT_UI4:
        case VT_R4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR:
            return 4;
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_CY:
        case VT_DATE:
            return 8;
        case VT_BSTR:
        case VT_UNKNOWN:
        case VT_DISPATCH:
            return sizeof(void*);
        case VT_VARIANT:
            return sizeof(VARIANT);
        default:
            return 0;
    }
}

// The element type is kept in the 4 bytes in front of the descriptor (FADF_HAVEVARTYPE).
struct ArrayBlock {
    uint32_t pad;
    uint32_t vt;
    SAFEARRAY sa;  // followed by cDims - 1 more bounds
};

ULONG CountElements(const SAFEARRAY* psa) {
    ULONG n = 1;
    for (USHORT i = 0; i < psa->cDims; ++i)
        n *= psa->rgsabound[i].cElements;
    return psa->cDims ? n : 0;
}

VARTYPE TypeOf(const SAFEARRAY* psa) {
    const auto* b = reinterpret_cast<const ArrayBlock*>(reinterpret_cast<const char*>(psa) -
                                                        offsetof(ArrayBlock, sa));
    return static_cast<VARTYPE>(b->vt);
}

void ClearElements(SAFEARRAY* psa) {
    if (!psa->pvData) return;
    const ULONG n = CountElements(psa);
    if (psa->fFeatures & FADF_BSTR) {
        auto* p = static_cast<BSTR*>(psa->pvData);
        for (ULONG i = 0; i < n; ++i)
            SysFreeString(p[i]), p[i] = nullptr;
    } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
        auto* p = static_cast<IUnknown**>(psa->pvData);
        for (ULONG i = 0; i < n; ++i)
            if (p[i]) p[i]->Release(), p[i] = nullptr;
    } else if (psa->fFeatures & FADF_VARIANT) {
        auto* p = static_cast<VARIANT*>(psa->pvData);
        for (ULONG i = 0; i < n; ++i)
            VariantClear(&p[i]);
    }
}
}  // namespace

SAFEARRAY* WINAPI SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound) {
    const ULONG elem = ElementSize(vt);
    if (!elem || cDims == 0 || !rgsabound) return nullptr;
    const size_t bytes = sizeof(ArrayBlock) + (cDims - 1) * sizeof(SAFEARRAYBOUND);
    auto* block = static_cast<ArrayBlock*>(std::calloc(1, bytes));
    if (!block) return nullptr;
    block->vt = vt;
    SAFEARRAY* psa = &block->sa;
    psa->cDims = static_cast<USHORT>(cDims);
    psa->cbElements = elem;
    psa->fFeatures = FADF_HAVEVARTYPE;
    if (vt == VT_BSTR) psa->fFeatures |= FADF_BSTR;
    if (vt == VT_UNKNOWN) psa->fFeatures |= FADF_UNKNOWN;
    if (vt == VT_DISPATCH) psa->fFeatures |= FADF_DISPATCH;
    if (vt == VT_VARIANT) psa->fFeatures |= FADF_VARIANT;
    // The platform stores the bounds in reverse order of the dimensions.
    for (UINT i = 0; i < cDims; ++i)
        psa->rgsabound[i] = rgsabound[cDims - 1 - i];
    const size_t total = static_cast<size_t>(CountElements(psa)) * elem;
    psa->pvData = std::calloc(total ? total : 1, 1);
    if (!psa->pvData) {
        std::free(block);
        return nullptr;
    }
    return psa;
}

SAFEARRAY* WINAPI SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
    SAFEARRAYBOUND b{cElements, lLbound};
    return SafeArrayCreate(vt, 1, &b);
}

HRESULT WINAPI SafeArrayDestroy(SAFEARRAY* psa) {
    if (!psa) return S_OK;
    if (psa->cLocks > 0) return DISP_E_ARRAYISLOCKED;
    ClearElements(psa);
    std::free(psa->pvData);
    std::free(reinterpret_cast<char*>(psa) - offsetof(ArrayBlock, sa));
    return S_OK;
}

HRESULT WINAPI SafeArrayLock(SAFEARRAY* psa) {
    if (!psa) return E_INVALIDARG;
    ++psa->cLocks;
    return S_OK;
}

HRESULT WINAPI SafeArrayUnlock(SAFEARRAY* psa) {
    if (!psa) return E_INVALIDARG;
    if (psa->cLocks == 0) return E_UNEXPECTED;
    --psa->cLocks;
    return S_OK;
}

HRESULT WINAPI SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
    if (!psa || !ppvData) return E_INVALIDARG;
    ++psa->cLocks;
    *ppvData = psa->pvData;
    return S_OK;
}

HRESULT WINAPI SafeArrayUnaccessData(SAFEARRAY* psa) {
    return SafeArrayUnlock(psa);
}

HRESULT WINAPI SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
    if (!psa || !plLbound) return E_INVALIDARG;
    if (nDim < 1 || nDim > psa->cDims) return DISP_E_BADINDEX;
    *plLbound = psa->rgsabound[psa->cDims - nDim].lLbound;
    return S_OK;
}

HRESULT WINAPI SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
    if (!psa || !plUbound) return E_INVALIDARG;
    if (nDim < 1 || nDim > psa->cDims) return DISP_E_BADINDEX;
    const SAFEARRAYBOUND& b = psa->rgsabound[psa->cDims - nDim];
    *plUbound = b.lLbound + static_cast<LONG>(b.cElements) - 1;
    return S_OK;
}

UINT WINAPI SafeArrayGetDim(SAFEARRAY* psa) {
    return psa ? psa->cDims : 0;
}
UINT WINAPI SafeArrayGetElemsize(SAFEARRAY* psa) {
    return psa ? psa->cbElements : 0;
}

HRESULT WINAPI SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
    if (!psa || !pvt) return E_INVALIDARG;
    *pvt = TypeOf(psa);
    return S_OK;
}

HRESULT WINAPI SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut) {
    if (!ppsaOut) return E_INVALIDARG;
    *ppsaOut = nullptr;
    if (!psa) return S_OK;
    std::vector<SAFEARRAYBOUND> bounds(psa->cDims);
    for (USHORT i = 0; i < psa->cDims; ++i)
        bounds[i] = psa->rgsabound[psa->cDims - 1 - i];
    SAFEARRAY* out = SafeArrayCreate(TypeOf(psa), psa->cDims, bounds.data());
    if (!out) return E_OUTOFMEMORY;
    const ULONG n = CountElements(psa);
    if (psa->fFeatures & FADF_BSTR) {
        auto* s = static_cast<BSTR*>(psa->pvData);
        auto* d = static_cast<BSTR*>(out->pvData);
        for (ULONG i = 0; i < n; ++i)
            d[i] =
                s[i] ? SysAllocStringByteLen(reinterpret_cast<LPCSTR>(s[i]), SysStringByteLen(s[i]))
                     : nullptr;
    } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
        auto* s = static_cast<IUnknown**>(psa->pvData);
        auto* d = static_cast<IUnknown**>(out->pvData);
        for (ULONG i = 0; i < n; ++i)
            if ((d[i] = s[i])) d[i]->AddRef();
    } else if (psa->fFeatures & FADF_VARIANT) {
        auto* s = static_cast<VARIANT*>(psa->pvData);
        auto* d = static_cast<VARIANT*>(out->pvData);
        for (ULONG i = 0; i < n; ++i)
            VariantCopy(&d[i], &s[i]);
    } else if (n) {
        std::memcpy(out->pvData, psa->pvData, static_cast<size_t>(n) * psa->cbElements);
    }
    *ppsaOut = out;
    return S_OK;
}

// ---- VARIANT ----
void WINAPI VariantInit(VARIANTARG* pvarg) {
    if (!pvarg) return;
    std::memset(pvarg, 0, sizeof(VARIANT));
    pvarg->vt = VT_EMPTY;
}

HRESULT WINAPI VariantClear(VARIANTARG* pvarg) {
    if (!pvarg) return E_INVALIDARG;
    if (!(pvarg->vt & VT_BYREF)) {
        if (pvarg->vt & VT_ARRAY) {
            HRESULT hr = SafeArrayDestroy(pvarg->parray);
            if (FAILED(hr)) return hr;
        } else {
            switch (pvarg->vt) {
                case VT_BSTR:
                    SysFreeString(pvarg->bstrVal);
                    break;
                case VT_UNKNOWN:
                case VT_DISPATCH:
                    if (pvarg->punkVal) pvarg->punkVal->Release();
                    break;
                default:
                    break;
            }
        }
    }
    std::memset(pvarg, 0, sizeof(VARIANT));
    pvarg->vt = VT_EMPTY;
    return S_OK;
}

HRESULT WINAPI VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
    if (!pvargDest || !pvargSrc) return E_INVALIDARG;
    if (pvargDest == pvargSrc) return S_OK;
    HRESULT hr = VariantClear(pvargDest);
    if (FAILED(hr)) return hr;
    VARIANT tmp = *pvargSrc;
    if (!(tmp.vt & VT_BYREF)) {
        if (tmp.vt & VT_ARRAY) {
            hr = SafeArrayCopy(pvargSrc->parray, &tmp.parray);
            if (FAILED(hr)) return hr;
        } else if (tmp.vt == VT_BSTR && pvargSrc->bstrVal) {
            tmp.bstrVal = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(pvargSrc->bstrVal),
                                                SysStringByteLen(pvargSrc->bstrVal));
            if (!tmp.bstrVal) return E_OUTOFMEMORY;
        } else if ((tmp.vt == VT_UNKNOWN || tmp.vt == VT_DISPATCH) && tmp.punkVal) {
            tmp.punkVal->AddRef();
        }
    }
    *pvargDest = tmp;
    return S_OK;
}

namespace {
bool IsNumeric(VARTYPE vt) {
    switch (vt) {
        case VT_I1:
        case VT_UI1:
        case VT_I2:
        case VT_UI2:
        case VT_I4:
        case VT_UI4:
        case VT_I8:
        case VT_UI8:
        case VT_INT:
        case VT_UINT:
        case VT_R4:
        case VT_R8:
        case VT_BOOL:
        case VT_ERROR:
            return true;
        default:
            return false;
    }
}

double ToDouble(const VARIANT& v) {
    switch (v.vt) {
        case VT_I1:
            return v.cVal;
        case VT_UI1:
            return v.bVal;
        case VT_I2:
            return v.iVal;
        case VT_UI2:
            return v.uiVal;
        case VT_I4:
        case VT_INT:
        case VT_ERROR:
            return v.lVal;
        case VT_UI4:
        case VT_UINT:
            return v.ulVal;
        case VT_I8:
            return static_cast<double>(v.llVal);
        case VT_UI8:
            return static_cast<double>(v.ullVal);
        case VT_R4:
            return v.fltVal;
        case VT_R8:
            return v.dblVal;
        case VT_BOOL:
            return v.boolVal ? -1.0 : 0.0;
        default:
            return 0;
    }
}

HRESULT FromDouble(double d, VARTYPE vt, VARIANT* out, bool integral) {
    auto in = [&](double lo, double hi) { return d >= lo && d <= hi; };
    if (!integral && vt != VT_R4 && vt != VT_R8 && vt != VT_BOOL) d = std::nearbyint(d);
    switch (vt) {
        case VT_I1:
            if (!in(-128, 127)) return DISP_E_OVERFLOW;
            out->cVal = static_cast<CHAR>(d);
            break;
        case VT_UI1:
            if (!in(0, 255)) return DISP_E_OVERFLOW;
            out->bVal = static_cast<BYTE>(d);
            break;
        case VT_I2:
            if (!in(-32768, 32767)) return DISP_E_OVERFLOW;
            out->iVal = static_cast<SHORT>(d);
            break;
        case VT_UI2:
            if (!in(0, 65535)) return DISP_E_OVERFLOW;
            out->uiVal = static_cast<USHORT>(d);
            break;
        case VT_I4:
        case VT_INT:
            if (!in(-2147483648.0, 2147483647.0)) return DISP_E_OVERFLOW;
            out->lVal = static_cast<LONG>(d);
            break;
        case VT_UI4:
        case VT_UINT:
            if (!in(0, 4294967295.0)) return DISP_E_OVERFLOW;
            out->ulVal = static_cast<ULONG>(d);
            break;
        case VT_I8:
            if (!in(-9.2233720368547758e18, 9.2233720368547748e18)) return DISP_E_OVERFLOW;
            out->llVal = static_cast<LONGLONG>(d);
            break;
        case VT_UI8:
            if (!in(0, 1.8446744073709550e19)) return DISP_E_OVERFLOW;
            out->ullVal = static_cast<ULONGLONG>(d);
            break;
        case VT_R4:
            out->fltVal = static_cast<FLOAT>(d);
            break;
        case VT_R8:
            out->dblVal = d;
            break;
        case VT_BOOL:
            out->boolVal = d != 0 ? VARIANT_TRUE : VARIANT_FALSE;
            break;
        default:
            return DISP_E_TYPEMISMATCH;
    }
    out->vt = vt;
    return S_OK;
}
}  // namespace

HRESULT WINAPI VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, USHORT wFlags,
                                 VARTYPE vt) {
    if (!pvargDest || !pvarSrc) return E_INVALIDARG;
    VARIANT src;
    VariantInit(&src);
    HRESULT hr = VariantCopy(&src, pvarSrc);  // the source may be the destination
    if (FAILED(hr)) return hr;
    VARIANT out;
    VariantInit(&out);
    if (src.vt == vt) {
        hr = VariantCopy(&out, &src);
    } else if (vt == VT_EMPTY) {
        hr = S_OK;
    } else if (vt == VT_BSTR && IsNumeric(src.vt)) {
        std::string text;
        if (src.vt == VT_BOOL)
            text = (wFlags & VARIANT_ALPHABOOL) ? (src.boolVal ? "True" : "False")
                                                : (src.boolVal ? "-1" : "0");
        else if (src.vt == VT_R4 || src.vt == VT_R8) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%.15g", ToDouble(src));
            text = buf;
        } else if (src.vt == VT_I8)
            text = std::to_string(src.llVal);
        else if (src.vt == VT_UI8)
            text = std::to_string(src.ullVal);
        else
            text = std::to_string(static_cast<long long>(ToDouble(src)));
        out.bstrVal = SysAllocString(mw::Utf8ToUtf16(text).c_str());
        out.vt = VT_BSTR;
        hr = out.bstrVal ? S_OK : E_OUTOFMEMORY;
    } else if (src.vt == VT_BSTR && IsNumeric(vt)) {
        std::string text = mw::Utf16ToUtf8(
            std::u16string_view(src.bstrVal ? src.bstrVal : u"", SysStringLen(src.bstrVal)));
        size_t b = text.find_first_not_of(" \t"), e = text.find_last_not_of(" \t");
        text = b == std::string::npos ? "" : text.substr(b, e - b + 1);
        if (vt == VT_BOOL &&
            (text == "True" || text == "true" || text == "False" || text == "false")) {
            out.vt = VT_BOOL;
            out.boolVal = (text[0] == 'T' || text[0] == 't') ? VARIANT_TRUE : VARIANT_FALSE;
            hr = S_OK;
        } else {
            char* end = nullptr;
            double d = text.empty() ? 0 : std::strtod(text.c_str(), &end);
            if (text.empty() || (end && *end))
                hr = DISP_E_TYPEMISMATCH;
            else
                hr = FromDouble(d, vt, &out, false);
        }
    } else if (IsNumeric(src.vt) && IsNumeric(vt)) {
        hr = FromDouble(ToDouble(src), vt, &out, false);
    } else {
        hr = DISP_E_TYPEMISMATCH;
    }
    VariantClear(&src);
    if (FAILED(hr)) {
        VariantClear(&out);
        return hr;
    }
    VariantClear(pvargDest);
    *pvargDest = out;
    return S_OK;
}
