// IQSOperationList: the thread-safe queue of operations with which a sink decouples delivery
// (on the sender's thread) from processing (on its own or the main thread). TQSOperationList
// implements it over a deque under one mutex; every operation may be called from any thread.
//
// The list holds one reference per queued operation. Operations released by Clear or Remove
// are released after the mutex is let go, so their destruction (which may free buffers) never
// runs under the lock.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

#include "comptr.h"
#include "frame/Interfaced.h"
#include "frame/WireOperations.h"

DEFINE_GUID(IID_IQSOperationList, 0x9be5271f, 0xb63a, 0x4b10, 0x80, 0xae, 0x61, 0x94, 0xe5, 0xa1,
            0xba, 0xa2);
struct IQSOperationList : IUnknown {
    // Puts the operation at the head: it is popped next.
    STDMETHOD_(void, Insert)(IQWNotifyOperation* operation) PURE;
    // Appends the operation. With unique set, an operation already in the list is not added
    // a second time.
    STDMETHOD_(void, Add)(IQWNotifyOperation* operation, bool unique) PURE;
    // Takes the given operation out of the list; false when it was not in it.
    STDMETHOD_(bool, Remove)(IQWNotifyOperation* operation) PURE;
    // Takes the head out and hands its reference to *operation; false (and null) when empty.
    STDMETHOD_(bool, Pop)(IQWNotifyOperation** operation) PURE;
    // The head with an added reference, left in the list; false (and null) when empty.
    STDMETHOD_(bool, Peek)(IQWNotifyOperation** operation) PURE;
    STDMETHOD_(uint32_t, Count)() PURE;
    STDMETHOD_(void, Clear)() PURE;

    bool Pop(ComPtr<IQWNotifyOperation>& operation) {
        return Pop(operation.ReleaseAndGetAddressOf());
    }
};
MW_DECLARE_IID(IQSOperationList, IID_IQSOperationList);

class TQSOperationList : public TInterfacedObject<IQSOperationList> {
    MW_CLASS(TQSOperationList, TInterfacedObject<IQSOperationList>)
public:
    TQSOperationList() = default;

    STDMETHODIMP_(void) Insert(IQWNotifyOperation* operation) override;
    STDMETHODIMP_(void) Add(IQWNotifyOperation* operation, bool unique) override;
    STDMETHODIMP_(bool) Remove(IQWNotifyOperation* operation) override;
    STDMETHODIMP_(bool) Pop(IQWNotifyOperation** operation) override;
    STDMETHODIMP_(bool) Peek(IQWNotifyOperation** operation) override;
    STDMETHODIMP_(uint32_t) Count() override;
    STDMETHODIMP_(void) Clear() override;
    using IQSOperationList::Pop;

private:
    std::mutex FMutex;
    std::deque<ComPtr<IQWNotifyOperation>> FItems;
};
