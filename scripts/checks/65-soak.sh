#!/usr/bin/env bash
# The soak: a day of simulated driving (432,000 records per sensor) through
# positioning-sim, once per source, as fast as the machine runs it. Resident memory,
# sampled every simulated minute, must stay flat after the first minute; every sample
# fed while the delivery gate is open must reach every subscribed client in
# synchronised time; the final replay must be exactly the last minute fed.
# SOAK_SECONDS shortens (or lengthens) the drive.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
need_packages "${BASE_PACKAGES[@]}"
start=$SECONDS
SOAK_SECONDS=${SOAK_SECONDS:-86400}
build_native >/dev/null
sim="$BUILD/tools/positioning-sim/positioning-sim"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for diversity in CAN EXTERNAL; do
  echo "-- $diversity: $SOAK_SECONDS s of simulated driving"
  if ! "$sim" --diversity "$diversity" --duration "$SOAK_SECONDS" --soak \
    --summary-json "$work/$diversity.json" 2>"$work/$diversity.log"; then
    cat "$work/$diversity.log"
    echo "FAILED: soak of the $diversity source"
    exit 1
  fi
  grep -E '^(simulated|records fed|samples delivered|resident memory|delivery|replays|last minute|soak): ' \
    "$work/$diversity.log" | sed 's/^/   /'
done
echo "-- soak passed in $((SECONDS - start)) s"
