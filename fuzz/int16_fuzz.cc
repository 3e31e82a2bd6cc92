// The 16-bit conversion of numeric settings (ConnectionTimeout, TextLength, the port number):
// ToInt16 agrees with a plain reading of every text, giving the value in range, the overflow
// failure out of range and the conversion failure for what is no number, and nothing else;
// CheckInt16 keeps a number in range and overflows on any other.
#include <cstring>
#include <regex>
#include <utility>

#include "base/int16.h"
#include "fuzz_util.h"

namespace kw::fuzz {
namespace {

/// The failure (0 for none) and value of the text read by its grammar: blanks, a sign, blanks,
/// the whole digits, a point and the fraction's digits, blanks, with at least one digit; past a
/// half rounds up, and a half to the even value.
std::pair<int, long long> Reference(const std::wstring& text) {
  static const std::wregex& number =
      *new std::wregex(LR"([ \t]*([+-]?)[ \t]*([0-9]*)(?:\.([0-9]*))?[ \t]*)");
  std::wsmatch parts;
  if (!std::regex_match(text, parts, number) || parts[2].length() + parts[3].length() == 0) {
    return {kTypeMismatch, 0};
  }
  std::wstring whole = parts[2], fraction = parts[3];
  whole.erase(0, whole.find_first_not_of(L'0'));
  if (whole.size() > 5) return {kOverflow, 0};
  long long value = whole.empty() ? 0 : std::stoll(whole);
  fraction.erase(fraction.find_last_not_of(L'0') + 1);  // compares as a number from here on
  if (fraction > L"5" || (fraction == L"5" && value % 2 == 1)) ++value;
  if (parts[1] == L"-") value = -value;
  if (value < INT16_MIN || value > INT16_MAX) return {kOverflow, 0};
  return {0, value};
}

}  // namespace

void FuzzOne(const std::string& input) {
  const std::wstring text = WideText(input);
  long long value = 0;
  const int failure = ErrorOf([&] { value = ToInt16(text); });
  Require(std::make_pair(failure, value) == Reference(text),
          "ToInt16 agrees with the plain reading: the value, the overflow or the type mismatch");

  // The input's first eight bytes as a number for CheckInt16.
  int64_t number = 0, kept = 0;
  if (input.size() >= sizeof number) std::memcpy(&number, input.data(), sizeof number);
  const int overflow = ErrorOf([&] { kept = CheckInt16(number); });
  Require(number >= INT16_MIN && number <= INT16_MAX ? overflow == 0 && kept == number
                                                     : overflow == kOverflow,
          "a number in range is kept, any other overflows");
}

}  // namespace kw::fuzz
