// Helpers of the graph service tests: COM and the platform's filters ready, pins by direction,
// a capture of what "Virtual Output" plays.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "comptr.h"
#include "control.h"
#include "evcode.h"
#include "mmsystem.h"
#include "mwwave.h"
#include "objbase.h"
#include "oleauto.h"
#include "platform/filters/PlatformFilters.h"
#include "qedit.h"
#include "strmif.h"
#include "tests/support/Wait.h"
#include "uuids.h"
#include "vfwmsgs.h"

namespace mw::test {

class GraphTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitialize(nullptr)));
        ASSERT_EQ(mw::filters::RegisterPlatformFilters(), S_OK);
    }
    void TearDown() override {
        mw::wave::SetVirtualOutputTap(nullptr);
        mw::wave::SetVirtualOutputPaced(true);
        CoUninitialize();
    }

public:
    template <class T>
    static ComPtr<T> Create(REFCLSID clsid) {
        ComPtr<T> object;
        EXPECT_EQ(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, MwIid<T>(),
                                   reinterpret_cast<void**>(object.ReleaseAndGetAddressOf())),
                  S_OK);
        return object;
    }
    template <class T, class U>
    static ComPtr<T> As(U* object) {
        ComPtr<T> out;
        if (object)
            object->QueryInterface(MwIid<T>(),
                                   reinterpret_cast<void**>(out.ReleaseAndGetAddressOf()));
        return out;
    }
    static ComPtr<IPin> PinOf(IBaseFilter* filter, PIN_DIRECTION dir, int index = 0) {
        ComPtr<IEnumPins> e;
        filter->EnumPins(e.ReleaseAndGetAddressOf());
        for (;;) {
            ComPtr<IPin> pin;
            ULONG got = 0;
            if (e->Next(1, pin.ReleaseAndGetAddressOf(), &got) != S_OK) return nullptr;
            PIN_DIRECTION d;
            pin->QueryDirection(&d);
            if (d == dir && index-- == 0) return pin;
        }
    }
    // Drains the graph's events into a list; true once code was among them.
    static bool Saw(IMediaEventEx* events, LONG code, std::vector<LONG>* seen) {
        LONG c;
        LONG_PTR p1, p2;
        while (events->GetEvent(&c, &p1, &p2, 0) == S_OK) {
            events->FreeEventParams(c, p1, p2);
            seen->push_back(c);
        }
        for (LONG s : *seen)
            if (s == code) return true;
        return false;
    }
};

// Collects the bytes "Virtual Output" plays.
class TapCapture {
public:
    TapCapture() {
        mw::wave::SetVirtualOutputTap([this](const WAVEFORMATEX& f, const void* data, size_t n) {
            std::lock_guard lock(FMutex);
            FBlockAlign = f.nBlockAlign;
            const auto* p = static_cast<const BYTE*>(data);
            FBytes.insert(FBytes.end(), p, p + n);
        });
    }
    ~TapCapture() { mw::wave::SetVirtualOutputTap(nullptr); }
    std::vector<BYTE> Bytes() {
        std::lock_guard lock(FMutex);
        return FBytes;
    }
    size_t Size() {
        std::lock_guard lock(FMutex);
        return FBytes.size();
    }

    // Frames played, in the format last played.
    size_t Frames() {
        std::lock_guard lock(FMutex);
        return FBlockAlign ? FBytes.size() / FBlockAlign : 0;
    }

private:
    std::mutex FMutex;
    std::vector<BYTE> FBytes;
    size_t FBlockAlign = 0;
};

// The moniker of the audio renderer of a device, by friendly name.
ComPtr<IBaseFilter> AudioRendererFor(const char16_t* friendlyName);

}  // namespace mw::test
