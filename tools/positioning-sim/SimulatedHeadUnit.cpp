#include "SimulatedHeadUnit.h"

#include "ContractConstants.h"
#include "SimulatedOsal.h"
#include "TraceClock.h"

namespace sim {

namespace {

using contract::kClkSyncPin;
using contract::kCombinedRecord;
using contract::kSyncEventClass;
using contract::kSyncEventId;
// A type that matches no sensor: a subscription that only asks for the replay.
const TiPositioningSensorType kNoSensor = 0;

}  // namespace

// A positioning client that knows its place in the pool.
class CSimulatedHeadUnit::CClient : public host::CPositioningClient {
 public:
  CClient(const std::string& aInstance, const std::string& aName, size_t aIndex)
      : CPositioningClient(aInstance, aName), iIndex(aIndex) {}
  size_t iIndex;
};

CSimulatedHeadUnit::CSimulatedHeadUnit(const HeadUnitSetup& aSetup, CScheduler& aScheduler, const CClockModel& aClock,
                                       const ObserverList& aObservers)
    : iSetup(aSetup), iScheduler(aScheduler), iClock(aClock), iObservers(aObservers) {}

CSimulatedHeadUnit::~CSimulatedHeadUnit() {
  if (iHost.feature != nullptr) host::CModuleLoader::Destroy(iHost.feature);
  // The host's globals must not call back into a head unit that is gone.
  host::CPlatform::Instance().MainUnit().SetOnPin(nullptr);
  host::CSimulatedOsal::Instance().SetRealSleep(false);
}

bool CSimulatedHeadUnit::Load(std::string& aError) {
  if (iHost.loader.Load(iSetup.modulePath)) return true;
  aError = iHost.loader.Error();
  return false;
}

void CSimulatedHeadUnit::Start() {
  host::CSimulatedOsal& osal = host::CSimulatedOsal::Instance();
  osal.SetNow(LocalStart());
  osal.SetRealSleep(iSetup.realtime);
  host::CPlatform::Instance().MainUnit().SetPluggedIn(!iSetup.mainUnitUnplugged);
  if (iSetup.hasDiversity) iHost.properties.Set("diversity", iSetup.diversity);

  // Kicks: the CAN micro answers each sync timer event; the main unit's clock-sync
  // service answers each rising CLK_SYNC pulse.
  iHost.events.SetOnFired([this](const host::Timer& aTimer) {
    if (iSetup.kind == SourceKind::Can && aTimer.eventClass == kSyncEventClass && aTimer.eventId == kSyncEventId)
      Kick(host::CSimulatedOsal::Instance().Now());
  });
  iPinObserver = [this](const host::PinChange& aChange) {
    if (aChange.pin == kClkSyncPin && aChange.level == 1) Kick(aChange.tick);
  };
  host::CPlatform::Instance().MainUnit().SetOnPin(iPinObserver);

  // The services are up when the daemon creates the feature.
  iPeers.microHost.Attach(iHost.broker);
  iPeers.external.Attach(iHost.broker);
  iPeers.clockSync.Attach(iHost.broker);
  // The CAN source kicks once while it is created.
  if (iSetup.kind == SourceKind::Can) Notify([](IRunObserver& aObserver) { aObserver.OnKick(LocalStart()); });
  iHost.feature = iHost.loader.Create(iHost.featureId, iHost.broker, iHost.events, iHost.properties);
  if (iSetup.kind == SourceKind::Can) {
    Answer(LocalStart());
  } else {
    iScheduler.At(LocalStart(), [this] { iPeers.external.SendConfiguration({{kCombinedRecord, 1, 200, 4}}); });
  }
}

void CSimulatedHeadUnit::Stop() {
  host::CModuleLoader::Destroy(iHost.feature);
  iHost.feature = nullptr;
  for (auto& client : iPeers.clients) client->Detach(iHost.broker);
  iPeers.microHost.Detach(iHost.broker);
  iPeers.external.Detach(iHost.broker);
  iPeers.clockSync.Detach(iHost.broker);
}

void CSimulatedHeadUnit::Kick(SimTime aTime) {
  Notify([aTime](IRunObserver& aObserver) { aObserver.OnKick(aTime); });
  Answer(aTime);
}

// The peer stamps the kick when it handles it, after the latency.
void CSimulatedHeadUnit::Answer(SimTime aTime) {
  const SimTime answerAt = aTime + iSetup.syncLatency;
  iScheduler.At(answerAt, [this, answerAt] {
    // The answer is the service's 32-bit clock: it wraps as the stamps do.
    const uint32_t peerTime = static_cast<uint32_t>(WireStamp(iClock.PeerAt(answerAt)));
    bool answered;
    if (iSetup.kind == SourceKind::Can) {
      answered = iKickLosses == 0 && iPeers.microHost.SendSyncTime(peerTime) == 0;
    } else {
      answered = iPeers.clockSync.SendTimeStampReport(peerTime) == 0;
    }
    if (answered) Notify([peerTime](IRunObserver& aObserver) { aObserver.OnSyncAnswered(peerTime); });
  });
}

size_t CSimulatedHeadUnit::AddClient(const std::string& aName) {
  const std::string instance = iSetup.kind == SourceKind::External ? "2" : "1";
  iPeers.clients.emplace_back(new CClient(instance, aName, iPeers.clients.size()));
  CClient& client = *iPeers.clients.back();
  client.SetOnSample([this, &client](const host::ReceivedSample& aSample) { OnSample(client, aSample); });
  return client.iIndex;
}

void CSimulatedHeadUnit::StartClient(size_t aClient) {
  CClient& client = *iPeers.clients[aClient];
  client.Attach(iHost.broker);
  Notify([aClient](IRunObserver& aObserver) { aObserver.OnClientAttached(aClient); });
  iDelivery.subscribing = true;
  for (TiPositioningSensorType type : {contract::kGyroscope, contract::kOdometer}) {
    const txdr_bool flag = type == contract::kOdometer ? 1 : 0;
    Notify([aClient](IRunObserver& aObserver) { aObserver.OnSubscribing(aClient); });
    const reflection::TErrCode result = client.Subscribe(type, flag);
    Notify([&](IRunObserver& aObserver) { aObserver.OnSubscribed(aClient, type, flag, result); });
  }
  iDelivery.subscribing = false;
}

void CSimulatedHeadUnit::DetachClient(size_t aClient) {
  iPeers.clients[aClient]->Detach(iHost.broker);
  Notify([aClient](IRunObserver& aObserver) { aObserver.OnClientDetached(aClient); });
}

void CSimulatedHeadUnit::ServiceLeaves() {
  if (iSetup.kind == SourceKind::Can) {
    iPeers.microHost.Detach(iHost.broker);
  } else {
    iPeers.external.Detach(iHost.broker);
  }
}

void CSimulatedHeadUnit::ServiceReturns() {
  if (iSetup.kind == SourceKind::Can) {
    iPeers.microHost.Attach(iHost.broker);
  } else {
    iPeers.external.Attach(iHost.broker);
    iPeers.external.SendConfiguration({{kCombinedRecord, 1, 200, 4}});
  }
}

void CSimulatedHeadUnit::ClockSyncLeaves() {
  iPeers.clockSync.Detach(iHost.broker);
  Notify([](IRunObserver& aObserver) { aObserver.OnClockSyncServiceLeft(); });
}

void CSimulatedHeadUnit::ClockSyncReturns() { iPeers.clockSync.Attach(iHost.broker); }

void CSimulatedHeadUnit::KickAnswersStop() { ++iKickLosses; }

void CSimulatedHeadUnit::KickAnswersResume() { --iKickLosses; }

void CSimulatedHeadUnit::ShiftStamps(int64_t aDelta) { iStampShift += aDelta; }

void CSimulatedHeadUnit::SendRecord(const DriveRecord& aRecord, SimTime aDue) {
  const bool can = iSetup.kind == SourceKind::Can;
  const bool present = can ? iPeers.microHost.IsConnected() : iPeers.external.IsConnected();
  if (!present) {
    Notify([](IRunObserver& aObserver) { aObserver.OnRecordNotSent(); });
    return;
  }
  SentRecord sent;
  sent.record = aRecord;
  sent.record.stamp = WireStamp(static_cast<int64_t>(aRecord.stamp) + iStampShift);
  sent.record.line = 0;
  sent.due = aDue;
  sent.now = host::CSimulatedOsal::Instance().Now();
  iDelivery.sending = true;
  iDelivery.sentStamp = sent.record.stamp;
  iDelivery.due = aDue;
  const int64_t* field = sent.record.field;
  if (can) {
    TPosSensorData data = {static_cast<uint32_t>(sent.record.stamp), static_cast<uint16_t>(field[0]),
                           static_cast<int16_t>(field[1]), static_cast<uint32_t>(field[2]),
                           static_cast<uint8_t>(field[3])};
    iPeers.microHost.SendSensorData(data);
  } else {
    iPeers.external.SendSensorData(kCombinedRecord, sent.record.stamp,
                                   {static_cast<int16_t>(field[0]), static_cast<int16_t>(field[1]),
                                    static_cast<int16_t>(field[2]), static_cast<int16_t>(field[3])});
  }
  iDelivery.sending = false;
  Notify([&sent](IRunObserver& aObserver) { aObserver.OnRecordSent(sent); });
}

void CSimulatedHeadUnit::OnSample(CClient& aClient, const host::ReceivedSample& aSample) {
  const DeliveredSample delivered = {aClient.iIndex,    aClient.Name(),      aSample,      iDelivery.subscribing,
                                     iDelivery.sending, iDelivery.sentStamp, iDelivery.due};
  Notify([&delivered](IRunObserver& aObserver) { aObserver.OnSample(delivered); });
  // The observers have what they need: the client keeping every sample would grow
  // with the drive.
  aClient.ClearSamples();
}

int CSimulatedHeadUnit::ReplayToLastClient() {
  CClient* caller = nullptr;
  for (auto& client : iPeers.clients) {
    if (client->IsConnected()) caller = client.get();
  }
  if (caller == nullptr) return -1;
  const size_t index = caller->iIndex;
  iDelivery.subscribing = true;
  Notify([index](IRunObserver& aObserver) { aObserver.OnSubscribing(index); });
  const reflection::TErrCode result = caller->Subscribe(kNoSensor, 1);
  Notify([&](IRunObserver& aObserver) { aObserver.OnSubscribed(index, kNoSensor, 1, result); });
  iDelivery.subscribing = false;
  return static_cast<int>(index);
}

void CSimulatedHeadUnit::TrimHostHistory() {
  host::CMainUnitIO& mainUnit = host::CPlatform::Instance().MainUnit();
  mainUnit.Reset();
  mainUnit.SetPluggedIn(!iSetup.mainUnitUnplugged);
  mainUnit.SetOnPin(iPinObserver);
  host::CSimulatedOsal& osal = host::CSimulatedOsal::Instance();
  const SimTime now = osal.Now();
  osal.Reset();
  osal.SetNow(now);
  osal.SetRealSleep(iSetup.realtime);
}

}  // namespace sim
