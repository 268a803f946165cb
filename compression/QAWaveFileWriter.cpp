#include "compression/QAWaveFileWriter.h"

#include <cstring>

#include "compression/QACompression.h"
#include "frame/Persistence.h"
#include "mwacm.h"

namespace {

void Put32(std::FILE* f, uint32_t v) {
    const uint8_t b[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    std::fwrite(b, 1, 4, f);
}
void PutAt(std::FILE* f, long at, uint32_t v) {
    std::fseek(f, at, SEEK_SET);
    Put32(f, v);
}

bool IsPcmBlock(const tWAVEFORMATEX* f) {
    if (f->wFormatTag == WAVE_FORMAT_PCM) return true;
    const auto* ext = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(f);
    return f->wFormatTag == WAVE_FORMAT_EXTENSIBLE && f->cbSize >= 22 &&
           ext->SubFormat == KSDATAFORMAT_SUBTYPE_PCM &&
           ext->Samples.wValidBitsPerSample == f->wBitsPerSample && f->nChannels <= 2 &&
           ext->dwChannelMask <= 3;
}

// Frames a compressed stream holds, for its fact chunk.
uint32_t FramesOf(const tWAVEFORMATEX* f, uint64_t bytes) {
    WORD spb = 0;
    if (f->cbSize >= 2) std::memcpy(&spb, reinterpret_cast<const uint8_t*>(f) + 18, 2);
    switch (f->wFormatTag) {
        case WAVE_FORMAT_IMA_ADPCM:
        case WAVE_FORMAT_ADPCM:
        case WAVE_FORMAT_GSM610:
            return f->nBlockAlign ? uint32_t(bytes / f->nBlockAlign * spb) : 0;
        default:
            if (f->nBlockAlign && f->wBitsPerSample >= 8 &&
                f->nBlockAlign == f->nChannels * f->wBitsPerSample / 8)
                return uint32_t(bytes / f->nBlockAlign);
            return f->nAvgBytesPerSec ? uint32_t(bytes * f->nSamplesPerSec / f->nAvgBytesPerSec)
                                      : 0;
    }
}

}  // namespace

TQAWaveFileWriter::TQAWaveFileWriter(TComponent* owner)
    : TLockComponent(owner),
      FInputPin(
          this, ComponentLock(),
          [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op, TQWNotifyState) {
              Dispatch(op);
              return 0;
          }) {
    FInputPin.SetName("Input");
}

TQAWaveFileWriter::~TQAWaveFileWriter() = default;

void TQAWaveFileWriter::StopWork() {
    QWCloseComponentPins(this);
    std::lock_guard g(FFileLock);
    Complete();
}

std::string TQAWaveFileWriter::FileName() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FFileName;
}
void TQAWaveFileWriter::SetFileName(const std::string& value) {
    Setters().Setter(FFileName, value, Notifier());
}
void TQAWaveFileWriter::SetOnError(TQSErrorEvent e) {
    std::lock_guard g(FEventMutex);
    FOnError = std::move(e);
}
void TQAWaveFileWriter::Error(const std::string& text, uint32_t code) {
    TQSErrorEvent handler;
    {
        std::lock_guard g(FEventMutex);
        handler = FOnError;
    }
    mw::ReportError(this, handler, IsDesigning(), text, code);
}

uint64_t TQAWaveFileWriter::DataBytes() const {
    std::lock_guard g(FFileLock);
    return FDataBytes;
}

void TQAWaveFileWriter::Dispatch(IQWNotifyOperation* op) {
    if (auto* request = op->InstanceAs<TQWPumpRequestOperation>()) {
        constexpr uint32_t kPriority = 1;
        if (FPullsSource && !(request->Kind == TQWPumpRequestOperation::KindClaimed &&
                              request->Priority >= kPriority)) {
            request->Master = this;
            request->Priority = kPriority;
            request->Kind = TQWPumpRequestOperation::KindClaimed;
        }
        return;
    }
    if (op->IsType<TQWStartPumpOperation>()) {
        FPumping = FPullsSource.load();
        return;
    }
    std::unique_lock g(FFileLock);
    if (auto* start = op->InstanceAs<TQAStartAudioCompressionOperation>()) {
        if (start->Format) Open(start->Format);
    } else if (auto* wave = op->InstanceAs<TQWStartWaveOperation>()) {
        Open(&wave->Format);
    } else if (auto* buffer = op->InstanceAs<TQWSuppliedBufferOperation>()) {
        if (FFile && buffer->Data) {
            const uint32_t n = buffer->Data->ByteSize();
            if (std::fwrite(buffer->Data->ReadPointer(), 1, n, FFile) != n) {
                const std::string name = FFileName;
                std::fclose(FFile);
                FFile = nullptr;
                g.unlock();
                Error("Cannot write the file " + name, 0);
                return;
            }
            FDataBytes += n;
        }
    } else if (op->IsType<TQWStopOperation>() || op->IsType<TQSInternalStopOperation>()) {
        FPumping = false;
        if (FFile) {
            Complete();
            FFinished = true;
        }
    }
}

void TQAWaveFileWriter::Open(const tWAVEFORMATEX* format) {
    Complete();
    FFinished = false;
    const std::string name = FileName();
    FFile = std::fopen(name.c_str(), "wb");
    if (!FFile) {
        FFileLock.unlock();
        Error("Cannot create the file " + name, 0);
        FFileLock.lock();
        return;
    }
    const bool pcm = IsPcmBlock(format);
    const auto* p = reinterpret_cast<const uint8_t*>(format);
    FFormat.assign(p, p + (pcm ? 16 : mw::acm::FormatBlockSize(format)));
    if (pcm) {
        tWAVEFORMATEX plain = *format;
        plain.wFormatTag = WAVE_FORMAT_PCM;
        std::memcpy(FFormat.data(), &plain, 16);
    }
    std::fwrite("RIFF\0\0\0\0WAVEfmt ", 1, 16, FFile);
    Put32(FFile, uint32_t(FFormat.size()));
    std::fwrite(FFormat.data(), 1, FFormat.size(), FFile);
    if (FFormat.size() % 2) std::fputc(0, FFile);
    FFactAt = -1;
    if (!pcm && format->wFormatTag != WAVE_FORMAT_IEEE_FLOAT) {
        std::fwrite("fact", 1, 4, FFile);
        Put32(FFile, 4);
        FFactAt = std::ftell(FFile);
        Put32(FFile, 0);
    }
    std::fwrite("data", 1, 4, FFile);
    FDataAt = std::ftell(FFile);
    Put32(FFile, 0);
    FDataBytes = 0;
}

void TQAWaveFileWriter::Complete() {
    if (!FFile) return;
    if (FDataBytes % 2) std::fputc(0, FFile);
    const long end = std::ftell(FFile);
    PutAt(FFile, 4, uint32_t(end - 8));
    PutAt(FFile, FDataAt, uint32_t(FDataBytes));
    if (FFactAt >= 0)
        PutAt(FFile, FFactAt,
              FramesOf(reinterpret_cast<const tWAVEFORMATEX*>(FFormat.data()), FDataBytes));
    std::fclose(FFile);
    FFile = nullptr;
}

namespace QAWaveFileWriter {
void RegisterPkg() {
    RegisterClass(TQAWaveFileWriter::StaticClass());
}
}  // namespace QAWaveFileWriter
