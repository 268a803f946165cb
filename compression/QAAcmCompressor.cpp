#include "compression/QAAcmCompressor.h"

#include <cstdlib>
#include <cstring>

#include "frame/QAAudioFormat.h"

namespace {

// Cells are plain heap memory and not cleared: a cell whose stream failed to open keeps
// whatever the open left in it, and the close still passes it to the manager.
HACMSTREAM* AllocateCell(HACMSTREAM*& cell) {
    if (!cell) cell = static_cast<HACMSTREAM*>(std::malloc(sizeof(HACMSTREAM)));
    if (!cell) throw std::bad_alloc();
    return cell;
}

bool OpenStage(HACMSTREAM* cell, tWAVEFORMATEX* src, tWAVEFORMATEX* dst) {
    return acmStreamOpen(cell, nullptr, src, dst, nullptr, 0, 0, ACM_STREAMOPENF_NONREALTIME) ==
           MMSYSERR_NOERROR;
}

void CloseCell(HACMSTREAM*& cell) {
    if (!cell) return;
    acmStreamClose(*cell, 0);
    std::free(cell);
    cell = nullptr;
}

}  // namespace

TQAAcmCompressor::TQAAcmCompressor() {
    FBuffers[0] = MwNew<TQAAudioBuffer>();
    FBuffers[1] = MwNew<TQAAudioBuffer>();
}

bool TQAAcmCompressor::OpenCompressor(tWAVEFORMATEX* inFormat, tWAVEFORMATEX* outFormat) {
    FStarted[0] = FStarted[1] = FStarted[2] = false;
    tWAVEFORMATEX inPcm{}, outPcm{};
    inPcm.wFormatTag = WAVE_FORMAT_PCM;
    outPcm.wFormatTag = WAVE_FORMAT_PCM;
    if (acmFormatSuggest(nullptr, inFormat, &inPcm, sizeof inPcm, ACM_FORMATSUGGESTF_WFORMATTAG))
        return false;
    if (acmFormatSuggest(nullptr, outFormat, &outPcm, sizeof outPcm, ACM_FORMATSUGGESTF_WFORMATTAG))
        return false;
    FNeedsChain = !QAIsEqualAudioFormatStd(inPcm, outPcm);

    AllocateCell(FOutStream);
    if (FNeedsChain) {
        AllocateCell(FInStream);
        AllocateCell(FMiddleStream);
    }
    bool ok;
    if (FNeedsChain)
        ok = OpenStage(FInStream, inFormat, &inPcm) && OpenStage(FMiddleStream, &inPcm, &outPcm) &&
             OpenStage(FOutStream, &outPcm, outFormat);
    else
        // The input is taken to be in the output's PCM form already: it is not decoded.
        ok = OpenStage(FOutStream, &outPcm, outFormat);
    if (!ok) CloseCompressor();
    return ok;
}

void TQAAcmCompressor::CloseCompressor() {
    CloseCell(FInStream);
    CloseCell(FMiddleStream);
    CloseCell(FOutStream);
}

void TQAAcmCompressor::CompressBuffer(IQAAudioBuffer* input, ComPtr<IQAAudioBuffer>& result,
                                      int32_t& resultSize) {
    resultSize = 0;
    if (FNeedsChain) {
        // One size runs through the stages: a stage that fails leaves the one before it.
        CompressStream(input, int32_t(input->ByteSize()), FInStream, FStarted[0], FBuffers[0],
                       resultSize);
        CompressStream(FBuffers[0].Get(), resultSize, FMiddleStream, FStarted[1], FBuffers[1],
                       resultSize);
        CompressStream(FBuffers[1].Get(), resultSize, FOutStream, FStarted[2], FBuffers[0],
                       resultSize);
    } else {
        CompressStream(input, int32_t(input->ByteSize()), FOutStream, FStarted[2], FBuffers[0],
                       resultSize);
    }
    result = FBuffers[0];
}

void TQAAcmCompressor::CompressStream(IQAAudioBuffer* input, int32_t inputSize, HACMSTREAM* cell,
                                      bool& started, ComPtr<IQAAudioBuffer>& output,
                                      int32_t& outputSize) {
    if (!cell) return;
    ACMSTREAMHEADER header;
    std::memset(&header, 0, sizeof header);
    header.cbStruct = sizeof header;
    DWORD estimate = 0;
    if (acmStreamSize(*cell, DWORD(inputSize), &estimate, ACM_STREAMSIZEF_SOURCE)) return;
    if (output->ByteSize() < estimate) output->Resize(estimate, false);
    header.pbSrc = const_cast<LPBYTE>(input->ReadPointer());
    header.cbSrcLength = DWORD(inputSize);
    header.pbDst = output->WritePointer();
    header.cbDstLength = output->ByteSize();
    if (acmStreamPrepareHeader(*cell, &header, 0)) return;
    DWORD flags = ACM_STREAMCONVERTF_BLOCKALIGN;
    if (!started) {
        flags |= ACM_STREAMCONVERTF_START;
        started = true;
    }
    if (acmStreamConvert(*cell, &header, flags) == MMSYSERR_NOERROR)
        outputSize = int32_t(header.cbDstLengthUsed);
    acmStreamUnprepareHeader(*cell, &header, 0);
}
