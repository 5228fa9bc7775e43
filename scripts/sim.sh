#!/usr/bin/env bash
# Sets up what the simulator needs on a fresh machine, builds only the simulator and
# the module (no tests, no benchmarks) and runs positioning-sim with the arguments
# given (none: the built-in 5-minute drive).
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "$0")/lib.sh"

need_packages "${BASE_PACKAGES[@]}"
echo "== build ($BUILD): positioning-sim and the module" >&2
cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD" -j "$JOBS" --target positioning-sim Positioning >&2
exec "$BUILD/tools/positioning-sim/positioning-sim" "$@"
