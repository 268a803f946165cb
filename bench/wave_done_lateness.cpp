// How late WOM_DONE arrives on the paced "Virtual Output": for 10 ms buffers, the time the
// callback runs minus the time the buffer's last sample was due, given the start time.
// Two ways of feeding: everything queued before the start, and three buffers in flight,
// refilled by the main thread as each one comes back.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "mmsystem.h"
#include "mwwave.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD kRate = 48000;
constexpr DWORD kFramesPerBuffer = kRate / 100;  // 10 ms
constexpr size_t kBuffers = 400;

struct Run {
    std::mutex mutex;
    std::condition_variable cv;
    std::vector<Clock::time_point> doneAt;
    size_t done = 0;
};

void CALLBACK OnMessage(HWAVEOUT, UINT msg, DWORD_PTR instance, DWORD_PTR param1, DWORD_PTR) {
    if (msg != WOM_DONE || !instance) return;
    const auto now = Clock::now();
    auto* run = reinterpret_cast<Run*>(instance);
    auto* hdr = reinterpret_cast<WAVEHDR*>(param1);
    std::lock_guard lock(run->mutex);
    run->doneAt[hdr->dwUser] = now;
    ++run->done;
    run->cv.notify_one();
}

void Report(const char* name, const Run& run, Clock::time_point start) {
    std::vector<double> lateUs;
    for (size_t i = 0; i < run.doneAt.size(); ++i) {
        const auto due = start + std::chrono::microseconds((i + 1) * 10000);
        lateUs.push_back(std::chrono::duration<double, std::micro>(run.doneAt[i] - due).count());
    }
    std::sort(lateUs.begin(), lateUs.end());
    auto at = [&](double q) { return lateUs[static_cast<size_t>(q * (lateUs.size() - 1))]; };
    std::printf("%-28s buffers %zu  median %8.1f us  p99 %8.1f us  max %8.1f us\n", name,
                lateUs.size(), at(0.5), at(0.99), lateUs.back());
}

bool Measure(bool prequeue) {
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = 2;
    format.nSamplesPerSec = kRate;
    format.wBitsPerSample = 16;
    format.nBlockAlign = 4;
    format.nAvgBytesPerSec = kRate * 4;

    Run run;
    run.doneAt.resize(kBuffers);
    HWAVEOUT h = nullptr;
    if (waveOutOpen(&h, mw::wave::FindOutputDevice("Virtual Output"), &format,
                    reinterpret_cast<DWORD_PTR>(&OnMessage), reinterpret_cast<DWORD_PTR>(&run),
                    CALLBACK_FUNCTION | WAVE_ALLOWSYNC) != MMSYSERR_NOERROR) {
        std::fprintf(stderr, "cannot open Virtual Output\n");
        return false;
    }
    std::vector<std::vector<char>> data(kBuffers, std::vector<char>(kFramesPerBuffer * 4));
    std::vector<WAVEHDR> headers(kBuffers);
    for (size_t i = 0; i < kBuffers; ++i) {
        headers[i].lpData = data[i].data();
        headers[i].dwBufferLength = static_cast<DWORD>(data[i].size());
        headers[i].dwUser = i;
        waveOutPrepareHeader(h, &headers[i], sizeof(WAVEHDR));
    }
    const size_t inFlight = prequeue ? kBuffers : 3;
    waveOutPause(h);
    for (size_t i = 0; i < inFlight; ++i)
        waveOutWrite(h, &headers[i], sizeof(WAVEHDR));
    const Clock::time_point start = Clock::now();
    waveOutRestart(h);
    size_t written = inFlight;
    {
        std::unique_lock lock(run.mutex);
        while (run.done < kBuffers) {
            run.cv.wait(lock);
            while (written < kBuffers && written < run.done + inFlight) {
                waveOutWrite(h, &headers[written++], sizeof(WAVEHDR));
            }
        }
    }
    for (auto& hdr : headers)
        waveOutUnprepareHeader(h, &hdr, sizeof(WAVEHDR));
    waveOutClose(h);
    Report(prequeue ? "all queued before start" : "3 in flight, refilled", run, start);
    return true;
}

}  // namespace

int main() {
    mw::wave::SetVirtualOutputPaced(true);
    std::printf("WOM_DONE lateness on Virtual Output, 10 ms buffers, 48 kHz stereo 16-bit\n");
    if (!Measure(true) || !Measure(false)) return 1;
    return 0;
}
