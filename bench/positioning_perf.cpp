// positioning-perf: makes one operation on the module N times, for instruction counts
// under valgrind --tool=callgrind --toggle-collect='PerfOp*'. Only the PerfOp functions
// are counted: each makes exactly one call into the module, as the daemon's side
// would, and so counts everything that call causes (the module, the host's logger, the
// allocator, the client's callbacks) and nothing of the loop around it. Setup and
// warm-up (lazy binding, the allocator's first chunks, full ring buffers) stay outside.
//
//   positioning-perf SCENARIO LOGGER N
//
// SCENARIO: can (one CAN record end to end: SensorData, two store samples, one
// subscribed client), external (one external record end to end), putdata (one PutData
// delivered to one client), replay (one Subscribe that replays 300 buffered records),
// create-can / create-external (one feature creation, its services present),
// destroy-can / destroy-external (one feature destruction). LOGGER: noop or text.
//
// It prints what it did and what the client received, and fails when the client did not
// receive what the operations should have delivered.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "BenchHost.h"
#include "CSensorStore.h"
#include "ContractConstants.h"

extern "C" {

__attribute__((noinline)) reflection::TErrCode PerfOpCanRecord(IMicroHostSensorFemale* aModule,
                                                               IMicroHostSensorMale* aService,
                                                               TPosSensorData* aRecord) {
  return aModule->SensorData(*aService, *aRecord);
}

__attribute__((noinline)) reflection::TErrCode PerfOpExternalRecord(IHalvikPositioningSensorMale* aModule,
                                                                    IHalvikPositioningSensorFemale* aService,
                                                                    TiPositioningSensorData* aRecord) {
  return aModule->SensorData(*aService, contract::kCombinedRecord, *aRecord);
}

__attribute__((noinline)) void PerfOpPutData(CSensorStore* aStore, const CSensorStore::TSensorData* aSample) {
  aStore->PutData(0, *aSample);
}

// A type no sensor has keeps the count where the gate is open: every such call replays
// the first sensor's buffer again.
__attribute__((noinline)) reflection::TErrCode PerfOpReplay(IPositioningSensorFemale* aStore,
                                                            IPositioningSensorMale* aClient) {
  return aStore->Subscribe(*aClient, 99, 1);
}

__attribute__((noinline)) void PerfOpCreate(bench::CBench* aBench) { aBench->Create(); }

__attribute__((noinline)) void PerfOpDestroy(bench::CBench* aBench) { aBench->Destroy(); }

}  // extern "C"

namespace {

const int kWarmUp = 400;  // more than the 300 slots, so the ring buffers have wrapped
const uint64_t kReplayed = 300;
const uint32_t kRecordPeriod = 200;

enum class Operation { Record, PutData, Replay, Create, Destroy };

struct Scenario {
  const char* name;
  bench::Source source;
  Operation operation;
};

const Scenario kScenarios[] = {
    {"can", bench::Source::Can, Operation::Record},
    {"external", bench::Source::External, Operation::Record},
    {"putdata", bench::Source::Can, Operation::PutData},
    {"replay", bench::Source::Can, Operation::Replay},
    {"create-can", bench::Source::Can, Operation::Create},
    {"create-external", bench::Source::External, Operation::Create},
    {"destroy-can", bench::Source::Can, Operation::Destroy},
    {"destroy-external", bench::Source::External, Operation::Destroy},
};

void Usage() {
  fputs("usage: positioning-perf SCENARIO noop|text N\n  SCENARIO:", stderr);
  for (const Scenario& scenario : kScenarios) fprintf(stderr, " %s", scenario.name);
  fputc('\n', stderr);
}

void SendRecords(bench::CBench& aBench, int aCount) {
  if (aBench.SourceKind() == bench::Source::Can) {
    TPosSensorData& record = aBench.CanRecord();
    for (int i = 0; i < aCount; ++i) {
      record.TimeStamp += kRecordPeriod;
      PerfOpCanRecord(aBench.CanModuleEnd(), &aBench.CanServiceEnd(), &record);
    }
  } else {
    TiPositioningSensorData& record = aBench.ExternalRecord();
    for (int i = 0; i < aCount; ++i) {
      record.timeStamp += kRecordPeriod;
      PerfOpExternalRecord(aBench.ExternalModuleEnd(), &aBench.ExternalServiceEnd(), &record);
    }
  }
}

// aCount creations and destructions, one half of each pair counted.
void RunLifecycle(bench::CBench& aBench, Operation aCounted, int aCount) {
  for (int i = 0; i < aCount; ++i) {
    if (aCounted == Operation::Create) {
      PerfOpCreate(&aBench);
    } else {
      aBench.Create();
    }
    aBench.Configure();
    if (aCounted == Operation::Destroy) {
      PerfOpDestroy(&aBench);
    } else {
      aBench.Destroy();
    }
    // The broker logs every call; start each pair from a fresh log.
    aBench.ResetBroker();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    Usage();
    return 2;
  }
  const Scenario* scenario = nullptr;
  for (const Scenario& candidate : kScenarios) {
    if (strcmp(candidate.name, argv[1]) == 0) scenario = &candidate;
  }
  bench::Logger logger;
  const int count = atoi(argv[3]);
  if (scenario == nullptr || !bench::ParseLogger(argv[2], logger) || count <= 0) {
    Usage();
    return 2;
  }

  bench::CBench bench(scenario->source, logger);
  if (scenario->operation == Operation::Create || scenario->operation == Operation::Destroy) {
    // Warm-up pairs, uncounted (PerfOp* run only below), bind symbols and settle the heap.
    for (int i = 0; i < 2; ++i) {
      bench.Create();
      bench.Configure();
      bench.Destroy();
      bench.ResetBroker();
    }
    RunLifecycle(bench, scenario->operation, count);
    printf("scenario=%s logger=%s operations=%d\n", scenario->name, argv[2], count);
    return 0;
  }

  bench.Create();
  bench.Configure();
  bench.ConnectClient();
  bench.Client().Subscribe(1, 0);
  bench.Client().Subscribe(2, 0);
  for (int i = 0; i < kWarmUp; ++i) bench.SendRecord();

  CSensorStore::TSensorData sample = {};
  sample.timeStamp = 1000;
  sample.size = 2;
  sample.values[0] = 10;
  sample.values[1] = -3;
  CSensorStore& store = bench.Store();
  if (scenario->operation == Operation::PutData) {
    for (int i = 0; i < kWarmUp; ++i) store.PutData(0, sample);
  }
  if (scenario->operation == Operation::Replay) bench.Client().Subscribe(99, 1);

  const uint64_t before = bench.Client().Samples();
  uint64_t expected = 0;
  switch (scenario->operation) {
    case Operation::Record:
      SendRecords(bench, count);
      expected = 2ull * count;
      break;
    case Operation::PutData:
      for (int i = 0; i < count; ++i) {
        sample.timeStamp += kRecordPeriod;
        PerfOpPutData(&store, &sample);
      }
      expected = count;
      break;
    case Operation::Replay:
      for (int i = 0; i < count; ++i) PerfOpReplay(bench.Client().Service(), &bench.Client());
      expected = kReplayed * count;
      break;
    default:
      break;
  }
  const uint64_t received = bench.Client().Samples() - before;
  printf("scenario=%s logger=%s operations=%d samples=%llu expected=%llu checksum=%llu\n", scenario->name, argv[2],
         count, static_cast<unsigned long long>(received), static_cast<unsigned long long>(expected),
         static_cast<unsigned long long>(bench.Client().Checksum()));
  return received == expected ? 0 : 1;
}
