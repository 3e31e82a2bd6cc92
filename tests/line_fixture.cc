#include "line_fixture.h"

#include <map>
#include <sstream>

#include "base/error.h"
#include "base/text.h"
#include "os/interrupt.h"
#include "sending/sms_sender.h"
#include "sim/centre_factory.h"
#include "sim/virtual_runtime.h"

namespace kw::test {

std::string Outcome(const std::function<void()>& step) {
  try {
    step();
    return "ok";
  } catch (const Error& e) {
    const int64_t n = e.number() < 0 ? int64_t{e.number()} - kErrorBase : e.number();
    const std::wstring source = e.source().empty() ? L"" : e.source() + L": ";
    const std::wstring cause = e.cause() == Cause::kNone ? L"" : L" (" + e.CauseText() + L")";
    return "[" + std::to_string(n) + "] " + ToLine(source + e.description() + cause);
  }
}

std::string Times(const std::string& text, int count) {
  return count > 0 ? text + Times(text, count - 1) : "";
}

void ExpectRun(const RunCase& c) {
  SCOPED_TRACE(c.setup);
  std::map<std::string, std::string> keys;
  std::istringstream items(
      "Protocol=TAP;Port=1;ConnectionTimeout=20;SmsCenterNumber=0612 345;OpType=01;"
      "TextLength=320;SenderNumber=678;Authentication=pw;" +
      c.setup);
  for (std::string item; std::getline(items, item, ';');) {
    const size_t equals = item.find('=');
    keys[item.substr(0, equals)] = equals == std::string::npos ? "1" : item.substr(equals + 1);
  }
  // Takes the key out, so that the centre gets what is left.
  auto take = [&keys](const std::string& key, std::string value = "0") {
    if (keys.count(key)) value = keys[key], keys.erase(key);
    return value;
  };
  auto number = [&take](const std::string& key) { return std::stoll(take(key)); };
  auto settings = std::make_shared<SmsSettings>();
  const std::pair<const char*, std::wstring SmsSettings::*> fields[] = {
      {"Protocol", &SmsSettings::protocol},
      {"Port", &SmsSettings::port},
      {"ConnectionTimeout", &SmsSettings::connection_timeout},
      {"DialPrefix", &SmsSettings::dial_prefix},
      {"SmsCenterNumber", &SmsSettings::sms_center_number},
      {"SmsCenterAddress", &SmsSettings::sms_center_address},
      {"OpType", &SmsSettings::op_type},
      {"TextLength", &SmsSettings::text_length},
      {"SenderNumber", &SmsSettings::sender_number},
      {"Authentication", &SmsSettings::authentication}};
  for (const auto& [name, field] : fields) (*settings).*field = FromLine(take(name, ""));
  sim::ModemScenario scenario;
  scenario.dial_result = take("result", scenario.dial_result);
  scenario.silent = number("noanswer");
  scenario.split = std::max(1LL, number("chunks"));
  scenario.split_gap_ms = std::stoll(take("chunk_gap", "50"));
  scenario.lf_cr = number("lfcr");
  scenario.leading_lines.assign(number("ring"), "RING");
  scenario.carrier_delay_ms = number("late");
  if (scenario.carrier_delay_ms > 0) scenario.carrier = sim::CarrierMode::kLate;
  if (scenario.carrier_delay_ms < 0) scenario.carrier = sim::CarrierMode::kNever;
  SmsMessage message{
      FromLine(take("to", "+1 (234) 5")), L"", FromLine(take("text", "abc")), {}, {}};

  const int64_t start = std::stoll(take("start", "1000000"));
  sim::VirtualRuntime runtime(start);
  ScopedRuntime installed(runtime);
  // openfails: 1, or the cause of a connection that fails: refused, timeout or name.
  const std::map<std::string, Cause> kCauses = {
      {"refused", Cause::kRefused}, {"timeout", Cause::kTimedOut}, {"name", Cause::kNameUnknown}};
  const std::string fails = take("openfails");
  runtime.set_open_fails(fails != "0", kCauses.count(fails) ? kCauses.at(fails) : Cause::kNone);
  runtime.set_busy_until_ms(start + number("busy"));
  sim::SimModem modem(scenario);
  runtime.set_peer(&modem);
  SmsSender sender;  // closes its port on the modem, which outlives it
  sender.settings = settings;
  sender.Link().port_wait_seconds = static_cast<int32_t>(number("wait"));
  const bool unplug = number("unplug");
  sender.on_before_send = [&] {
    if (unplug) sender.Link().is_connected = false, sender.Link().comm->SetPortOpen(false);
  };
  if (keys.count("stop"))
    runtime.At(start + number("stop"), [] { NoteInterruptRequest(L"SIGTERM"); });
  std::unique_ptr<sim::Peer> centre =
      sim::MakeCentre(take("centre", settings->protocol == L"UCP" ? "ucp" : "tap"), keys);
  // A centre on the network is the peer itself, with no modem in front.
  if (!settings->sms_center_address.empty()) runtime.set_peer(centre.get());
  modem.SetCentre(std::move(centre));
  EXPECT_EQ(Outcome([&] { sender.SendSms(message); }), c.want);
  ForgetInterruptRequest();
  EXPECT_FALSE(sender.Link().comm && sender.Link().comm->PortOpen());
  EXPECT_EQ(runtime.now_ms() - start, c.ms);
  EXPECT_EQ(runtime.written(), c.written);
  EXPECT_EQ(runtime.transcript().empty(), c.written.empty());  // never opened, or wrote
}

}  // namespace kw::test
