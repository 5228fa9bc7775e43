// A module built differently on purpose, for the tests that compare two builds: every
// sample the store is handed is stamped 1 ms later. Forced (-include) into the sources
// that hand samples to the store, by the test-only target in tests/tools/CMakeLists.txt;
// the module's own sources and build know nothing of it.
#ifndef TESTS_LATE_BY_ONE_MS_H
#define TESTS_LATE_BY_ONE_MS_H

#include "CSensorStore.h"

namespace late_build {

inline CSensorStore::TSensorData OneMsLater(const CSensorStore::TSensorData& aSample) {
  CSensorStore::TSensorData later = aSample;
  later.timeStamp += 1;
  return later;
}

}  // namespace late_build

// Defined after the store's declaration (included above, guarded): only the calls change.
#define PutData(aHandle, aSample) PutData(aHandle, late_build::OneMsLater(aSample))

#endif  // TESTS_LATE_BY_ONE_MS_H
