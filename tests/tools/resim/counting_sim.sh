#!/usr/bin/env bash
# The simulator as the runner's tests start it: notes each call's arguments in
# RESIM_CALLS, so a test sees which drives were really simulated, then runs
# RESIM_REAL_SIM with the same arguments.
printf '%s\n' "$*" >>"${RESIM_CALLS:?}"
exec "${RESIM_REAL_SIM:?}" "$@"
