#ifndef KW_FUZZ_FUZZ_UTIL_H_
#define KW_FUZZ_FUZZ_UTIL_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/text.h"

namespace kw::fuzz {

/// One run of the target on the fuzzer's input; each target defines it.
void FuzzOne(const std::string& input);

/// Ends the run with the property's name when it fails; libFuzzer keeps the input as a crash.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

/// The fuzzer's bytes as the program's wide text: each byte is the line's character of that code,
/// except 0xFF, whose next three bytes (high first) give any character up to 0xFFFFFF, so that
/// characters the line can't carry occur too.
inline std::wstring WideText(const std::string& bytes) {
  const auto byte = [&bytes](size_t at) -> unsigned {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0;
  };
  std::wstring text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (byte(i) != 0xFF) {
      text.push_back(LineChar(static_cast<unsigned char>(byte(i))));
    } else {
      text.push_back(static_cast<wchar_t>(byte(i + 1) << 16 | byte(i + 2) << 8 | byte(i + 3)));
      i += 3;
    }
  }
  return text;
}

/// Cuts the next field off the front of the rest, up to a NUL (dropped) or the end.
inline std::string NextField(std::string& rest) {
  std::string field = rest.substr(0, rest.find('\0'));
  rest.erase(0, field.size() + 1);
  return field;
}

/// Runs the step: 0 when it returns, n for the program's own error n, else the raised number.
/// Anything else thrown escapes to libFuzzer.
template <typename Step>
int ErrorOf(Step step) {
  try {
    step();
  } catch (const Error& e) {
    const int64_t n = int64_t{e.number()} - kErrorBase;
    return n >= 0 && n < 0x10000 ? static_cast<int>(n) : e.number();
  }
  return 0;
}

}  // namespace kw::fuzz

#endif  // KW_FUZZ_FUZZ_UTIL_H_
