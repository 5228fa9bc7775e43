#!/usr/bin/env python3
"""Splits the instructions of a callgrind profile by who spent them.

    callgrind_split.py FILE [--top N]

Prints one line of key=value figures: total, module (libPositioning.so), logger (the
host's logging facility), allocator (malloc and free, operator new and delete), peers
(the rest of the host and the measuring program: simulated services and the client)
and other (what cannot be traced to one of them). A function's own instructions go to
its group; those of the C and C++ runtime (printf, std::string, __dynamic_cast) are
shared among its callers' groups, so that the groups add up to the total. With
--top N, the N costliest functions follow, one per line.
"""
import re
import sys
from collections import defaultdict

ALLOCATOR = re.compile(
    r"^(malloc|free|calloc|realloc|cfree|_int_\w+|tcache\w*|sysmalloc|systrim|unlink_chunk|"
    r"malloc_consolidate|__libc_(malloc|free|calloc|realloc|memalign)|_mid_memalign|"
    r"mremap_chunk|munmap_chunk|arena_\w+|__malloc_\w+|"
    r"operator new\b.*|operator delete\b.*)$")
GROUPS = ("module", "logger", "allocator", "peers", "other")
LOGGER = re.compile(r"CLogFacility|CNullStream|CStream|CTextLogSink|LoggedRecord::|LogPiece::|KindName|"
                    r"logging::IControl|logging::internals::ILog|CategoryNumber|StripPrefix")


def parse(path, edges=None):
    """Own instructions per (object, function). With a dict for edges, also fills it:
    (caller, callee) -> the instructions of those calls, callee's callees included."""
    names = {"ob": {}, "fl": {}, "fn": {}}
    kinds = {"ob": "ob", "cob": "ob", "fl": "fl", "fi": "fl", "fe": "fl", "cfi": "fl", "cfl": "fl",
             "fn": "fn", "cfn": "fn"}
    cost = defaultdict(int)
    current_ob = ""
    function_ob = ""
    function = ""
    callee_ob = ""
    callee = ""
    in_call = False  # the cost line after calls= is the callee's, not own
    position_columns = 1  # "positions: line", or "instr line" with --dump-instr=yes

    def resolve(kind, value):
        table = names[kinds[kind]]
        match = re.match(r"^\((\d+)\)\s*(.*)$", value)
        if not match:
            return value
        ident, name = match.group(1), match.group(2)
        if name:
            table[ident] = name
            return name
        return table.get(ident, "?")

    with open(path, encoding="utf-8", errors="replace") as profile:
        for raw in profile:
            line = raw.rstrip("\n")
            if not line:
                continue
            first = line[0]
            if first.isdigit() or first in "+-*":
                parts = line.split()
                value = int(parts[position_columns]) if len(parts) > position_columns else 0
                if in_call:
                    in_call = False
                    if edges is not None:
                        edges[((function_ob, function), (callee_ob, callee))] += value
                    continue
                cost[(function_ob, function)] += value
                continue
            if line.startswith("positions:"):
                position_columns = len(line.split()) - 1
                continue
            key, _, value = line.partition("=")
            if key in kinds:
                name = resolve(key, value)
                if key == "ob":
                    current_ob = name
                elif key == "fn":
                    function = name
                    function_ob = current_ob
                    callee_ob = current_ob
                elif key == "cob":
                    callee_ob = name
                elif key == "cfn":
                    callee = name
            elif key == "calls":
                in_call = True
    return cost


def direct_group(obj, function):
    """The group a function's own instructions belong to, or None for a library
    function (C and C++ runtime, loader) whose instructions go to its callers."""
    if obj.endswith("libPositioning.so"):
        return "module"
    if ALLOCATOR.match(function):
        return "allocator"
    if "libpositioning_host" in obj:
        return "logger" if LOGGER.search(function) else "peers"
    if "/bench/" in obj or obj.endswith("positioning-perf"):
        return "peers"
    return None


def group_of(obj, function):
    return direct_group(obj, function) or "other"


def split(path):
    """Instructions per group. A library function's own instructions are shared among
    the groups of those who called it, in proportion to what those calls cost, so
    that printf called by the text logger counts as the logger's and __dynamic_cast
    called by the module as the module's."""
    edges = defaultdict(int)
    cost = parse(path, edges)
    callers = defaultdict(list)
    for (caller, callee), value in edges.items():
        if caller != callee:
            callers[callee].append((caller, value))
    shares = {}

    def share_of(function, depth=0):
        """How a library function's instructions divide among the groups."""
        if function in shares:
            return shares[function]
        group = direct_group(*function)
        if group is not None:
            return {group: 1.0}
        shares[function] = {"other": 1.0}  # a cycle ends as other
        incoming = callers.get(function, [])
        total = float(sum(value for _, value in incoming))
        if depth > 50 or total <= 0:
            return shares[function]
        result = defaultdict(float)
        for caller, value in incoming:
            for group, fraction in share_of(caller, depth + 1).items():
                result[group] += fraction * value / total
        shares[function] = dict(result)
        return shares[function]

    groups = {name: 0.0 for name in GROUPS}
    for function, value in cost.items():
        for group, fraction in share_of(function).items():
            groups[group] += value * fraction
    return groups, cost


def main(argv):
    if len(argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    top = 0
    if len(argv) >= 4 and argv[2] == "--top":
        top = int(argv[3])
    groups, cost = split(argv[1])
    total = sum(groups.values())
    print("total=%d " % round(total) + " ".join("%s=%d" % (name, round(groups[name])) for name in GROUPS))
    if top:
        ranked = sorted(cost.items(), key=lambda item: -item[1])[:top]
        for (obj, function), value in ranked:
            print("  %10d  %-9s %s  [%s]" % (value, group_of(obj, function), function, obj.rsplit("/", 1)[-1]))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
