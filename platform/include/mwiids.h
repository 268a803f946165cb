// The interface ids of the 383 interfaces that the system names (the interface name table
// of DSGetInterfaceNames), with their published values. Interfaces that the platform layer
// declares stand in their own headers, included here; the others have only their IID here.
//
// kMwInterfaceNameTable lists the rows in the table's order. A row whose IID is not available to
// this project carries a null pointer (see the platform notes); callers skip it.
#pragma once

// One GUID a line: a table is easier to read unwrapped.
// clang-format off

#include "control.h"
#include "dmodshow.h"
#include "mediaobj.h"
#include "medparam.h"
#include "oaidl.h"
#include "objidl.h"
#include "ocidl.h"
#include "qedit.h"
#include "servprov.h"
#include "strmif.h"

DEFINE_GUID(IID_IOverlayNotify, 0x56A868A0, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
DEFINE_GUID(IID_IOverlay, 0x56A868A1, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
DEFINE_GUID(IID_IConfigInterleaving, 0xBEE3D220, 0x157B, 0x11D0, 0xBD, 0x23, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);
DEFINE_GUID(IID_IConfigAviMux, 0x5ACD6AA0, 0xF482, 0x11CE, 0x8B, 0x67, 0x00, 0xAA, 0x00, 0xA3, 0xF1, 0xA6);
DEFINE_GUID(IID_IAMVfwCaptureDialogs, 0xD8D715A0, 0x6E5E, 0x11D0, 0xB3, 0xF0, 0x00, 0xAA, 0x00, 0x37, 0x61, 0xC5);
DEFINE_GUID(IID_IAMVideoProcAmp, 0xC6E13360, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56);
DEFINE_GUID(IID_IAMCameraControl, 0xC6E13370, 0x30AC, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56);
DEFINE_GUID(IID_IAMTuner, 0x211A8761, 0x03AC, 0x11D1, 0x8D, 0x13, 0x00, 0xAA, 0x00, 0xBD, 0x83, 0x39);
DEFINE_GUID(IID_IAMTunerNotification, 0x211A8760, 0x03AC, 0x11D1, 0x8D, 0x13, 0x00, 0xAA, 0x00, 0xBD, 0x83, 0x39);
DEFINE_GUID(IID_IAMTVTuner, 0x211A8766, 0x03AC, 0x11D1, 0x8D, 0x13, 0x00, 0xAA, 0x00, 0xBD, 0x83, 0x39);
DEFINE_GUID(IID_IMediaPropertyBag, 0x6025A880, 0xC0D5, 0x11D0, 0xBD, 0x4E, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);
DEFINE_GUID(IID_IPersistMediaPropertyBag, 0x5738E040, 0xB67F, 0x11D0, 0xBD, 0x4D, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86);
DEFINE_GUID(IID_IDvdControl, 0xA70EFE61, 0xE2A3, 0x11D0, 0xA9, 0xBE, 0x00, 0xAA, 0x00, 0x61, 0xBE, 0x93);
DEFINE_GUID(IID_IDvdControl2, 0x33BC7430, 0xEEC0, 0x11D2, 0x82, 0x01, 0x00, 0xA0, 0xC9, 0xD7, 0x48, 0x42);
DEFINE_GUID(IID_IDvdInfo, 0xA70EFE60, 0xE2A3, 0x11D0, 0xA9, 0xBE, 0x00, 0xAA, 0x00, 0x61, 0xBE, 0x93);
DEFINE_GUID(IID_IDvdInfo2, 0x34151510, 0xEEC0, 0x11D2, 0x82, 0x01, 0x00, 0xA0, 0xC9, 0xD7, 0x48, 0x42);
DEFINE_GUID(IID_IDvdGraphBuilder, 0xFCC152B6, 0xF372, 0x11D0, 0x8E, 0x00, 0x00, 0xC0, 0x4F, 0xD7, 0xC0, 0x8B);
DEFINE_GUID(IID_IDvdState, 0x86303D6D, 0x1C4A, 0x4087, 0xAB, 0x42, 0xF7, 0x11, 0x16, 0x70, 0x48, 0xEF);
DEFINE_GUID(IID_IDvdCmd, 0x5A4A97E4, 0x94EE, 0x4A55, 0x97, 0x51, 0x74, 0xB5, 0x64, 0x3A, 0xA2, 0x7D);
DEFINE_GUID(IID_IOverlayNotify2, 0x680EFA10, 0xD535, 0x11D1, 0x87, 0xC8, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IAMVideoControl, 0x6A2E0670, 0x28E4, 0x11D0, 0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56);
DEFINE_GUID(IID_IMpeg2Demultiplexer, 0x436EEE9C, 0x264F, 0x4242, 0x90, 0xE1, 0x4E, 0x33, 0x0C, 0x10, 0x75, 0x12);
DEFINE_GUID(IID_IPinConnection, 0x4A9A62D3, 0x27D4, 0x403D, 0x91, 0xE9, 0x89, 0xF5, 0x40, 0xE5, 0x55, 0x34);
DEFINE_GUID(IID_IPinFlowControl, 0xC56E9858, 0xDBF3, 0x4F6B, 0x81, 0x19, 0x38, 0x4A, 0xF2, 0x06, 0x0D, 0xEB);
DEFINE_GUID(IID_IGraphConfig, 0x03A1EB8E, 0x32BF, 0x4245, 0x85, 0x02, 0x11, 0x4D, 0x08, 0xA9, 0xCB, 0x88);
DEFINE_GUID(IID_IGraphConfigCallback, 0xADE0FD60, 0xD19D, 0x11D2, 0xAB, 0xF6, 0x00, 0xA0, 0xC9, 0x05, 0xF3, 0x75);
DEFINE_GUID(IID_IFilterChain, 0xDCFBDCF6, 0x0DC2, 0x45F5, 0x9A, 0xB2, 0x7C, 0x33, 0x0E, 0xA0, 0x9C, 0x29);
DEFINE_GUID(IID_IVMRImagePresenter, 0xCE704FE7, 0xE71E, 0x41FB, 0xBA, 0xA2, 0xC4, 0x40, 0x3E, 0x11, 0x82, 0xF5);
DEFINE_GUID(IID_IVMRSurfaceAllocator, 0x31CE832E, 0x4484, 0x458B, 0x8C, 0xCA, 0xF4, 0xD7, 0xE3, 0xDB, 0x0B, 0x52);
DEFINE_GUID(IID_IVMRSurfaceAllocatorNotify, 0xAADA05A8, 0x5A4E, 0x4729, 0xAF, 0x0B, 0xCE, 0xA2, 0x7A, 0xED, 0x51, 0xE2);
DEFINE_GUID(IID_IVMRWindowlessControl, 0x0EB1088C, 0x4DCD, 0x46F0, 0x87, 0x8F, 0x39, 0xDA, 0xE8, 0x6A, 0x51, 0xB7);
DEFINE_GUID(IID_IVMRMixerControl, 0x1C1A17B0, 0xBED0, 0x415D, 0x97, 0x4B, 0xDC, 0x66, 0x96, 0x13, 0x15, 0x99);
DEFINE_GUID(IID_IVMRMonitorConfig, 0x9CF0B1B6, 0xFBAA, 0x4B7F, 0x88, 0xCF, 0xCF, 0x1F, 0x13, 0x0A, 0x0D, 0xCE);
DEFINE_GUID(IID_IVMRFilterConfig, 0x9E5530C5, 0x7034, 0x48B4, 0xBB, 0x46, 0x0B, 0x8A, 0x6E, 0xFC, 0x8E, 0x36);
DEFINE_GUID(IID_IVMRMixerBitmap, 0x1E673275, 0x0257, 0x40AA, 0xAF, 0x20, 0x7C, 0x60, 0x8D, 0x4A, 0x04, 0x28);
DEFINE_GUID(IID_IVMRImageCompositor, 0x7A4FB5AF, 0x479F, 0x4074, 0xBB, 0x40, 0xCE, 0x67, 0x22, 0xE4, 0x3C, 0x82);
DEFINE_GUID(IID_IVMRVideoStreamControl, 0x058D1F11, 0x2A54, 0x4BEF, 0xBD, 0x54, 0xDF, 0x70, 0x66, 0x26, 0xB7, 0x27);
DEFINE_GUID(IID_IVPManager, 0xAAC18C18, 0xE186, 0x46D2, 0x82, 0x5D, 0xA1, 0xF8, 0xDC, 0x8E, 0x39, 0x5A);
DEFINE_GUID(IID_IVMRImagePresenterConfig, 0x9F3A1C85, 0x8555, 0x49BA, 0x93, 0x5F, 0xBE, 0x5B, 0x5B, 0x29, 0xD1, 0x78);
DEFINE_GUID(IID_IVMRImagePresenterExclModeConfig, 0xE6F7CE40, 0x4673, 0x44F1, 0x8F, 0x77, 0x54, 0x99, 0xD6, 0x8C, 0xB4, 0xEA);
DEFINE_GUID(IID_IMultiMediaStream, 0xB502D1BC, 0x9A57, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IMediaStream, 0xB502D1BD, 0x9A57, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IStreamSample, 0xB502D1BE, 0x9A57, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IDirectShowStream, 0x7DB01C96, 0xC0C3, 0x11D0, 0x8F, 0xF1, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IAMMultiMediaStream, 0xBEBE595C, 0x9A6F, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IAMMediaStream, 0xBEBE595D, 0x9A6F, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IMediaStreamFilter, 0xBEBE595E, 0x9A6F, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IDirectDrawMediaSampleAllocator, 0xAB6B4AFC, 0xF6E4, 0x11D0, 0x90, 0x0D, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IDirectDrawMediaSample, 0xAB6B4AFE, 0xF6E4, 0x11D0, 0x90, 0x0D, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IAMMediaTypeStream, 0xAB6B4AFA, 0xF6E4, 0x11D0, 0x90, 0x0D, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IAMMediaTypeSample, 0xAB6B4AFB, 0xF6E4, 0x11D0, 0x90, 0x0D, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IDirectDrawMediaStream, 0xF4104FCE, 0x9A70, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IDirectDrawStreamSample, 0xF4104FCF, 0x9A70, 0x11D0, 0x8F, 0xDE, 0x00, 0xC0, 0x4F, 0xD9, 0x18, 0x9D);
DEFINE_GUID(IID_IAudioMediaStream, 0xF7537560, 0xA3BE, 0x11D0, 0x82, 0x12, 0x00, 0xC0, 0x4F, 0xC3, 0x2C, 0x45);
DEFINE_GUID(IID_IAudioStreamSample, 0x345FEE00, 0xABA5, 0x11D0, 0x82, 0x12, 0x00, 0xC0, 0x4F, 0xC3, 0x2C, 0x45);
DEFINE_GUID(IID_IMemoryData, 0x327FC560, 0xAF60, 0x11D0, 0x82, 0x12, 0x00, 0xC0, 0x4F, 0xC3, 0x2C, 0x45);
DEFINE_GUID(IID_IAudioData, 0x54C719C0, 0xAF60, 0x11D0, 0x82, 0x12, 0x00, 0xC0, 0x4F, 0xC3, 0x2C, 0x45);
DEFINE_GUID(IID_IMixerPinConfig, 0x593CDDE1, 0x0759, 0x11D1, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IMixerPinConfig2, 0xEBF47182, 0x8764, 0x11D1, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IAMNetworkStatus, 0xFA2AA8F3, 0x8B62, 0x11D0, 0xA5, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00);
DEFINE_GUID(IID_IAMMediaContent, 0xFA2AA8F4, 0x8B62, 0x11D0, 0xA5, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00);
DEFINE_GUID(IID_IDirectDrawVideo, 0x36D39EB0, 0xDD75, 0x11CE, 0xBF, 0x0E, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
DEFINE_GUID(IID_IQualProp, 0x1BD0ECB0, 0xF8E2, 0x11CE, 0xAA, 0xC6, 0x00, 0x20, 0xAF, 0x0B, 0x99, 0xA3);
DEFINE_GUID(IID_IFullScreenVideo, 0xDD1D7110, 0x7836, 0x11CF, 0xBF, 0x47, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
DEFINE_GUID(IID_IFullScreenVideoEx, 0x53479470, 0xF1DD, 0x11CF, 0xBC, 0x42, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);
DEFINE_GUID(IID_IBaseVideoMixer, 0x61DED640, 0xE912, 0x11CE, 0xA0, 0x99, 0x00, 0xAA, 0x00, 0x47, 0x9A, 0x58);
DEFINE_GUID(IID_IAMDirectSound, 0x546F4260, 0xD53E, 0x11CF, 0xB3, 0xF0, 0x00, 0xAA, 0x00, 0x37, 0x61, 0xC5);
DEFINE_GUID(IID_IVPConfig, 0xBC29A660, 0x30E3, 0x11D0, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IVPVBIConfig, 0xEC529B00, 0x1A1F, 0x11D1, 0xBA, 0xD9, 0x00, 0x60, 0x97, 0x44, 0x11, 0x1A);
DEFINE_GUID(IID_IVPNotify, 0xC76794A1, 0xD6C5, 0x11D0, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IVPVBINotify, 0xEC529B01, 0x1A1F, 0x11D1, 0xBA, 0xD9, 0x00, 0x60, 0x97, 0x44, 0x11, 0x1A);
DEFINE_GUID(IID_IVPNotify2, 0xEBF47183, 0x8764, 0x11D1, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IMpegAudioDecoder, 0xB45DD570, 0x3C77, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05, 0xF3, 0x75);
DEFINE_GUID(IID_IAMLine21Decoder, 0x6E8D4A21, 0x310C, 0x11D0, 0xB7, 0x9A, 0x00, 0xAA, 0x00, 0x37, 0x67, 0xA7);
DEFINE_GUID(IID_IVPObject, 0xCE292862, 0xFC88, 0x11D0, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IVPControl, 0x25DF12C1, 0x3DE0, 0x11D1, 0x9E, 0x69, 0x00, 0xC0, 0x4F, 0xD7, 0xC1, 0x5B);
DEFINE_GUID(IID_IVPVBIObject, 0x814B9802, 0x1C88, 0x11D1, 0xBA, 0xD9, 0x00, 0x60, 0x97, 0x44, 0x11, 0x1A);
DEFINE_GUID(IID_IAMWstDecoder, 0xC056DE21, 0x75C2, 0x11D3, 0xA1, 0x84, 0x00, 0x10, 0x5A, 0xEF, 0x9F, 0x33);
DEFINE_GUID(IID_IKsInterfaceHandler, 0xD3ABC7E0, 0x9A61, 0x11D0, 0xA4, 0x0D, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IKsDataTypeHandler, 0x5FFBAA02, 0x49A3, 0x11D0, 0x9F, 0x36, 0x00, 0xAA, 0x00, 0xA2, 0x16, 0xA1);
DEFINE_GUID(IID_IKsPin, 0xB61178D1, 0xA2D9, 0x11CF, 0x9E, 0x53, 0x00, 0xAA, 0x00, 0xA2, 0x16, 0xA1);
DEFINE_GUID(IID_IKsControl, 0x28F54685, 0x06FD, 0x11D2, 0xB2, 0x7A, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IKsPinFactory, 0xCD5EBE6B, 0x8B6E, 0x11D1, 0x8A, 0xE0, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IAMVideoAcceleratorNotify, 0x256A6A21, 0xFBAD, 0x11D1, 0x82, 0xBF, 0x00, 0xA0, 0xC9, 0x69, 0x6C, 0x8F);
DEFINE_GUID(IID_IAMVideoAccelerator, 0x256A6A22, 0xFBAD, 0x11D1, 0x82, 0xBF, 0x00, 0xA0, 0xC9, 0x69, 0x6C, 0x8F);
DEFINE_GUID(IID_ICreatePropBagOnRegKey, 0x8A674B48, 0x1F63, 0x11D3, 0xB6, 0x4C, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_ITuningSpaces, 0x901284E4, 0x33FE, 0x4B69, 0x8D, 0x63, 0x63, 0x4A, 0x59, 0x6F, 0x37, 0x56);
DEFINE_GUID(IID_ITuningSpaceContainer, 0x5B692E84, 0xE2F1, 0x11D2, 0x94, 0x93, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_ITuningSpace, 0x061C6E30, 0xE622, 0x11D2, 0x94, 0x93, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IEnumTuningSpaces, 0x8B8EB248, 0xFC2B, 0x11D2, 0x9D, 0x8C, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IDVBTuningSpace, 0xADA0B268, 0x3B19, 0x4E5B, 0xAC, 0xC4, 0x49, 0xF8, 0x52, 0xBE, 0x13, 0xBA);
DEFINE_GUID(IID_IAnalogTVTuningSpace, 0x2A6E293C, 0x2595, 0x11D3, 0xB6, 0x4C, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IATSCTuningSpace, 0x0369B4E2, 0x45B6, 0x11D3, 0xB6, 0x50, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IAnalogRadioTuningSpace, 0x2A6E293B, 0x2595, 0x11D3, 0xB6, 0x4C, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_ITuneRequest, 0x07DDC146, 0xFC3D, 0x11D2, 0x9D, 0x8C, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IChannelTuneRequest, 0x0369B4E0, 0x45B6, 0x11D3, 0xB6, 0x50, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IATSCChannelTuneRequest, 0x0369B4E1, 0x45B6, 0x11D3, 0xB6, 0x50, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IDVBTuneRequest, 0x0D6F567E, 0xA636, 0x42BB, 0x83, 0xBA, 0xCE, 0x4C, 0x17, 0x04, 0xAF, 0xA2);
DEFINE_GUID(IID_ITuner, 0x28C52640, 0x018A, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IScanningTuner, 0x1DFD0A5C, 0x0284, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IComponentType, 0x6A340DC0, 0x0311, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_ILanguageComponentType, 0xB874C8BA, 0x0FA2, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IMPEG2ComponentType, 0x2C073D84, 0xB51C, 0x48C9, 0xAA, 0x9F, 0x68, 0x97, 0x1E, 0x1F, 0x6E, 0x38);
DEFINE_GUID(IID_IATSCComponentType, 0xFC189E4D, 0x7BD4, 0x4125, 0xB3, 0xB3, 0x3A, 0x76, 0xA3, 0x32, 0xCC, 0x96);
DEFINE_GUID(IID_IEnumComponentTypes, 0x8A674B4A, 0x1F63, 0x11D3, 0xB6, 0x4C, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IComponentTypes, 0x0DC13D4A, 0x0313, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IComponent, 0x1A5576FC, 0x0E19, 0x11D3, 0x9D, 0x8E, 0x00, 0xC0, 0x4F, 0x72, 0xD9, 0x80);
DEFINE_GUID(IID_IMPEG2Component, 0x1493E353, 0x1EB6, 0x473C, 0x80, 0x2D, 0x8E, 0x6B, 0x8E, 0xC9, 0xD2, 0xA9);
DEFINE_GUID(IID_IEnumComponents, 0x2A6E2939, 0x2595, 0x11D3, 0xB6, 0x4C, 0x00, 0xC0, 0x4F, 0x79, 0x49, 0x8E);
DEFINE_GUID(IID_IComponents, 0x39A48091, 0xFFFE, 0x4182, 0xA1, 0x61, 0x3F, 0xF8, 0x02, 0x64, 0x0E, 0x26);
DEFINE_GUID(IID_ILocator, 0x286D7F89, 0x760C, 0x4F89, 0x80, 0xC4, 0x66, 0x84, 0x1D, 0x25, 0x07, 0xAA);
DEFINE_GUID(IID_IATSCLocator, 0xBF8D986F, 0x8C2B, 0x4131, 0x94, 0xD7, 0x4D, 0x3D, 0x9F, 0xCC, 0x21, 0xEF);
DEFINE_GUID(IID_IDVBTLocator, 0x8664DA16, 0xDDA2, 0x42AC, 0x92, 0x6A, 0xC1, 0x8F, 0x91, 0x27, 0xC3, 0x02);
DEFINE_GUID(IID_IDVBSLocator, 0x3D7C353C, 0x0D04, 0x45F1, 0xA7, 0x42, 0xF9, 0x7C, 0xC1, 0x18, 0x8D, 0xC8);
DEFINE_GUID(IID_IDVBCLocator, 0x6E42F36E, 0x1DD2, 0x43C4, 0x9F, 0x78, 0x69, 0xD2, 0x5A, 0xE3, 0x90, 0x34);
DEFINE_GUID(IID_IDVBTuningSpace2, 0x843188B4, 0xCE62, 0x43DB, 0x96, 0x6B, 0x81, 0x45, 0xA0, 0x94, 0xE0, 0x40);
DEFINE_GUID(IID_IDVBSTuningSpace, 0xCDF7BE60, 0xD954, 0x42FD, 0xA9, 0x72, 0x78, 0x97, 0x19, 0x58, 0xE4, 0x70);
DEFINE_GUID(IID_IMPEG2TuneRequest, 0xEB7D987F, 0x8A01, 0x42AD, 0xB8, 0xAE, 0x57, 0x4D, 0xEE, 0xE4, 0x4D, 0x1A);
DEFINE_GUID(IID_IMPEG2TuneRequestFactory, 0x14E11ABD, 0xEE37, 0x4893, 0x9E, 0xA1, 0x69, 0x64, 0xDE, 0x93, 0x3E, 0x39);
DEFINE_GUID(IID_IMPEG2TuneRequestSupport, 0x1B9D5FC3, 0x5BBC, 0x4B6C, 0xBB, 0x18, 0xB9, 0xD1, 0x0E, 0x3E, 0xEE, 0xBF);
DEFINE_GUID(IID_IBroadcastEvent, 0x3B21263F, 0x26E8, 0x489D, 0xAA, 0xC4, 0x92, 0x4F, 0x7E, 0xFD, 0x95, 0x11);
DEFINE_GUID(IID_IKsObject, 0x423C13A2, 0x2070, 0x11D0, 0x9E, 0xF7, 0x00, 0xAA, 0x00, 0xA2, 0x16, 0xA1);
DEFINE_GUID(IID_IKsPinEx, 0x7BB38260, 0xD19C, 0x11D2, 0xB3, 0x8A, 0x00, 0xA0, 0xC9, 0x5E, 0xC2, 0x2E);
DEFINE_GUID(IID_IKsPinPipe, 0xE539CD90, 0xA8B4, 0x11D1, 0x81, 0x89, 0x00, 0xA0, 0xC9, 0x06, 0x28, 0x02);
DEFINE_GUID(IID_IKsDataTypeCompletion, 0x827D1A0E, 0x0F73, 0x11D2, 0xB2, 0x7A, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IKsClockPropertySet, 0x5C5CBD84, 0xE755, 0x11D0, 0xAC, 0x18, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IKsAllocator, 0x8DA64899, 0xC0D9, 0x11D0, 0x84, 0x13, 0x00, 0x00, 0xF8, 0x22, 0xFE, 0x8A);
DEFINE_GUID(IID_IKsAllocatorEx, 0x091BB63A, 0x603F, 0x11D1, 0xB0, 0x67, 0x00, 0xA0, 0xC9, 0x06, 0x28, 0x02);
DEFINE_GUID(IID_IKsQualityForwarder, 0x97EBAACB, 0x95BD, 0x11D0, 0xA3, 0xEA, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96);
DEFINE_GUID(IID_IPropertySetter, 0xAE9472BD, 0xB0C3, 0x11D2, 0x8D, 0x24, 0x00, 0xA0, 0xC9, 0x44, 0x1E, 0x20);
DEFINE_GUID(IID_IMediaLocator, 0x288581E0, 0x66CE, 0x11D2, 0x91, 0x8F, 0x00, 0xC0, 0xDF, 0x10, 0xD4, 0x34);
DEFINE_GUID(IID_IMediaDet, 0x65BD0710, 0x24D2, 0x4FF7, 0x93, 0x24, 0xED, 0x2E, 0x5D, 0x3A, 0xBA, 0xFA);
DEFINE_GUID(IID_IAMTimelineObj, 0x78530B77, 0x61F9, 0x11D2, 0x8C, 0xAD, 0x00, 0xA0, 0x24, 0x58, 0x09, 0x02);
DEFINE_GUID(IID_IAMTimelineSrc, 0x78530B79, 0x61F9, 0x11D2, 0x8C, 0xAD, 0x00, 0xA0, 0x24, 0x58, 0x09, 0x02);
DEFINE_GUID(IID_IAMTimelineGroup, 0x9EED4F00, 0xB8A6, 0x11D2, 0x80, 0x23, 0x00, 0xC0, 0xDF, 0x10, 0xD4, 0x34);
DEFINE_GUID(IID_IAMTimeline, 0x78530B74, 0x61F9, 0x11D2, 0x8C, 0xAD, 0x00, 0xA0, 0x24, 0x58, 0x09, 0x02);
DEFINE_GUID(IID_IAMErrorLog, 0xE43E73A2, 0x0EFA, 0x11D3, 0x96, 0x01, 0x00, 0xA0, 0xC9, 0x44, 0x1E, 0x20);
DEFINE_GUID(IID_IAMSetErrorLog, 0x963566DA, 0xBE21, 0x4EAF, 0x88, 0xE9, 0x35, 0x70, 0x4F, 0x8F, 0x52, 0xA1);
DEFINE_GUID(IID_IBDA_NetworkProvider, 0xFD501041, 0x8EBE, 0x11CE, 0x81, 0x83, 0x00, 0xAA, 0x00, 0x57, 0x7D, 0xA2);
DEFINE_GUID(IID_IBDA_EthernetFilter, 0x71985F43, 0x1CA1, 0x11D3, 0x9C, 0xC8, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_IPV4Filter, 0x71985F44, 0x1CA1, 0x11D3, 0x9C, 0xC8, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_IPV6Filter, 0xE1785A74, 0x2A23, 0x4FB3, 0x92, 0x45, 0xA8, 0xF8, 0x80, 0x17, 0xEF, 0x33);
DEFINE_GUID(IID_IBDA_DeviceControl, 0xFD0A5AF3, 0xB41D, 0x11D2, 0x9C, 0x95, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_PinControl, 0x0DED49D5, 0xA8B7, 0x4D5D, 0x97, 0xA1, 0x12, 0xB0, 0xC1, 0x95, 0x87, 0x4D);
DEFINE_GUID(IID_IBDA_SignalProperties, 0xD2F1644B, 0xB409, 0x11D2, 0xBC, 0x69, 0x00, 0xA0, 0xC9, 0xEE, 0x9E, 0x16);
DEFINE_GUID(IID_IBDA_SignalStatistics, 0x1347D106, 0xCF3A, 0x428A, 0xA5, 0xCB, 0xAC, 0x0D, 0x9A, 0x2A, 0x43, 0x38);
DEFINE_GUID(IID_IBDA_Topology, 0x79B56888, 0x7FEA, 0x4690, 0xB4, 0x5D, 0x38, 0xFD, 0x3C, 0x78, 0x49, 0xBE);
DEFINE_GUID(IID_IBDA_VoidTransform, 0x71985F46, 0x1CA1, 0x11D3, 0x9C, 0xC8, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_NullTransform, 0xDDF15B0D, 0xBD25, 0x11D2, 0x9C, 0xA0, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_FrequencyFilter, 0x71985F47, 0x1CA1, 0x11D3, 0x9C, 0xC8, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_LNBInfo, 0x992CF102, 0x49F9, 0x4719, 0xA6, 0x64, 0xC4, 0xF2, 0x3E, 0x24, 0x08, 0xF4);
DEFINE_GUID(IID_IBDA_AutoDemodulate, 0xDDF15B12, 0xBD25, 0x11D2, 0x9C, 0xA0, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE0);
DEFINE_GUID(IID_IBDA_DigitalDemodulator, 0xEF30F379, 0x985B, 0x4D10, 0xB6, 0x40, 0xA7, 0x9D, 0x5E, 0x04, 0xE1, 0xE0);
DEFINE_GUID(IID_IBDA_IPSinkControl, 0x3F4DC8E2, 0x4050, 0x11D3, 0x8F, 0x4B, 0x00, 0xC0, 0x4F, 0x79, 0x71, 0xE2);
DEFINE_GUID(IID_IBDA_IPSinkInfo, 0xA750108F, 0x492E, 0x4D51, 0x95, 0xF7, 0x64, 0x9B, 0x23, 0xFF, 0x7A, 0xD7);
DEFINE_GUID(IID_IEnumPIDMap, 0xAFB6C2A2, 0x2C41, 0x11D3, 0x8A, 0x60, 0x00, 0x00, 0xF8, 0x1E, 0x0E, 0x4A);
DEFINE_GUID(IID_IMPEG2PIDMap, 0xAFB6C2A1, 0x2C41, 0x11D3, 0x8A, 0x60, 0x00, 0x00, 0xF8, 0x1E, 0x0E, 0x4A);
DEFINE_GUID(IID_IVMRAspectRatioControl9, 0x00D96C29, 0xBBDE, 0x4EFC, 0x99, 0x01, 0xBB, 0x50, 0x36, 0x39, 0x21, 0x46);
DEFINE_GUID(IID_IVMRDeinterlaceControl9, 0xA215FB8D, 0x13C2, 0x4F7F, 0x99, 0x3C, 0x00, 0x3D, 0x62, 0x71, 0xA4, 0x59);
DEFINE_GUID(IID_IVMRFilterConfig9, 0x5A804648, 0x4F66, 0x4867, 0x9C, 0x43, 0x4F, 0x5C, 0x82, 0x2C, 0xF1, 0xB8);
DEFINE_GUID(IID_IVMRImageCompositor9, 0x4A5C89EB, 0xDF51, 0x4654, 0xAC, 0x2A, 0xE4, 0x8E, 0x02, 0xBB, 0xAB, 0xF6);
DEFINE_GUID(IID_IVMRImagePresenter9, 0x69188C61, 0x12A3, 0x40F0, 0x8F, 0xFC, 0x34, 0x2E, 0x7B, 0x43, 0x3F, 0xD7);
DEFINE_GUID(IID_IVMRImagePresenterConfig9, 0x45C15CAB, 0x6E22, 0x420A, 0x80, 0x43, 0xAE, 0x1F, 0x0A, 0xC0, 0x2C, 0x7D);
DEFINE_GUID(IID_IVMRMixerBitmap9, 0xCED175E5, 0x1935, 0x4820, 0x81, 0xBD, 0xFF, 0x6A, 0xD0, 0x0C, 0x91, 0x08);
DEFINE_GUID(IID_IVMRMixerControl9, 0x1A777EAA, 0x47C8, 0x4930, 0xB2, 0xC9, 0x8F, 0xEE, 0x1C, 0x1B, 0x0F, 0x3B);
DEFINE_GUID(IID_IVMRMonitorConfig9, 0x46C2E457, 0x8BA0, 0x4EEF, 0xB8, 0x0B, 0x06, 0x80, 0xF0, 0x97, 0x87, 0x49);
DEFINE_GUID(IID_IVMRSurface9, 0xDFC581A1, 0x6E1F, 0x4C3A, 0x8D, 0x0A, 0x5E, 0x97, 0x92, 0xEA, 0x2A, 0xFC);
DEFINE_GUID(IID_IVMRSurfaceAllocator9, 0x8D5148EA, 0x3F5D, 0x46CF, 0x9D, 0xF1, 0xD1, 0xB8, 0x96, 0xEE, 0xDB, 0x1F);
DEFINE_GUID(IID_IVMRSurfaceAllocatorNotify9, 0xDCA3F5DF, 0xBB3A, 0x4D03, 0xBD, 0x81, 0x84, 0x61, 0x4B, 0xFB, 0xFA, 0x0C);
DEFINE_GUID(IID_IVMRWindowlessControl9, 0x8F537D09, 0xF85E, 0x4414, 0xB2, 0x3B, 0x50, 0x2E, 0x54, 0xC7, 0x99, 0x27);
DEFINE_GUID(IID_IVMRVideoStreamControl9, 0xD0CFE38B, 0x93E7, 0x4772, 0x89, 0x57, 0x04, 0x00, 0xC4, 0x9A, 0x44, 0x85);
DEFINE_GUID(IID_IPropertyStorage, 0x00000138, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);

namespace mw {
struct InterfaceNameRow {
    const char* name;
    const GUID* iid;  // null when the value is not available
};
inline constexpr InterfaceNameRow kMwInterfaceNameTable[] = {
    {"IPin", &IID_IPin},
    {"IEnumPins", &IID_IEnumPins},
    {"IEnumMediaTypes", &IID_IEnumMediaTypes},
    {"IFilterGraph", &IID_IFilterGraph},
    {"IEnumFilters", &IID_IEnumFilters},
    {"IMediaFilter", &IID_IMediaFilter},
    {"IBaseFilter", &IID_IBaseFilter},
    {"IReferenceClock", &IID_IReferenceClock},
    {"IReferenceClock2", &IID_IReferenceClock2},
    {"IMediaSample", &IID_IMediaSample},
    {"IMediaSample2", &IID_IMediaSample2},
    {"IMemAllocator", &IID_IMemAllocator},
    {"IMemInputPin", &IID_IMemInputPin},
    {"IAMovieSetup", &IID_IAMovieSetup},
    {"IMediaSeeking", &IID_IMediaSeeking},
    {"IEnumRegFilters", &IID_IEnumRegFilters},
    {"IFilterMapper", &IID_IFilterMapper},
    {"IFilterMapper2", &IID_IFilterMapper2},
    {"IQualityControl", &IID_IQualityControl},
    {"IOverlayNotify", &IID_IOverlayNotify},
    {"IOverlay", &IID_IOverlay},
    {"IMediaEventSink", &IID_IMediaEventSink},
    {"IFileSourceFilter", &IID_IFileSourceFilter},
    {"IFileSinkFilter", &IID_IFileSinkFilter},
    {"IFileSinkFilter2", &IID_IFileSinkFilter2},
    {"IFileAsyncIO", nullptr},  // IID not available
    {"IGraphBuilder", &IID_IGraphBuilder},
    {"ICaptureGraphBuilder", &IID_ICaptureGraphBuilder},
    {"IAMCopyCaptureFileProgress", &IID_IAMCopyCaptureFileProgress},
    {"IFilterGraph2", &IID_IFilterGraph2},
    {"IStreamBuilder", &IID_IStreamBuilder},
    {"IAsyncReader", &IID_IAsyncReader},
    {"IGraphVersion", &IID_IGraphVersion},
    {"IResourceConsumer", &IID_IResourceConsumer},
    {"IResourceManager", &IID_IResourceManager},
    {"IDistributorNotify", nullptr},  // IID not available
    {"IAMStreamControl", &IID_IAMStreamControl},
    {"ISeekingPassThru", &IID_ISeekingPassThru},
    {"IAMStreamConfig", &IID_IAMStreamConfig},
    {"IConfigInterleaving", &IID_IConfigInterleaving},
    {"IConfigAviMux", &IID_IConfigAviMux},
    {"IAMVideoCompression", &IID_IAMVideoCompression},
    {"IAMVfwCaptureDialogs", &IID_IAMVfwCaptureDialogs},
    {"IAMVfwCompressDialogs", nullptr},  // IID not available
    {"IAMDroppedFrames", &IID_IAMDroppedFrames},
    {"IAMAudioInputMixer", nullptr},  // IID not available
    {"IAMAnalogVideoDecoder", nullptr},  // IID not available
    {"IAMVideoProcAmp", &IID_IAMVideoProcAmp},
    {"IAMCameraControl", &IID_IAMCameraControl},
    {"IAMCrossbar", &IID_IAMCrossbar},
    {"IAMTuner", &IID_IAMTuner},
    {"IAMTunerNotification", &IID_IAMTunerNotification},
    {"IAMTVTuner", &IID_IAMTVTuner},
    {"IBPCSatelliteTuner", nullptr},  // IID not available
    {"IAMTVAudio", nullptr},  // IID not available
    {"IAMTVAudioNotification", nullptr},  // IID not available
    {"IAMAnalogVideoEncoder", nullptr},  // IID not available
    {"IMediaPropertyBag", &IID_IMediaPropertyBag},
    {"IPersistMediaPropertyBag", &IID_IPersistMediaPropertyBag},
    {"IAMPhysicalPinInfo", nullptr},  // IID not available
    {"IAMExtDevice", nullptr},  // IID not available
    {"IAMExtTransport", nullptr},  // IID not available
    {"IAMTimecodeReader", nullptr},  // IID not available
    {"IAMTimecodeGenerator", nullptr},  // IID not available
    {"IAMTimecodeDisplay", nullptr},  // IID not available
    {"IAMDevMemoryAllocator", nullptr},  // IID not available
    {"IAMDevMemoryControl", nullptr},  // IID not available
    {"IAMStreamSelect", &IID_IAMStreamSelect},
    {"IAMovie", nullptr},  // IID not available
    {"ICreateDevEnum", &IID_ICreateDevEnum},
    {"IDvdControl", &IID_IDvdControl},
    {"IDvdControl2", &IID_IDvdControl2},
    {"IDvdInfo", &IID_IDvdInfo},
    {"IDvdInfo2", &IID_IDvdInfo2},
    {"IDvdGraphBuilder", &IID_IDvdGraphBuilder},
    {"IDvdState", &IID_IDvdState},
    {"IDvdCmd", &IID_IDvdCmd},
    {"IVideoFrameStep", &IID_IVideoFrameStep},
    {"IFilterMapper3", &IID_IFilterMapper3},
    {"IOverlayNotify2", &IID_IOverlayNotify2},
    {"ICaptureGraphBuilder2", &IID_ICaptureGraphBuilder2},
    {"IMemAllocatorCallbackTemp", &IID_IMemAllocatorCallbackTemp},
    {"IMemAllocatorNotifyCallbackTemp", &IID_IMemAllocatorNotifyCallbackTemp},
    {"IAMVideoControl", &IID_IAMVideoControl},
    {"IKsPropertySet", &IID_IKsPropertySet},
    {"IAMResourceControl", nullptr},  // IID not available
    {"IAMClockAdjust", nullptr},  // IID not available
    {"IAMFilterMiscFlags", &IID_IAMFilterMiscFlags},
    {"IDrawVideoImage", nullptr},  // IID not available
    {"IDecimateVideoImage", nullptr},  // IID not available
    {"IAMVideoDecimationProperties", nullptr},  // IID not available
    {"IAMLatency", &IID_IAMLatency},
    {"IAMPushSource", &IID_IAMPushSource},
    {"IAMDeviceRemoval", nullptr},  // IID not available
    {"IDVEnc", nullptr},  // IID not available
    {"IIPDVDec", nullptr},  // IID not available
    {"IDVRGB219", nullptr},  // IID not available
    {"IDVSplitter", nullptr},  // IID not available
    {"IAMAudioRendererStats", nullptr},  // IID not available
    {"IAMGraphStreams", nullptr},  // IID not available
    {"IAMOverlayFX", nullptr},  // IID not available
    {"IAMOpenProgress", nullptr},  // IID not available
    {"IMpeg2Demultiplexer", &IID_IMpeg2Demultiplexer},
    {"IEnumStreamIdMap", nullptr},  // IID not available
    {"IMPEG2StreamIdMap", nullptr},  // IID not available
    {"IRegisterServiceProvider", nullptr},  // IID not available
    {"IAMDecoderCaps", nullptr},  // IID not available
    {"IAMClockSlave", &IID_IAMClockSlave},
    {"IDDrawExclModeVideo", nullptr},  // IID not available
    {"IDDrawExclModeVideoCallback", nullptr},  // IID not available
    {"IPinConnection", &IID_IPinConnection},
    {"IPinFlowControl", &IID_IPinFlowControl},
    {"IGraphConfig", &IID_IGraphConfig},
    {"IGraphConfigCallback", &IID_IGraphConfigCallback},
    {"IFilterChain", &IID_IFilterChain},
    {"IVMRImagePresenter", &IID_IVMRImagePresenter},
    {"IVMRSurfaceAllocator", &IID_IVMRSurfaceAllocator},
    {"IVMRSurfaceAllocatorNotify", &IID_IVMRSurfaceAllocatorNotify},
    {"IVMRWindowlessControl", &IID_IVMRWindowlessControl},
    {"IVMRMixerControl", &IID_IVMRMixerControl},
    {"IVMRMonitorConfig", &IID_IVMRMonitorConfig},
    {"IVMRFilterConfig", &IID_IVMRFilterConfig},
    {"IVMRMixerBitmap", &IID_IVMRMixerBitmap},
    {"IVMRImageCompositor", &IID_IVMRImageCompositor},
    {"IVMRVideoStreamControl", &IID_IVMRVideoStreamControl},
    {"IVMRSurface", nullptr},  // IID not available
    {"IVPManager", &IID_IVPManager},
    {"IVMRImagePresenterConfig", &IID_IVMRImagePresenterConfig},
    {"IVMRImagePresenterExclModeConfig", &IID_IVMRImagePresenterExclModeConfig},
    {"IAMBufferNegotiation", &IID_IAMBufferNegotiation},
    {"IMultiMediaStream", &IID_IMultiMediaStream},
    {"IMediaStream", &IID_IMediaStream},
    {"IStreamSample", &IID_IStreamSample},
    {"IDirectShowStream", &IID_IDirectShowStream},
    {"IAMMultiMediaStream", &IID_IAMMultiMediaStream},
    {"IAMMediaStream", &IID_IAMMediaStream},
    {"IMediaStreamFilter", &IID_IMediaStreamFilter},
    {"IDirectDrawMediaSampleAllocator", &IID_IDirectDrawMediaSampleAllocator},
    {"IDirectDrawMediaSample", &IID_IDirectDrawMediaSample},
    {"IAMMediaTypeStream", &IID_IAMMediaTypeStream},
    {"IAMMediaTypeSample", &IID_IAMMediaTypeSample},
    {"IDirectDrawMediaStream", &IID_IDirectDrawMediaStream},
    {"IDirectDrawStreamSample", &IID_IDirectDrawStreamSample},
    {"IAudioMediaStream", &IID_IAudioMediaStream},
    {"IAudioStreamSample", &IID_IAudioStreamSample},
    {"IMemoryData", &IID_IMemoryData},
    {"IAudioData", &IID_IAudioData},
    {"IMixerPinConfig", &IID_IMixerPinConfig},
    {"IMixerPinConfig2", &IID_IMixerPinConfig2},
    {"IAMCollection", &IID_IAMCollection},
    {"IMediaControl", &IID_IMediaControl},
    {"IMediaEvent", &IID_IMediaEvent},
    {"IMediaEventEx", &IID_IMediaEventEx},
    {"IMediaPosition", &IID_IMediaPosition},
    {"IBasicAudio", &IID_IBasicAudio},
    {"IVideoWindow", &IID_IVideoWindow},
    {"IBasicVideo", &IID_IBasicVideo},
    {"IBasicVideo2", &IID_IBasicVideo2},
    {"IDeferredCommand", &IID_IDeferredCommand},
    {"IQueueCommand", &IID_IQueueCommand},
    {"IFilterInfo", &IID_IFilterInfo},
    {"IRegFilterInfo", &IID_IRegFilterInfo},
    {"IMediaTypeInfo", &IID_IMediaTypeInfo},
    {"IPinInfo", &IID_IPinInfo},
    {"IAMStats", &IID_IAMStats},
    {"IAMNetShowConfig", nullptr},  // IID not available
    {"IAMChannelInfo", nullptr},  // IID not available
    {"IAMNetworkStatus", &IID_IAMNetworkStatus},
    {"IAMExtendedSeeking", nullptr},  // IID not available
    {"IAMNetShowExProps", nullptr},  // IID not available
    {"IAMExtendedErrorInfo", nullptr},  // IID not available
    {"IAMMediaContent", &IID_IAMMediaContent},
    {"IAMMediaContent2", nullptr},  // IID not available
    {"IAMNetShowPreroll", nullptr},  // IID not available
    {"IDShowPlugin", nullptr},  // IID not available
    {"IAMPlayListItem", nullptr},  // IID not available
    {"IAMPlayList", nullptr},  // IID not available
    {"ISpecifyParticularPages", nullptr},  // IID not available
    {"IAMRebuild", nullptr},  // IID not available
    {"IDirectDrawVideo", &IID_IDirectDrawVideo},
    {"IQualProp", &IID_IQualProp},
    {"IFullScreenVideo", &IID_IFullScreenVideo},
    {"IFullScreenVideoEx", &IID_IFullScreenVideoEx},
    {"IBaseVideoMixer", &IID_IBaseVideoMixer},
    {"IAMDirectSound", &IID_IAMDirectSound},
    {"IVPConfig", &IID_IVPConfig},
    {"IVPVBIConfig", &IID_IVPVBIConfig},
    {"IVPNotify", &IID_IVPNotify},
    {"IVPVBINotify", &IID_IVPVBINotify},
    {"IVPNotify2", &IID_IVPNotify2},
    {"IMpegAudioDecoder", &IID_IMpegAudioDecoder},
    {"IAMLine21Decoder", &IID_IAMLine21Decoder},
    {"IVPObject", &IID_IVPObject},
    {"IVPControl", &IID_IVPControl},
    {"IVPVBIObject", &IID_IVPVBIObject},
    {"IAMWstDecoder", &IID_IAMWstDecoder},
    {"IKsInterfaceHandler", &IID_IKsInterfaceHandler},
    {"IKsDataTypeHandler", &IID_IKsDataTypeHandler},
    {"IKsPin", &IID_IKsPin},
    {"IKsControl", &IID_IKsControl},
    {"IKsPinFactory", &IID_IKsPinFactory},
    {"IAMVideoAcceleratorNotify", &IID_IAMVideoAcceleratorNotify},
    {"IAMVideoAccelerator", &IID_IAMVideoAccelerator},
    {"ICreatePropBagOnRegKey", &IID_ICreatePropBagOnRegKey},
    {"ITuningSpaces", &IID_ITuningSpaces},
    {"ITuningSpaceContainer", &IID_ITuningSpaceContainer},
    {"ITuningSpace", &IID_ITuningSpace},
    {"IEnumTuningSpaces", &IID_IEnumTuningSpaces},
    {"IDVBTuningSpace", &IID_IDVBTuningSpace},
    {"IAnalogTVTuningSpace", &IID_IAnalogTVTuningSpace},
    {"IATSCTuningSpace", &IID_IATSCTuningSpace},
    {"IAnalogRadioTuningSpace", &IID_IAnalogRadioTuningSpace},
    {"ITuneRequest", &IID_ITuneRequest},
    {"IChannelTuneRequest", &IID_IChannelTuneRequest},
    {"IATSCChannelTuneRequest", &IID_IATSCChannelTuneRequest},
    {"IDVBTuneRequest", &IID_IDVBTuneRequest},
    {"ITuner", &IID_ITuner},
    {"IScanningTuner", &IID_IScanningTuner},
    {"ITunerEvents", nullptr},  // IID not available
    {"ISignalEvents", nullptr},  // IID not available
    {"IComponentType", &IID_IComponentType},
    {"ILanguageComponentType", &IID_ILanguageComponentType},
    {"IMPEG2ComponentType", &IID_IMPEG2ComponentType},
    {"IATSCComponentType", &IID_IATSCComponentType},
    {"IEnumComponentTypes", &IID_IEnumComponentTypes},
    {"IComponentTypes", &IID_IComponentTypes},
    {"IComponent", &IID_IComponent},
    {"IMPEG2Component", &IID_IMPEG2Component},
    {"IEnumComponents", &IID_IEnumComponents},
    {"IComponents", &IID_IComponents},
    {"ILocator", &IID_ILocator},
    {"IATSCLocator", &IID_IATSCLocator},
    {"IDVBTLocator", &IID_IDVBTLocator},
    {"IDVBSLocator", &IID_IDVBSLocator},
    {"IDVBCLocator", &IID_IDVBCLocator},
    {"IDVBTuningSpace2", &IID_IDVBTuningSpace2},
    {"IDVBSTuningSpace", &IID_IDVBSTuningSpace},
    {"IMPEG2TuneRequest", &IID_IMPEG2TuneRequest},
    {"IMPEG2TuneRequestFactory", &IID_IMPEG2TuneRequestFactory},
    {"IMPEG2TuneRequestSupport", &IID_IMPEG2TuneRequestSupport},
    {"IBroadcastEvent", &IID_IBroadcastEvent},
    {"IDXBaseObject", nullptr},  // IID not available
    {"IDXTransformFactory", nullptr},  // IID not available
    {"IDXTransform", nullptr},  // IID not available
    {"IDXSurfacePick", nullptr},  // IID not available
    {"IDXTBindHost", nullptr},  // IID not available
    {"IDXTaskManager", nullptr},  // IID not available
    {"IDXSurfaceFactory", nullptr},  // IID not available
    {"IDXSurfaceModifier", nullptr},  // IID not available
    {"IDXSurface", nullptr},  // IID not available
    {"IDXSurfaceInit", nullptr},  // IID not available
    {"IDXARGBSurfaceInit", nullptr},  // IID not available
    {"IDXARGBReadPtr", nullptr},  // IID not available
    {"IDXARGBReadWritePtr", nullptr},  // IID not available
    {"IDXDCLock", nullptr},  // IID not available
    {"IDXTScaleOutput", nullptr},  // IID not available
    {"IDXGradient", nullptr},  // IID not available
    {"IDXTScale", nullptr},  // IID not available
    {"IDXEffect", nullptr},  // IID not available
    {"IDXLookupTable", nullptr},  // IID not available
    {"IDXRawSurface", nullptr},  // IID not available
    {"IHTMLDXTransform", nullptr},  // IID not available
    {"IMpegVideoDecoder", nullptr},  // IID not available
    {"IConfigAsfWriter", nullptr},  // IID not available
    {"IAMParse", nullptr},  // IID not available
    {"IMediaParamInfo", &IID_IMediaParamInfo},
    {"IMediaParams", &IID_IMediaParams},
    {"IMediaBuffer", &IID_IMediaBuffer},
    {"IMediaObject", &IID_IMediaObject},
    {"IEnumDMO", &IID_IEnumDMO},
    {"IMediaObjectInPlace", &IID_IMediaObjectInPlace},
    {"IDMOQualityControl", &IID_IDMOQualityControl},
    {"IDMOVideoOutputOptimizations", &IID_IDMOVideoOutputOptimizations},
    {"IDMOWrapperFilter", &IID_IDMOWrapperFilter},
    {"IKsObject", &IID_IKsObject},
    {"IKsPinEx", &IID_IKsPinEx},
    {"IKsPinPipe", &IID_IKsPinPipe},
    {"IKsDataTypeCompletion", &IID_IKsDataTypeCompletion},
    {"IKsClockPropertySet", &IID_IKsClockPropertySet},
    {"IKsAllocator", &IID_IKsAllocator},
    {"IKsAllocatorEx", &IID_IKsAllocatorEx},
    {"IKsTopology", nullptr},  // IID not available
    {"IKsAggregateControl", nullptr},  // IID not available
    {"IKsQualityForwarder", &IID_IKsQualityForwarder},
    {"IPropertySetter", &IID_IPropertySetter},
    {"IDxtCompositor", nullptr},  // IID not available
    {"IDxtAlphaSetter", nullptr},  // IID not available
    {"IDxtJpeg", nullptr},  // IID not available
    {"IDxtKey", nullptr},  // IID not available
    {"IMediaLocator", &IID_IMediaLocator},
    {"IMediaDet", &IID_IMediaDet},
    {"IGrfCache", nullptr},  // IID not available
    {"IRenderEngine", nullptr},  // IID not available
    {"IFindCompressorCB", nullptr},  // IID not available
    {"ISmartRenderEngine", nullptr},  // IID not available
    {"IAMTimelineObj", &IID_IAMTimelineObj},
    {"IAMTimelineEffectable", nullptr},  // IID not available
    {"IAMTimelineEffect", nullptr},  // IID not available
    {"IAMTimelineTransable", nullptr},  // IID not available
    {"IAMTimelineSplittable", nullptr},  // IID not available
    {"IAMTimelineTrans", nullptr},  // IID not available
    {"IAMTimelineSrc", &IID_IAMTimelineSrc},
    {"IAMTimelineTrack", nullptr},  // IID not available
    {"IAMTimelineVirtualTrack", nullptr},  // IID not available
    {"IAMTimelineComp", nullptr},  // IID not available
    {"IAMTimelineGroup", &IID_IAMTimelineGroup},
    {"IAMTimeline", &IID_IAMTimeline},
    {"IXml2Dex", nullptr},  // IID not available
    {"IAMErrorLog", &IID_IAMErrorLog},
    {"IAMSetErrorLog", &IID_IAMSetErrorLog},
    {"ISampleGrabberCB", &IID_ISampleGrabberCB},
    {"ISampleGrabber", &IID_ISampleGrabber},
    {"IBDA_NetworkProvider", &IID_IBDA_NetworkProvider},
    {"IBDA_EthernetFilter", &IID_IBDA_EthernetFilter},
    {"IBDA_IPV4Filter", &IID_IBDA_IPV4Filter},
    {"IBDA_IPV6Filter", &IID_IBDA_IPV6Filter},
    {"IBDA_DeviceControl", &IID_IBDA_DeviceControl},
    {"IBDA_PinControl", &IID_IBDA_PinControl},
    {"IBDA_SignalProperties", &IID_IBDA_SignalProperties},
    {"IBDA_SignalStatistics", &IID_IBDA_SignalStatistics},
    {"IBDA_Topology", &IID_IBDA_Topology},
    {"IBDA_VoidTransform", &IID_IBDA_VoidTransform},
    {"IBDA_NullTransform", &IID_IBDA_NullTransform},
    {"IBDA_FrequencyFilter", &IID_IBDA_FrequencyFilter},
    {"IBDA_LNBInfo", &IID_IBDA_LNBInfo},
    {"IBDA_AutoDemodulate", &IID_IBDA_AutoDemodulate},
    {"IBDA_DigitalDemodulator", &IID_IBDA_DigitalDemodulator},
    {"IBDA_IPSinkControl", &IID_IBDA_IPSinkControl},
    {"IBDA_IPSinkInfo", &IID_IBDA_IPSinkInfo},
    {"IEnumPIDMap", &IID_IEnumPIDMap},
    {"IMPEG2PIDMap", &IID_IMPEG2PIDMap},
    {"IMPEG2_TIF_CONTROL", nullptr},  // IID not available
    {"ITuneRequestInfo", nullptr},  // IID not available
    {"IGuideDataEvent", nullptr},  // IID not available
    {"IGuideDataProperty", nullptr},  // IID not available
    {"IEnumGuideDataProperties", nullptr},  // IID not available
    {"IEnumTuneRequests", nullptr},  // IID not available
    {"IGuideData", nullptr},  // IID not available
    {"IGuideDataLoader", nullptr},  // IID not available
    {"IVPEConfig", nullptr},  // IID not available
    {"IVPE", nullptr},  // IID not available
    {"IDivXFilterInterface", nullptr},  // IID not available
    {"IVMRAspectRatioControl9", &IID_IVMRAspectRatioControl9},
    {"IVMRDeinterlaceControl9", &IID_IVMRDeinterlaceControl9},
    {"IVMRFilterConfig9", &IID_IVMRFilterConfig9},
    {"IVMRImageCompositor9", &IID_IVMRImageCompositor9},
    {"IVMRImagePresenter9", &IID_IVMRImagePresenter9},
    {"IVMRImagePresenterConfig9", &IID_IVMRImagePresenterConfig9},
    {"IVMRMixerBitmap9", &IID_IVMRMixerBitmap9},
    {"IVMRMixerControl9", &IID_IVMRMixerControl9},
    {"IVMRMonitorConfig9", &IID_IVMRMonitorConfig9},
    {"IVMRSurface9", &IID_IVMRSurface9},
    {"IVMRSurfaceAllocator9", &IID_IVMRSurfaceAllocator9},
    {"IVMRSurfaceAllocatorNotify9", &IID_IVMRSurfaceAllocatorNotify9},
    {"IVMRWindowlessControl9", &IID_IVMRWindowlessControl9},
    {"IVMRVideoStreamControl9", &IID_IVMRVideoStreamControl9},
    {"IEnumStreamBufferRecordingAttrib", nullptr},  // IID not available
    {"IStreamBufferConfigure", nullptr},  // IID not available
    {"IStreamBufferInitialize", nullptr},  // IID not available
    {"IStreamBufferMediaSeeking", nullptr},  // IID not available
    {"IStreamBufferRecComp", nullptr},  // IID not available
    {"IStreamBufferRecordControl", nullptr},  // IID not available
    {"IStreamBufferRecordingAttribute", nullptr},  // IID not available
    {"IStreamBufferSink", nullptr},  // IID not available
    {"IStreamBufferSource", nullptr},  // IID not available
    {"IPersist", &IID_IPersist},
    {"IPersistStream", &IID_IPersistStream},
    {"IPersistFile", &IID_IPersistFile},
    {"IPersistPropertyBag", &IID_IPersistPropertyBag},
    {"IPersistStorage", &IID_IPersistStorage},
    {"IMoniker", &IID_IMoniker},
    {"IStream", &IID_IStream},
    {"IBindCtx", &IID_IBindCtx},
    {"IRunningObjectTable", &IID_IRunningObjectTable},
    {"IPropertyBag", &IID_IPropertyBag},
    {"IPropertyPage", &IID_IPropertyPage},
    {"IPropertyPage2", &IID_IPropertyPage2},
    {"IPropertyStorage", &IID_IPropertyStorage},
    {"IServiceProvider", &IID_IServiceProvider},
    {"ISpecifyPropertyPages", &IID_ISpecifyPropertyPages},
    {"IErrorLog", &IID_IErrorLog},
    {"IErrorInfo", &IID_IErrorInfo},
    {"IStorage", &IID_IStorage},
};
static_assert(sizeof(kMwInterfaceNameTable) / sizeof(kMwInterfaceNameTable[0]) == 383);
}  // namespace mw
// clang-format on
