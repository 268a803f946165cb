// What reaches a device is exactly what was written: through the tap of "Virtual Output",
// through ALSA (the file plugin records what the PCM was given) and into "WAV File Output".
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/wave/AlsaPcm.h"
#include "platform/wave/WaveDevice.h"
#include "tests/platform/wave_test_support.h"

namespace mw::test::wave {
namespace {

struct FormatCase {
    const char* name;
    WAVEFORMATEXTENSIBLE format;
    snd_pcm_format_t alsaFormat;
};

std::vector<FormatCase> Cases() {
    return {
        {"U8Mono", MakeFormat(WAVE_FORMAT_PCM, 1, 11025, 8), SND_PCM_FORMAT_U8},
        {"S16Stereo", MakeFormat(WAVE_FORMAT_PCM, 2, 44100, 16), SND_PCM_FORMAT_S16_LE},
        {"S24PackedStereo", MakeFormat(WAVE_FORMAT_PCM, 2, 48000, 24), SND_PCM_FORMAT_S24_3LE},
        {"S32Stereo", MakeFormat(WAVE_FORMAT_PCM, 2, 48000, 32), SND_PCM_FORMAT_S32_LE},
        {"FloatStereo", MakeFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 32), SND_PCM_FORMAT_FLOAT_LE},
        {"Extensible6ChS16", MakeFormat(0, 6, 48000, 16, 16, &KSDATAFORMAT_SUBTYPE_PCM, 0x3F),
         SND_PCM_FORMAT_S16_LE},
        {"Extensible6Ch24In32", MakeFormat(0, 6, 48000, 32, 24, &KSDATAFORMAT_SUBTYPE_PCM, 0x3F),
         SND_PCM_FORMAT_S32_LE},
        {"Extensible6ChFloat",
         MakeFormat(0, 6, 48000, 32, 32, &KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 0x3F),
         SND_PCM_FORMAT_FLOAT_LE},
    };
}

std::string TempPath(const std::string& stem) {
    return ::testing::TempDir() + "mw_wave_" + std::to_string(getpid()) + "_" + stem;
}

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

class WaveBitExact : public WaveTest, public ::testing::WithParamInterface<FormatCase> {
protected:
    // Plays ~60 ms in headers of uneven sizes (one a single frame) on device `id` and returns
    // the bytes written, in order.
    std::vector<uint8_t> Play(UINT id) {
        const WAVEFORMATEXTENSIBLE& f = GetParam().format;
        const size_t frame = f.Format.nBlockAlign;
        const size_t frames[] = {f.Format.nSamplesPerSec / 50, 1, f.Format.nSamplesPerSec / 25, 37};
        std::vector<std::unique_ptr<Buffer>> buffers;
        std::vector<uint8_t> source;
        for (size_t i = 0; i < std::size(frames); ++i) {
            buffers.push_back(std::make_unique<Buffer>(frames[i] * frame, static_cast<uint8_t>(i)));
            source.insert(source.end(), buffers.back()->data.begin(), buffers.back()->data.end());
        }
        Recorder rec;
        HWAVEOUT h = Open(f, rec, id);
        if (!h) return {};
        for (auto& b : buffers)
            PrepareAndWrite(h, *b);
        EXPECT_TRUE(rec.WaitForDone(buffers.size()));
        for (auto& b : buffers)
            waveOutUnprepareHeader(h, b->Hdr(), sizeof(WAVEHDR));
        EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
        return source;
    }
};

TEST_P(WaveBitExact, VirtualOutputTapSeesExactlyTheSamples) {
    std::mutex mutex;
    std::vector<uint8_t> tapped;
    std::vector<uint8_t> tappedFormat;
    mw::wave::SetVirtualOutputTap([&](const WAVEFORMATEX& wfx, const void* data, size_t bytes) {
        std::lock_guard lock(mutex);
        auto* p = static_cast<const uint8_t*>(data);
        tapped.insert(tapped.end(), p, p + bytes);
        const auto* w = reinterpret_cast<const uint8_t*>(&wfx);
        tappedFormat.assign(w, w + sizeof(WAVEFORMATEX) + wfx.cbSize);
    });
    const std::vector<uint8_t> source = Play(VirtualOutputId());
    mw::wave::SetVirtualOutputTap(nullptr);
    std::lock_guard lock(mutex);
    ASSERT_EQ(tapped.size(), source.size());
    EXPECT_TRUE(tapped == source);
    // The tap is told the stream's own record, the whole extensible form included.
    const WAVEFORMATEXTENSIBLE& f = GetParam().format;
    const size_t recordBytes = f.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE ? 40 : 16;
    ASSERT_GE(tappedFormat.size(), recordBytes);
    EXPECT_EQ(std::memcmp(tappedFormat.data(), &f, recordBytes), 0);
}

TEST_P(WaveBitExact, AlsaFilePluginRecordsExactlyTheSamples) {
    const std::string raw = TempPath(std::string(GetParam().name) + ".raw");
    const std::string config =
        "pcm.mwtap { type file slave.pcm \"null\" file \"" + raw + "\" format \"raw\" }";
    UINT id = 0;
    ASSERT_EQ(mw::wave::AddAlsaDevice("ALSA tap", "mwtap", config, &id), MMSYSERR_NOERROR);
    ASSERT_LT(id, waveOutGetNumDevs());
    const std::vector<uint8_t> source = Play(id);
    const std::vector<uint8_t> recorded = ReadFile(raw);
    std::remove(raw.c_str());
    ASSERT_EQ(recorded.size(), source.size());
    EXPECT_TRUE(recorded == source);
}

TEST_P(WaveBitExact, WaveFileOutputHoldsExactlyTheSamples) {
    const std::string path = TempPath(std::string(GetParam().name) + ".wav");
    mw::wave::SetWaveFileOutputPath(path);
    const std::vector<uint8_t> source = Play(mw::wave::FindOutputDevice("WAV File Output"));
    mw::wave::SetWaveFileOutputPath("");
    const std::vector<uint8_t> file = ReadFile(path);
    std::remove(path.c_str());
    ASSERT_GE(file.size(), 44u);
    ASSERT_EQ(std::memcmp(file.data(), "RIFF", 4), 0);
    uint32_t fmtBytes;
    std::memcpy(&fmtBytes, file.data() + 16, 4);
    const size_t dataAt = 20 + fmtBytes + 8;
    ASSERT_EQ(std::memcmp(file.data() + 20 + fmtBytes, "data", 4), 0);
    uint32_t dataBytes;
    std::memcpy(&dataBytes, file.data() + 20 + fmtBytes + 4, 4);
    ASSERT_EQ(dataBytes, source.size());
    ASSERT_GE(file.size(), dataAt + dataBytes);
    EXPECT_TRUE(std::equal(source.begin(), source.end(), file.begin() + dataAt));
    uint16_t tag;
    std::memcpy(&tag, file.data() + 20, 2);
    EXPECT_EQ(tag, GetParam().format.Format.wFormatTag);
}

TEST_P(WaveBitExact, MapsToTheAlsaSampleFormat) {
    mw::wave::PcmFormat format;
    ASSERT_EQ(mw::wave::ParseFormat(&GetParam().format.Format, &format), MMSYSERR_NOERROR);
    EXPECT_EQ(mw::wave::AlsaFormatFor(format), GetParam().alsaFormat);
}

INSTANTIATE_TEST_SUITE_P(Formats, WaveBitExact, ::testing::ValuesIn(Cases()),
                         [](const auto& info) { return std::string(info.param.name); });

using WaveOutAlsa = WaveTest;

TEST_F(WaveOutAlsa, ExtraDeviceNeedsAParsableConfigurationAndItsOwnName) {
    const UINT before = waveOutGetNumDevs();
    EXPECT_EQ(mw::wave::AddAlsaDevice("Broken", "x", "pcm.x { type file ", nullptr),
              MMSYSERR_INVALPARAM);
    EXPECT_EQ(mw::wave::AddAlsaDevice("Virtual Output", "null", "", nullptr), MMSYSERR_ALLOCATED);
    EXPECT_EQ(waveOutGetNumDevs(), before);
    // The same name again replaces the definition under the same number.
    UINT first = 0;
    UINT second = 0;
    ASSERT_EQ(mw::wave::AddAlsaDevice("Null A", "null", "", &first), MMSYSERR_NOERROR);
    ASSERT_EQ(mw::wave::AddAlsaDevice("Null A", "mw_no_such_pcm", "", &second), MMSYSERR_NOERROR);
    EXPECT_EQ(first, second);
    auto format = Pcm16();
    EXPECT_EQ(waveOutOpen(nullptr, second, &format.Format, 0, 0, WAVE_FORMAT_QUERY),
              MMSYSERR_NOTENABLED);
}

TEST_F(WaveOutAlsa, MissingPcmFailsToOpenWithoutHanging) {
    UINT id = 0;
    ASSERT_EQ(mw::wave::AddAlsaDevice("Nowhere", "mw_no_such_pcm", "", &id), MMSYSERR_NOERROR);
    WAVEOUTCAPSW caps{};
    ASSERT_EQ(waveOutGetDevCapsW(id, &caps, sizeof caps), MMSYSERR_NOERROR);
    EXPECT_EQ(std::u16string(caps.szPname), u"Nowhere");
    auto format = Pcm16();
    HWAVEOUT h = nullptr;
    EXPECT_EQ(waveOutOpen(&h, id, &format.Format, 0, 0, CALLBACK_NULL), MMSYSERR_NOTENABLED);
    EXPECT_EQ(waveOutOpen(nullptr, id, &format.Format, 0, 0, WAVE_FORMAT_QUERY),
              MMSYSERR_NOTENABLED);
}

TEST_F(WaveOutAlsa, ResetAndPauseWorkOnTheAlsaDevice) {
    const std::string raw = TempPath("reset.raw");
    UINT id = 0;
    ASSERT_EQ(
        mw::wave::AddAlsaDevice(
            "ALSA tap 2", "mwtap2",
            "pcm.mwtap2 { type file slave.pcm \"null\" file \"" + raw + "\" format \"raw\" }", &id),
        MMSYSERR_NOERROR);
    Recorder rec;
    auto format = Pcm16(2, 48000);
    HWAVEOUT h = Open(format, rec, id);
    ASSERT_EQ(waveOutPause(h), MMSYSERR_NOERROR);
    auto buffers = MakeBuffers(3, 4 * 480);
    for (auto& b : buffers)
        PrepareAndWrite(h, *b);
    ASSERT_EQ(waveOutReset(h), MMSYSERR_NOERROR);
    EXPECT_EQ(rec.Done().size(), buffers.size());
    EXPECT_EQ(Samples(h), 0u);
    ASSERT_EQ(waveOutRestart(h), MMSYSERR_NOERROR);
    PrepareAndWrite(h, *buffers[0]);
    ASSERT_TRUE(rec.WaitForDone(4));
    EXPECT_EQ(Samples(h), 480u);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    // Only the header written after the reset reached the device.
    EXPECT_EQ(ReadFile(raw), buffers[0]->data);
    std::remove(raw.c_str());
}

}  // namespace
}  // namespace mw::test::wave
