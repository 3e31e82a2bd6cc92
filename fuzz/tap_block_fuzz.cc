// The TAP block as it goes out for any recipient and message, against a centre that acknowledges
// it: STX, the recipient, CR, the message, CR, ETX, three checksum characters and CR, where the
// checksum is recomputed here from the bytes on the line: the low twelve bits of the sum of every
// byte from STX through ETX, four bits a character, each plus 0x30.
#include "fuzz_util.h"
#include "message/sms_message.h"
#include "tap/sms_tap_sender.h"

namespace kw::fuzz {
void FuzzOne(const std::string& input) {
  // The input: the recipient NUL the message.
  std::string rest = input;
  const std::wstring to = WideText(NextField(rest));
  const SmsMessage msg{L"", to, WideText(rest), {}, {}};

  // The block on a line that is up, after a login that left the go-ahead in the buffer.
  // A centre that acknowledges the block a tenth of a second later.
  VirtualLine line(std::string("\x05\x01\x06", 3));
  line.BringUp();
  line.link.recv_buffer = L"[p";
  SmsTapSender tap{&line.link, false};
  Require(ErrorOf([&] { tap.Send(msg); }) == 0, "an acknowledged block is accepted");

  std::string block = "\x02" + ToLine(msg.parsed_recipient) + "\r" + ToLine(msg.message) + "\r\x03";
  const long long sum = Sum(block);
  for (int shift : {8, 4, 0}) block.push_back(static_cast<char>(0x30 + (sum >> shift & 0x0F)));
  Require(line.runtime.written() == block + "\r",
          "one block, its checksum the sum of its bytes from STX through ETX");
}

}  // namespace kw::fuzz
