// The Windows Media Format interfaces: profiles, the writer with its file, network and push
// sinks, the asynchronous and synchronous readers, header attributes and samples. Declarations
// only; platform/wmf implements them and answers the creation functions below (reached through
// the "wmvcore.dll" entry points of winmem.h's loader, or called directly).
//
// Status and sample callbacks (IWMStatusCallback, IWMReaderCallback) are called on the
// service's own threads.
#pragma once

#include "nserror.h"
#include "objbase.h"

struct INSSBuffer;
struct IWMMediaProps;
struct IWMInputMediaProps;
struct IWMOutputMediaProps;
struct IWMStreamConfig;
struct IWMStreamList;
struct IWMMutualExclusion;
struct IWMProfile;
struct IWMProfile2;
struct IWMProfileManager;
struct IWMProfileManager2;
struct IWMStatusCallback;
struct IWMReaderCallback;
struct IWMCredentialCallback;
struct IWMWriter;
struct IWMWriterAdvanced;
struct IWMWriterAdvanced2;
struct IWMWriterSink;
struct IWMWriterFileSink;
struct IWMWriterNetworkSink;
struct IWMWriterPushSink;
struct IWMRegisterCallback;
struct IWMClientConnections;
struct IWMClientConnections2;
struct IWMReader;
struct IWMReaderAdvanced;
struct IWMReaderAdvanced2;
struct IWMHeaderInfo;
struct IWMHeaderInfo2;
struct IWMHeaderInfo3;
struct IWMSyncReader;
struct IWMCodecInfo;
struct IWMCodecInfo2;
struct IWMCodecInfo3;

typedef QWORD* PQWORD;

// The media type record of the format SDK (same layout as AM_MEDIA_TYPE).
typedef struct _WMMediaType {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;
    BYTE* pbFormat;
} WM_MEDIA_TYPE;
typedef WM_MEDIA_TYPE* PWM_MEDIA_TYPE;

typedef enum WMT_ATTR_DATATYPE {
    WMT_TYPE_DWORD = 0,
    WMT_TYPE_STRING = 1,
    WMT_TYPE_BINARY = 2,
    WMT_TYPE_BOOL = 3,
    WMT_TYPE_QWORD = 4,
    WMT_TYPE_WORD = 5,
    WMT_TYPE_GUID = 6
} WMT_ATTR_DATATYPE;

typedef enum WMT_STATUS {
    WMT_ERROR = 0,
    WMT_OPENED = 1,
    WMT_BUFFERING_START = 2,
    WMT_BUFFERING_STOP = 3,
    WMT_EOF = 4,
    WMT_END_OF_FILE = 4,
    WMT_END_OF_SEGMENT = 5,
    WMT_END_OF_STREAMING = 6,
    WMT_LOCATING = 7,
    WMT_CONNECTING = 8,
    WMT_NO_RIGHTS = 9,
    WMT_MISSING_CODEC = 10,
    WMT_STARTED = 11,
    WMT_STOPPED = 12,
    WMT_CLOSED = 13,
    WMT_STRIDING = 14,
    WMT_TIMER = 15,
    WMT_INDEX_PROGRESS = 16,
    WMT_SAVEAS_START = 17,
    WMT_SAVEAS_STOP = 18,
    WMT_NEW_SOURCEFLAGS = 19,
    WMT_NEW_METADATA = 20,
    WMT_BACKUPRESTORE_BEGIN = 21,
    WMT_SOURCE_SWITCH = 22,
    WMT_ACQUIRE_LICENSE = 23,
    WMT_INDIVIDUALIZE = 24,
    WMT_NEEDS_INDIVIDUALIZATION = 25,
    WMT_NO_RIGHTS_EX = 26,
    WMT_BACKUPRESTORE_END = 27,
    WMT_BACKUPRESTORE_CONNECTING = 28,
    WMT_BACKUPRESTORE_DISCONNECTING = 29,
    WMT_ERROR_WITHURL = 30,
    WMT_RESTRICTED_LICENSE = 31,
    WMT_CLIENT_CONNECT = 32,
    WMT_CLIENT_DISCONNECT = 33,
    WMT_NATIVE_OUTPUT_PROPS_CHANGED = 34,
    WMT_RECONNECT_START = 35,
    WMT_RECONNECT_END = 36,
    WMT_CLIENT_CONNECT_EX = 37,
    WMT_CLIENT_DISCONNECT_EX = 38,
    WMT_SET_FEC_SPAN = 39,
    WMT_PREROLL_READY = 40,
    WMT_PREROLL_COMPLETE = 41,
    WMT_CLIENT_PROPERTIES = 42,
    WMT_LICENSEURL_SIGNATURE_STATE = 43,
    WMT_INIT_PLAYLIST_BURN = 44,
    WMT_TRANSCRYPTOR_INIT = 45,
    WMT_TRANSCRYPTOR_SEEKED = 46,
    WMT_TRANSCRYPTOR_READ = 47,
    WMT_TRANSCRYPTOR_CLOSED = 48,
    WMT_PROXIMITY_RESULT = 49,
    WMT_PROXIMITY_COMPLETED = 50,
    WMT_CONTENT_ENABLER = 51
} WMT_STATUS;

typedef enum WMT_STREAM_SELECTION {
    WMT_OFF = 0,
    WMT_CLEANPOINT_ONLY = 1,
    WMT_ON = 2
} WMT_STREAM_SELECTION;

typedef enum WMT_VERSION {
    WMT_VER_4_0 = 0x40000,
    WMT_VER_7_0 = 0x70000,
    WMT_VER_8_0 = 0x80000,
    WMT_VER_9_0 = 0x90000
} WMT_VERSION;

typedef enum WMT_CODEC_INFO_TYPE {
    WMT_CODECINFO_AUDIO = 0,
    WMT_CODECINFO_VIDEO = 1,
    WMT_CODECINFO_UNKNOWN = 0xffffffff
} WMT_CODEC_INFO_TYPE;

typedef enum WMT_PLAY_MODE {
    WMT_PLAY_MODE_AUTOSELECT = 0,
    WMT_PLAY_MODE_LOCAL = 1,
    WMT_PLAY_MODE_DOWNLOAD = 2,
    WMT_PLAY_MODE_STREAMING = 3
} WMT_PLAY_MODE;

typedef enum WMT_PROXY_SETTINGS {
    WMT_PROXY_SETTING_NONE = 0,
    WMT_PROXY_SETTING_MANUAL = 1,
    WMT_PROXY_SETTING_AUTO = 2,
    WMT_PROXY_SETTING_BROWSER = 3,
    WMT_PROXY_SETTING_MAX = 4
} WMT_PROXY_SETTINGS;

typedef enum tagWMT_OFFSET_FORMAT {
    WMT_OFFSET_FORMAT_100NS = 0,
    WMT_OFFSET_FORMAT_FRAME_NUMBERS = 1,
    WMT_OFFSET_FORMAT_PLAYLIST_OFFSET = 2,
    WMT_OFFSET_FORMAT_TIMECODE = 3,
    WMT_OFFSET_FORMAT_100NS_APPROXIMATE = 4
} WMT_OFFSET_FORMAT;

typedef enum WMT_RIGHTS {
    WMT_RIGHT_PLAYBACK = 0x1,
    WMT_RIGHT_COPY_TO_NON_SDMI_DEVICE = 0x2,
    WMT_RIGHT_COPY_TO_CD = 0x8,
    WMT_RIGHT_COPY_TO_SDMI_DEVICE = 0x10,
    WMT_RIGHT_ONE_TIME = 0x20,
    WMT_RIGHT_SAVE_STREAM_PROTECTED = 0x40,
    WMT_RIGHT_COPY = 0x80,
    WMT_RIGHT_COLLABORATIVE_PLAY = 0x100,
    WMT_RIGHT_SDMI_TRIGGER = 0x10000,
    WMT_RIGHT_SDMI_NOMORECOPIES = 0x20000
} WMT_RIGHTS;

typedef enum tagWMT_STORAGE_FORMAT {
    WMT_Storage_Format_MP3 = 0,
    WMT_Storage_Format_V1 = 1
} WMT_STORAGE_FORMAT;

typedef struct _WMReaderStatistics {
    DWORD cbSize;
    DWORD dwBandwidth;
    DWORD cPacketsReceived;
    DWORD cPacketsRecovered;
    DWORD cPacketsLost;
    WORD wQuality;
} WM_READER_STATISTICS;

typedef struct _WMReaderClientInfo {
    DWORD cbSize;
    WCHAR* wszLang;
    WCHAR* wszBrowserUserAgent;
    WCHAR* wszBrowserWebPage;
    QWORD qwReserved;
    LPARAM* pReserved;
    WCHAR* wszHostExe;
    QWORD qwHostVersion;
    WCHAR* wszPlayerUserAgent;
} WM_READER_CLIENTINFO;

typedef struct _WMWriterStatistics {
    QWORD qwSampleCount;
    QWORD qwByteCount;
    QWORD qwDroppedSampleCount;
    QWORD qwDroppedByteCount;
    DWORD dwCurrentBitrate;
    DWORD dwAverageBitrate;
    DWORD dwExpectedBitrate;
    DWORD dwCurrentSampleRate;
    DWORD dwAverageSampleRate;
    DWORD dwExpectedSampleRate;
} WM_WRITER_STATISTICS;

typedef struct _WMWriterStatisticsEx {
    DWORD dwBitratePlusOverhead;
    DWORD dwCurrentSampleDropRateInQueue;
    DWORD dwCurrentSampleDropRateInCodec;
    DWORD dwCurrentSampleDropRateInMultiplexer;
    DWORD dwTotalSampleDropsInQueue;
    DWORD dwTotalSampleDropsInCodec;
    DWORD dwTotalSampleDropsInMultiplexer;
} WM_WRITER_STATISTICS_EX;

// Network sink records and values as the platform documents them (they are not part of the
// reference headers available to this project).
typedef enum WMT_NET_PROTOCOL { WMT_PROTOCOL_HTTP = 0 } WMT_NET_PROTOCOL;
typedef struct _WMClientProperties {
    DWORD dwIPAddress;
    DWORD dwPort;
} WM_CLIENT_PROPERTIES;

// Attribute names used with IWMHeaderInfo (UTF-16).
inline constexpr WCHAR g_wszWMDuration[] = u"Duration";
inline constexpr WCHAR g_wszWMBitrate[] = u"Bitrate";
inline constexpr WCHAR g_wszWMSeekable[] = u"Seekable";
inline constexpr WCHAR g_wszWMStridable[] = u"Stridable";
inline constexpr WCHAR g_wszWMBroadcast[] = u"Broadcast";
inline constexpr WCHAR g_wszWMProtected[] = u"Is_Protected";
inline constexpr WCHAR g_wszWMTrusted[] = u"Is_Trusted";
inline constexpr WCHAR g_wszWMSignature_Name[] = u"Signature_Name";
inline constexpr WCHAR g_wszWMHasAudio[] = u"HasAudio";
inline constexpr WCHAR g_wszWMHasImage[] = u"HasImage";
inline constexpr WCHAR g_wszWMHasScript[] = u"HasScript";
inline constexpr WCHAR g_wszWMHasVideo[] = u"HasVideo";
inline constexpr WCHAR g_wszWMCurrentBitrate[] = u"CurrentBitrate";
inline constexpr WCHAR g_wszWMOptimalBitrate[] = u"OptimalBitrate";
inline constexpr WCHAR g_wszWMFileSize[] = u"FileSize";
inline constexpr WCHAR g_wszWMTitle[] = u"Title";
inline constexpr WCHAR g_wszWMAuthor[] = u"Author";
inline constexpr WCHAR g_wszWMDescription[] = u"Description";
inline constexpr WCHAR g_wszWMRating[] = u"Rating";
inline constexpr WCHAR g_wszWMCopyright[] = u"Copyright";
inline constexpr WCHAR g_wszWMAlbumTitle[] = u"WM/AlbumTitle";
inline constexpr WCHAR g_wszWMGenre[] = u"WM/Genre";
inline constexpr WCHAR g_wszWMYear[] = u"WM/Year";
inline constexpr WCHAR g_wszWMTrackNumber[] = u"WM/TrackNumber";
inline constexpr WCHAR g_wszNumPasses[] = u"_PASSESUSED";
inline constexpr WCHAR g_wszVBREnabled[] = u"_VBRENABLED";

DEFINE_GUID(WMMEDIASUBTYPE_Base, 0x00000000, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIATYPE_Video, 0x73646976, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B,
            0x71);
DEFINE_GUID(WMMEDIASUBTYPE_RGB1, 0xE436EB78, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB4, 0xE436EB79, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB8, 0xE436EB7A, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB565, 0xE436EB7B, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB555, 0xE436EB7C, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB24, 0xE436EB7D, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_RGB32, 0xE436EB7E, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
DEFINE_GUID(WMMEDIASUBTYPE_I420, 0x30323449, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_IYUV, 0x56555949, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_YV12, 0x32315659, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_YUY2, 0x32595559, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_P422, 0x32323450, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_UYVY, 0x59565955, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_YVYU, 0x55595659, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_YVU9, 0x39555659, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_VIDEOIMAGE, 0x1D4A45F2, 0xE5F6, 0x4B44, 0x83, 0x88, 0xF0, 0xAE, 0x5C,
            0x0E, 0x0C, 0x37);
DEFINE_GUID(WMMEDIASUBTYPE_MP43, 0x3334504D, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_MP4S, 0x5334504D, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_M4S2, 0x3253344D, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMV1, 0x31564D57, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMV2, 0x32564D57, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_MSS1, 0x3153534D, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_MPEG2_VIDEO, 0xE06D8026, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F,
            0x6C, 0xBB, 0xEA);
DEFINE_GUID(WMMEDIATYPE_Audio, 0x73647561, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B,
            0x71);
DEFINE_GUID(WMMEDIASUBTYPE_PCM, 0x00000001, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_DRM, 0x00000009, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMAudioV9, 0x00000162, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00,
            0x38, 0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMAudio_Lossless, 0x00000163, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA,
            0x00, 0x38, 0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_MSS2, 0x3253534D, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMSP1, 0x0000000A, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMSP2, 0x0000000B, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMV3, 0x33564D57, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMVP, 0x50564D57, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WVP2, 0x32505657, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WMVA, 0x41564D57, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);
DEFINE_GUID(WMMEDIASUBTYPE_WVC1, 0x31435657, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38,
            0x9B, 0x71);

DEFINE_GUID(IID_INSSBuffer, 0xE1CD3524, 0x03D7, 0x11D2, 0x9E, 0xED, 0x00, 0x60, 0x97, 0xD2, 0xD7,
            0xCF);
struct INSSBuffer : public IUnknown {
    STDMETHOD(GetLength)(DWORD* pdwLength) PURE;
    STDMETHOD(SetLength)(DWORD dwLength) PURE;
    STDMETHOD(GetMaxLength)(DWORD* pdwLength) PURE;
    STDMETHOD(GetBuffer)(BYTE** ppdwBuffer) PURE;
    STDMETHOD(GetBufferAndLength)(BYTE** ppdwBuffer, DWORD* pdwLength) PURE;
};
MW_DECLARE_IID(INSSBuffer, IID_INSSBuffer);

DEFINE_GUID(IID_IWMMediaProps, 0x96406BCE, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMMediaProps : public IUnknown {
    STDMETHOD(GetType)(GUID* pguidType) PURE;
    STDMETHOD(GetMediaType)(WM_MEDIA_TYPE* pType, DWORD* pcbType) PURE;
    STDMETHOD(SetMediaType)(WM_MEDIA_TYPE* pType) PURE;
};
MW_DECLARE_IID(IWMMediaProps, IID_IWMMediaProps);

DEFINE_GUID(IID_IWMInputMediaProps, 0x96406BD5, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMInputMediaProps : public IWMMediaProps {
    STDMETHOD(GetConnectionName)(WCHAR* pwszName, WORD* pcchName) PURE;
    STDMETHOD(GetGroupName)(WCHAR* pwszName, WORD* pcchName) PURE;
};
MW_DECLARE_IID(IWMInputMediaProps, IID_IWMInputMediaProps);

DEFINE_GUID(IID_IWMOutputMediaProps, 0x96406BD7, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMOutputMediaProps : public IWMMediaProps {
    STDMETHOD(GetStreamGroupName)(WCHAR* pwszName, WORD* pcchName) PURE;
    STDMETHOD(GetConnectionName)(WCHAR* pwszName, WORD* pcchName) PURE;
};
MW_DECLARE_IID(IWMOutputMediaProps, IID_IWMOutputMediaProps);

DEFINE_GUID(IID_IWMStreamConfig, 0x96406BDC, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMStreamConfig : public IUnknown {
    STDMETHOD(GetStreamType)(GUID* pguidStreamType) PURE;
    STDMETHOD(GetStreamNumber)(WORD* pwStreamNum) PURE;
    STDMETHOD(SetStreamNumber)(WORD wStreamNum) PURE;
    STDMETHOD(GetStreamName)(WCHAR* pwszStreamName, WORD* pcchStreamName) PURE;
    STDMETHOD(SetStreamName)(LPCWSTR pwszStreamName) PURE;
    STDMETHOD(GetConnectionName)(WCHAR* pwszInputName, WORD* pcchInputName) PURE;
    STDMETHOD(SetConnectionName)(LPCWSTR pwszInputName) PURE;
    STDMETHOD(GetBitrate)(DWORD* pdwBitrate) PURE;
    STDMETHOD(SetBitrate)(DWORD pdwBitrate) PURE;
    STDMETHOD(GetBufferWindow)(DWORD* pmsBufferWindow) PURE;
    STDMETHOD(SetBufferWindow)(DWORD msBufferWindow) PURE;
};
MW_DECLARE_IID(IWMStreamConfig, IID_IWMStreamConfig);

DEFINE_GUID(IID_IWMStreamList, 0x96406BDD, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMStreamList : public IUnknown {
    STDMETHOD(GetStreams)(WORD* pwStreamNumArray, WORD* pcStreams) PURE;
    STDMETHOD(AddStream)(WORD wStreamNum) PURE;
    STDMETHOD(RemoveStream)(WORD wStreamNum) PURE;
};
MW_DECLARE_IID(IWMStreamList, IID_IWMStreamList);

DEFINE_GUID(IID_IWMMutualExclusion, 0x96406BDE, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMMutualExclusion : public IWMStreamList {
    STDMETHOD(GetType)(GUID* pguidType) PURE;
    STDMETHOD(SetType)(REFGUID guidType) PURE;
};
MW_DECLARE_IID(IWMMutualExclusion, IID_IWMMutualExclusion);

DEFINE_GUID(IID_IWMProfile, 0x96406BDB, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMProfile : public IUnknown {
    STDMETHOD(GetVersion)(WMT_VERSION* pdwVersion) PURE;
    STDMETHOD(GetName)(WCHAR* pwszName, DWORD* pcchName) PURE;
    STDMETHOD(SetName)(const WCHAR* pwszName) PURE;
    STDMETHOD(GetDescription)(WCHAR* pwszDescription, DWORD* pcchDescription) PURE;
    STDMETHOD(SetDescription)(const WCHAR* pwszDescription) PURE;
    STDMETHOD(GetStreamCount)(DWORD* pcStreams) PURE;
    STDMETHOD(GetStream)(DWORD dwStreamIndex, IWMStreamConfig** ppConfig) PURE;
    STDMETHOD(GetStreamByNumber)(WORD wStreamNum, IWMStreamConfig** ppConfig) PURE;
    STDMETHOD(RemoveStream)(IWMStreamConfig* pConfig) PURE;
    STDMETHOD(RemoveStreamByNumber)(WORD wStreamNum) PURE;
    STDMETHOD(AddStream)(IWMStreamConfig* pConfig) PURE;
    STDMETHOD(ReconfigStream)(IWMStreamConfig* pConfig) PURE;
    STDMETHOD(CreateNewStream)(REFGUID guidStreamType, IWMStreamConfig** ppConfig) PURE;
    STDMETHOD(GetMutualExclusionCount)(DWORD* pcME) PURE;
    STDMETHOD(GetMutualExclusion)(DWORD dwMEIndex, IWMMutualExclusion** ppME) PURE;
    STDMETHOD(RemoveMutualExclusion)(IWMMutualExclusion* pME) PURE;
    STDMETHOD(AddMutualExclusion)(IWMMutualExclusion* pME) PURE;
    STDMETHOD(CreateNewMutualExclusion)(IWMMutualExclusion** ppME) PURE;
};
MW_DECLARE_IID(IWMProfile, IID_IWMProfile);

DEFINE_GUID(IID_IWMProfile2, 0x07E72D33, 0xD94E, 0x4BE7, 0x88, 0x43, 0x60, 0xAE, 0x5F, 0xF7, 0xE5,
            0xF5);
struct IWMProfile2 : public IWMProfile {
    STDMETHOD(GetProfileID)(GUID* guid) PURE;
};
MW_DECLARE_IID(IWMProfile2, IID_IWMProfile2);

DEFINE_GUID(IID_IWMProfileManager, 0xD16679F2, 0x6CA0, 0x472D, 0x8D, 0x31, 0x2F, 0x5D, 0x55, 0xAE,
            0xE1, 0x55);
struct IWMProfileManager : public IUnknown {
    STDMETHOD(CreateEmptyProfile)(WMT_VERSION dwVersion, IWMProfile** ppProfile) PURE;
    STDMETHOD(LoadProfileByID)(REFGUID guidProfile, IWMProfile** ppProfile) PURE;
    STDMETHOD(LoadProfileByData)(const WCHAR* pwszProfile, IWMProfile** ppProfile) PURE;
    STDMETHOD(SaveProfile)(IWMProfile* pIWMProfile, WCHAR* pwszProfile, DWORD* pdwLength) PURE;
    STDMETHOD(GetSystemProfileCount)(DWORD* pcProfiles) PURE;
    STDMETHOD(LoadSystemProfile)(DWORD dwProfileIndex, IWMProfile** ppProfile) PURE;
};
MW_DECLARE_IID(IWMProfileManager, IID_IWMProfileManager);

DEFINE_GUID(IID_IWMProfileManager2, 0x7A924E51, 0x73C1, 0x494D, 0x80, 0x19, 0x23, 0xD3, 0x7E, 0xD9,
            0xB8, 0x9A);
struct IWMProfileManager2 : public IWMProfileManager {
    STDMETHOD(GetSystemProfileVersion)(WMT_VERSION* version) PURE;
    STDMETHOD(SetSystemProfileVersion)(WMT_VERSION version) PURE;
};
MW_DECLARE_IID(IWMProfileManager2, IID_IWMProfileManager2);

DEFINE_GUID(IID_IWMStatusCallback, 0x6D7CDC70, 0x9888, 0x11D3, 0x8E, 0xDC, 0x00, 0xC0, 0x4F, 0x61,
            0x09, 0xCF);
struct IWMStatusCallback : public IUnknown {
    STDMETHOD(OnStatus)
    (WMT_STATUS Status, HRESULT hr, WMT_ATTR_DATATYPE dwType, BYTE* pValue, void* pvContext) PURE;
};
MW_DECLARE_IID(IWMStatusCallback, IID_IWMStatusCallback);

DEFINE_GUID(IID_IWMReaderCallback, 0x96406BD8, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMReaderCallback : public IWMStatusCallback {
    STDMETHOD(OnSample)
    (DWORD dwOutputNum, QWORD cnsSampleTime, QWORD cnsSampleDuration, DWORD dwFlags,
     INSSBuffer* pSample, void* pvContext) PURE;
};
MW_DECLARE_IID(IWMReaderCallback, IID_IWMReaderCallback);

DEFINE_GUID(IID_IWMCredentialCallback, 0x342E0EB7, 0xE651, 0x450C, 0x97, 0x5B, 0x2A, 0xCE, 0x2C,
            0x90, 0xC4, 0x8E);
struct IWMCredentialCallback : public IUnknown {
    STDMETHOD(AcquireCredentials)
    (WCHAR* realm, WCHAR* site, WCHAR* username, DWORD username_size, WCHAR* password,
     DWORD password_size, HRESULT hr, DWORD* flags) PURE;
};
MW_DECLARE_IID(IWMCredentialCallback, IID_IWMCredentialCallback);

DEFINE_GUID(IID_IWMWriter, 0x96406BD4, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMWriter : public IUnknown {
    STDMETHOD(SetProfileByID)(REFGUID guidProfile) PURE;
    STDMETHOD(SetProfile)(IWMProfile* pProfile) PURE;
    STDMETHOD(SetOutputFilename)(const WCHAR* pwszFilename) PURE;
    STDMETHOD(GetInputCount)(DWORD* pcInputs) PURE;
    STDMETHOD(GetInputProps)(DWORD dwInputNum, IWMInputMediaProps** ppInput) PURE;
    STDMETHOD(SetInputProps)(DWORD dwInputNum, IWMInputMediaProps* pInput) PURE;
    STDMETHOD(GetInputFormatCount)(DWORD dwInputNumber, DWORD* pcFormats) PURE;
    STDMETHOD(GetInputFormat)
    (DWORD dwInputNumber, DWORD dwFormatNumber, IWMInputMediaProps** pProps) PURE;
    STDMETHOD(BeginWriting)() PURE;
    STDMETHOD(EndWriting)() PURE;
    STDMETHOD(AllocateSample)(DWORD dwSampleSize, INSSBuffer** ppSample) PURE;
    STDMETHOD(WriteSample)
    (DWORD dwInputNum, QWORD cnsSampleTime, DWORD dwFlags, INSSBuffer* pSample) PURE;
    STDMETHOD(Flush)() PURE;
};
MW_DECLARE_IID(IWMWriter, IID_IWMWriter);

DEFINE_GUID(IID_IWMWriterAdvanced, 0x96406BE3, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMWriterAdvanced : public IUnknown {
    STDMETHOD(GetSinkCount)(DWORD* pcSinks) PURE;
    STDMETHOD(GetSink)(DWORD dwSinkNum, IWMWriterSink** ppSink) PURE;
    STDMETHOD(AddSink)(IWMWriterSink* pSink) PURE;
    STDMETHOD(RemoveSink)(IWMWriterSink* pSink) PURE;
    STDMETHOD(WriteStreamSample)
    (WORD wStreamNum, QWORD cnsSampleTime, DWORD msSampleSendTime, QWORD cnsSampleDuration,
     DWORD dwFlags, INSSBuffer* pSample) PURE;
    STDMETHOD(SetLiveSource)(BOOL fIsLiveSource) PURE;
    STDMETHOD(IsRealTime)(BOOL* pfRealTime) PURE;
    STDMETHOD(GetWriterTime)(QWORD* pCurrentTime) PURE;
    STDMETHOD(GetStatistics)(WORD wStreamNum, WM_WRITER_STATISTICS* pStats) PURE;
    STDMETHOD(SetSyncTolerance)(DWORD msWindow) PURE;
    STDMETHOD(GetSyncTolerance)(DWORD* pmsWindow) PURE;
};
MW_DECLARE_IID(IWMWriterAdvanced, IID_IWMWriterAdvanced);

DEFINE_GUID(IID_IWMWriterAdvanced2, 0x962DC1EC, 0xC046, 0x4DB8, 0x9C, 0xC7, 0x26, 0xCE, 0xAE, 0x50,
            0x08, 0x17);
struct IWMWriterAdvanced2 : public IWMWriterAdvanced {
    STDMETHOD(GetInputSetting)
    (DWORD dwInputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE* pType, BYTE* pValue,
     WORD* pcbLength) PURE;
    STDMETHOD(SetInputSetting)
    (DWORD dwInputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE Type, const BYTE* pValue,
     WORD cbLength) PURE;
};
MW_DECLARE_IID(IWMWriterAdvanced2, IID_IWMWriterAdvanced2);

DEFINE_GUID(IID_IWMWriterSink, 0x96406BE4, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMWriterSink : public IUnknown {
    STDMETHOD(OnHeader)(INSSBuffer* pHeader) PURE;
    STDMETHOD(IsRealTime)(BOOL* pfRealTime) PURE;
    STDMETHOD(AllocateDataUnit)(DWORD cbDataUnit, INSSBuffer** ppDataUnit) PURE;
    STDMETHOD(OnDataUnit)(INSSBuffer* pDataUnit) PURE;
    STDMETHOD(OnEndWriting)() PURE;
};
MW_DECLARE_IID(IWMWriterSink, IID_IWMWriterSink);

// ---- The writer's sinks and their connections. Their method order is the platform's
// (wmsdkidl.idl); IIDs of IWMRegisterCallback and IWMClientConnections2 as their callers
// quote them. The other four IIDs are not among the reference declarations available to this
// project and are left undeclared.

// A sink that writes the ASF stream to a file.
struct IWMWriterFileSink : public IWMWriterSink {
    STDMETHOD(Open)(LPCWSTR pwszFilename) PURE;
};

// A sink that serves the ASF stream to network clients. Open takes the port to listen on
// (0: any free port) and writes back the port in use.
struct IWMWriterNetworkSink : public IWMWriterSink {
    STDMETHOD(SetMaximumClients)(DWORD dwMaxClients) PURE;
    STDMETHOD(GetMaximumClients)(DWORD* pdwMaxClients) PURE;
    STDMETHOD(SetNetworkProtocol)(WMT_NET_PROTOCOL protocol) PURE;
    STDMETHOD(GetNetworkProtocol)(WMT_NET_PROTOCOL* pProtocol) PURE;
    // pcchURL in characters with the terminator; a null pwszURL asks for the length.
    STDMETHOD(GetHostURL)(WCHAR* pwszURL, DWORD* pcchURL) PURE;
    STDMETHOD(Open)(DWORD* pdwPortNum) PURE;
    STDMETHOD(Disconnect)() PURE;
    STDMETHOD(Close)() PURE;
};

// A sink that pushes the ASF stream to a publishing point of a streaming server.
struct IWMWriterPushSink : public IWMWriterSink {
    STDMETHOD(Connect)(LPCWSTR pwszURL, LPCWSTR pwszTemplateURL, BOOL fAutoDestroy) PURE;
    STDMETHOD(Disconnect)() PURE;
    STDMETHOD(EndSession)() PURE;
};

DEFINE_GUID(IID_IWMRegisterCallback, 0xCF4B1F99, 0x4DE2, 0x4E49, 0xA3, 0x63, 0x25, 0x27, 0x40, 0xD9,
            0x9B, 0xC1);
// Status callbacks of a sink (called on the sink's own threads).
struct IWMRegisterCallback : public IUnknown {
    STDMETHOD(Advise)(IWMStatusCallback* pCallback, void* pvContext) PURE;
    STDMETHOD(Unadvise)(IWMStatusCallback* pCallback, void* pvContext) PURE;
};
MW_DECLARE_IID(IWMRegisterCallback, IID_IWMRegisterCallback);

struct IWMClientConnections : public IUnknown {
    STDMETHOD(GetClientCount)(DWORD* pcClients) PURE;
    STDMETHOD(GetClientProperties)(DWORD dwClientNum, WM_CLIENT_PROPERTIES* pClientProperties) PURE;
};

DEFINE_GUID(IID_IWMClientConnections2, 0x4091571E, 0x4701, 0x4593, 0xBB, 0x3D, 0xD5, 0xF5, 0xF0,
            0xC7, 0x42, 0x46);
struct IWMClientConnections2 : public IWMClientConnections {
    // Each text in characters with the terminator; null buffers ask for the lengths.
    STDMETHOD(GetClientInfo)
    (DWORD dwClientNum, WCHAR* pwszNetworkAddress, DWORD* pcchNetworkAddress, WCHAR* pwszPort,
     DWORD* pcchPort, WCHAR* pwszDNSName, DWORD* pcchDNSName) PURE;
};
MW_DECLARE_IID(IWMClientConnections2, IID_IWMClientConnections2);

DEFINE_GUID(IID_IWMReader, 0x96406BD6, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMReader : public IUnknown {
    STDMETHOD(Open)(const WCHAR* pwszURL, IWMReaderCallback* pCallback, void* pvContext) PURE;
    STDMETHOD(Close)() PURE;
    STDMETHOD(GetOutputCount)(DWORD* pcOutputs) PURE;
    STDMETHOD(GetOutputProps)(DWORD dwOutputNum, IWMOutputMediaProps** ppOutput) PURE;
    STDMETHOD(SetOutputProps)(DWORD dwOutputNum, IWMOutputMediaProps* pOutput) PURE;
    STDMETHOD(GetOutputFormatCount)(DWORD dwOutputNumber, DWORD* pcFormats) PURE;
    STDMETHOD(GetOutputFormat)
    (DWORD dwOutputNumber, DWORD dwFormatNumber, IWMOutputMediaProps** ppProps) PURE;
    STDMETHOD(Start)(QWORD cnsStart, QWORD cnsDuration, float fRate, void* pvContext) PURE;
    STDMETHOD(Stop)() PURE;
    STDMETHOD(Pause)() PURE;
    STDMETHOD(Resume)() PURE;
};
MW_DECLARE_IID(IWMReader, IID_IWMReader);

DEFINE_GUID(IID_IWMReaderAdvanced, 0x96406BEA, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61,
            0x08, 0xFF);
struct IWMReaderAdvanced : public IUnknown {
    STDMETHOD(SetUserProvidedClock)(BOOL fUserClock) PURE;
    STDMETHOD(GetUserProvidedClock)(BOOL* pfUserClock) PURE;
    STDMETHOD(DeliverTime)(QWORD cnsTime) PURE;
    STDMETHOD(SetManualStreamSelection)(BOOL fSelection) PURE;
    STDMETHOD(GetManualStreamSelection)(BOOL* pfSelection) PURE;
    STDMETHOD(SetStreamsSelected)
    (WORD cStreamCount, WORD* pwStreamNumbers, WMT_STREAM_SELECTION* pSelections) PURE;
    STDMETHOD(GetStreamSelected)(WORD wStreamNum, WMT_STREAM_SELECTION* pSelection) PURE;
    STDMETHOD(SetReceiveSelectionCallbacks)(BOOL fGetCallbacks) PURE;
    STDMETHOD(GetReceiveSelectionCallbacks)(BOOL* pfGetCallbacks) PURE;
    STDMETHOD(SetReceiveStreamSamples)(WORD wStreamNum, BOOL fReceiveStreamSamples) PURE;
    STDMETHOD(GetReceiveStreamSamples)(WORD wStreamNum, BOOL* pfReceiveStreamSamples) PURE;
    STDMETHOD(SetAllocateForOutput)(DWORD dwOutputNum, BOOL fAllocate) PURE;
    STDMETHOD(GetAllocateForOutput)(DWORD dwOutputNum, BOOL* pfAllocate) PURE;
    STDMETHOD(SetAllocateForStream)(WORD wStreamNum, BOOL fAllocate) PURE;
    STDMETHOD(GetAllocateForStream)(WORD dwStreamNum, BOOL* pfAllocate) PURE;
    STDMETHOD(GetStatistics)(WM_READER_STATISTICS* pStatistics) PURE;
    STDMETHOD(SetClientInfo)(WM_READER_CLIENTINFO* pClientInfo) PURE;
    STDMETHOD(GetMaxOutputSampleSize)(DWORD dwOutput, DWORD* pcbMax) PURE;
    STDMETHOD(GetMaxStreamSampleSize)(WORD wStream, DWORD* pcbMax) PURE;
    STDMETHOD(NotifyLateDelivery)(QWORD cnsLateness) PURE;
};
MW_DECLARE_IID(IWMReaderAdvanced, IID_IWMReaderAdvanced);

DEFINE_GUID(IID_IWMReaderAdvanced2, 0xAE14A945, 0xB90C, 0x4D0D, 0x91, 0x27, 0x80, 0xD6, 0x65, 0xF7,
            0xD7, 0x3E);
struct IWMReaderAdvanced2 : public IWMReaderAdvanced {
    STDMETHOD(SetPlayMode)(WMT_PLAY_MODE Mode) PURE;
    STDMETHOD(GetPlayMode)(WMT_PLAY_MODE* pMode) PURE;
    STDMETHOD(GetBufferProgress)(DWORD* pdwPercent, QWORD* pcnsBuffering) PURE;
    STDMETHOD(GetDownloadProgress)
    (DWORD* pdwPercent, QWORD* pqwBytesDownloaded, QWORD* pcnsDownload) PURE;
    STDMETHOD(GetSaveAsProgress)(DWORD* pdwPercent) PURE;
    STDMETHOD(SaveFileAs)(const WCHAR* pwszFilename) PURE;
    STDMETHOD(GetProtocolName)(WCHAR* pwszProtocol, DWORD* pcchProtocol) PURE;
    STDMETHOD(StartAtMarker)
    (WORD wMarkerIndex, QWORD cnsDuration, float fRate, void* pvContext) PURE;
    STDMETHOD(GetOutputSetting)
    (DWORD dwOutputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE* pType, BYTE* pValue,
     WORD* pcbLength) PURE;
    STDMETHOD(SetOutputSetting)
    (DWORD dwOutputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE Type, const BYTE* pValue,
     WORD cbLength) PURE;
    STDMETHOD(Preroll)(QWORD cnsStart, QWORD cnsDuration, float fRate) PURE;
    STDMETHOD(SetLogClientID)(BOOL fLogClientID) PURE;
    STDMETHOD(GetLogClientID)(BOOL* pfLogClientID) PURE;
    STDMETHOD(StopBuffering)() PURE;
    STDMETHOD(OpenStream)(IStream* pStream, IWMReaderCallback* pCallback, void* pvContext) PURE;
};
MW_DECLARE_IID(IWMReaderAdvanced2, IID_IWMReaderAdvanced2);

DEFINE_GUID(IID_IWMHeaderInfo, 0x96406BDA, 0x2B2B, 0x11D3, 0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08,
            0xFF);
struct IWMHeaderInfo : public IUnknown {
    STDMETHOD(GetAttributeCount)(WORD stream_num, WORD* attributes) PURE;
    STDMETHOD(GetAttributeByIndex)
    (WORD index, WORD* stream_num, WCHAR* name, WORD* name_len, WMT_ATTR_DATATYPE* type,
     BYTE* value, WORD* length) PURE;
    STDMETHOD(GetAttributeByName)
    (WORD* stream_num, LPCWSTR name, WMT_ATTR_DATATYPE* type, BYTE* value, WORD* length) PURE;
    STDMETHOD(SetAttribute)
    (WORD stream_num, LPCWSTR name, WMT_ATTR_DATATYPE type, const BYTE* value, WORD length) PURE;
    STDMETHOD(GetMarkerCount)(WORD* markers) PURE;
    STDMETHOD(GetMarker)(WORD index, WCHAR* marker_name, WORD* marker_len, QWORD* marker_time) PURE;
    STDMETHOD(AddMarker)(LPCWSTR marker_name, QWORD marker_time) PURE;
    STDMETHOD(RemoveMarker)(WORD index) PURE;
    STDMETHOD(GetScriptCount)(WORD* scripts) PURE;
    STDMETHOD(GetScript)
    (WORD index, WCHAR* type, WORD* type_len, WCHAR* command, WORD* command_len,
     QWORD* script_time) PURE;
    STDMETHOD(AddScript)(LPCWSTR type, LPCWSTR command, QWORD script_time) PURE;
    STDMETHOD(RemoveScript)(WORD index) PURE;
};
MW_DECLARE_IID(IWMHeaderInfo, IID_IWMHeaderInfo);

DEFINE_GUID(IID_IWMHeaderInfo2, 0x15CF9781, 0x454E, 0x482E, 0xB3, 0x93, 0x85, 0xFA, 0xE4, 0x87,
            0xA8, 0x10);
struct IWMHeaderInfo2 : public IWMHeaderInfo {
    STDMETHOD(GetCodecInfoCount)(DWORD* codec_infos) PURE;
    STDMETHOD(GetCodecInfo)
    (DWORD index, WORD* name_len, WCHAR* name, WORD* description_len, WCHAR* description,
     WMT_CODEC_INFO_TYPE* codec_type, WORD* codec_info_cnt, BYTE* codec_info) PURE;
};
MW_DECLARE_IID(IWMHeaderInfo2, IID_IWMHeaderInfo2);

DEFINE_GUID(IID_IWMHeaderInfo3, 0x15CC68E3, 0x27CC, 0x4ECD, 0xB2, 0x22, 0x3F, 0x5D, 0x02, 0xD8,
            0x0B, 0xD5);
struct IWMHeaderInfo3 : public IWMHeaderInfo2 {
    STDMETHOD(GetAttributeCountEx)(WORD stream_num, WORD* attributes) PURE;
    STDMETHOD(GetAttributeIndices)
    (WORD stream_num, LPCWSTR name, WORD* lang_index, WORD* indices, WORD* count) PURE;
    STDMETHOD(GetAttributeByIndexEx)
    (WORD stream_num, WORD index, LPWSTR name, WORD* name_len, WMT_ATTR_DATATYPE* type,
     WORD* lang_index, BYTE* value, DWORD* data_len) PURE;
    STDMETHOD(ModifyAttribute)
    (WORD stream_num, WORD index, WMT_ATTR_DATATYPE type, WORD lang_index, const BYTE* value,
     DWORD length) PURE;
    STDMETHOD(AddAttribute)
    (WORD stream_num, LPCWSTR name, WORD* index, WMT_ATTR_DATATYPE type, WORD lang_index,
     const BYTE* value, DWORD length) PURE;
    STDMETHOD(DeleteAttribute)(WORD stream_num, WORD index) PURE;
    STDMETHOD(AddCodecInfo)
    (LPCWSTR name, LPCWSTR description, WMT_CODEC_INFO_TYPE codec_type, WORD codec_info_cnt,
     BYTE* codec_info) PURE;
};
MW_DECLARE_IID(IWMHeaderInfo3, IID_IWMHeaderInfo3);

DEFINE_GUID(IID_IWMSyncReader, 0x9397F121, 0x7705, 0x4DC9, 0xB0, 0x49, 0x98, 0xB6, 0x98, 0x18, 0x84,
            0x14);
struct IWMSyncReader : public IUnknown {
    STDMETHOD(Open)(const WCHAR* pwszFilename) PURE;
    STDMETHOD(Close)() PURE;
    STDMETHOD(SetRange)(QWORD cnsStartTime, LONGLONG cnsDuration) PURE;
    STDMETHOD(SetRangeByFrame)(WORD wStreamNum, QWORD qwFrameNumber, LONGLONG cFramesToRead) PURE;
    STDMETHOD(GetNextSample)
    (WORD wStreamNum, INSSBuffer** ppSample, QWORD* pcnsSampleTime, QWORD* pcnsDuration,
     DWORD* pdwFlags, DWORD* pdwOutputNum, WORD* pwStreamNum) PURE;
    STDMETHOD(SetStreamsSelected)
    (WORD cStreamCount, WORD* pwStreamNumbers, WMT_STREAM_SELECTION* pSelections) PURE;
    STDMETHOD(GetStreamSelected)(WORD wStreamNum, WMT_STREAM_SELECTION* pSelection) PURE;
    STDMETHOD(SetReadStreamSamples)(WORD wStreamNum, BOOL fCompressed) PURE;
    STDMETHOD(GetReadStreamSamples)(WORD wStreamNum, BOOL* pfCompressed) PURE;
    STDMETHOD(GetOutputSetting)
    (DWORD dwOutputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE* pType, BYTE* pValue,
     WORD* pcbLength) PURE;
    STDMETHOD(SetOutputSetting)
    (DWORD dwOutputNum, LPCWSTR pszName, WMT_ATTR_DATATYPE Type, const BYTE* pValue,
     WORD cbLength) PURE;
    STDMETHOD(GetOutputCount)(DWORD* pcOutputs) PURE;
    STDMETHOD(GetOutputProps)(DWORD dwOutputNum, IWMOutputMediaProps** ppOutput) PURE;
    STDMETHOD(SetOutputProps)(DWORD dwOutputNum, IWMOutputMediaProps* pOutput) PURE;
    STDMETHOD(GetOutputFormatCount)(DWORD dwOutputNum, DWORD* pcFormats) PURE;
    STDMETHOD(GetOutputFormat)
    (DWORD dwOutputNum, DWORD dwFormatNum, IWMOutputMediaProps** ppProps) PURE;
    STDMETHOD(GetOutputNumberForStream)(WORD wStreamNum, DWORD* pdwOutputNum) PURE;
    STDMETHOD(GetStreamNumberForOutput)(DWORD dwOutputNum, WORD* pwStreamNum) PURE;
    STDMETHOD(GetMaxOutputSampleSize)(DWORD dwOutput, DWORD* pcbMax) PURE;
    STDMETHOD(GetMaxStreamSampleSize)(WORD wStream, DWORD* pcbMax) PURE;
    STDMETHOD(OpenStream)(IStream* pStream) PURE;
};
MW_DECLARE_IID(IWMSyncReader, IID_IWMSyncReader);

DEFINE_GUID(IID_IWMCodecInfo, 0xA970F41E, 0x34DE, 0x4A98, 0xB3, 0xBA, 0xE4, 0xB3, 0xCA, 0x75, 0x28,
            0xF0);
struct IWMCodecInfo : public IUnknown {
    STDMETHOD(GetCodecInfoCount)(REFGUID guid, DWORD* count) PURE;
    STDMETHOD(GetCodecFormatCount)(REFGUID guid, DWORD codecindex, DWORD* formatcount) PURE;
    STDMETHOD(GetCodecFormat)
    (REFGUID guid, DWORD codecindex, DWORD formatindex, IWMStreamConfig** streamconfig) PURE;
};
MW_DECLARE_IID(IWMCodecInfo, IID_IWMCodecInfo);

DEFINE_GUID(IID_IWMCodecInfo2, 0xAA65E273, 0xB686, 0x4056, 0x91, 0xEC, 0xDD, 0x76, 0x8D, 0x4D, 0xF7,
            0x10);
struct IWMCodecInfo2 : public IWMCodecInfo {
    STDMETHOD(GetCodecName)(REFGUID guid, DWORD codecindex, WCHAR* name, DWORD* namesize) PURE;
    STDMETHOD(GetCodecFormatDesc)
    (REFGUID guid, DWORD codecindex, DWORD formatindex, IWMStreamConfig** streamconfig,
     WCHAR* description, DWORD* descrsize) PURE;
};
MW_DECLARE_IID(IWMCodecInfo2, IID_IWMCodecInfo2);

DEFINE_GUID(IID_IWMCodecInfo3, 0x7E51F487, 0x4D93, 0x4F98, 0x8A, 0xB4, 0x27, 0xD0, 0x56, 0x5A, 0xDC,
            0x51);
struct IWMCodecInfo3 : public IWMCodecInfo2 {
    STDMETHOD(GetCodecFormatProp)
    (REFGUID guid, DWORD codecindex, DWORD formatindex, const WCHAR* name, WMT_ATTR_DATATYPE* type,
     BYTE* value, DWORD* size) PURE;
    STDMETHOD(GetCodecProp)
    (REFGUID guid, DWORD codecindex, const WCHAR* name, WMT_ATTR_DATATYPE* type, BYTE* value,
     DWORD* size) PURE;
    STDMETHOD(SetCodecEnumerationSetting)
    (REFGUID guid, DWORD codecindex, const WCHAR* name, WMT_ATTR_DATATYPE type, const BYTE* value,
     DWORD size) PURE;
    STDMETHOD(GetCodecEnumerationSetting)
    (REFGUID guid, DWORD codecindex, const WCHAR* name, WMT_ATTR_DATATYPE* type, BYTE* value,
     DWORD* size) PURE;
};
MW_DECLARE_IID(IWMCodecInfo3, IID_IWMCodecInfo3);

HRESULT WINAPI WMCreateWriter(IUnknown* pUnkCert, IWMWriter** ppWriter);
HRESULT WINAPI WMCreateReader(IUnknown* pUnkCert, DWORD dwRights, IWMReader** ppReader);
HRESULT WINAPI WMCreateSyncReader(IUnknown* pUnkCert, DWORD dwRights, IWMSyncReader** ppSyncReader);
HRESULT WINAPI WMCreateProfileManager(IWMProfileManager** ppProfileManager);
HRESULT WINAPI WMCreateWriterFileSink(IWMWriterFileSink** ppSink);
HRESULT WINAPI WMCreateWriterNetworkSink(IWMWriterNetworkSink** ppSink);
HRESULT WINAPI WMCreateWriterPushSink(IWMWriterPushSink** ppSink);

static_assert(sizeof(WM_MEDIA_TYPE) == 88);
