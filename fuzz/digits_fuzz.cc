// The recipient's digit filter, DigitsOnly: it gives the digits 0 to 9 of its input in order and
// nothing else; a text of 32,767 characters or more raises the overflow.
#include "base/string_util.h"
#include "fuzz_util.h"

namespace kw::fuzz {

void FuzzOne(const std::string& input) {
  const std::wstring text = TextOrLong(input);
  std::wstring digits, expected;
  const int outcome = ErrorOf([&] { digits = DigitsOnly(text); });
  Require(outcome == (text.size() >= 32767 ? kOverflow : 0),
          "the overflow exactly from 32,767 characters on");
  for (wchar_t c : text) {
    if (c >= L'0' && c <= L'9') expected.push_back(c);
  }
  Require(outcome != 0 || digits == expected, "every digit of the text, in order, and only those");
}

}  // namespace kw::fuzz
