#ifndef KW_LINK_MODEM_H_
#define KW_LINK_MODEM_H_

#include <cstdint>
#include <memory>
#include <string>

#include "os/serial_comm.h"

namespace kw {

/// The dial-up link over the serial port: dials the SMS centre, collects what comes back, judges
/// the modem's result lines and ends the call. Callers look at its public fields after a wait.
class Modem {
 public:
  Modem() = default;
  Modem(const Modem&) = delete;
  Modem& operator=(const Modem&) = delete;
  /// Closes a port that is still open; sends nothing.
  ~Modem();

  /// Everything received since a protocol sender last emptied it, CR and LF included.
  std::wstring recv_buffer;
  /// The provider's line is up.
  bool is_connected = false;
  /// Seconds that the modem may take to answer the dial.
  int16_t connection_timeout = 0;
  /// Seconds that opening the port waits while another run or program holds it; 0 fails at once.
  int32_t port_wait_seconds = 0;
  /// A line holding "NO CARRIER" came in since the flag was last cleared.
  bool hang_up_detected = false;
  /// The serial component; made by Initialize.
  std::unique_ptr<SerialComm> comm;

  /// Makes and sets up the serial component for the port; leaves the port closed.
  void Initialize(const std::wstring& port);
  /// Opens the port, dials, waits for a result line and then for the carrier. A normal return
  /// doesn't mean success: is_connected tells.
  void DialSmsCenter(const std::wstring& sms_center_number);
  /// Connects to the centre at "HOST:PORT" over TCP in place of a dial, within connection_timeout
  /// seconds: no AT command, and the link is up once connected. Raises 520 when the address
  /// can't be read or found or is held by another run, 524 when the connection is refused, 523
  /// when it doesn't come in time.
  void ConnectSmsCenter(const std::wstring& address);
  /// Puts the text on the line unchanged and logs it.
  void SendData(const std::wstring& msg);
  /// Cuts received text into lines at CR and hands each line to MessageHandler.
  void ScanCom(const std::wstring& in_string);
  /// Judges one result line of the modem; stores an error for the dial instead of raising it.
  void MessageHandler(const std::wstring& in_buff);
  /// Writes "ATH" and counts the link as down; a direct connection only counts as down (closing
  /// it is its hang-up).
  void HangUp();
  /// Reads and drops what the port holds.
  void ClearInBuffer();
  /// Handles the serial component's one event.
  void OnCommEvent();

 private:
  /// Opens the port, trying again while it is held until port_wait_seconds have passed; raises
  /// 520 with the cause of the last failure.
  void OpenPort();

  /// Makes the serial component and sets it up; leaves it closed.
  void MakeComm(std::unique_ptr<SerialComm> made);

  /// The link is a TCP connection to the centre, with no modem.
  bool direct_ = false;
  int32_t pending_error_number_ = 0;
  std::wstring pending_error_description_;
  std::wstring pending_error_source_;
  /// The unfinished received line, kept from one call of ScanCom to the next.
  std::wstring line_buffer_;
};

}  // namespace kw

#endif  // KW_LINK_MODEM_H_
