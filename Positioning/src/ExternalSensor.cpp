#include "ExternalSensor.h"

#include <stdio.h>
#include <stdlib.h>

#include "Assertion.h"
#include "LogRecord.h"
#include "MainUnitSync.h"
#include "OSAL.h"

using positioning::CLogRecord;
using positioning::EError;
using positioning::EInfo;
using positioning::EInterface;
using positioning::ReportAssertion;

namespace {

const char kFile[] = "Positioning/src/ExternalSensor.cpp";
const char kServiceInstance[] = "0";
const char kStoreInstance[] = "2";
const TInterfaceIdentity kClockSyncIdentity = {0x8062, 1};
const TInterfaceIdentity kPositioningSensorIdentity = {0x8022, 1};
const TiPositioningSensorType kCombinedRecord = 0x8000;
const uint64_t kMaxTimeStampStep = 250;
const uint8_t kCombinedValueCount = 4;

// Whether a record carries the four values of the combined record.
inline bool IsComplete(const TiPositioningSensorData& aData) {
  return aData.values.data != NULL && aData.values.size >= kCombinedValueCount;
}

// A 16-bit value widened with its sign, as its unsigned 32-bit equivalent.
inline uint32_t Widened(int16_t aValue) { return static_cast<uint32_t>(static_cast<int32_t>(aValue)); }

// What only a time-stamp step, a refused or a short record needs is kept out of line,
// so that the path of the ordinary record keeps its registers for what it passes on.

// A step outside 0 to 250 ms; a step back prints both messages, deliberately.
__attribute__((noinline, cold)) void ReportTimeStampStep(uint64_t aTimeStamp, uint64_t aLastTimeStamp) {
  printf("ERROR: %s timestamp difference more than 250 ms, %d, %d\n", "SensorData",
         static_cast<int>(static_cast<uint32_t>(aTimeStamp)), static_cast<int>(static_cast<uint32_t>(aLastTimeStamp)));
  if (static_cast<int64_t>(aTimeStamp - aLastTimeStamp) < 0) {
    printf("ERROR: %s timestamp %d is going back\n", "SensorData", static_cast<int>(static_cast<uint32_t>(aTimeStamp)));
  }
}

__attribute__((noinline, cold)) void LogUnknownType() {
  CLogRecord(EError, "SensorData", kFile, __LINE__).Text("Unknown positioning sensor type!");
}

__attribute__((noinline, cold)) void LogDropped(uint8_t aSize) {
  CLogRecord(EError, "SensorData", kFile, __LINE__)
      .Text("Combined record dropped, values expected 4, received: ")
      .U8(aSize);
}

}  // namespace

CExternalSensor::CExternalSensor(const TFeatureId& aFeatureId, IInterfaceBroker& aInterfaceBroker,
                                 IEventBroker& aEventBroker)
    : iFeatureId(aFeatureId),
      iInterfaceBroker(&aInterfaceBroker),
      iEventBroker(&aEventBroker),
      iClockSyncFemale(NULL),
      iClockSyncAvailable(0),
      iPositioningSensorAvailable(0),
      iHalvikPositioningSensorFemale(NULL),
      // Cleared before the requests: the broker may connect, and call the availability
      // handlers, from inside RequestInterface.
      iSyncTime(NULL),
      iSensorStore(NULL),
      iFirstSensorHandle(0),
      iSecondSensorHandle(0),
      iLastTimeStamp(0) {
  CLogRecord(EInterface, "CExternalSensor::CExternalSensor(const TFeatureId&, IInterfaceBroker&, IEventBroker&)",
             kFile, __LINE__);
  OSALTickInit();
  if (iInterfaceBroker == NULL) ReportAssertion("iInterfaceBroker != NULL", kFile, __LINE__);

  if (iInterfaceBroker->RequestInterface(iFeatureId, kServiceInstance, kClockSyncIdentity, ClockSyncHandler()) == 0) {
    CLogRecord(EError, "CExternalSensor", kFile, __LINE__).Text("Failed to request IArdenClockSyncFemale instance");
  } else {
    CLogRecord(EInfo, "CExternalSensor", kFile, __LINE__).Text("IArdenClockSync received");
  }
  if (iInterfaceBroker->RequestInterface(iFeatureId, kServiceInstance, kPositioningSensorIdentity,
                                         PositioningSensorHandler()) == 0) {
    CLogRecord(EError, "CExternalSensor", kFile, __LINE__).Text("Failed to request IHalvikPositioningFemale instance");
  } else {
    CLogRecord(EInfo, "CExternalSensor", kFile, __LINE__).Text("IHalvikPositioningSensorFemale received");
  }

  TiPositioningSensorConfiguration aConfig;
  aConfig.size = CSensorStore::kFixedSensorCount;
  aConfig.data = static_cast<TiPositioningSensorEntry*>(malloc(aConfig.size * sizeof(TiPositioningSensorEntry)));
  if (aConfig.data == NULL) ReportAssertion("aConfig.data != NULL", kFile, __LINE__);
  CSensorStore::FillFixedConfiguration(aConfig.data);

  iSensorStore = CSensorStore::Create(aConfig, iFeatureId, *iInterfaceBroker, kStoreInstance);
  iFirstSensorHandle = static_cast<uint8_t>(iSensorStore->GetBufferHandle(1));
  iSecondSensorHandle = static_cast<uint8_t>(iSensorStore->GetBufferHandle(2));
  free(aConfig.data);
}

CExternalSensor::~CExternalSensor() {
  CLogRecord(EInterface, "virtual CExternalSensor::~CExternalSensor()", kFile, __LINE__);
  if (iInterfaceBroker != NULL) {
    if (iInterfaceBroker->RevokeInterface(iFeatureId, kServiceInstance, kClockSyncIdentity, ClockSyncHandler()) == 0) {
      CLogRecord(EError, "~CExternalSensor", kFile, __LINE__).Text("Failed to revoke IArdenClockSyncFemale instance");
    }
    if (iInterfaceBroker->RevokeInterface(iFeatureId, kServiceInstance, kPositioningSensorIdentity,
                                          PositioningSensorHandler()) == 0) {
      CLogRecord(EError, "~CExternalSensor", kFile, __LINE__).Text("Failed to revoke IHalvikPositioningFemale instance");
    }
  }
  if (iSensorStore != NULL) {
    delete iSensorStore;
    iSensorStore = NULL;
  }
  if (iSyncTime != NULL) {
    delete iSyncTime;
    iSyncTime = NULL;
  }
}

void CExternalSensor::OnInterfaceAvailable(IArdenClockSyncFemale& aFemale) {
  CLogRecord(EInterface, "virtual void CExternalSensor::OnInterfaceAvailable(IArdenClockSyncFemale&)", kFile,
             __LINE__);
  iClockSyncFemale = &aFemale;
  iClockSyncAvailable = 1;
  if (iSyncTime == NULL) iSyncTime = CMainUnitSync::Create(iEventBroker);
  CLogRecord(EInfo, "OnInterfaceAvailable", kFile, __LINE__).Text("KickSyncTime");
  iSyncTime->KickSyncTime();
}

void CExternalSensor::OnInterfaceUnavailable(IArdenClockSyncFemale&) {
  CLogRecord(EInterface, "virtual void CExternalSensor::OnInterfaceUnavailable(IArdenClockSyncFemale&)", kFile,
             __LINE__)
      .Text("ArdenClockSync not available...");
  if (iSyncTime != NULL) {
    delete iSyncTime;
    iSyncTime = NULL;
  }
  iClockSyncAvailable = 0;
  iClockSyncFemale = NULL;
}

void CExternalSensor::OnInterfaceAvailable(IHalvikPositioningSensorFemale& aFemale) {
  CLogRecord(EInterface, "virtual void CExternalSensor::OnInterfaceAvailable(IHalvikPositioningSensorFemale&)", kFile,
             __LINE__)
      .Text("HalvikPositioningSensor available...");
  iPositioningSensorAvailable = 1;
  iHalvikPositioningSensorFemale = &aFemale;
}

void CExternalSensor::OnInterfaceUnavailable(IHalvikPositioningSensorFemale&) {
  CLogRecord(EInterface, "virtual void CExternalSensor::OnInterfaceUnavailable(IHalvikPositioningSensorFemale&)",
             kFile, __LINE__)
      .Text("HalvikPositioningSensor not available...");
  iPositioningSensorAvailable = 0;
  iHalvikPositioningSensorFemale = NULL;
}

reflection::TErrCode CExternalSensor::Configuration(IHalvikPositioningSensorFemale&,
                                                    TiPositioningSensorConfiguration& aConfig) {
  CLogRecord(EInterface,
             "virtual reflection::TErrCode CExternalSensor::Configuration(IHalvikPositioningSensorFemale&, "
             "TiPositioningSensorConfiguration&)",
             kFile, __LINE__);
  CLogRecord(EInfo, "Configuration", kFile, __LINE__).Text("Configuration Size        : ").U8(aConfig.size);
  // A configuration without an entry array lists no entries.
  const int32_t entries = aConfig.data != NULL ? aConfig.size : 0;
  for (int32_t i = 0; i < entries; ++i) {
    CLogRecord(EInfo, "Configuration", kFile, __LINE__).Text("Configuration, Sensor Index        : ").I32(i);
    CLogRecord(EInfo, "Configuration", kFile, __LINE__)
        .Text("Configuration, Sensor Type        : ")
        .U16(aConfig.data[i].sensorType);
  }

  // The interface recorded by the availability report is the one subscribed to, not
  // the caller.
  if (iPositioningSensorAvailable == 1) {
    if (iHalvikPositioningSensorFemale->Subscribe(*this, kCombinedRecord, 1) == 0) {
      CLogRecord(EInfo, "Configuration", kFile, __LINE__).Text("Subscription to positioning sensor is succesful!");
    } else {
      CLogRecord(EInfo, "Configuration", kFile, __LINE__).Text("Subscription to positioning sensor failed!");
    }
  } else {
    CLogRecord(EInfo, "Configuration", kFile, __LINE__).Text("iHalvikPositioningSensorFemale is not available...");
  }
  return 0;
}

reflection::TErrCode CExternalSensor::SensorData(IHalvikPositioningSensorFemale&, TiPositioningSensorType aType,
                                                 TiPositioningSensorData& aData) {
  // The offset is read first, once, before any check. Without a time base (clock-sync
  // service absent) samples keep the service's time.
  const int64_t offset = iSyncTime != NULL ? iSyncTime->GetSyncTime() : 0;
  // Only the values the sequence holds are read; the combined record has all four.
  const int16_t* values = aData.values.data;
  {
    CLogRecord record(EInfo, "SensorData", kFile, __LINE__);
    record.Text(", ").U16(aType);
    // Values are sign-extended to 32 bits and passed as unsigned, as the stream expects.
    if (IsComplete(aData)) {
      record.Text(", ").U32(Widened(values[0])).Text(", ").U32(Widened(values[1]));
      record.Text(", ").U32(Widened(values[2])).Text(", ").U32(Widened(values[3]));
    } else if (values != NULL) {
      for (uint8_t i = 0; i < aData.values.size; ++i) record.Text(", ").U32(Widened(values[i]));
    }
    record.Text(", ").I32(static_cast<int32_t>(static_cast<uint32_t>(aData.timeStamp))).Text(", ");
  }

  if (aType != kCombinedRecord) {
    LogUnknownType();
    return 0;
  }

  // Supervision only reports: the record is accepted and becomes the reference. A
  // step back prints both messages, deliberately.
  if (iLastTimeStamp != 0) {
    const uint64_t step = aData.timeStamp - iLastTimeStamp;
    if ((step >> 32) != 0 || static_cast<uint32_t>(step) > kMaxTimeStampStep) {
      ReportTimeStampStep(aData.timeStamp, iLastTimeStamp);
    }
  }
  iLastTimeStamp = aData.timeStamp;

  if (aData.values.size == 0) return 0;
  if (!IsComplete(aData)) {
    LogDropped(aData.values.size);
    return 0;
  }

  CSensorStore::TSensorData sample = {};
  sample.timeStamp = aData.timeStamp + offset;
  sample.size = 2;
  sample.values[0] = values[0];
  sample.values[1] = values[1];
  iSensorStore->PutData(iFirstSensorHandle, sample);
  sample.values[0] = values[2];
  sample.values[1] = values[3];
  iSensorStore->PutData(iSecondSensorHandle, sample);
  return 0;
}

reflection::TErrCode CExternalSensor::TimeStampReport(IArdenClockSyncFemale&, unsigned int aTimeStamp) {
  CLogRecord(EInfo, "TimeStampReport", kFile, __LINE__).Text("TimeStampReport: ").U32(aTimeStamp);
  // Without a time base (clock-sync service gone) the report has nothing to set.
  if (iSyncTime != NULL) iSyncTime->SetMeasuredTime(aTimeStamp);
  return 0;
}
