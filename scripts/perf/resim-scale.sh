#!/usr/bin/env bash
# How fast drives are re-simulated into result folders, measured on this machine:
# drive-hours per core-second for one long built-in drive (samples, path, summary and
# log written, as --result-dir writes them), what starting one process costs, and the
# wall time of a library of short generated drives on 1 and on 2 cores (or --jobs): a
# process per drive, one `positioning-sim batch` per job, and scripts/resim.sh itself
# (its report left out), with the share of its CPU that is not the drives' own.
# Prints figures; it checks nothing.
#
#   scripts/perf/resim-scale.sh [--sim PATH] [--module PATH] [--hours H] [--drives N]
#                               [--seconds S] [--jobs J] [--repeat R]
#
# Defaults: the simulator of $BUILD_DIR (build/), a 10-hour drive, a library of 1000
# drives of 60 s, 1 and 2 jobs, each figure but a process per drive the best of 3 runs.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
SIM=$BUILD/tools/positioning-sim/positioning-sim
MODULE=$BUILD/Positioning/libPositioning.so
HOURS=10
DRIVES=1000
SECONDS_PER_DRIVE=60
JOBS=2
REPEAT=3

usage() { sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'; }
fail() {
  echo "resim-scale.sh: $*" >&2
  exit 2
}
number() {
  if [[ ! $2 =~ ^[0-9]+([.][0-9]+)?$ ]] || [[ $2 =~ ^0+([.]0*)?$ ]]; then
    fail "$1 wants a number above 0, not '$2'"
  fi
}

while [ $# -gt 0 ]; do
  case $1 in
    -h | --help) usage && exit 0 ;;
    --sim) SIM=${2:?--sim wants a path} && shift 2 ;;
    --module) MODULE=${2:?--module wants a path} && shift 2 ;;
    --hours) number "$1" "${2:-}" && HOURS=$2 && shift 2 ;;
    --drives) number "$1" "${2:-}" && DRIVES=$2 && shift 2 ;;
    --seconds) number "$1" "${2:-}" && SECONDS_PER_DRIVE=$2 && shift 2 ;;
    --jobs) number "$1" "${2:-}" && JOBS=$2 && shift 2 ;;
    --repeat) number "$1" "${2:-}" && REPEAT=$2 && shift 2 ;;
    *) fail "unknown argument '$1' (see --help)" ;;
  esac
done
[[ $DRIVES =~ ^[0-9]+$ && $JOBS =~ ^[0-9]+$ && $REPEAT =~ ^[0-9]+$ ]] ||
  fail "--drives, --jobs and --repeat want whole numbers"
[ -x "$SIM" ] || fail "$SIM is not there: build it (cmake --build build --target positioning-sim) or name one with --sim"

SCRATCH=$(mktemp -d)
trap 'rm -rf "$SCRATCH"' EXIT
trap 'echo "resim-scale.sh: interrupted" >&2; exit 130' INT TERM

# Runs a command, and prints its wall, user and system seconds (its children's).
measure() {
  local out=$SCRATCH/time status=0
  TIMEFORMAT='%R %U %S'
  { time "$@" >/dev/null 2>"$SCRATCH/err" || status=$?; } 2>"$out"
  if [ $status -ne 0 ]; then
    echo "resim-scale.sh: failed (status $status): $*" >&2
    cat "$SCRATCH/err" >&2
    exit 1
  fi
  cat "$out"
}

# The best (lowest CPU) of $REPEAT runs: "wall user system".
best_of() {
  local best="" run cpu best_cpu=""
  for _ in $(seq "$REPEAT"); do
    run=$(measure "$@")
    cpu=$(awk '{ print $2 + $3 }' <<<"$run")
    if [ -z "$best_cpu" ] || awk -v a="$cpu" -v b="$best_cpu" 'BEGIN { exit !(a < b) }'; then
      best=$run
      best_cpu=$cpu
    fi
  done
  echo "$best"
}

echo "machine: $(nproc) cores, $(uname -m); $("$SIM" --version)"
echo "== one drive of $HOURS h, best of $REPEAT"
seconds=$(awk -v h="$HOURS" 'BEGIN { print h * 3600 }')
read -r wall user sys < <(best_of "$SIM" --duration "$seconds" -q --result-dir "$SCRATCH/long")
awk -v h="$HOURS" -v w="$wall" -v u="$user" -v s="$sys" 'BEGIN {
  printf "result folder:   %.2f s wall, %.2f s CPU: %.1f drive-hours per core-second, %.0f records per second\n",
         w, u + s, h / (u + s), h * 18000 / (u + s) }'
echo "                 written: $(find "$SCRATCH/long" -type f -printf '%f %k kB, ' | sed 's/, $//')"
read -r wall user sys < <(best_of "$SIM" --duration "$seconds" -q -o /dev/null)
awk -v h="$HOURS" -v w="$wall" -v u="$user" -v s="$sys" 'BEGIN {
  printf "samples only:    %.2f s wall, %.2f s CPU: %.1f drive-hours per core-second (to /dev/null, no folder)\n",
         w, u + s, h / (u + s) }'

echo "== starting a process: 20 drives of 1 s, best of $REPEAT"
startup() { for i in $(seq 20); do "$SIM" --duration 1 -q --result-dir "$SCRATCH/startup/$i" || return 1; done; }
read -r wall user sys < <(best_of startup)
start_cpu=$(awk -v u="$user" -v s="$sys" 'BEGIN { print (u + s) / 20 }')
start_wall=$(awk -v w="$wall" 'BEGIN { print w / 20 }')
awk -v c="$start_cpu" -v w="$start_wall" 'BEGIN {
  printf "per process:     %.1f ms CPU, %.1f ms wall (load the module, read the options, write 5 files)\n", c * 1000, w * 1000 }'

echo "== a library of $DRIVES built-in drives of $SECONDS_PER_DRIVE s (seeds 1 to $DRIVES)"
run_library() {
  local jobs=$1
  rm -rf "$SCRATCH/library"
  seq "$DRIVES" | xargs -P "$jobs" -I SEED "$SIM" --duration "$SECONDS_PER_DRIVE" --seed SEED -q \
    --result-dir "$SCRATCH/library/SEED"
}
# The same library in one `positioning-sim batch` per job: the list split into even
# chunks, the chunks run side by side.
run_batches() {
  local jobs=$1
  rm -rf "$SCRATCH/library"
  seq "$DRIVES" | awk -v s="$SECONDS_PER_DRIVE" -v d="$SCRATCH/library" \
    '{ print "--duration " s " --seed " $1 " --result-dir " d "/" $1 }' >"$SCRATCH/list"
  split -n "l/$jobs" "$SCRATCH/list" "$SCRATCH/chunk."
  local pids=() pid status=0
  for chunk in "$SCRATCH"/chunk.*; do
    "$SIM" batch "$chunk" 2>/dev/null &
    pids+=($!)
  done
  for pid in "${pids[@]}"; do wait "$pid" || status=$?; done
  rm -f "$SCRATCH"/chunk.*
  return $status
}
# The same library through the runner: GNU parallel handing groups of drives to
# `positioning-sim batch`, results kept by key (the report left out).
run_resim() {
  local jobs=$1
  rm -rf "$SCRATCH/resim-out"
  "$ROOT/scripts/resim.sh" --sim "$SIM" --module "$MODULE" -j "$jobs" --no-report "$SCRATCH/manifest" \
    "$SCRATCH/resim-out"
}
seq "$DRIVES" | awk -v s="$SECONDS_PER_DRIVE" '{ print "builtin --duration " s " --seed " $1 }' >"$SCRATCH/manifest"
drive_hours=$(awk -v n="$DRIVES" -v s="$SECONDS_PER_DRIVE" 'BEGIN { print n * s / 3600 }')
drives_cpu=""
for mode in process batch resim; do
  one_wall=""
  for jobs in 1 "$JOBS"; do
    case $mode in
      process) read -r wall user sys < <(measure run_library "$jobs") ;;
      batch) read -r wall user sys < <(best_of run_batches "$jobs") ;;
      resim) read -r wall user sys < <(best_of run_resim "$jobs") ;;
    esac
    [ -n "$one_wall" ] || one_wall=$wall
    case $mode in
      process) processes=$DRIVES ;;
      batch) processes=$jobs ;;
      resim) processes=$(wc -l <"$SCRATCH/resim-out/groups/list") ;;
    esac
    # The drives' own CPU: one batch on one job, less its one start.
    [ "$mode" != batch ] || [ -n "$drives_cpu" ] || drives_cpu=$(awk -v u="$user" -v s="$sys" -v st="$start_cpu" \
      'BEGIN { print u + s - st }')
    awk -v p="$processes" -v m="$mode" -v j="$jobs" -v w="$wall" -v u="$user" -v s="$sys" -v h="$drive_hours" -v n="$DRIVES" -v st="$start_cpu" \
      -v one="$one_wall" 'BEGIN {
    printf "%-7s %d job(s): %.2f s wall (%.2fx of 1 job), %.2f s CPU: %.1f drive-hours per core-second, %.2f ms CPU per drive, %d process start(s) %.0f %% of the CPU\n",
           m, j, w, one / w, u + s, h / (u + s), (u + s) / n * 1000, p, p * st / (u + s) * 100 }'
    if [ "$mode" = resim ]; then
      awk -v u="$user" -v s="$sys" -v d="$drives_cpu" -v p="$processes" -v st="$start_cpu" -v n="$DRIVES" 'BEGIN {
      c = u + s; starts = p * st; rest = c - d - starts
      printf "        of it: the drives %.2f s; %d batch start(s) %.2f s, %.3f ms a drive, %.1f %% (what a drive loses to starting processes); the rest %.2f s, %.0f %% (GNU parallel, listing, settling: once a run)\n",
             d, p, starts, starts / n * 1000, starts / c * 100, rest, rest / c * 100 }'
    fi
    [ "$JOBS" != 1 ] || break
  done
done
