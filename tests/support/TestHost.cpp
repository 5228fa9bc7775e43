#include "TestHost.h"

#include "EventBroker.h"
#include "Globals.h"
#include "LogFacility.h"
#include "LoggedRecord.h"
#include "RecordFormat.h"

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

std::vector<std::string> HostTest::Briefs() const {
  std::vector<std::string> briefs;
  for (const host::LoggedRecord& record : ModuleRecords()) briefs.push_back(Brief(record));
  return briefs;
}

std::vector<std::string> HostTest::EventCalls() const {
  std::vector<std::string> calls;
  for (const host::EventCall& call : iEventBroker.Calls()) calls.push_back(Describe(call));
  return calls;
}

void HostTest::ClearRecords() { host::CLogFacility::Instance().ClearRecords(); }

std::string Describe(const host::LoggedRecord& aRecord) {
  return aRecord.CategoryName() + " " + aRecord.function + " " + std::to_string(aRecord.line) + " " + aRecord.Message();
}

std::string ModulePath() { return POSITIONING_MODULE_PATH; }

}  // namespace testing_host
