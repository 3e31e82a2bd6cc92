#ifndef KW_OS_SERIAL_COMM_POSIX_H_
#define KW_OS_SERIAL_COMM_POSIX_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "os/port_lock-posix.h"
#include "os/posix_calls-posix.h"
#include "os/runtime-posix.h"
#include "os/serial_comm.h"

namespace kw {

/// Gives the device path, in the locale's encoding, for a port number ("" for none).
using PosixDevicePath = std::function<std::string(int16_t port)>;

/// The serial component over a POSIX terminal device: raw termios, a UUCP lock file and an
/// exclusive flock while open, and events found by poll(2) through the runtime it is tied to
/// (which must outlive it). Lock files go to lock_folder and the system calls go through calls;
/// only tests give others than the system's.
std::unique_ptr<SerialComm> NewPosixSerialComm(PollingRuntime& runtime,
                                               PosixDevicePath device_for_port,
                                               std::string lock_folder = SystemPortLockFolder(),
                                               PosixCalls calls = PosixCalls());

}  // namespace kw

#endif  // KW_OS_SERIAL_COMM_POSIX_H_
