// Watches the heap of the test program it is compiled into: the blocks a piece of code
// makes and which of them it leaves, writes past a block's end, and allocations made to
// fail on purpose.
//
// HeapWatch.cpp defines malloc, calloc, realloc and free, so it must be a source of
// each test program that uses it (never taken from a library, where the linker might
// leave it out and keep the C library's). Every block it makes carries a guard of known
// bytes after its end, checked when the block is freed and when a watch ends. Under
// AddressSanitizer, whose allocator must stay in place, the allocator's hooks watch
// instead: blocks are listed, but nothing is guarded and nothing can be made to fail.
#ifndef TESTS_SUPPORT_HEAP_WATCH_H
#define TESTS_SUPPORT_HEAP_WATCH_H

#include <stddef.h>

#include <functional>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define HEAP_WATCH_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HEAP_WATCH_UNDER_ASAN 1
#endif
#endif

namespace testing_support {

// Whether the allocator is the watch's own: blocks are guarded and FailAllocation
// works. False under AddressSanitizer; tests that need either skip there.
#ifdef HEAP_WATCH_UNDER_ASAN
constexpr bool kHeapWatchOwnsAllocator = false;
#else
constexpr bool kHeapWatchOwnsAllocator = true;
#endif

// What a watched piece of code did with the heap.
struct THeapWatch {
  std::vector<size_t> made;  // sizes of the blocks it made, in order
  std::vector<size_t> live;  // sizes of those it left allocated
};

// Runs aBody and says which blocks it made and left. The blocks it left are checked for
// their guards and then forgotten, so that nothing here keeps them reachable for a leak
// checker. Fails the test when there were more blocks than the watch can list.
THeapWatch WatchHeap(const std::function<void()>& aBody);

// How many blocks made by the running watch are allocated now: for the watched body.
size_t WatchedLiveBlocks();

// Makes an allocation of exactly aSize bytes fail, after aSkip others of that size have
// been made. Works only where kHeapWatchOwnsAllocator.
void FailAllocation(size_t aSize, int aSkip = 0);

// Whether the failure FailAllocation armed has happened since.
bool AllocationFailed();

// Disarms a failure that has not happened and ends a watch an assertion left running:
// for a test's tear-down.
void DisarmHeapWatch();

// How many guarded blocks were found written past their end since the count was last
// forgotten.
int BrokenGuards();

// Starts the count of BrokenGuards again from zero.
void ForgetBrokenGuards();

}  // namespace testing_support

#endif  // TESTS_SUPPORT_HEAP_WATCH_H
