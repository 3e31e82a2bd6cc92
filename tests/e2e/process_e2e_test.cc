// The real program among other processes on Linux: signals, the system logger, readers of its
// output, a lock folder that can't be written.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// What a run that got signals showed; filled while it runs.
struct Watch {
  std::chrono::steady_clock::time_point signalled;  ///< when the signals went
  struct stat environ {};                           ///< /proc/PID/environ right before
};

/// Options for a run that get the signals, one right after the other, once `ready` gives true
/// (it may wait; the run is left alone if it gives false).
RunOptions SignalWhen(std::function<bool()> ready, std::vector<int> signals, Watch& watch) {
  RunOptions options;
  options.started = [ready, signals, &watch](pid_t pid) {
    if (!ready()) return;
    stat(("/proc/" + std::to_string(pid) + "/environ").c_str(), &watch.environ);
    watch.signalled = std::chrono::steady_clock::now();
    for (int signal_number : signals) {
      kill(pid, signal_number);
      siginfo_t info;  // the signals behind a SIGSTOP all wait for the SIGCONT
      if (signal_number == SIGSTOP) waitid(P_PID, pid, &info, WSTOPPED | WNOWAIT);
    }
  };
  return options;
}

/// A condition for SignalWhen: the transcript holds the text count times (it waits up to 10 s).
std::function<bool()> InTranscript(const Rig& rig, const std::string& text, int count = 1) {
  return [&rig, text, count] { return Count(rig.Transcript(text, count), text) >= count; };
}

/// The lock file of the rig's pty.
std::string LockFile(const Rig& rig) { return "/run/lock/LCK..pts_" + rig.pty().substr(9); }

/// How many hang-ups the line has seen once the calls are over; the lock file must be gone.
int HangUps(const Rig& rig, int calls) {
  EXPECT_NE(access(LockFile(rig).c_str(), F_OK), 0) << "the lock file outlived the run";
  return Count(Sent(rig.Transcript(" -- close\n", calls)), "ATH");
}

const std::string kTapCall =
    std::string("ATDT") + kCentre + "<CR><ESC>PG1<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>ATH";
const std::string kInterrupted = "Error: [Unhandled][18] Interrupted by SIG";

TEST(ProcessE2E, SigtermMidSendHangsUpLogsTheErrorAndFreesThePort) {
  const SystemLog log;
  // The centre never answers a probe: the login goes on and on.
  Rig rig({"--centre", "tap", "--opt", "prompt_after=-1", "--runs", "0"});
  Watch watch;
  const RunResult result = rig.Run({"/LE", "0612345678", "hello"},
                                   SignalWhen(InTranscript(rig, "probe 3"), {SIGTERM}, watch));
  const std::string error = kInterrupted + "TERM before the send was confirmed (in Kestrawind)";
  EXPECT_EQ(result.out + result.err, error + "\r\n");
  EXPECT_EQ(HangUps(rig, 1), 1);
  // Without a logger of our own (not root, no rsyslogd) the record goes unchecked.
  if (log.problem().empty()) {
    EXPECT_EQ(log.WaitFor(error), "err Kestrawind[" + std::to_string(result.pid) + "]: " + error);
  }

  // A second signal ends the run at once, with no result line and no ATH, yet it still takes
  // back the exclusive hold on the pty, which would shut out every later run that isn't root,
  // and removes the lock file, which would shut out every other user.
  const RunResult abrupt = rig.Run(
      {"0612345678", "hello"},
      SignalWhen(InTranscript(rig, "probe 2", 2), {SIGSTOP, SIGHUP, SIGTERM, SIGCONT}, watch));
  EXPECT_EQ(abrupt.out, "");
  EXPECT_LT(abrupt.status, 0);
  EXPECT_EQ(HangUps(rig, 2), 1);
  const int fd = open(rig.pty().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  int exclusive = -1;
  EXPECT_TRUE(ioctl(fd, TIOCGEXCL, &exclusive) == 0 && exclusive == 0) << "held exclusively";
  close(fd);

  // SIGQUIT, which would dump core, ends the run as SIGTERM does. Run in a group of its own, the
  // process shows that it can't be dumped: while it runs, /proc/PID is root's, not the group's.
  RunOptions quit = SignalWhen(InTranscript(rig, "probe 2", 3), {SIGQUIT}, watch);
  quit.in_child = [] { (void)!setgid(65534); };
  const RunResult quitted = rig.Run({"0612345678", "hello"}, quit);
  EXPECT_LT(MsSince(watch.signalled), 2000);
  EXPECT_EQ(quitted.out,
            kInterrupted + "QUIT (Ctrl+\\) before the send was confirmed (in Kestrawind)\r\n");
  // Four closes: the check of the exclusive hold above opened and closed the pty as well, and
  // waiting for only three could count the hang-ups before this run's ATH was in the transcript.
  EXPECT_EQ(HangUps(rig, 4), 2);
  EXPECT_EQ(watch.environ.st_gid, 0u) << "the process can be dumped";
}

TEST(ProcessE2E, AStuckSystemLoggerCostsSecondsNotTheRun) {
  const SystemLog stuck(SystemLog::kStuck);  // it runs, but it reads nothing
  if (!stuck.problem().empty()) GTEST_SKIP() << stuck.problem();
  // The centre rejects the message: /LE logs the error line.
  Rig rig({"--centre", "tap", "--opt", "block=rs+esceot"});
  const RunResult run = rig.Run({"/LS", "/LE", "0612345678", "hello"});
  EXPECT_EQ(run.out, "Error: [538] The message was rejected by the provider.\r\n");
  EXPECT_LT(run.ms, 15000);
}

TEST(ProcessE2E, OutputThatNobodyReadsCostsSecondsNotTheCall) {
  Rig rig({"--centre", "tap", "--runs", "0"});
  // The trace passes the 64 KB that a pipe holds while the message goes out.
  for (int signal_number : {0, SIGTERM}) {
    SCOPED_TRACE(signal_number);
    int unread[2];
    ASSERT_EQ(pipe2(unread, O_CLOEXEC), 0);
    Watch watch;
    RunOptions options = SignalWhen(
        [&unread] {  // until the pipe is full and the run waits
          pollfd room{unread[1], POLLOUT, 0};
          for (int i = 0; i < 2000 && poll(&room, 1, 0) == 1; ++i) usleep(10000);
          return poll(&room, 1, 0) == 0;
        },
        {signal_number}, watch);
    options.out = unread[1];
    EXPECT_EQ(rig.Run({"/DEBUG", "0612345678", std::string(30000, 'x')}, options).status, 0);
    // A send takes 3 s and the output up to 5 s more; a signal ends the run in 2 s.
    EXPECT_LT(MsSince(watch.signalled), signal_number ? 2000 : 20000);
    for (int fd : unread) close(fd);
    EXPECT_EQ(HangUps(rig, signal_number ? 2 : 1), signal_number ? 2 : 1);
  }
}

TEST(ProcessE2E, ARootRunKilledMidLoginShutsOutNoOtherUser) {
  if (geteuid() != 0 || UnderWine()) GTEST_SKIP() << "needs root, to run as nobody as well";
  Rig rig({"--centre", "tap", "--runs", "0"});
  Watch watch;
  const RunResult killed = rig.Run(
      {"0612345678", "hello"}, SignalWhen(InTranscript(rig, "login 1"), {SIGSTOP, SIGKILL}, watch));
  EXPECT_EQ(killed.status, -SIGKILL);
  ASSERT_EQ(access(LockFile(rig).c_str(), F_OK), 0) << "root's lock file of a dead run is gone";
  // A pty's slave lives on with its master, and with it the exclusive flag of the killed run;
  // a real port forgets it at the last close. Clear it as that close would.
  const int fd = open(rig.pty().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  ioctl(fd, TIOCNXCL);
  close(fd);
  // Everything that the next run needs, as nobody.
  chmod(rig.File("").c_str(), 0755);
  chmod(rig.pty().c_str(), 0666);
  RunOptions nobody = SignalWhen(InTranscript(rig, "login 1", 2), {}, watch);
  nobody.in_child = AsNobody;
  const RunResult sent = rig.Run({"/DEBUG", "0612345678", "hello"}, nobody);
  EXPECT_LT(sent.ms, 10000);
  const std::string stale = "\tStale lock file: " + LockFile(rig) +
                            " can't be removed; the port is kept by flock alone.\r\n";
  EXPECT_EQ(Count(sent.out, stale), 1) << sent.out;
  EXPECT_EQ(sent.out.substr(sent.out.rfind("Successfully")), SuccessLine("hello"));
  EXPECT_EQ(watch.environ.st_uid, 0u) << "the process can be dumped";
  unlink(LockFile(rig).c_str());
}

// Runs from a shell: output that goes nowhere, a lock folder that can't be written (whose notice
// the run shows once), and a hang-up that the caller ignores (nohup), which must not end the run.
TEST(ProcessE2E, SendGoesOnWhereOutputOrTheLockFolderFails) {
  const std::pair<std::string, std::string> cases[] = {
      {"./kestrawind /DEBUG 0612345678 hello >&-", ""},
      {"./kestrawind /DEBUG 0612345678 hello | head -1; echo ${PIPESTATUS[0]} >&2", "0\n"},
      {"unshare -m sh -c 'mount -t tmpfs -o ro tmpfs /run/lock && ./kestrawind /DEBUG 0612345678 "
       "hello' | grep -Fc \"No lock file: /run/lock can't be written; the port is kept by flock "
       "alone.\" >&2",
       "1\n"},
      {"trap '' HUP; ./kestrawind /DEBUG 0612345678 hello & sleep 1; kill -HUP $!; wait $!; "
       "echo $? >&2",
       "0\n"},
  };
  for (const auto& [shell_line, err] : cases) {
    SCOPED_TRACE(shell_line);
    if (Count(shell_line, "unshare") > 0 && geteuid() != 0) continue;  // only root may mount
    Rig rig({"--centre", "tap"});
    const RunOptions shell{"/bin/bash", {}, [] { signal(SIGPIPE, SIG_DFL); }};  // as in a terminal
    EXPECT_EQ(rig.Run({"-c", shell_line}, shell).err, err);
    // The dialogue of a send and nothing else: no debug line on the line.
    EXPECT_EQ(Sent(rig.Transcript()), kTapCall);
  }
}

}  // namespace
}  // namespace kw::e2e
