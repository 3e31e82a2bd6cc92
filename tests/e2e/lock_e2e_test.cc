// End-to-end runs that meet the lock files of other serial programs in the system's real lock
// folder: the real binary over a pseudo-terminal against kestrawind-sim.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "gtest/gtest.h"
#include "os/port_lock-posix.h"

namespace kw::e2e {
namespace {

constexpr char kLockFolder[] = "/run/lock";
const char kPortTaken[] =
    "Error: [520] Error opening com port. Make sure no other application is using this port.\r\n";

/// The lock file of the simulator's pty (/dev/pts/N), removed when the object goes.
struct PtyLockFile {
  explicit PtyLockFile(const std::string& pty)
      : path(std::string(kLockFolder) + "/LCK..pts_" + pty.substr(pty.rfind('/') + 1)) {}
  ~PtyLockFile() { unlink(path.c_str()); }
  const std::string path;
};

/// Why the test can't use the system's lock folder, or "".
std::string LockFolderProblem() {
  return access(kLockFolder, W_OK) == 0 ? "" : std::string(kLockFolder) + " can't be written";
}

/// Counts the occurrences of a text.
size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

/// The id of a process that has ended and been reaped.
pid_t DeadPid() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  waitpid(pid, nullptr, 0);
  return pid;
}

TEST(LockE2E, LiveLockGives520WithoutAnOpenAndAStaleOneIsTakenForTheRun) {
  const std::string problem = LockFolderProblem();
  if (!problem.empty()) GTEST_SKIP() << problem;
  TempFolder folder;
  folder.CopyKestrawind();
  // BUSY after a while: a run that gets the port is seen holding it, then ends quickly.
  SimProcess sim(folder.File("transcript.txt"),
                 {"--dial-result", "BUSY", "--result-delay", "1500", "--runs", "0"});
  folder.WriteIni(IniForSim("TAP", sim.pty_path()));
  PtyLockFile lock(sim.pty_path());

  // A live holder (this test): refused before the device is ever opened.
  ASSERT_TRUE(std::ofstream(lock.path) << PortLockText(getpid()));
  RunResult result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 30);
  EXPECT_EQ(result.out, kPortTaken);
  EXPECT_EQ(ReadWholeFile(lock.path), PortLockText(getpid()));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // an open would be seen by now
  EXPECT_EQ(Count(ReadWholeFile(sim.transcript_path()), " -- open\n"), 0u)
      << ReadWholeFile(sim.transcript_path());

  // A holder that is gone: its lock is taken over, holds the run's id, and goes with the run.
  const std::string stale = PortLockText(DeadPid());
  ASSERT_TRUE(std::ofstream(lock.path) << stale);
  std::thread run([&] { result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 30); });
  std::string during = stale;
  for (int i = 0; i < 200 && (during == stale || during.empty()); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    during = ReadWholeFile(lock.path);
  }
  const int pid = std::atoi(during.c_str());
  std::string holder;  // the program that the id belongs to
  if (pid > 0) {
    char exe[PATH_MAX] = {};
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    holder.assign(exe, std::max<ssize_t>(0, readlink(link.c_str(), exe, sizeof exe - 1)));
  }
  run.join();
  EXPECT_EQ(during, PortLockText(pid));
  EXPECT_EQ(holder, folder.File("kestrawind"));
  EXPECT_EQ(result.out, "Error: [526] The number is busy. Please try again later.\r\n");
  EXPECT_EQ(ReadWholeFile(lock.path), "") << "the lock file outlived the run";
  EXPECT_EQ(access(lock.path.c_str(), F_OK), -1);
  EXPECT_EQ(Count(WaitForTranscriptClose(sim.transcript_path(), 3000), " -- open\n"), 1u);
}

// Run as root, a loser's open of the pty got through TIOCEXCL and its close broke the winner's
// call; the lock file keeps every loser away from the device.
TEST(LockE2E, TenRunsAtOnceSendOnceAndTheOthersGet520) {
  const std::string problem = LockFolderProblem();
  if (!problem.empty()) GTEST_SKIP() << problem;
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"),
                 {"--centre", "tap", "--opt", "password=secret", "--runs", "0"});
  std::string ini = IniForSim("TAP", sim.pty_path());
  ini.insert(ini.find("[Modem]"), "Authentication=secret\r\n");
  folder.WriteIni(ini);
  PtyLockFile lock(sim.pty_path());  // removes whatever a failed run might leave

  std::vector<RunResult> results(10);
  std::vector<std::thread> runs;
  for (RunResult& result : results) {
    runs.emplace_back([&folder, &result] {
      result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 60);
    });
  }
  for (std::thread& run : runs) run.join();

  const std::string sent = "Successfully sent message <hello> to recipient <0612345678>\r\n";
  size_t senders = 0;
  size_t refused = 0;
  for (const RunResult& result : results) {
    senders += result.out == sent;
    refused += result.out == kPortTaken;
  }
  EXPECT_EQ(senders, 1u);
  EXPECT_EQ(refused, 9u);
  // The sender's call alone, from one open to one close: the block once, accepted, then ATH.
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_EQ(Count(transcript, " -- open\n"), 1u) << transcript;
  EXPECT_EQ(Count(transcript, " -- close\n"), 1u) << transcript;
  EXPECT_EQ(Count(JoinedChunks(transcript, '>'), "<STX>0612345678<CR>hello<CR><ETX>"), 1u)
      << transcript;
  EXPECT_NE(transcript.find("checksum ok, answer <ACK>"), std::string::npos) << transcript;
  EXPECT_EQ(access(lock.path.c_str(), F_OK), -1);
}

// The lock folder is made read-only for one run alone, in a mount namespace of its own.
TEST(LockE2E, LockFolderThatCantBeWrittenLeavesTheFlockAndOneDebugLine) {
  if (geteuid() != 0 || std::system("unshare -m true >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "needs root and unshare -m to mount a read-only lock folder";
  }
  TempFolder folder;
  folder.CopyKestrawind();
  ASSERT_EQ(rename(folder.File("kestrawind").c_str(), folder.File("kestrawind.real").c_str()), 0);
  ASSERT_TRUE(std::ofstream(folder.File("kestrawind"))
              << "#!/bin/sh\nexec unshare -m sh -c 'mount -t tmpfs -o ro tmpfs " << kLockFolder
              << " && exec \"$0\" \"$@\"' \"$(dirname \"$0\")/kestrawind.real\" \"$@\"\n");
  ASSERT_EQ(chmod(folder.File("kestrawind").c_str(), 0755), 0);
  SimProcess sim(folder.File("transcript.txt"), {"--dial-result", "BUSY"});
  folder.WriteIni(IniForSim("TAP", sim.pty_path()));

  const RunResult result = RunKestrawind(folder.path(), {"0612345678", "hello", "/DEBUG"}, 30);
  const std::string notice = std::string("\tNo lock file: ") + kLockFolder +
                             " can't be written; the port is kept by flock alone.\r\n";
  EXPECT_EQ(Count(result.out, notice), 1u) << result.out;
  EXPECT_NE(result.out.find("Error: [526] The number is busy."), std::string::npos) << result.out;
  EXPECT_EQ(Count(WaitForTranscriptClose(sim.transcript_path(), 3000), " -- open\n"), 1u);
}

}  // namespace
}  // namespace kw::e2e
