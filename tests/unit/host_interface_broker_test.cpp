// The simulated daemon's interface broker: who gets connected to whom, when, and what
// happens when it is told to fail.
#include <gtest/gtest.h>

#include "ContractConstants.h"
#include "InterfaceBroker.h"
#include "PeerEnd.h"
#include "SimulatedPeers.h"
#include "TestHost.h"

namespace {

using host::BrokerCall;
using host::CClockSyncService;
using host::CInterfaceBroker;
using host::CMicroHostSensorService;
using host::CPeerEnd;

const TInterfaceIdentity kMicroHost = contract::kMicroHostSensorIdentity;

// A module-side end of the micro-host pair, without log records.
class ModuleEnd : public CPeerEnd<IMicroHostSensorFemale> {
 public:
  ModuleEnd() : CPeerEnd("0", kMicroHost) {}
  reflection::TErrCode SyncTime(IMicroHostSensorMale&, txdr_uint32) override { return 0; }
  reflection::TErrCode Identification(IMicroHostSensorMale&, TIdentificationList&) override { return 0; }
  reflection::TErrCode Status(IMicroHostSensorMale&, TStatus) override { return 0; }
  reflection::TErrCode SensorData(IMicroHostSensorMale&, TPosSensorData&) override { return 0; }
};

class InterfaceBrokerTest : public testing_host::HostTest {
 protected:
  TBool Request(ModuleEnd& aEnd) { return iBroker.RequestInterface(iFeatureId, "0", kMicroHost, &aEnd); }
  TBool Revoke(ModuleEnd& aEnd) { return iBroker.RevokeInterface(iFeatureId, "0", kMicroHost, &aEnd); }
  ModuleEnd iModule;
  CMicroHostSensorService iService;
};

TEST_F(InterfaceBrokerTest, RequestAloneConnectsNothing) {
  EXPECT_EQ(1, Request(iModule));
  EXPECT_FALSE(iModule.IsConnected());
  EXPECT_TRUE(iBroker.Handshakes().empty());
}

TEST_F(InterfaceBrokerTest, PeerArrivingLaterIsConnectedThroughTheModuleHandler) {
  Request(iModule);
  EXPECT_EQ(1, iService.Attach(iBroker));
  EXPECT_TRUE(iModule.IsConnected());
  EXPECT_TRUE(iService.IsConnected());
  ASSERT_EQ(1u, iBroker.Handshakes().size());
  EXPECT_TRUE(iBroker.Handshakes()[0].registering);
  EXPECT_EQ(static_cast<IReflectionInterface*>(&iModule), iBroker.Handshakes()[0].target);
  EXPECT_EQ(static_cast<IReflectionInterface*>(&iService), iBroker.Handshakes()[0].peer);
}

TEST_F(InterfaceBrokerTest, PeerPresentBeforeTheRequestIsConnectedDuringTheRequest) {
  iService.Attach(iBroker);
  Request(iModule);
  EXPECT_TRUE(iModule.IsConnected());
  EXPECT_EQ(static_cast<IReflectionInterface*>(&iModule), iBroker.Handshakes()[0].target);
}

TEST_F(InterfaceBrokerTest, DifferentInstanceOrIdentityIsNotConnected) {
  Request(iModule);
  iBroker.AttachPeer("1", kMicroHost, &iService);
  iBroker.AttachPeer("0", TInterfaceIdentity{kMicroHost.identifier, 1}, &iService);
  EXPECT_FALSE(iModule.IsConnected());
}

TEST_F(InterfaceBrokerTest, SecondPeerConnectsOnlyItsOwnEnd) {
  CMicroHostSensorService second;
  Request(iModule);
  iService.Attach(iBroker);
  second.Attach(iBroker);
  EXPECT_TRUE(second.IsConnected());
  ASSERT_EQ(3u, iBroker.Handshakes().size());
  EXPECT_EQ(0, iBroker.Handshakes()[1].result);  // the module end refused: already connected
  EXPECT_EQ(static_cast<IReflectionInterface*>(&second), iBroker.Handshakes()[2].target);
  EXPECT_EQ(1, iBroker.Handshakes()[2].result);
}

TEST_F(InterfaceBrokerTest, RevokeDisconnectsTheConnectedPeer) {
  Request(iModule);
  iService.Attach(iBroker);
  EXPECT_EQ(1, Revoke(iModule));
  EXPECT_FALSE(iModule.IsConnected());
  EXPECT_FALSE(iService.IsConnected());
  EXPECT_EQ(1, iService.UnavailableCount());
  EXPECT_FALSE(iBroker.IsAttached("0", kMicroHost, &iModule));
}

TEST_F(InterfaceBrokerTest, DetachingThePeerDisconnectsBothEnds) {
  Request(iModule);
  iService.Attach(iBroker);
  EXPECT_EQ(1, iService.Detach(iBroker));
  EXPECT_FALSE(iModule.IsConnected());
  EXPECT_EQ(1, iModule.UnavailableCount());
  EXPECT_EQ(0, iService.Detach(iBroker));  // not attached any more
}

TEST_F(InterfaceBrokerTest, RevokeOfAHandlerThatWasNeverAttachedAnswersFalse) { EXPECT_EQ(0, Revoke(iModule)); }

TEST_F(InterfaceBrokerTest, FailedRequestsAttachNothing) {
  iBroker.FailRequests(true);
  iService.Attach(iBroker);
  EXPECT_EQ(0, Request(iModule));
  EXPECT_EQ(0, iBroker.RequestSharedInterface(iFeatureId, "0", kMicroHost, &iModule));
  EXPECT_FALSE(iModule.IsConnected());
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

TEST_F(InterfaceBrokerTest, FailedRevokeAnswersFalseButStillDisconnects) {
  Request(iModule);
  iService.Attach(iBroker);
  iBroker.FailRevokes(true);
  EXPECT_EQ(0, Revoke(iModule));
  EXPECT_FALSE(iService.IsConnected());
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

TEST_F(InterfaceBrokerTest, FailCallFailsExactlyTheModuleCallWithThatIndex) {
  ModuleEnd second;
  iBroker.FailCall(1);
  EXPECT_EQ(1, Request(iModule));  // call 0
  EXPECT_EQ(0, Request(second));   // call 1
  EXPECT_EQ(1, Revoke(iModule));   // call 2
  ASSERT_EQ(3u, iBroker.Calls().size());
  EXPECT_EQ(0, iBroker.Calls()[1].result);
}

TEST_F(InterfaceBrokerTest, CallsAreRecordedWithTheirArguments) {
  iBroker.RequestSharedInterface(iFeatureId, "0", kMicroHost, &iModule);
  iService.Attach(iBroker);
  ASSERT_EQ(2u, iBroker.Calls().size());
  const BrokerCall& request = iBroker.Calls()[0];
  EXPECT_EQ(BrokerCall::RequestShared, request.kind);
  EXPECT_EQ(iFeatureId, request.feature);
  EXPECT_EQ("0", request.instance);
  EXPECT_EQ(kMicroHost.identifier, request.identifier);
  EXPECT_EQ(0u, request.qualifier);
  EXPECT_EQ(static_cast<IReflectionInterface*>(&iModule), request.handler);
  EXPECT_EQ(BrokerCall::AttachPeer, iBroker.Calls()[1].kind);
  EXPECT_EQ(1u, iBroker.CallsOf(BrokerCall::AttachPeer).size());
}

TEST_F(InterfaceBrokerTest, PeerOfTheWrongPairIsNotConnected) {
  CClockSyncService clockSync;
  Request(iModule);
  iBroker.AttachPeer("0", kMicroHost, &clockSync);
  EXPECT_FALSE(iModule.IsConnected());
  EXPECT_FALSE(clockSync.IsConnected());
}

TEST_F(InterfaceBrokerTest, NullHandlersAreRefused) {
  EXPECT_EQ(0, iBroker.RequestInterface(iFeatureId, "0", kMicroHost, nullptr));
  EXPECT_EQ(0, iBroker.AttachPeer("0", kMicroHost, nullptr));
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

}  // namespace
