// The real program against kestrawind-sim over a pseudo-terminal, in real time: one run per kind
// of outcome, checked byte for byte on standard output and on the line. scripts/test-windows
// runs these suites against the Windows program under Wine as well.
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <thread>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

const std::string kUsage =
    "Kestrawind - Sends an sms message from the command line\r\n\r\n"
    "KESTRAWIND recipient [message] [/?]\r\n\r\n"
    "  recipient     Specifies the phone number of the recipient of this sms message.\r\n"
    "  sms_message   Specifies the message to send.\r\n"
    "  /?            Shows advanced syntax information.\r\n";
const char kPortTaken[] =
    "Error: [520] Error opening com port. Make sure no other application is using this port.\r\n";
/// The native program writes UTF-8 under this locale; the Windows one its ANSI code page, 1252.
const RunOptions kUtf8 = {{"LC_ALL=C.UTF-8"}};
/// A TAP centre that wants a password, and the ini lines that give it.
const std::vector<std::string> kTapSim = {"--centre", "tap", "--opt", "password=secret"};
const char kTapPassword[] = "Authentication=secret\r\n";
/// A whole TAP call of "hello" to 0612345678, as the transcript shows it (0x43D is the sum).
const std::string kTapCall =
    std::string("ATDT") + kCentre +
    "<CR><CR><ESC>PG1secret<CR><STX>0612345678<CR>hello<CR><ETX>43=<CR>ATH";

TEST(FrontendE2eTest, UsageAndBadInputGiveTheirLinesByteForByte) {
  const struct {
    std::vector<std::string> args;
    const char* ini;  // null: none
    std::string out;
  } cases[] = {
      {{}, nullptr, kUsage},
      {{"/?"},
       nullptr,
       kUsage + "  /LE           Writes errors to the application event log.\r\n"
                "  /LS           Writes succesful messages to the event log.\r\n"
                "  /DEBUG        Writes debugging information to the console.\r\n"},
      {{"/debug", "/le", "  ", "\"\""}, nullptr, kUsage},
      {{"0612", "hi"}, nullptr, "Error: [570] Configuration file not found.\r\n"},
      {{"0612"},
       "[Provider]\r\nProtocol=tap\r\n",
       "Error: [541] Unknown protocol specified : tap\r\n"},
      {{"call-me"}, "[Provider]\r\nProtocol=TAP\r\n", "Error: [581] No recipient specified.\r\n"},
      {{"0612", std::string(33000, 'x')},
       nullptr,
       "Error: [Unhandled][6] Overflow (in Kestrawind)\r\n"},
  };
  Rig rig;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    // Windows starts no program with a line over 32,767 characters.
    if (UnderWine() && c.args.size() > 1 && c.args[1].size() > 32767) continue;
    unlink(rig.File("kestrawind.ini").c_str());
    if (c.ini) rig.WriteIni(c.ini);
    const RunResult run = rig.Run(c.args);
    EXPECT_EQ(run.out, c.out);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
  }
}

TEST(DialE2E, FailedDialGivesItsErrorAndHangsUp) {
  Rig rig({"--dial-result", "BUSY"});
  rig.WriteIni(rig.Ini("TAP"));
  const RunResult result = rig.Run({"0612345678", "hello"});
  EXPECT_EQ(result.out, "Error: [526] The number is busy. Please try again later.\r\n");
  EXPECT_EQ(result.status, 0);
  const std::string transcript = rig.Transcript();
  EXPECT_EQ(Sent(transcript), std::string("ATDT") + kCentre + "<CR>") << transcript;
  EXPECT_EQ(Count(transcript, " -- close\n"), 1) << transcript;
}

TEST(DialE2E, SecondRunOnAHeldPortGets520AndTheFirstCallGoesOn) {
  Rig rig(kTapSim);
  rig.WriteIni(rig.Ini("TAP", kTapPassword));
  RunOptions first_options;
  pid_t first_pid = 0;
  first_options.started = [&first_pid](pid_t pid) { first_pid = pid; };
  RunResult first;
  std::thread run([&] { first = rig.Run({"0612345678", "hello"}, first_options); });
  rig.Transcript("> ATDT");  // the first run has the port
  const std::string lock = "/run/lock/LCK..pts_" + rig.pty().substr(rig.pty().rfind('/') + 1);
  const std::string held = ReadFile(lock);
  const RunResult second = rig.Run({"0612345678", "other"});
  run.join();
  EXPECT_EQ(second.out, kPortTaken);
  EXPECT_EQ(first.out, "Successfully sent message <hello> to recipient <0612345678>\r\n");
  const std::string transcript = rig.Transcript();
  EXPECT_EQ(Sent(transcript), kTapCall) << transcript;
  EXPECT_EQ(Count(transcript, " -- open\n"), 1) << transcript;
  if (!UnderWine()) {  // the Windows program holds a named mutex instead
    EXPECT_EQ(std::atoi(held.c_str()), first_pid) << held;
    EXPECT_NE(access(lock.c_str(), F_OK), 0) << "the lock file outlived the run";
  }
  // A port that is no device at all.
  const std::string ini = rig.Ini("TAP");
  rig.WriteIni(ini.substr(0, ini.rfind("1=")) + "1=no-such-tty\r\n");
  EXPECT_EQ(rig.Run({"0612345678", "hello"}).out, kPortTaken);
}

TEST(TapE2E, SendsTheBlockAndReportsSuccess) {
  Rig rig(kTapSim);
  rig.WriteIni(rig.Ini("TAP", kTapPassword));
  // Windows-1252 text: the line gets the same bytes from the native and the Windows program.
  // The arguments behind the recipient join with one blank; a quoted one keeps its own blanks.
  const RunResult result = rig.Run({"0612345678", "h\xE9llo  w\x80rld", "x"}, kUtf8);
  const std::string shown = UnderWine() ? "h\xE9llo  w\x80rld x" : "h\u00E9llo  w\u20ACrld x";
  EXPECT_EQ(result.out, "Successfully sent message <" + shown + "> to recipient <0612345678>\r\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
  // STX "0612345678" CR "h\xE9llo  w\x80rld x" CR ETX sums to 0x7D2; the transcript shows UTF-8.
  const std::string transcript = rig.Transcript();
  EXPECT_EQ(Sent(transcript), std::string("ATDT") + kCentre +
                                  "<CR><CR><ESC>PG1secret<CR><STX>0612345678<CR>h\u00E9llo  "
                                  "w\u20ACrld x<CR><ETX>7=2<CR>ATH")
      << transcript;
  EXPECT_NE(transcript.find("checksum ok, answer <ACK>"), std::string::npos) << transcript;
}

// The text is Windows-1252 ("a", e acute, the euro sign), which the frame carries as hex digits.
TEST(UcpE2E, EachOperationGoesOutAsItsFrameAndARefusalIsReported) {
  const struct {
    const char* op;
    std::vector<std::string> sim;
    std::string frame, answer, out;
  } cases[] = {
      {"01", {}, "01/00036/O/01/12345/678//3/61E980/D5", "A", ""},
      {"03", {}, "01/00050/O/03/12345/678/pw/0///////////3/61E980/EF", "A", ""},
      {"30", {}, "01/00040/O/30/12345/678////////61E980/8A", "A", ""},
      {"51", {}, "01/00065/O/51/12345/678/pw///////////////3//61E980/////////////B8", "A", ""},
      {"01",
       {"--opt", "letter=N", "--opt", "code=24"},
       "01/00036/O/01/12345/678//3/61E980/D5",
       "N 24",
       "Error: [559] Error received from provider : Message too long.\r\n"},
  };
  const size_t n = std::size(cases);
  // The runs wait in real time, so they go side by side; all is set up before the first fork.
  std::vector<std::unique_ptr<Rig>> rigs;
  for (const auto& c : cases) {
    std::vector<std::string> sim = {"--centre", "ucp"};
    sim.insert(sim.end(), c.sim.begin(), c.sim.end());
    rigs.push_back(std::make_unique<Rig>(sim));
    const std::string keys = "OpType=" + std::string(c.op) + "\r\nAuthentication=pw\r\n";
    rigs.back()->WriteIni(rigs.back()->Ini("UCP", keys + "TextLength=320\r\n") +
                          "[User]\r\nSenderNumber=678\r\n");
  }
  std::vector<RunResult> results(n);
  std::vector<std::thread> runs;
  for (size_t i = 0; i < n; ++i) {
    runs.emplace_back([&, i] { results[i] = rigs[i]->Run({"+12345", "a\xE9\x80"}, kUtf8); });
  }
  for (std::thread& run : runs) run.join();
  const std::string shown = UnderWine() ? "a\xE9\x80" : "a\u00E9\u20AC";
  for (size_t i = 0; i < n; ++i) {
    SCOPED_TRACE(cases[i].frame);
    const std::string sent = "Successfully sent message <" + shown + "> to recipient <+12345>\r\n";
    EXPECT_EQ(results[i].out, cases[i].out.empty() ? sent : cases[i].out);
    EXPECT_EQ(results[i].status, 0);
    // Dial, one frame (a refusal is final), the hang-up; the centre found the frame sound.
    const std::string transcript = rigs[i]->Transcript();
    EXPECT_EQ(Sent(transcript),
              "ATDT" + std::string(kCentre) + "<CR><STX>" + cases[i].frame + "<ETX>ATH")
        << transcript;
    EXPECT_NE(transcript.find("recipient 12345, sender 678"), std::string::npos) << transcript;
    EXPECT_NE(transcript.find("text \"a\u00E9\u20AC\", length ok, checksum ok"), std::string::npos)
        << transcript;
    EXPECT_NE(transcript.find("# ucp: answer " + cases[i].answer + "\n"), std::string::npos);
  }
}

// The trace shows ReportEventW's type, category and event ID as ",0x0001,0x0000,0x0000023a,".
TEST(WineE2E, ResultLinesReachReportEventWithTheirTypesAndIds) {
  if (!UnderWine()) GTEST_SKIP() << "needs the Windows program under Wine (scripts/test-windows)";
  Rig rig(kTapSim);
  // Wine stores no record; its event-log channel shows each one on standard error.
  const RunOptions traced = {{"WINEDEBUG=+eventlog,+advapi"}};
  const RunResult error = rig.Run({"/LE", "0612", "hi"}, traced);
  const std::string line = "Error: [570] Configuration file not found.";
  EXPECT_EQ(error.out, line + "\r\n");
  EXPECT_NE(error.err.find("ReportEventW L\"" + line + "\""), std::string::npos) << error.err;
  EXPECT_NE(error.err.find("RegisterEventSourceW ((null),L\"Kestrawind\")"), std::string::npos);
  EXPECT_NE(error.err.find(",0x0001,0x0000,0x0000023a,"), std::string::npos) << error.err;  // 570
  rig.WriteIni(rig.Ini("TAP", kTapPassword));
  const RunResult sent = rig.Run({"/LS", "0612", "hi"}, traced);
  const std::string success = "Successfully sent message <hi> to recipient <0612>";
  EXPECT_EQ(sent.out, success + "\r\n");
  EXPECT_NE(sent.err.find("ReportEventW L\"" + success + "\""), std::string::npos) << sent.err;
  EXPECT_NE(sent.err.find(",0x0004,0x0000,0x00000001,"), std::string::npos) << sent.err;  // sent
  EXPECT_EQ(rig.Run({"0612"}, traced).err.find("ReportEventW"), std::string::npos);
}

}  // namespace
}  // namespace kw::e2e
