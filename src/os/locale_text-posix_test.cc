#include <gtest/gtest.h>

#include <clocale>

#include "base/text.h"

// Without a locale (C, POSIX) text is UTF-8, as in C.UTF-8; a byte that is no part of a valid
// sequence is read alone as Windows-1252, and what has no UTF-8 form is written as "?".
TEST(LocaleTextPosix, ReadsAndWritesUtf8) {
  using std::string_literals::operator""s;
  const std::string old_locale = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "POSIX", "C.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
    // Valid sequences; a lone byte; overlong forms; a surrogate; sequences cut short; a NUL.
    // Fatal, as a fault here may leave the reading of the next locale in a loop.
    ASSERT_EQ(kw::FromLocale("caf\xC3\xA9 \xE2\x82\xAC\xF0\x9F\x98\x80|\xE9!|\xC0\xAF\xE0\x80\xAF|"
                             "\xED\xA0\x80|\xE2\x82x\0a\xC3"s),
              L"caf\u00E9 \u20AC\U0001F600|\u00E9!|\u00C0\u00AF\u00E0\u20AC\u00AF|"
              L"\u00ED\u00A0\u20AC|\u00E2\u201Ax\0a\u00C3"s)
        << locale;
    EXPECT_EQ(
        kw::ToLocale(L"\u0080\u07FF\u0800\uFFFF\U00010000" + std::wstring{wchar_t(0xD800), L'x'}),
        "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80?x")
        << locale;
  }
  std::setlocale(LC_ALL, old_locale.c_str());
}
