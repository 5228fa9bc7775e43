// Shared by the fuzz targets: reading the input, failing loudly on a broken
// invariant, reading what the module prints, and a reference model of the sample
// store against which every step of a target is checked.
#ifndef FUZZ_FUZZ_SUPPORT_H
#define FUZZ_FUZZ_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "InterfaceBroker.h"
#include "SimulatedPeers.h"
#include "StoreModel.h"

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

// The store's expected behaviour (host::CStoreModel, shared with the simulator's soak
// check), with what a target checks besides: the configuration each client must have
// received, and the module's store itself compared with the model.
class CStoreModel : public host::CStoreModel {
 public:
  // aClients: the target's pool of clients; aOffered: whether the store's service is
  // attached to the broker.
  CStoreModel(size_t aClients, bool aOffered)
      : host::CStoreModel(aClients, aOffered), iExpected(aClients), iConfigurations(aClients, 0) {}

  // A client connected; the one the store connects gets its configuration.
  void Attached(size_t aClient) {
    if (host::CStoreModel::Attached(aClient)) ++iConfigurations[aClient];
  }
  // With POSITIONING_FUZZ_VERBOSE set, what the input did: for checking what a seed
  // reaches.
  void Report() const;

  // Compares the store, the clients' received samples and configurations with the
  // model, then forgets the samples compared. aFullRing compares every buffered record.
  void Check(const CSensorStore& aStore, std::vector<std::unique_ptr<host::CPositioningClient>>& aClients,
             bool aFullRing);

 private:
  std::vector<std::vector<host::ReceivedSample>> iExpected;
  std::vector<size_t> iConfigurations;
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
