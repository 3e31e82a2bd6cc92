#include "sim/sim_modem.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"

namespace kw::sim {
namespace {

/// Keeps everything the modem does to the line, with no clock of its own.
struct RecordingLine : PeerLine {
  void SendAt(int64_t at_ms, const std::string& bytes) override { sent.emplace_back(at_ms, bytes); }
  void SetCarrier(bool high) override { carrier.push_back(high); }
  void Note(const std::string&) override {}
  std::vector<std::pair<int64_t, std::string>> sent;
  std::vector<bool> carrier;
};

/// A centre that keeps what it gets; "BYE" makes it answer "ack" 100 ms later and hang up twice.
struct FakeCentre : Peer {
  void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) override {
    received += bytes;
    if (bytes != "BYE") return;
    line.SendAt(now_ms + 100, "ack");
    line.SetCarrier(false);
    line.SetCarrier(false);
  }
  void OnClose(int64_t, PeerLine&) override { ++closes; }
  std::string received;
  int closes = 0;
};

/// A modem with a centre behind it, dialled at 0: CONNECT and the carrier come at 300.
struct Call {
  Call() {
    auto owned = std::make_unique<FakeCentre>();
    centre = owned.get();
    modem.SetCentre(std::move(owned));
    modem.OnBytes(0, "ATDT5\r", line);
  }
  /// Plays the modem's timers up to until_ms, as a driver's virtual clock would.
  void RunTimers(int64_t until_ms) {
    for (int64_t due; (due = modem.NextTimerMs()) != kNoTimer && due <= until_ms;) {
      modem.OnTimer(due, line);
    }
  }
  SimModem modem{ModemScenario{}};
  RecordingLine line;
  FakeCentre* centre;
};

/// What went on the line: when, and which bytes.
using Sent = std::vector<std::pair<int64_t, std::string>>;

TEST(SimModemTest, DataModePassesEverythingToTheCentreUntilItHangsUp) {
  Call call;
  call.RunTimers(300);
  call.line.sent.clear();
  call.modem.OnBytes(410, "ATH", call.line);  // a real modem takes this for data too
  call.modem.OnBytes(420, "AT\r", call.line);
  EXPECT_EQ(call.centre->received, "ATHAT\r");
  EXPECT_TRUE(call.line.sent.empty());  // no OK: none of it was a command

  call.modem.OnBytes(500, "BYE", call.line);  // the hang-up waits for the centre's last bytes
  call.RunTimers(60000);
  EXPECT_EQ(call.line.sent, (Sent{{600, "ack"}, {600, "\r\nNO CARRIER\r\n"}}));
  EXPECT_EQ(call.line.carrier, (std::vector<bool>{true, false}));
  call.modem.OnBytes(700, "AT\r", call.line);
  EXPECT_EQ(call.line.sent.back(), (std::pair<int64_t, std::string>{700, "\r\nOK\r\n"}));
  EXPECT_EQ(call.centre->closes, 0);
}

TEST(SimModemTest, CloseHangsUpAndForgetsTheCall) {
  for (const int64_t close_at : {100, 400}) {  // while dialling, in data mode
    SCOPED_TRACE(close_at);
    Call call;
    call.RunTimers(close_at);
    call.modem.OnBytes(close_at, "AT", call.line);  // half a line, or data
    call.modem.OnClose(close_at, call.line);
    EXPECT_EQ(call.centre->closes, 1);
    EXPECT_EQ(call.line.carrier,
              close_at > 300 ? (std::vector<bool>{true, false}) : (std::vector<bool>{}));
    EXPECT_EQ(call.modem.NextTimerMs(), kNoTimer);  // nothing of the old call comes later
    call.line.sent.clear();
    call.modem.OnBytes(5000, "\r", call.line);  // the half line went with the close
    call.modem.OnBytes(5010, "AT\r", call.line);
    EXPECT_EQ(call.line.sent, (Sent{{5010, "\r\nOK\r\n"}}));
  }
}

}  // namespace
}  // namespace kw::sim
