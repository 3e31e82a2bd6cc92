#ifndef KW_TESTS_E2E_HARNESS_H_
#define KW_TESTS_E2E_HARNESS_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kw::e2e {

/// The centre number in every ini that PortIni writes.
constexpr char kCentre[] = "0800123456";
/// kestrawind's line for a port that it can't open.
constexpr char kPortTaken[] =
    "Error: [520] Error opening com port. Make sure no other application is using this port.\r\n";

/// What one run of the program gave: its output, its exit code or minus its signal, how many
/// milliseconds it took, and its process id.
struct RunResult {
  std::string out, err;
  int status = -1;
  long long ms = 0;
  pid_t pid = -1;
};

/// What a test may add to a run.
struct RunOptions {
  /// The folder's program of that name, or one by its absolute path run natively (a shell).
  std::string program = "kestrawind";
  /// Entries ("NAME=value") put over the test's environment.
  std::vector<std::string> env;
  /// Runs in the child right before exec: async-signal-safe calls only.
  void (*in_child)() = nullptr;
  /// Runs in the test once the program has started, with its pid.
  std::function<void(pid_t)> started = nullptr;
  /// A descriptor for standard output in place of a file (out is then "").
  int out = -1;
};

/// A fresh folder under /tmp with copies of kestrawind and kestrawind-send in it (the Windows
/// programs under Wine) and, given simulator arguments, a kestrawind-sim on a pty (or, with
/// --listen, on a TCP address) that writes transcript.txt there, and a kestrawind.ini that sends
/// by TAP through the pty; given a name, the folder is one of that name inside the fresh one. The
/// destructor stops the simulator and removes the folder.
class Rig {
 public:
  explicit Rig(const std::vector<std::string>& sim_args = {}, const std::string& name = "");
  ~Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  /// The path of a file in the folder.
  std::string File(const std::string& name) const { return dir_ + "/" + name; }
  /// The simulator's pty, or its address when it listens on TCP.
  const std::string& pty() const { return pty_; }
  /// Writes kestrawind.ini with exactly these bytes.
  void WriteIni(const std::string& bytes) const;
  /// Runs the program in the folder (under Wine with exactly the raw line that the native
  /// program rebuilds from its arguments), stdin from /dev/null; kills it after 60 s.
  RunResult Run(const std::vector<std::string>& args, const RunOptions& options = {}) const;
  /// The transcript once it holds the text count times, or as it is after 10 s.
  std::string Transcript(const std::string& text = " -- close\n", int count = 1) const;

 private:
  std::string root_, dir_, pty_;
  pid_t sim_ = -1;
};

/// An ini whose port 1 is the [Ports] entry, with more lines in [Provider].
std::string PortIni(const std::string& protocol, const std::string& entry,
                    const std::string& provider = "");
/// What the program sent to the simulator, as the transcript shows it, joined; a run of TAP
/// probes counts as one.
std::string Sent(const std::string& transcript);
/// A path as the program names it: under Wine the same file on drive Z:.
std::string ProgramPath(std::string path);
/// Whether the runs go to the Windows program under Wine (KW_WINE_PROGRAM and KW_WINE_LAUNCHER).
bool UnderWine();
/// The whole file, or "".
std::string ReadFile(const std::string& path);
/// How many times the text stands in the string.
int Count(const std::string& text, const std::string& what);
/// Makes a child nobody when the tests run as root (for RunOptions::in_child).
void AsNobody();
/// kestrawind's line for a message that it sent.
std::string SuccessLine(const std::string& text, const std::string& recipient = "0612345678");
/// Milliseconds from then to now.
long long MsSince(std::chrono::steady_clock::time_point then);

/// A system logger of our own for one test: rsyslogd on /dev/log writing to a file, one test
/// process of the machine at a time.
class SystemLog {
 public:
  /// kStuck: a logger that runs but reads nothing, a socket on /dev/log with a full queue.
  enum Kind { kRsyslog, kStuck };
  explicit SystemLog(Kind kind = kRsyslog);
  ~SystemLog();
  /// Why there is no logger (not root, no rsyslogd, another logger listens), or "".
  const std::string& problem() const { return problem_; }
  /// Polls up to 5 s for a record that holds the text: the record, or "".
  std::string WaitFor(const std::string& text) const;

 private:
  int lock_ = -1, stuck_ = -1;
  pid_t pid_ = -1;
  std::string dir_, problem_;
};

/// A port of 127.0.0.1 that nobody listens on just now.
int FreePort();

/// A listener on 127.0.0.1 whose backlog is full: a connection to it is never answered.
struct FullListener {
  FullListener();
  ~FullListener();
  std::vector<int> fds;  ///< the listener, then connections that fill its backlog
  int port = 0;
};

/// ser2net (Debian's package) in front of the rig's pty, on a free port of 127.0.0.1, raw or in
/// telnet(rfc2217) mode, with the device's own settings 19200 baud and 2 stop bits; stopped when
/// it goes, and the constructor throws if it doesn't listen. It opens the device when a client
/// connects and closes it when the client goes.
struct Ser2net {
  Ser2net(const Rig& rig, bool rfc2217);
  ~Ser2net();
  pid_t pid = -1;
  std::string entry;  ///< the [Ports] entry that reaches it
};

}  // namespace kw::e2e

#endif  // KW_TESTS_E2E_HARNESS_H_
