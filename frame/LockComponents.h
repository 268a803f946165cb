// Components and sub-objects that share their owner's lock.
//
// A TLockComponent creates its ComponentLock, an IChangeNotifyLock, and hands it to every
// sub-object through the sub-object's constructor: persistents (TLockPersistent and its
// Enabled/Disabled variants) and collections (TLockCollection, TTypedCollection) of it use
// that one lock, so a setter of a sub-object locks the whole component. Defaults are set by
// the constructors, before any property is set.
//
// Lifecycle: created in code with TComponent::New<T>(owner) or by the form reader, then
// CreateStart(false) (in code) or CreateStart(true) (after loading) once the component
// stands; freed with Free() or by the owner. BeforeDestruction then runs StopWork, where a
// subclass ends its threads and its stream, closes the component's pins and takes the
// exclusive lock for the rest. From the start of BeforeDestruction until the component is gone
// no call to the main thread on its behalf is queued or run (a worker that still asks is
// refused), so a subclass needs no guard of its own for that. At design time (csDesigning) a
// component starts no worker thread and dispatches no events.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame/ChangeNotifyLock.h"
#include "frame/Classes.h"
#include "frame/MainThread.h"

class TBasicObject : public TObject {
    MW_CLASS(TBasicObject, TObject)
public:
    virtual void InitDefaults(TBasicObject*) {}
};

class TBasicPersistent : public TPersistent {
    MW_CLASS(TBasicPersistent, TPersistent)
public:
    virtual void InitDefaults(TObject*, TBasicPersistent*) {}
    // The component this object belongs to, through its chain of owners.
    virtual TComponent* GetOwnerComponent() const;
};

class TLockPersistent : public TBasicPersistent {
    MW_CLASS(TLockPersistent, TBasicPersistent)
public:
    TLockPersistent(TPersistent* owner, IChangeNotifyLock* lock, TChangeClosure onChange = {});

    // Tells the owner, through the change closure, that a property changed.
    virtual void NotifyProp();
    virtual void OwnerNameChanged(const std::string& oldName, const std::string& newName);

    TPersistent* GetOwner() const override { return FOwner; }
    IChangeNotifyLock* Lock() const { return FLock.Get(); }
    TBasicLockChangeNotifyLock& Setters() const { return *FLock->GetLock(); }
    void Assign(const TPersistent& source) override;

protected:
    // Setter change closure that announces the change to the owner.
    TChangeClosure Notifier() {
        return [this] { NotifyProp(); };
    }

private:
    TPersistent* FOwner;
    ComPtr<IChangeNotifyLock> FLock;
    TChangeClosure FOnChange;
};

// A sub-object with a persisted Enabled that is on by default.
class TEnabledPersistent : public TLockPersistent {
    MW_CLASS(TEnabledPersistent, TLockPersistent)
public:
    using TLockPersistent::TLockPersistent;
    bool Enabled() const { return FEnabled; }
    void SetEnabled(bool value) { Setters().Setter(FEnabled, value, Notifier()); }
    static void Publish(TPropertyList& p) {
        p.Add<TEnabledPersistent>("Enabled", &TEnabledPersistent::Enabled,
                                  &TEnabledPersistent::SetEnabled, true);
    }

private:
    bool FEnabled = true;
};

// A sub-object with a persisted Enabled that is off by default.
class TDisabledPersistent : public TLockPersistent {
    MW_CLASS(TDisabledPersistent, TLockPersistent)
public:
    using TLockPersistent::TLockPersistent;
    bool Enabled() const { return FEnabled; }
    virtual void SetEnabled(bool value) { Setters().Setter(FEnabled, value, Notifier()); }
    static void Publish(TPropertyList& p) {
        p.Add<TDisabledPersistent>(
            "Enabled", &TDisabledPersistent::Enabled,
            [](TDisabledPersistent& o, bool v) { o.SetEnabled(v); }, false);
    }

private:
    bool FEnabled = false;
};

class TLockComponent : public TComponent {
    MW_CLASS(TLockComponent, TComponent)
public:
    explicit TLockComponent(TComponent* owner);
    ~TLockComponent() override;

    IChangeNotifyLock* ComponentLock() const { return FComponentLock.Get(); }
    TBasicLockChangeNotifyLock& Setters() const { return *FComponentLock->GetLock(); }

    // Runs once the component stands: with false when it was created in code, and with true
    // each time a form file was read into it (so a form created in code and then loaded hears
    // both). Subclasses start their work here.
    virtual void CreateStart(bool loaded);
    // A published property changed.
    virtual void NotifyProp() {}
    // The palette bitmap name of the class.
    virtual std::string GetIcon() const { return ClassName(); }
    virtual void InitDefaults(TLockComponent*) {}

    void Assign(const TPersistent& source) override;
    void DefineProperties(TFiler& filer) override;
    void Loaded() override;
    void AfterConstruction() override;
    // Subclasses end their work in StopWork, which runs inside this.
    void BeforeDestruction() final;

protected:
    TChangeClosure Notifier() {
        return [this] { NotifyProp(); };
    }
    // Ends the component's work before it goes: stops its threads and its stream. Runs once,
    // on the thread that frees the component, while calls to the main thread for it are
    // refused, without the component lock (take it as needed). The pins are still open, so a
    // source can tell its sinks that the stream ended; a sink that must take no more
    // deliveries while it stops closes its pins first (QWCloseComponentPins).
    virtual void StopWork() {}

private:
    ComPtr<IChangeNotifyLock> FComponentLock;
    // Held from the start of BeforeDestruction until the component is gone.
    std::optional<mw::MainThreadCallBlock> FCallBlock;
};

class TLockCollection : public TCollection {
    MW_CLASS(TLockCollection, TCollection)
public:
    TLockCollection(TPersistent* owner, IChangeNotifyLock* lock, TCollectionItemClass itemClass);

    IChangeNotifyLock* Lock() const { return FLock.Get(); }
    TBasicLockChangeNotifyLock& Setters() const { return *FLock->GetLock(); }
    // An item or the list changed: tells the owner when it is a lock persistent or component.
    virtual void NotifyProp();
    virtual TPersistent* IntGetOwner() const { return GetOwner(); }
    virtual void InitDefaults(TObject*, TLockCollection*) {}
    virtual void AfterNewItemCreated(TCollectionItem*) {}
    virtual void AfterNewItemDestroyed(TCollectionItem*) {}
    // A new item was added through Add or Insert; subclasses name or set it up here.
    virtual void NewItemCreated(TCollectionItem* item);

    // The list changes under the exclusive lock, so that readers under the shared lock
    // (GetItem, Query) never see it half-changed.
    TCollectionItem* Add() override;
    TCollectionItem* Insert(int index) override;
    void Delete(int index) override;
    void Clear() override;
    void Exchange(int a, int b) override;
    void Assign(const TPersistent& source) override;

protected:
    void Added(TCollectionItem* item) override;
    void Deleting(TCollectionItem* item) override;

private:
    ComPtr<IChangeNotifyLock> FLock;
};

class TLockCollectionItem : public TCollectionItem {
    MW_CLASS(TLockCollectionItem, TCollectionItem)
public:
    explicit TLockCollectionItem(TCollection* collection);

    TLockCollection* LockCollection() const { return dynamic_cast<TLockCollection*>(Collection()); }
    IChangeNotifyLock* Lock() const { return FLock.Get(); }
    TBasicLockChangeNotifyLock& Setters() const { return *FLock->GetLock(); }
    virtual void NotifyProp();
    virtual void InitDefaults(TObject*, TLockCollectionItem*) {}

protected:
    TChangeClosure Notifier() {
        return [this] { NotifyProp(); };
    }

private:
    ComPtr<IChangeNotifyLock> FLock;
};

// A collection of items of class T, read under the shared lock and changed under the
// exclusive one.
template <class T>
class TTypedCollection : public TLockCollection {
    MW_CLASS(TTypedCollection, TLockCollection)
public:
    TTypedCollection(TPersistent* owner, IChangeNotifyLock* lock)
        : TLockCollection(owner, lock, T::StaticClass()) {}

    T* GetNoLockItem(int index) const { return static_cast<T*>(TCollection::GetItem(index)); }
    T* GetItem(int index) const {
        TLockGuard g = Lock()->AcquireRead();
        return GetNoLockItem(index);
    }
    void SetItem(int index, const T& item) { GetItem(index)->Assign(item); }
    T* Add() override { return static_cast<T*>(TLockCollection::Add()); }
    // A copy of the item list taken under the lock, in order or reversed.
    std::vector<T*> Query(bool reverse = false) const {
        TLockGuard g = Lock()->AcquireRead();
        std::vector<T*> r;
        for (int i = 0; i < Count(); ++i)
            r.push_back(GetNoLockItem(i));
        if (reverse) std::reverse(r.begin(), r.end());
        return r;
    }
    std::vector<T*> GetEnumerator() const { return Query(false); }
    std::vector<T*> GetReverseEnumerator() const { return Query(true); }
    std::vector<T*> GetReverse() const { return Query(true); }
};

// A typed collection that knows its owning property, of class O.
template <class O, class T>
class TTypedOwnerPropertyCollection : public TTypedCollection<T> {
    MW_CLASS(TTypedOwnerPropertyCollection, TTypedCollection<T>)
public:
    using TTypedCollection<T>::TTypedCollection;
    O* GetOwnerProperty() const { return dynamic_cast<O*>(this->GetOwner()); }
};
