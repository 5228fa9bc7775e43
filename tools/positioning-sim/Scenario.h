// The scenario: the drive's records and the faults and clients the options ask for,
// laid out as events on the scheduler. It only schedules; the head unit acts.
#ifndef SIM_SCENARIO_H
#define SIM_SCENARIO_H

#include <stdint.h>

#include <string>
#include <vector>

#include "ClockModel.h"
#include "DriveSource.h"
#include "Scheduler.h"
#include "SimulatedHeadUnit.h"

namespace sim {

// A span of simulated time, in seconds from the start; open-ended without an end.
struct TimeWindow {
  double start = 0;
  double end = -1;  // < 0: never ends
};

// From `at` seconds on, the service's time stamps are shifted by `delta` milliseconds.
struct TimeJump {
  double at = 0;
  int64_t delta = 0;
};

struct Faults {
  std::vector<TimeWindow> serviceLeaves;
  std::vector<TimeWindow> clockSyncLosses;
  std::vector<TimeJump> timeJumps;
  double clientStart = 0;      // first client connects (late client: later)
  double secondClientAt = -1;  // < 0: no second client
  double clientRejoinAt = -1;  // < 0: the first client never leaves
};

class CScenario {
 public:
  CScenario(const Faults& aFaults, SourceKind aKind, IDriveSource& aDrive, const CClockModel& aClock,
            CScheduler& aScheduler, CSimulatedHeadUnit& aUnit);
  // Lays out clients and faults, and the drive's first record (each record schedules
  // the next when it goes out, so the queue holds one at a time).
  void Schedule();
  // The last instant anything is scheduled for, known before the run.
  SimTime LastEvent() const { return iLastEvent; }
  // Whether every record of the drive went out; false with a reason on a read error.
  bool DriveComplete(std::string& aError) const;

 private:
  void ScheduleNextRecord();
  // The local instant of a peer time, not before the feature's start.
  SimTime LocalInstant(int64_t aPeerTime) const;
  void ScheduleClients();
  void ScheduleFaults();
  void Later(SimTime aTime) { iLastEvent = iLastEvent > aTime ? iLastEvent : aTime; }

  const Faults& iFaults;
  SourceKind iKind;
  IDriveSource& iDrive;
  const CClockModel& iClock;
  CScheduler& iScheduler;
  CSimulatedHeadUnit& iUnit;
  DriveRecord iNextRecord;  // the one record scheduled, fed at iPreviousFeed
  SimTime iPreviousFeed = LocalStart();
  SimTime iLastEvent = LocalStart();
};

}  // namespace sim

#endif  // SIM_SCENARIO_H
