// The ini file end to end: why it can't be read, a folder named in another script, UTF-8 text.
// scripts/test-windows runs these suites against the Windows program under Wine as well.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

// Under /DEBUG the line before the result names the ini that was looked for and why it failed,
// and the result line stays as it was. From a folder whose name the ANSI code page can't hold,
// and from UTF-8 text with and without a byte-order mark (Notepad's default), the run sends and
// shows the provider's name as it was written.
TEST(FrontendE2eTest, ReadsTheIniAsUtf8FromAnyFolderOrSaysWhyItCant) {
  const std::string id = "Id=Zo\u00EB T\u00E9l\u00E9com\r\n";
  const std::string shown = "\tProvider Id : Zo" +
                            std::string(UnderWine() ? "\xEB T\xE9l\xE9" : "\u00EB T\u00E9l\u00E9") +
                            "com\r\n";
  const std::string sent = "Successfully sent message <hello> to recipient <0612345678>\r\n";
  const struct {
    const char* folder;
    std::string mark;  // the bytes before the ini's own lines
    int mode;          // of the ini, -1 for none
    std::string cause, line;
  } cases[] = {
      {"", "", -1, UnderWine() ? "File not found" : "No such file or directory",
       "Error: [570] Configuration file not found.\r\n"},
      {"", "", 0, "Permission denied", "Error: [540] No protocol specified\r\n"},
      {"\xE7\x9F\xAD\xE4\xBF\xA1", "", 0644, "", sent},
      {"", "\xEF\xBB\xBF", 0644, "", sent},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line + c.folder);
    // Wine runs no program for a user who doesn't own its prefix.
    if (c.mode == 0 && UnderWine()) continue;
    Rig rig({"--centre", "tap", "--opt", "password=secret"}, c.folder);
    // The native program writes UTF-8 under this locale; the Windows one its ANSI code page.
    RunOptions options = {{"LC_ALL=C.UTF-8"}};
    if (c.mode >= 0) {
      rig.WriteIni(c.mark + rig.Ini("TAP", "Authentication=secret\r\n" + id));
      chmod(rig.File("kestrawind.ini").c_str(), c.mode);
    }
    if (c.mode == 0) {
      // Root reads any file: the run is then nobody's, for whom the folder must be open.
      chmod(rig.File("").c_str(), 0755);
      options.in_child = [] {
        if (geteuid() == 0 && (setgroups(0, nullptr) || setgid(65534) || setuid(65534))) _exit(126);
      };
    }
    const RunResult run = rig.Run({"/DEBUG", "0612345678", "hello"}, options);
    const std::string before = c.cause.empty()
                                   ? shown
                                   : "\tCause: " + ProgramPath(rig.File("kestrawind.ini")) + ": " +
                                         c.cause + "\r\n" + c.line;
    EXPECT_NE(run.out.find(before), std::string::npos) << run.out;
    EXPECT_EQ(run.out.substr(run.out.size() - std::min(run.out.size(), c.line.size())), c.line);
    EXPECT_EQ(run.status, 0);
  }
}

}  // namespace
}  // namespace kw::e2e
