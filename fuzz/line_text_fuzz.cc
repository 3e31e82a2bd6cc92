// The text encoder to the line: every byte comes back from the line as it went, each byte decodes
// as the system's own Windows-1252 converter reads it, text comes back unchanged wherever the set
// holds its characters (and as "?" elsewhere), and the IA5 hex of a text decodes back to its line
// codes, up to the 16-bit limit of 32,766 characters.
#include <iconv.h>

#include <cstdint>
#include <map>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/text.h"
#include "require.h"
#include "ucp/sms_ucp_sender.h"
#include "wide_input.h"

using kw::fuzz::Require;

namespace {

/// The line code of each character that the system's converter reads from a byte of
/// Windows-1252; the five bytes that the set leaves undefined read as the C1 control of the same
/// value. Filled once at start.
std::map<wchar_t, char> g_line_codes;

/// The line code that the reference gives a character, or "?" for one it lacks.
char ReferenceCode(wchar_t c) {
  const auto found = g_line_codes.find(c);
  return found == g_line_codes.end() ? '?' : found->second;
}

/// The value of an upper-case hexadecimal digit, or -1.
int HexValue(wchar_t c) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (c >= L'A' && c <= L'F') return c - L'A' + 10;
  return -1;
}

/// Checks that the hex text holds two upper-case digits for each byte of the line and nothing else.
void RequireHexOf(const std::wstring& hex, const std::string& line) {
  Require(hex.size() == 2 * line.size(), "IA5 gives two digits a character");
  for (size_t i = 0; i < line.size(); ++i) {
    const int high = HexValue(hex[2 * i]), low = HexValue(hex[2 * i + 1]);
    Require(high >= 0 && low >= 0 && (high << 4 | low) == static_cast<unsigned char>(line[i]),
            "IA5 hex decodes back to the line codes");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const iconv_t converter = iconv_open("WCHAR_T", "WINDOWS-1252");
  Require(converter != reinterpret_cast<iconv_t>(-1), "the system converts Windows-1252");
  for (int code = 0; code < 256; ++code) {
    char byte = static_cast<char>(code);
    wchar_t character = 0;
    char *in = &byte, *out = reinterpret_cast<char*>(&character);
    size_t in_left = 1, out_left = sizeof character;
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    const bool defined =
        iconv(converter, &in, &in_left, &out, &out_left) != static_cast<size_t>(-1);
    if (!defined) character = static_cast<wchar_t>(code);
    Require(kw::LineChar(static_cast<unsigned char>(code)) == character,
            "each line byte reads as Windows-1252");
    g_line_codes[character] = static_cast<char>(code);
  }
  iconv_close(converter);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The input's bytes as they come from the line.
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::wstring decoded = kw::FromLine(bytes);
  Require(decoded.size() == bytes.size() && kw::ToLine(decoded) == bytes,
          "every byte comes back from the line as it went");

  // The same bytes as the program's text, with characters of all of Unicode and beyond.
  const std::wstring text = kw::fuzz::WideText(data, size);
  const std::string line = kw::ToLine(text);
  std::wstring held;  // the text as the line can carry it
  Require(line.size() == text.size(), "one byte a character");
  for (size_t i = 0; i < text.size(); ++i) {
    Require(line[i] == ReferenceCode(text[i]), "a character goes out as its Windows-1252 code");
    held.push_back(line[i] == '?' ? L'?' : text[i]);
  }
  Require(kw::FromLine(line) == held, "text comes back from the line where the set holds it");
  RequireHexOf(kw::IA5Encode(text), line);

  // At the 16-bit limit: a two-byte input 0xFE n stands for its text cycled to 32,760 + n % 16
  // characters (only such short inputs, as a long text costs milliseconds).
  if (size != 2 || data[0] != 0xFE) return 0;
  std::wstring long_text(32760 + data[1] % 16, L'\0');
  for (size_t i = 0; i < long_text.size(); ++i) long_text[i] = text[i % 2];
  std::wstring hex;
  int outcome = 0;
  try {
    hex = kw::IA5Encode(long_text);
  } catch (const kw::Error& e) {
    outcome = e.number() - kw::kErrorBase;
    Require(e.description() == L"Error occured in IA5Encoding of message (Overflow)",
            "the 16-bit limit is named");
  }
  Require(outcome == (long_text.size() >= 32767 ? kw::kEncodingFailed : 0),
          "IA5 encodes up to 32,766 characters and raises 550 past that");
  if (outcome == 0) RequireHexOf(hex, kw::ToLine(long_text));
  return 0;
}
