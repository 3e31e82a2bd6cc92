#include "tap/sms_tap_sender.h"

#include "base/text.h"
#include "line_fixture.h"

namespace kw {

/// The dial, probes, login requests and blocks of 12345/abc (ten bytes that sum to 0x244),
/// then the hang-up.
static std::string Sent(int probes, int requests, int blocks, const char* hang_up = "ATH") {
  return "ATDT0612345\r" + test::Times("\r", probes) + test::Times("\x1bPG1pw\r", requests) +
         test::Times("\00212345\rabc\r\003244\r", blocks) + hang_up;
}

// Every probe, request and block waits one second for its answer.
TEST(TapSendTest, LogsInAndSendsAsTheCentreAnswers) {
  const std::string no_prompt =
      "[532] No login prompt from SMSC provider within 10 attempts. Modem hung up.";
  const std::string no_go_ahead = "[534] Provider did not say it's ok to proceed.";
  const std::string too_many = "[539] Too many retries. The message was not delivered.";
  const test::RunCase cases[] = {
      {"", "ok", 3000, Sent(1, 1, 1)},
      {"prompt_after=9", "ok", 12000, Sent(10, 1, 1)},
      {"split=3;split_gap=300", "ok", 3000, Sent(1, 1, 1)},
      {"prompt_after=-1", no_prompt, 10000, Sent(10, 0, 0)},
      {"prompt=id=", no_prompt, 10000, Sent(10, 0, 0)},
      {"login=nak+ack", "ok", 3000, Sent(1, 1, 1)},
      // A NAK once seen counts again at every later pass, before the ESC EOT that follows it.
      {"login_naks=1;login=esceot",
       "[530] Too many login attempts (6). Please check the provider authentication settings.",
       7000, Sent(1, 6, 0)},
      {"login=esceot", "[533] Forced disconnect from provider.", 2000, Sent(1, 1, 0)},
      {"drop=login:1", "[536] Modem hung up unexpectedly while logging in.", 2000, Sent(1, 1, 0)},
      {"login=silent", "[531] Number of login retries (30) over. Modem hung up.", 31000,
       Sent(1, 30, 0)},
      {"go_ahead=later;go_ahead_gap=1500", no_go_ahead, 2000, Sent(1, 1, 0)},
      {"unplug", "[535] Modem is not connected. Message could not be sent", 2000,
       Sent(1, 1, 0, "")},
      // A late ACK is judged in the next wait.
      {"block_delay=1500", "ok", 4000, Sent(1, 1, 2)},
      {"block=nak+ack", "ok", 3000, Sent(1, 1, 1)},
      {"block=silent", too_many, 7000, Sent(1, 1, 5)},
      {"block=nak+rs", too_many, 7000, Sent(1, 1, 5)},  // NAK is judged before RS
      {"block=rs+esceot", "[538] The message was rejected by the provider.", 3000, Sent(1, 1, 1)},
      {"block=esceot", "[536] The message was not accepted by the provider.", 3000, Sent(1, 1, 1)},
      {"drop=block:1", "[537] Modem hung up unexpectedly.", 3000, Sent(1, 1, 1)},
      {"prompt_after=-1;stop=4200", test::kStopped, 4200, Sent(5, 0, 0)},
      {"block=silent;stop=6000", test::kStopped, 6000, Sent(1, 1, 4)},
  };
  for (const test::RunCase& c : cases) test::ExpectRun(c);
}

}  // namespace kw
