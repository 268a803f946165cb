// ComPtr<T>: the one intrusive smart pointer for every reference-counted interface,
// the platform's and the system's. Holds one reference; never throws.
#pragma once

#include <utility>

#include "unknwn.h"

template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    ComPtr(T* p) noexcept : p_(p) {  // adds a reference
        if (p_) p_->AddRef();
    }
    ComPtr(const ComPtr& o) noexcept : ComPtr(o.p_) {}
    ComPtr(ComPtr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    ComPtr(const ComPtr<U>& o) noexcept : ComPtr(static_cast<T*>(o.Get())) {}
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    ComPtr(ComPtr<U>&& o) noexcept : p_(o.Detach()) {}
    ~ComPtr() { Reset(); }

    ComPtr& operator=(const ComPtr& o) noexcept {
        ComPtr(o).Swap(*this);
        return *this;
    }
    ComPtr& operator=(ComPtr&& o) noexcept {
        ComPtr(std::move(o)).Swap(*this);
        return *this;
    }
    ComPtr& operator=(T* p) noexcept {
        ComPtr(p).Swap(*this);
        return *this;
    }
    ComPtr& operator=(std::nullptr_t) noexcept {
        Reset();
        return *this;
    }

    T* Get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    // Takes over a reference the caller already owns (an out parameter's result).
    void Attach(T* p) noexcept {
        Reset();
        p_ = p;
    }
    // Gives up the reference without releasing it.
    T* Detach() noexcept { return std::exchange(p_, nullptr); }
    void Reset() noexcept {
        if (T* p = std::exchange(p_, nullptr)) p->Release();
    }
    void Swap(ComPtr& o) noexcept { std::swap(p_, o.p_); }

    // For out parameters: releases what is held and gives the address to fill.
    T** ReleaseAndGetAddressOf() noexcept {
        Reset();
        return &p_;
    }
    T** GetAddressOf() noexcept { return &p_; }
    void** ReleaseAndGetVoidAddress() noexcept {
        return reinterpret_cast<void**>(ReleaseAndGetAddressOf());
    }

    // QueryInterface into another smart pointer.
    template <class U>
    HRESULT As(ComPtr<U>* out) const noexcept {
        if (!p_) return E_POINTER;
        return p_->QueryInterface(MwIid<U>(), out->ReleaseAndGetVoidAddress());
    }
    template <class U>
    ComPtr<U> As() const noexcept {
        ComPtr<U> r;
        As(&r);
        return r;
    }
    // Hands out an added reference through a raw out parameter.
    HRESULT CopyTo(T** out) const noexcept {
        if (!out) return E_POINTER;
        *out = p_;
        if (p_) p_->AddRef();
        return S_OK;
    }

    friend bool operator==(const ComPtr& a, const ComPtr& b) noexcept { return a.p_ == b.p_; }
    friend bool operator==(const ComPtr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

private:
    T* p_ = nullptr;
};

// Wraps a reference the caller owns (for example a fresh object whose count is already 1).
template <class T>
ComPtr<T> MwAdopt(T* p) noexcept {
    ComPtr<T> r;
    r.Attach(p);
    return r;
}
