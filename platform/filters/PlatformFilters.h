// The platform's own filters, made known to CoCreateInstance, the filter mapper and the device
// catalogue: the null renderer, the sample grabber, the infinite tee, and an audio renderer per
// wave output device (category CLSID_AudioRendererCategory; CLSID_DSoundRender and
// CLSID_AudioRender create the renderer of the default device).
#pragma once

#include "strmif.h"

// The decoding file source that AddSourceFilter and RenderFile use.
// {6A3F2C10-5B7E-4E0C-9C61-2F4B8D0E7A31}
DEFINE_GUID(CLSID_MwFileSource, 0x6A3F2C10, 0x5B7E, 0x4E0C, 0x9C, 0x61, 0x2F, 0x4B, 0x8D, 0x0E,
            0x7A, 0x31);

// The audio format converter that intelligent connect inserts.
// {6A3F2C11-5B7E-4E0C-9C61-2F4B8D0E7A31}
DEFINE_GUID(CLSID_MwAudioConverter, 0x6A3F2C11, 0x5B7E, 0x4E0C, 0x9C, 0x61, 0x2F, 0x4B, 0x8D, 0x0E,
            0x7A, 0x31);

// The gain filter of the catalogue (audio in, audio out, IBasicAudio applied in place).
// {6A3F2C12-5B7E-4E0C-9C61-2F4B8D0E7A31}
DEFINE_GUID(CLSID_MwGain, 0x6A3F2C12, 0x5B7E, 0x4E0C, 0x9C, 0x61, 0x2F, 0x4B, 0x8D, 0x0E, 0x7A,
            0x31);

namespace mw::filters {

// Registers the graph service and the filters; safe to call more than once, from any thread.
HRESULT RegisterPlatformFilters();

}  // namespace mw::filters
