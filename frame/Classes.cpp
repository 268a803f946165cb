#include "frame/Classes.h"

#include <algorithm>
#include <cctype>

#include "frame/MainThread.h"

using mw::SameText;

namespace {
bool IsValidIdent(const std::string& s) {
    if (s.empty()) return false;
    auto first = static_cast<unsigned char>(s[0]);
    if (!(std::isalpha(first) || first == '_')) return false;
    return std::all_of(s.begin(), s.end(), [](char c) {
        auto u = static_cast<unsigned char>(c);
        return std::isalnum(u) || u == '_';
    });
}

// Collects whether a DefineProperties call has any data to write.
class THasDataFiler : public TFiler {
public:
    bool HasData = false;
    void DefineProperty(const std::string&, TReaderProc, TWriterProc, bool hasData) override {
        HasData = HasData || hasData;
    }
    void DefineBinaryProperty(const std::string&, TBinaryReadProc, TBinaryWriteProc,
                              bool hasData) override {
        HasData = HasData || hasData;
    }
};
}  // namespace

void TFreeDeleter::operator()(TObject* o) const {
    if (o) o->Free();
}

// ---- TPersistent

void TPersistent::Assign(const TPersistent& source) {
    if (!source.InheritsFrom(ClassType()) && !InheritsFrom(source.ClassType()))
        throw EComponentError(std::string("Cannot assign a ") + source.ClassName() + " to a " +
                              ClassName());
    const TPropertyList& props =
        (source.InheritsFrom(ClassType()) ? ClassType() : source.ClassType())->Properties();
    for (const TPropInfo& p : props.Items()) {
        if (p.Kind == TPropKind::Object) {
            auto* dst = dynamic_cast<TPersistent*>(std::get<TObject*>(p.Get(*this)));
            auto* src = dynamic_cast<TPersistent*>(std::get<TObject*>(p.Get(source)));
            if (dst && src) dst->Assign(*src);
        } else if (p.Set) {
            p.Set(*this, p.Get(source));
        }
    }
}

void TPersistent::DefineProperties(TFiler&) {}

std::string TPersistent::GetNamePath() const {
    TPersistent* owner = GetOwner();
    std::string own = ClassName();
    if (!owner) return own;
    return owner->GetNamePath() + "." + own;
}

bool TPersistent::HasStoredData() const {
    for (const TPropInfo& p : ClassType()->Properties().Items())
        if (p.ShouldStore(*this)) return true;
    THasDataFiler filer;
    const_cast<TPersistent*>(this)->DefineProperties(filer);
    return filer.HasData;
}

// ---- TComponent

TComponent::TComponent(TComponent* owner) {
    if (owner) owner->InsertComponent(this);
}

TComponent::~TComponent() {
    FComponentState |= csDestroying;
    mw::CancelMainThreadCalls(this);
    // Tell everyone who asked that this component goes.
    while (!FFreeNotifies.empty()) {
        TComponent* other = FFreeNotifies.back();
        FFreeNotifies.pop_back();
        other->RemoveFreeNotification(this);
        other->Notification(this, TOperation::opRemove);
    }
    DestroyComponents();
    if (FOwner) FOwner->RemoveComponent(this);
}

void TComponent::BeforeDestruction() {
    FComponentState |= csDestroying;
    // Work queued for the main thread on behalf of this component must not run once it goes.
    mw::CancelMainThreadCalls(this);
}

void TComponent::SetName(const std::string& name) {
    if (name == FName) return;
    if (!name.empty() && !IsValidIdent(name))
        throw EComponentError("\"" + name + "\" is not a valid component name");
    if (!name.empty() && FOwner) {
        if (TComponent* other = FOwner->FindComponent(name); other && other != this)
            throw EComponentError("A component named " + name + " already exists");
    }
    FName = name;
}

void TComponent::SetDesigning(bool value, bool children) {
    if (value)
        FComponentState |= csDesigning;
    else
        FComponentState &= ~csDesigning;
    if (children)
        for (TComponent* c : FComponents)
            c->SetDesigning(value, true);
}

void TComponent::SetLoading(bool value) {
    if (value)
        FComponentState |= csLoading | csReading;
    else
        FComponentState &= ~(csLoading | csReading);
}

void TComponent::SetWriting(bool value) {
    if (value)
        FComponentState |= csWriting;
    else
        FComponentState &= ~csWriting;
}

TComponent* TComponent::FindComponent(const std::string& name) const {
    if (name.empty()) return nullptr;
    for (TComponent* c : FComponents)
        if (SameText(c->FName, name)) return c;
    return nullptr;
}

void TComponent::Loaded() {
    FComponentState &= ~(csLoading | csReading);
}

void TComponent::FreeNotification(TComponent* other) {
    if (!other || other == this) return;
    if (std::find(FFreeNotifies.begin(), FFreeNotifies.end(), other) == FFreeNotifies.end()) {
        FFreeNotifies.push_back(other);
        other->FreeNotification(this);
    }
}

void TComponent::RemoveFreeNotification(TComponent* other) {
    auto it = std::find(FFreeNotifies.begin(), FFreeNotifies.end(), other);
    if (it == FFreeNotifies.end()) return;
    FFreeNotifies.erase(it);
    other->RemoveFreeNotification(this);
}

void TComponent::Notification(TComponent* component, TOperation operation) {
    if (operation == TOperation::opRemove && component->FOwner == this) RemoveComponent(component);
}

void TComponent::InsertComponent(TComponent* c) {
    c->FOwner = this;
    FComponents.push_back(c);
    // A component placed on a form in the designer is at design time from its construction
    // on, so that it starts no worker thread.
    if (FComponentState & csDesigning) c->SetDesigning(true);
}

void TComponent::RemoveComponent(TComponent* c) {
    auto it = std::find(FComponents.begin(), FComponents.end(), c);
    if (it != FComponents.end()) FComponents.erase(it);
    c->FOwner = nullptr;
}

void TComponent::DestroyComponents() {
    // Last created goes first, so that a component outlives those made after it.
    while (!FComponents.empty()) {
        TComponent* c = FComponents.back();
        RemoveComponent(c);
        c->Free();
    }
}

// ---- TCollectionItem

TCollectionItem::TCollectionItem(TCollection* collection) {
    if (collection) collection->InsertItem(this);
}

TCollectionItem::~TCollectionItem() {
    if (FCollection) FCollection->RemoveItem(this);
}

int TCollectionItem::Index() const {
    if (!FCollection) return -1;
    auto& items = FCollection->FItems;
    auto it = std::find(items.begin(), items.end(), this);
    return it == items.end() ? -1 : static_cast<int>(it - items.begin());
}

TPersistent* TCollectionItem::GetOwner() const {
    return FCollection;
}

std::string TCollectionItem::GetNamePath() const {
    if (!FCollection) return ClassName();
    return FCollection->GetNamePath() + "[" + std::to_string(Index()) + "]";
}

// ---- TCollection

TCollection::TCollection(TPersistent* owner, TCollectionItemClass itemClass)
    : FOwner(owner), FItemClass(itemClass) {}

TCollection::~TCollection() {
    Clear();
}

TCollectionItem* TCollection::Add() {
    TObject* obj = FItemClass ? FItemClass->Create(this) : nullptr;
    auto* item = dynamic_cast<TCollectionItem*>(obj);
    if (!item) {
        delete obj;
        throw EComponentError(std::string("Cannot create an item of class ") +
                              (FItemClass ? FItemClass->ClassName() : "(none)"));
    }
    item->AfterConstruction();
    Added(item);
    return item;
}

TCollectionItem* TCollection::Insert(int index) {
    TCollectionItem* item = Add();
    auto it = std::find(FItems.begin(), FItems.end(), item);
    FItems.erase(it);
    index = std::clamp(index, 0, static_cast<int>(FItems.size()));
    FItems.insert(FItems.begin() + index, item);
    return item;
}

void TCollection::Delete(int index) {
    TCollectionItem* item = FItems.at(index);
    Deleting(item);
    item->Free();
}

void TCollection::Clear() {
    while (!FItems.empty())
        Delete(static_cast<int>(FItems.size()) - 1);
}

void TCollection::Exchange(int a, int b) {
    std::swap(FItems.at(a), FItems.at(b));
}

void TCollection::Assign(const TPersistent& source) {
    auto* other = dynamic_cast<const TCollection*>(&source);
    if (!other) return TPersistent::Assign(source);
    Clear();
    for (TCollectionItem* src : other->FItems)
        Add()->Assign(*src);
}

std::string TCollection::GetNamePath() const {
    if (!FOwner) return ClassName();
    return FOwner->GetNamePath() + "." + ClassName();
}

void TCollection::InsertItem(TCollectionItem* item) {
    item->FCollection = this;
    item->FID = FNextID++;
    FItems.push_back(item);
}

void TCollection::RemoveItem(TCollectionItem* item) {
    auto it = std::find(FItems.begin(), FItems.end(), item);
    if (it != FItems.end()) FItems.erase(it);
    item->FCollection = nullptr;
}
