#include "os/serial_errors.h"

namespace kw {

Error InvalidPort() { return Error(8002, kProgramSource, L"Invalid port number"); }

Error PortAlreadyOpen() { return Error(8005, kProgramSource, L"Port already open"); }

Error SetStateFailed() { return Error(8015, kProgramSource, L"Could not set comm state"); }

Error PortNotOpen() {
  return Error(8018, kProgramSource, L"Operation valid only when the port is open");
}

Error WriteFailed() { return Error(8020, kProgramSource, L"Write to the port failed"); }

}  // namespace kw
