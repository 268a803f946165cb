// mediawire filters [CATEGORY]: the catalogue of the graph service. Categories first, then the
// filters and devices of each (or of the one asked for) with friendly name, display name and
// merit.
#include <cstdio>
#include <string>
#include <vector>

#include "Tool.h"
#include "comptr.h"
#include "mwstring.h"
#include "objbase.h"
#include "oleauto.h"
#include "platform/filters/PlatformFilters.h"
#include "strmif.h"
#include "uuids.h"

namespace mw::tool {
namespace {

std::string BagText(IMoniker* moniker, const char16_t* name) {
    ComPtr<IPropertyBag> bag;
    if (FAILED(moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                      reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()))))
        return {};
    VARIANT v;
    VariantInit(&v);
    std::string text;
    if (SUCCEEDED(bag->Read(name, &v, nullptr))) {
        VARIANT s;
        VariantInit(&s);
        if (SUCCEEDED(VariantChangeType(&s, &v, 0, VT_BSTR)) && s.bstrVal)
            text = Utf16ToUtf8(s.bstrVal);
        VariantClear(&s);
    }
    VariantClear(&v);
    return text;
}

std::vector<ComPtr<IMoniker>> Monikers(ICreateDevEnum* devEnum, REFCLSID category) {
    std::vector<ComPtr<IMoniker>> all;
    ComPtr<IEnumMoniker> e;
    if (devEnum->CreateClassEnumerator(category, e.ReleaseAndGetAddressOf(), 0) != S_OK) return all;
    ComPtr<IMoniker> m;
    while (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK)
        all.push_back(m);
    return all;
}

int ListFilters(const std::string& wanted) {
    CoInitialize(nullptr);
    mw::filters::RegisterPlatformFilters();
    ComPtr<ICreateDevEnum> devEnum;
    if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                                IID_ICreateDevEnum,
                                reinterpret_cast<void**>(devEnum.ReleaseAndGetAddressOf()))))
        throw Failure("the device enumerator is not available");
    struct Category {
        std::string name, clsid;
    };
    std::vector<Category> categories;
    for (auto& m : Monikers(devEnum.Get(), CLSID_ActiveMovieCategories))
        categories.push_back({BagText(m.Get(), u"FriendlyName"), BagText(m.Get(), u"CLSID")});
    if (wanted.empty()) {
        Say("Categories:");
        for (const auto& c : categories)
            Say("  " + c.clsid + "  " + c.name);
    }
    bool found = false;
    for (const auto& c : categories) {
        if (!wanted.empty() && !U16EqualNoCase(Utf8ToUtf16(wanted), Utf8ToUtf16(c.name)) &&
            !U16EqualNoCase(Utf8ToUtf16(wanted), Utf8ToUtf16(c.clsid)) &&
            !U16EqualNoCase(Utf8ToUtf16("{" + wanted + "}"), Utf8ToUtf16(c.clsid)))
            continue;
        found = true;
        Say("");
        Say(c.name + " " + c.clsid + ":");
        CLSID id{};
        if (FAILED(CLSIDFromString(Utf8ToUtf16(c.clsid).c_str(), &id))) continue;
        for (auto& m : Monikers(devEnum.Get(), id)) {
            LPOLESTR display = nullptr;
            std::string displayName;
            if (SUCCEEDED(m->GetDisplayName(nullptr, nullptr, &display)) && display) {
                displayName = Utf16ToUtf8(display);
                CoTaskMemFree(display);
            }
            std::string line = "  " + BagText(m.Get(), u"FriendlyName");
            const std::string merit = BagText(m.Get(), u"Merit");
            if (!merit.empty()) {
                char hex[32];
                std::snprintf(hex, sizeof hex, "  merit 0x%08lX", std::stoul(merit));
                line += hex;
            }
            Say(line);
            Say("    " + displayName);
        }
    }
    CoUninitialize();
    if (!wanted.empty() && !found) throw Failure("no category \"" + wanted + "\"");
    return kExitOk;
}

const CommandRegistration kFilters{
    "filters", "List the filter categories, then their filters and devices",
    [](CLI::App& command) -> CommandRun {
        auto category = std::make_shared<std::string>();
        command.add_option("category", *category, "A category by name or class id");
        return [category] { return ListFilters(*category); };
    }};

}  // namespace
}  // namespace mw::tool
