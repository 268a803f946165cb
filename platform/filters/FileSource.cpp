// The decoding file source: any file FFmpeg reads, decoded to PCM or float on one output pin,
// pushed downstream on its own streaming thread from Pause on; seekable; its file name is its
// persisted state.
#include <condition_variable>
#include <cstring>
#include <memory>
#include <thread>

#include "evcode.h"
#include "mwcom.h"
#include "mwstring.h"
#include "objbase.h"
#include "platform/ffmpeg/AudioFileReader.h"
#include "platform/filters/PlatformFilters.h"
#include "platform/filters/Seeking.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::filters {
namespace {

constexpr size_t kFramesPerBuffer = 8192;
constexpr LONG kBuffers = 4;

// The wave format of the decoder's output: the plain record for up to two channels of 8 or 16
// bits, the extensible one otherwise.
std::vector<BYTE> WaveFormatOf(const media::PcmFormat& pcm) {
    WAVEFORMATEXTENSIBLE w{};
    WAVEFORMATEX& f = w.Format;
    f.nChannels = static_cast<WORD>(pcm.Channels);
    f.nSamplesPerSec = pcm.Rate;
    f.wBitsPerSample = static_cast<WORD>(pcm.BitsPerSample());
    f.nBlockAlign = static_cast<WORD>(pcm.BytesPerFrame());
    f.nAvgBytesPerSec = pcm.Rate * pcm.BytesPerFrame();
    const bool plain = pcm.Channels <= 2 && !pcm.IsFloat() && pcm.BitsPerSample() <= 16;
    if (plain) {
        f.wFormatTag = WAVE_FORMAT_PCM;
        const auto* p = reinterpret_cast<const BYTE*>(&f);
        return std::vector<BYTE>(p, p + sizeof(WAVEFORMATEX));
    }
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.cbSize = 22;
    w.Samples.wValidBitsPerSample = f.wBitsPerSample;
    w.dwChannelMask = pcm.ChannelMask
                          ? pcm.ChannelMask
                          : (pcm.Channels == 1   ? SPEAKER_FRONT_CENTER
                             : pcm.Channels == 2 ? (SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT)
                                                 : (1u << pcm.Channels) - 1);
    w.SubFormat = pcm.IsFloat() ? MEDIASUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
    const auto* p = reinterpret_cast<const BYTE*>(&w);
    return std::vector<BYTE>(p, p + sizeof(WAVEFORMATEXTENSIBLE));
}

class FileSource;

class SourcePin final : public PlatformOutputPin {
public:
    SourcePin(FileSource* owner);
    HRESULT QueryInterface(REFIID iid, void** object) override;
    HRESULT CheckMediaType(const AM_MEDIA_TYPE& type) override;
    std::vector<graph::MediaType> MediaTypes() override;
    void DecideBufferSize(ALLOCATOR_PROPERTIES& props) override;

private:
    FileSource* FOwner;
};

class FileSource final : public PlatformFilter, public IFileSourceFilter, public IPersistStream {
public:
    FileSource()
        : PlatformFilter(CLSID_MwFileSource),
          FSeeking(static_cast<IBaseFilter*>(this),
                   {[this] { return Duration(); }, [this] { return Current(); },
                    [this](LONGLONG t) { return SeekTo(t); }}) {}
    ~FileSource() override { StopThread(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (!object) return E_POINTER;
        if (IsEqualIID(iid, IID_IFileSourceFilter))
            *object = static_cast<IFileSourceFilter*>(this);
        else if (IsEqualIID(iid, IID_IPersistStream))
            *object = static_cast<IPersistStream*>(this);
        else if (IsEqualIID(iid, IID_IMediaSeeking))
            *object = static_cast<IMediaSeeking*>(&FSeeking);
        else
            return PlatformFilter::QueryInterface(iid, object);
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return PlatformFilter::AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return PlatformFilter::Release(); }
    STDMETHODIMP GetClassID(CLSID* id) override { return PlatformFilter::GetClassID(id); }

    // IFileSourceFilter
    STDMETHODIMP Load(LPCOLESTR file, const AM_MEDIA_TYPE*) override {
        if (!file) return E_POINTER;
        std::lock_guard lock(FilterLock());
        if (FPin) return E_UNEXPECTED;  // one file per source
        auto reader = std::make_unique<media::AudioFileReader>();
        if (!reader->Open(Utf16ToUtf8(file), media::OutputChoice::Source)) {
            switch (reader->Error()) {
                case media::ReadError::NotFound:
                    return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
                case media::ReadError::CannotRead:
                    return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
                default:
                    return VFW_E_UNSUPPORTED_STREAM;
            }
        }
        FFile = file;
        FFormat = WaveFormatOf(reader->Format());
        FBytesPerFrame = reader->Format().BytesPerFrame();
        {
            std::lock_guard r(FReaderMutex);
            FReader = std::move(reader);
        }
        FPin = new SourcePin(this);
        AddPin(FPin);
        return S_OK;
    }
    STDMETHODIMP GetCurFile(LPOLESTR* file, AM_MEDIA_TYPE* type) override {
        if (!file) return E_POINTER;
        std::lock_guard lock(FilterLock());
        *file = nullptr;
        if (!FPin) return E_FAIL;
        *file = CoTaskMemDup(FFile);
        if (type) graph::CopyMediaType(type, MediaType().Get());
        return S_OK;
    }

    // IPersistStream: the file name.
    STDMETHODIMP IsDirty() override { return S_FALSE; }
    STDMETHODIMP Load(IStream* stream) override {
        if (!stream) return E_POINTER;
        uint32_t n = 0;
        ULONG got = 0;
        if (FAILED(stream->Read(&n, 4, &got)) || got != 4 || n > 32768) return E_FAIL;
        std::u16string name(n, u'\0');
        if (n && (FAILED(stream->Read(name.data(), n * 2, &got)) || got != n * 2)) return E_FAIL;
        return Load(name.c_str(), nullptr);
    }
    STDMETHODIMP Save(IStream* stream, BOOL) override {
        if (!stream) return E_POINTER;
        std::lock_guard lock(FilterLock());
        const uint32_t n = static_cast<uint32_t>(FFile.size());
        HRESULT hr = stream->Write(&n, 4, nullptr);
        if (SUCCEEDED(hr) && n) hr = stream->Write(FFile.data(), n * 2, nullptr);
        return hr;
    }
    STDMETHODIMP GetSizeMax(ULARGE_INTEGER* size) override {
        if (!size) return E_POINTER;
        size->QuadPart = 4 + 2 * FFile.size();
        return S_OK;
    }

    graph::MediaType MediaType() {
        const auto* wf = reinterpret_cast<const WAVEFORMATEX*>(FFormat.data());
        return graph::AudioMediaType(*wf);
    }
    size_t BytesPerBuffer() const { return kFramesPerBuffer * FBytesPerFrame; }

    HRESULT Receive(PlatformInputPin*, IMediaSample*) override { return E_UNEXPECTED; }

protected:
    HRESULT OnPause() override {
        if (State() == State_Stopped && FPin && FPin->IsConnected()) StartThread();
        return S_OK;
    }
    HRESULT OnStop() override {
        StopThread();
        return S_OK;
    }

private:
    LONGLONG Duration() {
        std::lock_guard lock(FReaderMutex);
        return FReader ? FReader->Duration() : 0;
    }
    LONGLONG Current() { return FCurrent.load(); }

    // Moves the reader; a running stream is flushed and goes on from there.
    HRESULT SeekTo(LONGLONG time) {
        bool streaming;
        {
            std::lock_guard lock(FThreadMutex);
            streaming = FThread.joinable() && !FStopping;
        }
        if (streaming) {
            // The flush releases the thread when it waits downstream; it ends the flush itself
            // once the reader has moved.
            FSeekTarget = time;
            FPin->DeliverBeginFlush();
            std::unique_lock lock(FThreadMutex);
            FSeekPending = true;
            FWake.notify_all();
            FWake.wait(lock, [&] { return !FSeekPending || FStopping; });
            return S_OK;
        }
        std::lock_guard lock(FReaderMutex);
        if (!FReader || !FReader->Seek(time)) return E_FAIL;
        FCurrent = time;
        FSegmentStart = time;
        return S_OK;
    }

    void StartThread() {
        std::lock_guard lock(FThreadMutex);
        FStopping = false;
        FThread = std::thread([this] { Stream(); });
    }
    void StopThread() {
        {
            std::lock_guard lock(FThreadMutex);
            FStopping = true;
            FWake.notify_all();
        }
        if (FThread.joinable()) FThread.join();
        FSeekPending = false;
    }

    // The streaming thread: a buffer, fill, stamp, deliver, until the end or Stop. A seek
    // request is served between two samples.
    void Stream() {
        FPin->DeliverNewSegment(0, Duration(), 1.0);
        bool ended = false;
        for (;;) {
            {
                std::unique_lock lock(FThreadMutex);
                if (FSeekPending) {
                    lock.unlock();
                    {
                        std::lock_guard r(FReaderMutex);
                        FReader->Seek(FSeekTarget);
                        FCurrent = FSeekTarget.load();
                        FSegmentStart = FSeekTarget.load();
                    }
                    FPin->DeliverEndFlush();
                    FPin->DeliverNewSegment(FSegmentStart, Duration(), 1.0);
                    ended = false;
                    lock.lock();
                    FSeekPending = false;
                    FWake.notify_all();
                }
                if (FStopping) return;
                if (ended) {
                    FWake.wait(lock, [&] { return FStopping || FSeekPending; });
                    continue;
                }
            }
            ComPtr<IMediaSample> sample;
            if (FAILED(FPin->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf()))) {
                if (FSeekPending) continue;
                return;  // decommitted: stopping
            }
            BYTE* data = nullptr;
            sample->GetPointer(&data);
            const size_t capacity = static_cast<size_t>(sample->GetSize()) / FBytesPerFrame;
            size_t frames;
            REFERENCE_TIME start, stop;
            const LONGLONG stopAt = FSeeking.Stop();
            {
                std::lock_guard r(FReaderMutex);
                start = FReader->PositionTime() - FSegmentStart;
                frames = FReader->Read(data, std::min(capacity, kFramesPerBuffer));
                stop = FReader->PositionTime() - FSegmentStart;
                FCurrent = FReader->PositionTime();
            }
            if (frames == 0 || (stopAt > 0 && FCurrent.load() - (stop - start) >= stopAt)) {
                sample = nullptr;
                FPin->DeliverEndOfStream();
                ended = true;
                continue;
            }
            sample->SetActualDataLength(static_cast<LONG>(frames * FBytesPerFrame));
            sample->SetTime(&start, &stop);
            sample->SetSyncPoint(TRUE);
            const HRESULT hr = FPin->Deliver(sample.Get());
            if (hr != S_OK && !FSeekPending) {
                // Downstream refused (stopping, flushing or an error): wait for a seek or stop.
                if (FAILED(hr) && State() != State_Stopped) NotifyEvent(EC_ERRORABORT, hr, 0);
                ended = true;
            }
        }
    }

    SourcePin* FPin = nullptr;
    std::u16string FFile;
    std::vector<BYTE> FFormat;
    size_t FBytesPerFrame = 1;
    std::mutex FReaderMutex;
    std::unique_ptr<media::AudioFileReader> FReader;
    std::atomic<LONGLONG> FCurrent{0};
    std::atomic<LONGLONG> FSegmentStart{0};
    SourceSeeking FSeeking;

    std::mutex FThreadMutex;
    std::condition_variable FWake;
    std::thread FThread;
    bool FStopping = false;
    std::atomic<bool> FSeekPending{false};
    std::atomic<LONGLONG> FSeekTarget{0};
};

SourcePin::SourcePin(FileSource* owner) : PlatformOutputPin(owner, u"Output"), FOwner(owner) {}

HRESULT SourcePin::QueryInterface(REFIID iid, void** object) {
    if (object && IsEqualIID(iid, IID_IMediaSeeking)) return FOwner->QueryInterface(iid, object);
    return PlatformOutputPin::QueryInterface(iid, object);
}

HRESULT SourcePin::CheckMediaType(const AM_MEDIA_TYPE& type) {
    return graph::MediaTypesEqual(*FOwner->MediaType(), type) ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
}

std::vector<graph::MediaType> SourcePin::MediaTypes() {
    return {FOwner->MediaType()};
}

void SourcePin::DecideBufferSize(ALLOCATOR_PROPERTIES& props) {
    props.cBuffers = std::max(props.cBuffers, kBuffers);
    props.cbBuffer = std::max<LONG>(props.cbBuffer, static_cast<LONG>(FOwner->BytesPerBuffer()));
}

}  // namespace

HRESULT CreateFileSource(IUnknown* outer, REFIID iid, void** object) {
    return CreateFilter<FileSource>(outer, iid, object);
}

}  // namespace mw::filters
