#include "os/raw_command_line.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "frontend/command_line.h"
#include "frontend/string_util.h"

namespace kw {
namespace {

using Args = std::vector<std::wstring>;

/// Whether an argument goes through the line untouched: nothing to quote and no quote at an end.
bool TravelsBare(const std::wstring& arg) {
  return !arg.empty() && arg.front() != L'>' && arg.find_first_of(L" \t\"") == std::wstring::npos;
}

/// Checks that the line built from the arguments splits back into them as Main reads them.
void ExpectRoundTrip(const Args& args) {
  const std::wstring line = BuildRawCommandLine(args);
  const Args split = SplitCommandLine(line);
  SCOPED_TRACE("args " + ::testing::PrintToString(args) + " line " +
               ::testing::PrintToString(line));
  ASSERT_EQ(split.size(), args.size());
  for (size_t i = 0; i < args.size(); ++i) {
    EXPECT_EQ(StripChar(split[i], L"\""), StripChar(args[i], L"\"")) << "argument " << i;
    if (TravelsBare(args[i])) {
      EXPECT_EQ(split[i], args[i]) << "argument " << i;
    }
  }
}

TEST(BuildRawCommandLine, RoundTripsHardArguments) {
  const Args cases[] = {
      {},
      {L""},
      {L"", L"", L"x"},
      {L"123", L""},
      {L"123", L"hello world"},
      {L"123", L"two  blanks", L"x"},
      {L"123", L"tab\there"},
      {L"123", L"say \"hi\" now"},
      {L"\"quoted\"", L"\"", L"\"\"", L"a\"", L"\"a"},
      {L"a\\\"b", L"a\\\"b c"},
      {L"back\\slash", L"a\\", L"a b\\", L"a b\\\\", L"a \"\\", L" \\\\\\"},
      {L"\\", L"\\\\", L"\\\"", L"\\\" x"},
      {L">out.txt", L">", L"a>b", L"a > b", L"x"},
      {L"/debug", L"/LE/LS", L"-x", L"/V:a b"},
      {L"\u00e9t\u00e9", L"\u20ac 5", L"\u65e5\u672c"},
  };
  for (const Args& args : cases) ExpectRoundTrip(args);
}

TEST(BuildRawCommandLine, KeepsPlainArgumentsAsTheyAre) {
  // Options must stay bare, or the splitter's caller no longer sees the leading slash.
  EXPECT_EQ(BuildRawCommandLine({L"/debug", L"-x", L"123", L"a>b"}), L"/debug -x 123 a>b");
  EXPECT_EQ(BuildRawCommandLine({L"a b\\\\"}), L"\"a b\"\\\\");
}

TEST(BuildRawCommandLine, RoundTripsRandomArguments) {
  const wchar_t alphabet[] = {L'a', L' ', L'\t', L'"', L'\\', L'>', L'/'};
  std::mt19937 random(20240611);
  std::uniform_int_distribution<int> pick(0, 6), length(0, 7), count(1, 4);
  for (int round = 0; round < 300; ++round) {
    Args args(count(random));
    for (std::wstring& arg : args) {
      for (int n = length(random); n > 0; --n) arg.push_back(alphabet[pick(random)]);
    }
    ExpectRoundTrip(args);
  }
}

TEST(TextBehindProgramName, CutsTheNameAsWindowsReadsIt) {
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"", L""},
      {L"kw.exe", L""},
      {L"kw.exe   ", L""},
      {L"kw.exe 0612 hi", L"0612 hi"},
      {L"kw.exe\t \"a b\" c ", L"\"a b\" c "},
      {L"\"C:\\Program Files\\kw.exe\" 0612", L"0612"},
      {L"\"C:\\a b\\kw.exe\"0612 x", L"0612 x"},  // the closing quote ends the name
      {L"\"C:\\a\\\" x", L"x"},                   // no escapes inside the name
      {L"\"kw.exe", L""},
      {L"C:\\a\"b c\\kw.exe rest", L"c\\kw.exe rest"},  // an unquoted name ends at a blank
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TextBehindProgramName(c.first), c.second) << ::testing::PrintToString(c.first);
  }
}

}  // namespace
}  // namespace kw
