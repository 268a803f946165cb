// Positions of the platform's seekable sources.
#include "platform/filters/Seeking.h"

#include <algorithm>

#include "uuids.h"

namespace mw::filters {

namespace {
constexpr DWORD kCaps = AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanSeekForwards |
                        AM_SEEKING_CanSeekBackwards | AM_SEEKING_CanGetCurrentPos |
                        AM_SEEKING_CanGetStopPos | AM_SEEKING_CanGetDuration;
bool MediaTime(const GUID* f) {
    return !f || IsEqualGUID(*f, TIME_FORMAT_MEDIA_TIME);
}
}  // namespace

STDMETHODIMP SourceSeeking::GetCapabilities(DWORD* caps) {
    if (!caps) return E_POINTER;
    *caps = kCaps;
    return S_OK;
}
STDMETHODIMP SourceSeeking::CheckCapabilities(DWORD* caps) {
    if (!caps) return E_POINTER;
    const DWORD wanted = *caps;
    *caps &= kCaps;
    return *caps == wanted ? S_OK : (*caps ? S_FALSE : E_FAIL);
}
STDMETHODIMP SourceSeeking::IsFormatSupported(const GUID* format) {
    if (!format) return E_POINTER;
    return MediaTime(format) ? S_OK : S_FALSE;
}
STDMETHODIMP SourceSeeking::QueryPreferredFormat(GUID* format) {
    return GetTimeFormat(format);
}
STDMETHODIMP SourceSeeking::GetTimeFormat(GUID* format) {
    if (!format) return E_POINTER;
    *format = TIME_FORMAT_MEDIA_TIME;
    return S_OK;
}
STDMETHODIMP SourceSeeking::IsUsingTimeFormat(const GUID* format) {
    return IsFormatSupported(format);
}
STDMETHODIMP SourceSeeking::SetTimeFormat(const GUID* format) {
    if (!format) return E_POINTER;
    return MediaTime(format) ? S_OK : E_INVALIDARG;
}
STDMETHODIMP SourceSeeking::GetDuration(LONGLONG* duration) {
    if (!duration) return E_POINTER;
    *duration = FOwner.duration();
    return S_OK;
}
LONGLONG SourceSeeking::Stop() {
    std::lock_guard lock(FMutex);
    return FStop >= 0 ? FStop : FOwner.duration();
}
STDMETHODIMP SourceSeeking::GetStopPosition(LONGLONG* stop) {
    if (!stop) return E_POINTER;
    *stop = Stop();
    return S_OK;
}
STDMETHODIMP SourceSeeking::GetCurrentPosition(LONGLONG* current) {
    if (!current) return E_POINTER;
    *current = FOwner.current();
    return S_OK;
}
STDMETHODIMP SourceSeeking::ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat,
                                              LONGLONG source, const GUID* sourceFormat) {
    if (!target) return E_POINTER;
    if (!MediaTime(targetFormat) || !MediaTime(sourceFormat)) return E_INVALIDARG;
    *target = source;
    return S_OK;
}
STDMETHODIMP SourceSeeking::SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop,
                                         DWORD stopFlags) {
    const DWORD how = currentFlags & AM_SEEKING_PositioningBitsMask;
    const DWORD stopHow = stopFlags & AM_SEEKING_PositioningBitsMask;
    if ((how && !current) || (stopHow && !stop)) return E_POINTER;
    if (stopHow) {
        std::lock_guard lock(FMutex);
        LONGLONG s = *stop;
        if (stopHow == AM_SEEKING_RelativePositioning) s += Stop();
        FStop = std::max<LONGLONG>(0, s);
    }
    if (!how) return S_OK;
    LONGLONG target = *current;
    if (how == AM_SEEKING_RelativePositioning) target += FOwner.current();
    target = std::clamp<LONGLONG>(target, 0, std::max<LONGLONG>(0, FOwner.duration()));
    const HRESULT hr = FOwner.seek(target);
    if (SUCCEEDED(hr) && (currentFlags & AM_SEEKING_ReturnTime)) *current = target;
    return hr;
}
STDMETHODIMP SourceSeeking::GetPositions(LONGLONG* current, LONGLONG* stop) {
    if (current) *current = FOwner.current();
    if (stop) *stop = Stop();
    return S_OK;
}
STDMETHODIMP SourceSeeking::GetAvailable(LONGLONG* earliest, LONGLONG* latest) {
    if (earliest) *earliest = 0;
    if (latest) *latest = FOwner.duration();
    return S_OK;
}
STDMETHODIMP SourceSeeking::SetRate(double rate) {
    return rate == 1.0 ? S_OK : E_INVALIDARG;
}
STDMETHODIMP SourceSeeking::GetRate(double* rate) {
    if (!rate) return E_POINTER;
    *rate = 1.0;
    return S_OK;
}
STDMETHODIMP SourceSeeking::GetPreroll(LONGLONG* preroll) {
    if (!preroll) return E_POINTER;
    *preroll = 0;
    return S_OK;
}

}  // namespace mw::filters
