// The TAP block as it goes out for any recipient and message, against a centre that acknowledges
// it: STX, the recipient, CR, the message, CR, ETX, three checksum characters and CR, where the
// checksum is recomputed here from the bytes on the line: the low twelve bits of the sum of every
// byte from STX through ETX, four bits a character, each plus 0x30.
#include <cstdint>
#include <string>

#include "base/error.h"
#include "base/text.h"
#include "link/modem.h"
#include "message/sms_message.h"
#include "os/runtime.h"
#include "require.h"
#include "sim/peer.h"
#include "sim/virtual_runtime.h"
#include "tap/sms_tap_sender.h"
#include "wide_input.h"

using kw::fuzz::Require;

namespace {

/// A centre that acknowledges whatever it is sent, a tenth of a second later.
struct AckingCentre : kw::sim::Peer {
  void OnBytes(int64_t now_ms, const std::string&, kw::sim::PeerLine& line) override {
    line.SendAt(now_ms + 100, "\x06");
  }
};

/// The checksum of the bytes from STX through ETX, computed the way the centre checks it.
std::string ReferenceChecksum(const std::string& block) {
  unsigned sum = 0;
  for (unsigned char byte : block) sum += byte;
  return {static_cast<char>(0x30 + (sum >> 8 & 0x0F)), static_cast<char>(0x30 + (sum >> 4 & 0x0F)),
          static_cast<char>(0x30 + (sum & 0x0F))};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The input: the recipient NUL the message.
  std::string rest(reinterpret_cast<const char*>(data), size);
  kw::SmsMessage msg;
  msg.parsed_recipient = kw::fuzz::WideText(kw::fuzz::NextField(rest));
  msg.message = kw::fuzz::WideText(rest);

  // The checksum of any text, long sums included.
  const std::wstring text = msg.parsed_recipient + msg.message;
  Require(kw::ToLine(kw::SmsTapSender::TapChecksum(text)) == ReferenceChecksum(kw::ToLine(text)),
          "the checksum keeps the low twelve bits of the sum of the line codes");

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
  try {
    tap.Send(msg);
  } catch (const kw::Error&) {
    Require(false, "an acknowledged block is accepted");
  }
  link.comm->SetPortOpen(false);

  const std::string sent = runtime.written();
  const std::string block =
      "\x02" + kw::ToLine(msg.parsed_recipient) + "\r" + kw::ToLine(msg.message) + "\r\x03";
  Require(sent.size() == block.size() + 4 && sent.compare(0, block.size(), block) == 0 &&
              sent.back() == '\r',
          "one block: STX, recipient, CR, message, CR, ETX, three characters, CR");
  Require(sent.compare(block.size(), 3, ReferenceChecksum(block)) == 0,
          "the block's checksum is the sum of its bytes from STX through ETX");
  return 0;
}
