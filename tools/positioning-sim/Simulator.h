// The simulator: runs the scheduler's events and the host's timers in simulated-time
// order until the run's end (or an interruption), at a rate of wall-clock speed when asked,
// with a minute tick for the observers and progress on a terminal.
#ifndef SIM_SIMULATOR_H
#define SIM_SIMULATOR_H

#include <stdint.h>

#include "Scheduler.h"
#include "SimulatedHeadUnit.h"

namespace sim {

struct RunClock {
  SimTime end = 0;  // the last instant simulated
  double wallSeconds = 0;
  bool interrupted = false;
};

class CSimulator {
 public:
  CSimulator(CScheduler& aScheduler, CSimulatedHeadUnit& aUnit, const ObserverList& aObservers, double aRate,
             bool aQuiet);
  // Runs until aEnd; answers when it stopped and how long it took.
  RunClock Run(SimTime aEnd, const uint64_t& aRecordsFed);

 private:
  void WaitForWallClock(SimTime aTime);
  void Progress(SimTime aEnd, uint64_t aRecordsFed, bool aFinal);

  CScheduler& iScheduler;
  CSimulatedHeadUnit& iUnit;
  const ObserverList& iObservers;
  double iRate;  // simulated per wall-clock seconds; 0: as fast as possible
  bool iQuiet;
  bool iOnTerminal;  // asked once: a system call per event would cost more than the event
  double iWallStart = 0;
  double iLastProgress = 0;
  bool iProgressShown = false;
};

// Monotonic wall-clock seconds.
double WallSeconds();

}  // namespace sim

#endif  // SIM_SIMULATOR_H
