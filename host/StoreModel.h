// What the module's sample store must do, worked out only from what its peers did:
// ring buffers of one minute per sensor, client lists newest first, the subscription
// count and the delivery gate (open while exactly one subscription per sensor is
// counted), the replay of the first sensor's minute, and which client the store knows
// as its connected peer (the one whose leaving it hears of). The fuzzers and the
// simulator's soak check both compare the module with it.
#ifndef HOST_STORE_MODEL_H
#define HOST_STORE_MODEL_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <vector>

#include "SimulatedPeers.h"

namespace host {

class CStoreModel {
 public:
  static const size_t kCapacity = 300;  // one minute at the fixed 200 ms period
  static const int kSensors = 2;

  // A sample the store must deliver to a client.
  struct Delivery {
    size_t client;
    ReceivedSample sample;
    bool operator==(const Delivery& aOther) const { return client == aOther.client && sample == aOther.sample; }
    bool operator!=(const Delivery& aOther) const { return !(*this == aOther); }
  };

  // aClients: the pool of clients; aOffered: whether the store's service is attached.
  CStoreModel(size_t aClients, bool aOffered) : iAttached(aClients, false), iOffered(aOffered) {}

  // A sample stored in sensor aHandle (0: type 1, 1: type 2).
  void Feed(int aHandle, uint64_t aTime, int16_t aValue0, int16_t aValue1);
  // What Subscribe must answer; kNotConnected for a client that is not connected.
  reflection::TErrCode Subscribe(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag);
  // A client connected: the store connects the first; later ones connect their own end.
  // Answers whether the store connected it (and so sent it its configuration).
  bool Attached(size_t aClient);
  void Detached(size_t aClient);

  bool IsAttached(size_t aClient) const { return iAttached[aClient]; }
  bool GateOpen() const { return iSubscriptions == kSensors; }
  int Subscriptions() const { return iSubscriptions; }
  uint64_t Fed(int aHandle) const { return iFed[aHandle]; }
  const std::deque<ReceivedSample>& Ring(int aHandle) const { return iRing[aHandle]; }
  const std::vector<size_t>& Subscribers(int aHandle) const { return iLists[aHandle]; }
  static TiPositioningSensorType TypeOf(int aHandle) { return static_cast<TiPositioningSensorType>(aHandle + 1); }

  // The deliveries due since the last call, in the order the store makes them.
  std::vector<Delivery> TakeExpected();
  uint64_t Delivered() const { return iDelivered; }
  uint64_t Replays() const { return iReplays; }    // replays the store had to make
  uint64_t Replayed() const { return iReplayed; }  // samples in them

 private:
  std::deque<ReceivedSample> iRing[kSensors];
  uint64_t iFed[kSensors] = {0, 0};
  std::vector<size_t> iLists[kSensors];  // newest subscriber first
  int iSubscriptions = 0;
  std::vector<Delivery> iExpected;
  std::vector<bool> iAttached;
  bool iOffered;
  int iStorePeer = -1;
  uint64_t iDelivered = 0;
  uint64_t iReplays = 0;
  uint64_t iReplayed = 0;
};

}  // namespace host

#endif  // HOST_STORE_MODEL_H
