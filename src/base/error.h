#ifndef KW_BASE_ERROR_H_
#define KW_BASE_ERROR_H_

#include <cstdint>
#include <exception>
#include <string>

namespace kw {

/// Base of the program's own error numbers: an error n is raised as kErrorBase + n.
constexpr int32_t kErrorBase = static_cast<int32_t>(-2147221504);  // 0x80040000

/// The one raised error of the program: a number, a source and a description.
class Error : public std::exception {
 public:
  Error(int32_t number, std::wstring source, std::wstring description);

  int32_t number() const { return number_; }
  const std::wstring& source() const { return source_; }
  const std::wstring& description() const { return description_; }
  /// The description in the locale's encoding, for diagnostics.
  const char* what() const noexcept override { return what_.c_str(); }

 private:
  int32_t number_;
  std::wstring source_;
  std::wstring description_;
  std::string what_;
};

/// The program's own error kErrorBase + n, which carries no source.
Error AppError(int n, std::wstring description);

/// A text that can't be read as a number.
Error ConversionFailure();

/// A value that leaves the range of a 16-bit signed integer.
Error OverflowFailure();

/// Source text of the failures outside the program's own range ("[Unhandled][n]" lines).
extern const wchar_t kProgramSource[];

}  // namespace kw

#endif  // KW_BASE_ERROR_H_
