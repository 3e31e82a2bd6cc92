#include <gtest/gtest.h>

#include <clocale>
#include <string>

#include "base/text.h"

namespace kw {
namespace {

using std::string_literals::operator""s;  // for bytes with a NUL inside

// With no locale set (the C or POSIX locale) text is UTF-8; a byte that is no part of a valid
// UTF-8 sequence is read alone as Windows-1252.
TEST(LocaleTextTest, ThePlainLocaleReadsAndWritesUtf8) {
  const struct {
    const char* what;
    std::string bytes;
    std::wstring text;
  } reads[] = {
      {"two-byte", "caf\xC3\xA9", L"caf\u00E9"},
      {"three- and four-byte", "\xE2\x82\xAC\xF0\x9F\x98\x80", L"\u20AC\U0001F600"},
      {"lone Windows-1252 byte", "caf\xE9!", L"caf\u00E9!"},
      {"overlong", "\xC0\xAF\xE0\x80\xAF", L"\u00C0\u00AF\u00E0\u20AC\u00AF"},
      {"surrogate", "\xED\xA0\x80", L"\u00ED\u00A0\u20AC"},
      {"beyond U+10FFFF", "\xF4\x90\x80\x80", L"\u00F4\u0090\u20AC\u20AC"},
      {"cut short at the end", "a\xC3", L"a\u00C3"},
      {"cut short by ASCII", "\xE2\x82x", L"\u00E2\u201Ax"},
      {"embedded NUL", "a\0b"s, L"a\0b"s},
  };
  const struct {
    std::wstring text;
    std::string bytes;
  } writes[] = {
      {L"caf\u00E9 \u20AC\U0001F600", "caf\xC3\xA9 \xE2\x82\xAC\xF0\x9F\x98\x80"},
      {std::wstring(1, static_cast<wchar_t>(0xD800)) + L"x", "?x"},
      {std::wstring(1, static_cast<wchar_t>(0x110000)), "?"},
  };
  const std::string old_locale = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "POSIX"}) {
    SCOPED_TRACE(locale);
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
    for (const auto& r : reads) EXPECT_EQ(FromLocale(r.bytes), r.text) << r.what;
    for (const auto& w : writes) EXPECT_EQ(ToLocale(w.text), w.bytes);
  }
  std::setlocale(LC_ALL, old_locale.c_str());
}

}  // namespace
}  // namespace kw
