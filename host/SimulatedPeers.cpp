#include "SimulatedPeers.h"

#include "ContractConstants.h"
#include "PeerEnd.h"

namespace host {

CMicroHostSensorService::CMicroHostSensorService()
    : CPeerEnd(contract::kServiceInstance, contract::kMicroHostSensorIdentity) {}

reflection::TErrCode CMicroHostSensorService::SendSensorData(const TPosSensorData& aRecord) {
  if (iPeer == nullptr) return kNotConnected;
  TPosSensorData record = aRecord;
  return iPeer->SensorData(*this, record);
}

reflection::TErrCode CMicroHostSensorService::SendSyncTime(txdr_uint32 aTime) {
  if (iPeer == nullptr) return kNotConnected;
  return iPeer->SyncTime(*this, aTime);
}

reflection::TErrCode CMicroHostSensorService::SendStatus(TStatus aStatus) {
  if (iPeer == nullptr) return kNotConnected;
  return iPeer->Status(*this, aStatus);
}

reflection::TErrCode CMicroHostSensorService::SendIdentification() {
  if (iPeer == nullptr) return kNotConnected;
  uint32_t parts[2] = {0x0100, 0x0203};
  TIdentificationList list = {2, parts};
  return iPeer->Identification(*this, list);
}

CExternalPositioningService::CExternalPositioningService()
    : CPeerEnd(contract::kServiceInstance, contract::kExternalSensorIdentity) {}

reflection::TErrCode CExternalPositioningService::SendConfiguration(
    const std::vector<TiPositioningSensorEntry>& aEntries) {
  if (iPeer == nullptr) return kNotConnected;
  std::vector<TiPositioningSensorEntry> entries = aEntries;
  TiPositioningSensorConfiguration config;
  config.size = static_cast<uint8_t>(entries.size());
  config.data = entries.empty() ? nullptr : entries.data();
  return iPeer->Configuration(*this, config);
}

reflection::TErrCode CExternalPositioningService::SendSensorData(TiPositioningSensorType aType, uint64_t aTimeStamp,
                                                                 const std::vector<int16_t>& aValues) {
  std::vector<int16_t> values = aValues;
  TiPositioningSensorData data;
  data.timeStamp = aTimeStamp;
  data.values.size = static_cast<uint8_t>(values.size());
  data.values.data = values.empty() ? nullptr : values.data();
  return SendRawSensorData(aType, data);
}

reflection::TErrCode CExternalPositioningService::SendRawSensorData(TiPositioningSensorType aType,
                                                                    TiPositioningSensorData& aData) {
  if (iPeer == nullptr) return kNotConnected;
  return iPeer->SensorData(*this, aType, aData);
}

reflection::TErrCode CExternalPositioningService::Subscribe(IHalvikPositioningSensorMale&,
                                                            TiPositioningSensorType aType, txdr_bool aFlag) {
  iSubscriptions.push_back({aType, aFlag});
  return iSubscribeResult;
}

CClockSyncService::CClockSyncService() : CPeerEnd(contract::kServiceInstance, contract::kClockSyncIdentity) {}

reflection::TErrCode CClockSyncService::SendTimeStampReport(unsigned int aTimeStamp) {
  if (iPeer == nullptr) return kNotConnected;
  return iPeer->TimeStampReport(*this, aTimeStamp);
}

CPositioningClient::CPositioningClient(const std::string& aInstance, const std::string& aName)
    : CPeerEnd(aInstance, contract::kPositioningIdentity), iName(aName) {}

reflection::TErrCode CPositioningClient::Subscribe(TiPositioningSensorType aType, txdr_bool aRequestBufferedData) {
  if (iPeer == nullptr) return kNotConnected;
  return iPeer->Subscribe(*this, aType, aRequestBufferedData);
}

std::vector<ReceivedSample> CPositioningClient::SamplesOf(TiPositioningSensorType aType) const {
  std::vector<ReceivedSample> found;
  for (const ReceivedSample& sample : iSamples) {
    if (sample.type == aType) found.push_back(sample);
  }
  return found;
}

reflection::TErrCode CPositioningClient::Configuration(IPositioningSensorFemale& aPartner,
                                                       TiPositioningSensorConfiguration& aConfig) {
  iLastSender = &aPartner;
  std::vector<TiPositioningSensorEntry> entries;
  if (aConfig.data != nullptr) entries.assign(aConfig.data, aConfig.data + aConfig.size);
  iConfigurations.push_back(entries);
  return 0;
}

reflection::TErrCode CPositioningClient::SensorData(IPositioningSensorFemale& aPartner, TiPositioningSensorType aType,
                                                    TiPositioningSensorData& aData) {
  iLastSender = &aPartner;
  // Built where it is kept: a copy would allocate its values once more.
  ReceivedSample& sample = iSamples.emplace_back();
  sample.type = aType;
  sample.timeStamp = aData.timeStamp;
  if (aData.values.data != nullptr) sample.values.assign(aData.values.data, aData.values.data + aData.values.size);
  if (iOnSample) iOnSample(sample);
  return iSensorDataResult;
}

}  // namespace host
