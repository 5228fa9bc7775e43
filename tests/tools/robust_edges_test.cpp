// positioning-sim used as a hostile user would: values that are not numbers or out of
// range, outputs that cannot be written or collide with each other or the input, file
// names that look like code, a plot that fails, and memory over a long drive. Every
// run has a time limit, so a hang fails instead of blocking.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::Lines;
using testing_host::ProcessOptions;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;
using testing_host::SimRun;
using testing_host::WithFailingGnuplot;

const int kIoFailure = 1;
const int kUsage = 2;

ProcessOptions Within(double aSeconds) {
  ProcessOptions options;
  options.timeoutSeconds = aSeconds;
  return options;
}

// A usage error: exit 2 at once, the option named, nothing simulated.
void ExpectUsageError(const std::vector<std::string>& aArguments, const std::string& aMessage) {
  SCOPED_TRACE(aArguments.front() + " " + (aArguments.size() > 1 ? aArguments[1] : ""));
  const SimRun run = RunSim(aArguments, Within(20));
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(kUsage, run.exitCode) << run.Describe() << "\n" << run.err;
  EXPECT_NE(std::string::npos, run.err.find(aMessage)) << run.err;
  EXPECT_TRUE(run.out.empty());
}

TEST(RobustEdgesTest, ValuesThatAreNotNumbersAreUsageErrors) {
  ExpectUsageError({"--late-client", "nan"}, "--late-client takes seconds");
  ExpectUsageError({"--peer-drift", "nan"}, "--peer-drift takes ppm");
  ExpectUsageError({"--service-leave", "nan"}, "--service-leave takes SECONDS");
  ExpectUsageError({"--duration", "nan"}, "--duration takes seconds");
  ExpectUsageError({"--second-client", "nan"}, "--second-client takes seconds");
  ExpectUsageError({"--client-rejoin", "inf"}, "--client-rejoin takes seconds");
  ExpectUsageError({"--clock-sync-loss", "10:nan"}, "--clock-sync-loss takes SECONDS");
  ExpectUsageError({"--seed", "1x"}, "--seed takes a whole number");
  ExpectUsageError({"--peer-offset", "12.5"}, "--peer-offset takes milliseconds");
  ExpectUsageError({"--sync-latency", ""}, "--sync-latency takes milliseconds");
}

TEST(RobustEdgesTest, ValuesOutOfRangeAreUsageErrors) {
  ExpectUsageError({"--time-jump", "1e9:5"}, "--time-jump takes SECONDS:MILLISECONDS");
  ExpectUsageError({"--service-leave", "1e9"}, "--service-leave takes SECONDS");
  ExpectUsageError({"--late-client", "-1"}, "--late-client takes seconds");
  ExpectUsageError({"--duration", "0"}, "--duration takes seconds");
  ExpectUsageError({"--duration", "1e300"}, "--duration takes seconds");
  ExpectUsageError({"--seed", "-1"}, "--seed takes a whole number");
  ExpectUsageError({"--seed", "18446744073709551616"}, "--seed takes a whole number");
  ExpectUsageError({"--peer-drift", "1001"}, "--peer-drift takes ppm");
  ExpectUsageError({"--service-leave", "20:10"}, "the end must come after the start");
  ExpectUsageError({"--format", "xml"}, "--format takes csv or jsonl");
  ExpectUsageError({"--duration"}, "--duration");
}

TEST(RobustEdgesTest, OptionsTakeTheirValueAfterAnEqualsSignAndRunIsTheDefault) {
  const SimResult equals = RunSimWithSummary({"--duration=10", "--seed=3", "--quiet"});
  ASSERT_EQ(0, equals.run.exitCode) << equals.run.err;
  EXPECT_EQ(50, equals.summary["records_fed"]);
  const SimResult spaced = RunSimWithSummary({"run", "--duration", "10", "--seed", "3", "--quiet"});
  ASSERT_EQ(0, spaced.run.exitCode) << spaced.run.err;
  EXPECT_EQ(equals.run.out, spaced.run.out);
}

TEST(RobustEdgesTest, FaultOptionsRepeatAndOtherOptionsDoNot) {
  const SimResult twice = RunSimWithSummary(
      {"--duration", "60", "--service-leave", "5:6", "--service-leave", "20:21", "--quiet", "-o", "/dev/null"});
  ASSERT_EQ(0, twice.run.exitCode) << twice.run.err;
  EXPECT_EQ(10, twice.summary["records_not_sent"]);
  ExpectUsageError({"--duration", "5", "--duration", "6"}, "--duration");
}

TEST(RobustEdgesTest, VersionAndHelpNameTheExitStatuses) {
  const SimRun version = RunSim({"--version"});
  EXPECT_EQ(0, version.exitCode);
  EXPECT_EQ("positioning-sim 1.0.0", Lines(version.out).at(0));
  const SimRun help = RunSim({"--help"});
  EXPECT_EQ(0, help.exitCode);
  for (const char* status : {"1    an output", "2    usage error", "3    --soak", "4    the trace", "5    the module",
                             "130  interrupted by SIGINT, 143 by SIGTERM"})
    EXPECT_NE(std::string::npos, help.out.find(status)) << status;
}

// An output that cannot be opened stops the run before it starts: exit 1, the file
// and the system's reason, no sample written.
TEST(RobustEdgesTest, EveryOutputIsOpenedBeforeTheRun) {
  for (const char* option : {"--record", "--summary-json", "--plot", "--log", "--out"}) {
    SCOPED_TRACE(option);
    const std::string path = std::string("/nonexistent/folder/out") + (std::string(option) == "--plot" ? ".png" : "");
    const SimRun run = RunSim({"--duration", "600", option, path}, Within(20));
    EXPECT_EQ(kIoFailure, run.exitCode) << run.err;
    EXPECT_NE(std::string::npos, run.err.find(path + ": No such file or directory")) << run.err;
    EXPECT_EQ(std::string::npos, run.err.find("records fed")) << "the run started";
    EXPECT_TRUE(run.out.empty());
  }
}

TEST(RobustEdgesTest, TwoOutputsOnOneFileAreRefused) {
  CTempDir scratch;
  const SimRun run = RunSim({"--out", scratch.File("x"), "--record", scratch.File("x")});
  EXPECT_EQ(kUsage, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--out and --record name the same file")) << run.err;
  const SimRun relative = RunSim({"--summary-json", scratch.File("y"), "--log", scratch.Path() + "/./y"});
  EXPECT_EQ(kUsage, relative.exitCode) << relative.err;
  EXPECT_FALSE(FileExists(scratch.File("x")));
}

TEST(RobustEdgesTest, AnOutputOnTheInputTraceIsRefusedAndTheTraceKept) {
  CTempDir scratch;
  const std::string trace = scratch.File("drive.csv");
  ASSERT_EQ(0, RunSim({"--duration", "10", "--record", trace, "--quiet"}).exitCode);
  const std::string recorded = ReadFile(trace);
  for (const char* option : {"--out", "--record", "--summary-json", "--log"}) {
    SCOPED_TRACE(option);
    const SimRun run = RunSim({"--trace", trace, option, trace});
    EXPECT_EQ(kUsage, run.exitCode);
    EXPECT_NE(std::string::npos, run.err.find("would overwrite the input")) << run.err;
    EXPECT_EQ(recorded, ReadFile(trace));
  }
}

// /dev/full takes the open and refuses every write.
TEST(RobustEdgesTest, EveryWriteErrorIsReported) {
  for (const char* option : {"--log", "--out", "--summary-json", "--record"}) {
    SCOPED_TRACE(option);
    const SimRun run = RunSim({"--duration", "30", option, "/dev/full"}, Within(30));
    EXPECT_EQ(kIoFailure, run.exitCode) << run.err;
    EXPECT_NE(std::string::npos, run.err.find("/dev/full")) << run.err;
  }
  const SimRun samples = RunSim({"--duration", "30", "--plot", "/dev/full/x.png"});
  EXPECT_EQ(kIoFailure, samples.exitCode) << samples.err;
}

// A name that, pasted into a gnuplot script, would run a command in the folder the
// simulator was started in.
TEST(RobustEdgesTest, ThePlotsFileNameIsNeverCode) {
  CTempDir scratch;
  const std::string name = scratch.File("a'; system 'touch hacked'; '.svg");
  ProcessOptions inScratch;
  inScratch.workingDirectory = scratch.Path();
  const SimRun run = RunSim({"--duration", "20", "--plot", name, "--quiet"}, inScratch);
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, ReadFile(name).find("<svg"));
  EXPECT_FALSE(FileExists(scratch.File("hacked")));
}

TEST(RobustEdgesTest, APlotErrorSaysItsRealCause) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "10", "--plot", scratch.File("p.png"), "--quiet"},
                            WithFailingGnuplot(scratch, "cannot load font: out of fonts"));
  EXPECT_EQ(kIoFailure, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("plot: gnuplot failed: cannot load font: out of fonts")) << run.err;
}

// Records stream: a ten times longer drive runs in the memory of the shorter one
// (the whole drive held in memory took about 1.8 kB a record: 290 MB more here).
// Without --plot: the figure counts the programs the simulator waited for, and
// gnuplot's memory grows with the points it draws.
TEST(RobustEdgesTest, ALongDriveRunsInTheMemoryOfAShortOne) {
  if (!testing_host::kMemoryMeaningful) GTEST_SKIP() << "resident memory is the sanitizer's or the emulator's";
  CTempDir scratch;
  const std::vector<std::string> outputs = {"--quiet", "--out",    "/dev/null", "--record", scratch.File("r.csv"),
                                            "--log",   "/dev/null"};
  std::vector<std::string> shorter = {"--duration", "3600"};
  std::vector<std::string> longer = {"--duration", "36000"};
  shorter.insert(shorter.end(), outputs.begin(), outputs.end());
  longer.insert(longer.end(), outputs.begin(), outputs.end());
  const SimRun hour = RunSim(shorter, Within(120));
  const SimRun tenHours = RunSim(longer, Within(300));
  ASSERT_EQ(0, hour.exitCode) << hour.err;
  ASSERT_EQ(0, tenHours.exitCode) << tenHours.err;
  EXPECT_GT(hour.maxResidentKb, 0);
  EXPECT_LT(tenHours.maxResidentKb, hour.maxResidentKb + 4096)
      << "1 hour: " << hour.maxResidentKb << " kB, 10 hours: " << tenHours.maxResidentKb << " kB";
}

// A trace streams too: ten loops of an hour's recording run in the memory of one.
TEST(RobustEdgesTest, ALoopedTraceRunsInTheMemoryOfOnePass) {
  if (!testing_host::kMemoryMeaningful) GTEST_SKIP() << "resident memory is the sanitizer's or the emulator's";
  CTempDir scratch;
  ASSERT_EQ(
      0, RunSim({"--duration", "3600", "--record", scratch.File("hour.csv"), "--quiet", "-o", "/dev/null"}, Within(120))
             .exitCode);
  const SimRun once = RunSim({"--trace", scratch.File("hour.csv"), "--quiet", "-o", "/dev/null"}, Within(120));
  const SimRun tenTimes =
      RunSim({"--trace", scratch.File("hour.csv"), "--loop", "10", "--quiet", "-o", "/dev/null"}, Within(300));
  ASSERT_EQ(0, once.exitCode) << once.err;
  ASSERT_EQ(0, tenTimes.exitCode) << tenTimes.err;
  EXPECT_LT(tenTimes.maxResidentKb, once.maxResidentKb + 4096)
      << "1 pass: " << once.maxResidentKb << " kB, 10 loops: " << tenTimes.maxResidentKb << " kB";
}

// The soak watches the module's memory: the simulator's outputs do not count.
TEST(RobustEdgesTest, SoakWithOutputsMeasuresTheModuleNotTheOutputs) {
  if (!testing_host::kMemoryMeaningful) GTEST_SKIP() << "resident memory is the sanitizer's or the emulator's";
  CTempDir scratch;
  const SimResult soak = RunSimWithSummary({"--soak", "--duration", "3600", "--record", scratch.File("r.csv"), "--plot",
                                            scratch.File("p.png"), "--log", scratch.File("run.log")});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  EXPECT_EQ(true, soak.summary["soak"]["passed"]);
  EXPECT_LE(soak.summary["soak"]["rss_growth_kb"].get<double>(), 256) << soak.summary.dump();
}

}  // namespace
