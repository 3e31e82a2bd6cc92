#ifndef KW_FUZZ_FUZZ_LINK_H_
#define KW_FUZZ_FUZZ_LINK_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "base/error.h"
#include "link/modem.h"
#include "os/runtime.h"
#include "sim/peer.h"
#include "sim/virtual_runtime.h"

namespace kw::fuzz {

/// Ends the run with the property's name when it fails; libFuzzer keeps the input as a crash.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

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
  /// Opens the port and counts the link as up, as a protocol sender finds it after a dial.
  void Connect() {
    link.Initialize(L"1");
    link.comm->SetPortOpen(true);
    link.IsConnected = true;
  }
  /// Takes the link down as the sender does on every way out; the port must end closed.
  void TakeDown() {
    if (link.IsConnected) link.HangUp();
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
  modem link;
};

/// Runs a step: 0 for a normal return, n for the program's own error n, the raw number for any
/// other raised error, whose description it keeps. Anything else thrown (the virtual clock's hang
/// guard) escapes, and libFuzzer reports it.
inline int Outcome(const std::function<void()>& step, std::wstring* description = nullptr) {
  try {
    step();
    return 0;
  } catch (const Error& e) {
    if (description) *description = e.description();
    const int64_t n = static_cast<int64_t>(e.number()) - ErrorBase;
    return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
  }
}

}  // namespace kw::fuzz

#endif  // KW_FUZZ_FUZZ_LINK_H_
