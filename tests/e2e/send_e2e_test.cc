// Both programs in real time, against kestrawind-sim over a pseudo-terminal: kestrawind's lines
// byte for byte on standard output, the ini file beside it and the event log under Wine; and
// kestrawind-send, the program for scripts: the exit status and the one line on standard error
// for each cause, kestrawind's lines on standard output, the wait for a held port, and the
// message from standard input. scripts/test-windows runs these suites (for kestrawind-send the
// rows marked for it) against the Windows programs under Wine as well.
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <thread>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// The native program writes UTF-8 under this locale.
const char kUtf8[] = "LC_ALL=C.UTF-8";
// Twelve digits: the longest count that the simulator takes.
const std::vector<std::string> kTapSim = {"--centre", "tap", "--runs", "000000000000"};
const std::string kUsage =
    "Kestrawind - Sends an sms message from the command line\r\n\r\n"
    "KESTRAWIND recipient [message] [/?]\r\n\r\n"
    "  recipient     Specifies the phone number of the recipient of this sms message.\r\n"
    "  sms_message   Specifies the message to send.\r\n"
    "  /?            Shows advanced syntax information.\r\n";

// Switches and blank arguments are no recipient.
TEST(FrontendE2eTest, UsageAndBadInputGiveTheirLinesByteForByte) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, kUsage},
      {{"/?"},
       kUsage + "  /LE           Writes errors to the application event log.\r\n"
                "  /LS           Writes succesful messages to the event log.\r\n"
                "  /DEBUG        Writes debugging information to the console.\r\n"},
      {{"/debug", "/le", "  ", "\"\""}, kUsage},
  };
  Rig rig;
  for (const auto& [args, out] : cases) {
    SCOPED_TRACE(out);
    const RunResult run = rig.Run(args);
    EXPECT_EQ(run.out + run.err, out);
  }
}

// From a folder whose name the ANSI code page can't hold, UTF-8 text without a byte-order mark
// (profile_test has the mark): the run sends and shows the provider's name as it was written.
// Why an ini can't be read is kestrawind-send's to show (below).
TEST(FrontendE2eTest, ReadsTheIniAsUtf8FromAnyFolder) {
  const std::string id = "Zo\u00EB T\u00E9l\u00E9com";
  // The Windows program writes its ANSI code page.
  const std::string shown = UnderWine() ? std::string("Zo\xEB T\xE9l\xE9") + "com" : id;
  Rig rig({"--centre", "tap"}, "\xE7\x9F\xAD\xE4\xBF\xA1");
  rig.WriteIni(PortIni("TAP", ProgramPath(rig.pty()), "Id=" + id + "\r\n"));
  const std::string out = rig.Run({"/DEBUG", "0612345678", "hello"}, {"kestrawind", {kUtf8}}).out;
  EXPECT_NE(out.find("\tProvider Id : " + shown + "\r\n"), std::string::npos) << out;
  EXPECT_EQ(out.substr(out.rfind("Successfully")), SuccessLine("hello"));
}

// The trace shows ReportEventW's type, category and event ID as ",0x0001,0x0000,0x0000023a,".
TEST(WineE2E, ResultLinesReachReportEventWithTheirTypesAndIds) {
  if (!UnderWine()) GTEST_SKIP() << "needs the Windows program under Wine (scripts/test-windows)";
  Rig rig({"--centre", "tap"});
  std::remove(rig.File("kestrawind.ini").c_str());
  // Wine stores no record; its event-log channel shows each one on standard error.
  const RunOptions traced = {"kestrawind", {"WINEDEBUG=+eventlog,+advapi"}};
  const RunResult error = rig.Run({"/LE", "0612", "hi"}, traced);
  const std::string line = "Error: [570] Configuration file not found.";
  EXPECT_EQ(error.out, line + "\r\n");
  EXPECT_NE(error.err.find("ReportEventW L\"" + line + "\""), std::string::npos) << error.err;
  EXPECT_NE(error.err.find("RegisterEventSourceW ((null),L\"Kestrawind\")"), std::string::npos);
  EXPECT_NE(error.err.find(",0x0001,0x0000,0x0000023a,"), std::string::npos) << error.err;  // 570
  rig.WriteIni(PortIni("TAP", ProgramPath(rig.pty())));
  const RunResult sent = rig.Run({"/LS", "0612", "hi"}, traced);
  const std::string success = "Successfully sent message <hi> to recipient <0612>";
  EXPECT_EQ(sent.out, success + "\r\n");
  EXPECT_NE(sent.err.find("ReportEventW L\"" + success + "\""), std::string::npos) << sent.err;
  EXPECT_NE(sent.err.find(",0x0004,0x0000,0x00000001,"), std::string::npos) << sent.err;  // sent
  EXPECT_EQ(rig.Run({"0612"}, traced).err.find("ReportEventW"), std::string::npos);
}

TEST(SendProgramE2E, EachCauseGivesItsStatusOneLineOnStandardErrorAndKestrawindsLines) {
  enum Setup { kNone, kMissing, kPlainFile, kNoPermission, kUnreadableIni, kNoIni, kReject, kHeld };
  const struct {
    Setup setup;
    int status;
    std::string out, err;  // in err, PATH stands for the row's device or ini
    bool wine;             // under Wine only the status and the output are compared
  } rows[] = {
      {kNone, 0, SuccessLine("hello"), "", true},
      {kMissing, 72, kPortTaken, "PATH: No such file or directory", true},
      {kPlainFile, 72, kPortTaken, "PATH: Inappropriate ioctl for device", true},
      {kNoPermission, 77, kPortTaken, "PATH: Permission denied", false},
      {kUnreadableIni, 77, "Error: [540] No protocol specified\r\n", "PATH: Permission denied",
       false},
      {kNoIni, 78, "Error: [570] Configuration file not found.\r\n",
       "PATH: No such file or directory", true},
      {kReject, 69, "Error: [538] The message was rejected by the provider.\r\n",
       "The message was rejected by the provider.", false},
      {kHeld, 75, kPortTaken,
       "PATH: in use by another program (held with flock), still after waiting 2 s", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.err);
    if (UnderWine() && !row.wine) continue;
    std::vector<std::string> sim = kTapSim, args = {"0612345678", "hello"};
    if (row.setup == kReject) sim.insert(sim.end(), {"--opt", "block=rs"});
    if (row.setup == kHeld) args.insert(args.begin(), {"--wait", "2"});
    const Rig rig(sim);
    std::ofstream(rig.File("plain")) << "x";
    std::string path = row.setup == kMissing     ? rig.File("no-such-tty")
                       : row.setup == kPlainFile ? rig.File("plain")
                                                 : rig.pty();
    rig.WriteIni(PortIni("TAP", ProgramPath(path)));
    if (row.setup == kUnreadableIni || row.setup == kNoIni) path = rig.File("kestrawind.ini");
    if (row.setup == kNoIni) std::remove(path.c_str());
    RunOptions options{"kestrawind-send", {kUtf8}};
    if (row.setup == kNoPermission || row.setup == kUnreadableIni) {
      options.in_child = AsNobody;        // whom permissions stop
      chmod(rig.File("").c_str(), 0755);  // nobody may start the programs
      chmod(path.c_str(), 0);
    }
    // A hold with flock, as terminal programs take it.
    const int held = row.setup == kHeld ? open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;
    EXPECT_TRUE(held < 0 || flock(held, LOCK_EX | LOCK_NB) == 0);
    const RunResult result = rig.Run(args, options);
    close(held);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out, row.out);
    if (UnderWine()) continue;
    const std::string err = row.err.rfind("PATH", 0) == 0 ? path + row.err.substr(4) : row.err;
    EXPECT_EQ(result.err, row.status == 0 ? "" : "kestrawind-send: " + err + "\n");
    EXPECT_EQ(Sent(rig.Transcript(" -- ", 0)).empty(), row.status != 0 && row.status != 69);
  }
}

TEST(SendProgramE2E, ThreeRunsStartedTogetherAllSendOneAfterTheOther) {
  Rig rig(kTapSim);
  const RunOptions send{"kestrawind-send", {}};
  const auto run = [&] { EXPECT_EQ(rig.Run({"0612", "hi"}, send).out, SuccessLine("hi", "0612")); };
  std::thread others[] = {std::thread(run), std::thread(run)};
  run();
  for (std::thread& other : others) other.join();
  const std::string transcript = rig.Transcript("checksum ok", 3);
  EXPECT_EQ(Count(transcript, "checksum ok"), 3) << transcript;
  EXPECT_EQ(Count(transcript, " -- open\n"), 3) << transcript;
}

// From a shell: the message on standard input, a text that Windows-1252 lacks, input that sends
// nothing, the help and the version, which need no settings, and an ini that is a folder; and
// the simulator's help.
TEST(SendProgramE2E, TextFromStandardInputAWarningForTheCodePageAndBadInput) {
  const struct {
    const char* shell;
    int status;
    std::string out, err;
  } rows[] = {
      {"printf 'from stdin\\n' | ./kestrawind-send 0612345", 0,
       SuccessLine("from stdin", "0612345"), ""},
      {"./kestrawind-send 0612345 '\u0414\u0436 ok' </dev/null", 0,
       SuccessLine("\u0414\u0436 ok", "0612345"),
       "kestrawind-send: warning: the line's code page (Windows-1252) has no U+0414 \u0414, U+0436 "
       "\u0436; each goes out as \"?\"\n"},
      {"printf '\\n' | ./kestrawind-send 0612", 64, "",
       "kestrawind-send: standard input holds no text; nothing was sent\n"},
      {"./kestrawind-send --help | grep -c -- --wait; exit ${PIPESTATUS[0]}", 0, "1\n", ""},
      {"./kestrawind-send --version | sed 's/[0-9]\\+/N/g'; exit ${PIPESTATUS[0]}", 0,
       "kestrawind-send (Kestrawind) N.N.N\r\n", ""},
      {KW_SIM_BINARY " --help | head -1", 0, "Usage: kestrawind-sim [OPTION]...\n", ""},
      {"./kestrawind-send --config /tmp 0612 hi", 78,
       "Error: [570] Configuration file not found.\r\n", "kestrawind-send: /tmp: Is a directory\n"},
  };
  Rig rig(kTapSim);
  const RunOptions shell{"/bin/bash", {kUtf8}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.shell);
    const RunResult result = rig.Run({"-c", row.shell}, shell);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out + result.err, row.out + row.err);
    usleep(100000);  // two runs in a row against one simulator need a moment between them
  }
}

}  // namespace
}  // namespace kw::e2e
