// Media type records: stream kinds, comparison, copying and freeing, FourCC helpers, the
// partial-type match and the shared audio types.
#include <gtest/gtest.h>

#include "tests/media_base/TestFilters.h"

using namespace mw::test;

namespace {

// An IUnknown that counts its references, to watch what the helpers do with pUnk.
class CountedUnknown : public IUnknown {
public:
    STDMETHODIMP QueryInterface(REFIID, void** p) override {
        *p = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; }
    ULONG refs = 1;
};

AM_MEDIA_TYPE TypeWithBlock(const std::vector<BYTE>& block) {
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Audio;
    mt.subtype = MEDIASUBTYPE_PCM;
    mt.formattype = FORMAT_WaveFormatEx;
    mt.cbFormat = static_cast<ULONG>(block.size());
    mt.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(block.size()));
    std::memcpy(mt.pbFormat, block.data(), block.size());
    return mt;
}

GUID FourCCGuid(uint32_t code) {
    return GUID{code, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

}  // namespace

TEST(MediaTypes, StreamKindFollowsTheMajorType) {
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Audio), sdtAudio);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_AnalogAudio), sdtAudio);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Interleaved), sdtVideo);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_MPEG2_PES), sdtVideo);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_AUXLine21Data), sdtText);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Midi), sdtMidi);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Timecode), stdTimeCode);
    EXPECT_EQ(DSGetMediaStreamDataType(&MEDIATYPE_Stream), sdtUnknown);
    EXPECT_EQ(DSGetMediaStreamDataType(&FORMAT_WaveFormatEx), sdtUnknown);
    // A pointer to a whole record serves, since the major type comes first.
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Text;
    EXPECT_EQ(DSGetMediaStreamDataType(reinterpret_cast<const GUID*>(&mt)), sdtText);
}

TEST(MediaTypes, EqualityIgnoresSampleFieldsAndAbsentBlocks) {
    AM_MEDIA_TYPE a = TypeWithBlock({1, 2, 3, 4});
    AM_MEDIA_TYPE b = TypeWithBlock({1, 2, 3, 4});
    b.lSampleSize = 99;
    b.bFixedSizeSamples = -1;
    EXPECT_TRUE(DSIsEqualMediaType(a, b));
    b.pbFormat[3] = 5;
    EXPECT_FALSE(DSIsEqualMediaType(a, b));
    DSClearMediaType(&a);
    DSClearMediaType(&b);

    AM_MEDIA_TYPE c{}, d{};
    BYTE x = 1, y = 2;
    c.pbFormat = &x;  // cbFormat 0: the pointers are never looked at
    d.pbFormat = &y;
    EXPECT_TRUE(DSIsEqualMediaType(c, d));
    d.subtype = MEDIASUBTYPE_PCM;
    EXPECT_FALSE(DSIsEqualMediaType(c, d));
}

TEST(MediaTypes, CopyMakesItsOwnBlockAndCountsPUnk) {
    CountedUnknown unk;
    AM_MEDIA_TYPE source = TypeWithBlock({9, 8, 7});
    source.pUnk = &unk;
    AM_MEDIA_TYPE copy{};
    DSCopyMediaType(&copy, &source);
    EXPECT_NE(copy.pbFormat, source.pbFormat);
    EXPECT_TRUE(DSIsEqualMediaType(copy, source));
    EXPECT_EQ(unk.refs, 2u);
    DSClearMediaType(&copy);
    EXPECT_EQ(copy.cbFormat, 0u);
    EXPECT_EQ(copy.pbFormat, nullptr);
    EXPECT_EQ(copy.pUnk, nullptr);
    EXPECT_EQ(unk.refs, 1u);
    source.pUnk = nullptr;
    DSClearMediaType(&source);
}

TEST(MediaTypes, CopyOfABlocklessTypeWithLengthIsAnAssertion) {
    AM_MEDIA_TYPE source{};
    source.cbFormat = 4;
    AM_MEDIA_TYPE copy{};
    EXPECT_THROW(DSCopyMediaType(&copy, &source), EAssertionFailed);
}

TEST(MediaTypes, FreeLeavesTheCallersRecordAsItWas) {
    CountedUnknown unk;
    AM_MEDIA_TYPE mt = TypeWithBlock({1, 2, 3});
    mt.pUnk = &unk;
    BYTE* const block = mt.pbFormat;
    QPDSFreeMediaType(mt);
    EXPECT_EQ(mt.cbFormat, 3u);
    EXPECT_EQ(mt.pbFormat, block);  // dangling now; callers stop using the record
    EXPECT_EQ(mt.pUnk, &unk);
    EXPECT_EQ(unk.refs, 1u);
}

TEST(MediaTypes, DeleteAcceptsNullAndFreesEnumeratorRecords) {
    QPDSDeleteMediaType(nullptr);
    CountedUnknown unk;
    auto* record = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    *record = TypeWithBlock({1});
    record->pUnk = &unk;
    unk.AddRef();
    QPDSDeleteMediaType(record);  // a leak or double free shows under the address sanitizer
    EXPECT_EQ(unk.refs, 1u);
}

TEST(MediaTypes, FourCCTextAndCompressedSubtypes) {
    EXPECT_EQ(DSGetFOURCC(0), "RGB");
    EXPECT_EQ(DSGetFOURCC(3), "BITFIELDS");
    EXPECT_EQ(DSGetFOURCC(4), std::string("\x04\0\0\0", 4));
    EXPECT_EQ(DSGetFOURCC(0x32595559), "YUY2");

    EXPECT_TRUE(QPDSIsFourCC(FourCCGuid(0x58564944)));  // DIVX
    EXPECT_FALSE(QPDSIsFourCC(MEDIASUBTYPE_YUY2));
    EXPECT_FALSE(QPDSIsFourCC(MEDIASUBTYPE_RGB24));
    EXPECT_FALSE(QPDSIsFourCC(FORMAT_WaveFormatEx));
}

TEST(MediaTypes, PartialMatchRejectsTheCandidateCarryingTheSameBlock) {
    AM_MEDIA_TYPE candidate = TypeWithBlock({1, 2, 3, 4});
    AM_MEDIA_TYPE partial = TypeWithBlock({1, 2, 3, 4});
    partial.majortype = GUID_NULL;
    EXPECT_FALSE(DSMatchPartialMediaType(candidate, partial));
    partial.pbFormat[0] = 7;
    EXPECT_TRUE(DSMatchPartialMediaType(candidate, partial));

    partial.subtype = MEDIASUBTYPE_IEEE_FLOAT;
    EXPECT_FALSE(DSMatchPartialMediaType(candidate, partial));
    partial.subtype = GUID_NULL;
    partial.formattype = GUID_NULL;  // no format asked for: any candidate of the major type
    EXPECT_TRUE(DSMatchPartialMediaType(candidate, partial));
    partial.majortype = MEDIATYPE_Video;
    EXPECT_FALSE(DSMatchPartialMediaType(candidate, partial));
    DSClearMediaType(&candidate);
    DSClearMediaType(&partial);
}

TEST(MediaTypes, AudioTypeIsPlainPcmUpToTwoChannelsOfSixteenBits) {
    TQAWaveFormatExtensible f = PcmFormat(48000, 2, 16);
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.cbSize = 22;
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(CreateAudioMediaType(&f, &mt, FALSE), S_OK);  // the block is written all the same
    EXPECT_EQ(mt.majortype, MEDIATYPE_Audio);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_PCM);
    EXPECT_EQ(mt.formattype, FORMAT_WaveFormatEx);
    EXPECT_EQ(mt.bFixedSizeSamples, -1);
    EXPECT_EQ(mt.lSampleSize, 1u);
    ASSERT_EQ(mt.cbFormat, 18u);
    const auto* written = reinterpret_cast<const tWAVEFORMATEX*>(mt.pbFormat);
    EXPECT_EQ(written->wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(written->cbSize, 0);
    EXPECT_EQ(written->nSamplesPerSec, 48000u);
    DSClearMediaType(&mt);
}

TEST(MediaTypes, AudioTypeKeepsTheExtensibleTailForSixChannels) {
    TQAWaveFormatExtensible f = PcmFormat(48000, 6, 16);
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.cbSize = 22;
    f.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(CreateAudioMediaType(&f, &mt, TRUE), S_OK);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_PCM);
    ASSERT_EQ(mt.cbFormat, 40u);
    EXPECT_EQ(std::memcmp(mt.pbFormat, &f, 40), 0);
    DSClearMediaType(&mt);
}

TEST(MediaTypes, BasicAudioTypeTakesItsSubtypeFromTheTag) {
    TQAWaveFormatExtensible f = PcmFormat(8000, 1, 32);
    f.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    f.cbSize = 0;
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(CreateBasicAudioMediaType(&f, &mt, FALSE), S_OK);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_IEEE_FLOAT);
    EXPECT_EQ(mt.lSampleSize, 4u);
    EXPECT_EQ(mt.cbFormat, 0u);  // no block without setFormat

    TQAWaveFormatExtensible pcm = PcmFormat();
    pcm.cbSize = 5;  // not copied for tag 1
    AM_MEDIA_TYPE mt2{};
    ASSERT_EQ(CreateBasicAudioMediaType(&pcm, &mt2, TRUE), S_OK);
    EXPECT_EQ(mt2.subtype, MEDIASUBTYPE_PCM);
    ASSERT_EQ(mt2.cbFormat, 18u);
    EXPECT_EQ(reinterpret_cast<const tWAVEFORMATEX*>(mt2.pbFormat)->cbSize, 0);
    DSClearMediaType(&mt2);

    TQAWaveFormatExtensible ext = PcmFormat(48000, 6, 24);
    ext.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    ext.cbSize = 22;
    ext.SubFormat = MEDIASUBTYPE_IEEE_FLOAT;
    AM_MEDIA_TYPE mt3{};
    ASSERT_EQ(CreateBasicAudioMediaType(&ext, &mt3, TRUE), S_OK);
    EXPECT_EQ(mt3.subtype, MEDIASUBTYPE_IEEE_FLOAT);
    EXPECT_EQ(mt3.cbFormat, 40u);
    DSClearMediaType(&mt3);

    EXPECT_EQ(CreateBasicAudioMediaType(&pcm, nullptr, TRUE), E_UNEXPECTED);
}
