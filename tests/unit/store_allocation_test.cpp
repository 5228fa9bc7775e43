// The store's heap: every replay leaves exactly one allocation behind, its snapshot,
// and nothing else stays allocated by samples, subscriptions or replays; and when an
// allocation of the store's construction fails, the assertion message is printed and
// construction goes on, into the missing memory where the next step uses it.
//
// The allocations are watched by HeapWatch (under AddressSanitizer through its
// allocation hooks; failures cannot be injected there and those tests skip). A failure
// is injected by size: the first allocation (or the n-th) of exactly the size of the
// block in question fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "CSensorStore.h"
#include "CrashingChild.h"
#include "ExternalSensor.h"
#include "HeapTest.h"
#include "HeapWatch.h"
#include "InterfaceBroker.h"
#include "StdoutCapture.h"

namespace {

#ifdef HEAP_WATCH_UNDER_ASAN
#define SKIP_WHEN_SANITIZED() GTEST_SKIP() << "AddressSanitizer's allocator cannot be made to fail an allocation"
// AddressSanitizer keeps an empty block as one byte.
const size_t kEmptyBlock = 1;
#else
#define SKIP_WHEN_SANITIZED() (void)0
const size_t kEmptyBlock = 0;
#endif

using testing_support::AllocationFailed;
using testing_support::FailAllocation;
using testing_support::RunInChild;
using testing_support::TChildRun;
using Sample = CSensorStore::TSensorData;
using testing_heap::kFeature;

// The sizes of the blocks a piece of code left allocated.
std::vector<size_t> LiveAfter(const std::function<void()>& aBody) { return testing_support::WatchHeap(aBody).live; }

// The message of a failed allocation check, whatever form the source path takes.
::testing::AssertionResult IsAssertion(const std::string& aText, const std::string& aExpression, int aLine) {
  const std::string head = "\nAssertion failed (" + aExpression + ") in file ";
  const std::string tail = ", line " + std::to_string(aLine) + "\n";
  if (aText.size() > head.size() + tail.size() && aText.compare(0, head.size(), head) == 0 &&
      aText.compare(aText.size() - tail.size(), tail.size(), tail) == 0 &&
      aText.find('\n', head.size()) == aText.size() - 1)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "printed: \"" << aText << "\"";
}

class StoreAllocationTest : public testing_heap::HeapTest {
 protected:
  static void Feed(CSensorStore& aStore, int aCount, uint64_t aFirst = 1000) {
    for (int k = 0; k < aCount; ++k) {
      Sample sample = {};
      sample.timeStamp = aFirst + 200u * static_cast<uint64_t>(k);
      sample.size = 2;
      sample.values[0] = static_cast<int16_t>(k);
      aStore.PutData(0, sample);
      aStore.PutData(1, sample);
    }
  }
};

TEST_F(StoreAllocationTest, SubscriptionThatCompletesTheSetWithReplayLeavesItsNodeAndOneSnapshot) {
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  Feed(store, 10);
  ASSERT_EQ(0, store.Subscribe(iClient, 1, 0));
  const std::vector<size_t> live = LiveAfter([&] { ASSERT_EQ(0, store.Subscribe(iClient, 2, 1)); });
  EXPECT_EQ(10, iClient.iReceived);
  // The list node of the subscription, which the store frees with it, and the snapshot.
  EXPECT_EQ((std::vector<size_t>{sizeof(CHKNode<CSensorStore::clientRecord>), 10 * sizeof(Sample)}), live);
}

TEST_F(StoreAllocationTest, EachFurtherReplayLeavesExactlyOneAllocationTheSizeOfTheSnapshot) {
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  Feed(store, 10);
  ASSERT_EQ(0, store.Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store.Subscribe(iClient, 2, 0));
  for (int replay = 1; replay <= 3; ++replay) {
    // A type that matches no sensor adds nothing and replays again.
    const std::vector<size_t> live = LiveAfter([&] { ASSERT_EQ(0, store.Subscribe(iClient, 99, 1)); });
    EXPECT_EQ(std::vector<size_t>{10 * sizeof(Sample)}, live) << "replay " << replay;
    EXPECT_EQ(10 * replay, iClient.iReceived);
  }
}

TEST_F(StoreAllocationTest, ReplayOfAFullBufferLeavesOneSnapshotOfOneMinute) {
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  Feed(store, 450);
  ASSERT_EQ(0, store.Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store.Subscribe(iClient, 2, 0));
  const std::vector<size_t> live = LiveAfter([&] { ASSERT_EQ(0, store.Subscribe(iClient, 99, 1)); });
  EXPECT_EQ(std::vector<size_t>{300 * sizeof(Sample)}, live);
  EXPECT_EQ(300, iClient.iReceived);
  EXPECT_EQ(1000u + 200u * 449u, iClient.iLastTime);
}

TEST_F(StoreAllocationTest, ReplayOfAnEmptyBufferStillLeavesOneEmptySnapshot) {
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  ASSERT_EQ(0, store.Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store.Subscribe(iClient, 2, 0));
  const std::vector<size_t> live = LiveAfter([&] { ASSERT_EQ(0, store.Subscribe(iClient, 99, 1)); });
  EXPECT_EQ(std::vector<size_t>{kEmptyBlock}, live);
  EXPECT_EQ(0, iClient.iReceived);
}

TEST_F(StoreAllocationTest, SamplesDeliveredAndSubscriptionsWithoutReplayLeaveOnlyTheirNodes) {
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  Feed(store, 5);
  std::vector<size_t> live = LiveAfter([&] {
    ASSERT_EQ(0, store.Subscribe(iClient, 1, 0));
    ASSERT_EQ(0, store.Subscribe(iClient, 2, 0));
  });
  EXPECT_EQ(2u, live.size());
  live = LiveAfter([&] { Feed(store, 400, 5000); });
  EXPECT_EQ(800, iClient.iReceived);
  EXPECT_TRUE(live.empty()) << live.size() << " allocations left by intake and delivery";
  // A replay that is not asked for takes no snapshot.
  live = LiveAfter([&] { ASSERT_EQ(0, store.Subscribe(iClient, 99, 0)); });
  EXPECT_TRUE(live.empty());
}

// Left allocated for the leak checker: scripts/checks/40-sanitizers.sh runs this test
// alone and expects LeakSanitizer to match exactly these three blocks to the one
// suppression of tests/lsan.supp.
TEST_F(StoreAllocationTest, ThreeReplaysLeaveThreeSnapshots) {
  CSensorStore* store = CSensorStore::Create(iConfig, kFeature, iBroker, "1");
  Feed(*store, 10);
  ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  const std::vector<size_t> live = LiveAfter([&] {
    for (int replay = 0; replay < 3; ++replay) ASSERT_EQ(0, store->Subscribe(iClient, 99, 1));
  });
  EXPECT_EQ((std::vector<size_t>{10 * sizeof(Sample), 10 * sizeof(Sample), 10 * sizeof(Sample)}), live);
  delete store;
}

// Construction when an allocation fails.

TEST_F(StoreAllocationTest, FirstRingBufferThatCannotBeAllocatedIsReportedAndTheStoreCarriesOn) {
  SKIP_WHEN_SANITIZED();
  host::CStdoutCapture capture;
  FailAllocation(sizeof(CRingBuffer<Sample>));
  {
    CSensorStore store(iConfig, kFeature, iBroker, "1");
    const std::string printed = capture.Stop();
    ASSERT_TRUE(AllocationFailed());
    EXPECT_TRUE(IsAssertion(printed, "iSensorArray[i].buffer != NULL", 39));
    EXPECT_EQ(nullptr, store.Sensor(0).buffer);
    ASSERT_NE(nullptr, store.Sensor(1).buffer);
    // The rest of construction happened: configuration copy, handles, the service.
    EXPECT_EQ(2, store.PositioningSensorConfig().size);
    EXPECT_EQ(0, store.GetBufferHandle(1));
    EXPECT_EQ(1, store.GetBufferHandle(2));
    ASSERT_EQ(1u, iBroker.CallsOf(host::BrokerCall::Request).size());
    EXPECT_EQ(1, iBroker.CallsOf(host::BrokerCall::Request)[0].result);
    // The other sensor stores as usual.
    Sample sample = {};
    sample.timeStamp = 4242;
    sample.size = 2;
    store.PutData(1, sample);
    Sample newest = {};
    EXPECT_EQ(1, store.GetLastSample(2, newest));
    EXPECT_EQ(4242u, newest.timeStamp);
  }
}

TEST_F(StoreAllocationTest, SecondRingBufferThatCannotBeAllocatedIsReportedAndTheFirstStillStores) {
  SKIP_WHEN_SANITIZED();
  host::CStdoutCapture capture;
  FailAllocation(sizeof(CRingBuffer<Sample>), 1);
  CSensorStore store(iConfig, kFeature, iBroker, "1");
  ASSERT_TRUE(AllocationFailed());
  EXPECT_TRUE(IsAssertion(capture.Stop(), "iSensorArray[i].buffer != NULL", 39));
  ASSERT_NE(nullptr, store.Sensor(0).buffer);
  EXPECT_EQ(nullptr, store.Sensor(1).buffer);
  Sample sample = {};
  sample.size = 2;
  for (int k = 0; k < 3; ++k) store.PutData(0, sample);
  EXPECT_EQ(3, store.Sensor(0).buffer->iCount);
}

TEST_F(StoreAllocationTest, SensorArrayThatCannotBeAllocatedIsReportedAndTheStoreThenUsesIt) {
  SKIP_WHEN_SANITIZED();
  const TChildRun run = RunInChild([&] {
    FailAllocation(2 * sizeof(CSensorStore::TSensorEntry));
    CSensorStore store(iConfig, kFeature, iBroker, "1");
  });
  // The message comes first; construction carries on into the missing array, which
  // the process does not survive.
  EXPECT_TRUE(IsAssertion(run.out, "iSensorArray != NULL", 33));
  EXPECT_FALSE(run.finished);
  EXPECT_TRUE(run.signaled);
}

TEST_F(StoreAllocationTest, ConfigurationCopyThatCannotBeAllocatedIsReportedAndTheStoreThenUsesIt) {
  SKIP_WHEN_SANITIZED();
  const TChildRun run = RunInChild([&] {
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    CSensorStore store(iConfig, kFeature, iBroker, "1");
  });
  EXPECT_TRUE(IsAssertion(run.out, "iPosSensorConfig.data != NULL", 45));
  EXPECT_FALSE(run.finished);
  EXPECT_TRUE(run.signaled);
}

TEST_F(StoreAllocationTest, ExternalSourceReportsItsConfigurationBlockAndThenUsesIt) {
  SKIP_WHEN_SANITIZED();
  const TChildRun run = RunInChild([&] {
    // The source's temporary configuration is the first block of two entries.
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    CExternalSensor sensor(kFeature, iBroker, iEventBroker);
  });
  const std::string head = "\nAssertion failed (aConfig.data != NULL) in file ";
  EXPECT_EQ(0u, run.out.find(head)) << run.out;
  EXPECT_NE(std::string::npos, run.out.find("ExternalSensor"));
  EXPECT_EQ(1, std::count(run.out.begin(), run.out.end(), '\n') - 1) << run.out;
  EXPECT_FALSE(run.finished);
  EXPECT_TRUE(run.signaled);
}

TEST_F(StoreAllocationTest, WithoutAFailureTheChildFinishesAndPrintsNothing) {
  SKIP_WHEN_SANITIZED();
  // The counterpart of the tests above: the same construction, nothing armed.
  const TChildRun run = RunInChild([&] { CSensorStore store(iConfig, kFeature, iBroker, "1"); });
  EXPECT_EQ("", run.out);
  EXPECT_TRUE(run.finished);
  EXPECT_FALSE(run.signaled);
}

}  // namespace
