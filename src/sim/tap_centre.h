#ifndef KW_SIM_TAP_CENTRE_H_
#define KW_SIM_TAP_CENTRE_H_

#include <cstdint>
#include <string>

#include "sim/peer.h"
#include "sim/tap_scenario.h"

namespace kw::sim {

/// The SMS centre behind the modem in data mode: gives the prompt, takes the login, checks
/// blocks and answers as its scenario says, and notes what it decoded in the transcript.
class TapCentre : public Peer {
 public:
  explicit TapCentre(TapScenario scenario);

  void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) override;
  /// The call ended: the next call starts afresh.
  void OnClose(int64_t now_ms, PeerLine& line) override;

  /// Counts of the units seen in this call, for tests.
  int probes() const { return probes_; }
  int logins() const { return logins_; }
  int blocks() const { return blocks_; }

 private:
  /// Takes the first complete unit off pending_; false when it isn't complete yet.
  bool TakeUnit(int64_t now_ms, PeerLine& line);
  void OnProbe(int64_t now_ms, PeerLine& line);
  void OnLogin(int64_t now_ms, const std::string& request, PeerLine& line);
  void OnBlock(int64_t now_ms, const std::string& block, PeerLine& line);
  /// Sends the answer in the scenario's chunks from at_ms on; gives the time of its last chunk.
  int64_t Answer(int64_t at_ms, const std::string& bytes, PeerLine& line);
  /// Drops the line after an answer that ended at at_ms, if this is the chosen unit.
  void MaybeDrop(DropPoint point, int count, int64_t at_ms, PeerLine& line);

  TapScenario scenario_;
  std::string pending_;
  bool logged_in_ = false;
  bool dropped_ = false;
  int probes_ = 0;
  int logins_ = 0;
  int blocks_ = 0;
};

}  // namespace kw::sim

#endif  // KW_SIM_TAP_CENTRE_H_
