// The whole simulated head unit in one place, for tests and tools.
#ifndef HOST_HOST_H
#define HOST_HOST_H

#include "EventBroker.h"
#include "FeatureProperties.h"
#include "HostLog.h"
#include "InterfaceBroker.h"
#include "ModuleLoader.h"
#include "Osal.h"
#include "Platform.h"
#include "SimulatedPeers.h"
#include "StdoutCapture.h"

namespace host {

// Returns the process-wide parts (log facility, OSAL tick and clock, platform device)
// to their defaults.
void ResetGlobals();

}  // namespace host

#endif  // HOST_HOST_H
