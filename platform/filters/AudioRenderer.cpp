// The audio renderer of a wave output device: plays PCM and float samples through platform/wave,
// holding each sample until the device has taken its copy (so a one-buffer sender is paced by the
// device), with IBasicAudio applied to the samples and a clock that follows the audio played.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>

#include "control.h"
#include "evcode.h"
#include "mmsystem.h"
#include "platform/com/ComObject.h"
#include "platform/filters/AudioGain.h"
#include "platform/filters/Renderers.h"
#include "platform/graph/ReferenceClock.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {
namespace {

// Audio written ahead of the device before Receive waits: at least two buffers and this long.
constexpr REFERENCE_TIME kQueueAhead = 100 * 10000;

class AudioRenderer;

class AudioInputPin final : public PlatformInputPin {
public:
    using PlatformInputPin::PlatformInputPin;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override {
        return IsPcmAudio(type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
    }
};

// The clock of the renderer: the steady clock, pulled gently toward the audio actually played
// while the device plays.
class AudioClock final : public graph::ReferenceClockBase {
public:
    AudioClock(IUnknown* outer, AudioRenderer* owner) : ReferenceClockBase(outer), FOwner(owner) {}
    ~AudioClock() override { Shutdown(); }

protected:
    REFERENCE_TIME ReadTime() override;

private:
    AudioRenderer* FOwner;
};

struct Buffer {
    WAVEHDR header{};
    std::vector<char> data;
};

class AudioRenderer final : public RendererFilter, public IBasicAudio {
public:
    AudioRenderer(UINT device, const CLSID& clsid) : RendererFilter(clsid), FDevice(device) {
        SetInput(new AudioInputPin(this, u"Audio Input pin (rendered)"));
        FClock = std::make_unique<AudioClock>(static_cast<IBaseFilter*>(this), this);
    }
    ~AudioRenderer() override {
        FClock.reset();
        CloseDevice();
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (object && IsEqualIID(iid, IID_IReferenceClock)) {
            *object = static_cast<IReferenceClock*>(FClock.get());
            AddRef();
            return S_OK;
        }
        if (object && (IsEqualIID(iid, IID_IBasicAudio) || IsEqualIID(iid, IID_IDispatch))) {
            *object = static_cast<IBasicAudio*>(this);
            AddRef();
            return S_OK;
        }
        return RendererFilter::QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return RendererFilter::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return RendererFilter::Release(); }

    // Our own clock is kept without a reference: it is part of this object.
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override {
        if (clock == FClock.get()) {
            RendererFilter::SetSyncSource(nullptr);
            FOwnClock = true;
            return S_OK;
        }
        FOwnClock = false;
        return RendererFilter::SetSyncSource(clock);
    }
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override {
        if (!clock) return E_POINTER;
        if (FOwnClock) {
            *clock = FClock.get();
            AddRef();
            return S_OK;
        }
        return RendererFilter::GetSyncSource(clock);
    }

    // IDispatch: no type information.
    STDMETHODIMP GetTypeInfoCount(UINT* n) override {
        if (!n) return E_POINTER;
        *n = 0;
        return S_OK;
    }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override {
        return E_NOTIMPL;
    }

    // IBasicAudio: volume in 1/100 dB (-10000 silent .. 0), balance -10000 (left) .. 10000.
    STDMETHODIMP put_Volume(LONG volume) override {
        if (volume < -10000 || volume > 0) return E_INVALIDARG;
        std::lock_guard lock(FMutex);
        FVolume = volume;
        return S_OK;
    }
    STDMETHODIMP get_Volume(LONG* volume) override {
        if (!volume) return E_POINTER;
        std::lock_guard lock(FMutex);
        *volume = FVolume;
        return S_OK;
    }
    STDMETHODIMP put_Balance(LONG balance) override {
        if (balance < -10000 || balance > 10000) return E_INVALIDARG;
        std::lock_guard lock(FMutex);
        FBalance = balance;
        return S_OK;
    }
    STDMETHODIMP get_Balance(LONG* balance) override {
        if (!balance) return E_POINTER;
        std::lock_guard lock(FMutex);
        *balance = FBalance;
        return S_OK;
    }

    bool ReceiveCanBlock() override { return true; }

    HRESULT Receive(PlatformInputPin* pin, IMediaSample* sample) override {
        BYTE* data = nullptr;
        if (FAILED(sample->GetPointer(&data))) return E_POINTER;
        const LONG length = sample->GetActualDataLength();
        std::unique_lock lock(FMutex);
        if (!FWave) return VFW_E_WRONG_STATE;
        if (FLost) return VFW_E_NO_AUDIO_HARDWARE;
        const size_t ahead = std::max<size_t>(
            static_cast<size_t>(FFormat.nAvgBytesPerSec * kQueueAhead / 10000000), 1);
        FRoom.wait(lock, [&] {
            return FClosing || pin->Flushing() || State() == State_Stopped || FQueued.size() < 2 ||
                   FQueuedBytes < ahead;
        });
        if (FClosing || State() == State_Stopped) return VFW_E_WRONG_STATE;
        if (pin->Flushing()) return S_FALSE;
        if (length <= 0) return S_OK;
        std::unique_ptr<Buffer> buffer;
        if (!FFree.empty()) {
            buffer = std::move(FFree.back());
            FFree.pop_back();
        } else {
            buffer = std::make_unique<Buffer>();
        }
        buffer->data.assign(reinterpret_cast<char*>(data), reinterpret_cast<char*>(data) + length);
        ApplyGain(buffer->data);
        buffer->header = WAVEHDR{};
        buffer->header.lpData = buffer->data.data();
        buffer->header.dwBufferLength = static_cast<DWORD>(length);
        MMRESULT mr = waveOutPrepareHeader(FWave, &buffer->header, sizeof(WAVEHDR));
        if (mr == MMSYSERR_NOERROR) mr = waveOutWrite(FWave, &buffer->header, sizeof(WAVEHDR));
        if (mr != MMSYSERR_NOERROR) {
            FLost = true;
            lock.unlock();
            NotifyEvent(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)),
                        0);
            return VFW_E_NO_AUDIO_HARDWARE;
        }
        FQueuedBytes += static_cast<size_t>(length);
        FQueued.push_back(std::move(buffer));
        FDrained = false;
        return S_OK;
    }

    HRESULT BeginFlush(PlatformInputPin* pin) override {
        {
            std::lock_guard lock(FMutex);
            FRoom.notify_all();
        }
        ResetDevice();
        return RendererFilter::BeginFlush(pin);
    }

    REFERENCE_TIME ClockTime() {
        std::lock_guard lock(FClockMutex);
        const REFERENCE_TIME sys = graph::SteadyNow();
        REFERENCE_TIME t = FLastTime + (sys - FLastSys);
        if (FLastSys == 0) t = sys;
        HWAVEOUT wave = FPlaying.load() ? FWaveForClock.load() : nullptr;
        MMTIME mm{};
        mm.wType = TIME_SAMPLES;
        if (wave && waveOutGetPosition(wave, &mm, sizeof mm) == MMSYSERR_NOERROR &&
            mm.wType == TIME_SAMPLES && FRate) {
            const REFERENCE_TIME audio =
                static_cast<REFERENCE_TIME>(mm.u.sample) * 10000000 / FRate.load();
            if (!FFollowing || audio < FLastAudio) {
                FOrigin = t - audio;
                FFollowing = true;
            } else {
                // Slew toward the audio time; snap when far off (a stall or a jump).
                const REFERENCE_TIME off = FOrigin + audio - t;
                if (std::llabs(off) > 200 * 10000)
                    FOrigin = t - audio;
                else
                    t += off / 8;
            }
            FLastAudio = audio;
        } else {
            FFollowing = false;
        }
        FLastTime = t;
        FLastSys = sys;
        return t;
    }

protected:
    bool Drained() override { return FDrained.load(); }

    HRESULT OnPause() override {
        if (State() == State_Stopped) {
            const HRESULT hr = OpenDevice();
            if (FAILED(hr)) return hr;
        }
        FPlaying = false;
        if (FWave) waveOutPause(FWave);
        return S_OK;
    }

    HRESULT OnRun(REFERENCE_TIME start) override {
        if (FWave) waveOutRestart(FWave);
        FPlaying = true;
        return RendererFilter::OnRun(start);
    }

    HRESULT OnStop() override {
        FPlaying = false;
        CloseDevice();
        return RendererFilter::OnStop();
    }

private:
    HRESULT OpenDevice() {
        const graph::MediaType type = Input()->ConnectedType();
        if (!Input()->IsConnected() || !type.Wave()) return VFW_E_NOT_CONNECTED;
        const WAVEFORMATEX* wf = type.Wave();
        std::vector<BYTE> format(reinterpret_cast<const BYTE*>(wf),
                                 reinterpret_cast<const BYTE*>(wf) + sizeof(WAVEFORMATEX) +
                                     (wf->wFormatTag == WAVE_FORMAT_PCM ? 0 : wf->cbSize));
        HWAVEOUT wave = nullptr;
        const MMRESULT mr =
            waveOutOpen(&wave, FDevice, reinterpret_cast<const WAVEFORMATEX*>(format.data()),
                        reinterpret_cast<DWORD_PTR>(&WaveCallback),
                        reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION);
        if (mr != MMSYSERR_NOERROR) return VFW_E_NO_AUDIO_HARDWARE;
        std::lock_guard lock(FMutex);
        FWave = wave;
        FWaveForClock = wave;
        FFormat = *wf;
        FFormatBytes = std::move(format);
        FRate = wf->nSamplesPerSec;
        FClosing = false;
        FLost = false;
        FDrained = true;
        return S_OK;
    }

    // Drops what is queued on the device; the done messages come back before this returns.
    void ResetDevice() {
        HWAVEOUT wave;
        {
            std::lock_guard lock(FMutex);
            wave = FWave;
        }
        if (wave) waveOutReset(wave);
        std::lock_guard clock(FClockMutex);
        FFollowing = false;
    }

    void CloseDevice() {
        HWAVEOUT wave;
        {
            std::lock_guard lock(FMutex);
            FClosing = true;
            wave = FWave;
            FRoom.notify_all();
        }
        if (!wave) return;
        FWaveForClock = nullptr;
        waveOutReset(wave);
        {
            std::lock_guard lock(FMutex);
            for (auto& b : FQueued)
                waveOutUnprepareHeader(wave, &b->header, sizeof(WAVEHDR));
            FQueued.clear();
            FQueuedBytes = 0;
        }
        waveOutClose(wave);
        std::lock_guard lock(FMutex);
        FWave = nullptr;
        FDrained = true;
    }

    static void CALLBACK WaveCallback(HWAVEOUT wave, UINT message, DWORD_PTR instance,
                                      DWORD_PTR param1, DWORD_PTR) {
        if (message != WOM_DONE) return;
        auto* self = reinterpret_cast<AudioRenderer*>(instance);
        auto* header = reinterpret_cast<WAVEHDR*>(param1);
        bool drained = false;
        {
            std::lock_guard lock(self->FMutex);
            auto it = std::find_if(self->FQueued.begin(), self->FQueued.end(),
                                   [&](const auto& b) { return &b->header == header; });
            if (it == self->FQueued.end()) return;
            waveOutUnprepareHeader(wave, header, sizeof(WAVEHDR));
            self->FQueuedBytes -= header->dwBufferLength;
            self->FFree.push_back(std::move(*it));
            self->FQueued.erase(it);
            drained = self->FQueued.empty();
            self->FDrained = drained;
            self->FRoom.notify_all();
        }
        if (drained && !self->FClosing) self->CheckComplete(self->State() == State_Running);
    }

    void ApplyGain(std::vector<char>& data) {
        ApplyVolume(reinterpret_cast<BYTE*>(data.data()), data.size(), FFormatBytes, FVolume,
                    FBalance);
    }

    UINT FDevice;
    std::unique_ptr<AudioClock> FClock;
    std::atomic<bool> FOwnClock{false};

    std::mutex FMutex;  // streaming state below; never held while opening, resetting or closing
    std::condition_variable FRoom;
    HWAVEOUT FWave = nullptr;
    WAVEFORMATEX FFormat{};
    std::vector<BYTE> FFormatBytes;
    std::deque<std::unique_ptr<Buffer>> FQueued;
    std::vector<std::unique_ptr<Buffer>> FFree;
    size_t FQueuedBytes = 0;
    bool FClosing = false;
    bool FLost = false;
    std::atomic<bool> FDrained{true};
    LONG FVolume = 0;
    LONG FBalance = 0;

    std::mutex FClockMutex;
    std::atomic<bool> FPlaying{false};
    std::atomic<HWAVEOUT> FWaveForClock{nullptr};
    std::atomic<DWORD> FRate{0};
    bool FFollowing = false;
    REFERENCE_TIME FOrigin = 0;
    REFERENCE_TIME FLastAudio = 0;
    REFERENCE_TIME FLastTime = 0;
    REFERENCE_TIME FLastSys = 0;
};

REFERENCE_TIME AudioClock::ReadTime() {
    return FOwner->ClockTime();
}

}  // namespace

HRESULT CreateAudioRenderer(UINT device, const CLSID& clsid, REFIID iid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    auto* filter = new (std::nothrow) AudioRenderer(device, clsid);
    if (!filter) return E_OUTOFMEMORY;
    const HRESULT hr = filter->QueryInterface(iid, object);
    filter->Release();
    return hr;
}

}  // namespace mw::filters
