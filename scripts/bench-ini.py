#!/usr/bin/env python3
"""Times whole runs of kestrawind against big ini files: the settings and the [Ports] entry stand
at the end, behind filler, so that each run reads every line of the file.

Usage: bench-ini.py PROGRAM [RUNS]. PROGRAM is a kestrawind binary; it is copied into a folder
of its own beside each ini. A run ends with error 520 (its port names no device), right after
the settings and the [Ports] lookup are read. Prints the median wall time of each file and checks
the targets: 200,000 lines within 3 s, and within 15 times the time of 20,000 lines.
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

program = sys.argv[1]
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 5
tail = ("[Provider]\nProtocol=TAP\nSmsCenterNumber=0800123456\n"
        "[Modem]\nPort=1\n[Ports]\n1=/dev/kestrawind-bench-none\n")
expected = b"Error: [520] "


def lines_ini(count):
    """count lines in all: sections of one header and nine keys, then the settings."""
    body = []
    while len(body) < count - tail.count("\n"):
        body.append(f"[Filler{len(body)}]")
        body.extend(f"Key{k}=some value {k}" for k in range(9))
    return "\n".join(body[:count - tail.count("\n")]) + "\n" + tail


def sections_ini(count):
    """count sections of one key each, then the settings."""
    return "".join(f"[Filler{i}]\nKey=some value\n" for i in range(count)) + tail


def median_run(folder):
    binary = os.path.join(folder, "kestrawind")
    times = []
    for _ in range(runs):
        start = time.monotonic()
        out = subprocess.run([binary, "0612345678", "x"], stdout=subprocess.PIPE).stdout
        times.append(time.monotonic() - start)
        if not out.startswith(expected):
            sys.exit(f"unexpected output: {out!r}")
    return statistics.median(times)


cases = [("20,000 lines", lines_ini(20000)), ("200,000 lines", lines_ini(200000)),
         ("40,000 sections", sections_ini(40000)), ("100,000 sections", sections_ini(100000))]
work = tempfile.mkdtemp(prefix="kestrawind-bench-ini.")
try:
    results = {}
    for name, text in cases:
        folder = os.path.join(work, name.replace(",", "").replace(" ", "-"))
        os.mkdir(folder)
        shutil.copy(program, os.path.join(folder, "kestrawind"))
        with open(os.path.join(folder, "kestrawind.ini"), "w") as ini:
            ini.write(text)
        results[name] = median_run(folder)
        print(f"ini of {name} ({len(text) / 1e6:.1f} MB): run in {results[name] * 1000:.1f} ms "
              f"(median of {runs})")
    big, small = results["200,000 lines"], results["20,000 lines"]
    print(f"200,000 lines: {big:.3f} s (target under 3 s), {big / small:.1f}x the time of "
          f"20,000 lines (target under 15x): {'ok' if big < 3 and big / small < 15 else 'MISSED'}")
finally:
    shutil.rmtree(work)
