// The TAP block as it goes out for any recipient and message, against a centre that acknowledges
// it: STX, the recipient, CR, the message, CR, ETX, three checksum characters and CR, where the
// checksum is recomputed here from the bytes on the line: the low twelve bits of the sum of every
// byte from STX through ETX, four bits a character, each plus 0x30.
#include "fuzz_util.h"
#include "link/modem.h"
#include "message/sms_message.h"
#include "os/runtime.h"
#include "sim/peer.h"
#include "sim/virtual_runtime.h"
#include "tap/sms_tap_sender.h"

namespace {

/// A centre that acknowledges whatever it is sent, a tenth of a second later.
struct AckingCentre : kw::sim::Peer {
  void OnBytes(int64_t now_ms, const std::string&, kw::sim::PeerLine& line) override {
    line.SendAt(now_ms + 100, "\x06");
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The input: the recipient NUL the message.
  std::string rest(reinterpret_cast<const char*>(data), size);
  kw::SmsMessage msg;
  msg.parsed_recipient = kw::fuzz::WideText(kw::fuzz::NextField(rest));
  msg.message = kw::fuzz::WideText(rest);

  // The block on a line that is up, after a login that left the go-ahead in the buffer.
  kw::sim::VirtualRuntime runtime;
  kw::ScopedRuntime installed(runtime);
  AckingCentre centre;
  runtime.set_peer(&centre);
  kw::Modem link;
  link.Initialize(L"1");
  link.comm->SetPortOpen(true);
  link.is_connected = true;
  link.recv_buffer = L"[p";
  kw::SmsTapSender tap;
  tap.modem = &link;
  kw::fuzz::Require(kw::fuzz::ErrorOf([&] { tap.Send(msg); }) == 0,
                    "an acknowledged block is accepted");

  std::string block =
      "\x02" + kw::ToLine(msg.parsed_recipient) + "\r" + kw::ToLine(msg.message) + "\r\x03";
  unsigned sum = 0;
  for (unsigned char byte : block) sum += byte;
  for (int shift : {8, 4, 0}) block.push_back(static_cast<char>(0x30 + (sum >> shift & 0x0F)));
  kw::fuzz::Require(runtime.written() == block + "\r",
                    "one block, its checksum the sum of its bytes from STX through ETX");
  return 0;
}
