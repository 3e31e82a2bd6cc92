#include "link/communication.h"

#include <gtest/gtest.h>

#include "base/error.h"

namespace kw {
namespace {

TEST(CommunicationTest, ShowControlCharsNamesTheLineControls) {
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"", L""},
      {L"\x02" L"abc\x03", L"<STX>abc<ETX>"},
      {L"\r\n", L"<CR><LF>"},
      {L"\n\r", L"<LF><CR>"},
      {L"\x06\x15\x1e\x1b\x04", L"<ACK><NAK><RS><ESC><EOT>"},
      {L"\x11\x13", L"<XON><XOFF>"},
      {std::wstring(L"\x00\x01\x05\x07", 4), std::wstring(L"\x00\x01\x05\x07", 4)},
      {L"<CR>", L"<CR>"},
      {L"\r\r", L"<CR><CR>"},
  };
  for (const auto& [text, shown] : cases) EXPECT_EQ(ShowControlChars(text), shown);
}

TEST(CommunicationTest, IA5EncodeWritesLineCodesInHex) {
  const std::pair<std::wstring, std::wstring> cases[] = {
      {L"abc", L"616263"}, {L"", L""},     {L" ", L"20"},     {L"J", L"4A"},
      {L"\t", L"09"},      {L"\u00e9", L"E9"}, {L"\u20ac", L"80"}, {L"\u4e2d", L"3F"},
  };
  for (const auto& [text, encoded] : cases) EXPECT_EQ(IA5Encode(text), encoded);
  EXPECT_EQ(IA5Encode(std::wstring(32766, L'a')).size(), 65532u);
}

TEST(CommunicationTest, IA5EncodeOverflowBecomesError550) {
  try {
    IA5Encode(std::wstring(32767, L'a'));
    FAIL() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), ErrorBase + 550);
    EXPECT_EQ(e.description(), L"Error occured in IA5Encoding of message (Overflow)");
    EXPECT_EQ(e.source(), L"");
  }
}

}  // namespace
}  // namespace kw
