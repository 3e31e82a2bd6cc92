// The real program among other processes on Linux: signals, the system logger, readers of its
// output, a lock folder that can't be written.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <thread>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// Options for a run that get the signals, one right after the other, once the transcript
/// holds the text; the thread that waits for it is joined by the caller.
RunOptions SignalWhen(const Rig& rig, const std::string& text, int count, std::vector<int> signals,
                      std::thread& watch, pid_t& pid) {
  RunOptions options;
  options.started = [&rig, text, count, signals, &watch, &pid](pid_t started) {
    pid = started;
    watch = std::thread([&rig, text, count, signals, started] {
      if (Count(rig.Transcript(text, count), text) < count) return;
      for (int signal_number : signals) {
        kill(started, signal_number);
        siginfo_t info;  // the signals behind a SIGSTOP all wait for the SIGCONT
        if (signal_number == SIGSTOP) waitid(P_PID, started, &info, WSTOPPED | WNOWAIT);
      }
    });
  };
  return options;
}

const std::vector<std::string> kSilentCentre = {"--centre",        "tap",    "--opt",
                                                "prompt_after=-1", "--runs", "0"};

TEST(ProcessE2E, SigtermMidSendHangsUpLogsTheErrorAndFreesThePort) {
  const SystemLog log;
  Rig rig(kSilentCentre);  // the centre never answers a probe: the login goes on and on
  rig.WriteIni(rig.Ini("TAP"));
  std::thread watch;
  pid_t pid = 0;
  const RunResult result =
      rig.Run({"/LE", "0612345678", "hello"}, SignalWhen(rig, "probe 3", 1, {SIGTERM}, watch, pid));
  watch.join();
  const std::string error =
      "Error: [Unhandled][18] Interrupted by SIGTERM before the send was confirmed (in "
      "Kestrawind)";
  EXPECT_EQ(result.out, error + "\r\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
  const std::string transcript = rig.Transcript();
  EXPECT_TRUE(std::regex_match(Sent(transcript), std::regex("ATDT[0-9]+(<CR>)+ATH"))) << transcript;
  EXPECT_NE(access(("/run/lock/LCK..pts_" + rig.pty().substr(9)).c_str(), F_OK), 0)
      << "the lock file outlived the run";
  if (log.problem().empty()) {
    EXPECT_EQ(log.WaitFor(error), "err Kestrawind[" + std::to_string(pid) + "]: " + error);
  } else {
    std::cout << "[ skipped  ] the system log: " << log.problem() << "\n";
  }

  // A second signal ends the run at once, with no result line and no ATH, yet it still takes
  // back the exclusive hold on the pty, which would shut out every later run that isn't root.
  const RunResult abrupt =
      rig.Run({"0612345678", "hello"},
              SignalWhen(rig, "probe 2", 2, {SIGSTOP, SIGHUP, SIGTERM, SIGCONT}, watch, pid));
  watch.join();
  EXPECT_EQ(abrupt.out, "");
  EXPECT_LT(abrupt.status, 0);
  EXPECT_EQ(Count(Sent(rig.Transcript(" -- close\n", 2)), "ATH"), 1);
  const int fd = open(rig.pty().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  int exclusive = -1;
  EXPECT_EQ(ioctl(fd, TIOCGEXCL, &exclusive), 0);
  EXPECT_EQ(exclusive, 0);
  close(fd);
}

// Runs from a shell: output that goes nowhere, and a lock folder that can't be written.
TEST(ProcessE2E, SendGoesOnWhereOutputOrTheLockFolderFails) {
  const std::string notice =
      "\tNo lock file: /run/lock can't be written; the port is kept by flock alone.\r\n";
  const struct {
    const char* shell;
    const char* err;
    int notices;
  } cases[] = {
      {"./kestrawind /DEBUG 0612345678 hello >&-", "", 0},
      {"./kestrawind /DEBUG 0612345678 hello | head -1; echo ${PIPESTATUS[0]} >&2", "0\n", 0},
      {"unshare -m sh -c 'mount -t tmpfs -o ro tmpfs /run/lock && ./kestrawind /DEBUG 0612345678 "
       "hello'",
       "", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.shell);
    if (c.notices > 0 && geteuid() != 0) continue;  // only root may mount
    Rig rig({"--centre", "tap"});
    rig.WriteIni(rig.Ini("TAP"));
    RunOptions shell;
    shell.program = "/bin/bash";
    shell.in_child = [] { signal(SIGPIPE, SIG_DFL); };  // as in a terminal
    const RunResult result = rig.Run({"-c", c.shell}, shell);
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(Count(result.out, notice), c.notices) << result.out;
    // The dialogue of a send and nothing else: no debug line on the line.
    const std::string transcript = rig.Transcript();
    EXPECT_EQ(Sent(transcript),
              std::string("ATDT") + kCentre +
                  "<CR><CR><ESC>PG1<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>ATH")
        << transcript;
  }
}

}  // namespace
}  // namespace kw::e2e
