#!/usr/bin/env python3
"""What the module costs: instructions, heap, size and simulator throughput.

    perf_report.py --build DIR [--check]

Instructions are counted by valgrind --tool=callgrind in bench/positioning-perf, only
inside its PerfOp functions, each of which makes one call into the module; they do not
depend on the machine's speed or load. Every operation is counted against the no-op
logger (the module's own cost) and against the readable text logger, and split into
the module's own code, the host's logger, the allocator and the rest (the simulated
service and client). The heap comes from bench/positioning-heap, the size from a
stripped copy of libPositioning.so, the throughput from positioning-sim (that one is
wall-clock time, so it depends on the machine).

With --check, exits 1 when a budget is exceeded, when the heap grows with the records,
or when a measured operation did not deliver what it should have.
"""
import argparse
import json
import os
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # nothing left behind in the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import callgrind_split  # noqa: E402

REPLAYED = 300  # records one replaying Subscribe sends

# (scenario, label, operations counted with the no-op logger, with the text logger,
#  what one operation is: the divisor's unit)
OPERATIONS = [
    ("can", "CAN record (SensorData, 2 samples, 1 client)", 2000, 200, "record"),
    ("external", "external record (SensorData, 2 samples, 1 client)", 2000, 200, "record"),
    ("putdata", "PutData alone (1 client)", 2000, 200, "call"),
    ("replay", "replayed record (Subscribe replaying 300)", 10, 2, "replayed record"),
    ("create-can", "feature creation, CAN", 20, 5, "feature"),
    ("create-external", "feature creation, EXTERNAL", 20, 5, "feature"),
    ("destroy-can", "feature destruction, CAN", 20, 5, "feature"),
    ("destroy-external", "feature destruction, EXTERNAL", 20, 5, "feature"),
]

# Instructions per operation, no-op logger, one client, host and allocator included.
INSTRUCTION_BUDGETS = {"can": 1000, "external": 750, "replay": 250}
HEAP_AFTER_CREATION_BUDGET = 19800
# While records are delivered the module holds one outgoing value array at a time.
HEAP_DELIVERY_ALLOWANCE = 64

SIM_DURATION = 18000  # simulated seconds: 90,000 records at 5 a second


def count(build, scenario, logger, operations):
    """Instructions of `operations` counted operations, split by group."""
    driver = os.path.join(build, "bench", "positioning-perf")
    with tempfile.TemporaryDirectory() as scratch:
        out = os.path.join(scratch, "callgrind.out")
        env = dict(os.environ, LD_BIND_NOW="1")
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--toggle-collect=PerfOp*", "--callgrind-out-file=" + out,
             driver, scenario, logger, str(operations)],
            env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)
        if run.returncode != 0:
            raise RuntimeError("%s %s: %s%s" % (scenario, logger, run.stdout, run.stderr[-2000:]))
        groups, _ = callgrind_split.split(out)
    groups["total"] = sum(groups[name] for name in callgrind_split.GROUPS)
    return groups, run.stdout.strip()


def heap(build):
    run = subprocess.run([os.path.join(build, "bench", "positioning-heap")], stdout=subprocess.PIPE,
                         universal_newlines=True, check=True)
    figures = {}
    for line in run.stdout.splitlines():
        if not line.startswith("heap "):
            continue
        fields = dict(item.split("=", 1) for item in line.split()[1:])
        figures[fields.pop("source")] = fields
    return figures


def stripped_size(build):
    library = os.path.join(build, "Positioning", "libPositioning.so")
    with tempfile.TemporaryDirectory() as scratch:
        stripped = os.path.join(scratch, "libPositioning.so")
        subprocess.run(["strip", "--strip-all", "-o", stripped, library], check=True)
        size = os.path.getsize(stripped)
        sections = subprocess.run(["size", stripped], stdout=subprocess.PIPE, universal_newlines=True,
                                  check=True).stdout.splitlines()[1].split()
    return size, int(sections[0]), int(sections[1]), int(sections[2])


def sim_throughput(build, diversity, with_log):
    sim = os.path.join(build, "tools", "positioning-sim", "positioning-sim")
    with tempfile.TemporaryDirectory() as scratch:
        summary = os.path.join(scratch, "summary.json")
        command = [sim, "--diversity", diversity, "--duration", str(SIM_DURATION), "--quiet", "--out", os.devnull,
                   "--summary-json", summary]
        if with_log:
            command += ["--log", os.path.join(scratch, "module.log")]
        subprocess.run(command, check=True)
        with open(summary, encoding="utf-8") as data:
            figures = json.load(data)
    records = figures["records_fed"]
    seconds = max(figures["wall_seconds"], 1e-6)
    return records, records / seconds


def build_type(build):
    try:
        with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
            for line in cache:
                if line.startswith("CMAKE_BUILD_TYPE:"):
                    return line.strip().split("=", 1)[1]
    except OSError:
        pass
    return ""


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True)
    parser.add_argument("--check", action="store_true")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    failures = []

    kind = build_type(build)
    print("Build: %s (%s)" % (build, kind or "unknown type"))
    if kind != "RelWithDebInfo":
        failures.append("the budgets are for the -O2 build (RelWithDebInfo); this build is %r" % kind)

    print("\nInstructions per operation (valgrind --tool=callgrind, x86-64; every call into the host's logger")
    print("and the allocator counted; module = libPositioning.so's own code, peers = the simulated service")
    print("and client)\n")
    header = "%-52s %-6s %9s %8s %8s %9s %6s %6s  %s" % (
        "operation", "logger", "per op", "module", "logger", "allocator", "peers", "other", "budget")
    print(header)
    print("-" * len(header))
    for scenario, label, noop_ops, text_ops, unit in OPERATIONS:
        for logger, operations in (("noop", noop_ops), ("text", text_ops)):
            try:
                groups, _ = count(build, scenario, logger, operations)
            except RuntimeError as error:
                failures.append("%s/%s did not run as expected: %s" % (scenario, logger, error))
                continue
            divisor = operations * (REPLAYED if scenario == "replay" else 1)
            per = {name: groups[name] / divisor for name in groups}
            budget = INSTRUCTION_BUDGETS.get(scenario) if logger == "noop" else None
            verdict = ""
            if budget is not None:
                verdict = "%d %s" % (budget, "ok" if per["total"] <= budget else "EXCEEDED")
                if per["total"] > budget:
                    failures.append("%s: %.0f instructions per %s, budget %d" % (label, per["total"], unit, budget))
            print("%-52s %-6s %9.0f %8.0f %8.0f %9.0f %6.0f %6.0f  %s" % (
                label if logger == "noop" else "", logger, per["total"], per["module"], per["logger"],
                per["allocator"], per["peers"], per["other"], verdict))

    print("\nHeap the module holds (bytes requested; no-op logger)\n")
    figures = heap(build)
    header = "%-9s %9s %9s %9s %9s %12s %9s  %s" % (
        "feature", "created", "1 minute", "+replay", "peak", "after recs", "deleted", "budget (created)")
    print(header)
    print("-" * len(header))
    for source in ("CAN", "EXTERNAL"):
        f = {key: value for key, value in figures[source].items()}
        created = int(f["after_creation"])
        verdict = "%d %s" % (HEAP_AFTER_CREATION_BUDGET, "ok" if created <= HEAP_AFTER_CREATION_BUDGET else "EXCEEDED")
        print("%-9s %9s %9s %9s %9s %12s %9s  %s" % (source, f["after_creation"], f["after_minute"], f["after_replay"],
                                                    f["peak"], f["after_records"], f["after_destroy"], verdict))
        if created > HEAP_AFTER_CREATION_BUDGET:
            failures.append("%s feature holds %d bytes after creation, budget %d" % (
                source, created, HEAP_AFTER_CREATION_BUDGET))
        if int(f["after_records"]) != int(f["after_replay"]):
            failures.append("%s heap grew over %s records: %s -> %s bytes" % (
                source, f["records"], f["after_replay"], f["after_records"]))
        if int(f["peak"]) > int(f["after_replay"]) + HEAP_DELIVERY_ALLOWANCE:
            failures.append("%s heap peak %s is more than one delivery above %s" % (source, f["peak"], f["after_replay"]))
        if int(f["samples"]) != 2 * int(f["records"]):
            failures.append("%s: the client got %s samples from %s records" % (source, f["samples"], f["records"]))
    print("(%s records after the replay; module allocations per record: %s with the client served (CAN), "
          "%s while no client is served)" % (figures["CAN"]["records"], figures["CAN"]["allocations_per_record"],
                                             figures["CAN"]["allocations_per_unserved_record"]))

    size, text, data, bss = stripped_size(build)
    print("\nlibPositioning.so stripped: %d bytes (text %d, data %d, bss %d)" % (size, text, data, bss))

    print("\npositioning-sim throughput, accelerated time (wall clock: depends on the machine)\n")
    for diversity in ("CAN", "EXTERNAL"):
        for with_log, name in ((False, "no-op logger"), (True, "file logger")):
            try:
                records, rate = sim_throughput(build, diversity, with_log)
            except (subprocess.CalledProcessError, OSError, KeyError, ValueError) as error:
                failures.append("positioning-sim %s with the %s did not run as expected: %r" % (diversity, name, error))
                continue
            print("  %-9s %-13s %8d records  %10.0f records/s" % (diversity, name, records, rate))

    if failures:
        print("\nFAILED:")
        for failure in failures:
            print("  " + failure)
        return 1 if args.check else 0
    print("\nAll budgets met.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
