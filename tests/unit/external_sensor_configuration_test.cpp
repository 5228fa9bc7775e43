// CExternalSensor::Configuration: the sensors the external service announces are logged
// entry by entry, and the source subscribes to the combined record (0x8000) on the
// service recorded by the availability report. The store is never rebuilt from it.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ContractConstants.h"
#include "ExternalSensor.h"
#include "LoggedRecord.h"
#include "SimulatedPeers.h"
#include "TestHost.h"

namespace {

using host::CExternalPositioningService;
using host::LogPiece;
using host::PieceKind;
using testing_host::HostTest;

const char kConfigurationTrace[] =
    "virtual reflection::TErrCode CExternalSensor::Configuration(IHalvikPositioningSensorFemale&, "
    "TiPositioningSensorConfiguration&)";
const char kSizeText[] = "Configuration Size        : ";
const char kIndexText[] = "Configuration, Sensor Index        : ";
const char kTypeText[] = "Configuration, Sensor Type        : ";
const char kSubscribed[] = "Subscription to positioning sensor is succesful!";
const char kSubscriptionFailed[] = "Subscription to positioning sensor failed!";
const char kNotAvailable[] = "iHalvikPositioningSensorFemale is not available...";

// "Info Configuration (Configuration Size        : 2)"
std::string Summary(const host::LoggedRecord& aRecord) {
  return aRecord.CategoryName() + " " + aRecord.function + " " + aRecord.Text();
}

std::string Info(const std::string& aMessage) { return "Info Configuration (" + aMessage + ")"; }

TiPositioningSensorEntry Entry(TiPositioningSensorType aType) {
  TiPositioningSensorEntry entry = {};
  entry.sensorType = aType;
  entry.sensorParameter = 9;
  entry.samplePeriod = 100;
  entry.valueCount = 3;
  return entry;
}

// An external service that announces its sensors as soon as it is connected, that is
// before the module's end has heard of the connection.
class CHastyPositioningService : public CExternalPositioningService {
 public:
  reflection::TErrCode iAnswer = -7;

 protected:
  void OnAvailable(IHalvikPositioningSensorMale&) override { iAnswer = SendConfiguration({Entry(1), Entry(2)}); }
};

class ExternalSensorConfigurationTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    iSensor.reset(new CExternalSensor(iFeatureId, iBroker, iEventBroker));
  }
  void TearDown() override {
    iSensor.reset();
    HostTest::TearDown();
  }

  // The module's records from the Configuration entry trace on.
  std::vector<host::LoggedRecord> ConfigurationRecords() const {
    std::vector<host::LoggedRecord> records = ModuleRecords();
    for (size_t i = 0; i < records.size(); ++i) {
      if (records[i].function == kConfigurationTrace)
        return std::vector<host::LoggedRecord>(records.begin() + i, records.end());
    }
    return std::vector<host::LoggedRecord>();
  }
  std::vector<std::string> ConfigurationSummaries() const {
    std::vector<std::string> summaries;
    for (const host::LoggedRecord& record : ConfigurationRecords()) summaries.push_back(Summary(record));
    return summaries;
  }
  static std::string Trace() { return std::string("Interface ") + kConfigurationTrace + " ()"; }

  CExternalPositioningService iService;
  CHastyPositioningService iHasty;
  std::unique_ptr<CExternalSensor> iSensor;
};

TEST_F(ExternalSensorConfigurationTest, ConfigurationLogsTheSizeThenIndexAndTypeOfEachEntryThenSubscribes) {
  iService.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, iService.SendConfiguration({Entry(1), Entry(2)}));
  EXPECT_EQ((std::vector<std::string>{
                Trace(),
                Info(std::string(kSizeText) + "2"),
                Info(std::string(kIndexText) + "0"),
                Info(std::string(kTypeText) + "1"),
                Info(std::string(kIndexText) + "1"),
                Info(std::string(kTypeText) + "2"),
                Info(kSubscribed),
            }),
            ConfigurationSummaries());
  for (const host::LoggedRecord& record : ConfigurationRecords()) {
    EXPECT_EQ("Positioning/src/ExternalSensor.cpp", record.file);
    EXPECT_EQ("logging::Positioning", record.module);
  }
}

TEST_F(ExternalSensorConfigurationTest, TheSizeIsAnUnsigned8BitNumberTheIndexA32BitIntegerAndTheTypeUnsigned16Bit) {
  iService.Attach(iBroker);
  ClearRecords();
  iService.SendConfiguration({Entry(contract::kCombinedRecord)});
  const std::vector<host::LoggedRecord> records = ConfigurationRecords();
  ASSERT_EQ(5u, records.size());
  const auto expectPieces = [](const host::LoggedRecord& aRecord, const char* aText, PieceKind aKind, int64_t aNumber) {
    ASSERT_EQ(4u, aRecord.pieces.size());
    EXPECT_EQ("(", aRecord.pieces[0].text);
    EXPECT_EQ(PieceKind::Text, aRecord.pieces[1].kind);
    EXPECT_EQ(aText, aRecord.pieces[1].text);
    EXPECT_EQ(aKind, aRecord.pieces[2].kind);
    EXPECT_EQ(aNumber, aRecord.pieces[2].number);
    EXPECT_EQ(")", aRecord.pieces[3].text);
    EXPECT_EQ("\n", aRecord.lineEnd);
  };
  expectPieces(records[1], kSizeText, PieceKind::U8, 1);
  expectPieces(records[2], kIndexText, PieceKind::I32, 0);
  expectPieces(records[3], kTypeText, PieceKind::U16, contract::kCombinedRecord);
}

TEST_F(ExternalSensorConfigurationTest, ConfigurationSubscribesToTheCombinedRecordWithTheFlagSet) {
  iService.Attach(iBroker);
  iService.SendConfiguration({Entry(1), Entry(2)});
  ASSERT_EQ(1u, iService.Subscriptions().size());
  EXPECT_EQ(contract::kCombinedRecord, iService.Subscriptions()[0].type);
  EXPECT_EQ(1, iService.Subscriptions()[0].flag);
}

TEST_F(ExternalSensorConfigurationTest, ARefusedSubscriptionIsLoggedAtInfoAndConfigurationStillAnswersZero) {
  iService.Attach(iBroker);
  iService.SetSubscribeResult(5);
  ClearRecords();
  EXPECT_EQ(0, iService.SendConfiguration({Entry(1)}));
  EXPECT_EQ((std::vector<std::string>{
                Trace(),
                Info(std::string(kSizeText) + "1"),
                Info(std::string(kIndexText) + "0"),
                Info(std::string(kTypeText) + "1"),
                Info(kSubscriptionFailed),
            }),
            ConfigurationSummaries());
  EXPECT_EQ(1u, iService.Subscriptions().size());
}

TEST_F(ExternalSensorConfigurationTest, EachConfigurationCallSubscribesAgain) {
  iService.Attach(iBroker);
  iService.SetSubscribeResult(3);
  iService.SendConfiguration({Entry(1)});
  iService.SetSubscribeResult(0);
  iService.SendConfiguration({Entry(1)});
  EXPECT_EQ(2u, iService.Subscriptions().size());
  EXPECT_EQ(Info(kSubscribed), Summary(ModuleRecords().back()));
}

TEST_F(ExternalSensorConfigurationTest, ConfigurationWithoutTheServiceDoesNotSubscribeAndAnswersZero) {
  TiPositioningSensorEntry entries[] = {Entry(1), Entry(2)};
  TiPositioningSensorConfiguration config = {2, entries};
  ClearRecords();
  EXPECT_EQ(0, iSensor->Configuration(iService, config));
  EXPECT_EQ((std::vector<std::string>{
                Trace(),
                Info(std::string(kSizeText) + "2"),
                Info(std::string(kIndexText) + "0"),
                Info(std::string(kTypeText) + "1"),
                Info(std::string(kIndexText) + "1"),
                Info(std::string(kTypeText) + "2"),
                Info(kNotAvailable),
            }),
            ConfigurationSummaries());
  EXPECT_TRUE(iService.Subscriptions().empty());
}

TEST_F(ExternalSensorConfigurationTest, AConfigurationArrivingBeforeTheAvailabilityReportDoesNotSubscribe) {
  ClearRecords();
  iHasty.Attach(iBroker);
  EXPECT_EQ(0, iHasty.iAnswer);
  EXPECT_TRUE(iHasty.Subscriptions().empty());
  const std::vector<std::string> summaries = ConfigurationSummaries();
  ASSERT_EQ(8u, summaries.size());
  EXPECT_EQ(Info(kNotAvailable), summaries[6]);
  // The availability report follows, and only then is the service recorded.
  EXPECT_EQ(
      "Interface virtual void CExternalSensor::OnInterfaceAvailable(IHalvikPositioningSensorFemale&) "
      "(HalvikPositioningSensor available...)",
      summaries[7]);
  EXPECT_EQ(1, iSensor->PositioningSensorAvailable());
}

TEST_F(ExternalSensorConfigurationTest, TheSubscriptionGoesToTheServiceOfTheAvailabilityReportNotToTheCaller) {
  iService.Attach(iBroker);
  CExternalPositioningService other;
  TiPositioningSensorEntry entries[] = {Entry(1)};
  TiPositioningSensorConfiguration config = {1, entries};
  EXPECT_EQ(0, iSensor->Configuration(other, config));
  EXPECT_TRUE(other.Subscriptions().empty());
  ASSERT_EQ(1u, iService.Subscriptions().size());
  EXPECT_EQ(contract::kCombinedRecord, iService.Subscriptions()[0].type);
}

TEST_F(ExternalSensorConfigurationTest, AfterTheServiceWentAwayConfigurationNoLongerSubscribes) {
  iService.Attach(iBroker);
  iService.Detach(iBroker);
  TiPositioningSensorEntry entries[] = {Entry(1)};
  TiPositioningSensorConfiguration config = {1, entries};
  ClearRecords();
  EXPECT_EQ(0, iSensor->Configuration(iService, config));
  EXPECT_TRUE(iService.Subscriptions().empty());
  EXPECT_EQ(Info(kNotAvailable), Summary(ModuleRecords().back()));
}

TEST_F(ExternalSensorConfigurationTest, AnEmptyConfigurationLogsOnlyTheSizeThenSubscribes) {
  iService.Attach(iBroker);
  ClearRecords();
  EXPECT_EQ(0, iService.SendConfiguration({}));
  EXPECT_EQ((std::vector<std::string>{Trace(), Info(std::string(kSizeText) + "0"), Info(kSubscribed)}),
            ConfigurationSummaries());
  EXPECT_EQ(1u, iService.Subscriptions().size());
}

TEST_F(ExternalSensorConfigurationTest, TwoHundredFiftyFiveEntriesAreLoggedWithIndicesZeroToTwoHundredFiftyFour) {
  iService.Attach(iBroker);
  std::vector<TiPositioningSensorEntry> entries;
  for (int i = 0; i < 255; ++i) entries.push_back(Entry(static_cast<TiPositioningSensorType>(1000 + i)));
  ClearRecords();
  EXPECT_EQ(0, iService.SendConfiguration(entries));

  std::vector<std::string> expected{Trace(), Info(std::string(kSizeText) + "255")};
  for (int i = 0; i < 255; ++i) {
    expected.push_back(Info(std::string(kIndexText) + std::to_string(i)));
    expected.push_back(Info(std::string(kTypeText) + std::to_string(1000 + i)));
  }
  expected.push_back(Info(kSubscribed));
  EXPECT_EQ(expected, ConfigurationSummaries());
  EXPECT_EQ(PieceKind::U8, ConfigurationRecords()[1].pieces[2].kind);
}

TEST_F(ExternalSensorConfigurationTest, AnnouncedTypesOtherThanOneAndTwoLeaveTheStoreAsItWas) {
  iService.Attach(iBroker);
  CSensorStore* store = iSensor->SensorStore();
  iService.SendConfiguration({Entry(5), Entry(contract::kCombinedRecord), Entry(2), Entry(7)});

  EXPECT_EQ(store, iSensor->SensorStore());
  ASSERT_EQ(2, store->SensorCount());
  const TiPositioningSensorConfiguration& config = store->PositioningSensorConfig();
  ASSERT_EQ(2, config.size);
  EXPECT_EQ(1, config.data[0].sensorType);
  EXPECT_EQ(2, config.data[1].sensorType);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(1, config.data[i].sensorParameter);
    EXPECT_EQ(200, config.data[i].samplePeriod);
    EXPECT_EQ(2, config.data[i].valueCount);
  }
  EXPECT_EQ(-1, store->GetBufferHandle(5));
  EXPECT_EQ(-1, store->GetBufferHandle(contract::kCombinedRecord));
  EXPECT_EQ(0, iSensor->FirstSensorHandle());
  EXPECT_EQ(1, iSensor->SecondSensorHandle());
  ASSERT_EQ(1u, iService.Subscriptions().size());
  EXPECT_EQ(contract::kCombinedRecord, iService.Subscriptions()[0].type);
}

TEST_F(ExternalSensorConfigurationTest, ConfigurationChangesNoStateOfTheSensor) {
  iService.Attach(iBroker);
  iService.SendSensorData(contract::kCombinedRecord, 1500, {1, 2, 3, 4});
  iService.SendConfiguration({Entry(1), Entry(2)});
  EXPECT_EQ(1, iSensor->PositioningSensorAvailable());
  EXPECT_EQ(static_cast<IHalvikPositioningSensorFemale*>(&iService), iSensor->PositioningSensor());
  EXPECT_EQ(1500u, iSensor->LastTimeStamp());
  EXPECT_EQ(nullptr, iSensor->SyncTimeBase());
  EXPECT_EQ(1, iSensor->SensorStore()->Sensor(0).buffer->iCount);
}

}  // namespace
