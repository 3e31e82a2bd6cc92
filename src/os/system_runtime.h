#ifndef KW_OS_SYSTEM_RUNTIME_H_
#define KW_OS_SYSTEM_RUNTIME_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "os/runtime.h"

namespace kw {

/// Gives the device configured for a port number, or the empty text for the platform's default.
using PortDeviceResolver = std::function<std::wstring(int16_t port)>;

/// The operating system's runtime: real clock, poll-based event delivery, real serial ports.
std::unique_ptr<Runtime> NewSystemRuntime(PortDeviceResolver device_for_port);

}  // namespace kw

#endif  // KW_OS_SYSTEM_RUNTIME_H_
