#!/usr/bin/env bash
# Counts what the module costs and prints the table: instructions per operation under
# callgrind (with the split into module, host logger and allocator), the heap a feature
# holds, the stripped library size and positioning-sim's throughput.
#
#   scripts/perf/count.sh [--check]      (build: $BUILD_DIR, default build/)
#
# Needs valgrind, python3, binutils and a RelWithDebInfo (-O2) build with the targets
# Positioning, positioning-perf, positioning-heap and positioning-sim. With --check it
# exits 1 when a budget is exceeded or the heap grows with the records.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
for tool in valgrind python3 strip size; do
  command -v "$tool" >/dev/null || { echo "count.sh: $tool is missing" >&2; exit 2; }
done
exec python3 "$ROOT/scripts/perf/perf_report.py" --build "$BUILD" "$@"
