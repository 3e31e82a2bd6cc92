#!/usr/bin/env python3
"""Times how soon kestrawind puts the first byte of its dial on the line, beside a minimal program.

Usage: first-byte.py FOLDER [RUNS]. FOLDER holds a copy of kestrawind; this writes its
kestrawind.ini, compiles first-byte-minimal.c (beside this script) into FOLDER with the system's
cc, plays a modem on a pseudo-terminal that answers BUSY, and measures for each program the time
from just before the process is started to the moment "ATDT" can be read on the line, in ms. The
two programs take turns, RUNS times each, so that both meet the machine in the same state; the
ratio of their medians is what kestrawind costs beyond opening the port and writing.
"""
import os
import select
import statistics
import subprocess
import sys
import time
import tty

folder = sys.argv[1]
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 20

master, slave = os.openpty()
tty.setraw(master)
slave_path = os.ttyname(slave)
# The slave stays open here for the whole run. While no process holds it, the master reads as
# EIO, and the reader below could only wait for the program to open it in steps of a millisecond,
# which hid every difference smaller than that.
with open(os.path.join(folder, "kestrawind.ini"), "w") as ini:
    ini.write("[Provider]\nProtocol=TAP\nSmsCenterNumber=0800123456\n"
              f"[Modem]\nPort=1\n[Ports]\n1={slave_path}\n")
minimal = os.path.join(folder, "first-byte-minimal")
# Linked statically, as kestrawind is, so that neither pays for loading shared libraries.
subprocess.run([os.environ.get("CC", "cc"), "-O2", "-static", "-o", minimal,
                os.path.join(os.path.dirname(os.path.abspath(__file__)), "first-byte-minimal.c")],
               check=True)


def read_some(timeout):
    ready, _, _ = select.select([master], [], [], timeout)
    if not ready:
        return b""
    try:
        return os.read(master, 4096)
    except OSError:  # nobody holds the slave open (it is held above, so only if that failed)
        time.sleep(0.001)
        return b""


def first_byte(argv):
    """One run: ms from the start of the process to "ATDT" on the line."""
    start = time.monotonic_ns()
    # posix_spawn starts the process with far less work in this script than Popen does.
    pid = os.posix_spawn(argv[0], argv, os.environ,
                         file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    seen = b""
    deadline = time.monotonic() + 5
    while b"ATDT" not in seen and time.monotonic() < deadline:
        seen += read_some(0.5)
    first = time.monotonic_ns()
    os.write(master, b"\r\nBUSY\r\n")
    os.waitpid(pid, 0)
    while read_some(0.05):
        pass
    if b"ATDT" not in seen:
        sys.exit(f"no dial seen on the line from {argv[0]}")
    time.sleep(0.05)
    return (first - start) / 1e6


programs = {"kestrawind": [os.path.join(folder, "kestrawind"), "0612345678", "x"],
            "minimal C program": [minimal, slave_path]}
samples = {name: [] for name in programs}
for _ in range(runs):
    for name, argv in programs.items():
        samples[name].append(first_byte(argv))

for name, times in samples.items():
    times.sort()
    print(f"first ATDT byte after start, {name}: median {statistics.median(times):.2f} ms, "
          f"min {times[0]:.2f}, max {times[-1]:.2f} ({runs} runs)")
ratio = statistics.median(samples["kestrawind"]) / statistics.median(samples["minimal C program"])
print(f"kestrawind / minimal C program: {ratio:.2f}x (medians)")
