// The cost of one buffer on the wire: making an audio buffer, wrapping it in an operation,
// the handler's IsType tests and the receiver's wrapping, and a pass through the operation
// queue of a sink.
#include <benchmark/benchmark.h>

#include <vector>

#include "frame/OperationList.h"
#include "frame/QSData.h"
#include "frame/WireOperations.h"

namespace {

// 10 ms of CD audio, the usual block of a source.
constexpr uint32_t kFrames = 441;

void BM_AudioBufferCreate(benchmark::State& state) {
    for (auto _ : state) {
        auto buffer = MwNew<TQAAudioBuffer>(44100u, uint16_t(16), uint16_t(2), kFrames);
        benchmark::DoNotOptimize(buffer->WritePointer());
    }
}
BENCHMARK(BM_AudioBufferCreate);

void BM_OperationCreateAndDispatch(benchmark::State& state) {
    auto buffer = MwNew<TQAAudioBuffer>(44100u, uint16_t(16), uint16_t(2), kFrames);
    for (auto _ : state) {
        ComPtr<IQWNotifyOperation> op = MwNew<TQWSuppliedBufferOperation>(buffer);
        // A handler tests a few classes before it finds the buffer branch.
        bool found = op->IsType(TQWStartWaveOperation::StaticClass()) ||
                     op->IsType(TQWStopOperation::StaticClass()) ||
                     op->IsType(TQWSuppliedBufferOperation::StaticClass());
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_OperationCreateAndDispatch);

void BM_BufferRoundTrip(benchmark::State& state) {
    // Source makes a buffer and stamps it; the sink wraps what arrives and reads it.
    for (auto _ : state) {
        auto sent = MwNew<TQAAudioBuffer>(44100u, uint16_t(16), uint16_t(2), kFrames);
        auto stamp = sent->TimeStamp();
        stamp->SetHasTimes(true);
        stamp->SetStartTime(0);
        stamp->SetEndTime(100'000);
        ComPtr<IQWNotifyOperation> op = MwNew<TQWSuppliedBufferOperation>(sent);
        auto* supplied = op->InstanceAs<TQWSuppliedBufferOperation>();
        auto received = MwNew<TQAAudioBuffer>(supplied->Data);
        benchmark::DoNotOptimize(received->InterleavedPointer());
        benchmark::DoNotOptimize(received->SampleCount());
    }
}
BENCHMARK(BM_BufferRoundTrip);

void BM_OperationListAddPop(benchmark::State& state) {
    ComPtr<IQSOperationList> list = MwNew<TQSOperationList>();
    ComPtr<IQWNotifyOperation> op = MwNew<TQWStopOperation>();
    ComPtr<IQWNotifyOperation> out;
    for (auto _ : state) {
        list->Add(op.Get(), false);
        list->Pop(out);
    }
}
BENCHMARK(BM_OperationListAddPop);

void BM_FloatToInt32Block(benchmark::State& state) {
    std::vector<float> samples(kFrames * 2, 0.25f);
    std::vector<int32_t> out(samples.size());
    for (auto _ : state) {
        mw::FloatToInt32Samples(samples.data(), out.data(), samples.size());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * int64_t(samples.size()));
}
BENCHMARK(BM_FloatToInt32Block);

}  // namespace
