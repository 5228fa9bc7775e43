// The heap watch: its tables of blocks, and what fills them: malloc, calloc, realloc and
// free of our own over the C library's, or AddressSanitizer's allocation hooks.
#include "HeapWatch.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#ifdef HEAP_WATCH_UNDER_ASAN
#include <sanitizer/allocator_interface.h>
#endif

namespace testing_support {

namespace {

const size_t kGuard = 16;
const unsigned char kGuardByte = 0xA5;

struct TBlock {
  const volatile void* pointer;
  size_t size;
};
// Fixed tables: the watch must not allocate while it records an allocation.
const size_t kMaxBlocks = 4096;
TBlock gLive[kMaxBlocks];  // made while watching and not freed since
size_t gLiveCount = 0;
size_t gMade[kMaxBlocks];  // sizes of the blocks made while watching, in order
size_t gMadeCount = 0;
bool gWatching = false;
bool gOverflow = false;
int gGuardsBroken = 0;

bool gFailArmed = false;
size_t gFailSize = 0;
int gFailSkip = 0;
bool gFailFired = false;

[[maybe_unused]] void PutGuard(void* aPointer, size_t aSize) {
  memset(static_cast<unsigned char*>(aPointer) + aSize, kGuardByte, kGuard);
}

bool GuardIntact(const volatile void* aPointer, size_t aSize) {
  if (!kHeapWatchOwnsAllocator) return true;
  const volatile unsigned char* guard = static_cast<const volatile unsigned char*>(aPointer) + aSize;
  for (size_t i = 0; i < kGuard; ++i) {
    if (guard[i] != kGuardByte) return false;
  }
  return true;
}

void Made(const volatile void* aPointer, size_t aSize) {
  if (!gWatching || aPointer == nullptr) return;
  if (gLiveCount == kMaxBlocks || gMadeCount == kMaxBlocks) {
    gOverflow = true;
    return;
  }
  gLive[gLiveCount++] = {aPointer, aSize};
  gMade[gMadeCount++] = aSize;
}

// The entry of a block made while watching, null for any other.
TBlock* Find(const volatile void* aPointer) {
  if (aPointer == nullptr) return nullptr;
  for (size_t i = 0; i < gLiveCount; ++i) {
    if (gLive[i].pointer == aPointer) return &gLive[i];
  }
  return nullptr;
}

// Checks the guard of a watched block that is about to go.
void CheckGuard(const TBlock* aBlock) {
  if (aBlock != nullptr && !GuardIntact(aBlock->pointer, aBlock->size)) ++gGuardsBroken;
}

void Forget(TBlock* aBlock) {
  if (aBlock != nullptr) *aBlock = gLive[--gLiveCount];
}

// Forgets a watched block that is freed, checking its guard first.
void Unmade(const volatile void* aPointer) {
  TBlock* block = Find(aPointer);
  CheckGuard(block);
  Forget(block);
}

// Whether this allocation is the one to fail.
[[maybe_unused]] bool ShouldFail(size_t aSize) {
  if (!gFailArmed || aSize != gFailSize) return false;
  if (gFailSkip > 0) {
    --gFailSkip;
    return false;
  }
  gFailArmed = false;
  gFailFired = true;
  return true;
}

// Whether aSize bytes and a guard exceed what can be asked for.
[[maybe_unused]] bool TooLarge(size_t aSize) {
  if (aSize <= SIZE_MAX - kGuard) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

THeapWatch WatchHeap(const std::function<void()>& aBody) {
  gLiveCount = 0;
  gMadeCount = 0;
  gOverflow = false;
  gWatching = true;
  aBody();
  gWatching = false;
  EXPECT_FALSE(gOverflow) << "more blocks were made than the watch can list";
  THeapWatch watch;
  watch.made.assign(gMade, gMade + gMadeCount);
  for (size_t i = 0; i < gLiveCount; ++i) {
    watch.live.push_back(gLive[i].size);
    CheckGuard(&gLive[i]);
    // Forgotten here, so that a leak checker does not find the block through this table.
    gLive[i].pointer = nullptr;
  }
  gLiveCount = 0;
  return watch;
}

size_t WatchedLiveBlocks() { return gLiveCount; }

void FailAllocation(size_t aSize, int aSkip) {
  gFailSize = aSize;
  gFailSkip = aSkip;
  gFailFired = false;
  gFailArmed = true;
}

bool AllocationFailed() { return gFailFired; }

void DisarmHeapWatch() {
  gFailArmed = false;
  gWatching = false;
}

int BrokenGuards() { return gGuardsBroken; }

void ForgetBrokenGuards() { gGuardsBroken = 0; }

}  // namespace testing_support

#ifdef HEAP_WATCH_UNDER_ASAN

namespace {
void MallocHook(const volatile void* aPointer, size_t aSize) { testing_support::Made(aPointer, aSize); }
void FreeHook(const volatile void* aPointer) { testing_support::Unmade(aPointer); }
[[maybe_unused]] const int kHooksInstalled = __sanitizer_install_malloc_and_free_hooks(MallocHook, FreeHook);
}  // namespace

#else

using testing_support::Find;
using testing_support::Forget;
using testing_support::kGuard;
using testing_support::Made;
using testing_support::PutGuard;
using testing_support::ShouldFail;
using testing_support::TooLarge;
using testing_support::Unmade;

extern "C" {
void* __libc_malloc(size_t aSize);
void* __libc_calloc(size_t aCount, size_t aSize);
void* __libc_realloc(void* aPointer, size_t aSize);
void __libc_free(void* aPointer);

void* malloc(size_t aSize) noexcept {
  if (ShouldFail(aSize) || TooLarge(aSize)) return nullptr;
  void* pointer = __libc_malloc(aSize + kGuard);
  if (pointer == nullptr) return nullptr;
  PutGuard(pointer, aSize);
  Made(pointer, aSize);
  return pointer;
}

void* calloc(size_t aCount, size_t aSize) noexcept {
  if (aSize != 0 && aCount > SIZE_MAX / aSize) {
    errno = ENOMEM;
    return nullptr;
  }
  const size_t size = aCount * aSize;
  if (ShouldFail(size) || TooLarge(size)) return nullptr;
  void* pointer = __libc_calloc(1, size + kGuard);
  if (pointer == nullptr) return nullptr;
  PutGuard(pointer, size);
  Made(pointer, size);
  return pointer;
}

// Never made to fail: the failures armed are those of new blocks.
void* realloc(void* aPointer, size_t aSize) noexcept {
  if (TooLarge(aSize)) return nullptr;
  // The old block's guard is read while it is still there.
  testing_support::CheckGuard(Find(aPointer));
  void* pointer = __libc_realloc(aPointer, aSize + kGuard);
  // On failure the old block stays, and so does its entry.
  if (pointer == nullptr) return nullptr;
  Forget(Find(aPointer));
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
