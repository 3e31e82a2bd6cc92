#ifndef KW_SIM_PTY_DRIVER_H_
#define KW_SIM_PTY_DRIVER_H_

#include <cstdint>
#include <deque>
#include <map>
#include <string>

#include "sim/peer.h"
#include "sim/pty_io.h"
#include "sim/pty_transcript.h"

namespace kw::sim {

class TimedPeer;

/// Where the driver puts its pseudo-terminal's name and its transcript.
struct PtyOptions {
  /// A symlink to the slave, made at start and removed at the end; empty for none.
  std::string link_path;
  /// The transcript file; empty for none.
  std::string transcript_path;
};

/// When Run ends.
struct RunLimits {
  /// Ends after the program has closed the port this many times; 0 never.
  int runs = 1;
  /// Ends this long after Run starts, whatever happens.
  int64_t max_ms = 120000;
  /// Ends as soon as this descriptor turns readable (a signalfd); -1 for none.
  int stop_fd = -1;
};

/// Why Run ended.
enum class RunEnd { kRunsDone, kStopped, kTimeLimit };

/// Plays a Peer in real time over a pseudo-terminal: the program opens the slave as its serial
/// port, and the driver works the master. The clock is CLOCK_MONOTONIC in ms since the driver was
/// made. The line's settings show in the transcript when the program's bytes first come after
/// they change. A pty has no modem-control lines, so SetCarrier only shows in the transcript and
/// the program sees the carrier always high. The driver keeps no descriptor on the slave (the
/// master's POLLHUP would never come); it opens the slave only for a moment after each close, to
/// flush what the program left unread, and leaves that open out of its count.
class PtyDriver : public PeerLine {
 public:
  /// Opens the pty (raw, non-blocking master), the transcript and the link; raises kw::Error.
  PtyDriver(Peer& peer, const PtyOptions& options);
  ~PtyDriver() override;
  PtyDriver(const PtyDriver&) = delete;
  PtyDriver& operator=(const PtyDriver&) = delete;

  /// The slave's path, for the program's serial port.
  const std::string& slave_path() const { return slave_path_; }
  /// Milliseconds since the driver was made.
  int64_t NowMs() const;
  /// Serves the program until a limit in limits is reached; raises kw::Error on a system failure.
  RunEnd Run(const RunLimits& limits);
  /// How often the program has closed the port so far.
  int closes() const { return closes_; }

  void SendAt(int64_t at_ms, const std::string& bytes) override;
  void SetCarrier(bool high) override;
  void Note(const std::string& text) override;

 private:
  /// Counts the program's opens and closes that inotify reports.
  void ReadInotify();
  /// Hands everything the program has written to the peer.
  void ReadMaster();
  /// The program's first descriptor on the slave.
  void ProgramOpened();
  /// The program's last descriptor on the slave has gone: the peer hangs up, nothing is left.
  void ProgramClosed();
  /// Drops the bytes waiting for the program in the pty.
  void FlushSlaveInput();
  /// Moves the bytes due by now_ms to the output.
  void MoveDue(int64_t now_ms);
  /// Writes as much output as the pty takes.
  void WriteOut();
  /// One transcript line: the time, the tag, the text.
  void Transcript(const std::string& tag, const std::string& text);

  Peer& peer_;
  TimedPeer* timed_;  // the peer's timer side, or null
  int64_t start_ns_;
  UniqueFd master_;
  UniqueFd inotify_;
  std::string slave_path_;
  std::string link_path_;
  TranscriptFile transcript_;
  int open_count_ = 0;       // the program's descriptors on the slave, as inotify counts them
  bool master_hup_ = false;  // the master said POLLHUP before inotify reported the close
  int closes_ = 0;
  std::string line_settings_;  // the line's settings last shown in the transcript
  int own_opens_ = 0;          // inotify opens and closes still to come from the driver's own flush
  int own_closes_ = 0;
  uint64_t send_seq_ = 0;
  std::map<std::pair<int64_t, uint64_t>, std::string> scheduled_;  // (at_ms, seq) -> bytes
  std::deque<std::string> out_;  // due bytes not yet written to the master
};

}  // namespace kw::sim

#endif  // KW_SIM_PTY_DRIVER_H_
