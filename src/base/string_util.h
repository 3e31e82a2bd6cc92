#ifndef KW_BASE_STRING_UTIL_H_
#define KW_BASE_STRING_UTIL_H_

#include <string>

namespace kw {

/// Whether the text begins with the prefix; with ignore_case both are upper-cased first.
bool StartsWith(std::wstring text, std::wstring prefix, bool ignore_case);

/// Whether the text ends with the suffix; with ignore_case both are upper-cased first.
bool EndsWith(std::wstring text, std::wstring suffix, bool ignore_case);

/// True for exactly one tab or exactly one blank.
bool IsWhitespace(const std::wstring& text);

/// Drops the character from both ends of the text, as often as it stands there (any case).
std::wstring StripChar(std::wstring text, const std::wstring& character);

/// Keeps the characters 0 to 9 of the text, in their order.
std::wstring DigitsOnly(const std::wstring& text);

/// The decimal digits of a number, with "-" before a negative one: std::to_wstring without the
/// C library's formatted print, whose first use costs a run more than its start.
std::wstring DecimalText(long long n);

/// Upper-cases a text by the rules of the locale.
std::wstring ToUpper(std::wstring text);

/// Drops blanks at both ends of a text.
std::wstring TrimBlanks(const std::wstring& text);

}  // namespace kw

#endif  // KW_BASE_STRING_UTIL_H_
