#include "frame/Object.h"

#include "frame/Properties.h"

#include <cctype>

bool mw::SameText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

TMetaClass::TMetaClass(const char* name, TClass parent, Factory factory, Publisher publish)
    : FName(name), FParent(parent), FFactory(factory), FPublish(publish) {}

TMetaClass::~TMetaClass() = default;

const TPropertyList& TMetaClass::Properties() const {
    std::call_once(FOnce, [this] {
        auto list =
            std::make_unique<TPropertyList>(FParent ? FParent->Properties() : TPropertyList());
        // A class without its own Publish inherits its base's function: publish only once.
        if (FPublish && (!FParent || FPublish != FParent->FPublish)) FPublish(*list);
        FProperties = std::move(list);
    });
    return *FProperties;
}

TClass TObject::StaticClass() {
    static const TMetaClass cls("TObject", nullptr, nullptr, &TObject::Publish);
    return &cls;
}
