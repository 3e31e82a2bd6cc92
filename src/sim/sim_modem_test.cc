#include "sim/sim_modem.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"

namespace kw::sim {
namespace {

/// Keeps everything the modem does to the line, with no clock of its own.
class RecordingLine : public PeerLine {
 public:
  struct Sent {
    int64_t at_ms;
    std::string bytes;
  };
  void SendAt(int64_t at_ms, const std::string& bytes) override { sent.push_back({at_ms, bytes}); }
  void SetCarrier(bool high) override { carrier.push_back(high); }
  void Note(const std::string&) override {}

  /// All bytes sent, in order.
  std::string Bytes() const {
    std::string all;
    for (const Sent& s : sent) all += s.bytes;
    return all;
  }

  std::vector<Sent> sent;
  std::vector<bool> carrier;
};

/// Plays the modem's timers up to until_ms, as a driver's virtual clock would.
void RunTimers(SimModem& modem, PeerLine& line, int64_t until_ms) {
  for (int64_t due = modem.NextTimerMs(); due != kNoTimer && due <= until_ms;
       due = modem.NextTimerMs()) {
    modem.OnTimer(due, line);
  }
}

/// A centre that keeps what it gets; "BYE" makes it answer "ack" 100 ms later and hang up.
class FakeCentre : public Peer {
 public:
  void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) override {
    received += bytes;
    if (bytes == "BYE") {
      line.SendAt(now_ms + 100, "ack");
      line.SetCarrier(false);
    }
  }
  void OnClose(int64_t, PeerLine&) override { ++closes; }
  std::string received;
  int closes = 0;
};

TEST(SimModemTest, AnswersADialPerScenario) {
  struct Case {
    const char* name;
    ModemScenario scenario;
    const char* command;
    std::string answer;
    bool data_mode;
  };
  auto with = [](auto change) {
    ModemScenario scenario;
    change(scenario);
    return scenario;
  };
  const Case cases[] = {
      {"connect", {}, "ATDT0612\r", "\r\nCONNECT 9600\r\n", true},
      {"busy", with([](ModemScenario& s) { s.dial_result = "BUSY"; }), "ATDT0612\r", "\r\nBUSY\r\n",
       false},
      {"no dialtone", with([](ModemScenario& s) { s.dial_result = "NO DIALTONE"; }), "ATDT1\r",
       "\r\nNO DIALTONE\r\n", false},
      {"no dial tone", with([](ModemScenario& s) { s.dial_result = "NO DIAL TONE"; }), "ATDT1\r",
       "\r\nNO DIAL TONE\r\n", false},
      {"no carrier", with([](ModemScenario& s) { s.dial_result = "NO CARRIER"; }), "ATDT1\r",
       "\r\nNO CARRIER\r\n", false},
      {"error", with([](ModemScenario& s) { s.dial_result = "ERROR"; }), "ATDT1\r", "\r\nERROR\r\n",
       false},
      {"silent", with([](ModemScenario& s) { s.silent = true; }), "ATDT1\r", "", false},
      {"ring, lf cr", with([](ModemScenario& s) {
         s.leading_lines = {"RING"};
         s.lf_cr = true;
       }),
       "ATDT1\r", "\n\rRING\n\r\n\rCONNECT 9600\n\r", true},
      {"echo", with([](ModemScenario& s) { s.echo = true; }), "ATDT1\r",
       "ATDT1\r\r\nCONNECT 9600\r\n", true},
      {"lower-case at", {}, "atdt1\r", "\r\nCONNECT 9600\r\n", true},
      {"other command", {}, "ATZ\r", "\r\nOK\r\n", false},
      {"no cr yet", {}, "ATDT1", "", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SimModem modem(c.scenario);
    RecordingLine line;
    modem.OnBytes(1000, c.command, line);
    RunTimers(modem, line, 60000);
    EXPECT_EQ(line.Bytes(), c.answer);
    EXPECT_EQ(modem.in_data_mode(), c.data_mode);
    EXPECT_EQ(modem.carrier(), c.data_mode);
    // The answer (after any echo) starts result_delay_ms after the CR.
    if (!c.answer.empty() && !c.scenario.echo && std::string(c.command) != "ATZ\r") {
      EXPECT_EQ(line.sent.front().at_ms, 1300);
    }
  }
}

TEST(SimModemTest, SplitsTheResultAndStaysDiallingUntilItsEnd) {
  ModemScenario scenario;
  scenario.dial_result = "BUSY";
  scenario.split = 3;
  scenario.split_gap_ms = 50;
  SimModem modem(scenario);
  RecordingLine line;
  modem.OnBytes(0, "ATDT5\r", line);
  ASSERT_EQ(line.sent.size(), 3u);
  const std::pair<int64_t, std::string> expected[] = {{300, "\r\nB"}, {350, "USY"}, {400, "\r\n"}};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(line.sent[i].at_ms, expected[i].first);
    EXPECT_EQ(line.sent[i].bytes, expected[i].second);
  }
  modem.OnBytes(399, "AT\r", line);  // still dialling: ignored
  EXPECT_EQ(line.sent.size(), 3u);
  modem.OnBytes(400, "AT\r", line);  // the result has ended: a command again
  ASSERT_EQ(line.sent.size(), 4u);
  EXPECT_EQ(line.sent[3].bytes, "\r\nOK\r\n");
}

TEST(SimModemTest, RaisesTheCarrierPerScenario) {
  struct Case {
    CarrierMode mode;
    int64_t still_low_at;  // the last moment the carrier is low
    bool rises;
  };
  const Case cases[] = {
      {CarrierMode::kAtConnect, 299, true},
      {CarrierMode::kLate, 799, true},
      {CarrierMode::kNever, 60000, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.mode));
    ModemScenario scenario;
    scenario.carrier = c.mode;
    scenario.carrier_delay_ms = 500;
    SimModem modem(scenario);
    RecordingLine line;
    modem.OnBytes(0, "ATDT5\r", line);
    RunTimers(modem, line, c.still_low_at);
    EXPECT_TRUE(line.carrier.empty());
    RunTimers(modem, line, c.still_low_at + 1);
    EXPECT_EQ(line.carrier, c.rises ? std::vector<bool>{true} : std::vector<bool>{});
    EXPECT_TRUE(modem.in_data_mode());  // CONNECT came, carrier or not
  }
}

TEST(SimModemTest, DataModePassesEverythingToTheCentreUntilItHangsUp) {
  SimModem modem(ModemScenario{});
  auto owned = std::make_unique<FakeCentre>();
  FakeCentre& centre = *owned;
  modem.SetCentre(std::move(owned));
  RecordingLine line;
  modem.OnBytes(0, "ATDT5\r", line);
  RunTimers(modem, line, 300);
  line.sent.clear();

  modem.OnBytes(400, "\r", line);
  modem.OnBytes(410, "ATH", line);  // data to a modem in data mode
  modem.OnBytes(420, "AT\r", line);
  EXPECT_EQ(centre.received, "\rATHAT\r");
  EXPECT_TRUE(line.sent.empty());  // no OK: the modem didn't take them for commands

  modem.OnBytes(500, "BYE", line);
  RunTimers(modem, line, 599);
  EXPECT_TRUE(modem.in_data_mode());
  RunTimers(modem, line, 600);
  ASSERT_EQ(line.sent.size(), 2u);
  EXPECT_EQ(line.sent[0].bytes, "ack");
  EXPECT_EQ(line.sent[1].at_ms, 600);  // NO CARRIER follows the centre's last bytes
  EXPECT_EQ(line.sent[1].bytes, "\r\nNO CARRIER\r\n");
  EXPECT_EQ(line.carrier, (std::vector<bool>{true, false}));
  EXPECT_FALSE(modem.in_data_mode());
  modem.OnBytes(700, "AT\r", line);
  EXPECT_EQ(line.sent.back().bytes, "\r\nOK\r\n");
  EXPECT_EQ(centre.closes, 0);
}

TEST(SimModemTest, KeepsDataModeBytesWithoutACentre) {
  SimModem modem(ModemScenario{});
  RecordingLine line;
  modem.OnBytes(0, "ATDT5\r", line);
  RunTimers(modem, line, 300);
  modem.OnBytes(400, "abc", line);
  modem.OnBytes(410, "ATH", line);
  EXPECT_EQ(modem.data_received(), "abcATH");
  EXPECT_EQ(modem.last_dialled(), "5");
}

TEST(SimModemTest, CloseHangsUpAndForgetsTheCall) {
  struct Case {
    const char* name;
    int64_t close_at;  // dial at 0: the result starts at 300 and the carrier rises then
    bool carrier_was_up;
  };
  const Case cases[] = {{"while dialling", 100, false}, {"in data mode", 400, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SimModem modem(ModemScenario{});
    auto owned = std::make_unique<FakeCentre>();
    FakeCentre& centre = *owned;
    modem.SetCentre(std::move(owned));
    RecordingLine line;
    modem.OnBytes(0, "ATDT5\r", line);
    RunTimers(modem, line, c.close_at);
    modem.OnBytes(c.close_at, "AT", line);  // half a line (data, in data mode)
    modem.OnClose(c.close_at, line);

    EXPECT_EQ(centre.closes, 1);
    EXPECT_FALSE(modem.carrier());
    EXPECT_EQ(line.carrier,
              c.carrier_was_up ? (std::vector<bool>{true, false}) : std::vector<bool>{});
    EXPECT_EQ(modem.NextTimerMs(), kNoTimer);  // nothing of the old call comes later
    line.sent.clear();
    modem.OnBytes(5000, "\r", line);  // the half line went with the close
    EXPECT_TRUE(line.sent.empty());
    modem.OnBytes(5010, "AT\r", line);
    ASSERT_EQ(line.sent.size(), 1u);
    EXPECT_EQ(line.sent[0].bytes, "\r\nOK\r\n");
  }
}

}  // namespace
}  // namespace kw::sim
