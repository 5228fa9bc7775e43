// positioning-sim --soak, short forms of the day-long soak (scripts/checks/65-soak.sh
// runs the full one): resident memory sampled every simulated minute, every sample fed
// while the delivery gate is open checked at every subscribed client, every replay and
// a final one checked against the last minute fed; and the checks shown to fail when
// a sample goes missing or memory grows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::RunSim;
using testing_host::SimRun;

const int kSoakFailed = 3;

const bool kMemoryChecked = testing_host::kMemoryMeaningful;

// A soak run: its figures are under "soak" in the summary, the rest at the top.
struct TSoak : testing_host::SimResult {
  const nlohmann::json& Figures(const std::string& aKey) const {
    static const nlohmann::json kNone;
    if (summary.contains("soak") && summary["soak"].contains(aKey)) return summary["soak"][aKey];
    return summary.contains(aKey) ? summary[aKey] : kNone;
  }
  double Number(const std::string& aKey) const {
    const nlohmann::json& value = Figures(aKey);
    return value.is_number() ? value.get<double>() : -1e300;
  }
  bool Flag(const std::string& aKey) const { return Figures(aKey) == true; }
};

TSoak Soak(std::vector<std::string> aArguments) {
  aArguments.push_back("--soak");
  if (!kMemoryChecked) {
    aArguments.push_back("--rss-tolerance");
    aArguments.push_back("1000000");
  }
  TSoak soak;
  static_cast<testing_host::SimResult&>(soak) = testing_host::RunSimWithSummary(aArguments);
  return soak;
}

TEST(SoakTest, TenMinutesOfTheCanSourcePassEveryCheckAndReportTheFigures) {
  const TSoak soak = Soak({"--duration", "600"});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  EXPECT_TRUE(soak.Flag("passed"));
  EXPECT_EQ(3000, soak.Number("records_fed"));
  // The client subscribed before the first record: everything fed reaches it twice
  // (both sensors), and the buffer ends with the last 300 first-sensor samples.
  EXPECT_EQ(3000, soak.Number("records_gate_open"));
  EXPECT_EQ(6000, soak.Number("deliveries_checked"));
  EXPECT_EQ(0, soak.Number("delivery_errors"));
  EXPECT_TRUE(soak.Flag("final_replay"));
  EXPECT_EQ(300, soak.Number("final_replay_samples"));
  EXPECT_EQ(300, soak.Number("last_minute_fed"));
  EXPECT_EQ(0, soak.Number("replay_errors"));
  // One sample per simulated minute and one at the end.
  EXPECT_EQ(11, soak.Number("rss_samples"));
  EXPECT_GT(soak.Number("rss_first_minute_kb"), 0);
  if (kMemoryChecked) {
    EXPECT_LE(soak.Number("rss_growth_kb"), 256);
  }
  // Checked, not printed.
  EXPECT_EQ("", soak.run.out);
  EXPECT_NE(std::string::npos, soak.run.err.find("soak:                 passed")) << soak.run.err;
  EXPECT_NE(std::string::npos, soak.run.err.find("final replay of 300 samples, equal to the last 300 fed"));
}

TEST(SoakTest, TenMinutesOfTheExternalSourcePassEveryCheck) {
  const TSoak soak = Soak({"--diversity", "EXTERNAL", "--duration", "600"});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  EXPECT_TRUE(soak.Flag("passed"));
  EXPECT_EQ(6000, soak.Number("deliveries_checked"));
  EXPECT_EQ(300, soak.Number("final_replay_samples"));
}

TEST(SoakTest, LateClientsReplayIsCheckedAgainstTheLastMinute) {
  const TSoak soak = Soak({"--duration", "300", "--late-client", "90"});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  // The replay when it subscribes, and the final one.
  EXPECT_EQ(2, soak.Number("replays_checked"));
  EXPECT_EQ(0, soak.Number("replay_errors"));
  // Fed from 90 s on: (300 - 90) s at five records a second.
  EXPECT_EQ(1050, soak.Number("records_gate_open"));
}

TEST(SoakTest, SecondClientClosesTheGateSoOnlyWhatCameBeforeIsDeliveredAndNothingIsReplayed) {
  const TSoak soak = Soak({"--duration", "120", "--second-client", "30"});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  EXPECT_EQ(150, soak.Number("records_gate_open"));
  EXPECT_EQ(300, soak.Number("deliveries_checked"));
  EXPECT_FALSE(soak.Flag("final_replay"));
  EXPECT_NE(std::string::npos, soak.run.err.find("no final replay (the delivery gate is closed)"));
}

TEST(SoakTest, ServiceAndClockFaultsKeepEveryCheckPassing) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    const TSoak soak = Soak({"--diversity", diversity, "--duration", "600", "--service-leave", "100:200",
                             "--clock-sync-loss", "300:400", "--time-jump", "450:-5000"});
    ASSERT_EQ(0, soak.run.exitCode) << diversity << "\n" << soak.run.err;
    EXPECT_EQ(0, soak.Number("delivery_errors")) << diversity;
    EXPECT_EQ(soak.Number("records_fed"), soak.Number("records_gate_open")) << diversity;
    EXPECT_EQ(2 * soak.Number("records_fed"), soak.Number("deliveries_checked")) << diversity;
    EXPECT_LT(soak.Number("records_fed"), 3000) << diversity;
  }
}

TEST(SoakTest, ClientRejoiningClosesTheGateForGood) {
  const TSoak soak = Soak({"--diversity", "EXTERNAL", "--duration", "200", "--client-rejoin", "100"});
  ASSERT_EQ(0, soak.run.exitCode) << soak.run.err;
  // Between leaving (100 s) and subscribing again (101 s) the count still says open,
  // but nobody is subscribed; the new subscriptions close the gate.
  EXPECT_EQ(505, soak.Number("records_gate_open"));
  EXPECT_EQ(1000, soak.Number("deliveries_checked"));
  EXPECT_FALSE(soak.Flag("final_replay"));
}

TEST(SoakTest, ALostSampleFailsTheSoakWithExitStatus3) {
  const TSoak soak = Soak({"--duration", "300", "--inject-loss", "500"});
  EXPECT_EQ(kSoakFailed, soak.run.exitCode) << soak.run.err;
  EXPECT_FALSE(soak.Flag("passed"));
  EXPECT_EQ(6, soak.Number("delivery_errors"));
  EXPECT_NE(std::string::npos, soak.run.err.find("first mismatch:       record at")) << soak.run.err;
  EXPECT_NE(std::string::npos, soak.run.err.find("positioning-sim: soak check failed"));
}

TEST(SoakTest, GrowingMemoryFailsTheSoakWithExitStatus3) {
  if (!kMemoryChecked) GTEST_SKIP() << "resident memory is the sanitizer's or the emulator's";
  const TSoak soak = Soak({"--duration", "600", "--inject-leak", "256"});
  EXPECT_EQ(kSoakFailed, soak.run.exitCode) << soak.run.err;
  EXPECT_FALSE(soak.Flag("passed"));
  // Nine minutes after the first, 256 kB each.
  EXPECT_GE(soak.Number("rss_growth_kb"), 9 * 256);
  EXPECT_EQ(0, soak.Number("delivery_errors"));
  EXPECT_NE(std::string::npos, soak.run.err.find("GROWING"));
}

TEST(SoakTest, ToleranceIsTheGrowthAllowed) {
  if (!kMemoryChecked) GTEST_SKIP() << "resident memory is the sanitizer's or the emulator's";
  const TSoak soak = Soak({"--duration", "600", "--inject-leak", "256", "--rss-tolerance", "100000"});
  EXPECT_EQ(0, soak.run.exitCode) << soak.run.err;
  EXPECT_EQ(100000, soak.Number("rss_tolerance_kb"));
}

TEST(SoakTest, BadSoakOptionsAreRefused) {
  EXPECT_EQ(2, RunSim({"--soak", "--rss-tolerance", "-1"}).exitCode);
  EXPECT_EQ(2, RunSim({"--soak", "--inject-loss", "0"}).exitCode);
  EXPECT_EQ(2, RunSim({"--soak", "--inject-leak", "many"}).exitCode);
}

}  // namespace
