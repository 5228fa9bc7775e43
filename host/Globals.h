// The simulated head unit's process-wide parts, which outlive a feature: what tests and
// tools reset between runs.
#ifndef HOST_GLOBALS_H
#define HOST_GLOBALS_H

namespace host {

// Returns the process-wide parts (log facility, OSAL tick and clock, platform device)
// to their defaults.
void ResetGlobals();

}  // namespace host

#endif  // HOST_GLOBALS_H
