// The file source pulled by the wave output on "Virtual Output": a new file chosen while the
// old one still plays.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "playback/QMAudioFileSource.h"
#include "tests/audio_out/audio_out_test_support.h"
#include "tests/playback/MediaFiles.h"

using mw::test::TempDir;
using mw::test::audio::TapRecorder;

namespace {

// Polls without running the main thread's queue: the program under test never drains it.
bool WaitWithoutDraining(const std::function<bool()>& cond) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace

// The source sends the stop of the old file and the start of the new one while the output's
// wave thread pulls it for the buffers that still play: the new file is heard after the old
// one, and everything stops and closes afterwards.
TEST(FileSourceOutput, NewFileWhilePlayingIsHeardAfterTheOldOne) {
    TempDir dir;
    const auto first = mw::test::PatternSamples(16000, 1, 2, false);  // 2 s at 8 kHz, mono
    const auto second = mw::test::PatternSamples(4800, 2, 2, false);  // 0.3 s at 16 kHz, stereo
    mw::test::WriteWav(dir.File("a.wav"), 8000, 1, 16, false, first);
    mw::test::WriteWav(dir.File("b.wav"), 16000, 2, 16, false, second);

    TapRecorder tap;
    mw::wave::SetVirtualOutputPaced(true);
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    TOwned<TQMAudioFileSource> source(TComponent::New<TQMAudioFileSource>(nullptr));
    out->Device()->SetDeviceName("Virtual Output");
    // Without a prefill the output keeps one buffer in the device and answers the source's
    // pump request at once, so the new file is pulled by the output too.
    out->SetPrefillInterval(0);
    std::vector<std::string> errors;
    std::mutex errorsMutex;
    out->SetOnError([&](TObject*, const std::string& text, uint32_t, bool& handled) {
        std::lock_guard lock(errorsMutex);
        errors.push_back(text);
        handled = true;
    });
    ASSERT_TRUE(QWConnect(source->OutputPin(), *out->InputPin()));
    ASSERT_TRUE(out->Pump()->Enabled());
    // Long buffers: the old file still plays when the new one starts.
    source->SetBufferInterval(200);
    source->SetFileName(dir.File("a.wav"));
    source->Start();
    ASSERT_TRUE(source->IsPumped());
    // The old file is playing and the device holds more of it.
    ASSERT_TRUE(WaitWithoutDraining([&] { return tap.Size() > 0 && out->BuffersInFlight() > 0; }));

    source->SetFileName(dir.File("b.wav"));
    EXPECT_TRUE(source->IsPumped());
    ASSERT_TRUE(WaitWithoutDraining([&] {
        const std::vector<uint8_t> bytes = tap.Bytes();
        return bytes.size() >= second.size() &&
               std::equal(second.begin(), second.end(), bytes.end() - second.size());
    }));
    ASSERT_TRUE(WaitWithoutDraining([&] { return source->ReachedEnd(); }));
    ASSERT_TRUE(WaitWithoutDraining([&] { return out->BuffersInFlight() == 0; }));
    EXPECT_EQ(tap.Rates(), (std::vector<uint32_t>{8000, 16000}));
    // Before the new file only the start of the old one was heard, in order.
    const std::vector<uint8_t> bytes = tap.Bytes();
    const size_t before = bytes.size() - second.size();
    ASSERT_LE(before, first.size());
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + before, first.begin()));

    source->Stop();
    out->Close();
    EXPECT_FALSE(out->IsOpen());
    EXPECT_EQ(out->BuffersInFlight(), 0);
    EXPECT_FALSE(out->Stats().DeviceOpen);
    out.reset();
    source.reset();
    std::lock_guard lock(errorsMutex);
    EXPECT_TRUE(errors.empty());
}
