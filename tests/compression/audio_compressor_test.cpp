// The compressor component between wire pins, and the WAV file writer behind it: streams
// compressed and decompressed whole (no block lost), the start operation each way, rate and
// channel changes, float input, errors, persistence, and WAV files that FFmpeg and sox read
// back to the same samples as ours.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "compression/QAAudioCompressor.h"
#include "compression/QAWaveFileWriter.h"
#include "frame/Persistence.h"
#include "tests/acm/acm_test_support.h"

namespace mw::test::acm {
namespace {

// A source pin to feed the component and a sink pin that records what comes out.
class CompressorRig : public ::testing::Test {
protected:
    void SetUp() override {
        QAAudioCompressor::RegisterPkg();
        FHost.reset(TComponent::New<TLockComponent>(nullptr));
        FSource = std::make_unique<TQAQWAudioSourcePin>(FHost.get(), FHost->ComponentLock(),
                                                        nullptr, nullptr);
        FSink = std::make_unique<TQAQWAudioSinkPin>(
            FHost.get(), FHost->ComponentLock(),
            [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                   TQWNotifyState) {
                FOps.push_back(op);
                if (auto* b = op->InstanceAs<TQWSuppliedBufferOperation>())
                    FOut.insert(FOut.end(), b->Data->ReadPointer(),
                                b->Data->ReadPointer() + b->Data->ByteSize());
                return 0;
            });
        FComp.reset(TComponent::New<TQAAudioCompressor>(nullptr));
        FComp->SetOnError([this](TObject*, const std::string& text, uint32_t, bool& handled) {
            FErrors.push_back(text);
            handled = true;
        });
        ASSERT_TRUE(FSource->Connect(FComp->InputPin()));
        ASSERT_TRUE(FComp->OutputPin().Connect(*FSink));
    }
    void TearDown() override {
        FSource->Close();
        FSink->Close();
        FComp.reset();
    }
    void SetFormat(const std::vector<uint8_t>& block) {
        TQACompressionFormat f(nullptr, FHost->ComponentLock());
        f.SetFormat(block.data(), int32_t(block.size()));
        FComp->SetFormat(f);
    }
    void StartPcm(int channels, int rate, int bits, bool isFloat = false) {
        auto f = MakePcmWaveFormat(DWORD(rate), WORD(bits), WORD(channels));
        if (isFloat) f.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
        FSource->Notify(MwNew<TQWStartWaveOperation>(f));
    }
    void SendInPieces(const std::vector<uint8_t>& bytes, size_t piece) {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            const size_t n = std::min(piece, bytes.size() - at);
            FSource->SubmitBuffer(MwNew<TQSBlockBuffer>(bytes.data() + at, uint32_t(n)));
        }
    }
    void Stop() { FSource->Notify(MwNew<TQWStopOperation>()); }
    template <class T>
    T* First() {
        for (auto& op : FOps)
            if (auto* t = op->InstanceAs<T>()) return t;
        return nullptr;
    }

    TOwned<TLockComponent> FHost;
    std::unique_ptr<TQAQWAudioSourcePin> FSource;
    std::unique_ptr<TQAQWAudioSinkPin> FSink;
    TOwned<TQAAudioCompressor> FComp;
    std::vector<ComPtr<IQWNotifyOperation>> FOps;
    std::vector<uint8_t> FOut;
    std::vector<std::string> FErrors;
};

TEST_F(CompressorRig, CompressesAStreamWholeAndAnnouncesItsFormat) {
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 2, 44100);
    SetFormat(ima);
    const auto sine = Sine16(2, 44100, 10000);
    StartPcm(2, 44100, 16);
    SendInPieces(Bytes(sine), 1000 * 4 + 2);  // pieces that split frames and blocks
    Stop();
    auto* start = First<TQAStartAudioCompressionOperation>();
    ASSERT_NE(start, nullptr);
    EXPECT_EQ(start->Rate, 44100.0);
    ASSERT_NE(start->Format, nullptr);
    EXPECT_EQ(std::memcmp(start->Format, ima.data(), ima.size()), 0);
    EXPECT_EQ(start->CompressionDataSize, 2);
    ASSERT_NE(First<TQWStopOperation>(), nullptr);
    EXPECT_TRUE(FErrors.empty());
    // 10000 frames make four full blocks and a fifth padded with silence.
    ASSERT_EQ(FOut.size(), 5 * 2048u);
    const WAVEFORMATEX pcm = Pcm(2, 44100, 16);
    const auto decoded = Samples16(ConvertAll(Wfx(ima), &pcm, FOut).bytes);
    ASSERT_GE(decoded.size(), sine.size());
    EXPECT_GT(Snr(sine, decoded), 30.0);
    // The same blocks as one stream given the whole input.
    auto padded = sine;
    padded.resize(5 * 2041 * 2, 0);
    EXPECT_EQ(FOut, ConvertAll(&pcm, Wfx(ima), Bytes(padded)).bytes);
}

TEST_F(CompressorRig, DecompressesToPcmOfTheSameFormBitExactly) {
    // IMA ADPCM decodes to 16-bit PCM, the form of the output: the component goes by way of
    // 32-bit PCM and gives exactly what a direct decode gives.
    const auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 1, 22050);
    const WAVEFORMATEX pcm = Pcm(1, 22050, 16);
    const auto blocks = ConvertAll(&pcm, Wfx(ima), Bytes(Sine16(1, 22050, 1017 * 6))).bytes;
    ASSERT_EQ(blocks.size(), 6 * 512u);
    FSource->Notify(MwNew<TQAStartAudioCompressionOperation>(22050.0f, Wfx(ima), nullptr, 0));
    SendInPieces(blocks, 700);
    Stop();
    auto* start = First<TQWStartWaveOperation>();
    ASSERT_NE(start, nullptr);
    EXPECT_EQ(start->Format.nSamplesPerSec, 22050u);
    EXPECT_EQ(start->Format.wBitsPerSample, 16);
    EXPECT_EQ(start->Format.nChannels, 1);
    EXPECT_EQ(FOut, ConvertAll(Wfx(ima), &pcm, blocks).bytes);
    // PCM buffers carry their times.
    auto* last = static_cast<TQWSuppliedBufferOperation*>(nullptr);
    for (auto& op : FOps)
        if (auto* b = op->InstanceAs<TQWSuppliedBufferOperation>()) last = b;
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->Data->TimeStamp()->EndTime(), SamplesToDuration100ns(6 * 1017, 22050));
}

TEST_F(CompressorRig, ChangesRateAndChannels) {
    SetFormat(BlockOfWfx(Pcm(2, 44100, 16)));
    StartPcm(1, 22050, 16);
    SendInPieces(Bytes(Sine16(1, 22050, 22050, 300)), 4410 * 2);
    Stop();
    ASSERT_NE(First<TQWStartWaveOperation>(), nullptr);
    EXPECT_EQ(First<TQWStartWaveOperation>()->Format.nChannels, 2);
    const auto out = Samples16(FOut);
    EXPECT_NEAR(double(out.size()) / 2, 44100.0, 300);
    size_t mismatched = 0;
    for (size_t i = 0; i + 1 < out.size(); i += 2)
        mismatched += out[i] != out[i + 1];
    EXPECT_EQ(mismatched, 0u);
}

TEST_F(CompressorRig, FloatInputToThirtyTwoBitPcm) {
    // Float's PCM form is 32-bit PCM, as the output's: the component hops through 24 bits.
    SetFormat(BlockOfWfx(Pcm(1, 48000, 32)));
    StartPcm(1, 48000, 32, true);
    std::vector<float> f(4800);
    for (size_t i = 0; i < f.size(); ++i)
        f[i] = float(0.5 * std::sin(i * 0.05));
    std::vector<uint8_t> bytes(f.size() * 4);
    std::memcpy(bytes.data(), f.data(), bytes.size());
    SendInPieces(bytes, 999 * 4);
    Stop();
    ASSERT_EQ(FOut.size(), f.size() * 4);
    std::vector<int32_t> got(f.size());
    std::memcpy(got.data(), FOut.data(), FOut.size());
    for (size_t i = 0; i < f.size(); ++i)
        ASSERT_NEAR(got[i] / 2147483648.0, f[i], 1e-6) << i;
}

TEST_F(CompressorRig, UnusableFormatsReportAndSendNothing) {
    WAVEFORMATEX truespeech = Pcm(1, 8000, 16);
    truespeech.wFormatTag = WAVE_FORMAT_DSPGROUP_TRUESPEECH;
    SetFormat(BlockOfWfx(truespeech));
    StartPcm(1, 8000, 16);
    SendInPieces(Bytes(Sine16(1, 8000, 800)), 400);
    Stop();
    ASSERT_EQ(FErrors.size(), 1u);
    EXPECT_NE(FErrors[0].find("tag 34"), std::string::npos) << FErrors[0];
    EXPECT_TRUE(FOps.empty());
    // An IMA block whose samples per block contradict its block size.
    FErrors.clear();
    auto ima = Suggest(WAVE_FORMAT_IMA_ADPCM, 1, 8000);
    reinterpret_cast<IMAADPCMWAVEFORMAT*>(ima.data())->wSamplesPerBlock = 100;
    SetFormat(ima);
    StartPcm(1, 8000, 16);
    EXPECT_EQ(FErrors.size(), 1u);
    EXPECT_TRUE(FOps.empty());
}

TEST_F(CompressorRig, OtherOperationsPassThroughAndFormatPersists) {
    SetFormat(Suggest(WAVE_FORMAT_MULAW, 1, 8000));
    StartPcm(1, 8000, 16);
    FSource->Notify(MwNew<TQWQSPauseOperation>());
    FSource->Notify(MwNew<TQWFlushStreamOperation>());
    FSource->Notify(MwNew<TQWQSResumeOperation>());
    EXPECT_NE(First<TQWQSPauseOperation>(), nullptr);
    EXPECT_NE(First<TQWFlushStreamOperation>(), nullptr);
    EXPECT_NE(First<TQWQSResumeOperation>(), nullptr);

    FComp->SetName("Compressor1");
    const std::string text = mw::WriteComponentToText(*FComp);
    EXPECT_NE(text.find("FormatData"), std::string::npos);
    TOwned<TQAAudioCompressor> back(
        static_cast<TQAAudioCompressor*>(mw::ReadComponentFromText(text, nullptr)));
    EXPECT_EQ(back->Format()->GetName(), "CCITT u-Law [ Mono, 8000 Hz  ] ");
}

// ---- WAV files

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// Decodes a file to 16-bit samples with a program (ffmpeg or sox); empty when it fails.
std::vector<int16_t> DecodeWith(const std::string& cmd, const std::string& raw) {
    if (std::system(cmd.c_str()) != 0) return {};
    return Samples16(ReadFile(raw));
}

class WaveFileRig : public CompressorRig {
protected:
    void SetUp() override {
        CompressorRig::SetUp();
        FWriter.reset(TComponent::New<TQAWaveFileWriter>(nullptr));
        FPath = ::testing::TempDir() + "mw_compress_" + std::to_string(getpid()) + ".wav";
        FWriter->SetFileName(FPath);
        ASSERT_TRUE(FComp->OutputPin().Connect(FWriter->InputPin()));
    }
    void TearDown() override {
        CompressorRig::TearDown();
        FWriter.reset();
        std::remove(FPath.c_str());
    }
    TOwned<TQAWaveFileWriter> FWriter;
    std::string FPath;
};

TEST_F(WaveFileRig, CompressedFilesDecodeInOtherProgramsToOurSamples) {
    for (const WORD tag :
         {WAVE_FORMAT_IMA_ADPCM, WAVE_FORMAT_ADPCM, WAVE_FORMAT_MULAW, WAVE_FORMAT_ALAW}) {
        const auto block = Suggest(tag, 2, 22050);
        SetFormat(block);
        StartPcm(2, 22050, 16);
        SendInPieces(Bytes(Sine16(2, 22050, 22050, 700)), 8192);
        Stop();
        ASSERT_TRUE(FWriter->Finished());
        const auto file = ReadFile(FPath);
        ASSERT_GT(file.size(), 60u);
        // RIFF, the fmt chunk holding the format block as it is, fact, data.
        EXPECT_EQ(std::memcmp(file.data(), "RIFF", 4), 0);
        uint32_t riff, fmtSize;
        std::memcpy(&riff, file.data() + 4, 4);
        EXPECT_EQ(riff, file.size() - 8);
        std::memcpy(&fmtSize, file.data() + 16, 4);
        ASSERT_EQ(fmtSize, block.size());
        EXPECT_EQ(std::memcmp(file.data() + 20, block.data(), block.size()), 0);
        const size_t fact = 20 + fmtSize + (fmtSize % 2);
        EXPECT_EQ(std::memcmp(file.data() + fact, "fact", 4), 0);
        const size_t data = fact + 12;
        ASSERT_EQ(std::memcmp(file.data() + data, "data", 4), 0);
        uint32_t dataSize;
        std::memcpy(&dataSize, file.data() + data + 4, 4);
        EXPECT_EQ(dataSize, FWriter->DataBytes());
        const std::vector<uint8_t> payload(file.begin() + long(data + 8),
                                           file.begin() + long(data + 8 + dataSize));
        const WAVEFORMATEX pcm = Pcm(2, 22050, 16);
        const auto ours = Samples16(ConvertAll(Wfx(block), &pcm, payload).bytes);
        ASSERT_GE(ours.size(), 22050u * 2);

        const std::string raw = FPath + ".raw";
        if (std::system("ffmpeg -hide_banner -version >/dev/null 2>&1") == 0) {
            const auto theirs = DecodeWith("ffmpeg -hide_banner -loglevel error -y -i " + FPath +
                                               " -f s16le -acodec pcm_s16le " + raw,
                                           raw);
            ASSERT_FALSE(theirs.empty()) << "ffmpeg read nothing, tag " << tag;
            const size_t n = std::min(theirs.size(), ours.size());
            EXPECT_GE(n, 22050u * 2);
            EXPECT_TRUE(std::equal(theirs.begin(), theirs.begin() + long(n), ours.begin()))
                << "ffmpeg, tag " << tag;
        }
        if (std::system("sox --version >/dev/null 2>&1") == 0 && tag != WAVE_FORMAT_ADPCM) {
            const auto theirs =
                DecodeWith("sox -q " + FPath + " -t raw -e signed -b 16 " + raw, raw);
            ASSERT_FALSE(theirs.empty()) << "sox read nothing, tag " << tag;
            const size_t n = std::min(theirs.size(), ours.size());
            EXPECT_GE(n, 22050u * 2);
            // sox decodes with its own code: A-law and mu-law to the same samples; its IMA ADPCM
            // decoder rounds its own way, so there the figure is the distance between the two.
            size_t off = 0;
            int most = 0;
            for (size_t i = 0; i < n; ++i) {
                off += std::abs(theirs[i] - ours[i]) > 1;
                most = std::max(most, std::abs(theirs[i] - ours[i]));
            }
            const double snr =
                Snr(std::vector<int16_t>(ours.begin(), ours.begin() + long(n)), theirs);
            std::printf("[ sox      ] tag %d: %zu of %zu samples differ, by %d at most (%.1f dB)\n",
                        tag, off, n, most, snr);
            if (tag == WAVE_FORMAT_IMA_ADPCM)
                EXPECT_GT(snr, 45.0);
            else
                EXPECT_EQ(off, 0u) << "sox, tag " << tag;
        }
        std::remove(raw.c_str());
        FOut.clear();
        FOps.clear();
    }
}

TEST_F(WaveFileRig, AnUnwritableFileIsReported) {
    std::vector<std::string> errors;
    FWriter->SetOnError([&](TObject*, const std::string& text, uint32_t, bool& handled) {
        errors.push_back(text);
        handled = true;
    });
    FWriter->SetFileName("/nonexistent-dir/x.wav");
    SetFormat(BlockOfWfx(Pcm(1, 8000, 16)));
    StartPcm(1, 8000, 16);
    SendInPieces(Bytes(Sine16(1, 8000, 800)), 400);
    Stop();
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_NE(errors[0].find("/nonexistent-dir/x.wav"), std::string::npos);
    EXPECT_FALSE(FWriter->Finished());
}

}  // namespace
}  // namespace mw::test::acm
