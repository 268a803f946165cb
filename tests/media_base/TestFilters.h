// Small filters for connecting the system's filters as a graph manager would: a sink whose
// input pin records what it receives, a filter of plain output pins, and a counting allocator.
// Tests hold filters through ComPtr<IBaseFilter>; a filter's life ends with its last reference.
#pragma once

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "media_base/DSBaseClass.h"
#include "platform/graph/MemAllocator.h"

namespace mw::test {

inline const CLSID kTestClsid = {0x1A2B3C4D, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}};

// A stereo 16-bit PCM format at the given rate.
inline TQAWaveFormatExtensible PcmFormat(DWORD rate = 44100, WORD channels = 2, WORD bits = 16) {
    TQAWaveFormatExtensible f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = channels;
    f.nSamplesPerSec = rate;
    f.wBitsPerSample = bits;
    f.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    return f;
}

// An audio type record owning its block.
struct OwnedType {
    AM_MEDIA_TYPE mt{};
    OwnedType() = default;
    explicit OwnedType(const TQAWaveFormatExtensible& f) { CreateAudioMediaType(&f, &mt, TRUE); }
    OwnedType(const GUID& major, const GUID& sub) {
        mt.majortype = major;
        mt.subtype = sub;
    }
    OwnedType(const OwnedType& o) { DSCopyMediaType(&mt, &o.mt); }
    OwnedType& operator=(const OwnedType&) = delete;
    ~OwnedType() { DSClearMediaType(&mt); }
};

// Counts GetBuffer requests and forwards everything to a real memory allocator.
class CountingAllocator : public TInterfacedObject<IMemAllocator> {
public:
    CountingAllocator() {
        mw::graph::CreateMemoryAllocator(nullptr, IID_IMemAllocator,
                                         FInner.ReleaseAndGetVoidAddress());
    }
    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* r, ALLOCATOR_PROPERTIES* a) override {
        return FInner->SetProperties(r, a);
    }
    STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* p) override {
        return FInner->GetProperties(p);
    }
    STDMETHODIMP Commit() override { return FInner->Commit(); }
    STDMETHODIMP Decommit() override { return FInner->Decommit(); }
    STDMETHODIMP GetBuffer(IMediaSample** s, REFERENCE_TIME* a, REFERENCE_TIME* b,
                           DWORD f) override {
        ++Requests;
        return FInner->GetBuffer(s, a, b, f);
    }
    STDMETHODIMP ReleaseBuffer(IMediaSample* s) override { return FInner->ReleaseBuffer(s); }
    std::atomic<int> Requests{0};

private:
    ComPtr<IMemAllocator> FInner;
};

// What the sink saw of one sample.
struct ReceivedSample {
    std::vector<BYTE> data;
    HRESULT timeResult = E_FAIL;
    REFERENCE_TIME start = 0, stop = 0;
    bool syncPoint = false;
};

class TTestSinkFilter;

// An input pin that offers a list of types, accepts what a predicate accepts and records the
// samples it receives. Optionally keeps the last sample (so that a one-buffer sender blocks).
class TTestInputPin : public TDSBaseInputPin {
public:
    TTestInputPin(TDSBaseFilter* filter, ICriticalSection* lock)
        : TDSBaseInputPin("TestInput", filter, lock, &FResult, u"In") {}
    ~TTestInputPin() override = default;

    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override {
        ++CheckCalls;
        if (Accept) return Accept(*type);
        return S_OK;
    }
    HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) override {
        if (position < 0) return E_INVALIDARG;
        if (position >= static_cast<int>(Offered.size())) return VFW_S_NO_MORE_ITEMS;
        DSCopyMediaType(type, &Offered[static_cast<size_t>(position)].mt);
        return S_OK;
    }
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** e) override {
        ++EnumCalls;
        return TDSBaseInputPin::EnumMediaTypes(e);
    }
    STDMETHODIMP GetAllocator(IMemAllocator** allocator) override {
        if (OnGetAllocator) OnGetAllocator();
        if (FailGetAllocator) return E_NOTIMPL;
        if (OwnAllocator) {
            std::lock_guard<std::mutex> l(FMutex);
            if (!FAllocator) FAllocator = OwnAllocator;
        }
        return TDSBaseInputPin::GetAllocator(allocator);
    }
    STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override {
        {
            std::lock_guard<std::mutex> l(FMutex);
            if (RefuseOwnAllocator && FAllocator && allocator == FAllocator.Get()) return E_FAIL;
            ++NotifyCalls;
        }
        return TDSBaseInputPin::NotifyAllocator(allocator, readOnly);
    }
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* p) override {
        if (!Requirements) return TDSBaseInputPin::GetAllocatorRequirements(p);
        *p = *Requirements;
        return S_OK;
    }
    STDMETHODIMP Receive(IMediaSample* sample) override {
        if (OnReceive) OnReceive();
        const HRESULT hr = TDSBaseInputPin::Receive(sample);
        LastReceive = hr;
        if (hr != S_OK) return hr;
        ReceivedSample r;
        BYTE* p = nullptr;
        sample->GetPointer(&p);
        r.data.assign(p, p + sample->GetActualDataLength());
        r.timeResult = sample->GetTime(&r.start, &r.stop);
        r.syncPoint = sample->IsSyncPoint() == S_OK;
        std::lock_guard<std::mutex> l(FMutex);
        Samples.push_back(std::move(r));
        if (HoldSamples) Held.push_back(ComPtr<IMediaSample>(sample));
        ++ReceivedCount;
        return S_OK;
    }
    STDMETHODIMP EndOfStream() override {
        ++EndOfStreams;
        return TDSBaseInputPin::EndOfStream();
    }
    STDMETHODIMP ReceiveCanBlock() override {
        return CanBlock ? CanBlock() : TDSBaseInputPin::ReceiveCanBlock();
    }
    STDMETHODIMP BeginFlush() override {
        ++BeginFlushes;
        return TDSBaseInputPin::BeginFlush();
    }
    STDMETHODIMP EndFlush() override {
        ++EndFlushes;
        return TDSBaseInputPin::EndFlush();
    }
    // Lets held samples go back to their allocator.
    void ReleaseHeld() {
        std::vector<ComPtr<IMediaSample>> held;
        {
            std::lock_guard<std::mutex> l(FMutex);
            held.swap(Held);
        }
    }
    std::vector<ReceivedSample> TakeSamples() {
        std::lock_guard<std::mutex> l(FMutex);
        return std::move(Samples);
    }
    // Marks the pin connected to peer without a handshake, for tests of the filter walk.
    void ForceConnected(IPin* peer) { SetConnected(peer); }

    std::vector<OwnedType> Offered;
    std::function<HRESULT(const AM_MEDIA_TYPE&)> Accept;
    std::function<HRESULT()> CanBlock;     // the answer of ReceiveCanBlock, when set
    std::function<void()> OnGetAllocator;  // runs as the output pin chooses the allocator
    std::function<void()> OnReceive;       // runs on the streaming thread before each sample
    bool FailGetAllocator = false;
    bool RefuseOwnAllocator = false;
    std::atomic<bool> HoldSamples{false};
    ComPtr<IMemAllocator> OwnAllocator;
    const ALLOCATOR_PROPERTIES* Requirements = nullptr;
    std::atomic<int> CheckCalls{0}, EnumCalls{0}, NotifyCalls{0}, EndOfStreams{0}, BeginFlushes{0},
        EndFlushes{0};
    std::atomic<int> ReceivedCount{0};
    std::atomic<HRESULT> LastReceive{S_OK};

private:
    HRESULT FResult = S_OK;
    std::mutex FMutex;
    std::vector<ReceivedSample> Samples;
    std::vector<ComPtr<IMediaSample>> Held;
};

// A filter with one recording input pin. *destroyed becomes true when the filter is freed.
class TTestSinkFilter : public TDSBaseFilter {
public:
    explicit TTestSinkFilter(bool* destroyed = nullptr)
        : TDSBaseFilter("TestSink", nullptr, kTestClsid), FDestroyed(destroyed) {
        FPin = new TTestInputPin(this, FLock.Get());
    }
    ~TTestSinkFilter() override {
        delete FPin;
        if (FDestroyed) *FDestroyed = true;
    }
    int GetPinCount() override { return 1; }
    TDSBasePin* GetPin(int index) override { return index == 0 ? FPin : nullptr; }
    TTestInputPin* In() const { return FPin; }

private:
    TTestInputPin* FPin;
    bool* FDestroyed;
};

// An output pin with scripted answers, for the handshake and the filter's state walk.
class TTestOutputPin : public TDSBaseOutputPin {
public:
    TTestOutputPin(TDSBaseFilter* filter, ICriticalSection* lock, const std::u16string& name)
        : TDSBaseOutputPin("TestOutput", filter, lock, &FResult, name) {}

    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override {
        return Accept ? Accept(*type) : S_OK;
    }
    HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) override {
        if (position < 0) return E_INVALIDARG;
        if (position >= static_cast<int>(Offered.size())) return VFW_S_NO_MORE_ITEMS;
        DSCopyMediaType(type, &Offered[static_cast<size_t>(position)].mt);
        return S_OK;
    }
    HRESULT SetMediaType(const AM_MEDIA_TYPE* type) override {
        ++SetMediaTypeCalls;
        if (SetMediaTypeResult) {
            const HRESULT hr = SetMediaTypeResult(SetMediaTypeCalls);
            if (FAILED(hr)) return hr;
        }
        return TDSBaseOutputPin::SetMediaType(type);
    }
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* p) override {
        SeenProperties = *p;
        p->cBuffers = 1;
        p->cbBuffer = 4096;
        ALLOCATOR_PROPERTIES actual{};
        return allocator->SetProperties(p, &actual);
    }
    HRESULT InitAllocator(IMemAllocator** allocator) override {
        ++InitCalls;
        return TDSBaseOutputPin::InitAllocator(allocator);
    }
    HRESULT Active() override {
        ++ActiveCalls;
        return ActiveResult != S_OK ? ActiveResult : TDSBaseOutputPin::Active();
    }
    HRESULT Inactive() override {
        ++InactiveCalls;
        return InactiveResult != S_OK ? InactiveResult : TDSBaseOutputPin::Inactive();
    }
    HRESULT Run(REFERENCE_TIME start) override {
        ++RunCalls;
        return RunResult != S_OK ? RunResult : TDSBaseOutputPin::Run(start);
    }
    void ForceConnected(IPin* peer) { SetConnected(peer); }

    std::vector<OwnedType> Offered;
    std::function<HRESULT(const AM_MEDIA_TYPE&)> Accept;
    std::function<HRESULT(int call)> SetMediaTypeResult;
    int SetMediaTypeCalls = 0, InitCalls = 0, ActiveCalls = 0, InactiveCalls = 0, RunCalls = 0;
    HRESULT ActiveResult = S_OK, InactiveResult = S_OK, RunResult = S_OK;
    ALLOCATOR_PROPERTIES SeenProperties{};

private:
    HRESULT FResult = S_OK;
};

// A filter whose output pins the test adds one by one (each addition changes the pin version).
class TTestOutputFilter : public TDSBaseFilter {
public:
    explicit TTestOutputFilter(bool* destroyed = nullptr)
        : TDSBaseFilter("TestOutputs", nullptr, kTestClsid), FDestroyed(destroyed) {}
    ~TTestOutputFilter() override {
        for (TTestOutputPin* p : FPins)
            delete p;
        if (FDestroyed) *FDestroyed = true;
    }
    TTestOutputPin* AddOutput(const std::u16string& name) {
        FPins.push_back(new TTestOutputPin(this, FLock.Get(), name));
        IncrementPinVersion();
        return FPins.back();
    }
    int GetPinCount() override { return static_cast<int>(FPins.size()); }
    TDSBasePin* GetPin(int index) override {
        if (index == Hole) return nullptr;
        return index >= 0 && index < GetPinCount() ? FPins[static_cast<size_t>(index)] : nullptr;
    }
    TTestOutputPin* Out(int index) const { return FPins[static_cast<size_t>(index)]; }
    int Hole = -1;  // an index whose pin GetPin does not find, as if it had just gone

private:
    std::vector<TTestOutputPin*> FPins;
    bool* FDestroyed;
};

// Each test runs with the platform's COM initialised and its memory allocator registered.
class MediaBaseTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
        ASSERT_TRUE(SUCCEEDED(mw::graph::RegisterMemoryAllocator()));
    }
    void TearDown() override { CoUninitialize(); }
};

// State changes in the order a graph manager uses: downstream filters first.
inline HRESULT GraphPause(IBaseFilter* sink, IBaseFilter* source) {
    HRESULT hr = sink->Pause();
    return FAILED(hr) ? hr : source->Pause();
}
inline HRESULT GraphRun(IBaseFilter* sink, IBaseFilter* source) {
    HRESULT hr = sink->Run(0);
    return FAILED(hr) ? hr : source->Run(0);
}
inline HRESULT GraphStop(IBaseFilter* sink, IBaseFilter* source) {
    HRESULT hr = sink->Stop();
    HRESULT hr2 = source->Stop();
    return FAILED(hr) ? hr : hr2;
}

// Breaks a connection from both ends, as the graph does before it lets filters go.
inline void DisconnectBoth(IPin* output, IPin* input) {
    output->Disconnect();
    input->Disconnect();
}

}  // namespace mw::test
