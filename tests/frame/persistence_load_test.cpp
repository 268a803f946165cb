// Loading into components that run: a form loaded at design time starts no thread, and a load
// that fails late (in a fixup, a deferred procedure or Loaded()) takes back all it did.
#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>

#include "frame/LockComponents.h"
#include "frame/Persistence.h"
#include "frame/QSErrors.h"
#include "frame/Threads.h"
#include "tests/frame/persistence_fixtures.h"

using namespace fixtures;

namespace {

std::atomic<int> gThreadsStarted{0};

// Starts a worker thread in its constructor, as a component that works from the start does,
// but only outside of design time.
class TThreadedPart : public TTestComponent {
    MW_CLASS(TThreadedPart, TTestComponent)
public:
    explicit TThreadedPart(TComponent* owner) : TTestComponent(owner) {
        if (IsDesigning()) return;
        ++gThreadsStarted;
        FWorker = MwNew<TBasicThread>(this, "TThreadedPart");
    }

private:
    ComPtr<IThread> FWorker;
};

// A component whose Loaded() fails when told to, as a source does that is loaded active with
// a file that is missing.
class TFragile : public TTestComponent {
    MW_CLASS(TFragile, TTestComponent)
public:
    using TTestComponent::TTestComponent;
    bool FailInLoaded = false;
    static void Publish(TPropertyList& p) {
        p.Add<TFragile>(
            "FailInLoaded", [](const TFragile& f) { return f.FailInLoaded; },
            [](TFragile& f, bool v) { f.FailInLoaded = v; }, false);
    }
    void Loaded() override {
        TTestComponent::Loaded();
        if (FailInLoaded) throw EQSException(mw::QSErrorText("Can't open media file", 2), 2);
    }
};

void RegisterLoadClasses() {
    RegisterTestClasses();
    RegisterClasses({TThreadedPart::StaticClass(), TFragile::StaticClass()});
}

// An existing form with a child, a collection, defined data and a reference, and its text.
struct TExisting {
    TOwned<TTestComponent> Root{TComponent::New<TTestComponent>(nullptr)};
    TTestComponent* Kid;
    std::string Before;
    TExisting() {
        RegisterLoadClasses();
        Root->SetName("Root");
        Root->Gain = 0.25;
        Root->Data = {"old"};
        Root->Format->FormatData = {1, 2};
        Root->Channels->AddChannel("old");
        Kid = TComponent::New<TTestComponent>(Root.get());
        Kid->SetName("Kid");
        Kid->DeviceName = "before";
        Root->SetBuddy(Kid);
        Before = mw::WriteComponentToText(*Root);
    }
};

// A file for TExisting's root that changes everything it can, and whose last component fails
// in Loaded().
const char* kLateFailure =
    "object Renamed: TTestComponent\n"       // 1
    "  Gain = 4.0\n"                         // 2
    "  Mode = amIdle\n"                      // 3
    "  Data = ('new' 'newer')\n"             // 4
    "  Format.FormatData = {FF}\n"           // 5
    "  Channels = <\n"                       // 6
    "    item\n"                             // 7
    "      Name = 'new'\n"                   // 8
    "    end>\n"                             // 9
    "  Buddy = Added\n"                      // 10
    "  object Kid: TTestComponent\n"         // 11
    "    DeviceName = 'after'\n"             // 12
    "    Links = (Added)\n"                  // 13
    "    object Grandkid: TTestComponent\n"  // 14
    "    end\n"                              // 15
    "  end\n"                                // 16
    "  object Added: TTestComponent\n"       // 17
    "  end\n"                                // 18
    "  object Bad: TFragile\n"               // 19
    "    FailInLoaded = True\n"              // 20
    "  end\n"                                // 21
    "end\n";

}  // namespace

TEST(FormLoad, AFormLoadedAtDesignTimeStartsNoThread) {
    RegisterLoadClasses();
    TOwned<TTestComponent> designer(TComponent::New<TTestComponent>(nullptr));
    designer->SetDesigning(true);
    auto* form = TComponent::New<TThreadedPart>(designer.get());
    ASSERT_TRUE(form->IsDesigning());
    const int before = gThreadsStarted.load();
    mw::ReadComponentPropertiesFromText(
        "object Form1: TThreadedPart\n"
        "  Gain = 2.0\n"
        "  object Part: TThreadedPart\n"
        "  end\n"
        "end\n",
        *form);
    EXPECT_EQ(form->Gain, 2.0);
    ASSERT_EQ(form->ComponentCount(), 1);
    EXPECT_TRUE(form->Components(0)->IsDesigning());
    EXPECT_EQ(gThreadsStarted.load(), before) << "a component started a thread while designing";

    // Outside of design time the same file starts the one part it creates, nothing more.
    TOwned<TThreadedPart> running(TComponent::New<TThreadedPart>(nullptr));
    const int running0 = gThreadsStarted.load();
    mw::ReadComponentPropertiesFromText(
        "object Form2: TThreadedPart\n"
        "  object Part: TThreadedPart\n"
        "  end\n"
        "end\n",
        *running);
    EXPECT_EQ(gThreadsStarted.load(), running0 + 1);
}

TEST(FormLoad, AFailureInLoadedTakesBackTheWholeLoadAndNamesTheLine) {
    TExisting e;
    const int live = LiveObjects();
    try {
        mw::ReadComponentPropertiesFromText(kLateFailure, *e.Root);
        FAIL() << "loaded";
    } catch (const EReadError& err) {
        EXPECT_EQ(err.Line(), 19);
        EXPECT_STREQ(err.what(), "Line 19: Component Bad: Can't open media file - 2 - 2");
    }
    EXPECT_EQ(e.Root->Name(), "Root");
    EXPECT_EQ(e.Root->ComponentCount(), 1);
    EXPECT_EQ(e.Kid->ComponentCount(), 0);
    EXPECT_EQ(e.Root->Buddy(), e.Kid);
    EXPECT_TRUE(e.Kid->Links.empty());
    EXPECT_EQ(e.Root->Data, (std::vector<std::string>{"old"}));
    EXPECT_EQ(e.Root->Format->FormatData, (std::vector<uint8_t>{1, 2}));
    ASSERT_EQ(e.Root->Channels->Count(), 1);
    EXPECT_EQ(e.Root->Channels->Item(0)->Name, "old");
    EXPECT_EQ(mw::WriteComponentToText(*e.Root), e.Before);
    EXPECT_FALSE(e.Root->IsLoading());
    EXPECT_FALSE(e.Kid->IsLoading());
    EXPECT_EQ(LiveObjects(), live);
}

TEST(FormLoad, AFailedLoadFromAFileNamesTheFileAndTheLine) {
    TExisting e;
    const auto path = (std::filesystem::temp_directory_path() /
                       ("mw_late_" + std::to_string(::getpid()) + ".txt"))
                          .string();
    std::ofstream(path) << kLateFailure;
    try {
        mw::ReadComponentPropertiesFromFile(path, *e.Root);
        ADD_FAILURE() << "loaded";
    } catch (const EReadError& err) {
        EXPECT_EQ(err.Line(), 19);
        EXPECT_NE(std::string(err.what()).find("(in \"" + path + "\")"), std::string::npos)
            << err.what();
    }
    std::filesystem::remove(path);
    EXPECT_EQ(mw::WriteComponentToText(*e.Root), e.Before);

    // A new root fails the same way and leaves nothing behind.
    const int live = LiveObjects();
    TOwned<TTestComponent> owner(TComponent::New<TTestComponent>(nullptr));
    try {
        mw::ReadComponentFromText(
            "object Solo: TTestComponent\n  object Bad: TFragile\n    FailInLoaded = True\n  "
            "end\nend\n",
            owner.get());
        ADD_FAILURE() << "loaded";
    } catch (const EReadError& err) {
        EXPECT_EQ(err.Line(), 2) << err.what();
    }
    EXPECT_EQ(owner->ComponentCount(), 0);
    owner.reset();
    EXPECT_EQ(LiveObjects(), live);
}

TEST(FormLoad, ASuccessfulLoadKeepsEverythingItRead) {
    TExisting e;
    std::string text = kLateFailure;
    text.replace(text.find("FailInLoaded = True"), 19, "FailInLoaded = False");
    mw::ReadComponentPropertiesFromText(text, *e.Root);
    EXPECT_EQ(e.Root->Name(), "Renamed");
    ASSERT_EQ(e.Root->ComponentCount(), 3);
    EXPECT_EQ(e.Root->Buddy(), e.Root->FindComponent("Added"));
    EXPECT_EQ(e.Kid->Links, (std::vector<TComponent*>{e.Root->FindComponent("Added")}));
    EXPECT_EQ(e.Root->Data, (std::vector<std::string>{"new", "newer"}));
    EXPECT_EQ(e.Root->Channels->Item(0)->Name, "new");
    EXPECT_EQ(e.Kid->DeviceName, "after");
}
