#ifndef KW_TESTS_E2E_HARNESS_H_
#define KW_TESTS_E2E_HARNESS_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kw::e2e {

/// The centre number in every ini that Rig::Ini writes.
constexpr char kCentre[] = "0800123456";

/// What one run of the program gave: its output, and its exit code or minus its signal.
struct RunResult {
  std::string out, err;
  int status = -1;
};

/// What a test may add to a run.
struct RunOptions {
  /// Entries ("NAME=value") put over the test's environment.
  std::vector<std::string> env;
  /// Runs in the child right before exec: async-signal-safe calls only.
  void (*in_child)() = nullptr;
  /// Runs in the test once the program has started, with its pid.
  std::function<void(pid_t)> started = nullptr;
  /// A program to run natively in place of the folder's kestrawind (such as a shell).
  std::string program = "";
  /// A descriptor for standard output in place of a file (out is then "").
  int out = -1;
  /// Runs the folder's kestrawind-send in place of its kestrawind.
  bool send = false;
};

/// A fresh folder under /tmp with copies of kestrawind and kestrawind-send in it (the Windows
/// programs under Wine) and, given simulator arguments, a kestrawind-sim on a pty that writes
/// transcript.txt there; given a name, the folder is one of that name inside the fresh one. The
/// destructor stops the simulator and removes the folder.
class Rig {
 public:
  explicit Rig(const std::vector<std::string>& sim_args = {}, const std::string& name = "");
  ~Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  /// The path of a file in the folder.
  std::string File(const std::string& name) const { return dir_ + "/" + name; }
  /// The simulator's pty.
  const std::string& pty() const { return pty_; }
  /// An ini that sends by the protocol through the pty, with more lines in [Provider].
  std::string Ini(const std::string& protocol, const std::string& provider = "") const;
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

/// What the program sent to the simulator, as the transcript shows it, joined; repeated TAP
/// probes before the login count once.
std::string Sent(const std::string& transcript);
/// A path as the program names it: under Wine the same file on drive Z:.
std::string ProgramPath(std::string path);
/// Whether the runs go to the Windows program under Wine (KW_WINE_PROGRAM and KW_WINE_LAUNCHER).
bool UnderWine();
/// The whole file, or "".
std::string ReadFile(const std::string& path);
/// How many times the text stands in the string.
int Count(const std::string& text, const std::string& what);

/// A system logger of our own for one test: rsyslogd on /dev/log writing to a file, one test
/// process of the machine at a time.
class SystemLog {
 public:
  /// kStuck: a logger that runs but reads nothing, a socket on /dev/log with a full queue.
  enum Kind { kRsyslog, kStuck };
  explicit SystemLog(Kind kind = kRsyslog);
  ~SystemLog();
  SystemLog(const SystemLog&) = delete;
  SystemLog& operator=(const SystemLog&) = delete;
  /// Why there is no logger (not root, no rsyslogd, another logger listens), or "".
  const std::string& problem() const { return problem_; }
  /// Polls up to 5 s for a record that holds the text: the record, or "".
  std::string WaitFor(const std::string& text) const;

 private:
  int lock_ = -1, stuck_ = -1;
  pid_t pid_ = -1;
  std::string dir_, problem_;
};

}  // namespace kw::e2e

#endif  // KW_TESTS_E2E_HARNESS_H_
