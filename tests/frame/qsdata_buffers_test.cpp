// Sample buffers: what each constructor owns or shares, the audio view of a block, time
// stamps seen through every view, sizes, alignment and the empty buffer.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "frame/QSData.h"

namespace {

bool Aligned16(const void* p) {
    return reinterpret_cast<uintptr_t>(p) % 16 == 0;
}

class ForeignStamp : public TInterfacedObject<IQMTimeStamp> {
public:
    STDMETHODIMP_(bool) HasTimes() override { return FHas; }
    STDMETHODIMP_(void) SetHasTimes(bool v) override { FHas = v; }
    STDMETHODIMP_(int64_t) StartTime() override { return FStart; }
    STDMETHODIMP_(void) SetStartTime(int64_t v) override { FStart = v; }
    STDMETHODIMP_(int64_t) EndTime() override { return FEnd; }
    STDMETHODIMP_(void) SetEndTime(int64_t v) override { FEnd = v; }
    bool FHas = false;
    int64_t FStart = 0, FEnd = 0;
};

// An IQSData of another implementation, as a platform binding might bring one.
class ForeignData : public TInterfacedObject<IQSData> {
public:
    explicit ForeignData(uint32_t size) : FBytes(size), FStamp(MwNew<ForeignStamp>()) {
        std::iota(FBytes.begin(), FBytes.end(), BYTE(1));
    }
    STDMETHODIMP_(const BYTE*) ReadPointer() override { return FBytes.data(); }
    STDMETHODIMP_(BYTE*) WritePointer() override { return FBytes.data(); }
    STDMETHODIMP_(BYTE*) GetBlockPointer() override { return FBytes.data(); }
    STDMETHODIMP_(uint32_t) ByteSize() override { return uint32_t(FBytes.size()); }
    STDMETHODIMP_(uint32_t) SampleCount() override { return uint32_t(FBytes.size() / 4); }
    STDMETHODIMP_(void) FlattenInterleaved(bool) override {}
    STDMETHODIMP GetTimeStamp(IQMTimeStamp** stamp) override {
        return ComPtr<IQMTimeStamp>(FStamp).CopyTo(stamp);
    }
    STDMETHODIMP_(uint32_t) SampleRate() override { return 8000; }
    STDMETHODIMP_(const BYTE*) InterleavedPointer() override { return FBytes.data(); }
    STDMETHODIMP_(BYTE*) InterleavedWritePointer() override { return FBytes.data(); }
    STDMETHODIMP_(void) Resize(uint32_t n, bool) override { FBytes.resize(n); }

    std::vector<BYTE> FBytes;
    ComPtr<ForeignStamp> FStamp;
};

}  // namespace

TEST(BlockBuffer, SizeConstructorGivesZeroedAlignedBytes) {
    auto b = MwNew<TQSBlockBuffer>(1000u);
    ASSERT_EQ(b->ByteSize(), 1000u);
    EXPECT_TRUE(Aligned16(b->ReadPointer()));
    for (uint32_t i = 0; i < 1000; ++i)
        ASSERT_EQ(b->ReadPointer()[i], 0) << i;
    EXPECT_EQ(b->SampleRate(), 0u);
    EXPECT_EQ(b->SampleCount(), 1000u);  // no format: one sample a byte
}

TEST(BlockBuffer, PointerConstructorCopiesTheBytes) {
    std::vector<BYTE> source{1, 2, 3, 4, 5};
    auto b = MwNew<TQSBlockBuffer>(source.data(), uint32_t(source.size()));
    source[0] = 99;
    EXPECT_NE(b->ReadPointer(), source.data());
    EXPECT_EQ(b->ReadPointer()[0], 1);
    EXPECT_EQ(b->ReadPointer()[4], 5);
    EXPECT_TRUE(Aligned16(b->ReadPointer()));
}

TEST(BlockBuffer, DataConstructorSharesBytesAndTimes) {
    auto first = MwNew<TQSBlockBuffer>(16u);
    auto second = MwNew<TQSBlockBuffer>(ComPtr<IQSData>(first));
    EXPECT_EQ(second->ReadPointer(), first->ReadPointer());
    second->WritePointer()[3] = 42;
    EXPECT_EQ(first->ReadPointer()[3], 42);

    first->TimeStamp()->SetHasTimes(true);
    first->TimeStamp()->SetStartTime(100);
    first->TimeStamp()->SetEndTime(200);
    auto stamp = second->TimeStamp();
    EXPECT_TRUE(stamp->HasTimes());
    EXPECT_EQ(stamp->StartTime(), 100);
    EXPECT_EQ(stamp->EndTime(), 200);

    // The shared bytes outlive the buffer they came from.
    first = nullptr;
    EXPECT_EQ(second->ReadPointer()[3], 42);
}

TEST(BlockBuffer, ResizeIsSeenByEveryViewAndKeepsTheBytes) {
    auto a = MwNew<TQSBlockBuffer>(4u);
    auto b = MwNew<TQSBlockBuffer>(ComPtr<IQSData>(a));
    std::memcpy(a->WritePointer(), "\x01\x02\x03\x04", 4);
    b->Resize(64, false);
    EXPECT_EQ(a->ByteSize(), 64u);
    EXPECT_EQ(a->ReadPointer(), b->ReadPointer());
    EXPECT_TRUE(Aligned16(a->ReadPointer()));
    EXPECT_EQ(a->ReadPointer()[3], 4);
    EXPECT_EQ(a->ReadPointer()[4], 0);
    EXPECT_EQ(a->ReadPointer()[63], 0);
}

TEST(BlockBuffer, ShrinkKeepsCapacityUnlessAskedAndRegrowReadsZero) {
    auto b = MwNew<TQSBlockBuffer>(32u);
    std::memset(b->WritePointer(), 0xEE, 32);
    const BYTE* before = b->ReadPointer();
    b->Resize(8, false);
    EXPECT_EQ(b->ByteSize(), 8u);
    EXPECT_EQ(b->ReadPointer(), before);  // no new memory for a smaller size
    b->Resize(32, false);
    EXPECT_EQ(b->ReadPointer()[7], 0xEE);
    EXPECT_EQ(b->ReadPointer()[8], 0);  // what the larger size left is not shown again
    EXPECT_EQ(b->ReadPointer()[31], 0);

    b->Resize(4, true);
    EXPECT_EQ(b->ByteSize(), 4u);
    EXPECT_EQ(b->ReadPointer()[3], 0xEE);
}

TEST(BlockBuffer, ZeroBytesIsALegalBuffer) {
    auto empty = MwNew<TQSBlockBuffer>(0u);
    EXPECT_EQ(empty->ByteSize(), 0u);
    EXPECT_EQ(empty->SampleCount(), 0u);
    EXPECT_NE(empty->ReadPointer(), nullptr);  // memcpy of 0 bytes from it stays defined
    EXPECT_TRUE(Aligned16(empty->ReadPointer()));

    auto copied = MwNew<TQSBlockBuffer>(nullptr, 0u);
    EXPECT_EQ(copied->ByteSize(), 0u);

    auto fromNull = MwNew<TQSBlockBuffer>(ComPtr<IQSData>());
    EXPECT_EQ(fromNull->ByteSize(), 0u);

    empty->Resize(10, false);
    EXPECT_EQ(empty->ByteSize(), 10u);
    EXPECT_EQ(empty->ReadPointer()[9], 0);
}

TEST(BlockBuffer, AnswersForEveryDataInterface) {
    auto b = MwNew<TQSBlockBuffer>(1u);
    ComPtr<IQSData> data;
    ComPtr<IQSDataBuffer> buffer;
    ComPtr<IQSBlockBuffer> block;
    ComPtr<IQAAudioBuffer> audio;
    EXPECT_EQ(ComPtr<IQSBlockBuffer>(b).As(&data), S_OK);
    EXPECT_EQ(data.As(&buffer), S_OK);
    EXPECT_EQ(data.As(&block), S_OK);
    EXPECT_EQ(data.As(&audio), E_NOINTERFACE);
    EXPECT_EQ(static_cast<IQSData*>(buffer.Get()), data.Get());
}

TEST(AudioBuffer, NewBufferHasTheFormatOfItsArguments) {
    auto a = MwNew<TQAAudioBuffer>(44100u, uint16_t(16), uint16_t(2), 441u);
    EXPECT_EQ(a->ByteSize(), 441u * 4);
    EXPECT_EQ(a->SampleCount(), 441u);
    EXPECT_EQ(a->SampleRate(), 44100u);
    const auto f = a->GetWaveFormat();
    EXPECT_TRUE(QAIsEqualAudioFormat(f, mw::MakePcmWaveFormat(44100, 16, 2)));
    EXPECT_EQ(f.wValidBitsPerSample, 16);
    EXPECT_EQ(a->Speakers(), TQASpeakers(3));
    EXPECT_TRUE(Aligned16(a->InterleavedPointer()));
    EXPECT_EQ(a->InterleavedPointer(), a->ReadPointer());
    EXPECT_EQ(a->InterleavedWritePointer(), a->GetBlockPointer());
}

TEST(AudioBuffer, SpeakerSetBecomesTheChannelMask) {
    const TQASpeakers sides{TQASpeaker::SideLeft, TQASpeaker::SideRight};
    auto a = MwNew<TQAAudioBuffer>(48000u, uint16_t(24), uint16_t(2), 10u, sides);
    EXPECT_EQ(a->GetWaveFormat().dwChannelMask, DWORD(SPEAKER_SIDE_LEFT | SPEAKER_SIDE_RIGHT));
    EXPECT_EQ(a->Speakers(), sides);
    EXPECT_EQ(a->GetWaveFormat().nBlockAlign, 6);
    EXPECT_EQ(a->ByteSize(), 60u);
}

TEST(AudioBuffer, StreamFormatConstructorKeepsWideContainers) {
    auto format = mw::MakePcmWaveFormat(96000, 32, 2);
    format.wValidBitsPerSample = 24;  // 24 valid bits in 32-bit containers
    auto a = MwNew<TQAAudioBuffer>(format, 10u);
    EXPECT_EQ(a->ByteSize(), 80u);
    EXPECT_EQ(a->SampleCount(), 10u);
    EXPECT_TRUE(QAIsEqualAudioFormat(a->GetWaveFormat(), format));
}

TEST(AudioBuffer, SamplesPerChannelAreBytesOverBlockAlign) {
    auto a = MwNew<TQAAudioBuffer>(8000u, uint16_t(16), uint16_t(3), 5u);
    ASSERT_EQ(a->ByteSize(), 30u);
    a->Resize(35, false);  // a partial frame does not count
    EXPECT_EQ(a->SampleCount(), 5u);
    a->Resize(36, false);
    EXPECT_EQ(a->SampleCount(), 6u);
}

TEST(AudioBuffer, EmptyConstructorHasNoBytesAndNoFormat) {
    auto a = MwNew<TQAAudioBuffer>();
    EXPECT_EQ(a->ByteSize(), 0u);
    EXPECT_EQ(a->SampleCount(), 0u);
    EXPECT_EQ(a->SampleRate(), 0u);
    EXPECT_FALSE(mw::HasWaveFormat(a->GetWaveFormat()));
    a->Resize(100, false);  // a working buffer grows on demand
    EXPECT_EQ(a->ByteSize(), 100u);
}

TEST(AudioBuffer, ZeroSamplesMakeAnEmptyBufferWithAFormat) {
    auto a = MwNew<TQAAudioBuffer>(11025u, uint16_t(16), uint16_t(1), 0u);
    EXPECT_EQ(a->ByteSize(), 0u);
    EXPECT_EQ(a->SampleCount(), 0u);
    EXPECT_EQ(a->SampleRate(), 11025u);
}

TEST(AudioBuffer, SizeBeyond32BitsIsRefused) {
    EXPECT_THROW(MwNew<TQAAudioBuffer>(48000u, uint16_t(32), uint16_t(32), 0x10000000u),
                 std::length_error);
}

TEST(AudioBuffer, WrappingArrivedDataSeesTheSendersBytesFormatAndTimes) {
    // What a source does: fill the bytes, then the times, then submit the data.
    auto sent = MwNew<TQAAudioBuffer>(22050u, uint16_t(16), uint16_t(1), 4u);
    std::memcpy(sent->InterleavedWritePointer(), "\x10\x00\x20\x00\x30\x00\x40\x00", 8);
    auto stamp = sent->TimeStamp();
    stamp->SetHasTimes(true);
    stamp->SetStartTime(5'000'000);
    stamp->SetEndTime(5'018'140);
    ComPtr<IQSData> arrived = sent;
    sent = nullptr;

    auto wrapped = MwNew<TQAAudioBuffer>(arrived);
    EXPECT_EQ(wrapped->ReadPointer(), arrived->ReadPointer());
    EXPECT_EQ(wrapped->SampleRate(), 22050u);
    EXPECT_EQ(wrapped->SampleCount(), 4u);
    EXPECT_EQ(wrapped->GetWaveFormat().nChannels, 1);
    EXPECT_EQ(wrapped->ReadPointer()[4], 0x30);
    auto times = wrapped->TimeStamp();
    EXPECT_TRUE(times->HasTimes());
    EXPECT_EQ(times->StartTime(), 5'000'000);
    EXPECT_EQ(times->EndTime(), 5'018'140);
}

TEST(AudioBuffer, BlockAndAudioViewsOfOneBlockAgree) {
    auto audio = MwNew<TQAAudioBuffer>(16000u, uint16_t(16), uint16_t(2), 8u);
    auto block = MwNew<TQSBlockBuffer>(ComPtr<IQSData>(audio));
    EXPECT_EQ(block->SampleRate(), 16000u);
    EXPECT_EQ(block->SampleCount(), 8u);
    auto again = MwNew<TQAAudioBuffer>(ComPtr<IQSData>(block));
    EXPECT_EQ(again->ReadPointer(), audio->ReadPointer());
    audio->SetWaveFormat(mw::MakePcmWaveFormat(16000, 16, 1));
    EXPECT_EQ(again->SampleCount(), 16u);
}

TEST(AudioBuffer, WrappingAPlainBlockGivesNoFormat) {
    auto plain = MwNew<TQSBlockBuffer>(12u);
    auto audio = MwNew<TQAAudioBuffer>(ComPtr<IQSData>(plain));
    EXPECT_EQ(audio->SampleRate(), 0u);
    EXPECT_FALSE(mw::HasWaveFormat(audio->GetWaveFormat()));
    EXPECT_EQ(audio->ByteSize(), 12u);
}

TEST(AudioBuffer, ForeignDataIsBorrowedUntilResized) {
    auto foreign = MwNew<ForeignData>(16u);
    foreign->FStamp->FHas = true;
    foreign->FStamp->FStart = 7;
    foreign->FStamp->FEnd = 9;
    auto audio = MwNew<TQAAudioBuffer>(ComPtr<IQSData>(foreign));
    EXPECT_EQ(audio->ReadPointer(), foreign->FBytes.data());
    EXPECT_EQ(audio->SampleRate(), 8000u);
    EXPECT_EQ(audio->SampleCount(), 4u);
    auto stamp = audio->TimeStamp();
    EXPECT_TRUE(stamp->HasTimes());
    EXPECT_EQ(stamp->EndTime(), 9);
    stamp->SetEndTime(11);
    EXPECT_EQ(foreign->FStamp->FEnd, 11);

    audio->Resize(20, false);
    EXPECT_NE(audio->ReadPointer(), foreign->FBytes.data());
    EXPECT_EQ(audio->ReadPointer()[15], 16);
    EXPECT_EQ(audio->ReadPointer()[16], 0);
    EXPECT_EQ(foreign->FBytes.size(), 16u);
    EXPECT_TRUE(Aligned16(audio->ReadPointer()));
}

TEST(AudioBuffer, FlattenLeavesInterleavedBytesInPlace) {
    auto a = MwNew<TQAAudioBuffer>(8000u, uint16_t(8), uint16_t(2), 3u);
    std::memcpy(a->InterleavedWritePointer(), "abcdef", 6);
    const BYTE* before = a->InterleavedPointer();
    a->FlattenInterleaved(true);
    EXPECT_EQ(a->InterleavedPointer(), before);
    EXPECT_EQ(std::memcmp(a->InterleavedPointer(), "abcdef", 6), 0);
}
