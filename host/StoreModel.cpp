#include "StoreModel.h"

#include <algorithm>

namespace host {

void CStoreModel::Feed(int aHandle, uint64_t aTime, int16_t aValue0, int16_t aValue1) {
  ReceivedSample sample;
  sample.type = TypeOf(aHandle);
  sample.timeStamp = aTime;
  sample.values = {aValue0, aValue1};
  iRing[aHandle].push_back(sample);
  if (iRing[aHandle].size() > kCapacity) iRing[aHandle].pop_front();
  ++iFed[aHandle];
  if (!GateOpen()) return;
  for (size_t client : iLists[aHandle]) iExpected.push_back({client, sample});
  iDelivered += iLists[aHandle].size();
}

reflection::TErrCode CStoreModel::Subscribe(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag) {
  if (!iOffered || !iAttached[aClient]) return kNotConnected;
  for (int i = 0; i < kSensors; ++i) {
    if (TypeOf(i) != aType) continue;
    iLists[i].insert(iLists[i].begin(), aClient);
    ++iSubscriptions;
  }
  if (!GateOpen() || aFlag != 1) return 0;
  // The replay: the first sensor's buffer, oldest first, to its newest subscriber.
  ++iReplays;
  if (iLists[0].empty()) return 0;
  for (const ReceivedSample& sample : iRing[0]) iExpected.push_back({iLists[0].front(), sample});
  iReplayed += iRing[0].size();
  return 0;
}

bool CStoreModel::Attached(size_t aClient) {
  iAttached[aClient] = true;
  if (!iOffered || iStorePeer >= 0) return false;
  iStorePeer = static_cast<int>(aClient);
  return true;
}

void CStoreModel::Detached(size_t aClient) {
  iAttached[aClient] = false;
  if (iStorePeer != static_cast<int>(aClient)) return;  // the store never hears of it
  iStorePeer = -1;
  for (std::vector<size_t>& list : iLists) {
    auto it = std::find(list.begin(), list.end(), aClient);
    if (it != list.end()) list.erase(it);
  }
}

std::vector<CStoreModel::Delivery> CStoreModel::TakeExpected() {
  std::vector<Delivery> expected;
  expected.swap(iExpected);
  return expected;
}

}  // namespace host
