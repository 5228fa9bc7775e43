#include "TraceClock.h"

#include <stdio.h>

#include <sstream>

#include "NumberParse.h"

namespace sim {

namespace {

const int64_t kHalfRange = static_cast<int64_t>(kStampRange / 2);
// Far beyond any clock a recording of recordings can reach, and far from overflow.
const uint64_t kClockLimit = 1ULL << 44;
const char* const kClockTag = "clock:";
const char* const kShiftTag = "stamp-shift-ms:";

// The text after '#' and aTag, or false when the comment does not start with aTag.
bool AfterTag(const std::string& aComment, const char* aTag, std::string& aRest) {
  size_t at = aComment.find_first_not_of(" \t", aComment[0] == '#' ? 1 : 0);
  const std::string tag = aTag;
  if (at == std::string::npos || aComment.compare(at, tag.size(), tag) != 0) return false;
  aRest = aComment.substr(at + tag.size());
  return true;
}

}  // namespace

int64_t StampStep(uint64_t aEarlier, uint64_t aStamp) {
  const int64_t step = static_cast<int64_t>((aStamp - aEarlier) & kLargestStamp);
  return step >= kHalfRange ? step - static_cast<int64_t>(kStampRange) : step;
}

int64_t NearestPeerTime(uint64_t aStamp, int64_t aReference) {
  return aReference + StampStep(WireStamp(aReference), aStamp);
}

int64_t CStampFollower::Follow(uint64_t aStamp) {
  if (!iStarted) {
    iStarted = true;
    iTime = iHasReference ? NearestPeerTime(aStamp, iReference) : static_cast<int64_t>(aStamp);
  } else {
    if (aStamp < iLast && StampStep(iLast, aStamp) > 0) ++iWraps;
    iTime += StampStep(iLast, aStamp);
  }
  iLast = aStamp;
  return iTime;
}

std::string FormatClockLine(const ClockLine& aClock) {
  char line[256];
  snprintf(line, sizeof line,
           "# clock: local-start-ms=%llu local-anchor-ms=%llu peer-anchor-ms=%lld drift-ppm=%.17g sync-latency-ms=%u",
           static_cast<unsigned long long>(aClock.localStart), static_cast<unsigned long long>(aClock.localAnchor),
           static_cast<long long>(aClock.peerAnchor), aClock.driftPpm, aClock.syncLatency);
  return line;
}

bool ParseClockLine(const std::string& aComment, ClockLine& aClock, bool& aIsClockLine, std::string& aError) {
  std::string rest;
  aIsClockLine = AfterTag(aComment, kClockTag, rest);
  if (!aIsClockLine) return false;
  std::istringstream words(rest);
  std::string word;
  int seen = 0;
  ClockLine clock;
  while (words >> word) {
    const size_t equals = word.find('=');
    const std::string key = word.substr(0, equals);
    const std::string value = equals == std::string::npos ? std::string() : word.substr(equals + 1);
    std::string why;
    uint64_t whole = 0;
    int64_t peer = 0;
    bool ok = true;
    if (key == "local-start-ms" || key == "local-anchor-ms") {
      ok = ParseUnsigned(value, kClockLimit, whole, why);
      (key == "local-start-ms" ? clock.localStart : clock.localAnchor) = whole;
      seen |= key == "local-start-ms" ? 1 : 2;
    } else if (key == "peer-anchor-ms") {
      ok = ParseInteger(value, -static_cast<int64_t>(kClockLimit), static_cast<int64_t>(kClockLimit), peer, why);
      clock.peerAnchor = peer;
      seen |= 4;
    } else if (key == "drift-ppm") {
      ok = ParseReal(value, -1000, 1000, clock.driftPpm, why);
      seen |= 8;
    } else if (key == "sync-latency-ms") {
      ok = ParseUnsigned(value, 900, whole, why);
      clock.syncLatency = static_cast<uint32_t>(whole);
      seen |= 16;
    } else {
      return aError = "clock line: unknown field '" + key + "'", false;
    }
    if (!ok) return aError = "clock line: " + key + (": " + why), false;
  }
  if (seen != 31)
    return aError = "clock line: needs local-start-ms, local-anchor-ms, peer-anchor-ms, drift-ppm and sync-latency-ms",
           false;
  if (clock.localAnchor < clock.localStart) return aError = "clock line: the anchor comes before the start", false;
  aClock = clock;
  return true;
}

std::string FormatShiftLine(int64_t aShift) { return "# " + std::string(kShiftTag) + " " + std::to_string(aShift); }

bool ParseShiftLine(const std::string& aComment, int64_t& aShift, bool& aIsShiftLine, std::string& aError) {
  std::string rest;
  aIsShiftLine = AfterTag(aComment, kShiftTag, rest);
  if (!aIsShiftLine) return false;
  std::string why;
  if (!ParseInteger(rest, -static_cast<int64_t>(kLargestStamp), static_cast<int64_t>(kLargestStamp), aShift, why))
    return aError = "stamp shift line: " + why, false;
  return true;
}

}  // namespace sim
