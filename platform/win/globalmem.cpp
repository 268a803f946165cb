// The global heap: a process-wide table of blocks, so that every handle is checked.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "winbase.h"
#include "winerror.h"
#include "winmem.h"

namespace {

struct Block {
    void* data = nullptr;
    SIZE_T size = 0;
    bool moveable = false;
    UINT locks = 0;
};

struct Heap {
    std::mutex mutex;
    std::unordered_map<HGLOBAL, Block> blocks;           // by handle
    std::unordered_map<const void*, HGLOBAL> byAddress;  // moveable blocks by their data
    uintptr_t nextMoveable = 1;
};

Heap& TheHeap() {
    static Heap* heap = new Heap;  // never destroyed: blocks may be freed during exit
    return *heap;
}

constexpr UINT kKnownFlags = GMEM_MOVEABLE | GMEM_NOCOMPACT | GMEM_NODISCARD | GMEM_ZEROINIT |
                             GMEM_MODIFY | GMEM_DISCARDABLE | GMEM_SHARE;

// Moveable handles are odd multiples of 4 in a range no heap address takes, so that a handle
// never equals the address of a fixed block.
HGLOBAL NewMoveableHandle(Heap& h) {
    return reinterpret_cast<HGLOBAL>(static_cast<uintptr_t>(0x10000 + 4 * h.nextMoveable++ + 2));
}

void* AllocData(SIZE_T bytes, bool zero) {
    void* p = zero ? std::calloc(bytes ? bytes : 1, 1) : std::malloc(bytes ? bytes : 1);
    return p;
}

}  // namespace

// The block of a handle; an unknown handle sets ERROR_INVALID_HANDLE and gives null.
// Called with the heap's mutex held.
Block* FindBlock(Heap& h, HGLOBAL hMem) {
    auto it = h.blocks.find(hMem);
    if (it != h.blocks.end()) return &it->second;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

HGLOBAL WINAPI GlobalAlloc(UINT uFlags, SIZE_T dwBytes) {
    if (uFlags & ~kKnownFlags) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    void* data = AllocData(dwBytes, uFlags & GMEM_ZEROINIT);
    if (!data) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block b{data, dwBytes, (uFlags & GMEM_MOVEABLE) != 0, 0};
    HGLOBAL handle = b.moveable ? NewMoveableHandle(h) : static_cast<HGLOBAL>(data);
    h.blocks.emplace(handle, b);
    if (b.moveable) h.byAddress.emplace(data, handle);
    return handle;
}

HGLOBAL WINAPI GlobalReAlloc(HGLOBAL hMem, SIZE_T dwBytes, UINT uFlags) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block* block = FindBlock(h, hMem);
    if (!block) return nullptr;
    Block& b = *block;
    if (uFlags & GMEM_MODIFY) return hMem;  // only attributes would change: none are kept
    if (b.moveable && b.locks > 0) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (!b.moveable && dwBytes > b.size && !(uFlags & GMEM_MOVEABLE)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // a fixed block cannot grow in place
        return nullptr;
    }
    void* data = std::realloc(b.data, dwBytes ? dwBytes : 1);
    if (!data) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if ((uFlags & GMEM_ZEROINIT) && dwBytes > b.size)
        std::memset(static_cast<char*>(data) + b.size, 0, dwBytes - b.size);
    Block nb = b;
    nb.data = data;
    nb.size = dwBytes;
    if (nb.moveable) {
        h.byAddress.erase(b.data);
        h.byAddress.emplace(data, hMem);
        *block = nb;
        return hMem;
    }
    h.blocks.erase(hMem);
    h.blocks.emplace(static_cast<HGLOBAL>(data), nb);
    return static_cast<HGLOBAL>(data);
}

LPVOID WINAPI GlobalLock(HGLOBAL hMem) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block* block = FindBlock(h, hMem);
    if (!block) return nullptr;
    if (block->moveable && block->locks < GMEM_LOCKCOUNT) ++block->locks;
    return block->data;
}

BOOL WINAPI GlobalUnlock(HGLOBAL hMem) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block* block = FindBlock(h, hMem);
    if (!block) return FALSE;
    Block& b = *block;
    if (!b.moveable) return FALSE;
    if (b.locks == 0) {
        SetLastError(ERROR_NOT_LOCKED);
        return FALSE;
    }
    if (--b.locks == 0) {
        SetLastError(ERROR_SUCCESS);
        return FALSE;
    }
    return TRUE;
}

HGLOBAL WINAPI GlobalFree(HGLOBAL hMem) {
    void* data = nullptr;
    {
        Heap& h = TheHeap();
        std::lock_guard lock(h.mutex);
        Block* block = FindBlock(h, hMem);
        if (!block) return hMem;
        data = block->data;
        if (block->moveable) h.byAddress.erase(data);
        h.blocks.erase(hMem);
    }
    std::free(data);
    return nullptr;
}

SIZE_T WINAPI GlobalSize(HGLOBAL hMem) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block* block = FindBlock(h, hMem);
    if (!block) return 0;
    return block->size;
}

UINT WINAPI GlobalFlags(HGLOBAL hMem) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    Block* block = FindBlock(h, hMem);
    if (!block) return GMEM_INVALID_HANDLE;
    return block->locks & GMEM_LOCKCOUNT;
}

HGLOBAL WINAPI GlobalHandle(LPCVOID pMem) {
    Heap& h = TheHeap();
    std::lock_guard lock(h.mutex);
    auto m = h.byAddress.find(pMem);
    if (m != h.byAddress.end()) return m->second;
    auto it = h.blocks.find(const_cast<void*>(pMem));
    if (it != h.blocks.end() && !it->second.moveable) return it->first;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}
