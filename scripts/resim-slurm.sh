#!/usr/bin/env bash
# A Slurm job array over a drive library: each array task takes its chunk of the
# library and re-simulates it with resim.sh, GNU parallel filling the task's cores, as
# sites advise for many short jobs. Results go to the shared OUT/results; each task's
# joblog and report to OUT/chunk-I-of-N. Submit from the project's root, with the
# array size the number of chunks:
#
#   sbatch --array=0-9 scripts/resim-slurm.sh LIBRARY OUT [resim.sh options]
#
# When every task is done, `scripts/resim.sh LIBRARY OUT` (or a job submitted with
# --dependency=afterok:JOBID) reuses every result and writes the library's report.
# Outside Slurm, set SLURM_ARRAY_TASK_ID and SLURM_ARRAY_TASK_COUNT by hand.
#SBATCH --job-name=resim
#SBATCH --array=0-9
#SBATCH --nodes=1
#SBATCH --ntasks=1
#SBATCH --cpus-per-task=8
#SBATCH --time=01:00:00
#SBATCH --output=resim-%A_%a.out
set -uo pipefail

if [ "${1:-}" = -h ] || [ "${1:-}" = --help ]; then
  sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//'
  exit 0
fi
if [ $# -lt 2 ]; then
  echo "usage: sbatch --array=0-N scripts/resim-slurm.sh LIBRARY OUT [resim.sh options] (--help)" >&2
  exit 2
fi

# Slurm runs a copy of this script from its spool: resim.sh is found from where the
# job was submitted.
if [ -n "${SLURM_SUBMIT_DIR:-}" ] && [ -x "$SLURM_SUBMIT_DIR/scripts/resim.sh" ]; then
  resim=$SLURM_SUBMIT_DIR/scripts/resim.sh
else
  resim=$(cd "$(dirname "$0")" && pwd)/resim.sh
fi

task=${SLURM_ARRAY_TASK_ID:-}
count=${SLURM_ARRAY_TASK_COUNT:-}
first=${SLURM_ARRAY_TASK_MIN:-0}
if ! [[ "$task" =~ ^[0-9]+$ && "$count" =~ ^[1-9][0-9]*$ && "$first" =~ ^[0-9]+$ ]]; then
  echo "resim-slurm: not in a Slurm job array: SLURM_ARRAY_TASK_ID and SLURM_ARRAY_TASK_COUNT must be numbers" >&2
  exit 2
fi
library=$1
out=$2
shift 2
jobs=()
[ -z "${SLURM_CPUS_PER_TASK:-}" ] || jobs=(-j "$SLURM_CPUS_PER_TASK")

echo "resim-slurm: task $task, chunk $((task - first)) of $count, on $(hostname)" >&2
# The report of the whole library comes after the array; a chunk writes its own.
exec "$resim" --chunk "$((task - first))/$count" "${jobs[@]}" "$@" "$library" "$out"
