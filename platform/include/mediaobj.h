// Media objects (DMOs): streaming transforms that take buffers in and give buffers out, with
// their buffers, enumerator and in-place, quality and video options. Declarations only; the
// objects stand in platform/dmo.
#pragma once

#include "objbase.h"

struct IMediaBuffer;
struct IMediaObject;
struct IEnumDMO;
struct IMediaObjectInPlace;
struct IDMOQualityControl;
struct IDMOVideoOutputOptimizations;

// The media type record of media objects (same layout as AM_MEDIA_TYPE).
typedef struct _DMOMediaType {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;
    BYTE* pbFormat;
} DMO_MEDIA_TYPE;

typedef struct _DMO_OUTPUT_DATA_BUFFER {
    IMediaBuffer* pBuffer;
    DWORD dwStatus;
    REFERENCE_TIME rtTimestamp;
    REFERENCE_TIME rtTimelength;
} DMO_OUTPUT_DATA_BUFFER;
typedef DMO_OUTPUT_DATA_BUFFER* PDMO_OUTPUT_DATA_BUFFER;

enum _DMO_INPUT_STATUS_FLAGS { DMO_INPUT_STATUSF_ACCEPT_DATA = 0x1 };

enum _DMO_INPUT_STREAM_INFO_FLAGS {
    DMO_INPUT_STREAMF_WHOLE_SAMPLES = 0x1,
    DMO_INPUT_STREAMF_SINGLE_SAMPLE_PER_BUFFER = 0x2,
    DMO_INPUT_STREAMF_FIXED_SAMPLE_SIZE = 0x4,
    DMO_INPUT_STREAMF_HOLDS_BUFFERS = 0x8
};

enum _DMO_OUTPUT_STREAM_INFO_FLAGS {
    DMO_OUTPUT_STREAMF_WHOLE_SAMPLES = 0x1,
    DMO_OUTPUT_STREAMF_SINGLE_SAMPLE_PER_BUFFER = 0x2,
    DMO_OUTPUT_STREAMF_FIXED_SAMPLE_SIZE = 0x4,
    DMO_OUTPUT_STREAMF_DISCARDABLE = 0x8,
    DMO_OUTPUT_STREAMF_OPTIONAL = 0x10
};

enum _DMO_INPUT_DATA_BUFFER_FLAGS {
    DMO_INPUT_DATA_BUFFERF_SYNCPOINT = 0x1,
    DMO_INPUT_DATA_BUFFERF_TIME = 0x2,
    DMO_INPUT_DATA_BUFFERF_TIMELENGTH = 0x4
};

enum _DMO_PROCESS_OUTPUT_FLAGS { DMO_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER = 0x1 };

enum _DMO_INPLACE_PROCESS_FLAGS { DMO_INPLACE_NORMAL = 0x0, DMO_INPLACE_ZERO = 0x1 };

enum _DMO_SET_TYPE_FLAGS { DMO_SET_TYPEF_TEST_ONLY = 0x1, DMO_SET_TYPEF_CLEAR = 0x2 };

enum _DMO_OUTPUT_DATA_BUFFERF_FLAGS {
    DMO_OUTPUT_DATA_BUFFERF_SYNCPOINT = 0x1,
    DMO_OUTPUT_DATA_BUFFERF_TIME = 0x2,
    DMO_OUTPUT_DATA_BUFFERF_TIMELENGTH = 0x4,
    DMO_OUTPUT_DATA_BUFFERF_INCOMPLETE = 0x1000000
};

enum _DMO_QUALITY_STATUS_FLAGS { DMO_QUALITY_STATUS_ENABLED = 0x1 };

enum _DMO_VIDEO_OUTPUT_STREAM_FLAGS { DMO_VOSF_NEEDS_PREVIOUS_SAMPLE = 0x1 };

DEFINE_GUID(IID_IMediaBuffer, 0x59EFF8B9, 0x938C, 0x4A26, 0x82, 0xF2, 0x95, 0xCB, 0x84, 0xCD, 0xC8,
            0x37);
struct IMediaBuffer : public IUnknown {
    STDMETHOD(SetLength)(DWORD cbLength) PURE;
    STDMETHOD(GetMaxLength)(DWORD* pcbMaxLength) PURE;
    STDMETHOD(GetBufferAndLength)(BYTE** ppBuffer, DWORD* pcbLength) PURE;
};
MW_DECLARE_IID(IMediaBuffer, IID_IMediaBuffer);

DEFINE_GUID(IID_IMediaObject, 0xD8AD0F58, 0x5494, 0x4102, 0x97, 0xC5, 0xEC, 0x79, 0x8E, 0x59, 0xBC,
            0xF4);
struct IMediaObject : public IUnknown {
    STDMETHOD(GetStreamCount)(DWORD* pcInputStreams, DWORD* pcOutputStreams) PURE;
    STDMETHOD(GetInputStreamInfo)(DWORD dwInputStreamIndex, DWORD* pdwFlags) PURE;
    STDMETHOD(GetOutputStreamInfo)(DWORD dwOutputStreamIndex, DWORD* pdwFlags) PURE;
    STDMETHOD(GetInputType)(DWORD dwInputStreamIndex, DWORD dwTypeIndex, DMO_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetOutputType)
    (DWORD dwOutputStreamIndex, DWORD dwTypeIndex, DMO_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(SetInputType)
    (DWORD dwInputStreamIndex, const DMO_MEDIA_TYPE* pmt, DWORD dwFlags) PURE;
    STDMETHOD(SetOutputType)
    (DWORD dwOutputStreamIndex, const DMO_MEDIA_TYPE* pmt, DWORD dwFlags) PURE;
    STDMETHOD(GetInputCurrentType)(DWORD dwInputStreamIndex, DMO_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetOutputCurrentType)(DWORD dwOutputStreamIndex, DMO_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetInputSizeInfo)
    (DWORD dwInputStreamIndex, DWORD* pcbSize, DWORD* pcbMaxLookahead, DWORD* pcbAlignment) PURE;
    STDMETHOD(GetOutputSizeInfo)
    (DWORD dwOutputStreamIndex, DWORD* pcbSize, DWORD* pcbAlignment) PURE;
    STDMETHOD(GetInputMaxLatency)(DWORD dwInputStreamIndex, REFERENCE_TIME* prtMaxLatency) PURE;
    STDMETHOD(SetInputMaxLatency)(DWORD dwInputStreamIndex, REFERENCE_TIME rtMaxLatency) PURE;
    STDMETHOD(Flush)() PURE;
    STDMETHOD(Discontinuity)(DWORD dwInputStreamIndex) PURE;
    STDMETHOD(AllocateStreamingResources)() PURE;
    STDMETHOD(FreeStreamingResources)() PURE;
    STDMETHOD(GetInputStatus)(DWORD dwInputStreamIndex, DWORD* dwFlags) PURE;
    STDMETHOD(ProcessInput)
    (DWORD dwInputStreamIndex, IMediaBuffer* pBuffer, DWORD dwFlags, REFERENCE_TIME rtTimestamp,
     REFERENCE_TIME rtTimelength) PURE;
    STDMETHOD(ProcessOutput)
    (DWORD dwFlags, DWORD cOutputBufferCount, DMO_OUTPUT_DATA_BUFFER* pOutputBuffers,
     DWORD* pdwStatus) PURE;
    STDMETHOD(Lock)(LONG bLock) PURE;
};
MW_DECLARE_IID(IMediaObject, IID_IMediaObject);

DEFINE_GUID(IID_IEnumDMO, 0x2C3CD98A, 0x2BFA, 0x4A53, 0x9C, 0x27, 0x52, 0x49, 0xBA, 0x64, 0xBA,
            0x0F);
struct IEnumDMO : public IUnknown {
    STDMETHOD(Next)(DWORD cItemsToFetch, CLSID* pCLSID, WCHAR** Names, DWORD* pcItemsFetched) PURE;
    STDMETHOD(Skip)(DWORD cItemsToSkip) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumDMO** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumDMO, IID_IEnumDMO);

DEFINE_GUID(IID_IMediaObjectInPlace, 0x651B9AD0, 0x0FC7, 0x4AA9, 0x95, 0x38, 0xD8, 0x99, 0x31, 0x01,
            0x07, 0x41);
struct IMediaObjectInPlace : public IUnknown {
    STDMETHOD(Process)(ULONG ulSize, BYTE* pData, REFERENCE_TIME refTimeStart, DWORD dwFlags) PURE;
    STDMETHOD(Clone)(IMediaObjectInPlace** ppMediaObject) PURE;
    STDMETHOD(GetLatency)(REFERENCE_TIME* pLatencyTime) PURE;
};
MW_DECLARE_IID(IMediaObjectInPlace, IID_IMediaObjectInPlace);

DEFINE_GUID(IID_IDMOQualityControl, 0x65ABEA96, 0xCF36, 0x453F, 0xAF, 0x8A, 0x70, 0x5E, 0x98, 0xF1,
            0x62, 0x60);
struct IDMOQualityControl : public IUnknown {
    STDMETHOD(SetNow)(REFERENCE_TIME now) PURE;
    STDMETHOD(SetStatus)(DWORD flags) PURE;
    STDMETHOD(GetStatus)(DWORD* flags) PURE;
};
MW_DECLARE_IID(IDMOQualityControl, IID_IDMOQualityControl);

DEFINE_GUID(IID_IDMOVideoOutputOptimizations, 0xBE8F4F4E, 0x5B16, 0x4D29, 0xB3, 0x50, 0x7F, 0x6B,
            0x5D, 0x92, 0x98, 0xAC);
struct IDMOVideoOutputOptimizations : public IUnknown {
    STDMETHOD(QueryOperationModePreferences)(ULONG index, DWORD* flags) PURE;
    STDMETHOD(SetOperationMode)(ULONG index, DWORD flags) PURE;
    STDMETHOD(GetCurrentOperationMode)(ULONG index, DWORD* flags) PURE;
    STDMETHOD(GetCurrentSampleRequirements)(ULONG index, DWORD* flags) PURE;
};
MW_DECLARE_IID(IDMOVideoOutputOptimizations, IID_IDMOVideoOutputOptimizations);

static_assert(sizeof(DMO_MEDIA_TYPE) == 88);
static_assert(sizeof(DMO_OUTPUT_DATA_BUFFER) == 32);
