// The wrapper filter that runs a media object in a filter graph (CLSID_DMOWrapperFilter, in
// uuids.h) and the filter category of wrapped media objects.
#pragma once

#include "strmif.h"
#include "uuids.h"

struct IDMOWrapperFilter;

DEFINE_GUID(CLSID_DMOFilterCategory, 0xBCD5796C, 0xBD52, 0x4D30, 0xAB, 0x76, 0x70, 0xF9, 0x75, 0xB8,
            0x91, 0x99);

DEFINE_GUID(IID_IDMOWrapperFilter, 0x52D6F586, 0x9F0F, 0x4824, 0x8F, 0xC8, 0xE3, 0x2C, 0xA0, 0x49,
            0x30, 0xC2);
struct IDMOWrapperFilter : public IUnknown {
    STDMETHOD(Init)(REFCLSID clsidDMO, REFCLSID catDMO) PURE;
};
MW_DECLARE_IID(IDMOWrapperFilter, IID_IDMOWrapperFilter);
