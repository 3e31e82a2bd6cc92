#ifndef KW_LINK_COMMUNICATION_H_
#define KW_LINK_COMMUNICATION_H_

#include <string>

namespace kw {

/// Makes the line's control characters readable for the debug log: STX becomes "<STX>" and so on.
std::wstring ShowControlChars(std::wstring text);

/// Writes each character's line code as two upper-case hexadecimal digits ("abc" -> "616263").
/// Raises ErrorBase + 550 for a text of 32,767 characters or more.
std::wstring IA5Encode(const std::wstring& text);

}  // namespace kw

#endif  // KW_LINK_COMMUNICATION_H_
