// The FFmpeg reader: what it hands out for WAV, FLAC, MP3 and WMA files, exact positions and
// seeks, and how it tells the ways a file can fail to open.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/ffmpeg/AudioFileReader.h"
#include "tests/playback/MediaFiles.h"

using mw::media::AudioFileReader;
using mw::media::OutputChoice;
using mw::media::PcmSample;
using mw::media::ReadError;
using mw::test::TempDir;

namespace {

// Reads everything, in chunks of the given size, checking that positions advance by what
// each read returned.
std::vector<uint8_t> ReadAll(AudioFileReader& r, size_t chunkFrames) {
    const size_t frameBytes = r.Format().BytesPerFrame();
    std::vector<uint8_t> out;
    std::vector<uint8_t> chunk(chunkFrames * frameBytes);
    for (;;) {
        const int64_t before = r.Position();
        const size_t n = r.Read(chunk.data(), chunkFrames);
        EXPECT_EQ(r.Position(), before + static_cast<int64_t>(n));
        if (n == 0) break;
        out.insert(out.end(), chunk.begin(),
                   chunk.begin() + static_cast<ptrdiff_t>(n * frameBytes));
    }
    return out;
}

// Whole seconds of a 16-bit tone, as bytes.
std::vector<uint8_t> Bytes(const std::vector<int16_t>& s) {
    std::vector<uint8_t> b(s.size() * 2);
    std::memcpy(b.data(), s.data(), b.size());
    return b;
}

}  // namespace

TEST(AudioFileReader, PcmWavOfEveryIntegerWidthAndFloatDecodesBitExactly) {
    TempDir dir;
    struct Case {
        unsigned bits;
        bool isFloat;
        PcmSample expected;
    };
    for (const Case c : {Case{8, false, PcmSample::UInt8}, Case{16, false, PcmSample::Int16},
                         Case{24, false, PcmSample::Int24}, Case{32, false, PcmSample::Int32},
                         Case{32, true, PcmSample::Float32}}) {
        SCOPED_TRACE(testing::Message() << c.bits << (c.isFloat ? " float" : " int"));
        const unsigned rate = 22050, channels = 2, frames = 11025 + 17;
        const auto samples = mw::test::PatternSamples(frames, channels, c.bits / 8, c.isFloat);
        const std::string path =
            dir.File("pcm" + std::to_string(c.bits) + (c.isFloat ? "f" : "i") + ".wav");
        mw::test::WriteWav(path, rate, channels, c.bits, c.isFloat, samples);

        AudioFileReader r;
        ASSERT_TRUE(r.Open(path)) << r.ErrorText();
        EXPECT_EQ(r.Format().Sample, c.expected);
        EXPECT_EQ(r.Format().Rate, rate);
        EXPECT_EQ(r.Format().Channels, channels);
        EXPECT_EQ(r.Source().Container, "wav");
        const int64_t exact = int64_t(frames) * 10'000'000 / rate;
        EXPECT_NEAR(r.Duration(), exact, 10'000) << "the file's own word, to the millisecond";
        // An odd chunk size, so reads cut across the decoder's own frames.
        EXPECT_EQ(ReadAll(r, 333), samples);
        EXPECT_TRUE(r.AtEnd());
        EXPECT_EQ(r.Duration(), exact) << "exact once the end was read";
        EXPECT_EQ(r.Position(), frames);
        EXPECT_EQ(r.Error(), ReadError::None);
    }
}

TEST(AudioFileReader, ChosenOutputConvertsTheSamples) {
    TempDir dir;
    const auto tone = mw::test::ToneSamples(8000, 1, 4000);
    const std::string path = dir.File("tone.wav");
    mw::test::WriteWav(path, 8000, 1, 16, false, Bytes(tone));

    AudioFileReader r;
    ASSERT_TRUE(r.Open(path, OutputChoice::Float32));
    EXPECT_EQ(r.Format().Sample, PcmSample::Float32);
    const auto bytes = ReadAll(r, 1000);
    ASSERT_EQ(bytes.size(), tone.size() * 4);
    for (size_t i = 0; i < tone.size(); i += 97) {
        float v;
        std::memcpy(&v, &bytes[i * 4], 4);
        EXPECT_FLOAT_EQ(v, tone[i] / 32768.0f) << "sample " << i;
    }
}

TEST(AudioFileReader, FlacIsDecodedLosslessly) {
    TempDir dir;
    const auto tone = mw::test::ToneSamples(44100, 2, 30000);
    const std::string path = dir.File("tone.flac");
    ASSERT_TRUE(mw::test::EncodeAudio(path, "flac", 44100, 2, tone));

    AudioFileReader r;
    ASSERT_TRUE(r.Open(path)) << r.ErrorText();
    EXPECT_EQ(r.Source().Codec, "flac");
    EXPECT_EQ(r.Format().Sample, PcmSample::Int16);
    EXPECT_EQ(ReadAll(r, 4096), Bytes(tone));
    EXPECT_EQ(r.Duration(), int64_t(30000) * 10'000'000 / 44100) << "exact once the end was read";
}

TEST(AudioFileReader, LossyFilesDecodeToFloatOrSixteenBitsAtTheirLength) {
    TempDir dir;
    const unsigned rate = 44100, frames = 44100;
    const auto tone = mw::test::ToneSamples(rate, 2, frames);
    struct Case {
        const char* encoder;
        const char* file;
    };
    for (const Case c : {Case{"libmp3lame", "tone.mp3"}, Case{"wmav2", "tone.wma"}}) {
        SCOPED_TRACE(c.encoder);
        const std::string path = dir.File(c.file);
        if (!mw::test::EncodeAudio(path, c.encoder, rate, 2, tone)) {
            ADD_FAILURE() << "this FFmpeg can't encode with " << c.encoder;
            continue;
        }
        AudioFileReader r;
        ASSERT_TRUE(r.Open(path)) << r.ErrorText();
        EXPECT_EQ(r.Format().Sample, PcmSample::Float32)
            << "a lossy decoder's planar float stays float";
        EXPECT_EQ(r.Format().Channels, 2u);
        EXPECT_GT(r.Source().Duration, 0);
        const auto decoded = ReadAll(r, 1152);
        const int64_t decodedFrames = static_cast<int64_t>(decoded.size() / 8);
        // Encoders pad to whole codec frames; the length stays within a few of them.
        EXPECT_NEAR(decodedFrames, frames, 4096);
        EXPECT_EQ(r.Position(), decodedFrames);

        AudioFileReader s;
        ASSERT_TRUE(s.Open(path, OutputChoice::Int16));
        EXPECT_EQ(s.Format().Sample, PcmSample::Int16);
        EXPECT_EQ(static_cast<int64_t>(ReadAll(s, 1000).size() / 4), decodedFrames);
    }
}

TEST(AudioFileReader, SeekStartsTheNextReadAtTheExactFrame) {
    TempDir dir;
    const unsigned rate = 16000, frames = 16000;
    const auto samples = mw::test::PatternSamples(frames, 1, 2, false);
    const std::string path = dir.File("pattern.wav");
    mw::test::WriteWav(path, rate, 1, 16, false, samples);

    AudioFileReader r;
    ASSERT_TRUE(r.Open(path));
    std::vector<uint8_t> head(200);
    ASSERT_EQ(r.Read(head.data(), 100), 100u);
    for (int64_t frame : {12345, 4000, 0, 15999}) {
        SCOPED_TRACE(frame);
        ASSERT_TRUE(r.Seek(frame * 10'000'000 / rate));
        EXPECT_EQ(r.Position(), frame);
        std::vector<uint8_t> got(2);
        ASSERT_EQ(r.Read(got.data(), 1), 1u);
        EXPECT_EQ(got[0], samples[frame * 2]);
        EXPECT_EQ(got[1], samples[frame * 2 + 1]);
        EXPECT_EQ(r.PositionTime(), (frame + 1) * 10'000'000 / rate);
    }
    ASSERT_TRUE(r.Seek(int64_t(20) * 10'000'000));
    std::vector<uint8_t> tail(2);
    EXPECT_EQ(r.Read(tail.data(), 1), 0u) << "past the end there is nothing";
    EXPECT_TRUE(r.AtEnd());
}

TEST(AudioFileReader, TellsMissingUnreadableAndUndecodableFilesApart) {
    TempDir dir;
    AudioFileReader r;

    EXPECT_FALSE(r.Open(dir.File("missing.wav")));
    EXPECT_EQ(r.Error(), ReadError::NotFound);
    EXPECT_EQ(r.ErrorText(), "No such file or directory");
    EXPECT_FALSE(r.IsOpen());

    EXPECT_FALSE(r.Open(dir.File("")));
    EXPECT_EQ(r.Error(), ReadError::CannotRead) << "a directory";

    const std::string text = dir.File("notes.dat");
    mw::test::WriteBytes(text, std::string(3000, 'x') + "\nthis is not sound at all\n");
    EXPECT_FALSE(r.Open(text));
    EXPECT_EQ(r.Error(), ReadError::NotDecodable);
    EXPECT_EQ(r.ErrorText(), "not an audio file FFmpeg can decode");

    const std::string empty = dir.File("empty.wav");
    mw::test::WriteBytes(empty, "");
    EXPECT_FALSE(r.Open(empty));
    EXPECT_EQ(r.Error(), ReadError::NotDecodable);

    // A failed open leaves a reader that opens the next file normally.
    const std::string good = dir.File("good.wav");
    mw::test::WriteWav(good, 8000, 1, 16, false, mw::test::PatternSamples(80, 1, 2, false));
    ASSERT_TRUE(r.Open(good));
    EXPECT_EQ(r.Error(), ReadError::None);
    EXPECT_TRUE(r.ErrorText().empty());
}
