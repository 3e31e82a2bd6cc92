#ifndef KW_TESTS_E2E_HARNESS_H_
#define KW_TESTS_E2E_HARNESS_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kw::e2e {

/// The centre number that IniForSim puts in the ini, so a test can look for it in the dial.
constexpr char kSimCentreNumber[] = "0800123456";

/// What one run of the program gave.
struct RunResult {
  std::string out, err;
  /// The exit code, or minus the signal that ended the program (-9 after a timeout).
  int status = -1;
};

/// A fresh folder under /tmp, removed with everything in it when the object goes.
class TempFolder {
 public:
  /// Raises std::runtime_error if the folder can't be made.
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return path_; }
  /// The path of a file in the folder.
  std::string File(const std::string& name) const;
  /// Copies the built program into the folder as "kestrawind" (it reads its ini beside itself),
  /// or the Windows program as "kestrawind.exe" under Wine.
  void CopyKestrawind() const;
  /// Writes kestrawind.ini with exactly these bytes.
  void WriteIni(const std::string& bytes) const;

 private:
  std::string path_;
};

/// A running kestrawind-sim. The constructor starts it with the arguments (plus --transcript)
/// and waits, bounded, for its READY line; the destructor stops it with SIGTERM and reaps it,
/// bounded, then with SIGKILL.
class SimProcess {
 public:
  /// Raises std::runtime_error if the simulator doesn't report READY in time.
  SimProcess(const std::string& transcript_path, const std::vector<std::string>& args,
             int ready_timeout_ms = 5000);
  ~SimProcess();
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  /// The pty slave that the program is to open.
  const std::string& pty_path() const { return pty_path_; }
  const std::string& transcript_path() const { return transcript_path_; }
  /// Waits for the simulator to end by itself: its exit code, or -1 if it still runs.
  int Wait(int timeout_ms);

 private:
  pid_t pid_ = -1;
  int exit_code_ = -1;
  std::string pty_path_;
  std::string transcript_path_;
};

/// What a test may add to a run of the program.
struct RunOptions {
  /// Runs in the child between fork and exec (after the standard descriptors are set up): only
  /// async-signal-safe calls, such as close(1) or setuid().
  std::function<void()> in_child;
  /// Runs in the test as soon as the program has started, with its process id.
  std::function<void(pid_t)> started;
  /// The program to run in place of <folder>/kestrawind, with the arguments as its argv[1...].
  std::string program;
  /// Entries ("NAME=value") put in or over the environment.
  std::vector<std::string> env;
  /// Starts from an empty environment, as env -i does, instead of the test's own.
  bool empty_environment = false;
};

/// Options that only put the entries in or over the environment (or in an empty one).
RunOptions WithEnvironment(std::vector<std::string> entries, bool empty = false);

/// Runs <folder>/kestrawind with the arguments (no shell), stdin from /dev/null, in the folder;
/// collects stdout and stderr whole; kills it after timeout_s.
RunResult RunKestrawind(const std::string& folder, const std::vector<std::string>& args,
                        int timeout_s, const RunOptions& options = {});

/// Whether the runs go to the Windows program under Wine rather than to the native one: when
/// KW_WINE_PROGRAM names a cross-built kestrawind.exe and KW_WINE_LAUNCHER kw-launch.exe (KW_WINE
/// may name wine itself). The program then gets the raw line that the native one would rebuild
/// from its arguments, exactly, through the launcher.
bool UnderWine();

/// The environment entry that gives the native program a UTF-8 locale, so that its console text
/// is known; the Windows program writes the ANSI code page, Windows-1252 under Wine.
constexpr char kUtf8Locale[] = "LC_ALL=C.UTF-8";

/// The bytes that the program writes on its console for a text given as Windows-1252 bytes: the
/// same bytes under Wine, their UTF-8 form natively (run under kUtf8Locale).
std::string ConsoleBytes(const std::string& cp1252);

/// How the program's ini names a device path: as it is, or under Wine as the same file on drive
/// Z:, with backslashes.
std::string PortPathForProgram(const std::string& path);

/// The bytes of a kestrawind.ini that sends through the simulator's pty on port 1. The extra
/// lines go at the end as they are (they may open sections of their own).
std::string IniForSim(const std::string& protocol, const std::string& pty_path,
                      const std::string& extra_lines = "", int connection_timeout_s = 20);

/// The whole file, or "" if it can't be read.
std::string ReadWholeFile(const std::string& path);

/// Waits, bounded, until the transcript holds a "-- close" line; gives the transcript as it is
/// then (the caller checks for the line).
std::string WaitForTranscriptClose(const std::string& path, int timeout_ms);

/// The readable texts of the transcript's chunks in one direction ('>' program to simulator,
/// '<' simulator to program), joined, so that checks don't depend on how the bytes were cut.
std::string JoinedChunks(const std::string& transcript, char direction);

}  // namespace kw::e2e

#endif  // KW_TESTS_E2E_HARNESS_H_
