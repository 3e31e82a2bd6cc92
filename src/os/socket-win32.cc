// Winsock (winsock2.h brings windows.h): WSAStartup on the first use, non-blocking sockets
// waited on with select().
#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include "os/bounded_call.h"
#include "os/interrupt.h"
#include "os/serial_errors.h"
#include "os/socket.h"
#include "os/system_error.h"

namespace kw {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// The longest piece of a wait: how soon a request to stop is seen, which wakes no select().
constexpr int64_t kInterruptLookMs = 100;

/// One address to try.
struct Endpoint {
  sockaddr_storage address{};
  int size = 0;
};

/// The outcome of a name lookup.
struct Lookup {
  int result = 0;
  std::vector<Endpoint> found;
};

/// Starts Winsock once per process; the system ends it with the process.
int StartError() {
  static const int error = [] {
    WSADATA data;
    return ::WSAStartup(MAKEWORD(2, 2), &data);
  }();
  return error;
}

int64_t LeftMs(Clock::time_point deadline) {
  return std::max<int64_t>(
      0, std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count());
}

Error Failure(Cause cause, const NetAddress& address, const std::wstring& reason) {
  return InvalidPort().WithCause(cause, address.Text(), reason);
}

Cause ConnectCause(int error) {
  switch (error) {
    case WSAECONNREFUSED:
    case WSAENETUNREACH:
    case WSAEHOSTUNREACH:
    case WSAEHOSTDOWN:
    case WSAENETDOWN:
    case WSAECONNRESET:
    case WSAEADDRNOTAVAIL:
      return Cause::kRefused;
    case WSAETIMEDOUT:
      return Cause::kTimedOut;
    default:
      return Cause::kOther;
  }
}

void Resolve(const std::string& host, const std::string& port, int flags, Lookup* lookup) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* list = nullptr;
  lookup->result = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
  for (const addrinfo* at = lookup->result == 0 ? list : nullptr; at; at = at->ai_next) {
    if (at->ai_addrlen > sizeof(sockaddr_storage)) continue;
    Endpoint endpoint;
    std::copy_n(reinterpret_cast<const char*>(at->ai_addr), at->ai_addrlen,
                reinterpret_cast<char*>(&endpoint.address));
    endpoint.size = static_cast<int>(at->ai_addrlen);
    lookup->found.push_back(endpoint);
  }
  if (list) ::freeaddrinfo(list);
}

std::vector<Endpoint> Endpoints(const NetAddress& address, Clock::time_point deadline) {
  const std::string port = std::to_string(address.port);
  Lookup numeric;
  Resolve(address.host, port, AI_NUMERICHOST | AI_NUMERICSERV, &numeric);
  if (numeric.result == 0 && !numeric.found.empty()) return numeric.found;

  auto lookup = std::make_shared<Lookup>();
  const bool done = RunBounded(
      [lookup, host = address.host, port] { Resolve(host, port, AI_NUMERICSERV, lookup.get()); },
      deadline);
  if (!done) throw Failure(Cause::kTimedOut, address, L"no answer from the name service in time");
  if (lookup->result == 0 && !lookup->found.empty()) return lookup->found;
  const bool unknown = lookup->result == WSAHOST_NOT_FOUND || lookup->result == WSATRY_AGAIN ||
                       lookup->result == WSANO_RECOVERY || lookup->result == WSANO_DATA ||
                       lookup->result == 0;
  throw Failure(unknown ? Cause::kNameUnknown : Cause::kOther, address,
                lookup->result == 0 ? L"no address" : SystemErrorText(lookup->result));
}

/// Waits up to ms for the socket: writable (or failed to connect) or readable.
int Select(SOCKET socket, bool writable, int64_t ms) {
  fd_set ready;
  fd_set failed;
  FD_ZERO(&ready);
  FD_ZERO(&failed);
  FD_SET(socket, &ready);
  FD_SET(socket, &failed);
  timeval timeout{static_cast<long>(ms / 1000), static_cast<long>(ms % 1000) * 1000};
  // A connection that fails shows in the exception set, not as writable.
  return ::select(0, writable ? nullptr : &ready, writable ? &ready : nullptr, &failed, &timeout);
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
  if (const int error = StartError()) throw Failure(Cause::kOther, address, SystemErrorText(error));
  int last_error = WSAETIMEDOUT;
  for (const Endpoint& endpoint : Endpoints(address, deadline)) {
    const SOCKET raw = ::WSASocketW(endpoint.address.ss_family, SOCK_STREAM, IPPROTO_TCP, nullptr,
                                    0, WSA_FLAG_NO_HANDLE_INHERIT);
    if (raw == INVALID_SOCKET) {
      last_error = ::WSAGetLastError();
      continue;
    }
    Socket socket(static_cast<intptr_t>(raw));
    u_long non_blocking = 1;
    ::ioctlsocket(raw, FIONBIO, &non_blocking);
    // A line's few bytes go out at once, not when a full segment has gathered.
    const BOOL on = TRUE;
    ::setsockopt(raw, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    if (::connect(raw, reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.size) == 0) {
      return socket;
    }
    if (::WSAGetLastError() != WSAEWOULDBLOCK) {
      last_error = ::WSAGetLastError();
      continue;
    }
    if (!socket.Wait(true, LeftMs(deadline))) {
      throw Failure(Cause::kTimedOut, address, SystemErrorText(WSAETIMEDOUT));
    }
    int error = 0;
    int size = sizeof error;
    if (::getsockopt(raw, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) != 0) {
      error = ::WSAGetLastError();
    }
    if (error == 0) return socket;
    last_error = error;
  }
  throw Failure(ConnectCause(last_error), address, SystemErrorText(last_error));
}

bool Socket::Receive(std::string* into, size_t max) {
  char buffer[4096];
  size_t got = 0;
  while (got < max) {
    const int want = static_cast<int>(std::min(sizeof buffer, max - got));
    const int n = ::recv(static_cast<SOCKET>(handle_), buffer, want, 0);
    if (n > 0) {
      into->append(buffer, static_cast<size_t>(n));
      got += static_cast<size_t>(n);
      continue;
    }
    return n == SOCKET_ERROR && ::WSAGetLastError() == WSAEWOULDBLOCK;
  }
  return true;
}

ptrdiff_t Socket::Send(const char* data, size_t size) {
  const int want = static_cast<int>(std::min<size_t>(size, 1 << 20));
  const int n = ::send(static_cast<SOCKET>(handle_), data, want, 0);
  if (n >= 0) return n;
  return ::WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

bool Socket::Wait(bool writable, int64_t ms, bool raise) const {
  const Clock::time_point deadline = Clock::now() + milliseconds(std::max<int64_t>(0, ms));
  for (;;) {
    const int64_t left = LeftMs(deadline);
    const int n = Select(static_cast<SOCKET>(handle_), writable, std::min(left, kInterruptLookMs));
    if (n != 0) return n > 0;
    if (left <= kInterruptLookMs) return false;
    // Console control events wake no select(): a request to stop is looked for in between.
    if (raise) RaiseIfInterrupted();
  }
}

void Socket::Close(int64_t linger_ms) noexcept {
  if (!is_open()) return;
  const SOCKET socket = static_cast<SOCKET>(handle_);
  handle_ = kNone;
  if (linger_ms > 0) {
    // Closing with unread bytes would reset the connection and could throw away what the other
    // side has not read yet: the end of our sending goes first, then what still comes is read
    // and dropped until the other side closes too.
    ::shutdown(socket, SD_SEND);
    const Clock::time_point deadline = Clock::now() + milliseconds(linger_ms);
    char buffer[4096];
    for (int64_t left = linger_ms; left > 0; left = LeftMs(deadline)) {
      if (Select(socket, false, left) <= 0) break;
      const int n = ::recv(socket, buffer, sizeof buffer, 0);
      if (n == 0 || (n == SOCKET_ERROR && ::WSAGetLastError() != WSAEWOULDBLOCK)) break;
    }
  }
  ::closesocket(socket);
}

}  // namespace kw
