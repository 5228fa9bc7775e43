#include "Simulator.h"

#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "Interruption.h"
#include "SimulatedOsal.h"

namespace sim {

namespace {

const SimTime kMinute = 60000;

}  // namespace

double WallSeconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

CSimulator::CSimulator(CScheduler& aScheduler, CSimulatedHeadUnit& aUnit, const ObserverList& aObservers, double aRate,
                       bool aQuiet)
    : iScheduler(aScheduler),
      iUnit(aUnit),
      iObservers(aObservers),
      iRate(aRate),
      iQuiet(aQuiet),
      iOnTerminal(isatty(STDERR_FILENO) != 0) {}

RunClock CSimulator::Run(SimTime aEnd, const uint64_t& aRecordsFed) {
  iWallStart = WallSeconds();
  host::CEventBroker& events = iUnit.Events();
  const host::CSimulatedOsal& osal = host::CSimulatedOsal::Instance();
  SimTime nextMinute = LocalStart() + kMinute;
  RunClock clock;
  for (;;) {
    if (InterruptingSignal() != 0) break;
    // Timers due no later than the next event fire first, each at its own time.
    const SimTime nextEvent = iScheduler.NextTime();
    const SimTime nextTimer = events.NextDue();
    const SimTime next = std::min(nextEvent, nextTimer);
    if (next > aEnd) break;
    WaitForWallClock(next);
    if (InterruptingSignal() != 0) break;
    if (nextTimer <= nextEvent) {
      events.RunUntil(nextTimer);
    } else {
      events.RunUntil(next);
      iScheduler.RunNext();
    }
    if (osal.Now() >= nextMinute) {
      for (IRunObserver* observer : iObservers) observer->OnMinute(osal.Now());
      iUnit.TrimHostHistory();
      nextMinute += kMinute;
    }
    Progress(aEnd, aRecordsFed, false);
  }
  clock.interrupted = InterruptingSignal() != 0;
  if (!clock.interrupted) {
    WaitForWallClock(aEnd);
    events.RunUntil(aEnd);
  }
  clock.interrupted = InterruptingSignal() != 0;
  clock.end = clock.interrupted ? osal.Now() : aEnd;
  Progress(aEnd, aRecordsFed, true);
  clock.wallSeconds = WallSeconds() - iWallStart;
  return clock;
}

void CSimulator::WaitForWallClock(SimTime aTime) {
  if (iRate <= 0) return;
  const double due = iWallStart + SecondsAt(aTime) / iRate;
  const double wait = due - WallSeconds();
  // A signal ends the wait early; the loop then sees it.
  if (wait > 0) usleep(static_cast<useconds_t>(wait * 1e6));
}

void CSimulator::Progress(SimTime aEnd, uint64_t aRecordsFed, bool aFinal) {
  if (!iOnTerminal || iQuiet) return;
  const double wall = WallSeconds();
  if (!aFinal && (wall - iWallStart < 2.0 || wall - iLastProgress < 0.25)) return;
  if (aFinal && !iProgressShown) return;
  iLastProgress = wall;
  iProgressShown = true;
  fprintf(stderr, "\rpositioning-sim: %.1f / %.1f s simulated, %llu records fed%s",
          SecondsAt(host::CSimulatedOsal::Instance().Now()), SecondsAt(aEnd),
          static_cast<unsigned long long>(aRecordsFed), aFinal ? "\n" : "");
  fflush(stderr);
}

}  // namespace sim
