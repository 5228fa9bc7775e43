// positioning-sim run as a user runs it: the built-in drives, record and replay, bad
// traces, each fault option, the output formats, the log, the plot.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::SimRun;
using testing_host::WriteFile;

// Local tick of the first record (feature created at 100000, first record 100 ms later)
// and its time stamp in the service's clock with the default 2500 ms offset.
const uint64_t kFirstLocal = 100100;
const uint64_t kFirstStamp = kFirstLocal - 2500;
// Default latency between a kick and the peer's answer: the answer's time stamp is
// taken that much after the kick, so the offset comes out 20 ms short.
const int64_t kFirstOffset = 2500 - 20;

struct Csv {
  std::string client;
  unsigned type;
  uint64_t timeStamp;
  std::string values;
  bool replayed;
};

std::vector<Csv> ParseSamples(const std::string& aText) {
  std::vector<Csv> samples;
  std::vector<std::string> lines = Lines(aText);
  for (size_t i = 1; i < lines.size(); ++i) {
    Csv sample;
    char client[16];
    unsigned long long timeStamp;
    unsigned count;
    char values[64];
    int replayed = -1;
    if (sscanf(lines[i].c_str(), "%15[^,],%u,%llu,%u,%63[^,],%d", client, &sample.type, &timeStamp, &count, values,
               &replayed) != 6 ||
        (replayed != 0 && replayed != 1)) {
      ADD_FAILURE() << "bad sample line: " << lines[i];
      continue;
    }
    sample.client = client;
    sample.timeStamp = timeStamp;
    sample.values = values;
    sample.replayed = replayed == 1;
    samples.push_back(sample);
  }
  return samples;
}

size_t CountOf(const std::vector<Csv>& aSamples, const std::string& aClient, unsigned aType) {
  size_t count = 0;
  for (const Csv& sample : aSamples) count += sample.client == aClient && sample.type == aType ? 1 : 0;
  return count;
}

// One run with a JSON summary; the samples and the summary are kept.
struct Result : testing_host::SimResult {
  std::vector<Csv> samples;
  // A figure of the summary; C1's for the per-client ones.
  double Number(const std::string& aKey) const {
    const nlohmann::json& figures = summary.contains(aKey) ? summary : Client("C1");
    return figures.contains(aKey) ? figures[aKey].get<double>() : -1e300;
  }
};

Result Simulate(std::vector<std::string> aArguments) {
  Result result;
  static_cast<testing_host::SimResult&>(result) = testing_host::RunSimWithSummary(aArguments);
  result.samples = ParseSamples(result.run.out);
  return result;
}

TEST(PositioningSimTest, HelpListsTheOptionsWithAnExample) {
  SimRun run = RunSim({"--help"});
  EXPECT_EQ(0, run.exitCode);
  EXPECT_NE(std::string::npos, run.out.find("Usage: positioning-sim"));
  EXPECT_NE(std::string::npos, run.out.find("--trace FILE"));
  EXPECT_NE(std::string::npos, run.out.find("--log FILE|dlt"));
  EXPECT_NE(std::string::npos, run.out.find("Example:"));
}

TEST(PositioningSimTest, UnknownOptionIsAUsageError) {
  SimRun run = RunSim({"--speed", "3"});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--speed")) << run.err;
  EXPECT_TRUE(run.out.empty());
}

TEST(PositioningSimTest, ModuleThatCannotBeLoadedFailsTheRun) {
  SimRun run = RunSim({"--module", "/nonexistent/libPositioning.so"});
  EXPECT_EQ(5, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("cannot load the module"));
}

TEST(PositioningSimTest, DefaultCanDriveDeliversEveryRecordAsTwoSamples) {
  Result result = Simulate({});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ("CAN", result.summary["source"]);
  EXPECT_EQ(1500, result.Number("records_fed"));  // 5 minutes at 200 ms
  EXPECT_EQ(1500, result.Number("type1"));
  EXPECT_EQ(1500, result.Number("type2"));
  EXPECT_EQ(0, result.Number("replayed"));
  EXPECT_EQ(kFirstOffset, result.Number("first_sync_offset"));
  EXPECT_EQ(0, result.Number("supervision_messages"));
  ASSERT_EQ(3000u, result.samples.size());
  EXPECT_EQ(1500u, CountOf(result.samples, "C1", 1));
  // First record: parked, 10 raw samples, a little gyroscope noise, forward.
  const Csv& first = result.samples.front();
  EXPECT_EQ(1u, first.type);
  EXPECT_EQ(kFirstStamp + kFirstOffset, first.timeStamp);
  EXPECT_EQ("10;-2", first.values);
  EXPECT_EQ(2u, result.samples[1].type);
  EXPECT_EQ("0;1", result.samples[1].values);
  // Last record: its time stamp plus the offset of the last measurement, which the
  // 40 ppm drift has moved by about 11 ms over the drive.
  const Csv& last = result.samples.back();
  EXPECT_EQ(2u, last.type);
  const uint64_t lastStamp = kFirstStamp + 1499 * 200;
  EXPECT_EQ(lastStamp + 2469, last.timeStamp);
  // The error is the answer latency, within a millisecond of drift and rounding.
  EXPECT_NEAR(-20, result.Number("error_mean"), 1.0);
}

TEST(PositioningSimTest, DefaultExternalDriveDeliversEveryCombinedRecordAsTwoSamples) {
  Result result = Simulate({"--diversity", "EXTERNAL"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ("EXTERNAL", result.summary["source"]);
  EXPECT_EQ(1500, result.Number("records_fed"));
  EXPECT_EQ(1500, result.Number("type1"));
  EXPECT_EQ(1500, result.Number("type2"));
  EXPECT_EQ(0, result.Number("replayed"));
  EXPECT_EQ(kFirstOffset, result.Number("first_sync_offset"));
  ASSERT_EQ(3000u, result.samples.size());
  EXPECT_EQ(kFirstStamp + kFirstOffset, result.samples.front().timeStamp);
  EXPECT_EQ("10;-2", result.samples.front().values);
  EXPECT_EQ("0;1", result.samples[1].values);  // no pulses yet, direction forward
  EXPECT_EQ(kFirstStamp + 1499 * 200 + 2469, result.samples.back().timeStamp);
}

TEST(PositioningSimTest, TheBuiltInDriveTurnsStopsAndReverses) {
  Result result = Simulate({});
  ASSERT_EQ(0, result.run.exitCode);
  bool reversed = false, turnedRight = false, turnedLeft = false, stoppedAfterMoving = false, moved = false;
  for (const Csv& sample : result.samples) {
    int first = 0, second = 0;
    sscanf(sample.values.c_str(), "%d;%d", &first, &second);
    if (sample.type == 2) {
      reversed |= second == 2;
      if (first > 0) moved = true;
      if (moved && first == 0) stoppedAfterMoving = true;
    } else {
      turnedRight |= second > 1000;
      turnedLeft |= second < -1000;
    }
  }
  EXPECT_TRUE(reversed);
  EXPECT_TRUE(turnedRight);
  EXPECT_TRUE(turnedLeft);
  EXPECT_TRUE(stoppedAfterMoving);
}

TEST(PositioningSimTest, ADifferentSeedGivesADifferentDrive) {
  Result one = Simulate({"--duration", "60"});
  Result two = Simulate({"--duration", "60", "--seed", "2"});
  ASSERT_EQ(0, one.run.exitCode);
  ASSERT_EQ(0, two.run.exitCode);
  EXPECT_EQ(one.samples.size(), two.samples.size());
  EXPECT_NE(one.run.out, two.run.out);
  EXPECT_EQ(one.run.out, Simulate({"--duration", "60"}).run.out);
}

TEST(PositioningSimTest, AShorterDriveIsTheStartOfALongerOne) {
  Result shorter = Simulate({"--duration", "60"});
  Result longer = Simulate({"--duration", "120"});
  ASSERT_EQ(600u, shorter.samples.size());
  ASSERT_EQ(1200u, longer.samples.size());
  for (size_t i = 0; i < shorter.samples.size(); ++i) {
    EXPECT_EQ(shorter.samples[i].values, longer.samples[i].values) << i;
    EXPECT_EQ(shorter.samples[i].timeStamp, longer.samples[i].timeStamp) << i;
  }
}

TEST(PositioningSimTest, LateClientGetsTheLastMinuteReplayed) {
  Result result = Simulate({"--late-client", "90"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(300, result.Number("replayed"));
  // Live records from 90 s on: those fed at local 190000 and later.
  EXPECT_EQ(300 + 1050, result.Number("type1"));
  EXPECT_EQ(1050, result.Number("type2"));
  // The replay is the gyroscope buffer, oldest first, before any live sample.
  for (size_t i = 0; i < 300; ++i) EXPECT_EQ(1u, result.samples[i].type) << i;
  EXPECT_LT(result.samples[0].timeStamp, result.samples[299].timeStamp);
}

TEST(PositioningSimTest, RecordedCanDriveReplaysToTheSameOutputByteForByte) {
  CTempDir scratch;
  SimRun recorded = RunSim({"--record", scratch.File("drive.csv"), "--late-client", "30"});
  ASSERT_EQ(0, recorded.exitCode) << recorded.err;
  EXPECT_EQ("TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples",
            Lines(ReadFile(scratch.File("drive.csv")))[2]);
  SimRun replayed = RunSim({"--trace", scratch.File("drive.csv"), "--late-client", "30"});
  ASSERT_EQ(0, replayed.exitCode) << replayed.err;
  EXPECT_EQ(recorded.out, replayed.out);
  // 30 s buffered and replayed, then two samples per record.
  EXPECT_EQ(150u + 2u * 1350u, Lines(replayed.out).size() - 1);
}

TEST(PositioningSimTest, RecordedExternalDriveReplaysToTheSameOutputByteForByte) {
  CTempDir scratch;
  SimRun recorded = RunSim({"--diversity", "EXTERNAL", "--record", scratch.File("drive.csv")});
  ASSERT_EQ(0, recorded.exitCode) << recorded.err;
  EXPECT_EQ("timeStamp,value0,value1,value2,value3", Lines(ReadFile(scratch.File("drive.csv")))[2]);
  SimRun replayed = RunSim({"--diversity", "EXTERNAL", "--trace", scratch.File("drive.csv")});
  ASSERT_EQ(0, replayed.exitCode) << replayed.err;
  EXPECT_EQ(recorded.out, replayed.out);
}

TEST(PositioningSimTest, TraceOfTheOtherSourceIsRefused) {
  CTempDir scratch;
  WriteFile(scratch.File("can.csv"), "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n1,2,3,33,4\n");
  SimRun run = RunSim({"--diversity", "EXTERNAL", "--trace", scratch.File("can.csv")});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("the trace holds CAN records"));
  EXPECT_TRUE(run.out.empty());
}

// A bad trace stops the program before anything is fed: exit 4, the file, the line
// and what is wrong, no sample output.
void ExpectBadTrace(const std::string& aContent, const std::string& aMessage) {
  CTempDir scratch;
  const std::string path = scratch.File("bad.csv");
  WriteFile(path, aContent);
  SimRun run = RunSim({"--trace", path, "--out", scratch.File("samples.csv")});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find(path + ":" + aMessage)) << run.err;
  EXPECT_FALSE(FileExists(scratch.File("samples.csv")));
}

TEST(PositioningSimTest, TraceWithoutHeaderIsRefused) {
  ExpectBadTrace("# a drive\n1000,2,3,33,4\n", "2: missing header");
}

TEST(PositioningSimTest, TraceRowWithWrongColumnCountIsRefused) {
  ExpectBadTrace("TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n1000,2,3,33,4\n1200,2,3,33\n",
                 "3: expected 5 columns, found 4");
}

TEST(PositioningSimTest, TraceWithNonNumericFieldIsRefused) {
  ExpectBadTrace("TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n1000,2,fast,33,4\n",
                 "2: AngularRate: not a whole number: 'fast'");
}

TEST(PositioningSimTest, TraceWithOutOfRangeValueIsRefused) {
  ExpectBadTrace("timeStamp,value0,value1,value2,value3\n#\n1000,1,2,3,4\n1200,1,40000,3,4\n",
                 "4: value1: out of range (-32768 to 32767): '40000'");
  ExpectBadTrace("TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples\n1000,2,3,33,256\n",
                 "2: NrOfSamples: out of range (0 to 255): '256'");
}

TEST(PositioningSimTest, ServiceThatLeavesLosesItsRecordsUntilItReturns) {
  Result result = Simulate({"--service-leave", "60:90"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(150, result.Number("records_not_sent"));  // 30 s of records
  EXPECT_EQ(1350, result.Number("records_fed"));
  EXPECT_EQ(1350, result.Number("type1"));
}

TEST(PositioningSimTest, ExternalServiceThatReturnsIsSubscribedAgain) {
  Result result = Simulate({"--diversity", "EXTERNAL", "--service-leave", "60:90"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(1350, result.Number("records_fed"));
  EXPECT_EQ(1350, result.Number("type2"));
}

TEST(PositioningSimTest, LosingTheClockSyncServiceKeepsSamplesFlowingWithoutOffset) {
  Result result = Simulate({"--diversity", "EXTERNAL", "--clock-sync-loss", "60"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(1500, result.Number("type1"));
  EXPECT_EQ(1500, result.Number("type2"));
  // Without its time object the module passes the service's time through.
  ASSERT_FALSE(result.summary["offsets"].empty());
  EXPECT_EQ(0, result.summary["offsets"].back()[1]) << result.summary.dump();
  EXPECT_EQ(kFirstStamp + 1499 * 200, result.samples.back().timeStamp);
}

TEST(PositioningSimTest, UnansweredCanKicksKeepTheLastOffset) {
  Result result = Simulate({"--clock-sync-loss", "60"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(1500, result.Number("type1"));
  // Measurements at 0 s and 30 s only; the offset stays at the second one.
  EXPECT_EQ(nlohmann::json::parse("[[0.1,2480],[30.099,2479]]"), result.summary["offsets"]) << result.summary.dump();
}

TEST(PositioningSimTest, SecondClientsSubscriptionClosesTheDeliveryGateForEveryone) {
  Result result = Simulate({"--second-client", "60"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  // C1 receives what came in the first minute; C2 never receives anything.
  EXPECT_EQ(300u, CountOf(result.samples, "C1", 1));
  EXPECT_EQ(300u, CountOf(result.samples, "C1", 2));
  EXPECT_EQ(0u, CountOf(result.samples, "C2", 1));
  EXPECT_EQ(0, result.Client("C2")["type1"]);
  EXPECT_EQ(0, result.Client("C2")["type2"]);
}

TEST(PositioningSimTest, ClientThatLeavesAndSubscribesAgainStopsAllDelivery) {
  Result result = Simulate({"--client-rejoin", "100"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(500u, CountOf(result.samples, "C1", 1));
  EXPECT_EQ(500u, CountOf(result.samples, "C1", 2));
}

TEST(PositioningSimTest, TimeStampThatGoesBackIsReportedApartFromTheSamples) {
  Result result = Simulate({"--diversity", "EXTERNAL", "--time-jump", "120:-500"});
  ASSERT_EQ(0, result.run.exitCode) << result.run.err;
  EXPECT_EQ(2, result.Number("supervision_messages"));
  EXPECT_NE(std::string::npos, result.run.err.find("module: ERROR: SensorData timestamp difference more than 250 ms"));
  EXPECT_NE(std::string::npos, result.run.err.find("is going back"));
  EXPECT_EQ(std::string::npos, result.run.out.find("ERROR"));
  // The record is still accepted, so nothing is lost.
  EXPECT_EQ(1500, result.Number("type1"));
}

TEST(PositioningSimTest, CanSourceDoesNotSuperviseTimeStamps) {
  Result result = Simulate({"--time-jump", "120:-500"});
  ASSERT_EQ(0, result.run.exitCode);
  EXPECT_EQ(0, result.Number("supervision_messages"));
  EXPECT_NEAR(-20 - 500 * (1500 - 600) / 1500.0, result.Number("error_mean"), 2.0);
}

TEST(PositioningSimTest, UnpluggedMainUnitLeavesTheExternalSourceUnsynchronised) {
  Result result = Simulate({"--diversity", "EXTERNAL", "--main-unit-unplugged"});
  ASSERT_EQ(0, result.run.exitCode);
  EXPECT_EQ(false, result.summary["synchronised"]);
  EXPECT_EQ(kFirstStamp, result.samples.front().timeStamp);
}

TEST(PositioningSimTest, UsbDiversityFeedsNothing) {
  Result result = Simulate({"--diversity", "USB"});
  ASSERT_EQ(0, result.run.exitCode);
  EXPECT_EQ(0, result.Number("records_fed"));
  EXPECT_EQ(1500, result.Number("records_not_sent"));
  EXPECT_TRUE(result.samples.empty());
}

TEST(PositioningSimTest, JsonLinesCarryTheSameSamples) {
  SimRun csv = RunSim({"--duration", "10"});
  SimRun jsonl = RunSim({"--duration", "10", "--format", "jsonl"});
  ASSERT_EQ(0, jsonl.exitCode);
  std::vector<std::string> lines = Lines(jsonl.out);
  ASSERT_EQ(Lines(csv.out).size() - 1, lines.size());
  EXPECT_EQ("{\"client\":\"C1\",\"sensor_type\":1,\"time_stamp\":" + std::to_string(kFirstStamp + kFirstOffset) +
                ",\"value_count\":2,\"values\":[10,-2],\"replayed\":false}",
            lines[0]);
}

TEST(PositioningSimTest, OutOptionWritesTheSamplesToAFile) {
  CTempDir scratch;
  SimRun run = RunSim({"--duration", "10", "--out", scratch.File("samples.csv")});
  ASSERT_EQ(0, run.exitCode);
  EXPECT_TRUE(run.out.empty());
  EXPECT_EQ(101u, Lines(ReadFile(scratch.File("samples.csv"))).size());
}

TEST(PositioningSimTest, SummaryGoesToStandardError) {
  SimRun run = RunSim({"--duration", "10"});
  ASSERT_EQ(0, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("records fed:          50"));
  EXPECT_NE(std::string::npos, run.err.find("C1: type 1: 50, type 2: 50"));
  EXPECT_NE(std::string::npos, run.err.find("sync offset:          2480 ms after the first sync"));
  EXPECT_NE(std::string::npos, run.err.find("time stamp error:     mean"));
}

TEST(PositioningSimTest, LogFileHoldsTheModulesRecordsAsReadableLines) {
  CTempDir scratch;
  SimRun run = RunSim({"--duration", "2", "--log", scratch.File("run.log")});
  ASSERT_EQ(0, run.exitCode);
  const std::string log = ReadFile(scratch.File("run.log"));
  EXPECT_NE(
      std::string::npos,
      log.find("Info Positioning CPositioning Positioning/src/Positioning.cpp:64 (CANSensor is being created...)"));
  EXPECT_NE(std::string::npos, log.find("Interface Positioning virtual CPositioning::~CPositioning() "
                                        "Positioning/src/Positioning.cpp:72 ()"));
  EXPECT_NE(std::string::npos, log.find("Info FeatureFw Register include/ReflectionInterface.h:43 (0x"));
  EXPECT_NE(std::string::npos, log.find("Info2 Positioning SensorData"));
  // Every line leads with the simulated time in milliseconds: the feature is created at
  // tick 100000 and the first record is fed 100 ms later.
  EXPECT_NE(std::string::npos, log.find("\n100000 Info Positioning CPositioning Positioning/src/Positioning.cpp:64 "));
  EXPECT_NE(std::string::npos, log.find("\n100100 Info2 Positioning SensorData Positioning/src/CANSensor.cpp:113 ("));
  std::istringstream lines(log);
  std::string line;
  uint64_t previous = 0;
  int count = 0;
  while (std::getline(lines, line)) {
    const size_t blank = line.find(' ');
    ASSERT_NE(std::string::npos, blank) << line;
    const uint64_t time = std::stoull(line.substr(0, blank));
    EXPECT_GE(time, previous) << line;
    EXPECT_LE(time, 100000u + 2000u + 1000u) << line;
    previous = time;
    ++count;
  }
  EXPECT_GT(count, 50);
}

TEST(PositioningSimTest, LogLevelFiltersByCategory) {
  CTempDir scratch;
  SimRun run = RunSim({"--duration", "2", "--log", scratch.File("run.log"), "--log-level", "info"});
  ASSERT_EQ(0, run.exitCode);
  const std::string log = ReadFile(scratch.File("run.log"));
  EXPECT_NE(std::string::npos, log.find("CANSensor is being created..."));
  EXPECT_EQ(std::string::npos, log.find("Info2 "));
  EXPECT_EQ(std::string::npos, log.find("Interface "));
}

TEST(PositioningSimTest, PlotIsWrittenAsPng) {
  CTempDir scratch;
  SimRun run = RunSim({"--duration", "60", "--plot", scratch.File("drive.png")});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::string png = ReadFile(scratch.File("drive.png"));
  ASSERT_GT(png.size(), 1000u);
  EXPECT_EQ(std::string("\x89PNG\r\n\x1a\n", 8), png.substr(0, 8));
  EXPECT_NE(std::string::npos, png.find("IEND"));
}

TEST(PositioningSimTest, PlotIsWrittenAsSvgWithLabelledAxes) {
  CTempDir scratch;
  SimRun run = RunSim({"--duration", "60", "--plot", scratch.File("drive.svg")});
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::string svg = ReadFile(scratch.File("drive.svg"));
  EXPECT_NE(std::string::npos, svg.find("<svg"));
  EXPECT_NE(std::string::npos, svg.find("</svg>"));
  EXPECT_NE(std::string::npos, svg.find("angular rate"));
  EXPECT_NE(std::string::npos, svg.find("distance pulses"));
  EXPECT_NE(std::string::npos, svg.find("sync offset (ms)"));
  EXPECT_NE(std::string::npos, svg.find("time since feature start (s)"));
}

TEST(PositioningSimTest, PlotWithAnUnknownExtensionIsAUsageError) {
  SimRun run = RunSim({"--plot", "drive.jpg"});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--plot takes a file ending in .png or .svg"));
}

}  // namespace

namespace {

TEST(PositioningSimTest, NoProgressWhenStandardErrorIsNotATerminal) {
  SimRun run = RunSim({"--duration", "60"});
  ASSERT_EQ(0, run.exitCode);
  EXPECT_EQ(std::string::npos, run.err.find("s simulated, "));
}

}  // namespace
