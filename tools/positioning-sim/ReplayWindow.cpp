#include "ReplayWindow.h"

#include <stdio.h>

#include <cmath>

namespace sim {

CReplayWindow::CReplayWindow(CTraceReader& aTrace, double aStart, double aEnd, uint32_t aLoops)
    : iTrace(aTrace), iStart(aStart), iEnd(aEnd), iLoops(aLoops < 1 ? 1 : aLoops) {}

bool CReplayWindow::Open(std::string& aError) {
  const int64_t first = iTrace.FirstPeerTime();
  iFrom = first + std::llround(iStart * 1000.0);
  iTo = iEnd < 0 ? -1 : first + std::llround(iEnd * 1000.0);
  DriveRecord record;
  while (iTrace.Next(record)) {
    if (!Inside(record.peerTime)) continue;
    if (iCount == 0) iFirst = iLast = record.peerTime;
    if (record.peerTime < iFirst) iFirst = record.peerTime;
    if (record.peerTime > iLast) iLast = record.peerTime;
    ++iCount;
  }
  if (!iTrace.Error().empty()) return aError = iTrace.Error(), false;
  if (iCount == 0) return aError = Describe() + ": no record lies in the window", false;
  iSpan = iLast - iFirst + static_cast<int64_t>(kRecordPeriod);
  return iTrace.Rewind();
}

bool CReplayWindow::Next(DriveRecord& aRecord) {
  for (;;) {
    while (iTrace.Next(aRecord)) {
      if (!Inside(aRecord.peerTime)) continue;
      const int64_t later = static_cast<int64_t>(iLoop) * iSpan;
      aRecord.peerTime += later;
      aRecord.stamp = WireStamp(static_cast<int64_t>(aRecord.stamp) + later);
      return true;
    }
    if (!iTrace.Error().empty() || iLoop + 1 >= iLoops || !iTrace.Rewind()) return false;
    ++iLoop;
  }
}

std::string CReplayWindow::Describe() const {
  std::string text = iTrace.Describe();
  if (iStart > 0 || iEnd >= 0) {
    char window[96];
    snprintf(window, sizeof window, ", from %.1f s to %s", iStart, iEnd < 0 ? "its end" : "");
    text += window;
    if (iEnd >= 0) {
      snprintf(window, sizeof window, "%.1f s", iEnd);
      text += window;
    }
  }
  if (iLoops > 1) text += ", " + std::to_string(iLoops) + " loops";
  return text;
}

}  // namespace sim
