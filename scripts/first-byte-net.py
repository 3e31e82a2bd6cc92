#!/usr/bin/env python3
"""Times how soon kestrawind puts its first byte on a direct link to a centre, beside a minimal C
client that only connects and writes one byte.

Usage: first-byte-net.py FOLDER [RUNS]. FOLDER holds a copy of kestrawind; this writes its
kestrawind.ini (TAP, SmsCenterAddress on 127.0.0.1), builds the C client there with the same
static linking, listens on a free port of 127.0.0.1, and prints for each the time from just
before the process is started to the moment its first byte can be read, in ms, and the ratio of
the medians. After the first byte the program is stopped with SIGTERM (its TAP login would
otherwise probe a closed connection for ten seconds) and the connection is closed. On a busy
machine run it under "chrt -f 10" (as root), so that other processes' load falls on neither.
"""
import os
import signal
import socket
import statistics
import subprocess
import sys
import time

folder = os.path.abspath(sys.argv[1])
runs = int(sys.argv[2]) if len(sys.argv) > 2 else 20

CLIENT = r"""
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>
int main(int argc, char** argv) {
  struct sockaddr_in a = {0};
  a.sin_family = AF_INET;
  a.sin_port = htons((unsigned short)atoi(argv[1]));
  inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (connect(fd, (struct sockaddr*)&a, sizeof a) != 0) return 1;
  char c = '\r';
  return write(fd, &c, 1) == 1 ? 0 : 1;
}
"""
client = os.path.join(folder, "first-byte-client")
with open(client + ".c", "w") as source:
    source.write(CLIENT)
subprocess.run(["cc", "-O2", "-static", "-o", client, client + ".c"], check=True)

listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
listener.bind(("127.0.0.1", 0))
listener.listen(8)
port = listener.getsockname()[1]
with open(os.path.join(folder, "kestrawind.ini"), "w") as ini:
    ini.write(f"[Provider]\nProtocol=TAP\nSmsCenterAddress=127.0.0.1:{port}\n"
              "[Modem]\nConnectionTimeout=5\n")


def first_byte(argv):
    """Starts argv and gives the ms until its first byte arrives."""
    start = time.monotonic_ns()
    # posix_spawn starts the process with far less work in this script than Popen does.
    pid = os.posix_spawn(argv[0], argv, os.environ,
                         file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    listener.settimeout(5)
    connection, _ = listener.accept()
    connection.settimeout(5)
    if not connection.recv(1):
        sys.exit(f"no byte from {argv[0]}")
    first = time.monotonic_ns()
    try:
        os.kill(pid, signal.SIGTERM)
    except ProcessLookupError:  # the C client is done already
        pass
    connection.close()
    os.waitpid(pid, 0)
    time.sleep(0.05)
    return (first - start) / 1e6


programs = {
    "kestrawind": [os.path.join(folder, "kestrawind"), "0612345678", "x"],
    "C client": [client, str(port)],
}
samples = {name: [] for name in programs}
for _ in range(runs):
    # Taking turns, so that a change of the machine's load falls on both alike.
    for name, argv in programs.items():
        samples[name].append(first_byte(argv))

medians = {}
for name, times in samples.items():
    times.sort()
    medians[name] = statistics.median(times)
    print(f"{name:10} first byte after start: median {medians[name]:.2f} ms, "
          f"min {times[0]:.2f}, max {times[-1]:.2f} ({runs} runs)")
print(f"ratio of the medians: {medians['kestrawind'] / medians['C client']:.2f}")
