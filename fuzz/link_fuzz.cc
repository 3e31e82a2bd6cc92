// The link under the virtual clock with a scripted peer that answers every write with the
// input's bytes at the input's times: the dial's receive path and the judging of the modem's
// result lines, the TAP dialogue, and the UCP reply reader.
#include <set>

#include "fuzz_util.h"
#include "message/sms_message.h"
#include "tap/sms_tap_sender.h"
#include "ucp/sms_ucp_sender.h"

namespace kw::fuzz {
namespace {

/// Takes as many copies of the piece as stand at the front of the text; gives their number.
int TakeAll(std::string& text, const std::string& piece) {
  int count = 0;
  for (; text.rfind(piece, 0) == 0; ++count) text.erase(0, piece.size());
  return count;
}

/// The dial: the modem answers the dial command with the input's bytes, in pieces.
void Dial(VirtualLine& line) {
  const int16_t timeout = line.link.connection_timeout = line.Byte() % 40 - 1;  // -1 to 38 s
  const uint8_t carrier = line.Byte();  // 0: never; else up (n - 1) * 250 ms after the dial
  line.carrier_after_ms = carrier == 0 ? -1 : (carrier - 1) * 250;
  const int outcome = ErrorOf([&] { line.link.DialSmsCenter(L"0800123456"); });
  const bool connected = line.link.is_connected;
  Require(std::set<int>{0, 523, 524, 525, 526}.count(outcome) &&
              line.ElapsedMs() < (std::max<int64_t>(timeout, 0) + 34) * 1000,
          "the dial ends in a documented way within the time-out and the carrier wait");
  // A line ends at CR; an LF anywhere is no part of it.
  std::wstring lines = line.link.recv_buffer;
  lines.erase(std::remove(lines.begin(), lines.end(), L'\n'), lines.end());
  Require(outcome != 0 || (lines.find(L"CONNECT") != std::wstring::npos &&
                           connected == line.link.comm->CDHolding()),
          "connected only after a CONNECT, and exactly when the carrier holds");
  Require(FromLine(line.Received()).rfind(line.link.recv_buffer, 0) == 0,
          "the receive buffer holds what came, in order");
  Require(line.TakeDown() == std::string("ATDT0800123456\r") + (connected ? "ATH" : ""),
          "only the dial command and, when connected, ATH go out");
}

/// The TAP login and block, with a scripted centre behind a link that is up.
void Tap(VirtualLine& line, const SmsMessage& msg) {
  SmsTapSender tap{&line.link, false};
  const int outcome = ErrorOf([&] {
    tap.Login(L"secret");
    if (tap.authenticated) tap.Send(msg);
  });
  // Ten probes, at most 35 login passes (30 silent, 5 NAK), five blocks: a second each.
  Require((outcome == 0 || (outcome >= 530 && outcome <= 539)) && line.ElapsedMs() <= 51'000,
          "TAP ends in a documented way in bounded time");
  const std::string got = line.Received();
  Require(outcome != 0 || got.find('\x06') != std::string::npos, "accepted only on an ACK");
  Require(outcome != 538 || got.find('\x1e') != std::string::npos, "rejected only on an RS");
  std::string written = line.TakeDown();
  const int probes = TakeAll(written, "\r"), requests = TakeAll(written, "\x1bPG1secret\r");
  const int blocks = TakeAll(written, "\002123\rabc\r\0031=;\r");  // 123, abc and the checksum
  TakeAll(written, "ATH");
  Require(written.empty() && probes >= 1 && probes <= 10 && requests <= 35 && blocks <= 5 &&
              (requests > 0 || blocks == 0),
          "TAP writes probes, then requests, then blocks, then ATH");
}

/// The UCP frame and the judging of the reply, with a scripted centre behind a link that is up.
void Ucp(VirtualLine& line, const SmsMessage& msg) {
  SmsUcpSender sender{L"01", L"", L"", 320, L"678", &line.link};  // TextLength 320, sender 678
  const std::wstring frame = sender.PrepareMessage(msg);
  const int outcome = ErrorOf([&] { sender.Send(frame); });
  Require(std::set<int>{0, 557, 558, 559}.count(outcome) && line.ElapsedMs() <= 28'000,
          "UCP ends in a documented way within 2 s and five times five polls");
  // The first STX of all that came marks the reply; its letter stands 15 bytes on.
  const std::string got = line.Received();
  const size_t stx = got.find('\x02');
  const char letter = stx != std::string::npos && stx + 15 < got.size() ? got[stx + 15] : 0;
  Require(outcome != 0 || letter == 'A', "accepted only on an A");
  Require(outcome != 559 || letter == 'N', "refused only on an N");
  std::string written = line.TakeDown();
  const int frames = TakeAll(written, ToLine(frame));
  TakeAll(written, "ATH");
  Require(written.empty() && frames >= 1 && frames <= 5, "UCP writes the frame, then ATH");
}

}  // namespace

void FuzzOne(const std::string& input) {
  // The first byte picks the dial, or TAP or UCP on a link that is up as a sender finds it.
  VirtualLine line(input);
  const int part = line.Byte() % 3;
  if (part == 0) return Dial(line);
  line.BringUp();
  const SmsMessage msg{L"", L"123", L"abc", {}, {}};  // to 123, the text abc
  part == 1 ? Tap(line, msg) : Ucp(line, msg);
}

}  // namespace kw::fuzz
