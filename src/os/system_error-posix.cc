#include <string.h>

#include "base/text.h"
#include "os/locale_text-posix.h"
#include "os/system_error.h"

namespace kw {
namespace {

// strerror_r comes in two forms; each overload takes the one that this C library has.
[[maybe_unused]] const char* Pick(int result, const char* buffer) {
  return result == 0 ? buffer : "Unknown error";
}
[[maybe_unused]] const char* Pick(const char* result, const char*) { return result; }

}  // namespace

std::wstring SystemErrorText(int code) {
  LoadUserLocale();  // the texts come in the language of the locale
  char buffer[256] = {};
  return FromLocale(Pick(strerror_r(code, buffer, sizeof buffer), buffer));
}

}  // namespace kw
