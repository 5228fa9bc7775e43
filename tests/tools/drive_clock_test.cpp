// positioning-sim on the service's own clock, as a car has it: recordings whose stamps
// start long after the service booted, stamps and clock-sync answers across the 32-bit
// wrap on both sources, stamps beyond the wire's range, and recordings that replay to
// the same samples on their own. Every run has a time limit: a hang fails.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ProcessOptions;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;

const int64_t kWrap = 4294967296;
const char* const kCanHeader = "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n";
const char* const kExternalHeader = "timeStamp,value0,value1,value2,value3\n";

ProcessOptions Within(double aSeconds) {
  ProcessOptions options;
  options.timeoutSeconds = aSeconds;
  return options;
}

// A run with a JSON summary, within a time limit.
struct Outcome {
  SimRun run;
  nlohmann::json summary;
};

Outcome Simulate(std::vector<std::string> aArguments) {
  CTempDir scratch;
  aArguments.push_back("--summary-json");
  aArguments.push_back(scratch.File("summary.json"));
  Outcome result;
  result.run = RunSim(aArguments, Within(60));
  EXPECT_FALSE(result.run.timedOut) << "the simulator hung";
  const std::string text = ReadFile(scratch.File("summary.json"));
  if (!text.empty()) result.summary = nlohmann::json::parse(text, nullptr, false);
  return result;
}

std::vector<std::string> For(const char* aDiversity, std::vector<std::string> aArguments) {
  aArguments.insert(aArguments.begin(), {"--diversity", aDiversity});
  return aArguments;
}

TEST(DriveClockTest, ACanTraceAcrossTheWrapFinishesAndTheSummarySaysSo) {
  CTempDir scratch;
  WriteFile(scratch.File("wrap.csv"),
            std::string(kCanHeader) + "4294967000,1,2,33,10\n4294967200,1,2,33,10\n104,1,2,33,10\n");
  const Outcome result = Simulate({"--trace", scratch.File("wrap.csv"), "-o", "-"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(3, result.summary["records_fed"]);
  EXPECT_EQ(1, result.summary["clock_wraps"]);
  // The module adds its offset to the wrapped stamp until it synchronises again.
  EXPECT_EQ(2, result.summary["stamps_going_back"]);
  const std::vector<std::string> lines = Lines(result.run.out);
  ASSERT_EQ(7u, lines.size());
  EXPECT_EQ("C1,1," + std::to_string(4294967000 + 2480) + ",2,10;2,0", lines[1]);
  EXPECT_EQ("C1,1," + std::to_string(104 + 2480) + ",2,10;2,0", lines[5]);
  EXPECT_NE(std::string::npos, result.run.err.find("service clock:        wrapped at 2^32 ms 1 time(s)"));
}

TEST(DriveClockTest, AnExternalTraceAcrossTheWrapFinishesWithTheModulesSupervision) {
  CTempDir scratch;
  WriteFile(scratch.File("wrap.csv"),
            std::string(kExternalHeader) + "4294967000,10,2,1,1\n4294967200,10,2,1,1\n104,10,2,1,1\n");
  const Outcome result = Simulate({"--diversity", "EXTERNAL", "--trace", scratch.File("wrap.csv"), "-o", "/dev/null"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(3, result.summary["records_fed"]);
  EXPECT_EQ(1, result.summary["clock_wraps"]);
  EXPECT_EQ(true, result.summary["synchronised"]);
  EXPECT_EQ(2480, result.summary["first_sync_offset"]);
  EXPECT_EQ(2, result.summary["supervision_messages"]);  // the difference and the going back
  EXPECT_NE(std::string::npos, result.run.err.find("module: ERROR: SensorData timestamp 104 is going back"));
}

// The built-in drive shifted so that the service's clock wraps 60 s in: the clock-sync
// answers wrap too, and the sync after the wrap takes the offset past 2^32.
TEST(DriveClockTest, BothSourcesResynchroniseAfterTheWrap) {
  const std::string shift = std::to_string(kWrap - 97600 - 60000);
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    const Outcome result = Simulate(For(diversity, {"--duration", "120", "--shift-stamps", shift, "-o", "/dev/null"}));
    ASSERT_EQ(0, result.run.exitCode) << result.run.err;
    EXPECT_EQ(600, result.summary["records_fed"]);
    EXPECT_EQ(1, result.summary["clock_wraps"]);
    const nlohmann::json& offsets = result.summary["offsets"];
    ASSERT_GE(offsets.size(), 2u) << result.summary.dump();
    EXPECT_EQ(2480, offsets[0][1]);
    EXPECT_NEAR(kWrap + 2480, offsets.back()[1].get<double>(), 10) << offsets.dump();
    EXPECT_NEAR(90.1, offsets.back()[0].get<double>(), 0.01) << "the first sync after the wrap";
  }
}

// The soak's store model holds across the wrap: every sample where the module puts it.
TEST(DriveClockTest, TheSoakPassesAcrossTheWrap) {
  const std::string shift = std::to_string(kWrap - 97600 - 60000);
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    // Memory is the soak test's matter, and means nothing under the sanitizers.
    const Outcome result = Simulate(
        For(diversity, {"--duration", "300", "--shift-stamps", shift, "--soak", "--rss-tolerance", "1000000"}));
    ASSERT_EQ(0, result.run.exitCode) << result.run.err;
    EXPECT_EQ(1, result.summary["clock_wraps"]);
    EXPECT_EQ(true, result.summary["soak"]["passed"]);
    EXPECT_EQ(0, result.summary["soak"]["delivery_errors"]);
  }
}

// Every real recording starts long after the service booted: an hour here.
TEST(DriveClockTest, ATraceThatStartsAnHourAfterTheServicesBootSynchronises) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    CTempDir scratch;
    std::string text = std::string(diversity)[0] == 'C' ? kCanHeader : kExternalHeader;
    for (int i = 0; i < 300; ++i) text += std::to_string(3600000 + i * 200) + ",10,1,33,10\n";
    if (diversity[0] == 'E') {
      text = kExternalHeader;
      for (int i = 0; i < 300; ++i) text += std::to_string(3600000 + i * 200) + ",10,1,0,1\n";
    }
    WriteFile(scratch.File("late.csv"), text);
    const Outcome result = Simulate(For(diversity, {"--trace", scratch.File("late.csv"), "-o", "/dev/null"}));
    ASSERT_EQ(0, result.run.exitCode) << result.run.err;
    EXPECT_EQ(true, result.summary["synchronised"]);
    EXPECT_EQ(2480, result.summary["first_sync_offset"]);
    EXPECT_NEAR(-20, result.summary["error_mean"].get<double>(), 1);
  }
}

TEST(DriveClockTest, StampsBeyondTheWireAreRefusedAtTheFileCheck) {
  for (const char* stamp : {"9000000000000000000", "5000000000"}) {
    CTempDir scratch;
    WriteFile(scratch.File("far.csv"), std::string(kExternalHeader) + "97600,10,1,0,1\n" + stamp + ",10,1,0,1\n");
    const Outcome result = Simulate({"--diversity", "EXTERNAL", "--trace", scratch.File("far.csv")});
    EXPECT_EQ(4, result.run.exitCode);
    EXPECT_NE(std::string::npos, result.run.err.find(scratch.File("far.csv") + ":3: timeStamp: out of range (0 to "
                                                                               "4294967295)"))
        << result.run.err;
    EXPECT_TRUE(result.run.out.empty());
  }
}

// What shaped a recording (clock offset, drift, answer latency, a time jump in the
// sent stamps) replays with it, without the options.
TEST(DriveClockTest, ARecordingReplaysToTheSameSamplesOnItsOwn) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    CTempDir scratch;
    const Outcome recorded =
        Simulate(For(diversity, {"--duration", "90", "--peer-offset", "7000", "--peer-drift", "100", "--sync-latency",
                                 "100", "--time-jump", "40:5000", "--time-jump", "60:-7000", "--record",
                                 scratch.File("r.csv"), "-o", "-"}));
    ASSERT_EQ(0, recorded.run.exitCode) << recorded.run.err;
    const std::string trace = ReadFile(scratch.File("r.csv"));
    EXPECT_NE(std::string::npos, trace.find("drift-ppm=100 sync-latency-ms=100")) << trace.substr(0, 300);
    EXPECT_NE(std::string::npos, trace.find("\n# stamp-shift-ms: 5000\n"));
    EXPECT_NE(std::string::npos, trace.find("\n# stamp-shift-ms: -2000\n")) << "the two jumps, repeated options";
    const Outcome replayed = Simulate(For(diversity, {"--trace", scratch.File("r.csv"), "-o", "-"}));
    ASSERT_EQ(0, replayed.run.exitCode) << replayed.run.err;
    EXPECT_EQ(recorded.run.out, replayed.run.out);
    EXPECT_EQ(recorded.summary["offsets"], replayed.summary["offsets"]);
    EXPECT_EQ(recorded.summary["error_mean"], replayed.summary["error_mean"]);
    // Recorded again from the replay: the same recording.
    const Outcome again =
        Simulate(For(diversity, {"--trace", scratch.File("r.csv"), "--record", scratch.File("r2.csv"), "-o", "-"}));
    ASSERT_EQ(0, again.run.exitCode) << again.run.err;
    EXPECT_EQ(trace, ReadFile(scratch.File("r2.csv")));
  }
}

TEST(DriveClockTest, OptionsThatDoNotApplyToATraceAreRefused) {
  CTempDir scratch;
  ASSERT_EQ(0, RunSim({"--duration", "5", "--record", scratch.File("r.csv"), "-q", "-o", "/dev/null"}).exitCode);
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"--trace", scratch.File("r.csv"), "--peer-offset", "100"}, "--peer-offset does not apply to"},
      {{"--trace", scratch.File("r.csv"), "--peer-drift", "1"}, "--peer-drift does not apply to"},
      {{"--trace", scratch.File("r.csv"), "--sync-latency", "1"}, "--sync-latency does not apply to"},
      {{"--trace", scratch.File("r.csv"), "--duration", "10"}, "--duration does not apply to a trace"},
      {{"--trace", scratch.File("r.csv"), "--seed", "2"}, "--seed does not apply to a trace"},
      {{"--start", "2"}, "--start applies to a trace"},
      {{"--loop", "2"}, "--loop applies to a trace"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.second);
    const SimRun run = RunSim(one.first, Within(20));
    EXPECT_EQ(2, run.exitCode) << run.err;
    EXPECT_NE(std::string::npos, run.err.find(one.second)) << run.err;
    EXPECT_TRUE(run.out.empty());
  }
}

// A trace without a clock line (from elsewhere) takes the clock options.
TEST(DriveClockTest, ATraceWithoutAClockLineTakesTheClockOptions) {
  CTempDir scratch;
  std::string text = kCanHeader;
  for (int i = 0; i < 100; ++i) text += std::to_string(50000 + i * 200) + ",4,100,33,10\n";
  WriteFile(scratch.File("t.csv"), text);
  const Outcome plain = Simulate({"--trace", scratch.File("t.csv"), "-o", "/dev/null"});
  ASSERT_EQ(0, plain.run.exitCode) << plain.run.err;
  EXPECT_EQ(50080, plain.summary["first_sync_offset"]) << "the feature starts at 100000, as replays always did";
  const Outcome offset = Simulate({"--trace", scratch.File("t.csv"), "--peer-offset", "3000", "-o", "/dev/null"});
  ASSERT_EQ(0, offset.run.exitCode) << offset.run.err;
  EXPECT_EQ(2980, offset.summary["first_sync_offset"]);
}

}  // namespace
