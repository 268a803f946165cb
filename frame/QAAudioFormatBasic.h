// The persisted description of a wanted audio format: rate, bits and channels, kept in a
// component's form file and turned into the extensible PCM record on demand. It shares its
// owner's lock; setters announce changes through the change closure.
#pragma once

#include "frame/LockComponents.h"
#include "frame/QAAudioFormat.h"

class TQAAudioFormatBasic : public TLockPersistent {
    MW_CLASS(TQAAudioFormatBasic, TLockPersistent)
public:
    TQAAudioFormatBasic(TPersistent* owner, IChangeNotifyLock* lock, TChangeClosure onChange = {});

    uint32_t SampleRate() const { return FSampleRate; }
    void SetSampleRate(uint32_t value);
    uint32_t BitsPerSample() const { return FBitsPerSample; }
    void SetBitsPerSample(uint32_t value);
    uint32_t Channels() const { return FChannels; }
    void SetChannels(uint32_t value);

    // The record of the wanted format: extensible PCM with the rule's channel mask.
    TQAWaveFormatExtensible GetWaveFormat() const;

    static void Publish(TPropertyList& p);

private:
    uint32_t FSampleRate = 44100;
    uint32_t FBitsPerSample = 16;
    uint32_t FChannels = 2;
};
