// One drive's two results compared: the sample files line by line, side by side (so
// memory does not grow with the drive), and the summaries figure by figure.
#ifndef SIM_RESULT_COMPARE_H
#define SIM_RESULT_COMPARE_H

#include <stdint.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace sim {

// A summary figure that is not the same in both: its place ("error_mean",
// "clients[0].type1"), both values, and for numbers the change.
struct MovedFigure {
  std::string name;
  nlohmann::ordered_json first;
  nlohmann::ordered_json second;
  bool numeric = false;
  double change = 0;  // second minus first
};

// A sample line taken apart: client, sensor type, time stamp, values, replayed.
struct SampleFields {
  bool present = false;  // false past the end of the file
  std::string client;
  std::string type;
  std::string timeStamp;
  std::string values;
  std::string replayed;
  std::string line;  // as written
};

struct DriveComparison {
  bool samplesIdentical = true;
  uint64_t firstSamples = 0;  // samples in A's file
  uint64_t secondSamples = 0;
  uint64_t differing = 0;        // positions (sample 1, 2, ...) whose lines differ, or are in one file only
  uint64_t firstDifference = 0;  // the first such position, 0 when none
  SampleFields first;            // the samples at that position
  SampleFields second;
  std::vector<MovedFigure> moved;
  bool Identical() const { return samplesIdentical && moved.empty(); }
};

// Compares the drive's result folders aFirst and aSecond; false with the reason when a
// file is missing or unreadable.
bool CompareDrive(const std::string& aFirst, const std::string& aSecond, DriveComparison& aResult, std::string& aError);

// The figures that differ between two summaries, in the first's order; the samples'
// hash is left out (the sample comparison says more).
std::vector<MovedFigure> MovedFigures(const nlohmann::ordered_json& aFirst, const nlohmann::ordered_json& aSecond);

}  // namespace sim

#endif  // SIM_RESULT_COMPARE_H
