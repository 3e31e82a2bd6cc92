#ifndef KW_OS_SOCKET_COMM_H_
#define KW_OS_SOCKET_COMM_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "os/net_address.h"
#include "os/net_lock.h"
#include "os/serial_core.h"
#include "os/socket.h"
#include "os/telnet.h"

namespace kw {

/// How long a network port of [Ports] may take to connect (the name lookup and, for RFC 2217,
/// the server's answer to the com port option included).
constexpr int64_t kPortConnectLimitMs = 10000;

/// The serial component over a TCP connection: a terminal server's raw port (tcp://), its
/// RFC 2217 port (rfc2217://), or a centre reached directly. The address is locked among the runs
/// of the machine before it connects; closing the connection is the hang-up (a terminal server
/// then closes its device, whose HUPCL drops DTR), and over RFC 2217 DTR is dropped by command
/// first. Only the waiting is the platform's: its part registers the port with its runtime.
class SocketComm : public SerialCore {
 public:
  /// A port that connects to the address, taking at most connect_limit_ms.
  SocketComm(NetAddress address, int64_t connect_limit_ms);
  SocketComm(const SocketComm&) = delete;
  SocketComm& operator=(const SocketComm&) = delete;

 protected:
  /// Registers the open port with the platform's runtime (on), or unregisters it.
  virtual void Watch(bool on) = 0;
  /// The socket for the runtime's waits, or nothing once the connection has failed.
  intptr_t WaitHandle() const { return failed() ? -1 : socket_.handle(); }
  /// Whether bytes wait for room in the system (a wait should also wake for that room).
  bool WantsRoom() const { return !wire_.empty() || output_queued(); }

  int DeviceWaitLimitMs(bool send_pending) const override;

 private:
  using Clock = std::chrono::steady_clock;

  void OpenDevice(int16_t port, bool rts_high) override;
  void CloseDevice() noexcept override;
  bool ReadAvailable(std::string* into) override;
  ptrdiff_t Write(const char* data, size_t size) override;
  LineStatus ModemLines(unsigned* lines) override;
  void SetLine(ControlLine line, bool high) override;
  void PurgeInput() override;
  size_t QueuedOutput() const override { return wire_.size(); }

  /// Waits, within the deadline, for the server's answer to the com port option; then sets the
  /// line up, or says in the debug log that the server keeps its own settings.
  void Negotiate(bool rts_high, Clock::time_point deadline);
  /// Queues bytes for the wire.
  void Queue(const std::string& bytes);
  /// Queues a com port command, if the server took the option.
  void ComPort(uint8_t command, uint8_t value);
  /// Hands the system what it takes of the queued bytes; false when the connection is broken or
  /// has taken nothing for too long.
  bool Push();
  /// Reads and decodes what has come: the data to *data; false once the connection is gone.
  bool Pull(std::string* data);
  /// Lets the queued bytes go, within the deadline.
  void Drain(Clock::time_point deadline) noexcept;

  const NetAddress address_;
  const int64_t connect_limit_ms_;
  std::unique_ptr<AddressLock> lock_;
  Socket socket_;
  std::unique_ptr<TelnetCodec> telnet_;  ///< for RFC 2217
  std::string wire_;                     ///< bytes for the wire that the system hasn't taken yet
  Clock::time_point last_taken_;         ///< when the system last took bytes, or they were queued
  std::string early_;                    ///< data that came while the option was negotiated
  uint8_t modem_state_ = 0;              ///< the server's last modem-state notice
  bool carrier_seen_ = false;            ///< a notice has shown carrier detect high
};

}  // namespace kw

#endif  // KW_OS_SOCKET_COMM_H_
