#ifndef KW_SIM_PTY_IO_H_
#define KW_SIM_PTY_IO_H_

#include <cstdint>
#include <string>

namespace kw::sim {

/// Source of the simulator's own errors.
inline constexpr wchar_t kSimSource[] = L"kestrawind-sim";

/// Owns one file descriptor and closes it when it goes.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd();
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  /// Hands the descriptor over without closing it.
  int release();

 private:
  int fd_ = -1;
};

/// Raises the failure of a system call, with errno's text.
[[noreturn]] void ThrowSystem(const std::string& what);

/// CLOCK_MONOTONIC in nanoseconds.
int64_t MonotonicNs();

/// A new pseudo-terminal: its master and the path of its slave.
struct RawPty {
  UniqueFd master;
  std::string slave_path;
};

/// Opens a pseudo-terminal with a raw, non-blocking master; raises kw::Error.
RawPty OpenRawPty();

/// The line settings of a terminal as "9600 8N1" (its output speed, data bits, parity N, E or O,
/// stop bits), or "?" when they can't be read.
std::string LineSettings(int fd);

/// An inotify descriptor (non-blocking) that reports every open and close of the node at path.
UniqueFd WatchOpensAndCloses(const std::string& path);

/// Makes link_path a symlink to target, replacing a symlink that stands there; raises kw::Error,
/// also when link_path is something else.
void MakeLink(const std::string& target, const std::string& link_path);

/// Removes the symlink at link_path while it still names target.
void RemoveLinkTo(const std::string& target, const std::string& link_path);

}  // namespace kw::sim

#endif  // KW_SIM_PTY_IO_H_
