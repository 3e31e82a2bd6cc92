#include "base/string_util.h"

#include <gtest/gtest.h>

#include "unit_util.h"

TEST(StringUtil, WorksAtTheEdges) {
  // Per text|affix: starts and ends with it, then the same ignoring case ("1" for yes).
  std::string got;
  for (const std::wstring c : {L"|", L"|/", L"/dEbug|/DeBUG", L"/LE|/", L"ab|abc", L"x\"|\""}) {
    const std::wstring text = c.substr(0, c.find('|')), fix = c.substr(c.find('|') + 1);
    for (const bool i : {false, true})
      got += {char('0' + kw::StartsWith(text, fix, i)), char('0' + kw::EndsWith(text, fix, i))};
    got += ' ';
  }
  EXPECT_EQ(got, "1111 0000 0011 1010 0000 0101 ");
  EXPECT_EQ(kw::StripChar(L"\"a \"b\"", L"\"") + kw::StripChar(L"\"\"x\"\"\"", L"\"") +
                kw::StripChar(L"xXaXx", L"x"),
            L"a \"bxa");  // all copies at both ends, the match ignoring case
  EXPECT_EQ(kw::TrimBlanks(L"  a b  ") + kw::TrimBlanks(L"   ") + kw::TrimBlanks(L"\ta\t"),
            L"a b\ta\t");
  EXPECT_TRUE(kw::IsWhitespace(L" ") && kw::IsWhitespace(L"\t") && !kw::IsWhitespace(L"") &&
              !kw::IsWhitespace(L"\n") && !kw::IsWhitespace(L"  "));
  // The walk counts in 16 bits (which digits it keeps is the digits seed corpus's to judge).
  EXPECT_EQ(kw::DigitsOnly(std::wstring(32766, L'7')).size(), 32766u);
  EXPECT_EQ(kw::Raised([] { kw::DigitsOnly(std::wstring(32767, L'7')); }), 6);
}
