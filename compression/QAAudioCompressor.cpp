#include "compression/QAAudioCompressor.h"

#include <cstring>

#include "frame/Persistence.h"
#include "mwacm.h"

namespace {

bool IsSubFormat(const tWAVEFORMATEX* f, const GUID& sub) {
    return f->wFormatTag == WAVE_FORMAT_EXTENSIBLE && f->cbSize >= 22 &&
           reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(f)->SubFormat == sub;
}
bool IsIntegerPcm(const tWAVEFORMATEX* f) {
    return f->wFormatTag == WAVE_FORMAT_PCM || IsSubFormat(f, KSDATAFORMAT_SUBTYPE_PCM);
}
bool IsFloat(const tWAVEFORMATEX* f) {
    return f->wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
           IsSubFormat(f, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
}

std::vector<uint8_t> BlockOf(const tWAVEFORMATEX* f) {
    const auto* p = reinterpret_cast<const uint8_t*>(f);
    return std::vector<uint8_t>(p, p + mw::acm::FormatBlockSize(f));
}
const tWAVEFORMATEX* Wfx(const std::vector<uint8_t>& block) {
    return reinterpret_cast<const tWAVEFORMATEX*>(block.data());
}
tWAVEFORMATEX* Wfx(std::vector<uint8_t>& block) {
    return reinterpret_cast<tWAVEFORMATEX*>(block.data());
}

std::vector<uint8_t> Pcm(int channels, DWORD rate, int bits) {
    tWAVEFORMATEX f{};
    f.wFormatTag = WAVE_FORMAT_PCM;
    f.nChannels = WORD(channels);
    f.nSamplesPerSec = rate;
    f.nBlockAlign = WORD(channels * bits / 8);
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    f.wBitsPerSample = WORD(bits);
    return BlockOf(&f);
}

bool SuggestPcm(const tWAVEFORMATEX* f, tWAVEFORMATEX& pcm) {
    pcm = tWAVEFORMATEX{};
    pcm.wFormatTag = WAVE_FORMAT_PCM;
    return acmFormatSuggest(nullptr, const_cast<tWAVEFORMATEX*>(f), &pcm, sizeof pcm,
                            ACM_FORMATSUGGESTF_WFORMATTAG) == MMSYSERR_NOERROR;
}

// PCM frames one block of the codec encodes, so that an encoder is fed whole blocks.
uint32_t FramesPerUnit(const tWAVEFORMATEX* f) {
    switch (f->wFormatTag) {
        case WAVE_FORMAT_IMA_ADPCM:
        case WAVE_FORMAT_ADPCM:
        case WAVE_FORMAT_GSM610: {
            WORD spb = 1;
            if (f->cbSize >= 2) std::memcpy(&spb, reinterpret_cast<const uint8_t*>(f) + 18, 2);
            return spb ? spb : 1;
        }
        case WAVE_FORMAT_MPEGLAYER3:
            return f->nSamplesPerSec >= 32000 ? 1152 : 576;
        case WAVE_FORMAT_MSAUDIO1:
        case WAVE_FORMAT_WMAUDIO2:
            return f->nSamplesPerSec <= 16000 ? 512 : f->nSamplesPerSec <= 22050 ? 1024 : 2048;
        default:
            return 1;
    }
}

std::string NameOf(const tWAVEFORMATEX* f) {
    ACMFORMATTAGDETAILSA d{};
    d.cbStruct = sizeof d;
    d.dwFormatTag = f->wFormatTag == WAVE_FORMAT_EXTENSIBLE
                        ? (IsFloat(f) ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM)
                        : f->wFormatTag;
    acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG);
    return std::string(d.szFormatTag[0] ? d.szFormatTag : "tag " + std::to_string(d.dwFormatTag)) +
           " " + std::to_string(f->nChannels) + " ch " + std::to_string(f->nSamplesPerSec) + " Hz";
}

}  // namespace

TQAAudioCompressor::TQAAudioCompressor(TComponent* owner)
    : TLockComponent(owner),
      FInputPin(
          this, ComponentLock(),
          [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op, TQWNotifyState) {
              Dispatch(op);
              return 0;
          }),
      FOutputPin(this, ComponentLock(), nullptr, {}),
      FFormat(new TQACompressionFormat(this, ComponentLock(), Notifier())) {
    FInputPin.SetName("Input");
    FOutputPin.SetName("Output");
    FOutputPin.AddLinkedPin(&FInputPin);
    // A sink that pumps this component's output pumps its source.
    FOutputPin.SetOnMasterPump([this](TQSQWClockableSourcePin*, TObject* master, uint32_t n) {
        FInputPin.MasterPump(master, n);
    });
}

TQAAudioCompressor::~TQAAudioCompressor() = default;

void TQAAudioCompressor::StopWork() {
    QWCloseComponentPins(this);
    std::lock_guard g(FStreamLock);
    FStages.clear();
    FRunning = false;
}

void TQAAudioCompressor::SetOnError(TQSErrorEvent e) {
    std::lock_guard g(FEventMutex);
    FOnError = std::move(e);
}

void TQAAudioCompressor::Error(const std::string& text, uint32_t code) {
    TQSErrorEvent handler;
    {
        std::lock_guard g(FEventMutex);
        handler = FOnError;
    }
    mw::ReportError(this, handler, IsDesigning(), text, code);
}

std::vector<uint8_t> TQAAudioCompressor::OutputFormat() const {
    std::lock_guard g(FStreamLock);
    return FRunning ? FOutFormat : std::vector<uint8_t>{};
}

uint64_t TQAAudioCompressor::BytesOut() const {
    std::lock_guard g(FStreamLock);
    return FBytesOut;
}

void TQAAudioCompressor::Dispatch(IQWNotifyOperation* op) {
    std::lock_guard g(FStreamLock);
    if (auto* start = op->InstanceAs<TQAStartAudioCompressionOperation>()) {
        if (start->Format) {
            StartStream(start->Format);
        } else {
            EndStream(false);
            Error("A compressed stream started without its format", ACMERR_NOTPOSSIBLE);
        }
    } else if (auto* wave = op->InstanceAs<TQWStartWaveOperation>()) {
        StartStream(&wave->Format);
    } else if (auto* buffer = op->InstanceAs<TQWSuppliedBufferOperation>()) {
        if (FRunning && buffer->Data)
            Feed(0, buffer->Data->ReadPointer(), buffer->Data->ByteSize());
    } else if (op->IsType<TQWStopOperation>()) {
        const bool running = FRunning;
        EndStream(true);
        if (running) FOutputPin.Notify(op);
    } else if (op->IsType<TQSInternalStopOperation>()) {
        EndStream(false);
        FOutputPin.Notify(op);
    } else if (op->IsType<TQWFlushStreamOperation>()) {
        for (auto& s : FStages)
            s->Carry.clear();
        FOutputPin.Notify(op);
    } else {
        FOutputPin.Notify(op);
    }
}

void TQAAudioCompressor::StartStream(const tWAVEFORMATEX* input) {
    EndStream(false);
    const std::vector<uint8_t> in = BlockOf(input);
    tWAVEFORMATEX inPcm{}, outPcm{};
    if (!SuggestPcm(input, inPcm)) {
        Error("The stream's format can't be decompressed: " + NameOf(input), ACMERR_NOTPOSSIBLE);
        return;
    }
    std::vector<uint8_t> out;
    if (FFormat->Empty()) {
        out = Pcm(inPcm.nChannels, inPcm.nSamplesPerSec, 16);
    } else {
        out.resize(size_t(std::max(FFormat->GetFormatSize(), int32_t(sizeof(tWAVEFORMATEX)))));
        FFormat->GetFormat(out.data(), int32_t(out.size()));
        out.resize(std::min<size_t>(out.size(), mw::acm::FormatBlockSize(Wfx(out))));
    }
    if (!SuggestPcm(Wfx(out), outPcm)) {
        Error("The wanted format can't be made: " + NameOf(Wfx(out)), ACMERR_NOTPOSSIBLE);
        return;
    }

    std::vector<std::unique_ptr<TStage>> stages;
    auto addStage = [&](const std::vector<uint8_t>& from, std::vector<uint8_t> to, uint32_t unit) {
        auto s = std::make_unique<TStage>();
        s->InFormat = from;
        s->Unit = std::max<uint32_t>(unit, 1);
        if (!s->Compressor.OpenCompressor(const_cast<tWAVEFORMATEX*>(Wfx(from)), Wfx(to))) {
            Error("The compressor can't turn " + NameOf(Wfx(from)) + " into " + NameOf(Wfx(to)),
                  ACMERR_NOTPOSSIBLE);
            return false;
        }
        stages.push_back(std::move(s));
        return true;
    };
    if (in != out) {
        // First to plain PCM of the output's rate and channels, unless the input is that.
        const bool plain = IsIntegerPcm(input);
        std::vector<uint8_t> mid = in;
        if (!plain || inPcm.nSamplesPerSec != outPcm.nSamplesPerSec ||
            inPcm.nChannels != outPcm.nChannels) {
            // A decoded input must not share the PCM form of what it goes to, or the
            // compressor would take it for PCM already.
            const auto same32 = Pcm(outPcm.nChannels, outPcm.nSamplesPerSec, 32);
            const int bits = plain ? inPcm.wBitsPerSample
                             : std::memcmp(&inPcm, same32.data(), sizeof inPcm) == 0 ? 24
                                                                                     : 32;
            mid = Pcm(outPcm.nChannels, outPcm.nSamplesPerSec, bits);
            if (!addStage(in, mid, input->nBlockAlign)) return;
        }
        if (mid != out && !addStage(mid, out, FramesPerUnit(Wfx(out)) * Wfx(mid)->nBlockAlign))
            return;
    }

    FStages = std::move(stages);
    FOutFormat = out;
    const tWAVEFORMATEX* o = Wfx(FOutFormat);
    FOutIsPcm = IsIntegerPcm(o) || IsFloat(o);
    FBytesOut = 0;
    FFramesOut = 0;
    FRunning = true;
    if (FOutIsPcm) {
        if (o->wFormatTag == WAVE_FORMAT_EXTENSIBLE && FOutFormat.size() >= sizeof FOutWave) {
            std::memcpy(&FOutWave, FOutFormat.data(), sizeof FOutWave);
        } else {
            FOutWave = mw::MakePcmWaveFormat(o->nSamplesPerSec, o->wBitsPerSample, o->nChannels);
            if (IsFloat(o)) FOutWave.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
        }
        FOutputPin.Notify(MwNew<TQWStartWaveOperation>(FOutWave));
    } else {
        FOutputPin.Notify(MwNew<TQAStartAudioCompressionOperation>(
            float(o->nSamplesPerSec), o, o->cbSize ? FOutFormat.data() + 18 : nullptr,
            int32_t(o->cbSize)));
    }
}

void TQAAudioCompressor::EndStream(bool padTail) {
    if (padTail && FRunning && !FStages.empty()) {
        // The PCM that didn't fill a last block goes out padded with silence.
        TStage& last = *FStages.back();
        const tWAVEFORMATEX* in = Wfx(last.InFormat);
        if ((IsIntegerPcm(in) || IsFloat(in)) && !last.Carry.empty()) {
            const uint8_t silence = IsIntegerPcm(in) && in->wBitsPerSample == 8 ? 0x80 : 0;
            const size_t pad = last.Unit - last.Carry.size() % last.Unit;
            last.Carry.insert(last.Carry.end(), pad % last.Unit, silence);
            Feed(FStages.size() - 1, nullptr, 0);
        }
    }
    FStages.clear();
    FRunning = false;
}

void TQAAudioCompressor::Feed(size_t stage, const uint8_t* bytes, size_t size) {
    if (stage == FStages.size()) {
        if (size) Send(bytes, size);
        return;
    }
    TStage& s = *FStages[stage];
    if (size) s.Carry.insert(s.Carry.end(), bytes, bytes + size);
    const size_t whole = s.Carry.size() / s.Unit * s.Unit;
    if (whole == 0) return;
    auto in = MwNew<TQAAudioBuffer>();
    in->Resize(uint32_t(whole), false);
    std::memcpy(in->WritePointer(), s.Carry.data(), whole);
    s.Carry.erase(s.Carry.begin(), s.Carry.begin() + long(whole));
    ComPtr<IQAAudioBuffer> result;
    int32_t resultSize = 0;
    s.Compressor.CompressBuffer(in.Get(), result, resultSize);
    if (resultSize > 0) Feed(stage + 1, result->ReadPointer(), size_t(resultSize));
}

void TQAAudioCompressor::Send(const uint8_t* bytes, size_t size) {
    ComPtr<IQSData> data;
    if (FOutIsPcm) {
        const uint32_t frames = uint32_t(size / FOutWave.nBlockAlign);
        auto buffer = MwNew<TQAAudioBuffer>(FOutWave, frames);
        std::memcpy(buffer->InterleavedWritePointer(), bytes,
                    size_t(frames) * FOutWave.nBlockAlign);
        ComPtr<IQMTimeStamp> stamp = buffer->TimeStamp();
        stamp->SetHasTimes(true);
        stamp->SetStartTime(
            mw::SamplesToDuration100ns(int64_t(FFramesOut), FOutWave.nSamplesPerSec));
        FFramesOut += frames;
        stamp->SetEndTime(mw::SamplesToDuration100ns(int64_t(FFramesOut), FOutWave.nSamplesPerSec));
        data = buffer;
    } else {
        data = MwNew<TQSBlockBuffer>(bytes, uint32_t(size));
    }
    FBytesOut += size;
    FOutputPin.SubmitBuffer(data);
}

namespace QAAudioCompressor {
void RegisterPkg() {
    QACompression::RegisterPkg();
    RegisterClass(TQAAudioCompressor::StaticClass());
}
}  // namespace QAAudioCompressor
