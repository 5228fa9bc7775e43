// The simulated peers of the module: the micro-host sensor service, the external
// positioning-sensor service, the clock-sync service and positioning clients.
#ifndef HOST_SIMULATED_PEERS_H
#define HOST_SIMULATED_PEERS_H

#include <stdint.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "IArdenClockSync.h"
#include "IHalvikPositioningSensor.h"
#include "IMicroHostSensor.h"
#include "IPositioningSensor.h"
#include "PeerEnd.h"

namespace host {

// Result the Send operations answer when the service is not connected.
const reflection::TErrCode kNotConnected = -1;

// The CAN micro-controller's micro-host sensor service (instance "0", identity 0x38/0).
class CMicroHostSensorService : public CPeerEnd<IMicroHostSensorMale> {
 public:
  CMicroHostSensorService();
  reflection::TErrCode SendSensorData(const TPosSensorData& aRecord);
  reflection::TErrCode SendSyncTime(txdr_uint32 aTime);
  reflection::TErrCode SendStatus(TStatus aStatus);
  reflection::TErrCode SendIdentification();
};

// A subscription the external service received.
struct ExternalSubscription {
  TiPositioningSensorType type;
  txdr_bool flag;
};

// The external positioning-sensor service (instance "0", identity 0x8022/1).
class CExternalPositioningService : public CPeerEnd<IHalvikPositioningSensorFemale> {
 public:
  CExternalPositioningService();
  // What Subscribe answers (0 by default).
  void SetSubscribeResult(reflection::TErrCode aResult) { iSubscribeResult = aResult; }
  const std::vector<ExternalSubscription>& Subscriptions() const { return iSubscriptions; }

  // Announces sensors to the connected module.
  reflection::TErrCode SendConfiguration(const std::vector<TiPositioningSensorEntry>& aEntries);
  // Sends one record; the values are copied into a sequence of their own size.
  reflection::TErrCode SendSensorData(TiPositioningSensorType aType, uint64_t aTimeStamp,
                                      const std::vector<int16_t>& aValues);
  // Sends a record as given, size and pointer included.
  reflection::TErrCode SendRawSensorData(TiPositioningSensorType aType, TiPositioningSensorData& aData);

  reflection::TErrCode Subscribe(IHalvikPositioningSensorMale& aPartner, TiPositioningSensorType aType,
                                 txdr_bool aFlag) override;

 private:
  reflection::TErrCode iSubscribeResult = 0;
  std::vector<ExternalSubscription> iSubscriptions;
};

// The main unit's clock-sync service (instance "0", identity 0x8062/1).
class CClockSyncService : public CPeerEnd<IArdenClockSyncFemale> {
 public:
  CClockSyncService();
  reflection::TErrCode SendTimeStampReport(unsigned int aTimeStamp);
};

// One sample a client received.
struct ReceivedSample {
  TiPositioningSensorType type;
  uint64_t timeStamp;
  std::vector<int16_t> values;
  bool operator==(const ReceivedSample& aOther) const {
    return type == aOther.type && timeStamp == aOther.timeStamp && values == aOther.values;
  }
};

// A positioning client of the module's store (identity 34/0, instance "1" or "2").
class CPositioningClient : public CPeerEnd<IPositioningSensorMale> {
 public:
  explicit CPositioningClient(const std::string& aInstance, const std::string& aName = "client");

  // Subscribes through the connected store; kNotConnected when there is none.
  reflection::TErrCode Subscribe(TiPositioningSensorType aType, txdr_bool aRequestBufferedData);
  // What SensorData answers (0 by default).
  void SetSensorDataResult(reflection::TErrCode aResult) { iSensorDataResult = aResult; }
  // Called for every sample received, after it is kept.
  void SetOnSample(std::function<void(const ReceivedSample&)> aObserver) { iOnSample = std::move(aObserver); }

  const std::string& Name() const { return iName; }
  const std::vector<ReceivedSample>& Samples() const { return iSamples; }
  std::vector<ReceivedSample> SamplesOf(TiPositioningSensorType aType) const;
  void ClearSamples() { iSamples.clear(); }
  // Configurations received, as entry lists.
  const std::vector<std::vector<TiPositioningSensorEntry>>& Configurations() const { return iConfigurations; }
  // The store's service end that sent the last configuration or sample.
  IPositioningSensorFemale* LastSender() const { return iLastSender; }

  reflection::TErrCode Configuration(IPositioningSensorFemale& aPartner,
                                     TiPositioningSensorConfiguration& aConfig) override;
  reflection::TErrCode SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override;

 private:
  std::string iName;
  reflection::TErrCode iSensorDataResult = 0;
  std::function<void(const ReceivedSample&)> iOnSample;
  std::vector<ReceivedSample> iSamples;
  std::vector<std::vector<TiPositioningSensorEntry>> iConfigurations;
  IPositioningSensorFemale* iLastSender = nullptr;
};

}  // namespace host

#endif  // HOST_SIMULATED_PEERS_H
