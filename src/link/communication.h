#ifndef KW_LINK_COMMUNICATION_H_
#define KW_LINK_COMMUNICATION_H_

#include <string>

namespace kw {

/// The control characters of the line's protocols.
constexpr wchar_t kStx = 0x02;
constexpr wchar_t kEtx = 0x03;
constexpr wchar_t kEot = 0x04;
constexpr wchar_t kAck = 0x06;
constexpr wchar_t kLf = 0x0A;
constexpr wchar_t kCr = 0x0D;
constexpr wchar_t kXon = 0x11;
constexpr wchar_t kXoff = 0x13;
constexpr wchar_t kNak = 0x15;
constexpr wchar_t kEsc = 0x1B;
constexpr wchar_t kRs = 0x1E;

/// Makes the line's control characters readable for the debug log: STX becomes "<STX>" and so on.
std::wstring ShowControlChars(std::wstring text);

}  // namespace kw

#endif  // KW_LINK_COMMUNICATION_H_
