// Fuzzes the EXTERNAL feature with what the external positioning-sensor service, the
// clock-sync service and positioning clients can send, in any order: Configuration of
// any size up to 255, SensorData with any type, value count, values and time stamp,
// TimeStampReport, both services coming and going (and calling on after they left),
// clients connecting, subscribing and leaving, time passing. After every step the
// store, the clients' samples, the time offset, the service's subscriptions and the
// time-stamp supervision messages are checked against a model.
//
// Input: a header (flags, start tick), then operations, each an opcode byte and its
// operands (little-endian).
#include <stddef.h>
#include <stdint.h>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "ExternalSensor.h"
#include "FeatureProperties.h"
#include "FuzzSupport.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "Platform.h"
#include "Positioning.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"

namespace {

using fuzzing::CInput;
using fuzzing::CStoreModel;

const size_t kClients = 4;
const TiPositioningSensorType kCombined = contract::kCombinedRecord;

enum TOp {
  ESensorData,       // u8 mode, [u16 type], time stamp, u8 size, size x i16
  ETimeStampReport,  // u8 direct, u32 time
  EConfiguration,    // u8 direct, u8 size, size x (u16 type, u16 parameter, u16 period, u8 count)
  EToggleClockSync,
  EToggleSensorService,
  EAttachClient,  // u8 client
  ESubscribe,     // u8 client, u16 type, i32 flag
  EDetachClient,  // u8 client
  EAdvance,       // u16 milliseconds
  EBurst,         // u8 count, u32 first stamp, u16 step, i16 base value
  ETogglePlug,    // the main unit is unplugged or plugged in again
  EOpCount
};

class CExternalRun {
 public:
  explicit CExternalRun(CInput& aInput) : iInput(aInput) {}

  void Run() {
    const uint8_t flags = iInput.U8();
    const uint64_t start = static_cast<uint64_t>(iInput.U32()) | (static_cast<uint64_t>(iInput.U8()) << 32);
    host::ResetGlobals();
    host::CLogFacility& log = host::CLogFacility::Instance();
    log.SetDiscard(true);
    log.SetEnabledAnswer((flags & 1) ? 0 : 1);
    host::CSimulatedOsal::Instance().SetNow(start);
    iProperties.Set("diversity", "EXTERNAL");
    for (size_t c = 0; c < kClients; ++c) iClients.emplace_back(new host::CPositioningClient("2"));
    iEvents.SetOnFired([this](const host::Timer& aTimer) {
      if (aTimer.eventClass == contract::kSyncEventClass && aTimer.eventId == contract::kSyncEventId) {
        FUZZ_CHECK(iSyncExists);
        iLastKick = static_cast<int64_t>(host::CSimulatedOsal::Instance().Now());
      }
    });
    if (flags & 2) ToggleClockSync();
    if (flags & 4) ToggleSensorService();

    IFeatureModule2* feature = FeatureCreate2(iFeatureId, iBroker, iEvents, iProperties);
    FUZZ_CHECK(feature != nullptr);
    if (iClockSyncAttached) ClockSyncArrived();
    CSensorStore* store = fuzzing::FindStore(iBroker, "2");
    FUZZ_CHECK(store != nullptr);
    iSensor = FindSensor();
    FUZZ_CHECK(iSensor != nullptr);
    CStoreModel model(kClients, true);
    iModel = &model;
    CheckServices();
    FUZZ_CHECK(fuzzing::CStdoutTap::Instance().Take().empty());

    while (!iInput.Empty()) {
      Step(static_cast<TOp>(iInput.U8() % EOpCount));
      model.Check(*store, iClients, false);
      CheckServices();
      const std::string printed = fuzzing::CStdoutTap::Instance().Take();
      FUZZ_CHECK_MSG(printed == iExpectedPrint, "printed \"" + printed + "\", expected \"" + iExpectedPrint + "\"");
      iExpectedPrint.clear();
    }
    model.Check(*store, iClients, true);
    model.Report();

    delete feature;
    FUZZ_CHECK(iBroker.ModuleHandlerCount() == 0);
    FUZZ_CHECK(iEvents.Timers().empty());
    FUZZ_CHECK(!iExternal.IsConnected() && !iClockSync.IsConnected());
    if (iExternalAttached) iExternal.Detach(iBroker);
    if (iClockSyncAttached) iClockSync.Detach(iBroker);
    for (size_t c = 0; c < kClients; ++c) {
      if (model.IsAttached(c)) iClients[c]->Detach(iBroker);
    }
    iEvents.Reset();
  }

 private:
  // The module's end of the external service, as the broker was given it.
  IHalvikPositioningSensorMale* FindSensor() const {
    for (const host::BrokerCall& call : iBroker.Calls()) {
      if (call.kind == host::BrokerCall::Request && call.identifier == contract::kExternalSensorIdentity.identifier)
        return dynamic_cast<IHalvikPositioningSensorMale*>(call.handler);
    }
    return nullptr;
  }

  // The module's end of the clock-sync service.
  IArdenClockSyncMale* FindClockSyncEnd() const {
    for (const host::BrokerCall& call : iBroker.Calls()) {
      if (call.kind == host::BrokerCall::Request && call.identifier == contract::kClockSyncIdentity.identifier)
        return dynamic_cast<IArdenClockSyncMale*>(call.handler);
    }
    return nullptr;
  }

  void CheckServices() {
    FUZZ_CHECK(iExternal.IsConnected() == iExternalAttached);
    FUZZ_CHECK(iClockSync.IsConnected() == iClockSyncAttached);
    FUZZ_CHECK(iExternal.Subscriptions().size() == iSubscriptions);
    for (const host::ExternalSubscription& subscription : iExternal.Subscriptions()) {
      FUZZ_CHECK(subscription.type == kCombined && subscription.flag == 1);
    }
    // A synchronised-time object, and with it the sync timer, exists exactly while the
    // clock-sync service is there.
    FUZZ_CHECK(iEvents.Timers().size() == (iSyncExists ? 1u : 0u));
  }

  // A new synchronised-time object is made and kicked at once.
  void ClockSyncArrived() {
    iSyncExists = true;
    iOffset = 0;
    iLastKick = static_cast<int64_t>(host::CSimulatedOsal::Instance().Now());
  }

  void ToggleClockSync() {
    if (iClockSyncAttached) {
      FUZZ_CHECK(iClockSync.Detach(iBroker) == 1);
      iClockSyncAttached = false;
      iSyncExists = false;
      iOffset = 0;
      return;
    }
    FUZZ_CHECK(iClockSync.Attach(iBroker) == 1);
    iClockSyncAttached = true;
    if (iSensor != nullptr || FindClockSyncEnd() != nullptr) ClockSyncArrived();
  }

  void ToggleSensorService() {
    if (iExternalAttached) {
      FUZZ_CHECK(iExternal.Detach(iBroker) == 1);
    } else {
      FUZZ_CHECK(iExternal.Attach(iBroker) == 1);
    }
    iExternalAttached = !iExternalAttached;
  }

  void Measured(uint32_t aTime) {
    if (!iSyncExists) return;
    const int64_t peer = static_cast<int64_t>(static_cast<uint64_t>(aTime));
    if (iLastKick > peer) iOffset = iLastKick - peer;
  }

  // Sends one record, through the service or straight to the module's end (a service
  // that calls on after it left), and works out what must follow.
  void SendData(bool aDirect, TiPositioningSensorType aType, uint64_t aStamp, std::vector<int16_t>& aValues) {
    TiPositioningSensorData data;
    data.timeStamp = aStamp;
    data.values.size = static_cast<uint8_t>(aValues.size());
    data.values.data = aValues.empty() ? nullptr : aValues.data();
    const bool reaches = aDirect || iExternalAttached;
    const reflection::TErrCode result =
        aDirect ? iSensor->SensorData(iExternal, aType, data) : iExternal.SendRawSensorData(aType, data);
    FUZZ_CHECK(result == (reaches ? 0 : host::kNotConnected));
    if (!reaches || aType != kCombined) return;
    if (iLastStamp != 0) {
      const uint64_t step = aStamp - iLastStamp;
      char line[128];
      if ((step >> 32) != 0 || static_cast<uint32_t>(step) > 250) {
        snprintf(line, sizeof line, "ERROR: SensorData timestamp difference more than 250 ms, %d, %d\n",
                 static_cast<int>(static_cast<uint32_t>(aStamp)), static_cast<int>(static_cast<uint32_t>(iLastStamp)));
        iExpectedPrint += line;
      }
      if (static_cast<int64_t>(step) < 0) {
        snprintf(line, sizeof line, "ERROR: SensorData timestamp %d is going back\n",
                 static_cast<int>(static_cast<uint32_t>(aStamp)));
        iExpectedPrint += line;
      }
    }
    iLastStamp = aStamp;
    // An empty record only moves the reference; one with fewer than four values is
    // outside the service's contract and dropped.
    if (aValues.size() < 4) return;
    const uint64_t time = aStamp + static_cast<uint64_t>(iSyncExists ? iOffset : 0);
    iModel->Feed(0, time, aValues[0], aValues[1]);
    iModel->Feed(1, time, aValues[2], aValues[3]);
  }

  size_t Client() { return iInput.U8() % kClients; }

  void Step(TOp aOp) {
    switch (aOp) {
      case ESensorData: {
        const uint8_t mode = iInput.U8();
        const TiPositioningSensorType type = (mode & 2) ? kCombined : iInput.U16();
        uint64_t stamp;
        switch ((mode >> 2) & 3) {
          case 0:
            stamp = iLastStamp + static_cast<uint64_t>(static_cast<int64_t>(iInput.I16()));
            break;
          case 1:
            stamp = iInput.U64();
            break;
          default:
            stamp = iInput.U32();
            break;
        }
        std::vector<int16_t> values(iInput.U8());
        for (int16_t& value : values) value = iInput.I16();
        SendData((mode & 1) != 0, type, stamp, values);
        break;
      }
      case ETimeStampReport: {
        const bool direct = iInput.U8() & 1;
        const uint32_t time = iInput.U32();
        IArdenClockSyncMale* end = FindClockSyncEnd();
        FUZZ_CHECK(end != nullptr);
        const bool reaches = direct || iClockSyncAttached;
        const reflection::TErrCode result =
            direct ? end->TimeStampReport(iClockSync, time) : iClockSync.SendTimeStampReport(time);
        FUZZ_CHECK(result == (reaches ? 0 : host::kNotConnected));
        if (reaches) Measured(time);
        break;
      }
      case EConfiguration: {
        const bool direct = iInput.U8() & 1;
        std::vector<TiPositioningSensorEntry> entries(iInput.U8());
        for (TiPositioningSensorEntry& entry : entries) {
          entry.sensorType = iInput.U16();
          entry.sensorParameter = iInput.U16();
          entry.samplePeriod = iInput.U16();
          entry.valueCount = iInput.U8();
        }
        reflection::TErrCode result;
        if (direct) {
          TiPositioningSensorConfiguration config;
          config.size = static_cast<uint8_t>(entries.size());
          config.data = entries.empty() ? nullptr : entries.data();
          result = iSensor->Configuration(iExternal, config);
        } else {
          result = iExternal.SendConfiguration(entries);
        }
        const bool reaches = direct || iExternalAttached;
        FUZZ_CHECK(result == (reaches ? 0 : host::kNotConnected));
        // Subscribes only while the service is there, whatever it announced.
        if (reaches && iExternalAttached) ++iSubscriptions;
        break;
      }
      case EToggleClockSync:
        ToggleClockSync();
        break;
      case EToggleSensorService:
        ToggleSensorService();
        break;
      case EAttachClient: {
        const size_t c = Client();
        fuzzing::AttachClient(*iModel, iBroker, *iClients[c], c);
        break;
      }
      case ESubscribe: {
        const size_t c = Client();
        const TiPositioningSensorType type = iInput.U16();
        const txdr_bool flag = iInput.I32();
        fuzzing::SubscribeClient(*iModel, *iClients[c], c, type, flag);
        break;
      }
      case EDetachClient: {
        const size_t c = Client();
        fuzzing::DetachClient(*iModel, iBroker, *iClients[c], c);
        break;
      }
      case EAdvance:
        iEvents.Advance(iInput.U16());
        break;
      case EBurst: {
        const unsigned count = iInput.U8() + 1u;
        uint64_t stamp = iInput.U32();
        const uint16_t step = iInput.U16();
        const int16_t base = iInput.I16();
        for (unsigned k = 0; k < count; ++k) {
          std::vector<int16_t> values = {static_cast<int16_t>(base + k), static_cast<int16_t>(-base),
                                         static_cast<int16_t>(k), static_cast<int16_t>(k & 3)};
          SendData(false, kCombined, stamp, values);
          stamp += step;
        }
        break;
      }
      case ETogglePlug: {
        host::CMainUnitIO& mainUnit = host::CPlatform::Instance().MainUnit();
        iPlugged = !iPlugged;
        mainUnit.SetPluggedIn(iPlugged);
        break;
      }
      case EOpCount:
        break;
    }
  }

  CInput& iInput;
  TFeatureId iFeatureId = "fuzz";
  host::CInterfaceBroker iBroker;
  host::CEventBroker iEvents;
  host::CFeatureProperties iProperties;
  host::CExternalPositioningService iExternal;
  host::CClockSyncService iClockSync;
  bool iExternalAttached = false;
  bool iClockSyncAttached = false;
  bool iPlugged = true;
  std::vector<std::unique_ptr<host::CPositioningClient>> iClients;
  IHalvikPositioningSensorMale* iSensor = nullptr;
  CStoreModel* iModel = nullptr;
  // Time base and supervision as the module must keep them.
  bool iSyncExists = false;
  int64_t iLastKick = 0;
  int64_t iOffset = 0;
  uint64_t iLastStamp = 0;
  size_t iSubscriptions = 0;
  std::string iExpectedPrint;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  fuzzing::CStdoutTap::Instance().Take();
  CInput input(aData, aSize);
  CExternalRun run(input);
  run.Run();
  return 0;
}
