#ifndef KW_TESTS_SYSTEM_LOG_H_
#define KW_TESTS_SYSTEM_LOG_H_

#include <sys/types.h>

#include <string>

namespace kw {

/// Gives a test a system logger to write to and the file where its records land: our own
/// rsyslogd when nobody listens on /dev/log, else the file of the logger that runs.
/// Test processes take turns on a machine-wide lock, so each one finds the machine as the
/// previous one left it: no logger of ours still running, no /dev/log of ours left behind.
class SystemLogCapture {
 public:
  /// How far the capture got; the reason says why when it is not ready.
  enum class State { kReady, kUnavailable, kBroken };

  /// Takes the lock, clears a logger left behind by a test that died, and finds or starts a
  /// logger. Never throws; see state() and reason().
  SystemLogCapture();
  /// Stops the logger it started, waits until /dev/log is gone and gives the lock back.
  ~SystemLogCapture();
  SystemLogCapture(const SystemLogCapture&) = delete;
  SystemLogCapture& operator=(const SystemLogCapture&) = delete;

  /// kReady when records can be read back; kUnavailable when this machine's logger writes to
  /// no file we know (a reason to skip); kBroken when starting our own logger failed.
  State state() const { return state_; }
  /// Why the capture is not ready; empty when it is.
  const std::string& reason() const { return reason_; }
  /// True when the lines come in our own format: "TAG SEVERITY MESSAGE", the tag with the pid.
  bool OwnFormat() const { return ownLogger_ != -1; }

  /// Polls the logger's file for up to timeout_ms for a line written since the capture began
  /// that holds the needle; stores it (without the line end) in *line.
  bool WaitForLine(const std::string& needle, int timeout_ms, std::string* line) const;

 private:
  bool TakeLock();
  void StopLeftover();
  void StartOwnLogger();
  void UseForeignLogger();
  void StopOwnLogger();

  State state_ = State::kBroken;
  std::string reason_;
  int lockFd_ = -1;
  pid_t ownLogger_ = -1;
  std::string folder_;   // our logger's config and output; empty when we started none
  std::string file_;     // where the records are read from
  long long start_ = 0;  // the file's size when the capture began
};

}  // namespace kw

#endif  // KW_TESTS_SYSTEM_LOG_H_
