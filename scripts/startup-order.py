#!/usr/bin/env python3
"""Writes the order in which kestrawind's functions first run, for the linker to lay them out.

Usage: startup-order.py PROGRAM [OUTPUT]. PROGRAM is a built kestrawind (static, with its symbols);
OUTPUT defaults to cmake/startup-order.txt. This plays a modem on a pseudo-terminal that answers
the dial with BUSY, runs the program once under valgrind's lackey tool, which names the address of
every block of code as it first runs, and writes one symbol a line, in the order of the first run.
The build hands the file to lld (--symbol-ordering-file): the code of the start, up to the first
byte on the line, then shares a few pages instead of being spread over the whole program, and each
page of code the start touches is a page fault it no longer takes. Needs valgrind and binutils' nm.
Run it again when the start changes much; a name the file lacks only goes unordered.
"""
import bisect
import collections
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import threading
import tty

program = os.path.abspath(sys.argv[1])
output = sys.argv[2] if len(sys.argv) > 2 else os.path.join(
    os.path.dirname(os.path.abspath(__file__)), "..", "cmake", "startup-order.txt")

master, slave = os.openpty()
tty.setraw(master)
stop = threading.Event()


def play_busy_modem():
    seen = b""
    while not stop.is_set():
        if select.select([master], [], [], 0.1)[0]:
            seen += os.read(master, 4096)
            if b"ATDT" in seen:
                os.write(master, b"\r\nBUSY\r\n")
                seen = b""


with tempfile.TemporaryDirectory() as folder:
    # The program reads the ini beside itself: run a copy of it in a folder of its own.
    copy = os.path.join(folder, "kestrawind")
    shutil.copy(program, copy)
    with open(os.path.join(folder, "kestrawind.ini"), "w") as ini:
        ini.write("[Provider]\nProtocol=TAP\nSmsCenterNumber=0800123456\n"
                  f"[Modem]\nPort=1\n[Ports]\n1={os.ttyname(slave)}\n")
    modem = threading.Thread(target=play_busy_modem)
    modem.start()
    trace = os.path.join(folder, "trace")
    # Without chasing, every jump into another function starts a block of its own, so that each
    # function run shows up.
    subprocess.run(["valgrind", "--tool=lackey", "--vex-guest-chase=no", "--trace-superblocks=yes",
                    f"--log-file={trace}", copy, "0612345678", "x"],
                   check=True, stdout=subprocess.DEVNULL)
    stop.set()
    modem.join()
    blocks = [int(line.split()[1], 16) for line in open(trace) if line.startswith("SB ")]

names_at = collections.defaultdict(list)
for line in subprocess.run(["nm", "--defined-only", program], capture_output=True, text=True,
                           check=True).stdout.splitlines():
    fields = line.split()
    if len(fields) == 3 and fields[1] in "tTwWiI":
        names_at[int(fields[0], 16)].append(fields[2])
starts = sorted(names_at)
all_names = {name for names in names_at.values() for name in names}

order, placed = [], set()
for block in blocks:
    at = bisect.bisect_right(starts, block) - 1
    if at < 0 or starts[at] in placed:
        continue
    placed.add(starts[at])
    for name in names_at[starts[at]]:
        order.append(name)
        # Valgrind's processor has no AVX-512, so the C library picks its AVX2 string functions
        # there; machines that have it run the EVEX and AVX-512 ones, which go right beside them.
        variant = re.match(r"(__\w+?)_(avx2|avx|sse42|sse2)(_\w+)?$", name)
        if variant:
            for isa in ("evex", "avx512", "evex512"):
                twin = f"{variant.group(1)}_{isa}{variant.group(3) or ''}"
                if twin in all_names:
                    order.append(twin)

with open(output, "w") as out:
    out.write("\n".join(order) + "\n")
print(f"{len(placed)} functions, {len(order)} names in the order of their first run: {output}")
