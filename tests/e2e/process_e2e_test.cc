// End-to-end runs of the program among other processes: a request to stop, a reader of its
// output that goes away, a closed standard output, a port that refuses to write.
#include <fcntl.h>
#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "gtest/gtest.h"
#include "system_log.h"

namespace kw::e2e {
namespace {

using Clock = std::chrono::steady_clock;

/// An ini for the simulator's pty with the TAP password in the provider's section.
std::string TapIni(const std::string& pty_path) {
  std::string ini = IniForSim("TAP", pty_path);
  const std::string section = "[Provider]\r\n";
  ini.insert(ini.find(section) + section.size(), "Authentication=secret\r\n");
  return ini;
}

/// The simulator with a TAP centre that wants the password, and its further options.
std::vector<std::string> TapSim(std::vector<std::string> more) {
  std::vector<std::string> args = {"--centre", "tap", "--opt", "password=secret"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

/// How many times the text stands in the string.
int Count(const std::string& haystack, const std::string& needle) {
  int count = 0;
  for (size_t at = haystack.find(needle); at != std::string::npos;
       at = haystack.find(needle, at + 1)) {
    ++count;
  }
  return count;
}

/// Waits, bounded, until the process is stopped, so that signals sent now all wait for SIGCONT.
void WaitUntilStopped(pid_t pid) {
  const std::string stat_path = "/proc/" + std::to_string(pid) + "/stat";
  for (int i = 0; i < 200; ++i) {
    const std::string stat = ReadWholeFile(stat_path);
    const size_t name_end = stat.rfind(')');
    if (name_end != std::string::npos && stat.compare(name_end, 4, ") T ") == 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

/// Sends signals (SIGTERM unless told) to a run, one right after the other, as soon as the
/// simulator's transcript holds a text so many times, and notes when it did.
class Terminator {
 public:
  Terminator(std::string transcript_path, std::string text, int count,
             std::vector<int> signals = {SIGTERM})
      : path_(std::move(transcript_path)),
        text_(std::move(text)),
        count_(count),
        signals_(std::move(signals)) {}
  ~Terminator() {
    if (thread_.joinable()) thread_.join();
  }

  /// Options for RunKestrawind that start the watch.
  RunOptions Options(std::function<void()> in_child = nullptr) {
    RunOptions options;
    options.in_child = std::move(in_child);
    options.started = [this](pid_t pid) {
      thread_ = std::thread([this, pid] {
        for (const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
             Clock::now() < end; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
          if (Count(ReadWholeFile(path_), text_) >= count_) {
            sent_at_ = Clock::now();
            sent_ = true;
            for (int signal_number : signals_) {
              sent_ = kill(pid, signal_number) == 0 && sent_;
              if (signal_number == SIGSTOP) WaitUntilStopped(pid);
            }
            return;
          }
        }
      });
    };
    return options;
  }
  /// Waits for the watch to end; whether the signal went out.
  bool Sent() {
    if (thread_.joinable()) thread_.join();
    return sent_;
  }
  Clock::time_point sent_at() const { return sent_at_; }

 private:
  std::string path_;
  std::string text_;
  int count_;
  std::vector<int> signals_;
  std::thread thread_;
  bool sent_ = false;
  Clock::time_point sent_at_;
};

constexpr uid_t kNobody = 65534;

const char kInterrupted[] =
    "Error: [Unhandled][18] Interrupted by SIGTERM before the send was confirmed (in "
    "Kestrawind)\r\n";

TEST(ProcessE2E, SigtermInTheLoginHangsUpAndLeavesThePortToAUserWhoIsNotRoot) {
  TempFolder folder;
  folder.CopyKestrawind();
  // The centre never answers a probe: the login goes on until something stops it.
  SimProcess sim(folder.File("transcript.txt"),
                 TapSim({"--opt", "prompt_after=-1", "--runs", "2"}));
  folder.WriteIni(TapIni(sim.pty_path()));

  // First run: stopped during the login, at its third probe; /LE sends the error line to the
  // system log too, where one can be read back.
  const SystemLogCapture log;
  Terminator first(sim.transcript_path(), "probe 3", 1);
  const RunResult stopped =
      RunKestrawind(folder.path(), {"/LE", "0612345678", "hello"}, 60, first.Options());
  const auto ended = Clock::now();
  ASSERT_TRUE(first.Sent());
  EXPECT_EQ(stopped.out, kInterrupted);
  EXPECT_EQ(stopped.err, "");
  EXPECT_EQ(stopped.status, 0);
  const auto took =
      std::chrono::duration_cast<std::chrono::milliseconds>(ended - first.sent_at()).count();
  EXPECT_LT(took, 2000) << "from the signal to the end of the run";
  std::cout << "[ measured ] SIGTERM to the end of the run: " << took << " ms\n";
  if (log.state() == SystemLogCapture::State::kReady) {
    std::string record;
    EXPECT_TRUE(
        log.WaitForLine("Interrupted by SIGTERM before the send was confirmed", 5000, &record));
  }
  std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  const size_t hang_up = transcript.find(" > ATH\n");
  ASSERT_NE(hang_up, std::string::npos) << transcript;
  EXPECT_NE(transcript.find(" -- close\n", hang_up), std::string::npos) << transcript;

  // Second run, by a user who is not root: the exclusive flag of the first is gone, so it gets
  // the port and dials; stopped in turn once it has.
  const bool root = geteuid() == 0;
  if (root) {
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(folder.File("kestrawind").c_str(), 0755), 0);
    ASSERT_EQ(chmod(folder.File("kestrawind.ini").c_str(), 0644), 0);
    ASSERT_EQ(chmod(sim.pty_path().c_str(), 0666), 0);
  }
  Terminator second(sim.transcript_path(), "> ATDT", 2);
  const RunResult next =
      RunKestrawind(folder.path(), {"0612345678", "hello"}, 60, second.Options([root] {
        if (!root) return;
        if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) {
          _exit(126);
        }
      }));
  ASSERT_TRUE(second.Sent());
  EXPECT_EQ(next.out, kInterrupted);
  EXPECT_EQ(next.status, 0);
  transcript = ReadWholeFile(sim.transcript_path());
  EXPECT_EQ(Count(transcript, " -- open\n"), 2) << transcript;
}

TEST(ProcessE2E, SecondSignalEndsAtOnceAndStillClearsTheExclusiveFlag) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"),
                 TapSim({"--opt", "prompt_after=-1", "--runs", "2"}));
  folder.WriteIni(TapIni(sim.pty_path()));

  // Stopped meanwhile, so that the two arrive together whatever the machine's load.
  Terminator both(sim.transcript_path(), "probe 2", 1, {SIGSTOP, SIGHUP, SIGTERM, SIGCONT});
  const RunResult result =
      RunKestrawind(folder.path(), {"0612345678", "hello"}, 60, both.Options());
  ASSERT_TRUE(both.Sent());
  EXPECT_EQ(result.out, "");
  EXPECT_LT(result.status, 0) << "ended by the second signal itself";
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_EQ(transcript.find(" > ATH\n"), std::string::npos) << transcript;

  // Left set on a pty, the flag would shut out every later run that isn't root.
  const int fd = open(sim.pty_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  int exclusive = -1;
  EXPECT_EQ(ioctl(fd, TIOCGEXCL, &exclusive), 0);
  EXPECT_EQ(exclusive, 0);
  close(fd);
}

TEST(ProcessE2E, AReaderThatGoesAwayDoesNotStopTheSend) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), TapSim({}));
  folder.WriteIni(TapIni(sim.pty_path()));

  RunOptions shell;
  shell.program = "/bin/bash";
  // As in a terminal: the default action of SIGPIPE kills, whatever the test runner set.
  shell.in_child = [] { signal(SIGPIPE, SIG_DFL); };
  const RunResult result = RunKestrawind(
      folder.path(),
      {"-c", "./kestrawind /DEBUG 0612345678 hello | head -1; echo \"${PIPESTATUS[0]}\" >&2"}, 60,
      shell);
  EXPECT_NE(result.out.find("\tSms Number : 0612345678\r\n"), std::string::npos) << result.out;
  EXPECT_EQ(Count(result.out, "\n"), 1) << result.out;
  EXPECT_EQ(result.err, "0\n") << "the exit status of kestrawind";
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_NE(transcript.find("checksum ok, answer <ACK>"), std::string::npos) << transcript;
  const std::string sent = JoinedChunks(transcript, '>');
  EXPECT_EQ(sent.substr(sent.size() - 3), "ATH") << transcript;
}

TEST(ProcessE2E, ClosedStandardOutputKeepsTheDebugLogOffTheLine) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), TapSim({}));
  folder.WriteIni(TapIni(sim.pty_path()));

  RunOptions closed;
  closed.in_child = [] { close(1); };
  const RunResult result =
      RunKestrawind(folder.path(), {"/DEBUG", "0612345678", "hello"}, 60, closed);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  // The dialogue of a send and nothing else: no debug line, and the password only in the login.
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_EQ(JoinedChunks(transcript, '>'),
            std::string("ATDT") + kSimCentreNumber +
                "<CR><CR><ESC>PG1secret<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>ATH")
      << transcript;
}

#if defined(__x86_64__)
constexpr uint32_t kAuditArch = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kAuditArch = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kAuditArch = 0;
#endif

/// In the child: from here on the kernel answers every write(2) to a descriptor above 2 with
/// EIO, as it does for a serial device that has gone; standard output and error still work.
/// Only prctl, so it is safe between fork and exec.
void RefuseWritesAboveStandardError() {
  // The low half of the first argument: the descriptor (little-endian, as on both machines).
  static sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kAuditArch, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_write, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, STDERR_FILENO, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  static sock_fprog program = {sizeof filter / sizeof filter[0], filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(126);
  }
}

TEST(ProcessE2E, DialThatThePortRefusesIsADialingError) {
  if (kAuditArch == 0) GTEST_SKIP() << "no write filter for this machine";
#if defined(__SANITIZE_ADDRESS__)
  // The sanitizer's start-up probes memory with writes to a pipe and insists on their errno.
  GTEST_SKIP() << "the write filter breaks the sanitizer's own start-up";
#endif
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), {});
  folder.WriteIni(IniForSim("TAP", sim.pty_path()));

  RunOptions refused;
  refused.in_child = RefuseWritesAboveStandardError;
  const RunResult result =
      RunKestrawind(folder.path(), {"/DEBUG", "0612345678", "hello"}, 60, refused);
  const std::string error = "Error: [521] Dialing Error (8020-Write to the port failed)\r\n";
  ASSERT_GE(result.out.size(), error.size())
      << "status " << result.status << ", stderr: " << result.err;
  EXPECT_EQ(result.out.substr(result.out.size() - error.size()), error) << result.out;
  // The trace shows what was tried and nothing that the modem didn't send.
  EXPECT_NE(result.out.find("\tSending : ATDT"), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("Received"), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("NO CARRIER"), std::string::npos) << result.out;
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_NE(transcript.find(" -- close\n"), std::string::npos) << transcript;
  EXPECT_EQ(JoinedChunks(transcript, '>'), "") << transcript;
}

}  // namespace
}  // namespace kw::e2e
