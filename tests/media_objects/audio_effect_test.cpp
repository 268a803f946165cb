// TQMDMOAudioEffect between a source and a sink: the effect on the stream, envelopes in stream
// time, formats it passes through, persistence, settings text, pumps, and a change of effect
// while another thread streams.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

#include "frame/Persistence.h"
#include "media_objects/QMDMOAudioEffect.h"
#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;

constexpr uint32_t kRate = 48000;

class TSource : public TLockComponent {
    MW_CLASS(TSource, TLockComponent)
public:
    explicit TSource(TComponent* owner)
        : TLockComponent(owner), Output(this, ComponentLock(), nullptr, {}) {
        Output.SetName("Output");
        Output.SetOnMasterPump([this](TQSQWClockableSourcePin* pin, TObject* master, uint32_t n) {
            if (Pump.Accept(pin, master, n)) ++Served;
        });
    }
    // Sends the samples in buffers of `frames`, with times unless told otherwise.
    void Send(const TQAWaveFormatExtensible& f, const std::vector<float>& samples, size_t frames,
              bool times = true) {
        const size_t total = samples.size() / f.nChannels;
        for (size_t first = 0; first < total; first += frames) {
            const size_t n = std::min(frames, total - first);
            auto b = MwNew<TQAAudioBuffer>(f, static_cast<uint32_t>(n));
            std::memcpy(b->InterleavedWritePointer(), &samples[first * f.nChannels],
                        n * f.nBlockAlign);
            auto stamp = b->TimeStamp();
            stamp->SetHasTimes(times);
            stamp->SetStartTime(mw::SamplesToDuration100ns(int64_t(first), f.nSamplesPerSec));
            stamp->SetEndTime(mw::SamplesToDuration100ns(int64_t(first + n), f.nSamplesPerSec));
            Sent.push_back(ComPtr<IQSData>(b));
            Output.SubmitBuffer(ComPtr<IQSData>(b));
        }
    }
    TQAQWAudioSourcePin Output;
    TQWPumpSourceState Pump;
    std::atomic<int> Served{0};
    std::vector<ComPtr<IQSData>> Sent;
};

class TSink : public TLockComponent {
    MW_CLASS(TSink, TLockComponent)
public:
    explicit TSink(TComponent* owner)
        : TLockComponent(owner),
          Input(this, ComponentLock(),
                [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                       TQWNotifyState) {
                    std::lock_guard g(Mutex);
                    if (auto* s = op->InstanceAs<TQWStartWaveOperation>()) {
                        Log.push_back("start");
                        Format = s->Format;
                    } else if (auto* b = op->InstanceAs<TQWSuppliedBufferOperation>()) {
                        const auto* p = reinterpret_cast<const float*>(b->Data->ReadPointer());
                        Samples.insert(Samples.end(), p, p + b->Data->ByteSize() / 4);
                        Bytes.insert(Bytes.end(), b->Data->ReadPointer(),
                                     b->Data->ReadPointer() + b->Data->ByteSize());
                        auto t = b->Data->TimeStamp();
                        Starts.push_back(t->HasTimes() ? t->StartTime() : -1);
                    } else if (op->IsType<TQWStopOperation>()) {
                        Log.push_back("stop");
                    } else if (op->IsType<TQWFlushStreamOperation>()) {
                        Log.push_back("flush");
                    } else if (auto* r = op->InstanceAs<TQWPumpRequestOperation>()) {
                        QWClaimPump(*r, this, 1);
                    }
                    return 0;
                }) {
        Input.SetName("Input");
    }
    TQAQWAudioSinkPin Input;
    std::mutex Mutex;
    std::vector<std::string> Log;
    std::vector<float> Samples;
    std::vector<uint8_t> Bytes;
    std::vector<int64_t> Starts;
    TQAWaveFormatExtensible Format{};
};

TQAWaveFormatExtensible FloatStereo() {
    auto f = mw::MakePcmWaveFormat(kRate, 32, 2);
    f.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return f;
}

struct Chain {
    ComScope com;
    TOwned<TSource> source{TComponent::New<TSource>(nullptr)};
    TOwned<TQMDMOAudioEffect> effect{TComponent::New<TQMDMOAudioEffect>(nullptr)};
    TOwned<TSink> sink{TComponent::New<TSink>(nullptr)};
    Chain() {
        EXPECT_TRUE(QWConnect(source->Output, effect->InputPin()));
        EXPECT_TRUE(QWConnect(effect->OutputPin(), sink->Input));
    }
    ~Chain() {
        // Pins first, as the owner of a form frees them.
        source.reset();
        effect.reset();
        sink.reset();
    }
    void Stream(const std::vector<float>& samples, size_t frames, bool times = true,
                TQAWaveFormatExtensible f = FloatStereo()) {
        source->Output.Notify(MwNew<TQWStartWaveOperation>(f));
        source->Send(f, samples, frames, times);
        source->Output.Notify(MwNew<TQWStopOperation>());
    }
};

TEST(DmoAudioEffect, GainOnTheStreamLeavesTheSendersBuffersAlone) {
    Chain c;
    c.effect->Effect()->SetDmoName("Gain");
    std::string error;
    ASSERT_TRUE(c.effect->ApplySettings("gain=-6", error)) << error;
    const auto input = mw::test::Sine(1000, 0.5, kRate, 2, 4800);
    c.Stream(input, 480);
    EXPECT_EQ(c.sink->Log, (std::vector<std::string>{"start", "stop"}));
    ASSERT_EQ(c.sink->Samples.size(), input.size());
    EXPECT_NEAR(
        mw::test::ToDb(mw::test::ToneAmplitude(c.sink->Samples, 2, 0, 1000, kRate, 0, 4800) / 0.5),
        -6, 0.01);
    EXPECT_EQ(c.effect->ProcessedBuffers(), 10u);
    ASSERT_EQ(c.sink->Starts.size(), 10u);
    EXPECT_EQ(c.sink->Starts[3], 3 * 100000);  // the sender's times
    const float* first = reinterpret_cast<const float*>(c.source->Sent[0]->ReadPointer());
    EXPECT_EQ(first[2], input[2]);  // not written into
}

TEST(DmoAudioEffect, EnvelopesRunInStreamTimeAcrossBuffers) {
    Chain c;
    TQMDMOFilter& f = *c.effect->Effect();
    f.SetDmoName("Gain");
    TQMDMOParameter* gain = f.Parameters()->GetItem(0);
    auto* item = static_cast<TQMDMOFloatEnvelopeItem*>(gain->GetEnvelopes()->Add());
    item->SetStartTime(5'000'000);  // 0.5 s: frame 24000
    item->SetLength(0);
    item->StartValue()->SetStartValue(-20);
    item->SetEndValue(-20);
    gain->GetEnvelope()->SetEnabled(true);
    // Twice, without times: the second stream counts from its own start again.
    for (int round = 0; round < 2; ++round) {
        {
            std::lock_guard g(c.sink->Mutex);
            c.sink->Samples.clear();
        }
        f.GetOpenObject().As<IMediaParams>()->SetParam(0, 0);
        gain->SetSingleValue(0);
        c.Stream(std::vector<float>(2 * kRate, 1.0f), 441, round == 1 ? false : true);
        ASSERT_EQ(c.sink->Samples.size(), 2u * kRate);
        EXPECT_EQ(c.sink->Samples[2 * 23999], 1.0f) << round;
        EXPECT_NEAR(mw::test::ToDb(c.sink->Samples[2 * 24000]), -20, 1e-4) << round;
        EXPECT_NEAR(mw::test::ToDb(c.sink->Samples.back()), -20, 1e-4) << round;
    }
}

TEST(DmoAudioEffect, FormatsItCannotTakePassUnchangedWithAWarning) {
    Chain c;
    c.effect->Effect()->SetDmoName("Gain");
    c.effect->Effect()->Parameters()->GetItem(0)->SetStringValue("-10");
    int warnings = 0;
    c.effect->SetOnWarning([&](TObject*, const std::string&, uint32_t) { ++warnings; });
    const auto f24 = mw::MakePcmWaveFormat(kRate, 24, 2);
    c.source->Output.Notify(MwNew<TQWStartWaveOperation>(f24));
    auto b = MwNew<TQAAudioBuffer>(f24, 300);
    std::memset(b->InterleavedWritePointer(), 0x5A, 1800);
    c.source->Output.SubmitBuffer(ComPtr<IQSData>(b));
    c.source->Output.SubmitBuffer(ComPtr<IQSData>(b));
    EXPECT_EQ(warnings, 1);
    EXPECT_EQ(c.sink->Bytes, std::vector<uint8_t>(3600, 0x5A));
    EXPECT_EQ(c.effect->ProcessedBuffers(), 0u);
    // Disabled, a stream it could take passes too.
    c.effect->SetEnabled(false);
    c.sink->Samples.clear();
    c.Stream(std::vector<float>(200, 0.5f), 50);
    EXPECT_EQ(c.sink->Samples, std::vector<float>(200, 0.5f));
    // Without any effect chosen, likewise.
    TOwned<TQMDMOAudioEffect> bare(TComponent::New<TQMDMOAudioEffect>(nullptr));
    EXPECT_FALSE(bare->Effect()->Open());
}

TEST(DmoAudioEffect, SettingsTextAndItsErrors) {
    ComScope com;
    TOwned<TQMDMOAudioEffect> e(TComponent::New<TQMDMOAudioEffect>(nullptr));
    std::string error;
    EXPECT_FALSE(e->ApplySettings("Gain=1", error));  // no effect chosen
    e->Effect()->SetDmoName("Chorus");
    ASSERT_TRUE(e->ApplySettings(" Depth = 40 , waveform=triangle,phase=-90", error)) << error;
    TQMDMOParameters& ps = *e->Effect()->Parameters();
    EXPECT_EQ(ps.GetItem(1)->GetSingleValue(), 40.0f);
    EXPECT_EQ(ps.GetItem(4)->GetDisplayValue(), "Triangle");
    EXPECT_EQ(ps.GetItem(6)->GetDisplayValue(), "-90");
    EXPECT_FALSE(e->ApplySettings("Speed=3", error));
    EXPECT_NE(error.find("Speed"), std::string::npos);
    EXPECT_FALSE(e->ApplySettings("Waveform=Square", error));
    EXPECT_EQ(ps.GetItem(4)->GetDisplayValue(), "Triangle");
    EXPECT_FALSE(e->ApplySettings("Depth=deep", error));
    EXPECT_EQ(ps.GetItem(1)->GetSingleValue(), 40.0f);
    EXPECT_FALSE(e->ApplySettings("Depth", error));
    e->Effect()->SetDmoName("Echo");
    ASSERT_TRUE(e->ApplySettings("PanDelay=true", error)) << error;
    EXPECT_FALSE(e->ApplySettings("PanDelay=yes", error));
}

TEST(DmoAudioEffect, PersistedEffectSoundsTheSameAfterLoading) {
    ComScope com;
    RegisterClass(TQMDMOAudioEffect::StaticClass());
    auto render = [](TQMDMOAudioEffect* effect) {
        TOwned<TSource> source(TComponent::New<TSource>(nullptr));
        TOwned<TSink> sink(TComponent::New<TSink>(nullptr));
        QWConnect(source->Output, effect->InputPin());
        QWConnect(effect->OutputPin(), sink->Input);
        source->Output.Notify(MwNew<TQWStartWaveOperation>(FloatStereo()));
        source->Send(FloatStereo(), mw::test::Noise(0.5, 2, 9600), 960);
        source->Output.Notify(MwNew<TQWStopOperation>());
        QWDisconnect(source->Output, effect->InputPin());
        QWDisconnect(effect->OutputPin(), sink->Input);
        return sink->Samples;
    };
    std::string text;
    std::vector<float> before;
    {
        TOwned<TQMDMOAudioEffect> e(TComponent::New<TQMDMOAudioEffect>(nullptr));
        e->SetName("Effect1");
        e->Effect()->SetDmoName("Echo");
        std::string error;
        ASSERT_TRUE(e->ApplySettings("WetDryMix=70,Feedback=30,LeftDelay=20,RightDelay=35", error));
        TQMDMOParameter* left = e->Effect()->Parameters()->GetItem(2);
        auto* item = static_cast<TQMDMOFloatEnvelopeItem*>(left->GetEnvelopes()->Add());
        item->SetStartTime(1'000'000);
        item->SetLength(0);
        item->StartValue()->SetStartValue(5);
        item->SetEndValue(5);
        left->GetEnvelope()->SetEnabled(true);
        before = render(e.get());
        text = mw::WriteComponentToText(*e);
    }
    EXPECT_NE(text.find("Effect.DMOInfo"), std::string::npos) << text;
    TOwned<TComponent> loaded(mw::ReadComponentFromText(text, nullptr));
    auto* e = dynamic_cast<TQMDMOAudioEffect*>(loaded.get());
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->Effect()->Parameters()->GetItem(3)->GetSingleValue(), 35.0f);
    const auto after = render(e);
    ASSERT_EQ(after.size(), before.size());
    EXPECT_EQ(after, before);
}

TEST(DmoAudioEffect, ASinkAfterTheEffectPullsFromTheSourceBeforeIt) {
    Chain c;
    c.effect->Effect()->SetDmoName("Gain");
    TObject* master = c.source->Pump.Request(c.source->Output);
    EXPECT_EQ(master, c.sink.get());
    c.source->Pump.StartPump(c.source->Output);
    c.sink->Input.MasterPump(c.sink.get());
    EXPECT_GE(c.source->Served.load(), 1);
}

TEST(DmoAudioEffect, EffectsAndValuesChangeWhileAnotherThreadStreams) {
    Chain c;
    c.effect->Effect()->SetDmoName("Gain");
    std::atomic<bool> done{false};
    std::thread sender([&] {
        CoInitialize(nullptr);
        const auto f = FloatStereo();
        c.source->Output.Notify(MwNew<TQWStartWaveOperation>(f));
        const auto noise = mw::test::Noise(0.5, 2, 480);
        for (int i = 0; i < 400; ++i) {
            auto b = MwNew<TQAAudioBuffer>(f, 480);
            std::memcpy(b->InterleavedWritePointer(), noise.data(), 480 * 8);
            c.source->Output.SubmitBuffer(ComPtr<IQSData>(b));
        }
        c.source->Output.Notify(MwNew<TQWStopOperation>());
        done = true;
        CoUninitialize();
    });
    const char* names[] = {"Echo", "Reverb", "ParamEq", "Gain", "Flanger"};
    for (int i = 0; !done; ++i) {
        c.effect->Effect()->SetDmoName(names[i % 5]);
        if (TQMDMOParameter* p = c.effect->Effect()->Parameters()->GetItem(0))
            p->SetSingleValue(static_cast<float>(i % 50));
        c.effect->SetEnabled(i % 7 != 0);
    }
    sender.join();
    std::lock_guard g(c.sink->Mutex);
    EXPECT_EQ(c.sink->Samples.size(), 400u * 480 * 2);
    for (float v : c.sink->Samples)
        ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
