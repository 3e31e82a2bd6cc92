#ifndef KW_TESTS_UNIT_UTIL_H_
#define KW_TESTS_UNIT_UTIL_H_

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "base/error.h"
#include "base/text.h"

namespace kw {

/// A fresh folder with a random name under the system's temp folder, removed with all it holds.
struct TempFolder {
  TempFolder() { std::filesystem::create_directory(path); }
  ~TempFolder() { std::filesystem::remove_all(path); }
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("kw-" + std::to_string(std::random_device()()));
};

/// The whole file, byte for byte; "(none)" when there is no such file.
inline std::string FileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "(none)";
}

/// The number of the Error that the call raises; 0 when it raises none.
template <typename Call>
int32_t Raised(Call call) try {
  call();
  return 0;
} catch (const Error& e) {
  return e.number();
}

/// The error that the call raises as "number cause: subject: reason"; "0" when it raises none.
template <typename Call>
std::string RaisedWithCause(Call call) try {
  call();
  return "0";
} catch (const Error& e) {
  const char* const kCauses[] = {"none",    "missing", "not a port", "no permission", "busy",
                                 "unknown", "refused", "timed out",  "bad address",   "other"};
  return std::to_string(e.number()) + " " + kCauses[static_cast<int>(e.cause())] + ": " +
         ToLine(e.CauseText());
}

}  // namespace kw

#endif  // KW_TESTS_UNIT_UTIL_H_
