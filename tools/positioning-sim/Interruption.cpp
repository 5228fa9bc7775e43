#include "Interruption.h"

#include <signal.h>
#include <string.h>

namespace sim {

namespace {

volatile sig_atomic_t gSignal = 0;

void Note(int aSignal) {
  if (gSignal == 0) gSignal = aSignal;
}

}  // namespace

void CatchInterruptions() {
  struct sigaction action;
  memset(&action, 0, sizeof action);
  action.sa_handler = Note;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

int InterruptingSignal() { return gSignal; }

}  // namespace sim
