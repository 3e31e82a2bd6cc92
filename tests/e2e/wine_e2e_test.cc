// End-to-end runs that only the Windows program makes, under Wine against kestrawind-sim: its
// event log, and its hold on a port against a second Windows run. The rest of the end-to-end
// suite runs against the Windows program as well when UnderWine() (scripts/test-windows).
#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

constexpr char kNeedsWine[] =
    "needs the Windows program under Wine: KW_WINE_PROGRAM and KW_WINE_LAUNCHER "
    "(scripts/test-windows sets them)";

/// A TAP ini for the simulator's pty, with the password that the centre wants.
std::string TapIni(const std::string& pty_path) {
  std::string ini = IniForSim("TAP", pty_path);
  const std::string section = "[Provider]\r\n";
  ini.insert(ini.find(section) + section.size(), "Authentication=secret\r\n");
  return ini;
}

TEST(WineE2E, ResultLinesReachReportEventWithTheirTypes) {
  if (!UnderWine()) GTEST_SKIP() << kNeedsWine;
  TempFolder folder;
  folder.CopyKestrawind();
  // Wine stores no record; its event-log channel shows each one on standard error.
  const RunOptions traced = WithEnvironment({"WINEDEBUG=+eventlog,+advapi"});
  const RunResult error = RunKestrawind(folder.path(), {"/LE", "0612", "hi"}, 30, traced);
  const std::string line = "Error: [570] Configuration file not found.";
  EXPECT_EQ(error.out, line + "\r\n");
  EXPECT_NE(error.err.find("ReportEventW L\"" + line + "\""), std::string::npos) << error.err;
  EXPECT_NE(error.err.find("RegisterEventSourceW ((null),L\"Kestrawind\")"), std::string::npos)
      << error.err;
  EXPECT_NE(error.err.find(",0x0001,"), std::string::npos) << error.err;  // an error record

  SimProcess sim(folder.File("transcript.txt"), {"--centre", "tap", "--opt", "password=secret"});
  folder.WriteIni(TapIni(sim.pty_path()));
  const RunResult sent = RunKestrawind(folder.path(), {"/LS", "0612", "hi"}, 60, traced);
  const std::string success = "Successfully sent message <hi> to recipient <0612>";
  EXPECT_EQ(sent.out, success + "\r\n");
  EXPECT_NE(sent.err.find("ReportEventW L\"" + success + "\""), std::string::npos) << sent.err;
  EXPECT_NE(sent.err.find(",0x0004,"), std::string::npos) << sent.err;  // an information record
  // No record without the options.
  const RunResult quiet = RunKestrawind(folder.path(), {"0612"}, 30, traced);
  EXPECT_EQ(quiet.err.find("ReportEventW"), std::string::npos) << quiet.err;
}

TEST(WineE2E, SecondRunOnAHeldPortGets520AtOnceAndLeavesTheCallAlone) {
  if (!UnderWine()) GTEST_SKIP() << kNeedsWine;
  TempFolder first, second;
  first.CopyKestrawind();
  second.CopyKestrawind();
  SimProcess sim(first.File("transcript.txt"),
                 {"--centre", "tap", "--opt", "password=secret", "--runs", "0"});
  first.WriteIni(TapIni(sim.pty_path()));
  second.WriteIni(TapIni(sim.pty_path()));

  std::atomic<bool> first_done{false};
  RunResult first_result;
  std::thread first_run([&] {
    first_result = RunKestrawind(first.path(), {"0612345678", "hello"}, 60);
    first_done = true;
  });
  // The first run has the port once its dial is on the line.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (ReadWholeFile(sim.transcript_path()).find("> ATDT") == std::string::npos &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const RunResult refused = RunKestrawind(second.path(), {"0612345678", "other"}, 30);
  // At once: the refused run is over while the first one is still in its call.
  EXPECT_FALSE(first_done.load());
  first_run.join();

  EXPECT_EQ(refused.out,
            "Error: [520] Error opening com port. Make sure no other application is using this "
            "port.\r\n");
  EXPECT_EQ(first_result.out, "Successfully sent message <hello> to recipient <0612345678>\r\n");
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  // One opening, and on the line only the first run's call, from dial to hang-up (0x43D is the
  // sum of the block).
  EXPECT_EQ(transcript.find(" -- open\n"), transcript.rfind(" -- open\n")) << transcript;
  EXPECT_EQ(JoinedChunks(transcript, '>'),
            "ATDT0800123456<CR><CR><ESC>PG1secret<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>ATH")
      << transcript;
}

}  // namespace
}  // namespace kw::e2e
