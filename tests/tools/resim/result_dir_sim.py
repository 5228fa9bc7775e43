#!/usr/bin/python3
"""Stands in for positioning-sim's --result-dir in the runner's tests while the
simulator has no such option: runs the real simulator (REAL_POSITIONING_SIM) with
-o, --summary-json, --path and --log into the folder and writes summary.json and
run.json as the result folder holds them. Everything else passes through unchanged."""
import hashlib
import json
import os
import socket
import subprocess
import sys
import time


def sha256_of(path):
    digest = hashlib.sha256()
    with open(path, "rb") as source:
        for block in iter(lambda: source.read(1 << 16), b""):
            digest.update(block)
    return digest.hexdigest()


def samples_by_type(path):
    counts = {}
    with open(path, encoding="utf-8") as samples:
        next(samples, None)
        for line in samples:
            sensor_type = line.split(",")[1]
            counts[sensor_type] = counts.get(sensor_type, 0) + 1
    return dict(sorted(counts.items()))


def dead_reckoning(raw):
    reckoning = raw.get("dead_reckoning")
    if not reckoning or not reckoning.get("truth"):
        return None
    distance = reckoning["travelled_m"]
    drift = reckoning["end_error_m"]
    return {"drift_m": drift, "drift_per_km": drift / (distance / 1000.0) if distance > 0 else None,
            "distance_m": distance}


def main(argv):
    real = os.environ["REAL_POSITIONING_SIM"]
    if "--result-dir" not in argv:
        os.execv(real, [real] + argv)
    at = argv.index("--result-dir")
    folder = argv[at + 1]
    rest = argv[:at] + argv[at + 2:]
    module = rest[rest.index("--module") + 1] if "--module" in rest else ""
    os.makedirs(folder, exist_ok=True)
    raw_path = os.path.join(folder, ".raw-summary.json")
    start = time.time()
    status = subprocess.run([real] + rest + ["-o", os.path.join(folder, "samples.csv"), "--summary-json", raw_path,
                                             "--path", os.path.join(folder, "path.csv"),
                                             "--log", os.path.join(folder, "log.txt")], check=False).returncode
    wall = time.time() - start
    if status == 0:
        with open(raw_path, encoding="utf-8") as raw_file:
            raw = json.load(raw_file)
        samples = os.path.join(folder, "samples.csv")
        summary = {"samples_sha256": sha256_of(samples), "samples_by_type": samples_by_type(samples),
                   "replayed": raw["replayed"], "records_fed": raw["records_fed"],
                   "error_mean": raw["error_mean"], "error_max_abs": raw["error_max_abs"],
                   "supervision_messages": raw["supervision_messages"], "dead_reckoning": dead_reckoning(raw)}
        with open(os.path.join(folder, "summary.json"), "w", encoding="utf-8") as out:
            json.dump(summary, out, indent=2)
        with open(os.path.join(folder, "run.json"), "w", encoding="utf-8") as out:
            json.dump({"wall_seconds": wall, "module": module, "module_sha256": sha256_of(module) if module else "",
                       "host": socket.gethostname(), "start": start, "exit_status": status}, out, indent=2)
    if os.path.exists(raw_path):
        os.remove(raw_path)
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
