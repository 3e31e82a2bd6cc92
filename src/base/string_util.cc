#include "base/string_util.h"

#include <cwctype>

#include "base/int16.h"

namespace kw {

std::wstring ToUpper(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
  return text;
}

std::wstring DecimalText(long long n) {
  const std::string digits = std::to_string(n);
  return std::wstring(digits.begin(), digits.end());
}

std::wstring TrimBlanks(const std::wstring& text) {
  size_t first = text.find_first_not_of(L' ');
  if (first == std::wstring::npos) return L"";
  return text.substr(first, text.find_last_not_of(L' ') - first + 1);
}

bool StartsWith(std::wstring text, std::wstring prefix, bool ignore_case) {
  if (ignore_case) {
    text = ToUpper(text);
    prefix = ToUpper(prefix);
  }
  return text.compare(0, prefix.size(), prefix) == 0 && text.size() >= prefix.size();
}

bool EndsWith(std::wstring text, std::wstring suffix, bool ignore_case) {
  if (ignore_case) {
    text = ToUpper(text);
    suffix = ToUpper(suffix);
  }
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsWhitespace(const std::wstring& text) { return text == L"\t" || text == L" "; }

std::wstring StripChar(std::wstring text, const std::wstring& character) {
  while (!text.empty() && StartsWith(text, character, true)) text.erase(0, 1);
  while (!text.empty() && EndsWith(text, character, true)) text.pop_back();
  return text;
}

std::wstring DigitsOnly(const std::wstring& text) {
  // The walk counts in 16 bits: a text of 32,767 characters or more overflows.
  CheckInt16(static_cast<long long>(text.size()) + 1);
  std::wstring digits;
  for (wchar_t c : text) {
    if (c >= L'0' && c <= L'9') digits.push_back(c);
  }
  return digits;
}

}  // namespace kw
