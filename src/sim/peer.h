#ifndef KW_SIM_PEER_H_
#define KW_SIM_PEER_H_

#include <cstdint>
#include <string>

namespace kw::sim {

/// What a simulated peer can do to the line it sits on. A driver implements it: the in-process
/// fake serial port under a virtual clock, or the pseudo-terminal of kestrawind-sim in real time.
class PeerLine {
 public:
  virtual ~PeerLine() = default;
  /// Puts bytes on the line towards the program at the given time (ms, same clock as now_ms).
  virtual void SendAt(int64_t at_ms, const std::string& bytes) = 0;
  /// Raises or drops the carrier detect line as the program sees it.
  virtual void SetCarrier(bool high) = 0;
  /// Adds a line of its own to the transcript (a decoded block, a verdict).
  virtual void Note(const std::string& text) = 0;
};

/// A simulated device on the far side of the serial port: the modem, and behind it the centre.
class Peer {
 public:
  virtual ~Peer() = default;
  /// The program wrote these bytes at now_ms.
  virtual void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) = 0;
  /// The program closed the port at now_ms (DTR dropped: the modem hangs up).
  virtual void OnClose(int64_t /*now_ms*/, PeerLine& /*line*/) {}
};

}  // namespace kw::sim

#endif  // KW_SIM_PEER_H_
