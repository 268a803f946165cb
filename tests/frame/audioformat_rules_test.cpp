// The wave format record and its rules: layout, the formats the system fills by itself, the
// conversion of a graph's format block, float samples, speakers, comparison and durations.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "frame/QAAudioFormat.h"

namespace {

std::vector<BYTE> Bytes(const TQAWaveFormatExtensible& f) {
    std::vector<BYTE> b(sizeof f);
    std::memcpy(b.data(), &f, sizeof f);
    return b;
}

uint16_t Word(const std::vector<BYTE>& b, size_t at) {
    return uint16_t(b[at] | b[at + 1] << 8);
}
uint32_t Dword(const std::vector<BYTE>& b, size_t at) {
    return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 |
           uint32_t(b[at + 3]) << 24;
}

// A graph's WAVEFORMATEX block as the platform hands it over.
std::vector<BYTE> GraphBlock(WORD tag, WORD channels, DWORD rate, WORD bits, WORD cbSize = 0) {
    WAVEFORMATEX w{};
    w.wFormatTag = tag;
    w.nChannels = channels;
    w.nSamplesPerSec = rate;
    w.nBlockAlign = WORD(channels * bits / 8);
    w.nAvgBytesPerSec = rate * w.nBlockAlign;
    w.wBitsPerSample = bits;
    w.cbSize = cbSize;
    std::vector<BYTE> b(sizeof w + cbSize);
    std::memcpy(b.data(), &w, sizeof w);
    for (size_t i = sizeof w; i < b.size(); ++i)
        b[i] = BYTE(0xA0 + i);
    return b;
}

}  // namespace

TEST(AudioFormat, RecordBytesLieWhereThePlatformReadsThem) {
    TQAWaveFormatExtensible f = mw::MakePcmWaveFormat(48000, 24, 6, 0x3F);
    const auto b = Bytes(f);
    EXPECT_EQ(Word(b, 0), 0xFFFE);
    EXPECT_EQ(Word(b, 2), 6);
    EXPECT_EQ(Dword(b, 4), 48000u);
    EXPECT_EQ(Dword(b, 8), 48000u * 18);
    EXPECT_EQ(Word(b, 12), 18);
    EXPECT_EQ(Word(b, 14), 24);
    EXPECT_EQ(Word(b, 16), 22);
    EXPECT_EQ(Word(b, 18), 24);
    EXPECT_EQ(Dword(b, 20), 0x3Fu);
    EXPECT_EQ(std::memcmp(b.data() + 24, &KSDATAFORMAT_SUBTYPE_PCM, 16), 0);
    // The 18-byte prefix the platform takes is the record itself.
    const tWAVEFORMATEX* prefix = &f;
    EXPECT_EQ(static_cast<const void*>(prefix), static_cast<const void*>(&f));
}

TEST(AudioFormat, DefaultsAreMonoAndStereoAt11025Hz) {
    const TQAWaveFormatExtensible& probe = mw::kProbeWaveFormat;
    EXPECT_EQ(probe.wFormatTag, 65534);
    EXPECT_EQ(probe.nChannels, 1);
    EXPECT_EQ(probe.nSamplesPerSec, 11025u);
    EXPECT_EQ(probe.wBitsPerSample, 16);
    EXPECT_EQ(probe.nBlockAlign, 2);
    EXPECT_EQ(probe.nAvgBytesPerSec, 22050u);
    EXPECT_EQ(probe.cbSize, 22);
    EXPECT_EQ(probe.wValidBitsPerSample, 16);
    EXPECT_EQ(probe.dwChannelMask, 1u);
    EXPECT_EQ(probe.SubFormat, KSDATAFORMAT_SUBTYPE_PCM);

    const TQAWaveFormatExtensible& out = mw::kGraphOutputDefaultWaveFormat;
    EXPECT_EQ(out.wFormatTag, 65534);
    EXPECT_EQ(out.nChannels, 2);
    EXPECT_EQ(out.nSamplesPerSec, 11025u);
    EXPECT_EQ(out.wBitsPerSample, 16);
    EXPECT_EQ(out.nBlockAlign, 4);
    EXPECT_EQ(out.nAvgBytesPerSec, 44100u);
    EXPECT_EQ(out.cbSize, 22);
    EXPECT_EQ(out.wValidBitsPerSample, 16);
    EXPECT_EQ(out.dwChannelMask, 3u);
    EXPECT_EQ(out.SubFormat, KSDATAFORMAT_SUBTYPE_PCM);
}

TEST(AudioFormat, ZeroRateMeansNoFormat) {
    EXPECT_FALSE(mw::HasWaveFormat(TQAWaveFormatExtensible{}));
    EXPECT_TRUE(mw::HasWaveFormat(mw::kProbeWaveFormat));
}

TEST(AudioFormat, ChannelMaskTakesTheShiftModulo32) {
    EXPECT_EQ(mw::ChannelMaskFor(1), 1u);
    EXPECT_EQ(mw::ChannelMaskFor(2), 3u);
    EXPECT_EQ(mw::ChannelMaskFor(6), 0x3Fu);
    EXPECT_EQ(mw::ChannelMaskFor(31), 0x7FFFFFFFu);
    EXPECT_EQ(mw::ChannelMaskFor(32), 0u);
    EXPECT_EQ(mw::ChannelMaskFor(33), 1u);
}

TEST(AudioFormat, BuiltFormatRoundsOddBitsUpToWholeBytes) {
    const auto f = mw::MakePcmWaveFormat(8000, 20, 2);
    EXPECT_EQ(f.wValidBitsPerSample, 20);
    EXPECT_EQ(f.wBitsPerSample, 24);
    EXPECT_EQ(f.nBlockAlign, 6);
    EXPECT_EQ(f.nAvgBytesPerSec, 48000u);
}

TEST(AudioFormatFromGraph, IntegerPcmBecomesExtensiblePcm) {
    const auto block = GraphBlock(WAVE_FORMAT_PCM, 2, 44100, 16);
    TQAWaveFormatExtensible f{};
    bool isFloat = true;
    ASSERT_TRUE(mw::WaveFormatFromGraphFormat(block.data(), block.size(), f, isFloat));
    EXPECT_FALSE(isFloat);
    EXPECT_TRUE(QAIsEqualAudioFormat(f, mw::MakePcmWaveFormat(44100, 16, 2)));
    EXPECT_EQ(f.cbSize, 22);
}

TEST(AudioFormatFromGraph, PcmBlockWithoutCbSizeIsAccepted) {
    auto block = GraphBlock(WAVE_FORMAT_PCM, 1, 8000, 8);
    block.resize(16);  // PCMWAVEFORMAT
    TQAWaveFormatExtensible f{};
    bool isFloat = true;
    ASSERT_TRUE(mw::WaveFormatFromGraphFormat(block.data(), block.size(), f, isFloat));
    EXPECT_EQ(f.nSamplesPerSec, 8000u);
    EXPECT_EQ(f.dwChannelMask, 1u);
}

TEST(AudioFormatFromGraph, FloatIsDescribedAsPcmAndFlagged) {
    const auto block = GraphBlock(WAVE_FORMAT_IEEE_FLOAT, 32, 48000, 32);
    TQAWaveFormatExtensible f{};
    bool isFloat = false;
    ASSERT_TRUE(mw::WaveFormatFromGraphFormat(block.data(), block.size(), f, isFloat));
    EXPECT_TRUE(isFloat);
    EXPECT_EQ(f.wFormatTag, 65534);
    EXPECT_EQ(f.SubFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_EQ(f.wBitsPerSample, 32);
    EXPECT_EQ(f.wValidBitsPerSample, 32);
    EXPECT_EQ(f.nBlockAlign, 128);
    EXPECT_EQ(f.dwChannelMask, 0u);  // 32 channels
}

TEST(AudioFormatFromGraph, OtherTagsAreCopiedAsTheyStand) {
    const auto block = GraphBlock(WAVE_FORMAT_ADPCM, 2, 22050, 4, 32);  // longer than 40 bytes
    TQAWaveFormatExtensible f{};
    bool isFloat = true;
    ASSERT_TRUE(mw::WaveFormatFromGraphFormat(block.data(), block.size(), f, isFloat));
    EXPECT_FALSE(isFloat);
    EXPECT_EQ(std::memcmp(&f, block.data(), 40), 0);
}

TEST(AudioFormatFromGraph, ShortOtherBlockIsPaddedWithZeros) {
    const auto block = GraphBlock(WAVE_FORMAT_MULAW, 1, 8000, 8);  // 18 bytes
    TQAWaveFormatExtensible f = mw::kProbeWaveFormat;
    bool isFloat = false;
    ASSERT_TRUE(mw::WaveFormatFromGraphFormat(block.data(), block.size(), f, isFloat));
    EXPECT_EQ(std::memcmp(&f, block.data(), 18), 0);
    EXPECT_EQ(f.wValidBitsPerSample, 0);
    EXPECT_EQ(f.dwChannelMask, 0u);
    EXPECT_EQ(f.SubFormat, GUID_NULL);
}

TEST(AudioFormatFromGraph, TruncatedOrMissingBlockIsRefused) {
    const auto block = GraphBlock(WAVE_FORMAT_PCM, 2, 44100, 16);
    TQAWaveFormatExtensible f = mw::kProbeWaveFormat;
    bool isFloat = true;
    EXPECT_FALSE(mw::WaveFormatFromGraphFormat(block.data(), 15, f, isFloat));
    EXPECT_FALSE(mw::WaveFormatFromGraphFormat(nullptr, 40, f, isFloat));
    EXPECT_TRUE(QAIsEqualAudioFormat(f, mw::kProbeWaveFormat));
    EXPECT_TRUE(isFloat);
}

TEST(FloatSamples, ScaleBy2147483647AndRoundToNearest) {
    EXPECT_EQ(mw::FloatToInt32Sample(0.0f), 0);
    EXPECT_EQ(mw::FloatToInt32Sample(1.0f), 2147483647);
    EXPECT_EQ(mw::FloatToInt32Sample(-1.0f), -2147483647);
    EXPECT_EQ(mw::FloatToInt32Sample(0.5f), 1073741824);  // 1073741823.5
    EXPECT_EQ(mw::FloatToInt32Sample(-0.5f), -1073741824);
    EXPECT_EQ(mw::FloatToInt32Sample(0.25f), 536870912);  // 536870911.75
    EXPECT_EQ(mw::FloatToInt32Sample(0.1f), 214748368);   // 214748367.9...
    EXPECT_EQ(mw::FloatToInt32Sample(1e-10f), 0);
}

TEST(FloatSamples, OutOfRangeValuesClampInsteadOfOverflowing) {
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(mw::FloatToInt32Sample(1.5f), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(mw::FloatToInt32Sample(-1.5f), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(mw::FloatToInt32Sample(inf), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(mw::FloatToInt32Sample(-inf), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(mw::FloatToInt32Sample(std::nanf("")), 0);
    EXPECT_EQ(mw::FloatToInt32Sample(1e30f), std::numeric_limits<int32_t>::max());
}

TEST(FloatSamples, ConvertInPlaceAndIntoAnUnalignedBuffer) {
    const float in[4] = {1.0f, -1.0f, 0.5f, 2.0f};
    const int32_t expected[4] = {2147483647, -2147483647, 1073741824, 2147483647};

    float inPlace[4];
    std::memcpy(inPlace, in, sizeof in);
    mw::FloatToInt32Samples(inPlace, inPlace, 4);
    EXPECT_EQ(std::memcmp(inPlace, expected, sizeof expected), 0);

    BYTE out[17] = {};
    mw::FloatToInt32Samples(in, out + 1, 4);
    EXPECT_EQ(std::memcmp(out + 1, expected, sizeof expected), 0);
    EXPECT_EQ(out[0], 0);
}

TEST(Speakers, MaskAndSetConvertByCast) {
    const TQASpeakers stereo{TQASpeaker::FrontLeft, TQASpeaker::FrontRight};
    EXPECT_EQ(static_cast<DWORD>(stereo), DWORD(SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT));

    const TQASpeakers fivePointOne(0x3F);
    EXPECT_TRUE(fivePointOne.Contains(TQASpeaker::LowFrequency));
    EXPECT_TRUE(fivePointOne.Contains(TQASpeaker::BackRight));
    EXPECT_FALSE(fivePointOne.Contains(TQASpeaker::SideLeft));
    EXPECT_EQ(fivePointOne.Count(), 6);

    const TQASpeakers top{TQASpeaker::TopBackRight};
    EXPECT_EQ(static_cast<DWORD>(top), DWORD(SPEAKER_TOP_BACK_RIGHT));

    // Bits beyond the 18 speakers survive the round trip but are no speaker.
    const TQASpeakers all(SPEAKER_ALL | SPEAKER_FRONT_CENTER);
    EXPECT_EQ(static_cast<DWORD>(all), DWORD(SPEAKER_ALL | SPEAKER_FRONT_CENTER));
    EXPECT_EQ(all.Count(), 1);

    TQASpeakers s = stereo;
    s.Exclude(TQASpeaker::FrontLeft).Include(TQASpeaker::BackCenter);
    EXPECT_EQ(s.Mask(), DWORD(SPEAKER_FRONT_RIGHT | SPEAKER_BACK_CENTER));
}

TEST(AudioFormatEquality, ExtensibleFormatsCompareByMeaning) {
    const auto a = mw::MakePcmWaveFormat(44100, 16, 2);
    auto b = a;
    b.cbSize = 30;  // a longer extension says nothing new about these fields
    EXPECT_TRUE(QAIsEqualAudioFormat(a, b));

    auto other = a;
    other.nSamplesPerSec = 48000;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, other));
    other = a;
    other.wValidBitsPerSample = 12;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, other));
    other = a;
    other.dwChannelMask = SPEAKER_FRONT_LEFT | SPEAKER_BACK_LEFT;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, other));
    other = a;
    other.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, other));
    other = a;
    other.nChannels = 1;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, other));
    EXPECT_FALSE(QAIsEqualAudioFormat(a, TQAWaveFormatExtensible{}));
}

TEST(AudioFormatEquality, NonExtensibleFormatsCompareTheirExtraBytes) {
    TQAWaveFormatExtensible a{};
    a.wFormatTag = WAVE_FORMAT_ADPCM;
    a.nChannels = 1;
    a.nSamplesPerSec = 22050;
    a.cbSize = 4;
    a.wValidBitsPerSample = 500;  // first extra bytes: samples per block
    a.dwChannelMask = 0x00070000;
    auto b = a;
    b.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;  // beyond cbSize: not part of the format
    EXPECT_TRUE(QAIsEqualAudioFormat(a, b));
    b = a;
    b.wValidBitsPerSample = 1000;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, b));
    b = a;
    b.cbSize = 2;
    EXPECT_FALSE(QAIsEqualAudioFormat(a, b));
}

TEST(AudioFormatEquality, SimpleRecordIgnoresCbSizeOnlyForPcm) {
    WAVEFORMATEX a{WAVE_FORMAT_PCM, 2, 44100, 176400, 4, 16, 0};
    WAVEFORMATEX b = a;
    b.cbSize = 22;
    EXPECT_TRUE(QAIsEqualAudioFormatStd(a, b));
    b = a;
    b.nAvgBytesPerSec = 88200;
    EXPECT_FALSE(QAIsEqualAudioFormatStd(a, b));
    b = a;
    b.wBitsPerSample = 8;
    EXPECT_FALSE(QAIsEqualAudioFormatStd(a, b));

    WAVEFORMATEX gsm{WAVE_FORMAT_GSM610, 1, 8000, 1625, 65, 0, 2};
    WAVEFORMATEX gsm2 = gsm;
    EXPECT_TRUE(QAIsEqualAudioFormatStd(gsm, gsm2));
    gsm2.cbSize = 0;
    EXPECT_FALSE(QAIsEqualAudioFormatStd(gsm, gsm2));
}

TEST(AudioFormatStandard, PlainPcmOfOneOrTwoChannelsAnd8Or16Bits) {
    EXPECT_TRUE(QAIsStandardFormat(mw::kProbeWaveFormat));
    EXPECT_TRUE(QAIsStandardFormat(mw::kGraphOutputDefaultWaveFormat));
    EXPECT_TRUE(QAIsStandardFormat(mw::MakePcmWaveFormat(8000, 8, 1)));
    auto noMask = mw::MakePcmWaveFormat(44100, 16, 2, 0);
    EXPECT_TRUE(QAIsStandardFormat(noMask));
    auto simple = mw::MakePcmWaveFormat(44100, 16, 2);
    simple.wFormatTag = WAVE_FORMAT_PCM;
    simple.cbSize = 0;
    EXPECT_TRUE(QAIsStandardFormat(simple));

    EXPECT_FALSE(QAIsStandardFormat(mw::MakePcmWaveFormat(44100, 24, 2)));
    EXPECT_FALSE(QAIsStandardFormat(mw::MakePcmWaveFormat(44100, 32, 2)));
    EXPECT_FALSE(QAIsStandardFormat(mw::MakePcmWaveFormat(44100, 16, 6)));
    EXPECT_FALSE(QAIsStandardFormat(mw::MakePcmWaveFormat(44100, 12, 1)));  // 12 valid of 16
    EXPECT_FALSE(QAIsStandardFormat(mw::MakePcmWaveFormat(44100, 16, 2, SPEAKER_SIDE_LEFT | 1)));
    EXPECT_FALSE(QAIsStandardFormat(TQAWaveFormatExtensible{}));
    auto flt = mw::MakePcmWaveFormat(44100, 16, 2);
    flt.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    EXPECT_FALSE(QAIsStandardFormat(flt));
    auto adpcm = simple;
    adpcm.wFormatTag = WAVE_FORMAT_ADPCM;
    EXPECT_FALSE(QAIsStandardFormat(adpcm));
}

TEST(AudioDuration, SamplesGiveTruncated100nsUnitsAndMilliseconds) {
    EXPECT_EQ(mw::SamplesToDuration100ns(11025, 11025), 10'000'000);
    EXPECT_EQ(mw::SamplesToDuration100ns(1, 44100), 226);  // 226.757...
    EXPECT_EQ(mw::SamplesToDuration100ns(3, 48000), 625);
    EXPECT_EQ(mw::SamplesToMilliseconds(441, 44100), 10);
    EXPECT_EQ(mw::SamplesToMilliseconds(440, 44100), 9);  // 9.977...
    EXPECT_EQ(mw::SamplesToMilliseconds(0, 44100), 0);
    // An hour at 192 kHz does not overflow.
    EXPECT_EQ(mw::SamplesToDuration100ns(int64_t(192000) * 3600, 192000), 36'000'000'000);
    EXPECT_EQ(mw::SamplesToDuration100ns(100, 0), 0);
    EXPECT_EQ(mw::SamplesToMilliseconds(100, 0), 0);
}
