#include "frame/Properties.h"

#include <algorithm>
#include <cctype>

#include "frame/Classes.h"

using mw::SameText;

bool TPropInfo::ShouldStore(const TObject& obj) const {
    if (Stored && !Stored(obj)) return false;
    if (Kind == TPropKind::Object) {
        auto* sub = dynamic_cast<const TPersistent*>(std::get<TObject*>(Get(obj)));
        return sub && sub->HasStoredData();
    }
    if (std::holds_alternative<std::monostate>(Default)) return true;
    return Get(obj) != Default;
}

std::string TPropInfo::NameOf(int64_t ordinal) const {
    if (ordinal >= 0 && ordinal < static_cast<int64_t>(Names.size())) return Names[ordinal];
    return std::to_string(ordinal);
}

int64_t TPropInfo::OrdinalOf(std::string_view name) const {
    for (size_t i = 0; i < Names.size(); ++i)
        if (SameText(Names[i], name)) return static_cast<int64_t>(i);
    return -1;
}

const TPropInfo* TPropertyList::Find(std::string_view name) const {
    for (const TPropInfo& p : FItems)
        if (SameText(p.Name, name)) return &p;
    return nullptr;
}

TPropertyList& TPropertyList::Push(TPropInfo&& p) {
    // A subclass may publish a property again (a new default, say): the later one wins in place.
    for (TPropInfo& q : FItems)
        if (SameText(q.Name, p.Name)) {
            q = std::move(p);
            return *this;
        }
    FItems.push_back(std::move(p));
    return *this;
}
