#!/usr/bin/env python3
"""Times how soon kestrawind puts the first byte of its dial on the line.

Usage: first-byte.py FOLDER [RUNS]. FOLDER holds a copy of kestrawind; this writes its
kestrawind.ini, plays a modem on a pseudo-terminal that answers BUSY, and prints the time from
just before the process is started to the moment "ATDT" can be read on the line, in ms.
"""
import os
import select
import statistics
import sys
import time
import tty

folder = sys.argv[1]
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 20

master, slave = os.openpty()
tty.setraw(master)
slave_path = os.ttyname(slave)
os.close(slave)
with open(os.path.join(folder, "kestrawind.ini"), "w") as ini:
    ini.write("[Provider]\nProtocol=TAP\nSmsCenterNumber=0800123456\n"
              f"[Modem]\nPort=1\n[Ports]\n1={slave_path}\n")


def read_some(timeout):
    ready, _, _ = select.select([master], [], [], timeout)
    if not ready:
        return b""
    try:
        return os.read(master, 4096)
    except OSError:  # nobody holds the slave open just now
        time.sleep(0.001)
        return b""


binary = os.path.join(folder, "kestrawind")
samples = []
for _ in range(runs):
    start = time.monotonic_ns()
    # posix_spawn starts the process with far less work in this script than Popen does.
    pid = os.posix_spawn(binary, [binary, "0612345678", "x"], os.environ,
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
        sys.exit("no dial seen on the line")
    samples.append((first - start) / 1e6)
    time.sleep(0.05)

samples.sort()
print(f"first ATDT byte after start: median {statistics.median(samples):.2f} ms, "
      f"min {samples[0]:.2f}, max {samples[-1]:.2f} ({runs} runs)")
