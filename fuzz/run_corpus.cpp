// SPDX-License-Identifier: MIT
// run_corpus DIRECTORY...: feeds every file to the target that this is linked with.
#include <cstdio>
#include <filesystem>

#include "fuzz_target.h"

int main(int count, char** arguments) {
  LLVMFuzzerInitialize(&count, &arguments);
  int inputs = 0;
  for (int i = 1; i < count; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
      const std::string name = entry.path();
      const std::string input = vexa_fuzz::bytes_of_file(name.c_str());
      std::fprintf(stderr, "%s\n", name.c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
      ++inputs;
    }
  }
  std::fprintf(stderr, "%d inputs\n", inputs);
  return inputs > 0 ? 0 : 1;  // an empty corpus tests nothing
}
