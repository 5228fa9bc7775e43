// Shared by the fuzz targets: reading the input, failing loudly on a broken
// invariant, reading what the module prints, and a reference model of the sample
// store against which every step of a target is checked.
#ifndef FUZZ_FUZZ_SUPPORT_H
#define FUZZ_FUZZ_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "InterfaceBroker.h"
#include "SimulatedPeers.h"

namespace fuzzing {

// Reports the broken invariant and aborts, so that libFuzzer keeps the input.
[[noreturn]] void Fail(const char* aExpression, const char* aFile, int aLine, const std::string& aDetail);

#define FUZZ_CHECK(aCondition)                                                          \
  do {                                                                                  \
    if (!(aCondition)) ::fuzzing::Fail(#aCondition, __FILE__, __LINE__, std::string()); \
  } while (0)
#define FUZZ_CHECK_MSG(aCondition, aDetail)                                       \
  do {                                                                            \
    if (!(aCondition)) ::fuzzing::Fail(#aCondition, __FILE__, __LINE__, aDetail); \
  } while (0)

// Reads the input front to back; past its end every value reads as 0.
class CInput {
 public:
  CInput(const uint8_t* aData, size_t aSize) : iData(aData), iSize(aSize) {}
  bool Empty() const { return iPos >= iSize; }
  size_t Remaining() const { return iPos < iSize ? iSize - iPos : 0; }
  uint8_t U8() { return iPos < iSize ? iData[iPos++] : 0; }
  uint16_t U16() { return static_cast<uint16_t>(U8() | (U8() << 8)); }
  uint32_t U32() { return static_cast<uint32_t>(U16()) | (static_cast<uint32_t>(U16()) << 16); }
  uint64_t U64() { return static_cast<uint64_t>(U32()) | (static_cast<uint64_t>(U32()) << 32); }
  int16_t I16() { return static_cast<int16_t>(U16()); }
  int32_t I32() { return static_cast<int32_t>(U32()); }

 private:
  const uint8_t* iData;
  size_t iSize;
  size_t iPos = 0;
};

// Standard output goes into a pipe for the whole run, so that what the module prints
// after each step can be compared with what it should have printed.
class CStdoutTap {
 public:
  static CStdoutTap& Instance();
  // Everything printed since the last call.
  std::string Take();

 private:
  CStdoutTap();
  int iReadFd = -1;
};

// The store the feature offers under aInstance, found through the broker's log of
// requests; null when none was offered.
CSensorStore* FindStore(const host::CInterfaceBroker& aBroker, const std::string& aInstance);

// Renders a sample for failure messages.
std::string Describe(const host::ReceivedSample& aSample);

// What the store must do, worked out from the calls the target makes: ring buffers of
// one minute per sensor, the client lists newest first, the subscription count and the
// delivery gate, the replay of the first sensor, and which client the store knows as
// its connected peer (the one whose leaving it hears of).
class CStoreModel {
 public:
  static const size_t kCapacity = 300;  // one minute at the fixed 200 ms period
  static const int kSensors = 2;

  // aClients: the target's pool of clients; aOffered: whether the store's service is
  // attached to the broker.
  CStoreModel(size_t aClients, bool aOffered)
      : iExpected(aClients), iConfigurations(aClients, 0), iAttached(aClients, false), iOffered(aOffered) {}

  // A sample stored in sensor aHandle (0: type 1, 1: type 2).
  void Feed(int aHandle, uint64_t aTime, int16_t aValue0, int16_t aValue1);
  // What Subscribe must answer; kNotConnected for a client that is not connected.
  reflection::TErrCode Subscribe(size_t aClient, TiPositioningSensorType aType, txdr_bool aFlag);
  void Attached(size_t aClient);
  void Detached(size_t aClient);
  bool IsAttached(size_t aClient) const { return iAttached[aClient]; }
  bool GateOpen() const { return iSubscriptions == kSensors; }
  int Subscriptions() const { return iSubscriptions; }
  uint64_t Fed(int aHandle) const { return iFed[aHandle]; }
  // With POSITIONING_FUZZ_VERBOSE set, what the input did: for checking what a seed
  // reaches.
  void Report() const;

  // Compares the store, the clients' received samples and configurations with the
  // model, then forgets the samples compared. aFullRing compares every buffered record.
  void Check(const CSensorStore& aStore, std::vector<std::unique_ptr<host::CPositioningClient>>& aClients,
             bool aFullRing);

 private:
  std::deque<host::ReceivedSample> iRing[kSensors];
  uint64_t iFed[kSensors] = {0, 0};
  std::vector<size_t> iLists[kSensors];  // newest subscriber first
  int iSubscriptions = 0;
  std::vector<std::vector<host::ReceivedSample>> iExpected;
  std::vector<size_t> iConfigurations;
  std::vector<bool> iAttached;
  bool iOffered;
  int iStorePeer = -1;
  uint64_t iDelivered = 0;
  uint64_t iReplayed = 0;
  uint64_t iReplays = 0;
};

// The client steps both stream targets take, each checked against the model. Every
// attached client is connected, through the store's handler or its own end.
// Attaching an attached client, or detaching a detached one, does nothing.
void AttachClient(CStoreModel& aModel, host::CInterfaceBroker& aBroker, host::CPositioningClient& aClient,
                  size_t aIndex);
void SubscribeClient(CStoreModel& aModel, host::CPositioningClient& aClient, size_t aIndex,
                     TiPositioningSensorType aType, txdr_bool aFlag);
void DetachClient(CStoreModel& aModel, host::CInterfaceBroker& aBroker, host::CPositioningClient& aClient,
                  size_t aIndex);

}  // namespace fuzzing

#endif  // FUZZ_FUZZ_SUPPORT_H
