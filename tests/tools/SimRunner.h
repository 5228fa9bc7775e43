// Runs positioning-sim as a user would and collects what it wrote: shared by every
// test of the simulator.
#ifndef TESTS_SIM_RUNNER_H
#define TESTS_SIM_RUNNER_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Subprocess.h"
#include "TempDir.h"

namespace testing_host {

using testing_support::CTempDir;
using testing_support::FileExists;
using testing_support::Lines;
using testing_support::ProcessOptions;
using testing_support::ReadFile;
using testing_support::WriteFile;
using SimRun = testing_support::ProcessResult;

// Under AddressSanitizer freed memory waits in its quarantine, and cross-built tests
// run under qemu-user, whose translation cache grows whenever code first runs: the
// resident memory is theirs, not the simulator's, so memory figures are not checked
// there (scripts/checks/65-soak.sh checks them natively).
#if defined(__SANITIZE_ADDRESS__) || defined(__arm__) || defined(__aarch64__)
#define SIM_MEMORY_MEANINGLESS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_MEMORY_MEANINGLESS 1
#endif
#endif
#ifdef SIM_MEMORY_MEANINGLESS
const bool kMemoryMeaningful = false;
#else
const bool kMemoryMeaningful = true;
#endif

// What starts the built positioning-sim (under the emulator when cross built).
std::string SimPath();
// Runs the simulator with aArguments to its end, within aOptions' time limit.
SimRun RunSim(const std::vector<std::string>& aArguments, const ProcessOptions& aOptions = ProcessOptions());

// A run with --summary-json: the run and its parsed summary (null when none was written).
struct SimResult {
  SimRun run;
  nlohmann::json summary;
  // A client's figures by name ("C1"), null when absent.
  nlohmann::json Client(const std::string& aName) const;
};
SimResult RunSimWithSummary(std::vector<std::string> aArguments);

// Options under which the simulator finds first on its PATH a gnuplot, written into
// aScratch, that prints aMessage on standard error and fails, as a broken one would.
ProcessOptions WithFailingGnuplot(const CTempDir& aScratch, const std::string& aMessage);

}  // namespace testing_host

#endif  // TESTS_SIM_RUNNER_H
