#include "Positioning.h"

#include <string>

#include "CANSensor.h"
#include "ExternalSensor.h"
#include "LogRecord.h"

using positioning::CLogRecord;
using positioning::EInfo;
using positioning::EInterface;

namespace {

const char kFile[] = "Positioning/src/Positioning.cpp";

// Source lines the feature's records carry.
enum {
  kLineConstructor = 39,
  kLineDiversity = 44,
  kLineUsb = 47,
  kLineCan = 51,
  kLineExternal = 57,
  kLineDefaultCan = 64,
  kLineDestructor = 72,
};

}  // namespace

CPositioning::CPositioning(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker,
                           IEventBroker& aEventBroker, const IFeatureProperties& aProperties)
    : iSensor(NULL) {
  CLogRecord(EInterface,
             "CPositioning::CPositioning(const TFeatureId&, IInterfaceBroker&, IEventBroker&, const "
             "IFeatureProperties&)",
             kFile, kLineConstructor);
  std::string diversity;
  if (aProperties.GetProperty(aFeatureId, "diversity", diversity) == 0) {
    // No property: the CAN source is the default.
    CLogRecord(EInfo, "CPositioning", kFile, kLineDefaultCan).Text("CANSensor is being created...");
    iSensor = new CCANSensor(aFeatureId, aInterfaceBroker, aEventBroker);
    return;
  }
  CLogRecord(EInfo, "CPositioning", kFile, kLineDiversity).Text("Diversity: ").Text(diversity.c_str());
  if (diversity == "USB") {
    CLogRecord(EInfo, "CPositioning", kFile, kLineUsb).Text("USBSensor is not supported");
  } else if (diversity == "CAN") {
    CLogRecord(EInfo, "CPositioning", kFile, kLineCan).Text("CANSensor is being created...");
    iSensor = new CCANSensor(aFeatureId, aInterfaceBroker, aEventBroker);
  } else if (diversity == "EXTERNAL") {
    CLogRecord(EInfo, "CPositioning", kFile, kLineExternal).Text("ExternalSensor is being created...");
    iSensor = new CExternalSensor(aFeatureId, aInterfaceBroker, aEventBroker);
  }
}

CPositioning::~CPositioning() {
  CLogRecord(EInterface, "virtual CPositioning::~CPositioning()", kFile, kLineDestructor);
  if (iSensor != NULL) delete iSensor;
}

const char* FeatureType() { return "positioning"; }

IFeatureModule2* FeatureCreate2(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker,
                                IEventBroker& aEventBroker, const IFeatureProperties& aProperties) {
  return new CPositioning(aFeatureId, aInterfaceBroker, aEventBroker, aProperties);
}
