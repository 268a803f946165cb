// Components, sub-objects and collections that share the component lock; ownership,
// names, assignment and the error reporting pattern.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/MainThread.h"
#include "frame/QSErrors.h"
#include "tests/support/Wait.h"

using mw::test::WaitUntil;

namespace {

std::vector<std::string> gFreed;

class TFormat : public TLockPersistent {
    MW_CLASS(TFormat, TLockPersistent)
public:
    using TLockPersistent::TLockPersistent;
    int32_t Channels() const { return FChannels; }
    void SetChannels(int32_t v) { Setters().SetterMin(FChannels, v, 1, Notifier()); }
    static void Publish(TPropertyList& p) {
        p.Add<TFormat>("Channels", &TFormat::Channels, &TFormat::SetChannels, 2);
    }

private:
    int32_t FChannels = 2;
};

class TChannelItem : public TLockCollectionItem {
    MW_CLASS(TChannelItem, TLockCollectionItem)
public:
    using TLockCollectionItem::TLockCollectionItem;
    std::string Label;
    static void Publish(TPropertyList& p) {
        p.Add<TChannelItem>(
            "Label", [](const TChannelItem& i) { return i.Label; },
            [](TChannelItem& i, std::string v) { i.Setters().Setter(i.Label, v, i.Notifier()); },
            std::string());
    }
    using TLockCollectionItem::Notifier;
};

class TChannelItems : public TTypedCollection<TChannelItem> {
    MW_CLASS(TChannelItems, TTypedCollection<TChannelItem>)
public:
    using TTypedCollection<TChannelItem>::TTypedCollection;
    void NewItemCreated(TCollectionItem* item) override {
        TTypedCollection<TChannelItem>::NewItemCreated(item);
        static_cast<TChannelItem*>(item)->Label = "Channel" + std::to_string(Count());
    }
};

class TMixer : public TLockComponent {
    MW_CLASS(TMixer, TLockComponent)
public:
    explicit TMixer(TComponent* owner)
        : TLockComponent(owner),
          FFormat(this, ComponentLock(), Notifier()),
          FItems(this, ComponentLock()) {}
    ~TMixer() override { gFreed.push_back(Name()); }
    TFormat* Format() { return &FFormat; }
    TChannelItems* Items() { return &FItems; }
    float Gain() const { return FGain; }
    void SetGain(float v) { Setters().SetterMinMax(FGain, v, 0.0f, 2.0f, Notifier()); }
    void NotifyProp() override { ++Changes; }
    void CreateStart(bool loaded) override { Starts.push_back(loaded); }
    static void Publish(TPropertyList& p) {
        p.Add<TMixer>("Gain", &TMixer::Gain, &TMixer::SetGain, 1.0f)
            .AddObject<TMixer>("Format",
                               [](const TMixer& m) { return const_cast<TFormat*>(&m.FFormat); })
            .AddObject<TMixer>(
                "Items", [](const TMixer& m) { return const_cast<TChannelItems*>(&m.FItems); });
    }

    int Changes = 0;
    std::vector<bool> Starts;
    TQSErrorEvent OnError;
    TQSWarningEvent OnWarning;
    void Error(const std::string& text, uint32_t code) {
        mw::ReportError(this, OnError, IsDesigning(), text, code);
    }
    void Warning(const std::string& text, uint32_t code) {
        mw::ReportWarning(this, OnWarning, text, code);
    }

private:
    TFormat FFormat;
    TChannelItems FItems;
    float FGain = 1.0f;
};

// The owner's own teardown runs first, then its components go, the last created first.
TEST(Component, OwnerFreesItsComponentsLastCreatedFirst) {
    gFreed.clear();
    auto* root = TComponent::New<TMixer>(nullptr);
    root->SetName("Root");
    auto* a = TComponent::New<TMixer>(root);
    a->SetName("A");
    auto* b = TComponent::New<TMixer>(root);
    b->SetName("B");
    EXPECT_EQ(root->FindComponent("a"), a) << "names are found case-insensitively";
    root->Free();
    EXPECT_EQ(gFreed, (std::vector<std::string>{"Root", "B", "A"}));
}

TEST(Component, NamesAreIdentifiersUniqueWithinTheOwner) {
    TOwned<TMixer> root(TComponent::New<TMixer>(nullptr));
    auto* a = TComponent::New<TMixer>(root.get());
    a->SetName("Out1");
    auto* b = TComponent::New<TMixer>(root.get());
    EXPECT_THROW(b->SetName("OUT1"), EComponentError);
    EXPECT_THROW(b->SetName("1Out"), EComponentError);
    EXPECT_THROW(b->SetName("Out 2"), EComponentError);
    b->SetName("Out2");
    EXPECT_EQ(b->Name(), "Out2");
}

TEST(Component, DesignTimeReachesOwnedComponentsThroughBitFour) {
    TOwned<TMixer> root(TComponent::New<TMixer>(nullptr));
    auto* child = TComponent::New<TMixer>(root.get());
    root->SetDesigning(true);
    EXPECT_TRUE(child->IsDesigning());
    EXPECT_EQ(child->ComponentState() & (1u << 4), 1u << 4);
}

TEST(Component, FreeNotificationTellsOfTheOtherGoing) {
    struct TWatcher : TLockComponent {
        using TLockComponent::TLockComponent;
        TComponent* Watched = nullptr;
        void Notification(TComponent* c, TOperation op) override {
            TLockComponent::Notification(c, op);
            if (op == TOperation::opRemove && c == Watched) Watched = nullptr;
        }
    };
    TOwned<TWatcher> watcher(TComponent::New<TWatcher>(nullptr));
    auto* watched = TComponent::New<TMixer>(nullptr);
    watcher->Watched = watched;
    watched->FreeNotification(watcher.get());
    watched->Free();
    EXPECT_EQ(watcher->Watched, nullptr);
}

TEST(Component, CreateStartRunsOnceTheComponentStands) {
    TOwned<TMixer> m(TComponent::New<TMixer>(nullptr));
    EXPECT_EQ(m->Starts, std::vector<bool>{false});
    m->SetLoading(true);
    m->Loaded();
    EXPECT_EQ(m->Starts, (std::vector<bool>{false, true}));
    EXPECT_FALSE(m->IsLoading());
}

TEST(Component, SubObjectsShareTheComponentLockAndTellTheOwner) {
    TOwned<TMixer> m(TComponent::New<TMixer>(nullptr));
    EXPECT_EQ(m->Format()->Lock(), m->ComponentLock());
    EXPECT_EQ(m->Items()->Lock(), m->ComponentLock());
    m->Format()->SetChannels(6);
    EXPECT_EQ(m->Changes, 1);
    m->Format()->SetChannels(0);  // raised to the minimum of 1
    EXPECT_EQ(m->Format()->Channels(), 1);
    m->Format()->SetChannels(1);
    EXPECT_EQ(m->Changes, 2);
    {
        // A setter of a sub-object takes the same lock: it can run under the component's write
        // hold.
        TLockGuard w = m->ComponentLock()->AcquireWrite();
        m->Format()->SetChannels(4);
    }
    EXPECT_EQ(m->Format()->Channels(), 4);
}

TEST(Component, TypedCollectionNamesNewItemsAndEnumeratesBothWays) {
    TOwned<TMixer> m(TComponent::New<TMixer>(nullptr));
    TChannelItem* first = m->Items()->Add();
    TChannelItem* second = m->Items()->Add();
    EXPECT_EQ(first->Label, "Channel1");
    EXPECT_EQ(second->Label, "Channel2");
    EXPECT_EQ(m->Items()->Query(), (std::vector<TChannelItem*>{first, second}));
    EXPECT_EQ(m->Items()->GetReverse(), (std::vector<TChannelItem*>{second, first}));
    EXPECT_EQ(first->Lock(), m->ComponentLock());
    int before = m->Changes;
    m->Items()->Delete(0);
    EXPECT_EQ(m->Items()->Count(), 1);
    EXPECT_EQ(second->Index(), 0);
    EXPECT_GT(m->Changes, before);
}

TEST(Component, AssignCopiesPublishedPropertiesAndSubObjects) {
    TOwned<TMixer> a(TComponent::New<TMixer>(nullptr)), b(TComponent::New<TMixer>(nullptr));
    a->SetGain(1.5f);
    a->Format()->SetChannels(6);
    a->Items()->Add()->Label = "Left";
    a->Items()->Add()->Label = "Right";
    b->Assign(*a);
    EXPECT_EQ(b->Gain(), 1.5f);
    EXPECT_EQ(b->Format()->Channels(), 6);
    ASSERT_EQ(b->Items()->Count(), 2);
    EXPECT_EQ(b->Items()->GetItem(1)->Label, "Right");
}

TEST(ErrorReporting, ErrorRaisesWithCodeInDecimalAndHexUnlessHandled) {
    TOwned<TMixer> m(TComponent::New<TMixer>(nullptr));
    try {
        m->Error("Can't open audio device.", 0x20);
        FAIL() << "no exception";
    } catch (const EQSException& e) {
        EXPECT_STREQ(e.what(), "Can't open audio device. - 32 - 20");
        EXPECT_EQ(e.Code(), 32u);
    }
    std::string seen;
    m->OnError = [&](TObject* sender, const std::string& text, uint32_t code, bool& handled) {
        EXPECT_EQ(sender, m.get());
        seen = text + "/" + std::to_string(code);
        handled = true;
    };
    EXPECT_NO_THROW(m->Error("Can't pause audio device.", 4294967295u));
    EXPECT_EQ(seen, "Can't pause audio device./4294967295");
}

TEST(ErrorReporting, DesignTimeAndWarningsNeverRaise) {
    TOwned<TMixer> m(TComponent::New<TMixer>(nullptr));
    int handlerCalls = 0;
    m->OnError = [&](TObject*, const std::string&, uint32_t, bool&) { ++handlerCalls; };
    m->SetDesigning(true);
    EXPECT_NO_THROW(m->Error("x", 1));
    EXPECT_EQ(handlerCalls, 1) << "the handler still hears of it";
    m->SetDesigning(false);
    EXPECT_THROW(m->Error("x", 1), EQSException);
    std::string warned;
    m->OnWarning = [&](TObject*, const std::string& t, uint32_t c) {
        warned = t + std::to_string(c);
    };
    EXPECT_NO_THROW(m->Warning("optional interface missing", 7));
    EXPECT_EQ(warned, "optional interface missing7");
    EXPECT_EQ(mw::QSErrorText("t", 0x80004005u), "t - 2147500037 - 80004005");
}

}  // namespace

// Every change of a typed collection's list waits for the readers under the component lock,
// so that GetItem and Query never see the list half-changed.
TEST(Component, CollectionChangesWaitForReadersOfTheLock) {
    struct TChange {
        const char* Name;
        std::function<void(TChannelItems&)> Apply;
        size_t CountAfter;
    };
    const TChange changes[] = {
        {"Add", [](TChannelItems& c) { c.Add(); }, 3},
        {"Insert", [](TChannelItems& c) { c.Insert(0); }, 3},
        {"Delete", [](TChannelItems& c) { c.Delete(0); }, 1},
        {"Clear", [](TChannelItems& c) { c.Clear(); }, 0},
        {"Exchange", [](TChannelItems& c) { c.Exchange(0, 1); }, 2},
    };
    for (const TChange& change : changes) {
        TOwned<TMixer> mixer(TComponent::New<TMixer>(nullptr));
        TChannelItems& items = *mixer->Items();
        items.Add();
        items.Add();
        const std::vector<TChannelItem*> before = items.Query();
        TLockGuard reading = mixer->ComponentLock()->AcquireRead();
        std::atomic<bool> done{false};
        std::thread changer([&] {
            change.Apply(items);
            done = true;
        });
        ASSERT_TRUE(
            WaitUntil([&] { return done.load() || mixer->Setters().WaitingWriters() > 0; }));
        EXPECT_FALSE(done.load()) << change.Name << " did not wait for the reader";
        EXPECT_EQ(items.Query(), before) << change.Name;
        reading.Release();
        changer.join();
        EXPECT_EQ(items.Query().size(), change.CountAfter) << change.Name;
    }
}

// A component's threads may still ask the main thread for something while they are stopped:
// from BeforeDestruction on, through the destructors, such calls are refused for every
// TLockComponent, without the component taking care of it.
TEST(Component, CallsToTheMainThreadAreRefusedWhileAComponentGoes) {
    static std::vector<std::string> answers;
    answers.clear();
    class TWorking : public TLockComponent {
        MW_CLASS(TWorking, TLockComponent)
    public:
        using TLockComponent::TLockComponent;
        ~TWorking() override { answers.push_back(AskFromAWorker("destructor")); }

    protected:
        void StopWork() override { answers.push_back(AskFromAWorker("stop")); }

    private:
        std::string AskFromAWorker(const std::string& when) {
            bool queued = true;
            std::thread([&] {
                queued = MainThreadExecute(
                    this, false, [] {}, false);
            }).join();
            return when + (queued ? " queued" : " refused");
        }
    };
    auto* c = TComponent::New<TWorking>(nullptr);
    c->Free();
    EXPECT_EQ(answers, (std::vector<std::string>{"stop refused", "destructor refused"}));
    // Once it is gone its address may serve another object, whose calls go through.
    TObject other;
    EXPECT_TRUE(MainThreadExecute(
        &other, false, [] {}, true));
    Application::ProcessMessages();
}
