// positioning-sim against the wall clock: real-time runs and progress on a terminal.
// These take seconds of wall time each (label `slow`).
#include <gtest/gtest.h>

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::ProcessOptions;
using testing_host::RunSim;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;
using testing_host::SimRun;

double WallSecondsNow() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TEST(PositioningSimTest, RealtimeRunsAtWallClockSpeed) {
  const double start = WallSecondsNow();
  const SimResult result = RunSimWithSummary({"--realtime", "--duration", "2"});
  const double elapsed = WallSecondsNow() - start;
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(10, result.summary["records_fed"]);
  // Two seconds of drive plus the second before tear-down.
  EXPECT_GE(elapsed, 2.9);
  EXPECT_LT(elapsed, 10.0);
  EXPECT_GE(result.summary["wall_seconds"].get<double>(), 2.9);
}

TEST(PositioningSimTest, ARateRunsThatManyTimesFasterThanTheWallClock) {
  const double start = WallSecondsNow();
  const SimResult result = RunSimWithSummary({"--rate", "4", "--duration", "8", "-o", "/dev/null"});
  const double elapsed = WallSecondsNow() - start;
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  // Eight seconds of drive and the second before tear-down, four times as fast.
  EXPECT_GE(elapsed, 9.0 / 4 - 0.05);
  EXPECT_LT(elapsed, 7.0) << "at wall-clock speed it takes 9 s (start-up under an emulator: a second or two)";
}

TEST(PositioningSimTest, LongRunShowsProgressOnATerminal) {
  // Standard error on a pseudo-terminal, as when run by hand; a real-time run takes
  // longer than the two seconds after which progress is shown.
  ProcessOptions options;
  options.errorOnTerminal = true;
  const SimRun run = RunSim({"--realtime", "--duration", "3", "--out", "/dev/null"}, options);
  ASSERT_EQ(0, run.exitCode) << run.Describe() << "\n" << run.err;
  EXPECT_NE(std::string::npos, run.err.find("\rpositioning-sim: ")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find(" / 3.9 s simulated, "));
  EXPECT_NE(std::string::npos, run.err.find("records fed:          15"));
}

}  // namespace

namespace {

using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_support::CProcess;

// A real-time run stopped by a signal part way: complete sample lines, the recording
// a valid trace of what was sent, the summary printed and written, exit 128 + signal.
void ExpectCleanEndOn(int aSignal, int aStatus) {
  CTempDir scratch;
  CProcess sim;
  std::string error;
  ASSERT_TRUE(sim.Start(
      {testing_host::SimPath(), "--realtime", "--duration", "60", "--out", scratch.File("out.csv"), "--record",
       scratch.File("drive.csv"), "--summary-json", scratch.File("summary.json"), "--log", scratch.File("run.log")},
      ProcessOptions(), error))
      << error;
  usleep(2500000);
  ASSERT_TRUE(sim.Signal(aSignal));
  const SimRun run = sim.Wait();
  EXPECT_EQ(aStatus, run.exitCode) << run.Describe() << "\n" << run.err;
  EXPECT_NE(std::string::npos, run.err.find("records fed:")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("interrupted by")) << run.err;

  const std::string samples = ReadFile(scratch.File("out.csv"));
  ASSERT_FALSE(samples.empty());
  EXPECT_EQ('\n', samples.back());
  const nlohmann::json summary = nlohmann::json::parse(ReadFile(scratch.File("summary.json")));
  EXPECT_EQ(true, summary["interrupted"]);
  const int fed = summary["records_fed"].get<int>();
  EXPECT_GT(fed, 5);
  EXPECT_LT(fed, 250);  // far from the 300 of the whole minute
  EXPECT_EQ(static_cast<size_t>(1 + 2 * fed), Lines(samples).size());
  const std::string log = ReadFile(scratch.File("run.log"));
  ASSERT_FALSE(log.empty());
  EXPECT_EQ('\n', log.back());

  // The recording replays: every record it holds is fed again.
  const SimResult replay = RunSimWithSummary({"--trace", scratch.File("drive.csv"), "--quiet"});
  ASSERT_EQ(0, replay.run.exitCode) << replay.run.err;
  EXPECT_EQ(fed, replay.summary["records_fed"]);
}

TEST(PositioningSimTest, SigintEndsTheRunCleanlyWithStatus130) { ExpectCleanEndOn(SIGINT, 130); }

TEST(PositioningSimTest, SigtermEndsTheRunCleanlyWithStatus143) { ExpectCleanEndOn(SIGTERM, 143); }

}  // namespace
