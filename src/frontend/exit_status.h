#ifndef KW_FRONTEND_EXIT_STATUS_H_
#define KW_FRONTEND_EXIT_STATUS_H_

#include "base/error.h"

namespace kw {

/// The exit statuses of kestrawind-send, from sysexits.h.
enum ExitStatus : int {
  kExitSent = 0,            ///< the message was sent
  kExitUsage = 64,          ///< no recipient, a recipient without a digit, bad options or input
  kExitDataError = 65,      ///< the message can't go as it is
  kExitUnavailable = 69,    ///< the centre refused the message or the login
  kExitSoftware = 70,       ///< a fault of the program
  kExitNoDevice = 72,       ///< the port's device is missing or is no serial port
  kExitTemporary = 75,      ///< trying again later can help
  kExitNoPermission = 77,   ///< no permission on the device or the ini
  kExitConfiguration = 78,  ///< the configuration is missing or wrong
};

/// The status for a failure: by its cause first, then by the first row of doc/errors.tsv that
/// fits it; kExitSoftware when none does. A missing ini stays a configuration fault.
int ExitStatusFor(const Error& error);

}  // namespace kw

#endif  // KW_FRONTEND_EXIT_STATUS_H_
