#include "os/net_address.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace kw {

// Each entry of a row reads as the row's scheme and address, or fails for the row's reason.
TEST(NetAddressTest, PortEntriesAreReadOrSayWhyNot) {
  const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
      {L"tcp 127.0.0.1:3333", {L"tcp://127.0.0.1:3333"}},
      {L"rfc2217 Server-1.example_net:1", {L" RFC2217://Server-1.example_net:1 "}},
      {L"tcp [::1]:65535", {L"tcp://[::1]:65535"}},
      {L"tcp [fe80::1%eth0]:23", {L"tcp://[fe80::1%eth0]:23"}},
      {L"tcp host:80", {L"tcp://host:00080"}},
      {L"the port number is missing",
       {L"tcp://host", L"tcp://host:", L"tcp://[::1]", L"tcp://[::1]3333"}},
      {L"the port must be a number from 1 to 65535",
       {L"tcp://host:0", L"tcp://host:65536", L"tcp://host:99999999999999999999",
        L"tcp://host:-1"}},
      {L"the host is missing", {L"tcp://:80", L"tcp://[]:80"}},
      {L"the host holds a character no host has",
       {L"tcp://ho st:80", L"tcp://h\u00F6st:80", L"tcp://a%b:80"}},
      {L"an IPv6 address must stand in brackets, as in [::1]:PORT", {L"tcp://::1:80"}},
      {L"the bracket after the IPv6 address is missing", {L"tcp://[::1:80"}},
      {L"unknown scheme \"telnet\": use tcp:// or rfc2217://", {L"telnet://host:23"}},
      {L"unknown scheme \"\": use tcp:// or rfc2217://", {L"://host:23"}},
      {L"no scheme: use tcp://HOST:PORT or rfc2217://HOST:PORT", {L"/dev/ttyS0"}},
  };
  for (const auto& [want, entries] : cases) {
    for (const std::wstring& entry : entries) {
      NetAddress address;
      const std::wstring why = ParsePortEntry(entry, &address);
      const std::wstring scheme = address.scheme == NetScheme::kTcp ? L"tcp " : L"rfc2217 ";
      EXPECT_EQ(why.empty() ? scheme + address.Text() : why, want) << ToLine(entry);
    }
  }
  EXPECT_TRUE(IsNetworkEntry(L"x://") && !IsNetworkEntry(L"\\\\.\\COM1") &&
              !IsNetworkEntry(L"/dev/tty:0"));
}

}  // namespace kw
