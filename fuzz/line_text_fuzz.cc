// Text to and from the line: each byte reads, and each character goes out, as the system's own
// Windows-1252 converter has it (a character that the set lacks as "?"); the IA5 hex of a text
// is its line codes in upper-case hex.
#include <iconv.h>

#include <map>

#include "fuzz_util.h"
#include "ucp/sms_ucp_sender.h"

namespace kw::fuzz {
namespace {

/// What the system's converter reads from each byte of Windows-1252, and the other way round;
/// the five bytes that the set leaves undefined read as the C1 control of the same value.
wchar_t g_chars[256];
std::map<wchar_t, uint8_t> g_codes;

}  // namespace

void FuzzOne(const std::string& input) {
  std::wstring chars;
  for (uint8_t byte : input) chars.push_back(g_chars[byte]);
  Require(FromLine(input) == chars, "each byte reads as Windows-1252");

  // The same bytes as the program's text, with characters of all of Unicode and beyond.
  const std::wstring text = WideText(input);
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string codes, hex;
  for (wchar_t c : text) {
    const auto found = g_codes.find(c);
    const uint8_t code = found == g_codes.end() ? '?' : found->second;
    codes.push_back(static_cast<char>(code));
    hex += {kHex[code >> 4], kHex[code & 15]};
  }
  Require(ToLine(text) == codes, "a character goes out as its Windows-1252 code, or as '?'");

  Require(ToLine(IA5Encode(text)) == hex, "the IA5 hex is the line codes in hex");
}

}  // namespace kw::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const iconv_t converter = iconv_open("WCHAR_T", "WINDOWS-1252");
  kw::fuzz::Require(converter != reinterpret_cast<iconv_t>(-1), "the system reads Windows-1252");
  for (int code = 0; code < 256; ++code) {
    char byte = static_cast<char>(code), *in = &byte;
    wchar_t& character = kw::fuzz::g_chars[code];
    char* out = reinterpret_cast<char*>(&character);
    size_t in_left = 1, out_left = sizeof character;
    if (iconv(converter, &in, &in_left, &out, &out_left) == static_cast<size_t>(-1)) {
      character = static_cast<wchar_t>(code);
    }
    kw::fuzz::g_codes[character] = static_cast<uint8_t>(code);
  }
  iconv_close(converter);
  return 0;
}
