// The recipient's digit filter, DigitsOnly: it gives the digits 0 to 9 of its input in order and
// nothing else.
#include "base/string_util.h"
#include "fuzz_util.h"

namespace kw::fuzz {

void FuzzOne(const std::string& input) {
  const std::wstring text = WideText(input);
  std::wstring expected;
  for (wchar_t c : text)
    if (c >= L'0' && c <= L'9') expected.push_back(c);
  Require(DigitsOnly(text) == expected, "every digit of the text, in order, and only those");
}

}  // namespace kw::fuzz
