#include "os/net_address.h"

#include "base/string_util.h"

namespace kw {
namespace {

/// What stands between the scheme and the address.
constexpr wchar_t kSchemeEnd[] = L"://";

/// The schemes of a [Ports] entry, lower case.
constexpr struct {
  const wchar_t* name;
  NetScheme scheme;
} kSchemes[] = {{L"tcp", NetScheme::kTcp}, {L"rfc2217", NetScheme::kRfc2217}};

bool IsAsciiAlnum(wchar_t c) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9');
}

/// Whether every character may stand in a host name (or, bracketed, in an IPv6 address with its
/// zone); gives the host in ASCII.
bool HostCharacters(const std::wstring& host, bool bracketed, std::string* ascii) {
  for (wchar_t c : host) {
    const bool ok = IsAsciiAlnum(c) || c == L'.' || c == L'-' || c == L'_' ||
                    (bracketed && (c == L':' || c == L'%'));
    if (!ok) return false;
    ascii->push_back(static_cast<char>(c));
  }
  return true;
}

}  // namespace

std::wstring NetAddress::Text() const {
  const std::wstring name(host.begin(), host.end());
  const bool v6 = name.find(L':') != std::wstring::npos;
  return (v6 ? L"[" + name + L"]" : name) + L":" + std::to_wstring(port);
}

bool IsNetworkEntry(const std::wstring& entry) {
  return entry.find(kSchemeEnd) != std::wstring::npos;
}

std::wstring ParsePortEntry(const std::wstring& entry, NetAddress* address) {
  const std::wstring text = TrimBlanks(entry);
  const size_t end = text.find(kSchemeEnd);
  if (end == std::wstring::npos) return L"no scheme: use tcp://HOST:PORT or rfc2217://HOST:PORT";
  const std::wstring scheme = text.substr(0, end);
  std::wstring lower = scheme;
  for (wchar_t& c : lower) c = c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
  for (const auto& known : kSchemes) {
    if (lower == known.name) {
      address->scheme = known.scheme;
      return ParseHostPort(text.substr(end + 3), address);
    }
  }
  return L"unknown scheme \"" + scheme + L"\": use tcp:// or rfc2217://";
}

std::wstring ParseHostPort(const std::wstring& text_in, NetAddress* address) {
  const std::wstring text = TrimBlanks(text_in);
  std::wstring host;
  std::wstring rest;  // what follows the host: ":PORT"
  bool bracketed = false;
  if (!text.empty() && text[0] == L'[') {
    const size_t close = text.find(L']');
    if (close == std::wstring::npos) return L"the bracket after the IPv6 address is missing";
    host = text.substr(1, close - 1);
    rest = text.substr(close + 1);
    bracketed = true;
  } else {
    const size_t colon = text.find(L':');
    if (colon != std::wstring::npos && text.find(L':', colon + 1) != std::wstring::npos) {
      return L"an IPv6 address must stand in brackets, as in [::1]:PORT";
    }
    host = text.substr(0, colon == std::wstring::npos ? text.size() : colon);
    rest = colon == std::wstring::npos ? L"" : text.substr(colon);
  }
  if (host.empty()) return L"the host is missing";
  std::string ascii;
  if (!HostCharacters(host, bracketed, &ascii)) return L"the host holds a character no host has";
  if (rest.size() < 2 || rest[0] != L':') return L"the port number is missing";
  const std::wstring digits = rest.substr(1);
  unsigned long port = 0;
  for (wchar_t c : digits) {
    if (c < L'0' || c > L'9' || port > 65535) {
      port = 0;
      break;
    }
    port = port * 10 + static_cast<unsigned long>(c - L'0');
  }
  if (port < 1 || port > 65535) return L"the port must be a number from 1 to 65535";
  address->host = ascii;
  address->port = static_cast<uint16_t>(port);
  return L"";
}

}  // namespace kw
