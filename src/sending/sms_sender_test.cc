#include "sending/sms_sender.h"

#include <gtest/gtest.h>

#include <functional>

#include "line_fixture.h"
#include "os/interrupt.h"
#include "sim/centre_factory.h"

namespace kw {
namespace {

using test::InOrder;
using test::LineFixture;

const wchar_t kBusy[] = L"The number is busy. Please try again later.";
const wchar_t kNoDialTone[] =
    L"There is no dial tone.  Please make sure that all your cables are properly connected.";
const wchar_t kNoCarrier[] =
    L"There is no carrier.  Please make sure that all your cables are properly connected.";
const wchar_t kTimedOut[] = L"Connection timed out. No response from Modem.";
const wchar_t kCantOpen[] =
    L"Error opening com port. Make sure no other application is using this port.";

/// One run on a fresh line: the modem plays the scenario, the settings are changed as asked.
struct DialRun {
  std::unique_ptr<Error> error;
  int64_t elapsed_ms = 0;
  std::string written;
  size_t transcript_lines = 0;
  bool connected = false;
  bool port_open = false;
  std::wstring received;
};

DialRun RunOnce(const sim::ModemScenario& scenario,
                const std::function<void(SmsSettings&)>& change = nullptr,
                const wchar_t* recipient = L"0612345678", bool connect_only = false,
                bool open_fails = false, int64_t start_ms = 1'000'000) {
  sim::VirtualRuntime runtime(start_ms);
  ScopedRuntime installed(runtime);
  sim::SimModem peer(scenario);
  runtime.set_peer(&peer);
  runtime.set_open_fails(open_fails);
  auto settings = std::make_shared<SmsSettings>();
  settings->Protocol = L"TAP";
  settings->Port = L"1";
  settings->ConnectionTimeout = L"20";
  settings->SmsCenterNumber = L"0612 345";
  if (change) change(*settings);
  DialRun run;
  {
    SmsSender sender;
    sender.Settings = settings;
    SmsMessage message;
    message.Recipient = recipient;
    try {
      if (connect_only) {
        sender.Connect();
      } else {
        sender.SendSms(message);
      }
    } catch (const Error& e) {
      run.error = std::make_unique<Error>(e);
    }
    run.connected = sender.Link().IsConnected;
    run.port_open = sender.Link().comm && sender.Link().comm->PortOpen();
    run.received = sender.Link().recvBuffer;
  }
  run.elapsed_ms = runtime.now_ms() - start_ms;
  run.written = runtime.written();
  run.transcript_lines = runtime.transcript().size();
  return run;
}

struct DialCase {
  const char* name;
  const char* result;  // the modem's answer; null for silence
  std::vector<std::string> leading;
  const wchar_t* timeout;
  int n;
  const wchar_t* description;
  int64_t min_ms, max_ms;  // when the error comes, from the start of the run
};

TEST(DialTest, ResultLinesEndTheDialWithTheirErrors) {
  const DialCase cases[] = {
      {"busy", "BUSY", {}, L"20", 526, kBusy, 300, 1000},
      {"no dialtone", "NO DIALTONE", {}, L"20", 526, kNoDialTone, 300, 1000},
      {"no dial tone", "NO DIAL TONE", {}, L"20", 526, kNoDialTone, 300, 1000},
      {"no carrier", "NO CARRIER", {}, L"20", 524, kNoCarrier, 300, 1000},
      {"error", "ERROR", {}, L"20", 525, L"An Input Error occurred. (ERROR)", 300, 1000},
      {"busy behind ring", "BUSY", {"RING"}, L"20", 526, kBusy, 300, 1000},
      {"silence", nullptr, {}, L"20", 523, kTimedOut, 20000, 21000},
      {"silence, time-out 0", nullptr, {}, L"0", 523, kTimedOut, 0, 1000},
      {"silence, negative time-out", nullptr, {}, L"-5", 523, kTimedOut, 0, 0},
      {"lower-case connect counts for nothing",
       "connect 9600",
       {},
       L"3",
       523,
       kTimedOut,
       3000,
       4000},
      {"ringing holds ring and is dropped",
       "RINGING CONNECT",
       {},
       L"2",
       523,
       kTimedOut,
       2000,
       3000},
  };
  for (const DialCase& c : cases) {
    SCOPED_TRACE(c.name);
    sim::ModemScenario scenario;
    scenario.silent = c.result == nullptr;
    if (c.result) scenario.dial_result = c.result;
    scenario.leading_lines = c.leading;
    const DialRun run =
        RunOnce(scenario, [&c](SmsSettings& s) { s.ConnectionTimeout = c.timeout; });
    ASSERT_TRUE(run.error);
    EXPECT_EQ(run.error->number(), ErrorBase + c.n);
    EXPECT_EQ(run.error->description(), c.description);
    EXPECT_EQ(run.error->source(), L"");
    EXPECT_GE(run.elapsed_ms, c.min_ms);
    EXPECT_LE(run.elapsed_ms, c.max_ms);
    // The dial went out once, nothing followed it (no hang-up: the link never came up), and the
    // port was closed.
    EXPECT_EQ(run.written, "ATDT0612345\r");
    EXPECT_FALSE(run.port_open);
  }
}

TEST(DialTest, TimeOutComesAtTheNextWholeSecondPastTheLimit) {
  // Started half-way through a second, the run fails only when the clock's seconds differ by
  // 21, which is 20.5 real seconds later.
  sim::ModemScenario silent;
  silent.silent = true;
  const DialRun run = RunOnce(silent, nullptr, L"0612345678", false, false, 1'000'500);
  ASSERT_TRUE(run.error);
  EXPECT_EQ(run.error->number(), ErrorBase + 523);
  EXPECT_EQ(run.elapsed_ms, 20'500);
}

TEST(DialTest, ConnectWaitsForTheCarrier) {
  struct CarrierCase {
    sim::CarrierMode mode;
    int64_t delay_ms;
    bool connected;
    int64_t min_ms, max_ms;
  };
  const CarrierCase cases[] = {
      {sim::CarrierMode::kAtConnect, 0, true, 300, 1000},
      {sim::CarrierMode::kLate, 5000, true, 5300, 7000},
      {sim::CarrierMode::kNever, 0, false, 31000, 32500},
  };
  for (const CarrierCase& c : cases) {
    sim::ModemScenario scenario;
    scenario.carrier = c.mode;
    scenario.carrier_delay_ms = c.delay_ms;
    const DialRun run = RunOnce(scenario, nullptr, L"0612", true);
    EXPECT_EQ(run.connected, c.connected);
    if (c.connected) {
      EXPECT_FALSE(run.error);
    } else {
      ASSERT_TRUE(run.error);
      EXPECT_EQ(run.error->number(), ErrorBase + 580);
      EXPECT_EQ(run.error->description(), L"Unable to connect modem.");
    }
    EXPECT_GE(run.elapsed_ms, c.min_ms);
    EXPECT_LE(run.elapsed_ms, c.max_ms);
    // What the modem said while dialing stays in the buffer for the protocol.
    EXPECT_NE(run.received.find(L"CONNECT 9600"), std::wstring::npos);
  }
}

TEST(DialTest, ResultLinesInPiecesAndOddLineEndsStillConnect) {
  struct Shape {
    int split;
    bool lf_cr;
    std::vector<std::string> leading;
    const char* result;
  };
  const Shape shapes[] = {{3, false, {}, "CONNECT 9600"},
                          {1, true, {}, "CONNECT"},
                          {2, false, {"RING", "RING"}, "CONNECT 2400"},
                          {1, false, {}, "CONNECT NO CARRIER"}};
  for (const Shape& s : shapes) {
    sim::ModemScenario scenario;
    scenario.split = s.split;
    scenario.lf_cr = s.lf_cr;
    scenario.leading_lines = s.leading;
    scenario.dial_result = s.result;
    EXPECT_TRUE(RunOnce(scenario, nullptr, L"0612", true).connected) << s.result;
  }
}

struct RefusalCase {
  const char* name;
  const wchar_t* recipient;
  std::function<void(SmsSettings&)> change;
  bool open_fails;
  int32_t number;
  const wchar_t* description;
};

TEST(DialTest, RefusalsBeforeTheLineIsUsed) {
  const RefusalCase cases[] = {
      {"no digit in the recipient", L"call me", nullptr, false, ErrorBase + 581,
       L"No recipient specified."},
      {"two digits to dial", L"0612",
       [](SmsSettings& s) {
         s.DialPrefix = L"(";
         s.SmsCenterNumber = L"1-2";
       },
       false, ErrorBase + 582, L"There is no smsc provider specified."},
      {"a prefix of three digits is enough to try", L"0612",
       [](SmsSettings& s) {
         s.DialPrefix = L"0,00";
         s.SmsCenterNumber = L"";
       },
       true, ErrorBase + 520, kCantOpen},
      {"port can't be opened", L"0612", nullptr, true, ErrorBase + 520, kCantOpen},
      {"port not a number", L"0612", [](SmsSettings& s) { s.Port = L"COM1"; }, false, 13,
       L"Type mismatch"},
      {"time-out not a number", L"0612", [](SmsSettings& s) { s.ConnectionTimeout = L"soon"; },
       false, 13, L"Type mismatch"},
      {"time-out too big", L"0612", [](SmsSettings& s) { s.ConnectionTimeout = L"40000"; }, false,
       6, L"Overflow"},
  };
  for (const RefusalCase& c : cases) {
    SCOPED_TRACE(c.name);
    const DialRun run = RunOnce(sim::ModemScenario{}, c.change, c.recipient, false, c.open_fails);
    ASSERT_TRUE(run.error);
    EXPECT_EQ(run.error->number(), c.number);
    EXPECT_EQ(run.error->description(), c.description);
    EXPECT_EQ(run.transcript_lines, 0u);  // the port was never opened
  }
}

class DialLogTest : public LineFixture {};

TEST_F(DialLogTest, LinesDuringTheCarrierWaitWaitForTheNextWait) {
  sim::ModemScenario scenario;
  scenario.carrier = sim::CarrierMode::kLate;
  scenario.carrier_delay_ms = 3000;
  UseModem(scenario);
  runtime_.At(start_ms_ + 1500, [this] {
    static_cast<sim::FakeComm*>(sender_.Link().comm.get())
        ->SendAt(runtime_.now_ms(), "\r\nNO CARRIER\r\n");
  });
  sender_.Connect();
  EXPECT_TRUE(sender_.Link().IsConnected);
  EXPECT_FALSE(sender_.Link().HangUpDetected);
  EXPECT_EQ(sender_.Link().recvBuffer.find(L"NO CARRIER"), std::wstring::npos);
  runtime_.DoEvents();  // the next place that lets events through sees it
  EXPECT_TRUE(sender_.Link().HangUpDetected);
}

TEST_F(DialLogTest, DebugLogShowsTheDial) {
  std::unique_ptr<Error> error;
  // No centre answers the login; only the dial part of the log matters here.
  const std::vector<std::string> log = SendWithDebug(&error);
  EXPECT_TRUE(InOrder(
      log, {"Initializing modem.", "Dialing sms center (0612 345)", "Sending : ATDT0612345<CR>",
            "Comm Event: Sending data", "Comm Event: Receiving data",
            "Received : <CR><LF>CONNECT 9600<CR><LF>", "Provider successfully connected."}))
      << testing::PrintToString(log);
}

// A request to stop (a signal) comes at some moment of the run; the next wait raises it, and the
// failure path of SendSms takes the link down as for any raised error.
TEST(InterruptTest, RequestToStopEndsTheRunWithinTwoSecondsAtEveryStage) {
  enum ModemAnswer { kConnects, kSilent, kNoCarrierAfterConnect };
  struct Stage {
    const char* name;
    const wchar_t* protocol;
    ModemAnswer modem;
    const char* centre;
    const char* centre_option;  // key=value, or empty
    int64_t request_ms;         // from the start of the run
    const char* last_sent;      // how the last unit sent before the request begins
    bool hangs_up;              // "ATH" follows it: the link was up
  };
  const Stage stages[] = {
      {"dialing", L"TAP", kSilent, "none", "", 5000, "ATDT", false},
      {"carrier wait", L"TAP", kNoCarrierAfterConnect, "none", "", 9500, "ATDT", true},
      {"TAP login", L"TAP", kConnects, "tap", "prompt_after=-1", 4200, "\r", true},
      {"TAP block unanswered", L"TAP", kConnects, "tap", "block=silent", 6000, "\x02", true},
      {"UCP reply unanswered", L"UCP", kConnects, "ucp", "silent=1", 6000, "\x02", true},
  };
  for (const Stage& c : stages) {
    SCOPED_TRACE(c.name);
    sim::VirtualRuntime runtime;
    ScopedRuntime installed(runtime);
    sim::ModemScenario scenario;
    scenario.silent = c.modem == kSilent;
    if (c.modem == kNoCarrierAfterConnect) scenario.carrier = sim::CarrierMode::kNever;
    sim::SimModem peer(scenario);  // outlives the sender, whose port closes on it
    std::map<std::string, std::string> options;
    if (const std::string option = c.centre_option; !option.empty()) {
      options[option.substr(0, option.find('='))] = option.substr(option.find('=') + 1);
    }
    peer.SetCentre(sim::MakeCentre(c.centre, options));
    runtime.set_peer(&peer);
    const int64_t request_ms = runtime.now_ms() + c.request_ms;
    runtime.At(request_ms, [] { NoteInterruptRequest(L"SIGTERM"); });
    auto settings = std::make_shared<SmsSettings>();
    settings->Protocol = c.protocol;
    settings->Port = L"1";
    settings->ConnectionTimeout = L"20";
    settings->SmsCenterNumber = L"0612 345";
    settings->OpType = L"01";
    settings->TextLength = L"320";
    std::unique_ptr<Error> error;
    {
      SmsSender sender;
      sender.Settings = settings;
      SmsMessage message;
      message.Recipient = L"0612345678";
      message.Message = L"hi";
      try {
        sender.SendSms(message);
      } catch (const Error& e) {
        error = std::make_unique<Error>(e);
      }
      EXPECT_FALSE(sender.Link().comm->PortOpen());
    }
    ForgetInterruptRequest();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->number(), 18);
    EXPECT_EQ(error->description(), L"Interrupted by SIGTERM before the send was confirmed");
    EXPECT_GE(runtime.now_ms(), request_ms);
    EXPECT_LT(runtime.now_ms(), request_ms + 2000);
    std::vector<std::string> written;
    for (const std::string& line : runtime.transcript()) {
      if (line.rfind("> ", 0) == 0) written.push_back(line.substr(2));
    }
    ASSERT_GE(written.size(), c.hangs_up ? 2u : 1u);
    if (c.hangs_up) {
      EXPECT_EQ(written.back(), "ATH");
      written.pop_back();
    }
    EXPECT_EQ(written.back().rfind(c.last_sent, 0), 0u) << testing::PrintToString(written);
    EXPECT_EQ(runtime.transcript().back(), "-- close");
  }
}

}  // namespace
}  // namespace kw
