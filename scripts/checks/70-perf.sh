#!/usr/bin/env bash
# What the module costs, against its budgets: instructions per CAN, external and
# replayed record under callgrind (x86-64, -O2, no-op logger, one client, host and
# allocator included), the heap a feature holds and whether it stays flat over a
# million records, the stripped library size and positioning-sim's throughput
# (scripts/perf/count.sh --check); then a short run of the Google Benchmark timings,
# which only show that they run: times depend on the machine.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages "${BASE_PACKAGES[@]}" valgrind libbenchmark-dev python3 binutils
started=$SECONDS

echo "== perf: build ($BUILD)"
# Configured again so that Google Benchmark, installed only just now on a fresh
# machine, is found; the rest of the tree is already built.
configure_native
cmake --build "$BUILD" -j "$JOBS" --target Positioning positioning-perf positioning-heap positioning_bench \
  positioning-sim

echo "== perf: counts and budgets"
BUILD_DIR="$BUILD" bash "$ROOT/scripts/perf/count.sh" --check

echo "== perf: Google Benchmark (short run)"
"$BUILD/bench/positioning_bench" --benchmark_min_time=0.05

echo "== perf: done in $((SECONDS - started)) s"
