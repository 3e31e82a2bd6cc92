#include "base/int16.h"

#include "base/error.h"

namespace kw {
namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t'; }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

}  // namespace

int16_t CheckInt16(long long value) {
  if (value < -32768 || value > 32767) throw OverflowFailure();
  return static_cast<int16_t>(value);
}

int16_t ToInt16(const std::wstring& text) {
  size_t i = 0, end = text.size();
  while (i < end && IsBlank(text[i])) ++i;
  while (end > i && IsBlank(text[end - 1])) --end;

  bool negative = false;
  if (i < end && (text[i] == L'+' || text[i] == L'-')) negative = text[i++] == L'-';
  while (i < end && IsBlank(text[i])) ++i;

  // The integer part saturates well above the 16-bit range, so that a long run of
  // digits still ends in the overflow failure and never wraps.
  long long whole = 0;
  size_t digits = 0;
  for (; i < end && IsDigit(text[i]); ++i, ++digits) {
    if (whole < 1000000) whole = whole * 10 + (text[i] - L'0');
  }
  // The fraction only decides the rounding: above, below or exactly one half.
  int half = -1;  // -1 below a half, 0 exactly a half, 1 above
  if (i < end && text[i] == L'.') {
    ++i;
    size_t first = i;
    for (; i < end && IsDigit(text[i]); ++i, ++digits) {
      if (i == first) {
        half = text[i] > L'5' ? 1 : text[i] == L'5' ? 0 : -1;
      } else if (half == 0 && text[i] != L'0') {
        half = 1;
      }
    }
  }
  if (digits == 0 || i != end) throw ConversionFailure();
  if (half > 0 || (half == 0 && whole % 2 == 1)) ++whole;
  return CheckInt16(negative ? -whole : whole);
}

}  // namespace kw
