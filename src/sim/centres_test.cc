// The program's own tests only send sound blocks and frames; the simulated centres must refuse
// the others, or a broken block or frame would pass end to end.
#include "line_fixture.h"
#include "sim/centre_factory.h"

namespace kw::sim {

TEST(CentresTest, AnswerOnlyTheBlocksAndFramesTheyCanTrust) {
  const std::string login = "\r\x1bPG1\r\002123\r", loggedIn = "50:ID=50:\x06\x1b[p\r150:";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"tap", login + "abc\r\0031=;\r", loggedIn + "\x06"},
      {"tap", login + "abc\r\0031DB\r", loggedIn + "\x15"},  // checksum
      {"tap", login + "\0030:8\r", loggedIn + "\x15"},       // no CR behind the message
      {"tap", login + "abc\0031<>\r", loggedIn + "\x15"},    // nor behind the recipient's alone
      // Noise, then a frame in two pieces.
      {"ucp", "ATH\00201/00036/O/01/12345/678//3/616263/C0\x03", "01/00019/R/01/A//69"},
      {"ucp", "ATH\00201/00036/O/01/12345/678//3/616263/C1\x03", "01/00022/R/01/N/01//00"},
      {"ucp", "ATH\00201/00035/O/01/12345/678//3/616263/BF\x03", "01/00022/R/01/N/02//01"},
      {"ucp", "ATH\00201/00017/O/99//05\x03", "01/00022/R/99/N/03//13"},
      // Two frames back to back: the first one's end is no start of the second.
      {"ucp", "\00201/00017/O/99//05\x03\00201/00017/O/99//05\x03",
       "01/00022/R/99/N/03//13\003300:\00201/00022/R/99/N/03//13"},
  };
  for (const auto& [kind, bytes, answer] : cases) {
    const std::unique_ptr<Peer> centre = MakeCentre(kind, {});
    test::RecordingLine line;
    centre->OnBytes(0, bytes.substr(0, 10), line);
    centre->OnBytes(100, bytes.substr(10), line);
    EXPECT_EQ(line.log, kind[0] == 't' ? answer : "300:\x02" + answer + "\x03") << bytes;
  }
}

// Option texts: a number must be one, "\xHH" is a byte; and a centre that drops the line answers
// nothing more.
TEST(CentresTest, ReadTheirOptionsAndFallSilentOnceTheyDrop) {
  EXPECT_THROW(MakeCentre("ucp", {{"delay_ms", "x"}}), std::invalid_argument);
  const auto log = [](const char* kind, const std::map<std::string, std::string>& options) {
    test::RecordingLine line;
    MakeCentre(kind, options)
        ->OnBytes(0, kind[0] == 't' ? "\r\r" : "\00201/00017/O/99//05\x03", line);
    return line.log;
  };
  EXPECT_EQ(log("ucp", {{"prefix", "\\x30\\x3A\\x3a"}, {"truncate", "3"}}), "200:0::");
  EXPECT_EQ(log("tap", {{"drop", "probe:1"}}), "50:ID=[no CD]");  // one prompt
}

}  // namespace kw::sim
