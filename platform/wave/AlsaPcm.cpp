// ALSA playback devices and their sink. The sink keeps its own count of written frames and
// derives the played count from snd_pcm_delay, so the handle's queue can tell when each header's
// last frame has left the device.
#include "platform/wave/AlsaPcm.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <mutex>

namespace mw::wave {

namespace {

constexpr unsigned kBufferTimeUs = 100000;
constexpr unsigned kPeriodTimeUs = 10000;

void QuietAlsa(const char*, int, const char*, int, const char*, ...) {}

// The system configuration extended by text, or null on a parse failure.
snd_config_t* LoadConfig(const std::string& text) {
    snd_config_t* top = nullptr;
    if (snd_config_update_ref(&top) < 0) return nullptr;
    snd_config_t* cfg = nullptr;
    int err = snd_config_copy(&cfg, top);
    snd_config_unref(top);
    if (err < 0) return nullptr;
    snd_input_t* in = nullptr;
    if (snd_input_buffer_open(&in, text.data(), static_cast<ssize_t>(text.size())) < 0) {
        snd_config_delete(cfg);
        return nullptr;
    }
    err = snd_config_load(cfg, in);
    snd_input_close(in);
    if (err < 0) {
        snd_config_delete(cfg);
        return nullptr;
    }
    return cfg;
}

MMRESULT OpenResult(int err) {
    if (err == -EBUSY || err == -EAGAIN) return MMSYSERR_ALLOCATED;
    return MMSYSERR_NOTENABLED;
}

class AlsaPcm final : public Sink {
public:
    ~AlsaPcm() override {
        if (pcm_) {
            snd_pcm_drop(pcm_);
            snd_pcm_close(pcm_);
        }
        if (config_) snd_config_delete(config_);
    }

    MMRESULT Open(const AlsaTarget& target, const PcmFormat& format, bool allowConversion) {
        SilenceAlsaErrors();
        const std::string& name = (!allowConversion && !target.directPcmName.empty())
                                      ? target.directPcmName
                                      : target.pcmName;
        int err;
        if (target.configText.empty()) {
            err = snd_pcm_open(&pcm_, name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
        } else {
            config_ = LoadConfig(target.configText);
            if (!config_) return MMSYSERR_NOTENABLED;
            err = snd_pcm_open_lconf(&pcm_, name.c_str(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK,
                                     config_);
        }
        if (err < 0) {
            pcm_ = nullptr;
            return OpenResult(err);
        }
        rate_ = format.rate;

        snd_pcm_hw_params_t* hw;
        snd_pcm_hw_params_alloca(&hw);
        snd_pcm_format_t sampleFormat = AlsaFormatFor(format);
        if (sampleFormat == SND_PCM_FORMAT_UNKNOWN) return WAVERR_BADFORMAT;
        if (snd_pcm_hw_params_any(pcm_, hw) < 0) return MMSYSERR_NOTENABLED;
        snd_pcm_hw_params_set_rate_resample(pcm_, hw, allowConversion ? 1 : 0);
        if (snd_pcm_hw_params_set_access(pcm_, hw, SND_PCM_ACCESS_RW_INTERLEAVED) < 0 ||
            snd_pcm_hw_params_set_format(pcm_, hw, sampleFormat) < 0 ||
            snd_pcm_hw_params_set_channels(pcm_, hw, format.channels) < 0 ||
            snd_pcm_hw_params_set_rate(pcm_, hw, format.rate, 0) < 0) {
            return WAVERR_BADFORMAT;
        }
        unsigned bufferTime = kBufferTimeUs;
        unsigned periodTime = kPeriodTimeUs;
        int dir = 0;
        snd_pcm_hw_params_set_buffer_time_near(pcm_, hw, &bufferTime, &dir);
        dir = 0;
        snd_pcm_hw_params_set_period_time_near(pcm_, hw, &periodTime, &dir);
        if (snd_pcm_hw_params(pcm_, hw) < 0) return WAVERR_BADFORMAT;
        canPause_ = snd_pcm_hw_params_can_pause(hw) == 1;
        snd_pcm_uframes_t period = 0;
        snd_pcm_uframes_t buffer = 0;
        snd_pcm_hw_params_get_period_size(hw, &period, &dir);
        snd_pcm_hw_params_get_buffer_size(hw, &buffer);
        period_ = std::max<snd_pcm_uframes_t>(period, 1);
        buffer_ = std::max<snd_pcm_uframes_t>(buffer, period_);

        // Start when the buffer is full; EndOfData starts a shorter stream.
        snd_pcm_sw_params_t* sw;
        snd_pcm_sw_params_alloca(&sw);
        if (snd_pcm_sw_params_current(pcm_, sw) == 0) {
            snd_pcm_sw_params_set_start_threshold(pcm_, sw, buffer_);
            snd_pcm_sw_params_set_avail_min(pcm_, sw, period_);
            snd_pcm_sw_params(pcm_, sw);
        }
        if (snd_pcm_prepare(pcm_) < 0) return MMSYSERR_NOTENABLED;
        return MMSYSERR_NOERROR;
    }

    uint64_t Avail() override {
        snd_pcm_sframes_t n = snd_pcm_avail_update(pcm_);
        if (n < 0) return period_;  // in an error state: Write recovers first
        return static_cast<uint64_t>(n);
    }

    uint64_t Write(const uint8_t* data, uint64_t frames) override {
        Recover();
        endOfData_ = false;
        snd_pcm_sframes_t n = snd_pcm_writei(pcm_, data, frames);
        if (n == -EAGAIN) return 0;
        if (n < 0) {
            if (n == -EPIPE) ++underruns_;
            snd_pcm_recover(pcm_, static_cast<int>(n), 1);
            return 0;
        }
        written_ += static_cast<uint64_t>(n);
        return static_cast<uint64_t>(n);
    }

    void EndOfData() override {
        endOfData_ = true;
        if (snd_pcm_state(pcm_) == SND_PCM_STATE_PREPARED && written_ > Played()) {
            snd_pcm_start(pcm_);
        }
    }

    uint64_t Written() override { return written_; }

    uint64_t Played() override {
        switch (snd_pcm_state(pcm_)) {
            case SND_PCM_STATE_XRUN:
                played_ = written_;  // the device ran dry: everything written has played
                break;
            case SND_PCM_STATE_RUNNING:
            case SND_PCM_STATE_DRAINING:
            case SND_PCM_STATE_PAUSED: {
                snd_pcm_sframes_t delay = 0;
                snd_pcm_avail_update(pcm_);
                if (snd_pcm_delay(pcm_, &delay) == 0) {
                    uint64_t pending = std::clamp<int64_t>(delay, 0, written_ - played_);
                    played_ = std::max(played_, written_ - pending);
                } else if (snd_pcm_state(pcm_) == SND_PCM_STATE_XRUN) {
                    played_ = written_;
                }
                break;
            }
            default:
                break;
        }
        return played_;
    }

    Clock::time_point WakeFor(uint64_t frame) override {
        const auto periodWait = std::chrono::microseconds(uint64_t{period_} * 1000000 / rate_ / 2);
        auto wait = periodWait;
        uint64_t played = Played();
        if (frame <= written_ && frame > played) {
            wait = std::min(wait, std::chrono::microseconds((frame - played) * 1000000 / rate_));
        }
        return Clock::now() + std::max<Clock::duration>(wait, std::chrono::milliseconds(1));
    }

    void Pause() override {
        if (snd_pcm_state(pcm_) != SND_PCM_STATE_RUNNING) return;
        if (canPause_ && snd_pcm_pause(pcm_, 1) == 0) return;
        // Without a hardware pause: drop what has not played; it is written again on resume.
        Played();
        snd_pcm_drop(pcm_);
        snd_pcm_prepare(pcm_);
        written_ = played_;
    }

    void Resume() override {
        if (snd_pcm_state(pcm_) == SND_PCM_STATE_PAUSED) snd_pcm_pause(pcm_, 0);
    }

    void Drop() override {
        Played();
        snd_pcm_drop(pcm_);
        snd_pcm_prepare(pcm_);
        written_ = played_;
    }

    uint64_t Underruns() const override { return underruns_; }

private:
    // A device that ran dry after the queue ran out is only prepared again; one that ran dry
    // while more audio was waiting counts an underrun.
    void Recover() {
        snd_pcm_state_t state = snd_pcm_state(pcm_);
        if (state == SND_PCM_STATE_XRUN) {
            played_ = written_;
            if (!endOfData_) ++underruns_;
            snd_pcm_recover(pcm_, -EPIPE, 1);
        } else if (state == SND_PCM_STATE_SUSPENDED) {
            snd_pcm_recover(pcm_, -ESTRPIPE, 1);
        } else if (state == SND_PCM_STATE_SETUP) {
            snd_pcm_prepare(pcm_);
        }
    }

    snd_pcm_t* pcm_ = nullptr;
    snd_config_t* config_ = nullptr;
    unsigned rate_ = 1;
    snd_pcm_uframes_t period_ = 1;
    snd_pcm_uframes_t buffer_ = 1;
    bool canPause_ = false;
    bool endOfData_ = false;
    uint64_t written_ = 0;
    uint64_t played_ = 0;
    uint64_t underruns_ = 0;
};

class AlsaOutputDevice final : public OutputDevice {
public:
    explicit AlsaOutputDevice(AlsaTarget target) : target_(std::move(target)) {}

    std::string Name() const override { return target_.displayName; }
    WORD MaxChannels() const override { return target_.maxChannels; }

    MMRESULT CheckFormat(const PcmFormat& format, bool allowConversion) override {
        AlsaPcm pcm;
        return pcm.Open(target_, format, allowConversion);
    }

    MMRESULT Open(const PcmFormat& format, bool allowConversion,
                  std::unique_ptr<Sink>* sink) override {
        auto pcm = std::make_unique<AlsaPcm>();
        MMRESULT result = pcm->Open(target_, format, allowConversion);
        if (result == MMSYSERR_NOERROR) *sink = std::move(pcm);
        return result;
    }

private:
    AlsaTarget target_;
};

}  // namespace

snd_pcm_format_t AlsaFormatFor(const PcmFormat& format) {
    if (format.sample == PcmFormat::Sample::Float) {
        if (format.containerBits == 32) return SND_PCM_FORMAT_FLOAT_LE;
        if (format.containerBits == 64) return SND_PCM_FORMAT_FLOAT64_LE;
        return SND_PCM_FORMAT_UNKNOWN;
    }
    switch (format.containerBits) {
        case 8:
            return SND_PCM_FORMAT_U8;
        case 16:
            return SND_PCM_FORMAT_S16_LE;
        case 24:
            return SND_PCM_FORMAT_S24_3LE;
        case 32:
            return SND_PCM_FORMAT_S32_LE;
        default:
            return SND_PCM_FORMAT_UNKNOWN;
    }
}

void SilenceAlsaErrors() {
    static std::once_flag once;
    std::call_once(once, [] { snd_lib_error_set_handler(QuietAlsa); });
}

std::unique_ptr<OutputDevice> MakeAlsaOutputDevice(AlsaTarget target) {
    return std::make_unique<AlsaOutputDevice>(std::move(target));
}

std::vector<std::unique_ptr<OutputDevice>> EnumerateAlsaCards() {
    SilenceAlsaErrors();
    std::vector<std::unique_ptr<OutputDevice>> devices;
    int card = -1;
    while (snd_card_next(&card) == 0 && card >= 0) {
        snd_ctl_t* ctl = nullptr;
        std::string ctlName = "hw:" + std::to_string(card);
        if (snd_ctl_open(&ctl, ctlName.c_str(), 0) < 0) continue;
        snd_ctl_card_info_t* info;
        snd_ctl_card_info_alloca(&info);
        if (snd_ctl_card_info(ctl, info) < 0) {
            snd_ctl_close(ctl);
            continue;
        }
        std::string cardId = snd_ctl_card_info_get_id(info);
        std::string cardName = snd_ctl_card_info_get_name(info);
        int dev = -1;
        while (snd_ctl_pcm_next_device(ctl, &dev) == 0 && dev >= 0) {
            snd_pcm_info_t* pcmInfo;
            snd_pcm_info_alloca(&pcmInfo);
            snd_pcm_info_set_device(pcmInfo, static_cast<unsigned>(dev));
            snd_pcm_info_set_subdevice(pcmInfo, 0);
            snd_pcm_info_set_stream(pcmInfo, SND_PCM_STREAM_PLAYBACK);
            if (snd_ctl_pcm_info(ctl, pcmInfo) < 0) continue;
            AlsaTarget target;
            std::string address = "CARD=" + cardId + ",DEV=" + std::to_string(dev);
            target.pcmName = "plughw:" + address;
            target.directPcmName = "hw:" + address;
            target.displayName = cardName + ": " + snd_pcm_info_get_name(pcmInfo);
            target.maxChannels = 8;
            devices.push_back(MakeAlsaOutputDevice(std::move(target)));
        }
        snd_ctl_close(ctl);
    }
    return devices;
}

bool AlsaDefaultOpens() {
    static const bool opens = [] {
        SilenceAlsaErrors();
        snd_pcm_t* pcm = nullptr;
        if (snd_pcm_open(&pcm, "default", SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) < 0) {
            return false;
        }
        snd_pcm_close(pcm);
        return true;
    }();
    return opens;
}

MMRESULT CheckAlsaConfigText(const std::string& text) {
    SilenceAlsaErrors();
    snd_config_t* cfg = LoadConfig(text);
    if (!cfg) return MMSYSERR_INVALPARAM;
    snd_config_delete(cfg);
    return MMSYSERR_NOERROR;
}

}  // namespace mw::wave
