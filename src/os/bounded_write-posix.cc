#include "os/bounded_write-posix.h"

#include <limits.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

namespace kw {

// Standard output is a description that the caller shares (the shell's pipe, its terminal), so
// it is never switched to O_NONBLOCK, which would change it for everybody; nor is it reopened
// through /proc, which would give a file its own offset and break ">>" and "( ...; ...) >".
// Instead each kind gets a write that can't block for long on its own:
// - a file takes what it is given at once;
// - a socket (systemd's journal stream) takes send(2) with MSG_DONTWAIT, which is per call;
// - a pipe or FIFO is written only after poll(2) finds room, at most PIPE_BUF bytes a time:
//   poll reports room once a whole page is free, so such a write never waits. (Another writer
//   on the same pipe could take the room first; the shell's own processes are not writing
//   while we run.) A terminal gets the same; it takes what it has room for and waits for the
//   rest only as long as a line of output takes to drain.
// The waiting happens in poll, whose limit is what is left of the run's budget, and which a
// signal cuts short (SA_RESTART restarts a blocked write, never a poll).

Sink SinkOf(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return Sink::kStream;
  if (S_ISREG(info.st_mode) || S_ISBLK(info.st_mode)) return Sink::kFile;
  if (S_ISSOCK(info.st_mode)) return Sink::kSocket;
  return Sink::kStream;
}

int64_t MonotonicMs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool BoundedWrite(int fd, Sink sink, const std::string& bytes, OutputBudget& budget,
                  const WriteCalls& calls) {
  size_t done = 0;
  bool room = sink != Sink::kStream;  // a stream is written only once poll has found room
  while (done < bytes.size()) {
    if (!room) {
      pollfd ready{fd, POLLOUT, 0};
      const int64_t start = calls.now_ms();
      const int polled = calls.poll(&ready, 1, budget.WaitLimitMs());
      budget.Spend(calls.now_ms() - start);
      if (polled < 0 && errno == EINTR) continue;  // looks again, with the stop request in mind
      if (polled == 0) budget.NoteDropped();
      if (polled <= 0) return false;
    }
    const char* data = bytes.data() + done;
    const size_t left = bytes.size() - done;
    const ssize_t n =
        sink == Sink::kSocket
            ? calls.send(fd, data, left, MSG_DONTWAIT | MSG_NOSIGNAL)
            : calls.write(fd, data,
                          sink == Sink::kStream ? std::min<size_t>(left, PIPE_BUF) : left);
    if (n > 0) {
      done += static_cast<size_t>(n);
      room = sink != Sink::kStream;
    } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      room = false;  // full, or a non-blocking description handed down: wait for the reader
    } else if (n == 0 || errno != EINTR) {
      return false;  // the reader went away (EPIPE), or the descriptor is no good
    }
  }
  return true;
}

}  // namespace kw
