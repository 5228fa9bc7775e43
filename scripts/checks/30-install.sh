#!/usr/bin/env bash
# The installed package. cmake --install of a build into a scratch prefix must give
# exactly the module, the contract headers, the CMake package and the pkg-config file;
# a daemon project of its own (tests/independent_host/package_consumer) then builds
# against it with find_package(Positioning) and with pkg-config, and runs the module.
# Native by default; 20-arm.sh runs it for the ARM build with
# POSITIONING_INSTALL_BUILD and POSITIONING_INSTALL_TOOLCHAIN (daemons run under qemu-arm).
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages cmake ninja-build g++ pkg-config
INSTALL_BUILD=${POSITIONING_INSTALL_BUILD:-$BUILD}
TOOLCHAIN=${POSITIONING_INSTALL_TOOLCHAIN:-}
if [ -n "$TOOLCHAIN" ]; then
  CXX_FOR_TARGET=arm-linux-gnueabihf-g++
  RUN=("$ROOT/cmake/qemu-arm-run.sh" -L /usr/arm-linux-gnueabihf)
  CONSUMER_FLAGS=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN")
else
  [ "$INSTALL_BUILD" = "$BUILD" ] && build_native >/dev/null
  CXX_FOR_TARGET=g++
  RUN=()
  CONSUMER_FLAGS=()
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
echo "== install: cmake --install $INSTALL_BUILD --prefix $prefix"
cmake --install "$INSTALL_BUILD" --prefix "$prefix" >/dev/null

# Exactly these files, nothing of the simulated host, the tools or the tests.
library=$(cd "$prefix" && find . -name libPositioning.so | sed 's|^\./||')
[ -n "$library" ] || { echo "libPositioning.so was not installed"; exit 1; }
libdir=$(dirname "$library")
expected=$scratch/expected
{
  echo "$library"
  for header in "$ROOT"/include/*.h; do echo "include/Positioning/$(basename "$header")"; done
  for file in PositioningConfig.cmake PositioningConfigVersion.cmake PositioningTargets.cmake; do
    echo "$libdir/cmake/Positioning/$file"
  done
  (cd "$prefix" && ls "$libdir"/cmake/Positioning/PositioningTargets-*.cmake)
  echo "$libdir/pkgconfig/positioning.pc"
} | sort >"$expected"
(cd "$prefix" && find . \( -type f -o -type l \) | sed 's|^\./||' | sort) >"$scratch/installed"
if ! diff -u "$expected" "$scratch/installed"; then
  echo "the installed files differ from the expected ones (- expected, + installed)"
  exit 1
fi
echo "installed: $(wc -l <"$scratch/installed") files"

echo "== install: a daemon project built with find_package(Positioning)"
cmake -S "$ROOT/tests/independent_host/package_consumer" -B "$scratch/consumer" -G Ninja \
  "${CONSUMER_FLAGS[@]}" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/consumer" -j "$JOBS" >/dev/null
"${RUN[@]}" "$scratch/consumer/loader_host"
"${RUN[@]}" "$scratch/consumer/linked_host"

echo "== install: a daemon built with pkg-config"
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
module=$(pkg-config --variable=module positioning)
# shellcheck disable=SC2046
"$CXX_FOR_TARGET" -std=c++17 -Wall -Wextra -Werror $(pkg-config --cflags positioning) \
  -DPOSITIONING_MODULE_FILE="\"$module\"" "$ROOT/tests/independent_host/package_consumer/consumer_host.cpp" \
  -rdynamic -ldl -o "$scratch/pkg_config_host"
"${RUN[@]}" "$scratch/pkg_config_host"
echo "install: package checked"
