#!/usr/bin/env python3
"""The drive library of resim.sh: reads a folder of traces or a manifest into the list
of drives GNU parallel runs, and links a build's results into one tree.

  library.py list LIBRARY LIST OUT    the drives into LIST, one a line, tab-separated:
      line, label (the drive as written), key (SHA-256 of the trace's and the truth's
      content and the options), trace and truth (absolute paths; "builtin" and "" when
      there are none), options (separated by single spaces)
  library.py view RESULTS BUILD LIST VIEW [--add]    VIEW/KEY -> RESULTS/KEY/BUILD for
      every drive of LIST that has a result (the tree replaced, or added to with --add)
Exit status 0, or 2 with the reason on standard error."""
import hashlib
import os
import shutil
import sys

# Options that name the drive's outputs or its input: the runner sets those itself.
REFUSED = {"-o", "--out", "--format", "--summary-json", "--path", "--log", "--record", "--plot", "--geojson",
           "--path-plot", "--result-dir", "--module", "--trace", "--soak", "--help", "-h", "--version",
           "--realtime", "--rate"}


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
    return "\t".join([str(line), label, key, trace, truth, " ".join(options)]) + "\n"


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
    with open(listing, encoding="utf-8") as drives:
        for text in drives:
            key = text.split("\t")[2]
            if not os.path.isdir(os.path.join(results, key, build)):
                continue
            link = os.path.join(view, key)
            target = os.path.relpath(os.path.join(results, key, build), view)
            if os.path.lexists(link):
                os.remove(link)
            os.symlink(target, link)


def main(arguments):
    try:
        if len(arguments) == 4 and arguments[0] == "list":
            write_list(*arguments[1:])
        elif len(arguments) in (5, 6) and arguments[0] == "view" and arguments[5:] in ([], ["--add"]):
            write_view(*arguments[1:5], add=len(arguments) == 6)
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
