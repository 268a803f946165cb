// The converters behind an ACM stream: PCM to PCM (rate, channels, sample size and float, on
// libswresample), a codec to PCM (a libavcodec decoder) and PCM to a codec (a libavcodec
// encoder).
//
// A converter takes input in whole units (a PCM frame, a codec block, or a codec frame of PCM
// on the way in); output that doesn't fit the caller's buffer waits for the next call. One
// thread at a time (the stream's lock serialises callers).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/acm/AcmFormats.h"

namespace mw::acm {

class Converter {
public:
    virtual ~Converter() = default;

    // Bytes of output that cbInput bytes of input give at most (with what waits from earlier
    // calls); ACMERR_NOTPOSSIBLE when cbInput holds no whole unit.
    MMRESULT Size(DWORD cbInput, DWORD& cbOutput) const;
    // One conversion with ACM_STREAMCONVERTF_* flags: START resets the codec state,
    // BLOCKALIGN takes whole units only (the rest stays unconsumed in the caller's buffer;
    // without it a partial unit is kept for the next call), END pads and drains the codec.
    MMRESULT Convert(const BYTE* src, DWORD srcLength, BYTE* dst, DWORD dstLength, DWORD flags,
                     DWORD& srcUsed, DWORD& dstUsed);
    // Opens the codec state; run once before the first conversion.
    MMRESULT Open();

protected:
    explicit Converter(DWORD unit) : FUnit(unit) {}
    // (Re)creates the codec state.
    virtual MMRESULT Start() = 0;
    // Converts `units` whole units at `src`, appending to FOut.
    virtual MMRESULT Process(const BYTE* src, size_t units) = 0;
    // Pads what is kept in FIn to a whole unit (when anything is) and drains the codec.
    virtual MMRESULT Finish() = 0;
    // Output bytes of `units` units at most.
    virtual size_t Estimate(size_t units) const = 0;

    void Append(const void* bytes, size_t n);

    DWORD FUnit;                // bytes of one unit of input; an encoder sets it once opened
    std::vector<uint8_t> FIn;   // a partial unit kept between unaligned calls
    std::vector<uint8_t> FOut;  // output not yet handed out, from FOutPos on
    size_t FOutPos = 0;

private:
    bool FFresh = false;  // nothing converted since Start
};

// A converter for src to dst, or an error: ACMERR_NOTPOSSIBLE for pairs that aren't
// converted here (codec to codec; a codec and PCM of another rate or channel count; a
// codec without an encoder; a block the encoder can't produce).
MMRESULT CreateConverter(const Format& src, const Format& dst, std::unique_ptr<Converter>& out);

}  // namespace mw::acm
