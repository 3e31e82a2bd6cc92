#ifndef KW_OS_BOUNDED_WRITE_POSIX_H_
#define KW_OS_BOUNDED_WRITE_POSIX_H_

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>

#include "os/output_budget.h"

namespace kw {

/// How a descriptor takes output, which decides how it is written without blocking for long.
enum class Sink {
  kFile,    ///< a file or a block device: takes everything at once
  kSocket,  ///< a socket: sent with MSG_DONTWAIT, which leaves the shared description alone
  kStream,  ///< a pipe, FIFO or terminal: PIPE_BUF bytes at a time, once poll(2) finds room
};

/// The kind of sink behind a descriptor.
Sink SinkOf(int fd);

/// The monotonic clock in milliseconds.
int64_t MonotonicMs();

/// The calls that a bounded write makes: the real ones unless a test puts in its own, with a
/// clock of its own.
struct WriteCalls {
  std::function<int64_t()> now_ms = MonotonicMs;
  std::function<int(pollfd* fds, nfds_t count, int timeout_ms)> poll = ::poll;
  std::function<ssize_t(int fd, const void* data, size_t size)> write = ::write;
  std::function<ssize_t(int fd, const void* data, size_t size, int flags)> send = ::send;
};

/// Writes the bytes to the descriptor (a datagram socket takes them as one record), waiting for
/// room only as long as the budget allows; a loss for want of time is noted in the budget, one
/// for any other reason (a reader that went away) is not. True when all of them went.
bool BoundedWrite(int fd, Sink sink, const std::string& bytes, OutputBudget& budget,
                  const WriteCalls& calls = WriteCalls());

}  // namespace kw

#endif  // KW_OS_BOUNDED_WRITE_POSIX_H_
