#include "os/raw_command_line.h"

#include <gtest/gtest.h>

// A quoted name ends at its closing quote, with no escapes inside; an unquoted one at a blank.
TEST(TextBehindProgramName, CutsTheNameAsWindowsReadsIt) {
  std::wstring rests;
  for (const wchar_t* line :
       {L"", L"kw.exe   ", L"kw.exe\t \"a b\" c ", L"\"C:\\a b\\kw.exe\"0612 x", L"\"C:\\a\\\" x",
        L"\"kw.exe", L"C:\\a\"b c\\kw.exe rest"})
    rests += kw::TextBehindProgramName(line) + L"|";
  EXPECT_EQ(rests, L"||\"a b\" c |0612 x|x||c\\kw.exe rest|");
}
