#!/usr/bin/env bash
# Static analysis: clang-tidy (checks in .clang-tidy) and cppcheck over the folders
# listed in scripts/checks/static-analysis.paths. Fails on any finding that
# clang-tidy.supp or cppcheck.supp beside this script does not list with its reason.
#
#   scripts/checks/10-static-analysis.sh                  the listed folders; fails on a finding
#   scripts/checks/10-static-analysis.sh --report DIR...  lists and counts the findings in
#                                                         other folders (host tools); never fails on them
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
HERE=$(cd "$(dirname "$0")" && pwd)

mode=check
paths=()
case "${1:-}" in
  -h | --help)
    sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'
    exit 0
    ;;
  --report)
    mode=report
    shift
    paths=("$@")
    [ ${#paths[@]} -gt 0 ] || { echo "error: --report needs at least one folder" >&2; exit 2; }
    ;;
  "") ;;
  *)
    echo "error: unknown argument '$1' (see --help)" >&2
    exit 2
    ;;
esac
if [ ${#paths[@]} -eq 0 ]; then
  mapfile -t paths < <(grep -vE '^[[:space:]]*(#|$)' "$HERE/static-analysis.paths")
fi
for path in "${paths[@]}"; do
  [ -d "$ROOT/$path" ] || { echo "error: no folder $path in $ROOT" >&2; exit 2; }
done
start=$SECONDS

need_packages "${BASE_PACKAGES[@]}" clang-tidy cppcheck
TIDY=clang-tidy
command -v clang-tidy-14 >/dev/null && TIDY=clang-tidy-14

# The compilation database of the native build: the flags every file is built with.
cmake -S "$ROOT" --preset dev -B "$BUILD" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Translation units of the listed folders; headers are checked through them.
python3 - "$BUILD/compile_commands.json" "$ROOT" "${paths[@]}" >"$work/units" <<'EOF'
import json, os, sys
db, root, paths = sys.argv[1], sys.argv[2], sys.argv[3:]
seen = set()
for entry in json.load(open(db)):
    f = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
    rel = os.path.relpath(f, root)
    if any(rel.startswith(p.rstrip("/") + "/") for p in paths) and f not in seen:
        seen.add(f)
        print(f)
EOF
header_filter="^$ROOT/($(IFS='|'; echo "${paths[*]}"))/"

echo "-- clang-tidy on ${paths[*]} ($(wc -l <"$work/units") files)"
if [ -s "$work/units" ]; then
  # clang-tidy's exit status says only that it found something; the findings are read below.
  tr '\n' '\0' <"$work/units" |
    xargs -0 -n 1 -P "$JOBS" "$TIDY" -p "$BUILD" --quiet --header-filter="$header_filter" >"$work/tidy.out" 2>/dev/null || true
fi

echo "-- cppcheck on ${paths[*]}"
includes=(-I include -I Positioning/src)
for path in "${paths[@]}"; do includes+=(-I "$path"); done
(cd "$ROOT" && cppcheck --quiet --std=c++17 --language=c++ --enable=warning,style,performance,portability \
  --inline-suppr --suppress=missingIncludeSystem --suppressions-list="$HERE/cppcheck.supp" -j "$JOBS" \
  --template='{file}:{line}:{column}: {severity}: {message} [{id}]' "${includes[@]}" "${paths[@]}") \
  >"$work/cppcheck.out" 2>&1 || true

status=0
python3 - "$ROOT" "$HERE/clang-tidy.supp" "$work/tidy.out" "$work/cppcheck.out" "${paths[@]}" <<'EOF' || status=$?
import os, re, sys
root, supp_file, tidy_out, cppcheck_out, paths = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4], sys.argv[5:]
finding = re.compile(r"^(.+?):(\d+):(\d+): (warning|error|style|performance|portability|information): (.*) \[([^\]]+)\]$")
suppressed = set()
for line in open(supp_file):
    line = line.strip()
    if line and not line.startswith("#"):
        suppressed.add(line)

def inside(rel):
    return any(rel.startswith(p.rstrip("/") + "/") for p in paths)

def read(path, tool):
    found = {}
    for line in open(path, errors="replace"):
        m = finding.match(line.rstrip("\n"))
        if not m:
            continue
        f, ln, col, kind, msg, check = m.groups()
        rel = os.path.relpath(os.path.normpath(os.path.join(root, f)), root)
        if not inside(rel):
            continue
        checks = check.split(",")
        if tool == "clang-tidy" and any(f"{rel}:{ln}:{c}" in suppressed for c in checks):
            continue
        found[(rel, int(ln), int(col), check)] = f"{rel}:{ln}:{col}: {kind}: {msg} [{check}]"
    return [found[k] for k in sorted(found)]

total = 0
for tool, path in (("clang-tidy", tidy_out), ("cppcheck", cppcheck_out)):
    items = read(path, tool)
    total += len(items)
    for item in items:
        print(f"   {tool}: {item}")
    print(f"   {tool}: {len(items)} finding(s)")
sys.exit(1 if total else 0)
EOF

echo "   static analysis took $((SECONDS - start)) s"
if [ "$mode" = report ]; then
  exit 0
fi
if [ $status -ne 0 ]; then
  echo "FAILED: static analysis findings on ${paths[*]} (fix them, or list them with their reason in scripts/checks/*.supp)"
fi
exit $status
