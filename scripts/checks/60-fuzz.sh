#!/usr/bin/env bash
# The libFuzzer targets of fuzz/, in the sanitizer build: each first runs its seed
# corpus (fuzz/corpus/<target>/), then fuzzes for FUZZ_SECONDS (default 20) from it,
# then runs everything it kept once more with leak checking. A broken invariant, a
# crash or a sanitizer report fails the step and leaves the input in
# $SAN_BUILD/fuzz-artifacts/.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
source "$(dirname "$0")/sanitizer-build.bash"
start=$SECONDS
FUZZ_SECONDS=${FUZZ_SECONDS:-20}
TARGETS=(can_stream_fuzzer external_stream_fuzzer broker_handshake_fuzzer trace_reader_fuzzer drive_import_fuzzer)

echo "-- fuzz targets ($SAN_BUILD)"
build_sanitizers "${TARGETS[@]}"
artifacts="$SAN_BUILD/fuzz-artifacts"
mkdir -p "$artifacts"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

for target in "${TARGETS[@]}"; do
  binary="$SAN_BUILD/fuzz/$target"
  seeds="$ROOT/fuzz/corpus/$target"
  found="$scratch/$target"
  mkdir -p "$found"
  log="$scratch/$target.log"
  # -timeout: an input that runs longer than 10 s fails like a crash, so a hang is found.
  common=(-artifact_prefix="$artifacts/$target-" -max_len=4096 -timeout=10 -rss_limit_mb=2048)
  run() {
    if ! "$binary" "${common[@]}" "$@" >"$log" 2>&1; then
      tail -n 60 "$log"
      echo "FAILED: $target (input kept in $artifacts/)"
      exit 1
    fi
  }
  echo "-- $target: $(find "$seeds" -maxdepth 1 -type f | wc -l) seeds"
  run "$seeds"/*
  # Leak checks on every input would slow the search tenfold; they come after it.
  run -max_total_time="$FUZZ_SECONDS" -detect_leaks=0 -print_final_stats=1 "$found" "$seeds"
  echo "   $(grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)' "$log" | tr '\n' ' ')"
  echo "   $(grep -Eo 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+/[0-9a-zA-Z]+' "$log" | tail -1)"
  run -runs=0 "$found"
done
echo "-- fuzzing passed in $((SECONDS - start)) s"
