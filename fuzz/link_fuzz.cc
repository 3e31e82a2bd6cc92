// The link under the virtual clock with a scripted peer that answers every write with the
// input's bytes at the input's times: the dial's receive path and the judging of the modem's
// result lines, the TAP dialogue, and the UCP reply reader.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <set>
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
#include "ucp/sms_ucp_sender.h"

namespace kw::fuzz {
namespace {

/// Reads a fuzzer input front to back; past its end every byte reads as 0.
struct Input {
  const uint8_t* data;
  size_t size;
  size_t at = 0;
  /// The next byte, or 0 past the end.
  uint8_t Byte() { return at < size ? data[at++] : 0; }
  /// Up to the next n bytes.
  std::string Bytes(size_t n) {
    const size_t take = std::min(n, size - at);
    at += take;
    return std::string(reinterpret_cast<const char*>(data) + at - take, take);
  }
};

/// The far side of the line, answering every write of the program with the input's next reply:
/// a header byte (bits 0-6: the delay in 20 ms steps; bit 7: the reply follows the one before it
/// without waiting for a write), a length byte and that many bytes. The carrier rises
/// carrier_after_ms after the first write (never when negative).
struct ScriptedPeer : sim::Peer {
  ScriptedPeer(Input& in, sim::VirtualRuntime& clock) : input(in), runtime(clock) {}
  void OnBytes(int64_t now_ms, const std::string&, sim::PeerLine& line) override {
    if (!written && carrier_after_ms >= 0) {
      runtime.At(now_ms + carrier_after_ms, [&line] { line.SetCarrier(true); });
    }
    written = true;
    for (bool first = true; input.at < input.size && (first || (input.data[input.at] & 0x80));
         first = false) {
      now_ms += (input.Byte() & 0x7F) * 20;
      line.SendAt(now_ms, input.Bytes(input.Byte()));
    }
  }

  Input& input;
  sim::VirtualRuntime& runtime;
  int64_t carrier_after_ms = -1;
  bool written = false;
};

/// One run under the virtual clock: the scripted peer behind the fake port and the link on it.
struct VirtualLine {
  explicit VirtualLine(Input& input) : peer(input, runtime) { runtime.set_peer(&peer); }
  /// Takes the link down as the sender does on every way out; the port must end closed.
  void TakeDown() {
    if (link.is_connected) link.HangUp();
    link.comm->SetPortOpen(false);
    const auto& lines = runtime.transcript();
    Require(!link.comm->PortOpen() && std::count(lines.begin(), lines.end(), "-- open") ==
                                          std::count(lines.begin(), lines.end(), "-- close"),
            "the port ends closed");
  }
  /// Virtual milliseconds since the start.
  int64_t ElapsedMs() const { return runtime.now_ms() - kStartMs; }
  /// Every byte that came from the peer and reached the port, in order.
  std::string Received() const {
    std::string bytes;
    for (const std::string& line : runtime.transcript()) {
      if (line.rfind("< ", 0) == 0) bytes += line.substr(2);
    }
    return bytes;
  }

  static constexpr int64_t kStartMs = 1'000'000;
  sim::VirtualRuntime runtime{kStartMs};
  ScopedRuntime installed{runtime};
  ScriptedPeer peer;
  /// Last, so that its port closes while the peer and the clock are still there.
  Modem link;
};

/// Runs a step: 0 for a normal return, n for the program's own error n, the raw number for any
/// other raised error, whose description it keeps. Anything else thrown (the virtual clock's hang
/// guard) escapes, and libFuzzer reports it.
int Outcome(const std::function<void()>& step, std::wstring* description = nullptr) {
  try {
    step();
    return 0;
  } catch (const Error& e) {
    if (description) *description = e.description();
    const int64_t n = static_cast<int64_t>(e.number()) - kErrorBase;
    return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
  }
}

/// Recipient 123 and message abc in one block with its checksum.
const std::string kBlock = "\x02\x31\x32\x33\x0D\x61\x62\x63\x0D\x03\x31\x3D\x3B\x0D";

/// Takes as many copies of the piece as stand at the front of the text; gives their number.
int TakeAll(std::string& text, const std::string& piece) {
  int count = 0;
  for (; text.rfind(piece, 0) == 0; ++count) text.erase(0, piece.size());
  return count;
}

/// The dial: the modem answers the dial command with the input's bytes, in pieces.
void Dial(Input& input) {
  const int16_t timeout = static_cast<int16_t>(input.Byte() % 40) - 1;  // -1 to 38 seconds
  const uint8_t carrier = input.Byte();  // 0: never; else it rises (n - 1) * 250 ms after the dial
  VirtualLine line(input);
  line.peer.carrier_after_ms = carrier == 0 ? -1 : (carrier - 1) * 250;
  line.link.Initialize(L"1");
  line.link.connection_timeout = timeout;

  std::wstring said;
  const int outcome = Outcome([&] { line.link.DialSmsCenter(L"0800123456"); }, &said);
  const bool connected = line.link.is_connected;
  Require(std::set<int>{0, 523, 524, 525, 526}.count(outcome), "the dial ends in a documented way");
  Require(line.ElapsedMs() < (std::max<int64_t>(timeout, 0) + 34) * 1000,
          "the dial ends within the time-out and the carrier wait");
  // A line ends at CR; an LF anywhere is no part of it.
  std::wstring lines = line.link.recv_buffer;
  lines.erase(std::remove(lines.begin(), lines.end(), L'\n'), lines.end());
  Require(outcome != 0 || lines.find(L"CONNECT") != std::wstring::npos,
          "no connection without a CONNECT");
  Require(outcome != 0 || connected == line.link.comm->CDHolding(),
          "connected exactly when the carrier holds");
  Require(outcome != 525 || (said.back() == L')' && said.find(L"ERROR") != std::wstring::npos &&
                             said.find_first_of(L"\r\n") == std::wstring::npos),
          "ERROR shows the modem's one line");
  Require(FromLine(line.Received()).rfind(line.link.recv_buffer, 0) == 0,
          "the receive buffer holds what came, in order");
  line.TakeDown();
  // The only commands the program ever gives the modem.
  Require(line.runtime.written() == std::string("ATDT0800123456\r") + (connected ? "ATH" : ""),
          "only the dial command and, when connected, ATH go out");
}

/// The TAP login and block, with a scripted centre behind a link that is up.
void Tap(VirtualLine& line, const SmsMessage& msg) {
  SmsTapSender tap;
  tap.modem = &line.link;
  const int outcome = Outcome([&] {
    tap.Login(L"secret");
    if (tap.authenticated) tap.Send(msg);
  });
  Require(outcome == 0 || (outcome >= 530 && outcome <= 539), "TAP ends in a documented way");
  // Ten probes, at most 35 login passes (30 silent, 5 NAK), five blocks: a second each.
  Require(line.ElapsedMs() <= 51'000, "TAP ends in bounded time");
  const std::string got = line.Received();
  Require(outcome != 0 || got.find('\x06') != std::string::npos, "accepted only on an ACK");
  Require(outcome != 538 || got.find('\x1e') != std::string::npos, "rejected only on an RS");
  line.TakeDown();
  std::string written = line.runtime.written();
  const int probes = TakeAll(written, "\r"), requests = TakeAll(written, "\x1bPG1secret\r");
  const int blocks = TakeAll(written, kBlock);
  TakeAll(written, "ATH");
  Require(written.empty() && probes >= 1 && probes <= 10 && requests <= 35 && blocks <= 5 &&
              (requests > 0 || blocks == 0),
          "TAP writes probes, then requests, then blocks, then ATH");
}

/// The UCP frame and the judging of the reply, with a scripted centre behind a link that is up.
void Ucp(VirtualLine& line, const SmsMessage& msg) {
  SmsUcpSender sender;
  sender.operation_type = L"01";
  sender.text_length = 320;
  sender.sender_number = L"678";
  sender.modem = &line.link;
  const std::wstring frame = sender.PrepareMessage(msg);
  std::wstring said;
  const int outcome = Outcome([&] { sender.Send(frame); }, &said);
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
  const int frames = TakeAll(written, ToLine(frame));
  TakeAll(written, "ATH");
  Require(written.empty() && frames >= 1 && frames <= 5, "UCP writes the frame, then ATH");
}

}  // namespace
}  // namespace kw::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kw::fuzz::Input input{data, size};
  const int part = input.Byte() % 3;  // the dial, TAP or UCP
  if (part == 0) return kw::fuzz::Dial(input), 0;
  kw::fuzz::VirtualLine line(input);  // with the link up, as a protocol sender finds it
  line.link.Initialize(L"1");
  line.link.comm->SetPortOpen(true);
  line.link.is_connected = true;
  kw::SmsMessage msg;
  msg.parsed_recipient = L"123";
  msg.message = L"abc";
  part == 1 ? kw::fuzz::Tap(line, msg) : kw::fuzz::Ucp(line, msg);
  return 0;
}
