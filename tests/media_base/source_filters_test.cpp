// The three source filters fed through SendData: the types they offer, the buffer they ask for,
// the stamps of their samples, end of stream and flushing, and SendData running while the graph
// changes state on another thread.
#include <gtest/gtest.h>

#include <thread>

#include "tests/media_base/TestFilters.h"
#include "tests/support/Wait.h"

using namespace mw::test;

namespace {

// A source filter of type F connected (or not yet) to a recording sink.
template <class F>
class SourceFixture : public MediaBaseTest {
protected:
    void SetUp() override {
        MediaBaseTest::SetUp();
        sink = new TTestSinkFilter(&sinkGone);
        sinkRef = sink->AsBaseFilter();
        in = sink->In();
    }
    void TearDown() override {
        if (sourceRef) {
            GraphStop(sinkRef.Get(), sourceRef.Get());
            DisconnectBoth(source->Pin()->AsPin(), in->AsPin());
            sourceRef = nullptr;
            EXPECT_TRUE(sourceGone);
        }
        sinkRef = nullptr;
        EXPECT_TRUE(sinkGone);
        MediaBaseTest::TearDown();
    }
    // Creates the source; sourceGone turns true when its last reference goes.
    template <class... A>
    void Make(A&&... args) {
        source = new Watched(&sourceGone, std::forward<A>(args)...);
        sourceRef = source->AsBaseFilter();
    }
    HRESULT Connect(const AM_MEDIA_TYPE* type = nullptr) {
        return source->Pin()->Connect(in->AsPin(), type);
    }
    HRESULT Run() { return GraphRun(sinkRef.Get(), sourceRef.Get()); }

    class Watched : public F {
    public:
        template <class... A>
        explicit Watched(bool* gone, A&&... args) : F(std::forward<A>(args)...), FGone(gone) {}
        ~Watched() override { *FGone = true; }

    private:
        bool* FGone;
    };

    bool sinkGone = false, sourceGone = false;
    TTestSinkFilter* sink = nullptr;
    ComPtr<IBaseFilter> sinkRef;
    TTestInputPin* in = nullptr;
    F* source = nullptr;
    ComPtr<IBaseFilter> sourceRef;
};

using AudioSource = SourceFixture<TDSAudioSourceFilter>;
using TextSource = SourceFixture<TDSTextSourceFilter>;
using BinarySource = SourceFixture<TDSBinarySourceFilter>;

std::vector<BYTE> Pattern(size_t n, BYTE seed = 0) {
    std::vector<BYTE> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<BYTE>(seed + i * 7);
    return v;
}

std::vector<BYTE> Joined(const std::vector<ReceivedSample>& samples) {
    std::vector<BYTE> all;
    for (const auto& s : samples)
        all.insert(all.end(), s.data.begin(), s.data.end());
    return all;
}

}  // namespace

TEST_F(AudioSource, BufferOfAHundredMillisecondsAt44100IsBytes17996) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(44100, 2, 16), false, 100);
    ASSERT_EQ(Connect(), S_OK);
    ALLOCATOR_PROPERTIES p{};
    ASSERT_EQ(source->Pin()->Allocator()->GetProperties(&p), S_OK);
    EXPECT_EQ(p.cbBuffer, 17996);
    EXPECT_EQ(p.cBuffers, 1);
}

TEST_F(AudioSource, TheBufferFollowsTheAgreedBlockNotTheStoredFormat) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(44100, 2, 16), false, 100);
    in->Offered.emplace_back(PcmFormat(22050, 2, 16));
    ASSERT_EQ(Connect(), S_OK);
    ALLOCATOR_PROPERTIES p{};
    ASSERT_EQ(source->Pin()->Allocator()->GetProperties(&p), S_OK);
    EXPECT_EQ(p.cbBuffer, 4 * (22050 * 102 / 1000 + 1));
}

TEST_F(AudioSource, OffersOneTypeAndAcceptsOnlyPcmAudioWithABlock) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(48000, 1, 16), false, 20);
    TDSAudioSourceStreamPin* pin = source->Pin();
    AM_MEDIA_TYPE mt{};
    EXPECT_EQ(pin->GetMediaType(1, &mt), VFW_S_NO_MORE_ITEMS);
    EXPECT_EQ(pin->GetMediaType(-1, &mt), E_INVALIDARG);
    ASSERT_EQ(pin->GetMediaType(0, &mt), S_OK);
    EXPECT_EQ(reinterpret_cast<tWAVEFORMATEX*>(mt.pbFormat)->nSamplesPerSec, 48000u);
    EXPECT_EQ(pin->CheckMediaType(&mt), S_OK);
    BYTE* block = mt.pbFormat;
    mt.pbFormat = nullptr;
    EXPECT_EQ(pin->CheckMediaType(&mt), E_INVALIDARG);
    mt.pbFormat = block;
    mt.majortype = MEDIATYPE_Text;
    EXPECT_EQ(pin->QueryAccept(&mt), S_FALSE);
    DSClearMediaType(&mt);
}

TEST_F(AudioSource, ABasicFormatIsStoredAsPlainPcmAndTheCallersCopyIsLeft) {
    Make(kTestClsid);
    TQAWaveFormatExtensible f = PcmFormat(48000, 6, 16);
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.cbSize = 22;
    source->SetFormat(f, true, 20);
    EXPECT_EQ(source->Pin()->Format().wFormatTag, WAVE_FORMAT_PCM);
    EXPECT_EQ(source->Pin()->Format().cbSize, 0);
    EXPECT_EQ(f.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(source->Pin()->GetMediaType(0, &mt), S_OK);
    EXPECT_EQ(mt.lSampleSize, 12u);  // the basic type counts samples in blocks
    DSClearMediaType(&mt);
}

TEST_F(AudioSource, SendDataOnAnUnconnectedPinTakesNoSample) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(), false, 100);
    const auto data = Pattern(100);
    EXPECT_FALSE(source->SendData(data.data(), 100, 1, 2, true));
    source->Flush();  // unconnected: nothing happens and nothing is reported
    EXPECT_EQ(source->DeliverEndOfStream(), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(in->ReceivedCount, 0);
}

TEST_F(AudioSource, StampsOneTwoAndThreeSamplesByChunk) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(44100, 2, 16), false, 100);  // 17996-byte samples
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);

    const auto one = Pattern(1000);
    ASSERT_TRUE(source->SendData(one.data(), 1000, 1000, 2000, true));
    auto got = in->TakeSamples();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].start, 1000);
    EXPECT_EQ(got[0].stop, 2000);
    EXPECT_TRUE(got[0].syncPoint);
    EXPECT_EQ(got[0].data, one);

    const auto two = Pattern(17996 + 100, 3);
    ASSERT_TRUE(source->SendData(two.data(), static_cast<int>(two.size()), 5000, 9000, false));
    got = in->TakeSamples();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].start, 5000);
    EXPECT_EQ(got[0].stop, 9000);
    EXPECT_EQ(got[1].start, 9000);
    EXPECT_EQ(got[1].stop, 9000);
    EXPECT_FALSE(got[1].syncPoint);
    EXPECT_EQ(got[1].data.size(), 100u);
    EXPECT_EQ(Joined(got), two);

    const auto three = Pattern(2 * 17996 + 10, 5);
    ASSERT_TRUE(source->SendData(three.data(), static_cast<int>(three.size()), 100, 400, true));
    got = in->TakeSamples();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].start, 100);
    EXPECT_EQ(got[0].stop, 400);
    EXPECT_EQ(got[1].start, 400);
    EXPECT_EQ(got[1].stop, 400);
    EXPECT_EQ(got[2].start, 400);
    EXPECT_EQ(got[2].stop, 400);
    EXPECT_EQ(Joined(got), three);
}

TEST_F(AudioSource, SamplesWithoutTimesWhenStartAndStopAreZero) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(), false, 100);
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);
    const auto data = Pattern(64);
    ASSERT_TRUE(source->SendData(data.data(), 64, 0, 0, true));
    auto got = in->TakeSamples();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].timeResult, VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_FALSE(got[0].syncPoint);
}

TEST_F(AudioSource, AnEmptySendStillDeliversOneStampedSample) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(), false, 100);
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);
    ASSERT_TRUE(source->SendData(nullptr, 0, 700, 900, false));
    auto got = in->TakeSamples();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_TRUE(got[0].data.empty());
    EXPECT_EQ(got[0].timeResult, S_OK);
    EXPECT_EQ(got[0].start, 700);
    EXPECT_EQ(got[0].stop, 700);  // nothing done over a divisor of 1
}

TEST_F(AudioSource, EndOfStreamAndFlushReachThePeer) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(), false, 100);
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);
    EXPECT_EQ(source->DeliverEndOfStream(), S_OK);
    EXPECT_EQ(in->EndOfStreams, 1);
    source->Flush();
    EXPECT_EQ(in->BeginFlushes, 1);
    EXPECT_EQ(in->EndFlushes, 1);
    EXPECT_FALSE(in->IsFlushing());
}

TEST_F(AudioSource, AStoppedFilterGivesUpAfter1001Requests) {
    Make(kTestClsid);
    source->SetFormat(PcmFormat(), false, 100);
    ComPtr<CountingAllocator> counting = MwNew<CountingAllocator>();
    in->OwnAllocator = counting;
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(source->Pin()->Allocator(), static_cast<IMemAllocator*>(counting.Get()));
    const auto data = Pattern(100);
    EXPECT_FALSE(source->SendData(data.data(), 100, 1, 2, false));
    EXPECT_EQ(counting->Requests, 1001);
    EXPECT_EQ(in->ReceivedCount, 0);
}

TEST_F(TextSource, StampsTwoEqualSamplesAtTheMiddleAndThreeAheadOfEven) {
    Make("Text", kTestClsid);
    source->Pin()->SetBufferSize(100);
    ASSERT_EQ(Connect(), S_OK);
    EXPECT_EQ(in->GetAMMediaType()->majortype, MEDIATYPE_Text);
    ASSERT_EQ(Run(), S_OK);
    const auto data = Pattern(300);
    ASSERT_TRUE(source->SendData(data.data(), 200, 1000, 3000, true));
    auto got = in->TakeSamples();
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].start, 1000);
    EXPECT_EQ(got[0].stop, 2000);
    EXPECT_EQ(got[1].start, 2000);
    EXPECT_EQ(got[1].stop, 3000);

    ASSERT_TRUE(source->SendData(data.data(), 300, 0, 900, false));
    got = in->TakeSamples();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].stop, 300);
    EXPECT_EQ(got[1].stop, 700);  // the base moves with each stamp
    EXPECT_EQ(got[2].stop, 900);
    EXPECT_EQ(Joined(got), data);
}

TEST_F(TextSource, AcceptsOnlyTextAndOffersTextWithoutSubtype) {
    Make("Text", kTestClsid);
    AM_MEDIA_TYPE mt{};
    ASSERT_EQ(source->Pin()->GetMediaType(0, &mt), S_OK);
    EXPECT_EQ(mt.majortype, MEDIATYPE_Text);
    EXPECT_EQ(mt.subtype, MEDIASUBTYPE_NULL);
    EXPECT_EQ(source->Pin()->GetMediaType(1, &mt), VFW_S_NO_MORE_ITEMS);
    EXPECT_EQ(source->Pin()->CheckMediaType(&mt), S_OK);
    OwnedType audio(PcmFormat());
    EXPECT_EQ(source->Pin()->CheckMediaType(&audio.mt), E_INVALIDARG);
    ComPtr<IPin> pin;
    EXPECT_EQ(sourceRef->FindPin(u"TextOutput", pin.ReleaseAndGetAddressOf()), S_OK);
    EXPECT_EQ(sourceRef->FindPin(u"AudioOutput", pin.ReleaseAndGetAddressOf()), VFW_E_NOT_FOUND);
}

// A text source of 64-byte samples, connected but stopped, with a send of 100 bytes on another
// thread that keeps asking for samples.
class StoppedTextSend : public TextSource {
protected:
    void StartSend() {
        Make("Text", kTestClsid);
        source->Pin()->SetBufferSize(64);
        counting = MwNew<CountingAllocator>();
        in->OwnAllocator = counting;
        ASSERT_EQ(Connect(), S_OK);
        sender = std::thread([this] {
            result = source->SendData(data.data(), 100, 10, 20, true);
            done = true;
        });
    }
    void TearDown() override {
        if (sender.joinable()) sender.join();
        TextSource::TearDown();
    }

    ComPtr<CountingAllocator> counting;
    const std::vector<BYTE> data = Pattern(100);
    std::atomic<bool> done{false}, result{false};
    std::thread sender;
};

TEST_F(StoppedTextSend, KeepsTryingUntilTheGraphRuns) {
    StartSend();
    EXPECT_TRUE(
        WaitUntil([&] { return counting->Requests > 1100; }));  // past the audio pin's limit
    EXPECT_FALSE(done);
    ASSERT_EQ(Run(), S_OK);
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    sender.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(Joined(in->TakeSamples()), data);
}

TEST_F(StoppedTextSend, ADisconnectMakesItGiveUp) {
    result = true;
    StartSend();
    EXPECT_TRUE(WaitUntil([&] { return counting->Requests > 10; }));
    // The disconnect takes the allocator and the peer away: it waits for the send to give up.
    DisconnectBoth(source->Pin()->AsPin(), in->AsPin());
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    sender.join();
    EXPECT_FALSE(result);
    EXPECT_FALSE(source->Pin()->IsConnected());
    EXPECT_TRUE(in->TakeSamples().empty());
    // A send after the disconnect finds the pin unconnected.
    EXPECT_FALSE(source->SendData(data.data(), 100, 10, 20, true));
}

TEST_F(BinarySource, ConnectBeforeTheTypeIsSetIsAHarmlessNoOp) {
    Make("Binary", kTestClsid);
    EXPECT_EQ(Connect(), S_OK);
    EXPECT_FALSE(source->Pin()->IsConnected());
    EXPECT_FALSE(in->IsConnected());
    EXPECT_EQ(in->CheckCalls, 0);
}

TEST_F(BinarySource, CarriesDataInChunksOfTheSetSizeWithoutTimes) {
    Make("Binary", kTestClsid);
    OwnedType type(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    source->SetMediaType(&type.mt);
    source->SetFormat(64);
    in->Offered.emplace_back(MEDIATYPE_Audio, MEDIASUBTYPE_PCM);  // the receiver's type comes first
    ASSERT_EQ(Connect(), S_OK);
    EXPECT_EQ(in->GetAMMediaType()->majortype, MEDIATYPE_Audio);
    ASSERT_EQ(Run(), S_OK);
    const auto data = Pattern(150);
    ASSERT_TRUE(source->SendData(data.data(), 150));
    auto got = in->TakeSamples();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[2].data.size(), 22u);
    EXPECT_EQ(got[0].timeResult, VFW_E_SAMPLE_TIME_NOT_SET);
    EXPECT_EQ(Joined(got), data);
    EXPECT_EQ(source->DeliverEndOfStream(), S_OK);
    EXPECT_EQ(in->EndOfStreams, 1);
}

TEST_F(BinarySource, ADecommitUnderABlockedRequestIsWaitedOut) {
    Make("Binary", kTestClsid);
    OwnedType type(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    source->SetMediaType(&type.mt);
    source->SetFormat(32);
    ComPtr<CountingAllocator> counting = MwNew<CountingAllocator>();
    in->OwnAllocator = counting;
    in->HoldSamples = true;  // the one buffer stays downstream: the next request blocks
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);
    const auto data = Pattern(64);
    std::atomic<bool> done{false}, result{false};
    std::thread sender([&] {
        result = source->SendData(data.data(), 64);
        done = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return counting->Requests == 2 && in->ReceivedCount == 1; }));
    EXPECT_FALSE(done);
    // Stopping wakes the blocked request with a failure; the pin retries until the graph runs.
    ASSERT_EQ(GraphStop(sinkRef.Get(), sourceRef.Get()), S_OK);
    EXPECT_TRUE(WaitUntil([&] { return counting->Requests > 10; }));
    EXPECT_FALSE(done);
    in->HoldSamples = false;
    in->ReleaseHeld();
    ASSERT_EQ(Run(), S_OK);
    EXPECT_TRUE(WaitUntil([&] { return done.load(); }));
    sender.join();
    EXPECT_TRUE(result);
    EXPECT_EQ(Joined(in->TakeSamples()), data);
}

// The three sources, each feeding its own sink, sent to from one thread while the test thread
// pauses, stops and runs all of them.
TEST(SourceFilters, SendDataFromAllThreeWhileAnotherThreadChangesState) {
    ASSERT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
    ASSERT_TRUE(SUCCEEDED(mw::graph::RegisterMemoryAllocator()));
    auto* audio = new TDSAudioSourceFilter(kTestClsid);
    auto* text = new TDSTextSourceFilter("Text", kTestClsid);
    auto* binary = new TDSBinarySourceFilter("Binary", kTestClsid);
    ComPtr<IBaseFilter> sources[3] = {audio->AsBaseFilter(), text->AsBaseFilter(),
                                      binary->AsBaseFilter()};
    TDSSourceStreamPin* outs[3] = {audio->Pin(), text->Pin(), binary->Pin()};
    TTestSinkFilter* sinks[3];
    ComPtr<IBaseFilter> sinkRefs[3];
    for (int i = 0; i < 3; ++i) {
        sinks[i] = new TTestSinkFilter();
        sinkRefs[i] = sinks[i]->AsBaseFilter();
    }
    audio->SetFormat(PcmFormat(8000, 1, 8), false, 10);  // 97-byte samples
    text->Pin()->SetBufferSize(64);
    OwnedType stream(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    binary->SetMediaType(&stream.mt);
    binary->SetFormat(48);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(outs[i]->Connect(sinks[i]->In()->AsPin(), nullptr), S_OK);
        ASSERT_EQ(GraphRun(sinkRefs[i].Get(), sources[i].Get()), S_OK);
    }

    std::atomic<bool> stop{false};
    std::atomic<int> sent{0};
    std::thread sender([&] {
        for (int i = 0; !stop; ++i) {
            std::vector<BYTE> block(150, static_cast<BYTE>(i));
            switch (i % 3) {
                case 0:
                    audio->SendData(block.data(), 150, i * 100 + 1, i * 100 + 100, true);
                    break;
                case 1:
                    text->SendData(block.data(), 150, i * 100 + 1, i * 100 + 100, false);
                    break;
                default:
                    binary->SendData(block.data(), 150);
                    break;
            }
            ++sent;
        }
    });
    for (int round = 0; round < 30; ++round) {
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(GraphPause(sinkRefs[i].Get(), sources[i].Get()), S_OK);
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(GraphStop(sinkRefs[i].Get(), sources[i].Get()), S_OK);
        for (int i = 0; i < 3; ++i)
            ASSERT_EQ(GraphRun(sinkRefs[i].Get(), sources[i].Get()), S_OK);
        const int before = sent;
        ASSERT_TRUE(WaitUntil([&] { return sent.load() > before + 3; }));
    }
    stop = true;
    sender.join();
    for (int i = 0; i < 3; ++i) {
        EXPECT_GT(sinks[i]->In()->ReceivedCount.load(), 0);
        // Every sample that arrived is one piece of one block: no torn or mixed data.
        for (const auto& s : sinks[i]->In()->TakeSamples()) {
            ASSERT_FALSE(s.data.empty());
            for (BYTE b : s.data)
                ASSERT_EQ(b, s.data[0]);
        }
        ASSERT_EQ(GraphStop(sinkRefs[i].Get(), sources[i].Get()), S_OK);
        DisconnectBoth(outs[i]->AsPin(), sinks[i]->In()->AsPin());
    }
    CoUninitialize();
}

// While the handshake chooses the allocator the peer is already stored: a send then must find
// the connection not ready rather than retry for an allocator that is not there yet.
TEST_F(BinarySource, ASendDuringTheHandshakeFindsNoConnection) {
    Make("Binary", kTestClsid);
    OwnedType type(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    source->SetMediaType(&type.mt);
    source->SetFormat(32);
    const auto data = Pattern(32);
    std::atomic<bool> done{false}, result{true}, sawPeer{false};
    std::thread sender;
    in->OnGetAllocator = [&] {
        if (sender.joinable()) return;
        sawPeer = source->Pin()->IsConnected();
        sender = std::thread([&] {
            result = source->SendData(data.data(), 32);
            done = true;
        });
        EXPECT_TRUE(WaitUntil([&] { return done.load(); }, std::chrono::seconds(10)));
    };
    ASSERT_EQ(Connect(), S_OK);
    EXPECT_TRUE(sawPeer);
    if (!done) {
        ASSERT_EQ(Run(), S_OK);  // lets a send stuck on the old path finish
    }
    sender.join();
    EXPECT_FALSE(result);
    EXPECT_TRUE(in->TakeSamples().empty());
}

// A downstream Receive that calls back into a locked method of the source while the source is
// being disconnected: the disconnect waits for the send with the filter lock released.
TEST_F(BinarySource, ADisconnectWaitingForASendLetsItsReceiveCallBackIntoTheFilter) {
    Make("Binary", kTestClsid);
    OwnedType type(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    source->SetMediaType(&type.mt);
    source->SetFormat(32);
    ASSERT_EQ(Connect(), S_OK);
    ASSERT_EQ(Run(), S_OK);
    std::atomic<bool> inReceive{false}, calledBack{false}, sent{false}, disconnected{false};
    std::atomic<HRESULT> callback{E_FAIL}, disconnect{E_FAIL};
    std::thread caller;
    in->OnReceive = [&] {
        if (caller.joinable()) return;
        inReceive = true;
        EXPECT_TRUE(WaitUntil([&] { return source->Pin()->Breaking(); }));
        caller = std::thread([&] {
            AM_MEDIA_TYPE mt{};
            callback = source->Pin()->ConnectionMediaType(&mt);  // takes the filter lock
            DSClearMediaType(&mt);
            calledBack = true;
        });
        EXPECT_TRUE(WaitUntil([&] { return calledBack.load(); }, std::chrono::seconds(5)))
            << "the disconnect holds the filter lock while it waits for the send";
    };
    const auto data = Pattern(32);
    std::thread sender([&] {
        source->SendData(data.data(), 32);
        sent = true;
    });
    ASSERT_TRUE(WaitUntil([&] { return inReceive.load(); }));
    ASSERT_EQ(sourceRef->Stop(), S_OK);
    std::thread disconnecter([&] {
        disconnect = source->Pin()->Disconnect();
        disconnected = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return sent.load() && disconnected.load(); }));
    disconnecter.join();
    sender.join();
    caller.join();
    EXPECT_EQ(callback.load(), S_OK);  // still connected while the send was in flight
    EXPECT_EQ(disconnect.load(), S_OK);
    EXPECT_FALSE(source->Pin()->IsConnected());
}

// Connections made and broken over and over while another thread sends and asks for the peer:
// every send ends, and (under the thread checker) nothing is read while it is written.
TEST_F(BinarySource, SendsAndPeerQueriesWhileTheConnectionComesAndGoes) {
    Make("Binary", kTestClsid);
    OwnedType type(MEDIATYPE_Stream, MEDIASUBTYPE_NULL);
    source->SetMediaType(&type.mt);
    source->SetFormat(16);
    std::atomic<bool> stop{false};
    std::atomic<int> sends{0}, delivered{0};
    std::thread sender([&] {
        const auto data = Pattern(16);
        while (!stop) {
            if (source->SendData(data.data(), 16)) ++delivered;
            ComPtr<IPin> peer;
            if (source->Pin()->ConnectedTo(peer.ReleaseAndGetAddressOf()) == S_OK) {
                EXPECT_EQ(peer.Get(), in->AsPin());
            }
            ++sends;
        }
    });
    for (int round = 0; round < 150; ++round) {
        ASSERT_EQ(Connect(), S_OK);
        ASSERT_EQ(Run(), S_OK);
        const int before = sends;
        ASSERT_TRUE(WaitUntil([&] { return sends.load() > before + 1; }));
        ASSERT_EQ(GraphStop(sinkRef.Get(), sourceRef.Get()), S_OK);
        DisconnectBoth(source->Pin()->AsPin(), in->AsPin());
        ASSERT_FALSE(source->Pin()->IsConnected());
    }
    stop = true;
    sender.join();
    EXPECT_GT(delivered.load(), 0);
}
