#ifndef KW_OS_SERIAL_CORE_H_
#define KW_OS_SERIAL_CORE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "os/runtime.h"
#include "os/serial_comm.h"

namespace kw {

/// The modem-status lines as bits of the word that SerialCore::ModemLines gives.
enum ModemLineBit : unsigned {
  kLineCts = 1u << 0,
  kLineDsr = 1u << 1,
  kLineCd = 1u << 2,
  kLineRing = 1u << 3,
};

/// The bits above for a platform's modem-status word, given the platform's masks of CTS, DSR,
/// CD and ring in that order.
unsigned ModemLinesOf(unsigned status, const std::array<unsigned, 4>& masks);

/// The serial component's logic, written once for every kind of device: the input queue and the
/// lost-line notice, the output queue, the thresholds, the events and their order, the modem-line
/// changes. A device plugs in below it through the hooks, which make the system calls.
///
/// What a device must provide (the core calls every hook but OpenDevice only while the port is
/// open, and every one but CloseDevice only before the device has failed):
/// - OpenDevice: take the port (its lock first, then the device), set it up and register with
///   the runtime, or raise the serial errors and leave nothing taken; a network port connects
///   here and raises when the connection is refused.
/// - CloseDevice: unregister, let queued output go (unless failed()), hang up (for a network
///   port, closing the connection is the hang-up), hand the device back as it was, free the
///   lock; never raises.
/// - ReadAvailable and Write: the bytes as the line carries them, never blocking for long; a
///   device that speaks a protocol on the line (telnet's IAC doubling, its notifications)
///   decodes and encodes here, and counts the caller's bytes.
/// - ModemLines: the status word, or kNoLines where the device has none (a pty, a raw socket:
///   the carrier then counts as held); a device told its lines by notifications gives the last
///   state it was told.
/// - SetLine and PurgeInput: by ioctl or escape function, or as commands on the line.
/// - QueuedOutput and DeviceWaitLimitMs: what the device holds, and how often a wait must look
///   again at what wakes no wait (a descriptor is waited on through the platform's runtime).
class SerialCore : public SerialComm, public virtual EventSource {
 public:
  /// How the modem-status lines were read.
  enum class LineStatus {
    kKnown,    ///< the word is there
    kNoLines,  ///< the device has no such lines
    kFailed,   ///< the device can't tell just now
  };
  /// The modem-control lines that the program drives.
  enum class ControlLine { kDtr, kRts };

  SerialCore() = default;
  SerialCore(const SerialCore&) = delete;
  SerialCore& operator=(const SerialCore&) = delete;

  void SetCommPort(int16_t port) override;
  void SetRThreshold(int16_t count) override { rthreshold_ = count; }
  void SetSThreshold(int16_t count) override { sthreshold_ = count; }
  void SetRTSEnable(bool enable) override;
  void SetPortOpen(bool open) override;
  bool PortOpen() const override { return open_; }
  void SetInBufferCount(int16_t count) override;
  void SetOutput(const std::wstring& text) override;
  int16_t OutBufferCount() override;
  std::wstring Input() override;
  bool CDHolding() override;
  int16_t CommEvent() const override { return comm_event_; }

  void DeliverPending() override;
  int WaitLimitMs() const override;

 protected:
  /// Opens the port with this number, DTR raised and RTS as asked; raises an Error and leaves
  /// everything closed if it can't.
  virtual void OpenDevice(int16_t port, bool rts_high) = 0;
  /// Closes the open port; never raises.
  virtual void CloseDevice() noexcept = 0;
  /// Appends every byte that the device holds now; false once the device is gone.
  virtual bool ReadAvailable(std::string* into) = 0;
  /// Writes from data what the device takes: the bytes taken, 0 when it has no room just now,
  /// -1 when it refuses.
  virtual ptrdiff_t Write(const char* data, size_t size) = 0;
  /// Reads the modem-status lines into lines (ModemLineBit), when the device has them.
  virtual LineStatus ModemLines(unsigned* lines) = 0;
  /// Raises or drops one control line; a device without it ignores this.
  virtual void SetLine(ControlLine line, bool high) = 0;
  /// Drops what the device holds of the input.
  virtual void PurgeInput() = 0;
  /// Bytes that the device still holds for sending, 0 if it can't tell.
  virtual size_t QueuedOutput() const = 0;
  /// The longest a wait may last before the device wants a look, -1 for no limit; send_pending:
  /// a send event waits for the device's output to run down.
  virtual int DeviceWaitLimitMs(bool send_pending) const = 0;

  /// Closes the port if it is open; each device's destructor calls it, while its hooks still are.
  void Close() noexcept;
  /// Writes the output queue as far as the device takes it; false when the device refused.
  bool FlushOutput();
  /// Whether the device is gone (or refused to write): nothing more reaches it.
  bool failed() const { return failed_; }
  /// Whether bytes of ours wait for room in the device.
  bool output_queued() const { return !out_queue_.empty(); }
  /// Whether the device has modem-status lines, as found when it opened.
  bool has_modem_lines() const { return has_modem_lines_; }

 private:
  /// Opens the port; raises an Error and leaves it closed if it can't.
  void Open();
  /// Marks the port open or closed and forgets all that the last opening left behind.
  void Restart(bool open);
  /// Moves what the device holds into the input queue, noticing a device that is gone.
  void ReadInput();
  /// Marks the device as gone after reading what it still holds; with lost_line, also queues the
  /// lost-line notice, once.
  void Fail(bool lost_line = true);
  /// Calls OnComm for one event; false if the handler closed (or reopened) the port.
  bool Raise(int16_t event, uint64_t generation);

  int16_t port_ = 1;
  int16_t rthreshold_ = 0;
  int16_t sthreshold_ = 0;
  bool rts_enable_ = false;
  int16_t comm_event_ = 0;

  bool open_ = false;
  uint64_t generation_ = 0;  ///< counts openings and closings, so delivery notices either
  bool failed_ = false;
  bool carried_ = false;  ///< a byte has gone out since the opening
  bool has_modem_lines_ = false;
  unsigned last_lines_ = 0;
  std::string in_queue_;
  std::string out_queue_;
  bool input_unsignaled_ = false;  ///< bytes came in since event 2 was last raised
  bool notice_unread_ = false;     ///< the lost-line notice is queued and not handed over yet
  bool send_armed_ = false;
};

}  // namespace kw

#endif  // KW_OS_SERIAL_CORE_H_
