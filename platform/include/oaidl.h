// OLE automation types: BSTR, VARIANT, SAFEARRAY, IDispatch, error info and property bags.
// The functions that manage these types are in oleauto.h.
#pragma once

#include "objidl.h"

struct IDispatch;
struct ITypeInfo;  // type information is not provided; IDispatch::GetTypeInfo answers E_NOTIMPL
struct IRecordInfo;
struct IEnumVARIANT;
struct IErrorInfo;
struct ICreateErrorInfo;
struct ISupportErrorInfo;
struct IErrorLog;
struct IPropertyBag;

// A length-prefixed UTF-16 string from SysAllocString; the 32-bit byte length stands just
// before the first character, and the text is null-terminated.
typedef OLECHAR* BSTR;
typedef BSTR* LPBSTR;
typedef USHORT VARTYPE;
typedef SHORT VARIANT_BOOL;
typedef double DATE;
typedef LONG DISPID;
typedef DISPID MEMBERID;
typedef DWORD HREFTYPE;
constexpr VARIANT_BOOL VARIANT_TRUE = -1;
constexpr VARIANT_BOOL VARIANT_FALSE = 0;

typedef union tagCY {
    struct {
        ULONG Lo;
        LONG Hi;
    };
    LONGLONG int64;
} CY, CURRENCY;

typedef struct tagDEC {
    USHORT wReserved;
    union {
        struct {
            BYTE scale;
            BYTE sign;
        };
        USHORT signscale;
    };
    ULONG Hi32;
    union {
        struct {
            ULONG Lo32;
            ULONG Mid32;
        };
        ULONGLONG Lo64;
    };
} DECIMAL;

typedef struct tagSAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
} SAFEARRAYBOUND, *LPSAFEARRAYBOUND;

typedef struct tagSAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    PVOID pvData;
    SAFEARRAYBOUND rgsabound[1];
} SAFEARRAY, *LPSAFEARRAY;

constexpr USHORT FADF_AUTO = 0x1;
constexpr USHORT FADF_STATIC = 0x2;
constexpr USHORT FADF_EMBEDDED = 0x4;
constexpr USHORT FADF_FIXEDSIZE = 0x10;
constexpr USHORT FADF_RECORD = 0x20;
constexpr USHORT FADF_HAVEIID = 0x40;
constexpr USHORT FADF_HAVEVARTYPE = 0x80;
constexpr USHORT FADF_BSTR = 0x100;
constexpr USHORT FADF_UNKNOWN = 0x200;
constexpr USHORT FADF_DISPATCH = 0x400;
constexpr USHORT FADF_VARIANT = 0x800;

enum VARENUM {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_VOID = 24,
    VT_HRESULT = 25,
    VT_PTR = 26,
    VT_SAFEARRAY = 27,
    VT_CARRAY = 28,
    VT_USERDEFINED = 29,
    VT_LPSTR = 30,
    VT_LPWSTR = 31,
    VT_RECORD = 36,
    VT_INT_PTR = 37,
    VT_UINT_PTR = 38,
    VT_FILETIME = 64,
    VT_BLOB = 65,
    VT_STREAM = 66,
    VT_STORAGE = 67,
    VT_STREAMED_OBJECT = 68,
    VT_STORED_OBJECT = 69,
    VT_BLOB_OBJECT = 70,
    VT_CF = 71,
    VT_CLSID = 72,
    VT_VERSIONED_STREAM = 73,
    VT_BSTR_BLOB = 0xfff,
    VT_VECTOR = 0x1000,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
    VT_RESERVED = 0x8000,
    VT_ILLEGAL = 0xffff,
    VT_ILLEGALMASKED = 0xfff,
    VT_TYPEMASK = 0xfff
};

// The platform's 24-byte (LP64) variant record.
typedef struct tagVARIANT {
    union {
        struct {
            VARTYPE vt;
            WORD wReserved1;
            WORD wReserved2;
            WORD wReserved3;
            union {
                LONGLONG llVal;
                LONG lVal;
                BYTE bVal;
                SHORT iVal;
                FLOAT fltVal;
                DOUBLE dblVal;
                VARIANT_BOOL boolVal;
                SCODE scode;
                CY cyVal;
                DATE date;
                BSTR bstrVal;
                IUnknown* punkVal;
                IDispatch* pdispVal;
                SAFEARRAY* parray;
                BYTE* pbVal;
                SHORT* piVal;
                LONG* plVal;
                LONGLONG* pllVal;
                FLOAT* pfltVal;
                DOUBLE* pdblVal;
                VARIANT_BOOL* pboolVal;
                SCODE* pscode;
                CY* pcyVal;
                DATE* pdate;
                BSTR* pbstrVal;
                IUnknown** ppunkVal;
                IDispatch** ppdispVal;
                SAFEARRAY** pparray;
                struct tagVARIANT* pvarVal;
                PVOID byref;
                CHAR cVal;
                USHORT uiVal;
                ULONG ulVal;
                ULONGLONG ullVal;
                INT intVal;
                UINT uintVal;
                DECIMAL* pdecVal;
                CHAR* pcVal;
                USHORT* puiVal;
                ULONG* pulVal;
                ULONGLONG* pullVal;
                INT* pintVal;
                UINT* puintVal;
                struct {
                    PVOID pvRecord;
                    IRecordInfo* pRecInfo;
                } brecVal;
            };
        };
        DECIMAL decVal;
    };
} VARIANT, VARIANTARG, *LPVARIANT, *LPVARIANTARG;
typedef const VARIANT* REFVARIANT;
static_assert(sizeof(VARIANT) == 8 + 2 * sizeof(void*), "VARIANT as the platform lays it out");

#define V_VT(X) ((X)->vt)
#define V_ISBYREF(X) (V_VT(X) & VT_BYREF)
#define V_ISARRAY(X) (V_VT(X) & VT_ARRAY)
#define V_I2(X) ((X)->iVal)
#define V_I4(X) ((X)->lVal)
#define V_I8(X) ((X)->llVal)
#define V_UI1(X) ((X)->bVal)
#define V_UI4(X) ((X)->ulVal)
#define V_R8(X) ((X)->dblVal)
#define V_BOOL(X) ((X)->boolVal)
#define V_BSTR(X) ((X)->bstrVal)
#define V_UNKNOWN(X) ((X)->punkVal)
#define V_DISPATCH(X) ((X)->pdispVal)
#define V_ARRAY(X) ((X)->parray)

typedef struct tagDISPPARAMS {
    VARIANTARG* rgvarg;
    DISPID* rgdispidNamedArgs;
    UINT cArgs;
    UINT cNamedArgs;
} DISPPARAMS;

typedef struct tagEXCEPINFO {
    WORD wCode;
    WORD wReserved;
    BSTR bstrSource;
    BSTR bstrDescription;
    BSTR bstrHelpFile;
    DWORD dwHelpContext;
    ULONG_PTR pvReserved;
    HRESULT(STDMETHODCALLTYPE* pfnDeferredFillIn)(struct tagEXCEPINFO*);
    SCODE scode;
} EXCEPINFO, *LPEXCEPINFO;

constexpr DISPID DISPID_UNKNOWN = -1;
constexpr DISPID DISPID_VALUE = 0;
constexpr DISPID DISPID_PROPERTYPUT = -3;
constexpr DISPID DISPID_NEWENUM = -4;
constexpr WORD DISPATCH_METHOD = 0x1;
constexpr WORD DISPATCH_PROPERTYGET = 0x2;
constexpr WORD DISPATCH_PROPERTYPUT = 0x4;
constexpr WORD DISPATCH_PROPERTYPUTREF = 0x8;

DEFINE_GUID(IID_IDispatch, 0x00020400, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IDispatch : public IUnknown {
    STDMETHOD(GetTypeInfoCount)(UINT* pctinfo) PURE;
    STDMETHOD(GetTypeInfo)(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) PURE;
    STDMETHOD(GetIDsOfNames)
    (REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId) PURE;
    STDMETHOD(Invoke)
    (DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
     VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) PURE;
};
MW_DECLARE_IID(IDispatch, IID_IDispatch);

DEFINE_GUID(IID_IEnumVARIANT, 0x00020404, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IEnumVARIANT : public IUnknown {
    STDMETHOD(Next)(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) PURE;
    STDMETHOD(Skip)(ULONG celt) PURE;
    STDMETHOD(Reset)() PURE;
    STDMETHOD(Clone)(IEnumVARIANT** ppEnum) PURE;
};
MW_DECLARE_IID(IEnumVARIANT, IID_IEnumVARIANT);

DEFINE_GUID(IID_IErrorInfo, 0x1CF2B120, 0x547D, 0x101B, 0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1,
            0x19);
struct IErrorInfo : public IUnknown {
    STDMETHOD(GetGUID)(GUID* pGUID) PURE;
    STDMETHOD(GetSource)(BSTR* pBstrSource) PURE;
    STDMETHOD(GetDescription)(BSTR* pBstrDescription) PURE;
    STDMETHOD(GetHelpFile)(BSTR* pBstrHelpFile) PURE;
    STDMETHOD(GetHelpContext)(DWORD* pdwHelpContext) PURE;
};
MW_DECLARE_IID(IErrorInfo, IID_IErrorInfo);

DEFINE_GUID(IID_ICreateErrorInfo, 0x22F03340, 0x547D, 0x101B, 0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B,
            0xD1, 0x19);
struct ICreateErrorInfo : public IUnknown {
    STDMETHOD(SetGUID)(REFGUID rguid) PURE;
    STDMETHOD(SetSource)(LPOLESTR szSource) PURE;
    STDMETHOD(SetDescription)(LPOLESTR szDescription) PURE;
    STDMETHOD(SetHelpFile)(LPOLESTR szHelpFile) PURE;
    STDMETHOD(SetHelpContext)(DWORD dwHelpContext) PURE;
};
MW_DECLARE_IID(ICreateErrorInfo, IID_ICreateErrorInfo);

DEFINE_GUID(IID_ISupportErrorInfo, 0xDF0B3D60, 0x548F, 0x101B, 0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B,
            0xD1, 0x19);
struct ISupportErrorInfo : public IUnknown {
    STDMETHOD(InterfaceSupportsErrorInfo)(REFIID riid) PURE;
};
MW_DECLARE_IID(ISupportErrorInfo, IID_ISupportErrorInfo);

DEFINE_GUID(IID_IErrorLog, 0x3127CA40, 0x446E, 0x11CE, 0x81, 0x35, 0x00, 0xAA, 0x00, 0x4B, 0xB8,
            0x51);
struct IErrorLog : public IUnknown {
    STDMETHOD(AddError)(LPCOLESTR pszPropName, EXCEPINFO* pExcepInfo) PURE;
};
MW_DECLARE_IID(IErrorLog, IID_IErrorLog);

DEFINE_GUID(IID_IPropertyBag, 0x55272A00, 0x42CB, 0x11CE, 0x81, 0x35, 0x00, 0xAA, 0x00, 0x4B, 0xB8,
            0x51);
struct IPropertyBag : public IUnknown {
    STDMETHOD(Read)(LPCOLESTR pszPropName, VARIANT* pVar, IErrorLog* pErrorLog) PURE;
    STDMETHOD(Write)(LPCOLESTR pszPropName, VARIANT* pVar) PURE;
};
MW_DECLARE_IID(IPropertyBag, IID_IPropertyBag);
typedef IPropertyBag* LPPROPERTYBAG;
typedef IErrorLog* LPERRORLOG;
typedef IDispatch* LPDISPATCH;
