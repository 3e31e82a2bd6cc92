#include "base/text.h"

#include <cwchar>

namespace kw {
namespace {

// Unicode values of Windows-1252's bytes 0x80 to 0x9F. The five bytes that the
// set leaves undefined map to the C1 control of the same value, as Windows does.
constexpr wchar_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

wchar_t FromCp1252(unsigned char b) {
  if (b >= 0x80 && b < 0xA0) return kHighControls[b - 0x80];
  return static_cast<wchar_t>(b);
}

}  // namespace

unsigned char LineCode(wchar_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<unsigned char>(c);
  for (int i = 0; i < 32; ++i) {
    if (kHighControls[i] == c) return static_cast<unsigned char>(0x80 + i);
  }
  return '?';
}

std::string ToLine(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  for (wchar_t c : text) out.push_back(static_cast<char>(LineCode(c)));
  return out;
}

std::wstring FromLine(const std::string& bytes) {
  std::wstring out;
  out.reserve(bytes.size());
  for (char b : bytes) out.push_back(FromCp1252(static_cast<unsigned char>(b)));
  return out;
}

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
      out.push_back(FromCp1252(static_cast<unsigned char>(bytes[i])));
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
