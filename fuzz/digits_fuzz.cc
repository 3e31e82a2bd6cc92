// The recipient's digit filter, DigitsOnly: its output holds only 0 to 9, is a subsequence of the
// input and keeps every digit of it; a text of 32,767 characters or more raises the overflow.
#include <cstdint>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/string_util.h"
#include "require.h"
#include "wide_input.h"

using kw::fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::wstring text = kw::fuzz::WideText(data, size);
  // At the 16-bit limit: a two-byte input 0xFE n stands for its text cycled to 32,760 + n % 16
  // characters (only such short inputs, as a long text costs milliseconds).
  if (size == 2 && data[0] == 0xFE) {
    text.resize(32760 + data[1] % 16);
    for (size_t i = 2; i < text.size(); ++i) text[i] = text[i % 2];
  }

  std::wstring digits;
  try {
    digits = kw::DigitsOnly(text);
  } catch (const kw::Error& e) {
    Require(e.number() == kw::kOverflow && text.size() >= 32767,
            "only a text of 32,767 characters or more overflows");
    return 0;
  }
  Require(text.size() < 32767, "a text of 32,767 characters or more overflows");

  size_t in_text = 0, matched = 0;
  for (wchar_t c : text) {
    in_text += c >= L'0' && c <= L'9';
    if (matched < digits.size() && digits[matched] == c) ++matched;
  }
  Require(digits.find_first_not_of(L"0123456789") == std::wstring::npos, "only 0 to 9 come out");
  Require(matched == digits.size(), "the digits are a subsequence of the text");
  Require(digits.size() == in_text, "every digit of the text is kept");
  return 0;
}
