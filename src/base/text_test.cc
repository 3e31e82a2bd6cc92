#include "base/text.h"

#include <gtest/gtest.h>

// The line's Windows-1252 at the edges of its two ranges: U+0080 and U+009F are no characters of
// it, U+0081 stands for its undefined byte, and the euro sign is byte 0x80.
TEST(LineTextTest, MapsTheEdgesOfWindows1252BothWays) {
  EXPECT_EQ(kw::ToLine(L"\u007f\u0080\u0081\u009f\u00a0\u00ff\u0100\u20ac"),
            "\x7f?\x81?\xa0\xff?\x80");
  EXPECT_EQ(kw::FromLine("\x7f\x80\x81\x9f\xa0\xff"), L"\u007f\u20ac\u0081\u0178\u00a0\u00ff");
}
