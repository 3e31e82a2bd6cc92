#include "sim/tap_centre.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace kw::sim {
namespace {

/// Records what the centre does to its line.
class RecordingLine : public PeerLine {
 public:
  void SendAt(int64_t at_ms, const std::string& bytes) override {
    sent.push_back(std::to_string(at_ms) + " " + bytes);
  }
  void SetCarrier(bool high) override { carrier = high; }
  void Note(const std::string& text) override { notes.push_back(text); }

  std::vector<std::string> sent;
  std::vector<std::string> notes;
  bool carrier = true;
};

struct BlockCase {
  const char* what;
  std::string block;
  std::string answer;  // sent 50 ms after the block
  std::string note;
};

void PrintTo(const BlockCase& c, std::ostream* os) { *os << c.what; }

class TapCentreBlockTest : public testing::TestWithParam<BlockCase> {};

TEST_P(TapCentreBlockTest, JudgesLayoutAndChecksum) {
  TapCentre centre{TapScenario{}};
  RecordingLine line;
  centre.OnBytes(0, "\r", line);
  centre.OnBytes(1000, "\x1bPG1\r", line);
  line.sent.clear();
  // The block may come in pieces: nothing is judged before its last byte.
  const std::string& block = GetParam().block;
  centre.OnBytes(2000, block.substr(0, block.size() - 1), line);
  EXPECT_TRUE(line.sent.empty());
  centre.OnBytes(2000, block.substr(block.size() - 1), line);
  EXPECT_EQ(line.sent, std::vector<std::string>{"2050 " + GetParam().answer});
  EXPECT_EQ(line.notes.back(), GetParam().note);
}

INSTANTIATE_TEST_SUITE_P(
    Tap, TapCentreBlockTest,
    testing::Values(
        BlockCase{"Good",
                  "\x02"
                  "123\rabc\r\x03"
                  "1=;\r",
                  kTapAck,
                  "centre: block 1, recipient <123> message <abc>, checksum ok, answer <ACK>"},
        BlockCase{"BadChecksum",
                  "\x02"
                  "123\rabc\r\x03"
                  "1DB\r",
                  kTapNak,
                  "centre: block 1, recipient <123> message <abc>, checksum bad: got 1DB want "
                  "1=;, answer <NAK>"},
        BlockCase{"MissingField",
                  "\x02"
                  "123\r\x03"
                  "0:8\r",
                  kTapNak,
                  "centre: block 1, recipient <> message <>, layout bad: no CR behind both "
                  "fields, checksum ok, answer <NAK>"}),
    [](const testing::TestParamInfo<BlockCase>& row) { return std::string(row.param.what); });

TEST(TapCentreTest, DropsTheLineAfterTheChosenProbe) {
  TapScenario scenario;
  scenario.prompt_after = -1;
  scenario.drop = DropPoint::kProbe;
  scenario.drop_after = 2;
  TapCentre centre(scenario);
  RecordingLine line;
  centre.OnBytes(0, "\r", line);
  EXPECT_TRUE(line.carrier);
  centre.OnBytes(1000, "\r", line);
  EXPECT_FALSE(line.carrier);
  EXPECT_EQ(line.sent, std::vector<std::string>{"1000 \r\nNO CARRIER\r\n"});
  centre.OnBytes(2000, "\r", line);  // the line is down: nothing more
  EXPECT_EQ(line.sent.size(), 1u);
}

TEST(TapCentreTest, ReadsItsScenarioFromOptions) {
  const TapScenario s = TapScenarioFromOptions({{"prompt_after", "-1"},
                                                {"password", "pw"},
                                                {"login", "nak+ack"},
                                                {"go_ahead", "later"},
                                                {"block", "rs+esceot"},
                                                {"block_delay", "1500"},
                                                {"drop", "block:2"}});
  EXPECT_EQ(s.prompt_after, -1);
  EXPECT_EQ(s.password, std::optional<std::string>("pw"));
  EXPECT_EQ(s.login_answer, kTapNak + kTapAck);
  EXPECT_EQ(s.go_ahead, GoAhead::kLater);
  EXPECT_EQ(s.block_answer, kTapRs + kTapEscEot);
  EXPECT_EQ(s.block_delay_ms, 1500);
  EXPECT_EQ(s.drop, DropPoint::kBlock);
  EXPECT_EQ(s.drop_after, 2);
  EXPECT_EQ(TapScenarioFromOptions({{"login", "silent"}}).login_answer, "");

  for (const auto& [key, value] : std::vector<std::pair<std::string, std::string>>{
           {"colour", "red"}, {"login", "ok"}, {"split", "2x"}, {"drop", "dial:1"}}) {
    EXPECT_THROW(TapScenarioFromOptions({{key, value}}), std::invalid_argument) << key;
  }
}

}  // namespace
}  // namespace kw::sim
