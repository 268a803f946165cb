// Format tags, their names and blocks: metrics, tag details, suggestion, the chooser, and
// format blocks that are short or contradict themselves.
#include <gtest/gtest.h>

#include <string>

#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

DWORD MaxFormat() {
    DWORD max = 0;
    EXPECT_EQ(acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &max), MMSYSERR_NOERROR);
    return max;
}

TEST(AcmFormats, MaxFormatSizeHoldsEverySuggestedBlock) {
    const DWORD max = MaxFormat();
    EXPECT_GE(max, DWORD(50));  // Microsoft ADPCM with its seven coefficient pairs
    for (const WORD tag :
         {WAVE_FORMAT_ADPCM, WAVE_FORMAT_IMA_ADPCM, WAVE_FORMAT_ALAW, WAVE_FORMAT_MULAW,
          WAVE_FORMAT_MPEGLAYER3, WAVE_FORMAT_WMAUDIO2, WAVE_FORMAT_MSAUDIO1}) {
        MMRESULT r;
        const auto block = Suggest(tag, 2, 44100, &r);
        ASSERT_EQ(r, MMSYSERR_NOERROR) << "tag " << tag;
        EXPECT_LE(block.size(), max) << "tag " << tag;
    }
    EXPECT_EQ(acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, nullptr), MMSYSERR_INVALPARAM);
}

TEST(AcmFormats, TagDetailsNameEachTag) {
    const std::pair<WORD, std::string> names[] = {
        {WAVE_FORMAT_PCM, "PCM"},
        {WAVE_FORMAT_IEEE_FLOAT, "IEEE Float"},
        {WAVE_FORMAT_ADPCM, "Microsoft ADPCM"},
        {WAVE_FORMAT_IMA_ADPCM, "IMA ADPCM"},
        {WAVE_FORMAT_ALAW, "CCITT A-Law"},
        {WAVE_FORMAT_MULAW, "CCITT u-Law"},
        {WAVE_FORMAT_GSM610, "GSM 6.10"},
        {WAVE_FORMAT_MPEGLAYER3, "MPEG Layer-3"},
        {WAVE_FORMAT_MSAUDIO1, "Windows Media Audio V1"},
        {WAVE_FORMAT_WMAUDIO2, "Windows Media Audio V2"},
    };
    for (const auto& [tag, name] : names) {
        ACMFORMATTAGDETAILSA d{};
        d.cbStruct = sizeof d;
        d.dwFormatTag = tag;
        ASSERT_EQ(acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG),
                  MMSYSERR_NOERROR);
        EXPECT_EQ(std::string(d.szFormatTag), name);
        EXPECT_EQ(d.dwFormatTag, tag);
        EXPECT_LE(d.cbFormatSize, MaxFormat());
    }
}

TEST(AcmFormats, TagDetailsRefuseUnknownTagsAndShortRecords) {
    ACMFORMATTAGDETAILSA d{};
    d.cbStruct = sizeof d;
    d.dwFormatTag = WAVE_FORMAT_VSELP;
    EXPECT_EQ(acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG),
              ACMERR_NOTPOSSIBLE);
    EXPECT_EQ(d.szFormatTag[0], '\0');
    d.cbStruct = 40;
    d.dwFormatTag = WAVE_FORMAT_PCM;
    EXPECT_EQ(acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmFormatTagDetailsA(nullptr, nullptr, ACM_FORMATTAGDETAILSF_FORMATTAG),
              MMSYSERR_INVALPARAM);
}

BOOL CALLBACK CollectTag(HACMDRIVERID, LPACMFORMATTAGDETAILSA d, DWORD_PTR instance, DWORD) {
    reinterpret_cast<std::vector<std::string>*>(instance)->push_back(d->szFormatTag);
    return TRUE;
}

TEST(AcmFormats, EnumerationListsEveryTagOnce) {
    std::vector<std::string> names;
    ACMFORMATTAGDETAILSA d{};
    d.cbStruct = sizeof d;
    ASSERT_EQ(acmFormatTagEnumA(nullptr, &d, CollectTag, DWORD_PTR(&names), 0), MMSYSERR_NOERROR);
    EXPECT_EQ(names.size(), 10u);
    EXPECT_NE(std::find(names.begin(), names.end(), "GSM 6.10"), names.end());
}

TEST(AcmFormats, ImaAdpcmBlockIsTheRecordOtherProgramsWrite) {
    const auto block = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    ASSERT_EQ(block.size(), sizeof(IMAADPCMWAVEFORMAT));
    const auto* f = reinterpret_cast<const IMAADPCMWAVEFORMAT*>(block.data());
    EXPECT_EQ(f->wfx.nChannels, 2);
    EXPECT_EQ(f->wfx.nBlockAlign, 2048);
    EXPECT_EQ(f->wfx.wBitsPerSample, 4);
    EXPECT_EQ(f->wfx.cbSize, 2);
    EXPECT_EQ(f->wSamplesPerBlock, 2041);
    EXPECT_EQ(f->wfx.nAvgBytesPerSec, 44100u * 2048 / 2041);

    const auto mono = Suggest(WAVE_FORMAT_IMA_ADPCM, 1, 8000);
    const auto* m = reinterpret_cast<const IMAADPCMWAVEFORMAT*>(mono.data());
    EXPECT_EQ(m->wfx.nBlockAlign, 256);
    EXPECT_EQ(m->wSamplesPerBlock, 505);
}

TEST(AcmFormats, MsAdpcmBlockCarriesItsSevenCoefficients) {
    const auto block = Suggest(WAVE_FORMAT_ADPCM, 1, 22050);
    ASSERT_EQ(block.size(), 50u);
    const auto* f = reinterpret_cast<const ADPCMWAVEFORMAT*>(block.data());
    EXPECT_EQ(f->wfx.cbSize, 32);
    EXPECT_EQ(f->wfx.nBlockAlign, 512);
    EXPECT_EQ(f->wSamplesPerBlock, 1012);
    EXPECT_EQ(f->wNumCoef, 7);
    const short want[7][2] = {{256, 0}, {512, -256}, {0, 0},     {192, 64},
                              {240, 0}, {460, -208}, {392, -232}};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(f->aCoef[i].iCoef1, want[i][0]) << i;
        EXPECT_EQ(f->aCoef[i].iCoef2, want[i][1]) << i;
    }
}

TEST(AcmFormats, GsmMp3AndWmaBlocks) {
    const auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    ASSERT_EQ(gsm.size(), sizeof(GSM610WAVEFORMAT));
    const auto* g = reinterpret_cast<const GSM610WAVEFORMAT*>(gsm.data());
    EXPECT_EQ(g->wfx.nBlockAlign, 65);
    EXPECT_EQ(g->wfx.nAvgBytesPerSec, 1625u);
    EXPECT_EQ(g->wSamplesPerBlock, 320);
    MMRESULT r;
    Suggest(WAVE_FORMAT_GSM610, 2, 8000, &r);
    EXPECT_EQ(r, ACMERR_NOTPOSSIBLE);

    const auto mp3 = Suggest(WAVE_FORMAT_MPEGLAYER3, 2, 44100);
    ASSERT_EQ(mp3.size(), sizeof(MPEGLAYER3WAVEFORMAT));
    const auto* m = reinterpret_cast<const MPEGLAYER3WAVEFORMAT*>(mp3.data());
    EXPECT_EQ(m->wfx.cbSize, MPEGLAYER3_WFX_EXTRA_BYTES);
    EXPECT_EQ(m->wID, MPEGLAYER3_ID_MPEG);
    EXPECT_EQ(m->wfx.nAvgBytesPerSec, 16000u);
    EXPECT_EQ(m->nBlockSize, 144 * 128000 / 44100);
    EXPECT_EQ(m->nFramesPerBlock, 1);
    EXPECT_GT(m->nCodecDelay, 0);

    const auto wma2 = Suggest(WAVE_FORMAT_WMAUDIO2, 2, 44100);
    ASSERT_EQ(wma2.size(), 28u);
    EXPECT_EQ(Wfx(wma2)->cbSize, 10);
    EXPECT_GT(Wfx(wma2)->nBlockAlign, 0);
    const auto wma1 = Suggest(WAVE_FORMAT_MSAUDIO1, 1, 22050);
    ASSERT_EQ(wma1.size(), 22u);
    EXPECT_EQ(Wfx(wma1)->cbSize, 4);
}

TEST(AcmFormats, SuggestedPcmForms) {
    WAVEFORMATEX out{};
    out.wFormatTag = WAVE_FORMAT_PCM;
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 22050);
    ASSERT_EQ(acmFormatSuggest(nullptr, const_cast<WAVEFORMATEX*>(Wfx(ima)), &out, 18,
                               ACM_FORMATSUGGESTF_WFORMATTAG),
              MMSYSERR_NOERROR);
    const WAVEFORMATEX pcm16 = Pcm(2, 22050, 16);
    EXPECT_EQ(std::memcmp(&out, &pcm16, 18), 0);

    // Integer PCM keeps its form; float stands as 32-bit integers.
    WAVEFORMATEX pcm24 = Pcm(1, 48000, 24);
    ASSERT_EQ(acmFormatSuggest(nullptr, &pcm24, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG), 0u);
    EXPECT_EQ(std::memcmp(&out, &pcm24, 18), 0);
    WAVEFORMATEX flt = Pcm(2, 48000, 32);
    flt.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    out.wFormatTag = WAVE_FORMAT_PCM;
    ASSERT_EQ(acmFormatSuggest(nullptr, &flt, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG), 0u);
    EXPECT_EQ(out.wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(out.wBitsPerSample, 32);

    // The extensible form reads as the PCM it holds.
    WAVEFORMATEXTENSIBLE ext{};
    ext.Format = Pcm(2, 44100, 16);
    ext.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    ext.Format.cbSize = 22;
    ext.Samples.wValidBitsPerSample = 16;
    ext.dwChannelMask = 3;
    ext.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
    out.wFormatTag = WAVE_FORMAT_PCM;
    ASSERT_EQ(acmFormatSuggest(nullptr, &ext.Format, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG), 0u);
    const WAVEFORMATEX pcm44 = Pcm(2, 44100, 16);
    EXPECT_EQ(std::memcmp(&out, &pcm44, 18), 0);
}

TEST(AcmFormats, SuggestRefusesWhatCannotBe) {
    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    WAVEFORMATEX out{};
    out.wFormatTag = WAVE_FORMAT_VSELP;
    EXPECT_EQ(acmFormatSuggest(nullptr, &pcm, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG),
              ACMERR_NOTPOSSIBLE);
    // A destination too small for the block.
    out.wFormatTag = WAVE_FORMAT_IMA_ADPCM;
    EXPECT_EQ(acmFormatSuggest(nullptr, &pcm, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmFormatSuggest(nullptr, &pcm, &out, 10, ACM_FORMATSUGGESTF_WFORMATTAG),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmFormatSuggest(nullptr, nullptr, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmFormatSuggest(nullptr, &pcm, &out, 18, 0x1), MMSYSERR_INVALFLAG);
    // A codec doesn't turn into another codec.
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    std::vector<uint8_t> dst(64);
    reinterpret_cast<WAVEFORMATEX*>(dst.data())->wFormatTag = WAVE_FORMAT_ADPCM;
    EXPECT_EQ(acmFormatSuggest(nullptr, reinterpret_cast<WAVEFORMATEX*>(ima.data()),
                               reinterpret_cast<WAVEFORMATEX*>(dst.data()), 64,
                               ACM_FORMATSUGGESTF_WFORMATTAG),
              ACMERR_NOTPOSSIBLE);
}

TEST(AcmFormats, ShortOrContradictoryBlocksAreInvalid) {
    WAVEFORMATEX out{};
    out.wFormatTag = WAVE_FORMAT_PCM;
    auto suggest = [&](const std::vector<uint8_t>& b) {
        return acmFormatSuggest(nullptr,
                                reinterpret_cast<WAVEFORMATEX*>(const_cast<uint8_t*>(b.data())),
                                &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG);
    };
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    ASSERT_EQ(suggest(ima), MMSYSERR_NOERROR);
    auto noExtra = ima;
    reinterpret_cast<WAVEFORMATEX*>(noExtra.data())->cbSize = 0;
    EXPECT_EQ(suggest(noExtra), MMSYSERR_INVALPARAM);
    auto wrongSamples = ima;
    reinterpret_cast<IMAADPCMWAVEFORMAT*>(wrongSamples.data())->wSamplesPerBlock = 1000;
    EXPECT_EQ(suggest(wrongSamples), MMSYSERR_INVALPARAM);
    auto noChannels = ima;
    reinterpret_cast<WAVEFORMATEX*>(noChannels.data())->nChannels = 0;
    EXPECT_EQ(suggest(noChannels), MMSYSERR_INVALPARAM);

    // Microsoft ADPCM claiming more coefficients than its cbSize holds.
    auto ms = Suggest(WAVE_FORMAT_ADPCM, 1, 22050);
    reinterpret_cast<ADPCMWAVEFORMAT*>(ms.data())->wNumCoef = 9;
    EXPECT_EQ(suggest(ms), MMSYSERR_INVALPARAM);

    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    pcm.nBlockAlign = 3;
    EXPECT_EQ(acmFormatSuggest(nullptr, &pcm, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG),
              MMSYSERR_INVALPARAM);
    WAVEFORMATEX unknown = Pcm(2, 44100, 16);
    unknown.wFormatTag = WAVE_FORMAT_DSPGROUP_TRUESPEECH;
    EXPECT_EQ(acmFormatSuggest(nullptr, &unknown, &out, 18, ACM_FORMATSUGGESTF_WFORMATTAG),
              ACMERR_NOTPOSSIBLE);
}

class AcmChooser : public ::testing::Test {
protected:
    void TearDown() override { mw::acm::SetFormatChooser({}); }
    ACMFORMATCHOOSEA Choose(std::vector<uint8_t>& block) {
        ACMFORMATCHOOSEA c{};
        c.cbStruct = sizeof c;
        c.cbwfx = DWORD(block.size());
        c.pwfx = reinterpret_cast<WAVEFORMATEX*>(block.data());
        c.fdwStyle = ACMFORMATCHOOSE_STYLEF_INITTOWFXSTRUCT;
        return c;
    }
};

TEST_F(AcmChooser, WithoutAChooserTheAnswerIsCancel) {
    std::vector<uint8_t> block(MaxFormat(), 0xAB);
    ACMFORMATCHOOSEA c = Choose(block);
    EXPECT_EQ(acmFormatChooseA(&c), ACMERR_CANCELED);
    EXPECT_EQ(block[0], 0xAB);
    c.cbStruct = 100;
    EXPECT_EQ(acmFormatChooseA(&c), MMSYSERR_INVALPARAM);
}

TEST_F(AcmChooser, TheInstalledChooserAnswersAndIsChecked) {
    const auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    DWORD seenStyle = 0;
    mw::acm::SetFormatChooser([&](ACMFORMATCHOOSEA& c) {
        seenStyle = c.fdwStyle;
        std::memcpy(c.pwfx, gsm.data(), gsm.size());
        return MMSYSERR_NOERROR;
    });
    std::vector<uint8_t> block(MaxFormat());
    ACMFORMATCHOOSEA c = Choose(block);
    ASSERT_EQ(acmFormatChooseA(&c), MMSYSERR_NOERROR);
    EXPECT_EQ(seenStyle, ACMFORMATCHOOSE_STYLEF_INITTOWFXSTRUCT);
    EXPECT_EQ(std::memcmp(block.data(), gsm.data(), gsm.size()), 0);
    EXPECT_EQ(std::string(c.szFormatTag), "GSM 6.10");

    // A choice that is no format, or doesn't fit, is refused.
    mw::acm::SetFormatChooser([](ACMFORMATCHOOSEA& c) {
        c.pwfx->wFormatTag = WAVE_FORMAT_IMA_ADPCM;
        c.pwfx->cbSize = 0;
        return MMSYSERR_NOERROR;
    });
    EXPECT_EQ(acmFormatChooseA(&c), MMSYSERR_INVALPARAM);
    // A cbSize running past the block is refused before the block is read.
    mw::acm::SetFormatChooser([](ACMFORMATCHOOSEA& c) {
        c.pwfx->wFormatTag = WAVE_FORMAT_IMA_ADPCM;
        c.pwfx->cbSize = 4000;
        return MMSYSERR_NOERROR;
    });
    EXPECT_EQ(acmFormatChooseA(&c), MMSYSERR_INVALPARAM);
    mw::acm::SetFormatChooser([](ACMFORMATCHOOSEA&) { return ACMERR_CANCELED; });
    EXPECT_EQ(acmFormatChooseA(&c), ACMERR_CANCELED);
}

}  // namespace
}  // namespace mw::test::acm
