// A daemon written apart from this project (its own declarations in HostContract.h,
// nothing from include/ or host/) loads the built library and drives a CAN feature and
// an EXTERNAL feature end to end: entry points, interface requests, the handshake
// across the two binaries, configuration, subscription with replay, samples stamped in
// synchronised time, the sync timer, and shutdown. It also reads every log record
// back through its own stream, slot by slot.
#include <gtest/gtest.h>

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "HostContract.h"
#include "StandaloneHost.h"

namespace {

using standalone::BrokerCall;
using standalone::CClockSyncService;
using standalone::CEventBroker;
using standalone::CExternalService;
using standalone::CInterfaceBroker;
using standalone::CLoadedModule;
using standalone::CMicroHostService;
using standalone::CPositioningClient;
using standalone::CProperties;
using standalone::EventCall;
using standalone::Record;
using standalone::Records;
using standalone::RecordsOf;
using standalone::Sample;
using standalone::ThePlatform;

const uint16_t kMicroHost = 0x38;
const uint16_t kClockSync = 0x8062;
const uint16_t kExternal = 0x8022;
const uint16_t kPositioning = 34;
const uint64_t kStart = 100000;     // local tick when the feature is made
const uint64_t kPeerBehind = 2500;  // the peers' clocks run this far behind

std::string Describe(const BrokerCall& aCall) {
  return aCall.operation + " " + aCall.instance + " " + std::to_string(aCall.identifier) + "/" +
         std::to_string(aCall.qualifier);
}

std::string Describe(const EventCall& aCall) {
  std::string text = aCall.operation + " " + std::to_string(aCall.registration.eventClass) + "/" +
                     std::to_string(aCall.registration.eventId) + " " + std::to_string(aCall.registration.period);
  if (aCall.operation == "Register") text += " repeat " + std::to_string(aCall.registration.repeat);
  return text;
}

std::string Describe(const Sample& aSample) {
  std::string text = std::to_string(aSample.type) + "@" + std::to_string(aSample.timeStamp);
  for (int16_t value : aSample.values) text += " " + std::to_string(value);
  return text;
}

template <class T>
std::vector<std::string> DescribeAll(const std::vector<T>& aItems, size_t aFrom = 0) {
  std::vector<std::string> texts;
  for (size_t i = aFrom; i < aItems.size(); ++i) texts.push_back(Describe(aItems[i]));
  return texts;
}

std::vector<std::string> Messages(const std::vector<Record>& aRecords) {
  std::vector<std::string> messages;
  for (const Record& record : aRecords) messages.push_back(record.Message());
  return messages;
}

// Whether some record of the module has this function text and message.
bool Logged(const std::string& aFunction, const std::string& aMessage) {
  for (const Record& record : RecordsOf(aFunction))
    if (record.Message() == aMessage) return true;
  return false;
}

class IndependentHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    standalone::Reset();
    iModule.reset(new CLoadedModule(POSITIONING_MODULE_PATH));
    ASSERT_TRUE(iModule->Loaded()) << iModule->Error();
  }
  void TearDown() override {
    delete iFeature;
    iFeature = nullptr;
    ThePlatform().listener = nullptr;
    iModule.reset();
  }

  void Create(const std::string& aDiversity) {
    iProperties.values["diversity"] = aDiversity;
    ThePlatform().now = kStart;
    iFeature = iModule->Create(iFeatureId, iBroker, iEvents, iProperties);
  }
  void Shutdown() {
    delete iFeature;  // through IFeatureModule2, as the daemon does
    iFeature = nullptr;
  }
  // Lets aMilliseconds pass on the daemon's clock, timers included.
  void Pass(uint64_t aMilliseconds) { iEvents.RunUntil(ThePlatform().now + aMilliseconds); }

  // The CAN drive up to live samples: the micro-host service comes, the offset is
  // measured, five records are buffered, the client comes and subscribes with replay,
  // and two more records arrive live.
  void DriveCanToLiveSamples() {
    Create("CAN");
    iBroker.AttachPeer("0", kMicroHost, iMicroHost.Handshake());
    iMicroHost.SendSyncTime(static_cast<txdr_uint32>(kStart - kPeerBehind));
    for (int i = 0; i < 5; ++i) {
      Pass(200);
      iMicroHost.SendSensorData(CanRecord(i, 0x21));
    }
    iBroker.AttachPeer("1", kPositioning, iClient.Handshake());
    iFirstSubscribe = iClient.Subscribe(1, 0);
    iSecondSubscribe = iClient.Subscribe(2, 1);
    Pass(200);
    iMicroHost.SendSensorData(CanRecord(5, 0x25));
    Pass(200);
    iMicroHost.SendSensorData(CanRecord(6, 0x22));
  }
  // Record i of the CAN drive: 200 ms apart in the micro-controller's clock.
  static TPosSensorData CanRecord(int i, uint32_t aDirection) {
    TPosSensorData record = {};
    record.TimeStamp = static_cast<uint32_t>(kStart - kPeerBehind + 100 + 200 * i);
    record.DistancePuls = static_cast<uint16_t>(10 + i);
    record.AngularRate = static_cast<int16_t>(i - 3);
    record.DrivingDirection = aDirection;
    record.NrOfSamples = 10;
    return record;
  }

  // The EXTERNAL drive up to live samples: the clock-sync service comes (pulse and
  // report), the external service comes and announces its sensors, four records are
  // buffered, the client comes and subscribes with replay, two records arrive live.
  void DriveExternalToLiveSamples() {
    Create("EXTERNAL");
    ThePlatform().listener = &iClockSync;
    iBroker.AttachPeer("0", kClockSync, iClockSync.Handshake());
    iClockSync.ReportLastPulse();
    iBroker.AttachPeer("0", kExternal, iExternal.Handshake());
    TiPositioningSensorEntry entries[] = {{0x8000, 1, 200, 4}, {3, 0, 100, 1}};
    TiPositioningSensorConfiguration announced = {2, entries};
    iExternal.SendConfiguration(announced);
    for (int i = 0; i < 4; ++i) {
      Pass(200);
      SendExternalRecord(i);
    }
    iBroker.AttachPeer("2", kPositioning, iClient.Handshake());
    iFirstSubscribe = iClient.Subscribe(1, 0);
    iSecondSubscribe = iClient.Subscribe(2, 1);
    for (int i = 4; i < 6; ++i) {
      Pass(200);
      SendExternalRecord(i);
    }
  }
  void SendExternalRecord(int i) {
    iExternal.SendSensorData(0x8000, kStart - kPeerBehind + 100 + 200 * i,
                             {static_cast<int16_t>(i), static_cast<int16_t>(-i), static_cast<int16_t>(100 + i), 1});
  }

  std::unique_ptr<CLoadedModule> iModule;
  TFeatureId iFeatureId = "positioning-independent";
  CInterfaceBroker iBroker;
  CEventBroker iEvents;
  CProperties iProperties;
  IFeatureModule2* iFeature = nullptr;
  CMicroHostService iMicroHost;
  CClockSyncService iClockSync{kPeerBehind};
  CExternalService iExternal;
  CPositioningClient iClient;
  reflection::TErrCode iFirstSubscribe = -1;
  reflection::TErrCode iSecondSubscribe = -1;
};

// ---------------------------------------------------------------------------------
// Loading

TEST_F(IndependentHostTest, LoadsWithEveryHostSymbolTakenFromThisProcess) {
  // dlopen with RTLD_NOW in SetUp resolved every undefined symbol here.
  EXPECT_STREQ("positioning", iModule->FeatureType());
}

TEST_F(IndependentHostTest, FeatureAsksForDiversityWithItsOwnIdentifier) {
  Create("CAN");
  ASSERT_NE(nullptr, iFeature);
  EXPECT_EQ(std::vector<std::string>{"positioning-independent/diversity"}, iProperties.asked);
  EXPECT_EQ((std::vector<std::string>{"Diversity: CAN", "CANSensor is being created..."}),
            Messages(RecordsOf("CPositioning")));
}

// ---------------------------------------------------------------------------------
// CAN drive

TEST_F(IndependentHostTest, CanFeatureRequestsTheMicroHostServiceSharedAndOffersItsOwnService) {
  Create("CAN");
  EXPECT_EQ((std::vector<std::string>{"RequestSharedInterface 0 56/0", "RequestInterface 1 34/0"}),
            DescribeAll(iBroker.calls));
  for (const BrokerCall& call : iBroker.calls) EXPECT_EQ(iFeatureId, call.feature);
  EXPECT_TRUE(iBroker.misuse.empty());
  EXPECT_EQ(std::vector<std::string>{"Register 0/10 1000 repeat 1"}, DescribeAll(iEvents.calls));
}

TEST_F(IndependentHostTest, CanHandshakeConnectsBothEndsAcrossTheBinaries) {
  Create("CAN");
  iBroker.AttachPeer("0", kMicroHost, iMicroHost.Handshake());
  ASSERT_NE(nullptr, iMicroHost.partner());
  // The module converted our handshake object to our service interface by name.
  const std::vector<Record> registers = RecordsOf("Register");
  ASSERT_EQ(1u, registers.size());
  const Record& record = registers[0];
  EXPECT_EQ("logging::FeatureFw", record.module);
  // "(" peer " (" converted ")" ")"
  ASSERT_EQ("pointer text pointer text", record.Kinds());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(iMicroHost.Handshake()), record.pieces[1].raw);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(static_cast<IMicroHostSensorMale*>(&iMicroHost)), record.pieces[3].raw);
  EXPECT_NE(record.pieces[1].raw, record.pieces[3].raw);
  EXPECT_TRUE(Logged("virtual void CCANSensor::OnInterfaceAvailable(IMicroHostSensorMale&)", "IMicroHostSensorMale"));
}

TEST_F(IndependentHostTest, CanServiceCallbacksAnswerZero) {
  Create("CAN");
  iBroker.AttachPeer("0", kMicroHost, iMicroHost.Handshake());
  TIdentificationList list = {2, {7, 8, 0, 0}};
  EXPECT_EQ(0, iMicroHost.SendStatus(0x55));
  EXPECT_EQ(0, iMicroHost.SendIdentification(list));
  EXPECT_EQ(0, iMicroHost.SendSyncTime(97500));
  EXPECT_EQ(0, iMicroHost.SendSensorData(CanRecord(0, 0x21)));
  EXPECT_EQ(1u, RecordsOf("virtual reflection::TErrCode CCANSensor::Status(IMicroHostSensorMale&, TStatus)").size());
  EXPECT_EQ(1u, RecordsOf("virtual reflection::TErrCode CCANSensor::Identification(IMicroHostSensorMale&, "
                          "TIdentificationList&)")
                    .size());
}

TEST_F(IndependentHostTest, CanMeasuredOffsetSwitchesTheSyncTimerToThirtySeconds) {
  Create("CAN");
  iBroker.AttachPeer("0", kMicroHost, iMicroHost.Handshake());
  iMicroHost.SendSyncTime(static_cast<txdr_uint32>(kStart - kPeerBehind));
  EXPECT_EQ(
      (std::vector<std::string>{"Register 0/10 1000 repeat 1", "Unregister 0/10 0", "Register 0/10 30000 repeat 1"}),
      DescribeAll(iEvents.calls));
  EXPECT_EQ((std::vector<std::string>{"iCurrentTime=100000 aTime=97500", "iSyncedTime=2500"}),
            Messages(RecordsOf("SetMeasuredTime")));
}

TEST_F(IndependentHostTest, CanClientGetsTheConfigurationOnConnection) {
  DriveCanToLiveSamples();
  EXPECT_EQ(1, iClient.configurations);
  ASSERT_EQ(2u, iClient.configuration.size());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(i + 1, iClient.configuration[i].sensorType);
    EXPECT_EQ(1, iClient.configuration[i].sensorParameter);
    EXPECT_EQ(200, iClient.configuration[i].samplePeriod);
    EXPECT_EQ(2, iClient.configuration[i].valueCount);
  }
  EXPECT_TRUE(iClient.fromPartner);
}

TEST_F(IndependentHostTest, CanSubscriptionReplaysTheBufferedGyroscopeSamplesInSynchronisedTime) {
  DriveCanToLiveSamples();
  EXPECT_EQ(0, iFirstSubscribe);
  EXPECT_EQ(0, iSecondSubscribe);
  ASSERT_GE(iClient.samples.size(), 5u);
  const std::vector<Sample> replayed(iClient.samples.begin(), iClient.samples.begin() + 5);
  EXPECT_EQ((std::vector<std::string>{"1@100100 10 -3", "1@100300 10 -2", "1@100500 10 -1", "1@100700 10 0",
                                      "1@100900 10 1"}),
            DescribeAll(replayed));
  EXPECT_TRUE(Logged("Subscribe", "bufferd data size=5"));
}

TEST_F(IndependentHostTest, CanLiveSamplesCarryBothSensorsInSynchronisedTime) {
  DriveCanToLiveSamples();
  EXPECT_EQ((std::vector<std::string>{"1@101100 10 2", "2@101100 15 2", "1@101300 10 3", "2@101300 16 0"}),
            DescribeAll(iClient.samples, 5));
}

TEST_F(IndependentHostTest, CanSyncTimerKicksAndANewMeasurementMovesTheOffset) {
  DriveCanToLiveSamples();
  iEvents.RunUntil(kStart + 30000);
  EXPECT_EQ(1u, iEvents.fired);
  EXPECT_TRUE(Logged("OnEvent", "KickSyncTime"));
  EXPECT_TRUE(Logged("getDateTimeInMS", "iCurrentTime = 130000"));
  // The micro-controller's clock has drifted by 10 ms since the first measurement.
  iMicroHost.SendSyncTime(static_cast<txdr_uint32>(kStart + 30000 - kPeerBehind + 10));
  const size_t before = iClient.samples.size();
  TPosSensorData record = CanRecord(0, 0x21);
  record.TimeStamp = static_cast<uint32_t>(kStart + 30000 - kPeerBehind + 10 + 100);
  iMicroHost.SendSensorData(record);
  EXPECT_EQ((std::vector<std::string>{"1@130100 10 -3", "2@130100 10 1"}), DescribeAll(iClient.samples, before));
}

TEST_F(IndependentHostTest, CanShutdownRevokesTheServiceThenTheOfferThenStopsTheTimer) {
  DriveCanToLiveSamples();
  const size_t brokerCalls = iBroker.calls.size();
  const size_t eventCalls = iEvents.calls.size();
  Shutdown();
  EXPECT_EQ((std::vector<std::string>{"RevokeInterface 0 56/0", "RevokeInterface 1 34/0"}),
            DescribeAll(iBroker.calls, brokerCalls));
  EXPECT_EQ(std::vector<std::string>{"Unregister 0/10 0"}, DescribeAll(iEvents.calls, eventCalls));
  EXPECT_EQ(nullptr, iMicroHost.partner());
  EXPECT_EQ(nullptr, iClient.partner());
  EXPECT_TRUE(Logged("virtual CPositioning::~CPositioning()", ""));
}

// ---------------------------------------------------------------------------------
// EXTERNAL drive

TEST_F(IndependentHostTest, ExternalFeatureRequestsBothServicesAndOffersItsOwnService) {
  Create("EXTERNAL");
  EXPECT_EQ(
      (std::vector<std::string>{"RequestInterface 0 32866/1", "RequestInterface 0 32802/1", "RequestInterface 2 34/0"}),
      DescribeAll(iBroker.calls));
  EXPECT_TRUE(iEvents.calls.empty());
  EXPECT_EQ((std::vector<std::string>{"Diversity: EXTERNAL", "ExternalSensor is being created..."}),
            Messages(RecordsOf("CPositioning")));
}

TEST_F(IndependentHostTest, ExternalClockSyncServicePulsesTheClockSyncPinAndStartsTheTimer) {
  Create("EXTERNAL");
  ThePlatform().listener = &iClockSync;
  iBroker.AttachPeer("0", kClockSync, iClockSync.Handshake());
  ASSERT_NE(nullptr, iClockSync.partner());
  ASSERT_EQ(2u, ThePlatform().pins.size());
  EXPECT_EQ(7u, ThePlatform().pins[0].pin);
  EXPECT_EQ(1u, ThePlatform().pins[0].level);
  EXPECT_EQ(7u, ThePlatform().pins[1].pin);
  EXPECT_EQ(0u, ThePlatform().pins[1].level);
  EXPECT_EQ(std::vector<int>{50000}, ThePlatform().sleeps);
  EXPECT_EQ(std::vector<unsigned int>{97500}, iClockSync.pulses);
  EXPECT_EQ(std::vector<std::string>{"Register 0/10 1000 repeat 1"}, DescribeAll(iEvents.calls));
  EXPECT_EQ(0, iClockSync.ReportLastPulse());
  EXPECT_TRUE(Logged("TimeStampReport", "TimeStampReport: 97500"));
  EXPECT_TRUE(Logged("SetMeasuredTime", "iSyncedTime=2500"));
}

TEST_F(IndependentHostTest, ExternalConfigurationIsLoggedAndSubscribesToTheCombinedRecord) {
  DriveExternalToLiveSamples();
  ASSERT_EQ(1u, iExternal.subscriptions.size());
  EXPECT_EQ(0x8000, iExternal.subscriptions[0].type);
  EXPECT_EQ(1, iExternal.subscriptions[0].flag);
  EXPECT_EQ(iExternal.partner(), iExternal.subscriptions[0].subscriber);
  EXPECT_EQ((std::vector<std::string>{"Configuration Size        : 2", "Configuration, Sensor Index        : 0",
                                      "Configuration, Sensor Type        : 32768",
                                      "Configuration, Sensor Index        : 1", "Configuration, Sensor Type        : 3",
                                      "Subscription to positioning sensor is succesful!"}),
            Messages(RecordsOf("Configuration")));
}

TEST_F(IndependentHostTest, ExternalSubscriptionReplaysTheBufferedFirstSensorInSynchronisedTime) {
  DriveExternalToLiveSamples();
  EXPECT_EQ(0, iFirstSubscribe);
  EXPECT_EQ(0, iSecondSubscribe);
  ASSERT_GE(iClient.samples.size(), 4u);
  const std::vector<Sample> replayed(iClient.samples.begin(), iClient.samples.begin() + 4);
  EXPECT_EQ((std::vector<std::string>{"1@100100 0 0", "1@100300 1 -1", "1@100500 2 -2", "1@100700 3 -3"}),
            DescribeAll(replayed));
  EXPECT_TRUE(iClient.fromPartner);
}

TEST_F(IndependentHostTest, ExternalLiveRecordsSplitIntoBothSensorsInSynchronisedTime) {
  DriveExternalToLiveSamples();
  EXPECT_EQ((std::vector<std::string>{"1@100900 4 -4", "2@100900 104 1", "1@101100 5 -5", "2@101100 105 1"}),
            DescribeAll(iClient.samples, 4));
}

TEST_F(IndependentHostTest, ExternalSyncTimerPulsesAgainAndTheNewReportMovesTheOffset) {
  DriveExternalToLiveSamples();
  iEvents.RunUntil(kStart + 30000);
  EXPECT_EQ(1u, iEvents.fired);
  ASSERT_EQ(4u, ThePlatform().pins.size());
  EXPECT_EQ(kStart + 30000, ThePlatform().pins[2].at);
  // The main unit's clock has drifted by 10 ms.
  iClockSync.SetOffset(kPeerBehind - 10);
  iClockSync.pulses.back() += 10;
  iClockSync.ReportLastPulse();
  const size_t before = iClient.samples.size();
  iExternal.SendSensorData(0x8000, kStart + 30000 - kPeerBehind + 10 + 100, {7, 8, 9, 10});
  EXPECT_EQ((std::vector<std::string>{"1@130100 7 8", "2@130100 9 10"}), DescribeAll(iClient.samples, before));
}

TEST_F(IndependentHostTest, ExternalShutdownRevokesBothServicesThenTheOfferAndStopsTheTimer) {
  DriveExternalToLiveSamples();
  const size_t brokerCalls = iBroker.calls.size();
  const size_t eventCalls = iEvents.calls.size();
  Shutdown();
  EXPECT_EQ(
      (std::vector<std::string>{"RevokeInterface 0 32866/1", "RevokeInterface 0 32802/1", "RevokeInterface 2 34/0"}),
      DescribeAll(iBroker.calls, brokerCalls));
  EXPECT_EQ(std::vector<std::string>{"Unregister 0/10 0"}, DescribeAll(iEvents.calls, eventCalls));
  EXPECT_EQ(nullptr, iClockSync.partner());
  EXPECT_EQ(nullptr, iExternal.partner());
  EXPECT_EQ(nullptr, iClient.partner());
}

// ---------------------------------------------------------------------------------
// The logging contract, read back through this daemon's own stream

TEST_F(IndependentHostTest, EveryRecordIsOpenedWithTheNumbersOfItsTagAndCategory) {
  DriveCanToLiveSamples();
  Shutdown();
  DriveExternalToLiveSamples();
  ASSERT_GT(Records().size(), 100u);
  for (const Record& record : Records()) {
    const uint32_t module = record.module == "logging::Positioning" ? 81
                            : record.module == "logging::FeatureFw" ? 3
                                                                    : 0;
    uint32_t category = 0;
    if (record.category == "logging::categories::Error") category = 1;
    if (record.category == "logging::categories::Info") category = 4;
    if (record.category == "logging::categories::Info2") category = 8;
    if (record.category == "logging::categories::Interface") category = 16;
    EXPECT_NE(0u, module) << record.module;
    EXPECT_NE(0u, category) << record.category;
    EXPECT_EQ(module, record.moduleNumber) << record.function;
    EXPECT_EQ(category, record.categoryNumber) << record.function;
    EXPECT_EQ(static_cast<TBool>(100 + category), record.enabled) << record.function;
  }
}

TEST_F(IndependentHostTest, EveryRecordIsBracketedEndedAndClosed) {
  DriveCanToLiveSamples();
  Shutdown();
  for (const Record& record : Records()) {
    ASSERT_GE(record.pieces.size(), 2u) << record.function;
    EXPECT_EQ("text", record.pieces.front().kind) << record.function;
    EXPECT_EQ("(", record.pieces.front().text) << record.function;
    EXPECT_EQ(")", record.pieces.back().text) << record.function;
    EXPECT_EQ("\n", record.lineEnd) << record.function;
    EXPECT_TRUE(record.closed) << record.function;
    const bool ownSource = record.file.find("Positioning/src/") != std::string::npos;
    const bool frameworkSource = record.file.find("include/ReflectionInterface") != std::string::npos;
    EXPECT_TRUE(ownSource || frameworkSource) << record.file;
    EXPECT_GT(record.line, 0) << record.function;
  }
}

TEST_F(IndependentHostTest, CanSampleDumpUsesTheStreamSlotOfEachFieldType) {
  DriveCanToLiveSamples();
  std::vector<std::string> dumps;
  for (const Record& record : RecordsOf("SensorData")) {
    if (record.category != "logging::categories::Info2") continue;
    dumps.push_back(record.Kinds() + " | " + record.Message());
    if (dumps.size() == 5) break;
  }
  EXPECT_EQ((std::vector<std::string>{"text i16 | AngularRate      : -3", "text u16 | DistancePuls     : 10",
                                      "text u32 | DrivingDirection : 33", "text u32 | TimeStamp        : 97600",
                                      "text u8 | NrOfSamples      : 10"}),
            dumps);
}

TEST_F(IndependentHostTest, ExternalRecordsUseTheUnsignedSixteenAndThirtyTwoBitSlots) {
  DriveExternalToLiveSamples();
  const std::vector<Record> records = RecordsOf("SensorData");
  ASSERT_FALSE(records.empty());
  // Record 1: values 1, -1, 101, 1; -1 arrives sign-extended as its unsigned equivalent.
  ASSERT_GE(records.size(), 2u);
  EXPECT_EQ("text u16 text u32 text u32 text u32 text u32 text i32 text", records[1].Kinds());
  EXPECT_EQ(", 32768, 1, 4294967295, 101, 1, 97800, ", records[1].Message());
}

TEST_F(IndependentHostTest, SubscriptionRecordsUseTheSixteenBitThirtyTwoBitAndTruthSlots) {
  DriveCanToLiveSamples();
  const std::vector<Record> entries = RecordsOf(
      "virtual reflection::TErrCode CSensorStore::Subscribe(IPositioningSensorMale&, TiPositioningSensorType, "
      "txdr_bool)");
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ("text u16 text i32", entries[1].Kinds());
  EXPECT_EQ("Type: 2, RequestBufferedData: 1", entries[1].Message());
  bool found = false;
  for (const Record& record : RecordsOf("Subscribe")) {
    if (record.Kinds() != "text bool") continue;
    EXPECT_EQ("All sensors are subscribed, aRequestBufferedData=true", record.Message());
    found = true;
  }
  EXPECT_TRUE(found);
}

TEST_F(IndependentHostTest, TimeRecordsUseTheSixtyFourBitSlot) {
  DriveCanToLiveSamples();
  const std::vector<Record> records = RecordsOf("getDateTimeInMS");
  ASSERT_FALSE(records.empty());
  EXPECT_EQ("text i64", records[0].Kinds());
  EXPECT_EQ("iCurrentTime = 100000", records[0].Message());
  const std::vector<Record> measured = RecordsOf("virtual TAny CSyncTime::SetMeasuredTime(txdr_uint32)");
  ASSERT_EQ(1u, measured.size());
  EXPECT_EQ("text i64 text u32", measured[0].Kinds());
  EXPECT_EQ("iCurrentTime=100000 aTime=97500", measured[0].Message());
}

}  // namespace
