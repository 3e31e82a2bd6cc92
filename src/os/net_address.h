#ifndef KW_OS_NET_ADDRESS_H_
#define KW_OS_NET_ADDRESS_H_

#include <cstdint>
#include <string>

namespace kw {

/// How a network port carries the line's bytes.
enum class NetScheme {
  kTcp,      ///< as they are: a terminal server's raw port, or a centre reached directly
  kRfc2217,  ///< in telnet, with the com port option that sets the line and its DTR
};

/// A network address read from the settings.
struct NetAddress {
  NetScheme scheme = NetScheme::kTcp;
  std::string host;  ///< a name or a numeric address, without brackets
  uint16_t port = 0;

  /// "HOST:PORT" as the debug log and the causes of errors name it, an IPv6 address in brackets.
  std::wstring Text() const;
};

/// Whether a [Ports] entry names a network port rather than a device: it holds "://".
bool IsNetworkEntry(const std::wstring& entry);

/// Reads a [Ports] entry "tcp://HOST:PORT" or "rfc2217://HOST:PORT" (either case); gives "" and
/// fills address, or says why the entry can't be read.
std::wstring ParsePortEntry(const std::wstring& entry, NetAddress* address);

/// Reads "HOST:PORT" (an IPv6 address in brackets, blanks around it ignored) into the host and
/// port of address; gives "" or says why it can't.
std::wstring ParseHostPort(const std::wstring& text, NetAddress* address);

}  // namespace kw

#endif  // KW_OS_NET_ADDRESS_H_
