// Intelligent connect, rendering, file sources and the graph description.
#include "platform/graph/GraphBuilder.h"

#include <cstring>

#include "objbase.h"
#include "platform/graph/Catalogue.h"
#include "platform/graph/MediaTypes.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::graph {
namespace {

constexpr int kMaxDepth = 4;  // filters inserted between two pins or behind one output pin

std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter, PIN_DIRECTION dir) {
    std::vector<ComPtr<IPin>> pins;
    ComPtr<IEnumPins> e;
    if (FAILED(filter->EnumPins(e.ReleaseAndGetAddressOf())) || !e) return pins;
    for (;;) {
        ComPtr<IPin> pin;
        ULONG got = 0;
        if (e->Next(1, pin.ReleaseAndGetAddressOf(), &got) != S_OK || got != 1) break;
        PIN_DIRECTION d;
        if (SUCCEEDED(pin->QueryDirection(&d)) && d == dir) pins.push_back(pin);
    }
    return pins;
}

bool Connected(IPin* pin) {
    ComPtr<IPin> peer;
    return SUCCEEDED(pin->ConnectedTo(peer.ReleaseAndGetAddressOf())) && peer;
}

// The (major, minor) pairs an output pin offers; empty when it enumerates none.
std::vector<std::pair<GUID, GUID>> OfferedTypes(IPin* pin) {
    std::vector<std::pair<GUID, GUID>> types;
    ComPtr<IEnumMediaTypes> e;
    if (FAILED(pin->EnumMediaTypes(e.ReleaseAndGetAddressOf())) || !e) return types;
    for (;;) {
        AM_MEDIA_TYPE* mt = nullptr;
        ULONG got = 0;
        if (e->Next(1, &mt, &got) != S_OK || got != 1 || !mt) break;
        types.emplace_back(mt->majortype, mt->subtype);
        DeleteMediaType(mt);
    }
    return types;
}

std::vector<RegisteredFilter> Candidates(IPin* out) {
    const auto offered = OfferedTypes(out);
    std::vector<RegisteredFilter> result;
    for (auto& f : RegisteredFilters(MERIT_DO_NOT_USE + 1)) {
        bool fits = offered.empty();
        for (const auto& [major, minor] : offered)
            fits = fits || TakesType(f, major, minor);
        if (fits) result.push_back(std::move(f));
    }
    return result;
}

CLSID ClassOf(IBaseFilter* f) {
    CLSID id = GUID_NULL;
    if (f) f->GetClassID(&id);
    return id;
}

ComPtr<IBaseFilter> OwnerOf(IPin* pin) {
    PIN_INFO info{};
    ComPtr<IBaseFilter> filter;
    if (SUCCEEDED(pin->QueryPinInfo(&info)) && info.pFilter) filter.Attach(info.pFilter);
    return filter;
}

}  // namespace

ComPtr<IBaseFilter> GraphBuilder::AddRegistered(const CLSID& clsid, const std::u16string& name) {
    ComPtr<IBaseFilter> filter;
    if (FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(filter.ReleaseAndGetAddressOf()))))
        return nullptr;
    if (FAILED(FGraph->AddFilter(filter.Get(), name.c_str()))) return nullptr;
    return filter;
}

HRESULT GraphBuilder::ConnectThroughFilters(IPin* out, IPin* in, int depth) {
    if (depth >= kMaxDepth) return VFW_E_CANNOT_CONNECT;
    const CLSID upstream = ClassOf(OwnerOf(out).Get());
    for (const RegisteredFilter& candidate : Candidates(out)) {
        // A filter of the same class as the one upstream would only repeat it.
        if (IsEqualGUID(candidate.clsid, upstream)) continue;
        ComPtr<IBaseFilter> filter = AddRegistered(candidate.clsid, candidate.name);
        if (!filter) continue;
        bool done = false;
        for (auto& pin : PinsOf(filter.Get(), PINDIR_INPUT)) {
            if (FAILED(FGraph->ConnectDirect(out, pin.Get(), nullptr))) continue;
            for (auto& next : PinsOf(filter.Get(), PINDIR_OUTPUT)) {
                if (Connected(next.Get())) continue;
                if (SUCCEEDED(FGraph->ConnectDirect(next.Get(), in, nullptr)) ||
                    SUCCEEDED(ConnectThroughFilters(next.Get(), in, depth + 1))) {
                    done = true;
                    break;
                }
            }
            break;
        }
        if (done) return S_OK;
        FGraph->RemoveFilter(filter.Get());
    }
    return VFW_E_CANNOT_CONNECT;
}

HRESULT GraphBuilder::Render(IPin* out, bool existingOnly, int depth) {
    if (depth >= kMaxDepth) return VFW_E_CANNOT_RENDER;
    // Renderers already in the graph with a free input first.
    ComPtr<IEnumFilters> e;
    if (SUCCEEDED(FGraph->EnumFilters(e.ReleaseAndGetAddressOf())) && e) {
        for (;;) {
            ComPtr<IBaseFilter> f;
            ULONG got = 0;
            if (e->Next(1, f.ReleaseAndGetAddressOf(), &got) != S_OK || got != 1) break;
            if (!PinsOf(f.Get(), PINDIR_OUTPUT).empty()) continue;
            for (auto& pin : PinsOf(f.Get(), PINDIR_INPUT))
                if (!Connected(pin.Get()) &&
                    SUCCEEDED(FGraph->ConnectDirect(out, pin.Get(), nullptr)))
                    return S_OK;
        }
    }
    if (existingOnly) return VFW_E_CANNOT_RENDER;
    const CLSID upstream = ClassOf(OwnerOf(out).Get());
    for (const RegisteredFilter& candidate : Candidates(out)) {
        if (IsEqualGUID(candidate.clsid, upstream)) continue;
        ComPtr<IBaseFilter> filter = AddRegistered(candidate.clsid, candidate.name);
        if (!filter) continue;
        bool done = false;
        for (auto& pin : PinsOf(filter.Get(), PINDIR_INPUT)) {
            if (FAILED(FGraph->ConnectDirect(out, pin.Get(), nullptr))) continue;
            const auto outputs = PinsOf(filter.Get(), PINDIR_OUTPUT);
            done = outputs.empty();  // a renderer
            for (auto& next : outputs)
                if (SUCCEEDED(Render(next.Get(), false, depth + 1))) done = true;
            break;
        }
        if (done) return S_OK;
        FGraph->RemoveFilter(filter.Get());
    }
    return VFW_E_CANNOT_RENDER;
}

HRESULT GraphBuilder::AddSourceFilter(LPCWSTR file, LPCWSTR name, IBaseFilter** out) {
    *out = nullptr;
    const CLSID clsid = FileSourceClass();
    if (IsEqualGUID(clsid, GUID_NULL)) return VFW_E_UNSUPPORTED_STREAM;
    ComPtr<IBaseFilter> filter;
    HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                  reinterpret_cast<void**>(filter.ReleaseAndGetAddressOf()));
    if (FAILED(hr)) return hr;
    ComPtr<IFileSourceFilter> source;
    hr = filter->QueryInterface(IID_IFileSourceFilter,
                                reinterpret_cast<void**>(source.ReleaseAndGetAddressOf()));
    if (FAILED(hr)) return hr;
    hr = source->Load(file, nullptr);
    if (FAILED(hr)) return hr;
    hr = FGraph->AddFilter(filter.Get(), name ? name : file);
    if (FAILED(hr)) return hr;
    *out = filter.Detach();
    return S_OK;
}

HRESULT GraphBuilder::RenderFile(LPCWSTR file) {
    ComPtr<IBaseFilter> source;
    HRESULT hr = AddSourceFilter(file, file, source.ReleaseAndGetAddressOf());
    if (FAILED(hr)) return hr;
    int rendered = 0, failed = 0;
    for (auto& pin : PinsOf(source.Get(), PINDIR_OUTPUT))
        (SUCCEEDED(Render(pin.Get())) ? rendered : failed)++;
    if (rendered == 0) {
        FGraph->RemoveFilter(source.Get());
        return VFW_E_CANNOT_RENDER;
    }
    return failed ? VFW_S_PARTIAL_RENDER : S_OK;
}

// ---------------------------------------------------------------- description
//
// "MWGRAPH1", then the filters (name, class, the bytes of their own IPersistStream or none),
// then the connections (output filter and pin id, input filter and pin id, connection type).

namespace {

constexpr char kMagic[8] = {'M', 'W', 'G', 'R', 'A', 'P', 'H', '1'};

struct Writer {
    IStream* stream;
    HRESULT hr = S_OK;
    void Bytes(const void* p, ULONG n) {
        if (SUCCEEDED(hr) && n) {
            ULONG written = 0;
            hr = stream->Write(p, n, &written);
            if (SUCCEEDED(hr) && written != n) hr = STG_E_MEDIUMFULL;
        }
    }
    void U32(uint32_t v) { Bytes(&v, 4); }
    void Text(const std::u16string& s) {
        U32(static_cast<uint32_t>(s.size()));
        Bytes(s.data(), static_cast<ULONG>(s.size() * 2));
    }
};

struct Reader {
    IStream* stream;
    bool ok = true;
    void Bytes(void* p, ULONG n) {
        if (!ok || !n) return;
        ULONG got = 0;
        ok = SUCCEEDED(stream->Read(p, n, &got)) && got == n;
    }
    uint32_t U32() {
        uint32_t v = 0;
        Bytes(&v, 4);
        return v;
    }
    std::u16string Text() {
        const uint32_t n = U32();
        if (n > 65536) ok = false;
        std::u16string s(ok ? n : 0, u'\0');
        Bytes(s.data(), static_cast<ULONG>(s.size() * 2));
        return s;
    }
    std::vector<BYTE> Blob() {
        const uint32_t n = U32();
        if (n > (64u << 20)) ok = false;
        std::vector<BYTE> b(ok ? n : 0);
        Bytes(b.data(), static_cast<ULONG>(b.size()));
        return b;
    }
};

std::u16string PinId(IPin* pin) {
    LPWSTR id = nullptr;
    if (FAILED(pin->QueryId(&id)) || !id) return {};
    std::u16string s(id);
    CoTaskMemFree(id);
    return s;
}

// The filter's own state through IPersistStream, as bytes.
std::vector<BYTE> FilterState(IBaseFilter* filter) {
    std::vector<BYTE> bytes;
    ComPtr<IPersistStream> persist;
    if (FAILED(filter->QueryInterface(IID_IPersistStream,
                                      reinterpret_cast<void**>(persist.ReleaseAndGetAddressOf()))))
        return bytes;
    ComPtr<IStream> mem;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, mem.ReleaseAndGetAddressOf()))) return bytes;
    if (FAILED(persist->Save(mem.Get(), FALSE))) return bytes;
    ULARGE_INTEGER end{};
    mem->Seek(LARGE_INTEGER{}, STREAM_SEEK_END, &end);
    mem->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
    bytes.resize(static_cast<size_t>(end.QuadPart));
    ULONG got = 0;
    mem->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &got);
    bytes.resize(got);
    return bytes;
}

}  // namespace

HRESULT SaveGraph(IStream* stream, const std::vector<SavedFilter>& filters) {
    Writer w{stream};
    w.Bytes(kMagic, sizeof kMagic);
    w.U32(static_cast<uint32_t>(filters.size()));
    for (const SavedFilter& f : filters) {
        w.Text(f.name);
        const CLSID clsid = ClassOf(f.filter.Get());
        w.Bytes(&clsid, sizeof clsid);
        const auto state = FilterState(f.filter.Get());
        w.U32(static_cast<uint32_t>(state.size()));
        w.Bytes(state.data(), static_cast<ULONG>(state.size()));
    }
    struct Link {
        uint32_t from;
        std::u16string fromPin;
        uint32_t to;
        std::u16string toPin;
        MediaType type;
    };
    std::vector<Link> links;
    for (uint32_t i = 0; i < filters.size(); ++i) {
        for (auto& pin : PinsOf(filters[i].filter.Get(), PINDIR_OUTPUT)) {
            ComPtr<IPin> peer;
            if (FAILED(pin->ConnectedTo(peer.ReleaseAndGetAddressOf())) || !peer) continue;
            ComPtr<IBaseFilter> down = OwnerOf(peer.Get());
            for (uint32_t j = 0; j < filters.size(); ++j) {
                if (filters[j].filter.Get() != down.Get()) continue;
                Link l{i, PinId(pin.Get()), j, PinId(peer.Get()), {}};
                pin->ConnectionMediaType(l.type.Put());
                links.push_back(std::move(l));
            }
        }
    }
    w.U32(static_cast<uint32_t>(links.size()));
    for (const Link& l : links) {
        w.U32(l.from);
        w.Text(l.fromPin);
        w.U32(l.to);
        w.Text(l.toPin);
        const AM_MEDIA_TYPE& mt = *l.type;
        w.Bytes(&mt.majortype, sizeof(GUID));
        w.Bytes(&mt.subtype, sizeof(GUID));
        w.U32(static_cast<uint32_t>(mt.bFixedSizeSamples));
        w.U32(static_cast<uint32_t>(mt.bTemporalCompression));
        w.U32(mt.lSampleSize);
        w.Bytes(&mt.formattype, sizeof(GUID));
        w.U32(mt.cbFormat);
        w.Bytes(mt.pbFormat, mt.cbFormat);
    }
    return w.hr;
}

HRESULT LoadGraph(IStream* stream, IFilterGraph2* graph) {
    Reader r{stream};
    char magic[8] = {};
    r.Bytes(magic, sizeof magic);
    if (!r.ok || std::memcmp(magic, kMagic, sizeof magic) != 0) return VFW_E_INVALID_FILE_FORMAT;
    const uint32_t count = r.U32();
    if (!r.ok || count > 4096) return VFW_E_INVALID_FILE_FORMAT;
    std::vector<ComPtr<IBaseFilter>> filters;
    for (uint32_t i = 0; i < count && r.ok; ++i) {
        const std::u16string name = r.Text();
        CLSID clsid{};
        r.Bytes(&clsid, sizeof clsid);
        const auto state = r.Blob();
        if (!r.ok) break;
        ComPtr<IBaseFilter> filter;
        HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                      reinterpret_cast<void**>(filter.ReleaseAndGetAddressOf()));
        if (FAILED(hr)) return hr;
        if (!state.empty()) {
            ComPtr<IPersistStream> persist;
            ComPtr<IStream> mem;
            if (SUCCEEDED(filter->QueryInterface(
                    IID_IPersistStream,
                    reinterpret_cast<void**>(persist.ReleaseAndGetAddressOf()))) &&
                SUCCEEDED(CreateStreamOnHGlobal(nullptr, TRUE, mem.ReleaseAndGetAddressOf()))) {
                mem->Write(state.data(), static_cast<ULONG>(state.size()), nullptr);
                mem->Seek(LARGE_INTEGER{}, STREAM_SEEK_SET, nullptr);
                hr = persist->Load(mem.Get());
                if (FAILED(hr)) return hr;
            }
        }
        hr = graph->AddFilter(filter.Get(), name.c_str());
        if (FAILED(hr)) return hr;
        filters.push_back(filter);
    }
    const uint32_t links = r.U32();
    HRESULT result = r.ok ? S_OK : VFW_E_INVALID_FILE_FORMAT;
    for (uint32_t i = 0; i < links && r.ok; ++i) {
        const uint32_t from = r.U32();
        const std::u16string fromPin = r.Text();
        const uint32_t to = r.U32();
        const std::u16string toPin = r.Text();
        AM_MEDIA_TYPE mt{};
        r.Bytes(&mt.majortype, sizeof(GUID));
        r.Bytes(&mt.subtype, sizeof(GUID));
        mt.bFixedSizeSamples = static_cast<BOOL>(r.U32());
        mt.bTemporalCompression = static_cast<BOOL>(r.U32());
        mt.lSampleSize = r.U32();
        r.Bytes(&mt.formattype, sizeof(GUID));
        std::vector<BYTE> format = r.Blob();
        mt.cbFormat = static_cast<ULONG>(format.size());
        mt.pbFormat = format.empty() ? nullptr : format.data();
        if (!r.ok || from >= filters.size() || to >= filters.size()) {
            result = VFW_E_INVALID_FILE_FORMAT;
            break;
        }
        ComPtr<IPin> out, in;
        if (FAILED(filters[from]->FindPin(fromPin.c_str(), out.ReleaseAndGetAddressOf())) ||
            FAILED(filters[to]->FindPin(toPin.c_str(), in.ReleaseAndGetAddressOf()))) {
            result = VFW_E_NOT_FOUND;
            continue;
        }
        const HRESULT hr = graph->ConnectDirect(out.Get(), in.Get(), &mt);
        if (FAILED(hr)) result = hr;
    }
    return result;
}

}  // namespace mw::graph
