// Fixed-capacity ring of records that overwrites its oldest record when full.
#ifndef POSITIONING_RING_BUFFER_H
#define POSITIONING_RING_BUFFER_H

#include <stdint.h>
#include <stdlib.h>

#include "ReflectionInterface.h"

template <class T>
class CRingBuffer {
 public:
  HK_MALLOC_ALLOCATED

  // Slots are zeroed, so that a read of a never-written slot is defined.
  explicit CRingBuffer(int32_t aCapacity)
      : iData(static_cast<T*>(calloc(aCapacity > 0 ? aCapacity : 1, sizeof(T)))),
        iWritePos(0),
        iLastPos(0),
        iCapacity(aCapacity),
        iCount(0) {}
  virtual ~CRingBuffer() { free(iData); }
  CRingBuffer(const CRingBuffer&) = delete;
  CRingBuffer& operator=(const CRingBuffer&) = delete;

  // Writes aRecord over the oldest slot once full. A buffer without slots (capacity 0
  // from a sample period above one second) keeps nothing, rather than write outside its
  // allocation: the write position is then not below the capacity.
  void Put(const T& aRecord) {
    const int32_t pos = iWritePos;
    const int32_t capacity = iCapacity;
    if (pos >= capacity) return;
    iLastPos = pos;
    iData[pos] = aRecord;
    iWritePos = pos + 1 == capacity ? 0 : pos + 1;
    if (iCount < capacity) ++iCount;
  }

  T* iData;           // iCapacity slots
  int32_t iWritePos;  // slot of the next write; the oldest record once wrapped
  int32_t iLastPos;   // slot most recently written
  int32_t iCapacity;
  int32_t iCount;  // slots holding a record
};

#endif  // POSITIONING_RING_BUFFER_H
