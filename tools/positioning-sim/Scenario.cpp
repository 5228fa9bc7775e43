#include "Scenario.h"

#include <algorithm>

namespace sim {

namespace {

const SimTime kRejoinDelay = 1000;

}  // namespace

CScenario::CScenario(const Faults& aFaults, SourceKind aKind, IDriveSource& aDrive, const CClockModel& aClock,
                     CScheduler& aScheduler, CSimulatedHeadUnit& aUnit)
    : iFaults(aFaults), iKind(aKind), iDrive(aDrive), iClock(aClock), iScheduler(aScheduler), iUnit(aUnit) {}

void CScenario::Schedule() {
  // Records go out in file order, at the local instant of their peer time: the last
  // at the latest one's.
  if (iDrive.Count() > 0) Later(LocalInstant(iDrive.LastPeerTime()));
  ScheduleNextRecord();
  ScheduleClients();
  ScheduleFaults();
}

SimTime CScenario::LocalInstant(int64_t aPeerTime) const {
  const int64_t local = iClock.LocalAt(aPeerTime);
  return local < static_cast<int64_t>(LocalStart()) ? LocalStart() : static_cast<SimTime>(local);
}

bool CScenario::DriveComplete(std::string& aError) const {
  if (iDrive.Error().empty()) return true;
  aError = iDrive.Error();
  return false;
}

void CScenario::ScheduleNextRecord() {
  if (!iDrive.Next(iNextRecord)) return;
  iPreviousFeed = std::max(iPreviousFeed, LocalInstant(iNextRecord.peerTime));
  // The record waits here rather than in the action: an action that holds no more than
  // a pointer is not allocated, once per record.
  iScheduler.At(
      iPreviousFeed,
      [this] {
        iUnit.SendRecord(iNextRecord, iPreviousFeed);
        ScheduleNextRecord();
      },
      Lane::kRecords);
}

void CScenario::ScheduleClients() {
  const size_t first = iUnit.AddClient("C1");
  iScheduler.At(AtSeconds(iFaults.clientStart), [this, first] { iUnit.StartClient(first); });
  Later(AtSeconds(iFaults.clientStart));
  if (iFaults.secondClientAt >= 0) {
    const size_t second = iUnit.AddClient("C2");
    iScheduler.At(AtSeconds(iFaults.secondClientAt), [this, second] { iUnit.StartClient(second); });
    Later(AtSeconds(iFaults.secondClientAt));
  }
  if (iFaults.clientRejoinAt >= 0) {
    const SimTime leave = AtSeconds(iFaults.clientRejoinAt);
    iScheduler.At(leave, [this, first] { iUnit.DetachClient(first); });
    iScheduler.At(leave + kRejoinDelay, [this, first] { iUnit.StartClient(first); });
    Later(leave + kRejoinDelay);
  }
}

void CScenario::ScheduleFaults() {
  for (const TimeWindow& window : iFaults.serviceLeaves) {
    iScheduler.At(AtSeconds(window.start), [this] { iUnit.ServiceLeaves(); });
    if (window.end >= 0) iScheduler.At(AtSeconds(window.end), [this] { iUnit.ServiceReturns(); });
    Later(AtSeconds(std::max(window.start, window.end)));
  }
  for (const TimeWindow& window : iFaults.clockSyncLosses) {
    if (iKind == SourceKind::External) {
      iScheduler.At(AtSeconds(window.start), [this] { iUnit.ClockSyncLeaves(); });
      if (window.end >= 0) iScheduler.At(AtSeconds(window.end), [this] { iUnit.ClockSyncReturns(); });
    } else {
      iScheduler.At(AtSeconds(window.start), [this] { iUnit.KickAnswersStop(); });
      if (window.end >= 0) iScheduler.At(AtSeconds(window.end), [this] { iUnit.KickAnswersResume(); });
    }
  }
  // A record sent at the jump's instant already carries the jump.
  for (const TimeJump& jump : iFaults.timeJumps) {
    const int64_t delta = jump.delta;
    iScheduler.At(
        AtSeconds(jump.at), [this, delta] { iUnit.ShiftStamps(delta); }, Lane::kBeforeRecords);
  }
}

}  // namespace sim
