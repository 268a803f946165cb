// The memory allocator behind CLSID_MemoryAllocator and its samples: properties, commit and
// decommit, blocking GetBuffer, samples returning on their last release, and sample fields.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "comptr.h"
#include "mwcom.h"
#include "platform/graph/MemAllocator.h"
#include "tests/support/Wait.h"
#include "uuids.h"
#include "winbase.h"

using mw::test::ThreadIsBlocked;
using mw::test::WaitUntil;

namespace {

ComPtr<IMemAllocator> NewAllocator(LONG buffers, LONG size, LONG align = 1, LONG prefix = 0) {
    ComPtr<IMemAllocator> a;
    EXPECT_EQ(
        mw::graph::CreateMemoryAllocator(nullptr, IID_IMemAllocator, a.ReleaseAndGetVoidAddress()),
        S_OK);
    ALLOCATOR_PROPERTIES request{buffers, size, align, prefix}, actual{};
    EXPECT_EQ(a->SetProperties(&request, &actual), S_OK);
    return a;
}

// A sample that no allocator made: every method answers E_NOTIMPL.
class ForeignSample : public IMediaSample {
public:
    STDMETHODIMP QueryInterface(REFIID, void** object) override {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP GetPointer(BYTE**) override { return E_NOTIMPL; }
    STDMETHODIMP_(LONG) GetSize() override { return 0; }
    STDMETHODIMP GetTime(REFERENCE_TIME*, REFERENCE_TIME*) override { return E_NOTIMPL; }
    STDMETHODIMP SetTime(REFERENCE_TIME*, REFERENCE_TIME*) override { return E_NOTIMPL; }
    STDMETHODIMP IsSyncPoint() override { return E_NOTIMPL; }
    STDMETHODIMP SetSyncPoint(BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP IsPreroll() override { return E_NOTIMPL; }
    STDMETHODIMP SetPreroll(BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP_(LONG) GetActualDataLength() override { return 0; }
    STDMETHODIMP SetActualDataLength(LONG) override { return E_NOTIMPL; }
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE**) override { return E_NOTIMPL; }
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    STDMETHODIMP IsDiscontinuity() override { return E_NOTIMPL; }
    STDMETHODIMP SetDiscontinuity(BOOL) override { return E_NOTIMPL; }
    STDMETHODIMP GetMediaTime(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
    STDMETHODIMP SetMediaTime(LONGLONG*, LONGLONG*) override { return E_NOTIMPL; }
};

}  // namespace

TEST(MemoryAllocator, ASampleOfAnotherKindIsRefusedWithoutBeingTakenForItsOwn) {
    // Under the undefined-behaviour checker, taking a foreign object for one of the allocator's
    // own samples is reported, not only refused.
    ComPtr<IMemAllocator> a = NewAllocator(2, 64);
    ASSERT_EQ(a->Commit(), S_OK);
    ForeignSample foreign;
    EXPECT_EQ(a->ReleaseBuffer(&foreign), E_INVALIDARG);
    ComPtr<IMediaSample> own;
    ASSERT_EQ(a->GetBuffer(own.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(a->ReleaseBuffer(&foreign), E_INVALIDARG);
    own = nullptr;
    EXPECT_EQ(a->Decommit(), S_OK);
}

TEST(MemoryAllocator, IsCreatedThroughTheClassRegistry) {
    ASSERT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
    ASSERT_EQ(mw::graph::RegisterMemoryAllocator(), S_OK);
    EXPECT_TRUE(mw::IsComClassRegistered(CLSID_MemoryAllocator));
    ComPtr<IMemAllocator> a;
    EXPECT_EQ(CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                               IID_IMemAllocator, a.ReleaseAndGetVoidAddress()),
              S_OK);
    EXPECT_NE(a, nullptr);
    ComPtr<IUnknown> outer = a.As<IUnknown>();
    ComPtr<IUnknown> aggregated;
    EXPECT_EQ(mw::graph::CreateMemoryAllocator(outer.Get(), IID_IUnknown,
                                               aggregated.ReleaseAndGetVoidAddress()),
              CLASS_E_NOAGGREGATION);
    CoUninitialize();
}

TEST(MemoryAllocator, PropertiesAreRoundedUpToTheAlignmentAndCheckedFirst) {
    ComPtr<IMemAllocator> a;
    ASSERT_EQ(
        mw::graph::CreateMemoryAllocator(nullptr, IID_IMemAllocator, a.ReleaseAndGetVoidAddress()),
        S_OK);
    ALLOCATOR_PROPERTIES request{2, 100, 16, 4}, actual{};
    EXPECT_EQ(a->SetProperties(nullptr, &actual), E_POINTER);
    EXPECT_EQ(a->Commit(), VFW_E_SIZENOTSET);
    ALLOCATOR_PROPERTIES badAlign{1, 100, 3, 0};
    EXPECT_EQ(a->SetProperties(&badAlign, &actual), VFW_E_BADALIGN);
    ASSERT_EQ(a->SetProperties(&request, &actual), S_OK);
    EXPECT_EQ(actual.cBuffers, 2);
    EXPECT_EQ(actual.cbBuffer, 108);  // 100 + 4 of prefix rounded to 16, less the prefix
    EXPECT_EQ(actual.cbPrefix, 4);
    ALLOCATOR_PROPERTIES read{};
    ASSERT_EQ(a->GetProperties(&read), S_OK);
    EXPECT_EQ(read.cbBuffer, 108);

    ASSERT_EQ(a->Commit(), S_OK);
    EXPECT_EQ(a->SetProperties(&request, &actual), VFW_E_ALREADY_COMMITTED);
    ComPtr<IMediaSample> s;
    ASSERT_EQ(a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    BYTE* p = nullptr;
    ASSERT_EQ(s->GetPointer(&p), S_OK);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p - 4) % 16, 0u);
    EXPECT_EQ(s->GetSize(), 108);
    ASSERT_EQ(a->Decommit(), S_OK);
    EXPECT_EQ(a->SetProperties(&request, &actual), VFW_E_BUFFERS_OUTSTANDING);
    s = nullptr;
    EXPECT_EQ(a->SetProperties(&request, &actual), S_OK);
}

TEST(MemoryAllocator, GetBufferFailsWhileDecommittedAndWaitsForAFreeSample) {
    ComPtr<IMemAllocator> a = NewAllocator(1, 64);
    ComPtr<IMediaSample> first, second;
    EXPECT_EQ(a->GetBuffer(first.ReleaseAndGetAddressOf(), nullptr, nullptr, 0),
              VFW_E_NOT_COMMITTED);
    EXPECT_EQ(a->GetBuffer(nullptr, nullptr, nullptr, 0), E_POINTER);
    ASSERT_EQ(a->Commit(), S_OK);
    ASSERT_EQ(a->GetBuffer(first.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(a->GetBuffer(second.ReleaseAndGetAddressOf(), nullptr, nullptr, AM_GBF_NOWAIT),
              VFW_E_TIMEOUT);

    std::atomic<bool> got{false};
    std::atomic<DWORD> tid{0};
    std::thread waiter([&] {
        tid = GetCurrentThreadId();
        ComPtr<IMediaSample> s;
        got = a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0) == S_OK && s;
    });
    EXPECT_TRUE(WaitUntil([&] { return tid != 0 && ThreadIsBlocked(tid); }));
    EXPECT_FALSE(got);
    first = nullptr;  // its last reference: back to the free list, which wakes the waiter
    EXPECT_TRUE(WaitUntil([&] { return got.load(); }));
    waiter.join();
}

TEST(MemoryAllocator, DecommitWakesABlockedGetBufferWithAFailure) {
    ComPtr<IMemAllocator> a = NewAllocator(1, 64);
    ASSERT_EQ(a->Commit(), S_OK);
    ComPtr<IMediaSample> held;
    ASSERT_EQ(a->GetBuffer(held.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    std::atomic<HRESULT> result{S_FALSE};
    std::atomic<bool> done{false};
    std::atomic<DWORD> tid{0};
    std::thread waiter([&] {
        tid = GetCurrentThreadId();
        ComPtr<IMediaSample> s;
        result = a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0);
        done = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return tid != 0 && ThreadIsBlocked(tid); }));
    EXPECT_FALSE(done);
    ASSERT_EQ(a->Decommit(), S_OK);
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    waiter.join();
    EXPECT_EQ(result, VFW_E_NOT_COMMITTED);
    // The sample still out stays usable, and comes back into a later commit.
    BYTE* p = nullptr;
    ASSERT_EQ(held->GetPointer(&p), S_OK);
    p[63] = 1;
    ASSERT_EQ(a->Commit(), S_OK);
    held = nullptr;
    EXPECT_EQ(a->GetBuffer(held.ReleaseAndGetAddressOf(), nullptr, nullptr, AM_GBF_NOWAIT), S_OK);
}

TEST(MemoryAllocator, ASampleOutKeepsItsAllocator) {
    ComPtr<IMediaSample> s;
    {
        ComPtr<IMemAllocator> a = NewAllocator(2, 32);
        ASSERT_EQ(a->Commit(), S_OK);
        ASSERT_EQ(a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
        ASSERT_EQ(a->Decommit(), S_OK);
    }
    EXPECT_EQ(s->SetActualDataLength(32), S_OK);  // the sanitizers catch a freed allocator here
    s = nullptr;  // the last reference: the allocator goes with it (a leak shows under the
                  // sanitizer)
}

TEST(MemoryAllocator, ReleaseBufferTakesOnlyItsOwnFreeSamples) {
    ComPtr<IMemAllocator> a = NewAllocator(1, 32);
    ComPtr<IMemAllocator> b = NewAllocator(1, 32);
    ASSERT_EQ(a->Commit(), S_OK);
    ASSERT_EQ(b->Commit(), S_OK);
    ComPtr<IMediaSample> s;
    ASSERT_EQ(a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(b->ReleaseBuffer(s.Get()), E_INVALIDARG);
    EXPECT_EQ(a->ReleaseBuffer(s.Get()), E_INVALIDARG);  // still referenced
    EXPECT_EQ(a->ReleaseBuffer(nullptr), E_POINTER);
}

TEST(MemoryAllocator, SamplesCarryTimesFlagsTypesAndProperties) {
    ComPtr<IMemAllocator> a = NewAllocator(1, 100);
    ASSERT_EQ(a->Commit(), S_OK);
    ComPtr<IMediaSample> s;
    ASSERT_EQ(a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, AM_GBF_PREVFRAMESKIPPED),
              S_OK);
    EXPECT_EQ(s->IsDiscontinuity(), S_OK);
    EXPECT_EQ(s->IsSyncPoint(), S_FALSE);

    REFERENCE_TIME t0 = 0, t1 = 0;
    EXPECT_EQ(s->GetTime(&t0, &t1), VFW_E_SAMPLE_TIME_NOT_SET);
    REFERENCE_TIME start = 10, stop = 20;
    ASSERT_EQ(s->SetTime(&start, nullptr), S_OK);
    EXPECT_EQ(s->GetTime(&t0, &t1), VFW_S_NO_STOP_TIME);
    EXPECT_EQ(t1, 11);
    ASSERT_EQ(s->SetTime(&start, &stop), S_OK);
    EXPECT_EQ(s->GetTime(&t0, &t1), S_OK);
    EXPECT_EQ(t1, 20);

    LONGLONG m0 = 0, m1 = 0;
    EXPECT_EQ(s->GetMediaTime(&m0, &m1), VFW_E_MEDIA_TIME_NOT_SET);
    LONGLONG ms = 3, me = 4;
    ASSERT_EQ(s->SetMediaTime(&ms, &me), S_OK);
    EXPECT_EQ(s->GetMediaTime(&m0, &m1), S_OK);
    EXPECT_EQ(m1, 4);

    EXPECT_EQ(s->SetActualDataLength(101), VFW_E_BUFFER_OVERFLOW);
    ASSERT_EQ(s->SetActualDataLength(60), S_OK);
    ASSERT_EQ(s->SetSyncPoint(TRUE), S_OK);
    ASSERT_EQ(s->SetPreroll(TRUE), S_OK);

    AM_MEDIA_TYPE* type = nullptr;
    EXPECT_EQ(s->GetMediaType(&type), S_FALSE);
    EXPECT_EQ(type, nullptr);
    AM_MEDIA_TYPE mt{};
    mt.majortype = MEDIATYPE_Audio;
    BYTE block[4] = {1, 2, 3, 4};
    mt.cbFormat = 4;
    mt.pbFormat = block;
    ASSERT_EQ(s->SetMediaType(&mt), S_OK);
    ASSERT_EQ(s->GetMediaType(&type), S_OK);
    ASSERT_NE(type, nullptr);
    EXPECT_NE(type->pbFormat, block);
    EXPECT_EQ(type->pbFormat[3], 4);
    CoTaskMemFree(type->pbFormat);
    CoTaskMemFree(type);

    ComPtr<IMediaSample2> s2;
    ASSERT_EQ(s.As(&s2), S_OK);
    AM_SAMPLE2_PROPERTIES p{};
    ASSERT_EQ(s2->GetProperties(sizeof p, reinterpret_cast<BYTE*>(&p)), S_OK);
    EXPECT_EQ(p.cbData, sizeof p);
    EXPECT_EQ(p.lActual, 60);
    EXPECT_EQ(p.cbBuffer, 100);
    EXPECT_EQ(p.tStart, 10);
    EXPECT_EQ(
        p.dwSampleFlags,
        static_cast<DWORD>(AM_SAMPLE_SPLICEPOINT | AM_SAMPLE_PREROLL | AM_SAMPLE_DATADISCONTINUITY |
                           AM_SAMPLE_TYPECHANGED | AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID));
    ASSERT_NE(p.pMediaType, nullptr);
    EXPECT_EQ(p.pMediaType->majortype, MEDIATYPE_Audio);

    // Setting properties back: a shorter length, no type change.
    p.lActual = 5;
    p.dwSampleFlags = AM_SAMPLE_TIMEVALID;
    ASSERT_EQ(s2->SetProperties(sizeof p, reinterpret_cast<BYTE*>(&p)), S_OK);
    EXPECT_EQ(s->GetActualDataLength(), 5);
    EXPECT_EQ(s->GetMediaType(&type), S_FALSE);
    EXPECT_EQ(s->GetTime(&t0, &t1), VFW_S_NO_STOP_TIME);

    // Back in the pool the sample forgets all of it.
    s2 = nullptr;
    s = nullptr;
    ASSERT_EQ(a->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(s->GetTime(&t0, &t1), VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(s->IsDiscontinuity(), S_FALSE);
    EXPECT_EQ(s->GetActualDataLength(), 0);
}
