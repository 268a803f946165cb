// Process CPU time per second of paced playback through TQAAudioOut on "Virtual Output":
// 48 kHz stereo 16-bit from a pulled source, measured with getrusage over about 5 s.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>

#include "bench/audio_out_common.h"
#include "mwwave.h"

namespace {
double CpuSeconds() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + u.ru_stime.tv_sec +
           u.ru_stime.tv_usec / 1e6;
}
}  // namespace

int main() {
    using Clock = std::chrono::steady_clock;
    const TQAWaveFormatExtensible format = mw::MakePcmWaveFormat(48000, 16, 2);
    mw::wave::SetVirtualOutputPaced(true);
    std::printf(
        "TQAAudioOut CPU per second of paced playback, 48 kHz stereo 16-bit, prefill 300 ms\n");
    std::printf("%12s %10s %14s %16s\n", "buffer ms", "wall s", "CPU s", "CPU ms per s");
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
        std::printf("%12u %10.2f %14.3f %16.2f   (underruns %llu)\n", ms, wall, cpu,
                    cpu * 1000 / wall, static_cast<unsigned long long>(stats.Underruns));
    }
    return 0;
}
