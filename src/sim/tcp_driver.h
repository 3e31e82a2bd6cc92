#ifndef KW_SIM_TCP_DRIVER_H_
#define KW_SIM_TCP_DRIVER_H_

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>

#include "os/telnet.h"
#include "sim/peer.h"
#include "sim/pty_driver.h"
#include "sim/pty_io.h"
#include "sim/pty_transcript.h"

namespace kw::sim {

class TimedPeer;

/// What the TCP driver plays behind its port.
enum class TcpMode {
  kRaw,     ///< a modem behind a terminal server's raw port: a connection is an opening
  kTelnet,  ///< the same behind an RFC 2217 port: line settings, DTR, and the carrier's notices
  kDirect,  ///< a centre on the network, with no modem: the connection is the carrier
};

/// Where the TCP driver listens, how it plays its peer, and where its transcript goes.
struct TcpOptions {
  /// "HOST:PORT" with a numeric host (an IPv6 one in brackets); port 0 takes a free one.
  std::string listen;
  TcpMode mode = TcpMode::kRaw;
  /// The transcript file; empty for none.
  std::string transcript_path;
};

/// Plays a Peer in real time on a TCP port, one connection at a time (a second one is closed at
/// once): a connection opens the line and its end closes it. The transcript is the pty driver's,
/// with the data bytes only; under RFC 2217 the line's settings and DTR show as "--" lines, and a
/// DTR drop hangs the modem up.
class TcpDriver : public PeerLine {
 public:
  /// Listens on the address; raises kw::Error.
  TcpDriver(Peer& peer, const TcpOptions& options);
  ~TcpDriver() override;
  TcpDriver(const TcpDriver&) = delete;
  TcpDriver& operator=(const TcpDriver&) = delete;

  /// The address it listens on, with the port it got.
  const std::string& address() const { return address_; }
  /// Serves until a limit is reached; raises kw::Error on a system failure.
  RunEnd Run(const RunLimits& limits);

  void SendAt(int64_t at_ms, const std::string& bytes) override;
  void SetCarrier(bool high) override;
  void Note(const std::string& text) override;

 private:
  int64_t NowMs() const { return (MonotonicNs() - start_ns_) / 1000000; }
  /// Takes a waiting connection: the line opens, or a second one is turned away.
  void Accept();
  /// Hands what the program sent to the peer (decoded under RFC 2217).
  void ReadClient();
  /// Hands data of the program to the peer, unless the modem has hung up.
  void Deliver(const std::string& data);
  /// One com port command of the program.
  void ComPort(const std::string& sub);
  /// The connection has ended: the line closes.
  void Closed();
  /// Moves the bytes due by now_ms to the output.
  void MoveDue(int64_t now_ms);
  /// Writes what the connection takes.
  void WriteOut();
  void Transcript(const std::string& tag, const std::string& text);

  Peer& peer_;
  TimedPeer* timed_;
  const TcpMode mode_;
  const int64_t start_ns_;
  UniqueFd listener_;
  UniqueFd client_;
  std::string address_;
  TranscriptFile transcript_;
  std::unique_ptr<TelnetCodec> telnet_;
  bool hung_up_ = false;  ///< the program dropped DTR: the modem has hung up already
  bool closing_ = false;  ///< the centre ended the call: the connection closes once all is out
  int closes_ = 0;
  uint64_t send_seq_ = 0;
  std::map<std::pair<int64_t, uint64_t>, std::string> scheduled_;  // (at_ms, seq) -> bytes
  std::string out_;  // due bytes for the wire not yet taken
};

}  // namespace kw::sim

#endif  // KW_SIM_TCP_DRIVER_H_
