// The automation interfaces of the filter graph manager: running and stopping, events, position,
// the audio renderer's volume and balance, and the video window. Declarations only.
#pragma once

#include "oaidl.h"
#include "strmif.h"

struct IMediaControl;
struct IMediaEvent;
struct IMediaEventEx;
struct IMediaPosition;
struct IBasicAudio;
struct IVideoWindow;
struct IBasicVideo;
struct IBasicVideo2;
struct IDeferredCommand;
struct IQueueCommand;
struct IFilterInfo;
struct IRegFilterInfo;
struct IMediaTypeInfo;
struct IPinInfo;
struct IAMStats;
struct IAMCollection;

typedef LONG OAFilterState;  // a FILTER_STATE value
typedef LONG_PTR OAHWND;
typedef LONG_PTR OAEVENT;
typedef double REFTIME;  // seconds

DEFINE_GUID(IID_IAMCollection, 0x56A868B9, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IAMCollection : public IDispatch {
    STDMETHOD(get_Count)(LONG* plCount) PURE;
    STDMETHOD(Item)(LONG lItem, IUnknown** ppUnk) PURE;
    STDMETHOD(get__NewEnum)(IUnknown** ppUnk) PURE;
};
MW_DECLARE_IID(IAMCollection, IID_IAMCollection);

DEFINE_GUID(IID_IMediaControl, 0x56A868B1, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMediaControl : public IDispatch {
    STDMETHOD(Run)() PURE;
    STDMETHOD(Pause)() PURE;
    STDMETHOD(Stop)() PURE;
    STDMETHOD(GetState)(LONG msTimeout, OAFilterState* pfs) PURE;
    STDMETHOD(RenderFile)(BSTR strFilename) PURE;
    STDMETHOD(AddSourceFilter)(BSTR strFilename, IDispatch** ppUnk) PURE;
    STDMETHOD(get_FilterCollection)(IDispatch** ppUnk) PURE;
    STDMETHOD(get_RegFilterCollection)(IDispatch** ppUnk) PURE;
    STDMETHOD(StopWhenReady)() PURE;
};
MW_DECLARE_IID(IMediaControl, IID_IMediaControl);

DEFINE_GUID(IID_IMediaEvent, 0x56A868B6, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMediaEvent : public IDispatch {
    STDMETHOD(GetEventHandle)(OAEVENT* hEvent) PURE;
    STDMETHOD(GetEvent)
    (LONG* lEventCode, LONG_PTR* lParam1, LONG_PTR* lParam2, LONG msTimeout) PURE;
    STDMETHOD(WaitForCompletion)(LONG msTimeout, LONG* pEvCode) PURE;
    STDMETHOD(CancelDefaultHandling)(LONG lEvCode) PURE;
    STDMETHOD(RestoreDefaultHandling)(LONG lEvCode) PURE;
    STDMETHOD(FreeEventParams)(LONG lEvCode, LONG_PTR lParam1, LONG_PTR lParam2) PURE;
};
MW_DECLARE_IID(IMediaEvent, IID_IMediaEvent);

DEFINE_GUID(IID_IMediaEventEx, 0x56A868C0, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IMediaEventEx : public IMediaEvent {
    STDMETHOD(SetNotifyWindow)(OAHWND hwnd, LONG lMsg, LONG_PTR lInstanceData) PURE;
    STDMETHOD(SetNotifyFlags)(LONG lNoNotifyFlags) PURE;
    STDMETHOD(GetNotifyFlags)(LONG* lplNoNotifyFlags) PURE;
};
MW_DECLARE_IID(IMediaEventEx, IID_IMediaEventEx);

DEFINE_GUID(IID_IMediaPosition, 0x56A868B2, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IMediaPosition : public IDispatch {
    STDMETHOD(get_Duration)(REFTIME* plength) PURE;
    STDMETHOD(put_CurrentPosition)(REFTIME llTime) PURE;
    STDMETHOD(get_CurrentPosition)(REFTIME* pllTime) PURE;
    STDMETHOD(get_StopTime)(REFTIME* pllTime) PURE;
    STDMETHOD(put_StopTime)(REFTIME llTime) PURE;
    STDMETHOD(get_PrerollTime)(REFTIME* pllTime) PURE;
    STDMETHOD(put_PrerollTime)(REFTIME llTime) PURE;
    STDMETHOD(put_Rate)(double dRate) PURE;
    STDMETHOD(get_Rate)(double* pdRate) PURE;
    STDMETHOD(CanSeekForward)(LONG* pCanSeekForward) PURE;
    STDMETHOD(CanSeekBackward)(LONG* pCanSeekBackward) PURE;
};
MW_DECLARE_IID(IMediaPosition, IID_IMediaPosition);

DEFINE_GUID(IID_IBasicAudio, 0x56A868B3, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IBasicAudio : public IDispatch {
    STDMETHOD(put_Volume)(LONG lVolume) PURE;
    STDMETHOD(get_Volume)(LONG* plVolume) PURE;
    STDMETHOD(put_Balance)(LONG lBalance) PURE;
    STDMETHOD(get_Balance)(LONG* plBalance) PURE;
};
MW_DECLARE_IID(IBasicAudio, IID_IBasicAudio);

DEFINE_GUID(IID_IVideoWindow, 0x56A868B4, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IVideoWindow : public IDispatch {
    STDMETHOD(put_Caption)(BSTR strCaption) PURE;
    STDMETHOD(get_Caption)(BSTR* strCaption) PURE;
    STDMETHOD(put_WindowStyle)(LONG WindowStyle) PURE;
    STDMETHOD(get_WindowStyle)(LONG* WindowStyle) PURE;
    STDMETHOD(put_WindowStyleEx)(LONG WindowStyleEx) PURE;
    STDMETHOD(get_WindowStyleEx)(LONG* WindowStyleEx) PURE;
    STDMETHOD(put_AutoShow)(LONG AutoShow) PURE;
    STDMETHOD(get_AutoShow)(LONG* AutoShow) PURE;
    STDMETHOD(put_WindowState)(LONG WindowState) PURE;
    STDMETHOD(get_WindowState)(LONG* WindowState) PURE;
    STDMETHOD(put_BackgroundPalette)(LONG BackgroundPalette) PURE;
    STDMETHOD(get_BackgroundPalette)(LONG* pBackgroundPalette) PURE;
    STDMETHOD(put_Visible)(LONG Visible) PURE;
    STDMETHOD(get_Visible)(LONG* pVisible) PURE;
    STDMETHOD(put_Left)(LONG Left) PURE;
    STDMETHOD(get_Left)(LONG* pLeft) PURE;
    STDMETHOD(put_Width)(LONG Width) PURE;
    STDMETHOD(get_Width)(LONG* pWidth) PURE;
    STDMETHOD(put_Top)(LONG Top) PURE;
    STDMETHOD(get_Top)(LONG* pTop) PURE;
    STDMETHOD(put_Height)(LONG Height) PURE;
    STDMETHOD(get_Height)(LONG* pHeight) PURE;
    STDMETHOD(put_Owner)(OAHWND Owner) PURE;
    STDMETHOD(get_Owner)(OAHWND* Owner) PURE;
    STDMETHOD(put_MessageDrain)(OAHWND Drain) PURE;
    STDMETHOD(get_MessageDrain)(OAHWND* Drain) PURE;
    STDMETHOD(get_BorderColor)(LONG* Color) PURE;
    STDMETHOD(put_BorderColor)(LONG Color) PURE;
    STDMETHOD(get_FullScreenMode)(LONG* FullScreenMode) PURE;
    STDMETHOD(put_FullScreenMode)(LONG FullScreenMode) PURE;
    STDMETHOD(SetWindowForeground)(LONG Focus) PURE;
    STDMETHOD(NotifyOwnerMessage)(OAHWND hwnd, LONG uMsg, LONG_PTR wParam, LONG_PTR lParam) PURE;
    STDMETHOD(SetWindowPosition)(LONG Left, LONG Top, LONG Width, LONG Height) PURE;
    STDMETHOD(GetWindowPosition)(LONG* pLeft, LONG* pTop, LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(GetMinIdealImageSize)(LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(GetMaxIdealImageSize)(LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(GetRestorePosition)(LONG* pLeft, LONG* pTop, LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(HideCursor)(LONG HideCursor) PURE;
    STDMETHOD(IsCursorHidden)(LONG* CursorHidden) PURE;
};
MW_DECLARE_IID(IVideoWindow, IID_IVideoWindow);

DEFINE_GUID(IID_IBasicVideo, 0x56A868B5, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IBasicVideo : public IDispatch {
    STDMETHOD(get_AvgTimePerFrame)(REFTIME* pAvgTimePerFrame) PURE;
    STDMETHOD(get_BitRate)(LONG* pBitRate) PURE;
    STDMETHOD(get_BitErrorRate)(LONG* pBitErrorRate) PURE;
    STDMETHOD(get_VideoWidth)(LONG* pVideoWidth) PURE;
    STDMETHOD(get_VideoHeight)(LONG* pVideoHeight) PURE;
    STDMETHOD(put_SourceLeft)(LONG SourceLeft) PURE;
    STDMETHOD(get_SourceLeft)(LONG* pSourceLeft) PURE;
    STDMETHOD(put_SourceWidth)(LONG SourceWidth) PURE;
    STDMETHOD(get_SourceWidth)(LONG* pSourceWidth) PURE;
    STDMETHOD(put_SourceTop)(LONG SourceTop) PURE;
    STDMETHOD(get_SourceTop)(LONG* pSourceTop) PURE;
    STDMETHOD(put_SourceHeight)(LONG SourceHeight) PURE;
    STDMETHOD(get_SourceHeight)(LONG* pSourceHeight) PURE;
    STDMETHOD(put_DestinationLeft)(LONG DestinationLeft) PURE;
    STDMETHOD(get_DestinationLeft)(LONG* pDestinationLeft) PURE;
    STDMETHOD(put_DestinationWidth)(LONG DestinationWidth) PURE;
    STDMETHOD(get_DestinationWidth)(LONG* pDestinationWidth) PURE;
    STDMETHOD(put_DestinationTop)(LONG DestinationTop) PURE;
    STDMETHOD(get_DestinationTop)(LONG* pDestinationTop) PURE;
    STDMETHOD(put_DestinationHeight)(LONG DestinationHeight) PURE;
    STDMETHOD(get_DestinationHeight)(LONG* pDestinationHeight) PURE;
    STDMETHOD(SetSourcePosition)(LONG Left, LONG Top, LONG Width, LONG Height) PURE;
    STDMETHOD(GetSourcePosition)(LONG* pLeft, LONG* pTop, LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(SetDefaultSourcePosition)() PURE;
    STDMETHOD(SetDestinationPosition)(LONG Left, LONG Top, LONG Width, LONG Height) PURE;
    STDMETHOD(GetDestinationPosition)(LONG* pLeft, LONG* pTop, LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(SetDefaultDestinationPosition)() PURE;
    STDMETHOD(GetVideoSize)(LONG* pWidth, LONG* pHeight) PURE;
    STDMETHOD(GetVideoPaletteEntries)
    (LONG StartIndex, LONG Entries, LONG* pRetrieved, LONG* pPalette) PURE;
    STDMETHOD(GetCurrentImage)(LONG* pBufferSize, LONG* pDIBImage) PURE;
    STDMETHOD(IsUsingDefaultSource)() PURE;
    STDMETHOD(IsUsingDefaultDestination)() PURE;
};
MW_DECLARE_IID(IBasicVideo, IID_IBasicVideo);

DEFINE_GUID(IID_IBasicVideo2, 0x329BB360, 0xF6EA, 0x11D1, 0x90, 0x38, 0x00, 0xA0, 0xC9, 0x69, 0x72,
            0x98);
struct IBasicVideo2 : public IBasicVideo {
    STDMETHOD(GetPreferredAspectRatio)(LONG* plAspectX, LONG* plAspectY) PURE;
};
MW_DECLARE_IID(IBasicVideo2, IID_IBasicVideo2);

DEFINE_GUID(IID_IDeferredCommand, 0x56A868B8, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IDeferredCommand : public IUnknown {
    STDMETHOD(Cancel)() PURE;
    STDMETHOD(Confidence)(LONG* pConfidence) PURE;
    STDMETHOD(Postpone)(REFTIME newtime) PURE;
    STDMETHOD(GetHResult)(HRESULT* phrResult) PURE;
};
MW_DECLARE_IID(IDeferredCommand, IID_IDeferredCommand);

DEFINE_GUID(IID_IQueueCommand, 0x56A868B7, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IQueueCommand : public IUnknown {
    STDMETHOD(InvokeAtStreamTime)
    (IDeferredCommand** pCmd, REFTIME time, GUID* iid, LONG dispidMethod, short wFlags, LONG cArgs,
     VARIANT* pDispParams, VARIANT* pvarResult, short* puArgErr) PURE;
    STDMETHOD(InvokeAtPresentationTime)
    (IDeferredCommand** pCmd, REFTIME time, GUID* iid, LONG dispidMethod, short wFlags, LONG cArgs,
     VARIANT* pDispParams, VARIANT* pvarResult, short* puArgErr) PURE;
};
MW_DECLARE_IID(IQueueCommand, IID_IQueueCommand);

DEFINE_GUID(IID_IFilterInfo, 0x56A868BA, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IFilterInfo : public IDispatch {
    STDMETHOD(FindPin)(BSTR strPinID, IDispatch** ppUnk) PURE;
    STDMETHOD(get_Name)(BSTR* strName) PURE;
    STDMETHOD(get_VendorInfo)(BSTR* strVendorInfo) PURE;
    STDMETHOD(get_Filter)(IUnknown** ppUnk) PURE;
    STDMETHOD(get_Pins)(IDispatch** ppUnk) PURE;
    STDMETHOD(get_IsFileSource)(LONG* pbIsSource) PURE;
    STDMETHOD(get_Filename)(BSTR* pstrFilename) PURE;
    STDMETHOD(put_Filename)(BSTR strFilename) PURE;
};
MW_DECLARE_IID(IFilterInfo, IID_IFilterInfo);

DEFINE_GUID(IID_IRegFilterInfo, 0x56A868BB, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IRegFilterInfo : public IDispatch {
    STDMETHOD(get_Name)(BSTR* strName) PURE;
    STDMETHOD(Filter)(IDispatch** ppUnk) PURE;
};
MW_DECLARE_IID(IRegFilterInfo, IID_IRegFilterInfo);

DEFINE_GUID(IID_IMediaTypeInfo, 0x56A868BC, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);
struct IMediaTypeInfo : public IDispatch {
    STDMETHOD(get_Type)(BSTR* strType) PURE;
    STDMETHOD(get_Subtype)(BSTR* strType) PURE;
};
MW_DECLARE_IID(IMediaTypeInfo, IID_IMediaTypeInfo);

DEFINE_GUID(IID_IPinInfo, 0x56A868BD, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7,
            0x70);
struct IPinInfo : public IDispatch {
    STDMETHOD(get_Pin)(IUnknown** ppUnk) PURE;
    STDMETHOD(get_ConnectedTo)(IDispatch** ppUnk) PURE;
    STDMETHOD(get_ConnectionMediaType)(IDispatch** ppUnk) PURE;
    STDMETHOD(get_FilterInfo)(IDispatch** ppUnk) PURE;
    STDMETHOD(get_Name)(BSTR* ppUnk) PURE;
    STDMETHOD(get_Direction)(LONG* ppDirection) PURE;
    STDMETHOD(get_PinID)(BSTR* strPinID) PURE;
    STDMETHOD(get_MediaTypes)(IDispatch** ppUnk) PURE;
    STDMETHOD(Connect)(IUnknown* pPin) PURE;
    STDMETHOD(ConnectDirect)(IUnknown* pPin) PURE;
    STDMETHOD(ConnectWithType)(IUnknown* pPin, IDispatch* pMediaType) PURE;
    STDMETHOD(Disconnect)() PURE;
    STDMETHOD(Render)() PURE;
};
MW_DECLARE_IID(IPinInfo, IID_IPinInfo);

DEFINE_GUID(IID_IAMStats, 0xBC9BCF80, 0xDCD2, 0x11D2, 0xAB, 0xF6, 0x00, 0xA0, 0xC9, 0x05, 0xF3,
            0x75);
struct IAMStats : public IDispatch {
    STDMETHOD(Reset)() PURE;
    STDMETHOD(get_Count)(LONG* plCount) PURE;
    STDMETHOD(GetValueByIndex)
    (LONG lIndex, BSTR* szName, LONG* lCount, double* dLast, double* dAverage, double* dStdDev,
     double* dMin, double* dMax) PURE;
    STDMETHOD(GetValueByName)
    (BSTR szName, LONG* lIndex, LONG* lCount, double* dLast, double* dAverage, double* dStdDev,
     double* dMin, double* dMax) PURE;
    STDMETHOD(GetIndex)(BSTR szName, LONG lCreate, LONG* plIndex) PURE;
    STDMETHOD(AddValue)(LONG lIndex, double dValue) PURE;
};
MW_DECLARE_IID(IAMStats, IID_IAMStats);

DEFINE_GUID(CLSID_FilgraphManager, 0xE436EBB3, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B,
            0xA7, 0x70);

// IMediaEventEx::SetNotifyFlags.
constexpr LONG AM_MEDIAEVENT_NONOTIFY = 0x01;
