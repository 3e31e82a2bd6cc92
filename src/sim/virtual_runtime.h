#ifndef KW_SIM_VIRTUAL_RUNTIME_H_
#define KW_SIM_VIRTUAL_RUNTIME_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/error.h"
#include "os/runtime.h"
#include "sim/peer.h"
#include "sim/sim_modem.h"

namespace kw::sim {

class FakeComm;

/// A runtime whose clock moves only when the program waits: every wait, sleep and time-out of a
/// run plays out in microseconds of real time, in a fixed order.
class VirtualRuntime : public Runtime {
 public:
  /// The clock starts at start_ms (milliseconds; whole seconds are start_ms / 1000).
  explicit VirtualRuntime(int64_t start_ms = 1'000'000);
  ~VirtualRuntime() override;

  int64_t NowSeconds() override { return now_ms_ / 1000; }
  std::wstring NowText() override;
  void DoEvents() override;
  void WaitForEvent() override;
  void Sleep(int milliseconds) override;
  std::unique_ptr<SerialComm> NewSerialComm() override;
  std::unique_ptr<SerialComm> NewConnectionComm(const NetAddress& address,
                                                int64_t limit_ms) override;
  void AddSource(EventSource* source) override;
  void RemoveSource(EventSource* source) override;

  /// The clock in milliseconds.
  int64_t now_ms() const { return now_ms_; }
  /// Runs the action when the clock reaches at_ms (at once if that time has passed).
  void At(int64_t at_ms, std::function<void()> action);

  /// The device behind every serial port that this runtime makes; not owned.
  void set_peer(Peer* peer) { peer_ = peer; }
  /// Makes the next openings of a port fail, as a missing or held device does; with a cause,
  /// as a connection fails for it (one that times out takes its whole limit).
  void set_open_fails(bool fails, Cause cause = Cause::kNone) {
    open_fails_ = fails;
    open_cause_ = cause;
  }
  bool open_fails() const { return open_fails_; }
  /// Makes the openings of a port fail as held by another until the clock reaches at_ms.
  void set_busy_until_ms(int64_t at_ms) { busy_until_ms_ = at_ms; }
  int64_t busy_until_ms() const { return busy_until_ms_; }
  Cause open_cause() const { return open_cause_; }
  Peer* peer() const { return peer_; }
  /// The port that is open now; a timed peer acts on its line.
  void set_open_comm(FakeComm* comm) { open_comm_ = comm; }

  /// What crossed the line: "> " from the program, "< " to it, "-- open", "-- close", "# " notes.
  std::vector<std::string>& transcript() { return transcript_; }
  const std::vector<std::string>& transcript() const { return transcript_; }
  /// All bytes that the program wrote, in order.
  std::string written() const;
  /// How often WaitForEvent blocked; a spinning wait would run this up without the clock moving.
  int64_t waits() const { return waits_; }

 private:
  TimedPeer* Timed() const;
  /// The earliest scheduled byte delivery or peer timer, or kNoTimer.
  int64_t NextDue() const;
  void RunDue();
  void AdvanceTo(int64_t at_ms);
  bool AnythingPending() const;

  int64_t now_ms_;
  int64_t waits_ = 0;
  std::multimap<int64_t, std::function<void()>> schedule_;
  std::vector<EventSource*> sources_;
  Peer* peer_ = nullptr;
  FakeComm* open_comm_ = nullptr;
  bool open_fails_ = false;
  int64_t busy_until_ms_ = 0;
  Cause open_cause_ = Cause::kNone;
  std::vector<std::string> transcript_;
};

/// The serial port under a virtual runtime: what the program writes goes to the runtime's peer at
/// once, and what the peer sends arrives at the time it names.
class FakeComm : public SerialComm, public EventSource, public PeerLine {
 public:
  explicit FakeComm(VirtualRuntime& runtime) : runtime_(runtime) {}
  /// A connection to the address instead of a port: the carrier stands while it does, and the
  /// peer's SetCarrier(false) closes it after the bytes the peer has queued.
  FakeComm(VirtualRuntime& runtime, std::wstring address, int64_t limit_ms)
      : runtime_(runtime), address_(std::move(address)), limit_ms_(limit_ms) {}
  ~FakeComm() override;

  void SetCommPort(int16_t port) override { port_ = port; }
  void SetRThreshold(int16_t count) override { rthreshold_ = count; }
  void SetSThreshold(int16_t count) override { sthreshold_ = count; }
  void SetRTSEnable(bool enable) override { rts_ = enable; }
  void SetPortOpen(bool open) override;
  bool PortOpen() const override { return open_; }
  void SetInBufferCount(int16_t count) override;
  void SetOutput(const std::wstring& text) override;
  int16_t OutBufferCount() override { return 0; }
  std::wstring Input() override;
  bool CDHolding() override { return open_ && carrier_; }
  int16_t CommEvent() const override { return event_; }

  void DeliverPending() override;
  bool HasPending() const;

  void SendAt(int64_t at_ms, const std::string& bytes) override;
  void SetCarrier(bool high) override;
  void Note(const std::string& text) override;

  int16_t port() const { return port_; }
  /// Whether this is a connection that has closed.
  bool lost() const { return !address_.empty() && !carrier_; }
  bool rts() const { return rts_; }

 private:
  VirtualRuntime& runtime_;
  const std::wstring address_;  ///< "" for a port
  const int64_t limit_ms_ = 0;
  int64_t last_send_ms_ = 0;  ///< the latest moment that the peer has queued bytes for
  /// Bumped at every opening, so that bytes scheduled for an earlier call never arrive.
  int generation_ = 0;
  int16_t port_ = 0;
  int16_t rthreshold_ = 0;
  int16_t sthreshold_ = 0;
  bool rts_ = false;
  bool open_ = false;
  bool carrier_ = false;
  bool send_armed_ = false;
  int16_t event_ = 0;
  std::string input_;
  /// Expires with this object, so that bytes still scheduled for it are dropped.
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

}  // namespace kw::sim

#endif  // KW_SIM_VIRTUAL_RUNTIME_H_
