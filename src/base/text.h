#ifndef KW_BASE_TEXT_H_
#define KW_BASE_TEXT_H_

#include <string>

namespace kw {

// Text is wide inside the program. Two 8-bit forms meet it at the edges:
// the locale's encoding (command line, ini file, console) and the line's
// character set, Windows-1252 (protocol bytes, IA5 digits and checksums).

// FromLocale and ToLocale depend on the platform and live in src/os (locale_text-*.cc).

/// Decodes bytes in the locale's encoding; a byte that is not valid there is read as Windows-1252.
std::wstring FromLocale(const std::string& bytes);

/// Encodes text in the locale's encoding; a character it can't hold becomes "?".
std::string ToLocale(const std::wstring& text);

/// The line byte of one character: its Windows-1252 code, or "?" when that set lacks it.
unsigned char LineCode(wchar_t c);

/// The character of one line byte: the inverse of LineCode.
wchar_t LineChar(unsigned char code);

/// Encodes text for the line, one byte a character (see LineCode).
std::string ToLine(const std::wstring& text);

/// Decodes bytes from the line, one character a byte.
std::wstring FromLine(const std::string& bytes);

}  // namespace kw

#endif  // KW_BASE_TEXT_H_
