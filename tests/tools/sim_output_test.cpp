// positioning-sim's output for people: a run on a terminal shows its summary and says
// where the samples went, -o chooses where they go (- for standard output), the sample
// columns, traces from standard input, and the plain words for bad traces, files that
// cannot be opened and a diversity that selects no source.
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
using testing_host::SimPath;
using testing_host::SimRun;
using testing_host::WriteFile;

const char* const kCanHeader = "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n";

ProcessOptions In(const std::string& aFolder) {
  ProcessOptions options;
  options.workingDirectory = aFolder;
  options.timeoutSeconds = 60;
  return options;
}

// The simulator with standard output and error on a terminal (script(1) gives it one).
SimRun OnTerminal(const std::string& aArguments, const std::string& aFolder) {
  return testing_support::RunProcess({"script", "-qec", "'" + SimPath() + "' " + aArguments, "/dev/null"}, In(aFolder));
}

TEST(SimOutputTest, OnATerminalTheSamplesGoToAFileAndTheSummaryFitsOnTheScreen) {
  if (!testing_support::OnPath("script")) GTEST_SKIP() << "script(1) is not installed";
  CTempDir scratch;
  const SimRun run = OnTerminal("--late-client 90", scratch.Path());
  ASSERT_EQ(0, run.exitCode) << run.out;
  const std::vector<std::string> shown = Lines(run.out);
  EXPECT_LT(shown.size(), 25u) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("== positioning-sim summary"));
  EXPECT_NE(std::string::npos, run.out.find("samples in:           positioning-sim-samples.csv"));
  EXPECT_NE(std::string::npos, run.out.find("replays its gyroscope minute, type 1, only")) << run.out;
  const std::vector<std::string> samples = Lines(ReadFile(scratch.File("positioning-sim-samples.csv")));
  ASSERT_EQ(1u + 300u + 2u * 1050u, samples.size());
  EXPECT_EQ("client,sensor_type,time_stamp,value_count,values,replayed", samples[0]);
}

TEST(SimOutputTest, DashMeansStandardOutputAndAFileNameAFile) {
  CTempDir scratch;
  const SimRun dash = RunSim({"--duration", "10", "-o", "-"}, In(scratch.Path()));
  ASSERT_EQ(0, dash.exitCode) << dash.err;
  EXPECT_EQ(101u, Lines(dash.out).size());
  EXPECT_EQ(std::string::npos, dash.err.find("samples in:"));
  const SimRun file = RunSim({"--duration", "10", "-o", "s.csv"}, In(scratch.Path()));
  ASSERT_EQ(0, file.exitCode) << file.err;
  EXPECT_TRUE(file.out.empty());
  EXPECT_EQ(101u, Lines(ReadFile(scratch.File("s.csv"))).size());
  EXPECT_NE(std::string::npos, file.err.find("samples in:           s.csv"));
  EXPECT_FALSE(FileExists(scratch.File("positioning-sim-samples.csv")));
}

TEST(SimOutputTest, AnyOutputMayGoToStandardOutputButOnlyOne) {
  CTempDir scratch;
  const SimRun recording = RunSim({"--duration", "10", "--record", "-", "-o", scratch.File("s.csv")});
  ASSERT_EQ(0, recording.exitCode) << recording.err;
  EXPECT_EQ("TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples", Lines(recording.out).at(2));
  EXPECT_EQ(53u, Lines(recording.out).size());
  EXPECT_NE(std::string::npos, recording.err.find("recording in:         standard output"));
  const SimRun summary = RunSim({"--duration", "10", "--summary-json", "-", "-o", "/dev/null", "-q"});
  ASSERT_EQ(0, summary.exitCode) << summary.err;
  EXPECT_EQ(50, nlohmann::json::parse(summary.out)["records_fed"]);
  // Without -o the samples take standard output (it is no terminal here).
  const SimRun both = RunSim({"--duration", "10", "--record", "-"});
  EXPECT_EQ(2, both.exitCode);
  EXPECT_NE(std::string::npos, both.err.find("--out and --record both write to standard output (-)")) << both.err;
  EXPECT_TRUE(both.out.empty());
}

TEST(SimOutputTest, TheReplayedColumnMarksTheSamplesReplayedOnSubscription) {
  const SimRun run = RunSim({"--duration", "20", "--late-client", "10", "-o", "-"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::vector<std::string> lines = Lines(run.out);
  ASSERT_EQ(1u + 50u + 2u * 50u, lines.size());
  for (size_t i = 1; i < lines.size(); ++i) {
    const std::string end = lines[i].substr(lines[i].size() - 2);
    EXPECT_EQ(i <= 50 ? ",1" : ",0", end) << lines[i];
  }
}

TEST(SimOutputTest, ATraceIsReadFromStandardInput) {
  CTempDir scratch;
  ASSERT_EQ(0, RunSim({"--duration", "10", "--record", scratch.File("r.csv"), "-q", "-o", "/dev/null"}).exitCode);
  const SimRun fromFile = RunSim({"--trace", scratch.File("r.csv"), "-o", "-"});
  ProcessOptions piped;
  piped.input = scratch.File("r.csv");
  const SimRun fromInput = RunSim({"--trace", "-", "-o", "-"}, piped);
  ASSERT_EQ(0, fromInput.exitCode) << fromInput.err;
  EXPECT_EQ(fromFile.out, fromInput.out);
  EXPECT_NE(std::string::npos, fromInput.err.find("trace standard input (50 records)"));
}

TEST(SimOutputTest, ATraceThatCannotBeOpenedSaysWhy) {
  const SimRun run = RunSim({"--trace", "/nonexistent/drive.csv"});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("/nonexistent/drive.csv: cannot open the trace: No such file or directory"))
      << run.err;
  const SimRun folder = RunSim({"--trace", "/"});
  EXPECT_EQ(4, folder.exitCode);
  EXPECT_NE(std::string::npos, folder.err.find("/: cannot open the trace: Is a directory")) << folder.err;
}

TEST(SimOutputTest, AHeaderOnlyTraceIsAnError) {
  CTempDir scratch;
  WriteFile(scratch.File("h.csv"), std::string("# nothing yet\n") + kCanHeader);
  const SimRun run = RunSim({"--trace", scratch.File("h.csv")});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find(scratch.File("h.csv") + ":2: the trace holds no records, only its header"))
      << run.err;
  EXPECT_TRUE(run.out.empty());
}

TEST(SimOutputTest, AHeaderWithAByteOrderMarkIsNamed) {
  CTempDir scratch;
  WriteFile(scratch.File("b.csv"), "\xEF\xBB\xBF" + std::string(kCanHeader) + "97600,0,0,33,10\n");
  const SimRun run = RunSim({"--trace", scratch.File("b.csv")});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find(":1: the file starts with a UTF-8 byte order mark")) << run.err;
}

TEST(SimOutputTest, StampsThatGoBackAreWarnedOfAndTheRunGoesOn) {
  CTempDir scratch;
  WriteFile(scratch.File("w.csv"),
            std::string(kCanHeader) + "97600,0,0,33,10\n97800,0,0,33,10\n97700,0,0,33,10\n97700,0,0,33,10\n");
  const SimRun run = RunSim({"--trace", scratch.File("w.csv"), "-o", "/dev/null"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("warning: " + scratch.File("w.csv") + ": time stamps go back at line 4\n"))
      << run.err;
  EXPECT_NE(std::string::npos, run.err.find("time stamps repeat at line 5\n")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("records fed:          4"));
}

TEST(SimOutputTest, ADiversityThatSelectsNoSourceIsSaidPlainly) {
  const SimRun run = RunSim({"--diversity", "can", "--duration", "10", "-o", "/dev/null"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("the diversity \"can\" selects no sensor source")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("no source:")) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("records fed:          0 (not sent for want of a source: 50)")) << run.err;
  EXPECT_EQ(std::string::npos, run.err.find("while the service was away")) << run.err;
}

TEST(SimOutputTest, PlotAxesCarryTheirUnits) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "20", "--plot", scratch.File("p.svg"), "-q", "-o", "/dev/null"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::string svg = ReadFile(scratch.File("p.svg"));
  EXPECT_NE(std::string::npos, svg.find("angular rate (as sent; built-in: 1/100 deg/s)"));
  EXPECT_NE(std::string::npos, svg.find("distance pulses per record (pulses)"));
  EXPECT_NE(std::string::npos, svg.find("sync offset (ms)"));
  EXPECT_NE(std::string::npos, svg.find("time since feature start (s)"));
}

TEST(SimOutputTest, HelpGivesEveryTraceFieldAndSampleColumnWithItsUnit) {
  const SimRun help = RunSim({"--help"});
  ASSERT_EQ(0, help.exitCode);
  for (const char* field :
       {"TimeStamp ms", "DistancePuls pulses", "AngularRate (built-in: 1/100 deg/s, right turns positive)",
        "DrivingDirection 33 forward", "NrOfSamples", "timeStamp ms", "value0", "value1 angular rate",
        "value2 distance pulses", "value3 direction 1 forward", "time_stamp ms", "replayed 1", "-o,--out",
        "--rate FACTOR", "--start SECONDS", "--end SECONDS", "--loop N", "--shift-stamps MS"})
    EXPECT_NE(std::string::npos, help.out.find(field)) << field;
}

}  // namespace
