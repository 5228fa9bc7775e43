// positioning-sim: the simulated head unit. Loads the positioning module as the
// feature daemon does and drives it through a drive; see --help.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <sstream>

#include "Drive.h"
#include "LogSinks.h"
#include "Report.h"
#include "SimOptions.h"
#include "Simulation.h"
#include "StdoutCapture.h"

namespace {

const int kExitFailure = 1;
const int kExitUsage = 2;
const int kExitSoakFailed = 3;

// Splits captured standard output into the module's messages.
uint64_t CountLines(const std::string& aText) {
  uint64_t lines = 0;
  std::istringstream stream(aText);
  std::string line;
  while (std::getline(stream, line)) {
    if (!line.empty()) ++lines;
  }
  return lines;
}

}  // namespace

int main(int argc, char** argv) {
  sim::SimOptions options;
  options.modulePath = POSITIONING_DEFAULT_MODULE;
  std::string error;
  if (!sim::ParseOptions(argc, argv, options, error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    return kExitUsage;
  }
  if (options.help) {
    fputs(sim::Usage(POSITIONING_DEFAULT_MODULE).c_str(), stdout);
    return 0;
  }

  const sim::SourceKind kind =
      options.hasDiversity && options.diversity == "EXTERNAL" ? sim::SourceKind::External : sim::SourceKind::Can;
  std::vector<sim::DriveRecord> drive;
  std::string driveName;
  if (!options.tracePath.empty()) {
    sim::SourceKind traceKind;
    if (!sim::ReadTrace(options.tracePath, traceKind, drive, error)) {
      fprintf(stderr, "positioning-sim: %s\n", error.c_str());
      return kExitUsage;
    }
    if (traceKind != kind) {
      fprintf(stderr, "positioning-sim: %s: the trace holds %s records but the feature runs the %s source%s\n",
              options.tracePath.c_str(), traceKind == sim::SourceKind::Can ? "CAN" : "external",
              kind == sim::SourceKind::Can ? "CAN" : "external",
              traceKind == sim::SourceKind::External ? " (use --diversity EXTERNAL)" : " (use --diversity CAN)");
      return kExitUsage;
    }
    driveName = "trace " + options.tracePath + " (" + std::to_string(drive.size()) + " records)";
  } else {
    const uint64_t firstStamp = sim::kLocalStart + sim::kFirstRecordDelay - static_cast<uint64_t>(options.peerOffset);
    drive = sim::GenerateDrive(kind, options.seed, options.duration, firstStamp);
    char name[96];
    snprintf(name, sizeof name, "built-in drive, seed %llu, %.1f s", static_cast<unsigned long long>(options.seed),
             options.duration);
    driveName = name;
  }

  // Samples go to the file, or to standard output as it is now: the module's own
  // printf output is captured apart while it runs.
  FILE* out = nullptr;
  if (options.soak && options.outPath.empty()) {
    // A soak checks the samples instead of printing them.
    out = fopen("/dev/null", "w");
  } else if (!options.outPath.empty()) {
    out = fopen(options.outPath.c_str(), "w");
    if (out == nullptr) {
      fprintf(stderr, "positioning-sim: %s: %s\n", options.outPath.c_str(), strerror(errno));
      return kExitFailure;
    }
  } else {
    fflush(stdout);
    out = fdopen(dup(STDOUT_FILENO), "w");
  }

  std::unique_ptr<sim::ILogOutput> log;
  if (!sim::OpenLogOutput(options.logTarget, options.logMask, log, error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    fclose(out);
    return kExitFailure;
  }

  sim::CSampleWriter writer(out, options.format);
  sim::CSimulation simulation(options, kind, std::move(drive), writer);
  bool ran;
  std::string moduleOutput;
  {
    host::CStdoutCapture capture;
    ran = simulation.Run(error);
    moduleOutput = capture.Stop();
  }
  log.reset();
  const bool written = fflush(out) == 0 && fclose(out) == 0;
  if (!ran) {
    fprintf(stderr, "positioning-sim: cannot load the module: %s\n", error.c_str());
    return kExitFailure;
  }
  if (!written) {
    fprintf(stderr, "positioning-sim: writing the samples failed: %s\n", strerror(errno));
    return kExitFailure;
  }

  sim::Summary summary = simulation.Result();
  summary.drive = driveName;
  summary.supervisionMessages = CountLines(moduleOutput);
  int status = 0;
  if (!options.recordPath.empty() && !sim::WriteTrace(options.recordPath, kind, simulation.Sent(), error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    status = kExitFailure;
  }
  if (!options.plotPath.empty() &&
      !sim::WritePlot(options.plotPath, simulation.PlotPoints(), summary.offsets, summary.simulatedSeconds, error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    status = kExitFailure;
  }
  if (!options.summaryJsonPath.empty() && !sim::WriteSummaryJson(options.summaryJsonPath, summary, error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    status = kExitFailure;
  }
  if (!options.quiet) {
    // The module's own messages (time-stamp supervision, assertions), apart from the samples.
    std::istringstream lines(moduleOutput);
    std::string line;
    while (std::getline(lines, line)) {
      if (!line.empty()) fprintf(stderr, "module: %s\n", line.c_str());
    }
    sim::PrintSummary(stderr, summary);
  }
  if (options.soak && !summary.soak.Passed()) {
    fprintf(stderr, "positioning-sim: soak check failed\n");
    if (status == 0) status = kExitSoakFailed;
  }
  return status;
}
