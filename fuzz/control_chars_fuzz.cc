// The rendering of the debug log, ShowControlChars: every control character of the line's
// protocols becomes its name, and every other character stays in its place.
#include <map>

#include "fuzz_util.h"
#include "link/communication.h"

namespace kw::fuzz {

void FuzzOne(const std::string& input) {
  // The control characters of TAP, UCP and the modem dialogue with the names the log gives them.
  static const auto& kNamed = *new std::map<wchar_t, std::wstring>{
      {0x02, L"<STX>"}, {0x03, L"<ETX>"}, {0x04, L"<EOT>"}, {0x06, L"<ACK>"},
      {0x0A, L"<LF>"},  {0x0D, L"<CR>"},  {0x11, L"<XON>"}, {0x13, L"<XOFF>"},
      {0x15, L"<NAK>"}, {0x1B, L"<ESC>"}, {0x1E, L"<RS>"},
  };
  const std::wstring text = WideText(input);
  std::wstring expected;
  for (wchar_t c : text) {
    const auto named = kNamed.find(c);
    expected += named == kNamed.end() ? std::wstring(1, c) : named->second;
  }
  Require(ShowControlChars(text) == expected,
          "each named control character becomes its name, all else stays");
}

}  // namespace kw::fuzz
