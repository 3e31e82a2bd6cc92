// End-to-end tests of the dial: the real binaries, over a pseudo-terminal, in real time.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// Reads from fd until the text holds want or timeout_ms pass; gives what was read.
std::string ReadUntil(int fd, const std::string& want, int timeout_ms) {
  std::string got;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (got.find(want) == std::string::npos) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    pollfd p = {fd, POLLIN, 0};
    if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) break;
    char buffer[256];
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) break;
    got.append(buffer, static_cast<size_t>(n));
  }
  return got;
}

/// Opens the pty as the program would.
int OpenPort(const std::string& path) { return open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); }

// The harness itself, with the test playing the program: a dial, its answer, the close.
TEST(SimE2E, AnswersADialOverThePtyAndEndsAfterTheClose) {
  TempFolder folder;
  SimProcess sim(folder.File("transcript.txt"), {"--dial-result", "BUSY", "--result-delay", "50"});
  const int fd = OpenPort(sim.pty_path());
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, "ATDT123\r", 8), 8);
  EXPECT_EQ(ReadUntil(fd, "BUSY\r\n", 3000), "\r\nBUSY\r\n");
  close(fd);

  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 3000);
  const size_t opened = transcript.find(" -- open\n");
  const size_t sent = transcript.find(" > ATDT123<CR>\n");
  const size_t answered = transcript.find(" < <CR><LF>BUSY<CR><LF>\n");
  const size_t closed = transcript.find(" -- close\n");
  ASSERT_NE(closed, std::string::npos) << transcript;
  EXPECT_LT(opened, sent) << transcript;
  EXPECT_LT(sent, answered) << transcript;
  EXPECT_LT(answered, closed) << transcript;
  EXPECT_EQ(sim.Wait(3000), 0);  // --runs defaults to 1
}

// A close must leave nothing of its run behind for the next opener: neither an answer already
// in the pty that the program didn't read, nor one still due.
TEST(SimE2E, NextOpenerGetsNothingOfAnEarlierRun) {
  struct Case {
    const char* name;
    const char* result_delay_ms;
    int read_nothing_for_ms;  // between the dial and the close
  };
  const Case cases[] = {{"answer unread in the pty", "50", 300}, {"answer still due", "400", 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempFolder folder;
    SimProcess sim(folder.File("transcript.txt"),
                   {"--dial-result", "BUSY", "--result-delay", c.result_delay_ms, "--runs", "2"});
    int fd = OpenPort(sim.pty_path());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "ATDT1\r", 6), 6);
    std::this_thread::sleep_for(std::chrono::milliseconds(c.read_nothing_for_ms));
    close(fd);
    ASSERT_NE(WaitForTranscriptClose(sim.transcript_path(), 3000).find(" -- close\n"),
              std::string::npos);

    fd = OpenPort(sim.pty_path());
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "AT\r", 3), 3);
    // Long enough for a BUSY still due to arrive.
    EXPECT_EQ(ReadUntil(fd, "BUSY", 800), "\r\nOK\r\n");
    close(fd);
    EXPECT_EQ(sim.Wait(3000), 0);
  }
}

TEST(DialE2E, BusyNumberIsReportedAndThePortClosed) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), {"--dial-result", "BUSY"});
  folder.WriteIni(IniForSim("TAP", sim.pty_path()));

  const RunResult result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 60);
  EXPECT_EQ(result.out, "Error: [526] The number is busy. Please try again later.\r\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);

  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  const std::string sent = JoinedChunks(transcript, '>');
  const size_t dial = sent.find("ATDT");
  ASSERT_NE(dial, std::string::npos) << transcript;
  EXPECT_NE(sent.find(std::string(kSimCentreNumber) + "<CR>", dial), std::string::npos)
      << transcript;
  EXPECT_NE(transcript.find(" -- close\n"), std::string::npos) << transcript;
}

TEST(DialE2E, PortThatCantBeTakenGives520AndSendsNothing) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), {"--dial-result", "BUSY", "--runs", "0"});

  // Another run holds the port: it has it open and locked.
  const int holder = open(sim.pty_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(holder, 0);
  ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);

  const std::string opening_error =
      "Error: [520] Error opening com port. Make sure no other application is using this "
      "port.\r\n";
  const std::pair<const char*, std::string> cases[] = {
      {"held by another run", sim.pty_path()},
      {"missing device", folder.File("no-such-tty")},
      {"not a terminal", folder.File("kestrawind.ini")},
  };
  for (const auto& [name, device] : cases) {
    SCOPED_TRACE(name);
    // The Windows program keeps a second run out with a named mutex, which no Linux process can
    // hold: WineE2E covers that case with two Windows runs.
    if (UnderWine() && device == sim.pty_path()) continue;
    folder.WriteIni(IniForSim("TAP", device));
    const RunResult result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 30);
    EXPECT_EQ(result.out, opening_error);
    EXPECT_EQ(result.err, "");
  }
  close(holder);
  // Not one byte of the refused runs reached the line.
  EXPECT_EQ(JoinedChunks(ReadWholeFile(sim.transcript_path()), '>'), "");
}

TEST(DialE2E, ModemThatGoesAwayEndsTheRunAsALostLine) {
  TempFolder folder;
  folder.CopyKestrawind();
  auto sim = std::make_unique<SimProcess>(folder.File("transcript.txt"),
                                          std::vector<std::string>{"--silent"});
  folder.WriteIni(IniForSim("TAP", sim->pty_path(), "", 30));
  // The modem is pulled out while the program waits for its answer.
  std::thread pull([&sim] {
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    sim.reset();
  });
  const RunResult result = RunKestrawind(folder.path(), {"0612345678", "hello"}, 20);
  pull.join();
  EXPECT_EQ(result.out,
            "Error: [524] There is no carrier.  Please make sure that all your cables are properly "
            "connected.\r\n");
  EXPECT_EQ(result.status, 0);
}

}  // namespace
}  // namespace kw::e2e
