#include "ucp/sms_ucp_sender.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/text.h"
#include "line_fixture.h"
#include "sim/ucp_centre.h"
#include "sim/virtual_runtime.h"

namespace kw {
namespace {

/// "ok", or "[n] description" for the error the step raised (n counted from ErrorBase).
std::string Outcome(const std::function<void()>& step) {
  try {
    step();
    return "ok";
  } catch (const Error& e) {
    const int32_t n = e.number() < 0 ? e.number() - ErrorBase : e.number();
    return "[" + std::to_string(n) + "] " + ToLine(e.description());
  }
}

std::string Times(const std::string& text, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += text;
  return out;
}

std::string TooLong(const char* limit) {
  return std::string("[554] Message too long. Only ") + limit + " allowed for this provider.";
}

/// One PrepareMessage: the frame between STX and ETX it should give (a trailing "*" compares
/// only what stands before it), or the outcome of its refusal.
struct PrepareCase {
  std::string want;
  std::wstring op = L"01";
  std::wstring recipient = L"12345";
  std::wstring sender = L"678";
  std::wstring text = L"abc";
  int16_t limit = 320;  // TextLength, in hexadecimal digits
};

TEST(UcpPrepareTest, BuildsTheFrameOrRefusesInTheOrderTextRecipientSender) {
  const std::wstring d16(16, L'1'), d17(17, L'1'), d40(40, L'1');
  const std::string recipientTooLong = "[552] Recipient phone number too long.";
  const std::string senderTooLong = "[553] Sender phone number too long.";
  const PrepareCase cases[] = {
      {"01/00036/O/01/12345/678//3/616263/C0"},
      {"01/00048/O/03/12345/678//0///////////3/616263/FA", L"03"},
      {"01/00040/O/30/12345/678////////616263/75", L"30"},
      {"01/00063/O/51/12345/678////////////////3//616263/////////////BA", L"51"},
      {"01/00017/O/99//05", L"99", d17, d17},  // no template, no number tests
      {"01/00017/O///93", L""},
      {"01/00036/O/01/12345/6/8//3/616263/B8", L"01", L"12345", L"6/8"},  // nothing is escaped
      {"01/00036/O/01/12345/678//3/616263/C0", L"01", L"12345", L"678", L"abc", 6},
      {TooLong("5"), L"01", L"12345", L"678", L"abc", 5},
      {TooLong("-1"), L"01", L"12345", L"678", L"", -1},
      {TooLong("4"), L"99", L"12345", L"678", L"abc", 4},
      {"01/00060/O/01/1111111111111111/1111111111111111//3/616263/39", L"01", d16, d16},
      {recipientTooLong, L"01", d17},
      {senderTooLong, L"01", L"12345", d17},
      {senderTooLong, L"03", L"12345", d17},
      {recipientTooLong, L"30", d17},
      {"01/00135/O/51/*", L"51", d40, d40},
      {TooLong("320"), L"01", d17, d17, std::wstring(161, L'x')},
      {recipientTooLong, L"01", d17, d17},
      // The checksum's 16-bit total: 32,736 for 304 letters, past 32,767 for 305.
      {"01/00638/O/01/*", L"01", L"12345", L"678", std::wstring(304, L'a'), 32767},
      {"[6] Overflow", L"01", L"12345", L"678", std::wstring(305, L'a'), 32767},
  };
  for (const PrepareCase& c : cases) {
    SCOPED_TRACE(c.want);
    SmsUcpSender ucp;
    ucp.OperationType = c.op;
    ucp.SenderNumber = c.sender;
    ucp.TextLength = c.limit;
    SmsMessage msg;
    msg.ParsedRecipient = c.recipient;
    msg.Message = c.text;
    std::string frame;
    std::string got = Outcome([&] { frame = ToLine(ucp.PrepareMessage(msg)); });
    if (got == "ok") {
      ASSERT_GE(frame.size(), 2u);
      EXPECT_EQ(frame.front(), '\x02');
      EXPECT_EQ(frame.back(), '\x03');
      got = frame.substr(1, frame.size() - 2);
    }
    const bool prefix = c.want.back() == '*';
    EXPECT_EQ(prefix ? got.substr(0, c.want.size() - 1) + "*" : got, c.want);
  }
  EXPECT_EQ(SmsUcpSender::UcpChecksum(L"\u00e9\u00e9"), L"D2");  // Windows-1252: 0xE9 each
}

/// One Send of the frame of 12345, 678, abc under the virtual clock, the centre on the port.
struct SendCase {
  const char* name;
  void (*change)(sim::UcpScenario&);
  std::string want;
  int transmissions;
  int64_t seconds;       // from the start of Send to its end
  int64_t drop_ms = -1;  // the line drops this long after the start, whatever the centre does
  bool open = true;
};

TEST(UcpSendTest, PollsAndJudgesTheReplyAtItsOffsets) {
  using S = sim::UcpScenario;
  const std::string tooMany = "[557] Too many retries. The message was not delivered.";
  const std::string provider = "[559] Error received from provider : ";
  const std::string hungUp = "[558] Modem hung up unexpectedly.";
  const SendCase cases[] = {
      {"A at the first poll", nullptr, "ok", 1, 3},
      {"A after five polls", [](S& s) { s.delay_ms = 5500; }, "ok", 2, 8},
      {"A in two pieces", [](S& s) { s.pieces = 2, s.piece_gap_ms = 1000; }, "ok", 1, 4},
      {"no answer", [](S& s) { s.silent = true; }, tooMany, 5, 27},
      {"lower-case a", [](S& s) { s.letter = 'a'; }, tooMany, 5, 27},
      {"lower-case n", [](S& s) { s.letter = 'n', s.code = "24"; }, tooMany, 5, 27},
      // The first reply's STX stays the start: the "A" behind it is never read.
      {"a later A", [](S& s) { s.prefix = sim::UcpReply("01", 'a', ""); }, tooMany, 5, 27},
      {"code 01", [](S& s) { s.letter = 'N', s.code = "01"; }, provider + "Checksum error.", 1, 3},
      {"code 24", [](S& s) { s.letter = 'N', s.code = "24"; }, provider + "Message too long.", 1,
       3},
      {"code 38", [](S& s) { s.letter = 'N', s.code = "38"; }, provider + "Message forwarded.", 1,
       3},
      {"code 28", [](S& s) { s.letter = 'N', s.code = "28"; }, provider, 1, 3},
      {"no code", [](S& s) { s.letter = 'N', s.truncate = 17; }, provider, 1, 3},
      {"half a code", [](S& s) { s.letter = 'N', s.code = "24", s.truncate = 18; }, provider, 1, 3},
      {"hang-up in the third poll",
       [](S& s) { s.hangup_frame = 1, s.hangup_delay_ms = 2500, s.silent = true; }, hungUp, 1, 5},
      // The first transmission clears the flag; the dead line then answers nothing.
      {"hang-up in the pause", nullptr, tooMany, 5, 27, 500},
      {"closed port", nullptr, "[555] Port closed prematurely.", 0, 0, -1, false},
  };
  const std::wstring frame =
      L"\x02"
      L"01/00036/O/01/12345/678//3/616263/C0"
      L"\x03";
  for (const SendCase& c : cases) {
    SCOPED_TRACE(c.name);
    sim::UcpScenario scenario;
    scenario.say_no_carrier = true;  // no modem in front to say it
    if (c.change) c.change(scenario);
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::UcpCentre centre(scenario);
    runtime.set_peer(&centre);
    modem link;
    test::UseConnectedLink(link, c.open);
    // What the modem said during the dial stays in front of the reply.
    link.recvBuffer = L"ATDT0612345\r\r\nCONNECT 9600\r\n";
    if (c.drop_ms >= 0) {
      centre.DropLine(1'000'000, 1'000'000 + c.drop_ms, static_cast<sim::FakeComm&>(*link.comm));
    }
    SmsUcpSender ucp;
    ucp.modem = &link;
    EXPECT_EQ(Outcome([&] { ucp.Send(frame); }), c.want);
    EXPECT_EQ(runtime.written(), Times(ToLine(frame), c.transmissions));
    EXPECT_EQ(runtime.now_ms() - 1'000'000, c.seconds * 1000);
  }
}

/// The whole road: settings, dial through the simulated modem, the centre behind it.
class UcpRoadTest : public test::LineFixture {
 protected:
  UcpRoadTest() {
    settings_->Protocol = L"UCP";
    settings_->TextLength = L"320";
    settings_->SenderNumber = L"678";
    settings_->Authentication = L"pw";
  }
};

TEST_F(UcpRoadTest, EachOperationGoesThroughTheCentre) {
  const std::pair<const wchar_t*, std::string> cases[] = {
      {L"01", "01/00036/O/01/12345/678//3/616263/C0"},  // "01" and "30" carry no password
      {L"03", "01/00050/O/03/12345/678/pw/0///////////3/616263/DA"},
      {L"30", "01/00040/O/30/12345/678////////616263/75"},
      {L"51", "01/00065/O/51/12345/678/pw///////////////3//616263/////////////A3"},
  };
  for (const auto& [op, inner] : cases) {
    SCOPED_TRACE(inner);
    runtime_.transcript().clear();
    settings_->OpType = op;
    UseModem(sim::ModemScenario{}, std::make_unique<sim::UcpCentre>(sim::UcpScenario{}));
    // A sender of its own: one link serves one send, as in a run of the program.
    SmsSender sender;
    sender.Settings = settings_;
    SmsMessage msg;
    msg.Recipient = L"+1 (234) 5";
    msg.Message = L"abc";
    EXPECT_EQ(Outcome([&] { sender.SendSms(msg); }), "ok");
    EXPECT_EQ(Lines("> "),
              (std::vector<std::string>{"> ATDT0612345\r", "> \x02" + inner + "\x03", "> ATH"}));
    EXPECT_EQ(runtime_.transcript().back(), "-- close");
  }
}

TEST_F(UcpRoadTest, RefusalBeforeTheCallNeverTouchesThePort) {
  settings_->OpType = L"01";
  settings_->TextLength = L"4";
  const auto error = Send(L"12345", L"abc");
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->number(), ErrorBase + 554);
  EXPECT_TRUE(runtime_.transcript().empty());  // no open, no dial
  EXPECT_EQ(sender_.Link().comm, nullptr);
}

}  // namespace
}  // namespace kw
