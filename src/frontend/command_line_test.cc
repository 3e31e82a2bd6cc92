#include "frontend/command_line.h"

#include <gtest/gtest.h>

#include "os/raw_command_line.h"
#include "unit_util.h"

TEST(SplitCommandLine, ReadsRawLinesTheSystemWay) {
  const std::pair<std::wstring, std::vector<std::wstring>> cases[] = {
      {L" \t", {}},
      {L"  123\t hello", {L"123", L"hello"}},
      {L"123 \"a  b\"c \"d\"", {L"123", L"\"a  bc", L"\"d"}},  // the opening quote stays
      {L"he\"llo wor\"ld", {L"hello world"}},
      {L"\"123\" \"a \\\"b\\\" c\"", {L"\"123", L"\"a \"b\" c"}},
      {L"\"no end", {L"\"no end"}},
      {L"123 a>b hello > out.txt", {L"123", L"a>b", L"hello"}},
      {L">out.txt 123", {}},
      {L"123 hello ", {L"123", L"hello "}},  // the last character always joins the argument
      {L"\"a\" ", {L"\"a "}},
      {L"\"\" x", {L"\"", L"x"}},
      {L"a\\\"b", {L"a\\b"}},               // outside quotes the quote opens, no escape
      {L"\"a\\\\\" b\"", {L"\"a\\\" b"}},   // two backslashes: the first stays
      {L"\"a\\b\" c", {L"\"a\\b", L"c"}}};  // a backslash not before a quote is plain
  for (const auto& [raw, args] : cases)
    EXPECT_EQ(kw::SplitCommandLine(raw), args) << testing::PrintToString(raw);
  EXPECT_EQ(kw::SplitCommandLine(std::wstring(32767, L'a')).size(), 1u);
  EXPECT_EQ(kw::Raised([] { kw::SplitCommandLine(std::wstring(32768, L'a')); }), 6);  // Overflow
}

// The line rebuilt from arguments splits back into them as Main reads them, with the quotes at
// their ends stripped; an argument that needs no quotes (an option above all) stays bare.
TEST(BuildRawCommandLine, QuotesOnlyWhatNeedsItAndSplitsBackIntoTheArguments) {
  EXPECT_EQ(kw::BuildRawCommandLine({L"/debug", L"-x", L"a>b", L"\u20ac"}),
            L"/debug -x a>b \u20ac");
  const std::vector<std::wstring> args = {L"", L">", L"a b\\\\", L"a\"b", L"\t", L"x\\\" y"};
  const std::wstring line = kw::BuildRawCommandLine(args);
  EXPECT_EQ(line, L"\"\" \">\" \"a b\"\\\\ \"a\\\"b\" \"\t\" \"x\\\\\" y\"");
  EXPECT_EQ(
      kw::SplitCommandLine(line),
      (std::vector<std::wstring>{L"\"", L"\">", L"\"a b\\\\", L"\"a\"b", L"\"\t", L"\"x\\\" y"}));
}
