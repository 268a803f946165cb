// Processing rate of each built-in audio effect on 48 kHz stereo float audio, on one core, as a
// multiple of real time: 10 ms buffers through IMediaObjectInPlace::Process, with the default
// values (the equaliser at +6 dB), and again with an envelope curve moving the first parameter
// on every frame.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "comptr.h"
#include "dmo.h"
#include "dmort.h"
#include "medparam.h"
#include "mmreg.h"
#include "mwstring.h"
#include "objbase.h"
#include "uuids.h"

namespace {

constexpr uint32_t kRate = 48000;
constexpr uint32_t kFrames = 480;
constexpr double kSeconds = 20;

double Rate(const CLSID& id, const std::string& name, bool envelope) {
    ComPtr<IMediaObject> o;
    if (FAILED(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IMediaObject,
                                o.ReleaseAndGetVoidAddress())))
        return 0;
    DMO_MEDIA_TYPE mt;
    MoInitMediaType(&mt, sizeof(WAVEFORMATEX));
    mt.majortype = MEDIATYPE_Audio;
    mt.subtype = MEDIASUBTYPE_IEEE_FLOAT;
    mt.formattype = FORMAT_WaveFormatEx;
    WAVEFORMATEX w{WAVE_FORMAT_IEEE_FLOAT, 2, kRate, kRate * 8, 8, 32, 0};
    std::memcpy(mt.pbFormat, &w, sizeof w);
    o->SetInputType(0, &mt, 0);
    o->SetOutputType(0, &mt, 0);
    MoFreeMediaType(&mt);
    // At its neutral gain the equaliser passes audio untouched; measure it at work.
    if (name == "ParamEq") o.As<IMediaParams>()->SetParam(2, 6);
    auto inPlace = o.As<IMediaObjectInPlace>();
    auto info = o.As<IMediaParamInfo>();
    if (envelope) {
        MP_PARAMINFO pi;
        info->GetParamInfo(0, &pi);
        MP_ENVELOPE_SEGMENT seg{0,
                                static_cast<REFERENCE_TIME>(kSeconds * 1e7),
                                pi.mpdMinValue,
                                pi.mpdMaxValue,
                                MP_CURVE_LINEAR,
                                0};
        if (FAILED(o.As<IMediaParams>()->AddEnvelope(0, 1, &seg))) return -1;
    }
    std::vector<float> buffer(kFrames * 2);
    uint32_t seed = 1;
    const auto t0 = std::chrono::steady_clock::now();
    const size_t buffers = static_cast<size_t>(kSeconds * kRate / kFrames);
    for (size_t b = 0; b < buffers; ++b) {
        for (float& v : buffer) {
            seed = seed * 1664525u + 1013904223u;
            v = static_cast<float>((seed >> 8) / double(1 << 24) - 0.5);
        }
        inPlace->Process(kFrames * 8, reinterpret_cast<BYTE*>(buffer.data()),
                         static_cast<REFERENCE_TIME>(b * kFrames * 1e7 / kRate), 0);
    }
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return kSeconds / elapsed;
}

}  // namespace

int main() {
    CoInitialize(nullptr);
    ComPtr<IEnumDMO> e;
    DMOEnum(DMOCATEGORY_AUDIO_EFFECT, DMO_ENUMF_INCLUDE_KEYED, 0, nullptr, 0, nullptr,
            e.ReleaseAndGetAddressOf());
    std::printf("effect        x real time (48 kHz stereo float, one core)\n");
    std::printf("              defaults    envelope on parameter 0\n");
    CLSID id;
    WCHAR* name = nullptr;
    while (e && e->Next(1, &id, &name, nullptr) == S_OK) {
        const std::string n = mw::Utf16ToUtf8(name);
        CoTaskMemFree(name);
        const double plain = Rate(id, n, false);
        const double moving = Rate(id, n, true);
        if (moving < 0)
            std::printf("%-12s %9.0f    (no curve for this parameter)\n", n.c_str(), plain);
        else
            std::printf("%-12s %9.0f    %9.0f\n", n.c_str(), plain, moving);
    }
    CoUninitialize();
    return 0;
}
