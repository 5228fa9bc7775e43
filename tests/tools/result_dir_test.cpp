// positioning-sim --result-dir: one drive, one folder, the same bytes for the same
// drive and build (run.json apart), the samples' SHA-256 in the summary, the drift
// against a truth, and a folder left as it was when a run cannot start.

// 64-bit directory offsets, also in a 32-bit build: ext4 hands out 64-bit ones, and a
// 32-bit readdir under an emulator on a 64-bit kernel fails on them (EOVERFLOW).
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;
using testing_support::RunProcess;

const std::string kDrive = std::string(POSITIONING_DRIVES_DIR) + "/city-drive.csv";
const std::vector<std::string> kResultFiles = {"samples.csv", "summary.json", "path.csv", "log.txt", "run.json"};

std::set<std::string> FilesIn(const std::string& aDir) {
  std::set<std::string> names;
  DIR* dir = opendir(aDir.c_str());
  if (dir == nullptr) return names;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.insert(name);
  }
  closedir(dir);
  return names;
}

// The two folders hold the same files, byte for byte, but for run.json.
void ExpectSameResults(const std::string& aFirst, const std::string& aSecond) {
  ASSERT_EQ(FilesIn(aFirst), FilesIn(aSecond));
  for (const std::string& name : FilesIn(aFirst)) {
    if (name == "run.json") continue;
    EXPECT_TRUE(ReadFile(aFirst + "/" + name) == ReadFile(aSecond + "/" + name)) << name << " differs";
  }
}

std::string Sha256Sum(const std::string& aPath) {
  const SimRun sum = RunProcess({"sha256sum", aPath});
  return sum.out.substr(0, 64);
}

nlohmann::json Json(const std::string& aPath) { return nlohmann::json::parse(ReadFile(aPath)); }

// The city drive imported into a trace and its truth in aDir.
void ImportCityDrive(const std::string& aDir) {
  const SimRun imported = RunSim({"import",      kDrive,
                                  "-o",          aDir + "/city.trace.csv",
                                  "--truth",     aDir + "/city.truth.csv",
                                  "--time",      "ts_us:us",
                                  "--yaw-rate",  "yaw_rate_rad_s:rad/s:left",
                                  "--speed",     "speed_kmh:km/h",
                                  "--direction", "gear",
                                  "--lat",       "ref_lat_deg:deg",
                                  "--lon",       "ref_lon_deg:deg",
                                  "--heading",   "ref_heading_deg:deg:compass"});
  ASSERT_EQ(0, imported.exitCode) << imported.err;
}

TEST(ResultDirTest, TheSameBuiltInDriveTwiceGivesTheSameFoldersButForRunJson) {
  CTempDir scratch;
  const std::vector<std::string> drive = {"--duration", "90", "--late-client", "20", "--log-level", "all", "-q"};
  std::vector<std::string> first = drive, second = drive;
  first.insert(first.end(), {"--result-dir", scratch.File("first")});
  second.insert(second.end(), {"--result-dir", scratch.File("second/nested")});
  const SimRun one = RunSim(first);
  const SimRun two = RunSim(second);
  ASSERT_EQ(0, one.exitCode) << one.err;
  ASSERT_EQ(0, two.exitCode) << two.err;
  EXPECT_EQ(std::set<std::string>(kResultFiles.begin(), kResultFiles.end()), FilesIn(scratch.File("first")));
  ExpectSameResults(scratch.File("first"), scratch.File("second/nested"));
  // The log holds the framework's addresses, numbered: the same in both runs.
  EXPECT_NE(std::string::npos, ReadFile(scratch.File("first/log.txt")).find("(addr1 (addr2))"));
}

TEST(ResultDirTest, TheSameTraceFromTwoFoldersGivesTheSameFoldersAndItsDrift) {
  CTempDir scratch;
  ImportCityDrive(scratch.Path());
  ASSERT_EQ(0, mkdir(scratch.File("copy").c_str(), 0755));
  WriteFile(scratch.File("copy/city.trace.csv"), ReadFile(scratch.File("city.trace.csv")));
  const SimRun one = RunSim({"--trace", scratch.File("city.trace.csv"), "--truth", scratch.File("city.truth.csv"),
                             "--result-dir", scratch.File("one"), "-q"});
  const SimRun two = RunSim({"--trace", scratch.File("copy/city.trace.csv"), "--truth", scratch.File("city.truth.csv"),
                             "--result-dir", scratch.File("two"), "-q"});
  ASSERT_EQ(0, one.exitCode) << one.err;
  ASSERT_EQ(0, two.exitCode) << two.err;
  ExpectSameResults(scratch.File("one"), scratch.File("two"));
  const nlohmann::json summary = Json(scratch.File("one/summary.json"));
  EXPECT_EQ("trace city.trace.csv (849 records)", summary["drive"]);
  EXPECT_EQ(849, summary["records_fed"]);
  EXPECT_EQ(849, summary["samples_by_type"]["1"]);
  EXPECT_EQ(849, summary["samples_by_type"]["2"]);
  const nlohmann::json& drift = summary["dead_reckoning"];
  ASSERT_TRUE(drift.is_object()) << summary.dump();
  EXPECT_NEAR(1113.7, drift["distance_m"].get<double>(), 1.0);
  EXPECT_GT(drift["drift_m"].get<double>(), 0.1);
  EXPECT_NEAR(drift["drift_m"].get<double>() / 1.1137, drift["drift_per_km"].get<double>(), 0.01);
  EXPECT_EQ(summary["path"]["end_error_m"], drift["drift_m"]);
}

TEST(ResultDirTest, ATraceWithoutTruthHasNoDrift) {
  CTempDir scratch;
  ImportCityDrive(scratch.Path());
  const SimRun run = RunSim({"--trace", scratch.File("city.trace.csv"), "--result-dir", scratch.Path(), "-q"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_TRUE(Json(scratch.File("summary.json"))["dead_reckoning"].is_null());
}

TEST(ResultDirTest, TheSummaryCarriesTheSha256OfTheSampleFileAndTheSamplesAreThoseOfOut) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "60", "--second-client", "30", "--result-dir", scratch.Path(), "-q"});
  const SimRun out = RunSim({"--duration", "60", "--second-client", "30", "-o", scratch.File("out.csv"), "-q"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  ASSERT_EQ(0, out.exitCode) << out.err;
  EXPECT_EQ(ReadFile(scratch.File("out.csv")), ReadFile(scratch.File("samples.csv")));
  const nlohmann::json summary = Json(scratch.File("summary.json"));
  EXPECT_EQ(Sha256Sum(scratch.File("samples.csv")), summary["samples_sha256"]);
  // Both clients' samples, counted per type.
  ASSERT_EQ(2u, summary["clients"].size());
  for (const char* type : {"1", "2"}) {
    const std::string key = std::string("type") + type;
    EXPECT_EQ(summary["clients"][0][key].get<int>() + summary["clients"][1][key].get<int>(),
              summary["samples_by_type"][type]);
  }
  EXPECT_EQ(summary.find("wall_seconds"), summary.end());
  EXPECT_EQ(summary.find("outputs"), summary.end());
}

TEST(ResultDirTest, RunJsonNamesTheModuleItsHashAndTheExitStatus) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "10", "--result-dir", scratch.Path(), "-q"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const nlohmann::json record = Json(scratch.File("run.json"));
  EXPECT_EQ(0, record["exit_status"]);
  EXPECT_EQ(Sha256Sum(record["module"].get<std::string>()), record["module_sha256"]);
  EXPECT_EQ(0u, record["version"].get<std::string>().find("positioning-sim "));
  EXPECT_GE(record["wall_seconds"].get<double>(), 0.0);
  EXPECT_EQ(Json(scratch.File("summary.json"))["samples_sha256"], record["samples_sha256"]);
}

TEST(ResultDirTest, OptionsThatNameTheSameOutputsAreRefused) {
  CTempDir scratch;
  for (const char* option : {"--out", "--summary-json", "--path", "--log"}) {
    const SimRun run = RunSim({"--result-dir", scratch.File("r"), option, scratch.File("x")});
    EXPECT_EQ(2, run.exitCode) << option;
    EXPECT_NE(std::string::npos, run.err.find("leave out " + std::string(option))) << run.err;
  }
  EXPECT_FALSE(FileExists(scratch.File("r")));
}

TEST(ResultDirTest, AFolderThatCannotBeMadeFailsWithStatusOne) {
  CTempDir scratch;
  WriteFile(scratch.File("file"), "not a folder\n");
  const SimRun run = RunSim({"--duration", "10", "--result-dir", scratch.File("file/sub")});
  EXPECT_EQ(1, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("cannot create")) << run.err;
}

TEST(ResultDirTest, ARunThatCannotStartLeavesTheFolderAsItWas) {
  CTempDir scratch;
  ASSERT_EQ(0, RunSim({"--duration", "10", "--result-dir", scratch.Path(), "-q"}).exitCode);
  const std::string samples = ReadFile(scratch.File("samples.csv"));
  const std::set<std::string> files = FilesIn(scratch.Path());
  const SimRun bad =
      RunSim({"--duration", "10", "--module", scratch.File("missing.so"), "--result-dir", scratch.Path(), "-q"});
  EXPECT_EQ(5, bad.exitCode) << bad.err;
  EXPECT_EQ(files, FilesIn(scratch.Path()));  // no temporary file left behind
  EXPECT_EQ(samples, ReadFile(scratch.File("samples.csv")));
}

}  // namespace
