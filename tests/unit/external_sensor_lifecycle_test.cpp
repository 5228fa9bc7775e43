// CExternalSensor's construction, its four availability handlers and its destruction:
// the broker requests and revokes with their records, the fixed two-sensor store, and
// the synchronised-time object that lives while the clock-sync service is present.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ContractConstants.h"
#include "EventBroker.h"
#include "ExternalSensor.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LogSink.h"
#include "LoggedRecord.h"
#include "MainUnitSync.h"
#include "Platform.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"
#include "TestHost.h"

namespace {

using host::BrokerCall;
using host::CClockSyncService;
using host::CExternalPositioningService;
using host::CPositioningClient;
using testing_host::HostTest;

const char kSourceFile[] = "Positioning/src/ExternalSensor.cpp";
const char kConstructorTrace[] =
    "CExternalSensor::CExternalSensor(const TFeatureId&, IInterfaceBroker&, IEventBroker&)";
const char kDestructorTrace[] = "virtual CExternalSensor::~CExternalSensor()";
const char kClockSyncAvailableTrace[] = "virtual void CExternalSensor::OnInterfaceAvailable(IArdenClockSyncFemale&)";
const char kClockSyncUnavailableTrace[] =
    "virtual void CExternalSensor::OnInterfaceUnavailable(IArdenClockSyncFemale&)";
const char kSensorAvailableTrace[] =
    "virtual void CExternalSensor::OnInterfaceAvailable(IHalvikPositioningSensorFemale&)";
const char kSensorUnavailableTrace[] =
    "virtual void CExternalSensor::OnInterfaceUnavailable(IHalvikPositioningSensorFemale&)";

// "Info ExternalSensor.cpp CExternalSensor (IArdenClockSync received)": category, source
// file name, function text and the framed message of a record.
std::string Summary(const host::LoggedRecord& aRecord) {
  const size_t slash = aRecord.file.find_last_of('/');
  const std::string file = slash == std::string::npos ? aRecord.file : aRecord.file.substr(slash + 1);
  return aRecord.CategoryName() + " " + file + " " + aRecord.function + " " + aRecord.Text();
}

// "Request 0 32866/1": kind, instance and identity of a call the module made.
std::string CallSummary(const BrokerCall& aCall) {
  const char* kind = aCall.kind == BrokerCall::Request         ? "Request"
                     : aCall.kind == BrokerCall::Revoke        ? "Revoke"
                     : aCall.kind == BrokerCall::RequestShared ? "RequestShared"
                     : aCall.kind == BrokerCall::AttachPeer    ? "AttachPeer"
                                                               : "DetachPeer";
  return std::string(kind) + " " + aCall.instance + " " + std::to_string(aCall.identifier) + "/" +
         std::to_string(aCall.qualifier);
}

// Remembers, for each record as it is committed, how far the construction had got.
class CProgressSink : public host::ILogSink {
 public:
  explicit CProgressSink(const host::CInterfaceBroker& aBroker) : iBroker(aBroker) {}
  void OnRecord(const host::LoggedRecord& aRecord) override {
    iSeen.push_back(aRecord.Message() + " | init " + std::to_string(host::CSimulatedOsal::Instance().InitCount()) +
                    " | calls " + std::to_string(iBroker.Calls().size()));
  }
  std::vector<std::string> iSeen;

 private:
  const host::CInterfaceBroker& iBroker;
};

// An external service that pushes a record with no values as soon as it is connected.
class CEagerPositioningService : public CExternalPositioningService {
 public:
  explicit CEagerPositioningService(uint64_t aTimeStamp) : iTimeStamp(aTimeStamp) {}

 protected:
  void OnAvailable(IHalvikPositioningSensorMale&) override {
    SendSensorData(contract::kCombinedRecord, iTimeStamp, {});
  }

 private:
  uint64_t iTimeStamp;
};

class ExternalSensorLifecycleTest : public HostTest {
 protected:
  CExternalSensor& Create() {
    iSensor.reset(new CExternalSensor(iFeatureId, iBroker, iEventBroker));
    return *iSensor;
  }
  void Destroy() { iSensor.reset(); }

  std::vector<std::string> Summaries() const {
    std::vector<std::string> summaries;
    for (const host::LoggedRecord& record : ModuleRecords()) summaries.push_back(Summary(record));
    return summaries;
  }
  std::vector<std::string> ModuleCalls() const {
    std::vector<std::string> calls;
    for (const BrokerCall& call : iBroker.Calls()) {
      if (call.kind == BrokerCall::AttachPeer || call.kind == BrokerCall::DetachPeer) continue;
      calls.push_back(CallSummary(call));
    }
    return calls;
  }
  // The event-broker calls made for one observer, as "register 1000" / "unregister".
  std::vector<std::string> TimerCalls(const void* aObserver) const {
    std::vector<std::string> calls;
    for (const host::EventCall& call : iEventBroker.Calls()) {
      if (call.observer != aObserver) continue;
      calls.push_back(call.registering
                          ? "register " + std::to_string(call.eventClass) + "/" + std::to_string(call.eventId) + " " +
                                std::to_string(call.period)
                          : "unregister " + std::to_string(call.eventClass) + "/" + std::to_string(call.eventId));
    }
    return calls;
  }
  static const IEventObserver* Observer(CSyncTime* aTime) { return aTime; }
  static size_t CountOf(const std::vector<std::string>& aList, const std::string& aItem) {
    size_t count = 0;
    for (const std::string& item : aList) count += item == aItem ? 1 : 0;
    return count;
  }

  // Declared before the sensor so that they outlive it: its revokes disconnect them.
  CClockSyncService iClockSync;
  CExternalPositioningService iPositioning;
  CPositioningClient iClient{"2"};
  std::unique_ptr<CExternalSensor> iSensor;
};

// Construction

TEST_F(ExternalSensorLifecycleTest, ConstructorWritesItsEntryTraceThenOneReceivedRecordPerService) {
  Create();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kConstructorTrace + " ()",
                "Info ExternalSensor.cpp CExternalSensor (IArdenClockSync received)",
                "Info ExternalSensor.cpp CExternalSensor (IHalvikPositioningSensorFemale received)",
            }),
            Summaries());
  for (const host::LoggedRecord& record : ModuleRecords()) {
    EXPECT_EQ(kSourceFile, record.file);
    EXPECT_EQ("\n", record.lineEnd);
    EXPECT_TRUE(record.closed);
  }
}

TEST_F(ExternalSensorLifecycleTest, TheEntryTraceHasAnEmptyMessage) {
  Create();
  const host::LoggedRecord entry = ModuleRecords().at(0);
  ASSERT_EQ(2u, entry.pieces.size());
  EXPECT_EQ("(", entry.pieces[0].text);
  EXPECT_EQ(")", entry.pieces[1].text);
  EXPECT_EQ("logging::categories::Interface", entry.category);
  EXPECT_EQ("logging::Positioning", entry.module);
}

TEST_F(ExternalSensorLifecycleTest, ConstructorRequestsClockSyncThenPositioningSensorThenOffersTheStore) {
  CExternalSensor& sensor = Create();
  const std::vector<BrokerCall>& calls = iBroker.Calls();
  ASSERT_EQ(3u, calls.size());
  EXPECT_EQ((std::vector<std::string>{"Request 0 32866/1", "Request 0 32802/1", "Request 2 34/0"}), ModuleCalls());
  EXPECT_EQ(sensor.ClockSyncHandler(), calls[0].handler);
  EXPECT_EQ(sensor.PositioningSensorHandler(), calls[1].handler);
  EXPECT_EQ(static_cast<IReflectionInterface*>(sensor.SensorStore()), calls[2].handler);
  for (const BrokerCall& call : calls) EXPECT_EQ(iFeatureId, call.feature);
}

TEST_F(ExternalSensorLifecycleTest, EachPairHasItsOwnHandlerBaseOnTheSameSensor) {
  CExternalSensor& sensor = Create();
  EXPECT_NE(sensor.ClockSyncHandler(), sensor.PositioningSensorHandler());
  EXPECT_EQ(static_cast<IArdenClockSyncMale*>(&sensor), dynamic_cast<IArdenClockSyncMale*>(sensor.ClockSyncHandler()));
  EXPECT_EQ(static_cast<IHalvikPositioningSensorMale*>(&sensor),
            dynamic_cast<IHalvikPositioningSensorMale*>(sensor.PositioningSensorHandler()));
  // ISensor is the primary base, through which the feature deletes the source.
  EXPECT_EQ(static_cast<void*>(&sensor), static_cast<void*>(static_cast<ISensor*>(&sensor)));
}

TEST_F(ExternalSensorLifecycleTest, TheTickCounterIsInitialisedAfterTheEntryTraceAndBeforeTheRequests) {
  CProgressSink sink(iBroker);
  host::CLogFacility::Instance().AddSink(&sink);
  Create();
  host::CLogFacility::Instance().RemoveSink(&sink);
  EXPECT_EQ((std::vector<std::string>{
                " | init 0 | calls 0",
                "IArdenClockSync received | init 1 | calls 1",
                "IHalvikPositioningSensorFemale received | init 1 | calls 2",
            }),
            sink.iSeen);
  EXPECT_EQ(1, host::CSimulatedOsal::Instance().InitCount());
}

TEST_F(ExternalSensorLifecycleTest, AFailedClockSyncRequestIsAnErrorAndConstructionGoesOn) {
  iBroker.FailCall(0);
  CExternalSensor& sensor = Create();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kConstructorTrace + " ()",
                "Error ExternalSensor.cpp CExternalSensor (Failed to request IArdenClockSyncFemale instance)",
                "Info ExternalSensor.cpp CExternalSensor (IHalvikPositioningSensorFemale received)",
            }),
            Summaries());
  EXPECT_EQ(3u, iBroker.CallsOf(BrokerCall::Request).size());
  EXPECT_NE(nullptr, sensor.SensorStore());
}

TEST_F(ExternalSensorLifecycleTest, AFailedPositioningSensorRequestIsAnErrorNamingIHalvikPositioningFemale) {
  iBroker.FailCall(1);
  CExternalSensor& sensor = Create();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kConstructorTrace + " ()",
                "Info ExternalSensor.cpp CExternalSensor (IArdenClockSync received)",
                "Error ExternalSensor.cpp CExternalSensor (Failed to request IHalvikPositioningFemale instance)",
            }),
            Summaries());
  EXPECT_EQ(3u, iBroker.CallsOf(BrokerCall::Request).size());
  EXPECT_NE(nullptr, sensor.SensorStore());
}

TEST_F(ExternalSensorLifecycleTest, WhenEveryRequestFailsEachFailureIsLoggedOnceAndTheStoreIsStillBuilt) {
  iBroker.FailRequests(true);
  CExternalSensor& sensor = Create();
  const std::vector<std::string> summaries = Summaries();
  ASSERT_EQ(4u, summaries.size());
  EXPECT_EQ("Error ExternalSensor.cpp CExternalSensor (Failed to request IArdenClockSyncFemale instance)",
            summaries[1]);
  EXPECT_EQ("Error ExternalSensor.cpp CExternalSensor (Failed to request IHalvikPositioningFemale instance)",
            summaries[2]);
  EXPECT_EQ("Info CSensorStore.cpp CSensorStore (RequestInterface for IPositioningSensorMale failed)", summaries[3]);
  ASSERT_NE(nullptr, sensor.SensorStore());
  EXPECT_EQ(2, sensor.SensorStore()->SensorCount());
  EXPECT_EQ(0, sensor.FirstSensorHandle());
  EXPECT_EQ(1, sensor.SecondSensorHandle());
}

TEST_F(ExternalSensorLifecycleTest, TheStoreIsBuiltFromTheFixedTwoSensorConfigurationUnderInstanceTwo) {
  CExternalSensor& sensor = Create();
  const CSensorStore* store = sensor.SensorStore();
  ASSERT_NE(nullptr, store);
  EXPECT_EQ("2", store->InstanceName());
  ASSERT_EQ(2, store->SensorCount());
  const TiPositioningSensorConfiguration& config = store->PositioningSensorConfig();
  ASSERT_EQ(2, config.size);
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(i + 1, config.data[i].sensorType);
    EXPECT_EQ(1, config.data[i].sensorParameter);
    EXPECT_EQ(200, config.data[i].samplePeriod);
    EXPECT_EQ(2, config.data[i].valueCount);
    // One minute at 200 ms per sample.
    EXPECT_EQ(300, store->Sensor(i).buffer->iCapacity);
  }
}

TEST_F(ExternalSensorLifecycleTest, BothSensorHandlesComeFromTheStoreForTypesOneAndTwo) {
  CExternalSensor& sensor = Create();
  EXPECT_EQ(sensor.SensorStore()->GetBufferHandle(1), sensor.FirstSensorHandle());
  EXPECT_EQ(sensor.SensorStore()->GetBufferHandle(2), sensor.SecondSensorHandle());
  EXPECT_EQ(0, sensor.FirstSensorHandle());
  EXPECT_EQ(1, sensor.SecondSensorHandle());
}

TEST_F(ExternalSensorLifecycleTest, WithoutServicesTheSensorStartsWithNoTimeBaseAndBothServicesAbsent) {
  CExternalSensor& sensor = Create();
  EXPECT_EQ(nullptr, sensor.SyncTimeBase());
  EXPECT_EQ(nullptr, sensor.ClockSync());
  EXPECT_EQ(0, sensor.ClockSyncAvailable());
  EXPECT_EQ(nullptr, sensor.PositioningSensor());
  EXPECT_EQ(0, sensor.PositioningSensorAvailable());
  EXPECT_EQ(0u, sensor.LastTimeStamp());
  EXPECT_TRUE(iEventBroker.Calls().empty());
  EXPECT_TRUE(host::CPlatform::Instance().MainUnit().Pins().empty());
}

TEST_F(ExternalSensorLifecycleTest, ServicesAlreadyPresentConnectInsideTheRequestsAndKeepWhatTheyBrought) {
  iClockSync.Attach(iBroker);
  iPositioning.Attach(iBroker);
  CExternalSensor& sensor = Create();
  ASSERT_NE(nullptr, sensor.SyncTimeBase());
  EXPECT_EQ(1, sensor.ClockSyncAvailable());
  EXPECT_EQ(static_cast<IArdenClockSyncFemale*>(&iClockSync), sensor.ClockSync());
  EXPECT_EQ(1, sensor.PositioningSensorAvailable());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorFemale*>(&iPositioning), sensor.PositioningSensor());
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(Observer(sensor.SyncTimeBase()), iEventBroker.Timers()[0].observer);

  // Both connections complete inside their requests, before each request is reported.
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kConstructorTrace + " ()",
                std::string("Interface ExternalSensor.cpp ") + kClockSyncAvailableTrace + " ()",
                "Info SyncTime.cpp SetEventBroker (SetEventBroker)",
                "Info ExternalSensor.cpp OnInterfaceAvailable (KickSyncTime)",
                "Interface MainUnitSync.cpp virtual TBool CMainUnitSync::KickSyncTime() (Current Time : 0)",
                "Interface SyncTime.cpp virtual TBool CSyncTime::KickSyncTime() ()",
                "Info SyncTime.cpp getDateTimeInMS (iCurrentTime = 0)",
                "Info MainUnitSync.cpp KickSyncTime (Pin CLK_SYNC is set to Active)",
                "Info MainUnitSync.cpp KickSyncTime (Pin CLK_SYNC is set to NotActive)",
                "Info ExternalSensor.cpp CExternalSensor (IArdenClockSync received)",
                std::string("Interface ExternalSensor.cpp ") + kSensorAvailableTrace +
                    " (HalvikPositioningSensor available...)",
                "Info ExternalSensor.cpp CExternalSensor (IHalvikPositioningSensorFemale received)",
            }),
            Summaries());
}

TEST_F(ExternalSensorLifecycleTest, ARecordArrivingDuringConstructionStaysTheSupervisionReference) {
  CEagerPositioningService eager(7000);
  eager.Attach(iBroker);
  CExternalSensor& sensor = Create();
  EXPECT_EQ(7000u, sensor.LastTimeStamp());
  Destroy();
}

// Clock-sync availability

TEST_F(ExternalSensorLifecycleTest, ClockSyncAvailabilityCreatesAMainUnitSyncAndKicksIt) {
  host::CSimulatedOsal::Instance().SetNow(5000);
  CExternalSensor& sensor = Create();
  ClearRecords();
  ASSERT_EQ(1, iClockSync.Attach(iBroker));
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kClockSyncAvailableTrace + " ()",
                "Info SyncTime.cpp SetEventBroker (SetEventBroker)",
                "Info ExternalSensor.cpp OnInterfaceAvailable (KickSyncTime)",
                "Interface MainUnitSync.cpp virtual TBool CMainUnitSync::KickSyncTime() (Current Time : 0)",
                "Interface SyncTime.cpp virtual TBool CSyncTime::KickSyncTime() ()",
                "Info SyncTime.cpp getDateTimeInMS (iCurrentTime = 5000)",
                "Info MainUnitSync.cpp KickSyncTime (Pin CLK_SYNC is set to Active)",
                "Info MainUnitSync.cpp KickSyncTime (Pin CLK_SYNC is set to NotActive)",
            }),
            Summaries());
  ASSERT_NE(nullptr, sensor.SyncTimeBase());
  EXPECT_NE(nullptr, dynamic_cast<CMainUnitSync*>(sensor.SyncTimeBase()));
  EXPECT_EQ(&iEventBroker, sensor.SyncTimeBase()->EventBroker());
  EXPECT_EQ(5000, sensor.SyncTimeBase()->CurrentTime());
  EXPECT_EQ(static_cast<IArdenClockSyncFemale*>(&iClockSync), sensor.ClockSync());
  EXPECT_EQ(1, sensor.ClockSyncAvailable());
}

TEST_F(ExternalSensorLifecycleTest, ClockSyncAvailabilityStartsTheOneSecondTimerAndPulsesTheClockSyncPin) {
  CExternalSensor& sensor = Create();
  iClockSync.Attach(iBroker);
  EXPECT_EQ((std::vector<std::string>{"register 0/10 1000"}), TimerCalls(Observer(sensor.SyncTimeBase())));
  const std::vector<host::PinChange>& pins = host::CPlatform::Instance().MainUnit().Pins();
  ASSERT_EQ(2u, pins.size());
  EXPECT_EQ(7u, pins[0].pin);
  EXPECT_EQ(1u, pins[0].level);
  EXPECT_EQ(7u, pins[1].pin);
  EXPECT_EQ(0u, pins[1].level);
  EXPECT_EQ((std::vector<int>{50000}), host::CSimulatedOsal::Instance().Sleeps());
}

TEST_F(ExternalSensorLifecycleTest, ClockSyncUnavailabilityDeletesTheTimeBaseAndUnregistersItsTimer) {
  CExternalSensor& sensor = Create();
  iClockSync.Attach(iBroker);
  const IEventObserver* time = Observer(sensor.SyncTimeBase());
  ClearRecords();
  ASSERT_EQ(1, iClockSync.Detach(iBroker));
  EXPECT_EQ((std::vector<std::string>{std::string("Interface ExternalSensor.cpp ") + kClockSyncUnavailableTrace +
                                      " (ArdenClockSync not available...)"}),
            Summaries());
  EXPECT_EQ(nullptr, sensor.SyncTimeBase());
  EXPECT_EQ(nullptr, sensor.ClockSync());
  EXPECT_EQ(0, sensor.ClockSyncAvailable());
  EXPECT_EQ((std::vector<std::string>{"register 0/10 1000", "unregister 0/10"}), TimerCalls(time));
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(ExternalSensorLifecycleTest, TwoClockSyncReportsWithoutAnUnavailabilityCreateOneTimeBaseAndKickItTwice) {
  CExternalSensor& sensor = Create();
  sensor.OnInterfaceAvailable(static_cast<IArdenClockSyncFemale&>(iClockSync));
  CSyncTime* first = sensor.SyncTimeBase();
  host::CSimulatedOsal::Instance().SetNow(1234);
  sensor.OnInterfaceAvailable(static_cast<IArdenClockSyncFemale&>(iClockSync));
  EXPECT_EQ(first, sensor.SyncTimeBase());
  EXPECT_EQ(1234, sensor.SyncTimeBase()->CurrentTime());
  EXPECT_EQ((std::vector<std::string>{"register 0/10 1000"}), TimerCalls(Observer(first)));
  EXPECT_EQ(1u, iEventBroker.Timers().size());
  const std::vector<std::string> summaries = Summaries();
  EXPECT_EQ(2u, CountOf(summaries, "Info ExternalSensor.cpp OnInterfaceAvailable (KickSyncTime)"));
  EXPECT_EQ(1u, CountOf(summaries, "Info SyncTime.cpp SetEventBroker (SetEventBroker)"));
  EXPECT_EQ(4u, host::CPlatform::Instance().MainUnit().Pins().size());
}

TEST_F(ExternalSensorLifecycleTest, ClockSyncGoingAndComingBackReplacesTheTimeBaseWithAFreshOne) {
  CExternalSensor& sensor = Create();
  host::CSimulatedOsal::Instance().SetNow(10000);
  iClockSync.Attach(iBroker);
  iClockSync.SendTimeStampReport(4000);
  ASSERT_EQ(6000, sensor.SyncTimeBase()->GetSyncTime());
  iClockSync.Detach(iBroker);
  host::CSimulatedOsal::Instance().SetNow(20000);
  iClockSync.Attach(iBroker);
  ASSERT_NE(nullptr, sensor.SyncTimeBase());
  EXPECT_EQ(0, sensor.SyncTimeBase()->GetSyncTime());
  EXPECT_EQ(20000, sensor.SyncTimeBase()->CurrentTime());
  EXPECT_EQ(2u, CountOf(Summaries(), "Info SyncTime.cpp SetEventBroker (SetEventBroker)"));
  ASSERT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(1000u, iEventBroker.Timers()[0].period);
  EXPECT_EQ(Observer(sensor.SyncTimeBase()), iEventBroker.Timers()[0].observer);
  // Register 1000, slow down to 30000 on the measurement, unregister on deletion, and
  // the new object's registration.
  std::vector<std::string> periods;
  for (const host::EventCall& call : iEventBroker.Calls())
    periods.push_back(call.registering ? std::to_string(call.period) : "off");
  EXPECT_EQ((std::vector<std::string>{"1000", "off", "30000", "off", "1000"}), periods);
}

// Positioning-sensor availability

TEST_F(ExternalSensorLifecycleTest, PositioningSensorAvailabilityRecordsTheServiceWithoutSubscribing) {
  CExternalSensor& sensor = Create();
  ClearRecords();
  ASSERT_EQ(1, iPositioning.Attach(iBroker));
  EXPECT_EQ((std::vector<std::string>{std::string("Interface ExternalSensor.cpp ") + kSensorAvailableTrace +
                                      " (HalvikPositioningSensor available...)"}),
            Summaries());
  EXPECT_EQ(1, sensor.PositioningSensorAvailable());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorFemale*>(&iPositioning), sensor.PositioningSensor());
  EXPECT_TRUE(iPositioning.Subscriptions().empty());
  EXPECT_EQ(nullptr, sensor.SyncTimeBase());
}

TEST_F(ExternalSensorLifecycleTest, PositioningSensorUnavailabilityForgetsTheService) {
  CExternalSensor& sensor = Create();
  iPositioning.Attach(iBroker);
  ClearRecords();
  ASSERT_EQ(1, iPositioning.Detach(iBroker));
  EXPECT_EQ((std::vector<std::string>{std::string("Interface ExternalSensor.cpp ") + kSensorUnavailableTrace +
                                      " (HalvikPositioningSensor not available...)"}),
            Summaries());
  EXPECT_EQ(0, sensor.PositioningSensorAvailable());
  EXPECT_EQ(nullptr, sensor.PositioningSensor());
}

TEST_F(ExternalSensorLifecycleTest, PositioningSensorUnavailabilityLeavesTheStoreAndItsSamplesUntouched) {
  CExternalSensor& sensor = Create();
  iPositioning.Attach(iBroker);
  iPositioning.SendSensorData(contract::kCombinedRecord, 1000, {11, 12, 13, 14});
  iPositioning.SendSensorData(contract::kCombinedRecord, 1200, {21, 22, 23, 24});
  CSensorStore* store = sensor.SensorStore();
  iPositioning.Detach(iBroker);

  EXPECT_EQ(store, sensor.SensorStore());
  EXPECT_EQ(0, sensor.FirstSensorHandle());
  EXPECT_EQ(1, sensor.SecondSensorHandle());
  EXPECT_EQ(1200u, sensor.LastTimeStamp());
  EXPECT_EQ(2, store->Sensor(0).buffer->iCount);
  EXPECT_EQ(2, store->Sensor(1).buffer->iCount);
  CSensorStore::TSensorData last = {};
  ASSERT_EQ(1, store->GetLastSample(2, last));
  EXPECT_EQ(1200u, last.timeStamp);
  EXPECT_EQ(23, last.values[0]);
  EXPECT_EQ(24, last.values[1]);
  // Clients of the store stay connected.
  EXPECT_TRUE(iBroker.IsAttached("2", contract::kPositioningIdentity, store));
}

TEST_F(ExternalSensorLifecycleTest, ClockSyncLeavingDoesNotDisturbThePositioningSensorPair) {
  CExternalSensor& sensor = Create();
  iClockSync.Attach(iBroker);
  iPositioning.Attach(iBroker);
  iClockSync.Detach(iBroker);
  EXPECT_EQ(1, sensor.PositioningSensorAvailable());
  EXPECT_TRUE(iPositioning.IsConnected());
  EXPECT_EQ(0, iPositioning.UnavailableCount());
  EXPECT_EQ(0, iPositioning.SendSensorData(contract::kCombinedRecord, 500, {1, 2, 3, 4}));
  EXPECT_EQ(1, sensor.SensorStore()->Sensor(0).buffer->iCount);
}

TEST_F(ExternalSensorLifecycleTest, PositioningSensorLeavingDoesNotDisturbTheClockSyncPair) {
  CExternalSensor& sensor = Create();
  host::CSimulatedOsal::Instance().SetNow(9000);
  iClockSync.Attach(iBroker);
  iPositioning.Attach(iBroker);
  iPositioning.Detach(iBroker);
  EXPECT_EQ(1, sensor.ClockSyncAvailable());
  EXPECT_TRUE(iClockSync.IsConnected());
  EXPECT_EQ(0, iClockSync.UnavailableCount());
  ASSERT_NE(nullptr, sensor.SyncTimeBase());
  EXPECT_EQ(0, iClockSync.SendTimeStampReport(8000));
  EXPECT_EQ(1000, sensor.SyncTimeBase()->GetSyncTime());
}

// Destruction

TEST_F(ExternalSensorLifecycleTest, DestructorWritesItsEntryTraceThenRevokesBothServicesThenTheStore) {
  CExternalSensor& sensor = Create();
  IReflectionInterface* clockSyncHandler = sensor.ClockSyncHandler();
  IReflectionInterface* sensorHandler = sensor.PositioningSensorHandler();
  IReflectionInterface* store = sensor.SensorStore();
  ClearRecords();
  Destroy();
  EXPECT_EQ((std::vector<std::string>{std::string("Interface ExternalSensor.cpp ") + kDestructorTrace + " ()"}),
            Summaries());
  const std::vector<BrokerCall> revokes = iBroker.CallsOf(BrokerCall::Revoke);
  ASSERT_EQ(3u, revokes.size());
  EXPECT_EQ("Revoke 0 32866/1", CallSummary(revokes[0]));
  EXPECT_EQ(clockSyncHandler, revokes[0].handler);
  EXPECT_EQ("Revoke 0 32802/1", CallSummary(revokes[1]));
  EXPECT_EQ(sensorHandler, revokes[1].handler);
  EXPECT_EQ("Revoke 2 34/0", CallSummary(revokes[2]));
  EXPECT_EQ(store, revokes[2].handler);
  for (const BrokerCall& call : revokes) {
    EXPECT_EQ(iFeatureId, call.feature);
    EXPECT_EQ(1, call.result);
  }
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

TEST_F(ExternalSensorLifecycleTest, DestructionDisconnectsConnectedServicesThroughItsRevokes) {
  Create();
  iClockSync.Attach(iBroker);
  iPositioning.Attach(iBroker);
  ClearRecords();
  Destroy();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kDestructorTrace + " ()",
                std::string("Interface ExternalSensor.cpp ") + kClockSyncUnavailableTrace +
                    " (ArdenClockSync not available...)",
                std::string("Interface ExternalSensor.cpp ") + kSensorUnavailableTrace +
                    " (HalvikPositioningSensor not available...)",
            }),
            Summaries());
  EXPECT_FALSE(iClockSync.IsConnected());
  EXPECT_FALSE(iPositioning.IsConnected());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(ExternalSensorLifecycleTest, FailedRevokesAreErrorsAndBothAreAttempted) {
  Create();
  iBroker.FailRevokes(true);
  ClearRecords();
  Destroy();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kDestructorTrace + " ()",
                "Error ExternalSensor.cpp ~CExternalSensor (Failed to revoke IArdenClockSyncFemale instance)",
                "Error ExternalSensor.cpp ~CExternalSensor (Failed to revoke IHalvikPositioningFemale instance)",
                "Info CSensorStore.cpp ~CSensorStore (RevokeInterface interface for IPositioningSensorMale failed)",
            }),
            Summaries());
  EXPECT_EQ((std::vector<std::string>{"Request 0 32866/1", "Request 0 32802/1", "Request 2 34/0", "Revoke 0 32866/1",
                                      "Revoke 0 32802/1", "Revoke 2 34/0"}),
            ModuleCalls());
}

TEST_F(ExternalSensorLifecycleTest, AFailedClockSyncRevokeDoesNotStopThePositioningSensorRevoke) {
  Create();
  iBroker.FailCall(3);
  ClearRecords();
  Destroy();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kDestructorTrace + " ()",
                "Error ExternalSensor.cpp ~CExternalSensor (Failed to revoke IArdenClockSyncFemale instance)",
            }),
            Summaries());
  const std::vector<BrokerCall> revokes = iBroker.CallsOf(BrokerCall::Revoke);
  ASSERT_EQ(3u, revokes.size());
  EXPECT_EQ(0, revokes[0].result);
  EXPECT_EQ("Revoke 0 32802/1", CallSummary(revokes[1]));
  EXPECT_EQ(1, revokes[1].result);
}

TEST_F(ExternalSensorLifecycleTest, AFailedPositioningSensorRevokeIsLoggedAlone) {
  Create();
  iBroker.FailCall(4);
  ClearRecords();
  Destroy();
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface ExternalSensor.cpp ") + kDestructorTrace + " ()",
                "Error ExternalSensor.cpp ~CExternalSensor (Failed to revoke IHalvikPositioningFemale instance)",
            }),
            Summaries());
}

TEST_F(ExternalSensorLifecycleTest, DestructionDeletesATimeBaseItStillOwns) {
  CExternalSensor& sensor = Create();
  // Reported directly, not through the broker: the revokes then disconnect nothing,
  // and the time base is still there when the destructor reaches it.
  sensor.OnInterfaceAvailable(static_cast<IArdenClockSyncFemale&>(iClockSync));
  const IEventObserver* time = Observer(sensor.SyncTimeBase());
  ASSERT_NE(nullptr, time);
  Destroy();
  EXPECT_EQ((std::vector<std::string>{"register 0/10 1000", "unregister 0/10"}), TimerCalls(time));
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(ExternalSensorLifecycleTest, DestructionDeletesTheStoreWhichDisconnectsItsClients) {
  CExternalSensor& sensor = Create();
  iClient.Attach(iBroker);
  ASSERT_TRUE(iClient.IsConnected());
  IReflectionInterface* store = sensor.SensorStore();
  Destroy();
  EXPECT_FALSE(iClient.IsConnected());
  EXPECT_EQ(1, iClient.UnavailableCount());
  EXPECT_FALSE(iBroker.IsAttached("2", contract::kPositioningIdentity, store));
}

// The broker is handed in by reference, and the constructor requests through it, so a
// sensor with a null broker cannot be built without undefined behaviour. The nearest
// case that can be built is a broker that refuses both revokes: the store and the time
// base must still be deleted, whatever the revokes answered.
TEST_F(ExternalSensorLifecycleTest, DestructionWhoseRevokesAreAllRefusedStillDeletesTheStoreAndTheTimeBase) {
  CExternalSensor& sensor = Create();
  sensor.OnInterfaceAvailable(static_cast<IArdenClockSyncFemale&>(iClockSync));
  const IEventObserver* time = Observer(sensor.SyncTimeBase());
  IReflectionInterface* store = sensor.SensorStore();
  iClient.Attach(iBroker);
  iBroker.FailRevokes(true);
  Destroy();
  const std::vector<BrokerCall> revokes = iBroker.CallsOf(BrokerCall::Revoke);
  ASSERT_EQ(3u, revokes.size());
  EXPECT_EQ(store, revokes[2].handler);
  EXPECT_EQ(1, iClient.UnavailableCount());
  EXPECT_EQ((std::vector<std::string>{"register 0/10 1000", "unregister 0/10"}), TimerCalls(time));
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

}  // namespace
