// Interfaces of OLE controls that the media services use: persistence through property bags,
// property pages and their sites.
#pragma once

#include "oaidl.h"

struct IPersistPropertyBag;
struct ISpecifyPropertyPages;
struct IPropertyPageSite;
struct IPropertyPage;
struct IPropertyPage2;
struct IPersistStreamInit;
struct tagMSG;  // winuser.h
typedef struct tagMSG MSG;
typedef MSG* LPMSG;

typedef struct tagCAUUID {
    ULONG cElems;
    GUID* pElems;
} CAUUID;

typedef struct tagPROPPAGEINFO {
    ULONG cb;
    LPOLESTR pszTitle;
    SIZE size;
    LPOLESTR pszDocString;
    LPOLESTR pszHelpFile;
    DWORD dwHelpContext;
} PROPPAGEINFO;
typedef CAUUID* LPCAUUID;
typedef PROPPAGEINFO* LPPROPPAGEINFO;

DEFINE_GUID(IID_IPersistPropertyBag, 0x37D84F60, 0x42CB, 0x11CE, 0x81, 0x35, 0x00, 0xAA, 0x00, 0x4B,
            0xB8, 0x51);
struct IPersistPropertyBag : public IPersist {
    STDMETHOD(InitNew)() PURE;
    STDMETHOD(Load)(IPropertyBag* pPropBag, IErrorLog* pErrorLog) PURE;
    STDMETHOD(Save)(IPropertyBag* pPropBag, BOOL fClearDirty, BOOL fSaveAllProperties) PURE;
};
MW_DECLARE_IID(IPersistPropertyBag, IID_IPersistPropertyBag);

DEFINE_GUID(IID_ISpecifyPropertyPages, 0xB196B28B, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00,
            0x34, 0x1D, 0x07);
struct ISpecifyPropertyPages : public IUnknown {
    STDMETHOD(GetPages)(CAUUID* pPages) PURE;
};
MW_DECLARE_IID(ISpecifyPropertyPages, IID_ISpecifyPropertyPages);

DEFINE_GUID(IID_IPropertyPageSite, 0xB196B28C, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34,
            0x1D, 0x07);
struct IPropertyPageSite : public IUnknown {
    STDMETHOD(OnStatusChange)(DWORD dwFlags) PURE;
    STDMETHOD(GetLocaleID)(LCID* pLocaleID) PURE;
    STDMETHOD(GetPageContainer)(IUnknown** ppUnk) PURE;
    STDMETHOD(TranslateAccelerator)(MSG* pMsg) PURE;
};
MW_DECLARE_IID(IPropertyPageSite, IID_IPropertyPageSite);

DEFINE_GUID(IID_IPropertyPage, 0xB196B28D, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D,
            0x07);
struct IPropertyPage : public IUnknown {
    STDMETHOD(SetPageSite)(IPropertyPageSite* pPageSite) PURE;
    STDMETHOD(Activate)(HWND hWndParent, LPCRECT pRect, BOOL bModal) PURE;
    STDMETHOD(Deactivate)() PURE;
    STDMETHOD(GetPageInfo)(PROPPAGEINFO* pPageInfo) PURE;
    STDMETHOD(SetObjects)(ULONG cObjects, IUnknown** ppUnk) PURE;
    STDMETHOD(Show)(UINT nCmdShow) PURE;
    STDMETHOD(Move)(LPCRECT pRect) PURE;
    STDMETHOD(IsPageDirty)() PURE;
    STDMETHOD(Apply)() PURE;
    STDMETHOD(Help)(LPCOLESTR pszHelpDir) PURE;
    STDMETHOD(TranslateAccelerator)(MSG* pMsg) PURE;
};
MW_DECLARE_IID(IPropertyPage, IID_IPropertyPage);

DEFINE_GUID(IID_IPropertyPage2, 0x01E44665, 0x24AC, 0x101B, 0x84, 0xED, 0x08, 0x00, 0x2B, 0x2E,
            0xC7, 0x13);
struct IPropertyPage2 : public IPropertyPage {
    STDMETHOD(EditProperty)(DISPID dispID) PURE;
};
MW_DECLARE_IID(IPropertyPage2, IID_IPropertyPage2);

DEFINE_GUID(IID_IPersistStreamInit, 0x7FD52380, 0x4E07, 0x101B, 0xAE, 0x2D, 0x08, 0x00, 0x2B, 0x2E,
            0xC7, 0x13);
struct IPersistStreamInit : public IPersist {
    STDMETHOD(IsDirty)() PURE;
    STDMETHOD(Load)(LPSTREAM pStm) PURE;
    STDMETHOD(Save)(LPSTREAM pStm, BOOL fClearDirty) PURE;
    STDMETHOD(GetSizeMax)(ULARGE_INTEGER* pCbSize) PURE;
    STDMETHOD(InitNew)() PURE;
};
MW_DECLARE_IID(IPersistStreamInit, IID_IPersistStreamInit);
