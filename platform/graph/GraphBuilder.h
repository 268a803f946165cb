// What the graph manager builds with: intelligent connect through registered filters, rendering
// of output pins, file sources, and the graph's description for IPersistStream. Works on a graph
// through its own interfaces, with the graph's lock held by the caller.
#pragma once

#include <string>
#include <vector>

#include "comptr.h"
#include "strmif.h"

namespace mw::graph {

class GraphBuilder {
public:
    explicit GraphBuilder(IFilterGraph2* graph) : FGraph(graph) {}

    // Connects out to in through one or more registered filters, highest merit first. Filters
    // tried and not used leave the graph again. VFW_E_CANNOT_CONNECT when nothing fits.
    HRESULT ConnectThroughFilters(IPin* out, IPin* in, int depth = 0);
    // Connects out, through whatever it needs, to a filter that renders. With existingOnly, only
    // to renderers already in the graph. VFW_E_CANNOT_RENDER when nothing fits.
    HRESULT Render(IPin* out, bool existingOnly = false, int depth = 0);
    // A source for the file, then every output pin rendered. VFW_S_PARTIAL_RENDER when some
    // streams could not be.
    HRESULT RenderFile(LPCWSTR file);
    HRESULT AddSourceFilter(LPCWSTR file, LPCWSTR name, IBaseFilter** out);

private:
    // Creates a registered filter and adds it under its registered name.
    ComPtr<IBaseFilter> AddRegistered(const CLSID& clsid, const std::u16string& name);

    IFilterGraph2* FGraph;
};

struct SavedFilter {
    ComPtr<IBaseFilter> filter;
    std::u16string name;
};

// Writes the filters (class, name and their own persisted state) and their connections with
// the connection types.
HRESULT SaveGraph(IStream* stream, const std::vector<SavedFilter>& filters);
// Adds the filters of a description to the graph and connects them as they were.
HRESULT LoadGraph(IStream* stream, IFilterGraph2* graph);

}  // namespace mw::graph
