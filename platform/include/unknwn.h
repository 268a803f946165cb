// IUnknown, the root of every reference-counted interface, the platform's and the system's.
#pragma once

#include <type_traits>

#include "guiddef.h"
#include "winerror.h"

DEFINE_GUID(IID_IUnknown, 0x00000000, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);

struct IUnknown {
    STDMETHOD(QueryInterface)(REFIID riid, void** ppvObject) PURE;
    STDMETHOD_(ULONG, AddRef)() PURE;
    STDMETHOD_(ULONG, Release)() PURE;

protected:
    ~IUnknown() = default;  // objects die through Release
};
typedef IUnknown* LPUNKNOWN;

// Associates an interface with its IID so that typed QueryInterface needs no IID argument.
template <class T>
struct MwIidOf;
#define MW_DECLARE_IID(Interface, iid)                       \
    template <>                                              \
    struct MwIidOf<Interface> {                              \
        static constexpr const GUID& Value() { return iid; } \
    }
MW_DECLARE_IID(IUnknown, IID_IUnknown);

template <class T>
constexpr const GUID& MwIid() {
    return MwIidOf<T>::Value();
}
#define IID_PPV_ARGS(pp)                                                 \
    MwIid<std::remove_pointer_t<std::remove_pointer_t<decltype(pp)>>>(), \
        reinterpret_cast<void**>(pp)

// ---- Added for the COM core (issue 3) ----
// The class object of a creatable class (CoGetClassObject, CoRegisterClassObject).
DEFINE_GUID(IID_IClassFactory, 0x00000001, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x46);
struct IClassFactory : public IUnknown {
    STDMETHOD(CreateInstance)(IUnknown* pUnkOuter, REFIID riid, void** ppvObject) PURE;
    STDMETHOD(LockServer)(BOOL fLock) PURE;
};
MW_DECLARE_IID(IClassFactory, IID_IClassFactory);
typedef IClassFactory* LPCLASSFACTORY;
