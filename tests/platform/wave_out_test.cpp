// The waveOut functions on "Virtual Output": device list, opening, header bookkeeping, the
// order and thread of messages, pause, reset and close.
#include <set>
#include <string>

#include "platform/wave/AlsaPcm.h"
#include "tests/platform/wave_test_support.h"

namespace mw::test::wave {
namespace {

std::u16string NameOf(UINT_PTR id) {
    WAVEOUTCAPSW caps{};
    EXPECT_EQ(waveOutGetDevCapsW(id, &caps, sizeof caps), MMSYSERR_NOERROR);
    return std::u16string(caps.szPname);
}

using WaveOutDevices = WaveTest;

TEST_F(WaveOutDevices, ListsVirtualOutputWithShortStableNames) {
    const UINT count = waveOutGetNumDevs();
    ASSERT_GE(count, 2u);
    std::set<std::u16string> names;
    for (UINT i = 0; i < count; ++i) {
        WAVEOUTCAPSW caps;
        std::memset(&caps, 0xAB, sizeof caps);
        ASSERT_EQ(waveOutGetDevCapsW(i, &caps, sizeof caps), MMSYSERR_NOERROR);
        const std::u16string name(caps.szPname, std::char_traits<char16_t>::length(caps.szPname));
        EXPECT_LE(name.size(), 31u);
        EXPECT_FALSE(name.empty());
        EXPECT_GE(caps.wChannels, 1);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), count) << "device names are unique";
    EXPECT_TRUE(names.count(u"Virtual Output"));
    EXPECT_EQ(NameOf(VirtualOutputId()), u"Virtual Output");
    EXPECT_EQ(mw::wave::FindOutputDevice("no such device"), WAVE_MAPPER);
}

TEST_F(WaveOutDevices, UnknownDeviceNumberIsRefused) {
    const UINT count = waveOutGetNumDevs();
    WAVEOUTCAPSW caps{};
    EXPECT_EQ(waveOutGetDevCapsW(count, &caps, sizeof caps), MMSYSERR_BADDEVICEID);
    EXPECT_EQ(waveOutGetDevCapsW(count + 1000, &caps, sizeof caps), MMSYSERR_BADDEVICEID);
    auto format = Pcm16();
    HWAVEOUT h = nullptr;
    EXPECT_EQ(waveOutOpen(&h, count, &format.Format, 0, 0, CALLBACK_NULL), MMSYSERR_BADDEVICEID);
    EXPECT_EQ(waveOutOpen(nullptr, count, &format.Format, 0, 0, WAVE_FORMAT_QUERY),
              MMSYSERR_BADDEVICEID);
}

TEST_F(WaveOutDevices, DefaultIsVirtualOutputWithoutASoundCard) {
    if (mw::wave::AlsaDefaultOpens()) GTEST_SKIP() << "this machine has a default ALSA device";
    EXPECT_EQ(mw::wave::DefaultOutputName(), "Virtual Output");
    EXPECT_EQ(NameOf(WAVE_MAPPER), u"Virtual Output");

    std::atomic<size_t> tapped{0};
    mw::wave::SetVirtualOutputTap(
        [&](const WAVEFORMATEX&, const void*, size_t bytes) { tapped += bytes; });
    Recorder rec;
    auto format = Pcm16();
    HWAVEOUT h = Open(format, rec, WAVE_MAPPER);
    Buffer b(480 * 4);
    PrepareAndWrite(h, b);
    ASSERT_TRUE(rec.WaitForDone(1));
    EXPECT_EQ(tapped.load(), b.data.size());
    EXPECT_EQ(waveOutUnprepareHeader(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
}

TEST_F(WaveOutDevices, CapabilitiesOfAnOpenHandleAreThoseOfItsDevice) {
    Recorder rec;
    auto format = Pcm16();
    HWAVEOUT h = Open(format, rec);
    EXPECT_EQ(NameOf(reinterpret_cast<UINT_PTR>(h)), u"Virtual Output");
    WAVEOUTCAPSA caps{};
    EXPECT_EQ(waveOutGetDevCapsA(VirtualOutputId(), &caps, sizeof caps), MMSYSERR_NOERROR);
    EXPECT_STREQ(caps.szPname, "Virtual Output");
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
}

TEST_F(WaveOutDevices, WaveFileOutputNeedsAPathToOpen) {
    const UINT id = mw::wave::FindOutputDevice("WAV File Output");
    ASSERT_NE(id, WAVE_MAPPER);
    mw::wave::SetWaveFileOutputPath("");
    auto format = Pcm16();
    HWAVEOUT h = nullptr;
    EXPECT_EQ(waveOutOpen(&h, id, &format.Format, 0, 0, CALLBACK_NULL), MMSYSERR_NOTENABLED);
    mw::wave::SetWaveFileOutputPath("/nonexistent-dir/out.wav");
    EXPECT_EQ(waveOutOpen(&h, id, &format.Format, 0, 0, CALLBACK_NULL), MMSYSERR_NOTENABLED);
    mw::wave::SetWaveFileOutputPath("");
}

using WaveOutOpen = WaveTest;

TEST_F(WaveOutOpen, AcceptsEveryPcmAndFloatForm) {
    const WAVEFORMATEXTENSIBLE formats[] = {
        MakeFormat(WAVE_FORMAT_PCM, 1, 11025, 8),
        MakeFormat(WAVE_FORMAT_PCM, 2, 44100, 16),
        MakeFormat(WAVE_FORMAT_PCM, 2, 48000, 24),
        MakeFormat(WAVE_FORMAT_PCM, 2, 96000, 32),
        MakeFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 48000, 32),
        MakeFormat(0, 1, 11025, 16, 16, &KSDATAFORMAT_SUBTYPE_PCM, SPEAKER_FRONT_CENTER),
        MakeFormat(0, 6, 48000, 32, 24, &KSDATAFORMAT_SUBTYPE_PCM, 0x3F),
        MakeFormat(0, 6, 48000, 32, 32, &KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 0x3F),
    };
    for (const auto& f : formats) {
        SCOPED_TRACE(testing::Message()
                     << "tag " << f.Format.wFormatTag << " bits " << f.Format.wBitsPerSample
                     << " channels " << f.Format.nChannels);
        EXPECT_EQ(waveOutOpen(nullptr, VirtualOutputId(), &f.Format, 0, 0, WAVE_FORMAT_QUERY),
                  MMSYSERR_NOERROR);
        Recorder rec;
        HWAVEOUT h = Open(f, rec);
        EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    }
}

TEST_F(WaveOutOpen, RefusesFormatsNoDeviceCanTake) {
    WAVEFORMATEXTENSIBLE bad[] = {
        MakeFormat(WAVE_FORMAT_ADPCM, 2, 44100, 4),
        MakeFormat(WAVE_FORMAT_PCM, 2, 44100, 12),
        MakeFormat(WAVE_FORMAT_PCM, 0, 44100, 16),
        MakeFormat(WAVE_FORMAT_PCM, 2, 0, 16),
        MakeFormat(WAVE_FORMAT_IEEE_FLOAT, 2, 44100, 16),
        MakeFormat(0, 2, 44100, 16, 20, &KSDATAFORMAT_SUBTYPE_PCM),
        MakeFormat(0, 2, 44100, 16, 16, &KSDATAFORMAT_SUBTYPE_ALAW),
        MakeFormat(WAVE_FORMAT_PCM, 2, 44100, 16),
        MakeFormat(0, 2, 44100, 16, 16, &KSDATAFORMAT_SUBTYPE_PCM),
    };
    bad[7].Format.nBlockAlign = 3;  // not channels * bits / 8
    bad[8].Format.cbSize = 10;      // too short for the extensible record
    for (const auto& f : bad) {
        HWAVEOUT h = nullptr;
        EXPECT_EQ(
            waveOutOpen(&h, VirtualOutputId(), &f.Format, CallbackAddress(), 0, CALLBACK_FUNCTION),
            WAVERR_BADFORMAT);
        EXPECT_EQ(waveOutOpen(nullptr, WAVE_MAPPER, &f.Format, 0, 0, WAVE_FORMAT_QUERY),
                  WAVERR_BADFORMAT);
    }
    HWAVEOUT h = nullptr;
    EXPECT_EQ(waveOutOpen(&h, VirtualOutputId(), nullptr, 0, 0, CALLBACK_NULL),
              MMSYSERR_INVALPARAM);
}

TEST_F(WaveOutOpen, HonoursEachFlag) {
    auto format = Pcm16();
    Recorder rec;
    // Query: no handle, no message.
    EXPECT_EQ(waveOutOpen(nullptr, VirtualOutputId(), &format.Format, CallbackAddress(),
                          rec.Instance(), CALLBACK_FUNCTION | WAVE_FORMAT_QUERY),
              MMSYSERR_NOERROR);
    EXPECT_TRUE(rec.Messages().empty());
    HWAVEOUT h = nullptr;
    EXPECT_EQ(waveOutOpen(&h, VirtualOutputId(), &format.Format, 0, 0, CALLBACK_WINDOW),
              MMSYSERR_NOTSUPPORTED);
    EXPECT_EQ(waveOutOpen(&h, VirtualOutputId(), &format.Format, 0, 0, CALLBACK_EVENT),
              MMSYSERR_NOTSUPPORTED);
    EXPECT_EQ(waveOutOpen(&h, VirtualOutputId(), &format.Format, 0, 0, 0x100), MMSYSERR_INVALFLAG);
    EXPECT_EQ(waveOutOpen(nullptr, VirtualOutputId(), &format.Format, 0, 0, CALLBACK_NULL),
              MMSYSERR_INVALPARAM);
    // No callback at all still plays.
    ASSERT_EQ(waveOutOpen(&h, VirtualOutputId(), &format.Format, 0, 0,
                          CALLBACK_NULL | WAVE_FORMAT_DIRECT),
              MMSYSERR_NOERROR);
    Buffer b(64);
    PrepareAndWrite(h, b);
    ASSERT_TRUE(mw::test::WaitUntil(
        [&] { return std::atomic_ref<DWORD>(b.hdr.dwFlags).load() & WHDR_DONE; }));
    EXPECT_EQ(waveOutUnprepareHeader(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
}

TEST_F(WaveOutOpen, ZeroInstanceProbeLeavesTheDeviceFree) {
    auto probe = MakeFormat(0, 1, 11025, 16, 16, &KSDATAFORMAT_SUBTYPE_PCM, 1);
    for (int i = 0; i < 3; ++i) {
        HWAVEOUT h = nullptr;
        ASSERT_EQ(waveOutOpen(&h, WAVE_MAPPER, &probe.Format, CallbackAddress(), 0, 0x30002),
                  MMSYSERR_NOERROR);
        EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    }
}

using WaveOutMessages = WaveTest;

TEST_F(WaveOutMessages, ArriveInOrderOnOneDeviceThreadThatIsNotTheCallers) {
    Recorder rec;
    auto format = Pcm16(2, 48000);
    HWAVEOUT h = Open(format, rec);
    // WOM_OPEN has been delivered when waveOutOpen returns.
    ASSERT_EQ(rec.Count(WOM_OPEN), 1u);
    auto buffers = MakeBuffers(12, 4 * 96);  // 2 ms each
    for (auto& b : buffers)
        PrepareAndWrite(h, *b);
    ASSERT_TRUE(rec.WaitForDone(buffers.size()));
    for (auto& b : buffers) {
        EXPECT_EQ(b->hdr.dwFlags & (WHDR_DONE | WHDR_INQUEUE | WHDR_PREPARED),
                  WHDR_DONE | WHDR_PREPARED);
        EXPECT_EQ(waveOutUnprepareHeader(h, b->Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        EXPECT_EQ(b->hdr.dwFlags & WHDR_PREPARED, 0u);
    }
    ASSERT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    // WOM_CLOSE has been delivered when waveOutClose returns; nothing follows it.
    const auto messages = rec.Messages();
    ASSERT_EQ(messages.size(), buffers.size() + 2);
    EXPECT_EQ(messages.front().msg, WOM_OPEN);
    EXPECT_EQ(messages.back().msg, WOM_CLOSE);
    const auto done = rec.Done();
    for (size_t i = 0; i < buffers.size(); ++i)
        EXPECT_EQ(done[i], buffers[i]->Hdr()) << i;
    for (const Message& m : messages) {
        EXPECT_NE(m.thread, std::this_thread::get_id());
        EXPECT_EQ(m.thread, messages.front().thread);
    }
}

TEST_F(WaveOutMessages, CallbackMayUnprepareWriteAndCloseOnItsOwnHandle) {
    Recorder rec;
    auto format = Pcm16(1, 8000);
    HWAVEOUT h = Open(format, rec);
    auto buffers = MakeBuffers(6, 2 * 16);
    std::atomic<size_t> next{2};
    std::atomic<int> failures{0};
    // Unprepare the done buffer, write the next one; close after the last, as a component
    // that chains its buffers would.
    rec.SetHook([&](HWAVEOUT hwo, UINT msg, WAVEHDR* hdr) {
        if (msg != WOM_DONE) return;
        failures += waveOutUnprepareHeader(hwo, hdr, sizeof(WAVEHDR)) != MMSYSERR_NOERROR;
        const size_t i = next++;
        if (i < buffers.size()) {
            failures += waveOutPrepareHeader(hwo, buffers[i]->Hdr(), sizeof(WAVEHDR)) != 0;
            failures += waveOutWrite(hwo, buffers[i]->Hdr(), sizeof(WAVEHDR)) != 0;
        } else if (i == buffers.size() + 1) {
            failures += waveOutClose(hwo) != MMSYSERR_NOERROR;
        }
    });
    PrepareAndWrite(h, *buffers[0]);
    PrepareAndWrite(h, *buffers[1]);
    ASSERT_TRUE(mw::test::WaitUntil([&] { return rec.Count(WOM_CLOSE) == 1; }));
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(rec.Done().size(), buffers.size());
    EXPECT_EQ(rec.Messages().back().msg, WOM_CLOSE);
    EXPECT_EQ(waveOutPause(h), MMSYSERR_INVALHANDLE);
}

using WaveOutHeaders = WaveTest;

TEST_F(WaveOutHeaders, WriteNeedsAPreparedHeaderNotYetQueued) {
    Recorder rec;
    auto format = Pcm16();
    HWAVEOUT h = Open(format, rec);
    ASSERT_EQ(waveOutPause(h), MMSYSERR_NOERROR);
    Buffer b(4 * 480);
    EXPECT_EQ(waveOutWrite(h, b.Hdr(), sizeof(WAVEHDR)), WAVERR_UNPREPARED);
    EXPECT_EQ(waveOutPrepareHeader(h, b.Hdr(), sizeof(WAVEHDR) - 1), MMSYSERR_INVALPARAM);
    EXPECT_EQ(waveOutPrepareHeader(h, nullptr, sizeof(WAVEHDR)), MMSYSERR_INVALPARAM);
    PrepareAndWrite(h, b);
    EXPECT_EQ(b.hdr.dwFlags & (WHDR_INQUEUE | WHDR_DONE), WHDR_INQUEUE);
    EXPECT_EQ(waveOutWrite(h, b.Hdr(), sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(waveOutUnprepareHeader(h, b.Hdr(), sizeof(WAVEHDR)), WAVERR_STILLPLAYING);
    EXPECT_EQ(waveOutClose(h), WAVERR_STILLPLAYING);
    ASSERT_EQ(waveOutReset(h), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutUnprepareHeader(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutWrite(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_INVALHANDLE);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_INVALHANDLE);
}

using WaveOutReset = WaveTest;

TEST_F(WaveOutReset, ReturnsEveryPendingHeaderDone) {
    Recorder rec;
    auto format = Pcm16(2, 48000);
    HWAVEOUT h = Open(format, rec);
    auto buffers = MakeBuffers(5, 4 * 48000);  // a second each: none finishes by itself
    for (auto& b : buffers)
        PrepareAndWrite(h, *b);
    ASSERT_TRUE(mw::test::WaitUntil([&] { return Samples(h) > 0; }));
    ASSERT_EQ(waveOutReset(h), MMSYSERR_NOERROR);
    // Given back before waveOutReset returns, with their messages, in write order.
    for (auto& b : buffers) {
        EXPECT_EQ(b->hdr.dwFlags & (WHDR_DONE | WHDR_INQUEUE), WHDR_DONE);
    }
    const auto done = rec.Done();
    ASSERT_EQ(done.size(), buffers.size());
    for (size_t i = 0; i < buffers.size(); ++i)
        EXPECT_EQ(done[i], buffers[i]->Hdr());
    EXPECT_EQ(Samples(h), 0u);
    mw::wave::OutputStats stats;
    ASSERT_EQ(mw::wave::GetOutputStats(h, &stats), MMSYSERR_NOERROR);
    EXPECT_EQ(stats.buffersPlayed, 0u);
    EXPECT_GT(stats.framesPlayed, 0u);
    for (auto& b : buffers) {
        EXPECT_EQ(waveOutUnprepareHeader(h, b->Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
}

TEST_F(WaveOutReset, DeviceKeepsPlayingNewHeadersAfterAReset) {
    Recorder rec;
    auto format = Pcm16(2, 48000);
    HWAVEOUT h = Open(format, rec);
    Buffer longOne(4 * 48000);
    PrepareAndWrite(h, longOne);
    ASSERT_EQ(waveOutReset(h), MMSYSERR_NOERROR);
    Buffer shortOne(4 * 480, 7);
    PrepareAndWrite(h, shortOne);
    ASSERT_TRUE(rec.WaitForDone(2));
    EXPECT_EQ(rec.Done()[1], shortOne.Hdr());
    EXPECT_EQ(Samples(h), 480u);
    mw::wave::OutputStats stats;
    ASSERT_EQ(mw::wave::GetOutputStats(h, &stats), MMSYSERR_NOERROR);
    EXPECT_EQ(stats.buffersPlayed, 1u);
    EXPECT_EQ(stats.underruns, 0u);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
}

using WaveOutPause = WaveTest;

// "Nothing moved while paused" is checked against a second handle: once it has played a
// buffer, time has passed for the paused one too.
TEST_F(WaveOutPause, StopsProgressAndPositionUntilRestart) {
    auto format = Pcm16(2, 48000);
    Recorder rec;
    HWAVEOUT h = Open(format, rec);
    Buffer b(4 * 48000 / 5);  // 200 ms
    PrepareAndWrite(h, b);
    ASSERT_TRUE(mw::test::WaitUntil([&] { return Samples(h) > 0; }));
    ASSERT_EQ(waveOutPause(h), MMSYSERR_NOERROR);
    const DWORD held = Samples(h);
    EXPECT_LT(held, 48000u / 5);

    Recorder clockRec;
    HWAVEOUT clock = Open(format, clockRec);
    Buffer tick(4 * 48000 / 20);  // 50 ms
    PrepareAndWrite(clock, tick);
    ASSERT_TRUE(clockRec.WaitForDone(1));
    EXPECT_EQ(Samples(h), held);
    EXPECT_EQ(rec.Count(WOM_DONE), 0u);
    EXPECT_EQ(b.hdr.dwFlags & WHDR_INQUEUE, WHDR_INQUEUE);

    ASSERT_EQ(waveOutRestart(h), MMSYSERR_NOERROR);
    ASSERT_TRUE(rec.WaitForDone(1));
    EXPECT_EQ(Samples(h), 48000u / 5);
    MMTIME t{};
    t.wType = TIME_BYTES;
    ASSERT_EQ(waveOutGetPosition(h, &t, sizeof t), MMSYSERR_NOERROR);
    EXPECT_EQ(t.u.cb, b.data.size());
    t.wType = TIME_MS;
    ASSERT_EQ(waveOutGetPosition(h, &t, sizeof t), MMSYSERR_NOERROR);
    EXPECT_EQ(t.u.ms, 200u);
    t.wType = TIME_SMPTE;
    ASSERT_EQ(waveOutGetPosition(h, &t, sizeof t), MMSYSERR_NOERROR);
    EXPECT_EQ(t.wType, TIME_BYTES);
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(clock), MMSYSERR_NOERROR);
}

TEST_F(WaveOutPause, HeadersWrittenWhilePausedWaitForRestart) {
    auto format = Pcm16(2, 48000);
    Recorder rec;
    HWAVEOUT h = Open(format, rec);
    ASSERT_EQ(waveOutPause(h), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutPause(h), MMSYSERR_NOERROR);
    Buffer b(4 * 480);
    PrepareAndWrite(h, b);

    Recorder clockRec;
    HWAVEOUT clock = Open(format, clockRec);
    Buffer tick(4 * 48000 / 20);
    PrepareAndWrite(clock, tick);
    ASSERT_TRUE(clockRec.WaitForDone(1));
    EXPECT_EQ(rec.Count(WOM_DONE), 0u);
    EXPECT_EQ(Samples(h), 0u);

    ASSERT_EQ(waveOutRestart(h), MMSYSERR_NOERROR);
    ASSERT_EQ(waveOutRestart(h), MMSYSERR_NOERROR);
    ASSERT_TRUE(rec.WaitForDone(1));
    EXPECT_EQ(waveOutClose(h), MMSYSERR_NOERROR);
    EXPECT_EQ(waveOutClose(clock), MMSYSERR_NOERROR);
}

TEST(WaveOutTime, TimeGetTimeCountsMillisecondsForward) {
    using namespace std::chrono;
    const DWORD t0 = timeGetTime();
    const auto s0 = steady_clock::now();
    ASSERT_TRUE(mw::test::WaitUntil([&] { return steady_clock::now() - s0 >= milliseconds(30); }));
    const DWORD elapsed = timeGetTime() - t0;  // wraps as the platform's does
    EXPECT_GE(elapsed, 29u);
    EXPECT_LT(elapsed, 20000u);
}

TEST(WaveOutErrors, EveryResultHasATextAndUnknownOnesAreRefused) {
    for (MMRESULT r : {MMSYSERR_NOERROR, MMSYSERR_BADDEVICEID, MMSYSERR_INVALHANDLE,
                       WAVERR_BADFORMAT, WAVERR_STILLPLAYING, WAVERR_UNPREPARED}) {
        WCHAR text[MAXERRORLENGTH] = {};
        EXPECT_EQ(waveOutGetErrorTextW(r, text, MAXERRORLENGTH), MMSYSERR_NOERROR);
        EXPECT_GT(std::char_traits<char16_t>::length(text), 5u);
    }
    char text[8];
    EXPECT_EQ(waveOutGetErrorTextA(WAVERR_STILLPLAYING, text, sizeof text), MMSYSERR_NOERROR);
    EXPECT_EQ(std::strlen(text), sizeof text - 1);
    EXPECT_EQ(waveOutGetErrorTextA(999, text, sizeof text), MMSYSERR_BADERRNUM);
}

}  // namespace
}  // namespace mw::test::wave
