#!/usr/bin/env bash
# The tree's style: every tracked C++ file formatted as .clang-format says (the module's
# sources and the contract headers opt out in their own .clang-format: their line
# numbers show in log records), and every shell script clean under shellcheck
# (.shellcheckrc lets it follow the scripts' `source` lines).
#
# To fix what this reports: clang-format -i FILE..., and shellcheck -x SCRIPT for the
# explanation of each finding.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
need_packages git clang-format shellcheck
cd "$ROOT"

mapfile -t sources < <(git ls-files -- '*.cpp' '*.h' '*.c')
echo "-- clang-format $(clang-format --version | grep -Eo '[0-9]+\.[0-9.]+' | head -1): ${#sources[@]} files"
if ! clang-format --dry-run --Werror "${sources[@]}"; then
  echo "FAILED: not formatted as .clang-format says (clang-format -i the files named above)"
  exit 1
fi

# Shell scripts by name or by their first line.
scripts=()
while IFS= read -r file; do
  case "$file" in
    *.sh | *.bash) scripts+=("$file") ;;
    *) [ -f "$file" ] && head -n 1 "$file" | grep -Eq '^#!.*\b(ba)?sh\b' && scripts+=("$file") ;;
  esac
done < <(git ls-files)
echo "-- shellcheck $(shellcheck --version | sed -n 's/^version: //p'): ${#scripts[@]} scripts"
if ! shellcheck -x "${scripts[@]}"; then
  echo "FAILED: shellcheck findings above"
  exit 1
fi
echo "-- style passed"
