// The component object model's runtime: apartments, object creation through the in-process
// class registry, task memory, bind contexts and display names, the running object table and
// structured storage. Implemented by platform/com on Linux.
//
// Every function may be called from any thread. CoInitialize/CoUninitialize are counted per
// thread; the other functions do not require them (the objects are free-threaded), but
// CoCreateInstance answers CO_E_NOTINITIALIZED on a thread that never initialised, as the
// platform does. Task memory may be freed on any thread.
#pragma once

#include "oaidl.h"
#include "objidl.h"
#include "winerror.h"

typedef IID* LPIID;

typedef enum tagCLSCTX {
    CLSCTX_INPROC_SERVER = 0x1,
    CLSCTX_INPROC_HANDLER = 0x2,
    CLSCTX_LOCAL_SERVER = 0x4,
    CLSCTX_INPROC_SERVER16 = 0x8,
    CLSCTX_REMOTE_SERVER = 0x10,
    CLSCTX_INPROC_HANDLER16 = 0x20,
    CLSCTX_NO_CODE_DOWNLOAD = 0x400,
    CLSCTX_NO_FAILURE_LOG = 0x4000,
    CLSCTX_DISABLE_AAA = 0x8000,
    CLSCTX_ENABLE_AAA = 0x10000,
    CLSCTX_FROM_DEFAULT_CONTEXT = 0x20000
} CLSCTX;
constexpr DWORD CLSCTX_INPROC = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER;
constexpr DWORD CLSCTX_SERVER = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;
constexpr DWORD CLSCTX_ALL =
    CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;

typedef enum tagCOINIT {
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_MULTITHREADED = 0x0,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8
} COINIT;

typedef enum tagREGCLS {
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
    REGCLS_MULTI_SEPARATE = 2,
    REGCLS_SUSPENDED = 4,
    REGCLS_SURROGATE = 8
} REGCLS;

// Storage access modes (grfMode of StgCreateDocfile, CreateStream, ...).
constexpr DWORD STGM_DIRECT = 0x00000000;
constexpr DWORD STGM_TRANSACTED = 0x00010000;
constexpr DWORD STGM_SIMPLE = 0x08000000;
constexpr DWORD STGM_READ = 0x00000000;
constexpr DWORD STGM_WRITE = 0x00000001;
constexpr DWORD STGM_READWRITE = 0x00000002;
constexpr DWORD STGM_SHARE_DENY_NONE = 0x00000040;
constexpr DWORD STGM_SHARE_DENY_READ = 0x00000030;
constexpr DWORD STGM_SHARE_DENY_WRITE = 0x00000020;
constexpr DWORD STGM_SHARE_EXCLUSIVE = 0x00000010;
constexpr DWORD STGM_PRIORITY = 0x00040000;
constexpr DWORD STGM_DELETEONRELEASE = 0x04000000;
constexpr DWORD STGM_NOSCRATCH = 0x00100000;
constexpr DWORD STGM_CREATE = 0x00001000;
constexpr DWORD STGM_CONVERT = 0x00020000;
constexpr DWORD STGM_FAILIFTHERE = 0x00000000;
constexpr DWORD STGM_NOSNAPSHOT = 0x00200000;
constexpr DWORD STGM_DIRECT_SWMR = 0x00400000;

typedef enum tagSTGFMT {
    STGFMT_STORAGE = 0,
    STGFMT_NATIVE = 1,
    STGFMT_FILE = 3,
    STGFMT_ANY = 4,
    STGFMT_DOCFILE = 5,
    STGFMT_DOCUMENT = 0
} STGFMT;

// Apartments, counted per thread: the first CoInitialize(Ex) of a thread answers S_OK, the
// following ones S_FALSE; a second call asking for the other threading model answers
// RPC_E_CHANGED_MODE and is not counted. Each successful call is balanced by CoUninitialize.
HRESULT WINAPI CoInitialize(LPVOID pvReserved);
HRESULT WINAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
void WINAPI CoUninitialize();

// Creation through the in-process class registry (see mwcom.h for registering classes).
// Unknown class: REGDB_E_CLASSNOTREG. Class known but the interface is not answered:
// E_NOINTERFACE. No context among CLSCTX_INPROC_SERVER/HANDLER: REGDB_E_CLASSNOTREG.
HRESULT WINAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext,
                                REFIID riid, LPVOID* ppv);
HRESULT WINAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid,
                                LPVOID* ppv);
HRESULT WINAPI CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext,
                                     DWORD flags, LPDWORD lpdwRegister);
HRESULT WINAPI CoRevokeClassObject(DWORD dwRegister);

// One allocator for all memory the platform hands out or takes over; any thread may free.
LPVOID WINAPI CoTaskMemAlloc(SIZE_T cb);
LPVOID WINAPI CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
void WINAPI CoTaskMemFree(LPVOID pv);

HRESULT WINAPI CoCreateGuid(GUID* pguid);
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"; answers the characters written with the null, or 0
// when cchMax is too small.
int WINAPI StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax);
HRESULT WINAPI StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);  // CoTaskMem text
HRESULT WINAPI StringFromIID(REFIID rclsid, LPOLESTR* lplpsz);
HRESULT WINAPI CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);  // CO_E_CLASSSTRING if bad
HRESULT WINAPI IIDFromString(LPCOLESTR lpsz, LPIID lpiid);       // E_INVALIDARG if bad

// Bind contexts and display names. MkParseDisplayName understands the device monikers
// "@device:<kind>:<rest>" and "@device:*:{category}" (the category's default device):
// MK_E_SYNTAX for text it cannot read, MK_E_NOOBJECT for a device that is not installed,
// E_INVALIDARG for a null bind context. *pchEaten is the number of characters taken.
HRESULT WINAPI CreateBindCtx(DWORD reserved, LPBC* ppbc);
HRESULT WINAPI MkParseDisplayName(LPBC pbc, LPCOLESTR szUserName, ULONG* pchEaten, LPMONIKER* ppmk);
HRESULT WINAPI CreateItemMoniker(LPCOLESTR lpszDelim, LPCOLESTR lpszItem, LPMONIKER* ppmk);
HRESULT WINAPI BindMoniker(LPMONIKER pmk, DWORD grfOpt, REFIID iidResult, LPVOID* ppvResult);

// The running object table of the process (one table, shared by all threads).
HRESULT WINAPI GetRunningObjectTable(DWORD reserved, LPRUNNINGOBJECTTABLE* pprot);

// Structured storage on OLE2 compound files (platform/com over libgsf). Paths are file
// system paths in UTF-16. A transacted root (STGM_TRANSACTED) writes the file on Commit; a
// direct root on Commit and on its final Release. Writing goes to a temporary file that
// replaces the target only when complete, so a failed write leaves no partial file.
HRESULT WINAPI StgCreateDocfile(const WCHAR* pwcsName, DWORD grfMode, DWORD reserved,
                                IStorage** ppstgOpen);
HRESULT WINAPI StgOpenStorage(const WCHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode,
                              SNB snbExclude, DWORD reserved, IStorage** ppstgOpen);
HRESULT WINAPI StgIsStorageFile(const WCHAR* pwcsName);
HRESULT WINAPI ReadClassStg(IStorage* pStg, CLSID* pclsid);
HRESULT WINAPI WriteClassStg(IStorage* pStg, REFCLSID rclsid);

// Streams over global memory (winmem.h). With hGlobal null a new moveable block is made; with
// fDeleteOnRelease the block is freed with the stream's last reference.
HRESULT WINAPI CreateStreamOnHGlobal(HGLOBAL hGlobal, BOOL fDeleteOnRelease, LPSTREAM* ppstm);
HRESULT WINAPI GetHGlobalFromStream(LPSTREAM pstm, HGLOBAL* phglobal);

// Persistence helpers: the class id, then the object's own IPersistStream data.
HRESULT WINAPI OleSaveToStream(IPersistStream* pPStm, LPSTREAM pStm);
HRESULT WINAPI OleLoadFromStream(LPSTREAM pStm, REFIID iidInterface, LPVOID* ppvObj);
HRESULT WINAPI WriteClassStm(LPSTREAM pStm, REFCLSID rclsid);
HRESULT WINAPI ReadClassStm(LPSTREAM pStm, CLSID* pclsid);
