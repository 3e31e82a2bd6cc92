// The 16-bit conversion of numeric settings (ConnectionTimeout, TextLength, the port number):
// ToInt16 agrees with a reference reading on every text, giving the value in range, the overflow
// failure out of range and the conversion failure for what is no number, and nothing else.
#include <cstdint>
#include <cstring>
#include <string>

#include "base/error.h"
#include "base/error_numbers.h"
#include "base/int16.h"
#include "require.h"
#include "wide_input.h"

using kw::fuzz::Require;

namespace {

/// What reading a text gives: a value, the overflow failure or the conversion failure.
struct Reading {
  int kind = 0;  ///< 0 for a value, else the failure's error number
  long long value = 0;
  bool operator==(const Reading& other) const { return kind == other.kind && value == other.value; }
};

/// Drops blanks and tabs from the front of the text.
void TrimFront(std::wstring& text) { text.erase(0, text.find_first_not_of(L" \t")); }

/// The number in a setting's text, read from the text cut into its parts: blanks, a sign, blanks,
/// the whole digits, a point and the fraction's digits, blanks; halves round to the even value.
Reading Reference(std::wstring text) {
  TrimFront(text);
  text.erase(text.find_last_not_of(L" \t") + 1);
  const bool negative = !text.empty() && text[0] == L'-';
  if (!text.empty() && (text[0] == L'-' || text[0] == L'+')) {
    text.erase(0, 1);
    TrimFront(text);
  }
  const size_t point = text.find(L'.');
  std::wstring whole = text.substr(0, point);
  const std::wstring fraction = point == std::wstring::npos ? L"" : text.substr(point + 1);
  const std::wstring kDigits = L"0123456789";
  if (whole.find_first_not_of(kDigits) != std::wstring::npos ||
      fraction.find_first_not_of(kDigits) != std::wstring::npos ||
      whole.size() + fraction.size() == 0) {
    return {kw::kTypeMismatch, 0};
  }
  whole.erase(0, whole.find_first_not_of(L'0'));
  if (whole.size() > 5) return {kw::kOverflow, 0};
  long long value = whole.empty() ? 0 : std::stoll(whole);
  // Above a half when the first fraction digit is over 5, or 5 with any other digit not 0.
  const bool five = !fraction.empty() && fraction[0] == L'5';
  const bool beyond = fraction.find_first_not_of(L'0', 1) != std::wstring::npos;
  if ((!fraction.empty() && fraction[0] > L'5') || (five && beyond) || (five && value % 2 == 1)) {
    ++value;
  }
  if (negative) value = -value;
  if (value < INT16_MIN || value > INT16_MAX) return {kw::kOverflow, 0};
  return {0, value};
}

/// What ToInt16 gives; any failure but the two ends the run.
Reading Read(const std::wstring& text) {
  try {
    return {0, kw::ToInt16(text)};
  } catch (const kw::Error& e) {
    Require(e.number() == kw::kOverflow || e.number() == kw::kTypeMismatch,
            "only the overflow or the conversion failure");
    return {e.number(), 0};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::wstring text = kw::fuzz::WideText(data, size);
  Require(Read(text) == Reference(text), "ToInt16 agrees with the reference reading");

  // The input's first eight bytes as a number for CheckInt16.
  int64_t number = 0;
  if (size >= sizeof number) std::memcpy(&number, data, sizeof number);
  int failure = 0;
  try {
    Require(kw::CheckInt16(number) == number, "a number in range is kept");
  } catch (const kw::Error& e) {
    failure = e.number();
  }
  Require(failure == (number >= INT16_MIN && number <= INT16_MAX ? 0 : kw::kOverflow),
          "a number out of range overflows, and only such a number");
  return 0;
}
