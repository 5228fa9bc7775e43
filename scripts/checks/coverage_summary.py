#!/usr/bin/env python3
"""Reads llvm-cov's summary export for 45-coverage.sh.

  coverage_summary.py files SUMMARY.json          the module's file names as the mapping has them
  coverage_summary.py check SUMMARY.json L R B    totals of the module; exit 1 below a floor
"""
import json
import sys

MODULE = "/Positioning/src/"


def module_files(path):
    with open(path) as f:
        data = json.load(f)["data"][0]["files"]
    return [entry for entry in data if MODULE in entry["filename"]]


def main(argv):
    if len(argv) < 3 or argv[1] not in ("files", "check"):
        print(__doc__, file=sys.stderr)
        return 2
    files = module_files(argv[2])
    if argv[1] == "files":
        for entry in files:
            print(entry["filename"])
        return 0
    floors = {"lines": float(argv[3]), "regions": float(argv[4]), "branches": float(argv[5])}
    failed = False
    print(f"   Positioning/src, {len(files)} files:")
    for name, floor in floors.items():
        count = sum(entry["summary"][name]["count"] for entry in files)
        covered = sum(entry["summary"][name]["covered"] for entry in files)
        percent = 100.0 * covered / count if count else 100.0
        ok = percent + 1e-9 >= floor
        failed |= not ok
        print(f"   {name:8} {percent:7.2f}%  ({covered} of {count}, {count - covered} missed)"
              f"  floor {floor:g}%  {'ok' if ok else 'BELOW FLOOR'}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
