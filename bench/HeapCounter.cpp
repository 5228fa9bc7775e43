#include "HeapCounter.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <new>

// glibc's own entry points, which the replacements below forward to.
extern "C" {
void* __libc_malloc(size_t aSize);
void __libc_free(void* aPointer);
void* __libc_calloc(size_t aCount, size_t aSize);
void* __libc_realloc(void* aPointer, size_t aSize);
}

namespace {

struct Range {
  uintptr_t begin = 0;
  uintptr_t end = 0;
  bool Contains(const void* aAddress) const {
    const uintptr_t address = reinterpret_cast<uintptr_t>(aAddress);
    return address >= begin && address < end;
  }
};

// One live block. Open addressing with linear probing; deletion shifts the following
// entries back, so that no tombstones pile up over millions of allocations.
struct Slot {
  uintptr_t key;
  uint32_t size;
  uint32_t module;
};

const unsigned kSlotBits = 19;
const size_t kSlotCount = size_t(1) << kSlotBits;
const size_t kSlotMask = kSlotCount - 1;
Slot gSlots[kSlotCount];

Range gModule;
Range gCxxLibrary;
bool gInside = false;  // set while the counter itself runs code that may allocate
uint64_t gModuleBytes = 0;
uint64_t gModulePeak = 0;
uint64_t gModuleAllocations = 0;

size_t Home(uintptr_t aKey) { return static_cast<size_t>((aKey >> 4) * 0x9E3779B97F4A7C15ull >> (64 - kSlotBits)); }

void Insert(void* aPointer, size_t aSize, bool aModule) {
  const uintptr_t key = reinterpret_cast<uintptr_t>(aPointer);
  size_t i = Home(key);
  for (size_t probes = 0; gSlots[i].key != 0; ++probes) {
    if (probes == kSlotCount) {
      fputs("heap counter: table full\n", stderr);
      abort();
    }
    i = (i + 1) & kSlotMask;
  }
  gSlots[i].key = key;
  gSlots[i].size = static_cast<uint32_t>(aSize);
  gSlots[i].module = aModule ? 1 : 0;
  if (aModule) {
    gModuleBytes += aSize;
    ++gModuleAllocations;
    if (gModuleBytes > gModulePeak) gModulePeak = gModuleBytes;
  }
}

void Remove(void* aPointer) {
  const uintptr_t key = reinterpret_cast<uintptr_t>(aPointer);
  size_t i = Home(key);
  while (gSlots[i].key != key) {
    if (gSlots[i].key == 0) return;  // not ours (allocated before the process could count)
    i = (i + 1) & kSlotMask;
  }
  if (gSlots[i].module != 0) gModuleBytes -= gSlots[i].size;
  size_t j = i;
  for (;;) {
    j = (j + 1) & kSlotMask;
    if (gSlots[j].key == 0) break;
    const size_t home = Home(gSlots[j].key);
    // Entry j may move into the hole at i unless its home lies cyclically in (i, j].
    const bool stays = i <= j ? (home > i && home <= j) : (home > i || home <= j);
    if (!stays) {
      gSlots[i] = gSlots[j];
      i = j;
    }
  }
  gSlots[i].key = 0;
}

// Whether the allocation whose immediate caller is aCaller was made for the module:
// called from its code, or from the C++ library called from its code.
bool ForModule(const void* aCaller) {
  if (gModule.Contains(aCaller)) return true;
  if (gInside || !gCxxLibrary.Contains(aCaller)) return false;
  gInside = true;
  void* frames[16];
  const int depth = backtrace(frames, 16);
  gInside = false;
  int i = 0;
  while (i < depth && !gCxxLibrary.Contains(frames[i])) ++i;
  while (i < depth && gCxxLibrary.Contains(frames[i])) ++i;
  return i < depth && gModule.Contains(frames[i]);
}

struct Lookup {
  const char* name;
  Range range;
};

int FindSegments(dl_phdr_info* aInfo, size_t, void* aData) {
  Lookup* lookup = static_cast<Lookup*>(aData);
  if (aInfo->dlpi_name == nullptr || strcmp(aInfo->dlpi_name, lookup->name) != 0) return 0;
  for (int i = 0; i < aInfo->dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = aInfo->dlpi_phdr[i];
    if (header.p_type != PT_LOAD) continue;
    const uintptr_t begin = aInfo->dlpi_addr + header.p_vaddr;
    const uintptr_t end = begin + header.p_memsz;
    if (lookup->range.begin == 0 || begin < lookup->range.begin) lookup->range.begin = begin;
    if (end > lookup->range.end) lookup->range.end = end;
  }
  return 1;
}

bool RangeOf(const void* aAddress, Range& aRange) {
  Dl_info info;
  if (dladdr(aAddress, &info) == 0 || info.dli_fname == nullptr) return false;
  Lookup lookup = {info.dli_fname, Range()};
  dl_iterate_phdr(FindSegments, &lookup);
  aRange = lookup.range;
  return aRange.end > aRange.begin;
}

}  // namespace

namespace heap {

bool SetModule(const void* aAddress) {
  gInside = true;
  // The first backtrace loads the unwinder; let that happen here, not inside malloc.
  void* frames[4];
  backtrace(frames, 4);
  void* (*allocate)(size_t) = &::operator new;
  const bool found = RangeOf(reinterpret_cast<const void*>(allocate), gCxxLibrary) && RangeOf(aAddress, gModule);
  gInside = false;
  return found;
}

uint64_t ModuleBytes() { return gModuleBytes; }
uint64_t ModulePeak() { return gModulePeak; }
void ResetPeak() { gModulePeak = gModuleBytes; }
uint64_t ModuleAllocations() { return gModuleAllocations; }

}  // namespace heap

extern "C" {

void* malloc(size_t aSize) {
  const void* caller = __builtin_return_address(0);
  void* pointer = __libc_malloc(aSize);
  if (pointer != nullptr) Insert(pointer, aSize, ForModule(caller));
  return pointer;
}

void* calloc(size_t aCount, size_t aSize) {
  const void* caller = __builtin_return_address(0);
  void* pointer = __libc_calloc(aCount, aSize);
  if (pointer != nullptr) Insert(pointer, aCount * aSize, ForModule(caller));
  return pointer;
}

void* realloc(void* aPointer, size_t aSize) {
  const void* caller = __builtin_return_address(0);
  void* pointer = __libc_realloc(aPointer, aSize);
  if (aPointer != nullptr && (pointer != nullptr || aSize == 0)) Remove(aPointer);
  if (pointer != nullptr) Insert(pointer, aSize, ForModule(caller));
  return pointer;
}

void free(void* aPointer) {
  if (aPointer == nullptr) return;
  Remove(aPointer);
  __libc_free(aPointer);
}

}  // extern "C"
