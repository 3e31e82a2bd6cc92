#include <windows.h>

#include "os/system_error.h"

namespace kw {

std::wstring SystemErrorText(int code) {
  wchar_t* text = nullptr;
  const DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::wstring result = length > 0 && text ? std::wstring(text, length) : std::wstring();
  if (text) ::LocalFree(text);
  // The system's texts end with a full stop and CR LF; one line is wanted.
  while (!result.empty() && (result.back() == L'\n' || result.back() == L'\r' ||
                             result.back() == L' ' || result.back() == L'.')) {
    result.pop_back();
  }
  if (result.empty()) result = L"Error " + std::to_wstring(static_cast<unsigned long>(code));
  return result;
}

}  // namespace kw
