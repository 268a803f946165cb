// Source filters and their stream pins: SendData copies the caller's data into samples of the
// negotiated allocator, stamps them and delivers them downstream on the caller's thread.
#include <algorithm>
#include <cstring>

#include "media_base/DSBaseClass.h"
#include "winbase.h"

using mw::DSAssert;
using mw::DSLockGuard;

namespace {

// Keeps a filter lock for a scope through FilterLock/FilterUnlock.
class FilterLockGuard {
public:
    explicit FilterLockGuard(TDSBaseFilter* filter) : FFilter(filter) { FFilter->FilterLock(); }
    ~FilterLockGuard() { FFilter->FilterUnlock(); }

private:
    TDSBaseFilter* FFilter;
};

// How a stream pin stamps its samples.
enum class Stamping { ByChunk, BySize, None };

// The one delivery loop of the three stream pins. Requests a sample, copies what fits, stamps
// and delivers it, until the data is used up. maxRequests 0 retries without limit.
bool SendChunks(TDSSourceStreamPin* pin, const void* buffer, int size, REFERENCE_TIME start,
                REFERENCE_TIME stop, bool syncPoint, Stamping stamping, int maxRequests) {
    // Registers as a sender before it looks at the connection: a disconnect either sees this send
    // and waits for it, or the send sees the connection gone.
    const TDSBaseOutputPin::SendScope scope(pin);
    if (!scope) return false;
    int64_t done = 0;
    int requests = 0;
    int remaining = size;
    const BYTE* position = static_cast<const BYTE*>(buffer);
    REFERENCE_TIME current = start;
    HRESULT delivered = E_FAIL;
    do {
        ComPtr<IMediaSample> sample;
        for (;;) {
            // Counted over the whole call, successes included: one call never makes more
            // requests than the limit.
            if (maxRequests != 0 && requests >= maxRequests) return false;
            if (pin->Breaking()) return false;  // a disconnect waits for this send
            const HRESULT hr =
                pin->GetDeliveryBuffer(sample.ReleaseAndGetAddressOf(), nullptr, nullptr, 0);
            ++requests;
            if (SUCCEEDED(hr) && sample) break;
            sample = nullptr;
            Sleep(1);
        }
        BYTE* target = nullptr;
        sample->GetPointer(&target);
        const int chunk = std::min<int>(sample->GetSize(), remaining);
        remaining -= chunk;
        done += chunk;
        if (chunk > 0) std::memcpy(target, position, static_cast<size_t>(chunk));
        position += chunk;
        sample->SetActualDataLength(chunk);
        if (stamping != Stamping::None && (start != 0 || stop != 0)) {
            int64_t divisor = stamping == Stamping::ByChunk ? chunk : size;
            if (divisor == 0) divisor = 1;
            REFERENCE_TIME end = current + ((stop - current) * done) / divisor;
            sample->SetTime(&current, &end);
            current = end;
            sample->SetSyncPoint(syncPoint ? -1 : 0);
        }
        delivered = pin->Deliver(sample.Get());
    } while (remaining > 0);
    return SUCCEEDED(delivered);
}

}  // namespace

// ---- TDSBaseSourceFilter -------------------------------------------------------------------

TDSBaseSourceFilter::TDSBaseSourceFilter(const std::string& name, IUnknown* owner,
                                         const CLSID& classId)
    : TDSBaseFilter(name, owner, classId) {}

TDSBaseSourceFilter::~TDSBaseSourceFilter() {
    std::lock_guard<std::recursive_mutex> guard(FPinsLock);
    // Each pin takes itself out of the list as its destructor begins.
    while (!FPins.empty())
        delete FPins.back();
}

HRESULT TDSBaseSourceFilter::AddPin(TDSSourceStreamPin* pin) {
    std::lock_guard<std::recursive_mutex> guard(FPinsLock);
    if (std::find(FPins.begin(), FPins.end(), pin) == FPins.end()) FPins.push_back(pin);
    return S_OK;
}

HRESULT TDSBaseSourceFilter::RemovePin(TDSSourceStreamPin* pin) {
    std::lock_guard<std::recursive_mutex> guard(FPinsLock);
    FPins.erase(std::remove(FPins.begin(), FPins.end(), pin), FPins.end());
    return S_OK;
}

int TDSBaseSourceFilter::GetPinCount() {
    std::lock_guard<std::recursive_mutex> guard(FPinsLock);
    return static_cast<int>(FPins.size());
}

TDSBasePin* TDSBaseSourceFilter::GetPin(int index) {
    std::lock_guard<std::recursive_mutex> guard(FPinsLock);
    if (index < 0 || index >= static_cast<int>(FPins.size())) return nullptr;
    return FPins[static_cast<size_t>(index)];
}

STDMETHODIMP TDSBaseSourceFilter::FindPin(LPCWSTR id, IPin** pin) {
    return mw::DSGuarded([&]() -> HRESULT {
        if (!pin) return E_POINTER;
        *pin = nullptr;
        if (!id) return E_POINTER;
        const std::u16string wanted(id);
        std::lock_guard<std::recursive_mutex> guard(FPinsLock);
        for (TDSSourceStreamPin* candidate : FPins) {
            DSAssert(candidate != nullptr);
            if (candidate->PinName() == wanted) {
                *pin = candidate->AsPin();
                (*pin)->AddRef();
                return S_OK;
            }
        }
        return VFW_E_NOT_FOUND;
    });
}

// ---- TDSSourceStreamPin --------------------------------------------------------------------

TDSSourceStreamPin::TDSSourceStreamPin(const std::string& objectName, TDSBaseSourceFilter* filter,
                                       ICriticalSection* lock, HRESULT* result,
                                       const std::u16string& pinName)
    : TDSBaseOutputPin(objectName, filter, lock, result, pinName), FSourceFilter(filter) {}

HRESULT TDSSourceStreamPin::GetMediaType(int position, AM_MEDIA_TYPE* type) {
    FilterLockGuard guard(FFilter);
    return IntGetMediaType(position, type);
}

HRESULT TDSSourceStreamPin::DecideBufferSize(IMemAllocator* allocator,
                                             ALLOCATOR_PROPERTIES* properties) {
    FilterLockGuard guard(FFilter);
    return IntDecideBufferSize(allocator, properties);
}

HRESULT TDSSourceStreamPin::SetOneBuffer(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties,
                                         LONG cbBuffer) {
    properties->cBuffers = 1;
    properties->cbBuffer = cbBuffer;
    ALLOCATOR_PROPERTIES actual{};
    const HRESULT hr = allocator->SetProperties(properties, &actual);
    if (FAILED(hr)) return hr;
    return actual.cbBuffer < properties->cbBuffer ? E_FAIL : S_OK;
}

// ---- TDSAudioSourceStreamPin ---------------------------------------------------------------

TDSAudioSourceStreamPin::TDSAudioSourceStreamPin(const std::string& objectName,
                                                 TDSBaseSourceFilter* filter,
                                                 ICriticalSection* lock, HRESULT* result,
                                                 const std::u16string& pinName)
    : TDSSourceStreamPin(objectName, filter, lock, result, pinName) {
    FSourceFilter->AddPin(this);
}

TDSAudioSourceStreamPin::~TDSAudioSourceStreamPin() {
    FSourceFilter->RemovePin(this);
}

void TDSAudioSourceStreamPin::SetFormat(const TQAWaveFormatExtensible& format, bool basic,
                                        int bufferMilliseconds) {
    FFormat = format;
    FBufferMilliseconds = bufferMilliseconds;
    FBasicFormat = basic;
    if (QAIsStandardFormat(format) || basic) {
        FFormat.wFormatTag = WAVE_FORMAT_PCM;
        FFormat.cbSize = 0;
    }
}

HRESULT TDSAudioSourceStreamPin::CheckMediaType(const AM_MEDIA_TYPE* type) {
    return FBasicFormat ? CheckMediaTypeBasic(type) : CheckMediaTypeExtended(type);
}

HRESULT TDSAudioSourceStreamPin::CheckMediaTypeBasic(const AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    if (IsEqualGUID(type->majortype, MEDIATYPE_Audio) &&
        IsEqualGUID(type->subtype, MEDIASUBTYPE_PCM) && type->pbFormat != nullptr)
        return S_OK;
    return E_INVALIDARG;
}

HRESULT TDSAudioSourceStreamPin::CheckMediaTypeExtended(const AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    if (IsEqualGUID(type->majortype, MEDIATYPE_Audio) &&
        (IsEqualGUID(type->subtype, KSDATAFORMAT_SUBTYPE_PCM) ||
         IsEqualGUID(type->subtype, MEDIASUBTYPE_PCM)) &&
        type->pbFormat != nullptr)
        return S_OK;
    return E_INVALIDARG;
}

HRESULT TDSAudioSourceStreamPin::IntGetMediaType(int position, AM_MEDIA_TYPE* type) {
    if (position < 0) return E_INVALIDARG;
    if (position > 0) return VFW_S_NO_MORE_ITEMS;
    return FBasicFormat ? CreateBasicAudioMediaType(&FFormat, type, TRUE)
                        : CreateAudioMediaType(&FFormat, type, TRUE);
}

LONG TDSAudioSourceStreamPin::AgreedBufferSize() const {
    // Read from the agreed block of the connection, not from the stored format.
    const auto* agreed = reinterpret_cast<const tWAVEFORMATEX*>(FConnectionType.pbFormat);
    if (!agreed) return 0;
    const int64_t frames =
        static_cast<int64_t>(agreed->nSamplesPerSec) * (FBufferMilliseconds + 2) / 1000 + 1;
    return static_cast<LONG>(agreed->nBlockAlign * frames);
}

HRESULT TDSAudioSourceStreamPin::IntDecideBufferSize(IMemAllocator* allocator,
                                                     ALLOCATOR_PROPERTIES* properties) {
    return FBasicFormat ? IntDecideBufferSizeBasic(allocator, properties)
                        : IntDecideBufferSizeExtended(allocator, properties);
}

HRESULT TDSAudioSourceStreamPin::IntDecideBufferSizeBasic(IMemAllocator* allocator,
                                                          ALLOCATOR_PROPERTIES* properties) {
    return SetOneBuffer(allocator, properties, AgreedBufferSize());
}

HRESULT TDSAudioSourceStreamPin::IntDecideBufferSizeExtended(IMemAllocator* allocator,
                                                             ALLOCATOR_PROPERTIES* properties) {
    return SetOneBuffer(allocator, properties, AgreedBufferSize());
}

bool TDSAudioSourceStreamPin::SendData(const void* buffer, int size, REFERENCE_TIME start,
                                       REFERENCE_TIME stop, bool syncPoint) {
    return SendChunks(this, buffer, size, start, stop, syncPoint, Stamping::ByChunk, 1001);
}

// ---- TDSTextSourceStreamPin ----------------------------------------------------------------

TDSTextSourceStreamPin::TDSTextSourceStreamPin(const std::string& objectName,
                                               TDSBaseSourceFilter* filter, ICriticalSection* lock,
                                               HRESULT* result, const std::u16string& pinName)
    : TDSSourceStreamPin(objectName, filter, lock, result, pinName) {
    FSourceFilter->AddPin(this);
}

TDSTextSourceStreamPin::~TDSTextSourceStreamPin() {
    FSourceFilter->RemovePin(this);
}

HRESULT TDSTextSourceStreamPin::CheckMediaType(const AM_MEDIA_TYPE* type) {
    if (!type) return E_POINTER;
    return IsEqualGUID(type->majortype, MEDIATYPE_Text) ? S_OK : E_INVALIDARG;
}

HRESULT TDSTextSourceStreamPin::IntGetMediaType(int position, AM_MEDIA_TYPE* type) {
    if (position < 0) return E_INVALIDARG;
    if (position > 0) return VFW_S_NO_MORE_ITEMS;
    if (!type) return E_UNEXPECTED;
    type->majortype = MEDIATYPE_Text;
    type->subtype = MEDIASUBTYPE_NULL;
    return S_OK;
}

HRESULT TDSTextSourceStreamPin::IntDecideBufferSize(IMemAllocator* allocator,
                                                    ALLOCATOR_PROPERTIES* properties) {
    return SetOneBuffer(allocator, properties, FBufferSize);
}

bool TDSTextSourceStreamPin::SendData(const void* buffer, int size, REFERENCE_TIME start,
                                      REFERENCE_TIME stop, bool syncPoint) {
    return SendChunks(this, buffer, size, start, stop, syncPoint, Stamping::BySize, 0);
}

// ---- TDSBinarySourceStreamPin --------------------------------------------------------------

TDSBinarySourceStreamPin::TDSBinarySourceStreamPin(const std::string& objectName,
                                                   TDSBaseSourceFilter* filter,
                                                   ICriticalSection* lock, HRESULT* result,
                                                   const std::u16string& pinName)
    : TDSSourceStreamPin(objectName, filter, lock, result, pinName) {
    FSourceFilter->AddPin(this);
}

TDSBinarySourceStreamPin::~TDSBinarySourceStreamPin() {
    FSourceFilter->RemovePin(this);
    DSClearMediaType(&FMediaType);
}

HRESULT TDSBinarySourceStreamPin::AgreeMediaType(IPin* receiver, const AM_MEDIA_TYPE* type) {
    // Until the owner sets a type, Connect reports success and the pin stays unconnected.
    if (FSkipAgreement) return S_OK;
    return TDSSourceStreamPin::AgreeMediaType(receiver, type);
}

HRESULT TDSBinarySourceStreamPin::CheckMediaType(const AM_MEDIA_TYPE*) {
    return S_OK;
}

void TDSBinarySourceStreamPin::SetTheMediaType(const AM_MEDIA_TYPE* type) {
    FSkipAgreement = false;
    QPDSFreeMediaType(FMediaType);
    DSCopyMediaType(&FMediaType, type);
}

HRESULT TDSBinarySourceStreamPin::IntGetMediaType(int position, AM_MEDIA_TYPE* type) {
    if (position < 0) return E_INVALIDARG;
    if (position > 0) return VFW_S_NO_MORE_ITEMS;
    DSCopyMediaType(type, &FMediaType);
    return S_OK;
}

HRESULT TDSBinarySourceStreamPin::IntDecideBufferSize(IMemAllocator* allocator,
                                                      ALLOCATOR_PROPERTIES* properties) {
    return SetOneBuffer(allocator, properties, FBufferSize);
}

bool TDSBinarySourceStreamPin::SendData(const void* buffer, int size) {
    return SendChunks(this, buffer, size, 0, 0, false, Stamping::None, 0);
}

// ---- The three source filters --------------------------------------------------------------

TDSAudioSourceFilter::TDSAudioSourceFilter(const CLSID& classId)
    : TDSBaseSourceFilter("AudioSource", nullptr, classId) {
    HRESULT hr = S_OK;
    FPin = new TDSAudioSourceStreamPin("AudioOutput", this, FLock.Get(), &hr, u"AudioOutput");
}

void TDSAudioSourceFilter::SetFormat(const TQAWaveFormatExtensible& format, bool basic,
                                     int bufferMilliseconds) {
    FPin->SetFormat(format, basic, bufferMilliseconds);
}

bool TDSAudioSourceFilter::SendData(const void* buffer, int size, REFERENCE_TIME start,
                                    REFERENCE_TIME stop, bool syncPoint) {
    return FPin->SendData(buffer, size, start, stop, syncPoint);
}

HRESULT TDSAudioSourceFilter::DeliverEndOfStream() {
    return FPin->DeliverEndOfStream();
}

void TDSAudioSourceFilter::Flush() {
    FPin->DeliverBeginFlush();
    FPin->DeliverEndFlush();
}

TDSTextSourceFilter::TDSTextSourceFilter(const std::string& name, const CLSID& classId)
    : TDSBaseSourceFilter(name, nullptr, classId) {
    HRESULT hr = S_OK;
    FPin = new TDSTextSourceStreamPin("TextOutput", this, FLock.Get(), &hr, u"TextOutput");
}

bool TDSTextSourceFilter::SendData(const void* buffer, int size, REFERENCE_TIME start,
                                   REFERENCE_TIME stop, bool syncPoint) {
    return FPin->SendData(buffer, size, start, stop, syncPoint);
}

TDSBinarySourceFilter::TDSBinarySourceFilter(const std::string& name, const CLSID& classId)
    : TDSBaseSourceFilter(name, nullptr, classId) {
    HRESULT hr = S_OK;
    FPin = new TDSBinarySourceStreamPin("BinaryOutput", this, FLock.Get(), &hr, u"BinaryOutput");
}

void TDSBinarySourceFilter::SetMediaType(const AM_MEDIA_TYPE* type) {
    FPin->SetTheMediaType(type);
}

void TDSBinarySourceFilter::SetFormat(int size) {
    FPin->SetFormat(size);
}

bool TDSBinarySourceFilter::SendData(const void* buffer, int size) {
    return FPin->SendData(buffer, size);
}

HRESULT TDSBinarySourceFilter::DeliverEndOfStream() {
    return FPin->DeliverEndOfStream();
}
