#!/usr/bin/env bash
# The integration tests (the built library loaded as the daemon loads it) under
# valgrind memcheck: no invalid read or write, no use of uninitialised memory, and no
# leak but the replay snapshot, the one suppression of tests/valgrind.supp.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
need_packages "${BASE_PACKAGES[@]}" valgrind
start=$SECONDS
build_native >/dev/null

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
status=0
for source in "$ROOT"/tests/integration/*_test.cpp; do
  name=$(basename "$source" .cpp)
  binary="$BUILD/tests/$name"
  log="$logs/$name.log"
  t=$SECONDS
  # --keep-debuginfo: the module is unloaded before the leak check at exit.
  if valgrind --tool=memcheck --error-exitcode=99 --track-origins=yes --keep-debuginfo=yes \
    --leak-check=full --show-leak-kinds=definite,indirect,possible \
    --errors-for-leak-kinds=definite,indirect,possible \
    --suppressions="$ROOT/tests/valgrind.supp" -s --log-file="$log" \
    "$binary" --gtest_brief=1 >"$logs/$name.out" 2>&1; then
    used=$(grep -Eo 'used_suppression: +[0-9]+ replay-snapshot' "$log" | grep -Eo '[0-9]+' | head -1 || true)
    echo "   $name: clean in $((SECONDS - t)) s (replay snapshots suppressed: ${used:-0})"
  else
    status=1
    tail -n 40 "$logs/$name.out"
    grep -v '^==[0-9]*== *$' "$log" | tail -n 80
    echo "FAILED: $name under valgrind"
  fi
done
[ "$status" -eq 0 ] || exit 1
echo "-- valgrind passed in $((SECONDS - start)) s"
