// mediawire play: decodes an audio file with FFmpeg (or generates the test tone) and plays it
// through a wave output with a progress line, until its end, a failure or a signal.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "OutputDevices.h"
#include "Tone.h"
#include "Tool.h"
#include "audio_out/QAAudioOut.h"
#include "frame/MainThread.h"
#include "mwwave.h"
#include "playback/QMAudioFileSource.h"

namespace mw::tool {
namespace {

struct PlayOptions {
    std::string File;
    double ToneSeconds = 0;  // > 0: play the generated tone instead of File
    std::string Device = "Default";
    std::string Output;  // the file "WAV File Output" writes
    uint32_t Prefill = 300;
    bool Pump = false;
};

// "m:ss.d"; tenths truncated.
std::string FormatTime(int64_t time100ns) {
    const int64_t tenths = time100ns / 1'000'000;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%lld:%02lld.%lld", static_cast<long long>(tenths / 600),
                  static_cast<long long>(tenths / 10 % 60), static_cast<long long>(tenths % 10));
    return buf;
}

std::string DescribeFormat(const mw::media::SourceInfo& s, const TQAWaveFormatExtensible& f) {
    char buf[160];
    const bool isFloat = f.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    std::snprintf(buf, sizeof buf, "%s/%s, %u Hz, %u ch, %u-bit%s", s.Container.c_str(),
                  s.Codec.c_str(), f.nSamplesPerSec, f.nChannels, f.wValidBitsPerSample,
                  isFloat ? " float" : "");
    return buf;
}

// Plays one file through a wave output until its end, a failure or a signal. deviceName is the
// listed name of the device, or "Default". knownDuration (100 ns units) is shown while the
// reader can't tell the length, as on a pipe.
int PlayFile(const std::string& file, const std::string& shownName, const std::string& deviceName,
             const PlayOptions& o, int64_t knownDuration = 0) {
    // The output reports on the thread that hit the failure. Declared before the components,
    // so that they outlive them.
    std::mutex errorMutex;
    std::atomic<bool> outputFailed{false};
    std::string outputError;
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* out = TComponent::New<TQAAudioOut>(form.get());
    auto* src = TComponent::New<TQMAudioFileSource>(form.get());
    const std::string shownDevice =
        deviceName == "Default" ? mw::wave::DefaultOutputName() : deviceName;

    out->SetOnError([&](TObject*, const std::string& text, uint32_t code, bool& handled) {
        std::lock_guard g(errorMutex);
        if (!outputFailed.exchange(true)) outputError = text + " (" + WaveErrorText(code) + ")";
        handled = true;
    });
    out->Device()->SetDeviceName(deviceName);
    out->SetPrefillInterval(o.Prefill);
    out->Pump()->SetEnabled(o.Pump);
    src->SetOnError([](TObject*, const std::string&, uint32_t, bool& handled) { handled = true; });
    src->SetOnWarning([](TObject*, const std::string& text, uint32_t) { Warn(text); });
    src->SetFileName(file);
    // The source may run ahead of what was heard by the prefill and half a second more.
    src->SetPushLead(o.Prefill + 500);
    QWConnect(src->OutputPin(), *out->InputPin());
    QWConnect(*out->ClockOutputPin(), src->ClockPin());

    src->Start();
    if (Interrupted()) return ExitInterrupted();  // while waiting for a FIFO's writer
    switch (src->LastError()) {
        case mw::media::ReadError::None:
            break;
        case mw::media::ReadError::NotFound:
        case mw::media::ReadError::CannotRead:
            throw Failure("cannot open '" + shownName + "': " + src->LastErrorText());
        case mw::media::ReadError::NotDecodable:
            throw Failure("'" + shownName + "': " + src->LastErrorText());
        default:
            throw Failure("'" + shownName + "': not an audio file FFmpeg can decode (" +
                          src->LastErrorText() + ")");
    }
    Say("Playing '" + shownName + "' (" +
        DescribeFormat(src->GetSourceInfo(), src->GetWaveFormat()) + ") on \"" + shownDevice +
        "\"" + (src->IsPumped() ? ", pulled by the output" : ""));

    ProgressLine progress;
    auto showProgress = [&] {
        const int64_t duration = src->Duration() > 0 ? src->Duration() : knownDuration;
        progress.Show(FormatTime(src->Position()) + " / " +
                      (duration > 0 ? FormatTime(duration) : std::string("?")));
    };
    for (;;) {
        Application::ProcessMessages();
        if (Interrupted() || outputFailed) break;
        // Done when the whole file was sent and the output has played all of it.
        if (src->ReachedEnd() && src->Position() >= src->SentPosition()) break;
        if (!src->Running() && !src->ReachedEnd()) break;
        showProgress();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    showProgress();
    progress.Finish();

    src->Stop();
    out->Close();
    Application::ProcessMessages();
    if (outputFailed) {
        std::lock_guard g(errorMutex);
        throw Failure("cannot play on \"" + shownDevice + "\": " + outputError);
    }
    if (Interrupted()) return ExitInterrupted();
    return kExitOk;
}

int Play(const PlayOptions& o) {
    if (o.File.empty() == (o.ToneSeconds <= 0))
        throw UsageError(o.File.empty() ? "play needs a FILE or --tone SECONDS"
                                        : "play takes a FILE or --tone SECONDS, not both");
    std::string device = ResolveOutputDevice(o.Device);
    const bool toFile = device == kWavFileOutput;
    if (!o.Output.empty()) {
        if (o.Device != "Default" && !toFile)
            throw UsageError("--output writes through \"" + std::string(kWavFileOutput) +
                             "\"; it does not go with --device '" + o.Device + "'");
        device = kWavFileOutput;
    } else if (toFile) {
        throw UsageError("\"" + std::string(kWavFileOutput) +
                         "\" writes a file: name it with --output FILE");
    }
    if (!o.Output.empty()) {
        // The device would only say that it can't open; the file system says why.
        const int fd = ::open(o.Output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0) throw Failure("cannot write '" + o.Output + "': " + std::strerror(errno));
        ::close(fd);
        mw::wave::SetWaveFileOutputPath(o.Output);
        Say("Writing '" + o.Output + "'");
    }

    int result;
    if (o.ToneSeconds > 0) {
        TonePipe tone(o.ToneSeconds);
        result = PlayFile(tone.Path(), "test tone", device, o, tone.Duration());
    } else {
        result = PlayFile(o.File, o.File, device, o);
    }
    return result;
}

CommandRun Define(CLI::App& command) {
    auto o = std::make_shared<PlayOptions>();
    command.add_option("FILE", o->File,
                       "Any audio file FFmpeg reads (WAV, FLAC, MP3, WMA, ...), or a FIFO");
    command.add_option("--tone", o->ToneSeconds, "Play a generated 440 Hz tone of SECONDS instead")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, kMaxToneSeconds));
    command
        .add_option("--device,-d", o->Device,
                    "Output device, as 'mediawire devices' lists it (any case); default: the "
                    "default device")
        ->type_name("NAME");
    command
        .add_option("--output,-o", o->Output,
                    "Write the audio to this WAV file through \"WAV File Output\"")
        ->type_name("FILE");
    command
        .add_option("--prefill", o->Prefill, "Audio buffered before playing starts (default 300)")
        ->type_name("MS")
        ->check(CLI::Range(0, 10000));
    command.add_flag("--pump", o->Pump,
                     "Let the output pull buffers from the decoder at the device's pace");
    return [o] { return Play(*o); };
}

const CommandRegistration kPlay{"play", "Decode an audio file and play it through a wave output",
                                Define};

}  // namespace
}  // namespace mw::tool
