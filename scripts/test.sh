#!/usr/bin/env bash
# Sets up what the build and the tests need on a fresh machine, builds everything and
# runs every test: the native suite, then each check in scripts/checks/ in order.
# Exits non-zero on the first failure.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

need_packages "${BASE_PACKAGES[@]}"
build_native

echo "== tests"
ctest --test-dir "$BUILD" --output-on-failure -j "$JOBS"

echo "== native build and suite took $SECONDS s"
for check in "$ROOT"/scripts/checks/*.sh; do
  [ -e "$check" ] || continue
  echo "== $(basename "$check" .sh)"
  before=$SECONDS
  bash "$check"
  echo "== $(basename "$check" .sh) took $((SECONDS - before)) s"
done
echo "== all tests passed in $SECONDS s"
