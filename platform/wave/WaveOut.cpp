// The waveOut functions. Each open handle is a WaveOutStream with one thread of its own, the
// device thread: it retires each header when its last frame has played and calls the client's
// callback with the messages, in order, outside every lock of ours. Headers are fed to the
// device's Sink by waveOutWrite itself (and by the device thread where the sink had no room),
// so a steady stream costs one wake-up of the device thread per header. Handles are numbers in
// a table, so a stale handle is refused, never dereferenced.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "mwstring.h"
#include "mwwave.h"
#include "platform/wave/WaveDevice.h"

namespace mw::wave {

namespace {

// The caller polls dwFlags while the device changes it.
void SetFlags(WAVEHDR* hdr, DWORD flags) {
    std::atomic_ref<DWORD>(hdr->dwFlags).store(flags);
}
DWORD GetFlags(WAVEHDR* hdr) {
    return std::atomic_ref<DWORD>(hdr->dwFlags).load();
}

class WaveOutStream : public std::enable_shared_from_this<WaveOutStream> {
public:
    WaveOutStream(HWAVEOUT handle, PcmFormat format, std::shared_ptr<OutputDevice> device,
                  std::unique_ptr<Sink> sink, LPWAVECALLBACK callback, DWORD_PTR instance)
        : handle_(handle),
          format_(std::move(format)),
          device_(std::move(device)),
          sink_(std::move(sink)),
          callback_(callback),
          instance_(instance) {}

    ~WaveOutStream() {
        if (playThread_.joinable()) playThread_.join();
    }

    // Starts the device thread; returns when WOM_OPEN has been delivered.
    void Start() {
        std::unique_lock lock(mutex_);
        Post(WOM_OPEN, 0);
        const uint64_t seq = posted_;
        // The thread keeps the stream alive while it runs, so that a close from the callback
        // itself can let it finish on its own.
        playThread_ = std::thread([self = shared_from_this()] { self->PlayLoop(); });
        delivered_cv_.wait(lock, [&] { return delivered_ >= seq; });
    }

    std::shared_ptr<OutputDevice> Device() const { return device_; }

    MMRESULT Prepare(WAVEHDR* hdr) {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        DWORD flags = GetFlags(hdr);
        if (flags & WHDR_INQUEUE) return WAVERR_STILLPLAYING;
        SetFlags(hdr, flags | WHDR_PREPARED);
        return MMSYSERR_NOERROR;
    }

    MMRESULT Unprepare(WAVEHDR* hdr) {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        DWORD flags = GetFlags(hdr);
        if (flags & WHDR_INQUEUE) return WAVERR_STILLPLAYING;
        SetFlags(hdr, flags & ~WHDR_PREPARED);
        return MMSYSERR_NOERROR;
    }

    MMRESULT Write(WAVEHDR* hdr) {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        DWORD flags = GetFlags(hdr);
        if (!(flags & WHDR_PREPARED)) return WAVERR_UNPREPARED;
        if (flags & WHDR_INQUEUE) return WAVERR_STILLPLAYING;
        if (!hdr->lpData && hdr->dwBufferLength != 0) return MMSYSERR_INVALPARAM;
        // A device that failed takes nothing more: its output is lost from there on.
        if (MMRESULT error = sink_->Error(); error != MMSYSERR_NOERROR) return error;
        if (queue_.empty()) base_ = sink_->Written();
        queue_.push_back(Split(hdr));
        SetFlags(hdr, (flags & ~WHDR_DONE) | WHDR_INQUEUE);
        if (!paused_) Feed();
        // The device thread sleeps until the head is done: only an earlier moment wakes it.
        if (waiting_ && NextWake() < wakeAt_) play_cv_.notify_one();
        return MMSYSERR_NOERROR;
    }

    MMRESULT Pause() {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        if (!paused_) {
            paused_ = true;
            sink_->Pause();
        }
        play_cv_.notify_one();
        return MMSYSERR_NOERROR;
    }

    MMRESULT Restart() {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        if (paused_) {
            paused_ = false;
            sink_->Resume();
        }
        play_cv_.notify_one();
        return MMSYSERR_NOERROR;
    }

    MMRESULT Reset() {
        std::unique_lock lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        sink_->Drop();
        carry_.clear();
        for (const Entry& entry : queue_)
            Retire(entry.hdr);
        queue_.clear();
        positionBase_ = sink_->Played();
        play_cv_.notify_one();
        const uint64_t seq = posted_;
        if (std::this_thread::get_id() != threadId_) {
            delivered_cv_.wait(lock, [&] { return delivered_ >= seq; });
        }
        return MMSYSERR_NOERROR;
    }

    MMRESULT Position(MMTIME* time) {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        const uint64_t frames = sink_->Played() - positionBase_;
        switch (time->wType) {
            case TIME_SAMPLES:
                time->u.sample = static_cast<DWORD>(frames);
                break;
            case TIME_MS:
                time->u.ms = static_cast<DWORD>(frames * 1000 / format_.rate);
                break;
            default:
                time->wType = TIME_BYTES;
                time->u.cb = static_cast<DWORD>(frames * format_.blockAlign);
                break;
        }
        return MMSYSERR_NOERROR;
    }

    MMRESULT Stats(OutputStats* stats) {
        std::lock_guard lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        stats->buffersPlayed = buffersPlayed_;
        stats->framesPlayed = sink_->Played();
        stats->underruns = sink_->Underruns();
        stats->error = sink_->Error();
        return MMSYSERR_NOERROR;
    }

    // Refused while headers are queued. Otherwise stops playing, closes the device and delivers
    // WOM_CLOSE; from the callback itself, WOM_CLOSE follows when the callback returns. The
    // handle is closed whatever the result; a device that failed (a file that could not be
    // written whole) answers its error.
    MMRESULT Close() {
        std::unique_lock lock(mutex_);
        if (closing_) return MMSYSERR_INVALHANDLE;
        if (!queue_.empty()) return WAVERR_STILLPLAYING;
        closing_ = true;
        play_cv_.notify_one();
        if (std::this_thread::get_id() == threadId_) {
            // From the callback: the device is closed now, on its own thread, and WOM_CLOSE is
            // delivered when the callback returns.
            playThread_.detach();
            CloseSink();
            return closeResult_;
        }
        lock.unlock();
        playThread_.join();
        return closeResult_;
    }

private:
    // A queued header: frames counts the lead frame (when there is one) and the whole frames
    // of data.
    struct Entry {
        WAVEHDR* hdr;
        std::vector<uint8_t> lead;  // a frame begun by the previous header, ended by this one
        const uint8_t* data;
        uint64_t frames;
    };

    // A header's bytes as frames. The device plays a byte stream: a frame split between two
    // headers plays whole with the second, and the bytes of a frame not yet complete wait in
    // carry_.
    Entry Split(WAVEHDR* hdr) {
        const size_t block = format_.blockAlign;
        const uint8_t* p = reinterpret_cast<const uint8_t*>(hdr->lpData);
        size_t length = hdr->dwBufferLength;
        Entry entry{hdr, {}, p, 0};
        if (!carry_.empty()) {
            const size_t take = std::min(block - carry_.size(), length);
            carry_.insert(carry_.end(), p, p + take);
            p += take;
            length -= take;
            if (carry_.size() == block) entry.lead = std::exchange(carry_, {});
        }
        entry.data = p;
        entry.frames = length / block + (entry.lead.empty() ? 0 : 1);
        if (const size_t rest = length % block) carry_.assign(p + length - rest, p + length);
        return entry;
    }
    struct Message {
        UINT msg;
        DWORD_PTR param1;
    };

    void Post(UINT msg, DWORD_PTR param1) {
        messages_.push_back({msg, param1});
        ++posted_;
        if (std::this_thread::get_id() != threadId_) play_cv_.notify_one();
    }

    // When the device thread has to look again: the head's last frame played, or the sink
    // has room. Needs a queue.
    Clock::time_point NextWake() {
        if (paused_) return Clock::time_point::max();
        return sink_->WakeFor(base_ + queue_.front().frames);
    }

    // Calls the callback with every queued message, in order, unlocked.
    void Deliver(std::unique_lock<std::mutex>& lock) {
        while (!messages_.empty()) {
            const Message m = messages_.front();
            messages_.pop_front();
            lock.unlock();
            if (callback_) callback_(handle_, m.msg, instance_, m.param1, 0);
            lock.lock();
            ++delivered_;
            delivered_cv_.notify_all();
        }
    }

    // The end of the device thread: the device's close (unless a close from the callback did it
    // already) and WOM_CLOSE.
    void Finish(std::unique_lock<std::mutex>& lock) {
        CloseSink();
        Post(WOM_CLOSE, 0);
        Deliver(lock);
    }

    // Under mutex_, on the device thread: the last frame written in part and the device's close.
    void CloseSink() {
        if (!sink_) return;
        if (!carry_.empty()) {
            // The last frame was written in part: it is completed with silence, not lost.
            carry_.resize(format_.blockAlign, 0);
            if (sink_->Avail() > 0) sink_->Write(carry_.data(), 1);
            sink_->EndOfData();
            carry_.clear();
        }
        closeResult_ = sink_->Close();
        sink_.reset();
    }

    void Retire(WAVEHDR* hdr) {
        SetFlags(hdr, (GetFlags(hdr) & ~WHDR_INQUEUE) | WHDR_DONE);
        Post(WOM_DONE, reinterpret_cast<DWORD_PTR>(hdr));
    }

    // Writes whatever the sink takes, from the first frame not yet written.
    void Feed() {
        uint64_t offset = sink_->Written() - base_;
        uint64_t start = 0;
        for (const Entry& entry : queue_) {
            const uint64_t end = start + entry.frames;
            const uint64_t leadFrames = entry.lead.empty() ? 0 : 1;
            while (offset < end) {
                const uint64_t avail = sink_->Avail();
                if (avail == 0) return;
                uint64_t done;
                if (offset - start < leadFrames) {
                    done = sink_->Write(entry.lead.data(), 1);
                } else {
                    const uint64_t n = std::min(avail, end - offset);
                    done = sink_->Write(
                        entry.data + (offset - start - leadFrames) * format_.blockAlign, n);
                }
                if (done == 0) return;
                offset += done;
            }
            start = end;
        }
        sink_->EndOfData();
    }

    // Retires the headers whose last frame has played, in queue order.
    void Complete() {
        const uint64_t played = sink_->Played();
        while (!queue_.empty()) {
            const Entry& front = queue_.front();
            const uint64_t end = base_ + front.frames;
            if (end > played) break;
            base_ = end;
            Retire(front.hdr);
            ++buffersPlayed_;
            queue_.pop_front();
        }
    }

    void PlayLoop() {
        pthread_setname_np(pthread_self(), "mw-waveout");
        std::unique_lock lock(mutex_);
        threadId_ = std::this_thread::get_id();
        for (;;) {
            Deliver(lock);
            if (closing_) break;
            if (!queue_.empty()) {
                if (!paused_) Feed();
                Complete();  // also while paused: what played before the pause is done
            }
            if (!messages_.empty()) continue;
            wakeAt_ = queue_.empty() ? Clock::time_point::max() : NextWake();
            waiting_ = true;
            if (wakeAt_ == Clock::time_point::max()) {
                play_cv_.wait(lock);
            } else {
                play_cv_.wait_until(lock, wakeAt_);
            }
            waiting_ = false;
        }
        Finish(lock);
    }

    const HWAVEOUT handle_;
    const PcmFormat format_;
    const std::shared_ptr<OutputDevice> device_;
    std::unique_ptr<Sink> sink_;
    const LPWAVECALLBACK callback_;
    const DWORD_PTR instance_;

    std::mutex mutex_;
    std::condition_variable play_cv_;  // wakes the device thread: a message, a change, a close
    std::condition_variable delivered_cv_;
    std::deque<Entry> queue_;
    std::vector<uint8_t> carry_;  // the bytes of a frame that the next header completes
    uint64_t base_ = 0;           // sink frame number of the first frame of queue_.front()
    uint64_t positionBase_ = 0;
    uint64_t buffersPlayed_ = 0;
    bool paused_ = false;
    bool closing_ = false;
    bool waiting_ = false;  // the device thread sleeps until wakeAt_
    Clock::time_point wakeAt_{};
    std::deque<Message> messages_;
    uint64_t posted_ = 0;
    uint64_t delivered_ = 0;
    MMRESULT closeResult_ = MMSYSERR_NOERROR;
    std::thread playThread_;
    std::thread::id threadId_;
};

// The open handles. Numbers are never reused within a process.
class HandleTable {
public:
    HWAVEOUT Reserve() {
        std::lock_guard lock(mutex_);
        return reinterpret_cast<HWAVEOUT>(static_cast<uintptr_t>(next_++));
    }
    void Add(HWAVEOUT h, std::shared_ptr<WaveOutStream> stream) {
        std::lock_guard lock(mutex_);
        streams_[h] = std::move(stream);
    }
    std::shared_ptr<WaveOutStream> Find(HWAVEOUT h) {
        std::lock_guard lock(mutex_);
        auto it = streams_.find(h);
        return it == streams_.end() ? nullptr : it->second;
    }
    void Remove(HWAVEOUT h) {
        std::shared_ptr<WaveOutStream> stream;
        std::lock_guard lock(mutex_);
        auto it = streams_.find(h);
        if (it == streams_.end()) return;
        stream = std::move(it->second);
        streams_.erase(it);
    }

private:
    std::mutex mutex_;
    uintptr_t next_ = 0x1000;
    std::map<HWAVEOUT, std::shared_ptr<WaveOutStream>> streams_;
};

HandleTable& Handles() {
    static HandleTable* table = new HandleTable;  // open handles may outlive main
    return *table;
}

bool IsMapper(UINT_PTR id) {
    return id == WAVE_MAPPER || id == static_cast<UINT_PTR>(-1);
}

const char* ErrorText(MMRESULT result) {
    switch (result) {
        case MMSYSERR_NOERROR:
            return "The command was carried out.";
        case MMSYSERR_ERROR:
            return "An undetermined error occurred.";
        case MMSYSERR_BADDEVICEID:
            return "The device number is out of range.";
        case MMSYSERR_NOTENABLED:
            return "The device cannot be used now.";
        case MMSYSERR_ALLOCATED:
            return "The device is in use by another program.";
        case MMSYSERR_INVALHANDLE:
            return "The device handle is not valid.";
        case MMSYSERR_NODRIVER:
            return "There is no driver for the device.";
        case MMSYSERR_NOMEM:
            return "Out of memory.";
        case MMSYSERR_NOTSUPPORTED:
            return "The function is not supported.";
        case MMSYSERR_BADERRNUM:
            return "The error number is not known.";
        case MMSYSERR_INVALFLAG:
            return "A flag is not valid.";
        case MMSYSERR_INVALPARAM:
            return "A parameter is not valid.";
        case WAVERR_BADFORMAT:
            return "The device cannot play this wave format.";
        case WAVERR_STILLPLAYING:
            return "The buffer is still playing.";
        case WAVERR_UNPREPARED:
            return "The buffer has not been prepared.";
        case WAVERR_SYNC:
            return "The device is synchronous.";
        default:
            return nullptr;
    }
}

template <typename Fn>
MMRESULT WithStream(HWAVEOUT hwo, Fn fn) {
    std::shared_ptr<WaveOutStream> stream = Handles().Find(hwo);
    if (!stream) return MMSYSERR_INVALHANDLE;
    return fn(*stream);
}

MMRESULT CheckHeader(LPWAVEHDR pwh, UINT cbwh) {
    return (pwh && cbwh >= sizeof(WAVEHDR)) ? MMSYSERR_NOERROR : MMSYSERR_INVALPARAM;
}

}  // namespace

MMRESULT GetOutputStats(HWAVEOUT hwo, OutputStats* stats) {
    if (!stats) return MMSYSERR_INVALPARAM;
    return WithStream(hwo, [&](WaveOutStream& s) { return s.Stats(stats); });
}

}  // namespace mw::wave

using mw::wave::WaveOutStream;

UINT WINAPI waveOutGetNumDevs(void) {
    return mw::wave::DeviceCount();
}

MMRESULT WINAPI waveOutGetDevCapsW(UINT_PTR uDeviceID, LPWAVEOUTCAPSW pwoc, UINT cbwoc) {
    if (!pwoc) return MMSYSERR_INVALPARAM;
    std::shared_ptr<mw::wave::OutputDevice> device;
    if (mw::wave::IsMapper(uDeviceID)) {
        device = mw::wave::DefaultDevice();
    } else if (uDeviceID < mw::wave::DeviceCount()) {
        device = mw::wave::DeviceAt(static_cast<UINT>(uDeviceID));
    } else if (auto stream = mw::wave::Handles().Find(reinterpret_cast<HWAVEOUT>(uDeviceID))) {
        device = stream->Device();
    }
    if (!device) return MMSYSERR_BADDEVICEID;
    WAVEOUTCAPSW caps{};
    caps.wMid = 0xFFFF;  // no maker id
    caps.wPid = 0xFFFF;
    caps.vDriverVersion = 0x0100;
    // At most 31 characters, never cutting a surrogate pair in two.
    std::u16string name = mw::Utf8ToUtf16(device->Name());
    size_t n = std::min<size_t>(name.size(), MAXPNAMELEN - 1);
    if (n > 0 && n < name.size() && name[n - 1] >= 0xD800 && name[n - 1] < 0xDC00) --n;
    std::copy_n(name.begin(), n, caps.szPname);
    caps.dwFormats = 0x000FFFFF;  // every standard format up to 96 kHz stereo 16-bit
    caps.wChannels = device->MaxChannels();
    caps.dwSupport = device->Support();
    std::memcpy(pwoc, &caps, std::min<size_t>(cbwoc, sizeof caps));
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI waveOutGetDevCapsA(UINT_PTR uDeviceID, LPWAVEOUTCAPSA pwoc, UINT cbwoc) {
    if (!pwoc) return MMSYSERR_INVALPARAM;
    WAVEOUTCAPSW wide;
    MMRESULT result = waveOutGetDevCapsW(uDeviceID, &wide, sizeof wide);
    if (result != MMSYSERR_NOERROR) return result;
    WAVEOUTCAPSA caps{};
    caps.wMid = wide.wMid;
    caps.wPid = wide.wPid;
    caps.vDriverVersion = wide.vDriverVersion;
    for (size_t i = 0; i < MAXPNAMELEN; ++i)
        caps.szPname[i] = static_cast<CHAR>(wide.szPname[i]);
    caps.dwFormats = wide.dwFormats;
    caps.wChannels = wide.wChannels;
    caps.dwSupport = wide.dwSupport;
    std::memcpy(pwoc, &caps, std::min<size_t>(cbwoc, sizeof caps));
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI waveOutOpen(LPHWAVEOUT phwo, UINT uDeviceID, LPCWAVEFORMATEX pwfx,
                            DWORD_PTR dwCallback, DWORD_PTR dwInstance, DWORD fdwOpen) {
    constexpr DWORD kKnownFlags = CALLBACK_TYPEMASK | WAVE_FORMAT_QUERY | WAVE_ALLOWSYNC |
                                  WAVE_MAPPED | WAVE_FORMAT_DIRECT |
                                  WAVE_MAPPED_DEFAULT_COMMUNICATION_DEVICE;
    if (fdwOpen & ~kKnownFlags) return MMSYSERR_INVALFLAG;
    const DWORD callbackType = fdwOpen & CALLBACK_TYPEMASK;
    if (callbackType != CALLBACK_NULL && callbackType != CALLBACK_FUNCTION) {
        return MMSYSERR_NOTSUPPORTED;
    }
    const bool query = fdwOpen & WAVE_FORMAT_QUERY;
    if (!query && !phwo) return MMSYSERR_INVALPARAM;

    std::shared_ptr<mw::wave::OutputDevice> device =
        mw::wave::IsMapper(uDeviceID) ? mw::wave::DefaultDevice() : mw::wave::DeviceAt(uDeviceID);
    if (!device) return MMSYSERR_BADDEVICEID;
    mw::wave::PcmFormat format;
    if (MMRESULT result = mw::wave::ParseFormat(pwfx, &format); result != MMSYSERR_NOERROR) {
        return result;
    }
    const bool allowConversion = (fdwOpen & WAVE_MAPPED) || !(fdwOpen & WAVE_FORMAT_DIRECT);
    if (query) return device->CheckFormat(format, allowConversion);

    std::unique_ptr<mw::wave::Sink> sink;
    if (MMRESULT result = device->Open(format, allowConversion, &sink);
        result != MMSYSERR_NOERROR) {
        return result;
    }
    LPWAVECALLBACK callback =
        callbackType == CALLBACK_FUNCTION ? reinterpret_cast<LPWAVECALLBACK>(dwCallback) : nullptr;
    HWAVEOUT handle = mw::wave::Handles().Reserve();
    auto stream = std::make_shared<WaveOutStream>(handle, std::move(format), std::move(device),
                                                  std::move(sink), callback, dwInstance);
    mw::wave::Handles().Add(handle, stream);
    *phwo = handle;
    stream->Start();
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI waveOutClose(HWAVEOUT hwo) {
    std::shared_ptr<WaveOutStream> stream = mw::wave::Handles().Find(hwo);
    if (!stream) return MMSYSERR_INVALHANDLE;
    MMRESULT result = stream->Close();
    // Closed whatever the result, unless headers were still queued.
    if (result != WAVERR_STILLPLAYING) mw::wave::Handles().Remove(hwo);
    return result;
}

MMRESULT WINAPI waveOutPrepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh) {
    if (MMRESULT r = mw::wave::CheckHeader(pwh, cbwh); r != MMSYSERR_NOERROR) return r;
    return mw::wave::WithStream(hwo, [&](WaveOutStream& s) { return s.Prepare(pwh); });
}

MMRESULT WINAPI waveOutUnprepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh) {
    if (MMRESULT r = mw::wave::CheckHeader(pwh, cbwh); r != MMSYSERR_NOERROR) return r;
    return mw::wave::WithStream(hwo, [&](WaveOutStream& s) { return s.Unprepare(pwh); });
}

MMRESULT WINAPI waveOutWrite(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh) {
    if (MMRESULT r = mw::wave::CheckHeader(pwh, cbwh); r != MMSYSERR_NOERROR) return r;
    return mw::wave::WithStream(hwo, [&](WaveOutStream& s) { return s.Write(pwh); });
}

MMRESULT WINAPI waveOutPause(HWAVEOUT hwo) {
    return mw::wave::WithStream(hwo, [](WaveOutStream& s) { return s.Pause(); });
}

MMRESULT WINAPI waveOutRestart(HWAVEOUT hwo) {
    return mw::wave::WithStream(hwo, [](WaveOutStream& s) { return s.Restart(); });
}

MMRESULT WINAPI waveOutReset(HWAVEOUT hwo) {
    return mw::wave::WithStream(hwo, [](WaveOutStream& s) { return s.Reset(); });
}

MMRESULT WINAPI waveOutGetPosition(HWAVEOUT hwo, LPMMTIME pmmt, UINT cbmmt) {
    if (!pmmt || cbmmt < sizeof(MMTIME)) return MMSYSERR_INVALPARAM;
    return mw::wave::WithStream(hwo, [&](WaveOutStream& s) { return s.Position(pmmt); });
}

MMRESULT WINAPI waveOutGetErrorTextA(MMRESULT mmrError, LPSTR pszText, UINT cchText) {
    if (!pszText || cchText == 0) return MMSYSERR_INVALPARAM;
    const char* text = mw::wave::ErrorText(mmrError);
    if (!text) return MMSYSERR_BADERRNUM;
    std::strncpy(pszText, text, cchText - 1);
    pszText[cchText - 1] = '\0';
    return MMSYSERR_NOERROR;
}

MMRESULT WINAPI waveOutGetErrorTextW(MMRESULT mmrError, LPWSTR pszText, UINT cchText) {
    if (!pszText || cchText == 0) return MMSYSERR_INVALPARAM;
    const char* text = mw::wave::ErrorText(mmrError);
    if (!text) return MMSYSERR_BADERRNUM;
    UINT i = 0;
    for (; text[i] && i + 1 < cchText; ++i)
        pszText[i] = static_cast<WCHAR>(text[i]);
    pszText[i] = u'\0';
    return MMSYSERR_NOERROR;
}

DWORD WINAPI timeGetTime(void) {
    // steady_clock is the system's monotonic clock; the count wraps at 2^32 ms as it should.
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}
