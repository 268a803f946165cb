// Process CPU time per second of paced playback through TQAAudioOut on "Virtual Output":
// 48 kHz stereo 16-bit from a pulled source, measured with getrusage over about 5 s.
//
// Each finished buffer costs at least one timed wake-up of the device's thread and one hand-off
// to the wave thread; what those cost depends on the machine (on a virtual machine a wake-up can
// cost tens of microseconds). So the same run measures that floor alone: two bare threads, one
// woken every buffer period by a timer and waking the other, and prints the output's figure as
// a ratio to it.
#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "bench/audio_out_common.h"
#include "mwwave.h"

namespace {
double CpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + u.ru_stime.tv_sec +
           u.ru_stime.tv_usec / 1e6;
}
// CPU ms per second of two threads doing nothing but the wake-ups of a paced stream: a timer
// every periodMs, and a hand-off to a second thread, for about 3 s.
double WakeUpFloor(uint32_t periodMs) {
    using Clock = std::chrono::steady_clock;
    std::mutex m;
    std::condition_variable timer, handoff;
    int posted = 0;
    bool stop = false;
    const double cpu0 = CpuSeconds();
    const auto t0 = Clock::now();
    std::thread receiver([&] {
        std::unique_lock lock(m);
        while (!stop) {
            handoff.wait(lock, [&] { return posted > 0 || stop; });
            if (posted > 0) --posted;
        }
    });
    std::thread device([&] {
        std::unique_lock lock(m);
        auto next = Clock::now();
        for (uint32_t i = 0; i < 3000 / periodMs; ++i) {
            next += std::chrono::milliseconds(periodMs);
            while (timer.wait_until(lock, next) != std::cv_status::timeout) {
            }
            ++posted;
            handoff.notify_one();
        }
        stop = true;
        handoff.notify_one();
    });
    device.join();
    receiver.join();
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    return (CpuSeconds() - cpu0) * 1000 / wall;
}

}  // namespace

int main() {
    using Clock = std::chrono::steady_clock;
    const TQAWaveFormatExtensible format = mw::MakePcmWaveFormat(48000, 16, 2);
    mw::wave::SetVirtualOutputPaced(true);
    std::printf(
        "TQAAudioOut CPU per second of paced playback, 48 kHz stereo 16-bit, prefill 300 ms\n");
    std::printf("%12s %10s %14s %16s %14s %10s\n", "buffer ms", "wall s", "CPU s", "CPU ms per s",
                "floor ms/s", "ratio");
    for (uint32_t ms : {10u, 20u, 50u}) {
        const double audioSeconds = 5.0;
        const uint64_t buffers = static_cast<uint64_t>(audioSeconds * 1000 / ms);
        TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
        out->Device()->SetDeviceName("Virtual Output");
        TOwned<mw::bench::TPulledSource> source(
            TComponent::New<mw::bench::TPulledSource>(nullptr, format, 48 * ms, buffers));
        QWConnect(*source->Out, *out->InputPin());
        const double cpu0 = CpuSeconds();
        const auto t0 = Clock::now();
        if (!source->Run()) {
            std::printf("the output did not take the pump\n");
            return 1;
        }
        // A slow look: the main thread's polling should not be what is measured.
        mw::bench::RunUntil([&] { return source->Finished() && out->BuffersInFlight() == 0; },
                            std::chrono::milliseconds(50));
        const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
        const double cpu = CpuSeconds() - cpu0;
        const TQAAudioOutStats stats = out->Stats();
        const double floor = WakeUpFloor(ms);
        std::printf("%12u %10.2f %14.3f %16.2f %14.2f %10.2f   (underruns %llu)\n", ms, wall, cpu,
                    cpu * 1000 / wall, floor, cpu * 1000 / wall / floor,
                    static_cast<unsigned long long>(stats.Underruns));
    }
    return 0;
}
