// The recorded drive the README shows (drives/city-drive.csv, made by
// drives/make-city-drive.py from a model): imported as a user would, replayed on both
// sources, its path compared with the reference pose it carries, and plotted.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SimRunner.h"

namespace {

using testing_host::CTempDir;
using testing_host::ReadFile;
using testing_host::RunSim;
using testing_host::RunSimWithSummary;
using testing_host::SimResult;
using testing_host::SimRun;
using testing_host::WithFailingGnuplot;

const std::string kDrive = std::string(POSITIONING_DRIVES_DIR) + "/city-drive.csv";

SimRun Import(const CTempDir& aScratch, const std::string& aDiversity) {
  return RunSim({"import",      kDrive,
                 "-o",          aScratch.File("city.trace.csv"),
                 "--truth",     aScratch.File("city.truth.csv"),
                 "--diversity", aDiversity,
                 "--time",      "ts_us:us",
                 "--yaw-rate",  "yaw_rate_rad_s:rad/s:left",
                 "--speed",     "speed_kmh:km/h",
                 "--direction", "gear",
                 "--lat",       "ref_lat_deg:deg",
                 "--lon",       "ref_lon_deg:deg",
                 "--heading",   "ref_heading_deg:deg:compass"});
}

TEST(ExampleDriveTest, TheCityDriveIsImportedReplayedAndComparedWithItsReference) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    CTempDir scratch;
    const SimRun imported = Import(scratch, diversity);
    ASSERT_EQ(0, imported.exitCode) << imported.err;
    EXPECT_NE(std::string::npos, imported.err.find("3400 rows, 849 " + std::string(diversity) + " records of 200 ms"))
        << imported.err;
    const SimResult replay =
        RunSimWithSummary({"--trace", scratch.File("city.trace.csv"), "--truth", scratch.File("city.truth.csv"),
                           "--diversity", diversity, "--quiet", "--out", "/dev/null", "--geojson",
                           scratch.File("city.geojson"), "--path-plot", scratch.File("city.svg")});
    ASSERT_EQ(0, replay.run.exitCode) << replay.run.err;
    const nlohmann::json& reckoning = replay.summary["dead_reckoning"];
    EXPECT_EQ(849, reckoning["records_integrated"]);
    EXPECT_NEAR(1113.7, reckoning["travelled_m"].get<double>(), 1.0);
    // The model's gyroscope is 0.02 deg/s off and its tyre 0.4 % larger than nominal:
    // the path drifts by a couple of percent, as an uncorrected one does.
    EXPECT_GT(reckoning["end_error_percent"].get<double>(), 0.5);
    EXPECT_LT(reckoning["end_error_percent"].get<double>(), 4.0);
    EXPECT_GT(reckoning["segments"].get<int>(), 500);
    EXPECT_LT(reckoning["translation_error_percent"].get<double>(), 2.0);
    EXPECT_LT(reckoning["rotation_error_deg_per_m"].get<double>(), 0.01);
    // The GeoJSON starts where the reference pose does.
    const nlohmann::json geo = nlohmann::json::parse(ReadFile(scratch.File("city.geojson")));
    const nlohmann::json& start = geo["features"][0]["geometry"]["coordinates"][0];
    EXPECT_NEAR(11.576124, start[0].get<double>(), 1e-5);
    EXPECT_NEAR(48.137154, start[1].get<double>(), 1e-5);
    const std::string svg = ReadFile(scratch.File("city.svg"));
    EXPECT_NE(std::string::npos, svg.find("<svg"));
    EXPECT_NE(std::string::npos, svg.find("dead reckoning on the samples received"));
    EXPECT_NE(std::string::npos, svg.find("east of the start (m)"));
  }
}

TEST(ExampleDriveTest, ThePathPlotSaysWhyItFailed) {
  CTempDir scratch;
  const SimRun run = RunSim({"--duration", "10", "--path-plot", scratch.File("p.png"), "--quiet"},
                            WithFailingGnuplot(scratch, "no cairo here"));
  EXPECT_EQ(1, run.exitCode);
  EXPECT_NE(std::string::npos, run.err.find("path plot: gnuplot failed: no cairo here")) << run.err;
  const SimRun bad = RunSim({"--path-plot", scratch.File("p.jpg")});
  EXPECT_EQ(2, bad.exitCode);
  EXPECT_NE(std::string::npos, bad.err.find("--path-plot takes a file ending in .png or .svg")) << bad.err;
}

// A late client receives no odometer sample for the first minute: the plot still comes.
TEST(ExampleDriveTest, APathPlotWithoutSamplesSaysSo) {
  CTempDir scratch;
  const SimRun run =
      RunSim({"--duration", "5", "--late-client", "60", "--path-plot", scratch.File("p.svg"), "--quiet"});
  ASSERT_EQ(0, run.exitCode) << run.err;
  EXPECT_NE(std::string::npos, ReadFile(scratch.File("p.svg")).find("no sample delivered: no path"));
}

}  // namespace
