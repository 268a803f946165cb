// The device list and the reading of format records.
#include <cstring>
#include <mutex>

#include "mwwave.h"
#include "platform/wave/AlsaPcm.h"
#include "platform/wave/WaveDevice.h"

namespace mw::wave {

namespace {

constexpr unsigned kMaxChannels = 32;
constexpr unsigned kMinRate = 1000;
constexpr unsigned kMaxRate = 768000;

struct DeviceList {
    std::mutex mutex;
    bool built = false;
    std::vector<std::shared_ptr<OutputDevice>> devices;
    std::shared_ptr<OutputDevice> alsaDefault;
    std::shared_ptr<OutputDevice> virtualOutput;
    size_t firstAdded = 0;  // devices from here on came from AddAlsaDevice
};

DeviceList& List() {
    static DeviceList* list = new DeviceList;  // lives to process exit: handles may outlive main
    std::lock_guard lock(list->mutex);
    if (!list->built) {
        list->built = true;
        for (auto& device : EnumerateAlsaCards())
            list->devices.push_back(std::move(device));
        list->virtualOutput = MakeVirtualOutputDevice();
        list->devices.push_back(list->virtualOutput);
        list->devices.push_back(MakeWaveFileOutputDevice());
        list->firstAdded = list->devices.size();
        AlsaTarget def;
        def.displayName = "Default";
        def.pcmName = "default";
        def.maxChannels = 8;
        list->alsaDefault = MakeAlsaOutputDevice(std::move(def));
    }
    return *list;
}

}  // namespace

MMRESULT ParseFormat(const WAVEFORMATEX* wfx, PcmFormat* out) {
    if (!wfx || !out) return MMSYSERR_INVALPARAM;
    PcmFormat f;
    // Plain PCM may come as the 16-byte record without cbSize: never read it.
    const WORD tag = wfx->wFormatTag;
    size_t recordBytes = sizeof(WAVEFORMATEX);
    f.channels = wfx->nChannels;
    f.rate = wfx->nSamplesPerSec;
    f.containerBits = wfx->wBitsPerSample;
    f.validBits = f.containerBits;
    f.blockAlign = wfx->nBlockAlign;
    if (tag == WAVE_FORMAT_PCM) {
        f.sample = PcmFormat::Sample::Int;
    } else if (tag == WAVE_FORMAT_IEEE_FLOAT) {
        f.sample = PcmFormat::Sample::Float;
    } else if (tag == WAVE_FORMAT_EXTENSIBLE) {
        if (wfx->cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) {
            return WAVERR_BADFORMAT;
        }
        WAVEFORMATEXTENSIBLE ext;
        std::memcpy(&ext, wfx, sizeof ext);
        if (ext.SubFormat == KSDATAFORMAT_SUBTYPE_PCM) {
            f.sample = PcmFormat::Sample::Int;
        } else if (ext.SubFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) {
            f.sample = PcmFormat::Sample::Float;
        } else {
            return WAVERR_BADFORMAT;
        }
        if (ext.Samples.wValidBitsPerSample != 0) f.validBits = ext.Samples.wValidBitsPerSample;
        recordBytes = sizeof(WAVEFORMATEXTENSIBLE);
    } else {
        return WAVERR_BADFORMAT;
    }
    const unsigned bits = f.containerBits;
    const bool bitsOk = f.sample == PcmFormat::Sample::Int
                            ? (bits == 8 || bits == 16 || bits == 24 || bits == 32)
                            : (bits == 32 || bits == 64);
    if (!bitsOk || f.validBits > bits || f.validBits == 0) return WAVERR_BADFORMAT;
    if (f.sample == PcmFormat::Sample::Float && f.validBits != bits) return WAVERR_BADFORMAT;
    if (f.channels == 0 || f.channels > kMaxChannels) return WAVERR_BADFORMAT;
    if (f.rate < kMinRate || f.rate > kMaxRate) return WAVERR_BADFORMAT;
    if (f.blockAlign != f.channels * bits / 8) return WAVERR_BADFORMAT;

    f.record.assign(recordBytes, 0);
    std::memcpy(f.record.data(), wfx, tag == WAVE_FORMAT_PCM ? sizeof(PCMWAVEFORMAT) : recordBytes);
    reinterpret_cast<WAVEFORMATEX*>(f.record.data())->cbSize =
        static_cast<WORD>(recordBytes - sizeof(WAVEFORMATEX));
    *out = std::move(f);
    return MMSYSERR_NOERROR;
}

UINT DeviceCount() {
    DeviceList& list = List();
    std::lock_guard lock(list.mutex);
    return static_cast<UINT>(list.devices.size());
}

std::shared_ptr<OutputDevice> DeviceAt(UINT id) {
    DeviceList& list = List();
    std::lock_guard lock(list.mutex);
    return id < list.devices.size() ? list.devices[id] : nullptr;
}

std::shared_ptr<OutputDevice> DefaultDevice() {
    DeviceList& list = List();
    std::lock_guard lock(list.mutex);
    return AlsaDefaultOpens() ? list.alsaDefault : list.virtualOutput;
}

MMRESULT AddAlsaDevice(const std::string& displayName, const std::string& pcmName,
                       const std::string& configText, UINT* deviceId) {
    if (displayName.empty() || pcmName.empty()) return MMSYSERR_INVALPARAM;
    if (!configText.empty()) {
        MMRESULT result = CheckAlsaConfigText(configText);
        if (result != MMSYSERR_NOERROR) return result;
    }
    AlsaTarget target;
    target.displayName = displayName;
    target.pcmName = pcmName;
    target.configText = configText;
    target.maxChannels = kMaxChannels;
    DeviceList& list = List();
    std::lock_guard lock(list.mutex);
    // Names pick devices, so they stay unique: adding a name again replaces that definition
    // under the same number (open handles keep the old one).
    for (size_t i = 0; i < list.devices.size(); ++i) {
        if (list.devices[i]->Name() != displayName) continue;
        if (i < list.firstAdded) return MMSYSERR_ALLOCATED;
        list.devices[i] = MakeAlsaOutputDevice(std::move(target));
        if (deviceId) *deviceId = static_cast<UINT>(i);
        return MMSYSERR_NOERROR;
    }
    list.devices.push_back(MakeAlsaOutputDevice(std::move(target)));
    if (deviceId) *deviceId = static_cast<UINT>(list.devices.size() - 1);
    return MMSYSERR_NOERROR;
}

UINT FindOutputDevice(const std::string& name) {
    DeviceList& list = List();
    std::lock_guard lock(list.mutex);
    for (size_t i = 0; i < list.devices.size(); ++i) {
        if (list.devices[i]->Name() == name) return static_cast<UINT>(i);
    }
    return WAVE_MAPPER;
}

std::string DefaultOutputName() {
    return DefaultDevice()->Name();
}

}  // namespace mw::wave
