// Wire dispatch cost: nanoseconds per hop through a chain of ten pass-through components,
// for a notify without data and for a 4 KiB buffer operation. Each component takes its lock
// shared in its handler and forwards on its own source pin, as real components do; a buffer
// is re-wrapped per hop (SubmitBuffer), a notify is handed on as it is.
#include <chrono>
#include <cstdio>
#include <vector>

#include "frame/LockComponents.h"
#include "frame/QSData.h"
#include "frame/WirePins.h"

namespace {

class TPassThrough : public TLockComponent {
    MW_CLASS(TPassThrough, TLockComponent)
public:
    explicit TPassThrough(TComponent* owner)
        : TLockComponent(owner),
          Input(this, ComponentLock(),
                [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation* op,
                       TQWNotifyState) {
                    TLockGuard g = ComponentLock()->AcquireRead();
                    if (auto* buf = op->InstanceAs<TQWSuppliedBufferOperation>())
                        Output.SubmitBuffer(buf->Data);
                    else
                        Output.Notify(op);
                    return 0;
                }),
          Output(this, ComponentLock(), nullptr, {}) {}
    TQAQWAudioSinkPin Input;
    TQAQWAudioSourcePin Output;
};

class TCounter : public TLockComponent {
    MW_CLASS(TCounter, TLockComponent)
public:
    explicit TCounter(TComponent* owner)
        : TLockComponent(owner),
          Input(
              this, ComponentLock(),
              [this](TQWBasicPin*, TQWBasicPin*, const GUID*, IQWNotifyOperation*, TQWNotifyState) {
                  ++Count;
                  return 0;
              }) {}
    TQAQWAudioSinkPin Input;
    long Count = 0;
};

template <class F>
double NanosPerHop(int iterations, int hops, F&& send) {
    for (int i = 0; i < iterations / 10; ++i)
        send();  // warm up
    auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < iterations; ++i)
        send();
    auto t1 = std::chrono::steady_clock::now();
    return std::chrono::duration<double, std::nano>(t1 - t0).count() / (double(iterations) * hops);
}

}  // namespace

int main() {
    constexpr int kChain = 10;
    TOwned<TComponent> form(TComponent::New<TComponent>(nullptr));
    auto* head = TComponent::New<TPassThrough>(form.get());
    TPassThrough* last = head;
    for (int i = 1; i < kChain; ++i) {
        auto* next = TComponent::New<TPassThrough>(form.get());
        QWConnect(last->Output, next->Input);
        last = next;
    }
    auto* tail = TComponent::New<TCounter>(form.get());
    QWConnect(last->Output, tail->Input);
    TQAQWAudioSourcePin source(form.get(), nullptr, nullptr, {});
    QWConnect(source, head->Input);

    // Hops: the source into the first component, between components, and into the counter.
    const int hops = kChain + 1;
    ComPtr<IQWNotifyOperation> notify = MwNew<TQWQueryStreamOperation>();
    double notifyNs = NanosPerHop(500000, hops, [&] { source.Notify(notify.Get()); });

    std::vector<uint8_t> bytes(4096, 0x5a);
    ComPtr<IQSData> block =
        MwNew<TQSBlockBuffer>(bytes.data(), static_cast<uint32_t>(bytes.size()));
    double bufferNs = NanosPerHop(200000, hops, [&] { source.SubmitBuffer(block); });

    std::printf("wire dispatch, chain of %d pass-through components (%d hops):\n", kChain, hops);
    std::printf("  notify without data:     %7.1f ns per hop\n", notifyNs);
    std::printf("  4 KiB buffer operation:  %7.1f ns per hop\n", bufferNs);
    std::printf("  operations delivered to the end: %ld\n", tail->Count);
    return tail->Count > 0 ? 0 : 1;
}
