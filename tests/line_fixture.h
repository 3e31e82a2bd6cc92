#ifndef KW_TESTS_LINE_FIXTURE_H_
#define KW_TESTS_LINE_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "config/sms_settings.h"
#include "sending/sms_message.h"
#include "sending/sms_sender.h"
#include "sim/sim_modem.h"
#include "sim/virtual_runtime.h"

namespace kw::test {

/// A whole send under the virtual clock: settings, a sender, and the simulated modem with an
/// optional centre behind it on the far side of the fake port.
class LineFixture : public testing::Test {
 protected:
  LineFixture();
  ~LineFixture() override;

  /// Sets the modem up with the scenario (and the centre) before the run.
  void UseModem(const sim::ModemScenario& scenario, std::unique_ptr<sim::Peer> centre = nullptr);

  /// Runs SendSms; gives the error it raised, or null on success.
  std::unique_ptr<Error> Send(const std::wstring& recipient = L"0612345678",
                              const std::wstring& text = L"hello world");
  /// Runs SendSms under /DEBUG and gives the debug texts, without their stamps.
  std::vector<std::string> SendWithDebug(std::unique_ptr<Error>* error);

  /// The transcript's lines that match a prefix ("> ", "< ", "--").
  std::vector<std::string> Lines(const std::string& prefix) const;

  sim::VirtualRuntime runtime_{1'000'000};
  int64_t start_ms_ = 1'000'000;
  ScopedRuntime installed_{runtime_};
  std::shared_ptr<SmsSettings> settings_ = std::make_shared<SmsSettings>();
  /// Made before the sender, so that the sender's port closes while the modem is still there.
  std::unique_ptr<sim::SimModem> modem_peer_;
  SmsSender sender_;
  SmsMessage message_;
};

/// Sets the link up on the installed runtime's serial port, open or not, and counts it as
/// connected, as a protocol sender finds it after a dial.
void UseConnectedLink(modem& link, bool open = true);

/// Ends a capture of standard output and gives it with CR LF read as LF, alike on every platform:
/// the capture reads back in text mode on Windows, which drops the CR. (The line ends themselves
/// are checked byte for byte end to end.)
std::string CapturedStdoutLf();

/// Whether the needles stand in the haystack in this order (other lines may stand between).
bool InOrder(const std::vector<std::string>& haystack, const std::vector<std::string>& needles);

}  // namespace kw::test

#endif  // KW_TESTS_LINE_FIXTURE_H_
