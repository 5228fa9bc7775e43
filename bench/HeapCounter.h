// Counts the heap the module holds. The program that links HeapCounter.cpp replaces
// malloc and its relatives for the whole process (the real work is glibc's) and keeps,
// per live block, its requested size and whether the module asked for it: called
// directly from the module's code, or through the C++ library (std::string) on the
// module's behalf. Sizes are the requested ones, without the allocator's overhead.
#ifndef BENCH_HEAP_COUNTER_H
#define BENCH_HEAP_COUNTER_H

#include <stdint.h>

namespace heap {

// Marks the loaded object that contains aAddress (any function of it) as the module.
// Allocations made before this are not the module's.
bool SetModule(const void* aAddress);

// Bytes the module holds now, and the most it held since the last ResetPeak.
uint64_t ModuleBytes();
uint64_t ModulePeak();
void ResetPeak();
// Allocations the module made so far.
uint64_t ModuleAllocations();

}  // namespace heap

#endif  // BENCH_HEAP_COUNTER_H
