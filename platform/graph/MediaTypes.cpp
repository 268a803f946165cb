// Media type records of the graph service.
#include "platform/graph/MediaTypes.h"

#include <cstring>

#include "objbase.h"
#include "platform/com/ComObject.h"
#include "uuids.h"

namespace mw::graph {

HRESULT CopyMediaType(AM_MEDIA_TYPE* dst, const AM_MEDIA_TYPE* src) {
    if (!dst || !src) return E_POINTER;
    *dst = *src;
    if (src->cbFormat && src->pbFormat) {
        dst->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(src->cbFormat));
        if (!dst->pbFormat) {
            *dst = AM_MEDIA_TYPE{};
            return E_OUTOFMEMORY;
        }
        std::memcpy(dst->pbFormat, src->pbFormat, src->cbFormat);
    } else {
        dst->pbFormat = nullptr;
        dst->cbFormat = 0;
    }
    if (dst->pUnk) dst->pUnk->AddRef();
    return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE* type) {
    if (!type) return;
    CoTaskMemFree(type->pbFormat);
    type->pbFormat = nullptr;
    type->cbFormat = 0;
    if (type->pUnk) {
        type->pUnk->Release();
        type->pUnk = nullptr;
    }
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* src) {
    auto* type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (!type) return nullptr;
    if (FAILED(CopyMediaType(type, src))) {
        CoTaskMemFree(type);
        return nullptr;
    }
    return type;
}

void DeleteMediaType(AM_MEDIA_TYPE* type) {
    if (!type) return;
    FreeMediaType(type);
    CoTaskMemFree(type);
}

bool MediaTypesEqual(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
    return IsEqualGUID(a.majortype, b.majortype) && IsEqualGUID(a.subtype, b.subtype) &&
           IsEqualGUID(a.formattype, b.formattype) && a.cbFormat == b.cbFormat &&
           (a.cbFormat == 0 || std::memcmp(a.pbFormat, b.pbFormat, a.cbFormat) == 0);
}

const WAVEFORMATEX* MediaType::Wave() const {
    if (!IsEqualGUID(FType.formattype, FORMAT_WaveFormatEx) || !FType.pbFormat ||
        FType.cbFormat < sizeof(WAVEFORMATEX) - 2)
        return nullptr;
    return reinterpret_cast<const WAVEFORMATEX*>(FType.pbFormat);
}

namespace {

void CopyOut(const MediaType& item, AM_MEDIA_TYPE** out) {
    *out = CreateMediaType(item.Get());
}

using MediaTypeEnumerator =
    mw::com::SnapshotEnumerator<IEnumMediaTypes, MediaType, AM_MEDIA_TYPE*, &CopyOut, E_POINTER>;

}  // namespace

HRESULT CreateMediaTypeEnumerator(const std::vector<MediaType>& types, IEnumMediaTypes** out) {
    if (!out) return E_POINTER;
    *out = new MediaTypeEnumerator(std::make_shared<const std::vector<MediaType>>(types), 0);
    return S_OK;
}

MediaType AudioMediaType(const WAVEFORMATEX& format) {
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Audio;
    mt.formattype = FORMAT_WaveFormatEx;
    mt.bFixedSizeSamples = TRUE;
    mt.lSampleSize = format.nBlockAlign;
    const bool extensible = format.wFormatTag == WAVE_FORMAT_EXTENSIBLE && format.cbSize >= 22;
    if (extensible) {
        mt.subtype = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format).SubFormat;
    } else {
        mt.subtype = MEDIASUBTYPE_PCM;
        mt.subtype.Data1 = format.wFormatTag;
    }
    mt.cbFormat = sizeof(WAVEFORMATEX) + format.cbSize;
    mt.pbFormat = const_cast<BYTE*>(reinterpret_cast<const BYTE*>(&format));
    return MediaType(mt);
}

}  // namespace mw::graph
