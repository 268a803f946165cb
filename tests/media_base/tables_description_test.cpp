// The stream kind of a major type and the one-line description of a media type.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "dvdmedia.h"
#include "media_base/DSBaseClass.h"
#include "media_base/DSBaseClass_Tables.h"

namespace {

GUID FourCCGuid(uint32_t code) {
    return GUID{code, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

// A media type that owns a copy of the given record as its format block.
class OwnedType {
public:
    OwnedType(const GUID& major, const GUID& sub, const GUID& format) {
        FType.majortype = major;
        FType.subtype = sub;
        FType.formattype = format;
    }
    template <class T>
    OwnedType(const GUID& major, const GUID& sub, const GUID& format, const T& block)
        : OwnedType(major, sub, format) {
        FType.cbFormat = sizeof(T);
        FType.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(sizeof(T)));
        std::memcpy(FType.pbFormat, &block, sizeof(T));
    }
    ~OwnedType() { DSClearMediaType(&FType); }
    OwnedType(const OwnedType&) = delete;
    OwnedType& operator=(const OwnedType&) = delete;

    std::string Description() const { return DSGetMediaTypeDescription(&FType); }

private:
    AM_MEDIA_TYPE FType{};
};

WAVEFORMATEX Wave(WORD tag, WORD channels, DWORD rate, WORD bits) {
    WAVEFORMATEX wave{};
    wave.wFormatTag = tag;
    wave.nChannels = channels;
    wave.nSamplesPerSec = rate;
    wave.wBitsPerSample = bits;
    wave.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    wave.nAvgBytesPerSec = rate * wave.nBlockAlign;
    return wave;
}

bool EndsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

TEST(StreamDataType, MajorTypesMapToTheirStreamKind) {
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Video), sdtVideo);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_AnalogVideo), sdtVideo);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Text), sdtText);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_File), sdtUnknown);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_LMRT), sdtUnknown);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_ScriptCommand), sdtUnknown);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_URL_STREAM), sdtUnknown);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIASUBTYPE_PCM), sdtUnknown);
}

TEST(MediaTypeDescription, StereoPcmNamesRateBitsAndChannels) {
    const OwnedType type(MEDIATYPE_Audio, MEDIASUBTYPE_PCM, FORMAT_WaveFormatEx,
                         Wave(WAVE_FORMAT_PCM, 2, 44100, 16));
    EXPECT_EQ(type.Description(),
              "Major Type: Audio - Sub Type: PCM Format: WaveFormatEx: PCM, 44100 Hertz, 16 Bits, "
              "2 Channels");
}

TEST(MediaTypeDescription, WaveTagsOutsideTheLabelsAreUnknownAndTheLineGoesOn) {
    const OwnedType extensible(MEDIATYPE_Audio, MEDIASUBTYPE_PCM, FORMAT_WaveFormatEx,
                               Wave(0xFFFE, 6, 48000, 24));
    EXPECT_TRUE(EndsWith(extensible.Description(),
                         "WaveFormatEx: Unknown, 48000 Hertz, 24 Bits, 6 Channels"));
    const OwnedType metaSound(MEDIATYPE_Audio, FourCCGuid(0x75), FORMAT_WaveFormatEx,
                              Wave(0x0075, 1, 8000, 16));
    EXPECT_EQ(metaSound.Description(),
              "Major Type: Audio - Sub Type: VOXWARE_MetaSound Format: WaveFormatEx: VOXWARE, 8000 "
              "Hertz, 16 Bits, 1 Channels");
}

TEST(MediaTypeDescription, TypesWithoutAFormatBlockEndWithTheFormatLabel) {
    EXPECT_EQ(OwnedType(MEDIATYPE_Audio, MEDIASUBTYPE_PCM, FORMAT_WaveFormatEx).Description(),
              "Major Type: Audio - Sub Type: PCM Format: WaveFormatEx: ");
    EXPECT_TRUE(
        EndsWith(OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo).Description(),
                 "Format: VideoInfo "));
    EXPECT_TRUE(
        EndsWith(OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo2).Description(),
                 "Format: VideoInfo2 "));
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG1Payload, FORMAT_MPEGVideo).Description(),
        "Format: MPEGVideo "));
    // The MPEG-2 video format carries the streams label with a blank; the streams format without.
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video).Description(),
        "Sub Type: MPEG2_VIDEO Format: MPEGStreams "));
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Stream, MEDIASUBTYPE_MPEG1System, FORMAT_MPEGStreams).Description(),
        "Sub Type: MPEG1System Format: MPEGStreams"));
    EXPECT_TRUE(
        EndsWith(OwnedType(MEDIATYPE_Interleaved, MEDIASUBTYPE_dvsd, FORMAT_DvInfo).Description(),
                 "Sub Type: dvsd_ Format: DvInfo"));
}

TEST(MediaTypeDescription, UnknownGuidsKeepTheirTrailingBlank) {
    EXPECT_EQ(OwnedType(FORMAT_VideoInfo, FORMAT_VideoInfo, GUID_NULL).Description(),
              "Major Type: UnKnown  - Sub Type: UnKnown  Format: Unknown");
}

TEST(MediaTypeDescription, VideoFormatsNameCompressionSizeAndDepth) {
    VIDEOINFOHEADER info{};
    info.bmiHeader.biCompression = 0x32595559;  // YUY2
    info.bmiHeader.biWidth = 320;
    info.bmiHeader.biHeight = 240;
    info.bmiHeader.biBitCount = 16;
    EXPECT_EQ(OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo, info).Description(),
              "Major Type: Video - Sub Type: YUY2 Format: VideoInfo YUY2 320x240, 16 bits");
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Video, FourCCGuid(0x58564944), FORMAT_MPEGVideo, info).Description(),
        "Sub Type: DIVX Format: MPEGVideo YUY2 320X240, 16 bits"));

    VIDEOINFOHEADER2 info2{};
    info2.bmiHeader.biCompression = 0;  // BI_RGB
    info2.bmiHeader.biWidth = 640;
    info2.bmiHeader.biHeight = -480;
    info2.bmiHeader.biBitCount = 32;
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Video, MEDIASUBTYPE_RGB32, FORMAT_VideoInfo2, info2).Description(),
        "Sub Type: RGB32 Format: VideoInfo2 RGB 640x-480, 32 bits"));
    EXPECT_TRUE(EndsWith(
        OwnedType(MEDIATYPE_Video, FourCCGuid(0x3234504D), FORMAT_MPEG2Video, info2).Description(),
        "Sub Type: MS-MPEG4 Format: MPEGStreams RGB 640X-480, 32 bits"));
}
