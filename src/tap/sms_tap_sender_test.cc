#include "tap/sms_tap_sender.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "base/error.h"
#include "frontend/logging.h"
#include "line_fixture.h"
#include "sim/tap_centre.h"
#include "virtual_runtime.h"

namespace kw {
namespace {

using sim::TapScenario;

const std::string kProbe = "\r";
const std::string kRequest = "\x1bPG1secret\r";
/// The block of recipient 123 and message abc: ten bytes that sum to 0x1DB, then "1=;" and CR.
const std::string kBlock =
    "\x02"
    "123\rabc\r\x03"
    "1=;\r";

std::string Times(const std::string& text, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += text;
  return out;
}

/// Runs the step; gives the error it raised, or null.
std::unique_ptr<Error> Catch(const std::function<void()>& step) {
  try {
    step();
    return nullptr;
  } catch (const Error& e) {
    return std::make_unique<Error>(e);
  }
}

/// A link that is already up, to a simulated centre on the fake port: no dial, so a test starts
/// right at the login.
class TapRig {
 public:
  explicit TapRig(const TapScenario& scenario) : centre_(scenario) {
    runtime_.set_peer(&centre_);
    link_.Initialize(L"1");
    link_.comm->SetPortOpen(true);
    link_.IsConnected = true;
    tap_.modem = &link_;
    msg_.ParsedRecipient = L"123";
    msg_.Message = L"abc";
  }

  test::VirtualRuntime runtime_;
  ScopedRuntime installed_{runtime_};
  sim::TapCentre centre_;
  modem link_;
  SmsTapSender tap_;
  SmsMessage msg_;
};

/// The scenario of the centre: the defaults with a password and one change.
TapScenario Scenario(const std::function<void(TapScenario&)>& change) {
  TapScenario s;
  s.password = "secret";
  if (change) change(s);
  return s;
}

struct LoginCase {
  const char* what;
  std::function<void(TapScenario&)> change;
  int error;  // n of ErrorBase + n; 0 for a login
  int probes;
  int requests;
  bool hangs_up;  // "ATH" after the last request or probe
  const wchar_t* description;
};

void PrintTo(const LoginCase& c, std::ostream* os) { *os << c.what; }

class TapLoginTest : public testing::TestWithParam<LoginCase> {};

TEST_P(TapLoginTest, SendsAndDecidesAsTheRepliesSay) {
  const LoginCase& c = GetParam();
  TapRig rig(Scenario(c.change));
  const auto error = Catch([&] { rig.tap_.Login(L"secret"); });

  if (c.error == 0) {
    EXPECT_EQ(error, nullptr) << (error ? error->what() : "");
  } else {
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->number(), ErrorBase + c.error);
    EXPECT_EQ(error->source(), L"");
    EXPECT_EQ(error->description(), c.description);
  }
  EXPECT_EQ(rig.tap_.Authenticated, c.error == 0);
  EXPECT_EQ(rig.runtime_.written(),
            Times(kProbe, c.probes) + Times(kRequest, c.requests) + (c.hangs_up ? "ATH" : ""));
  EXPECT_EQ(rig.link_.IsConnected, !c.hangs_up);
}

INSTANTIATE_TEST_SUITE_P(
    Tap, TapLoginTest,
    testing::Values(
        LoginCase{"PromptOnFirstProbe", nullptr, 0, 1, 1, false, L""},
        LoginCase{"PromptDuringTenthWait", [](TapScenario& s) { s.prompt_after = 9; }, 0, 10, 1,
                  false, L""},
        LoginCase{"PromptSplitWithinOneWait",
                  [](TapScenario& s) {
                    s.split = 3;
                    s.split_gap_ms = 300;
                  },
                  0, 1, 1, false, L""},
        LoginCase{"NoPrompt", [](TapScenario& s) { s.prompt_after = -1; }, 532, 10, 0, true,
                  L"No login prompt from SMSC provider within 10 attempts. Modem hung up."},
        LoginCase{"LowerCasePromptIsNone", [](TapScenario& s) { s.prompt = "id="; }, 532, 10, 0,
                  true, L"No login prompt from SMSC provider within 10 attempts. Modem hung up."},
        LoginCase{"AckWithNak",
                  [](TapScenario& s) { s.login_answer = sim::kTapNak + sim::kTapAck; }, 0, 1, 1,
                  false, L""},
        LoginCase{"ThreeNaksThenAck", [](TapScenario& s) { s.login_naks = 3; }, 0, 1, 4, false,
                  L""},
        LoginCase{"OneNakThenSilence",
                  [](TapScenario& s) {
                    s.login_naks = 1;
                    s.login_answer = "";
                  },
                  530, 1, 6, false,
                  L"Too many login attempts (6). Please check the provider authentication "
                  L"settings."},
        LoginCase{"WrongPassword", [](TapScenario& s) { s.password = "other"; }, 530, 1, 6, false,
                  L"Too many login attempts (6). Please check the provider authentication "
                  L"settings."},
        LoginCase{"AckWithHangUp",
                  [](TapScenario& s) {
                    s.drop = sim::DropPoint::kLogin;
                    s.drop_after = 1;
                  },
                  536, 1, 1, false, L"Modem hung up unexpectedly while logging in."},
        LoginCase{"EscEot", [](TapScenario& s) { s.login_answer = sim::kTapEscEot; }, 533, 1, 1,
                  false, L"Forced disconnect from provider."},
        LoginCase{"EscEotBehindANakIsNotSeen",
                  [](TapScenario& s) {
                    s.login_naks = 1;
                    s.login_answer = sim::kTapEscEot;
                  },
                  530, 1, 6, false,
                  L"Too many login attempts (6). Please check the provider authentication "
                  L"settings."},
        LoginCase{"Silence", [](TapScenario& s) { s.login_answer = ""; }, 531, 1, 30, true,
                  L"Number of login retries (30) over. Modem hung up."}),
    [](const testing::TestParamInfo<LoginCase>& row) { return std::string(row.param.what); });

TEST(TapLoginTest, NakLimitIsLoggedWithTheCountOfPasses) {
  TapRig rig(Scenario([](TapScenario& s) {
    s.login_naks = 1;
    s.login_answer = "";
  }));
  DebugMode = true;
  testing::internal::CaptureStdout();
  const auto error = Catch([&] { rig.tap_.Login(L"secret"); });
  const std::string out = testing::internal::GetCapturedStdout();
  DebugMode = false;
  ASSERT_NE(error, nullptr);
  EXPECT_NE(out.find("\tExceeded maximum number of login attempts (6).\r\n"), std::string::npos)
      << out;
  EXPECT_EQ(rig.centre_.logins(), 6);
}

TEST(TapLoginTest, EmptyPasswordStillSendsTheFiveBytes) {
  TapRig rig(Scenario([](TapScenario& s) { s.password = ""; }));
  rig.tap_.Login();
  EXPECT_EQ(rig.runtime_.written(), "\r\x1bPG1\r");
}

TEST(TapLoginTest, SilenceBoundHangsUpAfterThirtyOneSeconds) {
  TapRig rig(Scenario([](TapScenario& s) { s.login_answer = ""; }));
  const int64_t start = rig.runtime_.now_ms();
  const auto error = Catch([&] { rig.tap_.Login(L"secret"); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->number(), ErrorBase + 531);
  // One second for the probe, then one for each of the thirty passes.
  EXPECT_EQ(rig.runtime_.now_ms() - start, 31'000);
  EXPECT_EQ(test::InOrder(rig.runtime_.transcript(), {"> ATH"}), true);
}

struct SendCase {
  const char* what;
  std::function<void(TapScenario&)> change;
  int error;
  int blocks;
  const wchar_t* description;
};

void PrintTo(const SendCase& c, std::ostream* os) { *os << c.what; }

class TapSendTest : public testing::TestWithParam<SendCase> {};

TEST_P(TapSendTest, TransmitsTheBlockAndJudgesTheReply) {
  const SendCase& c = GetParam();
  TapRig rig(Scenario(c.change));
  rig.tap_.Login(L"secret");
  const size_t afterLogin = rig.runtime_.written().size();
  const auto error = Catch([&] { rig.tap_.Send(rig.msg_); });

  if (c.error == 0) {
    EXPECT_EQ(error, nullptr) << (error ? error->what() : "");
  } else {
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->number(), ErrorBase + c.error);
    EXPECT_EQ(error->description(), c.description);
  }
  // The block is built once and goes out unchanged; nothing but blocks follows the login.
  EXPECT_EQ(rig.runtime_.written().substr(afterLogin), Times(kBlock, c.blocks));
  EXPECT_EQ(rig.centre_.blocks(), c.blocks);
}

INSTANTIATE_TEST_SUITE_P(
    Tap, TapSendTest,
    testing::Values(
        SendCase{"Ack", nullptr, 0, 1, L""},
        SendCase{"AckOnThirdTransmission", [](TapScenario& s) { s.block_naks = 2; }, 0, 3, L""},
        SendCase{"LateAckCountsForTheNextTransmission",
                 [](TapScenario& s) { s.block_delay_ms = 1500; }, 0, 2, L""},
        SendCase{"AckWithNak", [](TapScenario& s) { s.block_answer = sim::kTapNak + sim::kTapAck; },
                 0, 1, L""},
        SendCase{"FiveNaks", [](TapScenario& s) { s.block_naks = 5; }, 539, 5,
                 L"Too many retries. The message was not delivered."},
        SendCase{"SilenceWithTheLoginAckStillInTheBuffer",
                 [](TapScenario& s) { s.block_answer = ""; }, 539, 5,
                 L"Too many retries. The message was not delivered."},
        SendCase{"NakWithRsSendsAgain",
                 [](TapScenario& s) { s.block_answer = sim::kTapNak + sim::kTapRs; }, 539, 5,
                 L"Too many retries. The message was not delivered."},
        SendCase{"EotBeforeEscIsSilence", [](TapScenario& s) { s.block_answer = "\x04\x1b"; }, 539,
                 5, L"Too many retries. The message was not delivered."},
        SendCase{"RsWithEscEot",
                 [](TapScenario& s) { s.block_answer = sim::kTapRs + sim::kTapEscEot; }, 538, 1,
                 L"The message was rejected by the provider."},
        SendCase{"EscEot", [](TapScenario& s) { s.block_answer = sim::kTapEscEot; }, 536, 1,
                 L"The message was not accepted by the provider."},
        SendCase{"HangUpWinsOverAck",
                 [](TapScenario& s) {
                   s.drop = sim::DropPoint::kBlock;
                   s.drop_after = 1;
                 },
                 537, 1, L"Modem hung up unexpectedly."},
        SendCase{"NoGoAhead", [](TapScenario& s) { s.go_ahead = sim::GoAhead::kNever; }, 534, 0,
                 L"Provider did not say it's ok to proceed."},
        SendCase{"GoAheadAfterTheLastLoginWait",
                 [](TapScenario& s) {
                   s.go_ahead = sim::GoAhead::kLater;
                   s.go_ahead_gap_ms = 1500;
                 },
                 534, 0, L"Provider did not say it's ok to proceed."},
        SendCase{"GoAheadInALaterChunkOfTheSameWait",
                 [](TapScenario& s) {
                   s.go_ahead = sim::GoAhead::kLater;
                   s.go_ahead_gap_ms = 200;
                 },
                 0, 1, L""}),
    [](const testing::TestParamInfo<SendCase>& row) { return std::string(row.param.what); });

TEST(TapSendTest, RefusesWithoutALinkAndSendsNothing) {
  TapRig rig(Scenario(nullptr));
  rig.tap_.Login(L"secret");
  rig.link_.IsConnected = false;
  const auto error = Catch([&] { rig.tap_.Send(rig.msg_); });
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->number(), ErrorBase + 535);
  EXPECT_EQ(error->description(), L"Modem is not connected. Message could not be sent");
  EXPECT_EQ(rig.runtime_.written().find('\x02'), std::string::npos);
}

TEST(TapSendTest, CentreFindsTheBlockWellFormed) {
  TapRig rig(Scenario(nullptr));
  rig.msg_.ParsedRecipient = L"0612345678";
  rig.msg_.Message = L"caf\u00e9 \u20ac5\r";  // 8-bit characters and a CR go out unchanged
  rig.tap_.Login(L"secret");
  rig.tap_.Send(rig.msg_);
  const auto& lines = rig.runtime_.transcript();
  EXPECT_TRUE(test::InOrder(lines, {"# centre: block 1, recipient <0612345678> message "
                                    "<caf<xE9> <x80>5<CR>>, checksum ok, answer <ACK>"}))
      << testing::PrintToString(lines);
}

struct ChecksumCase {
  const char* what;
  std::wstring text;
  std::wstring want;
};

void PrintTo(const ChecksumCase& c, std::ostream* os) { *os << c.what; }

class TapChecksumTest : public testing::TestWithParam<ChecksumCase> {};

TEST_P(TapChecksumTest, GivesTheSumsLowTwelveBitsAsThreeCharacters) {
  EXPECT_EQ(SmsTapSender::TapChecksum(GetParam().text), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(
    Tap, TapChecksumTest,
    testing::Values(ChecksumCase{"Abc", L"abc", L"126"},
                    ChecksumCase{"WorkedBlock",
                                 L"\x02"
                                 L"123\rabc\r\x03",
                                 L"1=;"},
                    ChecksumCase{"Empty", L"", L"000"},
                    ChecksumCase{"LatinSmallEAcute", L"\u00e9", L"0>9"},
                    ChecksumCase{"EuroSignIsByte80", L"\u20ac", L"080"},
                    ChecksumCase{"OutsideTheCodePageIsQuestionMark", L"\u4e00", L"03?"},
                    ChecksumCase{"HighestBeforeTheWrap", std::wstring(16, L'\u00ff') + L"\x0f",
                                 L"???"},
                    ChecksumCase{"WrapsAtTwelveBits", std::wstring(32, L'\u20ac'), L"000"},
                    ChecksumCase{"LongText", std::wstring(1000, L'a'), L":>8"}),
    [](const testing::TestParamInfo<ChecksumCase>& row) { return std::string(row.param.what); });

/// The whole road: SmsSender dials the simulated modem, and the centre sits behind it.
class TapRoadTest : public test::LineFixture {
 protected:
  void UseCentre(TapScenario scenario) {
    scenario.own_no_carrier = false;  // the modem says it
    UseModem(sim::ModemScenario{}, std::make_unique<sim::TapCentre>(scenario));
    settings_->Authentication = L"secret";
  }
};

TEST_F(TapRoadTest, SendsTheBlockThenHangsUpAndClosesThePort) {
  UseCentre(Scenario(nullptr));
  const auto error = Send(L"1-2-3", L"abc");
  EXPECT_EQ(error, nullptr) << (error ? error->what() : "");
  EXPECT_TRUE(test::InOrder(runtime_.transcript(), {"> ATDT0612345\r", "> \r", "> " + kRequest,
                                                    "> " + kBlock, "> ATH", "-- close"}))
      << testing::PrintToString(runtime_.transcript());
  ASSERT_FALSE(Lines("--").empty());
  EXPECT_EQ(Lines("--").back(), "-- close");
  ASSERT_NE(sender_.Link().comm, nullptr);
  EXPECT_FALSE(sender_.Link().comm->PortOpen());
  EXPECT_FALSE(sender_.Link().IsConnected);
}

TEST_F(TapRoadTest, MissingPromptHangsUpOnceAndClosesThePort) {
  UseCentre(Scenario([](TapScenario& s) { s.prompt_after = -1; }));
  const auto error = Send(L"123", L"abc");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->number(), ErrorBase + 532);
  const std::vector<std::string> sent = Lines("> ");
  ASSERT_EQ(sent.size(), 12u) << testing::PrintToString(sent);  // the dial, 10 probes, ATH
  EXPECT_EQ(sent.back(), "> ATH");
  ASSERT_FALSE(Lines("--").empty());
  EXPECT_EQ(Lines("--").back(), "-- close");
  ASSERT_NE(sender_.Link().comm, nullptr);
  EXPECT_FALSE(sender_.Link().comm->PortOpen());
}

}  // namespace
}  // namespace kw
