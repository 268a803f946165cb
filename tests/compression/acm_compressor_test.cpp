// The stream compressor: the one-or-three chain decision, the flags of each stage's calls as
// the manager sees them, the block handling (unconsumed bytes dropped), and the failures that
// leave a size of 0 or a stale one.
#include <gtest/gtest.h>

#include <mutex>

#include "compression/QAAcmCompressor.h"
#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

class AcmCompressor : public ::testing::Test {
protected:
    void SetUp() override {
        mw::acm::SetStreamCallObserver([this](const mw::acm::StreamCall& c) {
            std::lock_guard g(FLock);
            FCalls.push_back(c);
        });
    }
    void TearDown() override {
        FCompressor.CloseCompressor();
        mw::acm::SetStreamCallObserver({});
    }
    std::vector<mw::acm::StreamCall> Calls(mw::acm::StreamCall::Kind kind) {
        std::lock_guard g(FLock);
        std::vector<mw::acm::StreamCall> r;
        for (const auto& c : FCalls)
            if (c.kind == kind) r.push_back(c);
        return r;
    }
    std::vector<DWORD> ConvertFlags() {
        std::vector<DWORD> r;
        for (const auto& c : Calls(mw::acm::StreamCall::Convert))
            r.push_back(c.flags);
        return r;
    }
    void Forget() {
        std::lock_guard g(FLock);
        FCalls.clear();
    }
    static ComPtr<IQAAudioBuffer> Buffer(const std::vector<uint8_t>& bytes) {
        auto b = MwNew<TQAAudioBuffer>();
        b->Resize(uint32_t(bytes.size()), false);
        if (!bytes.empty()) std::memcpy(b->WritePointer(), bytes.data(), bytes.size());
        return b;
    }
    std::vector<uint8_t> Compress(const std::vector<uint8_t>& bytes) {
        ComPtr<IQAAudioBuffer> result;
        int32_t size = -1;
        FCompressor.CompressBuffer(Buffer(bytes).Get(), result, size);
        EXPECT_GE(size, 0);
        EXPECT_TRUE(result);
        if (!result) return {};
        EXPECT_GE(result->ByteSize(), uint32_t(size));
        return std::vector<uint8_t>(result->ReadPointer(), result->ReadPointer() + size);
    }

    TQAAcmCompressor FCompressor;
    std::mutex FLock;
    std::vector<mw::acm::StreamCall> FCalls;
};

TEST_F(AcmCompressor, SamePcmFormRunsOneStream) {
    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    Forget();
    ASSERT_TRUE(FCompressor.OpenCompressor(&pcm, reinterpret_cast<WAVEFORMATEX*>(ima.data())));
    EXPECT_TRUE(FCompressor.Opened());
    EXPECT_FALSE(FCompressor.NeedsChain());
    const auto opens = Calls(mw::acm::StreamCall::Open);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].srcTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(opens[0].dstTag, WAVE_FORMAT_IMA_ADPCM);
    EXPECT_EQ(opens[0].flags, ACM_STREAMOPENF_NONREALTIME);

    const auto input = Bytes(Sine16(2, 44100, 2041 * 2));
    const auto first = Compress(input);
    const auto second = Compress(input);
    EXPECT_EQ(first.size(), 2 * 2048u);
    EXPECT_EQ(second.size(), 2 * 2048u);
    EXPECT_EQ(ConvertFlags(), (std::vector<DWORD>{20, 4}));
    // The encoding is what one stream gives for the same input.
    EXPECT_EQ(first, ConvertAll(&pcm, Wfx(ima), input).bytes);
}

TEST_F(AcmCompressor, DifferentPcmFormsRunThreeStreamsInOrder) {
    WAVEFORMATEX pcm = Pcm(1, 22050, 16);
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    Forget();
    ASSERT_TRUE(FCompressor.OpenCompressor(&pcm, reinterpret_cast<WAVEFORMATEX*>(ima.data())));
    EXPECT_TRUE(FCompressor.NeedsChain());
    const auto opens = Calls(mw::acm::StreamCall::Open);
    ASSERT_EQ(opens.size(), 3u);
    EXPECT_EQ(opens[0].dstTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(opens[1].srcTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(opens[1].dstTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(opens[2].dstTag, WAVE_FORMAT_IMA_ADPCM);

    // A second of mono at 22050 Hz becomes a second of stereo at 44100 Hz, in IMA blocks.
    const auto sine = Sine16(1, 22050, 22050, 440);
    std::vector<uint8_t> encoded;
    for (int i = 0; i < 4; ++i) {
        const auto out = Compress(Bytes(sine));
        EXPECT_EQ(out.size() % 2048, 0u);
        encoded.insert(encoded.end(), out.begin(), out.end());
    }
    // Each stage starts once and then aligns, stage by stage in chain order.
    EXPECT_EQ(ConvertFlags(), (std::vector<DWORD>{20, 20, 20, 4, 4, 4, 4, 4, 4, 4, 4, 4}));
    const auto handles = Calls(mw::acm::StreamCall::Convert);
    for (size_t i = 0; i < handles.size(); ++i)
        EXPECT_EQ(handles[i].stream, opens[i % 3].stream) << i;

    // The first block's output, decoded, is the sine again on both channels (later blocks
    // lose what didn't fill an IMA block at the end of each).
    WAVEFORMATEX pcm44 = Pcm(2, 44100, 16);
    const std::vector<uint8_t> firstOut(encoded.begin(), encoded.begin() + 2048 * 20);
    const auto decoded = Samples16(ConvertAll(Wfx(ima), &pcm44, firstOut).bytes);
    auto want = Sine16(2, 44100, 44100, 440);
    for (size_t i = 0; i < want.size(); i += 2)
        want[i + 1] = want[i];  // the right channel carries the same mono signal
    want.resize(decoded.size());
    const double snr = BestSnr(want, decoded, 2, 300, 4410 * 2);
    std::printf("[ SNR      ] 22050 Hz mono -> IMA ADPCM 44100 Hz stereo: %.1f dB\n", snr);
    EXPECT_GT(snr, 20.0);

    // A new open starts every stage afresh.
    FCompressor.CloseCompressor();
    Forget();
    ASSERT_TRUE(FCompressor.OpenCompressor(&pcm, reinterpret_cast<WAVEFORMATEX*>(ima.data())));
    Compress(Bytes(sine));
    EXPECT_EQ(ConvertFlags(), (std::vector<DWORD>{20, 20, 20}));
}

TEST_F(AcmCompressor, UnconsumedBytesOfAPartialBlockAreDropped) {
    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    ASSERT_TRUE(FCompressor.OpenCompressor(&pcm, reinterpret_cast<WAVEFORMATEX*>(ima.data())));
    const auto input = Bytes(Sine16(2, 44100, 2041 * 3 / 2));
    // One and a half blocks give one block, twice: the halves are not carried over.
    EXPECT_EQ(Compress(input).size(), 2048u);
    EXPECT_EQ(Compress(input).size(), 2048u);
    // Less than a block: the manager refuses the size, and nothing comes out.
    const std::vector<uint8_t> small(input.begin(), input.begin() + 1000);
    EXPECT_EQ(Compress(small).size(), 0u);
    // Nor from zero bytes.
    EXPECT_EQ(Compress({}).size(), 0u);
}

TEST_F(AcmCompressor, ACompressedInputOfTheOutputsPcmFormIsNotDecoded) {
    // IMA ADPCM decodes to 16-bit PCM of its rate and channels, as the output is: one stream
    // from that PCM to the output, which receives the IMA bytes as they stand.
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    Forget();
    ASSERT_TRUE(FCompressor.OpenCompressor(reinterpret_cast<WAVEFORMATEX*>(ima.data()), &pcm));
    EXPECT_FALSE(FCompressor.NeedsChain());
    ASSERT_EQ(Calls(mw::acm::StreamCall::Open).size(), 1u);
    EXPECT_EQ(Calls(mw::acm::StreamCall::Open)[0].srcTag, WAVE_FORMAT_PCM);
    std::vector<uint8_t> blocks(4096);
    for (size_t i = 0; i < blocks.size(); ++i)
        blocks[i] = uint8_t(i * 7);
    EXPECT_EQ(Compress(blocks), blocks);
}

TEST_F(AcmCompressor, ClosedOrFailedCompressorsGiveSizeZero) {
    const auto input = Bytes(Sine16(2, 44100, 4096));
    ComPtr<IQAAudioBuffer> result;
    int32_t size = 77;
    FCompressor.CompressBuffer(Buffer(input).Get(), result, size);
    EXPECT_EQ(size, 0);
    EXPECT_FALSE(FCompressor.Opened());
    FCompressor.CloseCompressor();
    FCompressor.CloseCompressor();
    EXPECT_TRUE(Calls(mw::acm::StreamCall::Close).empty());

    // An unknown output tag: nothing allocated or opened.
    WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    WAVEFORMATEX unknown = pcm;
    unknown.wFormatTag = WAVE_FORMAT_DSPGROUP_TRUESPEECH;
    EXPECT_FALSE(FCompressor.OpenCompressor(&pcm, &unknown));
    EXPECT_TRUE(Calls(mw::acm::StreamCall::Open).empty());
    EXPECT_FALSE(FCompressor.Opened());

    // The last stage fails to open: the two open ones close, and the failed cell goes to the
    // manager too, which doesn't know what it holds.
    auto odd = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    auto* f = reinterpret_cast<IMAADPCMWAVEFORMAT*>(odd.data());
    f->wfx.nBlockAlign = 1000;
    f->wSamplesPerBlock = (1000 - 8) + 1;
    WAVEFORMATEX mono = Pcm(1, 8000, 16);
    EXPECT_FALSE(FCompressor.OpenCompressor(&mono, reinterpret_cast<WAVEFORMATEX*>(odd.data())));
    EXPECT_FALSE(FCompressor.Opened());
    const auto opens = Calls(mw::acm::StreamCall::Open);
    ASSERT_EQ(opens.size(), 3u);
    EXPECT_EQ(opens[2].result, ACMERR_NOTPOSSIBLE);
    const auto closes = Calls(mw::acm::StreamCall::Close);
    ASSERT_EQ(closes.size(), 3u);
    EXPECT_EQ(closes[0].result, MMSYSERR_NOERROR);
    EXPECT_EQ(closes[1].result, MMSYSERR_NOERROR);
    EXPECT_EQ(closes[2].result, MMSYSERR_INVALHANDLE);
    FCompressor.CompressBuffer(Buffer(input).Get(), result, size);
    EXPECT_EQ(size, 0);
}

TEST_F(AcmCompressor, TheResultBufferIsTheObjectsAndIsNotTrimmed) {
    WAVEFORMATEX pcm = Pcm(1, 8000, 16);
    auto alaw = Suggest(WAVE_FORMAT_ALAW, 1, 8000);
    ASSERT_TRUE(FCompressor.OpenCompressor(&pcm, reinterpret_cast<WAVEFORMATEX*>(alaw.data())));
    ComPtr<IQAAudioBuffer> a, b;
    int32_t sizeA = 0, sizeB = 0;
    FCompressor.CompressBuffer(Buffer(Bytes(Sine16(1, 8000, 800))).Get(), a, sizeA);
    FCompressor.CompressBuffer(Buffer(Bytes(Sine16(1, 8000, 100))).Get(), b, sizeB);
    EXPECT_EQ(a.Get(), b.Get());
    EXPECT_EQ(sizeA, 800);
    EXPECT_EQ(sizeB, 100);
    EXPECT_GE(b->ByteSize(), 800u);  // grown for the first block, never shrunk
}

}  // namespace
}  // namespace mw::test::acm
