// positioning-heap: the heap a feature holds, CAN and EXTERNAL, with the no-op logger.
//
//   positioning-heap [RECORDS]      (default 1000000)
//
// Per source, one line of key=value figures, in bytes requested by the module:
//   after_creation  the feature made, its services connected
//   after_minute    a client connected and subscribed to one sensor of two (nothing is
//                   delivered yet), 300 records later (one minute at 5 records a second)
//   after_replay    the client's second subscription, with the replay of 300 records,
//                   whose snapshot the store keeps
//   peak            the most held while RECORDS more records were delivered
//   after_records   held after them
//   after_destroy   held once the feature is deleted (the kept snapshot)
//   allocations_per_record  the module's allocations per record while delivering
//   allocations_per_unserved_record  the same during the minute nobody was served
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

#include "BenchHost.h"
#include "HeapCounter.h"

namespace {

const int kMinute = 300;

void Measure(bench::Source aSource, long aRecords) {
  bench::CBench bench(aSource, bench::Logger::Noop);
  void* module = dlopen(bench::ModulePath().c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (module == nullptr || !heap::SetModule(dlsym(module, "FeatureCreate2"))) {
    fprintf(stderr, "positioning-heap: cannot find the loaded module\n");
    exit(1);
  }
  dlclose(module);  // only the reference taken above; the loader keeps its own

  const uint64_t base = heap::ModuleBytes();
  bench.Create();
  bench.Configure();
  const uint64_t afterCreation = heap::ModuleBytes() - base;

  // One subscription of two: the gate stays closed, no sample is served.
  bench.ConnectClient();
  bench.Client().Subscribe(1, 0);
  const uint64_t unservedBefore = heap::ModuleAllocations();
  for (int i = 0; i < kMinute; ++i) bench.SendRecord();
  const uint64_t unservedAllocations = heap::ModuleAllocations() - unservedBefore;
  const uint64_t afterMinute = heap::ModuleBytes() - base;

  bench.Client().Subscribe(2, 1);
  const uint64_t afterReplay = heap::ModuleBytes() - base;

  heap::ResetPeak();
  const uint64_t allocationsBefore = heap::ModuleAllocations();
  const uint64_t samplesBefore = bench.Client().Samples();
  for (long i = 0; i < aRecords; ++i) bench.SendRecord();
  const uint64_t allocations = heap::ModuleAllocations() - allocationsBefore;
  const uint64_t samples = bench.Client().Samples() - samplesBefore;
  const uint64_t peak = heap::ModulePeak() - base;
  const uint64_t afterRecords = heap::ModuleBytes() - base;

  bench.Destroy();
  const uint64_t afterDestroy = heap::ModuleBytes() - base;

  printf(
      "heap source=%s after_creation=%llu after_minute=%llu after_replay=%llu peak=%llu after_records=%llu "
      "after_destroy=%llu records=%ld samples=%llu allocations_per_record=%.2f "
      "allocations_per_unserved_record=%.2f\n",
      bench::SourceName(aSource), static_cast<unsigned long long>(afterCreation),
      static_cast<unsigned long long>(afterMinute), static_cast<unsigned long long>(afterReplay),
      static_cast<unsigned long long>(peak), static_cast<unsigned long long>(afterRecords),
      static_cast<unsigned long long>(afterDestroy), aRecords, static_cast<unsigned long long>(samples),
      aRecords > 0 ? static_cast<double>(allocations) / static_cast<double>(aRecords) : 0.0,
      static_cast<double>(unservedAllocations) / kMinute);
}

}  // namespace

int main(int argc, char** argv) {
  const long records = argc > 1 ? atol(argv[1]) : 1000000;
  if (records < 0) {
    fputs("usage: positioning-heap [RECORDS]\n", stderr);
    return 2;
  }
  Measure(bench::Source::Can, records);
  Measure(bench::Source::External, records);
  return 0;
}
