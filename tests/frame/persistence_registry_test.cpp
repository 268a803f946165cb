// The class registry through which form files create components, and the palette entries a
// designer reads.
#include <gtest/gtest.h>

#include "frame/Persistence.h"
#include "frame/Registration.h"
#include "tests/frame/persistence_fixtures.h"

using namespace fixtures;

namespace other {
// A second class that carries the name of a registered one.
class TTestComponent : public TComponent {
    MW_CLASS(TTestComponent, TComponent)
public:
    using TComponent::TComponent;
};

class TPaletteComponent : public TComponent {
    MW_CLASS(TPaletteComponent, TComponent)
public:
    using TComponent::TComponent;
};
class TPlainComponent : public TComponent {
    MW_CLASS(TPlainComponent, TComponent)
public:
    using TComponent::TComponent;
};
}  // namespace other

TEST(ClassRegistry, FindsClassesByNameInAnyCase) {
    RegisterTestClasses();
    EXPECT_EQ(GetClass("TTestComponent"), TTestComponent::StaticClass());
    EXPECT_EQ(GetClass("ttesthost"), TTestHost::StaticClass());
    EXPECT_EQ(GetClass("TTestUnregistered"), nullptr);
    EXPECT_THROW(FindClass("TTestUnregistered"), EClassNotFound);
    EXPECT_EQ(FindClass("TTESTCOMPONENT"), TTestComponent::StaticClass());
}

TEST(ClassRegistry, ANameBelongsToOneClass) {
    RegisterTestClasses();
    EXPECT_NO_THROW(RegisterClass(TTestComponent::StaticClass()));
    EXPECT_THROW(RegisterClass(other::TTestComponent::StaticClass()), EFilerError);
    EXPECT_EQ(GetClass("TTestComponent"), TTestComponent::StaticClass());

    // Unregistering a class that does not own the name leaves the name alone.
    UnRegisterClass(other::TTestComponent::StaticClass());
    EXPECT_EQ(GetClass("TTestComponent"), TTestComponent::StaticClass());
    UnRegisterClass(TTestHost::StaticClass());
    EXPECT_EQ(GetClass("TTestHost"), nullptr);
    EXPECT_THROW(mw::ReadComponentFromText("object H: TTestHost\nend\n", nullptr), EReadError);
    RegisterTestClasses();
}

TEST(Palette, RegisteredComponentsCarryPageCategoryAndBitmaps) {
    AddCategoryAttribute(other::TPaletteComponent::StaticClass(), TQuatoneOutputToolbarCategory());
    RegisterComponents("Quatone", {other::TPaletteComponent::StaticClass(),
                                   other::TPlainComponent::StaticClass()});

    std::optional<TPaletteEntry> e = FindPaletteEntry(other::TPaletteComponent::StaticClass());
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->Page, "Quatone");
    EXPECT_EQ(e->Category, "TQuatoneOutputToolbarCategory");
    EXPECT_EQ(e->Bitmap, "TPaletteComponent");
    EXPECT_EQ(e->Bitmap16, "TPaletteComponent16");
    EXPECT_EQ(e->Bitmap32, "TPaletteComponent32");
    EXPECT_EQ(FindPaletteEntry(other::TPlainComponent::StaticClass())->Category, "");
    EXPECT_FALSE(FindPaletteEntry(TTestComponent::StaticClass()).has_value());

    // Registration order is kept; registering again moves a class to the new page only.
    RegisterComponents("Other", {other::TPlainComponent::StaticClass()});
    std::vector<TPaletteEntry> all = PaletteEntries();
    auto pos = [&](TClass c) {
        return std::find_if(all.begin(), all.end(),
                            [c](const TPaletteEntry& x) { return x.ComponentClass == c; }) -
               all.begin();
    };
    EXPECT_LT(pos(other::TPaletteComponent::StaticClass()),
              pos(other::TPlainComponent::StaticClass()));
    EXPECT_EQ(all[pos(other::TPlainComponent::StaticClass())].Page, "Other");
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const TPaletteEntry& x) {
                                return x.ComponentClass == other::TPlainComponent::StaticClass();
                            }),
              1);

    // A palette component can be created by a form file.
    TOwned<TComponent> c(mw::ReadComponentFromText("object P: TPaletteComponent\nend\n", nullptr));
    EXPECT_EQ(c->ClassType(), other::TPaletteComponent::StaticClass());
}
