#include "os/raw_command_line.h"

#include <gtest/gtest.h>

#include <random>

#include "frontend/command_line.h"
#include "frontend/string_util.h"

// The line rebuilt from arguments splits back into them as Main reads them, with the quotes at
// their ends stripped; an argument that needs no quotes (an option above all) stays bare.
TEST(BuildRawCommandLine, QuotesOnlyWhatNeedsItAndSplitsBackIntoTheArguments) {
  EXPECT_EQ(kw::BuildRawCommandLine({L"/debug", L"-x", L"a>b", L"\u20ac"}),
            L"/debug -x a>b \u20ac");
  EXPECT_EQ(kw::BuildRawCommandLine({L"", L">", L"a b\\\\", L"a\"b"}),
            L"\"\" \">\" \"a b\"\\\\ \"a\\\"b\"");
  const auto as_read = [](std::vector<std::wstring> args) {
    for (std::wstring& arg : args) arg = kw::StripChar(arg, L"\"");
    return args;
  };
  std::mt19937 random(20240611);
  for (int round = 0; round < 500; ++round) {
    std::vector<std::wstring> args(1 + random() % 4);
    for (std::wstring& arg : args)
      for (int n = random() % 8; n > 0; --n) arg.push_back(L"a \t\"\\>/"[random() % 7]);
    EXPECT_EQ(as_read(kw::SplitCommandLine(kw::BuildRawCommandLine(args))), as_read(args));
  }
}

// A quoted name ends at its closing quote, with no escapes inside; an unquoted one at a blank.
TEST(TextBehindProgramName, CutsTheNameAsWindowsReadsIt) {
  std::wstring rests;
  for (const wchar_t* line :
       {L"", L"kw.exe   ", L"kw.exe\t \"a b\" c ", L"\"C:\\a b\\kw.exe\"0612 x", L"\"C:\\a\\\" x",
        L"\"kw.exe", L"C:\\a\"b c\\kw.exe rest"})
    rests += kw::TextBehindProgramName(line) + L"|";
  EXPECT_EQ(rests, L"||\"a b\" c |0612 x|x||c\\kw.exe rest|");
}
