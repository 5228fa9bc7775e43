#include "TestHost.h"

namespace testing_host {

void HostTest::SetUp() { host::ResetGlobals(); }

void HostTest::TearDown() { host::ResetGlobals(); }

std::vector<host::LogRecord> HostTest::ModuleRecords() const {
  return host::CLogFacility::Instance().RecordsOf("logging::Positioning");
}

const std::vector<host::LogRecord>& HostTest::AllRecords() const { return host::CLogFacility::Instance().Records(); }

std::vector<std::string> HostTest::ModuleMessages() const {
  std::vector<std::string> messages;
  for (const host::LogRecord& record : ModuleRecords()) messages.push_back(record.Message());
  return messages;
}

void HostTest::ClearRecords() { host::CLogFacility::Instance().ClearRecords(); }

std::string Describe(const host::LogRecord& aRecord) {
  return aRecord.CategoryName() + " " + aRecord.function + " " + std::to_string(aRecord.line) + " " + aRecord.Message();
}

std::string ModulePath() { return POSITIONING_MODULE_PATH; }

}  // namespace testing_host
