#!/usr/bin/env python3
"""Writes city-drive.csv: a three-minute town drive as a vehicle logger exports it.

Made from a model, not recorded: a car pulls out of a parking space, drives through
town (bends, two junctions, a traffic light), and reverses into a space at the end.
The logger writes 20 rows a second:

  ts_us           microseconds since the unit booted (rows 50 ms apart, +-1.5 ms jitter)
  yaw_rate_rad_s  the gyroscope, counter-clockwise (left) positive, with a bias of
                  0.02 deg/s and noise
  speed_kmh       wheel speed, never negative, with a tyre 0.4 % larger than nominal
  gear            P, D or R
  ref_lat_deg, ref_lon_deg, ref_heading_deg
                  the reference pose (an RTK-grade receiver), every other row: degrees,
                  heading clockwise from north, a few centimetres of noise

The model integrates at 1 kHz. Seeded: the file is the same on every run.
"""
import math
import os
import random

STEP = 0.001            # s, the model's step
ROW = 0.05              # s, the logger's period
BOOT = 412.337          # s since boot at the first row
LAT0, LON0 = 48.137154, 11.576124
HEADING0 = 73.0         # compass degrees
EARTH = 6371008.8
BIAS = math.radians(0.02)
TYRE = 1.004

# (seconds, target speed km/h (negative: reversing), total turn in degrees, right positive, gear)
PLAN = [
    (6, 0, 0, "P"),
    (4, 8, -25, "D"),        # pull out of the space
    (22, 32, 25, "D"),       # straighten, along the street
    (8, 14, 90, "D"),        # right at the junction
    (18, 42, 0, "D"),
    (12, 38, -18, "D"),      # a long bend
    (7, 0, 0, "D"),          # brake for the light
    (10, 0, 0, "D"),         # red
    (20, 46, 0, "D"),
    (9, 16, -90, "D"),       # left at the next junction
    (24, 36, 6, "D"),
    (8, 8, 35, "D"),         # slow, toward the space
    (3, 0, 0, "D"),
    (9, -5, 55, "R"),        # reverse in, steering
    (5, 0, 0, "R"),
    (5, 0, 0, "P"),
]


def main():
    random.seed(20261123)
    rows = ["ts_us,yaw_rate_rad_s,speed_kmh,gear,ref_lat_deg,ref_lon_deg,ref_heading_deg"]
    x = y = 0.0
    heading = HEADING0
    speed = 0.0
    t = 0.0
    next_row = 0.0
    row = 0
    for seconds, target_kmh, turn, gear in PLAN:
        steps = int(round(seconds / STEP))
        target = target_kmh / 3.6
        for i in range(steps):
            # Speed: toward the target, 1.8 m/s^2 up, 2.5 down.
            gap = target - speed
            limit = (1.8 if abs(target) > abs(speed) else 2.5) * STEP
            speed += max(-limit, min(limit, gap))
            # Turning: a raised cosine over the phase, so that the yaw rate rises and
            # falls as a steering wheel turns; none while standing.
            share = (1 - math.cos(2 * math.pi * (i + 0.5) / steps)) / seconds
            rate = turn * share if abs(speed) > 0.3 else 0.0  # deg/s, right positive
            if t + 1e-9 >= next_row:
                rows.append(log_row(t, rate, speed, gear, x, y, heading, row))
                row += 1
                next_row += ROW
            along = math.radians(heading + rate * STEP / 2)
            x += speed * STEP * math.sin(along)
            y += speed * STEP * math.cos(along)
            heading = (heading + rate * STEP) % 360
            t += STEP
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "city-drive.csv")
    with open(out, "w") as f:
        f.write("\n".join(rows) + "\n")


def log_row(t, rate, speed, gear, x, y, heading, row):
    jitter = random.uniform(-1500, 1500) if row > 0 else 0
    ts = int(round((BOOT + t) * 1e6 + jitter))
    gyro = -math.radians(rate) + BIAS + random.gauss(0, 0.002)
    wheel = max(0.0, abs(speed) * 3.6 * TYRE + random.gauss(0, 0.03)) if abs(speed) > 0.01 else 0.0
    text = "%d,%.5f,%.2f,%s" % (ts, gyro, wheel, gear)
    if row % 2 == 0:
        nx = x + random.gauss(0, 0.02)
        ny = y + random.gauss(0, 0.02)
        lat = LAT0 + math.degrees(ny / EARTH)
        lon = LON0 + math.degrees(nx / (EARTH * math.cos(math.radians(LAT0))))
        text += ",%.9f,%.9f,%.2f" % (lat, lon, (heading + random.gauss(0, 0.05)) % 360)
    else:
        text += ",,,"
    return text


if __name__ == "__main__":
    main()
