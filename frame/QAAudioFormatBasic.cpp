#include "frame/QAAudioFormatBasic.h"

TQAAudioFormatBasic::TQAAudioFormatBasic(TPersistent* owner, IChangeNotifyLock* lock,
                                         TChangeClosure onChange)
    : TLockPersistent(owner, lock, std::move(onChange)) {}

// Limits keep the record meaningful: at least 1 Hz, 8 to 32 bits in whole bytes, 1 to 32
// channels (the mask rule covers up to 32).
void TQAAudioFormatBasic::SetSampleRate(uint32_t value) {
    Setters().SetterMin(FSampleRate, value, 1u, Notifier());
}

void TQAAudioFormatBasic::SetBitsPerSample(uint32_t value) {
    Setters().SetterMax(FBitsPerSample, std::max<uint32_t>((value + 7) / 8 * 8, 8), 32, Notifier());
}

void TQAAudioFormatBasic::SetChannels(uint32_t value) {
    Setters().SetterMax(FChannels, std::max<uint32_t>(value, 1), 32, Notifier());
}

TQAWaveFormatExtensible TQAAudioFormatBasic::GetWaveFormat() const {
    TLockGuard g = Lock()->AcquireRead();
    return mw::MakePcmWaveFormat(FSampleRate, static_cast<WORD>(FBitsPerSample),
                                 static_cast<WORD>(FChannels));
}

void TQAAudioFormatBasic::Publish(TPropertyList& p) {
    p.Add<TQAAudioFormatBasic>("SampleRate", &TQAAudioFormatBasic::SampleRate,
                               &TQAAudioFormatBasic::SetSampleRate, 44100u)
        .Add<TQAAudioFormatBasic>("BitsPerSample", &TQAAudioFormatBasic::BitsPerSample,
                                  &TQAAudioFormatBasic::SetBitsPerSample, 16u)
        .Add<TQAAudioFormatBasic>("Channels", &TQAAudioFormatBasic::Channels,
                                  &TQAAudioFormatBasic::SetChannels, 2u);
}
