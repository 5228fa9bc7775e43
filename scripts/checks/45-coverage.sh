#!/usr/bin/env bash
# Source-based coverage of the module (Positioning/src) from the whole test suite:
# clang's -fprofile-instr-generate -fcoverage-mapping, merged with llvm-profdata and
# reported with llvm-cov. Fails when the line, region or branch figure falls below its
# floor. The profiles come from the sanitizer build's suite run (40-sanitizers.sh, run
# again here when missing or older than the build) and from the tests the sanitizers
# leave out for owning the allocator, built plain in $COV_BUILD. The HTML report goes
# to $COV_BUILD/coverage-html.
#
#   scripts/checks/45-coverage.sh            build, run the suite if needed, report, check
#   COVERAGE_BUILD_DIR=... SANITIZER_BUILD_DIR=... scripts/checks/45-coverage.sh
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then
  sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//'
  exit 0
fi
source "$(dirname "$0")/sanitizer-build.bash"

COV_BUILD=${COVERAGE_BUILD_DIR:-$ROOT/build-coverage}
# Floors in percent; the README accounts for every line, region and branch not reached.
FLOOR_LINES=${FLOOR_LINES:-100}
FLOOR_REGIONS=${FLOOR_REGIONS:-99.2}
FLOOR_BRANCHES=${FLOOR_BRANCHES:-97}
LLVM_VERSION=14
# The unit tests that reach the module through the allocator, which AddressSanitizer
# owns (failed allocations, glibc's statistics; they skip or are left out under it),
# and the division by zero, which the sanitizer reports before the signal comes.
PLAIN_TESTS=(module_heap_test store_allocation_test store_replay_snapshot_test sensor_store_sigfpe_test)
start=$SECONDS

need_packages "${BASE_PACKAGES[@]}" "${SAN_PACKAGES[@]}" "llvm-$LLVM_VERSION"
PROFDATA=llvm-profdata-$LLVM_VERSION
COV=llvm-cov-$LLVM_VERSION

echo "-- the suite's profiles from the sanitizer build ($SAN_BUILD)"
build_sanitizers all
if suite_profiles_current; then
  echo "   $(find "$SUITE_PROFILES" -name '*.profraw' | wc -l) profiles of the suite run of 40-sanitizers.sh"
else
  echo "   none newer than the build: running the suite"
  run_suite_with_profiles >"$SAN_BUILD/ctest.log" 2>&1 || {
    tail -n 60 "$SAN_BUILD/ctest.log"
    echo "FAILED: the test suite failed in the sanitizer build"
    exit 1
  }
  grep -E 'tests passed|tests failed' "$SAN_BUILD/ctest.log" | sed 's/^/   /'
fi

echo "-- plain clang build of the tests that own the allocator ($COV_BUILD)"
mkdir -p "$COV_BUILD"
flags="-fprofile-instr-generate -fcoverage-mapping"
# -O0 without debug information: the mapping is exact at any level, and this builds
# fastest. NDEBUG as in the sanitizer build, so that both map the same source alike.
cmake -S "$ROOT" -B "$COV_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O0 -DNDEBUG" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
  -DPOSITIONING_BUILD_BENCH=OFF >/dev/null
ninja -C "$COV_BUILD" -j "$JOBS" "${PLAIN_TESTS[@]}"
plain_profiles="$COV_BUILD/profiles"
rm -rf "$plain_profiles"
mkdir -p "$plain_profiles"
for test in "${PLAIN_TESTS[@]}"; do
  LLVM_PROFILE_FILE="$plain_profiles/%p-%m.profraw" "$COV_BUILD/tests/$test" >"$COV_BUILD/$test.log" 2>&1 || {
    tail -n 60 "$COV_BUILD/$test.log"
    echo "FAILED: $test in the plain coverage build"
    exit 1
  }
  echo "   $test: $(grep -Eo '\[  PASSED  \] [0-9]+ tests?' "$COV_BUILD/$test.log")"
done
echo "   tests run after $((SECONDS - start)) s"

merged="$COV_BUILD/coverage.profdata"
"$PROFDATA" merge -sparse -o "$merged" "$SUITE_PROFILES"/*.profraw "$plain_profiles"/*.profraw

# Every binary that carries coverage mapping: the library, the tests, the tools, the
# fuzz targets of the sanitizer build and the plain tests. llvm-cov adds up the counts
# of a function that several of them hold.
objects=()
while IFS= read -r -d '' file; do
  if head -c 4 "$file" | grep -q 'ELF' && readelf -S "$file" 2>/dev/null | grep -q '__llvm_covmap'; then
    objects+=(-object "$file")
  fi
done < <(
  find "$SAN_BUILD" -name profiles -prune -o -type f \( -perm -u+x -o -name '*.so' \) -print0
  for test in "${PLAIN_TESTS[@]}"; do printf '%s\0' "$COV_BUILD/tests/$test"; done
)
if [ ${#objects[@]} -eq 0 ]; then
  echo "FAILED: no instrumented binary found in $COV_BUILD"
  exit 1
fi
# The first object is given without the flag.
first=${objects[1]}
rest=("${objects[@]:2}")
"$COV" export "$first" "${rest[@]}" -instr-profile="$merged" -summary-only >"$COV_BUILD/coverage-all.json" 2>/dev/null

# Everything but the module is left out of the report by folder: the file names in
# the mapping may be relative to the build folder, which a list of files would not match.
ignore='/(host|include|tests|tools|fuzz|bench)/|^/usr/'
sources=(-ignore-filename-regex="$ignore")

"$COV" show "$first" "${rest[@]}" -instr-profile="$merged" -format=html -show-branches=count \
  -show-line-counts-or-regions -output-dir="$COV_BUILD/coverage-html" "${sources[@]}" 2>/dev/null
"$COV" report "$first" "${rest[@]}" -instr-profile="$merged" -show-region-summary -show-branch-summary \
  "${sources[@]}" 2>/dev/null | sed -E 's#^[^ ]*/Positioning/src/#Positioning/src/#' | tee "$COV_BUILD/coverage-report.txt"
# Every line with what it missed, for reading without a browser.
"$COV" show "$first" "${rest[@]}" -instr-profile="$merged" -show-branches=count -show-regions \
  "${sources[@]}" >"$COV_BUILD/coverage-lines.txt" 2>/dev/null

status=0
python3 "$ROOT/scripts/checks/coverage_summary.py" check "$COV_BUILD/coverage-all.json" \
  "$FLOOR_LINES" "$FLOOR_REGIONS" "$FLOOR_BRANCHES" || status=$?
echo "   HTML report: $COV_BUILD/coverage-html/index.html"
echo "   coverage step took $((SECONDS - start)) s"
exit $status
