#include "DriveImport.h"

#include <cmath>

#include "DeadReckoner.h"

namespace sim {

namespace {

const int64_t kCanForward = 0x21;
const int64_t kCanReverse = 0x25;
const int64_t kMaxRate = 32767;  // 1/100 deg/s in a signed 16-bit field
const uint32_t kMaxRawSamples = 255;

// aFrom + aShare of the way to aTo, the short way round.
double HeadingBetween(double aFrom, double aTo, double aShare) {
  double turned = std::fmod(aTo - aFrom, 360.0);
  if (turned > 180) turned -= 360;
  if (turned < -180) turned += 360;
  return NormalisedHeading(aFrom + aShare * turned);
}

std::string At(int aLine) { return "line " + std::to_string(aLine) + ": "; }

}  // namespace

CResampler::CResampler(const ResampleSetup& aSetup, RecordSink aRecords, TruthSink aTruth)
    : iSetup(aSetup), iRecordSink(std::move(aRecords)), iTruthSink(std::move(aTruth)) {}

bool CResampler::Add(const SignalRow& aRow, std::string& aError) {
  if (!iStarted) {
    iStarted = true;
    iStart = aRow.time;
    iPrevious = aRow;
    if (!iSetup.hasFirstStamp) {
      const double first = static_cast<double>(std::llround(aRow.time)) + static_cast<double>(iSetup.periodMs);
      if (first < 0) return aError = At(aRow.line) + "the time is below 0: give --first-stamp", false;
      iSetup.firstStamp = static_cast<uint64_t>(first);
    }
    iPending.push_back(0);
    ++iRows;
    if (aRow.direction != 0) iReverse = aRow.direction < 0;
    if (aRow.hasPose) TakePose(aRow, false);
    return true;
  }
  if (aRow.time < iPrevious.time) {
    return aError = At(aRow.line) + "the time goes back (" + std::to_string(aRow.time) + " ms after " +
                    std::to_string(iPrevious.time) + " ms)",
           false;
  }
  if (aRow.time - iPrevious.time > kLongestGap) {
    return aError = At(aRow.line) + "a gap of " + std::to_string((aRow.time - iPrevious.time) / 1000.0) +
                    " s after the row before: more than a minute without signals (split the drive there)",
           false;
  }
  if (aRow.time - iStart > kLongestDrive) return aError = At(aRow.line) + "the drive is longer than 14 days", false;
  // What the previous row said holds until this one, window by window.
  double from = iPrevious.time;
  while (from < aRow.time) {
    const double edge = Edge(iRecords + 1);
    const double to = std::min(aRow.time, edge);
    const double seconds = (to - from) / 1000.0;
    iTurn += iPrevious.rate * seconds;
    if (iSetup.byDistance) {
      const double span = aRow.time - iPrevious.time;
      const double change = aRow.distance - iPrevious.distance;
      iMetres += std::fabs(change * (to - from) / span);
    } else {
      iMetres += std::fabs(iPrevious.speed) * seconds;
    }
    from = to;
    if (to == edge && !CloseWindow(aError)) return false;
  }
  if (aRow.direction != 0) {
    iReverse = aRow.direction < 0;
  } else if (!iSetup.byDistance && aRow.speed != 0) {
    iReverse = aRow.speed < 0;
  }
  ++iRows;
  iPrevious = aRow;
  if (aRow.hasPose) TakePose(aRow, false);
  if (iPending.size() > kMaxPendingPoses)
    return aError = At(aRow.line) + "no pose for " + std::to_string(kMaxPendingPoses) + " records", false;
  return true;
}

bool CResampler::CloseWindow(std::string& aError) {
  const double meanRate = iTurn / (iSetup.periodMs / 1000.0);
  const int64_t rate = std::llround(meanRate * 100.0);
  if (rate > kMaxRate || rate < -kMaxRate) {
    return aError = At(iPrevious.line) + "an angular rate of " + std::to_string(meanRate) +
                    " deg/s is beyond what a record carries (327.67 deg/s)",
           false;
  }
  const double exact = iMetres * kPulsesPerMetre + iPulseRemainder;
  const double whole = std::floor(exact);
  const int64_t maxPulses = iSetup.kind == SourceKind::Can ? 65535 : 32767;
  if (whole > static_cast<double>(maxPulses)) {
    return aError = At(iPrevious.line) + std::to_string(iMetres) + " m in one record is beyond what a record carries",
           false;
  }
  const int64_t pulses = static_cast<int64_t>(whole);
  iPulseRemainder = exact - whole;
  iTotalMetres += iMetres;
  DriveRecord record;
  record.stamp = iSetup.firstStamp + iRecords * iSetup.periodMs;
  record.peerTime = static_cast<int64_t>(record.stamp);  // nothing shifts an imported stamp
  const int64_t samples = std::min(iRows, kMaxRawSamples);
  if (iSetup.kind == SourceKind::Can) {
    record.field[0] = pulses;
    record.field[1] = rate;
    record.field[2] = iReverse ? kCanReverse : kCanForward;
    record.field[3] = samples;
  } else {
    record.field[0] = samples;
    record.field[1] = rate;
    record.field[2] = pulses;
    record.field[3] = iReverse ? kDirectionReverse : kDirectionForward;
  }
  record.line = iPrevious.line;
  iRecordSink(record);
  ++iRecords;
  iTurn = 0;
  iMetres = 0;
  iRows = 0;
  if (iTruthSink) iPending.push_back(iRecords);
  return true;
}

// A pose: the window edges up to it are interpolated between the last pose and this
// one (or take this one, before the first); at the end the last pose holds.
void CResampler::TakePose(const SignalRow& aRow, bool aFinal) {
  if (!iTruthSink) return;
  SignalRow fix = aRow;
  if (iSetup.geographic) {
    if (!iHaveFix) iAnchor = {0, 0, fix.latitude, fix.longitude};
    GeoToLocal(iAnchor, fix.latitude, fix.longitude, fix.pose.x, fix.pose.y);
  }
  while (!iPending.empty() && (aFinal || Edge(iPending.front()) <= fix.time)) {
    const double time = Edge(iPending.front());
    const double span = fix.time - iFix.time;
    const double share = !iHaveFix || aFinal || span <= 0 ? 1.0 : (time - iFix.time) / span;
    TruthPoint point;
    // The record's stamp at the end of its window; the start one period before.
    point.stamp = iSetup.firstStamp + iPending.front() * iSetup.periodMs - iSetup.periodMs;
    const SignalRow& from = iHaveFix ? iFix : fix;
    point.pose.x = from.pose.x + share * (fix.pose.x - from.pose.x);
    point.pose.y = from.pose.y + share * (fix.pose.y - from.pose.y);
    point.pose.heading = HeadingBetween(from.pose.heading, fix.pose.heading, share);
    point.geographic = iSetup.geographic;
    point.latitude = from.latitude + share * (fix.latitude - from.latitude);
    point.longitude = from.longitude + share * (fix.longitude - from.longitude);
    iTruthSink(point);
    iPending.pop_front();
  }
  iFix = fix;
  iHaveFix = true;
}

bool CResampler::Finish(std::string& aError) {
  if (!iStarted) return aError = "no rows", false;
  if (iRecords == 0) return aError = "the rows span less than one record period", false;
  if (!iTruthSink) return true;
  if (!iHaveFix) return aError = "no row carries a pose", false;
  const SignalRow last = iFix;
  TakePose(last, true);
  return true;
}

}  // namespace sim
