// CCANSensor, the CAN sensor source: the order of construction and destruction toward
// the brokers, failure texts, the micro-host service's availability, the SyncTime,
// Identification and Status callbacks, and the conversion of each sensor record into
// a gyroscope and an odometer sample with their records and time stamps.
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include "CANSensor.h"
#include "ContractConstants.h"
#include "EventBroker.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LogSink.h"
#include "LoggedRecord.h"
#include "RecordFormat.h"
#include "SimulatedOsal.h"
#include "SimulatedPeers.h"
#include "TestHost.h"

namespace {

using testing_host::Brief;
using testing_host::MessageKinds;

using host::PieceKind;
using testing_host::HostTest;

const char kRequestFailed[] = "RequestSharedInterface for IMicroHostSensorMale failed";
const char kSensorDataTrace[] =
    "virtual reflection::TErrCode CCANSensor::SensorData(IMicroHostSensorMale&, TPosSensorData&)";
const char kPutDataTrace[] = "virtual TAny CSensorStore::PutData(TUint8, CSensorStore::TSensorData)";

// One ordered account of what the source does toward the brokers and the log.
class CTimeline : public host::ILogSink {
 public:
  void OnRecord(const host::LoggedRecord& aRecord) override {
    if (aRecord.module == "logging::Positioning") iEntries.push_back("log " + Brief(aRecord));
  }
  void Add(const std::string& aEntry) { iEntries.push_back(aEntry); }
  std::vector<std::string> iEntries;
};

std::string Key(const std::string& aInstance, const TInterfaceIdentity& aIdentity) {
  return aInstance + " " + std::to_string(aIdentity.identifier) + "/" + std::to_string(aIdentity.qualifier);
}

// Passes every call on to the simulated broker and notes it in the timeline.
class CRecordingBroker : public IInterfaceBroker {
 public:
  CRecordingBroker(host::CInterfaceBroker& aInner, CTimeline& aTimeline) : iInner(aInner), iTimeline(aTimeline) {}
  TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface* aHandler) override {
    iTimeline.Add("RequestInterface " + Key(aInstance, aIdentity));
    return iInner.RequestInterface(aFeature, aInstance, aIdentity, aHandler);
  }
  TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface* aHandler) override {
    iTimeline.Add("RevokeInterface " + Key(aInstance, aIdentity));
    return iInner.RevokeInterface(aFeature, aInstance, aIdentity, aHandler);
  }
  void Reserved5() override {}
  TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) override {
    iTimeline.Add("RequestSharedInterface " + Key(aInstance, aIdentity));
    return iInner.RequestSharedInterface(aFeature, aInstance, aIdentity, aHandler);
  }

 private:
  host::CInterfaceBroker& iInner;
  CTimeline& iTimeline;
};

class CRecordingEventBroker : public IEventBroker {
 public:
  CRecordingEventBroker(host::CEventBroker& aInner, CTimeline& aTimeline) : iInner(aInner), iTimeline(aTimeline) {}
  TBool RegisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    iTimeline.Add("register " + std::to_string(aRegistration.eventClass) + "/" + std::to_string(aRegistration.eventId) +
                  "/" + std::to_string(aRegistration.period) + "/" + std::to_string(aRegistration.repeat));
    return iInner.RegisterEventObserver(aRegistration, aObserver);
  }
  TBool UnregisterEventObserver(const TEventRegistration& aRegistration, IEventObserver* aObserver) override {
    iTimeline.Add("unregister " + std::to_string(aRegistration.eventClass) + "/" +
                  std::to_string(aRegistration.eventId) + "/" + std::to_string(aRegistration.period));
    return iInner.UnregisterEventObserver(aRegistration, aObserver);
  }

 private:
  host::CEventBroker& iInner;
  CTimeline& iTimeline;
};

struct DeleteSensor {
  void operator()(CCANSensor* aSensor) const { delete static_cast<ISensor*>(aSensor); }
};
typedef std::unique_ptr<CCANSensor, DeleteSensor> SensorPtr;

IReflectionInterface* HandlerOf(CCANSensor* aSensor) {
  return static_cast<CReflectionInterfaceHandler<IMicroHostSensorFemale>*>(aSensor);
}

class CanSensorTest : public HostTest {
 protected:
  void TearDown() override {
    host::CLogFacility::Instance().RemoveSink(&iTimeline);
    HostTest::TearDown();
  }

  SensorPtr MakeSensor() { return SensorPtr(new CCANSensor(iFeatureId, iBroker, iEventBroker)); }

  // A source built through the recording brokers, the timeline listening to the log.
  SensorPtr MakeRecordedSensor() {
    host::CLogFacility::Instance().AddSink(&iTimeline);
    return SensorPtr(new CCANSensor(iFeatureId, iRecordingBroker, iRecordingEventBroker));
  }

  // The newest stored sample of a sensor type.
  CSensorStore::TSensorData LastSample(CCANSensor& aSensor, TiPositioningSensorType aType) {
    CSensorStore::TSensorData sample;
    memset(&sample, 0xA5, sizeof sample);
    EXPECT_TRUE(aSensor.SensorStore()->GetLastSample(aType, sample));
    return sample;
  }

  static host::CSimulatedOsal& Osal() { return host::CSimulatedOsal::Instance(); }

  CTimeline iTimeline;
  CRecordingBroker iRecordingBroker{iBroker, iTimeline};
  CRecordingEventBroker iRecordingEventBroker{iEventBroker, iTimeline};
};

// --- Construction --------------------------------------------------------------------

TEST_F(CanSensorTest, ConstructorRequestsTheServiceThenTheStoreThenStartsAndKicksTheTimeBase) {
  Osal().SetNow(2500);
  SensorPtr sensor = MakeRecordedSensor();
  EXPECT_EQ((std::vector<std::string>{"RequestSharedInterface 0 56/0", "RequestInterface 1 34/0",
                                      "log Info|SetEventBroker|SetEventBroker", "register 0/10/1000/1",
                                      "log Interface|virtual TBool CSyncTime::KickSyncTime()|",
                                      "log Info|getDateTimeInMS|iCurrentTime = 2500"}),
            iTimeline.iEntries);
}

TEST_F(CanSensorTest, ConstructorRequestsTheMicroHostServiceSharedWithTheHandlerBase) {
  SensorPtr sensor = MakeSensor();
  ASSERT_EQ(2u, iBroker.Calls().size());
  const host::BrokerCall& call = iBroker.Calls()[0];
  EXPECT_EQ(host::BrokerCall::RequestShared, call.kind);
  EXPECT_EQ(iFeatureId, call.feature);
  EXPECT_EQ("0", call.instance);
  EXPECT_EQ(contract::kMicroHostSensorIdentity.identifier, call.identifier);
  EXPECT_EQ(0u, call.qualifier);
  EXPECT_EQ(HandlerOf(sensor.get()), call.handler);
}

TEST_F(CanSensorTest, ConstructorCreatesTheStoreUnderInstanceOne) {
  SensorPtr sensor = MakeSensor();
  ASSERT_NE(nullptr, sensor->SensorStore());
  const host::BrokerCall& call = iBroker.Calls()[1];
  EXPECT_EQ(host::BrokerCall::Request, call.kind);
  EXPECT_EQ(iFeatureId, call.feature);
  EXPECT_EQ("1", call.instance);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, call.identifier);
  EXPECT_EQ(0u, call.qualifier);
  EXPECT_EQ(static_cast<IReflectionInterface*>(sensor->SensorStore()), call.handler);
  EXPECT_EQ("1", sensor->SensorStore()->InstanceName());
}

TEST_F(CanSensorTest, StoreHasTheFixedTwoSensorConfiguration) {
  SensorPtr sensor = MakeSensor();
  CSensorStore* store = sensor->SensorStore();
  ASSERT_EQ(2, store->SensorCount());
  for (int32_t i = 0; i < 2; ++i) {
    const TiPositioningSensorEntry& config = store->Sensor(i).config;
    EXPECT_EQ(i + 1, config.sensorType);
    EXPECT_EQ(1, config.sensorParameter);
    EXPECT_EQ(200, config.samplePeriod);
    EXPECT_EQ(2, config.valueCount);
    EXPECT_EQ(300, store->Sensor(i).buffer->iCapacity);
  }
}

TEST_F(CanSensorTest, HandlesAreTheStoresPositionsOfTypesOneAndTwo) {
  SensorPtr sensor = MakeSensor();
  EXPECT_EQ(0, sensor->FirstSensorHandle());
  EXPECT_EQ(1, sensor->SecondSensorHandle());
}

TEST_F(CanSensorTest, ConstructorRegistersTheOneSecondTimerAndKicksOnce) {
  Osal().SetNow(2500);
  SensorPtr sensor = MakeSensor();
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1"}), EventCalls());
  EXPECT_EQ(static_cast<IEventObserver*>(&sensor->SyncTimeBase()), iEventBroker.Calls()[0].observer);
  EXPECT_EQ(&iEventBroker, sensor->SyncTimeBase().EventBroker());
  EXPECT_EQ(2500, sensor->SyncTimeBase().CurrentTime());
  EXPECT_EQ(0, sensor->SyncTimeBase().GetSyncTime());
  EXPECT_EQ(nullptr, sensor->MicroHostSensor());
}

TEST_F(CanSensorTest, ConstructorWritesOnlyTheTimeBaseRecords) {
  Osal().SetNow(2500);
  SensorPtr sensor = MakeSensor();
  EXPECT_EQ((std::vector<std::string>{"Info|SetEventBroker|SetEventBroker",
                                      "Interface|virtual TBool CSyncTime::KickSyncTime()|",
                                      "Info|getDateTimeInMS|iCurrentTime = 2500"}),
            Briefs());
}

TEST_F(CanSensorTest, FailedRequestIsLoggedAtInfoAndConstructionGoesOn) {
  iBroker.FailCall(0);
  SensorPtr sensor = MakeSensor();
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(std::string("Info|CCANSensor|") + kRequestFailed, Brief(records[0]));
  EXPECT_NE(std::string::npos, records[0].file.find("Positioning/src/CANSensor")) << records[0].file;
  EXPECT_EQ((std::vector<std::string>{
                std::string("Info|CCANSensor|") + kRequestFailed, "Info|SetEventBroker|SetEventBroker",
                "Interface|virtual TBool CSyncTime::KickSyncTime()|", "Info|getDateTimeInMS|iCurrentTime = 0"}),
            Briefs());
  ASSERT_NE(nullptr, sensor->SensorStore());
  EXPECT_EQ(1, sensor->SecondSensorHandle());
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1"}), EventCalls());
}

TEST_F(CanSensorTest, TheTimeBaseKicksEverySecondWithoutTheService) {
  SensorPtr sensor = MakeSensor();
  iEventBroker.RunUntil(3000);
  EXPECT_EQ(3u, iEventBroker.FiredCount());
  EXPECT_EQ(3000, sensor->SyncTimeBase().CurrentTime());
}

// --- Destruction ---------------------------------------------------------------------

TEST_F(CanSensorTest, DestructorRevokesTheServiceThenTheStoreThenUnregistersTheTimer) {
  SensorPtr sensor = MakeRecordedSensor();
  iTimeline.iEntries.clear();
  sensor.reset();
  EXPECT_EQ((std::vector<std::string>{"RevokeInterface 0 56/0", "RevokeInterface 1 34/0", "unregister 0/10/0"}),
            iTimeline.iEntries);
}

TEST_F(CanSensorTest, DestructorRevokesWithTheSameArgumentsAsTheRequest) {
  SensorPtr sensor = MakeSensor();
  IReflectionInterface* handler = HandlerOf(sensor.get());
  sensor.reset();
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(2u, revokes.size());
  EXPECT_EQ(iFeatureId, revokes[0].feature);
  EXPECT_EQ("0", revokes[0].instance);
  EXPECT_EQ(contract::kMicroHostSensorIdentity.identifier, revokes[0].identifier);
  EXPECT_EQ(0u, revokes[0].qualifier);
  EXPECT_EQ(handler, revokes[0].handler);
  EXPECT_EQ(1, revokes[0].result);
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

TEST_F(CanSensorTest, DestructorWritesNoRecordWhenTheRevokesSucceed) {
  SensorPtr sensor = MakeSensor();
  ClearRecords();
  sensor.reset();
  EXPECT_TRUE(ModuleRecords().empty());
}

TEST_F(CanSensorTest, FailedRevokeLogsTheRequestsTextUnderTheDestructor) {
  SensorPtr sensor = MakeSensor();
  iBroker.FailCall(2);  // the destructor's revoke of the service
  ClearRecords();
  sensor.reset();
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ(std::string("Info|~CCANSensor|") + kRequestFailed, Brief(records[0]));
  EXPECT_NE(std::string::npos, records[0].file.find("Positioning/src/CANSensor")) << records[0].file;
  // The store is still revoked and the timer still unregistered.
  EXPECT_EQ(2u, iBroker.CallsOf(host::BrokerCall::Revoke).size());
  EXPECT_EQ("unregister 0/10/0", EventCalls().back());
}

TEST_F(CanSensorTest, DestructorAfterAFailedRequestStillRevokesAndLogsTheRequestsText) {
  iBroker.FailRequests(true);
  SensorPtr sensor = MakeSensor();
  ClearRecords();
  sensor.reset();
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(2u, revokes.size());
  EXPECT_EQ("0", revokes[0].instance);
  EXPECT_EQ(0, revokes[0].result);
  EXPECT_EQ(
      (std::vector<std::string>{std::string("Info|~CCANSensor|") + kRequestFailed,
                                "Info|~CSensorStore|RevokeInterface interface for IPositioningSensorMale failed"}),
      Briefs());
}

TEST_F(CanSensorTest, FeatureIdentifierIsReferredToNotCopied) {
  TFeatureId featureId = "before";
  SensorPtr sensor(new CCANSensor(featureId, iBroker, iEventBroker));
  featureId = "after";
  sensor.reset();
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(2u, revokes.size());
  EXPECT_EQ("after", revokes[0].feature);
  // The store keeps a copy of its own.
  EXPECT_EQ("before", revokes[1].feature);
}

// --- Availability --------------------------------------------------------------------

TEST_F(CanSensorTest, ServiceAvailabilitySetsThePeerAndTraces) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  ClearRecords();
  service.Attach(iBroker);
  ASSERT_TRUE(service.IsConnected());
  EXPECT_EQ(static_cast<IMicroHostSensorMale*>(&service), sensor->MicroHostSensor());
  EXPECT_EQ((std::vector<std::string>{
                "Interface|virtual void CCANSensor::OnInterfaceAvailable(IMicroHostSensorMale&)|IMicroHostSensorMale"}),
            Briefs());
  service.Detach(iBroker);
}

TEST_F(CanSensorTest, ServiceAlreadyPresentConnectsDuringConstruction) {
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  SensorPtr sensor = MakeSensor();
  EXPECT_TRUE(service.IsConnected());
  EXPECT_EQ(static_cast<IMicroHostSensorMale*>(&service), sensor->MicroHostSensor());
  sensor.reset();
  EXPECT_FALSE(service.IsConnected());
  service.Detach(iBroker);
}

TEST_F(CanSensorTest, ServiceUnavailabilityClearsThePeerAndKeepsStoreAndTimeBase) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  CSensorStore* store = sensor->SensorStore();
  ClearRecords();
  service.Detach(iBroker);
  EXPECT_EQ(nullptr, sensor->MicroHostSensor());
  EXPECT_EQ(store, sensor->SensorStore());
  EXPECT_EQ(1u, iEventBroker.Timers().size());
  EXPECT_EQ(
      (std::vector<std::string>{
          "Interface|virtual void CCANSensor::OnInterfaceUnavailable(IMicroHostSensorMale&)|IMicroHostSensorMale"}),
      Briefs());
}

// --- SyncTime, Identification, Status ----------------------------------------------------

TEST_F(CanSensorTest, SyncTimeTracesAndPassesTheTimeToTheTimeBase) {
  Osal().SetNow(10000);
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, service.SendSyncTime(4000));
  EXPECT_EQ(6000, sensor->SyncTimeBase().GetSyncTime());
  EXPECT_EQ((std::vector<std::string>{
                "Interface|virtual reflection::TErrCode CCANSensor::SyncTime(IMicroHostSensorMale&, txdr_uint32)|",
                "Interface|virtual TAny CSyncTime::SetMeasuredTime(txdr_uint32)|iCurrentTime=10000 aTime=4000",
                "Info2|SetMeasuredTime|iCurrentTime=10000 aTime=4000", "Info2|SetMeasuredTime|iSyncedTime=6000"}),
            Briefs());
  service.Detach(iBroker);
}

TEST_F(CanSensorTest, FirstSyncTimeSwitchesTheKickPeriodToThirtySeconds) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  iEventBroker.RunUntil(1000);
  service.SendSyncTime(200);
  EXPECT_EQ((std::vector<std::string>{"register 0/10/1000/1", "unregister 0/10/0", "register 0/10/30000/1"}),
            EventCalls());
  service.Detach(iBroker);
}

TEST_F(CanSensorTest, IdentificationTracesAndAnswersZero) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, service.SendIdentification());
  EXPECT_EQ((std::vector<std::string>{"Interface|virtual reflection::TErrCode "
                                      "CCANSensor::Identification(IMicroHostSensorMale&, TIdentificationList&)|"}),
            Briefs());
  service.Detach(iBroker);
}

TEST_F(CanSensorTest, IdentificationLeavesTheListUntouched) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  uint32_t parts[1] = {0x1234};
  TIdentificationList list = {1, parts};
  EXPECT_EQ(0, sensor->Identification(service, list));
  EXPECT_EQ(1, list.size);
  EXPECT_EQ(parts, list.data);
  EXPECT_EQ(0x1234u, parts[0]);
}

TEST_F(CanSensorTest, StatusTracesAndAnswersZero) {
  SensorPtr sensor = MakeSensor();
  host::CMicroHostSensorService service;
  service.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, service.SendStatus(0xDEADBEEF));
  EXPECT_EQ((std::vector<std::string>{
                "Interface|virtual reflection::TErrCode CCANSensor::Status(IMicroHostSensorMale&, TStatus)|"}),
            Briefs());
  service.Detach(iBroker);
}

// --- SensorData ----------------------------------------------------------------------

class CanSensorDataTest : public CanSensorTest {
 protected:
  void SetUp() override {
    CanSensorTest::SetUp();
    iSensor = MakeSensor();
    iService.Attach(iBroker);
    iClient.Attach(iBroker);
    ASSERT_TRUE(iService.IsConnected());
    ASSERT_TRUE(iClient.IsConnected());
    ASSERT_EQ(0, iClient.Subscribe(1, 0));
    ASSERT_EQ(0, iClient.Subscribe(2, 0));
    ClearRecords();
  }
  void TearDown() override {
    iClient.Detach(iBroker);
    iService.Detach(iBroker);
    iSensor.reset();
    CanSensorTest::TearDown();
  }

  static TPosSensorData Record(uint32_t aTimeStamp, uint16_t aDistance, int16_t aRate, uint32_t aDirection,
                               uint8_t aSamples) {
    TPosSensorData record;
    memset(&record, 0, sizeof record);
    record.TimeStamp = aTimeStamp;
    record.DistancePuls = aDistance;
    record.AngularRate = aRate;
    record.DrivingDirection = aDirection;
    record.NrOfSamples = aSamples;
    return record;
  }

  // The odometer's direction code for a driving direction.
  int16_t DirectionCodeFor(uint32_t aDirection) {
    EXPECT_EQ(0, iService.SendSensorData(Record(100, 5, 6, aDirection, 1)));
    return LastSample(*iSensor, 2).values[1];
  }

  SensorPtr iSensor;
  host::CMicroHostSensorService iService;
  host::CPositioningClient iClient{"1"};
};

TEST_F(CanSensorDataTest, SensorDataAnswersZero) {
  EXPECT_EQ(0, iService.SendSensorData(Record(1200, 7, -3, 0x21, 4)));
}

TEST_F(CanSensorDataTest, SensorDataWritesTheTraceTheFiveFieldsAndBothPutDataRecords) {
  iService.SendSensorData(Record(1200, 7, -3, 0x21, 4));
  EXPECT_EQ((std::vector<std::string>{
                std::string("Interface|") + kSensorDataTrace + "|", "Info2|SensorData|AngularRate      : -3",
                "Info2|SensorData|DistancePuls     : 7", "Info2|SensorData|DrivingDirection : 33",
                "Info2|SensorData|TimeStamp        : 1200", "Info2|SensorData|NrOfSamples      : 4",
                std::string("Interface|") + kPutDataTrace + "|Handle: 0",
                std::string("Interface|") + kPutDataTrace + "|Handle: 1"}),
            Briefs());
}

TEST_F(CanSensorDataTest, FieldRecordsUseTheFieldsOwnPieceKinds) {
  iService.SendSensorData(Record(1200, 7, -3, 0x21, 4));
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(8u, records.size());
  EXPECT_EQ((std::vector<PieceKind>{}), MessageKinds(records[0]));
  EXPECT_EQ("()", records[0].Text());
  const PieceKind kinds[] = {PieceKind::I16, PieceKind::U16, PieceKind::U32, PieceKind::U32, PieceKind::U8};
  const char* labels[] = {"AngularRate      : ", "DistancePuls     : ", "DrivingDirection : ", "TimeStamp        : ",
                          "NrOfSamples      : "};
  for (size_t i = 0; i < 5; ++i) {
    const host::LoggedRecord& record = records[i + 1];
    EXPECT_EQ((std::vector<PieceKind>{PieceKind::Text, kinds[i]}), MessageKinds(record)) << Brief(record);
    EXPECT_EQ(labels[i], record.pieces[1].text);
    EXPECT_EQ(19u, record.pieces[1].text.size());
  }
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_NE(std::string::npos, records[i].file.find("Positioning/src/CANSensor")) << records[i].file;
    EXPECT_EQ("logging::Positioning", records[i].module);
    EXPECT_EQ("\n", records[i].lineEnd);
    EXPECT_TRUE(records[i].closed);
  }
}

TEST_F(CanSensorDataTest, FieldRecordsShowExtremeValuesInDecimal) {
  iService.SendSensorData(Record(0xFFFFFFFFu, 0xFFFF, -32768, 0xFFFFFFFFu, 255));
  const std::vector<std::string> briefs = Briefs();
  ASSERT_EQ(8u, briefs.size());
  EXPECT_EQ("Info2|SensorData|AngularRate      : -32768", briefs[1]);
  EXPECT_EQ("Info2|SensorData|DistancePuls     : 65535", briefs[2]);
  EXPECT_EQ("Info2|SensorData|DrivingDirection : 4294967295", briefs[3]);
  EXPECT_EQ("Info2|SensorData|TimeStamp        : 4294967295", briefs[4]);
  EXPECT_EQ("Info2|SensorData|NrOfSamples      : 255", briefs[5]);
}

TEST_F(CanSensorDataTest, GyroscopeSampleCarriesSampleCountAndAngularRate) {
  iService.SendSensorData(Record(1200, 7, -3, 0x21, 4));
  const CSensorStore::TSensorData sample = LastSample(*iSensor, 1);
  EXPECT_EQ(1200u, sample.timeStamp);
  EXPECT_EQ(2, sample.size);
  EXPECT_EQ(4, sample.values[0]);
  EXPECT_EQ(-3, sample.values[1]);
}

TEST_F(CanSensorDataTest, OdometerSampleCarriesDistanceAndDirectionCode) {
  iService.SendSensorData(Record(1200, 7, -3, 0x25, 4));
  const CSensorStore::TSensorData sample = LastSample(*iSensor, 2);
  EXPECT_EQ(1200u, sample.timeStamp);
  EXPECT_EQ(2, sample.size);
  EXPECT_EQ(7, sample.values[0]);
  EXPECT_EQ(2, sample.values[1]);
}

TEST_F(CanSensorDataTest, UnfilledValueSlotsAreZero) {
  iService.SendSensorData(Record(1200, 7, -3, 0x21, 4));
  for (TiPositioningSensorType type : {1, 2}) {
    const CSensorStore::TSensorData sample = LastSample(*iSensor, type);
    for (int i = 2; i < 10; ++i) EXPECT_EQ(0, sample.values[i]) << "type " << type << " slot " << i;
  }
}

TEST_F(CanSensorDataTest, SubscribedClientReceivesGyroscopeThenOdometer) {
  iService.SendSensorData(Record(1200, 7, -3, 0x21, 4));
  ASSERT_EQ(2u, iClient.Samples().size());
  EXPECT_EQ((host::ReceivedSample{1, 1200, {4, -3}}), iClient.Samples()[0]);
  EXPECT_EQ((host::ReceivedSample{2, 1200, {7, 1}}), iClient.Samples()[1]);
}

TEST_F(CanSensorDataTest, EachRecordIsOneSamplePerSensor) {
  iService.SendSensorData(Record(1000, 1, 2, 0x21, 9));
  iService.SendSensorData(Record(1200, 3, 4, 0x21, 9));
  EXPECT_EQ(2, iSensor->SensorStore()->Sensor(0).buffer->iCount);
  EXPECT_EQ(2, iSensor->SensorStore()->Sensor(1).buffer->iCount);
}

TEST_F(CanSensorDataTest, BeforeAnySyncTimeSamplesCarryTheRawTime) {
  Osal().SetNow(50000);
  iEventBroker.RunUntil(51000);  // kicks, but nothing measured
  iService.SendSensorData(Record(1234, 1, 1, 0, 1));
  EXPECT_EQ(1234u, LastSample(*iSensor, 1).timeStamp);
  EXPECT_EQ(1234u, LastSample(*iSensor, 2).timeStamp);
}

TEST_F(CanSensorDataTest, AfterSyncTimeSamplesCarryTheOffsetToTheKick) {
  iEventBroker.RunUntil(10000);  // the last kick at 10000
  iService.SendSyncTime(4000);
  iService.SendSensorData(Record(4100, 1, 1, 0, 1));
  EXPECT_EQ(10100u, LastSample(*iSensor, 1).timeStamp);
  EXPECT_EQ(10100u, LastSample(*iSensor, 2).timeStamp);
  ASSERT_EQ(2u, iClient.Samples().size());
  EXPECT_EQ(10100u, iClient.Samples()[1].timeStamp);
}

TEST_F(CanSensorDataTest, SyncTimeNotOlderThanTheKickLeavesSamplesRaw) {
  iEventBroker.RunUntil(10000);
  iService.SendSyncTime(10000);
  iService.SendSensorData(Record(4100, 1, 1, 0, 1));
  EXPECT_EQ(4100u, LastSample(*iSensor, 1).timeStamp);
}

TEST_F(CanSensorDataTest, TimeStampIsWidenedWithoutSignBeforeTheOffsetIsAdded) {
  iEventBroker.RunUntil(10000);
  iService.SendSyncTime(4000);
  iService.SendSensorData(Record(0xFFFFFFFFu, 1, 1, 0, 1));
  EXPECT_EQ(0xFFFFFFFFull + 6000u, LastSample(*iSensor, 1).timeStamp);
}

TEST_F(CanSensorDataTest, ForwardDirectionBecomesCodeOne) { EXPECT_EQ(1, DirectionCodeFor(0x21)); }

TEST_F(CanSensorDataTest, ReverseDirectionBecomesCodeTwo) { EXPECT_EQ(2, DirectionCodeFor(0x25)); }

TEST_F(CanSensorDataTest, DirectionZeroBecomesCodeZero) { EXPECT_EQ(0, DirectionCodeFor(0)); }

TEST_F(CanSensorDataTest, DirectionNextToForwardBecomesCodeZero) { EXPECT_EQ(0, DirectionCodeFor(0x22)); }

TEST_F(CanSensorDataTest, DirectionMatchingOnlyInItsLowByteBecomesCodeZero) {
  EXPECT_EQ(0, DirectionCodeFor(0x121));
  EXPECT_EQ(0, DirectionCodeFor(0x25000025u));
}

TEST_F(CanSensorDataTest, SampleCountTwoHundredFiftyFiveIsStoredAsTwoHundredFiftyFive) {
  iService.SendSensorData(Record(100, 1, 1, 0, 255));
  EXPECT_EQ(255, LastSample(*iSensor, 1).values[0]);
}

TEST_F(CanSensorDataTest, FullRangeDistanceKeepsItsSixteenBits) {
  iService.SendSensorData(Record(100, 40000, 1, 0, 1));
  EXPECT_EQ(40000, static_cast<uint16_t>(LastSample(*iSensor, 2).values[0]));
}

TEST_F(CanSensorDataTest, NegativeAngularRateIsKept) {
  iService.SendSensorData(Record(100, 1, -32768, 0, 1));
  EXPECT_EQ(-32768, LastSample(*iSensor, 1).values[1]);
}

TEST_F(CanSensorDataTest, AfterTheServiceLeftARecordIsStillConvertedAndStored) {
  iService.Detach(iBroker);
  ASSERT_EQ(nullptr, iSensor->MicroHostSensor());
  ClearRecords();
  TPosSensorData record = Record(900, 11, 12, 0x25, 3);
  EXPECT_EQ(0, iSensor->SensorData(iService, record));
  const CSensorStore::TSensorData gyro = LastSample(*iSensor, 1);
  EXPECT_EQ(900u, gyro.timeStamp);
  EXPECT_EQ(3, gyro.values[0]);
  EXPECT_EQ(12, gyro.values[1]);
  const CSensorStore::TSensorData odo = LastSample(*iSensor, 2);
  EXPECT_EQ(11, odo.values[0]);
  EXPECT_EQ(2, odo.values[1]);
  EXPECT_EQ(8u, ModuleRecords().size());
  EXPECT_EQ(2u, iClient.Samples().size());
}

}  // namespace
