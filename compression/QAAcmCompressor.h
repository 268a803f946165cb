// TQAAcmCompressor: turns blocks of audio in one wave format into blocks of another through
// the compression manager, always by way of PCM. When the PCM forms of the two ends agree it
// runs one stream (output PCM to the output format) and takes the input to be in that PCM
// form already; otherwise it runs three (input to its PCM, PCM to PCM, PCM to the output).
//
// Each stage converts what it is given with the start flag on its first call and block
// alignment always; input that doesn't fill a whole block is dropped, not carried over, so a
// caller that must lose nothing passes whole blocks. The result of CompressBuffer lives in the
// object's own buffer until the next call; only the returned size counts, not the buffer's.
//
// One thread at a time; no lock. The object doesn't close its streams when it goes: its user
// calls CloseCompressor first.
#pragma once

#include <cstdint>

#include "comptr.h"
#include "frame/Object.h"
#include "frame/QSData.h"
#include "msacm.h"

class TQAAcmCompressor : public TObject {
    MW_CLASS(TQAAcmCompressor, TObject)
public:
    TQAAcmCompressor();

    // Builds the chain for the two formats; false (with nothing left open) when the manager
    // can't suggest a PCM form for either or refuses a stream.
    bool OpenCompressor(tWAVEFORMATEX* inFormat, tWAVEFORMATEX* outFormat);
    // Closes whatever stage is open; safe at any time and repeatedly.
    void CloseCompressor();
    // Pushes one block through the chain. resultSize is 0 when nothing came out (closed, a
    // block smaller than the codec's, a first stage that failed).
    void CompressBuffer(IQAAudioBuffer* input, ComPtr<IQAAudioBuffer>& result, int32_t& resultSize);
    // One stage, one conversion: inputSize bytes of input through the stream in cell into
    // output (grown as needed). outputSize is set only by a conversion that succeeded.
    void CompressStream(IQAAudioBuffer* input, int32_t inputSize, HACMSTREAM* cell, bool& started,
                        ComPtr<IQAAudioBuffer>& output, int32_t& outputSize);

    bool GetOpened() const { return FOutStream != nullptr; }
    bool Opened() const { return GetOpened(); }
    // True when the last OpenCompressor chose three streams.
    bool NeedsChain() const { return FNeedsChain; }

private:
    HACMSTREAM* FInStream = nullptr;      // stage 0: input format to input PCM
    HACMSTREAM* FMiddleStream = nullptr;  // stage 1: input PCM to output PCM
    HACMSTREAM* FOutStream = nullptr;     // stage 2: output PCM to output format
    ComPtr<IQAAudioBuffer> FBuffers[2];
    bool FStarted[3] = {false, false, false};
    bool FNeedsChain = false;
};
