// Where an Itanium pointer to member function points: for a virtual function the
// 1-based slot in the table of the class it is taken from (destructor pair = 1, 2),
// and the adjustment of `this`. x86-64 marks virtual functions in the low bit of ptr
// (ptr = 1 + byte offset); 32-bit ARM and AArch64 mark them in the low bit of adj
// (ptr = byte offset, adj = 2 * adjustment + 1).
#ifndef TESTS_MEMBER_SLOT_H
#define TESTS_MEMBER_SLOT_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace testing_host {

struct TSlot {
  bool isVirtual;
  size_t slot;
  ptrdiff_t adjustment;
};

template <class TMember>
TSlot SlotOf(TMember aMember) {
  struct {
    uintptr_t ptr;
    ptrdiff_t adj;
  } rep;
  static_assert(sizeof(TMember) == sizeof(rep), "Itanium pointer to member function");
  memcpy(&rep, &aMember, sizeof rep);
#if defined(__arm__) || defined(__aarch64__)
  const bool isVirtual = (rep.adj & 1) != 0;
  const uintptr_t offset = rep.ptr;
  const ptrdiff_t adjustment = rep.adj >> 1;
#else
  const bool isVirtual = (rep.ptr & 1) != 0;
  const uintptr_t offset = rep.ptr - 1;
  const ptrdiff_t adjustment = rep.adj;
#endif
  return TSlot{isVirtual, isVirtual ? offset / sizeof(void*) + 1 : 0, adjustment};
}

}  // namespace testing_host

#endif  // TESTS_MEMBER_SLOT_H
