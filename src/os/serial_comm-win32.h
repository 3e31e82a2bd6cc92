#ifndef KW_OS_SERIAL_COMM_WIN32_H_
#define KW_OS_SERIAL_COMM_WIN32_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "os/runtime.h"
#include "os/serial_comm.h"

namespace kw {

/// Gives the device path for a port number ("" for none).
using Win32DevicePath = std::function<std::wstring(int16_t port)>;

/// The serial component over a Windows communications device: 9600 8N1 by SetCommState, a named
/// mutex per port while open, and events found by looking at the device a few times a second
/// through the runtime it is tied to (which must outlive it).
std::unique_ptr<SerialComm> NewWin32SerialComm(Runtime& runtime, Win32DevicePath device_for_port);

}  // namespace kw

#endif  // KW_OS_SERIAL_COMM_WIN32_H_
