// Runs the real binary and checks its standard output byte for byte.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>

#include "e2e/harness.h"

namespace kw::e2e {
namespace {

const std::string kUsage =
    "Kestrawind - Sends an sms message from the command line\r\n\r\n"
    "KESTRAWIND recipient [message] [/?]\r\n\r\n"
    "  recipient     Specifies the phone number of the recipient of this sms message.\r\n"
    "  sms_message   Specifies the message to send.\r\n"
    "  /?            Shows advanced syntax information.\r\n";
const std::string kExtendedUsage =
    kUsage +
    "  /LE           Writes errors to the application event log.\r\n"
    "  /LS           Writes succesful messages to the event log.\r\n"
    "  /DEBUG        Writes debugging information to the console.\r\n";

struct OutputCase {
  const char* name;
  std::vector<std::string> args;
  const char* ini;  // null: no kestrawind.ini beside the program
  std::string out;
};

TEST(FrontendE2eTest, StandardOutputIsByteExact) {
  const OutputCase cases[] = {
      {"no arguments", {}, nullptr, kUsage},
      {"/? alone", {"/?"}, nullptr, kExtendedUsage},
      {"/? with a recipient",
       {"/?", "0612"},
       nullptr,
       kExtendedUsage + "Error: [570] Configuration file not found.\r\n"},
      {"/DEBUG alone", {"/DEBUG"}, nullptr, kUsage},
      {"options only, any case", {"/debug", "/le", "/Ls"}, nullptr, kUsage},
      {"blank-only recipient", {"  ", "\"\""}, nullptr, kUsage},
      {"missing ini", {"0612", "hi"}, nullptr, "Error: [570] Configuration file not found.\r\n"},
      {"no protocol",
       {"0612", "hi"},
       "[Provider]\r\nId=x\r\n",
       "Error: [540] No protocol specified\r\n"},
      {"lower-case protocol",
       {"0612", "hi"},
       "[Provider]\r\nProtocol=tap\r\n",
       "Error: [541] Unknown protocol specified : tap\r\n"},
      {"command line too long",
       {"0612", std::string(33000, 'x')},
       nullptr,
       "Error: [Unhandled][6] Overflow (in Kestrawind)\r\n"},
      {"time-out not a number",
       {"0612"},
       "[Provider]\r\nProtocol=TAP\r\nSmsCenterNumber=0800\r\n[Modem]\r\nPort=1\r\n"
       "ConnectionTimeout=soon\r\n",
       "Error: [Unhandled][13] Type mismatch (in Kestrawind)\r\n"},
      {"port not a number",
       {"0612"},
       "[Provider]\r\nProtocol=TAP\r\n[Modem]\r\nPort=COM1\r\n",
       "Error: [Unhandled][13] Type mismatch (in Kestrawind)\r\n"},
      {"no digit in the recipient",
       {"call-me"},
       "[Provider]\r\nProtocol=TAP\r\n",
       "Error: [581] No recipient specified.\r\n"},
      {"ini is a folder", {"0612"}, "", "Error: [570] Configuration file not found.\r\n"},
  };
  for (const OutputCase& c : cases) {
    SCOPED_TRACE(c.name);
    // Windows starts no program with a line over 32,767 characters, so it can't see one.
    if (UnderWine() && c.args.size() > 1 && c.args[1].size() > 32767) continue;
    TempFolder folder;
    folder.CopyKestrawind();
    if (c.ini && *c.ini) folder.WriteIni(c.ini);
    if (c.ini && !*c.ini) {
      ASSERT_EQ(mkdir(folder.File("kestrawind.ini").c_str(), 0700), 0);
    }
    const RunResult run = RunKestrawind(folder.path(), c.args, 20);
    EXPECT_EQ(run.out, c.out);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
  }
}

/// The texts of the debug lines, each checked for its stamp and tab.
std::vector<std::string> DebugTexts(const std::string& out) {
  std::vector<std::string> texts;
  const std::regex stamped("^[^\t\r\n]*[0-9][^\t\r\n]*\t(.*)$");
  for (size_t at = 0; at < out.size();) {
    size_t end = out.find("\r\n", at);
    EXPECT_NE(end, std::string::npos) << "line without CR LF";
    if (end == std::string::npos) break;
    const std::string line = out.substr(at, end - at);
    std::smatch m;
    if (std::regex_match(line, m, stamped)) {
      texts.push_back(m[1]);
    } else {
      texts.push_back("NOT A DEBUG LINE: " + line);
    }
    at = end + 2;
  }
  return texts;
}

TEST(FrontendE2eTest, DebugShowsArgumentsAndSettings) {
  TempFolder folder;
  folder.CopyKestrawind();
  folder.WriteIni("[Provider]\r\nProtocol=tap\r\nAuthentication=pw\r\n[Modem]\r\nPort=3\r\n");
  const RunResult run = RunKestrawind(folder.path(), {"/DEBUG", "0612", "hello  world"}, 20);
  const std::string error = "Error: [541] Unknown protocol specified : tap\r\n";
  ASSERT_GE(run.out.size(), error.size());
  EXPECT_EQ(run.out.substr(run.out.size() - error.size()), error);
  const std::vector<std::string> texts =
      DebugTexts(run.out.substr(0, run.out.size() - error.size()));
  EXPECT_EQ(texts, (std::vector<std::string>{
                       "Sms Number : 0612", "Sms Message : hello  world", "",
                       "Using the following configuration settings:", "Protocol : tap",
                       "Authentication : pw", "Port : 3", "ConnectionTimeout : 20", ""}));
  EXPECT_EQ(run.err, "");
}

struct ArgumentCase {
  std::vector<std::string> args;
  const char* number;
  const char* message;
};

TEST(FrontendE2eTest, ArgumentsBecomeRecipientAndMessage) {
  const ArgumentCase cases[] = {
      {{"123", "hello", "/LS", "world"}, "123", "hello world"},
      {{"123", "hello", "/Unknown", "world"}, "123", "hello world"},
      {{"123", "\"/DEBUG\""}, "123", "/DEBUG"},
      {{" 123 ", "a  b", "c"}, "123", "a  b c"},
      {{"\"\"", "123", "x"}, "123", "x"},
      {{"123"}, "123", ""},
      {{"123", "say \"hi\""}, "123", "say \"hi"},
      {{"123", "-x", ">y"}, "123", "-x >y"},
  };
  TempFolder folder;
  folder.CopyKestrawind();
  folder.WriteIni("[Provider]\r\nProtocol=x\r\n");
  for (const ArgumentCase& c : cases) {
    std::vector<std::string> args = c.args;
    args.push_back("/debug");
    const RunResult run = RunKestrawind(folder.path(), args, 20);
    const std::vector<std::string> texts = DebugTexts(run.out);
    ASSERT_GE(texts.size(), 2u) << run.out;
    EXPECT_EQ(texts[0], std::string("Sms Number : ") + c.number);
    EXPECT_EQ(texts[1], std::string("Sms Message : ") + c.message);
  }
}

}  // namespace
}  // namespace kw::e2e
