// The rendering of the debug log, ShowControlChars: every control character of the line's
// protocols becomes its name and none is left, every other character stays in its place, and a
// text without "<" reads back from its rendering.
#include <cstdint>
#include <string>

#include "link/communication.h"
#include "require.h"
#include "wide_input.h"

using kw::fuzz::Require;

namespace {

struct Named {
  wchar_t code;
  const wchar_t* name;
};

/// The control characters of TAP, UCP and the modem dialogue with the names the log gives them.
constexpr Named kNamed[] = {
    {0x02, L"<STX>"}, {0x03, L"<ETX>"}, {0x04, L"<EOT>"}, {0x06, L"<ACK>"},
    {0x0A, L"<LF>"},  {0x0D, L"<CR>"},  {0x11, L"<XON>"}, {0x13, L"<XOFF>"},
    {0x15, L"<NAK>"}, {0x1B, L"<ESC>"}, {0x1E, L"<RS>"},
};

/// The rendering, one character at a time.
std::wstring Reference(const std::wstring& text) {
  std::wstring shown;
  for (wchar_t c : text) {
    const Named* named = nullptr;
    for (const Named& row : kNamed) named = row.code == c ? &row : named;
    shown += named ? std::wstring(named->name) : std::wstring(1, c);
  }
  return shown;
}

/// Reads a rendering back: each "<...>" that is a name becomes its character. Gives "\x01" and
/// the rest unread at a "<" that starts no name.
std::wstring ReadBack(const std::wstring& shown) {
  std::wstring text;
  for (size_t at = 0; at < shown.size(); ++at) {
    if (shown[at] != L'<') {
      text.push_back(shown[at]);
      continue;
    }
    const size_t end = shown.find(L'>', at);
    const std::wstring name = shown.substr(at, end == std::wstring::npos ? end : end - at + 1);
    const Named* named = nullptr;
    for (const Named& row : kNamed) named = name == row.name ? &row : named;
    if (!named) return L"\x01" + shown.substr(at);
    text.push_back(named->code);
    at = end;
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring text = kw::fuzz::WideText(data, size);
  const std::wstring shown = kw::ShowControlChars(text);
  Require(shown == Reference(text),
          "each named control character becomes its name, all else stays");
  for (const Named& row : kNamed) {
    Require(shown.find(row.code) == std::wstring::npos, "no named control character is left");
  }
  Require(text.find(L'<') != std::wstring::npos || ReadBack(shown) == text,
          "a text without '<' reads back from its rendering");
  return 0;
}
