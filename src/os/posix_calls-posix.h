#ifndef KW_OS_POSIX_CALLS_POSIX_H_
#define KW_OS_POSIX_CALLS_POSIX_H_

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace kw {

/// The system calls that a POSIX port makes, each one replaceable: the real calls unless a test
/// puts its own in for a port's life, to make a device fail as a pty can't (EIO from a read of a
/// pulled-out adapter, a refused write).
struct PosixCalls {
  std::function<int(const char* path, int flags)> open = ::open;
  std::function<int(int fd)> close = ::close;
  std::function<ssize_t(int fd, void* buffer, size_t size)> read = ::read;
  std::function<ssize_t(int fd, const void* data, size_t size)> write = ::write;
  std::function<int(pollfd* fds, nfds_t count, int timeout_ms)> poll = ::poll;
  std::function<int(int fd, unsigned long request, void* argument)> ioctl = ::ioctl;
  std::function<int(int fd, termios* line)> tcgetattr = ::tcgetattr;
  std::function<int(int fd, int when, const termios* line)> tcsetattr = ::tcsetattr;
  std::function<int(int fd, int queue)> tcflush = ::tcflush;
  std::function<int(int fd, int operation)> flock = ::flock;
  std::function<int(int fd)> isatty = ::isatty;
};

/// Repeats a system call that a signal interrupted.
template <typename Call>
auto RetryOnEintr(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace kw

#endif  // KW_OS_POSIX_CALLS_POSIX_H_
