// The reference-counted sample buffers that travel on the wire: IQSData (a block of bytes
// with a time stamp), TQSBlockBuffer (plain bytes) and TQAAudioBuffer (the same block seen as
// interleaved audio of one TQAWaveFormatExtensible).
//
// Every buffer is a view on a shared block that holds the bytes (16-byte aligned, possibly
// none), the wave format and the time stamp. A view built from another IQSData shares that
// block: the bytes, the format and the time stamp are the sender's, so a sink that wraps an
// arriving buffer writes into the sender's memory and reads the sender's times. A view built
// from a size or from bytes gets a block of its own.
//
// Threads: references may be taken and dropped on any thread. The contents are not locked:
// the producer fills bytes, format and times before it submits the buffer, and after that the
// block is read by the receivers (the delivery gives the ordering). Resize and writes while
// another thread reads the same block are the caller's race.
#pragma once

#include <cstdint>

#include "comptr.h"
#include "frame/Interfaced.h"
#include "frame/QAAudioFormat.h"
#include "unknwn.h"

// The time range of a buffer, in 100 ns units.
DEFINE_GUID(IID_IQMTimeStamp, 0x948cc51b, 0x793d, 0x4631, 0xb4, 0xd3, 0x64, 0x88, 0xba, 0x93, 0x5b,
            0xae);
struct IQMTimeStamp : IUnknown {
    STDMETHOD_(bool, HasTimes)() PURE;
    STDMETHOD_(void, SetHasTimes)(bool value) PURE;
    STDMETHOD_(int64_t, StartTime)() PURE;
    STDMETHOD_(void, SetStartTime)(int64_t value) PURE;
    STDMETHOD_(int64_t, EndTime)() PURE;
    STDMETHOD_(void, SetEndTime)(int64_t value) PURE;
};
MW_DECLARE_IID(IQMTimeStamp, IID_IQMTimeStamp);

// A block of bytes with its time stamp. All pointers address the same interleaved bytes.
DEFINE_GUID(IID_IQSData, 0x228d2110, 0xf92d, 0x4c01, 0x9f, 0x8f, 0xbe, 0x46, 0x98, 0x2f, 0xd2,
            0x39);
struct IQSData : IUnknown {
    STDMETHOD_(const BYTE*, ReadPointer)() PURE;
    STDMETHOD_(BYTE*, WritePointer)() PURE;
    // The block's bytes for handing to a graph (a media buffer shows them without a copy).
    STDMETHOD_(BYTE*, GetBlockPointer)() PURE;
    STDMETHOD_(uint32_t, ByteSize)() PURE;
    // Samples per channel: ByteSize / nBlockAlign; ByteSize when the block has no format.
    STDMETHOD_(uint32_t, SampleCount)() PURE;
    // Brings the samples into one interleaved block before InterleavedPointer is read. The
    // blocks here always hold their samples interleaved, so this finds nothing to do; the
    // flag (drop a planar copy afterwards) has nothing to act on either.
    STDMETHOD_(void, FlattenInterleaved)(bool dropPlanar) PURE;
    // The buffer's time stamp, shared by every view of the block (one reference added).
    STDMETHOD(GetTimeStamp)(IQMTimeStamp** stamp) PURE;
    // nSamplesPerSec of the block's format; 0 when it has none.
    STDMETHOD_(uint32_t, SampleRate)() PURE;
    STDMETHOD_(const BYTE*, InterleavedPointer)() PURE;
    STDMETHOD_(BYTE*, InterleavedWritePointer)() PURE;
    // Sets the size. The first min(old, new) bytes stay, added bytes read as zero. The
    // capacity only grows unless releaseSpare asks to give memory beyond the new size back.
    // Every view of the block sees the new size. Throws std::bad_alloc when memory runs out.
    STDMETHOD_(void, Resize)(uint32_t newSize, bool releaseSpare) PURE;

    ComPtr<IQMTimeStamp> TimeStamp() {
        ComPtr<IQMTimeStamp> stamp;
        GetTimeStamp(stamp.ReleaseAndGetAddressOf());
        return stamp;
    }
};
MW_DECLARE_IID(IQSData, IID_IQSData);

DEFINE_GUID(IID_IQSDataBuffer, 0xf2f92306, 0xccfc, 0x4ac1, 0xb1, 0x40, 0x3f, 0xcc, 0x21, 0xd0, 0x22,
            0x75);
struct IQSDataBuffer : IQSData {};
MW_DECLARE_IID(IQSDataBuffer, IID_IQSDataBuffer);
MW_INTERFACE_BASE(IQSDataBuffer, IQSData);

DEFINE_GUID(IID_IQSBlockBuffer, 0xbee34ec9, 0xc09f, 0x40f6, 0xac, 0x62, 0xaf, 0xf4, 0x57, 0xc2,
            0xfa, 0xc9);
struct IQSBlockBuffer : IQSDataBuffer {};
MW_DECLARE_IID(IQSBlockBuffer, IID_IQSBlockBuffer);
MW_INTERFACE_BASE(IQSBlockBuffer, IQSDataBuffer);

// The audio view: the block's bytes as interleaved samples of one wave format.
DEFINE_GUID(IID_IQAAudioBuffer, 0xdfe5fc9d, 0x769e, 0x4922, 0xac, 0x01, 0x19, 0x24, 0xaa, 0x64,
            0xa2, 0x86);
struct IQAAudioBuffer : IQSDataBuffer {
    STDMETHOD_(TQAWaveFormatExtensible, GetWaveFormat)() PURE;
    // Changes the format of the block, for every view of it; the bytes stay as they are.
    STDMETHOD_(void, SetWaveFormat)(const TQAWaveFormatExtensible& format) PURE;
    // dwChannelMask of the format as a set.
    STDMETHOD_(TQASpeakers, Speakers)() PURE;
};
MW_DECLARE_IID(IQAAudioBuffer, IID_IQAAudioBuffer);
MW_INTERFACE_BASE(IQAAudioBuffer, IQSDataBuffer);

namespace mw {

// The storage behind the views: bytes, format and time stamp. It is itself the time stamp
// object that GetTimeStamp hands out. A block made from an IQSData of another implementation
// borrows that object's bytes and time stamp and keeps it alive; on Resize it moves the bytes
// into memory of its own.
class SampleBlock final : public TInterfacedObject<IQMTimeStamp> {
public:
    static constexpr size_t kAlignment = 16;

    // size zero-filled bytes.
    explicit SampleBlock(uint32_t size);
    // A copy of size bytes at bytes (which may be null when size is 0).
    SampleBlock(const void* bytes, uint32_t size);
    // Borrows the bytes and the time stamp of a foreign buffer.
    explicit SampleBlock(IQSData* foreign);

    // Never null, also for 0 bytes (then it addresses nothing that may be written).
    BYTE* Bytes() const;
    uint32_t Size() const { return FSize; }
    void Resize(uint32_t newSize, bool releaseSpare);

    const TQAWaveFormatExtensible& Format() const { return FFormat; }
    void SetFormat(const TQAWaveFormatExtensible& format) { FFormat = format; }
    uint32_t SampleCount() const {
        return FFormat.nBlockAlign ? FSize / FFormat.nBlockAlign : FSize;
    }
    // The stamp that views hand out: this block, or the foreign buffer's.
    IQMTimeStamp* Stamp() { return FForeignStamp ? FForeignStamp.Get() : this; }

    STDMETHODIMP_(bool) HasTimes() override { return FHasTimes; }
    STDMETHODIMP_(void) SetHasTimes(bool value) override { FHasTimes = value; }
    STDMETHODIMP_(int64_t) StartTime() override { return FStartTime; }
    STDMETHODIMP_(void) SetStartTime(int64_t value) override { FStartTime = value; }
    STDMETHODIMP_(int64_t) EndTime() override { return FEndTime; }
    STDMETHODIMP_(void) SetEndTime(int64_t value) override { FEndTime = value; }

private:
    ~SampleBlock() override;

    BYTE* FData = nullptr;  // null when there are no bytes
    uint32_t FSize = 0;
    uint32_t FCapacity = 0;  // 0 when borrowed
    TQAWaveFormatExtensible FFormat{};
    bool FHasTimes = false;
    int64_t FStartTime = 0;
    int64_t FEndTime = 0;
    ComPtr<IQSData> FForeign;
    ComPtr<IQMTimeStamp> FForeignStamp;
};

// What every buffer view holds; lets a view built from an IQSData find the block behind it.
class SampleBlockHolder {
public:
    // The block of one of our views, or a new block borrowing from a foreign one; an empty
    // block for null.
    static ComPtr<SampleBlock> BlockOf(IQSData* data);

protected:
    explicit SampleBlockHolder(ComPtr<SampleBlock> block) : FBlock(std::move(block)) {}
    ComPtr<SampleBlock> FBlock;
};

// IQSData over a shared block, for the interface I (which extends IQSData).
template <class I>
class DataView : public TInterfacedObject<I>, public SampleBlockHolder {
public:
    STDMETHODIMP_(const BYTE*) ReadPointer() override { return FBlock->Bytes(); }
    STDMETHODIMP_(BYTE*) WritePointer() override { return FBlock->Bytes(); }
    STDMETHODIMP_(BYTE*) GetBlockPointer() override { return FBlock->Bytes(); }
    STDMETHODIMP_(uint32_t) ByteSize() override { return FBlock->Size(); }
    STDMETHODIMP_(uint32_t) SampleCount() override { return FBlock->SampleCount(); }
    STDMETHODIMP_(void) FlattenInterleaved(bool) override {}
    STDMETHODIMP GetTimeStamp(IQMTimeStamp** stamp) override {
        if (!stamp) return E_POINTER;
        *stamp = FBlock->Stamp();
        (*stamp)->AddRef();
        return S_OK;
    }
    STDMETHODIMP_(uint32_t) SampleRate() override { return FBlock->Format().nSamplesPerSec; }
    STDMETHODIMP_(const BYTE*) InterleavedPointer() override { return FBlock->Bytes(); }
    STDMETHODIMP_(BYTE*) InterleavedWritePointer() override { return FBlock->Bytes(); }
    STDMETHODIMP_(void) Resize(uint32_t newSize, bool releaseSpare) override {
        FBlock->Resize(newSize, releaseSpare);
    }

protected:
    explicit DataView(ComPtr<SampleBlock> block) : SampleBlockHolder(std::move(block)) {}
};

}  // namespace mw

// A buffer of plain bytes.
class TQSBlockBuffer : public mw::DataView<IQSBlockBuffer> {
    MW_CLASS(TQSBlockBuffer, mw::DataView<IQSBlockBuffer>)
public:
    // size zero-filled bytes.
    explicit TQSBlockBuffer(uint32_t size);
    // A copy of size bytes at bytes.
    TQSBlockBuffer(const void* bytes, uint32_t size);
    // The same bytes, format and time stamp as data (an empty block when data is null).
    explicit TQSBlockBuffer(const ComPtr<IQSData>& data);
};

// A buffer of interleaved audio samples.
class TQAAudioBuffer : public mw::DataView<IQAAudioBuffer> {
    MW_CLASS(TQAAudioBuffer, mw::DataView<IQAAudioBuffer>)
public:
    // No bytes and no format; grows by Resize.
    TQAAudioBuffer();
    // The same bytes, format and time stamp as data, as a sink wraps what arrives.
    explicit TQAAudioBuffer(const ComPtr<IQSData>& data);
    // samplesPerChannel zero-filled frames of extensible integer PCM (mw::MakePcmWaveFormat):
    // bitsPerSample becomes the valid bits. The mask follows the channel count, or speakers.
    // Throws std::length_error when the size does not fit 32 bits.
    TQAAudioBuffer(uint32_t sampleRate, uint16_t bitsPerSample, uint16_t channels,
                   uint32_t samplesPerChannel);
    TQAAudioBuffer(uint32_t sampleRate, uint16_t bitsPerSample, uint16_t channels,
                   uint32_t samplesPerChannel, TQASpeakers speakers);
    // samplesPerChannel zero-filled frames of a stream's own format, kept as it stands (for
    // example 24 valid bits in 32-bit containers, whose block the bits alone can't give).
    TQAAudioBuffer(const TQAWaveFormatExtensible& format, uint32_t samplesPerChannel);

    STDMETHODIMP_(TQAWaveFormatExtensible) GetWaveFormat() override { return FBlock->Format(); }
    STDMETHODIMP_(void) SetWaveFormat(const TQAWaveFormatExtensible& format) override {
        FBlock->SetFormat(format);
    }
    STDMETHODIMP_(TQASpeakers) Speakers() override {
        return TQASpeakers(FBlock->Format().dwChannelMask);
    }
    const TQAWaveFormatExtensible& Format() const { return FBlock->Format(); }
};
