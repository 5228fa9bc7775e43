// The module's two entry points, and the interface pairs a feature connects through
// the interface broker. The daemon finds the entry points by their plain (C) names
// with dlsym and casts the results to the pointer types below; a daemon that links the
// library instead calls them directly.
//
//   void* module = dlopen("libPositioning.so", RTLD_NOW | RTLD_LOCAL);  // or the full path
//   TFeatureCreate2Function create =
//       reinterpret_cast<TFeatureCreate2Function>(dlsym(module, kFeatureCreate2Symbol));
#ifndef POSITIONING_MODULE_H
#define POSITIONING_MODULE_H

#include "FeatureTypes.h"
#include "IEventBroker.h"
#include "IFeatureModule2.h"
#include "IFeatureProperties.h"
#include "IInterfaceBroker.h"
#include "PositioningSensorTypes.h"

extern "C" {
// The feature type the module provides: "positioning".
const char* FeatureType();
// Creates a feature. The property "diversity" chooses its source ("CAN" or absent:
// the CAN micro-controller; "EXTERNAL": the external sensor service; anything else:
// none). The daemon keeps the brokers alive until it deletes the feature through
// IFeatureModule2, on the thread that created it.
IFeatureModule2* FeatureCreate2(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker,
                                IEventBroker& aEventBroker, const IFeatureProperties& aProperties);
}

// What dlsym gives for the entry points.
typedef const char* (*TFeatureTypeFunction)();
typedef IFeatureModule2* (*TFeatureCreate2Function)(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker,
                                                    IEventBroker& aEventBroker, const IFeatureProperties& aProperties);

// Their names in the library's dynamic symbol table.
static const char* const kFeatureTypeSymbol = "FeatureType";
static const char* const kFeatureCreate2Symbol = "FeatureCreate2";

// The interface pairs by identity and instance name. A feature asks the broker for
// the daemon's services under instance "0" and offers its own positioning-sensor
// service to clients under the instance of its source; the broker connects ends of
// the same identity and instance.
namespace positioning_feature {
// CAN source: the CAN micro-controller's micro-host sensor service, requested shared
// (RequestSharedInterface).
const TInterfaceIdentity kMicroHostSensorIdentity = {0x0038, 0};
// EXTERNAL source: the external positioning-sensor service and the main unit's clock
// sync service.
const TInterfaceIdentity kExternalSensorIdentity = {0x8022, 1};
const TInterfaceIdentity kClockSyncIdentity = {0x8062, 1};
const char* const kServiceInstance = "0";
// The feature's own service, which clients subscribe to per sensor type.
const TInterfaceIdentity kPositioningSensorIdentity = {34, 0};
const char* const kCanClientInstance = "1";
const char* const kExternalClientInstance = "2";
// Sensor types a client subscribes to, two values per sample each.
const TiPositioningSensorType kGyroscope = 1;
const TiPositioningSensorType kOdometer = 2;
}  // namespace positioning_feature

#endif  // POSITIONING_MODULE_H
