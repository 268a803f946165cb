// Periodic advice of the system clock and of the audio renderer's clock (playing on the paced
// "Virtual Output"): lateness of each semaphore release against its due time, median and p99.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "comptr.h"
#include "control.h"
#include "mwdevices.h"
#include "mwstring.h"
#include "mwwave.h"
#include "objbase.h"
#include "oleauto.h"
#include "platform/filters/PlatformFilters.h"
#include "platform/graph/ReferenceClock.h"
#include "strmif.h"
#include "tests/playback/MediaFiles.h"
#include "uuids.h"
#include "winbase.h"

namespace {

constexpr REFERENCE_TIME kPeriod = 100000;  // 10 ms
constexpr int kTicks = 500;

// Waits for each release and notes how late it came against its due time.
void Measure(const char* what, IReferenceClock* clock) {
    HANDLE sem = CreateSemaphoreW(nullptr, 0, 100000, nullptr);
    REFERENCE_TIME now = 0;
    clock->GetTime(&now);
    DWORD_PTR cookie = 0;
    clock->AdvisePeriodic(now + kPeriod, kPeriod, reinterpret_cast<HSEMAPHORE>(sem), &cookie);
    // Due times and arrival times both by the clock itself.
    std::vector<double> late;
    for (int i = 0; i < kTicks; ++i) {
        WaitForSingleObject(sem, INFINITE);
        REFERENCE_TIME at = 0;
        clock->GetTime(&at);
        late.push_back((at - (now + (i + 1) * kPeriod)) / 10000.0);
    }
    clock->Unadvise(cookie);
    CloseHandle(sem);
    std::sort(late.begin(), late.end());
    std::printf(
        "%s: period 10 ms, %d releases: lateness median %.3f ms, p99 %.3f ms, "
        "max %.3f ms, min %.3f ms\n",
        what, kTicks, late[late.size() / 2], late[late.size() * 99 / 100], late.back(),
        late.front());
}

}  // namespace

int main() {
    CoInitialize(nullptr);
    mw::filters::RegisterPlatformFilters();
    {
        ComPtr<IReferenceClock> clock;
        CoCreateInstance(CLSID_SystemClock, nullptr, CLSCTX_INPROC_SERVER, IID_IReferenceClock,
                         reinterpret_cast<void**>(clock.ReleaseAndGetAddressOf()));
        Measure("system clock", clock.Get());
    }
    // The renderer of "Virtual Output" playing a file of silence in real time.
    mw::test::TempDir dir;
    const std::string path = dir.File("silence.wav");
    mw::test::WriteWav(path, 48000, 2, 16, false, std::vector<uint8_t>(48000 * 4 * 10));
    ComPtr<IBaseFilter> renderer;
    {
        std::vector<ComPtr<IMoniker>> monikers;
        mw::EnumDeviceMonikers(CLSID_AudioRendererCategory, &monikers);
        for (auto& m : monikers) {
            ComPtr<IPropertyBag> bag;
            m->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                             reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()));
            VARIANT v;
            VariantInit(&v);
            if (bag && SUCCEEDED(bag->Read(u"FriendlyName", &v, nullptr)) &&
                std::u16string(v.bstrVal) == u"Virtual Output")
                m->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                reinterpret_cast<void**>(renderer.ReleaseAndGetAddressOf()));
            VariantClear(&v);
        }
    }
    ComPtr<IGraphBuilder> graph;
    CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                     reinterpret_cast<void**>(graph.ReleaseAndGetAddressOf()));
    if (!renderer || FAILED(graph->AddFilter(renderer.Get(), u"Audio Render")) ||
        FAILED(graph->RenderFile(mw::Utf8ToUtf16(path).c_str(), nullptr))) {
        std::printf("could not build the graph to Virtual Output\n");
        return 1;
    }
    ComPtr<IMediaControl> control;
    graph->QueryInterface(IID_IMediaControl,
                          reinterpret_cast<void**>(control.ReleaseAndGetAddressOf()));
    control->Run();
    ComPtr<IReferenceClock> clock;
    renderer->QueryInterface(IID_IReferenceClock,
                             reinterpret_cast<void**>(clock.ReleaseAndGetAddressOf()));
    Measure("audio renderer clock (Virtual Output, playing)", clock.Get());
    control->Stop();
    CoUninitialize();
    return 0;
}
