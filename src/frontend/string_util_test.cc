#include "frontend/string_util.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace kw {
namespace {

struct AffixCase {
  const wchar_t* text;
  const wchar_t* affix;
  bool ignoreCase;
  bool starts;
  bool ends;
};

TEST(StringUtilTest, StartsWithAndEndsWith) {
  const AffixCase cases[] = {
      {L"", L"", false, true, true},
      {L"", L"/", true, false, false},
      {L"/debug", L"/DEBUG", false, false, false},
      {L"/debug", L"/DEBUG", true, true, true},
      {L"/LE", L"/", true, true, false},
      {L"ab", L"abc", true, false, false},
      {L"hello", L"hello", false, true, true},
      {L"x\"", L"\"", true, false, true},
  };
  for (const AffixCase& c : cases) {
    SCOPED_TRACE(testing::Message() << std::wstring(c.text) << " / " << std::wstring(c.affix));
    EXPECT_EQ(StartsWith(c.text, c.affix, c.ignoreCase), c.starts);
    EXPECT_EQ(EndsWith(c.text, c.affix, c.ignoreCase), c.ends);
  }
}

TEST(StringUtilTest, IgnoringCaseFollowsTheLocale) {
  if (!std::setlocale(LC_ALL, "C.UTF-8")) {
    GTEST_SKIP() << "this C runtime has no UTF-8 locale (mingw's has none)";
  }
  EXPECT_TRUE(StartsWith(L"\u00e9t\u00e9", L"\u00c9", true));
  EXPECT_TRUE(EndsWith(L"\u00e9t\u00e9", L"\u00c9", true));
  std::setlocale(LC_ALL, "C");
}

TEST(StringUtilTest, IsWhitespaceTakesOneBlankOrTabOnly) {
  EXPECT_TRUE(IsWhitespace(L" "));
  EXPECT_TRUE(IsWhitespace(L"\t"));
  for (const wchar_t* no : {L"", L"\n", L"\r", L"  ", L"a"}) EXPECT_FALSE(IsWhitespace(no));
}

TEST(StringUtilTest, StripCharDropsEveryCopyAtBothEnds) {
  const std::pair<const wchar_t*, const wchar_t*> quote_cases[] = {
      {L"\"hello  world", L"hello  world"},
      {L"\"a \"b\"", L"a \"b"},
      {L"\"\"", L""},
      {L"\"", L""},
      {L"plain", L"plain"},
      {L"in\"side", L"in\"side"},
      {L"\"\"x\"\"\"", L"x"},
  };
  for (const auto& [text, stripped] : quote_cases) EXPECT_EQ(StripChar(text, L"\""), stripped);
  EXPECT_EQ(StripChar(L"xXaXx", L"x"), L"a");  // the match ignores case
}

TEST(StringUtilTest, DigitsOnlyKeepsDigitsInOrder) {
  EXPECT_EQ(DigitsOnly(L"+31 (6) 12-34"), L"3161234");
  EXPECT_EQ(DigitsOnly(L"(0)6-1"), L"061");
  EXPECT_EQ(DigitsOnly(L"no digits"), L"");
  EXPECT_EQ(DigitsOnly(L""), L"");
  EXPECT_EQ(DigitsOnly(L"\u0661\u0662"), L"");  // other scripts' digits are not 0 to 9
}

TEST(StringUtilTest, DigitsOnlyCountsInSixteenBits) {
  EXPECT_EQ(DigitsOnly(std::wstring(32766, L'7')).size(), 32766u);
  for (size_t length : {32767u, 40000u}) {
    try {
      DigitsOnly(std::wstring(length, L'7'));
      ADD_FAILURE() << length;
    } catch (const Error& e) {
      EXPECT_EQ(e.number(), 6);
    }
  }
}

TEST(StringUtilTest, TrimBlanksTrimsBlanksOnly) {
  EXPECT_EQ(TrimBlanks(L"  a b  "), L"a b");
  EXPECT_EQ(TrimBlanks(L"   "), L"");
  EXPECT_EQ(TrimBlanks(L"\ta\t"), L"\ta\t");
}

}  // namespace
}  // namespace kw
