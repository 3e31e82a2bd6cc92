#include "os/net_address.h"

#include <gtest/gtest.h>

namespace kw {

TEST(NetAddressTest, PortEntriesAreReadOrSayWhyNot) {
  const struct {
    const wchar_t* entry;
    const wchar_t* why;  // "" when it reads
    NetScheme scheme = NetScheme::kTcp;
    const char* host = "";
    uint16_t port = 0;
    const wchar_t* text = L"";
  } cases[] = {
      {L"tcp://127.0.0.1:3333", L"", NetScheme::kTcp, "127.0.0.1", 3333, L"127.0.0.1:3333"},
      {L" RFC2217://Server-1.example_net:1 ", L"", NetScheme::kRfc2217, "Server-1.example_net", 1,
       L"Server-1.example_net:1"},
      {L"tcp://[::1]:65535", L"", NetScheme::kTcp, "::1", 65535, L"[::1]:65535"},
      {L"tcp://[fe80::1%eth0]:23", L"", NetScheme::kTcp, "fe80::1%eth0", 23, L"[fe80::1%eth0]:23"},
      {L"tcp://host:00080", L"", NetScheme::kTcp, "host", 80, L"host:80"},
      {L"tcp://host", L"the port number is missing"},
      {L"tcp://host:", L"the port number is missing"},
      {L"tcp://[::1]", L"the port number is missing"},
      {L"tcp://[::1]3333", L"the port number is missing"},
      {L"tcp://host:0", L"the port must be a number from 1 to 65535"},
      {L"tcp://host:65536", L"the port must be a number from 1 to 65535"},
      {L"tcp://host:99999999999999999999", L"the port must be a number from 1 to 65535"},
      {L"tcp://host:80/", L"the port must be a number from 1 to 65535"},
      {L"tcp://host:-1", L"the port must be a number from 1 to 65535"},
      {L"tcp://:80", L"the host is missing"},
      {L"tcp://[]:80", L"the host is missing"},
      {L"tcp://ho st:80", L"the host holds a character no host has"},
      {L"tcp://h\u00F6st:80", L"the host holds a character no host has"},
      {L"tcp://a%b:80", L"the host holds a character no host has"},
      {L"tcp://::1:80", L"an IPv6 address must stand in brackets, as in [::1]:PORT"},
      {L"tcp://[::1:80", L"the bracket after the IPv6 address is missing"},
      {L"telnet://host:23", L"unknown scheme \"telnet\": use tcp:// or rfc2217://"},
      {L"://host:23", L"unknown scheme \"\": use tcp:// or rfc2217://"},
      {L"/dev/ttyS0", L"no scheme: use tcp://HOST:PORT or rfc2217://HOST:PORT"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.entry);
    NetAddress address;
    EXPECT_EQ(ParsePortEntry(c.entry, &address), c.why);
    if (*c.why != L'\0') continue;
    EXPECT_EQ(address.scheme, c.scheme);
    EXPECT_EQ(address.host, c.host);
    EXPECT_EQ(address.port, c.port);
    EXPECT_EQ(address.Text(), c.text);
  }
  EXPECT_TRUE(IsNetworkEntry(L"x://"));
  EXPECT_FALSE(IsNetworkEntry(L"\\\\.\\COM1"));
  EXPECT_FALSE(IsNetworkEntry(L"/dev/tty:0"));
}

}  // namespace kw
