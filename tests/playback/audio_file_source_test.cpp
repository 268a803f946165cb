// The file source component on the wire: the order of a stream, pulling through the pump,
// pushing with back-pressure, times, progress, stopping and failures to start.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/Persistence.h"
#include "frame/QSData.h"
#include "frame/QSErrors.h"
#include "frame/WirePins.h"
#include "playback/QMAudioFileSource.h"
#include "tests/playback/MediaFiles.h"
#include "tests/support/Wait.h"

using mw::test::TempDir;
using mw::test::WaitUntil;

namespace {

// A sink that records what reaches it. It may claim the pump; with PumpOnBuffer it pulls the
// next buffer from inside the delivery of each one, as an output does during its prefill.
class TRecorder : public TLockComponent {
    MW_CLASS(TRecorder, TLockComponent)
public:
    explicit TRecorder(TComponent* owner, bool willPump = false)
        : TLockComponent(owner),
          Input(this, ComponentLock(),
                [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                       TQWNotifyState) { return Dispatch(op); }),
          FWillPump(willPump) {
        Input.SetName("Input");
    }

    int Dispatch(IQWNotifyOperation* op) {
        const int depth = ++FDepth;
        {
            std::lock_guard g(FMutex);
            MaxDepth = std::max(MaxDepth, depth);
            if (auto* start = op->InstanceAs<TQWStartWaveOperation>()) {
                Log.push_back("start");
                Format = start->Format;
            } else if (auto* buf = op->InstanceAs<TQWSuppliedBufferOperation>()) {
                Log.push_back("buffer");
                const BYTE* p = buf->Data->ReadPointer();
                Bytes.insert(Bytes.end(), p, p + buf->Data->ByteSize());
                ComPtr<IQMTimeStamp> stamp = buf->Data->TimeStamp();
                Times.push_back({stamp->HasTimes(), stamp->StartTime(), stamp->EndTime()});
            } else if (op->IsType<TQWStopOperation>()) {
                Log.push_back("stop");
            } else if (auto* req = op->InstanceAs<TQWPumpRequestOperation>()) {
                if (FWillPump) QWClaimPump(*req, this, 0);
            } else if (op->IsType<TQWStartPumpOperation>()) {
                Log.push_back("start pump");
            }
        }
        if (PumpOnBuffer &&
            (op->IsType<TQWSuppliedBufferOperation>() || op->IsType<TQWStartPumpOperation>()))
            Input.MasterPump(this);
        --FDepth;
        return 0;
    }

    std::vector<std::string> LogCopy() {
        std::lock_guard g(FMutex);
        return Log;
    }
    bool Stopped() {
        std::lock_guard g(FMutex);
        return !Log.empty() && Log.back() == "stop";
    }
    size_t BufferCount() {
        std::lock_guard g(FMutex);
        return Times.size();
    }

    struct Stamp {
        bool Has;
        int64_t Start, End;
    };
    TQAQWAudioSinkPin Input;
    std::mutex FMutex;
    std::vector<std::string> Log;
    std::vector<uint8_t> Bytes;
    std::vector<Stamp> Times;
    TQAWaveFormatExtensible Format{};
    int MaxDepth = 0;
    std::atomic<bool> PumpOnBuffer{false};

private:
    bool FWillPump;
    std::atomic<int> FDepth{0};
};

// A clock source the test ticks by hand, standing in for an output's finished buffers.
class TTicker : public TLockComponent {
    MW_CLASS(TTicker, TLockComponent)
public:
    explicit TTicker(TComponent* owner) : TLockComponent(owner), Clock(this, ComponentLock()) {
        Clock.SetName("Clock");
    }
    TQWClockSourcePin Clock;
};

class FileSource : public ::testing::Test {
protected:
    TOwned<TComponent> Form{TComponent::New<TComponent>(nullptr)};
    TempDir Dir;

    template <class T, class... A>
    T* Make(A... a) {
        return TComponent::New<T>(Form.get(), a...);
    }
    // A 16-bit WAV of `frames` frames; returns its sample bytes.
    std::vector<uint8_t> MakeWav(const std::string& name, unsigned rate, unsigned channels,
                                 unsigned frames) {
        auto samples = mw::test::PatternSamples(frames, channels, 2, false);
        mw::test::WriteWav(Dir.File(name), rate, channels, 16, false, samples);
        return samples;
    }
    TQMAudioFileSource* MakeSource(const std::string& name) {
        auto* s = Make<TQMAudioFileSource>();
        s->SetFileName(Dir.File(name));
        s->SetBufferInterval(20);
        return s;
    }
};

void ExpectContiguousTimes(const std::vector<TRecorder::Stamp>& times, int64_t end) {
    ASSERT_FALSE(times.empty());
    EXPECT_EQ(times.front().Start, 0);
    for (size_t i = 0; i < times.size(); ++i) {
        EXPECT_TRUE(times[i].Has);
        EXPECT_LT(times[i].Start, times[i].End);
        if (i > 0) {
            EXPECT_EQ(times[i].Start, times[i - 1].End) << "buffer " << i;
        }
    }
    EXPECT_EQ(times.back().End, end);
}

}  // namespace

TEST_F(FileSource, PushesTheWholeFileWithContiguousTimesThenStops) {
    const auto samples = MakeWav("a.wav", 8000, 2, 4000 + 3);
    auto* src = MakeSource("a.wav");
    auto* sink = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));

    src->Start();
    EXPECT_FALSE(src->IsPumped());
    ASSERT_TRUE(WaitUntil([&] { return sink->Stopped(); }));
    EXPECT_TRUE(src->ReachedEnd());
    EXPECT_FALSE(src->Running());

    const auto log = sink->LogCopy();
    EXPECT_EQ(log.front(), "start");
    EXPECT_EQ(std::count(log.begin(), log.end(), "stop"), 1);
    EXPECT_EQ(std::count(log.begin(), log.end(), "start pump"), 0);
    EXPECT_EQ(sink->Bytes, samples);
    EXPECT_TRUE(QAIsEqualAudioFormat(sink->Format, mw::MakePcmWaveFormat(8000, 16, 2)));
    EXPECT_EQ(sink->Times.size(), 26u) << "20 ms buffers of 160 frames, the last one short";
    ExpectContiguousTimes(sink->Times, int64_t(4003) * 10'000'000 / 8000);
    EXPECT_EQ(src->Duration(), int64_t(4003) * 10'000'000 / 8000);

    src->Stop();
    EXPECT_EQ(sink->LogCopy().size(), log.size()) << "a stop after the end sends nothing more";
}

TEST_F(FileSource, PullModeSendsOneBufferPerAcceptedPump) {
    const auto samples = MakeWav("p.wav", 8000, 1, 800);  // five 20 ms buffers
    auto* src = MakeSource("p.wav");
    auto* sink = Make<TRecorder>(/*willPump=*/true);
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));

    src->Start();
    EXPECT_TRUE(src->IsPumped());
    EXPECT_EQ(sink->LogCopy(), (std::vector<std::string>{"start", "start pump"}));

    sink->Input.MasterPump(sink, 7);
    EXPECT_EQ(sink->BufferCount(), 1u) << "served at once, on the pumping thread";
    sink->Input.MasterPump(sink, 7);
    EXPECT_EQ(sink->BufferCount(), 1u) << "the same pump cycle again is dropped";
    auto* stranger = Make<TRecorder>();
    sink->Input.MasterPump(stranger, 8);
    EXPECT_EQ(sink->BufferCount(), 1u) << "only the master of the pump is served";

    for (int i = 0; i < 5; ++i)
        sink->Input.MasterPump(sink);
    EXPECT_TRUE(sink->Stopped()) << "the pump after the last buffer ends the stream";
    EXPECT_EQ(sink->Bytes, samples);
    ExpectContiguousTimes(sink->Times, int64_t(800) * 10'000'000 / 8000);
}

TEST_F(FileSource, PumpsFromInsideADeliveryAreServedWithoutNesting) {
    const auto samples = MakeWav("n.wav", 8000, 1, 8000);  // 50 buffers
    auto* src = MakeSource("n.wav");
    auto* sink = Make<TRecorder>(/*willPump=*/true);
    sink->PumpOnBuffer = true;
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));

    src->Start();  // the sink pulls the whole file from inside the start of the pump
    EXPECT_TRUE(sink->Stopped());
    EXPECT_EQ(sink->Bytes, samples);
    EXPECT_LE(sink->MaxDepth, 2) << "a pump inside a delivery is queued, not served recursively";
}

TEST_F(FileSource, PushingStaysWithinItsLeadOfTheSinkClock) {
    MakeWav("c.wav", 8000, 1, 16000);  // 2 s
    auto* src = MakeSource("c.wav");
    src->SetPushLead(300);  // 2400 frames
    auto* sink = Make<TRecorder>();
    auto* ticker = Make<TTicker>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    ASSERT_TRUE(QWConnect(ticker->Clock, src->ClockPin()));

    src->Start();
    const int64_t lead = 2400, buffer = 160;
    ASSERT_TRUE(WaitUntil([&] { return int64_t(sink->BufferCount()) * buffer >= lead; }));
    EXPECT_LE(int64_t(sink->BufferCount()) * buffer, lead + buffer)
        << "no tick, no more than the lead";
    EXPECT_EQ(src->Position(), 0) << "nothing played yet";

    ticker->Clock.Clock(4000);
    ASSERT_TRUE(WaitUntil([&] { return int64_t(sink->BufferCount()) * buffer >= 4000 + lead; }));
    EXPECT_LE(int64_t(sink->BufferCount()) * buffer, 4000 + lead + buffer);
    EXPECT_EQ(src->Position(), int64_t(4000) * 10'000'000 / 8000)
        << "the heard position follows the ticks";

    src->Stop();
    EXPECT_TRUE(sink->Stopped()) << "Stop ends the stream with its stop operation";
    const size_t after = sink->BufferCount();
    ticker->Clock.Clock(16000);
    EXPECT_EQ(sink->BufferCount(), after) << "nothing after the stop";
    EXPECT_FALSE(src->Running());
}

TEST_F(FileSource, ProgressReachesTheDurationOnPinAndEvent) {
    MakeWav("g.wav", 8000, 1, 4000);
    auto* src = MakeSource("g.wav");
    auto* sink = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    TQWInt64TimeRangedStatePin watcher(sink, sink->ComponentLock());
    ASSERT_TRUE(QWConnect(src->ProgressPin(), watcher));
    std::atomic<int64_t> lastPosition{-1}, lastMax{-1};
    std::atomic<bool> stopped{false};
    src->SetOnProgress([&](TObject*, int64_t, int64_t max, int64_t position) {
        lastPosition = position;
        lastMax = max;
    });
    src->SetOnStop([&](TObject*) { stopped = true; });

    src->Start();
    ASSERT_TRUE(WaitUntil([&] { return stopped.load() && lastPosition.load() == 5'000'000; }));
    EXPECT_EQ(lastMax.load(), 5'000'000);
    EXPECT_EQ(watcher.Last().Value, 5'000'000);
    EXPECT_EQ(watcher.Last().Max, 5'000'000);
}

TEST_F(FileSource, ANewFileWhileActiveRestartsTheStream) {
    const auto first = MakeWav("1.wav", 8000, 1, 400);
    const auto second = MakeWav("2.wav", 11025, 2, 300);
    auto* src = MakeSource("1.wav");
    auto* sink = Make<TRecorder>(/*willPump=*/true);
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    src->Start();
    sink->Input.MasterPump(sink);
    src->SetFileName(Dir.File("2.wav"));
    EXPECT_TRUE(src->Active());
    for (int i = 0; i < 10; ++i)
        sink->Input.MasterPump(sink);
    EXPECT_EQ(sink->LogCopy(),
              (std::vector<std::string>{"start", "start pump", "buffer", "stop", "start",
                                        "start pump", "buffer", "buffer", "stop"}));
    EXPECT_TRUE(QAIsEqualAudioFormat(sink->Format, mw::MakePcmWaveFormat(11025, 16, 2)));
}

TEST_F(FileSource, AFileThatCannotBeOpenedFailsTheStartWithItsReason) {
    auto* src = MakeSource("absent.wav");
    auto* sink = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    std::string text;
    uint32_t code = 0;
    src->SetOnError([&](TObject*, const std::string& t, uint32_t c, bool& handled) {
        text = t;
        code = c;
        handled = true;
    });

    src->Start();
    EXPECT_FALSE(src->Active());
    EXPECT_FALSE(src->Running());
    EXPECT_EQ(src->LastError(), mw::media::ReadError::NotFound);
    EXPECT_EQ(text,
              "Can't open media file '" + Dir.File("absent.wav") + "': No such file or directory.");
    EXPECT_EQ(code, static_cast<uint32_t>(mw::media::ReadError::NotFound));
    EXPECT_TRUE(sink->LogCopy().empty()) << "no stream begins";

    mw::test::WriteBytes(Dir.File("text.wav"), std::string(4096, 'a'));
    src->SetOnError({});
    src->SetFileName(Dir.File("text.wav"));
    EXPECT_THROW(src->Start(), EQSException) << "unhandled, the error raises";
    EXPECT_EQ(src->LastError(), mw::media::ReadError::NotDecodable);
    EXPECT_FALSE(src->Active());
}

TEST_F(FileSource, FreeingARunningSourceEndsItsStream) {
    MakeWav("f.wav", 8000, 1, 80000);  // 10 s, held back by the clock
    auto* src = MakeSource("f.wav");
    auto* sink = Make<TRecorder>();
    auto* ticker = Make<TTicker>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    ASSERT_TRUE(QWConnect(ticker->Clock, src->ClockPin()));
    src->Start();
    ASSERT_TRUE(WaitUntil([&] { return sink->BufferCount() > 0; }));
    src->Free();
    EXPECT_TRUE(sink->Stopped());
}

TEST_F(FileSource, AtDesignTimeActiveIsOnlyStored) {
    MakeWav("d.wav", 8000, 1, 800);
    auto* src = MakeSource("d.wav");
    auto* sink = Make<TRecorder>();
    ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
    src->SetDesigning(true);
    src->SetActive(true);
    EXPECT_TRUE(src->Active());
    EXPECT_FALSE(src->Running());
    EXPECT_TRUE(sink->LogCopy().empty()) << "no stream and no worker at design time";
}

namespace {
class TPlayerForm : public TLockComponent {
    MW_CLASS(TPlayerForm, TLockComponent)
public:
    using TLockComponent::TLockComponent;
};
}  // namespace

// A form file alone sets up a playing pipeline: the source's properties, the connection to
// the sink and Active, which starts the stream once everything is loaded.
TEST_F(FileSource, AFormFileLoadsAConnectedSourceThatStartsWhenLoaded) {
    QMAudioFileSource::RegisterPkg();
    RegisterClasses({TPlayerForm::StaticClass(), TRecorder::StaticClass()});
    auto samples = MakeWav("form.wav", 8000, 1, 1600);
    std::string text;
    {
        TOwned<TPlayerForm> form(TComponent::New<TPlayerForm>(nullptr));
        form->SetName("Form1");
        auto* src = TComponent::New<TQMAudioFileSource>(form.get());
        src->SetName("Source");
        src->SetFileName(Dir.File("form.wav"));
        src->SetBufferInterval(25);
        src->SetDesigning(true);  // stored, not started, while the form is written
        src->SetActive(true);
        auto* sink = TComponent::New<TRecorder>(form.get());
        sink->SetName("Sink");
        ASSERT_TRUE(QWConnect(src->OutputPin(), sink->Input));
        text = mw::WriteComponentToText(*form);
    }
    EXPECT_NE(text.find("BufferInterval = 25"), std::string::npos) << text;
    EXPECT_NE(text.find("Active = True"), std::string::npos) << text;

    TOwned<TComponent> loaded(mw::ReadComponentFromText(text, nullptr));
    auto* sink = dynamic_cast<TRecorder*>(loaded->FindComponent("Sink"));
    ASSERT_NE(sink, nullptr);
    ASSERT_TRUE(WaitUntil([&] { return sink->Stopped(); }));
    std::lock_guard g(sink->FMutex);
    EXPECT_EQ(sink->Bytes, samples);
}

// Loaded into a form that exists, a source that cannot open its file fails the whole load:
// the error names the source's line, and the form is as it was, its old source still there.
TEST_F(FileSource, AFormWhoseSourceCannotOpenItsFileLeavesTheFormAsItWas) {
    QMAudioFileSource::RegisterPkg();
    RegisterClasses({TPlayerForm::StaticClass(), TRecorder::StaticClass()});
    TOwned<TPlayerForm> form(TComponent::New<TPlayerForm>(nullptr));
    form->SetName("Form1");
    auto* sink = TComponent::New<TRecorder>(form.get());
    sink->SetName("Sink");
    const std::string before = mw::WriteComponentToText(*form);
    const std::string text =
        "object Renamed: TPlayerForm\n"
        "  object Source: TQMAudioFileSource\n"
        "    FileName = '" +
        Dir.File("missing.wav") +
        "'\n"
        "    Active = True\n"
        "    Connections = ('OutputPin' 'Sink.Input')\n"
        "  end\n"
        "  object Sink: TRecorder\n"
        "  end\n"
        "end\n";
    try {
        mw::ReadComponentPropertiesFromText(text, *form);
        FAIL() << "loaded";
    } catch (const EReadError& e) {
        EXPECT_EQ(e.Line(), 2) << e.what();
        EXPECT_NE(std::string(e.what()).find("Component Source: Can't open media file"),
                  std::string::npos)
            << e.what();
    }
    EXPECT_EQ(form->Name(), "Form1");
    EXPECT_EQ(form->ComponentCount(), 1);
    EXPECT_FALSE(sink->Input.IsConnected());
    EXPECT_EQ(mw::WriteComponentToText(*form), before);
}
