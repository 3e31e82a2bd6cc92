// kestrawind-send, the program for scripts, against kestrawind-sim over a pseudo-terminal: the
// exit status and the one line on standard error for each cause, kestrawind's lines on standard
// output, the wait for a held port, and the message from standard input. scripts/test-windows
// runs the rows marked for it against the Windows program under Wine as well.
#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

#include "e2e/harness.h"
#include "frontend/error_statuses.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

const std::string kPortTaken =
    "Error: [520] Error opening com port. Make sure no other application is using this port.\r\n";
/// A message that the TAP centre takes: what kestrawind prints for it.
const std::string kSent = "Successfully sent message <hello> to recipient <0612345678>\r\n";
/// The native program writes UTF-8 under this locale.
const char kUtf8[] = "LC_ALL=C.UTF-8";

/// Runs the child as nobody when the tests run as root, whom no permission stops.
void AsNobody() {
  if (getuid() != 0) return;
  const gid_t none = 65534;
  if (setgroups(0, nullptr) != 0 || setgid(none) != 0 || setuid(65534) != 0) _exit(126);
}

TEST(SendProgramTest, StatusTableHoldsExactlyTheErrorsThatTheProgramRaises) {
  std::set<std::string> raised, table;
  // AppError(kName, ...) is shown as [n], Error(kName, kProgramSource, ...) as [Unhandled][n]; a
  // bare number has no row.
  const std::regex raise(R"((App)?Error\((\w+),\s*(kProgramSource)?)");
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(std::string(KW_SOURCE_DIR) + "/src")) {
    const std::string path = entry.path().string();
    // Not the simulator nor tests; the serial errors reach the user only inside 520 and 521.
    if (entry.path().extension() != ".cc" || path.find("/src/sim/") != std::string::npos ||
        path.find("_test.cc") != std::string::npos ||
        path.find("serial_errors") != std::string::npos) {
      continue;
    }
    const std::string code = ReadFile(path);
    for (std::sregex_iterator m(code.begin(), code.end(), raise), end; m != end; ++m) {
      if ((*m)[1].matched) raised.insert("[" + (*m)[2].str() + "]");
      if ((*m)[3].matched) raised.insert("[Unhandled][" + (*m)[2].str() + "]");
    }
  }
  for (const ErrorStatusRow& row : kErrorStatusRows) {
    table.insert((row.number < 0 ? "[k" : "[Unhandled][k") + std::string(row.name) + "]");
  }
  EXPECT_GT(raised.size(), 30u);  // the scan found the sources
  EXPECT_EQ(raised, table);
}

// One row per cause; the runs wait in real time, so they go side by side. A row with a reason
// also runs kestrawind under /DEBUG, which names the same cause in the line before its result.
TEST(SendProgramE2E, EachCauseGivesItsStatusOneLineOnStandardErrorAndKestrawindsLines) {
  enum Setup { kNone, kMissing, kPlainFile, kNoPermission, kUnreadableIni, kNoIni, kHeld };
  const struct {
    Setup setup;
    std::vector<std::string> sim, args;
    int status;
    std::string out, err;  // in err, PATH stands for the row's device or ini
    std::string reason;
    bool wine;  // runs under Wine too, where only the status and the output are compared
  } rows[] = {
      {kNone, {}, {"0612345678", "hello"}, 0, kSent, "", "", true},
      {kMissing,
       {},
       {"0612345678", "hello"},
       72,
       kPortTaken,
       "PATH: ",
       "No such file or directory",
       true},
      {kPlainFile,
       {},
       {"0612", "hi"},
       72,
       kPortTaken,
       "PATH: ",
       "Inappropriate ioctl for device",
       true},
      {kNoPermission, {}, {"0612", "hi"}, 77, kPortTaken, "PATH: Permission denied", "", false},
      {kUnreadableIni,
       {},
       {"0612", "hi"},
       77,
       "Error: [540] No protocol specified\r\n",
       "PATH: Permission denied",
       "",
       false},
      {kNoIni,
       {},
       {"0612", "hi"},
       78,
       "Error: [570] Configuration file not found.\r\n",
       "PATH: No such file or directory",
       "",
       true},
      {kNone,
       {"--opt", "block=rs"},
       {"0612345678", "hello"},
       69,
       "Error: [538] The message was rejected by the provider.\r\n",
       "The message was rejected by the provider.",
       "",
       false},
      {kHeld,
       {},
       {"--wait", "2", "0612", "hi"},
       75,
       kPortTaken,
       "PATH: in use by another program (held with flock), still after waiting 2 s",
       "",
       false},
  };
  std::vector<std::unique_ptr<Rig>> rigs;
  std::vector<std::string> paths;
  std::vector<RunOptions> options;
  std::vector<int> held;  // descriptors that hold a port with flock, as terminal programs do
  for (const auto& row : rows) {
    std::vector<std::string> sim = {"--centre", "tap", "--runs", "0"};
    sim.insert(sim.end(), row.sim.begin(), row.sim.end());
    rigs.push_back(std::make_unique<Rig>(sim));
    const Rig& rig = *rigs.back();
    std::string ini = rig.Ini("TAP"), path = rig.pty();
    options.push_back({{kUtf8}});
    options.back().send = true;
    if (row.setup == kMissing || row.setup == kPlainFile) {
      path = rig.File(row.setup == kMissing ? "no-such-tty" : "plain");
      if (row.setup == kPlainFile) std::ofstream(path) << "x";
      // The Windows program names the same file on drive Z:.
      const std::string named =
          UnderWine() ? "Z:" + std::regex_replace(path, std::regex("/"), "\\") : path;
      ini = ini.substr(0, ini.rfind("1=")) + "1=" + named + "\r\n";
    } else if (row.setup == kNoPermission || row.setup == kUnreadableIni) {
      if (row.setup == kUnreadableIni) path = rig.File("kestrawind.ini");
      options.back().in_child = AsNobody;
      chmod(rig.File("").c_str(), 0755);  // nobody may start the programs
    } else if (row.setup == kHeld) {
      held.push_back(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
      EXPECT_EQ(flock(held.back(), LOCK_EX | LOCK_NB), 0);
    }
    if (row.setup == kNoIni) path = rig.File("kestrawind.ini");
    if (row.setup != kNoIni) rig.WriteIni(ini);
    if (row.setup == kNoPermission || row.setup == kUnreadableIni) chmod(path.c_str(), 0);
    paths.push_back(path);
  }
  std::vector<RunResult> results(rigs.size());
  std::vector<std::thread> runs;
  for (size_t i = 0; i < rigs.size(); ++i) {
    if (UnderWine() && !rows[i].wine) continue;
    runs.emplace_back([&, i] { results[i] = rigs[i]->Run(rows[i].args, options[i]); });
  }
  for (std::thread& run : runs) run.join();
  for (int fd : held) close(fd);
  for (size_t i = 0; i < rigs.size(); ++i) {
    const auto& row = rows[i];
    SCOPED_TRACE(std::to_string(i) + ": " + row.err);
    if (UnderWine() && !row.wine) continue;
    EXPECT_EQ(results[i].status, row.status);
    EXPECT_EQ(results[i].out, row.out);
    if (UnderWine()) continue;
    const std::string err = std::regex_replace(row.err, std::regex("PATH"), paths[i]);
    EXPECT_EQ(results[i].err, row.status == 0 ? "" : "kestrawind-send: " + err + row.reason + "\n");
    const std::string transcript = rigs[i]->Transcript(" -- ", 0);
    EXPECT_EQ(Sent(transcript).empty(), row.status != 0 && row.status != 69) << transcript;
    if (row.reason.empty()) continue;
    const RunResult debug = rigs[i]->Run({"/DEBUG", "0612", "hi"});
    EXPECT_NE(debug.out.find("\tCause: " + paths[i] + ": " + row.reason + "\r\n" + kPortTaken),
              std::string::npos)
        << debug.out;
    EXPECT_EQ(debug.out.substr(debug.out.size() - kPortTaken.size()), kPortTaken);
  }
}

TEST(SendProgramE2E, ThreeRunsStartedTogetherAllSendOneAfterTheOther) {
  Rig rig({"--centre", "tap", "--runs", "0"});
  rig.WriteIni(rig.Ini("TAP"));
  RunOptions send;
  send.send = true;
  std::vector<RunResult> results(3);
  std::vector<std::thread> runs;
  for (size_t i = 0; i < results.size(); ++i) {
    runs.emplace_back([&, i] { results[i] = rig.Run({"0612345678", "hello"}, send); });
  }
  for (std::thread& run : runs) run.join();
  for (const RunResult& result : results) {
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kSent);
  }
  const std::string transcript = rig.Transcript("checksum ok", 3);
  EXPECT_EQ(Count(transcript, "checksum ok"), 3) << transcript;
  EXPECT_EQ(Count(transcript, " -- open\n"), 3) << transcript;
}

// From a shell: the message on standard input, a text that Windows-1252 lacks, and bad input,
// which sends nothing.
TEST(SendProgramE2E, TextFromStandardInputAWarningForTheCodePageAndBadInput) {
  const struct {
    const char* shell;
    int status;
    std::string out, err;
  } rows[] = {
      {"printf 'from stdin\\n' | ./kestrawind-send 0612345", 0,
       "Successfully sent message <from stdin> to recipient <0612345>\r\n", ""},
      {"./kestrawind-send 0612345 '\u0414\u0436 ok' </dev/null", 0,
       "Successfully sent message <\u0414\u0436 ok> to recipient <0612345>\r\n",
       "kestrawind-send: warning: the line's code page (Windows-1252) has no U+0414 \u0414, U+0436 "
       "\u0436; each goes out as \"?\"\n"},
      {"printf '\\n' | ./kestrawind-send 0612", 64, "",
       "kestrawind-send: standard input holds no text; nothing was sent\n"},
      {"printf 'a\\0b' | ./kestrawind-send 0612", 64, "",
       "kestrawind-send: standard input holds binary data, not text; nothing was sent\n"},
      {"./kestrawind-send 0612 hi --bogus", 64, "",
       "kestrawind-send: unknown option \"--bogus\" (see --help; put -- before a message that "
       "begins with --)\n"},
      {"./kestrawind-send 0612 hi --wait", 64, "",
       "kestrawind-send: --wait needs a number of seconds\n"},
      {"./kestrawind-send --wait=soon 0612 hi", 64, "",
       "kestrawind-send: --wait needs a number of seconds, not \"soon\"\n"},
      {"./kestrawind-send --config /tmp 0612 hi", 78,
       "Error: [570] Configuration file not found.\r\n", "kestrawind-send: /tmp: Is a directory\n"},
      {"./kestrawind-send /DEBUG </dev/null", 64,
       "Kestrawind - Sends an sms message from the command line\r\n\r\n"
       "KESTRAWIND recipient [message] [/?]\r\n\r\n"
       "  recipient     Specifies the phone number of the recipient of this sms message.\r\n"
       "  sms_message   Specifies the message to send.\r\n"
       "  /?            Shows advanced syntax information.\r\n",
       "kestrawind-send: no recipient given (see --help)\n"},
  };
  Rig rig({"--centre", "tap", "--runs", "0"});
  rig.WriteIni(rig.Ini("TAP"));
  RunOptions shell{{kUtf8}};
  shell.program = "/bin/bash";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.shell);
    const RunResult result = rig.Run({"-c", row.shell}, shell);
    EXPECT_EQ(result.status, row.status);
    EXPECT_EQ(result.out, row.out);
    EXPECT_EQ(result.err, row.err);
    usleep(100000);  // two runs in a row against one simulator need a moment between them
  }
  const std::string transcript = rig.Transcript("checksum ok", 2);
  EXPECT_EQ(Sent(transcript), std::string("ATDT") + kCentre +
                                  "<CR><CR><ESC>PG1<CR><STX>0612345<CR>from stdin<CR><ETX>"
                                  "57:<CR>ATHATDT" +
                                  kCentre +
                                  "<CR><CR><ESC>PG1<CR><STX>0612345<CR>?? ok<CR><ETX>"
                                  "2?<<CR>ATH")
      << transcript;
  // The options that need no settings and no recipient.
  RunOptions send;
  send.send = true;
  const RunResult help = rig.Run({"--help"}, send), version = rig.Run({"--version"}, send);
  EXPECT_EQ(help.status + version.status, 0);
  EXPECT_NE(help.out.find("\r\n  --wait SECONDS  wait that long for a port"), std::string::npos);
  EXPECT_TRUE(std::regex_match(version.out, std::regex("kestrawind-send \\(Kestrawind\\) "
                                                       "[0-9]+\\.[0-9]+\\.[0-9]+\r\n")))
      << version.out;
}

}  // namespace
}  // namespace kw::e2e
