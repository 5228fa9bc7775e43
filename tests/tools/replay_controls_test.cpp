// Replay controls of positioning-sim: a window into a recording (--start, --end), a
// loop count (--loop) and the wall-clock rate (--rate, timed in the slow tests).
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;

struct Sample {
  unsigned type = 0;
  unsigned long long timeStamp = 0;
  std::string values;
};

std::vector<Sample> Samples(const std::string& aCsv) {
  std::vector<Sample> samples;
  const std::vector<std::string> lines = Lines(aCsv);
  for (size_t i = 1; i < lines.size(); ++i) {
    Sample sample;
    char values[64];
    if (sscanf(lines[i].c_str(), "C1,%u,%llu,2,%63[^,]", &sample.type, &sample.timeStamp, values) != 3) {
      ADD_FAILURE() << lines[i];
      continue;
    }
    sample.values = values;
    samples.push_back(sample);
  }
  return samples;
}

// A minute of the built-in drive, recorded.
class ReplayControlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    iTrace = iScratch.File("minute.csv");
    const SimResult recorded = RunSimWithSummary({"--duration", "60", "--record", iTrace, "-o", "-", "-q"});
    ASSERT_EQ(0, recorded.run.exitCode) << recorded.run.err;
    iRecorded = Samples(recorded.run.out);
    ASSERT_EQ(600u, iRecorded.size());
  }
  CTempDir iScratch;
  std::string iTrace;
  std::vector<Sample> iRecorded;
};

TEST_F(ReplayControlsTest, AWindowReplaysItsStretchWithTheHeadUnitStartedAtItsBeginning) {
  const SimResult run = RunSimWithSummary({"--trace", iTrace, "--start", "10", "--end", "20", "-o", "-"});
  ASSERT_EQ(0, run.run.exitCode) << run.run.err;
  EXPECT_EQ(51, run.summary["records_fed"]);  // 10.0 s to 20.0 s
  EXPECT_NEAR(11.1, run.summary["simulated_seconds"].get<double>(), 0.01);
  EXPECT_EQ(true, run.summary["synchronised"]);
  const std::vector<Sample> window = Samples(run.run.out);
  ASSERT_EQ(102u, window.size());
  // The same records as at 10 s into the recording, stamped within the drift of it.
  for (size_t i = 0; i < window.size(); ++i) {
    EXPECT_EQ(iRecorded[100 + i].values, window[i].values) << i;
    EXPECT_NEAR(static_cast<double>(iRecorded[100 + i].timeStamp), static_cast<double>(window[i].timeStamp), 2) << i;
  }
}

TEST_F(ReplayControlsTest, LoopsFollowEachOtherOnTheSameClocks) {
  const SimResult run = RunSimWithSummary({"--trace", iTrace, "--end", "9.8", "--loop", "3", "-o", "-"});
  ASSERT_EQ(0, run.run.exitCode) << run.run.err;
  EXPECT_EQ(150, run.summary["records_fed"]);
  const std::vector<Sample> samples = Samples(run.run.out);
  ASSERT_EQ(300u, samples.size());
  for (size_t i = 2; i < samples.size(); i += 2) {
    EXPECT_EQ(iRecorded[i % 100].values, samples[i].values) << i;
    EXPECT_NEAR(200.0, static_cast<double>(samples[i].timeStamp - samples[i - 2].timeStamp), 2) << i;
  }
  EXPECT_NE(std::string::npos, run.run.err.find("(300 records), from 0.0 s to 9.8 s, 3 loops")) << run.run.err;
}

TEST_F(ReplayControlsTest, AWindowWithoutRecordsIsAnError) {
  const SimResult run = RunSimWithSummary({"--trace", iTrace, "--start", "100", "-o", "-"});
  EXPECT_EQ(4, run.run.exitCode);
  EXPECT_NE(std::string::npos, run.run.err.find("no record lies in the window")) << run.run.err;
  EXPECT_TRUE(run.run.out.empty());
}

TEST_F(ReplayControlsTest, TheEndMustComeAfterTheStart) {
  const SimResult run = RunSimWithSummary({"--trace", iTrace, "--start", "20", "--end", "10"});
  EXPECT_EQ(2, run.run.exitCode);
  EXPECT_NE(std::string::npos, run.run.err.find("--end must come after --start")) << run.run.err;
}

}  // namespace
