#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "base/text.h"
#include "os/bounded_call.h"
#include "os/interrupt.h"
#include "os/locale_text-posix.h"
#include "os/serial_errors.h"
#include "os/socket.h"
#include "os/system_error.h"

namespace kw {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// One address to try.
struct Endpoint {
  sockaddr_storage address{};
  socklen_t size = 0;
};

/// The outcome of a name lookup.
struct Lookup {
  int result = 0;
  int system_error = 0;
  std::vector<Endpoint> found;
};

/// Milliseconds left until the deadline, never below 0.
int64_t LeftMs(Clock::time_point deadline) {
  return std::max<int64_t>(
      0, std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count());
}

/// The connection failure, with its cause.
Error Failure(Cause cause, const NetAddress& address, const std::wstring& reason) {
  return InvalidPort().WithCause(cause, address.Text(), reason);
}

/// What a failed connect(2) means to the caller.
Cause ConnectCause(int error) {
  switch (error) {
    case ECONNREFUSED:
    case ENETUNREACH:
    case EHOSTUNREACH:
    case EHOSTDOWN:
    case ENETDOWN:
    case ECONNRESET:
    case EADDRNOTAVAIL:
      return Cause::kRefused;
    case ETIMEDOUT:
      return Cause::kTimedOut;
    default:
      return Cause::kOther;
  }
}

/// Runs getaddrinfo into the lookup.
void Resolve(const std::string& host, const std::string& port, int flags, Lookup* lookup) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* list = nullptr;
  lookup->result = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
  lookup->system_error = errno;
  for (const addrinfo* at = lookup->result == 0 ? list : nullptr; at; at = at->ai_next) {
    if (at->ai_addrlen > sizeof(sockaddr_storage)) continue;
    Endpoint endpoint;
    std::copy_n(reinterpret_cast<const char*>(at->ai_addr), at->ai_addrlen,
                reinterpret_cast<char*>(&endpoint.address));
    endpoint.size = at->ai_addrlen;
    lookup->found.push_back(endpoint);
  }
  if (list) ::freeaddrinfo(list);
}

/// The addresses of the host: a numeric one at once, a name through a helper thread that gets
/// until the deadline. Raises the failure when there are none.
std::vector<Endpoint> Endpoints(const NetAddress& address, Clock::time_point deadline) {
  const std::string port = std::to_string(address.port);
  Lookup numeric;
  Resolve(address.host, port, AI_NUMERICHOST | AI_NUMERICSERV, &numeric);
  if (numeric.result == 0 && !numeric.found.empty()) return numeric.found;

  auto lookup = std::make_shared<Lookup>();
  const bool done = RunBounded(
      [lookup, host = address.host, port] {
        // The helper takes no signal: a request to stop must reach the thread that acts on it.
        sigset_t all;
        sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        Resolve(host, port, AI_NUMERICSERV, lookup.get());
      },
      deadline);
  if (!done) throw Failure(Cause::kTimedOut, address, L"no answer from the name service in time");
  if (lookup->result == 0 && !lookup->found.empty()) return lookup->found;
  if (lookup->result == EAI_SYSTEM) {
    throw Failure(Cause::kOther, address, SystemErrorText(lookup->system_error));
  }
  const bool unknown = lookup->result == EAI_NONAME || lookup->result == EAI_AGAIN ||
                       lookup->result == EAI_FAIL || lookup->result == 0
#ifdef EAI_NODATA
                       || lookup->result == EAI_NODATA
#endif
      ;
  LoadUserLocale();  // gai_strerror's text comes in the language of the locale
  throw Failure(unknown ? Cause::kNameUnknown : Cause::kOther, address,
                FromLocale(lookup->result == 0 ? "no address" : ::gai_strerror(lookup->result)));
}

/// Repeats a system call that a signal interrupted.
template <typename Call>
auto Retry(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace

Socket::Socket(Socket&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  if (this != &other) {
    Close(0);
    handle_ = std::exchange(other.handle_, kNone);
  }
  return *this;
}

Socket Socket::Connect(const NetAddress& address, int64_t limit_ms) {
  const Clock::time_point deadline = Clock::now() + milliseconds(std::max<int64_t>(0, limit_ms));
  int last_error = ETIMEDOUT;
  for (const Endpoint& endpoint : Endpoints(address, deadline)) {
    Socket socket(::socket(endpoint.address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC,
                           IPPROTO_TCP));
    if (!socket.is_open()) {
      last_error = errno;
      continue;
    }
    const int fd = static_cast<int>(socket.handle_);
    // A line's few bytes go out at once, not when a full segment has gathered.
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.size) == 0) {
      return socket;
    }
    if (errno != EINPROGRESS && errno != EINTR) {
      last_error = errno;
      continue;
    }
    if (!socket.Wait(true, LeftMs(deadline))) {
      throw Failure(Cause::kTimedOut, address, SystemErrorText(ETIMEDOUT));
    }
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
    if (error == 0) return socket;
    last_error = error;
  }
  throw Failure(ConnectCause(last_error), address, SystemErrorText(last_error));
}

bool Socket::Receive(std::string* into, size_t max) {
  char buffer[4096];
  size_t got = 0;
  while (got < max) {
    const ssize_t n = Retry([&] {
      return ::recv(static_cast<int>(handle_), buffer, std::min(sizeof buffer, max - got), 0);
    });
    if (n > 0) {
      into->append(buffer, static_cast<size_t>(n));
      got += static_cast<size_t>(n);
      continue;
    }
    return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  }
  return true;
}

ptrdiff_t Socket::Send(const char* data, size_t size) {
  // MSG_NOSIGNAL: a connection that the other side has closed gives EPIPE, not SIGPIPE.
  const ssize_t n =
      Retry([&] { return ::send(static_cast<int>(handle_), data, size, MSG_NOSIGNAL); });
  if (n >= 0) return n;
  return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
}

bool Socket::Wait(bool writable, int64_t ms, bool raise) const {
  const Clock::time_point deadline = Clock::now() + milliseconds(std::max<int64_t>(0, ms));
  for (;;) {
    pollfd p{static_cast<int>(handle_), static_cast<short>(writable ? POLLOUT : POLLIN), 0};
    const int n = ::poll(&p, 1, static_cast<int>(std::min<int64_t>(LeftMs(deadline), 1000000)));
    if (n > 0) return true;
    if (n == 0 || errno != EINTR) return false;
    // A signal cut the wait short: a request to stop ends it here.
    if (raise) RaiseIfInterrupted();
  }
}

void Socket::Close(int64_t linger_ms) noexcept {
  if (!is_open()) return;
  const int fd = static_cast<int>(handle_);
  handle_ = kNone;
  if (linger_ms > 0) {
    // Closing with unread bytes would reset the connection, and a reset can throw away what
    // the other side has not read yet: the end of our sending goes first, then what still comes
    // is read and dropped until the other side closes too.
    ::shutdown(fd, SHUT_WR);
    const Clock::time_point deadline = Clock::now() + milliseconds(linger_ms);
    char buffer[4096];
    for (int64_t left = linger_ms; left > 0; left = LeftMs(deadline)) {
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, static_cast<int>(left)) == 0) break;
      const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
      if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) break;
    }
  }
  ::close(fd);
}

}  // namespace kw
