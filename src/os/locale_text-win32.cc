// The locale's encoding on Windows: the system's ANSI code page, converted by the Win32 API. The
// C runtime's locale is not used: mingw's has no UTF-8 and follows nothing that Windows sets.
#include <windows.h>

#include <string>

#include "base/text.h"

namespace kw {
namespace {

/// Decodes bytes in the ANSI code page; empty when some byte is not valid there.
std::wstring Decode(const char* bytes, int count) {
  const int length = ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes, count, nullptr, 0);
  if (length <= 0) return std::wstring();
  std::wstring out(static_cast<size_t>(length), L'\0');
  ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes, count, &out[0], length);
  return out;
}

}  // namespace

std::wstring FromLocale(const std::string& bytes) {
  if (bytes.empty()) return std::wstring();
  std::wstring out = Decode(bytes.data(), static_cast<int>(bytes.size()));
  if (!out.empty()) return out;
  // Some byte is not valid in a multi-byte code page: go character by character and read such a
  // byte as Windows-1252, so that a file saved on another Windows still reads right.
  for (size_t i = 0; i < bytes.size();) {
    const bool lead = ::IsDBCSLeadByte(static_cast<BYTE>(bytes[i])) && i + 1 < bytes.size();
    const std::wstring pair = lead ? Decode(bytes.data() + i, 2) : std::wstring();
    if (!pair.empty()) {
      out += pair;
      i += 2;
      continue;
    }
    const std::wstring single = Decode(bytes.data() + i, 1);
    out +=
        single.empty() ? std::wstring(1, LineChar(static_cast<unsigned char>(bytes[i]))) : single;
    ++i;
  }
  return out;
}

std::string ToLocale(const std::wstring& text) {
  if (text.empty()) return std::string();
  // No best fit: a character that the code page lacks becomes "?", never a look-alike.
  const DWORD flags = WC_NO_BEST_FIT_CHARS;
  const int count = static_cast<int>(text.size());
  const int length =
      ::WideCharToMultiByte(CP_ACP, flags, text.data(), count, nullptr, 0, "?", nullptr);
  if (length <= 0) return std::string(text.size(), '?');
  std::string out(static_cast<size_t>(length), '\0');
  ::WideCharToMultiByte(CP_ACP, flags, text.data(), count, &out[0], length, "?", nullptr);
  return out;
}

}  // namespace kw
