// TQMDMOFilter: choosing an object by name, its typed parameters, writing values and envelopes
// into it, and the persisted "DMOInfo" and "FloatParameters".
#include <gtest/gtest.h>

#include <cmath>

#include "dsound.h"
#include "frame/Persistence.h"
#include "media_objects/QMDMOSupport.h"
#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;
using mw::test::WaveType;

// A component that owns a filter of the audio effect category, as an effect component does.
class TDmoHost : public TLockComponent {
    MW_CLASS(TDmoHost, TLockComponent)
public:
    explicit TDmoHost(TComponent* owner)
        : TLockComponent(owner),
          FDMO(new TQMDMOFilter(this, ComponentLock(), DMOCATEGORY_AUDIO_EFFECT)) {}
    TQMDMOFilter* DMO() const { return FDMO.get(); }
    static void Publish(TPropertyList& p) { p.AddObject<TDmoHost>("DMO", &TDmoHost::DMO); }

private:
    TOwned<TQMDMOFilter> FDMO;
};

struct Registered {
    Registered() { RegisterClass(TDmoHost::StaticClass()); }
} registered;

float ObjectParam(TQMDMOFilter& f, DWORD index) {
    ComPtr<IMediaParams> params = f.GetMediaObject().As<IMediaParams>();
    float v = NAN;
    EXPECT_EQ(params->GetParam(index, &v), S_OK);
    return v;
}

// Runs constant 1.0 frames through the filter's object (48 kHz stereo float) and gives the
// left channel.
std::vector<float> Render(TQMDMOFilter& f, size_t frames, REFERENCE_TIME start = 0) {
    ComPtr<IMediaObject> o = f.GetMediaObject();
    WaveType t(48000, 2, 32);
    EXPECT_EQ(o->SetInputType(0, &t.Mt, 0), S_OK);
    EXPECT_EQ(o->SetOutputType(0, &t.Mt, 0), S_OK);
    std::vector<float> s(frames * 2, 1.0f);
    EXPECT_EQ(f.GetObjectInPlace()->Process(ULONG(s.size() * 4), reinterpret_cast<BYTE*>(s.data()),
                                            start, 0),
              S_OK);
    std::vector<float> left(frames);
    for (size_t i = 0; i < frames; ++i)
        left[i] = s[i * 2];
    return left;
}

double Db(float v) {
    return 20 * std::log10(v);
}

TEST(DmoFilter, ChoosesAnObjectByNameAndReadsItsParameters) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    EXPECT_FALSE(f.Open());  // no name, no object
    EXPECT_FALSE(f.GetMediaObject());
    EXPECT_EQ(f.GetDmoNames(),
              (std::vector<std::string>{"Gain", "Echo", "Chorus", "Flanger", "Compressor",
                                        "ParamEq", "Distortion", "Gargle", "Reverb"}));
    f.SetDmoName("Chorus");
    ASSERT_TRUE(f.Open());
    EXPECT_EQ(f.DmoClassID(), GUID_DSFX_STANDARD_CHORUS);
    TQMDMOParameters& ps = *f.Parameters();
    ASSERT_EQ(ps.GetCount(), 7);
    EXPECT_TRUE(ps.GetItem(0)->Is<TQMDMOFloatParameter>());
    EXPECT_EQ(ps.GetItem(0)->Name(), "WetDryMix");
    EXPECT_EQ(ps.GetItem(0)->ValueUnit(), "%");
    EXPECT_EQ(ps.GetItem(5)->Max(), 20.0f);
    auto* wave = dynamic_cast<TQMDMOEnumParameter*>(ps.GetItem(4));
    ASSERT_NE(wave, nullptr);
    EXPECT_EQ(wave->EnumValues(), (std::vector<std::string>{"Triangle", "Sine"}));
    EXPECT_EQ(wave->GetDisplayValue(), "Sine");
    // Bool and enum envelopes offer only the jump; numbers all five curves.
    EXPECT_EQ(wave->GetEnvelopes()->AvailableCurves(), 1u << ctJump);
    EXPECT_EQ(ps.GetItem(0)->GetEnvelopes()->AvailableCurves(), kQMDMOAllCurves);

    f.SetDmoName("Gargle");
    EXPECT_TRUE(f.Parameters()->GetItem(0)->Is<TQMDMOIntegerParameter>());
    f.SetDmoName("Echo");
    EXPECT_TRUE(f.Parameters()->GetItem(4)->Is<TQMDMOBoolParameter>());
    EXPECT_EQ(f.Parameters()->GetItem(4)->GetDisplayValue(), "False");
}

TEST(DmoFilter, UnknownNameLeavesNoObject) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Compressor");
    EXPECT_EQ(f.GetLatency(), 40000);
    f.SetDmoName("No such effect");
    EXPECT_EQ(f.DmoClassID(), GUID_NULL);
    EXPECT_FALSE(f.Open());
    EXPECT_EQ(f.GetLatency(), 0);
    EXPECT_EQ(f.GetVC_MediaObject(), nullptr);
    // The parameters of the former object stay, but there is nothing to write them into.
    ASSERT_EQ(f.Parameters()->GetCount(), 6);
    static_cast<TQMDMOFloatParameter*>(f.Parameters()->GetItem(0))->SetValue(3);
    EXPECT_FALSE(f.GetMediaObject());
}

TEST(DmoFilter, TheSameNameAgainKeepsObjectAndParameters) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Echo");
    IMediaObject* object = f.GetMediaObject().Get();
    TQMDMOParameter* first = f.Parameters()->GetItem(0);
    f.SetDmoName("Echo");
    EXPECT_EQ(f.GetMediaObject().Get(), object);
    EXPECT_EQ(f.Parameters()->GetItem(0), first);
    // A reference for a caller that does not count.
    IMediaObject* counted = f.GetVC_MediaObject();
    ASSERT_EQ(counted, object);
    const ULONG refs = counted->AddRef();
    counted->Release();
    EXPECT_EQ(counted->Release(), refs - 2);
}

TEST(DmoFilter, ValuesAreClampedAndReachTheObjectAtOnce) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Echo");
    auto* mix = static_cast<TQMDMOFloatParameter*>(f.Parameters()->GetItem(0));
    mix->SetValue(250);
    EXPECT_EQ(mix->Value(), 100.0f);
    EXPECT_EQ(ObjectParam(f, 0), 100.0f);
    mix->SetStringValue("12.5");
    EXPECT_EQ(ObjectParam(f, 0), 12.5f);
    mix->SetStringValue("loud");  // not a number: the default
    EXPECT_EQ(mix->Value(), 50.0f);
    EXPECT_EQ(mix->GetDisplayValue(), "50");

    f.SetDmoName("Gargle");
    auto* rate = static_cast<TQMDMOIntegerParameter*>(f.Parameters()->GetItem(0));
    rate->SetValue(5000);
    EXPECT_EQ(rate->Value(), 1000);
    EXPECT_EQ(ObjectParam(f, 0), 1000.0f);
    rate->SetStringValue("17.6");
    EXPECT_EQ(rate->GetDisplayValue(), "18");
}

TEST(DmoFilter, BoolTextOtherThanTrueOrFalseChangesNothingButWritesTheValue) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Echo");
    TQMDMOParameter* pan = f.Parameters()->GetItem(4);
    pan->SetStringValue("tRuE");
    EXPECT_EQ(ObjectParam(f, 4), 1.0f);
    // The object is changed behind the parameter's back; "yes" writes the parameter again.
    f.GetMediaObject().As<IMediaParams>()->SetParam(4, 0);
    pan->SetStringValue("yes");
    EXPECT_EQ(pan->GetSingleValue(), 1.0f);
    EXPECT_EQ(ObjectParam(f, 4), 1.0f);
    pan->SetStringValue("false");
    EXPECT_EQ(pan->GetDisplayValue(), "False");
}

TEST(DmoFilter, EnumTextsMatchTrimmedInAnyCaseAndUnknownOnesWriteNothing) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Chorus");
    TQMDMOParameter* phase = f.Parameters()->GetItem(6);
    phase->SetStringValue("  -90 ");
    EXPECT_EQ(phase->GetSingleValue(), 1.0f);
    EXPECT_EQ(ObjectParam(f, 6), 1.0f);
    TQMDMOParameter* wave = f.Parameters()->GetItem(4);
    wave->SetStringValue("TRIANGLE");
    EXPECT_EQ(ObjectParam(f, 4), 0.0f);
    f.GetMediaObject().As<IMediaParams>()->SetParam(4, 1);
    wave->SetStringValue("Square");
    EXPECT_EQ(wave->GetSingleValue(), 0.0f);
    EXPECT_EQ(ObjectParam(f, 4), 1.0f);  // nothing was written
}

TEST(DmoFilter, EnvelopeEditsReachTheObject) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Gain");
    TQMDMOParameter* gain = f.Parameters()->GetItem(0);
    TQMDMOBasicEnvelopeItems* items = gain->GetEnvelopes();
    auto* a = static_cast<TQMDMOFloatEnvelopeItem*>(items->Add());
    a->SetStartTime(10 * 10'000'000 / 48000 + 1);  // from frame 11
    a->SetLength(100 * 10'000'000 / 48000);
    a->StartValue()->SetStartValue(-6);
    a->SetEndValue(-6);
    auto* b = static_cast<TQMDMOFloatEnvelopeItem*>(items->Add());
    EXPECT_EQ(b->StartTime(), a->StartTime() + a->Length());  // starts where a ends
    b->SetLength(100 * 10'000'000 / 48000);
    b->SetCurveType(ctLinear);
    b->StartValue()->SetStartValue(-20);
    b->SetEndValue(-40);
    EXPECT_FALSE(gain->EnvelopeFilled());  // not enabled: nothing given yet
    gain->GetEnvelope()->SetEnabled(true);
    ASSERT_TRUE(gain->EnvelopeFilled());
    EXPECT_EQ(gain->EnvTotalStart(), a->StartTime());
    EXPECT_EQ(gain->EnvTotalEnd(), b->StartTime() + b->Length());
    auto out = Render(f, 400);
    EXPECT_EQ(out[10], 1.0f);
    EXPECT_NEAR(Db(out[11]), -6, 1e-4);
    EXPECT_NEAR(Db(out[111]), -20, 0.3);  // b begins at its start value
    EXPECT_NEAR(Db(out[399]), -40, 1e-3);

    // A new edit replaces what the object had: the old span is flushed first.
    f.GetMediaObject().As<IMediaParams>()->SetParam(0, 0);
    b->SetCurveType(ctSine);
    a->SetEndValue(-12);
    auto again = Render(f, 400, 0);
    EXPECT_NEAR(Db(again[11]), -6, 1e-4);
    // The jump item holds its start value and takes the end value at its end.
    EXPECT_NEAR(Db(again[110]), -6, 1e-4);

    // Enabled without items: the object is given an empty envelope, and the old one is gone.
    items->Clear();
    gain->GetEnvelope()->SetEnabled(false);
    gain->GetEnvelope()->SetEnabled(true);
    EXPECT_FALSE(gain->EnvelopeFilled());
    f.GetMediaObject().As<IMediaParams>()->SetParam(0, 0);
    auto none = Render(f, 400, 0);
    EXPECT_EQ(none[300], 1.0f);
}

TEST(DmoFilter, CurveTypesOutsideTheAvailableOnesAreDropped) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Echo");
    TQMDMOBasicEnvelopeItem* item = f.Parameters()->GetItem(4)->GetEnvelopes()->Add();
    item->SetCurveType(ctLinear);
    EXPECT_EQ(item->CurveType(), ctJump);
    TQMDMOBasicEnvelopeItem* numeric = f.Parameters()->GetItem(1)->GetEnvelopes()->Add();
    numeric->SetCurveType(ctInvSquare);
    EXPECT_EQ(numeric->CurveType(), ctInvSquare);
    EXPECT_EQ(numeric->GetDisplayName(), "0 (0 - 0)");
}

TEST(DmoFilter, TimeFormatModeReachesTheObject) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Gain");
    f.TimeFormat()->SetUnits(48000);
    f.TimeFormat()->SetMode(etfSamples);
    GUID g;
    MP_TIMEDATA units = 0;
    ComPtr<IMediaParamInfo> info = f.GetMediaObject().As<IMediaParamInfo>();
    ASSERT_EQ(info->GetCurrentTimeFormat(&g, &units), S_OK);
    EXPECT_EQ(g, GUID_TIME_SAMPLES);
    EXPECT_EQ(units, 48000u);
    f.TimeFormat()->SetMode(etfMusic);  // refused by the object; the result is ignored
    ASSERT_EQ(info->GetCurrentTimeFormat(&g, &units), S_OK);
    EXPECT_EQ(g, GUID_TIME_SAMPLES);
    f.TimeFormat()->SetMode(etfReference);
    ASSERT_EQ(info->GetCurrentTimeFormat(&g, &units), S_OK);
    EXPECT_EQ(g, GUID_TIME_REFERENCE);
}

TEST(DmoFilter, AfterAChangeOfObjectTheParametersAreNew) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    f.SetDmoName("Gain");
    TQMDMOParameter* gain = f.Parameters()->GetItem(0);
    gain->GetEnvelopes()->Add();
    gain->GetEnvelope()->SetEnabled(true);
    EXPECT_TRUE(gain->EnvelopeFilled());
    f.SetDmoName("ParamEq");
    for (int i = 0; i < f.Parameters()->GetCount(); ++i)
        EXPECT_FALSE(f.Parameters()->GetItem(i)->EnvelopeFilled());
    EXPECT_EQ(f.Parameters()->GetItem(0)->Name(), "Center");
}

TEST(DmoFilter, SelectionGoesThroughTheHandler) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    TQMDMOFilter& f = *host->DMO();
    EXPECT_FALSE(f.ShowDmoSelectDialog(false));  // no handler
    std::string title;
    TQMDMOFilter::SetDmoSelectHandler([&](const std::string& t,
                                          const std::vector<std::string>& names,
                                          std::string& selected, bool) {
        title = t;
        selected = names.at(3);
        return true;
    });
    EXPECT_TRUE(f.ShowDmoSelectDialog(true));
    EXPECT_EQ(title, "DMO Filters");
    EXPECT_EQ(f.DmoName(), "Flanger");
    TQMDMOFilter::SetDmoSelectHandler([](const std::string&, const std::vector<std::string>&,
                                         std::string&, bool) { return false; });
    EXPECT_FALSE(f.ShowDmoSelectDialog(false));
    EXPECT_EQ(f.DmoName(), "Flanger");
    TQMDMOFilter::SetDmoSelectHandler(nullptr);
}

// ---- persistence

TEST(DmoFilterPersistence, ValuesAndEnvelopesRoundTripIntoANewObject) {
    ComScope com;
    std::string text;
    {
        TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
        host->SetName("Host");
        TQMDMOFilter& f = *host->DMO();
        f.SetDmoName("Echo");
        static_cast<TQMDMOFloatParameter*>(f.Parameters()->GetItem(2))->SetValue(123.5f);
        f.Parameters()->GetItem(4)->SetStringValue("True");
        TQMDMOParameter* mix = f.Parameters()->GetItem(0);
        auto* item = static_cast<TQMDMOFloatEnvelopeItem*>(mix->GetEnvelopes()->Add());
        item->SetStartTime(1000);
        item->SetLength(5000);
        item->StartValue()->SetStartValue(10);
        item->StartValue()->SetStartMode(semDefaultValue);
        item->SetEndValue(90);
        mix->GetEnvelope()->SetEnabled(true);
        f.TimeFormat()->SetMode(etfReference);
        text = mw::WriteComponentToText(*host);
    }
    EXPECT_NE(text.find("DMOInfo"), std::string::npos) << text;
    EXPECT_NE(text.find("{EF3E932C-D40B-4F51-8CCF-3F98F1B29D5D}"), std::string::npos) << text;
    EXPECT_NE(text.find("FloatParameters"), std::string::npos) << text;
    EXPECT_NE(text.find("semDefaultValue"), std::string::npos) << text;
    EXPECT_NE(text.find("etfReference"), std::string::npos) << text;

    TOwned<TComponent> loaded(mw::ReadComponentFromText(text, nullptr));
    auto* host = dynamic_cast<TDmoHost*>(loaded.get());
    ASSERT_NE(host, nullptr);
    TQMDMOFilter& f = *host->DMO();
    EXPECT_EQ(f.DmoName(), "Echo");
    ASSERT_EQ(f.Parameters()->GetCount(), 5);
    EXPECT_EQ(f.Parameters()->StorageCount(), 0);  // applied and let go of
    EXPECT_EQ(f.Parameters()->GetItem(2)->GetSingleValue(), 123.5f);
    EXPECT_EQ(ObjectParam(f, 2), 123.5f);
    EXPECT_EQ(ObjectParam(f, 4), 1.0f);
    TQMDMOParameter* mix = f.Parameters()->GetItem(0);
    ASSERT_TRUE(mix->GetEnvelope()->Enabled());
    ASSERT_EQ(mix->GetEnvelopes()->Count(), 1);
    TQMDMOBasicEnvelopeItem* item = mix->GetEnvelopes()->GetItem(0);
    EXPECT_EQ(item->StartTime(), 1000);
    EXPECT_EQ(item->Length(), 5000);
    EXPECT_EQ(item->GetStartValue(), 10.0f);
    EXPECT_EQ(item->GetEndValue(), 90.0f);
    EXPECT_EQ(item->GetStartMode(), semDefaultValue);
    EXPECT_TRUE(mix->EnvelopeFilled());  // given to the new object
    EXPECT_EQ(f.TimeFormat()->Mode(), etfReference);
    // The new object follows the envelope: the mix jumps to 90 % at its end.
    std::vector<float> s(2 * 100, 0.0f);
    WaveType t(48000, 2, 32);
    ComPtr<IMediaObject> o = f.GetMediaObject();
    ASSERT_EQ(o->SetInputType(0, &t.Mt, 0), S_OK);
    ASSERT_EQ(o->SetOutputType(0, &t.Mt, 0), S_OK);
    ASSERT_EQ(
        f.GetObjectInPlace()->Process(ULONG(s.size() * 4), reinterpret_cast<BYTE*>(s.data()), 0, 0),
        S_OK);
    EXPECT_EQ(ObjectParam(f, 0), 90.0f);

    // Written again, the same text.
    EXPECT_EQ(mw::WriteComponentToText(*host), text);
}

TEST(DmoFilterPersistence, StoredValuesWaitForAnObjectAndSurplusOnesAreDropped) {
    ComScope com;
    // Seven entries for an object that has two parameters; the filter names no object known.
    const std::string entries =
        "(\n"
        "  -12.0 True ((0 100 -3.0 -9.0 esmStartValue))\n"
        "  1.0 False ()\n"
        "  5.0 False () 6.0 False () 7.0 False () 8.0 False () 9.0 False ())";
    const std::string text =
        "object Host: TDmoHost\n  DMO.Parameters.FloatParameters = " + entries +
        "\n  DMO.DMOInfo = ('{3F4E5A10-7C2B-4D61-9E0A-51B826C47D93}' 'Gain')\n"
        "end\n";
    TOwned<TComponent> loaded(mw::ReadComponentFromText(text, nullptr));
    auto* host = dynamic_cast<TDmoHost*>(loaded.get());
    ASSERT_NE(host, nullptr);
    TQMDMOFilter& f = *host->DMO();
    ASSERT_EQ(f.Parameters()->GetCount(), 2);
    EXPECT_EQ(f.Parameters()->StorageCount(), 0);
    EXPECT_EQ(ObjectParam(f, 0), -12.0f);
    EXPECT_EQ(ObjectParam(f, 1), 1.0f);
    EXPECT_EQ(f.Parameters()->GetItem(0)->GetEnvelopes()->Count(), 1);

    // A class that can't be created keeps the values as they were read, and writes them back.
    const std::string lost =
        "object Host: TDmoHost\n  DMO.Parameters.FloatParameters = " + entries +
        "\n  DMO.DMOInfo = ('{00000000-0000-0000-0000-000000000001}' "
        "'Gone')\nend\n";
    TOwned<TComponent> orphan(mw::ReadComponentFromText(lost, nullptr));
    TQMDMOFilter& g = *static_cast<TDmoHost*>(orphan.get())->DMO();
    EXPECT_FALSE(g.Open());
    EXPECT_EQ(g.Parameters()->StorageCount(), 7);
    const std::string again = mw::WriteComponentToText(*orphan);
    TOwned<TComponent> reread(mw::ReadComponentFromText(again, nullptr));
    EXPECT_EQ(static_cast<TDmoHost*>(reread.get())->DMO()->Parameters()->StorageCount(), 7);
    EXPECT_NE(again.find("'Gone'"), std::string::npos);
}

TEST(DmoFilterPersistence, AFilterWithoutANameWritesNothing) {
    ComScope com;
    TOwned<TDmoHost> host(TComponent::New<TDmoHost>(nullptr));
    host->SetName("Host");
    const std::string text = mw::WriteComponentToText(*host);
    EXPECT_EQ(text.find("DMO"), std::string::npos) << text;
}

TEST(DmoFilterPersistence, BadStartModeIsAnErrorOfTheFile) {
    ComScope com;
    const std::string text =
        "object Host: TDmoHost\n  DMO.Parameters.FloatParameters = (1.0 True ((0 1 0.0 0.0 "
        "esmSomewhere)))\nend\n";
    EXPECT_THROW(mw::ReadComponentFromText(text, nullptr), EReadError);
}

}  // namespace
