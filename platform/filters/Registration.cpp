// Registration of the platform's filters and of an audio renderer per wave output device.
#include <string>

#include "mmsystem.h"
#include "mwcom.h"
#include "mwdevices.h"
#include "platform/filters/PlatformFilters.h"
#include "platform/filters/Renderers.h"
#include "platform/graph/Catalogue.h"
#include "platform/graph/GraphService.h"
#include "qedit.h"
#include "uuids.h"

namespace mw::filters {
namespace {

const REGPINTYPES kAudioTypes[] = {{&MEDIATYPE_Audio, &MEDIASUBTYPE_PCM},
                                   {&MEDIATYPE_Audio, &MEDIASUBTYPE_IEEE_FLOAT}};
const REGPINTYPES kAnyType[] = {{&GUID_NULL, &GUID_NULL}};

void RegisterInMapper(const CLSID& clsid, const char16_t* name, DWORD merit,
                      const REGFILTERPINS2* pins, ULONG count) {
    REGFILTER2 rf{};
    rf.dwVersion = 2;
    rf.dwMerit = merit;
    rf.cPins2 = count;
    rf.rgPins2 = pins;
    graph::RegisterFilterInCatalogue(clsid, name, nullptr, nullptr, rf);
}

void RegisterAudioRenderers() {
    auto maker = [](UINT device, const CLSID& clsid) {
        return [device, clsid](IUnknown* outer, REFIID iid, void** object) -> HRESULT {
            if (outer) return CLASS_E_NOAGGREGATION;
            return CreateAudioRenderer(device, clsid, iid, object);
        };
    };
    RegisterComClass(CLSID_DSoundRender, maker(WAVE_MAPPER, CLSID_DSoundRender));
    RegisterComClass(CLSID_AudioRender, maker(WAVE_MAPPER, CLSID_AudioRender));

    DeviceDescription def;
    def.category = CLSID_AudioRendererCategory;
    def.kind = u"cm";
    def.instance = u"Default Audio Device";
    def.friendlyName = u"Default Audio Device";
    def.clsid = CLSID_DSoundRender;
    def.create = maker(WAVE_MAPPER, CLSID_DSoundRender);
    def.isDefault = true;
    RegisterDevice(def);
    const UINT count = waveOutGetNumDevs();
    for (UINT i = 0; i < count; ++i) {
        WAVEOUTCAPSW caps{};
        if (waveOutGetDevCapsW(i, &caps, sizeof caps) != MMSYSERR_NOERROR) continue;
        DeviceDescription d;
        d.category = CLSID_AudioRendererCategory;
        d.kind = u"cm";
        d.friendlyName = caps.szPname;
        d.instance = caps.szPname;
        d.clsid = CLSID_AudioRender;
        d.create = maker(i, CLSID_AudioRender);
        RegisterDevice(d);
    }

    static const REGFILTERPINS2 pins[] = {
        {REG_PINFLAG_B_RENDERER, 1, 2, kAudioTypes, 0, nullptr, nullptr}};
    RegisterInMapper(CLSID_DSoundRender, u"Default Audio Device", MERIT_PREFERRED, pins, 1);
}

}  // namespace

HRESULT RegisterPlatformFilters() {
    static const bool done = [] {
        graph::RegisterGraphService();
        RegisterComClass(CLSID_NullRenderer, &CreateFilter<NullRenderer>);
        static const REGFILTERPINS2 nullPins[] = {
            {REG_PINFLAG_B_RENDERER, 1, 1, kAnyType, 0, nullptr, nullptr}};
        RegisterInMapper(CLSID_NullRenderer, u"Null Renderer", MERIT_DO_NOT_USE, nullPins, 1);
        RegisterComClass(CLSID_SampleGrabber, &CreateSampleGrabber);
        static const REGFILTERPINS2 grabberPins[] = {
            {0, 1, 1, kAnyType, 0, nullptr, nullptr},
            {REG_PINFLAG_B_OUTPUT, 1, 1, kAnyType, 0, nullptr, nullptr}};
        RegisterInMapper(CLSID_SampleGrabber, u"SampleGrabber", MERIT_DO_NOT_USE, grabberPins, 2);
        RegisterComClass(CLSID_MwFileSource, &CreateFileSource);
        static const REGFILTERPINS2 sourcePins[] = {
            {REG_PINFLAG_B_OUTPUT, 1, 2, kAudioTypes, 0, nullptr, nullptr}};
        RegisterInMapper(CLSID_MwFileSource, u"File Source (decoding)", MERIT_DO_NOT_USE,
                         sourcePins, 1);
        graph::SetFileSourceClass(CLSID_MwFileSource);
        RegisterComClass(CLSID_MwAudioConverter, &CreateAudioConverter);
        static const REGFILTERPINS2 converterPins[] = {
            {0, 1, 2, kAudioTypes, 0, nullptr, nullptr},
            {REG_PINFLAG_B_OUTPUT, 1, 2, kAudioTypes, 0, nullptr, nullptr}};
        RegisterInMapper(CLSID_MwAudioConverter, u"Audio Converter", MERIT_NORMAL, converterPins,
                         2);
        RegisterComClass(CLSID_MwGain, &CreateGainFilter);
        RegisterInMapper(CLSID_MwGain, u"Audio Gain", MERIT_DO_NOT_USE, converterPins, 2);
        RegisterAudioRenderers();
        return true;
    }();
    return done ? S_OK : E_FAIL;
}

}  // namespace mw::filters
