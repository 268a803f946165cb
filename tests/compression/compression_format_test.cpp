// Persisted compression formats: the empty and set states, "FormatData" in form files, the
// names, Assign, the items and their owner, the chooser, and the stream-start operation.
#include <gtest/gtest.h>

#include "compression/QACompression.h"
#include "frame/Persistence.h"
#include "mwacm.h"
#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

class TTestCompressionHost : public TLockComponent {
    MW_CLASS(TTestCompressionHost, TLockComponent)
public:
    explicit TTestCompressionHost(TComponent* owner)
        : TLockComponent(owner), Compression(new TQAAudioCompression(this, ComponentLock())) {}
    TOwned<TQAAudioCompression> Compression;
    static void Publish(TPropertyList& p) {
        p.AddObject<TTestCompressionHost>(
            "Compression", [](const TTestCompressionHost& h) { return h.Compression.get(); });
    }
};

class CompressionFormat : public ::testing::Test {
protected:
    void SetUp() override {
        QACompression::RegisterPkg();
        RegisterClass(TTestCompressionHost::StaticClass());
        FHost.reset(TComponent::New<TTestCompressionHost>(nullptr));
        FHost->SetName("Host");
    }
    void TearDown() override { mw::acm::SetFormatChooser({}); }
    TQAAudioCompressionItem* AddItem() { return FHost->Compression->Compressions()->Add(); }
    static DWORD MaxSize() {
        DWORD m = 0;
        acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &m);
        return m;
    }
    TOwned<TTestCompressionHost> FHost;
};

TEST_F(CompressionFormat, ANewFormatIsEmptyAndLeavesNoTrace) {
    TQAAudioCompressionItem* item = AddItem();
    EXPECT_TRUE(item->Format()->Empty());
    EXPECT_EQ(item->GetName(), "[ Empty ]");
    EXPECT_EQ(item->GetDisplayName(), "[ Empty ]");
    EXPECT_EQ(item->Format()->GetFormatSize(), int32_t(MaxSize()));
    const std::string text = mw::WriteComponentToText(*FHost);
    EXPECT_EQ(text.find("FormatData"), std::string::npos) << text;
}

TEST_F(CompressionFormat, ASetFormatIsPersistedAndReadBack) {
    const auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    AddItem()->Format()->SetFormat(gsm.data(), int32_t(gsm.size()));
    AddItem();  // stays empty
    AddItem()->Format()->SetFormat(ima.data(), int32_t(ima.size()));
    const std::string text = mw::WriteComponentToText(*FHost);
    EXPECT_NE(text.find("FormatData"), std::string::npos);

    TOwned<TTestCompressionHost> back(
        static_cast<TTestCompressionHost*>(mw::ReadComponentFromText(text, nullptr)));
    auto* items = back->Compression->Compressions();
    ASSERT_EQ(items->Count(), 3);
    const TQACompressionFormat* f0 = items->GetItem(0)->Format();
    ASSERT_FALSE(f0->Empty());
    ASSERT_EQ(f0->GetFormatSize(), int32_t(gsm.size()));
    EXPECT_EQ(std::memcmp(f0->Format(), gsm.data(), gsm.size()), 0);
    EXPECT_TRUE(items->GetItem(1)->Format()->Empty());
    EXPECT_EQ(items->GetItem(2)->GetName(), "IMA ADPCM [ Stereo, 44100 Hz  ] ");
    EXPECT_EQ(mw::WriteComponentToText(*back), text);
}

TEST_F(CompressionFormat, FormatDataLayoutAndItsEdges) {
    TQACompressionFormat& f = *AddItem()->Format();
    const auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    f.SetFormat(gsm.data(), int32_t(gsm.size()));
    const auto data = f.WriteData();
    ASSERT_EQ(data.size(), 4 + gsm.size());
    EXPECT_EQ(data[0], gsm.size());  // little-endian size first
    EXPECT_EQ(data[1], 0);
    EXPECT_EQ(std::memcmp(data.data() + 4, gsm.data(), gsm.size()), 0);

    // A size of 0 gives the empty state with the platform's largest size, not 0.
    f.ReadData({0, 0, 0, 0});
    EXPECT_TRUE(f.Empty());
    EXPECT_EQ(f.GetFormatSize(), int32_t(MaxSize()));
    // Data that ends before the size it announces is a read error, and changes nothing.
    f.SetFormat(gsm.data(), int32_t(gsm.size()));
    EXPECT_THROW(f.ReadData({40, 0, 0, 0, 1, 2, 3}), EReadError);
    EXPECT_THROW(f.ReadData({1, 0}), EReadError);
    EXPECT_EQ(f.GetFormatSize(), int32_t(gsm.size()));
    EXPECT_FALSE(f.Empty());
}

TEST_F(CompressionFormat, Names) {
    TQACompressionFormat& f = *AddItem()->Format();
    const auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    f.SetFormat(gsm.data(), int32_t(gsm.size()));
    EXPECT_EQ(f.GetName(), "GSM 6.10 [ Mono, 8000 Hz  ] ");
    // An unknown tag has an empty tag text; three channels are counted.
    WAVEFORMATEX odd = Pcm(3, 48000, 16);
    odd.wFormatTag = WAVE_FORMAT_DSPGROUP_TRUESPEECH;
    f.SetFormat(&odd, sizeof odd);
    EXPECT_EQ(f.GetName(), " [ 3 Channels, 48000 Hz  ] ");
    // A block shorter than the record reads as zeros beyond its end.
    const uint16_t tagOnly = WAVE_FORMAT_PCM;
    f.SetFormat(&tagOnly, 2);
    EXPECT_EQ(f.GetName(), "PCM [ 0 Channels, 0 Hz  ] ");
}

TEST_F(CompressionFormat, AssignAndGetFormat) {
    TQACompressionFormat& a = *AddItem()->Format();
    TQACompressionFormat& b = *AddItem()->Format();
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 1, 22050);
    a.SetFormat(ima.data(), int32_t(ima.size()));
    b.Assign(a);
    EXPECT_FALSE(b.Empty());
    ASSERT_EQ(b.GetFormatSize(), a.GetFormatSize());
    EXPECT_EQ(std::memcmp(a.Format(), b.Format(), ima.size()), 0);

    // From an empty format: its block is copied and the state stays empty.
    TQACompressionFormat& empty = *AddItem()->Format();
    b.Assign(empty);
    EXPECT_TRUE(b.Empty());
    EXPECT_EQ(b.GetFormatSize(), int32_t(MaxSize()));

    // Into a smaller destination: only that many bytes; the rest stays.
    std::vector<uint8_t> dest(ima.size() + 4, 0xEE);
    a.GetFormat(dest.data(), 6);
    EXPECT_EQ(std::memcmp(dest.data(), ima.data(), 6), 0);
    EXPECT_EQ(dest[6], 0xEE);
    a.GetFormat(dest.data(), int32_t(dest.size()));
    EXPECT_EQ(dest[ima.size()], 0xEE);

    // The item's setter assigns into the owned format.
    TQAAudioCompressionItem* item = AddItem();
    TQACompressionFormat* owned = item->Format();
    item->SetFormat(a);
    EXPECT_EQ(item->Format(), owned);
    EXPECT_EQ(item->GetName(), "IMA ADPCM [ Mono, 22050 Hz  ] ");
}

TEST_F(CompressionFormat, ShowDialogUsesTheInstalledChooser) {
    TQAAudioCompressionItem* item = AddItem();
    // No chooser: the cancel answer, nothing changed.
    EXPECT_FALSE(item->ShowDialog());
    EXPECT_TRUE(item->Format()->Empty());

    // The chooser sees GSM 6.10 mono at 8000 Hz as the default, and picks mu-law.
    WAVEFORMATEX seen{};
    DWORD seenSize = 0, seenStyle = 0;
    const auto mulaw = Suggest(WAVE_FORMAT_MULAW, 2, 11025);
    mw::acm::SetFormatChooser([&](ACMFORMATCHOOSEA& c) {
        seen = *c.pwfx;
        seenSize = c.cbwfx;
        seenStyle = c.fdwStyle;
        std::memcpy(c.pwfx, mulaw.data(), mulaw.size());
        return MMSYSERR_NOERROR;
    });
    ASSERT_TRUE(item->ShowDialog());
    EXPECT_EQ(seen.wFormatTag, WAVE_FORMAT_GSM610);
    EXPECT_EQ(seen.nChannels, 1);
    EXPECT_EQ(seen.nSamplesPerSec, 8000u);
    EXPECT_EQ(seen.nAvgBytesPerSec, 8000u);
    EXPECT_EQ(seen.nBlockAlign, 1);
    EXPECT_EQ(seen.wBitsPerSample, 8);
    EXPECT_EQ(seenSize, MaxSize());
    EXPECT_EQ(seenStyle, ACMFORMATCHOOSE_STYLEF_INITTOWFXSTRUCT);
    EXPECT_EQ(item->Format()->GetFormatSize(), 18);
    EXPECT_EQ(item->GetName(), "CCITT u-Law [ Stereo, 11025 Hz  ] ");

    // The next choice starts from the present format; a cancel keeps it.
    mw::acm::SetFormatChooser([&](ACMFORMATCHOOSEA& c) {
        seen = *c.pwfx;
        return ACMERR_CANCELED;
    });
    EXPECT_FALSE(item->ShowDialog());
    EXPECT_EQ(seen.wFormatTag, WAVE_FORMAT_MULAW);
    EXPECT_EQ(item->GetName(), "CCITT u-Law [ Stereo, 11025 Hz  ] ");
    // A chooser that writes more than the block holds is refused by the manager.
    mw::acm::SetFormatChooser([&](ACMFORMATCHOOSEA& c) {
        c.pwfx->cbSize = 4000;
        return MMSYSERR_NOERROR;
    });
    EXPECT_FALSE(item->ShowDialog());
    EXPECT_EQ(item->Format()->GetFormatSize(), 18);
}

TEST(StartAudioCompressionOperation, HoldsPrivateCopies) {
    auto ms = Suggest(WAVE_FORMAT_ADPCM, 2, 44100);
    std::vector<uint8_t> extra = {1, 2, 3, 4, 5};
    auto op = MwNew<TQAStartAudioCompressionOperation>(44100.0f, Wfx(ms), extra.data(), 5);
    std::fill(ms.begin(), ms.end(), 0);
    std::fill(extra.begin(), extra.end(), 0);
    EXPECT_EQ(op->Rate, 44100.0);
    ASSERT_NE(op->Format, nullptr);
    EXPECT_EQ(op->Format->wFormatTag, WAVE_FORMAT_ADPCM);
    EXPECT_EQ(op->Format->cbSize, 32);
    EXPECT_EQ(reinterpret_cast<ADPCMWAVEFORMAT*>(op->Format)->aCoef[6].iCoef2, -232);
    EXPECT_EQ(op->CompressionDataSize, 5);
    EXPECT_EQ(static_cast<uint8_t*>(op->CompressionData)[4], 5);
    ComPtr<IQWNotifyOperation> asOp(op.Get());
    EXPECT_TRUE(asOp->IsType<TQWStartSampleRateOperation>());
    EXPECT_TRUE(asOp->IsType<TQWStartRateOperation>());

    auto none = MwNew<TQAStartAudioCompressionOperation>(8000.0f, nullptr, nullptr, 12);
    EXPECT_EQ(none->Format, nullptr);
    EXPECT_EQ(none->CompressionData, nullptr);
    EXPECT_EQ(none->CompressionDataSize, 12);
}

}  // namespace
}  // namespace mw::test::acm
