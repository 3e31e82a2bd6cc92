#include "sim/tap_centre.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace kw::sim {
namespace {

/// Keeps the bytes the centre puts on its line.
class RecordingLine : public PeerLine {
 public:
  void SendAt(int64_t, const std::string& bytes) override { sent += bytes; }
  void SetCarrier(bool) override {}
  void Note(const std::string&) override {}
  std::string sent;
};

// The program's own tests only send sound blocks; the centre must NAK the others, or a broken
// block would pass end to end.
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

}  // namespace
}  // namespace kw::sim
