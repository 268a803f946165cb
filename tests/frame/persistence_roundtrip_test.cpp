// Form files: what is written, and that a component read back equals the one written.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>

#include <unistd.h>

#include "frame/Persistence.h"
#include "tests/frame/persistence_fixtures.h"

using namespace fixtures;

namespace {

// A root with two children; every kind of value differs from its default.
struct TSample {
    TOwned<TTestComponent> Root{TComponent::New<TTestComponent>(nullptr)};
    TTestComponent* Left;
    TTestComponent* Right;

    TSample() {
        RegisterTestClasses();
        TTestComponent& r = *Root;
        r.SetName("AudioOut1");
        r.PrefillInterval = 4000000000u;
        r.DeviceName = "Virtual 'Output' \xC3\xA9t\xC3\xA9\r\n\ttab";
        r.Gain = 0.1;
        r.Balance = 0.3f;
        r.Enabled = false;
        r.Offset = -2147483647 - 1;
        r.Position = std::numeric_limits<int64_t>::min();
        r.Mode = TTestMode::amIdle;
        r.Speakers = spFrontLeft | spBack;
        r.Format->Channels = 6;
        r.Format->FormatData = {0x0A, 0x0B, 0x0C, 0x0D, 0x00, 0xFF};
        r.Channels->AddChannel("Left")->Volume = 0.25;
        r.Channels->AddChannel("Right")->Muted = true;
        r.Channels->AddChannel("");
        r.Data = {"first", "", "third 'quoted'"};
        r.Params = {{0.7f,
                     true,
                     {{0, 1000, 0.5f, 1.0f, TTestMode::amPush},
                      {1000, 250, 1e-7f, -3.25f, TTestMode::amIdle}}},
                    {-1.5f, false, {}}};
        Left = TComponent::New<TTestComponent>(&r);
        Left->SetName("Left");
        Right = TComponent::New<TTestComponent>(&r);
        Right->SetName("Right");
        TTestComponent* deep = TComponent::New<TTestComponent>(Right);
        deep->SetName("Deep");
        deep->Gain = 2;
        // References forward, backward, to the root and to a component two levels down.
        Left->SetBuddy(Right);
        Right->SetBuddy(Left);
        r.SetBuddy(deep);
        deep->SetBuddy(Root.get());
        r.AddLink(Right);
        r.AddLink(deep);
    }
};

void ExpectSameValues(const TTestComponent& a, const TTestComponent& b) {
    EXPECT_EQ(a.Name(), b.Name());
    EXPECT_EQ(a.PrefillInterval, b.PrefillInterval);
    EXPECT_EQ(a.DeviceName, b.DeviceName);
    EXPECT_EQ(std::bit_cast<uint64_t>(a.Gain), std::bit_cast<uint64_t>(b.Gain));
    EXPECT_EQ(std::bit_cast<uint32_t>(a.Balance), std::bit_cast<uint32_t>(b.Balance));
    EXPECT_EQ(a.Enabled, b.Enabled);
    EXPECT_EQ(a.Offset, b.Offset);
    EXPECT_EQ(a.Position, b.Position);
    EXPECT_EQ(a.Mode, b.Mode);
    EXPECT_EQ(a.Speakers, b.Speakers);
    EXPECT_EQ(a.Format->Channels, b.Format->Channels);
    EXPECT_EQ(a.Format->SampleRate, b.Format->SampleRate);
    EXPECT_EQ(a.Format->FormatData, b.Format->FormatData);
    ASSERT_EQ(a.Channels->Count(), b.Channels->Count());
    for (int i = 0; i < a.Channels->Count(); ++i) {
        EXPECT_EQ(a.Channels->Item(i)->Name, b.Channels->Item(i)->Name);
        EXPECT_EQ(a.Channels->Item(i)->Volume, b.Channels->Item(i)->Volume);
        EXPECT_EQ(a.Channels->Item(i)->Muted, b.Channels->Item(i)->Muted);
    }
    EXPECT_EQ(a.Data, b.Data);
    EXPECT_EQ(a.Params, b.Params);
    EXPECT_EQ(a.Buddy() ? a.Buddy()->Name() : "", b.Buddy() ? b.Buddy()->Name() : "");
    ASSERT_EQ(a.Links.size(), b.Links.size());
    for (size_t i = 0; i < a.Links.size(); ++i)
        EXPECT_EQ(a.Links[i]->Name(), b.Links[i]->Name());
    ASSERT_EQ(a.ComponentCount(), b.ComponentCount());
    for (int i = 0; i < a.ComponentCount(); ++i)
        ExpectSameValues(static_cast<TTestComponent&>(*a.Components(i)),
                         static_cast<TTestComponent&>(*b.Components(i)));
}

TOwned<TTestComponent> ReadBack(const std::string& text) {
    TComponent* c = mw::ReadComponentFromText(text, nullptr);
    auto* t = dynamic_cast<TTestComponent*>(c);
    EXPECT_NE(t, nullptr);
    return TOwned<TTestComponent>(t);
}

}  // namespace

TEST(FormFile, RoundTripRestoresEveryKindOfValue) {
    TSample s;
    std::string text = mw::WriteComponentToText(*s.Root);
    // Singles are written with the digits of the single, not of the double nearest to it.
    EXPECT_NE(text.find("\n    0.7\n    True\n"), std::string::npos) << text;
    TOwned<TTestComponent> back = ReadBack(text);
    ExpectSameValues(*s.Root, *back);
    // References point into the new tree, not the old one.
    EXPECT_EQ(back->Buddy(), back->Components(1)->Components(0));
    EXPECT_EQ(static_cast<TTestComponent*>(back->Components(1)->Components(0))->Buddy(),
              back.get());
    EXPECT_EQ(mw::WriteComponentToText(*back), text);
}

TEST(FormFile, DefaultsAreNotWritten) {
    RegisterTestClasses();
    TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
    c->SetName("Plain");
    EXPECT_EQ(mw::WriteComponentToText(*c), "object Plain: TTestComponent\nend\n");

    // Back at its default, a value leaves the file again; a nested object with one changed
    // value writes only that value.
    c->Gain = 2;
    c->Gain = 1;
    c->Format->SampleRate = 48000;
    EXPECT_EQ(mw::WriteComponentToText(*c),
              "object Plain: TTestComponent\n  Format.SampleRate = 48000\nend\n");
}

TEST(FormFile, WritesTheTextFormat) {
    RegisterTestClasses();
    TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
    c->SetName("AudioOut1");
    c->PrefillInterval = 500;
    c->DeviceName = "It's";
    c->Gain = 2;
    c->Enabled = false;
    c->Mode = TTestMode::amPush;
    c->Speakers = spFrontLeft | spFrontRight;
    c->Format->Channels = 1;
    c->Format->FormatData = {0x0A, 0x0B, 0x0C, 0x0D};
    c->Channels->AddChannel("Left");
    c->Channels->AddChannel("Right")->Muted = true;
    c->Data = {"first", "second"};
    c->Params = {{0.5f, true, {{0, 10, 0.25f, 1, TTestMode::amIdle}}}};
    TTestComponent* child = TComponent::New<TTestComponent>(c.get());
    child->SetName("Child1");
    c->SetBuddy(child);
    EXPECT_EQ(mw::WriteComponentToText(*c),
              "object AudioOut1: TTestComponent\n"
              "  PrefillInterval = 500\n"
              "  DeviceName = 'It''s'\n"
              "  Gain = 2.0\n"
              "  Enabled = False\n"
              "  Mode = amPush\n"
              "  Speakers = [spFrontLeft, spFrontRight]\n"
              "  Format.Channels = 1\n"
              "  Format.FormatData = {0A0B0C0D}\n"
              "  Channels = <\n"
              "    item\n"
              "      Name = 'Left'\n"
              "    end\n"
              "    item\n"
              "      Name = 'Right'\n"
              "      Muted = True\n"
              "    end>\n"
              "  Buddy = Child1\n"
              "  Data = (\n"
              "    'first'\n"
              "    'second')\n"
              "  Params = (\n"
              "    0.5\n"
              "    True\n"
              "    (\n"
              "      (\n"
              "        0\n"
              "        10\n"
              "        0.25\n"
              "        1.0\n"
              "        amIdle)))\n"
              "  object Child1: TTestComponent\n"
              "  end\n"
              "end\n");
}

TEST(FormFile, StringsKeepEveryByte) {
    RegisterTestClasses();
    std::string all;
    for (int i = 1; i < 256; ++i)
        all += static_cast<char>(i);
    const std::string cases[] = {"",
                                 "'",
                                 "''",
                                 "#13",
                                 "\r\n",
                                 "a\x01"
                                 "b",
                                 all,
                                 std::string(200, 'x') + "\xE2\x82\xAC" + std::string(100, '\'')};
    for (const std::string& value : cases) {
        TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
        c->DeviceName = value;
        std::string text = mw::WriteComponentToText(*c);
        TOwned<TTestComponent> back = ReadBack(text);
        EXPECT_EQ(back->DeviceName, value) << text;
    }
}

TEST(FormFile, LongStringsAndBinaryAreWrappedOverLines) {
    RegisterTestClasses();
    TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
    // A multi-byte character at the cut stays whole on one line.
    c->DeviceName = std::string(62, 'a') + "\xC3\xA9" + std::string(10, 'b');
    for (int i = 0; i < 40; ++i)
        c->Format->FormatData.push_back(static_cast<uint8_t>(i));
    std::string text = mw::WriteComponentToText(*c);
    EXPECT_NE(
        text.find("  DeviceName = '" + std::string(62, 'a') + "\xC3\xA9' +\n    'bbbbbbbbbb'\n"),
        std::string::npos)
        << text;
    EXPECT_NE(text.find("  Format.FormatData = {\n    000102"), std::string::npos) << text;
    EXPECT_NE(text.find("\n    2021222324252627}\n"), std::string::npos) << text;
    TOwned<TTestComponent> back = ReadBack(text);
    EXPECT_EQ(back->DeviceName, c->DeviceName);
    EXPECT_EQ(back->Format->FormatData, c->Format->FormatData);
}

TEST(FormFile, FloatsReadBackBitExactly) {
    RegisterTestClasses();
    const double values[] = {0.1,
                             1.0 / 3,
                             -0.0,
                             5e-324,
                             1e300,
                             -2.5,
                             123456789012345678.0,
                             std::numeric_limits<double>::max(),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity()};
    const float singles[] = {0.1f, 1.0f / 3, 1e-45f, 3.4e38f, -7.0f, 16777217.0f};
    for (size_t i = 0; i < std::size(values); ++i) {
        TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
        c->Gain = values[i];
        c->Balance = singles[i % std::size(singles)];
        TOwned<TTestComponent> back = ReadBack(mw::WriteComponentToText(*c));
        EXPECT_EQ(std::bit_cast<uint64_t>(back->Gain), std::bit_cast<uint64_t>(values[i]))
            << values[i];
        EXPECT_EQ(std::bit_cast<uint32_t>(back->Balance), std::bit_cast<uint32_t>(c->Balance));
    }
    TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
    c->Gain = std::nan("");
    EXPECT_TRUE(std::isnan(ReadBack(mw::WriteComponentToText(*c))->Gain));
}

TEST(FormFile, ReadsWhatAPersonMightWrite) {
    RegisterTestClasses();
    // Any case for names and words, hex integers, integers for floats, strings joined by '+'.
    TOwned<TTestComponent> c = ReadBack(
        "OBJECT Root: ttestcomponent\n"
        "  prefillinterval = $1F4\n"
        "  GAIN = 3\n"
        "  enabled = false\n"
        "  mode = AMIDLE\n"
        "  speakers = [spcenter]\n"
        "  DeviceName = 'a' + #39 +\n"
        "     'b'#13#10'c'\n"
        "  object kid: TTestComponent\n"
        "    Buddy = ROOT\n"
        "  END\n"
        "end");
    EXPECT_EQ(c->PrefillInterval, 500u);
    EXPECT_EQ(c->Gain, 3.0);
    EXPECT_FALSE(c->Enabled);
    EXPECT_EQ(c->Mode, TTestMode::amIdle);
    EXPECT_EQ(c->Speakers, uint64_t{spCenter});
    EXPECT_EQ(c->DeviceName, "a'b\r\nc");
    EXPECT_EQ(static_cast<TTestComponent*>(c->Components(0))->Buddy(), c.get());
}

TEST(FormFile, LoadedRunsAfterReferencesInCreationOrder) {
    TSample s;
    std::string text = mw::WriteComponentToText(*s.Root);
    LoadLog().clear();
    TOwned<TTestComponent> back = ReadBack(text);
    EXPECT_EQ(LoadLog(), (std::vector<std::string>{"AudioOut1->Deep", "Left->Right", "Right->Left",
                                                   "Deep->AudioOut1"}));
    // Loading already during AfterConstruction, so that a component can wait for Loaded().
    EXPECT_TRUE(back->WasLoadingInAfterConstruction);
    EXPECT_TRUE(static_cast<TTestComponent*>(back->Components(0))->WasLoadingInAfterConstruction);
    EXPECT_FALSE(s.Root->WasLoadingInAfterConstruction);
    EXPECT_TRUE(back->WasLoadingInLoaded);
    EXPECT_FALSE(back->IsLoading());
    // The deferred procedure of "Links" ran when all components of the file existed.
    EXPECT_EQ(back->ComponentsSeenWhenDeferred, 2);
}

TEST(FormFile, ChildrenOfADesigningOwnerAreDesigning) {
    TSample s;
    std::string text = mw::WriteComponentToText(*s.Root);
    TOwned<TTestComponent> form(TComponent::New<TTestComponent>(nullptr));
    form->SetDesigning(true);
    TComponent* back = mw::ReadComponentFromText(text, form.get());
    EXPECT_EQ(back->Owner(), form.get());
    EXPECT_TRUE(back->IsDesigning());
    EXPECT_TRUE(back->Components(1)->Components(0)->IsDesigning());
}

TEST(FormFile, ReferencesBesideTheRootResolveThroughItsOwner) {
    RegisterTestClasses();
    TOwned<TTestComponent> form(TComponent::New<TTestComponent>(nullptr));
    form->SetName("Form1");
    TTestComponent* other = TComponent::New<TTestComponent>(form.get());
    other->SetName("Other");
    TTestComponent* frame = TComponent::New<TTestComponent>(form.get());
    frame->SetName("Frame");
    frame->SetBuddy(other);
    std::string text = mw::WriteComponentToText(*frame);
    EXPECT_NE(text.find("Buddy = Other\n"), std::string::npos) << text;
    frame->SetName("OldFrame");
    auto* back = static_cast<TTestComponent*>(mw::ReadComponentFromText(text, form.get()));
    EXPECT_EQ(back->Buddy(), other);
}

TEST(FormFile, LoadsIntoAnExistingRootInPlace) {
    RegisterTestClasses();
    TOwned<TTestHost> source(TComponent::New<TTestHost>(nullptr));
    source->SetName("Host");
    source->Gain = 0.5;
    source->Inner->DeviceName = "inner device";
    source->Channels->AddChannel("A");
    TTestComponent* added = TComponent::New<TTestComponent>(source.get());
    added->SetName("Added");
    added->SetBuddy(source->Inner);
    std::string text = mw::WriteComponentToText(*source);

    TOwned<TTestHost> target(TComponent::New<TTestHost>(nullptr));
    target->Channels->AddChannel("to be replaced");
    TTestComponent* inner = target->Inner;
    int live = LiveObjects();
    LoadLog().clear();
    mw::ReadComponentPropertiesFromText(text, *target);
    EXPECT_EQ(target->Name(), "Host");
    EXPECT_EQ(target->Inner, inner);
    EXPECT_EQ(inner->DeviceName, "inner device");
    ASSERT_EQ(target->ComponentCount(), 2);
    EXPECT_EQ(static_cast<TTestComponent*>(target->Components(1))->Buddy(), inner);
    EXPECT_EQ(LoadLog(), (std::vector<std::string>{"Host", "Inner", "Added->Inner"}));
    // One component and its format more than before remain.
    EXPECT_EQ(LiveObjects(), live + 2);  // Added and its Format
    EXPECT_EQ(mw::WriteComponentToText(*target), text);
}

TEST(FormFile, LoadsIntoExistingChildrenOfUnregisteredClasses) {
    RegisterTestClasses();
    TOwned<TTestComponent> root(TComponent::New<TTestComponent>(nullptr));
    TTestUnregistered* extra = TComponent::New<TTestUnregistered>(root.get());
    extra->SetName("Extra");
    mw::ReadComponentPropertiesFromText(
        "object Root: TTestComponent\n  object Extra: TTestUnregistered\n    Gain = 4.0\n  "
        "end\nend\n",
        *root);
    EXPECT_EQ(extra->Gain, 4.0);
    EXPECT_EQ(root->ComponentCount(), 1);
}

TEST(FormFile, ReaderReportsTheTypeOfEachValue) {
    RegisterTestClasses();
    // A component whose defined property looks at each value and passes over it.
    class TProbe : public TTestComponent {
        MW_CLASS(TProbe, TTestComponent)
    public:
        using TTestComponent::TTestComponent;
        std::vector<TValueType> Seen;
        void DefineProperties(TFiler& filer) override {
            filer.DefineProperty(
                "Probe",
                [this](TReader& r) {
                    r.ReadListBegin();
                    while (!r.EndOfList()) {
                        Seen.push_back(r.NextValue());
                        r.SkipValue();
                    }
                    Seen.push_back(r.NextValue());
                    r.ReadListEnd();
                },
                nullptr, false);
        }
    };
    TOwned<TProbe> probe(TComponent::New<TProbe>(nullptr));
    mw::ReadComponentPropertiesFromText(
        "object P: TProbe\n  Probe = (1 2.5 'x' abc True False nil [a, b] {00} (1 (2)) <item "
        "end>)\nend",
        *probe);
    using V = TValueType;
    EXPECT_EQ(probe->Seen, (std::vector<V>{V::vaInteger, V::vaFloat, V::vaString, V::vaIdent,
                                           V::vaTrue, V::vaFalse, V::vaNil, V::vaSet, V::vaBinary,
                                           V::vaList, V::vaCollection, V::vaNull}));
}

TEST(FormFile, FilesRoundTripAndReplaceTheOldFile) {
    TSample s;
    auto path = (std::filesystem::temp_directory_path() /
                 ("mw_form_" + std::to_string(::getpid()) + ".txt"))
                    .string();
    mw::WriteComponentToFile(*s.Root, path);
    s.Root->Gain = 7;
    mw::WriteComponentToFile(*s.Root, path);
    EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    TOwned<TTestComponent> back(
        static_cast<TTestComponent*>(mw::ReadComponentFromFile(path, nullptr)));
    ExpectSameValues(*s.Root, *back);
    TOwned<TTestComponent> into(TComponent::New<TTestComponent>(nullptr));
    mw::ReadComponentPropertiesFromFile(path, *into);
    EXPECT_EQ(into->Gain, 7.0);
    std::filesystem::remove(path);
    EXPECT_THROW(mw::ReadComponentFromFile(path, nullptr), EFilerError);
}
