// Helpers of the wave output tests: a callback that records messages, format records, and
// headers that own their samples.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "mmsystem.h"
#include "mwwave.h"
#include "tests/support/Wait.h"

namespace mw::test::wave {

struct Message {
    UINT msg;
    DWORD_PTR param1;
    std::thread::id thread;
};

// Passed as the instance of waveOutOpen; Callback is the callback.
class Recorder {
public:
    static void CALLBACK Callback(HWAVEOUT hwo, UINT uMsg, DWORD_PTR dwInstance, DWORD_PTR dwParam1,
                                  DWORD_PTR) {
        auto* self = reinterpret_cast<Recorder*>(dwInstance);
        if (!self) return;  // a probe opened with a zero instance
        std::function<void(HWAVEOUT, UINT, WAVEHDR*)> hook;
        {
            std::lock_guard lock(self->mutex_);
            self->messages_.push_back({uMsg, dwParam1, std::this_thread::get_id()});
            hook = self->hook_;
        }
        if (hook) hook(hwo, uMsg, reinterpret_cast<WAVEHDR*>(dwParam1));
    }

    // Runs in the callback after the message is recorded.
    void SetHook(std::function<void(HWAVEOUT, UINT, WAVEHDR*)> hook) {
        std::lock_guard lock(mutex_);
        hook_ = std::move(hook);
    }

    std::vector<Message> Messages() const {
        std::lock_guard lock(mutex_);
        return messages_;
    }

    size_t Count(UINT msg) const {
        std::lock_guard lock(mutex_);
        size_t n = 0;
        for (const Message& m : messages_)
            n += m.msg == msg;
        return n;
    }

    // The headers of the WOM_DONE messages, in arrival order.
    std::vector<WAVEHDR*> Done() const {
        std::lock_guard lock(mutex_);
        std::vector<WAVEHDR*> done;
        for (const Message& m : messages_) {
            if (m.msg == WOM_DONE) done.push_back(reinterpret_cast<WAVEHDR*>(m.param1));
        }
        return done;
    }

    bool WaitForDone(size_t n) {
        return mw::test::WaitUntil([&] { return Count(WOM_DONE) >= n; });
    }

    DWORD_PTR Instance() { return reinterpret_cast<DWORD_PTR>(this); }

private:
    mutable std::mutex mutex_;
    std::vector<Message> messages_;
    std::function<void(HWAVEOUT, UINT, WAVEHDR*)> hook_;
};

inline DWORD_PTR CallbackAddress() {
    return reinterpret_cast<DWORD_PTR>(&Recorder::Callback);
}

// A format record; the extensible form when subFormat is given.
inline WAVEFORMATEXTENSIBLE MakeFormat(WORD tag, WORD channels, DWORD rate, WORD bits,
                                       WORD validBits = 0, const GUID* subFormat = nullptr,
                                       DWORD mask = 0) {
    WAVEFORMATEXTENSIBLE f{};
    f.Format.wFormatTag = subFormat ? WAVE_FORMAT_EXTENSIBLE : tag;
    f.Format.nChannels = channels;
    f.Format.nSamplesPerSec = rate;
    f.Format.wBitsPerSample = bits;
    f.Format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    f.Format.nAvgBytesPerSec = rate * f.Format.nBlockAlign;
    if (subFormat) {
        f.Format.cbSize = 22;
        f.Samples.wValidBitsPerSample = validBits ? validBits : bits;
        f.dwChannelMask = mask;
        f.SubFormat = *subFormat;
    }
    return f;
}

inline WAVEFORMATEXTENSIBLE Pcm16(WORD channels = 2, DWORD rate = 48000) {
    return MakeFormat(WAVE_FORMAT_PCM, channels, rate, 16);
}

// A header and the samples it points at.
struct Buffer {
    std::vector<uint8_t> data;
    WAVEHDR hdr{};

    explicit Buffer(size_t bytes, uint8_t seed = 0) : data(bytes) {
        uint32_t x = 0x9E3779B9u * (seed + 1u);
        for (uint8_t& b : data) {
            x = x * 1664525u + 1013904223u;
            b = static_cast<uint8_t>(x >> 24);
        }
        hdr.lpData = reinterpret_cast<LPSTR>(data.data());
        hdr.dwBufferLength = static_cast<DWORD>(data.size());
    }
    WAVEHDR* Hdr() { return &hdr; }
};

inline std::vector<std::unique_ptr<Buffer>> MakeBuffers(size_t count, size_t bytes) {
    std::vector<std::unique_ptr<Buffer>> buffers;
    for (size_t i = 0; i < count; ++i) {
        buffers.push_back(std::make_unique<Buffer>(bytes, static_cast<uint8_t>(i)));
    }
    return buffers;
}

inline UINT VirtualOutputId() {
    return mw::wave::FindOutputDevice("Virtual Output");
}

// Every test starts with a paced virtual device and no tap.
class WaveTest : public ::testing::Test {
protected:
    void SetUp() override {
        mw::wave::SetVirtualOutputPaced(true);
        mw::wave::SetVirtualOutputTap(nullptr);
    }
    void TearDown() override {
        mw::wave::SetVirtualOutputTap(nullptr);
        mw::wave::SetVirtualOutputPaced(true);
    }

    // Opens as the audio output component does: 0x30002, plus WAVE_MAPPED for a device number.
    static HWAVEOUT Open(const WAVEFORMATEXTENSIBLE& format, Recorder& rec,
                         UINT id = VirtualOutputId()) {
        HWAVEOUT h = nullptr;
        const DWORD flags = 0x30002 | (id == WAVE_MAPPER ? 0 : WAVE_MAPPED);
        EXPECT_EQ(waveOutOpen(&h, id, &format.Format, CallbackAddress(), rec.Instance(), flags),
                  MMSYSERR_NOERROR);
        return h;
    }

    static void PrepareAndWrite(HWAVEOUT h, Buffer& b) {
        ASSERT_EQ(waveOutPrepareHeader(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
        ASSERT_EQ(waveOutWrite(h, b.Hdr(), sizeof(WAVEHDR)), MMSYSERR_NOERROR);
    }

    static DWORD Samples(HWAVEOUT h) {
        MMTIME t{};
        t.wType = TIME_SAMPLES;
        EXPECT_EQ(waveOutGetPosition(h, &t, sizeof t), MMSYSERR_NOERROR);
        return t.u.sample;
    }
};

}  // namespace mw::test::wave
