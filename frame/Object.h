// The root of the system's classes: TObject with a metaclass (TClass), so that code can ask
// an object for its class, test inheritance (operations are told apart by IsType), create
// objects by class name when a form file is read, and find the published properties of a class.
//
// A class joins by writing MW_CLASS(Self, Base) in its declaration. The metaclass is built on
// first use and is immutable after that; it is safe to read from any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

class TObject;
class TMetaClass;

namespace mw {
// Names of classes, components, properties and values compare without regard to ASCII case,
// as form files write them.
bool SameText(std::string_view a, std::string_view b);
}  // namespace mw

class TPropertyList;
using TClass = const TMetaClass*;

// The metaclass of one class: its name, its base, how to create an instance (when the class
// can be created by the reader of form files) and its published properties.
class TMetaClass {
public:
    // Creates an instance given the object the constructor takes first (the owner component,
    // or the collection of an item); null when the class cannot be created that way.
    using Factory = TObject* (*)(TObject* owner);
    using Publisher = void (*)(TPropertyList&);

    TMetaClass(const char* name, TClass parent, Factory factory, Publisher publish);
    ~TMetaClass();
    TMetaClass(const TMetaClass&) = delete;
    TMetaClass& operator=(const TMetaClass&) = delete;

    const char* ClassName() const { return FName; }
    TClass ClassParent() const { return FParent; }
    bool InheritsFrom(TClass other) const {
        for (TClass c = this; c; c = c->FParent)
            if (c == other) return true;
        return false;
    }
    bool CanCreate() const { return FFactory != nullptr; }
    TObject* Create(TObject* owner) const { return FFactory ? FFactory(owner) : nullptr; }
    // All published properties, the base's first, in declaration order.
    const TPropertyList& Properties() const;

private:
    const char* FName;
    TClass FParent;
    Factory FFactory;
    Publisher FPublish;
    mutable std::unique_ptr<TPropertyList> FProperties;
    mutable std::once_flag FOnce;
};

namespace mw::detail {
// A class is created by the reader when it has a constructor from its owner: TComponent
// subclasses take `TComponent*`, collection items their collection.
template <class T>
TMetaClass::Factory FactoryFor() {
    if constexpr (std::is_abstract_v<T>) {
        return nullptr;
    } else if constexpr (requires { typename T::OwnerType; }) {
        if constexpr (std::is_constructible_v<T, typename T::OwnerType*>)
            return [](TObject* owner) -> TObject* {
                return new T(dynamic_cast<typename T::OwnerType*>(owner));
            };
        else
            return nullptr;
    } else {
        return nullptr;
    }
}

}  // namespace mw::detail

// In a class declaration: gives the class its metaclass and `inherited`. A class that
// publishes properties declares `static void Publish(TPropertyList& p)` of its own; the
// properties of its bases come first without being declared again.
#define MW_CLASS(Self, Base)                                                                      \
public:                                                                                           \
    using inherited [[maybe_unused]] = Base;                                                      \
    static TClass StaticClass() {                                                                 \
        static const TMetaClass cls(#Self, Base::StaticClass(), ::mw::detail::FactoryFor<Self>(), \
                                    &Self::Publish);                                              \
        return &cls;                                                                              \
    }                                                                                             \
    TClass ClassType() const override {                                                           \
        return StaticClass();                                                                     \
    }                                                                                             \
                                                                                                  \
private:

class TObject {
public:
    TObject() = default;
    TObject(const TObject&) = delete;
    TObject& operator=(const TObject&) = delete;
    virtual ~TObject() = default;

    static TClass StaticClass();
    virtual TClass ClassType() const { return StaticClass(); }
    static void Publish(TPropertyList&) {}

    // Objects with work to do before any destructor runs are freed with Free(), which calls
    // BeforeDestruction while the whole object still stands, then deletes it.
    void Free() {
        BeforeDestruction();
        delete this;
    }
    virtual void BeforeDestruction() {}
    // Run by factories (TComponent::New, the form reader) once the constructors are done.
    virtual void AfterConstruction() {}
    const char* ClassName() const { return ClassType()->ClassName(); }
    bool InheritsFrom(TClass c) const { return ClassType()->InheritsFrom(c); }
    template <class T>
    bool Is() const {
        return InheritsFrom(T::StaticClass());
    }
};
