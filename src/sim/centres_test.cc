// The program's own tests only send sound blocks and frames; the simulated centres must refuse
// the others, or a broken block or frame would pass end to end.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "sim/tap_centre.h"
#include "sim/ucp_centre.h"

namespace kw::sim {
namespace {

/// Keeps the bytes a centre puts on its line.
class RecordingLine : public PeerLine {
 public:
  void SendAt(int64_t, const std::string& bytes) override { sent += bytes; }
  void SetCarrier(bool) override {}
  void Note(const std::string&) override {}
  std::string sent;
};

TEST(TapCentreTest, NaksABlockItCantTrust) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"123\rabc\r", "1=;", kTapAck},
      {"123\rabc\r", "1DB", kTapNak},  // checksum
      {"123\r", "0:8", kTapNak},       // no CR behind the message
  };
  for (const auto& [fields, sum, answer] : cases) {
    TapCentre centre{TapScenario{}};
    RecordingLine line;
    centre.OnBytes(0, "\r\x1bPG1\r", line);
    line.sent.clear();
    centre.OnBytes(1000, "\x02" + fields + "\x03" + sum + "\r", line);
    EXPECT_EQ(line.sent, answer) << fields << sum;
  }
}

TEST(UcpCentreTest, RefusesAFrameItCantTrust) {
  const std::pair<std::string, std::string> cases[] = {
      {"01/00036/O/01/12345/678//3/616263/C0", "01/00019/R/01/A//69"},
      {"01/00036/O/01/12345/678//3/616263/C1", "01/00022/R/01/N/01//00"},  // checksum
      {"01/00035/O/01/12345/678//3/616263/BF", "01/00022/R/01/N/02//01"},  // length
      {"01/00017/O/99//05", "01/00022/R/99/N/03//13"},                     // operation
  };
  for (const auto& [frame, reply] : cases) {
    UcpCentre centre{UcpScenario{}};
    RecordingLine line;
    centre.OnBytes(0, "ATH\x02" + frame.substr(0, 10), line);  // noise, then half a frame
    centre.OnBytes(100, frame.substr(10) + "\x03", line);
    EXPECT_EQ(line.sent, "\x02" + reply + "\x03") << frame;
  }
}

}  // namespace
}  // namespace kw::sim
