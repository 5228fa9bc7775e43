#!/usr/bin/env bash
# The head unit's target, 32-bit ARM Linux (arm-linux-gnueabihf): cross builds the
# module, host/, the tools and every test with -O2, runs the whole suite under qemu-arm,
# holds the ARM simulator's results over a small library against the native one's
# (label arm), installs the ARM build and builds and runs a daemon against the package
# (30-install.sh), and prints the stripped size of libPositioning.so on both targets.
#
# The DLT tests run too: the ARM simulator links Debian's armhf libdlt (unpacked into
# the build directory) and talks to the native dlt-daemon through its pipe.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages cmake ninja-build g++-arm-linux-gnueabihf qemu-user googletest dlt-daemon dlt-tools
ARM_BUILD=${ARM_BUILD_DIR:-$ROOT/build-arm}

# libdlt for the target: Debian's armhf packages of the same release, unpacked into the
# build directory (cmake/Dlt.cmake looks there). Not installed through multiarch: that
# brings libc6:armhf, whose entries in the loader cache make qemu's cross loader
# (libc6-armhf-cross) pick a C library of another build, and programs crash.
DLT_ROOT=$ARM_BUILD/dlt-sysroot
if [ ! -f "$DLT_ROOT/usr/lib/arm-linux-gnueabihf/libdlt.so.2" ]; then
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  if ! dpkg --print-foreign-architectures | grep -qx armhf; then
    echo "== adding the armhf architecture to apt's lists (for libdlt's armhf packages)"
    $sudo dpkg --add-architecture armhf
    APT_UPDATED=
  fi
  if [ -z "${APT_UPDATED:-}" ]; then
    # A mirror that is mid-sync for one index fails the update; what was fetched is used.
    $sudo apt-get update -qq || echo "warning: apt-get update reported errors; going on with what it fetched"
    APT_UPDATED=1
  fi
  echo "== arm: libdlt from Debian's armhf packages into $DLT_ROOT"
  debs=$(mktemp -d)
  (cd "$debs" && apt-get download -qq libdlt2:armhf libdlt-dev:armhf 2>/dev/null)
  mkdir -p "$DLT_ROOT"
  for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$DLT_ROOT"; done
  rm -rf "$debs"
fi
TOOLCHAIN=$ROOT/cmake/arm-linux-gnueabihf.cmake
GTEST_PREFIX=$ARM_BUILD/googletest
ARM_FLAGS=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG")
started=$SECONDS

# GoogleTest for the target, built from Debian's sources once per build directory.
if [ ! -f "$GTEST_PREFIX/lib/cmake/GTest/GTestConfig.cmake" ]; then
  echo "== arm: GoogleTest from /usr/src/googletest"
  cmake -S /usr/src/googletest -B "$ARM_BUILD/googletest-build" -G Ninja "${ARM_FLAGS[@]}" \
    -DCMAKE_INSTALL_PREFIX="$GTEST_PREFIX" >/dev/null
  cmake --build "$ARM_BUILD/googletest-build" -j "$JOBS" >/dev/null
  cmake --install "$ARM_BUILD/googletest-build" >/dev/null
fi

# The native simulator, for the test that holds the ARM build's results against it.
if [ ! -x "$BUILD/tools/positioning-sim/positioning-sim" ]; then
  echo "== arm: native positioning-sim ($BUILD)"
  configure_native
fi
cmake --build "$BUILD" -j "$JOBS" --target positioning-sim >/dev/null

echo "== arm: build ($ARM_BUILD)"
cmake -S "$ROOT" --preset arm -B "$ARM_BUILD" -DCMAKE_PREFIX_PATH="$GTEST_PREFIX" \
  -DPOSITIONING_NATIVE_SIM="$BUILD/tools/positioning-sim/positioning-sim" >/dev/null
cmake --build "$ARM_BUILD" -j "$JOBS"
built=$SECONDS

echo "== arm: tests under qemu-arm"
# The tests labelled slow (paced replays in wall-clock time, the DLT daemon, the drive
# library's scripts) time the tools and their scripts, not the module, and under
# emulation take as long as all the others together: they run natively only.
ctest --test-dir "$ARM_BUILD" --output-on-failure -j "$JOBS" -LE slow
tested=$SECONDS

echo "== arm: installed package"
POSITIONING_INSTALL_BUILD="$ARM_BUILD" POSITIONING_INSTALL_TOOLCHAIN="$TOOLCHAIN" bash "$ROOT/scripts/checks/30-install.sh"

echo "== arm: stripped size of libPositioning.so"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
arm-linux-gnueabihf-strip -o "$scratch/arm.so" "$ARM_BUILD/Positioning/libPositioning.so"
echo "arm-linux-gnueabihf -O2: $(stat -c %s "$scratch/arm.so") bytes"
if [ -f "$BUILD/Positioning/libPositioning.so" ]; then
  strip -o "$scratch/native.so" "$BUILD/Positioning/libPositioning.so"
  echo "$(uname -m) -O2:            $(stat -c %s "$scratch/native.so") bytes"
fi
echo "arm: build $((built - started)) s, tests $((tested - built)) s, total $((SECONDS - started)) s"
