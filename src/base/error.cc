#include "base/error.h"

#include "base/error_numbers.h"
#include "base/text.h"

namespace kw {

const wchar_t kProgramSource[] = L"Kestrawind";

Error::Error(int32_t number, std::wstring source, std::wstring description)
    : number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      what_(ToLocale(description_)) {}

std::wstring Error::CauseText() const {
  if (subject_.empty() || reason_.empty()) return subject_ + reason_;
  return subject_ + L": " + reason_;
}

Error& Error::WithCause(Cause cause, std::wstring subject, std::wstring reason) & {
  cause_ = cause;
  subject_ = std::move(subject);
  reason_ = std::move(reason);
  return *this;
}

Error&& Error::WithCause(Cause cause, std::wstring subject, std::wstring reason) && {
  return std::move(WithCause(cause, std::move(subject), std::move(reason)));
}

Error&& Error::CausedBy(const Error& inner) && {
  return std::move(*this).WithCause(inner.cause_, inner.subject_, inner.reason_);
}

Error AppError(int n, std::wstring description) {
  return Error(kErrorBase + n, L"", std::move(description));
}

Error ConversionFailure() { return Error(kTypeMismatch, kProgramSource, L"Type mismatch"); }

Error OverflowFailure() { return Error(kOverflow, kProgramSource, L"Overflow"); }

}  // namespace kw
