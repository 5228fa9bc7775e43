// The ARM build under the emulator against the native build, over a small library of
// drives (built-in on both sources, with a late client, a time jump and a wrap of the
// service clock, and an imported recording with its truth): the same samples, byte
// for byte, and the same summary figures, as positioning-sim compare finds them.
// Cross builds only (label arm): scripts/checks/20-arm.sh builds both.
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_support::ProcessOptions;
using testing_support::RunProcess;

const std::string kNativeSim = POSITIONING_NATIVE_SIM;
const std::string kDrive = std::string(POSITIONING_DRIVES_DIR) + "/city-drive.csv";

std::vector<std::string> ImportArguments(const std::string& aTrace, const std::string& aTruth) {
  return {"import",      kDrive,
          "-o",          aTrace,
          "--truth",     aTruth,
          "--time",      "ts_us:us",
          "--yaw-rate",  "yaw_rate_rad_s:rad/s:left",
          "--speed",     "speed_kmh:km/h",
          "--direction", "gear",
          "--lat",       "ref_lat_deg:deg",
          "--lon",       "ref_lon_deg:deg",
          "--heading",   "ref_heading_deg:deg:compass"};
}

std::vector<std::pair<std::string, std::vector<std::string>>> Library(const CTempDir& aScratch) {
  return {{"builtin/can", {"--duration", "120", "--late-client", "30", "--time-jump", "60:-500"}},
          {"builtin/external", {"--duration", "60", "--diversity", "EXTERNAL", "--seed", "7"}},
          {"builtin/wrap", {"--duration", "60", "--shift-stamps", "4294929696"}},
          {"imported/city", {"--trace", aScratch.File("city.trace.csv"), "--truth", aScratch.File("city.truth.csv")}}};
}

// Runs the library with aSim (a native program, or the emulated one when empty).
void Resimulate(const CTempDir& aScratch, const std::string& aSim, const std::string& aTree) {
  for (const auto& drive : Library(aScratch)) {
    std::vector<std::string> arguments = drive.second;
    arguments.insert(arguments.end(), {"-q", "--result-dir", aScratch.File(aTree + "/" + drive.first)});
    SimRun run;
    if (aSim.empty()) {
      run = RunSim(arguments);
    } else {
      arguments.insert(arguments.begin(), aSim);
      run = RunProcess(arguments);
    }
    ASSERT_EQ(0, run.exitCode) << aTree << " " << drive.first << ": " << run.err;
  }
}

class ArmNativeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, access(kNativeSim.c_str(), X_OK))
        << kNativeSim << " is missing: the native build's simulator (scripts/checks/20-arm.sh builds it)";
  }
  CTempDir iScratch;
};

TEST_F(ArmNativeTest, ARecordingImportsToTheSameTraceAndTruthOnBoth) {
  const SimRun native = RunProcess([this] {
    std::vector<std::string> arguments = ImportArguments(iScratch.File("n.trace.csv"), iScratch.File("n.truth.csv"));
    arguments.insert(arguments.begin(), kNativeSim);
    return arguments;
  }());
  const SimRun arm = RunSim(ImportArguments(iScratch.File("a.trace.csv"), iScratch.File("a.truth.csv")));
  ASSERT_EQ(0, native.exitCode) << native.err;
  ASSERT_EQ(0, arm.exitCode) << arm.err;
  EXPECT_TRUE(ReadFile(iScratch.File("n.trace.csv")) == ReadFile(iScratch.File("a.trace.csv")));
  EXPECT_TRUE(ReadFile(iScratch.File("n.truth.csv")) == ReadFile(iScratch.File("a.truth.csv")));
}

TEST_F(ArmNativeTest, TheLibraryGivesTheSameResultsOnBoth) {
  const SimRun imported = RunSim(ImportArguments(iScratch.File("city.trace.csv"), iScratch.File("city.truth.csv")));
  ASSERT_EQ(0, imported.exitCode) << imported.err;
  Resimulate(iScratch, kNativeSim, "native");
  Resimulate(iScratch, std::string(), "arm");
  const SimRun compared = RunProcess(
      {kNativeSim, "compare", iScratch.File("native"), iScratch.File("arm"), "--json", iScratch.File("compare.json")});
  EXPECT_EQ(0, compared.exitCode) << compared.out << compared.err;
  EXPECT_NE(std::string::npos, compared.out.find("== 4 drive(s): 4 identical")) << compared.out;
  // Not only the same figures: the same bytes, log included.
  for (const auto& drive : Library(iScratch)) {
    for (const char* file : {"samples.csv", "summary.json", "path.csv", "log.txt"}) {
      const std::string name = drive.first + "/" + file;
      EXPECT_TRUE(ReadFile(iScratch.File("native/" + name)) == ReadFile(iScratch.File("arm/" + name))) << name;
    }
  }
}

}  // namespace
