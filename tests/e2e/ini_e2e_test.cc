// The ini file end to end: why it can't be read, a folder named in another script, UTF-8 text.
// scripts/test-windows runs these suites against the Windows program under Wine as well.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// The text behind the last debug line's time stamp: that line and what follows it.
std::string Tail(const std::string& out) { return out.substr(out.rfind('\t') + 1); }

/// The last line of the output.
std::string LastLine(const std::string& out) {
  return out.substr(out.size() < 3 ? 0 : out.rfind('\n', out.size() - 3) + 1);
}

// Under /DEBUG the line before the result names the ini that was looked for and why it failed;
// the result line stays as it was.
TEST(FrontendE2eTest, DebugSaysWhyTheIniCantBeRead) {
  const struct {
    bool ini;  // an ini that the user may not read; else none
    std::string reason, line;
  } cases[] = {
      {false, UnderWine() ? "File not found" : "No such file or directory",
       "Error: [570] Configuration file not found.\r\n"},
      {true, "Permission denied", "Error: [540] No protocol specified\r\n"},
  };
  Rig rig;
  const std::string ini = rig.File("kestrawind.ini");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    // Wine runs no program for a user who doesn't own its prefix.
    if (c.ini && UnderWine()) continue;
    unlink(ini.c_str());
    RunOptions options;
    if (c.ini) {
      rig.WriteIni(rig.Ini("TAP"));
      chmod(ini.c_str(), 0);
      // Root reads any file: the run is then nobody's, for whom the folder must be open.
      chmod(rig.File("").c_str(), 0755);
      options.in_child = [] {
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
          _exit(126);
        }
      };
    }
    const RunResult run = rig.Run({"/DEBUG", "0612", "hi"}, options);
    EXPECT_EQ(Tail(run.out), "Cause: " + ProgramPath(ini) + ": " + c.reason + "\r\n" + c.line)
        << run.out;
    EXPECT_EQ(run.status, 0);
  }
}

// A folder whose name the ANSI code page can't hold, and UTF-8 text with and without a byte-order
// mark (Notepad's default): the run sends and shows the provider's name as it was written.
TEST(TapE2E, SendsFromAnyFolderAndReadsUtf8) {
  const struct {
    const char* folder;
    std::string mark;
  } cases[] = {{"\xE7\x9F\xAD\xE4\xBF\xA1", ""}, {"", "\xEF\xBB\xBF"}};
  // The native program writes UTF-8 under this locale; the Windows one its ANSI code page, 1252.
  const RunOptions utf8 = {{"LC_ALL=C.UTF-8"}};
  const std::string shown =
      UnderWine() ? std::string("Zo\xEB T\xE9l\xE9") + "com" : "Zo\u00EB T\u00E9l\u00E9com";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    Rig rig({"--centre", "tap", "--opt", "password=secret"}, c.folder);
    rig.WriteIni(c.mark +
                 rig.Ini("TAP", "Authentication=secret\r\nId=Zo\u00EB T\u00E9l\u00E9com\r\n"));
    const RunResult run = rig.Run({"/DEBUG", "0612345678", "hello"}, utf8);
    EXPECT_NE(run.out.find("\tProvider Id : " + shown + "\r\n"), std::string::npos) << run.out;
    EXPECT_EQ(LastLine(run.out), "Successfully sent message <hello> to recipient <0612345678>\r\n");
  }
}

}  // namespace
}  // namespace kw::e2e
