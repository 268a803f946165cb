// Interfaces of the component object model's object layer: enumerators, streams and storages,
// persistence, monikers, bind contexts and the running object table. Declarations only, with
// the platform's method order and IIDs; the runtime stands in platform/com (objbase.h).
#pragma once

#include "unknwn.h"

struct IEnumUnknown;
struct IEnumString;
struct ISequentialStream;
struct IStream;
struct IEnumSTATSTG;
struct IStorage;
struct IPersist;
struct IPersistStream;
struct IPersistStorage;
struct IPersistFile;
struct IEnumMoniker;
struct IMoniker;
struct IBindCtx;
struct IRunningObjectTable;
struct IROTData;
struct IParseDisplayName;
struct IMalloc;
struct ILockBytes;

typedef LPOLESTR* SNB;

typedef enum tagSTGTY {
    STGTY_STORAGE = 1,
    STGTY_STREAM = 2,
    STGTY_LOCKBYTES = 3,
    STGTY_PROPERTY = 4
} STGTY;

typedef enum tagSTREAM_SEEK {
    STREAM_SEEK_SET = 0,
    STREAM_SEEK_CUR = 1,
    STREAM_SEEK_END = 2
} STREAM_SEEK;

typedef enum tagLOCKTYPE { LOCK_WRITE = 1, LOCK_EXCLUSIVE = 2, LOCK_ONLYONCE = 4 } LOCKTYPE;

typedef enum tagSTATFLAG {
    STATFLAG_DEFAULT = 0,
    STATFLAG_NONAME = 1,
    STATFLAG_NOOPEN = 2
} STATFLAG;

typedef enum tagSTGC {
    STGC_DEFAULT = 0,
    STGC_OVERWRITE = 1,
    STGC_ONLYIFCURRENT = 2,
    STGC_DANGEROUSLYCOMMITMERELYTODISKCACHE = 4,
    STGC_CONSOLIDATE = 8
} STGC;

typedef enum tagSTGMOVE { STGMOVE_MOVE = 0, STGMOVE_COPY = 1, STGMOVE_SHALLOWCOPY = 2 } STGMOVE;

typedef enum tagMKSYS {
    MKSYS_NONE = 0,
    MKSYS_GENERICCOMPOSITE = 1,
    MKSYS_FILEMONIKER = 2,
    MKSYS_ANTIMONIKER = 3,
    MKSYS_ITEMMONIKER = 4,
    MKSYS_POINTERMONIKER = 5,
    MKSYS_CLASSMONIKER = 7,
    MKSYS_OBJREFMONIKER = 8,
    MKSYS_SESSIONMONIKER = 9,
    MKSYS_LUAMONIKER = 10
} MKSYS;

typedef enum tagMKREDUCE {
    MKRREDUCE_ONE = 3 << 16,
    MKRREDUCE_TOUSER = 2 << 16,
    MKRREDUCE_THROUGHUSER = 1 << 16,
    MKRREDUCE_ALL = 0
} MKRREDUCE;

typedef enum tagBIND_FLAGS { BIND_MAYBOTHERUSER = 1, BIND_JUSTTESTEXISTENCE = 2 } BIND_FLAGS;

typedef struct tagSTATSTG {
    LPOLESTR pwcsName;
    DWORD type;
    ULARGE_INTEGER cbSize;
    FILETIME mtime;
    FILETIME ctime;
    FILETIME atime;
    DWORD grfMode;
    DWORD grfLocksSupported;
    CLSID clsid;
    DWORD grfStateBits;
    DWORD reserved;
} STATSTG;

typedef struct tagBIND_OPTS {
    DWORD cbStruct;
    DWORD grfFlags;
    DWORD grfMode;
    DWORD dwTickCountDeadline;
} BIND_OPTS, *LPBIND_OPTS;

typedef IStream* LPSTREAM;
typedef IStorage* LPSTORAGE;
typedef IMoniker* LPMONIKER;
typedef IBindCtx* LPBC;
typedef IBindCtx* LPBINDCTX;
typedef IRunningObjectTable* LPRUNNINGOBJECTTABLE;
typedef IEnumMoniker* LPENUMMONIKER;
typedef IPersistStream* LPPERSISTSTREAM;

// IRunningObjectTable::Register flags.
constexpr DWORD ROTFLAGS_REGISTRATIONKEEPSALIVE = 0x1;
constexpr DWORD ROTFLAGS_ALLOWANYCLIENT = 0x2;
constexpr DWORD ROT_COMPARE_MAX = 2048;

// The class of item monikers, as their IPersist::GetClassID answers it.
DEFINE_GUID(CLSID_ItemMoniker, 0x00000304, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);

DEFINE_GUID(IID_IEnumUnknown, 0x00000100, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IEnumUnknown : public IUnknown {
    STDMETHOD(Next)(ULONG celt, IUnknown** rgelt, ULONG* pceltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumUnknown** ppenum) PURE;
};
MW_DECLARE_IID(IEnumUnknown, IID_IEnumUnknown);

DEFINE_GUID(IID_IEnumString, 0x00000101, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IEnumString : public IUnknown {
    STDMETHOD(Next)(ULONG celt, LPOLESTR* rgelt, ULONG* pceltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumString** ppenum) PURE;
};
MW_DECLARE_IID(IEnumString, IID_IEnumString);

DEFINE_GUID(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE, 0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44,
            0x77, 0x3D);
struct ISequentialStream : public IUnknown {
    STDMETHOD(Read)(void* pv, ULONG cb, ULONG* pcbRead) PURE;
    STDMETHOD(Write)(const void* pv, ULONG cb, ULONG* pcbWritten) PURE;
};
MW_DECLARE_IID(ISequentialStream, IID_ISequentialStream);

DEFINE_GUID(IID_IStream, 0x0000000C, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IStream : public ISequentialStream {
    STDMETHOD(Seek)(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) PURE;
    STDMETHOD(SetSize)(ULARGE_INTEGER libNewSize) PURE;
    STDMETHOD(CopyTo)
    (IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead, ULARGE_INTEGER* pcbWritten) PURE;
    STDMETHOD(Commit)(DWORD grfCommitFlags) PURE;
    STDMETHOD(Revert)() PURE;
    STDMETHOD(LockRegion)(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) PURE;
    STDMETHOD(UnlockRegion)(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) PURE;
    STDMETHOD(Stat)(STATSTG* pstatstg, DWORD grfStatFlag) PURE;
    STDMETHOD(Clone)(IStream** ppstm) PURE;
};
MW_DECLARE_IID(IStream, IID_IStream);

DEFINE_GUID(IID_IEnumSTATSTG, 0x0000000D, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IEnumSTATSTG : public IUnknown {
    STDMETHOD(Next)(ULONG celt, STATSTG* rgelt, ULONG* pceltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumSTATSTG** ppenum) PURE;
};
MW_DECLARE_IID(IEnumSTATSTG, IID_IEnumSTATSTG);

DEFINE_GUID(IID_IStorage, 0x0000000B, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IStorage : public IUnknown {
    STDMETHOD(CreateStream)
    (const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
     IStream** ppstm) PURE;
    STDMETHOD(OpenStream)
    (const OLECHAR* pwcsName, void* reserved1, DWORD grfMode, DWORD reserved2,
     IStream** ppstm) PURE;
    STDMETHOD(CreateStorage)
    (const OLECHAR* pwcsName, DWORD grfMode, DWORD reserved1, DWORD reserved2,
     IStorage** ppstg) PURE;
    STDMETHOD(OpenStorage)
    (const OLECHAR* pwcsName, IStorage* pstgPriority, DWORD grfMode, SNB snbExclude, DWORD reserved,
     IStorage** ppstg) PURE;
    STDMETHOD(CopyTo)
    (DWORD ciidExclude, const IID* rgiidExclude, SNB snbExclude, IStorage* pstgDest) PURE;
    STDMETHOD(MoveElementTo)
    (const OLECHAR* pwcsName, IStorage* pstgDest, const OLECHAR* pwcsNewName, DWORD grfFlags) PURE;
    STDMETHOD(Commit)(DWORD grfCommitFlags) PURE;
    STDMETHOD(Revert)() PURE;
    STDMETHOD(EnumElements)
    (DWORD reserved1, void* reserved2, DWORD reserved3, IEnumSTATSTG** ppenum) PURE;
    STDMETHOD(DestroyElement)(const OLECHAR* pwcsName) PURE;
    STDMETHOD(RenameElement)(const OLECHAR* pwcsOldName, const OLECHAR* pwcsNewName) PURE;
    STDMETHOD(SetElementTimes)
    (const OLECHAR* pwcsName, const FILETIME* pctime, const FILETIME* patime,
     const FILETIME* pmtime) PURE;
    STDMETHOD(SetClass)(REFCLSID clsid) PURE;
    STDMETHOD(SetStateBits)(DWORD grfStateBits, DWORD grfMask) PURE;
    STDMETHOD(Stat)(STATSTG* pstatstg, DWORD grfStatFlag) PURE;
};
MW_DECLARE_IID(IStorage, IID_IStorage);

DEFINE_GUID(IID_IPersist, 0x0000010C, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IPersist : public IUnknown {
    STDMETHOD(GetClassID)(CLSID* pClassID) PURE;
};
MW_DECLARE_IID(IPersist, IID_IPersist);

DEFINE_GUID(IID_IPersistStream, 0x00000109, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x00, 0x46);
struct IPersistStream : public IPersist {
    STDMETHOD(IsDirty)() PURE;
    STDMETHOD(Load)(IStream* pStm) PURE;
    STDMETHOD(Save)(IStream* pStm, BOOL fClearDirty) PURE;
    STDMETHOD(GetSizeMax)(ULARGE_INTEGER* pcbSize) PURE;
};
MW_DECLARE_IID(IPersistStream, IID_IPersistStream);

DEFINE_GUID(IID_IPersistStorage, 0x0000010A, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x00, 0x46);
struct IPersistStorage : public IPersist {
    STDMETHOD(IsDirty)() PURE;
    STDMETHOD(InitNew)(IStorage* pStg) PURE;
    STDMETHOD(Load)(IStorage* pStg) PURE;
    STDMETHOD(Save)(IStorage* pStgSave, BOOL fSameAsLoad) PURE;
    STDMETHOD(SaveCompleted)(IStorage* pStgNew) PURE;
    STDMETHOD(HandsOffStorage)() PURE;
};
MW_DECLARE_IID(IPersistStorage, IID_IPersistStorage);

DEFINE_GUID(IID_IPersistFile, 0x0000010B, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IPersistFile : public IPersist {
    STDMETHOD(IsDirty)() PURE;
    STDMETHOD(Load)(LPCOLESTR pszFileName, DWORD dwMode) PURE;
    STDMETHOD(Save)(LPCOLESTR pszFileName, BOOL fRemember) PURE;
    STDMETHOD(SaveCompleted)(LPCOLESTR pszFileName) PURE;
    STDMETHOD(GetCurFile)(LPOLESTR* ppszFileName) PURE;
};
MW_DECLARE_IID(IPersistFile, IID_IPersistFile);

DEFINE_GUID(IID_IEnumMoniker, 0x00000102, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IEnumMoniker : public IUnknown {
    STDMETHOD(Next)(ULONG celt, IMoniker** rgelt, ULONG* pceltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumMoniker** ppenum) PURE;
};
MW_DECLARE_IID(IEnumMoniker, IID_IEnumMoniker);

DEFINE_GUID(IID_IMoniker, 0x0000000F, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IMoniker : public IPersistStream {
    STDMETHOD(BindToObject)
    (IBindCtx* pbc, IMoniker* pmkToLeft, REFIID riidResult, void** ppvResult) PURE;
    STDMETHOD(BindToStorage)(IBindCtx* pbc, IMoniker* pmkToLeft, REFIID riid, void** ppvObj) PURE;
    STDMETHOD(Reduce)
    (IBindCtx* pbc, DWORD dwReduceHowFar, IMoniker** ppmkToLeft, IMoniker** ppmkReduced) PURE;
    STDMETHOD(ComposeWith)
    (IMoniker* pmkRight, BOOL fOnlyIfNotGeneric, IMoniker** ppmkComposite) PURE;
    STDMETHOD(Enum)(BOOL fForward, IEnumMoniker** ppenumMoniker) PURE;
    STDMETHOD(IsEqual)(IMoniker* pmkOtherMoniker) PURE;
    STDMETHOD(Hash)(DWORD* pdwHash) PURE;
    STDMETHOD(IsRunning)(IBindCtx* pbc, IMoniker* pmkToLeft, IMoniker* pmkNewlyRunning) PURE;
    STDMETHOD(GetTimeOfLastChange)(IBindCtx* pbc, IMoniker* pmkToLeft, FILETIME* pFileTime) PURE;
    STDMETHOD(Inverse)(IMoniker** ppmk) PURE;
    STDMETHOD(CommonPrefixWith)(IMoniker* pmkOther, IMoniker** ppmkPrefix) PURE;
    STDMETHOD(RelativePathTo)(IMoniker* pmkOther, IMoniker** ppmkRelPath) PURE;
    STDMETHOD(GetDisplayName)(IBindCtx* pbc, IMoniker* pmkToLeft, LPOLESTR* ppszDisplayName) PURE;
    STDMETHOD(ParseDisplayName)
    (IBindCtx* pbc, IMoniker* pmkToLeft, LPOLESTR pszDisplayName, ULONG* pchEaten,
     IMoniker** ppmkOut) PURE;
    STDMETHOD(IsSystemMoniker)(DWORD* pdwMksys) PURE;
};
MW_DECLARE_IID(IMoniker, IID_IMoniker);

DEFINE_GUID(IID_IBindCtx, 0x0000000E, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IBindCtx : public IUnknown {
    STDMETHOD(RegisterObjectBound)(IUnknown* punk) PURE;
    STDMETHOD(RevokeObjectBound)(IUnknown* punk) PURE;
    STDMETHOD(ReleaseBoundObjects)() PURE;
    STDMETHOD(SetBindOptions)(BIND_OPTS* pbindopts) PURE;
    STDMETHOD(GetBindOptions)(BIND_OPTS* pbindopts) PURE;
    STDMETHOD(GetRunningObjectTable)(IRunningObjectTable** pprot) PURE;
    STDMETHOD(RegisterObjectParam)(LPOLESTR pszKey, IUnknown* punk) PURE;
    STDMETHOD(GetObjectParam)(LPOLESTR pszKey, IUnknown** ppunk) PURE;
    STDMETHOD(EnumObjectParam)(IEnumString** ppenum) PURE;
    STDMETHOD(RevokeObjectParam)(LPOLESTR pszKey) PURE;
};
MW_DECLARE_IID(IBindCtx, IID_IBindCtx);

DEFINE_GUID(IID_IRunningObjectTable, 0x00000010, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x00, 0x46);
struct IRunningObjectTable : public IUnknown {
    STDMETHOD(Register)
    (DWORD grfFlags, IUnknown* punkObject, IMoniker* pmkObjectName, DWORD* pdwRegister) PURE;
    STDMETHOD(Revoke)(DWORD dwRegister) PURE;
    STDMETHOD(IsRunning)(IMoniker* pmkObjectName) PURE;
    STDMETHOD(GetObject)(IMoniker* pmkObjectName, IUnknown** ppunkObject) PURE;
    STDMETHOD(NoteChangeTime)(DWORD dwRegister, FILETIME* pfiletime) PURE;
    STDMETHOD(GetTimeOfLastChange)(IMoniker* pmkObjectName, FILETIME* pfiletime) PURE;
    STDMETHOD(EnumRunning)(IEnumMoniker** ppenumMoniker) PURE;
};
MW_DECLARE_IID(IRunningObjectTable, IID_IRunningObjectTable);

DEFINE_GUID(IID_IROTData, 0xF29F6BC0, 0x5021, 0x11CE, 0xAA, 0x15, 0x00, 0x00, 0x69, 0x01, 0x29,
            0x3F);
struct IROTData : public IUnknown {
    STDMETHOD(GetComparisonData)(BYTE* pbData, ULONG cbMax, ULONG* pcbData) PURE;
};
MW_DECLARE_IID(IROTData, IID_IROTData);

DEFINE_GUID(IID_IParseDisplayName, 0x0000011A, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x00, 0x46);
struct IParseDisplayName : public IUnknown {
    STDMETHOD(ParseDisplayName)
    (IBindCtx* pbc, LPOLESTR pszDisplayName, ULONG* pchEaten, IMoniker** ppmkOut) PURE;
};
MW_DECLARE_IID(IParseDisplayName, IID_IParseDisplayName);

DEFINE_GUID(IID_IMalloc, 0x00000002, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IMalloc : public IUnknown {
    STDMETHOD_(void*, Alloc)(SIZE_T cb) PURE;
    STDMETHOD_(void*, Realloc)(void* pv, SIZE_T cb) PURE;
    STDMETHOD_(void, Free)(void* pv) PURE;
    STDMETHOD_(SIZE_T, GetSize)(void* pv) PURE;
    STDMETHOD_(int, DidAlloc)(void* pv) PURE;
    STDMETHOD_(void, HeapMinimize)() PURE;
};
MW_DECLARE_IID(IMalloc, IID_IMalloc);

DEFINE_GUID(IID_ILockBytes, 0x0000000A, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct ILockBytes : public IUnknown {
    STDMETHOD(ReadAt)(ULARGE_INTEGER ulOffset, void* pv, ULONG cb, ULONG* pcbRead) PURE;
    STDMETHOD(WriteAt)(ULARGE_INTEGER ulOffset, const void* pv, ULONG cb, ULONG* pcbWritten) PURE;
    STDMETHOD(Flush)() PURE;
    STDMETHOD(SetSize)(ULARGE_INTEGER cb) PURE;
    STDMETHOD(LockRegion)(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) PURE;
    STDMETHOD(UnlockRegion)(ULARGE_INTEGER libOffset, ULARGE_INTEGER cb, DWORD dwLockType) PURE;
    STDMETHOD(Stat)(STATSTG* pstatstg, DWORD grfStatFlag) PURE;
};
MW_DECLARE_IID(ILockBytes, IID_ILockBytes);
