// Record layouts and published values of the platform declarations: the records the system
// reads by layout, a sample of the interface table's IIDs, media type GUIDs, class ids and
// result codes.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "dmo.h"
#include "dshow.h"
#include "medparam.h"
#include "mmsystem.h"
#include "msacm.h"
#include "mwhresult.h"
#include "mwiids.h"
#include "qedit.h"
#include "wmsdk.h"

namespace {

std::string Text(const GUID& g) {
    return mw::GuidToString(g);
}

TEST(DeclarationsLayout, RecordsHaveThePlatformsSizesAndOffsets) {
    EXPECT_EQ(sizeof(WAVEFORMATEX), 18u);
    EXPECT_EQ(sizeof(WAVEFORMATEXTENSIBLE), 40u);
    EXPECT_EQ(offsetof(WAVEFORMATEXTENSIBLE, SubFormat), 24u);
    EXPECT_EQ(sizeof(WAVEHDR), 48u);
    EXPECT_EQ(sizeof(AM_MEDIA_TYPE), 88u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, formattype), 44u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, pUnk), 64u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, cbFormat), 72u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, pbFormat), 80u);
    EXPECT_EQ(sizeof(DMO_MEDIA_TYPE), sizeof(AM_MEDIA_TYPE));
    EXPECT_EQ(sizeof(WM_MEDIA_TYPE), sizeof(AM_MEDIA_TYPE));
    EXPECT_EQ(sizeof(PIN_INFO::achName) / sizeof(WCHAR), 128u);
    EXPECT_EQ(sizeof(FILTER_INFO::achName) / sizeof(WCHAR), 128u);
    EXPECT_EQ(offsetof(FILTER_INFO, pGraph), 256u);
    EXPECT_EQ(sizeof(ALLOCATOR_PROPERTIES), 16u);
    EXPECT_EQ(sizeof(AUDIO_STREAM_CONFIG_CAPS), 52u);
    EXPECT_EQ(sizeof(AM_SAMPLE2_PROPERTIES), 64u);
    EXPECT_EQ(sizeof(BITMAPINFOHEADER), 40u);
    EXPECT_EQ(sizeof(VIDEOINFOHEADER), 88u);
    EXPECT_EQ(offsetof(VIDEOINFOHEADER, bmiHeader), 48u);
    EXPECT_EQ(sizeof(VIDEOINFOHEADER2), 112u);
    EXPECT_EQ(offsetof(VIDEOINFOHEADER2, bmiHeader), 72u);
    EXPECT_EQ(sizeof(ACMSTREAMHEADER), 124u);
    EXPECT_EQ(sizeof(ACMFORMATTAGDETAILSA), 72u);
    EXPECT_EQ(sizeof(ACMFORMATCHOOSEA), 268u);
    EXPECT_EQ(sizeof(VARIANT), 24u);
    EXPECT_EQ(sizeof(MP_PARAMINFO::szLabel) / sizeof(WCHAR), 32u);
    EXPECT_EQ(sizeof(MP_ENVELOPE_SEGMENT), 32u);
    EXPECT_EQ(sizeof(GUID), 16u);
}

TEST(DeclarationsLayout, EnumerationsHaveThePlatformsValues) {
    EXPECT_EQ(PINDIR_INPUT, 0);
    EXPECT_EQ(PINDIR_OUTPUT, 1);
    EXPECT_EQ(State_Stopped, 0);
    EXPECT_EQ(State_Paused, 1);
    EXPECT_EQ(State_Running, 2);
    EXPECT_EQ(EC_COMPLETE, 1);
    EXPECT_EQ(EC_ERRORABORT, 3);
    EXPECT_EQ(EC_STARVATION, 23);
    EXPECT_EQ(EC_DEVICE_LOST, 31);
    EXPECT_EQ(MERIT_DO_NOT_USE, 0x200000);
    EXPECT_EQ(VfwCompressDialog_QueryConfig, 4);
    EXPECT_EQ(STGM_CREATE | STGM_TRANSACTED | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0x11012u);
    EXPECT_EQ(STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0x1011u);
    EXPECT_EQ(ROTFLAGS_REGISTRATIONKEEPSALIVE, 1u);
    EXPECT_EQ(MAX_TIME, 0x7FFFFFFFFFFFFFFFLL);
    EXPECT_EQ(MPT_ENUM, 3);
}

// Published values, written out as the platform's documentation and headers print them.
TEST(DeclarationsValues, InterfaceTableSampleHasPublishedIids) {
    EXPECT_EQ(Text(IID_IPin), "{56A86891-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IEnumPins), "{56A86892-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IBaseFilter), "{56A86895-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IMediaSample2), "{36B73884-C2C8-11CF-8B46-00805F6CEF60}");
    EXPECT_EQ(Text(IID_IMemAllocator), "{56A8689C-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IGraphBuilder), "{56A868A9-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_ICaptureGraphBuilder2), "{93E5A4E0-2D50-11D2-ABFA-00A0C9C6E38D}");
    EXPECT_EQ(Text(IID_IAMStreamConfig), "{C6E13340-30AC-11D0-A18C-00A0C9118956}");
    EXPECT_EQ(Text(IID_IMediaControl), "{56A868B1-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IMediaEventEx), "{56A868C0-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_ICreateDevEnum), "{29840822-5B84-11D0-BD3B-00A0C911CE86}");
    EXPECT_EQ(Text(IID_ISampleGrabber), "{6B652FFF-11FE-4FCE-92AD-0266B5D7C78F}");
    EXPECT_EQ(Text(IID_ISampleGrabberCB), "{0579154A-2B53-4994-B0D0-E773148EFF85}");
    EXPECT_EQ(Text(IID_IMediaObject), "{D8AD0F58-5494-4102-97C5-EC798E59BCF4}");
    EXPECT_EQ(Text(IID_IMediaParams), "{6D6CBB61-A223-44AA-842F-A2F06750BE6E}");
    EXPECT_EQ(Text(IID_IMediaParamInfo), "{6D6CBB60-A223-44AA-842F-A2F06750BE6D}");
    EXPECT_EQ(Text(IID_IUnknown), "{00000000-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IMoniker), "{0000000F-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IStorage), "{0000000B-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IStream), "{0000000C-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IPersistStream), "{00000109-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IRunningObjectTable), "{00000010-0000-0000-C000-000000000046}");
    EXPECT_EQ(Text(IID_IPropertyBag), "{55272A00-42CB-11CE-8135-00AA004BB851}");
    EXPECT_EQ(Text(IID_ISpecifyPropertyPages), "{B196B28B-BAB4-101A-B69C-00AA00341D07}");
    // The reader and writer interfaces that their callers quote as literals.
    EXPECT_EQ(Text(IID_IWMWriterAdvanced), "{96406BE3-2B2B-11D3-B36B-00C04F6108FF}");
    EXPECT_EQ(Text(IID_IWMReaderAdvanced), "{96406BEA-2B2B-11D3-B36B-00C04F6108FF}");
    EXPECT_EQ(Text(IID_IWMReaderAdvanced2), "{AE14A945-B90C-4D0D-9127-80D665F7D73E}");
    EXPECT_EQ(Text(IID_IWMHeaderInfo3), "{15CC68E3-27CC-4ECD-B222-3F5D02D80BD5}");
    EXPECT_EQ(Text(IID_IWMClientConnections2), "{4091571E-4701-4593-BB3D-D5F5F0C74246}");
    EXPECT_EQ(Text(IID_IWMRegisterCallback), "{CF4B1F99-4DE2-4E49-A363-252740D99BC1}");
}

TEST(DeclarationsValues, InterfaceNameTableKeepsTheSpecificationsOrder) {
    const auto& t = mw::kMwInterfaceNameTable;
    ASSERT_EQ(std::size(t), 383u);
    EXPECT_STREQ(t[0].name, "IPin");
    EXPECT_EQ(t[0].iid, &IID_IPin);
    EXPECT_STREQ(t[382].name, "IStorage");
    EXPECT_EQ(t[382].iid, &IID_IStorage);
    std::set<std::string> names;
    std::set<std::string> iids;
    size_t available = 0;
    for (const auto& row : t) {
        names.insert(row.name);
        if (row.iid) {
            ++available;
            iids.insert(Text(*row.iid));
        }
    }
    EXPECT_EQ(names.size(), 383u);
    EXPECT_EQ(iids.size(), available) << "two rows share an IID";
    // The rows that no SDK header or reference gives a value for; a value found for one of them
    // belongs in the table, and a row losing its value is a mistake.
    std::set<std::string> without;
    for (const auto& row : t)
        if (!row.iid) without.insert(row.name);
    EXPECT_EQ(without, (std::set<std::string>{"IFileAsyncIO", "ITunerEvents", "ISignalEvents",
                                              "IMpegVideoDecoder", "IVPEConfig", "IVPE",
                                              "IDivXFilterInterface"}));
    EXPECT_EQ(available, 376u);
}

TEST(DeclarationsValues, InterfacesCheckedAgainstTheSdkHeadersHaveTheirValues) {
    EXPECT_EQ(Text(IID_IDistributorNotify), "{56A868AF-0AD4-11CE-B03A-0020AF0BA770}");
    EXPECT_EQ(Text(IID_IAMTimecodeReader), "{9B496CE1-811B-11CF-8C77-00AA006B6814}");
    EXPECT_EQ(Text(IID_IMPEG2_TIF_CONTROL), "{F9BAC2F9-4149-4916-B2EF-FAA202326862}");
    EXPECT_EQ(Text(IID_IGuideDataLoader), "{4764FF7C-FA95-4525-AF4D-D32236DB9E38}");
    EXPECT_EQ(Text(IID_IStreamBufferSource), "{1C5BD776-6CED-4F44-8164-5EAB0E98DB12}");
    EXPECT_EQ(Text(IID_IEnumStreamBufferRecordingAttrib), "{C18A9162-1E82-4142-8C73-5690FA62FE33}");
    EXPECT_EQ(Text(GUID_TIME_SAMPLES), "{A8593D05-0C43-4984-9A63-97AF9E02C4C0}");
}

TEST(DeclarationsValues, MediaTypesFormatsAndClassesHavePublishedValues) {
    EXPECT_EQ(Text(MEDIATYPE_Audio), "{73647561-0000-0010-8000-00AA00389B71}");
    EXPECT_EQ(Text(MEDIATYPE_Video), "{73646976-0000-0010-8000-00AA00389B71}");
    EXPECT_EQ(Text(MEDIASUBTYPE_PCM), "{00000001-0000-0010-8000-00AA00389B71}");
    EXPECT_EQ(Text(MEDIASUBTYPE_YUY2), "{32595559-0000-0010-8000-00AA00389B71}");
    EXPECT_EQ(Text(MEDIASUBTYPE_IEEE_FLOAT), "{00000003-0000-0010-8000-00AA00389B71}");
    EXPECT_EQ(Text(FORMAT_WaveFormatEx), "{05589F81-C356-11CE-BF01-00AA0055595A}");
    EXPECT_EQ(Text(FORMAT_VideoInfo), "{05589F80-C356-11CE-BF01-00AA0055595A}");
    EXPECT_EQ(Text(FORMAT_VideoInfo2), "{F72A76A0-EB0A-11D0-ACE4-0000C0CC16BA}");
    EXPECT_EQ(Text(CLSID_FilterGraph), "{E436EBB3-524F-11CE-9F53-0020AF0BA770}");
    EXPECT_EQ(Text(CLSID_CaptureGraphBuilder2), "{BF87B6E1-8C27-11D0-B3F0-00AA003761C5}");
    EXPECT_EQ(Text(CLSID_SystemDeviceEnum), "{62BE5D10-60EB-11D0-BD3B-00A0C911CE86}");
    EXPECT_EQ(Text(CLSID_SampleGrabber), "{C1F400A0-3F08-11D3-9F0B-006008039E37}");
    // The categories that their callers give as literals.
    EXPECT_EQ(Text(CLSID_AudioRendererCategory), "{E0F158E1-CB04-11D0-BD4E-00A0C911CE86}");
    EXPECT_EQ(Text(CLSID_AudioInputDeviceCategory), "{33D9A762-90C8-11D0-BD43-00A0C911CE86}");
    EXPECT_EQ(Text(CLSID_AudioCompressorCategory), "{33D9A761-90C8-11D0-BD43-00A0C911CE86}");
    EXPECT_EQ(Text(CLSID_LegacyAmFilterCategory), "{083863F1-70DE-11D0-BD40-00A0C911CE86}");
    EXPECT_TRUE(IsEqualGUID(MEDIASUBTYPE_NULL, GUID_NULL));
    EXPECT_TRUE(IsEqualGUID(KSDATAFORMAT_SUBTYPE_PCM, MEDIASUBTYPE_PCM));
}

TEST(DeclarationsValues, ResultCodesHaveThePlatformsValues) {
    EXPECT_EQ(static_cast<uint32_t>(VFW_S_NO_MORE_ITEMS), 0x00040103u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_INVALIDMEDIATYPE), 0x80040200u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_ENUM_OUT_OF_SYNC), 0x80040203u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_ALREADY_CONNECTED), 0x80040204u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NO_ACCEPTABLE_TYPES), 0x80040207u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_INVALID_DIRECTION), 0x80040208u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NOT_CONNECTED), 0x80040209u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NO_ALLOCATOR), 0x8004020Au);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_RUNTIME_ERROR), 0x8004020Bu);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NO_CLOCK), 0x80040213u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NOT_FOUND), 0x80040216u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_NOT_STOPPED), 0x80040224u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_WRONG_STATE), 0x80040227u);
    EXPECT_EQ(static_cast<uint32_t>(VFW_E_TYPE_NOT_ACCEPTED), 0x8004022Au);
    EXPECT_EQ(static_cast<uint32_t>(STG_E_FILENOTFOUND), 0x80030002u);
    EXPECT_EQ(static_cast<uint32_t>(STG_E_ACCESSDENIED), 0x80030005u);
    EXPECT_EQ(static_cast<uint32_t>(MK_E_SYNTAX), 0x800401E4u);
    EXPECT_EQ(static_cast<uint32_t>(MK_E_NOOBJECT), 0x800401E5u);
    EXPECT_EQ(static_cast<uint32_t>(REGDB_E_CLASSNOTREG), 0x80040154u);
    EXPECT_EQ(static_cast<uint32_t>(NS_E_FILE_NOT_FOUND), 0xC00D001Au);
    EXPECT_EQ(static_cast<uint32_t>(DMO_E_NO_MORE_ITEMS), 0x80040206u);
}

TEST(HResultText, NamesCodesAndGivesKnownMessages) {
    EXPECT_EQ(mw::HResultText(E_FAIL), "0x80004005 E_FAIL: Unspecified error");
    EXPECT_EQ(mw::HResultText(VFW_E_NOT_CONNECTED), "0x80040209 VFW_E_NOT_CONNECTED");
    EXPECT_EQ(mw::HResultName(DMO_E_INVALIDSTREAMINDEX), "VFW_E_INVALIDSUBTYPE")
        << "the older family wins";
    EXPECT_EQ(mw::HResultText(S_OK), "0x00000000 S_OK: The operation completed successfully.");
    EXPECT_EQ(mw::HResultText(MW_HR(0x8004FFFF)), "0x8004FFFF");
    EXPECT_EQ(mw::HResultName(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)),
              "HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)");
    char buf[MAX_ERROR_TEXT_LEN];
    EXPECT_GT(AMGetErrorTextA(E_POINTER, buf, sizeof buf), 0u);
    EXPECT_STREQ(buf, "Invalid pointer");
    EXPECT_EQ(AMGetErrorTextA(E_POINTER, buf, 4), 3u);
    EXPECT_STREQ(buf, "Inv");
    EXPECT_EQ(AMGetErrorTextA(E_POINTER, nullptr, 10), 0u);
}

}  // namespace
