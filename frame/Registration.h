// Palette registration: which components a form designer offers, on which page, in which
// category and with which bitmaps. Kept as plain data that a designer (or a test) reads.
//
// A unit registers its components once from its RegisterPkg: RegisterComponents(page,
// classes) records a palette entry per class and makes the class known to form files; a
// CategoryAttribute attached to a class gives the category its entry shows. The bitmaps of
// an entry are named after the class: the name itself, then with "16" and "32" behind it.
// All functions may be called from any thread.
#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "frame/Object.h"

// The category a component is shown under in the designer.
class CategoryAttribute {
public:
    explicit CategoryAttribute(std::string category) : FCategory(std::move(category)) {}
    virtual ~CategoryAttribute() = default;
    const std::string& Category() const { return FCategory; }

private:
    std::string FCategory;
};

// The category of the audio output components.
class TQuatoneOutputToolbarCategory : public CategoryAttribute {
public:
    TQuatoneOutputToolbarCategory() : CategoryAttribute("TQuatoneOutputToolbarCategory") {}
};

struct TPaletteEntry {
    TClass ComponentClass = nullptr;
    std::string Page;
    std::string Category;  // empty when the class carries no CategoryAttribute
    std::string Bitmap;    // the class name
    std::string Bitmap16;  // the class name + "16"
    std::string Bitmap32;  // the class name + "32"
};

// Adds the classes to the palette page (once per class; a later call moves it to the new
// page) and registers them for form files.
void RegisterComponents(const std::string& page, std::initializer_list<TClass> classes);
void RegisterComponents(const std::string& page, const std::vector<TClass>& classes);
// Attaches a category to a class; a later attribute replaces an earlier one.
void AddCategoryAttribute(TClass cls, const CategoryAttribute& attribute);
// The category attached to a class, or empty.
std::string GetCategory(TClass cls);

// All palette entries, in the order of registration.
std::vector<TPaletteEntry> PaletteEntries();
std::optional<TPaletteEntry> FindPaletteEntry(TClass cls);
