// The platform's memory allocator (CLSID_MemoryAllocator) and its samples.
//
// A pin negotiates the properties (SetProperties), commits the allocator when its filter
// becomes active and decommits it when it stops. GetBuffer is called on the streaming thread:
// it blocks until a sample is free and fails with VFW_E_NOT_COMMITTED while decommitted;
// Decommit wakes every blocked caller with that failure. A sample goes back to the free list
// when its last reference is dropped, on whatever thread that happens; memory is freed once the
// allocator is decommitted and every sample has come back. Samples keep their allocator alive.
//
// Results callers rely on:
//   SetProperties  E_POINTER, VFW_E_ALREADY_COMMITTED, VFW_E_BUFFERS_OUTSTANDING, VFW_E_BADALIGN;
//                  the actual cbBuffer is at least the request (rounded up to the alignment).
//   Commit         VFW_E_SIZENOTSET before properties with buffers of at least one byte.
//   GetBuffer      E_POINTER, VFW_E_NOT_COMMITTED, VFW_E_TIMEOUT (AM_GBF_NOWAIT and none free).
//                  The time hints are not used. A sample comes out with no times, flags or type
//                  and a length of 0; AM_GBF_PREVFRAMESKIPPED marks it as a discontinuity.
//   ReleaseBuffer  E_POINTER, E_INVALIDARG for a sample of another allocator or one in use.
#pragma once

#include "strmif.h"

namespace mw::graph {

// Creates a new memory allocator answering iid (IUnknown, IMemAllocator). Aggregation is not
// supported: CLASS_E_NOAGGREGATION.
HRESULT CreateMemoryAllocator(IUnknown* outer, REFIID iid, void** object);

// Makes CLSID_MemoryAllocator known to CoCreateInstance (also done at start-up of any program
// that links the allocator). Safe to call more than once and from several threads.
HRESULT RegisterMemoryAllocator();

}  // namespace mw::graph
