// The platform's own filters, made known to CoCreateInstance, the filter mapper and the device
// catalogue: the null renderer, the sample grabber, the infinite tee, and an audio renderer per
// wave output device (category CLSID_AudioRendererCategory; CLSID_DSoundRender and
// CLSID_AudioRender create the renderer of the default device).
#pragma once

#include "strmif.h"

namespace mw::filters {

// Registers the graph service and the filters; safe to call more than once, from any thread.
HRESULT RegisterPlatformFilters();

}  // namespace mw::filters
