// Bytes per second through SendData of the binary source filter, its one-buffer allocator and
// a connected input pin that only looks at each sample, for 4 KiB and 64 KiB samples, printed
// next to the memcpy rate of the same sizes on this machine.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "media_base/DSBaseClass.h"
#include "platform/graph/MemAllocator.h"

namespace {

const CLSID kBenchClsid = {0x6D656469, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}};

// An input pin that accepts every type and reads one byte of each sample.
class NullInputPin : public TDSBaseInputPin {
public:
    NullInputPin(TDSBaseFilter* filter, ICriticalSection* lock)
        : TDSBaseInputPin("BenchInput", filter, lock, &FResult, u"In") {}
    HRESULT CheckMediaType(const AM_MEDIA_TYPE*) override { return S_OK; }
    STDMETHODIMP Receive(IMediaSample* sample) override {
        const HRESULT hr = TDSBaseInputPin::Receive(sample);
        if (hr != S_OK) return hr;
        BYTE* p = nullptr;
        sample->GetPointer(&p);
        Checksum += p[0] + static_cast<unsigned>(sample->GetActualDataLength());
        return S_OK;
    }
    unsigned Checksum = 0;

private:
    HRESULT FResult = S_OK;
};

class NullSink : public TDSBaseFilter {
public:
    NullSink() : TDSBaseFilter("BenchSink", nullptr, kBenchClsid) {
        FPin = new NullInputPin(this, FLock.Get());
    }
    ~NullSink() override { delete FPin; }
    int GetPinCount() override { return 1; }
    TDSBasePin* GetPin(int index) override { return index == 0 ? FPin : nullptr; }
    NullInputPin* In() const { return FPin; }

private:
    NullInputPin* FPin;
};

double Seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

double SendDataRate(int sampleSize, size_t totalBytes) {
    auto* source = new TDSBinarySourceFilter("BenchSource", kBenchClsid);
    ComPtr<IBaseFilter> sourceRef = source->AsBaseFilter();
    auto* sink = new NullSink();
    ComPtr<IBaseFilter> sinkRef = sink->AsBaseFilter();
    AM_MEDIA_TYPE type{};
    type.majortype = MEDIATYPE_Stream;
    source->SetMediaType(&type);
    source->SetFormat(sampleSize);
    if (source->Pin()->Connect(sink->In()->AsPin(), nullptr) != S_OK || sinkRef->Run(0) != S_OK ||
        sourceRef->Run(0) != S_OK) {
        std::fprintf(stderr, "could not build the bench graph\n");
        return 0;
    }
    std::vector<BYTE> data(static_cast<size_t>(sampleSize), 0x5A);
    const size_t rounds = totalBytes / data.size();
    const auto t0 = std::chrono::steady_clock::now();
    for (size_t i = 0; i < rounds; ++i)
        source->SendData(data.data(), sampleSize);
    const double seconds = Seconds(std::chrono::steady_clock::now() - t0);
    sinkRef->Stop();
    sourceRef->Stop();
    source->Pin()->Disconnect();
    sink->In()->Disconnect();
    if (sink->In()->Checksum == 0) std::fprintf(stderr, "nothing arrived\n");
    return static_cast<double>(rounds * data.size()) / seconds;
}

double MemcpyRate(int size, size_t totalBytes) {
    // The source is a vector like the caller's buffer; the target a separate block, as the
    // allocator's buffer is.
    std::vector<BYTE> from(static_cast<size_t>(size), 0x5A);
    BYTE* to = static_cast<BYTE*>(std::aligned_alloc(64, from.size()));
    const size_t rounds = totalBytes / from.size();
    volatile BYTE sink = 0;
    const auto t0 = std::chrono::steady_clock::now();
    for (size_t i = 0; i < rounds; ++i) {
        std::memcpy(to, from.data(), from.size());
        sink = sink + to[i % from.size()];
    }
    const double seconds = Seconds(std::chrono::steady_clock::now() - t0);
    std::free(to);
    return static_cast<double>(rounds * from.size()) / seconds;
}

}  // namespace

int main(int argc, char** argv) {
    // An optional argument sets the MiB of each run (smaller for a run under a profiler).
    const size_t mib = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 256;
    CoInitialize(nullptr);
    mw::graph::RegisterMemoryAllocator();
    std::printf("%-10s %16s %16s %8s %22s\n", "sample", "SendData MB/s", "memcpy MB/s", "ratio",
                "ns per sample besides");
    for (int size : {4 * 1024, 64 * 1024}) {
        // The best of three runs of 256 MiB each: the machine is shared.
        const size_t total = std::max<size_t>(mib, 1) << 20;
        double send = 0, copy = 0;
        for (int run = 0; run < 3; ++run) {
            send = std::max(send, SendDataRate(size, total));
            copy = std::max(copy, MemcpyRate(size, total));
        }
        // What a sample costs besides its copy: the time of one sample minus that of one copy.
        const double overheadNs = (size / send - size / copy) * 1e9;
        std::printf("%-10s %16.0f %16.0f %8.2f %22.0f\n", size == 4096 ? "4 KiB" : "64 KiB",
                    send / 1e6, copy / 1e6, send / copy, overheadNs);
    }
    CoUninitialize();
    return 0;
}
