// The TAP dialogue and the UCP reply reader over a link that is up, under the virtual clock: a
// scripted centre answers every write with the input's bytes at the input's times.
#include <set>
#include <string>

#include "base/text.h"
#include "fuzz_link.h"
#include "sending/sms_message.h"
#include "tap/sms_tap_sender.h"
#include "ucp/sms_ucp_sender.h"

using kw::fuzz::Require;

namespace {

/// Recipient 123 and message abc in one block with its checksum.
const std::string kBlock = "\x02\x31\x32\x33\x0D\x61\x62\x63\x0D\x03\x31\x3D\x3B\x0D";

/// Takes as many copies of the piece as stand at the front of the text; gives their number.
int TakeAll(std::string& text, const std::string& piece) {
  int count = 0;
  for (; text.rfind(piece, 0) == 0; ++count) text.erase(0, piece.size());
  return count;
}

/// Whether the byte came from the centre after the last write of the piece.
bool CameAfterLast(const kw::fuzz::VirtualLine& line, const std::string& piece, char byte) {
  bool after = false, seen = false;
  for (const std::string& entry : line.runtime.transcript()) {
    if (entry == "> " + piece) after = true, seen = false;
    if (after && entry.rfind("< ", 0) == 0 && entry.find(byte) != std::string::npos) seen = true;
  }
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kw::fuzz::Input input{data, size};
  const bool ucp = input.Byte() & 1;
  kw::fuzz::VirtualLine line(input);
  line.Connect();
  kw::SmsMessage msg;
  msg.ParsedRecipient = L"123";
  msg.Message = L"abc";
  if (!ucp) {
    kw::SmsTapSender tap;
    tap.modem = &line.link;
    const int outcome = kw::fuzz::Outcome([&] {
      tap.Login(L"secret");
      if (tap.Authenticated) tap.Send(msg);
    });
    Require(outcome == 0 || (outcome >= 530 && outcome <= 539), "TAP ends in a documented way");
    // Ten probes, at most 35 login passes (30 silent, 5 NAK), five blocks: a second each.
    Require(line.ElapsedMs() <= 51'000, "TAP ends in bounded time");
    Require(outcome != 0 || CameAfterLast(line, kBlock, '\x06'), "accepted only after an ACK");
    Require(outcome != 538 || CameAfterLast(line, kBlock, '\x1e'), "rejected only after an RS");
    line.TakeDown();
    std::string written = line.runtime.written();
    const int probes = TakeAll(written, "\r"), requests = TakeAll(written, "\x1bPG1secret\r");
    const int blocks = TakeAll(written, kBlock);
    TakeAll(written, "ATH");
    Require(written.empty() && probes >= 1 && probes <= 10 && requests <= 35 && blocks <= 5 &&
                (requests > 0 || blocks == 0),
            "TAP writes probes, then requests, then blocks, then ATH");
    return 0;
  }
  kw::SmsUcpSender sender;
  sender.OperationType = L"01";
  sender.TextLength = 320;
  sender.SenderNumber = L"678";
  sender.modem = &line.link;
  const std::wstring frame = sender.PrepareMessage(msg);
  std::wstring said;
  const int outcome = kw::fuzz::Outcome([&] { sender.Send(frame); }, &said);
  Require(std::set<int>{0, 557, 558, 559}.count(outcome), "UCP ends in a documented way");
  Require(line.ElapsedMs() <= 28'000, "UCP ends within 2 s and five times five polls");
  // The first STX of all that came marks the reply; its letter stands 15 bytes on.
  const std::string got = line.Received();
  const size_t stx = got.find('\x02');
  const char letter = stx != std::string::npos && stx + 15 < got.size() ? got[stx + 15] : 0;
  Require(outcome != 0 || letter == 'A', "accepted only on an A");
  Require(
      outcome != 559 || (letter == 'N' && said.rfind(L"Error received from provider : ", 0) == 0),
      "refused only on an N, with the centre's text");
  line.TakeDown();
  std::string written = line.runtime.written();
  const int frames = TakeAll(written, kw::ToLine(frame));
  TakeAll(written, "ATH");
  Require(written.empty() && frames >= 1 && frames <= 5, "UCP writes the frame, then ATH");
  return 0;
}
