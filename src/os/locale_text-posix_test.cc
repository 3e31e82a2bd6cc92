#include "os/locale_text-posix.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <clocale>
#include <cstring>
#include <functional>

#include "base/text.h"

// Without a locale (C, POSIX) text is UTF-8, as in C.UTF-8; a byte that is no part of a valid
// sequence is read alone as Windows-1252, and what has no UTF-8 form is written as "?".
TEST(LocaleTextPosix, ReadsAndWritesUtf8) {
  using std::string_literals::operator""s;
  kw::LoadUserLocale();  // the program's own, done with before the test sets its own
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

// The locale is loaded only when text beyond ASCII comes: a run all in ASCII never reads the
// locale's files, and the first character beyond ASCII is converted in the user's encoding.
void ExpectLoadedOnlyBeyondAscii(const std::function<void(bool beyond)>& convert) {
  // Each test runs in a process of its own; run together with others, one may have loaded it.
  if (std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") != 0) GTEST_SKIP();
  ::setenv("LC_ALL", "C.UTF-8", 1);
  convert(false);
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  convert(true);
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
}

TEST(LocaleTextPosix, FromLocaleLoadsTheLocaleBeyondAscii) {
  ExpectLoadedOnlyBeyondAscii([](bool beyond) { kw::FromLocale(beyond ? "caf\xC3\xA9" : "cafe"); });
}

TEST(LocaleTextPosix, ToLocaleLoadsTheLocaleBeyondAscii) {
  ExpectLoadedOnlyBeyondAscii([](bool beyond) { kw::ToLocale(beyond ? L"caf\u00E9" : L"cafe"); });
}
