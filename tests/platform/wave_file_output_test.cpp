// "WAV File Output" when things go wrong: a write that fails, a file at the RIFF size limit,
// and headers that end inside a frame.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/platform/wave_test_support.h"

namespace mw::test::wave {
namespace {

std::string TempPath(const std::string& stem) {
    return ::testing::TempDir() + "mw_wavefile_" + std::to_string(getpid()) + "_" + stem;
}

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

uint32_t U32At(const std::vector<uint8_t>& file, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, file.data() + at, 4);
    return v;
}

class WaveFileOutput : public WaveTest {
protected:
    void TearDown() override {
        mw::wave::SetWaveFileOutputPath("");
        mw::wave::SetWaveFileOutputLimit(0);
        if (!path_.empty()) std::remove(path_.c_str());
        WaveTest::TearDown();
    }
    HWAVEOUT OpenFile(const std::string& path, Recorder& rec) {
        mw::wave::SetWaveFileOutputPath(path);
        format_ = Pcm16(2, 48000);
        return Open(format_, rec, mw::wave::FindOutputDevice("WAV File Output"));
    }
    // Writes the buffers and waits until the device gave them all back.
    void PlayAll(HWAVEOUT h, Recorder& rec, std::vector<std::unique_ptr<Buffer>>& buffers) {
        const size_t before = rec.Done().size();
        for (auto& b : buffers)
            PrepareAndWrite(h, *b);
        ASSERT_TRUE(WaitUntil([&] { return rec.Done().size() == before + buffers.size(); }));
        for (auto& b : buffers)
            EXPECT_EQ(waveOutUnprepareHeader(h, b->Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    static MMRESULT DeviceError(HWAVEOUT h) {
        mw::wave::OutputStats stats;
        EXPECT_EQ(mw::wave::GetOutputStats(h, &stats), MMSYSERR_NOERROR);
        return stats.error;
    }

    std::string path_;
    WAVEFORMATEXTENSIBLE format_{};
};

TEST_F(WaveFileOutput, FailedWriteFailsTheDeviceAndItsClose) {
    Recorder rec;
    HWAVEOUT h = OpenFile("/dev/full", rec);  // every write fails: no space left
    ASSERT_NE(h, nullptr);
    auto buffers = MakeBuffers(1, 4 * 480);
    PlayAll(h, rec, buffers);  // taken and given back, as a device does, but not stored
    EXPECT_EQ(DeviceError(h), MMSYSERR_ERROR);
    Buffer more(4 * 480);
    ASSERT_EQ(waveOutPrepareHeader(h, more.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutWrite(h, more.Hdr(), sizeof(WAVEHDR)), MMSYSERR_ERROR);
    EXPECT_EQ(waveOutUnprepareHeader(h, more.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    // The close tells, and the handle is closed all the same.
    EXPECT_EQ(waveOutClose(h), MMSYSERR_ERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_INVALHANDLE);
}

TEST_F(WaveFileOutput, FileStopsAtItsLimitWithAnErrorAndStaysValid) {
    Recorder rec;
    path_ = TempPath("limit.wav");
    mw::wave::SetWaveFileOutputLimit(1000);  // 250 frames of 16-bit stereo
    HWAVEOUT h = OpenFile(path_, rec);
    ASSERT_NE(h, nullptr);
    auto buffers = MakeBuffers(3, 400);
    PlayAll(h, rec, buffers);
    EXPECT_EQ(DeviceError(h), MMSYSERR_ERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_ERROR);

    const std::vector<uint8_t> file = ReadFile(path_);
    ASSERT_EQ(file.size(), 44u + 1000u);
    EXPECT_EQ(std::memcmp(file.data(), "RIFF", 4), 0);
    EXPECT_EQ(U32At(file, 4), file.size() - 8);
    ASSERT_EQ(std::memcmp(file.data() + 36, "data", 4), 0);
    EXPECT_EQ(U32At(file, 40), 1000u);
    // The first 1000 bytes written are there, in order.
    std::vector<uint8_t> sent;
    for (auto& b : buffers)
        sent.insert(sent.end(), b->data.begin(), b->data.end());
    EXPECT_TRUE(std::equal(file.begin() + 44, file.end(), sent.begin()));
}

TEST_F(WaveFileOutput, FramesSplitBetweenHeadersAreWrittenWhole) {
    Recorder rec;
    path_ = TempPath("split.wav");
    HWAVEOUT h = OpenFile(path_, rec);
    ASSERT_NE(h, nullptr);
    // 6 + 1 + 6 + 2 bytes of 4-byte frames: three frames across four headers, then three bytes
    // of a fourth frame.
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (size_t bytes : {6u, 1u, 6u, 2u})
        buffers.push_back(std::make_unique<Buffer>(bytes, static_cast<uint8_t>(bytes)));
    PlayAll(h, rec, buffers);
    EXPECT_EQ(DeviceError(h), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);

    std::vector<uint8_t> sent;
    for (auto& b : buffers)
        sent.insert(sent.end(), b->data.begin(), b->data.end());
    sent.push_back(0);  // the last frame, completed with silence at close
    const std::vector<uint8_t> file = ReadFile(path_);
    ASSERT_EQ(file.size(), 44u + sent.size());
    EXPECT_EQ(U32At(file, 40), sent.size());
    EXPECT_TRUE(std::equal(file.begin() + 44, file.end(), sent.begin()));
}

}  // namespace
}  // namespace mw::test::wave
