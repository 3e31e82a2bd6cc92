#include "frontend/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/error.h"

namespace kw {
namespace {

using Args = std::vector<std::wstring>;

struct SplitCase {
  std::wstring raw;
  Args args;
};

TEST(SplitCommandLine, ReadsRawLinesTheSystemWay) {
  const SplitCase cases[] = {
      {L"", {}},
      {L"   ", {}},
      {L"\t", {}},
      {L"123 hello", {L"123", L"hello"}},
      {L"123 x", {L"123", L"x"}},
      {L"1 2", {L"1", L"2"}},
      {L"x", {L"x"}},
      {L"123\thello", {L"123", L"hello"}},
      {L"  123   hello", {L"123", L"hello"}},
      {L"123 \"hello  world\"", {L"123", L"\"hello  world"}},
      {L"123 he\"llo wor\"ld", {L"123", L"hello world"}},
      {L"123 \"a\"b", {L"123", L"\"ab"}},
      {L"\"123\" \"a \\\"b\\\" c\"", {L"\"123", L"\"a \"b\" c"}},
      {L"123 \"a \\\"b\\\"\"", {L"123", L"\"a \"b\""}},
      {L"123 \"no end", {L"123", L"\"no end"}},
      {L"123 hello > out.txt", {L"123", L"hello"}},
      {L">out.txt 123", {}},
      {L"123 a>b", {L"123", L"a>b"}},
      {L"123 hello ", {L"123", L"hello "}},  // the last character always joins the argument
      {L"123 \"a\" ", {L"123", L"\"a "}},
      {L"\"\"", {L"\""}},
      {L"/LE/LS", {L"/LE/LS"}},
      {L"/\"a b\"", {L"/a b"}},
      {L"a\\\"b", {L"a\\b"}},              // outside quotes the quote opens, no escape
      {L"\"a\\\\\" b\"", {L"\"a\\\" b"}},  // two backslashes: the first stays
      {L"\"a\\b\" c", {L"\"a\\b", L"c"}},  // a backslash not before a quote is plain
      {L"\"\" x", {L"\"", L"x"}},
  };
  for (const SplitCase& c : cases) {
    EXPECT_EQ(SplitCommandLine(c.raw), c.args) << "raw line " << ::testing::PrintToString(c.raw);
  }
}

TEST(SplitCommandLine, RaisesOverflowPastTheSixteenBitLimit) {
  EXPECT_EQ(SplitCommandLine(std::wstring(32767, L'a')).size(), 1u);
  try {
    SplitCommandLine(std::wstring(32768, L'a'));
    ADD_FAILURE() << "a line of 32,768 characters was accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.number(), 6);
  }
}

}  // namespace
}  // namespace kw
