#include "frame/LockComponents.h"

#include <algorithm>

#include "frame/WirePins.h"

// ---- TBasicPersistent

TComponent* TBasicPersistent::GetOwnerComponent() const {
    for (TPersistent* o = GetOwner(); o; o = o->GetOwner())
        if (auto* c = dynamic_cast<TComponent*>(o)) return c;
    return nullptr;
}

// ---- TLockPersistent

TLockPersistent::TLockPersistent(TPersistent* owner, IChangeNotifyLock* lock,
                                 TChangeClosure onChange)
    : FOwner(owner), FLock(lock), FOnChange(std::move(onChange)) {
    if (!FLock) FLock = MwNew<TBasicLockChangeNotifyLock>();
}

void TLockPersistent::NotifyProp() {
    if (FOnChange) FOnChange();
}

void TLockPersistent::OwnerNameChanged(const std::string&, const std::string&) {}

void TLockPersistent::Assign(const TPersistent& source) {
    TLockGuard g = FLock->AcquireWrite();
    TBasicPersistent::Assign(source);
}

// ---- TLockComponent

TLockComponent::TLockComponent(TComponent* owner)
    : TComponent(owner), FComponentLock(MwNew<TBasicLockChangeNotifyLock>()) {}

TLockComponent::~TLockComponent() = default;

void TLockComponent::CreateStart(bool) {}

void TLockComponent::Assign(const TPersistent& source) {
    TLockGuard g = FComponentLock->AcquireWrite();
    TComponent::Assign(source);
}

void TLockComponent::DefineProperties(TFiler& filer) {
    TComponent::DefineProperties(filer);
    QWDefineConnections(filer, *this);
}

void TLockComponent::Loaded() {
    TComponent::Loaded();
    CreateStart(true);
}

void TLockComponent::AfterConstruction() {
    TComponent::AfterConstruction();
    if (!IsLoading()) CreateStart(false);
}

void TLockComponent::BeforeDestruction() {
    // A worker stopped below must not queue (or wait for) a call to a component that goes.
    FCallBlock.emplace(this);
    StopWork();
    // Then the pins, without the lock: a delivery in progress into one of them may be
    // waiting for the lock, and closing a pin waits for its deliveries to end.
    QWCloseComponentPins(this);
    TLockGuard g = FComponentLock->AcquireWrite();
    TComponent::BeforeDestruction();
}

// ---- TLockCollection

TLockCollection::TLockCollection(TPersistent* owner, IChangeNotifyLock* lock,
                                 TCollectionItemClass itemClass)
    : TCollection(owner, itemClass), FLock(lock) {
    if (!FLock) FLock = MwNew<TBasicLockChangeNotifyLock>();
}

void TLockCollection::NotifyProp() {
    TPersistent* owner = IntGetOwner();
    if (auto* p = dynamic_cast<TLockPersistent*>(owner))
        p->NotifyProp();
    else if (auto* c = dynamic_cast<TLockComponent*>(owner))
        c->NotifyProp();
}

TCollectionItem* TLockCollection::Add() {
    TLockGuard g = FLock->AcquireWrite();
    return TCollection::Add();
}

TCollectionItem* TLockCollection::Insert(int index) {
    TLockGuard g = FLock->AcquireWrite();
    return TCollection::Insert(index);
}

void TLockCollection::Delete(int index) {
    TLockGuard g = FLock->AcquireWrite();
    TCollection::Delete(index);
}

void TLockCollection::Clear() {
    TLockGuard g = FLock->AcquireWrite();
    TCollection::Clear();
}

void TLockCollection::Exchange(int a, int b) {
    TLockGuard g = FLock->AcquireWrite();
    TCollection::Exchange(a, b);
}

void TLockCollection::Assign(const TPersistent& source) {
    TLockGuard g = FLock->AcquireWrite();
    TCollection::Assign(source);
}

void TLockCollection::NewItemCreated(TCollectionItem*) {
    NotifyProp();
}

void TLockCollection::Added(TCollectionItem* item) {
    NewItemCreated(item);
    AfterNewItemCreated(item);
}

void TLockCollection::Deleting(TCollectionItem* item) {
    AfterNewItemDestroyed(item);
    NotifyProp();
}

// ---- TLockCollectionItem

TLockCollectionItem::TLockCollectionItem(TCollection* collection) : TCollectionItem(collection) {
    if (auto* lc = dynamic_cast<TLockCollection*>(collection)) FLock = lc->Lock();
    if (!FLock) FLock = MwNew<TBasicLockChangeNotifyLock>();
}

void TLockCollectionItem::NotifyProp() {
    if (TLockCollection* c = LockCollection()) c->NotifyProp();
}
