// Test fixture and helpers over the simulated head unit.
#ifndef TESTS_TEST_HOST_H
#define TESTS_TEST_HOST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EventBroker.h"
#include "FeatureProperties.h"
#include "InterfaceBroker.h"
#include "LoggedRecord.h"

namespace testing_host {

// A fresh simulated head unit per test: globals reset, brokers and properties new.
class HostTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Records written so far by the module's own code (tag logging::Positioning).
  std::vector<host::LoggedRecord> ModuleRecords() const;
  // Every record so far, framework ones included.
  const std::vector<host::LoggedRecord>& AllRecords() const;
  // Messages of the module's records, in order.
  std::vector<std::string> ModuleMessages() const;
  // The module's records in brief, "Info|Function|Message" (RecordFormat.h, Brief).
  std::vector<std::string> Briefs() const;
  // The event broker's calls so far, "register 0/10/1000/1" (RecordFormat.h, Describe).
  std::vector<std::string> EventCalls() const;
  void ClearRecords();

  TFeatureId iFeatureId = "positioning-test";
  host::CInterfaceBroker iBroker;
  host::CEventBroker iEventBroker;
  host::CFeatureProperties iProperties;
};

// "Info Positioning CPositioning 44 Diversity: CAN": category, function, line and
// message of a record, for compact expectations.
std::string Describe(const host::LoggedRecord& aRecord);

// Path of the built libPositioning.so.
std::string ModulePath();

}  // namespace testing_host

#endif  // TESTS_TEST_HOST_H
