// What the module's objects do with the heap beyond the store's snapshot rule: every
// block a store, a CAN source or an external source takes is given back when it is
// deleted; a delivery's value array is exactly as large as the sample's values and
// nothing is written past it; and when a block cannot be had (a ring buffer, a list
// node, a replay snapshot, the empty blocks of a store without sensors) the store
// answers as if there were nothing rather than use the missing memory.
//
// The heap is watched by HeapWatch, whose guards after every block show what is written
// past its end. Under AddressSanitizer, whose allocator must stay in place, these tests
// skip: it watches the same things itself.
#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "CANSensor.h"
#include "CSensorStore.h"
#include "CrashingChild.h"
#include "ExternalSensor.h"
#include "HeapTest.h"
#include "HeapWatch.h"
#include "StdoutCapture.h"

namespace {

#ifdef HEAP_WATCH_UNDER_ASAN
#define SKIP_WHEN_SANITIZED() GTEST_SKIP() << "AddressSanitizer's own allocator watches the heap here"
#else
#define SKIP_WHEN_SANITIZED() (void)0
#endif

using testing_heap::kFeature;
using testing_support::AllocationFailed;
using testing_support::BrokenGuards;
using testing_support::FailAllocation;
using testing_support::TChildRun;
using testing_support::THeapWatch;
using testing_support::WatchHeap;

using Sample = CSensorStore::TSensorData;

// Brokers that answer every request and keep nothing, so that all a test watches is
// the module's.
class CQuietInterfaceBroker : public IInterfaceBroker {
 public:
  TBool RequestInterface(const TFeatureId&, const std::string&, const TInterfaceIdentity&,
                         IReflectionInterface*) override {
    ++iRequests;
    return 1;
  }
  TBool RevokeInterface(const TFeatureId&, const std::string&, const TInterfaceIdentity&,
                        IReflectionInterface*) override {
    ++iRevokes;
    return 1;
  }
  void Reserved5() override {}
  TBool RequestSharedInterface(const TFeatureId&, const std::string&, const TInterfaceIdentity&,
                               IReflectionInterface*) override {
    ++iRequests;
    return 1;
  }
  int iRequests = 0;
  int iRevokes = 0;
};

class CQuietEventBroker : public IEventBroker {
 public:
  TBool RegisterEventObserver(const TEventRegistration&, IEventObserver*) override {
    ++iRegistrations;
    return 1;
  }
  TBool UnregisterEventObserver(const TEventRegistration&, IEventObserver*) override {
    ++iUnregistrations;
    return 1;
  }
  int iRegistrations = 0;
  int iUnregistrations = 0;
};

// Whether a watched body gave back every block it made, naming the first it kept.
::testing::AssertionResult NothingLeft(const THeapWatch& aWatch) {
  if (aWatch.live.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << aWatch.live.size() << " blocks left, the first of " << aWatch.live[0]
                                       << " bytes";
}

Sample MakeSample(int aNumber, uint8_t aSize = 2) {
  Sample sample = {};
  sample.timeStamp = 1000u + 200u * static_cast<uint64_t>(aNumber);
  sample.size = aSize;
  for (int i = 0; i < 10; ++i) sample.values[i] = static_cast<int16_t>(aNumber * 10 + i);
  return sample;
}

class ModuleHeapTest : public testing_heap::HeapTest {
 protected:
  std::unique_ptr<CSensorStore> NewStore() {
    return std::make_unique<CSensorStore>(iConfig, kFeature, iQuietBroker, "1");
  }

  // A store with iClient subscribed to both sensors, without a replay.
  std::unique_ptr<CSensorStore> NewSubscribedStore() {
    std::unique_ptr<CSensorStore> store = NewStore();
    EXPECT_EQ(0, store->Subscribe(iClient, 1, 0));
    EXPECT_EQ(0, store->Subscribe(iClient, 2, 0));
    return store;
  }

  // A store made while the ring buffer of its first sensor could not be had; the
  // message it prints about that is kept off the test's output.
  std::unique_ptr<CSensorStore> NewStoreWithoutFirstBuffer() {
    host::CStdoutCapture capture;
    FailAllocation(sizeof(CRingBuffer<Sample>));
    std::unique_ptr<CSensorStore> store = NewStore();
    capture.Stop();
    return store;
  }

  CCANSensor* NewCanSource() { return new CCANSensor(kFeature, iQuietBroker, iQuietEvents); }
  CExternalSensor* NewExternalSource() { return new CExternalSensor(kFeature, iQuietBroker, iQuietEvents); }

  // What making an object with aNew and deleting it leaves, watched after one round
  // unwatched, so that what the host makes on first use is made.
  template <class New>
  static THeapWatch WatchMadeAndDeleted(New aNew) {
    delete aNew();
    return WatchHeap([&] { delete aNew(); });
  }

  CQuietInterfaceBroker iQuietBroker;
  CQuietEventBroker iQuietEvents;
  testing_heap::CKeepingClient iOther;
};

// Everything given back.

TEST_F(ModuleHeapTest, AStoreWithSamplesAndSubscribedClientsGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  size_t heldWhileAlive = 0;
  const THeapWatch watch = WatchHeap([&] {
    std::unique_ptr<CSensorStore> store = NewStore();
    for (int n = 0; n < 5; ++n) {
      store->PutData(0, MakeSample(n));
      store->PutData(1, MakeSample(n));
    }
    // Both sensors have two subscribers: both lists hold nodes when the store goes.
    ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
    ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
    ASSERT_EQ(0, store->Subscribe(iOther, 1, 0));
    ASSERT_EQ(0, store->Subscribe(iOther, 2, 0));
    heldWhileAlive = testing_support::WatchedLiveBlocks();
    store.reset();
  });
  // The store, its sensor array, two ring buffers with their slots, its configuration
  // copy and four list nodes.
  EXPECT_EQ(11u, heldWhileAlive);
  EXPECT_TRUE(NothingLeft(watch));
  EXPECT_EQ(1, iQuietBroker.iRevokes);
}

TEST_F(ModuleHeapTest, ACanSourceGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  const THeapWatch watch = WatchMadeAndDeleted([&] { return NewCanSource(); });
  EXPECT_FALSE(watch.made.empty());
  EXPECT_TRUE(NothingLeft(watch));
}

TEST_F(ModuleHeapTest, ACanSourceHoldsOnlyItsStoresBlocksOnceCreated) {
  SKIP_WHEN_SANITIZED();
  // Once before watching, so that what the host makes on first use is made.
  delete NewCanSource();
  CCANSensor* source = nullptr;
  const THeapWatch watch = WatchHeap([&] { source = NewCanSource(); });
  // The source, the store, its sensor array, two ring buffers with their slots and its
  // configuration copy: the temporary configuration the store was made from is gone.
  EXPECT_EQ(8u, watch.live.size());
  EXPECT_EQ(1u, std::count(watch.live.begin(), watch.live.end(), 2 * sizeof(TiPositioningSensorEntry)));
  delete source;
}

TEST_F(ModuleHeapTest, AnExternalSourceGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  const THeapWatch watch = WatchMadeAndDeleted([&] { return NewExternalSource(); });
  EXPECT_FALSE(watch.made.empty());
  EXPECT_TRUE(NothingLeft(watch));
  EXPECT_EQ(6, iQuietBroker.iRequests);  // both services and the store's own, twice
  EXPECT_EQ(6, iQuietBroker.iRevokes);
}

// A delivery's value array.

TEST_F(ModuleHeapTest, DeliveringATwoValueSampleMakesOneArrayOfFourBytesAndGivesItBack) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewSubscribedStore();
  const THeapWatch watch = WatchHeap([&] { store->PutData(0, MakeSample(7)); });
  EXPECT_EQ(std::vector<size_t>{2 * sizeof(int16_t)}, watch.made);
  EXPECT_TRUE(watch.live.empty());
  EXPECT_EQ(1, iClient.iReceived);
  EXPECT_EQ(2u, iClient.iLastSize);
  EXPECT_EQ(70, iClient.iLastValues[0]);
  EXPECT_EQ(71, iClient.iLastValues[1]);
}

TEST_F(ModuleHeapTest, DeliveringSamplesOfOtherSizesMakesArraysOfExactlyTheirValuesAndWritesNothingPastThem) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewSubscribedStore();
  for (uint8_t size : {uint8_t{0}, uint8_t{1}, uint8_t{3}, uint8_t{9}}) {
    testing_support::ForgetBrokenGuards();
    const THeapWatch watch = WatchHeap([&] { store->PutData(1, MakeSample(3, size)); });
    EXPECT_EQ(std::vector<size_t>{size * sizeof(int16_t)}, watch.made) << "size " << int(size);
    EXPECT_TRUE(watch.live.empty()) << "size " << int(size);
    EXPECT_EQ(0, BrokenGuards()) << "the array of " << int(size) << " values was written past its end";
    EXPECT_EQ(size, iClient.iLastSize);
    for (int i = 0; i < size; ++i) EXPECT_EQ(30 + i, iClient.iLastValues[i]) << "size " << int(size);
  }
}

// Blocks that cannot be had.

TEST_F(ModuleHeapTest, QueriesOfASensorWhoseBufferCouldNotBeMadeAnswerFalse) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewStoreWithoutFirstBuffer();
  ASSERT_TRUE(AllocationFailed());
  ASSERT_EQ(nullptr, store->Sensor(0).buffer);
  // A sample for the sensor without a buffer is not kept.
  store->PutData(0, MakeSample(3));
  store->PutData(1, MakeSample(4));
  Sample kept = MakeSample(99);
  EXPECT_EQ(0, store->GetLastSample(1, kept));
  EXPECT_EQ(MakeSample(99).timeStamp, kept.timeStamp);
  Sample samples[2] = {MakeSample(98), MakeSample(98)};
  EXPECT_EQ(0, store->GetLastValidSamples(1, samples, 0));
  EXPECT_EQ(0, store->GetLastValidSamples(1, samples, 1));
  EXPECT_EQ(MakeSample(98).timeStamp, samples[0].timeStamp);
  // The other sensor answers as usual.
  EXPECT_EQ(1, store->GetLastSample(2, kept));
  EXPECT_EQ(MakeSample(4).timeStamp, kept.timeStamp);
}

TEST_F(ModuleHeapTest, AReplayOfAFirstSensorWhoseBufferCouldNotBeMadeSendsNothing) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewStoreWithoutFirstBuffer();
  ASSERT_TRUE(AllocationFailed());
  store->PutData(1, MakeSample(1));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  // Completes the set and asks for the replay: the gate opens, nothing is replayed.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  EXPECT_EQ(0, iClient.iReceived);
  store->PutData(1, MakeSample(2));
  EXPECT_EQ(1, iClient.iReceived);
}

TEST_F(ModuleHeapTest, ASubscriptionWhoseListNodeCouldNotBeMadeIsNotCounted) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewStore();
  FailAllocation(sizeof(CHKNode<CSensorStore::clientRecord>));
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_TRUE(AllocationFailed());
  EXPECT_EQ(0, store->SubscriptionCount());
  EXPECT_EQ(nullptr, store->Sensor(0).clients.iHead);
  EXPECT_EQ(0, store->Sensor(0).clients.iCount);
  // Subscribing again then completes the set as if the failed call had not happened.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 0));
  EXPECT_EQ(0, store->Subscribe(iClient, 2, 0));
  EXPECT_EQ(2, store->SubscriptionCount());
  store->PutData(0, MakeSample(5));
  EXPECT_EQ(1, iClient.iReceived);
}

TEST_F(ModuleHeapTest, AReplayWhoseSnapshotCouldNotBeMadeSendsNothingAndReturns0) {
  SKIP_WHEN_SANITIZED();
  const std::unique_ptr<CSensorStore> store = NewStore();
  for (int n = 0; n < 10; ++n) store->PutData(0, MakeSample(n));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  FailAllocation(10 * sizeof(Sample));
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  ASSERT_TRUE(AllocationFailed());
  EXPECT_EQ(0, iClient.iReceived);
  // The gate is open all the same.
  store->PutData(0, MakeSample(10));
  EXPECT_EQ(1, iClient.iReceived);
  EXPECT_EQ(MakeSample(10).timeStamp, iClient.iLastTime);
}

TEST_F(ModuleHeapTest, AStoreWithoutSensorsWhoseEmptyBlocksComeBackNullAnswersAReplayRequestWith0) {
  SKIP_WHEN_SANITIZED();
  // An allocation of zero bytes may come back null; the store's sensor array is one.
  iConfig.size = 0;
  host::CStdoutCapture capture;
  FailAllocation(0);
  const std::unique_ptr<CSensorStore> store = NewStore();
  const std::string printed = capture.Stop();
  ASSERT_TRUE(AllocationFailed());
  EXPECT_NE(std::string::npos, printed.find("Assertion failed (iSensorArray != NULL)")) << printed;
  // No sensors: the first subscription already completes the set and asks for a replay.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  EXPECT_EQ(0, iClient.iReceived);
}

TEST_F(ModuleHeapTest, AStoreWhoseConfigurationCopyCannotBeMadeSaysSoAndThenDiesUsingIt) {
  SKIP_WHEN_SANITIZED();
  const TChildRun run = testing_support::RunInChild([&] {
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    NewStore().reset();
  });
  EXPECT_EQ(0u, run.out.find("\nAssertion failed (iPosSensorConfig.data != NULL) in file ")) << run.out;
  EXPECT_NE(std::string::npos, run.out.find(", line 45\n")) << run.out;
  EXPECT_TRUE(run.signaled);
}

TEST_F(ModuleHeapTest, AnExternalSourceWhoseConfigurationCannotBeMadeSaysSoAndThenDiesUsingIt) {
  SKIP_WHEN_SANITIZED();
  const TChildRun run = testing_support::RunInChild([&] {
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    delete NewExternalSource();
  });
  EXPECT_EQ(0u, run.out.find("\nAssertion failed (aConfig.data != NULL) in file ")) << run.out;
  EXPECT_TRUE(run.signaled);
}

}  // namespace
