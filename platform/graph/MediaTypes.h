// AM_MEDIA_TYPE records as the graph service hands them out: the format block and the record of
// an enumerated type come from task memory, pUnk holds a reference.
#pragma once

#include <vector>

#include "mmreg.h"
#include "strmif.h"

namespace mw::graph {

// Deep copy into dst (whose old content is not freed). E_OUTOFMEMORY leaves dst empty.
HRESULT CopyMediaType(AM_MEDIA_TYPE* dst, const AM_MEDIA_TYPE* src);
// Frees the format block and the reference of a record; the record itself stays.
void FreeMediaType(AM_MEDIA_TYPE* type);
// A new record in task memory with a deep copy of src; null when out of memory.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* src);
// FreeMediaType, then the record itself (for records from IEnumMediaTypes). Null is fine.
void DeleteMediaType(AM_MEDIA_TYPE* type);
// Same major type, subtype, format type and format block.
bool MediaTypesEqual(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b);

// An owned media type record.
class MediaType {
public:
    MediaType() = default;
    explicit MediaType(const AM_MEDIA_TYPE& type) { CopyMediaType(&FType, &type); }
    MediaType(const MediaType& other) { CopyMediaType(&FType, &other.FType); }
    MediaType& operator=(const MediaType& other) {
        if (this != &other) {
            FreeMediaType(&FType);
            CopyMediaType(&FType, &other.FType);
        }
        return *this;
    }
    ~MediaType() { FreeMediaType(&FType); }
    const AM_MEDIA_TYPE& operator*() const { return FType; }
    const AM_MEDIA_TYPE* operator->() const { return &FType; }
    const AM_MEDIA_TYPE* Get() const { return &FType; }
    AM_MEDIA_TYPE* Put() {
        FreeMediaType(&FType);
        return &FType;
    }
    // The format block as a wave format, or null when the type carries none.
    const WAVEFORMATEX* Wave() const;

private:
    AM_MEDIA_TYPE FType{};
};

// An IEnumMediaTypes over copies of the given types.
HRESULT CreateMediaTypeEnumerator(const std::vector<MediaType>& types, IEnumMediaTypes** out);

// A media type for an audio format block (MEDIATYPE_Audio, FORMAT_WaveFormatEx; the subtype
// from the tag, or from the extensible record's subformat).
MediaType AudioMediaType(const WAVEFORMATEX& format);

}  // namespace mw::graph
