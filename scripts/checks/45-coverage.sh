#!/usr/bin/env bash
# Source-based coverage of the module (Positioning/src) from the whole test suite:
# clang's -fprofile-instr-generate -fcoverage-mapping, merged with llvm-profdata and
# reported with llvm-cov. Fails when the line, region or branch figure falls below its
# floor. The HTML report goes to $COV_BUILD/coverage-html.
#
#   scripts/checks/45-coverage.sh            build, run the suite, report, check
#   COVERAGE_BUILD_DIR=... scripts/checks/45-coverage.sh
set -euo pipefail
source "$(dirname "$0")/../lib.sh"

if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then
  sed -n '2,8p' "$0" | sed 's/^# \{0,1\}//'
  exit 0
fi

COV_BUILD=${COVERAGE_BUILD_DIR:-$ROOT/build-coverage}
# Floors in percent; the README accounts for every line, region and branch not reached.
FLOOR_LINES=${FLOOR_LINES:-100}
FLOOR_REGIONS=${FLOOR_REGIONS:-99.2}
FLOOR_BRANCHES=${FLOOR_BRANCHES:-97}
LLVM_VERSION=14
start=$SECONDS

need_packages "${BASE_PACKAGES[@]}" clang "llvm-$LLVM_VERSION"
PROFDATA=llvm-profdata-$LLVM_VERSION
COV=llvm-cov-$LLVM_VERSION

echo "-- clang build with coverage instrumentation ($COV_BUILD)"
mkdir -p "$COV_BUILD"
flags="-fprofile-instr-generate -fcoverage-mapping"
# -O0 without debug information: the mapping is exact at any level, and this builds
# fastest; the suite runs in half a minute all the same. Benchmarks and fuzzers are no tests: left out.
cmake -S "$ROOT" -B "$COV_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O0" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O0" \
  -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_C_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
  -DPOSITIONING_BUILD_BENCH=OFF >/dev/null
ninja -C "$COV_BUILD" -j "$JOBS"
echo "   built after $((SECONDS - start)) s"

echo "-- test suite with profiles"
profiles="$COV_BUILD/profiles"
rm -rf "$profiles"
mkdir -p "$profiles"
# One raw profile per process and binary: the library loaded by test programs and the
# simulator's runs write theirs too.
export LLVM_PROFILE_FILE="$profiles/%p-%m.profraw"
# Left out: the symbol table and runtime-needs tests (instrumentation adds symbols and
# clang's runtime needs to the library by design) and the simulator's tests labelled
# slow (seconds of wall clock each), which reach no module code the others do not.
ctest --test-dir "$COV_BUILD" -j "$JOBS" --output-on-failure -LE slow -E '^(ModuleSymbolsTest|ModuleRuntimeTest)\.' \
  >"$COV_BUILD/ctest.log" 2>&1 || {
  tail -n 60 "$COV_BUILD/ctest.log"
  echo "FAILED: the test suite failed in the coverage build"
  exit 1
}
grep -E 'tests passed|tests failed' "$COV_BUILD/ctest.log" | sed 's/^/   /'
unset LLVM_PROFILE_FILE
echo "   tests run after $((SECONDS - start)) s"

merged="$COV_BUILD/coverage.profdata"
"$PROFDATA" merge -sparse -o "$merged" "$profiles"/*.profraw

# Every binary that carries coverage mapping: the library, the tests, the tools.
objects=()
while IFS= read -r -d '' file; do
  if head -c 4 "$file" | grep -q 'ELF' && readelf -S "$file" 2>/dev/null | grep -q '__llvm_covmap'; then
    objects+=(-object "$file")
  fi
done < <(find "$COV_BUILD" -path "$profiles" -prune -o -type f \( -perm -u+x -o -name '*.so' \) -print0)
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
