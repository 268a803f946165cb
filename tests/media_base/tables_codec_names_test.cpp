// The codec tables and the lookups of codec names by FourCC and by wave format tag.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "media_base/DSBaseClass_Tables.h"

namespace {

uint32_t Pack(const char (&key)[5]) {
    return static_cast<uint8_t>(key[0]) | (static_cast<uint8_t>(key[1]) << 8) |
           (static_cast<uint8_t>(key[2]) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(key[3])) << 24);
}

}  // namespace

TEST(VideoCodecTable, HasItsRowsWithFourCharacterKeysThatDifferAtLeastInCase) {
    const auto table = mw::VideoCodecTable();
    ASSERT_EQ(table.size(), 263u);
    std::set<std::string> keys;
    for (const auto& row : table) {
        EXPECT_EQ(std::strlen(row.key), 4u) << row.key;
        EXPECT_GT(std::strlen(row.name), 0u) << row.key;
        keys.insert(row.key);
    }
    EXPECT_EQ(keys.size(), table.size());  // no key stands twice with the same case
    EXPECT_STREQ(table.front().key, "AEMI");
    EXPECT_STREQ(table.back().key, "ZPG4");
}

TEST(VideoCodecTable, DivxInEitherCaseIsTwoRowsWithOneText) {
    const auto table = mw::VideoCodecTable();
    const auto upper = std::find_if(table.begin(), table.end(),
                                    [](const auto& r) { return std::strcmp(r.key, "DIVX") == 0; });
    ASSERT_NE(upper, table.end());
    const auto lower = upper + 1;
    EXPECT_STREQ(lower->key, "divx");
    EXPECT_STREQ(upper->name, "DivXNetworks, Inc. DivX video codec");
    EXPECT_STREQ(lower->name, upper->name);
}

TEST(VideoCodecName, KnownFourCCsGiveTheirRegisteredText) {
    EXPECT_EQ(GQVGetVideoCodecName(Pack("DIVX")), "DivXNetworks, Inc. DivX video codec");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("divx")), "DivXNetworks, Inc. DivX video codec");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("CVID")), "Supermac - Cinepak");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("MJPG")), "Microsoft - Motion JPEG DIB Format");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("MP42")), "Microsoft - MPEG-4 Video Codec V2");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("WMV3")),
              "Microsoft Corporation Windows Media Video V9 Series");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("I420")), "Intel - Indeo 4 codec");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("H264")), "Intel - Conferencing codec");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("YUYV")), "Canopus, Co., Ltd. Canopus YUYV compressor ");
}

TEST(VideoCodecName, KeysWithABlankFourthCharacterMatchTheBlank) {
    EXPECT_EQ(GQVGetVideoCodecName(Pack("IAN ")), "Intel - RDX");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("RVX ")), "Intel - RDX");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("IAN ") & 0x00FFFFFFu), std::string("IAN\0 Unknown", 12));
}

TEST(VideoCodecName, MatchIsCaseSensitiveAndAMissNamesTheBytes) {
    EXPECT_EQ(GQVGetVideoCodecName(Pack("DivX")), "DivX Unknown");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("cvid")), "cvid Unknown");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("H264")), GQVGetVideoCodecName(Pack("H261")));
    EXPECT_EQ(GQVGetVideoCodecName(0), std::string("\0\0\0\0 Unknown", 12));
}

TEST(AudioCodecTable, KeepsItsUnsortedOrder) {
    const auto table = mw::AudioCodecTable();
    ASSERT_EQ(table.size(), 200u);
    EXPECT_EQ(table.front().tag, 0x0001u);
    EXPECT_EQ(table.back().tag, 0x000Bu);
    const auto dts =
        std::find_if(table.begin(), table.end(), [](const auto& r) { return r.tag == 0x0190; });
    ASSERT_NE(dts + 1, table.end());
    EXPECT_EQ((dts + 1)->tag, 0x1979u);
    std::set<uint32_t> tags;
    for (const auto& row : table) {
        tags.insert(row.tag);
        EXPECT_GT(std::strlen(row.name), 0u) << row.tag;
    }
    EXPECT_EQ(tags.size(), table.size());
}

TEST(AudioCodecName, KnownTagsGiveTheirRegisteredText) {
    EXPECT_EQ(GQAGetAudioCodecName(0x0001), "PCM audio in integer format");
    EXPECT_EQ(GQAGetAudioCodecName(0x0002), "Microsoft Corporation. adaptive PCM");
    EXPECT_EQ(GQAGetAudioCodecName(0x0003),
              "Microsoft Corporation. PCM audio in IEEE floating-point format");
    EXPECT_EQ(GQAGetAudioCodecName(0x0050), "Microsoft Corporation - MPEG");
    EXPECT_EQ(GQAGetAudioCodecName(0x0055), "ISO/MPEG Layer 3 format tag");
    EXPECT_EQ(GQAGetAudioCodecName(0x0161), "Microsoft Corporation. - MSAUDIO2");
    EXPECT_EQ(GQAGetAudioCodecName(0x0163), "Microsoft Corporation. - WMA lossless");
    EXPECT_EQ(GQAGetAudioCodecName(0xA106), "ISO/MPEG-4 advanced audio Coding");
    EXPECT_EQ(GQAGetAudioCodecName(0x000B), "Microsoft Corporation. - Windows Media RT Voice");
}

TEST(AudioCodecName, UnknownTagIsNamedInDecimal) {
    EXPECT_EQ(GQAGetAudioCodecName(0xFFFE), "Format 65534 Unknown");
    EXPECT_EQ(GQAGetAudioCodecName(0), "Format 0 Unknown");
    EXPECT_EQ(GQAGetAudioCodecName(0x0066), "Format 102 Unknown");  // labelled, but not a row
}

TEST(VideoCodecTable, NamesTheRegistrantWhereTheRegistryRecordsOne) {
    // Registrants taken from the registry of FourCC codes; the rows it has no entry for say so.
    EXPECT_EQ(GQVGetVideoCodecName(Pack("WZCD")), "CORE Co. Ltd. - iScan");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("S263")), "Sorenson Vision, Inc. - Sorenson Vision H.263");
    EXPECT_EQ(GQVGetVideoCodecName(Pack("ALPH")),
              "Ziracom Digital Communications Inc. - ALPH video format");
    std::set<std::string> unrecorded;
    for (const auto& row : mw::VideoCodecTable())
        if (std::strstr(row.name, "registrant not recorded")) unrecorded.insert(row.key);
    EXPECT_EQ(unrecorded,
              (std::set<std::string>{"VTC1", "VTC2", "VTC3", "VTC4", "VTC5", "VTC6", "VTC7", "VTC8",
                                     "VTC9", "YCCK", "ZPG1", "ZPG2", "ZPG3", "ZPG4"}));
    EXPECT_EQ(GQAGetAudioCodecName(0x0190), "Digital Theatre Systems, Inc. - DTS DS");
}
