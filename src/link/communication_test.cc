#include "link/communication.h"

#include "line_fixture.h"

namespace kw {

TEST(CommunicationTest, ShowsLineControlsByNameAndEncodesTextInHexUpTo32766Characters) {
  const wchar_t* shown[][2] = {
      {L"", L""},
      {L"\002abc\003\n\r\r", L"<STX>abc<ETX><LF><CR><CR>"},
      {L"\x06\x15\x1e\x1b\x04\x11\x13", L"<ACK><NAK><RS><ESC><EOT><XON><XOFF>"},
      {L"\x01\x05\x07<CR>", L"\x01\x05\x07<CR>"},
  };

  for (const auto& [text, want] : shown) EXPECT_EQ(ShowControlChars(text), want);
  const wchar_t* hex[][2] = {{L"", L""}, {L" J\t", L"204A09"}, {L"\u00e9\u20ac\u4e2d", L"E9803F"}};
  for (const auto& [text, want] : hex) EXPECT_EQ(IA5Encode(text), want);
  EXPECT_EQ(IA5Encode(std::wstring(32766, L'a')).size(), 65532u);
  EXPECT_EQ(test::Outcome([] { IA5Encode(std::wstring(32767, L'a')); }),
            "[550] Error occured in IA5Encoding of message (Overflow)");
}

}  // namespace kw
