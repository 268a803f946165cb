// mediawire convert: decodes an audio file with FFmpeg and writes it as a WAV file in another
// format (PCM of any sample size, float, or compressed through the compression manager), at
// another rate or channel count if asked, with a progress line.
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

#include "AudioFormats.h"
#include "Tool.h"
#include "compression/QAAudioCompressor.h"
#include "compression/QAWaveFileWriter.h"
#include "frame/MainThread.h"
#include "platform/ffmpeg/AudioFileReader.h"
#include "playback/QMAudioFileSource.h"

namespace mw::tool {
namespace {

struct ConvertOptions {
    std::string In, Out, Format;
    int Rate = 0;      // 0: the input's
    int Channels = 0;  // 0: the input's
};

std::string Seconds(int64_t time100ns) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f s", double(time100ns) / 1e7);
    return buf;
}

int Convert(const ConvertOptions& o) {
    const NamedAudioFormat* named = FindNamedAudioFormat(o.Format);
    if (!named) throw UsageError("unknown format '" + o.Format + "' (see 'mediawire formats')");

    // The input's rate and channels decide the output's unless given.
    mw::media::AudioFileReader probe;
    if (!probe.Open(o.In)) throw Failure("cannot read '" + o.In + "': " + probe.ErrorText());
    const int rate = o.Rate ? o.Rate : int(probe.Source().Rate);
    const int channels = o.Channels ? o.Channels : int(probe.Source().Channels);
    probe.Close();
    const std::vector<uint8_t> block = MakeAudioFormat(*named, channels, rate);

    std::mutex errorMutex;
    std::string error;
    auto onError = [&](TObject*, const std::string& text, uint32_t, bool& handled) {
        std::lock_guard g(errorMutex);
        if (error.empty()) error = text;
        handled = true;
    };
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* src = TComponent::New<TQMAudioFileSource>(form.get());
    auto* comp = TComponent::New<TQAAudioCompressor>(form.get());
    auto* writer = TComponent::New<TQAWaveFileWriter>(form.get());
    src->SetOnError(onError);
    comp->SetOnError(onError);
    writer->SetOnError(onError);
    src->SetOnWarning([](TObject*, const std::string& text, uint32_t) { Warn(text); });
    // Codecs and narrow PCM take 16-bit samples; wide PCM and float the file's own.
    src->SetSampleFormat(named->Bits > 16 ? TQMSampleFormat::Source : TQMSampleFormat::Int16);
    src->SetFileName(o.In);
    comp->Format()->SetFormat(block.data(), int32_t(block.size()));
    writer->SetFileName(o.Out);
    writer->SetPullsSource(true);
    QWConnect(src->OutputPin(), comp->InputPin());
    QWConnect(comp->OutputPin(), writer->InputPin());

    src->Start();
    auto failed = [&] {
        std::lock_guard g(errorMutex);
        return !error.empty();
    };
    if (src->LastError() != mw::media::ReadError::None)
        throw Failure("cannot read '" + o.In + "': " + src->LastErrorText());
    Say("Converting '" + o.In + "' to '" + o.Out + "': " + comp->Format()->GetName());

    ProgressLine progress;
    auto lastShown = std::chrono::steady_clock::now();
    while (!writer->Finished() && !failed() && !Interrupted()) {
        if (writer->Pumping()) {
            writer->PullNext();
        } else {
            Application::ProcessMessages();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (!src->Running() && !writer->Finished()) break;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now - lastShown > std::chrono::milliseconds(100)) {
            lastShown = now;
            const int64_t duration = src->Duration();
            progress.Show(Seconds(src->SentPosition()) + " / " +
                          (duration > 0 ? Seconds(duration) : std::string("?")));
        }
    }
    progress.Show(Seconds(src->SentPosition()) + " / " + Seconds(src->Duration()));
    progress.Finish();
    src->Stop();
    Application::ProcessMessages();
    if (Interrupted()) return ExitInterrupted();
    if (failed()) {
        std::lock_guard g(errorMutex);
        throw Failure(error);
    }
    if (!writer->Finished()) throw Failure("the stream of '" + o.In + "' ended early");
    Say("Wrote " + std::to_string(writer->DataBytes()) + " bytes of audio to '" + o.Out + "'");
    return kExitOk;
}

CommandRun Define(CLI::App& command) {
    auto o = std::make_shared<ConvertOptions>();
    command.add_option("IN", o->In, "Any audio file FFmpeg reads")->required();
    command.add_option("OUT", o->Out, "The WAV file to write")->required();
    command
        .add_option("--format,-f", o->Format,
                    "The format to write, as 'mediawire formats' lists it (ima-adpcm, ms-adpcm, "
                    "gsm, alaw, mulaw, mp3, wma2, pcm16, float, ...)")
        ->type_name("NAME")
        ->required();
    command.add_option("--rate,-r", o->Rate, "Samples per second (default: the input's)")
        ->type_name("HZ")
        ->check(CLI::Range(1000, 384000));
    command.add_option("--channels,-c", o->Channels, "Channels (default: the input's)")
        ->type_name("N")
        ->check(CLI::Range(1, 8));
    return [o] { return Convert(*o); };
}

const CommandRegistration kConvert{
    "convert", "Convert an audio file into a WAV file of another format, rate or channel count",
    Define};

}  // namespace
}  // namespace mw::tool
