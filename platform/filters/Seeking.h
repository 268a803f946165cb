// IMediaSeeking as the platform's filters answer it: a source keeps positions in media time and
// asks its owner to move; a renderer or an in-place filter passes every call to the pin
// upstream of its input.
#pragma once

#include <functional>
#include <mutex>

#include "platform/filters/PlatformFilter.h"
#include "vfwmsgs.h"

namespace mw::filters {

// Positions of a seekable source; lifetime and identity are the owner's.
class SourceSeeking final : public IMediaSeeking {
public:
    struct Owner {
        std::function<LONGLONG()> duration;     // 100 ns units
        std::function<LONGLONG()> current;      // position of the last sample out
        std::function<HRESULT(LONGLONG)> seek;  // move to the position
    };
    SourceSeeking(IUnknown* outer, Owner owner) : FOuter(outer), FOwner(std::move(owner)) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (object && IsEqualIID(iid, IID_IMediaSeeking)) {
            *object = this;
            AddRef();
            return S_OK;
        }
        return FOuter->QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return FOuter->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return FOuter->Release(); }

    STDMETHODIMP GetCapabilities(DWORD* caps) override;
    STDMETHODIMP CheckCapabilities(DWORD* caps) override;
    STDMETHODIMP IsFormatSupported(const GUID* format) override;
    STDMETHODIMP QueryPreferredFormat(GUID* format) override;
    STDMETHODIMP GetTimeFormat(GUID* format) override;
    STDMETHODIMP IsUsingTimeFormat(const GUID* format) override;
    STDMETHODIMP SetTimeFormat(const GUID* format) override;
    STDMETHODIMP GetDuration(LONGLONG* duration) override;
    STDMETHODIMP GetStopPosition(LONGLONG* stop) override;
    STDMETHODIMP GetCurrentPosition(LONGLONG* current) override;
    STDMETHODIMP ConvertTimeFormat(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                                   const GUID* sourceFormat) override;
    STDMETHODIMP SetPositions(LONGLONG* current, DWORD currentFlags, LONGLONG* stop,
                              DWORD stopFlags) override;
    STDMETHODIMP GetPositions(LONGLONG* current, LONGLONG* stop) override;
    STDMETHODIMP GetAvailable(LONGLONG* earliest, LONGLONG* latest) override;
    STDMETHODIMP SetRate(double rate) override;
    STDMETHODIMP GetRate(double* rate) override;
    STDMETHODIMP GetPreroll(LONGLONG* preroll) override;

    // The stop position set by the application (the duration when none).
    LONGLONG Stop();

private:
    IUnknown* FOuter;
    Owner FOwner;
    std::mutex FMutex;
    LONGLONG FStop = -1;
};

// Passes IMediaSeeking to the output pin connected to an input pin.
class SeekingPassThrough final : public IMediaSeeking {
public:
    SeekingPassThrough(IUnknown* outer, PlatformInputPin* input) : FOuter(outer), FInput(input) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (object && IsEqualIID(iid, IID_IMediaSeeking)) {
            *object = this;
            AddRef();
            return S_OK;
        }
        return FOuter->QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return FOuter->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return FOuter->Release(); }

    STDMETHODIMP GetCapabilities(DWORD* a) override {
        return Up([&](auto s) { return s->GetCapabilities(a); });
    }
    STDMETHODIMP CheckCapabilities(DWORD* a) override {
        return Up([&](auto s) { return s->CheckCapabilities(a); });
    }
    STDMETHODIMP IsFormatSupported(const GUID* a) override {
        return Up([&](auto s) { return s->IsFormatSupported(a); });
    }
    STDMETHODIMP QueryPreferredFormat(GUID* a) override {
        return Up([&](auto s) { return s->QueryPreferredFormat(a); });
    }
    STDMETHODIMP GetTimeFormat(GUID* a) override {
        return Up([&](auto s) { return s->GetTimeFormat(a); });
    }
    STDMETHODIMP IsUsingTimeFormat(const GUID* a) override {
        return Up([&](auto s) { return s->IsUsingTimeFormat(a); });
    }
    STDMETHODIMP SetTimeFormat(const GUID* a) override {
        return Up([&](auto s) { return s->SetTimeFormat(a); });
    }
    STDMETHODIMP GetDuration(LONGLONG* a) override {
        return Up([&](auto s) { return s->GetDuration(a); });
    }
    STDMETHODIMP GetStopPosition(LONGLONG* a) override {
        return Up([&](auto s) { return s->GetStopPosition(a); });
    }
    STDMETHODIMP GetCurrentPosition(LONGLONG* a) override {
        return Up([&](auto s) { return s->GetCurrentPosition(a); });
    }
    STDMETHODIMP ConvertTimeFormat(LONGLONG* a, const GUID* b, LONGLONG c, const GUID* d) override {
        return Up([&](auto s) { return s->ConvertTimeFormat(a, b, c, d); });
    }
    STDMETHODIMP SetPositions(LONGLONG* a, DWORD b, LONGLONG* c, DWORD d) override {
        return Up([&](auto s) { return s->SetPositions(a, b, c, d); });
    }
    STDMETHODIMP GetPositions(LONGLONG* a, LONGLONG* b) override {
        return Up([&](auto s) { return s->GetPositions(a, b); });
    }
    STDMETHODIMP GetAvailable(LONGLONG* a, LONGLONG* b) override {
        return Up([&](auto s) { return s->GetAvailable(a, b); });
    }
    STDMETHODIMP SetRate(double a) override {
        return Up([&](auto s) { return s->SetRate(a); });
    }
    STDMETHODIMP GetRate(double* a) override {
        return Up([&](auto s) { return s->GetRate(a); });
    }
    STDMETHODIMP GetPreroll(LONGLONG* a) override {
        return Up([&](auto s) { return s->GetPreroll(a); });
    }

private:
    template <class F>
    HRESULT Up(F call) {
        ComPtr<IPin> peer = FInput->ConnectedPin();
        if (!peer) return VFW_E_NOT_CONNECTED;
        ComPtr<IMediaSeeking> seeking;
        if (FAILED(peer->QueryInterface(
                IID_IMediaSeeking, reinterpret_cast<void**>(seeking.ReleaseAndGetAddressOf()))))
            return E_NOTIMPL;
        return call(seeking.Get());
    }
    IUnknown* FOuter;
    PlatformInputPin* FInput;
};

}  // namespace mw::filters
