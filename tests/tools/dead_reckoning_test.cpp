// The reference client's dead reckoning: the integrator, the true path of the built-in
// drive, the segment errors, the truth file and the path files, then the simulator
// run with them.
#include <gtest/gtest.h>

#include <stdint.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "DeadReckoner.h"
#include "DriveGenerator.h"
#include "PathWriter.h"
#include "SimRunner.h"
#include "TrajectoryErrors.h"
#include "Truth.h"

namespace {

using namespace sim;
using testing_host::CTempDir;
using testing_host::Lines;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;
using testing_host::SimRun;
using testing_host::WriteFile;

TEST(DeadReckonerTest, PulsesMoveAlongTheHeadingAndReverseMovesBack) {
  CDeadReckoner reckoner;
  reckoner.Reset(Pose());
  for (int i = 0; i < 10; ++i) reckoner.Step(1000 + 200 * i, 0, 40, kDirectionForward);  // 10 m each
  EXPECT_NEAR(0, reckoner.Current().x, 1e-9);
  EXPECT_NEAR(100, reckoner.Current().y, 1e-9);
  reckoner.Step(3000, 0, 40, kDirectionReverse);
  reckoner.Step(3200, 0, 40, kDirectionUnknown);  // keeps reversing
  EXPECT_NEAR(80, reckoner.Current().y, 1e-9);
  EXPECT_DOUBLE_EQ(120, reckoner.Distance());
  EXPECT_EQ(12u, reckoner.Steps());
}

TEST(DeadReckonerTest, RightTurnsArePositiveAndTheRateIsHeldUntilTheNextRecord) {
  CDeadReckoner reckoner;
  reckoner.Reset(Pose());
  // 90 deg/s for a second: heading east, then 400 ms between records turns twice as far.
  for (int i = 0; i < 5; ++i) reckoner.Step(200 * i, 9000, 0, kDirectionForward);
  EXPECT_NEAR(90, reckoner.Current().heading, 1e-9);
  reckoner.Step(1200, -4500, 0, kDirectionForward);
  EXPECT_NEAR(72, reckoner.Current().heading, 1e-9);
  // A gap of more than a second, or a stamp going back, counts as one nominal step.
  reckoner.Step(5000, -4500, 0, kDirectionForward);
  EXPECT_NEAR(63, reckoner.Current().heading, 1e-9);
  reckoner.Step(4000, 4500, 0, kDirectionForward);
  EXPECT_NEAR(72, reckoner.Current().heading, 1e-9);
  reckoner.Step(4200, 0, 40, kDirectionForward);
  EXPECT_NEAR(10 * std::sin(72 * M_PI / 180), reckoner.Current().x, 1e-9);
}

TEST(DeadReckonerTest, ACircleDrivenAtAConstantRateCloses) {
  CDeadReckoner reckoner;
  Pose start;
  start.x = 5;
  start.y = -3;
  start.heading = 350;
  reckoner.Reset(start);
  // 36 deg/s for 10 s at 10 m/s: one full circle of 100 m.
  for (int i = 0; i < 50; ++i) reckoner.Step(200 * i, 3600, 8, kDirectionForward);
  EXPECT_NEAR(5, reckoner.Current().x, 1e-9);
  EXPECT_NEAR(-3, reckoner.Current().y, 1e-9);
  EXPECT_NEAR(350, reckoner.Current().heading, 1e-9);
  EXPECT_GT(std::fabs(reckoner.Current().x - 5) + 1, 1.0) << "the circle is not degenerate";
}

// The true path of the built-in drive is the one its records describe: as long as the
// pulses say (they carry their remainder), turning as the rates say (up to the noise).
TEST(GeneratedTruthTest, TheTruePathIsTheOneTheRecordsDescribe) {
  const double seconds = 600;
  CDriveGenerator drive(SourceKind::Can, 7, seconds, 97600);
  CGeneratedTruth truth(SourceKind::Can, 7, seconds, 97600);
  TruthPoint point;
  ASSERT_TRUE(truth.Next(point));
  EXPECT_EQ(97400u, point.stamp);
  EXPECT_EQ(0, point.pose.x);
  double travelled = 0;
  double pulses = 0;
  Pose previous = point.pose;
  CDeadReckoner reckoner;
  reckoner.Reset(point.pose);
  DriveRecord record;
  uint64_t records = 0;
  bool reversed = false;
  while (drive.Next(record)) {
    ASSERT_TRUE(truth.Next(point));
    EXPECT_EQ(record.stamp, point.stamp);
    travelled += std::hypot(point.pose.x - previous.x, point.pose.y - previous.y);
    previous = point.pose;
    pulses += static_cast<double>(record.field[0]);
    reversed = reversed || record.field[2] == 0x25;
    reckoner.Step(record.stamp, static_cast<int32_t>(record.field[1]), static_cast<uint32_t>(record.field[0]),
                  record.field[2] == 0x25 ? kDirectionReverse : kDirectionForward);
    ++records;
  }
  EXPECT_FALSE(truth.Next(point));
  EXPECT_EQ(3000u, records);
  EXPECT_TRUE(reversed);
  EXPECT_GT(travelled, 2000);
  EXPECT_NEAR(travelled, pulses / kPulsesPerMetre, 0.25 + 1e-6);
  EXPECT_LT(std::hypot(reckoner.Current().x - point.pose.x, reckoner.Current().y - point.pose.y), 5.0);
}

// A straight drive of 2,000 m, a pose every 200 ms 2 m apart.
std::vector<Pose> Straight(double aScale, double aRotation) {
  std::vector<Pose> poses;
  for (int k = 0; k <= 1000; ++k) {
    const double along = 2.0 * k * aScale;
    Pose pose;
    pose.x = along * std::sin(aRotation * M_PI / 180);
    pose.y = along * std::cos(aRotation * M_PI / 180);
    pose.heading = NormalisedHeading(aRotation);
    poses.push_back(pose);
  }
  return poses;
}

TEST(TrajectoryErrorsTest, SegmentsStartEverySecondAndEndPastTheirLength) {
  CTrajectoryErrors errors;
  const std::vector<Pose> truth = Straight(1.0, 0);
  const std::vector<Pose> estimate = Straight(1.01, 0);
  for (size_t k = 0; k < truth.size(); ++k) errors.Add(200 * k, truth[k], estimate[k]);
  const PathFigures figures = errors.Figures();
  EXPECT_EQ(1000u, figures.poses);
  EXPECT_NEAR(2000, figures.travelled, 1e-9);
  EXPECT_NEAR(20, figures.endError, 1e-9);
  EXPECT_NEAR(1.0, figures.endErrorShare, 1e-9);
  // A start every 10 m; a segment of L needs a pose beyond start + L.
  const SegmentFigures& segments = figures.segments;
  for (int i = 0; i < SegmentFigures::kLengths; ++i) {
    EXPECT_EQ(static_cast<uint64_t>(200 - 10 * (i + 1)), segments.count[i]) << i;
    EXPECT_NEAR(1.0, segments.translation[i], 0.03) << i;  // ends up to 2 m past L
    EXPECT_NEAR(0, segments.rotation[i], 1e-12);
  }
  EXPECT_EQ(1240u, segments.segments);
  EXPECT_NEAR(1.0, segments.meanTranslation, 0.03);
}

// A path turned as a whole around its start has every segment right: only the end
// point shows the heading it started with.
TEST(TrajectoryErrorsTest, ARotatedPathHasNoSegmentErrorButAnEndPointError) {
  CTrajectoryErrors errors;
  const std::vector<Pose> truth = Straight(1.0, 0);
  const std::vector<Pose> estimate = Straight(1.0, 5);
  for (size_t k = 0; k < truth.size(); ++k) errors.Add(200 * k, truth[k], estimate[k]);
  const PathFigures figures = errors.Figures();
  EXPECT_NEAR(0, figures.segments.meanTranslation, 1e-9);
  EXPECT_NEAR(0, figures.segments.meanRotation, 1e-9);
  EXPECT_NEAR(2 * 2000 * std::sin(2.5 * M_PI / 180), figures.endError, 1e-6);
}

TEST(TrajectoryErrorsTest, ATurnMissedShowsAsRotationPerMetre) {
  CTrajectoryErrors errors;
  // Truth turns right by 0.1 deg per 2 m; the estimate goes straight.
  Pose truth;
  Pose estimate;
  for (int k = 0; k <= 500; ++k) {
    errors.Add(200 * k, truth, estimate);
    const double along = (truth.heading + 0.05) * M_PI / 180;
    truth.x += 2 * std::sin(along);
    truth.y += 2 * std::cos(along);
    truth.heading += 0.1;
    estimate.y += 2;
  }
  const SegmentFigures segments = errors.Figures().segments;
  ASSERT_GT(segments.count[0], 0u);
  EXPECT_NEAR(0.05, segments.rotation[0], 0.003);  // deg/m
  EXPECT_GT(segments.translation[0], 1.0);
}

TEST(TrajectoryErrorsTest, ACarStandingForHoursKeepsABoundedNumberOfStarts) {
  CTrajectoryErrors errors;
  Pose pose;
  for (uint64_t k = 0; k < 10 * 3600 * 5; ++k) errors.Add(200 * k, pose, pose);  // 10 hours parked
  pose.y = 900;
  errors.Add(10 * 3600 * 1000, pose, pose);
  const PathFigures figures = errors.Figures();
  // The last pose closes every open start before it opens its own.
  EXPECT_EQ(10u * 3600 - CTrajectoryErrors::kMaxOpenStarts, figures.segments.startsLeftOut);
  EXPECT_EQ(CTrajectoryErrors::kMaxOpenStarts * 8, figures.segments.segments);
}

TEST(TruthFileTest, WrittenTruthReadsBackAndBadRowsAreNamed) {
  CTempDir scratch;
  FILE* file = fopen(scratch.File("truth.csv").c_str(), "w");
  ASSERT_NE(nullptr, file);
  {
    CTruthWriter writer(file, true);
    TruthPoint point;
    point.geographic = true;
    point.latitude = 48.1;
    point.longitude = 11.5;
    for (int k = 0; k < 3; ++k) {
      point.stamp = 1000 + 200 * k;
      point.pose.y = 2.5 * k;
      point.pose.heading = 359.5;
      writer.Write(point);
    }
  }
  fclose(file);
  CTruthReader reader;
  std::string error;
  ASSERT_TRUE(reader.Open(scratch.File("truth.csv"), error)) << error;
  EXPECT_EQ(3u, reader.Count());
  TruthPoint point;
  ASSERT_TRUE(reader.Next(point));
  ASSERT_TRUE(reader.Next(point));
  EXPECT_EQ(1200u, point.stamp);
  EXPECT_DOUBLE_EQ(2.5, point.pose.y);
  EXPECT_DOUBLE_EQ(359.5, point.pose.heading);
  EXPECT_TRUE(point.geographic);
  EXPECT_DOUBLE_EQ(48.1, point.latitude);

  const struct {
    const char* text;
    const char* error;
  } bad[] = {
      {"time_stamp,x_m,y_m\n1,2,3\n", ":1: not a truth header"},
      {"time_stamp,x_m,y_m,heading_deg\n1,2,3\n", ":2: expected 4 columns, found 3"},
      {"# c\ntime_stamp,x_m,y_m,heading_deg\n1,2,x,4\n", ":3: y_m: "},
      {"time_stamp,x_m,y_m,heading_deg,latitude_deg,longitude_deg\n1,2,3,4,91,0\n", ":2: latitude_deg: out of range"},
      {"", "not a truth file: no header row"},
  };
  for (const auto& test : bad) {
    WriteFile(scratch.File("bad.csv"), test.text);
    CTruthReader badReader;
    EXPECT_FALSE(badReader.Open(scratch.File("bad.csv"), error));
    EXPECT_NE(std::string::npos, error.find(test.error)) << error;
  }
}

TEST(PathWriterTest, GeoJsonIsOneLineStringAboutTheOrigin) {
  GeoAnchor anchor;
  anchor.latitude = 48.0;
  anchor.longitude = 11.0;
  double latitude, longitude, x, y;
  LocalToGeo(anchor, 1000, 1000, latitude, longitude);
  EXPECT_NEAR(48.0 + 1000 / 111195.08, latitude, 1e-6);  // a degree of latitude: 111.195 km
  EXPECT_NEAR(11.0 + 1000 / (111195.08 * std::cos(48 * M_PI / 180)), longitude, 1e-6);
  GeoToLocal(anchor, latitude, longitude, x, y);
  EXPECT_NEAR(1000, x, 1e-6);
  EXPECT_NEAR(1000, y, 1e-6);

  CTempDir scratch;
  FILE* csv = fopen(scratch.File("p.csv").c_str(), "w");
  FILE* geo = fopen(scratch.File("p.geojson").c_str(), "w");
  CPathWriter writer(csv, geo, false);
  writer.SetAnchor(anchor);
  Pose pose;
  for (int k = 0; k < 3; ++k) {
    pose.x = 100.0 * k;
    writer.Write(1000 + k, pose, 100.0 * k, nullptr);
  }
  writer.Finish();
  fclose(csv);
  fclose(geo);
  const nlohmann::json json = nlohmann::json::parse(ReadFile(scratch.File("p.geojson")));
  const nlohmann::json& coordinates = json["features"][0]["geometry"]["coordinates"];
  EXPECT_EQ("LineString", json["features"][0]["geometry"]["type"]);
  ASSERT_EQ(3u, coordinates.size());
  EXPECT_NEAR(11.0, coordinates[0][0].get<double>(), 1e-9);  // longitude first
  EXPECT_NEAR(48.0, coordinates[0][1].get<double>(), 1e-9);
  EXPECT_GT(coordinates[2][0].get<double>(), 11.002);
  const std::vector<std::string> rows = Lines(ReadFile(scratch.File("p.csv")));
  ASSERT_EQ(4u, rows.size());
  EXPECT_EQ("time_stamp_ms,x_m,y_m,heading_deg,distance_m", rows[0]);
  EXPECT_EQ("1002,200.000,0.000,0.000,200.000", rows[3]);
}

// The built-in drive: the summary compares the path with the drive's own truth.
TEST(DeadReckoningRunTest, TheBuiltInDriveIsComparedWithItsTruth) {
  CTempDir scratch;
  const SimResult run =
      RunSimWithSummary({"--duration", "600", "--quiet", "--out", "/dev/null", "--path", scratch.File("path.csv"),
                         "--geojson", scratch.File("path.geojson"), "--origin", "52.52,13.40"});
  ASSERT_EQ(0, run.run.exitCode) << run.run.err;
  const nlohmann::json& reckoning = run.summary["dead_reckoning"];
  EXPECT_EQ(3000, reckoning["records_integrated"]);
  EXPECT_EQ(true, reckoning["truth"]);
  EXPECT_GT(reckoning["travelled_m"].get<double>(), 3000);
  EXPECT_LT(reckoning["end_error_percent"].get<double>(), 0.5);
  EXPECT_GT(reckoning["segments"].get<int>(), 1000);
  EXPECT_LT(reckoning["translation_error_percent"].get<double>(), 0.5);
  const std::vector<std::string> rows = Lines(ReadFile(scratch.File("path.csv")));
  ASSERT_EQ(3001u, rows.size());
  EXPECT_EQ("time_stamp_ms,x_m,y_m,heading_deg,distance_m,truth_x_m,truth_y_m,truth_heading_deg", rows[0]);
  const nlohmann::json geo = nlohmann::json::parse(ReadFile(scratch.File("path.geojson")));
  const nlohmann::json& coordinates = geo["features"][0]["geometry"]["coordinates"];
  ASSERT_EQ(3000u, coordinates.size());
  EXPECT_NEAR(13.40, coordinates[0][0].get<double>(), 0.01);
  EXPECT_NEAR(52.52, coordinates[0][1].get<double>(), 0.01);
}

// A late client misses the first records: its path is shorter and the end point off.
TEST(DeadReckoningRunTest, ALateClientsPathMissesWhatItDidNotReceive) {
  const SimResult late = RunSimWithSummary({"--duration", "300", "--late-client", "100", "--quiet"});
  ASSERT_EQ(0, late.run.exitCode) << late.run.err;
  const nlohmann::json& reckoning = late.summary["dead_reckoning"];
  EXPECT_LT(reckoning["distance_m"].get<double>(), reckoning["travelled_m"].get<double>() - 100);
  EXPECT_GT(reckoning["end_error_m"].get<double>(), 50);
}

TEST(DeadReckoningRunTest, BothSourcesGiveTheSamePath) {
  const SimResult can = RunSimWithSummary({"--duration", "300", "--quiet"});
  const SimResult external = RunSimWithSummary({"--duration", "300", "--quiet", "--diversity", "EXTERNAL"});
  ASSERT_EQ(0, can.run.exitCode) << can.run.err;
  ASSERT_EQ(0, external.run.exitCode) << external.run.err;
  const nlohmann::json& a = can.summary["dead_reckoning"];
  const nlohmann::json& b = external.summary["dead_reckoning"];
  EXPECT_EQ(a["distance_m"], b["distance_m"]);
  EXPECT_NEAR(a["end"]["x_m"].get<double>(), b["end"]["x_m"].get<double>(), 0.05);
  EXPECT_NEAR(a["end"]["y_m"].get<double>(), b["end"]["y_m"].get<double>(), 0.05);
}

TEST(DeadReckoningRunTest, PathOptionsAreCheckedBeforeTheRun) {
  CTempDir scratch;
  SimRun run = RunSim({"--geojson", scratch.File("p.geojson")});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--geojson needs --origin LAT,LON")) << run.err;
  run = RunSim({"--truth", scratch.File("t.csv")});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--truth goes with --trace")) << run.err;
  run = RunSim({"--origin", "91,0"});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("--origin takes LAT,LON")) << run.err;
  run = RunSim({"--path", scratch.File("p.csv"), "--out", scratch.File("p.csv")});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("name the same file")) << run.err;
  // A truth that does not fit its trace.
  ASSERT_EQ(
      0, RunSim({"--duration", "10", "--record", scratch.File("t.trace"), "--quiet", "--out", "/dev/null"}).exitCode);
  WriteFile(scratch.File("t.csv"), "time_stamp,x_m,y_m,heading_deg\n97400,0,0,0\n97600,0,1,0\n");
  run = RunSim({"--trace", scratch.File("t.trace"), "--truth", scratch.File("t.csv")});
  EXPECT_EQ(4, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("holds 2 poses, the trace 50 records")) << run.err;
  EXPECT_TRUE(run.out.empty());
}

}  // namespace
