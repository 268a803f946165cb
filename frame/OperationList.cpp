#include "frame/OperationList.h"

#include <algorithm>
#include <utility>

void TQSOperationList::Insert(IQWNotifyOperation* operation) {
    if (!operation) return;
    ComPtr<IQWNotifyOperation> ref(operation);  // the reference is taken outside the lock
    std::lock_guard lock(FMutex);
    FItems.push_front(std::move(ref));
}

void TQSOperationList::Add(IQWNotifyOperation* operation, bool unique) {
    if (!operation) return;
    ComPtr<IQWNotifyOperation> ref(operation);
    std::lock_guard lock(FMutex);
    if (unique && std::find(FItems.begin(), FItems.end(), ref) != FItems.end()) return;
    FItems.push_back(std::move(ref));
}

bool TQSOperationList::Remove(IQWNotifyOperation* operation) {
    ComPtr<IQWNotifyOperation> removed;  // released after the lock
    std::lock_guard lock(FMutex);
    auto it = std::find_if(FItems.begin(), FItems.end(),
                           [operation](const auto& item) { return item.Get() == operation; });
    if (it == FItems.end()) return false;
    removed = std::move(*it);
    FItems.erase(it);
    return true;
}

bool TQSOperationList::Pop(IQWNotifyOperation** operation) {
    if (!operation) return false;
    *operation = nullptr;
    std::lock_guard lock(FMutex);
    if (FItems.empty()) return false;
    *operation = FItems.front().Detach();
    FItems.pop_front();
    return true;
}

bool TQSOperationList::Peek(IQWNotifyOperation** operation) {
    if (!operation) return false;
    *operation = nullptr;
    std::lock_guard lock(FMutex);
    if (FItems.empty()) return false;
    return FItems.front().CopyTo(operation) == S_OK;
}

uint32_t TQSOperationList::Count() {
    std::lock_guard lock(FMutex);
    return static_cast<uint32_t>(FItems.size());
}

void TQSOperationList::Clear() {
    std::deque<ComPtr<IQWNotifyOperation>> dropped;
    {
        std::lock_guard lock(FMutex);
        dropped.swap(FItems);
    }
}
