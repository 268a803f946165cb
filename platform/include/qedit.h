// The sample grabber and the null renderer of the editing services: a filter that hands each
// sample that passes it to a callback, and a renderer that discards what it receives.
// ISampleGrabberCB is implemented by the application and called on the graph's streaming thread.
#pragma once

#include "strmif.h"

struct ISampleGrabberCB;
struct ISampleGrabber;

DEFINE_GUID(IID_ISampleGrabberCB, 0x0579154A, 0x2B53, 0x4994, 0xB0, 0xD0, 0xE7, 0x73, 0x14, 0x8E,
            0xFF, 0x85);
struct ISampleGrabberCB : public IUnknown {
    STDMETHOD(SampleCB)(double SampleTime, IMediaSample* pSample) PURE;
    STDMETHOD(BufferCB)(double SampleTime, BYTE* pBuffer, LONG BufferLen) PURE;
};
MW_DECLARE_IID(ISampleGrabberCB, IID_ISampleGrabberCB);

DEFINE_GUID(IID_ISampleGrabber, 0x6B652FFF, 0x11FE, 0x4FCE, 0x92, 0xAD, 0x02, 0x66, 0xB5, 0xD7,
            0xC7, 0x8F);
struct ISampleGrabber : public IUnknown {
    STDMETHOD(SetOneShot)(BOOL OneShot) PURE;
    STDMETHOD(SetMediaType)(const AM_MEDIA_TYPE* pType) PURE;
    STDMETHOD(GetConnectedMediaType)(AM_MEDIA_TYPE* pType) PURE;
    STDMETHOD(SetBufferSamples)(BOOL BufferThem) PURE;
    STDMETHOD(GetCurrentBuffer)(LONG* pBufferSize, LONG* pBuffer) PURE;
    STDMETHOD(GetCurrentSample)(IMediaSample** ppSample) PURE;
    STDMETHOD(SetCallback)(ISampleGrabberCB* pCallback, LONG WhichMethodToCallback) PURE;
};
MW_DECLARE_IID(ISampleGrabber, IID_ISampleGrabber);

DEFINE_GUID(CLSID_SampleGrabber, 0xC1F400A0, 0x3F08, 0x11D3, 0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03,
            0x9E, 0x37);
DEFINE_GUID(CLSID_NullRenderer, 0xC1F400A4, 0x3F08, 0x11D3, 0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03,
            0x9E, 0x37);
