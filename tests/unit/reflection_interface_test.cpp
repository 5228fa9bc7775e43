// The adapter templates that connect one end of a service interface pair: the
// Register/Unregister handshake between two adapters and between an adapter and a
// simulated peer, its records, refusals (second register, wrong pair, null, foreign
// peer), the call order on connection and disconnection, the independence of the two
// handler parts of the external source, and the virtual-table layout of a handler.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "ContractConstants.h"
#include "ExternalSensor.h"
#include "IArdenClockSync.h"
#include "IHalvikPositioningSensor.h"
#include "IMicroHostSensor.h"
#include "IPositioningSensor.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "MemberSlot.h"
#include "PeerEnd.h"
#include "ReflectionInterface.h"
#include "SimulatedPeers.h"
#include "TestHost.h"

namespace {

using testing_host::HostTest;

// ---------------------------------------------------------------------------------
// Test ends

// Shared record of what the ends under test were called with, in call order.
class CJournal {
 public:
  void Name(const void* aEnd, const std::string& aName) { iNames[aEnd] = aName; }
  std::string NameOf(const void* aEnd) const {
    if (aEnd == nullptr) return "null";
    auto it = iNames.find(aEnd);
    return it != iNames.end() ? it->second : "?";
  }
  void Add(const std::string& aEntry) { iEntries.push_back(aEntry); }
  const std::vector<std::string>& Entries() const { return iEntries; }
  void Clear() { iEntries.clear(); }

 private:
  std::map<const void*, std::string> iNames;
  std::vector<std::string> iEntries;
};

// An adapter end that journals its handshake calls, their answers and the
// availability reports it receives.
template <class Own>
class CTestEnd : public CReflectionInterfaceHandler<Own> {
 public:
  typedef typename Own::TPartner Peer;
  typedef CReflectionInterfaceHandler<Own> Base;

  CTestEnd(const std::string& aName, CJournal& aJournal) : iName(aName), iJournal(aJournal) {
    iJournal.Name(Handle(), aName);
  }

  IReflectionInterface* Handle() { return static_cast<IReflectionInterface*>(this); }
  IReflectionInterface* ConnectedPeer() const { return this->iPeer; }

  TBool Register(IReflectionInterface* aPeer) override {
    iJournal.Add(iName + " Register(" + iJournal.NameOf(aPeer) + ")");
    const TBool result = Base::Register(aPeer);
    iJournal.Add(iName + " Register -> " + std::to_string(result));
    return result;
  }
  TBool Unregister(IReflectionInterface* aPeer) override {
    iJournal.Add(iName + " Unregister(" + iJournal.NameOf(aPeer) + ")");
    const TBool result = Base::Unregister(aPeer);
    iJournal.Add(iName + " Unregister -> " + std::to_string(result));
    return result;
  }
  void OnInterfaceAvailable(Peer& aPeer) override {
    iJournal.Add(iName + " available");
    ++iAvailable;
    iLastAvailable = &aPeer;
  }
  void OnInterfaceUnavailable(Peer& aPeer) override {
    iJournal.Add(iName + " unavailable");
    ++iUnavailable;
    iLastUnavailable = &aPeer;
  }

  int iAvailable = 0;
  int iUnavailable = 0;
  Peer* iLastAvailable = nullptr;
  Peer* iLastUnavailable = nullptr;

 private:
  std::string iName;
  CJournal& iJournal;
};

// The micro-host service's callback end, as the CAN source implements it.
class CMicroHostModuleEnd : public CTestEnd<IMicroHostSensorFemale> {
 public:
  using CTestEnd::CTestEnd;
  reflection::TErrCode SyncTime(IMicroHostSensorMale&, txdr_uint32) override { return 0; }
  reflection::TErrCode Identification(IMicroHostSensorMale&, TIdentificationList&) override { return 0; }
  reflection::TErrCode Status(IMicroHostSensorMale&, TStatus) override { return 0; }
  reflection::TErrCode SensorData(IMicroHostSensorMale&, TPosSensorData&) override { return 0; }
};

// The micro-host service end, written with the same adapters.
class CMicroHostServiceEnd : public CTestEnd<IMicroHostSensorMale> {
 public:
  using CTestEnd::CTestEnd;
};

// A simulated micro-host service (the host's peer end, which writes no records) that
// journals its handshake.
class CJournalledService : public host::CPeerEnd<IMicroHostSensorMale> {
 public:
  CJournalledService(const std::string& aName, CJournal& aJournal)
      : CPeerEnd(contract::kServiceInstance, contract::kMicroHostSensorIdentity), iName(aName), iJournal(aJournal) {
    iJournal.Name(Handle(), aName);
  }
  IReflectionInterface* Handle() { return static_cast<IReflectionInterface*>(this); }
  IMicroHostSensorMale* AsPeer() { return static_cast<IMicroHostSensorMale*>(this); }

  TBool Register(IReflectionInterface* aPeer) override {
    iJournal.Add(iName + " Register(" + iJournal.NameOf(aPeer) + ")");
    const TBool result = CPeerEnd::Register(aPeer);
    iJournal.Add(iName + " Register -> " + std::to_string(result));
    return result;
  }
  TBool Unregister(IReflectionInterface* aPeer) override {
    iJournal.Add(iName + " Unregister(" + iJournal.NameOf(aPeer) + ")");
    const TBool result = CPeerEnd::Unregister(aPeer);
    iJournal.Add(iName + " Unregister -> " + std::to_string(result));
    return result;
  }

 protected:
  void OnAvailable(IMicroHostSensorFemale&) override { iJournal.Add(iName + " available"); }
  void OnUnavailable(IMicroHostSensorFemale&) override { iJournal.Add(iName + " unavailable"); }

 private:
  std::string iName;
  CJournal& iJournal;
};

// ---------------------------------------------------------------------------------
// Record helpers

std::vector<host::LoggedRecord> FrameworkRecords() {
  return host::CLogFacility::Instance().RecordsOf("logging::FeatureFw");
}

// Expects the handshake record form: "(" peer " (" converted ")" ")" and the line end.
void ExpectHandshakeRecord(const host::LoggedRecord& aRecord, const char* aFunction, int aLine, const void* aPeer,
                           const void* aConverted) {
  EXPECT_EQ("logging::categories::Info", aRecord.category);
  EXPECT_EQ("logging::FeatureFw", aRecord.module);
  EXPECT_EQ(aFunction, aRecord.function);
  EXPECT_EQ("include/ReflectionInterface.h", aRecord.file);
  EXPECT_EQ(aLine, aRecord.line);
  EXPECT_EQ("\n", aRecord.lineEnd);
  EXPECT_TRUE(aRecord.closed);
  ASSERT_EQ(6u, aRecord.pieces.size());
  EXPECT_EQ(host::PieceKind::Text, aRecord.pieces[0].kind);
  EXPECT_EQ("(", aRecord.pieces[0].text);
  EXPECT_EQ(host::PieceKind::Pointer, aRecord.pieces[1].kind);
  EXPECT_EQ(aPeer, aRecord.pieces[1].pointer);
  EXPECT_EQ(host::PieceKind::Text, aRecord.pieces[2].kind);
  EXPECT_EQ(" (", aRecord.pieces[2].text);
  EXPECT_EQ(host::PieceKind::Pointer, aRecord.pieces[3].kind);
  EXPECT_EQ(aConverted, aRecord.pieces[3].pointer);
  EXPECT_EQ(host::PieceKind::Text, aRecord.pieces[4].kind);
  EXPECT_EQ(")", aRecord.pieces[4].text);
  EXPECT_EQ(host::PieceKind::Text, aRecord.pieces[5].kind);
  EXPECT_EQ(")", aRecord.pieces[5].text);
}

class ReflectionInterfaceTest : public HostTest {
 protected:
  CJournal iJournal;
  CMicroHostModuleEnd iModule{"module", iJournal};
  CMicroHostServiceEnd iService{"service", iJournal};
  CJournalledService iHostService{"host", iJournal};

  // Connects module and service end and forgets what that wrote.
  void ConnectModuleAndService() {
    ASSERT_EQ(1, iModule.Register(iService.Handle()));
    iJournal.Clear();
    ClearRecords();
  }
  void ConnectModuleAndHostService() {
    ASSERT_EQ(1, iModule.Register(iHostService.Handle()));
    iJournal.Clear();
    ClearRecords();
  }
};

// ---------------------------------------------------------------------------------
// Connection

TEST_F(ReflectionInterfaceTest, RegisterOfARightPairAdapterConnectsBothEnds) {
  EXPECT_EQ(1, iModule.Register(iService.Handle()));
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
  EXPECT_EQ(iModule.Handle(), iService.ConnectedPeer());
}

TEST_F(ReflectionInterfaceTest, RegisterOfARightPairAdapterTellsEachEndOnceWithTheConvertedPeer) {
  iModule.Register(iService.Handle());
  EXPECT_EQ(1, iModule.iAvailable);
  EXPECT_EQ(1, iService.iAvailable);
  EXPECT_EQ(static_cast<IMicroHostSensorMale*>(&iService), iModule.iLastAvailable);
  EXPECT_EQ(static_cast<IMicroHostSensorFemale*>(&iModule), iService.iLastAvailable);
  EXPECT_EQ(0, iModule.iUnavailable);
  EXPECT_EQ(0, iService.iUnavailable);
}

TEST_F(ReflectionInterfaceTest, RegisterAnswersTrueOnBothEnds) {
  iModule.Register(iService.Handle());
  const std::vector<std::string>& entries = iJournal.Entries();
  EXPECT_EQ(1, std::count(entries.begin(), entries.end(), "module Register -> 1"));
  EXPECT_EQ(1, std::count(entries.begin(), entries.end(), "service Register -> 1"));
}

TEST_F(ReflectionInterfaceTest, ConnectionTellsThePeerFirstAndTheOwnEndLast) {
  iModule.Register(iService.Handle());
  EXPECT_EQ((std::vector<std::string>{
                "module Register(service)",
                "service Register(module)",
                "module Register(service)",  // the peer connecting back stops at once
                "module Register -> 0",
                "service available",
                "service Register -> 1",
                "module available",
                "module Register -> 1",
            }),
            iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, RegisterOfAHostPeerConnectsBothEndsPeerFirst) {
  EXPECT_EQ(1, iModule.Register(iHostService.Handle()));
  EXPECT_TRUE(iHostService.IsConnected());
  EXPECT_EQ(static_cast<IMicroHostSensorFemale*>(&iModule), iHostService.Connected());
  EXPECT_EQ(1, iHostService.AvailableCount());
  EXPECT_EQ(1, iModule.iAvailable);
  EXPECT_EQ(iHostService.AsPeer(), iModule.iLastAvailable);
  EXPECT_EQ((std::vector<std::string>{
                "module Register(host)",
                "host Register(module)",
                "module Register(host)",
                "module Register -> 0",
                "host available",
                "host Register -> 1",
                "module available",
                "module Register -> 1",
            }),
            iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, RepeatedRegisterAnswersFalseAndLogsNothing) {
  ConnectModuleAndService();
  EXPECT_EQ(0, iModule.Register(iService.Handle()));
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(1, iModule.iAvailable);
  EXPECT_EQ(1, iService.iAvailable);
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
}

TEST_F(ReflectionInterfaceTest, RegisterWhileConnectedIsRefusedEvenForADifferentPeer) {
  ConnectModuleAndService();
  EXPECT_EQ(0, iModule.Register(iHostService.Handle()));
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_FALSE(iHostService.IsConnected());
  EXPECT_EQ(0, iHostService.AvailableCount());
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
  EXPECT_EQ(1, iModule.iAvailable);
}

TEST_F(ReflectionInterfaceTest, RegisterOfNullLogsTwoNullPointersAndAnswersFalse) {
  EXPECT_EQ(0, iModule.Register(nullptr));
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Register", 43, nullptr, nullptr);
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_EQ(0, iModule.iAvailable);
}

TEST_F(ReflectionInterfaceTest, RegisterOfNullLeavesTheHandlerFreeToConnect) {
  iModule.Register(nullptr);
  EXPECT_EQ(1, iModule.Register(iService.Handle()));
  EXPECT_EQ(1, iModule.iAvailable);
}

TEST_F(ReflectionInterfaceTest, RegisterOfAPeerOfAnotherPairLogsANullConversionAndAnswersFalse) {
  host::CClockSyncService clockSync;
  IReflectionInterface* wrong = static_cast<IReflectionInterface*>(&clockSync);
  EXPECT_EQ(0, iModule.Register(wrong));
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Register", 43, wrong, nullptr);
  EXPECT_FALSE(clockSync.IsConnected());
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_EQ(0, iModule.iAvailable);
}

TEST_F(ReflectionInterfaceTest, RegisterOfAnEndOfTheSameSideIsAWrongPair) {
  CMicroHostModuleEnd sameSide("other module", iJournal);
  EXPECT_EQ(0, iModule.Register(sameSide.Handle()));
  ASSERT_EQ(1u, FrameworkRecords().size());
  ExpectHandshakeRecord(FrameworkRecords()[0], "Register", 43, sameSide.Handle(), nullptr);
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_EQ(nullptr, sameSide.ConnectedPeer());
  EXPECT_EQ((std::vector<std::string>{"module Register(other module)", "module Register -> 0"}), iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, RegisterOfAWrongPairLeavesTheHandlerFreeToConnect) {
  host::CClockSyncService clockSync;
  iModule.Register(static_cast<IReflectionInterface*>(&clockSync));
  EXPECT_EQ(1, iModule.Register(iHostService.Handle()));
  EXPECT_TRUE(iHostService.IsConnected());
}

// ---------------------------------------------------------------------------------
// Disconnection

TEST_F(ReflectionInterfaceTest, UnregisterOfTheConnectedPeerDisconnectsBothEndsAndTellsEachOnce) {
  ConnectModuleAndService();
  EXPECT_EQ(1, iModule.Unregister(iService.Handle()));
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_EQ(nullptr, iService.ConnectedPeer());
  EXPECT_EQ(1, iModule.iUnavailable);
  EXPECT_EQ(1, iService.iUnavailable);
  EXPECT_EQ(static_cast<IMicroHostSensorMale*>(&iService), iModule.iLastUnavailable);
  EXPECT_EQ(static_cast<IMicroHostSensorFemale*>(&iModule), iService.iLastUnavailable);
}

TEST_F(ReflectionInterfaceTest, DisconnectionTellsTheOwnEndFirstAndThePeerLast) {
  ConnectModuleAndService();
  iModule.Unregister(iService.Handle());
  EXPECT_EQ((std::vector<std::string>{
                "module Unregister(service)",
                "module unavailable",
                "service Unregister(module)",
                "service unavailable",
                "module Unregister(service)",  // the peer disconnecting back stops at once
                "module Unregister -> 0",
                "service Unregister -> 1",
                "module Unregister -> 1",
            }),
            iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, DisconnectionFromAHostPeerTellsTheOwnEndFirst) {
  ConnectModuleAndHostService();
  EXPECT_EQ(1, iModule.Unregister(iHostService.Handle()));
  EXPECT_FALSE(iHostService.IsConnected());
  EXPECT_EQ(1, iHostService.UnavailableCount());
  EXPECT_EQ((std::vector<std::string>{
                "module Unregister(host)",
                "module unavailable",
                "host Unregister(module)",
                "host unavailable",
                "module Unregister(host)",
                "module Unregister -> 0",
                "host Unregister -> 1",
                "module Unregister -> 1",
            }),
            iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, AHostPeerGoingAwayDisconnectsTheAdapter) {
  ConnectModuleAndHostService();
  EXPECT_EQ(1, iHostService.Unregister(iModule.Handle()));
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_EQ(1, iModule.iUnavailable);
  EXPECT_EQ(iHostService.AsPeer(), iModule.iLastUnavailable);
}

TEST_F(ReflectionInterfaceTest, UnregisterOfNullOnAConnectedHandlerLogsAndAnswersTrueButStaysConnected) {
  ConnectModuleAndService();
  EXPECT_EQ(1, iModule.Unregister(nullptr));
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, nullptr, nullptr);
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
  EXPECT_EQ(iModule.Handle(), iService.ConnectedPeer());
  EXPECT_EQ(0, iModule.iUnavailable);
  EXPECT_EQ(0, iService.iUnavailable);
  // Still connected: a new Register is refused.
  EXPECT_EQ(0, iModule.Register(iService.Handle()));
}

TEST_F(ReflectionInterfaceTest, UnregisterOfADifferentPeerLogsAndAnswersFalse) {
  ConnectModuleAndService();
  EXPECT_EQ(0, iModule.Unregister(iHostService.Handle()));
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, iHostService.Handle(), iHostService.AsPeer());
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
  EXPECT_EQ(0, iModule.iUnavailable);
  EXPECT_EQ(0, iHostService.UnavailableCount());
  EXPECT_EQ((std::vector<std::string>{"module Unregister(host)", "module Unregister -> 0"}), iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, UnregisterOfAPeerOfAnotherPairLogsANullConversionAndAnswersFalse) {
  ConnectModuleAndService();
  host::CClockSyncService clockSync;
  IReflectionInterface* wrong = static_cast<IReflectionInterface*>(&clockSync);
  EXPECT_EQ(0, iModule.Unregister(wrong));
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, wrong, nullptr);
  EXPECT_EQ(iService.Handle(), iModule.ConnectedPeer());
  EXPECT_EQ(0, iModule.iUnavailable);
}

TEST_F(ReflectionInterfaceTest, UnregisterOnAnUnconnectedHandlerAnswersFalseWithoutALog) {
  EXPECT_EQ(0, iModule.Unregister(iService.Handle()));
  EXPECT_EQ(0, iModule.Unregister(nullptr));
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_EQ(0, iModule.iUnavailable);
  EXPECT_EQ((std::vector<std::string>{"module Unregister(service)", "module Unregister -> 0", "module Unregister(null)",
                                      "module Unregister -> 0"}),
            iJournal.Entries());
}

TEST_F(ReflectionInterfaceTest, AHandlerConnectsAgainAfterDisconnection) {
  ConnectModuleAndService();
  iModule.Unregister(iService.Handle());
  EXPECT_EQ(1, iModule.Register(iHostService.Handle()));
  EXPECT_EQ(2, iModule.iAvailable);
  EXPECT_EQ(iHostService.Handle(), iModule.ConnectedPeer());
}

// ---------------------------------------------------------------------------------
// Records

TEST_F(ReflectionInterfaceTest, RegisterRecordCarriesThePeerAndItsConvertedPointer) {
  iModule.Register(iHostService.Handle());
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());  // the host's end writes none
  // The two pointers differ: the peer interface is not the end's first base.
  ASSERT_NE(static_cast<const void*>(iHostService.Handle()), static_cast<const void*>(iHostService.AsPeer()));
  ExpectHandshakeRecord(records[0], "Register", 43, iHostService.Handle(), iHostService.AsPeer());
}

TEST_F(ReflectionInterfaceTest, UnregisterRecordCarriesThePeerAndItsConvertedPointer) {
  ConnectModuleAndHostService();
  iModule.Unregister(iHostService.Handle());
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, iHostService.Handle(), iHostService.AsPeer());
}

TEST_F(ReflectionInterfaceTest, HandshakeRecordTextEndsInTwoClosingBrackets) {
  iModule.Register(nullptr);
  ASSERT_EQ(1u, FrameworkRecords().size());
  const std::string text = FrameworkRecords()[0].Text();
  ASSERT_GE(text.size(), 2u);
  EXPECT_EQ("))", text.substr(text.size() - 2));
  EXPECT_EQ('(', text[0]);
}

TEST_F(ReflectionInterfaceTest, ConnectingTwoAdaptersWritesOneRecordPerEndInitiatorFirst) {
  iModule.Register(iService.Handle());
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(2u, records.size());
  ExpectHandshakeRecord(records[0], "Register", 43, iService.Handle(), static_cast<IMicroHostSensorMale*>(&iService));
  ExpectHandshakeRecord(records[1], "Register", 43, iModule.Handle(), static_cast<IMicroHostSensorFemale*>(&iModule));
}

TEST_F(ReflectionInterfaceTest, DisconnectingTwoAdaptersWritesOneRecordPerEndInitiatorFirst) {
  ConnectModuleAndService();
  iModule.Unregister(iService.Handle());
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(2u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, iService.Handle(), static_cast<IMicroHostSensorMale*>(&iService));
  ExpectHandshakeRecord(records[1], "Unregister", 65, iModule.Handle(), static_cast<IMicroHostSensorFemale*>(&iModule));
}

TEST_F(ReflectionInterfaceTest, HandshakeRecordIsAskedForUnderTheFrameworkTagAndInfo) {
  host::CLogFacility::Instance().SetTraceCalls(true);
  iModule.Register(nullptr);
  const std::vector<std::string>& calls = host::CLogFacility::Instance().Calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ("IsEnabled(3,4)", calls[0]);
  EXPECT_EQ((std::vector<std::string>{
                "IsEnabled(3,4)",
                "Open(logging::categories::Info,logging::FeatureFw,Register,1,include/ReflectionInterface.h,43)",
                "Append(text:()",
                "Append(ptr:0x0)",
                "Append(text: ()",
                "Append(ptr:0x0)",
                "Append(text:))",
                "Append(text:))",
                "AppendLineEnd(\n)",
                "Close()",
            }),
            calls);
}

TEST_F(ReflectionInterfaceTest, HandshakeRecordPassesTheControlsAnswerOn) {
  host::CLogFacility::Instance().SetEnabledAnswer(0);
  iModule.Register(nullptr);
  ASSERT_EQ(1u, FrameworkRecords().size());
  EXPECT_EQ(0, FrameworkRecords()[0].enabled);
  EXPECT_EQ(6u, FrameworkRecords()[0].pieces.size());
}

// ---------------------------------------------------------------------------------
// Through the broker

TEST_F(ReflectionInterfaceTest, TheBrokerConnectsAHandlerThroughRegisterOfThePeer) {
  const TInterfaceIdentity identity = contract::kMicroHostSensorIdentity;
  ASSERT_EQ(1, iBroker.RequestSharedInterface(iFeatureId, "0", identity, iModule.Handle()));
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  ASSERT_EQ(1, iHostService.Attach(iBroker));
  EXPECT_EQ(iHostService.Handle(), iModule.ConnectedPeer());
  EXPECT_TRUE(iHostService.IsConnected());
  ASSERT_EQ(1u, iBroker.Handshakes().size());
  EXPECT_EQ(iModule.Handle(), iBroker.Handshakes()[0].target);
  EXPECT_EQ(1, iBroker.Handshakes()[0].result);
  ASSERT_EQ(1, iBroker.RevokeInterface(iFeatureId, "0", identity, iModule.Handle()));
  EXPECT_EQ(nullptr, iModule.ConnectedPeer());
  EXPECT_FALSE(iHostService.IsConnected());
}

// ---------------------------------------------------------------------------------
// A class with two handler parts

class ExternalSensorPairsTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    iSensor = new CExternalSensor(iFeatureId, iBroker, iEventBroker);
    ASSERT_EQ(1, iClockSync.Attach(iBroker));
    ASSERT_EQ(1, iPositioning.Attach(iBroker));
    ASSERT_TRUE(iClockSync.IsConnected());
    ASSERT_TRUE(iPositioning.IsConnected());
  }
  void TearDown() override {
    delete iSensor;
    HostTest::TearDown();
  }

  CExternalSensor* iSensor = nullptr;
  host::CClockSyncService iClockSync;
  host::CExternalPositioningService iPositioning;
};

TEST_F(ExternalSensorPairsTest, EachPairIsConnectedThroughItsOwnHandlerPart) {
  EXPECT_NE(iSensor->ClockSyncHandler(), iSensor->PositioningSensorHandler());
  EXPECT_EQ(static_cast<IArdenClockSyncMale*>(iSensor), iClockSync.Connected());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorMale*>(iSensor), iPositioning.Connected());
  EXPECT_EQ(static_cast<IArdenClockSyncFemale*>(&iClockSync), iSensor->ClockSync());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorFemale*>(&iPositioning), iSensor->PositioningSensor());
}

TEST_F(ExternalSensorPairsTest, ClockSyncGoingAwayLeavesThePositioningPairConnected) {
  ASSERT_EQ(1, iClockSync.Detach(iBroker));
  EXPECT_FALSE(iClockSync.IsConnected());
  EXPECT_EQ(nullptr, iSensor->ClockSync());
  EXPECT_EQ(0, iSensor->ClockSyncAvailable());
  EXPECT_TRUE(iPositioning.IsConnected());
  EXPECT_EQ(0, iPositioning.UnavailableCount());
  EXPECT_EQ(1, iSensor->PositioningSensorAvailable());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorFemale*>(&iPositioning), iSensor->PositioningSensor());
  // The positioning part is still connected: a second connection is refused there.
  EXPECT_EQ(0, iSensor->PositioningSensorHandler()->Register(static_cast<IReflectionInterface*>(&iPositioning)));
}

TEST_F(ExternalSensorPairsTest, PositioningServiceGoingAwayLeavesTheClockSyncPairConnected) {
  ASSERT_EQ(1, iPositioning.Detach(iBroker));
  EXPECT_FALSE(iPositioning.IsConnected());
  EXPECT_EQ(nullptr, iSensor->PositioningSensor());
  EXPECT_EQ(0, iSensor->PositioningSensorAvailable());
  EXPECT_TRUE(iClockSync.IsConnected());
  EXPECT_EQ(0, iClockSync.UnavailableCount());
  EXPECT_EQ(1, iSensor->ClockSyncAvailable());
  EXPECT_EQ(static_cast<IArdenClockSyncFemale*>(&iClockSync), iSensor->ClockSync());
  EXPECT_NE(nullptr, iSensor->SyncTimeBase());
}

TEST_F(ExternalSensorPairsTest, UnregisteringOneHandlerPartDirectlyLeavesTheOtherConnected) {
  IReflectionInterface* clockSync = static_cast<IReflectionInterface*>(&iClockSync);
  EXPECT_EQ(1, iSensor->ClockSyncHandler()->Unregister(clockSync));
  EXPECT_FALSE(iClockSync.IsConnected());
  EXPECT_TRUE(iPositioning.IsConnected());
  EXPECT_EQ(1, iSensor->PositioningSensorAvailable());
  // The disconnected part connects again; the other part is untouched by it.
  EXPECT_EQ(1, iSensor->ClockSyncHandler()->Register(clockSync));
  EXPECT_TRUE(iClockSync.IsConnected());
  EXPECT_EQ(1, iPositioning.AvailableCount());
  EXPECT_EQ(0, iPositioning.UnavailableCount());
}

TEST_F(ExternalSensorPairsTest, APeerOfOnePairIsAWrongPairForTheOtherPart) {
  IReflectionInterface* clockSync = static_cast<IReflectionInterface*>(&iClockSync);
  ClearRecords();
  EXPECT_EQ(0, iSensor->PositioningSensorHandler()->Unregister(clockSync));
  EXPECT_TRUE(iPositioning.IsConnected());
  EXPECT_TRUE(iClockSync.IsConnected());
  const std::vector<host::LoggedRecord> records = FrameworkRecords();
  ASSERT_EQ(1u, records.size());
  ExpectHandshakeRecord(records[0], "Unregister", 65, clockSync, nullptr);
}

// ---------------------------------------------------------------------------------
// Virtual-table layout

using testing_host::SlotOf;
using testing_host::TSlot;

struct CSlotProbe {
  virtual ~CSlotProbe() {}
  virtual void First() {}
  virtual void Second() {}
  void Plain() {}
};

TEST(SlotHelperTest, ReadsSlotsOfAKnownClassAndTellsPlainFunctionsApart) {
  EXPECT_TRUE(SlotOf(&CSlotProbe::First).isVirtual);
  EXPECT_EQ(3u, SlotOf(&CSlotProbe::First).slot);
  EXPECT_EQ(4u, SlotOf(&CSlotProbe::Second).slot);
  EXPECT_EQ(0, SlotOf(&CSlotProbe::Second).adjustment);
  EXPECT_FALSE(SlotOf(&CSlotProbe::Plain).isVirtual);
}

template <class Own>
class HandlerLayoutTest : public ::testing::Test {};

typedef ::testing::Types<IMicroHostSensorFemale, IPositioningSensorFemale, IArdenClockSyncMale,
                         IHalvikPositioningSensorMale>
    ModuleEnds;
TYPED_TEST_SUITE(HandlerLayoutTest, ModuleEnds);

TYPED_TEST(HandlerLayoutTest, HandlerTableHoldsHandshakeThenAvailabilityThenCallbackRegistration) {
  typedef CReflectionInterfaceHandler<TypeParam> Handler;
  typedef typename TypeParam::TPartner Peer;
  TBool (Handler::*reg)(IReflectionInterface*) = &Handler::Register;
  TBool (Handler::*unreg)(IReflectionInterface*) = &Handler::Unregister;
  void (Handler::*available)(Peer&) = &Handler::OnInterfaceAvailable;
  void (Handler::*unavailable)(Peer&) = &Handler::OnInterfaceUnavailable;
  void (Handler::*registerCallback)(Peer&) = &Handler::_RegisterCallback;
  void (Handler::*unregisterCallback)(Peer&) = &Handler::_UnregisterCallback;

  const TSlot slots[] = {SlotOf(reg),
                         SlotOf(unreg),
                         SlotOf(available),
                         SlotOf(unavailable),
                         SlotOf(registerCallback),
                         SlotOf(unregisterCallback)};
  for (size_t i = 0; i < sizeof slots / sizeof slots[0]; ++i) {
    EXPECT_TRUE(slots[i].isVirtual) << i;
    EXPECT_EQ(i + 3, slots[i].slot) << i;
    EXPECT_EQ(0, slots[i].adjustment) << i;
  }
}

TYPED_TEST(HandlerLayoutTest, OwnPartFollowsTheHandshakePartWithItsOwnTable) {
  typedef CReflectionInterfaceHandler<TypeParam> Handler;
  typedef typename TypeParam::TPartner Peer;
  const ptrdiff_t ownOffset = static_cast<ptrdiff_t>(sizeof(CReflectionInterface<TypeParam, Peer>));
  EXPECT_EQ(static_cast<ptrdiff_t>(2 * sizeof(void*)), ownOffset);  // table pointer and iPeer

  void (Handler::*registerCallback)(Peer&) = static_cast<void (Handler::*)(Peer&)>(&TypeParam::_RegisterCallback);
  void (Handler::*unregisterCallback)(Peer&) = static_cast<void (Handler::*)(Peer&)>(&TypeParam::_UnregisterCallback);
  EXPECT_EQ(3u, SlotOf(registerCallback).slot);
  EXPECT_EQ(ownOffset, SlotOf(registerCallback).adjustment);
  EXPECT_EQ(4u, SlotOf(unregisterCallback).slot);
  EXPECT_EQ(ownOffset, SlotOf(unregisterCallback).adjustment);
}

TEST(HandlerObjectLayoutTest, HandshakePartComesFirstAndTheOwnInterfaceSecond) {
  CJournal journal;
  CMicroHostModuleEnd end("module", journal);
  const char* object = reinterpret_cast<const char*>(&end);
  EXPECT_EQ(object, reinterpret_cast<const char*>(static_cast<IReflectionInterface*>(&end)));
  EXPECT_EQ(object + 2 * sizeof(void*), reinterpret_cast<const char*>(static_cast<IMicroHostSensorFemale*>(&end)));
}

TEST(HandlerObjectLayoutTest, MicroHostOwnTableHoldsTheServiceOperationsAfterTheCallbackRegistration) {
  typedef CReflectionInterfaceHandler<IMicroHostSensorFemale> Handler;
  EXPECT_EQ(5u, SlotOf(static_cast<reflection::TErrCode (Handler::*)(IMicroHostSensorMale&, txdr_uint32)>(
                           &IMicroHostSensorFemale::SyncTime))
                    .slot);
  EXPECT_EQ(6u, SlotOf(static_cast<reflection::TErrCode (Handler::*)(IMicroHostSensorMale&, TIdentificationList&)>(
                           &IMicroHostSensorFemale::Identification))
                    .slot);
  EXPECT_EQ(7u, SlotOf(static_cast<reflection::TErrCode (Handler::*)(IMicroHostSensorMale&, TStatus)>(
                           &IMicroHostSensorFemale::Status))
                    .slot);
  EXPECT_EQ(8u, SlotOf(static_cast<reflection::TErrCode (Handler::*)(IMicroHostSensorMale&, TPosSensorData&)>(
                           &IMicroHostSensorFemale::SensorData))
                    .slot);
}

TEST(HandlerObjectLayoutTest, OverridesInAModuleClassKeepTheirSlots) {
  EXPECT_EQ(3u, SlotOf(&CMicroHostModuleEnd::Register).slot);
  EXPECT_EQ(4u, SlotOf(&CMicroHostModuleEnd::Unregister).slot);
  EXPECT_EQ(5u, SlotOf(&CMicroHostModuleEnd::OnInterfaceAvailable).slot);
  EXPECT_EQ(6u, SlotOf(&CMicroHostModuleEnd::OnInterfaceUnavailable).slot);
}

}  // namespace
