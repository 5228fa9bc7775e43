// What writing the module's log records costs per CAN record (8 records: the entry
// trace, five field lines, two PutData traces), the DLT file logger of
// positioning-sim --log dlt:FILE.dlt against the text logger of --log FILE:
//
//   CanRecordLogged/text/null   readable lines, written to /dev/null (formatting only)
//   CanRecordLogged/text/file   readable lines into a file
//   CanRecordLogged/dlt/null    one DLT message per record, libdlt writing to /dev/null
//   CanRecordLogged/dlt/file    one DLT message per record into a .dlt file
//
// Items are CAN records; the counter "log_bytes" is what the file grew by per record.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "BenchHost.h"
#include "DltLogOutput.h"
#include "LogFacility.h"
#include "LogOutput.h"

namespace {

using bench::CBench;
using bench::Logger;
using bench::Source;

enum class Output { Text, Dlt };

std::string ScratchFile(const char* aSuffix) {
  const char* directory = getenv("TMPDIR");
  return std::string(directory != nullptr && *directory != '\0' ? directory : "/tmp") + "/positioning-dlt-bench-" +
         std::to_string(getpid()) + aSuffix;
}

long FileSize(const std::string& aPath) {
  struct stat info;
  return stat(aPath.c_str(), &info) == 0 ? static_cast<long>(info.st_size) : 0;
}

void CanRecordLogged(benchmark::State& aState, Output aOutput, bool aToFile) {
  // The no-op logger's bench, then the facility turned to recording for one output.
  CBench bench(Source::Can, Logger::Noop);
  host::CLogFacility::Instance().SetDiscard(false);
  const std::string path = aToFile ? ScratchFile(aOutput == Output::Dlt ? ".dlt" : ".log") : "/dev/null";
  FILE* file = fopen(path.c_str(), "w");
  if (file == nullptr) {
    aState.SkipWithError(("cannot write " + path).c_str());
    return;
  }
  std::string error;
  std::unique_ptr<sim::ILogOutput> output = aOutput == Output::Dlt
                                                ? sim::DltFileLog(file, path, contract::kLogMaskAll, error)
                                                : sim::TextLog(file, path, contract::kLogMaskAll);
  if (!output) {
    aState.SkipWithError(error.c_str());
    return;
  }
  bench.Create();
  bench.ConnectClient();
  bench.Client().Subscribe(1, 0);
  bench.Client().Subscribe(2, 0);
  for (int i = 0; i < 300; ++i) bench.SendCanRecord();
  const long before = aToFile ? FileSize(path) : 0;
  const uint64_t recordsBefore = host::CLogFacility::Instance().RecordCount();
  for (auto _ : aState) bench.SendCanRecord();
  const uint64_t records = host::CLogFacility::Instance().RecordCount() - recordsBefore;
  if (!output->Close(error)) aState.SkipWithError(error.c_str());
  const double iterations = static_cast<double>(aState.iterations());
  aState.SetItemsProcessed(aState.iterations());
  aState.counters["log_records"] = static_cast<double>(records) / iterations;
  if (aToFile) {
    aState.counters["log_bytes"] = static_cast<double>(FileSize(path) - before) / iterations;
    unlink(path.c_str());
  }
  bench.Destroy();
  host::CLogFacility::Instance().SetKeepRecords(true);
}

}  // namespace

BENCHMARK_CAPTURE(CanRecordLogged, text / null, Output::Text, false);
BENCHMARK_CAPTURE(CanRecordLogged, text / file, Output::Text, true);
BENCHMARK_CAPTURE(CanRecordLogged, dlt / null, Output::Dlt, false);
BENCHMARK_CAPTURE(CanRecordLogged, dlt / file, Output::Dlt, true);

BENCHMARK_MAIN();
