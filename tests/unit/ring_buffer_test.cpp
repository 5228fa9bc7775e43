// CRingBuffer: construction, writes, wrap-around and the position invariants that the
// sensor store relies on (write position, last position, count).
#include <gtest/gtest.h>

#include <stdint.h>

#include <type_traits>

#include "RingBuffer.h"

namespace {

struct TRecord {
  uint64_t stamp;
  uint8_t size;
  int16_t values[10];
};

TRecord Record(int aNumber) {
  TRecord record;
  record.stamp = 1000u + static_cast<uint64_t>(aNumber);
  record.size = static_cast<uint8_t>(aNumber % 11);
  for (int i = 0; i < 10; ++i) record.values[i] = static_cast<int16_t>(aNumber * 10 + i);
  return record;
}

bool SameRecord(const TRecord& aLeft, const TRecord& aRight) {
  if (aLeft.stamp != aRight.stamp || aLeft.size != aRight.size) return false;
  for (int i = 0; i < 10; ++i) {
    if (aLeft.values[i] != aRight.values[i]) return false;
  }
  return true;
}

TEST(RingBufferTest, StartsEmptyWithAllPositionsAtZero) {
  CRingBuffer<TRecord> buffer(300);
  EXPECT_NE(nullptr, buffer.iData);
  EXPECT_EQ(300, buffer.iCapacity);
  EXPECT_EQ(0, buffer.iWritePos);
  EXPECT_EQ(0, buffer.iLastPos);
  EXPECT_EQ(0, buffer.iCount);
}

TEST(RingBufferTest, NeverWrittenSlotsReadAsZero) {
  CRingBuffer<TRecord> buffer(4);
  TRecord zero = {};
  for (int slot = 0; slot < 4; ++slot) EXPECT_TRUE(SameRecord(zero, buffer.iData[slot])) << "slot " << slot;
}

TEST(RingBufferTest, FirstWriteGoesToSlotZero) {
  CRingBuffer<TRecord> buffer(5);
  buffer.Put(Record(1));
  EXPECT_TRUE(SameRecord(Record(1), buffer.iData[0]));
  EXPECT_EQ(1, buffer.iWritePos);
  EXPECT_EQ(0, buffer.iLastPos);
  EXPECT_EQ(1, buffer.iCount);
}

TEST(RingBufferTest, WriteCopiesTheWholeRecord) {
  CRingBuffer<TRecord> buffer(5);
  TRecord record = Record(7);
  record.size = 1;  // values past size are still carried along
  buffer.Put(record);
  record.values[9] = -1;  // the buffer keeps its own copy
  EXPECT_EQ(1007u, buffer.iData[0].stamp);
  EXPECT_EQ(1, buffer.iData[0].size);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(70 + i, buffer.iData[0].values[i]) << "value " << i;
}

TEST(RingBufferTest, WritePositionEqualsCountWhileFilling) {
  CRingBuffer<TRecord> buffer(6);
  for (int n = 1; n <= 5; ++n) {
    buffer.Put(Record(n));
    EXPECT_EQ(n, buffer.iCount);
    EXPECT_EQ(n, buffer.iWritePos);
    EXPECT_EQ(n - 1, buffer.iLastPos);
    EXPECT_TRUE(SameRecord(Record(n), buffer.iData[n - 1]));
  }
}

TEST(RingBufferTest, FillingTheLastSlotWrapsTheWritePositionToZero) {
  CRingBuffer<TRecord> buffer(4);
  for (int n = 1; n <= 4; ++n) buffer.Put(Record(n));
  EXPECT_EQ(0, buffer.iWritePos);
  EXPECT_EQ(3, buffer.iLastPos);
  EXPECT_EQ(4, buffer.iCount);
}

TEST(RingBufferTest, AFullBufferOverwritesItsOldestRecord) {
  CRingBuffer<TRecord> buffer(4);
  for (int n = 1; n <= 5; ++n) buffer.Put(Record(n));
  EXPECT_TRUE(SameRecord(Record(5), buffer.iData[0]));
  EXPECT_TRUE(SameRecord(Record(2), buffer.iData[1]));
  EXPECT_EQ(1, buffer.iWritePos);
  EXPECT_EQ(0, buffer.iLastPos);
  EXPECT_EQ(4, buffer.iCount);
}

TEST(RingBufferTest, InvariantsHoldOverManyWrites) {
  const int capacity = 7;
  CRingBuffer<TRecord> buffer(capacity);
  for (int n = 1; n <= 100; ++n) {
    buffer.Put(Record(n));
    ASSERT_GE(buffer.iWritePos, 0);
    ASSERT_LT(buffer.iWritePos, capacity);
    ASSERT_LE(buffer.iCount, capacity);
    ASSERT_TRUE(SameRecord(Record(n), buffer.iData[buffer.iLastPos])) << "newest after write " << n;
    if (n < capacity) {
      ASSERT_EQ(n, buffer.iCount);
      ASSERT_EQ(buffer.iCount, buffer.iWritePos);
    } else {
      ASSERT_EQ(capacity, buffer.iCount);
      // Once wrapped, the next slot to write holds the oldest record.
      ASSERT_TRUE(SameRecord(Record(n - capacity + 1), buffer.iData[buffer.iWritePos])) << "oldest after write " << n;
    }
  }
}

TEST(RingBufferTest, ABufferWithoutSlotsKeepsNothing) {
  CRingBuffer<TRecord> buffer(0);
  buffer.Put(Record(1));
  buffer.Put(Record(2));
  EXPECT_EQ(0, buffer.iCapacity);
  EXPECT_EQ(0, buffer.iCount);
  EXPECT_EQ(0, buffer.iWritePos);
  EXPECT_EQ(0, buffer.iLastPos);
}

TEST(RingBufferTest, IsDeletedThroughAVirtualDestructor) {
  EXPECT_TRUE(std::has_virtual_destructor<CRingBuffer<TRecord>>::value);
}

}  // namespace
