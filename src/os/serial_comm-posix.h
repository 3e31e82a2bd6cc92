#ifndef KW_OS_SERIAL_COMM_POSIX_H_
#define KW_OS_SERIAL_COMM_POSIX_H_

#include <termios.h>

#include <cstdint>
#include <functional>
#include <string>

#include "os/port_lock-posix.h"
#include "os/runtime-posix.h"
#include "os/serial_comm.h"

namespace kw {

/// The serial component over a POSIX terminal device: raw termios, a UUCP lock file and an
/// exclusive flock while open, and events found by poll(2) through the runtime it is tied to
/// (which must outlive it).
class PosixSerialComm final : public SerialComm, public PollSource {
 public:
  /// Gives the device path, in the locale's encoding, for a port number ("" for none).
  using DevicePath = std::function<std::string(int16_t port)>;

  /// Lock files go to lock_folder; only tests give another folder than the system's.
  PosixSerialComm(PollingRuntime& runtime, DevicePath device_for_port,
                  std::string lock_folder = SystemPortLockFolder());
  ~PosixSerialComm() override;
  PosixSerialComm(const PosixSerialComm&) = delete;
  PosixSerialComm& operator=(const PosixSerialComm&) = delete;

  void SetCommPort(int16_t port) override;
  void SetRThreshold(int16_t count) override { rthreshold_ = count; }
  void SetSThreshold(int16_t count) override { sthreshold_ = count; }
  void SetRTSEnable(bool enable) override;
  void SetPortOpen(bool open) override;
  bool PortOpen() const override { return fd_ >= 0; }
  void SetInBufferCount(int16_t count) override;
  void SetOutput(const std::wstring& text) override;
  int16_t OutBufferCount() override;
  std::wstring Input() override;
  bool CDHolding() override;
  int16_t CommEvent() const override { return comm_event_; }

  void DeliverPending() override;
  int WaitDescriptor() const override;
  short WaitEvents() const override;
  int WaitLimitMs() const override;

 private:
  /// Opens, locks and sets up the port; raises an Error and leaves it closed if it can't.
  void Open();
  /// Closes the port, handing the line back as it was but with hang-up on close; never raises.
  void Close() noexcept;
  /// Raises or drops one modem-control output line; a device without such lines ignores it.
  void SetLine(int line, bool high);
  /// Moves every byte that the driver holds into the input queue, noticing a device that is gone.
  void ReadAvailable();
  /// Writes as much of the output queue as the driver takes without blocking; gives the errno
  /// of a write that the device refused, 0 when there was none.
  int FlushOutput();
  /// Gives the output up to a bounded time to leave the driver, so that a last "ATH" is on the
  /// line before DTR drops and the line settings change.
  void DrainOutput() noexcept;
  /// Marks the device as gone; with lost_line, also queues the lost-line notice, once.
  void Fail(bool lost_line = true);
  /// Bytes that the driver still holds for sending, 0 if it can't tell.
  int DriverOutput() const;
  /// Calls OnComm for one event; false if the handler closed (or reopened) the port.
  bool Raise(int16_t event, uint64_t generation);

  PollingRuntime& runtime_;
  DevicePath device_for_port_;
  int16_t port_ = 1;
  int16_t rthreshold_ = 0;
  int16_t sthreshold_ = 0;
  bool rts_enable_ = false;
  int16_t comm_event_ = 0;

  int fd_ = -1;
  PortLock lock_;            ///< the device's lock file while the port is open
  uint64_t generation_ = 0;  ///< counts openings and closings, so delivery notices either
  bool failed_ = false;
  bool has_modem_lines_ = false;
  int last_modem_bits_ = 0;
  termios original_{};
  std::string in_queue_;
  std::string out_queue_;
  bool input_unsignaled_ = false;  ///< bytes came in since event 2 was last raised
  bool notice_unread_ = false;     ///< the lost-line notice is queued and not handed over yet
  bool send_armed_ = false;
  bool carried_ = false;  ///< a byte has gone out since the opening
};

}  // namespace kw

#endif  // KW_OS_SERIAL_COMM_POSIX_H_
