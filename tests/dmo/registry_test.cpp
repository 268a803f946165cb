// The registry of media objects: listing by category and type, names, creation.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dmoreg.h"
#include "platform/dmo/Effects.h"
#include "tests/dmo/EffectTestSupport.h"

namespace {

using mw::test::ComScope;

const std::vector<std::string> kNames = {"Gain",    "Echo",       "Chorus", "Flanger", "Compressor",
                                         "ParamEq", "Distortion", "Gargle", "Reverb"};

std::vector<std::string> Listed(REFGUID category, DWORD inCount = 0,
                                const DMO_PARTIAL_MEDIATYPE* in = nullptr) {
    ComPtr<IEnumDMO> e;
    EXPECT_EQ(DMOEnum(category, DMO_ENUMF_INCLUDE_KEYED, inCount, in, 0, nullptr,
                      e.ReleaseAndGetAddressOf()),
              S_OK);
    std::vector<std::string> names;
    CLSID id;
    WCHAR* text = nullptr;
    while (e->Next(1, &id, &text, nullptr) == S_OK) {
        names.push_back(mw::Utf16ToUtf8(text));
        CoTaskMemFree(text);
    }
    return names;
}

TEST(DmoRegistry, ListsTheEffectsInRegistrationOrder) {
    EXPECT_EQ(Listed(DMOCATEGORY_AUDIO_EFFECT), kNames);
    EXPECT_TRUE(Listed(DMOCATEGORY_VIDEO_EFFECT).empty());
    // All categories: the effects are there, once each.
    std::vector<std::string> all = Listed(GUID_NULL);
    for (const std::string& n : kNames)
        EXPECT_EQ(std::count(all.begin(), all.end(), n), 1) << n;
}

TEST(DmoRegistry, FiltersByInputType) {
    const DMO_PARTIAL_MEDIATYPE pcm{MEDIATYPE_Audio, MEDIASUBTYPE_PCM};
    EXPECT_EQ(Listed(DMOCATEGORY_AUDIO_EFFECT, 1, &pcm), kNames);
    const DMO_PARTIAL_MEDIATYPE anyAudio{MEDIATYPE_Audio, GUID_NULL};
    EXPECT_EQ(Listed(DMOCATEGORY_AUDIO_EFFECT, 1, &anyAudio), kNames);
    const DMO_PARTIAL_MEDIATYPE video{MEDIATYPE_Video, GUID_NULL};
    EXPECT_TRUE(Listed(DMOCATEGORY_AUDIO_EFFECT, 1, &video).empty());
}

TEST(DmoRegistry, EnumeratorFetchesSkipsClonesAndResets) {
    ComPtr<IEnumDMO> e;
    ASSERT_EQ(
        DMOEnum(DMOCATEGORY_AUDIO_EFFECT, 0, 0, nullptr, 0, nullptr, e.ReleaseAndGetAddressOf()),
        S_OK);
    CLSID ids[4];
    WCHAR* names[4] = {};
    DWORD fetched = 0;
    ASSERT_EQ(e->Next(4, ids, names, &fetched), S_OK);
    EXPECT_EQ(fetched, 4u);
    EXPECT_EQ(mw::Utf16ToUtf8(names[3]), "Flanger");
    for (WCHAR* n : names)
        CoTaskMemFree(n);
    EXPECT_EQ(e->Skip(4), S_OK);
    ComPtr<IEnumDMO> clone;
    ASSERT_EQ(e->Clone(clone.ReleaseAndGetAddressOf()), S_OK);
    // One left: a request for two gets one and says so.
    ASSERT_EQ(clone->Next(2, ids, nullptr, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(ids[0], GUID_DSFX_WAVES_REVERB);
    EXPECT_EQ(clone->Next(1, ids, nullptr, &fetched), S_FALSE);
    EXPECT_EQ(e->Skip(5), S_FALSE);
    EXPECT_EQ(e->Reset(), S_OK);
    ASSERT_EQ(e->Next(1, ids, nullptr, nullptr), S_OK);
    EXPECT_EQ(ids[0], CLSID_MwGainEffect);
    EXPECT_EQ(e->Next(2, ids, nullptr, nullptr), E_POINTER);
}

TEST(DmoRegistry, NamesAndTypesByClass) {
    WCHAR name[80];
    ASSERT_EQ(DMOGetName(GUID_DSFX_STANDARD_PARAMEQ, name), S_OK);
    EXPECT_EQ(mw::Utf16ToUtf8(name), "ParamEq");
    const CLSID unknown = {0x12345678, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_EQ(DMOGetName(unknown, name), REGDB_E_CLASSNOTREG);
    DMO_PARTIAL_MEDIATYPE in[4], out[1];
    ULONG nIn = 0, nOut = 0;
    EXPECT_EQ(DMOGetTypes(GUID_DSFX_STANDARD_ECHO, 4, &nIn, in, 1, &nOut, out), S_FALSE);
    EXPECT_EQ(nIn, 2u);
    EXPECT_EQ(nOut, 1u);
    EXPECT_EQ(in[0].type, MEDIATYPE_Audio);
}

TEST(DmoRegistry, RegisterAndUnregisterAClass) {
    const CLSID mine = {0x6d77c0a1, 0x2222, 0x4a6b, {0x9c, 0, 0, 0, 0, 0, 0, 9}};
    ASSERT_EQ(DMORegister(u"Keyed one", mine, DMOCATEGORY_AUDIO_EFFECT, DMO_REGISTERF_IS_KEYED, 0,
                          nullptr, 0, nullptr),
              S_OK);
    auto listed = Listed(DMOCATEGORY_AUDIO_EFFECT);
    EXPECT_EQ(listed.back(), "Keyed one");
    // Keyed objects are left out unless asked for.
    ComPtr<IEnumDMO> e;
    ASSERT_EQ(
        DMOEnum(DMOCATEGORY_AUDIO_EFFECT, 0, 0, nullptr, 0, nullptr, e.ReleaseAndGetAddressOf()),
        S_OK);
    CLSID ids[16];
    DWORD fetched = 0;
    e->Next(16, ids, nullptr, &fetched);
    EXPECT_EQ(fetched, kNames.size());
    EXPECT_EQ(DMOUnregister(mine, DMOCATEGORY_AUDIO_EFFECT), S_OK);
    EXPECT_EQ(DMOUnregister(mine, DMOCATEGORY_AUDIO_EFFECT), S_FALSE);
    EXPECT_EQ(Listed(DMOCATEGORY_AUDIO_EFFECT), kNames);
}

TEST(DmoRegistry, EveryEffectIsCreatableWithAllItsInterfaces) {
    ComScope com;
    for (const std::string& n : kNames) {
        ComPtr<IUnknown> u;
        ASSERT_EQ(CoCreateInstance(mw::test::EffectClass(n), nullptr, 3, IID_IUnknown,
                                   u.ReleaseAndGetVoidAddress()),
                  S_OK)
            << n;
        EXPECT_TRUE(u.As<IMediaObject>()) << n;
        EXPECT_TRUE(u.As<IMediaObjectInPlace>()) << n;
        EXPECT_TRUE(u.As<IMediaParamInfo>()) << n;
        EXPECT_TRUE(u.As<IMediaParams>()) << n;
        // One identity whichever interface is asked.
        EXPECT_EQ(u.As<IMediaParams>().As<IUnknown>().Get(), u.Get());
        ComPtr<IUnknown> outer = u;
        ComPtr<IUnknown> aggregated;
        EXPECT_EQ(CoCreateInstance(mw::test::EffectClass(n), outer.Get(), 3, IID_IUnknown,
                                   aggregated.ReleaseAndGetVoidAddress()),
                  CLASS_E_NOAGGREGATION);
    }
}

}  // namespace
