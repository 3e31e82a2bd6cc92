#include "tap/sms_tap_sender.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/text.h"
#include "frontend/logging.h"
#include "line_fixture.h"
#include "sim/tap_centre.h"
#include "sim/virtual_runtime.h"

namespace kw {
namespace {

using sim::TapScenario;
using Change = void (*)(TapScenario&);

const std::string kRequest = "\x1bPG1secret\r";
/// Recipient 123 and message abc: ten bytes that sum to 0x1DB, then "1=;" and CR.
const std::string kBlock = "\x02\x31\x32\x33\x0D\x61\x62\x63\x0D\x03\x31\x3D\x3B\x0D";

/// "ok", or "[n] description" for the error the step raised (n counted from ErrorBase).
std::string Outcome(const std::function<void()>& step) {
  try {
    step();
    return "ok";
  } catch (const Error& e) {
    return "[" + std::to_string(e.number() - ErrorBase) + "] " + ToLine(e.description());
  }
}

std::string Times(const std::string& text, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += text;
  return out;
}

/// A login and, once logged in, a send of 123/abc over a link that is already up, with the
/// centre straight on the fake port. Every probe, request and block is followed by one second.
struct DialogueCase {
  const char* what;
  Change change;
  std::string want;
  int probes, requests, blocks;
  bool hangs_up = false;   // "ATH" after the last probe or request
  bool unplugged = false;  // the link counts as down between the login and the send
  const char* log = "";    // a debug line the run writes
};

TEST(TapDialogueTest, SendsAndDecidesAsTheRepliesSay) {
  using S = TapScenario;
  const std::string noPrompt =
      "[532] No login prompt from SMSC provider within 10 attempts. Modem hung up.";
  const std::string naks =
      "[530] Too many login attempts (6). Please check the provider authentication settings.";
  const std::string noGoAhead = "[534] Provider did not say it's ok to proceed.";
  const std::string tooMany = "[539] Too many retries. The message was not delivered.";
  const DialogueCase cases[] = {
      {"prompt, ACK, go-ahead, ACK", nullptr, "ok", 1, 1, 1},
      {"prompt during the tenth wait", [](S& s) { s.prompt_after = 9; }, "ok", 10, 1, 1},
      {"prompt in pieces", [](S& s) { s.split = 3, s.split_gap_ms = 300; }, "ok", 1, 1, 1},
      {"no prompt", [](S& s) { s.prompt_after = -1; }, noPrompt, 10, 0, 0, true},
      {"lower-case prompt", [](S& s) { s.prompt = "id="; }, noPrompt, 10, 0, 0, true},
      {"login ACK with NAK", [](S& s) { s.login_answer = sim::kTapNak + sim::kTapAck; }, "ok", 1, 1,
       1},
      {"login three NAKs then ACK", [](S& s) { s.login_naks = 3; }, "ok", 1, 4, 1},
      {"login NAK then silence", [](S& s) { s.login_naks = 1, s.login_answer = ""; }, naks, 1, 6, 0,
       false, false, "\tExceeded maximum number of login attempts (6).\n"},
      {"login ESC EOT behind a NAK",
       [](S& s) { s.login_naks = 1, s.login_answer = sim::kTapEscEot; }, naks, 1, 6, 0},
      {"login ESC EOT", [](S& s) { s.login_answer = sim::kTapEscEot; },
       "[533] Forced disconnect from provider.", 1, 1, 0},
      {"login ACK with hang-up", [](S& s) { s.drop = sim::DropPoint::kLogin; },
       "[536] Modem hung up unexpectedly while logging in.", 1, 1, 0},
      {"login silence", [](S& s) { s.login_answer = ""; },
       "[531] Number of login retries (30) over. Modem hung up.", 1, 30, 0, true},
      {"no go-ahead", [](S& s) { s.go_ahead = sim::GoAhead::kNever; }, noGoAhead, 1, 1, 0},
      {"go-ahead after the last login wait",
       [](S& s) { s.go_ahead = sim::GoAhead::kLater, s.go_ahead_gap_ms = 1500; }, noGoAhead, 1, 1,
       0},
      {"link down before the block", nullptr,
       "[535] Modem is not connected. Message could not be sent", 1, 1, 0, false, true},
      {"block late ACK counts for the next", [](S& s) { s.block_delay_ms = 1500; }, "ok", 1, 1, 2},
      {"block ACK with NAK", [](S& s) { s.block_answer = sim::kTapNak + sim::kTapAck; }, "ok", 1, 1,
       1},
      {"block five NAKs", [](S& s) { s.block_naks = 5; }, tooMany, 1, 1, 5},
      {"block silence, login ACK buffered", [](S& s) { s.block_answer = ""; }, tooMany, 1, 1, 5},
      {"block NAK with RS", [](S& s) { s.block_answer = sim::kTapNak + sim::kTapRs; }, tooMany, 1,
       1, 5},
      {"block EOT before ESC", [](S& s) { s.block_answer = "\x04\x1b"; }, tooMany, 1, 1, 5},
      {"block RS with ESC EOT", [](S& s) { s.block_answer = sim::kTapRs + sim::kTapEscEot; },
       "[538] The message was rejected by the provider.", 1, 1, 1},
      {"block ESC EOT", [](S& s) { s.block_answer = sim::kTapEscEot; },
       "[536] The message was not accepted by the provider.", 1, 1, 1},
      {"block hang-up wins over ACK", [](S& s) { s.drop = sim::DropPoint::kBlock; },
       "[537] Modem hung up unexpectedly.", 1, 1, 1},
  };
  for (const DialogueCase& c : cases) {
    SCOPED_TRACE(c.what);
    TapScenario scenario;
    scenario.password = "secret";
    if (c.change) c.change(scenario);
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::TapCentre centre(scenario);
    runtime.set_peer(&centre);
    modem link;
    test::UseConnectedLink(link, true);
    SmsTapSender tap;
    tap.modem = &link;
    SmsMessage msg;
    msg.ParsedRecipient = L"123";
    msg.Message = L"abc";
    DebugMode = true;
    testing::internal::CaptureStdout();
    const std::string got = Outcome([&] {
      tap.Login(L"secret");
      link.IsConnected = !c.unplugged;
      tap.Send(msg);
    });
    const std::string log = test::CapturedStdoutLf();
    DebugMode = false;
    EXPECT_EQ(got, c.want);
    EXPECT_EQ(runtime.written(), Times("\r", c.probes) + Times(kRequest, c.requests) +
                                     (c.hangs_up ? "ATH" : "") + Times(kBlock, c.blocks));
    EXPECT_EQ(runtime.now_ms() - 1'000'000, 1000 * (c.probes + c.requests + c.blocks));
    EXPECT_NE(log.find(c.log), std::string::npos) << log;
  }
}

TEST(TapChecksumTest, GivesTheSumsLowTwelveBitsAsThreeCharacters) {
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"abc", L"126"},
      {L"\x02"
       L"123\rabc\r\x03",
       L"1=;"},             // kBlock
      {L"\u00e9", L"0>9"},  // characters count with their Windows-1252 code
      {L"\u20ac", L"080"},
      {std::wstring(16, L'\u00ff') + L"\x0f", L"???"},  // 0xFFF, the last before the wrap
      {std::wstring(32, L'\u20ac'), L"000"},
  };
  for (const auto& [text, want] : cases) {
    EXPECT_EQ(SmsTapSender::TapChecksum(text), want) << ToLine(text);
  }
}

/// The whole road: SmsSender dials the simulated modem, and the centre sits behind it.
class TapRoadTest : public test::LineFixture {
 protected:
  void UseCentre(Change change) {
    TapScenario scenario;
    scenario.password = "secret";
    scenario.own_no_carrier = false;  // the modem says it
    if (change) change(scenario);
    UseModem(sim::ModemScenario{}, std::make_unique<sim::TapCentre>(scenario));
    settings_->Authentication = L"secret";
  }
};

TEST_F(TapRoadTest, SendsTheBlockThenHangsUpAndClosesThePort) {
  UseCentre(nullptr);
  EXPECT_EQ(Send(L"1-2-3", L"abc"), nullptr);
  EXPECT_EQ(Lines("> "), (std::vector<std::string>{"> ATDT0612345\r", "> \r", "> " + kRequest,
                                                   "> " + kBlock, "> ATH"}));
  EXPECT_EQ(runtime_.transcript().back(), "-- close");
}

TEST_F(TapRoadTest, MissingPromptHangsUpOnceAndClosesThePort) {
  UseCentre([](TapScenario& s) { s.prompt_after = -1; });
  const auto error = Send(L"123", L"abc");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->number(), ErrorBase + 532);
  std::vector<std::string> sent(12, "> \r");  // the dial, ten probes, the hang-up
  sent.front() = "> ATDT0612345\r";
  sent.back() = "> ATH";
  EXPECT_EQ(Lines("> "), sent);
  EXPECT_EQ(runtime_.transcript().back(), "-- close");
}

}  // namespace
}  // namespace kw
