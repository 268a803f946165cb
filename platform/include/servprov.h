// IServiceProvider: services asked of an object by GUID.
#pragma once

#include "unknwn.h"

DEFINE_GUID(IID_IServiceProvider, 0x6D5140C1, 0x7436, 0x11CE, 0x80, 0x34, 0x00, 0xAA, 0x00, 0x60,
            0x09, 0xFA);
struct IServiceProvider : public IUnknown {
    STDMETHOD(QueryService)(REFGUID guidService, REFIID riid, void** ppvObject) PURE;
};
MW_DECLARE_IID(IServiceProvider, IID_IServiceProvider);
