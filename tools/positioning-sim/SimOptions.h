// The command line of positioning-sim (CLI11): subcommand `run`, the default, and its
// options, each value read with the one number parser and checked against its range.
#ifndef SIM_SIM_OPTIONS_H
#define SIM_SIM_OPTIONS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "BatchCommand.h"
#include "CompareCommand.h"
#include "ContractConstants.h"
#include "ImportCommand.h"
#include "SampleWriter.h"
#include "Scenario.h"

namespace sim {

struct ClockOptions {
  int64_t peerOffset = 2500;  // local minus peer clock at the start, ms
  double peerDriftPpm = 40;
  uint32_t syncLatency = 20;       // ms between a kick and the peer's answer
  uint64_t stampShift = 0;         // added to the service's clock and stamps, ms
  std::vector<std::string> given;  // the options above that the command line gave
};

// How a trace is replayed: the wall-clock rate, a window into it, repetitions.
struct ReplayOptions {
  double rate = 0;   // simulated seconds per wall second; 0: as fast as possible
  double start = 0;  // seconds into the recording (its first stamp is 0)
  double end = -1;   // seconds into the recording; < 0: to its end
  uint32_t loops = 1;
};

struct OutputOptions {
  std::string outPath;  // empty: standard output, or a file when that is a terminal; "-": standard output
  OutputFormat format = OutputFormat::Csv;
  std::string recordPath;
  std::string logTarget;                     // empty: none; "dlt"; else a file
  uint32_t logMask = contract::kLogMaskAll;  // categories written
  std::string plotPath;
  std::string summaryJsonPath;
  std::string resultDir;  // one folder for samples, summary, path and log (ResultDir)
  bool quiet = false;
};

struct SoakOptions {
  bool enabled = false;         // check mode for long runs: memory, delivery, last minute
  double rssToleranceKb = 256;  // resident memory growth allowed after the first minute
  uint32_t injectLeakKb = 0;    // the simulated host leaks this much every simulated minute
  uint32_t injectLoss = 0;      // the first client loses every n-th sample it receives
};

// The reference client's dead reckoning: where its path goes, and the truth to
// compare it with.
struct PathOptions {
  std::string csvPath;
  std::string geoJsonPath;
  std::string plotPath;   // .png or .svg
  std::string truthPath;  // a trace's truth file
  bool hasOrigin = false;
  double latitude = 0;  // of the start, degrees
  double longitude = 0;
};

struct SimOptions {
  std::string modulePath;
  std::string diversity;
  uint64_t seed = 1;
  double duration = 300;  // built-in drive, seconds
  std::string tracePath;
  ClockOptions clock;
  ReplayOptions replay;
  Faults faults;
  OutputOptions output;
  SoakOptions soak;
  PathOptions path;
  ImportOptions import;
  BatchOptions batch;
  CompareOptions compare;
  bool hasDiversity = false;
  bool mainUnitUnplugged = false;
  bool importing = false;  // the `import` subcommand
  bool batching = false;   // the `batch` subcommand
  bool comparing = false;  // the `compare` subcommand
};

// What --version prints: the program and its version (part of a build's identity).
const char* SimVersion();

// Parses the command line (argv[0] included). Answers -1 when the run should go on;
// otherwise the exit status, after printing the help, the version or the usage error.
int ParseCommandLine(int aArgc, char** aArgv, const std::string& aDefaultModule, SimOptions& aOptions);

}  // namespace sim

#endif  // SIM_SIM_OPTIONS_H
