#ifndef KW_SIM_SIM_MODEM_H_
#define KW_SIM_SIM_MODEM_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/peer.h"

namespace kw::sim {

/// NextTimerMs when a peer has nothing to do on its own.
constexpr int64_t kNoTimer = -1;

/// A peer that acts at set times even when the program sends nothing (a late carrier, a centre's
/// own timeout). A driver that finds this interface on its peer (dynamic_cast) calls OnTimer once
/// its clock reaches NextTimerMs; a driver that doesn't only loses those moments, and the modem
/// still catches up on its state at the next OnBytes or OnClose.
class TimedPeer {
 public:
  virtual ~TimedPeer() = default;
  /// The next moment (ms, the driver's clock) at which the peer wants OnTimer, or kNoTimer.
  virtual int64_t NextTimerMs() const = 0;
  /// The clock has reached NextTimerMs.
  virtual void OnTimer(int64_t now_ms, PeerLine& line) = 0;
};

/// When the carrier detect line rises after a CONNECT.
enum class CarrierMode {
  kAtConnect,  ///< as the result line starts, the way a real modem raises DCD before CONNECT
  kLate,       ///< carrier_delay_ms after the result line has ended
  kNever,      ///< never: the program must give up waiting for it
};

/// How the simulated modem answers a dial, and how it behaves around that answer.
struct ModemScenario {
  /// The dial's result line; one that starts with "CONNECT" puts the modem in data mode.
  std::string dial_result = "CONNECT 9600";
  /// No answer to the dial at all (the modem keeps dialling until the port closes).
  bool silent = false;
  /// From the dial command's CR to the start of the answer.
  int64_t result_delay_ms = 300;
  /// The result line (with its line ends) goes out in this many chunks ...
  int split = 1;
  /// ... this far apart.
  int64_t split_gap_ms = 50;
  /// Lines sent just before the result line, such as "RING".
  std::vector<std::string> leading_lines;
  /// Frames lines with LF CR instead of CR LF, as some modems do.
  bool lf_cr = false;
  /// Echoes command bytes back as they arrive (a real modem's ATE1).
  bool echo = false;
  /// When the carrier rises after a CONNECT.
  CarrierMode carrier = CarrierMode::kAtConnect;
  /// The delay for CarrierMode::kLate.
  int64_t carrier_delay_ms = 0;
};

/// A Hayes-style modem as the program sees it on the serial port. In command mode it collects a
/// line up to CR: "ATD..." dials and answers per the scenario, any other "AT..." line gets "OK",
/// anything else is ignored. After CONNECT it is in data mode and every byte goes to the centre
/// (a real modem in data mode takes even "ATH" for data). The centre answers on a line that the
/// modem hands it: SendAt, Note and the centre's own timers pass straight through; to end the call
/// the centre calls SetCarrier(false) on that line, and the modem then sends "NO CARRIER" after
/// the last bytes the centre has queued, drops the carrier and goes back to command mode. When the
/// program closes the port (DTR drops) the modem hangs up, forgets its state and passes OnClose to
/// the centre so that the centre starts afresh on the next call.
class SimModem : public Peer, public TimedPeer {
 public:
  explicit SimModem(ModemScenario scenario);
  ~SimModem() override;

  /// The centre behind the modem; null keeps the data-mode bytes in data_received().
  void SetCentre(std::unique_ptr<Peer> centre);

  void OnBytes(int64_t now_ms, const std::string& bytes, PeerLine& line) override;
  void OnClose(int64_t now_ms, PeerLine& line) override;
  int64_t NextTimerMs() const override;
  void OnTimer(int64_t now_ms, PeerLine& line) override;

  /// Whether the modem passes bytes to the centre now.
  bool in_data_mode() const { return state_ == State::kData; }
  /// Whether the modem holds the carrier high now.
  bool carrier() const { return carrier_; }
  /// The number of the last dial, without "ATD" and the T or P that follows it.
  const std::string& last_dialled() const { return last_dialled_; }
  /// Data-mode bytes kept since the start when no centre is set.
  const std::string& data_received() const { return data_received_; }

 private:
  /// The line handed to the centre: it watches for the centre's hang-up.
  class CentreLine;

  enum class State { kCommand, kDialling, kData };
  enum class Action { kCarrierUp, kResultDone, kHangUp };

  /// One byte in command mode: echo, and a whole line at CR.
  void CommandByte(int64_t now_ms, char byte, PeerLine& line);
  /// A command line without its CR.
  void CommandLine(int64_t now_ms, const std::string& text, PeerLine& line);
  /// Queues the scenario's answer to a dial.
  void Dial(int64_t now_ms, PeerLine& line);
  /// Carries out every action due by now_ms, each at its own moment.
  void RunDue(int64_t now_ms, PeerLine& line);
  /// Changes the carrier, telling the line only of a change.
  void SetCarrier(bool high, PeerLine& line);
  /// A result line with the scenario's line ends before and after.
  std::string Framed(const std::string& text) const;
  /// The centre's timer side, or null.
  TimedPeer* TimedCentre() const;

  ModemScenario scenario_;
  std::unique_ptr<Peer> centre_;
  State state_ = State::kCommand;
  bool carrier_ = false;
  bool connected_ = false;  // the pending result is a CONNECT
  std::string command_;
  std::string last_dialled_;
  std::string data_received_;
  int64_t centre_last_send_ms_ = 0;  // the latest moment the centre has queued bytes for
  std::multimap<int64_t, Action> actions_;
};

}  // namespace kw::sim

#endif  // KW_SIM_SIM_MODEM_H_
