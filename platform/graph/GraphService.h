// The filter graph service of the platform: the graph manager (CLSID_FilterGraph), the system
// clock (CLSID_SystemClock) and the memory allocator, made known to CoCreateInstance.
#pragma once

#include "strmif.h"

namespace mw::graph {

// Registers CLSID_FilterGraph, CLSID_FilterGraphNoThread, CLSID_SystemClock and
// CLSID_MemoryAllocator. Safe to call more than once and from several threads.
HRESULT RegisterGraphService();

// Creates a graph manager answering iid. Aggregation is not supported.
HRESULT CreateFilterGraph(IUnknown* outer, REFIID iid, void** object);

}  // namespace mw::graph
