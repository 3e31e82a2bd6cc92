// Text to and from the line: each byte reads, and each character goes out, as the system's own
// Windows-1252 converter has it (a character that the set lacks as "?"); the IA5 hex of a text
// is its line codes in upper-case hex, up to 32,766 characters.
#include <iconv.h>

#include <map>

#include "fuzz_util.h"
#include "ucp/sms_ucp_sender.h"

using kw::fuzz::Require;

namespace {

/// What the system's converter reads from each byte of Windows-1252, and the other way round;
/// the five bytes that the set leaves undefined read as the C1 control of the same value.
wchar_t g_chars[256];
std::map<wchar_t, char> g_codes;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const iconv_t converter = iconv_open("WCHAR_T", "WINDOWS-1252");
  Require(converter != reinterpret_cast<iconv_t>(-1), "the system converts Windows-1252");
  for (int code = 0; code < 256; ++code) {
    char byte = static_cast<char>(code), *in = &byte;
    char* out = reinterpret_cast<char*>(&g_chars[code]);
    size_t in_left = 1, out_left = sizeof(wchar_t);
    if (iconv(converter, &in, &in_left, &out, &out_left) == static_cast<size_t>(-1)) {
      g_chars[code] = static_cast<wchar_t>(code);
    }
    g_codes[g_chars[code]] = static_cast<char>(code);
  }
  iconv_close(converter);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::wstring chars;
  for (uint8_t byte : bytes) chars.push_back(g_chars[byte]);
  Require(kw::FromLine(bytes) == chars, "each byte reads as Windows-1252");

  // The same bytes as the program's text, with characters of all of Unicode and beyond.
  const std::wstring text = kw::fuzz::TextOrLong(bytes);
  constexpr char kHex[] = "0123456789ABCDEF";
  std::string codes, hex;
  for (wchar_t c : text) {
    const auto found = g_codes.find(c);
    const uint8_t code = found == g_codes.end() ? '?' : found->second;
    codes.push_back(static_cast<char>(code));
    hex += {kHex[code >> 4], kHex[code & 15]};
  }
  Require(kw::ToLine(text) == codes, "a character goes out as its Windows-1252 code, or '?'");

  std::wstring ia5, said;
  const int outcome = kw::fuzz::ErrorOf([&] { ia5 = kw::IA5Encode(text); }, &said);
  Require(outcome == (text.size() >= 32767 ? kw::kEncodingFailed : 0),
          "IA5 encodes up to 32,766 characters and raises 550 past that");
  Require(outcome != 0 ? said == L"Error occured in IA5Encoding of message (Overflow)"
                       : kw::ToLine(ia5) == hex,
          "the IA5 hex is the line codes in hex; the 16-bit limit is named");
  return 0;
}
