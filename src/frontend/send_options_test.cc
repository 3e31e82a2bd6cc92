#include "frontend/send_options.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace kw {

// Each row: the arguments, then what is left joined by "|", then the wait, the config file and
// the problem where they are not the defaults.
TEST(SendOptionsTest, TakesItsOwnOptionsAnywhereAndLeavesTheRestInOrder) {
  const std::pair<std::vector<std::wstring>, std::wstring> rows[] = {
      {{L"0612", L"hi", L"/DEBUG"}, L"0612|hi|/DEBUG"},
      {{L"--wait", L"0", L"0612", L"--config", L"\"a b.ini\"", L"hi"}, L"0612|hi wait 0 a b.ini"},
      {{L"0612", L"--wait=123456789", L"--config=x.ini"}, L"0612 wait 123456789 x.ini"},
      {{L"\"--wait=7\"", L"0612", L"--", L"--wait", L"-5"}, L"0612|--wait|-5 wait 7"},
      {{L"0612", L"-5", L"-x"}, L"0612|-5|-x"},
      {{L"--wait", L"1234567890"}, L": --wait needs a number of seconds, not \"1234567890\""},
      {{L"--wait", L"-1"}, L": --wait needs a number of seconds, not \"-1\""},
      {{L"--wait="}, L": --wait needs a number of seconds, not \"\""},
      {{L"0612", L"--config"}, L"0612: --config needs a file"},
      {{L"--config="}, L": --config needs a file"},
      {{L"--help=yes"}, L": --help takes no value"},
      {{L"--- ALERT ---", L"0612"},
       L": unknown option \"--- ALERT ---\" (see --help; put -- before a message that begins with "
       L"--)"}};
  for (const auto& [args, want] : rows) {
    const SendOptions options = ParseSendOptions(args);
    std::wstring got;
    for (const std::wstring& arg : options.arguments) got += (got.empty() ? L"" : L"|") + arg;
    if (options.wait_seconds != 300) got += L" wait " + std::to_wstring(options.wait_seconds);
    if (!options.config_file.empty()) got += L" " + options.config_file;
    if (!options.problem.empty()) got += L": " + options.problem;
    EXPECT_EQ(got, want);
  }
  const SendOptions both = ParseSendOptions({L"--version", L"--help"});
  EXPECT_TRUE(both.help && both.version);
  EXPECT_FALSE(ParseSendOptions({L"0612"}).help || ParseSendOptions({L"0612"}).version);
}

TEST(SendOptionsTest, StandardInputGivesItsTextWithoutTheLastLineEndsOrSaysWhyNot) {
  const struct {
    std::string bytes;
    std::wstring text, problem;
    int status;
  } rows[] = {
      {"disk full\n", L"disk full", L"", 0},
      {"two\r\nlines\rhere\n\r\n\n", L"two\nlines\nhere", L"", 0},
      {"\ttab and blanks  ", L"\ttab and blanks  ", L"", 0},
      {"caf\xE9", L"caf\u00E9", L"", 0},  // not valid UTF-8: read as Windows-1252
      {"", L"", L"standard input holds no text", 64},
      {"\r\n\n", L"", L"standard input holds no text", 64},
      {std::string("a\0b", 3), L"", L"standard input holds binary data, not text", 64},
      {"a\x1b[1mb", L"", L"standard input holds binary data, not text", 64},
      {std::string(kInputLimit, 'x'), std::wstring(kInputLimit, L'x'), L"", 0},
      {std::string(kInputLimit + 1, 'x'), L"", L"standard input holds more than 65536 bytes", 65},
  };
  for (const auto& row : rows) {
    const InputText input = TextFromInput(row.bytes);
    EXPECT_EQ(input.text + L"|" + input.problem, row.text + L"|" + row.problem);
    EXPECT_EQ(input.status, row.status) << ToLine(row.problem);
  }
}

TEST(SendOptionsTest, TheWarningNamesEachCharacterThatWindows1252LacksOnce) {
  const std::wstring lacks = L"warning: the line's code page (Windows-1252) has no ";
  const std::wstring each = L"; each goes out as \"?\"";
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"caf\u00E9 \u20AC5 \u0178 ? ok", L""},
      {L"\u0414\u0436\u0414?", lacks + L"U+0414 \u0414, U+0436 \u0436" + each},
      {L"\u0081\u00FF\u0100", lacks + L"U+0100 \u0100" + each},
      {L"\U0001F600!", lacks + L"U+1F600 \U0001F600" + each},
      // Pairs of surrogates, however wide wchar_t is: the first one is U+10000.
      {{wchar_t(0xD800), wchar_t(0xDC00), wchar_t(0xD801), wchar_t(0xDC01)},
       lacks + L"U+10000 " + wchar_t(0xD800) + wchar_t(0xDC00) + L", U+10401 " + wchar_t(0xD801) +
           wchar_t(0xDC01) + each},
      // A high surrogate pairs only with a low one: U+E000 behind it stays a character of its own.
      {{wchar_t(0xD83D), wchar_t(0xE000)},
       lacks + L"U+D83D " + wchar_t(0xD83D) + L", U+E000 " + wchar_t(0xE000) + each},
      {L"\u0430\u0431\u0432\u0433\u0434\u0435\u0436\u0437\u0438\u0439",
       lacks + L"U+0430 \u0430, U+0431 \u0431, U+0432 \u0432, U+0433 \u0433, U+0434 \u0434, " +
           L"U+0435 \u0435, U+0436 \u0436, U+0437 \u0437 and 2 more" + each},
  };
  for (const auto& [text, warning] : rows) EXPECT_EQ(CodePageWarning(text), warning);
}

}  // namespace kw
