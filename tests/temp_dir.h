#ifndef KW_TESTS_TEMP_DIR_H_
#define KW_TESTS_TEMP_DIR_H_

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

namespace kw {

/// Makes a fresh folder with a random name under the system's temp folder, on any platform;
/// raises std::runtime_error if it can't.
inline std::filesystem::path MakeTempFolder(const std::string& prefix) {
  std::random_device seed;
  std::mt19937_64 random(seed());
  const std::filesystem::path base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::filesystem::path path = base / (prefix + std::to_string(random() % 1000000000));
    if (std::filesystem::create_directory(path)) return path;
  }
  throw std::runtime_error("can't make a temp folder");
}

}  // namespace kw

#endif  // KW_TESTS_TEMP_DIR_H_
