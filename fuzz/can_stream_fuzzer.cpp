// Fuzzes the CAN feature with what the micro-host service and positioning clients can
// send, in any order: records with any field values, SyncTime answers, the service
// coming and going, clients connecting, subscribing with any type and flag, and
// leaving, and time passing (sync timer kicks). After every step the store, the
// clients' samples and the time offset are checked against a model.
//
// Input: a header (flags, start tick), then operations, each an opcode byte and its
// operands (little-endian).
#include <stddef.h>
#include <stdint.h>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "FuzzSupport.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "Positioning.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"

namespace {

using fuzzing::CInput;
using fuzzing::CStoreModel;

const size_t kClients = 4;

enum TOp {
  ERecord,         // u32 stamp, u16 pulses, i16 rate, u32 direction, u8 samples
  ESyncTime,       // u32 micro-controller time for the last kick
  EToggleService,  // the micro-host service leaves or comes back
  EAttachClient,   // u8 client
  ESubscribe,      // u8 client, u16 type, i32 flag
  EDetachClient,   // u8 client
  EAdvance,        // u16 milliseconds
  EStatus,         // u8: odd sends Identification, even Status
  EBurst,          // u8 count, u32 first stamp, u16 step, i16 rate: a stretch of records
  EOpCount
};

int16_t DirectionCode(uint32_t aDirection) { return aDirection == 0x21 ? 1 : aDirection == 0x25 ? 2 : 0; }

// The synchronised offset as the time base must keep it: local tick of the last kick
// minus the micro-controller's answer, taken only when the answer is older.
struct TClockModel {
  int64_t lastKick = 0;
  int64_t offset = 0;
  void Measured(uint32_t aTime) {
    const int64_t peer = static_cast<int64_t>(static_cast<uint64_t>(aTime));
    if (lastKick > peer) offset = lastKick - peer;
  }
};

class CCanRun {
 public:
  explicit CCanRun(CInput& aInput) : iInput(aInput) {}

  void Run() {
    const uint8_t flags = iInput.U8();
    const uint64_t start = static_cast<uint64_t>(iInput.U32()) | (static_cast<uint64_t>(iInput.U8()) << 32);
    host::ResetGlobals();
    host::CLogFacility& log = host::CLogFacility::Instance();
    log.SetDiscard(true);
    // A log control that wants no record must change nothing but the flag passed on.
    log.SetEnabledAnswer((flags & 1) ? 0 : 1);
    host::CSimulatedOsal::Instance().SetNow(start);
    if (flags & 2) iProperties.Set("diversity", "CAN");
    for (size_t c = 0; c < kClients; ++c) iClients.emplace_back(new host::CPositioningClient("1"));
    iEvents.SetOnFired([this](const host::Timer& aTimer) {
      if (aTimer.eventClass == contract::kSyncEventClass && aTimer.eventId == contract::kSyncEventId)
        iClock.lastKick = static_cast<int64_t>(host::CSimulatedOsal::Instance().Now());
    });
    if (flags & 4) AttachService();

    IFeatureModule2* feature = FeatureCreate2(iFeatureId, iBroker, iEvents, iProperties);
    FUZZ_CHECK(feature != nullptr);
    iClock.lastKick = static_cast<int64_t>(start);  // the source kicks once while it is created
    CSensorStore* store = fuzzing::FindStore(iBroker, "1");
    FUZZ_CHECK(store != nullptr);
    FUZZ_CHECK(store->GetBufferHandle(1) == 0 && store->GetBufferHandle(2) == 1);
    CStoreModel model(kClients, true);
    iModel = &model;
    FUZZ_CHECK(iService.IsConnected() == iServiceAttached);

    while (!iInput.Empty()) {
      Step(static_cast<TOp>(iInput.U8() % EOpCount));
      model.Check(*store, iClients, false);
    }
    model.Check(*store, iClients, true);
    model.Report();

    delete feature;
    // Nothing of the feature stays behind: no handler attached, no timer running.
    FUZZ_CHECK(iBroker.ModuleHandlerCount() == 0);
    FUZZ_CHECK(iEvents.Timers().empty());
    FUZZ_CHECK(!iService.IsConnected());
    // Clients outlive the feature: the store may still hold those it never heard leave.
    if (iServiceAttached) iService.Detach(iBroker);
    for (size_t c = 0; c < kClients; ++c) {
      if (model.IsAttached(c)) iClients[c]->Detach(iBroker);
    }
    iEvents.Reset();
  }

 private:
  void AttachService() {
    FUZZ_CHECK(iService.Attach(iBroker) == 1);
    iServiceAttached = true;
  }

  void SendRecord(const TPosSensorData& aRecord) {
    const reflection::TErrCode result = iService.SendSensorData(aRecord);
    if (!iServiceAttached) {
      FUZZ_CHECK(result == host::kNotConnected);
      return;
    }
    FUZZ_CHECK(result == 0);
    const uint64_t time = static_cast<uint64_t>(aRecord.TimeStamp) + static_cast<uint64_t>(iClock.offset);
    iModel->Feed(0, time, static_cast<int16_t>(aRecord.NrOfSamples), aRecord.AngularRate);
    iModel->Feed(1, time, static_cast<int16_t>(aRecord.DistancePuls), DirectionCode(aRecord.DrivingDirection));
  }

  size_t Client() { return iInput.U8() % kClients; }

  void Step(TOp aOp) {
    switch (aOp) {
      case ERecord: {
        TPosSensorData record;
        record.TimeStamp = iInput.U32();
        record.DistancePuls = iInput.U16();
        record.AngularRate = iInput.I16();
        record.DrivingDirection = iInput.U32();
        record.NrOfSamples = iInput.U8();
        SendRecord(record);
        break;
      }
      case ESyncTime: {
        const uint32_t time = iInput.U32();
        const reflection::TErrCode result = iService.SendSyncTime(time);
        FUZZ_CHECK(result == (iServiceAttached ? 0 : host::kNotConnected));
        if (iServiceAttached) iClock.Measured(time);
        break;
      }
      case EToggleService:
        if (iServiceAttached) {
          FUZZ_CHECK(iService.Detach(iBroker) == 1);
          iServiceAttached = false;
        } else {
          AttachService();
        }
        FUZZ_CHECK(iService.IsConnected() == iServiceAttached);
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
      case EStatus: {
        const reflection::TErrCode result =
            (iInput.U8() & 1) ? iService.SendIdentification() : iService.SendStatus(iInput.U32());
        FUZZ_CHECK(result == (iServiceAttached ? 0 : host::kNotConnected));
        break;
      }
      case EBurst: {
        const unsigned count = iInput.U8() + 1u;
        uint32_t stamp = iInput.U32();
        const uint16_t step = iInput.U16();
        const int16_t rate = iInput.I16();
        for (unsigned k = 0; k < count; ++k) {
          TPosSensorData record = {stamp, static_cast<uint16_t>(k), static_cast<int16_t>(rate + k),
                                   (k & 1) ? 0x21u : 0x25u, static_cast<uint8_t>(k)};
          SendRecord(record);
          stamp += step;
        }
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
  host::CMicroHostSensorService iService;
  bool iServiceAttached = false;
  std::vector<std::unique_ptr<host::CPositioningClient>> iClients;
  TClockModel iClock;
  CStoreModel* iModel = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  fuzzing::CStdoutTap::Instance();
  CInput input(aData, aSize);
  CCanRun run(input);
  run.Run();
  // The CAN source prints nothing.
  FUZZ_CHECK(fuzzing::CStdoutTap::Instance().Take().empty());
  return 0;
}
