// mediawire: the command-line tool of the library.
//   mediawire --version      prints the version
//   mediawire classes        lists the component classes registered for form files
//   mediawire devices        lists the output devices
//   mediawire play FILE [--device NAME] [--prefill MS] [--pump]
//                            decodes FILE with FFmpeg and plays it through a wave output
//   mediawire play --tone SECONDS [...]   plays a generated test tone the same way
//   mediawire tone FILE [SECONDS]         writes the test tone as a WAV file
//
// Exit codes: 0 success, 1 a runtime failure (with a message on stderr), 2 a usage error,
// 130 when playing was interrupted by Ctrl-C.
#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "audio_out/QAAudioOut.h"
#include "frame/Classes.h"
#include "frame/MainThread.h"
#include "frame/Registration.h"
#include "mwwave.h"
#include "playback/QMAudioFileSource.h"

#ifndef MW_VERSION
#define MW_VERSION "0.0.0"
#endif

namespace {

int Usage() {
    std::fprintf(stderr,
                 "usage: mediawire --version\n"
                 "       mediawire classes\n"
                 "       mediawire devices\n"
                 "       mediawire play FILE [--device NAME] [--prefill MS] [--pump]\n"
                 "       mediawire play --tone SECONDS [--device NAME] [--prefill MS] [--pump]\n"
                 "       mediawire tone FILE [SECONDS]\n");
    return 2;
}

// Runs the registration of every unit that has one, as a designer does when it loads the
// package, and prints the palette: class, page, category and bitmap names.
int Classes() {
    QAAudioOut::RegisterPkg();
    QMAudioFileSource::RegisterPkg();
    std::printf("%-24s %-10s %-32s %s\n", "class", "page", "category", "bitmaps");
    for (const TPaletteEntry& e : PaletteEntries())
        std::printf("%-24s %-10s %-32s %s %s %s\n", e.ComponentClass->ClassName(), e.Page.c_str(),
                    e.Category.empty() ? "-" : e.Category.c_str(), e.Bitmap.c_str(),
                    e.Bitmap16.c_str(), e.Bitmap32.c_str());
    return 0;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "mediawire: %s\n", message.c_str());
    return 1;
}

// ---- the test tone

constexpr unsigned kToneRate = 44100;

// A 440 Hz tone, 16-bit stereo, with short fades so that it starts and ends without a click.
bool WriteToneWav(const std::string& path, double seconds) {
    const auto frames = static_cast<uint32_t>(std::lround(seconds * kToneRate));
    const uint32_t dataBytes = frames * 4;
    std::string out = "RIFF";
    auto put = [&out](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i)
            out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    };
    put(36 + dataBytes, 4);
    out += "WAVEfmt ";
    put(16, 4);
    put(1, 2);  // integer PCM
    put(2, 2);
    put(kToneRate, 4);
    put(kToneRate * 4, 4);
    put(4, 2);
    put(16, 2);
    out += "data";
    put(dataBytes, 4);
    const double fade = 0.01 * kToneRate;
    for (uint32_t f = 0; f < frames; ++f) {
        const double gain = std::min({1.0, f / fade, (frames - f) / fade});
        const auto v = static_cast<int16_t>(
            std::lround(0.3 * 32767 * gain * std::sin(2 * M_PI * 440.0 * f / kToneRate)));
        put(static_cast<uint16_t>(v), 2);
        put(static_cast<uint16_t>(v), 2);
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(out.data(), static_cast<std::streamsize>(out.size()));
    return static_cast<bool>(file);
}

std::optional<double> ParseSeconds(const char* text) {
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    if (!end || *end || !(v > 0) || v > 3600) return std::nullopt;
    return v;
}

// ---- devices

std::vector<std::string> OutputDevices() {
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    return TComponent::New<TQAAudioOut>(form.get())->GetDeviceList();
}

int Devices() {
    const std::string def = mw::wave::DefaultOutputName();
    const auto names = OutputDevices();
    for (size_t i = 0; i < names.size(); ++i)
        std::printf("%zu  %s%s\n", i, names[i].c_str(), names[i] == def ? "  (default)" : "");
    return 0;
}

// ---- play

std::atomic<bool> gInterrupted{false};

void OnSigInt(int) {
    gInterrupted = true;
}

struct PlayOptions {
    std::string File;
    double ToneSeconds = 0;  // > 0: play a generated tone instead of File
    std::string Device = "Default";
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

std::optional<int> ParsePlay(int argc, char** argv, PlayOptions& o) {
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        if (a == "--device" && hasValue) {
            o.Device = argv[++i];
        } else if (a == "--prefill" && hasValue) {
            char* end = nullptr;
            const unsigned long v = std::strtoul(argv[++i], &end, 10);
            if (!end || *end || v > 10000) return Usage();
            o.Prefill = static_cast<uint32_t>(v);
        } else if (a == "--pump") {
            o.Pump = true;
        } else if (a == "--tone" && hasValue) {
            const auto s = ParseSeconds(argv[++i]);
            if (!s) return Usage();
            o.ToneSeconds = *s;
        } else if (!a.empty() && a[0] != '-' && o.File.empty()) {
            o.File = a;
        } else {
            return Usage();
        }
    }
    if (o.File.empty() == (o.ToneSeconds <= 0)) return Usage();  // exactly one of the two
    return std::nullopt;
}

// Plays one file through a wave output until its end, a failure or Ctrl-C.
int PlayFile(const std::string& file, const std::string& shownName, const PlayOptions& o) {
    // The output reports on the thread that hit the failure. Declared before the components,
    // so that they outlive them.
    std::mutex errorMutex;
    std::atomic<bool> outputFailed{false};
    std::string outputError;
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* out = TComponent::New<TQAAudioOut>(form.get());
    auto* src = TComponent::New<TQMAudioFileSource>(form.get());

    const bool isDefault = o.Device.size() == 7 && strncasecmp(o.Device.c_str(), "default", 7) == 0;
    const auto devices = out->GetDeviceList();
    if (!isDefault && std::find(devices.begin(), devices.end(), o.Device) == devices.end())
        return Fail("unknown device '" + o.Device + "' (see mediawire devices)");
    const std::string deviceName = isDefault ? mw::wave::DefaultOutputName() : o.Device;

    out->SetOnError([&](TObject*, const std::string& text, uint32_t code, bool& handled) {
        std::lock_guard g(errorMutex);
        if (!outputFailed.exchange(true)) outputError = mw::QSErrorText(text, code);
        handled = true;
    });
    out->Device()->SetDeviceName(isDefault ? "Default" : o.Device);
    out->SetPrefillInterval(o.Prefill);
    out->Pump()->SetEnabled(o.Pump);
    src->SetOnError([](TObject*, const std::string&, uint32_t, bool& handled) { handled = true; });
    src->SetOnWarning([](TObject*, const std::string& text, uint32_t) {
        std::fprintf(stderr, "\nmediawire: warning: %s\n", text.c_str());
    });
    src->SetFileName(file);
    // The source may run ahead of what was heard by the prefill and half a second more.
    src->SetPushLead(o.Prefill + 500);
    QWConnect(src->OutputPin(), *out->InputPin());
    QWConnect(*out->ClockOutputPin(), src->ClockPin());

    src->Start();
    switch (src->LastError()) {
        case mw::media::ReadError::None:
            break;
        case mw::media::ReadError::NotFound:
        case mw::media::ReadError::CannotRead:
            return Fail("cannot open '" + shownName + "': " + src->LastErrorText());
        case mw::media::ReadError::NotDecodable:
            return Fail("'" + shownName + "': " + src->LastErrorText());
        default:
            return Fail("'" + shownName + "': not an audio file FFmpeg can decode (" +
                        src->LastErrorText() + ")");
    }
    std::printf("Playing '%s' (%s) on \"%s\"%s\n", shownName.c_str(),
                DescribeFormat(src->GetSourceInfo(), src->GetWaveFormat()).c_str(),
                deviceName.c_str(), src->IsPumped() ? ", pulled by the output" : "");
    std::fflush(stdout);

    const bool tty = isatty(STDOUT_FILENO);
    std::string shown;
    auto showProgress = [&](bool force) {
        const int64_t duration = src->Duration();
        const std::string line = FormatTime(src->Position()) + " / " +
                                 (duration > 0 ? FormatTime(duration) : std::string("?"));
        if (line == shown && !force) return;
        shown = line;
        // A terminal gets one line rewritten in place; a pipe gets a line per tenth.
        std::printf(tty ? "\r%s" : "%s\n", line.c_str());
        std::fflush(stdout);
    };

    int result = 0;
    for (;;) {
        Application::ProcessMessages();
        if (gInterrupted) {
            result = 130;
            break;
        }
        if (outputFailed) break;
        // Done when the whole file was sent and the output has played all of it.
        if (src->ReachedEnd() && src->Position() >= src->SentPosition()) break;
        if (!src->Running() && !src->ReachedEnd()) break;
        showProgress(false);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    showProgress(false);
    if (tty) std::printf("\n");
    std::fflush(stdout);

    src->Stop();
    out->Close();
    Application::ProcessMessages();
    if (outputFailed) {
        std::lock_guard g(errorMutex);
        return Fail("cannot play on \"" + deviceName + "\": " + outputError);
    }
    if (result == 130) std::fprintf(stderr, "mediawire: interrupted\n");
    return result;
}

int Play(int argc, char** argv) {
    PlayOptions o;
    if (auto usage = ParsePlay(argc, argv, o)) return *usage;

    struct sigaction sa {};
    sa.sa_handler = OnSigInt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);

    if (o.ToneSeconds <= 0) return PlayFile(o.File, o.File, o);

    char dir[] = "/tmp/mediawire-XXXXXX";
    if (!mkdtemp(dir))
        return Fail(std::string("cannot make a temporary directory: ") + std::strerror(errno));
    const std::string path = std::string(dir) + "/tone.wav";
    int result;
    if (!WriteToneWav(path, o.ToneSeconds))
        result = Fail("cannot write '" + path + "'");
    else
        result = PlayFile(path, "test tone", o);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return result;
}

int Tone(int argc, char** argv) {
    if (argc < 3 || argc > 4) return Usage();
    double seconds = 1.0;
    if (argc == 4) {
        const auto s = ParseSeconds(argv[3]);
        if (!s) return Usage();
        seconds = *s;
    }
    if (!WriteToneWav(argv[2], seconds)) return Fail(std::string("cannot write '") + argv[2] + "'");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return Usage();
    const std::string cmd = argv[1];
    if (cmd == "--version" || cmd == "version") {
        std::printf("mediawire %s\n", MW_VERSION);
        return 0;
    }
    if (cmd == "classes" && argc == 2) return Classes();
    if (cmd == "devices" && argc == 2) return Devices();
    if (cmd == "play") return Play(argc, argv);
    if (cmd == "tone") return Tone(argc, argv);
    return Usage();
}
