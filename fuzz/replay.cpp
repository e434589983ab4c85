// Runs a fuzz target without a fuzzer: over its corpus, and over random variations of that, the
// same ones in every run. The input at hand is in a file, so that whatever ends a run can be run
// again.
// Usage: <target> CORPUS-DIRECTORY|FILE [VARIATIONS]
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::string> ReadInputs(const fs::path& path) {
  std::vector<fs::path> files = {path};
  if (fs::is_directory(path)) files.assign(fs::directory_iterator(path), {});
  std::sort(files.begin(), files.end());
  std::vector<std::string> inputs;
  for (const fs::path& file : files) {
    std::ifstream bytes(file, std::ios::binary);
    if (bytes)
      inputs.emplace_back(std::istreambuf_iterator<char>(bytes), std::istreambuf_iterator<char>());
  }
  return inputs;
}

// The beginning of one input and the end of another, with some bytes drawn anew.
std::string Vary(const std::vector<std::string>& inputs, std::mt19937& random) {
  constexpr size_t MOST_BYTES = 600;
  const auto below = [&random](size_t limit) { return static_cast<size_t>(random()) % limit; };
  std::string input = inputs[below(inputs.size())];
  input.resize(below(input.size() + 1));
  const std::string& back = inputs[below(inputs.size())];
  input.append(back, below(back.size() + 1));
  input.resize(std::min(input.size() + below(8), MOST_BYTES));
  for (size_t draws = input.empty() ? 0 : below(10); draws > 0; --draws) {
    const size_t position = below(input.size());
    input[position] = static_cast<char>(random());
  }
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> inputs = ReadInputs(argc > 1 ? argv[1] : "");
  if (inputs.empty()) {
    fprintf(stderr, "usage: %s CORPUS-DIRECTORY|FILE [VARIATIONS]\n", argv[0]);
    return 2;
  }
  const std::string kept = std::string(argv[0]) + ".input";
  fprintf(stderr, "if this ends early, run again: %s %s\n", argv[0], kept.c_str());
  std::ofstream file(kept, std::ios::binary);
  const size_t runs = inputs.size() + (argc > 2 ? strtoul(argv[2], nullptr, 10) : 0);
  std::mt19937 random;
  for (size_t i = 0; i < runs; ++i) {
    const std::string input = i < inputs.size() ? inputs[i] : Vary(inputs, random);
    file.seekp(0) << input << std::flush;
    fs::resize_file(kept, input.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
  printf("%zu inputs and %zu variations agree\n", inputs.size(), runs - inputs.size());
}
