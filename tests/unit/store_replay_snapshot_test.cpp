// The replay copies the buffer into a snapshot that it never frees; a long-standing
// behaviour of the service that is kept, so each replay leaves one buffer's worth of
// records allocated. Read from glibc's allocator statistics, which a sanitizer's
// allocator does not keep: apart from the other subscription tests for that reason.
#include <gtest/gtest.h>
#include <malloc.h>

#include <memory>

#include "CSensorStore.h"
#include "LogFacility.h"
#include "SimulatedPeers.h"
#include "StoreTestSupport.h"
#include "TestHost.h"

namespace {

using testing_store::Sample;

size_t BytesInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

class StoreSubscriptionTest : public testing_host::HostTest {
 protected:
  // Declared before the store, so that the store goes first.
  host::CPositioningClient iA{"1", "A"};
  std::unique_ptr<CSensorStore> iStore;
};

TEST_F(StoreSubscriptionTest, EachReplayLeavesItsSnapshotAllocated) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the allocator statistics are glibc's own";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  GTEST_SKIP() << "the allocator statistics are glibc's own";
#endif
#endif
  host::CLogFacility::Instance().SetDiscard(true);
  iStore = testing_store::MakeStore({{1, 1, 3, 2}, {2, 1, 3, 2}}, iFeatureId, iBroker);
  iA.Attach(iBroker);
  const int capacity = iStore->Sensor(0).buffer->iCapacity;
  ASSERT_EQ(19980, capacity);
  for (int n = 1; n <= capacity + 5; ++n) iStore->PutData(0, testing_store::MakeSample(n));
  ASSERT_EQ(0, iA.Subscribe(1, 0));
  ASSERT_EQ(0, iA.Subscribe(2, 1));
  ASSERT_EQ(static_cast<size_t>(capacity), iA.Samples().size());
  iA.ClearSamples();  // keeps the vector's room for the next replay

  const size_t before = BytesInUse();
  ASSERT_EQ(0, iA.Subscribe(7, 1));
  ASSERT_EQ(static_cast<size_t>(capacity), iA.Samples().size());
  iA.ClearSamples();
  const size_t after = BytesInUse();

  const size_t snapshot = static_cast<size_t>(capacity) * sizeof(Sample);
  ASSERT_GE(after, before);
  EXPECT_GE(after - before + 4096, snapshot);
  EXPECT_LT(after - before, snapshot + 65536);
}

}  // namespace
