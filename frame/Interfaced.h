// Reference-counted implementation of the system's COM-style interfaces.
//
// TInterfacedObject<I1, I2, ...> is a TObject implementing IUnknown for the listed interfaces:
// QueryInterface answers IID_IUnknown, the IID of each listed interface and the IIDs of the
// interfaces they extend (declared with MW_INTERFACE_BASE). The count is atomic: references
// may be taken and dropped on any thread; the object is deleted when the last one goes.
//
// TNoRefCountObject<...> is for objects owned by a component that hand an interface of their
// own to the platform: AddRef answers 2 and Release 1, and the owner alone frees the object.
#pragma once

#include <atomic>
#include <tuple>

#include "comptr.h"
#include "frame/Object.h"

// Declares that interface I extends interface Base, so that QueryInterface for Base's IID
// finds an object that implements I. Write it next to the interface's MW_DECLARE_IID.
template <class I>
struct MwInterfaceBase {
    using type = void;
};
#define MW_INTERFACE_BASE(I, Base) \
    template <>                    \
    struct MwInterfaceBase<I> {    \
        using type = Base;         \
    }

namespace mw::detail {
template <class I>
bool QueryOne(I* self, REFIID riid, void** ppv) {
    if constexpr (std::is_same_v<I, IUnknown> || std::is_same_v<I, void>) {
        return false;
    } else {
        if (IsEqualIID(riid, MwIid<I>())) {
            *ppv = self;
            return true;
        }
        using Base = typename MwInterfaceBase<I>::type;
        if constexpr (!std::is_same_v<Base, void>) return QueryOne<Base>(self, riid, ppv);
        return false;
    }
}
}  // namespace mw::detail

template <class... Interfaces>
class TInterfacedBase : public TObject, public Interfaces... {
    static_assert(sizeof...(Interfaces) > 0);
    using First = std::tuple_element_t<0, std::tuple<Interfaces...>>;

public:
    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        if (IsEqualIID(riid, IID_IUnknown)) {
            *ppv = static_cast<IUnknown*>(static_cast<First*>(this));
        } else if (!(mw::detail::QueryOne<Interfaces>(static_cast<Interfaces*>(this), riid, ppv) ||
                     ...)) {
            if (!QueryOther(riid, ppv)) return E_NOINTERFACE;
        }
        static_cast<First*>(this)->AddRef();  // the final overrider, whichever base names it
        return S_OK;
    }

protected:
    // Further interfaces answered by a subclass; fill *ppv without adding a reference.
    virtual bool QueryOther(REFIID, void**) { return false; }
};

template <class... Interfaces>
class TInterfacedObject : public TInterfacedBase<Interfaces...> {
public:
    STDMETHODIMP_(ULONG) AddRef() override {
        return FRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    STDMETHODIMP_(ULONG) Release() override {
        ULONG n = FRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (n == 0) delete this;
        return n;
    }
    ULONG RefCount() const { return FRefCount.load(std::memory_order_relaxed); }

protected:
    ~TInterfacedObject() override = default;

private:
    std::atomic<ULONG> FRefCount{0};
};

template <class... Interfaces>
class TNoRefCountObject : public TInterfacedBase<Interfaces...> {
public:
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
};

// Creates a reference-counted object and hands back the first reference.
template <class T, class... Args>
ComPtr<T> MwNew(Args&&... args) {
    return ComPtr<T>(new T(std::forward<Args>(args)...));
}
