#!/usr/bin/env bash
# The Debian packages (cpack -G DEB) for amd64, from the native build, and for armhf,
# from the ARM build of 20-arm.sh when it is there (ARM_BUILD_DIR). For each: exactly
# the expected files (dpkg-deb --contents), the control fields, lintian clean apart
# from the overrides in cmake/deb/*.lintian-overrides (each with its reason), and the
# packages unpacked into a scratch root the way an image build installs them, with the
# example daemon built against that root and run (ARM under qemu-arm).
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

need_packages cmake ninja-build g++ pkg-config lintian
ARM_BUILD=${ARM_BUILD_DIR:-$ROOT/build-arm}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "deb: FAILED: $*"; exit 1; }

check_packages() {
  local tree=$1 arch=$2 triplet=$3 machine=$4
  local out=$scratch/$arch version runtime dev
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$tree/CMakeCache.txt")-1
  runtime=$out/positioning-module_${version}_$arch.deb
  dev=$out/positioning-module-dev_${version}_$arch.deb
  echo "== deb ($arch): cpack -G DEB in $tree"
  (cd "$tree" && cpack -G DEB -B "$out" >/dev/null) || fail "cpack in $tree"
  { [ -f "$runtime" ] && [ -f "$dev" ]; } || fail "expected $(basename "$runtime") and $(basename "$dev"), got: $(ls "$out")"

  # The files of each package, without directories.
  contents() { dpkg-deb --contents "$1" | awk '$1 !~ /^d/ {print $6}' | sed 's|^\./||' | sort; }
  {
    echo "usr/lib/$triplet/libPositioning.so"
    echo "usr/share/doc/positioning-module/changelog.Debian.gz"
    echo "usr/share/doc/positioning-module/copyright"
    echo "usr/share/lintian/overrides/positioning-module"
  } | sort >"$scratch/expected-runtime"
  {
    for header in "$ROOT"/include/*.h; do echo "usr/include/Positioning/$(basename "$header")"; done
    for file in PositioningConfig.cmake PositioningConfigVersion.cmake PositioningTargets.cmake \
      "PositioningTargets-$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$tree/CMakeCache.txt" | tr '[:upper:]' '[:lower:]').cmake"; do
      echo "usr/lib/$triplet/cmake/Positioning/$file"
    done
    echo "usr/lib/$triplet/pkgconfig/positioning.pc"
    echo "usr/share/doc/positioning-module-dev/changelog.Debian.gz"
    echo "usr/share/doc/positioning-module-dev/copyright"
    echo "usr/share/lintian/overrides/positioning-module-dev"
  } | sort >"$scratch/expected-dev"
  contents "$runtime" | diff -u "$scratch/expected-runtime" - || fail "$(basename "$runtime"): contents (- expected, + packaged)"
  contents "$dev" | diff -u "$scratch/expected-dev" - || fail "$(basename "$dev"): contents (- expected, + packaged)"

  [ "$(dpkg-deb -f "$runtime" Architecture)" = "$arch" ] || fail "runtime package architecture"
  [ "$(dpkg-deb -f "$dev" Architecture)" = "$arch" ] || fail "-dev package architecture"
  [ "$(dpkg-deb -f "$dev" Depends)" = "positioning-module (= $version)" ] || fail "-dev Depends: $(dpkg-deb -f "$dev" Depends)"
  # Outputs are kept before grep -q reads them: with pipefail an early exit of grep
  # would fail the writer, and the pipeline with it.
  local depends triggers
  depends=$(dpkg-deb -f "$runtime" Depends)
  grep -q 'libstdc++6' <<<"$depends" || fail "runtime Depends: $depends"
  triggers=$(dpkg-deb --ctrl-tarfile "$runtime" | tar -xO ./triggers)
  grep -qx 'activate-noawait ldconfig' <<<"$triggers" || fail "no ldconfig trigger"

  local root=$scratch/root-$arch
  dpkg-deb -x "$runtime" "$root"
  dpkg-deb -x "$dev" "$root"
  local module=$root/usr/lib/$triplet/libPositioning.so
  # Depends names the C library version the module needs, no older and no newer.
  local glibc
  readelf -V -W "$module" >"$scratch/versions.txt"
  glibc=$(grep -o 'GLIBC_[0-9][0-9.]*' "$scratch/versions.txt" | sed 's/^GLIBC_//' | sort -V | tail -1)
  [ -n "$glibc" ] || fail "libPositioning.so needs no GLIBC version?"
  grep -qF "libc6 (>= $glibc)" <<<"$depends" || fail "runtime Depends '$depends' does not ask for libc6 >= $glibc"
  readelf -h "$module" >"$scratch/header.txt"
  readelf -S "$module" >"$scratch/sections.txt"
  grep -q "Machine:.*$machine" "$scratch/header.txt" || fail "libPositioning.so is not built for $machine"
  if grep -q '\.symtab' "$scratch/sections.txt"; then fail "libPositioning.so is not stripped"; fi
  echo "contents, control fields, trigger: as expected"

  echo "== deb ($arch): lintian"
  lintian --fail-on error,warning --show-overrides "$runtime" "$dev" 2>&1 | grep -E "^(E|W|O):" |
    tee "$scratch/lintian-$arch.txt" || true
  lintian --fail-on error,warning "$runtime" "$dev" >/dev/null 2>&1 || fail "lintian reports errors or warnings"
  echo "lintian: clean, $(grep -c '^O:' "$scratch/lintian-$arch.txt" || true) tags overridden with reasons"

  echo "== deb ($arch): the example daemon against the unpacked packages"
  local toolchain=() run=()
  if [ "$arch" = armhf ]; then
    toolchain=(-DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/arm-linux-gnueabihf.cmake")
    run=("$ROOT/cmake/qemu-arm-run.sh" -L /usr/arm-linux-gnueabihf)
  fi
  cmake -S "$ROOT/examples/daemon" -B "$scratch/example-$arch" -G Ninja "${toolchain[@]}" \
    -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
  cmake --build "$scratch/example-$arch" >/dev/null
  "${run[@]}" "$scratch/example-$arch/positioning-example-daemon" --seconds 5 >"$scratch/samples.csv" ||
    fail "the example daemon failed against the unpacked $arch packages"
  echo "example daemon: $(grep -c '^[12],' "$scratch/samples.csv") samples"
}

check_packages "$BUILD" amd64 x86_64-linux-gnu "X86-64"
if [ -f "$ARM_BUILD/CMakeCache.txt" ] && [ -f "$ARM_BUILD/Positioning/libPositioning.so" ]; then
  check_packages "$ARM_BUILD" armhf arm-linux-gnueabihf "ARM"
else
  echo "deb: no ARM build in $ARM_BUILD (20-arm.sh makes it); armhf packages not checked"
  if [ -n "${CI:-}" ]; then fail "armhf packages must be checked in CI"; fi
fi
echo "deb: packages checked"
