#include <gtest/gtest.h>
#include <windows.h>

#include "base/text.h"

// Without the C runtime, in the ANSI code page (1252 here); "?" for what it lacks, no look-alike.
TEST(LocaleTextWin32, ConvertsTheAnsiCodePage) {
  if (::GetACP() != 1252) GTEST_SKIP() << "the bytes below are Windows-1252";
  const std::string bytes("caf\xE9 \x80\xFF\0b", 10);  // a NUL inside travels
  const std::wstring text(L"caf\u00E9 \u20AC\u00FF\0b", 10);
  EXPECT_EQ(kw::FromLocale(bytes), text);
  EXPECT_EQ(kw::ToLocale(text), bytes);
  EXPECT_EQ(kw::ToLocale(L"\u0100\u65E5x"), "??x");
}
