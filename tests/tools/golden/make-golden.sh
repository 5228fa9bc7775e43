#!/usr/bin/env bash
# Writes the golden files of golden_test from a built simulator:
#   tests/tools/golden/make-golden.sh build/tools/positioning-sim/positioning-sim
# Run it only when a change of behaviour is meant; the diff shows what changed.
set -euo pipefail
sim=${1:?usage: make-golden.sh PATH-TO-positioning-sim}
here=$(cd "$(dirname "$0")" && pwd)
trace=$here/can_trace.trace.csv
# The trace beside this file was recorded before recordings named their clock, so its
# scenario gives --peer-drift 100 again; a trace recorded anew carries the drift in its
# clock line, and the scenario must then leave the option out (it would be refused).
if [ ! -e "$trace" ]; then
  "$sim" --seed 5 --duration 40 --peer-drift 100 --record "$trace" --quiet >/dev/null
fi
while read -r name args; do
  case $name in ''|'#'*) continue ;; esac
  read -r -a words <<<"${args//TRACE/$trace}"
  "$sim" "${words[@]}" --quiet --out "$here/$name.out" --summary-json "$here/$name.json"
  echo "$name: $(wc -l <"$here/$name.out") lines"
done <"$here/scenarios.txt"
