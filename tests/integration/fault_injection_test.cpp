// Faults injected into a feature loaded from the built library: a broker that fails
// each request and each revoke in turn (and all of them at once), a log control that
// wants no record, and services and clients that leave in the middle of a replay.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "FeatureProperties.h"
#include "Globals.h"
#include "InterfaceBroker.h"
#include "LoadedModuleTest.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "ModuleLoader.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"

namespace {

using host::BrokerCall;
using host::ReceivedSample;
using testing_host::LoadedModuleTest;

const TiPositioningSensorType kCombined = contract::kCombinedRecord;

// The record a failed broker call must leave: function text and message.
typedef std::pair<std::string, std::string> TFailureRecord;

TFailureRecord ExpectedFailure(const BrokerCall& aCall) {
  const bool revoke = aCall.kind == BrokerCall::Revoke;
  switch (aCall.identifier) {
    case contract::kMicroHostSensorIdentity.identifier:
      // The CAN source's revoke reuses its request's text.
      return {revoke ? "~CCANSensor" : "CCANSensor", "RequestSharedInterface for IMicroHostSensorMale failed"};
    case contract::kPositioningIdentity.identifier:
      return revoke ? TFailureRecord("~CSensorStore", "RevokeInterface interface for IPositioningSensorMale failed")
                    : TFailureRecord("CSensorStore", "RequestInterface for IPositioningSensorMale failed");
    case contract::kClockSyncIdentity.identifier:
      return revoke ? TFailureRecord("~CExternalSensor", "Failed to revoke IArdenClockSyncFemale instance")
                    : TFailureRecord("CExternalSensor", "Failed to request IArdenClockSyncFemale instance");
    case contract::kExternalSensorIdentity.identifier:
      return revoke ? TFailureRecord("~CExternalSensor", "Failed to revoke IHalvikPositioningFemale instance")
                    : TFailureRecord("CExternalSensor", "Failed to request IHalvikPositioningFemale instance");
  }
  return {"?", "?"};
}

bool IsModuleCall(const BrokerCall& aCall) {
  return aCall.kind == BrokerCall::Request || aCall.kind == BrokerCall::RequestShared ||
         aCall.kind == BrokerCall::Revoke;
}

TPosSensorData CanRecord(uint32_t aTime, int16_t aRate) {
  TPosSensorData record = {aTime, 3, aRate, 0x21, 5};
  return record;
}

class FaultInjectionTest : public LoadedModuleTest {
 protected:
  // One whole life of a feature on a broker that fails the module call aFailIndex
  // (none when negative): services and a client present from the start, records,
  // a subscription with replay, deletion. Answers the failure records it left.
  std::multiset<TFailureRecord> Life(const std::string& aDiversity, int aFailIndex, host::CInterfaceBroker& aBroker) {
    host::ResetGlobals();
    host::CFeatureProperties properties;
    properties.Set("diversity", aDiversity);
    if (aFailIndex >= 0) aBroker.FailCall(static_cast<size_t>(aFailIndex));
    const bool external = aDiversity == "EXTERNAL";
    host::CMicroHostSensorService microHost;
    host::CExternalPositioningService service;
    host::CClockSyncService clockSync;
    host::CPositioningClient client(external ? "2" : "1");
    if (external) {
      service.Attach(aBroker);
      clockSync.Attach(aBroker);
    } else {
      microHost.Attach(aBroker);
    }
    client.Attach(aBroker);
    IFeatureModule2* feature = iLoader.Create(iFeatureId, aBroker, iEventBroker, properties);
    EXPECT_NE(nullptr, feature);
    if (feature == nullptr) return {};

    const bool sourceConnected = external ? service.IsConnected() : microHost.IsConnected();
    if (external) {
      service.SendConfiguration({{kCombined, 1, 200, 4}});
      for (uint64_t t = 1000; t < 2000; t += 200) service.SendSensorData(kCombined, t, {1, 2, 3, 4});
    } else {
      for (uint32_t t = 1000; t < 2000; t += 200) microHost.SendSensorData(CanRecord(t, 7));
    }
    const reflection::TErrCode first = client.Subscribe(1, 0);
    const reflection::TErrCode second = client.Subscribe(2, 1);
    if (client.IsConnected()) {
      EXPECT_EQ(0, first);
      EXPECT_EQ(0, second);
      // The records stored while the source was connected come back as the replay.
      EXPECT_EQ(sourceConnected ? 5u : 0u, client.SamplesOf(1).size());
    } else {
      EXPECT_EQ(host::kNotConnected, second);
    }
    host::CModuleLoader::Destroy(feature);
    // Whatever failed, nothing of the feature stays attached or connected.
    EXPECT_EQ(0u, aBroker.ModuleHandlerCount());
    EXPECT_FALSE(client.IsConnected());
    EXPECT_FALSE(microHost.IsConnected() || service.IsConnected() || clockSync.IsConnected());
    EXPECT_TRUE(iEventBroker.Timers().empty());
    client.Detach(aBroker);
    microHost.Detach(aBroker);
    service.Detach(aBroker);
    clockSync.Detach(aBroker);
    iEventBroker.Reset();

    std::set<TFailureRecord> failureTexts;
    for (const BrokerCall& call : aBroker.Calls()) {
      if (IsModuleCall(call)) failureTexts.insert(ExpectedFailure(call));
    }
    std::multiset<TFailureRecord> found;
    for (const host::LoggedRecord& record : ModuleRecords()) {
      const TFailureRecord key(record.function, record.Message());
      if (failureTexts.count(key) != 0) found.insert(key);
    }
    return found;
  }

  void FailEachCallInTurn(const std::string& aDiversity, size_t aExpectedCalls) {
    host::CInterfaceBroker clean;
    EXPECT_TRUE(Life(aDiversity, -1, clean).empty());
    std::vector<BrokerCall> calls;
    for (const BrokerCall& call : clean.Calls()) {
      if (IsModuleCall(call)) calls.push_back(call);
    }
    ASSERT_EQ(aExpectedCalls, calls.size());
    for (size_t i = 0; i < calls.size(); ++i) {
      SCOPED_TRACE("failing module call " + std::to_string(i));
      host::CInterfaceBroker broker;
      const std::multiset<TFailureRecord> found = Life(aDiversity, static_cast<int>(i), broker);
      std::vector<BrokerCall> failed;
      for (const BrokerCall& call : broker.Calls()) {
        if (IsModuleCall(call) && call.result == 0) failed.push_back(call);
      }
      // A failed request also fails its revoke: nothing is attached to revoke.
      const bool request = calls[i].kind != BrokerCall::Revoke;
      ASSERT_EQ(request ? 2u : 1u, failed.size());
      EXPECT_EQ(calls[i].kind, failed[0].kind);
      EXPECT_EQ(calls[i].identifier, failed[0].identifier);
      std::multiset<TFailureRecord> expected = {ExpectedFailure(failed[0])};
      if (request) {
        EXPECT_EQ(BrokerCall::Revoke, failed[1].kind);
        EXPECT_EQ(calls[i].identifier, failed[1].identifier);
        expected.insert(ExpectedFailure(failed[1]));
      }
      EXPECT_EQ(expected, found);
    }
  }
};

TEST_F(FaultInjectionTest, CanFeatureLogsEachFailedRequestAndRevokeOnceAndCarriesOn) {
  // Micro-host request, store request, store revoke, micro-host revoke.
  FailEachCallInTurn("CAN", 4);
}

TEST_F(FaultInjectionTest, ExternalFeatureLogsEachFailedRequestAndRevokeOnceAndCarriesOn) {
  // Clock-sync, external service and store requests; the three revokes.
  FailEachCallInTurn("EXTERNAL", 6);
}

TEST_F(FaultInjectionTest, BrokerThatFailsEverythingLeavesEveryFailureTextOnce) {
  for (const char* diversity : {"CAN", "EXTERNAL"}) {
    SCOPED_TRACE(diversity);
    host::CInterfaceBroker broker;
    broker.FailRequests(true);
    broker.FailRevokes(true);
    const std::multiset<TFailureRecord> found = Life(diversity, -1, broker);
    std::multiset<TFailureRecord> expected;
    for (const BrokerCall& call : broker.Calls()) {
      if (IsModuleCall(call)) {
        EXPECT_EQ(0, call.result);
        expected.insert(ExpectedFailure(call));
      }
    }
    EXPECT_EQ(std::string(diversity) == "CAN" ? 4u : 6u, expected.size());
    EXPECT_EQ(expected, found);
  }
}

// A log control that wants no record.

struct TRun {
  std::vector<ReceivedSample> samples;
  std::vector<host::LoggedRecord> records;
};

class LogControlTest : public FaultInjectionTest {
 protected:
  TRun Drive(const std::string& aDiversity, TBool aAnswer) {
    host::ResetGlobals();
    host::CLogFacility::Instance().SetEnabledAnswer(aAnswer);
    host::CSimulatedOsal::Instance().SetNow(100000);
    host::CInterfaceBroker broker;
    host::CEventBroker events;
    host::CFeatureProperties properties;
    properties.Set("diversity", aDiversity);
    const bool external = aDiversity == "EXTERNAL";
    host::CMicroHostSensorService microHost;
    host::CExternalPositioningService service;
    host::CClockSyncService clockSync;
    host::CPositioningClient client(external ? "2" : "1");
    microHost.Attach(broker);
    service.Attach(broker);
    clockSync.Attach(broker);
    IFeatureModule2* feature = iLoader.Create(iFeatureId, broker, events, properties);
    client.Attach(broker);
    if (external) {
      service.SendConfiguration({{kCombined, 1, 200, 4}});
      clockSync.SendTimeStampReport(97000);
    } else {
      microHost.SendSyncTime(97000);
    }
    for (int k = 0; k < 40; ++k) {
      const uint32_t stamp = 98000u + 200u * static_cast<uint32_t>(k);
      if (k == 20) {
        client.Subscribe(1, 0);
        client.Subscribe(2, 1);
      }
      if (external) {
        service.SendSensorData(kCombined, k == 30 ? stamp + 1000 : stamp,
                               {static_cast<int16_t>(k), 1, static_cast<int16_t>(-k), 2});
      } else {
        microHost.SendSensorData(CanRecord(stamp, static_cast<int16_t>(k)));
      }
      events.Advance(200);
    }
    host::CModuleLoader::Destroy(feature);
    client.Detach(broker);
    microHost.Detach(broker);
    service.Detach(broker);
    clockSync.Detach(broker);
    return {client.Samples(), host::CLogFacility::Instance().Records()};
  }

  void CompareRuns(const std::string& aDiversity) {
    const TRun wanted = Drive(aDiversity, 1);
    const TRun unwanted = Drive(aDiversity, 0);
    ASSERT_FALSE(wanted.samples.empty());
    EXPECT_EQ(wanted.samples, unwanted.samples);
    ASSERT_EQ(wanted.records.size(), unwanted.records.size());
    for (size_t i = 0; i < wanted.records.size(); ++i) {
      const host::LoggedRecord& a = wanted.records[i];
      const host::LoggedRecord& b = unwanted.records[i];
      // The same records, with the same pieces, opened, ended and closed alike; only
      // the control's answer passed on differs.
      EXPECT_EQ(a.category, b.category);
      EXPECT_EQ(a.module, b.module);
      EXPECT_EQ(a.function, b.function);
      EXPECT_EQ(a.line, b.line);
      EXPECT_EQ(a.lineEnd, b.lineEnd);
      EXPECT_TRUE(a.closed && b.closed);
      EXPECT_EQ(1, a.enabled);
      EXPECT_EQ(0, b.enabled);
      if (a.module != "logging::FeatureFw") {
        EXPECT_EQ(a.Text(), b.Text()) << a.function;
      }
    }
    EXPECT_EQ(0u, host::CLogFacility::Instance().OpenRecordCount());
  }
};

TEST_F(LogControlTest, CanFeatureDoesTheSameWhenNoRecordIsWanted) { CompareRuns("CAN"); }

TEST_F(LogControlTest, ExternalFeatureDoesTheSameWhenNoRecordIsWanted) { CompareRuns("EXTERNAL"); }

// Services and clients leaving in the middle of a replay.

class MidReplayTest : public FaultInjectionTest {
 protected:
  // Creates the feature with its services and stores aRecords records before any
  // client subscribes.
  void Start(const std::string& aDiversity, int aRecords) {
    iExternal = aDiversity == "EXTERNAL";
    iProperties.Set("diversity", aDiversity);
    host::CSimulatedOsal::Instance().SetNow(100000);
    iMicroHost.Attach(iBroker);
    iService.Attach(iBroker);
    iClockSync.Attach(iBroker);
    Create();
    if (iExternal) iService.SendConfiguration({{kCombined, 1, 200, 4}});
    for (int k = 0; k < aRecords; ++k) Send(1000 + 200u * static_cast<uint32_t>(k), static_cast<int16_t>(k));
  }
  reflection::TErrCode Send(uint32_t aStamp, int16_t aValue) {
    if (iExternal) return iService.SendSensorData(kCombined, aStamp, {aValue, 0, 1, 1});
    return iMicroHost.SendSensorData(CanRecord(aStamp, aValue));
  }
  void TearDown() override {
    Destroy();
    iClient.Detach(iBroker);
    iMicroHost.Detach(iBroker);
    iService.Detach(iBroker);
    iClockSync.Detach(iBroker);
    FaultInjectionTest::TearDown();
  }
  // The newest type-1 value replayed, which the CAN source fills with the rate.
  int16_t RateOf(const ReceivedSample& aSample) const { return aSample.values[iExternal ? 0 : 1]; }

  bool iExternal = false;
  host::CMicroHostSensorService iMicroHost;
  host::CExternalPositioningService iService;
  host::CClockSyncService iClockSync;
  host::CPositioningClient iClient{"1"};
};

TEST_F(MidReplayTest, MicroHostServiceLeavingDuringTheReplayLetsItFinish) {
  Start("CAN", 350);
  iClient.Attach(iBroker);
  iClient.SetOnSample([this](const ReceivedSample&) {
    if (iClient.Samples().size() == 100) iMicroHost.Detach(iBroker);
  });
  ASSERT_EQ(0, iClient.Subscribe(1, 0));
  ASSERT_EQ(0, iClient.Subscribe(2, 1));
  ASSERT_EQ(300u, iClient.Samples().size());
  EXPECT_EQ(50, RateOf(iClient.Samples().front()));
  EXPECT_EQ(349, RateOf(iClient.Samples().back()));
  EXPECT_FALSE(iMicroHost.IsConnected());
  EXPECT_EQ(host::kNotConnected, Send(99000, 1));
  // Back again: live samples flow to the client.
  iClient.ClearSamples();
  iMicroHost.Attach(iBroker);
  ASSERT_EQ(0, Send(99200, 77));
  ASSERT_EQ(2u, iClient.Samples().size());
  EXPECT_EQ(77, RateOf(iClient.Samples()[0]));
}

TEST_F(MidReplayTest, ExternalServicesLeavingDuringTheReplayLetItFinishAndDropTheOffset) {
  Start("EXTERNAL", 320);
  iClockSync.SendTimeStampReport(50000);  // offset 100000 - 50000 for the records after it
  ASSERT_EQ(0, Send(70000, 1));
  host::CPositioningClient client("2");
  client.Attach(iBroker);
  client.SetOnSample([&](const ReceivedSample&) {
    if (client.Samples().size() == 100) {
      iClockSync.Detach(iBroker);
      iService.Detach(iBroker);
    }
  });
  ASSERT_EQ(0, client.Subscribe(1, 0));
  ASSERT_EQ(0, client.Subscribe(2, 1));
  ASSERT_EQ(300u, client.Samples().size());
  EXPECT_EQ(70000u + 50000u, client.Samples().back().timeStamp);
  EXPECT_FALSE(iService.IsConnected() || iClockSync.IsConnected());
  // Back again, not yet synchronised: the service's own time stamps.
  client.ClearSamples();
  iService.Attach(iBroker);
  iClockSync.Attach(iBroker);
  ASSERT_EQ(0, Send(70200, 9));
  ASSERT_EQ(2u, client.Samples().size());
  EXPECT_EQ(70200u, client.Samples()[0].timeStamp);
  Destroy();
  client.Detach(iBroker);
}

TEST_F(MidReplayTest, ClientLeavingDuringItsReplayGetsNoMoreAndNobodyElseDoes) {
  Start("CAN", 350);
  iClient.Attach(iBroker);
  iClient.SetOnSample([this](const ReceivedSample&) {
    if (iClient.Samples().size() == 100) iClient.Detach(iBroker);
  });
  ASSERT_EQ(0, iClient.Subscribe(1, 0));
  ASSERT_EQ(0, iClient.Subscribe(2, 1));
  // The store heard it leave: the rest of the replay has no subscriber to go to.
  EXPECT_EQ(100u, iClient.Samples().size());
  EXPECT_FALSE(iClient.IsConnected());
  ASSERT_EQ(0, Send(99000, 5));
  EXPECT_EQ(100u, iClient.Samples().size());
}

}  // namespace
