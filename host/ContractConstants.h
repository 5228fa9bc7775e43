// The fixed numbers of the contract between the daemon, its services and the module,
// as the host side uses them: interface identities, the CLK_SYNC pin, the sync timer's
// event, the sensor types and the log categories' masks. The module keeps its own
// copies (it builds without host/); tests hold the two together.
#ifndef HOST_CONTRACT_CONSTANTS_H
#define HOST_CONTRACT_CONSTANTS_H

#include <stdint.h>

#include "FeatureTypes.h"
#include "Logging.h"
#include "PositioningSensorTypes.h"

namespace contract {

// What FeatureType answers.
constexpr char kFeatureType[] = "positioning";

// Interface pairs. The services are offered under instance "0"; positioning clients
// come under their own instance names.
constexpr char kServiceInstance[] = "0";
constexpr TInterfaceIdentity kMicroHostSensorIdentity = {0x0038, 0};
constexpr TInterfaceIdentity kExternalSensorIdentity = {0x8022, 1};
constexpr TInterfaceIdentity kClockSyncIdentity = {0x8062, 1};
constexpr TInterfaceIdentity kPositioningIdentity = {34, 0};

// The main unit's output pin pulsed for a clock synchronisation.
constexpr uint32_t kClkSyncPin = 7;

// The periodic timer that kicks a synchronisation.
constexpr uint32_t kSyncEventClass = 0;
constexpr uint32_t kSyncEventId = 10;

// Sensor types: what clients subscribe to, and the external service's combined
// record that carries both.
constexpr TiPositioningSensorType kGyroscope = 1;
constexpr TiPositioningSensorType kOdometer = 2;
constexpr TiPositioningSensorType kCombinedRecord = 0x8000;

// Category masks for filtering log records, each level including the ones above it.
constexpr uint32_t kLogMaskError = logging::categories::Error;
constexpr uint32_t kLogMaskInfo = kLogMaskError | logging::categories::Info;
constexpr uint32_t kLogMaskInfo2 = kLogMaskInfo | logging::categories::Info2;
constexpr uint32_t kLogMaskAll = kLogMaskInfo2 | logging::categories::Interface;

}  // namespace contract

#endif  // HOST_CONTRACT_CONSTANTS_H
