#include "link/communication.h"

#include "base/error.h"
#include "base/int16.h"
#include "base/text.h"

namespace kw {
namespace {

struct ControlName {
  wchar_t code;
  const wchar_t* name;
};

// In the order the replacements run; each name is printable, so no row touches another's work.
constexpr ControlName kControlNames[] = {
    {kStx, L"<STX>"}, {kEtx, L"<ETX>"},   {kCr, L"<CR>"},   {kAck, L"<ACK>"},
    {kEsc, L"<ESC>"}, {kRs, L"<RS>"},     {kEot, L"<EOT>"}, {kNak, L"<NAK>"},
    {kLf, L"<LF>"},   {kXoff, L"<XOFF>"}, {kXon, L"<XON>"},
};

}  // namespace

std::wstring ShowControlChars(std::wstring text) {
  for (const ControlName& row : kControlNames) {
    const std::wstring name = row.name;
    for (size_t at = text.find(row.code); at != std::wstring::npos;
         at = text.find(row.code, at + name.size())) {
      text.replace(at, 1, name);
    }
  }
  return text;
}

std::wstring IA5Encode(const std::wstring& text) {
  static const wchar_t kHex[] = L"0123456789ABCDEF";
  try {
    // Length and index are 16-bit counters; the index passes the length at the end.
    const int16_t length = CheckInt16(static_cast<long long>(text.size()));
    CheckInt16(static_cast<long long>(length) + 1);
    std::wstring encoded;
    encoded.reserve(text.size() * 2);
    for (wchar_t c : text) {
      const unsigned char code = LineCode(c);
      encoded.push_back(kHex[code >> 4]);
      encoded.push_back(kHex[code & 0x0F]);
    }
    return encoded;
  } catch (const Error& failure) {
    throw AppError(550,
                   L"Error occured in IA5Encoding of message (" + failure.description() + L")");
  }
}

}  // namespace kw
