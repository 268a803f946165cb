// The persisted choice of an audio compression: a format block of any length
// (TQACompressionFormat, persisted as "FormatData"), items holding one each, their collection
// and owner, the stream-start operation that carries a compressed format along a wire, and
// the choice of a format by the user through the compression manager's chooser.
//
// The objects carry the lock of the component that owns them and take none of their own; a
// start operation is built by the thread that starts a stream and only read afterwards.
#pragma once

#include <cstdint>
#include <string>

#include "frame/LockComponents.h"
#include "frame/WireOperations.h"
#include "msacm.h"

// An opaque wave format block. Empty (the default): a block of the largest format size whose
// content means nothing, not persisted, named "[ Empty ]". Set: the chosen block, persisted.
class TQACompressionFormat : public TLockPersistent {
    MW_CLASS(TQACompressionFormat, TLockPersistent)
public:
    TQACompressionFormat(TPersistent* owner, IChangeNotifyLock* lock, TChangeClosure onChange = {});
    ~TQACompressionFormat() override;

    void AlocateDefaultFormat();
    // Copies size bytes at format into a new block and leaves the empty state. format must
    // not be this object's own block.
    void SetFormat(const void* format, int32_t size);
    void SetCompressionData(const void* data, int32_t size) { SetFormat(data, size); }
    // Copies the smaller of the block's size and destSize into dest; never clears dest.
    void GetFormat(void* dest, int32_t destSize) const;
    int32_t GetFormatSize() const { return FFormatSize; }
    bool Empty() const { return FEmpty; }
    // The block itself (the leading fields are a tWAVEFORMATEX).
    const tWAVEFORMATEX* Format() const { return static_cast<const tWAVEFORMATEX*>(FFormat); }
    // "<tag name> [ <Mono|Stereo|n Channels>, <rate> Hz  ] ", or "[ Empty ]".
    std::string GetName() const;

    void Assign(const TPersistent& source) override;
    void DefineProperties(TFiler& filer) override;
    bool HasStoredData() const override { return !FEmpty; }

    // The two halves of "FormatData": a 32-bit little-endian size and the block.
    void ReadData(const std::vector<uint8_t>& data);
    std::vector<uint8_t> WriteData() const;

private:
    int32_t FFormatSize = 0;
    void* FFormat = nullptr;
    bool FEmpty = true;
};

class TQAAudioCompressionItem : public TLockCollectionItem {
    MW_CLASS(TQAAudioCompressionItem, TLockCollectionItem)
public:
    explicit TQAAudioCompressionItem(TCollection* collection);

    TQACompressionFormat* Format() const { return FFormat.get(); }
    void SetFormat(const TQACompressionFormat& value) { FFormat->Assign(value); }
    std::string GetName() const { return FFormat->GetName(); }
    std::string GetDisplayName() const override { return GetName(); }
    // Lets the user choose the format through acmFormatChooseA, starting from the present
    // one (GSM 6.10 mono at 8000 Hz when empty). True when a choice was confirmed; a cancel
    // or a refusal changes nothing.
    bool ShowDialog();

    static void Publish(TPropertyList& p) {
        p.AddObject<TQAAudioCompressionItem>(
            "Format", [](const TQAAudioCompressionItem& i) { return i.Format(); });
    }

private:
    TOwned<TQACompressionFormat> FFormat;
};

class TQAAudioCompressionItems : public TTypedCollection<TQAAudioCompressionItem> {
    MW_CLASS(TQAAudioCompressionItems, TTypedCollection<TQAAudioCompressionItem>)
public:
    using TTypedCollection::TTypedCollection;
};

class TQAAudioCompression : public TEnabledPersistent {
    MW_CLASS(TQAAudioCompression, TEnabledPersistent)
public:
    TQAAudioCompression(TPersistent* owner, IChangeNotifyLock* lock, TChangeClosure onChange = {});

    TQAAudioCompressionItems* Compressions() const { return FCompressions.get(); }
    void SetCompressions(const TQAAudioCompressionItems& value) { FCompressions->Assign(value); }

    static void Publish(TPropertyList& p) {
        p.AddObject<TQAAudioCompression>(
            "Compressions", [](const TQAAudioCompression& c) { return c.Compressions(); });
    }

private:
    TOwned<TQAAudioCompressionItems> FCompressions;
};

// A stream of compressed audio starts: its rate, its format and a codec's extra data, each
// held as a private copy, so the sender may free its own at once.
class TQAStartAudioCompressionOperation : public TQWStartSampleRateOperation {
    MW_CLASS(TQAStartAudioCompressionOperation, TQWStartSampleRateOperation)
public:
    // format: cbSize + 18 bytes are copied (none for null); data: dataSize bytes (none for
    // null, the size kept all the same).
    TQAStartAudioCompressionOperation(float rate, const tWAVEFORMATEX* format,
                                      const void* compressionData, int32_t dataSize);
    ~TQAStartAudioCompressionOperation() override;

    tWAVEFORMATEX* Format = nullptr;
    int32_t CompressionDataSize = 0;
    void* CompressionData = nullptr;
};

namespace QACompression {
// Makes the persistent classes of this unit known to form files.
void RegisterPkg();
}  // namespace QACompression
