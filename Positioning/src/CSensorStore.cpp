#include "CSensorStore.h"

#include <stdlib.h>
#include <string.h>

#include <new>

#include "Assertion.h"
#include "LogRecord.h"

using positioning::CLogRecord;
using positioning::EInfo;
using positioning::EInterface;
using positioning::ReportAssertion;

namespace {

const char kFile[] = "Positioning/src/CSensorStore.cpp";
const TInterfaceIdentity kPositioningSensorIdentity = {34, 0};
const int32_t kSecondsBuffered = 60;

// Source lines the store's records carry.
enum {
  kLineSensorArrayAssert = 33,
  kLineBufferAssert = 39,
  kLineConfigAssert = 45,
  kLineRequestFailed = 57,
  kLineRevokeFailed = 66,
  kLineAvailable = 88,
  kLineUnavailable = 94,
  kLineSubscribe = 108,
  kLineAllSubscribed = 125,
  kLineBufferedSize = 133,
  kLineSendingBuffered = 143,
  kLineNotAllSubscribed = 153,
  kLinePutData = 169,
};

// A newly allocated copy of a sample's values other than two.
__attribute__((noinline, cold)) int16_t* CopyOfValues(const CSensorStore::TSensorData& aData) {
  int16_t* values = static_cast<int16_t*>(malloc(aData.size * sizeof(int16_t)));
  for (uint8_t i = 0; i < aData.size; ++i) values[i] = aData.values[i];
  return values;
}

// The outgoing record of a sample; its value array is allocated per record and freed
// by the caller. Like every allocation of the module, the array's is not checked.
inline TiPositioningSensorData MakeOutgoing(const CSensorStore::TSensorData& aData) {
  TiPositioningSensorData out;
  out.timeStamp = aData.timeStamp;
  out.values.size = aData.size;
  if (aData.size == 2) {
    // Both sources put two values into every sample: made and filled at once.
    out.values.data = static_cast<int16_t*>(malloc(2 * sizeof(int16_t)));
    memcpy(out.values.data, aData.values, 2 * sizeof(int16_t));
  } else {
    out.values.data = CopyOfValues(aData);
  }
  return out;
}

}  // namespace

void CSensorStore::FillFixedConfiguration(TiPositioningSensorEntry* aEntries) {
  for (uint8_t i = 0; i < kFixedSensorCount; ++i) {
    aEntries[i].sensorType = static_cast<TiPositioningSensorType>(i + 1);
    aEntries[i].sensorParameter = 1;
    aEntries[i].samplePeriod = 200;
    aEntries[i].valueCount = 2;
  }
}

CSensorStore* CSensorStore::Create(TiPositioningSensorConfiguration aConfig, const TFeatureId& aFeatureId,
                                   IInterfaceBroker& aBroker, const std::string& aInstanceName) {
  return new CSensorStore(aConfig, aFeatureId, aBroker, aInstanceName);
}

CSensorStore::CSensorStore(TiPositioningSensorConfiguration aConfig, const TFeatureId& aFeatureId,
                           IInterfaceBroker& aBroker, const std::string& aInstanceName)
    : iSensorCount(aConfig.size),
      iSubscriptionCount(0),
      iSensorArray(NULL),
      iFeatureId(aFeatureId),
      iInterfaceBroker(aBroker),
      iInstanceName(aInstanceName) {
  iSensorArray = static_cast<TSensorEntry*>(malloc(aConfig.size * sizeof(TSensorEntry)));
  if (iSensorArray == NULL) ReportAssertion("iSensorArray != NULL", kFile, kLineSensorArrayAssert);

  for (int32_t i = 0; i < iSensorCount; ++i) {
    // A period of 0 divides by zero here, as the platform's division does.
    int32_t samplesPerSecond = 1000 / aConfig.data[i].samplePeriod;
    TSensorEntry* entry = new (&iSensorArray[i]) TSensorEntry();
    entry->config = aConfig.data[i];
    entry->buffer = new CRingBuffer<TSensorData>(samplesPerSecond * kSecondsBuffered);
    if (entry->buffer == NULL) ReportAssertion("iSensorArray[i].buffer != NULL", kFile, kLineBufferAssert);
  }

  iPosSensorConfig.size = aConfig.size;
  iPosSensorConfig.data = static_cast<TiPositioningSensorEntry*>(malloc(aConfig.size * sizeof(TiPositioningSensorEntry)));
  if (iPosSensorConfig.data == NULL) ReportAssertion("iPosSensorConfig.data != NULL", kFile, kLineConfigAssert);
  for (int32_t i = 0; i < iSensorCount; ++i) {
    iPosSensorConfig.data[i].sensorType = aConfig.data[i].sensorType;
    iPosSensorConfig.data[i].sensorParameter = aConfig.data[i].sensorParameter;
    iPosSensorConfig.data[i].samplePeriod = aConfig.data[i].samplePeriod;
    iPosSensorConfig.data[i].valueCount = aConfig.data[i].valueCount;
  }

  if (iInterfaceBroker.RequestInterface(iFeatureId, iInstanceName, kPositioningSensorIdentity, this) == 0) {
    CLogRecord(EInfo, "CSensorStore", kFile, kLineRequestFailed).Text("RequestInterface for IPositioningSensorMale failed");
  }
}

CSensorStore::~CSensorStore() {
  if (iInterfaceBroker.RevokeInterface(iFeatureId, iInstanceName, kPositioningSensorIdentity, this) == 0) {
    CLogRecord(EInfo, "~CSensorStore", kFile, kLineRevokeFailed)
        .Text("RevokeInterface interface for IPositioningSensorMale failed");
  }
  if (iSensorArray != NULL) {
    for (int32_t i = 0; i < iSensorCount; ++i) {
      if (iSensorArray[i].buffer != NULL) delete iSensorArray[i].buffer;
    }
    for (int32_t i = iSensorCount - 1; i >= 0; --i) iSensorArray[i].~TSensorEntry();
    free(iSensorArray);
  }
  if (iPosSensorConfig.data != NULL) free(iPosSensorConfig.data);
}

void CSensorStore::OnInterfaceAvailable(IPositioningSensorMale& aClient) {
  CLogRecord(EInterface, "virtual void CSensorStore::OnInterfaceAvailable(IPositioningSensorMale&)", kFile,
             kLineAvailable);
  aClient.Configuration(*this, iPosSensorConfig);
}

void CSensorStore::OnInterfaceUnavailable(IPositioningSensorMale& aClient) {
  CLogRecord(EInterface, "virtual void CSensorStore::OnInterfaceUnavailable(IPositioningSensorMale&)", kFile,
             kLineUnavailable);
  for (int32_t i = 0; i < iSensorCount; ++i) {
    CHKList<clientRecord>& clients = iSensorArray[i].clients;
    for (CHKNode<clientRecord>* node = clients.iHead; node != NULL; node = node->iNext) {
      if (node->iData.client == &aClient) {
        clients.Remove(node);
        break;
      }
    }
  }
  // iSubscriptionCount stays: the delivery gate does not reopen when a client leaves.
}

reflection::TErrCode CSensorStore::Subscribe(IPositioningSensorMale& aClient, TiPositioningSensorType aType,
                                             txdr_bool aRequestBufferedData) {
  CLogRecord(EInterface,
             "virtual reflection::TErrCode CSensorStore::Subscribe(IPositioningSensorMale&, "
             "TiPositioningSensorType, txdr_bool)",
             kFile, kLineSubscribe)
      .Text("Type: ")
      .U16(aType)
      .Text(", RequestBufferedData: ")
      .I32(aRequestBufferedData);

  // No check for a repeated subscription: every call counts.
  const clientRecord record = {&aClient, 0};
  for (int32_t i = 0; i < iSensorCount; ++i) {
    if (iSensorArray[i].config.sensorType != aType) continue;
    if (iSensorArray[i].clients.InsertHead(record)) ++iSubscriptionCount;
  }

  if (iSubscriptionCount != iSensorCount) {
    CLogRecord(EInfo, "Subscribe", kFile, kLineNotAllSubscribed).Text("Not all sensors are subscribed");
    return 0;
  }
  CLogRecord(EInfo, "Subscribe", kFile, kLineAllSubscribed)
      .Text("All sensors are subscribed, aRequestBufferedData=")
      .Bool(static_cast<uint8_t>(aRequestBufferedData) != 0);
  if (aRequestBufferedData != 1) return 0;
  return ReplayFirstSensor();
}

// Replays the first sensor's buffer, oldest first, to that sensor's newest subscriber,
// whatever type completed the subscription. The snapshot is deliberately not freed.
reflection::TErrCode CSensorStore::ReplayFirstSensor() {
  // A store without sensors (or without the first buffer) has nothing to replay.
  if (iSensorCount <= 0 || iSensorArray[0].buffer == NULL) return 0;
  const TSensorEntry& sensor = iSensorArray[0];
  const CRingBuffer<TSensorData>& buffer = *sensor.buffer;

  int32_t count;
  int32_t first;
  if (buffer.iCount < buffer.iCapacity) {
    count = buffer.iCount;
    first = 0;
  } else {
    count = buffer.iCapacity;
    first = buffer.iWritePos;
  }
  TSensorData* snapshot = static_cast<TSensorData*>(malloc(count * sizeof(TSensorData)));
  if (snapshot == NULL) count = 0;
  // Oldest to newest: the slots from first to the end, then those before first (slot
  // first + k taken modulo the capacity), as two block copies.
  if (count > 0) {
    const int32_t tail = count < buffer.iCapacity - first ? count : buffer.iCapacity - first;
    memcpy(snapshot, buffer.iData + first, static_cast<size_t>(tail) * sizeof(TSensorData));
    memcpy(snapshot + tail, buffer.iData, static_cast<size_t>(count - tail) * sizeof(TSensorData));
  }

  CLogRecord(EInfo, "Subscribe", kFile, kLineBufferedSize).Text("bufferd data size=").I32(count);
  if (count == 0) return 0;

  reflection::TErrCode result = 0;
  for (int32_t k = 0; k < count; ++k) {
    TiPositioningSensorData out = MakeOutgoing(snapshot[k]);
    CLogRecord(EInfo, "Subscribe", kFile, kLineSendingBuffered)
        .Text("Sending buffered SensorData for sensor type: ")
        .U16(sensor.config.sensorType);
    // The count can be complete through other sensors alone: then nobody gets it.
    CHKNode<clientRecord>* newest = sensor.clients.iHead;
    if (newest != NULL) result = newest->iData.client->SensorData(*this, sensor.config.sensorType, out);
    free(out.values.data);
  }
  return result;
}

int8_t CSensorStore::GetBufferHandle(TiPositioningSensorType aType) {
  for (int32_t i = 0; i < iSensorCount; ++i) {
    if (iSensorArray[i].config.sensorType == aType) return static_cast<int8_t>(i);
  }
  return -1;
}

TAny CSensorStore::PutData(TUint8 aHandle, TSensorData aData) {
  CLogRecord(EInterface, "virtual TAny CSensorStore::PutData(TUint8, CSensorStore::TSensorData)", kFile, kLinePutData)
      .Text("Handle: ")
      .U8(aHandle);

  TSensorEntry& sensor = iSensorArray[aHandle];
  if (sensor.buffer != NULL) sensor.buffer->Put(aData);

  // The outgoing record exists for the clients: it is built, and its value array
  // allocated, only when the gate is open and the sensor has a client to serve. Intake
  // without delivery then costs the record copy alone, and every delivery still gets
  // an array of its own.
  CHKList<clientRecord>& clients = sensor.clients;
  CHKNode<clientRecord>* node = clients.iHead;
  if (iSubscriptionCount != iSensorCount || node == NULL) return;
  TiPositioningSensorData out = MakeOutgoing(aData);
  // Client by client from position 0, the head; further positions are rarer and kept
  // out of this path.
  node->iData.client->SensorData(*this, sensor.config.sensorType, out);
  if (clients.iCount > 1) DeliverFromSecond(sensor, out);
  free(out.values.data);
}

// Each position is walked from the head, as the list is reached by position. A client
// may leave during its call, so the count is read again after each one.
void CSensorStore::DeliverFromSecond(TSensorEntry& aSensor, TiPositioningSensorData& aOut) {
  for (int32_t p = 1; p < aSensor.clients.iCount; ++p) {
    CHKNode<clientRecord>* node = aSensor.clients.At(p);
    if (node == NULL) break;
    node->iData.client->SensorData(*this, aSensor.config.sensorType, aOut);
  }
}

TBool CSensorStore::GetLastSample(TiPositioningSensorType aType, TSensorData& aSample) {
  int8_t handle = GetBufferHandle(aType);
  if (handle == -1) return 0;
  const CRingBuffer<TSensorData>* buffer = iSensorArray[static_cast<uint8_t>(handle)].buffer;
  if (buffer == NULL) return 0;
  int32_t slot;
  if (buffer->iWritePos != 0) {
    slot = buffer->iWritePos - 1;
  } else if (buffer->iCount > 0) {
    slot = buffer->iCount - 1;
  } else {
    slot = 0;  // never written: zeroed at construction
  }
  aSample = buffer->iData[slot];
  return 1;
}

TBool CSensorStore::GetLastValidSamples(TiPositioningSensorType aType, TSensorData* aSamples, unsigned int aCount) {
  int8_t handle = GetBufferHandle(aType);
  if (handle == -1) return 0;
  const CRingBuffer<TSensorData>* buffer = iSensorArray[static_cast<uint8_t>(handle)].buffer;
  if (buffer == NULL) return 0;
  const int32_t writePos = buffer->iWritePos;
  // Strict on purpose: slot 0 is never part of the answer, and right after a wrap
  // every request fails until new samples arrive.
  if (static_cast<int32_t>(aCount) >= writePos) return 0;
  for (int32_t i = 0; i < static_cast<int32_t>(aCount); ++i) {
    int32_t slot = writePos - 1 - i;
    if (slot >= buffer->iCount) slot = 0;
    aSamples[i] = buffer->iData[slot];
  }
  return 1;
}
