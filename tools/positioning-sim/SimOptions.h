// Command line of positioning-sim.
#ifndef SIM_SIM_OPTIONS_H
#define SIM_SIM_OPTIONS_H

#include <stdint.h>

#include <string>
#include <vector>

namespace sim {

// A span of simulated time, in seconds from the start; open-ended without an end.
struct TimeWindow {
  double start = 0;
  double end = -1;  // < 0: never ends
};

// From `at` seconds on, the service's time stamps are shifted by `delta` milliseconds.
struct TimeJump {
  double at = 0;
  int64_t delta = 0;
};

enum class OutputFormat { Csv, Jsonl };

struct SimOptions {
  std::string modulePath;
  bool hasDiversity = false;
  std::string diversity;
  bool realtime = false;
  uint64_t seed = 1;
  double duration = 300;  // built-in drive, seconds
  std::string tracePath;
  std::string recordPath;
  std::string outPath;  // empty: standard output
  OutputFormat format = OutputFormat::Csv;
  std::string logTarget;    // empty: none; "dlt"; else a file
  uint32_t logMask = 0x1F;  // categories written (bits: Error 1, Info 4, Info2 8, Interface 16)
  std::string plotPath;
  std::string summaryJsonPath;
  int64_t peerOffset = 2500;  // local minus peer clock at the start, ms
  double peerDriftPpm = 40;
  uint32_t syncLatency = 20;  // ms between a kick and the peer's answer
  std::vector<TimeWindow> serviceLeaves;
  std::vector<TimeWindow> clockSyncLosses;
  std::vector<TimeJump> timeJumps;
  double clientStart = 0;      // first client connects (late client: later)
  double secondClientAt = -1;  // < 0: no second client
  double clientRejoinAt = -1;  // < 0: the first client never leaves
  bool mainUnitUnplugged = false;
  bool soak = false;            // check mode for long runs: memory, delivery, last minute
  double rssToleranceKb = 256;  // resident memory growth allowed after the first minute
  uint32_t injectLeakKb = 0;    // the simulated host leaks this much every simulated minute
  uint32_t injectLoss = 0;      // the first client loses every n-th sample it receives
  bool quiet = false;
  bool help = false;
};

// Parses the command line; on failure answers false and says why in aError.
bool ParseOptions(int aArgc, char** aArgv, SimOptions& aOptions, std::string& aError);
// The --help text.
std::string Usage(const std::string& aDefaultModule);

}  // namespace sim

#endif  // SIM_SIM_OPTIONS_H
