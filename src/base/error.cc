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

Error AppError(int n, std::wstring description) {
  return Error(kErrorBase + n, L"", std::move(description));
}

Error ConversionFailure() { return Error(kTypeMismatch, kProgramSource, L"Type mismatch"); }

Error OverflowFailure() { return Error(kOverflow, kProgramSource, L"Overflow"); }

}  // namespace kw
