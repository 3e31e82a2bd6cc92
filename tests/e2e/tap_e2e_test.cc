// End-to-end runs of a TAP send: the real program over a pseudo-terminal against the simulated
// modem and TAP centre, in real time (each login wait is a real second).
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "e2e/harness.h"
#include "gtest/gtest.h"
#include "system_log.h"

namespace kw::e2e {
namespace {

/// An ini for the simulator's pty with the TAP password in the provider's section.
std::string TapIni(const std::string& pty_path) {
  std::string ini = IniForSim("TAP", pty_path);
  const std::string section = "[Provider]\r\n";
  ini.insert(ini.find(section) + section.size(), "Authentication=secret\r\n");
  return ini;
}

/// The simulator with a TAP centre that wants the password; --runs 2 leaves room for the test's
/// own open of the pty after the program's run.
std::vector<std::string> SimArgs(const std::vector<std::string>& centre_options) {
  std::vector<std::string> args = {"--centre", "tap", "--opt", "password=secret", "--runs", "2"};
  for (const std::string& option : centre_options) {
    args.push_back("--opt");
    args.push_back(option);
  }
  return args;
}

/// Whether the pty can be opened and locked the way the program takes its port.
bool PortIsFree(const std::string& pty_path) {
  const int fd = open(pty_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
  close(fd);
  return locked;
}

/// Starts a capture of the system log, or says why the test can't use one.
std::string LogProblem(const SystemLogCapture& log) {
  if (geteuid() != 0) return "needs root to start a system logger on /dev/log";
  if (log.state() != SystemLogCapture::State::kReady) return log.reason();
  return "";
}

TEST(TapE2E, SendsTheBlockAndReportsSuccess) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), SimArgs({}));
  folder.WriteIni(TapIni(sim.pty_path()));

  // Windows-1252 text: the line gets the same bytes from the native and the Windows program.
  const RunResult result = RunKestrawind(folder.path(), {"0612345678", "h\xE9llo", "w\x80rld"}, 60,
                                         WithEnvironment({kUtf8Locale}));
  EXPECT_EQ(result.out, "Successfully sent message <" + ConsoleBytes("h\xE9llo w\x80rld") +
                            "> to recipient <0612345678>\r\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);

  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  const std::string sent = JoinedChunks(transcript, '>');
  // 0x02 "0612345678" 0x0D "h\xE9llo w\x80rld" 0x0D 0x03 sums to 0x71A; the transcript shows
  // the line's Windows-1252 bytes in UTF-8.
  const std::string block = "<STX>0612345678<CR>h\u00E9llo w\u20ACrld<CR><ETX>71:<CR>";
  const size_t at = sent.find(block);
  ASSERT_NE(at, std::string::npos) << transcript;
  EXPECT_EQ(sent.find(block, at + 1), std::string::npos) << "sent twice: " << transcript;
  EXPECT_EQ(sent.substr(at + block.size()), "ATH") << transcript;
  EXPECT_NE(transcript.find("checksum ok, answer <ACK>"), std::string::npos) << transcript;
  EXPECT_NE(transcript.find(" -- close\n"), std::string::npos) << transcript;
  EXPECT_TRUE(PortIsFree(sim.pty_path()));
}

TEST(TapE2E, SuccessLineReachesTheSystemLogUnderLS) {
  SystemLogCapture log;
  const std::string problem = LogProblem(log);
  if (!problem.empty()) GTEST_SKIP() << problem;
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), SimArgs({}));
  folder.WriteIni(TapIni(sim.pty_path()));

  // A text of this run alone, so that an older record can't pass for this one.
  const std::string text =
      "tap-" + std::to_string(getpid()) + "-" + std::to_string(std::random_device()());
  const RunResult result = RunKestrawind(folder.path(), {"/LS", "0612345678", text}, 60);
  const std::string success = "Successfully sent message <" + text + "> to recipient <0612345678>";
  EXPECT_EQ(result.out, success + "\r\n");
  std::string line;
  EXPECT_TRUE(log.WaitForLine(success, 5000, &line)) << "no record of the success line";
}

TEST(TapE2E, RejectedBlockReachesTheSystemLogUnderLE) {
  SystemLogCapture log;
  const std::string problem = LogProblem(log);
  if (!problem.empty()) GTEST_SKIP() << problem;
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), SimArgs({"block=rs"}));
  folder.WriteIni(TapIni(sim.pty_path()));

  const RunResult result = RunKestrawind(folder.path(), {"/LE", "0612345678", "hello"}, 60);
  const std::string error = "Error: [538] The message was rejected by the provider.";
  EXPECT_EQ(result.out, error + "\r\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
  std::string line;
  EXPECT_TRUE(log.WaitForLine(error, 5000, &line)) << "no record of the error line";
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  EXPECT_NE(transcript.find("answer <RS>"), std::string::npos) << transcript;
}

}  // namespace
}  // namespace kw::e2e
