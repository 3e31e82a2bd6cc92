#include "link/communication.h"

#include "line_fixture.h"

namespace kw {

TEST(CommunicationTest, ShowsLineControlsByName) {
  const wchar_t* shown[][2] = {
      {L"", L""},
      {L"\002abc\003\n\r\r", L"<STX>abc<ETX><LF><CR><CR>"},
      {L"\x06\x15\x1e\x1b\x04\x11\x13", L"<ACK><NAK><RS><ESC><EOT><XON><XOFF>"},
      {L"\x01\x05\x07<CR>", L"\x01\x05\x07<CR>"},
  };

  for (const auto& [text, want] : shown) EXPECT_EQ(ShowControlChars(text), want);
}

}  // namespace kw
