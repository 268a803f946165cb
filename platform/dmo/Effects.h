// The built-in audio effects, registered in the audio effect category (DMOCATEGORY_AUDIO_EFFECT)
// in this order: "Gain", "Echo", "Chorus", "Flanger", "Compressor", "ParamEq", "Distortion",
// "Gargle", "Reverb". Each is created through CoCreateInstance of its class id and works in
// place on 16-bit integer PCM or 32-bit float audio of any rate from 1 kHz and 1 to 32
// channels (see AudioEffect.h).
//
// Parameters, by index (type, range, neutral value, unit):
//   Gain        0 Gain float -60..20 dB (0); 1 Invert bool (false)
//   Echo        0 WetDryMix float 0..100 % (50); 1 Feedback float 0..100 % (50);
//               2 LeftDelay float 1..2000 ms (500); 3 RightDelay float 1..2000 ms (500);
//               4 PanDelay bool (false): each repeat crosses to the other side
//   Chorus      0 WetDryMix 0..100 % (50); 1 Depth 0..100 % (10); 2 Feedback -99..99 % (25);
//               3 Frequency 0..10 Hz (1.1); 4 Waveform enum Triangle, Sine (Sine);
//               5 Delay 0..20 ms (16); 6 Phase enum -180, -90, 0, 90, 180 degrees (90)
//   Flanger     as Chorus, with Depth (100), Feedback (-50), Frequency (0.25), Delay 0..4 ms
//               (2) and Phase (0)
//   Compressor  0 Gain -60..60 dB (0); 1 Attack 0.01..500 ms (10); 2 Release 50..3000 ms (200);
//               3 Threshold -60..0 dB (-20); 4 Ratio 1..100 (3); 5 Predelay 0..4 ms (4), the
//               look-ahead of the detector, which is also the effect's latency
//   ParamEq     0 Center 80..16000 Hz (8000); 1 Bandwidth 1..36 semitones (12);
//               2 Gain -15..15 dB (0): a peaking filter whose gain at the centre is Gain
//   Distortion  0 Gain -60..0 dB (-18); 1 Edge 0..100 % (15); 2 PostEQCenterFrequency
//               100..8000 Hz (2400); 3 PostEQBandwidth 100..8000 Hz (2400);
//               4 PreLowpassCutoff 100..8000 Hz (8000)
//   Gargle      0 Rate int 1..1000 Hz (20); 1 WaveShape enum Triangle, Square (Triangle)
//   Reverb      0 InGain -96..0 dB (0); 1 ReverbMix -96..0 dB (0); 2 ReverbTime 1..3000 ms
//               (1000); 3 HighFreqRTRatio 0.001..0.999 (0.001)
// Frequencies above 0.45 of the stream's rate are taken as that limit.
#pragma once

#include "dsound.h"
#include "objbase.h"

// The gain effect has no class of the platform; this is its own.
DEFINE_GUID(CLSID_MwGainEffect, 0x3F4E5A10, 0x7C2B, 0x4D61, 0x9E, 0x0A, 0x51, 0xB8, 0x26, 0xC4,
            0x7D, 0x93);

namespace mw::dmo {

// Makes the built-in effects creatable and lists them in their category. Done at start-up of
// any program that links the registry; safe to call again, from any thread.
HRESULT RegisterBuiltInEffects();

}  // namespace mw::dmo
