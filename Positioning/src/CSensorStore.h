// Per-sensor one-minute ring buffers of samples, and the positioning-sensor service
// that delivers them to subscribed clients, with replay of what is buffered.
#ifndef POSITIONING_C_SENSOR_STORE_H
#define POSITIONING_C_SENSOR_STORE_H

#include <stdint.h>

#include <string>

#include "FeatureTypes.h"
#include "HKList.h"
#include "IInterfaceBroker.h"
#include "IPositioningSensor.h"
#include "ReflectionInterface.h"
#include "RingBuffer.h"

class CSensorStore : public CReflectionInterfaceHandler<IPositioningSensorFemale> {
 public:
  HK_MALLOC_ALLOCATED

  // One sample, in the module's synchronised milliseconds.
  struct TSensorData {
    uint64_t timeStamp;
    uint8_t size;        // valid entries at the front of values, at most 10
    int16_t values[10];  // entries from size on are carried along without meaning
  };

  // One subscription of one client to one sensor.
  struct clientRecord {
    IPositioningSensorMale* client;  // not owned
    uint32_t reserved;               // set to 0, never read
  };

  // One configured sensor.
  struct TSensorEntry {
    TiPositioningSensorEntry config;
    CHKList<clientRecord> clients;       // newest subscriber first
    CRingBuffer<TSensorData>* buffer;  // owned
  };

  // Number of sensors of the sources' fixed configuration.
  static const uint8_t kFixedSensorCount = 2;
  // Fills the sources' fixed configuration: sensor types 1 (gyroscope) and 2
  // (odometer), parameter 1, a sample every 200 ms, two values each.
  static void FillFixedConfiguration(TiPositioningSensorEntry* aEntries);

  // Allocates and constructs a store; the caller owns it.
  static CSensorStore* Create(TiPositioningSensorConfiguration aConfig, const TFeatureId& aFeatureId,
                              IInterfaceBroker& aBroker, const std::string& aInstanceName);

  // Builds one ring buffer per entry of aConfig (aConfig.data stays the caller's) and
  // offers the service under aInstanceName.
  CSensorStore(TiPositioningSensorConfiguration aConfig, const TFeatureId& aFeatureId, IInterfaceBroker& aBroker,
               const std::string& aInstanceName);
  // Revokes the service and frees the buffers and client lists. Clients are not told.
  virtual ~CSensorStore();
  // Owns its buffers, lists and configuration copy: a copy would free or unregister it twice.
  CSensorStore(const CSensorStore&) = delete;
  CSensorStore& operator=(const CSensorStore&) = delete;

  // A client connected: it is sent the configuration.
  void OnInterfaceAvailable(IPositioningSensorMale& aClient) override;
  // A client went away: one of its subscriptions per sensor is dropped.
  void OnInterfaceUnavailable(IPositioningSensorMale& aClient) override;
  // Subscribes aClient to every sensor of aType; the call that completes the set of
  // sensors replays the first sensor's buffer when aRequestBufferedData is 1.
  reflection::TErrCode Subscribe(IPositioningSensorMale& aClient, TiPositioningSensorType aType,
                                 txdr_bool aRequestBufferedData) override;

  // Position of the first sensor of aType, -1 when there is none.
  virtual int8_t GetBufferHandle(TiPositioningSensorType aType);
  // Stores a sample of sensor aHandle (from GetBufferHandle) and delivers it to the
  // sensor's clients while every sensor is subscribed.
  virtual TAny PutData(TUint8 aHandle, TSensorData aData);

  // Copies the newest sample of aType. An empty buffer also answers true.
  TBool GetLastSample(TiPositioningSensorType aType, TSensorData& aSample);
  // Copies the aCount newest samples written since the last wrap, newest first.
  TBool GetLastValidSamples(TiPositioningSensorType aType, TSensorData* aSamples, unsigned int aCount);

  // Read access for diagnostics and tests.
  int32_t SensorCount() const { return iSensorCount; }
  int32_t SubscriptionCount() const { return iSubscriptionCount; }
  const TSensorEntry& Sensor(int32_t aHandle) const { return iSensorArray[aHandle]; }
  const TiPositioningSensorConfiguration& PositioningSensorConfig() const { return iPosSensorConfig; }
  const std::string& InstanceName() const { return iInstanceName; }

 private:
  reflection::TErrCode ReplayFirstSensor();
  // Delivers to aSensor's clients from position 1 on; out of PutData's common path.
  __attribute__((noinline)) void DeliverFromSecond(TSensorEntry& aSensor, TiPositioningSensorData& aOut);

  int32_t iSensorCount;
  int32_t iSubscriptionCount;  // (client, sensor) pairs ever added; never decreased
  TSensorEntry* iSensorArray;
  TiPositioningSensorConfiguration iPosSensorConfig;
  TFeatureId iFeatureId;
  IInterfaceBroker& iInterfaceBroker;
  std::string iInstanceName;
};

#endif  // POSITIONING_C_SENSOR_STORE_H
