#include "FuzzSupport.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "SimulatedPeers.h"

namespace fuzzing {

namespace {

const TiPositioningSensorType kTypes[CStoreModel::kSensors] = {contract::kGyroscope, contract::kOdometer};

}  // namespace

void Fail(const char* aExpression, const char* aFile, int aLine, const std::string& aDetail) {
  fprintf(stderr, "\ninvariant broken: %s (%s:%d)\n", aExpression, aFile, aLine);
  if (!aDetail.empty()) fprintf(stderr, "  %s\n", aDetail.c_str());
  fflush(stderr);
  abort();
}

CStdoutTap& CStdoutTap::Instance() {
  static CStdoutTap tap;
  return tap;
}

CStdoutTap::CStdoutTap() {
  int fds[2];
  if (pipe2(fds, O_NONBLOCK) != 0) Fail("pipe2", __FILE__, __LINE__, "");
  // Room for everything one step can print; a full pipe drops output (and the
  // comparison then fails) instead of blocking the run.
  fcntl(fds[1], F_SETPIPE_SZ, 1 << 20);
  fflush(stdout);
  dup2(fds[1], STDOUT_FILENO);
  close(fds[1]);
  iReadFd = fds[0];
}

std::string CStdoutTap::Take() {
  fflush(stdout);
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(iReadFd, buffer, sizeof buffer);
    if (got <= 0) break;
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

CSensorStore* FindStore(const host::CInterfaceBroker& aBroker, const std::string& aInstance) {
  for (const host::BrokerCall& call : aBroker.Calls()) {
    if (call.kind == host::BrokerCall::Request && call.identifier == contract::kPositioningIdentity.identifier &&
        call.instance == aInstance && call.result != 0)
      return dynamic_cast<CSensorStore*>(call.handler);
  }
  return nullptr;
}

std::string Describe(const host::ReceivedSample& aSample) {
  std::string text = "type " + std::to_string(aSample.type) + " at " + std::to_string(aSample.timeStamp) + " [";
  for (size_t i = 0; i < aSample.values.size(); ++i) text += (i ? "," : "") + std::to_string(aSample.values[i]);
  return text + "]";
}

void CStoreModel::Report() const {
  if (getenv("POSITIONING_FUZZ_VERBOSE") == nullptr) return;
  fprintf(stderr, "fed %llu+%llu, subscriptions %d, delivered %llu, replays %llu (%llu samples)\n",
          static_cast<unsigned long long>(Fed(0)), static_cast<unsigned long long>(Fed(1)), Subscriptions(),
          static_cast<unsigned long long>(Delivered()), static_cast<unsigned long long>(Replays()),
          static_cast<unsigned long long>(Replayed()));
}

void CStoreModel::Check(const CSensorStore& aStore, std::vector<std::unique_ptr<host::CPositioningClient>>& aClients,
                        bool aFullRing) {
  for (const Delivery& delivery : TakeExpected()) iExpected[delivery.client].push_back(delivery.sample);
  FUZZ_CHECK(aStore.SensorCount() == kSensors);
  FUZZ_CHECK_MSG(aStore.SubscriptionCount() == Subscriptions(),
                 "store " + std::to_string(aStore.SubscriptionCount()) + ", model " + std::to_string(Subscriptions()));
  for (int h = 0; h < kSensors; ++h) {
    const CSensorStore::TSensorEntry& sensor = aStore.Sensor(h);
    FUZZ_CHECK(sensor.config.sensorType == kTypes[h]);
    // Client list: the same clients in the same order, newest first.
    FUZZ_CHECK_MSG(sensor.clients.iCount == static_cast<int32_t>(Subscribers(h).size()),
                   "sensor " + std::to_string(h) + " list " + std::to_string(sensor.clients.iCount) + ", model " +
                       std::to_string(Subscribers(h).size()));
    const CHKNode<CSensorStore::clientRecord>* node = sensor.clients.iHead;
    for (size_t k = 0; k < Subscribers(h).size(); ++k) {
      FUZZ_CHECK(node != nullptr);
      FUZZ_CHECK(node->iData.client == static_cast<IPositioningSensorMale*>(aClients[Subscribers(h)[k]].get()));
      FUZZ_CHECK(k == 0 ? node->iPrev == nullptr : node->iPrev != nullptr && node->iPrev->iNext == node);
      node = node->iNext;
    }
    FUZZ_CHECK(node == nullptr);

    // The ring buffer holds at most one minute, the newest record last written.
    const CRingBuffer<CSensorStore::TSensorData>* buffer = sensor.buffer;
    FUZZ_CHECK(buffer != nullptr);
    FUZZ_CHECK(buffer->iCapacity == static_cast<int32_t>(kCapacity));
    FUZZ_CHECK(buffer->iCount == static_cast<int32_t>(Ring(h).size()));
    FUZZ_CHECK(buffer->iCount <= buffer->iCapacity);
    FUZZ_CHECK(buffer->iWritePos >= 0 && buffer->iWritePos < buffer->iCapacity);
    FUZZ_CHECK(buffer->iWritePos == static_cast<int32_t>(Fed(h) % kCapacity));
    const size_t first = Ring(h).size() < kCapacity ? 0 : static_cast<size_t>(buffer->iWritePos);
    const size_t from = aFullRing ? 0 : (Ring(h).empty() ? 0 : Ring(h).size() - 1);
    for (size_t k = from; k < Ring(h).size(); ++k) {
      const CSensorStore::TSensorData& slot = buffer->iData[(first + k) % kCapacity];
      const host::ReceivedSample& want = Ring(h)[k];
      FUZZ_CHECK_MSG(slot.timeStamp == want.timeStamp && slot.size == 2 && slot.values[0] == want.values[0] &&
                         slot.values[1] == want.values[1],
                     "sensor " + std::to_string(h) + " record " + std::to_string(k) + " should be " + Describe(want) +
                         ", holds time " + std::to_string(slot.timeStamp));
    }
  }

  // Every client received exactly what the model delivered, in order.
  for (size_t c = 0; c < aClients.size(); ++c) {
    const std::vector<host::ReceivedSample>& got = aClients[c]->Samples();
    const std::vector<host::ReceivedSample>& want = iExpected[c];
    for (size_t k = 0; k < got.size() && k < want.size(); ++k) {
      FUZZ_CHECK_MSG(got[k] == want[k], "client " + std::to_string(c) + " sample " + std::to_string(k) + ": got " +
                                            Describe(got[k]) + ", expected " + Describe(want[k]));
    }
    FUZZ_CHECK_MSG(got.size() == want.size(), "client " + std::to_string(c) + " got " + std::to_string(got.size()) +
                                                  " samples, expected " + std::to_string(want.size()));
    aClients[c]->ClearSamples();
    iExpected[c].clear();

    // The configuration goes to the client the store connects to, once per connection.
    const auto& configurations = aClients[c]->Configurations();
    FUZZ_CHECK(configurations.size() == iConfigurations[c]);
    for (const auto& entries : configurations) {
      FUZZ_CHECK(entries.size() == 2);
      for (int h = 0; h < kSensors; ++h) {
        FUZZ_CHECK(entries[h].sensorType == kTypes[h] && entries[h].sensorParameter == 1 &&
                   entries[h].samplePeriod == 200 && entries[h].valueCount == 2);
      }
    }
  }
}

void AttachClient(CStoreModel& aModel, host::CInterfaceBroker& aBroker, host::CPositioningClient& aClient,
                  size_t aIndex) {
  if (aModel.IsAttached(aIndex)) return;
  FUZZ_CHECK(aClient.Attach(aBroker) == 1);
  aModel.Attached(aIndex);
  FUZZ_CHECK(aClient.IsConnected());
}

void SubscribeClient(CStoreModel& aModel, host::CPositioningClient& aClient, size_t aIndex,
                     TiPositioningSensorType aType, txdr_bool aFlag) {
  const reflection::TErrCode expected = aModel.Subscribe(aIndex, aType, aFlag);
  FUZZ_CHECK(aClient.Subscribe(aType, aFlag) == expected);
}

void DetachClient(CStoreModel& aModel, host::CInterfaceBroker& aBroker, host::CPositioningClient& aClient,
                  size_t aIndex) {
  if (!aModel.IsAttached(aIndex)) return;
  FUZZ_CHECK(aClient.Detach(aBroker) == 1);
  aModel.Detached(aIndex);
  FUZZ_CHECK(!aClient.IsConnected());
}

}  // namespace fuzzing
