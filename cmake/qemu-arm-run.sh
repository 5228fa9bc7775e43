#!/bin/sh
# Runs a 32-bit ARM program under qemu-arm:  qemu-arm-run.sh [-L SYSROOT] PROGRAM [ARGS...]
#
# The program is told that this script is its argv[0]. A program that re-executes
# itself through argv[0] (GoogleTest's death tests do) thus comes back here as
# "qemu-arm-run.sh ARGS..." and runs under the emulator again: without binfmt_misc
# the kernel cannot start an ARM executable by itself.
set -e
if [ "${1:-}" = -L ]; then
  export QEMU_LD_PREFIX="$2"
  shift 2
fi
# Re-executed by the program itself: only its arguments are given, options first. A
# program path that is missing (a build in progress) is not taken for that: it would
# start the calling program again with the other's arguments, over and over.
if [ -n "${POSITIONING_ARM_PROGRAM:-}" ] && { [ $# -eq 0 ] || case "$1" in -*) true ;; *) false ;; esac; }; then
  set -- "$POSITIONING_ARM_PROGRAM" "$@"
fi
case "$1" in
  /*) POSITIONING_ARM_PROGRAM=$1 ;;
  *) POSITIONING_ARM_PROGRAM=$PWD/$1 ;;
esac
export POSITIONING_ARM_PROGRAM
exec "${QEMU_ARM:-qemu-arm}" -0 "$0" "$@"
