#include "sim/options.h"

#include <algorithm>
#include <stdexcept>

namespace kw::sim {

std::vector<std::string> SplitInto(const std::string& bytes, int count) {
  const size_t n = std::clamp<size_t>(static_cast<size_t>(std::max(count, 1)), 1,
                                      std::max<size_t>(bytes.size(), 1));
  std::vector<std::string> chunks;
  size_t at = 0;
  for (size_t i = 0; i < n; ++i) {
    const size_t size = bytes.size() / n + (i < bytes.size() % n ? 1 : 0);
    chunks.push_back(bytes.substr(at, size));
    at += size;
  }
  return chunks;
}

long long NumberOption(const std::string& name, const std::string& value, long long low) {
  size_t used = 0;
  long long number = 0;
  try {
    number = std::stoll(value, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != value.size() || number < low) {
    throw std::invalid_argument(name + ": \"" + value + "\" is not a whole number of at least " +
                                std::to_string(low));
  }
  return number;
}

int HexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace kw::sim
