#!/usr/bin/env bash
# The installed package, as an integrator meets it. cmake --install of a build into a
# scratch prefix must give exactly the module, the headers, the CMake package and the
# pkg-config file. Then, from that prefix alone:
#  - every header compiles on its own, as <Positioning/X.h> and as "X.h";
#  - the example daemon (examples/daemon) builds with find_package(Positioning) and
#    with pkg-config, both linked with --as-needed, loads the module (by full path and
#    by name from the library search path), drives a CAN feature and prints samples;
#  - without the exported symbols (pkg-config --libs left out) loading fails;
#  - the package variables name what they say;
#  - tests/independent_host/package_consumer links the module directly and loads it.
# Native by default; 20-arm.sh runs it for the ARM build with POSITIONING_INSTALL_BUILD
# and POSITIONING_INSTALL_TOOLCHAIN (daemons then run under qemu-arm).
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages cmake ninja-build g++ pkg-config
INSTALL_BUILD=${POSITIONING_INSTALL_BUILD:-$BUILD}
TOOLCHAIN=${POSITIONING_INSTALL_TOOLCHAIN:-}
if [ -n "$TOOLCHAIN" ]; then
  # -Wno-psabi: GCC's notes that an ARM calling convention changed in GCC 7.1.
  CXX_FOR_TARGET=(arm-linux-gnueabihf-g++ -Wno-psabi)
  RUN=("$ROOT/cmake/qemu-arm-run.sh" -L /usr/arm-linux-gnueabihf)
  CONSUMER_FLAGS=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN")
else
  [ "$INSTALL_BUILD" = "$BUILD" ] && build_native >/dev/null
  CXX_FOR_TARGET=(g++)
  RUN=()
  CONSUMER_FLAGS=()
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
fail() { echo "install: FAILED: $*"; exit 1; }

echo "== install: cmake --install $INSTALL_BUILD --prefix $prefix"
cmake --install "$INSTALL_BUILD" --prefix "$prefix" >/dev/null

# Exactly these files, nothing of the simulated host, the tools or the tests.
library=$(cd "$prefix" && find . -name libPositioning.so | sed 's|^\./||')
[ -n "$library" ] || fail "libPositioning.so was not installed"
libdir=$(dirname "$library")
case "$libdir" in
  lib/x86_64-linux-gnu | lib/arm-linux-gnueabihf) ;;
  *) fail "the module is in $libdir, not in the target's multiarch directory" ;;
esac
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
  fail "the installed files differ from the expected ones (- expected, + installed)"
fi
echo "installed: $(wc -l <"$scratch/installed") files"

echo "== install: every header on its own, both include styles"
for header in "$prefix"/include/Positioning/*.h; do
  name=$(basename "$header")
  echo "#include <Positioning/$name>" >"$scratch/angle.cpp"
  echo "#include \"$name\"" >"$scratch/quoted.cpp"
  "${CXX_FOR_TARGET[@]}" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" "$scratch/angle.cpp" ||
    fail "<Positioning/$name> does not compile from $prefix/include"
  "${CXX_FOR_TARGET[@]}" -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include/Positioning" \
    "$scratch/quoted.cpp" || fail "\"$name\" does not compile from $prefix/include/Positioning"
done
echo "headers: $(find "$prefix/include/Positioning" -name '*.h' | wc -l) compile both ways"

# Runs the example daemon; its samples must be there, both sensor types, every record.
run_example() {
  local what=$1
  shift
  "${RUN[@]}" "$@" --seconds 10 >"$scratch/samples.csv" 2>"$scratch/summary.txt" ||
    { cat "$scratch/summary.txt"; fail "$what: the example daemon failed"; }
  local gyro odo
  gyro=$(grep -c '^1,' "$scratch/samples.csv" || true)
  odo=$(grep -c '^2,' "$scratch/samples.csv" || true)
  [ "$(head -1 "$scratch/samples.csv")" = "sensor_type,time_stamp,values" ] || fail "$what: no CSV header"
  { [ "$gyro" -eq 50 ] && [ "$odo" -eq 50 ]; } || fail "$what: $gyro gyroscope and $odo odometer samples, not 50 each"
  echo "$what: $(tail -1 "$scratch/summary.txt")"
}

echo "== install: the example daemon with find_package(Positioning), --as-needed"
cmake -S "$ROOT/examples/daemon" -B "$scratch/example" -G Ninja "${CONSUMER_FLAGS[@]}" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed >/dev/null
cmake --build "$scratch/example" >/dev/null
run_example "cmake" "$scratch/example/positioning-example-daemon"

echo "== install: the example daemon with pkg-config, --as-needed"
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
module=$(pkg-config --variable=module positioning)
[ "$(realpath "$module")" = "$(realpath "$prefix/$library")" ] || fail "pkg-config's module is $module"
[ "$(pkg-config --variable=modulename positioning)" = libPositioning.so ] || fail "pkg-config's modulename"
cmake_module=$(sed -n 's/.*POSITIONING_MODULE_FILE=\\"\([^\\]*\)\\".*/\1/p' "$scratch/example/build.ninja" | head -1)
[ "$(realpath "$cmake_module")" = "$(realpath "$prefix/$library")" ] ||
  fail "Positioning_MODULE_FILE is '$cmake_module'"
# The string ABI the package states is the library's, and reaches the daemon's compiler.
readelf --dyn-syms -W "$prefix/$library" >"$scratch/dynsyms.txt"
if grep -q ' _ZNK\?Ss' "$scratch/dynsyms.txt"; then abi=0; else abi=1; fi
[ "$(pkg-config --variable=cxx11abi positioning)" = "$abi" ] || fail "pkg-config's cxx11abi is not $abi"
# The CMake package's variables, as a project of its own reads them.
mkdir -p "$scratch/probe"
cat >"$scratch/probe/CMakeLists.txt" <<'PROBE'
cmake_minimum_required(VERSION 3.16)
project(PositioningProbe NONE)
find_package(Positioning 1.0 REQUIRED CONFIG)
file(GENERATE OUTPUT ${CMAKE_BINARY_DIR}/variables.txt CONTENT
  "${Positioning_MODULE_FILE}\n${Positioning_MODULE_NAME}\n${Positioning_CXX11_ABI}\n$<TARGET_FILE:Positioning::Positioning>\n")
PROBE
cmake -S "$scratch/probe" -B "$scratch/probe/build" -DPositioning_DIR="$prefix/$libdir/cmake/Positioning" >/dev/null
mapfile -t variables <"$scratch/probe/build/variables.txt"
[ "$(realpath "${variables[0]}")" = "$(realpath "$prefix/$library")" ] || fail "Positioning_MODULE_FILE is '${variables[0]}'"
[ "${variables[1]}" = libPositioning.so ] || fail "Positioning_MODULE_NAME is '${variables[1]}'"
[ "${variables[2]}" = "$abi" ] || fail "Positioning_CXX11_ABI is '${variables[2]}', not $abi"
[ "$(realpath "${variables[3]}")" = "$(realpath "$prefix/$library")" ] ||
  fail "\$<TARGET_FILE:Positioning::Positioning> is '${variables[3]}'"
echo "CMake variables: Positioning_MODULE_FILE, _MODULE_NAME, _CXX11_ABI=$abi and the target's file as installed"
old_abi_flag=$(pkg-config --cflags positioning | grep -c -- '-D_GLIBCXX_USE_CXX11_ABI=0' || true)
cmake_old_abi_flag=$(grep -c -- '-D_GLIBCXX_USE_CXX11_ABI=0' "$scratch/example/build.ninja" || true)
if [ "$abi" -eq 0 ] && { [ "$old_abi_flag" -eq 0 ] || [ "$cmake_old_abi_flag" -eq 0 ]; }; then
  fail "the old-ABI package does not pass -D_GLIBCXX_USE_CXX11_ABI=0 on"
fi
if [ "$abi" -eq 1 ] && { [ "$old_abi_flag" -ne 0 ] || [ "$cmake_old_abi_flag" -ne 0 ]; }; then
  fail "the C++11-ABI package asks for the old ABI"
fi
echo "string ABI: $([ "$abi" -eq 1 ] && echo C++11 || echo old), stated by both package files"
# shellcheck disable=SC2046
"${CXX_FOR_TARGET[@]}" -std=c++17 -Wall -Wextra -Werror $(pkg-config --cflags positioning) \
  -DPOSITIONING_MODULE_FILE="\"$module\"" "$ROOT/examples/daemon/daemon.cpp" \
  -Wl,--as-needed $(pkg-config --libs positioning) -o "$scratch/pkg_config_daemon"
run_example "pkg-config" "$scratch/pkg_config_daemon"
LD_LIBRARY_PATH="$prefix/$libdir" run_example "by name" "$scratch/pkg_config_daemon" libPositioning.so

echo "== install: a daemon that does not export its symbols cannot load the module"
# shellcheck disable=SC2046
"${CXX_FOR_TARGET[@]}" -std=c++17 $(pkg-config --cflags positioning) -DPOSITIONING_MODULE_FILE="\"$module\"" \
  "$ROOT/examples/daemon/daemon.cpp" -ldl -o "$scratch/unexported_daemon"
if "${RUN[@]}" "$scratch/unexported_daemon" --seconds 1 >/dev/null 2>"$scratch/unexported.txt"; then
  fail "the module loaded into a daemon that exports nothing"
fi
grep -q "undefined symbol" "$scratch/unexported.txt" || { cat "$scratch/unexported.txt"; fail "no undefined symbol"; }
echo "refused as expected: $(cat "$scratch/unexported.txt")"

echo "== install: a daemon project linking the module directly, --as-needed"
cmake -S "$ROOT/tests/independent_host/package_consumer" -B "$scratch/consumer" -G Ninja \
  "${CONSUMER_FLAGS[@]}" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_EXE_LINKER_FLAGS=-Wl,--as-needed >/dev/null
cmake --build "$scratch/consumer" >/dev/null
LD_LIBRARY_PATH="$prefix/$libdir" "${RUN[@]}" "$scratch/consumer/loader_host"
LD_LIBRARY_PATH="$prefix/$libdir" "${RUN[@]}" "$scratch/consumer/linked_host"
echo "install: package checked"
