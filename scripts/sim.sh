#!/usr/bin/env bash
# Sets up what the simulator needs on a fresh machine, builds it with the module and
# runs positioning-sim with the arguments given (none: the built-in 5-minute drive).
set -euo pipefail
source "$(dirname "$0")/lib.sh"

need_packages "${BASE_PACKAGES[@]}"
build_native >&2
exec "$BUILD/tools/positioning-sim/positioning-sim" "$@"
