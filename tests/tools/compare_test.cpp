// positioning-sim compare: two builds over one small library of drives (built-in on
// both sources, an imported recording, and a drive that feeds nothing). The same build
// twice is identical; a build that stamps every sample 1 ms later is caught on the
// drives that deliver samples, with the right first difference.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;

const std::string kLateModule = POSITIONING_LATE_MODULE_PATH;
const std::string kDrive = std::string(POSITIONING_DRIVES_DIR) + "/city-drive.csv";

// The library's drives: a key and the options that make it.
std::vector<std::pair<std::string, std::vector<std::string>>> Library(const std::string& aTrace) {
  return {{"builtin/can", {"--duration", "40", "--late-client", "10"}},
          {"builtin/external", {"--duration", "40", "--diversity", "EXTERNAL", "--seed", "2"}},
          {"imported/city", {"--trace", aTrace}},
          {"builtin/no-source", {"--duration", "20", "--diversity", "USB"}}};
}

class CompareTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const SimRun imported =
        RunSim({"import", kDrive, "-o", iScratch.File("city.trace.csv"), "--time", "ts_us:us", "--yaw-rate",
                "yaw_rate_rad_s:rad/s:left", "--speed", "speed_kmh:km/h", "--direction", "gear"});
    ASSERT_EQ(0, imported.exitCode) << imported.err;
  }
  // Re-simulates the library with aModule into the tree aName; the tree's path.
  std::string Resimulate(const std::string& aName, const std::string& aModule = std::string()) {
    for (const auto& drive : Library(iScratch.File("city.trace.csv"))) {
      std::vector<std::string> arguments = drive.second;
      arguments.insert(arguments.end(), {"-q", "--result-dir", iScratch.File(aName + "/" + drive.first)});
      if (!aModule.empty()) arguments.insert(arguments.end(), {"--module", aModule});
      const SimRun run = RunSim(arguments);
      EXPECT_EQ(0, run.exitCode) << drive.first << ": " << run.err;
    }
    return iScratch.File(aName);
  }
  CTempDir iScratch;
};

// The second line (first sample) of a drive's sample file, taken apart.
std::vector<std::string> FirstSample(const std::string& aFolder) {
  const std::vector<std::string> lines = Lines(ReadFile(aFolder + "/samples.csv"));
  std::vector<std::string> fields;
  if (lines.size() < 2) return fields;
  size_t start = 0;
  for (size_t comma = lines[1].find(','); comma != std::string::npos; comma = lines[1].find(',', start)) {
    fields.push_back(lines[1].substr(start, comma - start));
    start = comma + 1;
  }
  fields.push_back(lines[1].substr(start));
  return fields;
}

TEST_F(CompareTest, TheSameBuildTwiceIsIdenticalOnEveryDrive) {
  const std::string a = Resimulate("a");
  const std::string b = Resimulate("b");
  const SimRun compared = RunSim({"compare", a, b});
  EXPECT_EQ(0, compared.exitCode) << compared.out << compared.err;
  EXPECT_NE(std::string::npos, compared.out.find("builtin/can: identical")) << compared.out;
  EXPECT_NE(std::string::npos, compared.out.find("imported/city: identical")) << compared.out;
  EXPECT_NE(std::string::npos, compared.out.find("== 4 drive(s): 4 identical, 0 differ")) << compared.out;
}

TEST_F(CompareTest, ALateBuildIsCaughtOnTheDrivesWithSamplesWithTheRightFirstDifference) {
  const std::string a = Resimulate("a");
  const std::string b = Resimulate("b", kLateModule);
  const SimRun compared = RunSim({"compare", a, b, "--json", iScratch.File("compare.json")});
  EXPECT_EQ(1, compared.exitCode) << compared.out << compared.err;
  EXPECT_NE(std::string::npos, compared.out.find("== 4 drive(s): 1 identical, 3 differ")) << compared.out;
  // The drive without a source delivers nothing: nothing to be late.
  EXPECT_NE(std::string::npos, compared.out.find("builtin/no-source: identical")) << compared.out;
  const nlohmann::json report = nlohmann::json::parse(ReadFile(iScratch.File("compare.json")));
  for (const nlohmann::json& drive : report["drives"]) {
    if (drive["drive"] == "builtin/no-source") continue;
    SCOPED_TRACE(drive["drive"].get<std::string>());
    const std::vector<std::string> first = FirstSample(a + "/" + drive["drive"].get<std::string>());
    ASSERT_EQ(6u, first.size());
    const nlohmann::json& difference = drive["first_difference"];
    EXPECT_EQ(1, difference["sample"]);
    EXPECT_EQ(first[0], difference["a"]["client"]);
    EXPECT_EQ(first[1], difference["b"]["sensor_type"]);
    EXPECT_EQ(first[2], difference["a"]["time_stamp"]);
    EXPECT_EQ(std::to_string(std::stoull(first[2]) + 1), difference["b"]["time_stamp"]);
    EXPECT_EQ(difference["a"]["values"], difference["b"]["values"]);
    // Every sample is late, so every one differs; none is lost.
    EXPECT_EQ(drive["samples_a"], drive["samples_differing"]);
    EXPECT_EQ(drive["samples_a"], drive["samples_b"]);
  }
  // The synchronised stamps' error against the true time moved by the 1 ms.
  EXPECT_NE(std::string::npos, compared.out.find("error_mean: ")) << compared.out;
  EXPECT_NE(std::string::npos, compared.out.find("(+1)")) << compared.out;
}

TEST_F(CompareTest, TheFirstDifferenceIsShownWithClientTypeTimeStampAndValues) {
  const std::string a = Resimulate("a");
  const std::string b = Resimulate("b", kLateModule);
  const SimRun compared = RunSim({"compare", a + "/builtin/can", b + "/builtin/can"});
  EXPECT_EQ(1, compared.exitCode) << compared.out << compared.err;
  const std::vector<std::string> first = FirstSample(a + "/builtin/can");
  ASSERT_EQ(6u, first.size());
  const std::string late = std::to_string(std::stoull(first[2]) + 1);
  EXPECT_NE(std::string::npos, compared.out.find("the first is sample 1:")) << compared.out;
  EXPECT_NE(std::string::npos, compared.out.find("A: client C1, type " + first[1] + ", time stamp " + first[2] +
                                                 " ms, values " + first[4]))
      << compared.out;
  EXPECT_NE(std::string::npos, compared.out.find("B: client C1, type " + first[1] + ", time stamp " + late))
      << compared.out;
}

TEST_F(CompareTest, ADriveInOneTreeOnlyCountsAsADifference) {
  const std::string a = Resimulate("a");
  const std::string b = Resimulate("b");
  const SimRun extra = RunSim({"--duration", "10", "-q", "--result-dir", b + "/builtin/extra"});
  ASSERT_EQ(0, extra.exitCode) << extra.err;
  const SimRun compared = RunSim({"compare", a, b});
  EXPECT_EQ(1, compared.exitCode) << compared.out << compared.err;
  EXPECT_NE(std::string::npos, compared.out.find("builtin/extra: only in B")) << compared.out;
}

TEST_F(CompareTest, BadInputIsRefusedWithStatusTwo) {
  const std::string a = Resimulate("a");
  ASSERT_EQ(0, mkdir(iScratch.File("empty").c_str(), 0755));
  const SimRun missing = RunSim({"compare", a, iScratch.File("missing")});
  EXPECT_EQ(2, missing.exitCode);
  EXPECT_NE(std::string::npos, missing.err.find("not a folder")) << missing.err;
  const SimRun empty = RunSim({"compare", a, iScratch.File("empty")});
  EXPECT_EQ(2, empty.exitCode);
  EXPECT_NE(std::string::npos, empty.err.find("holds no result folder")) << empty.err;
  const std::string broken = Resimulate("broken");
  WriteFile(broken + "/imported/city/summary.json", "{\"records_fed\": ");
  const SimRun unreadable = RunSim({"compare", a, broken});
  EXPECT_EQ(2, unreadable.exitCode);
  EXPECT_NE(std::string::npos, unreadable.err.find("not a summary")) << unreadable.err;
  const SimRun usage = RunSim({"compare", a});
  EXPECT_EQ(2, usage.exitCode);
}

}  // namespace
