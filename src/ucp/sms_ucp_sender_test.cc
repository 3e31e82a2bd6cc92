#include "ucp/sms_ucp_sender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "base/error.h"
#include "base/text.h"
#include "frontend/logging.h"
#include "line_fixture.h"
#include "sim/ucp_centre.h"
#include "virtual_runtime.h"

namespace kw {
namespace {

constexpr char kStx = 0x02;
constexpr char kEtx = 0x03;

/// Everything PrepareMessage reads.
struct Input {
  std::wstring op = L"01";
  std::wstring recipient = L"12345";
  std::wstring sender = L"678";
  std::wstring auth;
  std::wstring text = L"abc";
  int16_t text_length = 320;
};

std::wstring Prepare(const Input& in) {
  SmsUcpSender ucp;
  ucp.OperationType = in.op;
  ucp.SenderNumber = in.sender;
  ucp.Authentication = in.auth;
  ucp.TextLength = in.text_length;
  SmsMessage msg;
  msg.ParsedRecipient = in.recipient;
  msg.Message = in.text;
  return ucp.PrepareMessage(msg);
}

/// The frame between its STX and ETX, after checking that those two frame it.
std::string Inner(const std::wstring& frame) {
  const std::string bytes = ToLine(frame);
  EXPECT_GE(bytes.size(), 2u);
  EXPECT_EQ(bytes.front(), kStx);
  EXPECT_EQ(bytes.back(), kEtx);
  return bytes.size() < 2 ? bytes : bytes.substr(1, bytes.size() - 2);
}

TEST(UcpPrepareTest, BuildsTheFrameOfEachOperation) {
  struct Case {
    Input in;
    const char* inner;
  };
  Input op03, op30, op51, other, empty, slash, short_op, auth51;
  op03.op = L"03";
  op30.op = L"30";
  op51.op = L"51";
  other.op = L"99";
  empty.op = L"";
  short_op.op = L" 01";  // not "01": no template, no number tests
  short_op.recipient = std::wstring(40, L'1');
  slash.sender = L"6/8";  // nothing is escaped; the fields behind it shift
  auth51.op = L"51";
  auth51.auth = L"pw";
  auth51.recipient = std::wstring(20, L'9');  // "51" takes numbers of any length
  const Case cases[] = {
      {Input{}, "01/00036/O/01/12345/678//3/616263/C0"},
      {op03, "01/00048/O/03/12345/678//0///////////3/616263/FA"},
      {op30, "01/00040/O/30/12345/678////////616263/75"},
      {op51, "01/00063/O/51/12345/678////////////////3//616263/////////////BA"},
      {other, "01/00017/O/99//05"},
      {empty, "01/00017/O///93"},
      {slash, "01/00036/O/01/12345/6/8//3/616263/B8"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.inner);
    EXPECT_EQ(Inner(Prepare(c.in)), c.inner);
  }
  EXPECT_EQ(Inner(Prepare(short_op)).substr(0, 15), "01/00017/O/ 01/");
  const std::string frame51 = Inner(Prepare(auth51));
  EXPECT_EQ(frame51.substr(0, 41), "01/00080/O/51/99999999999999999999/678/pw");
}

TEST(UcpPrepareTest, RefusesInTheOrderTextRecipientSender) {
  const std::wstring tooLong = L"Message too long. Only ";
  const std::wstring forProvider = L" allowed for this provider.";
  const std::wstring recipientTooLong = L"Recipient phone number too long.";
  const std::wstring senderTooLong = L"Sender phone number too long.";
  struct Case {
    const wchar_t* op;
    size_t recipient, sender, text;  // lengths in characters
    int16_t limit;                   // TextLength, in hexadecimal digits
    int n;                           // 0: a frame results
    std::wstring description;
  };
  const Case cases[] = {
      {L"01", 5, 3, 3, 6, 0, L""},  // exactly TextLength digits
      {L"01", 5, 3, 3, 5, 554, tooLong + L"5" + forProvider},
      {L"01", 5, 3, 160, 320, 0, L""},
      {L"01", 5, 3, 161, 320, 554, tooLong + L"320" + forProvider},
      {L"01", 5, 3, 0, 0, 0, L""},
      {L"01", 5, 3, 0, -1, 554, tooLong + L"-1" + forProvider},
      {L"01", 16, 16, 3, 320, 0, L""},
      {L"01", 17, 3, 3, 320, 552, recipientTooLong},
      {L"01", 5, 17, 3, 320, 553, senderTooLong},
      {L"03", 5, 17, 3, 320, 553, senderTooLong},
      {L"30", 17, 3, 3, 320, 552, recipientTooLong},
      {L"51", 40, 40, 3, 320, 0, L""},                         // no limit on the numbers
      {L"99", 17, 17, 3, 320, 0, L""},                         // no template, no number tests
      {L"99", 5, 3, 3, 4, 554, tooLong + L"4" + forProvider},  // the text test runs for any op
      {L"01", 17, 17, 161, 320, 554, tooLong + L"320" + forProvider},
      {L"01", 17, 17, 3, 320, 552, recipientTooLong},
  };
  for (const Case& c : cases) {
    Input in;
    in.op = c.op;
    in.recipient = std::wstring(c.recipient, L'1');
    in.sender = std::wstring(c.sender, L'2');
    in.text = std::wstring(c.text, L'x');
    in.text_length = c.limit;
    SCOPED_TRACE(testing::Message() << ToLine(in.op) << " " << c.recipient << "/" << c.sender << "/"
                                    << c.text << " in " << c.limit);
    try {
      const std::wstring frame = Prepare(in);
      EXPECT_EQ(c.n, 0) << "a frame came out";
      EXPECT_EQ(Inner(frame).substr(11, 3), ToLine(in.op) + "/");
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), ErrorBase + c.n);
      EXPECT_EQ(e.description(), c.description);
      EXPECT_EQ(e.source(), L"");
    }
  }
}

TEST(UcpPrepareTest, ChecksumTotalOverflowsPastTheLimitOfTextLength) {
  Input in;
  in.text_length = 32767;
  in.text = std::wstring(304, L'a');  // total 32,736: the last sum that fits
  EXPECT_EQ(Inner(Prepare(in)).substr(0, 9), "01/00638/");
  in.text += L"a";
  try {
    Prepare(in);
    ADD_FAILURE() << "no overflow";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 6);
  }
  EXPECT_EQ(SmsUcpSender::UcpChecksum(L"abc"), L"26");
  // Characters count with their Windows-1252 code: 0xE9 for e acute.
  EXPECT_EQ(SmsUcpSender::UcpChecksum(L"\u00e9\u00e9"), L"D2");
}

/// What one Send under the virtual clock should end in.
struct SendCase {
  const char* name;
  sim::UcpScenario centre;
  int n;  // 0: accepted
  std::wstring description;
  int transmissions;
  int64_t seconds;  // from the start of Send to its end
};

/// A modem on an open, connected fake port with the centre straight behind it; no dial.
class UcpSendTest : public testing::Test {
 protected:
  struct Outcome {
    std::optional<Error> error;
    int transmissions = 0;
    int64_t ms = 0;
  };

  Outcome Run(sim::UcpScenario scenario, int64_t drop_at_ms = -1) {
    scenario.say_no_carrier = true;  // no modem in front to say it
    runtime_ = std::make_unique<test::VirtualRuntime>(1'000'000);
    ScopedRuntime installed(*runtime_);
    centre_ = std::make_unique<sim::UcpCentre>(scenario);
    runtime_->set_peer(centre_.get());
    modem link;
    link.Initialize(L"1");
    link.comm->SetPortOpen(true);
    link.IsConnected = true;
    // What the modem said during the dial stays in front of the reply.
    link.recvBuffer = L"ATDT0612345\r\r\nCONNECT 9600\r\n";
    if (drop_at_ms >= 0) {
      centre_->DropLine(runtime_->now_ms(), runtime_->now_ms() + drop_at_ms,
                        *static_cast<test::FakeComm*>(link.comm.get()));
    }
    SmsUcpSender ucp;
    ucp.OperationType = L"01";
    ucp.TextLength = 320;
    ucp.SenderNumber = L"678";
    SmsMessage msg;
    msg.ParsedRecipient = L"12345";
    msg.Message = L"abc";
    const std::wstring frame = ucp.PrepareMessage(msg);
    ucp.modem = &link;

    Outcome outcome;
    const int64_t start = runtime_->now_ms();
    try {
      ucp.Send(frame);
    } catch (const Error& e) {
      outcome.error = e;
    }
    outcome.ms = runtime_->now_ms() - start;
    const std::string sent = "> " + ToLine(frame);
    outcome.transmissions = static_cast<int>(
        std::count(runtime_->transcript().begin(), runtime_->transcript().end(), sent));
    return outcome;
  }

  std::unique_ptr<test::VirtualRuntime> runtime_;
  std::unique_ptr<sim::UcpCentre> centre_;
};

sim::UcpScenario Scenario(void (*change)(sim::UcpScenario&)) {
  sim::UcpScenario s;
  change(s);
  return s;
}

TEST_F(UcpSendTest, JudgesTheReplyAtItsOffsets) {
  const std::wstring fromProvider = L"Error received from provider : ";
  const std::wstring tooMany = L"Too many retries. The message was not delivered.";
  const SendCase cases[] = {
      {"accepted at the first poll", {}, 0, L"", 1, 3},
      {"accepted after five polls", Scenario([](auto& s) { s.delay_ms = 5500; }), 0, L"", 2, 8},
      {"accepted after modem text", Scenario([](auto& s) { s.prefix = "\r\nRING\r\n"; }), 0, L"", 1,
       3},
      {"accepted in two pieces, a second apart",
       Scenario([](auto& s) { s.pieces = 2, s.piece_gap_ms = 1000; }), 0, L"", 1, 4},
      {"only the second frame answered", Scenario([](auto& s) { s.answer_frame = 2; }), 0, L"", 2,
       8},
      {"no answer", Scenario([](auto& s) { s.silent = true; }), 557, tooMany, 5, 27},
      {"lower-case a", Scenario([](auto& s) { s.letter = 'a'; }), 557, tooMany, 5, 27},
      {"lower-case n", Scenario([](auto& s) { s.letter = 'n', s.code = "24"; }), 557, tooMany, 5,
       27},
      // The first reply's STX stays the start: the "A" behind it is never read.
      {"a first reply with a blocks a later A",
       Scenario([](auto& s) { s.prefix = sim::UcpReply("01", 'a', ""); }), 557, tooMany, 5, 27},
      {"code 24", Scenario([](auto& s) { s.letter = 'N', s.code = "24"; }), 559,
       fromProvider + L"Message too long.", 1, 3},
      {"code 01", Scenario([](auto& s) { s.letter = 'N', s.code = "01"; }), 559,
       fromProvider + L"Checksum error.", 1, 3},
      {"code 38", Scenario([](auto& s) { s.letter = 'N', s.code = "38"; }), 559,
       fromProvider + L"Message forwarded.", 1, 3},
      {"code 28 has no entry", Scenario([](auto& s) { s.letter = 'N', s.code = "28"; }), 559,
       fromProvider, 1, 3},
      {"cut behind the slash after N",
       Scenario([](auto& s) { s.letter = 'N', s.code = "24", s.truncate = 17; }), 559, fromProvider,
       1, 3},
      {"cut after one digit of the code",
       Scenario([](auto& s) { s.letter = 'N', s.code = "24", s.truncate = 18; }), 559, fromProvider,
       1, 3},
      {"hang-up during the first poll", Scenario([](auto& s) { s.hangup_frame = 1; }), 558,
       L"Modem hung up unexpectedly.", 1, 3},
      {"hang-up during the third poll",
       Scenario([](auto& s) { s.hangup_frame = 1, s.hangup_delay_ms = 2500, s.silent = true; }),
       558, L"Modem hung up unexpectedly.", 1, 5},
  };
  for (const SendCase& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome got = Run(c.centre);
    if (c.n == 0) {
      EXPECT_FALSE(got.error) << got.error->what();
    } else if (!got.error) {
      ADD_FAILURE() << "accepted";
    } else {
      EXPECT_EQ(got.error->number(), ErrorBase + c.n);
      EXPECT_EQ(got.error->description(), c.description);
      EXPECT_EQ(got.error->source(), L"");
    }
    EXPECT_EQ(got.transmissions, c.transmissions);
    EXPECT_EQ(got.ms, c.seconds * 1000);
  }
}

TEST_F(UcpSendTest, HangUpDuringThePauseGoesUnnoticed) {
  // The NO CARRIER lands in the two-second pause; the first transmission clears the flag, and
  // the dead line then answers nothing.
  const Outcome got = Run({}, 500);
  ASSERT_TRUE(got.error);
  EXPECT_EQ(got.error->number(), ErrorBase + 557);
  EXPECT_EQ(got.transmissions, 5);
}

TEST_F(UcpSendTest, ClosedPortFailsBeforeAnythingHappens) {
  test::VirtualRuntime runtime(1'000'000);
  ScopedRuntime installed(runtime);
  modem link;
  link.Initialize(L"1");
  SmsUcpSender ucp;
  ucp.modem = &link;
  try {
    ucp.Send(L"\x02x\x03");
    ADD_FAILURE() << "sent";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), ErrorBase + 555);
    EXPECT_EQ(e.description(), L"Port closed prematurely.");
  }
  EXPECT_EQ(runtime.written(), "");
  EXPECT_EQ(runtime.now_ms(), 1'000'000);
}

TEST_F(UcpSendTest, LogsEachPollThatSeesAnIncompleteReply) {
  DebugMode = true;
  testing::internal::CaptureStdout();
  const Outcome got = Run(Scenario([](auto& s) { s.pieces = 2, s.piece_gap_ms = 2000; }));
  const std::string out = testing::internal::GetCapturedStdout();
  DebugMode = false;
  EXPECT_FALSE(got.error);
  std::vector<std::string> texts;
  for (size_t at = 0; at < out.size();) {
    const size_t end = std::min(out.find("\r\n", at), out.size());
    const std::string line = out.substr(at, end - at);
    const std::string text = line.substr(line.find('\t') + 1);
    if (text.rfind("Comm Event", 0) != 0 && text.rfind("Received", 0) != 0) texts.push_back(text);
    at = end + 2;
  }
  const std::vector<std::string> expected = {
      "Preparing UCP message.",
      "Sending UCP message.",
      "Sending : <STX>01/00036/O/01/12345/678//3/616263/C0<ETX>",
      "Processing returned message.",  // the first half only: no letter yet
      "Processing returned message.",  // still the first half
      "Processing returned message.",
      "Message was accepted by the provider.",
  };
  EXPECT_EQ(texts, expected);
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

  /// Puts a UCP centre behind the modem; gives a view of it that stays valid for the test.
  sim::UcpCentre* UseCentre(const sim::UcpScenario& scenario) {
    auto centre = std::make_unique<sim::UcpCentre>(scenario);
    sim::UcpCentre* view = centre.get();
    UseModem(sim::ModemScenario{}, std::move(centre));
    return view;
  }
};

TEST_F(UcpRoadTest, EachOperationGoesThroughTheCentre) {
  struct Case {
    const wchar_t* op;
    const char* auth;  // operations "01" and "30" leave the field empty
    const char* inner;
  };
  const Case cases[] = {
      {L"01", "", "01/00036/O/01/12345/678//3/616263/C0"},
      {L"03", "pw", "01/00050/O/03/12345/678/pw/0///////////3/616263/DA"},
      {L"30", "", "01/00040/O/30/12345/678////////616263/75"},
      {L"51", "pw", "01/00065/O/51/12345/678/pw///////////////3//616263/////////////A3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.inner);
    runtime_.transcript().clear();
    settings_->OpType = c.op;
    sim::UcpCentre* centre = UseCentre({});
    // A sender of its own: one link serves one send, as in a run of the program.
    SmsSender sender;
    sender.Settings = settings_;
    SmsMessage msg;
    msg.Recipient = L"+1 (234) 5";
    msg.Message = L"abc";
    EXPECT_NO_THROW(sender.SendSms(msg));
    ASSERT_EQ(centre->frames().size(), 1u);
    const sim::UcpFrame& frame = centre->frames()[0];
    EXPECT_TRUE(frame.length_ok);
    EXPECT_TRUE(frame.checksum_ok);
    EXPECT_EQ(frame.recipient, "12345");
    EXPECT_EQ(frame.text, "abc");
    EXPECT_EQ(frame.auth, c.auth);
    // Dial, frame, hang-up, close: in that order, with nothing else from the program.
    EXPECT_EQ(Lines("> "),
              (std::vector<std::string>{"> ATDT0612345\r",
                                        "> " + (kStx + std::string(c.inner) + kEtx), "> ATH"}));
    EXPECT_EQ(runtime_.transcript().back(), "-- close");
  }
}

TEST_F(UcpRoadTest, RefusalsBeforeTheCallNeverTouchThePort) {
  settings_->OpType = L"01";
  settings_->TextLength = L"4";
  UseCentre({});
  auto error = Send(L"12345", L"abc");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number(), ErrorBase + 554);
  EXPECT_EQ(error->description(), L"Message too long. Only 4 allowed for this provider.");

  settings_->TextLength = L"99999";  // doesn't fit 16 bits
  error = Send(L"12345", L"abc");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number(), 6);

  settings_->TextLength = L"320";
  error = Send(L"12345678901234567", L"abc");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number(), ErrorBase + 552);

  EXPECT_TRUE(runtime_.transcript().empty());
  EXPECT_EQ(sender_.Link().comm, nullptr);
}

TEST_F(UcpRoadTest, ARefusalHangsUpAndClosesThePort) {
  settings_->OpType = L"01";
  sim::UcpScenario refuse;
  refuse.letter = 'N';
  refuse.code = "24";
  UseCentre(refuse);
  const auto error = Send(L"12345", L"abc");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->description(), L"Error received from provider : Message too long.");
  EXPECT_TRUE(test::InOrder(runtime_.transcript(), {"# ucp: answer N 24", "> ATH", "-- close"}));
}

}  // namespace
}  // namespace kw
