#ifndef KW_LINK_MODEM_H_
#define KW_LINK_MODEM_H_

#include <cstdint>
#include <memory>
#include <string>

#include "os/serial_comm.h"

namespace kw {

/// The dial-up link over the serial port: dials the SMS centre, collects what comes back, judges
/// the modem's result lines and ends the call. Callers look at its public fields after a wait.
class modem {
 public:
  modem() = default;
  modem(const modem&) = delete;
  modem& operator=(const modem&) = delete;
  /// Closes a port that is still open; sends nothing.
  ~modem();

  /// Everything received since a protocol sender last emptied it, CR and LF included.
  std::wstring recvBuffer;
  /// The provider's line is up.
  bool IsConnected = false;
  /// Seconds that the modem may take to answer the dial.
  int16_t ConnectionTimeout = 0;
  /// A line holding "NO CARRIER" came in since the flag was last cleared.
  bool HangUpDetected = false;
  /// The serial component; made by Initialize.
  std::unique_ptr<SerialComm> comm;

  /// Makes and sets up the serial component for the port; leaves the port closed.
  void Initialize(const std::wstring& Port);
  /// Opens the port, dials, waits for a result line and then for the carrier. A normal return
  /// doesn't mean success: IsConnected tells.
  void DialSmsCenter(const std::wstring& SmsCenterNumber);
  /// Puts the text on the line unchanged and logs it.
  void SendData(const std::wstring& msg);
  /// Cuts received text into lines at CR and hands each line to MessageHandler.
  void ScanCom(const std::wstring& Instring);
  /// Judges one result line of the modem; stores an error for the dial instead of raising it.
  void MessageHandler(const std::wstring& InBuff);
  /// Writes "ATH" and counts the link as down.
  void HangUp();
  /// Reads and drops what the port holds.
  void ClearInBuffer();
  /// Handles the serial component's one event.
  void Comm_OnComm();

 private:
  int32_t pendingErrorNumber = 0;
  std::wstring pendingErrorDescription;
  std::wstring pendingErrorSource;
  /// The unfinished received line, kept from one call of ScanCom to the next.
  std::wstring lineBuffer;
};

}  // namespace kw

#endif  // KW_LINK_MODEM_H_
