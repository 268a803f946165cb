// Components used by the form file tests: one of every kind of published value, a nested
// persistent with binary data, a collection, defined properties in the shapes the components
// use (a list of strings, nested lists of parameters, component references), and a count of
// live instances so that a failed load can be seen to leave nothing behind.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "frame/Classes.h"
#include "frame/Persistence.h"

namespace fixtures {

// Every instance of the classes below, alive now.
inline int& LiveObjects() {
    static int n = 0;
    return n;
}

// Names of components in the order their Loaded() ran, with what they saw then.
inline std::vector<std::string>& LoadLog() {
    static std::vector<std::string> log;
    return log;
}

enum class TTestMode { amPump, amPush, amIdle };
enum TTestSpeaker : uint64_t { spFrontLeft = 1, spFrontRight = 2, spCenter = 4, spBack = 8 };

class TTestFormat : public TPersistent {
    MW_CLASS(TTestFormat, TPersistent)
public:
    TTestFormat() { ++LiveObjects(); }
    ~TTestFormat() override { --LiveObjects(); }

    int32_t Channels = 2;
    uint32_t SampleRate = 44100;
    std::vector<uint8_t> FormatData;

    static void Publish(TPropertyList& p) {
        p.Add<TTestFormat>(
            "Channels", [](const TTestFormat& f) { return f.Channels; },
            [](TTestFormat& f, int32_t v) { f.Channels = v; }, 2);
        p.Add<TTestFormat>(
            "SampleRate", [](const TTestFormat& f) { return f.SampleRate; },
            [](TTestFormat& f, uint32_t v) { f.SampleRate = v; }, 44100u);
    }
    void DefineProperties(TFiler& filer) override {
        filer.DefineBinaryProperty(
            "FormatData", [this](const std::vector<uint8_t>& b) { FormatData = b; },
            [this] { return FormatData; }, !FormatData.empty());
    }
};

class TTestChannel : public TCollectionItem {
    MW_CLASS(TTestChannel, TCollectionItem)
public:
    explicit TTestChannel(TCollection* c) : TCollectionItem(c) { ++LiveObjects(); }
    ~TTestChannel() override { --LiveObjects(); }

    std::string Name;
    double Volume = 1.0;
    bool Muted = false;

    static void Publish(TPropertyList& p) {
        p.Add<TTestChannel>(
            "Name", [](const TTestChannel& c) { return c.Name; },
            [](TTestChannel& c, std::string v) { c.Name = std::move(v); }, "");
        p.Add<TTestChannel>(
            "Volume", [](const TTestChannel& c) { return c.Volume; },
            [](TTestChannel& c, double v) { c.Volume = v; }, 1.0);
        p.Add<TTestChannel>(
            "Muted", [](const TTestChannel& c) { return c.Muted; },
            [](TTestChannel& c, bool v) { c.Muted = v; }, false);
    }
};

class TTestChannels : public TCollection {
    MW_CLASS(TTestChannels, TCollection)
public:
    explicit TTestChannels(TPersistent* owner) : TCollection(owner, TTestChannel::StaticClass()) {}
    TTestChannel* Item(int i) const { return static_cast<TTestChannel*>(GetItem(i)); }
    TTestChannel* AddChannel(const std::string& name) {
        auto* c = static_cast<TTestChannel*>(Add());
        c->Name = name;
        return c;
    }
};

// One envelope segment and one parameter, in the shape of persisted media object parameters.
struct TTestSegment {
    int32_t StartTime = 0;
    int32_t Length = 0;
    float StartValue = 0;
    float EndValue = 0;
    TTestMode Mode = TTestMode::amPump;
    bool operator==(const TTestSegment&) const = default;
};
struct TTestParam {
    float Value = 0;
    bool Enabled = false;
    std::vector<TTestSegment> Segments;
    bool operator==(const TTestParam&) const = default;
};

inline const char* ModeName(TTestMode m) {
    static const char* names[] = {"amPump", "amPush", "amIdle"};
    return names[static_cast<int>(m)];
}

class TTestComponent : public TComponent {
    MW_CLASS(TTestComponent, TComponent)
public:
    explicit TTestComponent(TComponent* owner) : TComponent(owner) { ++LiveObjects(); }
    ~TTestComponent() override { --LiveObjects(); }

    uint32_t PrefillInterval = 300;
    std::string DeviceName;
    double Gain = 1.0;
    float Balance = 0.5f;
    bool Enabled = true;
    int32_t Offset = 0;
    int64_t Position = 0;
    TTestMode Mode = TTestMode::amPump;
    uint64_t Speakers = 0;
    TOwned<TTestFormat> Format{new TTestFormat};
    TOwned<TTestChannels> Channels{new TTestChannels(this)};
    std::vector<std::string> Data;
    std::vector<TTestParam> Params;
    std::vector<TComponent*> Links;
    // What the deferred procedure of "Links" saw: the number of components under the root.
    int ComponentsSeenWhenDeferred = -1;
    bool WasLoadingInLoaded = false;
    bool WasLoadingInAfterConstruction = false;

    TTestComponent* Buddy() const { return FBuddy; }
    void SetBuddy(TTestComponent* b) {
        if (FBuddy) RemoveFreeNotification(FBuddy);
        FBuddy = b;
        if (b) FreeNotification(b);
    }
    void AddLink(TComponent* c) {
        Links.push_back(c);
        FreeNotification(c);
    }

    static void Publish(TPropertyList& p) {
        using C = TTestComponent;
        p.Add<C>(
            "PrefillInterval", [](const C& c) { return c.PrefillInterval; },
            [](C& c, uint32_t v) { c.PrefillInterval = v; }, 300u);
        p.Add<C>(
            "DeviceName", [](const C& c) { return c.DeviceName; },
            [](C& c, std::string v) { c.DeviceName = std::move(v); }, "");
        p.Add<C>(
            "Gain", [](const C& c) { return c.Gain; }, [](C& c, double v) { c.Gain = v; }, 1.0);
        p.Add<C>(
            "Balance", [](const C& c) { return c.Balance; }, [](C& c, float v) { c.Balance = v; },
            0.5f);
        p.Add<C>(
            "Enabled", [](const C& c) { return c.Enabled; }, [](C& c, bool v) { c.Enabled = v; },
            true);
        p.Add<C>(
            "Offset", [](const C& c) { return c.Offset; }, [](C& c, int32_t v) { c.Offset = v; },
            0);
        p.Add<C>(
            "Position", [](const C& c) { return c.Position; },
            [](C& c, int64_t v) { c.Position = v; }, 0);
        p.AddEnum<C>(
            "Mode", [](const C& c) { return c.Mode; }, [](C& c, TTestMode v) { c.Mode = v; },
            TTestMode::amPump, {"amPump", "amPush", "amIdle"});
        p.AddSet<C>(
            "Speakers", [](const C& c) { return c.Speakers; },
            [](C& c, uint64_t v) { c.Speakers = v; }, 0,
            {"spFrontLeft", "spFrontRight", "spCenter", "spBack"});
        p.AddObject<C>("Format", [](const C& c) { return c.Format.get(); });
        p.AddObject<C>("Channels", [](const C& c) { return c.Channels.get(); });
        p.AddComponent<C, TTestComponent>("Buddy", &C::Buddy, &C::SetBuddy);
    }

    void DefineProperties(TFiler& filer) override {
        TComponent::DefineProperties(filer);
        filer.DefineProperty(
            "Data",
            [this](TReader& r) {
                Data.clear();
                r.ReadListBegin();
                while (!r.EndOfList())
                    Data.push_back(r.ReadString());
                r.ReadListEnd();
            },
            [this](TWriter& w) {
                w.WriteListBegin();
                for (const std::string& s : Data)
                    w.WriteString(s);
                w.WriteListEnd();
            },
            !Data.empty());
        filer.DefineProperty(
            "Params", [this](TReader& r) { ReadParams(r); }, [this](TWriter& w) { WriteParams(w); },
            !Params.empty());
        filer.DefineProperty(
            "Links",
            [this](TReader& r) {
                r.ReadListBegin();
                while (!r.EndOfList())
                    r.ReadComponentRef([this](TComponent* c) { AddLink(c); });
                r.ReadListEnd();
                r.DeferUntilLoaded(
                    [this, &r] { ComponentsSeenWhenDeferred = r.Root()->ComponentCount(); });
            },
            [this](TWriter& w) {
                w.WriteListBegin();
                for (TComponent* c : Links)
                    w.WriteComponentRef(c);
                w.WriteListEnd();
            },
            !Links.empty());
    }

    void AfterConstruction() override {
        TComponent::AfterConstruction();
        WasLoadingInAfterConstruction = IsLoading();
    }

    void Loaded() override {
        WasLoadingInLoaded = IsLoading();
        TComponent::Loaded();
        LoadLog().push_back(Name() + (FBuddy ? "->" + FBuddy->Name() : ""));
    }

    void Notification(TComponent* c, TOperation op) override {
        TComponent::Notification(c, op);
        if (op != TOperation::opRemove) return;
        if (c == FBuddy) FBuddy = nullptr;
        Links.erase(std::remove(Links.begin(), Links.end(), c), Links.end());
    }

private:
    TTestComponent* FBuddy = nullptr;

    void ReadParams(TReader& r) {
        Params.clear();
        r.ReadListBegin();
        while (!r.EndOfList()) {
            TTestParam p;
            p.Value = r.ReadSingle();
            p.Enabled = r.ReadBoolean();
            r.ReadListBegin();
            while (!r.EndOfList()) {
                TTestSegment s;
                r.ReadListBegin();
                s.StartTime = r.ReadInteger();
                s.Length = r.ReadInteger();
                s.StartValue = r.ReadSingle();
                s.EndValue = r.ReadSingle();
                std::string mode = r.ReadIdent();
                if (mode == "amPump")
                    s.Mode = TTestMode::amPump;
                else if (mode == "amPush")
                    s.Mode = TTestMode::amPush;
                else if (mode == "amIdle")
                    s.Mode = TTestMode::amIdle;
                else
                    r.Error("Invalid start mode " + mode);
                r.ReadListEnd();
                p.Segments.push_back(s);
            }
            r.ReadListEnd();
            Params.push_back(p);
        }
        r.ReadListEnd();
    }

    void WriteParams(TWriter& w) const {
        w.WriteListBegin();
        for (const TTestParam& p : Params) {
            w.WriteSingle(p.Value);
            w.WriteBoolean(p.Enabled);
            w.WriteListBegin();
            for (const TTestSegment& s : p.Segments) {
                w.WriteListBegin();
                w.WriteInteger(s.StartTime);
                w.WriteInteger(s.Length);
                w.WriteSingle(s.StartValue);
                w.WriteSingle(s.EndValue);
                w.WriteIdent(ModeName(s.Mode));
                w.WriteListEnd();
            }
            w.WriteListEnd();
        }
        w.WriteListEnd();
    }
};

// A component whose constructor makes a named child, as components make their parts.
class TTestHost : public TTestComponent {
    MW_CLASS(TTestHost, TTestComponent)
public:
    explicit TTestHost(TComponent* owner) : TTestComponent(owner) {
        Inner = new TTestComponent(this);
        Inner->SetName("Inner");
    }
    TTestComponent* Inner;
};

// Registered by no test: found only as a component that already exists.
class TTestUnregistered : public TTestComponent {
    MW_CLASS(TTestUnregistered, TTestComponent)
public:
    using TTestComponent::TTestComponent;
};

// A component that is not a TTestComponent, for references of the wrong class.
class TTestPlain : public TComponent {
    MW_CLASS(TTestPlain, TComponent)
public:
    explicit TTestPlain(TComponent* owner) : TComponent(owner) { ++LiveObjects(); }
    ~TTestPlain() override { --LiveObjects(); }
};

inline void RegisterTestClasses() {
    RegisterClasses(
        {TTestComponent::StaticClass(), TTestHost::StaticClass(), TTestPlain::StaticClass()});
}

}  // namespace fixtures
