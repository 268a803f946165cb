// The device layer under the waveOut functions. An OutputDevice is one entry of the device
// list; opening it gives a Sink, which plays whole frames. WaveOut.cpp owns the queue of
// headers and the device thread of each handle; a Sink only moves frames
// and tells how many have played. Every Sink method is called with the handle's lock held, from
// the device thread or from a waveOut call, never concurrently.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mmsystem.h"

namespace mw::wave {

using Clock = std::chrono::steady_clock;

// A format record read once at open.
struct PcmFormat {
    enum class Sample { Int, Float };
    Sample sample = Sample::Int;
    unsigned channels = 0;
    unsigned rate = 0;
    unsigned containerBits = 0;
    unsigned validBits = 0;
    unsigned blockAlign = 0;
    // The caller's record: 18 bytes, or 40 for the extensible form (cbSize 0 for plain PCM).
    std::vector<uint8_t> record;

    const WAVEFORMATEX& Wfx() const {
        return *reinterpret_cast<const WAVEFORMATEX*>(record.data());
    }
};

// WAVERR_BADFORMAT for what no device here plays, MMSYSERR_INVALPARAM for a null record.
MMRESULT ParseFormat(const WAVEFORMATEX* wfx, PcmFormat* out);

class Sink {
public:
    virtual ~Sink() = default;
    // Frames Write takes now.
    virtual uint64_t Avail() = 0;
    // Takes up to Avail() frames; returns how many it took.
    virtual uint64_t Write(const uint8_t* data, uint64_t frames) = 0;
    // Nothing more to write for now: play out what was written.
    virtual void EndOfData() = 0;
    // Frames written and played since open; Played() <= Written().
    virtual uint64_t Written() = 0;
    virtual uint64_t Played() = 0;
    // When to look again for frame `frame` to have played (or for room to write).
    virtual Clock::time_point WakeFor(uint64_t frame) = 0;
    // Pause may drop what has not played (Written() falls back to Played()): the caller then
    // writes it again after Resume.
    virtual void Pause() = 0;
    virtual void Resume() = 0;
    // Drops what has not played: Written() == Played() afterwards.
    virtual void Drop() = 0;
    virtual uint64_t Underruns() const { return 0; }
    // The first failure of the device (MMSYSERR_NOERROR while there is none). A device that
    // failed takes no more headers.
    virtual MMRESULT Error() const { return MMSYSERR_NOERROR; }
    // The last call: completes the output (a file's header, say); the error that left it
    // incomplete, if any.
    virtual MMRESULT Close() { return Error(); }
};

class OutputDevice {
public:
    virtual ~OutputDevice() = default;
    virtual std::string Name() const = 0;
    virtual WORD MaxChannels() const = 0;
    virtual DWORD Support() const { return WAVECAPS_SAMPLEACCURATE; }
    // allowConversion: the device may convert (WAVE_MAPPED, or no WAVE_FORMAT_DIRECT).
    virtual MMRESULT CheckFormat(const PcmFormat& format, bool allowConversion) = 0;
    virtual MMRESULT Open(const PcmFormat& format, bool allowConversion,
                          std::unique_ptr<Sink>* sink) = 0;
};

// The device list (mwwave.h tells the order). Null for a number past the end.
UINT DeviceCount();
std::shared_ptr<OutputDevice> DeviceAt(UINT id);
// What WAVE_MAPPER opens.
std::shared_ptr<OutputDevice> DefaultDevice();

std::unique_ptr<OutputDevice> MakeVirtualOutputDevice();
std::unique_ptr<OutputDevice> MakeWaveFileOutputDevice();

}  // namespace mw::wave
