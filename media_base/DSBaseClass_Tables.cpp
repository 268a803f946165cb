// The constant tables of the media type helpers and the functions that describe media types,
// codecs and the interfaces of an object.
#include "media_base/DSBaseClass_Tables.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "amvideo.h"
#include "dvdmedia.h"
#include "media_base/DSBaseClass.h"
#include "mmreg.h"
#include "mwiids.h"
#include "uuids.h"

namespace {

// Keys are compared case-sensitively (DIVX and divx are two rows); several keys share a text.
// Rows whose registrant is not known to us say so rather than guess one.
constexpr mw::VideoCodecRow kVideoCodecs[] = {
    {"AEMI", "Array Microsystems - VideoONE MPEG-1 I-frame capture"},
    {"ALPH", "Ziracom Digital Communications Inc. - ALPH video format"},
    {"AMPG", "Array Microsystems - VideoONE MPEG"},
    {"ANIM", "Intel - RDX"},
    {"AUR2", "AuraVision Corporation - AuraVision Aura 2 codec, YUV 4:2:2"},
    {"AURA", "AuraVision Corporation - AuraVision Aura 1 codec, YUV 4:1:1"},
    {"BT20", "Brooktree Corporation - MediaStream codec"},
    {"BTCV", "Brooktree Corporation - composite video codec"},
    {"CC12", "Intel - YUV12 codec"},
    {"CDVC", "Canopus, Co., Ltd. - DV codec"},
    {"CGDI", "Microsoft - Office 97 Camcorder Video"},
    {"CHAM", "Winnov, Inc. - Caviara Champagne"},
    {"CM10", "CyberLink Corporation - MediaShow 1.0"},
    {"CPLA", "Weitek - 4:2:0 YUV planar"},
    {"CT10", "CyberLink Corporation - TalkingShow 1.0"},
    {"CVID", "Supermac - Cinepak"},
    {"CYUV", "Creative Labs, Inc. - Creative Labs YUV"},
    {"DIVX", "DivXNetworks, Inc. DivX video codec"},
    {"divx", "DivXNetworks, Inc. DivX video codec"},
    {"DJPG", "Data Translation, Inc. - Broadway 100 Motion JPEG codec"},
    {"DP16", "Matsushita Electric Industrial Co., Ltd. - YUV 4:1:1 with DPCM 6-bit compression"},
    {"DP18", "Matsushita Electric Industrial Co., Ltd. - YUV 4:1:1 with DPCM 8-bit compression"},
    {"DP26", "Matsushita Electric Industrial Co., Ltd. - YUV 4:2:2 with DPCM 6-bit compression"},
    {"DP28", "Matsushita Electric Industrial Co., Ltd. - YUV 4:2:2 with DPCM 8-bit compression"},
    {"DP96", "Matsushita Electric Industrial Co., Ltd. - YVU9 with DPCM 6-bit compression"},
    {"DP98", "Matsushita Electric Industrial Co., Ltd. - YVU9 with DPCM 8-bit compression"},
    {"DP9L",
     "Matsushita Electric Industrial Co., Ltd. - YVU9 with DPCM 6-bit compression and thinned-out"},
    {"DM4V", "Dicas Digital Image Coding GmbH - MPEG-4 video codec"},
    {"DSVD", "Microsoft - DirectShow DV"},
    {"DUCK", "Duck Corporation - TrueMotion 1.0"},
    {"dv25", "Matrox Electronic Systems Ltd. - DVCPRO codec"},
    {"dv50", "Matrox Electronic Systems Ltd. - DVCPRO50 codec"},
    {"DVE2", "InSoft, Inc. - DVE-2 videoconferencing codec"},
    {"DVH1", "Matsushita Electric Industrial Co., Ltd. - DVC Pro HD"},
    {"dvhd", "DV video, high definition (1125 lines at 60 Hz)"},
    {"DVNM", "Matsushita Electric Industrial Co., Ltd. - DVNM video format"},
    {"dvsd", "DV video, standard definition (525 lines at 29.97 Hz or 625 lines at 25 Hz)"},
    {"dvsl", "DV video, long play (compressed SD, 525 or 625 lines)"},
    {"DVX1", "Lucent Technologies - DVX1000SP video decoder"},
    {"DVX2", "Lucent Technologies - DVX2000S video decoder"},
    {"DVX3", "Lucent Technologies - DVX3000S video decoder"},
    {"DVCS", "FAST - DV-Master (DVCS)"},
    {"DVSD", "FAST - DV-Master (DVSD)"},
    {"DX50", "DivXNetworks, Inc. DivX 5 video codec"},
    {"DXTC", "Microsoft - DirectX texture compression"},
    {"EMWC", "EverAd, Inc. - Marquee WMA codec"},
    {"ETV1", "eTreppid Technologies, LLC - eTreppid video codec"},
    {"ETV2", "eTreppid Technologies, LLC - eTreppid video codec"},
    {"ETVC", "eTreppid Technologies, LLC - eTreppid video codec"},
    {"FLJP", "D-Vision - field-encoded Motion JPEG with LSI bitstream format"},
    {"FRWA", "SoftLab-NSK Ltd. - Forward Motion JPEG with alpha channel"},
    {"FRWD", "SoftLab-NSK Ltd. - Forward Motion JPEG"},
    {"FRWT", "SoftLab-NSK Ltd. - Forward Motion JPEG with alpha channel"},
    {"FVF1", "Iterated Systems, Inc. - Fractal Video Frame"},
    {"FXT1", "3dfx Interactive, Inc. - FXT1 texture compression"},
    {"H260", "Intel - Conferencing codec"},
    {"H261", "Intel - Conferencing codec"},
    {"H262", "Intel - Conferencing codec"},
    {"H263", "Intel - Conferencing codec"},
    {"H264", "Intel - Conferencing codec"},
    {"H265", "Intel - Conferencing codec"},
    {"H266", "Intel - Conferencing codec"},
    {"H267", "Intel - Conferencing codec"},
    {"H268", "Intel - Conferencing codec"},
    {"H269", "Intel - Conferencing codec"},
    {"I263", "Intel - I263 codec"},
    {"I420", "Intel - Indeo 4 codec"},
    {"IAN ", "Intel - RDX"},
    {"ICLB", "InSoft, Inc. - CellB videoconferencing codec"},
    {"IFO9", "Intel - Intermediate YUV9"},
    {"IF09", "Intel - Intermediate YUV9"},
    {"ILVC", "Intel - Layered Video"},
    {"ILVR", "Intel Corporation - ITU-T H.263+ compression"},
    {"IMAC", "Intel - hardware motion compensation"},
    {"IPDV", "I-O Data Device, Inc. - Giga AVI DV codec"},
    {"IRAW", "Intel - YUV uncompressed"},
    {"ISME", "Intel - next-generation video codec"},
    {"IUYV", "LEAD Technologies, Inc. - interlaced UYVY"},
    {"IV30", "Intel - Indeo Video 3 codec"},
    {"IV31", "Intel - Indeo Video 3 codec"},
    {"IV32", "Intel - Indeo Video 3 codec"},
    {"IV33", "Intel - Indeo Video 3 codec"},
    {"IV34", "Intel - Indeo Video 3 codec"},
    {"IV35", "Intel - Indeo Video 3 codec"},
    {"IV36", "Intel - Indeo Video 3 codec"},
    {"IV37", "Intel - Indeo Video 3 codec"},
    {"IV38", "Intel - Indeo Video 3 codec"},
    {"IV39", "Intel - Indeo Video 3 codec"},
    {"IV40", "Intel - Indeo Video 4 codec"},
    {"IV41", "Intel - Indeo Video 4 codec"},
    {"IV42", "Intel - Indeo Video 4 codec"},
    {"IV43", "Intel - Indeo Video 4 codec"},
    {"IV44", "Intel - Indeo Video 4 codec"},
    {"IV45", "Intel - Indeo Video 4 codec"},
    {"IV46", "Intel - Indeo Video 4 codec"},
    {"IV47", "Intel - Indeo Video 4 codec"},
    {"IV48", "Intel - Indeo Video 4 codec"},
    {"IV49", "Intel - Indeo Video 4 codec"},
    {"IV50", "Intel - Indeo Video 5 wavelet codec"},
    {"IY41", "LEAD Technologies, Inc. - interlaced Y41P"},
    {"IYU1", "Microsoft Corporation - IEEE 1394 digital camera, mode 2, 12-bit YUV 4:1:1"},
    {"IYU2", "Microsoft Corporation - IEEE 1394 digital camera, mode 2, 24-bit YUV 4:4:4"},
    {"JPEG", "Microsoft - Still Image JPEG DIB"},
    {"LEAD", "LEAD Technologies, Inc. - LEAD video codec"},
    {"LIA1", "Liafail, Inc. - Liafail codec"},
    {"LJPG", "LEAD Technologies, Inc. - LEAD Motion JPEG codec"},
    {"LSV0", "Infinop Inc. - Lightning Strike video codec"},
    {"LSVC", "Infinop Inc. - Lightning Strike constant bit rate video codec"},
    {"LSVW", "Infinop Inc. - Lightning Strike multiple bit rate video codec"},
    {"M101", "Matrox Electronic Systems Ltd. - uncompressed field-based YUV"},
    {"M4S2", "Microsoft - ISO MPEG-4 Video Codec V1.1"},
    {"MJPG", "Microsoft - Motion JPEG DIB Format"},
    {"MMES", "Matrox Electronic Systems Ltd. - MPEG-2 I-frame codec"},
    {"MMIF", "Matrox Electronic Systems Ltd. - MPEG-2 I-frame codec"},
    {"MP2A", "Media Excel Inc. - MPEG-2 audio"},
    {"MP2T", "Media Excel Inc. - MPEG-2 transport"},
    {"MP2V", "Media Excel Inc. - MPEG-2 video"},
    {"MP42", "Microsoft - MPEG-4 Video Codec V2"},
    {"MP43", "Microsoft - MPEG-4 Video Codec V3"},
    {"MP4A", "Media Excel Inc. - MPEG-4 audio"},
    {"MP4S", "Microsoft - ISO MPEG-4 Video Codec V1"},
    {"MP4T", "Media Excel Inc. - MPEG-4 transport"},
    {"MP4V", "Media Excel Inc. - MPEG-4 video"},
    {"MPEG", "Chromatic Research, Inc. - MPEG-1 video, I-frame"},
    {"MRCA", "FAST Multimedia AG - Mrcodec"},
    {"MRLE", "Microsoft - Run Length Encoding"},
    {"MSS1", "Microsoft - Screen Codec V1"},
    {"MSV1", "Microsoft - Video Codec V1"},
    {"MSVC", "Microsoft - Video 1"},
    {"MV10", "Nokia Mobile Phones - MVC video codec"},
    {"MV11", "Nokia Mobile Phones - MVC video codec"},
    {"MV12", "Nokia Mobile Phones - MVC video codec"},
    {"MV99", "Nokia Mobile Phones - MVC video codec"},
    {"MVC1", "Nokia Mobile Phones - MVC video codec"},
    {"MVC2", "Nokia Mobile Phones - MVC video codec"},
    {"MVC9", "Nokia Mobile Phones - MVC video codec"},
    {"NTN1", "Nogatech Ltd. - video compression 1"},
    {"NVDS", "NVIDIA Corporation - texture format"},
    {"NVHS", "NVIDIA Corporation - texture format"},
    {"NVHU", "NVIDIA Corporation - texture format"},
    {"NVS0", "NVIDIA Corporation - texture compression format"},
    {"NVS1", "NVIDIA Corporation - texture compression format"},
    {"NVS2", "NVIDIA Corporation - texture compression format"},
    {"NVS3", "NVIDIA Corporation - texture compression format"},
    {"NVS4", "NVIDIA Corporation - texture compression format"},
    {"NVS5", "NVIDIA Corporation - texture compression format"},
    {"NVS6", "NVIDIA Corporation - texture compression format"},
    {"NVS7", "NVIDIA Corporation - texture compression format"},
    {"NVS8", "NVIDIA Corporation - texture compression format"},
    {"NVS9", "NVIDIA Corporation - texture compression format"},
    {"NVT0", "NVIDIA Corporation - texture compression format"},
    {"NVT1", "NVIDIA Corporation - texture compression format"},
    {"NVT2", "NVIDIA Corporation - texture compression format"},
    {"NVT3", "NVIDIA Corporation - texture compression format"},
    {"NVT4", "NVIDIA Corporation - texture compression format"},
    {"NVT5", "NVIDIA Corporation - texture compression format"},
    {"NVT6", "NVIDIA Corporation - texture compression format"},
    {"NVT7", "NVIDIA Corporation - texture compression format"},
    {"NVT8", "NVIDIA Corporation - texture compression format"},
    {"NVT9", "NVIDIA Corporation - texture compression format"},
    {"NY12", "Nogatech Ltd. - YUV 12 format"},
    {"NYUV", "Nogatech Ltd. - YUV 4:2:2 format"},
    {"pcl2", "Pinnacle Systems, Inc. - RL video codec"},
    {"PCLE", "Pinnacle Systems, Inc. - Studio 400 video codec"},
    {"PHMO", "IBM Corporation - Photomotion"},
    {"qpeq", "Q-Team - QPEG 1.1 video codec"},
    {"QPEG", "Q-Team - QPEG 1.0 video codec"},
    {"RGBT", "Computer Concepts Ltd. - 32-bit support"},
    {"RIVA", "NVIDIA Corporation - swizzled texture format"},
    {"RLND", "Roland Corporation - video codec"},
    {"RT21", "Intel - Indeo 2.1"},
    {"RVX ", "Intel - RDX"},
    {"S263", "Sorenson Vision, Inc. - Sorenson Vision H.263"},
    {"SCCD", "Luminositi, Inc. - SoftCam codec"},
    {"SDCC", "Sun Communications, Inc. - digital camera codec"},
    {"SFMC", "Crystal Net Corporation - SFM codec"},
    {"SMSC", "Radius Inc. - proprietary codec"},
    {"SMSD", "Radius Inc. - proprietary codec"},
    {"SPLC", "Splash Studios - ACM audio codec"},
    {"SQZ2", "Microsoft - VXtreme video codec V2"},
    {"STVA", "STMicroelectronics - CMOS imager data (Bayer)"},
    {"STVB", "STMicroelectronics - CMOS imager data (nudged Bayer)"},
    {"STVC", "STMicroelectronics - CMOS imager data (bunched)"},
    {"SV10", "Sorenson Media, Inc. - Sorenson Video R1"},
    {"SV3M", "Sorenson Vision, Inc. - Sorenson SV3 module decoder"},
    {"TLMS", "TeraLogic, Inc. - motion intraframe codec"},
    {"TLST", "TeraLogic, Inc. - motion intraframe codec"},
    {"TM20", "Duck Corporation - TrueMotion 2.0"},
    {"TMIC", "TeraLogic, Inc. - motion intraframe codec"},
    {"TMOT", "Horizons Technology, Inc. - TrueMotion video compression"},
    {"TR20", "Duck Corporation - TrueMotion RT 2.0"},
    {"ULTI", "IBM Corporation - Ultimotion"},
    {"UYVP",
     "Evans & Sutherland - YCbCr 4:2:2 extended precision, 10 bits per component (U0Y0V0Y1)"},
    {"V261", "Lucent Technologies - VX3000S video codec"},
    {"V422", "Vitec Multimedia - 24-bit YUV 4:2:2 (CCIR 601)"},
    {"V655", "Vitec Multimedia - 16-bit YUV 4:2:2"},
    {"VCR1", "ATI Technologies Inc. - VCR 1.0"},
    {"VCR2", "ATI Technologies Inc. - VCR 2.0 (MPEG YV12)"},
    {"VCR3", "ATI Technologies Inc. - VCR 3.0"},
    {"VCR4", "ATI Technologies Inc. - VCR 4.0"},
    {"VCR5", "ATI Technologies Inc. - VCR 5.0"},
    {"VCR6", "ATI Technologies Inc. - VCR 6.0"},
    {"VCR7", "ATI Technologies Inc. - VCR 7.0"},
    {"VCR8", "ATI Technologies Inc. - VCR 8.0"},
    {"VCR9", "ATI Technologies Inc. - VCR 9.0"},
    {"VCWV", "VideoCon - wavelet video codec"},
    {"VDCT", "Vitec Multimedia - Video Maker Pro DIB"},
    {"VIDS", "Vitec Multimedia - YUV 4:2:2 CCIR 601 for V422"},
    {"VGPX", "Alaris, Inc. - VGPixel video"},
    {"VIVO", "Vivo Software, Inc. - H.263 video codec"},
    {"VIXL", "miro Computer Products AG - Video XL codec"},
    {"VJPG", "Video Communication Systems - JPEG-based compression for RGB bitmaps"},
    {"VLV1", "VideoLogic - VLCAP video codec"},
    {"VQC1", "ViewQuest Technologies Inc. - VQ codec 1"},
    {"VQC2", "ViewQuest Technologies Inc. - VQ codec 2"},
    {"VQJP", "ViewQuest Technologies Inc. - VQ630 dual-mode digital camera"},
    {"VQS4", "ViewQuest Technologies Inc. - VQ110 digital video camera"},
    {"VTC1", "VTC1 video format (registrant not recorded)"},
    {"VTC2", "VTC2 video format (registrant not recorded)"},
    {"VTC3", "VTC3 video format (registrant not recorded)"},
    {"VTC4", "VTC4 video format (registrant not recorded)"},
    {"VTC5", "VTC5 video format (registrant not recorded)"},
    {"VTC6", "VTC6 video format (registrant not recorded)"},
    {"VTC7", "VTC7 video format (registrant not recorded)"},
    {"VTC8", "VTC8 video format (registrant not recorded)"},
    {"VTC9", "VTC9 video format (registrant not recorded)"},
    {"VX1K", "Lucent Technologies - VX1000S video codec"},
    {"VX2K", "Lucent Technologies - VX2000S video codec"},
    {"VXSP", "Lucent Technologies - VX1000SP video codec"},
    {"WBVC", "Winbond Electronics Corporation - W9960 codec"},
    {"WINX", "Winnov, Inc. - software compression"},
    {"WJPG", "Winbond Electronics Corporation - Motion JPEG bitstream format"},
    {"WMV1", "Microsoft Corporation Windows Media Video V7"},
    {"WMV2", "Microsoft Corporation Windows Media Video V8"},
    {"WMV3", "Microsoft Corporation Windows Media Video V9 Series"},
    {"WNV1", "Winnov, Inc. - hardware compression"},
    {"WPY2", "Winnov, Inc. - WPY2 video format"},
    {"WZCD", "CORE Co. Ltd. - iScan"},
    {"WZDC", "CORE Co. Ltd. - iSnap"},
    {"XJPG", "Xirlink, Inc. - JPEG-like compressor"},
    {"XLV0", "NetXL Inc. - XL video decoder"},
    {"XWV0", "XiWave Inc. - XiWave video codec"},
    {"XWV1", "XiWave Inc. - XiWave video codec"},
    {"XWV2", "XiWave Inc. - XiWave video codec"},
    {"XWV3", "XiWave Inc. - XiWave video codec"},
    {"XWV4", "XiWave Inc. - XiWave video codec"},
    {"XWV5", "XiWave Inc. - XiWave video codec"},
    {"XWV6", "XiWave Inc. - XiWave video codec"},
    {"XWV7", "XiWave Inc. - XiWave video codec"},
    {"XWV8", "XiWave Inc. - XiWave video codec"},
    {"XWV9", "XiWave Inc. - XiWave video codec"},
    {"YC12", "Intel - YUV12 codec"},
    {"YCCK", "YCCK video format (registrant not recorded)"},
    {"YU92", "Intel - YUV"},
    {"YUV8", "Winnov, Inc. - Caviar YUV8"},
    {"YUV9", "Intel - YUV9"},
    {"YUYP", "Evans & Sutherland - YUV 4:2:2 extended precision, 10 bits per component"},
    {"YUYV", "Canopus, Co., Ltd. Canopus YUYV compressor "},
    {"ZPEG", "Metheus - Video Zipper"},
    {"ZPG1", "ZPG1 video format (registrant not recorded)"},
    {"ZPG2", "ZPG2 video format (registrant not recorded)"},
    {"ZPG3", "ZPG3 video format (registrant not recorded)"},
    {"ZPG4", "ZPG4 video format (registrant not recorded)"},
};
static_assert(std::size(kVideoCodecs) == 263);

// Not sorted by tag: rows were added as tags were registered, and 0x000B came last.
constexpr mw::AudioCodecRow kAudioCodecs[] = {
    {0x0001, "PCM audio in integer format"},
    {0x0002, "Microsoft Corporation. adaptive PCM"},
    {0x0003, "Microsoft Corporation. PCM audio in IEEE floating-point format"},
    {0x0004, "Compaq Computer Corporation - VSELP"},
    {0x0005, "IBM Corporation - CVSD"},
    {0x0006, "Microsoft Corporation - A-law"},
    {0x0007, "Microsoft Corporation - mu-law"},
    {0x0008, "Microsoft Corporation - DTS"},
    {0x0009, "Microsoft Corporation - DRM"},
    {0x000A, "Microsoft Corporation - Windows Media Audio Voice 9"},
    {0x0010, "OKI - ADPCM"},
    {0x0011, "Intel Corporation - DVI/IMA ADPCM"},
    {0x0012, "Videologic - MediaSpace ADPCM"},
    {0x0013, "Sierra Semiconductor Corporation - ADPCM"},
    {0x0014, "Antex Electronics Corporation - G.723 ADPCM"},
    {0x0015, "DSP Solutions, Inc. - DIGISTD"},
    {0x0016, "DSP Solutions, Inc. - DIGIFIX"},
    {0x0017, "Dialogic Corporation - OKI ADPCM"},
    {0x0018, "Media Vision, Inc. - ADPCM"},
    {0x0019, "Hewlett-Packard Company - CU codec"},
    {0x001A, "Hewlett-Packard Company - Dynamic Voice"},
    {0x0020, "Yamaha Corporation of America - ADPCM"},
    {0x0021, "Speech Compression - Sonarc"},
    {0x0022, "DSP Group, Inc. - TrueSpeech"},
    {0x0023, "Echo Speech Corporation - EchoSC1"},
    {0x0024, "Virtual Music, Inc. - AudioFile AF36"},
    {0x0025, "Audio Processing Technology - APTX"},
    {0x0026, "Virtual Music, Inc. - AudioFile AF10"},
    {0x0027, "Aculab plc - Prosody 1612"},
    {0x0028, "Merging Technologies S.A. - LRC"},
    {0x0030, "Dolby Laboratories - AC-2"},
    {0x0031, "Microsoft Corporation - GSM 6.10"},
    {0x0032, "Microsoft Corporation - MSN Audio"},
    {0x0033, "Antex Electronics Corporation - ADPCME"},
    {0x0034, "Control Resources Limited - VQLPC"},
    {0x0035, "DSP Solutions, Inc. - DIGIREAL"},
    {0x0036, "DSP Solutions, Inc. - DIGIADPCM"},
    {0x0037, "Control Resources Limited - CR10"},
    {0x0038, "Natural MicroSystems - VBX ADPCM"},
    {0x0039, "Crystal Semiconductor - IMA ADPCM"},
    {0x003A, "Echo Speech Corporation - EchoSC3"},
    {0x003B, "Rockwell International - ADPCM"},
    {0x003C, "Rockwell International - DIGITALK"},
    {0x003D, "Xebec Multimedia Solutions Limited - Xebec"},
    {0x0040, "Antex Electronics Corporation - G.721 ADPCM"},
    {0x0041, "Antex Electronics Corporation - G.728 CELP"},
    {0x0042, "Microsoft Corporation - G.723"},
    {0x0043, "Intel Corporation - G.723.1"},
    {0x0044, "Intel Corporation - G.729"},
    {0x0045, "Sharp - G.726"},
    {0x0050, "Microsoft Corporation - MPEG"},
    {0x0052, "InSoft, Inc. - RT24"},
    {0x0053, "InSoft, Inc. - PAC"},
    {0x0055, "ISO/MPEG Layer 3 format tag"},
    {0x0059, "Lucent Technologies - G.723"},
    {0x0060, "Cirrus Logic - Cirrus"},
    {0x0061, "ESS Technology - ESPCM"},
    {0x0062, "Voxware Inc - Voxware"},
    {0x0063, "Canopus, Co., Ltd. - ATRAC"},
    {0x0064, "APICOM - G.726 ADPCM"},
    {0x0065, "APICOM - G.722 ADPCM"},
    {0x0067, "Microsoft Corporation - DSAT display"},
    {0x0069, "Voxware Inc - byte aligned"},
    {0x0070, "Voxware Inc - AC8"},
    {0x0071, "Voxware Inc - AC10"},
    {0x0072, "Voxware Inc - AC16"},
    {0x0073, "Voxware Inc - AC20"},
    {0x0074, "Voxware Inc - MetaVoice RT24"},
    {0x0075, "Voxware Inc - MetaSound RT29"},
    {0x0076, "Voxware Inc - RT29HW"},
    {0x0077, "Voxware Inc - VR12"},
    {0x0078, "Voxware Inc - VR18"},
    {0x0079, "Voxware Inc - TQ40"},
    {0x007A, "Voxware Inc - SC3"},
    {0x007B, "Voxware Inc - SC3.1"},
    {0x0080, "Softsound, Ltd. - Softsound"},
    {0x0081, "Voxware Inc - TQ60"},
    {0x0082, "Microsoft Corporation - MSRT24"},
    {0x0083, "AT&T Labs, Inc. - G.729A"},
    {0x0084, "Motion Pixels - MVI2"},
    {0x0085, "DataFusion Systems (Pty) (Ltd) - G.726"},
    {0x0086, "DataFusion Systems (Pty) (Ltd) - GSM 6.10"},
    {0x0088, "Iterated Systems, Inc. - ISIAudio"},
    {0x0089, "OnLive! Technologies, Inc. - OnLive"},
    {0x008A, "Multitude Inc. - FT SX20"},
    {0x008B, "Infocom - ITS G.721 ADPCM"},
    {0x008C, "Convedia Corporation - G.729"},
    {0x008D, "Congruency Inc. - Congruency"},
    {0x0091, "Siemens Business Communications Systems - SBC24"},
    {0x0092, "Sonic Foundry - Dolby AC-3 over S/PDIF"},
    {0x0093, "MediaSonic - G.723"},
    {0x0094, "Aculab plc - Prosody 8 kbps"},
    {0x0097, "ZyXEL Communications, Inc. - ADPCM"},
    {0x0098, "Philips Speech Processing - LPCBB"},
    {0x0099, "Studer Professional Audio AG - Packed"},
    {0x00A0, "Malden Electronics Ltd. - PhonyTalk"},
    {0x00A1, "Racal Recorders - GSM"},
    {0x00A2, "Racal Recorders - G.720.a"},
    {0x00A3, "Racal Recorders - G.723.1"},
    {0x00A4, "Racal Recorders - Tetra ACELP"},
    {0x00B0, "NEC Corporation - AAC"},
    {0x0100, "Rhetorex Inc. - ADPCM"},
    {0x0101, "BeCubed Software Inc. - IRAT"},
    {0x0111, "Vivo Software - G.723"},
    {0x0112, "Vivo Software - Siren"},
    {0x0120, "Philips Speech Processing - CELP"},
    {0x0121, "Philips Speech Processing - Grundig"},
    {0x0123, "Digital Equipment Corporation - G.723"},
    {0x0125, "Sanyo Electric Co., Ltd. - LD ADPCM"},
    {0x0130, "Sipro Lab Telecom Inc. - ACELP.net"},
    {0x0131, "Sipro Lab Telecom Inc. - ACELP 4800"},
    {0x0132, "Sipro Lab Telecom Inc. - ACELP 8V3"},
    {0x0133, "Sipro Lab Telecom Inc. - G.729"},
    {0x0134, "Sipro Lab Telecom Inc. - G.729A"},
    {0x0135, "Sipro Lab Telecom Inc. - Kelvin"},
    {0x0136, "VoiceAge Corporation - AMR"},
    {0x0140, "Dictaphone Corporation - G.726 ADPCM"},
    {0x0141, "Dictaphone Corporation - CELP68"},
    {0x0142, "Dictaphone Corporation - CELP54"},
    {0x0150, "Qualcomm, Inc. - PureVoice"},
    {0x0151, "Qualcomm, Inc. - HalfRate"},
    {0x0155, "Ring Zero Systems, Inc. - TUBGSM"},
    {0x0160, "Microsoft Corporation. - MSAUDIO1"},
    {0x0161, "Microsoft Corporation. - MSAUDIO2"},
    {0x0162, "Microsoft Corporation. - WMA professional"},
    {0x0170, "Unisys Corporation - NAP ADPCM"},
    {0x0171, "Unisys Corporation - NAP u-law"},
    {0x0172, "Unisys Corporation - NAP A-law"},
    {0x0173, "Unisys Corporation - NAP 16K"},
    {0x0174, "SyCom Technologies - ACM SYC008"},
    {0x0175, "SyCom Technologies - ACM SYC701 G.726L"},
    {0x0176, "SyCom Technologies - ACM SYC701 CELP54"},
    {0x0177, "SyCom Technologies - ACM SYC701 CELP68"},
    {0x0178, "Knowledge Adventure, Inc. - ADPCM"},
    {0x0180, "Fraunhofer IIS - MPEG-2 AAC"},
    {0x0190, "Digital Theatre Systems, Inc. - DTS DS"},
    {0x1979, "Innings Telecom Inc. - ADPCM"},
    {0x0200, "Creative Labs, Inc. - ADPCM"},
    {0x0202, "Creative Labs, Inc. - FastSpeech8"},
    {0x0203, "Creative Labs, Inc. - FastSpeech10"},
    {0x0210, "UHER informatic GmbH - ADPCM"},
    {0x0220, "Quarterdeck Corporation - Quarterdeck"},
    {0x0230, "I-link Worldwide - VC"},
    {0x0240, "Aureal Semiconductor - Raw Sport"},
    {0x0250, "Interactive Products, Inc. - HSX"},
    {0x0251, "Interactive Products, Inc. - RPELP"},
    {0x0260, "Consistent Software - CS2"},
    {0x0270, "Sony Corporation - SCX"},
    {0x0271, "Sony Corporation - SCY"},
    {0x0272, "Sony Corporation - ATRAC3"},
    {0x0273, "Sony Corporation - SPC"},
    {0x0280, "Telum Inc. - Telum audio"},
    {0x0281, "Telum Inc. - Telum IA audio"},
    {0x0285, "Norcom Electronics Corporation - Norcom Voice Systems ADPCM"},
    {0x0300, "Fujitsu Corporation - FM Towns Snd"},
    {0x0301, "Fujitsu Corporation - unnamed format"},
    {0x0302, "Fujitsu Corporation - unnamed format"},
    {0x0303, "Fujitsu Corporation - unnamed format"},
    {0x0304, "Fujitsu Corporation - unnamed format"},
    {0x0305, "Fujitsu Corporation - unnamed format"},
    {0x0306, "Fujitsu Corporation - unnamed format"},
    {0x0307, "Fujitsu Corporation - unnamed format"},
    {0x0308, "Fujitsu Corporation - unnamed format"},
    {0x0350, "Micronas Semiconductors, Inc. - Micronas"},
    {0x0351, "Micronas Semiconductors, Inc. - CELP833"},
    {0x0400, "Brooktree Corporation - BTV digital"},
    {0x0450, "QDesign Corporation - QDesign Music"},
    {0x0680, "AT&T Labs, Inc. - VME VMPCM"},
    {0x0681, "AT&T Labs, Inc. - TPC"},
    {0x1000, "Ing. C. Olivetti & C., S.p.A. - OLIGSM"},
    {0x1001, "Ing. C. Olivetti & C., S.p.A. - OLIADPCM"},
    {0x1002, "Ing. C. Olivetti & C., S.p.A. - OLICELP"},
    {0x1003, "Ing. C. Olivetti & C., S.p.A. - OLISBC"},
    {0x1004, "Ing. C. Olivetti & C., S.p.A. - OLIOPR"},
    {0x1100, "Lernout & Hauspie - LH codec"},
    {0x1101, "Lernout & Hauspie - CELP"},
    {0x1102, "Lernout & Hauspie - SBC8"},
    {0x1103, "Lernout & Hauspie - SBC12"},
    {0x1104, "Lernout & Hauspie - SBC16"},
    {0x1400, "Norris Communications, Inc. - Norris"},
    {0x1500, "AT&T Labs, Inc. - SoundSpace Musicompress"},
    {0x0163, "Microsoft Corporation. - WMA lossless"},
    {0x0164, "Microsoft Corporation. - WMA over S/PDIF"},
    {0x1971, "Sonic Foundry - lossless"},
    {0x2000, "FAST Multimedia AG - DVM"},
    {0x4143, "Divio, Inc. - MPEG-4 AAC"},
    {0x4201, "Nokia - adaptive multirate"},
    {0x4243, "Divio, Inc. - G.726"},
    {0x7000, "3COM Corporation - NBX"},
    {0x7A21, "Adaptive multirate (GSM AMR, constant bit rate)"},
    {0x7A22, "Adaptive multirate with silence detection (GSM AMR, variable bit rate)"},
    {0xA100, "Comverse Infosys Ltd. - G.723.1"},
    {0xA101, "Comverse Infosys Ltd. - AVQSBC"},
    {0xA102, "Comverse Infosys Ltd. - SBC"},
    {0xA103, "Symbol Technologies - G.729A"},
    {0xA104, "VoiceAge Corporation - AMR WB"},
    {0xA105, "Ingenient Technologies, Inc. - G.726"},
    {0xA106, "ISO/MPEG-4 advanced audio Coding"},
    {0xA107, "Encore Software - G.726"},
    {0x000B, "Microsoft Corporation. - Windows Media RT Voice"},
};
static_assert(std::size(kAudioCodecs) == 200);

static_assert(std::size(mw::kMwInterfaceNameTable) == 383);

// A subtype of the FourCC form: Data1 is the code, the rest is the fixed base.
constexpr GUID FourCCSubtype(uint32_t code) {
    return GUID{code, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

struct GuidLabel {
    const GUID* guid;
    const char* label;
};

const char* MajorTypeLabel(const GUID& major) {
    static const GuidLabel labels[] = {
        {&MEDIATYPE_AnalogAudio, "AnalogAudio"},
        {&MEDIATYPE_AnalogVideo, "AnalogVideo"},
        {&MEDIATYPE_Audio, "Audio"},
        {&MEDIATYPE_AUXLine21Data, "AUXLine21Data"},
        {&MEDIATYPE_File, "File"},
        {&MEDIATYPE_Interleaved, "Interleaved"},
        {&MEDIATYPE_LMRT, "LMRT"},
        {&MEDIATYPE_Midi, "Midi"},
        {&MEDIATYPE_MPEG2_PES, "MPEG2_PES"},
        {&MEDIATYPE_ScriptCommand, "ScriptCommand"},
        {&MEDIATYPE_Stream, "Stream"},
        {&MEDIATYPE_Text, "Text"},
        {&MEDIATYPE_Timecode, "Timecode"},
        {&MEDIATYPE_URL_STREAM, "URL_STREAM"},
        {&MEDIATYPE_Video, "Video"},
    };
    for (const GuidLabel& row : labels)
        if (IsEqualGUID(major, *row.guid)) return row.label;
    return "UnKnown ";
}

// Three FourCC subtypes that the platform headers do not name.
constexpr GUID kSubtypeMsMpeg4 = FourCCSubtype(0x3234504D);
constexpr GUID kSubtypeDivx = FourCCSubtype(0x58564944);
constexpr GUID kSubtypeVoxwareMetaSound = FourCCSubtype(0x00000075);

const char* SubtypeLabel(const GUID& subtype) {
    // Tested in this order; the first match names the subtype.
    static const GuidLabel labels[] = {
        {&MEDIASUBTYPE_CLPL, "CLPL"},
        {&MEDIASUBTYPE_YUYV, "YUYV"},
        {&MEDIASUBTYPE_IYUV, "IYUV"},
        {&MEDIASUBTYPE_YVU9, "YVU9"},
        {&MEDIASUBTYPE_Y411, "Y411"},
        {&MEDIASUBTYPE_Y41P, "Y41P"},
        {&MEDIASUBTYPE_YUY2, "YUY2"},
        {&MEDIASUBTYPE_YVYU, "YVYU"},
        {&MEDIASUBTYPE_UYVY, "UYVY"},
        {&MEDIASUBTYPE_Y211, "Y211"},
        {&MEDIASUBTYPE_YV12, "YV12"},
        {&MEDIASUBTYPE_CLJR, "CLJR"},
        {&MEDIASUBTYPE_IF09, "IF09"},
        {&MEDIASUBTYPE_CPLA, "CPLA"},
        {&MEDIASUBTYPE_MJPG, "MJPG"},
        {&MEDIASUBTYPE_TVMJ, "TVMJ"},
        {&MEDIASUBTYPE_WAKE, "WAKE"},
        {&MEDIASUBTYPE_CFCC, "CFCC"},
        {&MEDIASUBTYPE_IJPG, "IJPG"},
        {&MEDIASUBTYPE_Plum, "Plum"},
        {&MEDIASUBTYPE_DVCS, "DVCS"},
        {&MEDIASUBTYPE_DVSD, "DVSD"},
        {&MEDIASUBTYPE_MDVF, "MDVF"},
        {&MEDIASUBTYPE_RGB1, "RGB1"},
        {&MEDIASUBTYPE_RGB4, "RGB4"},
        {&MEDIASUBTYPE_RGB8, "RGB8"},
        {&MEDIASUBTYPE_RGB565, "RGB565"},
        {&MEDIASUBTYPE_RGB555, "RGB555"},
        {&MEDIASUBTYPE_RGB24, "RGB24"},
        {&MEDIASUBTYPE_RGB32, "RGB32"},
        {&MEDIASUBTYPE_ARGB32, "ARGB32"},
        {&MEDIASUBTYPE_Overlay, "Overlay"},
        {&MEDIASUBTYPE_MPEG1Packet, "MPEG1Packet"},
        {&MEDIASUBTYPE_MPEG1Payload, "MPEG1Payload"},
        {&MEDIASUBTYPE_MPEG1AudioPayload, "MPEG1AudioPayload"},
        {&MEDIASUBTYPE_MPEG1System, "MPEG1System"},
        {&MEDIASUBTYPE_MPEG1VideoCD, "MPEG1VideoCD"},
        {&MEDIASUBTYPE_MPEG1Video, "MPEG1Video"},
        {&MEDIASUBTYPE_MPEG1Audio, "MPEG1Audio"},
        {&MEDIASUBTYPE_Avi, "Avi"},
        {&MEDIASUBTYPE_Asf, "Asf"},
        {&MEDIASUBTYPE_QTMovie, "QTMovie"},
        {&MEDIASUBTYPE_QTRpza, "QTRpza"},
        {&MEDIASUBTYPE_QTSmc, "QTSmc"},
        {&MEDIASUBTYPE_QTRle, "QTRle"},
        {&MEDIASUBTYPE_QTJpeg, "QTJpeg"},
        {&MEDIASUBTYPE_PCMAudio_Obsolete, "PCMAudio_Obsolete"},
        {&MEDIASUBTYPE_PCM, "PCM"},
        {&MEDIASUBTYPE_WAVE, "WAVE"},
        {&MEDIASUBTYPE_AU, "AU"},
        {&MEDIASUBTYPE_AIFF, "AIFF"},
        // The lower-case DV subtype: its label keeps the trailing underscore.
        {&MEDIASUBTYPE_dvsd, "dvsd_"},
        {&MEDIASUBTYPE_dvhd, "dvhd"},
        {&MEDIASUBTYPE_dvsl, "dvsl"},
        {&MEDIASUBTYPE_Line21_BytePair, "Line21_BytePair"},
        {&MEDIASUBTYPE_Line21_GOPPacket, "Line21_GOPPacket"},
        {&MEDIASUBTYPE_Line21_VBIRawData, "Line21_VBIRawData"},
        {&MEDIASUBTYPE_DRM_Audio, "DRM_Audio"},
        {&MEDIASUBTYPE_IEEE_FLOAT, "IEEE_FLOAT"},
        {&MEDIASUBTYPE_DOLBY_AC3_SPDIF, "DOLBY_AC3_SPDIF"},
        {&MEDIASUBTYPE_RAW_SPORT, "RAW_SPORT"},
        {&MEDIASUBTYPE_SPDIF_TAG_241h, "SPDIF_TAG_241h"},
        {&MEDIASUBTYPE_DssVideo, "DssVideo"},
        {&MEDIASUBTYPE_DssAudio, "DssAudio"},
        {&MEDIASUBTYPE_VPVideo, "VPVideo"},
        {&MEDIASUBTYPE_VPVBI, "VPVBI"},
        {&MEDIASUBTYPE_AnalogVideo_NTSC_M, "AnalogVideo_NTSC_M"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_B, "AnalogVideo_PAL_B"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_D, "AnalogVideo_PAL_D"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_G, "AnalogVideo_PAL_G"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_H, "AnalogVideo_PAL_H"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_I, "AnalogVideo_PAL_I"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_M, "AnalogVideo_PAL_M"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_N, "AnalogVideo_PAL_N"},
        {&MEDIASUBTYPE_AnalogVideo_PAL_N_COMBO, "AnalogVideo_PAL_N_COMBO"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_B, "AnalogVideo_SECAM_B"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_D, "AnalogVideo_SECAM_D"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_G, "AnalogVideo_SECAM_G"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_H, "AnalogVideo_SECAM_H"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_K, "AnalogVideo_SECAM_K"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_K1, "AnalogVideo_SECAM_K1"},
        {&MEDIASUBTYPE_AnalogVideo_SECAM_L, "AnalogVideo_SECAM_L"},
        {&MEDIASUBTYPE_MPEG2_VIDEO, "MPEG2_VIDEO"},
        {&MEDIASUBTYPE_MPEG2_PROGRAM, "MPEG2_PROGRAM"},
        {&MEDIASUBTYPE_MPEG2_TRANSPORT, "MPEG2_TRANSPORT"},
        {&MEDIASUBTYPE_MPEG2_AUDIO, "MPEG2_AUDIO"},
        {&MEDIASUBTYPE_DOLBY_AC3, "DOLBY_AC3"},
        {&MEDIASUBTYPE_DVD_SUBPICTURE, "DVD_SUBPICTURE"},
        {&MEDIASUBTYPE_DVD_LPCM_AUDIO, "DVD_LPCM_AUDIO"},
        {&MEDIASUBTYPE_DTS, "DTS"},
        {&MEDIASUBTYPE_SDDS, "SDDS"},
        {&MEDIASUBTYPE_DVD_NAVIGATION_PCI, "PCI"},
        {&MEDIASUBTYPE_DVD_NAVIGATION_DSI, "DSI"},
        {&MEDIASUBTYPE_DVD_NAVIGATION_PROVIDER, "PROVIDER"},
        {&kSubtypeMsMpeg4, "MS-MPEG4"},
        {&kSubtypeDivx, "DIVX"},
        {&kSubtypeVoxwareMetaSound, "VOXWARE_MetaSound"},
    };
    for (const GuidLabel& row : labels)
        if (IsEqualGUID(subtype, *row.guid)) return row.label;
    return "UnKnown ";
}

const char* WaveTagLabel(WORD tag) {
    struct TagLabel {
        WORD tag;
        const char* label;
    };
    static const TagLabel labels[] = {
        {0x0001, "PCM"},
        {0x0002, "ADPCM"},
        {0x0003, "IEEE_FLOAT"},
        {0x0005, "IBM_CVSD"},
        {0x0006, "ALAW"},
        {0x0007, "MULAW"},
        {0x0010, "OKI_ADPCM"},
        {0x0011, "DVI_ADPCM"},
        {0x0012, "MEDIASPACE_ADPCM"},
        {0x0013, "SIERRA_ADPCM"},
        {0x0014, "G723_ADPCM"},
        {0x0015, "DIGISTD"},
        {0x0016, "DIGIFIX"},
        {0x0017, "DIALOGIC_OKI_ADPCM"},
        {0x0018, "MEDIAVISION_ADPCM"},
        {0x0020, "YAMAHA_ADPCM"},
        {0x0021, "SONARC"},
        {0x0022, "DSPGROUP_TRUESPEECH"},
        {0x0023, "ECHOSC1"},
        {0x0024, "AUDIOFILE_AF36"},
        {0x0025, "APTX"},
        {0x0026, "AUDIOFILE_AF10"},
        {0x0030, "DOLBY_AC2"},
        {0x0031, "GSM610"},
        {0x0032, "MSNAUDIO"},
        {0x0033, "ANTEX_ADPCME"},
        {0x0034, "CONTROL_RES_VQLPC"},
        {0x0035, "DIGIREAL"},
        {0x0036, "DIGIADPCM"},
        {0x0037, "CONTROL_RES_CR10"},
        {0x0038, "NMS_VBXADPCM"},
        {0x0039, "CS_IMAADPCM"},
        {0x003A, "ECHOSC3"},
        {0x003B, "ROCKWELL_ADPCM"},
        {0x003C, "ROCKWELL_DIGITALK"},
        {0x003D, "XEBEC"},
        {0x0040, "G721_ADPCM"},
        {0x0041, "G728_CELP"},
        {0x0050, "MPEG"},
        {0x0055, "MPEGLAYER3"},
        {0x0060, "CIRRUS"},
        {0x0061, "ESPCM"},
        {0x0062, "VOXWARE"},
        {0x0063, "CANOPUS_ATRAC"},
        {0x0064, "G726_ADPCM"},
        {0x0065, "G722_ADPCM"},
        {0x0066, "DSAT"},
        {0x0067, "DSAT_DISPLAY"},
        {0x0075, "VOXWARE"},
        {0x0080, "SOFTSOUND"},
        {0x0100, "RHETOREX_ADPCM"},
        {0x0200, "CREATIVE_ADPCM"},
        {0x0202, "CREATIVE_FASTSPEECH8"},
        {0x0203, "CREATIVE_FASTSPEECH10"},
        {0x0220, "QUARTERDECK"},
        {0x0300, "FM_TOWNS_SND"},
        {0x0400, "BTV_DIGITAL"},
        {0x1000, "OLIGSM"},
        {0x1001, "OLIADPCM"},
        {0x1002, "OLICELP"},
        {0x1003, "OLISBC"},
        {0x1004, "OLIOPR"},
        {0x1100, "LH_CODEC"},
        {0x1400, "NORRIS"},
    };
    for (const TagLabel& row : labels)
        if (row.tag == tag) return row.label;
    return "Unknown";
}

// The bitmap header of a video format block as "<compression> <width>x<height>, <bits> bits";
// the MPEG forms write a capital X. The compression text is taken whole, control bytes and all.
std::string BitmapText(const BITMAPINFOHEADER& header, char times) {
    char size[64];
    std::snprintf(size, sizeof size, " %d%c%d, %d bits", static_cast<int>(header.biWidth), times,
                  static_cast<int>(header.biHeight), static_cast<int>(header.biBitCount));
    return DSGetFOURCC(header.biCompression) + size;
}

// A format block that can be read as a T. A block shorter than the record is read as missing
// rather than read past its end.
template <class T>
const T* FormatBlock(const AM_MEDIA_TYPE& type) {
    if (type.cbFormat == 0 || type.pbFormat == nullptr || type.cbFormat < sizeof(T)) return nullptr;
    return reinterpret_cast<const T*>(type.pbFormat);
}

// The part of a wave format block that the description reads: everything before cbSize.
constexpr ULONG kWaveFieldsRead = offsetof(WAVEFORMATEX, cbSize);

std::string FormatText(const AM_MEDIA_TYPE& type) {
    const GUID& format = type.formattype;
    if (IsEqualGUID(format, FORMAT_VideoInfo)) {
        std::string text = "VideoInfo ";
        if (const auto* info = FormatBlock<VIDEOINFOHEADER>(type))
            text += BitmapText(info->bmiHeader, 'x');
        return text;
    }
    if (IsEqualGUID(format, FORMAT_VideoInfo2)) {
        std::string text = "VideoInfo2 ";
        if (const auto* info = FormatBlock<VIDEOINFOHEADER2>(type))
            text += BitmapText(info->bmiHeader, 'x');
        return text;
    }
    if (IsEqualGUID(format, FORMAT_WaveFormatEx)) {
        std::string text = "WaveFormatEx: ";
        if (type.cbFormat > 0 && type.pbFormat && type.cbFormat >= kWaveFieldsRead) {
            WAVEFORMATEX wave{};
            std::memcpy(&wave, type.pbFormat, kWaveFieldsRead);
            char numbers[96];
            std::snprintf(numbers, sizeof numbers, ", %d Hertz, %d Bits, %d Channels",
                          static_cast<int>(wave.nSamplesPerSec),
                          static_cast<int>(wave.wBitsPerSample), static_cast<int>(wave.nChannels));
            text += WaveTagLabel(wave.wFormatTag);
            text += numbers;
        }
        return text;
    }
    if (IsEqualGUID(format, FORMAT_MPEGVideo)) {
        std::string text = "MPEGVideo ";
        if (const auto* info = FormatBlock<VIDEOINFOHEADER>(type))
            text += BitmapText(info->bmiHeader, 'X');
        return text;
    }
    if (IsEqualGUID(format, FORMAT_MPEG2Video)) {
        // Labelled as the MPEG streams format, with a blank behind it.
        std::string text = "MPEGStreams ";
        if (const auto* info = FormatBlock<VIDEOINFOHEADER2>(type))
            text += BitmapText(info->bmiHeader, 'X');
        return text;
    }
    if (IsEqualGUID(format, FORMAT_DvInfo)) return "DvInfo";
    if (IsEqualGUID(format, FORMAT_MPEGStreams)) return "MPEGStreams";
    if (IsEqualGUID(format, FORMAT_DolbyAC3)) return "DolbyAC3";
    if (IsEqualGUID(format, FORMAT_MPEG2Audio)) return "MPEG2Audio";
    if (IsEqualGUID(format, FORMAT_DVD_LPCMAudio)) return "DVD_LPCMAudio";
    return "Unknown";
}

}  // namespace

namespace mw {

std::span<const VideoCodecRow> VideoCodecTable() {
    return kVideoCodecs;
}

std::span<const AudioCodecRow> AudioCodecTable() {
    return kAudioCodecs;
}

}  // namespace mw

std::string DSGetMediaTypeDescription(const AM_MEDIA_TYPE* mediaType) {
    std::string text = "Major Type: ";
    text += MajorTypeLabel(mediaType->majortype);
    text += " - Sub Type: ";
    text += SubtypeLabel(mediaType->subtype);
    text += " Format: ";
    text += FormatText(*mediaType);
    return text;
}

ComPtr<IStringArrayList> DSGetInterfaceNames(IUnknown* object) {
    ComPtr<TStringArrayList> names = MwNew<TStringArrayList>();
    for (const mw::InterfaceNameRow& row : mw::kMwInterfaceNameTable) {
        if (!row.iid) continue;
        void* answer = nullptr;
        HRESULT hr = E_NOINTERFACE;
        try {
            hr = object->QueryInterface(*row.iid, &answer);
        } catch (...) {
            // An object that raises does not support the interface; the walk goes on.
            continue;
        }
        if (SUCCEEDED(hr) && answer) {
            names->Add(row.name);
            // Every interface derives from IUnknown, so the answer releases through it.
            static_cast<IUnknown*>(answer)->Release();
        }
    }
    return names;
}

std::string GQVGetVideoCodecName(uint32_t fourCC) {
    for (const mw::VideoCodecRow& row : kVideoCodecs) {
        const auto* key = reinterpret_cast<const unsigned char*>(row.key);
        const uint32_t packed =
            key[0] | (key[1] << 8) | (key[2] << 16) | (static_cast<uint32_t>(key[3]) << 24);
        if (packed == fourCC) return row.name;
    }
    std::string text(4, '\0');
    for (int i = 0; i < 4; ++i)
        text[i] = static_cast<char>((fourCC >> (8 * i)) & 0xFF);
    return text + " Unknown";
}

std::string GQAGetAudioCodecName(uint32_t tag) {
    for (const mw::AudioCodecRow& row : kAudioCodecs)
        if (row.tag == tag) return row.name;
    return "Format " + std::to_string(tag) + " Unknown";
}
