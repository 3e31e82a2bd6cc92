// The recipient's digit filter, DigitsOnly: it gives the digits 0 to 9 of its input in order and
// nothing else; a text of 32,767 characters or more raises the overflow.
#include "base/string_util.h"
#include "fuzz_util.h"

using kw::fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring text =
      kw::fuzz::TextOrLong(std::string(reinterpret_cast<const char*>(data), size));
  std::wstring digits;
  const int outcome = kw::fuzz::ErrorOf([&] { digits = kw::DigitsOnly(text); });
  Require(outcome == (text.size() >= 32767 ? kw::kOverflow : 0),
          "the overflow exactly from 32,767 characters on");
  std::wstring expected;
  for (wchar_t c : text) {
    if (c >= L'0' && c <= L'9') expected.push_back(c);
  }
  Require(outcome != 0 || digits == expected, "every digit of the text, in order, and only those");
  return 0;
}
