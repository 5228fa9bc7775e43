#!/usr/bin/env python3
"""The drive library of resim.sh: reads a folder of traces or a manifest into the list
of drives GNU parallel runs, and settles a run: what each drive did, why one failed,
and the build's results linked into one tree.

  library.py list LIBRARY LIST OUT    the drives into LIST, one a line, tab-separated:
      line, label (the drive as written), key (SHA-256 of the trace's and the truth's
      content and the options), trace and truth (absolute paths; "builtin" and "" when
      there are none), options (separated by single spaces), and what the drive is
      guessed to cost in CPU milliseconds (to share the drives out evenly)
  library.py settle RESULTS BUILD LIST VIEW GROUPS JOBS FAILED SIM [--add]
      reads the drives' status lines (positioning-sim batch --status) in GROUPS/*.status;
      writes
      JOBS ("ran KEY", "reused KEY", "failed KEY" a drive), FAILED/KEY.txt for a drive
      that failed (removed for one that is done) and links VIEW/KEY -> RESULTS/KEY/BUILD
      for every drive of LIST that has a result (the tree replaced, or added to with --add)
Exit status 0, or 2 with the reason on standard error."""
import hashlib
import json
import os
import shutil
import sys

# Options that name the drive's outputs or its input: the runner sets those itself.
REFUSED = {"-o", "--out", "--format", "--summary-json", "--path", "--log", "--record", "--plot", "--geojson",
           "--path-plot", "--result-dir", "--module", "--trace", "--soak", "--help", "-h", "--version",
           "--realtime", "--rate"}


# What a drive is guessed to cost, in CPU milliseconds, from what was measured with
# positioning-sim batch: about 1.5 ms a drive whatever its length (loading the module,
# making its files), 0.45 ms a minute of built-in driving, and about 20 ms a megabyte
# of trace (a trace's rows per second vary, so its size says its length only roughly).
COST_PER_DRIVE_MS = 1.5
COST_PER_BUILTIN_SECOND_MS = 0.0075
COST_PER_TRACE_MEGABYTE_MS = 20.0
BUILTIN_SECONDS = 300  # positioning-sim's --duration when none is given


class LibraryError(Exception):
    """What is wrong with the library, said with where."""


class Hashes:
    """File hashes, each file read once however many drives name it."""

    def __init__(self):
        self.known = {}

    def of(self, path):
        if path not in self.known:
            digest = hashlib.sha256()
            with open(path, "rb") as source:
                for block in iter(lambda: source.read(1 << 20), b""):
                    digest.update(block)
            self.known[path] = digest.hexdigest()
        return self.known[path]


def quote_hint(path):
    return " (a manifest takes no quotes: its paths cannot hold spaces)" if '"' in path or "'" in path else ""


def drive(hashes, where, line, label, trace, truth, options):
    """One line of the list, with the trace and the truth resolved and hashed."""
    for field in (label, trace, truth):
        if "\t" in field or "\n" in field:
            raise LibraryError(f"{where} a tab or a line break in {field!r} cannot be stored")
    trace_sha, truth_sha = "builtin", "-"
    for kind, path in (("trace", trace), ("truth", truth)):
        if not path or path == "builtin" and kind == "trace":
            continue
        if not os.path.isfile(path) or not os.access(path, os.R_OK):
            raise LibraryError(f'{where} no readable {kind} "{path}"{quote_hint(path)}')
    if trace != "builtin":
        trace = os.path.realpath(trace)
        trace_sha = hashes.of(trace)
    if truth:
        truth = os.path.realpath(truth)
        truth_sha = hashes.of(truth)
    text = f"trace {trace_sha}\ntruth {truth_sha}\n" + "".join(f"option {word}\n" for word in options)
    key = hashlib.sha256(text.encode()).hexdigest()
    cost = f"{guessed_cost(trace, options):.1f}"
    return "\t".join([str(line), label, key, trace, truth, " ".join(options), cost]) + "\n"


def guessed_cost(trace, options):
    """The drive's CPU milliseconds, roughly: enough to give each job as much work."""
    if trace != "builtin":
        return COST_PER_DRIVE_MS + os.path.getsize(trace) / 1e6 * COST_PER_TRACE_MEGABYTE_MS
    seconds = BUILTIN_SECONDS
    for at, word in enumerate(options):
        value = options[at + 1] if word == "--duration" and at + 1 < len(options) else None
        value = word[len("--duration="):] if word.startswith("--duration=") else value
        try:
            seconds = float(value) if value is not None else seconds
        except ValueError:
            pass  # the simulator refuses it, and says why
    return COST_PER_DRIVE_MS + max(seconds, 0) * COST_PER_BUILTIN_SECOND_MS


def from_folder(folder, skip):
    """Every *.csv below folder but truths and what is below skip, in name order; a trace
    NAME.csv or NAME.trace.csv takes NAME.truth.csv beside it as its truth."""
    hashes = Hashes()
    traces = []
    for root, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if os.path.join(root, name) != skip]
        traces += [os.path.join(root, name) for name in files
                   if name.endswith(".csv") and not name.endswith(".truth.csv")]
    if not traces:
        raise LibraryError(f"no traces (*.csv) in {folder}")
    lines = []
    for number, trace in enumerate(sorted(traces), 1):
        stem = trace[:-len(".csv")]
        stem = stem[:-len(".trace")] if stem.endswith(".trace") else stem
        truth = stem + ".truth.csv" if os.path.isfile(stem + ".truth.csv") else ""
        lines.append(drive(hashes, trace + ":", number, os.path.relpath(trace, folder), trace, truth, []))
    return lines


def manifest_words(text):
    """A manifest line's words, comments ("#" at the start or after a space) left out."""
    words = []
    for word in text.split():
        if word.startswith("#"):
            break
        words.append(word)
    return words


def from_manifest(manifest):
    """One drive a line: "builtin" or a trace path relative to the manifest, then options."""
    hashes = Hashes()
    base = os.path.dirname(os.path.abspath(manifest))
    lines = []
    try:
        with open(manifest, encoding="utf-8") as source:
            texts = source.read().splitlines()
    except (OSError, UnicodeDecodeError) as error:
        raise LibraryError(f"cannot read {manifest}: {error}") from error
    for number, text in enumerate(texts, 1):
        where = f"{manifest}:{number}:"
        words = manifest_words(text)
        if not words:
            continue
        trace, truth, options = words[0], "", []
        rest = iter(words[1:])
        for word in rest:
            if word == "--truth":
                truth = next(rest, None)
                if truth is None:
                    raise LibraryError(f"{where} --truth needs a file")
            elif word.startswith("--truth="):
                truth = word[len("--truth="):]
            elif word.split("=", 1)[0] in REFUSED:
                raise LibraryError(f"{where} {word.split('=', 1)[0]} is the runner's to set; "
                                   "a drive takes only what shapes its run")
            else:
                options.append(word)
        if trace == "builtin" and truth:
            raise LibraryError(f"{where} the built-in drive knows its own truth")
        if trace != "builtin":
            trace = os.path.join(base, trace)
        if truth:
            truth = os.path.join(base, truth)
        lines.append(drive(hashes, where, number, " ".join(words), trace, truth, options))
    if not lines:
        raise LibraryError(f"no drives in {manifest}")
    return lines


def write_list(library, listing, out):
    if os.path.isdir(library):
        lines = from_folder(os.path.abspath(library), os.path.abspath(out))
    elif os.path.isfile(library):
        lines = from_manifest(library)
    else:
        raise LibraryError(f'no library "{library}": give a folder of traces or a manifest file')
    with open(listing, "w", encoding="utf-8") as out_file:
        out_file.writelines(lines)


def write_view(results, build, listing, view, add):
    if not add and os.path.lexists(view):
        shutil.rmtree(view)
    os.makedirs(view, exist_ok=True)
    for key in drive_keys(listing):
        if not os.path.isdir(os.path.join(results, key, build)):
            continue
        link = os.path.join(view, key)
        target = os.path.relpath(os.path.join(results, key, build), view)
        if os.path.lexists(link):
            os.remove(link)
        os.symlink(target, link)


def drive_keys(listing):
    with open(listing, encoding="utf-8") as drives:
        return [text.split("\t")[2] for text in drives if text.strip()]


def status_records(groups):
    """The drives' status lines in the groups' status files, by key (the folder above
    the build's); a line that is not one (cut short by a kill) is passed over."""
    records = {}
    names = sorted(name for name in os.listdir(groups) if name.endswith(".status")) if os.path.isdir(groups) else []
    for name in names:
        with open(os.path.join(groups, name), encoding="utf-8", errors="replace") as lines:
            for text in lines:
                try:
                    record = json.loads(text)
                    key = os.path.basename(os.path.dirname(record["result_dir"]))
                except (ValueError, KeyError, TypeError):
                    continue
                records[key] = record
    return records


def write_atomically(path, text):
    temporary = f"{path}.{os.getpid()}.tmp"
    with open(temporary, "w", encoding="utf-8") as out:
        out.write(text)
    os.replace(temporary, path)


def settle(results, build, listing, view, groups, jobs, failed, sim, add):
    records = status_records(groups)
    os.makedirs(failed, exist_ok=True)
    said = []
    for key in drive_keys(listing):
        record = records.get(key, {})
        outcome = record.get("outcome")
        reason = os.path.join(failed, key + ".txt")
        if os.path.isdir(os.path.join(results, key, build)):
            said.append(f"{'ran' if outcome == 'ran' else 'reused'} {key}\n")
            if os.path.exists(reason):
                os.remove(reason)
        elif outcome == "failed":
            said.append(f"failed {key}\n")
            messages = record.get("messages") or ""
            last = [line for line in messages.splitlines() if line.strip()]
            write_atomically(reason, f"exit status {record.get('exit_status')}: {last[-1] if last else ''}\n"
                             f"command: {sim} run {record.get('drive')}\n"
                             f"standard error (its end):\n{messages}")
    write_atomically(jobs, "".join(said))
    write_view(results, build, listing, view, add)


def main(arguments):
    try:
        if len(arguments) == 4 and arguments[0] == "list":
            write_list(*arguments[1:])
        elif len(arguments) in (9, 10) and arguments[0] == "settle" and arguments[9:] in ([], ["--add"]):
            settle(*arguments[1:9], add=len(arguments) == 10)
        else:
            print(__doc__, file=sys.stderr)
            return 2
    except LibraryError as error:
        print(f"resim: {error}", file=sys.stderr)
        return 2
    except OSError as error:
        print(f"resim: {error}", file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
