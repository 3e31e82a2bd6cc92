#ifndef KW_BASE_ERROR_H_
#define KW_BASE_ERROR_H_

#include <cstdint>
#include <exception>
#include <string>

namespace kw {

/// Base of the program's own error numbers: an error n is raised as kErrorBase + n.
constexpr int32_t kErrorBase = static_cast<int32_t>(-2147221504);  // 0x80040000

/// Why something that the run needs from the system failed, in kinds that a caller can act on.
enum class Cause {
  kNone,          ///< nothing known beyond the error itself
  kMissing,       ///< no such device or file
  kNotAPort,      ///< it is there but is no serial port (a plain file, a folder)
  kNoPermission,  ///< the user may not open or read it
  kBusy,          ///< another run or program holds it
  kNameUnknown,   ///< a host name that doesn't resolve
  kRefused,       ///< a connection refused, or a host that can't be reached
  kTimedOut,      ///< no answer in time
  kBadAddress,    ///< a port address in the settings that can't be read
  kOther,         ///< any other failure that the system reported
};

/// The one raised error of the program: a number, a source and a description, and where the
/// system told why, the cause: its kind, what it concerned and the system's own reason.
class Error : public std::exception {
 public:
  Error(int32_t number, std::wstring source, std::wstring description);

  int32_t number() const { return number_; }
  const std::wstring& source() const { return source_; }
  const std::wstring& description() const { return description_; }
  /// The description in the locale's encoding, for diagnostics.
  const char* what() const noexcept override { return what_.c_str(); }

  /// The kind of cause; kNone when none is known.
  Cause cause() const { return cause_; }
  /// The device, file or address as the user wrote it or as it was looked for.
  const std::wstring& subject() const { return subject_; }
  /// The system's own text of why (strerror, FormatMessage), or a short text of ours.
  const std::wstring& reason() const { return reason_; }
  /// "subject: reason", or the one of them that is there; empty without a cause.
  std::wstring CauseText() const;

  /// Sets the cause; gives the error, so that a raise can chain it.
  Error& WithCause(Cause cause, std::wstring subject, std::wstring reason) &;
  Error&& WithCause(Cause cause, std::wstring subject, std::wstring reason) &&;
  /// Takes over the cause of an inner error, so that a numbered error keeps what the system found.
  Error&& CausedBy(const Error& inner) &&;

 private:
  int32_t number_;
  std::wstring source_;
  std::wstring description_;
  std::string what_;
  Cause cause_ = Cause::kNone;
  std::wstring subject_;
  std::wstring reason_;
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
