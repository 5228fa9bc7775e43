// Runs a piece of a test in a forked child, for code that is meant to crash: what it
// printed is kept even when it dies, and so is its coverage profile where the build
// measures coverage.
#ifndef TESTS_SUPPORT_CRASHING_CHILD_H
#define TESTS_SUPPORT_CRASHING_CHILD_H

#include <functional>
#include <string>

namespace testing_support {

// What a child printed and how it ended.
struct TChildRun {
  std::string out;        // its standard output, unbuffered
  bool finished = false;  // the body returned
  bool signaled = false;  // a signal ended it
  int signal = 0;         // which one
};

// Runs aBody in a child whose standard output goes into a pipe, and waits for it.
TChildRun RunInChild(const std::function<void()>& aBody);

}  // namespace testing_support

#endif  // TESTS_SUPPORT_CRASHING_CHILD_H
