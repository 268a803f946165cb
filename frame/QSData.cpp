#include "frame/QSData.h"

#include <cstring>
#include <new>
#include <stdexcept>

namespace mw {
namespace {

BYTE* AllocateBytes(uint32_t size) {
    if (size == 0) return nullptr;
    return static_cast<BYTE*>(::operator new (size, std::align_val_t{SampleBlock::kAlignment}));
}

void FreeBytes(BYTE* p) {
    if (p) ::operator delete (p, std::align_val_t{SampleBlock::kAlignment});
}

// What a block without bytes points to: aligned, never written (every write is 0 bytes long).
alignas(SampleBlock::kAlignment) BYTE gNoBytes[SampleBlock::kAlignment];

}  // namespace

SampleBlock::SampleBlock(uint32_t size) : FData(AllocateBytes(size)), FSize(size), FCapacity(size) {
    if (FData) std::memset(FData, 0, size);
}

SampleBlock::SampleBlock(const void* bytes, uint32_t size)
    : FData(AllocateBytes(size)), FSize(size), FCapacity(size) {
    if (FData) std::memcpy(FData, bytes, size);
}

SampleBlock::SampleBlock(IQSData* foreign) : FForeign(foreign) {
    FData = foreign->GetBlockPointer();
    FSize = foreign->ByteSize();
    FForeignStamp = foreign->TimeStamp();
    // A foreign buffer tells its rate and sample count, not its format: keep what it tells.
    FFormat.nSamplesPerSec = foreign->SampleRate();
    const uint32_t samples = foreign->SampleCount();
    if (samples != 0 && samples != FSize && FSize % samples == 0 && FSize / samples <= 0xFFFF)
        FFormat.nBlockAlign = static_cast<WORD>(FSize / samples);
}

SampleBlock::~SampleBlock() {
    if (!FForeign) FreeBytes(FData);
}

BYTE* SampleBlock::Bytes() const {
    return FData ? FData : gNoBytes;
}

void SampleBlock::Resize(uint32_t newSize, bool releaseSpare) {
    const bool borrowed = static_cast<bool>(FForeign);
    const bool fits = !borrowed && newSize <= FCapacity;
    if (fits && !(releaseSpare && newSize < FCapacity)) {
        // Bytes beyond the old size may hold what an earlier, larger size left there.
        if (newSize > FSize) std::memset(FData + FSize, 0, newSize - FSize);
        FSize = newSize;
        return;
    }
    BYTE* data = AllocateBytes(newSize);
    const uint32_t kept = newSize < FSize ? newSize : FSize;
    if (kept) std::memcpy(data, FData, kept);
    if (newSize > kept) std::memset(data + kept, 0, newSize - kept);
    if (borrowed) {
        FForeign = nullptr;
    } else {
        FreeBytes(FData);
    }
    FData = data;
    FSize = newSize;
    FCapacity = newSize;
}

ComPtr<SampleBlock> SampleBlockHolder::BlockOf(IQSData* data) {
    if (!data) return MwNew<SampleBlock>(0u);
    if (auto* holder = dynamic_cast<SampleBlockHolder*>(data)) return holder->FBlock;
    return MwNew<SampleBlock>(data);
}

}  // namespace mw

TQSBlockBuffer::TQSBlockBuffer(uint32_t size) : inherited(MwNew<mw::SampleBlock>(size)) {}

TQSBlockBuffer::TQSBlockBuffer(const void* bytes, uint32_t size)
    : inherited(MwNew<mw::SampleBlock>(bytes, size)) {}

TQSBlockBuffer::TQSBlockBuffer(const ComPtr<IQSData>& data)
    : inherited(mw::SampleBlockHolder::BlockOf(data.Get())) {}

namespace {

ComPtr<mw::SampleBlock> NewAudioBlock(const TQAWaveFormatExtensible& format,
                                      uint32_t samplesPerChannel) {
    const uint64_t bytes = uint64_t(samplesPerChannel) * format.nBlockAlign;
    if (bytes > UINT32_MAX) throw std::length_error("audio buffer larger than 4 GiB");
    auto block = MwNew<mw::SampleBlock>(static_cast<uint32_t>(bytes));
    block->SetFormat(format);
    return block;
}

}  // namespace

TQAAudioBuffer::TQAAudioBuffer() : inherited(MwNew<mw::SampleBlock>(0u)) {}

TQAAudioBuffer::TQAAudioBuffer(const ComPtr<IQSData>& data)
    : inherited(mw::SampleBlockHolder::BlockOf(data.Get())) {}

TQAAudioBuffer::TQAAudioBuffer(uint32_t sampleRate, uint16_t bitsPerSample, uint16_t channels,
                               uint32_t samplesPerChannel)
    : inherited(NewAudioBlock(
          mw::MakePcmWaveFormat(sampleRate, bitsPerSample, channels, mw::ChannelMaskFor(channels)),
          samplesPerChannel)) {}

TQAAudioBuffer::TQAAudioBuffer(uint32_t sampleRate, uint16_t bitsPerSample, uint16_t channels,
                               uint32_t samplesPerChannel, TQASpeakers speakers)
    : inherited(NewAudioBlock(
          mw::MakePcmWaveFormat(sampleRate, bitsPerSample, channels, static_cast<DWORD>(speakers)),
          samplesPerChannel)) {}

TQAAudioBuffer::TQAAudioBuffer(const TQAWaveFormatExtensible& format, uint32_t samplesPerChannel)
    : inherited(NewAudioBlock(format, samplesPerChannel)) {}
