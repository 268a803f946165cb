// DMO_MEDIA_TYPE helpers: the format block comes from task memory and pUnk holds a reference.
#include <cstring>

#include "dmort.h"

HRESULT WINAPI MoInitMediaType(DMO_MEDIA_TYPE* pmt, DWORD cbFormat) {
    if (!pmt) return E_POINTER;
    std::memset(pmt, 0, sizeof *pmt);
    if (cbFormat) {
        pmt->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(cbFormat));
        if (!pmt->pbFormat) return E_OUTOFMEMORY;
    }
    pmt->cbFormat = cbFormat;
    return S_OK;
}

HRESULT WINAPI MoFreeMediaType(DMO_MEDIA_TYPE* pmt) {
    if (!pmt) return E_POINTER;
    if (pmt->pUnk) {
        pmt->pUnk->Release();
        pmt->pUnk = nullptr;
    }
    CoTaskMemFree(pmt->pbFormat);
    pmt->pbFormat = nullptr;
    pmt->cbFormat = 0;
    return S_OK;
}

HRESULT WINAPI MoCopyMediaType(DMO_MEDIA_TYPE* pmtDest, const DMO_MEDIA_TYPE* pmtSrc) {
    if (!pmtDest || !pmtSrc) return E_POINTER;
    *pmtDest = *pmtSrc;
    pmtDest->pbFormat = nullptr;
    if (pmtSrc->cbFormat && pmtSrc->pbFormat) {
        pmtDest->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(pmtSrc->cbFormat));
        if (!pmtDest->pbFormat) {
            pmtDest->cbFormat = 0;
            pmtDest->pUnk = nullptr;
            return E_OUTOFMEMORY;
        }
        std::memcpy(pmtDest->pbFormat, pmtSrc->pbFormat, pmtSrc->cbFormat);
    } else {
        pmtDest->cbFormat = 0;
    }
    if (pmtDest->pUnk) pmtDest->pUnk->AddRef();
    return S_OK;
}

HRESULT WINAPI MoCreateMediaType(DMO_MEDIA_TYPE** ppmt, DWORD cbFormat) {
    if (!ppmt) return E_POINTER;
    *ppmt = static_cast<DMO_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(DMO_MEDIA_TYPE)));
    if (!*ppmt) return E_OUTOFMEMORY;
    HRESULT hr = MoInitMediaType(*ppmt, cbFormat);
    if (FAILED(hr)) {
        CoTaskMemFree(*ppmt);
        *ppmt = nullptr;
    }
    return hr;
}

HRESULT WINAPI MoDeleteMediaType(DMO_MEDIA_TYPE* pmt) {
    if (!pmt) return E_POINTER;
    MoFreeMediaType(pmt);
    CoTaskMemFree(pmt);
    return S_OK;
}

HRESULT WINAPI MoDuplicateMediaType(DMO_MEDIA_TYPE** ppmtDest, const DMO_MEDIA_TYPE* pmtSrc) {
    if (!ppmtDest || !pmtSrc) return E_POINTER;
    *ppmtDest = static_cast<DMO_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(DMO_MEDIA_TYPE)));
    if (!*ppmtDest) return E_OUTOFMEMORY;
    HRESULT hr = MoCopyMediaType(*ppmtDest, pmtSrc);
    if (FAILED(hr)) {
        CoTaskMemFree(*ppmtDest);
        *ppmtDest = nullptr;
    }
    return hr;
}
