#ifndef KW_FUZZ_WIDE_INPUT_H_
#define KW_FUZZ_WIDE_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/text.h"

namespace kw::fuzz {

/// The escape byte of WideText: the next three bytes give one character's value.
constexpr uint8_t kWideEscape = 0xFF;

/// The fuzzer's bytes as the program's wide text: each byte is the line's character of that
/// code (Windows-1252), except kWideEscape, whose next three bytes (high first) are the value of
/// any character up to 0xFFFFFF, so that characters the line can't carry occur too.
inline std::wstring WideText(const uint8_t* data, size_t size) {
  std::wstring text;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] != kWideEscape) {
      text.push_back(LineChar(data[i]));
      continue;
    }
    uint32_t value = 0;
    for (int k = 0; k < 3; ++k) value = value << 8 | (++i < size ? data[i] : 0);
    text.push_back(static_cast<wchar_t>(value));
  }
  return text;
}

/// The same for a part of the input held as a string.
inline std::wstring WideText(const std::string& bytes) {
  return WideText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

/// Cuts the next field off the front of the rest, up to a NUL (dropped) or the end.
inline std::string NextField(std::string& rest) {
  const size_t end = rest.find('\0');
  std::string field = rest.substr(0, end);
  rest.erase(0, end == std::string::npos ? rest.size() : end + 1);
  return field;
}

}  // namespace kw::fuzz

#endif  // KW_FUZZ_WIDE_INPUT_H_
