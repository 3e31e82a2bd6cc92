// The entry point of a target built without libFuzzer: every file of the folders given, in the
// order of their names, for the target's FuzzOne, so that each seed corpus runs with the tests.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

#include "fuzz_util.h"

/// A target's own set-up, where it has one.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i)
    for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
      inputs.push_back(entry.path());
  std::sort(inputs.begin(), inputs.end());
  for (const std::filesystem::path& input : inputs) {
    std::cerr << input.string() << "\n";  // the input of a failed property stands last
    std::ostringstream bytes;
    bytes << std::ifstream(input, std::ios::binary).rdbuf();
    kw::fuzz::FuzzOne(bytes.str());
  }
  std::cout << inputs.size() << " inputs\n";
  return inputs.empty() ? 1 : 0;
}
