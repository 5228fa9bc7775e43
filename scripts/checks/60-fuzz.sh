#!/usr/bin/env bash
# The libFuzzer targets of fuzz/, in the sanitizer build: each first runs its seed
# corpus (fuzz/corpus/<target>/), then fuzzes for FUZZ_SECONDS (default 20) from it,
# then runs everything it kept once more with leak checking, as many targets at a time
# as there are jobs (JOBS, default the cores). A broken invariant, a
# crash or a sanitizer report fails the step and leaves the input in
# $SAN_BUILD/fuzz-artifacts/.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
source "$(dirname "$0")/sanitizer-build.bash"
start=$SECONDS
FUZZ_SECONDS=${FUZZ_SECONDS:-20}
# The build counts coverage for 45-coverage.sh; the fuzzers' own counts are not wanted,
# and a module loaded per input would merge them into a file at every unload.
export LLVM_PROFILE_FILE=/dev/null
TARGETS=(can_stream_fuzzer external_stream_fuzzer broker_handshake_fuzzer trace_reader_fuzzer drive_import_fuzzer)

echo "-- fuzz targets ($SAN_BUILD)"
build_sanitizers "${TARGETS[@]}"
artifacts="$SAN_BUILD/fuzz-artifacts"
mkdir -p "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# fuzz TARGET: seeds, fuzzing, then leak checks over what it kept; what it found is
# printed to $scratch/TARGET.report, a failure ends it with status 1.
fuzz() {
  local target=$1
  local binary="$SAN_BUILD/fuzz/$target"
  local seeds="$ROOT/fuzz/corpus/$target"
  local found="$scratch/$target"
  local log="$scratch/$target.log"
  local report="$scratch/$target.report"
  mkdir -p "$found"
  # -timeout: an input that runs longer than 10 s fails like a crash, so a hang is found.
  local common=(-artifact_prefix="$artifacts/$target-" -max_len=4096 -timeout=10 -rss_limit_mb=2048)
  run() {
    if ! "$binary" "${common[@]}" "$@" >"$log" 2>&1; then
      tail -n 60 "$log" >>"$report"
      echo "FAILED: $target (input kept in $artifacts/)" >>"$report"
      return 1
    fi
  }
  echo "-- $target: $(find "$seeds" -maxdepth 1 -type f | wc -l) seeds" >"$report"
  run "$seeds"/* || return 1
  # Leak checks on every input would slow the search tenfold; they come after it.
  run -max_total_time="$FUZZ_SECONDS" -detect_leaks=0 -print_final_stats=1 "$found" "$seeds" || return 1
  {
    echo "   $(grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)' "$log" | tr '\n' ' ')"
    echo "   $(grep -Eo 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+/[0-9a-zA-Z]+' "$log" | tail -1)"
  } >>"$report"
  run -runs=0 "$found" || return 1
}

# A fuzzer keeps one core busy: as many run side by side as there are jobs, each
# report printed whole when its target is done.
failed=0
running=()
finish() {
  local pid=${running[0]} target=${running[1]}
  running=("${running[@]:2}")
  wait "$pid" || failed=1
  cat "$scratch/$target.report"
}
for target in "${TARGETS[@]}"; do
  [ $((${#running[@]} / 2)) -lt "$JOBS" ] || finish
  fuzz "$target" &
  running+=("$!" "$target")
done
while [ ${#running[@]} -gt 0 ]; do finish; done
[ "$failed" -eq 0 ] || exit 1
echo "-- fuzzing passed in $((SECONDS - start)) s"
