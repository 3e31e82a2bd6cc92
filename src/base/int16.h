#ifndef KW_BASE_INT16_H_
#define KW_BASE_INT16_H_

#include <cstdint>
#include <string>

namespace kw {

/// Reads a text as a 16-bit signed integer: blanks, an optional sign, decimal digits with an
/// optional fraction that rounds half to even, blanks. Raises the conversion failure for any
/// other text and the overflow failure for a value outside -32768 to 32767.
int16_t ToInt16(const std::wstring& text);

/// Gives the value as a 16-bit signed integer, or raises the overflow failure.
int16_t CheckInt16(long long value);

}  // namespace kw

#endif  // KW_BASE_INT16_H_
