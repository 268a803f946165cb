// Media type helpers: stream kinds, comparison, copying and freeing of media type records, the
// FourCC helpers and the audio types that all audio sources share.
#include <cstdio>
#include <cstring>

#include "media_base/DSBaseClass.h"

namespace mw {

void DSAssert(bool condition, const char* message) {
    if (!condition) throw EAssertionFailed(message);
}

void DSAssertInDestructor(bool condition, const char* message) {
    if (!condition) std::fprintf(stderr, "%s\n", message);
}

void DSReportException(const char* what) {
    std::fprintf(stderr, "%s\n", what);
}

}  // namespace mw

namespace {

// The FourCC form of a subtype: Data1 is the code, the rest is fixed.
constexpr uint16_t kFourCCData2 = 0x0000;
constexpr uint16_t kFourCCData3 = 0x0010;
constexpr uint8_t kFourCCData4[8] = {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

bool HasFourCCBase(const GUID& g) {
    return g.Data2 == kFourCCData2 && g.Data3 == kFourCCData3 &&
           std::memcmp(g.Data4, kFourCCData4, 8) == 0;
}

}  // namespace

TDSStreamDataType DSGetMediaStreamDataType(const GUID* mediaType) {
    const GUID& major = *mediaType;
    struct Row {
        const GUID& major;
        TDSStreamDataType kind;
    };
    static const Row rows[] = {
        {MEDIATYPE_AnalogAudio, sdtAudio}, {MEDIATYPE_AnalogVideo, sdtVideo},
        {MEDIATYPE_Audio, sdtAudio},       {MEDIATYPE_AUXLine21Data, sdtText},
        {MEDIATYPE_File, sdtUnknown},      {MEDIATYPE_Interleaved, sdtVideo},
        {MEDIATYPE_LMRT, sdtUnknown},      {MEDIATYPE_Midi, sdtMidi},
        {MEDIATYPE_MPEG2_PES, sdtVideo},   {MEDIATYPE_ScriptCommand, sdtUnknown},
        {MEDIATYPE_Stream, sdtUnknown},    {MEDIATYPE_Text, sdtText},
        {MEDIATYPE_Timecode, stdTimeCode}, {MEDIATYPE_URL_STREAM, sdtUnknown},
        {MEDIATYPE_Video, sdtVideo},
    };
    for (const Row& row : rows)
        if (IsEqualGUID(major, row.major)) return row.kind;
    return sdtUnknown;
}

bool DSIsEqualMediaType(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
    if (!IsEqualGUID(a.majortype, b.majortype) || !IsEqualGUID(a.subtype, b.subtype) ||
        !IsEqualGUID(a.formattype, b.formattype) || a.cbFormat != b.cbFormat)
        return false;
    return a.cbFormat == 0 || std::memcmp(a.pbFormat, b.pbFormat, a.cbFormat) == 0;
}

void DSCopyMediaType(AM_MEDIA_TYPE* destination, const AM_MEDIA_TYPE* source) {
    *destination = *source;
    if (source->cbFormat != 0) {
        mw::DSAssert(source->pbFormat != nullptr);
        destination->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(source->cbFormat));
        if (destination->pbFormat)
            std::memcpy(destination->pbFormat, source->pbFormat, source->cbFormat);
        else
            destination->cbFormat = 0;
    }
    if (destination->pUnk) destination->pUnk->AddRef();
}

void DSClearMediaType(AM_MEDIA_TYPE* mediaType) {
    if (mediaType->cbFormat != 0) {
        CoTaskMemFree(mediaType->pbFormat);
        mediaType->cbFormat = 0;
        mediaType->pbFormat = nullptr;
    }
    if (IUnknown* unk = mediaType->pUnk) {
        mediaType->pUnk = nullptr;
        unk->Release();
    }
}

void QPDSFreeMediaType(const AM_MEDIA_TYPE& mediaType) {
    // A private copy is freed; the caller's record is left exactly as it was.
    AM_MEDIA_TYPE copy = mediaType;
    if (copy.cbFormat != 0) CoTaskMemFree(copy.pbFormat);
}

void QPDSDeleteMediaType(AM_MEDIA_TYPE* mediaType) {
    if (!mediaType) return;
    DSClearMediaType(mediaType);
    CoTaskMemFree(mediaType);
}

std::string DSGetFOURCC(uint32_t value) {
    switch (value) {
        case 0:
            return "RGB";
        case 1:
            return "RLE8";
        case 2:
            return "RLE4";
        case 3:
            return "BITFIELDS";
        default:
            break;
    }
    std::string text(4, '\0');
    for (int i = 0; i < 4; ++i)
        text[i] = static_cast<char>((value >> (8 * i)) & 0xFF);
    return text;
}

bool QPDSIsFourCC(const GUID& subtype) {
    static const GUID* const uncompressed[] = {
        &MEDIASUBTYPE_YUY2,     &MEDIASUBTYPE_YVYU,     &MEDIASUBTYPE_YV12,   &MEDIASUBTYPE_IYUV,
        &MEDIASUBTYPE_UYVY,     &MEDIASUBTYPE_YUYV,     &MEDIASUBTYPE_RGB24,  &MEDIASUBTYPE_RGB32,
        &MEDIASUBTYPE_ARGB32,   &MEDIASUBTYPE_ARGB4444, &MEDIASUBTYPE_RGB555, &MEDIASUBTYPE_RGB565,
        &MEDIASUBTYPE_ARGB1555,
    };
    for (const GUID* g : uncompressed)
        if (IsEqualGUID(subtype, *g)) return false;
    return HasFourCCBase(subtype);
}

namespace {

// The first input pin of a filter, in EnumPins order.
ComPtr<IPin> FirstInputPin(IBaseFilter* filter) {
    ComPtr<IEnumPins> pins;
    if (!filter || filter->EnumPins(pins.ReleaseAndGetAddressOf()) != S_OK || !pins) return nullptr;
    ComPtr<IPin> pin;
    while (pins->Next(1, pin.ReleaseAndGetAddressOf(), nullptr) == S_OK && pin) {
        PIN_DIRECTION direction;
        if (pin->QueryDirection(&direction) == S_OK && direction == PINDIR_INPUT) return pin;
    }
    return nullptr;
}

}  // namespace

uint32_t QPGetPinFourCC(IBaseFilter* filter, std::u16string& filterName,
                        ComPtr<IBaseFilter>& foundFilter, ComPtr<IPin>& foundPin,
                        const std::u16string& skipName) {
    uint32_t result = 0;
    bool found = false;
    ComPtr<IPin> pin = FirstInputPin(filter);
    if (!pin) return 0;
    AM_MEDIA_TYPE type{};
    if (FAILED(pin->ConnectionMediaType(&type))) return 0;
    if (IsEqualGUID(type.subtype, MEDIASUBTYPE_MPEG2_VIDEO)) {
        found = true;
    } else if (QPDSIsFourCC(type.subtype)) {
        found = true;
        result = type.subtype.Data1;
    }
    if (found) {
        PIN_INFO pinInfo{};
        if (SUCCEEDED(pin->QueryPinInfo(&pinInfo)) && pinInfo.pFilter) {
            ComPtr<IBaseFilter> owner = MwAdopt(pinInfo.pFilter);
            FILTER_INFO filterInfo{};
            if (SUCCEEDED(owner->QueryFilterInfo(&filterInfo))) {
                const ComPtr<IFilterGraph> graph = MwAdopt(filterInfo.pGraph);
                filterName = filterInfo.achName;
                foundFilter = owner;
                foundPin = pin;
                if (filterName == skipName) found = false;
            }
        }
    }
    QPDSFreeMediaType(type);
    const ComPtr<IUnknown> typeUnknown =
        MwAdopt(type.pUnk);  // the record's own reference, which the free leaves
    if (!found || result == 1) {
        ComPtr<IPin> upstream;
        if (SUCCEEDED(pin->ConnectedTo(upstream.ReleaseAndGetAddressOf())) && upstream) {
            PIN_INFO info{};
            if (SUCCEEDED(upstream->QueryPinInfo(&info))) {
                ComPtr<IBaseFilter> upstreamFilter = MwAdopt(info.pFilter);
                uint32_t deeper = QPGetPinFourCC(upstreamFilter.Get(), filterName, foundFilter,
                                                 foundPin, skipName);
                if (deeper != 0) result = deeper;
            }
        }
    }
    return result;
}

bool DSMatchPartialMediaType(const AM_MEDIA_TYPE& candidate, const AM_MEDIA_TYPE& partial) {
    if (!IsEqualGUID(partial.majortype, GUID_NULL) &&
        !IsEqualGUID(candidate.majortype, partial.majortype))
        return false;
    if (!IsEqualGUID(partial.subtype, GUID_NULL) &&
        !IsEqualGUID(candidate.subtype, partial.subtype))
        return false;
    if (IsEqualGUID(partial.formattype, GUID_NULL)) return true;
    if (!IsEqualGUID(candidate.formattype, partial.formattype) ||
        candidate.cbFormat != partial.cbFormat)
        return false;
    if (candidate.cbFormat == 0) return true;
    // Deliberately inverted: a partial type with a block takes only candidates whose block differs.
    return std::memcmp(candidate.pbFormat, partial.pbFormat, candidate.cbFormat) != 0;
}

HRESULT CreateAudioMediaType(const tWAVEFORMATEX* format, AM_MEDIA_TYPE* type, BOOL /*setFormat*/) {
    type->majortype = MEDIATYPE_Audio;
    type->subtype = MEDIASUBTYPE_PCM;
    type->bFixedSizeSamples = -1;
    type->bTemporalCompression = 0;
    type->lSampleSize = 1;
    type->formattype = FORMAT_WaveFormatEx;
    type->pUnk = nullptr;
    const bool plain = format->nChannels < 3 && format->wBitsPerSample < 17;
    type->cbFormat = plain ? 18 : format->cbSize + 18u;
    type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type->cbFormat));
    if (!type->pbFormat) {
        type->cbFormat = 0;
        return E_OUTOFMEMORY;
    }
    std::memcpy(type->pbFormat, format, type->cbFormat);
    if (plain) {
        auto* written = reinterpret_cast<tWAVEFORMATEX*>(type->pbFormat);
        written->wFormatTag = WAVE_FORMAT_PCM;
        written->cbSize = 0;
    }
    return S_OK;
}

HRESULT CreateBasicAudioMediaType(const tWAVEFORMATEX* format, AM_MEDIA_TYPE* type,
                                  BOOL setFormat) {
    if (!type) return E_UNEXPECTED;
    type->majortype = MEDIATYPE_Audio;
    if (format->wFormatTag != WAVE_FORMAT_EXTENSIBLE) {
        type->subtype = GUID{format->wFormatTag,
                             kFourCCData2,
                             kFourCCData3,
                             {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    } else {
        type->subtype = reinterpret_cast<const TQAWaveFormatExtensible*>(format)->SubFormat;
    }
    type->formattype = FORMAT_WaveFormatEx;
    type->bFixedSizeSamples = -1;
    type->bTemporalCompression = 0;
    type->lSampleSize = format->nBlockAlign;
    type->pUnk = nullptr;
    if (setFormat == 0) return S_OK;
    const bool pcm = format->wFormatTag == WAVE_FORMAT_PCM;
    type->cbFormat = pcm ? 18 : format->cbSize + 18u;
    type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type->cbFormat));
    if (!type->pbFormat) {
        type->cbFormat = 0;
        return E_OUTOFMEMORY;
    }
    if (pcm) {
        std::memset(type->pbFormat, 0, 18);
        std::memcpy(type->pbFormat, format, 16);
        reinterpret_cast<tWAVEFORMATEX*>(type->pbFormat)->cbSize = 0;
    } else {
        std::memcpy(type->pbFormat, format, type->cbFormat);
    }
    return S_OK;
}
