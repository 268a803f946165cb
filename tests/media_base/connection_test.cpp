// The connection handshake between an output pin and an input pin: which types are tried in
// which order, which failures are reported, and what a pin answers about its connection.
#include <gtest/gtest.h>

#include "tests/media_base/TestFilters.h"

using namespace mw::test;

namespace {

class Connection : public MediaBaseTest {
protected:
    void SetUp() override {
        MediaBaseTest::SetUp();
        source = new TTestOutputFilter(&sourceGone);
        sourceRef = source->AsBaseFilter();
        out = source->AddOutput(u"Out");
        sink = new TTestSinkFilter(&sinkGone);
        sinkRef = sink->AsBaseFilter();
        in = sink->In();
    }
    void TearDown() override {
        if (in && (in->IsConnected() || out->IsConnected())) {
            sourceRef->Stop();
            sinkRef->Stop();
            DisconnectBoth(out->AsPin(), in->AsPin());
        }
        sourceRef = nullptr;
        sinkRef = nullptr;
        EXPECT_TRUE(sourceGone);
        EXPECT_TRUE(sinkGone);
        MediaBaseTest::TearDown();
    }
    ULONG AgreedRate() {
        AM_MEDIA_TYPE mt{};
        EXPECT_EQ(out->ConnectionMediaType(&mt), S_OK);
        const ULONG rate =
            mt.pbFormat ? reinterpret_cast<tWAVEFORMATEX*>(mt.pbFormat)->nSamplesPerSec : 0;
        DSClearMediaType(&mt);
        return rate;
    }

    bool sourceGone = false, sinkGone = false;
    TTestOutputFilter* source = nullptr;
    TTestSinkFilter* sink = nullptr;
    ComPtr<IBaseFilter> sourceRef, sinkRef;
    TTestOutputPin* out = nullptr;
    TTestInputPin* in = nullptr;
};

}  // namespace

TEST_F(Connection, TheReceiversTypesAreTriedFirst) {
    out->Offered.emplace_back(PcmFormat(48000));
    in->Offered.emplace_back(PcmFormat(22050));
    ASSERT_EQ(out->Connect(in->AsPin(), nullptr), S_OK);
    EXPECT_EQ(AgreedRate(), 22050u);
    // Both ends agree, and the input pin sees the output pin as its peer.
    AM_MEDIA_TYPE theirs{};
    ASSERT_EQ(in->ConnectionMediaType(&theirs), S_OK);
    EXPECT_EQ(reinterpret_cast<tWAVEFORMATEX*>(theirs.pbFormat)->nSamplesPerSec, 22050u);
    DSClearMediaType(&theirs);
    ComPtr<IPin> peer;
    ASSERT_EQ(in->ConnectedTo(peer.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(peer.Get(), out->AsPin());
}

TEST_F(Connection, OwnTypesFirstWhenThePinAsksForIt) {
    out->Offered.emplace_back(PcmFormat(48000));
    in->Offered.emplace_back(PcmFormat(22050));
    out->SetTryMyTypesFirst(true);
    ASSERT_EQ(out->Connect(in->AsPin(), nullptr), S_OK);
    EXPECT_EQ(AgreedRate(), 48000u);
}

TEST_F(Connection, AFullySpecifiedTypeIsTheOnlyOneTried) {
    in->Offered.emplace_back(PcmFormat(22050));
    OwnedType wanted(PcmFormat(8000));
    ASSERT_EQ(out->Connect(in->AsPin(), &wanted.mt), S_OK);
    EXPECT_EQ(in->EnumCalls, 0);
    EXPECT_EQ(AgreedRate(), 8000u);
}

TEST_F(Connection, AMissingSubtypeAloneStillCountsAsFullySpecified) {
    in->Offered.emplace_back(PcmFormat(22050));
    OwnedType wanted(PcmFormat(8000));
    wanted.mt.subtype = GUID_NULL;
    ASSERT_EQ(out->Connect(in->AsPin(), &wanted.mt), S_OK);
    EXPECT_EQ(in->EnumCalls, 0);
    EXPECT_EQ(out->GetAMMediaType()->subtype, GUID_NULL);
}

TEST_F(Connection, APartialTypeFiltersTheCandidatesWithItsInvertedBlockRule) {
    in->Offered.emplace_back(PcmFormat(22050));
    in->Offered.emplace_back(PcmFormat(32000));
    OwnedType partial(PcmFormat(22050));
    partial.mt.majortype = GUID_NULL;  // partial; the block equals the first candidate's
    ASSERT_EQ(out->Connect(in->AsPin(), &partial.mt), S_OK);
    EXPECT_EQ(AgreedRate(), 32000u);
}

TEST_F(Connection, NoTypesOnEitherSideIsNoAcceptableTypes) {
    EXPECT_EQ(out->Connect(in->AsPin(), nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(out->IsConnected());
    EXPECT_FALSE(in->IsConnected());
}

TEST_F(Connection, RefusedTypesGiveNoAcceptableTypes) {
    in->Offered.emplace_back(PcmFormat(22050));
    out->Offered.emplace_back(PcmFormat(48000));
    in->Accept = [](const AM_MEDIA_TYPE&) { return S_FALSE; };
    EXPECT_EQ(out->Connect(in->AsPin(), nullptr), VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_EQ(in->CheckCalls, 2);
    EXPECT_FALSE(out->IsConnected());
    EXPECT_EQ(out->Allocator(), nullptr);
}

TEST_F(Connection, AnInformativeFailureOfTheFirstCandidateSurvivesLaterUninformativeOnes) {
    in->Offered.emplace_back(PcmFormat(22050));
    in->Offered.emplace_back(PcmFormat(32000));
    out->Offered.emplace_back(PcmFormat(48000));
    out->Offered.emplace_back(PcmFormat(96000));
    // The first candidate of each pass fails in SetMediaType, the others at the receiver.
    out->SetMediaTypeResult = [](int call) {
        return call == 1 || call == 3 ? VFW_E_BUFFERS_OUTSTANDING : S_OK;
    };
    in->Accept = [](const AM_MEDIA_TYPE&) { return E_FAIL; };
    EXPECT_EQ(out->Connect(in->AsPin(), nullptr), VFW_E_BUFFERS_OUTSTANDING);
    EXPECT_EQ(out->SetMediaTypeCalls, 4);
}

TEST_F(Connection, AReceiversOwnFailureCodeIsReportedAsItStands) {
    OwnedType wanted(PcmFormat(8000));
    in->Accept = [](const AM_MEDIA_TYPE&) { return E_ACCESSDENIED; };
    EXPECT_EQ(out->Connect(in->AsPin(), &wanted.mt), E_ACCESSDENIED);
    in->Accept = [](const AM_MEDIA_TYPE&) { return E_INVALIDARG; };
    EXPECT_EQ(out->Connect(in->AsPin(), &wanted.mt), VFW_E_TYPE_NOT_ACCEPTED);
    EXPECT_EQ(in->ReceiveConnection(out->AsPin(), &wanted.mt), VFW_E_TYPE_NOT_ACCEPTED);
    // The output side's own refusal.
    in->Accept = nullptr;
    out->Accept = [](const AM_MEDIA_TYPE&) { return S_FALSE; };
    EXPECT_EQ(out->Connect(in->AsPin(), &wanted.mt), VFW_E_TYPE_NOT_ACCEPTED);
}

TEST_F(Connection, QueryAcceptTurnsAnyRefusalIntoSFalse) {
    OwnedType type(PcmFormat());
    in->Accept = [](const AM_MEDIA_TYPE&) { return E_ACCESSDENIED; };
    EXPECT_EQ(in->QueryAccept(&type.mt), S_FALSE);
    in->Accept = [](const AM_MEDIA_TYPE&) { return S_OK; };
    EXPECT_EQ(in->QueryAccept(&type.mt), S_OK);
}

TEST_F(Connection, AnUnconnectedPinReportsTheNoConnectionType) {
    AM_MEDIA_TYPE mt;
    std::memset(&mt, 0xAB, sizeof mt);
    EXPECT_EQ(out->ConnectionMediaType(&mt), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(mt.majortype, GUID_NULL);
    EXPECT_EQ(mt.bFixedSizeSamples, -1);
    EXPECT_EQ(mt.lSampleSize, 1u);
    EXPECT_EQ(mt.pbFormat, nullptr);
    ComPtr<IPin> peer;
    EXPECT_EQ(out->ConnectedTo(peer.ReleaseAndGetAddressOf()), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(peer, nullptr);
    EXPECT_EQ(out->ConnectedTo(nullptr), E_POINTER);
}

TEST_F(Connection, PinsOfOneDirectionCannotConnect) {
    TTestOutputPin* other = source->AddOutput(u"Other");
    OwnedType type(PcmFormat());
    EXPECT_EQ(out->Connect(other->AsPin(), &type.mt), VFW_E_INVALID_DIRECTION);
    EXPECT_EQ(in->ReceiveConnection(in->AsPin(), &type.mt), VFW_E_INVALID_DIRECTION);
}

TEST_F(Connection, ConnectedAndActivePinsRefuseTheHandshake) {
    OwnedType type(PcmFormat());
    ASSERT_EQ(out->Connect(in->AsPin(), &type.mt), S_OK);
    EXPECT_EQ(out->Connect(in->AsPin(), &type.mt), VFW_E_ALREADY_CONNECTED);
    EXPECT_EQ(in->ReceiveConnection(out->AsPin(), &type.mt), VFW_E_ALREADY_CONNECTED);
    ASSERT_EQ(GraphPause(sinkRef.Get(), sourceRef.Get()), S_OK);
    EXPECT_EQ(out->Disconnect(), VFW_E_NOT_STOPPED);
    EXPECT_EQ(in->Disconnect(), VFW_E_NOT_STOPPED);
    ASSERT_EQ(GraphStop(sinkRef.Get(), sourceRef.Get()), S_OK);
    EXPECT_EQ(out->Disconnect(), S_OK);
    EXPECT_EQ(out->Disconnect(), S_FALSE);
    EXPECT_EQ(in->Disconnect(), S_OK);
    EXPECT_EQ(out->Allocator(), nullptr);

    ASSERT_EQ(sourceRef->Pause(), S_OK);  // no connected pins: nothing to activate
    EXPECT_EQ(out->Connect(in->AsPin(), &type.mt), VFW_E_NOT_STOPPED);
    ASSERT_EQ(sourceRef->Stop(), S_OK);
}

TEST_F(Connection, PinInformationAndId) {
    PIN_INFO info;
    std::fill(std::begin(info.achName), std::end(info.achName), u'#');
    ASSERT_EQ(in->QueryPinInfo(&info), S_OK);
    EXPECT_EQ(info.dir, PINDIR_INPUT);
    EXPECT_EQ(std::u16string(info.achName), u"In");
    EXPECT_EQ(info.pFilter, sinkRef.Get());
    info.pFilter->Release();

    LPWSTR id = nullptr;
    ASSERT_EQ(in->QueryId(&id), S_OK);
    EXPECT_EQ(std::u16string(id), u"In");
    CoTaskMemFree(id);
    EXPECT_EQ(out->QueryInternalConnections(nullptr, nullptr), E_NOTIMPL);
    EXPECT_EQ(out->Notify(nullptr, Quality{}), E_NOTIMPL);
    EXPECT_EQ(in->Notify(nullptr, Quality{}), S_OK);
}

TEST_F(Connection, APinKeepsItsFilterAliveUntilItsLastReference) {
    ComPtr<IPin> pin;
    ASSERT_EQ(sinkRef->FindPin(u"In", pin.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(in->PinReferenceCount(), 1);
    sinkRef = nullptr;
    EXPECT_FALSE(sinkGone);
    ComPtr<IQualityControl> quality;
    ASSERT_EQ(pin.As(&quality), S_OK);
    EXPECT_EQ(in->PinReferenceCount(), 2);
    quality = nullptr;
    pin = nullptr;
    EXPECT_TRUE(sinkGone);
    sinkRef = nullptr;
    in = nullptr;
}

TEST_F(Connection, NullArgumentsAreRefusedWithEPointer) {
    // The connect asserts; the assertion is reported and does not leave the platform method.
    testing::internal::CaptureStderr();
    EXPECT_EQ(out->Connect(nullptr, nullptr), E_UNEXPECTED);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Assertion failure"), std::string::npos);
    EXPECT_EQ(in->ReceiveConnection(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(in->QueryPinInfo(nullptr), E_POINTER);
    EXPECT_EQ(in->QueryDirection(nullptr), E_POINTER);
    EXPECT_EQ(in->QueryId(nullptr), E_POINTER);
    EXPECT_EQ(in->EnumMediaTypes(nullptr), E_POINTER);
    EXPECT_EQ(in->ConnectionMediaType(nullptr), E_POINTER);
    EXPECT_EQ(in->GetAllocator(nullptr), E_POINTER);
    EXPECT_EQ(sinkRef->EnumPins(nullptr), E_POINTER);
    EXPECT_EQ(sinkRef->FindPin(u"In", nullptr), E_POINTER);
    IPin* pin = reinterpret_cast<IPin*>(1);
    EXPECT_EQ(sinkRef->FindPin(nullptr, &pin), E_POINTER);
    EXPECT_EQ(pin, nullptr);
    EXPECT_EQ(sinkRef->QueryFilterInfo(nullptr), E_POINTER);
    EXPECT_EQ(sinkRef->GetClassID(nullptr), E_POINTER);
    EXPECT_EQ(sinkRef->GetSyncSource(nullptr), E_POINTER);
}

TEST_F(Connection, TheFourCCOfACompressedStreamIsFoundAtTheFirstInputPin) {
    OwnedType divx(
        MEDIATYPE_Video,
        GUID{0x58564944, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}});
    divx.mt.formattype = FORMAT_VideoInfo;
    ASSERT_EQ(out->Connect(in->AsPin(), &divx.mt), S_OK);
    ASSERT_EQ(sinkRef->JoinFilterGraph(nullptr, u"Renderer"), S_OK);
    std::u16string name;
    ComPtr<IBaseFilter> foundFilter;
    ComPtr<IPin> foundPin;
    EXPECT_EQ(QPGetPinFourCC(sinkRef.Get(), name, foundFilter, foundPin, u""), 0x58564944u);
    EXPECT_EQ(name, u"Renderer");
    EXPECT_EQ(foundFilter, sinkRef);
    EXPECT_EQ(foundPin.Get(), in->AsPin());
    // A skipped filter sends the walk upstream, where nothing is found: this level's code stands.
    EXPECT_EQ(QPGetPinFourCC(sinkRef.Get(), name, foundFilter, foundPin, u"Renderer"), 0x58564944u);
    EXPECT_EQ(QPGetPinFourCC(sourceRef.Get(), name, foundFilter, foundPin, u""),
              0u);  // no input pin
}
