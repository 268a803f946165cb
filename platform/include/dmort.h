// Helpers for DMO_MEDIA_TYPE records (platform/com). pbFormat comes from CoTaskMemAlloc.
#pragma once

#include "mediaobj.h"

HRESULT WINAPI MoInitMediaType(DMO_MEDIA_TYPE* pmt, DWORD cbFormat);
HRESULT WINAPI MoFreeMediaType(DMO_MEDIA_TYPE* pmt);
HRESULT WINAPI MoCopyMediaType(DMO_MEDIA_TYPE* pmtDest, const DMO_MEDIA_TYPE* pmtSrc);
HRESULT WINAPI MoCreateMediaType(DMO_MEDIA_TYPE** ppmt, DWORD cbFormat);
HRESULT WINAPI MoDeleteMediaType(DMO_MEDIA_TYPE* pmt);
HRESULT WINAPI MoDuplicateMediaType(DMO_MEDIA_TYPE** ppmtDest, const DMO_MEDIA_TYPE* pmtSrc);
