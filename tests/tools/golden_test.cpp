// Pins what the simulator delivers: every run listed in golden/scenarios.txt must give
// byte for byte the samples, and the same summary figures, as the files beside it
// (written by golden/make-golden.sh when a change of behaviour is meant).
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;

const std::string kGoldenDir = POSITIONING_GOLDEN_DIR;

struct Scenario {
  std::string name;
  std::vector<std::string> arguments;
};

std::vector<Scenario> Scenarios() {
  std::vector<Scenario> scenarios;
  for (const std::string& line : Lines(ReadFile(kGoldenDir + "/scenarios.txt"))) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    Scenario scenario;
    words >> scenario.name;
    std::string word;
    while (words >> word) scenario.arguments.push_back(word == "TRACE" ? kGoldenDir + "/can_trace.trace.csv" : word);
    scenarios.push_back(scenario);
  }
  return scenarios;
}

// The summary's figures, compared at the precision the golden file was written with;
// the drive's name holds a path and the wall time varies, so those two are left out.
void ExpectSameFigures(const nlohmann::json& aWant, const nlohmann::json& aGot, const std::string& aWhere) {
  if (aWant.is_object()) {
    ASSERT_TRUE(aGot.is_object()) << aWhere;
    for (auto it = aWant.begin(); it != aWant.end(); ++it) {
      if (it.key() == "drive" || it.key() == "wall_seconds") continue;
      ASSERT_TRUE(aGot.contains(it.key())) << aWhere << "." << it.key() << " is missing";
      ExpectSameFigures(it.value(), aGot[it.key()], aWhere + "." + it.key());
    }
  } else if (aWant.is_array()) {
    ASSERT_TRUE(aGot.is_array()) << aWhere;
    ASSERT_EQ(aWant.size(), aGot.size()) << aWhere;
    for (size_t i = 0; i < aWant.size(); ++i)
      ExpectSameFigures(aWant[i], aGot[i], aWhere + "[" + std::to_string(i) + "]");
  } else if (aWant.is_number_float() || aGot.is_number_float()) {
    ASSERT_TRUE(aGot.is_number()) << aWhere;
    EXPECT_NEAR(aWant.get<double>(), aGot.get<double>(), 0.0005) << aWhere;
  } else {
    EXPECT_EQ(aWant, aGot) << aWhere;
  }
}

TEST(GoldenTest, EveryScenarioDeliversTheSamplesAndFiguresItDidWhenPinned) {
  const std::vector<Scenario> scenarios = Scenarios();
  ASSERT_EQ(3u, scenarios.size());
  for (const Scenario& scenario : scenarios) {
    SCOPED_TRACE(scenario.name);
    CTempDir scratch;
    std::vector<std::string> arguments = scenario.arguments;
    for (const char* extra : {"--quiet", "--out"}) arguments.push_back(extra);
    arguments.push_back(scratch.File("out"));
    arguments.push_back("--summary-json");
    arguments.push_back(scratch.File("summary.json"));
    const SimRun run = RunSim(arguments);
    ASSERT_EQ(0, run.exitCode) << run.err;

    const std::vector<std::string> want = Lines(ReadFile(kGoldenDir + "/" + scenario.name + ".out"));
    const std::vector<std::string> got = Lines(ReadFile(scratch.File("out")));
    ASSERT_GT(want.size(), 100u);
    // The CSV gained a last column, replayed, since these files were pinned: each line is
    // the pinned one with it (files written since have it and compare as they are).
    const std::string column = ",replayed";
    const bool csv =
        !want.empty() && want[0][0] != '{' &&
        (want[0].size() < column.size() || want[0].compare(want[0].size() - column.size(), column.size(), column) != 0);
    for (size_t i = 0; i < want.size() && i < got.size(); ++i) {
      if (!csv) {
        ASSERT_EQ(want[i], got[i]) << "sample line " << i + 1;
      } else if (i == 0) {
        ASSERT_EQ(want[i] + ",replayed", got[i]);
      } else {
        ASSERT_TRUE(got[i] == want[i] + ",0" || got[i] == want[i] + ",1") << "sample line " << i + 1 << ": " << got[i];
      }
    }
    ASSERT_EQ(want.size(), got.size());

    const nlohmann::json wantSummary = nlohmann::json::parse(ReadFile(kGoldenDir + "/" + scenario.name + ".json"));
    const nlohmann::json gotSummary = nlohmann::json::parse(ReadFile(scratch.File("summary.json")));
    ExpectSameFigures(wantSummary, gotSummary, "summary");
  }
}

}  // namespace
