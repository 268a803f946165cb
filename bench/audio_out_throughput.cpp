// Throughput of the whole path source pin -> TQAAudioOut -> "Virtual Output", unpaced, in
// multiples of real time: a pulled source sends 48 kHz stereo 16-bit buffers, the output
// plays them and pulls the next as each one comes back.
#include <chrono>
#include <cstdio>

#include "bench/audio_out_common.h"
#include "mwwave.h"

int main() {
    using Clock = std::chrono::steady_clock;
    const TQAWaveFormatExtensible format = mw::MakePcmWaveFormat(48000, 16, 2);
    mw::wave::SetVirtualOutputPaced(false);
    std::printf("TQAAudioOut throughput, unpaced Virtual Output, 48 kHz stereo 16-bit\n");
    std::printf("%12s %10s %12s %14s %14s\n", "buffer ms", "played s", "wall s", "x real time",
                "buffers/s");
    for (uint32_t ms : {5u, 10u, 20u, 100u}) {
        const double audioSeconds = 300.0;
        const uint64_t buffers = static_cast<uint64_t>(audioSeconds * 1000 / ms);
        TOwned<TQAAudioOut> out(TComponent::New<TQAAudioOut>(nullptr));
        out->Device()->SetDeviceName("Virtual Output");
        TOwned<mw::bench::TPulledSource> source(
            TComponent::New<mw::bench::TPulledSource>(nullptr, format, 48 * ms, buffers));
        QWConnect(*source->Out, *out->InputPin());
        const auto t0 = Clock::now();
        if (!source->Run()) {
            std::printf("the output did not take the pump\n");
            return 1;
        }
        mw::bench::RunUntil([&] {
            return source->Finished() && out->BuffersInFlight() == 0 &&
                   out->Stats().BuffersPlayed >= buffers;
        });
        const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
        // What the device itself counted as played.
        const double played = out->Stats().FramesPlayed / 48000.0;
        std::printf("%12u %10.1f %12.3f %14.1f %14.0f\n", ms, played, wall, played / wall,
                    buffers / wall);
    }
    return 0;
}
