// TQAAudioOut's device choice, its failures and odd input, its persisted properties and its
// palette entry.
#include <gtest/gtest.h>

#include <filesystem>

#include "frame/MainThread.h"
#include "frame/Persistence.h"
#include "frame/Registration.h"
#include "tests/audio_out/audio_out_test_support.h"

namespace {

using namespace mw::test::audio;
using mw::test::WaitUntil;

const TQAWaveFormatExtensible kStereo48 = mw::MakePcmWaveFormat(48000, 16, 2);

TEST(WaveOutDevice, NamesMatchExactlyAndDefaultInAnyCase) {
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    TQAAudioOutDevice* device = out->Device();
    const UINT virtualId = mw::wave::FindOutputDevice("Virtual Output");
    ASSERT_NE(virtualId, WAVE_MAPPER);
    EXPECT_EQ(device->DeviceName(), "Default");
    EXPECT_EQ(device->GetDeviceID(), WAVE_MAPPER);
    EXPECT_EQ(device->GetDeviceIDFromName("Virtual Output"), virtualId);
    EXPECT_EQ(device->GetDeviceIDFromName("virtual output"), WAVE_MAPPER);
    EXPECT_EQ(device->GetDeviceIDFromName(""), WAVE_MAPPER);
    device->SetDeviceName("dEfAuLt");
    EXPECT_EQ(device->GetDeviceID(), WAVE_MAPPER);
    device->SetDeviceName("Virtual Output");
    EXPECT_EQ(device->GetDeviceID(), virtualId);
    const std::vector<std::string> list = out->GetDeviceList();
    ASSERT_EQ(list.size(), waveOutGetNumDevs());
    EXPECT_EQ(list.at(virtualId), "Virtual Output");
}

TEST(WaveOutDevice, AlternativesAreTriedInOrderAndDefaultEndsTheSearch) {
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    TQAAudioOutDevice* device = out->Device();
    const UINT virtualId = mw::wave::FindOutputDevice("Virtual Output");
    const UINT fileId = mw::wave::FindOutputDevice("WAV File Output");
    device->SetDeviceName("No Such Device");
    EXPECT_EQ(device->GetDeviceID(), WAVE_MAPPER);  // nothing found
    TQAAudioOutDeviceItems* alternatives = device->AlternativeDevices();
    alternatives->Add()->SetDeviceName("Missing Too");
    alternatives->Add()->SetDeviceName("WAV File Output");
    alternatives->Add()->SetDeviceName("Virtual Output");
    EXPECT_EQ(device->GetDeviceID(), fileId);
    alternatives->GetItem(1)->SetDeviceName("DEFAULT");
    EXPECT_EQ(device->GetDeviceID(), WAVE_MAPPER);
    alternatives->GetItem(1)->SetDeviceName("wav file output");
    EXPECT_EQ(device->GetDeviceID(), virtualId);
}

TEST(WaveOutDevice, NewAlternativeNamesTheLeastUsedDevice) {
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    TQAAudioOutDeviceItems* alternatives = out->Device()->AlternativeDevices();
    const std::vector<std::string> devices = out->GetDeviceList();
    ASSERT_GE(devices.size(), 2u);
    for (size_t i = 0; i < devices.size(); ++i)
        EXPECT_EQ(alternatives->Add()->DeviceName(), devices[i]);
    EXPECT_EQ(alternatives->Add()->DeviceName(), devices[0]);  // all used once: the earliest
    alternatives->GetItem(1)->SetDeviceName(devices[0]);
    EXPECT_EQ(alternatives->GetCountChannelsOfDevice(devices[0]), 3);
    EXPECT_EQ(alternatives->GetCountChannelsOfDevice(devices[1]), 0);
    EXPECT_EQ(alternatives->GetItem(1)->GetDisplayName(), devices[0]);
    EXPECT_EQ(alternatives->Add()->DeviceName(), devices[1]);  // the least used wins
}

TEST(WaveOutDevice, SelectionGoesThroughTheInstalledChooser) {
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    TQAAudioOutDevice* device = out->Device();
    EXPECT_FALSE(device->ShowDeviceSelctDialog());  // no chooser: nothing changes
    EXPECT_EQ(device->DeviceName(), "Default");
    std::vector<std::string> offered;
    TQAAudioOutDevice::SetDeviceSelectHandler(
        [&](const std::vector<std::string>& devices, std::string& selected) {
            offered = devices;
            if (selected != "Default") return false;
            selected = "Virtual Output";
            return true;
        });
    EXPECT_TRUE(device->ShowDeviceSelctDialog());
    EXPECT_EQ(device->DeviceName(), "Virtual Output");
    EXPECT_EQ(offered, out->GetDeviceList());
    EXPECT_FALSE(device->ShowDeviceSelctDialog());  // declined
    EXPECT_EQ(device->DeviceName(), "Virtual Output");
    TQAAudioOutDevice::SetDeviceSelectHandler(nullptr);
}

TEST(WaveOutErrors, DeviceThatFailsToOpenIsReported) {
    Rig rig;
    rig.Out->Device()->SetDeviceName("WAV File Output");  // no file set: it can't open
    std::vector<uint8_t> sent;
    rig.Source->Start(kStereo48);
    EXPECT_EQ(rig.ErrorList(), std::vector<std::string>{"Can't open audio device."});
    rig.Source->Submit(MakeBuffer(kStereo48, 4800));
    rig.Source->Stop();
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    EXPECT_EQ(rig.ErrorList().size(), 1u);
    rig.Out->Close();
    EXPECT_FALSE(rig.Out->IsOpen());

    // Without a handler the failure is raised to the sender.
    rig.Out->SetOnError(nullptr);
    try {
        rig.Source->Start(kStereo48);
        FAIL() << "no exception";
    } catch (const EQSException& e) {
        EXPECT_EQ(std::string(e.what()),
                  mw::QSErrorText("Can't open audio device.", MMSYSERR_NOTENABLED));
        EXPECT_EQ(e.Code(), MMSYSERR_NOTENABLED);
    }
}

TEST(WaveOutErrors, RejectedFormatIsReportedAndTheNextStreamPlays) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    TQAWaveFormatExtensible odd = kStereo48;
    odd.wBitsPerSample = 12;  // no device plays 12-bit containers
    rig.Source->Start(odd);
    ASSERT_EQ(rig.ErrorList(), std::vector<std::string>{"Can't open audio device."});
    rig.Source->Submit(MakeBuffer(kStereo48, 4800));
    rig.Source->Stop();
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    std::vector<uint8_t> sent;
    ComPtr<IQSData> b = MakeBuffer(kStereo48, 4800, 3);
    sent.assign(b->ReadPointer(), b->ReadPointer() + b->ByteSize());
    rig.Source->Start(kStereo48);
    rig.Source->Submit(b);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == sent.size(); }));
    EXPECT_EQ(tap.Bytes(), sent);
    EXPECT_EQ(rig.ErrorList().size(), 1u);
}

TEST(WaveOutErrors, EmptyBuffersAreDroppedUncounted) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    rig.Out->SetPrefillInterval(0);
    rig.Source->Start(kStereo48);
    rig.Source->Submit(ComPtr<IQSData>(MwNew<TQAAudioBuffer>(kStereo48, 0u).Get()));
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    ComPtr<IQSData> b = MakeBuffer(kStereo48, 480);
    rig.Source->Submit(b);
    rig.Source->Submit(ComPtr<IQSData>(MwNew<TQSBlockBuffer>(0u).Get()));
    rig.Source->Stop();
    ASSERT_TRUE(
        WaitUntil([&] { return tap.Size() == b->ByteSize() && rig.Out->BuffersInFlight() == 0; }));
    EXPECT_EQ(rig.Out->Stats().BuffersPlayed, 1u);
}

TEST(WaveOutErrors, StopWithoutStartDoesNothing) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    rig.Source->Stop();
    rig.Source->Stop();
    EXPECT_FALSE(rig.Out->IsOpen());
    EXPECT_TRUE(rig.ErrorList().empty());
    ComPtr<IQSData> b = MakeBuffer(kStereo48, 480);
    rig.Source->Start(kStereo48);
    rig.Source->Submit(b);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == b->ByteSize(); }));
}

// Reaches the wave thread's entry directly, as a late message would.
class TLateOut : public TQAAudioOut {
public:
    using TQAAudioOut::ProcessMessage;
    using TQAAudioOut::TQAAudioOut;
};

TEST(WaveOutErrors, LateDoneAfterCloseDoesNothing) {
    TOwned<TLateOut> out(TComponent::New<TLateOut>(nullptr));
    TOwned<TTestSource> source(TComponent::New<TTestSource>(nullptr));
    mw::wave::SetVirtualOutputPaced(false);
    out->Device()->SetDeviceName("Virtual Output");
    std::atomic<int> empty{0};
    out->SetOnQueueEmpty([&](TObject*) { ++empty; });
    ASSERT_TRUE(QWConnect(*source->Out, *out->InputPin()));
    ComPtr<TQWPumpRequestOperation> request = MwNew<TQWPumpRequestOperation>();
    source->Send(ComPtr<IQWNotifyOperation>(request.Get()));
    source->Send<TQWStartPumpOperation>();
    source->Start(kStereo48);
    source->Submit(MakeBuffer(kStereo48, 480));
    source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return empty == 1; }));
    out->Close();
    const int pumps = source->Pumps;
    const uint64_t played = out->Stats().BuffersPlayed;
    WAVEHDR late{};
    late.dwBufferLength = 1920;
    out->ProcessMessage(WOM_DONE, nullptr, &late);
    Application::ProcessMessages();
    EXPECT_EQ(source->Pumps, pumps);
    EXPECT_EQ(out->Stats().BuffersPlayed, played);
    EXPECT_EQ(empty, 1);
    mw::wave::SetVirtualOutputPaced(true);
}

// Threads of this process, as the kernel counts them.
int ProcessThreadCount() {
    int n = 0;
    for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator("/proc/self/task"))
        ++n;
    return n;
}

TEST(WaveOut, AtDesignTimeAStreamStartsNoThreadAndNoDevice) {
    TapRecorder tap;
    Rig rig(/*paced=*/false);
    rig.Out->SetDesigning(true);
    const int before = ProcessThreadCount();
    rig.Source->Start(kStereo48);
    rig.Source->Submit(MakeBuffer(kStereo48, 480));
    rig.Source->Stop();
    Application::ProcessMessages();
    EXPECT_EQ(ProcessThreadCount(), before) << "no wave thread, no device thread";
    EXPECT_FALSE(rig.Out->IsOpen());
    EXPECT_EQ(tap.Size(), 0u);

    // The same stream outside of design time does start them: the count above means something.
    rig.Out->SetDesigning(false);
    rig.Source->Start(kStereo48);
    rig.Source->Submit(MakeBuffer(kStereo48, 480));
    ASSERT_TRUE(WaitUntil([&] { return rig.Out->IsOpen(); }));
    EXPECT_GT(ProcessThreadCount(), before);
    rig.Source->Stop();
    ASSERT_TRUE(WaitUntil([&] { return tap.Size() == 480u * 4; }));
}

TEST(WaveOut, DisabledOutputOnlyFollowsTheFormat) {
    Rig rig;
    rig.Out->SetEnabled(false);
    rig.Source->Start(kStereo48);
    EXPECT_TRUE(rig.Out->HasCurrentFormat());
    EXPECT_FALSE(rig.Out->IsOpen());
    rig.Source->Submit(MakeBuffer(kStereo48, 480));
    EXPECT_EQ(rig.Out->BuffersInFlight(), 0);
    rig.Out->SetEnabled(true);  // with a format: opens for it
    EXPECT_TRUE(rig.Out->IsOpen());
    rig.Out->SetEnabled(false);
    rig.Source->Stop();
    EXPECT_FALSE(rig.Out->HasCurrentFormat());
}

TEST(WaveOut, OpenNeedsAFormatAndAFailedOpenClosesAgain) {
    Rig rig;
    EXPECT_FALSE(rig.Out->Open());  // no format yet
    rig.Out->SetEnabled(false);
    rig.Source->Start(kStereo48);
    EXPECT_TRUE(rig.Out->Open());
    EXPECT_TRUE(rig.Out->IsOpen());
    EXPECT_FALSE(rig.Out->Open());  // already open
    rig.Out->Close();
    EXPECT_FALSE(rig.Out->IsOpen());
    rig.Out->Device()->SetDeviceName("WAV File Output");  // no file set: it can't open
    EXPECT_FALSE(rig.Out->Open());
    EXPECT_FALSE(rig.Out->IsOpen());
}

TEST(WaveOutPersistence, PublishedPropertiesRoundTrip) {
    QAAudioOut::RegisterPkg();
    TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
    out->SetName("AudioOut1");
    EXPECT_EQ(mw::WriteComponentToText(*out), "object AudioOut1: TQAAudioOut\nend\n");
    out->SetPrefillInterval(120);
    out->Pump()->SetEnabled(false);
    out->Pump()->SetPriority(7);
    out->Device()->SetDeviceName("Virtual Output");
    out->Device()->AlternativeDevices()->Add()->SetDeviceName("WAV File Output");
    out->Device()->AlternativeDevices()->Add()->SetDeviceName("DEFAULT");
    const std::string text = mw::WriteComponentToText(*out);
    TOwned<TComponent> back(mw::ReadComponentFromText(text, nullptr));
    auto* read = dynamic_cast<TQAAudioOut*>(back.get());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->PrefillInterval(), 120u);
    EXPECT_FALSE(read->Pump()->Enabled());
    EXPECT_EQ(read->Pump()->Priority(), 7u);
    EXPECT_EQ(read->Device()->DeviceName(), "Virtual Output");
    ASSERT_EQ(read->Device()->AlternativeDevices()->Count(), 2);
    EXPECT_EQ(read->Device()->AlternativeDevices()->GetItem(0)->DeviceName(), "WAV File Output");
    EXPECT_EQ(read->Device()->AlternativeDevices()->GetItem(1)->DeviceName(), "DEFAULT");
    EXPECT_EQ(mw::WriteComponentToText(*read), text);
}

TEST(WaveOutPersistence, IsOnThePaletteUnderTheOutputCategory) {
    QAAudioOut::RegisterPkg();
    std::optional<TPaletteEntry> entry = FindPaletteEntry(TQAAudioOut::StaticClass());
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->Category, "TQuatoneOutputToolbarCategory");
    EXPECT_EQ(entry->Bitmap, "TQAAudioOut");
    EXPECT_EQ(entry->Bitmap16, "TQAAudioOut16");
    EXPECT_EQ(entry->Bitmap32, "TQAAudioOut32");
    EXPECT_EQ(GetClass("TQAAudioOut"), TQAAudioOut::StaticClass());
}

}  // namespace
