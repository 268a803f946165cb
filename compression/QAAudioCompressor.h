// TQAAudioCompressor: compresses or decompresses the audio stream of its Input pin onto its
// Output pin with TQAAcmCompressor. Format is the stream's wanted format; an empty Format
// decompresses to 16-bit PCM of the input's rate and channels. A compressed stream goes out
// behind a TQAStartAudioCompressionOperation carrying its format, a PCM stream behind a
// TQWStartWaveOperation; the input may be either.
//
// No input is lost to block alignment: the component hands each compressor whole blocks and
// keeps the rest for the next buffer; at the stop a partial last block of PCM is padded with
// silence and compressed. A decompression whose PCM form equals the output's goes through a
// second compressor by way of PCM of another sample size, since one compressor takes such an
// input to be PCM already.
//
// Threads: operations arrive on the sender's thread and go out on it; a sink that pumps
// reaches the source through this component on its own thread. Pause, resume, flush and the
// pump handshake pass through. Set Format between streams; it applies from the next start.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "compression/QAAcmCompressor.h"
#include "compression/QACompression.h"
#include "frame/LockComponents.h"
#include "frame/QSErrors.h"
#include "frame/WirePins.h"

class TQAAudioCompressor : public TLockComponent {
    MW_CLASS(TQAAudioCompressor, TLockComponent)
public:
    explicit TQAAudioCompressor(TComponent* owner);
    ~TQAAudioCompressor() override;

    TQAQWAudioSinkPin& InputPin() { return FInputPin; }
    TQAQWAudioSourcePin& OutputPin() { return FOutputPin; }

    TQACompressionFormat* Format() const { return FFormat.get(); }
    void SetFormat(const TQACompressionFormat& value) { FFormat->Assign(value); }

    void SetOnError(TQSErrorEvent e);
    void Error(const std::string& text, uint32_t code);

    // The format of the running output stream (null before a start or after a failed one):
    // the whole block, cbSize + 18 bytes.
    std::vector<uint8_t> OutputFormat() const;
    // Bytes sent on Output since the last start.
    uint64_t BytesOut() const;

    static void Publish(TPropertyList& p) {
        p.AddObject<TQAAudioCompressor>("Format",
                                        [](const TQAAudioCompressor& c) { return c.Format(); });
    }

protected:
    // Takes no more deliveries, then ends the stream.
    void StopWork() override;

private:
    // One compressor with the input it still holds, in units of `unit` bytes.
    struct TStage {
        TQAAcmCompressor Compressor;
        std::vector<uint8_t> InFormat;
        std::vector<uint8_t> Carry;
        uint32_t Unit = 1;
        ~TStage() { Compressor.CloseCompressor(); }
    };

    void Dispatch(IQWNotifyOperation* op);
    void StartStream(const tWAVEFORMATEX* input);
    void EndStream(bool padTail);
    // Runs bytes through the stage and the ones after it, then sends what comes out.
    void Feed(size_t stage, const uint8_t* bytes, size_t size);
    void Send(const uint8_t* bytes, size_t size);

    TQAQWAudioSinkPin FInputPin;
    TQAQWAudioSourcePin FOutputPin;
    TOwned<TQACompressionFormat> FFormat;

    std::mutex FEventMutex;
    TQSErrorEvent FOnError;

    // The stream, under FStreamLock (recursive: a pumping sink may reach the source again from
    // inside a delivery of this component).
    mutable std::recursive_mutex FStreamLock;
    std::vector<std::unique_ptr<TStage>> FStages;  // empty: the input passes as it stands
    bool FRunning = false;
    std::vector<uint8_t> FOutFormat;
    TQAWaveFormatExtensible FOutWave{};  // for PCM output
    bool FOutIsPcm = false;
    uint64_t FBytesOut = 0;
    uint64_t FFramesOut = 0;  // PCM frames behind what was sent, for the time stamps
};

namespace QAAudioCompressor {
void RegisterPkg();
}
