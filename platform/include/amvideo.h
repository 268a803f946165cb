// Video format records of the filter graph service (FORMAT_VideoInfo).
#pragma once

#include "strmif.h"
#include "wingdi.h"

typedef struct tagVIDEOINFOHEADER {
    RECT rcSource;
    RECT rcTarget;
    DWORD dwBitRate;
    DWORD dwBitErrorRate;
    REFERENCE_TIME AvgTimePerFrame;
    BITMAPINFOHEADER bmiHeader;
} VIDEOINFOHEADER, *PVIDEOINFOHEADER;

typedef struct tagMPEG1VIDEOINFO {
    VIDEOINFOHEADER hdr;
    DWORD dwStartTimeCode;
    DWORD cbSequenceHeader;
    BYTE bSequenceHeader[1];
} MPEG1VIDEOINFO;

#define HEADER(pVideoInfo) (&((reinterpret_cast<VIDEOINFOHEADER*>(pVideoInfo))->bmiHeader))

static_assert(sizeof(VIDEOINFOHEADER) == 88);
static_assert(offsetof(VIDEOINFOHEADER, bmiHeader) == 48);
