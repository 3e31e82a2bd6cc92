#ifndef KW_FUZZ_FUZZ_UTIL_H_
#define KW_FUZZ_FUZZ_UTIL_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/text.h"
#include "link/modem.h"
#include "os/runtime.h"
#include "sim/peer.h"
#include "sim/virtual_runtime.h"

namespace kw::fuzz {

/// One run of the target on the fuzzer's input; each target defines it.
void FuzzOne(const std::string& input);

/// Ends the run with the property's name when it fails; libFuzzer keeps the input as a crash.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

/// The byte at the index, or 0 past the end.
inline uint8_t ByteAt(const std::string& bytes, size_t at) {
  return at < bytes.size() ? static_cast<uint8_t>(bytes[at]) : 0;
}

/// The sum of the bytes.
inline long long Sum(const std::string& bytes) {
  long long sum = 0;
  for (unsigned char byte : bytes) sum += byte;
  return sum;
}

/// The fuzzer's bytes as the program's wide text: each byte is the line's character of that code,
/// except 0xFF, whose next three bytes (high first) give any character up to 0xFFFFFF, so that
/// characters the line can't carry occur too.
inline std::wstring WideText(const std::string& bytes) {
  std::wstring text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto at = [&](size_t k) -> unsigned { return ByteAt(bytes, i + k); };
    text.push_back(at(0) != 0xFF ? LineChar(at(0)) : wchar_t(at(1) << 16 | at(2) << 8 | at(3)));
    if (at(0) == 0xFF) i += 3;
  }
  return text;
}

/// Cuts the next field off the front of the rest, up to a NUL (dropped) or the end.
inline std::string NextField(std::string& rest) {
  std::string field = rest.substr(0, rest.find('\0'));
  rest.erase(0, field.size() + 1);
  return field;
}

/// Runs the step: 0 when it returns, n for the program's own error n, else the raised number.
/// Anything else thrown escapes to libFuzzer.
template <typename Step>
int ErrorOf(Step step) try {
  step();
  return 0;
} catch (const Error& e) {
  const int64_t n = int64_t{e.number()} - kErrorBase;
  return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
}

inline constexpr int64_t kStartMs = 1'000'000;

/// One run under the virtual clock: the link on a fake port, and behind it a peer that answers
/// every write of the program with the input's next reply: a header byte (bits 0-6: the delay in
/// 20 ms steps; bit 7: the reply follows the one before it without waiting for a write), a length
/// byte and that many bytes. Past the input's end every byte reads as 0.
struct VirtualLine : sim::Peer {
  explicit VirtualLine(const std::string& bytes) : input(bytes) {
    runtime.set_peer(this);
    link.Initialize(L"1");
  }
  uint8_t Byte() { return at < input.size() ? input[at++] : 0; }
  void OnBytes(int64_t now_ms, const std::string&, sim::PeerLine& line) override {
    if (carrier_after_ms >= 0) {  // once, after the first write
      runtime.At(now_ms + carrier_after_ms, [&line] { line.SetCarrier(true); });
      carrier_after_ms = -1;
    }
    for (bool first = true; at < input.size() && (first || (input[at] & 0x80)); first = false) {
      now_ms += (Byte() & 0x7F) * 20;
      const size_t length = Byte();
      line.SendAt(now_ms, input.substr(std::min(at, input.size()), length));
      at += length;
    }
  }
  /// Takes the link down as the sender does on every way out; gives all that the program wrote.
  std::string TakeDown() {
    if (link.is_connected) link.HangUp();
    link.comm->SetPortOpen(false);
    return runtime.written();
  }
  /// Every byte that came from the peer and reached the port, in order.
  std::string Received() const {
    std::string bytes;
    for (const std::string& line : runtime.transcript())
      if (line.rfind("< ", 0) == 0) bytes += line.substr(2);
    return bytes;
  }
  /// Opens the port and takes the link as up, as a sender finds it after the dial.
  void BringUp() { link.comm->SetPortOpen(true), link.is_connected = true; }
  int64_t ElapsedMs() const { return runtime.now_ms() - kStartMs; }

  const std::string input;
  size_t at = 0;
  int64_t carrier_after_ms = -1;  ///< when the carrier rises after the first write; never if < 0
  sim::VirtualRuntime runtime{kStartMs};
  ScopedRuntime installed{runtime};
  Modem link;  ///< last, so that its port closes while the clock is still there
};

}  // namespace kw::fuzz

#endif  // KW_FUZZ_FUZZ_UTIL_H_
