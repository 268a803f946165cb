// Parameters of media objects: their descriptions and values, and envelopes of values over
// time. Declarations only.
#pragma once

#include "objbase.h"

struct IMediaParams;
struct IMediaParamInfo;

typedef DWORD MP_TIMEDATA;
typedef DWORD MP_CAPS;
typedef DWORD MP_FLAGS;
typedef float MP_DATA;

typedef enum _MP_Type {
    MPT_INT = 0,
    MPT_FLOAT = 1,
    MPT_BOOL = 2,
    MPT_ENUM = 3,
    MPT_MAX = 4
} MP_TYPE;

typedef struct _MP_PARAMINFO {
    MP_TYPE mpType;
    MP_CAPS mopCaps;
    MP_DATA mpdMinValue;
    MP_DATA mpdMaxValue;
    MP_DATA mpdNeutralValue;
    WCHAR szUnitText[32];
    WCHAR szLabel[32];
} MP_PARAMINFO;

typedef enum _MP_CURVE_TYPE {
    MP_CURVE_JUMP = 0x1,
    MP_CURVE_LINEAR = 0x2,
    MP_CURVE_SQUARE = 0x4,
    MP_CURVE_INVSQUARE = 0x8,
    MP_CURVE_SINE = 0x10
} MP_CURVE_TYPE;

constexpr MP_CAPS MP_CAPS_CURVE_JUMP = MP_CURVE_JUMP;
constexpr MP_CAPS MP_CAPS_CURVE_LINEAR = MP_CURVE_LINEAR;
constexpr MP_CAPS MP_CAPS_CURVE_SQUARE = MP_CURVE_SQUARE;
constexpr MP_CAPS MP_CAPS_CURVE_INVSQUARE = MP_CURVE_INVSQUARE;
constexpr MP_CAPS MP_CAPS_CURVE_SINE = MP_CURVE_SINE;

constexpr MP_FLAGS MPF_ENVLP_STANDARD = 0x0000;
constexpr MP_FLAGS MPF_ENVLP_BEGIN_CURRENTVAL = 0x0001;
constexpr MP_FLAGS MPF_ENVLP_BEGIN_NEUTRALVAL = 0x0002;

typedef struct _MP_ENVELOPE_SEGMENT {
    REFERENCE_TIME rtStart;
    REFERENCE_TIME rtEnd;
    MP_DATA valStart;
    MP_DATA valEnd;
    MP_CURVE_TYPE iCurve;
    MP_FLAGS flags;
} MP_ENVELOPE_SEGMENT;

// The time formats of IMediaParams: reference time (100 ns units), music time and samples. Their
// values come from the platform's published reference; no header available to this build
// carries them.
DEFINE_GUID(GUID_TIME_REFERENCE, 0x93AD712B, 0xDAA0, 0x4FFE, 0xBC, 0x81, 0xB0, 0xCE, 0x50, 0x0F,
            0xCD, 0xD9);
DEFINE_GUID(GUID_TIME_MUSIC, 0x0574C49D, 0x5B04, 0x4B15, 0xA5, 0x42, 0xAE, 0x28, 0x20, 0x30, 0x11,
            0x7B);
DEFINE_GUID(GUID_TIME_SAMPLES, 0xA8593D05, 0x0C43, 0x4984, 0x9A, 0x63, 0x97, 0xAF, 0x9E, 0x02, 0xC4,
            0xC0);

// Every parameter (the index argument of IMediaParams).
constexpr DWORD DWORD_ALLPARAMS = 0xFFFFFFFF;

DEFINE_GUID(IID_IMediaParams, 0x6D6CBB61, 0xA223, 0x44AA, 0x84, 0x2F, 0xA2, 0xF0, 0x67, 0x50, 0xBE,
            0x6E);
struct IMediaParams : public IUnknown {
    STDMETHOD(AddEnvelope)(DWORD dwParamIndex, DWORD cPoints, MP_ENVELOPE_SEGMENT* pEnvelope) PURE;
    STDMETHOD(FlushEnvelope)
    (DWORD dwParamIndex, REFERENCE_TIME refTimeStart, REFERENCE_TIME refTimeEnd) PURE;
    STDMETHOD(GetParam)(DWORD dwParamIndex, MP_DATA* pValue) PURE;
    STDMETHOD(SetParam)(DWORD dwParamIndex, MP_DATA value) PURE;
    STDMETHOD(SetTimeFormat)(GUID guidTimeFormat, MP_TIMEDATA mpTimeData) PURE;
};
MW_DECLARE_IID(IMediaParams, IID_IMediaParams);

DEFINE_GUID(IID_IMediaParamInfo, 0x6D6CBB60, 0xA223, 0x44AA, 0x84, 0x2F, 0xA2, 0xF0, 0x67, 0x50,
            0xBE, 0x6D);
struct IMediaParamInfo : public IUnknown {
    STDMETHOD(GetParamCount)(DWORD* pdwParams) PURE;
    STDMETHOD(GetParamInfo)(DWORD dwParamIndex, MP_PARAMINFO* pInfo) PURE;
    STDMETHOD(GetParamText)(DWORD dwParamIndex, WCHAR** ppwchText) PURE;
    STDMETHOD(GetNumTimeFormats)(DWORD* pdwNumTimeFormats) PURE;
    STDMETHOD(GetSupportedTimeFormat)(DWORD dwFormatIndex, GUID* pguidTimeFormat) PURE;
    STDMETHOD(GetCurrentTimeFormat)(GUID* pguidTimeFormat, MP_TIMEDATA* pTimeData) PURE;
};
MW_DECLARE_IID(IMediaParamInfo, IID_IMediaParamInfo);

static_assert(sizeof(MP_PARAMINFO) == 4 + 4 + 3 * 4 + 64 + 64);
static_assert(sizeof(MP_ENVELOPE_SEGMENT) == 32);
