// scripts/resim.sh over a small library of generated (built-in) and imported (the city
// drive) drives: results kept by key, reused across reruns and reordered manifests, an
// interrupted run resumed, failures listed, and the report's rows.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "ResimLibrary.h"

namespace {

using testing_host::CResimLibrary;
using testing_host::ListedDrive;
using testing_host::SimRun;
using testing_support::FileExists;
using testing_support::Lines;
using testing_support::ReadFile;

const std::vector<std::string> kLibrary = {
    "# generated and imported drives",
    "builtin --duration 20 --seed 1",
    "builtin --duration 20 --seed 2 --diversity EXTERNAL",
    "traces/city.trace.csv --truth traces/city.truth.csv",
    "traces/city.trace.csv --peer-drift 0   # without its truth: no drift",
};

std::vector<std::string> Keys(const std::vector<ListedDrive>& aDrives) {
  std::vector<std::string> keys;
  for (const ListedDrive& drive : aDrives) keys.push_back(drive.key);
  std::sort(keys.begin(), keys.end());
  return keys;
}

// report.csv as rows of named cells.
std::vector<std::map<std::string, std::string>> CsvRows(const std::string& aPath) {
  std::vector<std::map<std::string, std::string>> rows;
  std::vector<std::string> names;
  for (const std::string& line : Lines(ReadFile(aPath))) {
    std::vector<std::string> cells;
    std::istringstream split(line);
    for (std::string cell; std::getline(split, cell, ',');) cells.push_back(cell);
    if (line.back() == ',') cells.push_back("");
    if (names.empty()) {
      names = cells;
      continue;
    }
    std::map<std::string, std::string> row;
    for (size_t i = 0; i < names.size() && i < cells.size(); ++i) row[names[i]] = cells[i];
    rows.push_back(row);
  }
  return rows;
}

TEST(ResimTest, ALibraryOfGeneratedAndImportedDrivesGetsOneCompleteResultFolderPerDrive) {
  CResimLibrary library;
  const SimRun run = library.Run({library.WriteManifest(kLibrary), library.Out()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::vector<ListedDrive> drives = library.Drives(library.Out());
  ASSERT_EQ(4u, drives.size());
  const std::vector<std::string> keys = Keys(drives);
  EXPECT_EQ(4u, std::set<std::string>(keys.begin(), keys.end()).size()) << "keys must differ";
  for (const ListedDrive& drive : drives) {
    const std::string folder = library.ResultDir(drive.key);
    ASSERT_FALSE(folder.empty()) << drive.label;
    for (const char* file : {"samples.csv", "summary.json", "path.csv", "log.txt", "run.json"}) {
      EXPECT_TRUE(FileExists(folder + "/" + file)) << drive.label << ": " << file;
    }
  }
  EXPECT_EQ(keys, library.JobKeys(library.Out(), "ran"));
  EXPECT_EQ(keys, library.SimulatedKeys());
  EXPECT_EQ(std::vector<std::string>(), library.LeftOvers());
}

TEST(ResimTest, ARerunReusesEveryResultWithoutRunningADrive) {
  CResimLibrary library;
  const std::string manifest = library.WriteManifest(kLibrary);
  ASSERT_EQ(0, library.Run({manifest, library.Out()}).exitCode);
  const std::vector<ListedDrive> drives = library.Drives(library.Out());
  std::map<std::string, std::string> runs;
  for (const ListedDrive& drive : drives) runs[drive.key] = ReadFile(library.ResultDir(drive.key) + "/run.json");

  library.ForgetSimulated();
  const SimRun rerun = library.Run({manifest, library.Out()});
  ASSERT_EQ(0, rerun.exitCode) << rerun.err;
  EXPECT_EQ(std::vector<std::string>(), library.SimulatedKeys());
  EXPECT_TRUE(library.JobKeys(library.Out(), "ran").empty());
  EXPECT_EQ(Keys(drives), library.JobKeys(library.Out(), "reused"));
  for (const ListedDrive& drive : drives) {
    EXPECT_EQ(runs[drive.key], ReadFile(library.ResultDir(drive.key) + "/run.json")) << drive.label;
  }
}

TEST(ResimTest, AReorderedAndGrownManifestRunsOnlyTheDriveItAdded) {
  CResimLibrary library;
  ASSERT_EQ(0, library.Run({library.WriteManifest(kLibrary), library.Out()}).exitCode);
  const std::vector<std::string> before = Keys(library.Drives(library.Out()));
  library.ForgetSimulated();

  const std::vector<std::string> reordered = {kLibrary[4], "builtin --duration 20 --seed 3", kLibrary[2], kLibrary[1],
                                              kLibrary[3]};
  const SimRun rerun = library.Run({library.WriteManifest(reordered, "reordered.txt"), library.Out()});
  ASSERT_EQ(0, rerun.exitCode) << rerun.err;
  const std::vector<ListedDrive> drives = library.Drives(library.Out());
  ASSERT_EQ(5u, drives.size());
  EXPECT_EQ("builtin --duration 20 --seed 3", drives[1].label);
  EXPECT_EQ(std::vector<std::string>{drives[1].key}, library.SimulatedKeys());
  EXPECT_EQ(std::vector<std::string>{drives[1].key}, library.JobKeys(library.Out(), "ran"));
  EXPECT_EQ(before, library.JobKeys(library.Out(), "reused"));
}

TEST(ResimTest, AnInterruptedRunGoesOnWhereItStoppedWithoutRunningDoneDrivesAgain) {
  CResimLibrary library;
  std::vector<std::string> lines;
  for (int seed = 1; seed <= 6; ++seed) lines.push_back("builtin --duration 3600 --seed " + std::to_string(seed));
  const std::string manifest = library.WriteManifest(lines);
  testing_support::CProcess first;
  std::string error;
  ASSERT_TRUE(first.Start(library.Command("resim.sh", {"-j", "1", manifest, library.Out()}), library.Options(), error))
      << error;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  auto doneNow = [&library]() {
    std::vector<std::string> done;
    for (const ListedDrive& drive : library.Drives(library.Out())) {
      if (!library.ResultDir(drive.key).empty()) done.push_back(drive.key);
    }
    return done;
  };
  while (doneNow().empty() && first.Running() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  first.Signal(SIGTERM);
  const testing_support::ProcessResult stopped = first.Wait();
  ASSERT_EQ(130, stopped.exitCode) << stopped.Describe() << stopped.err;
  EXPECT_NE(std::string::npos, stopped.err.find("interrupted")) << stopped.err;
  const std::vector<std::string> done = doneNow();
  ASSERT_FALSE(done.empty());
  ASSERT_LT(done.size(), lines.size()) << "every drive finished before the interruption";
  std::map<std::string, std::string> runs;
  for (const std::string& key : done) runs[key] = ReadFile(library.ResultDir(key) + "/run.json");

  library.ForgetSimulated();
  const SimRun resumed = library.Run({"--resume", "-j", "2", manifest, library.Out()});
  ASSERT_EQ(0, resumed.exitCode) << resumed.err;
  std::vector<std::string> rest;
  for (const std::string& key : Keys(library.Drives(library.Out()))) {
    if (runs.count(key) == 0) rest.push_back(key);
  }
  EXPECT_EQ(rest, library.SimulatedKeys());
  EXPECT_EQ(rest, library.JobKeys(library.Out(), "ran"));
  for (const std::string& key : done) EXPECT_EQ(runs[key], ReadFile(library.ResultDir(key) + "/run.json"));
  EXPECT_EQ(std::vector<std::string>(), library.LeftOvers());
}

TEST(ResimTest, AFailingDriveMakesTheRunExitNonZeroAndIsListed) {
  CResimLibrary library;
  testing_support::WriteFile(library.Dir() + "/traces/bad.csv",
                             "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n100,1,2,33,999\n");
  // One job: the failing drive shares its batch with the others, which go on.
  const SimRun run =
      library.Run({"-j", "1", library.WriteManifest({kLibrary[1], "traces/bad.csv", kLibrary[3]}), library.Out()});
  EXPECT_EQ(1, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("1 drive(s) failed or did not run:")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("line 2: traces/bad.csv: exit status 4: ")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("NrOfSamples")) << run.err;
  const auto rows = CsvRows(library.Out() + "/report.csv");
  ASSERT_EQ(3u, rows.size());
  EXPECT_EQ("ran", rows[0].at("status"));
  EXPECT_EQ("failed", rows[1].at("status"));
  EXPECT_EQ("ran", rows[2].at("status"));
}

TEST(ResimTest, TheReportHasOneRowPerDriveWithItsFigures) {
  CResimLibrary library;
  ASSERT_EQ(0, library.Run({library.WriteManifest(kLibrary), library.Out()}).exitCode);
  const auto rows = CsvRows(library.Out() + "/report.csv");
  ASSERT_EQ(4u, rows.size());
  EXPECT_EQ("2", rows[0].at("line"));
  EXPECT_EQ("builtin --duration 20 --seed 1", rows[0].at("drive"));
  EXPECT_EQ("100", rows[0].at("records"));
  EXPECT_EQ("100", rows[0].at("samples_type1"));
  EXPECT_EQ("100", rows[0].at("samples_type2"));
  EXPECT_EQ("849", rows[2].at("records"));
  EXPECT_NEAR(20.85, std::stod(rows[2].at("drift_m")), 0.5);
  EXPECT_NEAR(18.7, std::stod(rows[2].at("drift_per_km")), 0.5);
  EXPECT_EQ("", rows[3].at("drift_m")) << "the drive without a truth has no drift";
  for (const auto& row : rows) {
    EXPECT_EQ("0", row.at("replayed"));
    EXPECT_GT(std::stod(row.at("error_max_abs_ms")), 0.0);
    EXPECT_GT(std::stod(row.at("wall_seconds")), 0.0);
    EXPECT_EQ(64u, row.at("samples_sha256").size());
  }
  const nlohmann::json report = nlohmann::json::parse(ReadFile(library.Out() + "/report.json"));
  ASSERT_EQ(4u, report["drives"].size());
  EXPECT_EQ(849, report["drives"][2]["samples_type2"]);
  EXPECT_EQ(4, report["totals"]["ran"]);
  const std::string page = ReadFile(library.Out() + "/report.md");
  EXPECT_NE(std::string::npos, page.find("![Drift per km and synchronisation error per drive](report-plot.svg)"));
  EXPECT_NE(std::string::npos, page.find("| 4 | `traces/city.trace.csv --truth traces/city.truth.csv` | ran | 849 |"));
  EXPECT_NE(std::string::npos, ReadFile(library.Out() + "/report-plot.svg").find("<svg"));
}

TEST(ResimTest, TheDrivesRunOnTheMachinesGivenBySshlogin) {
  CResimLibrary library;
  const SimRun run = library.Run({"-S", ":", library.WriteManifest(kLibrary), library.Out()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  // The joblog: a header, then one line per job (a group of drives) in the order they ended.
  const std::vector<std::string> joblog = Lines(ReadFile(library.Out() + "/joblog"));
  ASSERT_GE(joblog.size(), 2u);
  for (size_t i = 1; i < joblog.size(); ++i) {
    const size_t host = joblog[i].find('\t');
    EXPECT_EQ(":", joblog[i].substr(host + 1, joblog[i].find('\t', host + 1) - host - 1)) << joblog[i];
  }
  for (const ListedDrive& drive : library.Drives(library.Out())) {
    EXPECT_FALSE(library.ResultDir(drive.key).empty()) << drive.label;
  }
}

TEST(ResimTest, ALibraryOfShortDrivesStartsTheSimulatorOncePerJobNotOncePerDrive) {
  CResimLibrary library;
  std::vector<std::string> lines;
  for (int seed = 1; seed <= 24; ++seed) lines.push_back("builtin --duration 5 --seed " + std::to_string(seed));
  const SimRun run = library.Run({"-j", "2", library.WriteManifest(lines), library.Out()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_LE(library.SimulatorStarts(), 2u) << "the drives are too short to be worth more starts";
  EXPECT_EQ(24u, library.SimulatedKeys().size());
  EXPECT_EQ(24u, library.JobKeys(library.Out(), "ran").size());
  EXPECT_EQ(std::vector<std::string>(), library.LeftOvers());
}

TEST(ResimTest, AManifestThatSetsTheRunnersOptionsIsRefusedBeforeAnythingRuns) {
  CResimLibrary library;
  const SimRun run = library.Run({library.WriteManifest({kLibrary[1], "builtin -o samples.csv"}), library.Out()});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("manifest.txt:2: -o is the runner's to set")) << run.err;
  EXPECT_FALSE(FileExists(library.Out() + "/results"));
}

TEST(ResimTest, AMissingTraceIsNamedWithItsLineBeforeAnythingRuns) {
  CResimLibrary library;
  const SimRun run = library.Run({library.WriteManifest({kLibrary[1], "traces/gone.csv"}), library.Out()});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("manifest.txt:2: no readable trace")) << run.err;
  EXPECT_FALSE(FileExists(library.Out() + "/results"));
}

TEST(ResimTest, AFolderOfTracesIsALibraryWithEachTruthBesideItsTrace) {
  CResimLibrary library;
  const SimRun run = library.Run({library.Dir() + "/traces", library.Out()});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const auto rows = CsvRows(library.Out() + "/report.csv");
  ASSERT_EQ(1u, rows.size());
  EXPECT_EQ("city.trace.csv", rows[0].at("drive"));
  EXPECT_NEAR(20.85, std::stod(rows[0].at("drift_m")), 0.5);
}

TEST(ResimTest, AnOutputFolderInsideAFolderLibraryIsNotReadAsDrives) {
  CResimLibrary library;
  const std::string traces = library.Dir() + "/traces";
  ASSERT_EQ(0, library.Run({traces, traces + "/out"}).exitCode);
  const SimRun rerun = library.Run({traces, traces + "/out"});
  ASSERT_EQ(0, rerun.exitCode) << rerun.err;
  EXPECT_EQ(1u, library.Drives(traces + "/out").size());
}

TEST(ResimTest, ProgressShowsOnATerminalOnly) {
  CResimLibrary library;
  const std::string manifest = library.WriteManifest({kLibrary[1]});
  testing_support::ProcessOptions terminal = library.Options();
  terminal.errorOnTerminal = true;
  const auto onTerminal = testing_support::RunProcess(library.Command("resim.sh", {manifest, library.Out()}), terminal);
  ASSERT_EQ(0, onTerminal.exitCode) << onTerminal.err;
  EXPECT_NE(std::string::npos, onTerminal.err.find("100%")) << onTerminal.err;
  const SimRun piped = library.Run({manifest, library.Out() + "-piped"});
  ASSERT_EQ(0, piped.exitCode) << piped.err;
  EXPECT_EQ(std::string::npos, piped.err.find("100%")) << piped.err;
}

TEST(ResimTest, ABuildsResultsOfTwoRunsCompareAsTwoTreesDriveByDrive) {
  CResimLibrary library;
  const std::string manifest = library.WriteManifest(kLibrary);
  ASSERT_EQ(0, library.Run({manifest, library.Out()}).exitCode);
  ASSERT_EQ(0, library.Run({manifest, library.Out() + "-again"}).exitCode);
  const nlohmann::json report = nlohmann::json::parse(ReadFile(library.Out() + "/report.json"));
  const std::string build = "/builds/" + report["build"]["build"].get<std::string>();
  const SimRun compared = testing_host::RunSim({"compare", library.Out() + build, library.Out() + "-again" + build});
  EXPECT_EQ(0, compared.exitCode) << compared.out << compared.err;
  for (const ListedDrive& drive : library.Drives(library.Out())) {
    EXPECT_NE(std::string::npos, compared.out.find(drive.key + ": identical")) << compared.out;
  }
}

TEST(ResimSlurmTest, AnArrayTaskRunsOnlyItsChunkOfTheManifest) {
  CResimLibrary library;
  const std::string manifest = library.WriteManifest(kLibrary);
  testing_support::ProcessOptions task = library.Options();
  task.environment.insert(task.environment.end(),
                          {"SLURM_ARRAY_TASK_ID=1", "SLURM_ARRAY_TASK_COUNT=2", "SLURM_CPUS_PER_TASK=2"});
  const auto run = testing_support::RunProcess(library.Command("resim-slurm.sh", {manifest, library.Out()}), task);
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::vector<ListedDrive> chunk = library.Drives(library.Out() + "/chunk-1-of-2");
  ASSERT_EQ(2u, chunk.size());
  EXPECT_EQ("4", chunk[0].line);
  EXPECT_EQ("5", chunk[1].line);
  for (const ListedDrive& drive : chunk) EXPECT_FALSE(library.ResultDir(drive.key).empty()) << drive.label;
  EXPECT_EQ(2u, CsvRows(library.Out() + "/chunk-1-of-2/report.csv").size());
  EXPECT_EQ(Keys(chunk), library.JobKeys(library.Out() + "/chunk-1-of-2", "ran"));
  EXPECT_FALSE(FileExists(library.Out() + "/chunk-0-of-2"));
}

TEST(ResimSlurmTest, OutsideAJobArrayItSaysWhatIsMissing) {
  CResimLibrary library;
  const auto run = testing_support::RunProcess(
      library.Command("resim-slurm.sh", {library.WriteManifest(kLibrary), library.Out()}), library.Options());
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("not in a Slurm job array")) << run.err;
}

}  // namespace
