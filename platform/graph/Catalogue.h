// The catalogue of the graph service: the system device enumerator (CLSID_SystemDeviceEnum,
// ICreateDevEnum) and the filter mapper (CLSID_FilterMapper2, IFilterMapper2).
//
// Every filter registered with the mapper is a device of its category in the device registry
// (mwdevices.h): the general filter list (CLSID_LegacyAmFilterCategory) unless another category
// is named. Device categories filled elsewhere (audio renderers per wave output device, later
// audio inputs, compressors and media objects) are listed by the same enumerator. The mapper
// keeps each filter's merit and pin types, which EnumMatchingFilters and the graph's intelligent
// connect choose by. CLSID_ActiveMovieCategories lists the categories that have entries, each
// with its "FriendlyName" and "CLSID".
#pragma once

#include <string>
#include <vector>

#include "strmif.h"

namespace mw::graph {

// One registered filter as intelligent connect sees it.
struct RegisteredFilter {
    CLSID clsid = GUID_NULL;
    std::u16string name;
    DWORD merit = 0;
    struct PinTypes {
        bool output = false;
        bool rendered = false;
        std::vector<std::pair<GUID, GUID>> types;  // major, minor (GUID_NULL: any)
    };
    std::vector<PinTypes> pins;
};

// The registered filters of the general list with at least the merit, highest merit first.
std::vector<RegisteredFilter> RegisteredFilters(DWORD minimumMerit);
// Whether a filter has an input pin taking the major/minor type (GUID_NULL matches any).
bool TakesType(const RegisteredFilter& filter, const GUID& major, const GUID& minor);

// The class of the filter AddSourceFilter makes for a file (a platform file source registers
// itself here). GUID_NULL until one does.
void SetFileSourceClass(REFCLSID clsid);
CLSID FileSourceClass();

// Registers CLSID_SystemDeviceEnum and CLSID_FilterMapper2 (RegisterGraphService does).
void RegisterCatalogue();

// Registers a filter in the mapper as IFilterMapper2::RegisterFilter does.
HRESULT RegisterFilterInCatalogue(REFCLSID clsid, LPCWSTR name, const CLSID* category,
                                  LPCOLESTR instance, const REGFILTER2& data);

}  // namespace mw::graph
