#ifndef KW_SIM_UCP_CENTRE_H_
#define KW_SIM_UCP_CENTRE_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim/peer.h"
#include "sim/sim_modem.h"
#include "sim/ucp_frame.h"

namespace kw::sim {

/// How the simulated UCP centre answers the frames it receives.
struct UcpScenario {
  /// The answer letter at offset 15 of the reply: 'A', 'N', or anything else (such as 'a').
  char letter = 'A';
  /// The two-digit error code behind an 'N'.
  std::string code = "02";
  /// The reply's message field: a short note behind 'A', the error text behind 'N'.
  std::string message;
  /// Answers nothing at all.
  bool silent = false;
  /// Answers only this frame of the call (1 is the first); 0 answers every frame.
  int answer_frame = 0;
  /// From the frame's arrival to the reply's first byte.
  int64_t delay_ms = 200;
  /// The reply goes out in this many pieces ...
  int pieces = 1;
  /// ... this far apart.
  int64_t piece_gap_ms = 300;
  /// Text put on the line just before the reply's STX.
  std::string prefix;
  /// Sends only the reply's first bytes, this many (its prefix included); 0 sends all of it.
  size_t truncate = 0;
  /// Answers a frame with a bad length field, a bad checksum or an unknown operation with 'N'
  /// and code 02, 01 or 03, the way a real centre does, whatever the letter above says.
  bool strict = true;
  /// Drops the line on this frame of the call (1 is the first); 0 never.
  int hangup_frame = 0;
  /// How long after that frame the line drops.
  int64_t hangup_delay_ms = 0;
  /// Puts the modem's "NO CARRIER" line on the line itself when it drops the line: for a centre
  /// straight on the port. Behind a SimModem leave it off: the modem says it on SetCarrier(false).
  bool say_no_carrier = false;
};

/// The SMS centre behind the modem in data mode: reads each frame from STX to ETX, checks its
/// length and checksum, notes its fields in the transcript and answers per the scenario.
class UcpCentre : public Peer, public TimedPeer {
 public:
  explicit UcpCentre(UcpScenario scenario);
  /// From the simulator's --opt KEY=VALUE options (see OptionHelp); raises std::invalid_argument
  /// for a key it doesn't know or a value it can't read.
  explicit UcpCentre(const std::map<std::string, std::string>& options);

  void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) override;
  void OnClose(int64_t now_ms, PeerLine& line) override;
  int64_t NextTimerMs() const override { return hangup_at_ms_; }
  void OnTimer(int64_t now_ms, PeerLine& line) override;

  /// Drops the line at at_ms, whatever the scenario says (for a drop that no frame causes).
  void DropLine(int64_t now_ms, int64_t at_ms, PeerLine& line);

  /// Every frame received, over all calls, in the order they came.
  const std::vector<UcpFrame>& frames() const { return frames_; }

  /// The options the string constructor takes, one "key=value: meaning" a line.
  static const char* OptionHelp();

 private:
  void Frame(int64_t now_ms, const std::string& body, PeerLine& line);
  void Answer(int64_t now_ms, const UcpFrame& frame, PeerLine& line);

  UcpScenario scenario_;
  std::string pending_;  // bytes since the last complete frame
  std::vector<UcpFrame> frames_;
  int frames_in_call_ = 0;
  bool dropped_ = false;  // the centre has dropped the line of this call
  int64_t hangup_at_ms_ = kNoTimer;
};

}  // namespace kw::sim

#endif  // KW_SIM_UCP_CENTRE_H_
