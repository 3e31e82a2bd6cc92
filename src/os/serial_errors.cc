#include "os/serial_errors.h"

namespace kw {
namespace {

// The serial component's own failure numbers.
constexpr int32_t kInvalidPortNumber = 8002;
constexpr int32_t kPortAlreadyOpenNumber = 8005;
constexpr int32_t kSetStateFailedNumber = 8015;
constexpr int32_t kPortNotOpenNumber = 8018;
constexpr int32_t kWriteFailedNumber = 8020;

}  // namespace

Error InvalidPort() { return Error(kInvalidPortNumber, kProgramSource, L"Invalid port number"); }

Error PortAlreadyOpen() {
  return Error(kPortAlreadyOpenNumber, kProgramSource, L"Port already open");
}

Error SetStateFailed() {
  return Error(kSetStateFailedNumber, kProgramSource, L"Could not set comm state");
}

Error PortNotOpen() {
  return Error(kPortNotOpenNumber, kProgramSource, L"Operation valid only when the port is open");
}

Error WriteFailed() {
  return Error(kWriteFailedNumber, kProgramSource, L"Write to the port failed");
}

}  // namespace kw
