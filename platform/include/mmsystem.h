// The platform's wave output API (waveOut...) and timeGetTime, with the platform's names,
// values and record layouts. platform/wave provides them on Linux, over ALSA and over the
// built-in virtual devices; mwwave.h holds the Linux-side extras (tap, pacing, statistics).
//
// Threads: the callback given to waveOutOpen runs on a thread of the open device, never on the
// thread that called a waveOut function. One device handle has one such thread, so its messages
// arrive in order: WOM_OPEN first (before waveOutOpen returns), one WOM_DONE per written header in
// the order of the writes, WOM_CLOSE last (before waveOutClose returns). After waveOutClose
// returns, no further callback is made for that handle.
//
// The callback may call waveOutPrepareHeader, waveOutUnprepareHeader, waveOutWrite,
// waveOutPause, waveOutRestart, waveOutGetPosition and waveOutReset on its own handle without
// deadlocking. It must not block on a lock that a thread calling waveOutOpen, waveOutReset or
// waveOutClose holds: those calls wait until their messages have been delivered.
#pragma once

#include "mmreg.h"
#include "windef.h"

typedef UINT MMRESULT;
typedef UINT MMVERSION;
typedef UINT* LPUINT;

// Results: MMSYSERR_* and WAVERR_*.
constexpr MMRESULT MMSYSERR_BASE = 0;
constexpr MMRESULT WAVERR_BASE = 32;
constexpr MMRESULT MMSYSERR_NOERROR = 0;
constexpr MMRESULT MMSYSERR_ERROR = MMSYSERR_BASE + 1;
constexpr MMRESULT MMSYSERR_BADDEVICEID = MMSYSERR_BASE + 2;
constexpr MMRESULT MMSYSERR_NOTENABLED = MMSYSERR_BASE + 3;
constexpr MMRESULT MMSYSERR_ALLOCATED = MMSYSERR_BASE + 4;
constexpr MMRESULT MMSYSERR_INVALHANDLE = MMSYSERR_BASE + 5;
constexpr MMRESULT MMSYSERR_NODRIVER = MMSYSERR_BASE + 6;
constexpr MMRESULT MMSYSERR_NOMEM = MMSYSERR_BASE + 7;
constexpr MMRESULT MMSYSERR_NOTSUPPORTED = MMSYSERR_BASE + 8;
constexpr MMRESULT MMSYSERR_BADERRNUM = MMSYSERR_BASE + 9;
constexpr MMRESULT MMSYSERR_INVALFLAG = MMSYSERR_BASE + 10;
constexpr MMRESULT MMSYSERR_INVALPARAM = MMSYSERR_BASE + 11;
constexpr MMRESULT MMSYSERR_HANDLEBUSY = MMSYSERR_BASE + 12;
constexpr MMRESULT MMSYSERR_LASTERROR = MMSYSERR_BASE + 21;
constexpr MMRESULT WAVERR_BADFORMAT = WAVERR_BASE + 0;
constexpr MMRESULT WAVERR_STILLPLAYING = WAVERR_BASE + 1;
constexpr MMRESULT WAVERR_UNPREPARED = WAVERR_BASE + 2;
constexpr MMRESULT WAVERR_SYNC = WAVERR_BASE + 3;
constexpr MMRESULT WAVERR_LASTERROR = WAVERR_BASE + 3;

constexpr UINT MAXPNAMELEN = 32;
constexpr UINT MAXERRORLENGTH = 256;

// Messages of the wave output device.
constexpr UINT MM_WOM_OPEN = 0x3BB;
constexpr UINT MM_WOM_CLOSE = 0x3BC;
constexpr UINT MM_WOM_DONE = 0x3BD;
constexpr UINT WOM_OPEN = MM_WOM_OPEN;
constexpr UINT WOM_CLOSE = MM_WOM_CLOSE;
constexpr UINT WOM_DONE = MM_WOM_DONE;

// waveOutOpen: the kind of callback (mask 0x70000) and the open flags.
constexpr DWORD CALLBACK_TYPEMASK = 0x00070000;
constexpr DWORD CALLBACK_NULL = 0x00000000;
constexpr DWORD CALLBACK_WINDOW = 0x00010000;
constexpr DWORD CALLBACK_TASK = 0x00020000;
constexpr DWORD CALLBACK_THREAD = CALLBACK_TASK;
constexpr DWORD CALLBACK_FUNCTION = 0x00030000;
constexpr DWORD CALLBACK_EVENT = 0x00050000;
constexpr DWORD WAVE_FORMAT_QUERY = 0x0001;
constexpr DWORD WAVE_ALLOWSYNC = 0x0002;
constexpr DWORD WAVE_MAPPED = 0x0004;
constexpr DWORD WAVE_FORMAT_DIRECT = 0x0008;
constexpr DWORD WAVE_FORMAT_DIRECT_QUERY = WAVE_FORMAT_QUERY | WAVE_FORMAT_DIRECT;
constexpr DWORD WAVE_MAPPED_DEFAULT_COMMUNICATION_DEVICE = 0x0010;
constexpr UINT WAVE_MAPPER = static_cast<UINT>(-1);

typedef struct HWAVEOUT__* HWAVEOUT;
typedef HWAVEOUT* LPHWAVEOUT;
typedef struct HDRVR__* HDRVR;

// The callback of waveOutOpen with CALLBACK_FUNCTION. dwInstance and dwParam1 carry full
// pointer width on Linux.
typedef void(CALLBACK DRVCALLBACK)(HDRVR hdrvr, UINT uMsg, DWORD_PTR dwUser, DWORD_PTR dw1,
                                   DWORD_PTR dw2);
typedef DRVCALLBACK* LPDRVCALLBACK;
typedef void(CALLBACK WAVECALLBACK)(HWAVEOUT hwo, UINT uMsg, DWORD_PTR dwInstance,
                                    DWORD_PTR dwParam1, DWORD_PTR dwParam2);
typedef WAVECALLBACK* LPWAVECALLBACK;

// One buffer handed to the device. Pointer-sized fields follow the host, as on the platform's
// 64-bit builds.
typedef struct wavehdr_tag {
    LPSTR lpData;
    DWORD dwBufferLength;
    DWORD dwBytesRecorded;
    DWORD_PTR dwUser;
    DWORD dwFlags;
    DWORD dwLoops;
    struct wavehdr_tag* lpNext;
    DWORD_PTR reserved;
} WAVEHDR, *PWAVEHDR, *LPWAVEHDR;

constexpr DWORD WHDR_DONE = 0x00000001;
constexpr DWORD WHDR_PREPARED = 0x00000002;
constexpr DWORD WHDR_BEGINLOOP = 0x00000004;
constexpr DWORD WHDR_ENDLOOP = 0x00000008;
constexpr DWORD WHDR_INQUEUE = 0x00000010;

typedef struct tagWAVEOUTCAPSW {
    WORD wMid;
    WORD wPid;
    MMVERSION vDriverVersion;
    WCHAR szPname[MAXPNAMELEN];
    DWORD dwFormats;
    WORD wChannels;
    WORD wReserved1;
    DWORD dwSupport;
} WAVEOUTCAPSW, *PWAVEOUTCAPSW, *LPWAVEOUTCAPSW;

typedef struct tagWAVEOUTCAPSA {
    WORD wMid;
    WORD wPid;
    MMVERSION vDriverVersion;
    CHAR szPname[MAXPNAMELEN];
    DWORD dwFormats;
    WORD wChannels;
    WORD wReserved1;
    DWORD dwSupport;
} WAVEOUTCAPSA, *PWAVEOUTCAPSA, *LPWAVEOUTCAPSA;

// Standard formats of WAVEOUTCAPS::dwFormats.
constexpr DWORD WAVE_INVALIDFORMAT = 0x00000000;
constexpr DWORD WAVE_FORMAT_1M08 = 0x00000001;
constexpr DWORD WAVE_FORMAT_1S08 = 0x00000002;
constexpr DWORD WAVE_FORMAT_1M16 = 0x00000004;
constexpr DWORD WAVE_FORMAT_1S16 = 0x00000008;
constexpr DWORD WAVE_FORMAT_2M08 = 0x00000010;
constexpr DWORD WAVE_FORMAT_2S08 = 0x00000020;
constexpr DWORD WAVE_FORMAT_2M16 = 0x00000040;
constexpr DWORD WAVE_FORMAT_2S16 = 0x00000080;
constexpr DWORD WAVE_FORMAT_4M08 = 0x00000100;
constexpr DWORD WAVE_FORMAT_4S08 = 0x00000200;
constexpr DWORD WAVE_FORMAT_4M16 = 0x00000400;
constexpr DWORD WAVE_FORMAT_4S16 = 0x00000800;
constexpr DWORD WAVE_FORMAT_48M08 = 0x00001000;
constexpr DWORD WAVE_FORMAT_48S08 = 0x00002000;
constexpr DWORD WAVE_FORMAT_48M16 = 0x00004000;
constexpr DWORD WAVE_FORMAT_48S16 = 0x00008000;
constexpr DWORD WAVE_FORMAT_96M08 = 0x00010000;
constexpr DWORD WAVE_FORMAT_96S08 = 0x00020000;
constexpr DWORD WAVE_FORMAT_96M16 = 0x00040000;
constexpr DWORD WAVE_FORMAT_96S16 = 0x00080000;

// WAVEOUTCAPS::dwSupport.
constexpr DWORD WAVECAPS_PITCH = 0x0001;
constexpr DWORD WAVECAPS_PLAYBACKRATE = 0x0002;
constexpr DWORD WAVECAPS_VOLUME = 0x0004;
constexpr DWORD WAVECAPS_LRVOLUME = 0x0008;
constexpr DWORD WAVECAPS_SYNC = 0x0010;
constexpr DWORD WAVECAPS_SAMPLEACCURATE = 0x0020;

// A position of waveOutGetPosition, in the unit that wType names.
typedef struct mmtime_tag {
    UINT wType;
    union {
        DWORD ms;
        DWORD sample;
        DWORD cb;
        DWORD ticks;
        struct {
            BYTE hour;
            BYTE min;
            BYTE sec;
            BYTE frame;
            BYTE fps;
            BYTE dummy;
            BYTE pad[2];
        } smpte;
        struct {
            DWORD songptrpos;
        } midi;
    } u;
} MMTIME, *PMMTIME, *LPMMTIME;

constexpr UINT TIME_MS = 0x0001;
constexpr UINT TIME_SAMPLES = 0x0002;
constexpr UINT TIME_BYTES = 0x0004;
constexpr UINT TIME_SMPTE = 0x0008;
constexpr UINT TIME_MIDI = 0x0010;
constexpr UINT TIME_TICKS = 0x0020;

// The documented 64-bit layouts.
static_assert(sizeof(void*) != 8 || sizeof(WAVEHDR) == 48);
static_assert(sizeof(void*) != 8 || offsetof(WAVEHDR, dwUser) == 16);
static_assert(sizeof(void*) != 8 || offsetof(WAVEHDR, dwFlags) == 24);
static_assert(sizeof(void*) != 8 || offsetof(WAVEHDR, lpNext) == 32);
static_assert(sizeof(void*) != 8 || offsetof(WAVEHDR, reserved) == 40);
static_assert(sizeof(WAVEOUTCAPSW) == 84);
static_assert(offsetof(WAVEOUTCAPSW, szPname) == 8);
static_assert(offsetof(WAVEOUTCAPSW, dwFormats) == 72);
static_assert(offsetof(WAVEOUTCAPSW, dwSupport) == 80);
static_assert(sizeof(MMTIME) == 12);

// Every function returns MMSYSERR_NOERROR on success. Handles that are not open (or closed)
// give MMSYSERR_INVALHANDLE.

// Number of output devices. Device numbers run from 0 to the count less one.
UINT WINAPI waveOutGetNumDevs(void);

// Capabilities of a device number, of WAVE_MAPPER (the device that it opens now) or of an open
// handle. szPname holds at most 31 characters and stays the same between runs. Errors:
// MMSYSERR_BADDEVICEID, MMSYSERR_INVALPARAM (null record). A short cbwoc copies that much.
MMRESULT WINAPI waveOutGetDevCapsW(UINT_PTR uDeviceID, LPWAVEOUTCAPSW pwoc, UINT cbwoc);
MMRESULT WINAPI waveOutGetDevCapsA(UINT_PTR uDeviceID, LPWAVEOUTCAPSA pwoc, UINT cbwoc);

// Opens a device for a format (PCM of 8, 16, 24 or 32 bits, IEEE float of 32 or 64 bits, or the
// extensible form of either). With WAVE_FORMAT_QUERY only checks the format (no handle, no
// callback). Callbacks: CALLBACK_NULL or CALLBACK_FUNCTION (dwCallback is a LPWAVECALLBACK);
// others give MMSYSERR_NOTSUPPORTED. WAVE_ALLOWSYNC is accepted (no device here is synchronous);
// WAVE_MAPPED or the absence of WAVE_FORMAT_DIRECT lets the device convert the format.
// WOM_OPEN has been delivered when this returns. Errors: MMSYSERR_BADDEVICEID,
// WAVERR_BADFORMAT, MMSYSERR_INVALFLAG, MMSYSERR_INVALPARAM, MMSYSERR_ALLOCATED (device busy),
// MMSYSERR_NOTENABLED (device not usable now).
MMRESULT WINAPI waveOutOpen(LPHWAVEOUT phwo, UINT uDeviceID, LPCWAVEFORMATEX pwfx,
                            DWORD_PTR dwCallback, DWORD_PTR dwInstance, DWORD fdwOpen);

// Closes the handle; WAVERR_STILLPLAYING while a header is queued. WOM_CLOSE has been delivered
// when this returns (unless called from the handle's own callback, when it follows at once).
MMRESULT WINAPI waveOutClose(HWAVEOUT hwo);

// Header bookkeeping: sets or clears WHDR_PREPARED. WAVERR_STILLPLAYING while queued.
MMRESULT WINAPI waveOutPrepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);
MMRESULT WINAPI waveOutUnprepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);

// Queues a prepared header (WAVERR_UNPREPARED otherwise; WAVERR_STILLPLAYING when already
// queued): clears WHDR_DONE, sets WHDR_INQUEUE. When its last whole frame has played, the device
// clears WHDR_INQUEUE, sets WHDR_DONE and sends WOM_DONE with the header in dwParam1. Loop flags
// are ignored: every header plays once.
MMRESULT WINAPI waveOutWrite(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);

// Pause stops playing and the position; written headers wait. Restart continues. Both are
// harmless when already in that state. A device opens running.
MMRESULT WINAPI waveOutPause(HWAVEOUT hwo);
MMRESULT WINAPI waveOutRestart(HWAVEOUT hwo);

// Stops, drops what has not played, marks every queued header done and sends WOM_DONE for each
// (in queue order); returns when those messages have been delivered (from the handle's own
// callback it returns at once and they follow). The position starts again at 0; a paused device
// stays paused.
MMRESULT WINAPI waveOutReset(HWAVEOUT hwo);

// Played position since open or the last reset, in TIME_SAMPLES, TIME_BYTES or TIME_MS; other
// kinds are answered in TIME_BYTES, with wType changed.
MMRESULT WINAPI waveOutGetPosition(HWAVEOUT hwo, LPMMTIME pmmt, UINT cbmmt);

// A short text for a result, in English.
MMRESULT WINAPI waveOutGetErrorTextW(MMRESULT mmrError, LPWSTR pszText, UINT cchText);
MMRESULT WINAPI waveOutGetErrorTextA(MMRESULT mmrError, LPSTR pszText, UINT cchText);

// Milliseconds of a monotonic clock, wrapping at 2^32.
DWORD WINAPI timeGetTime(void);
