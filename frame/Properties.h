// Published properties: each persistent class declares its properties once, next to the
// class, in its static Publish(TPropertyList&). The form writer and reader, Assign and a
// future designer all read that table. The order of the table is the order in the file.
//
//   static void Publish(TPropertyList& p) {
//       p.Add<TQAAudioOut>("PrefillInterval", &TQAAudioOut::GetPrefillInterval,
//                          &TQAAudioOut::SetPrefillInterval, 300u);
//   }
//
// A value equal to its default is not written. Getters and setters go through the class's
// own accessors, so a value read from a file passes the same setter (lock, compare, notify)
// as a value set in code.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "frame/Object.h"

class TPersistent;
class TComponent;

enum class TPropKind {
    Integer,   // signed, up to 32 bits
    Cardinal,  // unsigned, up to 32 bits
    Int64,
    Float,
    Boolean,
    String,     // UTF-8
    Enum,       // ordinal, written by name
    Set,        // bit mask, written as [name, name]
    Object,     // an owned TPersistent (or collection) read and written in place
    Component,  // a reference to another component, written by name
};

// A property value in transit between an object and a file. Enums and sets travel as their
// ordinal and mask; objects and component references as pointers.
using TPropValue = std::variant<std::monostate, int64_t, double, bool, std::string, TObject*>;

struct TPropInfo {
    std::string Name;
    TPropKind Kind = TPropKind::Integer;
    std::vector<std::string> Names;  // element names of an enum or set, by ordinal or bit
    // The values an Integer or Cardinal property can hold: those of its C++ type.
    int64_t MinValue = 0;
    int64_t MaxValue = 0;
    // The class a Component property refers to: a component of another class is refused.
    TClass RefClass = nullptr;
    TPropValue Default;  // the default streaming omits; monostate: always written
    std::function<TPropValue(const TObject&)> Get;
    std::function<void(TObject&, const TPropValue&)> Set;  // empty for Object properties
    std::function<bool(const TObject&)> Stored;            // optional extra condition

    // True when the writer must write the property of this object.
    bool ShouldStore(const TObject& obj) const;
    // Enum/set helpers: name of an ordinal, ordinal of a name (-1 when unknown).
    std::string NameOf(int64_t ordinal) const;
    int64_t OrdinalOf(std::string_view name) const;
};

namespace mw::detail {
template <class T>
constexpr TPropKind KindOf() {
    if constexpr (std::is_same_v<T, bool>)
        return TPropKind::Boolean;
    else if constexpr (std::is_enum_v<T>)
        return TPropKind::Enum;
    else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4 && std::is_signed_v<T>)
        return TPropKind::Integer;
    else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4)
        return TPropKind::Cardinal;
    else if constexpr (std::is_integral_v<T>)
        return TPropKind::Int64;
    else if constexpr (std::is_floating_point_v<T>)
        return TPropKind::Float;
    else if constexpr (std::is_convertible_v<T, std::string>)
        return TPropKind::String;
    else
        static_assert(sizeof(T) == 0, "unsupported property type");
}

template <class T>
TPropValue ToValue(const T& v) {
    if constexpr (std::is_same_v<T, bool>)
        return v;
    else if constexpr (std::is_enum_v<T>)
        return static_cast<int64_t>(v);
    else if constexpr (std::is_integral_v<T>)
        return static_cast<int64_t>(v);
    else if constexpr (std::is_floating_point_v<T>)
        return static_cast<double>(v);
    else
        return std::string(v);
}

template <class T>
T FromValue(const TPropValue& v) {
    if constexpr (std::is_same_v<T, bool>)
        return std::get<bool>(v);
    else if constexpr (std::is_enum_v<T>)
        return static_cast<T>(std::get<int64_t>(v));
    else if constexpr (std::is_integral_v<T>)
        return static_cast<T>(std::get<int64_t>(v));
    else if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>(std::get<double>(v));
    else
        return T(std::get<std::string>(v));
}

template <class C, class G>
auto Call(const G& getter, const TObject& obj) {
    return std::invoke(getter, static_cast<const C&>(obj));
}
}  // namespace mw::detail

class TPropertyList {
public:
    const std::vector<TPropInfo>& Items() const { return FItems; }
    size_t Count() const { return FItems.size(); }
    // Case-insensitive, as names in form files are.
    const TPropInfo* Find(std::string_view name) const;

    // A plain value property. The getter is `T (C::*)() const` or any callable taking
    // `const C&`; the setter `void (C::*)(T)` or any callable taking `C&, T`.
    template <class C, class G, class S, class D>
    TPropertyList& Add(const char* name, G getter, S setter, D def) {
        using T = std::decay_t<decltype(std::invoke(getter, std::declval<const C&>()))>;
        static_assert(!std::is_enum_v<T>, "use AddEnum for enumerations");
        TPropInfo p;
        p.Name = name;
        p.Kind = mw::detail::KindOf<T>();
        if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
            p.MinValue = static_cast<int64_t>(std::numeric_limits<T>::min());
            p.MaxValue = static_cast<int64_t>(std::numeric_limits<T>::max());
        }
        p.Default = mw::detail::ToValue<T>(static_cast<T>(def));
        p.Get = [getter](const TObject& o) {
            return mw::detail::ToValue<T>(mw::detail::Call<C>(getter, o));
        };
        p.Set = [setter](TObject& o, const TPropValue& v) {
            std::invoke(setter, static_cast<C&>(o), mw::detail::FromValue<T>(v));
        };
        return Push(std::move(p));
    }
    // A value property that is always written (no default).
    template <class C, class G, class S>
    TPropertyList& AddNoDefault(const char* name, G getter, S setter) {
        using T = std::decay_t<decltype(std::invoke(getter, std::declval<const C&>()))>;
        Add<C>(name, getter, setter, T{});
        FItems.back().Default = std::monostate{};
        return *this;
    }
    // An enumeration written by the names of its values, in ordinal order.
    template <class C, class G, class S, class E>
    TPropertyList& AddEnum(const char* name, G getter, S setter, E def,
                           std::initializer_list<const char*> names) {
        using T = std::decay_t<decltype(std::invoke(getter, std::declval<const C&>()))>;
        TPropInfo p;
        p.Name = name;
        p.Kind = TPropKind::Enum;
        p.Names.assign(names.begin(), names.end());
        p.Default = static_cast<int64_t>(def);
        p.Get = [getter](const TObject& o) {
            return TPropValue(static_cast<int64_t>(mw::detail::Call<C>(getter, o)));
        };
        p.Set = [setter](TObject& o, const TPropValue& v) {
            std::invoke(setter, static_cast<C&>(o), static_cast<T>(std::get<int64_t>(v)));
        };
        return Push(std::move(p));
    }
    // A set written as [a, b]: the getter and setter take the bit mask (bit n = element n).
    template <class C, class G, class S>
    TPropertyList& AddSet(const char* name, G getter, S setter, uint64_t def,
                          std::initializer_list<const char*> names) {
        TPropInfo p;
        p.Name = name;
        p.Kind = TPropKind::Set;
        p.Names.assign(names.begin(), names.end());
        p.Default = static_cast<int64_t>(def);
        p.Get = [getter](const TObject& o) {
            return TPropValue(static_cast<int64_t>(mw::detail::Call<C>(getter, o)));
        };
        p.Set = [setter](TObject& o, const TPropValue& v) {
            std::invoke(setter, static_cast<C&>(o), static_cast<uint64_t>(std::get<int64_t>(v)));
        };
        return Push(std::move(p));
    }
    // An owned sub-object (TPersistent or collection), read and written in place; it is
    // written when any of its own properties differs from its default.
    template <class C, class G>
    TPropertyList& AddObject(const char* name, G getter) {
        TPropInfo p;
        p.Name = name;
        p.Kind = TPropKind::Object;
        p.Get = [getter](const TObject& o) {
            return TPropValue(static_cast<TObject*>(mw::detail::Call<C>(getter, o)));
        };
        return Push(std::move(p));
    }
    // A reference to another component, written by its name and resolved after loading.
    template <class C, class T, class G, class S>
    TPropertyList& AddComponent(const char* name, G getter, S setter) {
        TPropInfo p;
        p.Name = name;
        p.Kind = TPropKind::Component;
        p.RefClass = T::StaticClass();
        p.Default = static_cast<TObject*>(nullptr);
        p.Get = [getter](const TObject& o) {
            return TPropValue(static_cast<TObject*>(mw::detail::Call<C>(getter, o)));
        };
        p.Set = [setter](TObject& o, const TPropValue& v) {
            std::invoke(setter, static_cast<C&>(o), dynamic_cast<T*>(std::get<TObject*>(v)));
        };
        return Push(std::move(p));
    }
    // Adds a condition to the last property: written only when it holds (and differs).
    template <class C, class F>
    TPropertyList& StoredIf(F pred) {
        FItems.back().Stored = [pred](const TObject& o) {
            return std::invoke(pred, static_cast<const C&>(o));
        };
        return *this;
    }

private:
    TPropertyList& Push(TPropInfo&& p);
    std::vector<TPropInfo> FItems;
};
