#!/usr/bin/env python3
"""Worst-case stack depth of the module's entry points from GCC's call graphs.

Reads the .ci files (-fcallgraph-info=su: each function's frame and its calls) of an
ARM build of the module and the table of indirect call sites, and prints the deepest
path from every entry point.

  stack_depth.py CI_DIR CALLS_TABLE [--root DIR] [--compile-dir DIR] [--budget BYTES] [--markdown]

Rules:
  * a function's own frame is its -fstack-usage figure; a dynamic frame without a
    bound fails the check;
  * calls to functions outside the module (C library, host, peers) are leaves: their
    own frames are not counted (the report names them);
  * every indirect call site of the module must be listed in CALLS_TABLE with its
    possible module targets, or as leaving the module; an unlisted site fails;
  * recursion fails the check.
Exit status 1 when a check fails or an entry point exceeds the budget.
"""
import argparse
import glob
import os
import re
import sys

NODE = re.compile(r'^node: \{ title: "([^"]+)" label: "((?:[^"\\]|\\.)*)"(.*)\}$')
EDGE = re.compile(r'^edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"(?: label: "([^"]*)")?')

# Entry points the daemon, the brokers and the peers call, as demangled-name patterns.
ENTRIES = [
    ("FeatureType", r"^const char\* FeatureType\(\)"),
    ("FeatureCreate2", r"FeatureCreate2\("),
    ("delete of the feature (CPositioning deleting destructor)", r"CPositioning::~CPositioning\(\)#D0"),
    ("timer event: CSyncTime::OnEvent", r"CSyncTime::OnEvent\("),
    ("handshake: Register (any interface pair)", r"CReflectionInterface<.*>::Register\("),
    ("handshake: Unregister (any interface pair)", r"CReflectionInterface<.*>::Unregister\("),
    ("CCANSensor::OnInterfaceAvailable", r"CCANSensor::OnInterfaceAvailable\("),
    ("CCANSensor::OnInterfaceUnavailable", r"CCANSensor::OnInterfaceUnavailable\("),
    ("CCANSensor::SyncTime", r"CCANSensor::SyncTime\("),
    ("CCANSensor::Identification", r"CCANSensor::Identification\("),
    ("CCANSensor::Status", r"CCANSensor::Status\("),
    ("CCANSensor::SensorData", r"CCANSensor::SensorData\("),
    ("CExternalSensor::OnInterfaceAvailable (clock sync)", r"CExternalSensor::OnInterfaceAvailable\(IArdenClockSyncFemale"),
    ("CExternalSensor::OnInterfaceUnavailable (clock sync)", r"CExternalSensor::OnInterfaceUnavailable\(IArdenClockSyncFemale"),
    ("CExternalSensor::OnInterfaceAvailable (sensor)", r"CExternalSensor::OnInterfaceAvailable\(IHalvikPositioningSensorFemale"),
    ("CExternalSensor::OnInterfaceUnavailable (sensor)", r"CExternalSensor::OnInterfaceUnavailable\(IHalvikPositioningSensorFemale"),
    ("CExternalSensor::Configuration", r"CExternalSensor::Configuration\("),
    ("CExternalSensor::SensorData", r"CExternalSensor::SensorData\("),
    ("CExternalSensor::TimeStampReport", r"CExternalSensor::TimeStampReport\("),
    ("CSensorStore::OnInterfaceAvailable", r"CSensorStore::OnInterfaceAvailable\("),
    ("CSensorStore::OnInterfaceUnavailable", r"CSensorStore::OnInterfaceUnavailable\("),
    ("CSensorStore::Subscribe", r"CSensorStore::Subscribe\("),
    ("_RegisterCallback / _UnregisterCallback (adapters)", r"CInterfaceAdapter<.*>::_(Un)?RegisterCallback\("),
]


class Function:
    def __init__(self, key, name, location, frame, kind):
        self.key, self.name, self.location, self.frame, self.kind = key, name, location, frame, kind
        self.calls = []  # (target title, call site or None)


def source_path(name, compile_dir, root):
    """A file name of the call graph relative to the project root. The compiler writes
    names as it was given them: relative to the folder it ran in when ccache's base_dir
    rewrote them (Ninja runs every compile in the build folder's top)."""
    if not os.path.isabs(name):
        name = os.path.join(compile_dir, name)
    return os.path.relpath(os.path.normpath(name), root)


def parse(ci_dir, root, compile_dir):
    functions = {}  # key -> Function
    external = {}  # title -> name
    by_plain = {}  # mangled name -> keys
    edges = []
    for path in sorted(glob.glob(os.path.join(ci_dir, "**", "*.ci"), recursive=True)):
        for line in open(path, errors="replace"):
            line = line.rstrip("\n")
            m = NODE.match(line)
            if m:
                title, label, rest = m.groups()
                parts = label.split("\\n")
                if "shape : ellipse" in rest:
                    external.setdefault(title, parts[0])
                    continue
                frame_m = re.match(r"(\d+) bytes \(([a-z,]+)\)", parts[-1])
                frame, kind = (int(frame_m.group(1)), frame_m.group(2)) if frame_m else (0, "unknown")
                name = parts[0]
                # Constructors and destructors have several bodies under one name.
                for suffix, tag in (("D0Ev", "#D0"), ("D1Ev", "#D1"), ("D2Ev", "#D2")):
                    if title.endswith(suffix):
                        name += tag
                location = source_path(parts[1].rsplit(":", 2)[0], compile_dir, root) if len(parts) > 2 else "?"
                old = functions.get(title)
                if old is None or frame > old.frame:
                    functions[title] = Function(title, name, location, frame, kind)
                plain = title.split(":", 1)[1] if title.startswith("/") else title
                by_plain.setdefault(plain, set()).add(title)
                continue
            m = EDGE.match(line)
            if m:
                source, target, site = m.groups()
                if site:
                    file_part, ln, _col = site.rsplit(":", 2)
                    site = f"{source_path(file_part, compile_dir, root)}:{ln}"
                edges.append((path, source, target, site))
    for path, source, target, site in edges:
        if source not in functions:
            continue
        call = (target, site)
        if call not in functions[source].calls:
            functions[source].calls.append(call)
    return functions, external, by_plain


def read_table(path):
    table = []  # (site pattern, [target patterns] or None for outside, description)
    for raw in open(path):
        line = raw.strip()
        if not line or line.startswith("#"):
            continue
        site, _, rest = line.partition(" ")
        rest = rest.strip()
        if rest.startswith("outside:"):
            table.append((site, None, rest[len("outside:"):].strip()))
        else:
            table.append((site, [t.strip() for t in rest.split("|") if t.strip()], rest))
    return table


def site_matches(pattern, site):
    if pattern.endswith(":*"):
        return site.startswith(pattern[:-1])
    return site == pattern


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("ci_dir")
    parser.add_argument("calls_table")
    parser.add_argument("--root", default=os.getcwd())
    parser.add_argument("--compile-dir", help="folder the compiler ran in (default: CI_DIR's parent)")
    parser.add_argument("--budget", type=int, default=0)
    parser.add_argument("--markdown", action="store_true")
    args = parser.parse_args()

    compile_dir = os.path.abspath(args.compile_dir or os.path.join(args.ci_dir, os.pardir))
    functions, external, by_plain = parse(args.ci_dir, os.path.abspath(args.root), compile_dir)
    if not functions:
        print(f"error: no call graph (.ci) found under {args.ci_dir}", file=sys.stderr)
        return 2
    table = read_table(args.calls_table)
    problems = []
    used_rows = set()

    def resolve(title, source_key):
        """Module functions a direct call to title reaches (empty: outside the module)."""
        # A complete-object constructor or destructor (C1, D1) is emitted as an alias
        # of the base-object one (C2, D2).
        names = [title, re.sub(r"C1E", "C2E", title), re.sub(r"D1Ev$", "D2Ev", title)]
        for name in names:
            if name in functions:
                return [name]
            if source_key.startswith("/"):
                local = source_key.split(":", 1)[0] + ":" + name
                if local in functions:
                    return [local]
            if name in by_plain:
                return sorted(by_plain[name])[:1]
        return []

    def targets_of(pattern_list):
        keys = []
        for pattern in pattern_list:
            rx = re.compile(pattern)
            found = [k for k, f in functions.items() if rx.search(f.name)]
            if not found:
                problems.append(f"table target '{pattern}' matches no function of the module")
            keys.extend(found)
        return sorted(set(keys))

    memo = {}
    outside_calls = {}

    def depth(key, stack):
        if key in memo:
            return memo[key]
        if key in stack:
            problems.append("recursion: " + " -> ".join(functions[k].name for k in stack[stack.index(key):] + [key]))
            return (0, [])
        f = functions[key]
        if f.kind not in ("static", "dynamic,bounded"):
            problems.append(f"{f.name}: frame of unbounded size ({f.kind})")
        best = (0, [])
        outs = set()
        for target, site in f.calls:
            if target == "__indirect_call":
                rows = [i for i, row in enumerate(table) if site and site_matches(row[0], site)]
                if not rows:
                    problems.append(f"indirect call at {site} in {f.name} is not in the table")
                    continue
                callees = []
                for i in rows:
                    used_rows.add(i)
                    if table[i][1] is None:
                        outs.add(table[i][2])
                    else:
                        callees.extend(targets_of(table[i][1]))
            else:
                callees = resolve(target, key)
                if not callees:
                    outs.add(external.get(target, target))
            for callee in callees:
                d = depth(callee, stack + [key])
                if d[0] > best[0]:
                    best = d
        outside_calls[key] = outs
        result = (f.frame + best[0], [key] + best[1])
        memo[key] = result
        return result

    rows = []
    for label, pattern in ENTRIES:
        rx = re.compile(pattern)
        keys = [k for k, f in functions.items() if rx.search(f.name)]
        if not keys:
            problems.append(f"entry point '{label}' not found")
            continue
        worst = max((depth(k, []) for k in keys), key=lambda d: d[0])
        outs = set()
        for k in worst[1]:
            outs |= outside_calls.get(k, set())
        rows.append((label, worst[0], len(worst[1]), worst[1], outs))

    for i, row in enumerate(table):
        if i not in used_rows and not row[0].endswith(":*"):
            problems.append(f"table row '{row[0]}' matches no indirect call site")

    if args.markdown:
        print("| entry point | bytes | frames | deepest path |")
        print("|---|---:|---:|---|")
        for label, total, n, path, _ in rows:
            names = " → ".join(f"{short(functions[k].name)} ({functions[k].frame})" for k in path)
            print(f"| {label} | {total} | {n} | {names} |")
    else:
        for label, total, n, path, outs in rows:
            print(f"   {total:5d} bytes  {label}")
            print("          " + " -> ".join(f"{short(functions[k].name)}[{functions[k].frame}]" for k in path))
    worst_total = max((r[1] for r in rows), default=0)
    status = 0
    for p in sorted(set(problems)):
        print(f"   problem: {p}")
        status = 1
    if args.budget:
        verdict = "ok" if worst_total <= args.budget else "OVER BUDGET"
        print(f"   deepest entry point: {worst_total} bytes of the module's own frames, budget {args.budget}: {verdict}")
        if worst_total > args.budget:
            status = 1
    return status


def short(name):
    name = name.split("#")[0] if "#D0" not in name else name.replace("#D0", " [deleting]")
    name = re.sub(r" \[with .*\]$", "", name)
    m = re.search(r"([A-Za-z_][\w:<>, ]*::)?~?[A-Za-z_]\w*(?=\()", name)
    return m.group(0) if m else name


if __name__ == "__main__":
    sys.exit(main())
