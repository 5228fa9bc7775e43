#!/usr/bin/env bash
# Re-simulates one drive of a library: the GNU parallel job of resim.sh. The result goes
# into a temporary folder beside its place and is renamed into RESULTS/KEY/BUILD only
# when the run went through, so a result folder that exists is complete. Prints
# "ran KEY" or "reused KEY"; on failure writes FAILED/KEY.txt and exits non-zero.
#   run-drive.sh RESULTS FAILED BUILD SIM MODULE KEY TRACE TRUTH OPTIONS
set -uo pipefail

if [ $# -ne 9 ]; then
  echo "usage: run-drive.sh RESULTS FAILED BUILD SIM MODULE KEY TRACE TRUTH OPTIONS (resim.sh starts it)" >&2
  exit 2
fi
results=$1 failed=$2 build=$3 sim=$4 module=$5 key=$6 trace=$7 truth=$8 options=$9
final=$results/$key/$build
host=$(hostname)

# A run killed outright (power, SIGKILL) leaves its temporary folder: remove those of
# this machine whose process is gone. Other machines' may still be running.
for stale in "$results/$key/.$build.tmp.$host."*; do
  [ -d "$stale" ] || continue
  kill -0 "${stale##*.}" 2>/dev/null || rm -rf -- "$stale"
done

if [ -d "$final" ]; then
  rm -f "$failed/$key.txt"
  echo "reused $key"
  exit 0
fi
mkdir -p "$results/$key" "$failed" || exit 1

temporary=$results/$key/.$build.tmp.$host.$$
# Inside the temporary folder, so that one folder is all a killed run leaves.
errors=$temporary/.stderr
cleanup() { rm -rf -- "$temporary"; }
trap cleanup EXIT
trap 'exit 143' TERM
trap 'exit 130' INT
mkdir "$temporary" || exit 1

read -ra words <<<"$options"
arguments=(run --module "$module" --result-dir "$temporary" --quiet)
[ "$trace" = builtin ] || arguments+=(--trace "$trace")
[ -z "$truth" ] || arguments+=(--truth "$truth")
arguments+=("${words[@]}")

"$sim" "${arguments[@]}" >/dev/null 2>"$errors" </dev/null
status=$?
# Stopped from outside: not the drive's fault, and it runs again next time.
[ "$status" -eq 130 ] || [ "$status" -eq 143 ] && exit "$status"
if [ "$status" -ne 0 ]; then
  {
    echo "exit status $status: $(grep -v '^[[:space:]]*$' "$errors" | tail -n 1)"
    echo "command: $sim ${arguments[*]}"
    echo "standard error (its end):"
    tail -n 20 "$errors"
  } >"$failed/$key.txt.$$" && mv -f "$failed/$key.txt.$$" "$failed/$key.txt"
  echo "resim: drive $key failed with exit status $status (see $failed/$key.txt)" >&2
  exit "$status"
fi

rm -f -- "$errors"
# rename() onto a folder that another job filled meanwhile fails: that result stands.
if ! mv -T -- "$temporary" "$final" 2>/dev/null; then
  [ -d "$final" ] || exit 1
  echo "reused $key"
  exit 0
fi
rm -f "$failed/$key.txt"
echo "ran $key"
