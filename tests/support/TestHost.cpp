#include "TestHost.h"

#include "Globals.h"
#include "LogFacility.h"
#include "LoggedRecord.h"

namespace testing_host {

void HostTest::SetUp() { host::ResetGlobals(); }

void HostTest::TearDown() { host::ResetGlobals(); }

std::vector<host::LoggedRecord> HostTest::ModuleRecords() const {
  return host::CLogFacility::Instance().RecordsOf("logging::Positioning");
}

const std::vector<host::LoggedRecord>& HostTest::AllRecords() const { return host::CLogFacility::Instance().Records(); }

std::vector<std::string> HostTest::ModuleMessages() const {
  std::vector<std::string> messages;
  for (const host::LoggedRecord& record : ModuleRecords()) messages.push_back(record.Message());
  return messages;
}

void HostTest::ClearRecords() { host::CLogFacility::Instance().ClearRecords(); }

std::string Describe(const host::LoggedRecord& aRecord) {
  return aRecord.CategoryName() + " " + aRecord.function + " " + std::to_string(aRecord.line) + " " + aRecord.Message();
}

std::string ModulePath() { return POSITIONING_MODULE_PATH; }

}  // namespace testing_host
