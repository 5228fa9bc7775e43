// The feature object: which sensor source each "diversity" value creates, the records
// its constructor and destructor write, what it hands on to the source, and that a
// feature without a source deletes nothing. Also the exported FeatureType.
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "CANSensor.h"
#include "ContractConstants.h"
#include "ExternalSensor.h"
#include "InterfaceBroker.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "Positioning.h"
#include "TestHost.h"

namespace {

using testing_host::HostTest;

const char kFile[] = "Positioning/src/Positioning.cpp";
const char kConstructor[] =
    "CPositioning::CPositioning(const TFeatureId&, IInterfaceBroker&, IEventBroker&, const IFeatureProperties&)";
const char kDestructor[] = "virtual CPositioning::~CPositioning()";

// Everything a record carries, on one line, so that a whole sequence compares at once.
std::string Full(const host::LoggedRecord& aRecord) {
  return aRecord.category + " | " + aRecord.module + " | " + aRecord.function + " | " + aRecord.file + ":" +
         std::to_string(aRecord.line) + " | " + aRecord.Text() + (aRecord.lineEnd == "\n" ? " | \\n" : " | ?") +
         (aRecord.closed ? "" : " | open");
}

std::string Expected(const std::string& aCategory, const std::string& aFunction, int aLine,
                     const std::string& aMessage) {
  return "logging::categories::" + aCategory + " | logging::Positioning | " + aFunction + " | " + kFile + ":" +
         std::to_string(aLine) + " | (" + aMessage + ") | \\n";
}

std::string ConstructorTrace() { return Expected("Interface", kConstructor, 39, ""); }
std::string DestructorTrace() { return Expected("Interface", kDestructor, 72, ""); }
std::string DiversityRecord(const std::string& aValue) {
  return Expected("Info", "CPositioning", 44, "Diversity: " + aValue);
}

// Records written from the feature's own source file, in order.
std::vector<std::string> FeatureRecords() {
  std::vector<std::string> found;
  for (const host::LoggedRecord& record : host::CLogFacility::Instance().Records()) {
    if (record.file.find("Positioning/src/Positioning.") != std::string::npos) found.push_back(Full(record));
  }
  return found;
}

// A broker that notes how many records had been written when each module call arrived.
class CObservedBroker : public host::CInterfaceBroker {
 public:
  TBool RequestInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                         IReflectionInterface* aHandler) override {
    Note();
    return host::CInterfaceBroker::RequestInterface(aFeature, aInstance, aIdentity, aHandler);
  }
  TBool RevokeInterface(const TFeatureId& aFeature, const std::string& aInstance, const TInterfaceIdentity& aIdentity,
                        IReflectionInterface* aHandler) override {
    Note();
    return host::CInterfaceBroker::RevokeInterface(aFeature, aInstance, aIdentity, aHandler);
  }
  TBool RequestSharedInterface(const TFeatureId& aFeature, const std::string& aInstance,
                               const TInterfaceIdentity& aIdentity, IReflectionInterface* aHandler) override {
    Note();
    return host::CInterfaceBroker::RequestSharedInterface(aFeature, aInstance, aIdentity, aHandler);
  }

  std::vector<size_t> iRecordsAtCall;

 private:
  void Note() { iRecordsAtCall.push_back(host::CLogFacility::Instance().Records().size()); }
};

// Properties that remember what they were asked.
class CRecordingProperties : public IFeatureProperties {
 public:
  struct Query {
    TFeatureId feature;
    std::string name;
    std::string valueOnEntry;
  };

  TBool GetProperty(const TFeatureId& aFeature, const std::string& aName, std::string& aValue) const override {
    iQueries.push_back({aFeature, aName, aValue});
    aValue = "USB";
    return 1;
  }

  mutable std::vector<Query> iQueries;
};

class PositioningFeatureTest : public HostTest {
 protected:
  CPositioning* Create() { return new CPositioning(iFeatureId, iBroker, iEventBroker, iProperties); }
  CPositioning* CreateWithDiversity(const std::string& aValue) {
    iProperties.Set("diversity", aValue);
    return Create();
  }
  // Deletes the feature as the daemon does, through its host base, with the records of
  // construction cleared first.
  void Destroy(CPositioning* aFeature) {
    ClearRecords();
    IFeatureModule2* base = aFeature;
    delete base;
  }

  void ExpectOnlyDiversityRecordAndNoSource(const std::string& aValue) {
    CPositioning* feature = CreateWithDiversity(aValue);
    EXPECT_EQ((std::vector<std::string>{ConstructorTrace(), DiversityRecord(aValue)}), FeatureRecords());
    EXPECT_EQ(2u, AllRecords().size());
    EXPECT_EQ(nullptr, feature->Sensor());
    EXPECT_TRUE(iBroker.Calls().empty());
    Destroy(feature);
  }

  void ExpectDestructionDeletesNothing(const std::string& aValue) {
    CPositioning* feature = CreateWithDiversity(aValue);
    Destroy(feature);
    EXPECT_EQ((std::vector<std::string>{DestructorTrace()}), FeatureRecords());
    EXPECT_EQ(1u, AllRecords().size());
    EXPECT_TRUE(iBroker.Calls().empty());
    EXPECT_TRUE(iBroker.CallsOf(host::BrokerCall::Revoke).empty());
    EXPECT_TRUE(iEventBroker.Calls().empty());
  }
};

// ---- no "diversity" property: the CAN source is the default ----

TEST_F(PositioningFeatureTest, WithoutDiversityPropertyOnlyTheCanCreationIsLogged) {
  CPositioning* feature = Create();
  EXPECT_EQ((std::vector<std::string>{ConstructorTrace(),
                                      Expected("Info", "CPositioning", 64, "CANSensor is being created...")}),
            FeatureRecords());
  EXPECT_TRUE(host::CLogFacility::Instance().RecordsContaining("Diversity: ").empty());
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, WithoutDiversityPropertyTheSourceIsACanSensor) {
  CPositioning* feature = Create();
  ASSERT_NE(nullptr, feature->Sensor());
  EXPECT_NE(nullptr, dynamic_cast<CCANSensor*>(feature->Sensor()));
  EXPECT_EQ(nullptr, dynamic_cast<CExternalSensor*>(feature->Sensor()));
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, WithoutDiversityPropertyDestructionTracesThenRevokesTheCanSource) {
  CPositioning* feature = Create();
  Destroy(feature);
  EXPECT_EQ((std::vector<std::string>{DestructorTrace()}), FeatureRecords());
  ASSERT_FALSE(AllRecords().empty());
  EXPECT_EQ(DestructorTrace(), Full(AllRecords().front()));
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(2u, revokes.size());
  EXPECT_EQ("0", revokes[0].instance);
  EXPECT_EQ(contract::kMicroHostSensorIdentity.identifier, revokes[0].identifier);
  EXPECT_EQ("1", revokes[1].instance);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, revokes[1].identifier);
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

// ---- "CAN" ----

TEST_F(PositioningFeatureTest, DiversityCanLogsTheValueThenTheCanCreation) {
  CPositioning* feature = CreateWithDiversity("CAN");
  EXPECT_EQ((std::vector<std::string>{ConstructorTrace(), DiversityRecord("CAN"),
                                      Expected("Info", "CPositioning", 51, "CANSensor is being created...")}),
            FeatureRecords());
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityCanMakesTheSourceACanSensor) {
  CPositioning* feature = CreateWithDiversity("CAN");
  ASSERT_NE(nullptr, feature->Sensor());
  EXPECT_NE(nullptr, dynamic_cast<CCANSensor*>(feature->Sensor()));
  EXPECT_EQ(nullptr, dynamic_cast<CExternalSensor*>(feature->Sensor()));
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityCanDestructionTracesThenRevokesTheCanSource) {
  CPositioning* feature = CreateWithDiversity("CAN");
  Destroy(feature);
  EXPECT_EQ((std::vector<std::string>{DestructorTrace()}), FeatureRecords());
  ASSERT_FALSE(AllRecords().empty());
  EXPECT_EQ(DestructorTrace(), Full(AllRecords().front()));
  EXPECT_EQ(2u, iBroker.CallsOf(host::BrokerCall::Revoke).size());
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
  EXPECT_TRUE(iEventBroker.Timers().empty());
}

// ---- "EXTERNAL" ----

TEST_F(PositioningFeatureTest, DiversityExternalLogsTheValueThenTheExternalCreation) {
  CPositioning* feature = CreateWithDiversity("EXTERNAL");
  EXPECT_EQ((std::vector<std::string>{ConstructorTrace(), DiversityRecord("EXTERNAL"),
                                      Expected("Info", "CPositioning", 57, "ExternalSensor is being created...")}),
            FeatureRecords());
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityExternalMakesTheSourceAnExternalSensor) {
  CPositioning* feature = CreateWithDiversity("EXTERNAL");
  ASSERT_NE(nullptr, feature->Sensor());
  EXPECT_NE(nullptr, dynamic_cast<CExternalSensor*>(feature->Sensor()));
  EXPECT_EQ(nullptr, dynamic_cast<CCANSensor*>(feature->Sensor()));
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityExternalDestructionTracesThenRevokesTheExternalSource) {
  CPositioning* feature = CreateWithDiversity("EXTERNAL");
  Destroy(feature);
  EXPECT_EQ((std::vector<std::string>{DestructorTrace()}), FeatureRecords());
  ASSERT_FALSE(AllRecords().empty());
  EXPECT_EQ(DestructorTrace(), Full(AllRecords().front()));
  const std::vector<host::BrokerCall> revokes = iBroker.CallsOf(host::BrokerCall::Revoke);
  ASSERT_EQ(3u, revokes.size());
  EXPECT_EQ(contract::kClockSyncIdentity.identifier, revokes[0].identifier);
  EXPECT_EQ(contract::kExternalSensorIdentity.identifier, revokes[1].identifier);
  EXPECT_EQ(contract::kPositioningIdentity.identifier, revokes[2].identifier);
  EXPECT_EQ("2", revokes[2].instance);
  EXPECT_EQ(0u, iBroker.ModuleHandlerCount());
}

// ---- "USB": recognised and refused ----

TEST_F(PositioningFeatureTest, DiversityUsbLogsTheValueThenNotSupported) {
  CPositioning* feature = CreateWithDiversity("USB");
  EXPECT_EQ((std::vector<std::string>{ConstructorTrace(), DiversityRecord("USB"),
                                      Expected("Info", "CPositioning", 47, "USBSensor is not supported")}),
            FeatureRecords());
  EXPECT_EQ(3u, AllRecords().size());
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityUsbCreatesNoSource) {
  CPositioning* feature = CreateWithDiversity("USB");
  EXPECT_EQ(nullptr, feature->Sensor());
  EXPECT_TRUE(iBroker.Calls().empty());
  EXPECT_TRUE(iEventBroker.Calls().empty());
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DiversityUsbDestructionDeletesNothing) { ExpectDestructionDeletesNothing("USB"); }

// ---- values that are not recognised: compared exactly and case-sensitively ----

TEST_F(PositioningFeatureTest, DiversityLowerCaseCanYieldsOnlyTheDiversityRecordAndNoSource) {
  ExpectOnlyDiversityRecordAndNoSource("can");
}

TEST_F(PositioningFeatureTest, DiversityLowerCaseCanDestructionDeletesNothing) {
  ExpectDestructionDeletesNothing("can");
}

TEST_F(PositioningFeatureTest, DiversityMixedCaseExternalYieldsOnlyTheDiversityRecordAndNoSource) {
  ExpectOnlyDiversityRecordAndNoSource("External");
}

TEST_F(PositioningFeatureTest, DiversityMixedCaseExternalDestructionDeletesNothing) {
  ExpectDestructionDeletesNothing("External");
}

TEST_F(PositioningFeatureTest, EmptyDiversityYieldsOnlyTheDiversityRecordAndNoSource) {
  ExpectOnlyDiversityRecordAndNoSource("");
}

TEST_F(PositioningFeatureTest, EmptyDiversityDestructionDeletesNothing) { ExpectDestructionDeletesNothing(""); }

TEST_F(PositioningFeatureTest, EmptyDiversityRecordEndsWithTheLabel) {
  CPositioning* feature = CreateWithDiversity("");
  const std::vector<host::LoggedRecord> records = ModuleRecords();
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ("(Diversity: )", records[1].Text());
  Destroy(feature);
}

// ---- what the feature asks and hands on ----

TEST_F(PositioningFeatureTest, PropertyIsAskedOnceForDiversityWithTheFeatureIdAndAnEmptyValue) {
  CRecordingProperties properties;
  CPositioning* feature = new CPositioning(iFeatureId, iBroker, iEventBroker, properties);
  ASSERT_EQ(1u, properties.iQueries.size());
  EXPECT_EQ(iFeatureId, properties.iQueries[0].feature);
  EXPECT_EQ("diversity", properties.iQueries[0].name);
  EXPECT_EQ("", properties.iQueries[0].valueOnEntry);
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, PropertyIsNotReadAgainAfterConstruction) {
  CPositioning* feature = CreateWithDiversity("USB");
  EXPECT_EQ(1, iProperties.Queries());
  iProperties.Set("diversity", "CAN");
  Destroy(feature);
  EXPECT_EQ(1, iProperties.Queries());
}

TEST_F(PositioningFeatureTest, TheSourceIsCreatedOnlyAfterItsCreationRecord) {
  CObservedBroker broker;
  iProperties.Set("diversity", "CAN");
  CPositioning* feature = new CPositioning(iFeatureId, broker, iEventBroker, iProperties);
  ASSERT_FALSE(broker.iRecordsAtCall.empty());
  // Entry trace, "Diversity: CAN" and the creation record come before the first request.
  EXPECT_EQ(3u, broker.iRecordsAtCall.front());
  const std::vector<host::LoggedRecord>& records = AllRecords();
  for (size_t i = 3; i < records.size(); ++i) {
    EXPECT_EQ(std::string::npos, records[i].file.find("Positioning/src/Positioning.")) << Full(records[i]);
  }
  Destroy(feature);
}

TEST_F(PositioningFeatureTest, DestructorTraceIsWrittenBeforeTheSourceRevokes) {
  CObservedBroker broker;
  iProperties.Set("diversity", "EXTERNAL");
  CPositioning* feature = new CPositioning(iFeatureId, broker, iEventBroker, iProperties);
  broker.iRecordsAtCall.clear();
  Destroy(feature);
  ASSERT_EQ(3u, broker.iRecordsAtCall.size());
  EXPECT_GE(broker.iRecordsAtCall.front(), 1u);
  EXPECT_EQ(DestructorTrace(), Full(AllRecords().front()));
}

TEST_F(PositioningFeatureTest, BrokersAndFeatureIdAreHandedOnToTheSourceUnchanged) {
  CPositioning* feature = CreateWithDiversity("EXTERNAL");
  ASSERT_EQ(3u, iBroker.Calls().size());
  for (const host::BrokerCall& call : iBroker.Calls()) EXPECT_EQ(iFeatureId, call.feature);
  Destroy(feature);
}

// ---- entry points ----

TEST_F(PositioningFeatureTest, FeatureTypeAnswersPositioningEveryTime) {
  EXPECT_STREQ(contract::kFeatureType, FeatureType());
  EXPECT_STREQ(contract::kFeatureType, FeatureType());
  IFeatureModule2* feature = FeatureCreate2(iFeatureId, iBroker, iEventBroker, iProperties);
  EXPECT_STREQ(contract::kFeatureType, FeatureType());
  delete feature;
  EXPECT_STREQ(contract::kFeatureType, FeatureType());
}

TEST_F(PositioningFeatureTest, FeatureTypeWritesNoRecordAndTouchesNoHostObject) {
  FeatureType();
  EXPECT_TRUE(AllRecords().empty());
  EXPECT_TRUE(iBroker.Calls().empty());
  EXPECT_EQ(0, iProperties.Queries());
}

TEST_F(PositioningFeatureTest, FeatureCreate2ReturnsAPositioningFeatureBuiltFromItsArguments) {
  iProperties.Set("diversity", "EXTERNAL");
  IFeatureModule2* feature = FeatureCreate2(iFeatureId, iBroker, iEventBroker, iProperties);
  ASSERT_NE(nullptr, feature);
  CPositioning* positioning = dynamic_cast<CPositioning*>(feature);
  ASSERT_NE(nullptr, positioning);
  EXPECT_NE(nullptr, dynamic_cast<CExternalSensor*>(positioning->Sensor()));
  EXPECT_EQ(1, iProperties.Queries());
  ASSERT_FALSE(iBroker.Calls().empty());
  EXPECT_EQ(iFeatureId, iBroker.Calls().front().feature);
  ClearRecords();
  delete feature;
  EXPECT_EQ((std::vector<std::string>{DestructorTrace()}), FeatureRecords());
}

TEST_F(PositioningFeatureTest, FeatureObjectIsATablePointerAndTheSourcePointer) {
  EXPECT_EQ(2 * sizeof(void*), sizeof(CPositioning));
  EXPECT_TRUE(std::has_virtual_destructor<IFeatureModule2>::value);
}

}  // namespace
