#include "sending/sms_sender.h"

#include <gtest/gtest.h>

#include "line_fixture.h"

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

struct DialCase {
  const char* name;
  const char* result;  // the modem's answer; null for silence
  std::vector<std::string> leading;
  const wchar_t* timeout;
  int n;
  const wchar_t* description;
  int64_t min_ms, max_ms;  // when the error comes, from the start of the run
};

class DialTest : public LineFixture {};

TEST_F(DialTest, ResultLinesEndTheDialWithTheirErrors) {
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
      {"lower-case connect counts for nothing", "connect 9600", {}, L"3", 523, kTimedOut, 3000,
       4000},
      {"ringing holds ring and is dropped", "RINGING CONNECT", {}, L"2", 523, kTimedOut, 2000,
       3000},
  };
  for (const DialCase& c : cases) {
    SCOPED_TRACE(c.name);
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::ModemScenario scenario;
    scenario.silent = c.result == nullptr;
    if (c.result) scenario.dial_result = c.result;
    scenario.leading_lines = c.leading;
    sim::SimModem peer(scenario);
    runtime.set_peer(&peer);
    auto settings = std::make_shared<SmsSettings>(*settings_);
    settings->ConnectionTimeout = c.timeout;
    SmsSender sender;
    sender.Settings = settings;
    SmsMessage message;
    message.Recipient = L"0612345678";
    try {
      sender.SendSms(message);
      ADD_FAILURE() << "no error";
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), ErrorBase + c.n);
      EXPECT_EQ(e.description(), c.description);
      EXPECT_EQ(e.source(), L"");
    }
    const int64_t elapsed = runtime.now_ms() - 1'000'000;
    EXPECT_GE(elapsed, c.min_ms);
    EXPECT_LE(elapsed, c.max_ms);
    // The dial went out once; nothing followed it, and the port was closed.
    EXPECT_EQ(runtime.written(), "ATDT0612345\r");
    EXPECT_EQ(runtime.transcript().back(), "-- close");
    EXPECT_FALSE(sender.Link().comm->PortOpen());
  }
}

TEST_F(DialTest, TimeOutComesAtTheNextWholeSecondPastTheLimit) {
  // Started half-way through a second, the run still fails only when the clock's seconds
  // differ by 21, which is 20.5 real seconds later.
  sim::VirtualRuntime runtime(1'000'500);
  ScopedRuntime installed(runtime);
  sim::ModemScenario silent;
  silent.silent = true;
  sim::SimModem peer(silent);
  runtime.set_peer(&peer);
  sender_.Settings = settings_;
  auto error = Send();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number(), ErrorBase + 523);
  EXPECT_EQ(runtime.now_ms(), 1'021'000);
  // Blocking waits, one a second or so: a spinning wait would show thousands.
  EXPECT_LE(runtime.waits(), 25);
}

TEST_F(DialTest, ConnectWaitsForTheCarrier) {
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
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::ModemScenario scenario;
    scenario.carrier = c.mode;
    scenario.carrier_delay_ms = c.delay_ms;
    sim::SimModem peer(scenario);
    runtime.set_peer(&peer);
    SmsSender sender;
    sender.Settings = settings_;
    if (c.connected) {
      sender.Connect();
      EXPECT_TRUE(sender.Link().IsConnected);
    } else {
      try {
        sender.Connect();
        ADD_FAILURE() << "no error";
      } catch (const Error& e) {
        EXPECT_EQ(e.number(), ErrorBase + 580);
        EXPECT_EQ(e.description(), L"Unable to connect modem.");
      }
    }
    const int64_t elapsed = runtime.now_ms() - 1'000'000;
    EXPECT_GE(elapsed, c.min_ms);
    EXPECT_LE(elapsed, c.max_ms);
    // What the modem said while dialing stays in the buffer for the protocol.
    EXPECT_NE(sender.Link().recvBuffer.find(L"CONNECT 9600"), std::wstring::npos);
  }
}

TEST_F(DialTest, ResultLinesInPiecesAndOddLineEndsStillConnect) {
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
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::ModemScenario scenario;
    scenario.split = s.split;
    scenario.lf_cr = s.lf_cr;
    scenario.leading_lines = s.leading;
    scenario.dial_result = s.result;
    sim::SimModem peer(scenario);
    runtime.set_peer(&peer);
    SmsSender sender;
    sender.Settings = settings_;
    sender.Connect();
    EXPECT_TRUE(sender.Link().IsConnected) << s.result;
  }
}

TEST_F(DialTest, LinesDuringTheCarrierWaitWaitForTheNextWait) {
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

TEST_F(DialTest, DebugLogShowsTheDial) {
  std::unique_ptr<Error> error;
  // No centre answers the login; only the dial part of the log matters here.
  const std::vector<std::string> log = SendWithDebug(&error);
  EXPECT_TRUE(InOrder(log, {"Initializing modem.", "Dialing sms center (0612 345)",
                            "Sending : ATDT0612345<CR>", "Comm Event: Sending data",
                            "Comm Event: Receiving data", "Received : <CR><LF>CONNECT 9600<CR><LF>",
                            "Provider successfully connected."}))
      << testing::PrintToString(log);
}

struct RefusalCase {
  const char* name;
  const wchar_t* recipient;
  const wchar_t* port;
  const wchar_t* timeout;
  const wchar_t* prefix;
  const wchar_t* centre;
  bool open_fails;
  int32_t number;
  const wchar_t* description;
  bool port_opened;
};

TEST_F(DialTest, RefusalsBeforeTheLineIsUsed) {
  const RefusalCase cases[] = {
      {"no digit in the recipient", L"call me", L"1", L"20", L"", L"0612", false, ErrorBase + 581,
       L"No recipient specified.", false},
      {"two digits to dial", L"0612", L"1", L"20", L"(", L"1-2", false, ErrorBase + 582,
       L"There is no smsc provider specified.", false},
      {"prefix alone is enough", L"0612", L"1", L"20", L"0,00", L"", true, ErrorBase + 520,
       L"Error opening com port. Make sure no other application is using this port.", false},
      {"port can't be opened", L"0612", L"1", L"20", L"", L"0612", true, ErrorBase + 520,
       L"Error opening com port. Make sure no other application is using this port.", false},
      {"port not a number", L"0612", L"COM1", L"20", L"", L"0612", false, 13, L"Type mismatch",
       false},
      {"time-out not a number", L"0612", L"1", L"soon", L"", L"0612", false, 13, L"Type mismatch",
       false},
      {"time-out too big", L"0612", L"1", L"40000", L"", L"0612", false, 6, L"Overflow", false},
  };
  for (const RefusalCase& c : cases) {
    SCOPED_TRACE(c.name);
    sim::VirtualRuntime runtime(1'000'000);
    ScopedRuntime installed(runtime);
    sim::SimModem peer{sim::ModemScenario{}};
    runtime.set_peer(&peer);
    runtime.set_open_fails(c.open_fails);
    auto settings = std::make_shared<SmsSettings>(*settings_);
    settings->Port = c.port;
    settings->ConnectionTimeout = c.timeout;
    settings->DialPrefix = c.prefix;
    settings->SmsCenterNumber = c.centre;
    SmsSender sender;
    sender.Settings = settings;
    SmsMessage message;
    message.Recipient = c.recipient;
    try {
      sender.SendSms(message);
      ADD_FAILURE() << "no error";
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), c.number);
      EXPECT_EQ(e.description(), c.description);
    }
    EXPECT_EQ(runtime.written(), "");
    EXPECT_EQ(runtime.transcript().empty(), !c.port_opened);
  }
}

}  // namespace
}  // namespace kw
