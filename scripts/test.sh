#!/usr/bin/env bash
# Sets up what the build and tests need on a fresh machine, builds everything and runs
# every test. Exits non-zero on the first failure.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
JOBS=${JOBS:-$(nproc)}

# Debian packages the build and the tests need.
PACKAGES=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libdlt-dev dlt-daemon dlt-tools gnuplot-nox)

missing=()
for package in "${PACKAGES[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi

echo "== build ($BUILD)"
cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$BUILD" -j "$JOBS"

echo "== tests"
ctest --test-dir "$BUILD" --output-on-failure -j "$JOBS"
