#!/usr/bin/env bash
# Worst-case stack depth of every entry point the daemon calls, from the ARM build's
# per-function stack usage and call graph (GCC -fstack-usage -fcallgraph-info=su).
# Fails on a frame of unbounded size, recursion, an indirect call site missing from
# scripts/checks/stack-calls.txt, or a depth over the budget.
#
#   scripts/checks/25-stack.sh              build the module for ARM in build-stack/, check
#   scripts/checks/25-stack.sh --markdown   the same, the table as the README has it
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

markdown=()
case "${1:-}" in
  -h | --help)
    sed -n '2,8p' "$0" | sed 's/^# \{0,1\}//'
    exit 0
    ;;
  --markdown) markdown=(--markdown) ;;
  "") ;;
  *)
    echo "error: unknown argument '$1' (see --help)" >&2
    exit 2
    ;;
esac

STACK_BUILD=${STACK_BUILD_DIR:-$ROOT/build-stack}
# Bytes of the module's own frames on the deepest path of any entry point.
STACK_BUDGET=${STACK_BUDGET:-512}
start=$SECONDS

need_packages cmake ninja-build g++-arm-linux-gnueabihf

echo "-- ARM build of the module with stack usage and call graphs ($STACK_BUILD)"
# The same compiler and flags as the ARM step's build (20-arm.sh), the module alone.
cmake -S "$ROOT" -B "$STACK_BUILD" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/arm-linux-gnueabihf.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DCMAKE_CXX_FLAGS="-fstack-usage -fcallgraph-info=su" \
  -DPOSITIONING_BUILD_TESTS=OFF -DPOSITIONING_BUILD_BENCH=OFF >/dev/null
cmake --build "$STACK_BUILD" --target Positioning -j "$JOBS" >/dev/null

echo "-- worst-case depth per entry point (host, C library and peers excluded: leaves)"
python3 "$ROOT/scripts/checks/stack_depth.py" "$STACK_BUILD/Positioning" "$ROOT/scripts/checks/stack-calls.txt" \
  --root "$ROOT" --compile-dir "$STACK_BUILD" --budget "$STACK_BUDGET" "${markdown[@]}"
echo "   stack step took $((SECONDS - start)) s"
