// SIGINT and SIGTERM end a run cleanly instead of killing it: the handler only notes
// the signal, and the run stops at the next event and finishes its outputs.
#ifndef SIM_INTERRUPTION_H
#define SIM_INTERRUPTION_H

namespace sim {

// Installs the handlers (without SA_RESTART, so that a real-time wait wakes up).
void CatchInterruptions();
// The signal that asked the run to stop, 0 when none did.
int InterruptingSignal();

}  // namespace sim

#endif  // SIM_INTERRUPTION_H
