// The filter core: state changes walking the connected pins, pin lookup, filter information,
// joining a graph, and the pin and media type enumerators.
#include <gtest/gtest.h>

#include "tests/media_base/TestFilters.h"

using namespace mw::test;

namespace {

// A graph that answers IMediaEventSink and counts the events it is sent.
class FakeGraph : public IFilterGraph, public IMediaEventSink {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** p) override {
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IFilterGraph))
            *p = static_cast<IFilterGraph*>(this);
        else if (IsEqualIID(iid, IID_IMediaEventSink) && answersEventSink)
            *p = static_cast<IMediaEventSink*>(this);
        else
            return *p = nullptr, E_NOINTERFACE;
        ++refs;
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
    STDMETHODIMP_(ULONG) Release() override { return --refs; }  // lives on the test's stack
    ULONG RefCount() const { return refs; }
    STDMETHODIMP AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    STDMETHODIMP EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    STDMETHODIMP FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    STDMETHODIMP ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    STDMETHODIMP Reconnect(IPin*) override {
        ++reconnects;
        return S_OK;
    }
    STDMETHODIMP Disconnect(IPin*) override { return E_NOTIMPL; }
    STDMETHODIMP SetDefaultSyncSource() override { return E_NOTIMPL; }
    STDMETHODIMP Notify(LONG, LONG_PTR, LONG_PTR) override {
        ++events;
        return S_OK;
    }
    int events = 0;
    int reconnects = 0;
    ULONG refs = 1;
    bool answersEventSink = true;
};

class FixedClock : public TInterfacedObject<IReferenceClock> {
public:
    STDMETHODIMP GetTime(REFERENCE_TIME* t) override {
        *t = now;
        return result;
    }
    STDMETHODIMP AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE, DWORD_PTR*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Unadvise(DWORD_PTR) override { return E_NOTIMPL; }
    REFERENCE_TIME now = 0;
    HRESULT result = S_OK;
};

// A filter of output pins that the state walk treats as connected to a sink's input pin.
class FilterCore : public MediaBaseTest {
protected:
    void SetUp() override {
        MediaBaseTest::SetUp();
        object = new TTestOutputFilter(&destroyed);
        filter = object->AsBaseFilter();
        peerObject = new TTestSinkFilter();
        peer = peerObject->AsBaseFilter();
    }
    void TearDown() override {
        if (!destroyed)
            for (int i = 0; i < object->GetPinCount(); ++i)
                object->Out(i)->ForceConnected(nullptr);
        filter = nullptr;
        peer = nullptr;
        EXPECT_TRUE(destroyed);
        MediaBaseTest::TearDown();
    }
    TTestOutputPin* ConnectedPin(const std::u16string& name) {
        TTestOutputPin* pin = object->AddOutput(name);
        pin->ForceConnected(peerObject->In()->AsPin());
        return pin;
    }

    bool destroyed = false;
    TTestOutputFilter* object = nullptr;
    ComPtr<IBaseFilter> filter;
    TTestSinkFilter* peerObject = nullptr;
    ComPtr<IBaseFilter> peer;
};

}  // namespace

TEST_F(FilterCore, PauseStopsAtTheFirstPinThatFailsAndStaysStopped) {
    TTestOutputPin* first = ConnectedPin(u"A");
    TTestOutputPin* second = ConnectedPin(u"B");
    first->ActiveResult = S_FALSE + 1;  // a success code other than S_OK: the base is bypassed
    second->ActiveResult = E_ACCESSDENIED;
    EXPECT_EQ(filter->Pause(), E_ACCESSDENIED);
    EXPECT_EQ(first->ActiveCalls, 1);
    EXPECT_EQ(second->ActiveCalls, 1);
    FILTER_STATE state;
    EXPECT_EQ(filter->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
}

TEST_F(FilterCore, StopReturnsTheFirstFailureAndStopsAnyway) {
    TTestOutputPin* a = ConnectedPin(u"A");
    TTestOutputPin* b = ConnectedPin(u"B");
    TTestOutputPin* c = ConnectedPin(u"C");
    // Success codes that bypass the allocator, which these pins do not have.
    a->ActiveResult = b->ActiveResult = c->ActiveResult = 2;
    a->InactiveResult = 2;
    ASSERT_EQ(filter->Pause(), S_OK);
    b->InactiveResult = E_ACCESSDENIED;
    c->InactiveResult = E_OUTOFMEMORY;
    EXPECT_EQ(filter->Stop(), E_ACCESSDENIED);
    EXPECT_EQ(a->InactiveCalls, 1);
    EXPECT_EQ(c->InactiveCalls, 1);
    EXPECT_TRUE(object->IsStopped());
    // A stopped filter walks no pins.
    EXPECT_EQ(filter->Stop(), S_OK);
    EXPECT_EQ(a->InactiveCalls, 1);
}

TEST_F(FilterCore, RunPassesThroughPauseAndRunningAgainCallsNoPin) {
    TTestOutputPin* a = ConnectedPin(u"A");
    TTestOutputPin* loose = object->AddOutput(u"Loose");  // unconnected pins take no part
    a->ActiveResult = 2;
    ASSERT_EQ(filter->Run(1234), S_OK);
    EXPECT_EQ(a->ActiveCalls, 1);
    EXPECT_EQ(a->RunCalls, 1);
    EXPECT_EQ(loose->ActiveCalls + loose->RunCalls, 0);
    ASSERT_EQ(filter->Run(5678), S_OK);
    EXPECT_EQ(a->RunCalls, 1);
    EXPECT_EQ(a->ActiveCalls, 1);
    // Running to paused changes the state only.
    ASSERT_EQ(filter->Pause(), S_OK);
    EXPECT_EQ(a->ActiveCalls, 1);
    EXPECT_TRUE(object->IsActive());
}

TEST_F(FilterCore, StreamTimeNeedsAClockAndCountsFromTheRunStart) {
    REFERENCE_TIME t = 0;
    EXPECT_EQ(object->StreamTime(&t), VFW_E_NO_CLOCK);
    ComPtr<FixedClock> clock = MwNew<FixedClock>();
    clock->now = 10'000;
    ASSERT_EQ(filter->SetSyncSource(clock.Get()), S_OK);
    ASSERT_EQ(filter->Run(4'000), S_OK);
    EXPECT_EQ(object->StreamTime(&t), S_OK);
    EXPECT_EQ(t, 6'000);
    clock->result = E_FAIL;
    EXPECT_EQ(object->StreamTime(&t), E_FAIL);
    ComPtr<IReferenceClock> back;
    EXPECT_EQ(filter->GetSyncSource(back.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(back.Get(), static_cast<IReferenceClock*>(clock.Get()));
    EXPECT_EQ(filter->SetSyncSource(nullptr), S_OK);
    EXPECT_EQ(filter->GetState(0, nullptr), E_POINTER);
}

TEST_F(FilterCore, FindPinByExactNameAndThePinKeepsTheFilterAlive) {
    object->AddOutput(u"Out");
    ComPtr<IPin> pin;
    EXPECT_EQ(filter->FindPin(u"out", pin.ReleaseAndGetAddressOf()), VFW_E_NOT_FOUND);
    EXPECT_EQ(pin, nullptr);
    ASSERT_EQ(filter->FindPin(u"Out", pin.ReleaseAndGetAddressOf()), S_OK);
    filter = nullptr;
    EXPECT_FALSE(destroyed);
    PIN_DIRECTION direction;
    EXPECT_EQ(pin->QueryDirection(&direction), S_OK);
    EXPECT_EQ(direction, PINDIR_OUTPUT);
    pin = nullptr;
    EXPECT_TRUE(destroyed);
}

TEST_F(FilterCore, FilterInfoCarriesTheNameAndACountedGraph) {
    FILTER_INFO info;
    std::fill(std::begin(info.achName), std::end(info.achName), u'x');
    ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.achName[0], 0);
    EXPECT_EQ(info.pGraph, nullptr);

    FakeGraph fake;
    FakeGraph* graph = &fake;
    ASSERT_EQ(filter->JoinFilterGraph(graph, u"My filter"), S_OK);
    ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::u16string(info.achName), u"My filter");
    EXPECT_EQ(info.pGraph, static_cast<IFilterGraph*>(graph));
    EXPECT_EQ(graph->RefCount(), 2u);
    info.pGraph->Release();
    // The graph is not counted by the filter itself.
    EXPECT_EQ(graph->RefCount(), 1u);
    EXPECT_EQ(filter->JoinFilterGraph(nullptr, nullptr), S_OK);
}

TEST_F(FilterCore, AFilterInAGraphDeliversNoEvents) {
    FakeGraph fake;
    FakeGraph* graph = &fake;
    ASSERT_EQ(filter->JoinFilterGraph(graph, u"F"), S_OK);
    EXPECT_EQ(object->NotifyEvent(EC_COMPLETE, S_OK, 0), S_OK);
    EXPECT_EQ(object->NotifyEvent(EC_ERRORABORT, E_FAIL, 0), S_OK);
    EXPECT_EQ(graph->events, 0);
    EXPECT_EQ(graph->RefCount(), 1u);  // no sink kept
    // Without IFilterGraph2 a reconnection goes to the plain Reconnect.
    EXPECT_EQ(object->ReconnectPin(nullptr, nullptr), S_OK);
    EXPECT_EQ(graph->reconnects, 1);
    ASSERT_EQ(filter->JoinFilterGraph(nullptr, nullptr), S_OK);
    EXPECT_EQ(object->ReconnectPin(nullptr, nullptr), E_NOINTERFACE);
}

TEST_F(FilterCore, AGraphWithoutAnEventSinkIsJoinedAlike) {
    FakeGraph fake;
    fake.answersEventSink = false;
    ASSERT_EQ(filter->JoinFilterGraph(&fake, u"F"), S_OK);
    EXPECT_EQ(object->NotifyEvent(EC_COMPLETE, S_OK, 0), S_OK);
    EXPECT_EQ(fake.events, 0);
    EXPECT_EQ(fake.RefCount(), 1u);
    ASSERT_EQ(filter->JoinFilterGraph(nullptr, nullptr), S_OK);
}

TEST_F(FilterCore, RunStopsAtTheFirstPinThatFailsToRunAndStaysPaused) {
    TTestOutputPin* a = ConnectedPin(u"A");
    TTestOutputPin* b = ConnectedPin(u"B");
    TTestOutputPin* c = ConnectedPin(u"C");
    a->ActiveResult = b->ActiveResult = c->ActiveResult = 2;
    b->RunResult = E_ACCESSDENIED;
    EXPECT_EQ(filter->Run(1000), E_ACCESSDENIED);
    EXPECT_EQ(a->RunCalls, 1);
    EXPECT_EQ(b->RunCalls, 1);
    EXPECT_EQ(c->RunCalls, 0);
    FILTER_STATE state;
    EXPECT_EQ(filter->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Paused);
    // A later run walks the pins again.
    b->RunResult = S_OK;
    EXPECT_EQ(filter->Run(2000), S_OK);
    EXPECT_EQ(c->RunCalls, 1);
}

TEST_F(FilterCore, APinMissingFromTheWalkPutsTheEnumeratorOutOfSync) {
    object->AddOutput(u"A");
    object->AddOutput(u"B");
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.ReleaseAndGetAddressOf()), S_OK);
    object->Hole = 0;
    IPin* got[2] = {};
    ULONG fetched = 7;
    EXPECT_EQ(pins->Next(1, got, &fetched), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(got[0], nullptr);
    // Once some pins were handed out, a hole is also an assertion failure: reported, and the
    // pins handed out in the call are taken back.
    object->Hole = 1;
    ASSERT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Next(2, got, &fetched), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(got[0], nullptr);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(object->Out(0)->PinReferenceCount(), 0);
    object->Hole = -1;
    // The pin taken back is handed out again by the next walk.
    ASSERT_EQ(pins->Reset(), S_OK);
    ASSERT_EQ(pins->Next(2, got, &fetched), S_OK);
    EXPECT_EQ(got[0], object->Out(0)->AsPin());
    got[0]->Release();
    got[1]->Release();
}

TEST_F(FilterCore, PlainAnswers) {
    CLSID id{};
    EXPECT_EQ(filter->GetClassID(&id), S_OK);
    EXPECT_EQ(id, kTestClsid);
    LPWSTR vendor = nullptr;
    EXPECT_EQ(filter->QueryVendorInfo(&vendor), E_NOTIMPL);
    ComPtr<IMediaFilter> mediaFilter;
    EXPECT_EQ(filter.As(&mediaFilter), S_OK);
    ComPtr<IPin> notAPin;
    EXPECT_EQ(filter.As(&notAPin), E_NOINTERFACE);
}

TEST(FilterConstruction, TheResultArgumentMustBeGiven) {
    class Bare : public TDSBaseFilter {
    public:
        using TDSBaseFilter::TDSBaseFilter;
        int GetPinCount() override { return 0; }
        TDSBasePin* GetPin(int) override { return nullptr; }
    };
    try {
        Bare b("x", nullptr, kTestClsid, nullptr);
        FAIL() << "no assertion";
    } catch (const EAssertionFailed& e) {
        EXPECT_STREQ(e.what(), "Unreferenced parameter: hr");
    }
    HRESULT hr = 0x1234;
    Bare ok("x", nullptr, kTestClsid, &hr);
    EXPECT_EQ(hr, 0x1234);  // never written
}

TEST_F(FilterCore, EnumeratorsRefuseTwoWithoutAFetchedCount) {
    object->AddOutput(u"A");
    object->AddOutput(u"B");
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.ReleaseAndGetAddressOf()), S_OK);
    IPin* got[2] = {};
    EXPECT_EQ(pins->Next(2, got, nullptr), E_INVALIDARG);

    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(object->Out(0)->EnumMediaTypes(types.ReleaseAndGetAddressOf()), S_OK);
    AM_MEDIA_TYPE* records[2] = {};
    EXPECT_EQ(types->Next(2, records, nullptr), E_INVALIDARG);
}

TEST_F(FilterCore, PinEnumeratorRefreshesAndSkipsPinsItAlreadyGave) {
    object->AddOutput(u"A");
    object->AddOutput(u"B");
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.ReleaseAndGetAddressOf()), S_OK);
    IPin* got[3] = {};
    ULONG fetched = 0;
    ASSERT_EQ(pins->Next(3, got, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    got[0]->Release();
    got[1]->Release();

    object->AddOutput(u"C");
    EXPECT_EQ(pins->Skip(1), VFW_E_ENUM_OUT_OF_SYNC);
    ComPtr<IEnumPins> clone;
    EXPECT_EQ(pins->Clone(clone.ReleaseAndGetAddressOf()), VFW_E_ENUM_OUT_OF_SYNC);
    ASSERT_EQ(pins->Next(1, got, &fetched), S_OK);
    ASSERT_EQ(fetched, 1u);
    EXPECT_EQ(got[0], object->Out(2)->AsPin());
    got[0]->Release();
    EXPECT_EQ(pins->Next(1, got, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);

    // Reset forgets what was handed out.
    ASSERT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Skip(4), S_FALSE);
    EXPECT_EQ(pins->Skip(1), S_OK);
    ASSERT_EQ(pins->Clone(clone.ReleaseAndGetAddressOf()), S_OK);
    ASSERT_EQ(clone->Next(1, got, nullptr), S_OK);
    EXPECT_EQ(got[0], object->Out(1)->AsPin());
    got[0]->Release();
}

TEST_F(FilterCore, AnEnumeratorKeepsItsFilterAlive) {
    object->AddOutput(u"A");
    ComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.ReleaseAndGetAddressOf()), S_OK);
    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(object->Out(0)->EnumMediaTypes(types.ReleaseAndGetAddressOf()), S_OK);
    filter = nullptr;
    EXPECT_FALSE(destroyed);
    pins = nullptr;
    EXPECT_FALSE(destroyed);
    types = nullptr;
    EXPECT_TRUE(destroyed);
}

TEST_F(FilterCore, StaleMediaTypeEnumeratorReportsOutOfSync) {
    TTestOutputPin* pin = object->AddOutput(u"A");
    pin->Offered.emplace_back(PcmFormat(44100));
    pin->Offered.emplace_back(PcmFormat(48000));
    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(pin->EnumMediaTypes(types.ReleaseAndGetAddressOf()), S_OK);
    AM_MEDIA_TYPE* records[3] = {};
    ULONG fetched = 0;
    ASSERT_EQ(types->Next(3, records, &fetched), S_FALSE);
    ASSERT_EQ(fetched, 2u);
    EXPECT_EQ(reinterpret_cast<tWAVEFORMATEX*>(records[1]->pbFormat)->nSamplesPerSec, 48000u);
    QPDSDeleteMediaType(records[0]);
    QPDSDeleteMediaType(records[1]);
    ASSERT_EQ(types->Reset(), S_OK);
    EXPECT_EQ(types->Skip(0), S_OK);
    EXPECT_EQ(types->Skip(2), S_OK);
    EXPECT_EQ(types->Skip(1), S_FALSE);

    pin->IncrementTypeVersion();
    EXPECT_EQ(types->Next(1, records, &fetched), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(types->Skip(1), VFW_E_ENUM_OUT_OF_SYNC);
    ComPtr<IEnumMediaTypes> clone;
    EXPECT_EQ(types->Clone(clone.ReleaseAndGetAddressOf()), VFW_E_ENUM_OUT_OF_SYNC);
    ASSERT_EQ(types->Reset(), S_OK);
    ASSERT_EQ(types->Clone(clone.ReleaseAndGetAddressOf()), S_OK);
    ASSERT_EQ(clone->Next(1, records, nullptr), S_OK);
    QPDSDeleteMediaType(records[0]);
}

namespace {

// A filter of one input pin (index 0) and output pins, as a transform filter has.
class TThroughFilter : public TTestOutputFilter {
public:
    explicit TThroughFilter(bool* destroyed) : TTestOutputFilter(destroyed) {
        FIn = new TTestInputPin(this, FLock.Get());
    }
    ~TThroughFilter() override { delete FIn; }
    int GetPinCount() override { return TTestOutputFilter::GetPinCount() + 1; }
    TDSBasePin* GetPin(int index) override {
        return index == 0 ? FIn : TTestOutputFilter::GetPin(index - 1);
    }
    TTestInputPin* In() const { return FIn; }

private:
    TTestInputPin* FIn;
};

}  // namespace

TEST_F(MediaBaseTest, ReceiveCanBlockAsksTheConnectedOutputsPeers) {
    bool destroyed = false;
    auto* through = new TThroughFilter(&destroyed);
    ComPtr<IBaseFilter> throughRef = through->AsBaseFilter();
    auto* never = new TTestSinkFilter();
    auto* sometimes = new TTestSinkFilter();
    auto* upstream = new TTestOutputFilter();
    ComPtr<IBaseFilter> refs[] = {never->AsBaseFilter(), sometimes->AsBaseFilter(),
                                  upstream->AsBaseFilter()};
    never->In()->CanBlock = [] { return S_FALSE; };
    sometimes->In()->CanBlock = [] { return S_FALSE; };
    TTestOutputPin* noMemInput = upstream->AddOutput(u"Out");

    through->AddOutput(u"Loose");  // unconnected outputs are passed over
    EXPECT_EQ(through->In()->ReceiveCanBlock(), S_OK) << "no connected output";
    through->AddOutput(u"ToNever")->ForceConnected(never->In()->AsPin());
    through->AddOutput(u"ToSometimes")->ForceConnected(sometimes->In()->AsPin());
    EXPECT_EQ(through->In()->ReceiveCanBlock(), S_FALSE) << "every peer says it never blocks";
    sometimes->In()->CanBlock = [] { return E_FAIL; };  // anything but S_FALSE may block
    EXPECT_EQ(through->In()->ReceiveCanBlock(), S_OK);
    sometimes->In()->CanBlock = [] { return S_FALSE; };
    // A peer without IMemInputPin may block.
    through->AddOutput(u"ToPin")->ForceConnected(noMemInput->AsPin());
    EXPECT_EQ(through->In()->ReceiveCanBlock(), S_OK);

    for (int i = 0; i < 4; ++i)
        through->Out(i)->ForceConnected(nullptr);
    throughRef = nullptr;
    EXPECT_TRUE(destroyed);
}
