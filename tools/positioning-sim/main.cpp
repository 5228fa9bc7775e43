// positioning-sim: the simulated head unit as a program. Only wiring: options, the
// drive source, the outputs, the head unit and its scenario, the observers, the run;
// see --help and the README.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>

#include "ClockModel.h"
#include "DltLogOutput.h"
#include "DriveGenerator.h"
#include "DrivePlot.h"
#include "ExitCodes.h"
#include "Interruption.h"
#include "LogOutput.h"
#include "OutputFiles.h"
#include "PathRun.h"
#include "ReplayWindow.h"
#include "ResultDir.h"
#include "RunStatistics.h"
#include "SampleWriter.h"
#include "Scenario.h"
#include "SimOptions.h"
#include "Simulator.h"
#include "SoakCheck.h"
#include "StdoutCapture.h"
#include "SummaryReport.h"
#include "TraceFile.h"

namespace {

using namespace sim;

const uint64_t kModuleLinesOnTerminal = 10;

int Fail(int aStatus, const std::string& aMessage) {
  fprintf(stderr, "positioning-sim: %s\n", aMessage.c_str());
  return aStatus;
}

// The outputs the options ask for, opened before the run.
struct OpenedOutputs {
  FILE* samples = nullptr;
  FILE* record = nullptr;
  FILE* log = nullptr;
  FILE* plot = nullptr;
  FILE* summary = nullptr;
  FILE* pathCsv = nullptr;
  FILE* pathGeoJson = nullptr;
  FILE* pathPlot = nullptr;
  ~OpenedOutputs() {
    for (FILE* file : {samples, record, log, plot, summary, pathCsv, pathGeoJson, pathPlot}) DiscardOutput(file);
  }
};

// The sample file of a run on a terminal that names none: the terminal gets the summary.
std::string DefaultSampleFile(OutputFormat aFormat) {
  return aFormat == OutputFormat::Csv ? "positioning-sim-samples.csv" : "positioning-sim-samples.jsonl";
}

int OpenOutputs(const SimOptions& aOptions, OpenedOutputs& aOutputs, std::string& aSamplePath) {
  const OutputOptions& output = aOptions.output;
  // A text log or a .dlt file ("dlt:FILE") is opened here; the daemon ("dlt") is not a file.
  const std::string dltFile = DltFileOf(output.logTarget);
  const std::string* logPath = !dltFile.empty() ? &dltFile : &output.logTarget;
  if (dltFile.empty() && output.logTarget == kDltFilePrefix)
    return Fail(kExitUsage, "--log dlt:FILE: the file name is missing");
  const bool logFile = !logPath->empty() && *logPath != "dlt";
  aSamplePath = output.outPath;
  if (aSamplePath.empty() && !aOptions.soak.enabled && isatty(STDOUT_FILENO) != 0)
    aSamplePath = DefaultSampleFile(output.format);
  if (aSamplePath.empty() && !aOptions.soak.enabled) aSamplePath = "-";
  std::vector<OutputRequest> requests;
  if (!aSamplePath.empty()) requests.push_back({"--out", aSamplePath});
  if (logFile) requests.push_back({"--log", *logPath});
  if (!output.recordPath.empty()) requests.push_back({"--record", output.recordPath});
  if (!output.plotPath.empty()) requests.push_back({"--plot", output.plotPath});
  if (!output.summaryJsonPath.empty()) requests.push_back({"--summary-json", output.summaryJsonPath});
  if (!aOptions.path.csvPath.empty()) requests.push_back({"--path", aOptions.path.csvPath});
  if (!aOptions.path.geoJsonPath.empty()) requests.push_back({"--geojson", aOptions.path.geoJsonPath});
  if (!aOptions.path.plotPath.empty()) requests.push_back({"--path-plot", aOptions.path.plotPath});
  std::vector<std::string> inputs;
  if (!aOptions.tracePath.empty() && aOptions.tracePath != "-") inputs.push_back(aOptions.tracePath);
  if (!aOptions.path.truthPath.empty() && aOptions.path.truthPath != "-") inputs.push_back(aOptions.path.truthPath);
  std::string error;
  if (!OutputsAreDistinct(requests, inputs, error)) return Fail(kExitUsage, error);
  const std::pair<const std::string*, FILE**> files[] = {{&aSamplePath, &aOutputs.samples},
                                                         {logFile ? logPath : nullptr, &aOutputs.log},
                                                         {&output.recordPath, &aOutputs.record},
                                                         {&output.plotPath, &aOutputs.plot},
                                                         {&output.summaryJsonPath, &aOutputs.summary},
                                                         {&aOptions.path.csvPath, &aOutputs.pathCsv},
                                                         {&aOptions.path.geoJsonPath, &aOutputs.pathGeoJson},
                                                         {&aOptions.path.plotPath, &aOutputs.pathPlot}};
  for (const auto& file : files) {
    if (file.first == nullptr || file.first->empty()) continue;
    *file.second = OpenOutput(*file.first, error);
    if (*file.second == nullptr) return Fail(kExitIoFailure, error);
  }
  return kExitOk;
}

uint64_t CountLines(const std::string& aText) {
  uint64_t lines = 0;
  std::istringstream stream(aText);
  std::string line;
  while (std::getline(stream, line)) lines += line.empty() ? 0 : 1;
  return lines;
}

// The drive and the clocks it runs on. A trace that names its clock (a recording)
// replays on it; a built-in drive and a trace that names none run on the clock options:
// the local tick runs --peer-offset ahead of the service's clock, and the feature
// starts 100 ms before the first record (a trace without a clock line, at 100000 at
// the earliest, as replays always did).
struct Drive {
  std::unique_ptr<CTraceReader> trace;
  std::unique_ptr<IDriveSource> window;
  std::unique_ptr<IDriveSource> generated;
  ClockLine clock;
  IDriveSource& Source() { return window ? *window : trace ? static_cast<IDriveSource&>(*trace) : *generated; }
};

int MakeDrive(const SimOptions& aOptions, SourceKind aKind, Drive& aDrive) {
  const ClockOptions& clock = aOptions.clock;
  if (aOptions.tracePath.empty()) {
    const int64_t first = static_cast<int64_t>(kDefaultLocalStart + kFirstRecordDelay) - clock.peerOffset +
                          static_cast<int64_t>(clock.stampShift);
    aDrive.generated.reset(new CDriveGenerator(aKind, aOptions.seed, aOptions.duration, first));
  } else {
    std::string error;
    if (aOptions.tracePath == "-" && isatty(STDIN_FILENO) != 0)
      fprintf(stderr, "positioning-sim: reading the trace from the terminal; end it with Ctrl-D\n");
    aDrive.trace.reset(new CTraceReader(clock.stampShift));
    if (!aDrive.trace->Open(aOptions.tracePath, error)) return Fail(kExitBadInput, error);
    const bool can = aDrive.trace->Kind() == SourceKind::Can;
    if (aDrive.trace->Kind() != aKind) {
      return Fail(kExitUsage, aOptions.tracePath + ": the trace holds " + (can ? "CAN" : "external") +
                                  " records but the feature runs the " + (can ? "external" : "CAN") + " source" +
                                  (can ? " (use --diversity CAN)" : " (use --diversity EXTERNAL)"));
    }
    if (aDrive.trace->Contents().hasClock && !clock.given.empty()) {
      return Fail(kExitUsage, clock.given.front() + " does not apply to " + aOptions.tracePath +
                                  ": the recording names the clock it was made on (its clock line)");
    }
    const ReplayOptions& replay = aOptions.replay;
    if (replay.start > 0 || replay.end >= 0 || replay.loops > 1) {
      std::unique_ptr<CReplayWindow> window(new CReplayWindow(*aDrive.trace, replay.start, replay.end, replay.loops));
      if (!window->Open(error)) return Fail(kExitBadInput, error);
      aDrive.window = std::move(window);
    }
  }
  if (aDrive.trace && aDrive.trace->Contents().hasClock) {
    aDrive.clock = aDrive.trace->Contents().clock;
  } else {
    const int64_t first = aDrive.trace ? aDrive.trace->FirstPeerTime() : aDrive.generated->FirstPeerTime();
    const bool offsetGiven = std::find(clock.given.begin(), clock.given.end(), "--peer-offset") != clock.given.end();
    int64_t start = first + clock.peerOffset - static_cast<int64_t>(kFirstRecordDelay);
    if (!offsetGiven) start = std::max(start, static_cast<int64_t>(kDefaultLocalStart));
    aDrive.clock.localStart = static_cast<uint64_t>(std::max<int64_t>(start, 0));
    aDrive.clock.localAnchor = aDrive.clock.localStart + kFirstRecordDelay;
    aDrive.clock.peerAnchor = first;
    aDrive.clock.driftPpm = clock.peerDriftPpm;
    aDrive.clock.syncLatency = clock.syncLatency;
  }
  // A replay from a later point: the head unit starts that much later on the same clocks.
  aDrive.clock.localStart += static_cast<uint64_t>(std::llround(aOptions.replay.start * 1000.0));
  return kExitOk;
}

// Said before the run: what the trace check found, and a diversity that selects no source.
void Forewarn(const SimOptions& aOptions, const Drive& aDrive) {
  if (aOptions.output.quiet) return;
  if (aDrive.trace) {
    for (const std::string& warning : aDrive.trace->Contents().warnings)
      fprintf(stderr, "positioning-sim: warning: %s\n", warning.c_str());
  }
  if (aOptions.hasDiversity && aOptions.diversity != "CAN" && aOptions.diversity != "EXTERNAL") {
    fprintf(stderr,
            "positioning-sim: the diversity \"%s\" selects no sensor source (the module knows \"CAN\" and "
            "\"EXTERNAL\", in capitals): nothing will be fed\n",
            aOptions.diversity.c_str());
  }
}

// One drive: the `run` command, alone or as one line of a batch.
int RunDrive(SimOptions& options) {
  CatchInterruptions();
  const OutputOptions& output = options.output;
  const SourceKind kind =
      options.hasDiversity && options.diversity == "EXTERNAL" ? SourceKind::External : SourceKind::Can;

  // The drive, streamed from its source, and its clocks.
  Drive driveParts;
  const int made = MakeDrive(options, kind, driveParts);
  if (made != kExitOk) return made;
  IDriveSource* drive = &driveParts.Source();
  const ClockLine& clockLine = driveParts.clock;
  SetLocalStart(clockLine.localStart);
  const CClockModel clock(clockLine.localAnchor, clockLine.peerAnchor, clockLine.driftPpm);

  // A result folder names the outputs itself: temporary files in it until the end.
  CResultDir results;
  std::string error;
  if (!output.resultDir.empty() && !results.Prepare(options, error)) return Fail(kExitIoFailure, error);
  OpenedOutputs files;
  std::string samplePath;
  const int opened = OpenOutputs(options, files, samplePath);
  if (opened != kExitOk) return opened;
  // The reference client's dead reckoning, against the truth where it is known.
  CPathRun path;
  const int pathReady = path.Prepare(options, kind, *drive, {files.pathCsv, files.pathGeoJson, files.pathPlot}, error);
  if (pathReady != kExitOk) return Fail(pathReady, error);
  std::unique_ptr<ILogOutput> log;
  if (output.logTarget.empty()) {
    log = DiscardLog();
  } else if (output.logTarget == "dlt") {
    log = DltDaemonLog(output.logMask, error);
    if (!log) return Fail(kExitIoFailure, error);
  } else if (!DltFileOf(output.logTarget).empty()) {
    log = DltFileLog(files.log, DltFileOf(output.logTarget), output.logMask, error);
    files.log = nullptr;  // the log output closes it
    if (!log) return Fail(kExitIoFailure, error);
  } else {
    log = TextLog(files.log, output.logTarget, output.logMask, results.Active());
    files.log = nullptr;  // the log output closes it
  }
  Forewarn(options, driveParts);

  std::vector<std::string> clientNames = {"C1"};
  if (options.faults.secondClientAt >= 0) clientNames.push_back("C2");

  ObserverList observers;
  CRunStatistics statistics(clientNames);
  observers.push_back(&statistics);
  std::unique_ptr<CSampleWriter> samples;
  if (files.samples != nullptr)
    samples.reset(new CSampleWriter(files.samples, output.format, results.Active() ? &results.SampleHash() : nullptr));
  if (samples) observers.push_back(samples.get());
  std::unique_ptr<CTraceWriter> recording;
  if (files.record != nullptr) recording.reset(new CTraceWriter(files.record, kind, clockLine));
  if (recording) observers.push_back(recording.get());
  std::unique_ptr<CDrivePlot> plot;
  if (files.plot != nullptr) {
    plot.reset(new CDrivePlot(
        files.plot, output.plotPath.size() > 4 && output.plotPath.substr(output.plotPath.size() - 4) == ".svg", kind));
    if (!plot->Open(error)) return Fail(kExitIoFailure, error);
    observers.push_back(plot.get());
    statistics.SetOnOffsetChange([&plot](const OffsetPoint& aPoint) { plot->OnOffsetChange(aPoint); });
  }

  observers.push_back(&path.Observer());

  HeadUnitSetup setup;
  setup.modulePath = options.modulePath;
  setup.hasDiversity = options.hasDiversity;
  setup.diversity = options.diversity;
  setup.kind = kind;
  setup.syncLatency = clockLine.syncLatency;
  setup.mainUnitUnplugged = options.mainUnitUnplugged;
  setup.realtime = options.replay.rate == 1;
  CScheduler scheduler;
  CSimulatedHeadUnit unit(setup, scheduler, clock, observers);
  if (!unit.Load(error)) return Fail(kExitModuleLoad, "cannot load the module: " + error);
  CScenario scenario(options.faults, kind, *drive, clock, scheduler, unit);
  scenario.Schedule();
  const SimTime end = scenario.LastEvent() + kTearDownDelay;

  std::unique_ptr<CSoakCheck> soak;
  if (options.soak.enabled) {
    SoakSetup soakSetup;
    soakSetup.kind = kind;
    soakSetup.rssToleranceKb = options.soak.rssToleranceKb;
    soakSetup.injectLeakKb = options.soak.injectLeakKb;
    soakSetup.injectLoss = options.soak.injectLoss;
    soakSetup.expectedEnd = end;
    soak.reset(new CSoakCheck(soakSetup, clientNames.size()));
    observers.push_back(soak.get());
  }

  CSimulator simulator(scheduler, unit, observers, options.replay.rate, output.quiet);
  RunClock ran;
  std::string moduleOutput;
  {
    host::CStdoutCapture capture;
    unit.Start();
    ran = simulator.Run(end, statistics.RecordsFed());
    if (soak) soak->Finish(unit);
    unit.Stop();
    moduleOutput = capture.Stop();
  }

  int status = kExitOk;
  auto failed = [&status](int aStatus, const std::string& aMessage) {
    fprintf(stderr, "positioning-sim: %s\n", aMessage.c_str());
    if (status == kExitOk) status = aStatus;
  };
  if (!ran.interrupted && !scenario.DriveComplete(error)) failed(kExitBadInput, error);
  if (!log->Close(error)) failed(kExitIoFailure, error);
  if (!CloseOutput(files.samples, samplePath == "-" ? "standard output" : samplePath, error))
    failed(kExitIoFailure, "the samples: " + error);
  files.samples = nullptr;
  if (recording && !recording->Close()) failed(kExitIoFailure, output.recordPath + ": writing the recording failed");
  files.record = nullptr;
  if (!path.Finish(error)) failed(kExitIoFailure, error);
  if (!CloseOutput(files.pathCsv, options.path.csvPath, error)) failed(kExitIoFailure, error);
  if (!CloseOutput(files.pathGeoJson, options.path.geoJsonPath, error)) failed(kExitIoFailure, error);
  if (!CloseOutput(files.pathPlot, options.path.plotPath, error)) failed(kExitIoFailure, error);
  files.pathCsv = files.pathGeoJson = files.pathPlot = nullptr;
  if (plot && !plot->Draw(SecondsAt(ran.end), error)) failed(kExitIoFailure, error);
  if (!CloseOutput(files.plot, output.plotPath, error)) failed(kExitIoFailure, error);
  files.plot = nullptr;

  Summary summary;
  summary.source = SourceName(kind);
  summary.drive = drive->Describe();
  summary.figures = statistics.Figures();
  summary.supervisionMessages = CountLines(moduleOutput);
  summary.simulatedSeconds = SecondsAt(ran.end);
  summary.wallSeconds = ran.wallSeconds;
  summary.interruptedBy = InterruptingSignal();
  if (options.hasDiversity && options.diversity != "CAN" && options.diversity != "EXTERNAL")
    summary.noSource = "the diversity \"" + options.diversity + "\" selects no sensor source: nothing was fed";
  const std::pair<const char*, const std::string*> written[] = {{"samples", &samplePath},
                                                                {"recording", &output.recordPath},
                                                                {"plot", &output.plotPath},
                                                                {"log", &output.logTarget},
                                                                {"summary", &output.summaryJsonPath},
                                                                {"path", &options.path.csvPath},
                                                                {"path GeoJSON", &options.path.geoJsonPath},
                                                                {"path plot", &options.path.plotPath}};
  for (const auto& one : written) {
    if (results.Active()) break;
    // Samples on standard output are where the user looks; everything else is said.
    if (one.second->empty() || (*one.second == "-" && one.second == &samplePath)) continue;
    summary.outputs.push_back({one.first, *one.second == "-" ? "standard output" : *one.second});
  }
  if (results.Active()) summary.outputs.push_back({"results", results.Dir()});
  if (soak) summary.soak = &soak->Summary();
  if (files.summary != nullptr) {
    nlohmann::ordered_json figures = SummaryJson(summary);
    figures["dead_reckoning"] = DeadReckoningJson(path.Observer());
    if (results.Active()) figures = results.SummaryJson(summary, path.Observer(), samples->ByType());
    const std::string json = figures.dump() + "\n";
    fputs(json.c_str(), files.summary);
    if (!CloseOutput(files.summary, output.summaryJsonPath, error)) failed(kExitIoFailure, error);
    files.summary = nullptr;
  }
  if (!output.quiet) {
    // The module's own messages (time-stamp supervision, assertions), apart from the
    // samples; on a terminal the first few, so that the summary stays on the screen.
    std::istringstream lines(moduleOutput);
    std::string line;
    const bool terminal = isatty(STDERR_FILENO) != 0;
    uint64_t shown = 0;
    while (std::getline(lines, line)) {
      if (line.empty()) continue;
      if (!terminal || shown < kModuleLinesOnTerminal) fprintf(stderr, "module: %s\n", line.c_str());
      ++shown;
    }
    if (terminal && shown > kModuleLinesOnTerminal)
      fprintf(stderr, "module: ... %llu more (see the count below)\n",
              static_cast<unsigned long long>(shown - kModuleLinesOnTerminal));
    PrintSummary(stderr, summary);
    PrintDeadReckoning(stderr, path.Observer());
  }
  if (soak && !soak->Summary().Passed() && !ran.interrupted) failed(kExitSoakFailed, "soak check failed");
  if (summary.interruptedBy != 0) {
    fprintf(stderr, "positioning-sim: interrupted by %s: the outputs hold what was simulated until then\n",
            strsignal(summary.interruptedBy));
    status = summary.interruptedBy == SIGTERM ? kExitTerminated : kExitInterrupted;
  }
  if (results.Active() && !results.Publish(status, ran.wallSeconds, error)) failed(kExitIoFailure, error);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  SimOptions options;
  const int parsed = ParseCommandLine(argc, argv, POSITIONING_DEFAULT_MODULE, options);
  if (parsed >= 0) return parsed;
  if (options.importing) return RunImport(options.import);
  if (options.comparing) return RunCompare(options.compare);
  if (options.batching) return RunBatch(options.batch, POSITIONING_DEFAULT_MODULE, RunDrive);
  return RunDrive(options);
}
