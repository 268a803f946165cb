// One ACM stream's life: the start and block-align flags, partial blocks, zero bytes, headers,
// handles used after close, pairs that can't be converted, and streams used from threads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

class AcmStream : public ::testing::Test {
protected:
    void SetUp() override {
        FIma = Suggest(WAVE_FORMAT_IMA_ADPCM, 1, 22050);
        ASSERT_FALSE(FIma.empty());
        ASSERT_EQ(
            acmStreamOpen(&FHas, nullptr, &FPcm, Ima(), nullptr, 0, 0, ACM_STREAMOPENF_NONREALTIME),
            MMSYSERR_NOERROR);
    }
    void TearDown() override {
        if (FHas) acmStreamClose(FHas, 0);
    }
    WAVEFORMATEX* Ima() { return reinterpret_cast<WAVEFORMATEX*>(FIma.data()); }
    size_t Block() { return Ima()->nBlockAlign; }
    int SamplesPerBlock() {
        return reinterpret_cast<IMAADPCMWAVEFORMAT*>(FIma.data())->wSamplesPerBlock;
    }
    // One conversion of `input` with `flags` into a buffer of `room` bytes.
    MMRESULT Convert(std::vector<uint8_t>& input, DWORD flags, std::vector<uint8_t>& out,
                     DWORD& srcUsed, DWORD room = 1 << 16) {
        out.assign(room, 0);
        ACMSTREAMHEADER h{};
        h.cbStruct = sizeof h;
        h.pbSrc = input.data();
        h.cbSrcLength = DWORD(input.size());
        h.pbDst = out.data();
        h.cbDstLength = room;
        EXPECT_EQ(acmStreamPrepareHeader(FHas, &h, 0), MMSYSERR_NOERROR);
        const MMRESULT r = acmStreamConvert(FHas, &h, flags);
        EXPECT_EQ(acmStreamUnprepareHeader(FHas, &h, 0), MMSYSERR_NOERROR);
        srcUsed = h.cbSrcLengthUsed;
        out.resize(h.cbDstLengthUsed);
        return r;
    }

    WAVEFORMATEX FPcm = Pcm(1, 22050, 16);
    std::vector<uint8_t> FIma;
    HACMSTREAM FHas = nullptr;
};

TEST_F(AcmStream, StartResetsTheCodecState) {
    auto input = Bytes(Sine16(1, 22050, size_t(SamplesPerBlock()) * 2, 300));
    std::vector<uint8_t> first, again, carried;
    DWORD used;
    ASSERT_EQ(Convert(input, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN, first, used),
              0u);
    ASSERT_EQ(first.size(), 2 * Block());
    // Without the start flag the predictor carries on from the previous blocks ...
    ASSERT_EQ(Convert(input, ACM_STREAMCONVERTF_BLOCKALIGN, carried, used), 0u);
    EXPECT_NE(carried, first);
    // ... with it, the same input gives the same blocks again.
    ASSERT_EQ(Convert(input, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN, again, used),
              0u);
    EXPECT_EQ(again, first);
}

TEST_F(AcmStream, BlockAlignConvertsWholeBlocksOnly) {
    const size_t block = size_t(SamplesPerBlock()) * 2;
    auto input = Bytes(Sine16(1, 22050, size_t(SamplesPerBlock()) * 3 / 2));
    std::vector<uint8_t> out;
    DWORD used = 0;
    ASSERT_EQ(Convert(input, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN, out, used),
              0u);
    EXPECT_EQ(used, block);
    EXPECT_EQ(out.size(), Block());

    // Without the flag the whole input is taken and the partial block waits inside.
    const size_t spb = size_t(SamplesPerBlock());
    const size_t frames = input.size() / 2;
    ASSERT_EQ(Convert(input, ACM_STREAMCONVERTF_START, out, used), 0u);
    EXPECT_EQ(used, input.size());
    EXPECT_EQ(out.size(), frames / spb * Block());
    ASSERT_EQ(Convert(input, 0, out, used), 0u);
    EXPECT_EQ(out.size(), (2 * frames / spb - frames / spb) * Block());
    ASSERT_NE(2 * frames % spb, 0u);
    // The end pads what waits into a last block.
    std::vector<uint8_t> none;
    ASSERT_EQ(Convert(none, ACM_STREAMCONVERTF_END, out, used), 0u);
    EXPECT_EQ(used, 0u);
    EXPECT_EQ(out.size(), Block());
}

TEST_F(AcmStream, SizeRefusesLessThanABlockAndZeroBytes) {
    DWORD size = 12345;
    EXPECT_EQ(acmStreamSize(FHas, 0, &size, ACM_STREAMSIZEF_SOURCE), ACMERR_NOTPOSSIBLE);
    EXPECT_EQ(acmStreamSize(FHas, DWORD(SamplesPerBlock()) * 2 - 2, &size, ACM_STREAMSIZEF_SOURCE),
              ACMERR_NOTPOSSIBLE);
    ASSERT_EQ(acmStreamSize(FHas, DWORD(SamplesPerBlock()) * 2 * 3, &size, ACM_STREAMSIZEF_SOURCE),
              0u);
    EXPECT_GE(size, 3 * Block());
    EXPECT_EQ(acmStreamSize(FHas, 100, nullptr, ACM_STREAMSIZEF_SOURCE), MMSYSERR_INVALPARAM);

    // Zero bytes convert to nothing.
    std::vector<uint8_t> none, out;
    DWORD used = 99;
    EXPECT_EQ(Convert(none, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN, out, used),
              0u);
    EXPECT_EQ(used, 0u);
    EXPECT_TRUE(out.empty());
}

TEST_F(AcmStream, DecodingAPartialBlockGivesNothing) {
    HACMSTREAM dec = nullptr;
    ASSERT_EQ(acmStreamOpen(&dec, nullptr, Ima(), &FPcm, nullptr, 0, 0, 0), 0u);
    DWORD size = 0;
    const DWORD partialSize = Ima()->nBlockAlign - 1;
    EXPECT_EQ(acmStreamSize(dec, partialSize, &size, 0), ACMERR_NOTPOSSIBLE);
    std::vector<uint8_t> partial(partialSize, 0x11), out(1 << 16);
    ACMSTREAMHEADER h{};
    h.cbStruct = sizeof h;
    h.pbSrc = partial.data();
    h.cbSrcLength = partialSize;
    h.pbDst = out.data();
    h.cbDstLength = DWORD(out.size());
    ASSERT_EQ(acmStreamPrepareHeader(dec, &h, 0), 0u);
    ASSERT_EQ(acmStreamConvert(dec, &h, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN),
              0u);
    EXPECT_EQ(h.cbSrcLengthUsed, 0u);
    EXPECT_EQ(h.cbDstLengthUsed, 0u);
    EXPECT_EQ(acmStreamUnprepareHeader(dec, &h, 0), 0u);
    EXPECT_EQ(acmStreamClose(dec, 0), 0u);
}

TEST_F(AcmStream, OutputThatDoesNotFitWaitsForTheNextCall) {
    auto input = Bytes(Sine16(1, 22050, size_t(SamplesPerBlock()) * 4));
    std::vector<uint8_t> out, rest, none;
    DWORD used;
    ASSERT_EQ(
        Convert(input, ACM_STREAMCONVERTF_START | ACM_STREAMCONVERTF_BLOCKALIGN, out, used, 300),
        0u);
    EXPECT_EQ(out.size(), 300u);
    ASSERT_EQ(Convert(none, ACM_STREAMCONVERTF_BLOCKALIGN, rest, used), 0u);
    EXPECT_EQ(out.size() + rest.size(), 4 * Block());
}

TEST_F(AcmStream, HeadersMustBePreparedForTheirStream) {
    std::vector<uint8_t> src(4096), dst(4096);
    ACMSTREAMHEADER h{};
    h.cbStruct = sizeof h;
    h.pbSrc = src.data();
    h.cbSrcLength = 4096;
    h.pbDst = dst.data();
    h.cbDstLength = 4096;
    EXPECT_EQ(acmStreamConvert(FHas, &h, ACM_STREAMCONVERTF_BLOCKALIGN), ACMERR_UNPREPARED);
    EXPECT_EQ(acmStreamUnprepareHeader(FHas, &h, 0), ACMERR_UNPREPARED);
    ASSERT_EQ(acmStreamPrepareHeader(FHas, &h, 0), 0u);
    EXPECT_TRUE(h.fdwStatus & ACMSTREAMHEADER_STATUSF_PREPARED);
    h.cbSrcLength = 8192;  // longer than prepared
    EXPECT_EQ(acmStreamConvert(FHas, &h, ACM_STREAMCONVERTF_BLOCKALIGN), MMSYSERR_INVALPARAM);
    h.cbSrcLength = 4096;
    EXPECT_EQ(acmStreamConvert(FHas, &h, 0x100), MMSYSERR_INVALFLAG);
    EXPECT_EQ(acmStreamConvert(FHas, &h, ACM_STREAMCONVERTF_BLOCKALIGN), 0u);
    EXPECT_TRUE(h.fdwStatus & ACMSTREAMHEADER_STATUSF_DONE);
    EXPECT_EQ(acmStreamUnprepareHeader(FHas, &h, 0), 0u);
    ACMSTREAMHEADER shortHeader = h;
    shortHeader.cbStruct = 60;
    EXPECT_EQ(acmStreamPrepareHeader(FHas, &shortHeader, 0), MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmStreamConvert(FHas, nullptr, 0), MMSYSERR_INVALPARAM);
}

TEST_F(AcmStream, AClosedStreamIsAnInvalidHandle) {
    HACMSTREAM closed = FHas;
    ASSERT_EQ(acmStreamClose(FHas, 0), 0u);
    FHas = nullptr;
    DWORD size;
    std::vector<uint8_t> src(4096), dst(4096);
    ACMSTREAMHEADER h{};
    h.cbStruct = sizeof h;
    h.pbSrc = src.data();
    h.cbSrcLength = 4096;
    h.pbDst = dst.data();
    h.cbDstLength = 4096;
    EXPECT_EQ(acmStreamSize(closed, 4096, &size, 0), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(acmStreamPrepareHeader(closed, &h, 0), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(acmStreamConvert(closed, &h, 0), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(acmStreamUnprepareHeader(closed, &h, 0), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(acmStreamClose(closed, 0), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(acmStreamClose(nullptr, 0), MMSYSERR_INVALHANDLE);
}

TEST(AcmStreamOpen, PairsThatCannotBeConverted) {
    const WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    auto ms = Suggest(WAVE_FORMAT_ADPCM, 2, 44100);
    HACMSTREAM has = reinterpret_cast<HACMSTREAM>(0x1234);
    auto open = [&](const void* src, const void* dst, DWORD flags = 0) {
        return acmStreamOpen(&has, nullptr, (WAVEFORMATEX*)src, (WAVEFORMATEX*)dst, nullptr, 0, 0,
                             flags);
    };
    // Codec to codec, and a codec to PCM of another rate or channel count.
    EXPECT_EQ(open(ima.data(), ms.data()), ACMERR_NOTPOSSIBLE);
    EXPECT_EQ(has, nullptr);
    const WAVEFORMATEX pcm22 = Pcm(2, 22050, 16), mono = Pcm(1, 44100, 16);
    EXPECT_EQ(open(ima.data(), &pcm22), ACMERR_NOTPOSSIBLE);
    EXPECT_EQ(open(&mono, ima.data()), ACMERR_NOTPOSSIBLE);
    // Unknown tags; blocks the encoder can't make (a block size it doesn't write).
    WAVEFORMATEX truespeech = Pcm(1, 8000, 16);
    truespeech.wFormatTag = WAVE_FORMAT_DSPGROUP_TRUESPEECH;
    EXPECT_EQ(open(&pcm, &truespeech), ACMERR_NOTPOSSIBLE);
    auto odd = ima;
    auto* f = reinterpret_cast<IMAADPCMWAVEFORMAT*>(odd.data());
    f->wfx.nBlockAlign = 1000;
    f->wSamplesPerBlock = (1000 - 8) + 1;
    EXPECT_EQ(open(&pcm, odd.data()), ACMERR_NOTPOSSIBLE);
    EXPECT_EQ(open(odd.data(), &pcm), MMSYSERR_NOERROR);  // but it decodes
    acmStreamClose(has, 0);
    // Null formats, null handle without query, filters.
    EXPECT_EQ(open(nullptr, &pcm), MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmStreamOpen(nullptr, nullptr, (WAVEFORMATEX*)&pcm, (WAVEFORMATEX*)ima.data(),
                            nullptr, 0, 0, 0),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(acmStreamOpen(nullptr, nullptr, (WAVEFORMATEX*)&pcm, (WAVEFORMATEX*)ima.data(),
                            nullptr, 0, 0, ACM_STREAMOPENF_QUERY),
              MMSYSERR_NOERROR);
    WAVEFILTER filter{};
    EXPECT_EQ(
        acmStreamOpen(&has, nullptr, (WAVEFORMATEX*)&pcm, (WAVEFORMATEX*)&pcm, &filter, 0, 0, 0),
        ACMERR_NOTPOSSIBLE);
}

TEST(AcmStreamOpen, DamagedBlocksDecodeAsSilenceOfTheirLength) {
    auto gsm = Suggest(WAVE_FORMAT_GSM610, 1, 8000);
    const WAVEFORMATEX pcm = Pcm(1, 8000, 16);
    std::vector<uint8_t> garbage(65 * 10);
    for (size_t i = 0; i < garbage.size(); ++i)
        garbage[i] = uint8_t(i * 37);
    const Converted dec = ConvertAll(Wfx(gsm), &pcm, garbage);
    ASSERT_EQ(dec.result, MMSYSERR_NOERROR);
    EXPECT_EQ(dec.bytes.size(), 10u * 320 * 2);
}

TEST(AcmStreamThreads, StreamsConvertInParallelAndACloseLetsAConversionFinish) {
    const WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    const auto input = Bytes(Sine16(2, 44100, 2041 * 8));
    const auto want = ConvertAll(&pcm, Wfx(ima), input).bytes;
    std::atomic<int> same{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i)
                if (ConvertAll(&pcm, Wfx(ima), input, 2041 * 4).bytes == want) ++same;
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(same.load(), 10);

    // A stream closed by one thread while another converts on it.
    HACMSTREAM has = nullptr;
    ASSERT_EQ(acmStreamOpen(&has, nullptr, (WAVEFORMATEX*)&pcm, (WAVEFORMATEX*)ima.data(), nullptr,
                            0, 0, 0),
              0u);
    std::atomic<bool> closed{false};
    std::atomic<int> invalid{0};
    std::thread worker([&] {
        std::vector<uint8_t> src = input, dst(1 << 16);
        while (invalid.load() == 0) {
            ACMSTREAMHEADER h{};
            h.cbStruct = sizeof h;
            h.pbSrc = src.data();
            h.cbSrcLength = DWORD(src.size());
            h.pbDst = dst.data();
            h.cbDstLength = DWORD(dst.size());
            const MMRESULT r = acmStreamPrepareHeader(has, &h, 0);
            if (r == MMSYSERR_INVALHANDLE) {
                ++invalid;
                break;
            }
            const MMRESULT c = acmStreamConvert(has, &h, ACM_STREAMCONVERTF_BLOCKALIGN);
            EXPECT_TRUE(c == MMSYSERR_NOERROR || (c == MMSYSERR_INVALHANDLE && closed.load()));
            acmStreamUnprepareHeader(has, &h, 0);
        }
    });
    EXPECT_EQ(acmStreamClose(has, 0), 0u);
    closed = true;
    worker.join();
    EXPECT_EQ(invalid.load(), 1);
}

}  // namespace
}  // namespace mw::test::acm
