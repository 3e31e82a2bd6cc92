#ifndef KW_SIM_TAP_SCENARIO_H_
#define KW_SIM_TAP_SCENARIO_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace kw::sim {

/// Reply bytes of the TAP dialogue, for building a scenario's answers.
inline const std::string kTapAck = "\x06";
inline const std::string kTapNak = "\x15";
inline const std::string kTapRs = "\x1e";
inline const std::string kTapEscEot = "\x1b\x04";

/// When the go-ahead "[p" follows the ACK of the login.
enum class GoAhead {
  kWithAck,  ///< in the same chunk as the ACK
  kLater,    ///< in a chunk of its own, go_ahead_gap_ms after the ACK
  kNever,    ///< not at all
};

/// After which of the program's units the centre drops the line.
enum class DropPoint { kNever, kProbe, kLogin, kBlock };

/// How the simulated centre answers each step of a TAP dialogue.
struct TapScenario {
  /// Probes that go unanswered before the prompt: 0 answers the first one, -1 never answers.
  int prompt_after = 0;
  /// The prompt text sent for a probe.
  std::string prompt = "ID=";
  /// The password a login request must carry; unset takes any. A wrong one is answered by NAK.
  std::optional<std::string> password;
  /// Login requests answered by NAK before login_answer is given.
  int login_naks = 0;
  /// The answer to the login request after those NAKs (empty: silence). It logs the program in
  /// when it holds ACK.
  std::string login_answer = kTapAck;
  /// Where the go-ahead goes.
  GoAhead go_ahead = GoAhead::kWithAck;
  /// The gap for GoAhead::kLater.
  int64_t go_ahead_gap_ms = 200;
  /// Blocks answered by NAK before block_answer is given.
  int block_naks = 0;
  /// The answer to a block after those NAKs (empty: silence).
  std::string block_answer = kTapAck;
  /// A block with a bad layout or checksum gets NAK, as a real centre answers it.
  bool nak_bad_blocks = true;
  /// From the arrival of a probe, a login request or a block to the start of its answer.
  int64_t prompt_delay_ms = 50;
  int64_t login_delay_ms = 50;
  int64_t block_delay_ms = 50;
  /// Each answer goes out in this many chunks ...
  int split = 1;
  /// ... this far apart.
  int64_t split_gap_ms = 100;
  /// The line drops after the answer to the drop_after-th unit of this kind.
  DropPoint drop = DropPoint::kNever;
  int drop_after = 1;
  /// The centre writes "NO CARRIER" itself when it drops the line; a simulated modem in front
  /// of it writes its own, so there it only lowers the carrier.
  bool own_no_carrier = true;
};

/// Reads a scenario from key=value options (the simulator's --opt); raises
/// std::invalid_argument for an unknown key or a value that doesn't parse. Keys: prompt_after,
/// prompt, password, login_naks, login (reply), go_ahead (with|later|never), go_ahead_gap,
/// block_naks, block (reply), nak_bad_blocks (0|1), prompt_delay, login_delay, block_delay,
/// split, split_gap, drop (never|probe:N|login:N|block:N). A reply is tokens joined by "+"
/// from ack, nak, rs, esceot, or "silent".
TapScenario TapScenarioFromOptions(const std::map<std::string, std::string>& options);

}  // namespace kw::sim

#endif  // KW_SIM_TAP_SCENARIO_H_
