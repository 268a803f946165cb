// mediawire render FILE [--device NAME] [--null] [--graph] [--dot FILE]: RenderFile through the
// graph service and run the graph to its end, with a progress line; the graph can be printed or
// written for Graphviz.
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Tool.h"
#include "comptr.h"
#include "control.h"
#include "errors.h"
#include "evcode.h"
#include "mmreg.h"
#include "mwstring.h"
#include "objbase.h"
#include "oleauto.h"
#include "platform/filters/PlatformFilters.h"
#include "qedit.h"
#include "strmif.h"
#include "uuids.h"

namespace mw::tool {
namespace {

struct Options {
    std::string file;
    std::string device;
    bool null = false;
    bool printGraph = false;
    std::string dot;
};

// The platform's text of a result, with its code.
std::string Hr(HRESULT hr) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    char text[256] = "";
    if (AMGetErrorTextA(hr, text, sizeof text) == 0 || !text[0]) return code;
    std::string shown = text;
    if (shown.back() == '.') shown.pop_back();
    return shown + ", " + code;
}

template <class T, class U>
ComPtr<T> As(U* object) {
    ComPtr<T> out;
    object->QueryInterface(MwIid<T>(), reinterpret_cast<void**>(out.ReleaseAndGetAddressOf()));
    return out;
}

std::string TypeText(const AM_MEDIA_TYPE& mt) {
    if (IsEqualGUID(mt.formattype, FORMAT_WaveFormatEx) && mt.pbFormat && mt.cbFormat >= 16) {
        const auto* wf = reinterpret_cast<const WAVEFORMATEX*>(mt.pbFormat);
        bool isFloat = wf->wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
        if (wf->wFormatTag == WAVE_FORMAT_EXTENSIBLE && mt.cbFormat >= 40)
            isFloat = IsEqualGUID(reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wf)->SubFormat,
                                  MEDIASUBTYPE_IEEE_FLOAT);
        char text[96];
        std::snprintf(text, sizeof text, "audio %s %u Hz %u ch %u bit%s", isFloat ? "float" : "PCM",
                      static_cast<unsigned>(wf->nSamplesPerSec), wf->nChannels, wf->wBitsPerSample,
                      wf->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? " (extensible)" : "");
        return text;
    }
    return GuidToString(mt.majortype) + " " + GuidToString(mt.subtype);
}

struct Link {
    std::string from, fromPin, to, toPin, type;
};

// The filters and their connections, for --graph and --dot.
void Describe(IGraphBuilder* graph, std::vector<std::string>* filters, std::vector<Link>* links) {
    ComPtr<IEnumFilters> e;
    graph->EnumFilters(e.ReleaseAndGetAddressOf());
    ComPtr<IBaseFilter> f;
    while (e->Next(1, f.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        FILTER_INFO info{};
        f->QueryFilterInfo(&info);
        if (info.pGraph) info.pGraph->Release();
        filters->push_back(Utf16ToUtf8(info.achName));
        ComPtr<IEnumPins> pins;
        f->EnumPins(pins.ReleaseAndGetAddressOf());
        ComPtr<IPin> pin;
        while (pins->Next(1, pin.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
            PIN_INFO pi{};
            pin->QueryPinInfo(&pi);
            if (pi.pFilter) pi.pFilter->Release();
            ComPtr<IPin> peer;
            if (pi.dir != PINDIR_OUTPUT || FAILED(pin->ConnectedTo(peer.ReleaseAndGetAddressOf())))
                continue;
            PIN_INFO qi{};
            peer->QueryPinInfo(&qi);
            FILTER_INFO down{};
            if (qi.pFilter) {
                qi.pFilter->QueryFilterInfo(&down);
                if (down.pGraph) down.pGraph->Release();
                qi.pFilter->Release();
            }
            AM_MEDIA_TYPE mt{};
            std::string type = "?";
            if (SUCCEEDED(pin->ConnectionMediaType(&mt))) {
                type = TypeText(mt);
                CoTaskMemFree(mt.pbFormat);
                if (mt.pUnk) mt.pUnk->Release();
            }
            links->push_back({filters->back(), Utf16ToUtf8(pi.achName), Utf16ToUtf8(down.achName),
                              Utf16ToUtf8(qi.achName), type});
        }
    }
}

std::string Quoted(const std::string& s) {
    std::string q = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') q += '\\';
        q += c;
    }
    return q + "\"";
}

ComPtr<IBaseFilter> RendererByName(const std::string& name) {
    ComPtr<ICreateDevEnum> devEnum;
    CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                     reinterpret_cast<void**>(devEnum.ReleaseAndGetAddressOf()));
    ComPtr<IEnumMoniker> e;
    if (!devEnum || devEnum->CreateClassEnumerator(CLSID_AudioRendererCategory,
                                                   e.ReleaseAndGetAddressOf(), 0) != S_OK)
        return nullptr;
    ComPtr<IMoniker> m;
    while (e->Next(1, m.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        ComPtr<IPropertyBag> bag;
        m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                         reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()));
        VARIANT v;
        VariantInit(&v);
        const bool match = bag && SUCCEEDED(bag->Read(u"FriendlyName", &v, nullptr)) &&
                           v.vt == VT_BSTR && Utf16ToUtf8(v.bstrVal) == name;
        VariantClear(&v);
        if (!match) continue;
        ComPtr<IBaseFilter> f;
        m->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                        reinterpret_cast<void**>(f.ReleaseAndGetAddressOf()));
        return f;
    }
    return nullptr;
}

int Render(const Options& o) {
    CoInitialize(nullptr);
    mw::filters::RegisterPlatformFilters();
    struct Uninit {
        ~Uninit() { CoUninitialize(); }
    } uninit;
    ComPtr<IGraphBuilder> graph;
    if (FAILED(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                                reinterpret_cast<void**>(graph.ReleaseAndGetAddressOf()))))
        throw Failure("the filter graph is not available");
    ComPtr<IBaseFilter> renderer;
    if (o.null) {
        CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                         reinterpret_cast<void**>(renderer.ReleaseAndGetAddressOf()));
        graph->AddFilter(renderer.Get(), u"Null Renderer");
    } else if (!o.device.empty()) {
        renderer = RendererByName(o.device);
        if (!renderer)
            throw Failure("no audio renderer \"" + o.device + "\" (see mediawire filters)");
        graph->AddFilter(renderer.Get(), u"Audio Render");
    }
    HRESULT hr = graph->RenderFile(Utf8ToUtf16(o.file).c_str(), nullptr);
    if (FAILED(hr)) throw Failure("can't render " + o.file + " (" + Hr(hr) + ")");
    if (hr != S_OK) Warn("only some streams of " + o.file + " could be rendered");

    std::vector<std::string> filters;
    std::vector<Link> links;
    Describe(graph.Get(), &filters, &links);
    if (o.printGraph) {
        Say("Filters:");
        for (const auto& f : filters)
            Say("  " + f);
        Say("Connections:");
        for (const auto& l : links)
            Say("  " + l.from + " [" + l.fromPin + "] -> " + l.to + " [" + l.toPin +
                "]: " + l.type);
    }
    if (!o.dot.empty()) {
        std::ofstream dot(o.dot);
        dot << "digraph graph_service {\n  rankdir=LR;\n  node [shape=box];\n";
        for (const auto& f : filters)
            dot << "  " << Quoted(f) << ";\n";
        for (const auto& l : links)
            dot << "  " << Quoted(l.from) << " -> " << Quoted(l.to)
                << " [label=" << Quoted(l.fromPin + " > " + l.toPin + "\\n" + l.type) << "];\n";
        dot << "}\n";
        if (!dot) throw Failure("can't write " + o.dot);
    }

    auto control = As<IMediaControl>(graph.Get());
    auto events = As<IMediaEventEx>(graph.Get());
    auto seeking = As<IMediaSeeking>(graph.Get());
    LONGLONG duration = 0;
    if (seeking) seeking->GetDuration(&duration);
    hr = control->Run();
    if (FAILED(hr)) throw Failure("can't run the graph (" + Hr(hr) + ")");
    ProgressLine progress;
    for (;;) {
        if (Interrupted()) {
            control->Stop();
            progress.Finish();
            return ExitInterrupted();
        }
        LONG code;
        LONG_PTR p1, p2;
        if (events->GetEvent(&code, &p1, &p2, 100) == S_OK) {
            events->FreeEventParams(code, p1, p2);
            if (code == EC_COMPLETE) break;
            if (code == EC_ERRORABORT || code == EC_DEVICE_LOST || code == EC_USERABORT) {
                control->Stop();
                progress.Finish();
                throw Failure(code == EC_DEVICE_LOST
                                  ? "the output device was lost"
                                  : "playback aborted (" + Hr(static_cast<HRESULT>(p1)) + ")");
            }
        }
        LONGLONG now = 0;
        if (seeking) seeking->GetCurrentPosition(&now);
        char line[64];
        std::snprintf(line, sizeof line, "%.1f / %.1f s", now / 1e7, duration / 1e7);
        progress.Show(line);
    }
    char line[64];
    std::snprintf(line, sizeof line, "%.1f / %.1f s", duration / 1e7, duration / 1e7);
    progress.Show(line);
    progress.Finish();
    control->Stop();
    return kExitOk;
}

const CommandRegistration kRender{
    "render", "Render a media file through the filter graph and run it to the end",
    [](CLI::App& command) -> CommandRun {
        auto o = std::make_shared<Options>();
        command.add_option("file", o->file, "The media file")->required();
        command.add_option("--device", o->device, "An audio renderer by friendly name");
        command.add_flag("--null", o->null, "Render into the null renderer, as fast as it goes");
        command.add_flag("--graph", o->printGraph, "Print the filters and connections");
        command.add_option("--dot", o->dot, "Write the graph for Graphviz to this file");
        return [o] {
            if (o->null && !o->device.empty())
                throw UsageError("--null and --device exclude each other");
            return Render(*o);
        };
    }};

}  // namespace
}  // namespace mw::tool
