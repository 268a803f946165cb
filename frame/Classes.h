// The bases of persistent objects, components and collections, as the form designer and the
// form files know them.
//
// TPersistent: an object with published properties (its class's property table), Assign and
//   custom data through DefineProperties.
// TComponent: a named persistent object with an owner that frees it, a list of owned
//   components and the component state (loading, design time, destroying).
// TCollection / TCollectionItem: an ordered, persisted list of items of one class.
//
// Objects with a BeforeDestruction step are freed with Free() (or by their owner), which runs
// BeforeDestruction while the whole object still stands, then deletes it. Components are
// created with `New<T>(owner)` or by the form reader, which run AfterConstruction once the
// constructors are done. All of this is main-thread work unless a class says otherwise.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/Object.h"
#include "frame/Properties.h"

class TReader;
class TWriter;
class TFiler;

// Frees an object through Free(); for smart pointers that own components and persistents.
struct TFreeDeleter {
    void operator()(TObject* o) const;
};
template <class T>
using TOwned = std::unique_ptr<T, TFreeDeleter>;

class TPersistent : public TObject {
    MW_CLASS(TPersistent, TObject)
public:
    // Copies the published properties (and sub-objects) of source into this object; a
    // class with more state overrides it. The source must be of this class or derived.
    virtual void Assign(const TPersistent& source);
    // Custom persisted data beyond the property table ("FormatData", "Data", ...).
    virtual void DefineProperties(TFiler& filer);
    // The object this one belongs to: its owner component or containing collection.
    virtual TPersistent* GetOwner() const { return nullptr; }
    // "Form1.AudioOut1.Format" style path, for messages.
    virtual std::string GetNamePath() const;

    // True when the writer has anything to write for this object: a property that differs
    // from its default, or defined data that says it has data.
    virtual bool HasStoredData() const;
};

// Custom data of DefineProperties: the reader or writer passes each definition through here.
// `hasData` false means the data equals its default and is not written.
class TFiler {
public:
    virtual ~TFiler() = default;
    using TReaderProc = std::function<void(TReader&)>;
    using TWriterProc = std::function<void(TWriter&)>;
    using TBinaryReadProc = std::function<void(const std::vector<uint8_t>&)>;
    using TBinaryWriteProc = std::function<std::vector<uint8_t>()>;
    virtual void DefineProperty(const std::string& name, TReaderProc read, TWriterProc write,
                                bool hasData) = 0;
    virtual void DefineBinaryProperty(const std::string& name, TBinaryReadProc read,
                                      TBinaryWriteProc write, bool hasData) = 0;
};

// TComponent state flags, as bits of ComponentState(). Bit 4 is design time.
enum TComponentStateFlag : uint32_t {
    csLoading = 1u << 0,
    csReading = 1u << 1,
    csWriting = 1u << 2,
    csDestroying = 1u << 3,
    csDesigning = 1u << 4,
    csAncestor = 1u << 5,
    csUpdating = 1u << 6,
    csFixups = 1u << 7,
    csFreeNotification = 1u << 8,
};

enum class TOperation { opInsert, opRemove };

class TComponent : public TPersistent {
    MW_CLASS(TComponent, TPersistent)
public:
    using OwnerType = TComponent;

    explicit TComponent(TComponent* owner);
    ~TComponent() override;

    const std::string& Name() const { return FName; }
    // Names are identifiers, unique among the owner's components; throws EComponentError.
    virtual void SetName(const std::string& name);
    TComponent* Owner() const { return FOwner; }
    TPersistent* GetOwner() const override { return FOwner; }
    std::string GetNamePath() const override { return FName; }

    uint32_t ComponentState() const { return FComponentState; }
    bool IsDesigning() const { return (FComponentState & csDesigning) != 0; }
    bool IsLoading() const { return (FComponentState & csLoading) != 0; }
    bool IsDestroying() const { return (FComponentState & csDestroying) != 0; }
    // Puts this component and the components it owns into (or out of) design time.
    void SetDesigning(bool value, bool children = true);

    int ComponentCount() const { return static_cast<int>(FComponents.size()); }
    TComponent* Components(int index) const { return FComponents.at(index); }
    TComponent* FindComponent(const std::string& name) const;

    // Called by the reader once all components of a file are read and references resolved.
    virtual void Loaded();
    // The reader marks a component as loading before it reads its properties.
    void SetLoading(bool value);
    void SetWriting(bool value);

    // Tells `other` when this component goes, so that it can drop references to it.
    void FreeNotification(TComponent* other);
    void RemoveFreeNotification(TComponent* other);
    virtual void Notification(TComponent* component, TOperation operation);

    void BeforeDestruction() override;

    // Creates a component and runs AfterConstruction, as the form reader does.
    template <class T, class... Args>
    static T* New(Args&&... args) {
        T* p = new T(std::forward<Args>(args)...);
        p->AfterConstruction();
        return p;
    }

protected:
    void InsertComponent(TComponent* c);
    void RemoveComponent(TComponent* c);
    void DestroyComponents();
    uint32_t FComponentState = 0;

private:
    std::string FName;
    TComponent* FOwner = nullptr;
    std::vector<TComponent*> FComponents;
    std::vector<TComponent*> FFreeNotifies;
};

class TCollection;

class TCollectionItem : public TPersistent {
    MW_CLASS(TCollectionItem, TPersistent)
public:
    using OwnerType = TCollection;

    explicit TCollectionItem(TCollection* collection);
    ~TCollectionItem() override;

    TCollection* Collection() const { return FCollection; }
    int Index() const;
    int ID() const { return FID; }
    TPersistent* GetOwner() const override;
    std::string GetNamePath() const override;
    virtual std::string GetDisplayName() const { return ClassName(); }

private:
    friend class TCollection;
    TCollection* FCollection = nullptr;
    int FID = 0;
};

using TCollectionItemClass = TClass;

class TCollection : public TPersistent {
    MW_CLASS(TCollection, TPersistent)
public:
    TCollection(TPersistent* owner, TCollectionItemClass itemClass);
    ~TCollection() override;

    TCollectionItemClass ItemClass() const { return FItemClass; }
    int Count() const { return static_cast<int>(FItems.size()); }
    TCollectionItem* GetItem(int index) const { return FItems.at(index); }
    // Creates an item of the item class at the end; the collection owns it. The changes of
    // the list are virtual so that a collection with a lock takes it around each.
    virtual TCollectionItem* Add();
    virtual TCollectionItem* Insert(int index);
    virtual void Delete(int index);
    virtual void Clear();
    virtual void Exchange(int a, int b);
    void Assign(const TPersistent& source) override;
    TPersistent* GetOwner() const override { return FOwner; }
    std::string GetNamePath() const override;
    bool HasStoredData() const override { return !FItems.empty(); }

protected:
    // Hooks around the item list: an item entered or left the collection.
    virtual void Added(TCollectionItem*) {}
    virtual void Deleting(TCollectionItem*) {}

private:
    friend class TCollectionItem;
    void InsertItem(TCollectionItem* item);
    void RemoveItem(TCollectionItem* item);
    TPersistent* FOwner;
    TCollectionItemClass FItemClass;
    std::vector<TCollectionItem*> FItems;
    int FNextID = 0;
    bool FClearing = false;
};

// Raised for misuse of components: duplicate or invalid names and the like.
class EComponentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
