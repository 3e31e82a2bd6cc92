#ifndef KW_OS_SERIAL_COMM_WIN32_H_
#define KW_OS_SERIAL_COMM_WIN32_H_

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

#include "os/runtime.h"
#include "os/serial_comm.h"

namespace kw {

/// The serial component over a Windows communications device: 9600 8N1 by SetCommState, a named
/// mutex per port while open, and events found by looking at the device a few times a second
/// through the runtime it is tied to (which must outlive it).
class Win32SerialComm final : public SerialComm, public EventSource {
 public:
  /// Gives the device path for a port number ("" for none).
  using DevicePath = std::function<std::wstring(int16_t port)>;

  Win32SerialComm(Runtime& runtime, DevicePath device_for_port);
  ~Win32SerialComm() override;
  Win32SerialComm(const Win32SerialComm&) = delete;
  Win32SerialComm& operator=(const Win32SerialComm&) = delete;

  void SetCommPort(int16_t port) override;
  void SetRThreshold(int16_t count) override { rthreshold_ = count; }
  void SetSThreshold(int16_t count) override { sthreshold_ = count; }
  void SetRTSEnable(bool enable) override;
  void SetPortOpen(bool open) override;
  bool PortOpen() const override { return handle_ != INVALID_HANDLE_VALUE; }
  void SetInBufferCount(int16_t count) override;
  void SetOutput(const std::wstring& text) override;
  int16_t OutBufferCount() override;
  std::wstring Input() override;
  bool CDHolding() override;
  int16_t CommEvent() const override { return comm_event_; }

  void DeliverPending() override;
  int WaitLimitMs() const override;

 private:
  /// Takes the port's mutex, opens and sets up the port; raises an Error and leaves it closed
  /// (and the mutex free) if it can't.
  void Open();
  /// Drops DTR, closes the port and frees its mutex; never raises.
  void Close() noexcept;
  /// Moves every byte that the driver holds into the input queue, noticing a device that is gone.
  void ReadAvailable();
  /// Marks the device as gone and, for a lost line, queues the lost-line notice, once.
  void Fail(bool lost_line = true);
  /// The modem-status bits, or false when the device can't tell.
  bool ModemStatus(DWORD* bits);
  /// Calls OnComm for one event; false if the handler closed (or reopened) the port.
  bool Raise(int16_t event, uint64_t generation);

  Runtime& runtime_;
  DevicePath device_for_port_;
  int16_t port_ = 1;
  int16_t rthreshold_ = 0;
  int16_t sthreshold_ = 0;
  bool rts_enable_ = false;
  int16_t comm_event_ = 0;

  HANDLE handle_ = INVALID_HANDLE_VALUE;
  HANDLE mutex_ = nullptr;
  uint64_t generation_ = 0;  ///< counts openings and closings, so delivery notices either
  bool failed_ = false;
  bool carried_ = false;  ///< a byte has gone out since the opening
  bool has_modem_lines_ = false;
  DWORD last_modem_bits_ = 0;
  std::string in_queue_;
  bool input_unsignaled_ = false;  ///< bytes came in since event 2 was last raised
  bool notice_unread_ = false;     ///< the lost-line notice is queued and not handed over yet
  bool send_armed_ = false;
};

}  // namespace kw

#endif  // KW_OS_SERIAL_COMM_WIN32_H_
