// The entry point of every target: libFuzzer's input, as bytes, for the target's FuzzOne.
#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kw::fuzz::FuzzOne(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
