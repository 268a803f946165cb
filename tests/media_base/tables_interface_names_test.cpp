// The names of the platform interfaces that an object answers.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

#include "media_base/DSBaseClass_Tables.h"
#include "mwiids.h"

namespace {

// Answers IUnknown and a chosen set of IIDs with itself; raises for one IID if asked to.
class ProbeObject : public IUnknown {
public:
    ProbeObject(std::vector<const GUID*> answered, const GUID* raising = nullptr)
        : FAnswered(std::move(answered)), FRaising(raising) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        *ppv = nullptr;
        if (FRaising && IsEqualIID(riid, *FRaising)) throw std::runtime_error("probe raises");
        bool answer = IsEqualIID(riid, IID_IUnknown);
        for (const GUID* g : FAnswered)
            answer = answer || IsEqualIID(riid, *g);
        if (!answer) return E_NOINTERFACE;
        *ppv = static_cast<IUnknown*>(this);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++FRefs; }
    STDMETHODIMP_(ULONG) Release() override { return --FRefs; }
    ULONG Refs() const { return FRefs; }

private:
    std::vector<const GUID*> FAnswered;
    const GUID* FRaising;
    std::atomic<ULONG> FRefs{1};
};

std::vector<std::string> Names(const ComPtr<IStringArrayList>& list) {
    std::vector<std::string> names;
    for (int i = 0; i < list->Count(); ++i)
        names.push_back(list->Get(i));
    return names;
}

}  // namespace

TEST(InterfaceNameTable, ListsItsRowsInOrder) {
    ASSERT_EQ(std::size(mw::kMwInterfaceNameTable), 383u);
    EXPECT_STREQ(mw::kMwInterfaceNameTable[0].name, "IPin");
    EXPECT_STREQ(mw::kMwInterfaceNameTable[382].name, "IStorage");
}

TEST(InterfaceNames, ListsTheAnsweredInterfacesInTableOrderAndDropsEveryReference) {
    // Asked for in an order different from the table's.
    ProbeObject object({&IID_IPersist, &IID_IMediaSeeking, &IID_IBaseFilter, &IID_IMediaFilter});
    const ComPtr<IStringArrayList> names = DSGetInterfaceNames(&object);
    ASSERT_TRUE(names);
    EXPECT_EQ(Names(names), (std::vector<std::string>{"IMediaFilter", "IBaseFilter",
                                                      "IMediaSeeking", "IPersist"}));
    EXPECT_EQ(object.Refs(), 1u);
}

TEST(InterfaceNames, AnObjectOfNoListedInterfaceGivesAnEmptyList) {
    ProbeObject object({});
    EXPECT_EQ(DSGetInterfaceNames(&object)->Count(), 0);
}

TEST(InterfaceNames, AnInterfaceWhoseQueryRaisesCountsAsUnsupportedAndTheWalkGoesOn) {
    ProbeObject object({&IID_IPin, &IID_IMediaSeeking, &IID_IStorage}, &IID_IMediaSeeking);
    const ComPtr<IStringArrayList> names = DSGetInterfaceNames(&object);
    EXPECT_EQ(Names(names), (std::vector<std::string>{"IPin", "IStorage"}));
    EXPECT_EQ(object.Refs(), 1u);
}
