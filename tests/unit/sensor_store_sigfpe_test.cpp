// A sensor entry with a sample period of 0: the store divides by it while sizing the
// buffer, and the process ends with SIGFPE, as it always has. Apart from the other
// store tests because the sanitizers report the division before the signal comes
// (the sanitizer check looks for that report instead).
#include <gtest/gtest.h>
#include <signal.h>

#include "StoreTestSupport.h"
#include "TestHost.h"

namespace {

class SensorStoreTest : public testing_host::HostTest {};

TEST_F(SensorStoreTest, SamplePeriodOfZeroEndsTheProcessWithSigfpe) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(testing_store::MakeStore({{1, 0, 0, 2}}, iFeatureId, iBroker), ::testing::KilledBySignal(SIGFPE), "");
}

}  // namespace
