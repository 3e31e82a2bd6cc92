#ifndef KW_OS_PORT_SWITCH_H_
#define KW_OS_PORT_SWITCH_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "os/net_address.h"
#include "os/serial_comm.h"

namespace kw {

/// What a port switch needs of its platform.
struct PortMakers {
  /// The [Ports] entry of a port number, "" for none.
  std::function<std::wstring(int16_t port)> entry;
  /// A closed serial component over the device of a port and its entry ("" for the default).
  std::function<std::unique_ptr<SerialComm>(int16_t port, const std::wstring& entry)> device;
  /// A closed serial component over the network port at the address.
  std::function<std::unique_ptr<SerialComm>(const NetAddress& address)> network;
};

/// The serial component of a port number whose kind is known only when it opens: at each opening
/// it reads the port's [Ports] entry and hands everything on to a component of that kind, a
/// device's or, for tcp://HOST:PORT and rfc2217://HOST:PORT, a network port's. An address that
/// can't be read fails the opening with InvalidPort and the cause kBadAddress.
std::unique_ptr<SerialComm> NewPortSwitch(PortMakers makers);

}  // namespace kw

#endif  // KW_OS_PORT_SWITCH_H_
