#include "frame/Registration.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "frame/Persistence.h"

namespace {

struct TPalette {
    std::mutex Lock;
    std::vector<std::pair<TClass, std::string>> Entries;  // class and page, in order
    std::map<TClass, std::string> Categories;
};

TPalette& Palette() {
    static TPalette p;
    return p;
}

TPaletteEntry MakeEntry(const TPalette& p, TClass cls, const std::string& page) {
    TPaletteEntry e;
    e.ComponentClass = cls;
    e.Page = page;
    if (auto it = p.Categories.find(cls); it != p.Categories.end()) e.Category = it->second;
    e.Bitmap = cls->ClassName();
    e.Bitmap16 = e.Bitmap + "16";
    e.Bitmap32 = e.Bitmap + "32";
    return e;
}

}  // namespace

void RegisterComponents(const std::string& page, const std::vector<TClass>& classes) {
    for (TClass cls : classes)
        RegisterClass(cls);
    TPalette& p = Palette();
    std::lock_guard<std::mutex> lock(p.Lock);
    for (TClass cls : classes) {
        auto it = std::find_if(p.Entries.begin(), p.Entries.end(),
                               [cls](const auto& e) { return e.first == cls; });
        if (it != p.Entries.end())
            it->second = page;
        else
            p.Entries.emplace_back(cls, page);
    }
}

void RegisterComponents(const std::string& page, std::initializer_list<TClass> classes) {
    RegisterComponents(page, std::vector<TClass>(classes));
}

void AddCategoryAttribute(TClass cls, const CategoryAttribute& attribute) {
    TPalette& p = Palette();
    std::lock_guard<std::mutex> lock(p.Lock);
    p.Categories[cls] = attribute.Category();
}

std::string GetCategory(TClass cls) {
    TPalette& p = Palette();
    std::lock_guard<std::mutex> lock(p.Lock);
    auto it = p.Categories.find(cls);
    return it == p.Categories.end() ? std::string() : it->second;
}

std::vector<TPaletteEntry> PaletteEntries() {
    TPalette& p = Palette();
    std::lock_guard<std::mutex> lock(p.Lock);
    std::vector<TPaletteEntry> out;
    for (const auto& [cls, page] : p.Entries)
        out.push_back(MakeEntry(p, cls, page));
    return out;
}

std::optional<TPaletteEntry> FindPaletteEntry(TClass cls) {
    TPalette& p = Palette();
    std::lock_guard<std::mutex> lock(p.Lock);
    for (const auto& [c, page] : p.Entries)
        if (c == cls) return MakeEntry(p, c, page);
    return std::nullopt;
}
