// Timings of the module's hot paths, each against the host's no-op logger (the
// module's own cost) and against the readable text logger (what logging adds):
//
//   CanRecord       one CAN record end to end: SensorData, two store samples, one client
//   ExternalRecord  one external combined record end to end
//   PutData         one store sample delivered to one client
//   SubscribeReplay one Subscribe that replays 300 buffered records (items: records)
//   Lifecycle       one feature created and destroyed, CAN and EXTERNAL
//
// Times depend on the machine; scripts/perf/count.sh gives instruction counts that do not.
#include <benchmark/benchmark.h>

#include "BenchHost.h"
#include "CSensorStore.h"

namespace {

using bench::CBench;
using bench::Logger;
using bench::Source;

// A feature with its service and one client subscribed to both sensors, buffers full.
void Prepare(CBench& aBench) {
  aBench.Create();
  aBench.Configure();
  aBench.ConnectClient();
  aBench.Client().Subscribe(1, 0);
  aBench.Client().Subscribe(2, 0);
  for (int i = 0; i < 300; ++i) aBench.SendRecord();
}

void Record(benchmark::State& aState, Source aSource, Logger aLogger) {
  CBench bench(aSource, aLogger);
  Prepare(bench);
  for (auto _ : aState) bench.SendRecord();
  aState.SetItemsProcessed(aState.iterations());
  aState.counters["samples"] = static_cast<double>(bench.Client().Samples());
}

void CanRecord(benchmark::State& aState, Logger aLogger) { Record(aState, Source::Can, aLogger); }

void ExternalRecord(benchmark::State& aState, Logger aLogger) { Record(aState, Source::External, aLogger); }

void PutData(benchmark::State& aState, Logger aLogger) {
  CBench bench(Source::Can, aLogger);
  Prepare(bench);
  CSensorStore& store = bench.Store();
  CSensorStore::TSensorData sample = {};
  sample.size = 2;
  sample.values[0] = 10;
  sample.values[1] = -3;
  for (auto _ : aState) {
    sample.timeStamp += 200;
    store.PutData(0, sample);
  }
  aState.SetItemsProcessed(aState.iterations());
}

// Every call keeps its 300-record snapshot (the store never frees it), so the
// iterations are fixed to bound what the run holds.
void SubscribeReplay(benchmark::State& aState, Logger aLogger) {
  CBench bench(Source::Can, aLogger);
  Prepare(bench);
  for (auto _ : aState) benchmark::DoNotOptimize(bench.Client().Subscribe(99, 1));
  aState.SetItemsProcessed(aState.iterations() * 300);
}

void Lifecycle(benchmark::State& aState, Source aSource, Logger aLogger) {
  CBench bench(aSource, aLogger);
  int64_t sinceReset = 0;
  for (auto _ : aState) {
    bench.Create();
    bench.Destroy();
    if (++sinceReset == 256) {
      // The broker logs every call; forget them now and then, untimed.
      aState.PauseTiming();
      bench.ResetBroker();
      sinceReset = 0;
      aState.ResumeTiming();
    }
  }
  aState.SetItemsProcessed(aState.iterations());
}

void CanLifecycle(benchmark::State& aState, Logger aLogger) { Lifecycle(aState, Source::Can, aLogger); }

void ExternalLifecycle(benchmark::State& aState, Logger aLogger) { Lifecycle(aState, Source::External, aLogger); }

}  // namespace

BENCHMARK_CAPTURE(CanRecord, noop, Logger::Noop);
BENCHMARK_CAPTURE(CanRecord, text, Logger::Text);
BENCHMARK_CAPTURE(ExternalRecord, noop, Logger::Noop);
BENCHMARK_CAPTURE(ExternalRecord, text, Logger::Text);
BENCHMARK_CAPTURE(PutData, noop, Logger::Noop);
BENCHMARK_CAPTURE(PutData, text, Logger::Text);
BENCHMARK_CAPTURE(SubscribeReplay, noop, Logger::Noop)->Iterations(2000);
BENCHMARK_CAPTURE(SubscribeReplay, text, Logger::Text)->Iterations(200);
BENCHMARK_CAPTURE(CanLifecycle, noop, Logger::Noop);
BENCHMARK_CAPTURE(CanLifecycle, text, Logger::Text);
BENCHMARK_CAPTURE(ExternalLifecycle, noop, Logger::Noop);
BENCHMARK_CAPTURE(ExternalLifecycle, text, Logger::Text);

BENCHMARK_MAIN();
