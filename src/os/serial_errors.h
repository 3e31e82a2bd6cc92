#ifndef KW_OS_SERIAL_ERRORS_H_
#define KW_OS_SERIAL_ERRORS_H_

#include "base/error.h"

namespace kw {

// The failures that the serial component raises on every platform, with the numbers and texts
// that the modem link passes on (a failed dial write shows its number in error 521).

/// The port number names no device that can be opened as a serial port.
Error InvalidPort();
/// The port is open already, here or in another run.
Error PortAlreadyOpen();
/// The line's settings could not be applied.
Error SetStateFailed();
/// An operation that needs an open port found it closed.
Error PortNotOpen();
/// Not one byte could be written since the port was opened.
Error WriteFailed();

/// What the modem link reads once the device itself is gone: the words a modem sends when the
/// line drops, so that the run ends as a lost line and not as a silent timeout.
inline constexpr char kLostLineNotice[] = "\r\nNO CARRIER\r\n";

}  // namespace kw

#endif  // KW_OS_SERIAL_ERRORS_H_
