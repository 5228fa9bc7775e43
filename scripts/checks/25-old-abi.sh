#!/usr/bin/env bash
# The old std::string ABI (_GLIBCXX_USE_CXX11_ABI=0), still the default of some older
# board toolchains. The contract passes std::string, so such a daemon needs a module
# built the same way: -DPOSITIONING_OLD_STRING_ABI=ON. For each target (native, and
# arm-linux-gnueabihf under qemu-arm) this builds only the module, the independent host
# and the binary-interface tests in their own tree, with GoogleTest built the same way,
# and runs them: the independent host drives the old-ABI module, the symbol test pins
# its string symbols, the runtime test its version needs against the README. The
# native tree is then installed and the example daemon built and run against it.
#   OLD_ABI_TARGETS="native arm" (default) selects the targets.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages cmake ninja-build g++ pkg-config googletest
TARGETS=${OLD_ABI_TARGETS:-native arm}
TESTS=(Positioning independent_host_test module_symbols_test module_runtime_test host_symbols_header_test)
started=$SECONDS

for target in $TARGETS; do
  case "$target" in
    native)
      tree=${OLD_ABI_BUILD_DIR:-$ROOT/build-oldabi}
      flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG")
      ;;
    arm)
      need_packages g++-arm-linux-gnueabihf qemu-user
      tree=${OLD_ABI_ARM_BUILD_DIR:-$ROOT/build-arm-oldabi}
      flags=(-DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/arm-linux-gnueabihf.cmake" -DCMAKE_BUILD_TYPE=Release
        -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG")
      ;;
    *) echo "unknown target '$target' (native, arm)"; exit 2 ;;
  esac
  gtest=$tree/googletest
  if [ ! -f "$gtest/lib/cmake/GTest/GTestConfig.cmake" ]; then
    # GoogleTest alone: the tests built here use no GoogleMock.
    echo "== old-abi ($target): GoogleTest from /usr/src/googletest"
    cmake -S /usr/src/googletest -B "$tree/googletest-build" -G Ninja "${flags[@]}" -DBUILD_GMOCK=OFF \
      -DCMAKE_CXX_FLAGS=-D_GLIBCXX_USE_CXX11_ABI=0 -DCMAKE_INSTALL_PREFIX="$gtest" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
    cmake --build "$tree/googletest-build" -j "$JOBS" >/dev/null
    cmake --install "$tree/googletest-build" >/dev/null
  fi
  echo "== old-abi ($target): build ($tree)"
  cmake -S "$ROOT" -B "$tree" -G Ninja "${flags[@]}" -DPOSITIONING_OLD_STRING_ABI=ON \
    -DCMAKE_PREFIX_PATH="$gtest" -DPOSITIONING_BUILD_BENCH=OFF >/dev/null
  cmake --build "$tree" -j "$JOBS" --target "${TESTS[@]}"
  echo "== old-abi ($target): tests"
  ctest --test-dir "$tree" --output-on-failure -j "$JOBS" \
    -R '^(IndependentHostTest|ModuleSymbolsTest|ModuleRuntimeTest|HostSymbolsHeaderTest)\.'
  if [ "$target" = native ]; then
    echo "== old-abi ($target): installed package and example daemon"
    POSITIONING_INSTALL_BUILD="$tree" bash "$ROOT/scripts/checks/30-install.sh"
  fi
done
echo "old-abi: $((SECONDS - started)) s"
