#include "Drive.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace sim {

namespace {

const uint32_t kForward = 0x21;
const uint32_t kReverse = 0x25;
const double kPulsesPerMetre = 4.0;
const int kRawSamplesPerRecord = 10;
// Angular rate unit: 1/100 degree per second.
const double kRateScale = 100.0;

// splitmix64: the same numbers on every platform, unlike the standard distributions.
class CRandom {
 public:
  explicit CRandom(uint64_t aSeed) : iState(aSeed) {}
  uint64_t Next() {
    uint64_t z = (iState += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [aLow, aHigh).
  double Uniform(double aLow, double aHigh) {
    return aLow + (aHigh - aLow) * ((Next() >> 11) * (1.0 / 9007199254740992.0));
  }

 private:
  uint64_t iState;
};

// One stretch of the drive: constant target speed and turn rate for a while.
struct Phase {
  double seconds;
  double speed;     // m/s at the end of the phase; negative when reversing
  double turnRate;  // degrees per second
};

// The urban pattern, varied by the seed: pull out, straights, turns, a traffic light, a
// reversing manoeuvre into a parking space, and on again.
std::vector<Phase> Plan(CRandom& aRandom, double aSeconds) {
  std::vector<Phase> plan;
  double total = 0;
  auto add = [&](double aDuration, double aSpeed, double aTurn) {
    plan.push_back({aDuration, aSpeed, aTurn});
    total += aDuration;
  };
  add(5, 0, 0);  // parked, engine running
  int round = 0;
  while (total < aSeconds) {
    const double cruise = aRandom.Uniform(8, 14);
    add(aRandom.Uniform(6, 10), cruise, 0);                   // accelerate
    add(aRandom.Uniform(15, 35), cruise, 0);                  // straight
    add(aRandom.Uniform(5, 8), 5, aRandom.Uniform(12, 20));   // right turn
    add(aRandom.Uniform(10, 25), cruise, 0);                  // straight
    add(aRandom.Uniform(5, 8), 5, -aRandom.Uniform(12, 20));  // left turn
    add(aRandom.Uniform(5, 8), 0, 0);                         // brake to a stop
    add(aRandom.Uniform(8, 20), 0, 0);                        // traffic light
    if (round % 2 == 0) {
      add(3, -2, 0);                                            // reverse
      add(aRandom.Uniform(3, 5), -2, aRandom.Uniform(10, 18));  // reverse, steering
      add(2, 0, 0);                                             // stop
    }
    ++round;
  }
  return plan;
}

bool ParseField(const std::string& aText, int64_t aLow, int64_t aHigh, int64_t& aValue, std::string& aWhy) {
  const char* begin = aText.c_str();
  while (*begin == ' ' || *begin == '\t') ++begin;
  if (*begin == '\0') return aWhy = "empty field", false;
  char* end = nullptr;
  errno = 0;
  long long value = strtoll(begin, &end, 10);
  while (end != nullptr && (*end == ' ' || *end == '\t')) ++end;
  if (end == nullptr || *end != '\0') return aWhy = "not a whole number: '" + aText + "'", false;
  if (errno == ERANGE || value < aLow || value > aHigh) {
    return aWhy = "out of range (" + std::to_string(aLow) + " to " + std::to_string(aHigh) + "): '" + aText + "'",
           false;
  }
  aValue = value;
  return true;
}

bool ParseStamp(const std::string& aText, uint64_t aHigh, uint64_t& aValue, std::string& aWhy) {
  const char* begin = aText.c_str();
  while (*begin == ' ' || *begin == '\t') ++begin;
  if (*begin == '\0') return aWhy = "empty field", false;
  if (*begin == '-') return aWhy = "out of range (0 to " + std::to_string(aHigh) + "): '" + aText + "'", false;
  char* end = nullptr;
  errno = 0;
  unsigned long long value = strtoull(begin, &end, 10);
  while (end != nullptr && (*end == ' ' || *end == '\t')) ++end;
  if (end == nullptr || *end != '\0') return aWhy = "not a whole number: '" + aText + "'", false;
  if (errno == ERANGE || value > aHigh)
    return aWhy = "out of range (0 to " + std::to_string(aHigh) + "): '" + aText + "'", false;
  aValue = value;
  return true;
}

std::vector<std::string> Split(const std::string& aLine) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream stream(aLine);
  while (std::getline(stream, field, ',')) fields.push_back(field);
  if (!aLine.empty() && aLine.back() == ',') fields.push_back("");
  return fields;
}

std::string Trim(const std::string& aText) {
  size_t begin = aText.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return std::string();
  size_t end = aText.find_last_not_of(" \t\r");
  return aText.substr(begin, end - begin + 1);
}

}  // namespace

const char* TraceHeader(SourceKind aKind) {
  return aKind == SourceKind::Can ? "TimeStamp,DistancePuls,AngularRate,DrivingDirection,NrOfSamples"
                                  : "timeStamp,value0,value1,value2,value3";
}

std::vector<DriveRecord> GenerateDrive(SourceKind aKind, uint64_t aSeed, double aSeconds, uint64_t aFirstStamp) {
  // Plan and noise draw from streams of their own, so that a shorter drive is the
  // start of a longer one with the same seed.
  CRandom planRandom(aSeed);
  CRandom random(aSeed ^ 0x5DEECE66Dull);
  const std::vector<Phase> plan = Plan(planRandom, aSeconds);
  const size_t count = static_cast<size_t>(std::floor(aSeconds * 1000.0 / kRecordPeriod));
  const double step = kRecordPeriod / 1000.0;

  std::vector<DriveRecord> records;
  records.reserve(count);
  size_t phase = 0;
  double phaseLeft = plan.empty() ? 0 : plan[0].seconds;
  double phaseStartSpeed = 0;
  double speed = 0;
  double pulseRemainder = 0;
  uint32_t lastDirection = kForward;
  for (size_t i = 0; i < count; ++i) {
    while (phaseLeft <= 0 && phase + 1 < plan.size()) {
      phaseStartSpeed = speed;
      phaseLeft = plan[++phase].seconds;
    }
    const Phase& current = plan[phase];
    // Speed moves linearly toward the phase's target over the phase.
    const double done = 1.0 - (phaseLeft - step) / current.seconds;
    speed = phaseStartSpeed + (current.speed - phaseStartSpeed) * (done > 1 ? 1 : done);
    phaseLeft -= step;

    const double metres = std::fabs(speed) * step;
    const double exactPulses = metres * kPulsesPerMetre + pulseRemainder;
    const int64_t pulses = static_cast<int64_t>(std::floor(exactPulses));
    pulseRemainder = exactPulses - static_cast<double>(pulses);
    const double noise = random.Uniform(-0.3, 0.3);
    const bool moving = std::fabs(speed) > 0.05;
    int64_t rate =
        static_cast<int64_t>(std::lround((moving ? current.turnRate : 0.0) * kRateScale + noise * kRateScale / 10));
    if (speed < -0.05) lastDirection = kReverse;
    if (speed > 0.05) lastDirection = kForward;

    DriveRecord record;
    record.stamp = aFirstStamp + i * kRecordPeriod;
    if (aKind == SourceKind::Can) {
      record.field[0] = pulses;
      record.field[1] = rate;
      record.field[2] = lastDirection;
      record.field[3] = kRawSamplesPerRecord;
    } else {
      record.field[0] = kRawSamplesPerRecord;
      record.field[1] = rate;
      record.field[2] = pulses;
      record.field[3] = lastDirection == kReverse ? 2 : 1;
    }
    records.push_back(record);
  }
  return records;
}

bool ReadTrace(const std::string& aPath, SourceKind& aKind, std::vector<DriveRecord>& aRecords, std::string& aError) {
  std::ifstream file(aPath);
  if (!file) return aError = aPath + ": cannot open the trace", false;
  std::vector<DriveRecord> records;
  std::string line;
  int number = 0;
  bool header = false;
  while (std::getline(file, line)) {
    ++number;
    const std::string trimmed = Trim(line);
    if (trimmed.empty() || trimmed[0] == '#') continue;
    const std::string where = aPath + ":" + std::to_string(number) + ": ";
    if (!header) {
      std::string compact;
      for (char c : trimmed) {
        if (c != ' ' && c != '\t') compact += c;
      }
      if (compact == TraceHeader(SourceKind::Can)) {
        aKind = SourceKind::Can;
      } else if (compact == TraceHeader(SourceKind::External)) {
        aKind = SourceKind::External;
      } else {
        aError = where + "missing header: expected \"" + TraceHeader(SourceKind::Can) + "\" or \"" +
                 TraceHeader(SourceKind::External) + "\"";
        return false;
      }
      header = true;
      continue;
    }
    const std::vector<std::string> fields = Split(trimmed);
    if (fields.size() != 5) {
      aError = where + "expected 5 columns, found " + std::to_string(fields.size());
      return false;
    }
    DriveRecord record;
    record.line = number;
    std::string why;
    static const char* const kCanNames[] = {"TimeStamp", "DistancePuls", "AngularRate", "DrivingDirection",
                                            "NrOfSamples"};
    static const char* const kExternalNames[] = {"timeStamp", "value0", "value1", "value2", "value3"};
    const char* const* names = aKind == SourceKind::Can ? kCanNames : kExternalNames;
    const uint64_t stampHigh = aKind == SourceKind::Can ? 0xFFFFFFFFull : 0x7FFFFFFFFFFFFFFFull;
    if (!ParseStamp(fields[0], stampHigh, record.stamp, why)) {
      aError = where + names[0] + ": " + why;
      return false;
    }
    for (int f = 0; f < 4; ++f) {
      int64_t low = -32768, high = 32767;
      if (aKind == SourceKind::Can) {
        static const int64_t kLow[] = {0, -32768, 0, 0};
        static const int64_t kHigh[] = {65535, 32767, 0xFFFFFFFFll, 255};
        low = kLow[f];
        high = kHigh[f];
      }
      if (!ParseField(fields[f + 1], low, high, record.field[f], why)) {
        aError = where + names[f + 1] + ": " + why;
        return false;
      }
    }
    records.push_back(record);
  }
  if (!header) return aError = aPath + ":" + std::to_string(number) + ": missing header: the file has no rows", false;
  aRecords.swap(records);
  return true;
}

bool WriteTrace(const std::string& aPath, SourceKind aKind, const std::vector<DriveRecord>& aRecords,
                std::string& aError) {
  FILE* file = fopen(aPath.c_str(), "w");
  if (file == nullptr) return aError = aPath + ": " + strerror(errno), false;
  fprintf(file, "# positioning-sim trace: the records the %s service sent\n",
          aKind == SourceKind::Can ? "micro-host sensor" : "external positioning-sensor");
  fprintf(file, "%s\n", TraceHeader(aKind));
  for (const DriveRecord& record : aRecords) {
    fprintf(file, "%llu,%lld,%lld,%lld,%lld\n", static_cast<unsigned long long>(record.stamp),
            static_cast<long long>(record.field[0]), static_cast<long long>(record.field[1]),
            static_cast<long long>(record.field[2]), static_cast<long long>(record.field[3]));
  }
  if (fclose(file) != 0) return aError = aPath + ": " + strerror(errno), false;
  return true;
}

}  // namespace sim
