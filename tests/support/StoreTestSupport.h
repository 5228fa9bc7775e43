// What the sample store's tests share: numbered samples, a store built from a sensor
// configuration as the sources build it, and the store's records checked for their
// framing and summarised.
#ifndef TESTS_STORE_TEST_SUPPORT_H
#define TESTS_STORE_TEST_SUPPORT_H

#include <gtest/gtest.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "IInterfaceBroker.h"
#include "LoggedRecord.h"
#include "RecordFormat.h"

namespace testing_store {

using Sample = CSensorStore::TSensorData;

// Sample number n: stamp 100000 + n, all ten values distinct and derived from n
// (n*10 + i), size aSize.
inline Sample MakeSample(int aNumber, uint8_t aSize = 2) {
  Sample sample;
  sample.timeStamp = 100000u + static_cast<uint64_t>(aNumber);
  sample.size = aSize;
  for (int i = 0; i < 10; ++i) sample.values[i] = static_cast<int16_t>(aNumber * 10 + i);
  return sample;
}

// A store for aEntries, offered under aInstance.
inline std::unique_ptr<CSensorStore> MakeStore(std::vector<TiPositioningSensorEntry> aEntries,
                                               const TFeatureId& aFeatureId, IInterfaceBroker& aBroker,
                                               const std::string& aInstance = "1") {
  TiPositioningSensorConfiguration config;
  config.size = static_cast<uint8_t>(aEntries.size());
  config.data = aEntries.data();
  return std::unique_ptr<CSensorStore>(new CSensorStore(config, aFeatureId, aBroker, aInstance));
}

// The store's records among aRecords, each checked for framing, tag and source file, as
// typed summaries; records of aSkipFunction (e.g. the PutData trace) are left out.
inline std::vector<std::string> StoreRecordSummaries(const std::vector<host::LoggedRecord>& aRecords,
                                                     const std::string& aSkipFunction = std::string()) {
  std::vector<std::string> summaries;
  for (const host::LoggedRecord& record : aRecords) {
    EXPECT_EQ("logging::Positioning", record.module);
    EXPECT_NE(std::string::npos, record.file.find("Positioning/src/CSensorStore")) << record.file;
    EXPECT_GE(record.pieces.size(), 2u);
    if (record.pieces.size() >= 2) {
      EXPECT_EQ("(", record.pieces.front().text);
      EXPECT_EQ(")", record.pieces.back().text);
    }
    EXPECT_EQ("\n", record.lineEnd);
    EXPECT_TRUE(record.closed);
    if (aSkipFunction.empty() || record.function != aSkipFunction) {
      summaries.push_back(testing_host::TypedSummary(record));
    }
  }
  return summaries;
}

}  // namespace testing_store

#endif  // TESTS_STORE_TEST_SUPPORT_H
