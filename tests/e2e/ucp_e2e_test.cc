// End-to-end tests of the UCP road: the real program against kestrawind-sim's modem and UCP
// centre over a pseudo-terminal, in real time (each send waits 2 s and polls for 1 s at least).
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// A kestrawind.ini for the UCP road through the simulator's pty on port 1.
std::string UcpIni(const std::string& pty_path, const std::string& op,
                   const std::string& text_length) {
  return "[Provider]\r\n"
         "Protocol=UCP\r\n"
         "SmsCenterNumber=" +
         std::string(kSimCentreNumber) +
         "\r\n"
         "OpType=" +
         op +
         "\r\n"
         "Authentication=pw\r\n"
         "TextLength=" +
         text_length +
         "\r\n"
         "[Modem]\r\n"
         "Port=1\r\n"
         "ConnectionTimeout=20\r\n"
         "[Ports]\r\n"
         "1=" +
         PortPathForProgram(pty_path) +
         "\r\n"
         "[User]\r\n"
         "SenderNumber=678\r\n";
}

/// One run of the program against a simulator of its own.
struct Road {
  std::string op;
  std::string frame;  // as the transcript shows it
  RunResult result;
  std::string transcript;
};

// The text is Windows-1252 ("a", e acute, the euro sign), which the frame carries as hex digits.
TEST(UcpE2E, EachOperationIsAcceptedWithItsFrameOnTheLine) {
  std::vector<Road> roads = {
      {"01", "<STX>01/00036/O/01/12345/678//3/61E980/D5<ETX>", {}, {}},
      {"03", "<STX>01/00050/O/03/12345/678/pw/0///////////3/61E980/EF<ETX>", {}, {}},
      {"30", "<STX>01/00040/O/30/12345/678////////61E980/8A<ETX>", {}, {}},
      {"51", "<STX>01/00065/O/51/12345/678/pw///////////////3//61E980/////////////B8<ETX>", {}, {}},
  };
  // The runs wait in real time, so they run side by side, each with a simulator of its own.
  // Folders, copies and simulators are all made first: a copy of the program still open for
  // writing while another thread forks would make its exec fail.
  std::vector<std::unique_ptr<TempFolder>> folders;
  std::vector<std::unique_ptr<SimProcess>> sims;
  for (const Road& road : roads) {
    folders.push_back(std::make_unique<TempFolder>());
    folders.back()->CopyKestrawind();
    sims.push_back(std::make_unique<SimProcess>(folders.back()->File("transcript.txt"),
                                                std::vector<std::string>{"--centre", "ucp"}));
    folders.back()->WriteIni(UcpIni(sims.back()->pty_path(), road.op, "320"));
  }
  std::vector<std::thread> runs;
  for (size_t i = 0; i < roads.size(); ++i) {
    runs.emplace_back([&road = roads[i], &folder = *folders[i]] {
      road.result =
          RunKestrawind(folder.path(), {"+12345", "a\xE9\x80"}, 30, WithEnvironment({kUtf8Locale}));
    });
  }
  for (std::thread& run : runs) run.join();
  for (size_t i = 0; i < roads.size(); ++i) {
    roads[i].transcript = WaitForTranscriptClose(sims[i]->transcript_path(), 5000);
  }

  for (const Road& road : roads) {
    SCOPED_TRACE("op " + road.op);
    EXPECT_EQ(road.result.out, "Successfully sent message <" + ConsoleBytes("a\xE9\x80") +
                                   "> to recipient <+12345>\r\n");
    EXPECT_EQ(road.result.err, "");
    EXPECT_EQ(road.result.status, 0);
    // Dial, one frame, the hang-up; the centre found the frame sound.
    EXPECT_EQ(JoinedChunks(road.transcript, '>'),
              "ATDT" + std::string(kSimCentreNumber) + "<CR>" + road.frame + "ATH")
        << road.transcript;
    EXPECT_NE(road.transcript.find("recipient 12345, sender 678"), std::string::npos);
    EXPECT_NE(road.transcript.find("text \"a\u00E9\u20AC\", length ok, checksum ok"),
              std::string::npos)
        << road.transcript;
    EXPECT_NE(road.transcript.find("# ucp: answer A"), std::string::npos);
  }
}

TEST(UcpE2E, RefusalOfTheCentreIsReported) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"),
                 {"--centre", "ucp", "--opt", "letter=N", "--opt", "code=24"});
  folder.WriteIni(UcpIni(sim.pty_path(), "01", "320"));
  const RunResult result = RunKestrawind(folder.path(), {"12345", "abc"}, 30);
  EXPECT_EQ(result.out, "Error: [559] Error received from provider : Message too long.\r\n");
  const std::string transcript = WaitForTranscriptClose(sim.transcript_path(), 5000);
  // One frame, no second: a refusal is final. Then the line is hung up.
  const std::string sent = JoinedChunks(transcript, '>');
  EXPECT_EQ(sent.find("<STX>"), sent.rfind("<STX>")) << transcript;
  EXPECT_EQ(sent.substr(sent.size() - 3), "ATH") << transcript;
}

TEST(UcpE2E, MessageRefusedBeforeTheCallNeverDials) {
  TempFolder folder;
  folder.CopyKestrawind();
  SimProcess sim(folder.File("transcript.txt"), {"--centre", "ucp"});
  folder.WriteIni(UcpIni(sim.pty_path(), "01", "4"));
  const RunResult result = RunKestrawind(folder.path(), {"12345", "abc"}, 30);
  EXPECT_EQ(result.out, "Error: [554] Message too long. Only 4 allowed for this provider.\r\n");
  // Long enough for an open or a dial to reach the transcript, had there been one.
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const std::string transcript = ReadWholeFile(sim.transcript_path());
  EXPECT_EQ(transcript.find("ATDT"), std::string::npos) << transcript;
  EXPECT_EQ(transcript.find("-- open"), std::string::npos) << transcript;
}

}  // namespace
}  // namespace kw::e2e
