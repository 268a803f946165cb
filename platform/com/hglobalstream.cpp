// Streams over global memory blocks (CreateStreamOnHGlobal) and the persistence helpers that
// write a class id before an object's data.
#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "ComObject.h"
#include "mwcom.h"
#include "winmem.h"

namespace {

using mw::com::QueryTable;

// The block may be larger than the stream: the logical size is kept apart, as the platform
// does. Clones share the block and the size, each with its own position.
struct Shared {
    std::mutex mutex;
    HGLOBAL block = nullptr;
    uint64_t size = 0;
    bool deleteOnRelease = false;
    ~Shared() {
        if (deleteOnRelease && block) GlobalFree(block);
    }
};

class HGlobalStream final : public IStream {
    MW_COM_REFCOUNT
public:
    HGlobalStream(std::shared_ptr<Shared> s, uint64_t pos) : s_(std::move(s)), pos_(pos) {}

    HGLOBAL Block() const { return s_->block; }

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
        return QueryTable(riid, ppv, {{&IID_IStream, this}, {&IID_ISequentialStream, this}});
    }
    STDMETHODIMP Read(void* pv, ULONG cb, ULONG* pcbRead) override {
        if (pcbRead) *pcbRead = 0;
        if (!pv) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(s_->mutex);
        const size_t n =
            pos_ >= s_->size ? 0 : static_cast<size_t>(std::min<uint64_t>(cb, s_->size - pos_));
        if (n) {
            auto* p = static_cast<uint8_t*>(GlobalLock(s_->block));
            if (!p) return E_HANDLE;
            std::memcpy(pv, p + pos_, n);
            GlobalUnlock(s_->block);
        }
        pos_ += n;
        if (pcbRead) *pcbRead = static_cast<ULONG>(n);
        return S_OK;
    }
    STDMETHODIMP Write(const void* pv, ULONG cb, ULONG* pcbWritten) override {
        if (pcbWritten) *pcbWritten = 0;
        if (!pv && cb) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(s_->mutex);
        if (pos_ + cb > s_->size) {
            HRESULT hr = Resize(pos_ + cb);
            if (FAILED(hr)) return hr;
        }
        if (cb) {
            auto* p = static_cast<uint8_t*>(GlobalLock(s_->block));
            if (!p) return E_HANDLE;
            std::memcpy(p + pos_, pv, cb);
            GlobalUnlock(s_->block);
        }
        pos_ += cb;
        if (pcbWritten) *pcbWritten = cb;
        return S_OK;
    }
    STDMETHODIMP Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin,
                      ULARGE_INTEGER* plibNewPosition) override {
        std::lock_guard lock(s_->mutex);
        return mw::com::SeekStream(pos_, s_->size, dlibMove, dwOrigin, plibNewPosition);
    }
    STDMETHODIMP SetSize(ULARGE_INTEGER libNewSize) override {
        std::lock_guard lock(s_->mutex);
        return Resize(libNewSize.QuadPart);
    }
    STDMETHODIMP CopyTo(IStream* pstm, ULARGE_INTEGER cb, ULARGE_INTEGER* pcbRead,
                        ULARGE_INTEGER* pcbWritten) override {
        if (!pstm) return STG_E_INVALIDPOINTER;
        std::vector<uint8_t> chunk;
        {
            std::lock_guard lock(s_->mutex);
            const size_t n =
                pos_ >= s_->size
                    ? 0
                    : static_cast<size_t>(std::min<uint64_t>(cb.QuadPart, s_->size - pos_));
            if (n) {
                auto* p = static_cast<uint8_t*>(GlobalLock(s_->block));
                if (!p) return E_HANDLE;
                chunk.assign(p + pos_, p + pos_ + n);
                GlobalUnlock(s_->block);
            }
            pos_ += n;
        }
        ULONG written = 0;
        HRESULT hr = chunk.empty()
                         ? S_OK
                         : pstm->Write(chunk.data(), static_cast<ULONG>(chunk.size()), &written);
        if (pcbRead) pcbRead->QuadPart = chunk.size();
        if (pcbWritten) pcbWritten->QuadPart = written;
        return hr;
    }
    STDMETHODIMP Commit(DWORD) override { return S_OK; }
    STDMETHODIMP Revert() override { return S_OK; }
    STDMETHODIMP LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    STDMETHODIMP UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
        return STG_E_INVALIDFUNCTION;
    }
    STDMETHODIMP Stat(STATSTG* pstatstg, DWORD) override {
        if (!pstatstg) return STG_E_INVALIDPOINTER;
        std::memset(pstatstg, 0, sizeof *pstatstg);
        std::lock_guard lock(s_->mutex);
        pstatstg->type = STGTY_STREAM;
        pstatstg->cbSize.QuadPart = s_->size;
        pstatstg->grfMode = STGM_READWRITE;
        return S_OK;
    }
    STDMETHODIMP Clone(IStream** ppstm) override {
        if (!ppstm) return STG_E_INVALIDPOINTER;
        std::lock_guard lock(s_->mutex);
        *ppstm = new HGlobalStream(s_, pos_);
        return S_OK;
    }

private:
    // Caller holds the mutex.
    HRESULT Resize(uint64_t size) {
        if (size > 0xFFFFFFFFull) return STG_E_MEDIUMFULL;
        if (size > GlobalSize(s_->block)) {
            HGLOBAL h = GlobalReAlloc(s_->block, static_cast<SIZE_T>(size), GMEM_MOVEABLE);
            if (!h) return E_OUTOFMEMORY;
            s_->block = h;
        }
        s_->size = size;
        return S_OK;
    }

    std::shared_ptr<Shared> s_;
    uint64_t pos_;
};

}  // namespace

HRESULT WINAPI CreateStreamOnHGlobal(HGLOBAL hGlobal, BOOL fDeleteOnRelease, LPSTREAM* ppstm) {
    if (!ppstm) return E_INVALIDARG;
    *ppstm = nullptr;
    auto s = std::make_shared<Shared>();
    if (hGlobal) {
        if (GlobalFlags(hGlobal) == GMEM_INVALID_HANDLE) return E_INVALIDARG;
        s->block = hGlobal;
        s->size = GlobalSize(hGlobal);
    } else {
        s->block = GlobalAlloc(GMEM_MOVEABLE, 0);
        if (!s->block) return E_OUTOFMEMORY;
    }
    s->deleteOnRelease = fDeleteOnRelease != FALSE;
    *ppstm = new HGlobalStream(std::move(s), 0);
    return S_OK;
}

HRESULT WINAPI GetHGlobalFromStream(LPSTREAM pstm, HGLOBAL* phglobal) {
    if (!pstm || !phglobal) return E_INVALIDARG;
    *phglobal = nullptr;
    auto* s = dynamic_cast<HGlobalStream*>(pstm);
    if (!s) return E_INVALIDARG;
    *phglobal = s->Block();
    return S_OK;
}

HRESULT WINAPI WriteClassStm(LPSTREAM pStm, REFCLSID rclsid) {
    if (!pStm) return E_INVALIDARG;
    return pStm->Write(&rclsid, sizeof(CLSID), nullptr);
}

HRESULT WINAPI ReadClassStm(LPSTREAM pStm, CLSID* pclsid) {
    if (!pStm || !pclsid) return E_INVALIDARG;
    ULONG got = 0;
    HRESULT hr = pStm->Read(pclsid, sizeof(CLSID), &got);
    if (FAILED(hr)) return hr;
    return got == sizeof(CLSID) ? S_OK : STG_E_READFAULT;
}

HRESULT WINAPI OleSaveToStream(IPersistStream* pPStm, LPSTREAM pStm) {
    if (!pPStm || !pStm) return E_INVALIDARG;
    CLSID clsid;
    HRESULT hr = pPStm->GetClassID(&clsid);
    if (FAILED(hr)) return hr;
    hr = WriteClassStm(pStm, clsid);
    if (FAILED(hr)) return hr;
    return pPStm->Save(pStm, TRUE);
}

HRESULT WINAPI OleLoadFromStream(LPSTREAM pStm, REFIID iidInterface, LPVOID* ppvObj) {
    if (!ppvObj) return E_INVALIDARG;
    *ppvObj = nullptr;
    if (!pStm) return E_INVALIDARG;
    CLSID clsid;
    HRESULT hr = ReadClassStm(pStm, &clsid);
    if (FAILED(hr)) return hr;
    ComPtr<IPersistStream> obj;
    hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IPersistStream,
                          obj.ReleaseAndGetVoidAddress());
    if (FAILED(hr)) return hr;
    hr = obj->Load(pStm);
    if (FAILED(hr)) return hr;
    return obj->QueryInterface(iidInterface, ppvObj);
}
