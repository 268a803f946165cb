// Form files that cannot be loaded: the error names the line, and nothing half-made remains.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "frame/Persistence.h"
#include "tests/frame/persistence_fixtures.h"

using namespace fixtures;

namespace {

struct TBadForm {
    const char* What;
    std::string Text;
    int Line;
    const char* Message;  // a part of the message
};

// A valid beginning (a child that is made before the fault is met), the faulty line 5, and
// a valid end.
std::string WithLine5(const std::string& line) {
    return "object Root: TTestComponent\n"
           "  Gain = 0.5\n"
           "  Data = ('kept')\n"
           "  object Kid: TTestComponent\n" +
           line +
           "\n"
           "  end\n"
           "end\n";
}

const TBadForm kBadForms[] = {
    {"unterminated string", WithLine5("    DeviceName = 'abc"), 5, "Unterminated string"},
    {"missing end",
     "object Root: TTestComponent\n  object Kid: TTestComponent\n    Gain = 2.0\n  end\n", 5,
     "Missing 'end' of object Root begun on line 1"},
    {"unknown class", WithLine5("    object Grandchild: TNoSuchClass\n    end"), 5,
     "Class TNoSuchClass not found"},
    {"unknown property", WithLine5("    Foo = 1"), 5,
     "Property \"Foo\" does not exist in TTestComponent"},
    {"unknown nested property", WithLine5("    Format.Foo = 1"), 5,
     "Property \"Format.Foo\" does not exist in TTestFormat"},
    {"bad number", WithLine5("    Gain = 1.5x"), 5, "Invalid number \"1.5x\""},
    {"number out of range", WithLine5("    Position = 9223372036854775808"), 5, "Invalid number"},
    {"integer too wide for 32 bits", WithLine5("    Offset = 4294967296"), 5, "out of range"},
    {"bad enum", WithLine5("    Mode = amFoo"), 5, "Invalid value \"amFoo\" for property \"Mode\""},
    {"unsigned property below zero", WithLine5("    PrefillInterval = -1"), 5,
     "Value -1 out of range for property \"PrefillInterval\" (0 to 4294967295)"},
    {"signed property past its top", WithLine5("    Offset = 4294967295"), 5,
     "Value 4294967295 out of range for property \"Offset\" (-2147483648 to 2147483647)"},
    {"enum ordinal without a name", WithLine5("    Mode = 99"), 5,
     "Invalid value \"99\" for property \"Mode\""},
    {"negative enum ordinal", WithLine5("    Mode = -1"), 5, "Invalid value \"-1\""},
    {"reference to a component of another class",
     "object Root: TTestComponent\n"
     "  object Plain: TTestPlain\n"
     "  end\n"
     "  object Kid: TTestComponent\n"
     "    Buddy = Plain\n"
     "  end\n"
     "end\n",
     5, "Component Plain is a TTestPlain, not a TTestComponent (property \"Buddy\")"},
    {"bad set element", WithLine5("    Speakers = [spFrontLeft, spNowhere]"), 5,
     "Invalid value \"spNowhere\""},
    {"wrong value type", WithLine5("    Enabled = 1"), 5, "True or False expected but an integer"},
    {"unresolved reference", WithLine5("    Buddy = Nobody"), 5, "Component Nobody not found"},
    {"bad item property", WithLine5("    Channels = <\n  item\n  Volum = 1.0\n  end>"), 7,
     "Property \"Volum\" does not exist in TTestChannel"},
    {"defined data of the wrong type", WithLine5("    Data = (\n  'a'\n  2)"), 7,
     "A string expected but an integer found"},
    {"defined data left unread", WithLine5("    Params = (0.5 True ((0 1 0.5 0.5 amIdle 9)))"), 5,
     "End of list expected but an integer found"},
    {"defined data cut short", WithLine5("    Params = (0.5)"), 5,
     "A boolean expected but end of list found"},
    {"error raised by a defined property",
     WithLine5("    Params = (0.5 True ((0 1 0.5 0.5 amNone)))"), 5, "Invalid start mode amNone"},
    {"binary not in pairs", WithLine5("    Format.FormatData = {0A0}"), 5, "Invalid binary data"},
    {"binary where a list is read", WithLine5("    Data = {00}"), 5,
     "A list expected but binary data found"},
    {"duplicate component", WithLine5("  end\n  object Kid: TTestComponent"), 6,
     "Duplicate component name Kid"},
    {"text after the end", "object Root: TTestComponent\nend\nend\n", 3, "End of file expected"},
    {"not a form", "Gain = 1\n", 1, "'object' expected"},
    {"missing '='", WithLine5("    Gain 1.0"), 5, "'=' expected but number 1.0 found"},
};

class FormErrors : public ::testing::TestWithParam<TBadForm> {
protected:
    void SetUp() override { RegisterTestClasses(); }
};

}  // namespace

TEST_P(FormErrors, NameTheLineAndCreateNothing) {
    const TBadForm& bad = GetParam();
    TOwned<TTestComponent> owner(TComponent::New<TTestComponent>(nullptr));
    int live = LiveObjects();
    try {
        mw::ReadComponentFromText(bad.Text, owner.get());
        ADD_FAILURE() << "no error for " << bad.What;
    } catch (const EReadError& e) {
        EXPECT_EQ(e.Line(), bad.Line) << e.what();
        EXPECT_NE(std::string(e.what()).find(bad.Message), std::string::npos) << e.what();
        EXPECT_EQ(std::string(e.what()).rfind("Line " + std::to_string(bad.Line) + ": ", 0), 0u);
    }
    EXPECT_EQ(LiveObjects(), live);
    EXPECT_EQ(owner->ComponentCount(), 0);
}

TEST_P(FormErrors, LeaveAnExistingRootAsItWas) {
    const TBadForm& bad = GetParam();
    TOwned<TTestComponent> root(TComponent::New<TTestComponent>(nullptr));
    root->SetName("Root");
    root->Gain = 0.25;
    root->Channels->AddChannel("old");
    TTestComponent* kid = TComponent::New<TTestComponent>(root.get());
    kid->SetName("Kid");
    kid->DeviceName = "before";
    std::string before = mw::WriteComponentToText(*root);
    int live = LiveObjects();
    try {
        mw::ReadComponentPropertiesFromText(bad.Text, *root);
        ADD_FAILURE() << "no error for " << bad.What;
    } catch (const EReadError& e) {
        EXPECT_EQ(e.Line(), bad.Line) << e.what();
        EXPECT_NE(std::string(e.what()).find(bad.Message), std::string::npos) << e.what();
    }
    EXPECT_EQ(LiveObjects(), live);
    EXPECT_EQ(mw::WriteComponentToText(*root), before);
    EXPECT_FALSE(root->IsLoading());
    EXPECT_FALSE(kid->IsLoading());
}

INSTANTIATE_TEST_SUITE_P(BadForms, FormErrors, ::testing::ValuesIn(kBadForms),
                         [](const ::testing::TestParamInfo<TBadForm>& info) {
                             std::string name;
                             for (const char* p = info.param.What; *p; ++p)
                                 if (std::isalnum(static_cast<unsigned char>(*p))) name += *p;
                             return name;
                         });

TEST(FormErrorsOfRoots, WrongRootClassOrTakenNameIsRefused) {
    RegisterTestClasses();
    TOwned<TTestComponent> owner(TComponent::New<TTestComponent>(nullptr));
    TTestComponent* taken = TComponent::New<TTestComponent>(owner.get());
    taken->SetName("Taken");
    int live = LiveObjects();
    EXPECT_THROW(mw::ReadComponentFromText("object Taken: TTestComponent\nend\n", owner.get()),
                 EReadError);
    EXPECT_EQ(LiveObjects(), live);

    TTestComponent* other = TComponent::New<TTestComponent>(owner.get());
    try {
        mw::ReadComponentPropertiesFromText("object Root: TTestHost\nend\n", *other);
        ADD_FAILURE();
    } catch (const EReadError& e) {
        EXPECT_STREQ(e.what(), "Line 1: The form holds a TTestHost, not a TTestComponent");
    }
    EXPECT_THROW(mw::ReadComponentPropertiesFromText("object Taken: TTestComponent\nend\n", *other),
                 EReadError);
    EXPECT_EQ(other->Name(), "");
}

TEST(FormErrorsOfRoots, FileErrorsNameTheFile) {
    EXPECT_THROW(mw::ReadComponentFromFile("/nonexistent/form.txt", nullptr), EFilerError);
    TOwned<TTestComponent> c(TComponent::New<TTestComponent>(nullptr));
    EXPECT_THROW(mw::WriteComponentToFile(*c, "/nonexistent/form.txt"), EFilerError);
}

TEST(FormErrorsOfRoots, AReferenceToAnUnnamedComponentCannotBeWritten) {
    RegisterTestClasses();
    TOwned<TTestComponent> root(TComponent::New<TTestComponent>(nullptr));
    TTestComponent* unnamed = TComponent::New<TTestComponent>(root.get());
    root->SetBuddy(unnamed);
    EXPECT_THROW(mw::WriteComponentToText(*root), EWriteError);
    EXPECT_FALSE(root->ComponentState() & csWriting);
}
