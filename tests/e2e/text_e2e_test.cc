// End-to-end runs of text through locales and ini encodings: the real binary sends a TAP block
// over a pseudo-terminal, and the test looks at the bytes on the line and on standard output.
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "gtest/gtest.h"

namespace kw::e2e {
namespace {

/// The bytes in UTF-16LE behind a byte-order mark, as Windows saves a "Unicode" file (ASCII in).
std::string Utf16LeWithBom(const std::string& ascii) {
  std::string out = "\xFF\xFE";
  for (char c : ascii) out += std::string{c, '\0'};
  return out;
}

struct TextCase {
  const char* name;
  bool latin1;             // under a Latin-1 locale; else with no locale at all (env -i)
  std::string message;     // the message argument's bytes
  std::string on_line;     // the message as the transcript shows it (line bytes as UTF-8)
  std::string console;     // the message's bytes in the success line
  bool utf16_ini = false;  // the ini saved as UTF-16LE with a byte-order mark
};

TEST(TextE2E, LocalesAndIniEncodingsGiveTheRightBytes) {
  // A Latin-1 locale of our own, so that no installed one is needed (the locales package's
  // sources and localedef are; scripts/install-deps brings them).
  TempFolder locales;
  ASSERT_EQ(std::system(("localedef -i en_US -f ISO-8859-1 " + locales.File("en_US.ISO-8859-1") +
                         " >/dev/null 2>&1")
                            .c_str()),
            0)
      << "localedef can't build a Latin-1 locale";
  const std::string e_acute = "\xC3\xA9";  // é in UTF-8
  const TextCase cases[] = {
      // Under cron, systemd or env -i: UTF-8 in, one byte 0xE9 on the line, UTF-8 out.
      {"no locale, UTF-8 text", false, "caf" + e_acute, "caf" + e_acute, "caf" + e_acute},
      {"no locale, Windows-1252 byte", false, "caf\xE9", "caf" + e_acute, "caf" + e_acute},
      {"no locale, UTF-16LE ini", false, "hello", "hello", "hello", true},
      // A real 8-bit locale keeps its own reading: UTF-8 bytes are two characters there.
      {"Latin-1, its own byte", true, "caf\xE9", "caf" + e_acute, "caf\xE9"},
      {"Latin-1, UTF-8 bytes", true, "caf" + e_acute, "caf\xC3\x83\xC2\xA9", "caf" + e_acute},
  };
  // Everything is set up before the runs start together: a binary still open for writing in
  // one thread's copy would be inherited by another thread's child, and exec would fail.
  std::vector<std::unique_ptr<TempFolder>> folders;
  std::vector<std::unique_ptr<SimProcess>> sims;
  std::vector<std::vector<std::string>> environments(std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    const TextCase& c = cases[i];
    folders.push_back(std::make_unique<TempFolder>());
    folders[i]->CopyKestrawind();
    sims.push_back(std::make_unique<SimProcess>(folders[i]->File("transcript.txt"),
                                                std::vector<std::string>{"--centre", "tap"}));
    const std::string ini = IniForSim("TAP", sims[i]->pty_path());
    folders[i]->WriteIni(c.utf16_ini ? Utf16LeWithBom(ini) : ini);
    if (c.latin1) environments[i] = {"LOCPATH=" + locales.path(), "LANG=en_US.ISO-8859-1"};
  }
  std::vector<RunResult> results(std::size(cases));
  std::vector<std::thread> runs;
  for (size_t i = 0; i < std::size(cases); ++i) {
    runs.emplace_back([&, i] {
      results[i] = RunKestrawind(folders[i]->path(), {"0612", cases[i].message}, 60,
                                 WithEnvironment(environments[i], true));
    });
  }
  for (std::thread& run : runs) run.join();
  for (size_t i = 0; i < std::size(cases); ++i) {
    const TextCase& c = cases[i];
    SCOPED_TRACE(c.name);
    EXPECT_EQ(results[i].out,
              "Successfully sent message <" + c.console + "> to recipient <0612>\r\n");
    const std::string transcript = WaitForTranscriptClose(sims[i]->transcript_path(), 5000);
    EXPECT_NE(JoinedChunks(transcript, '>').find("<STX>0612<CR>" + c.on_line + "<CR><ETX>"),
              std::string::npos)
        << transcript;
  }
}

}  // namespace
}  // namespace kw::e2e
