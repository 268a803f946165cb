// Interfaces and records of the filter graph service: filters, pins, media types, allocators,
// samples, clocks, the graph and its builders, the filter mapper and the device enumerator,
// and the capture settings. Declarations only, with the platform's method order, records and
// IIDs; the objects behind them are made by platform/graph and platform/filters.
#pragma once

#include "oaidl.h"
#include "objbase.h"
#include "vfwmsgs.h"

struct ICreateDevEnum;
struct IPin;
struct IEnumPins;
struct IEnumMediaTypes;
struct IFilterGraph;
struct IEnumFilters;
struct IMediaFilter;
struct IBaseFilter;
struct IReferenceClock;
struct IReferenceClockTimerControl;
struct IReferenceClock2;
struct IMediaSample;
struct IMediaSample2;
struct IMemAllocator;
struct IMemAllocatorCallbackTemp;
struct IMemAllocatorNotifyCallbackTemp;
struct IMemInputPin;
struct IAMovieSetup;
struct IMediaSeeking;
struct IEnumRegFilters;
struct IFilterMapper;
struct IFilterMapper2;
struct IFilterMapper3;
struct IQualityControl;
struct IMediaEventSink;
struct IFileSourceFilter;
struct IFileSinkFilter;
struct IFileSinkFilter2;
struct IGraphBuilder;
struct ICaptureGraphBuilder;
struct IAMCopyCaptureFileProgress;
struct ICaptureGraphBuilder2;
struct IFilterGraph2;
struct IStreamBuilder;
struct IAsyncReader;
struct IGraphVersion;
struct IResourceConsumer;
struct IResourceManager;
struct IAMStreamControl;
struct ISeekingPassThru;
struct IAMStreamConfig;
struct IAMDroppedFrames;
struct IAMBufferNegotiation;
struct IAMCrossbar;
struct IAMFilterMiscFlags;
struct IKsPropertySet;
struct IAMLatency;
struct IAMPushSource;
struct IAMClockSlave;
struct IVideoFrameStep;
struct IAMStreamSelect;
struct IAMVideoCompression;
struct IAMVfwCompressDialogs;
struct IAMAudioInputMixer;

typedef DWORD_PTR HSEMAPHORE;
typedef DWORD_PTR HEVENT;

// The latest time a stream can have: the largest signed 64-bit value, 100 ns units.
constexpr REFERENCE_TIME MAX_TIME = 0x7FFFFFFFFFFFFFFFLL;

// The media type record. pbFormat is a block of cbFormat bytes from CoTaskMemAlloc, owned by
// the record; pUnk, when set, holds a reference.
typedef struct _AMMediaType {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;
    BYTE* pbFormat;
} AM_MEDIA_TYPE;
typedef AM_MEDIA_TYPE* PAM_MEDIA_TYPE;

typedef enum _PinDirection { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 } PIN_DIRECTION;

constexpr int MAX_PIN_NAME = 128;
constexpr int MAX_FILTER_NAME = 128;

typedef struct _PinInfo {
    IBaseFilter* pFilter;
    PIN_DIRECTION dir;
    WCHAR achName[128];
} PIN_INFO;

typedef enum _FilterState { State_Stopped = 0, State_Paused = 1, State_Running = 2 } FILTER_STATE;

typedef struct _FilterInfo {
    WCHAR achName[128];
    IFilterGraph* pGraph;
} FILTER_INFO;

typedef struct _AllocatorProperties {
    LONG cBuffers;
    LONG cbBuffer;
    LONG cbAlign;
    LONG cbPrefix;
} ALLOCATOR_PROPERTIES;

enum tagAM_SAMPLE_PROPERTY_FLAGS {
    AM_SAMPLE_SPLICEPOINT = 0x1,
    AM_SAMPLE_PREROLL = 0x2,
    AM_SAMPLE_DATADISCONTINUITY = 0x4,
    AM_SAMPLE_TYPECHANGED = 0x8,
    AM_SAMPLE_TIMEVALID = 0x10,
    AM_SAMPLE_TIMEDISCONTINUITY = 0x40,
    AM_SAMPLE_FLUSH_ON_PAUSE = 0x80,
    AM_SAMPLE_STOPVALID = 0x100,
    AM_SAMPLE_ENDOFSTREAM = 0x200,
    AM_STREAM_MEDIA = 0,
    AM_STREAM_CONTROL = 1
};

typedef struct tagAM_SAMPLE2_PROPERTIES {
    DWORD cbData;
    DWORD dwTypeSpecificFlags;
    DWORD dwSampleFlags;
    LONG lActual;
    REFERENCE_TIME tStart;
    REFERENCE_TIME tStop;
    DWORD dwStreamId;
    AM_MEDIA_TYPE* pMediaType;
    BYTE* pbBuffer;
    LONG cbBuffer;
} AM_SAMPLE2_PROPERTIES;

constexpr DWORD AM_GBF_PREVFRAMESKIPPED = 1;
constexpr DWORD AM_GBF_NOTASYNCPOINT = 2;
constexpr DWORD AM_GBF_NOWAIT = 4;
constexpr DWORD AM_GBF_NODDSURFACELOCK = 8;

typedef enum AM_SEEKING_SeekingFlags {
    AM_SEEKING_NoPositioning = 0x0,
    AM_SEEKING_AbsolutePositioning = 0x1,
    AM_SEEKING_RelativePositioning = 0x2,
    AM_SEEKING_IncrementalPositioning = 0x3,
    AM_SEEKING_PositioningBitsMask = 0x3,
    AM_SEEKING_SeekToKeyFrame = 0x4,
    AM_SEEKING_ReturnTime = 0x8,
    AM_SEEKING_Segment = 0x10,
    AM_SEEKING_NoFlush = 0x20
} AM_SEEKING_SEEKING_FLAGS;

typedef enum AM_SEEKING_SeekingCapabilities {
    AM_SEEKING_CanSeekAbsolute = 0x1,
    AM_SEEKING_CanSeekForwards = 0x2,
    AM_SEEKING_CanSeekBackwards = 0x4,
    AM_SEEKING_CanGetCurrentPos = 0x8,
    AM_SEEKING_CanGetStopPos = 0x10,
    AM_SEEKING_CanGetDuration = 0x20,
    AM_SEEKING_CanPlayBackwards = 0x40,
    AM_SEEKING_CanDoSegments = 0x80,
    AM_SEEKING_Source = 0x100
} AM_SEEKING_SEEKING_CAPABILITIES;

typedef enum tagQualityMessageType { Famine = 0, Flood = 1 } QualityMessageType;

typedef struct tagQuality {
    QualityMessageType Type;
    LONG Proportion;
    REFERENCE_TIME Late;
    REFERENCE_TIME TimeStamp;
} Quality;
typedef Quality* PQuality;

enum {
    MERIT_PREFERRED = 0x800000,
    MERIT_NORMAL = 0x600000,
    MERIT_UNLIKELY = 0x400000,
    MERIT_DO_NOT_USE = 0x200000,
    MERIT_SW_COMPRESSOR = 0x100000,
    MERIT_HW_COMPRESSOR = 0x100050
};

typedef struct {
    CLSID Clsid;
    LPWSTR Name;
} REGFILTER;

typedef struct {
    const CLSID* clsMajorType;
    const CLSID* clsMinorType;
} REGPINTYPES;

typedef struct {
    LPWSTR strName;
    BOOL bRendered;
    BOOL bOutput;
    BOOL bZero;
    BOOL bMany;
    const CLSID* clsConnectsToFilter;
    const WCHAR* strConnectsToPin;
    UINT nMediaTypes;
    const REGPINTYPES* lpMediaType;
} REGFILTERPINS;

typedef struct {
    CLSID clsMedium;
    DWORD dw1;
    DWORD dw2;
} REGPINMEDIUM;

enum {
    REG_PINFLAG_B_ZERO = 0x1,
    REG_PINFLAG_B_RENDERER = 0x2,
    REG_PINFLAG_B_MANY = 0x4,
    REG_PINFLAG_B_OUTPUT = 0x8
};

typedef struct {
    DWORD dwFlags;
    UINT cInstances;
    UINT nMediaTypes;
    const REGPINTYPES* lpMediaType;
    UINT nMediums;
    const REGPINMEDIUM* lpMedium;
    const CLSID* clsPinCategory;
} REGFILTERPINS2;

typedef struct {
    DWORD dwVersion;
    DWORD dwMerit;
    union {
        struct {
            ULONG cPins;
            const REGFILTERPINS* rgPins;
        };
        struct {
            ULONG cPins2;
            const REGFILTERPINS2* rgPins2;
        };
    };
} REGFILTER2;

// ICreateDevEnum::CreateClassEnumerator flags.
constexpr DWORD CDEF_CLASS_DEFAULT = 0x1;
constexpr DWORD CDEF_BYPASS_CLASS_MANAGER = 0x2;
constexpr DWORD CDEF_MERIT_ABOVE_DO_NOT_USE = 0x8;
constexpr DWORD CDEF_DEVMON_CMGR_DEVICE = 0x10;
constexpr DWORD CDEF_DEVMON_DMO = 0x20;
constexpr DWORD CDEF_DEVMON_PNP_DEVICE = 0x40;
constexpr DWORD CDEF_DEVMON_FILTER = 0x80;
constexpr DWORD CDEF_DEVMON_SELECTIVE_MASK = 0xf0;

enum _AM_RENSDEREXFLAGS { AM_RENDEREX_RENDERTOEXISTINGRENDERERS = 0x1 };

typedef enum AM_STREAM_INFO_FLAGS {
    AM_STREAM_INFO_START_DEFINED = 0x1,
    AM_STREAM_INFO_STOP_DEFINED = 0x2,
    AM_STREAM_INFO_DISCARDING = 0x4,
    AM_STREAM_INFO_STOP_SEND_EXTRA = 0x10
} AM_STREAM_INFO_FLAGS;

typedef struct AM_STREAM_INFO {
    REFERENCE_TIME tStart;
    REFERENCE_TIME tStop;
    DWORD dwStartCookie;
    DWORD dwStopCookie;
    DWORD dwFlags;
} AM_STREAM_INFO;

typedef struct _AUDIO_STREAM_CONFIG_CAPS {
    GUID guid;
    ULONG MinimumChannels;
    ULONG MaximumChannels;
    ULONG ChannelsGranularity;
    ULONG MinimumBitsPerSample;
    ULONG MaximumBitsPerSample;
    ULONG BitsPerSampleGranularity;
    ULONG MinimumSampleFrequency;
    ULONG MaximumSampleFrequency;
    ULONG SampleFrequencyGranularity;
} AUDIO_STREAM_CONFIG_CAPS;

typedef struct _VIDEO_STREAM_CONFIG_CAPS {
    GUID guid;
    ULONG VideoStandard;
    SIZE InputSize;
    SIZE MinCroppingSize;
    SIZE MaxCroppingSize;
    int CropGranularityX;
    int CropGranularityY;
    int CropAlignX;
    int CropAlignY;
    SIZE MinOutputSize;
    SIZE MaxOutputSize;
    int OutputGranularityX;
    int OutputGranularityY;
    int StretchTapsX;
    int StretchTapsY;
    int ShrinkTapsX;
    int ShrinkTapsY;
    LONGLONG MinFrameInterval;
    LONGLONG MaxFrameInterval;
    LONG MinBitsPerSecond;
    LONG MaxBitsPerSecond;
} VIDEO_STREAM_CONFIG_CAPS;

typedef enum tagPhysicalConnectorType {
    PhysConn_Video_Tuner = 1,
    PhysConn_Video_Composite,
    PhysConn_Video_SVideo,
    PhysConn_Video_RGB,
    PhysConn_Video_YRYBY,
    PhysConn_Video_SerialDigital,
    PhysConn_Video_ParallelDigital,
    PhysConn_Video_SCSI,
    PhysConn_Video_AUX,
    PhysConn_Video_1394,
    PhysConn_Video_USB,
    PhysConn_Video_VideoDecoder,
    PhysConn_Video_VideoEncoder,
    PhysConn_Video_SCART,
    PhysConn_Video_Black,
    PhysConn_Audio_Tuner = 0x1000,
    PhysConn_Audio_Line = 0x1001,
    PhysConn_Audio_Mic = 0x1002,
    PhysConn_Audio_AESDigital = 0x1003,
    PhysConn_Audio_SPDIFDigital = 0x1004,
    PhysConn_Audio_SCSI = 0x1005,
    PhysConn_Audio_AUX = 0x1006,
    PhysConn_Audio_1394 = 0x1007,
    PhysConn_Audio_USB = 0x1008,
    PhysConn_Audio_AudioDecoder = 0x1009
} PhysicalConnectorType;

typedef enum __MIDL___MIDL_itf_strmif_0167_0001 {
    CompressionCaps_CanQuality = 0x1,
    CompressionCaps_CanCrunch = 0x2,
    CompressionCaps_CanKeyFrame = 0x4,
    CompressionCaps_CanBFrame = 0x8,
    CompressionCaps_CanWindow = 0x10
} CompressionCaps;

typedef enum __MIDL___MIDL_itf_strmif_0168_0002 {
    VfwCompressDialog_Config = 0x1,
    VfwCompressDialog_About = 0x2,
    VfwCompressDialog_QueryConfig = 0x4,
    VfwCompressDialog_QueryAbout = 0x8
} VfwCompressDialogs;

typedef enum _AM_FILTER_MISC_FLAGS {
    AM_FILTER_MISC_FLAGS_IS_RENDERER = 0x1,
    AM_FILTER_MISC_FLAGS_IS_SOURCE = 0x2
} AM_FILTER_MISC_FLAGS;

typedef enum AMPROPERTY_PIN {
    AMPROPERTY_PIN_CATEGORY = 0,
    AMPROPERTY_PIN_MEDIUM = 1
} AMPROPERTY_PIN;

// IKsPropertySet::QuerySupported answers.
constexpr DWORD KSPROPERTY_SUPPORT_GET = 1;
constexpr DWORD KSPROPERTY_SUPPORT_SET = 2;

enum _AM_PUSHSOURCE_FLAGS {
    AM_PUSHSOURCECAPS_INTERNAL_RM = 0x1,
    AM_PUSHSOURCECAPS_NOT_LIVE = 0x2,
    AM_PUSHSOURCECAPS_PRIVATE_CLOCK = 0x4,
    AM_PUSHSOURCEREQS_USE_STREAM_CLOCK = 0x10000,
    AM_PUSHSOURCEREQS_USE_CLOCK_CHAIN = 0x20000
};

enum _AMSTREAMSELECTINFOFLAGS {
    AMSTREAMSELECTINFO_ENABLED = 0x1,
    AMSTREAMSELECTINFO_EXCLUSIVE = 0x2
};
enum _AMSTREAMSELECTENABLEFLAGS {
    AMSTREAMSELECTENABLE_ENABLE = 0x1,
    AMSTREAMSELECTENABLE_ENABLEALL = 0x2
};

DEFINE_GUID(IID_ICreateDevEnum, 0x29840822, 0x5B84, 0x11D0, 0xBD, 0x3B, 0x00, 0xA0, 0xC9, 0x11,
            0xCE, 0x86);
struct ICreateDevEnum : public IUnknown {
    STDMETHOD(CreateClassEnumerator)
    (REFCLSID clsidDeviceClass, IEnumMoniker** ppEnumMoniker, DWORD dwFlags) PURE;
};
MW_DECLARE_IID(ICreateDevEnum, IID_ICreateDevEnum);

DEFINE_GUID(IID_IPin, 0x56A86891, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
struct IPin : public IUnknown {
    STDMETHOD(Connect)(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(ReceiveConnection)(IPin* pConnector, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(Disconnect)() PURE;
    STDMETHOD(ConnectedTo)(IPin** pPin) PURE;
    STDMETHOD(ConnectionMediaType)(AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(QueryPinInfo)(PIN_INFO* pInfo) PURE;
    STDMETHOD(QueryDirection)(PIN_DIRECTION* pPinDir) PURE;
    STDMETHOD(QueryId)(LPWSTR* Id) PURE;
    STDMETHOD(QueryAccept)(const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(EnumMediaTypes)(IEnumMediaTypes** ppEnum) PURE;
    STDMETHOD(QueryInternalConnections)(IPin** apPin, ULONG* nPin) PURE;
    STDMETHOD(EndOfStream)() PURE;
    STDMETHOD(BeginFlush)() PURE;
    STDMETHOD(EndFlush)() PURE;
    STDMETHOD(NewSegment)(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) PURE;
};
MW_DECLARE_IID(IPin, IID_IPin);

DEFINE_GUID(IID_IEnumPins, 0x56A86892, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IEnumPins : public IUnknown {
    STDMETHOD(Next)(ULONG cPins, IPin** ppPins, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cPins) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumPins** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumPins, IID_IEnumPins);

DEFINE_GUID(IID_IEnumMediaTypes, 0x89C31040, 0x846B, 0x11CE, 0x97, 0xD3, 0x00, 0xAA, 0x00, 0x55,
            0x59, 0x5A);
struct IEnumMediaTypes : public IUnknown {
    STDMETHOD(Next)(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cMediaTypes) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumMediaTypes** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumMediaTypes, IID_IEnumMediaTypes);

DEFINE_GUID(IID_IFilterGraph, 0x56A8689F, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IFilterGraph : public IUnknown {
    STDMETHOD(AddFilter)(IBaseFilter* pFilter, LPCWSTR pName) PURE;
    STDMETHOD(RemoveFilter)(IBaseFilter* pFilter) PURE;
    STDMETHOD(EnumFilters)(IEnumFilters** ppEnum) PURE;
    STDMETHOD(FindFilterByName)(LPCWSTR pName, IBaseFilter** ppFilter) PURE;
    STDMETHOD(ConnectDirect)(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(Reconnect)(IPin* ppin) PURE;
    STDMETHOD(Disconnect)(IPin* ppin) PURE;
    STDMETHOD(SetDefaultSyncSource)() PURE;
};
MW_DECLARE_IID(IFilterGraph, IID_IFilterGraph);

DEFINE_GUID(IID_IEnumFilters, 0x56A86893, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IEnumFilters : public IUnknown {
    STDMETHOD(Next)(ULONG cFilters, IBaseFilter** ppFilter, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cFilters) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumFilters** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumFilters, IID_IEnumFilters);

DEFINE_GUID(IID_IMediaFilter, 0x56A86899, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMediaFilter : public IPersist {
    STDMETHOD(Stop)() PURE;
    STDMETHOD(Pause)() PURE;
    STDMETHOD(Run)(REFERENCE_TIME tStart) PURE;
    STDMETHOD(GetState)(DWORD dwMilliSecsTimeout, FILTER_STATE* State) PURE;
    STDMETHOD(SetSyncSource)(IReferenceClock* pClock) PURE;
    STDMETHOD(GetSyncSource)(IReferenceClock** pClock) PURE;
};
MW_DECLARE_IID(IMediaFilter, IID_IMediaFilter);

DEFINE_GUID(IID_IBaseFilter, 0x56A86895, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IBaseFilter : public IMediaFilter {
    STDMETHOD(EnumPins)(IEnumPins** ppEnum) PURE;
    STDMETHOD(FindPin)(LPCWSTR Id, IPin** ppPin) PURE;
    STDMETHOD(QueryFilterInfo)(FILTER_INFO* pInfo) PURE;
    STDMETHOD(JoinFilterGraph)(IFilterGraph* pGraph, LPCWSTR pName) PURE;
    STDMETHOD(QueryVendorInfo)(LPWSTR* pVendorInfo) PURE;
};
MW_DECLARE_IID(IBaseFilter, IID_IBaseFilter);

DEFINE_GUID(IID_IReferenceClock, 0x56A86897, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IReferenceClock : public IUnknown {
    STDMETHOD(GetTime)(REFERENCE_TIME* pTime) PURE;
    STDMETHOD(AdviseTime)
    (REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT hEvent,
     DWORD_PTR* pdwAdviseCookie) PURE;
    STDMETHOD(AdvisePeriodic)
    (REFERENCE_TIME startTime, REFERENCE_TIME periodTime, HSEMAPHORE hSemaphore,
     DWORD_PTR* pdwAdviseCookie) PURE;
    STDMETHOD(Unadvise)(DWORD_PTR dwAdviseCookie) PURE;
};
MW_DECLARE_IID(IReferenceClock, IID_IReferenceClock);

DEFINE_GUID(IID_IReferenceClockTimerControl, 0xEBEC459C, 0x2ECA, 0x4D42, 0xA8, 0xAF, 0x30, 0xDF,
            0x55, 0x76, 0x14, 0xB8);
struct IReferenceClockTimerControl : public IUnknown {
    STDMETHOD(SetDefaultTimerResolution)(REFERENCE_TIME timerResolution) PURE;
    STDMETHOD(GetDefaultTimerResolution)(REFERENCE_TIME* pTimerResolution) PURE;
};
MW_DECLARE_IID(IReferenceClockTimerControl, IID_IReferenceClockTimerControl);

DEFINE_GUID(IID_IReferenceClock2, 0x36B73885, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C,
            0xEF, 0x60);
struct IReferenceClock2 : public IReferenceClock {};
MW_DECLARE_IID(IReferenceClock2, IID_IReferenceClock2);

DEFINE_GUID(IID_IMediaSample, 0x56A8689A, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMediaSample : public IUnknown {
    STDMETHOD(GetPointer)(BYTE** ppBuffer) PURE;
    STDMETHOD_(LONG, GetSize)() PURE;
    STDMETHOD(GetTime)(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) PURE;
    STDMETHOD(SetTime)(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) PURE;
    STDMETHOD(IsSyncPoint)() PURE;
    STDMETHOD(SetSyncPoint)(BOOL bIsSyncPoint) PURE;
    STDMETHOD(IsPreroll)() PURE;
    STDMETHOD(SetPreroll)(BOOL bIsPreroll) PURE;
    STDMETHOD_(LONG, GetActualDataLength)() PURE;
    STDMETHOD(SetActualDataLength)(LONG a) PURE;
    STDMETHOD(GetMediaType)(AM_MEDIA_TYPE** ppMediaType) PURE;
    STDMETHOD(SetMediaType)(AM_MEDIA_TYPE* pMediaType) PURE;
    STDMETHOD(IsDiscontinuity)() PURE;
    STDMETHOD(SetDiscontinuity)(BOOL bDiscontinuity) PURE;
    STDMETHOD(GetMediaTime)(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) PURE;
    STDMETHOD(SetMediaTime)(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) PURE;
};
MW_DECLARE_IID(IMediaSample, IID_IMediaSample);

DEFINE_GUID(IID_IMediaSample2, 0x36B73884, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF,
            0x60);
struct IMediaSample2 : public IMediaSample {
    STDMETHOD(GetProperties)(DWORD cbProperties, BYTE* pbProperties) PURE;
    STDMETHOD(SetProperties)(DWORD cbProperties, const BYTE* pbProperties) PURE;
};
MW_DECLARE_IID(IMediaSample2, IID_IMediaSample2);

DEFINE_GUID(IID_IMemAllocator, 0x56A8689C, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMemAllocator : public IUnknown {
    STDMETHOD(SetProperties)(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) PURE;
    STDMETHOD(GetProperties)(ALLOCATOR_PROPERTIES* pProps) PURE;
    STDMETHOD(Commit)() PURE;
    STDMETHOD(Decommit)() PURE;
    STDMETHOD(GetBuffer)
    (IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
     DWORD dwFlags) PURE;
    STDMETHOD(ReleaseBuffer)(IMediaSample* pBuffer) PURE;
};
MW_DECLARE_IID(IMemAllocator, IID_IMemAllocator);

DEFINE_GUID(IID_IMemAllocatorCallbackTemp, 0x379A0CF0, 0xC1DE, 0x11D2, 0xAB, 0xF5, 0x00, 0xA0, 0xC9,
            0x05, 0xF3, 0x75);
struct IMemAllocatorCallbackTemp : public IMemAllocator {
    STDMETHOD(SetNotify)(IMemAllocatorNotifyCallbackTemp* pNotify) PURE;
    STDMETHOD(GetFreeCount)(LONG* plBuffersFree) PURE;
};
MW_DECLARE_IID(IMemAllocatorCallbackTemp, IID_IMemAllocatorCallbackTemp);

DEFINE_GUID(IID_IMemAllocatorNotifyCallbackTemp, 0x92980B30, 0xC1DE, 0x11D2, 0xAB, 0xF5, 0x00, 0xA0,
            0xC9, 0x05, 0xF3, 0x75);
struct IMemAllocatorNotifyCallbackTemp : public IUnknown {
    STDMETHOD(NotifyRelease)() PURE;
};
MW_DECLARE_IID(IMemAllocatorNotifyCallbackTemp, IID_IMemAllocatorNotifyCallbackTemp);

DEFINE_GUID(IID_IMemInputPin, 0x56A8689D, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMemInputPin : public IUnknown {
    STDMETHOD(GetAllocator)(IMemAllocator** ppAllocator) PURE;
    STDMETHOD(NotifyAllocator)(IMemAllocator* pAllocator, BOOL bReadOnly) PURE;
    STDMETHOD(GetAllocatorRequirements)(ALLOCATOR_PROPERTIES* pProps) PURE;
    STDMETHOD(Receive)(IMediaSample* pSample) PURE;
    STDMETHOD(ReceiveMultiple)
    (IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) PURE;
    STDMETHOD(ReceiveCanBlock)() PURE;
};
MW_DECLARE_IID(IMemInputPin, IID_IMemInputPin);

DEFINE_GUID(IID_IAMovieSetup, 0xA3D8CEC0, 0x7E5A, 0x11CF, 0xBB, 0xC5, 0x00, 0x80, 0x5F, 0x6C, 0xEF,
            0x20);
struct IAMovieSetup : public IUnknown {
    STDMETHOD(Register)() PURE;
    STDMETHOD(Unregister)() PURE;
};
MW_DECLARE_IID(IAMovieSetup, IID_IAMovieSetup);

DEFINE_GUID(IID_IMediaSeeking, 0x36B73880, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF,
            0x60);
struct IMediaSeeking : public IUnknown {
    STDMETHOD(GetCapabilities)(DWORD* pCapabilities) PURE;
    STDMETHOD(CheckCapabilities)(DWORD* pCapabilities) PURE;
    STDMETHOD(IsFormatSupported)(const GUID* pFormat) PURE;
    STDMETHOD(QueryPreferredFormat)(GUID* pFormat) PURE;
    STDMETHOD(GetTimeFormat)(GUID* pFormat) PURE;
    STDMETHOD(IsUsingTimeFormat)(const GUID* pFormat) PURE;
    STDMETHOD(SetTimeFormat)(const GUID* pFormat) PURE;
    STDMETHOD(GetDuration)(LONGLONG* pDuration) PURE;
    STDMETHOD(GetStopPosition)(LONGLONG* pStop) PURE;
    STDMETHOD(GetCurrentPosition)(LONGLONG* pCurrent) PURE;
    STDMETHOD(ConvertTimeFormat)
    (LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source, const GUID* pSourceFormat) PURE;
    STDMETHOD(SetPositions)
    (LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags) PURE;
    STDMETHOD(GetPositions)(LONGLONG* pCurrent, LONGLONG* pStop) PURE;
    STDMETHOD(GetAvailable)(LONGLONG* pEarliest, LONGLONG* pLatest) PURE;
    STDMETHOD(SetRate)(double dRate) PURE;
    STDMETHOD(GetRate)(double* pdRate) PURE;
    STDMETHOD(GetPreroll)(LONGLONG* pllPreroll) PURE;
};
MW_DECLARE_IID(IMediaSeeking, IID_IMediaSeeking);

DEFINE_GUID(IID_IEnumRegFilters, 0x56A868A4, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IEnumRegFilters : public IUnknown {
    STDMETHOD(Next)(ULONG cFilters, REGFILTER** apRegFilter, ULONG* pcFetched) PURE;
    STDMETHOD(Skip)(ULONG cFilters) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumRegFilters** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumRegFilters, IID_IEnumRegFilters);

DEFINE_GUID(IID_IFilterMapper, 0x56A868A3, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IFilterMapper : public IUnknown {
    STDMETHOD(RegisterFilter)(CLSID clsid, LPCWSTR Name, DWORD dwMerit) PURE;
    STDMETHOD(RegisterFilterInstance)(CLSID clsid, LPCWSTR Name, CLSID* MRId) PURE;
    STDMETHOD(RegisterPin)
    (CLSID Filter, LPCWSTR Name, BOOL bRendered, BOOL bOutput, BOOL bZero, BOOL bMany,
     CLSID ConnectsToFilter, LPCWSTR ConnectsToPin) PURE;
    STDMETHOD(RegisterPinType)
    (CLSID clsFilter, LPCWSTR strName, CLSID clsMajorType, CLSID clsSubType) PURE;
    STDMETHOD(UnregisterFilter)(CLSID Filter) PURE;
    STDMETHOD(UnregisterFilterInstance)(CLSID MRId) PURE;
    STDMETHOD(UnregisterPin)(CLSID Filter, LPCWSTR Name) PURE;
    STDMETHOD(EnumMatchingFilters)
    (IEnumRegFilters** ppEnum, DWORD dwMerit, BOOL bInputNeeded, CLSID clsInMaj, CLSID clsInSub,
     BOOL bRender, BOOL bOutputNeeded, CLSID clsOutMaj, CLSID clsOutSub) PURE;
};
MW_DECLARE_IID(IFilterMapper, IID_IFilterMapper);

DEFINE_GUID(IID_IFilterMapper2, 0xB79BB0B0, 0x33C1, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05,
            0xF3, 0x75);
struct IFilterMapper2 : public IUnknown {
    STDMETHOD(CreateCategory)
    (REFCLSID clsidCategory, DWORD dwCategoryMerit, LPCWSTR Description) PURE;
    STDMETHOD(UnregisterFilter)
    (const CLSID* pclsidCategory, LPCOLESTR szInstance, REFCLSID Filter) PURE;
    STDMETHOD(RegisterFilter)
    (REFCLSID clsidFilter, LPCWSTR Name, IMoniker** ppMoniker, const CLSID* pclsidCategory,
     LPCOLESTR szInstance, const REGFILTER2* prf2) PURE;
    STDMETHOD(EnumMatchingFilters)
    (IEnumMoniker** ppEnum, DWORD dwFlags, BOOL bExactMatch, DWORD dwMerit, BOOL bInputNeeded,
     DWORD cInputTypes, const GUID* pInputTypes, const REGPINMEDIUM* pMedIn,
     const CLSID* pPinCategoryIn, BOOL bRender, BOOL bOutputNeeded, DWORD cOutputTypes,
     const GUID* pOutputTypes, const REGPINMEDIUM* pMedOut, const CLSID* pPinCategoryOut) PURE;
};
MW_DECLARE_IID(IFilterMapper2, IID_IFilterMapper2);

DEFINE_GUID(IID_IFilterMapper3, 0xB79BB0B1, 0x33C1, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05,
            0xF3, 0x75);
struct IFilterMapper3 : public IFilterMapper2 {
    STDMETHOD(GetICreateDevEnum)(ICreateDevEnum** ppEnum) PURE;
};
MW_DECLARE_IID(IFilterMapper3, IID_IFilterMapper3);

DEFINE_GUID(IID_IQualityControl, 0x56A868A5, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IQualityControl : public IUnknown {
    STDMETHOD(Notify)(IBaseFilter* pSelf, Quality q) PURE;
    STDMETHOD(SetSink)(IQualityControl* piqc) PURE;
};
MW_DECLARE_IID(IQualityControl, IID_IQualityControl);

DEFINE_GUID(IID_IMediaEventSink, 0x56A868A2, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IMediaEventSink : public IUnknown {
    STDMETHOD(Notify)(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) PURE;
};
MW_DECLARE_IID(IMediaEventSink, IID_IMediaEventSink);

DEFINE_GUID(IID_IFileSourceFilter, 0x56A868A6, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IFileSourceFilter : public IUnknown {
    STDMETHOD(Load)(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetCurFile)(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) PURE;
};
MW_DECLARE_IID(IFileSourceFilter, IID_IFileSourceFilter);

DEFINE_GUID(IID_IFileSinkFilter, 0xA2104830, 0x7C70, 0x11CF, 0x8B, 0xCE, 0x00, 0xAA, 0x00, 0xA3,
            0xF1, 0xA6);
struct IFileSinkFilter : public IUnknown {
    STDMETHOD(SetFileName)(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetCurFile)(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) PURE;
};
MW_DECLARE_IID(IFileSinkFilter, IID_IFileSinkFilter);

DEFINE_GUID(IID_IFileSinkFilter2, 0x00855B90, 0xCE1B, 0x11D0, 0xBD, 0x4F, 0x00, 0xA0, 0xC9, 0x11,
            0xCE, 0x86);
struct IFileSinkFilter2 : public IFileSinkFilter {
    STDMETHOD(SetMode)(DWORD dwFlags) PURE;
    STDMETHOD(GetMode)(DWORD* pdwFlags) PURE;
};
MW_DECLARE_IID(IFileSinkFilter2, IID_IFileSinkFilter2);

DEFINE_GUID(IID_IGraphBuilder, 0x56A868A9, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IGraphBuilder : public IFilterGraph {
    STDMETHOD(Connect)(IPin* ppinOut, IPin* ppinIn) PURE;
    STDMETHOD(Render)(IPin* ppinOut) PURE;
    STDMETHOD(RenderFile)(LPCWSTR lpcwstrFile, LPCWSTR lpcwstrPlayList) PURE;
    STDMETHOD(AddSourceFilter)
    (LPCWSTR lpcwstrFileName, LPCWSTR lpcwstrFilterName, IBaseFilter** ppFilter) PURE;
    STDMETHOD(SetLogFile)(DWORD_PTR hFile) PURE;
    STDMETHOD(Abort)() PURE;
    STDMETHOD(ShouldOperationContinue)() PURE;
};
MW_DECLARE_IID(IGraphBuilder, IID_IGraphBuilder);

DEFINE_GUID(IID_ICaptureGraphBuilder, 0xBF87B6E0, 0x8C27, 0x11D0, 0xB3, 0xF0, 0x00, 0xAA, 0x00,
            0x37, 0x61, 0xC5);
struct ICaptureGraphBuilder : public IUnknown {
    STDMETHOD(SetFiltergraph)(IGraphBuilder* pfg) PURE;
    STDMETHOD(GetFiltergraph)(IGraphBuilder** ppfg) PURE;
    STDMETHOD(SetOutputFileName)
    (const GUID* pType, LPCOLESTR lpstrFile, IBaseFilter** ppf, IFileSinkFilter** ppSink) PURE;
    STDMETHOD(FindInterface)
    (const GUID* pCategory, IBaseFilter* pf, REFIID riid, void** ppint) PURE;
    STDMETHOD(RenderStream)
    (const GUID* pCategory, IUnknown* pSource, IBaseFilter* pfCompressor,
     IBaseFilter* pfRenderer) PURE;
    STDMETHOD(ControlStream)
    (const GUID* pCategory, IBaseFilter* pFilter, REFERENCE_TIME* pstart, REFERENCE_TIME* pstop,
     WORD wStartCookie, WORD wStopCookie) PURE;
    STDMETHOD(AllocCapFile)(LPCOLESTR lpstr, DWORDLONG dwlSize) PURE;
    STDMETHOD(CopyCaptureFile)
    (LPOLESTR lpwstrOld, LPOLESTR lpwstrNew, int fAllowEscAbort,
     IAMCopyCaptureFileProgress* pCallback) PURE;
};
MW_DECLARE_IID(ICaptureGraphBuilder, IID_ICaptureGraphBuilder);

DEFINE_GUID(IID_IAMCopyCaptureFileProgress, 0x670D1D20, 0xA068, 0x11D0, 0xB3, 0xF0, 0x00, 0xAA,
            0x00, 0x37, 0x61, 0xC5);
struct IAMCopyCaptureFileProgress : public IUnknown {
    STDMETHOD(Progress)(int iProgress) PURE;
};
MW_DECLARE_IID(IAMCopyCaptureFileProgress, IID_IAMCopyCaptureFileProgress);

DEFINE_GUID(IID_ICaptureGraphBuilder2, 0x93E5A4E0, 0x2D50, 0x11D2, 0xAB, 0xFA, 0x00, 0xA0, 0xC9,
            0xC6, 0xE3, 0x8D);
struct ICaptureGraphBuilder2 : public IUnknown {
    STDMETHOD(SetFiltergraph)(IGraphBuilder* pfg) PURE;
    STDMETHOD(GetFiltergraph)(IGraphBuilder** ppfg) PURE;
    STDMETHOD(SetOutputFileName)
    (const GUID* pType, LPCOLESTR lpstrFile, IBaseFilter** ppf, IFileSinkFilter** ppSink) PURE;
    STDMETHOD(FindInterface)
    (const GUID* pCategory, const GUID* pType, IBaseFilter* pf, REFIID riid, void** ppint) PURE;
    STDMETHOD(RenderStream)
    (const GUID* pCategory, const GUID* pType, IUnknown* pSource, IBaseFilter* pfCompressor,
     IBaseFilter* pfRenderer) PURE;
    STDMETHOD(ControlStream)
    (const GUID* pCategory, const GUID* pType, IBaseFilter* pFilter, REFERENCE_TIME* pstart,
     REFERENCE_TIME* pstop, WORD wStartCookie, WORD wStopCookie) PURE;
    STDMETHOD(AllocCapFile)(LPCOLESTR lpstr, DWORDLONG dwlSize) PURE;
    STDMETHOD(CopyCaptureFile)
    (LPOLESTR lpwstrOld, LPOLESTR lpwstrNew, int fAllowEscAbort,
     IAMCopyCaptureFileProgress* pCallback) PURE;
    STDMETHOD(FindPin)
    (IUnknown* pSource, PIN_DIRECTION pindir, const GUID* pCategory, const GUID* pType,
     BOOL fUnconnected, int num, IPin** ppPin) PURE;
};
MW_DECLARE_IID(ICaptureGraphBuilder2, IID_ICaptureGraphBuilder2);

DEFINE_GUID(IID_IFilterGraph2, 0x36B73882, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF,
            0x60);
struct IFilterGraph2 : public IGraphBuilder {
    STDMETHOD(AddSourceFilterForMoniker)
    (IMoniker* pMoniker, IBindCtx* pCtx, LPCWSTR lpcwstrFilterName, IBaseFilter** ppFilter) PURE;
    STDMETHOD(ReconnectEx)(IPin* ppin, const AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(RenderEx)(IPin* pPinOut, DWORD dwFlags, DWORD* pvContext) PURE;
};
MW_DECLARE_IID(IFilterGraph2, IID_IFilterGraph2);

DEFINE_GUID(IID_IStreamBuilder, 0x56A868BF, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IStreamBuilder : public IUnknown {
    STDMETHOD(Render)(IPin* ppinOut, IGraphBuilder* pGraph) PURE;
    STDMETHOD(Backout)(IPin* ppinOut, IGraphBuilder* pGraph) PURE;
};
MW_DECLARE_IID(IStreamBuilder, IID_IStreamBuilder);

DEFINE_GUID(IID_IAsyncReader, 0x56A868AA, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IAsyncReader : public IUnknown {
    STDMETHOD(RequestAllocator)
    (IMemAllocator* pPreferred, ALLOCATOR_PROPERTIES* pProps, IMemAllocator** ppActual) PURE;
    STDMETHOD(Request)(IMediaSample* pSample, DWORD_PTR dwUser) PURE;
    STDMETHOD(WaitForNext)(DWORD dwTimeout, IMediaSample** ppSample, DWORD_PTR* pdwUser) PURE;
    STDMETHOD(SyncReadAligned)(IMediaSample* pSample) PURE;
    STDMETHOD(SyncRead)(LONGLONG llPosition, LONG lLength, BYTE* pBuffer) PURE;
    STDMETHOD(Length)(LONGLONG* pTotal, LONGLONG* pAvailable) PURE;
    STDMETHOD(BeginFlush)() PURE;
    STDMETHOD(EndFlush)() PURE;
};
MW_DECLARE_IID(IAsyncReader, IID_IAsyncReader);

DEFINE_GUID(IID_IGraphVersion, 0x56A868AB, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IGraphVersion : public IUnknown {
    STDMETHOD(QueryVersion)(LONG* pVersion) PURE;
};
MW_DECLARE_IID(IGraphVersion, IID_IGraphVersion);

DEFINE_GUID(IID_IResourceConsumer, 0x56A868AD, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IResourceConsumer : public IUnknown {
    STDMETHOD(AcquireResource)(LONG idResource) PURE;
    STDMETHOD(ReleaseResource)(LONG idResource) PURE;
};
MW_DECLARE_IID(IResourceConsumer, IID_IResourceConsumer);

DEFINE_GUID(IID_IResourceManager, 0x56A868AC, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IResourceManager : public IUnknown {
    STDMETHOD(Register)(LPCWSTR pName, LONG cResource, LONG* plToken) PURE;
    STDMETHOD(RegisterGroup)(LPCWSTR pName, LONG cResource, LONG* palTokens, LONG* plToken) PURE;
    STDMETHOD(RequestResource)
    (LONG idResource, IUnknown* pFocusObject, IResourceConsumer* pConsumer) PURE;
    STDMETHOD(NotifyAcquire)(LONG idResource, IResourceConsumer* pConsumer, HRESULT hr) PURE;
    STDMETHOD(NotifyRelease)(LONG idResource, IResourceConsumer* pConsumer, BOOL bStillWant) PURE;
    STDMETHOD(CancelRequest)(LONG idResource, IResourceConsumer* pConsumer) PURE;
    STDMETHOD(SetFocus)(IUnknown* pFocusObject) PURE;
    STDMETHOD(ReleaseFocus)(IUnknown* pFocusObject) PURE;
};
MW_DECLARE_IID(IResourceManager, IID_IResourceManager);

DEFINE_GUID(IID_IAMStreamControl, 0x36B73881, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C,
            0xEF, 0x60);
struct IAMStreamControl : public IUnknown {
    STDMETHOD(StartAt)(const REFERENCE_TIME* ptStart, DWORD dwCookie) PURE;
    STDMETHOD(StopAt)(const REFERENCE_TIME* ptStop, BOOL bSendExtra, DWORD dwCookie) PURE;
    STDMETHOD(GetInfo)(AM_STREAM_INFO* pInfo) PURE;
};
MW_DECLARE_IID(IAMStreamControl, IID_IAMStreamControl);

DEFINE_GUID(IID_ISeekingPassThru, 0x36B73883, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C,
            0xEF, 0x60);
struct ISeekingPassThru : public IUnknown {
    STDMETHOD(Init)(BOOL bSupportRendering, IPin* pPin) PURE;
};
MW_DECLARE_IID(ISeekingPassThru, IID_ISeekingPassThru);

DEFINE_GUID(IID_IAMStreamConfig, 0xC6E13340, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11,
            0x89, 0x56);
struct IAMStreamConfig : public IUnknown {
    STDMETHOD(SetFormat)(AM_MEDIA_TYPE* pmt) PURE;
    STDMETHOD(GetFormat)(AM_MEDIA_TYPE** pmt) PURE;
    STDMETHOD(GetNumberOfCapabilities)(int* piCount, int* piSize) PURE;
    STDMETHOD(GetStreamCaps)(int iIndex, AM_MEDIA_TYPE** pmt, BYTE* pSCC) PURE;
};
MW_DECLARE_IID(IAMStreamConfig, IID_IAMStreamConfig);

DEFINE_GUID(IID_IAMDroppedFrames, 0xC6E13344, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11,
            0x89, 0x56);
struct IAMDroppedFrames : public IUnknown {
    STDMETHOD(GetNumDropped)(LONG* number) PURE;
    STDMETHOD(GetNumNotDropped)(LONG* number) PURE;
    STDMETHOD(GetDroppedInfo)(LONG size, LONG* array, LONG* copied) PURE;
    STDMETHOD(GetAverageFrameSize)(LONG* size) PURE;
};
MW_DECLARE_IID(IAMDroppedFrames, IID_IAMDroppedFrames);

DEFINE_GUID(IID_IAMBufferNegotiation, 0x56ED71A0, 0xAF5F, 0x11D0, 0xB3, 0xF0, 0x00, 0xAA, 0x00,
            0x37, 0x61, 0xC5);
struct IAMBufferNegotiation : public IUnknown {
    STDMETHOD(SuggestAllocatorProperties)(const ALLOCATOR_PROPERTIES* prop) PURE;
    STDMETHOD(GetAllocatorProperties)(ALLOCATOR_PROPERTIES* prop) PURE;
};
MW_DECLARE_IID(IAMBufferNegotiation, IID_IAMBufferNegotiation);

DEFINE_GUID(IID_IAMCrossbar, 0xC6E13380, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89,
            0x56);
struct IAMCrossbar : public IUnknown {
    STDMETHOD(get_PinCounts)(LONG* output, LONG* intput) PURE;
    STDMETHOD(CanRoute)(LONG output, LONG input) PURE;
    STDMETHOD(Route)(LONG output, LONG input) PURE;
    STDMETHOD(get_IsRoutedTo)(LONG output, LONG* input) PURE;
    STDMETHOD(get_CrossbarPinInfo)(BOOL is_input, LONG index, LONG* related, LONG* type) PURE;
};
MW_DECLARE_IID(IAMCrossbar, IID_IAMCrossbar);

DEFINE_GUID(IID_IAMFilterMiscFlags, 0x2DD74950, 0xA890, 0x11D1, 0xAB, 0xE8, 0x00, 0xA0, 0xC9, 0x05,
            0xF3, 0x75);
struct IAMFilterMiscFlags : public IUnknown {
    STDMETHOD_(ULONG, GetMiscFlags)() PURE;
};
MW_DECLARE_IID(IAMFilterMiscFlags, IID_IAMFilterMiscFlags);

DEFINE_GUID(IID_IKsPropertySet, 0x31EFAC30, 0x515C, 0x11D0, 0xA9, 0xAA, 0x00, 0xAA, 0x00, 0x61,
            0xBE, 0x93);
struct IKsPropertySet : public IUnknown {
    STDMETHOD(Set)
    (REFGUID guidPropSet, DWORD dwPropID, LPVOID pInstanceData, DWORD cbInstanceData,
     LPVOID pPropData, DWORD cbPropData) PURE;
    STDMETHOD(Get)
    (REFGUID guidPropSet, DWORD dwPropID, LPVOID pInstanceData, DWORD cbInstanceData,
     LPVOID pPropData, DWORD cbPropData, DWORD* pcbReturned) PURE;
    STDMETHOD(QuerySupported)(REFGUID guidPropSet, DWORD dwPropID, DWORD* pTypeSupport) PURE;
};
MW_DECLARE_IID(IKsPropertySet, IID_IKsPropertySet);

DEFINE_GUID(IID_IAMLatency, 0x62EA93BA, 0xEC62, 0x11D2, 0xB7, 0x70, 0x00, 0xC0, 0x4F, 0xB6, 0xBD,
            0x3D);
struct IAMLatency : public IUnknown {
    STDMETHOD(GetLatency)(REFERENCE_TIME* latency) PURE;
};
MW_DECLARE_IID(IAMLatency, IID_IAMLatency);

DEFINE_GUID(IID_IAMPushSource, 0xF185FE76, 0xE64E, 0x11D2, 0xB7, 0x6E, 0x00, 0xC0, 0x4F, 0xB6, 0xBD,
            0x3D);
struct IAMPushSource : public IAMLatency {
    STDMETHOD(GetPushSourceFlags)(ULONG* flags) PURE;
    STDMETHOD(SetPushSourceFlags)(ULONG flags) PURE;
    STDMETHOD(SetStreamOffset)(REFERENCE_TIME offset) PURE;
    STDMETHOD(GetStreamOffset)(REFERENCE_TIME* offset) PURE;
    STDMETHOD(GetMaxStreamOffset)(REFERENCE_TIME* offset) PURE;
    STDMETHOD(SetMaxStreamOffset)(REFERENCE_TIME offset) PURE;
};
MW_DECLARE_IID(IAMPushSource, IID_IAMPushSource);

DEFINE_GUID(IID_IAMClockSlave, 0x9FD52741, 0x176D, 0x4B36, 0x8F, 0x51, 0xCA, 0x8F, 0x93, 0x32, 0x23,
            0xBE);
struct IAMClockSlave : public IUnknown {
    STDMETHOD(SetErrorTolerance)(DWORD dwTolerance) PURE;
    STDMETHOD(GetErrorTolerance)(DWORD* pdwTolerance) PURE;
};
MW_DECLARE_IID(IAMClockSlave, IID_IAMClockSlave);

DEFINE_GUID(IID_IVideoFrameStep, 0xE46A9787, 0x2B71, 0x444D, 0xA4, 0xB5, 0x1F, 0xAB, 0x7B, 0x70,
            0x8D, 0x6A);
struct IVideoFrameStep : public IUnknown {
    STDMETHOD(Step)(DWORD frame_count, IUnknown* filter) PURE;
    STDMETHOD(CanStep)(LONG multiple, IUnknown* filter) PURE;
    STDMETHOD(CancelStep)() PURE;
};
MW_DECLARE_IID(IVideoFrameStep, IID_IVideoFrameStep);

DEFINE_GUID(IID_IAMStreamSelect, 0xC1960960, 0x17F5, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05,
            0xF3, 0x75);
struct IAMStreamSelect : public IUnknown {
    STDMETHOD(Count)(DWORD* streams) PURE;
    STDMETHOD(Info)
    (LONG index, AM_MEDIA_TYPE** media_type, DWORD* flags, LCID* lcid, DWORD* group, WCHAR** name,
     IUnknown** object, IUnknown** unknown) PURE;
    STDMETHOD(Enable)(LONG index, DWORD flags) PURE;
};
MW_DECLARE_IID(IAMStreamSelect, IID_IAMStreamSelect);

DEFINE_GUID(IID_IAMVideoCompression, 0xC6E13343, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11,
            0x89, 0x56);
struct IAMVideoCompression : public IUnknown {
    STDMETHOD(put_KeyFrameRate)(LONG frame_rate) PURE;
    STDMETHOD(get_KeyFrameRate)(LONG* frame_rate) PURE;
    STDMETHOD(put_PFramesPerKeyFrame)(LONG frame) PURE;
    STDMETHOD(get_PFramesPerKeyFrame)(LONG* frame) PURE;
    STDMETHOD(put_Quality)(double quality) PURE;
    STDMETHOD(get_Quality)(double* quality) PURE;
    STDMETHOD(put_WindowSize)(DWORDLONG size) PURE;
    STDMETHOD(get_WindowSize)(DWORDLONG* size) PURE;
    STDMETHOD(GetInfo)
    (LPWSTR version, int* version_size, LPWSTR description, int* description_size, LONG* frame_rate,
     LONG* key, double* quality, LONG* capabilities) PURE;
    STDMETHOD(OverrideKeyFrame)(LONG number) PURE;
    STDMETHOD(OverrideFrameSize)(LONG number, LONG size) PURE;
};
MW_DECLARE_IID(IAMVideoCompression, IID_IAMVideoCompression);

// ---- Capture settings whose interface ids are not among the platform declarations available
// to this project (no IID constant yet, see the platform notes). Method order as the platform
// publishes it in axextend.idl.

// Configuration and about dialogs of a video-for-windows compressor filter.
struct IAMVfwCompressDialogs : public IUnknown {
    // iDialog: a VfwCompressDialogs value; the Query values only ask whether the dialog exists
    // (S_OK yes, S_FALSE no).
    STDMETHOD(ShowDialog)(int iDialog, HWND hwnd) PURE;
    STDMETHOD(GetState)(LPVOID pState, int* pcbState) PURE;
    STDMETHOD(SetState)(LPVOID pState, int cbState) PURE;
    STDMETHOD(SendDriverMessage)(int uMsg, LONG dw1, LONG dw2) PURE;
};

// The mixer of one input line of an audio capture filter (on the pin) or of the whole device
// (on the filter). Levels run from 0.0 to 1.0, pan from -1.0 to 1.0; AMF_AUTOMATICGAIN (-1.0)
// stands for automatic gain.
struct IAMAudioInputMixer : public IUnknown {
    STDMETHOD(put_Enable)(BOOL fEnable) PURE;
    STDMETHOD(get_Enable)(BOOL* pfEnable) PURE;
    STDMETHOD(put_Mono)(BOOL fMono) PURE;
    STDMETHOD(get_Mono)(BOOL* pfMono) PURE;
    STDMETHOD(put_MixLevel)(double Level) PURE;
    STDMETHOD(get_MixLevel)(double* pLevel) PURE;
    STDMETHOD(put_Pan)(double Pan) PURE;
    STDMETHOD(get_Pan)(double* pPan) PURE;
    STDMETHOD(put_Loudness)(BOOL fLoudness) PURE;
    STDMETHOD(get_Loudness)(BOOL* pfLoudness) PURE;
    STDMETHOD(put_Treble)(double Treble) PURE;
    STDMETHOD(get_Treble)(double* pTreble) PURE;
    STDMETHOD(get_TrebleRange)(double* pRange) PURE;
    STDMETHOD(put_Bass)(double Bass) PURE;
    STDMETHOD(get_Bass)(double* pBass) PURE;
    STDMETHOD(get_BassRange)(double* pRange) PURE;
};
constexpr double AMF_AUTOMATICGAIN = -1.0;

typedef IPin* PPIN;
typedef IBaseFilter* PFILTER;
typedef IMediaSample* PMEDIASAMPLE;
typedef IReferenceClock* PREFERENCECLOCK;

// Record layouts that the system reads directly (LP64).
static_assert(sizeof(AM_MEDIA_TYPE) == 88);
static_assert(offsetof(AM_MEDIA_TYPE, subtype) == 16);
static_assert(offsetof(AM_MEDIA_TYPE, bFixedSizeSamples) == 32);
static_assert(offsetof(AM_MEDIA_TYPE, lSampleSize) == 40);
static_assert(offsetof(AM_MEDIA_TYPE, formattype) == 44);
static_assert(offsetof(AM_MEDIA_TYPE, pUnk) == 64);
static_assert(offsetof(AM_MEDIA_TYPE, cbFormat) == 72);
static_assert(offsetof(AM_MEDIA_TYPE, pbFormat) == 80);
static_assert(sizeof(PIN_INFO) == 8 + 4 + 256 + 4);
static_assert(offsetof(PIN_INFO, achName) == 12);
static_assert(sizeof(FILTER_INFO) == 256 + 8);
static_assert(sizeof(ALLOCATOR_PROPERTIES) == 16);
static_assert(sizeof(AUDIO_STREAM_CONFIG_CAPS) == 52);
static_assert(offsetof(AM_SAMPLE2_PROPERTIES, tStart) == 16);
static_assert(offsetof(AM_SAMPLE2_PROPERTIES, pMediaType) == 40);
static_assert(offsetof(AM_SAMPLE2_PROPERTIES, pbBuffer) == 48);
static_assert(sizeof(AM_SAMPLE2_PROPERTIES) == 64);
