// Fuzzes the handshake that connects interface pairs: Register and Unregister on every
// handler of a CAN or EXTERNAL feature, with peers of the right pair, of the wrong
// pair and null, called by the broker, by a peer or directly, in any order. A model of
// both ends says what every call must answer; after every step the answers, the
// framework's handshake records, the module's availability records, the peers'
// counts, the clients' configurations and the sync timer are checked against it.
//
// Input: a header (flags), then operations, each an opcode byte and its operands.
#include <stddef.h>
#include <stdint.h>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "FuzzSupport.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "Positioning.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"

namespace {

using fuzzing::CInput;

enum TPair { EMicroHost, EPositioning, EClockSync, EExternal };

enum TOp {
  EModuleRegister,    // u8 handler, u8 argument
  EModuleUnregister,  // u8 handler, u8 argument
  EPeerRegister,      // u8 peer, u8 argument
  EPeerUnregister,    // u8 peer, u8 argument
  EBrokerAttach,      // u8 peer
  EBrokerDetach,      // u8 peer
  EOpCount
};

// One end: a module handler or a simulated peer.
struct TEnd {
  IReflectionInterface* object;
  TPair pair;
  bool module;
  std::string instance;     // broker key, with the pair's identity
  unsigned implements = 0;  // pairs whose interface on this side the whole object implements
  int peer = -1;            // the end it is connected to, -1 when unconnected
  int available = 0;
  int unavailable = 0;
  bool attached = false;          // attached to the broker (peers only)
  std::string availableFunction;  // the module's availability records (module ends only)
  std::string unavailableFunction;
};

// One record the handshake must leave: the framework's Register/Unregister record, or
// a module availability trace.
struct TExpectedRecord {
  std::string function;
  const void* peer;  // framework records: the argument
  bool converted;    // framework records: whether the argument was of the right pair
};

class CHandshakeRun {
 public:
  explicit CHandshakeRun(CInput& aInput) : iInput(aInput) {}

  void Run() {
    const uint8_t flags = iInput.U8();
    const bool external = (flags & 1) != 0;
    host::ResetGlobals();
    host::CLogFacility::Instance().SetEnabledAnswer((flags & 2) ? 0 : 1);
    host::CSimulatedOsal::Instance().SetNow(100000);
    if (external) iProperties.Set("diversity", "EXTERNAL");
    const std::string storeInstance = external ? "2" : "1";

    IFeatureModule2* feature = FeatureCreate2(iFeatureId, iBroker, iEvents, iProperties);
    FUZZ_CHECK(feature != nullptr);
    // The module's handlers, as it gave them to the broker.
    for (const host::BrokerCall& call : iBroker.Calls()) {
      FUZZ_CHECK(call.result != 0);
      TEnd end;
      end.object = call.handler;
      end.module = true;
      end.instance = call.instance;
      if (call.identifier == contract::kMicroHostSensorIdentity.identifier) {
        end.pair = EMicroHost;
        end.availableFunction = "virtual void CCANSensor::OnInterfaceAvailable(IMicroHostSensorMale&)";
        end.unavailableFunction = "virtual void CCANSensor::OnInterfaceUnavailable(IMicroHostSensorMale&)";
      } else if (call.identifier == contract::kPositioningIdentity.identifier) {
        end.pair = EPositioning;
        end.availableFunction = "virtual void CSensorStore::OnInterfaceAvailable(IPositioningSensorMale&)";
        end.unavailableFunction = "virtual void CSensorStore::OnInterfaceUnavailable(IPositioningSensorMale&)";
      } else if (call.identifier == contract::kClockSyncIdentity.identifier) {
        end.pair = EClockSync;
        end.availableFunction = "virtual void CExternalSensor::OnInterfaceAvailable(IArdenClockSyncFemale&)";
        end.unavailableFunction = "virtual void CExternalSensor::OnInterfaceUnavailable(IArdenClockSyncFemale&)";
      } else {
        FUZZ_CHECK(call.identifier == contract::kExternalSensorIdentity.identifier);
        end.pair = EExternal;
        end.availableFunction = "virtual void CExternalSensor::OnInterfaceAvailable(IHalvikPositioningSensorFemale&)";
        end.unavailableFunction =
            "virtual void CExternalSensor::OnInterfaceUnavailable(IHalvikPositioningSensorFemale&)";
      }
      end.implements = 1u << end.pair;
      iEnds.push_back(end);
    }
    FUZZ_CHECK(iEnds.size() == (external ? 3u : 2u));
    if (external) {
      for (TEnd& end : iEnds) {
        if (end.pair != EPositioning) end.implements = (1u << EClockSync) | (1u << EExternal);
      }
    }
    iHandlers = iEnds.size();
    // Two peers of every pair, and a client under the other store's instance name.
    AddPeer(&iMicroHost[0], EMicroHost, "0");
    AddPeer(&iMicroHost[1], EMicroHost, "0");
    AddPeer(&iClients[0], EPositioning, storeInstance);
    AddPeer(&iClients[1], EPositioning, storeInstance);
    AddPeer(&iOtherClient, EPositioning, external ? "1" : "2");
    AddPeer(&iClockSync[0], EClockSync, "0");
    AddPeer(&iClockSync[1], EClockSync, "0");
    AddPeer(&iExternal[0], EExternal, "0");
    AddPeer(&iExternal[1], EExternal, "0");
    host::CLogFacility::Instance().ClearRecords();

    while (!iInput.Empty()) {
      Step(static_cast<TOp>(iInput.U8() % EOpCount));
      Check();
    }

    delete feature;
    FUZZ_CHECK(iBroker.ModuleHandlerCount() == 0);
    FUZZ_CHECK(iEvents.Timers().empty());
    // Peers outlive the feature; those still attached leave the broker now.
    for (size_t e = iHandlers; e < iEnds.size(); ++e) {
      if (iEnds[e].attached) iBroker.DetachPeer(iEnds[e].instance, Identity(iEnds[e].pair), iEnds[e].object);
    }
    iEvents.Reset();
  }

 private:
  static TInterfaceIdentity Identity(TPair aPair) {
    switch (aPair) {
      case EMicroHost:
        return contract::kMicroHostSensorIdentity;
      case EPositioning:
        return contract::kPositioningIdentity;
      case EClockSync:
        return contract::kClockSyncIdentity;
      case EExternal:
        break;
    }
    return contract::kExternalSensorIdentity;
  }

  void AddPeer(IReflectionInterface* aObject, TPair aPair, const std::string& aInstance) {
    TEnd end;
    end.object = aObject;
    end.pair = aPair;
    end.module = false;
    end.implements = 1u << aPair;
    end.instance = aInstance;
    iEnds.push_back(end);
  }

  // Whether aArgument converts to the peer type of aEnd. The cast looks at the whole
  // object: the external source's two handlers are one object that implements both of
  // its callback interfaces, so a peer of either pair accepts either handler.
  bool Accepts(int aEnd, int aArgument) const {
    return aArgument >= 0 && iEnds[aArgument].module != iEnds[aEnd].module &&
           (iEnds[aArgument].implements & (1u << iEnds[aEnd].pair)) != 0;
  }
  IReflectionInterface* Object(int aEnd) const { return aEnd < 0 ? nullptr : iEnds[aEnd].object; }

  // What aEnd->Register(aArgument) must do and answer.
  bool Register(int aEnd, int aArgument) {
    TEnd& end = iEnds[aEnd];
    if (end.peer >= 0) return false;
    if (end.module) iExpected.push_back({"Register", Object(aArgument), Accepts(aEnd, aArgument)});
    if (!Accepts(aEnd, aArgument)) return false;
    end.peer = aArgument;
    Register(aArgument, aEnd);
    ++end.available;
    if (end.module) Available(aEnd, aArgument);
    return true;
  }

  bool Unregister(int aEnd, int aArgument) {
    TEnd& end = iEnds[aEnd];
    if (end.peer < 0) return false;
    if (end.module) iExpected.push_back({"Unregister", Object(aArgument), Accepts(aEnd, aArgument)});
    if (aArgument < 0) return true;
    if (end.module && !Accepts(aEnd, aArgument)) return false;
    if (aArgument != end.peer) return false;
    end.peer = -1;
    ++end.unavailable;
    if (end.module) Unavailable(aEnd, aArgument);
    Unregister(aArgument, aEnd);
    return true;
  }

  void Available(int aEnd, int aPeer) {
    iExpected.push_back({iEnds[aEnd].availableFunction, nullptr, false});
    if (iEnds[aEnd].pair == EPositioning) ++iConfigurations[Object(aPeer)];
    if (iEnds[aEnd].pair == EClockSync) iSyncExists = true;
  }

  void Unavailable(int aEnd, int) {
    iExpected.push_back({iEnds[aEnd].unavailableFunction, nullptr, false});
    if (iEnds[aEnd].pair == EClockSync) iSyncExists = false;
  }

  bool SameKey(int aModule, int aPeer) const {
    return iEnds[aModule].pair == iEnds[aPeer].pair && iEnds[aModule].instance == iEnds[aPeer].instance;
  }

  int Argument() {
    const int pick = iInput.U8() % static_cast<int>(iEnds.size() + 1);
    return pick == static_cast<int>(iEnds.size()) ? -1 : pick;
  }
  int Handler() { return iInput.U8() % static_cast<int>(iHandlers); }
  int Peer() { return static_cast<int>(iHandlers) + iInput.U8() % static_cast<int>(iEnds.size() - iHandlers); }

  void Step(TOp aOp) {
    switch (aOp) {
      case EModuleRegister:
      case EPeerRegister: {
        const int end = aOp == EModuleRegister ? Handler() : Peer();
        const int argument = Argument();
        const bool expected = Register(end, argument);
        FUZZ_CHECK((Object(end)->Register(Object(argument)) != 0) == expected);
        break;
      }
      case EModuleUnregister:
      case EPeerUnregister: {
        const int end = aOp == EModuleUnregister ? Handler() : Peer();
        const int argument = Argument();
        const bool expected = Unregister(end, argument);
        FUZZ_CHECK((Object(end)->Unregister(Object(argument)) != 0) == expected);
        break;
      }
      case EBrokerAttach: {
        const int peer = Peer();
        if (iEnds[peer].attached) break;
        iEnds[peer].attached = true;
        // The broker connects the module's end, or lets the peer connect its own.
        for (size_t h = 0; h < iHandlers; ++h) {
          if (SameKey(static_cast<int>(h), peer) && !Register(static_cast<int>(h), peer))
            Register(peer, static_cast<int>(h));
        }
        FUZZ_CHECK(iBroker.AttachPeer(iEnds[peer].instance, Identity(iEnds[peer].pair), Object(peer)) == 1);
        break;
      }
      case EBrokerDetach: {
        const int peer = Peer();
        if (!iEnds[peer].attached) break;
        iEnds[peer].attached = false;
        for (size_t h = 0; h < iHandlers; ++h) {
          if (SameKey(static_cast<int>(h), peer) && !Unregister(static_cast<int>(h), peer))
            Unregister(peer, static_cast<int>(h));
        }
        FUZZ_CHECK(iBroker.DetachPeer(iEnds[peer].instance, Identity(iEnds[peer].pair), Object(peer)) == 1);
        break;
      }
      case EOpCount:
        break;
    }
  }

  // Compares the records, counts and timers with the model.
  void Check() {
    host::CLogFacility& log = host::CLogFacility::Instance();
    std::vector<TExpectedRecord> got;
    for (const host::LoggedRecord& record : log.Records()) {
      if (record.module == "logging::FeatureFw") {
        FUZZ_CHECK(record.category == "logging::categories::Info");
        FUZZ_CHECK(record.line == (record.function == "Register" ? 43 : 65));
        FUZZ_CHECK(record.pieces.size() == 6 && record.pieces[1].kind == host::PieceKind::Pointer &&
                   record.pieces[3].kind == host::PieceKind::Pointer);
        FUZZ_CHECK(record.Text() == "(" + record.pieces[1].Render() + " (" + record.pieces[3].Render() + "))");
        got.push_back({record.function, record.pieces[1].pointer, record.pieces[3].pointer != nullptr});
      } else if (record.category == "logging::categories::Interface" &&
                 record.function.find("::OnInterface") != std::string::npos) {
        got.push_back({record.function, nullptr, false});
      }
      FUZZ_CHECK(record.closed);
    }
    FUZZ_CHECK_MSG(got.size() == iExpected.size(),
                   std::to_string(got.size()) + " handshake records, expected " + std::to_string(iExpected.size()));
    for (size_t k = 0; k < got.size(); ++k) {
      FUZZ_CHECK_MSG(got[k].function == iExpected[k].function && got[k].peer == iExpected[k].peer &&
                         got[k].converted == iExpected[k].converted,
                     "record " + std::to_string(k) + ": " + got[k].function + ", expected " + iExpected[k].function);
    }
    log.ClearRecords();
    iExpected.clear();

    for (size_t e = iHandlers; e < iEnds.size(); ++e) {
      const TEnd& end = iEnds[e];
      int available = 0;
      int unavailable = 0;
      bool connected = false;
      switch (end.pair) {
        case EMicroHost: {
          auto* peer = static_cast<host::CMicroHostSensorService*>(end.object);
          available = peer->AvailableCount(), unavailable = peer->UnavailableCount(), connected = peer->IsConnected();
          break;
        }
        case EPositioning: {
          auto* peer = static_cast<host::CPositioningClient*>(end.object);
          available = peer->AvailableCount(), unavailable = peer->UnavailableCount(), connected = peer->IsConnected();
          FUZZ_CHECK(peer->Configurations().size() == iConfigurations[end.object]);
          break;
        }
        case EClockSync: {
          auto* peer = static_cast<host::CClockSyncService*>(end.object);
          available = peer->AvailableCount(), unavailable = peer->UnavailableCount(), connected = peer->IsConnected();
          break;
        }
        case EExternal: {
          auto* peer = static_cast<host::CExternalPositioningService*>(end.object);
          available = peer->AvailableCount(), unavailable = peer->UnavailableCount(), connected = peer->IsConnected();
          break;
        }
      }
      FUZZ_CHECK(available == end.available && unavailable == end.unavailable);
      FUZZ_CHECK(connected == (end.peer >= 0));
    }
    // The external source's sync timer runs exactly while its clock-sync end is connected.
    size_t timers = 1;  // the CAN source's time base kicks from construction on
    if (iHandlers == 3) timers = iSyncExists ? 1 : 0;
    FUZZ_CHECK(iEvents.Timers().size() == timers);
  }

  CInput& iInput;
  TFeatureId iFeatureId = "fuzz";
  host::CInterfaceBroker iBroker;
  host::CEventBroker iEvents;
  host::CFeatureProperties iProperties;
  host::CMicroHostSensorService iMicroHost[2];
  host::CPositioningClient iClients[2] = {host::CPositioningClient("1"), host::CPositioningClient("1")};
  host::CPositioningClient iOtherClient{"2"};
  host::CClockSyncService iClockSync[2];
  host::CExternalPositioningService iExternal[2];
  std::vector<TEnd> iEnds;
  size_t iHandlers = 0;
  std::vector<TExpectedRecord> iExpected;
  std::map<const void*, size_t> iConfigurations;
  bool iSyncExists = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  CInput input(aData, aSize);
  CHandshakeRun run(input);
  run.Run();
  return 0;
}
