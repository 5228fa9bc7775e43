#include "CANSensor.h"

#include <stdlib.h>

#include "LogRecord.h"
#include "PlatformDevice.h"

using positioning::CLogRecord;
using positioning::EInfo;
using positioning::EInfo2;
using positioning::EInterface;

namespace {

const char kFile[] = "Positioning/src/CANSensor.cpp";
const TInterfaceIdentity kMicroHostSensorIdentity = {0x0038, 0};
const char kMicroHostInstance[] = "0";
const char kStoreInstance[] = "1";
const char kRequestFailed[] = "RequestSharedInterface for IMicroHostSensorMale failed";

// Odometer direction code of a driving direction.
int16_t DirectionCode(uint32_t aDrivingDirection) {
  switch (aDrivingDirection) {
    case 0x21:
      return 1;
    case 0x25:
      return 2;
    default:
      return 0;
  }
}

}  // namespace

CCANSensor::CCANSensor(const TFeatureId& aFeatureId, IInterfaceBroker& aBroker, IEventBroker& aEventBroker)
    : iFeatureId(aFeatureId),
      iInterfaceBroker(aBroker),
      iEventBroker(aEventBroker),
      iMicroHostSensorMale(NULL),
      iFirstSensorHandle(0),
      iSecondSensorHandle(0),
      iSensorStore(NULL),
      iSyncTime() {
  // Requested before the store exists: no data is expected while constructing.
  if (iInterfaceBroker.RequestSharedInterface(iFeatureId, kMicroHostInstance, kMicroHostSensorIdentity,
                                              static_cast<CReflectionInterfaceHandler<IMicroHostSensorFemale>*>(this)) ==
      0) {
    CLogRecord(EInfo, "CCANSensor", kFile, __LINE__).Text(kRequestFailed);
  }

  TiPositioningSensorConfiguration config;
  config.size = CSensorStore::kFixedSensorCount;
  config.data = static_cast<TiPositioningSensorEntry*>(malloc(config.size * sizeof(TiPositioningSensorEntry)));
  CSensorStore::FillFixedConfiguration(config.data);
  iSensorStore = new CSensorStore(config, iFeatureId, iInterfaceBroker, kStoreInstance);
  free(config.data);

  iFirstSensorHandle = static_cast<uint8_t>(iSensorStore->GetBufferHandle(1));
  iSecondSensorHandle = static_cast<uint8_t>(iSensorStore->GetBufferHandle(2));

  iSyncTime.SetEventBroker(&iEventBroker);
  iSyncTime.CSyncTime::KickSyncTime();
}

CCANSensor::~CCANSensor() {
  if (iInterfaceBroker.RevokeInterface(iFeatureId, kMicroHostInstance, kMicroHostSensorIdentity,
                                       static_cast<CReflectionInterfaceHandler<IMicroHostSensorFemale>*>(this)) == 0) {
    // The revoke reports its failure in the request's words; kept as it is.
    CLogRecord(EInfo, "~CCANSensor", kFile, __LINE__).Text(kRequestFailed);
  }
  if (iSensorStore != NULL) {
    delete iSensorStore;
    iSensorStore = NULL;
  }
}

void CCANSensor::OnInterfaceAvailable(IMicroHostSensorMale& aPeer) {
  CLogRecord(EInterface, "virtual void CCANSensor::OnInterfaceAvailable(IMicroHostSensorMale&)", kFile, __LINE__)
      .Text("IMicroHostSensorMale");
  iMicroHostSensorMale = &aPeer;
}

void CCANSensor::OnInterfaceUnavailable(IMicroHostSensorMale& aPeer) {
  CLogRecord(EInterface, "virtual void CCANSensor::OnInterfaceUnavailable(IMicroHostSensorMale&)", kFile, __LINE__)
      .Text("IMicroHostSensorMale");
  (void)aPeer;
  iMicroHostSensorMale = NULL;
}

reflection::TErrCode CCANSensor::SyncTime(IMicroHostSensorMale&, txdr_uint32 aTime) {
  CLogRecord(EInterface, "virtual reflection::TErrCode CCANSensor::SyncTime(IMicroHostSensorMale&, txdr_uint32)",
             kFile, __LINE__);
  iSyncTime.SetMeasuredTime(aTime);
  return 0;
}

reflection::TErrCode CCANSensor::Identification(IMicroHostSensorMale&, TIdentificationList&) {
  CLogRecord(EInterface,
             "virtual reflection::TErrCode CCANSensor::Identification(IMicroHostSensorMale&, TIdentificationList&)",
             kFile, __LINE__);
  return 0;
}

reflection::TErrCode CCANSensor::Status(IMicroHostSensorMale&, TStatus) {
  CLogRecord(EInterface, "virtual reflection::TErrCode CCANSensor::Status(IMicroHostSensorMale&, TStatus)", kFile,
             __LINE__);
  return 0;
}

reflection::TErrCode CCANSensor::SensorData(IMicroHostSensorMale&, TPosSensorData& aData) {
  CLogRecord(EInterface, "virtual reflection::TErrCode CCANSensor::SensorData(IMicroHostSensorMale&, TPosSensorData&)",
             kFile, __LINE__);
  CLogRecord(EInfo2, "SensorData", kFile, __LINE__).Text("AngularRate      : ").I16(aData.AngularRate);
  CLogRecord(EInfo2, "SensorData", kFile, __LINE__).Text("DistancePuls     : ").U16(aData.DistancePuls);
  CLogRecord(EInfo2, "SensorData", kFile, __LINE__).Text("DrivingDirection : ").U32(aData.DrivingDirection);
  CLogRecord(EInfo2, "SensorData", kFile, __LINE__).Text("TimeStamp        : ").U32(aData.TimeStamp);
  CLogRecord(EInfo2, "SensorData", kFile, __LINE__).Text("NrOfSamples      : ").U8(aData.NrOfSamples);

  CSensorStore::TSensorData sample = {};
  sample.timeStamp = static_cast<uint64_t>(aData.TimeStamp) + iSyncTime.GetSyncTime();
  sample.size = 2;
  sample.values[0] = aData.NrOfSamples;
  sample.values[1] = aData.AngularRate;
  iSensorStore->PutData(iFirstSensorHandle, sample);

  sample.values[0] = static_cast<int16_t>(aData.DistancePuls);
  sample.values[1] = DirectionCode(aData.DrivingDirection);
  iSensorStore->PutData(iSecondSensorHandle, sample);
  return 0;
}

CCanTimeSync::CCanTimeSync() {}

CCanTimeSync::~CCanTimeSync() {}

TBool CCanTimeSync::KickSyncTime() {
  ICanMicroIO& canMicro = CPDDevice::Instance().CanMicroIO();
  if (canMicro.TriggerClockSync() == 1) getDateTimeInMS();
  return 1;
}
