// The locale's encoding on POSIX: the C library's multibyte conversion under the locale that
// main set from the environment.
#include <cwchar>
#include <string>

#include "base/text.h"

namespace kw {

std::wstring FromLocale(const std::string& bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  std::mbstate_t state{};
  size_t i = 0;
  while (i < bytes.size()) {
    wchar_t wc = 0;
    size_t n = std::mbrtowc(&wc, bytes.data() + i, bytes.size() - i, &state);
    if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
      // Not valid in the locale's encoding: take the byte as Windows-1252,
      // so that a file saved on Windows still reads right.
      out.push_back(LineChar(static_cast<unsigned char>(bytes[i])));
      state = std::mbstate_t{};
      ++i;
    } else {
      out.push_back(wc);  // n == 0 is an embedded NUL, one byte long
      i += n == 0 ? 1 : n;
    }
  }
  return out;
}

std::string ToLocale(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  std::mbstate_t state{};
  char buf[16];
  for (wchar_t c : text) {
    size_t n = std::wcrtomb(buf, c, &state);
    if (n == static_cast<size_t>(-1)) {
      out.push_back('?');
      state = std::mbstate_t{};
    } else {
      out.append(buf, n);
    }
  }
  return out;
}

}  // namespace kw
