// Output and input pins: the choice of allocator, committing it with the filter's state, and
// what an input pin answers to samples, flushes and type changes.
#include <gtest/gtest.h>

#include "tests/media_base/TestFilters.h"

using namespace mw::test;

namespace {

// A sample that does not answer IMediaSample2, so that the input pin reads it field by field.
class PlainSample : public TInterfacedObject<IMediaSample> {
public:
    explicit PlainSample(IMediaSample* inner) : FInner(inner) {}
    STDMETHODIMP GetPointer(BYTE** p) override { return FInner->GetPointer(p); }
    STDMETHODIMP_(LONG) GetSize() override { return FInner->GetSize(); }
    STDMETHODIMP GetTime(REFERENCE_TIME* a, REFERENCE_TIME* b) override {
        return FInner->GetTime(a, b);
    }
    STDMETHODIMP SetTime(REFERENCE_TIME* a, REFERENCE_TIME* b) override {
        return FInner->SetTime(a, b);
    }
    STDMETHODIMP IsSyncPoint() override { return FInner->IsSyncPoint(); }
    STDMETHODIMP SetSyncPoint(BOOL v) override { return FInner->SetSyncPoint(v); }
    STDMETHODIMP IsPreroll() override { return FInner->IsPreroll(); }
    STDMETHODIMP SetPreroll(BOOL v) override { return FInner->SetPreroll(v); }
    STDMETHODIMP_(LONG) GetActualDataLength() override { return FInner->GetActualDataLength(); }
    STDMETHODIMP SetActualDataLength(LONG n) override { return FInner->SetActualDataLength(n); }
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** t) override { return FInner->GetMediaType(t); }
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* t) override { return FInner->SetMediaType(t); }
    STDMETHODIMP IsDiscontinuity() override { return FInner->IsDiscontinuity(); }
    STDMETHODIMP SetDiscontinuity(BOOL v) override { return FInner->SetDiscontinuity(v); }
    STDMETHODIMP GetMediaTime(LONGLONG* a, LONGLONG* b) override {
        return FInner->GetMediaTime(a, b);
    }
    STDMETHODIMP SetMediaTime(LONGLONG* a, LONGLONG* b) override {
        return FInner->SetMediaTime(a, b);
    }

private:
    ComPtr<IMediaSample> FInner;
};

class QualitySink : public TInterfacedObject<IQualityControl> {
public:
    STDMETHODIMP Notify(IBaseFilter* self, Quality q) override {
        sender = self;
        proportion = q.Proportion;
        return S_FALSE;
    }
    STDMETHODIMP SetSink(IQualityControl*) override { return E_NOTIMPL; }
    IBaseFilter* sender = nullptr;
    LONG proportion = 0;
};

class Pins : public MediaBaseTest {
protected:
    void SetUp() override {
        MediaBaseTest::SetUp();
        source = new TTestOutputFilter(&sourceGone);
        sourceRef = source->AsBaseFilter();
        out = source->AddOutput(u"Out");
        sink = new TTestSinkFilter(&sinkGone);
        sinkRef = sink->AsBaseFilter();
        in = sink->In();
        ASSERT_EQ(mw::graph::CreateMemoryAllocator(nullptr, IID_IMemAllocator,
                                                   spare.ReleaseAndGetVoidAddress()),
                  S_OK);
        ALLOCATOR_PROPERTIES request{4, 256, 1, 0}, actual{};
        ASSERT_EQ(spare->SetProperties(&request, &actual), S_OK);
        ASSERT_EQ(spare->Commit(), S_OK);
    }
    void TearDown() override {
        sourceRef->Stop();
        sinkRef->Stop();
        DisconnectBoth(out->AsPin(), in->AsPin());
        sourceRef = nullptr;
        sinkRef = nullptr;
        EXPECT_TRUE(sourceGone);
        EXPECT_TRUE(sinkGone);
        MediaBaseTest::TearDown();
    }
    void Connect() {
        OwnedType type(PcmFormat());
        ASSERT_EQ(out->Connect(in->AsPin(), &type.mt), S_OK);
    }
    ComPtr<IMediaSample> SpareSample(REFERENCE_TIME start, REFERENCE_TIME stop) {
        ComPtr<IMediaSample> s;
        EXPECT_EQ(spare->GetBuffer(s.ReleaseAndGetAddressOf(), nullptr, nullptr, 0), S_OK);
        s->SetTime(&start, &stop);
        s->SetActualDataLength(10);
        return s;
    }

    bool sourceGone = false, sinkGone = false;
    TTestOutputFilter* source = nullptr;
    TTestSinkFilter* sink = nullptr;
    ComPtr<IBaseFilter> sourceRef, sinkRef;
    TTestOutputPin* out = nullptr;
    TTestInputPin* in = nullptr;
    ComPtr<IMemAllocator> spare;
};

}  // namespace

TEST_F(Pins, AnOutputPinWithoutAllocatorCannotGoActive) {
    EXPECT_EQ(out->TDSBaseOutputPin::Active(), VFW_E_NO_ALLOCATOR);
    EXPECT_EQ(out->TDSBaseOutputPin::Inactive(), VFW_E_NO_ALLOCATOR);
    ComPtr<IMediaSample> sample;
    EXPECT_EQ(out->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf(), nullptr, nullptr, 0),
              E_NOINTERFACE);
    EXPECT_EQ(out->Deliver(SpareSample(0, 0).Get()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(out->DeliverEndOfStream(), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(out->DeliverBeginFlush(), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(out->DeliverNewSegment(0, 1, 1.0), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(out->EndOfStream(), E_UNEXPECTED);
    EXPECT_EQ(out->BeginFlush(), E_UNEXPECTED);
}

TEST_F(Pins, ThePeersAllocatorIsTheFirstChoice) {
    Connect();
    EXPECT_EQ(out->InitCalls, 0);
    ASSERT_NE(out->Allocator(), nullptr);
    EXPECT_EQ(out->Allocator(), in->Allocator());
    EXPECT_FALSE(in->IsReadOnly());
}

TEST_F(Pins, APeerWithoutAllocatorGetsOneOfTheOutputPin) {
    in->FailGetAllocator = true;
    Connect();
    EXPECT_EQ(out->InitCalls, 1);
    ASSERT_NE(out->Allocator(), nullptr);
    EXPECT_EQ(out->Allocator(), in->Allocator());
}

TEST_F(Pins, APeerRefusingItsOwnAllocatorIsOfferedANewOne) {
    in->RefuseOwnAllocator = true;
    ComPtr<IMemAllocator> offered = MwNew<CountingAllocator>();
    in->OwnAllocator = offered;
    Connect();
    EXPECT_EQ(out->InitCalls, 1);
    EXPECT_NE(out->Allocator(), offered.Get());
    EXPECT_EQ(in->Allocator(), out->Allocator());
    EXPECT_EQ(in->NotifyCalls, 1);
}

TEST_F(Pins, AnAlignmentOfZeroIsRaisedToOne) {
    const ALLOCATOR_PROPERTIES wanted{3, 100, 0, 8};
    in->Requirements = &wanted;
    Connect();
    EXPECT_EQ(out->SeenProperties.cbAlign, 1);
    EXPECT_EQ(out->SeenProperties.cBuffers, 3);
    EXPECT_EQ(out->SeenProperties.cbPrefix, 8);
}

TEST_F(Pins, TheAllocatorIsCommittedWhileTheFiltersAreActive) {
    Connect();
    ComPtr<IMediaSample> sample;
    EXPECT_EQ(
        out->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf(), nullptr, nullptr, AM_GBF_NOWAIT),
        VFW_E_NOT_COMMITTED);
    ASSERT_EQ(GraphPause(sinkRef.Get(), sourceRef.Get()), S_OK);
    ASSERT_EQ(
        out->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf(), nullptr, nullptr, AM_GBF_NOWAIT),
        S_OK);
    EXPECT_EQ(out->Deliver(sample.Get()), S_OK);
    sample = nullptr;
    ASSERT_EQ(GraphRun(sinkRef.Get(), sourceRef.Get()), S_OK);
    EXPECT_EQ(out->RunCalls, 1);
    ASSERT_EQ(GraphStop(sinkRef.Get(), sourceRef.Get()), S_OK);
    EXPECT_EQ(out->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf(), nullptr, nullptr, 0),
              VFW_E_NOT_COMMITTED);
    EXPECT_EQ(in->ReceivedCount, 1);
}

TEST_F(Pins, AStoppedFilterRefusesSamplesBeforeLookingAtTheFlush) {
    Connect();
    ASSERT_EQ(in->BeginFlush(), S_OK);
    EXPECT_EQ(in->Receive(SpareSample(1, 2).Get()), VFW_E_WRONG_STATE);
    ASSERT_EQ(in->EndFlush(), S_OK);
}

TEST_F(Pins, ASampleArrivingAfterTheInputWasDisconnectedIsAnsweredNotThrown) {
    // A delivery racing a disconnect reaches an input pin that is no longer connected: the
    // assertion of the streaming check is reported and Receive answers with a failure.
    Connect();
    ASSERT_EQ(sinkRef->Pause(), S_OK);
    ASSERT_EQ(in->Receive(SpareSample(1, 2).Get()), S_OK);
    in->ForceConnected(nullptr);
    EXPECT_EQ(in->Receive(SpareSample(3, 4).Get()), E_UNEXPECTED);
    IMediaSample* batch[1] = {SpareSample(5, 6).Detach()};
    LONG processed = -1;
    EXPECT_EQ(in->ReceiveMultiple(batch, 1, &processed), E_UNEXPECTED);
    EXPECT_EQ(processed, 0);
    batch[0]->Release();
    EXPECT_EQ(in->Receive(nullptr), E_UNEXPECTED);
    ASSERT_EQ(sinkRef->Stop(), S_OK);
}

TEST_F(Pins, AFlushRefusesSamplesAndKeepsTheLastProperties) {
    Connect();
    EXPECT_THROW(in->SampleProps(), EAssertionFailed);
    ASSERT_EQ(sinkRef->Pause(), S_OK);
    ASSERT_EQ(in->Receive(SpareSample(5, 6).Get()), S_OK);
    EXPECT_EQ(in->SampleProps().tStart, 5);
    EXPECT_EQ(in->SampleProps().dwSampleFlags & (AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID),
              static_cast<DWORD>(AM_SAMPLE_TIMEVALID | AM_SAMPLE_STOPVALID));
    ASSERT_EQ(in->BeginFlush(), S_OK);
    EXPECT_EQ(in->BeginFlush(), E_UNEXPECTED);  // asserts, reported and answered
    EXPECT_EQ(in->Receive(SpareSample(7, 8).Get()), S_FALSE);
    EXPECT_EQ(in->SampleProps().tStart, 5);
    IMediaSample* batch[2] = {SpareSample(9, 10).Detach(), SpareSample(11, 12).Detach()};
    LONG processed = -1;
    EXPECT_EQ(in->ReceiveMultiple(batch, 2, &processed), S_FALSE);
    EXPECT_EQ(processed, 0);
    ASSERT_EQ(in->EndFlush(), S_OK);
    EXPECT_EQ(in->EndFlush(), E_UNEXPECTED);
    EXPECT_EQ(in->ReceiveMultiple(batch, 2, &processed), S_OK);
    EXPECT_EQ(processed, 2);
    batch[0]->Release();
    batch[1]->Release();
}

TEST_F(Pins, ARefusedTypeChangeIsARunTimeErrorUntilTheNextFlush) {
    Connect();
    ASSERT_EQ(sinkRef->Pause(), S_OK);
    in->Accept = [](const AM_MEDIA_TYPE& t) {
        return IsEqualGUID(t.majortype, MEDIATYPE_Audio) ? S_OK : E_FAIL;
    };
    ComPtr<IMediaSample> changed = SpareSample(1, 2);
    OwnedType video(MEDIATYPE_Video, MEDIASUBTYPE_RGB24);
    ASSERT_EQ(changed->SetMediaType(&video.mt), S_OK);
    EXPECT_EQ(in->Receive(changed.Get()), VFW_E_INVALIDMEDIATYPE);
    EXPECT_EQ(in->EndOfStreams, 1);
    EXPECT_EQ(in->Receive(SpareSample(3, 4).Get()), VFW_E_RUNTIME_ERROR);
    ASSERT_EQ(in->BeginFlush(), S_OK);
    ASSERT_EQ(in->EndFlush(), S_OK);
    EXPECT_EQ(in->Receive(SpareSample(3, 4).Get()), S_OK);
    // An accepted change passes.
    OwnedType audio(PcmFormat(8000));
    ComPtr<IMediaSample> accepted = SpareSample(5, 6);
    ASSERT_EQ(accepted->SetMediaType(&audio.mt), S_OK);
    EXPECT_EQ(in->Receive(accepted.Get()), S_OK);
}

TEST_F(Pins, ASampleWithoutTheSecondInterfaceIsReadFieldByField) {
    Connect();
    ASSERT_EQ(sinkRef->Pause(), S_OK);
    ComPtr<IMediaSample> inner = SpareSample(100, 200);
    inner->SetSyncPoint(TRUE);
    inner->SetDiscontinuity(TRUE);
    OwnedType audio(PcmFormat(8000));
    inner->SetMediaType(&audio.mt);
    ComPtr<IMediaSample> plain = MwNew<PlainSample>(inner.Get());
    ASSERT_EQ(in->Receive(plain.Get()), S_OK);
    const AM_SAMPLE2_PROPERTIES& p = in->SampleProps();
    EXPECT_EQ(p.cbData, sizeof(AM_SAMPLE2_PROPERTIES));
    EXPECT_EQ(p.dwSampleFlags, static_cast<DWORD>(AM_SAMPLE_DATADISCONTINUITY |
                                                  AM_SAMPLE_SPLICEPOINT | AM_SAMPLE_TIMEVALID |
                                                  AM_SAMPLE_STOPVALID | AM_SAMPLE_TYPECHANGED));
    EXPECT_EQ(p.tStop, 200);
    EXPECT_EQ(p.lActual, 10);
    EXPECT_EQ(p.cbBuffer, 256);
    ASSERT_NE(p.pMediaType, nullptr);
    EXPECT_TRUE(DSIsEqualMediaType(*p.pMediaType, audio.mt));
}

TEST_F(Pins, ReceiveCanBlockWithoutConnectedOutputs) {
    EXPECT_EQ(in->ReceiveCanBlock(), S_OK);
}

TEST_F(Pins, QualityMessagesGoToTheSinkOrUpstream) {
    Quality q{Famine, 800, 0, 0};
    EXPECT_EQ(in->PassNotify(q), VFW_E_NOT_FOUND);
    Connect();
    EXPECT_EQ(in->PassNotify(q), E_NOTIMPL);  // the output pin's own answer
    ComPtr<QualitySink> qs = MwNew<QualitySink>();
    ASSERT_EQ(in->SetSink(qs.Get()), S_OK);
    EXPECT_EQ(in->PassNotify(q), S_FALSE);
    EXPECT_EQ(qs->sender, sinkRef.Get());
    EXPECT_EQ(qs->proportion, 800);
    ASSERT_EQ(in->SetSink(nullptr), S_OK);
}
