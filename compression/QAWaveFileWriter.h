// TQAWaveFileWriter: writes the audio stream of its Input pin into a WAV file, PCM or
// compressed: the fmt chunk holds the stream's format block byte for byte (plain PCM as the
// 16-byte record), a compressed stream gets its fact chunk, and the sizes are set at the stop.
//
// Threads: operations arrive on the sender's thread. A start opens FileName (a failure goes
// to OnError and the stream is ignored); the stop completes the file and sets Finished. A
// new start without a stop completes the earlier file first.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/QSErrors.h"
#include "frame/WirePins.h"

class TQAWaveFileWriter : public TLockComponent {
    MW_CLASS(TQAWaveFileWriter, TLockComponent)
public:
    explicit TQAWaveFileWriter(TComponent* owner);
    ~TQAWaveFileWriter() override;

    TQAQWAudioSinkPin& InputPin() { return FInputPin; }
    std::string FileName() const;
    void SetFileName(const std::string& value);
    void SetOnError(TQSErrorEvent e);
    void Error(const std::string& text, uint32_t code);

    // With PullsSource the writer claims the pump of the streams it gets, and the source waits
    // to be pulled: PullNext asks it for one more buffer (on the caller's thread), so a file
    // is written as fast as the source and the chain before it go.
    void SetPullsSource(bool value) { FPullsSource = value; }
    bool PullsSource() const { return FPullsSource.load(); }
    // True once the source said it is ready to be pulled, until the stream's stop.
    bool Pumping() const { return FPumping.load(); }
    void PullNext() { FInputPin.MasterPump(this); }

    // A stream was written whole (its stop arrived) since the last start.
    bool Finished() const { return FFinished.load(); }
    uint64_t DataBytes() const;

    static void Publish(TPropertyList& p) {
        p.Add<TQAWaveFileWriter>("FileName", &TQAWaveFileWriter::FileName,
                                 &TQAWaveFileWriter::SetFileName, std::string());
    }

protected:
    // Takes no more deliveries, then ends the stream.
    void StopWork() override;

private:
    void Dispatch(IQWNotifyOperation* op);
    void Open(const tWAVEFORMATEX* format);
    void Complete();

    TQAQWAudioSinkPin FInputPin;
    std::string FFileName;
    std::mutex FEventMutex;
    TQSErrorEvent FOnError;

    mutable std::mutex FFileLock;
    std::FILE* FFile = nullptr;
    std::vector<uint8_t> FFormat;
    long FFactAt = -1;  // offset of the fact chunk's count, -1 without one
    long FDataAt = 0;   // offset of the data chunk's size
    uint64_t FDataBytes = 0;
    std::atomic<bool> FFinished{false};
    std::atomic<bool> FPullsSource{false};
    std::atomic<bool> FPumping{false};
};

namespace QAWaveFileWriter {
void RegisterPkg();
}
