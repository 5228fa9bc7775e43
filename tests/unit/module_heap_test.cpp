// What the module's objects do with the heap beyond the store's snapshot rule: every
// block a store, a CAN source or an external source takes is given back when it is
// deleted; a delivery's value array is exactly as large as the sample's values and
// nothing is written past it; and when a block cannot be had (a ring buffer, a list
// node, a replay snapshot, the empty blocks of a store without sensors) the store
// answers as if there were nothing rather than use the missing memory.
//
// malloc, calloc, realloc and free are interposed in this executable. Every block gets
// a guard of known bytes after its end, checked when it is freed or looked at. Under
// AddressSanitizer, whose allocator must stay in place, these tests skip: it watches
// the same things itself.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CANSensor.h"
#include "CSensorStore.h"
#include "ExternalSensor.h"
#include "LogFacility.h"
#include "StdoutCapture.h"
#include "TestHost.h"

#if defined(__SANITIZE_ADDRESS__)
#define MODULE_HEAP_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MODULE_HEAP_SANITIZED 1
#endif
#endif

namespace {

const size_t kGuard = 16;
const unsigned char kGuardByte = 0xA5;

struct TBlock {
  void* pointer;
  size_t size;
};
const size_t kMaxBlocks = 4096;
TBlock gLive[kMaxBlocks];
size_t gLiveCount = 0;
size_t gMade[kMaxBlocks];  // sizes of the blocks made while watching, in order
size_t gMadeCount = 0;
bool gWatching = false;
bool gOverflow = false;
int gGuardsBroken = 0;

bool gFailArmed = false;
size_t gFailSize = 0;
bool gFailFired = false;

[[maybe_unused]] void PutGuard(void* aPointer, size_t aSize) {
  memset(static_cast<unsigned char*>(aPointer) + aSize, kGuardByte, kGuard);
}

bool GuardIntact(const void* aPointer, size_t aSize) {
  const unsigned char* guard = static_cast<const unsigned char*>(aPointer) + aSize;
  for (size_t i = 0; i < kGuard; ++i) {
    if (guard[i] != kGuardByte) return false;
  }
  return true;
}

[[maybe_unused]] void Made(void* aPointer, size_t aSize) {
  if (!gWatching || aPointer == nullptr) return;
  if (gLiveCount == kMaxBlocks || gMadeCount == kMaxBlocks) {
    gOverflow = true;
    return;
  }
  gLive[gLiveCount++] = {aPointer, aSize};
  gMade[gMadeCount++] = aSize;
}

// Forgets a watched block, checking its guard first.
[[maybe_unused]] void Unmade(void* aPointer) {
  if (aPointer == nullptr) return;
  for (size_t i = 0; i < gLiveCount; ++i) {
    if (gLive[i].pointer == aPointer) {
      if (!GuardIntact(aPointer, gLive[i].size)) ++gGuardsBroken;
      gLive[i] = gLive[--gLiveCount];
      return;
    }
  }
}

[[maybe_unused]] bool ShouldFail(size_t aSize) {
  if (!gFailArmed || aSize != gFailSize) return false;
  gFailArmed = false;
  gFailFired = true;
  return true;
}

}  // namespace

#ifndef MODULE_HEAP_SANITIZED
extern "C" {
void* __libc_malloc(size_t aSize);
void* __libc_calloc(size_t aCount, size_t aSize);
void* __libc_realloc(void* aPointer, size_t aSize);
void __libc_free(void* aPointer);

void* malloc(size_t aSize) noexcept {
  if (ShouldFail(aSize)) return nullptr;
  void* pointer = __libc_malloc(aSize + kGuard);
  if (pointer == nullptr) return nullptr;
  PutGuard(pointer, aSize);
  Made(pointer, aSize);
  return pointer;
}

void* calloc(size_t aCount, size_t aSize) noexcept {
  const size_t size = aCount * aSize;
  if (ShouldFail(size)) return nullptr;
  void* pointer = __libc_calloc(1, size + kGuard);
  if (pointer == nullptr) return nullptr;
  PutGuard(pointer, size);
  Made(pointer, size);
  return pointer;
}

void* realloc(void* aPointer, size_t aSize) noexcept {
  Unmade(aPointer);
  void* pointer = __libc_realloc(aPointer, aSize + kGuard);
  if (pointer == nullptr) return nullptr;
  PutGuard(pointer, aSize);
  Made(pointer, aSize);
  return pointer;
}

void free(void* aPointer) noexcept {
  Unmade(aPointer);
  __libc_free(aPointer);
}
}
#endif

// Present when the build measures coverage (clang's profile runtime).
extern "C" int __llvm_profile_write_file(void) __attribute__((weak));

namespace {

// A child that dies on missing memory writes its coverage profile first, when the
// build keeps one, and then dies of the same signal.
void WriteProfileAndDie(int aSignal) {
  if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file();
  signal(aSignal, SIG_DFL);
  raise(aSignal);
}

struct TChildEnd {
  std::string printed;
  bool signaled = false;
};

// Runs aBody in a child with unbuffered standard output into a pipe.
template <class Body>
TChildEnd RunInDyingChild(Body aBody) {
  TChildEnd end;
  int fds[2];
  if (pipe(fds) != 0) return end;
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    dup2(fds[1], STDOUT_FILENO);
    close(fds[1]);
    setvbuf(stdout, nullptr, _IONBF, 0);
    signal(SIGSEGV, WriteProfileAndDie);
    signal(SIGBUS, WriteProfileAndDie);
    aBody();
    _exit(0);
  }
  close(fds[1]);
  char buffer[512];
  ssize_t got;
  while ((got = read(fds[0], buffer, sizeof buffer)) > 0) end.printed.append(buffer, static_cast<size_t>(got));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  end.signaled = WIFSIGNALED(status);
  return end;
}

}  // namespace

namespace {

#ifdef MODULE_HEAP_SANITIZED
#define SKIP_WHEN_SANITIZED() GTEST_SKIP() << "AddressSanitizer's own allocator watches the heap here"
#else
#define SKIP_WHEN_SANITIZED() (void)0
#endif

using Sample = CSensorStore::TSensorData;

const TiPositioningSensorEntry kGyro = {1, 1, 200, 2};
const TiPositioningSensorEntry kOdometer = {2, 1, 200, 2};
// Short enough for the strings' own buffers: copies of it allocate nothing.
const TFeatureId kFeature = "f";

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

// A client that keeps the last sample it received without allocating.
class CKeepingClient : public IPositioningSensorMale {
 public:
  void _RegisterCallback(IPositioningSensorFemale&) override {}
  void _UnregisterCallback(IPositioningSensorFemale&) override {}
  reflection::TErrCode Configuration(IPositioningSensorFemale&, TiPositioningSensorConfiguration&) override {
    return 0;
  }
  reflection::TErrCode SensorData(IPositioningSensorFemale&, TiPositioningSensorType aType,
                                  TiPositioningSensorData& aData) override {
    ++iReceived;
    iLastType = aType;
    iLastTime = aData.timeStamp;
    iLastSize = aData.values.size;
    for (uint32_t i = 0; i < aData.values.size && i < 10; ++i) iLastValues[i] = aData.values.data[i];
    return 0;
  }
  int iReceived = 0;
  TiPositioningSensorType iLastType = 0;
  uint64_t iLastTime = 0;
  uint32_t iLastSize = 0;
  int16_t iLastValues[10] = {};
};

// Watches aBody: the blocks it made, and which of them are still there.
struct TWatch {
  std::vector<size_t> made;
  std::vector<size_t> live;
};

template <class Body>
TWatch Watch(Body aBody) {
  gLiveCount = 0;
  gMadeCount = 0;
  gOverflow = false;
  gWatching = true;
  aBody();
  gWatching = false;
  EXPECT_FALSE(gOverflow);
  TWatch watch;
  watch.made.assign(gMade, gMade + gMadeCount);
  for (size_t i = 0; i < gLiveCount; ++i) {
    watch.live.push_back(gLive[i].size);
    if (!GuardIntact(gLive[i].pointer, gLive[i].size)) ++gGuardsBroken;
  }
  gLiveCount = 0;
  return watch;
}

void FailAllocation(size_t aSize) {
  gFailSize = aSize;
  gFailFired = false;
  gFailArmed = true;
}

Sample MakeSample(int aNumber, uint8_t aSize = 2) {
  Sample sample = {};
  sample.timeStamp = 1000u + 200u * static_cast<uint64_t>(aNumber);
  sample.size = aSize;
  for (int i = 0; i < 10; ++i) sample.values[i] = static_cast<int16_t>(aNumber * 10 + i);
  return sample;
}

class ModuleHeapTest : public testing_host::HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    // No record is kept, so that logging leaves nothing on the heap.
    host::CLogFacility::Instance().SetDiscard(true);
    gGuardsBroken = 0;
    iEntries[0] = kGyro;
    iEntries[1] = kOdometer;
    iConfig.size = 2;
    iConfig.data = iEntries;
  }
  void TearDown() override {
    gFailArmed = false;
    gWatching = false;
    EXPECT_EQ(0, gGuardsBroken) << "a block was written past its end";
    HostTest::TearDown();
  }

  CSensorStore* NewStore() { return new CSensorStore(iConfig, kFeature, iQuietBroker, "1"); }

  TiPositioningSensorEntry iEntries[2];
  TiPositioningSensorConfiguration iConfig;
  CQuietInterfaceBroker iQuietBroker;
  CQuietEventBroker iQuietEvents;
  CKeepingClient iClient;
  CKeepingClient iOther;
};

// Everything given back.

TEST_F(ModuleHeapTest, AStoreWithSamplesAndSubscribedClientsGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  size_t heldWhileAlive = 0;
  const TWatch watch = Watch([&] {
    CSensorStore* store = NewStore();
    for (int n = 0; n < 5; ++n) {
      store->PutData(0, MakeSample(n));
      store->PutData(1, MakeSample(n));
    }
    // Both sensors have two subscribers: both lists hold nodes when the store goes.
    ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
    ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
    ASSERT_EQ(0, store->Subscribe(iOther, 1, 0));
    ASSERT_EQ(0, store->Subscribe(iOther, 2, 0));
    heldWhileAlive = gLiveCount;
    delete store;
  });
  // The store, its sensor array, two ring buffers with their slots, its configuration
  // copy and four list nodes.
  EXPECT_EQ(11u, heldWhileAlive);
  EXPECT_TRUE(watch.live.empty()) << watch.live.size() << " blocks left, the first of " << watch.live[0] << " bytes";
  EXPECT_EQ(1, iQuietBroker.iRevokes);
}

TEST_F(ModuleHeapTest, ACanSourceGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  // Once before watching, so that what the host makes on first use is made.
  delete new CCANSensor(kFeature, iQuietBroker, iQuietEvents);
  const TWatch watch = Watch([&] { delete new CCANSensor(kFeature, iQuietBroker, iQuietEvents); });
  EXPECT_FALSE(watch.made.empty());
  EXPECT_TRUE(watch.live.empty()) << watch.live.size() << " blocks left, the first of " << watch.live[0] << " bytes";
}

TEST_F(ModuleHeapTest, ACanSourceHoldsOnlyItsStoresBlocksOnceCreated) {
  SKIP_WHEN_SANITIZED();
  delete new CCANSensor(kFeature, iQuietBroker, iQuietEvents);
  CCANSensor* source = nullptr;
  const TWatch watch = Watch([&] { source = new CCANSensor(kFeature, iQuietBroker, iQuietEvents); });
  // The source, the store, its sensor array, two ring buffers with their slots and its
  // configuration copy: the temporary configuration the store was made from is gone.
  EXPECT_EQ(8u, watch.live.size());
  EXPECT_EQ(1u, std::count(watch.live.begin(), watch.live.end(), 2 * sizeof(TiPositioningSensorEntry)));
  delete source;
}

TEST_F(ModuleHeapTest, AnExternalSourceGivesBackEveryBlockWhenDeleted) {
  SKIP_WHEN_SANITIZED();
  delete new CExternalSensor(kFeature, iQuietBroker, iQuietEvents);
  const TWatch watch = Watch([&] { delete new CExternalSensor(kFeature, iQuietBroker, iQuietEvents); });
  EXPECT_FALSE(watch.made.empty());
  EXPECT_TRUE(watch.live.empty()) << watch.live.size() << " blocks left, the first of " << watch.live[0] << " bytes";
  EXPECT_EQ(6, iQuietBroker.iRequests);  // both services and the store's own, twice
  EXPECT_EQ(6, iQuietBroker.iRevokes);
}

// A delivery's value array.

TEST_F(ModuleHeapTest, DeliveringATwoValueSampleMakesOneArrayOfFourBytesAndGivesItBack) {
  SKIP_WHEN_SANITIZED();
  CSensorStore* store = NewStore();
  ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  const TWatch watch = Watch([&] { store->PutData(0, MakeSample(7)); });
  EXPECT_EQ(std::vector<size_t>{2 * sizeof(int16_t)}, watch.made);
  EXPECT_TRUE(watch.live.empty());
  EXPECT_EQ(1, iClient.iReceived);
  EXPECT_EQ(2u, iClient.iLastSize);
  EXPECT_EQ(70, iClient.iLastValues[0]);
  EXPECT_EQ(71, iClient.iLastValues[1]);
  delete store;
}

TEST_F(ModuleHeapTest, DeliveringSamplesOfOtherSizesMakesArraysOfExactlyTheirValuesAndWritesNothingPastThem) {
  SKIP_WHEN_SANITIZED();
  CSensorStore* store = NewStore();
  ASSERT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  for (uint8_t size : {uint8_t{0}, uint8_t{1}, uint8_t{3}, uint8_t{9}}) {
    gGuardsBroken = 0;
    const TWatch watch = Watch([&] { store->PutData(1, MakeSample(3, size)); });
    EXPECT_EQ(std::vector<size_t>{size * sizeof(int16_t)}, watch.made) << "size " << int(size);
    EXPECT_TRUE(watch.live.empty()) << "size " << int(size);
    EXPECT_EQ(0, gGuardsBroken) << "the array of " << int(size) << " values was written past its end";
    EXPECT_EQ(size, iClient.iLastSize);
    for (int i = 0; i < size; ++i) EXPECT_EQ(30 + i, iClient.iLastValues[i]) << "size " << int(size);
  }
  delete store;
}

// Blocks that cannot be had.

TEST_F(ModuleHeapTest, QueriesOfASensorWhoseBufferCouldNotBeMadeAnswerFalse) {
  SKIP_WHEN_SANITIZED();
  host::CStdoutCapture capture;
  FailAllocation(sizeof(CRingBuffer<Sample>));
  CSensorStore* store = NewStore();
  capture.Stop();
  ASSERT_TRUE(gFailFired);
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
  delete store;
}

TEST_F(ModuleHeapTest, AReplayOfAFirstSensorWhoseBufferCouldNotBeMadeSendsNothing) {
  SKIP_WHEN_SANITIZED();
  host::CStdoutCapture capture;
  FailAllocation(sizeof(CRingBuffer<Sample>));
  CSensorStore* store = NewStore();
  capture.Stop();
  ASSERT_TRUE(gFailFired);
  store->PutData(1, MakeSample(1));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  // Completes the set and asks for the replay: the gate opens, nothing is replayed.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  EXPECT_EQ(0, iClient.iReceived);
  store->PutData(1, MakeSample(2));
  EXPECT_EQ(1, iClient.iReceived);
  delete store;
}

TEST_F(ModuleHeapTest, ASubscriptionWhoseListNodeCouldNotBeMadeIsNotCounted) {
  SKIP_WHEN_SANITIZED();
  CSensorStore* store = NewStore();
  FailAllocation(sizeof(CHKNode<CSensorStore::clientRecord>));
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 0));
  ASSERT_TRUE(gFailFired);
  EXPECT_EQ(0, store->SubscriptionCount());
  EXPECT_EQ(nullptr, store->Sensor(0).clients.iHead);
  EXPECT_EQ(0, store->Sensor(0).clients.iCount);
  // Subscribing again then completes the set as if the failed call had not happened.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 0));
  EXPECT_EQ(0, store->Subscribe(iClient, 2, 0));
  EXPECT_EQ(2, store->SubscriptionCount());
  store->PutData(0, MakeSample(5));
  EXPECT_EQ(1, iClient.iReceived);
  delete store;
}

TEST_F(ModuleHeapTest, AReplayWhoseSnapshotCouldNotBeMadeSendsNothingAndReturns0) {
  SKIP_WHEN_SANITIZED();
  CSensorStore* store = NewStore();
  for (int n = 0; n < 10; ++n) store->PutData(0, MakeSample(n));
  ASSERT_EQ(0, store->Subscribe(iClient, 2, 0));
  FailAllocation(10 * sizeof(Sample));
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  ASSERT_TRUE(gFailFired);
  EXPECT_EQ(0, iClient.iReceived);
  // The gate is open all the same.
  store->PutData(0, MakeSample(10));
  EXPECT_EQ(1, iClient.iReceived);
  EXPECT_EQ(MakeSample(10).timeStamp, iClient.iLastTime);
  delete store;
}

TEST_F(ModuleHeapTest, AStoreWithoutSensorsWhoseEmptyBlocksComeBackNullAnswersAReplayRequestWith0) {
  SKIP_WHEN_SANITIZED();
  // An allocation of zero bytes may come back null; the store's sensor array is one.
  iConfig.size = 0;
  host::CStdoutCapture capture;
  FailAllocation(0);
  CSensorStore* store = NewStore();
  const std::string printed = capture.Stop();
  ASSERT_TRUE(gFailFired);
  EXPECT_NE(std::string::npos, printed.find("Assertion failed (iSensorArray != NULL)")) << printed;
  // No sensors: the first subscription already completes the set and asks for a replay.
  EXPECT_EQ(0, store->Subscribe(iClient, 1, 1));
  EXPECT_EQ(0, iClient.iReceived);
  delete store;
}

TEST_F(ModuleHeapTest, AStoreWhoseConfigurationCopyCannotBeMadeSaysSoAndThenDiesUsingIt) {
  SKIP_WHEN_SANITIZED();
  const TChildEnd end = RunInDyingChild([&] {
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    delete NewStore();
  });
  EXPECT_EQ(0u, end.printed.find("\nAssertion failed (iPosSensorConfig.data != NULL) in file ")) << end.printed;
  EXPECT_NE(std::string::npos, end.printed.find(", line 45\n")) << end.printed;
  EXPECT_TRUE(end.signaled);
}

TEST_F(ModuleHeapTest, AnExternalSourceWhoseConfigurationCannotBeMadeSaysSoAndThenDiesUsingIt) {
  SKIP_WHEN_SANITIZED();
  const TChildEnd end = RunInDyingChild([&] {
    FailAllocation(2 * sizeof(TiPositioningSensorEntry));
    delete new CExternalSensor(kFeature, iQuietBroker, iQuietEvents);
  });
  EXPECT_EQ(0u, end.printed.find("\nAssertion failed (aConfig.data != NULL) in file ")) << end.printed;
  EXPECT_TRUE(end.signaled);
}

}  // namespace
