// The exit statuses of positioning-sim, one per kind of failure, so that scripts can
// tell them apart (also listed in --help and the README).
#ifndef SIM_EXIT_CODES_H
#define SIM_EXIT_CODES_H

namespace sim {

const int kExitOk = 0;
const int kExitIoFailure = 1;      // an output could not be opened or written
const int kExitUsage = 2;          // bad command line
const int kExitSoakFailed = 3;     // --soak found the module misbehaving
const int kExitBadInput = 4;       // the trace cannot be read or holds a bad row
const int kExitModuleLoad = 5;     // the module cannot be loaded
const int kExitInterrupted = 130;  // SIGINT (128 + 2)
const int kExitTerminated = 143;   // SIGTERM (128 + 15)

}  // namespace sim

#endif  // SIM_EXIT_CODES_H
