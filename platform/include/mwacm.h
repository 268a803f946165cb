// The Linux side of the compression manager that the platform's own API has no words for:
// the format chooser an application installs in place of the platform's dialog, and the size
// of a format block.
#pragma once

#include <functional>

#include "msacm.h"

namespace mw::acm {

// Answers acmFormatChooseA: fills pafmtc.pwfx (at most cbwfx bytes) and returns
// MMSYSERR_NOERROR to confirm, or ACMERR_CANCELED. Runs on the thread that called
// acmFormatChooseA. The manager checks a confirmed choice before it passes it on.
using FormatChooser = std::function<MMRESULT(ACMFORMATCHOOSEA& pafmtc)>;

// Installs the chooser (an empty function removes it: acmFormatChooseA then answers
// ACMERR_CANCELED, as a user who closes the dialog). Any thread.
void SetFormatChooser(FormatChooser chooser);

// What a stream call did, for those who watch the manager at work (tests, diagnostics).
struct StreamCall {
    enum Kind { Open, Convert, Close } kind;
    HACMSTREAM stream;  // the new stream for Open (null when it failed)
    DWORD flags;        // fdwOpen, fdwConvert or fdwClose
    MMRESULT result;
    WORD srcTag, dstTag;  // of an Open
};
using StreamCallObserver = std::function<void(const StreamCall& call)>;
// Installs the observer (empty removes it). It runs on the calling thread, after the call.
void SetStreamCallObserver(StreamCallObserver observer);

// Bytes of a format block: 18 + cbSize; 18 for integer PCM, whose cbSize the platform ignores.
// 0 for null.
DWORD FormatBlockSize(const WAVEFORMATEX* format);

}  // namespace mw::acm
