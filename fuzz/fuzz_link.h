#ifndef KW_FUZZ_FUZZ_LINK_H_
#define KW_FUZZ_FUZZ_LINK_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "link/modem.h"
#include "os/runtime.h"
#include "sim/peer.h"
#include "sim/virtual_runtime.h"

namespace kw::fuzz {

/// Ends the run with the property's name when it fails; libFuzzer keeps the input as a crash.
void Require(bool holds, const char* property);

/// Reads a fuzzer input front to back; past its end every byte reads as 0.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  /// The next byte, or 0 past the end.
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  /// The next byte without taking it, or 0 past the end.
  uint8_t Peek() const { return at_ < size_ ? data_[at_] : 0; }
  /// Up to the next n bytes.
  std::string Bytes(size_t n);
  bool empty() const { return at_ >= size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

/// The far side of the line, answering every write of the program with the input's next reply:
/// a header byte (bits 0-6: the delay in 20 ms steps; bit 7: the reply follows the one before it
/// without waiting for a write), a length byte and that many bytes.
class ScriptedPeer : public sim::Peer {
 public:
  ScriptedPeer(Input& input, sim::VirtualRuntime& runtime) : input_(input), runtime_(runtime) {}
  void OnBytes(int64_t now_ms, const std::string& bytes, sim::PeerLine& line) override;

  /// When the carrier rises after the first write, in ms; negative: never.
  int64_t carrier_after_ms = -1;

 private:
  Input& input_;
  sim::VirtualRuntime& runtime_;
  bool written_ = false;
};

/// One run under the virtual clock: the scripted peer behind the fake port and the link on it.
struct VirtualLine {
  explicit VirtualLine(Input& input) : peer(input, runtime) { runtime.set_peer(&peer); }
  /// Opens the port and counts the link as up, as a protocol sender finds it after a dial.
  void Connect();
  /// Takes the link down as the sender does on every way out; the port must end closed.
  void TakeDown();
  /// Virtual milliseconds since the start.
  int64_t ElapsedMs() const { return runtime.now_ms() - kStartMs; }
  /// Every byte that came from the peer and reached the port, in order.
  std::string Received() const;

  static constexpr int64_t kStartMs = 1'000'000;
  sim::VirtualRuntime runtime{kStartMs};
  ScopedRuntime installed{runtime};
  ScriptedPeer peer;
  /// Last, so that its port closes while the peer and the clock are still there.
  modem link;
};

/// Runs a step: 0 for a normal return, n for the program's own error n, the raw number for any
/// other raised error, whose description it keeps. Anything else thrown (the virtual clock's hang
/// guard) fails the run.
int Outcome(const std::function<void()>& step, std::wstring* description = nullptr);

}  // namespace kw::fuzz

#endif  // KW_FUZZ_FUZZ_LINK_H_
