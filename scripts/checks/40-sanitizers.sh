#!/usr/bin/env bash
# The test suite built with clang under AddressSanitizer, LeakSanitizer and
# UndefinedBehaviorSanitizer, halting on the first report (see run_suite_with_profiles
# for what it leaves out and why); then the leak checker's one
# suppression is shown to cover exactly the replay snapshot, one block per replay, and
# the sanitizer's view of the deliberate division by zero is checked.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
source "$(dirname "$0")/sanitizer-build.bash"
start=$SECONDS

echo "-- clang build with -fsanitize=address,undefined ($SAN_BUILD)"
build_sanitizers all

echo "-- test suite under AddressSanitizer, LeakSanitizer and UndefinedBehaviorSanitizer"
# Its coverage profiles are what 45-coverage.sh reports.
run_suite_with_profiles

echo "-- the one suppression covers the replay snapshots and nothing else"
test_binary="$SAN_BUILD/tests/store_allocation_test"
filter=--gtest_filter=StoreAllocationTest.ThreeReplaysLeaveThreeSnapshots
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# With the suppression: no report, and the suppression matched exactly three blocks.
LSAN_OPTIONS="suppressions=$ROOT/tests/lsan.supp:print_suppressions=1" "$test_binary" "$filter" >"$log" 2>&1 || {
  cat "$log"
  echo "FAILED: three replays under the suppression"
  exit 1
}
used=$(sed -n '/^Suppressions used:/,/^---/p' "$log" | grep -E '^ +[0-9]+ +[0-9]+ ' || true)
echo "   suppressions used: ${used:-none}"
if [ "$(echo "$used" | grep -c .)" -ne 1 ] || ! echo "$used" | grep -Eq '^ +3 +[0-9]+ CSensorStore::ReplayFirstSensor$'; then
  cat "$log"
  echo "FAILED: expected the replay suppression to match exactly 3 blocks"
  exit 1
fi
# Without it: the three snapshots, and nothing else, are reported as leaks.
if LSAN_OPTIONS="print_suppressions=0" "$test_binary" "$filter" >"$log" 2>&1; then
  echo "FAILED: without the suppression the snapshots should be reported"
  exit 1
fi
summary=$(grep -E '^SUMMARY: AddressSanitizer: [0-9]+ byte\(s\) leaked in [0-9]+ allocation\(s\)' "$log" || true)
echo "   without the suppression: ${summary:-no summary}"
if ! echo "$summary" | grep -q 'leaked in 3 allocation(s)' || ! grep -q 'ReplayFirstSensor' "$log"; then
  cat "$log"
  echo "FAILED: expected exactly the three replay snapshots as leaks"
  exit 1
fi

echo "-- a sample period of 0: the sanitizer reports the integer division by zero"
if "$SAN_BUILD/tests/sensor_store_sigfpe_test" --gtest_filter=SensorStoreTest.SamplePeriodOfZeroEndsTheProcessWithSigfpe \
  >"$log" 2>&1; then
  echo "FAILED: the division by zero went unreported"
  exit 1
fi
if ! grep -Eq 'CSensorStore\.cpp:[0-9]+:[0-9]+: runtime error: division by zero' "$log"; then
  cat "$log"
  echo "FAILED: expected UndefinedBehaviorSanitizer's division-by-zero report in CSensorStore.cpp"
  exit 1
fi
echo "   reported: $(grep -Eo 'CSensorStore\.cpp:[0-9]+:[0-9]+: runtime error: division by zero' "$log" | head -1)"

echo "-- sanitizers passed in $((SECONDS - start)) s"
