#!/usr/bin/env python3
"""Builds the report of one library run of resim.sh from its drive list and the drives'
result folders: report.csv and report.json (one row per drive) and report.md with a
gnuplot plot of the drifts and synchronisation errors across the library."""
import argparse
import csv
import io
import json
import os
import shutil
import subprocess
import sys
import tempfile

COLUMNS = ["line", "drive", "status", "records", "samples_type1", "samples_type2", "samples_other", "replayed",
           "error_mean_ms", "error_max_abs_ms", "drift_m", "drift_per_km", "distance_m", "supervision_messages",
           "wall_seconds", "samples_sha256", "key", "reason"]
PLOT = "report-plot.svg"


class ReportError(Exception):
    """A result or an output the report cannot do without."""


def read_json(path):
    try:
        with open(path, encoding="utf-8") as source:
            return json.load(source)
    except (OSError, ValueError) as error:
        raise ReportError(f"cannot read {path}: {error}") from error


def job_statuses(run):
    """What each drive's job said in this run: "ran" or "reused", by key."""
    statuses = {}
    path = os.path.join(run, "jobs.out")
    if os.path.exists(path):
        with open(path, encoding="utf-8") as jobs:
            for line in jobs:
                words = line.split()
                if len(words) == 2 and words[0] in ("ran", "reused"):
                    statuses.setdefault(words[1], words[0])
    return statuses


def failure_reason(failed, key):
    try:
        with open(os.path.join(failed, key + ".txt"), encoding="utf-8", errors="replace") as reason:
            lines = [line.strip() for line in reason if line.strip()]
    except OSError:
        return "did not run (see the joblog)"
    return lines[0] if lines else "failed"


def drive_row(fields, folder, status, failed):
    line, label, key = fields[0], fields[1], fields[2]
    row = dict.fromkeys(COLUMNS)
    row.update({"line": int(line), "drive": label, "key": key})
    if not os.path.isdir(folder):
        row["status"] = "failed" if os.path.exists(os.path.join(failed, key + ".txt")) else "not run"
        row["reason"] = failure_reason(failed, key)
        return row
    summary = read_json(os.path.join(folder, "summary.json"))
    run = read_json(os.path.join(folder, "run.json"))
    by_type = summary.get("samples_by_type") or {}
    reckoning = summary.get("dead_reckoning") or {}
    row.update({
        "status": status or "reused",
        "records": summary.get("records_fed"),
        "samples_type1": by_type.get("1", 0),
        "samples_type2": by_type.get("2", 0),
        "samples_other": sum(count for kind, count in by_type.items() if kind not in ("1", "2")),
        "replayed": summary.get("replayed"),
        "error_mean_ms": summary.get("error_mean"),
        "error_max_abs_ms": summary.get("error_max_abs"),
        "drift_m": reckoning.get("drift_m"),
        "drift_per_km": reckoning.get("drift_per_km"),
        "distance_m": reckoning.get("distance_m"),
        "supervision_messages": summary.get("supervision_messages"),
        "wall_seconds": run.get("wall_seconds"),
        "samples_sha256": summary.get("samples_sha256"),
    })
    return row


def read_rows(run, results, build):
    failed = os.path.join(os.path.dirname(results), "failed")
    statuses = job_statuses(run)
    rows = []
    drives = os.path.join(run, "drives.tsv")
    try:
        with open(drives, encoding="utf-8") as listing:
            for text in listing:
                fields = text.rstrip("\n").split("\t")
                if len(fields) < 6:
                    raise ReportError(f"{drives}: not a drive list line: {text!r}")
                folder = os.path.join(results, fields[2], build)
                rows.append(drive_row(fields, folder, statuses.get(fields[2]), failed))
    except OSError as error:
        raise ReportError(f"cannot read {drives}: {error}") from error
    return rows


def write_atomically(path, text):
    temporary = path + ".tmp"
    with open(temporary, "w", encoding="utf-8", newline="") as out:
        out.write(text)
    os.replace(temporary, path)


def csv_text(rows):
    text = io.StringIO()
    writer = csv.DictWriter(text, fieldnames=COLUMNS, lineterminator="\n")
    writer.writeheader()
    for row in rows:
        writer.writerow({name: ("" if value is None else value) for name, value in row.items()})
    return text.getvalue()


def totals(rows):
    counts = {status: sum(1 for row in rows if row["status"] == status)
              for status in ("ran", "reused", "failed", "not run")}
    counts["drives"] = len(rows)
    return counts


def has_values(rows, name):
    return any(row[name] is not None for row in rows)


def plot(rows, run):
    """Draws the drifts and errors per drive into run/report-plot.svg. Returns None when
    drawn, else why not and whether that is a failure."""
    done = [row for row in rows if row["status"] in ("ran", "reused")]
    panels = []
    if has_values(done, "drift_per_km"):
        panels.append("set ylabel 'drift (m per km)'\n"
                      "plot 'data' using 1:3:XTICS with boxes title 'dead-reckoning drift at the end, per km driven'")
    if has_values(done, "error_mean_ms"):
        panels.append("set ylabel 'error (ms)'\n"
                      "plot 'data' using 1:4:XTICS with linespoints pt 7 title 'synchronised time stamp error: mean', "
                      "'data' using 1:5 with linespoints pt 5 title 'largest |error|'")
    if not panels:
        return "no drive has a drift or a synchronisation error to plot", False
    gnuplot = shutil.which("gnuplot")
    if gnuplot is None:
        return "gnuplot is not installed (apt-get install gnuplot-nox)", True
    with tempfile.TemporaryDirectory(prefix="resim-plot-") as scratch:
        with open(os.path.join(scratch, "data"), "w", encoding="utf-8") as data:
            for index, row in enumerate(done, 1):
                values = [row["drift_per_km"], row["error_mean_ms"], row["error_max_abs_ms"]]
                data.write(f"{index} {row['line']} " + " ".join("?" if v is None else repr(float(v)) for v in values)
                           + "\n")
        # Every drive's manifest line under its bar while they fit, else numbers.
        tics = "xticlabels(2)" if len(done) <= 40 else "xtic(1)"
        script = (f"set terminal svg size 900,{340 * len(panels)} dynamic\n"
                  "set output 'plot.svg'\n"
                  "set datafile missing '?'\n"
                  f"set multiplot layout {len(panels)},1 title 'Re-simulated library: {len(done)} drive(s)'\n"
                  "set grid ytics\n"
                  "set key below\n"
                  "set offsets 0, 0, graph 0.1, graph 0.1\n"
                  "set xlabel 'drive (its manifest line)'\n"
                  f"set xrange [0.5:{len(done) + 0.5}]\n"
                  "set style fill solid 0.6\n"
                  "set boxwidth 0.6\n"
                  + "\n".join(panels).replace("XTICS", tics) + "\nunset multiplot\n")
        with open(os.path.join(scratch, "plot.gp"), "w", encoding="utf-8") as source:
            source.write(script)
        finished = subprocess.run([gnuplot, "plot.gp"], cwd=scratch, capture_output=True, text=True, check=False)
        if finished.returncode != 0 or not os.path.exists(os.path.join(scratch, "plot.svg")):
            return "gnuplot failed: " + (finished.stderr.strip() or f"exit status {finished.returncode}"), True
        shutil.copyfile(os.path.join(scratch, "plot.svg"), os.path.join(run, PLOT + ".tmp"))
        os.replace(os.path.join(run, PLOT + ".tmp"), os.path.join(run, PLOT))
    return None, False


def cell(value, digits=None):
    if value is None:
        return "-"
    if digits is not None and isinstance(value, float):
        return f"{value:.{digits}f}"
    return str(value).replace("|", "\\|")


def markdown(rows, build, counts, plot_problem):
    lines = ["# Re-simulated library", "",
             f"Build `{build['build'][:12]}` ({build['sim_version']}, module `{build['module']}`, "
             f"SHA-256 `{build['module_sha256'][:12]}`): {counts['drives']} drive(s), "
             f"{counts['ran']} re-simulated, {counts['reused']} reused from earlier runs, "
             f"{counts['failed']} failed, {counts['not run']} not run.", ""]
    if plot_problem:
        lines += [f"No plot: {plot_problem}.", ""]
    else:
        lines += [f"![Drift per km and synchronisation error per drive]({PLOT})", ""]
    lines += ["| line | drive | status | records | type 1 | type 2 | replayed | error mean (ms) | max abs error (ms) "
              "| drift (m) | drift (m/km) | supervision | wall (s) |",
              "|---:|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"]
    for row in rows:
        lines.append("| " + " | ".join([
            cell(row["line"]), "`" + cell(row["drive"]) + "`", row["status"], cell(row["records"]),
            cell(row["samples_type1"]), cell(row["samples_type2"]), cell(row["replayed"]),
            cell(row["error_mean_ms"], 2), cell(row["error_max_abs_ms"]), cell(row["drift_m"], 2),
            cell(row["drift_per_km"], 2), cell(row["supervision_messages"]), cell(row["wall_seconds"], 3)]) + " |")
    failures = [row for row in rows if row["status"] in ("failed", "not run")]
    if failures:
        lines += ["", "## Drives without a result", ""]
        lines += [f"- line {row['line']}, `{cell(row['drive'])}`: {row['reason']}" for row in failures]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--run", required=True, help="the run's folder (drives.tsv, jobs.out; the report goes here)")
    parser.add_argument("--results", required=True, help="the result store (RESULTS/KEY/BUILD)")
    parser.add_argument("--build", required=True, help="the build identity the results are kept under")
    parser.add_argument("--module", required=True, help="the module file of the build")
    parser.add_argument("--module-sha256", required=True, help="its SHA-256")
    parser.add_argument("--sim-version", required=True, help="positioning-sim --version")
    arguments = parser.parse_args()
    build = {"build": arguments.build, "module": arguments.module, "module_sha256": arguments.module_sha256,
             "sim_version": arguments.sim_version}
    try:
        rows = read_rows(arguments.run, arguments.results, arguments.build)
        counts = totals(rows)
        plot_problem, plot_failed = plot(rows, arguments.run)
        write_atomically(os.path.join(arguments.run, "report.csv"), csv_text(rows))
        write_atomically(os.path.join(arguments.run, "report.json"),
                         json.dumps({"build": build, "totals": counts, "drives": rows}, indent=2) + "\n")
        write_atomically(os.path.join(arguments.run, "report.md"), markdown(rows, build, counts, plot_problem))
    except (ReportError, OSError) as error:
        print(f"resim report: {error}", file=sys.stderr)
        return 1
    if plot_problem:
        print(f"resim report: no plot: {plot_problem}", file=sys.stderr)
        if plot_failed:
            return 1
    print(f"resim: report in {os.path.join(arguments.run, 'report.md')} (.csv, .json)", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
