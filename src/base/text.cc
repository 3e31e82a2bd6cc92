#include "base/text.h"

namespace kw {
namespace {

// Unicode values of Windows-1252's bytes 0x80 to 0x9F. The five bytes that the
// set leaves undefined map to the C1 control of the same value, as Windows does.
constexpr wchar_t kHighControls[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

wchar_t LineChar(unsigned char code) {
  if (code >= 0x80 && code < 0xA0) return kHighControls[code - 0x80];
  return static_cast<wchar_t>(code);
}

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
  for (char b : bytes) out.push_back(LineChar(static_cast<unsigned char>(b)));
  return out;
}

}  // namespace kw
