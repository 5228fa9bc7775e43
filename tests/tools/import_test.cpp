// positioning-sim import: the resampling onto records (mean rate, pulses with their
// remainder carried, direction, the truth at every record's edge), the command as a
// user runs it, and that dead reckoning on what the client received is dead reckoning
// on the imported signals.

// A 32-bit readdir cannot return the 64-bit inode numbers of the build machine's file
// systems (the ARM build under the emulator): read the folder with the large-file calls.
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <gtest/gtest.h>

#include <stdint.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "DeadReckoner.h"
#include "DriveImport.h"
#include "SimRunner.h"

namespace {

using namespace sim;
using testing_host::CTempDir;
using testing_host::FileExists;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;
using testing_host::SimRun;
using testing_host::WriteFile;

struct Resampled {
  std::vector<DriveRecord> records;
  std::vector<TruthPoint> truth;
  std::string error;
};

Resampled Resample(const ResampleSetup& aSetup, const std::vector<SignalRow>& aRows, bool aTruth = false) {
  Resampled out;
  CResampler resampler(
      aSetup, [&out](const DriveRecord& aRecord) { out.records.push_back(aRecord); },
      aTruth ? CResampler::TruthSink([&out](const TruthPoint& aPoint) { out.truth.push_back(aPoint); })
             : CResampler::TruthSink());
  for (const SignalRow& row : aRows) {
    if (!resampler.Add(row, out.error)) return out;
  }
  resampler.Finish(out.error);
  return out;
}

SignalRow Row(double aTime, double aRate, double aSpeed, int aLine = 0) {
  SignalRow row;
  row.time = aTime;
  row.rate = aRate;
  row.speed = aSpeed;
  row.line = aLine;
  return row;
}

TEST(ResamplerTest, NoDistanceIsLostOverADrive) {
  // 1.1 m/s: 0.88 pulses a record.
  std::vector<SignalRow> rows;
  for (int i = 0; i <= 20000; ++i) rows.push_back(Row(10 * i, 0, 1.1));
  const Resampled out = Resample(ResampleSetup(), rows);
  ASSERT_TRUE(out.error.empty()) << out.error;
  ASSERT_EQ(1000u, out.records.size());
  int64_t pulses = 0;
  int64_t smallest = 99, largest = 0;
  for (const DriveRecord& record : out.records) {
    pulses += record.field[0];
    smallest = std::min(smallest, record.field[0]);
    largest = std::max(largest, record.field[0]);
  }
  EXPECT_EQ(880, pulses);  // 220 m
  EXPECT_EQ(0, smallest);
  EXPECT_EQ(1, largest);
  EXPECT_EQ(200u, out.records[0].stamp);  // the end of the first period
  EXPECT_EQ(200u + 999 * 200, out.records.back().stamp);
  EXPECT_EQ(20, out.records[0].field[3]) << "rows in the period";
  EXPECT_EQ(0x21, out.records[0].field[2]);
}

TEST(ResamplerTest, TheRateIsTheMeanOverThePeriodOfWhatEachRowHeld) {
  // 10 deg/s for 50 ms, then 0 for 150 ms; then -3 for a whole period.
  const std::vector<SignalRow> rows = {Row(0, 10, 5), Row(50, 0, 5), Row(200, -3, 5), Row(400, 0, 5)};
  ResampleSetup setup;
  setup.kind = SourceKind::External;
  setup.hasFirstStamp = true;
  setup.firstStamp = 97600;
  const Resampled out = Resample(setup, rows);
  ASSERT_TRUE(out.error.empty()) << out.error;
  ASSERT_EQ(2u, out.records.size());
  EXPECT_EQ(97600u, out.records[0].stamp);
  EXPECT_EQ(250, out.records[0].field[1]);
  EXPECT_EQ(-300, out.records[1].field[1]);
  EXPECT_EQ(4, out.records[0].field[2]);  // 1 m
  EXPECT_EQ(1, out.records[0].field[3]);  // forward, as the external source says it
  EXPECT_EQ(2, out.records[0].field[0]) << "rows in the period";
}

TEST(ResamplerTest, ReversingComesFromTheDirectionOrTheSignOfTheSpeed) {
  std::vector<SignalRow> rows = {Row(0, 0, 2), Row(200, 0, -2), Row(400, 0, -2), Row(600, 0, 0), Row(800, 0, 0)};
  Resampled out = Resample(ResampleSetup(), rows);
  ASSERT_EQ(4u, out.records.size());
  EXPECT_EQ(0x21, out.records[0].field[2]);
  EXPECT_EQ(0x25, out.records[1].field[2]);
  EXPECT_EQ(2, out.records[1].field[0]);     // 0.4 m backwards is still distance
  EXPECT_EQ(0x25, out.records[3].field[2]);  // standing keeps the last direction
  // Distance given cumulatively, direction by the gear.
  ResampleSetup setup;
  setup.byDistance = true;
  rows = {Row(0, 0, 0), Row(200, 0, 0), Row(400, 0, 0)};
  rows[1].distance = 3;
  rows[1].direction = -1;
  rows[2].distance = 3.5;
  out = Resample(setup, rows);
  ASSERT_EQ(2u, out.records.size());
  EXPECT_EQ(12, out.records[0].field[0]);
  EXPECT_EQ(0x21, out.records[0].field[2]) << "the gear changes at the period's end";
  EXPECT_EQ(2, out.records[1].field[0]);
  EXPECT_EQ(0x25, out.records[1].field[2]);
}

TEST(ResamplerTest, BadRowsAreRefusedWithTheirLine) {
  Resampled out = Resample(ResampleSetup(), {Row(0, 0, 1, 2), Row(100, 0, 1, 3), Row(50, 0, 1, 4)});
  EXPECT_EQ("line 4: the time goes back (50.000000 ms after 100.000000 ms)", out.error);
  out = Resample(ResampleSetup(), {Row(0, 400, 1, 2), Row(300, 0, 1, 3)});
  EXPECT_NE(std::string::npos, out.error.find("line 2: an angular rate of 400")) << out.error;
  out = Resample(ResampleSetup(), {Row(0, 0, 1, 2), Row(100, 0, 1, 3)});
  EXPECT_EQ("the rows span less than one record period", out.error);
  // A row 10^12 s after the one before would hold its values for ever: a gap is named.
  out = Resample(ResampleSetup(), {Row(0, 0, 1, 2), Row(60000, 0, 1, 3), Row(60000 + 60001, 0, 1, 4)});
  EXPECT_NE(std::string::npos, out.error.find("line 4: a gap of 60.001000 s after the row before")) << out.error;
  out = Resample(ResampleSetup(), {Row(0, 0, 1, 2), Row(1e15, 0, 1, 3)});
  EXPECT_NE(std::string::npos, out.error.find("line 3: a gap of")) << out.error;
  out = Resample(ResampleSetup(), {Row(0, 0, 100000, 2), Row(300, 0, 1, 3)});
  EXPECT_NE(std::string::npos, out.error.find("beyond what a record carries")) << out.error;
}

TEST(ResamplerTest, TheTruthIsInterpolatedAtEveryRecordsEdge) {
  // A pose every second, 10 m north each, turning from 350 to 10 degrees the short way.
  std::vector<SignalRow> rows;
  for (int i = 0; i <= 100; ++i) {
    SignalRow row = Row(10 * i, 0, 10);
    if (i % 100 == 0) {
      row.hasPose = true;
      row.pose.y = i / 10.0;
      row.pose.heading = i == 0 ? 350 : 10;
    }
    rows.push_back(row);
  }
  ResampleSetup setup;
  setup.periodMs = 250;
  const Resampled out = Resample(setup, rows, true);
  ASSERT_TRUE(out.error.empty()) << out.error;
  ASSERT_EQ(4u, out.records.size());
  ASSERT_EQ(5u, out.truth.size());
  for (size_t k = 0; k < out.truth.size(); ++k) {
    EXPECT_EQ(250 * k, out.truth[k].stamp);
    EXPECT_NEAR(2.5 * k, out.truth[k].pose.y, 1e-9);
  }
  EXPECT_EQ(250u, out.records[0].stamp);
  EXPECT_NEAR(355, out.truth[1].pose.heading, 1e-9);
  EXPECT_NEAR(5, out.truth[3].pose.heading, 1e-9);
}

// A drive made from a model: 100 rows a second, speeding up, a left and a right bend
// and a short reverse, a GNSS-like pose 10 times a second. Rates are whole hundredths
// of a degree per second, so that the records carry them exactly.
struct ModelDrive {
  std::string csv;
  Pose end;  // the model's own end pose
};

ModelDrive MakeModelDrive(double aTimeScale, const char* aTimeFormat, bool aRadians, bool aKmh) {
  std::ostringstream csv;
  csv << "time,yaw_rate,speed,gear,east,north,heading\n";
  Pose pose;
  pose.heading = 30;
  const double step = 0.01;
  for (int i = 0; i < 9000; ++i) {
    const double t = i * step;
    double speed = std::min(t, 10.0) * 1.5;
    int gear = 1;
    if (t > 80) speed = -2, gear = -1;
    const double rateLeft = t > 30 && t < 50 ? 5.73 : (t > 55 && t < 70 ? -2.87 : 0);  // deg/s, left positive
    const double rate = aRadians ? rateLeft * M_PI / 180 : rateLeft;
    char line[256];
    char time[64];
    snprintf(time, sizeof time, aTimeFormat, (t + 50) * aTimeScale);
    const std::string posePart =
        i % 10 == 0 ? "," + std::to_string(pose.x) + "," + std::to_string(pose.y) + "," + std::to_string(pose.heading)
                    : ",,,";
    snprintf(line, sizeof line, "%s,%.12f,%.9f,%s%s\n", time, rate, aKmh ? speed * 3.6 : speed, gear < 0 ? "R" : "D",
             posePart.c_str());
    csv << line;
    // The model moves as the row says until the next row.
    const double turn = -rateLeft * step;
    const double along = (pose.heading + turn / 2) * M_PI / 180;
    pose.x += speed * step * std::sin(along);
    pose.y += speed * step * std::cos(along);
    pose.heading = NormalisedHeading(pose.heading + turn);
  }
  return {csv.str(), pose};
}

std::vector<std::string> ImportArguments(const CTempDir& aScratch, const std::string& aTime, const std::string& aRate,
                                         const std::string& aSpeed) {
  return {"import",      aScratch.File("drive.csv"),
          "-o",          aScratch.File("drive.trace"),
          "--truth",     aScratch.File("truth.csv"),
          "--time",      aTime,
          "--yaw-rate",  aRate,
          "--speed",     aSpeed,
          "--direction", "gear",
          "--x",         "east:m",
          "--y",         "north:m",
          "--heading",   "heading:deg:compass"};
}

TEST(ImportTest, TheSameDriveInOtherUnitsGivesTheSameTrace) {
  CTempDir scratch;
  WriteFile(scratch.File("drive.csv"), MakeModelDrive(1, "%.2f", false, false).csv);
  SimRun run = RunSim(ImportArguments(scratch, "time:s", "yaw_rate:deg/s:left", "speed:m/s"));
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, run.err.find("9000 rows, 449 CAN records of 200 ms")) << run.err;
  const std::string trace = ReadFile(scratch.File("drive.trace"));
  const std::string truth = ReadFile(scratch.File("truth.csv"));
  EXPECT_EQ(449u + 2, Lines(trace).size());  // the import's comment, the header, the records
  EXPECT_EQ(450u + 2, Lines(truth).size());
  // Milliseconds, radians counted the other way round, km/h.
  WriteFile(scratch.File("drive.csv"), MakeModelDrive(1000, "%.0f", true, true).csv);
  run = RunSim(ImportArguments(scratch, "time:ms", "yaw_rate:rad/s:left", "speed:km/h"));
  ASSERT_EQ(0, run.exitCode) << run.err;
  const std::vector<std::string> traceLines = Lines(trace);
  const std::vector<std::string> again = Lines(ReadFile(scratch.File("drive.trace")));
  ASSERT_EQ(traceLines.size(), again.size());
  for (size_t i = 0; i < again.size(); ++i) ASSERT_EQ(traceLines[i], again[i]) << "line " << i + 1;
  EXPECT_TRUE(truth == ReadFile(scratch.File("truth.csv")));
}

// Dead reckoning on the records (as the test's own loop does it) against dead
// reckoning on the model's signals: only the pulses' rounding stands between them.
TEST(ImportTest, TheModuleAddsNoErrorToDeadReckoning) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    CTempDir scratch;
    const ModelDrive model = MakeModelDrive(1, "%.2f", false, false);
    WriteFile(scratch.File("drive.csv"), model.csv);
    std::vector<std::string> arguments = ImportArguments(scratch, "time:s", "yaw_rate:deg/s:left", "speed:m/s");
    arguments.push_back("--diversity");
    arguments.push_back(diversity);
    SimRun run = RunSim(arguments);
    ASSERT_EQ(0, run.exitCode) << run.err;
    // Without drift the synchronised offset stays put; with the default 40 ppm the
    // module moves it a millisecond at a resync, and the path shows that step.
    const SimResult exact = RunSimWithSummary({"--trace", scratch.File("drive.trace"), "--truth",
                                               scratch.File("truth.csv"), "--diversity", diversity, "--peer-drift", "0",
                                               "--quiet", "--out", "/dev/null", "--path", scratch.File("p0.csv")});
    ASSERT_EQ(0, exact.run.exitCode) << exact.run.err;
    const SimResult replay =
        RunSimWithSummary({"--trace", scratch.File("drive.trace"), "--truth", scratch.File("truth.csv"), "--diversity",
                           diversity, "--quiet", "--out", "/dev/null", "--path", scratch.File("p.csv")});
    ASSERT_EQ(0, replay.run.exitCode) << replay.run.err;

    // The records as imported, integrated here.
    CDeadReckoner reckoner;
    Pose start;
    start.heading = 30;
    reckoner.Reset(start);
    const bool can = std::string(diversity) == "CAN";
    for (const std::string& line : Lines(ReadFile(scratch.File("drive.trace")))) {
      if (line.empty() || line[0] == '#' || line[0] == 'T' || line[0] == 't') continue;
      unsigned long long stamp;
      long long f[4];
      ASSERT_EQ(5, sscanf(line.c_str(), "%llu,%lld,%lld,%lld,%lld", &stamp, &f[0], &f[1], &f[2], &f[3])) << line;
      const bool reverse = can ? f[2] == 0x25 : f[3] == 2;
      reckoner.Step(stamp, static_cast<int32_t>(f[1]), static_cast<uint32_t>(can ? f[0] : f[2]),
                    reverse ? kDirectionReverse : kDirectionForward);
    }
    // What the client received, integrated by the simulator.
    for (const char* file : {"p0.csv", "p.csv"}) {
      SCOPED_TRACE(file);
      const bool drift = std::string(file) == "p.csv";
      const std::vector<std::string> path = Lines(ReadFile(scratch.File(file)));
      ASSERT_EQ(450u, path.size());
      double x, y, heading;
      ASSERT_EQ(3, sscanf(path.back().c_str(), "%*[^,],%lf,%lf,%lf", &x, &y, &heading)) << path.back();
      EXPECT_NEAR(reckoner.Current().x, x, drift ? 0.1 : 0.001);
      EXPECT_NEAR(reckoner.Current().y, y, drift ? 0.1 : 0.001);
      EXPECT_NEAR(reckoner.Current().heading, heading, drift ? 0.01 : 0.001);
      // Against the model: the distance's rounding (under a pulse) is all there is,
      // and the model's last row, which the last whole record does not cover.
      EXPECT_GT(std::hypot(x - start.x, y - start.y), 500);
      EXPECT_NEAR(model.end.x, x, 0.5);
      EXPECT_NEAR(model.end.y, y, 0.5);
      EXPECT_NEAR(model.end.heading, heading, 0.01);
    }
    const nlohmann::json& reckoning = replay.summary["dead_reckoning"];
    EXPECT_EQ(true, reckoning["truth"]);
    EXPECT_LT(reckoning["end_error_m"].get<double>(), 0.5);
    EXPECT_GT(reckoning["segments"].get<int>(), 100);
  }
}

TEST(ImportTest, ABadRowLosesNothing) {
  CTempDir scratch;
  WriteFile(scratch.File("drive.csv"), "time,yaw_rate,speed,gear,east,north,heading\n1,0,1,D,0,0,0\n2,0,x,D,,,\n");
  WriteFile(scratch.File("drive.trace"), "what was there\n");
  const SimRun run = RunSim(ImportArguments(scratch, "time:s", "yaw_rate:deg/s:left", "speed:m/s"));
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find(scratch.File("drive.csv") + ":3: speed: not a number: 'x'")) << run.err;
  EXPECT_EQ("what was there\n", ReadFile(scratch.File("drive.trace")));
  EXPECT_FALSE(FileExists(scratch.File("truth.csv")));
  // Nothing left beside the outputs either.
  DIR* folder = opendir(scratch.Path().c_str());
  ASSERT_NE(nullptr, folder);
  int entries = 0;
  while (const dirent* entry = readdir(folder)) entries += entry->d_name[0] == '.' ? 0 : 1;
  closedir(folder);
  EXPECT_EQ(2, entries) << "the input and the old trace";
}

TEST(ImportTest, UsageErrorsSayWhatIsWrong) {
  CTempDir scratch;
  WriteFile(scratch.File("drive.csv"), "t,r,v\n0,0,0\n");
  const std::string input = scratch.File("drive.csv");
  const std::string output = scratch.File("o.csv");
  const struct {
    std::vector<std::string> arguments;
    std::string error;
  } cases[] = {
      {{"import", input, "-o", output, "--time", "t:h", "--yaw-rate", "r:deg/s:left", "--speed", "v:m/s"},
       "--time: unknown unit 'h' (s|ms|us)"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s", "--speed", "v:m/s"},
       "--yaw-rate takes NAME:deg/s|rad/s:left|right: 'r:deg/s'"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s:up", "--speed", "v:m/s"},
       "--yaw-rate: unknown convention 'up' (left|right)"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s:left"},
       "give one of --speed and --distance"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s:left", "--speed", "v:m/s", "--truth",
        scratch.File("t.csv")},
       "--truth needs a pose"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s:left", "--speed", "v:m/s", "--x", "v:m"},
       "a pose needs both --x and --y"},
      {{"import", input, "-o", input, "--time", "t:s", "--yaw-rate", "r:deg/s:left", "--speed", "v:m/s"},
       "would overwrite the input"},
      {{"import", input, "-o", output, "--time", "t:s", "--yaw-rate", "r:deg/s:left", "--speed", "v:m/s", "--diversity",
        "can"},
       "--diversity takes CAN or EXTERNAL: 'can'"},
  };
  for (const auto& test : cases) {
    const SimRun run = RunSim(test.arguments);
    EXPECT_EQ(2, run.exitCode) << test.error << "\n" << run.err;
    EXPECT_NE(std::string::npos, run.err.find(test.error)) << run.err;
    EXPECT_FALSE(FileExists(output));
  }
}

TEST(ImportTest, HelpGivesEveryFieldWithItsUnitAndSign) {
  const SimRun run = RunSim({"import", "--help"});
  EXPECT_EQ(0, run.exitCode);
  for (const char* text :
       {"AngularRate, value1   1/100 deg/s, right turns positive", "4 per metre",
        "0x21 (33) forward, 0x25 (37) reverse", "value3                external: 1 forward, 2 reverse",
        "heading_deg (clockwise from north)", "--yaw-rate NAME:deg/s|rad/s:left|right"})
    EXPECT_NE(std::string::npos, run.out.find(text)) << text;
}

}  // namespace
