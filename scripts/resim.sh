#!/usr/bin/env bash
# Re-simulates a library of drives with one build of the module through GNU parallel,
# whose jobs are groups of drives, each run by one `positioning-sim batch`; keeps every
# drive's result under its content key and the build's identity, so a rerun, a
# reordered or a grown library runs only what is not done yet; then reports.
set -uo pipefail
SCRIPTS=$(cd "$(dirname "$0")" && pwd)

usage() {
  cat <<EOF
usage: scripts/resim.sh [OPTIONS] LIBRARY OUT

Re-simulates every drive of LIBRARY with positioning-sim and one build of the module,
on every core of this machine (or of the machines given), then writes OUT/report.csv,
OUT/report.json and OUT/report.md.

LIBRARY  a folder of traces (every *.csv below it; NAME.truth.csv beside NAME.csv or
         NAME.trace.csv is its truth), or a manifest: one drive a line, a trace path
         (relative to the manifest) or "builtin", then positioning-sim options
         separated by spaces (--truth FILE included); "#" starts a comment.
OUT      where results, the joblog and the report go (created).

A drive's result is kept in OUT/results/KEY/BUILD/: KEY is the SHA-256 of the trace's
and truth's content and the options, BUILD that of the module file and the simulator's
--version. A drive whose result is there is not run again, whatever the manifest's
order; a result folder appears whole (written aside, then renamed) or not at all. The
drives to run are dealt out into a few groups per job slot, of about equal cost; each
group is one positioning-sim batch, which publishes every drive as it ends.

options:
  --module PATH       the module to re-simulate with (default: build/Positioning/libPositioning.so)
  --sim PATH          the positioning-sim to run (default: build/tools/positioning-sim/positioning-sim)
  -j, --jobs N        drives at once on each machine (default: one per core)
  -S, --sshlogin L    run on these machines, as GNU parallel's --sshlogin takes them (":"
                      is this one); may be given more than once. Every machine needs the
                      simulator, the module, the library and OUT at the same paths
                      (a shared file system)
  --sshloginfile F    the same, one machine a line in F
  --resume            go on with an interrupted run: the groups of drives in OUT/joblog
                      are not started again (finished drives are passed over in any case)
  --chunk I/N         only the I-th (from 0) of N equal parts of the library, with its
                      joblog and report in OUT/chunk-I-of-N (resim-slurm.sh uses it)
  --no-report         leave out the report
  -h, --help          this text

Exit status: 0 every drive done, 1 a drive failed or did not run (listed), 2 usage or
library error, 130 interrupted (rerun the same command to go on).
EOF
}

fail_usage() {
  echo "resim: $*" >&2
  echo "resim: see scripts/resim.sh --help" >&2
  exit 2
}

ROOT=$(cd "$SCRIPTS/.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
module=$BUILD/Positioning/libPositioning.so
sim=$BUILD/tools/positioning-sim/positioning-sim
jobs=""
resume=0
report=1
chunk=""
sshlogins=()
logins=()
login_files=()
positional=()
while [ $# -gt 0 ]; do
  case "$1" in
    -h | --help) usage && exit 0 ;;
    --module | --sim | -j | --jobs | -S | --sshlogin | --sshloginfile | --chunk)
      [ $# -ge 2 ] || fail_usage "$1 needs a value"
      case "$1" in
        --module) module=$2 ;;
        --sim) sim=$2 ;;
        -j | --jobs) jobs=$2 ;;
        -S | --sshlogin) sshlogins+=(--sshlogin "$2") && logins+=("$2") ;;
        --sshloginfile) sshlogins+=(--sshloginfile "$2") && login_files+=("$2") ;;
        --chunk) chunk=$2 ;;
      esac
      shift 2
      ;;
    --module=* | --sim=* | --jobs=* | --sshlogin=* | --sshloginfile=* | --chunk=*)
      set -- "${1%%=*}" "${1#*=}" "${@:2}"
      ;;
    --resume) resume=1 && shift ;;
    --no-report) report=0 && shift ;;
    --) shift && positional+=("$@") && break ;;
    -*) fail_usage "unknown option $1" ;;
    *) positional+=("$1") && shift ;;
  esac
done
[ ${#positional[@]} -eq 2 ] || fail_usage "give LIBRARY and OUT"
library=${positional[0]}
out=${positional[1]}

command -v parallel >/dev/null || fail_usage "GNU parallel is not installed (apt-get install parallel)"
[ -z "$jobs" ] || [[ "$jobs" =~ ^[1-9][0-9]{0,3}$ ]] || fail_usage "-j takes a number of jobs from 1 to 9999, not \"$jobs\""
if [ ! -x "$sim" ] || [ ! -f "$sim" ]; then
  fail_usage "no positioning-sim at $sim (build it: cmake --build build --target positioning-sim, or give --sim)"
fi
if [ ! -f "$module" ] || [ ! -r "$module" ]; then
  fail_usage "no readable module at $module (build it, or give --module)"
fi
sim=$(realpath -- "$sim")
module=$(realpath -- "$module")

if ! mkdir -p "$out" 2>/dev/null || [ ! -w "$out" ]; then
  fail_usage "cannot write to $out"
fi
out=$(cd "$out" && pwd)
rundir=$out
if [ -n "$chunk" ]; then
  [[ "$chunk" =~ ^([0-9]{1,6})/([1-9][0-9]{0,5})$ ]] || fail_usage "--chunk takes I/N, as 3/10, not \"$chunk\""
  chunk_index=$((10#${BASH_REMATCH[1]}))
  chunk_count=$((10#${BASH_REMATCH[2]}))
  [ "$chunk_index" -lt "$chunk_count" ] || fail_usage "--chunk $chunk: I counts from 0 to N-1"
  rundir=$out/chunk-$chunk_index-of-$chunk_count
  mkdir -p "$rundir" || fail_usage "cannot write to $rundir"
fi
results=$out/results
failed=$out/failed

# Two runners on one joblog would mix their runs; chunks each have their own.
exec 9>"$rundir/.lock" || fail_usage "cannot write to $rundir"
flock -n 9 || fail_usage "another resim.sh is running on $rundir"

# The build's identity: the module's bytes and the simulator that drives it.
version=$("$sim" --version 2>&1) || fail_usage "$sim --version failed: $version"
module_sha=$(sha256sum <"$module") || fail_usage "cannot read $module"
module_sha=${module_sha%% *}
build_id=$(printf 'module %s\nsim %s\n' "$module_sha" "$version" | sha256sum)
build_id=${build_id%% *}

drives=$rundir/drives.tsv
python3 "$SCRIPTS/resim/library.py" list "$library" "$drives.new" "$out" || {
  rm -f "$drives.new"
  exit 2
}
if [ -n "$chunk" ]; then
  total=$(wc -l <"$drives.new")
  first=$((total * chunk_index / chunk_count))
  last=$((total * (chunk_index + 1) / chunk_count))
  awk -v first="$first" -v last="$last" 'NR > first && NR <= last' "$drives.new" >"$drives.chunk" &&
    mv -f "$drives.chunk" "$drives.new"
fi

# The job slots GNU parallel fills, about: -j (or this machine's cores) on each machine,
# or what a login's N/ asks for. The drives are shared out over them.
job_slots() {
  local per_host=${jobs:-$(nproc)} total=0 entry file text
  local entries=() parts=()
  for entry in "${logins[@]}"; do
    IFS=, read -ra parts <<<"$entry"
    entries+=("${parts[@]}")
  done
  for file in "${login_files[@]}"; do
    [ -r "$file" ] || continue
    while IFS= read -r text; do
      [[ "$text" =~ ^[[:space:]]*(#|$) ]] || entries+=("$text")
    done <"$file"
  done
  [ ${#entries[@]} -gt 0 ] || entries=(:)
  for entry in "${entries[@]}"; do
    if [[ "$entry" =~ ^[[:space:]]*([0-9]+)/ ]]; then
      total=$((total + 10#${BASH_REMATCH[1]}))
    else
      total=$((total + per_host))
    fi
  done
  echo $((total > 0 ? total : 1))
}

# GNU parallel resumes by job number: its jobs are groups of drives, and the same
# groups are only given again for the same drives and build. Otherwise that joblog is
# put aside (the results are reused by key anyway).
joblog=$rundir/joblog
groups=$rundir/groups
plan_id=$(printf 'build %s\nsim %s\nmodule %s\n' "$build_id" "$sim" "$module")
same_plan=0
if [ "$resume" -eq 1 ] && [ -f "$joblog" ]; then
  if cmp -s "$drives.new" "$drives" && [ -f "$groups/list" ] && [ "$(cat "$groups/plan" 2>/dev/null)" = "$plan_id" ]; then
    same_plan=1
  else
    echo "resim: the library or the build changed since $joblog was written: starting a new joblog (done drives are still reused)" >&2
    mv -f "$joblog" "$joblog.old"
  fi
fi
mv -f "$drives.new" "$drives"
count=$(wc -l <"$drives")
if [ "$count" -eq 0 ]; then
  echo "resim: chunk $chunk holds no drives (the library has fewer drives than chunks)" >&2
  exit 0
fi

done_before=0
pending=$rundir/pending.tsv
while IFS=$'\t' read -r line label key rest; do
  if [ -d "$results/$key/$build_id" ]; then
    done_before=$((done_before + 1))
  else
    printf '%s\t%s\t%s\t%s\n' "$line" "$label" "$key" "$rest"
  fi
done <"$drives" >"$pending"
echo "resim: $count drive(s), $done_before done before with build ${build_id:0:12}; results in $results" >&2

# The drives still to run, in groups of about equal cost: one `positioning-sim batch` a
# group, which writes each drive's folder aside and renames it whole, passes over one
# that is done (another run's, or before an interruption), and reports every drive.
if [ "$same_plan" -eq 0 ]; then
  rm -rf "$groups"
  mkdir -p "$groups" || fail_usage "cannot write to $groups"
  : >"$groups/list"
  sort -t $'\t' -k7,7gr "$pending" |
    awk -F '\t' -v groups="$groups" -v slots="$(job_slots)" -v results="$results" -v build="$build_id" \
      -v module="$module" -f "$SCRIPTS/resim/plan.awk" || fail_usage "cannot write the groups of drives to $groups"
  printf '%s\n' "$plan_id" >"$groups/plan"
fi
rm -f "$pending"
planned=$(cat "$groups"/[0-9]*.txt 2>/dev/null | wc -l)

parallel_options=(--joblog "$joblog" --halt never -q)
[ "$same_plan" -eq 1 ] && parallel_options+=(--resume)
[ -n "$jobs" ] && parallel_options+=(-j "$jobs")
[ ${#sshlogins[@]} -eq 0 ] || parallel_options+=("${sshlogins[@]}")

# Each group's batch reports its drives into GROUP.status beside its list (on the shared
# file system, as the results); a group started again reports afresh.
reported() { cat "$groups"/[0-9]*.status 2>/dev/null | grep -vc '"outcome":"interrupted"'; }
# On a terminal: the drives reported so far, and the time left at this pace.
progress_pid=""
if [ -t 2 ] && [ "$planned" -gt 0 ]; then
  (
    # Ctrl-C reaches the whole process group: this loop ends when the runner says.
    trap '' INT
    trap 'exit 0' TERM
    started=$SECONDS
    while sleep 1; do
      reported=$(reported)
      reported=${reported:-0}
      left=""
      [ "$reported" -eq 0 ] || left=", about $(((SECONDS - started) * (planned - reported) / reported)) s left"
      printf '\rresim: %d of %d drive(s) (%d%%)%s ' "$reported" "$planned" $((reported * 100 / planned)) "$left" >&2
    done
  ) &
  progress_pid=$!
fi

# GNU parallel runs in the background so that a signal reaches this script at once: it
# is passed on to parallel, which stops its batches; each drops the drive it was
# running and keeps those it finished.
interrupted=0
parallel_status=0
if [ "$planned" -gt 0 ]; then
  parallel "${parallel_options[@]}" "$sim" batch --atomic --status '{.}.status' '{}' :::: "$groups/list" \
    >"$rundir/parallel.out" &
  parallel_pid=$!
  trap 'interrupted=1; kill -TERM "$parallel_pid" 2>/dev/null' INT TERM
  while :; do
    wait "$parallel_pid"
    parallel_status=$?
    kill -0 "$parallel_pid" 2>/dev/null || break
  done
  trap - INT TERM
fi
if [ -n "$progress_pid" ]; then
  kill -TERM "$progress_pid" 2>/dev/null
  wait "$progress_pid" 2>/dev/null
  reported=$(reported)
  printf '\rresim: %d of %d drive(s) (%d%%)%*s\n' "$reported" "$planned" $((reported * 100 / planned)) 24 "" >&2
fi

# What each drive did, why one failed, and the library's results of this build as one
# tree, a link per drive named by its key, so that two builds compare with
# positioning-sim compare OUT/builds/A OUT/builds/B. A chunk adds its drives to the tree
# the other chunks share.
view=$out/builds/$build_id
view_options=()
[ -z "$chunk" ] || view_options=(--add)
python3 "$SCRIPTS/resim/library.py" settle "$results" "$build_id" "$drives" "$view" "$groups" \
  "$rundir/jobs.out" "$failed" "$sim" "${view_options[@]}" || exit 1
if [ "$interrupted" -eq 1 ]; then
  echo "resim: interrupted; the same command goes on where this run stopped (finished drives are kept)" >&2
  exit 130
fi
if [ "$parallel_status" -gt 100 ]; then
  echo "resim: GNU parallel failed (exit status $parallel_status); see above and $joblog" >&2
fi

ran=$(grep -c '^ran ' "$rundir/jobs.out")
missing=()
while IFS=$'\t' read -r line label key _; do
  [ -d "$results/$key/$build_id" ] && continue
  reason="did not run (see $joblog)"
  [ -f "$failed/$key.txt" ] && reason=$(head -n 1 "$failed/$key.txt")
  missing+=("line $line: $label: $reason")
done <"$drives"
echo "resim: $((count - ${#missing[@]})) of $count drive(s) done ($ran re-simulated now)" >&2

echo "resim: this build's results: $view" >&2

status=0
if [ "$report" -eq 1 ]; then
  python3 "$SCRIPTS/resim/report.py" --run "$rundir" --results "$results" --build "$build_id" \
    --module "$module" --module-sha256 "$module_sha" --sim-version "$version" || status=1
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "resim: ${#missing[@]} drive(s) failed or did not run:" >&2
  printf '  %s\n' "${missing[@]}" >&2
  status=1
fi
exit "$status"
