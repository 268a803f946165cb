#include "media_objects/QMDMOAudioEffect.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "dmort.h"
#include "frame/Persistence.h"
#include "frame/QSData.h"
#include "uuids.h"

namespace {

std::string Lower(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string Trimmed(const std::string& s) {
    const auto first = s.find_first_not_of(" \t");
    if (first == std::string::npos) return {};
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// The object's media type for a stream format: extensible or simple records as they stand.
void MediaTypeOf(const TQAWaveFormatExtensible& format, DMO_MEDIA_TYPE& mt) {
    const bool extensible = format.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
    const DWORD size = extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX);
    MoInitMediaType(&mt, size);
    mt.majortype = MEDIATYPE_Audio;
    const bool isFloat =
        format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
        (extensible && IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT));
    mt.subtype = isFloat ? MEDIASUBTYPE_IEEE_FLOAT : MEDIASUBTYPE_PCM;
    mt.formattype = FORMAT_WaveFormatEx;
    mt.bFixedSizeSamples = TRUE;
    mt.lSampleSize = format.nBlockAlign;
    if (mt.pbFormat) std::memcpy(mt.pbFormat, &format, size);
}

}  // namespace

TQMDMOAudioEffect::TQMDMOAudioEffect(TComponent* owner)
    : TLockComponent(owner),
      FInputPin(this, ComponentLock(),
                [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                       TQWNotifyState) { return Dispatch(op); }),
      FOutputPin(this, ComponentLock(), nullptr, {}),
      FEffect(new TQMDMOFilter(this, ComponentLock(), DMOCATEGORY_AUDIO_EFFECT)) {
    FInputPin.SetName("InputPin");
    FOutputPin.SetName("OutputPin");
    FInputPin.AddLinkedPin(&FOutputPin);
    FOutputPin.AddLinkedPin(&FInputPin);
    // A sink that pulls pulls through the effect from the source before it.
    FOutputPin.SetOnMasterPump([this](TQSQWClockableSourcePin*, TObject* master, uint32_t n) {
        FInputPin.MasterPump(master, n);
    });
}

TQMDMOAudioEffect::~TQMDMOAudioEffect() {
    QWCloseComponentPins(this);
    std::lock_guard g(FStreamMutex);
    FPreparedHold = nullptr;
}

void TQMDMOAudioEffect::Publish(TPropertyList& p) {
    p.Add<TQMDMOAudioEffect>("Enabled", &TQMDMOAudioEffect::Enabled, &TQMDMOAudioEffect::SetEnabled,
                             true);
    p.AddObject<TQMDMOAudioEffect>("Effect", &TQMDMOAudioEffect::Effect);
}

bool TQMDMOAudioEffect::Enabled() const {
    TLockGuard g = ComponentLock()->AcquireRead();
    return FEnabled;
}

void TQMDMOAudioEffect::SetEnabled(bool value) {
    Setters().Setter(FEnabled, value, Notifier(), true);
}

void TQMDMOAudioEffect::SetOnWarning(TQSWarningEvent e) {
    std::lock_guard g(FEventMutex);
    FOnWarning = std::move(e);
}

void TQMDMOAudioEffect::Warning(const std::string& text, uint32_t code) {
    TQSWarningEvent handler;
    {
        std::lock_guard g(FEventMutex);
        handler = FOnWarning;
    }
    mw::ReportWarning(this, handler, text, code);
}

bool TQMDMOAudioEffect::ApplySettings(const std::string& settings, std::string& error) {
    if (!FEffect->Open()) {
        error = "No effect \"" + FEffect->DmoName() + "\"";
        return false;
    }
    size_t pos = 0;
    while (pos <= settings.size()) {
        const size_t comma = std::min(settings.find(',', pos), settings.size());
        const std::string pair = Trimmed(settings.substr(pos, comma - pos));
        pos = comma + 1;
        if (pair.empty()) continue;
        const size_t eq = pair.find('=');
        if (eq == std::string::npos) {
            error = "\"" + pair + "\" is not name=value";
            return false;
        }
        const std::string name = Trimmed(pair.substr(0, eq));
        const std::string value = Trimmed(pair.substr(eq + 1));
        TQMDMOParameters* ps = FEffect->Parameters();
        TQMDMOParameter* param = nullptr;
        for (int i = 0; i < ps->GetCount() && !param; ++i)
            if (Lower(ps->GetItem(i)->Name()) == Lower(name)) param = ps->GetItem(i);
        if (!param) {
            error = FEffect->DmoName() + " has no parameter \"" + name + "\"";
            return false;
        }
        const bool numeric =
            param->Is<TQMDMOFloatParameter>() || param->Is<TQMDMOIntegerParameter>();
        if (numeric) {
            char* end = nullptr;
            std::strtod(value.c_str(), &end);
            if (value.empty() || *end) {
                error = "\"" + value + "\" is not a number for " + param->Name();
                return false;
            }
        }
        param->SetStringValue(value);
        // Bool and enum parameters leave their value alone on a text they don't know.
        if (!numeric && Lower(param->GetDisplayValue()) != Lower(value)) {
            error = "\"" + value + "\" is not a value of " + param->Name();
            return false;
        }
    }
    return true;
}

bool TQMDMOAudioEffect::PrepareObject(const ComPtr<IMediaObject>& object) {
    FPreparedObject = object.Get();
    FPreparedHold = object;
    if (!object) return false;
    DMO_MEDIA_TYPE mt;
    MediaTypeOf(FFormat, mt);
    HRESULT hr = object->SetInputType(0, &mt, 0);
    if (SUCCEEDED(hr)) hr = object->SetOutputType(0, &mt, 0);
    MoFreeMediaType(&mt);
    if (FAILED(hr)) return false;
    // The object was given its values as they were set; the time format and the envelopes
    // are given again so that they count from this stream's start.
    FEffect->AplyParams();
    return true;
}

void TQMDMOAudioEffect::StartStream(const TQAWaveFormatExtensible& format) {
    FEffect->Open();
    bool warn = false;
    {
        // The component lock first, then the stream's own section. Exclusive, since giving the
        // object its values updates what the parameters know of it.
        TLockGuard lock = ComponentLock()->AcquireWrite();
        std::lock_guard g(FStreamMutex);
        ComPtr<IMediaObject> object = FEffect->GetOpenObject();
        FFormat = format;
        FStarted = true;
        FFramesSent = 0;
        FFormatSupported = PrepareObject(object);
        if (object) object->Flush();
        FWarned = warn = object && !FFormatSupported;
    }
    if (warn)
        Warning("Effect " + FEffect->DmoName() +
                    " can't process this format; the stream passes unchanged.",
                static_cast<uint32_t>(format.wBitsPerSample));
}

void TQMDMOAudioEffect::ProcessBuffer(IQSData* data) {
    ComPtr<IQSData> send(data);
    bool warn = false;
    uint32_t bits = 0;
    {
        TLockGuard lock = ComponentLock()->AcquireWrite();
        std::lock_guard g(FStreamMutex);
        ComPtr<IMediaObject> object = FEffect->GetOpenObject();
        ComPtr<IMediaObjectInPlace> inPlace = FEffect->GetObjectInPlace();
        if (FStarted && FEnabled && object && inPlace && mw::HasWaveFormat(FFormat)) {
            // A new effect chosen while streaming gets the stream's type first.
            if (object.Get() != FPreparedObject) {
                FFormatSupported = PrepareObject(object);
                warn = !FFormatSupported && !FWarned;
                FWarned = FWarned || warn;
                bits = FFormat.wBitsPerSample;
            }
            if (FFormatSupported) {
                const uint32_t frames =
                    FFormat.nBlockAlign ? data->ByteSize() / FFormat.nBlockAlign : 0;
                const size_t bytes = size_t(frames) * FFormat.nBlockAlign;
                ComPtr<TQAAudioBuffer> out = MwNew<TQAAudioBuffer>(FFormat, frames);
                std::memcpy(out->InterleavedWritePointer(), data->InterleavedPointer(), bytes);
                ComPtr<IQMTimeStamp> in = data->TimeStamp();
                ComPtr<IQMTimeStamp> stamp = out->TimeStamp();
                const bool hasTimes = in && in->HasTimes();
                const int64_t start =
                    hasTimes ? in->StartTime()
                             : mw::SamplesToDuration100ns(FFramesSent, FFormat.nSamplesPerSec);
                stamp->SetHasTimes(hasTimes);
                if (hasTimes) {
                    stamp->SetStartTime(in->StartTime());
                    stamp->SetEndTime(in->EndTime());
                }
                inPlace->Process(static_cast<ULONG>(bytes), out->InterleavedWritePointer(), start,
                                 0);
                FFramesSent += frames;
                ++FProcessed;
                send = ComPtr<IQSData>(out);
            }
        }
    }
    if (warn)
        Warning("Effect " + FEffect->DmoName() +
                    " can't process this format; the stream passes unchanged.",
                bits);
    FOutputPin.SubmitBuffer(send);
}

int TQMDMOAudioEffect::Dispatch(IQWNotifyOperation* operation) {
    if (auto* start = operation->InstanceAs<TQWStartWaveOperation>()) {
        if (!IsDesigning()) StartStream(start->Format);
        FOutputPin.Notify(operation);
        return 0;
    }
    if (auto* buffer = operation->InstanceAs<TQWSuppliedBufferOperation>()) {
        if (buffer->Data) ProcessBuffer(buffer->Data.Get());
        return 0;
    }
    if (operation->IsType<TQWFlushStreamOperation>()) {
        if (ComPtr<IMediaObject> object = FEffect->GetOpenObject()) object->Flush();
    } else if (operation->IsType<TQWStopOperation>() ||
               operation->IsType<TQSInternalStopOperation>()) {
        std::lock_guard g(FStreamMutex);
        FStarted = false;
    }
    // Everything else goes on as it came, the pump request included, so that the sinks after
    // the effect answer it to the source before it.
    FOutputPin.Notify(operation);
    return 0;
}

void QMDMOAudioEffect::RegisterPkg() {
    RegisterClass(TQMDMOAudioEffect::StaticClass());
}
