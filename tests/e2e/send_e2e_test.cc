// The real program in real time: its lines byte for byte on standard output, the ini file beside
// it and the event log under Wine. scripts/test-windows runs these suites against the Windows
// program under Wine as well.
#include <unistd.h>

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

// Switches and blank arguments are no recipient.
TEST(FrontendE2eTest, UsageAndBadInputGiveTheirLinesByteForByte) {
  const struct {
    std::vector<std::string> args;
    std::string out;
  } cases[] = {
      {{}, kUsage},
      {{"/?"},
       kUsage + "  /LE           Writes errors to the application event log.\r\n"
                "  /LS           Writes succesful messages to the event log.\r\n"
                "  /DEBUG        Writes debugging information to the console.\r\n"},
      {{"/debug", "/le", "  ", "\"\""}, kUsage},
  };
  Rig rig;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.out);
    const RunResult run = rig.Run(c.args);
    EXPECT_EQ(run.out + run.err, c.out);
    EXPECT_EQ(run.status, 0);
  }
}

// From a folder whose name the ANSI code page can't hold (with UTF-8 text) and from UTF-8 text
// with a byte-order mark (Notepad's default), the run sends and shows the provider's name as it was
// written. Why an ini can't be read is kestrawind-send's to show (SendProgramE2E).
TEST(FrontendE2eTest, ReadsTheIniAsUtf8FromAnyFolder) {
  const std::string shown = "\tProvider Id : Zo" +
                            std::string(UnderWine() ? "\xEB T\xE9l\xE9" : "\u00EB T\u00E9l\u00E9") +
                            "com\r\n";
  for (const std::string mark : {"", "\xEF\xBB\xBF"}) {
    SCOPED_TRACE(mark);
    Rig rig({"--centre", "tap"}, mark.empty() ? "\xE7\x9F\xAD\xE4\xBF\xA1" : "");
    rig.WriteIni(mark + rig.Ini("TAP", "Id=Zo\u00EB T\u00E9l\u00E9com\r\n"));
    // The native program writes UTF-8 under this locale; the Windows one its ANSI code page.
    const std::string out = rig.Run({"/DEBUG", "0612345678", "hello"}, {{"LC_ALL=C.UTF-8"}}).out;
    EXPECT_NE(out.find(shown), std::string::npos) << out;
    EXPECT_EQ(out.substr(out.rfind("Successfully")), SuccessLine("hello"));
  }
}

// The trace shows ReportEventW's type, category and event ID as ",0x0001,0x0000,0x0000023a,".
TEST(WineE2E, ResultLinesReachReportEventWithTheirTypesAndIds) {
  if (!UnderWine()) GTEST_SKIP() << "needs the Windows program under Wine (scripts/test-windows)";
  Rig rig({"--centre", "tap"});
  // Wine stores no record; its event-log channel shows each one on standard error.
  const RunOptions traced = {{"WINEDEBUG=+eventlog,+advapi"}};
  const RunResult error = rig.Run({"/LE", "0612", "hi"}, traced);
  const std::string line = "Error: [570] Configuration file not found.";
  EXPECT_EQ(error.out, line + "\r\n");
  EXPECT_NE(error.err.find("ReportEventW L\"" + line + "\""), std::string::npos) << error.err;
  EXPECT_NE(error.err.find("RegisterEventSourceW ((null),L\"Kestrawind\")"), std::string::npos);
  EXPECT_NE(error.err.find(",0x0001,0x0000,0x0000023a,"), std::string::npos) << error.err;  // 570
  rig.WriteIni(rig.Ini("TAP"));
  const RunResult sent = rig.Run({"/LS", "0612", "hi"}, traced);
  const std::string success = "Successfully sent message <hi> to recipient <0612>";
  EXPECT_EQ(sent.out, success + "\r\n");
  EXPECT_NE(sent.err.find("ReportEventW L\"" + success + "\""), std::string::npos) << sent.err;
  EXPECT_NE(sent.err.find(",0x0004,0x0000,0x00000001,"), std::string::npos) << sent.err;  // sent
  EXPECT_EQ(rig.Run({"0612"}, traced).err.find("ReportEventW"), std::string::npos);
}

}  // namespace
}  // namespace kw::e2e
