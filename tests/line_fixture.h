#ifndef KW_TESTS_LINE_FIXTURE_H_
#define KW_TESTS_LINE_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "sim/peer.h"

namespace kw::test {

/// "ok", or the error the step raised as "[n] source: description", followed by " (cause text)"
/// when it has a cause; the program's own errors count n from kErrorBase and carry no source, so
/// they read "[n] description".
std::string Outcome(const std::function<void()>& step);

/// The error line of a run that a SIGTERM ends.
inline const std::string kStopped =
    "[18] Kestrawind: Interrupted by SIGTERM before the send was confirmed";

/// The text repeated count times.
std::string Times(const std::string& text, int count);

/// One whole send under the virtual clock, and what it should come to.
struct RunCase {
  /// "key=value" items joined by ';' (a bare key means "1"). An SmsSettings field by its name:
  /// Protocol (TAP), Port (1), ConnectionTimeout (20), DialPrefix, SmsCenterNumber ("0612 345"),
  /// SmsCenterAddress (a centre on the network, the peer itself with no modem),
  /// OpType (01), TextLength (320), SenderNumber (678), Authentication (pw). The modem's result
  /// and how it comes: noanswer, chunks, chunk_gap (ms), lfcr, ring (RING lines before it), late
  /// (the carrier that many ms after it; -1 never). The message: to ("+1 (234) 5") and text
  /// ("abc"). The run: start (the clock, ms), openfails (or openfails=refused, timeout or name:
  /// a connection that fails for that cause), busy (ms that another holds the port from the
  /// start), wait (the seconds that the opening waits for it), stop (a SIGTERM that many ms after
  /// the start), unplug (the port closes and the link counts as down just before the protocol
  /// sends). Every other key is an option of the centre behind the modem, whose kind is centre
  /// (tap, ucp or none; tap or ucp after Protocol).
  std::string setup;
  /// The outcome, as Outcome gives it.
  std::string want;
  /// From the start of the run to its end.
  int64_t ms;
  /// Every byte the program wrote, in order.
  std::string written;
};

/// Runs the case and checks its outcome, its duration, its bytes and that the port ends closed.
void ExpectRun(const RunCase& c);

/// A simulated peer's line that keeps what is put on it as text: "at_ms:bytes" for each send,
/// "[CD]" and "[no CD]" for the carrier.
struct RecordingLine : sim::PeerLine {
  void SendAt(int64_t at, const std::string& b) override { log += std::to_string(at) + ":" + b; }
  void SetCarrier(bool high) override { log += high ? "[CD]" : "[no CD]"; }
  void Note(const std::string&) override {}
  std::string log;
};

}  // namespace kw::test

#endif  // KW_TESTS_LINE_FIXTURE_H_
