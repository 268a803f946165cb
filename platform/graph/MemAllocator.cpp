// The memory allocator behind CLSID_MemoryAllocator and its IMediaSample2 samples.
#include "platform/graph/MemAllocator.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "mwcom.h"
#include "objbase.h"
#include "uuids.h"

namespace mw::graph {
namespace {

class MemoryAllocator;

// A free-list sample. Its reference count starts at 1 when GetBuffer hands it out; the last
// Release gives it back to its allocator instead of deleting it.
class MediaSample final : public IMediaSample2 {
public:
    MediaSample(MemoryAllocator* owner, BYTE* buffer, LONG size)
        : FOwner(owner), FBuffer(buffer), FSize(size) {}
    ~MediaSample() { ClearType(); }

    // Puts the sample in its fresh state: no times, flags, type or data.
    void ResetState() {
        FFlags = 0;
        FStart = FStop = 0;
        FMediaStart = FMediaStop = 0;
        FMediaTimeValid = false;
        FActual = 0;
        FTypeSpecificFlags = 0;
        FStreamId = AM_STREAM_MEDIA;
        ClearType();
    }
    void HandOut(DWORD flags) {
        FRefCount.store(1);
        if (flags & AM_GBF_PREVFRAMESKIPPED) FFlags |= AM_SAMPLE_DATADISCONTINUITY;
    }
    bool InUse() const { return FRefCount.load() != 0; }
    MemoryAllocator* Owner() const { return FOwner; }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMediaSample) ||
            IsEqualIID(iid, IID_IMediaSample2)) {
            *object = static_cast<IMediaSample2*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return FRefCount.fetch_add(1) + 1; }
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetPointer(BYTE** buffer) override {
        if (!buffer) return E_POINTER;
        *buffer = FBuffer;
        return S_OK;
    }
    STDMETHODIMP_(LONG) GetSize() override { return FSize; }
    STDMETHODIMP GetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override {
        if (!start || !stop) return E_POINTER;
        if (!(FFlags & AM_SAMPLE_TIMEVALID)) return VFW_E_SAMPLE_TIME_NOT_SET;
        *start = FStart;
        if (FFlags & AM_SAMPLE_STOPVALID) {
            *stop = FStop;
            return S_OK;
        }
        *stop = FStart + 1;
        return VFW_S_NO_STOP_TIME;
    }
    STDMETHODIMP SetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override {
        FFlags &= ~static_cast<DWORD>(AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID);
        if (!start) return S_OK;
        FStart = *start;
        FFlags |= AM_SAMPLE_TIMEVALID;
        if (stop) {
            FStop = *stop;
            FFlags |= AM_SAMPLE_STOPVALID;
        }
        return S_OK;
    }
    STDMETHODIMP IsSyncPoint() override {
        return (FFlags & AM_SAMPLE_SPLICEPOINT) ? S_OK : S_FALSE;
    }
    STDMETHODIMP SetSyncPoint(BOOL value) override { return SetFlag(AM_SAMPLE_SPLICEPOINT, value); }
    STDMETHODIMP IsPreroll() override { return (FFlags & AM_SAMPLE_PREROLL) ? S_OK : S_FALSE; }
    STDMETHODIMP SetPreroll(BOOL value) override { return SetFlag(AM_SAMPLE_PREROLL, value); }
    STDMETHODIMP_(LONG) GetActualDataLength() override { return FActual; }
    STDMETHODIMP SetActualDataLength(LONG length) override {
        if (length < 0 || length > FSize) return VFW_E_BUFFER_OVERFLOW;
        FActual = length;
        return S_OK;
    }
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** type) override {
        if (!type) return E_POINTER;
        *type = nullptr;
        if (!(FFlags & AM_SAMPLE_TYPECHANGED) || !FType) return S_FALSE;
        *type = CopyType(*FType);
        return *type ? S_OK : E_OUTOFMEMORY;
    }
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* type) override {
        ClearType();
        FFlags &= ~static_cast<DWORD>(AM_SAMPLE_TYPECHANGED);
        if (!type) return S_OK;
        FType = CopyType(*type);
        if (!FType) return E_OUTOFMEMORY;
        FFlags |= AM_SAMPLE_TYPECHANGED;
        return S_OK;
    }
    STDMETHODIMP IsDiscontinuity() override {
        return (FFlags & AM_SAMPLE_DATADISCONTINUITY) ? S_OK : S_FALSE;
    }
    STDMETHODIMP SetDiscontinuity(BOOL value) override {
        return SetFlag(AM_SAMPLE_DATADISCONTINUITY, value);
    }
    STDMETHODIMP GetMediaTime(LONGLONG* start, LONGLONG* stop) override {
        if (!start || !stop) return E_POINTER;
        if (!FMediaTimeValid) return VFW_E_MEDIA_TIME_NOT_SET;
        *start = FMediaStart;
        *stop = FMediaStop;
        return S_OK;
    }
    STDMETHODIMP SetMediaTime(LONGLONG* start, LONGLONG* stop) override {
        if (!start || !stop) {
            FMediaTimeValid = false;
            return S_OK;
        }
        FMediaStart = *start;
        FMediaStop = *stop;
        FMediaTimeValid = true;
        return S_OK;
    }

    // The record as the platform lays it out; the type pointer and buffer stay the sample's.
    STDMETHODIMP GetProperties(DWORD size, BYTE* properties) override {
        if (!properties) return E_POINTER;
        AM_SAMPLE2_PROPERTIES p{};
        p.cbData = static_cast<DWORD>(std::min<size_t>(size, sizeof p));
        p.dwTypeSpecificFlags = FTypeSpecificFlags;
        p.dwSampleFlags = FFlags;
        p.lActual = FActual;
        p.tStart = FStart;
        p.tStop = FStop;
        p.dwStreamId = FStreamId;
        p.pMediaType = (FFlags & AM_SAMPLE_TYPECHANGED) ? FType : nullptr;
        p.pbBuffer = FBuffer;
        p.cbBuffer = FSize;
        std::memcpy(properties, &p, p.cbData);
        return S_OK;
    }
    STDMETHODIMP SetProperties(DWORD size, const BYTE* properties) override {
        if (!properties) return E_POINTER;
        if (size < sizeof(DWORD)) return E_INVALIDARG;
        AM_SAMPLE2_PROPERTIES p{};
        std::memcpy(&p, properties, std::min<size_t>(size, sizeof p));
        if (p.cbData < offsetof(AM_SAMPLE2_PROPERTIES, dwStreamId) || p.cbData > size)
            return E_INVALIDARG;
        if (p.cbData >= offsetof(AM_SAMPLE2_PROPERTIES, pbBuffer) + sizeof p.pbBuffer &&
            p.pbBuffer && p.pbBuffer != FBuffer)
            return E_INVALIDARG;
        if (p.lActual < 0 || p.lActual > FSize) return VFW_E_BUFFER_OVERFLOW;
        if (p.cbData >= offsetof(AM_SAMPLE2_PROPERTIES, pbBuffer) &&
            (p.dwSampleFlags & AM_SAMPLE_TYPECHANGED)) {
            AM_MEDIA_TYPE* type = p.pMediaType ? CopyType(*p.pMediaType) : nullptr;
            if (p.pMediaType && !type) return E_OUTOFMEMORY;
            ClearType();
            FType = type;
        } else if (!(p.dwSampleFlags & AM_SAMPLE_TYPECHANGED)) {
            ClearType();
        }
        FTypeSpecificFlags = p.dwTypeSpecificFlags;
        FFlags = p.dwSampleFlags;
        FActual = p.lActual;
        FStart = p.tStart;
        FStop = p.tStop;
        if (p.cbData >= offsetof(AM_SAMPLE2_PROPERTIES, pMediaType)) FStreamId = p.dwStreamId;
        return S_OK;
    }

private:
    HRESULT SetFlag(DWORD flag, BOOL value) {
        if (value)
            FFlags |= flag;
        else
            FFlags &= ~flag;
        return S_OK;
    }
    // A task-memory record with its own format block and a reference on pUnk.
    static AM_MEDIA_TYPE* CopyType(const AM_MEDIA_TYPE& source) {
        auto* copy = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
        if (!copy) return nullptr;
        *copy = source;
        if (source.cbFormat != 0 && source.pbFormat) {
            copy->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(source.cbFormat));
            if (!copy->pbFormat) {
                CoTaskMemFree(copy);
                return nullptr;
            }
            std::memcpy(copy->pbFormat, source.pbFormat, source.cbFormat);
        } else {
            copy->cbFormat = 0;
            copy->pbFormat = nullptr;
        }
        if (copy->pUnk) copy->pUnk->AddRef();
        return copy;
    }
    void ClearType() {
        if (!FType) return;
        if (FType->cbFormat) CoTaskMemFree(FType->pbFormat);
        if (FType->pUnk) FType->pUnk->Release();
        CoTaskMemFree(FType);
        FType = nullptr;
    }

    MemoryAllocator* const FOwner;
    BYTE* const FBuffer;
    const LONG FSize;
    std::atomic<ULONG> FRefCount{0};
    DWORD FFlags = 0;
    REFERENCE_TIME FStart = 0;
    REFERENCE_TIME FStop = 0;
    LONGLONG FMediaStart = 0;
    LONGLONG FMediaStop = 0;
    bool FMediaTimeValid = false;
    LONG FActual = 0;
    DWORD FTypeSpecificFlags = 0;
    DWORD FStreamId = AM_STREAM_MEDIA;
    AM_MEDIA_TYPE* FType = nullptr;
};

class MemoryAllocator final : public IMemAllocator {
public:
    ~MemoryAllocator() { FreeMemory(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMemAllocator)) {
            *object = static_cast<IMemAllocator*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return FRefCount.fetch_add(1) + 1; }
    // The samples out keep the allocator: once no one else holds it, the last sample back
    // frees it. This costs nothing per sample, where a reference per sample out would cost two
    // atomic operations on each round trip.
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG n = FRefCount.fetch_sub(1) - 1;
        if (n == 0) {
            bool idle;
            {
                std::lock_guard<std::mutex> lock(FMutex);
                FUnreferenced = true;
                idle = Outstanding() == 0;
            }
            if (idle) delete this;
        }
        return n;
    }

    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* request,
                               ALLOCATOR_PROPERTIES* actual) override {
        if (!request || !actual) return E_POINTER;
        std::lock_guard<std::mutex> lock(FMutex);
        if (FCommitted) return VFW_E_ALREADY_COMMITTED;
        if (Outstanding() != 0) return VFW_E_BUFFERS_OUTSTANDING;
        const LONG align = request->cbAlign;
        if (align <= 0 || (align & (align - 1)) != 0) return VFW_E_BADALIGN;
        if (request->cBuffers < 0 || request->cbBuffer < 0 || request->cbPrefix < 0)
            return E_INVALIDARG;
        // Each buffer plus its prefix spans a whole number of alignment units.
        LONG size = request->cbBuffer + request->cbPrefix;
        size = (size + align - 1) / align * align;
        FProperties.cBuffers = request->cBuffers;
        FProperties.cbBuffer = size - request->cbPrefix;
        FProperties.cbAlign = align;
        FProperties.cbPrefix = request->cbPrefix;
        FPropertiesChanged = true;
        *actual = FProperties;
        return S_OK;
    }

    STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* properties) override {
        if (!properties) return E_POINTER;
        std::lock_guard<std::mutex> lock(FMutex);
        *properties = FProperties;
        return S_OK;
    }

    STDMETHODIMP Commit() override {
        std::lock_guard<std::mutex> lock(FMutex);
        if (FCommitted) return S_OK;
        if (FProperties.cBuffers <= 0 || FProperties.cbBuffer <= 0) return VFW_E_SIZENOTSET;
        if (FSamples.empty() || FPropertiesChanged) {
            if (Outstanding() != 0) return VFW_E_BUFFERS_OUTSTANDING;
            FreeMemory();
            if (!AllocateMemory()) return E_OUTOFMEMORY;
        }
        FCommitted = true;
        return S_OK;
    }

    STDMETHODIMP Decommit() override {
        std::lock_guard<std::mutex> lock(FMutex);
        if (!FCommitted) return S_OK;
        FCommitted = false;
        // Blocked GetBuffer calls wake up and fail; the memory goes when every sample is back.
        FFreed.notify_all();
        if (Outstanding() == 0) FreeMemory();
        return S_OK;
    }

    STDMETHODIMP GetBuffer(IMediaSample** sample, REFERENCE_TIME*, REFERENCE_TIME*,
                           DWORD flags) override {
        if (!sample) return E_POINTER;
        *sample = nullptr;
        MediaSample* taken = nullptr;
        {
            std::unique_lock<std::mutex> lock(FMutex);
            for (;;) {
                if (!FCommitted) return VFW_E_NOT_COMMITTED;
                if (!FFree.empty()) break;
                if (flags & AM_GBF_NOWAIT) return VFW_E_TIMEOUT;
                ++FWaiters;
                FFreed.wait(lock);
                --FWaiters;
            }
            taken = FFree.back();
            FFree.pop_back();
        }
        taken->HandOut(flags);
        *sample = taken;
        return S_OK;
    }

    STDMETHODIMP ReleaseBuffer(IMediaSample* buffer) override {
        if (!buffer) return E_POINTER;
        bool unreferenced;
        {
            std::lock_guard<std::mutex> lock(FMutex);
            // Compared as interface pointers: a sample of another kind is never cast.
            MediaSample* sample = nullptr;
            for (const auto& s : FSamples)
                if (static_cast<IMediaSample*>(s.get()) == buffer) sample = s.get();
            if (!sample || sample->InUse()) return E_INVALIDARG;
            for (MediaSample* free : FFree)
                if (free == sample) return E_INVALIDARG;
            sample->ResetState();
            unreferenced = PutBack(sample);
        }
        if (unreferenced) delete this;
        return S_OK;
    }

    // Takes back a sample of this allocator whose last reference has gone. The allocator may go
    // with it.
    void Recycle(MediaSample* sample) {
        sample->ResetState();  // no one else holds the sample now
        bool unreferenced;
        {
            std::lock_guard<std::mutex> lock(FMutex);
            unreferenced = PutBack(sample);
        }
        if (unreferenced) delete this;
    }

private:
    size_t Outstanding() const { return FSamples.size() - FFree.size(); }

    // Under the lock: the sample joins the free list, memory goes once a decommitted allocator
    // has every sample back. True when the allocator is to be freed now.
    bool PutBack(MediaSample* sample) {
        FFree.push_back(sample);
        if (!FCommitted && Outstanding() == 0)
            FreeMemory();
        else if (FWaiters != 0)
            FFreed.notify_one();
        return FUnreferenced && Outstanding() == 0;
    }

    bool AllocateMemory() {
        const size_t stride =
            static_cast<size_t>(FProperties.cbBuffer) + static_cast<size_t>(FProperties.cbPrefix);
        const size_t align =
            std::max<size_t>(static_cast<size_t>(FProperties.cbAlign), alignof(std::max_align_t));
        const size_t total =
            (stride * static_cast<size_t>(FProperties.cBuffers) + align - 1) / align * align;
        FMemory = static_cast<BYTE*>(std::aligned_alloc(align, total));
        if (!FMemory) return false;
        for (LONG i = 0; i < FProperties.cBuffers; ++i) {
            BYTE* data = FMemory + stride * static_cast<size_t>(i) +
                         static_cast<size_t>(FProperties.cbPrefix);
            FSamples.push_back(std::make_unique<MediaSample>(this, data, FProperties.cbBuffer));
            FFree.push_back(FSamples.back().get());
        }
        FPropertiesChanged = false;
        return true;
    }

    void FreeMemory() {
        FFree.clear();
        FSamples.clear();
        std::free(FMemory);
        FMemory = nullptr;
    }

    std::atomic<ULONG> FRefCount{0};
    std::mutex FMutex;
    std::condition_variable FFreed;
    ALLOCATOR_PROPERTIES FProperties{};
    bool FPropertiesChanged = false;
    bool FCommitted = false;
    bool FUnreferenced = false;  // no reference left: the last sample back frees the allocator
    int FWaiters = 0;            // GetBuffer calls waiting for a sample
    BYTE* FMemory = nullptr;
    std::vector<std::unique_ptr<MediaSample>> FSamples;
    std::vector<MediaSample*> FFree;
};

STDMETHODIMP_(ULONG) MediaSample::Release() {
    const ULONG n = FRefCount.fetch_sub(1) - 1;
    if (n == 0) FOwner->Recycle(this);  // nothing of the sample is touched after this
    return n;
}

}  // namespace

HRESULT CreateMemoryAllocator(IUnknown* outer, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    auto* allocator = new (std::nothrow) MemoryAllocator();
    if (!allocator) return E_OUTOFMEMORY;
    allocator->AddRef();
    const HRESULT hr = allocator->QueryInterface(iid, object);
    allocator->Release();
    return hr;
}

HRESULT RegisterMemoryAllocator() {
    static const DWORD cookie = RegisterComClass(CLSID_MemoryAllocator, &CreateMemoryAllocator);
    return cookie != 0 ? S_OK : E_FAIL;
}

namespace {
// Linking the allocator in is enough for CoCreateInstance to know it.
[[maybe_unused]] const HRESULT kRegisteredAtStartUp = RegisterMemoryAllocator();
}  // namespace

}  // namespace mw::graph
