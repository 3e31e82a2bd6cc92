#ifndef KW_OS_SOCKET_H_
#define KW_OS_SOCKET_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "os/net_address.h"

namespace kw {

/// One TCP connection through the platform's sockets, non-blocking; closed when it goes.
class Socket {
 public:
  Socket() = default;
  ~Socket() { Close(0); }
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Finds the host and connects, all within limit_ms (0 or less: at once or never). A name is
  /// looked up on a helper thread that is left to finish alone if it takes too long. Raises the
  /// serial error InvalidPort with the cause (kNameUnknown, kRefused, kTimedOut or kOther),
  /// address.Text() as its subject and the system's reason; raises the interruption error when
  /// a request to stop comes meanwhile.
  static Socket Connect(const NetAddress& address, int64_t limit_ms);

  bool is_open() const { return handle_ != kNone; }
  /// Appends at most max bytes of what has come; false once the other side has closed or the
  /// connection is broken (what came before that is appended first).
  bool Receive(std::string* into, size_t max);
  /// Hands bytes to the system: the count taken, 0 when it has no room now, -1 when the
  /// connection is broken.
  ptrdiff_t Send(const char* data, size_t size);
  /// Waits up to ms until the socket can be written (writable) or has something to read (or is
  /// broken); false when the time ran out. With raise, a request to stop raises the interruption
  /// error at once; without, it only ends the wait early.
  bool Wait(bool writable, int64_t ms, bool raise = true) const;
  /// Ends the sending side, throws away what still comes until the other side closes too or
  /// linger_ms pass, and closes. Never raises.
  void Close(int64_t linger_ms) noexcept;
  /// The system's socket, for a runtime's waits (a descriptor on POSIX, a SOCKET on Windows).
  intptr_t handle() const { return handle_; }

 private:
  static constexpr intptr_t kNone = -1;
  explicit Socket(intptr_t handle) : handle_(handle) {}
  intptr_t handle_ = kNone;
};

}  // namespace kw

#endif  // KW_OS_SOCKET_H_
