#include "compression/QACompression.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/FormText.h"
#include "frame/Persistence.h"

namespace {

void* Allocate(size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p) throw std::bad_alloc();
    return p;
}

int32_t MaxFormatSize() {
    DWORD size = 0;
    acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &size);
    return int32_t(size);
}

}  // namespace

// ---- TQACompressionFormat

TQACompressionFormat::TQACompressionFormat(TPersistent* owner, IChangeNotifyLock* lock,
                                           TChangeClosure onChange)
    : TLockPersistent(owner, lock, std::move(onChange)) {
    AlocateDefaultFormat();
}

TQACompressionFormat::~TQACompressionFormat() {
    std::free(FFormat);
}

void TQACompressionFormat::AlocateDefaultFormat() {
    FFormatSize = MaxFormatSize();
    // Left as it comes: the empty state's block means nothing.
    FFormat = Allocate(size_t(FFormatSize));
    FEmpty = true;
}

void TQACompressionFormat::SetFormat(const void* format, int32_t size) {
    std::free(FFormat);
    FFormat = nullptr;
    FFormatSize = size;
    FFormat = Allocate(size_t(std::max(size, 0)));
    if (size > 0) std::memcpy(FFormat, format, size_t(size));
    FEmpty = false;
}

void TQACompressionFormat::GetFormat(void* dest, int32_t destSize) const {
    const int32_t n = std::min(FFormatSize, destSize);
    if (n > 0) std::memcpy(dest, FFormat, size_t(n));
}

std::string TQACompressionFormat::GetName() const {
    if (FEmpty) return "[ Empty ]";
    // Only the bytes the block has: a block shorter than the record reads as zeros beyond.
    tWAVEFORMATEX wfx{};
    GetFormat(&wfx, sizeof wfx);
    ACMFORMATTAGDETAILSA details;
    std::memset(&details, 0, sizeof details);
    details.cbStruct = sizeof details;
    details.dwFormatTag = wfx.wFormatTag;
    std::string result;
    if (acmFormatTagDetailsA(nullptr, &details, ACM_FORMATTAGDETAILSF_FORMATTAG))
        result = "[ Unknown ]";  // overwritten below: an unknown tag shows as an empty tag text
    std::string channels;
    switch (wfx.nChannels) {
        case 1:
            channels = "Mono";
            break;
        case 2:
            channels = "Stereo";
            break;
        default:
            channels = std::to_string(wfx.nChannels) + " Channels";
    }
    const std::string tag(details.szFormatTag,
                          strnlen(details.szFormatTag, sizeof details.szFormatTag));
    result = tag + " [ " + channels + ", " + std::to_string(wfx.nSamplesPerSec) + " Hz  ] ";
    return result;
}

void TQACompressionFormat::Assign(const TPersistent& source) {
    if (const auto* other = dynamic_cast<const TQACompressionFormat*>(&source)) {
        SetFormat(other->FFormat, other->FFormatSize);
        FEmpty = other->FEmpty;
        return;
    }
    TLockPersistent::Assign(source);
}

void TQACompressionFormat::DefineProperties(TFiler& filer) {
    TLockPersistent::DefineProperties(filer);
    filer.DefineBinaryProperty(
        "FormatData", [this](const std::vector<uint8_t>& data) { ReadData(data); },
        [this] { return WriteData(); }, !FEmpty);
}

void TQACompressionFormat::ReadData(const std::vector<uint8_t>& data) {
    // A stream that ends before what it announces is a read error, as reading past the end
    // of any stream is; the object is left as it was.
    int32_t size = 0;
    if (data.size() < sizeof size) throw EReadError(0, "FormatData: the size is missing");
    std::memcpy(&size, data.data(), sizeof size);
    if (size > 0 && data.size() - sizeof size < size_t(size))
        throw EReadError(0, "FormatData: " + std::to_string(size) + " bytes announced, " +
                                std::to_string(data.size() - sizeof size) + " present");
    std::free(FFormat);
    FFormat = nullptr;
    FFormatSize = size;
    if (FFormatSize >= 1) {
        FFormat = Allocate(size_t(FFormatSize));
        std::memcpy(FFormat, data.data() + sizeof size, size_t(FFormatSize));
        FEmpty = false;
    } else {
        AlocateDefaultFormat();
    }
}

std::vector<uint8_t> TQACompressionFormat::WriteData() const {
    std::vector<uint8_t> data(sizeof FFormatSize + size_t(std::max(FFormatSize, 0)));
    std::memcpy(data.data(), &FFormatSize, sizeof FFormatSize);
    if (FFormatSize > 0)
        std::memcpy(data.data() + sizeof FFormatSize, FFormat, size_t(FFormatSize));
    return data;
}

// ---- Items

TQAAudioCompressionItem::TQAAudioCompressionItem(TCollection* collection)
    : TLockCollectionItem(collection),
      FFormat(new TQACompressionFormat(this, Lock(), Notifier())) {}

bool TQAAudioCompressionItem::ShowDialog() {
    bool result = false;
    ACMFORMATCHOOSEA choose;
    std::memset(&choose, 0, sizeof choose);
    DWORD size = 0;
    acmMetrics(nullptr, ACM_METRIC_MAX_SIZE_FORMAT, &size);
    choose.cbStruct = sizeof choose;
    choose.cbwfx = size;
    choose.pwfx =
        static_cast<tWAVEFORMATEX*>(Allocate(std::max<DWORD>(size, sizeof(tWAVEFORMATEX))));
    choose.pwfx->wFormatTag = WAVE_FORMAT_GSM610;
    choose.pwfx->nChannels = 1;
    choose.pwfx->nSamplesPerSec = 8000;
    choose.pwfx->nAvgBytesPerSec = 8000;
    choose.pwfx->nBlockAlign = 1;
    choose.pwfx->wBitsPerSample = 8;
    if (!FFormat->Empty()) FFormat->GetFormat(choose.pwfx, int32_t(choose.cbwfx));
    choose.fdwStyle = ACMFORMATCHOOSE_STYLEF_INITTOWFXSTRUCT;
    // No application window here: the chooser is not a window of anything.
    choose.hwndOwner = nullptr;
    if (acmFormatChooseA(&choose) == MMSYSERR_NOERROR) {
        FFormat->SetFormat(choose.pwfx, choose.pwfx->cbSize + 18);
        result = true;
    }
    std::free(choose.pwfx);
    return result;
}

TQAAudioCompression::TQAAudioCompression(TPersistent* owner, IChangeNotifyLock* lock,
                                         TChangeClosure onChange)
    : TEnabledPersistent(owner, lock, std::move(onChange)),
      FCompressions(new TQAAudioCompressionItems(this, lock)) {}

// ---- TQAStartAudioCompressionOperation

TQAStartAudioCompressionOperation::TQAStartAudioCompressionOperation(float rate,
                                                                     const tWAVEFORMATEX* format,
                                                                     const void* compressionData,
                                                                     int32_t dataSize)
    : TQWStartSampleRateOperation(double(rate)) {
    CompressionDataSize = dataSize;
    if (compressionData) {
        CompressionData = Allocate(size_t(std::max(dataSize, 0)));
        if (dataSize > 0) std::memcpy(CompressionData, compressionData, size_t(dataSize));
    }
    if (format) {
        const size_t size = size_t(format->cbSize) + 18;
        Format = static_cast<tWAVEFORMATEX*>(Allocate(size));
        std::memcpy(Format, format, size);
    }
}

TQAStartAudioCompressionOperation::~TQAStartAudioCompressionOperation() {
    std::free(CompressionData);
    std::free(Format);
}

namespace QACompression {
void RegisterPkg() {
    RegisterClasses({TQACompressionFormat::StaticClass(), TQAAudioCompressionItem::StaticClass(),
                     TQAAudioCompressionItems::StaticClass(), TQAAudioCompression::StaticClass()});
}
}  // namespace QACompression
