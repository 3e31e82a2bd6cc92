#ifndef KW_FUZZ_REQUIRE_H_
#define KW_FUZZ_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace kw::fuzz {

/// Ends the run with the property's name when it fails; libFuzzer keeps the input as a crash.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

}  // namespace kw::fuzz

#endif  // KW_FUZZ_REQUIRE_H_
