#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "base/text.h"

namespace kw {
namespace {

TEST(LocaleTextWin32, ConvertsTheAnsiCodePageWithoutTheCRuntime) {
  if (::GetACP() != 1252) GTEST_SKIP() << "the rows are Windows-1252; this system has " << GetACP();
  const struct {
    std::string bytes;
    std::wstring text;
  } cases[] = {
      {"", L""},
      {"caf\xE9 \x80 \xFF", L"caf\u00E9 \u20AC \u00FF"},
      {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},  // a NUL inside travels
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FromLocale(c.bytes), c.text);
    EXPECT_EQ(ToLocale(c.text), c.bytes);
  }
  // No look-alike for what the code page lacks: "?" for each character.
  EXPECT_EQ(ToLocale(L"\u0100\u65E5x"), "??x");
}

}  // namespace
}  // namespace kw
