#include "link/communication.h"

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

}  // namespace kw
